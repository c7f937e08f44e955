// Reports and the debug trace, to the character and to the piece.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/hilo.h"
#include "comun/informes_modulo.h"
#include "comun/papel.h"
#include "comun/traza_captura.h"
#include "comun/util.h"

#include "iv_mem.h"
#include "iv_traza.h"

#define IV_MODULO "iv_traza"

namespace {

using piezas = std::vector<std::string>;

// The debug-string calls that `trabajo` makes, with the tick count of a record's header replaced by "<t>".
piezas piezas_de(const std::function<void()> &trabajo)
{
    captura_traza traza;
    trabajo();
    piezas textos;
    for (const pieza_traza &pieza : traza.piezas()) {
        bool es_tiempo = !textos.empty() && textos.back() == "\n*** ";
        textos.push_back(es_tiempo ? "<t>" : pieza.texto);
    }
    return textos;
}

// The pieces of a record: its header, then these.
piezas registro(const piezas &resto)
{
    piezas textos = {"\n*** ", "<t>", ": "};
    textos.insert(textos.end(), resto.begin(), resto.end());
    return textos;
}

std::string junto(const piezas &textos)
{
    std::string todo;
    for (const std::string &texto : textos)
        todo += texto;
    return todo;
}

struct caja {
    HWND hwnd;
    std::string texto, titulo;
    UINT estilo;
};
caja s_caja;

int WINAPI apunta_caja(HWND hwnd, LPCSTR texto, LPCSTR titulo, UINT estilo)
{
    s_caja = {hwnd, texto, titulo, estilo};
    return 7;
}

const uint32_t ID = 105;
const uint32_t ID_MAXIMO = 4294967295u;

struct caso_registro {
    const char *que;
    void (*escribe)();
    piezas esperadas; // behind the header
};

ivrexa_hwnd ventana_de(uint64_t numero)
{
    return reinterpret_cast<ivrexa_hwnd>(numero);
}

wchar_t s_uno[] = L"uno", s_dos[] = L"dos", s_tres[] = L"tres";
wchar_t *s_texto1 = s_uno, *s_texto2 = s_dos, *s_texto3 = s_tres, *s_texto_nulo = nullptr;

const std::vector<caso_registro> REGISTROS = {
    {"server",
     [] { iv_traza_registro_servidor("C:\\a b\\p.exe", ventana_de(65552)); },
     {"Registro Servidor ", "C:\\a b\\p.exe", " hwnd=", "65552", "\n"}},
    {"windowless server",
     [] { iv_traza_registro_servidor("p", nullptr); },
     {"Registro Servidor ", "p", " hwnd=", "0", "\n"}},
    {"client",
     [] { iv_traza_registro_cliente_servicio("C:\\c.exe", ventana_de(0xfedcba9876543210u), "Calc"); },
     {" REGISTRO CLIENTE SERVICIO ", "Calc", " ", "C:\\c.exe", " hwnd=", "18364758544493064720", "\n"}},
    {"service",
     [] { iv_traza_registro_servicio_prestado("Calc", 3); },
     {" REGISTRO SERVICIO PRESTADO ", "Calc", " Version ", "3", "\n"}},
    {"service of the highest version",
     [] { iv_traza_registro_servicio_prestado("Calc", 65535); },
     {" REGISTRO SERVICIO PRESTADO ", "Calc", " Version ", "65535", "\n"}},

    {"input",
     [] { iv_traza_get_datos_entrada_comando("Calc", 100, &ID, s_uno, s_dos, s_tres, 1); },
     {" GET_DATOS_ENTRADA_COMANDO ",
      "Calc",
      " id_comando: ",
      "100",
      "\n",
      "    Resultado ",
      "    CIERTO\n",
      "    id_datos_entrada_comando",
      " = ",
      "105",
      "\n",
      "    buffer_cliente_64",
      "\"",
      "uno",
      "\"",
      "\n",
      "    buffer_cliente_256",
      "\"",
      "dos",
      "\"",
      "\n",
      "    buffer_cliente2_256",
      "\"",
      "tres",
      "\"",
      "\n"}},
    {"input, result 2, nothing given",
     [] { iv_traza_get_datos_entrada_comando("Calc", 100, nullptr, nullptr, nullptr, nullptr, 2); },
     {" GET_DATOS_ENTRADA_COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    CIERTO\n"}},
    {"input, result -1, one text",
     [] { iv_traza_get_datos_entrada_comando("Calc", 0, nullptr, nullptr, s_dos, nullptr, -1); },
     {" GET_DATOS_ENTRADA_COMANDO ", "Calc", " id_comando: ", "0", "\n", "    Resultado ", "    CIERTO\n",
      "    buffer_cliente_256", "\"", "dos", "\"", "\n"}},
    {"input, none",
     [] { iv_traza_get_datos_entrada_comando("Calc", 100, &ID, s_uno, s_dos, s_tres, 0); },
     {" GET_DATOS_ENTRADA_COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    FALSO\n"}},

    {"output",
     [] { iv_traza_set_datos_entrada_comando("Calc", 100, 0, s_uno, s_dos, s_tres, 1); },
     {" SET_DATOS_ENTRADA_COMANDO ",
      "Calc",
      " id_comando: ",
      "100",
      "\n",
      "    Resultado ",
      "    CIERTO\n",
      "    id_datos_salida_comando",
      " = ",
      "0",
      "\n",
      "    resultado_64",
      "\"",
      "uno",
      "\"",
      "\n",
      "    resultado_256",
      "\"",
      "dos",
      "\"",
      "\n",
      "    resultado_256_2",
      "\"",
      "tres",
      "\"",
      "\n",
      "\n"}},
    {"output without texts",
     [] { iv_traza_set_datos_entrada_comando("Calc", 100, ID_MAXIMO, nullptr, nullptr, nullptr, 1); },
     {" SET_DATOS_ENTRADA_COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    CIERTO\n",
      "    id_datos_salida_comando", " = ", "4294967295", "\n", "\n"}},
    {"output, result 2",
     [] { iv_traza_set_datos_entrada_comando("Calc", 100, 5, s_uno, s_dos, s_tres, 2); },
     {" SET_DATOS_ENTRADA_COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    FALSO\n"}},
    {"output, none",
     [] { iv_traza_set_datos_entrada_comando("Calc", 100, 5, s_uno, s_dos, s_tres, 0); },
     {" SET_DATOS_ENTRADA_COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    FALSO\n"}},

    {"command begins",
     [] { iv_traza_inicio_comando("Calc", 100, 104, s_uno, s_dos, s_tres); },
     {" INICIO COMANDO ",
      "Calc",
      " id_comando: ",
      "100",
      "\n",
      "    Datos de entrada\n",
      "    id_bloque_MCCom_entrada",
      " = ",
      "104",
      "\n",
      "    param1",
      "\"",
      "uno",
      "\"",
      "\n",
      "    param2",
      "\"",
      "dos",
      "\"",
      "\n",
      "    param3",
      "\"",
      "tres",
      "\"",
      "\n",
      "\n"}},
    {"command without texts begins",
     [] { iv_traza_inicio_comando("", ID_MAXIMO, 0, nullptr, s_dos, nullptr); },
     {" INICIO COMANDO ", "", " id_comando: ", "4294967295", "\n", "    Datos de entrada\n",
      "    id_bloque_MCCom_entrada", " = ", "0", "\n", "    param2", "\"", "dos", "\"", "\n", "\n"}},

    {"command ends, NINGUNO",
     [] { iv_traza_fin_comando("Calc", 100, 0, &ID, &s_texto1, &s_texto2, &s_texto3); },
     {" FIN COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    NINGUNO\n"}},
    {"command ends, OK",
     [] { iv_traza_fin_comando("Calc", 100, 1, &ID, &s_texto1, &s_texto2, &s_texto3); },
     {" FIN COMANDO ",
      "Calc",
      " id_comando: ",
      "100",
      "\n",
      "    Resultado ",
      "    OK\n",
      "    id_datos_salida_comando",
      " = ",
      "105",
      "\n",
      "    serv_buffer_64",
      "\"",
      "uno",
      "\"",
      "\n",
      "    serv_buffer_256",
      "\"",
      "dos",
      "\"",
      "\n",
      "    serv_buffer2_256",
      "\"",
      "tres",
      "\"",
      "\n",
      "\n"}},
    {"command ends, OK, no places",
     [] { iv_traza_fin_comando("Calc", 100, 1, &ID, nullptr, nullptr, nullptr); },
     {" FIN COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    OK\n",
      "    id_datos_salida_comando", " = ", "105", "\n", "\n"}},
    {"command ends, OK, places that hold no text",
     [] { iv_traza_fin_comando("Calc", 100, 1, nullptr, &s_texto_nulo, &s_texto2, &s_texto_nulo); },
     {" FIN COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    OK\n", "    serv_buffer_256", "\"",
      "dos", "\"", "\n", "\n"}},
    {"command ends, CANCELADO",
     [] { iv_traza_fin_comando("Calc", 100, 2, &ID, &s_texto1, &s_texto2, &s_texto3); },
     {" FIN COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    CANCELADO\n"}},
    {"command ends, ERROR",
     [] { iv_traza_fin_comando("Calc", 100, 3, &ID, &s_texto1, &s_texto2, &s_texto3); },
     {" FIN COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado ", "    ERROR\n"}},
    {"command ends, 7",
     [] { iv_traza_fin_comando("Calc", 100, 7, &ID, &s_texto1, &s_texto2, &s_texto3); },
     {" FIN COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado "}},
    {"command ends, 4",
     [] { iv_traza_fin_comando("Calc", 100, 4, nullptr, nullptr, nullptr, nullptr); },
     {" FIN COMANDO ", "Calc", " id_comando: ", "100", "\n", "    Resultado "}},

    {"heartbeat", [] { iv_traza_estoy_vivo(0); }, {" ESTOY VIVO ", "0", "\n"}},
    {"heartbeat of no entry", [] { iv_traza_estoy_vivo(65535); }, {" ESTOY VIVO ", "65535", "\n"}},

    {"client, state 1", iv_traza_CLIENTE_ESPERA_NINGUN_CLIENTE, {"BUCLE ", "CLIENTE_ESPERA_NINGUN_CLIENTE", "\n"}},
    {"client, state 2",
     iv_traza_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO,
     {"BUCLE ", "CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO", "\n"}},
    {"client, state 3",
     iv_traza_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO,
     {"BUCLE ", "CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO", "\n"}},
    {"client, state 4", iv_traza_CLIENTE_ESPERA_SERVIDOR_AVISADO, {"BUCLE ", "CLIENTE_ESPERA_SERVIDOR_AVISADO", "\n"}},
    {"server, state 1",
     iv_traza_SERVIDOR_ESPERA_RECEPCION_COMANDO,
     {"BUCLE ", "SERVIDOR_ESPERA_RECEPCION_COMANDO", "\n"}},
    {"server, state 2",
     iv_traza_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO,
     {"BUCLE ", "SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO", "\n"}},
};

void escribe_primitivas()
{
    iv_traza_cadena("a");
    iv_traza_linea("a");
    iv_traza_cadena_numero("a", 1, 1);
    iv_traza_cadena_valor("a", 1, 1);
}

// Tests of what is written run with the trace on; those of the switch start processes of their own.
class iv_traza : public testing::Test {
protected:
    void SetUp() override
    {
        activa_traza();
        ASSERT_NE(iv_traza_activa(), 0u);
    }
};

} // namespace

