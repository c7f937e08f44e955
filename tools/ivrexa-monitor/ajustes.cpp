#include "ajustes.h"

#include <algorithm>
#include <cwchar>

#include "comun/texto.h"

namespace monitor {

// Larger ones are not ours: they came there by another hand, or from a screen that there is not.
static const int MAX_COORDENADA = 100000, MAX_ANCHO = 10000;
static const uint32_t MIN_PPP = 48, MAX_PPP = 1920;
static const size_t MAX_COLUMNAS = 64;
static const DWORD MAX_TEXTO = 1024;

// ---- Reading: a value of another type, too long or out of bounds is as one that is not there

static std::wstring lee_texto(HKEY clave, const wchar_t *nombre)
{
    wchar_t texto[MAX_TEXTO] = L"";
    DWORD bytes = sizeof texto;
    if (RegGetValueW(clave, nullptr, nombre, RRF_RT_REG_SZ, nullptr, texto, &bytes) != ERROR_SUCCESS)
        return L"";
    return texto;
}

static uint32_t lee_numero(HKEY clave, const wchar_t *nombre, uint32_t si_no, uint32_t min, uint32_t max)
{
    DWORD numero = 0, bytes = sizeof numero;
    if (RegGetValueW(clave, nullptr, nombre, RRF_RT_REG_DWORD, nullptr, &numero, &bytes) != ERROR_SUCCESS ||
        bytes != sizeof numero)
        return si_no;
    return numero >= min && numero <= max ? numero : si_no;
}

// Whole numbers with commas between them; none at all where one of them is out of bounds or is no number.
static std::vector<int> lee_lista(HKEY clave, const wchar_t *nombre, int min, int max)
{
    std::wstring texto = lee_texto(clave, nombre);
    std::vector<int> lista;
    const wchar_t *resto = texto.c_str();
    while (*resto != L'\0') {
        wchar_t *fin = nullptr;
        long numero = wcstol(resto, &fin, 10);
        bool acaba_bien = *fin == L'\0' || (*fin == L',' && fin[1] != L'\0');
        if (fin == resto || !acaba_bien || numero < min || numero > max)
            return {};
        lista.push_back(static_cast<int>(numero));
        resto = *fin == L',' ? fin + 1 : fin;
    }
    return lista;
}

static std::vector<int> lee_anchos(HKEY clave, const wchar_t *nombre)
{
    std::vector<int> anchos = lee_lista(clave, nombre, 0, MAX_ANCHO);
    return anchos.size() <= MAX_COLUMNAS ? anchos : std::vector<int>();
}

static void lee_ventana(HKEY clave, ajustes *a)
{
    std::vector<int> lados = lee_lista(clave, L"ventana", -MAX_COORDENADA, MAX_COORDENADA);
    if (lados.size() != 4 || lados[0] >= lados[2] || lados[1] >= lados[3])
        return;
    a->hay_ventana = true;
    a->ventana = {lados[0], lados[1], lados[2], lados[3]};
}

static void lee_todo(HKEY clave, ajustes *a)
{
    lee_ventana(clave, a);
    a->ppp_ventana = lee_numero(clave, L"ppp_ventana", 0, MIN_PPP, MAX_PPP);
    a->maximizada = lee_numero(clave, L"maximizada", a->maximizada, 0, 1) != 0;
    a->anchos_actividades = lee_anchos(clave, L"anchos_actividades");
    a->anchos_servicios = lee_anchos(clave, L"anchos_servicios");
    a->anchos_programas = lee_anchos(clave, L"anchos_programas");
    a->anchos_valores = lee_anchos(clave, L"anchos_valores");
    uint32_t alto = static_cast<uint32_t>(a->alto_actividades_por_mil);
    a->alto_actividades_por_mil = static_cast<int>(lee_numero(clave, L"alto_actividades_por_mil", alto, 50, 950));
    a->filtro_servicio = herramientas::de_ancho(lee_texto(clave, L"filtro_servicio"));
    a->filtro_clases = lee_numero(clave, L"filtro_clases", a->filtro_clases, 0, 0xffffffff);
    a->guarda_valores = lee_numero(clave, L"guarda_valores", a->guarda_valores, 0, 1) != 0;
}

ajustes lee_ajustes(const wchar_t *clave)
{
    ajustes a;
    HKEY abierta = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, clave, 0, KEY_QUERY_VALUE, &abierta) != ERROR_SUCCESS)
        return a;
    lee_todo(abierta, &a);
    RegCloseKey(abierta);
    return a;
}

// ---- Writing

