// The end of a session of a program that is everything at once. What it leaves, what others see, that it can come back
// as everything, and what happens at odd moments.
#include "comun/hilo.h"
#include "comun/hilos_de.h"
#include "comun/manejadores.h"

#include "dll_cierre.h"

class cierre_de_todo : public todo, public ::testing::WithParamInterface<forma> {
protected:
    std::vector<bloque_crudo> abre_canales() const
    {
        std::vector<bloque_crudo> canales;
        for (uint32_t i = 0; i < GetParam().num_servicios; i++)
            canales.emplace_back(nombre_canal(m_servicios[i]).c_str());
        return canales;
    }

    // The last records: each service withdrawn, in order.
    void comprueba_actividades(const bloque_crudo &registro, uint32_t primera) const
    {
        for (uint32_t i = 0; i < GetParam().num_servicios; i++) {
            size_t despl = 22 + (primera - 1 + i) * 22;
            EXPECT_EQ(5814 + 96 * registro.u32(despl), m_despl[i]);
            EXPECT_TRUE(
                bytes_iguales({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, registro.bytes(despl + 4, 18)));
        }
        EXPECT_EQ(registro.u32(18), primera + GetParam().num_servicios);
    }

    void comprueba_registro(const bloque_crudo &registro, size_t entrada) const
    {
        EXPECT_EQ(registro.texto(entrada, 256), "");
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(18), registro.bytes(entrada + 256, 18)));
        for (uint32_t i = 0; i < GetParam().num_servicios; i++)
            EXPECT_EQ(despl_servicio(registro, m_servicios[i]), 0u) << i;
        EXPECT_NE(despl_servicio(registro, m_ajeno), 0u) << "others' services stay";
        EXPECT_NE(despl_servicio(registro, m_usado), 0u) << "nobody ever withdraws it";
        EXPECT_EQ(registro.u64(6), reinterpret_cast<uint64_t>(m_ventana_monitor)) << "the monitor stays";
    }

    size_t m_despl[16] = {};
};
INSTANTIATE_TEST_SUITE_P(cierre, cierre_de_todo, ::testing::ValuesIn(FORMAS),
                         [](const auto &dato) { return std::string(dato.param.nombre); });

