// dll_ejemplos.cpp - the programs of examples/, run as a user runs them: each a process, with a service as
// its one argument, or with none.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ivrexa.h"
#include "papel.h"
#include "servidores_malos.h"
#include "sistema.h"
#include "util.h"

namespace {

using lineas = std::vector<std::string>;

papel arranca_ejemplo(const char *nombre, const std::string &servicio)
{
    return arranca_programa(std::string(nombre) + ".exe", {servicio});
}

// The same for a server.
papel arranca_listo(const char *nombre, const std::string &servicio)
{
    papel p = arranca_ejemplo(nombre, servicio);
    EXPECT_EQ(p.espera_linea("", 30000), "ready: " + servicio);
    return p;
}

papel arranca_monitor(const std::string &servicio)
{
    papel p = arranca_ejemplo("monitor", servicio);
    EXPECT_EQ(p.espera_linea("", 30000), "ready: until " + servicio + " is closed, or Ctrl-C");
    return p;
}

// Those with this part in them, or those without, in their order.
lineas filtra(const lineas &todas, const std::string &parte, bool con_ella)
{
    lineas halladas;
    for (const std::string &linea : todas)
        if ((linea.find(parte) != std::string::npos) == con_ella)
            halladas.push_back(linea);
    return halladas;
}

lineas con(const lineas &todas, const std::string &parte)
{
    return filtra(todas, parte, true);
}

lineas sin(const lineas &todas, const std::string &parte)
{
    return filtra(todas, parte, false);
}

std::string enviado(uint32_t bloque)
{
    return "sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000, input block " + std::to_string(bloque);
}

const std::string SALIDA = "got  suma=42.5 bytes=1000 saludo=\"Hola, mundo\"";

const lineas DICE_EL_CLIENTE_EN_C = {
    enviado(100),
    "got  result 1: OK",
    "got  text 1 \"corto\"",
    "got  text 2 \"a\xC3\xB1o nuevo\"",
    "got  text 3 \"tercer texto\"",
    SALIDA,
};

// The second client of its server, whose blocks go on.
const lineas DICE_EL_CLIENTE = {
    enviado(102), "got  result 1, output block 103", "got  the three texts", SALIDA, "all came back as it was sent",
};

// What a server says of two commands: the same lines of each, but for the last, which names a block.
lineas dos_veces(lineas una, const std::string &ultima, const std::string &fin)
{
    lineas todas = una;
    todas.push_back(ultima + "101");
    todas.insert(todas.end(), una.begin(), una.end());
    todas.push_back(ultima + "103");
    todas.push_back(fin);
    return todas;
}

const lineas GOT_TODO = {
    "got  text \"corto\"",
    "got  text \"a\xC3\xB1o nuevo\"",
    "got  text \"tercer texto\"",
    "got  a=40 b=2.5 bytes=1000 palabras=3 \"Hola, mundo\"",
};
const std::string SENT_TODO = "sent suma=42.5 bytes=1000 and the three texts, output block ";
const std::string GOT_VENTANA = "got  a=40 b=2.5, \"Hola, mundo\", 1000 bytes, texts \"corto\" "
                                "\"a\xC3\xB1o nuevo\" \"tercer texto\"";

// The client in C leaves the server alone, the one in C++ ends it. Each waits 2.5 s for its heartbeat.
void cruzan_los_dos(const char *nombre_servidor, const lineas &dice_el_servidor)
{
    std::string servicio = nombre_unico("Ejemplo");
    papel servidor = arranca_listo(nombre_servidor, servicio);

    papel en_c = arranca_ejemplo("cliente_c", servicio);
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
    EXPECT_EQ(en_c.lineas(), DICE_EL_CLIENTE_EN_C);
    EXPECT_TRUE(servidor.vive());

    papel cliente = arranca_ejemplo("cliente", servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(cliente.lineas(), DICE_EL_CLIENTE);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.lineas(), dice_el_servidor);
}

uint32_t ejecuta(const std::string &servicio, uint32_t id_comando, uint32_t id_entrada)
{
    return ivrexa_ejecuta_comando(servicio.c_str(), id_comando, 0, id_entrada, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr);
}

// What a monitor says of one command over the service, the end of the server apart.
lineas vista_de_un_comando(const std::string &s)
{
    return {
        "server " + s + ": service offered",
        "client " + s + ": input saved, block 100",
        "client " + s + ": command begins, command 100, block 100",
        "server " + s + ": input opened, block 100",
        "server " + s + ": output saved, command 100, block 101",
        "client " + s + ": command ends, command 100, block 100",
        "client " + s + ": output opened, block 101",
        "server " + s + ": service closed",
    };
}

// Runs one command while the monitor watches; what it has said after its first line.
lineas vigila_comando(const std::string &servicio, const char *nombre_servidor)
{
    papel monitor = arranca_monitor(servicio);
    papel servidor = arranca_listo(nombre_servidor, servicio);
    papel cliente = arranca_ejemplo("cliente", servicio);

    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(monitor.espera_fin(30000), 0u);
    return monitor.lineas();
}

// ---- The window of servidor_ventana

struct busqueda {
    uint32_t pid;
    HWND hwnd;
};

BOOL CALLBACK mira_ventana(HWND hwnd, LPARAM dato)
{
    busqueda *b = reinterpret_cast<busqueda *>(dato);
    DWORD pid = 0;
    char clase[64] = "";
    GetWindowThreadProcessId(hwnd, &pid);
    GetClassNameA(hwnd, clase, sizeof clase);
    if (pid != b->pid || std::string(clase) != "servidor_ventana")
        return TRUE;
    b->hwnd = hwnd;
    return FALSE;
}

HWND ventana_de(const papel &p)
{
    busqueda b = {p.pid(), nullptr};
    EnumWindows(mira_ventana, reinterpret_cast<LPARAM>(&b));
    return b.hwnd;
}

std::vector<std::wstring> lineas_de(HWND lista)
{
    std::vector<std::wstring> todas;
    LRESULT cuantas = SendMessageW(lista, LB_GETCOUNT, 0, 0);
    for (LRESULT i = 0; i < cuantas; i++) {
        std::vector<wchar_t> texto(static_cast<size_t>(SendMessageW(lista, LB_GETTEXTLEN, i, 0)) + 1);
        SendMessageW(lista, LB_GETTEXT, i, reinterpret_cast<LPARAM>(texto.data()));
        todas.push_back(texto.data());
    }
    return todas;
}

// Starts a program in a console of its own and presses Ctrl-C there at the line "CTRL_C". The program speaks with
// our voice; its end is ours.
PAPEL(consola)
{
    STARTUPINFOA inicio = {};
    inicio.cb = sizeof inicio;
    inicio.dwFlags = STARTF_USESTDHANDLES;
    inicio.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    inicio.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    inicio.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    FreeConsole();
    if (!AllocConsole())
        return 125;
    std::string orden = "\"" + args[0] + "\" " + args[1];
    PROCESS_INFORMATION hijo = {};
    if (!CreateProcessA(nullptr, &orden[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &inicio, &hijo))
        return 126;
    SetConsoleCtrlHandler(nullptr, TRUE); // not before: a process inherits that it hears no Ctrl-C
    yo.escucha_linea("CTRL_C", 60000);
    GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
    DWORD codigo = 127;
    if (WaitForSingleObject(hijo.hProcess, 20000) == WAIT_OBJECT_0)
        GetExitCodeProcess(hijo.hProcess, &codigo);
    TerminateProcess(hijo.hProcess, 128);
    return static_cast<int>(codigo);
}

// A program in such a console; its first line is left.
papel arranca_en_consola(const char *nombre, const std::string &servicio)
{
    std::string nuestro = este_programa();
    std::string carpeta = nuestro.substr(0, nuestro.find_last_of("\\/") + 1);
    opciones_papel opciones;
    opciones.espera_listo = false;
    return arranca_papel("consola", {carpeta + nombre + ".exe", servicio}, opciones);
}

} // namespace

// ---- A command

TEST(ejemplos, los_dos_clientes_hablan_con_el_servidor_con_ventana)
{
    cruzan_los_dos("servidor_ventana", {GOT_VENTANA, GOT_VENTANA, "ended"});
}

TEST(ejemplos, los_dos_clientes_hablan_con_el_servidor_sin_ventana)
{
    cruzan_los_dos("servidor_sin_ventana", dos_veces(GOT_TODO, SENT_TODO, "ended after 2 commands"));
}

TEST(ejemplos, los_dos_clientes_hablan_con_el_servidor_de_consola)
{
    cruzan_los_dos("servidor_consola", dos_veces(GOT_TODO, SENT_TODO, "ended after 2 commands"));
}

TEST(ejemplos, los_dos_clientes_hablan_con_el_servidor_net)
{
    cruzan_los_dos("servidor_net",
                   dos_veces({"got  a=40 b=2.5 bytes=1000"},
                             "sent the sum, a greeting, the bytes and the three texts, output block ", "ended"));
}

// What the client by ivrexa.hpp says of a command that went well. It leaves the server alone.
const lineas DICE_EL_CLIENTE_HPP = {
    "sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000",
    "got  ok, code 1",
    "got  the three texts",
    SALIDA,
    "all came back as it was sent",
};

TEST(ejemplos, los_tres_clientes_hablan_con_el_servidor_de_la_capa)
{
    std::string servicio = nombre_unico("Capa");
    papel servidor = arranca_listo("servidor_hpp", servicio);
    papel capa = arranca_ejemplo("cliente_hpp", servicio);
    EXPECT_EQ(capa.espera_fin(30000), 0u);
    EXPECT_EQ(capa.lineas(), DICE_EL_CLIENTE_HPP);
    papel en_c = arranca_ejemplo("cliente_c", servicio);
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
    EXPECT_EQ(con(en_c.lineas(), "got "), (lineas(DICE_EL_CLIENTE_EN_C.begin() + 1, DICE_EL_CLIENTE_EN_C.end())));
    EXPECT_TRUE(servidor.vive());
    papel cliente = arranca_ejemplo("cliente", servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(cliente.lineas().back(), "all came back as it was sent");

    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    lineas una = GOT_TODO, todas;
    una.push_back("sent suma=42.5 bytes=1000 and the three texts");
    for (int i = 0; i < 3; i++)
        todas.insert(todas.end(), una.begin(), una.end());
    todas.push_back("ended");
    EXPECT_EQ(servidor.lineas(), todas);
}

TEST(ejemplos, el_cliente_de_la_capa_habla_con_los_cuatro_servidores)
{
    std::vector<papel> servidores, clientes; // all at once: each client waits 2.5 s
    for (const char *nombre : {"servidor_ventana", "servidor_sin_ventana", "servidor_consola", "servidor_net"}) {
        std::string servicio = nombre_unico("Capa");
        servidores.push_back(arranca_listo(nombre, servicio));
        clientes.push_back(arranca_ejemplo("cliente_hpp", servicio));
    }
    for (papel &cliente : clientes) {
        EXPECT_EQ(cliente.espera_fin(30000), 0u);
        EXPECT_EQ(cliente.lineas(), DICE_EL_CLIENTE_HPP);
    }
    for (papel &servidor : servidores)
        EXPECT_TRUE(servidor.vive());
}

// Both wait 2.5 s before they run their command, one after the other.
TEST(ejemplos, dos_clientes_a_la_vez_se_turnan)
{
    std::string servicio = nombre_unico("Turno");
    papel servidor = arranca_listo("servidor_sin_ventana", servicio);
    papel uno = arranca_ejemplo("cliente_c", servicio);
    papel otro = arranca_ejemplo("cliente_c", servicio);

    EXPECT_EQ(uno.espera_fin(30000), 0u);
    EXPECT_EQ(otro.espera_fin(30000), 0u);
    lineas dicho = con(servidor.lineas(), "sent ");
    EXPECT_EQ(dicho, (lineas{SENT_TODO + "101", SENT_TODO + "103"}));
}

// The name that server and clients have without an argument is one for the whole desktop.
TEST(ejemplos, sin_argumento_se_encuentran_en_el_servicio_Ejemplo)
{
    papel servidor = arranca_programa("servidor_consola.exe", {});
    EXPECT_EQ(servidor.espera_linea("", 30000), "ready: Ejemplo");
    papel en_c = arranca_programa("cliente_c.exe", {});
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
    papel cliente = arranca_programa("cliente.exe", {});
    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);

    papel avisa = arranca_programa("servidor_avisa.exe", {});
    EXPECT_EQ(avisa.espera_linea("", 30000), "ready: Documentos");
    papel avisado = arranca_programa("cliente_avisado.exe", {});
    EXPECT_EQ(avisado.espera_fin(30000), 0u);
    EXPECT_EQ(avisa.espera_fin(30000), 0u);

    papel monitor = arranca_programa("monitor.exe", {});
    EXPECT_EQ(monitor.espera_linea("", 30000), "ready: until Ejemplo is closed, or Ctrl-C");
}

// ---- The window that is seen

TEST(ejemplos, la_ventana_muestra_los_comandos_y_al_cerrarse_acaba_en_orden)
{
    std::string servicio = nombre_unico("Visible");
    papel servidor = arranca_listo("servidor_ventana", servicio);
    HWND hwnd = ventana_de(servidor);
    ASSERT_NE(hwnd, nullptr);
    EXPECT_TRUE(IsWindowVisible(hwnd));
    HWND lista = FindWindowExA(hwnd, nullptr, "LISTBOX", nullptr);
    ASSERT_NE(lista, nullptr);
    EXPECT_TRUE(IsWindowVisible(lista));
    RECT dentro, ocupa;
    GetClientRect(hwnd, &dentro);
    GetWindowRect(lista, &ocupa);
    EXPECT_EQ(ocupa.right - ocupa.left, dentro.right) << "the list fills the window";
    EXPECT_EQ(lineas_de(lista), std::vector<std::wstring>{});

    papel en_c = arranca_ejemplo("cliente_c", servicio);
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
    EXPECT_EQ(lineas_de(lista), std::vector<std::wstring>{L"got  a=40 b=2.5, \"Hola, mundo\", 1000 bytes, "
                                                          L"texts \"corto\" \"a\u00f1o nuevo\" \"tercer texto\""});

    char hallado[64] = "";
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), hallado, nullptr), 1);
    PostMessageW(hwnd, WM_CLOSE, 0, 0);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.lineas(), (lineas{GOT_VENTANA, "ended"}));
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), 0);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), hallado, nullptr), 0)
        << "it has left the table";
}

