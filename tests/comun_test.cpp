// The support library of the tests, tested: that it sees what it must see, and fails what must fail.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "comun/informes.h"
#include "comun/informes_modulo.h"
#include "comun/lineas.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/traza_captura.h"
#include "comun/util.h"
#include "comun/ventana.h"
#include "comun/vigilante.h"

namespace {

const char *const TEXTO = "Error in iv_mem - lin 87\n\nExpr: (memlocal) != 0";

// Shows a real box on another thread and returns what it answered.
DWORD WINAPI muestra_caja(void *texto)
{
    return static_cast<DWORD>(MessageBoxA(nullptr, static_cast<const char *>(texto), "Assert ivrexa", 0));
}

HANDLE caja_en_otro_hilo(const char *texto = TEXTO)
{
    return CreateThread(nullptr, 0, muestra_caja, const_cast<char *>(texto), 0, nullptr);
}

DWORD espera_hilo(HANDLE hilo)
{
    DWORD resultado = 0;
    EXPECT_EQ(WaitForSingleObject(hilo, 20000), WAIT_OBJECT_0);
    GetExitCodeThread(hilo, &resultado);
    CloseHandle(hilo);
    return resultado;
}

// Runs one of the disabled tests below in a process of its own; `salida` gets what it printed.
uint32_t corre_desactivada(const char *nombre, std::string *salida)
{
    papel hija =
        arranca_programa("", {std::string("--gtest_filter=*.DISABLED_") + nombre, "--gtest_also_run_disabled_tests"});
    uint32_t codigo = hija.espera_fin(30000);
    for (const std::string &linea : hija.lineas())
        *salida += linea + "\n";
    return codigo;
}

} // namespace

// ---- Tests that must fail: each is run by the one that proves it.

TEST(informes_que_suspenden, DISABLED_caja_inesperada)
{
    MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0);
}

TEST(informes_que_suspenden, DISABLED_caja_ajena)
{
    MessageBoxA(nullptr, "Something else", "Other", 0);
}

TEST(informes_que_suspenden, DISABLED_informe_de_modulo_inesperado)
{
    iv_ventana()->MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0);
}

TEST(informes_que_suspenden, DISABLED_caida)
{
    volatile int *nada = nullptr;
    *nada = 1; // cppcheck-suppress nullPointer  // the crash is what is tested
}

TEST(informes_que_suspenden, DISABLED_nada_malo) {}

// ---- informes

TEST(informes, texto_de_la_caja_se_lee_en_sus_partes)
{
    datos_informe i = lee_informe("Assert ivrexa", "Error in iv_mutex - lin 0\n\nExpr: a - lin 3 < b\n\nExpr: c");

    EXPECT_FALSE(i.ajeno);
    EXPECT_EQ(i.modulo, "iv_mutex");
    EXPECT_EQ(i.linea, 0u);
    EXPECT_EQ(i.expresion, "a - lin 3 < b\n\nExpr: c");
}

TEST(informes, otro_titulo_o_texto_es_ajeno)
{
    EXPECT_TRUE(lee_informe("Assert", TEXTO).ajeno);
    EXPECT_TRUE(lee_informe("Assert ivrexa", "Error in iv_mem - lin 87\nExpr: x").ajeno);
    EXPECT_TRUE(lee_informe("Assert ivrexa", "Error in iv_mem - lin x\n\nExpr: x").ajeno);
    EXPECT_TRUE(lee_informe("Assert ivrexa", "").ajeno);
}

TEST(informes, caja_de_este_hilo_se_lee_y_se_cierra)
{
    EXPECT_EQ(MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0), IDOK);

    ASSERT_EQ(num_informes(), 1u);
    EXPECT_EQ(informe(0).linea, 87u);
    EXPECT_EQ(informe(0).texto, TEXTO);
    EXPECT_EQ(informe(0).titulo, "Assert ivrexa");
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_EQ(num_informes(), 0u);
}

TEST(informes, caja_de_otro_hilo_se_espera)
{
    HANDLE hilo = caja_en_otro_hilo();

    ESPERA_INFORME("iv_mem", "(memlocal) != 0", 10000);

    EXPECT_EQ(espera_hilo(hilo), static_cast<DWORD>(IDOK));
    EXPECT_SIN_INFORMES();
}

TEST(informes, varias_cajas_a_la_vez_se_cierran_todas)
{
    std::vector<HANDLE> hilos;
    for (int n = 0; n < 5; n++)
        hilos.push_back(caja_en_otro_hilo());
    for (HANDLE hilo : hilos)
        espera_hilo(hilo);

    ASSERT_EQ(num_informes(), 5u);
    for (int n = 0; n < 5; n++)
        EXPECT_INFORME("iv_mem", "(memlocal) != 0");
}

