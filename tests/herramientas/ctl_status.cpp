// ctl_status.cpp - ivrexactl status: what it shows of a desktop, and that it leaves no trace there.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "dll_monitor.h"
#include "herramienta.h"

using nlohmann::json;

namespace {

const uint32_t MS = 30000;

json en_json(const std::string &texto)
{
    json j = json::parse(texto, nullptr, false);
    EXPECT_FALSE(j.is_discarded()) << texto;
    return j.is_discarded() ? json::object() : j;
}

json estado(const std::vector<std::string> &mas = {}, lugar donde = lugar::aqui())
{
    std::vector<std::string> args = {"status", "--json"};
    args.insert(args.end(), mas.begin(), mas.end());
    salida_de s = ejecuta_ctl(args, MS, {}, donde);
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.error, "");
    EXPECT_EQ(en_lineas(s.salida).size(), 1u) << s.salida;
    return en_json(s.salida);
}

std::string texto(const std::vector<std::string> &mas = {"--no-wait"})
{
    std::vector<std::string> args = {"status"};
    args.insert(args.end(), mas.begin(), mas.end());
    salida_de s = ejecuta_ctl(args, MS);
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.error, "");
    return s.salida;
}

// The one that has `clave` so; null if none has.
json busca(const json &lista, const char *clave, const json &valor)
{
    for (const json &j : lista)
        if (j[clave] == valor)
            return j;
    ADD_FAILURE() << "no " << clave << " " << valor << " in " << lista;
    return json::object();
}

bool contiene(const std::string &todo, const std::string &parte)
{
    return todo.find(parte) != std::string::npos;
}

// Seconds of the last "silent for n s" in the text that is whole; 0 without one.
double callado_en(const std::string &todo)
{
    const std::string marca = "silent for ";
    size_t fin = todo.rfind(" s (count ");
    size_t sitio = fin == std::string::npos ? fin : todo.rfind(marca, fin);
    return sitio == std::string::npos ? 0 : std::stod(todo.substr(sitio + marca.size()));
}

// Handles are multiples of 4, and a new one takes a low free place. GetProcessHandleCount answers 0 under Wine.
uint32_t manejadores_de(uint32_t pid)
{
    uint32_t num = 0;
    HANDLE proceso = OpenProcess(PROCESS_DUP_HANDLE, FALSE, pid);
    for (uintptr_t i = 1; i <= 1024; i++) {
        HANDLE copia = nullptr;
        if (!DuplicateHandle(proceso, reinterpret_cast<HANDLE>(i * 4), GetCurrentProcess(), &copia, 0, FALSE,
                             DUPLICATE_SAME_ACCESS))
            continue;
        num++;
        CloseHandle(copia);
    }
    CloseHandle(proceso);
    return num;
}

size_t en_programa(size_t i, size_t campo)
{
    return 1430 + i * 274 + campo;
}

size_t en_servicio(size_t j, size_t campo)
{
    return 5814 + j * 96 + campo;
}

class ivrexactl_status : public testing::Test {
protected:
    ivrexactl_status() { vacia_registro(); }

    const std::string servicio = nombre_unico("Calc");
    const std::string canal = nombre_canal(servicio);
};

} // namespace

// ---- What there is

TEST_F(ivrexactl_status, sin_registro_lo_dice_y_termina_con_0)
{
    ASSERT_FALSE(existe_bloque("Ivrexa_MCB"));
    EXPECT_EQ(texto({}), "no program is registered on this desktop\n");
    json j = estado();
    EXPECT_TRUE(j["registry"].is_null());
    EXPECT_TRUE(j["monitor"].is_null());
    EXPECT_EQ(j["programs"], json::array());
    EXPECT_EQ(j["services"], json::array());
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
}

