// The exports' frame: what each reports of its arguments, once, and what it does then; the texts that it
// fills; the two questions about services. The writers and readers of command data are tested with their
// module.
#include "iv_reg_apoyo.h"

#include "iv_comdat.h"
#include "iv_mcbase.h"

namespace {

using expresiones = std::vector<std::string>;

struct caso_informe {
    const char *que;
    std::function<void()> llama;
    expresiones de_ivrexa;                             // in this order, and nothing before or behind them but `detras`
    std::pair<const char *, const char *> detras = {}; // what the module behind reports itself
};

void funcion_actividad(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {}
void funcion_bucle(const iv_mcbase_t *, const datServ *, uint32_t, void *) {}

wchar_t s_t64[64], s_t256[256], s_t2_256[256];

struct ivrexa_informes : con_sesion {};
struct ivrexa_textos : con_sesion {
    // A server and its client in one program: the command is a message to its own window.
    void prepara()
    {
        m_servicio = nombre_unico("Calc");
        sirve(m_servicio, ventana());
        ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), m_servicio);
        for (wchar_t *t : {s_t64, s_t256, s_t2_256})
            wcscpy(t, L"before");
    }
    uint32_t ejecuta(uint32_t *id = nullptr)
    {
        return ivrexa_ejecuta_comando(m_servicio, 100, 0, 0, nullptr, nullptr, nullptr, id, s_t64, s_t256, s_t2_256);
    }
    const char *m_servicio = nullptr;
};
struct ivrexa_preguntas : con_sesion {};
struct ivrexa_datos : con_sesion {};
struct ivrexa_sesion : con_sesion {};

// The first character of an emptied buffer is 0, the others are as they were.
bool vaciado(const wchar_t *texto)
{
    return texto[0] == 0 && wcscmp(texto + 1, L"efore") == 0;
}

} // namespace

// ---- Reports

