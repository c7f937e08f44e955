#include "fila.h"

#include <cstring>

namespace banco {

void invierte(const char *texto, char *al_reves, size_t tam)
{
    size_t longitud = std::strlen(texto);
    if (longitud > tam - 1)
        longitud = tam - 1;
    for (size_t i = 0; i < longitud; i++)
        al_reves[i] = texto[longitud - 1 - i];
    al_reves[longitud] = '\0';
}

} // namespace banco
