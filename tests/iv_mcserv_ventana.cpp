// A client's command to a server with a window, and the texts of a command in both directions.
#include "iv_mcserv_apoyo.h"

// ---- Command: a server with a window

TEST_F(iv_mcserv_orden, mensaje_lleva_los_argumentos_y_no_los_campos)
{
    registra_con_ventana();
    canal->pon_u64(C_HWND_SERVIDOR, 0x1122334455667788);
    espia oido;
    oido.al_preguntar_activa = [&] {
        canal->pon_u32(C_ID_COMANDO, 111);
        canal->pon_u32(C_ID_ENTRADA, 222);
    };
    orden o;
    o.id_comando = 0xFFFFFFFE;
    o.id_entrada = 0xFFFFFFFD;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(oido.enviados, (std::vector<mensaje>{{0x1122334455667788, 0xC123, 0xFFFFFFFE, 0xFFFFFFFD}}));
    comprueba_libre();
}

TEST_F(iv_mcserv_orden, durante_el_mensaje_esta_la_orden_escrita_y_nada_bloqueado)
{
    HWND hwnd = crea_ventana();
    registra_con_ventana(hwnd);
    espia oido;
    mutex_crudo servicio_ajeno(nombre_mutex(servicio).c_str()), registro_ajeno("Ivrexa_Mutex_MCB");
    oido.al_enviar = [&](const mensaje &) -> LRESULT {
        EXPECT_TRUE(servicio_ajeno.libre());
        EXPECT_TRUE(espera_hasta([&] { return registro_ajeno.libre(); }, 1000)); // but for a heartbeat
        EXPECT_EQ(canal->u32(C_ESTADO_COMANDO), 1u);
        EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
        EXPECT_EQ(canal->u32(C_ID_COMANDO), 100u);
        EXPECT_EQ(canal->u32(C_ID_ENTRADA), 700u);
        EXPECT_EQ(canal->u64(C_HWND_CLIENTE), reinterpret_cast<uint64_t>(hwnd));
        EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 100u);
        return 1;
    };
    captura_traza traza;
    orden o;
    o.id_entrada = 700;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(rondas_de(traza.texto_propio()), ""); // no wait, not even for the receipt
    EXPECT_EQ(canal->u32(C_ESTADO_SERVIDOR), 1u);
    comprueba_libre();
    iv_reg_cierra_sesion();
    destruye_ventana(&hwnd);
}

TEST_F(iv_mcserv_orden, respuesta_del_mensaje_es_el_resultado_y_queda_en_el_canal)
{
    registra_con_ventana();
    const struct {
        LRESULT respuesta;
        uint32_t resultado;
    } casos[] = {{1, 1}, {0, 0}, {2, 2}, {3, 3}, {7, 7}, {-1, 0xFFFFFFFF}, {0x700000001, 1}};
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.respuesta);
        espia oido;
        oido.al_enviar = [&](const mensaje &) { return caso.respuesta; };
        canal->pon_u32(C_RESULTADO, 0xEEEE);
        orden o;

        EXPECT_EQ(o.ejecuta(servicio), caso.resultado);

        EXPECT_EQ(canal->u32(C_RESULTADO), caso.resultado);
        EXPECT_EQ(o.id_resultado, caso.resultado == 1 ? 901u : 55555u);
        EXPECT_EQ(o.textos_nulos(), caso.resultado != 1);
        comprueba_libre();
    }
}

TEST_F(iv_mcserv_orden, canal_no_reclamado_envia_su_mensaje_igualmente)
{
    registra_con_ventana();
    canal->pon_u32(C_OCUPACION, 2);
    canal->pon_u16(C_TERMINADO, 1);
    canal->pon_texto_u(C_CLIENTE_64, L"ajeno");
    espia oido;
    captura_traza traza;
    orden o;
    o.textos[0] = L"propio";

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(oido.enviados, (std::vector<mensaje>{{77, 0xC123, 100, 0}}));
    EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"ajeno");
    EXPECT_EQ(rondas_de(traza.texto_propio()), "");
    comprueba_libre();
}

TEST_F(iv_mcserv_orden, ventanas_se_traen_al_frente_segun_los_bits_2_y_4)
{
    registra_con_ventana();
    const struct {
        uint64_t hwnd_servidor;
        uint16_t opciones;
        uint64_t activa;
        const char *orden;
    } casos[] = {
        {77, 0, 5, "A S "},
        {77, 2, 5, "F77 A S "},
        {77, 4, 5, "A S F5 "},
        {77, 6, 5, "F77 A S F5 "},
        {0, 6, 5, "A S F5 "},    // no window to bring
        {77, 4, 0, "A S F0 "},   // none was active
        {77, 0xFFF9, 5, "A S "}, // the other bits mean nothing
        {77, 0xFFFF, 5, "F77 A S F5 "},
    };
    for (const auto &caso : casos) {
        espia oido;
        oido.activa = reinterpret_cast<HWND>(caso.activa);
        canal->pon_u64(C_HWND_SERVIDOR, caso.hwnd_servidor);
        orden o;
        o.opciones = caso.opciones;

        EXPECT_EQ(o.ejecuta(servicio), 1u);

        EXPECT_EQ(oido.orden, caso.orden) << caso.hwnd_servidor << " " << caso.opciones;
    }
}

