#include "modelo_registro.h"

namespace modelo {

std::string texto_de(const char *campo, size_t tam)
{
    return std::string(campo, strnlen(campo, tam - 1));
}

void pon_texto(char *campo, size_t tam, const std::string &texto)
{
    const size_t n = texto.size() < tam - 1 ? texto.size() : tam - 1;
    memcpy(campo, texto.data(), n);
    campo[n] = '\0';
}

uint32_t registro::busca(const std::string &servicio) const
{
    for (uint32_t i = 0; i < 32; i++)
        if (m.servicios[i].nombre[0] != '\0' && texto_de(m.servicios[i].nombre, 64) == servicio)
            return i;
    return 32;
}

uint32_t registro::busca_o_anyade(const std::string &servicio)
{
    const uint32_t hallado = busca(servicio);
    if (hallado < 32)
        return hallado;
    for (uint32_t i = 0; i < 32; i++)
        if (m.servicios[i].nombre[0] == '\0') {
            pon_texto(m.servicios[i].nombre, 64, servicio);
            return i;
        }
    informes.push_back(SIN_SITIO_SERVICIO);
    return 32;
}

uint32_t registro::quita(const std::string &servicio)
{
    const uint32_t i = busca(servicio);
    if (i < 32)
        m.servicios[i].nombre[0] = '\0';
    return i;
}

uint32_t registro::busca_prefijo(const std::string &prefijo) const
{
    for (uint32_t i = 0; i < 32; i++)
        if (m.servicios[i].nombre[0] != '\0' &&
            texto_de(m.servicios[i].nombre, 64).compare(0, prefijo.size(), prefijo) == 0)
            return i;
    return 32;
}

bool registro::hay_monitor() const
{
    return m.tam_bloque == 8886 && m.version == 256 && m.hwnd_monitor != 0 && m.msg_monitor != 0;
}

void registro::anota(const iv_mcbase_actividad_t &actividad, const std::string &servicio)
{
    iv_mcbase_actividad_t a = actividad;
    a.ind_datServ = 32;
    if (a.tipo_programa == 0 && a.tipo_actividad == 1)
        a.ind_datServ = a.indicador == 1 ? busca_o_anyade(servicio) : quita(servicio);
    if (!hay_monitor())
        return;
    if (a.ind_datServ >= 32)
        a.ind_datServ = busca(servicio);
    if (a.ind_datServ >= 32)
        return;
    const uint32_t dice = m.num_actividad_siguiente;
    const uint32_t n = dice >= 1 && dice <= 63 ? dice : 1;
    m.num_actividad_siguiente = n % 63 + 1;
    m.actividades[n - 1] = a;
    mensajes.push_back({m.hwnd_monitor, m.msg_monitor, 0, n});
}

void registro::pon_tipo(uint32_t id_programa, uint32_t tipo)
{
    if (id_programa >= 16)
        return;
    iv_mcbase_programa_t &p = m.programas[id_programa];
    if (tipo == 0)
        p.es_servidor = 1;
    else if (tipo == 1)
        p.es_cliente = 1;
    else if (tipo == 2)
        p.es_monitor = 1;
}

uint32_t registro::registra_programa(uint32_t tipo, const std::string &nombre, uint64_t hwnd,
                                     const std::function<bool(uint64_t)> &viva)
{
    uint32_t id = 16;
    for (uint32_t i = 0; i < 16 && id == 16; i++) {
        iv_mcbase_programa_t &p = m.programas[i];
        if (p.nombre[0] == '\0' || texto_de(p.nombre, 256) != nombre)
            continue;
        if (p.hwnd == hwnd || (hwnd != 0 && !viva(p.hwnd))) {
            p.hwnd = hwnd;
            id = i;
        }
    }
    for (uint32_t i = 0; i < 16 && id == 16; i++) {
        iv_mcbase_programa_t &p = m.programas[i];
        if (p.nombre[0] != '\0')
            continue;
        pon_texto(p.nombre, 256, nombre);
        p.hwnd = hwnd;
        p.es_servidor = p.es_cliente = p.es_monitor = 0;
        id = i;
    }
    if (id == 16)
        informes.push_back(SIN_SITIO_PROGRAMA);
    pon_tipo(id, tipo);
    return id;
}

void registro::quita_programa(uint32_t id)
{
    if (id >= 16)
        return;
    iv_mcbase_programa_t &p = m.programas[id];
    p.nombre[0] = '\0';
    p.hwnd = 0;
    p.es_servidor = p.es_cliente = p.es_monitor = 0;
    p.contador_vivo = 0;
}

uint32_t registro::registra_en_servicio(bool servidor, uint16_t id_programa, const std::string &servicio)
{
    const uint32_t i = busca_o_anyade(servicio);
    if (i < 32) {
        datServ &s = m.servicios[i];
        if (servidor) {
            s.id_programa_servidor = id_programa;
            s.bucle_servidor_estado = s.bucle_servidor_vueltas = s.bucle_servidor_vivo_cliente = 0;
        } else {
            s.id_programa_cliente = id_programa;
            s.id_comando_en_curso = 0;
            s.bucle_cliente_estado = s.bucle_cliente_vueltas = s.bucle_cliente_vivo_servidor = 0;
        }
    }
    pon_tipo(id_programa, servidor ? 0 : 1);
    return i;
}

uint32_t registro::num_programas() const
{
    uint32_t num = 0;
    for (const iv_mcbase_programa_t &p : m.programas)
        num += p.nombre[0] != '\0' ? 1 : 0;
    return num;
}

uint32_t registro::latido(uint32_t id_programa) const
{
    return id_programa < 16 ? m.programas[id_programa].contador_vivo : 0;
}

bool registro::ronda(bool servidor, uint32_t ind, uint32_t estado)
{
    if (ind >= 32)
        return true;
    datServ &s = m.servicios[ind];
    uint32_t el_estado = servidor ? s.bucle_servidor_estado : s.bucle_cliente_estado;
    uint32_t vueltas = servidor ? s.bucle_servidor_vueltas : s.bucle_cliente_vueltas;
    uint32_t vivo = servidor ? s.bucle_servidor_vivo_cliente : s.bucle_cliente_vivo_servidor;
    const uint32_t ahora = latido(servidor ? s.id_programa_cliente : s.id_programa_servidor);
    const bool entra = el_estado != estado;
    vueltas = entra ? 0 : vueltas + 1;
    vivo = entra ? ahora : vivo;
    bool muerto = !entra && vueltas % 25 == 0 && vivo == ahora;
    if (servidor) {
        s.bucle_servidor_estado = estado;
        s.bucle_servidor_vueltas = vueltas;
        s.bucle_servidor_vivo_cliente = vivo;
        muerto = muerto && s.id_comando_en_curso != 0;
    } else {
        s.bucle_cliente_estado = estado;
        s.bucle_cliente_vueltas = vueltas;
        s.bucle_cliente_vivo_servidor = vivo;
    }
    if (m.hwnd_monitor != 0 && m.msg_monitor != 0)
        mensajes.push_back({m.hwnd_monitor, m.msg_monitor, servidor ? 2u : 1u, int64_t{ind} | int64_t{estado} << 16});
    return muerto;
}

} // namespace modelo