TEST_F(ivrexa_informes, cada_argumento_se_informa_una_vez_y_en_su_orden)
{
    uint16_t version = 9;
    char nombre[64] = "before";
    uint32_t id = 9;
    const caso_informe casos[] = {
        {"get",
         [&] { EXPECT_EQ(ivrexa_get_datos_entrada_comando(nullptr, 1, &id, s_t64, nullptr, nullptr), 0); },
         {"(nombre_servicio) != 0"}},
        {"set",
         [] { EXPECT_EQ(ivrexa_set_datos_salida_comando(nullptr, 1, 1, L"a", nullptr, nullptr), 0); },
         {"(nombre_servicio) != 0"}},
        {"notify", [] { ivrexa_notifica_a_cliente(nullptr, 1, 2, 3); }, {"(nombre_servicio) != 0"}},
        {"notification's data",
         [] { EXPECT_EQ(ivrexa_obtener_id_datos_notificacion(nullptr, 1, 2), 0u); },
         {"(nombre_servicio) != 0"}},
        {"notification processed", [] { ivrexa_procesada_notificacion(nullptr); }, {"(nombre_servicio) != 0"}},
        {"document opened",
         [] { EXPECT_EQ(ivrexa_abierto_documento_de_cliente(nullptr, nullptr, 0), 0u); },
         {"(nombre_servicio) != 0", "(ruta_documento) != 0", "id_documento != 0"},
         {"iv_reg", "s_programa != NULL"}},
        {"document closed",
         [] { ivrexa_cerrado_documento_de_cliente(nullptr, 0); },
         {"(ruta_documento) != 0", "id_documento != 0"},
         {"iv_reg", "s_programa != NULL"}},
        {"store", [] { EXPECT_EQ(ivrexa_guarda_datos(nullptr), 0u); }, {"(comdat) != 0"}},
        {"read", [] { EXPECT_EQ(ivrexa_lee_datos(nullptr, 7, 1), nullptr); }, {"(shared_MCCom) != 0"}},
        {"destroy", [] { ivrexa_destruye_datos_comando(nullptr); }, {"(comdat) != 0"}},
        {"service there",
         [&] { EXPECT_EQ(ivrexa_hay_servicio_registrado(nullptr, &version), 0); },
         {"(nombre_servicio) != 0"}},
        {"service by prefix",
         [&] { EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(nullptr, nullptr, &version), 0); },
         {"(prefijo_nombre_servicio) != 0", "(buffer_nombre_servicio_registrado64) != 0"}},
        {"service by null prefix",
         [&] { EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(nullptr, nombre, &version), 0); },
         {"(prefijo_nombre_servicio) != 0"}},
        {"execute",
         [&] {
             EXPECT_EQ(
                 ivrexa_ejecuta_comando(nullptr, 100, 0, 0, nullptr, nullptr, nullptr, &id, nullptr, nullptr, nullptr),
                 3u);
         },
         {"(nombre_servicio) != 0"}},
        {"no monitor",
         [] { ivrexa_registra_monitor(nullptr, funcion_actividad, funcion_bucle, funcion_bucle, s_t64); },
         {"funcionNotificacionActividad == NULL", "funcionMonitorBuclesCliente == NULL",
          "funcionMonitorBuclesServidor == NULL", "datos_externos_monitor == NULL"}},
        {"no monitor, one function",
         [] { ivrexa_registra_monitor(nullptr, nullptr, nullptr, funcion_bucle, nullptr); },
         {"funcionMonitorBuclesServidor == NULL"}},
        {"no monitor, nothing to say",
         [] { ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr); },
         {}},
        {"monitor",
         [&] { ivrexa_registra_monitor(ventana(), nullptr, nullptr, nullptr, nullptr); },
         {"(funcionNotificacionActividad) != 0", "(funcionMonitorBuclesCliente) != 0",
          "(funcionMonitorBuclesServidor) != 0"}},
        {"no monitor any more", [] { ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr); }, {}},

        // These check nothing.
        {"message", [] { EXPECT_EQ(ivrexa_dame_id_MSG_servicio(nullptr), 0u); }, {}},
        {"end a server", [] { ivrexa_terminar_servidor(nullptr); }, {}},
        {"publish", [] { ivrexa_terminado_registro(); }, {}},
        {"wait", [] { ivrexa_espera_comando_terminar_servidor(); }, {}},
        {"close", [] { ivrexa_cierra_sesion(); }, {}},
    };
    for (const caso_informe &caso : casos) {
        SCOPED_TRACE(caso.que);
        caso.llama();
        for (const std::string &expresion : caso.de_ivrexa)
            EXPECT_INFORME("ivrexa", expresion.c_str());
        if (caso.detras.first != nullptr)
            EXPECT_INFORME(caso.detras.first, caso.detras.second);
        EXPECT_SIN_INFORMES();
    }
    EXPECT_EQ(version, 9u);
    EXPECT_STREQ(nombre, "before");
    EXPECT_EQ(id, 9u);
}

TEST_F(ivrexa_informes, cliente_sin_textos_se_informa_y_se_registra_con_textos_vacios)
{
    ivrexa_registra_cliente_de_servicio(nullptr, nullptr, nullptr);
    EXPECT_INFORME("ivrexa", "(ruta_ejecutable) != 0");
    EXPECT_INFORME("ivrexa", "(nombre_servicio) != 0");
    EXPECT_EQ(num_informes(), 0u);
    ASSERT_NE(s_programa, nullptr);
    EXPECT_EQ(programa().texto(4), "");
    EXPECT_EQ(solicitado(0).texto(0), "");
}

TEST_F(ivrexa_informes, cliente_con_notificaciones_informa_de_los_cuatro_y_sigue)
{
    ivrexa_registra_cliente_notificaciones_servicio(nullptr, nullptr, nullptr, nullptr);
    for (const char *expresion : {"(ruta_ejecutable) != 0", "(hwnd_programa) != 0", "(nombre_servicio) != 0",
                                  "(funcion_notificacion_cliente) != 0"})
        EXPECT_INFORME("ivrexa", expresion);
    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(programa().u32(1480), 1u);

    const char *servicio = nombre_unico("Calc");
    ivrexa_registra_cliente_notificaciones_servicio("C:\\p.exe", nullptr, servicio, funcion_aviso);
    EXPECT_INFORME("ivrexa", "(hwnd_programa) != 0");
    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(solicitado(1).puntero(20), reinterpret_cast<void *>(funcion_aviso));
}

