// A heap that has no memory left, gives NULL, or raises.
#include <gtest/gtest.h>

#include <cstring>

#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/papel.h"

#include "iv_mem.h"
#include "iv_mem_apoyo.h"

IMPORTACION(HeapAlloc);
IMPORTACION(HeapFree);
IMPORTACION(HeapReAlloc);

// libstdc++ makes an empty word of it.
#ifdef __try
#undef __try
#endif

namespace {

DWORD s_excepcion;

int apunta_excepcion(const EXCEPTION_POINTERS *excepcion)
{
    s_excepcion = excepcion->ExceptionRecord->ExceptionCode;
    return EXCEPTION_EXECUTE_HANDLER;
}

// The code of the structured exception that `trabajo` raises; 0 for none.
DWORD excepcion_de(void (*trabajo)())
{
    s_excepcion = 0;
    __try {
        trabajo();
    } __except (apunta_excepcion(GetExceptionInformation())) {
    }
    return s_excepcion;
}

void *WINAPI reserva_nada(HANDLE, DWORD, SIZE_T)
{
    return nullptr;
}

// More than a machine has: the library's own heap raises what it raises without memory. Wine 8 forgets that
// the heap was made to raise and wants to be told in the call.
const SIZE_T TAM_IMPOSIBLE = SIZE_T(1) << 40;
decltype(&HeapAlloc) s_HeapAlloc;
decltype(&HeapReAlloc) s_HeapReAlloc;

void *WINAPI reserva_imposible(HANDLE heap, DWORD opciones, SIZE_T)
{
    return s_HeapAlloc(heap, opciones | HEAP_GENERATE_EXCEPTIONS, TAM_IMPOSIBLE);
}

void *WINAPI cambia_imposible(HANDLE heap, DWORD opciones, void *memlocal, SIZE_T)
{
    return s_HeapReAlloc(heap, opciones | HEAP_GENERATE_EXCEPTIONS, memlocal, TAM_IMPOSIBLE);
}

} // namespace

TEST(iv_mem, resultado_nulo_del_heap_se_informa_y_se_devuelve)
{
    i_free(i_malloc(1));
    {
        importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, reserva_nada);
        EXPECT_EQ(i_malloc(10), nullptr);
    }
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");

    EXPECT_EQ(i_realloc(nullptr, 10), nullptr); // the heap changes no null block
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_TRUE(cerrojo_queda_libre());
}

// Sizes have no sign: the largest one reaches the heap as it is.
TEST(iv_mem, tamanyo_mayor_de_32_bits_llega_entero_al_heap)
{
    static SIZE_T pedido, cambiado;
    i_free(i_malloc(1));
    importacion_cambiada<decltype(&HeapAlloc)> reserva(__imp_HeapAlloc, [](HANDLE, DWORD, SIZE_T tam) -> void * {
        pedido = tam;
        return nullptr;
    });
    importacion_cambiada<decltype(&HeapReAlloc)> cambia(__imp_HeapReAlloc,
                                                        [](HANDLE, DWORD, void *, SIZE_T tam) -> void * {
                                                            cambiado = tam;
                                                            return nullptr;
                                                        });

    EXPECT_EQ(iv_mem_malloc(4294967295u), nullptr);
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_EQ(iv_mem_realloc(nullptr, 4294967295u), nullptr);
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");

    EXPECT_EQ(pedido, 4294967295u);
    EXPECT_EQ(cambiado, 4294967295u);
}

PAPEL(reserva_y_libera)
{
    i_free(i_malloc(100));
    yo.di("LISTO");
    return 0;
}

// Memory that runs out raises through the library to its caller; the lock is every program's and must be free
// then.
TEST(iv_mem, excepcion_del_heap_sale_y_deja_el_cerrojo_libre_para_otro_proceso)
{
    i_free(i_malloc(1));
    s_HeapAlloc = __imp_HeapAlloc;
    {
        importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, reserva_imposible);
        EXPECT_EQ(excepcion_de([] { i_malloc(10); }), static_cast<DWORD>(STATUS_NO_MEMORY));
    }

    EXPECT_TRUE(cerrojo_queda_libre());
    EXPECT_EQ(arranca_papel("reserva_y_libera").espera_fin(10000), 0u);
    i_free(i_malloc(1));
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_mem, excepcion_al_cambiar_de_tamanyo_deja_el_bloque_y_el_cerrojo_libre)
{
    static void *memlocal;
    memlocal = i_malloc(3);
    memcpy(memlocal, "ab", 3);
    s_HeapReAlloc = __imp_HeapReAlloc;
    {
        importacion_cambiada<decltype(&HeapReAlloc)> cambio(__imp_HeapReAlloc, cambia_imposible);
        EXPECT_EQ(excepcion_de([] { i_realloc(memlocal, 10); }), static_cast<DWORD>(STATUS_NO_MEMORY));
    }

    EXPECT_TRUE(cerrojo_queda_libre());
    EXPECT_EQ(arranca_papel("reserva_y_libera").espera_fin(10000), 0u);
    EXPECT_STREQ(static_cast<char *>(memlocal), "ab");
    i_free(memlocal);
}

namespace {

BOOL WINAPI libera_con_excepcion(HANDLE, DWORD, void *)
{
    RaiseException(static_cast<DWORD>(STATUS_ACCESS_VIOLATION), 0, 0, nullptr);
    return FALSE;
}

} // namespace

PAPEL(libera_un_bloque_roto)
{
    i_free(i_malloc(1));
    importacion_cambiada<decltype(&HeapFree)> cambio(__imp_HeapFree, libera_con_excepcion);
    yo.di("LISTO");
    EXPECT_EQ(excepcion_de([] { i_free(nullptr); }), static_cast<DWORD>(STATUS_ACCESS_VIOLATION));
    yo.di(cerrojo_queda_libre() ? "LIBRE" : "TOMADO");
    yo.escucha(30000);
    return 0;
}

// A heap that trips over a block raises when it frees, too. A role, because it lives on with what it holds.
TEST(iv_mem, excepcion_al_liberar_deja_el_cerrojo_libre)
{
    papel otro = arranca_papel("libera_un_bloque_roto");
    EXPECT_EQ(otro.espera_linea("", 20000), "LIBRE") << "the lock of the heap is still held";
}
