#include "doctor_informe.h"

#include <algorithm>

#include "comun/texto.h"

namespace ivrexactl {

using namespace herramientas;

namespace {

struct cuentas {
    size_t problemas = 0, notas = 0, programas = 0, servicios = 0;
};

cuentas cuenta(const consulta &c, const std::vector<hallazgo> &hallazgos)
{
    cuentas n;
    for (const hallazgo &h : hallazgos)
        (h.grave == gravedad::problema ? n.problemas : n.notas)++;
    if (c.miradas.empty())
        return n;
    const escritorio_visto &e = c.miradas.back();
    n.programas = e.programas.size();
    n.servicios = static_cast<size_t>(std::count_if(e.servicios.begin(), e.servicios.end(), es_entrada));
    return n;
}

std::string tantos(size_t num, const std::string &que)
{
    return numero_con_comas(num) + " " + que + (num == 1 ? "" : "s");
}

std::string que_se_rompio(const std::string &servicio)
{
    return servicio.empty() ? "the registry" : "the channel of service " + entre_comillas(de_ansi(servicio));
}

// ---- For people

std::string en_parrafo(const hallazgo &h)
{
    std::string que = h.grave == gravedad::problema ? "problem " : "note ";
    return que + h.id + ": " + h.sujeto + "\n  " + h.texto + "\n  What to do: " + h.consejo + "\n\n";
}

std::string las_rotas(const consulta &c)
{
    std::string lineas;
    for (const auto &[servicio, veces] : c.rotas)
        lineas += "Not told: " + tantos(veces, "look") + " at " + que_se_rompio(servicio) +
                  (veces == 1 ? " was" : " were") + " torn, because it was written all the while. Run doctor again.\n";
    return lineas.empty() ? "" : lineas + "\n";
}

std::string resumen(const consulta &c, const cuentas &n)
{
    std::string mirado = tantos(n.programas, "program") + ", " + tantos(n.servicios, "service");
    std::string notas = n.notas > 0 ? ", " + tantos(n.notas, "note") : "";
    if (n.problemas > 0)
        return tantos(n.problemas, "problem") + notas;
    if (c.miradas.empty())
        return "nothing told: the registry was written all the while";
    if (!c.miradas.back().hay_registro && c.miradas.back().servicios.empty())
        return "nothing wrong: nobody uses the library here" + notas;
    return "nothing wrong: " + mirado + notas;
}

} // namespace

std::string informe_texto(const consulta &c, const std::vector<hallazgo> &hallazgos)
{
    std::string todo;
    for (const hallazgo &h : hallazgos)
        todo += en_parrafo(h);
    return todo + las_rotas(c) + resumen(c, cuenta(c, hallazgos));
}

// ---- For programs

json informe_json(const consulta &c, const std::vector<hallazgo> &hallazgos)
{
    cuentas n = cuenta(c, hallazgos);
    json lista = json::array(), rotas = json::array();
    for (const hallazgo &h : hallazgos)
        lista.push_back({{"id", h.id},
                         {"severity", h.grave == gravedad::problema ? "problem" : "note"},
                         {"subject", h.sujeto},
                         {"text", h.texto},
                         {"advice", h.consejo}});
    for (const auto &[servicio, veces] : c.rotas)
        rotas.push_back({{"subject", que_se_rompio(servicio)}, {"looks", veces}});
    return {{"findings", lista},          {"torn", rotas},
            {"problems", n.problemas},    {"notes", n.notas},
            {"programs", n.programas},    {"services", n.servicios},
            {"data_blocks", c.num_datos}, {"heartbeats_followed", c.seguida}};
}

} // namespace ivrexactl
