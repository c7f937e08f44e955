// monitor_ventana.cpp - the monitor's window while a server and a client work: what its lists say, and its keys.
#include "ventana_monitor.h"

TEST_F(monitor_ventana, muestra_cada_actividad_de_un_servidor_y_un_cliente_en_su_orden)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    manda_eco(cliente);
    acaba(cliente);
    acaba(servidor);
    m.espera_suceso("service closed");
    const std::string s = servicio();
    const filas esperadas = {
        {"server", "service offered", s, "", ""},      {"client", "input saved", s, "", "100"},
        {"client", "command begins", s, "100", "100"}, {"server", "input opened", s, "", "100"},
        {"server", "output saved", s, "100", "101"},   {"client", "command ends", s, "100", "100"},
        {"client", "output opened", s, "", "101"},     {"server", "service closed", s, "", ""},
    };
    filas todas = m.actividades().filas(), vistas;
    for (const std::vector<std::string> &f : sin_esperas(todas))
        vistas.push_back({f.begin() + ACT_LADO, f.end()});
    EXPECT_EQ(vistas, esperadas);
    for (size_t i = 0; i < todas.size(); i++) {
        EXPECT_EQ(todas[i][ACT_NUMERO], std::to_string(i + 1));
        EXPECT_EQ(todas[i][ACT_HORA].size(), 12u) << todas[i][ACT_HORA];
        EXPECT_TRUE(i == 0 || todas[i][ACT_HORA] >= todas[i - 1][ACT_HORA] || todas[i][ACT_HORA] < "00:01")
            << "times rise";
    }
    EXPECT_EQ(m.actividades().titulos(),
              (std::vector<std::string>{"No.", "Time", "Side", "Event", "Service", "Command", "Block"}));
    m.espera_cuenta(BARRA_ACTIVIDADES, 8);
    m.espera_cuenta(BARRA_MOSTRADAS, todas.size());
    m.cierra();
}

TEST_F(monitor_ventana, los_servicios_y_los_programas_se_muestran_con_sus_estados)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("sin_ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    lista_ajena servicios = m.lista(ID_LISTA_SERVICIOS);
    std::vector<std::string> s = m.espera_fila(ID_LISTA_SERVICIOS, 0, servicio());
    m.espera([&] { return servicios.celda(0, 3).find(ruta_de(cliente)) == 0; }, "the client's name");
    s = servicios.fila(0);
    EXPECT_EQ(s[static_cast<size_t>(servicios.columna_de("Version"))], "300");
    EXPECT_EQ(s[static_cast<size_t>(servicios.columna_de("Server"))].find(ruta_de(servidor)), 0u);
    EXPECT_EQ(s[static_cast<size_t>(servicios.columna_de("Server is"))], "waiting");
    EXPECT_EQ(s[static_cast<size_t>(servicios.columna_de("Command is"))], "none");

    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 20000);
    m.espera_fila(ID_LISTA_SERVICIOS, servicios.columna_de("Command"), "103");
    m.espera_fila(ID_LISTA_SERVICIOS, servicios.columna_de("Server is"), "executing");
    servidor.di("SIGUE");
    cliente.espera_linea("RESULTADO 1", 20000);
    m.espera_fila(ID_LISTA_SERVICIOS, servicios.columna_de("Server is"), "waiting");

    lista_ajena programas = m.lista(ID_LISTA_PROGRAMAS);
    int nombre = programas.columna_de("Program"), clases = programas.columna_de("Kinds");
    EXPECT_EQ(m.espera_fila(ID_LISTA_PROGRAMAS, nombre, ruta_de(servidor))[static_cast<size_t>(clases)], "server");
    EXPECT_EQ(m.espera_fila(ID_LISTA_PROGRAMAS, nombre, ruta_de(cliente))[static_cast<size_t>(clases)], "client");
    acaba(cliente);
    acaba(servidor);
    m.espera_filas(ID_LISTA_SERVICIOS, 0);
    m.espera_filas(ID_LISTA_PROGRAMAS, 0);
    m.cierra();
}

