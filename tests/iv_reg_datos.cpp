// What a host calls around a command: its texts and ids in and out of the channel, stored data, the end of a
// server.
#include "iv_reg_apoyo.h"

#include "comun/proceso_propio.h"

#include "iv_comdat.h"
#include "iv_mcbase.h"

namespace {

struct iv_reg_get : con_sesion {
    void prepara(const char *servicio = nullptr)
    {
        m_servicio = servicio != nullptr ? servicio : nombre_unico("Calc");
        sirve(m_servicio, ventana());
        m_canal = std::make_unique<bloque_crudo>(abre_canal(m_servicio));
    }

    const char *m_servicio = nullptr;
    std::unique_ptr<bloque_crudo> m_canal;
};
struct iv_reg_set : iv_reg_get {};
struct iv_reg_guarda : iv_reg_get {};
struct iv_reg_termina : iv_reg_get {};

struct textos {
    uint32_t id = 7;
    wchar_t t64[64] = L"before", t256[256] = L"before", t2_256[256] = L"before";
    int16_t pide(const char *servicio, uint32_t id_comando)
    {
        return ivrexa_get_datos_entrada_comando(servicio, id_comando, &id, t64, t256, t2_256);
    }
    bool intactos() const
    {
        return id == 7 && !wcscmp(t64, L"before") && !wcscmp(t256, L"before") && !wcscmp(t2_256, L"before");
    }
};

mensaje s_publicado;

BOOL WINAPI apunta_publicado(HWND, UINT msg, WPARAM wparam, LPARAM lparam)
{
    s_publicado = {msg, wparam, lparam};
    return TRUE;
}

} // namespace

// ---- get_datos_entrada_comando

TEST_F(iv_reg_get, orden_en_curso_se_entrega)
{
    prepara();
    escribe_orden(m_canal.get(), {100, 105, 0, {L"uno", L"dos", L"tres"}});
    textos t;
    EXPECT_EQ(t.pide(m_servicio, 100), 1);

    EXPECT_EQ(t.id, 105u);
    EXPECT_STREQ(t.t64, L"uno");
    EXPECT_STREQ(t.t256, L"dos");
    EXPECT_STREQ(t.t2_256, L"tres");
    EXPECT_EQ(m_canal->u32(1206), 105u); // not taken by this
    EXPECT_EQ(ivrexa_get_datos_entrada_comando(m_servicio, 100, nullptr, nullptr, nullptr, nullptr), 1);
}

// A field that another program filled to its end, without a NUL.
TEST_F(iv_reg_get, textos_se_cortan_al_buffer)
{
    prepara();
    escribe_orden(m_canal.get(), {100, 0, 0, {}});
    m_canal->pon_bytes(1210, std::vector<uint8_t>(128 + 512 + 512, 'x'));
    textos t;
    EXPECT_EQ(t.pide(m_servicio, 100), 1);

    EXPECT_EQ(wcslen(t.t64), 63u);
    EXPECT_EQ(wcslen(t.t256), 255u);
    EXPECT_EQ(wcslen(t.t2_256), 255u);
}

TEST_F(iv_reg_get, sin_orden_en_curso_da_falso_y_no_escribe_nada)
{
    textos t;
    EXPECT_EQ(t.pide("Calc", 100), 0); // not registered
    prepara();
    escribe_orden(m_canal.get(), {100, 105, 0, {L"uno", L"dos", L"tres"}});
    EXPECT_EQ(t.pide("otro", 100), 0);
    EXPECT_EQ(t.pide(m_servicio, 101), 0);
    for (uint32_t ocupacion : {0u, 1u, 3u}) {
        m_canal->pon_u32(1198, ocupacion);
        EXPECT_EQ(t.pide(m_servicio, 100), 0) << ocupacion;
    }
    EXPECT_TRUE(t.intactos());
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, "Usado");
    EXPECT_EQ(t.pide("Usado", 0), 0); // offered services only
}

TEST_F(iv_reg_get, canal_que_aun_no_se_tiene_se_abre)
{
    const char *servicio = nombre_unico("Calc");
    bloque_crudo canal = abre_canal(servicio);
    escribe_orden(&canal, {100, 105, 0, {}});
    ivrexa_registra_servidor_net("C:\\p.exe", ventana(), servicio, 1);
    textos t;
    EXPECT_EQ(t.pide(servicio, 100), 1);
    EXPECT_EQ(t.id, 105u);
}

