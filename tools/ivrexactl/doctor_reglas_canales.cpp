// doctor_reglas_canales.cpp - the checks of the channels and of the blocks of command data.
#include "doctor_reglas.h"

#include <algorithm>

#include <windows.h>

#include "comun/nombres.h"
#include "comun/texto.h"

#include "iv_mcserv.h"

namespace ivrexactl {

using namespace herramientas;

static bool es_ventana(uint64_t hwnd)
{
    return hwnd != 0 && IsWindow(reinterpret_cast<HWND>(hwnd));
}

static std::string proceso_de(uint64_t hwnd)
{
    DWORD pid = 0;
    GetWindowThreadProcessId(reinterpret_cast<HWND>(hwnd), &pid);
    std::string nombre = programa_del_proceso(pid);
    return "process " + std::to_string(pid) + (nombre.empty() ? "" : " (" + nombre + ")");
}

// ---- The block

static void tam_del_canal(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        if (!s.canal || s.canal->tam == sizeof(iv_mcserv_t))
            continue;
        std::string tam = numero_con_comas(s.canal->tam);
        if (s.canal->tam > sizeof(iv_mcserv_t)) {
            apunta(r, x, describe_servicio(s),
                   "Its block states " + tam +
                       " bytes of data where a channel has 2,378: another "
                       "build made it, or somebody wrote over it. Programs use the first 2,378 and go on.")
                .grave = gravedad::nota;
            continue;
        }
        apunta(r, x, describe_servicio(s),
               "Its block states " + tam +
                   " bytes of data where a channel has 2,378: whoever made "
                   "it died in that instant, or is no program of this library. Commands on the service give 0.",
               tam);
    }
}

static void cabecera_del_canal(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios)
        if (s.canal && s.canal->tam_hay < s.canal->tam)
            apunta(r, x, describe_servicio(s),
                   "Its header states " + numero_con_comas(s.canal->tam) +
                       " bytes of data, and "
                       "only " +
                       numero_con_comas(s.canal->tam_hay) + " are there. Programs read no further than these.");
}

static void version_del_canal(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios)
        if (se_lee(s) && s.canal->tam_bloque != sizeof(iv_mcserv_t) && s.canal->tam_bloque != 0)
            apunta(r, x, describe_servicio(s),
                   "tam_bloque is " + std::to_string(s.canal->tam_bloque) +
                       "; it is 2378 once a "
                       "server has made the service, and 0 before. Somebody wrote over the channel.",
                   std::to_string(s.canal->tam_bloque));
}

static void estados(const regla &r, const examen &x)
{
    struct campo {
        const char *nombre;
        uint32_t valor, tope;
    };
    for (const servicio_visto &s : x.e.servicios) {
        std::string malos;
        if (!se_lee(s))
            continue;
        const canal_visto &c = *s.canal;
        for (const campo &k :
             {campo{"info_estadoComando", c.info_estadoComando, iv_mcserv_estadoComando_AVISADO_SERVIDOR},
              campo{"estado_servidor", c.estado_servidor, iv_mcserv_estadoServidor_TERMINADO},
              campo{"ocupacion", c.ocupacion, iv_mcserv_ocupacion_EN_CURSO},
              campo{"estado_notificacion", c.estado_notificacion, iv_mcserv_estadoNotificacion_PROCESADA},
              campo{"servidor_terminado", c.servidor_terminado, 1}})
            if (k.valor > k.tope)
                malos += (malos.empty() ? "" : ", ") + std::string(k.nombre) + " " + std::to_string(k.valor) +
                         " (0 to " + std::to_string(k.tope) + ")";
        if (!malos.empty())
            apunta(r, x, describe_servicio(s),
                   "It is in a state that there is not: " + malos +
                       ". Somebody wrote over the "
                       "channel; calls wait until it is right again or the server is dead.",
                   malos);
    }
}

static void textos(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        uint32_t sin_fin = 0;
        for (int i = 0; se_lee(s) && i < 3; i++) {
            const size_t num = i == 0 ? 64 : 256;
            sin_fin += (a_ancho(s.canal->textos_cliente[i]).size() >= num) +
                       (a_ancho(s.canal->textos_servidor[i]).size() >= num);
        }
        if (sin_fin > 0)
            apunta(r, x, describe_servicio(s),
                   std::to_string(sin_fin) + " of its six texts do not end within their fields: "
                                             "somebody wrote over the channel. The library cuts them.",
                   std::to_string(sin_fin));
    }
}

