// doctor_reglas_servicios.cpp - the checks of the registry's table of services.
#include "doctor_reglas.h"

#include <windows.h>

#include "comun/texto.h"

#include "iv_mcserv.h"

namespace ivrexactl {

using namespace herramientas;

enum : uint32_t { CASI_LLENA_SERVICIOS = 29, MAX_ESPERA_SERVIDOR = 2, MAX_ESPERA_CLIENTE = 4 };

static bool hay_programas(const examen &x)
{
    return x.e.hay_registro && x.e.tam_hay >= sizeof(iv_mcbase_t);
}

// What a command sees whose server cannot answer, and when that ends.
static std::string que_ve_un_cliente(const servicio_visto &s, vida v)
{
    if (es_de_ventana(s))
        return v == vida::parado ? "A command waits until it goes on." : "A command gives 0 at once.";
    return "A command gives 3 after about 3 s, and marks the service as ended; the next ones give 3 sooner.";
}

static void abandonados(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        vida v = vida_de(x, s.id_programa_servidor);
        if (!es_entrada(s) || !dice_que_sirve(s) || (v != vida::muerto && v != vida::parado))
            continue;
        apunta(r, x, describe_servicio(s),
               "Its channel says that it is served, by " + describe_programa(x, s.id_programa_servidor) +
                   ", which is " + (v == vida::muerto ? "dead or stopped. " : "stopped. ") + que_ve_un_cliente(s, v) +
                   " ivrexactl has goes on answering yes while any program holds the channel.");
    }
}

static void servidor(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        if (!es_entrada(s) || !dice_que_sirve(s))
            continue;
        uint32_t id = s.id_programa_servidor;
        const programa_visto *p = x.e.programa(id);
        std::string texto;
        if (id > iv_mcbase_NUM_MAX_PROGRAMAS)
            texto =
                "Its server is program " + std::to_string(id) + ", and there are 16: somebody wrote over the table.";
        else if (id == iv_mcbase_NUM_MAX_PROGRAMAS)
            texto = "Its server found no place in the table of programs, and has no heartbeat: " +
                    std::string(es_de_ventana(s) ? "with its window it serves all the same."
                                                 : "it counts as dead once a client has waited 2.6 s for it.");
        else if (p == nullptr)
            texto = "Its channel says that it is served, and the entry of its server, program " + std::to_string(id) +
                    ", is free: the server lost it, or is just closing its session. " +
                    que_ve_un_cliente(s, vida::libre);
        else if (!p->es_servidor)
            texto = "Its channel says that it is served, and its server, " + describe_programa(x, id) +
                    ", is no server: the server died, and another program took its entry.";
        if (!texto.empty())
            apunta(r, x, describe_servicio(s), texto, std::to_string(id));
    }
}

static void servidor_equivocado(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        const programa_visto *p = x.e.programa(s.id_programa_servidor);
        if (!es_entrada(s) || !dice_que_sirve(s) || p == nullptr || !p->es_servidor ||
            p->hwnd == s.canal->hwnd_servidor)
            continue;
        HWND hwnd = reinterpret_cast<HWND>(s.canal->hwnd_servidor);
        if (hwnd != nullptr && !IsWindow(hwnd))
            continue; // that is another check's
        hallazgo &h =
            apunta(r, x, describe_servicio(s),
                   "The table names " + describe_programa(x, p->id_programa) +
                       " as its server, and the channel "
                       "another window than that program's: a client entered the service after a monitor had emptied "
                       "the table, or two servers offer it. " +
                       (es_de_ventana(s) ? "Commands work." : "Clients look at the wrong heartbeat."),
                   std::to_string(p->id_programa));
        if (es_de_ventana(s))
            h.grave = gravedad::nota;
    }
}

