#include "barra_estado.h"

#include <algorithm>
#include <numeric>

#include <commctrl.h>

#include "pantalla.h"

namespace monitor {

bool barra_estado::crea(HWND padre, int id)
{
    m_hwnd = CreateWindowExW(0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE | SBARS_SIZEGRIP, 0, 0, 0, 0, padre,
                             reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    return m_hwnd != nullptr;
}

void barra_estado::cambia_ppp(UINT ppp, HFONT fuente)
{
    m_ppp = ppp;
    m_fuente = fuente;
    m_anchos.clear();
    SendMessageW(m_hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(fuente), TRUE);
    std::vector<std::wstring> partes;
    partes.swap(m_partes);
    di(partes);
}

void barra_estado::reparte()
{
    std::vector<int> finales;
    int x = 0;
    for (int ancho : m_anchos)
        finales.push_back(x += ancho);
    finales.back() = -1;
    SendMessageW(m_hwnd, SB_SETPARTS, finales.size(), reinterpret_cast<LPARAM>(finales.data()));
}

void barra_estado::di(const std::vector<std::wstring> &partes)
{
    if (partes == m_partes || partes.empty())
        return;
    std::vector<std::wstring> antes = m_partes;
    antes.resize(partes.size());
    bool nuevos = m_anchos.size() != partes.size();
    m_anchos.resize(partes.size());
    for (size_t i = 0; i < partes.size(); i++) {
        int ancho = ancho_de(m_hwnd, m_fuente, partes[i].c_str()) + escala(24, m_ppp);
        nuevos = nuevos || ancho > m_anchos[i];
        m_anchos[i] = std::max(m_anchos[i], ancho);
    }
    m_partes = partes;
    if (nuevos)
        reparte();
    for (size_t i = 0; i < partes.size(); i++)
        if (nuevos || partes[i] != antes[i])
            SendMessageW(m_hwnd, SB_SETTEXTW, i, reinterpret_cast<LPARAM>(partes[i].c_str()));
}

int barra_estado::ancho_minimo() const
{
    return std::accumulate(m_anchos.begin(), m_anchos.end(), 0) + medida_del_sistema(SM_CXVSCROLL, m_ppp);
}

int barra_estado::alto() const
{
    RECT r = {};
    GetWindowRect(m_hwnd, &r);
    return r.bottom - r.top;
}

} // namespace monitor
