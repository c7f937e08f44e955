// sustituto.h - the platform that stands in for Windows in the native build, as the tests see it. One thread.
//
// HEAP       every block is one of malloc's of exactly its size, so that the address sanitizer sees its ends.
//            What is larger than the limit is refused with NULL.
// MAPPINGS   a view is whole pages, as it is on Windows, with a page behind it that nobody may touch. Where a
//            block's size header states no more than it was made with, the rest of its last page is poisoned:
//            who believes the header never gets there.
// MUTEXES    are held by nobody else. Names are shared by mutexes and mappings.
// REPORTS    the box answers at once; its text is kept.
// WAITS      Sleep only counts, and lets the test play the other side.
#ifndef SUSTITUTO_H
#define SUSTITUTO_H

#include <functional>
#include <string>
#include <vector>

#include "iv_plataforma.h"

namespace sustituto {

const uint32_t TAM_PAGINA = 4096;
const size_t LIMITE_RESERVA = 1u << 20; // what limita_reservas is at first

// As new: no heap, no objects, no reports. Aborts where a mutex is held or a view is mapped: that is a leak.
// To be called when the library has closed its heap.
void reinicia();

// ---- Heap

void limita_reservas(size_t tam);
size_t num_bloques(); // that stand now
size_t num_bytes();
size_t mayor_reserva(); // since the last reinicia

// ---- Named objects of another program, which stay until reinicia

// A mapping made with tam bytes; where there is one of that name, that. Its bytes, header included.
uint8_t *pon_mapa(const char *nombre, uint32_t tam);
void pon_mutex(const char *nombre);
// Poisons what lies behind a block's own size, if its header does not reach farther; otherwise lifts that.
void cerca_mapa(const char *nombre);
bool hay_mapa(const char *nombre);
uint32_t tam_mapa(const char *nombre); // bytes that a view of it has
void fallan_vistas(bool fallan);       // MapViewOfFile gives NULL
size_t num_vistas();
size_t num_mutex_tomados();

// ---- Reports, messages, waits

size_t num_informes();
const std::vector<std::string> &informes(); // "<module>: <expression>" of the first 64
void olvida_informes();

struct mensaje {
    uint64_t hwnd;
    uint32_t msg;
    uint64_t wparam;
    int64_t lparam;
};
const std::vector<mensaje> &mensajes(); // posted
void olvida_mensajes();

// What the test does meanwhile. Both are forgotten by reinicia.
void al_dormir(std::function<void(uint32_t ms)> accion);
void al_enviar(std::function<int64_t(const mensaje &)> accion); // answers SendMessage
void ventanas_vivas(std::function<bool(uint64_t hwnd)> viva);   // answers IsWindow

// ---- The program's registration, which the exchange asks for

struct programa {
    bool es_cliente = false; // of every service
    bool cierra = false;     // its session is closing
    uint32_t ind_datServ = 0;
    ivrexa_hwnd hwnd = nullptr;
};
extern programa este_programa; // likewise

} // namespace sustituto

#endif
