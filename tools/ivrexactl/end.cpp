// end.cpp - ivrexactl end: asks the server of a service to end, and watches it go.
#include <algorithm>
#include <memory>

#include "comun/json.h"
#include "comun/texto.h"

#include "cliente.h"
#include "ivrexa.h"
#include "orden.h"

namespace ivrexactl {

using herramientas::entre_comillas;
using herramientas::json;

static const uint32_t MIRADA_MS = 20;
static const uint32_t MAX_ESPERA_S = 24 * 60 * 60;

namespace {

struct opciones {
    std::string servicio;
    double espera_s = 5;
    bool en_json = false;
};

} // namespace

static const char *const PIE =
    "A server with a window is posted the request: this program registers nowhere, and the server's whole program\n"
    "ends, if it does as it is told. A service without a window ends by a command, for which one of the desktop's 16\n"
    "program entries and the service's place for a client are taken; the other services of its program go on.\n\n"
    "Exit status: 0 it has ended, 1 it has not ended yet, 64 arguments that make no sense, 69 no such service or a\n"
    "table is full, 75 a command is under way, or Ctrl-C. With --wait 0: 0 it has been asked.\n\n"
    "Example: ivrexactl end Calc --wait 10";

// A window tells the whole program; without one the channel is all that tells.
static bool se_ha_ido(const destino &d)
{
    if (!ventana_viva(d.canal))
        return true;
    std::optional<herramientas::canal_visto> canal = herramientas::mira_canal(d.nombre_ansi);
    bool cerrado = !canal || !tiene_servidor(*canal);
    if (d.canal.hwnd_servidor == 0)
        return cerrado;
    if (canal && canal->hwnd_servidor == d.canal.hwnd_servidor && !cerrado)
        return false;
    herramientas::escritorio_visto e = herramientas::mira_escritorio();
    return std::none_of(e.programas.begin(), e.programas.end(), [&](const herramientas::programa_visto &p) {
        return p.hwnd == d.canal.hwnd_servidor && p.es_servidor;
    });
}

// True once the condition holds; false when the time is over or Ctrl-C comes.
template <typename F>
static bool mira_hasta(uint64_t limite, F condicion)
{
    while (!condicion()) {
        uint64_t ahora = GetTickCount64();
        if (ahora >= limite || espera_fin(static_cast<uint32_t>(std::min<uint64_t>(MIRADA_MS, limite - ahora))))
            return condicion();
    }
    return true;
}

// Another command would be run as this one: the channel has one place for the number.
static void espera_turno(const destino &d, uint64_t limite)
{
    bool libre = mira_hasta(limite, [&] {
        std::optional<herramientas::canal_visto> canal = herramientas::mira_canal(d.nombre_ansi);
        return !canal || canal->ocupacion == 0;
    });
    if (!libre)
        throw fallo(codigo_OCUPADO, "a command of another client is under way on " + entre_comillas(d.nombre) +
                                        ", so its server was not asked; try again, or with a longer --wait");
}

static void pide_fin(const destino &d, uint64_t limite)
{
    if (d.canal.hwnd_servidor != 0) {
        vela ctrl_c(d);
        ivrexa_terminar_servidor(d.nombre_ansi.c_str());
        ivrexa_cierra_sesion(); // nothing is registered: this lets go the library's memory
        return;
    }
    espera_turno(d, limite);
    vela ctrl_c(d);
    cliente yo(d, ctrl_c);
    ctrl_c.manda();
    ivrexa_terminar_servidor(d.nombre_ansi.c_str());
    ctrl_c.vuelve();
}

// The services that the same program still offers.
static std::vector<std::string> los_que_siguen(const destino &d)
{
    herramientas::escritorio_visto e = herramientas::mira_escritorio();
    std::vector<std::string> nombres;
    auto suyo = std::find_if(e.servicios.begin(), e.servicios.end(), [&](const herramientas::servicio_visto &s) {
        return s.nombre_ansi == d.nombre_ansi && s.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS;
    });
    if (suyo == e.servicios.end() || e.programa(suyo->id_programa_servidor) == nullptr)
        return nombres;
    for (const herramientas::servicio_visto &s : e.servicios)
        if (s.id_programa_servidor == suyo->id_programa_servidor && s.canal && tiene_servidor(*s.canal))
            nombres.push_back(entre_comillas(s.nombre));
    return nombres;
}

static void avisa_de_los_que_siguen(const destino &d)
{
    std::string lista;
    for (const std::string &nombre : los_que_siguen(d))
        lista += (lista.empty() ? "" : ", ") + nombre;
    if (!lista.empty())
        di_error("note: the same program still offers " + lista);
}

static void di_fin(const opciones &o, const destino &d, bool acabado)
{
    if (o.en_json)
        di(herramientas::en_linea(json{{"service", d.nombre}, {"asked", true}, {"ended", acabado}}));
    else
        di(acabado ? "ended" : o.espera_s > 0 ? "has not ended yet" : "asked to end");
    if (acabado && d.canal.hwnd_servidor == 0)
        avisa_de_los_que_siguen(d);
}

static int termina(const opciones &o)
{
    destino d = busca_destino(o.servicio);
    uint64_t limite = GetTickCount64() + static_cast<uint64_t>(o.espera_s * 1000);
    pide_fin(d, limite);
    if (d.canal.hwnd_servidor == 0) // the request itself has taken its time
        limite = GetTickCount64() + static_cast<uint64_t>(o.espera_s * 1000);
    bool acabado = mira_hasta(limite, [&] { return se_ha_ido(d); });
    di_fin(o, d, acabado);
    return acabado || o.espera_s == 0 ? codigo_HECHO : codigo_NO;
}

void anyade_end(CLI::App &app, trabajo *hazlo)
{
    auto o = std::make_shared<opciones>();
    CLI::App *orden = app.add_subcommand("end", "Asks the server of a service to end");
    orden->allow_windows_style_options(false);
    orden->add_option("SERVICE", o->servicio, "name of the service")->required();
    orden->add_option("--wait", o->espera_s, "seconds to wait for its end; 0: do not wait")
        ->check(CLI::Range(0.0, double(MAX_ESPERA_S)))
        ->capture_default_str();
    orden->add_flag("--json", o->en_json, "print the outcome as one JSON document");
    orden->footer(PIE);
    orden->callback([o, hazlo] { *hazlo = [o] { return termina(*o); }; });
}

} // namespace ivrexactl
