// barra_estado.h - the line at the bottom. A part is as wide as the longest text it has had, so that nothing jumps.
#ifndef MONITOR_BARRA_ESTADO_H
#define MONITOR_BARRA_ESTADO_H

#include <string>
#include <vector>

#include <windows.h>

namespace monitor {

class barra_estado {
public:
    bool crea(HWND padre, int id);
    HWND hwnd() const { return m_hwnd; }
    void cambia_ppp(UINT ppp, HFONT fuente);
    void di(const std::vector<std::wstring> &partes);
    int alto() const;
    int ancho_minimo() const; // for its parts, the last one whole

private:
    void reparte();

    HWND m_hwnd = nullptr;
    HFONT m_fuente = nullptr;
    UINT m_ppp = 96;
    std::vector<std::wstring> m_partes;
    std::vector<int> m_anchos;
};

} // namespace monitor

#endif
