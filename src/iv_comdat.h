// iv_comdat.h - command data: a counted sequence of typed, named values that carries a command's input or output.
//
// CONTENT, little-endian, no padding. It crosses processes as the data of a block "Ivrexa_MCB_Serv_<service>_Com_
// _comdat<n>" (iv_nombre.h); the block's size header states its length.
//   u32  count of values; counted up only after a value's bytes are complete
//   then the values one after another:
//     u8   type code (tipoDato, ivrexa.h)
//     u8   length of the name, its NUL included (low 8 bits)
//          the name with its NUL, ANSI
//          the data, by type:
//     1 byte          1 byte
//     2 ushort        2 bytes
//     3 ulong         4 bytes
//     4 double        8 bytes, IEEE 754
//     5 buffer        u32 N, then N bytes
//     6 ANSI text     u32 L, then L bytes with the NUL; L = 0 is a null text
//     7 wide text     the same in UTF-16; L counts bytes
//     8 window        8 bytes
//     9 ANSI texts    u32 E, then E positions (u32), then E elements in the form of 6
//    10 wide texts    E positions, then E elements in the form of 7. No count before them, while readers expect one.
//                     Deliberate: it is the format that every host writes.
//   A position counts from the first byte of the content and names the element's length.
//
// A container belongs to one thread at a time. It is written (its buffer grows) or read (its buffer is a private copy)
// for its whole life; pointers that readers return point into the buffer.
//
// What is read may be anybody's bytes. Nothing outside the buffer is touched: a read past the end is reported and gives
// zeros or NULL, a scan stops at its first one, and no count or length makes us allocate more than a small multiple of
// the content. The copy that is read has four zero bytes behind it, so that every text handed out ends inside it.
#ifndef IV_COMDAT_H
#define IV_COMDAT_H

#include "iv_plataforma.h"
#include "iv_shared.h"

enum iv_comdat_tipo : uint32_t {
    iv_comdat_tipo_LECTURA = 0,
    iv_comdat_tipo_ESCRITURA = 1,
};

// One value of a container that is read.
struct iv_comdat_valor {
    uint32_t tipoDato;
    const char *nombre;  // inside the buffer
    uint32_t offset;     // position of the data, behind the name
    void *tabla_cadenas; // array of pointers made by the last read of an array; NULL until then
};

struct comdat {
    char *nombre_servicio;          // its own copy
    uint32_t id_bloque_MCCom;       // block that holds or held the content; 0 until stored
    iv_shared_bloque *shared_MCCom; // that block, kept open; NULL until stored
    int16_t es_entrada;             // CIERTO input, FALSO output
    int16_t marca;                  // CIERTO, in reading, once an array was read: the index may hold tables;
                                    // in writing, once the heap did not give more ahead
    uint32_t tipo;                  // iv_comdat_tipo
    uint32_t *num_valores;          // the count at the head of the buffer; moves with it
    uint8_t *buffer;
    uint32_t tam;             // bytes allocated, by the rule of growth
    uint32_t ocupado;         // bytes in use
    uint32_t offset;          // the cursor
    iv_comdat_valor *valores; // index, when read and not empty; NULL otherwise
    uint32_t num_indexados;   // entries of the index that the content bore out
    uint32_t reservado;       // bytes that the heap has given: tam, or more above 64 KiB
};

// ---- Life

// A new container for writing, the caller's. A null name is an empty one.
comdat *iv_comdat_crea_para_grabar(const char *nombre_servicio, int16_t es_entrada);

// A new container for reading, the caller's.
//   shared_MCCom  address of the open block's record, taken over; the caller's pointer becomes NULL.
//   datos         private copy from the heap, taken over; followed by four zero bytes. tam_datos does not count them.
//   Reports       "id_bloque_MCCom != 0", goes on; "shared_MCCom != NULL" for a null address, then NULL: `datos` stays
//                 the caller's. "valor->tipoDato != ivrexa_tipoDato_desconocido" for each such; reads past the end.
comdat *iv_comdat_crea_para_leer(const char *nombre_servicio, uint32_t id_bloque_MCCom, iv_shared_bloque **shared_MCCom,
                                 uint8_t *datos, uint32_t tam_datos, int16_t es_entrada);

