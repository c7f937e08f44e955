// The order of what the module does: each operation as the list of its calls, with the locks that are held
// meanwhile.
#include "iv_reg_pasos.h"

namespace {

struct iv_reg_orden : con_sesion {
    std::string m_a = nombre_unico("A"), m_b = nombre_unico("B");
    std::string m_interno_a = "Mutex_Ivrexa_" + m_a + "Interno";
    std::string m_interno_b = "Mutex_Ivrexa_" + m_b + "Interno";
    std::unique_ptr<pasos> m_pasos;

    // Listens from here on: S and I are the mutexes of the service A, S2 and I2 those of B, R the registry's.
    pasos &escucha()
    {
        m_pasos = std::make_unique<pasos>();
        m_pasos->llama(m_interno_a, "I");
        m_pasos->llama(m_interno_b, "I2");
        m_pasos->llama("Mutex_Ivrexa_" + m_a, "S");
        m_pasos->llama("Mutex_Ivrexa_" + m_b, "S2");
        m_pasos->llama("Ivrexa_Mutex_MCB", "R");
        m_pasos->llama(nombre_canal(m_a), "channel A");
        m_pasos->llama(nombre_canal(m_b), "channel B");
        m_pasos->llama("Ivrexa_MSG_Serv_" + m_a, "A");
        m_pasos->llama("Ivrexa_MSG_Serv_" + m_b, "B");
        return *m_pasos;
    }

    void TearDown() override
    {
        m_pasos.reset();
        con_sesion::TearDown();
    }

    // What was done since the last question. The close ends a heartbeat that sleeps, and not one that woke up
    // and left meanwhile: that is the machine's affair.
    lista_pasos dados()
    {
        lista_pasos lista = m_pasos->propios();
        m_pasos->borra();
        lista.erase(std::remove(lista.begin(), lista.end(), "kill heartbeat 0"), lista.end());
        return lista;
    }

    bool espera_paso(uint32_t hilo, const std::string &paso)
    {
        return espera_hasta(
            [&] {
                lista_pasos lista = m_pasos->de_hilo(hilo);
                return std::find(lista.begin(), lista.end(), paso) != lista.end();
            },
            5000);
    }

    // The ends of its threads are no part of what the close does then.
    void acaba_hilos()
    {
        termina_canales();
        for (uint32_t i = 0; i < s_programa->num_servicios_prestados; i++)
            if (HANDLE h = prestado(i).puntero(66))
                EXPECT_EQ(WaitForSingleObject(h, 5000), WAIT_OBJECT_0);
        for (uint32_t i = 0; i < s_programa->num_servicios_solicitados; i++)
            EXPECT_EQ(WaitForSingleObject(solicitado(i).puntero(44), 5000), WAIT_OBJECT_0);
        m_pasos->borra();
    }
};

lista_pasos junta(std::initializer_list<lista_pasos> listas)
{
    lista_pasos todas;
    for (const lista_pasos &lista : listas)
        todas.insert(todas.end(), lista.begin(), lista.end());
    return todas;
}

} // namespace

// ---- Registration

TEST_F(iv_reg_orden, servidor_sin_ventana)
{
    escucha();
    ivrexa_registra_servidor("C:\\p.exe", nullptr, m_a.c_str(), 1, nullptr, funcion_comando);
    EXPECT_EQ(dados(), (lista_pasos{"block Ivrexa_MCB 8890", "mutex R", "+R", "-R 7", "thread heartbeat"}));
    ivrexa_anyade_servicio(m_b.c_str(), 1, nullptr, funcion_comando);
    EXPECT_EQ(dados(), lista_pasos{});

    // Each service's objects and its place in the registry, one service after the other; only then each is
    // made ready, told of, and its thread let go.
    ivrexa_terminado_registro();
    EXPECT_EQ(dados(), (lista_pasos{"mutex S",
                                    "mutex I",
                                    "+S",
                                    "block channel A 2382",
                                    "-S 23",
                                    "thread service 0 suspended",
                                    "+R",
                                    "-R 9",
                                    "mutex S2",
                                    "mutex I2",
                                    "+S2",
                                    "block channel B 2382",
                                    "-S2 23",
                                    "thread service 1 suspended",
                                    "+R",
                                    "-R 9",
                                    "+S",
                                    "-S 24",
                                    "+R",
                                    "-R 5",
                                    "resume service 0",
                                    "+S2",
                                    "-S2 24",
                                    "+R",
                                    "-R 5",
                                    "resume service 1"}));
}

