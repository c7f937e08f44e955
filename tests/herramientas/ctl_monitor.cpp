// ctl_monitor.cpp - ivrexactl monitor, with real servers and clients.
#include <algorithm>
#include <set>

#include <nlohmann/json.hpp>

#include "dll_conversa.h"
#include "herramienta.h"

using nlohmann::json;

// ---- Roles

// Saves input blocks as fast as it can, each an activity: "RAFAGA n" -> "HECHO first last", the ids of the blocks.
static int obedece_rafaga(const char *linea)
{
    static std::string s_servicio;
    if (strncmp(linea, "SERVICIO ", 9) == 0) {
        s_servicio = linea + 9;
        return 1;
    }
    if (strncmp(linea, "RAFAGA ", 7) != 0)
        return anfitrion_obedece_cliente(linea);
    uint32_t num = static_cast<uint32_t>(atoi(linea + 7)), primero = 0, ultimo = 0;
    for (uint32_t i = 0; i < num; i++) {
        comdat *datos = ivrexa_crea_datos_comando_entrada(s_servicio.c_str());
        ivrexa_graba_ulong(datos, "i", i);
        ultimo = ivrexa_guarda_datos(datos);
        primero = i == 0 ? ultimo : primero;
        ivrexa_destruye_datos_comando(datos);
    }
    papel_c_di("HECHO %u %u", primero, ultimo);
    return 1;
}

PAPEL(rafagas)
{
    const char *servicio = args[0].c_str();
    anfitrion_lee_servicios(servicio);
    anfitrion_nace(0);
    ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, nullptr, servicio);
    obedece_rafaga(("SERVICIO " + args[0]).c_str());
    papel_c_di("LISTO");
    anfitrion_vive(obedece_rafaga);
    ivrexa_cierra_sesion();
    return 0;
}

// Another monitor: registers, and unregisters at the line "QUITA".
PAPEL(otro_monitor)
{
    HWND hwnd = crea_ventana();
    ivrexa_registra_monitor(
        hwnd, [](uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {},
        [](const iv_mcbase_t *, const datServ *, uint32_t, void *) {},
        [](const iv_mcbase_t *, const datServ *, uint32_t, void *) {}, nullptr);
    yo.di("LISTO");
    while (std::optional<std::string> linea = bombea_hasta_linea(yo, 60000)) {
        if (*linea == "QUITA")
            ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        yo.di("HECHO");
    }
    return 0;
}

// ---- What tests share

static opciones_herramienta con_consola()
{
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    return opciones;
}

// The program that `con_consola` starts is another's child; its window tells its process.
static DWORD pid_del_monitor()
{
    bloque_crudo registro("Ivrexa_MCB");
    DWORD pid = 0;
    GetWindowThreadProcessId(reinterpret_cast<HWND>(registro.u64(6)), &pid);
    return pid;
}

class suspendido {
public:
    explicit suspendido(DWORD pid) : m_proceso(OpenProcess(PROCESS_ALL_ACCESS, FALSE, pid))
    {
        llama("NtSuspendProcess");
    }
    ~suspendido()
    {
        llama("NtResumeProcess");
        CloseHandle(m_proceso);
    }

private:
    void llama(const char *nombre)
    {
        auto f = reinterpret_cast<LONG(NTAPI *)(HANDLE)>(
            reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("ntdll.dll"), nombre)));
        EXPECT_EQ(f(m_proceso), 0) << nombre;
    }
    HANDLE m_proceso;
};

struct rafaga {
    uint32_t primero = 0, ultimo = 0;
};

static void pide_rafaga(papel &p, uint32_t num)
{
    p.di("RAFAGA " + std::to_string(num));
}

static rafaga espera_rafaga(papel &p)
{
    rafaga r;
    sscanf(p.espera_linea("HECHO ", 90000).c_str(), "HECHO %u %u", &r.primero, &r.ultimo);
    return r;
}

static std::vector<json> sucesos(const std::string &salida)
{
    std::vector<json> todos;
    for (const std::string &linea : en_lineas(salida))
        todos.push_back(json::parse(linea));
    return todos;
}

