#include "doctor_reglas.h"

#include <algorithm>
#include <cstdio>

#include <windows.h>

#include "comun/nombres.h"
#include "comun/texto.h"

#include "iv_mcserv.h"

namespace ivrexactl {

using namespace herramientas;

hallazgo &apunta(const regla &r, const examen &x, const std::string &sujeto, const std::string &texto,
                 const std::string &clave)
{
    hallazgo h;
    h.id = r.id;
    h.grave = r.grave;
    h.sujeto = sujeto;
    h.texto = texto;
    h.consejo = r.consejo;
    h.clave = h.id + '\n' + sujeto + '\n' + clave;
    x.hallazgos->push_back(h);
    return x.hallazgos->back();
}

static std::vector<hallazgo> examina(const consulta &c, size_t mirada)
{
    std::vector<hallazgo> todos;
    examen x = {c, c.miradas[mirada], c.faltan[mirada], &todos};
    for (const std::vector<regla> *tabla :
         {&reglas_registro, &reglas_programas, &reglas_servicios, &reglas_canales, &reglas_datos})
        for (const regla &r : *tabla)
            r.comprueba(r, x);
    return todos;
}

std::vector<hallazgo> diagnostica(const consulta &c)
{
    std::vector<hallazgo> quedan;
    for (size_t i = c.miradas.size(); i-- > 0;) {
        std::vector<hallazgo> vistos = examina(c, i);
        if (i + 1 == c.miradas.size()) {
            quedan = std::move(vistos);
            continue;
        }
        auto ausente = [&](const hallazgo &h) {
            return std::none_of(vistos.begin(), vistos.end(), [&](const hallazgo &v) { return v.clave == h.clave; });
        };
        quedan.erase(std::remove_if(quedan.begin(), quedan.end(), ausente), quedan.end());
    }
    return quedan;
}

// ---- What several checks ask

vida vida_de(const examen &x, uint32_t id_programa)
{
    if (id_programa >= iv_mcbase_NUM_MAX_PROGRAMAS)
        return vida::ninguno;
    const programa_visto *p = x.e.programa(id_programa);
    if (p == nullptr)
        return vida::libre;
    bool callado = x.c.seguida && x.c.pulso.de(id_programa, x.c.acaba_ms).p == latidos::pulso::callado;
    if (p->hwnd != 0 && !p->es_ventana)
        return vida::muerto;
    if (!callado)
        return vida::vive;
    return p->hwnd != 0 ? vida::parado : vida::muerto;
}

bool esta_fuera(vida v)
{
    return v != vida::vive;
}

std::string describe_programa(const examen &x, uint32_t id_programa)
{
    if (id_programa == iv_mcbase_NUM_MAX_PROGRAMAS)
        return "a program without an entry (16)";
    const programa_visto *p = x.e.programa(id_programa);
    std::string numero = "program " + std::to_string(id_programa);
    return p != nullptr ? numero + " " + entre_comillas(nombre_sin_ruta(p->nombre)) : numero;
}

std::string describe_servicio(const servicio_visto &s)
{
    std::string nombre = "service " + entre_comillas(s.nombre);
    return es_entrada(s) ? nombre : "channel of " + nombre;
}

std::string segundos_callado(const examen &x, uint32_t id_programa)
{
    char texto[32];
    uint64_t ms = x.c.pulso.de(id_programa, x.c.acaba_ms).callado_ms;
    snprintf(texto, sizeof texto, "%.1f s", static_cast<double>(ms) / 1000.0);
    return texto;
}

bool es_entrada(const servicio_visto &s)
{
    return s.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS;
}

bool se_lee(const servicio_visto &s)
{
    return s.canal && s.canal->quieto && s.canal->tam_hay >= sizeof(iv_mcserv_t);
}

bool dice_que_sirve(const servicio_visto &s)
{
    return se_lee(s) && s.canal->tam_bloque == sizeof(iv_mcserv_t) && !ha_terminado(*s.canal) &&
           s.canal->estado_servidor != iv_mcserv_estadoServidor_PARADO;
}

bool es_de_ventana(const servicio_visto &s)
{
    return s.canal && (s.canal->hwnd_servidor != 0 || s.canal->msg_servidor != 0);
}

bool esta_quieto(const examen &x, const servicio_visto &s)
{
    return x.c.miradas.size() > 1 && x.c.canales.count(s.nombre_ansi) == 0;
}

// ---- The registry

static const std::string REGISTRO = "registry Ivrexa_MCB";

static void tam_del_registro(const regla &r, const examen &x)
{
    if (!x.e.hay_registro || x.e.tam == sizeof(iv_mcbase_t))
        return;
    std::string tam = numero_con_comas(x.e.tam);
    if (x.e.tam > sizeof(iv_mcbase_t)) {
        hallazgo &h = apunta(r, x, REGISTRO,
                             "It states " + tam +
                                 " bytes of data where it has 8,886: another build made "
                                 "it, or somebody wrote over it. Programs use the first 8,886 and go on.");
        h.grave = gravedad::nota;
        return;
    }
    apunta(r, x, REGISTRO,
           "It states " + tam +
               " bytes of data where it has 8,886, so no program can use it: whoever made it died in "
               "that instant, or is no program of this library. Servers with a window go on, commands on those without "
               "give "
               "3, and there is no table of programs or services.");
}

static void cabecera_del_registro(const regla &r, const examen &x)
{
    if (x.e.hay_registro && x.e.tam_hay < x.e.tam)
        apunta(r, x, REGISTRO,
               "Its header states " + numero_con_comas(x.e.tam) + " bytes of data, and only " +
                   numero_con_comas(x.e.tam_hay) + " are there. Programs read no further than these.");
}

static bool se_lee_registro(const examen &x)
{
    return x.e.hay_registro && x.e.tam_hay >= sizeof(iv_mcbase_t);
}

static bool es_version_buena(const examen &x)
{
    return x.e.crudo.tam_bloque == sizeof(iv_mcbase_t) && x.e.crudo.version == iv_mcbase_VERSION;
}

static void version_del_registro(const regla &r, const examen &x)
{
    if (!se_lee_registro(x) || es_version_buena(x) || (x.e.crudo.tam_bloque == 0 && x.e.crudo.version == 0))
        return;
    std::string dice = std::to_string(x.e.crudo.tam_bloque) + ", " + std::to_string(x.e.crudo.version);
    apunta(r, x, REGISTRO,
           "tam_bloque and version are " + dice +
               "; they are 8886, 256 once a monitor has registered and 0, 0 before. "
               "No monitor counts as ready, so nothing is recorded for one.",
           dice);
}

static void ventana_del_monitor(const regla &r, const examen &x)
{
    const iv_mcbase_t &b = x.e.crudo;
    HWND hwnd = reinterpret_cast<HWND>(b.hwnd_monitor);
    if (se_lee_registro(x) && es_version_buena(x) && hwnd != nullptr && b.msg_monitor != 0 && !IsWindow(hwnd))
        apunta(r, x, "monitor",
               "It is entered as ready, and its window " + std::to_string(b.hwnd_monitor) +
                   " is gone: it ended without "
                   "unregistering. Every program goes on recording for it, and nobody looks.",
               std::to_string(b.hwnd_monitor));
}

static void mensaje_del_monitor(const regla &r, const examen &x)
{
    const iv_mcbase_t &b = x.e.crudo;
    uint32_t mensaje = RegisterWindowMessageA(NOMBRE_MENSAJE_MONITOR);
    if (!se_lee_registro(x) || !es_version_buena(x) || b.hwnd_monitor == 0 || b.msg_monitor == mensaje)
        return;
    apunta(r, x, "monitor",
           "Its message is " + std::to_string(b.msg_monitor) + " where the registered one is " +
               std::to_string(mensaje) +
               (b.msg_monitor == 0 ? ": it died while it registered, or somebody wrote over it. It is told nothing."
                                   : ": somebody wrote over it. Programs post that to its window."),
           std::to_string(b.msg_monitor));
}

static void numero_de_actividad(const regla &r, const examen &x)
{
    uint32_t n = x.e.crudo.num_actividad_siguiente;
    if (se_lee_registro(x) && x.e.hay_monitor && (n == 0 || n >= iv_mcbase_NUM_ACTIVIDADES))
        apunta(r, x, REGISTRO,
               "num_actividad_siguiente is " + std::to_string(n) +
                   ", and a monitor is ready: it is 1 to 63 then. The "
                   "next program to record an activity takes it for 1.",
               std::to_string(n));
}

static void actividades(const regla &r, const examen &x)
{
    std::string malas;
    for (uint32_t n = 0; x.e.hay_monitor && se_lee_registro(x) && n < iv_mcbase_NUM_ACTIVIDADES; n++) {
        const iv_mcbase_actividad_t &a = x.e.crudo.actividades[n];
        if (a.ind_datServ > iv_mcbase_NUM_MAX_SERVICIOS || a.tipo_programa > 2 || a.tipo_actividad > 4 ||
            a.indicador > 1)
            malas += (malas.empty() ? "" : ", ") + std::to_string(n + 1);
    }
    if (!malas.empty())
        apunta(r, x, "activity records",
               "Number " + malas +
                   ": with a side, a kind, a flag or a service that there is "
                   "not. Somebody wrote over the registry, or died in the middle of a record.",
               malas);
}

static void cerrojo_del_registro(const regla &r, const examen &x)
{
    if (x.c.registro_parado && !x.c.registro_movido)
        apunta(
            r, x, "lock Ivrexa_Mutex_MCB",
            "It was held whenever it was looked at, and no byte of the registry has changed meanwhile: whoever holds "
            "it stands still. No heartbeat can move, and everybody who registers, runs a command or closes waits. "
            "Whether programs live cannot be told meanwhile: run doctor again once the lock is free.");
}

static void cerrojo_del_monton(const regla &r, const examen &x)
{
    if ((x.c.seguida || x.c.registro_parado) && x.c.monton_retenido && x.c.canales.empty())
        apunta(
            r, x, "lock ivrexa_iv_mem",
            "It was held whenever it was looked at, and no command has moved meanwhile: whoever holds it stands still. "
            "Every program that makes, reads or frees anything waits.");
}

static void cajas(const regla &r, const examen &x)
{
    for (const caja_vista &caja : x.c.cajas) {
        std::string sujeto = "process " + std::to_string(caja.pid);
        for (const programa_visto &p : x.e.programas)
            if (p.pid == caja.pid && p.pid != 0)
                sujeto = describe_programa(x, p.id_programa) + " (process " + std::to_string(caja.pid) + ")";
        apunta(r, x, sujeto,
               "It shows a report \"Assert ivrexa\" and waits for somebody to close it" +
                   (caja.texto.empty() ? std::string(".") : ": " + entre_comillas(caja.texto)));
    }
}

const std::vector<regla> reglas_registro = {
    {"registry-size", gravedad::problema,
     "End every program that uses the library: the block goes with the last of them, and the next makes it anew.",
     tam_del_registro},
    {"registry-header", gravedad::problema,
     "End every program that uses the library: the block goes with the last of them, and the next makes it anew.",
     cabecera_del_registro},
    {"registry-version", gravedad::problema,
     "Register a monitor: it writes both anew. That empties the table of services; servers call "
     "ivrexa_terminado_registro again then.",
     version_del_registro},
    {"monitor-window-gone", gravedad::problema,
     "Start a monitor again: it takes the place. When that one unregisters, nobody records any more.",
     ventana_del_monitor},
    {"monitor-message", gravedad::problema, "Register the monitor again.", mensaje_del_monitor},
    {"activity-number", gravedad::problema,
     "Nothing: the next activity mends it. Look for the program that writes into the registry.", numero_de_actividad},
    {"activity-record", gravedad::nota, "Nothing: it is written over in its turn.", actividades},
    {"registry-lock", gravedad::problema,
     "Look for a box \"Assert ivrexa\" on the desktop and close it; let a program that stands in a debugger or is "
     "suspended go on, or end it: the lock goes to the next who waits.",
     cerrojo_del_registro},
    {"heap-lock", gravedad::problema,
     "Let a program that stands in a debugger or is suspended go on, or end it: the lock goes to the next who waits.",
     cerrojo_del_monton},
    {"report-box", gravedad::problema,
     "Note module, line and expression, and close it: the program goes on. A box that a registration shows because a "
     "table is full holds the registry's lock, and everybody waits for it.",
     cajas},
};

} // namespace ivrexactl
