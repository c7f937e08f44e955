// Boost.Interprocess: a managed segment with an area for the request and one for the answer, each announced by a
// semaphore that lies in the segment too.
//
// Semaphores, since one that is posted before the other side waits loses nothing: no mutex and no condition is needed
// where two sides take turns. Left alone, Boost's semaphores, mutexes and conditions spin under Windows, yielding and
// then sleeping by the tick, and message_queue and all that is named wait in the same way. With calls in a tight loop
// that takes half the time of this row, as every yield hands the processor over; with calls now and then it takes twice
// as long and up to some milliseconds, and a server without work is never at rest. Who writes a server for a desktop
// asks for Boost's other semaphores, the system's own: from 1.79 on with the macro below, before with the #undef.
#define BOOST_INTERPROCESS_FORCE_NATIVE_EMULATION
#include <boost/interprocess/detail/workaround.hpp>
#undef BOOST_INTERPROCESS_FORCE_GENERIC_EMULATION

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/managed_windows_shared_memory.hpp>
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/containers/vector.hpp>
#include <boost/interprocess/sync/interprocess_semaphore.hpp>

#include "../comun/fila.h"
#include "../comun/proceso.h"

#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>

namespace banco {

namespace {

namespace bi = boost::interprocess;

const uint32_t TAM_MAXIMO = 4 * 1024 * 1024;
const size_t TAM_SEGMENTO = 2 * TAM_MAXIMO + 64 * 1024;

using segmento = bi::managed_windows_shared_memory;
using asignador = bi::allocator<uint8_t, segmento::segment_manager>;
using bytes = bi::vector<uint8_t, asignador>;

// What each of the two areas says beside its buffer; the answer leaves some of it alone.
struct mensaje {
    explicit mensaje(const asignador &asignador) : buffer(asignador) { buffer.reserve(TAM_MAXIMO); }

    bi::interprocess_semaphore llega{0};
    uint32_t id_comando = 0;
    uint32_t numero = 0;
    double real = 0;
    char texto[64] = "";
    bytes buffer;
};

struct canal {
    explicit canal(const asignador &asignador) : peticion(asignador), respuesta(asignador) {}

    mensaje peticion;
    mensaje respuesta;
};

const char NOMBRE[] = "canal";

std::string nombre_segmento(const std::string &sesion)
{
    return "banco_boost_" + sesion;
}

// ---- The server

void contesta(canal *canal)
{
    canal->respuesta.numero = canal->peticion.numero + 1;
    invierte(canal->peticion.texto, canal->respuesta.texto, sizeof canal->respuesta.texto);
    canal->respuesta.buffer.assign(canal->peticion.buffer.begin(), canal->peticion.buffer.end());
    canal->respuesta.llega.post();
}

// A semaphore of Boost's cannot be waited for together with an event of the system: a thread turns the one into the
// other.
void sirve(const std::string &sesion)
{
    segmento segmento(bi::create_only, nombre_segmento(sesion).c_str(), TAM_SEGMENTO);
    canal *canal = segmento.construct<banco::canal>(NOMBRE)(segmento.get_segment_manager());
    papel_listo();
    std::thread fin([canal] {
        WaitForSingleObject(papel_fin(), INFINITE);
        canal->peticion.llega.post();
    });
    for (;;) {
        canal->peticion.llega.wait();
        if (WaitForSingleObject(papel_fin(), 0) == WAIT_OBJECT_0)
            break;
        contesta(canal);
    }
    fin.join();
    segmento.destroy_ptr(canal);
}

// ---- The client

std::unique_ptr<segmento> s_segmento;
canal *s_canal;

void conecta(const std::string &sesion)
{
    s_segmento = std::make_unique<segmento>(bi::open_only, nombre_segmento(sesion).c_str());
    s_canal = s_segmento->find<canal>(NOMBRE).first;
    if (s_canal == nullptr)
        throw std::runtime_error("the segment of Boost.Interprocess has no channel");
}

boost::posix_time::ptime limite()
{
    return boost::posix_time::microsec_clock::universal_time() + boost::posix_time::milliseconds(LIMITE_MS);
}

void pide(const peticion &peticion, respuesta *respuesta)
{
    mensaje &ida = s_canal->peticion;
    ida.id_comando = peticion.id_comando;
    ida.numero = peticion.numero;
    ida.real = peticion.real;
    std::strncpy(ida.texto, peticion.texto, sizeof ida.texto - 1);
    ida.buffer.assign(peticion.buffer, peticion.buffer + peticion.tam);
    ida.llega.post();

    const mensaje &vuelta = s_canal->respuesta;
    if (!s_canal->respuesta.llega.timed_wait(limite()))
        throw std::runtime_error("the server of Boost.Interprocess does not answer");
    respuesta->numero = vuelta.numero;
    respuesta->texto = vuelta.texto;
    respuesta->buffer = vuelta.buffer.data();
    respuesta->tam = static_cast<uint32_t>(vuelta.buffer.size());
}

void desconecta()
{
    s_canal = nullptr;
    s_segmento.reset();
}

} // namespace

extern const fila fila_boost;
const fila fila_boost = {
    "boost", "Boost.Interprocess, system semaphores", TAM_MAXIMO, false, true, sirve, conecta, pide, desconecta};

} // namespace banco
