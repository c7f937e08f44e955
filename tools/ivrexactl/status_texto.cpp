#include "status.h"

#include <cstdio>
#include <vector>

#include <windows.h>

#include "columnas.h"

#include "comun/texto.h"

#include "iv_mcserv.h"

namespace ivrexactl {

using herramientas::canal_visto;
using herramientas::escritorio_visto;
using herramientas::latidos;
using herramientas::numero_con_comas;
using herramientas::programa_visto;
using herramientas::servicio_visto;
using herramientas::sin_controles;

// ---- What both forms say

uint32_t num_en_la_tabla(const escritorio_visto &e)
{
    uint32_t num = 0;
    for (const servicio_visto &s : e.servicios)
        num += s.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS;
    return num;
}

uint32_t pid_de_ventana(uint64_t hwnd)
{
    DWORD pid = 0;
    if (hwnd != 0)
        GetWindowThreadProcessId(reinterpret_cast<HWND>(hwnd), &pid);
    return pid;
}

std::string nombre_programa(const programa_visto &p)
{
    return herramientas::nombre_sin_ruta(p.nombre);
}

// A monitor has no entry among the programs.
std::string nombre_monitor(const escritorio_visto &e)
{
    uint32_t pid = pid_de_ventana(e.crudo.hwnd_monitor);
    return pid != 0 ? herramientas::programa_del_proceso(pid) : "";
}

// Programs take a block that is larger than they need, and none that is smaller.
static std::string fallo_bloque(const char *que, uint32_t tam, size_t tam_hay, size_t tam_debido)
{
    if (tam == tam_debido && tam_hay == tam)
        return "";
    return std::string(que) + " has " + numero_con_comas(tam_debido) + " bytes; this one says " +
           numero_con_comas(tam) + ", and " + numero_con_comas(tam_hay) + " are there" +
           (tam_hay < tam_debido ? ": programs do not use it" : "");
}

std::string fallo_registro(const escritorio_visto &e)
{
    return e.hay_registro ? fallo_bloque("a registry", e.tam, e.tam_hay, sizeof(iv_mcbase_t)) : "";
}

std::string fallo_canal(const canal_visto &c)
{
    return fallo_bloque("a channel", c.tam, c.tam_hay, sizeof(iv_mcserv_t));
}

// ---- Programs

static std::string ventana(uint64_t hwnd)
{
    char texto[32];
    snprintf(texto, sizeof texto, "0x%llx", static_cast<unsigned long long>(hwnd));
    return hwnd == 0 ? "none" : texto;
}

// A window with its owner, or that it has none any more.
static std::string ventana_y_pid(uint64_t hwnd)
{
    uint32_t pid = pid_de_ventana(hwnd);
    return ventana(hwnd) + (hwnd == 0 ? "" : pid == 0 ? " (gone)" : " (pid " + std::to_string(pid) + ")");
}

static std::string clases(const programa_visto &p)
{
    std::string texto;
    if (p.es_servidor)
        texto += ",server";
    if (p.es_cliente)
        texto += ",client";
    if (p.es_monitor)
        texto += ",monitor";
    return texto.empty() ? "-" : texto.substr(1);
}

static std::string segundos(uint64_t ms)
{
    char texto[32];
    snprintf(texto, sizeof texto, "%llu.%llu s", static_cast<unsigned long long>(ms / 1000),
             static_cast<unsigned long long>(ms % 1000 / 100));
    return texto;
}

static std::string latido(const programa_visto &p, const vista_status &v)
{
    latidos::estado l = v.latidos.de(p.id_programa, v.ahora_ms);
    std::string cuenta = " (count " + std::to_string(p.contador_vivo) + ")";
    if (l.p == latidos::pulso::se_mueve)
        return "moving" + cuenta;
    if (l.p == latidos::pulso::callado)
        return "silent for " + segundos(l.callado_ms) + cuenta;
    return "not seen to move yet" + cuenta;
}

static std::string programas(const vista_status &v)
{
    std::string texto = "Programs: " + std::to_string(v.e.programas.size()) + " of " +
                        std::to_string(iv_mcbase_NUM_MAX_PROGRAMAS) + "\n";
    if (v.e.programas.empty())
        return texto;
    std::vector<std::vector<std::string>> filas = {{"entry", "program", "kinds", "window", "heartbeat"}};
    for (const programa_visto &p : v.e.programas)
        filas.push_back({std::to_string(p.id_programa), sin_controles(nombre_programa(p)), clases(p),
                         ventana_y_pid(p.hwnd), latido(p, v)});
    return texto + en_columnas(filas, "  ");
}

// ---- Services

static std::string lado(const programa_visto &p)
{
    return "entry " + std::to_string(p.id_programa) + ", " + sin_controles(nombre_programa(p));
}

// Nobody that is known: the field leads nowhere, or to a program that it was not written for. 0 is also what there is
// before anybody writes.
static std::string lado_vacio(const escritorio_visto &e, uint16_t id_programa)
{
    std::string entrada = "entry " + std::to_string(id_programa);
    if (id_programa > iv_mcbase_NUM_MAX_PROGRAMAS)
        return entrada + ", which there is not";
    if (id_programa == iv_mcbase_NUM_MAX_PROGRAMAS || e.programa(id_programa) != nullptr)
        return "none";
    return (id_programa == 0 ? "none, or gone (" : "gone (") + entrada + " is free)";
}

static std::string lado(const escritorio_visto &e, uint16_t id_programa, const programa_visto *p)
{
    return p != nullptr ? lado(*p) : lado_vacio(e, id_programa);
}

static std::string espera(const char *quien, uint32_t estado, uint32_t vueltas, const std::string &nombre)
{
    if (estado == 0)
        return std::string(quien) + " has not waited";
    return std::string(quien) + " " + nombre + ", " + numero_con_comas(vueltas) + (vueltas == 1 ? " round" : " rounds");
}

static std::string buzon(const canal_visto &c)
{
    std::string texto = herramientas::nombre_estado_notificacion(c.estado_notificacion);
    if (c.estado_notificacion == iv_mcserv_estadoNotificacion_LIBRE)
        return texto;
    texto += ": client " + std::to_string(c.notificacion_dato1) + ", datum " + std::to_string(c.notificacion_dato2);
    return texto + (c.notificacion_dato3 == 0 ? ", no block" : ", block " + std::to_string(c.notificacion_dato3));
}

static std::string terminado(uint16_t servidor_terminado)
{
    return servidor_terminado == 0   ? ""
           : servidor_terminado == 1 ? ", has ended"
                                     : ", ended: ?" + std::to_string(servidor_terminado);
}

using filas_t = std::vector<std::vector<std::string>>;

static void anyade_canal(const canal_visto &c, filas_t *filas)
{
    if (!fallo_canal(c).empty())
        filas->push_back({"problem", fallo_canal(c)});
    if (!c.quieto)
        filas->push_back({"problem", "the channel was being written all the while; what is shown may be torn"});
    filas->push_back({"version", std::to_string(c.version_servicio)});
    filas->push_back({"states", "server " + herramientas::nombre_estado_servidor(c.estado_servidor) +
                                    terminado(c.servidor_terminado) + "; channel " +
                                    herramientas::nombre_ocupacion(c.ocupacion) + "; command state " +
                                    herramientas::nombre_estado_comando(c.info_estadoComando)});
    filas->push_back(
        {"windows", "server " + ventana_y_pid(c.hwnd_servidor) + ", client " + ventana_y_pid(c.hwnd_cliente)});
}

static std::string comando(const servicio_visto &s)
{
    std::string texto = s.id_comando_en_curso == 0 ? "none" : std::to_string(s.id_comando_en_curso);
    uint32_t en_canal = s.canal ? s.canal->id_comando : 0;
    if (en_canal != s.id_comando_en_curso)
        texto += en_canal == 0 ? " (none in the channel)" : " (" + std::to_string(en_canal) + " in the channel)";
    if (s.canal && s.canal->id_bloque_MCCom_entrada != 0)
        texto += ", input block " + std::to_string(s.canal->id_bloque_MCCom_entrada);
    if (s.canal && s.canal->id_resultado != 0)
        texto += ", last output block " + std::to_string(s.canal->id_resultado);
    return texto;
}

static std::string servicio(const escritorio_visto &e, const servicio_visto &s)
{
    filas_t filas;
    bool en_la_tabla = s.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS;
    const programa_visto *servidor = servidor_de(e, s);
    if (en_la_tabla || servidor != nullptr)
        filas.push_back({"server", lado(e, s.id_programa_servidor, servidor)});
    if (en_la_tabla)
        filas.push_back({"client", lado(e, s.id_programa_cliente, cliente_de(e, s))});
    if (s.canal)
        anyade_canal(*s.canal, &filas);
    else
        filas.push_back({"channel", "none"});
    filas.push_back({"command", comando(s)});
    if (en_la_tabla)
        filas.push_back({"waits", espera("server", s.bucle_servidor_estado, s.bucle_servidor_vueltas,
                                         herramientas::nombre_espera_servidor(s.bucle_servidor_estado)) +
                                      "; " +
                                      espera("client", s.bucle_cliente_estado, s.bucle_cliente_vueltas,
                                             herramientas::nombre_espera_cliente(s.bucle_cliente_estado))});
    if (s.canal)
        filas.push_back({"mailbox", buzon(*s.canal)});
    std::string numero = en_la_tabla ? std::to_string(s.ind_datServ) : "-";
    return "  " + numero + "  " + sin_controles(s.nombre) + "\n" + en_columnas(filas, "       ");
}

static std::string servicios(const escritorio_visto &e)
{
    uint32_t num = num_en_la_tabla(e);
    std::string texto;
    if (e.hay_registro)
        texto = "Services: " + std::to_string(num) + " of " + std::to_string(iv_mcbase_NUM_MAX_SERVICIOS) + "\n";
    for (uint32_t i = 0; i < num; i++)
        texto += servicio(e, e.servicios[i]);
    if (num == e.servicios.size())
        return texto;
    texto += "Channels that the table does not name (a monitor emptied it, or the server has closed): " +
             std::to_string(e.servicios.size() - num) + "\n";
    for (size_t i = num; i < e.servicios.size(); i++)
        texto += servicio(e, e.servicios[i]);
    return texto;
}

// ---- The rest

static std::string registro(const escritorio_visto &e)
{
    if (!e.hay_registro)
        return "no program is registered on this desktop\n";
    std::string texto = "Registry: " + numero_con_comas(e.tam) +
                        " bytes, registrations: " + std::to_string(e.crudo.num_registros) + "\n";
    if (!fallo_registro(e).empty())
        texto += "  problem  " + fallo_registro(e) + "\n";
    if (!e.quieto)
        texto += "  problem  it was being written all the while; what is shown may be torn\n";
    return texto;
}

static std::string monitor(const escritorio_visto &e)
{
    uint64_t hwnd = e.crudo.hwnd_monitor;
    if (hwnd == 0)
        return "Monitor: none\n";
    std::string nombre = sin_controles(nombre_monitor(e));
    return "Monitor: window " + ventana_y_pid(hwnd) + (nombre.empty() ? "" : ", " + nombre) +
           (e.hay_monitor ? "\n" : ", not ready\n");
}

std::string status_en_texto(const vista_status &v)
{
    std::string texto = registro(v.e);
    if (v.e.hay_registro)
        texto += programas(v);
    texto += servicios(v.e);
    return v.e.hay_registro ? texto + monitor(v.e) : texto;
}

} // namespace ivrexactl
