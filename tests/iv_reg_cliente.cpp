// A program as client: its services, its documents, and the notifications between a server and its clients.
#include "iv_reg_apoyo.h"

#include "comun/importacion.h"

IMPORTACION(Sleep);

namespace {

int s_num_subclases;
mensaje s_publicado;

LONG_PTR WINAPI cuenta_subclase(HWND hwnd, int indice, LONG_PTR valor)
{
    s_num_subclases++;
    return SetWindowLongPtrW(hwnd, indice, valor);
}

BOOL WINAPI apunta_publicado(HWND, UINT msg, WPARAM wparam, LPARAM lparam)
{
    s_publicado = {msg, wparam, lparam};
    return TRUE;
}

std::string interno(const std::string &servicio)
{
    return "Mutex_Ivrexa_" + servicio + "Interno";
}

struct iv_reg_cliente : con_sesion {
    void registra(const char *servicio, HWND hwnd = nullptr, ivrexa_funcion_notificacion funcion = nullptr)
    {
        iv_reg_registra_cliente("C:\\cliente.exe", hwnd, servicio, funcion);
    }
};
struct iv_reg_documento : iv_reg_cliente {};

struct iv_reg_notificacion : iv_reg_cliente {
    // A client of one service, and its channel.
    void prepara(HWND hwnd = nullptr, ivrexa_funcion_notificacion funcion = funcion_aviso)
    {
        m_servicio = nombre_unico("Calc");
        registra(m_servicio, hwnd, funcion);
        m_canal = std::make_unique<bloque_crudo>(abre_canal(m_servicio));
    }

    // What a server writes.
    void notifica(uint32_t id_cliente, uint32_t dato, uint32_t id_datos)
    {
        m_canal->pon_u32(2366, id_cliente);
        m_canal->pon_u32(2370, dato);
        m_canal->pon_u32(2374, id_datos);
        m_canal->pon_u32(2362, 1);
    }
    bool espera_buzon(uint32_t estado, uint32_t ms = 5000)
    {
        return espera_hasta([&] { return m_canal->u32(2362) == estado; }, ms);
    }

    const char *m_servicio = nullptr;
    std::unique_ptr<bloque_crudo> m_canal;
};
struct iv_reg_notifica : iv_reg_notificacion {
    void prepara_servidor()
    {
        m_servicio = nombre_unico("Calc");
        sirve(m_servicio, ventana());
        m_canal = std::make_unique<bloque_crudo>(abre_canal(m_servicio));
    }
};

const char *const OTRA_RUTA = "iv_mem_cadenas_iguales_u(doc->ruta, ruta_documento) == CIERTO";

} // namespace

// ---- Registration

TEST_F(iv_reg_cliente, ficha_del_servicio_usado_campo_a_campo)
{
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_servicio(0, 0), "otro");
    mcb.pon_bytes(en_servicio(1, 80), std::vector<uint8_t>(16, 0xEE));
    const char *servicio = nombre_unico("Calc");
    registra(servicio, nullptr, funcion_aviso);

    EXPECT_EQ(programa().u32(0), 1u);
    EXPECT_EQ(programa().texto(4), "C:\\cliente.exe");
    EXPECT_EQ(programa().puntero(12), nullptr);
    EXPECT_EQ(programa().u16(30), 0u);
    EXPECT_EQ(programa().u32(32), 0u);
    EXPECT_EQ(programa().u32(1476), 200u);
    EXPECT_EQ(programa().u32(1480), 1u);

    EXPECT_EQ(solicitado(0).texto(0), servicio);
    EXPECT_NE(solicitado(0).puntero(0), servicio);
    EXPECT_EQ(solicitado(0).u32(8), 1u);
    EXPECT_EQ(solicitado(0).u32(12), RegisterWindowMessageA((std::string("Ivrexa_MSG_Serv_") + servicio).c_str()));
    EXPECT_EQ(solicitado(0).u32(16), 0u);
    EXPECT_EQ(solicitado(0).puntero(20), reinterpret_cast<void *>(funcion_aviso));
    EXPECT_EQ(mutex_en(solicitado(0), 28)->nombre, interno(servicio));
    auto *bloque = static_cast<iv_shared_bloque *>(solicitado(0).puntero(36));
    EXPECT_EQ(bloque->nombre, nombre_canal(servicio));
    EXPECT_STREQ(bloque->tipo, "iv_mcserv_t");
    EXPECT_EQ(GetThreadId(solicitado(0).puntero(44)), solicitado(0).u32(52));
    EXPECT_EQ(solicitado(0).u16(56), 0u);

    EXPECT_EQ(mcb.texto(en_programa(0, 0), 256), "C:\\cliente.exe");
    EXPECT_EQ(mcb.u16(en_programa(0, 264)), 0u);
    EXPECT_EQ(mcb.u16(en_programa(0, 266)), 1u);
    EXPECT_EQ(mcb.texto(en_servicio(1, 0), 64), servicio);
    EXPECT_EQ(mcb.u16(en_servicio(1, 66)), 0u); // id_programa_cliente
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(16), mcb.bytes(en_servicio(1, 80), 16)));
}

