#include "mirada.h"

#include <algorithm>
#include <cstring>

#include <windows.h>

#include "leido.h"
#include "nombres.h"
#include "texto.h"

#include "iv_mcserv.h"
#include "ivrexa.h"

namespace herramientas {

static std::string hasta_nul(const char *campo, size_t num)
{
    return std::string(campo, strnlen(campo, num));
}

static programa_visto ve_programa(uint32_t id_programa, const iv_mcbase_programa_t &crudo)
{
    programa_visto p;
    p.id_programa = id_programa;
    p.nombre = de_ansi(hasta_nul(crudo.nombre, sizeof crudo.nombre));
    p.hwnd = crudo.hwnd;
    HWND hwnd = reinterpret_cast<HWND>(crudo.hwnd);
    p.es_ventana = hwnd != nullptr && IsWindow(hwnd);
    DWORD pid = 0;
    if (p.es_ventana)
        GetWindowThreadProcessId(hwnd, &pid);
    p.pid = pid;
    p.es_servidor = crudo.es_servidor != 0;
    p.es_cliente = crudo.es_cliente != 0;
    p.es_monitor = crudo.es_monitor != 0;
    p.contador_vivo = crudo.contador_vivo;
    return p;
}

static servicio_visto ve_servicio(uint32_t ind_datServ, const datServ &crudo)
{
    servicio_visto s;
    s.ind_datServ = ind_datServ;
    s.nombre_ansi = hasta_nul(crudo.nombre, sizeof crudo.nombre);
    s.nombre = de_ansi(s.nombre_ansi);
    s.id_programa_servidor = crudo.id_programa_servidor;
    s.id_programa_cliente = crudo.id_programa_cliente;
    s.bucle_servidor_estado = crudo.bucle_servidor_estado;
    s.bucle_servidor_vueltas = crudo.bucle_servidor_vueltas;
    s.id_comando_en_curso = crudo.id_comando_en_curso;
    s.bucle_cliente_estado = crudo.bucle_cliente_estado;
    s.bucle_cliente_vueltas = crudo.bucle_cliente_vueltas;
    return s;
}

// A channel's field is not aligned: its characters are copied before they are read.
template <size_t N>
static std::string texto_de(const wchar_t (&campo)[N])
{
    wchar_t copia[N];
    memcpy(copia, campo, sizeof copia);
    return de_ancho(std::wstring(copia, wcsnlen(copia, N)));
}

static canal_visto ve_canal(uint32_t tam, const iv_mcserv_t &crudo)
{
    canal_visto c;
    c.tam = tam;
    c.tam_bloque = crudo.tam_bloque;
    c.version_servicio = crudo.version_servicio;
    c.info_estadoComando = crudo.info_estadoComando;
    c.resultado = crudo.resultado;
    c.id_bloque_MCCom_siguiente = crudo.id_bloque_MCCom_siguiente;
    c.hwnd_servidor = crudo.hwnd_servidor;
    c.msg_servidor = crudo.msg_servidor;
    c.servidor_terminado = crudo.servidor_terminado;
    c.estado_servidor = crudo.estado_servidor;
    c.id_resultado = crudo.id_resultado;
    c.hwnd_cliente = crudo.hwnd_cliente;
    c.ocupacion = crudo.ocupacion;
    c.id_comando = crudo.id_comando;
    c.id_bloque_MCCom_entrada = crudo.id_bloque_MCCom_entrada;
    c.estado_notificacion = crudo.estado_notificacion;
    c.notificacion_dato1 = crudo.notificacion_dato1;
    c.notificacion_dato2 = crudo.notificacion_dato2;
    c.notificacion_dato3 = crudo.notificacion_dato3;
    c.textos_cliente[0] = texto_de(crudo.buffer_cliente_64);
    c.textos_cliente[1] = texto_de(crudo.buffer_cliente_256);
    c.textos_cliente[2] = texto_de(crudo.buffer_cliente2_256);
    c.textos_servidor[0] = texto_de(crudo.serv_buffer_64);
    c.textos_servidor[1] = texto_de(crudo.serv_buffer_256);
    c.textos_servidor[2] = texto_de(crudo.serv_buffer2_256);
    return c;
}

std::optional<canal_visto> mira_canal(const std::string &nombre_servicio_ansi)
{
    bloque_leido bloque(nombre_de_canal(nombre_servicio_ansi));
    if (!bloque.abierto())
        return std::nullopt;
    iv_mcserv_t crudo = {};
    bool quieto = bloque.copia(&crudo, std::min(bloque.tam(), sizeof crudo));
    canal_visto c = ve_canal(bloque.tam_dicho(), crudo);
    c.tam_hay = bloque.tam();
    c.quieto = quieto;
    return c;
}

// "..._Com__comdat<n>": the block of a command's data, not a channel.
static bool es_bloque_de_datos(const std::string &nombre)
{
    size_t datos = nombre.rfind(COLA_DATOS), numero = datos + strlen(COLA_DATOS);
    return datos != std::string::npos && numero < nombre.size() &&
           nombre.find_first_not_of("0123456789", numero) == std::string::npos;
}

// Channels that somebody holds and no entry names: a monitor emptied the table, or the server closed.
static void anyade_canales_sueltos(escritorio_visto *e)
{
    for (const std::string &nombre : bloques_que_empiezan_por(PREFIJO_CANAL)) {
        if (es_bloque_de_datos(nombre))
            continue;
        servicio_visto s;
        s.nombre_ansi = nombre.substr(strlen(PREFIJO_CANAL));
        s.nombre = de_ansi(s.nombre_ansi);
        bool esta = std::any_of(e->servicios.begin(), e->servicios.end(),
                                [&](const servicio_visto &otro) { return otro.nombre_ansi == s.nombre_ansi; });
        s.canal = esta ? std::nullopt : mira_canal(s.nombre_ansi);
        if (s.canal)
            e->servicios.push_back(s);
    }
}

// The block is let go before this returns: whoever looks at more meanwhile does not keep it in being.
static void copia_registro(escritorio_visto *e)
{
    bloque_leido bloque(NOMBRE_REGISTRO);
    e->hay_registro = bloque.abierto();
    if (!e->hay_registro)
        return;
    e->tam = bloque.tam_dicho();
    e->tam_hay = bloque.tam();
    e->quieto = bloque.copia(&e->crudo, std::min(bloque.tam(), sizeof e->crudo));
}

escritorio_visto mira_registro()
{
    escritorio_visto e;
    copia_registro(&e);
    HWND monitor = reinterpret_cast<HWND>(e.crudo.hwnd_monitor);
    e.hay_monitor = e.crudo.tam_bloque == sizeof e.crudo && e.crudo.version == iv_mcbase_VERSION &&
                    monitor != nullptr && e.crudo.msg_monitor != 0 && IsWindow(monitor);
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_PROGRAMAS; i++)
        if (e.crudo.programas[i].nombre[0] != '\0')
            e.programas.push_back(ve_programa(i, e.crudo.programas[i]));
    for (uint32_t j = 0; j < iv_mcbase_NUM_MAX_SERVICIOS; j++)
        if (e.crudo.servicios[j].nombre[0] != '\0')
            e.servicios.push_back(ve_servicio(j, e.crudo.servicios[j]));
    return e;
}