static void contador(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios)
        if (dice_que_sirve(s) && s.canal->id_bloque_MCCom_siguiente < iv_mcserv_PRIMER_ID_BLOQUE)
            apunta(r, x, describe_servicio(s),
                   "The number of its next data block is " + std::to_string(s.canal->id_bloque_MCCom_siguiente) +
                       "; they begin at 100. Somebody wrote over the "
                       "channel: blocks may meet older ones, and the one that gets 0 cannot be sent.",
                   std::to_string(s.canal->id_bloque_MCCom_siguiente));
}

// ---- The server

static void ventana_del_servidor(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        if (!dice_que_sirve(s) || s.canal->hwnd_servidor == 0 || es_ventana(s.canal->hwnd_servidor))
            continue;
        bool dicho = es_entrada(s) && vida_de(x, s.id_programa_servidor) == vida::muerto;
        if (!dicho)
            apunta(r, x, describe_servicio(s),
                   "It says that it is served, and its server's window " + std::to_string(s.canal->hwnd_servidor) +
                       " is gone: the server has died. A command gives 0 at once.",
                   std::to_string(s.canal->hwnd_servidor));
    }
}

static void mensaje_del_servidor(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        if (!dice_que_sirve(s) || !es_de_ventana(s))
            continue;
        uint32_t mensaje = RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + s.nombre_ansi).c_str());
        uint32_t dice = s.canal->msg_servidor;
        if (dice == mensaje && s.canal->hwnd_servidor != 0)
            continue;
        std::string texto = s.canal->hwnd_servidor == 0
                                ? "It names a message and no window: commands give 0."
                                : "Its message is " + std::to_string(dice) + " where the registered one is " +
                                      std::to_string(mensaje) + ": commands do not reach its server.";
        apunta(r, x, describe_servicio(s),
               texto + " Somebody wrote over the channel, or the name has over 239 characters.", std::to_string(dice));
    }
}

// The table's remains of a service whose name a monitor took out: of the name, only the first byte.
static uint32_t quien_lo_ofrecia(const examen &x, const servicio_visto &s)
{
    for (const datServ &d : x.e.crudo.servicios)
        if (d.nombre[0] == '\0' && s.nombre_ansi.size() > 1 && s.nombre_ansi.size() < sizeof d.nombre &&
            s.nombre_ansi.compare(1, std::string::npos, d.nombre + 1, s.nombre_ansi.size() - 1) == 0 &&
            d.nombre[s.nombre_ansi.size()] == '\0')
            return d.id_programa_servidor;
    return iv_mcbase_NUM_MAX_PROGRAMAS;
}

static uint32_t programa_de_ventana(const examen &x, uint64_t hwnd)
{
    for (const programa_visto &p : x.e.programas)
        if (p.hwnd == hwnd)
            return p.id_programa;
    return iv_mcbase_NUM_MAX_PROGRAMAS;
}

static void sin_entrada(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        uint64_t hwnd = s.canal ? s.canal->hwnd_servidor : 0;
        if (es_entrada(s) || !dice_que_sirve(s) || (hwnd != 0 && !es_ventana(hwnd)))
            continue;
        uint32_t id = hwnd != 0 ? programa_de_ventana(x, hwnd) : quien_lo_ofrecia(x, s);
        std::string quien = id < iv_mcbase_NUM_MAX_PROGRAMAS ? describe_programa(x, id)
                            : hwnd != 0                      ? "a program that has no entry"
                                                             : "a program that cannot be told from here";
        if (hwnd != 0)
            quien += ", " + proceso_de(hwnd);
        bool muerto = id < iv_mcbase_NUM_MAX_PROGRAMAS && esta_fuera(vida_de(x, id));
        hallazgo &h =
            apunta(r, x, describe_servicio(s),
                   "No entry of the table names it, and it says that it is served, by " + quien +
                       (muerto ? ", which is not there any more. A command gives 3 after about 3 s."
                               : ": a monitor has registered since and emptied the table, or the table was full. "
                                 "Commands work; the monitor sees nothing of them."));
        if (muerto)
            h.grave = gravedad::problema;
    }
}

