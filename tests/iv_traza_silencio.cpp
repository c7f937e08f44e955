// What the trace and the reports ask of the system: the variable once, nothing while off, the wide call for
// wide texts alone, and the window system's formatter and box.
#include <gtest/gtest.h>

#include <cstdarg>
#include <functional>
#include <string>
#include <vector>

#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/papel.h"
#include "comun/traza_captura.h"

#include "iv_traza.h"

IMPORTACION(GetEnvironmentVariableA);
IMPORTACION(GetTickCount);
IMPORTACION(OutputDebugStringA);
IMPORTACION(OutputDebugStringW);

namespace {

// ---- What is asked for, in its order

std::vector<std::string> s_pedido;

DWORD WINAPI apunta_variable(LPCSTR nombre, LPSTR buffer, DWORD tam)
{
    s_pedido.push_back(std::string("E ") + nombre + (buffer == nullptr && tam == 0 ? "" : " into a buffer"));
    return 1;
}

DWORD WINAPI apunta_variable_que_falta(LPCSTR nombre, LPSTR buffer, DWORD tam)
{
    apunta_variable(nombre, buffer, tam);
    return 0;
}

DWORD WINAPI apunta_tiempo()
{
    s_pedido.push_back("T");
    return 4294967295u;
}

void WINAPI apunta_ansi(LPCSTR texto)
{
    s_pedido.push_back(std::string("A ") + texto);
}

void WINAPI apunta_ancho(LPCWSTR texto)
{
    s_pedido.push_back("W " + std::string(texto, texto + wcslen(texto)));
}

class sistema_apuntado {
public:
    explicit sistema_apuntado(decltype(&GetEnvironmentVariableA) variable)
        : m_variable(__imp_GetEnvironmentVariableA, variable), m_tiempo(__imp_GetTickCount, apunta_tiempo),
          m_ansi(__imp_OutputDebugStringA, apunta_ansi), m_ancho(__imp_OutputDebugStringW, apunta_ancho)
    {
        s_pedido.clear();
    }

private:
    importacion_cambiada<decltype(&GetEnvironmentVariableA)> m_variable;
    importacion_cambiada<decltype(&GetTickCount)> m_tiempo;
    importacion_cambiada<decltype(&OutputDebugStringA)> m_ansi;
    importacion_cambiada<decltype(&OutputDebugStringW)> m_ancho;
};

using pedidos = std::vector<std::string>;

wchar_t s_texto[] = L"t";
wchar_t *s_sitio = s_texto;
const uint32_t ID = 105;

struct caso_llamada {
    const char *que;
    void (*llama)();
    uint32_t num_textos = 0; // wide ones
};

// Every function that tests the switch.
const caso_llamada LLAMADAS[] = {
    {"switch", [] { iv_traza_activa(); }},
    {"text", [] { iv_traza_cadena("a"); }},
    {"line", [] { iv_traza_linea("a"); }},
    {"number", [] { iv_traza_cadena_numero("a", 7, 1); }},
    {"value", [] { iv_traza_cadena_valor("a", 7, 1); }},
    {"server", [] { iv_traza_registro_servidor("p", nullptr); }},
    {"client", [] { iv_traza_registro_cliente_servicio("p", nullptr, "s"); }},
    {"service", [] { iv_traza_registro_servicio_prestado("s", 7); }},
    {"input", [] { iv_traza_get_datos_entrada_comando("s", 100, &ID, s_texto, s_texto, s_texto, 1); }, 3},
    {"output", [] { iv_traza_set_datos_entrada_comando("s", 100, 5, s_texto, s_texto, s_texto, 1); }, 3},
    {"command begins", [] { iv_traza_inicio_comando("s", 100, 104, s_texto, s_texto, s_texto); }, 3},
    {"command ends", [] { iv_traza_fin_comando("s", 100, 1, &ID, &s_sitio, &s_sitio, &s_sitio); }, 3},
    {"heartbeat", [] { iv_traza_estoy_vivo(3); }},
    {"client 1", iv_traza_CLIENTE_ESPERA_NINGUN_CLIENTE},
    {"client 2", iv_traza_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO},
    {"client 3", iv_traza_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO},
    {"client 4", iv_traza_CLIENTE_ESPERA_SERVIDOR_AVISADO},
    {"server 1", iv_traza_SERVIDOR_ESPERA_RECEPCION_COMANDO},
    {"server 2", iv_traza_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO},
};

// The pieces of one call, without its header, as one text: "A" or "W" and the piece.
pedidos de(void (*llama)())
{
    s_pedido.clear();
    llama();
    pedidos resto = s_pedido;
    if (resto.size() >= 4 && resto[0] == "T") {
        EXPECT_EQ(pedidos(resto.begin(), resto.begin() + 4), (pedidos{"T", "A \n*** ", "A 4294967295", "A : "}));
        resto.erase(resto.begin(), resto.begin() + 4);
    }
    return resto;
}

} // namespace