TEST(ejemplos, la_lista_de_la_ventana_sigue_su_tamanyo)
{
    papel servidor = arranca_listo("servidor_ventana", nombre_unico("Visible"));
    HWND hwnd = ventana_de(servidor);
    ASSERT_NE(hwnd, nullptr);

    SetWindowPos(hwnd, nullptr, 0, 0, 500, 200, SWP_NOMOVE | SWP_NOZORDER);

    RECT dentro, ocupa;
    GetClientRect(hwnd, &dentro);
    GetWindowRect(FindWindowExA(hwnd, nullptr, "LISTBOX", nullptr), &ocupa);
    EXPECT_EQ(ocupa.right - ocupa.left, dentro.right);
    EXPECT_EQ(ocupa.bottom - ocupa.top, dentro.bottom);
}

// ---- What clients meet on a bad day

TEST(ejemplos, sin_servidor_cada_cliente_lo_dice_y_termina_con_1)
{
    std::string servicio = nombre_unico("Nadie");
    std::string nadie = "nobody offers " + servicio;
    const std::pair<const char *, std::string> esperados[] = {
        {"cliente", nadie + " in version 3: start a server first"},
        {"cliente_c", nadie + " in version 3: start a server first"},
        {"cliente_hpp", nadie + " in version 3: start a server first"},
        {"cliente_avisado", nadie + ": start servidor_avisa first"}};
    for (const auto &[nombre, dicho] : esperados) {
        papel cliente = arranca_ejemplo(nombre, servicio);
        EXPECT_EQ(cliente.espera_fin(30000), 1u) << nombre;
        EXPECT_EQ(cliente.lineas(), lineas{dicho}) << nombre;
    }
}