TEST(informes, cajas_seguidas_se_cuentan_en_su_orden)
{
    for (const char *modulo : {"a", "b", "c", "d", "e", "f"})
        MessageBoxA(nullptr, (std::string("Error in ") + modulo + " - lin 1\n\nExpr: x").c_str(), "Assert ivrexa", 0);

    for (const char *modulo : {"a", "b", "c", "d", "e", "f"})
        EXPECT_INFORME(modulo, "x");
}

TEST(informes, caja_se_cierra_pronto)
{
    MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0); // the first one also starts the window system
    uint64_t inicio = GetTickCount64();
    for (int n = 0; n < 10; n++)
        MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0);
    uint64_t ms = GetTickCount64() - inicio;

    EXPECT_LT(ms, 5000u) << "ten boxes";
    RecordProperty("ms_of_ten_boxes", std::to_string(ms));
    EXPECT_EQ(num_informes(), 11u);
    borra_informes();
}

TEST(informes, texto_largo_llega_entero)
{
    std::string expresion(1900, 'x');
    MessageBoxA(nullptr, ("Error in iv_mem - lin 1\n\nExpr: " + expresion).c_str(), "Assert ivrexa", 0);

    EXPECT_INFORME("iv_mem", expresion.c_str());
}

TEST(informes, falta_o_diferencia_suspende)
{
    EXPECT_NONFATAL_FAILURE(EXPECT_INFORME("iv_mem", "x"), "no report came");
    anyade_informe(lee_informe("Assert ivrexa", TEXTO));
    EXPECT_NONFATAL_FAILURE(EXPECT_INFORME("iv_mem", "memlocal != 0"), "but got iv_mem line 87");
    anyade_informe(lee_informe("Assert ivrexa", TEXTO));
    EXPECT_NONFATAL_FAILURE(EXPECT_INFORME("iv_mutex", "(memlocal) != 0"), "but got iv_mem line 87");
    anyade_informe(lee_informe("Assert ivrexa", TEXTO));
    EXPECT_NONFATAL_FAILURE(EXPECT_SIN_INFORMES(), "nobody expected");
    EXPECT_EQ(num_informes(), 0u);
}

TEST(informes, espera_sin_informe_acaba_en_su_limite)
{
    uint64_t inicio = GetTickCount64();
    EXPECT_NONFATAL_FAILURE(ESPERA_INFORME("iv_mem", "x", 200), "no report came");
    EXPECT_GE(GetTickCount64() - inicio, 190u);
}

TEST(informes, caja_que_nadie_espera_suspende_su_prueba)
{
    std::string salida;
    EXPECT_NE(corre_desactivada("caja_inesperada", &salida), 0u);
    EXPECT_NE(salida.find("[  FAILED  ] informes_que_suspenden.DISABLED_caja_inesperada"), std::string::npos) << salida;
    EXPECT_NE(salida.find("iv_mem line 87: \"(memlocal) != 0\""), std::string::npos) << salida;
}

TEST(informes, caja_ajena_suspende_su_prueba)
{
    std::string salida;
    EXPECT_NE(corre_desactivada("caja_ajena", &salida), 0u);
    EXPECT_NE(salida.find("foreign box \"Other\": \"Something else\""), std::string::npos) << salida;
}

TEST(informes, prueba_sin_cajas_pasa)
{
    std::string salida;
    EXPECT_EQ(corre_desactivada("nada_malo", &salida), 0u) << salida;
    EXPECT_NE(salida.find("[  PASSED  ] 1 test."), std::string::npos) << salida;
}

TEST(principal, caida_se_cuenta_y_acaba_con_codigo_3)
{
    std::string salida;
    EXPECT_EQ(corre_desactivada("caida", &salida), 3u);
}

// ---- informes_modulo

TEST(informes_modulo, grabador_apunta_sin_mostrar_caja)
{
    EXPECT_EQ(iv_ventana()->MessageBoxA, graba_informe);
    EXPECT_EQ(iv_ventana()->MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0), IDOK);
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
}

TEST(informes_modulo, duenyo_titulo_y_estilo_se_comprueban)
{
    graba_informe(GetDesktopWindow(), TEXTO, "Assert ivrexa", 0);
    graba_informe(nullptr, TEXTO, "Assert", 0);
    graba_informe(nullptr, TEXTO, "Assert ivrexa", MB_ICONERROR);

    EXPECT_NONFATAL_FAILURE(EXPECT_INFORME("iv_mem", "(memlocal) != 0"), "with an owner");
    EXPECT_NONFATAL_FAILURE(EXPECT_INFORME("iv_mem", "(memlocal) != 0"), "foreign box \"Assert\"");
    EXPECT_NONFATAL_FAILURE(EXPECT_INFORME("iv_mem", "(memlocal) != 0"), "style 16");
}

