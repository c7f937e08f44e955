// mirador.h - a thread that looks at the desktop again and again, so that the window's own never waits for it.
#ifndef MONITOR_MIRADOR_H
#define MONITOR_MIRADOR_H

#include <memory>
#include <thread>

#include <windows.h>

#include "comun/mirada.h"

namespace monitor {

struct vista {
    herramientas::escritorio_visto escritorio;
    herramientas::latidos pulsos;
    uint64_t ms = 0; // when it was taken, of GetTickCount64
};

class mirador {
public:
    mirador(HWND hwnd, UINT mensaje); // `mensaje` is posted when there is a new look
    ~mirador();
    mirador(const mirador &) = delete;
    mirador &operator=(const mirador &) = delete;
    std::shared_ptr<const vista> ultima() const;

private:
    void mira();
    void da_vueltas();

    HWND m_hwnd;
    UINT m_mensaje;
    HANDLE m_fin;
    herramientas::latidos m_pulsos; // the thread's
    mutable SRWLOCK m_cerrojo = SRWLOCK_INIT;
    std::shared_ptr<const vista> m_ultima; // under the lock
    std::thread m_hilo;
};

} // namespace monitor

#endif