TEST(ejemplos, de_otra_version_es_como_sin_servidor)
{
    std::string servicio = nombre_unico("Version");
    papel servidor = arranca_papel("de_otra_version", {servicio});
    for (const char *nombre : {"cliente", "cliente_c", "cliente_hpp"}) {
        papel cliente = arranca_ejemplo(nombre, servicio);
        EXPECT_EQ(cliente.espera_fin(30000), 1u) << nombre;
        EXPECT_EQ(cliente.lineas(), lineas{"nobody offers " + servicio + " in version 3: start a server first"});
    }
}

// A server without a window is found dead after some 3 s.
TEST(ejemplos, servidor_que_cae_en_el_comando_se_dice_en_los_dos_clientes)
{
    const struct {
        const char *papel, *cliente;
        lineas dicho;
    } casos[] = {
        {"cae_con_ventana", "cliente_c", {enviado(100), "got  result 0: no answer: the server is gone"}},
        {"cae_con_ventana",
         "cliente",
         {enviado(100), "got  result 0, output block 0", "no answer: the server is gone"}},
        {"cae_sin_ventana",
         "cliente_c",
         {enviado(100), "got  result 3: error: the server refused the command, or it has died"}},
        {"cae_sin_ventana",
         "cliente",
         {enviado(100), "got  result 3, output block 0", "the server refused the command, or it has died"}},
    };
    std::vector<std::pair<papel, papel>> parejas; // all at once: each pair takes its seconds
    for (const auto &caso : casos) {
        std::string servicio = nombre_unico("Cae");
        papel servidor = arranca_papel(caso.papel, {servicio});
        parejas.emplace_back(std::move(servidor), arranca_ejemplo(caso.cliente, servicio));
    }
    for (size_t i = 0; i < parejas.size(); i++) {
        auto &[servidor, cliente] = parejas[i];
        EXPECT_EQ(cliente.espera_fin(30000), 1u) << casos[i].papel << " " << casos[i].cliente;
        EXPECT_EQ(servidor.espera_fin(30000), 9u);
        EXPECT_EQ(cliente.lineas(), casos[i].dicho) << casos[i].papel << " " << casos[i].cliente;
    }
}