TEST_F(iv_reg_orden, servidor_con_ventana)
{
    HWND hwnd = ventana();
    bloque_crudo mcb = abre_registro();
    escucha();
    ivrexa_registra_servidor("C:\\p.exe", hwnd, m_a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(m_b.c_str(), 1, nullptr, funcion_comando);
    dados();
    pon_monitor(&mcb, 1, 50000);
    ivrexa_terminado_registro();
    EXPECT_EQ(dados(), (lista_pasos{"message A",
                                    "mutex S",
                                    "mutex I",
                                    "+S",
                                    "block channel A 2382",
                                    "-S 23",
                                    "+R",
                                    "-R 9",
                                    "message B",
                                    "mutex S2",
                                    "mutex I2",
                                    "+S2",
                                    "block channel B 2382",
                                    "-S2 23",
                                    "+R",
                                    "-R 9",
                                    "subclass -4",
                                    "+S",
                                    "-S 24",
                                    "+R",
                                    "-R 5",
                                    "post 50000 0 1",
                                    "+S2",
                                    "-S2 24",
                                    "+R",
                                    "-R 5",
                                    "post 50000 0 2"}));
    pon_monitor(&mcb, 0, 0);
}

TEST_F(iv_reg_orden, servidor_net)
{
    HWND hwnd = ventana();
    escucha();
    ivrexa_registra_servidor_net("C:\\p.exe", hwnd, m_a.c_str(), 1);
    dados();
    ivrexa_terminado_registro();
    EXPECT_EQ(dados(), (lista_pasos{"message A", "mutex S", "mutex I", "+S", "block channel A 2382", "-S 23", "+R",
                                    "-R 9", "+S", "-S 24", "+R", "-R 5"}));
}

// A server makes the mutexes of its service anew, a client takes them as they are.
TEST_F(iv_reg_orden, mutexes_que_existen_los_recrea_el_servidor_y_no_el_cliente)
{
    for (const std::string &servicio : {m_a, m_b})
        bloque_crudo(nombre_canal(servicio).c_str(), 2378);
    mutex_crudo s(("Mutex_Ivrexa_" + m_a).c_str(), mutex_crudo::modo::crea);
    mutex_crudo i(m_interno_a.c_str(), mutex_crudo::modo::crea);
    mutex_crudo i2(m_interno_b.c_str(), mutex_crudo::modo::crea);
    escucha();
    ivrexa_registra_servidor("C:\\p.exe", nullptr, m_a.c_str(), 1, nullptr, funcion_comando);
    dados();
    ivrexa_terminado_registro();
    lista_pasos lista = dados();
    ASSERT_GE(lista.size(), 6u);
    lista.resize(6);
    EXPECT_EQ(lista, (lista_pasos{"mutex S", "close S", "mutex S", "mutex I", "close I", "mutex I"}));

    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, m_b.c_str());
    EXPECT_EQ(dados(),
              (lista_pasos{"+R", "-R 8", "message B", "mutex I2", "block channel B 2382", "thread notifications 0"}));
}

