// Our own floor: what one of our commands asks of the system, and nothing else. No byte is copied, no text is put
// together, nothing is written into a block; buffer and text are there as numbers.
//
// And the same with the copies that the steps prescribe: into each container, each block and each private copy, all of
// which is fresh memory. What lies between the two is the price of that memory, and no program that copies can save it.
#include "../comun/fila.h"
#include "../comun/proceso.h"
#include "../filas/ivrexa_comun.h"
#include "interprete.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace banco {

static const uint32_t PRIMER_BLOQUE = 100; // the number of a service's first data block

// ---- Server

static std::unique_ptr<interprete> s_servidor;

// wParam: the input block's number; lParam: the bytes of the buffer, and in its lowest eight bits the characters of the
// text. What is thrown may not leave the window procedure.
static LRESULT atiende(WPARAM wparam, LPARAM lparam)
{
    try {
        s_servidor->ejecuta(static_cast<uint32_t>(wparam), nullptr,
                            static_cast<uint32_t>(static_cast<uint64_t>(lparam) >> 8),
                            static_cast<uint32_t>(lparam & 0xFF));
        return 1;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "banco floor: %s\n", e.what());
        return 0;
    }
}

static LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (s_servidor != nullptr && msg == s_servidor->mensaje())
        return atiende(wparam, lparam);
    return DefWindowProcA(hwnd, msg, wparam, lparam);
}

template <bool CON_COPIAS>
static void sirve(const std::string &sesion)
{
    s_servidor = std::make_unique<interprete>(sesion, ivrexa_servicio(sesion), CON_COPIAS);
    HWND hwnd = crea_ventana("banco_floor_" + sesion, procedimiento);
    papel_listo();
    papel_bucle_mensajes();
    DestroyWindow(hwnd);
    s_servidor->suelta();
    s_servidor.reset();
}

// ---- Client

struct cliente {
    std::unique_ptr<interprete> suelo;
    uint32_t siguiente_bloque; // each command has two
};

template <bool CON_COPIAS>
static cliente s_cliente;

template <bool CON_COPIAS>
static void conecta(const std::string &sesion)
{
    auto suelo = std::make_unique<interprete>(sesion, ivrexa_servicio(sesion), CON_COPIAS);
    suelo->al_servidor(busca_ventana("banco_floor_" + sesion));
    s_cliente<CON_COPIAS> = {std::move(suelo), PRIMER_BLOQUE};
}

template <bool CON_COPIAS>
static void pide(const peticion &peticion, respuesta *)
{
    cliente &cliente = s_cliente<CON_COPIAS>;
    uint32_t id = cliente.siguiente_bloque;
    cliente.siguiente_bloque += 2;
    cliente.suelo->ejecuta(id, peticion.buffer, peticion.tam, static_cast<uint32_t>(std::strlen(peticion.texto)));
}

template <bool CON_COPIAS>
static void desconecta()
{
    s_cliente<CON_COPIAS>.suelo->suelta();
    s_cliente<CON_COPIAS>.suelo.reset();
}

extern const fila fila_suelo;
const fila fila_suelo = {"floor",
                         "our own floor (the prescribed calls alone)",
                         0xFFFFFF00,
                         false,
                         false,
                         sirve<false>,
                         conecta<false>,
                         pide<false>,
                         desconecta<false>};

extern const fila fila_suelo_copias;
const fila fila_suelo_copias = {"floor_copies",  "our own floor, with the prescribed copies",
                                0xFFFFFF00,      false,
                                false,           sirve<true>,
                                conecta<true>,   pide<true>,
                                desconecta<true>};

} // namespace banco
