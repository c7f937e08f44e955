// seccion.h - the parts of a run. Each measures, prints its tables, and leaves its numbers and goals in the report.
#ifndef BANCO_SECCION_H
#define BANCO_SECCION_H

#include "informe.h"

#include <string>
#include <vector>

namespace banco {

struct opciones {
    bool rapido = false;
    bool solo_comprueba = false;    // that the answers are right; nothing is measured
    int cpu = 0;                    // the processor on which all run
    std::vector<std::string> filas; // of the round trip, by key; empty for all
};

struct seccion {
    const char *clave;
    const char *titulo;
    void (*mide)(const opciones &opciones, informe *informe);
};

const std::vector<seccion> &secciones();

// Whether the command line asks for it: where it names none, it asks for all.
bool pedida(const std::vector<std::string> &nombradas, const std::string &clave);

// The functions of the child processes beside those of the rows: by name, with the session.
struct papel {
    const char *clave;
    void (*sirve)(const std::string &sesion);
};

const std::vector<papel> &papeles();

void mide_ida_y_vuelta(const opciones &opciones, informe *informe);
void mide_datos(const opciones &opciones, informe *informe);
void mide_crecimiento(const opciones &opciones, informe *informe);
void mide_carga(const opciones &opciones, informe *informe);
void cuenta_llamadas(const opciones &opciones, informe *informe);

} // namespace banco

#endif
