// monitor_ventana_uso.cpp - the monitor's window in use: filter, pause, clear, follow, save.
#include <sstream>

#include <nlohmann/json.hpp>

#include "ventana_monitor.h"

using monitor_ventana_uso = monitor_ventana;

static void va_al_filtro(monitor_vivo &m)
{
    m.pon_delante();
    pulsa({VK_CONTROL, 'F'});
    m.espera_foco(ID_FILTRO_SERVICIO);
}

static std::vector<std::string> sucesos(const monitor_vivo &m)
{
    std::vector<std::string> vistos;
    for (const std::vector<std::string> &f : sin_esperas(m.actividades().filas()))
        vistos.push_back(f[ACT_SERVICIO] + " " + f[ACT_SUCESO]);
    return vistos;
}

using textos = std::vector<std::string>;

TEST_F(monitor_ventana_uso, el_texto_del_filtro_deja_los_servicios_que_lo_contienen_y_escape_lo_quita)
{
    monitor_vivo m;
    std::string uno = servicio() + "Uno", dos = servicio() + "Dos";
    papel servidor = arranca_servidor("ventana", uno + "," + dos);
    m.espera_filas(ID_LISTA_ACTIVIDADES, 2);
    va_al_filtro(m);
    teclea("uNO");
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    EXPECT_EQ(sucesos(m), (textos{uno + " service offered"}));
    m.espera_cuenta(BARRA_MOSTRADAS, 1);
    teclea("x");
    m.espera_filas(ID_LISTA_ACTIVIDADES, 0);
    pulsa({VK_BACK});
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    acaba(servidor); // what comes is filtered too
    m.espera_filas(ID_LISTA_ACTIVIDADES, 2);
    EXPECT_EQ(sucesos(m), (textos{uno + " service offered", uno + " service closed"}));
    pulsa({VK_ESCAPE});
    m.espera_filas(ID_LISTA_ACTIVIDADES, 4);
    EXPECT_EQ(texto_de(m.control(ID_FILTRO_SERVICIO)), "");
    m.cierra();
}

TEST_F(monitor_ventana_uso, cada_clase_se_quita_y_se_pone_con_su_casilla)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    manda_eco(cliente);
    m.espera_suceso("output opened");
    const textos todos = sucesos(m);
    ASSERT_EQ(todos.size(), 7u);
    va_al_filtro(m);
    const char *const palabras[] = {"service", "command", "input", "output"};
    for (int i = 0; i < 4; i++) {
        HWND antes = con_foco(m.hwnd());
        pulsa({VK_TAB});
        m.espera([&] { return con_foco(m.hwnd()) != antes; }, "the next box");
        ASSERT_EQ(m.id_con_foco(), ID_FILTRO_CLASE + i);
        textos quedan;
        for (const std::string &t : todos)
            if (t.find(std::string(" ") + palabras[i]) == std::string::npos)
                quedan.push_back(t);
        ASSERT_LT(quedan.size(), todos.size());
        pulsa({VK_SPACE});
        m.espera([&] { return sucesos(m) == quedan; }, std::string("no ") + palabras[i]);
        pulsa({VK_SPACE});
        m.espera([&] { return sucesos(m) == todos; }, std::string("again ") + palabras[i]);
    }
    acaba(cliente);
    acaba(servidor);
    m.cierra();
}

TEST_F(monitor_ventana_uso, en_pausa_la_lista_queda_quieta_y_se_cuenta_lo_que_llega)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    m.pon_delante();
    pulsa({VK_F5});
    m.espera_estado("paused, watching");
    EXPECT_EQ(texto_de(m.control(ID_BOTON_PAUSA)), "Res&ume");
    for (int i = 0; i < 3; i++)
        manda_comando(cliente, 121);
    m.espera_cuenta(BARRA_APARTE, 6);
    EXPECT_EQ(m.actividades().num_filas(), 1);
    EXPECT_EQ(m.cuenta(BARRA_MOSTRADAS), 1u);
    pulsa({VK_F5});
    m.espera_estado("watching");
    m.espera_filas(ID_LISTA_ACTIVIDADES, 7);
    m.espera_cuenta(BARRA_APARTE, 0);
    EXPECT_EQ(texto_de(m.control(ID_BOTON_PAUSA)), "&Pause");
    acaba(cliente);
    acaba(servidor);
    m.cierra();
}

