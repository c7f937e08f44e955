#include "salida.h"

#include <algorithm>

#include "comun/leido.h"
#include "comun/nombres.h"
#include "comun/texto.h"

#include "ivrexa.h"

namespace ivrexactl {

using herramientas::contenido;
using herramientas::valor;

static std::optional<std::string> de_cadena(const char *ansi)
{
    return ansi != nullptr ? std::optional<std::string>(herramientas::de_ansi(ansi)) : std::nullopt;
}

static std::optional<std::string> de_cadena(const wchar_t *ancho)
{
    return ancho != nullptr ? std::optional<std::string>(herramientas::de_ancho(ancho)) : std::nullopt;
}

static void toma_buffer(comdat *datos, uint32_t i, valor *v)
{
    uint32_t tam = 0;
    const uint8_t *bytes = static_cast<const uint8_t *>(ivrexa_dame_buffer(datos, i, &tam));
    v->tam = tam;
    if (bytes != nullptr)
        v->bytes.assign(bytes, bytes + tam);
}

// The library's array gives a null text as what follows it, so which are null is what we saw ourselves.
static void toma_textos(comdat *datos, uint32_t i, const valor &visto, valor *v)
{
    uint32_t num = 0;
    const char *const *textos = ivrexa_dame_arr_cadenas_ansi(datos, i, &num);
    for (uint32_t j = 0; j < num; j++) {
        bool nulo = j >= visto.textos.size() || !visto.textos[j];
        v->textos.push_back(de_cadena(nulo ? nullptr : textos[j]));
    }
}

static valor toma_valor(comdat *datos, uint32_t i, const valor &visto)
{
    valor v;
    v.tipo = ivrexa_tipoDato(datos, i);
    v.nombre = herramientas::de_ansi(ivrexa_nombre_valor(datos, i));
    switch (v.tipo) {
    case ivrexa_tipoDato_byte:
        v.numero = ivrexa_dame_byte(datos, i);
        break;
    case ivrexa_tipoDato_ushort:
        v.numero = ivrexa_dame_ushort(datos, i);
        break;
    case ivrexa_tipoDato_ulong:
        v.numero = ivrexa_dame_ulong(datos, i);
        break;
    case ivrexa_tipoDato_double:
        v.real = ivrexa_dame_double(datos, i);
        break;
    case ivrexa_tipoDato_hwnd:
        v.numero = reinterpret_cast<uint64_t>(ivrexa_dame_hwnd(datos, i));
        break;
    case ivrexa_tipoDato_buffer:
        toma_buffer(datos, i, &v);
        break;
    case ivrexa_tipoDato_cadena_ansi:
        v.texto = de_cadena(ivrexa_dame_cadena_ansi(datos, i));
        break;
    case ivrexa_tipoDato_cadena_unicode:
        v.texto = de_cadena(ivrexa_dame_cadena_unicode(datos, i));
        break;
    default:
        toma_textos(datos, i, visto, &v);
    }
    return v;
}

// All in the order written: the library checks a number against the place where the last text was read.
static void toma_valores(comdat *datos, contenido *c)
{
    for (uint32_t i = 0; i < c->valores.size(); i++)
        c->valores[i] = toma_valor(datos, i, c->valores[i]);
}

// Such an array is written without its count: our own eyes find it, the library's reader does not.
bool con_arreglo_ancho(const contenido &c)
{
    return std::any_of(c.valores.begin(), c.valores.end(),
                       [](const valor &v) { return v.tipo == ivrexa_tipoDato_arr_cadenas_unicode; });
}

// The library shows a box for a block that is not there and for content that it cannot read, so we look first; and we
// hold the block meanwhile, since another client's command would destroy it.
contenido lee_salida(const std::string &nombre_servicio_ansi, uint32_t id_bloque)
{
    herramientas::bloque_leido bloque(herramientas::nombre_de_datos(nombre_servicio_ansi, id_bloque));
    contenido c;
    if (!bloque.abierto()) {
        c.fallo = "there is no output block " + std::to_string(id_bloque) +
                  "; the command has not answered, and that is an earlier one's, or the server has destroyed it";
        return c;
    }
    c = herramientas::descifra(bloque.datos(), bloque.tam(), {UINT32_MAX, UINT32_MAX});
    if (!c.fallo.empty() || con_arreglo_ancho(c))
        return c;
    comdat *datos = ivrexa_lee_datos(nombre_servicio_ansi.c_str(), id_bloque, FALSO);
    if (datos == nullptr)
        return c;
    toma_valores(datos, &c);
    ivrexa_destruye_datos_comando(datos);
    return c;
}

} // namespace ivrexactl
