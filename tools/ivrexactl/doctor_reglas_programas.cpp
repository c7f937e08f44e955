// doctor_reglas_programas.cpp - the checks of the registry's table of programs.
#include "doctor_reglas.h"

#include <cstring>

#include <windows.h>

#include "comun/texto.h"

namespace ivrexactl {

using namespace herramientas;

enum : size_t { CASI_LLENA_PROGRAMAS = 14 };

static std::string entrada(uint32_t i)
{
    return "program entry " + std::to_string(i);
}

static bool latido_se_mueve(const examen &x, uint32_t i)
{
    return !x.c.seguida || x.c.pulso.de(i, x.c.acaba_ms).p != latidos::pulso::callado;
}

static std::string quien_la_toma(const programa_visto &p)
{
    return p.hwnd != 0
               ? "The next program with a window that registers as " + entre_comillas(p.nombre) + " takes its place"
               : "The next program without a window that registers as " + entre_comillas(p.nombre) + " takes its place";
}

static void restos(const regla &r, const examen &x)
{
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_PROGRAMAS; i++) {
        const iv_mcbase_programa_t &p = x.e.crudo.programas[i];
        bool sobra =
            p.hwnd != 0 || p.es_servidor != 0 || p.es_cliente != 0 || p.es_monitor != 0 || p.contador_vivo != 0;
        if (p.nombre[0] == '\0' && sobra && x.c.latidos_sueltos.count(i) == 0)
            apunta(r, x, entrada(i),
                   "It has no name and is free, yet a window, a kind or a heartbeat stands in it: its "
                   "program was killed while it left, or somebody else's close emptied it.");
    }
}

static void vive_sin_entrada(const regla &r, const examen &x)
{
    for (uint32_t i : x.c.latidos_sueltos)
        if (x.e.crudo.programas[i].nombre[0] == '\0')
            apunta(
                r, x, entrada(i),
                "It is free, and its heartbeat moves: a program lives that has no entry any more. Two programs without "
                "a window that register under one path share an entry, and the first that closes empties it. The next "
                "program to register gets this place, and both count there.");
}

static void clases(const regla &r, const examen &x)
{
    for (const programa_visto &p : x.e.programas) {
        const iv_mcbase_programa_t &b = x.e.crudo.programas[p.id_programa];
        if (!p.es_servidor && !p.es_cliente && !p.es_monitor)
            apunta(
                r, x, describe_programa(x, p.id_programa),
                "It is no server, no client and no monitor: it died while it registered, or somebody wrote over it.");
        else if (b.es_servidor > 1 || b.es_cliente > 1 || b.es_monitor > 1)
            apunta(r, x, describe_programa(x, p.id_programa), "Its kinds are neither 0 nor 1: somebody wrote over it.");
    }
}

static void nombre_sin_fin(const regla &r, const examen &x)
{
    for (const programa_visto &p : x.e.programas)
        if (memchr(x.e.crudo.programas[p.id_programa].nombre, 0, iv_mcbase_TAM_NOMBRE_PROGRAMA) == nullptr)
            apunta(r, x, entrada(p.id_programa),
                   "Its name does not end within its 256 bytes: somebody wrote over it. The "
                   "library reads no further than 255 of them.");
}

static void sin_ventana(const regla &r, const examen &x)
{
    for (const programa_visto &p : x.e.programas)
        if (p.hwnd != 0 && !p.es_ventana && latido_se_mueve(x, p.id_programa))
            apunta(r, x, describe_programa(x, p.id_programa),
                   "Its window " + std::to_string(p.hwnd) + " is gone" +
                       (x.c.seguida ? ", and its heartbeat moves: it has destroyed the window that it registered with. "
                                    : ": it has ended, or destroyed the window that it registered with. ") +
                       "Commands on its services give 0, and it gets no notifications.",
                   std::to_string(p.hwnd));
}

static void muertos(const regla &r, const examen &x)
{
    for (const programa_visto &p : x.e.programas) {
        if (latido_se_mueve(x, p.id_programa) || p.es_ventana)
            continue;
        hallazgo &h = apunta(r, x, describe_programa(x, p.id_programa),
                             "Its heartbeat has stood still for " + segundos_callado(x, p.id_programa) +
                                 (p.hwnd != 0 ? " and its window is gone: it has ended without closing its session. "
                                              : ": it has ended without closing its session, or is stopped. ") +
                                 "Its entry is one of 16.");
        h.consejo = "If it ought to run, start it again. " + quien_la_toma(p) +
                    "; otherwise it stays until every program "
                    "that ever opened the registry has ended.";
    }
}

