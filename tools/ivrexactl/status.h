// status.h - one look at the desktop, as ivrexactl status shows it.
#ifndef IVREXACTL_STATUS_H
#define IVREXACTL_STATUS_H

#include <cstdint>
#include <string>

#include "comun/json.h"
#include "comun/mirada.h"

namespace ivrexactl {

struct vista_status {
    const herramientas::escritorio_visto &e;
    const herramientas::latidos &latidos;
    uint64_t ahora_ms;   // of the look, on the clock of `latidos`
    uint64_t hora_100ns; // FILETIME of it
};

std::string status_en_texto(const vista_status &v); // lines, each with its end
herramientas::json status_en_json(const vista_status &v);

// ---- What both forms say

uint32_t num_en_la_tabla(const herramientas::escritorio_visto &e);   // services that the table names
uint32_t pid_de_ventana(uint64_t hwnd);                              // 0: no such window
std::string nombre_programa(const herramientas::programa_visto &p);  // of its executable
std::string nombre_monitor(const herramientas::escritorio_visto &e); // likewise; "" where nobody tells
std::string fallo_registro(const herramientas::escritorio_visto &e); // why it is none; "" if it is one
std::string fallo_canal(const herramientas::canal_visto &c);

} // namespace ivrexactl

#endif