// ---- The command

// Why the claim is nobody's; empty: it may well be somebody's.
static std::string por_que_no_hay_cliente(const examen &x, const servicio_visto &s)
{
    const canal_visto &c = *s.canal;
    bool vive = c.ocupacion == iv_mcserv_ocupacion_EN_CURSO && es_ventana(c.hwnd_cliente);
    if (vive)
        return "";
    if (c.ocupacion == iv_mcserv_ocupacion_EN_CURSO && c.hwnd_cliente != 0)
        return "its window " + std::to_string(c.hwnd_cliente) + " is gone";
    if (es_entrada(s) && esta_fuera(vida_de(x, s.id_programa_cliente)))
        return "the last that registered, " + describe_programa(x, s.id_programa_cliente) +
               ", is dead, stopped or gone";
    bool recoge = c.info_estadoComando == iv_mcserv_estadoComando_ESCRITO ||
                  c.info_estadoComando == iv_mcserv_estadoComando_EN_EJECUCION;
    if (x.c.seguida && dice_que_sirve(s) && !es_de_ventana(s) && !recoge)
        return "the command is " + nombre_estado_comando(c.info_estadoComando) +
               ", and nobody has gone on with it for 2.6 s";
    return "";
}

static std::string como_se_libera(const servicio_visto &s)
{
    std::string fin = " Or end every program that uses the service.";
    if (ha_terminado(*s.canal))
        return "Let any client run a command: that call frees the channel. Then offer the service again.";
    if (es_de_ventana(s))
        return "Ask the server to end while a call waits (ivrexactl end): that call frees the channel; or close its "
               "session, "
               "let any client run one command, and offer the service again." +
               fin;
    return "It may end by itself after about 5 s, if the dead client was the last to register and nobody calls "
           "meanwhile; "
           "the first command, which gives 3, frees it then. Otherwise close the server's session while a call waits, "
           "or let "
           "any client run a command while it is closed; then offer the service again." +
           fin;
}

static bool esta_reclamado(const examen &x, const servicio_visto &s)
{
    return se_lee(s) && s.canal->ocupacion != 0 && s.canal->ocupacion <= iv_mcserv_ocupacion_EN_CURSO &&
           esta_quieto(x, s);
}

static std::string orden_de(const servicio_visto &s)
{
    return s.canal->id_comando != 0 ? "command " + std::to_string(s.canal->id_comando) : std::string("a command");
}

static void reclamado(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        std::string por_que = esta_reclamado(x, s) ? por_que_no_hay_cliente(x, s) : "";
        if (por_que.empty())
            continue;
        bool se_libera = ha_terminado(*s.canal);
        hallazgo &h = apunta(r, x, describe_servicio(s),
                             "It is claimed for " + orden_de(s) + " (" + nombre_ocupacion(s.canal->ocupacion) +
                                 ") by a client that is not there: " + por_que + ". " +
                                 (se_libera ? "The service has ended: the next command gets no answer, and frees it."
                                            : "Further calls on this service wait; other services go on."));
        h.consejo = como_se_libera(s);
    }
}

static void ocupado(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios)
        if (x.c.seguida && esta_reclamado(x, s) && por_que_no_hay_cliente(x, s).empty())
            apunta(r, x, describe_servicio(s),
                   "Nothing has moved in it while " + orden_de(s) + " is " + nombre_ocupacion(s.canal->ocupacion) +
                       ": it takes long, its server stands still, or its client died and "
                       "another program has registered since.",
                   std::to_string(s.canal->id_comando));
}

static void entrada_que_falta(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        uint32_t id = s.canal ? s.canal->id_bloque_MCCom_entrada : 0;
        if (se_lee(s) && id != 0 && x.faltan.count(nombre_de_datos(s.nombre_ansi, id)) != 0)
            apunta(r, x, describe_servicio(s),
                   "Its command's input is data block " + std::to_string(id) +
                       ", and there is "
                       "none: the client died and its data with it, or destroyed them before the command. The server "
                       "shows "
                       "\"(shared_MCCom) != 0\", and the function gets no input.",
                   std::to_string(id));
    }
}