TEST(ejemplos, el_cliente_en_c_dice_lo_que_cada_resultado_significa)
{
    const std::pair<const char *, std::string> resultados[] = {
        {"2", "cancelled by the server"},
        {"3", "error: the server refused the command, or it has died"},
        {"77", "the server's own"}};
    std::vector<papel> servidores, clientes; // all at once: each client waits 2.5 s
    for (const auto &[numero, dicho] : resultados) {
        std::string servicio = nombre_unico("Numero");
        servidores.push_back(arranca_papel("da_un_numero", {servicio, numero}));
        clientes.push_back(arranca_ejemplo("cliente_c", servicio));
    }
    for (size_t i = 0; i < clientes.size(); i++) {
        const auto &[numero, dicho] = resultados[i];
        EXPECT_EQ(clientes[i].espera_fin(30000), 1u);
        EXPECT_EQ(clientes[i].lineas(), (lineas{enviado(100), "got  result " + std::string(numero) + ": " + dicho}));
    }
}

// Code 3 of a server that is still there is its refusal; of one that has died, that it has gone.
TEST(ejemplos, el_cliente_de_la_capa_distingue_al_que_rehusa_del_que_muere)
{
    std::string rehusa = nombre_unico("Numero"), muere = nombre_unico("Cae");
    papel uno = arranca_papel("da_un_numero", {rehusa, "3"}), otro = arranca_papel("cae_sin_ventana", {muere});
    papel con_uno = arranca_ejemplo("cliente_hpp", rehusa), con_otro = arranca_ejemplo("cliente_hpp", muere);
    EXPECT_EQ(con_uno.espera_fin(30000), 1u);
    EXPECT_EQ(con(con_uno.lineas(), "got "), lineas{"got  server_error, code 3"});
    EXPECT_EQ(con_otro.espera_fin(30000), 1u);
    EXPECT_EQ(con(con_otro.lineas(), "got "), lineas{"got  server_gone, code 3"});
    EXPECT_EQ(otro.espera_fin(30000), 9u);
}

