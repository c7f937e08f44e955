// iv_mem.h - the library's private heap, and the small text helpers that names are built and compared with.
//
// LIFE. No heap until the first allocation; it makes the heap's lock and then the heap. iv_mem_cierra, at the end of a
// session, destroys it with every block still outstanding; a later allocation starts anew.
//
// LOCK. Every operation holds the named mutex "ivrexa_iv_mem" from before it touches the heap until after its trace
// lines. The name is one for the whole desktop, so the heap operations of every program that loads the library take
// turns. Deliberate.
//
// FAILURE. The heap raises a structured exception when memory runs out; the library does not catch it, and gives the
// heap's lock back on the way out. A heap that gives NULL instead, as Wine's does, is reported; what asked for as much
// as a peer or a host may name copes with the NULL.
#ifndef IV_MEM_H
#define IV_MEM_H

#include "iv_plataforma.h"

extern HANDLE s_LocalHeap; // NULL while there is no heap; the heartbeat takes that as the end of the session

// ---- Heap. Sizes in bytes; new bytes are zero; blocks are the caller's.

void *i_malloc(uint32_t tam);
void *i_realloc(void *memlocal, uint32_t tam); // contents kept, may move
void i_free(void *memlocal);                   // NULL is harmless

// The same, reporting "tam > 0" for a size of 0 and going on with it.
void *iv_mem_malloc(uint32_t tam);
void *iv_mem_calloc(uint32_t num, uint32_t tam_elemento); // the 32-bit product is not checked for overflow
void *iv_mem_realloc(void *memlocal, uint32_t tam);

// The same for a block that one would like larger at once: *dado bytes. Where there is no memory for so much it is tam
// bytes, without a report; *dado tells how many. One operation of the heap, whichever it is.
void *iv_mem_realloc_con_adelanto(void *memlocal, uint32_t tam, uint32_t *dado);

void *iv_mem_malloc_con_margen(uint32_t tam, uint32_t margen); // tam is checked, tam + margen bytes are given

// Frees *ptr and sets it to NULL. Reports "ptr != 0" for a null address, then nothing; "*ptr != 0" for a null pointer,
// and goes on. The other two do the same, for texts.
void iv_mem_libera(void **ptr);
void iv_mem_libera_cadena(char **ptr);
void iv_mem_libera_cadena_u(wchar_t **ptr);

template <typename registro>
inline void iv_mem_libera(registro **ptr)
{
    iv_mem_libera(reinterpret_cast<void **>(ptr));
}

// Destroys the heap and its lock, if there is one. Every pointer into it is invalid afterwards.
void iv_mem_cierra(void);

// ---- Texts. New texts are the caller's. A null text counts as empty, but in the comparisons: it equals NULL only.
// Sizes are 32-bit, so a text is shorter than 2 GiB.

char *iv_mem_duplica_cadena(const char *cadena);
wchar_t *iv_mem_duplica_cadena_u(const wchar_t *cadena);
int16_t iv_mem_cadenas_iguales(const char *cadena1, const char *cadena2); // exact, case included
int16_t iv_mem_cadenas_iguales_u(const wchar_t *cadena1, const wchar_t *cadena2);
uint32_t iv_mem_longitud(const char *cadena);
uint32_t iv_mem_longitud_u(const wchar_t *cadena);

// At most num_caracteres - 1 characters and always a NUL. Source first. Deliberate.
void iv_mem_copia_cadena(const char *origen, char *destino, uint32_t num_caracteres);
void iv_mem_copia_cadena_u(const wchar_t *origen, wchar_t *destino, uint32_t num_caracteres);

// Replaces *cadena by a new text with `cola` behind it. Reports "(cadena) != 0" for a null address, then nothing.
void iv_mem_concatena(char **cadena, const char *cola);

// Decimal digits; 0 gives an empty text. Deliberate: object names are built with it.
char *iv_mem_numero_a_cadena(uint32_t numero);

// As if byte by byte, forwards: where the places overlap, the bytes written are read again.
void iv_mem_copia(void *destino, const void *origen, uint32_t num_bytes);

#endif
