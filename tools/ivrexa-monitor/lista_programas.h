// lista_programas.h - the programs that are registered, and their heartbeats.
#ifndef MONITOR_LISTA_PROGRAMAS_H
#define MONITOR_LISTA_PROGRAMAS_H

#include "comun/mirada.h"
#include "lista_filas.h"

namespace monitor {

class lista_programas : public lista_filas {
public:
    lista_programas();
    void muestra(const herramientas::escritorio_visto &e, const herramientas::latidos &l, uint64_t ahora_ms);
};

} // namespace monitor

#endif