TEST_F(ivrexactl_status, muestra_programas_y_servicios_con_sus_lados_y_latidos)
{
    std::string otro = nombre_unico("Otro");
    papel servidor = arranca_servidor("ventana", servicio + "," + otro);
    std::string ventana = servidor.espera_linea("HWND ", MS).substr(5);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    json j;
    auto se_mueve_todo = [&] { // a machine that stalls shows one silent for a moment
        j = estado();
        for (const json &p : j["programs"])
            if (p["heartbeat"]["state"] != "moving")
                return false;
        return true;
    };
    EXPECT_TRUE(espera_hasta(se_mueve_todo, MS)) << j;
    EXPECT_EQ(j["registry"]["size"], 8886);
    EXPECT_EQ(j["registry"]["registrations"], 2);
    EXPECT_EQ(j["registry"]["problem"], nullptr);
    EXPECT_EQ(j["registry"]["torn"], false);
    EXPECT_EQ(j["tables"], (json{{"programs", {{"used", 2}, {"size", 16}}},
                                 {"services", {{"used", 2}, {"size", 32}}},
                                 {"unnamed_channels", 0}}));

    json s = busca(j["programs"], "path", ruta_de(servidor)), c = busca(j["programs"], "path", ruta_de(cliente));
    EXPECT_EQ(s["kinds"], json::array({"server"}));
    EXPECT_EQ(s["window"], std::stoull(ventana));
    EXPECT_EQ(s["window_exists"], true);
    EXPECT_EQ(s["pid"], servidor.pid());
    EXPECT_EQ(c["kinds"], json::array({"client"}));
    EXPECT_EQ(c["window"], nullptr);
    EXPECT_EQ(c["pid"], nullptr);

    json serv = busca(j["services"], "name", servicio);
    EXPECT_EQ(serv["index"], 0);
    EXPECT_EQ(serv["server"], (json{{"entry", s["entry"]}, {"program", ruta_de(servidor)}}));
    EXPECT_EQ(serv["client"], (json{{"entry", c["entry"]}, {"program", ruta_de(cliente)}}));
    EXPECT_EQ(serv["command"], nullptr);
    EXPECT_EQ(serv["channel"]["version"], 300);
    EXPECT_EQ(serv["channel"]["attached"], true);
    EXPECT_EQ(serv["channel"]["server_pid"], servidor.pid());
    EXPECT_EQ(serv["channel"]["server_state"]["name"], "waiting");
    EXPECT_EQ(busca(j["services"], "name", otro)["channel"]["version"], 301);
}

TEST_F(ivrexactl_status, en_texto_dice_lo_mismo_en_columnas)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    std::string t = texto();
    EXPECT_TRUE(contiene(t, "Registry: 8,886 bytes, registrations: 2\nPrograms: 2 of 16\n")) << t;
    EXPECT_TRUE(contiene(t, "  entry  program ")) << t;
    EXPECT_TRUE(contiene(t, "(pid " + std::to_string(servidor.pid()) + ")")) << t;
    EXPECT_TRUE(contiene(t, "not seen to move yet (count ")) << t;
    EXPECT_TRUE(contiene(t, "Services: 1 of 32\n  0  " + servicio + "\n       server   entry 0, " + ruta_de(servidor) +
                                "\n       client   entry 1, " + ruta_de(cliente) + "\n       version  300\n"))
        << t;
    EXPECT_TRUE(contiene(t, "states   server waiting; channel free; command state none\n")) << t;
    EXPECT_TRUE(contiene(t, "command  none\n")) << t;
    EXPECT_TRUE(contiene(t, "mailbox  free\nMonitor: none\n")) << t;
}

// The field for a client is 0 until one registers, and 0 is the server's entry.
TEST_F(ivrexactl_status, un_servicio_sin_cliente_y_un_nombre_sin_servidor_no_tienen_ninguno)
{
    std::string otro = nombre_unico("Otro");
    papel servidor = arranca_servidor("sin_ventana", servicio);
    json s = busca(estado({"--no-wait"})["services"], "name", servicio);
    EXPECT_EQ(s["server"], (json{{"entry", 0}, {"program", ruta_de(servidor)}}));
    EXPECT_EQ(s["client"], (json{{"entry", 0}, {"program", nullptr}}));
    std::string t = texto();
    EXPECT_TRUE(contiene(t, "server   entry 0, " + ruta_de(servidor) + "\n       client   none\n")) << t;
    EXPECT_TRUE(contiene(t, "; client has not waited\n")) << t;

    papel cliente = arranca_cliente("sin_ventana", otro); // enters a name that nobody serves
    s = busca(estado({"--no-wait"})["services"], "name", otro);
    EXPECT_EQ(s["server"], (json{{"entry", 0}, {"program", nullptr}}));
    EXPECT_EQ(s["client"], (json{{"entry", 1}, {"program", ruta_de(cliente)}}));
    t = texto();
    EXPECT_TRUE(contiene(t, "server   none\n       client   entry 1, " + ruta_de(cliente) + "\n")) << t;
}

