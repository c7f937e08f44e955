// The monitor: its registration, its end, and the procedure of its window.
#include "iv_mcbase_apoyo.h"

// ---- Registering

TEST_F(iv_mcbase_monitor_registro, escribe_cabecera_y_anillo_y_vacia_los_nombres_de_servicio)
{
    m_bloque.pon_bytes(0, std::vector<uint8_t>(TAM_BLOQUE, SUCIO));
    imagen esperada(m_bloque);

    registra_monitor(m_hwnd);

    esperada.u16(0, 8886);
    esperada.u16(2, 256);
    esperada.u16(4, 0x5A5B);
    esperada.u64(6, reinterpret_cast<uint64_t>(m_hwnd));
    esperada.u32(14, mensaje_monitor());
    esperada.u32(18, 1);
    for (uint32_t n = 1; n <= 64; n++) {
        esperada.u32(en_actividad(n), 32);
        esperada.ceros(en_actividad(n) + 4, 8);
        esperada.ceros(en_actividad(n) + 16, 4);
    }
    for (uint32_t j = 0; j < 32; j++)
        esperada.ceros(en_servicio(j), 1);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_hay_monitor(2), 1);
}

TEST_F(iv_mcbase_monitor_registro, guarda_lo_dado_y_subclasifica_la_ventana)
{
    registra_monitor(m_hwnd);

    ASSERT_NE(s_programa_monitor, nullptr);
    EXPECT_EQ(s_programa_monitor->hwnd, m_hwnd);
    EXPECT_EQ(s_programa_monitor->funcionNotificacionActividad, al_notificar);
    EXPECT_EQ(s_programa_monitor->funcionMonitorBuclesCliente, al_rondar_cliente);
    EXPECT_EQ(s_programa_monitor->funcionMonitorBuclesServidor, al_rondar_servidor);
    EXPECT_EQ(s_programa_monitor->datos_externos_monitor, &s_datos_monitor);
    EXPECT_EQ(s_programa_monitor->msg_monitor, mensaje_monitor());
    EXPECT_EQ(reinterpret_cast<LONG_PTR>(s_programa_monitor->proc_ventana_anterior), m_proc_antes);
    EXPECT_EQ(proc_actual(), proc_monitor());
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(m_bloque.texto(en_programa(i), 256), "");

    iv_mcbase_quita_monitor();
    EXPECT_EQ(proc_actual(), m_proc_antes);
}

TEST_F(iv_mcbase_monitor_registro, mensaje_y_ventana_vienen_antes_que_el_bloque)
{
    m_ventana->RegisterWindowMessageA = [](LPCSTR nombre) -> UINT {
        s_llamadas.push_back(junta({"message", nombre, std::to_string(s_bloque->u16(0))}));
        return 0xC0DE;
    };
    m_ventana->SetWindowLongPtrW = [](HWND hwnd, int indice, LONG_PTR proc) -> LONG_PTR {
        bool nuestro = proc == reinterpret_cast<LONG_PTR>(iv_mcbase_proc_monitor);
        s_llamadas.push_back(
            junta({"window", std::to_string(reinterpret_cast<uintptr_t>(hwnd)), std::to_string(indice),
                   nuestro ? "ours" : "theirs", std::to_string(s_bloque->u16(0)), s_mutex->libre() ? "free" : "held"}));
        return 0x7777;
    };
    registra_monitor(ventana_num(0x1234));
    EXPECT_EQ(s_llamadas, (argumentos{"message|Ivrexa_Monitor_MSG|0", "window|4660|-4|ours|0|free"}));
    EXPECT_EQ(m_bloque.u32(14), 0xC0DEu);

    s_llamadas.clear();
    iv_mcbase_quita_monitor();
    EXPECT_EQ(s_llamadas, (argumentos{"window|4660|-4|theirs|8886|free"}));
}