// What a command brings that is not what the function expects throws in it, and the server serves on.
TEST(ejemplos, el_servidor_de_la_capa_rehusa_lo_que_no_espera_y_sigue)
{
    std::string servicio = nombre_unico("Capa");
    papel servidor = arranca_listo("servidor_hpp", servicio);
    ivrexa_registra_cliente_de_servicio("raro.exe", nullptr, servicio.c_str());
    EXPECT_EQ(ejecuta(servicio, 101, 0), 3u);
    EXPECT_EQ(ejecuta(servicio, 100, 0), 3u) << "no input";
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    for (const char *nombre : {"a", "b", "palabras", "nombre", "bytes"})
        ivrexa_graba_byte(entrada, nombre, 1);
    EXPECT_EQ(ejecuta(servicio, 100, ivrexa_guarda_datos(entrada)), 3u);
    ivrexa_destruye_datos_comando(entrada);
    ivrexa_terminar_servidor(servicio.c_str());
    ivrexa_cierra_sesion();

    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(
        servidor.lineas(),
        (lineas{"refused a command of " + servicio + ": the type of value \"a\" is uint8_t, not uint32_t", "ended"}));
}

// Without output the C client says so; the C++ one, which checks, misses its texts first.
TEST(ejemplos, ok_sin_salida_se_dice)
{
    std::string servicio = nombre_unico("Numero");
    papel servidor = arranca_papel("da_un_numero", {servicio, "1"});
    papel en_c = arranca_ejemplo("cliente_c", servicio);
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
    EXPECT_EQ(con(en_c.lineas(), "no output data").size(), 1u);

    papel cliente = arranca_ejemplo("cliente", servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 1u);
    EXPECT_EQ(cliente.lineas().back(), "another text came back");
}

TEST(ejemplos, salida_de_otros_tipos_se_descubre_y_el_servidor_sigue)
{
    std::string servicio = nombre_unico("Otra");
    papel servidor = arranca_papel("da_otra_cosa", {servicio});
    papel en_c = arranca_ejemplo("cliente_c", servicio);
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
    EXPECT_EQ(en_c.lineas().back(), "got  suma=0 bytes=0 saludo=\"\"");
    papel cliente = arranca_ejemplo("cliente", servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 1u);
    EXPECT_EQ(cliente.lineas().back(), "other values came");
    EXPECT_TRUE(servidor.vive());
}

// ---- What servers meet on a bad day

