// plataforma_nativa.h - included before everything else in the native build. The library copies and fills
// bytes with one instruction each, which no sanitizer sees into: here both are loops.
#ifndef PLATAFORMA_NATIVA_H
#define PLATAFORMA_NATIVA_H

#define iv_copia_bytes iv_copia_bytes_sin_vigilar
#define iv_llena_bytes iv_llena_bytes_sin_vigilar
#include "iv_plataforma.h"
#undef iv_copia_bytes
#undef iv_llena_bytes

inline void iv_copia_bytes(void *destino, const void *origen, size_t n)
{
    volatile unsigned char *a = static_cast<unsigned char *>(destino);
    const volatile unsigned char *de = static_cast<const unsigned char *>(origen);
    for (size_t i = 0; i < n; i++)
        a[i] = de[i];
}

inline void iv_llena_bytes(void *destino, unsigned char valor, size_t n)
{
    volatile unsigned char *a = static_cast<unsigned char *>(destino);
    for (size_t i = 0; i < n; i++)
        a[i] = valor;
}

#endif