TEST_F(iv_reg_get, traza_siempre)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    textos t;
    t.pide("Calc", 100);
    EXPECT_EQ(solo_registros(traza.texto_propio()),
              "\n*** <t>:  GET_DATOS_ENTRADA_COMANDO Calc id_comando: 100\n    Resultado     FALSO\n");
    prepara("Calc");
    escribe_orden(m_canal.get(), {100, 105, 0, {L"uno", L"dos", L"tres"}});
    traza.borra();
    t.pide("Calc", 100);
    EXPECT_EQ(solo_registros(traza.texto_propio()),
              "\n*** <t>:  GET_DATOS_ENTRADA_COMANDO Calc id_comando: 100\n    Resultado     CIERTO\n"
              "    id_datos_entrada_comando = 105\n    buffer_cliente_64\"uno\"\n    buffer_cliente_256\"dos\"\n"
              "    buffer_cliente2_256\"tres\"\n");
}

// ---- set_datos_salida_comando

TEST_F(iv_reg_set, respuesta_se_escribe_en_el_canal)
{
    prepara();
    escribe_orden(m_canal.get(), {100, 0, 0, {}});
    EXPECT_EQ(ivrexa_set_datos_salida_comando(m_servicio, 100, 108, L"uno", L"dos", L"tres"), 1);
    EXPECT_EQ(m_canal->u32(34), 108u);
    EXPECT_EQ(m_canal->texto_u(38, 64), L"uno");
    EXPECT_EQ(m_canal->texto_u(166, 256), L"dos");
    EXPECT_EQ(m_canal->texto_u(678, 256), L"tres");

    EXPECT_EQ(ivrexa_set_datos_salida_comando(m_servicio, 100, 0, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(m_canal->u32(34), 0u);
    for (size_t despl : {38, 166, 678})
        EXPECT_EQ(m_canal->u16(despl), 0u) << despl;

    std::wstring largo(300, L'x');
    ivrexa_set_datos_salida_comando(m_servicio, 100, 0, largo.c_str(), largo.c_str(), largo.c_str());
    EXPECT_EQ(m_canal->texto_u(38, 64), std::wstring(63, L'x'));
    EXPECT_EQ(m_canal->texto_u(166, 256), std::wstring(255, L'x'));
    EXPECT_EQ(m_canal->texto_u(678, 256), std::wstring(255, L'x'));
    EXPECT_EQ(m_canal->u64(1190), 0u); // what lies behind is whole
}

TEST_F(iv_reg_set, sin_orden_en_curso_da_falso_y_no_escribe_nada)
{
    EXPECT_EQ(ivrexa_set_datos_salida_comando("Calc", 100, 1, L"a", L"b", L"c"), 0);
    prepara();
    escribe_orden(m_canal.get(), {100, 0, 0, {}});
    std::vector<uint8_t> antes = m_canal->bytes(0, 1190);
    EXPECT_EQ(ivrexa_set_datos_salida_comando("otro", 100, 1, L"a", L"b", L"c"), 0);
    EXPECT_EQ(ivrexa_set_datos_salida_comando(m_servicio, 99, 1, L"a", L"b", L"c"), 0);
    m_canal->pon_u32(1198, 1);
    EXPECT_EQ(ivrexa_set_datos_salida_comando(m_servicio, 100, 1, L"a", L"b", L"c"), 0);
    EXPECT_TRUE(bytes_iguales(antes, m_canal->bytes(0, 1190)));
}

TEST_F(iv_reg_set, traza_lleva_la_palabra_entrada)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    ivrexa_set_datos_salida_comando("Calc", 100, 1, L"a", L"b", L"c");
    EXPECT_EQ(solo_registros(traza.texto_propio()),
              "\n*** <t>:  SET_DATOS_ENTRADA_COMANDO Calc id_comando: 100\n    Resultado     FALSO\n");
    prepara("Calc");
    escribe_orden(m_canal.get(), {100, 0, 0, {}});
    traza.borra();
    ivrexa_set_datos_salida_comando("Calc", 100, 108, L"a", nullptr, L"c");
    EXPECT_EQ(solo_registros(traza.texto_propio()),
              "\n*** <t>:  SET_DATOS_ENTRADA_COMANDO Calc id_comando: 100\n    Resultado     CIERTO\n"
              "    id_datos_salida_comando = 108\n    resultado_64\"a\"\n    resultado_256_2\"c\"\n\n");
}

// ---- guarda_datos

TEST_F(iv_reg_guarda, contenedor_va_a_un_bloque_numerado_por_el_canal)
{
    prepara();
    m_canal->pon_u32(12, 4711);
    uint32_t vivos = bloques_vivos();
    comdat *datos = ivrexa_crea_datos_comando_entrada(m_servicio);
    ivrexa_graba_byte(datos, "b", 9);
    EXPECT_EQ(iv_reg_guarda_datos(datos), 4711u);

    EXPECT_EQ(m_canal->u32(12), 4712u);
    EXPECT_EQ(datos->id_bloque_MCCom, 4711u);
    {
        bloque_crudo bloque((nombre_canal(m_servicio) + "_Com__comdat4711").c_str());
        EXPECT_EQ(bloque.cabecera(), 9u);
        EXPECT_TRUE(bytes_iguales({1, 0, 0, 0, 1, 2, 'b', 0, 9}, bloque.bytes(0, 9)));
    }
    ivrexa_destruye_datos_comando(datos);
    EXPECT_FALSE(existen_datos(m_servicio, 4711)); // the container kept it
    EXPECT_EQ(bloques_vivos(), vivos);
}

// A client that is not registered may store as well: only the channel counts.
TEST_F(iv_reg_guarda, basta_con_que_el_canal_exista)
{
    const char *servicio = nombre_unico("Calc");
    bloque_crudo canal = abre_canal(servicio);
    canal.pon_u32(12, 100);
    comdat *datos = ivrexa_crea_datos_comando_salida(servicio);
    EXPECT_EQ(iv_reg_guarda_datos(datos), 100u);
    EXPECT_EQ(s_programa, nullptr);
    ivrexa_destruye_datos_comando(datos);
}

TEST_F(iv_reg_guarda, sin_canal_se_informa_y_no_se_guarda_nada)
{
    bloque_crudo mcb = abre_registro();
    pon_monitor(&mcb, 1, 1);
    const char *servicio = nombre_unico("Calc");
    mcb.pon_texto(en_servicio(4, 0), servicio);
    comdat *datos = ivrexa_crea_datos_comando_entrada(servicio);
    ventana_cambiada cambiada;
    cambiada->PostMessageW = apunta_publicado;
    EXPECT_EQ(iv_reg_guarda_datos(datos), 0u);

    EXPECT_INFORME("iv_reg", "existia_MCServ == CIERTO");
    EXPECT_EQ(datos->id_bloque_MCCom, 0u);
    EXPECT_EQ(datos->shared_MCCom, nullptr);
    EXPECT_FALSE(existen_datos(servicio, 0));
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
    EXPECT_FALSE(existe_mutex((std::string("Mutex_Ivrexa_") + servicio).c_str()));
    // service 4, command 0, block 0, a client, input
    EXPECT_TRUE(bytes_iguales({4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 1, 0}, mcb.bytes(22, 22)));
    ivrexa_destruye_datos_comando(datos);
}

TEST_F(iv_reg_guarda, sitio_34_guarda_el_contador)
{
    prepara();
    mutex_crudo mutex((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
    comdat *datos = ivrexa_crea_datos_comando_entrada(m_servicio);
    ASSERT_TRUE(mutex.retiene(5000));
    uint32_t id = 0;
    hilo guarda([&] { id = iv_reg_guarda_datos(datos); });
    EXPECT_FALSE(guarda.acaba(100));
    EXPECT_EQ(m_canal->u32(12), 100u);
    EXPECT_FALSE(existen_datos(m_servicio, 100));
    mutex.suelta();

    EXPECT_TRUE(guarda.acaba(5000));
    EXPECT_EQ(id, 100u);
    EXPECT_TRUE(mutex.libre());
    ivrexa_destruye_datos_comando(datos);
}

// Input is written by clients and output by servers; whoever stores what it has read is the other side.
TEST_F(iv_reg_guarda, actividad_nombra_al_lado_que_guarda)
{
    bloque_crudo mcb = abre_registro();
    prepara();
    m_canal->pon_u32(1202, 123); // the command under way
    ventana_cambiada cambiada;
    cambiada->PostMessageW = apunta_publicado;
    for (bool entrada : {true, false}) {
        for (bool escribe : {true, false}) {
            pon_monitor(&mcb, 1, 0xC111);
            comdat *datos =
                entrada ? ivrexa_crea_datos_comando_entrada(m_servicio) : ivrexa_crea_datos_comando_salida(m_servicio);
            if (!escribe) {
                uint32_t id_leido = iv_reg_guarda_datos(datos);
                comdat *leido = ivrexa_lee_datos(m_servicio, id_leido, entrada);
                ivrexa_destruye_datos_comando(datos);
                datos = leido;
                pon_monitor(&mcb, 1, 0xC111);
            }
            uint32_t id = iv_reg_guarda_datos(datos);
            if (!escribe) {
                EXPECT_INFORME("iv_comdat", "comdat->id_bloque_MCCom == 0");
                EXPECT_INFORME("iv_comdat", "comdat->shared_MCCom == NULL");
                EXPECT_INFORME("iv_comdat", "comdat->tipo == iv_comdat_tipo_ESCRITURA");
            }

            EXPECT_EQ(mcb.u32(22), prestado(0).u32(8));
            EXPECT_EQ(mcb.u32(26), 123u);
            EXPECT_EQ(mcb.u32(30), id);
            EXPECT_EQ(mcb.u32(34), entrada == escribe ? 1u : 0u) << entrada << escribe;
            EXPECT_EQ(mcb.u32(38), entrada ? 3u : 4u);
            EXPECT_EQ(mcb.u16(42), 1u);
            EXPECT_EQ(s_publicado.msg, 0xC111u);
            EXPECT_EQ(s_publicado.wparam, 0u);
            EXPECT_EQ(s_publicado.lparam, 1);
            ivrexa_destruye_datos_comando(datos);
        }
    }
    pon_monitor(&mcb, 0, 0);
}

// ---- The end of a server, from outside

TEST_F(iv_reg_termina, servidor_con_ventana_recibe_la_orden_1_en_su_cola)
{
    prepara();
    ivrexa_terminar_servidor(m_servicio);

    MSG msg = {};
    UINT id = ivrexa_dame_id_MSG_servicio(m_servicio);
    ASSERT_TRUE(PeekMessageW(&msg, nullptr, id, id, PM_NOREMOVE));
    EXPECT_EQ(msg.hwnd, ventana());
    EXPECT_EQ(msg.wParam, 1u);
    EXPECT_EQ(msg.lParam, 0);
    EXPECT_EQ(m_canal->u16(28), 0u); // posted, not sent
    EXPECT_EQ(bombea_hasta_quit(5000), bombeo::quit);
    EXPECT_EQ(m_canal->u16(28), 1u);
}

TEST_F(iv_reg_termina, mensaje_y_ventana_son_los_del_canal)
{
    const char *servicio = nombre_unico("Calc");
    bloque_crudo canal = abre_canal(servicio);
    canal.pon_u64(16, 0x1234);
    canal.pon_u32(24, 0xC222);
    ventana_cambiada cambiada;
    cambiada->PostMessageW = apunta_publicado;
    s_publicado = {};
    ivrexa_terminar_servidor("ningun servicio");
    EXPECT_EQ(s_publicado.msg, 0u);
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB_Serv_ningun servicio"));

    ivrexa_terminar_servidor(servicio);
    EXPECT_EQ(s_publicado.msg, 0xC222u);
    EXPECT_EQ(s_publicado.wparam, 1u);
    EXPECT_EQ(s_publicado.lparam, 0);
}

TEST_F(iv_reg_termina, esperar_vuelve_al_momento_sin_hilos)
{
    ivrexa_espera_comando_terminar_servidor(); // not registered: a wait would not end
    prepara();
    EXPECT_LT(mas_breve_de_cinco([] { ivrexa_espera_comando_terminar_servidor(); }), 350u) << "a window";
}