TEST(informes_modulo, informe_que_nadie_espera_suspende_su_prueba)
{
    std::string salida;
    EXPECT_NE(corre_desactivada("informe_de_modulo_inesperado", &salida), 0u);
    EXPECT_NE(salida.find("iv_mem line 87"), std::string::npos) << salida;
}

TEST(informes_modulo, tabla_cambiada_vuelve_a_su_estado)
{
    auto antes = iv_ventana()->IsWindow;
    {
        ventana_cambiada ventana;
        ventana->IsWindow = [](HWND) -> BOOL { return 7; };
        EXPECT_EQ(iv_ventana()->IsWindow(nullptr), 7);
    }
    EXPECT_EQ(iv_ventana()->IsWindow, antes);
}

// ---- traza_captura

TEST(traza_captura, piezas_llegan_en_orden_y_enteras)
{
    captura_traza traza;
    OutputDebugStringA("uno ");
    OutputDebugStringW(L"dos");
    OutputDebugStringA("\n");

    ASSERT_EQ(traza.piezas().size(), 3u);
    EXPECT_EQ(traza.piezas()[1].texto, "dos");
    EXPECT_EQ(traza.texto(), "uno dos\n");
    EXPECT_EQ(traza.texto_propio(), "uno dos\n");
    traza.borra();
    EXPECT_EQ(traza.texto(), "");
}

// What Windows raises for a wide text; Wine never does.
TEST(traza_captura, excepcion_ancha_es_una_pieza_y_queda_atendida)
{
    const wchar_t *texto = L"ancho \u00e9";
    ULONG_PTR args[4] = {8, reinterpret_cast<ULONG_PTR>(texto), 0, 0};
    captura_traza traza;
    RaiseException(0x4001000A, 0, 4, args);

    ASSERT_EQ(traza.piezas().size(), 1u);
    EXPECT_TRUE(traza.piezas()[0].ancha);
    OutputDebugStringW(texto);
    // cppcheck-suppress containerOutOfBounds  // there are two since the line above
    EXPECT_EQ(traza.piezas()[1].texto, traza.piezas()[0].texto);
}

TEST(traza_captura, hilos_se_distinguen_y_se_esperan)
{
    captura_traza traza;
    auto escribe = [](void *) -> DWORD { return OutputDebugStringA("otro hilo"), 0; };
    DWORD id = 0;
    HANDLE hilo = CreateThread(nullptr, 0, escribe, nullptr, 0, &id);

    EXPECT_TRUE(traza.espera("otro hilo", 10000));
    EXPECT_EQ(traza.texto_de_hilo(id), "otro hilo");
    EXPECT_EQ(traza.texto_propio(), "");
    EXPECT_FALSE(traza.espera("nada", 50));
    espera_hilo(hilo);
}

TEST(traza_captura, la_captura_mas_nueva_recibe_las_piezas)
{
    captura_traza fuera;
    {
        captura_traza dentro;
        OutputDebugStringA("a");
        EXPECT_EQ(dentro.piezas().size(), 1u);
    }
    OutputDebugStringA("b");
    EXPECT_EQ(fuera.texto(), "b");
}

TEST(traza_captura, solo_las_cabeceras_se_enmascaran)
{
    EXPECT_EQ(enmascara_tiempos("\n*** 5123406:  ESTOY VIVO 3\n\n*** 7: BUCLE x\n"),
              "\n*** <t>:  ESTOY VIVO 3\n\n*** <t>: BUCLE x\n");
    EXPECT_EQ(enmascara_tiempos("\n*** : x\n*** 12 x\n*** 12"), "\n*** : x\n*** 12 x\n*** 12");
    EXPECT_EQ(enmascara_tiempos("*** 12: no line before\n"), "*** 12: no line before\n");
}

TEST(traza_captura, variable_se_pone_vacia_y_se_quita)
{
    char valor[8] = "?";
    activa_traza("");
    SetLastError(0);
    EXPECT_EQ(GetEnvironmentVariableA("IVREXA_DEBUG", nullptr, 0), 1u);
    activa_traza();
    EXPECT_EQ(GetEnvironmentVariableA("IVREXA_DEBUG", valor, sizeof valor), 1u);
    desactiva_traza();
    EXPECT_EQ(GetEnvironmentVariableA("IVREXA_DEBUG", nullptr, 0), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ENVVAR_NOT_FOUND));
}

// ---- lineas

