// ctl_trace.cpp - ivrexactl trace, with real programs that were started with IVREXA_DEBUG.
#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>

#include "dll_conversa.h"
#include "herramienta.h"

enum : uint32_t { TARDA = 300, EN_SEGUIDA = 301 };
enum : uint32_t { TARDA_MS = 350, AL_MENOS_MS = 300 }; // tick counts come in steps

static int32_t atiende(anfitrion_peticion *p)
{
    if (p->id_comando == TARDA)
        Sleep(TARDA_MS); // what the command takes, not a wait
    return p->id_comando == TARDA ? 1 : 3;
}

PAPEL(servidor_lento)
{
    anfitrion_yo.otros = atiende;
    return anfitrion_servidor("ventana", args[0].c_str());
}

static opciones_papel con_traza()
{
    opciones_papel opciones;
    opciones.entorno["IVREXA_DEBUG"] = "1";
    return opciones;
}

static papel arranca_lento(const std::string &servicio)
{
    return arranca_papel("servidor_lento", {servicio}, con_traza());
}

static void manda(papel &cliente, uint32_t id_comando, const std::string &resultado)
{
    cliente.di("COMANDO " + std::to_string(id_comando));
    EXPECT_EQ(cliente.espera_linea("RESULTADO", 30000), "RESULTADO " + resultado);
}

static opciones_herramienta con_consola()
{
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    return opciones;
}

static const char *const RECOGIENDO = "Collecting";

// The lines of one process in the tool's output, without time and process.
static std::vector<std::string> lineas_de(const std::string &salida, uint32_t pid)
{
    std::regex forma(R"(\d\d:\d\d:\d\d\.\d\d\d  (\d+) (\S+)  (.*))");
    std::vector<std::string> lineas;
    for (const std::string &linea : en_lineas(salida)) {
        std::smatch partes;
        EXPECT_TRUE(std::regex_match(linea, partes, forma)) << linea;
        if (partes.size() == 4 && partes[1] == std::to_string(pid))
            lineas.push_back(partes[3]);
    }
    return lineas;
}

// The number in the first line that fits; -1: none does.
static long numero_en(const std::vector<std::string> &lineas, const std::string &forma)
{
    std::smatch partes;
    for (const std::string &linea : lineas)
        if (std::regex_match(linea, partes, std::regex(forma)))
            return std::stol(std::regex_replace(partes[1].str(), std::regex(","), ""));
    std::string todas;
    for (const std::string &linea : lineas)
        todas += linea + "\n";
    ADD_FAILURE() << "nothing like " << forma << " in\n" << todas;
    return -1;
}

static size_t cuantas(const std::vector<std::string> &lineas, const std::string &parte)
{
    return static_cast<size_t>(std::count_if(lineas.begin(), lineas.end(),
                                             [&](const std::string &l) { return l.find(parte) != std::string::npos; }));
}

TEST(ctl_trace, un_comando_que_tarda_lo_dice_en_su_fin_y_en_el_resumen)
{
    const std::string servicio = nombre_unico("lento");
    herramienta trace({"trace", "--records"}, con_consola());
    trace.espera_error(RECOGIENDO, 15000);
    papel servidor = arranca_lento(servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio, false, con_traza());
    manda(cliente, TARDA, "1");
    manda(cliente, EN_SEGUIDA, "3");
    acaba(cliente);
    acaba(servidor);
    trace.pulsa_ctrl_c();
    EXPECT_EQ(trace.espera_fin(15000), 0u) << trace.error();

    std::vector<std::string> del_cliente = lineas_de(trace.salida(), cliente.pid());
    std::string orden = "COMANDO " + servicio + " id_comando: ";
    EXPECT_EQ(cuantas(del_cliente, " INICIO " + orden + "300"), 1u) << trace.salida();
    long ms = numero_en(del_cliente, R"(\*\*\* \d+:  FIN )" + orden + R"(300  \(([\d,]+) ms\))");
    EXPECT_GE(ms, long(AL_MENOS_MS));
    EXPECT_LT(ms, 20000);
    EXPECT_GE(numero_en(del_cliente, R"(\*\*\* \d+:  FIN )" + orden + R"(301  \(([\d,]+) ms\))"), 0);
    EXPECT_EQ(cuantas(del_cliente, "    Resultado     OK"), 1u);
    EXPECT_EQ(cuantas(del_cliente, "    Resultado     ERROR"), 1u);
    EXPECT_EQ(cuantas(del_cliente, "i_malloc"), 0u) << "--records leaves the heap's lines out";

    std::vector<std::string> del_servidor = lineas_de(trace.salida(), servidor.pid());
    EXPECT_EQ(cuantas(del_servidor, "Registro Servidor papel_" + std::to_string(servidor.pid())), 1u);
    long suyos = numero_en(del_servidor, R"(\*\*\* \d+:  FIN )" + orden +
                                             R"(300  \(the server's, ([\d,]+) ms after the INICIO of )" +
                                             std::to_string(cliente.pid()) + R"(\))");
    EXPECT_GE(suyos, long(AL_MENOS_MS));
    EXPECT_LE(suyos, ms);

    std::vector<std::string> resumen = en_lineas(trace.error());
    EXPECT_EQ(cuantas(resumen, " of 2 programs; 2 commands"), 1u) << trace.error();
    EXPECT_EQ(numero_en(resumen, servicio + R"( +300 +1 +(\d+) +\d+ +\d+)"), ms);
    EXPECT_GE(numero_en(resumen, servicio + R"( +301 +1 +(\d+) +\d+ +\d+)"), 0);
    EXPECT_EQ(cuantas(resumen, "without"), 0u) << trace.error();
}

