// The heap of the stand-in.
#include "sustituto.h"

#include <stdlib.h>

#include <unordered_map>

#include "interno.h"

namespace {

std::unordered_map<const void *, size_t> s_bloques;
size_t s_bytes = 0;
size_t s_limite = sustituto::LIMITE_RESERVA;
size_t s_mayor = 0;
char s_heap; // its address is the handle of the one heap
bool s_hay_heap = false;

void *reserva(size_t tam)
{
    if (tam > s_limite)
        return nullptr;
    if (tam > s_mayor)
        s_mayor = tam;
    void *bloque = calloc(tam, 1);
    s_bloques[bloque] = tam;
    s_bytes += tam;
    return bloque;
}

void suelta(const void *bloque)
{
    auto hallado = s_bloques.find(bloque);
    interno::exige(hallado != s_bloques.end(), "the heap was given what is no block of its own");
    s_bytes -= hallado->second;
    s_bloques.erase(hallado);
    free(const_cast<void *>(bloque));
}

void exige_heap(HANDLE heap)
{
    interno::exige(s_hay_heap && heap == &s_heap, "no such heap");
}

} // namespace

HANDLE HeapCreate(DWORD, SIZE_T, SIZE_T)
{
    interno::exige(!s_hay_heap, "a second heap");
    s_hay_heap = true;
    return &s_heap;
}

BOOL HeapDestroy(HANDLE heap)
{
    exige_heap(heap);
    while (!s_bloques.empty())
        suelta(s_bloques.begin()->first);
    s_hay_heap = false;
    return TRUE;
}

LPVOID HeapAlloc(HANDLE heap, DWORD opciones, SIZE_T tam)
{
    exige_heap(heap);
    interno::exige((opciones & HEAP_ZERO_MEMORY) != 0, "a block that is not zeroed");
    return reserva(tam);
}

// Always moves: who keeps the old address is seen.
LPVOID HeapReAlloc(HANDLE heap, DWORD, LPVOID bloque, SIZE_T tam)
{
    exige_heap(heap);
    auto hallado = s_bloques.find(bloque);
    interno::exige(hallado != s_bloques.end(), "no such block to resize");
    size_t tam_viejo = hallado->second;
    void *nuevo = reserva(tam);
    if (nuevo == nullptr)
        return nullptr;
    memcpy(nuevo, bloque, tam < tam_viejo ? tam : tam_viejo);
    suelta(bloque);
    return nuevo;
}

BOOL HeapFree(HANDLE heap, DWORD, LPVOID bloque)
{
    exige_heap(heap);
    if (bloque != nullptr)
        suelta(bloque);
    return TRUE;
}

SIZE_T HeapSize(HANDLE heap, DWORD, const void *bloque)
{
    exige_heap(heap);
    auto hallado = s_bloques.find(bloque);
    interno::exige(hallado != s_bloques.end(), "no such block to size");
    return hallado->second;
}

BOOL HeapValidate(HANDLE heap, DWORD, const void *)
{
    exige_heap(heap);
    return TRUE;
}

void sustituto::limita_reservas(size_t tam)
{
    s_limite = tam;
}

size_t sustituto::num_bloques()
{
    return s_bloques.size();
}

size_t sustituto::num_bytes()
{
    return s_bytes;
}

size_t sustituto::mayor_reserva()
{
    return s_mayor;
}

void interno::reinicia_monton()
{
    exige(!s_hay_heap, "the heap is still there");
    s_limite = sustituto::LIMITE_RESERVA;
    s_mayor = 0;
}