TEST_F(iv_reg_orden, cliente_con_ventana)
{
    HWND hwnd = ventana();
    escucha();
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", hwnd, m_a.c_str());
    EXPECT_EQ(dados(),
              (lista_pasos{"block Ivrexa_MCB 8890", "mutex R", "+R", "-R 7", "thread heartbeat", "subclass -4", "+R",
                           "-R 8", "message A", "mutex I", "block channel A 2382", "thread notifications 0"}));
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", hwnd, m_b.c_str());
    EXPECT_EQ(dados(),
              (lista_pasos{"+R", "-R 8", "message B", "mutex I2", "block channel B 2382", "thread notifications 1"}));
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", hwnd, m_b.c_str());
    EXPECT_EQ(dados(), lista_pasos{}); // one that it uses already
}

// ---- Close

// Who ends a thread takes the registry's mutex bare meanwhile; a heartbeat that woke in its grace has left by itself.
static lista_pasos sin_el_final_del_latido(lista_pasos pasos)
{
    if (pasos.size() > 4 && pasos[2] == "+R" && pasos[4] == "close heartbeat")
        pasos.erase(pasos.begin() + 2, pasos.begin() + 4);
    return pasos;
}

TEST_F(iv_reg_orden, cierre_de_un_servidor_sin_ventana)
{
    bloque_crudo mcb = abre_registro();
    escucha();
    ivrexa_registra_servidor("C:\\p.exe", nullptr, m_a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, m_b.c_str());
    acaba_hilos();
    pon_monitor(&mcb, 1, 50000);
    iv_reg_cierra_sesion();

    // The heartbeat; the program's entry, and the registry with the last program; each service marked, told
    // of (which opens the registry again) and stopped; each notification thread; then all that is held.
    EXPECT_EQ(sin_el_final_del_latido(dados()), (lista_pasos{"code heartbeat",
                                                             "sleep 500",
                                                             "close heartbeat",
                                                             "+R",
                                                             "-R 15",
                                                             "+R",
                                                             "-R 1",
                                                             "close R",
                                                             "close block Ivrexa_MCB",
                                                             "+S",
                                                             "-S 25",
                                                             "block Ivrexa_MCB 8890",
                                                             "mutex R",
                                                             "+R",
                                                             "-R 5",
                                                             "post 50000 0 1",
                                                             "code service 0",
                                                             "close service 0",
                                                             "code notifications 0",
                                                             "close notifications 0",
                                                             "close I",
                                                             "close S",
                                                             "close block channel A",
                                                             "close I2",
                                                             "close block channel B"}));
}

TEST_F(iv_reg_orden, cierre_de_un_programa_con_ventana_entre_otros)
{
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_programa(9, 0), "another program");
    HWND hwnd = ventana();
    escucha();
    ivrexa_registra_servidor("C:\\p.exe", hwnd, m_a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", hwnd, m_b.c_str());
    acaba_hilos();
    iv_reg_cierra_sesion();

    // The registry stays open: another program is in it.
    EXPECT_EQ(sin_el_final_del_latido(dados()),
              (lista_pasos{"code heartbeat", "sleep 500", "close heartbeat", "+R", "-R 15", "+R", "-R 1", "+S", "-S 25",
                           "+R", "-R 5", "code notifications 0", "close notifications 0", "subclass -4", "close I",
                           "close S", "close block channel A", "close I2", "close block channel B"}));
}

// ---- Commands

TEST_F(iv_reg_orden, comando_en_la_ventana)
{
    sirve(m_a.c_str(), ventana());
    UINT msg = ivrexa_dame_id_MSG_servicio(m_a.c_str());
    bloque_crudo canal = abre_canal(m_a), datos = crea_datos(m_a, 100);
    escribe_orden(&canal, {100, 100, 0, {}});
    escucha();
    s_trabajo = [&](uint32_t, comando *) { return Sleep(100), 1; };
    SendMessageW(ventana(), msg, 100, 100);
    // The input is opened (the registry is asked for a monitor), the function sleeps, and the input is destroyed.
    EXPECT_EQ(dados(), (lista_pasos{"+S", "+R", "-R 4", "block channel A_Com__comdat100 4", "-S 35", "sleep 100",
                                    "close block channel A_Com__comdat100"}));
}