TEST_F(ivrexactl_status, un_canal_que_la_tabla_no_nombra_tiene_el_servidor_de_su_ventana)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo("Ivrexa_MCB").pon_texto(en_servicio(0, 0), "");
    json j = estado({"--no-wait"});
    EXPECT_EQ(j["tables"]["unnamed_channels"], 1);
    json s = busca(j["services"], "name", servicio);
    EXPECT_EQ(s["server"], (json{{"entry", 0}, {"program", ruta_de(servidor)}}));
    EXPECT_EQ(s["client"], nullptr);
    std::string t = texto();
    std::string lineas = "\n       server   entry 0, " + ruta_de(servidor) + "\n       version  300\n";
    EXPECT_TRUE(contiene(t, "  -  " + servicio + lineas)) << t;
}

TEST_F(ivrexactl_status, un_canal_sin_registro_se_muestra_sin_tabla)
{
    bloque_crudo bloque(canal.c_str(), 2378);
    std::string t = texto();
    EXPECT_EQ(t.find("no program is registered on this desktop\nChannels that the table does not name"), 0u) << t;
    EXPECT_FALSE(contiene(t, " of 32")) << t;
    EXPECT_TRUE(contiene(t, "\n  -  " + servicio + "\n")) << t;
}

TEST_F(ivrexactl_status, muestra_un_comando_en_marcha_y_lo_que_espera_cada_lado)
{
    papel servidor = arranca_servidor("sin_ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    espera_latido(ruta_de(cliente));
    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", MS);
    json s = busca(estado({"--no-wait"})["services"], "name", servicio);
    EXPECT_EQ(s["command"], 103);
    EXPECT_EQ(s["channel"]["command"], 103);
    EXPECT_EQ(s["channel"]["command_state"]["name"], "executing");
    EXPECT_EQ(s["channel"]["server_state"]["name"], "executing");
    EXPECT_EQ(s["channel"]["occupancy"]["name"], "under way");
    EXPECT_EQ(s["server_waits"]["for"], "for a command");
    EXPECT_GT(s["server_waits"]["rounds"], 0); // it waited for the client's first heartbeat
    EXPECT_TRUE(contiene(texto(), "       command  103\n"));
    servidor.di("SIGUE");
    cliente.espera_linea("RESULTADO 1", MS);
    s = busca(estado({"--no-wait"})["services"], "name", servicio);
    EXPECT_EQ(s["command"], nullptr);
}

TEST_F(ivrexactl_status, muestra_al_monitor_y_los_canales_que_la_tabla_ya_no_nombra)
{
    papel servidor = arranca_servidor("sin_ventana", servicio);
    papel monitor = arranca_papel("monitor");
    std::string ventanas = monitor.espera_linea("HWND ", MS).substr(5);
    monitor.di("REGISTRA " + std::to_string(monitor_ENTERO));
    monitor.espera_linea("REGISTRADO", MS);
    // A server enters its name again with what it does next, but nothing is asked of it.
    json j = estado({"--no-wait"});
    EXPECT_EQ(j["monitor"]["ready"], true);
    EXPECT_EQ(j["monitor"]["pid"], monitor.pid());
    EXPECT_EQ(j["monitor"]["window"], std::stoull(ventanas));
    EXPECT_EQ(j["tables"]["services"]["used"], 0);
    EXPECT_EQ(j["tables"]["unnamed_channels"], 1);
    json s = busca(j["services"], "name", servicio);
    EXPECT_EQ(s["index"], nullptr);
    EXPECT_EQ(s["server"], nullptr);
    EXPECT_EQ(s["channel"]["attached"], true);
    std::string t = texto();
    EXPECT_TRUE(contiene(t, "Services: 0 of 32\nChannels that the table does not name")) << t;
    EXPECT_TRUE(contiene(t, "\n  -  " + servicio + "\n       version  300\n")) << t;
    EXPECT_TRUE(contiene(t, "\nMonitor: window 0x")) << t;
    EXPECT_TRUE(contiene(t, " (pid " + std::to_string(monitor.pid()) + "), herramientas_ctl_status.exe\n")) << t;
    EXPECT_EQ(j["monitor"]["program"], "herramientas_ctl_status.exe");
}

TEST_F(ivrexactl_status, un_programa_muerto_y_uno_parado_estan_callados_y_el_otro_no)
{
    papel muerto = arranca_servidor("ventana", servicio);
    papel parado = arranca_cliente("sin_ventana", servicio);
    papel vivo = arranca_cliente("sin_ventana", servicio);
    muerto.mata();
    parado.suspende();
    json programas;
    auto se_mueve = [&](const papel &p) { // a machine that stalls shows it silent for a moment
        programas = estado()["programs"];
        return busca(programas, "path", ruta_de(p))["heartbeat"]["state"] == "moving";
    };
    EXPECT_TRUE(espera_hasta([&] { return se_mueve(vivo); }, MS)) << programas;
    for (const papel *p : {&muerto, &parado}) {
        json latido = busca(programas, "path", ruta_de(*p))["heartbeat"];
        EXPECT_EQ(latido["state"], "silent");
        EXPECT_GE(latido["silent_s"].get<double>(), 2.6);
    }
    json m = busca(programas, "path", ruta_de(muerto));
    EXPECT_NE(m["window"], nullptr);
    EXPECT_EQ(m["window_exists"], false);
    EXPECT_EQ(m["pid"], nullptr);
    std::string t = texto({});
    EXPECT_TRUE(contiene(t, " (gone)  silent for ")) << t;
    EXPECT_GE(callado_en(t), 2.6) << t;
    parado.reanuda();
}

TEST_F(ivrexactl_status, con_watch_los_segundos_callados_crecen)
{
    papel muerto = arranca_servidor("sin_ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB"); // what keeps the entry
    muerto.mata();
    herramienta mirando({"status", "--watch", "0.2"});
    std::string antes = mirando.espera_salida("silent for ", MS);
    EXPECT_GE(callado_en(antes), 2.6) << antes;
    EXPECT_TRUE(espera_hasta([&] { return callado_en(mirando.salida()) >= callado_en(antes) + 1; }, MS))
        << mirando.salida();
    mirando.mata();
}

TEST_F(ivrexactl_status, con_watch_termina_con_73_cuando_ya_nadie_lee)
{
    herramienta mirando({"status", "--watch", "0.1"});
    mirando.espera_salida("==== look 2, ", MS);
    mirando.cierra_salida();
    EXPECT_EQ(mirando.espera_fin(MS), 73u);
    EXPECT_EQ(mirando.error(), "ivrexactl status: the output cannot be written any more\n");
}

// ---- It leaves no trace

TEST_F(ivrexactl_status, no_cambia_ni_un_byte_y_no_espera_a_ningun_cerrojo)
{
    papel servidor = arranca_servidor("sin_ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    espera_latido(ruta_de(cliente));
    bloque_crudo registro("Ivrexa_MCB"), bloque(canal.c_str());
    mutex_crudo del_registro("Ivrexa_Mutex_MCB"), del_servicio(("Mutex_Ivrexa_" + servicio).c_str()),
        interno(("Mutex_Ivrexa_" + servicio + "Interno").c_str(), mutex_crudo::modo::crea);
    ASSERT_TRUE(del_servicio.retiene(5000)); // the registry's last, as those who wait for another hold it shortly
    ASSERT_TRUE(interno.retiene(5000));
    ASSERT_TRUE(del_registro.retiene(5000));
    servidor.suspende(); // nobody else writes
    cliente.suspende();
    std::vector<uint8_t> antes = registro.bytes(0, 8886), canal_antes = bloque.bytes(0, 2378);
    json j = estado();
    EXPECT_EQ(j["registry"]["registrations"], 2);
    EXPECT_EQ(j["tables"]["programs"]["used"], 2);
    texto();
    texto({"--watch", "0.1", "--count", "5"});
    EXPECT_TRUE(bytes_iguales(antes, registro.bytes(0, 8886)));
    EXPECT_TRUE(bytes_iguales(canal_antes, bloque.bytes(0, 2378)));
    del_registro.suelta();
    interno.suelta();
    del_servicio.suelta();
    servidor.reanuda();
    cliente.reanuda();
}

TEST_F(ivrexactl_status, mirando_no_acumula_manejadores_ni_mantiene_vivo_ningun_bloque)
{
    papel servidor = arranca_servidor("ventana", servicio);
    herramienta mirando({"status", "--watch", "0.1", "--json"});
    auto espera_miradas = [&](size_t num) {
        return espera_hasta([&] { return en_lineas(mirando.salida()).size() >= num; }, MS);
    };
    ASSERT_TRUE(espera_miradas(5));
    uint32_t antes = manejadores_de(mirando.pid());
    ASSERT_TRUE(espera_miradas(30));
    EXPECT_GT(antes, 0u);
    EXPECT_LE(manejadores_de(mirando.pid()), antes + 3); // those of a look under way
    acaba(servidor);
    EXPECT_TRUE(espera_hasta([&] { return !existe_bloque("Ivrexa_MCB") && !existe_bloque(canal.c_str()); }, 10000));
    std::string todo = mirando.espera_salida("\"registry\":null", 10000);
    EXPECT_TRUE(contiene(todo, servicio));
    mirando.mata();
}

TEST_F(ivrexactl_status, lo_que_se_escribe_mientras_mira_puede_estar_roto_y_lo_dice)
{
    DWORD_PTR nuestros = 0, todos = 0;
    GetProcessAffinityMask(GetCurrentProcess(), &nuestros, &todos);
    if ((nuestros & (nuestros - 1)) == 0)
        GTEST_SKIP() << "with one processor nobody writes while the tool looks";
    bloque_crudo registro("Ivrexa_MCB", 8886);
    std::atomic<bool> sigue{true};
    std::vector<std::thread> escritores;
    for (int i = 0; i < 3; i++)
        escritores.emplace_back([&] {
            volatile uint32_t *numero = reinterpret_cast<volatile uint32_t *>(registro.datos() + 18);
            while (sigue)
                *numero = *numero + 1;
        });
    herramienta mirando({"status", "--watch", "0.1", "--json"});
    mirando.espera_salida("\"torn\":true", MS);
    mirando.mata();
    sigue = false;
    for (std::thread &escritor : escritores)
        escritor.join();
    EXPECT_EQ(estado({"--no-wait"})["registry"]["torn"], false);
}

// ---- Blocks of anybody's

TEST_F(ivrexactl_status, un_registro_de_otro_tamanyo_o_que_miente_se_muestra_como_lo_que_es)
{
    bloque_crudo registro("Ivrexa_MCB", 10);
    ASSERT_FALSE(registro.ya_existia());
    registro.pon_u16(4, 7);
    EXPECT_TRUE(contiene(texto(), "  problem  a registry has 8,886 bytes; this one says 10, and 10 are there: programs "
                                  "do not use it\nPrograms: 0 of 16\n"));
    EXPECT_EQ(estado({"--no-wait"})["registry"]["registrations"], 7);
    for (uint32_t mentira : {0u, 1u, 8885u, 8887u, 0x7fffffffu, 0xffffffffu}) {
        registro.pon_cabecera(mentira);
        json j = estado({"--no-wait"});
        EXPECT_EQ(j["registry"]["size"], mentira);
        EXPECT_TRUE(j["registry"]["problem"].is_string()) << j;
        EXPECT_LE(j["registry"]["readable"].get<uint32_t>(), 4092u); // a page without its header
    }
}

TEST_F(ivrexactl_status, un_canal_de_otro_tamanyo_o_que_miente_tambien)
{
    bloque_crudo registro("Ivrexa_MCB", 8886), corto(canal.c_str(), 30);
    registro.pon_texto(en_servicio(3, 0), servicio);
    corto.pon_u16(2, 77);
    json c = busca(estado({"--no-wait"})["services"], "index", 3)["channel"];
    EXPECT_EQ(c["size"], 30);
    EXPECT_EQ(c["version"], 77);
    EXPECT_EQ(c["attached"], false);
    EXPECT_TRUE(contiene(texto(), "problem  a channel has 2,378 bytes; this one says 30, and 30 are there: programs do "
                                  "not use it\n"));
    for (uint32_t mentira : {0u, 2377u, 0xffffffffu}) {
        corto.pon_cabecera(mentira);
        c = busca(estado({"--no-wait"})["services"], "index", 3)["channel"];
        EXPECT_EQ(c["size"], mentira);
        EXPECT_TRUE(c["problem"].is_string());
    }
}

TEST_F(ivrexactl_status, indices_y_estados_que_no_hay_se_muestran_sin_seguirlos)
{
    bloque_crudo registro("Ivrexa_MCB", 8886), bloque(canal.c_str(), 2378);
    const uint16_t indices[] = {16, 17, 65535, 5};
    const char *const dichos[] = {"none", "entry 17, which there is not", "entry 65535, which there is not",
                                  "gone (entry 5 is free)"};
    for (size_t i = 0; i < 4; i++) {
        registro.pon_texto(en_servicio(i, 0), i == 0 ? servicio : "s" + std::to_string(i));
        registro.pon_u16(en_servicio(i, 64), indices[i]);
        registro.pon_u16(en_servicio(i, 66), indices[3 - i]);
    }
    registro.pon_u32(en_servicio(0, 68), 9);
    registro.pon_u32(en_servicio(0, 72), 0xffffffff);
    registro.pon_u32(en_servicio(0, 84), 0xffffffff);
    for (size_t despl : {4, 30, 1198, 2362})
        bloque.pon_u32(despl, 1000000 + static_cast<uint32_t>(despl));
    bloque.pon_u16(28, 7);
    bloque.pon_u64(16, 0xdeadbeefdeadbeef);
    std::string t = texto();
    for (size_t i = 0; i < 4; i++)
        EXPECT_TRUE(contiene(t, std::string("server   ") + dichos[i] + "\n       client   " + dichos[3 - i])) << t;
    EXPECT_TRUE(contiene(t, "states   server ?1000030, ended: ?7; channel ?1001198; command state ?1000004\n")) << t;
    EXPECT_TRUE(contiene(t, "waits    server ?9, 4,294,967,295 rounds; client ?4294967295, 0 rounds\n")) << t;
    registro.pon_texto(en_servicio(9, 0), "s9"); // as a new name is: both are 0
    EXPECT_TRUE(contiene(texto(), "server   none, or gone (entry 0 is free)\n"));
    EXPECT_TRUE(contiene(t, "windows  server 0xdeadbeefdeadbeef (gone), client none\n")) << t;
    EXPECT_TRUE(contiene(t, "mailbox  ?1002362: client 0, datum 0, no block\n")) << t;
    json s = busca(estado({"--no-wait"})["services"], "index", 2);
    EXPECT_EQ(s["server"], (json{{"entry", 65535}, {"program", nullptr}}));
    EXPECT_EQ(s["channel"], nullptr);
}

TEST_F(ivrexactl_status, los_caracteres_de_control_de_un_nombre_no_rompen_ninguna_linea)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    size_t num_lineas[2];
    for (int con : {0, 1}) {
        registro.pon_texto(en_programa(2, 0), con ? "C:\\x\\a\r\nb\x1b[2J\x90\x7f.exe" : "C:\\x\\a.exe");
        registro.pon_texto(en_servicio(1, 0), con ? "s\n  9  otro\tfin" : "s");
        registro.pon_u16(en_servicio(1, 64), 2);
        std::string t = texto();
        num_lineas[con] = en_lineas(t).size();
        for (char c : t)
            EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << t;
        if (con) {
            EXPECT_TRUE(contiene(t, "a\\r\\nb\\x1b[2J")) << t;
            EXPECT_TRUE(contiene(t, "  1  s\\n  9  otro\\tfin\n")) << t;
        }
    }
    EXPECT_EQ(num_lineas[0], num_lineas[1]);
    json j = estado({"--no-wait"});
    EXPECT_EQ(j["services"][0]["name"], "s\n  9  otro\tfin");
    registro.pon_bytes(en_programa(2, 0), std::vector<uint8_t>(256, 'p')); // names without an end
    registro.pon_bytes(en_servicio(1, 0), std::vector<uint8_t>(64, 's'));
    j = estado({"--no-wait"});
    EXPECT_EQ(j["programs"][0]["path"], std::string(256, 'p'));
    EXPECT_EQ(j["services"][0]["name"], std::string(64, 's'));
}

TEST_F(ivrexactl_status, dice_lo_llena_que_esta_cada_tabla_lo_que_hay_en_un_buzon_y_quien_espera)
{
    bloque_crudo registro("Ivrexa_MCB", 8886), bloque(canal.c_str(), 2378);
    for (size_t i = 5; i < 16; i++) {
        registro.pon_texto(en_programa(i, 0), "C:\\p\\prog" + std::to_string(i) + ".exe");
        for (size_t clase : {264, 266, 268})
            registro.pon_u16(en_programa(i, clase), 1);
    }
    registro.pon_texto(en_servicio(0, 0), servicio);
    for (size_t j = 1; j < 32; j++)
        registro.pon_texto(en_servicio(j, 0), "s" + std::to_string(j));
    const uint32_t esperas[] = {1, 12, 0, 203, 3, 1, 0};
    for (size_t i = 0; i < 7; i++)
        registro.pon_u32(en_servicio(0, 68 + 4 * i), esperas[i]);
    const uint32_t buzon[] = {1, 2, 7, 105};
    for (size_t i = 0; i < 4; i++)
        bloque.pon_u32(2362 + 4 * i, buzon[i]);
    std::string t = texto();
    EXPECT_TRUE(contiene(t, "Programs: 11 of 16\n")) << t;
    EXPECT_TRUE(contiene(t, "prog15.exe  server,client,monitor  none")) << t;
    EXPECT_FALSE(contiene(t, "C:\\p")) << t;
    EXPECT_TRUE(contiene(t, "Services: 32 of 32\n")) << t;
    EXPECT_TRUE(contiene(t, "mailbox  written: client 2, datum 7, block 105\n")) << t;
    EXPECT_TRUE(contiene(t, "       channel  none\n")) << t;
    EXPECT_TRUE(contiene(t, "command  203 (none in the channel)\n       waits    server for a command, 12 rounds; "
                            "client for the server to finish, 1 round\n"))
        << t;
}

// ---- Again and again

TEST_F(ivrexactl_status, con_watch_separa_cada_mirada_y_con_json_es_una_linea)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    std::vector<std::string> lineas = en_lineas(texto({"--watch", "0.1", "--count", "3"}));
    size_t num = 0;
    for (size_t i = 0; i < lineas.size(); i++)
        if (contiene(lineas[i], "==== look ")) {
            num++;
            EXPECT_TRUE(contiene(lineas[i], "==== look " + std::to_string(num) + ", ")) << lineas[i];
            EXPECT_EQ(i == 0 || lineas[i - 1].empty(), true);
        }
    EXPECT_EQ(num, 3u);
    salida_de s = ejecuta_ctl({"status", "--json", "--count", "2", "--watch"}); // each second
    ASSERT_EQ(en_lineas(s.salida).size(), 2u) << s.salida << s.error;
    for (const std::string &linea : en_lineas(s.salida))
        EXPECT_EQ(en_json(linea)["registry"]["size"], 8886);
}

