#include "lista_servicios.h"

#include "comun/texto.h"

namespace monitor {

using namespace herramientas;

lista_servicios::lista_servicios()
    : lista_filas({{L"Service", 104},
                   {L"Version", 58, true},
                   {L"Server", 154},
                   {L"Client", 152},
                   {L"Command is", 86},
                   {L"Server is", 76},
                   {L"Command", 74, true},
                   {L"Server waits", 188},
                   {L"Client waits", 226},
                   {L"Mailbox", 60},
                   {L"Entry", 66}})
{
}

// The program, or the free entry of one that was there. 0 is also what a field holds that nobody has written yet.
static std::string programa_de(const escritorio_visto &e, const programa_visto *p, uint32_t id_programa)
{
    if (p != nullptr)
        return nombre_sin_ruta(p->nombre) + " (" + std::to_string(p->id_programa) + ")";
    bool se_fue = id_programa != 0 && id_programa < iv_mcbase_NUM_MAX_PROGRAMAS && e.programa(id_programa) == nullptr;
    return se_fue ? "gone (" + std::to_string(id_programa) + ")" : "";
}

static std::string nombre_buzon(const canal_visto &c)
{
    std::string estado = nombre_estado_notificacion(c.estado_notificacion);
    return c.estado_notificacion == 0 ? estado : estado + ", client " + std::to_string(c.notificacion_dato1);
}

static std::string comando_en_curso(const servicio_visto &s)
{
    uint32_t id = s.id_comando_en_curso != 0 ? s.id_comando_en_curso : s.canal ? s.canal->id_comando : 0;
    return id == 0 ? "" : std::to_string(id);
}

fila lista_servicios::fila_de(const escritorio_visto &e, const servicio_visto &s, const esperas &antes,
                              const esperas &ahora) const
{
    bool en_tabla = s.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS;
    std::string terminado = s.canal && ha_terminado(*s.canal) ? "ended" : "";
    const std::string celdas[] = {
        s.nombre,
        s.canal ? std::to_string(s.canal->version_servicio) : "",
        programa_de(e, servidor_de(e, s), s.id_programa_servidor),
        programa_de(e, cliente_de(e, s), s.id_programa_cliente),
        s.canal ? nombre_estado_comando(s.canal->info_estadoComando) : "no channel",
        !s.canal            ? ""
        : terminado.empty() ? nombre_estado_servidor(s.canal->estado_servidor)
                            : terminado,
        comando_en_curso(s),
        ahora.servidor.sigue(antes.servidor) ? nombre_espera_servidor(ahora.servidor.estado) : "",
        ahora.cliente.sigue(antes.cliente) ? nombre_espera_cliente(ahora.cliente.estado) : "",
        s.canal ? nombre_buzon(*s.canal) : "",
        en_tabla ? std::to_string(s.ind_datServ) : "not listed",
    };
    fila f;
    f.clave = s.nombre_ansi;
    f.como = en_tabla ? aspecto::normal : aspecto::apagado;
    for (const std::string &c : celdas)
        f.celdas.push_back(a_ancho(sin_controles(c)));
    return f;
}

void lista_servicios::muestra(const escritorio_visto &e)
{
    std::vector<fila> filas;
    std::map<std::string, esperas> ahora;
    for (const servicio_visto &s : e.servicios) {
        if (ahora.count(s.nombre_ansi) != 0)
            continue;
        esperas &suyas = ahora[s.nombre_ansi];
        suyas.servidor = {s.bucle_servidor_estado, s.bucle_servidor_vueltas};
        suyas.cliente = {s.bucle_cliente_estado, s.bucle_cliente_vueltas};
        auto antes = m_antes.find(s.nombre_ansi);
        filas.push_back(fila_de(e, s, antes != m_antes.end() ? antes->second : suyas, suyas));
    }
    m_antes.swap(ahora);
    pon(std::move(filas));
}

} // namespace monitor