// The service need not be offered yet: the client makes its channel, all zeros.
TEST_F(iv_reg_cliente, canal_que_no_existe_se_crea_vacio)
{
    const char *servicio = nombre_unico("Calc");
    registra(servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.cabecera(), 2378u);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(2378), canal.bytes(0, 2378)));
    EXPECT_FALSE(existe_mutex((std::string("Mutex_Ivrexa_") + servicio).c_str()));
    EXPECT_TRUE(existe_mutex(interno(servicio).c_str()));
}

TEST_F(iv_reg_cliente, ventana_se_cambia_al_registrar_y_una_sola_vez)
{
    ventana_cambiada cambiada;
    cambiada->SetWindowLongPtrW = cuenta_subclase;
    s_num_subclases = 0;
    registra(nombre_unico("A"), ventana());
    registra(nombre_unico("B"), ventana());

    EXPECT_EQ(s_num_subclases, 1);
    EXPECT_EQ(programa().puntero(12), ventana());
    EXPECT_EQ(programa().puntero(20), reinterpret_cast<void *>(proc_propia));
    EXPECT_EQ(GetWindowLongPtrW(ventana(), GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(iv_reg_wndproc_programa));
}

TEST_F(iv_reg_cliente, otra_ventana_que_la_del_programa_se_informa_y_el_servicio_se_anyade)
{
    HWND otra = crea_ventana(proc_propia);
    registra(nombre_unico("A"), ventana());
    registra(nombre_unico("B")); // null: no report
    registra(nombre_unico("C"), ventana());
    EXPECT_EQ(num_informes(), 0u);

    registra(nombre_unico("D"), otra);
    EXPECT_INFORME("iv_reg", "hwnd_programa == s_programa->hwnd_programa");
    EXPECT_EQ(programa().puntero(12), ventana());
    EXPECT_EQ(programa().texto(4), "C:\\cliente.exe");
    EXPECT_EQ(programa().u32(1480), 4u);
    EXPECT_EQ(GetWindowLongPtrW(otra, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(proc_propia));
    destruye_ventana(&otra);
}

TEST_F(iv_reg_cliente, ventana_en_un_servidor_sin_ella_se_informa)
{
    sirve(nombre_unico("A"), nullptr);
    registra(nombre_unico("B"), ventana());
    EXPECT_INFORME("iv_reg", "hwnd_programa == s_programa->hwnd_programa");
    EXPECT_EQ(programa().puntero(12), nullptr);
    EXPECT_EQ(programa().puntero(20), nullptr);
}

TEST_F(iv_reg_cliente, ruta_de_un_segundo_registro_no_cuenta)
{
    registra(nombre_unico("A"));
    uint32_t id_hilo = programa().u32(3320);
    iv_reg_registra_cliente("C:\\otra.exe", nullptr, nombre_unico("B"), nullptr);

    EXPECT_EQ(programa().texto(4), "C:\\cliente.exe");
    EXPECT_EQ(programa().u32(3320), id_hilo);
    EXPECT_EQ(abre_registro().texto(en_programa(1, 0), 256), "");
}

TEST_F(iv_reg_cliente, segundo_registro_del_mismo_servicio_no_cambia_nada)
{
    const char *servicio = nombre_unico("Calc");
    registra(servicio);
    uint32_t id_hilo = solicitado(0).u32(52);
    registra(servicio, nullptr, funcion_aviso);

    EXPECT_EQ(programa().u32(1480), 1u);
    EXPECT_EQ(solicitado(0).puntero(20), nullptr);
    EXPECT_EQ(solicitado(0).u32(52), id_hilo);
}

TEST_F(iv_reg_cliente, decimoseptimo_servicio_se_pierde_sin_decirlo)
{
    std::string ultimo;
    for (int n = 0; n < 17; n++)
        registra((ultimo = nombre_unico("S")).c_str());

    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(programa().u32(1480), 16u);
    EXPECT_EQ(programa().u32(2412), 0u); // what lies behind the table
    EXPECT_EQ(documento_en(0).u64(0), 0u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(ultimo.c_str()), 0u);
    EXPECT_FALSE(existe_bloque(nombre_canal(ultimo).c_str()));
    EXPECT_EQ(busca_en_registro(abre_registro(), ultimo), 32u);
    registra(solicitado(15).texto(0).c_str()); // one that it uses: nothing either
    EXPECT_EQ(programa().u32(1480), 16u);
}

// ---- Documents

TEST_F(iv_reg_documento, sin_programa_o_sin_servicio_se_informa_y_da_0)
{
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente("Calc", L"a", 1), 0u);
    EXPECT_INFORME("iv_reg", "s_programa != NULL");
    iv_reg_cerrado_documento_de_cliente(L"a", 1);
    EXPECT_INFORME("iv_reg", "s_programa != NULL");
    EXPECT_EQ(num_informes(), 0u);

    sirve("Calc", ventana()); // offered, not used
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente("Calc", L"a", 1), 0u);
    EXPECT_INFORME("iv_reg", "servicio_solicitado != NULL");
    EXPECT_EQ(documento_en(0).u32(8), 0u);
    EXPECT_EQ(programa().u32(1476), 200u);
}