TEST(lineas, todo_texto_va_y_vuelve)
{
    std::string todos;
    for (int c = 255; c >= 0; c--)
        todos += static_cast<char>(c);
    for (const std::string &texto : {todos, std::string(), std::string("100% de \"x\"\n"), std::string("%41")}) {
        EXPECT_EQ(descodifica(codifica_linea(texto)), texto);
        EXPECT_EQ(descodifica(codifica_argumento(texto)), texto);
        EXPECT_EQ(campos(junta({texto, "", texto})), (argumentos{texto, "", texto}));
    }
    EXPECT_EQ(codifica_linea(todos).find('\n'), std::string::npos);
    EXPECT_EQ(codifica_argumento(todos).find_first_of(" \"\t"), std::string::npos);
    EXPECT_EQ(campos("DA 1|b", "DA "), (argumentos{"1", "b"}));
    EXPECT_EQ(de_hex(a_hex("\x00\xff\x1a", 3)), (std::vector<uint8_t>{0x00, 0xff, 0x1a}));
    EXPECT_EQ(de_hex("05 00"), (std::vector<uint8_t>{5, 0}));
    EXPECT_EQ(de_utf8(a_utf8(L"a\u00e9\u4e2d")), L"a\u00e9\u4e2d");
}

// ---- papel

PAPEL(eco)
{
    for (const std::string &arg : args)
        yo.di("ARG " + arg);
    yo.di("LISTO");
    while (std::optional<std::string> linea = yo.escucha(30000))
        yo.di("ECO " + *linea);
    return 0;
}

PAPEL(codigo)
{
    return std::stoi(args.at(0));
}

PAPEL(mudo)
{
    yo.escucha(60000);
    return 0;
}

PAPEL(informador)
{
    yo.di("LISTO");
    MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0);
    yo.di("DESPUES");
    yo.escucha(30000);
    return 0;
}

PAPEL(informador_ajeno)
{
    MessageBoxA(nullptr, "a|b\nc", "Other", 0);
    yo.di("LISTO");
    return 0;
}

PAPEL(informador_de_modulo)
{
    iv_ventana()->MessageBoxA(nullptr, TEXTO, "Assert ivrexa", 0);
    yo.di("LISTO");
    return 0;
}

PAPEL(con_expectativa)
{
    yo.di("LISTO");
    EXPECT_EQ(1 + 1, 3);
    return 0;
}

PAPEL(entorno)
{
    char valor[64] = "";
    DWORD num = GetEnvironmentVariableA(args.at(0).c_str(), valor, sizeof valor);
    yo.di("LISTO");
    yo.di("VALOR " + (num == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND ? "none" : "=" + std::string(valor)));
    return 0;
}

PAPEL(exacto)
{
    yo.di("LISTO");
    yo.escucha_linea("SIGUE", 30000);
    return 0;
}

PAPEL(padre_de_otro)
{
    papel nieto = arranca_papel("eco");
    yo.di(junta({"NIETO", std::to_string(nieto.pid())}));
    yo.di("LISTO");
    yo.escucha(60000);
    return 0;
}

static LRESULT CALLBACK proc_que_suma(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == WM_APP)
        return static_cast<LRESULT>(wparam) + lparam;
    if (msg == WM_APP + 1)
        PostQuitMessage(0);
    return DefWindowProcW(hwnd, msg, wparam, lparam);
}

PAPEL(con_ventana)
{
    HWND hwnd = crea_ventana(proc_que_suma);
    yo.di("LISTO");
    yo.di("HWND " + std::to_string(reinterpret_cast<uintptr_t>(hwnd)));
    std::optional<std::string> linea = bombea_hasta_linea(yo, 30000);
    yo.di("LINEA " + linea.value_or("none"));
    yo.di(bombea_hasta_quit(30000) == bombeo::quit ? "QUIT" : "TARDE");
    destruye_ventana(&hwnd);
    return 0;
}

TEST(papel, lineas_van_y_vienen_sin_perder_nada)
{
    papel p = arranca_papel("eco", {"", "con espacio", "\"a\\\"\n%41", "\xe1\xff"});
    EXPECT_EQ(p.espera_linea("ARG ", 5000), "ARG ");
    EXPECT_EQ(p.espera_linea("ARG ", 5000), "ARG con espacio");
    EXPECT_EQ(p.espera_linea("ARG ", 5000), "ARG \"a\\\"\n%41");
    EXPECT_EQ(p.espera_linea("ARG ", 5000), "ARG \xe1\xff");

    p.di("a\r\nb % \t|");
    p.di("");
    EXPECT_EQ(p.espera_linea("ECO a", 5000), "ECO a\r\nb % \t|");
    EXPECT_EQ(p.espera_linea("ECO", 5000), "ECO ");
    p.cierra_entrada();
    EXPECT_EQ(p.espera_fin(10000), 0u);
}