TEST_F(ivrexa_informes, servidor_con_textos_nulos_no_informa_de_nada)
{
    ivrexa_registra_servidor(nullptr, ventana(), nullptr, 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(nullptr, 1, nullptr, funcion_comando);
    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(programa().texto(4), "");
    EXPECT_EQ(prestado(1).texto(0), "");
    ivrexa_registra_servidor_net(nullptr, nullptr, nullptr, 1);
    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(programa().u32(32), 3u);
}

TEST_F(ivrexa_informes, documento_de_id_0_se_informa_y_da_el_id_de_cliente)
{
    const char *servicio = nombre_unico("Calc");
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, servicio);
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(servicio, L"uno", 0), 200u);
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    EXPECT_EQ(documento_en(0).texto_u(0), L"uno");
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(servicio, nullptr, 5), 200u);
    EXPECT_INFORME("ivrexa", "(ruta_documento) != 0");
    EXPECT_EQ(documento_en(0).texto_u(0), L"");
    ivrexa_cerrado_documento_de_cliente(nullptr, 5);
    EXPECT_INFORME("ivrexa", "(ruta_documento) != 0");
    EXPECT_EQ(documento_en(0).u32(8), 0u);
    EXPECT_EQ(num_informes(), 0u);
}

TEST_F(ivrexa_informes, monitor_sin_ventana_se_quita_aunque_se_informe)
{
    bloque_crudo mcb = abre_registro();
    ivrexa_registra_monitor(ventana(), funcion_actividad, funcion_bucle, funcion_bucle, nullptr);
    EXPECT_EQ(mcb.u64(6), reinterpret_cast<uint64_t>(ventana()));
    EXPECT_NE(s_programa_monitor, nullptr);

    ivrexa_registra_monitor(nullptr, funcion_actividad, nullptr, nullptr, nullptr);
    EXPECT_INFORME("ivrexa", "funcionNotificacionActividad == NULL");
    EXPECT_EQ(mcb.u64(6), 0u);
    EXPECT_EQ(s_programa_monitor, nullptr);
}

TEST_F(ivrexa_informes, monitor_sin_funciones_se_registra_aunque_se_informe)
{
    bloque_crudo mcb = abre_registro();
    ivrexa_registra_monitor(ventana(), nullptr, funcion_bucle, nullptr, &mcb);
    EXPECT_INFORME("ivrexa", "(funcionNotificacionActividad) != 0");
    EXPECT_INFORME("ivrexa", "(funcionMonitorBuclesServidor) != 0");
    EXPECT_EQ(num_informes(), 0u);
    ASSERT_NE(s_programa_monitor, nullptr);
    EXPECT_EQ(s_programa_monitor->funcionMonitorBuclesCliente, funcion_bucle);
    EXPECT_EQ(s_programa_monitor->datos_externos_monitor, &mcb);
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST_F(ivrexa_informes, marca_de_funcion_sale_del_puntero)
{
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("A"), 1, &s_t64, nullptr);
    EXPECT_EQ(programa().u16(30), 0u);
    EXPECT_EQ(prestado(0).puntero(14), nullptr);
    cierra();
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("A"), 1, &s_t64, funcion_comando);
    EXPECT_EQ(programa().u16(30), 1u);
    EXPECT_EQ(prestado(0).puntero(14), &s_t64);
}

// ---- The result's texts

TEST_F(ivrexa_textos, resultado_1_los_entrega_cortados_y_con_su_fin)
{
    prepara();
    std::wstring largo(300, L'x');
    s_trabajo = [&](uint32_t id_comando, comando *) {
        return ivrexa_set_datos_salida_comando(m_servicio, id_comando, 105, largo.c_str(), largo.c_str(), L"tres");
    };
    uint32_t id = 9, vivos = bloques_vivos();
    EXPECT_EQ(ejecuta(&id), 1u);

    EXPECT_EQ(id, 105u);
    EXPECT_EQ(s_t64, std::wstring(63, L'x'));
    EXPECT_EQ(s_t256, std::wstring(255, L'x'));
    EXPECT_STREQ(s_t2_256, L"tres");
    EXPECT_EQ(bloques_vivos(), vivos);
}