TEST_P(cierre_de_todo, no_deja_rastro_de_lo_suyo_ni_toca_lo_ajeno)
{
    const forma f = GetParam();
    const LONG_PTR propia = proc_de(m_ventana);
    const bool habia_mutex = existe_mutex("Ivrexa_Mutex_MCB"); // monitors of earlier tests leave theirs open
    registra_todo(f);
    usa_todo(f);
    EXPECT_EQ(proc_de(m_ventana) == propia, !f.con_ventana);
    std::vector<bloque_crudo> canales = abre_canales();
    bloque_crudo registro("Ivrexa_MCB");
    size_t entrada = despl_programa(registro, m_ruta);
    ASSERT_NE(entrada, 0u);
    EXPECT_TRUE(bytes_iguales({1, 0, 1, 0, 0, 0}, registro.bytes(entrada + 264, 6))) << "server and client";
    for (uint32_t i = 0; i < f.num_servicios; i++)
        m_despl[i] = despl_servicio(registro, m_servicios[i]);
    EXPECT_EQ(s_rondas > 0, !f.con_ventana || f.clase_socio == std::string("sin_ventana"))
        << "the monitor is told of those that poll";
    uint32_t siguiente = registro.u32(18);
    ASSERT_LT(siguiente + f.num_servicios, 64u) << "the ring would begin anew";
    std::vector<uint8_t> antes_del_canal = canales[0].bytes(16, 12);

    ivrexa_cierra_sesion();
    EXPECT_SIN_INFORMES();
    comprueba_registro(registro, entrada);
    comprueba_actividades(registro, siguiente);
    for (bloque_crudo &canal : canales) {
        EXPECT_EQ(canal.u16(28), 1u);
        EXPECT_EQ(canal.u32(30), 0u);
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(16), canal.bytes(2362, 16))) << "mailbox";
    }
    EXPECT_TRUE(bytes_iguales(antes_del_canal, canales[0].bytes(16, 12))) << "window and message stay written";
    EXPECT_EQ(proc_de(m_ventana), propia);
    EXPECT_NE(proc_de(m_ventana_monitor), propia) << "the monitor stays";

    // Stored output goes with the service; what the host has stored and did not destroy stays.
    EXPECT_FALSE(existe_bloque(nombre_datos(m_servicios[0], m_id_salida).c_str()));
    EXPECT_TRUE(existe_bloque(nombre_datos(m_ajeno, 100).c_str()));
    for (uint32_t i = 1; i < f.num_servicios; i++)
        for (const char *cola : {"", "Interno"})
            EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + m_servicios[i] + cola).c_str())) << i << cola;
    EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + m_usado + "Interno").c_str()));
    EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + m_servicios[0]).c_str()));

    for (const std::string &mutex :
         {std::string("Ivrexa_Mutex_MCB"), std::string("ivrexa_iv_mem"), "Mutex_Ivrexa_" + m_ajeno + "Interno",
          "Mutex_Ivrexa_" + m_servicios[0] + "Interno"}) {
        mutex_crudo sigue_en_uso(mutex.c_str()); // others use it, and nobody was ended inside it
        EXPECT_TRUE(espera_hasta([&] { return sigue_en_uso.libre(); }, 5000)) << mutex;
    }

    // What the partner, a client, sees: the window is there and answers for itself.
    EXPECT_EQ(pide("HAY " + m_servicios[0], "HAY "), "HAY 0");
    uint32_t propias = s_num_propias;
    EXPECT_EQ(pide("MANDA " + m_servicios[0] + " 101", "RESULTADO "),
              f.con_ventana ? "RESULTADO 77|2863311530|" : "RESULTADO 3|2863311530|");
    EXPECT_EQ(s_num_propias, propias + (f.con_ventana ? 1 : 0));
    acaba(*m_socio);
    for (const std::string &mutex :
         {"Mutex_Ivrexa_" + m_servicios[0] + "Interno", "Mutex_Ivrexa_" + m_ajeno + "Interno",
          "Mutex_Ivrexa_" + m_ajeno, std::string("ivrexa_iv_mem")})
        EXPECT_FALSE(existe_mutex(mutex.c_str())) << mutex;
    EXPECT_EQ(existe_mutex("Ivrexa_Mutex_MCB"), habia_mutex);
    EXPECT_SIN_INFORMES();
}

// ---- Coming back as everything

class vuelta_de_todo : public todo {
protected:
    void da_una_vuelta(const forma &f, uint32_t vez)
    {
        SCOPED_TRACE(std::to_string(vez) + ": " + f.nombre);
        s_actividades.clear();
        registra_todo(f);
        bloque_crudo registro("Ivrexa_MCB");
        size_t entrada = despl_programa(registro, m_ruta);
        EXPECT_EQ(entrada, m_entrada_de_antes == 0 ? entrada : m_entrada_de_antes) << "the first free entry";
        m_entrada_de_antes = entrada;
        // The monitor opens the registry, and what comes after finds it open; the partner opens its own.
        EXPECT_EQ(registro.u16(4), m_num_registros + 2);
        m_num_registros = registro.u16(4);
        EXPECT_EQ(registro.u64(entrada + 256), reinterpret_cast<uint64_t>(f.con_ventana ? m_ventana : nullptr));
        usa_todo(f);
        bloque_crudo canal(nombre_canal(m_servicios[0]).c_str());
        EXPECT_EQ(canal.u64(16), reinterpret_cast<uint64_t>(f.con_ventana ? m_ventana : nullptr));
        EXPECT_EQ(canal.u32(24) != 0, f.con_ventana);
        EXPECT_EQ(m_id_salida, m_siguiente_id) << "the numbers go on while somebody holds the channel";
        m_siguiente_id = m_id_salida + 1;
        m_canales.push_back(std::move(canal));

        ivrexa_cierra_sesion();
        EXPECT_EQ(despl_programa(registro, m_ruta), 0u);
        acaba(*m_socio);
        ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(registro.u64(6), 0u);
        EXPECT_SIN_INFORMES();
    }

