#include "mirador.h"

namespace monitor {

static const DWORD CADA_MS = 500;

mirador::mirador(HWND hwnd, UINT mensaje)
    : m_hwnd(hwnd), m_mensaje(mensaje), m_fin(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_hilo(&mirador::da_vueltas, this)
{
}

mirador::~mirador()
{
    SetEvent(m_fin);
    m_hilo.join();
    CloseHandle(m_fin);
}

std::shared_ptr<const vista> mirador::ultima() const
{
    AcquireSRWLockShared(&m_cerrojo);
    std::shared_ptr<const vista> v = m_ultima;
    ReleaseSRWLockShared(&m_cerrojo);
    return v;
}

void mirador::mira()
{
    auto nueva = std::make_shared<vista>();
    nueva->escritorio = herramientas::mira_escritorio();
    nueva->ms = GetTickCount64();
    m_pulsos.anota(nueva->escritorio, nueva->ms);
    nueva->pulsos = m_pulsos;
    AcquireSRWLockExclusive(&m_cerrojo);
    m_ultima = nueva;
    ReleaseSRWLockExclusive(&m_cerrojo);
    PostMessageW(m_hwnd, m_mensaje, 0, 0);
}

void mirador::da_vueltas()
{
    do
        mira();
    while (WaitForSingleObject(m_fin, CADA_MS) == WAIT_TIMEOUT);
}

} // namespace monitor
