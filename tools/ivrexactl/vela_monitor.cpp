#include "vela_monitor.h"

#include "orden.h"

namespace ivrexactl {

static const DWORD GRACIA_MS = 2000;

vela_monitor::vela_monitor() : m_acabado(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    m_hilo = std::thread([this] { vigila(); });
}

vela_monitor::~vela_monitor()
{
    SetEvent(m_acabado);
    m_hilo.join();
    CloseHandle(m_acabado);
}

// None of the library's waits can be left: the process ends as it stands.
void vela_monitor::vigila()
{
    HANDLE ambos[] = {m_acabado, evento_fin()};
    if (WaitForMultipleObjects(2, ambos, FALSE, INFINITE) == WAIT_OBJECT_0)
        return;
    for (uint64_t pasos = m_pasos - 1; pasos != m_pasos;) {
        pasos = m_pasos;
        if (WaitForSingleObject(m_acabado, GRACIA_MS) == WAIT_OBJECT_0)
            return;
    }
    di_error("ivrexactl monitor: a program holds the registry and does not go on; ended without giving the monitor's "
             "place back. The registry may still name this program; the next monitor takes the place");
    devuelve_consola();
    TerminateProcess(GetCurrentProcess(), codigo_OCUPADO);
}

} // namespace ivrexactl
