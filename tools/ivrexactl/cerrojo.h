// cerrojo.h - the registry as it is now, and its lock, held no longer than a look at it takes.
#ifndef IVREXACTL_CERROJO_H
#define IVREXACTL_CERROJO_H

#include <windows.h>

#include "iv_mcserv.h"

namespace ivrexactl {

iv_mcbase_t registro_ahora(); // all zeros where there is none; throws where its size is wrong

// The registry's own mutex, which the library waits for without a bound. Throws where a program holds it for 5 s, or
// until the end is asked for. Where there is no registry there is nothing to hold.
class cerrojo_registro {
public:
    cerrojo_registro();
    ~cerrojo_registro();
    cerrojo_registro(const cerrojo_registro &) = delete;
    cerrojo_registro &operator=(const cerrojo_registro &) = delete;

private:
    HANDLE m_mutex;
};

} // namespace ivrexactl

#endif
