#include "comun/seccion.h"
#include "secciones/cuentas.h"
#include "secciones/datos.h"
#include "secciones/obrero.h"

#include <algorithm>

namespace banco {

const std::vector<seccion> &secciones()
{
    static const std::vector<seccion> todas = {
        {"roundtrip", "Round trip between two processes", mide_ida_y_vuelta},
        {"data", "Command data alone", mide_datos},
        {"growth", "How the cost of a command grows", mide_crecimiento},
        {"load", "Loading the library", mide_carga},
        {"counts", "Calls of one command", cuenta_llamadas},
    };
    return todas;
}

bool pedida(const std::vector<std::string> &nombradas, const std::string &clave)
{
    return nombradas.empty() || std::find(nombradas.begin(), nombradas.end(), clave) != nombradas.end();
}

const std::vector<papel> &papeles()
{
    static const std::vector<papel> todos = {
        {"data", sirve_datos},
        {PAPEL_OBRERO, sirve_obrero},
        {"counts_server", sirve_cuentas_servidor},
        {"counts_client", sirve_cuentas_cliente},
    };
    return todos;
}

} // namespace banco