TEST_F(iv_mcbase_monitor_registro, segundo_monitor_del_proceso_se_informa_y_nada_cambia)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    imagen esperada(m_bloque);
    HWND otra = crea_ventana();
    LONG_PTR proc_otra = GetWindowLongPtrW(otra, GWLP_WNDPROC);

    iv_mcbase_registra_monitor(otra, nullptr, nullptr, nullptr, nullptr);

    EXPECT_INFORME("iv_mcbase", "s_programa_monitor == NULL");
    comprueba(esperada);
    EXPECT_EQ(GetWindowLongPtrW(otra, GWLP_WNDPROC), proc_otra);
    EXPECT_EQ(s_programa_monitor->hwnd, m_hwnd);
    EXPECT_EQ(s_programa_monitor->funcionNotificacionActividad, al_notificar);
    destruye_ventana(&otra);
}

TEST_F(iv_mcbase_monitor_registro, tabla_de_servicios_se_llena_otra_vez_segun_se_usan)
{
    pon_programa(0, "servidor", 0, 1);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Texto", 0, 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Lista", 0, 0);
    registra_monitor(m_hwnd);

    char nombre[64];
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("", nombre), 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Lista", 0, 0);
    iv_mcbase_registra_cliente_de_servicio(0, "Texto", nullptr);
    iv_mcbase_registra_servidor_de_servicio(0, "Calc", nullptr);
    EXPECT_EQ(m_bloque.texto(en_servicio(0), 64), "Lista");
    EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "Texto");
    EXPECT_EQ(m_bloque.texto(en_servicio(2), 64), "Calc");
    ASSERT_EQ(s_avisos.size(), 1u);
    EXPECT_EQ(s_avisos[0].lparam, 1u);
    EXPECT_EQ(m_bloque.u32(22 + 16), 1u);
    EXPECT_EQ(m_bloque.u16(22 + 20), 1);
}

TEST_F(iv_mcbase_monitor_registro, funciones_nulas_se_informan_y_se_registra_igual)
{
    ivrexa_registra_monitor(m_hwnd, nullptr, nullptr, nullptr, nullptr);
    EXPECT_INFORME("ivrexa", "(funcionNotificacionActividad) != 0");
    EXPECT_INFORME("ivrexa", "(funcionMonitorBuclesCliente) != 0");
    EXPECT_INFORME("ivrexa", "(funcionMonitorBuclesServidor) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(m_bloque.u64(6), reinterpret_cast<uint64_t>(m_hwnd));
    EXPECT_EQ(proc_actual(), proc_monitor());

    pon_servicio(0, "Calc");
    iv_mcbase_anota_actividad(1, 2, 1, "Calc", 0, 0);
    for (WPARAM wparam : {0, 1, 2})
        EXPECT_EQ(SendMessageW(m_hwnd, mensaje_monitor(), wparam, wparam == 0 ? 1 : 0x10000), 0);
}

TEST_F(iv_mcbase_monitor_registro, ventana_nula_con_lo_demas_se_informa_y_se_quita_igual)
{
    ivrexa_registra_monitor(m_hwnd, al_notificar, al_rondar_cliente, al_rondar_servidor, &s_datos_monitor);
    EXPECT_SIN_INFORMES();
    ivrexa_registra_monitor(nullptr, al_notificar, al_rondar_cliente, al_rondar_servidor, &s_datos_monitor);
    EXPECT_INFORME("ivrexa", "funcionNotificacionActividad == NULL");
    EXPECT_INFORME("ivrexa", "funcionMonitorBuclesCliente == NULL");
    EXPECT_INFORME("ivrexa", "funcionMonitorBuclesServidor == NULL");
    EXPECT_INFORME("ivrexa", "datos_externos_monitor == NULL");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_EQ(m_bloque.u64(6), 0u);
    EXPECT_EQ(proc_actual(), m_proc_antes);
}

// ---- Ending

TEST_F(iv_mcbase_monitor_registro, fin_del_monitor_borra_solo_su_ventana)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    imagen esperada(m_bloque);

    iv_mcbase_quita_monitor();

    esperada.u64(6, 0);
    comprueba(esperada);
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(proc_actual(), m_proc_antes);
    EXPECT_EQ(iv_mcbase_hay_monitor(0), 0);

    registra_monitor(m_hwnd); // and again
    EXPECT_EQ(m_bloque.u64(6), reinterpret_cast<uint64_t>(m_hwnd));
    EXPECT_EQ(m_bloque.u16(4), 1); // the access was open already
}