// ---- The mailbox

static std::string que_pasa_en_el_buzon(const examen &x, const servicio_visto &s)
{
    uint32_t estado = s.canal->estado_notificacion;
    bool sin_cliente = es_entrada(s) && esta_fuera(vida_de(x, s.id_programa_cliente));
    if (estado == iv_mcserv_estadoNotificacion_TOMADA && sin_cliente)
        return "a client took it and is not there any more. The server waits for its receipt";
    if (estado == iv_mcserv_estadoNotificacion_ESCRITA && (x.c.seguida || sin_cliente))
        return "no client takes it: the client has died, or is not registered for notifications. The server waits, if "
               "it "
               "lives";
    if (estado == iv_mcserv_estadoNotificacion_PROCESADA && x.c.seguida)
        return "a client has handled it, and no server clears it: the server that wrote it has died or stands still";
    return "";
}

static void buzon(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        std::string que = se_lee(s) && esta_quieto(x, s) ? que_pasa_en_el_buzon(x, s) : "";
        if (!que.empty())
            apunta(r, x, describe_servicio(s),
                   "A notification for client " + std::to_string(s.canal->notificacion_dato1) +
                       " stands in its mailbox (" + nombre_estado_notificacion(s.canal->estado_notificacion) +
                       "), and " + que + "; the next notification on this service waits behind it. Commands go on.");
    }
}

static void bloque_del_buzon(const regla &r, const examen &x)
{
    for (const servicio_visto &s : x.e.servicios) {
        uint32_t id = s.canal ? s.canal->notificacion_dato3 : 0;
        if (se_lee(s) && id != 0 && s.canal->estado_notificacion != 0 &&
            x.faltan.count(nombre_de_datos(s.nombre_ansi, id)) != 0)
            apunta(r, x, describe_servicio(s),
                   "The notification in its mailbox has data block " + std::to_string(id) +
                       ", and there is none: the server died, or destroyed the data before the client had read them.",
                   std::to_string(id));
    }
}

const std::vector<regla> reglas_canales = {
    {"channel-size", gravedad::problema,
     "End every program that uses the service: the block goes with the last of them.", tam_del_canal},
    {"channel-header", gravedad::problema,
     "End every program that uses the service: the block goes with the last of them.", cabecera_del_canal},
    {"channel-version", gravedad::problema, "Let the server close its session and offer the service again.",
     version_del_canal},
    {"channel-state", gravedad::problema,
     "End every program that uses the service: the block goes with the last of them. Closing the server's session and "
     "offering again mends command and server, not claim and mailbox.",
     estados},
    {"channel-text", gravedad::nota, "Nothing: the next command writes them anew.", textos},
    {"channel-counter", gravedad::problema, "Let the server close its session and offer the service again.", contador},
    {"channel-server-window", gravedad::problema, "Start the server again, and let it offer the service.",
     ventana_del_servidor},
    {"channel-message", gravedad::problema, "Let the server call ivrexa_terminado_registro again.",
     mensaje_del_servidor},
    {"channel-unlisted", gravedad::nota, "Let that program call ivrexa_terminado_registro again.", sin_entrada},
    {"service-claimed", gravedad::problema, "", reclamado},
    {"service-busy", gravedad::nota,
     "Wait for it. If it never ends, look whether its client lives; if not: ivrexactl end, or end the server's session "
     "while a call waits.",
     ocupado},
    {"channel-input", gravedad::problema,
     "Let the client keep its data until the command has returned. Nothing else is needed: the next command has its "
     "own.",
     entrada_que_falta},
    {"mailbox-held", gravedad::problema,
     "Let any client of the service call ivrexa_procesada_notificacion, or end the service: that ends the server's "
     "wait. "
     "If it was the server that died, nobody is notified on this service until every program that uses it has ended.",
     buzon},
    {"mailbox-data", gravedad::problema, "Let the server keep the data until ivrexa_notifica_a_cliente has returned.",
     bloque_del_buzon},
};

// ---- Command data

static const uint32_t MUY_GRANDE = 16u << 20; // bytes: storing this takes longer than a look

static const servicio_visto *servicio_de(const examen &x, const bloque_de_datos &d)
{
    for (const servicio_visto &s : x.e.servicios)
        if (s.nombre_ansi == d.servicio_ansi && s.canal)
            return &s;
    return nullptr;
}