    // The first time, the window system and the run-time make what they keep.
    void comprueba_manejadores_e_hilos(const forma &f)
    {
        manejadores antes;
        std::set<DWORD> hilos;
        uint32_t bloques[3] = {};
        for (uint32_t vez = 0; vez < 3; vez++) {
            da_una_vuelta(f, vez);
            m_socio.reset();
            manejadores despues = cuenta_por_tipo();
            bloques[vez] = despues.bloques - antes.bloques;
            if (vez > 0) {
                EXPECT_EQ(despues.mutexes, antes.mutexes);
                EXPECT_EQ(despues.hilos, antes.hilos);
                EXPECT_TRUE(espera_hasta([&] { return hilos_de(GetCurrentProcessId()) == hilos; }, 5000));
            }
            antes = despues;
            hilos = hilos_de(GetCurrentProcessId());
        }
        // Blocks that others made before leave a handle each time they are opened; no more of them each session.
        EXPECT_EQ(bloques[2], bloques[1]);
    }

    size_t m_entrada_de_antes = 0;
    uint16_t m_num_registros = 0;
    uint32_t m_siguiente_id = 100;
    std::vector<bloque_crudo> m_canales; // held, as another program would
    bloque_crudo m_registro{"Ivrexa_MCB", 8886};
};

TEST_F(vuelta_de_todo, con_ventana_sin_ella_y_otra_vez_con_ella)
{
    const uint32_t orden[] = {0, 1, 0};
    for (uint32_t vez = 0; vez < 3; vez++)
        da_una_vuelta(FORMAS[orden[vez]], vez);
}

TEST_F(vuelta_de_todo, sin_ventana_con_ella_y_otra_vez_sin_ella)
{
    const uint32_t orden[] = {3, 0, 1};
    for (uint32_t vez = 0; vez < 3; vez++)
        da_una_vuelta(FORMAS[orden[vez]], vez);
}

TEST_F(vuelta_de_todo, ni_hilos_ni_mutexes_quedan_y_los_bloques_no_van_a_mas)
{
    comprueba_manejadores_e_hilos(FORMAS[1]);
}

// A monitor that stays over the close is the monitor of the next session too.
TEST_F(todo, monitor_que_no_se_quito_sigue_siendolo_en_la_sesion_siguiente)
{
    registra_todo(FORMAS[0]);
    ivrexa_cierra_sesion();
    bombea_hasta([] { return false; }, 50); // what was posted finds no registry
    s_actividades.clear();
    registra_servidor(FORMAS[0]);
    ivrexa_terminado_registro();
    EXPECT_EQ(bombea_hasta([] { return !s_actividades.empty(); }, 5000), bombeo::cumplido);
    EXPECT_EQ(s_actividades.front(), "0 1 1 0");
    registra_monitor();
    EXPECT_INFORME("iv_mcbase", "s_programa_monitor == NULL");
    ivrexa_cierra_sesion();
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(bloque_crudo("Ivrexa_MCB").u64(6), 0u) << "unregistered after the close";
    EXPECT_EQ(proc_de(m_ventana_monitor), reinterpret_cast<LONG_PTR>(proc_propia));
    EXPECT_SIN_INFORMES();
}

// ---- One window for monitor and server: each puts back the procedure that it found

// In a process of its own: a procedure that called itself would end it.
PAPEL(una_ventana_para_todo)
{
    s_hilo_principal = GetCurrentThreadId();
    HWND hwnd = crea_ventana(proc_propia);
    yo.di("LISTO");
    while (std::optional<std::string> paso = yo.escucha(60000)) {
        if (*paso == "monitor")
            ivrexa_registra_monitor(hwnd, apunta_actividad, apunta_ronda, apunta_ronda, &s_actividades);
        else if (*paso == "quita")
            ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        else if (*paso == "servidor") {
            ivrexa_registra_servidor("una_ventana", hwnd, args[0].c_str(), 1, nullptr, procesa);
            ivrexa_terminado_registro();
        } else if (*paso == "cierra")
            ivrexa_cierra_sesion();
        else
            return 0;
        bool propia = GetWindowLongPtrW(hwnd, GWLP_WNDPROC) == reinterpret_cast<LONG_PTR>(proc_propia);
        yo.di("PROC " + std::to_string(SendMessageW(hwnd, WM_USER, 0, 0)) + (propia ? " propia" : " otra"));
    }
    return 0;
}

// Each step, and what a message to the window and its procedure are after it; twice over.
struct paso_ventana {
    const char *paso, *despues;
};