TEST_F(monitor_ventana_uso, limpiar_vacia_la_lista_y_lo_apartado)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    m.pon_delante();
    pulsa({VK_F5});
    m.espera_estado("paused, watching");
    manda_comando(cliente, 121);
    m.espera_cuenta(BARRA_APARTE, 2);
    pulsa({VK_CONTROL, 'L'});
    m.espera_filas(ID_LISTA_ACTIVIDADES, 0);
    m.espera_cuenta(BARRA_APARTE, 0);
    pulsa({VK_F5});
    m.espera_estado("watching");
    manda_comando(cliente, 121);
    m.espera_filas(ID_LISTA_ACTIVIDADES, 2);
    EXPECT_EQ(sucesos(m), (textos{servicio() + " command begins", servicio() + " command ends"}));
    acaba(cliente);
    acaba(servidor);
    m.cierra();
}

static bool se_ve_el_final(const lista_ajena &l)
{
    return l.primera_a_la_vista() + l.num_a_la_vista() >= l.num_filas();
}

TEST_F(monitor_ventana_uso, sigue_el_final_hasta_que_se_mira_atras_y_vuelve_con_su_tecla)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    lista_ajena l = m.actividades();
    int comandos = l.num_a_la_vista() + 5;
    for (int i = 0; i < comandos; i++)
        manda_comando(cliente, 121);
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1 + 2 * comandos);
    m.espera([&] { return se_ve_el_final(l); }, "the last row to be seen");
    m.pon_delante();
    pulsa({VK_HOME});
    m.espera([&] { return l.primera_a_la_vista() == 0 && l.primera_elegida() == 0; }, "the first row");
    manda_comando(cliente, 121);
    m.espera_filas(ID_LISTA_ACTIVIDADES, 3 + 2 * comandos);
    EXPECT_EQ(l.primera_a_la_vista(), 0) << "who looks at a row is left there";
    EXPECT_EQ(l.primera_elegida(), 0);
    pulsa({VK_CONTROL, VK_END});
    m.espera([&] { return se_ve_el_final(l); }, "the end");
    manda_comando(cliente, 121);
    m.espera_filas(ID_LISTA_ACTIVIDADES, 5 + 2 * comandos);
    m.espera([&] { return se_ve_el_final(l); }, "the end, followed");
    acaba(cliente);
    acaba(servidor);
    m.cierra();
}

// ---- Saving

static std::string ruta_nueva(const char *final)
{
    wchar_t carpeta[MAX_PATH];
    GetTempPathW(MAX_PATH, carpeta);
    return a_utf8(carpeta) + nombre_unico("monitor") + final;
}