// ---- Reports

TEST(iv_assert, caja_sin_duenyo_con_su_titulo_su_texto_y_estilo_0)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = apunta_caja;

    iv_assert_mensaje("(memlocal) != 0", "iv_mem", 149);

    EXPECT_EQ(s_caja.hwnd, nullptr);
    EXPECT_EQ(s_caja.texto, "Error in iv_mem - lin 149\n\nExpr: (memlocal) != 0");
    EXPECT_EQ(s_caja.titulo, "Assert ivrexa");
    EXPECT_EQ(s_caja.estilo, 0u);
}

TEST(iv_assert, devuelve_lo_que_devolvio_la_caja)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = apunta_caja;

    EXPECT_EQ(iv_assert_mensaje("x", "iv_mem", 1), 7);
}

TEST(iv_assert, linea_se_escribe_con_signo_y_sin_relleno)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = apunta_caja;
    const struct {
        uint32_t linea;
        const char *texto;
    } CASOS[] = {{0, "Error in m - lin 0\n\nExpr: x"},
                 {2147483647, "Error in m - lin 2147483647\n\nExpr: x"},
                 {4294967295u, "Error in m - lin -1\n\nExpr: x"}};

    for (const auto &caso : CASOS) {
        iv_assert_mensaje("x", "m", caso.linea);
        EXPECT_EQ(s_caja.texto, caso.texto);
    }
}

