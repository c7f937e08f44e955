// ivrexa_comun.h - what the rows of ivrexa share: the command that all three kinds of server carry out, and its client.
//
// One process is the client of all of them. It has no window, and the library knows it as one program: the first row
// that connects registers it, the last that disconnects closes its session.
//
// THE COMMAND. Input: text, number, real, buffer. Output: number, text, buffer. No texts beside the data. Each side
// reads by position, in the order written.
#ifndef BANCO_IVREXA_COMUN_H
#define BANCO_IVREXA_COMUN_H

#include "../comun/fila.h"

#include <ivrexa.h>

#include <string>

namespace banco {

// Of the same length for every session: the names of all shared objects are made from it, and our own floor works with
// names as long as these.
std::string ivrexa_servicio(const std::string &sesion);

// What the library's registry of programs calls a server. Programs of one name could be taken for one.
std::string ivrexa_programa(const std::string &sesion);

// ---- Server

// Answers the command with that input. Returns the stored output, which must live until the client has read it; NULL
// where there is no input.
comdat *ivrexa_contesta(const char *servicio, uint32_t id_comando, comdat *entrada);

// A server's command function.
int32_t ivrexa_procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos);

// ---- Client

class ivrexa_cliente {
public:
    void conecta(const std::string &sesion);
    void espera_latido(); // for servers without a window, before the first command
    void pide(const peticion &peticion, respuesta *respuesta);
    void desconecta();

private:
    void suelta_salida();

    std::string servicio_;
    comdat *salida_ = nullptr; // keeps the bytes of the last answer until the next call
};

// A row of ours: its server, and a client of its own.
template <void (*SIRVE)(const std::string &), bool CON_VENTANA>
fila ivrexa_fila(const char *clave, const char *titulo)
{
    static ivrexa_cliente cliente;
    auto conecta = [](const std::string &sesion) {
        cliente.conecta(sesion);
        if (!CON_VENTANA)
            cliente.espera_latido();
    };
    auto pide = [](const peticion &peticion, respuesta *respuesta) { cliente.pide(peticion, respuesta); };
    auto desconecta = [] { cliente.desconecta(); };
    return {clave, titulo, 0xFFFFFF00, !CON_VENTANA, true, SIRVE, conecta, pide, desconecta};
}

} // namespace banco

#endif