TEST_F(iv_reg_documento, primer_servicio_recibe_200_y_el_segundo_201)
{
    const char *a = nombre_unico("A"), *b = nombre_unico("B");
    registra(a);
    registra(b);
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(b, L"C:\\uno", 11), 200u);
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(a, L"C:\\uno", 11), 201u);
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(b, L"C:\\dos", 12), 200u);

    EXPECT_EQ(solicitado(0).u32(16), 201u);
    EXPECT_EQ(solicitado(1).u32(16), 200u);
    EXPECT_EQ(programa().u32(1476), 202u);
    EXPECT_EQ(documento_en(0).texto_u(0), L"C:\\uno");
    EXPECT_EQ(documento_en(0).u32(8), 11u);
    EXPECT_EQ(documento_en(0).u8(12), 1u);
    EXPECT_EQ(documento_en(0).u8(13), 1u);
    EXPECT_EQ(documento_en(0).u8(14), 0u);
    EXPECT_EQ(documento_en(1).texto_u(0), L"C:\\dos");
    EXPECT_EQ(documento_en(1).u32(8), 12u);
    EXPECT_EQ(documento_en(1).u8(12), 0u);
    EXPECT_EQ(documento_en(1).u8(13), 1u);
    EXPECT_EQ(documento_en(2).u32(8), 0u);
    EXPECT_EQ(programa().u32(2412), 0u); // never maintained
}

TEST_F(iv_reg_documento, mismo_id_con_otra_ruta_se_informa_y_aun_asi_se_marca)
{
    const char *a = nombre_unico("A"), *b = nombre_unico("B");
    registra(a);
    registra(b);
    iv_reg_abierto_documento_de_cliente(a, L"C:\\uno", 11);
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(b, L"C:\\UNO", 11), 201u);
    EXPECT_INFORME("iv_reg", OTRA_RUTA);

    EXPECT_EQ(documento_en(0).texto_u(0), L"C:\\uno");
    EXPECT_EQ(documento_en(0).u8(13), 1u);
    EXPECT_EQ(documento_en(1).u32(8), 0u);
}

