// status.cpp - ivrexactl status.
#include "orden.h"

#include <cstdlib>
#include <memory>

#include "status.h"

#include "comun/nombres.h"
#include "comun/vigia.h"

namespace ivrexactl {

using herramientas::escritorio_visto;
using herramientas::latidos;

namespace {

const uint32_t VUELTA_MS = 100;
const double MAX_SEGUNDOS = 86400;

struct opciones {
    bool json = false, sin_esperar = false, seguido = false;
    std::string segundos; // "" = 1
    uint32_t cada_ms = 1000;
    uint64_t veces = 0; // 0 = until Ctrl-C
};

// What was opened for a look is closed again before this returns.
escritorio_visto mira(escritorio_visto (*como)(), latidos *l, uint64_t *ahora_ms)
{
    escritorio_visto e = como();
    *ahora_ms = GetTickCount64();
    l->anota(e, *ahora_ms);
    return e;
}

void imprime(const opciones &o, const vista_status &v)
{
    if (o.json)
        return di(herramientas::en_linea(status_en_json(v)));
    std::string texto = status_en_texto(v);
    texto.pop_back(); // di ends the last line
    di(texto);
}

bool se_mueven_todos(const escritorio_visto &e, const latidos &l, uint64_t ahora_ms)
{
    for (const herramientas::programa_visto &p : e.programas)
        if (l.de(p.id_programa, ahora_ms).p != latidos::pulso::se_mueve)
            return false;
    return true;
}

// Heartbeats stand in the registry: the channels are left alone meanwhile.
void sigue_latidos(latidos *l)
{
    uint64_t ahora_ms;
    escritorio_visto e = mira(herramientas::mira_registro, l, &ahora_ms);
    uint64_t desde_ms = ahora_ms;
    while (!se_mueven_todos(e, *l, ahora_ms) && ahora_ms - desde_ms < herramientas::SIN_LATIDO_MS &&
           !espera_fin(VUELTA_MS))
        e = mira(herramientas::mira_registro, l, &ahora_ms);
}

int mira_una_vez(const opciones &o)
{
    latidos l;
    uint64_t ahora_ms;
    if (!o.sin_esperar)
        sigue_latidos(&l);
    escritorio_visto e = mira(herramientas::mira_escritorio, &l, &ahora_ms);
    imprime(o, {e, l, ahora_ms, herramientas::ahora_100ns()});
    return codigo_HECHO;
}

int mira_seguido(const opciones &o)
{
    latidos l;
    for (uint64_t vez = 1;; vez++) {
        uint64_t ahora_ms;
        escritorio_visto e = mira(herramientas::mira_escritorio, &l, &ahora_ms);
        uint64_t hora_100ns = herramientas::ahora_100ns();
        if (!o.json)
            di(std::string(vez == 1 ? "" : "\n") + "==== look " + std::to_string(vez) + ", " +
               herramientas::hora_local(hora_100ns) + " ====");
        imprime(o, {e, l, ahora_ms, hora_100ns});
        if (vez == o.veces || espera_fin(o.cada_ms))
            return codigo_HECHO;
    }
}

void lee_segundos(opciones *o)
{
    if (o->segundos.empty())
        return;
    char *fin = nullptr;
    double s = strtod(o->segundos.c_str(), &fin);
    if (*fin != '\0' || !(s >= 0.1 && s <= MAX_SEGUNDOS))
        throw CLI::ValidationError("--watch", "seconds from 0.1 to 86400, not " + o->segundos);
    o->cada_ms = static_cast<uint32_t>(s * 1000);
}

const char *const PIE =
    R"(Shows the programs with their windows and heartbeats, the services with both sides, the states of
their channels, the command under way, what each side waits for and the mailbox, the monitor, and how
full each table is. Channels that no name in the table leads to are found and shown too.

A heartbeat comes every 2 seconds, so status looks for up to 2.6 seconds, and ends earlier once each
has moved. Who begins to wait for a program whose heartbeat stands still gives it up after 26 rounds of
0.1 s; a server misses its client only while a command is under way. A wait that is over stays noted
until the next one begins.

Takes nothing from the desktop: no program entry, no lock, no handle that stays; nothing is written.
What programs wrote all the while it was read is marked as possibly torn.

Exit status: 0, also without a registry and after Ctrl-C; 64 arguments that make no sense.

Examples:
  ivrexactl status
  ivrexactl status --watch 0.5
  ivrexactl status --no-wait --json)";

} // namespace

void anyade_status(CLI::App &app, trabajo *hazlo)
{
    auto o = std::make_shared<opciones>();
    CLI::App *orden = app.add_subcommand("status", "Shows programs and services at a glance, without registering");
    orden->add_flag("--json", o->json, "Print one JSON document; with --watch, one on each line");
    CLI::Option *cada = orden->add_option("--watch", o->segundos, "Look again every S seconds (1), until Ctrl-C");
    cada->expected(0, 1)->type_name("[S]");
    CLI::Option *veces = orden->add_option("--count", o->veces, "With --watch: end after N looks");
    veces->check(CLI::PositiveNumber)->type_name("N")->needs(cada);
    orden->add_flag("--no-wait", o->sin_esperar, "Do not wait for heartbeats: show their counts only")->excludes(cada);
    orden->footer(PIE);
    orden->callback([o, cada, hazlo] {
        o->seguido = cada->count() > 0;
        lee_segundos(o.get());
        *hazlo = [o] { return o->seguido ? mira_seguido(*o) : mira_una_vez(*o); };
    });
}

} // namespace ivrexactl