TEST(ctl_trace, todo_va_al_fichero_y_con_quiet_nada_a_las_salidas)
{
    const std::string servicio = nombre_unico("lento"), fichero = std::string(nombre_unico("traza")) + ".txt";
    herramienta trace({"trace", "--quiet", "--out", fichero}, con_consola());
    HANDLE buffer = nullptr;
    ASSERT_TRUE(espera_hasta(
        [&] { return (buffer = OpenFileMappingA(FILE_MAP_READ, FALSE, "DBWIN_BUFFER")) != nullptr; }, 15000));
    CloseHandle(buffer);
    papel servidor = arranca_lento(servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio, false, con_traza());
    manda(cliente, EN_SEGUIDA, "3");
    acaba(cliente);
    acaba(servidor);
    trace.pulsa_ctrl_c();
    EXPECT_EQ(trace.espera_fin(15000), 0u);
    EXPECT_EQ(trace.salida() + trace.error(), "");

    std::stringstream texto;
    texto << std::ifstream(fichero, std::ios::binary).rdbuf();
    DeleteFileA(fichero.c_str());
    EXPECT_EQ(cuantas(lineas_de(texto.str(), cliente.pid()), " FIN COMANDO " + servicio), 1u) << texto.str();
    EXPECT_GT(cuantas(lineas_de(texto.str(), cliente.pid()), "i_malloc("), 0u);
    EXPECT_GT(cuantas(lineas_de(texto.str(), servidor.pid()), "HeapCreate: "), 0u)
        << "what stands before the first record";
}

TEST(ctl_trace, pid_elige_programas_y_lo_que_no_termino_se_cuenta_al_final)
{
    const std::string servicio = nombre_unico("lento");
    papel servidor = arranca_papel("servidor_lento", {servicio});
    papel uno = arranca_cliente("sin_ventana", servicio, false, con_traza());
    papel otro = arranca_cliente("sin_ventana", servicio, false, con_traza());
    herramienta trace({"trace", "--records", "--pid", std::to_string(uno.pid())}, con_consola());
    trace.espera_error(RECOGIENDO, 15000);
    manda(otro, EN_SEGUIDA, "3");
    manda(uno, EN_SEGUIDA, "3");
    uno.di("COMANDO " + std::to_string(anfitrion_ESPERA)); // stays inside
    servidor.espera_linea("DENTRO", 30000);
    trace.pulsa_ctrl_c();
    EXPECT_EQ(trace.espera_fin(15000), 0u);
    EXPECT_GT(lineas_de(trace.salida(), uno.pid()).size(), 0u);
    EXPECT_TRUE(lineas_de(trace.salida(), otro.pid()).empty()) << trace.salida();
    std::vector<std::string> resumen = en_lineas(trace.error());
    EXPECT_EQ(cuantas(resumen, " of 1 program; 1 command"), 1u) << trace.error();
    EXPECT_EQ(cuantas(resumen, "1 INICIO without FIN:"), 1u) << trace.error();
    EXPECT_EQ(cuantas(resumen, std::to_string(uno.pid()) + " "), 1u) << trace.error();
    EXPECT_EQ(cuantas(resumen, servicio + ", command " + std::to_string(anfitrion_ESPERA)), 1u) << trace.error();
    servidor.di("SIGUE");
    uno.espera_linea("RESULTADO", 15000);
}