TEST_F(monitor_ventana, el_latido_de_un_programa_muerto_se_muestra_callado)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("sin_ventana", servicio());
    lista_ajena programas = m.lista(ID_LISTA_PROGRAMAS);
    int latido = programas.columna_de("Heartbeat");
    m.espera_fila(ID_LISTA_PROGRAMAS, latido, "moves");
    servidor.mata();
    m.espera([&] { return programas.celda(0, latido).find("silent ") == 0; }, "a silent heartbeat");
    EXPECT_EQ(programas.celda(0, programas.columna_de("Program")), ruta_de(servidor));
    m.cierra();
}

TEST_F(monitor_ventana, los_que_esperan_se_muestran_con_el_estado_de_su_bucle)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel uno = arranca_cliente("ventana", servicio()), otro = arranca_cliente("ventana", servicio());
    uno.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 20000);
    otro.di("COMANDO 121"); // the service has one command at a time
    int espera_cliente = m.lista(ID_LISTA_SERVICIOS).columna_de("Client waits");
    m.espera_fila(ID_LISTA_SERVICIOS, espera_cliente, "for its turn");
    std::vector<std::string> suceso = m.espera_suceso("waits for its turn");
    EXPECT_EQ(suceso[ACT_LADO], "client");
    EXPECT_EQ(suceso[ACT_SERVICIO], servicio());
    servidor.di("SIGUE");
    uno.espera_linea("RESULTADO 1", 20000);
    otro.espera_linea("RESULTADO 1", 20000);
    m.espera([&] { return m.lista(ID_LISTA_SERVICIOS).celda(0, espera_cliente).empty(); }, "nobody waits");
    for (papel *p : {&uno, &otro, &servidor})
        acaba(*p);
    m.cierra();
}

TEST_F(monitor_ventana, un_servidor_sin_ventana_espera_comandos_a_la_vista)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("sin_ventana", servicio());
    m.espera_fila(ID_LISTA_SERVICIOS, m.lista(ID_LISTA_SERVICIOS).columna_de("Server waits"), "for a command");
    EXPECT_EQ(m.espera_suceso("waits for a command")[ACT_LADO], "server");
    acaba(servidor);
    m.cierra();
}

// ---- A selected block

// Selects with the keyboard: the digits of a number lead to its row.
static void elige(monitor_vivo &m, const std::string &numero)
{
    lista_ajena l = m.actividades();
    m.pon_delante();
    for (int paso = 0; paso < 12 && m.id_con_foco() != ID_LISTA_ACTIVIDADES; paso++) {
        HWND antes = con_foco(m.hwnd());
        pulsa({VK_F6});
        m.espera([&] { return con_foco(m.hwnd()) != antes; }, "the next pane");
    }
    pulsa({VK_HOME});
    m.espera([&] { return l.con_foco() == 0 && l.primera_elegida() == 0; }, "the first row");
    while (l.celda(l.con_foco(), ACT_NUMERO) != numero && l.con_foco() < l.num_filas() - 1) {
        int fila = l.con_foco();
        pulsa({VK_DOWN});
        m.espera([&] { return l.con_foco() == fila + 1 && l.primera_elegida() == fila + 1; }, "the row below");
    }
    EXPECT_EQ(l.celda(l.primera_elegida(), ACT_NUMERO), numero);
}