TEST_F(iv_mcserv_orden, foco_se_devuelve_antes_de_leer_el_resultado_y_con_el_mutex)
{
    registra_con_ventana();
    espia oido;
    mutex_crudo ajeno(nombre_mutex(servicio).c_str());
    bool libre = true;
    uint32_t estado = 0;
    oido.al_traer = [&] {
        libre = ajeno.libre();
        estado = canal->u32(C_ESTADO_COMANDO);
        canal->pon_u32(C_ID_RESULTADO, 902);
    };
    orden o;
    o.opciones = 4;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_FALSE(libre);
    EXPECT_EQ(estado, 1u);
    EXPECT_EQ(o.id_resultado, 902u);
}

// A window without a message: the server has a loop thread, and the window is brought all the same.
TEST_F(iv_mcserv_orden, el_mensaje_y_no_la_ventana_decide_el_camino)
{
    registra_con_servidor();
    canal->pon_u64(C_HWND_SERVIDOR, 77);
    espia oido;
    oido.activa = reinterpret_cast<HWND>(5);
    pon_guion(&oido, {{2, 1, C_ESTADO_SERVIDOR, 3}, {2, 1, C_ESTADO_COMANDO, 3}, {4, 1, C_ESTADO_COMANDO, 5}});
    orden o;
    o.opciones = 6;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(oido.orden, "F77 A F5 ");
}

// ---- Command: texts

TEST_F(iv_mcserv_orden, textos_de_la_orden_llegan_hasta_63_255_y_255_caracteres)
{
    registra_con_ventana();
    for (size_t de_mas : {0u, 1u, 2000u}) {
        espia oido;
        std::wstring textos[3] = {std::wstring(63 + de_mas, L'a'), std::wstring(255 + de_mas, L'b'),
                                  std::wstring(255 + de_mas, L'c')};
        std::vector<uint8_t> buzon = canal->bytes(C_BUZON, 16);
        oido.al_enviar = [&](const mensaje &) -> LRESULT {
            EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), std::wstring(63, L'a'));
            EXPECT_EQ(canal->texto_u(C_CLIENTE_256, 256), std::wstring(255, L'b'));
            EXPECT_EQ(canal->texto_u(C_CLIENTE2_256, 256), std::wstring(255, L'c'));
            return 1;
        };
        orden o;
        for (size_t i = 0; i < 3; i++)
            o.textos[i] = textos[i].c_str();

        EXPECT_EQ(o.ejecuta(servicio), 1u);

        EXPECT_TRUE(bytes_iguales(buzon, canal->bytes(C_BUZON, 16)));
    }
}

TEST_F(iv_mcserv_orden, textos_nulos_llegan_vacios)
{
    registra_con_ventana();
    canal->pon_texto_u(C_CLIENTE_64, L"anterior");
    canal->pon_texto_u(C_CLIENTE_256, L"anterior");
    canal->pon_texto_u(C_CLIENTE2_256, L"anterior");
    espia oido;
    oido.al_enviar = [&](const mensaje &) -> LRESULT {
        EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"");
        EXPECT_EQ(canal->texto_u(C_CLIENTE_256, 256), L"");
        EXPECT_EQ(canal->texto_u(C_CLIENTE2_256, 256), L"");
        return 1;
    };
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);
}

TEST_F(iv_mcserv_orden, textos_del_resultado_son_copias_justas_del_monton)
{
    registra_con_ventana();
    canal->pon_texto_u(C_SERV_256, L"");
    espia oido;
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_STREQ(o.salidas[0], L"a1");
    EXPECT_STREQ(o.salidas[1], L"");
    EXPECT_STREQ(o.salidas[2], L"c333");
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, o.salidas[0]), 6u);
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, o.salidas[1]), 2u);
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, o.salidas[2]), 10u);
}

TEST_F(iv_mcserv_orden, textos_del_resultado_sin_final_se_cortan_en_su_campo)
{
    registra_con_ventana();
    canal->pon_bytes(C_SERV_64, std::vector<uint8_t>(C_HWND_CLIENTE - C_SERV_64, 'x'));
    espia oido;
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    const wchar_t x = 0x7878;
    EXPECT_EQ(std::wstring(o.salidas[0]), std::wstring(63, x));
    EXPECT_EQ(std::wstring(o.salidas[1]), std::wstring(255, x));
    EXPECT_EQ(std::wstring(o.salidas[2]), std::wstring(255, x));
}

TEST_F(iv_mcserv_orden, cada_salida_puede_faltar)
{
    registra_con_ventana();
    espia oido;
    for (uint32_t resultado : {1u, 2u})
        for (size_t falta = 0; falta <= 4; falta++) { // 4: all of them
            oido.al_enviar = [&](const mensaje &) { return static_cast<LRESULT>(resultado); };
            uint32_t id_resultado = 55555;
            wchar_t *textos[3] = {nullptr, nullptr, nullptr}, **salidas[3];
            for (size_t i = 0; i < 3; i++)
                salidas[i] = falta == i + 1 || falta == 4 ? nullptr : &textos[i];

            EXPECT_EQ(iv_mcserv_ejecuta_comando(servicio, 100, 0, 0, nullptr, nullptr, nullptr,
                                                falta == 0 || falta == 4 ? nullptr : &id_resultado, salidas[0],
                                                salidas[1], salidas[2]),
                      resultado);

            for (size_t i = 0; i < 3; i++)
                EXPECT_EQ(textos[i] != nullptr, resultado == 1 && salidas[i] != nullptr) << falta << " " << i;
            EXPECT_EQ(id_resultado == 901, resultado == 1 && falta != 0 && falta != 4) << falta;
        }
}