static std::vector<uint32_t> bloques_guardados(const std::vector<json> &todos)
{
    std::vector<uint32_t> bloques;
    for (const json &s : todos)
        if (s.value("kind", "") == "input" && s.value("event", "") == "input saved")
            bloques.push_back(s["block"].get<uint32_t>());
    return bloques;
}

static uint64_t perdidos(const std::vector<json> &todos)
{
    uint64_t num = 0;
    for (const json &s : todos)
        num += s.value("kind", "") == "gap" ? s["lost"].get<uint64_t>() : 0;
    return num;
}

static std::vector<std::string> acaba_monitor(herramienta &monitor, uint32_t codigo = 0, lugar donde = lugar::aqui())
{
    monitor.pulsa_ctrl_c();
    EXPECT_EQ(monitor.espera_fin(20000, donde), codigo) << monitor.error();
    return en_lineas(monitor.salida());
}

// The library's objects live while somebody holds them: the tests' process holds the registry.
class ctl_monitor : public ::testing::Test {
protected:
    void SetUp() override
    {
        vacia_registro();
        m_hwnd = crea_ventana();
    }
    void TearDown() override { destruye_ventana(&m_hwnd); }

    const std::string servicio = nombre_unico("Calc");
    HWND m_hwnd = nullptr;
};

// ---- Its place

TEST_F(ctl_monitor, dice_lo_que_vacia_muestra_el_trafico_y_deja_su_sitio)
{
    papel antes = arranca_servidor("ventana", servicio + "_antes");
    bloque_crudo registro("Ivrexa_MCB");
    herramienta monitor({"monitor"}, con_consola());
    monitor.espera_error("Watching", 15000);
    EXPECT_NE(monitor.error().find("Registering a monitor empties the desktop's service table. 1 service leaves it: " +
                                   servicio + "_antes.\n"),
              std::string::npos)
        << monitor.error();
    EXPECT_NE(registro.u64(6), 0u);
    EXPECT_EQ(despl_servicio(registro, servicio + "_antes"), 0u);

    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    cliente.di("ECO 0");
    cliente.espera_linea("SALIDA", 30000);
    monitor.espera_salida("output opened", 15000);
    acaba(cliente);
    acaba(servidor);
    monitor.espera_salida("service closed", 15000);
    std::vector<std::string> lineas = acaba_monitor(monitor), dichas;
    EXPECT_EQ(registro.u64(6), 0u) << "hwnd_monitor";
    for (size_t i = 0; i < 16; i++)
        EXPECT_EQ(registro.u16(1430 + i * 274 + 268), 0u) << "es_monitor of entry " << i;
    for (const std::string &linea : lineas) {
        ASSERT_GT(linea.size(), 14u) << linea;
        EXPECT_EQ(linea.substr(2, 1) + linea.substr(5, 1) + linea.substr(8, 1) + linea.substr(12, 2), "::.  ") << linea;
        dichas.push_back(linea.substr(14));
    }
    std::string s = servicio + std::string(servicio.size() < 20 ? 20 - servicio.size() : 0, ' ') + "  ";
    EXPECT_EQ(dichas,
              (std::vector<std::string>{
                  "server   " + s + "service offered", "client   " + s + "input saved, block 100",
                  "client   " + s + "command begins, command 100, block 100",
                  "server   " + s + "input opened, block 100", "server   " + s + "output saved, command 100, block 101",
                  "client   " + s + "command ends, command 100, block 100",
                  "client   " + s + "output opened, block 101", "server   " + s + "service closed"}));
    EXPECT_NE(monitor.error().find("\n8 activities, 0 lost; 8 events shown\n"), std::string::npos) << monitor.error();
    acaba(antes);
}