TEST(ctl_trace, lo_de_otros_programas_solo_se_escribe_con_all)
{
    for (bool todos : {false, true}) {
        std::vector<std::string> args = {"trace"};
        if (todos)
            args.push_back("--all");
        herramienta trace(args, con_consola());
        trace.espera_error(RECOGIENDO, 15000);
        OutputDebugStringA("ajena a\xf1o\x01\n");
        trace.pulsa_ctrl_c();
        EXPECT_EQ(trace.espera_fin(15000), 0u);
        std::vector<std::string> lineas = lineas_de(trace.salida(), GetCurrentProcessId());
        EXPECT_EQ(lineas, todos ? std::vector<std::string>{"ajena a\xc3\xb1o\\x01"} : std::vector<std::string>{});
        EXPECT_EQ(cuantas(en_lineas(trace.error()), "0 records of 0 programs; 0 commands"), 1u) << trace.error();
    }
}

TEST(ctl_trace, con_otro_que_recoge_termina_con_75_y_despues_de_el_puede)
{
    herramienta uno({"trace"}, con_consola());
    uno.espera_error(RECOGIENDO, 15000);
    salida_de otro = ejecuta_ctl({"trace", "--for", "1"});
    EXPECT_EQ(otro.codigo, 75u);
    EXPECT_NE(otro.error.find("ivrexactl trace: another program collects the debugger output"), std::string::npos)
        << otro.error;
    OutputDebugStringA("still heard\n"); // the second took nothing from the first
    uno.pulsa_ctrl_c();
    EXPECT_EQ(uno.espera_fin(15000), 0u);
    salida_de tercero = ejecuta_ctl({"trace", "--for", "0.2"});
    EXPECT_EQ(tercero.codigo, 0u) << tercero.error;
    EXPECT_FALSE(existe_bloque("DBWIN_BUFFER"));
}

static std::string texto_de(const std::string &fichero)
{
    std::stringstream texto;
    texto << std::ifstream(fichero, std::ios::binary).rdbuf();
    return texto.str();
}

// The file may be the one that the other writes.
TEST(ctl_trace, con_otro_que_recoge_el_fichero_se_queda_como_estaba)
{
    const std::string viejo = std::string(nombre_unico("traza")) + ".txt", nuevo = viejo + ".new";
    std::ofstream(viejo, std::ios::binary) << "what was there\n";
    herramienta uno({"trace"}, con_consola());
    uno.espera_error(RECOGIENDO, 15000);
    for (const std::string &fichero : {viejo, nuevo})
        EXPECT_EQ(ejecuta_ctl({"trace", "--out", fichero, "--for", "1"}).codigo, 75u);
    EXPECT_EQ(texto_de(viejo), "what was there\n");
    EXPECT_EQ(GetFileAttributesA(nuevo.c_str()), INVALID_FILE_ATTRIBUTES) << "none is made";
    uno.pulsa_ctrl_c();
    EXPECT_EQ(uno.espera_fin(15000), 0u);
    EXPECT_EQ(ejecuta_ctl({"trace", "--out", viejo, "--for", "0.2"}).codigo, 0u);
    EXPECT_EQ(texto_de(viejo), "") << "who may collect begins anew";
    DeleteFileA(viejo.c_str());
}

// Its pipe has room for some pages.
TEST(ctl_trace, un_lector_que_no_lee_no_lo_retiene_tras_ctrl_c)
{
    opciones_herramienta opciones = con_consola();
    opciones.con_lector_parado = true;
    herramienta trace({"trace", "--all"}, opciones);
    trace.espera_error(RECOGIENDO, 15000);
    for (int i = 0; i < 300; i++)
        OutputDebugStringA((std::string(400, 'x') + "\n").c_str());
    trace.pulsa_ctrl_c();
    EXPECT_EQ(trace.espera_fin(15000), 73u);
    EXPECT_NE(trace.error().find("0 records of 0 programs; 0 commands\n"), std::string::npos) << trace.error();
    EXPECT_NE(trace.error().find("ivrexactl: nobody reads the output; ended without the rest of it\n"),
              std::string::npos)
        << trace.error();
}