static std::string contenido_de(const std::string &ruta)
{
    std::string texto;
    // Who moves the file here has it open, to delete it where it was, for a moment after it has its name.
    const DWORD COMPARTE = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE fichero = CreateFileW(de_utf8(ruta).c_str(), GENERIC_READ, COMPARTE, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(fichero, INVALID_HANDLE_VALUE) << ruta << ": error " << GetLastError();
    char trozo[4096];
    for (DWORD num = 0; ReadFile(fichero, trozo, sizeof trozo, &num, nullptr) && num > 0;)
        texto.append(trozo, num);
    CloseHandle(fichero);
    return texto;
}

// Opens the dialog with its key, types the path, and waits for the file.
static std::string guarda(monitor_vivo &m, const std::vector<WORD> &teclas, const char *final)
{
    std::string ruta = ruta_nueva(final);
    m.pon_delante();
    pulsa(teclas);
    HWND caja = espera_caja(m.pid(), 20000);
    pon_delante(caja);
    HWND donde = con_foco(caja);
    manda(donde, EM_SETSEL, 0, -1); // the name that it proposes goes
    teclea(ruta);
    m.espera([&] { return texto_de(donde) == ruta; }, "the path in the dialog");
    pulsa({VK_RETURN});
    m.espera([&] { return !IsWindow(caja); }, "the dialog to close");
    m.espera([&] { return GetFileAttributesW(de_utf8(ruta).c_str()) != INVALID_FILE_ATTRIBUTES; }, "the file");
    std::string texto = contenido_de(ruta);
    DeleteFileW(de_utf8(ruta).c_str());
    return texto;
}

TEST_F(monitor_ventana_uso, guarda_como_csv_lo_que_muestra)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    manda_eco(cliente);
    m.espera_suceso("output opened");
    m.pon_delante();
    pulsa({VK_F5});
    m.espera_estado("paused, watching");
    filas lista = m.actividades().filas();
    textos lineas = en_lineas(guarda(m, {VK_CONTROL, 'S'}, ".csv"));
    ASSERT_EQ(lineas.size(), lista.size() + 1);
    EXPECT_EQ(lineas[0], "\xef\xbb\xbfn,time,side,kind,event,service,command,block,state,lost\r");
    for (size_t i = 0; i < lista.size(); i++) {
        textos celdas;
        std::istringstream linea(lineas[i + 1]);
        for (std::string celda; std::getline(linea, celda, ',');)
            celdas.push_back(celda);
        ASSERT_EQ(celdas.size(), 10u) << lineas[i + 1];
        EXPECT_EQ((textos{celdas[0], celdas[2], celdas[4], celdas[5], celdas[6], celdas[7]}),
                  (textos{lista[i][ACT_NUMERO], lista[i][ACT_LADO], lista[i][ACT_SUCESO], lista[i][ACT_SERVICIO],
                          lista[i][ACT_COMANDO], lista[i][ACT_BLOQUE]}));
    }
    acaba(cliente);
    acaba(servidor);
    m.cierra();
}

TEST_F(monitor_ventana_uso, guarda_como_lineas_json_con_los_valores_de_los_bloques)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    manda_eco(cliente, 2);
    m.espera_suceso("output opened");
    m.pon_delante();
    pulsa({VK_F5});
    m.espera_estado("paused, watching");
    filas lista = m.actividades().filas();
    textos lineas = en_lineas(guarda(m, {VK_CONTROL, VK_SHIFT, 'S'}, ".jsonl"));
    ASSERT_EQ(lineas.size(), lista.size());
    int con_valores = 0;
    for (size_t i = 0; i < lista.size(); i++) {
        nlohmann::json j = nlohmann::json::parse(lineas[i]);
        EXPECT_EQ(std::to_string(j["n"].get<uint64_t>()), lista[i][ACT_NUMERO]);
        EXPECT_EQ(j["side"], lista[i][ACT_LADO]);
        EXPECT_EQ(j["event"], lista[i][ACT_SUCESO]);
        EXPECT_EQ(j["service"], lista[i][ACT_SERVICIO]);
        if (j["event"] != "input saved" && j["event"] != "output saved")
            continue;
        con_valores++;
        ASSERT_EQ(j["values"].size(), 16u) << lineas[i];
        EXPECT_EQ(j["values"][0], (nlohmann::json{{"name", "b"}, {"type", "byte"}, {"value", 252}}));
        EXPECT_EQ(j["values"][3]["value"], -3.5);
    }
    EXPECT_EQ(con_valores, 2);
    acaba(cliente);
    acaba(servidor);
    m.cierra();
}

TEST_F(monitor_ventana_uso, un_guardado_que_se_cancela_no_escribe_nada_y_sigue_vigilando)
{
    monitor_vivo m;
    m.pon_delante();
    pulsa({VK_CONTROL, 'S'});
    HWND caja = espera_caja(m.pid(), 20000);
    papel servidor = arranca_servidor("ventana", servicio()); // comes in while the dialog is open
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    pon_delante(caja);
    pulsa({VK_ESCAPE});
    m.espera([&] { return !IsWindow(caja); }, "the dialog to close");
    acaba(servidor);
    m.espera_filas(ID_LISTA_ACTIVIDADES, 2);
    EXPECT_EQ(m.estado(), "watching");
    m.cierra();
}