static argumentos s_al_restaurar;

TEST_F(iv_mcbase_monitor_registro, fin_del_monitor_cierra_el_registro_y_despues_devuelve_la_ventana)
{
    for (bool con_programas : {false, true}) {
        if (con_programas)
            pon_programa(0, "otro", 0, 1);
        registra_monitor(m_hwnd);
        m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR {
            s_al_restaurar = {std::to_string(s_bloque->u64(6)), s_mcbase_acceso != nullptr ? "open" : "closed",
                              s_programa_monitor != nullptr ? "monitor" : "none"};
            return 0;
        };
        s_al_restaurar.clear();
        iv_mcbase_quita_monitor();
        EXPECT_EQ(s_al_restaurar, (argumentos{"0", con_programas ? "open" : "closed", "monitor"}));
        EXPECT_EQ(s_mcbase_acceso, nullptr);
        EXPECT_EQ(s_programa_monitor, nullptr);
        m_ventana->SetWindowLongPtrW = m_ventana.antes().SetWindowLongPtrW;
        SetWindowLongPtrW(m_hwnd, GWLP_WNDPROC, m_proc_antes);
    }
}

TEST_F(iv_mcbase_monitor_registro, tras_el_fin_otra_ventana_y_otras_funciones_son_el_monitor)
{
    registra_monitor(m_hwnd);
    iv_mcbase_quita_monitor();
    HWND otra = crea_ventana();
    static int datos;
    iv_mcbase_registra_monitor(otra, nullptr, al_rondar_servidor, al_rondar_cliente, &datos);

    EXPECT_EQ(m_bloque.u64(6), reinterpret_cast<uint64_t>(otra));
    EXPECT_EQ(SendMessageW(m_hwnd, mensaje_monitor(), 1, 0x10000), 0); // no longer watched
    EXPECT_TRUE(s_monitor.empty());
    EXPECT_EQ(SendMessageW(otra, mensaje_monitor(), 1, 0x10000), 0);
    ASSERT_EQ(s_monitor.size(), 1u);
    EXPECT_EQ(s_monitor[0].cual, "servidor");
    EXPECT_EQ(s_monitor[0].datos, &datos);
    iv_mcbase_quita_monitor();
    destruye_ventana(&otra);
}

TEST_F(iv_mcbase_monitor_registro, con_programas_el_fin_deja_abiertos_los_manejadores_y_olvida_el_acceso)
{
    pon_programa(0, "otro", 0, 1);
    registra_monitor(m_hwnd);
    iv_mcbase_acceso *antes = s_mcbase_acceso;
    uint32_t manejadores = cuenta_manejadores();

    iv_mcbase_quita_monitor();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_EQ(cuenta_manejadores(), manejadores);
    EXPECT_EQ(antes->mcbase->tam_bloque, 8886); // still mapped

    EXPECT_EQ(iv_mcbase_registra_programa(0, "este", nullptr), 1);
    EXPECT_NE(s_mcbase_acceso, antes);
    EXPECT_NE(s_mcbase_acceso->mutex->mutex, antes->mutex->mutex);
    EXPECT_NE(s_mcbase_acceso->bloque->hmap, antes->bloque->hmap);
    EXPECT_EQ(m_bloque.u16(4), 2); // a first open once more
}

TEST_F(iv_mcbase_monitor_registro, sin_programas_el_fin_cierra_los_manejadores)
{
    registra_monitor(m_hwnd);
    uint32_t manejadores = cuenta_manejadores();
    iv_mcbase_quita_monitor();
    EXPECT_EQ(cuenta_manejadores(), manejadores - 2); // mutex and block
}