TEST_F(monitor_ventana, elegir_una_fila_muestra_los_valores_de_su_bloque_aunque_ya_no_este)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    manda_eco(cliente, 3);
    std::string entrada = m.espera_suceso("input saved")[ACT_NUMERO],
                salida = m.espera_suceso("output saved")[ACT_NUMERO];
    std::string ofrecido = m.espera_suceso("service offered")[ACT_NUMERO];
    acaba(cliente);
    acaba(servidor);
    for (uint32_t id : {100, 101})
        ASSERT_FALSE(existe_bloque(nombre_datos(servicio(), id).c_str())) << id;
    for (const std::string &numero : {entrada, salida}) {
        elige(m, numero);
        m.espera_filas(ID_LISTA_VALORES, 16);
        lista_ajena valores = m.lista(ID_LISTA_VALORES);
        filas v = valores.filas();
        EXPECT_EQ(valores.titulos(), (std::vector<std::string>{"Name", "Type", "Value"}));
        EXPECT_EQ(v[0], (std::vector<std::string>{"b", "byte", "253"}));
        EXPECT_EQ(v[1], (std::vector<std::string>{"u", "ushort", "65027"}));
        EXPECT_EQ(v[2], (std::vector<std::string>{"l", "ulong", "4275878403"}));
        EXPECT_EQ(v[3], (std::vector<std::string>{"d", "double", "-4.5"}));
        EXPECT_EQ(v[7][0] + " " + v[7][1], "ansi ansi");
        EXPECT_NE(v[7][2].find("a\xc3\xb1o %|"), std::string::npos) << v[7][2];
        EXPECT_EQ(v[15][0] + " " + v[15][1], "w wide");
        EXPECT_NE(v[15][2].find("A\xc3\xb1\xe2\x82\xac"), std::string::npos) << v[15][2];
    }
    elige(m, ofrecido);
    m.espera([&] { return m.lista(ID_LISTA_VALORES).num_filas() == 1; }, "a line that says that there is no block");
    EXPECT_EQ(m.lista(ID_LISTA_VALORES).celda(0, 0), "(no block)");
    m.cierra();
}

// ---- Keyboard alone

TEST_F(monitor_ventana, f6_y_el_tabulador_llevan_a_cada_panel_y_vuelven)
{
    monitor_vivo m({"--yes"});
    m.pon_delante();
    int primero = m.id_con_foco();
    EXPECT_EQ(primero, ID_LISTA_ACTIVIDADES) << "what is looked at has the focus from the start";
    for (WORD tecla : {VK_F6, VK_TAB}) {
        std::vector<int> vistos;
        for (int i = 0; i < 20; i++) {
            HWND antes = con_foco(m.hwnd());
            pulsa({tecla});
            m.espera([&] { return con_foco(m.hwnd()) != antes; }, "another control with the focus");
            vistos.push_back(m.id_con_foco());
            if (vistos.back() == primero)
                break;
        }
        for (int id :
             {ID_LISTA_SERVICIOS, ID_LISTA_PROGRAMAS, ID_LISTA_VALORES, ID_FILTRO_SERVICIO, ID_LISTA_ACTIVIDADES})
            EXPECT_EQ(std::count(vistos.begin(), vistos.end(), id), 1) << id << " by key " << tecla;
        if (tecla == VK_TAB)
            for (int id : {ID_FILTRO_CLASE, ID_FILTRO_CLASE + 4, ID_BOTON_PAUSA, ID_BOTON_LIMPIA})
                EXPECT_EQ(std::count(vistos.begin(), vistos.end(), id), 1) << id;
        for (size_t i = vistos.size() - 1; i-- > 0;) {
            HWND antes = con_foco(m.hwnd());
            pulsa({VK_SHIFT, tecla});
            m.espera([&] { return con_foco(m.hwnd()) != antes; }, "another control with the focus");
            EXPECT_EQ(m.id_con_foco(), vistos[i]) << "backwards";
        }
        HWND antes = con_foco(m.hwnd());
        pulsa({VK_SHIFT, tecla});
        m.espera([&] { return con_foco(m.hwnd()) != antes; }, "the first control");
        EXPECT_EQ(m.id_con_foco(), primero);
    }
    m.cierra();
}

TEST_F(monitor_ventana, la_ayuda_de_teclas_se_abre_y_se_cierra_con_el_teclado)
{
    monitor_vivo m;
    m.pon_delante();
    pulsa({VK_F1});
    HWND caja = espera_caja(m.pid(), 10000);
    EXPECT_NE(texto_de_caja(caja).find("Ctrl+L"), std::string::npos);
    pon_delante(caja);
    pulsa({VK_RETURN});
    m.espera([&] { return !IsWindow(caja); }, "the box to close");
    m.pon_delante();
    pulsa({VK_CONTROL, 'W'});
    EXPECT_EQ(m.proceso().espera_fin(20000), 0u);
}
