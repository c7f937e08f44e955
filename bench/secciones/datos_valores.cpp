// Many small named values: written, made ready for another to read, and read back.
#include "datos.h"

#include "ivrexa.h"

#include <flatbuffers/flexbuffers.h>
#include <msgpack.hpp>

#include <cstring>
#include <stdexcept>

namespace banco {

namespace {

const char *const PREFIJOS[] = {"x", "id_", "size_", "value_x", "pos_"};
const char *const TEXTOS[] = {"red", "Helvetica", "mm", "page 1", "C:\\data", "none", "left", "a short text"};
const size_t TAM_SITIO_NOMBRE = 13;

tipo_valor tipo_de(size_t i)
{
    static const tipo_valor otros[] = {tipo_valor::real, tipo_valor::texto, tipo_valor::ushort};
    return i % 4 == 3 ? otros[i / 4 % 3] : tipo_valor::ulong;
}

// Five digits of base 36 behind a word.
void escribe_nombre(size_t i, char *sitio)
{
    const char *prefijo = PREFIJOS[i % 5];
    size_t longitud = std::strlen(prefijo);
    std::memcpy(sitio, prefijo, longitud);
    for (size_t n = 0, resto = i; n < 5; n++, resto /= 36)
        sitio[longitud + 4 - n] = "0123456789abcdefghijklmnopqrstuvwxyz"[resto % 36];
    sitio[longitud + 5] = '\0';
}

void graba(comdat *datos, const valor &valor)
{
    switch (valor.tipo) {
    case tipo_valor::ulong:
        return ivrexa_graba_ulong(datos, valor.nombre, valor.numero);
    case tipo_valor::real:
        return ivrexa_graba_double(datos, valor.nombre, valor.real);
    case tipo_valor::texto:
        return ivrexa_graba_cadena_ansi(datos, valor.nombre, valor.texto);
    case tipo_valor::ushort:
        return ivrexa_graba_ushort(datos, valor.nombre, static_cast<uint16_t>(valor.numero));
    }
}

uint64_t lee_valor(comdat *datos, uint32_t i)
{
    switch (ivrexa_tipoDato(datos, i)) {
    case ivrexa_tipoDato_ulong:
        return suma_ulong(ivrexa_dame_ulong(datos, i));
    case ivrexa_tipoDato_double:
        return suma_real(ivrexa_dame_double(datos, i));
    case ivrexa_tipoDato_cadena_ansi: {
        const char *texto = ivrexa_dame_cadena_ansi(datos, i);
        return suma_texto(texto, std::strlen(texto));
    }
    case ivrexa_tipoDato_ushort:
        return suma_ulong(ivrexa_dame_ushort(datos, i));
    default:
        throw std::runtime_error("a value came back with another type");
    }
}

template <typename empaquetador>
void empaqueta(empaquetador *paquete, const valor &valor)
{
    paquete->pack(valor.nombre);
    switch (valor.tipo) {
    case tipo_valor::ulong:
        paquete->pack(valor.numero);
        break;
    case tipo_valor::real:
        paquete->pack(valor.real);
        break;
    case tipo_valor::texto:
        paquete->pack(valor.texto);
        break;
    case tipo_valor::ushort:
        paquete->pack(static_cast<uint16_t>(valor.numero));
        break;
    }
}

void empaqueta_todos(const valores &valores, msgpack::sbuffer *buffer)
{
    msgpack::packer<msgpack::sbuffer> paquete(*buffer);
    paquete.pack_map(static_cast<uint32_t>(valores.todos().size()));
    for (const valor &valor : valores.todos())
        empaqueta(&paquete, valor);
}

uint64_t suma_objeto(const msgpack::object &objeto)
{
    switch (objeto.type) {
    case msgpack::type::POSITIVE_INTEGER:
        return suma_ulong(objeto.via.u64);
    case msgpack::type::FLOAT64:
        return suma_real(objeto.via.f64);
    case msgpack::type::STR:
        return suma_texto(objeto.via.str.ptr, objeto.via.str.size);
    default:
        throw std::runtime_error("MessagePack gave another type");
    }
}

// Names and texts stay in the message, which must outlive them, or are copied out of it, as without such a function.
bool por_referencia(msgpack::type::object_type, std::size_t, void *)
{
    return true;
}
const msgpack::unpack_reference_func COPIADO = nullptr;

uint64_t msgpack_con(const valores &valores, msgpack::unpack_reference_func referencia, size_t *tam)
{
    msgpack::sbuffer buffer;
    empaqueta_todos(valores, &buffer);
    *tam = buffer.size();
    msgpack::object_handle raiz = msgpack::unpack(buffer.data(), buffer.size(), referencia);
    const msgpack::object_map &mapa = raiz.get().via.map;
    uint64_t suma = 0;
    for (uint32_t i = 0; i < mapa.size; i++)
        suma += mapa.ptr[i].key.via.str.size + suma_objeto(mapa.ptr[i].val);
    return suma;
}

// Sees the values go by as they are parsed: nothing is kept.
struct visitante : msgpack::null_visitor {
    uint64_t suma = 0;
    bool es_nombre = false;
    bool start_map_key()
    {
        es_nombre = true;
        return true;
    }
    bool end_map_key()
    {
        es_nombre = false;
        return true;
    }
    bool visit_positive_integer(uint64_t numero)
    {
        suma += suma_ulong(numero);
        return true;
    }
    bool visit_float64(double real)
    {
        suma += suma_real(real);
        return true;
    }
    bool visit_str(const char *texto, uint32_t tam)
    {
        suma += es_nombre ? tam : suma_texto(texto, tam);
        return true;
    }
};

void anyade(flexbuffers::Builder *fabrica, const valor &valor)
{
    switch (valor.tipo) {
    case tipo_valor::ulong:
        return fabrica->UInt(valor.nombre, valor.numero);
    case tipo_valor::real:
        return fabrica->Double(valor.nombre, valor.real);
    case tipo_valor::texto:
        return fabrica->String(valor.nombre, valor.texto);
    case tipo_valor::ushort:
        return fabrica->UInt(valor.nombre, static_cast<uint16_t>(valor.numero));
    }
}

uint64_t suma_referencia(const flexbuffers::Reference &referencia)
{
    if (referencia.IsUInt())
        return suma_ulong(referencia.AsUInt64());
    if (referencia.IsFloat())
        return suma_real(referencia.AsDouble());
    if (!referencia.IsString())
        throw std::runtime_error("FlexBuffers gave another type");
    flexbuffers::String texto = referencia.AsString();
    return suma_texto(texto.c_str(), texto.size());
}

} // namespace

valores::valores(size_t num) : nombres_(num * TAM_SITIO_NOMBRE, '\0')
{
    uint32_t n = 12345;
    valores_.reserve(num);
    for (size_t i = 0; i < num; i++) {
        char *nombre = &nombres_[i * TAM_SITIO_NOMBRE];
        escribe_nombre(i, nombre);
        n = n * 1664525 + 1013904223;
        tipo_valor tipo = tipo_de(i);
        uint32_t numero = tipo == tipo_valor::ushort ? n >> 16 : n >> (i % 5 * 6);
        valores_.push_back({nombre, tipo, numero, (n >> 8) + 0.5, TEXTOS[n >> 29]});
    }
}

uint64_t valores::suma() const
{
    uint64_t suma = 0;
    for (const valor &valor : valores_) {
        suma += std::strlen(valor.nombre);
        suma += valor.tipo == tipo_valor::real    ? suma_real(valor.real)
                : valor.tipo == tipo_valor::texto ? suma_texto(valor.texto, std::strlen(valor.texto))
                                                  : suma_ulong(valor.numero);
    }
    return suma;
}

// The count, and for each value its type, the length of its name, the name with its NUL, and the content, which for a
// text is its length and the text with its NUL.
size_t valores::tam_ivrexa() const
{
    size_t tam = 4;
    for (const valor &valor : valores_) {
        tam += 2 + std::strlen(valor.nombre) + 1;
        tam += valor.tipo == tipo_valor::ulong    ? 4
               : valor.tipo == tipo_valor::real   ? 8
               : valor.tipo == tipo_valor::ushort ? 2
                                                  : 4 + std::strlen(valor.texto) + 1;
    }
    return tam;
}

uint64_t valores_ivrexa(const char *servicio, const valores &valores, double *marcas)
{
    marcas[0] = ahora();
    comdat *escritos = ivrexa_crea_datos_comando_entrada(servicio);
    for (const valor &valor : valores.todos())
        graba(escritos, valor);
    marcas[1] = ahora();
    uint32_t id = ivrexa_guarda_datos(escritos);
    marcas[2] = ahora();
    comdat *leidos = id != 0 ? ivrexa_lee_datos(servicio, id, CIERTO) : nullptr;
    if (leidos == nullptr)
        throw std::runtime_error("stored command data could not be loaded");
    marcas[3] = ahora();
    uint64_t suma = 0;
    uint32_t num = ivrexa_numero_valores(leidos);
    for (uint32_t i = 0; i < num; i++)
        suma += std::strlen(ivrexa_nombre_valor(leidos, i)) + lee_valor(leidos, i);
    marcas[4] = ahora();
    ivrexa_destruye_datos_comando(leidos);
    ivrexa_destruye_datos_comando(escritos);
    marcas[5] = ahora();
    return suma;
}

uint64_t valores_msgpack(const valores &valores, size_t *tam)
{
    return msgpack_con(valores, COPIADO, tam);
}

uint64_t valores_msgpack_referencia(const valores &valores, size_t *tam)
{
    return msgpack_con(valores, por_referencia, tam);
}

uint64_t valores_msgpack_visitante(const valores &valores, size_t *tam)
{
    msgpack::sbuffer buffer;
    empaqueta_todos(valores, &buffer);
    *tam = buffer.size();
    visitante visitante;
    msgpack::parse(buffer.data(), buffer.size(), visitante);
    return visitante.suma;
}

uint64_t valores_flexbuffers(const valores &valores, size_t *tam)
{
    flexbuffers::Builder fabrica(256, flexbuffers::BUILDER_FLAG_NONE); // no name occurs twice: none to look for
    fabrica.Map([&] {
        for (const valor &valor : valores.todos())
            anyade(&fabrica, valor);
    });
    fabrica.Finish();
    const std::vector<uint8_t> &buffer = fabrica.GetBuffer();
    *tam = buffer.size();
    flexbuffers::Map mapa = flexbuffers::GetRoot(buffer).AsMap();
    flexbuffers::TypedVector nombres = mapa.Keys();
    flexbuffers::Vector contenidos = mapa.Values();
    uint64_t suma = 0;
    for (size_t i = 0; i < nombres.size(); i++)
        suma += std::strlen(nombres[i].AsKey()) + suma_referencia(contenidos[i]);
    return suma;
}

} // namespace banco