TEST_F(iv_reg_documento, trigesimo_tercero_no_se_apunta_y_da_el_id)
{
    const char *a = nombre_unico("A"), *b = nombre_unico("B");
    registra(a);
    registra(b);
    for (uint32_t n = 1; n <= 32; n++)
        iv_reg_abierto_documento_de_cliente(a, L"x", n);
    EXPECT_EQ(documento_en(31).u32(8), 32u);
    uint64_t detras = programa().u64(3312);
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(b, L"x", 33), 201u);
    EXPECT_EQ(programa().u64(3312), detras);
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(b, L"x", 32), 201u); // a known one still is found
    EXPECT_EQ(documento_en(31).u8(13), 1u);

    iv_reg_cerrado_documento_de_cliente(L"x", 5);
    iv_reg_cerrado_documento_de_cliente(L"x", 9);
    iv_reg_abierto_documento_de_cliente(a, L"nuevo", 33);
    EXPECT_EQ(documento_en(4).u32(8), 33u); // the first free one
    EXPECT_EQ(documento_en(8).u32(8), 0u);
}

// The whole table is looked through before a free slot is taken.
TEST_F(iv_reg_documento, id_conocido_detras_de_un_hueco_no_se_apunta_dos_veces)
{
    const char *a = nombre_unico("A");
    registra(a);
    iv_reg_abierto_documento_de_cliente(a, L"uno", 1);
    iv_reg_abierto_documento_de_cliente(a, L"dos", 2);
    iv_reg_cerrado_documento_de_cliente(L"uno", 1);
    iv_reg_abierto_documento_de_cliente(a, L"dos", 2);
    EXPECT_EQ(documento_en(0).u32(8), 0u);
}

TEST_F(iv_reg_documento, cerrar_vacia_la_casilla_y_conserva_el_id_de_cliente)
{
    const char *a = nombre_unico("A"), *b = nombre_unico("B");
    registra(a);
    registra(b);
    iv_reg_abierto_documento_de_cliente(a, L"uno", 1);
    iv_reg_abierto_documento_de_cliente(b, L"uno", 1);
    iv_reg_abierto_documento_de_cliente(a, L"dos", 2);
    uint32_t vivos = bloques_vivos();
    iv_reg_cerrado_documento_de_cliente(L"uno", 3); // unknown: nothing
    iv_reg_cerrado_documento_de_cliente(L"otra ruta", 2);
    EXPECT_INFORME("iv_reg", OTRA_RUTA);
    iv_reg_cerrado_documento_de_cliente(L"uno", 1);

    EXPECT_EQ(bloques_vivos(), vivos - 2);
    for (uint32_t i = 0; i < 2; i++)
        for (size_t despl = 0; despl < 28; despl++)
            EXPECT_EQ(documento_en(i).u8(despl), 0u) << i << " " << despl;
    EXPECT_EQ(solicitado(0).u32(16), 200u);
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(b, L"uno", 1), 201u);
}

// It fills a slot that goes on counting as free; its path goes when the slot is used again.
TEST_F(iv_reg_documento, documento_de_id_0_ocupa_una_casilla_libre)
{
    const char *a = nombre_unico("A");
    registra(a);
    uint32_t vivos = bloques_vivos();
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(a, L"cero", 0), 200u);
    EXPECT_EQ(documento_en(0).texto_u(0), L"cero");
    EXPECT_EQ(documento_en(0).u32(8), 0u);
    iv_reg_cerrado_documento_de_cliente(L"otro", 0); // not found
    EXPECT_EQ(num_informes(), 0u);

    iv_reg_abierto_documento_de_cliente(a, L"uno", 1);
    EXPECT_EQ(documento_en(0).texto_u(0), L"uno");
    EXPECT_EQ(documento_en(0).u32(8), 1u);
    EXPECT_EQ(bloques_vivos(), vivos + 1);
}

// ---- Receiving a notification

