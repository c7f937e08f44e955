// has.cpp - ivrexactl has.
#include "orden.h"

#include <memory>

#include "entrada.h"

#include "comun/json.h"
#include "comun/mirada.h"

namespace ivrexactl {

namespace {

struct opciones {
    std::string servicio;
    bool json = false;
};

// Who makes a block writes its size just behind: a size of 0 is given as long as the library gives it.
std::optional<herramientas::canal_visto> mira(const std::string &nombre_ansi)
{
    std::optional<herramientas::canal_visto> canal = herramientas::mira_canal(nombre_ansi);
    for (int n = 0; n < 20 && canal && canal->tam == 0; n++) {
        Sleep(1);
        canal = herramientas::mira_canal(nombre_ansi);
    }
    return canal;
}

// ivrexa_hay_servicio_registrado registers nothing, but it opens the channel for writing, leaves a handle on it until
// the process ends, and may show a box when the block lies. So the channel is read, and judged by the same rule. The
// name finds it as it finds it for the library: as part of the block's name, compared by the system.
int pregunta(const opciones &o)
{
    std::optional<herramientas::canal_visto> canal = mira(lee_nombre_servicio(o.servicio));
    bool hay = canal && tiene_servidor(*canal);
    if (o.json) {
        herramientas::json j = {{"service", o.servicio}, {"has", hay}, {"version", nullptr}};
        if (hay)
            j["version"] = canal->version_servicio;
        di(herramientas::en_linea(j));
    } else {
        di(hay ? "yes" : "no");
    }
    return hay ? codigo_HECHO : codigo_NO;
}

const char *const PIE =
    R"(A server counts as attached to its service from the end of its registration until it closes, is
asked to end, gives up its client (one without a window does, in the middle of a command), or is found
dead by a client. One that died counts as attached until then, or for as long as any program holds the
service's channel. The service table is not asked: a service that a new monitor took out of it is
still there.

Takes nothing from the desktop: no program entry, no lock, no handle that stays.

Exit status: 0 yes, 1 no, 64 a name that no service can have (none, more than 63 bytes, a
backslash, or a character that the ANSI code page has not).

Example:
  ivrexactl has Calc && ivrexactl call Calc 100)";

} // namespace

void anyade_has(CLI::App &app, trabajo *hazlo)
{
    auto o = std::make_shared<opciones>();
    CLI::App *orden = app.add_subcommand("has", "Says whether a server is attached to a service: yes or no");
    orden->add_option("SERVICE", o->servicio, "Its name, case included")->required();
    orden->add_flag("--json", o->json, "Print one JSON document");
    orden->footer(PIE);
    orden->callback([o, hazlo] { *hazlo = [o] { return pregunta(*o); }; });
}

} // namespace ivrexactl