TEST(iv_assert, expresion_no_es_un_formato)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = apunta_caja;

    iv_assert_mensaje("a % b == %s %n", "iv_%d", 1);

    EXPECT_EQ(s_caja.texto, "Error in iv_%d - lin 1\n\nExpr: a % b == %s %n");
}

// The formatter of the window system stops at 1024 bytes, inside the buffer of 2048.
TEST(iv_assert, expresion_demasiado_larga_se_corta)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = apunta_caja;
    std::string expresion(5000, 'x');

    EXPECT_EQ(iv_assert_mensaje(expresion.c_str(), "iv_mem", 1), 7);

    EXPECT_LT(s_caja.texto.size(), 2048u);
    EXPECT_GT(s_caja.texto.size(), 1000u);
    EXPECT_EQ(("Error in iv_mem - lin 1\n\nExpr: " + expresion).rfind(s_caja.texto, 0), 0u);
}

TEST(iv_assert, caja_verdadera_se_ve_y_se_acepta)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = MessageBoxA;

    EXPECT_EQ(iv_assert_mensaje("tam > 0", "iv_mem", 292), IDOK);

    ASSERT_EQ(num_informes(), 1u);
    EXPECT_EQ(informe(0).texto, "Error in iv_mem - lin 292\n\nExpr: tam > 0");
    EXPECT_INFORME("iv_mem", "tam > 0");
}

