// interno.h - what the parts of the stand-in share.
#ifndef SUSTITUTO_INTERNO_H
#define SUSTITUTO_INTERNO_H

#include "sustituto.h"

namespace interno {

// The library did to the platform what it must not: tells it and aborts.
void exige(bool cierto, const char *mensaje);

void pon_error(uint32_t error); // GetLastError

void reinicia_monton();
void reinicia_objetos();
void reinicia_ventana();

} // namespace interno

#endif
