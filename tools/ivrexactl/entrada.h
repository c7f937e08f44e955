// entrada.h - what is typed for a command: its service, its id, its texts, and its values as NAME:TYPE=VALUE. What the
// library would cut or report is refused here, before anything is touched.
#ifndef IVREXACTL_ENTRADA_H
#define IVREXACTL_ENTRADA_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ivrexa.h"

namespace ivrexactl {

enum : size_t {
    MAX_NOMBRE_SERVICIO = 63, // bytes in the ANSI code page
    MAX_NOMBRE_VALOR = 254,   // likewise: with its NUL it has to stay below 256
    MAX_TEXTO_CORTO = 63,     // UTF-16 units
    MAX_TEXTO_LARGO = 255,
};
enum : uint64_t { MAX_CONTENIDO = 0xffffffffu - 1024 }; // bytes of all values; beyond, their container cannot grow

struct dato {
    std::string nombre;  // ANSI
    uint32_t tipo = 0;   // tipoDato; it tells which of the following holds the value
    uint64_t numero = 0; // byte, ushort, ulong, hwnd
    double real = 0;
    std::vector<uint8_t> bytes;
    std::optional<std::string> ansi; // none: a null text
    std::optional<std::wstring> ancho;
    std::vector<std::optional<std::string>> textos_ansi;
    std::vector<std::optional<std::wstring>> textos_anchos;
};

// All of them take UTF-8 and throw a fallo that says what is wrong.
dato lee_dato(const std::string &argumento);
std::vector<dato> lee_datos(const std::vector<std::string> &argumentos);
std::string lee_nombre_servicio(const std::string &nombre); // in the ANSI code page
uint32_t lee_id_comando(const std::string &id);
std::wstring lee_texto(const std::string &opcion, const std::string &texto, size_t max);

uint64_t tam_en_bloque(const dato &d); // bytes of the block that it takes
void graba(const dato &d, comdat *datos);

} // namespace ivrexactl

#endif