static void da_dos_veces(const std::vector<paso_ventana> &pasos)
{
    papel p = arranca_papel("una_ventana_para_todo", {nombre_unico("serv")});
    for (int vez = 0; vez < 2; vez++)
        for (const paso_ventana &paso : pasos) {
            p.di(paso.paso);
            std::string despues = p.busca_linea("PROC ", 5000).value_or("no answer");
            EXPECT_EQ(despues.substr(0, strlen(paso.despues)), paso.despues) << paso.paso << ", time " << vez;
            if (despues == "no answer")
                return p.mata();
        }
    p.di("fin");
    EXPECT_EQ(p.espera_fin(10000), 0u);
}

TEST(una_ventana, monitor_y_servidor_quitados_en_orden_inverso_devuelven_la_propia)
{
    da_dos_veces({{"monitor", "PROC 55 otra"},
                  {"servidor", "PROC 55 otra"},
                  {"cierra", "PROC 55 otra"},
                  {"quita", "PROC 55 propia"}});
}

TEST(una_ventana, servidor_y_monitor_quitados_en_orden_inverso_devuelven_la_propia)
{
    da_dos_veces({{"servidor", "PROC 55 otra"},
                  {"monitor", "PROC 55 otra"},
                  {"quita", "PROC 55 otra"},
                  {"cierra", "PROC 55 propia"}});
}

// The close gives the window its own procedure back, also where the monitor that it found there has gone meanwhile.
TEST(una_ventana, monitor_que_se_quita_antes_del_cierre_no_vuelve_con_el)
{
    da_dos_veces({{"monitor", "PROC 55 otra"},
                  {"servidor", "PROC 55 otra"},
                  {"quita", "PROC 55 propia"},
                  {"cierra", "PROC 55 propia"}});
}

// What the monitor puts back is the procedure of a session that is over: the window still answers, and can be
// registered anew.
TEST(una_ventana, cierre_antes_de_quitar_el_monitor_deja_registrarse_otra_vez)
{
    da_dos_veces({{"servidor", "PROC 55"}, {"monitor", "PROC 55"}, {"cierra", "PROC 55 propia"}, {"quita", "PROC 55"}});
}

// Under the program's procedure lay the monitor's, and that is another window's by now.
TEST_F(todo, monitor_que_se_muda_de_la_ventana_del_programa_no_deja_en_ella_su_procedimiento)
{
    ivrexa_registra_monitor(m_ventana, apunta_actividad, apunta_ronda, apunta_ronda, &s_actividades);
    registra_servidor(FORMAS[0]);
    ivrexa_terminado_registro();
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(proc_de(m_ventana), reinterpret_cast<LONG_PTR>(proc_propia));
    registra_monitor();
    ivrexa_cierra_sesion();
    EXPECT_EQ(proc_de(m_ventana), reinterpret_cast<LONG_PTR>(proc_propia));
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(proc_de(m_ventana_monitor), reinterpret_cast<LONG_PTR>(proc_propia));
    EXPECT_SIN_INFORMES();
}

// The header asks for this order. The monitor forgets the registry as it goes, and the program's entry is still there.
TEST_F(todo, monitor_quitado_antes_del_cierre_no_deja_la_entrada_del_programa)
{
    registra_todo(FORMAS[0]);
    bloque_crudo registro("Ivrexa_MCB");
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(registro.u64(6), 0u);
    EXPECT_NE(despl_programa(registro, m_ruta), 0u);
    ivrexa_cierra_sesion();
    EXPECT_EQ(despl_programa(registro, m_ruta), 0u);
    EXPECT_EQ(despl_servicio(registro, m_servicios[0]), 0u);
    EXPECT_SIN_INFORMES();
    acaba(*m_socio);
}

// ---- At odd moments

TEST_F(todo, antes_de_publicar_informa_de_cada_servicio_y_no_deja_nada)
{
    registra_monitor();
    arranca_socio("ventana");
    registra_servidor({"", true, 3, ""});
    registra_cliente();
    ivrexa_cierra_sesion();
    for (int i = 0; i < 3; i++)
        EXPECT_INFORME("iv_mutex", "iv_mutex != NULL"); // what the service would be closed under
    for (int i = 0; i < 3; i++)
        EXPECT_INFORME("iv_mem", "*ptr != 0"); // the channel's name
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(despl_programa(bloque_crudo("Ivrexa_MCB"), m_ruta), 0u);
    EXPECT_FALSE(existe_bloque(nombre_canal(m_servicios[0]).c_str()));
    EXPECT_EQ(proc_de(m_ventana), reinterpret_cast<LONG_PTR>(proc_propia));
    acaba(*m_socio);
}

