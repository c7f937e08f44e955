// opciones.h - the command line.
#ifndef MONITOR_OPCIONES_H
#define MONITOR_OPCIONES_H

#include <string>
#include <vector>

namespace monitor {

struct opciones {
    bool sustituye = false;    // --replace
    bool vigila = true;        // not --no-watch
    bool no_preguntes = false; // --yes
    bool ayuda = false;        // --help
    std::wstring desconocida;  // an argument that there is not; empty: all were good
};

opciones lee_opciones(const std::vector<std::wstring> &argumentos);
std::vector<std::wstring> argumentos_del_proceso();
extern const wchar_t *const USO;

} // namespace monitor

#endif