static std::string describe_bloque(const bloque_de_datos &d)
{
    return "data block " + std::to_string(d.id) + " of service " + entre_comillas(de_ansi(d.servicio_ansi));
}

static void tam_de_datos(const regla &r, const examen &x)
{
    for (const bloque_de_datos &d : x.c.datos) {
        if (d.tam == 0)
            apunta(r, x, describe_bloque(d), "It states no bytes: whoever made it died in that instant.");
        else if (d.tam_hay < d.tam)
            apunta(r, x, describe_bloque(d),
                   "Its header states " + numero_con_comas(d.tam) + " bytes, and only " + numero_con_comas(d.tam_hay) +
                       " are there. Programs read no further than these.");
    }
}

static void contenido_de_datos(const regla &r, const examen &x)
{
    for (const bloque_de_datos &d : x.c.datos) {
        const servicio_visto *s = servicio_de(x, d);
        bool se_graba = s != nullptr && d.tam > MUY_GRANDE && d.id + 1 == s->canal->id_bloque_MCCom_siguiente;
        if (!d.danyo.empty() && !se_graba)
            apunta(r, x, describe_bloque(d),
                   "Its content cannot be read: " + d.danyo +
                       ". Whoever stored it died meanwhile, or "
                       "somebody wrote over it. Who reads it gets the values before, then none.");
    }
}

static void datos_adelantados(const regla &r, const examen &x)
{
    for (const bloque_de_datos &d : x.c.datos) {
        const servicio_visto *s = servicio_de(x, d);
        if (s == nullptr || !se_lee(*s) || s->canal->id_bloque_MCCom_siguiente < iv_mcserv_PRIMER_ID_BLOQUE ||
            d.id < s->canal->id_bloque_MCCom_siguiente)
            continue;
        apunta(r, x, describe_bloque(d),
               "The channel has not given out this number: the block is of an earlier life of the "
               "service, and some process still has it open. A program that comes to the number stores into this "
               "block: if it "
               "is too small, the command goes without data; if it is larger, old bytes follow the new ones.");
    }
}

static void datos_huerfanos(const regla &r, const examen &x)
{
    std::map<std::string, std::vector<uint32_t>> por_servicio;
    for (const bloque_de_datos &d : x.c.datos)
        if (servicio_de(x, d) == nullptr)
            por_servicio[d.servicio_ansi].push_back(d.id);
    for (auto &[servicio, ids] : por_servicio) {
        std::sort(ids.begin(), ids.end());
        bool uno = ids.size() == 1;
        std::string cuales = uno ? "block " + std::to_string(ids.front())
                                 : numero_con_comas(ids.size()) + " blocks, from " + std::to_string(ids.front()) +
                                       " to " + std::to_string(ids.back());
        apunta(r, x, "command data of service " + entre_comillas(de_ansi(servicio)),
               "There is no channel of that service, and " + cuales + " of its data " + (uno ? "is" : "are") +
                   " kept open by some process. No command can name " + (uno ? "it." : "them."));
    }
}

static void muchos_datos(const regla &r, const examen &x)
{
    if (x.c.num_datos > consulta_MAX_DATOS)
        apunta(r, x, "command data",
               numero_con_comas(x.c.num_datos) + " blocks are kept in being; " + numero_con_comas(consulta_MAX_DATOS) +
                   " of them were looked at. A command with input and output leaves two "
                   "with the programs that read them, until these end.");
}

const std::vector<regla> reglas_datos = {
    {"data-size", gravedad::problema,
     "Nothing can be done with it: it goes with the programs that have it open. Store the data again.", tam_de_datos},
    {"data-content", gravedad::problema,
     "Store the data again. Look for the program that wrote it, if it goes on happening.", contenido_de_datos},
    {"data-ahead", gravedad::problema,
     "End the programs that used the service before; the block goes with the last that has it open.",
     datos_adelantados},
    {"data-orphaned", gravedad::nota, "Nothing, or end the programs that used the service: the blocks go with them.",
     datos_huerfanos},
    {"data-many", gravedad::nota, "Restart programs that have run commands for weeks.", muchos_datos},
};

} // namespace ivrexactl
