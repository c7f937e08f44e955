#include "papel_c.h"
#include "papel_c_interno.h"
#include "ventana.h"

extern "C" int papel_c_bombea(char *linea, uint32_t tam_linea, uint32_t ms)
{
    papel_hijo yo;
    return entrega_linea(bombea_hasta_linea(yo, ms), linea, tam_linea);
}
