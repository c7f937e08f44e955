// doctor.cpp - ivrexactl doctor: checks all that programs share, and says what to do.
#include "orden.h"

#include <algorithm>

#include "doctor_informe.h"

namespace ivrexactl {

using namespace herramientas;

static const char *const PIE =
    "It looks at the registry, the channels (also those that the table does not name) and the blocks of command\n"
    "data, several times, and tells what stood still in all looks. It registers nothing, takes no lock and writes\n"
    "nothing; a block that it looks at is kept in being for that moment.\n\n"
    "Heartbeats are followed until each has moved, for 2.6 s at most. With --no-wait they are not: dead programs\n"
    "with a window are found, those without are not, nor notifications and locks that nobody goes on with.\n"
    "A problem wants something done; a note does not.\n\n"
    "Exit status: 0 nothing wrong (there may be notes), 1 problems, 64 arguments that make no sense, 75 stopped\n"
    "before the end.\n\n"
    "Example: ivrexactl doctor --json";

namespace {

int ejecuta(bool como_json, bool sin_espera)
{
    consulta c = consulta_escritorio(!sin_espera);
    if (espera_fin(0))
        throw fallo(codigo_OCUPADO, "it was stopped before it had seen enough; let it run to its end");
    std::vector<hallazgo> hallazgos = diagnostica(c);
    if (!hallazgos.empty()) {
        mira_otra_vez(&c);
        hallazgos = diagnostica(c);
    }
    std::stable_sort(hallazgos.begin(), hallazgos.end(),
                     [](const hallazgo &a, const hallazgo &b) { return a.grave > b.grave; });
    di(como_json ? en_linea(informe_json(c, hallazgos)) : informe_texto(c, hallazgos));
    bool hay_problemas = std::any_of(hallazgos.begin(), hallazgos.end(),
                                     [](const hallazgo &h) { return h.grave == gravedad::problema; });
    return hay_problemas ? codigo_NO : codigo_HECHO;
}

} // namespace

void anyade_doctor(CLI::App &app, trabajo *hazlo)
{
    CLI::App *orden = app.add_subcommand("doctor", "Checks what programs share, and says what is wrong and what to do");
    auto como_json = std::make_shared<bool>(false), sin_espera = std::make_shared<bool>(false);
    orden->add_flag("--json", *como_json, "One JSON document instead of text");
    orden->add_flag("--no-wait", *sin_espera, "Do not follow the heartbeats");
    orden->footer(PIE);
    orden->callback([=] { *hazlo = [=] { return ejecuta(*como_json, *sin_espera); }; });
}

} // namespace ivrexactl
