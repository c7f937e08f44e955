// ctl_doctor_programas.cpp - ivrexactl doctor: the registry, its monitor, its locks, and its table of programs.
#include <algorithm>

#include "doctor_apoyo.h"

// ---- Roles

static void al_actuar(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {}

static void al_rondar(const iv_mcbase_t *, const datServ *, uint32_t, void *) {}

// A client without a window under the path given: two of them share an entry.
PAPEL(tocayo)
{
    snprintf(anfitrion_yo.ruta, sizeof anfitrion_yo.ruta, "%s", args[0].c_str());
    anfitrion_lee_servicios(args[1].c_str());
    ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, nullptr, args[1].c_str());
    papel_c_di("LISTO");
    anfitrion_vive(anfitrion_obedece_cliente);
    ivrexa_cierra_sesion();
    return 0;
}

PAPEL(vigia)
{
    anfitrion_nace(1);
    ivrexa_registra_monitor(anfitrion_yo.hwnd, al_actuar, al_rondar, al_rondar, nullptr);
    papel_c_di("LISTO");
    anfitrion_vive(anfitrion_obedece_cliente);
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    return 0;
}

// A server that obeys DESTRUYE, which takes its window away, and DUERME, which leaves its messages alone.
PAPEL(torpe)
{
    return anfitrion_servidor_que("ventana", args[0].c_str(), [](const char *linea) {
        if (strcmp(linea, "DESTRUYE") == 0) {
            DestroyWindow(anfitrion_yo.hwnd);
            papel_c_di("DESTRUIDA");
            papel_c_escucha(anfitrion_yo.servicios[19], 64, anfitrion_PLAZO_MS);
        } else if (strcmp(linea, "DUERME") == 0) {
            papel_c_di("DUERME");
            papel_c_escucha(anfitrion_yo.servicios[19], 64, anfitrion_PLAZO_MS);
        } else {
            return anfitrion_obedece(linea);
        }
        return 0;
    });
}

// ---- The registry

TEST_F(doctor, cabecera_y_version_del_registro)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    registro.pon_cabecera(8000);
    comprueba_dice(espera_hallazgos({"registry-size"}, 1, false), "registry-size",
                   {"8,000 bytes", "8,886", "with the last"});
    registro.pon_cabecera(9000);
    comprueba_dice(espera_hallazgos({"registry-size"}, 0, false), "registry-size", {"another build"});
    registro.pon_cabecera(1000000);
    comprueba_dice(espera_hallazgos({"registry-size", "registry-header"}, 1, false), "registry-header", {"1,000,000"});
    registro.pon_cabecera(8886);
    comprueba_danyos(&registro, {{"tam_bloque", 0, bytes16(5), "registry-version", 1, "5, 0"},
                                 {"version", 2, bytes16(256), "registry-version", 1, "0, 256"}});
}

TEST_F(doctor, monitor_que_murio_y_monitor_que_miente)
{
    papel monitor = arranca_papel("vigia");
    bloque_crudo registro("Ivrexa_MCB");
    uint32_t mensaje = registro.u32(14);
    comprueba_danyos(&registro,
                     {{"number 0", 18, bytes32(0), "activity-number", 1, "1 to 63"},
                      {"number 64", 18, bytes32(64), "activity-number", 1, "is 64"},
                      {"kind", 22 + 4 * 22 + 16, bytes32(9), "activity-record", 0, "Number 5:"},
                      {"message", 14, bytes32(mensaje + 1), "monitor-message", 1, std::to_string(mensaje).c_str()},
                      {"no message", 14, bytes32(0), "monitor-message", 1, "died while it registered"}});
    monitor.mata();
    comprueba_dice(espera_hallazgos({"monitor-window-gone"}, 1, false), "monitor-window-gone",
                   {"Start a monitor again"});
    papel otro = arranca_papel("vigia");
    espera_sano(false);
}

TEST_F(doctor, cerrojo_del_registro_que_nadie_suelta)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel otro = arranca_servidor("sin_ventana", nombre_unico("otro"));
    mutex_crudo cerrojo("Ivrexa_Mutex_MCB");
    ASSERT_TRUE(cerrojo.retiene(5000));
    diagnostico d = espera_hallazgos({"registry-lock"}, 1, true); // nothing of programs that cannot count
    comprueba_dice(d, "registry-lock", {"Assert ivrexa", "Whether programs live cannot be told meanwhile"});
    EXPECT_EQ(d.todo["heartbeats_followed"], false);
    espera_sano(false); // without following it, nobody can tell
    cerrojo.suelta();
    espera_sano(true);
}

TEST_F(doctor, cerrojo_del_monton_que_nadie_suelta)
{
    papel servidor = arranca_servidor("ventana", servicio);
    mutex_crudo cerrojo("ivrexa_iv_mem");
    ASSERT_TRUE(cerrojo.retiene(5000));
    espera_hallazgos({"heap-lock"}, 1, true);
    cerrojo.abandona(); // the next to wait has it: that is nothing wrong
    espera_sano(true);
}

// Without the watcher of the tests a report stands until somebody closes it.
TEST_F(doctor, informe_que_espera_a_que_lo_cierren)
{
    std::string dll = este_programa();
    dll.resize(dll.find_last_of('\\') + 1);
    dll += "ivrexa.dll,ivrexa_cerrado_documento_de_cliente";
    papel otro = arranca_programa("C:\\windows\\system32\\rundll32.exe", {dll});
    EXPECT_TRUE(espera_hasta([] { return FindWindowW(L"#32770", L"Assert ivrexa") != nullptr; }, 15000));
    diagnostico d = espera_hallazgos({"report-box"}, 1, false);
    comprueba_dice(d, "report-box", {"process " + std::to_string(otro.pid()), "s_programa != NULL", "close it"});
    otro.mata();
    espera_sano(false);
}