TEST_F(iv_mcbase_monitor_registro, fin_sin_monitor_ni_acceso_no_hace_nada)
{
    pon_monitor();
    imagen esperada(m_bloque);
    iv_mcbase_quita_monitor();
    comprueba(esperada);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(proc_actual(), m_proc_antes);
}

TEST_F(iv_mcbase_monitor_registro, fin_en_un_proceso_que_no_es_el_monitor_quita_el_de_otro)
{
    pon_monitor();
    pon_programa(0, "otro", 0, 1);
    iv_mcbase_abre(0, FALSO);
    imagen esperada(m_bloque);
    m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR {
        ADD_FAILURE() << "no window is ours";
        return 0;
    };
    iv_mcbase_quita_monitor();
    esperada.u64(6, 0);
    comprueba(esperada);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

TEST_F(iv_mcbase_monitor_registro, cierre_de_sesion_no_acaba_con_el_monitor_que_queda_sordo)
{
    pon_servicio(0, "Calc");
    registra_monitor(m_hwnd);
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    ASSERT_NE(s_programa_monitor, nullptr);
    EXPECT_EQ(m_bloque.u64(6), reinterpret_cast<uint64_t>(m_hwnd));
    EXPECT_EQ(SendMessageW(m_hwnd, mensaje_monitor(), 1, 0x10000), 0);
    EXPECT_TRUE(s_monitor.empty());

    iv_mcbase_quita_monitor(); // still in time: nobody may go on posting to the window
    EXPECT_EQ(m_bloque.u64(6), 0u);
    EXPECT_EQ(m_bloque.u16(4), 1);
    EXPECT_EQ(proc_actual(), m_proc_antes);
    EXPECT_EQ(s_programa_monitor, nullptr);
}

// ---- Its window procedure

TEST_F(iv_mcbase_monitor_registro, otros_mensajes_van_al_procedimiento_anterior)
{
    registra_monitor(m_hwnd);
    s_programa_monitor->proc_ventana_anterior = reinterpret_cast<WNDPROC>(0x7777);
    m_ventana->CallWindowProcW = [](WNDPROC proc, HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam) -> LRESULT {
        s_llamadas.push_back(
            junta({std::to_string(reinterpret_cast<uintptr_t>(proc)), std::to_string(reinterpret_cast<uintptr_t>(hwnd)),
                   std::to_string(msg), std::to_string(wparam), std::to_string(lparam)}));
        return 0x123456789;
    };
    EXPECT_EQ(manda_al_monitor(mensaje_monitor() - 1, 5, 0x100000006), 0x123456789);
    EXPECT_EQ(s_llamadas,
              (argumentos{junta({"30583", "119", std::to_string(mensaje_monitor() - 1), "5", "4294967302"})}));
    s_llamadas.clear();
    for (WPARAM wparam : {0, 1, 2, 3})
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, 0), 0);
    EXPECT_TRUE(s_llamadas.empty());
    s_programa_monitor->proc_ventana_anterior = reinterpret_cast<WNDPROC>(m_proc_antes);
}

TEST_F(iv_mcbase_monitor_registro, procedimiento_que_queda_instalado_tras_el_fin_solo_pasa_mensajes)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    iv_mcbase_anota_actividad(1, 2, 1, "Calc", 100, 0);
    iv_mcbase_quita_monitor();
    iv_mcbase_abre(0, FALSO);
    m_ventana->CallWindowProcW = [](WNDPROC proc, HWND, UINT msg, WPARAM, LPARAM) -> LRESULT {
        s_llamadas.push_back(std::to_string(reinterpret_cast<LONG_PTR>(proc)) + " " + std::to_string(msg));
        return 77;
    };
    for (WPARAM wparam : {0, 1, 2})
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, wparam == 0 ? 1 : 0x10000), 0);
    EXPECT_TRUE(s_monitor.empty());
    EXPECT_TRUE(s_llamadas.empty());
    EXPECT_EQ(manda_al_monitor(WM_APP, 0, 0), 77); // a host that has subclassed over us still calls us
    EXPECT_EQ(s_llamadas, (argumentos{std::to_string(m_proc_antes) + " 32768"}));
}

