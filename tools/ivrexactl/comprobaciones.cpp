#include "comprobaciones.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "comun/texto.h"

namespace ivrexactl {

using herramientas::entre_comillas;

static bool es_entero(const std::string &texto, uint64_t maximo)
{
    const size_t MAX_CIFRAS = 19; // as many always fit
    if (texto.empty() || texto.size() > MAX_CIFRAS || texto.find_first_not_of("0123456789") != std::string::npos)
        return false;
    uint64_t valor = strtoull(texto.c_str(), nullptr, 10);
    return valor > 0 && valor <= maximo;
}

std::string es_tiempo(const std::string &texto)
{
    char *fin = nullptr;
    double valor = strtod(texto.c_str(), &fin);
    bool bien = !texto.empty() && *fin == '\0' && std::isfinite(valor) && valor > 0;
    return bien ? "" : entre_comillas(texto) + " is no number of seconds above 0";
}

std::string es_cuenta(const std::string &texto)
{
    return es_entero(texto, UINT64_MAX) ? "" : entre_comillas(texto) + " is no whole number above 0";
}

std::string es_proceso(const std::string &texto)
{
    return es_entero(texto, UINT32_MAX) ? "" : entre_comillas(texto) + " is no process id";
}

} // namespace ivrexactl
