// The platform's text calls, as plain loops. The real compare knows languages; this one compares units, and
// the library asks for equality alone.
#include "windows.h"

namespace {

template <typename letra>
int longitud(const letra *texto)
{
    int n = 0;
    if (texto != nullptr)
        while (texto[n] != 0)
            n++;
    return n;
}

template <typename letra>
int compara(const letra *uno, const letra *otro)
{
    if (uno == nullptr || otro == nullptr)
        return (uno != nullptr) - (otro != nullptr);
    while (*uno != 0 && *uno == *otro) {
        uno++;
        otro++;
    }
    return (*uno > *otro) - (*uno < *otro);
}

template <typename letra>
letra *copia(letra *destino, const letra *origen, int num)
{
    if (num <= 0)
        return destino;
    int i = 0;
    for (; i < num - 1 && origen[i] != 0; i++)
        destino[i] = origen[i];
    destino[i] = 0;
    return destino;
}

} // namespace

int lstrlenA(LPCSTR texto)
{
    return longitud(texto);
}

int lstrlenW(LPCWSTR texto)
{
    return longitud(texto);
}

int lstrcmpA(LPCSTR uno, LPCSTR otro)
{
    return compara(uno, otro);
}

int lstrcmpW(LPCWSTR uno, LPCWSTR otro)
{
    return compara(uno, otro);
}

LPSTR lstrcpynA(LPSTR destino, LPCSTR origen, int num)
{
    return copia(destino, origen, num);
}

LPWSTR lstrcpynW(LPWSTR destino, LPCWSTR origen, int num)
{
    return copia(destino, origen, num);
}