TEST_F(iv_mcbase_monitor_registro, mensajes_de_verdad_de_la_ventana_llegan_a_su_propio_procedimiento)
{
    HWND hwnd = crea_ventana([](HWND h, UINT msg, WPARAM wparam, LPARAM lparam) -> LRESULT {
        return msg == WM_APP + 3 ? static_cast<LRESULT>(wparam * 1000 + lparam)
                                 : DefWindowProcW(h, msg, wparam, lparam);
    });
    registra_monitor(hwnd);
    EXPECT_EQ(GetWindowLongPtrW(hwnd, GWLP_WNDPROC), proc_monitor());
    EXPECT_EQ(SendMessageW(hwnd, WM_APP + 3, 12, 345), 12345);
    EXPECT_TRUE(SetWindowTextW(hwnd, L"\x00e1rbol"));
    wchar_t texto[16] = L"";
    GetWindowTextW(hwnd, texto, 16);
    EXPECT_STREQ(texto, L"\x00e1rbol"); // a Unicode window it stays
    iv_mcbase_quita_monitor();
    destruye_ventana(&hwnd);
}

TEST_F(iv_mcbase_monitor_registro, cada_funcion_puede_faltar_sin_las_otras)
{
    const argumentos cuales = {"actividad", "cliente", "servidor"};
    for (uint32_t solo = 0; solo < 3; solo++) {
        SCOPED_TRACE(cuales[solo]);
        iv_mcbase_registra_monitor(m_hwnd, solo == 0 ? al_notificar : nullptr, solo == 1 ? al_rondar_cliente : nullptr,
                                   solo == 2 ? al_rondar_servidor : nullptr, nullptr);
        pon_servicio(0, "Calc");
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", 100, 0);
        s_monitor.clear();
        for (WPARAM wparam : {0, 1, 2})
            EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, wparam == 0 ? 1 : 0x10000), 0);
        ASSERT_EQ(s_monitor.size(), 1u);
        EXPECT_EQ(s_monitor[0].cual, cuales[solo]);
        EXPECT_EQ(s_monitor[0].datos, nullptr);
        iv_mcbase_quita_monitor();
    }
}

TEST_F(iv_mcbase_monitor_registro, las_funciones_se_llaman_sin_nada_bloqueado_y_pueden_usar_el_registro)
{
    static bool libre;
    static int16_t hay;
    static uint32_t sitio;
    libre = false;
    hay = 0;
    sitio = 99;
    iv_mcbase_registra_monitor(
        m_hwnd, nullptr,
        [](const iv_mcbase_t *, const datServ *, uint32_t, void *) {
            sitio = sitio_actual();
            libre = s_mutex->libre();
            hay = iv_mcbase_hay_monitor(2);
        },
        nullptr, nullptr);
    manda_al_monitor(mensaje_monitor(), 1, 0x10000);
    EXPECT_TRUE(libre);
    EXPECT_EQ(sitio, 0u);
    EXPECT_EQ(hay, 1);
}

TEST_F(iv_mcbase_monitor_registro, actividad_llega_con_los_campos_de_su_registro)
{
    registra_monitor(m_hwnd);
    pon_servicio(31, "Calc");
    const uint32_t valores[] = {31, 100, 17, 1, 2};
    for (uint32_t n : {1u, 63u, 64u}) {
        for (uint32_t c = 0; c < 5; c++)
            m_bloque.pon_u32(en_actividad(n) + 4 * c, valores[c] + (c == 1 ? n : 0));
        m_bloque.pon_u16(en_actividad(n) + 20, 0xFFFE);
    }
    for (uint64_t lparam : {uint64_t{1}, uint64_t{63}, uint64_t{64}, uint64_t{0x700000001}}) {
        SCOPED_TRACE(lparam);
        s_monitor.clear();
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, lparam), 0);
        ASSERT_EQ(s_monitor.size(), 1u);
        EXPECT_EQ(s_monitor[0].cual, "actividad");
        EXPECT_EQ(s_monitor[0].tipo_programa, 1u);
        EXPECT_EQ(s_monitor[0].tipo_actividad, 2u);
        EXPECT_EQ(s_monitor[0].indicador, 0xFFFEu);
        EXPECT_EQ(s_monitor[0].dato1, 100 + (lparam & 0xFF));
        EXPECT_EQ(s_monitor[0].dato2, 17u);
        EXPECT_EQ(s_monitor[0].texto, "Calc");
        EXPECT_EQ(s_monitor[0].datos, &s_datos_monitor);
        const uint8_t *datos = static_cast<uint8_t *>(iv_shared_datos(s_mcbase_acceso->bloque));
        EXPECT_EQ(s_monitor[0].nombre, datos + 5814 + 31 * 96); // the name itself, not a copy
    }
}