TEST_F(ivrexa_textos, sin_buffers_se_liberan_igual)
{
    prepara();
    s_trabajo = [&](uint32_t id_comando, comando *) {
        return ivrexa_set_datos_salida_comando(m_servicio, id_comando, 105, L"uno", L"dos", L"tres");
    };
    uint32_t vivos = bloques_vivos();
    EXPECT_EQ(
        ivrexa_ejecuta_comando(m_servicio, 100, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
        1u);
    EXPECT_EQ(bloques_vivos(), vivos);
    EXPECT_EQ(
        ivrexa_ejecuta_comando(m_servicio, 100, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, s_t256, nullptr),
        1u);
    EXPECT_STREQ(s_t256, L"dos");
    EXPECT_STREQ(s_t64, L"before");
    EXPECT_EQ(bloques_vivos(), vivos);
}

TEST_F(ivrexa_textos, otro_resultado_los_vacia_y_no_deja_nada)
{
    for (int32_t resultado : {0, 2, 3, 17}) {
        prepara();
        s_trabajo = [&](uint32_t id_comando, comando *) {
            ivrexa_set_datos_salida_comando(m_servicio, id_comando, 105, L"uno", L"dos", L"tres");
            return resultado;
        };
        uint32_t id = 9, vivos = bloques_vivos();
        EXPECT_EQ(ejecuta(&id), static_cast<uint32_t>(resultado));
        EXPECT_EQ(id, 9u);
        EXPECT_TRUE(vaciado(s_t64) && vaciado(s_t256) && vaciado(s_t2_256)) << resultado;
        EXPECT_EQ(bloques_vivos(), vivos);
        cierra();
    }
}

TEST_F(ivrexa_textos, quien_no_es_cliente_recibe_3_y_textos_vacios)
{
    prepara();
    const char *otro = nombre_unico("Otro");
    EXPECT_EQ(ivrexa_ejecuta_comando(otro, 100, 0, 0, nullptr, nullptr, nullptr, nullptr, s_t64, s_t256, s_t2_256), 3u);
    EXPECT_TRUE(vaciado(s_t64) && vaciado(s_t256) && vaciado(s_t2_256));
    EXPECT_FALSE(existe_bloque(nombre_canal(otro).c_str()));
}

// What the command does not answer stays as the channel has it.
TEST_F(ivrexa_textos, textos_vacios_del_canal_llegan_vacios)
{
    prepara();
    EXPECT_EQ(ejecuta(), 1u);
    EXPECT_TRUE(vaciado(s_t64) && vaciado(s_t256) && vaciado(s_t2_256));
}

TEST_F(ivrexa_textos, argumentos_de_la_orden_llegan_al_servidor)
{
    prepara();
    bloque_crudo datos = crea_datos(m_servicio, 107);
    std::wstring vistos[3];
    s_trabajo = [&](uint32_t id_comando, comando *contexto) {
        wchar_t a[64], b[256], c[256];
        ivrexa_get_datos_entrada_comando(m_servicio, id_comando, nullptr, a, b, c);
        vistos[0] = a;
        vistos[1] = b;
        vistos[2] = c;
        return contexto->datos_entrada != nullptr ? 1 : 3;
    };
    EXPECT_EQ(
        ivrexa_ejecuta_comando(m_servicio, 4321, 0, 107, L"uno", nullptr, L"tres", nullptr, nullptr, nullptr, nullptr),
        1u);
    EXPECT_EQ(s_llamadas.at(0).id_comando, 4321u);
    EXPECT_EQ(s_llamadas.at(0).contexto[2], reinterpret_cast<uint64_t>(ventana()));
    EXPECT_EQ(vistos[0], L"uno");
    EXPECT_EQ(vistos[1], L"");
    EXPECT_EQ(vistos[2], L"tres");
}

// ---- Is there such a service?

TEST_F(ivrexa_preguntas, hay_servicio_segun_el_canal)
{
    struct {
        uint16_t terminado;
        uint32_t estado;
        int16_t hay;
    } casos[] = {{0, 0, 0}, {0, 1, 1}, {0, 2, 1}, {0, 3, 1}, {1, 1, 0}, {1, 0, 0}, {2, 1, 1}};
    const char *servicio = nombre_unico("Calc");
    uint16_t version = 9;
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio, &version), 0);
    EXPECT_EQ(version, 9u);
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str())); // asking makes nothing

    bloque_crudo canal = abre_canal(servicio);
    for (const auto &caso : casos) {
        uint16_t esta = static_cast<uint16_t>(0xFF00 + caso.estado);
        canal.pon_u16(2, esta);
        canal.pon_u16(28, caso.terminado);
        canal.pon_u32(30, caso.estado);
        EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio, &version), caso.hay) << caso.terminado << caso.estado;
        EXPECT_EQ(version, esta); // also with FALSO
        EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio, nullptr), caso.hay);
    }
    EXPECT_EQ(s_programa, nullptr);
}

