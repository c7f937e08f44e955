#include "status.h"

#include "comun/texto.h"
#include "comun/vigia.h"

namespace ivrexactl {

using herramientas::canal_visto;
using herramientas::escritorio_visto;
using herramientas::json;
using herramientas::latidos;
using herramientas::programa_visto;
using herramientas::servicio_visto;

static json o_null(uint64_t numero)
{
    return numero != 0 ? json(numero) : json(nullptr);
}

static json texto_o_null(const std::string &texto)
{
    return !texto.empty() ? json(texto) : json(nullptr);
}

static json registro_json(const escritorio_visto &e)
{
    if (!e.hay_registro)
        return nullptr;
    return {{"size", e.tam},
            {"readable", e.tam_hay},
            {"problem", texto_o_null(fallo_registro(e))},
            {"torn", !e.quieto},
            {"registrations", e.crudo.num_registros}};
}

static json latido_json(const programa_visto &p, const vista_status &v)
{
    latidos::estado l = v.latidos.de(p.id_programa, v.ahora_ms);
    json j = {{"count", p.contador_vivo}, {"state", "unknown"}, {"silent_s", nullptr}};
    if (l.p == latidos::pulso::se_mueve)
        j["state"] = "moving";
    if (l.p == latidos::pulso::callado) {
        j["state"] = "silent";
        j["silent_s"] = static_cast<double>(l.callado_ms) / 1000;
    }
    return j;
}

static json programa_json(const programa_visto &p, const vista_status &v)
{
    json clases = json::array();
    if (p.es_servidor)
        clases.push_back("server");
    if (p.es_cliente)
        clases.push_back("client");
    if (p.es_monitor)
        clases.push_back("monitor");
    return {{"entry", p.id_programa}, {"program", nombre_programa(p)}, {"path", p.nombre},
            {"kinds", clases},        {"window", o_null(p.hwnd)},      {"window_exists", p.es_ventana},
            {"pid", o_null(p.pid)},   {"heartbeat", latido_json(p, v)}};
}

// The program's entry, or what stands in the table: that may be one that there is not, or a number that nobody wrote.
static json lado_json(const servicio_visto &s, uint16_t id_programa, const programa_visto *p)
{
    if (p != nullptr)
        return {{"entry", p->id_programa}, {"program", nombre_programa(*p)}};
    if (s.ind_datServ >= iv_mcbase_NUM_MAX_SERVICIOS)
        return nullptr;
    return {{"entry", id_programa}, {"program", nullptr}};
}

static json espera_json(uint32_t estado, uint32_t vueltas, const std::string &nombre)
{
    if (estado == 0)
        return nullptr;
    return {{"state", estado}, {"for", nombre}, {"rounds", vueltas}};
}

static json estado_json(uint32_t estado, const std::string &nombre)
{
    return {{"value", estado}, {"name", nombre}};
}

static json canal_json(const canal_visto &c)
{
    return {
        {"size", c.tam},
        {"readable", c.tam_hay},
        {"problem", texto_o_null(fallo_canal(c))},
        {"torn", !c.quieto},
        {"version", c.version_servicio},
        {"attached", tiene_servidor(c)},
        {"command_state", estado_json(c.info_estadoComando, herramientas::nombre_estado_comando(c.info_estadoComando))},
        {"server_state", estado_json(c.estado_servidor, herramientas::nombre_estado_servidor(c.estado_servidor))},
        {"occupancy", estado_json(c.ocupacion, herramientas::nombre_ocupacion(c.ocupacion))},
        {"server_ended", c.servidor_terminado},
        {"command", o_null(c.id_comando)},
        {"input_block", o_null(c.id_bloque_MCCom_entrada)},
        {"output_block", o_null(c.id_resultado)},
        {"next_block", c.id_bloque_MCCom_siguiente},
        {"server_window", o_null(c.hwnd_servidor)},
        {"server_pid", o_null(pid_de_ventana(c.hwnd_servidor))},
        {"client_window", o_null(c.hwnd_cliente)},
        {"mailbox",
         {{"state",
           estado_json(c.estado_notificacion, herramientas::nombre_estado_notificacion(c.estado_notificacion))},
          {"client", c.notificacion_dato1},
          {"datum", c.notificacion_dato2},
          {"block", o_null(c.notificacion_dato3)}}}};
}

static json servicio_json(const escritorio_visto &e, const servicio_visto &s)
{
    bool en_la_tabla = s.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS;
    return {{"index", en_la_tabla ? json(s.ind_datServ) : json(nullptr)},
            {"name", s.nombre},
            {"server", lado_json(s, s.id_programa_servidor, servidor_de(e, s))},
            {"client", lado_json(s, s.id_programa_cliente, cliente_de(e, s))},
            {"command", o_null(s.id_comando_en_curso)},
            {"server_waits", espera_json(s.bucle_servidor_estado, s.bucle_servidor_vueltas,
                                         herramientas::nombre_espera_servidor(s.bucle_servidor_estado))},
            {"client_waits", espera_json(s.bucle_cliente_estado, s.bucle_cliente_vueltas,
                                         herramientas::nombre_espera_cliente(s.bucle_cliente_estado))},
            {"channel", s.canal ? canal_json(*s.canal) : json(nullptr)}};
}

static json monitor_json(const escritorio_visto &e)
{
    if (e.crudo.hwnd_monitor == 0)
        return nullptr;
    return {{"window", e.crudo.hwnd_monitor},
            {"ready", e.hay_monitor},
            {"pid", o_null(pid_de_ventana(e.crudo.hwnd_monitor))},
            {"program", texto_o_null(nombre_monitor(e))}};
}

json status_en_json(const vista_status &v)
{
    json programas = json::array(), servicios = json::array();
    for (const programa_visto &p : v.e.programas)
        programas.push_back(programa_json(p, v));
    for (const servicio_visto &s : v.e.servicios)
        servicios.push_back(servicio_json(v.e, s));
    uint32_t en_la_tabla = num_en_la_tabla(v.e);
    json tablas = {{"programs", {{"used", v.e.programas.size()}, {"size", int(iv_mcbase_NUM_MAX_PROGRAMAS)}}},
                   {"services", {{"used", en_la_tabla}, {"size", int(iv_mcbase_NUM_MAX_SERVICIOS)}}},
                   {"unnamed_channels", v.e.servicios.size() - en_la_tabla}};
    return {{"time", herramientas::hora_iso(v.hora_100ns)},
            {"registry", registro_json(v.e)},
            {"tables", tablas},
            {"programs", programas},
            {"services", servicios},
            {"monitor", monitor_json(v.e)}};
}

} // namespace ivrexactl