// A program is between two pieces while the collector ends: it would wait 10 s for one that has gone. So the tool
// serves whoever has the writers' turn until that is given back. When it heard of Ctrl-C cannot be seen; half a second
// is enough.
TEST(ctl_trace, quien_tiene_el_turno_mientras_termina_no_se_queda_esperando)
{
    herramienta trace({"trace", "--all"}, con_consola());
    trace.espera_error(RECOGIENDO, 15000);
    mutex_crudo turno("DBWinMutex", mutex_crudo::modo::crea);
    ASSERT_TRUE(turno.retiene(10000));
    HANDLE libre = OpenEventA(SYNCHRONIZE, FALSE, "DBWIN_BUFFER_READY"),
           listo = OpenEventA(EVENT_MODIFY_STATE, FALSE, "DBWIN_DATA_READY");
    HANDLE mapa = OpenFileMappingA(FILE_MAP_WRITE, FALSE, "DBWIN_BUFFER");
    char *vista = static_cast<char *>(MapViewOfFile(mapa, FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_TRUE(libre != nullptr && listo != nullptr && vista != nullptr);
    trace.pulsa_ctrl_c();
    size_t num = 0;
    for (uint64_t hasta = GetTickCount64() + 500; GetTickCount64() < hasta; num++) {
        ASSERT_EQ(WaitForSingleObject(libre, 5000), WAIT_OBJECT_0) << "piece " << num;
        DWORD pid = GetCurrentProcessId();
        memcpy(vista, &pid, sizeof pid);
        strcpy(vista + sizeof pid, "trozo\n");
        SetEvent(listo);
        Sleep(10); // the pace of what is written, not a wait
    }
    turno.suelta();
    EXPECT_EQ(trace.espera_fin(15000), 0u);
    EXPECT_EQ(lineas_de(trace.salida(), GetCurrentProcessId()), std::vector<std::string>(num, "trozo"));
    UnmapViewOfFile(vista);
    for (HANDLE h : {mapa, libre, listo})
        CloseHandle(h);
}

TEST(ctl_trace, un_fichero_que_no_se_puede_escribir_termina_con_73)
{
    salida_de s = ejecuta_ctl({"trace", "--out", "C:\\no such folder\\traza.txt", "--for", "1"});
    EXPECT_EQ(s.codigo, 73u);
    EXPECT_NE(s.error.find("ivrexactl trace: cannot write \"C:\\\\no such folder\\\\traza.txt\""), std::string::npos)
        << s.error;
    EXPECT_EQ(s.error.find(RECOGIENDO), std::string::npos);
}

// A disk that is full later on: under Wine the host has a device that always is.
TEST(ctl_trace, un_disco_que_se_llena_termina_con_73)
{
    const std::string LLENO = "\\\\?\\unix\\dev\\full";
    if (GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") == nullptr)
        GTEST_SKIP() << "only Wine has it";
    herramienta trace({"trace", "--all", "--out", LLENO, "--for", "60"});
    trace.espera_error(RECOGIENDO, 15000);
    OutputDebugStringA("one line\n");
    EXPECT_EQ(trace.espera_fin(15000), 73u);
    EXPECT_NE(trace.error().find("\\dev\\\\full\" cannot be written any more"), std::string::npos) << trace.error();
}

TEST(ctl_trace, argumentos_sin_sentido_terminan_con_64)
{
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"trace", "--pid", "x"}, {"trace", "--for", "-1"}, {"trace", "--out"}, {"trace", "y"}})
        EXPECT_EQ(ejecuta_ctl(args).codigo, 64u) << args.back();
    EXPECT_EQ(ejecuta_ctl({"trace", "--pid", "x"}).error,
              "ivrexactl trace: --pid: \"x\" is no process id; 'ivrexactl trace --help' says more\n");
    EXPECT_EQ(ejecuta_ctl({"trace", "--for", "0"}).error,
              "ivrexactl trace: --for: \"0\" is no number of seconds above 0; 'ivrexactl trace --help' says more\n");
}