// What the start says of the services that left the table.
TEST_F(ctl_monitor, un_servicio_que_salio_de_la_tabla_sigue_y_vuelve_con_un_cliente)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel viejo = arranca_cliente("sin_ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    herramienta monitor({"monitor", "--count", "2"});
    monitor.espera_error("Watching", 15000);
    char hallado[64] = "";
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), 1) << "found by its whole name";
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), hallado, nullptr), 0) << "not by a prefix";
    viejo.di("COMANDO 121");
    EXPECT_EQ(viejo.espera_linea("RESULTADO", 15000), "RESULTADO 1") << "its commands run";
    papel nuevo = arranca_cliente("sin_ventana", servicio);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), hallado, nullptr), 1);
    EXPECT_EQ(monitor.salida(), "") << "the command before was not seen";
    viejo.di("COMANDO 122");
    EXPECT_EQ(viejo.espera_linea("RESULTADO", 15000), "RESULTADO 2");
    EXPECT_EQ(monitor.espera_fin(15000), 0u);
    EXPECT_NE(monitor.salida().find("command begins, command 122"), std::string::npos) << monitor.salida();
    EXPECT_NE(monitor.salida().find("command ends, command 122"), std::string::npos) << monitor.salida();
}

TEST_F(ctl_monitor, con_otro_monitor_termina_con_75_y_con_replace_lo_desplaza)
{
    papel otro = arranca_papel("otro_monitor");
    bloque_crudo registro("Ivrexa_MCB");
    uint64_t suyo = registro.u64(6);
    salida_de s = ejecuta_ctl({"monitor"});
    EXPECT_EQ(s.codigo, 75u);
    EXPECT_NE(
        s.error.find("ivrexactl monitor: the desktop has a monitor already (herramientas_ctl_monitor.exe, process " +
                     std::to_string(otro.pid()) + ")"),
        std::string::npos)
        << s.error;
    EXPECT_EQ(registro.u64(6), suyo);

    herramienta primero({"monitor", "--replace"}, con_consola());
    primero.espera_error("Watching", 15000);
    EXPECT_NE(registro.u64(6), suyo);
    herramienta segundo({"monitor", "--replace"}, con_consola());
    segundo.espera_error("Watching", 15000);
    uint64_t del_segundo = registro.u64(6);
    EXPECT_EQ(primero.espera_fin(15000), 75u);
    EXPECT_NE(primero.error().find(
                  "ivrexactl monitor: another program has taken the monitor's place (ivrexactl.exe, process "),
              std::string::npos)
        << primero.error();
    EXPECT_EQ(registro.u64(6), del_segundo) << "who was replaced leaves the other one's registration alone";

    otro.di("QUITA"); // it still has the registry open: that ends the desktop's monitor, whoever it is
    otro.espera_linea("HECHO", 15000);
    EXPECT_EQ(segundo.espera_fin(15000), 75u);
    EXPECT_NE(segundo.error().find("ivrexactl monitor: another program has ended the desktop's monitor"),
              std::string::npos)
        << segundo.error();
}

// A monitor that died leaves its window's number behind.
TEST_F(ctl_monitor, un_monitor_muerto_no_estorba)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    papel otro = arranca_papel("otro_monitor");
    otro.mata();
    EXPECT_NE(registro.u64(6), 0u);
    salida_de s = ejecuta_ctl({"monitor", "--for", "0.3"});
    EXPECT_EQ(s.codigo, 0u) << s.error;
    EXPECT_NE(s.error.find("No service stands in it.\n"), std::string::npos) << s.error;
    EXPECT_NE(s.error.find("\n0 activities, 0 lost; 0 events shown\n"), std::string::npos) << s.error;
}

// ---- What others keep it from

static const char *const RETENIDO = "a program holds the registry and does not go on";

TEST_F(ctl_monitor, un_registro_que_alguien_retiene_al_empezar_termina_con_75)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    mutex_crudo mutex("Ivrexa_Mutex_MCB", mutex_crudo::modo::crea);
    ASSERT_TRUE(mutex.retiene(5000));
    salida_de s = ejecuta_ctl({"monitor"}, 20000);
    EXPECT_EQ(s.codigo, 75u);
    EXPECT_EQ(s.error, std::string("ivrexactl monitor: ") + RETENIDO + "; it shows a box, or stands in a debugger\n");
    EXPECT_EQ(registro.u64(6), 0u) << "hwnd_monitor";
    mutex.suelta();
    EXPECT_EQ(ejecuta_ctl({"monitor", "--for", "0.1"}).codigo, 0u);
}