namespace {

// All kinds of servers, each with a service of its own. This process is the client of each, and has lived for a
// heartbeat, since one of them has no window.
std::vector<std::pair<std::string, papel>> arranca_los_cuatro()
{
    std::vector<std::pair<std::string, papel>> servidores;
    for (const char *nombre : {"servidor_ventana", "servidor_sin_ventana", "servidor_consola", "servidor_net"}) {
        std::string servicio = nombre_unico("Raro");
        servidores.emplace_back(servicio, arranca_listo(nombre, servicio));
        ivrexa_registra_cliente_de_servicio("raro.exe", nullptr, servicio.c_str());
    }
    Sleep(2500);
    return servidores;
}

// Input of `num` values of `tipo`; its stored id. The container lives as long as the test.
uint32_t entrada_de(const std::string &servicio, int num, tipoDato tipo)
{
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    for (int i = 0; i < num; i++) {
        if (tipo == ivrexa_tipoDato_byte)
            ivrexa_graba_byte(entrada, "x", 1);
        else
            ivrexa_graba_cadena_ansi(entrada, "x", nullptr);
    }
    return ivrexa_guarda_datos(entrada);
}

// What a server greets this name with.
std::wstring saludo_para(const std::string &servicio, const std::string &nombre)
{
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    ivrexa_graba_ulong(entrada, "a", 1);
    ivrexa_graba_double(entrada, "b", 1);
    ivrexa_graba_arr_cadenas_ansi(entrada, "palabras", nullptr, 0);
    ivrexa_graba_cadena_ansi(entrada, "nombre", nombre.c_str());
    ivrexa_graba_buffer(entrada, "bytes", nullptr, 0);
    uint32_t id_salida = 0;
    EXPECT_EQ(ivrexa_ejecuta_comando(servicio.c_str(), 100, 0, ivrexa_guarda_datos(entrada), nullptr, nullptr, nullptr,
                                     &id_salida, nullptr, nullptr, nullptr),
              1u)
        << servicio;
    ivrexa_destruye_datos_comando(entrada);
    comdat *salida = ivrexa_lee_datos(servicio.c_str(), id_salida, FALSO);
    const wchar_t *saludo = salida != nullptr ? ivrexa_dame_cadena_unicode(salida, 1) : nullptr;
    std::wstring texto = saludo != nullptr ? saludo : L"no greeting";
    if (salida != nullptr)
        ivrexa_destruye_datos_comando(salida);
    return texto;
}

} // namespace

// A name beyond ASCII, and one that no fixed buffer holds.
TEST(ejemplos, cada_servidor_saluda_con_nombres_que_no_son_ascii_o_son_muy_largos)
{
    std::vector<std::pair<std::string, papel>> servidores = arranca_los_cuatro();
    for (auto &[servicio, servidor] : servidores) {
        EXPECT_EQ(saludo_para(servicio, "Bego\xF1"
                                        "a"),
                  L"Hola, Bego\u00F1a")
            << servicio;
        EXPECT_EQ(saludo_para(servicio, std::string(1000, 'x')).substr(0, 7), L"Hola, x") << servicio;
        ivrexa_terminar_servidor(servicio.c_str());
    }
    ivrexa_cierra_sesion();
    for (auto &[servicio, servidor] : servidores)
        EXPECT_EQ(servidor.espera_fin(30000), 0u) << servicio;
}

// What does not fit is refused, values of other types read as nothing, and the server serves on.
TEST(ejemplos, cada_servidor_rehusa_lo_que_no_entiende_y_sigue)
{
    std::vector<std::pair<std::string, papel>> servidores = arranca_los_cuatro();
    for (auto &[servicio, servidor] : servidores) {
        EXPECT_EQ(ejecuta(servicio, 101, entrada_de(servicio, 5, ivrexa_tipoDato_byte)), 3u) << servicio;
        EXPECT_EQ(ejecuta(servicio, 100, 0), 3u) << servicio << ": no input";
        EXPECT_EQ(ejecuta(servicio, 100, entrada_de(servicio, 4, ivrexa_tipoDato_byte)), 3u) << servicio;
        EXPECT_EQ(ejecuta(servicio, 100, entrada_de(servicio, 5, ivrexa_tipoDato_byte)), 1u) << servicio;
        EXPECT_EQ(ejecuta(servicio, 100, entrada_de(servicio, 5, ivrexa_tipoDato_cadena_ansi)), 1u) << servicio;
        ivrexa_terminar_servidor(servicio.c_str());
        EXPECT_EQ(servidor.espera_fin(30000), 0u) << servicio;
    }
    ivrexa_cierra_sesion();
}

