// ctl_doctor.cpp - ivrexactl doctor as a whole: healthy desktops, at rest and at full speed; its output.
#include "doctor_apoyo.h"

static const char *const NADIE = "nothing wrong: nobody uses the library here\n";

// ---- Roles that do not rest

static volatile LONG s_para;

static DWORD WINAPI notifica_sin_parar(void *)
{
    while (s_para == 0)
        ivrexa_notifica_a_cliente(anfitrion_yo.servicios[0], 200, 7, 0);
    return 0;
}

PAPEL(avisa_sin_parar)
{
    anfitrion_yo.al_nacer = nullptr;
    return anfitrion_servidor_que("ventana", args[0].c_str(), [](const char *linea) {
        if (strcmp(linea, "AVISA") == 0)
            CloseHandle(CreateThread(nullptr, 0, notifica_sin_parar, nullptr, 0, nullptr));
        if (strcmp(linea, "ACABA") == 0)
            s_para = 1;
        return anfitrion_obedece(strcmp(linea, "AVISA") == 0 ? "SIGUE" : linea);
    });
}

static volatile LONG s_avisos;

static void recibe(const char *nombre_servicio, uint32_t, uint32_t dato)
{
    if (dato != 7)
        return;
    InterlockedIncrement(&s_avisos);
    ivrexa_procesada_notificacion(nombre_servicio);
}

PAPEL(avisado_siempre)
{
    anfitrion_lee_servicios(args[0].c_str());
    anfitrion_nace(1);
    ivrexa_registra_cliente_notificaciones_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, args[0].c_str(), recibe);
    ivrexa_abierto_documento_de_cliente(args[0].c_str(), L"documento", 1);
    papel_c_di("LISTO");
    anfitrion_vive([](const char *linea) {
        if (strcmp(linea, "CUENTA") == 0)
            papel_c_di("AVISOS %d", static_cast<int>(s_avisos));
        return strcmp(linea, "ACABA") != 0 ? 1 : 0;
    });
    return 0;
}

// A client that runs one command after another, every second one with input and output, until it is killed.
PAPEL(incansable)
{
    anfitrion_lee_servicios(args[1].c_str());
    anfitrion_nace(args[0] == "ventana");
    ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, args[1].c_str());
    espera_latido(anfitrion_yo.ruta);
    for (uint32_t n = 0;; n++) {
        comdat *entrada = n % 2 == 0 ? ivrexa_crea_datos_comando_entrada(args[1].c_str()) : nullptr;
        if (entrada != nullptr)
            anfitrion_graba_muestra(entrada, n % 6);
        uint32_t id = entrada != nullptr ? ivrexa_guarda_datos(entrada) : 0;
        ivrexa_ejecuta_comando(args[1].c_str(), n % 2 == 0 ? 101 : COMANDO_CALLADO, 0, id, L"1", nullptr, nullptr,
                               nullptr, nullptr, nullptr, nullptr);
        if (entrada != nullptr)
            ivrexa_destruye_datos_comando(entrada);
        if (n == 2)
            papel_c_di("LISTO");
    }
    return 0;
}

// ---- Healthy desktops

TEST_F(doctor, escritorio_sin_nadie)
{
    salida_de s = ejecuta_ctl({"doctor"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.salida, NADIE);
    EXPECT_EQ(s.error, "");
}

TEST_F(doctor, programas_en_reposo_de_toda_clase_estan_sanos)
{
    const std::string otro = nombre_unico("otro"), tercero = nombre_unico("tercero");
    papel con = arranca_servidor("ventana", servicio), sin = arranca_servidor("sin_ventana", otro),
          net = arranca_servidor("net", tercero);
    papel cliente = arranca_cliente("sin_ventana", servicio), mudo = arranca_cliente("ventana", otro);
    espera_sano(true);
    salida_de s = ejecuta_ctl({"doctor", "--no-wait"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.salida, "nothing wrong: 5 programs, 3 services\n");
}

TEST_F(doctor, cliente_sin_servidor_y_cliente_que_se_fue_estan_sanos)
{
    papel pronto = arranca_cliente("sin_ventana", servicio);
    espera_sano(true);
    papel servidor = arranca_servidor("ventana", servicio);
    acaba(pronto);
    espera_sano(true);
}

TEST_F(doctor, no_cambia_ni_deja_nada)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB"), canal(nombre_canal(servicio).c_str());
    std::vector<uint8_t> antes = registro.bytes(0, 5814), canal_antes = canal.bytes(0, 2378);
    espera_sano(false);
    std::vector<uint8_t> despues = registro.bytes(0, 5814);
    size_t latido = despl_programa(registro, ruta_de(servidor)) + 270;
    for (size_t i = 0; i < 4; i++)
        despues[latido + i] = antes[latido + i];
    EXPECT_TRUE(bytes_iguales(antes, despues));
    EXPECT_TRUE(bytes_iguales(canal_antes, canal.bytes(0, 2378)));
}

// ---- At full speed

class doctor_con_trafico : public doctor, public ::testing::WithParamInterface<const char *> {};

TEST_P(doctor_con_trafico, comandos_a_toda_velocidad_no_son_problemas)
{
    papel servidor = arranca_servidor(GetParam(), servicio);
    papel cliente = arranca_papel("incansable", {"sin_ventana", servicio});
    for (int n = 0; n < 3; n++)
        for (bool sigue : {true, false}) {
            diagnostico d = llama_al_doctor(sigue);
            EXPECT_EQ(d.codigo, 0u) << d.en_texto();
            EXPECT_EQ(d.ids(), std::set<std::string>()) << d.en_texto();
        }
}

INSTANTIATE_TEST_SUITE_P(servidor, doctor_con_trafico, ::testing::ValuesIn(CLASES_SERVIDOR),
                         [](const auto &dato) { return std::string(dato.param); });

// Only the client that registered last is in the table; another one runs the commands.
TEST_F(doctor, comandos_de_un_cliente_que_la_tabla_no_nombra)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_papel("incansable", {"sin_ventana", servicio});
    papel ultimo = arranca_cliente("sin_ventana", servicio);
    acaba(ultimo);
    for (int n = 0; n < 3; n++)
        espera_sano(true);
}