TEST_F(ctl_monitor, un_registro_retenido_mientras_vigila_no_lo_cuelga_tras_ctrl_c)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    herramienta monitor({"monitor"}, con_consola());
    monitor.espera_error("Watching", 15000);
    mutex_crudo mutex("Ivrexa_Mutex_MCB");
    ASSERT_TRUE(mutex.retiene(5000));
    monitor.pulsa_ctrl_c();
    EXPECT_EQ(monitor.espera_fin(15000), 75u);
    EXPECT_NE(monitor.error().find(std::string("ivrexactl monitor: ") + RETENIDO +
                                   "; ended without giving the monitor's place back."),
              std::string::npos)
        << monitor.error();
    mutex.suelta();
    EXPECT_EQ(ejecuta_ctl({"monitor", "--for", "0.1"}).codigo, 0u) << "its place is free";
}

TEST_F(ctl_monitor, un_registro_de_otro_tamanyo_termina_con_69_y_se_queda_como_esta)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    registro.pon_cabecera(10);
    std::vector<uint8_t> antes = registro.bytes(0, 4000);
    salida_de s = ejecuta_ctl({"monitor", "--for", "1"});
    EXPECT_EQ(s.codigo, 69u);
    EXPECT_EQ(s.error, "ivrexactl monitor: the registry is damaged; end all programs that use the library\n");
    EXPECT_EQ(registro.bytes(0, 4000), antes);
}

// ---- Nothing is lost, or it is told

TEST_F(ctl_monitor, tres_clientes_a_la_vez_y_ningun_suceso_se_pierde)
{
    const uint32_t NUM = 100;
    std::vector<std::string> nombres = {servicio + "_1", servicio + "_2", servicio + "_3"};
    herramienta monitor({"monitor", "--json", "--kind", "input"}, con_consola());
    monitor.espera_error("Watching", 15000);
    papel servidor = arranca_servidor("ventana", nombres[0] + "," + nombres[1] + "," + nombres[2]);
    std::vector<papel> clientes;
    for (const std::string &nombre : nombres)
        clientes.push_back(arranca_papel("rafagas", {nombre}));
    for (papel &c : clientes)
        pide_rafaga(c, NUM);
    for (papel &c : clientes)
        espera_rafaga(c);
    espera_hasta([&] { return en_lineas(monitor.salida()).size() >= 3 * NUM; }, 20000);
    acaba_monitor(monitor);
    std::vector<json> todos = sucesos(monitor.salida());
    EXPECT_EQ(perdidos(todos), 0u) << monitor.error();
    EXPECT_EQ(todos.size(), 3 * NUM);
    for (const std::string &nombre : nombres) {
        std::vector<json> suyos;
        std::copy_if(todos.begin(), todos.end(), std::back_inserter(suyos),
                     [&](const json &s) { return s.value("service", "") == nombre; });
        std::vector<uint32_t> bloques = bloques_guardados(suyos);
        ASSERT_EQ(bloques.size(), NUM) << nombre;
        for (uint32_t i = 0; i < NUM; i++)
            ASSERT_EQ(bloques[i], bloques[0] + i) << nombre << ", event " << i;
    }
    EXPECT_NE(monitor.error().find("\n303 activities, 0 lost; 300 events shown\n"), std::string::npos)
        << monitor.error();
}

// As many programs would write them, on a quicker machine: a thousand in a second, in the ring and in the queue.
static void escribe_actividades(bloque_crudo &registro, size_t ind_datServ, uint32_t primero, uint32_t num)
{
    const uint64_t desde_ms = GetTickCount64();
    for (uint32_t i = 0; i < num;) {
        uint32_t toca = static_cast<uint32_t>(GetTickCount64() - desde_ms);
        for (uint32_t seguidos = 0; i < num && i < toca && seguidos < 20; i++, seguidos++) {
            uint32_t n = registro.u32(18);
            registro.pon_u32(18, n == 63 ? 1 : n + 1);
            size_t despl = 22 + (n - 1) * 22;
            const uint32_t campos[] = {static_cast<uint32_t>(ind_datServ), 0, primero + i, 1, 3};
            for (size_t c = 0; c < 5; c++)
                registro.pon_u32(despl + 4 * c, campos[c]);
            registro.pon_u16(despl + 20, 1);
            PostMessageW(reinterpret_cast<HWND>(registro.u64(6)), registro.u32(14), 0, static_cast<LPARAM>(n));
        }
        Sleep(1); // the pace of what is written, not a wait
    }
}