TEST_F(ivrexactl_status, ctrl_c_termina_con_0)
{
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    herramienta mirando({"status", "--watch", "100"}, opciones);
    mirando.espera_salida("no program is registered", MS);
    mirando.pulsa_ctrl_c();
    EXPECT_EQ(mirando.espera_fin(10000), 0u);
    EXPECT_EQ(mirando.error(), "");
}

TEST_F(ivrexactl_status, argumentos_sin_sentido_terminan_con_64)
{
    for (const std::vector<std::string> &mas : std::vector<std::vector<std::string>>{{"--watch", "x"},
                                                                                     {"--watch", "0"},
                                                                                     {"--watch", "-1"},
                                                                                     {"--watch", "1e9"},
                                                                                     {"--watch", "nan"},
                                                                                     {"--count", "3"},
                                                                                     {"--watch", "1", "--count", "0"},
                                                                                     {"--no-wait", "--watch"},
                                                                                     {"otro"}}) {
        std::vector<std::string> args = {"status"};
        args.insert(args.end(), mas.begin(), mas.end());
        salida_de s = ejecuta_ctl(args);
        EXPECT_EQ(s.codigo, 64u) << mas[0] << " " << (mas.size() > 1 ? mas[1] : "");
        EXPECT_EQ(s.salida, "");
        EXPECT_NE(s.error, "");
    }
}
