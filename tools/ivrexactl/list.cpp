// list.cpp - ivrexactl list.
#include "orden.h"

#include <memory>
#include <vector>

#include "columnas.h"

#include "comun/json.h"
#include "comun/mirada.h"
#include "comun/texto.h"

namespace ivrexactl {

using herramientas::escritorio_visto;
using herramientas::programa_visto;
using herramientas::servicio_visto;

namespace {

struct opciones {
    std::string prefijo;
    bool larga = false, json = false;
};

std::string lee_prefijo(const std::string &utf8)
{
    std::optional<std::string> ansi = herramientas::a_ansi(utf8);
    if (!ansi || ansi->size() >= iv_mcbase_TAM_NOMBRE_SERVICIO)
        throw fallo(codigo_USO, "no name can begin with " + herramientas::entre_comillas(utf8) +
                                    "; names have at most 63 bytes, all in the ANSI code page");
    return *ansi;
}

// As ivrexa_hay_servicio_registrado_empiece_por compares: the name, cut to the prefix's length, is it to the byte or to
// the system's comparison.
bool empieza_por(const std::string &nombre, const std::string &prefijo)
{
    if (nombre.size() < prefijo.size())
        return false;
    std::string cortado = nombre.substr(0, prefijo.size());
    return cortado == prefijo || lstrcmpA(cortado.c_str(), prefijo.c_str()) == 0;
}

std::vector<const servicio_visto *> elige(const escritorio_visto &e, const std::string &prefijo)
{
    std::vector<const servicio_visto *> elegidos;
    for (const servicio_visto &s : e.servicios)
        if (s.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS && empieza_por(s.nombre_ansi, prefijo))
            elegidos.push_back(&s);
    return elegidos;
}

// What a channel says of its server and version is left from before where nobody serves it.
bool esta_servido(const servicio_visto &s)
{
    return s.canal && tiene_servidor(*s.canal);
}

herramientas::json en_json(const escritorio_visto &e, const std::vector<const servicio_visto *> &elegidos)
{
    herramientas::json lista = herramientas::json::array();
    for (const servicio_visto *s : elegidos) {
        const programa_visto *p = servidor_de(e, *s);
        herramientas::json j = {{"index", s->ind_datServ},
                                {"name", s->nombre},
                                {"version", nullptr},
                                {"server", nullptr},
                                {"attached", esta_servido(*s)}};
        if (esta_servido(*s))
            j["version"] = s->canal->version_servicio;
        if (p != nullptr)
            j["server"] = herramientas::nombre_sin_ruta(p->nombre);
        lista.push_back(j);
    }
    return {{"services", lista}, {"torn", !e.quieto}};
}

std::string en_lineas_largas(const escritorio_visto &e, const std::vector<const servicio_visto *> &elegidos)
{
    std::vector<std::vector<std::string>> filas = {{"name", "version", "attached", "server"}};
    for (const servicio_visto *s : elegidos) {
        const programa_visto *p = servidor_de(e, *s);
        filas.push_back({herramientas::sin_controles(s->nombre),
                         esta_servido(*s) ? std::to_string(s->canal->version_servicio) : "-",
                         esta_servido(*s) ? "yes" : "no",
                         p != nullptr ? herramientas::sin_controles(herramientas::nombre_sin_ruta(p->nombre)) : "-"});
    }
    std::string texto = en_columnas(filas, "");
    texto.pop_back(); // di ends the last line
    return texto;
}

void imprime(const opciones &o, const escritorio_visto &e, const std::vector<const servicio_visto *> &elegidos)
{
    if (o.json)
        return di(herramientas::en_linea(en_json(e, elegidos)));
    if (!e.hay_registro)
        return di_error("ivrexactl list: no program is registered on this desktop");
    if (!e.quieto)
        di_error("ivrexactl list: the registry was being written all the while; what is shown may be torn");
    if (elegidos.empty())
        return di_error("ivrexactl list: the service table has no such name");
    if (o.larga)
        return di(en_lineas_largas(e, elegidos));
    for (const servicio_visto *s : elegidos)
        di(herramientas::sin_controles(s->nombre));
}

int haz_lista(const opciones &o)
{
    std::string prefijo = lee_prefijo(o.prefijo);
    escritorio_visto e = herramientas::mira_escritorio();
    imprime(o, e, elige(e, prefijo));
    return codigo_HECHO;
}

const char *const PIE =
    R"(The service table is part of the registry that the programs of a desktop share: 32 names, entered by
the servers that offer them and by the clients that ask for them, so a name may be there that nobody
serves. A server that closes takes its names out; one that dies leaves them. A program that registers
as the monitor empties the table: the services go on working, but their names are not listed any more
until somebody enters them again. "ivrexactl status" finds their channels nevertheless.

Takes nothing from the desktop: no program entry, no lock, no handle that stays.

Exit status: 0, also when there is no such name (a note on the error output says so), 64 a PREFIX that
no name can have.

Examples:
  ivrexactl list
  ivrexactl list Calc --long)";

} // namespace

void anyade_list(CLI::App &app, trabajo *hazlo)
{
    auto o = std::make_shared<opciones>();
    CLI::App *orden = app.add_subcommand("list", "Lists the names in the service table, one a line");
    orden->add_option("PREFIX", o->prefijo, "Only names that begin so, case included");
    orden->add_flag("--long,-l", o->larga, "In columns, with version, attached server and its program");
    orden->add_flag("--json", o->json, "Print one JSON document");
    orden->footer(PIE);
    orden->callback([o, hazlo] { *hazlo = [o] { return haz_lista(*o); }; });
}

} // namespace ivrexactl
