// monton.h - what the library's private heap holds, in module tests.
#ifndef COMUN_MONTON_H
#define COMUN_MONTON_H

#include <cstdint>

#include "sistema.h"

#include "iv_mem.h"

// Blocks that are allocated and not freed; 0 without a heap.
inline uint32_t bloques_vivos()
{
    PROCESS_HEAP_ENTRY entrada = {};
    uint32_t num = 0;
    while (s_LocalHeap != nullptr && HeapWalk(s_LocalHeap, &entrada))
        num += (entrada.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    return num;
}

// Bytes that were asked for.
inline uint32_t tam_de(const void *memlocal)
{
    return static_cast<uint32_t>(HeapSize(s_LocalHeap, 0, memlocal));
}

#endif