// Whether all come depends on the machine, which may leave the tool aside for longer than 63 activities take; what is
// shown and what is told as lost is what was written, each time.
TEST_F(ctl_monitor, de_mil_sucesos_en_un_segundo_cada_uno_se_muestra_o_se_dice_perdido)
{
    const uint32_t NUM = 1000, NUM_EN_ANILLO = 63;
    bloque_crudo registro("Ivrexa_MCB", 8886);
    herramienta monitor({"monitor", "--json"}, con_consola());
    monitor.espera_error("Watching", 15000);
    registro.pon_texto(5814 + 3 * 96, servicio);
    uint64_t antes = GetTickCount64();
    escribe_actividades(registro, 3, 5000, NUM);
    uint64_t ms = GetTickCount64() - antes;
    acaba_monitor(monitor);
    std::vector<json> todos = sucesos(monitor.salida());
    std::vector<uint32_t> bloques = bloques_guardados(todos);
    EXPECT_EQ(bloques.size() + perdidos(todos), NUM) << monitor.error();
    EXPECT_GE(bloques.size(), NUM_EN_ANILLO) << "the ring still has the last ones";
    EXPECT_TRUE(std::is_sorted(bloques.begin(), bloques.end()));
    EXPECT_EQ(std::set<uint32_t>(bloques.begin(), bloques.end()).size(), bloques.size()) << "none twice";
    EXPECT_EQ(todos.back()["service"], servicio);
    std::cout << NUM << " activities in " << ms << " ms, " << perdidos(todos) << " lost\n";
}

TEST_F(ctl_monitor, comandos_rapidos_de_un_cliente_se_cuentan_todos)
{
    const uint32_t NUM = 100;
    herramienta monitor({"monitor", "--json", "--kind", "command", "--count", std::to_string(2 * NUM)});
    monitor.espera_error("Watching", 15000);
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    for (uint32_t i = 0; i < NUM; i++) {
        cliente.di("COMANDO " + std::to_string(120 + i % 10));
        EXPECT_EQ(cliente.espera_linea("RESULTADO", 15000), "RESULTADO " + std::to_string(i % 10));
    }
    EXPECT_EQ(monitor.espera_fin(15000), 0u);
    std::vector<json> todos = sucesos(monitor.salida());
    ASSERT_EQ(todos.size(), 2 * NUM);
    for (uint32_t i = 0; i < 2 * NUM; i++) {
        EXPECT_EQ(todos[i]["begins"], i % 2 == 0) << i;
        EXPECT_EQ(todos[i]["command"], 120 + i / 2 % 10) << i;
    }
}

// What it finds at its end: the last activities stand behind a message of somebody else's.
TEST_F(ctl_monitor, lo_ultimo_se_dice_aunque_haya_antes_un_mensaje_ajeno)
{
    const uint32_t NUM = 20;
    bloque_crudo registro("Ivrexa_MCB", 8886);
    herramienta monitor({"monitor", "--json"}, con_consola());
    monitor.espera_error("Watching", 15000);
    registro.pon_texto(5814 + 3 * 96, servicio);
    {
        suspendido parado(pid_del_monitor());
        PostMessageW(reinterpret_cast<HWND>(registro.u64(6)), WM_APP, 0, 0);
        escribe_actividades(registro, 3, 5000, NUM);
        monitor.pulsa_ctrl_c();
    }
    EXPECT_EQ(monitor.espera_fin(15000), 0u);
    EXPECT_EQ(bloques_guardados(sucesos(monitor.salida())).size(), NUM) << monitor.error();
}

// Its pipe has room for some pages.
TEST_F(ctl_monitor, un_lector_que_no_lee_no_lo_retiene_tras_ctrl_c)
{
    opciones_herramienta opciones = con_consola();
    opciones.con_lector_parado = true;
    bloque_crudo registro("Ivrexa_MCB", 8886);
    herramienta monitor({"monitor", "--json"}, opciones);
    monitor.espera_error("Watching", 15000);
    escribe_actividades(registro, 3, 5000, 1000);
    monitor.pulsa_ctrl_c();
    EXPECT_EQ(monitor.espera_fin(20000), 73u);
    EXPECT_NE(monitor.error().find("ivrexactl: nobody reads the output; ended without the rest of it\n"),
              std::string::npos)
        << monitor.error();
    EXPECT_EQ(registro.u64(6), 0u) << "the monitor's place is given back before";
}