TEST_F(iv_reg_orden, comando_con_salida_de_antes_la_destruye_bajo_el_sitio_35)
{
    sirve(m_a.c_str(), ventana());
    UINT msg = ivrexa_dame_id_MSG_servicio(m_a.c_str());
    escucha();
    s_trabajo = [&](uint32_t, comando *contexto) { return pon_salida(m_a, contexto) == 100 ? 1 : 3; };
    SendMessageW(ventana(), msg, 100, 0);
    dados();
    s_trabajo = [&](uint32_t, comando *) { return Sleep(100), 1; };
    SendMessageW(ventana(), msg, 100, 0);
    EXPECT_EQ(dados(), (lista_pasos{"+S", "close block channel A_Com__comdat100", "-S 35", "sleep 100"}));
}

TEST_F(iv_reg_orden, guardar_datos)
{
    sirve(m_a.c_str(), ventana());
    bloque_crudo mcb = abre_registro();
    pon_monitor(&mcb, 1, 50000);
    comdat *datos = ivrexa_crea_datos_comando_entrada(m_a.c_str());
    escucha();
    iv_reg_guarda_datos(datos);
    // The mutex is opened as it is, and closed before the monitor is told; the channel is released last.
    EXPECT_EQ(dados(), (lista_pasos{"mutex S", "+S", "block channel A 2382", "block channel A_Com__comdat100 8",
                                    "-S 34", "close S", "+R", "-R 5", "post 50000 0 1", "close block channel A"}));
    ivrexa_destruye_datos_comando(datos);
    pon_monitor(&mcb, 0, 0);
}

TEST_F(iv_reg_orden, hilo_de_un_servicio)
{
    bloque_crudo canal = abre_canal(m_a);
    escucha();
    ivrexa_registra_servidor("C:\\p.exe", nullptr, m_a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    uint32_t id_hilo = prestado(0).u32(74);
    HANDLE h = prestado(0).puntero(66);
    EXPECT_TRUE(espera_paso(id_hilo, "-S 29"));
    escribe_orden(&canal, {});
    EXPECT_TRUE(espera_paso(id_hilo, "-S 30"));
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(4) == 3; }, 5000));
    EXPECT_TRUE(acusa_recibo(&canal));
    canal.pon_u16(28, 1);
    EXPECT_EQ(WaitForSingleObject(h, 5000), WAIT_OBJECT_0);

    // Rounds: for a command with the mutex held, for the receipt without it.
    lista_pasos espera_orden = {"+S", "sleep 100", "+R", "-R 13", "-S 29"};
    lista_pasos espera_recibo = {"+S", "-S 30", "sleep 100", "+R", "-R 13"};
    lista_pasos lista = sin_repetir(sin_repetir(m_pasos->de_hilo(id_hilo), espera_orden), espera_recibo);
    lista_pasos sirve_una = junta(
        {{"+S", "-S 28"}, espera_orden, {"+S", "+S", "-S 35", "-S 29"}, espera_recibo, {"+S", "-S 30", "+S", "-S 31"}});
    lista_pasos acaba = {"+S", "-S 32"};
    // The flag may have come before the thread looked again.
    lista_pasos otra = junta({sirve_una, {"+S", "-S 28"}, espera_orden, acaba});
    EXPECT_TRUE(lista == otra || lista == junta({sirve_una, acaba})) << ::testing::PrintToString(lista);
}

// ---- Notifications

