#include "colector.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "orden.h"

namespace ivrexactl {

static const DWORD TAM_BUFFER = 4096;
static const size_t MAX_SIN_TOMAR = 200000; // beyond that, writers wait

struct colector::interior {
    HANDLE buffer_libre = nullptr, datos_listos = nullptr, mapa = nullptr;
    const uint8_t *vista = nullptr;
    HANDLE fin = nullptr;
    std::thread hilo;
    std::mutex candado;
    std::condition_variable cambio;
    std::vector<trozo_depurado> trozos; // not taken yet
    bool acabando = false;              // nobody takes any more until we have ended

    bool abre();
    void cierra();
    void guarda();
    void colecciona();
};

static void cierra_uno(HANDLE *h)
{
    if (*h != nullptr)
        CloseHandle(*h);
    *h = nullptr;
}

void colector::interior::cierra()
{
    if (vista != nullptr)
        UnmapViewOfFile(vista);
    vista = nullptr;
    cierra_uno(&mapa); // the first: writers look for it, and do without when it is not there
    cierra_uno(&datos_listos);
    cierra_uno(&buffer_libre);
}

// The buffer last: a writer that finds it counts on both events. False: some of it exists already.
bool colector::interior::abre()
{
    buffer_libre = CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_BUFFER_READY");
    bool nuevo = buffer_libre != nullptr && GetLastError() != ERROR_ALREADY_EXISTS;
    if (nuevo) {
        datos_listos = CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_DATA_READY");
        nuevo = datos_listos != nullptr && GetLastError() != ERROR_ALREADY_EXISTS;
    }
    if (nuevo) {
        mapa = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, TAM_BUFFER, L"DBWIN_BUFFER");
        nuevo = mapa != nullptr && GetLastError() != ERROR_ALREADY_EXISTS;
    }
    if (nuevo)
        vista = static_cast<const uint8_t *>(MapViewOfFile(mapa, FILE_MAP_READ, 0, 0, 0));
    if (vista == nullptr)
        cierra();
    return vista != nullptr;
}

// Behind the process id stands the text.
void colector::interior::guarda()
{
    trozo_depurado t;
    FILETIME ahora;
    GetSystemTimeAsFileTime(&ahora);
    t.hora_100ns = (uint64_t(ahora.dwHighDateTime) << 32) | ahora.dwLowDateTime;
    memcpy(&t.pid, vista, sizeof t.pid);
    const char *texto = reinterpret_cast<const char *>(vista + sizeof t.pid);
    t.texto.assign(texto, strnlen(texto, TAM_BUFFER - sizeof t.pid));
    std::unique_lock<std::mutex> guarda(candado);
    cambio.wait(guarda, [this] { return trozos.size() < MAX_SIN_TOMAR || acabando; });
    trozos.push_back(std::move(t));
    cambio.notify_all();
    SetEvent(buffer_libre);
}

// At the end we take the writers' turn ourselves: while we have it, nobody is between the buffer and the events, and
// nobody is left waiting for one that will not come.
void colector::interior::colecciona()
{
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
    HANDLE turno = CreateMutexExW(nullptr, L"DBWinMutex", 0, SYNCHRONIZE | MUTEX_MODIFY_STATE);
    HANDLE espera[] = {datos_listos, fin};
    while (WaitForMultipleObjects(2, espera, FALSE, INFINITE) == WAIT_OBJECT_0)
        guarda();
    HANDLE ultimos[] = {datos_listos, turno};
    const uint64_t LIMITE_MS = 2000; // a writer may be suspended, or others write without end
    const uint64_t hasta_ms = GetTickCount64() + LIMITE_MS;
    DWORD que = WAIT_OBJECT_0;
    while (turno != nullptr && que == WAIT_OBJECT_0 && GetTickCount64() < hasta_ms) {
        que = WaitForMultipleObjects(2, ultimos, FALSE, static_cast<DWORD>(LIMITE_MS));
        if (que == WAIT_OBJECT_0)
            guarda();
    }
    bool es_nuestro = que == WAIT_OBJECT_0 + 1 || que == WAIT_ABANDONED_0 + 1;
    if (es_nuestro && WaitForSingleObject(datos_listos, 0) == WAIT_OBJECT_0)
        guarda();
    cierra();
    if (es_nuestro)
        ReleaseMutex(turno);
    cierra_uno(&turno);
}

colector::colector() : m(new interior)
{
    const int NUM_INTENTOS = 10; // a writer may hold, for a moment, what a collector before us has left
    bool abierto = m->abre();
    for (int i = 1; !abierto && i < NUM_INTENTOS && !espera_fin(100); i++)
        abierto = m->abre();
    if (!abierto)
        throw fallo(codigo_OCUPADO,
                    "another program collects the debugger output of this session already; end it first "
                    "(or, if it has just ended, try again in ten seconds)");
    m->fin = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    m->hilo = std::thread([this] { m->colecciona(); });
    SetEvent(m->buffer_libre);
}

colector::~colector()
{
    acaba();
    cierra_uno(&m->fin);
}

void colector::acaba()
{
    if (!m->hilo.joinable())
        return;
    {
        std::lock_guard<std::mutex> guarda(m->candado);
        m->acabando = true;
        m->cambio.notify_all();
    }
    SetEvent(m->fin);
    m->hilo.join();
}

std::vector<trozo_depurado> colector::toma(uint32_t ms)
{
    std::vector<trozo_depurado> tomados;
    std::unique_lock<std::mutex> guarda(m->candado);
    m->cambio.wait_for(guarda, std::chrono::milliseconds(ms), [this] { return !m->trozos.empty() || m->acabando; });
    tomados.swap(m->trozos);
    m->cambio.notify_all();
    return tomados;
}

} // namespace ivrexactl
