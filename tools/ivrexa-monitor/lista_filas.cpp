#include "lista_filas.h"

#include <algorithm>
#include <set>

namespace monitor {

static bool mismas_claves(const std::vector<fila> &a, const std::vector<fila> &b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const fila &x, const fila &y) { return x.clave == y.clave; });
}

void lista_filas::pon(std::vector<fila> filas)
{
    if (!mismas_claves(m_filas, filas)) {
        pon_otras(std::move(filas));
        return;
    }
    m_filas.swap(filas);
    for (size_t i = 0; i < m_filas.size(); i++) {
        int n = static_cast<int>(i);
        if (m_filas[i].celdas != filas[i].celdas || m_filas[i].como != filas[i].como)
            ListView_RedrawItems(hwnd(), n, n);
    }
}

void lista_filas::pon_otras(std::vector<fila> filas)
{
    std::set<std::string> elegidas_antes;
    for (int i : elegidas(m_filas.size()))
        elegidas_antes.insert(m_filas[static_cast<size_t>(i)].clave);
    int con_foco = ListView_GetNextItem(hwnd(), -1, LVNI_FOCUSED);
    std::string clave_con_foco = con_foco >= 0 ? m_filas[static_cast<size_t>(con_foco)].clave : "";

    ListView_SetItemState(hwnd(), -1, 0, LVIS_SELECTED | LVIS_FOCUSED);
    m_filas = std::move(filas);
    ListView_SetItemCountEx(hwnd(), static_cast<int>(m_filas.size()), LVSICF_NOSCROLL);
    for (size_t i = 0; i < m_filas.size(); i++) {
        UINT estado = elegidas_antes.count(m_filas[i].clave) != 0 ? LVIS_SELECTED : 0u;
        estado |= con_foco >= 0 && m_filas[i].clave == clave_con_foco ? LVIS_FOCUSED : 0u;
        if (estado != 0)
            ListView_SetItemState(hwnd(), static_cast<int>(i), estado, estado);
    }
}

std::wstring lista_filas::celda(int fila, int columna) const
{
    size_t f = static_cast<size_t>(fila), c = static_cast<size_t>(columna);
    return f < m_filas.size() && c < m_filas[f].celdas.size() ? m_filas[f].celdas[c] : std::wstring();
}

aspecto lista_filas::aspecto_de(int fila) const
{
    size_t f = static_cast<size_t>(fila);
    return f < m_filas.size() ? m_filas[f].como : aspecto::normal;
}

} // namespace monitor
