// leido.h - another program's shared block, opened to be looked at. Nothing is written, and every handle is closed.
#ifndef HERRAMIENTAS_LEIDO_H
#define HERRAMIENTAS_LEIDO_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace herramientas {

// A block opened for reading while the object lives. It keeps the block in being meanwhile, so hold it shortly.
class bloque_leido {
public:
    explicit bloque_leido(const std::string &nombre); // ANSI, as programs build it
    ~bloque_leido();
    bloque_leido(const bloque_leido &) = delete;
    bloque_leido &operator=(const bloque_leido &) = delete;

    bool abierto() const { return m_vista != nullptr; }
    uint32_t tam_dicho() const; // bytes of data that the header states
    size_t tam() const;         // those of them that are mapped
    const uint8_t *datos() const;

    // Copies the first `num` bytes as they stand, until two copies in a row agree. False: fewer are there, or others
    // wrote on all the while; the last copy is in `destino` then.
    bool copia(void *destino, size_t num) const;

private:
    void *m_mapa = nullptr;
    const uint8_t *m_vista = nullptr;
    size_t m_tam_vista = 0;
};

// Lets `lee` fill the `num` bytes again and again, until two fillings in a row agree. False: no two of 51 did.
bool copia_quieta(void *destino, size_t num, const std::function<void(void *)> &lee);

// Names of the session's blocks that begin so, in order; empty where the system does not tell.
std::vector<std::string> bloques_que_empiezan_por(const std::string &prefijo);

} // namespace herramientas

#endif