TEST(papel, lineas_que_no_se_piden_quedan_en_orden)
{
    papel p = arranca_papel("eco");
    for (const char *linea : {"1", "2", "3"})
        p.di(linea);

    EXPECT_EQ(p.espera_linea("ECO 3", 5000), "ECO 3");
    EXPECT_EQ(p.lineas(), (argumentos{"ECO 1", "ECO 2"}));
    EXPECT_EQ(p.espera_linea("ECO", 5000), "ECO 1");
    EXPECT_FALSE(p.busca_linea("ECO 3", 20));
}

TEST(papel, codigo_de_salida_se_cuenta)
{
    opciones_papel sin_espera;
    sin_espera.espera_listo = false;
    EXPECT_EQ(arranca_papel("codigo", {"0"}, sin_espera).espera_fin(10000), 0u);
    EXPECT_EQ(arranca_papel("codigo", {"17"}, sin_espera).espera_fin(10000), 17u);
    EXPECT_EQ(arranca_papel("no_existe", {}, sin_espera).espera_fin(10000), papel_SALIDA_DESCONOCIDO);
}

static void deja_acabar_mal()
{
    opciones_papel sin_espera;
    sin_espera.espera_listo = false;
    papel p = arranca_papel("codigo", {"17"}, sin_espera);
    espera_hasta([&] { return !p.vive(); }, 10000);
}

TEST(papel, acabar_mal_sin_que_nadie_lo_mire_suspende)
{
    EXPECT_NONFATAL_FAILURE(deja_acabar_mal(), "ended with code 17");
}

TEST(papel, matar_acaba_al_momento_y_no_suspende)
{
    papel p = arranca_papel("eco");
    EXPECT_TRUE(p.vive());

    p.mata();

    EXPECT_FALSE(p.vive());
    EXPECT_EQ(p.espera_fin(0), 9u);
}

TEST(papel, al_destruirse_acaba_con_el_hijo)
{
    HANDLE hijo;
    {
        papel p = arranca_papel("eco");
        hijo = OpenProcess(SYNCHRONIZE, FALSE, p.pid());
        ASSERT_NE(hijo, nullptr);
    }
    EXPECT_EQ(WaitForSingleObject(hijo, 0), WAIT_OBJECT_0);
    CloseHandle(hijo);
}

static papel *s_papel;

TEST(papel, esperas_tienen_limite_y_dicen_lo_visto)
{
    papel p = arranca_papel("eco");
    p.di("algo");
    EXPECT_TRUE(espera_hasta([&] { return p.lineas().size() == 1; }, 5000));
    s_papel = &p;
    uint64_t inicio = GetTickCount64();

    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_papel->espera_linea("OTRA", 150), ""), "it still runs; lines of it");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_papel->espera_fin(150), 259u), "did not end within 150 ms");

    EXPECT_GE(GetTickCount64() - inicio, 290u);
    EXPECT_LT(GetTickCount64() - inicio, 5000u);
}

TEST(papel, hijo_acabado_no_se_espera_hasta_el_limite)
{
    papel p = arranca_papel("eco");
    s_papel = &p;
    p.cierra_entrada();
    uint64_t inicio = GetTickCount64();

    EXPECT_NONFATAL_FAILURE(s_papel->espera_linea("OTRA", 60000), "it ended with code 0");

    EXPECT_LT(GetTickCount64() - inicio, 20000u);
    EXPECT_NONFATAL_FAILURE(s_papel->di("x"), "does not take the line");
}

static void arranca_mudo()
{
    opciones_papel poca_espera;
    poca_espera.listo_ms = 300;
    arranca_papel("mudo", {}, poca_espera);
}

static void arranca_inexistente()
{
    opciones_papel otro;
    otro.programa = "no_existe.exe";
    arranca_papel("x", {}, otro);
}

TEST(papel, arranque_que_no_llega_suspende)
{
    EXPECT_NONFATAL_FAILURE(arranca_mudo(), "did not say \"LISTO\" within 300 ms");
    EXPECT_NONFATAL_FAILURE(arranca_inexistente(), "cannot start");
}

TEST(papel, informe_del_hijo_se_toma)
{
    papel p = arranca_papel("informador");
    p.espera_linea("DESPUES", 10000);

    EXPECT_EQ(p.num_informes(), 1u); // it came before the line that the child wrote behind it
    EXPECT_INFORME_DE(p, "iv_mem", "(memlocal) != 0");
}

static void deja_informe()
{
    papel p = arranca_papel("informador");
    p.espera_linea("DESPUES", 10000);
}

static void deja_informe_ajeno()
{
    arranca_papel("informador_ajeno").espera_fin(10000);
}

static void deja_informe_de_modulo()
{
    arranca_papel("informador_de_modulo").espera_fin(10000);
}

