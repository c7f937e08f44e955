// The system calls of the heap, one by one and in order: what the very first operation does, what each one
// does after it, and what the close does.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/proceso_propio.h"
#include "comun/traza_captura.h"

#include "iv_mem.h"
#include "iv_mem_apoyo.h"

IMPORTACION(CloseHandle);
IMPORTACION(CreateMutexA);
IMPORTACION(HeapAlloc);
IMPORTACION(HeapCreate);
IMPORTACION(HeapDestroy);
IMPORTACION(HeapFree);
IMPORTACION(HeapReAlloc);
IMPORTACION(HeapValidate);
IMPORTACION(ReleaseMutex);
IMPORTACION(WaitForSingleObject);

namespace {

using llamadas = std::vector<std::string>;

llamadas s_llamadas; // of the thread that is watched
DWORD s_hilo;
HANDLE s_cerrojo; // what the library got for the lock's name

void apunta(const std::string &llamada)
{
    if (GetCurrentThreadId() == s_hilo)
        s_llamadas.push_back(llamada);
}

std::string nombre_de(HANDLE mutex)
{
    return mutex == nullptr ? "null" : mutex == s_cerrojo ? "lock" : "?";
}

// Those of the lock, with what they answer where it tells something.
decltype(&CloseHandle) s_CloseHandle = __imp_CloseHandle;
decltype(&CreateMutexA) s_CreateMutexA = __imp_CreateMutexA;
decltype(&ReleaseMutex) s_ReleaseMutex = __imp_ReleaseMutex;
decltype(&WaitForSingleObject) s_WaitForSingleObject = __imp_WaitForSingleObject;

HANDLE WINAPI apunta_CreateMutexA(LPSECURITY_ATTRIBUTES seguridad, BOOL tomado, LPCSTR nombre)
{
    apunta(std::string("create ") + nombre + (seguridad != nullptr || tomado ? " otherwise" : ""));
    return s_cerrojo = s_CreateMutexA(seguridad, tomado, nombre);
}

DWORD WINAPI apunta_WaitForSingleObject(HANDLE objeto, DWORD ms)
{
    apunta("wait " + nombre_de(objeto) + (ms == INFINITE ? "" : " for a while"));
    return s_WaitForSingleObject(objeto, ms);
}

BOOL WINAPI apunta_ReleaseMutex(HANDLE mutex)
{
    BOOL hecho = s_ReleaseMutex(mutex);
    apunta("release " + nombre_de(mutex) + (hecho ? "" : " in vain") + (s_LocalHeap == nullptr ? ", no heap" : ""));
    return hecho;
}

BOOL WINAPI apunta_CloseHandle(HANDLE manejador)
{
    apunta("close " + nombre_de(manejador));
    return s_CloseHandle(manejador);
}

// Those of the heap.
decltype(&HeapAlloc) s_HeapAlloc = __imp_HeapAlloc;
decltype(&HeapCreate) s_HeapCreate = __imp_HeapCreate;
decltype(&HeapDestroy) s_HeapDestroy = __imp_HeapDestroy;
decltype(&HeapFree) s_HeapFree = __imp_HeapFree;
decltype(&HeapReAlloc) s_HeapReAlloc = __imp_HeapReAlloc;

HANDLE WINAPI apunta_HeapCreate(DWORD opciones, SIZE_T inicial, SIZE_T maximo)
{
    apunta("HeapCreate");
    return s_HeapCreate(opciones, inicial, maximo);
}

BOOL WINAPI apunta_HeapDestroy(HANDLE heap)
{
    apunta("HeapDestroy");
    return s_HeapDestroy(heap);
}

void *WINAPI apunta_HeapAlloc(HANDLE heap, DWORD opciones, SIZE_T tam)
{
    apunta("HeapAlloc " + std::to_string(tam));
    return s_HeapAlloc(heap, opciones, tam);
}

void *WINAPI apunta_HeapReAlloc(HANDLE heap, DWORD opciones, void *memlocal, SIZE_T tam)
{
    apunta("HeapReAlloc " + std::to_string(tam));
    return s_HeapReAlloc(heap, opciones, memlocal, tam);
}

BOOL WINAPI apunta_HeapFree(HANDLE heap, DWORD opciones, void *memlocal)
{
    apunta(memlocal == nullptr ? "HeapFree null" : "HeapFree");
    return s_HeapFree(heap, opciones, memlocal);
}

BOOL WINAPI apunta_HeapValidate(HANDLE, DWORD, LPCVOID)
{
    apunta("HeapValidate");
    return TRUE;
}

// The pieces of the trace that name an operation.
LONG CALLBACK apunta_traza(EXCEPTION_POINTERS *excepcion)
{
    const EXCEPTION_RECORD *r = excepcion->ExceptionRecord;
    if (r->ExceptionCode != 0x40010006)
        return EXCEPTION_CONTINUE_SEARCH;
    std::string pieza(reinterpret_cast<const char *>(r->ExceptionInformation[1]));
    for (const char *cabeza : {"HeapCreate: ", "HeapDestroy: ", "Antes de ", "Despues de ", "i_"})
        if (pieza.rfind(cabeza, 0) == 0)
            apunta("\"" + pieza + "\"");
    return EXCEPTION_CONTINUE_SEARCH;
}

llamadas llamadas_de(const std::function<void()> &trabajo)
{
    importacion_cambiada<decltype(&CloseHandle)> cierra(__imp_CloseHandle, apunta_CloseHandle);
    importacion_cambiada<decltype(&CreateMutexA)> crea(__imp_CreateMutexA, apunta_CreateMutexA);
    importacion_cambiada<decltype(&ReleaseMutex)> suelta(__imp_ReleaseMutex, apunta_ReleaseMutex);
    importacion_cambiada<decltype(&WaitForSingleObject)> espera(__imp_WaitForSingleObject, apunta_WaitForSingleObject);
    importacion_cambiada<decltype(&HeapAlloc)> reserva(__imp_HeapAlloc, apunta_HeapAlloc);
    importacion_cambiada<decltype(&HeapCreate)> nace(__imp_HeapCreate, apunta_HeapCreate);
    importacion_cambiada<decltype(&HeapDestroy)> muere(__imp_HeapDestroy, apunta_HeapDestroy);
    importacion_cambiada<decltype(&HeapFree)> libera(__imp_HeapFree, apunta_HeapFree);
    importacion_cambiada<decltype(&HeapReAlloc)> cambia(__imp_HeapReAlloc, apunta_HeapReAlloc);
    importacion_cambiada<decltype(&HeapValidate)> valida(__imp_HeapValidate, apunta_HeapValidate);
    void *oyente = AddVectoredExceptionHandler(1, apunta_traza);
    s_llamadas.clear();
    s_hilo = GetCurrentThreadId();
    trabajo();
    s_hilo = 0;
    RemoveVectoredExceptionHandler(oyente);
    return s_llamadas;
}

// What every first operation begins with. Nobody has made the lock yet, so the wait for it is a wait for
// nothing.
llamadas primeras(const llamadas &operacion)
{
    llamadas todas = {"wait null", std::string("create ") + CERROJO, "wait lock", "HeapCreate", "release lock"};
    todas.insert(todas.end(), operacion.begin(), operacion.end());
    todas.push_back("release lock in vain");
    return todas;
}

} // namespace

