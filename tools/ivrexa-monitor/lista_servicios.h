// lista_servicios.h - the services of the desktop, with who serves, who uses them, and who waits.
#ifndef MONITOR_LISTA_SERVICIOS_H
#define MONITOR_LISTA_SERVICIOS_H

#include <map>

#include "comun/mirada.h"
#include "lista_filas.h"

namespace monitor {

class lista_servicios : public lista_filas {
public:
    lista_servicios();
    void muestra(const herramientas::escritorio_visto &e);

private:
    // A loop's state stays in the registry when the wait is over: who waits is seen by the rounds that go on.
    struct espera {
        uint32_t estado = 0, vueltas = 0;
        bool sigue(const espera &antes) const
        {
            return estado != 0 && (estado != antes.estado || vueltas != antes.vueltas);
        }
    };
    struct esperas {
        espera servidor, cliente;
    };
    fila fila_de(const herramientas::escritorio_visto &e, const herramientas::servicio_visto &s, const esperas &antes,
                 const esperas &ahora) const;

    std::map<std::string, esperas> m_antes;
};

} // namespace monitor

#endif
