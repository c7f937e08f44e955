// doctor_mirada.h - what `ivrexactl doctor` knows of the desktop: several looks at everything, and what moved between
// them. Nothing is locked, so one look may show any passing state; only what all of them show is told.
#ifndef IVREXACTL_DOCTOR_MIRADA_H
#define IVREXACTL_DOCTOR_MIRADA_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "comun/mirada.h"

namespace ivrexactl {

struct bloque_de_datos {
    std::string servicio_ansi;
    uint32_t id = 0;
    uint32_t tam = 0;   // bytes that its header states
    size_t tam_hay = 0; // those of them that are mapped
    std::string danyo;  // why its content cannot be read; empty: it can
};

struct caja_vista { // a report that waits for a click
    uint32_t pid = 0;
    std::string texto; // empty: the system does not show it to us
};

struct consulta {
    bool seguida = false;                                // heartbeats were followed, and could have moved
    uint64_t acaba_ms = 0;                               // the time of the last look
    std::vector<herramientas::escritorio_visto> miradas; // those in which the registry was not torn
    std::vector<std::set<std::string>> faltan;           // blocks that its channels name and there were not
    herramientas::latidos pulso;
    std::map<std::string, uint32_t> rotas; // looks that were torn: "" the registry's, else a channel's, by service

    // What moved meanwhile.
    std::set<std::string> canales;                        // by service, as in names of objects
    std::set<uint32_t> latidos_sueltos;                   // heartbeats in entries without a name
    std::set<uint32_t> vueltas_servidor, vueltas_cliente; // rounds, by ind_datServ
    bool registro_movido = false;                         // any byte of the registry

    std::vector<bloque_de_datos> datos; // in being at the first look and at the last
    uint32_t num_datos = 0;             // all that there were at the last
    bool registro_retenido = false;     // the lock was held whenever it was looked at
    bool monton_retenido = false;
    bool registro_parado = false; // the registry's was, for as long as heartbeats are followed, and nothing moved in it
    std::vector<caja_vista> cajas;
};

enum : uint32_t { consulta_MAX_DATOS = 1000 }; // blocks of command data that are read

// With `sigue_latidos` it lasts until every heartbeat has moved, 2.6 s at most; else 0.4 s.
consulta consulta_escritorio(bool sigue_latidos);

// One more look, a moment later.
void mira_otra_vez(consulta *c);

// What of a look was written all the while is counted as torn. False: the registry was, and the look tells nothing.
bool anota_rotas(consulta *c, const herramientas::escritorio_visto &e);

} // namespace ivrexactl

#endif
