// mensaje_msgpack.h - request and answer as MessagePack, for the rows whose means of transport carry bytes alone.
//
// Both are arrays of their fields in order, the buffer as bin. Nothing is copied that need not be: what is unpacked
// refers to the received bytes, and with a vrefbuffer what is packed refers to the caller's buffer.
#ifndef BANCO_MENSAJE_MSGPACK_H
#define BANCO_MENSAJE_MSGPACK_H

#include "../comun/fila.h"

#include <msgpack.hpp>

namespace banco {

// Destino is msgpack::sbuffer or msgpack::vrefbuffer, which keeps what it holds already in front. A vrefbuffer must be
// one that copies texts: it refers to nothing shorter than TAM_TEXTO bytes.
const size_t TAM_TEXTO = 64; // the NUL included

template <class Destino>
void empaqueta_peticion(const peticion &peticion, Destino *destino);

// The server's whole work: reads the request and appends the answer, which may refer to `bytes`.
template <class Destino>
void contesta_msgpack(const char *bytes, size_t tam, Destino *destino);

// The buffer of the answer refers to `bytes`.
void desempaqueta_respuesta(const char *bytes, size_t tam, respuesta *respuesta);

} // namespace banco

#endif
