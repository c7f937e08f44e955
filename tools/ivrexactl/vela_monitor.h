// vela_monitor.h - while one lives, Ctrl-C ends this process, whatever the library waits for: it waits for the
// registry's lock without a bound, and a program that shows a box, or stands in a debugger, may hold that.
#ifndef IVREXACTL_VELA_MONITOR_H
#define IVREXACTL_VELA_MONITOR_H

#include <atomic>
#include <cstdint>
#include <thread>

#include <windows.h>

namespace ivrexactl {

class vela_monitor {
public:
    vela_monitor();
    ~vela_monitor();
    vela_monitor(const vela_monitor &) = delete;
    vela_monitor &operator=(const vela_monitor &) = delete;
    void avanza() { m_pasos++; } // the main thread goes on

private:
    void vigila();
    HANDLE m_acabado;
    std::atomic<uint64_t> m_pasos{0};
    std::thread m_hilo;
};

} // namespace ivrexactl

#endif
