// conversa.cpp - the two programs of a language (cliente_<language>, servidor_<language>) against those of examples/,
// each a process of its own. Compiled once for each language, whose name is IVREXA_LENGUA.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crudo.h"
#include "ivrexa.h"
#include "papel.h"
#include "servidores_malos.h"
#include "sistema.h"
#include "util.h"

namespace {

using lineas = std::vector<std::string>;

const std::string CLIENTE = "cliente_" IVREXA_LENGUA ".exe";
const std::string SERVIDOR = "servidor_" IVREXA_LENGUA ".exe";

const lineas SIN_VENTANA = {};
const lineas CON_VENTANA = {"--window"};

papel arranca_cliente(const std::string &servicio, const std::string &programa = CLIENTE)
{
    return arranca_programa(programa, {servicio});
}

papel arranca_listo(const std::string &programa, const std::string &servicio, lineas args = {})
{
    args.push_back(servicio);
    papel p = arranca_programa(programa, args);
    EXPECT_EQ(p.espera_linea("", 30000), "ready: " + servicio);
    return p;
}

std::string enviado(uint32_t bloque)
{
    return "sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000, input block " + std::to_string(bloque);
}

// What cliente_c says, and what the programs of other languages say like it.
lineas dice_el_cliente(uint32_t bloque)
{
    return {
        enviado(bloque),
        "got  result 1: OK",
        "got  text 1 \"corto\"",
        "got  text 2 \"a\xC3\xB1o nuevo\"",
        "got  text 3 \"tercer texto\"",
        "got  suma=42.5 bytes=1000 saludo=\"Hola, mundo\"",
    };
}

// The client in C++, which ends the server; `bloque` is its input's.
void termina_el_servidor(const std::string &servicio, uint32_t bloque)
{
    papel cliente = arranca_cliente(servicio, "cliente.exe");
    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(cliente.lineas(), (lineas{enviado(bloque), "got  result 1, output block " + std::to_string(bloque + 1),
                                        "got  the three texts", "got  suma=42.5 bytes=1000 saludo=\"Hola, mundo\"",
                                        "all came back as it was sent"}));
}

lineas veces(int num, const lineas &una, const std::string &fin)
{
    lineas todas;
    for (int i = 0; i < num; i++)
        todas.insert(todas.end(), una.begin(), una.end());
    todas.push_back(fin);
    return todas;
}

// ---- A client of the server under test

uint32_t entrada_de(const std::string &servicio, int num)
{
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    for (int i = 0; i < num; i++)
        ivrexa_graba_byte(entrada, "x", 1);
    return ivrexa_guarda_datos(entrada); // the container lives as long as the test
}

uint32_t ejecuta(const std::string &servicio, uint32_t id_comando, uint32_t id_entrada, uint32_t *id_salida = nullptr)
{
    return ivrexa_ejecuta_comando(servicio.c_str(), id_comando, 0, id_entrada, nullptr, nullptr, nullptr, id_salida,
                                  nullptr, nullptr, nullptr);
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
    EXPECT_EQ(ejecuta(servicio, 100, ivrexa_guarda_datos(entrada), &id_salida), 1u);
    ivrexa_destruye_datos_comando(entrada);
    if (id_salida == 0)
        return L"no output";
    comdat *salida = ivrexa_lee_datos(servicio.c_str(), id_salida, FALSO);
    const wchar_t *saludo = salida != nullptr ? ivrexa_dame_cadena_unicode(salida, 1) : nullptr;
    std::wstring texto = saludo != nullptr ? saludo : L"no greeting";
    if (salida != nullptr)
        ivrexa_destruye_datos_comando(salida);
    return texto;
}

// The programs of the language talk to those in C and C++, which end the server.
void sirve_a_todos(const lineas &args)
{
    std::string servicio = nombre_unico("Lengua");
    papel servidor = arranca_listo(SERVIDOR, servicio, args);
    papel en_c = arranca_cliente(servicio, "cliente_c.exe");
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
    EXPECT_EQ(en_c.lineas(), dice_el_cliente(100));
    papel suyo = arranca_cliente(servicio);
    EXPECT_EQ(suyo.espera_fin(30000), 0u);
    EXPECT_EQ(suyo.lineas(), dice_el_cliente(102));
    termina_el_servidor(servicio, 104);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.lineas(),
              veces(3,
                    {"got  text \"corto\"", "got  text \"a\xC3\xB1o nuevo\"", "got  text \"tercer texto\"",
                     "got  a=40 b=2.5 bytes=1000 palabras=3 \"Hola, mundo\"",
                     "sent suma=42.5 bytes=1000 and the three texts"},
                    "ended after 3 commands"));
}