static void cliente(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        uint32_t id = s.id_programa_cliente;
        if (!es_entrada(s) || id < iv_mcbase_NUM_MAX_PROGRAMAS)
            continue;
        if (id > iv_mcbase_NUM_MAX_PROGRAMAS) {
            apunta(r, x, describe_servicio(s),
                   "Its client is program " + std::to_string(id) + ", and there are 16: somebody wrote over the table.",
                   std::to_string(id));
            continue;
        }
        hallazgo &h =
            apunta(r, x, describe_servicio(s),
                   "The last client that registered for it found no place in the "
                   "table of programs, and has no heartbeat" +
                       std::string(dice_que_sirve(s) && !es_de_ventana(s) ? ": each of its commands may end the server."
                                                                          : "."));
        h.consejo = "When a place is free, let that client close its session and register again.";
        h.grave = gravedad::nota;
    }
}

static void repetidos(const regla &r, const examen &x)
{
    for (size_t i = 0; i < x.e.servicios.size(); i++)
        for (size_t j = i + 1; j < x.e.servicios.size(); j++) {
            const servicio_visto &a = x.e.servicios[i], &b = x.e.servicios[j];
            if (es_entrada(a) && es_entrada(b) && a.nombre_ansi == b.nombre_ansi)
                apunta(r, x, describe_servicio(b),
                       "It stands in the table twice, as " + std::to_string(a.ind_datServ) + " and " +
                           std::to_string(b.ind_datServ) +
                           ": the first is the one that is found. A name of 64 "
                           "characters and more does that, each time that it is registered.",
                       std::to_string(a.ind_datServ) + " " + std::to_string(b.ind_datServ));
        }
}

static void nombre_sin_fin(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios)
        if (es_entrada(s) && s.nombre_ansi.size() >= iv_mcbase_TAM_NOMBRE_SERVICIO)
            apunta(r, x, describe_servicio(s),
                   "Its name does not end within its 64 bytes: somebody wrote over the table.");
}

static void nombre_cortado(const regla &r, const examen &x)
{
    const size_t MAX = iv_mcbase_TAM_NOMBRE_SERVICIO - 1;
    for (const servicio_visto &s : x.e.servicios)
        for (const servicio_visto &largo : x.e.servicios)
            if (es_entrada(s) && s.nombre_ansi.size() == MAX && largo.nombre_ansi.size() > MAX && !es_entrada(largo) &&
                largo.nombre_ansi.compare(0, MAX, s.nombre_ansi) == 0)
                apunta(r, x, describe_servicio(s),
                       "It is the beginning of " + entre_comillas(largo.nombre) +
                           ", which has more than 63 characters: the table cuts it, each registration takes a new "
                           "entry, and "
                           "clients look at the wrong heartbeat.",
                       std::to_string(s.ind_datServ));
}

static void llena(const regla &r, const examen &x)
{
    size_t num = 0;
    for (const servicio_visto &s : x.e.servicios)
        num += es_entrada(s);
    std::string tanto = std::to_string(num) + " of 32";
    if (num >= iv_mcbase_NUM_MAX_SERVICIOS) {
        apunta(r, x, "table of services",
               tanto + ": the next service shows boxes. With a window it works unseen by the "
                       "monitor; without one it ends at once.");
    } else if (num >= CASI_LLENA_SERVICIOS) {
        hallazgo &h = apunta(r, x, "table of services", tanto + " places are taken.", tanto);
        h.grave = gravedad::nota;
    }
}

static void sin_canal(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios)
        if (es_entrada(s) && !s.canal)
            apunta(r, x, describe_servicio(s),
                   "Nobody holds its channel: its programs have ended, and the name is left. It "
                   "takes one of 32 places.");
}

static void terminado(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios)
        if (es_entrada(s) && se_lee(s) && ha_terminado(*s.canal))
            apunta(r, x, describe_servicio(s),
                   "It is in the table, and its channel says that its server has ended: the "
                   "server closed and a client registered since, or a client found the server dead. " +
                       std::string(es_de_ventana(s) ? "A command gets what the window answers, 0 if it is gone."
                                                    : "A command gives 3."));
}

static void bucles(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        if (!es_entrada(s))
            continue;
        std::string estados =
            std::to_string(s.bucle_servidor_estado) + " and " + std::to_string(s.bucle_cliente_estado);
        if (s.bucle_servidor_estado > MAX_ESPERA_SERVIDOR || s.bucle_cliente_estado > MAX_ESPERA_CLIENTE)
            apunta(r, x, describe_servicio(s),
                   "The loop states of its server and client are " + estados +
                       "; there are 0 to 2 and 0 to 4. Somebody wrote over the table.",
                   estados);
    }
}

