#include "pantalla.h"

namespace monitor {

template <typename F>
static F de_user32(const char *nombre)
{
    return reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"user32.dll"), nombre)));
}

UINT ppp_de(HWND hwnd)
{
    static const auto dame = de_user32<UINT(WINAPI *)(HWND)>("GetDpiForWindow");
    UINT ppp = dame != nullptr ? dame(hwnd) : 0;
    if (ppp != 0)
        return ppp;
    HDC dc = GetDC(nullptr);
    ppp = static_cast<UINT>(GetDeviceCaps(dc, LOGPIXELSX));
    ReleaseDC(nullptr, dc);
    return ppp;
}

int escala(int pixeles_a_96, UINT ppp)
{
    return MulDiv(pixeles_a_96, static_cast<int>(ppp), 96);
}

int a_96(int pixeles, UINT ppp)
{
    return MulDiv(pixeles, 96, static_cast<int>(ppp));
}

HFONT crea_fuente(UINT ppp, bool negrita)
{
    static const auto dame = de_user32<BOOL(WINAPI *)(UINT, UINT, void *, UINT, UINT)>("SystemParametersInfoForDpi");
    NONCLIENTMETRICSW medidas = {};
    medidas.cbSize = sizeof medidas;
    if (dame == nullptr || !dame(SPI_GETNONCLIENTMETRICS, sizeof medidas, &medidas, 0, ppp))
        SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof medidas, &medidas, 0);
    if (negrita)
        medidas.lfMessageFont.lfWeight = FW_BOLD;
    return CreateFontIndirectW(&medidas.lfMessageFont);
}

int ancho_de(HWND hwnd, HFONT fuente, const wchar_t *texto)
{
    SIZE tam = {};
    HDC dc = GetDC(hwnd);
    HGDIOBJ antes = SelectObject(dc, fuente);
    GetTextExtentPoint32W(dc, texto, lstrlenW(texto), &tam);
    SelectObject(dc, antes);
    ReleaseDC(hwnd, dc);
    return tam.cx;
}

int alto_de_linea(HWND hwnd, HFONT fuente)
{
    TEXTMETRICW medidas = {};
    HDC dc = GetDC(hwnd);
    HGDIOBJ antes = SelectObject(dc, fuente);
    GetTextMetricsW(dc, &medidas);
    SelectObject(dc, antes);
    ReleaseDC(hwnd, dc);
    return medidas.tmHeight;
}

int medida_del_sistema(int cual, UINT ppp)
{
    static const auto dame = de_user32<int(WINAPI *)(int, UINT)>("GetSystemMetricsForDpi");
    return dame != nullptr ? dame(cual, ppp) : GetSystemMetrics(cual);
}

SIZE con_marco(HWND hwnd, SIZE cliente, UINT ppp)
{
    static const auto ajusta = de_user32<BOOL(WINAPI *)(RECT *, DWORD, BOOL, DWORD, UINT)>("AdjustWindowRectExForDpi");
    RECT r = {0, 0, cliente.cx, cliente.cy};
    DWORD estilo = static_cast<DWORD>(GetWindowLongW(hwnd, GWL_STYLE));
    DWORD estilo_ext = static_cast<DWORD>(GetWindowLongW(hwnd, GWL_EXSTYLE));
    if (ajusta == nullptr || !ajusta(&r, estilo, TRUE, estilo_ext, ppp))
        AdjustWindowRectEx(&r, estilo, TRUE, estilo_ext);
    return {r.right - r.left, r.bottom - r.top};
}

bool alto_contraste()
{
    HIGHCONTRASTW contraste = {};
    contraste.cbSize = sizeof contraste;
    return SystemParametersInfoW(SPI_GETHIGHCONTRAST, sizeof contraste, &contraste, 0) &&
           (contraste.dwFlags & HCF_HIGHCONTRASTON) != 0;
}

} // namespace monitor
