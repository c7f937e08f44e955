// formato_escritura.h - how fuzz_escritura reads its input, for those who write one.
//
//   u8    heap: 0 gives whatever is asked for below a megabyte; n refuses blocks above n kilobytes
//   then operations until the end:
//     u8    type of the value, modulo 10, plus 1
//     name  see `texto` below
//     1 to 4, 8   the value's bytes
//     5           u8 kind: 0 null with u32 size; 1 u32 size from 2^28 up, too large; else u16 size
//     6, 7        text
//     9, 10       u8 kind: 0 null array of u8 texts; 1 null array of u32 texts, at least 2^29; else u8 texts
//   text: u8 form: 0 null; 1 u16 characters of filling; else a length byte and so many characters
#ifndef NATIVO_FORMATO_ESCRITURA_H
#define NATIVO_FORMATO_ESCRITURA_H

#include "apoyo.h"

namespace formato_escritura {

enum : uint32_t { TEXTO_NULO = 0, TEXTO_RELLENO = 1, TEXTO = 2 };
enum : uint32_t { NULO = 0, ENORME = 1, NORMAL = 2 };
const uint32_t BUFFER_ENORME = 1u << 28;
const uint32_t ARREGLO_ENORME = 1u << 29;

} // namespace formato_escritura

#endif
