// disposicion.h - where each part of the window goes, reckoned without any window.
#ifndef MONITOR_DISPOSICION_H
#define MONITOR_DISPOSICION_H

#include <windows.h>

namespace monitor {

struct medidas_disposicion {
    int ancho, alto;    // of the space, status bar left out
    int alto_linea;     // of the font
    int alto_lista_min; // so that a few rows are seen
    UINT ppp;
    int alto_actividades_por_mil;
};

// Each list has the place of its label above it.
struct panel {
    RECT rotulo, lista;
};

struct disposicion {
    RECT filtro;
    panel actividades, valores, servicios, programas;
    RECT divisor; // between the activities and what is below
};

disposicion reparte(const medidas_disposicion &m);

// The space that the lists' least heights take, and all above and between them.
int alto_minimo(const medidas_disposicion &m);
int por_mil_valido(const medidas_disposicion &m, int por_mil); // so that each list has its least height
// The share that puts the middle of the divisor at this height.
int por_mil_en(const medidas_disposicion &m, int y);

} // namespace monitor

#endif