TEST_F(iv_mcbase_monitor_registro, actividad_fuera_de_sus_limites_se_deja_caer)
{
    registra_monitor(m_hwnd);
    for (uint32_t n = 1; n <= 64; n++)
        m_bloque.pon_u32(en_actividad(n), 0);
    m_bloque.pon_bytes(en_programa(0), std::vector<uint8_t>(16 * 274, 0)); // would be records 65 and on
    for (uint64_t n : {uint64_t{0}, uint64_t{65}, uint64_t{66}, uint64_t{0xFFFFFFFF}, uint64_t{0x500000000}})
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, n), 0) << n;
    for (uint32_t ind : {32u, 33u, 0xFFFFFFFFu}) {
        m_bloque.pon_u32(en_actividad(7), ind);
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, 7), 0) << ind;
    }
    EXPECT_TRUE(s_monitor.empty());
    m_bloque.pon_u32(en_actividad(7), 31);
    EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, 7), 0);
    EXPECT_EQ(s_monitor.size(), 1u);
}

TEST_F(iv_mcbase_monitor_registro, retirada_de_un_servicio_se_cuenta_con_el_nombre_ya_vacio)
{
    registra_monitor(m_hwnd);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
    iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
    ASSERT_EQ(s_avisos.size(), 2u);
    manda_al_monitor(s_avisos[1].msg, s_avisos[1].wparam, s_avisos[1].lparam);
    ASSERT_EQ(s_monitor.size(), 1u);
    EXPECT_EQ(s_monitor[0].texto, "");
    EXPECT_EQ(s_monitor[0].tipo_actividad, 1u);
    EXPECT_EQ(s_monitor[0].indicador, 0u);
}

TEST_F(iv_mcbase_monitor_registro, rondas_llegan_a_la_funcion_de_su_lado)
{
    registra_monitor(m_hwnd);
    const uint8_t *datos = static_cast<uint8_t *>(iv_shared_datos(s_mcbase_acceso->bloque));
    struct {
        WPARAM wparam;
        uint64_t lparam;
        const char *cual;
        uint32_t ind, estado;
    } const casos[] = {
        {1, 196613, "cliente", 5, 3},   {1, 0x10000, "cliente", 0, 1},
        {1, 0x4001F, "cliente", 31, 4}, {1, 0xFFFF0001, "cliente", 1, 0xFFFF},
        {2, 0x20005, "servidor", 5, 2}, {2, 0x1001F, "servidor", 31, 1},
        {1, 7, "cliente", 7, 0},        {2, 0x500030002, "servidor", 2, 3},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.lparam);
        s_monitor.clear();
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), caso.wparam, caso.lparam), 0);
        ASSERT_EQ(s_monitor.size(), 1u);
        EXPECT_EQ(s_monitor[0].cual, caso.cual);
        EXPECT_EQ(s_monitor[0].mcbase, datos);
        EXPECT_EQ(s_monitor[0].servicio, datos + 5814 + caso.ind * 96);
        EXPECT_EQ(s_monitor[0].estado, caso.estado);
        EXPECT_EQ(s_monitor[0].datos, &s_datos_monitor);
    }
    s_monitor.clear();
    for (WPARAM wparam : {1, 2})
        for (uint64_t ind : {uint64_t{32}, uint64_t{33}, uint64_t{0xFFFF}, uint64_t{0x30020}})
            EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, ind), 0);
    for (WPARAM wparam : {WPARAM{3}, WPARAM{4}, WPARAM{0x10001}, WPARAM{0x100000001}, ~WPARAM{0}})
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, 1), 0) << wparam;
    EXPECT_TRUE(s_monitor.empty());
}