TEST_F(ivrexa_preguntas, bloque_menor_que_un_canal_no_es_un_servicio)
{
    const char *servicio = nombre_unico("Calc");
    bloque_crudo canal(nombre_canal(servicio).c_str(), 2377);
    canal.pon_u32(30, 1);
    uint16_t version = 9;
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio, &version), 0);
    EXPECT_EQ(version, 9u);
}

TEST_F(ivrexa_preguntas, prefijo_da_el_primero_de_la_tabla)
{
    bloque_crudo mcb = abre_registro();
    std::string largo(63, 'L');
    mcb.pon_texto(en_servicio(1, 0), "Bb");
    mcb.pon_texto(en_servicio(3, 0), "Calc uno");
    mcb.pon_texto(en_servicio(7, 0), "Calc");
    mcb.pon_texto(en_servicio(31, 0), largo);
    bloque_crudo canal = abre_canal("Calc uno"), canal_largo = abre_canal(largo);
    canal.pon_u16(2, 77);
    canal.pon_u32(30, 1);
    canal_largo.pon_u32(30, 1);

    struct {
        std::string prefijo, nombre;
        int16_t hay;
        uint16_t version;
    } casos[] = {
        {"", "Bb", 0, 9}, // the first that is used; it has no channel
        {"B", "Bb", 0, 9},
        {"Calc", "Calc uno", 1, 77}, // the first, not the one that equals it
        {"Calc ", "Calc uno", 1, 77},
        {"Calc uno", "Calc uno", 1, 77},
        {"LLL", largo, 1, 0},
        {largo, largo, 1, 0},
        {"calc", "before", 0, 9},      // case counts
        {"Calc uno ", "before", 0, 9}, // longer than the name
        {"alc", "before", 0, 9},
        {largo + "L", "before", 0, 9},
    };
    for (const auto &caso : casos) {
        char nombre[64] = "before";
        uint16_t version = 9;
        EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(caso.prefijo.c_str(), nombre, &version), caso.hay)
            << caso.prefijo;
        EXPECT_EQ(nombre, caso.nombre) << caso.prefijo;
        EXPECT_EQ(version, caso.version) << caso.prefijo;
    }
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por("Calc", nullptr, nullptr), 1);
    EXPECT_INFORME("ivrexa", "(buffer_nombre_servicio_registrado64) != 0");
    char nombre[64];
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(nullptr, nombre, nullptr), 0);
    EXPECT_INFORME("ivrexa", "(prefijo_nombre_servicio) != 0");
    EXPECT_STREQ(nombre, "Bb");
}

TEST_F(ivrexa_preguntas, prefijo_se_busca_bajo_el_mutex_del_registro)
{
    bloque_crudo mcb = abre_registro();
    mutex_crudo mutex("Ivrexa_Mutex_MCB", mutex_crudo::modo::crea);
    ASSERT_TRUE(mutex.retiene(5000));
    char nombre[64] = "before";
    hilo pregunta([&] { ivrexa_hay_servicio_registrado_empiece_por("Ca", nombre, nullptr); });
    EXPECT_FALSE(pregunta.acaba(100));
    mcb.pon_texto(en_servicio(2, 0), "Calc");
    mutex.suelta();
    EXPECT_TRUE(pregunta.acaba(5000));
    EXPECT_STREQ(nombre, "Calc");
    EXPECT_EQ(s_mcbase_acceso->mutex->codigos_bloqueo[0], 6u);
    EXPECT_EQ(mcb.u16(4), 0u); // asking is no registration
}

