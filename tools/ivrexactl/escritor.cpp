#include "escritor.h"

#include <algorithm>
#include <chrono>

#include "orden.h"

namespace ivrexactl {

static const size_t MAX_SIN_ESCRIBIR = 64u << 20;
static const size_t TAM_TROZO = 4096; // of so much a reader that goes on takes some in a while
static const std::chrono::milliseconds ENTRE_MIRADAS(50);
static const std::chrono::milliseconds SIN_LECTOR(3000);
static const DWORD PARA_DECIRLO_MS = 2000;

escritor::escritor(FILE *fichero) : m_fichero(fichero), m_hilo([this] { escribe(); }) {}

static void termina()
{
    devuelve_consola();
    TerminateProcess(GetCurrentProcess(), codigo_NO_SE_ESCRIBE);
}

// What ends a process in good order would wait for the thread, or for the file that it holds.
escritor::~escritor()
{
    acaba();
    if (!m_parado)
        return;
    di_error("ivrexactl: nobody reads the output; ended without the rest of it");
    termina();
}

void escritor::pon(const std::string &texto)
{
    if (texto.empty())
        return;
    std::unique_lock<std::mutex> guarda(m_candado);
    auto cabe = [this] { return m_texto.size() < MAX_SIN_ESCRIBIR || m_roto || espera_fin(0); };
    while (!m_cambio.wait_for(guarda, ENTRE_MIRADAS, cabe)) {
    }
    if (!m_roto)
        m_texto += texto;
    m_cambio.notify_all();
}

// False: it stands still.
bool escritor::espera_al_hilo()
{
    using reloj = std::chrono::steady_clock;
    std::unique_lock<std::mutex> guarda(m_candado);
    m_fin = true;
    m_cambio.notify_all();
    uint64_t num_trozos = m_num_trozos;
    for (reloj::time_point desde = reloj::now(); !m_acabado; m_cambio.wait_for(guarda, ENTRE_MIRADAS)) {
        if (!espera_fin(0) || num_trozos != m_num_trozos)
            desde = reloj::now();
        if (reloj::now() - desde >= SIN_LECTOR)
            return false;
        num_trozos = m_num_trozos;
    }
    return true;
}

bool escritor::acaba()
{
    if (m_parado || !m_hilo.joinable())
        return !m_roto;
    if (espera_al_hilo()) {
        m_hilo.join();
        return !m_roto;
    }
    m_parado = true;
    m_roto = true;
    std::thread([] { // the error output may lead to the same reader
        Sleep(PARA_DECIRLO_MS);
        termina();
    })
        .detach();
    return false;
}

bool escritor::escribe(const std::string &texto)
{
    for (size_t sitio = 0; sitio < texto.size(); sitio += TAM_TROZO) {
        size_t num = std::min(TAM_TROZO, texto.size() - sitio);
        if (fwrite(texto.data() + sitio, 1, num, m_fichero) != num)
            return false;
        std::lock_guard<std::mutex> guarda(m_candado);
        m_num_trozos++;
    }
    return fflush(m_fichero) == 0;
}

// What has gathered meanwhile goes out at once.
void escritor::escribe()
{
    std::unique_lock<std::mutex> guarda(m_candado);
    for (bool bien = true; bien;) {
        m_cambio.wait(guarda, [this] { return !m_texto.empty() || m_fin; });
        if (m_texto.empty())
            break;
        std::string texto;
        texto.swap(m_texto);
        m_cambio.notify_all();
        guarda.unlock();
        bien = escribe(texto);
        guarda.lock();
        if (!bien) {
            m_roto = true;
            m_texto.clear();
        }
    }
    m_acabado = true;
    m_cambio.notify_all();
}

} // namespace ivrexactl