TEST(papel, informe_del_hijo_que_nadie_toma_suspende)
{
    EXPECT_NONFATAL_FAILURE(deja_informe(), "iv_mem line 87: \"(memlocal) != 0\"");
    EXPECT_NONFATAL_FAILURE(deja_informe_ajeno(), "Other: a|b\nc");
    EXPECT_NONFATAL_FAILURE(deja_informe_de_modulo(), "iv_mem line 87");
}

static void deja_expectativa()
{
    arranca_papel("con_expectativa").espera_fin(10000);
}

TEST(papel, expectativa_del_papel_suspende_la_prueba)
{
    EXPECT_NONFATAL_FAILURE(deja_expectativa(), "1 + 1");
}

TEST(papel, entorno_se_cambia_solo_para_el_hijo)
{
    SetEnvironmentVariableA("COMUN_HEREDADA", "si");
    opciones_papel con_traza, sin_heredada;
    con_traza.entorno["IVREXA_DEBUG"] = "";
    sin_heredada.entorno["comun_heredada"] = std::nullopt;

    EXPECT_EQ(arranca_papel("entorno", {"IVREXA_DEBUG"}, con_traza).espera_linea("VALOR", 5000), "VALOR =");
    EXPECT_EQ(arranca_papel("entorno", {"IVREXA_DEBUG"}).espera_linea("VALOR", 5000), "VALOR none");
    EXPECT_EQ(arranca_papel("entorno", {"COMUN_HEREDADA"}).espera_linea("VALOR", 5000), "VALOR =si");
    EXPECT_EQ(arranca_papel("entorno", {"COMUN_HEREDADA"}, sin_heredada).espera_linea("VALOR", 5000), "VALOR none");
}

TEST(papel, suspendido_no_contesta_hasta_que_se_reanuda)
{
    papel p = arranca_papel("eco");
    p.suspende();
    p.di("x");
    EXPECT_FALSE(p.busca_linea("ECO", 300));
    p.reanuda();
    EXPECT_EQ(p.espera_linea("ECO", 5000), "ECO x");
}

TEST(papel, nacido_suspendido_empieza_al_reanudarse)
{
    opciones_papel suspendido;
    suspendido.suspendido = true;
    papel p = arranca_papel("eco", {}, suspendido);
    EXPECT_FALSE(p.busca_linea("LISTO", 300));
    p.reanuda();
    EXPECT_EQ(p.espera_linea("LISTO", 10000), "LISTO");
    p.suspende();
    p.di("x");
    EXPECT_FALSE(p.busca_linea("ECO", 300));
    p.reanuda();
    EXPECT_EQ(p.espera_linea("ECO", 5000), "ECO x");
}

TEST(papel, hijo_acaba_por_si_mismo_cuando_se_le_pasa_el_tiempo)
{
    opciones_papel corto;
    corto.limite_s = 1;
    papel p = arranca_papel("eco", {}, corto);
    EXPECT_EQ(p.espera_fin(10000), papel_SALIDA_LIMITE);
}

TEST(papel, hijo_acaba_por_si_mismo_cuando_muere_su_padre)
{
    papel padre = arranca_papel("eco");
    papel hijo = arranca_programa("", {"--papel=eco", "--padre=" + std::to_string(padre.pid())});
    hijo.espera_linea("LISTO", 10000);

    padre.mata();

    EXPECT_EQ(hijo.espera_fin(10000), papel_SALIDA_SIN_PADRE);
}

TEST(papel, nieto_muere_cuando_muere_su_padre)
{
    papel p = arranca_papel("padre_de_otro");
    HANDLE nieto = OpenProcess(SYNCHRONIZE, FALSE, std::stoul(campos(p.espera_linea("NIETO|", 5000)).at(1)));
    ASSERT_NE(nieto, nullptr);
    EXPECT_EQ(WaitForSingleObject(nieto, 0), static_cast<DWORD>(WAIT_TIMEOUT));

    p.mata();

    EXPECT_EQ(WaitForSingleObject(nieto, 5000), WAIT_OBJECT_0);
    CloseHandle(nieto);
}

TEST(papel, linea_equivocada_acaba_con_el_hijo)
{
    papel p = arranca_papel("exacto");
    p.di("PARA");
    EXPECT_EQ(p.espera_fin(10000), 1u);
    papel q = arranca_papel("exacto");
    q.di("SIGUE");
    EXPECT_EQ(q.espera_fin(10000), 0u);
}

TEST(papel, no_deja_manejadores)
{
    auto ronda = [] {
        papel p = arranca_papel("eco");
        p.di("x");
        p.espera_linea("ECO x", 5000);
    };
    ronda();
    uint32_t antes = cuenta_todos_los_manejadores();
    for (int vez = 0; vez < 5; vez++)
        ronda();
    EXPECT_LT(cuenta_todos_los_manejadores(), antes + 5);
}

