// fila.h - one way in which a client gets a command carried out by a server in another process.
//
// THE WORK is the same in every row. The client sends a peticion; the server answers `numero` + 1, the text with its
// characters in reverse order, and the very bytes of the buffer. What the row's means of transport asks for in
// between, encoding, copies, signals, belongs to the row and is measured; a row makes no shortcut that its users could
// not make, and none of them checks more than the others.
//
// PROCESSES. Each row has a server of its own, a child of this program that lives as long as the measurement and is
// started with `sesion`, a text that no other run has: names of what the two share are built from it. Server and client
// are single-threaded as far as the means of transport allow.
#ifndef BANCO_FILA_H
#define BANCO_FILA_H

#include <cstdint>
#include <string>
#include <vector>

namespace banco {

struct peticion {
    uint32_t id_comando; // 100 or above
    const char *texto;   // at most 63 characters
    uint32_t numero;
    double real;
    const uint8_t *buffer; // NULL when tam is 0
    uint32_t tam;          // bytes
};

struct respuesta {
    uint32_t numero;
    std::string texto;
    const uint8_t *buffer; // the row's; valid until its next call
    uint32_t tam;
};

// The functions throw std::exception where something fails. `conecta` is called once the server has said that it is
// ready; `desconecta` before the server is asked to end.
struct fila {
    const char *clave;                        // on the command line and in the JSON
    const char *titulo;                       // in the table
    uint32_t tam_maximo;                      // of a buffer, in bytes
    bool lenta;                               // a call takes half a second
    bool lleva_datos;                         // false: a floor, whose answer is not looked at
    void (*sirve)(const std::string &sesion); // in the server's process: until it is asked to end
    void (*conecta)(const std::string &sesion);
    void (*pide)(const peticion &peticion, respuesta *respuesta);
    void (*desconecta)();
};

// All rows, in the order of the table: the floors first.
const std::vector<const fila *> &filas();

// What every server does.
void invierte(const char *texto, char *al_reves, size_t tam); // tam characters, the NUL included

} // namespace banco

#endif