static bool escribe_texto(HKEY clave, const wchar_t *nombre, const std::wstring &texto)
{
    return RegSetValueExW(clave, nombre, 0, REG_SZ, reinterpret_cast<const BYTE *>(texto.c_str()),
                          static_cast<DWORD>((texto.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

static bool escribe_numero(HKEY clave, const wchar_t *nombre, uint32_t numero)
{
    return RegSetValueExW(clave, nombre, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&numero), sizeof numero) ==
           ERROR_SUCCESS;
}

static bool escribe_lista(HKEY clave, const wchar_t *nombre, const std::vector<int> &lista)
{
    std::wstring texto;
    for (int numero : lista)
        texto += (texto.empty() ? L"" : L",") + std::to_wstring(numero);
    return escribe_texto(clave, nombre, texto);
}

static bool escribe_ventana(HKEY clave, const ajustes &a)
{
    const RECT &v = a.ventana;
    return escribe_lista(clave, L"ventana",
                         a.hay_ventana ? std::vector<int>{v.left, v.top, v.right, v.bottom} : std::vector<int>());
}

// All of them, even behind one that fails.
static bool escribe_todo(HKEY clave, const ajustes &a)
{
    bool bien = escribe_ventana(clave, a);
    bien &= escribe_numero(clave, L"ppp_ventana", a.ppp_ventana);
    bien &= escribe_numero(clave, L"maximizada", a.maximizada);
    bien &= escribe_lista(clave, L"anchos_actividades", a.anchos_actividades);
    bien &= escribe_lista(clave, L"anchos_servicios", a.anchos_servicios);
    bien &= escribe_lista(clave, L"anchos_programas", a.anchos_programas);
    bien &= escribe_lista(clave, L"anchos_valores", a.anchos_valores);
    bien &= escribe_numero(clave, L"alto_actividades_por_mil", static_cast<uint32_t>(a.alto_actividades_por_mil));
    bien &= escribe_texto(clave, L"filtro_servicio", herramientas::a_ancho(a.filtro_servicio));
    bien &= escribe_numero(clave, L"filtro_clases", a.filtro_clases);
    bien &= escribe_numero(clave, L"guarda_valores", a.guarda_valores);
    return bien;
}

bool escribe_ajustes(const ajustes &a, const wchar_t *clave)
{
    HKEY abierta = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, clave, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &abierta, nullptr) !=
        ERROR_SUCCESS)
        return false;
    bool bien = escribe_todo(abierta, a);
    RegCloseKey(abierta);
    return bien;
}

// ---- Screens

static int64_t superficie_comun(const RECT &a, const RECT &b)
{
    int64_t ancho = int64_t(std::min(a.right, b.right)) - std::max(a.left, b.left);
    int64_t alto = int64_t(std::min(a.bottom, b.bottom)) - std::max(a.top, b.top);
    return ancho > 0 && alto > 0 ? ancho * alto : 0;
}

// Moves [*desde, *hasta) into [min, max), cut to its length.
static void encaja(LONG *desde, LONG *hasta, LONG min, LONG max)
{
    int64_t largo = std::min(int64_t(*hasta) - *desde, int64_t(max) - min);
    int64_t sitio = std::max<int64_t>(min, std::min<int64_t>(*desde, max - largo));
    *desde = static_cast<LONG>(sitio);
    *hasta = static_cast<LONG>(sitio + largo);
}

RECT con_otros_ppp(const RECT &ventana, uint32_t de, uint32_t a)
{
    if (de == 0 || a == 0)
        return ventana;
    int ancho = MulDiv(ventana.right - ventana.left, static_cast<int>(a), static_cast<int>(de));
    int alto = MulDiv(ventana.bottom - ventana.top, static_cast<int>(a), static_cast<int>(de));
    return {ventana.left, ventana.top, ventana.left + ancho, ventana.top + alto};
}

RECT dentro_de_una_pantalla(const RECT &ventana, const std::vector<RECT> &areas)
{
    RECT dentro = ventana;
    if (areas.empty())
        return dentro;
    auto la_suya = std::max_element(areas.begin(), areas.end(), [&](const RECT &a, const RECT &b) {
        return superficie_comun(ventana, a) < superficie_comun(ventana, b);
    });
    encaja(&dentro.left, &dentro.right, la_suya->left, la_suya->right);
    encaja(&dentro.top, &dentro.bottom, la_suya->top, la_suya->bottom);
    return dentro;
}

static BOOL CALLBACK anota_pantalla(HMONITOR pantalla, HDC, RECT *, LPARAM areas)
{
    std::vector<RECT> *todas = reinterpret_cast<std::vector<RECT> *>(areas);
    MONITORINFO info = {};
    info.cbSize = sizeof info;
    if (GetMonitorInfoW(pantalla, &info))
        todas->insert((info.dwFlags & MONITORINFOF_PRIMARY) != 0 ? todas->begin() : todas->end(), info.rcWork);
    return TRUE;
}

std::vector<RECT> areas_de_trabajo()
{
    std::vector<RECT> areas;
    EnumDisplayMonitors(nullptr, nullptr, anota_pantalla, reinterpret_cast<LPARAM>(&areas));
    return areas;
}

} // namespace monitor