TEST_F(todo, segundo_cierre_no_hace_nada_ni_toca_a_los_demas)
{
    registra_todo(FORMAS[0]);
    usa_todo(FORMAS[0]);
    ivrexa_cierra_sesion();
    bloque_crudo registro("Ivrexa_MCB");
    std::vector<uint8_t> antes = registro.bytes(0, 1430);
    uint64_t ms = mas_breve_de_cinco([] {
        ivrexa_cierra_sesion();
        ivrexa_espera_comando_terminar_servidor();
        ivrexa_terminado_registro();
    });
    EXPECT_LT(ms, 400u) << "no thread is waited for";
    EXPECT_TRUE(bytes_iguales(antes, registro.bytes(0, 1430)));
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(pide("HAY " + m_ajeno, "HAY "), "HAY 1");
    acaba(*m_socio);
}

// The service's thread holds the channel's mutex while the function runs: the close waits for it there, with the
// program withdrawn already. The client then gets the result or learns that the server is gone, as it happens.
TEST_F(todo, cierre_espera_al_comando_en_marcha_de_un_servidor_sin_ventana)
{
    registra_todo(FORMAS[1]);
    usa_todo(FORMAS[1]);
    m_socio->di("MANDA " + m_servicios[0] + " 200");
    ASSERT_EQ(WaitForSingleObject(s_dentro, 20000), WAIT_OBJECT_0);
    bloque_crudo registro("Ivrexa_MCB"), canal(nombre_canal(m_servicios[0]).c_str());
    hilo espera_fin([] { ivrexa_espera_comando_terminar_servidor(); });
    hilo cierra([] { ivrexa_cierra_sesion(); });
    EXPECT_TRUE(espera_hasta([&] { return despl_programa(registro, m_ruta) == 0; }, 10000));
    EXPECT_FALSE(cierra.acaba(1500));
    EXPECT_EQ(canal.u16(28), 0u) << "not marked yet";
    EXPECT_NE(despl_servicio(registro, m_servicios[0]), 0u) << "nor withdrawn";
    SetEvent(s_sigue);
    EXPECT_TRUE(cierra.acaba(20000));
    EXPECT_TRUE(espera_fin.acaba(5000));
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(canal.u32(8), 1u) << "the function's result";
    std::string resultado = espera(*m_socio, "RESULTADO ");
    EXPECT_TRUE(resultado.compare(0, 12, "RESULTADO 1|") == 0 || resultado.compare(0, 12, "RESULTADO 3|") == 0);
    EXPECT_SIN_INFORMES();
    acaba(*m_socio);
}

// The heap's lock is every program's: whoever holds it holds the close up, and no longer than it lives.
TEST_F(todo, cierre_espera_a_quien_tiene_el_cerrojo_del_monton)
{
    for (bool muere : {false, true}) {
        SCOPED_TRACE(muere);
        registra_todo(FORMAS[0]);
        mutex_crudo monton("ivrexa_iv_mem");
        ASSERT_TRUE(monton.retiene(5000));
        {
            hilo cierra([] { ivrexa_cierra_sesion(); });
            EXPECT_FALSE(cierra.acaba(1500));
            muere ? monton.abandona() : monton.suelta();
            EXPECT_TRUE(cierra.acaba(20000));
        }
        EXPECT_EQ(despl_programa(bloque_crudo("Ivrexa_MCB"), m_ruta), 0u);
        EXPECT_EQ(proc_de(m_ventana), reinterpret_cast<LONG_PTR>(proc_propia));
        ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        acaba(*m_socio);
    }
    EXPECT_SIN_INFORMES();
}

