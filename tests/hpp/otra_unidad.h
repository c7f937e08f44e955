// otra_unidad.h - what another translation unit of a program, with ivrexa.hpp in it, has and does.
#ifndef OTRA_UNIDAD_H
#define OTRA_UNIDAD_H

#include <vector>

#include "ivrexa.hpp"

// Where the header's constants lie there.
std::vector<const void *> constantes_de_otra_unidad();

// Begins a session, and ends it.
void sesion_de_otra_unidad();

ivrexa::answer ejecuta_en_otra_unidad(ivrexa::client &c, ivrexa::request &r);

#endif
