// comando.h - the command that the sections send to the rows, and the sizes of its buffer.
#ifndef BANCO_COMANDO_H
#define BANCO_COMANDO_H

#include "../comun/fila.h"

#include <vector>

namespace banco {

const char TEXTO_COMANDO[] = "a short text";
const uint32_t TAMANYOS_BUFFER[] = {0, 4096, 256 * 1024, 4 * 1024 * 1024};

// Buffer and text must outlive the request.
inline peticion peticion_de(const std::vector<uint8_t> &buffer, const char *texto = TEXTO_COMANDO, uint32_t numero = 41)
{
    return {100, texto, numero, 2.5, buffer.empty() ? nullptr : buffer.data(), static_cast<uint32_t>(buffer.size())};
}

} // namespace banco

#endif