static void parados(const regla &r, const examen &x)
{
    for (const programa_visto &p : x.e.programas)
        if (!latido_se_mueve(x, p.id_programa) && p.es_ventana)
            apunta(r, x, describe_programa(x, p.id_programa) + " (process " + std::to_string(p.pid) + ")",
                   "Its window is there and its heartbeat has stood still for " + segundos_callado(x, p.id_programa) +
                       ": it is suspended, stands in a debugger, waits for a lock, or its session could not close. "
                       "Commands on its services wait; for who counts its rounds it is dead.");
}

static void repetidos(const regla &r, const examen &x)
{
    for (size_t i = 0; i < x.e.programas.size(); i++)
        for (size_t j = i + 1; j < x.e.programas.size(); j++) {
            const programa_visto &a = x.e.programas[i], &b = x.e.programas[j];
            if (a.nombre == b.nombre && a.hwnd == b.hwnd)
                apunta(r, x, entrada(b.id_programa),
                       entre_comillas(nombre_sin_ruta(b.nombre)) + " stands in entry " + std::to_string(a.id_programa) +
                           " already, with the same window: only the first is found. Somebody wrote over the table.");
        }
}

static void mismo_proceso(const regla &r, const examen &x)
{
    for (size_t i = 0; i < x.e.programas.size(); i++)
        for (size_t j = i + 1; j < x.e.programas.size(); j++) {
            const programa_visto &a = x.e.programas[i], &b = x.e.programas[j];
            if (a.pid != 0 && a.pid == b.pid && a.hwnd != b.hwnd)
                apunta(r, x, describe_programa(x, a.id_programa) + " and " + describe_programa(x, b.id_programa),
                       "Their windows belong to one process, " + std::to_string(a.pid) +
                           ": it has loaded the library "
                           "twice, or lost its first entry. It takes two of 16 places.");
        }
}

static void llena(const regla &r, const examen &x)
{
    size_t num = x.e.programas.size();
    std::string tanto = std::to_string(num) + " of 16";
    if (num >= iv_mcbase_NUM_MAX_PROGRAMAS) {
        apunta(r, x, "table of programs",
               tanto +
                   ": the next program shows a box and gets no entry. It has no heartbeat "
                   "then: servers without a window may end over its commands, and as such a server it counts as dead.");
    } else if (num >= CASI_LLENA_PROGRAMAS) {
        hallazgo &h = apunta(r, x, "table of programs", tanto + " places are taken.", tanto);
        h.grave = gravedad::nota;
    }
}

static void ventana_colgada(const regla &r, const examen &x)
{
    for (const programa_visto &p : x.e.programas)
        if (p.es_servidor && p.es_ventana && IsHungAppWindow(reinterpret_cast<HWND>(p.hwnd)) &&
            latido_se_mueve(x, p.id_programa))
            apunta(
                r, x, describe_programa(x, p.id_programa) + " (process " + std::to_string(p.pid) + ")",
                "Its window has taken no message for some seconds: it works on something long, or hangs. Commands on "
                "its services wait until it goes on.");
}

const std::vector<regla> reglas_programas = {
    {"dead-entry", gravedad::problema, "", muertos},
    {"program-stopped", gravedad::problema,
     "Let it go on or end it. If it offers a service without a window, let it close its session and register again.",
     parados},
    {"program-window-gone", gravedad::problema,
     "Start the program again; a program keeps its window until it has closed its session.", sin_ventana},
    {"program-hung", gravedad::nota,
     "Wait, or look what the program does. Long work belongs on a thread, or into a server without a window.",
     ventana_colgada},
    {"program-cut-off", gravedad::problema,
     "Start each program without a window under a path of its own. Let the one that is left close its session and "
     "register again.",
     vive_sin_entrada},
    {"program-leftover", gravedad::nota, "Nothing: the entry is free, and the next program writes its own.", restos},
    {"program-kinds", gravedad::problema, "Start the program again under the same path: it takes the entry.", clases},
    {"program-name", gravedad::problema,
     "Find who writes into the registry; end every program that uses the library, so that it is made anew.",
     nombre_sin_fin},
    {"program-twice", gravedad::problema, "End every program that uses the library, so that the registry is made anew.",
     repetidos},
    {"program-same-process", gravedad::nota, "Load the library once in a process, from one place.", mismo_proceso},
    {"programs-full", gravedad::problema,
     "Close sessions that nobody needs, and keep the paths that programs register with fixed: a dead entry is taken "
     "again by its own path alone. To empty the table, end every program that uses the library.",
     llena},
};

} // namespace ivrexactl