// A failure of the heap itself is reported while its lock is held.
TEST(iv_assert, informar_no_usa_ni_el_heap_ni_su_cerrojo)
{
    iv_mem_cierra();
    mutex_crudo cerrojo("ivrexa_iv_mem", mutex_crudo::modo::crea);
    ASSERT_TRUE(cerrojo.retiene(10000));
    {
        hilo informador([] { iv_assert_mensaje("(memlocal) != 0", "iv_mem", 149); });
        EXPECT_TRUE(informador.acaba(5000));
        cerrojo.suelta();
    }

    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_EQ(s_LocalHeap, nullptr);
}

TEST(iv_assert, comprobacion_informa_con_su_texto_y_su_linea_y_sigue)
{
    int *nada = nullptr;
    int veces = 0;

    iv_assert(veces++ == 0);
    EXPECT_EQ(num_informes(), 0u);
    iv_assert(veces++ == 0), iv_assert_puntero(nada);
    const uint32_t linea = __LINE__ - 1;

    EXPECT_EQ(veces, 2) << "a condition is computed once";
    ASSERT_EQ(num_informes(), 2u);
    EXPECT_EQ(informe(0).linea, linea);
    EXPECT_EQ(informe(1).linea, linea);
    EXPECT_INFORME("iv_traza", "veces++ == 0");
    EXPECT_INFORME("iv_traza", "(nada) != 0");
}

// ---- The switch

PAPEL(interruptor)
{
    std::string primera = args.at(0), despues = args.at(1);
    if (primera == "cadena")
        iv_traza_cadena("a");
    else if (primera == "valor")
        iv_traza_cadena_valor("a", 1, 0);
    else if (primera == "registro")
        iv_traza_estoy_vivo(1);
    else
        iv_traza_activa();

    if (despues == "pone")
        activa_traza();
    else if (despues == "quita")
        desactiva_traza();
    captura_traza traza;
    iv_traza_cadena("x");
    yo.di("LISTO");
    yo.di("ACTIVA " + std::string(iv_traza_activa() != 0 ? "si" : "no") + traza.texto());
    return 0;
}