void rehusa_y_sigue(const lineas &args)
{
    std::string servicio = nombre_unico("Raro");
    papel servidor = arranca_listo(SERVIDOR, servicio, args);
    ivrexa_registra_cliente_de_servicio("raro.exe", nullptr, servicio.c_str());
    Sleep(2500); // our heartbeat: the server may have no window
    EXPECT_EQ(ejecuta(servicio, 101, entrada_de(servicio, 5)), 3u);
    EXPECT_EQ(ejecuta(servicio, 100, 0), 3u) << "no input";
    EXPECT_EQ(ejecuta(servicio, 100, entrada_de(servicio, 4)), 3u);
    EXPECT_EQ(ejecuta(servicio, 100, entrada_de(servicio, 5)), 1u) << "values of other types";
    EXPECT_EQ(saludo_para(servicio, "Bego\xF1"
                                    "a"),
              L"Hola, Bego\u00F1a");
    std::string largo(1000, 'x');
    EXPECT_EQ(saludo_para(servicio, largo), L"Hola, " + std::wstring(largo.begin(), largo.end()));
    ivrexa_terminar_servidor(servicio.c_str());
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    ivrexa_cierra_sesion();
}

} // namespace

// ---- The client

TEST(conversa, el_cliente_habla_con_el_servidor_en_c_con_ventana)
{
    std::string servicio = nombre_unico("Lengua");
    papel servidor = arranca_listo("servidor_ventana.exe", servicio);
    papel cliente = arranca_cliente(servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(cliente.lineas(), dice_el_cliente(100));
    termina_el_servidor(servicio, 102);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    EXPECT_EQ(servidor.lineas(), veces(2,
                                       {"got  a=40 b=2.5, \"Hola, mundo\", 1000 bytes, texts \"corto\" "
                                        "\"a\xC3\xB1o nuevo\" \"tercer texto\""},
                                       "ended"));
}

TEST(conversa, el_cliente_habla_con_el_servidor_en_cpp_sin_ventana)
{
    std::string servicio = nombre_unico("Lengua");
    papel servidor = arranca_listo("servidor_sin_ventana.exe", servicio);
    papel cliente = arranca_cliente(servicio);
    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(cliente.lineas(), dice_el_cliente(100));
    termina_el_servidor(servicio, 102);
    EXPECT_EQ(servidor.espera_fin(30000), 0u);
    lineas dichas = servidor.lineas();
    ASSERT_EQ(dichas.size(), 11u);
    EXPECT_EQ(lineas(dichas.begin(), dichas.begin() + 5),
              (lineas{"got  text \"corto\"", "got  text \"a\xC3\xB1o nuevo\"", "got  text \"tercer texto\"",
                      "got  a=40 b=2.5 bytes=1000 palabras=3 \"Hola, mundo\"",
                      "sent suma=42.5 bytes=1000 and the three texts, output block 101"}));
    EXPECT_EQ(dichas.back(), "ended after 2 commands");
}

TEST(conversa, sin_servidor_o_de_otra_version_el_cliente_lo_dice_y_termina_con_1)
{
    std::string nadie = nombre_unico("Nadie"), otra = nombre_unico("Version");
    papel servidor = arranca_papel("de_otra_version", {otra});
    for (const std::string &servicio : {nadie, otra}) {
        papel cliente = arranca_cliente(servicio);
        EXPECT_EQ(cliente.espera_fin(30000), 1u);
        EXPECT_EQ(cliente.lineas(), lineas{"nobody offers " + servicio + " in version 3: start a server first"});
    }
}

// A server with a window that died still counts as offered, for its client holds the channel.
// All at once: each client waits for its heartbeat, and a server without a window is found dead after some 3 s.
TEST(conversa, el_cliente_distingue_por_que_no_hubo_respuesta)
{
    const struct {
        const char *papel, *numero, *dicho;
        uint32_t fin;
    } casos[] = {
        {"cae_con_ventana", "", "got  result 0: no answer", 9},
        {"cae_sin_ventana", "", "got  result 3: the server is gone", 9},
        {"da_un_numero", "0", "got  result 0: no answer", 0},
        {"da_un_numero", "2", "got  result 2: cancelled by the server", 0},
        {"da_un_numero", "3", "got  result 3: the server refused it", 0},
        {"da_un_numero", "77", "got  result 77: a result of the server's own", 0},
    };
    std::vector<papel> servidores, clientes;
    for (const auto &caso : casos) {
        std::string servicio = nombre_unico("Malo");
        servidores.push_back(arranca_papel(caso.papel, {servicio, caso.numero}));
        clientes.push_back(arranca_cliente(servicio));
    }
    for (size_t i = 0; i < clientes.size(); i++) {
        EXPECT_EQ(clientes[i].espera_fin(40000), 1u) << casos[i].papel << casos[i].numero;
        EXPECT_EQ(clientes[i].lineas(), (lineas{enviado(100), casos[i].dicho}));
        if (casos[i].fin == 9) {
            EXPECT_EQ(servidores[i].espera_fin(30000), 9u);
        }
    }
}

TEST(conversa, salida_de_otros_tipos_o_ninguna_no_estorba_al_cliente)
{
    std::string otra = nombre_unico("Otra"), nada = nombre_unico("Nada");
    papel da_otra = arranca_papel("da_otra_cosa", {otra});
    papel da_nada = arranca_papel("da_un_numero", {nada, "1"});
    papel uno = arranca_cliente(otra), otro = arranca_cliente(nada);
    EXPECT_EQ(uno.espera_fin(30000), 0u);
    EXPECT_EQ(uno.lineas().back(), "got  suma=0 bytes=0 saludo=\"\"");
    EXPECT_EQ(otro.espera_fin(30000), 0u);
    EXPECT_EQ(otro.lineas().back(), "no output data");
}

TEST(conversa, dos_clientes_a_la_vez_se_turnan_tambien_con_el_de_c)
{
    std::string servicio = nombre_unico("Turno");
    papel servidor = arranca_listo("servidor_sin_ventana.exe", servicio);
    papel uno = arranca_cliente(servicio), en_c = arranca_cliente(servicio, "cliente_c.exe");
    EXPECT_EQ(uno.espera_fin(30000), 0u);
    EXPECT_EQ(en_c.espera_fin(30000), 0u);
}

// Out of its turn it would have its answer after the 2.5 s that each client waits.
TEST(conversa, el_cliente_no_empieza_antes_de_su_turno)
{
    std::string servicio = nombre_unico("Turno");
    papel servidor = arranca_listo("servidor_sin_ventana.exe", servicio);
    mutex_crudo turno(("turn of " + servicio).c_str(), mutex_crudo::modo::crea);
    ASSERT_TRUE(turno.retiene());
    papel cliente = arranca_cliente(servicio);
    EXPECT_EQ(cliente.busca_linea("", 5000), std::nullopt);
    EXPECT_TRUE(cliente.vive());
    EXPECT_EQ(servidor.lineas(), lineas{}) << "nothing was sent";
    turno.suelta();
    EXPECT_EQ(cliente.espera_fin(30000), 0u);
    EXPECT_EQ(cliente.lineas(), dice_el_cliente(100));
}

// ---- The server

TEST(conversa, el_servidor_sin_ventana_sirve_a_los_clientes_de_las_tres_lenguas)
{
    sirve_a_todos(SIN_VENTANA);
}

TEST(conversa, el_servidor_con_ventana_sirve_a_los_clientes_de_las_tres_lenguas)
{
    sirve_a_todos(CON_VENTANA);
}

TEST(conversa, el_servidor_sin_ventana_rehusa_lo_que_no_entiende_y_sigue)
{
    rehusa_y_sigue(SIN_VENTANA);
}

TEST(conversa, el_servidor_con_ventana_rehusa_lo_que_no_entiende_y_sigue)
{
    rehusa_y_sigue(CON_VENTANA);
}

TEST(conversa, un_segundo_servidor_termina_con_1_y_el_primero_sigue)
{
    std::string servicio = nombre_unico("Doble");
    papel primero = arranca_listo(SERVIDOR, servicio, CON_VENTANA);
    for (const std::string &programa : {SERVIDOR, std::string("servidor_consola.exe")}) {
        papel segundo = arranca_programa(programa, {servicio});
        EXPECT_EQ(segundo.espera_fin(30000), 1u) << programa;
        EXPECT_EQ(segundo.lineas(), lineas{}) << programa << " tells it to stderr";
    }
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), 1);
    ivrexa_terminar_servidor(servicio.c_str());
    EXPECT_EQ(primero.espera_fin(30000), 0u);
    EXPECT_EQ(primero.lineas(), lineas{"ended after 0 commands"});
}

TEST(conversa, con_argumentos_de_mas_cada_programa_termina_con_2)
{
    for (const std::string &programa : {CLIENTE, SERVIDOR}) {
        papel p = arranca_programa(programa, {"uno", "dos"});
        EXPECT_EQ(p.espera_fin(30000), 2u) << programa;
    }
}
