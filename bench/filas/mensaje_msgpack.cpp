#include "mensaje_msgpack.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

namespace banco {

namespace {

struct mensaje_peticion {
    uint32_t id_comando;
    std::string_view texto;
    uint32_t numero;
    double real;
    msgpack::type::raw_ref buffer;
    MSGPACK_DEFINE(id_comando, texto, numero, real, buffer)
};

struct mensaje_respuesta {
    uint32_t numero;
    std::string_view texto;
    msgpack::type::raw_ref buffer;
    MSGPACK_DEFINE(numero, texto, buffer)
};

bool por_referencia(msgpack::type::object_type, std::size_t, void *)
{
    return true;
}

// The zone, which holds the array of fields for a moment, keeps its memory from one message to the next.
template <class Mensaje>
Mensaje desempaqueta(const char *bytes, size_t tam)
{
    static msgpack::zone zona;
    zona.clear();
    size_t leidos = 0;
    bool referida;
    Mensaje mensaje;
    msgpack::unpack(zona, bytes, tam, leidos, referida, por_referencia).convert(mensaje);
    return mensaje;
}

} // namespace

template <class Destino>
void empaqueta_peticion(const peticion &peticion, Destino *destino)
{
    mensaje_peticion mensaje = {peticion.id_comando,
                                peticion.texto,
                                peticion.numero,
                                peticion.real,
                                {reinterpret_cast<const char *>(peticion.buffer), peticion.tam}};
    msgpack::pack(*destino, mensaje);
}

template <class Destino>
void contesta_msgpack(const char *bytes, size_t tam, Destino *destino)
{
    auto peticion = desempaqueta<mensaje_peticion>(bytes, tam);
    char texto[TAM_TEXTO], al_reves[TAM_TEXTO];
    if (peticion.texto.size() >= sizeof texto)
        throw std::runtime_error("the text of a request is too long");
    std::memcpy(texto, peticion.texto.data(), peticion.texto.size());
    texto[peticion.texto.size()] = '\0';
    invierte(texto, al_reves, sizeof al_reves);
    msgpack::pack(*destino, mensaje_respuesta{peticion.numero + 1, al_reves, peticion.buffer});
}

void desempaqueta_respuesta(const char *bytes, size_t tam, respuesta *respuesta)
{
    auto mensaje = desempaqueta<mensaje_respuesta>(bytes, tam);
    respuesta->numero = mensaje.numero;
    respuesta->texto = mensaje.texto;
    respuesta->buffer = reinterpret_cast<const uint8_t *>(mensaje.buffer.ptr);
    respuesta->tam = mensaje.buffer.size;
}

template void empaqueta_peticion(const peticion &peticion, msgpack::sbuffer *destino);
template void empaqueta_peticion(const peticion &peticion, msgpack::vrefbuffer *destino);
template void contesta_msgpack(const char *bytes, size_t tam, msgpack::sbuffer *destino);
template void contesta_msgpack(const char *bytes, size_t tam, msgpack::vrefbuffer *destino);

} // namespace banco