TEST_F(iv_reg_notificacion, hilo_la_entrega_a_la_funcion_y_a_la_ventana)
{
    prepara(ventana());
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(m_servicio, L"x", 1), 200u);
    notifica(200, 0xDDDD, 105);
    EXPECT_TRUE(espera_hasta([] { return num_avisos() == 1; }, 5000));
    EXPECT_EQ(m_canal->u32(2362), 2u);
    EXPECT_EQ(s_avisos[0].servicio, m_servicio);
    EXPECT_EQ(s_avisos[0].id_cliente, 200u);
    EXPECT_EQ(s_avisos[0].dato, 0xDDDDu);
    EXPECT_EQ(s_avisos[0].hilo, solicitado(0).u32(52));

    MSG msg = {};
    UINT id = solicitado(0).u32(12);
    EXPECT_TRUE(espera_hasta([&] { return PeekMessageW(&msg, nullptr, id, id, PM_REMOVE) != 0; }, 5000));
    EXPECT_EQ(msg.hwnd, ventana());
    EXPECT_EQ(msg.wParam, 200u);
    EXPECT_EQ(msg.lParam, 0xDDDD);
    DispatchMessageW(&msg); // the second call: the client's id in the place of the datum
    ASSERT_EQ(num_avisos(), 2u);
    EXPECT_EQ(s_avisos[1].id_cliente, 200u);
    EXPECT_EQ(s_avisos[1].dato, 200u);
    EXPECT_EQ(s_avisos[1].hilo, GetCurrentThreadId());
}

// The mutex is held from the taking to the receipt, which is written without it.
TEST_F(iv_reg_notificacion, mutex_se_tiene_bajo_el_sitio_33_hasta_el_acuse)
{
    prepara();
    mutex_crudo mutex(interno(m_servicio).c_str()), del_servidor(interno(m_servicio).c_str());
    ASSERT_TRUE(mutex.retiene(5000));
    notifica(0, 7, 105);
    EXPECT_FALSE(espera_buzon(2, 600)); // longer than a turn of 500 ms: it waits for the mutex
    mutex.suelta();
    EXPECT_TRUE(espera_buzon(2));
    EXPECT_TRUE(espera_hasta([] { return num_avisos() == 1; }, 5000));
    EXPECT_EQ(mutex_en(solicitado(0), 28)->codigos_bloqueo[0], 33u);
    EXPECT_FALSE(del_servidor.libre());

    ivrexa_procesada_notificacion(m_servicio);
    EXPECT_EQ(m_canal->u32(2362), 3u);
    EXPECT_TRUE(del_servidor.retiene(2000));
    m_canal->pon_u32(2362, 0);
    del_servidor.suelta();
    EXPECT_EQ(num_avisos(), 1u);
    EXPECT_EQ(s_avisos[0].dato, 7u);
}

TEST_F(iv_reg_notificacion, la_de_otro_cliente_se_toma_y_no_se_entrega)
{
    prepara(ventana());
    ventana_cambiada cambiada;
    cambiada->PostMessageW = apunta_publicado;
    s_publicado = {};
    iv_reg_abierto_documento_de_cliente(m_servicio, L"x", 1);
    notifica(201, 7, 105);
    EXPECT_TRUE(espera_buzon(2));
    EXPECT_FALSE(mutex_crudo(interno(m_servicio).c_str()).libre());
    m_canal->pon_u32(2362, 3); // its wait is over then, and the delivery would be past
    EXPECT_TRUE(mutex_crudo(interno(m_servicio).c_str()).retiene(2000));
    EXPECT_EQ(num_avisos(), 0u);
    EXPECT_EQ(s_publicado.msg, 0u);
}