// ---- The switch

// A process of its own for each: whichever function is called first asks, and none asks again.
PAPEL(primera_llamada)
{
    const bool esta = args.at(0) == "si";
    const caso_llamada &primera = LLAMADAS[std::stoul(args.at(1))];
    yo.di("LISTO");
    {
        sistema_apuntado sistema(esta ? apunta_variable : apunta_variable_que_falta);
        primera.llama();
        EXPECT_FALSE(s_pedido.empty()) << primera.que;
        EXPECT_EQ(s_pedido.empty() ? "" : s_pedido[0], "E IVREXA_DEBUG") << primera.que;
        const pedidos de_la_primera = s_pedido;
        EXPECT_EQ(de_la_primera.size() > 1, esta && primera.llama != LLAMADAS[0].llama) << primera.que;
        s_pedido.clear();
        iv_traza_numero_a_texto(123);
        for (const caso_llamada &caso : LLAMADAS)
            caso.llama();
    }
    for (const std::string &pedido : s_pedido)
        EXPECT_NE(pedido[0], 'E') << "the answer is kept";
    if (!esta) {
        EXPECT_EQ(s_pedido, pedidos()) << "neither the time nor the debugger is asked for";
        // The text of a number lies in one buffer, where the next number's would be: none was formatted.
        const char *buffer = iv_traza_numero_a_texto(123);
        const std::string antes = buffer;
        for (const caso_llamada &caso : LLAMADAS)
            caso.llama();
        EXPECT_EQ(buffer, antes);
    }
    return 0;
}

TEST(iv_traza_sistema, cualquier_primera_llamada_pregunta_por_la_variable_una_sola_vez)
{
    const size_t num = sizeof LLAMADAS / sizeof LLAMADAS[0];
    for (size_t i = 0; i < num; i += 3)
        EXPECT_EQ(arranca_papel("primera_llamada", {"no", std::to_string(i)}).espera_fin(10000), 0u);
    for (size_t i = 0; i < num; i += 5)
        EXPECT_EQ(arranca_papel("primera_llamada", {"si", std::to_string(i)}).espera_fin(10000), 0u);
}

// A report is none of the trace's business.
PAPEL(informe_sin_traza)
{
    yo.di("LISTO");
    ventana_cambiada ventana;
    ventana->MessageBoxA = [](HWND, LPCSTR, LPCSTR, UINT) -> int { return IDOK; };
    sistema_apuntado sistema(apunta_variable);
    iv_assert_mensaje("x", "iv_mem", 1);
    EXPECT_EQ(s_pedido, pedidos());
    return 0;
}

TEST(iv_traza_sistema, informar_no_pregunta_por_la_variable_ni_escribe)
{
    EXPECT_EQ(arranca_papel("informe_sin_traza").espera_fin(10000), 0u);
}

// ---- Which call writes what

TEST(iv_traza_sistema, solo_los_textos_anchos_van_por_la_llamada_ancha)
{
    activa_traza();
    ASSERT_NE(iv_traza_activa(), 0u);
    sistema_apuntado sistema(apunta_variable);

    EXPECT_EQ(de([] { iv_traza_texto_u(L"w", "l"); }), (pedidos{"A l", "A \"", "W w", "A \"", "A \n"}));
    EXPECT_EQ(de([] { iv_traza_texto_u(L"", "l"); }), (pedidos{"A l", "A \"", "W ", "A \"", "A \n"}));
    for (const caso_llamada &caso : LLAMADAS) {
        uint32_t anchos = 0;
        for (const std::string &pieza : de(caso.llama)) {
            anchos += pieza == "W t";
            EXPECT_TRUE(pieza[0] == 'A' || pieza == "W t") << caso.que << ": " << pieza;
        }
        EXPECT_EQ(anchos, caso.num_textos) << caso.que;
    }
}