TEST_F(iv_mcbase_monitor_registro, el_monitor_lee_sin_esperar_al_mutex)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    iv_mcbase_anota_actividad(1, 2, 1, "Calc", 100, 0);
    ASSERT_TRUE(m_mutex.retiene());
    manda_al_monitor(mensaje_monitor(), 0, 1); // would wait for ever
    manda_al_monitor(mensaje_monitor(), 1, 0x10000);
    manda_al_monitor(mensaje_monitor(), 2, 0x10000);
    m_mutex.suelta();
    EXPECT_EQ(s_monitor.size(), 3u);
}

// ---- Another process, with real messages

PAPEL(anunciante)
{
    iv_mcserv_t canal = {};
    uint16_t id = iv_mcbase_registra_programa(0, "anunciante", nullptr);
    EXPECT_EQ(id, 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
    iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO(0, &canal);
    iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO(0, &canal);
    yo.di("LISTO");
    yo.escucha_linea("FIN", 30000);
    iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
    iv_mcbase_quita_programa(id);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    return 0;
}

TEST_F(iv_mcbase_monitor_registro, avisos_de_otro_proceso_llegan_por_la_cola_de_la_ventana)
{
    registra_monitor(m_hwnd);
    papel otro = arranca_papel("anunciante");
    EXPECT_EQ(bombea_hasta([] { return s_monitor.size() >= 3; }, 10000), bombeo::cumplido);
    ASSERT_EQ(s_monitor.size(), 3u);
    EXPECT_EQ(s_monitor[0].cual, "actividad");
    EXPECT_EQ(s_monitor[0].tipo_programa, 0u);
    EXPECT_EQ(s_monitor[0].tipo_actividad, 1u);
    EXPECT_EQ(s_monitor[0].indicador, 1u);
    EXPECT_EQ(s_monitor[0].texto, "Calc");
    EXPECT_EQ(m_bloque.u32(22), 0u); // it was record 1
    EXPECT_EQ(m_bloque.u32(18), 2u);
    EXPECT_EQ(s_monitor[1].cual, "cliente");
    EXPECT_EQ(s_monitor[1].estado, 3u);
    EXPECT_EQ(s_monitor[2].cual, "servidor");
    EXPECT_EQ(s_monitor[2].estado, 2u);

    otro.di("FIN");
    EXPECT_EQ(bombea_hasta([] { return s_monitor.size() >= 4; }, 10000), bombeo::cumplido);
    EXPECT_EQ(otro.espera_fin(10000), 0u);
    ASSERT_EQ(s_monitor.size(), 4u);
    EXPECT_EQ(s_monitor[3].indicador, 0u);
    EXPECT_EQ(s_monitor[3].texto, "");
    for (const llamada_monitor &llamada : s_monitor)
        EXPECT_EQ(llamada.hilo, GetCurrentThreadId());
}

TEST_F(iv_mcbase_monitor_registro, actividad_pisada_se_ve_con_lo_mas_nuevo)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    for (uint32_t i = 0; i < 64; i++)
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", i, 0);
    ASSERT_EQ(s_avisos.size(), 64u);
    for (uint32_t i : {0u, 1u})
        manda_al_monitor(s_avisos[i].msg, s_avisos[i].wparam, s_avisos[i].lparam);
    ASSERT_EQ(s_monitor.size(), 2u);
    EXPECT_EQ(s_monitor[0].dato1, 63u);
    EXPECT_EQ(s_monitor[1].dato1, 1u);
}
