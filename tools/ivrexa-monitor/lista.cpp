#include "lista.h"

#include <algorithm>

#include "pantalla.h"

namespace monitor {

lista::lista(std::vector<columna> columnas) : m_columnas(std::move(columnas)) {}

bool lista::crea(HWND padre, int id)
{
    DWORD estilo = WS_CHILD | WS_VISIBLE | WS_TABSTOP | LVS_REPORT | LVS_OWNERDATA | LVS_SHOWSELALWAYS;
    m_hwnd = CreateWindowExW(WS_EX_CLIENTEDGE, WC_LISTVIEWW, L"", estilo | LVS_NOSORTHEADER, 0, 0, 0, 0, padre,
                             reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    if (m_hwnd == nullptr)
        return false;
    m_id = id;
    m_ppp = ppp_de(padre);
    ListView_SetExtendedListViewStyle(m_hwnd, LVS_EX_DOUBLEBUFFER | LVS_EX_FULLROWSELECT | LVS_EX_LABELTIP);
    for (int i = 0; i < num_columnas(); i++) {
        LVCOLUMNW c = {};
        c.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_FMT | LVCF_SUBITEM;
        c.fmt = m_columnas[i].a_la_derecha ? LVCFMT_RIGHT : LVCFMT_LEFT;
        c.cx = escala(m_columnas[i].ancho, m_ppp);
        c.pszText = const_cast<wchar_t *>(m_columnas[i].titulo);
        c.iSubItem = i;
        ListView_InsertColumn(m_hwnd, i, &c);
    }
    return true;
}

int lista::num_filas() const
{
    return ListView_GetItemCount(m_hwnd);
}

std::vector<int> lista::anchos() const
{
    std::vector<int> anchos;
    anchos.reserve(m_columnas.size());
    for (int i = 0; i < num_columnas(); i++)
        anchos.push_back(a_96(ListView_GetColumnWidth(m_hwnd, i), m_ppp));
    return anchos;
}

void lista::pon_anchos(const std::vector<int> &anchos)
{
    if (anchos.size() != m_columnas.size())
        return;
    for (int i = 0; i < num_columnas(); i++)
        ListView_SetColumnWidth(m_hwnd, i, escala(anchos[static_cast<size_t>(i)], m_ppp));
}

void lista::cambia_ppp(UINT ppp)
{
    std::vector<int> antes = anchos();
    m_ppp = ppp;
    pon_anchos(antes);
}

void lista::pon_fuentes(HFONT normal, HFONT negrita)
{
    m_negrita = negrita;
    m_alto_contraste = alto_contraste();
    SendMessageW(m_hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(normal), TRUE);
    mide_fila();
}

// The control tells it of rows that there are.
void lista::mide_fila()
{
    RECT r = {};
    bool vacia = num_filas() == 0;
    if (vacia)
        ListView_SetItemCountEx(m_hwnd, 1, LVSICF_NOINVALIDATEALL | LVSICF_NOSCROLL);
    if (ListView_GetItemRect(m_hwnd, 0, &r, LVIR_BOUNDS))
        m_alto_fila = r.bottom - r.top;
    if (vacia)
        ListView_SetItemCountEx(m_hwnd, 0, LVSICF_NOINVALIDATEALL | LVSICF_NOSCROLL);
}

static int alto_de_cabecera(HWND lista)
{
    RECT r = {0, 0, 1000, 1000};
    WINDOWPOS sitio = {};
    HDLAYOUT pregunta = {&r, &sitio};
    return Header_Layout(ListView_GetHeader(lista), &pregunta) ? sitio.cy : 0;
}

int lista::alto_de_filas(int num) const
{
    return alto_de_cabecera(m_hwnd) + num * m_alto_fila + medida_del_sistema(SM_CYHSCROLL, m_ppp) +
           2 * medida_del_sistema(SM_CYEDGE, m_ppp);
}

LRESULT lista::notifica(NMHDR *aviso)
{
    switch (aviso->code) {
    case LVN_GETDISPINFOW:
        da_texto(reinterpret_cast<NMLVDISPINFOW *>(aviso));
        return 0;
    case LVN_ODFINDITEMW:
        return busca_texto(reinterpret_cast<NMLVFINDITEMW *>(aviso));
    case NM_CUSTOMDRAW:
        return dibuja(reinterpret_cast<NMLVCUSTOMDRAW *>(aviso));
    default:
        return 0;
    }
}

void lista::da_texto(NMLVDISPINFOW *aviso) const
{
    LVITEMW &item = aviso->item;
    if ((item.mask & LVIF_TEXT) == 0 || item.pszText == nullptr || item.cchTextMax <= 0)
        return;
    lstrcpynW(item.pszText, celda(item.iItem, item.iSubItem).c_str(), item.cchTextMax);
}

// Three parts of the text's colour, two of the ground's: dimmer, and still easy to read on it.
static COLORREF texto_apagado()
{
    COLORREF texto = GetSysColor(COLOR_WINDOWTEXT), fondo = GetSysColor(COLOR_WINDOW);
    auto mezcla = [](int a, int b) { return (3 * a + 2 * b) / 5; };
    return RGB(mezcla(GetRValue(texto), GetRValue(fondo)), mezcla(GetGValue(texto), GetGValue(fondo)),
               mezcla(GetBValue(texto), GetBValue(fondo)));
}

LRESULT lista::dibuja(NMLVCUSTOMDRAW *aviso) const
{
    if (aviso->nmcd.dwDrawStage == CDDS_PREPAINT)
        return CDRF_NOTIFYITEMDRAW;
    if (aviso->nmcd.dwDrawStage != CDDS_ITEMPREPAINT)
        return CDRF_DODEFAULT;
    aspecto como = aspecto_de(static_cast<int>(aviso->nmcd.dwItemSpec));
    if (como == aspecto::aviso)
        return dibuja_aviso(aviso->nmcd);
    if (como == aspecto::apagado && !m_alto_contraste)
        aviso->clrText = texto_apagado();
    if (como != aspecto::destacado)
        return CDRF_DODEFAULT;
    if (!m_alto_contraste) { // a pair that can be read whatever the others are
        aviso->clrText = RGB(150, 0, 0);
        aviso->clrTextBk = RGB(255, 232, 190);
    }
    SelectObject(aviso->nmcd.hdc, m_negrita);
    return CDRF_NEWFONT;
}

LRESULT lista::dibuja_aviso(const NMCUSTOMDRAW &aviso) const
{
    int fila = static_cast<int>(aviso.dwItemSpec);
    RECT r = {}, todo = {};
    ListView_GetItemRect(m_hwnd, fila, &r, LVIR_BOUNDS);
    GetClientRect(m_hwnd, &todo);
    r.right = std::max(r.right, todo.right);
    UINT estado = ListView_GetItemState(m_hwnd, fila, LVIS_SELECTED | LVIS_FOCUSED);
    bool elegida = (estado & LVIS_SELECTED) != 0, activa = GetFocus() == m_hwnd;
    int fondo = !elegida ? COLOR_WINDOW : activa ? COLOR_HIGHLIGHT : COLOR_BTNFACE;
    int texto = !elegida ? COLOR_WINDOWTEXT : activa ? COLOR_HIGHLIGHTTEXT : COLOR_BTNTEXT;
    FillRect(aviso.hdc, &r, GetSysColorBrush(fondo));
    SetBkMode(aviso.hdc, TRANSPARENT);
    SetTextColor(aviso.hdc, GetSysColor(texto));
    RECT sitio_texto = {r.left + escala(6, m_ppp), r.top, r.right, r.bottom};
    DrawTextW(aviso.hdc, celda(fila, 0).c_str(), -1, &sitio_texto,
              DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
    bool oculto = (SendMessageW(m_hwnd, WM_QUERYUISTATE, 0, 0) & UISF_HIDEFOCUS) != 0;
    if (activa && (estado & LVIS_FOCUSED) != 0 && !oculto)
        DrawFocusRect(aviso.hdc, &r);
    return CDRF_SKIPDEFAULT;
}

// ---- Search

static bool empieza_por(const std::wstring &texto, const std::wstring &principio)
{
    return texto.size() >= principio.size() &&
           CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, texto.c_str(), static_cast<int>(principio.size()),
                          principio.c_str(), static_cast<int>(principio.size())) == CSTR_EQUAL;
}

int lista::busca_en(int columna, const std::wstring &principio, int desde) const
{
    int num = num_filas();
    for (int i = 0; i < num; i++) {
        int fila = (desde + i) % num;
        if (empieza_por(celda(fila, columna), principio))
            return fila;
    }
    return -1;
}

int lista::busca(const std::wstring &principio, int desde) const
{
    return busca_en(0, principio, desde);
}

int lista::busca_texto(const NMLVFINDITEMW *aviso) const
{
    if ((aviso->lvfi.flags & (LVFI_STRING | LVFI_PARTIAL)) == 0 || aviso->lvfi.psz == nullptr || num_filas() == 0)
        return -1;
    return busca(aviso->lvfi.psz, std::max(0, aviso->iStart));
}

// ---- Selection

std::vector<int> lista::elegidas(size_t max) const
{
    std::vector<int> filas;
    for (int i = -1; filas.size() < max && (i = ListView_GetNextItem(m_hwnd, i, LVNI_SELECTED)) >= 0;)
        filas.push_back(i);
    return filas;
}

void lista::elige_todo()
{
    ListView_SetItemState(m_hwnd, -1, LVIS_SELECTED, LVIS_SELECTED);
}

std::wstring lista::elegidas_como_texto() const
{
    std::wstring texto;
    for (int fila : elegidas(static_cast<size_t>(-1))) {
        for (int c = 0; c < num_columnas(); c++)
            texto += (c == 0 ? L"" : L"\t") + celda(fila, c);
        texto += L"\r\n";
    }
    return texto;
}

} // namespace monitor
