// papel_c_interno.h - what the two halves of papel_c.h share. The half with messages stands alone, so that a
// role without a window does not load user32.
#ifndef COMUN_PAPEL_C_INTERNO_H
#define COMUN_PAPEL_C_INTERNO_H

#include <cstdint>
#include <optional>
#include <string>

#include "papel_hijo.h"

// Copies a line, cut and terminated; 0 if there is none.
int entrega_linea(const std::optional<std::string> &recibida, char *linea, uint32_t tam_linea);

#endif
