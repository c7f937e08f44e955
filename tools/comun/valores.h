// valores.h - the typed values of a block of command data, read by our own eyes: the library's readers would tell the
// monitor, and keep the block. Anybody's bytes are safe to read.
#ifndef HERRAMIENTAS_VALORES_H
#define HERRAMIENTAS_VALORES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace herramientas {

struct valor {
    uint32_t tipo = 0;   // tipoDato
    std::string nombre;  // UTF-8
    uint64_t numero = 0; // byte, ushort, ulong, window
    double real = 0;
    std::vector<uint8_t> bytes;                     // of a buffer, its first max_bytes
    uint32_t tam = 0;                               // of the whole buffer
    std::optional<std::string> texto;               // UTF-8; none: a null text
    std::vector<std::optional<std::string>> textos; // of an array
};

struct contenido {
    std::vector<valor> valores;
    std::string fallo;    // why reading ended early; empty: it did not
    bool danyado = false; // because these bytes are no content
};

struct limites_valores {
    size_t max_valores = 100000;
    size_t max_bytes = 1u << 20; // of one buffer or text
};

contenido descifra(const uint8_t *datos, size_t num, const limites_valores &limites = {});

// The block's content; none: it is not there any more.
std::optional<contenido> lee_bloque(const std::string &nombre_servicio_ansi, uint32_t id_bloque_MCCom,
                                    const limites_valores &limites = {});

const char *nombre_tipo(uint32_t tipo);    // "ulong", "ansi", "wide[]"...; "?" for others
std::string valor_a_texto(const valor &v); // for people, on one line
std::string real_a_texto(double real);     // "0.1", "-inf", "nan"
std::string hexadecimal(const std::vector<uint8_t> &bytes, size_t max = SIZE_MAX);

} // namespace herramientas

#endif