TEST_F(ivrexa_preguntas, servidor_real_se_encuentra_y_deja_de_estar)
{
    std::string servicio = nombre_unico("Calc");
    bloque_crudo canal = abre_canal(servicio);
    sirve(servicio.c_str(), ventana());
    uint16_t version = 0;
    char nombre[64];
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), &version), 1);
    EXPECT_EQ(version, 7u);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por("Calc_", nombre, nullptr), 1);
    EXPECT_EQ(nombre, servicio);
    cierra();
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), &version), 0);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por("Calc_", nombre, nullptr), 0);
}

// ---- Stored data

TEST_F(ivrexa_datos, se_guardan_y_se_leen)
{
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, ventana());
    comdat *datos = ivrexa_crea_datos_comando_salida(servicio);
    ivrexa_graba_ushort(datos, "u", 513);
    EXPECT_EQ(ivrexa_guarda_datos(datos), 100u);
    for (int16_t es_entrada : {1, 0, 2}) {
        comdat *leidos = ivrexa_lee_datos(servicio, 100, es_entrada);
        ASSERT_NE(leidos, nullptr);
        EXPECT_EQ(ivrexa_dame_ushort(leidos, 0), 513u);
        EXPECT_EQ(leidos->id_bloque_MCCom, 100u);
        EXPECT_NE(leidos->shared_MCCom, nullptr); // kept open
        ivrexa_destruye_datos_comando(leidos);
    }
    ivrexa_destruye_datos_comando(datos);
}

TEST_F(ivrexa_datos, leer_lo_que_no_existe_no_crea_nada)
{
    EXPECT_EQ(ivrexa_lee_datos("Calc", 4711, 1), nullptr);
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
    EXPECT_EQ(num_informes(), 0u);
    EXPECT_FALSE(existen_datos("Calc", 4711));
}

// The record is written before the block is opened, and says who reads.
TEST_F(ivrexa_datos, leer_se_cuenta_al_monitor)
{
    static mensaje s_publicado;
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_servicio(5, 0), "Calc");
    ventana_cambiada cambiada;
    cambiada->PostMessageW = [](HWND, UINT msg, WPARAM wparam, LPARAM lparam) -> BOOL {
        s_publicado = {msg, wparam, lparam};
        return TRUE;
    };
    struct {
        int16_t es_entrada;
        uint8_t tipo_programa, tipo_actividad;
    } casos[] = {{1, 0, 3}, {0, 1, 4}, {2, 1, 4}};
    for (const auto &caso : casos) {
        pon_monitor(&mcb, 1, 0xC111);
        s_publicado = {};
        ivrexa_lee_datos("Calc", 107, caso.es_entrada);
        EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
        EXPECT_TRUE(bytes_iguales(
            {5, 0, 0, 0, 0, 0, 0, 0, 107, 0, 0, 0, caso.tipo_programa, 0, 0, 0, caso.tipo_actividad, 0, 0, 0, 1, 0},
            mcb.bytes(22, 22)))
            << caso.es_entrada;
        EXPECT_EQ(s_publicado.msg, 0xC111u);
        EXPECT_EQ(s_publicado.lparam, 1);
    }
    pon_monitor(&mcb, 0, 0);
}

// ---- The session

TEST_F(ivrexa_sesion, cierre_acaba_el_registro_y_luego_el_heap)
{
    sirve(nombre_unico("Calc"), ventana());
    comdat *datos = ivrexa_crea_datos_comando_entrada("Calc");
    EXPECT_NE(datos, nullptr); // dies with the heap
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
    EXPECT_FALSE(existe_mutex("ivrexa_iv_mem"));

    datos = ivrexa_crea_datos_comando_entrada("Calc"); // and a fresh one comes
    ivrexa_graba_byte(datos, "b", 1);
    EXPECT_EQ(ivrexa_numero_valores(datos), 1u);
    ivrexa_destruye_datos_comando(datos);
}

// The registry's access goes too, even where other programs keep the registry alive.
TEST_F(ivrexa_sesion, cierre_suelta_el_registro_que_otros_tienen)
{
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_programa(4, 0), "otro programa");
    sirve(nombre_unico("Calc"), ventana());
    EXPECT_EQ(mcb.u16(4), 1u);
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(mcb.texto(en_programa(4, 0), 256), "otro programa");
    sirve(nombre_unico("Calc"), ventana());
    EXPECT_EQ(mcb.u16(4), 2u);
}