// The ring has room for 63. A tool that stood still meanwhile, whole, shows those that are left and tells the others.
TEST_F(ctl_monitor, lo_que_el_anillo_ya_no_tiene_se_dice_y_un_filtro_no_lo_esconde)
{
    for (const char *filtro : {"*", "not this one"}) {
        const uint32_t NUM = 200;
        herramienta monitor({"monitor", "--json", "--service", filtro}, con_consola());
        monitor.espera_error("Watching", 15000);
        const std::string anillo = nombre_unico("Anillo");
        papel servidor = arranca_servidor("ventana", anillo);
        papel cliente = arranca_papel("rafagas", {anillo});
        if (filtro[0] == '*')
            monitor.espera_salida("service offered", 15000);
        rafaga r;
        {
            suspendido parado(pid_del_monitor());
            pide_rafaga(cliente, NUM);
            r = espera_rafaga(cliente);
        }
        monitor.espera_salida("\"gap\"", 15000);
        pide_rafaga(cliente, 3); // and then it goes on as if nothing had been
        rafaga despues = espera_rafaga(cliente);
        if (filtro[0] == '*')
            monitor.espera_salida("\"block\":" + std::to_string(despues.ultimo), 15000);
        acaba_monitor(monitor);
        std::vector<json> todos = sucesos(monitor.salida());
        std::vector<uint32_t> bloques = bloques_guardados(todos);
        EXPECT_EQ(perdidos(todos), NUM - 63) << monitor.error();
        EXPECT_NE(monitor.error().find("\n204 activities, 137 lost; "), std::string::npos) << monitor.error();
        if (filtro[0] != '*') {
            EXPECT_TRUE(bloques.empty());
            continue;
        }
        ASSERT_EQ(bloques.size(), 63u + 3);
        for (uint32_t i = 0; i < 63; i++)
            EXPECT_EQ(bloques[i], r.ultimo - 62 + i);
        EXPECT_EQ(todos[1].value("kind", ""), "gap");
    }
}

// ---- What is shown

TEST_F(ctl_monitor, los_filtros_eligen_servicios_y_clases)
{
    struct {
        std::vector<std::string> args;
        std::vector<std::string> esperados; // service and kind
    } casos[] = {
        {{"--service", "Filtro_a"}, {"Filtro_a service", "Filtro_a service"}},
        {{"--service", "?iltro_?", "--service", "filtro*"},
         {"Filtro_a service", "Filtro_b service", "Filtro_b service", "Filtro_a service"}},
        {{"--service", "*", "--kind", "command"}, {}},
        {{"--service", "*o_a", "--service", "Filtro_*c", "--kind", "command", "--kind", "service"},
         {"Filtro_a service", "Filtro_bc service", "Filtro_bc service", "Filtro_a service"}},
    };
    for (const auto &caso : casos) {
        std::vector<std::string> args = {"monitor", "--json"};
        args.insert(args.end(), caso.args.begin(), caso.args.end());
        herramienta monitor(args, con_consola());
        monitor.espera_error("Watching", 15000);
        papel servidor = arranca_servidor("ventana", "Filtro_a,Filtro_b,Filtro_bc");
        acaba(servidor);
        espera_hasta([&] { return en_lineas(monitor.salida()).size() >= caso.esperados.size(); }, 3000);
        acaba_monitor(monitor);
        std::multiset<std::string> dichos, esperados(caso.esperados.begin(), caso.esperados.end());
        for (const json &s : sucesos(monitor.salida()))
            dichos.insert(s["service"].get<std::string>() + " " + s["kind"].get<std::string>());
        EXPECT_EQ(dichos, esperados) << caso.args[1];
        EXPECT_NE(monitor.error().find("\n6 activities, 0 lost; "), std::string::npos) << monitor.error();
    }
}