// Rounds are counted by whoever waits, and the heartbeat looked at is that of the program that the entry names.
static void espera_sin_nombre(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        if (!es_entrada(s) || !hay_programas(x))
            continue;
        bool servidor_espera = x.c.vueltas_servidor.count(s.ind_datServ) != 0;
        bool cliente_espera = x.c.vueltas_cliente.count(s.ind_datServ) != 0 && dice_que_sirve(s) && !es_de_ventana(s);
        if (servidor_espera && esta_fuera(vida_de(x, s.id_programa_servidor)))
            apunta(r, x, describe_servicio(s),
                   "A server waits in it, and the program that the table names as its server, " +
                       describe_programa(x, s.id_programa_servidor) +
                       ", is not there: clients that wait for the server look "
                       "at a heartbeat that never moves, and give up after 2.6 s.",
                   "server");
        if (cliente_espera && esta_fuera(vida_de(x, s.id_programa_cliente)))
            apunta(r, x, describe_servicio(s),
                   "A client waits in it, and the last client that registered, " +
                       describe_programa(x, s.id_programa_cliente) +
                       ", is not there: a server without a window takes that one "
                       "for the client, and may end over the command.",
                   "client");
    }
}

static void comando_huerfano(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        vida v = vida_de(x, s.id_programa_cliente);
        bool libre = !s.canal || (se_lee(s) && s.canal->ocupacion == iv_mcserv_ocupacion_LIBRE);
        if (!es_entrada(s) || s.id_comando_en_curso == 0 || !esta_fuera(v) || !libre || !esta_quieto(x, s))
            continue;
        hallazgo &h =
            apunta(r, x, describe_servicio(s),
                   "Command " + std::to_string(s.id_comando_en_curso) +
                       " is noted as under way, and "
                       "its client, " +
                       describe_programa(x, s.id_programa_cliente) +
                       ", is not there: it died before it could "
                       "take the note away. A server without a window may end itself over it after about 3 s.",
                   std::to_string(s.id_comando_en_curso));
        if (es_de_ventana(s))
            h.grave = gravedad::nota;
    }
}

const std::vector<regla> reglas_servicios = {
    {"service-abandoned", gravedad::problema,
     "Start the server again, and let it offer the service: the entry is its again. Until then the name stays in the "
     "table, unless a monitor registers.",
     abandonados},
    {"service-server", gravedad::problema, "Let the server close its session and register again.", servidor},
    {"service-wrong-server", gravedad::problema, "Let the server call ivrexa_terminado_registro again.",
     servidor_equivocado},
    {"service-client", gravedad::problema, "Let a client register for the service.", cliente},
    {"service-waits-unnamed", gravedad::problema,
     "Let whoever waits register again: the server calls ivrexa_terminado_registro, a client closes its session first.",
     espera_sin_nombre},
    {"service-command", gravedad::problema,
     "Let a client register for the service, and offer it again then if it has ended.", comando_huerfano},
    {"service-loop", gravedad::problema, "Let server and client register again: each clears its own.", bucles},
    {"service-ended", gravedad::nota, "Start the server; clients that use notifications register anew after it.",
     terminado},
    {"service-no-channel", gravedad::nota,
     "Nothing; a server that offers and closes the service takes the name out, and so does a monitor that registers.",
     sin_canal},
    {"service-twice", gravedad::problema,
     "Register a monitor, which empties the table; let the servers call ivrexa_terminado_registro again.", repetidos},
    {"service-name", gravedad::problema,
     "Register a monitor, which empties the table; let the servers call ivrexa_terminado_registro again.",
     nombre_sin_fin},
    {"service-name-cut", gravedad::problema, "Give the service a name of 63 characters or fewer.", nombre_cortado},
    {"services-full", gravedad::problema,
     "Close services that nobody needs. Names that are left go when a monitor registers, which empties the table: "
     "servers "
     "call ivrexa_terminado_registro again then.",
     llena},
};

} // namespace ivrexactl
