// iv_comdat_apoyo.h - what the tests of command data share: containers that end with the test, their bytes,
// what stands in the heap, content with every type in it, and each writer with the bytes that it makes.
#ifndef IV_COMDAT_APOYO_H
#define IV_COMDAT_APOYO_H

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/informes.h"
#include "comun/informes_modulo.h"
#include "comun/lineas.h"
#include "comun/util.h"

#include "iv_comdat.h"
#include "iv_mem.h"
#include "iv_shared.h"

using bytes = std::vector<uint8_t>;

inline const char *const MODULO = "iv_comdat";
inline const char *const FUERA = "(comdat->offset + tam) <= comdat->ocupado";
inline const char *const NO_ESCRIBE = "comdat->tipo == iv_comdat_tipo_ESCRITURA";
inline const char *const NO_LEE = "comdat->tipo == iv_comdat_tipo_LECTURA";

struct destructor_comdat {
    void operator()(comdat *c) const { iv_comdat_destruye(c); }
};
using contenedor = std::unique_ptr<comdat, destructor_comdat>;

inline contenedor para_grabar()
{
    return contenedor(iv_comdat_crea_para_grabar("S", 1));
}

inline bytes contenido(const contenedor &c)
{
    uint32_t ocupado = 0;
    const uint8_t *datos = iv_comdat_contenido(c.get(), &ocupado);
    return bytes(datos, datos + ocupado);
}

// A container that reads a copy of the bytes in the heap, four zero bytes behind them.
inline contenedor lee(const bytes &b)
{
    const uint32_t tam = static_cast<uint32_t>(b.size());
    uint8_t *datos = static_cast<uint8_t *>(i_malloc(tam + 4));
    if (tam != 0)
        memcpy(datos, b.data(), tam);
    iv_shared_bloque *sin_bloque = nullptr;
    return contenedor(iv_comdat_crea_para_leer("S", 7, &sin_bloque, datos, tam, 1));
}

inline contenedor lee(const char *hex)
{
    return lee(de_hex(hex));
}

inline const char *a_texto(const void *p)
{
    return static_cast<const char *>(p);
}

inline ivrexa_hwnd hwnd_de(uint64_t valor)
{
    return reinterpret_cast<ivrexa_hwnd>(valor);
}

struct uso_heap {
    uint32_t bloques = 0;
    size_t bytes = 0;
};

// What stands in the library's heap.
inline uso_heap mide_heap()
{
    uso_heap uso;
    PROCESS_HEAP_ENTRY e = {};
    while (s_LocalHeap != nullptr && HeapWalk(s_LocalHeap, &e)) {
        if ((e.wFlags & PROCESS_HEAP_ENTRY_BUSY) == 0)
            continue;
        uso.bloques++;
        uso.bytes += e.cbData;
    }
    return uso;
}

// Every type once, with names "a" to "j". The wide array carries the count that readers expect. 146 bytes.
inline const char *const TODOS = "0A000000"
                                 "01 02 6100 2A"
                                 "02 02 6200 3412"
                                 "03 02 6300 78563412"
                                 "04 02 6400 000000000000F83F"
                                 "05 02 6500 03000000 A1A2A3"
                                 "06 02 6600 05000000 686F6C6100"
                                 "07 02 6700 06000000 E100 E900 0000"
                                 "08 02 6800 8877665544332211"
                                 "09 02 6900 02000000 65000000 6C000000  03000000 756E00  00000000"
                                 "0A 02 6A00 02000000 80000000 88000000  04000000 7800 0000  06000000 7900 7A00 0000";

// Where the values of TODOS have their data, and where they end.
struct sitio {
    uint32_t tipo;
    const char *nombre;
    uint32_t datos;
    uint32_t fin;
};
inline const sitio SITIOS[] = {
    {1, "a", 8, 9},   {2, "b", 13, 15}, {3, "c", 19, 23}, {4, "d", 27, 35},  {5, "e", 39, 46},
    {6, "f", 50, 59}, {7, "g", 63, 73}, {8, "h", 77, 85}, {9, "i", 89, 112}, {10, "j", 116, 146},
};

// Every writer once. The bytes of the data hold for a name that ends at byte 14 of the content: the positions
// in the arrays count from its beginning.
struct escritor {
    const char *que;
    uint8_t tipo;
    std::function<void(comdat *c, const char *nombre)> graba;
    const char *datos;
};
inline const std::vector<escritor> &escritores()
{
    static const char *const ANSI[] = {"x", nullptr};
    static const wchar_t *const ANCHOS[] = {L"x"};
    static const std::vector<escritor> TODOS_ELLOS = {
        {"byte", 1, [](comdat *c, const char *n) { iv_comdat_graba_byte(c, n, 0x2A); }, "2A"},
        {"ushort", 2, [](comdat *c, const char *n) { iv_comdat_graba_ushort(c, n, 0x1234); }, "3412"},
        {"ulong", 3, [](comdat *c, const char *n) { iv_comdat_graba_ulong(c, n, 0x12345678); }, "78563412"},
        {"double", 4, [](comdat *c, const char *n) { iv_comdat_graba_double(c, n, 1.5); }, "000000000000F83F"},
        {"buffer", 5, [](comdat *c, const char *n) { iv_comdat_graba_buffer(c, n, "\1\2", 2); }, "02000000 0102"},
        {"text", 6, [](comdat *c, const char *n) { iv_comdat_graba_cadena_ansi(c, n, "x"); }, "02000000 7800"},
        {"wide", 7, [](comdat *c, const char *n) { iv_comdat_graba_cadena_unicode(c, n, L"x"); }, "04000000 78000000"},
        {"hwnd", 8, [](comdat *c, const char *n) { iv_comdat_graba_hwnd(c, n, hwnd_de(0x1122334455667788)); },
         "8877665544332211"},
        {"texts", 9, [](comdat *c, const char *n) { iv_comdat_graba_arr_cadenas_ansi(c, n, ANSI, 2); },
         "02000000 1A000000 20000000 02000000 7800 00000000"},
        {"wide texts", 10, [](comdat *c, const char *n) { iv_comdat_graba_arr_cadenas_unicode(c, n, ANCHOS, 1); },
         "12000000 04000000 78000000"},
    };
    return TODOS_ELLOS;
}

inline void anyade(bytes *b, const bytes &otros)
{
    b->insert(b->end(), otros.begin(), otros.end());
}

#endif