// Copies the data of an open block and makes a container for reading over the copy; takes the block over. NULL, with
// the block released, when there is no memory for the copy.
comdat *iv_comdat_carga(const char *nombre_servicio, uint32_t id_bloque_MCCom, iv_shared_bloque **shared_MCCom,
                        int16_t es_entrada);

// Attaches the block that now holds the content; the container takes it over and *shared_MCCom becomes NULL.
// A container that has one already keeps it, and the new one stays open for good: its id has been given out.
//   Reports  "comdat->id_bloque_MCCom == 0", "comdat->shared_MCCom == NULL", "comdat->tipo == iv_comdat_tipo_
//            ESCRITURA"; "shared_MCCom != NULL && *shared_MCCom != NULL", and attaches nothing.
void iv_comdat_guardado(comdat *comdat, uint32_t id_bloque_MCCom, iv_shared_bloque **shared_MCCom);

// The content, and its length in *ocupado.
const uint8_t *iv_comdat_contenido(const comdat *comdat, uint32_t *ocupado);

// Frees everything. Reports "(comdat) != 0" for NULL, then nothing.
void iv_comdat_destruye(comdat *comdat);

// ---- Writers. A null container: nothing. See ivrexa.h.

void iv_comdat_graba_byte(comdat *comdat, const char *nombre_valor, uint8_t valor);
void iv_comdat_graba_ushort(comdat *comdat, const char *nombre_valor, uint16_t valor);
void iv_comdat_graba_ulong(comdat *comdat, const char *nombre_valor, uint32_t valor);
void iv_comdat_graba_double(comdat *comdat, const char *nombre_valor, double valor);
void iv_comdat_graba_buffer(comdat *comdat, const char *nombre_valor, const void *buffer, uint32_t tam);
void iv_comdat_graba_cadena_ansi(comdat *comdat, const char *nombre_valor, const char *cadena);
void iv_comdat_graba_cadena_unicode(comdat *comdat, const char *nombre_valor, const wchar_t *cadena);
void iv_comdat_graba_hwnd(comdat *comdat, const char *nombre_valor, ivrexa_hwnd valor);
void iv_comdat_graba_arr_cadenas_ansi(comdat *comdat, const char *nombre_valor, const char *const *cadenas,
                                      uint32_t num_cadenas);
void iv_comdat_graba_arr_cadenas_unicode(comdat *comdat, const char *nombre_valor, const wchar_t *const *cadenas,
                                         uint32_t num_cadenas);

// ---- Readers. A null container: the neutral result. See ivrexa.h.

uint32_t iv_comdat_numero_valores(comdat *comdat);                   // reports "(comdat) != 0" again
const char *iv_comdat_nombre_valor(comdat *comdat, uint32_t indice); // likewise
uint32_t iv_comdat_tipoDato(comdat *comdat, uint32_t indice);        // likewise
uint8_t iv_comdat_dame_byte(comdat *comdat, uint32_t indice);
uint16_t iv_comdat_dame_ushort(comdat *comdat, uint32_t indice);
uint32_t iv_comdat_dame_ulong(comdat *comdat, uint32_t indice);
double iv_comdat_dame_double(comdat *comdat, uint32_t indice);
const void *iv_comdat_dame_buffer(comdat *comdat, uint32_t indice, uint32_t *tam_buffer);
const char *iv_comdat_dame_cadena_ansi(comdat *comdat, uint32_t indice);
const wchar_t *iv_comdat_dame_cadena_unicode(comdat *comdat, uint32_t indice);
ivrexa_hwnd iv_comdat_dame_hwnd(comdat *comdat, uint32_t indice);
const char *const *iv_comdat_dame_arr_cadenas_ansi(comdat *comdat, uint32_t indice, uint32_t *num_valores);
const wchar_t *const *iv_comdat_dame_arr_cadenas_unicode(comdat *comdat, uint32_t indice, uint32_t *num_valores);

#endif
