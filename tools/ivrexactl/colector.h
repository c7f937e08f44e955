// colector.h - the session's debugger output: what programs hand to OutputDebugString, with the process it came from.
//
// One program of a session collects. Writers take the mutex DBWinMutex in turn, wait up to 10 s for DBWIN_BUFFER_READY,
// fill DBWIN_BUFFER and set DBWIN_DATA_READY; so a collector that keeps them waiting holds up every program that
// traces.
#ifndef IVREXACTL_COLECTOR_H
#define IVREXACTL_COLECTOR_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ivrexactl {

struct trozo_depurado {
    uint32_t pid = 0;
    uint64_t hora_100ns = 0; // FILETIME of its arrival
    std::string texto;       // ANSI
};

class colector {
public:
    colector();  // throws fallo: another collector is at it
    ~colector(); // ends it
    colector(const colector &) = delete;
    colector &operator=(const colector &) = delete;

    std::vector<trozo_depurado> toma(uint32_t ms); // what has come; waits so long for the first of it
    void acaba();                                  // lets no writer wait; toma() gives what came until then

    struct interior;

private:
    std::unique_ptr<interior> m;
};

} // namespace ivrexactl

#endif
