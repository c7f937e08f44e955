#include "barra_filtro.h"

#include <algorithm>

#include <commctrl.h>

#include "comun/texto.h"
#include "pantalla.h"
#include "recursos.h"

namespace monitor {

static const wchar_t *const CLASES[] = {L"Se&rvices", L"&Commands", L"&Input", L"&Output", L"&Waits"};
static const clase BITS[] = {clase::servicio, clase::comando, clase::entrada, clase::salida, clase::espera};
static const int ANCHO_TEXTO = 180, ANCHO_TEXTO_MIN = 60;
static const wchar_t *const PAUSA = L"&Pause", *const SIGUE = L"Res&ume";

HWND barra_filtro::anade(HWND padre, const wchar_t *clase, const wchar_t *texto, DWORD estilo, int id)
{
    bool es_texto = lstrcmpW(clase, WC_EDITW) == 0;
    DWORD borde = es_texto ? WS_EX_CLIENTEDGE : 0u;
    HWND hwnd = CreateWindowExW(borde, clase, texto, WS_CHILD | WS_VISIBLE | estilo, 0, 0, 0, 0, padre,
                                reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    bool con_caja = (estilo & BS_TYPEMASK) == BS_AUTOCHECKBOX && lstrcmpW(clase, WC_BUTTONW) == 0;
    bool es_boton = lstrcmpW(clase, WC_BUTTONW) == 0 && !con_caja;
    int aparte = m_piezas.empty() ? 0 : con_caja ? 12 : 6;
    m_piezas.push_back({hwnd, aparte, con_caja, es_boton});
    return hwnd;
}

bool barra_filtro::crea(HWND padre)
{
    anade(padre, WC_STATICW, L"&Service:", SS_LEFT | SS_CENTERIMAGE, -1);
    m_texto = anade(padre, WC_EDITW, L"", WS_TABSTOP | ES_AUTOHSCROLL, ID_FILTRO_SERVICIO);
    SendMessageW(m_texto, EM_LIMITTEXT, 63, 0);
    for (int i = 0; i < static_cast<int>(ARRAYSIZE(CLASES)); i++)
        m_clases.push_back(anade(padre, WC_BUTTONW, CLASES[i], WS_TABSTOP | BS_AUTOCHECKBOX, ID_FILTRO_CLASE + i));
    m_pausa = anade(padre, WC_BUTTONW, PAUSA, WS_TABSTOP | BS_PUSHBUTTON, ID_BOTON_PAUSA);
    anade(padre, WC_BUTTONW, L"C&lear", WS_TABSTOP | BS_PUSHBUTTON, ID_BOTON_LIMPIA);
    return std::all_of(m_piezas.begin(), m_piezas.end(), [](const pieza &p) { return p.hwnd != nullptr; });
}

void barra_filtro::pon_fuente(HFONT fuente)
{
    m_fuente = fuente;
    for (const pieza &p : m_piezas)
        SendMessageW(p.hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(fuente), TRUE);
}

int barra_filtro::ancho(const pieza &p, UINT ppp) const
{
    if (p.es_boton) // the one of the pause has two texts, and stays where it is
        return std::max({escala(84, ppp), ancho_de(p.hwnd, m_fuente, SIGUE) + escala(24, ppp),
                         ancho_de(p.hwnd, m_fuente, PAUSA) + escala(24, ppp)});
    wchar_t texto[60] = L"";
    GetWindowTextW(p.hwnd, texto, ARRAYSIZE(texto));
    int ancho = ancho_de(p.hwnd, m_fuente, texto);
    return ancho + (p.con_caja ? escala(22, ppp) : 0);
}

int barra_filtro::ancho_con_aparte(const pieza &p, UINT ppp) const
{
    return escala(p.aparte, ppp) + ancho(p, ppp);
}

// All but the text itself.
int barra_filtro::ancho_de_los_otros(UINT ppp) const
{
    int otros = 0;
    for (const pieza &p : m_piezas)
        otros += p.hwnd == m_texto ? escala(p.aparte, ppp) : ancho_con_aparte(p, ppp);
    return otros;
}

// What the others leave.
int barra_filtro::ancho_del_texto(int sitio, UINT ppp) const
{
    return std::min(escala(ANCHO_TEXTO, ppp), std::max(escala(ANCHO_TEXTO_MIN, ppp), sitio - ancho_de_los_otros(ppp)));
}

int barra_filtro::ancho_minimo(UINT ppp) const
{
    return ancho_de_los_otros(ppp) + escala(ANCHO_TEXTO_MIN, ppp);
}

// A text box writes at its top, one pixel below its edge.
int barra_filtro::alto_del_texto(UINT ppp) const
{
    return alto_de_linea(m_texto, m_fuente) + 2 + 2 * medida_del_sistema(SM_CYEDGE, ppp);
}

// The buttons stand at the right end.
void barra_filtro::coloca(const RECT &sitio, UINT ppp)
{
    int x = sitio.left, alto = sitio.bottom - sitio.top, de_botones = 0;
    for (const pieza &p : m_piezas)
        de_botones += p.es_boton ? ancho_con_aparte(p, ppp) : 0;
    bool en_botones = false;
    for (const pieza &p : m_piezas) {
        if (p.es_boton && !en_botones)
            x = std::max<int>(x, sitio.right - de_botones);
        en_botones = p.es_boton;
        x += escala(p.aparte, ppp);
        bool es_texto = p.hwnd == m_texto;
        int num = es_texto ? ancho_del_texto(sitio.right - sitio.left, ppp) : ancho(p, ppp);
        int sangria = es_texto ? std::max(0, alto - alto_del_texto(ppp)) / 2 : 0;
        SetWindowPos(p.hwnd, nullptr, x, sitio.top + sangria, num, alto - 2 * sangria, SWP_NOZORDER | SWP_NOACTIVATE);
        x += num;
    }
}

filtro barra_filtro::lee() const
{
    filtro f;
    wchar_t texto[80] = L"";
    GetWindowTextW(m_texto, texto, ARRAYSIZE(texto));
    f.servicio = herramientas::de_ancho(texto);
    for (size_t i = 0; i < m_clases.size(); i++)
        if (SendMessageW(m_clases[i], BM_GETCHECK, 0, 0) != BST_CHECKED)
            f.clases &= ~bit_de(BITS[i]);
    return f;
}

void barra_filtro::pon(const filtro &f)
{
    for (size_t i = 0; i < m_clases.size(); i++)
        SendMessageW(m_clases[i], BM_SETCHECK, (f.clases & bit_de(BITS[i])) != 0 ? BST_CHECKED : BST_UNCHECKED, 0);
    SetWindowTextW(m_texto, herramientas::a_ancho(f.servicio).c_str()); // the last: it tells of itself
}

void barra_filtro::pon_pausa(bool parada)
{
    SetWindowTextW(m_pausa, parada ? SIGUE : PAUSA);
}

} // namespace monitor