TEST(ejemplos, un_segundo_servidor_del_mismo_servicio_termina_con_1_y_el_primero_sigue)
{
    for (const char *nombre :
         {"servidor_ventana", "servidor_consola", "servidor_net", "servidor_avisa", "servidor_hpp"}) {
        std::string servicio = nombre_unico("Doble");
        papel primero = arranca_listo("servidor_consola", servicio);
        papel segundo = arranca_ejemplo(nombre, servicio);
        EXPECT_EQ(segundo.espera_fin(30000), 1u) << nombre;
        EXPECT_EQ(segundo.lineas(), lineas{}) << nombre << " tells it to stderr";
        EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), 1) << nombre;
        ivrexa_terminar_servidor(servicio.c_str());
        EXPECT_EQ(primero.espera_fin(30000), 0u);
    }
    std::string servicio = nombre_unico("Doble");
    papel primero = arranca_listo("servidor_consola", servicio);
    EXPECT_EQ(arranca_ejemplo("servidor_sin_ventana", servicio).espera_fin(30000), 1u);
}

// ---- A notification

// "opened" and "closed" may come before or after what the notification's own threads say meanwhile.
TEST(ejemplos, el_cliente_avisado_toma_los_datos_contesta_y_cierra_el_documento)
{
    std::string servicio = nombre_unico("Aviso");
    papel servidor = arranca_listo("servidor_avisa", servicio);
    papel cliente = arranca_ejemplo("cliente_avisado", servicio);

    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);

    EXPECT_EQ(con(cliente.lineas(), "opened"), lineas{"opened: result 1"});
    EXPECT_EQ(sin(cliente.lineas(), "opened"), (lineas{"notified: client 200, document 7, data block 101",
                                                       "on the window's thread: revision 2 by \"Bego\xC3\xB1"
                                                       "a\"",
                                                       "closed: result 1"}));
    EXPECT_EQ(con(servidor.lineas(), "has "),
              (lineas{"client 200 has opened document 7: \"C:\\informes\\a\xC3\xB1o nuevo.txt\"",
                      "client 200 has closed document 7: \"C:\\informes\\a\xC3\xB1o nuevo.txt\""}));
    EXPECT_EQ(sin(servidor.lineas(), "has "), (lineas{"notifies client 200: document 7, data block 101",
                                                      "client 200 is done with it, or this server ends"}));
}

// A server that takes the documents and never notifies. The client gives up after 5 s.
TEST(ejemplos, el_cliente_al_que_nadie_avisa_deja_de_esperar_y_termina_con_1)
{
    std::string servicio = nombre_unico("Mudo");
    papel servidor = arranca_papel("da_un_numero", {servicio, "1"});
    papel cliente = arranca_ejemplo("cliente_avisado", servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 1u);
    EXPECT_EQ(cliente.lineas(), (lineas{"opened: result 1", "closed: result 1"}));
    EXPECT_EQ(servidor.espera_fin(30000), 0u) << "the client ends it";
}

TEST(ejemplos, el_cliente_avisado_dice_que_el_servidor_rehusa_o_ya_no_esta)
{
    std::string servicio = nombre_unico("Rehusa");
    papel rehusa = arranca_papel("da_un_numero", {servicio, "3"});
    papel cliente = arranca_ejemplo("cliente_avisado", servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 1u);
    EXPECT_EQ(cliente.lineas(), (lineas{"opened: result 3, the server refuses it or is gone",
                                        "closed: result 3, the server refuses it or is gone"}));

    servicio = nombre_unico("Cae");
    papel cae = arranca_papel("cae_con_ventana", {servicio});
    papel otro = arranca_ejemplo("cliente_avisado", servicio);
    EXPECT_EQ(otro.espera_fin(30000), 1u);
    EXPECT_EQ(cae.espera_fin(30000), 9u);
    EXPECT_EQ(otro.lineas(), (lineas{"opened: result 0, the server refuses it or is gone",
                                     "closed: result 0, the server refuses it or is gone"}));
}

// The client is this process. It has no notification function: its thread takes the notification, and nobody
// answers.
TEST(ejemplos, el_servidor_que_avisa_sirve_y_termina_mientras_nadie_contesta)
{
    const char *servicio = nombre_unico("Callado");
    papel servidor = arranca_listo("servidor_avisa", servicio);
    ivrexa_registra_cliente_de_servicio("callado.exe", nullptr, servicio);
    uint32_t id_cliente = ivrexa_abierto_documento_de_cliente(servicio, L"C:\\a.txt", 1);
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_ulong(entrada, "id_cliente", id_cliente);
    ivrexa_graba_ulong(entrada, "id_documento", 1);
    ivrexa_graba_cadena_unicode(entrada, "ruta", L"C:\\a.txt");

    EXPECT_EQ(ejecuta(servicio, 100, ivrexa_guarda_datos(entrada)), 1u);
    EXPECT_EQ(servidor.espera_linea("notifies", 10000), "notifies client 200: document 1, data block 101");
    EXPECT_EQ(ejecuta(servicio, 102, 0), 3u) << "a command that it does not know, meanwhile";
    EXPECT_EQ(ejecuta(servicio, 100, entrada_de(servicio, 3, ivrexa_tipoDato_byte)), 3u) << "other types";
    EXPECT_FALSE(servidor.busca_linea("client 200 is done", 0));

    ivrexa_terminar_servidor(servicio);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    ivrexa_destruye_datos_comando(entrada);
    ivrexa_cierra_sesion();
}

