// obrero.h - a program of ours that does as it is told: a child that its parent makes a server, a client or nothing at
// all of ivrexa, over and over.
//
// An order is a message to a window of the child, with what it is about in memory that both map; it has been carried
// out when it returns. Every order throws where the child could not carry it out.
#ifndef BANCO_OBRERO_H
#define BANCO_OBRERO_H

#include "../comun/proceso.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace banco {

struct obrero_orden;

// What a command carries there: so many numbers with a name, and, where `tam` is not 0, a buffer. Back comes a number.
struct carga {
    uint32_t valores = 0;
    uint32_t tam = 0; // bytes
};

class obrero {
public:
    obrero();

    // As a server with a window. A service can be reached once it is published.
    void ofrece(const std::string &servicio);
    void publica();

    // As a client without a window. The time is that of one command, from the first byte written to the last one read.
    void usa(const std::string &servicio);
    double ejecuta(const std::string &servicio, const carga &carga);

    // Ends the session, which takes half a second for each thread of the library that sleeps.
    void cierra();
    void empieza_cierre(); // without waiting for its end; `cierra` does

private:
    void manda(unsigned orden);

    std::string sesion_;
    hijo hijo_;
    obrero_orden *orden_;
    HWND hwnd_;
};

using cuadrilla = std::vector<std::unique_ptr<obrero>>;

cuadrilla contrata(size_t cuantos);

// All at the same time.
void cierra_todos(const cuadrilla &obreros);

extern const char PAPEL_OBRERO[];
void sirve_obrero(const std::string &sesion);

} // namespace banco

#endif