escritorio_visto mira_escritorio()
{
    escritorio_visto e = mira_registro();
    for (servicio_visto &s : e.servicios)
        s.canal = mira_canal(s.nombre_ansi);
    anyade_canales_sueltos(&e);
    return e;
}

const programa_visto *escritorio_visto::programa(uint32_t id_programa) const
{
    for (const programa_visto &p : programas)
        if (p.id_programa == id_programa)
            return &p;
    return nullptr;
}

// ---- Who is who

bool tiene_servidor(const canal_visto &canal)
{
    return canal.tam_hay >= sizeof(iv_mcserv_t) && !ha_terminado(canal) &&
           canal.estado_servidor != iv_mcserv_estadoServidor_PARADO;
}

bool ha_terminado(const canal_visto &canal)
{
    return canal.servidor_terminado == 1;
}

static const programa_visto *servidor_con_ventana(const escritorio_visto &e, uint64_t hwnd)
{
    for (const programa_visto &p : e.programas)
        if (p.es_servidor && p.hwnd == hwnd)
            return &p;
    return nullptr;
}

// Two programs of one window are two entries: the one that the table names comes first.
const programa_visto *servidor_de(const escritorio_visto &e, const servicio_visto &s)
{
    if (!s.canal || !tiene_servidor(*s.canal))
        return nullptr;
    const programa_visto *p = e.programa(s.id_programa_servidor);
    if (p != nullptr && p->es_servidor && p->hwnd == s.canal->hwnd_servidor)
        return p;
    return s.canal->hwnd_servidor != 0 ? servidor_con_ventana(e, s.canal->hwnd_servidor) : nullptr;
}

