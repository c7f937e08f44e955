#include "lista_actividades.h"

#include <algorithm>
#include <climits>

#include "comun/texto.h"

namespace monitor {

using namespace herramientas;

namespace {

enum { NUMERO, HORA, LADO, SUCESO, SERVICIO, COMANDO, BLOQUE };

// A larger selection is let go, all of it, when rows are dropped: to move it is one call a row.
const size_t MAX_ELEGIDAS_QUE_CORREN = 2000;

std::wstring numero_o_nada(uint64_t numero)
{
    return numero == 0 ? std::wstring() : std::to_wstring(numero);
}

// Sets a flag while it lives.
struct mientras {
    explicit mientras(bool *que) : m_que(que), m_antes(*que) { *que = true; }
    ~mientras() { *m_que = m_antes; }
    bool *m_que, m_antes;
};

} // namespace

lista_actividades::lista_actividades(const historia &h)
    : lista({{L"No.", 62},
             {L"Time", 92},
             {L"Side", 58},
             {L"Event", 262},
             {L"Service", 140},
             {L"Command", 78, true},
             {L"Block", 60, true}}),
      m_historia(h)
{
}

const suceso *lista_actividades::en(int fila) const
{
    size_t i = static_cast<size_t>(fila);
    return fila >= 0 && i < m_historia.num_visibles() ? &m_historia.visible(i) : nullptr;
}

std::wstring lista_actividades::celda(int fila, int columna) const
{
    const suceso *s = en(fila);
    if (s == nullptr)
        return L"";
    switch (columna) {
    case NUMERO:
        return std::to_wstring(s->numero);
    case HORA:
        return a_ancho(hora_local(s->hora_100ns));
    case LADO:
        return s->que == clase::hueco ? L"" : a_ancho(nombre_lado(s->quien));
    case SUCESO:
        return a_ancho(describe(*s));
    case SERVICIO:
        return a_ancho(sin_controles(s->servicio));
    case COMANDO:
        return numero_o_nada(s->id_comando);
    case BLOQUE:
        return numero_o_nada(s->id_bloque);
    default:
        return L"";
    }
}

aspecto lista_actividades::aspecto_de(int fila) const
{
    const suceso *s = en(fila);
    if (s == nullptr)
        return aspecto::normal;
    return s->que == clase::hueco ? aspecto::destacado : s->que == clase::espera ? aspecto::apagado : aspecto::normal;
}

// Digits typed lead to the event of that number, or to the next that is shown; other characters to a service.
int lista_actividades::busca(const std::wstring &principio, int desde) const
{
    uint64_t numero = 0;
    for (wchar_t c : principio) {
        if (c < L'0' || c > L'9' || numero > UINT64_MAX / 100)
            return busca_en(SERVICIO, principio, desde);
        numero = numero * 10 + static_cast<uint64_t>(c - L'0');
    }
    size_t abajo = 0, arriba = m_historia.num_visibles();
    while (abajo < arriba) {
        size_t medio = (abajo + arriba) / 2;
        if (m_historia.visible(medio).numero < numero)
            abajo = medio + 1;
        else
            arriba = medio;
    }
    return abajo < static_cast<size_t>(m_num) ? static_cast<int>(abajo) : -1;
}

// ---- What came, what was dropped

void lista_actividades::pon_cuenta(DWORD como)
{
    m_num = static_cast<int>(std::min<size_t>(m_historia.num_visibles(), INT_MAX));
    m_ultimo = m_num > 0 ? en(m_num - 1)->numero : 0;
    ListView_SetItemCountEx(hwnd(), m_num, como | LVSICF_NOSCROLL);
}

void lista_actividades::va_al_final()
{
    if (m_num > 0)
        ListView_EnsureVisible(hwnd(), m_num - 1, FALSE);
}

// How many rows went from the front since the last time; -1: all that were known.
int lista_actividades::num_quitados() const
{
    if (m_num == 0)
        return 0;
    std::optional<size_t> sitio = m_historia.sitio_visible(m_ultimo);
    return sitio ? m_num - 1 - static_cast<int>(*sitio) : -1;
}

// To set the focus may scroll, so it is asked where the list is.
void lista_actividades::pon_arriba(int fila)
{
    RECT r = {};
    if (ListView_GetItemRect(hwnd(), 0, &r, LVIR_BOUNDS))
        ListView_Scroll(hwnd(), 0, (fila - ListView_GetTopIndex(hwnd())) * (r.bottom - r.top));
}

// Rows went from the front: what is selected, and what is seen, goes with its events.
void lista_actividades::corre(int cuantos)
{
    int primera = std::max(0, ListView_GetTopIndex(hwnd()) - cuantos);
    std::vector<int> elegidas_antes = elegidas(MAX_ELEGIDAS_QUE_CORREN + 1);
    bool se_suelta = elegidas_antes.size() > MAX_ELEGIDAS_QUE_CORREN;
    int ancla = ListView_GetSelectionMark(hwnd()); // where a selection with Shift begins
    int con_foco = ListView_GetNextItem(hwnd(), -1, LVNI_FOCUSED) - cuantos;
    if (!elegidas_antes.empty())
        ListView_SetItemState(hwnd(), -1, 0, LVIS_SELECTED);
    for (int i : elegidas_antes)
        if (i >= cuantos && !se_suelta)
            ListView_SetItemState(hwnd(), i - cuantos, LVIS_SELECTED, LVIS_SELECTED);
    if (con_foco >= 0)
        ListView_SetItemState(hwnd(), con_foco, LVIS_FOCUSED, LVIS_FOCUSED);
    if (ancla >= 0)
        ListView_SetSelectionMark(hwnd(), std::max(0, ancla - cuantos));
    if (!m_sigue)
        pon_arriba(primera);
    InvalidateRect(hwnd(), nullptr, FALSE);
}

void lista_actividades::refresca()
{
    int quitados = num_quitados();
    if (quitados < 0) {
        rehaz();
        return;
    }
    bool crece = en(m_num - quitados) != nullptr;
    if (quitados == 0 && !crece)
        return;
    mientras callada(&m_callada);
    if (quitados > 0)
        corre(quitados);
    pon_cuenta(LVSICF_NOINVALIDATEALL);
    if (m_sigue)
        va_al_final();
}

void lista_actividades::rehaz()
{
    mientras callada(&m_callada);
    ListView_SetItemState(hwnd(), -1, 0, LVIS_SELECTED | LVIS_FOCUSED);
    pon_cuenta(0);
    InvalidateRect(hwnd(), nullptr, FALSE);
    if (m_sigue)
        va_al_final();
}

// ---- The user

void lista_actividades::pon_sigue(bool sigue)
{
    m_sigue = sigue;
    mientras callada(&m_callada);
    if (m_sigue)
        va_al_final();
}

void lista_actividades::pon_sigue_el_usuario(bool sigue)
{
    if (sigue == m_sigue)
        return;
    pon_sigue(sigue);
    if (al_cambiar_sigue)
        al_cambiar_sigue();
}

void lista_actividades::elige(uint64_t numero)
{
    std::optional<size_t> sitio = m_historia.sitio_visible(numero);
    if (!sitio || *sitio >= static_cast<size_t>(m_num))
        return;
    mientras callada(&m_callada);
    int fila = static_cast<int>(*sitio);
    ListView_SetItemState(hwnd(), fila, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
    if (!m_sigue)
        ListView_EnsureVisible(hwnd(), fila, FALSE);
}

const suceso *lista_actividades::elegido() const
{
    int fila = ListView_GetNextItem(hwnd(), -1, LVNI_FOCUSED | LVNI_SELECTED);
    return en(fila >= 0 ? fila : ListView_GetNextItem(hwnd(), -1, LVNI_SELECTED));
}

// Who looks at an event does not want it to run away. Row -1 stands for all.
void lista_actividades::ha_elegido(int fila, UINT antes, UINT ahora)
{
    const UINT QUE = LVIS_SELECTED | LVIS_FOCUSED;
    if ((ahora & ~antes & QUE) != 0 && fila < m_num - 1)
        pon_sigue_el_usuario(false);
    if (al_elegir)
        al_elegir();
}

LRESULT lista_actividades::notifica(NMHDR *aviso)
{
    if (m_callada)
        return lista::notifica(aviso);
    switch (aviso->code) {
    case LVN_ITEMCHANGED: {
        auto *uno = reinterpret_cast<NMLISTVIEW *>(aviso);
        ha_elegido(uno->iItem, uno->uOldState, uno->uNewState);
        return 0;
    }
    case LVN_ODSTATECHANGED: {
        auto *varios = reinterpret_cast<NMLVODSTATECHANGE *>(aviso);
        ha_elegido(varios->iFrom, varios->uOldState, varios->uNewState);
        return 0;
    }
    case LVN_KEYDOWN:
        if (reinterpret_cast<NMLVKEYDOWN *>(aviso)->wVKey == VK_END)
            pon_sigue_el_usuario(true);
        return 0;
    case LVN_ENDSCROLL:
        if (reinterpret_cast<NMLVSCROLL *>(aviso)->dy < 0)
            pon_sigue_el_usuario(false);
        return 0;
    default:
        return lista::notifica(aviso);
    }
}

} // namespace monitor