// ---- papel_c: dll_eco_c.c is the role

TEST(papel_c, lineas_y_argumentos_van_y_vienen)
{
    opciones_papel en_c;
    en_c.programa = "dll_eco_c.exe";
    papel p = arranca_papel("eco", {"con espacio", ""}, en_c);
    EXPECT_EQ(p.espera_linea("YO", 5000), "YO eco|con espacio|||");

    p.di("a%b\nc");
    EXPECT_EQ(p.espera_linea("ECO", 5000), "ECO a%b\nc");
    p.di(std::string(200, 'x'));
    EXPECT_EQ(p.espera_linea("ECO", 5000), "ECO " + std::string(63, 'x'));
    p.cierra_entrada();
    EXPECT_EQ(p.espera_fin(10000), 7u);
}

TEST(papel_c, cajas_se_mandan_y_los_mensajes_se_atienden)
{
    opciones_papel en_c;
    en_c.programa = "dll_eco_c.exe";
    papel p = arranca_papel("ventana", {}, en_c);
    HWND hwnd = reinterpret_cast<HWND>(std::stoull(p.espera_linea("HWND ", 5000).substr(5)));

    EXPECT_EQ(SendMessageW(hwnd, WM_APP, 40, 2), 42);
    p.di("CAJA");
    EXPECT_INFORME_DE(p, "eco", "1 == 2");
    EXPECT_EQ(p.espera_linea("CAJA", 5000), "CAJA 1");
    PostMessageW(hwnd, WM_APP + 1, 0, 0);
    EXPECT_EQ(p.espera_fin(10000), 7u);
}

// ---- ventana

TEST(ventana, ventana_de_otro_proceso_contesta_mientras_bombea)
{
    papel p = arranca_papel("con_ventana");
    HWND hwnd = reinterpret_cast<HWND>(std::stoull(p.espera_linea("HWND ", 5000).substr(5)));

    EXPECT_EQ(SendMessageW(hwnd, WM_APP, 40, 2), 42);
    p.di("hola");
    EXPECT_EQ(p.espera_linea("LINEA", 5000), "LINEA hola");
    EXPECT_EQ(SendMessageW(hwnd, WM_APP, 1, 2), 3);
    PostMessageW(hwnd, WM_APP + 1, 0, 0);
    EXPECT_EQ(p.espera_linea("QUIT", 5000), "QUIT");
    EXPECT_EQ(p.espera_fin(10000), 0u);
}

TEST(ventana, bombeo_acaba_por_condicion_por_quit_o_por_tiempo)
{
    HWND hwnd = crea_ventana(proc_que_suma);
    ASSERT_TRUE(IsWindow(hwnd));
    EXPECT_TRUE(IsWindowUnicode(hwnd));
    EXPECT_FALSE(IsWindowVisible(hwnd));

    EXPECT_EQ(bombea_hasta([] { return true; }, 0), bombeo::cumplido);
    EXPECT_EQ(bombea_hasta([] { return false; }, 50), bombeo::tarde);
    PostMessageW(hwnd, WM_APP + 1, 0, 0);
    EXPECT_EQ(bombea_hasta_quit(5000), bombeo::quit);
    HWND antes = hwnd;
    destruye_ventana(&hwnd);
    EXPECT_EQ(hwnd, nullptr);
    EXPECT_FALSE(IsWindow(antes));
}

// ---- util y crudo

TEST(util, nombres_no_se_repiten_y_caben)
{
    const char *uno = nombre_unico("Calc");
    const char *dos = nombre_unico("Calc");
    EXPECT_STRNE(uno, dos);
    EXPECT_EQ(std::string(uno).rfind("Calc_", 0), 0u);
    EXPECT_LT(std::string(nombre_unico(std::string(200, 'x').c_str())).size(), 64u);
}

TEST(util, bloques_y_mutexes_de_la_sesion_se_cuentan_de_uno_en_uno)
{
    uint32_t antes = cuenta_manejadores();
    HANDLE mutex = CreateMutexA(nullptr, FALSE, nombre_unico("mutex"));
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    HANDLE bloque = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 16, nombre_unico("bloque"));
    EXPECT_EQ(cuenta_manejadores(), antes + 2);
    HANDLE otros[] = {CreateEventA(nullptr, FALSE, FALSE, nombre_unico("evento")),
                      CreateMutexA(nullptr, FALSE, nullptr),
                      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 16, nullptr)};
    EXPECT_EQ(cuenta_manejadores(), antes + 2) << "no name, or another kind";
    for (HANDLE otro : otros)
        CloseHandle(otro);
    CloseHandle(mutex);
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    CloseHandle(bloque);
    EXPECT_EQ(cuenta_manejadores(), antes);
}