TEST_F(ctl_monitor, con_data_salen_los_valores_mientras_el_bloque_vive)
{
    papel servidor = arranca_servidor("ventana", servicio); // numbers the blocks
    herramienta texto({"monitor", "--data", "--kind", "input"}, con_consola());
    texto.espera_error("Watching", 15000);
    ivrexa_registra_cliente_de_servicio("prueba", nullptr, servicio.c_str());
    comdat *datos = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    ivrexa_graba_ulong(datos, "a", 40);
    ivrexa_graba_cadena_ansi(datos, "nombre", "a\xf1o\n");
    uint32_t id = ivrexa_guarda_datos(datos);
    texto.espera_salida("nombre", 15000);
    std::vector<std::string> lineas = acaba_monitor(texto);
    ASSERT_EQ(lineas.size(), 3u) << texto.salida();
    EXPECT_NE(lineas[0].find("input saved, block " + std::to_string(id)), std::string::npos);
    EXPECT_EQ(lineas[1], "                a: ulong 40");
    EXPECT_EQ(lineas[2], "                nombre: ansi \"a\xc3\xb1o\\n\"");
    ivrexa_destruye_datos_comando(datos);

    herramienta en_json({"monitor", "--data", "--json", "--count", "3"});
    en_json.espera_error("Watching", 15000);
    ivrexa_cierra_sesion();
    // Puts the service back into the table.
    ivrexa_registra_cliente_de_servicio("prueba", nullptr, servicio.c_str());
    datos = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    ivrexa_graba_double(datos, "d", 2.5);
    id = ivrexa_guarda_datos(datos);
    en_json.espera_salida("\"values\"", 15000);
    ivrexa_destruye_datos_comando(datos);
    ivrexa_ejecuta_comando(servicio.c_str(), 300, 0, id, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_INFORME_DE(servidor, "iv_mcserv", "(shared_MCCom) != 0"); // the server looks for the block, too
    EXPECT_EQ(en_json.espera_fin(15000), 0u);
    std::vector<json> todos = sucesos(en_json.salida());
    ASSERT_EQ(todos.size(), 3u);
    EXPECT_EQ(todos[0]["values"], json::parse(R"([{"name":"d","type":"double","value":2.5}])"));
    EXPECT_EQ(todos[0]["side"], "client");
    EXPECT_EQ(todos[0]["n"], 1);
    EXPECT_EQ(todos[1]["event"], "command begins");
    EXPECT_EQ(todos[1]["gone"], true) << "the block is not there any more";
    EXPECT_EQ(todos[1].count("values"), 0u);
    ivrexa_cierra_sesion();
}

// The registry has no name any more for what left the table.
TEST_F(ctl_monitor, las_esperas_de_un_servicio_que_salio_de_la_tabla_llevan_su_nombre)
{
    papel servidor = arranca_servidor("sin_ventana", servicio);
    salida_de monitor = ejecuta_ctl({"monitor", "--json", "--count", "1"});
    EXPECT_EQ(monitor.codigo, 0u);
    std::vector<json> todos = sucesos(monitor.salida);
    ASSERT_EQ(todos.size(), 1u);
    EXPECT_EQ(todos[0]["service"], servicio);
    EXPECT_EQ(todos[0]["kind"], "wait");
    EXPECT_EQ(todos[0]["event"], "waits for a command");
}

TEST_F(ctl_monitor, argumentos_sin_sentido_terminan_con_64)
{
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"monitor", "--kind", "gap"}, {"monitor", "--count", "0"}, {"monitor", "--for", "x"}, {"monitor", "S"}})
        EXPECT_EQ(ejecuta_ctl(args).codigo, 64u) << args.back();
    EXPECT_EQ(
        ejecuta_ctl({"monitor", "--for", "0"}).error,
        "ivrexactl monitor: --for: \"0\" is no number of seconds above 0; 'ivrexactl monitor --help' says more\n");
    EXPECT_EQ(ejecuta_ctl({"monitor", "--count", "0"}).error,
              "ivrexactl monitor: --count: \"0\" is no whole number above 0; 'ivrexactl monitor --help' says more\n");
}
