// modelo_comdat.h - what any bytes are as command data, told a second time and apart from the library: the
// fuzzers hold the library's readers against it.
#ifndef NATIVO_MODELO_COMDAT_H
#define NATIVO_MODELO_COMDAT_H

#include "apoyo.h"
#include "iv_comdat.h"

namespace modelo {

struct valor {
    uint32_t tipo;
    size_t nombre; // position
    size_t datos;  // position
};

// The values that the content bears out, up to the first read past its end.
struct contenido {
    bytes b;
    uint32_t num_valores; // what its head states
    std::vector<valor> valores;
    size_t num_informes; // that reading it makes
};

contenido analiza(const bytes &b);

// Reads every value of the container with every reader, and positions beyond; aborts where one gives anything
// but what the content is. Returns how many tables of texts were made.
size_t comprueba_lectura(comdat *comdat, const contenido &c);

// The same for a container whose bytes are no longer known: nothing outside the copy is handed out.
void comprueba_limites(comdat *comdat);

} // namespace modelo

#endif