// ---- Without the trace

TEST(iv_mem_orden, primera_operacion_espera_a_nadie_y_suelta_el_cerrojo_dos_veces)
{
    desactiva_traza();
    static void *memlocal;
    iv_mem_cierra();
    EXPECT_EQ(llamadas_de([] { memlocal = i_malloc(24); }), primeras({"HeapAlloc 24"}));

    iv_mem_cierra();
    EXPECT_EQ(llamadas_de([] { i_free(nullptr); }), primeras({"HeapFree null"}));

    iv_mem_cierra();
    EXPECT_EQ(llamadas_de([] { memlocal = i_realloc(nullptr, 9); }), primeras({"HeapReAlloc 9"}));
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_EQ(memlocal, nullptr) << "there was no block to change";
}

TEST(iv_mem_orden, cada_operacion_es_una_espera_una_llamada_al_heap_y_una_suelta)
{
    desactiva_traza();
    static void *memlocal;
    iv_mem_cierra();
    llamadas_de([] { i_free(i_malloc(1)); });

    EXPECT_EQ(llamadas_de([] { memlocal = i_malloc(24); }), (llamadas{"wait lock", "HeapAlloc 24", "release lock"}));
    EXPECT_EQ(llamadas_de([] { memlocal = i_realloc(memlocal, 48); }),
              (llamadas{"wait lock", "HeapReAlloc 48", "release lock"}));
    EXPECT_EQ(llamadas_de([] { i_free(memlocal); }), (llamadas{"wait lock", "HeapFree", "release lock"}));
}