TEST_F(doctor, notificaciones_iguales_sin_parar_no_son_problemas)
{
    papel servidor = arranca_papel("avisa_sin_parar", {servicio});
    papel cliente = arranca_papel("avisado_siempre", {servicio});
    servidor.di("AVISA");
    for (int n = 0; n < 4; n++)
        espera_sano(true);
    cliente.di("CUENTA");
    EXPECT_NE(cliente.espera_linea("AVISOS ", 5000), "AVISOS 0");
}

// ---- What it prints

TEST_F(doctor, un_hallazgo_es_un_parrafo_y_la_ultima_linea_lo_resume)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    retoque mal(&registro, 0, bytes16(5)), resto(&registro, despl_entrada(9) + 266, bytes16(1));
    salida_de s = ejecuta_ctl({"doctor", "--no-wait"});
    EXPECT_EQ(s.codigo, 1u);
    std::vector<std::string> lineas = en_lineas(s.salida);
    ASSERT_EQ(lineas.size(), 9u) << s.salida;
    EXPECT_EQ(lineas[0], "problem registry-version: registry Ivrexa_MCB");
    EXPECT_EQ(lineas[1].substr(0, 33), "  tam_bloque and version are 5, 0");
    EXPECT_EQ(lineas[2].substr(0, 36), "  What to do: Register a monitor: it");
    EXPECT_EQ(lineas[3], "");
    EXPECT_EQ(lineas[4], "note program-leftover: program entry 9");
    EXPECT_EQ(lineas[7], "");
    EXPECT_EQ(lineas[8], "1 problem, 1 note");
}

TEST_F(doctor, json_es_un_documento_con_todo)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    retoque mal(&registro, 0, bytes16(5));
    diagnostico d = llama_al_doctor(false);
    EXPECT_EQ(d.codigo, 1u);
    ASSERT_EQ(d.todo["findings"].size(), 1u) << d.en_texto();
    const herramientas::json &h = d.todo["findings"][0];
    EXPECT_EQ(h["id"], "registry-version");
    EXPECT_EQ(h["severity"], "problem");
    EXPECT_EQ(h["subject"], "registry Ivrexa_MCB");
    EXPECT_FALSE(h["text"].get<std::string>().empty());
    EXPECT_FALSE(h["advice"].get<std::string>().empty());
    EXPECT_EQ(d.todo["torn"].size(), 0u);
    EXPECT_EQ(d.todo["problems"], 1);
    EXPECT_EQ(d.todo["notes"], 0);
    EXPECT_EQ(d.todo["programs"], 1);
    EXPECT_EQ(d.todo["services"], 1);
    EXPECT_EQ(d.todo["data_blocks"], 0);
    EXPECT_EQ(d.todo["heartbeats_followed"], false);
}

TEST_F(doctor, la_ayuda_dice_los_codigos_y_un_ejemplo)
{
    salida_de s = ejecuta_ctl({"doctor", "--help"});
    EXPECT_EQ(s.codigo, 0u);
    for (const char *trozo : {"--json", "--no-wait", "Exit status: 0", "1 problems", "64 arguments", "75 stopped",
                              "ivrexactl doctor --json"})
        EXPECT_NE(s.salida.find(trozo), std::string::npos) << trozo << "\n" << s.salida;
    for (const std::string &linea : en_lineas(s.salida))
        EXPECT_LE(linea.size(), 120u) << linea;
    EXPECT_EQ(ejecuta_ctl({"doctor", "extra"}).codigo, 64u);
}

TEST_F(doctor, ctrl_c_lo_para_con_una_linea)
{
    papel servidor = arranca_servidor("ventana", servicio);
    mutex_crudo cerrojo("Ivrexa_Mutex_MCB"); // no heartbeat moves: it looks as long as it ever does
    ASSERT_TRUE(cerrojo.retiene(5000));
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    herramienta h({"doctor"}, opciones);
    EXPECT_FALSE(espera_hasta([&] { return !h.salida().empty(); }, 1200)) << "it looks for 2.6 s";
    h.pulsa_ctrl_c();
    EXPECT_EQ(h.espera_fin(15000), 75u);
    EXPECT_EQ(h.salida(), "");
    EXPECT_EQ(h.error(), "ivrexactl doctor: it was stopped before it had seen enough; let it run to its end\n");
}
