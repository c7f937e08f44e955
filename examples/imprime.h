/* imprime.h - how the examples print a wide text: as UTF-8, behind a label. Plain C. */
#ifndef IMPRIME_H
#define IMPRIME_H

#include <stdio.h>
#include <wchar.h>

#include <windows.h>

static inline void imprime_texto(const char *rotulo, const wchar_t *texto)
{
    char utf8[1024] = "";
    if (texto != NULL)
        WideCharToMultiByte(CP_UTF8, 0, texto, -1, utf8, (int)sizeof utf8, NULL, NULL);
    printf("%s\"%s\"\n", rotulo, utf8);
}

#endif