// ---- The monitor

TEST(ejemplos, el_monitor_ve_un_comando_con_un_servidor_con_ventana)
{
    std::string servicio = nombre_unico("Vista");

    EXPECT_EQ(vigila_comando(servicio, "servidor_ventana"), vista_de_un_comando(servicio));
}

// The command that ends this server is one of the client's, too; whether its end is still noted depends on
// who is quicker, the client or the server that closes.
TEST(ejemplos, el_monitor_ve_un_comando_con_un_servidor_sin_ventana)
{
    std::string servicio = nombre_unico("Vista");
    std::string cliente = "client " + servicio + ": ";

    lineas dicho = sin(vigila_comando(servicio, "servidor_sin_ventana"), ": waits ");

    EXPECT_EQ(std::count(dicho.begin(), dicho.end(), cliente + "command begins, command 1"), 1);
    dicho.erase(std::remove(dicho.begin(), dicho.end(), cliente + "command begins, command 1"), dicho.end());
    dicho.erase(std::remove(dicho.begin(), dicho.end(), cliente + "command ends, command 1"), dicho.end());
    EXPECT_EQ(dicho, vista_de_un_comando(servicio));
}

// A server without a window tells the monitor of a round every 100 ms.
TEST(ejemplos, el_monitor_dice_cada_espera_una_vez_y_no_cada_ronda)
{
    std::string servicio = nombre_unico("Espera");

    lineas dicho = vigila_comando(servicio, "servidor_sin_ventana");

    lineas primeras = {"server " + servicio + ": waits for a command",
                       "client " + servicio + ": waits until the server has taken the command"};
    for (const std::string &primera : primeras) {
        lineas esperas = con(dicho, primera.substr(0, primera.find("waits ")) + "waits ");
        ASSERT_FALSE(esperas.empty()) << primera;
        EXPECT_EQ(esperas[0], primera);
        EXPECT_TRUE(std::adjacent_find(esperas.begin(), esperas.end()) == esperas.end()) << primera;
    }
}

// ---- How they end otherwise

TEST(ejemplos, con_dos_argumentos_cada_programa_termina_con_2)
{
    for (const char *nombre :
         {"servidor_ventana", "servidor_sin_ventana", "servidor_consola", "servidor_net", "servidor_avisa", "cliente",
          "cliente_c", "cliente_avisado", "servidor_hpp", "cliente_hpp", "monitor"}) {
        papel p = arranca_programa(std::string(nombre) + ".exe", {"uno", "dos"});
        EXPECT_EQ(p.espera_fin(30000), 2u) << nombre;
        EXPECT_EQ(p.lineas(), lineas{}) << nombre << " tells its usage to stderr";
    }
}

TEST(ejemplos, un_servidor_al_que_nadie_pidio_nada_termina_en_orden)
{
    for (const char *nombre : {"servidor_ventana", "servidor_consola", "servidor_net", "servidor_avisa"}) {
        std::string servicio = nombre_unico("Ocioso");
        papel servidor = arranca_listo(nombre, servicio);
        ivrexa_terminar_servidor(servicio.c_str());
        EXPECT_EQ(servidor.espera_fin(30000), 0u) << nombre;
    }
}

TEST(ejemplos, el_servidor_de_consola_acaba_en_orden_con_ctrl_c)
{
    std::string servicio = nombre_unico("CtrlC");
    papel servidor = arranca_en_consola("servidor_consola", servicio);
    EXPECT_EQ(servidor.espera_linea("", 30000), "ready: " + servicio);
    servidor.di("CTRL_C");
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.lineas(), lineas{"ended after 0 commands"});
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), 0);
}

// A monitor that ended without unregistering would stay the desktop's.
TEST(ejemplos, el_monitor_deja_de_serlo_con_ctrl_c)
{
    std::string servicio = nombre_unico("CtrlC");
    papel monitor = arranca_en_consola("monitor", servicio);
    EXPECT_EQ(monitor.espera_linea("", 30000), "ready: until " + servicio + " is closed, or Ctrl-C");
    bloque_crudo registro("Ivrexa_MCB");
    ASSERT_TRUE(registro.abierto());
    EXPECT_NE(registro.u64(6), 0u) << "the monitor's window";
    monitor.di("CTRL_C");
    EXPECT_EQ(monitor.espera_fin(30000), 0u);
    EXPECT_EQ(registro.u64(6), 0u);
}
