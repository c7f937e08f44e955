// iv_shared.h - named blocks of shared memory.
//
// FORMAT of a block, little-endian:
//   0  u32  tam_datos   bytes of data that follow; written once, by whoever created the block
//   4       data        laid out by the block's user; all zeros when new
// The mapping is tam_datos + 4 bytes long. A block is known by its name alone: no magic, no version.
//
// A block lives as long as any process has it open. Opening a block that exists leaves one handle behind, never to be
// closed, so whoever opened a block once keeps it in being until the process ends. Deliberate: data that a peer was
// told of do not vanish. It is what a long-running program's handles grow by.
//
// Nothing here locks. Creation may race: the system decides who creates, the others open. The contents need the
// block's mutex.
#ifndef IV_SHARED_H
#define IV_SHARED_H

#include "iv_plataforma.h"

#pragma pack(push, 1)
struct iv_shared_cabecera {
    uint32_t tam_datos;
};
#pragma pack(pop)
IV_FORMATO(sizeof(iv_shared_cabecera) == 4, "the block header is a cross-process format");
IV_CAMPO(iv_shared_cabecera, tam_datos, 0);

// This process's record of an open block, from the private heap.
struct iv_shared_bloque {
    char *nombre; // the record's own copy
    char *tipo;   // label for the debugger, its own copy
    HANDLE hmap;
    void *sharedmem; // the whole block, header included
};

// CIERTO if a block of that name exists. The probe's handle is never closed and keeps the block alive. Deliberate.
int16_t iv_shared_existe(const char *nombre);

// Makes the block `nombre`, or opens it when it exists, and maps it whole.
//   nombre            ANSI; copied, stays the caller's.
//   tipo              ANSI label for the debugger, copied; NULL stands for "bloqueMC".
//   tam_memcomp       bytes of data wanted, header not counted. An existing block keeps its own size.
//   ya_estaba_creado  out, may be NULL: CIERTO when the block existed; written also on failure.
//   Returns           a new record, the caller's until iv_shared_destruye; NULL without a mapping.
//   Reports           "tam_memcomp > 0", then goes on; "sharedmem != NULL" when a view fails; "tam_datos > 0" for a
//                     new block of no bytes. A handle that the system refuses is not reported.
iv_shared_bloque *iv_shared_crea(const char *nombre, const char *tipo, uint32_t tam_memcomp, int16_t *ya_estaba_creado);

// Makes a block that holds a copy of `datos`. A block that exists and is too small is closed and mapped once more. That
// makes a fresh one if nobody has it open any more; the handle that found it stays open here, as everywhere.
//   Returns  a new record; NULL without a mapping, or when the block is too small still: nothing is written then.
//   Reports  "tam_datos_memlocal > 0", and as above.
iv_shared_bloque *iv_shared_crea_con_datos(const char *nombre, uint32_t tam_datos_memlocal, const void *datos);

// Opens the block `nombre`, which ought to exist.
//   Returns  a new record; NULL without a mapping.
//   Reports  "tam_datos > 0" and "ya_estaba_creado == CIERTO" when it does not exist; a block of no data then exists.
iv_shared_bloque *iv_shared_abre(const char *nombre);

// The same for a block that may not exist: NULL then, without a report, and nothing is created or left behind. One that
// does exist is opened as everywhere, with the handle that stays.
iv_shared_bloque *iv_shared_abre_si_existe(const char *nombre);

// The block's data; NULL for a null record.
void *iv_shared_datos(const iv_shared_bloque *bloque);

// Bytes of data that can be read: what the header states, cut to what is mapped. The header is another program's word.
uint32_t iv_shared_tam_datos(const iv_shared_bloque *bloque);

// CIERTO if the block has room for a record of tam_datos bytes. Its creator writes the size just after the block has
// appeared to others, so a size of 0 is given some 20 ms to change.
int16_t iv_shared_contiene(const iv_shared_bloque *bloque, uint32_t tam_datos);

// A new copy of the data, the caller's, with four zero bytes behind it; its size, those not counted, in *tam_datos.
//   Reports  "tam > 0" for a block of no data.
void *iv_shared_copia_local(const iv_shared_bloque *bloque, uint32_t *tam_datos);

// Unmaps, closes, frees, and sets *bloque to NULL. A null address or a null record: nothing.
//   Reports  "res != 0" for each step that the system refuses.
void iv_shared_destruye(iv_shared_bloque **bloque);

#endif
