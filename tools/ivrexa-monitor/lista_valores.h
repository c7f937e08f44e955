// lista_valores.h - what a block of command data holds.
#ifndef MONITOR_LISTA_VALORES_H
#define MONITOR_LISTA_VALORES_H

#include "comun/valores.h"
#include "lista_filas.h"

namespace monitor {

class lista_valores : public lista_filas {
public:
    lista_valores();
    void muestra(const herramientas::contenido &c);
    void di(const wchar_t *texto); // in place of values
    void vacia();
};

} // namespace monitor

#endif