TEST(util, todos_los_manejadores_se_cuentan)
{
    uint32_t antes = cuenta_todos_los_manejadores();
    HANDLE eventos[50];
    for (HANDLE &evento : eventos)
        evento = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    EXPECT_GT(cuenta_todos_los_manejadores(), antes + 40);
    for (HANDLE evento : eventos)
        CloseHandle(evento);
    EXPECT_LT(cuenta_todos_los_manejadores(), antes + 10);
}

TEST(util, espera_acaba_por_condicion_o_por_tiempo)
{
    int vueltas = 0;
    EXPECT_TRUE(espera_hasta([&] { return ++vueltas == 3; }, 5000));
    EXPECT_FALSE(espera_hasta([] { return false; }, 30));
}

TEST(util, diferencia_de_bytes_se_muestra)
{
    std::vector<uint8_t> a(40, 0x41), b = a;
    EXPECT_TRUE(bytes_iguales(a, b));
    b[35] = 0x7a;
    ::testing::AssertionResult distintos = bytes_iguales(a, b);
    EXPECT_FALSE(distintos);
    EXPECT_NE(std::string(distintos.message()).find("differ first at 35"), std::string::npos) << distintos.message();
    EXPECT_NE(std::string(distintos.message()).find("     got    32  41 41 41 7a"), std::string::npos)
        << distintos.message();
    b = a;
    b.pop_back();
    EXPECT_FALSE(bytes_iguales(a, b));
}

TEST(crudo, bloque_se_crea_se_abre_y_se_lee)
{
    const char *nombre = nombre_unico("bloque");
    EXPECT_FALSE(existe_bloque(nombre));
    {
        bloque_crudo uno(nombre, 300);
        EXPECT_FALSE(uno.ya_existia());
        uno.pon_u16(0, 0x1234);
        uno.pon_u64(8, 0x1122334455667788u);
        uno.pon_texto_u(16, L"hola");
        uno.pon_texto(40, "adios");

        bloque_crudo dos(nombre);
        ASSERT_TRUE(dos.abierto());
        EXPECT_TRUE(dos.ya_existia());
        EXPECT_EQ(dos.cabecera(), 300u);
        EXPECT_GE(dos.tam_vista(), 304u);
        EXPECT_EQ(dos.u16(0), 0x1234);
        EXPECT_EQ(dos.u32(8), 0x55667788u);
        EXPECT_EQ(dos.u64(8), 0x1122334455667788u);
        EXPECT_EQ(dos.texto_u(16, 8), L"hola");
        EXPECT_EQ(dos.texto_u(16, 2), L"ho");
        EXPECT_EQ(dos.texto(40, 16), "adios");
        EXPECT_TRUE(bytes_iguales(de_hex("34 12"), dos.bytes(0, 2)));
        EXPECT_TRUE(existe_bloque(nombre));
    }
    EXPECT_FALSE(existe_bloque(nombre));
}

static bloque_crudo *s_bloque;

TEST(crudo, acceso_fuera_del_bloque_suspende_y_no_cae)
{
    bloque_crudo ninguno(nombre_unico("nada"));
    bloque_crudo uno(nombre_unico("bloque"), 16);
    EXPECT_FALSE(ninguno.abierto());

    s_bloque = &ninguno;
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_bloque->u32(0), 0u), "there is no such block");
    s_bloque = &uno;
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_bloque->u32(1u << 20), 0u), "which has only");
    EXPECT_NONFATAL_FAILURE(s_bloque->pon_u32(1u << 20, 1), "which has only");
}

TEST(crudo, mutex_se_retiene_se_suelta_y_se_abandona)
{
    const char *nombre = nombre_unico("mutex");
    EXPECT_FALSE(existe_mutex(nombre));
    mutex_crudo uno(nombre, mutex_crudo::modo::crea);
    mutex_crudo otro(nombre);
    EXPECT_TRUE(existe_mutex(nombre));
    EXPECT_TRUE(otro.libre());

    EXPECT_TRUE(uno.retiene());
    EXPECT_FALSE(otro.libre());
    EXPECT_FALSE(otro.retiene(50));
    uno.suelta();
    EXPECT_TRUE(otro.libre());

    uno.retiene();
    uno.abandona();
    HANDLE mutex = OpenMutexA(MUTEX_ALL_ACCESS, FALSE, nombre);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), static_cast<DWORD>(WAIT_ABANDONED));
    EXPECT_FALSE(otro.libre()); // this thread has it now
    ReleaseMutex(mutex);
    CloseHandle(mutex);
}

TEST(crudo, mutex_que_no_existe_suspende)
{
    EXPECT_NONFATAL_FAILURE(mutex_crudo("no existe"), "there is no mutex");
}
