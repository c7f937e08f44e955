// salida.h - the output block of a command, read as every client reads it.
#ifndef IVREXACTL_SALIDA_H
#define IVREXACTL_SALIDA_H

#include <cstdint>
#include <string>

#include "comun/valores.h"

namespace ivrexactl {

// An array of wide texts in it: the library's clients do not get that, nor what stands behind it. We do.
bool con_arreglo_ancho(const herramientas::contenido &c);

// `fallo` tells why values are missing: there is no such block, or its content does not keep to the format.
herramientas::contenido lee_salida(const std::string &nombre_servicio_ansi, uint32_t id_bloque);

} // namespace ivrexactl

#endif