static std::string interruptor(const std::optional<std::string> &valor, const char *primera, const char *despues)
{
    opciones_papel opciones;
    opciones.entorno["IVREXA_DEBUG"] = valor;
    return arranca_papel("interruptor", {primera, despues}, opciones).espera_linea("ACTIVA ", 10000);
}

TEST(iv_traza_interruptor, basta_con_que_la_variable_exista)
{
    EXPECT_EQ(interruptor(std::nullopt, "", ""), "ACTIVA no");
    EXPECT_EQ(interruptor("", "", ""), "ACTIVA six");
    EXPECT_EQ(interruptor("0", "", ""), "ACTIVA six");
    EXPECT_EQ(interruptor("1", "", ""), "ACTIVA six");
    EXPECT_EQ(interruptor(std::string(300, 'v'), "", ""), "ACTIVA six");
}

TEST(iv_traza_interruptor, la_primera_llamada_decide_y_la_variable_no_se_mira_mas)
{
    for (const char *primera : {"activa", "cadena", "valor", "registro"}) {
        SCOPED_TRACE(primera);
        EXPECT_EQ(interruptor(std::nullopt, primera, "pone"), "ACTIVA no");
        EXPECT_EQ(interruptor("1", primera, "quita"), "ACTIVA six");
    }
}

PAPEL(mudo_salvo_tres)
{
    const uint32_t numero = 5;
    yo.di("LISTO");
    EXPECT_EQ(piezas_de(escribe_primitivas), piezas());
    for (const caso_registro &caso : REGISTROS)
        EXPECT_EQ(piezas_de(caso.escribe), piezas()) << caso.que;
    EXPECT_EQ(piezas_de(iv_traza_cabecera), registro({}));
    EXPECT_EQ(junto(piezas_de([&] { iv_traza_valor_u32(&numero, "n"); })), "n = 5\n");
    EXPECT_EQ(junto(piezas_de([] { iv_traza_texto_u(L"t", "n"); })), "n\"t\"\n");
    return 0;
}

// The header, the label line and the wide line leave the test of the switch to the record that calls them.
TEST(iv_traza_interruptor, apagada_no_escribe_nada_salvo_las_tres_que_no_lo_miran)
{
    opciones_papel opciones;
    opciones.entorno["IVREXA_DEBUG"] = std::nullopt;

    EXPECT_EQ(arranca_papel("mudo_salvo_tres", {}, opciones).espera_fin(20000), 0u);
}

// ---- Primitives

TEST_F(iv_traza, numero_se_escribe_en_decimal_entero)
{
    EXPECT_STREQ(iv_traza_numero_a_texto(0), "0");
    EXPECT_STREQ(iv_traza_numero_a_texto(9), "9");
    EXPECT_STREQ(iv_traza_numero_a_texto(10), "10");
    EXPECT_STREQ(iv_traza_numero_a_texto(5123406), "5123406");
    EXPECT_STREQ(iv_traza_numero_a_texto(4294967295u), "4294967295");
    EXPECT_STREQ(iv_traza_numero_a_texto(4294967296u), "4294967296");
    EXPECT_STREQ(iv_traza_numero_a_texto(10000000000000000000u), "10000000000000000000");
    EXPECT_STREQ(iv_traza_numero_a_texto(18446744073709551615u), "18446744073709551615");
}

TEST_F(iv_traza, texto_de_un_numero_lo_pisa_el_siguiente)
{
    const char *primero = iv_traza_numero_a_texto(123);

    EXPECT_EQ(iv_traza_numero_a_texto(7), primero);
    EXPECT_STREQ(primero, "7");
}

TEST_F(iv_traza, primitivas_escriben_sus_piezas_en_orden)
{
    EXPECT_EQ(piezas_de([] { iv_traza_cadena("texto %d"); }), (piezas{"texto %d"}));
    EXPECT_EQ(piezas_de([] { iv_traza_linea("texto"); }), (piezas{"texto", "\n"}));
    EXPECT_EQ(piezas_de([] { iv_traza_cadena_numero("n=", 0, 0); }), (piezas{"n=", "0"}));
    EXPECT_EQ(piezas_de([] { iv_traza_cadena_numero("n=", 4294967295u, 1); }), (piezas{"n=", "4294967295", "\n"}));
    EXPECT_EQ(piezas_de([] { iv_traza_cadena_numero("n=", 5, 0x10000); }), (piezas{"n=", "5", "\n"}));
    EXPECT_EQ(piezas_de([] { iv_traza_cadena_valor("h=", 18446744073709551615u, 0); }),
              (piezas{"h=", "18446744073709551615"}));
    EXPECT_EQ(piezas_de([] { iv_traza_cadena_valor("h=", 4294967296u, 2); }), (piezas{"h=", "4294967296", "\n"}));
}