// The time is asked for once in each record, before its first piece, and in none of the plain lines.
TEST(iv_traza_sistema, cada_registro_pregunta_la_hora_una_vez_y_las_lineas_sueltas_ninguna)
{
    activa_traza();
    ASSERT_NE(iv_traza_activa(), 0u);
    sistema_apuntado sistema(apunta_variable);
    for (size_t i = 0; i < sizeof LLAMADAS / sizeof LLAMADAS[0]; i++) {
        s_pedido.clear();
        LLAMADAS[i].llama();
        uint32_t horas = 0;
        for (const std::string &pedido : s_pedido)
            horas += pedido == "T";
        EXPECT_EQ(horas, i < 5 ? 0u : 1u) << LLAMADAS[i].que;
        EXPECT_EQ(!s_pedido.empty() && s_pedido[0] == "T", i >= 5) << LLAMADAS[i].que;
    }
}

// ---- Reports

namespace {

std::string s_formato, s_texto_caja;

int WINAPIV apunta_formato(LPSTR destino, LPCSTR formato, ...)
{
    va_list args;
    va_start(args, formato);
    const std::string modulo = va_arg(args, const char *);
    const uint32_t linea = va_arg(args, uint32_t);
    const std::string expresion = va_arg(args, const char *);
    va_end(args);
    s_formato = std::string(formato) + "|" + modulo + "|" + std::to_string(linea) + "|" + expresion;
    memset(destino, 'x', 2047); // as much as its buffer has to hold
    destino[2047] = '\0';
    return 2047;
}

} // namespace

TEST(iv_assert_sistema, texto_se_forma_con_el_formateador_en_2048_caracteres_y_se_muestra)
{
    ventana_cambiada ventana;
    ventana->wsprintfA = apunta_formato;
    ventana->MessageBoxA = [](HWND, LPCSTR texto, LPCSTR, UINT) -> int {
        s_texto_caja = texto;
        return 0;
    };
    EXPECT_EQ(iv_assert_mensaje("(memlocal) != 0", "iv_mem", 149), 0);
    EXPECT_EQ(s_formato, "Error in %s - lin %d\n\nExpr: %s|iv_mem|149|(memlocal) != 0");
    EXPECT_EQ(s_texto_caja, std::string(2047, 'x'));
}

// ---- The window system

// Each entry of the table is the system's function of that name; the box is the tests' own here.
TEST(iv_ventana, llamadas_son_las_de_user32_con_su_nombre)
{
    const iv_ventana_llamadas *v = iv_ventana();
    const std::pair<const char *, void *> ENTRADAS[] = {
        {"wsprintfA", reinterpret_cast<void *>(v->wsprintfA)},
        {"RegisterWindowMessageA", reinterpret_cast<void *>(v->RegisterWindowMessageA)},
        {"SetWindowLongPtrW", reinterpret_cast<void *>(v->SetWindowLongPtrW)},
        {"CallWindowProcW", reinterpret_cast<void *>(v->CallWindowProcW)},
        {"PostMessageW", reinterpret_cast<void *>(v->PostMessageW)},
        {"SendMessageW", reinterpret_cast<void *>(v->SendMessageW)},
        {"PostQuitMessage", reinterpret_cast<void *>(v->PostQuitMessage)},
        {"IsWindow", reinterpret_cast<void *>(v->IsWindow)},
        {"GetActiveWindow", reinterpret_cast<void *>(v->GetActiveWindow)},
        {"SetForegroundWindow", reinterpret_cast<void *>(v->SetForegroundWindow)},
    };
    HMODULE user32 = GetModuleHandleA("user32.dll");
    for (const auto &[nombre, llamada] : ENTRADAS)
        EXPECT_EQ(llamada, reinterpret_cast<void *>(GetProcAddress(user32, nombre))) << nombre;
    EXPECT_EQ(iv_ventana(), v);
}