// The server's call knows no time-out but its own end: the receipt may come from the client's next session.
TEST_F(todo, aviso_sin_acuse_sobrevive_al_cierre_del_cliente)
{
    registra_todo(FORMAS[0]);
    s_acusa = false;
    m_socio->di("AVISA 200 5");
    EXPECT_EQ(bombea_hasta([] { return s_avisos_hilo == 1; }, 10000), bombeo::cumplido);
    ivrexa_cierra_sesion();
    EXPECT_FALSE(m_socio->busca_linea("AVISADO", 700));
    bloque_crudo canal(nombre_canal(m_ajeno).c_str());
    EXPECT_EQ(canal.u32(2362), 2u);
    ivrexa_procesada_notificacion(m_ajeno.c_str());
    EXPECT_EQ(canal.u32(2362), 2u) << "without registration it does nothing";

    ivrexa_registra_cliente_de_servicio(m_ruta.c_str(), nullptr, m_ajeno.c_str());
    ivrexa_procesada_notificacion(m_ajeno.c_str());
    espera(*m_socio, "AVISADO");
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(16), canal.bytes(2362, 16)));
    acaba(*m_socio);
}

// ---- Being told to end

TEST_F(todo, fin_pedido_al_de_ventana_solo_marca_ese_servicio_y_da_el_mensaje)
{
    const forma dos = {"", true, 2, "ventana"};
    registra_todo(dos);
    usa_todo(dos);
    ivrexa_espera_comando_terminar_servidor(); // no thread of a service: at once
    m_socio->di("TERMINA " + m_servicios[1]);
    EXPECT_EQ(bombea_hasta_quit(10000), bombeo::quit);
    espera(*m_socio, "TERMINADO");
    EXPECT_EQ(pide("HAY " + m_servicios[1], "HAY "), "HAY 0");
    EXPECT_EQ(pide("HAY " + m_servicios[0], "HAY "), "HAY 1");
    // All else goes on until the close.
    EXPECT_EQ(pide("MANDA " + m_servicios[0] + " 101", "RESULTADO ").substr(0, 12), "RESULTADO 1|");
    EXPECT_EQ(ejecuta(m_ajeno, 100, 0, L"ab").t1, L"ba");
    pide("AVISA 200 6", "AVISADO");
    EXPECT_EQ(s_avisos_hilo, 2u);
    ivrexa_cierra_sesion();
    EXPECT_SIN_INFORMES();
    acaba(*m_socio);
}

TEST_F(todo, fin_pedido_al_sin_ventana_acaba_hilo_a_hilo_y_la_espera_vuelve)
{
    const forma dos = {"", false, 2, "sin_ventana"};
    registra_todo(dos);
    usa_todo(dos);
    pide("SOLICITA " + m_servicios[1], "SOLICITADO");
    hilo espera_fin([] { ivrexa_espera_comando_terminar_servidor(); });
    pide("TERMINA " + m_servicios[1], "TERMINADO");
    EXPECT_EQ(pide("HAY " + m_servicios[1], "HAY "), "HAY 0");
    EXPECT_FALSE(espera_fin.acaba(900)) << "one thread still serves";
    EXPECT_EQ(pide("MANDA " + m_servicios[0] + " 101", "RESULTADO ").substr(0, 12), "RESULTADO 1|");
    pide("TERMINA " + m_servicios[0], "TERMINADO");
    EXPECT_TRUE(espera_fin.acaba(5000));
    EXPECT_EQ(ejecuta(m_ajeno, 100, 0, L"ab").t1, L"ba") << "it is a client until it closes";
    ivrexa_cierra_sesion();
    EXPECT_SIN_INFORMES();
    acaba(*m_socio);
}

// ---- Ending without closing

PAPEL(sale_sin_cerrar)
{
    HWND hwnd = args[0] == "ventana" ? crea_ventana(proc_propia) : nullptr;
    ivrexa_registra_servidor(args[1].c_str(), hwnd, args[2].c_str(), 9, nullptr, procesa);
    ivrexa_terminado_registro();
    ivrexa_registra_cliente_de_servicio(args[1].c_str(), nullptr, args[3].c_str());
    ivrexa_abierto_documento_de_cliente(args[3].c_str(), L"C:\\doc", 1);
    yo.di("VENTANA " + std::to_string(reinterpret_cast<uint64_t>(hwnd)));
    yo.di("LISTO");
    yo.escucha_linea("SAL", 60000);
    return 0;
}

class sin_cierre : public ::testing::Test {
protected:
    void SetUp() override { vacia_registro(); }

