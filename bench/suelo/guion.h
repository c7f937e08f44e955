// guion.h - the calls into KERNEL32 and USER32 that one command's steps prescribe, in their order, with their sizes.
//
// The command is that of the rows of ivrexa (filas/ivrexa_comun.h), with a server that has a window, nobody watching as
// monitor and the trace off. The script of each side is put together from short functions, one for each operation that
// a command consists of, so that it reads like the list of what a command does. It knows nothing of the library's code:
// where the two differ, one of them is wrong.
//
// A script is run by interprete.h, as the floor, and compared with what the library does by the section `counts`.
#ifndef BANCO_GUION_H
#define BANCO_GUION_H

#include <cstdint>
#include <vector>

namespace banco {

const uint32_t TAM_CABECERA = 4; // bytes before the content of every shared block
const uint32_t TAM_CANAL = 2378 + TAM_CABECERA;

enum class llamada : uint8_t {
    heap_alloc,
    heap_realloc,
    heap_free,
    mutex_espera,
    mutex_suelta,
    mutex_crea,
    mapa_crea,
    mapa_abre,
    vista_monta,
    vista_consulta,
    vista_desmonta,
    handle_cierra,
    mensaje,
    ventana_activa,
    ultimo_error,
    copia, // no call: bytes that a step copies
    otra,  // no step prescribes it
};

// Object names of a command, as many characters long as the library's.
enum nombre : uint8_t { nombre_MUTEX, nombre_CANAL, nombre_ENTRADA, nombre_SALIDA, num_NOMBRES };

// Where a call leaves its result, and where later calls find it. These stay from one command to the next.
enum sitio_fijo : uint16_t {
    sitio_MONTON,    // the heap's lock
    sitio_REGISTRO,  // the registry's mutex
    sitio_MCSERV,    // the service's mutex, as the server holds it open
    sitio_ANFITRION, // the bytes that the host passes
    sitio_PERDIDO,   // handles that stay open
    sitio_SALIDA,    // the output's container, nine places
    num_SITIOS_FIJOS = sitio_SALIDA + 9
};

struct paso {
    llamada que;
    uint8_t nombre;           // of mutex_crea, mapa_crea, mapa_abre
    uint16_t sitio;           // of the result, or of what is used up; copia: where to
    uint16_t sobre;           // vista_monta: the mapping; copia: where from
    uint32_t tam;             // bytes: heap_alloc, heap_realloc, mapa_crea, copia
    const char *de;           // the operation that it belongs to, for people
    uint32_t destino, origen; // copia: bytes from the start of the one and the other
};

// What the sizes depend on.
struct situacion {
    uint32_t servicio; // characters of its name
    uint32_t texto;    // characters of the command's text
    uint32_t buffer;   // bytes
    uint32_t cifras;   // decimal digits of the numbers of the two data blocks
};

struct guion {
    std::vector<paso> principio;       // what comes before that
    std::vector<paso> suelta_anterior; // the output of the command before, where there was one
    std::vector<paso> comando;         // on the client's side with the message in it
    uint32_t num_sitios;
};

guion guion_cliente(const situacion &situacion);
guion guion_servidor(const situacion &situacion);

// A call that a step names. Not so the look at a view's size, without which a header that lies could not be cut to its
// view, and the copies, which are no calls.
bool la_nombra_un_paso(llamada que);

} // namespace banco

#endif
