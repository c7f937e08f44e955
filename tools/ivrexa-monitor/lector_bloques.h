// lector_bloques.h - what the block of an event holds. Who opened a block may have let it go by the time its event
// comes: what it held when it was saved is what it holds. Remembered are the last 64, up to 16 MiB.
#ifndef MONITOR_LECTOR_BLOQUES_H
#define MONITOR_LECTOR_BLOQUES_H

#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>

#include "comun/valores.h"
#include "comun/vigia.h"

namespace monitor {

class lector_bloques {
public:
    std::optional<herramientas::contenido> lee(const herramientas::suceso &s);

private:
    using bloque = std::pair<std::string, uint32_t>; // service, id
    struct uno {
        bloque b;
        herramientas::contenido c;
        size_t tam;
    };

    void recuerda(const bloque &b, const herramientas::contenido &c);
    void olvida_si(const std::function<bool(const bloque &)> &cual);

    std::list<uno> m_vistos; // the oldest first
    size_t m_bytes = 0;
};

} // namespace monitor

#endif