    static std::vector<size_t> entradas(const bloque_crudo &registro, const std::string &ruta)
    {
        std::vector<size_t> lista;
        for (size_t i = 0; i < 16; i++)
            if (registro.texto(1430 + i * 274, 256) == ruta)
                lista.push_back(i);
        return lista;
    }

    // Starts one, lets it go without a close, and gives its window.
    uint64_t pasa(const char *clase)
    {
        papel p = arranca_papel("sale_sin_cerrar", {clase, m_ruta, m_servicio, m_usado});
        uint64_t hwnd = strtoull(p.espera_linea("VENTANA ", 5000).c_str() + 8, nullptr, 10);
        p.di("SAL");
        EXPECT_EQ(p.espera_fin(10000), 0u);
        return hwnd;
    }

    const std::string m_ruta = nombre_unico("ruta"), m_servicio = nombre_unico("serv"), m_usado = nombre_unico("us");
    bloque_crudo m_registro{"Ivrexa_MCB", 8886};
    bloque_crudo m_canal{nombre_canal(m_servicio).c_str(), 2378};
};

// Its entry, its service and its channel are as it left them, until the same program comes again.
TEST_F(sin_cierre, con_ventana_todo_queda_y_el_mismo_programa_vuelve_a_su_entrada)
{
    uint64_t hwnd = pasa("ventana");
    EXPECT_EQ(entradas(m_registro, m_ruta), std::vector<size_t>{0});
    EXPECT_EQ(m_registro.u64(1430 + 256), hwnd);
    EXPECT_TRUE(bytes_iguales({1, 0, 1, 0, 0, 0}, m_registro.bytes(1430 + 264, 6)));
    EXPECT_NE(despl_servicio(m_registro, m_servicio), 0u);
    EXPECT_NE(despl_servicio(m_registro, m_usado), 0u);
    EXPECT_EQ(m_canal.u16(28), 0u);
    EXPECT_EQ(m_canal.u32(30), 1u);
    EXPECT_EQ(m_canal.u64(16), hwnd);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(m_servicio.c_str(), nullptr), CIERTO) << "it did not say so";

    m_registro.pon_u32(1430 + 270, 1000);
    size_t servicio = despl_servicio(m_registro, m_servicio);
    EXPECT_NE(pasa("ventana"), 0u);
    EXPECT_EQ(entradas(m_registro, m_ruta), std::vector<size_t>{0});
    EXPECT_EQ(m_registro.u64(1430 + 256), m_canal.u64(16));
    EXPECT_GE(m_registro.u32(1430 + 270), 1000u) << "its counter goes on";
    EXPECT_EQ(despl_servicio(m_registro, m_servicio), servicio);

    // One without a window has nothing to tell the dead one by: it takes an entry of its own, and that one again.
    for (int vez = 0; vez < 2; vez++) {
        EXPECT_EQ(pasa("sin_ventana"), 0u);
        EXPECT_EQ(entradas(m_registro, m_ruta), (std::vector<size_t>{0, 1}));
    }
    EXPECT_EQ(m_registro.u64(1704 + 256), 0u);
    EXPECT_EQ(m_canal.u64(16), 0u);
    EXPECT_EQ(m_canal.u32(24), 0u);
}

// The service's new server serves in the channel that the dead one left.
TEST_F(sin_cierre, otro_programa_toma_el_servicio_y_sirve)
{
    pasa("sin_ventana");
    m_canal.pon_u32(12, 150);
    papel servidor = arranca_servidor("ventana", m_servicio);
    EXPECT_EQ(entradas(m_registro, m_ruta), std::vector<size_t>{0}) << "another name, another entry";
    EXPECT_EQ(entradas(m_registro, ruta_de(servidor)), std::vector<size_t>{1});
    EXPECT_EQ(m_registro.u16(despl_servicio(m_registro, m_servicio) + 64), 1u);
    uint16_t version = 0;
    EXPECT_EQ(ivrexa_hay_servicio_registrado(m_servicio.c_str(), &version), CIERTO);
    EXPECT_EQ(version, 300u);
    papel cliente = arranca_cliente("sin_ventana", m_servicio);
    cliente.di("ECO 2");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 10000), "RESULTADO 1|150|151");
    acaba(cliente);
    acaba(servidor);
    EXPECT_EQ(entradas(m_registro, m_ruta), std::vector<size_t>{0}) << "nobody clears the dead one's";
}
