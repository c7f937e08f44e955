// puesto.h - a thread with a window of its own, which is the desktop's monitor. Whatever the main window does
// meanwhile, be it a menu, a question or a file, what comes is taken in time: the ring has room for 63.
#ifndef MONITOR_PUESTO_H
#define MONITOR_PUESTO_H

#include <functional>
#include <memory>
#include <thread>

#include <windows.h>

#include "comun/vigia.h"

namespace monitor {

class puesto {
public:
    // Is the monitor at its return, unless hecho() says that it could not be made. `dime` is called on the thread.
    explicit puesto(std::function<void(const herramientas::suceso &)> dime);
    ~puesto();
    puesto(const puesto &) = delete;
    puesto &operator=(const puesto &) = delete;

    bool hecho() const { return m_vigia != nullptr; }
    uint64_t num_actividades() const { return m_vigia->num_actividades(); }
    bool sigue_siendo_monitor() const { return m_vigia->sigue_siendo_monitor(); }

private:
    void vive();

    std::function<void(const herramientas::suceso &)> m_dime;
    std::unique_ptr<herramientas::vigia> m_vigia; // the thread's to make and to end
    HANDLE m_listo;
    DWORD m_id_hilo = 0;
    std::thread m_hilo;
};

} // namespace monitor

#endif
