// The lock of the heap, which is every program's.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>

#include "comun/hilo.h"
#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/papel.h"

#include "iv_mem.h"
#include "iv_mem_apoyo.h"
#include "iv_mutex.h"

IMPORTACION(CreateMutexA);
IMPORTACION(HeapCreate);
IMPORTACION(WaitForSingleObject);

TEST(iv_mem, cada_operacion_espera_el_cerrojo_de_todos_los_programas)
{
    static void *bloque;
    bloque = i_malloc(1);
    mutex_crudo otro_programa(CERROJO);
    const std::function<void()> OPERACIONES[] = {
        [] { i_free(i_malloc(1)); },
        [] { bloque = i_realloc(bloque, 100); },
        [] { i_free(bloque); },
    };

    for (const auto &operacion : OPERACIONES) {
        ASSERT_TRUE(otro_programa.retiene(10000));
        hilo mio(operacion);
        EXPECT_FALSE(mio.acaba(60)) << "it did not wait for the lock";
        otro_programa.suelta();
        EXPECT_TRUE(mio.acaba(10000));
    }
    EXPECT_EQ(bloques_vivos(), 0u);
}

PAPEL(reserva_por_orden)
{
    i_free(i_malloc(1));
    yo.di("LISTO");
    yo.escucha_linea("RESERVA", 10000);
    yo.di("VOY");
    i_free(i_malloc(1));
    yo.di("HECHO");
    return 0;
}

TEST(iv_mem, heap_de_otro_proceso_espera_el_mismo_cerrojo)
{
    papel otro = arranca_papel("reserva_por_orden");
    iv_mem_cierra(); // we have no heap here: only its lock, held
    iv_mutex_heap_crea_y_bloquea();
    otro.di("RESERVA");
    otro.espera_linea("VOY", 10000);

    EXPECT_FALSE(otro.busca_linea("HECHO", 100));
    iv_mutex_heap_destruye();

    EXPECT_EQ(otro.espera_linea("HECHO", 10000), "HECHO");
}

// A holder that died does not stop the others.
TEST(iv_mem, cerrojo_abandonado_se_toma)
{
    i_free(i_malloc(1));
    mutex_crudo otro_programa(CERROJO);
    ASSERT_TRUE(otro_programa.retiene(10000));
    otro_programa.abandona();

    i_free(i_malloc(1));

    EXPECT_TRUE(cerrojo_queda_libre());
}

TEST(iv_mem, cerrojo_que_no_se_puede_crear_se_informa_y_el_heap_funciona)
{
    iv_mem_cierra();
    void *memlocal;
    {
        importacion_cambiada<decltype(&CreateMutexA)> cambio(
            __imp_CreateMutexA, [](LPSECURITY_ATTRIBUTES, BOOL, LPCSTR) -> HANDLE { return nullptr; });
        memlocal = i_malloc(10);
    }

    EXPECT_INFORME("iv_mutex", "(mutex) != 0");
    ASSERT_NE(memlocal, nullptr);
    i_free(memlocal);
    iv_mem_cierra();
}

namespace {

std::atomic<uint32_t> s_num_heaps, s_num_cerrojos;
decltype(&HeapCreate) s_HeapCreate;
decltype(&CreateMutexA) s_CreateMutexA;

HANDLE WINAPI cuenta_heap(DWORD opciones, SIZE_T inicial, SIZE_T maximo)
{
    s_num_heaps++;
    return s_HeapCreate(opciones, inicial, maximo);
}

HANDLE WINAPI cuenta_cerrojo(LPSECURITY_ATTRIBUTES seguridad, BOOL tomado, LPCSTR nombre)
{
    s_num_cerrojos += strcmp(nombre, CERROJO) == 0;
    return s_CreateMutexA(seguridad, tomado, nombre);
}

} // namespace

// It runs as a role because threads that hang would hold the lock of all programs.
PAPEL(primeras_reservas)
{
    s_HeapCreate = __imp_HeapCreate;
    s_CreateMutexA = __imp_CreateMutexA;
    importacion_cambiada<decltype(&HeapCreate)> heap(__imp_HeapCreate, cuenta_heap);
    importacion_cambiada<decltype(&CreateMutexA)> cerrojo(__imp_CreateMutexA, cuenta_cerrojo);
    yo.di("LISTO");
    for (uint32_t ronda = 1; ronda <= 100; ronda++) {
        std::atomic<uint32_t> llegados = 0;
        auto reserva = [&] {
            llegados++;
            while (llegados < 2)
                SwitchToThread();
            void *memlocal = i_malloc(64);
            memset(memlocal, 1, 64);
            i_free(memlocal);
        };
        hilo uno(reserva), otro(reserva);
        EXPECT_TRUE(uno.acaba(10000) && otro.acaba(10000)) << "round " << ronda;
        EXPECT_EQ(s_num_heaps, ronda);
        EXPECT_EQ(s_num_cerrojos, ronda);
        if (::testing::Test::HasFailure())
            ExitProcess(1);
        iv_mem_cierra();
    }
    return 0;
}

TEST(iv_mem, primera_reserva_de_dos_hilos_a_la_vez_ocurre_una_vez)
{
    papel otro = arranca_papel("primeras_reservas");
    EXPECT_EQ(otro.espera_fin(60000), 0u);
}

namespace {

DWORD s_hilo_primero;
std::atomic<uint32_t> s_fase; // 1: the second thread may allocate; 2: it has been to the lock
decltype(&WaitForSingleObject) s_WaitForSingleObject;

// The first thread has made the lock and is about to take it. Here it lets the second one overtake it.
DWORD WINAPI espera_adelantada(HANDLE objeto, DWORD ms)
{
    if (GetCurrentThreadId() == s_hilo_primero && objeto != nullptr && s_fase == 0) {
        s_fase = 1;
        espera_hasta([] { return s_fase == 2; }, 5000);
        Sleep(50); // the second one blocks behind its wait, where nothing can be seen of it
    }
    DWORD resultado = s_WaitForSingleObject(objeto, ms);
    if (GetCurrentThreadId() != s_hilo_primero && ms == INFINITE && s_fase == 1)
        s_fase = 2;
    return resultado;
}

} // namespace

PAPEL(primera_reserva_adelantada)
{
    s_WaitForSingleObject = __imp_WaitForSingleObject;
    importacion_cambiada<decltype(&WaitForSingleObject)> cambio(__imp_WaitForSingleObject, espera_adelantada);
    hilo primero([] {
        s_hilo_primero = GetCurrentThreadId();
        i_free(i_malloc(1));
    });
    hilo segundo([] {
        espera_hasta([] { return s_fase == 1; }, 5000);
        i_free(i_malloc(1));
    });
    yo.di("LISTO");
    bool acaban = primero.acaba(5000) && segundo.acaba(5000);
    yo.di(acaban ? "ACABAN" : "ATASCADOS");
    ExitProcess(0);
}

// The lock is known to other threads before the thread that made it holds it, or not: nobody may hang.
TEST(iv_mem, hilo_que_se_adelanta_en_la_primera_reserva_no_atasca_a_nadie)
{
    papel otro = arranca_papel("primera_reserva_adelantada");
    EXPECT_EQ(otro.espera_linea("A", 30000), "ACABAN");
}