// 60 turns of 500 ms: this test is as long.
TEST_F(iv_reg_notificacion, sin_acuse_el_mutex_se_suelta_a_los_30_segundos_y_el_buzon_sigue_en_2)
{
    prepara();
    iv_reg_abierto_documento_de_cliente(m_servicio, L"x", 1);
    notifica(201, 7, 105);
    EXPECT_TRUE(espera_buzon(2));
    uint64_t inicio = GetTickCount64();
    mutex_crudo mutex(interno(m_servicio).c_str());
    EXPECT_TRUE(mutex.retiene(40000));
    uint64_t ms = GetTickCount64() - inicio;
    EXPECT_GE(ms, 29500u);
    EXPECT_LT(ms, 34000u);
    EXPECT_EQ(m_canal->u32(2362), 2u);
    mutex.suelta();
    EXPECT_EQ(WaitForSingleObject(solicitado(0).puntero(44), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

// The same by the thread's own sleeps, which here cost nothing: 60 of 500 ms with the mutex held, and the
// next, without it, for its turn.
TEST_F(iv_reg_notificacion, espera_del_acuse_son_60_vueltas_de_500_ms)
{
    static decltype(&Sleep) s_duerme;
    static volatile uint32_t s_hilo, s_con_mutex, s_sin_mutex, s_otros;
    s_duerme = __imp_Sleep;
    s_hilo = s_con_mutex = s_sin_mutex = s_otros = 0;
    importacion_cambiada<decltype(&Sleep)> cambio(__imp_Sleep, [](DWORD ms) {
        if (GetCurrentThreadId() != s_hilo || s_sin_mutex > 0)
            return s_duerme(ms);
        if (ms != 500)
            s_otros = s_otros + 1;
        else if (mutex_en(solicitado(0), 28)->nivel_bloqueo == 1)
            s_con_mutex = s_con_mutex + 1;
        else if (s_con_mutex > 0) // turns before the notification do not count
            s_sin_mutex = s_sin_mutex + 1;
        s_duerme(1);
    });
    prepara();
    mutex_crudo mutex(interno(m_servicio).c_str());
    ASSERT_TRUE(mutex.retiene(5000));
    s_hilo = solicitado(0).u32(52);
    notifica(201, 7, 105);
    mutex.suelta();
    EXPECT_TRUE(espera_hasta([] { return s_sin_mutex > 0; }, 10000));
    EXPECT_EQ(s_con_mutex, 60u);
    EXPECT_EQ(s_otros, 0u);
    EXPECT_EQ(m_canal->u32(2362), 2u);
}

TEST_F(iv_reg_notificacion, sin_funcion_solo_va_a_la_ventana_y_sin_ventana_solo_a_la_funcion)
{
    ventana_cambiada cambiada;
    cambiada->PostMessageW = apunta_publicado;
    s_publicado = {};
    prepara(ventana(), nullptr);
    notifica(0, 9, 0);
    EXPECT_TRUE(espera_hasta([] { return s_publicado.msg != 0; }, 5000));
    EXPECT_EQ(s_publicado.msg, solicitado(0).u32(12));
    EXPECT_EQ(s_publicado.wparam, 0u);
    EXPECT_EQ(s_publicado.lparam, 9);
    cierra();

    s_publicado = {};
    prepara();
    notifica(0, 9, 0);
    EXPECT_TRUE(espera_hasta([] { return num_avisos() == 1; }, 5000));
    m_canal->pon_u32(2362, 3);
    EXPECT_TRUE(mutex_crudo(interno(m_servicio).c_str()).retiene(2000));
    EXPECT_EQ(s_publicado.msg, 0u);
}

TEST_F(iv_reg_notificacion, hilo_acaba_con_la_marca_del_canal_o_con_la_suya)
{
    prepara();
    m_canal->pon_u16(28, 1);
    EXPECT_EQ(WaitForSingleObject(solicitado(0).puntero(44), 3000), WAIT_OBJECT_0);
    DWORD codigo = 259;
    GetExitCodeThread(solicitado(0).puntero(44), &codigo);
    EXPECT_EQ(codigo, 0u);
    EXPECT_EQ(mutex_en(solicitado(0), 28)->nivel_bloqueo, 0);
    registra(nombre_unico("B"));
    solicitado(1).pon<uint16_t>(56, 1);
    EXPECT_EQ(WaitForSingleObject(solicitado(1).puntero(44), 3000), WAIT_OBJECT_0);
    EXPECT_EQ(mutex_en(solicitado(1), 28)->nivel_bloqueo, 0);
}

TEST_F(iv_reg_notificacion, las_marcas_acaban_tambien_la_espera_del_acuse)
{
    prepara();
    notifica(0, 7, 0);
    EXPECT_TRUE(espera_buzon(2));
    m_canal->pon_u16(28, 1);
    EXPECT_EQ(WaitForSingleObject(solicitado(0).puntero(44), 3000), WAIT_OBJECT_0);
    EXPECT_EQ(m_canal->u32(2362), 2u);
    EXPECT_TRUE(mutex_crudo(interno(m_servicio).c_str()).libre());
}

// ---- The service's message in the client's window

TEST_F(iv_reg_notificacion, mensaje_llama_a_la_funcion_y_el_primer_lparam_es_el_id)
{
    prepara(ventana());
    UINT msg = ivrexa_dame_id_MSG_servicio(m_servicio);
    EXPECT_EQ(SendMessageW(ventana(), msg, 31, 0), 0); // no id in it yet
    EXPECT_EQ(solicitado(0).u32(16), 0u);
    EXPECT_EQ(SendMessageW(ventana(), msg, 32, 555), 0);
    EXPECT_EQ(SendMessageW(ventana(), msg, 33, 666), 0);
    EXPECT_EQ(SendMessageW(ventana(), msg, 0, 777), 77); // to the host's own procedure

    EXPECT_EQ(solicitado(0).u32(16), 555u);
    ASSERT_EQ(num_avisos(), 3u);
    EXPECT_EQ(s_avisos[0].id_cliente, 0u);
    EXPECT_EQ(s_avisos[0].dato, 31u);
    EXPECT_EQ(s_avisos[1].id_cliente, 555u);
    EXPECT_EQ(s_avisos[1].dato, 32u);
    EXPECT_EQ(s_avisos[2].id_cliente, 555u);
    EXPECT_EQ(s_avisos[2].dato, 33u);
    EXPECT_EQ(s_avisos[2].servicio, m_servicio);
    EXPECT_EQ(s_mensajes.size(), 1u);
    // The id stays, and no other is handed out for it.
    EXPECT_EQ(iv_reg_abierto_documento_de_cliente(m_servicio, L"x", 1), 555u);
    EXPECT_EQ(programa().u32(1476), 200u);
}

TEST_F(iv_reg_notificacion, mensaje_se_toma_de_32_bits)
{
    prepara(ventana());
    SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(m_servicio), 0x5FEDCBA98u, 0x7F0000001);
    ASSERT_EQ(num_avisos(), 1u);
    EXPECT_EQ(s_avisos[0].id_cliente, 0xF0000001u);
    EXPECT_EQ(s_avisos[0].dato, 0xFEDCBA98u);
    EXPECT_EQ(solicitado(0).u32(16), 0xF0000001u);
}

TEST_F(iv_reg_notificacion, mensaje_sin_funcion_da_0_y_no_guarda_nada)
{
    prepara(ventana(), nullptr);
    EXPECT_EQ(SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(m_servicio), 32, 555), 0);
    EXPECT_EQ(solicitado(0).u32(16), 0u);
    EXPECT_TRUE(s_mensajes.empty());
}

// ---- What a client asks and answers

TEST_F(iv_reg_notificacion, id_de_los_datos_solo_de_la_notificacion_pendiente)
{
    EXPECT_EQ(iv_reg_obtener_id_datos_notificacion("Calc", 200, 7), 0u); // not registered
    prepara();
    m_canal->pon_u32(2366, 200);
    m_canal->pon_u32(2370, 7);
    m_canal->pon_u32(2374, 105);
    EXPECT_EQ(iv_reg_obtener_id_datos_notificacion(m_servicio, 200, 7), 105u);
    EXPECT_EQ(iv_reg_obtener_id_datos_notificacion(m_servicio, 200, 6), 0u); // a stale datum
    EXPECT_EQ(iv_reg_obtener_id_datos_notificacion(m_servicio, 201, 7), 0u); // another client
    EXPECT_EQ(iv_reg_obtener_id_datos_notificacion("otro", 200, 7), 0u);
}

TEST_F(iv_reg_notificacion, acuse_se_escribe_sin_mutex_y_solo_en_un_servicio_usado)
{
    iv_reg_procesada_notificacion("Calc");
    prepara();
    mutex_crudo mutex(interno(m_servicio).c_str());
    ASSERT_TRUE(mutex.retiene(5000));
    iv_reg_procesada_notificacion("otro");
    EXPECT_EQ(m_canal->u32(2362), 0u);
    iv_reg_procesada_notificacion(m_servicio);
    EXPECT_EQ(m_canal->u32(2362), 3u);
    EXPECT_EQ(m_canal->u32(2366), 0u);
}

// ---- A server notifies

TEST_F(iv_reg_notifica, buzon_se_escribe_y_se_vacia_con_el_acuse)
{
    prepara_servidor();
    mutex_crudo mutex(interno(m_servicio).c_str());
    ASSERT_TRUE(mutex.retiene(5000));
    hilo notifica([&] { ivrexa_notifica_a_cliente(m_servicio, 200, 7, 105); });
    EXPECT_FALSE(notifica.acaba(100));
    EXPECT_EQ(m_canal->u32(2362), 0u); // site 21 waits
    mutex.suelta();
    EXPECT_TRUE(espera_buzon(1));
    EXPECT_TRUE(bytes_iguales({1, 0, 0, 0, 200, 0, 0, 0, 7, 0, 0, 0, 105, 0, 0, 0}, m_canal->bytes(2362, 16)));
    EXPECT_TRUE(espera_hasta([&] { return mutex_en(prestado(0), 42)->codigos_bloqueo[0] == 22; }, 5000));

    m_canal->pon_u32(2362, 2);
    EXPECT_FALSE(notifica.acaba(250)); // taken is not yet processed
    m_canal->pon_u32(2362, 3);
    EXPECT_TRUE(notifica.acaba(5000));
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(16), m_canal->bytes(2362, 16)));
    EXPECT_EQ(mutex_en(prestado(0), 42)->nivel_bloqueo, 0);
}