TEST_F(iv_reg_orden, notificar)
{
    sirve(m_a.c_str(), ventana());
    bloque_crudo canal = abre_canal(m_a);
    canal.pon_u32(2362, 3);
    escucha();
    hilo cliente([this, &canal, yo = GetCurrentThreadId()] {
        EXPECT_TRUE(espera_paso(yo, "-I 21"));
        canal.pon_u32(2362, 0);
        EXPECT_TRUE(espera_paso(yo, "-I 22"));
        canal.pon_u32(2362, 3);
    });
    ivrexa_notifica_a_cliente(m_a.c_str(), 200, 7, 105);
    lista_pasos lista = sin_repetir(dados(), {"+I", "-I 21", "sleep 100"});
    EXPECT_EQ(sin_repetir(lista, {"+I", "-I 22", "sleep 100"}),
              (lista_pasos{"+I", "-I 21", "sleep 100", "+I", "-I 21", "+I", "-I 22", "sleep 100", "+I", "-I 22"}));
}

TEST_F(iv_reg_orden, hilo_de_notificaciones)
{
    HWND hwnd = ventana();
    bloque_crudo canal = abre_canal(m_a);
    escucha();
    ivrexa_registra_cliente_notificaciones_servicio("C:\\p.exe", hwnd, m_a.c_str(),
                                                    [](const char *servicio, uint32_t id_cliente, uint32_t dato) {
                                                        funcion_aviso(servicio, id_cliente, dato);
                                                        Sleep(100); // the function, as the list shows it
                                                    });
    ivrexa_abierto_documento_de_cliente(m_a.c_str(), L"x", 1);
    UINT msg = ivrexa_dame_id_MSG_servicio(m_a.c_str());
    uint32_t id_hilo = solicitado(0).u32(52);
    EXPECT_TRUE(espera_hasta([&] { return !m_pasos->de_hilo(id_hilo).empty(); }, 5000));
    canal.pon_u32(2366, 200);
    canal.pon_u32(2370, 0xFEDCBA98);
    canal.pon_u32(2362, 1);
    EXPECT_TRUE(espera_hasta([] { return num_avisos() == 1; }, 5000));
    EXPECT_TRUE(espera_hasta([&] { return m_pasos->de_hilo(id_hilo).back() == "sleep 500"; }, 5000));
    canal.pon_u32(2362, 3);
    EXPECT_TRUE(espera_hasta([&] { return mutex_en(solicitado(0), 28)->nivel_bloqueo == 0; }, 5000));
    HANDLE h = solicitado(0).puntero(44);
    canal.pon_u16(28, 1);
    EXPECT_EQ(WaitForSingleObject(h, 5000), WAIT_OBJECT_0);

    lista_pasos mirada = {"+I", "-I 33", "sleep 500"};
    std::string aviso = "post " + std::to_string(msg) + " 200 4275878552";
    lista_pasos lista = sin_repetir(sin_repetir(m_pasos->de_hilo(id_hilo), mirada), {"sleep 500"});
    lista_pasos toma = {"+I", "sleep 100", aviso, "sleep 500", "-I 33", "sleep 500", "+I", "-I 33"};
    EXPECT_EQ(lista, junta({mirada, toma}));
}

// ---- The end

TEST_F(iv_reg_orden, orden_1_en_la_ventana)
{
    sirve(m_a.c_str(), ventana());
    UINT msg = ivrexa_dame_id_MSG_servicio(m_a.c_str());
    escucha();
    (*m_pasos)->PostQuitMessage = [](int) {};
    SendMessageW(ventana(), msg, 1, 0);
    EXPECT_EQ(dados(), (lista_pasos{"+S", "-S 27"}));
    SendMessageW(ventana(), msg, 2, 0);
    EXPECT_EQ(dados(), lista_pasos{});
}

TEST_F(iv_reg_orden, esperar_duerme_400_ms_por_vuelta)
{
    sirve(m_a.c_str(), ventana());
    prestado(0).pon<uint32_t>(78, 2);
    escucha();
    hilo acaba([this, yo = GetCurrentThreadId()] {
        EXPECT_TRUE(espera_paso(yo, "sleep 400"));
        prestado(0).pon<uint32_t>(78, 0);
    });
    ivrexa_espera_comando_terminar_servidor();
    EXPECT_EQ(sin_repetir(dados(), {"sleep 400"}), (lista_pasos{"sleep 400"}));
}