const programa_visto *cliente_de(const escritorio_visto &e, const servicio_visto &s)
{
    const programa_visto *p = e.programa(s.id_programa_cliente);
    return p != nullptr && p->es_cliente ? p : nullptr;
}

std::string programa_del_proceso(uint32_t pid)
{
    wchar_t ruta[1024];
    DWORD num = 1024;
    HANDLE proceso = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (proceso == nullptr)
        return "";
    bool dicho = QueryFullProcessImageNameW(proceso, 0, ruta, &num) != FALSE;
    CloseHandle(proceso);
    return dicho ? nombre_sin_ruta(de_ancho(std::wstring(ruta, num))) : "";
}

// ---- Names of states

template <size_t N>
static std::string nombre_de(const char *const (&nombres)[N], uint32_t estado)
{
    return estado < N ? nombres[estado] : "?" + std::to_string(estado);
}

std::string nombre_estado_comando(uint32_t info_estadoComando)
{
    static const char *const nombres[] = {"none", "written", "executing", "finished", "received", "seen"};
    return nombre_de(nombres, info_estadoComando);
}

std::string nombre_estado_servidor(uint32_t estado_servidor)
{
    static const char *const nombres[] = {"stopped", "waiting", "executing", "finished"};
    return nombre_de(nombres, estado_servidor);
}

std::string nombre_ocupacion(uint32_t ocupacion)
{
    static const char *const nombres[] = {"free", "being written", "under way"};
    return nombre_de(nombres, ocupacion);
}

std::string nombre_estado_notificacion(uint32_t estado)
{
    static const char *const nombres[] = {"free", "written", "taken", "handled"};
    return nombre_de(nombres, estado);
}

std::string nombre_espera_cliente(uint32_t bucle_cliente_estado)
{
    static const char *const nombres[] = {"", "for its turn", "for the server to take the command",
                                          "for the server to finish", "for the server to see the receipt"};
    return nombre_de(nombres, bucle_cliente_estado);
}

std::string nombre_espera_servidor(uint32_t bucle_servidor_estado)
{
    static const char *const nombres[] = {"", "for a command", "for the client to take the result"};
    return nombre_de(nombres, bucle_servidor_estado);
}

std::string nombre_resultado(uint32_t resultado)
{
    static const char *const nombres[] = {"NINGUNO", "OK", "CANCELADO", "ERROR"};
    return resultado < 4 ? nombres[resultado] : "";
}

// ---- Heartbeats

void latidos::anota(const escritorio_visto &e, uint64_t ahora_ms)
{
    std::map<uint32_t, seguido> ahora;
    for (const programa_visto &p : e.programas) {
        seguido s = {p.nombre, p.hwnd, p.contador_vivo, ahora_ms, false};
        auto antes = m_seguidos.find(p.id_programa);
        if (antes != m_seguidos.end() && es_el_mismo(antes->second, p)) {
            bool movido = antes->second.contador != p.contador_vivo;
            s.movido = movido || antes->second.movido;
            s.desde_ms = movido ? ahora_ms : antes->second.desde_ms;
        }
        ahora[p.id_programa] = s;
    }
    m_seguidos.swap(ahora);
}

// A counter never goes back but in an entry that was freed: a program of the same name has it then.
bool latidos::es_el_mismo(const seguido &antes, const programa_visto &p)
{
    return antes.nombre == p.nombre && antes.hwnd == p.hwnd && antes.contador <= p.contador_vivo;
}

latidos::estado latidos::de(uint32_t id_programa, uint64_t ahora_ms) const
{
    auto s = m_seguidos.find(id_programa);
    if (s == m_seguidos.end())
        return {pulso::nuevo, 0};
    uint64_t callado = ahora_ms > s->second.desde_ms ? ahora_ms - s->second.desde_ms : 0;
    if (callado >= SIN_LATIDO_MS)
        return {pulso::callado, callado};
    return {s->second.movido ? pulso::se_mueve : pulso::nuevo, callado};
}

} // namespace herramientas