TEST_F(iv_reg_notifica, espera_a_que_el_buzon_este_libre)
{
    prepara_servidor();
    m_canal->pon_u32(2362, 3);
    m_canal->pon_u32(2366, 44);
    hilo notifica([&] { ivrexa_notifica_a_cliente(m_servicio, 200, 7, 105); });
    EXPECT_FALSE(notifica.acaba(250));
    EXPECT_EQ(m_canal->u32(2366), 44u);
    m_canal->pon_u32(2362, 0);
    EXPECT_TRUE(espera_buzon(1));
    EXPECT_EQ(m_canal->u32(2366), 200u);
    m_canal->pon_u32(2362, 3);
    EXPECT_TRUE(notifica.acaba(5000));
}

TEST_F(iv_reg_notifica, fin_del_servidor_acaba_las_dos_esperas)
{
    prepara_servidor();
    m_canal->pon_u32(2362, 3);
    {
        hilo notifica([&] { ivrexa_notifica_a_cliente(m_servicio, 200, 7, 105); });
        EXPECT_FALSE(notifica.acaba(150));
        m_canal->pon_u16(28, 1);
        EXPECT_TRUE(notifica.acaba(5000));
    }
    EXPECT_EQ(m_canal->u32(2362), 3u);
    m_canal->pon_u16(28, 0);
    m_canal->pon_u32(2362, 0);
    {
        hilo notifica([&] { ivrexa_notifica_a_cliente(m_servicio, 200, 7, 105); });
        EXPECT_TRUE(espera_buzon(1));
        m_canal->pon_u16(28, 1);
        EXPECT_TRUE(notifica.acaba(5000));
    }
    EXPECT_EQ(m_canal->u32(2362), 1u); // left as it was written
    EXPECT_TRUE(mutex_crudo(interno(m_servicio).c_str()).libre());
}

TEST_F(iv_reg_notifica, sin_programa_o_de_otro_servicio_vuelve_sin_nada)
{
    ivrexa_notifica_a_cliente("Calc", 200, 7, 105);
    ivrexa_registra_servidor("C:\\p.exe", ventana(), "Nuevo", 1, nullptr, funcion_comando);
    ivrexa_notifica_a_cliente("Nuevo", 200, 7, 105); // not published: there is nobody to wait for
    cierra();
    prepara_servidor();
    ivrexa_notifica_a_cliente("otro", 200, 7, 105);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(16), m_canal->bytes(2362, 16)));
}