// ---- Programs

TEST_F(doctor, cliente_sin_ventana_que_murio_deja_su_entrada)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    espera_sano(true);
    cliente.mata();
    diagnostico d = espera_hallazgos({"dead-entry"}, 1, true);
    comprueba_dice(d, "dead-entry", {ruta_de(cliente), "one of 16", "next program without a window that registers as"});
    espera_sano(false); // whoever has no window shows it by the heartbeat alone
}

TEST_F(doctor, programa_con_ventana_que_murio)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("ventana", servicio);
    cliente.mata();
    comprueba_dice(espera_hallazgos({"program-window-gone"}, 1, false), "program-window-gone",
                   {ruta_de(cliente), "is gone"});
    comprueba_dice(espera_hallazgos({"dead-entry"}, 1, true), "dead-entry",
                   {ruta_de(cliente), "its window is gone", "next program with a window"});
}

TEST_F(doctor, programa_suspendido)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("ventana", servicio);
    cliente.suspende();
    diagnostico d = espera_hallazgos({"program-stopped"}, 1, true);
    comprueba_dice(d, "program-stopped",
                   {ruta_de(cliente), "process " + std::to_string(cliente.pid()), "Let it go on"});
    cliente.reanuda();
    espera_sano(true);
}

TEST_F(doctor, programa_que_destruyo_su_ventana)
{
    papel servidor = arranca_papel("torpe", {servicio});
    espera_sano(true);
    servidor.di("DESTRUYE");
    servidor.espera_linea("DESTRUIDA", 5000);
    diagnostico d = espera_hallazgos({"program-window-gone", "service-abandoned"}, 1, true);
    comprueba_dice(d, "program-window-gone", {"its heartbeat moves", "give 0"});
}

// The system takes a window for hung when it has taken no message for 5 s.
TEST_F(doctor, ventana_que_no_toma_mensajes)
{
    papel servidor = arranca_papel("torpe", {servicio});
    servidor.di("DUERME");
    servidor.espera_linea("DUERME", 5000);
    diagnostico d;
    EXPECT_TRUE(espera_hasta([&] { return (d = llama_al_doctor(false)).ids().count("program-hung") != 0; }, 20000));
    EXPECT_EQ(d.codigo, 0u) << d.en_texto();
    EXPECT_EQ(d.ids(), std::set<std::string>{"program-hung"}) << d.en_texto();
}

TEST_F(doctor, tocayo_que_se_fue_deja_al_otro_sin_entrada)
{
    const std::string ruta = nombre_unico("tocayo");
    papel queda = arranca_papel("tocayo", {ruta, servicio}), se_va = arranca_papel("tocayo", {ruta, servicio});
    size_t despl;
    {
        bloque_crudo registro("Ivrexa_MCB");
        despl = despl_programa(registro, ruta);
    }
    espera_sano(true);
    acaba(se_va);
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_TRUE(espera_hasta([&] { return registro.u32(despl + 270) != 0; }, 5000));
    diagnostico d = espera_hallazgos({"program-cut-off"}, 1, true);
    comprueba_dice(d, "program-cut-off", {"under a path of its own"});
}

TEST_F(doctor, entradas_de_programa_estropeadas)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    size_t suyo = despl_programa(registro, ruta_de(cliente));
    std::vector<uint8_t> sin_fin(256, 'x'), copia = registro.bytes(suyo, 270);
    comprueba_danyos(&registro, {{"leftover", despl_entrada(12) + 256, bytes32(77), "program-leftover", 0, "entry 12"},
                                 {"no kind", suyo + 266, bytes16(0), "program-kinds", 1, "no server, no client"},
                                 {"kind 7", suyo + 266, bytes16(7), "program-kinds", 1, "neither 0 nor 1"},
                                 {"name", suyo, sin_fin, "program-name", 1, "256 bytes"},
                                 {"twice", despl_entrada(12), copia, "program-twice", 1, "stands in entry"}});
}

TEST_F(doctor, dos_entradas_de_un_proceso)
{
    papel servidor = arranca_servidor("ventana", servicio);
    HWND uno = crea_ventana(), dos = crea_ventana();
    bloque_crudo registro("Ivrexa_MCB");
    for (auto [i, hwnd] : {std::pair<uint32_t, HWND>{8, uno}, {9, dos}}) {
        registro.pon_texto(despl_entrada(i), "a" + std::to_string(i));
        registro.pon_u64(despl_entrada(i) + 256, reinterpret_cast<uint64_t>(hwnd));
        registro.pon_u16(despl_entrada(i) + 266, 1);
    }
    diagnostico d = espera_hallazgos({"program-same-process"}, 0, false);
    comprueba_dice(d, "program-same-process", {std::to_string(GetCurrentProcessId()), "\"a8\"", "\"a9\""});
    destruye_ventana(&uno);
    destruye_ventana(&dos);
}

TEST_F(doctor, tabla_de_programas_llena_y_casi_llena)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    auto ocupa = [&](uint32_t hasta) {
        for (uint32_t i = 1; i < hasta; i++) {
            registro.pon_texto(despl_entrada(i), "p" + std::to_string(i));
            registro.pon_u16(despl_entrada(i) + 266, 1);
        }
    };
    ocupa(13);
    espera_sano(false);
    ocupa(14);
    comprueba_dice(espera_hallazgos({"programs-full"}, 0, false), "programs-full", {"14 of 16"});
    ocupa(16);
    comprueba_dice(espera_hallazgos({"programs-full"}, 1, false), "programs-full", {"16 of 16", "Close sessions"});
}
