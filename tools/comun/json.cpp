#include "json.h"

#include <cmath>

#include "ivrexa.h"

namespace herramientas {

json a_json(const suceso &s)
{
    json j = {{"n", s.numero}, {"time", hora_iso(s.hora_100ns)}};
    if (s.que == clase::hueco) {
        j["kind"] = nombre_clase(s.que);
        j["lost"] = s.perdidos;
        return j;
    }
    j["side"] = nombre_lado(s.quien);
    j["kind"] = nombre_clase(s.que);
    j["event"] = describe(s);
    j["service"] = s.servicio;
    if (s.que == clase::espera)
        j["state"] = s.estado;
    if (s.que == clase::comando)
        j["begins"] = s.empieza;
    if (s.id_comando != 0)
        j["command"] = s.id_comando;
    if (s.id_bloque != 0)
        j["block"] = s.id_bloque;
    return j;
}

static json texto_o_null(const std::optional<std::string> &texto)
{
    return texto ? json(*texto) : json(nullptr);
}

json a_json(const valor &v)
{
    json j = {{"name", v.nombre}, {"type", nombre_tipo(v.tipo)}};
    switch (v.tipo) {
    case ivrexa_tipoDato_double:
        j["value"] = std::isfinite(v.real) ? json(v.real) : json(real_a_texto(v.real));
        break;
    case ivrexa_tipoDato_buffer:
        j["size"] = v.tam;
        j["value"] = hexadecimal(v.bytes);
        break;
    case ivrexa_tipoDato_cadena_ansi:
    case ivrexa_tipoDato_cadena_unicode:
        j["value"] = texto_o_null(v.texto);
        break;
    case ivrexa_tipoDato_arr_cadenas_ansi:
    case ivrexa_tipoDato_arr_cadenas_unicode:
        j["value"] = json::array();
        for (const std::optional<std::string> &t : v.textos)
            j["value"].push_back(texto_o_null(t));
        break;
    default:
        j["value"] = v.numero;
    }
    return j;
}

json a_json(const contenido &c)
{
    json valores = json::array();
    for (const valor &v : c.valores)
        valores.push_back(a_json(v));
    json j = {{"values", valores}};
    if (!c.fallo.empty())
        j["error"] = c.fallo;
    return j;
}

std::string en_linea(const json &j)
{
    return j.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace herramientas