TEST_F(iv_traza, cabecera_lleva_el_contador_de_milisegundos)
{
    captura_traza traza;
    uint32_t antes = GetTickCount();
    iv_traza_cabecera();
    uint32_t despues = GetTickCount();

    ASSERT_EQ(traza.piezas().size(), 3u);
    EXPECT_EQ(traza.piezas()[0].texto, "\n*** ");
    EXPECT_EQ(traza.piezas()[2].texto, ": ");
    uint32_t escrito = static_cast<uint32_t>(std::stoul(traza.piezas()[1].texto));
    EXPECT_LE(escrito - antes, despues - antes);
    EXPECT_EQ(traza.piezas()[1].texto, std::to_string(escrito));
}

TEST_F(iv_traza, linea_de_etiqueta_y_linea_ancha_difieren_en_el_signo_igual)
{
    const uint32_t cero = 0;

    EXPECT_EQ(piezas_de([&] { iv_traza_valor_u32(&cero, "    id"); }), (piezas{"    id", " = ", "0", "\n"}));
    EXPECT_EQ(piezas_de([] { iv_traza_valor_u32(&ID_MAXIMO, ""); }), (piezas{"", " = ", "4294967295", "\n"}));
    EXPECT_EQ(piezas_de([] { iv_traza_texto_u(L"a \"b\" %s", "    param1"); }),
              (piezas{"    param1", "\"", "a \"b\" %s", "\"", "\n"}));
    EXPECT_EQ(junto(piezas_de([] { iv_traza_texto_u(L"", "    param1"); })), "    param1\"\"\n");
}

TEST_F(iv_traza, lugares_nulos_no_escriben_nada)
{
    EXPECT_EQ(piezas_de([] { iv_traza_valor_u32(nullptr, "    id"); }), piezas());
    EXPECT_EQ(piezas_de([] { iv_traza_texto_u(nullptr, "    param1"); }), piezas());
}

// The characters of the code page reach the debugger as they were, and the text in one piece.
TEST_F(iv_traza, texto_ancho_va_entero_por_la_llamada_ancha)
{
    std::wstring texto = std::wstring(600, L'x') + L"\u00e9";
    char ansi[1024] = "";
    WideCharToMultiByte(CP_ACP, 0, texto.c_str(), -1, ansi, sizeof ansi, nullptr, nullptr);

    EXPECT_EQ(piezas_de([&] { iv_traza_texto_u(texto.c_str(), "    param1"); }),
              (piezas{"    param1", "\"", ansi, "\"", "\n"}));
}

// ---- Records

TEST_F(iv_traza, registros_escriben_su_cabecera_y_sus_piezas_en_orden)
{
    for (const caso_registro &caso : REGISTROS)
        EXPECT_EQ(piezas_de(caso.escribe), registro(caso.esperadas)) << caso.que;
}

TEST_F(iv_traza, registro_se_lee_como_un_texto)
{
    captura_traza traza;
    iv_traza_fin_comando("Calc", 100, 1, &ID, &s_texto1, nullptr, nullptr);
    iv_traza_get_datos_entrada_comando("Calc", 100, nullptr, nullptr, nullptr, nullptr, 0);

    EXPECT_EQ(enmascara_tiempos(traza.texto()), "\n*** <t>:  FIN COMANDO Calc id_comando: 100\n"
                                                "    Resultado     OK\n"
                                                "    id_datos_salida_comando = 105\n"
                                                "    serv_buffer_64\"uno\"\n"
                                                "\n"
                                                "\n*** <t>:  GET_DATOS_ENTRADA_COMANDO Calc id_comando: 100\n"
                                                "    Resultado     FALSO\n");
}
