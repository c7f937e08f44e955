// dll_ejemplos.cpp - the programs of examples/, run as a user runs them: each a process, with a service as
// its one argument.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ivrexa.h"
#include "papel.h"
#include "util.h"

namespace {

using lineas = std::vector<std::string>;

papel arranca_ejemplo(const char *nombre, const std::string &servicio)
{
    return arranca_programa(std::string(nombre) + ".exe", {servicio});
}

// The same for one that others wait for. Its first line says that it is ready.
papel arranca_listo(const char *nombre, const std::string &servicio)
{
    papel p = arranca_ejemplo(nombre, servicio);
    EXPECT_EQ(p.espera_linea("", 30000), "LISTO");
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

const lineas DICE_EL_CLIENTE = {
    "sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000, input block 100",
    "sent text \"corto\"",
    "sent text \"a\xC3\xB1o nuevo\"",
    "sent text \"tercer texto\"",
    "got  result 1, output block 101",
    "got  text 1 \"corto\"",
    "got  text 2 \"a\xC3\xB1o nuevo\"",
    "got  text 3 \"tercer texto\"",
    "got  suma=42.5 bytes=1000 saludo=\"Hola, mundo\"",
    "all came back as it was sent",
};

const lineas DICE_EL_SERVIDOR = {
    "got  text 1 \"corto\"",
    "got  text 2 \"a\xC3\xB1o nuevo\"",
    "got  text 3 \"tercer texto\"",
    "got  a=40 b=2.5 nombre=\"mundo\" bytes=1000 palabras=uno,dos,tres",
    "sent suma=42.5 bytes=1000 saludo=\"Hola, mundo\"",
    "sent the three texts back, output block 101, result 1",
    "ended after 1 commands",
};

void cruza_comando(const char *nombre_servidor)
{
    std::string servicio = nombre_unico("Ejemplo");
    papel servidor = arranca_listo(nombre_servidor, servicio);
    papel cliente = arranca_ejemplo("cliente", servicio);

    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);

    EXPECT_EQ(cliente.lineas(), DICE_EL_CLIENTE);
    EXPECT_EQ(servidor.lineas(), DICE_EL_SERVIDOR);
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

// Runs one command while the monitor watches; what it has said after its "LISTO".
lineas vigila_comando(const std::string &servicio, const char *nombre_servidor)
{
    papel monitor = arranca_listo("monitor", servicio);
    papel servidor = arranca_listo(nombre_servidor, servicio);
    papel cliente = arranca_ejemplo("cliente", servicio);

    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(monitor.espera_fin(30000), 0u);
    return monitor.lineas();
}

}

// ---- A command

TEST(ejemplos, un_comando_cruza_entre_el_cliente_y_el_servidor_con_ventana)
{
    cruza_comando("servidor_ventana");
}

TEST(ejemplos, un_comando_cruza_entre_el_cliente_y_el_servidor_sin_ventana)
{
    cruza_comando("servidor_sin_ventana");
}

TEST(ejemplos, un_comando_cruza_entre_el_cliente_y_el_servidor_net)
{
    cruza_comando("servidor_net");
}

TEST(ejemplos, sin_servidor_el_cliente_lo_dice_y_termina_con_1)
{
    std::string servicio = nombre_unico("Nadie");
    papel cliente = arranca_ejemplo("cliente", servicio);

    EXPECT_EQ(cliente.espera_fin(30000), 1u);
    EXPECT_EQ(cliente.lineas(), lineas{"nobody offers " + servicio + " in version 3"});
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
    EXPECT_EQ(sin(cliente.lineas(), "opened"),
              (lineas{"notified: client 200, document 7, data block 101",
                      "on the window's thread: revision 2 by \"Bego\xC3\xB1" "a\"", "closed: result 1"}));
    EXPECT_EQ(con(servidor.lineas(), "has "),
              (lineas{"client 200 has opened document 7: \"C:\\informes\\a\xC3\xB1o nuevo.txt\"",
                      "client 200 has closed document 7: \"C:\\informes\\a\xC3\xB1o nuevo.txt\""}));
    EXPECT_EQ(sin(servidor.lineas(), "has "),
              (lineas{"notifies client 200: document 7, data block 101", "client 200 is done with it"}));
}

TEST(ejemplos, sin_servidor_el_cliente_avisado_termina_con_1)
{
    papel cliente = arranca_ejemplo("cliente_avisado", nombre_unico("Nadie"));

    EXPECT_EQ(cliente.espera_fin(30000), 1u);
    EXPECT_EQ(cliente.lineas(), (lineas{"opened: result 3", "closed: result 3"}));
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

    auto ejecuta = [&](uint32_t id_comando, uint32_t id_entrada) {
        return ivrexa_ejecuta_comando(servicio, id_comando, 0, id_entrada, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(ejecuta(100, ivrexa_guarda_datos(entrada)), 1u);
    EXPECT_EQ(servidor.espera_linea("notifies", 10000), "notifies client 200: document 1, data block 101");
    EXPECT_EQ(ejecuta(102, 0), 3u) << "a command that it does not know, while it waits for the client";
    EXPECT_FALSE(servidor.busca_linea("client 200 is done", 0));

    ivrexa_terminar_servidor(servicio);
    EXPECT_EQ(servidor.espera_fin(30000), 1u) << "a document was left open";
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

TEST(ejemplos, sin_argumento_cada_programa_termina_con_2)
{
    for (const char *nombre : {"servidor_ventana", "servidor_sin_ventana", "servidor_net", "servidor_avisa",
                               "cliente", "cliente_avisado", "monitor"}) {
        papel p = arranca_programa(std::string(nombre) + ".exe", {});
        EXPECT_EQ(p.espera_fin(30000), 2u) << nombre;
        EXPECT_EQ(p.lineas(), lineas{}) << nombre << " tells its usage to stderr";
    }
}

TEST(ejemplos, un_servidor_al_que_nadie_pidio_nada_termina_con_1)
{
    for (const char *nombre : {"servidor_ventana", "servidor_net", "servidor_avisa"}) {
        std::string servicio = nombre_unico("Ocioso");
        papel servidor = arranca_listo(nombre, servicio);
        ivrexa_terminar_servidor(servicio.c_str());
        EXPECT_EQ(servidor.espera_fin(30000), 1u) << nombre;
    }
}