TEST(iv_mem_orden, cierre_destruye_el_heap_y_despues_suelta_y_cierra_el_cerrojo)
{
    desactiva_traza();
    iv_mem_cierra();
    llamadas_de([] { i_free(i_malloc(1)); });

    EXPECT_EQ(llamadas_de(iv_mem_cierra), (llamadas{"HeapDestroy", "release lock in vain, no heap", "close lock"}));
    EXPECT_EQ(llamadas_de(iv_mem_cierra), llamadas{});
}

TEST(iv_mem_orden, sin_heap_la_operacion_siguiente_lo_intenta_de_nuevo_con_el_mismo_cerrojo)
{
    desactiva_traza();
    iv_mem_cierra();
    {
        importacion_cambiada<decltype(&HeapCreate)> cambio(__imp_HeapCreate,
                                                           [](DWORD, SIZE_T, SIZE_T) -> HANDLE { return nullptr; });
        EXPECT_EQ(i_malloc(10), nullptr);
        EXPECT_INFORME("iv_mem", "(memlocal) != 0");
        uint32_t antes = cuenta_manejadores();
        EXPECT_EQ(i_malloc(10), nullptr);
        EXPECT_INFORME("iv_mem", "(memlocal) != 0");
        EXPECT_EQ(cuenta_manejadores(), antes) << "one lock for both";
    }
    EXPECT_EQ(s_LocalHeap, nullptr);

    uint32_t antes = cuenta_manejadores();
    void *memlocal = i_malloc(10);

    ASSERT_NE(memlocal, nullptr);
    EXPECT_EQ(cuenta_manejadores(), antes) << "and for the third";
    EXPECT_TRUE(cerrojo_queda_libre());
    i_free(memlocal);
}

// ---- What is built on it

TEST(iv_mem_orden, concatena_reserva_el_texto_nuevo_antes_de_liberar_el_viejo)
{
    desactiva_traza();
    static char *cadena;
    iv_mem_cierra();
    llamadas_de([] { cadena = iv_mem_duplica_cadena("abc"); });
    const llamadas NUEVA_Y_VIEJA = {"wait lock", "HeapAlloc 6", "release lock",
                                    "wait lock", "HeapFree",    "release lock"};

    EXPECT_EQ(llamadas_de([] { iv_mem_concatena(&cadena, "de"); }), NUEVA_Y_VIEJA);
    EXPECT_EQ(llamadas_de([] { iv_mem_concatena(&cadena, ""); }), NUEVA_Y_VIEJA) << "every append";
    iv_mem_libera(&cadena);

    EXPECT_EQ(llamadas_de([] { iv_mem_concatena(&cadena, "x"); }),
              (llamadas{"wait lock", "HeapAlloc 2", "release lock", "wait lock", "HeapFree null", "release lock"}))
        << "a null text is freed as well";
    iv_mem_libera(&cadena);
}

// ---- With the trace

TEST(iv_mem_orden, traza_y_comprobaciones_rodean_cada_llamada_al_heap)
{
    if (!en_proceso_trazado())
        return;
    static void *memlocal;

    EXPECT_EQ(llamadas_de([] { memlocal = i_malloc(24); }),
              (llamadas{"wait null", "create ivrexa_iv_mem", "wait lock", "HeapCreate", "release lock",
                        "\"HeapCreate: \"", "HeapValidate", "HeapAlloc 24", "\"i_malloc(\"",
                        "\"Despues de i_malloc: \"", "HeapValidate", "release lock in vain"}));
    EXPECT_EQ(llamadas_de([] { memlocal = i_realloc(memlocal, 48); }),
              (llamadas{"wait lock", "HeapValidate", "\"Antes de i_realloc: \"", "HeapReAlloc 48", "HeapValidate",
                        "\"i_realloc(\"", "\"Despues de i_realloc: \"", "release lock"}));
    EXPECT_EQ(llamadas_de([] { i_free(memlocal); }),
              (llamadas{"wait lock", "HeapValidate", "\"Antes de i_free: \"", "\"i_free(\"", "HeapFree", "HeapValidate",
                        "release lock"}));
    EXPECT_EQ(llamadas_de(iv_mem_cierra),
              (llamadas{"\"HeapDestroy: \"", "HeapDestroy", "release lock in vain, no heap", "close lock"}));
}
