// ajustes.h - what the monitor remembers from run to run, in HKCU\Software\ivrexa\monitor. Widths are those of 96 dpi.
#ifndef MONITOR_AJUSTES_H
#define MONITOR_AJUSTES_H

#include <cstdint>
#include <string>
#include <vector>

#include <windows.h>

namespace monitor {

struct ajustes {
    bool hay_ventana = false; // false: nothing remembered, the system places it
    RECT ventana = {};        // place when not maximised, in pixels of the screen
    uint32_t ppp_ventana = 0; // dots per inch of that screen; 0: not known
    bool maximizada = false;
    std::vector<int> anchos_actividades; // columns' widths; another number of them than there are columns: ignored
    std::vector<int> anchos_servicios;
    std::vector<int> anchos_programas;
    std::vector<int> anchos_valores;
    int alto_actividades_por_mil = 550; // of the space that the lists share
    std::string filtro_servicio;        // UTF-8
    uint32_t filtro_clases = 0xffffffff;
    bool guarda_valores = true; // look into each block when its event comes
};

// `clave` under HKCU, for tests. What is missing or makes no sense is as in a fresh record.
ajustes lee_ajustes(const wchar_t *clave = L"Software\\ivrexa\\monitor");
bool escribe_ajustes(const ajustes &a, const wchar_t *clave = L"Software\\ivrexa\\monitor");

// As large to the eye on a screen of other dots per inch, from the same corner. 0, not known: as it is.
RECT con_otros_ppp(const RECT &ventana, uint32_t de, uint32_t a);

// The remembered place, moved and cut so that it lies on one of the work areas (the first is the main one).
RECT dentro_de_una_pantalla(const RECT &ventana, const std::vector<RECT> &areas);
std::vector<RECT> areas_de_trabajo();

} // namespace monitor

#endif
