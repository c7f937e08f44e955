// A report's box lets the host run: what it asks of the heap from inside the box, on the same thread or on
// another.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "comun/hilo.h"
#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/papel.h"

#include "iv_mem.h"
#include "iv_mem_apoyo.h"

IMPORTACION(HeapAlloc);
IMPORTACION(HeapCreate);

namespace {

std::function<void()> s_anfitrion; // what it does in the first box
uint32_t s_num_cajas, s_num_heaps;
decltype(&HeapCreate) s_HeapCreate = __imp_HeapCreate;

int WINAPI caja(HWND hwnd, LPCSTR texto, LPCSTR titulo, UINT estilo)
{
    if (++s_num_cajas == 1)
        s_anfitrion();
    return graba_informe(hwnd, texto, titulo, estilo);
}

HANDLE WINAPI cuenta_heaps(DWORD opciones, SIZE_T inicial, SIZE_T maximo)
{
    s_num_heaps++;
    return s_HeapCreate(opciones, inicial, maximo);
}

// The first allocation of a process in which an event has the name of the lock.
class heap_con_el_nombre_ocupado {
public:
    heap_con_el_nombre_ocupado()
    {
        ocupante = CreateEventA(nullptr, FALSE, FALSE, CERROJO);
        EXPECT_NE(ocupante, nullptr) << "another program has the lock";
        ventana->MessageBoxA = caja;
    }

    void *reserva(std::function<void()> en_la_caja)
    {
        s_anfitrion = std::move(en_la_caja);
        void *memlocal = i_malloc(100);
        memset(memlocal, 0x5a, 100);
        return memlocal;
    }

    void libera_nombre() { CloseHandle(ocupante); }

    HANDLE ocupante;

private:
    ventana_cambiada ventana;
    importacion_cambiada<decltype(&HeapCreate)> m_cuenta{__imp_HeapCreate, cuenta_heaps};
};

void comprueba_bloque(void *memlocal)
{
    ASSERT_NE(memlocal, nullptr);
    EXPECT_TRUE(HeapValidate(s_LocalHeap, 0, memlocal)) << "a block of another heap";
    i_free(memlocal);
}

} // namespace

// ---- The report of the lock, while the heap is made. Roles: a thread that hangs would hang the test. The
// process of the test itself closes its heap first, which has the lock open.

PAPEL(reserva_dentro_de_la_caja)
{
    heap_con_el_nombre_ocupado heap;
    void *dentro = nullptr;
    yo.di("LISTO");

    void *fuera = heap.reserva([&] {
        dentro = i_malloc(200);
        comprueba_bloque(i_realloc(i_malloc(1), 5000));
    });

    EXPECT_EQ(s_num_heaps, 1u);
    EXPECT_EQ(s_num_cajas, 2u) << "the first call of each depth tells of the lock, and nothing later";
    comprueba_bloque(dentro);
    comprueba_bloque(fuera);
    comprueba_bloque(i_malloc(1));
    EXPECT_EQ(bloques_vivos(), 0u);
    iv_mem_cierra();
    return 0;
}

TEST(iv_mem_caja, anfitrion_que_reserva_dentro_de_la_caja_del_cerrojo_no_se_atasca)
{
    iv_mem_cierra();
    papel otro = arranca_papel("reserva_dentro_de_la_caja");
    EXPECT_INFORME_DE(otro, "iv_mutex", "(mutex) != 0");
    EXPECT_INFORME_DE(otro, "iv_mutex", "(mutex) != 0");
    EXPECT_EQ(otro.espera_fin(20000), 0u);
}

PAPEL(reserva_en_otro_hilo_durante_la_caja)
{
    heap_con_el_nombre_ocupado heap;
    std::unique_ptr<hilo> antes, despues;
    yo.di("LISTO");

    void *fuera = heap.reserva([&] {
        antes = std::make_unique<hilo>([] { comprueba_bloque(i_malloc(10)); });
        comprueba_bloque(i_malloc(200));
        despues = std::make_unique<hilo>([] { comprueba_bloque(i_malloc(10)); });
        EXPECT_TRUE(despues->acaba(10000)) << "there is a heap by now";
    });

    EXPECT_TRUE(antes->acaba(10000)) << "it came while there was none";
    EXPECT_EQ(s_num_heaps, 1u);
    comprueba_bloque(fuera);
    return 0;
}

TEST(iv_mem_caja, otro_hilo_que_reserva_durante_la_caja_tampoco_se_atasca)
{
    iv_mem_cierra();
    papel otro = arranca_papel("reserva_en_otro_hilo_durante_la_caja");
    EXPECT_INFORME_DE(otro, "iv_mutex", "(mutex) != 0");
    EXPECT_INFORME_DE(otro, "iv_mutex", "(mutex) != 0");
    EXPECT_EQ(otro.espera_fin(30000), 0u);
}

PAPEL(cierra_dentro_de_la_caja)
{
    heap_con_el_nombre_ocupado heap;
    yo.di("LISTO");

    void *fuera = heap.reserva([&] {
        iv_mem_cierra(); // there is nothing to close yet
        i_malloc(200);
        iv_mem_cierra();
    });

    EXPECT_EQ(s_num_heaps, 2u);
    comprueba_bloque(fuera);
    return 0;
}

TEST(iv_mem_caja, anfitrion_que_cierra_dentro_de_la_caja_recibe_un_heap_nuevo)
{
    iv_mem_cierra();
    papel otro = arranca_papel("cierra_dentro_de_la_caja");
    EXPECT_INFORME_DE(otro, "iv_mutex", "(mutex) != 0");
    EXPECT_INFORME_DE(otro, "iv_mutex", "(mutex) != 0");
    EXPECT_EQ(otro.espera_fin(20000), 0u);
}

// The host gives the name back in the box: the call from inside makes the lock, and it is the process's
// from then on.
PAPEL(libera_el_nombre_dentro_de_la_caja)
{
    void *dentro = nullptr;
    uint32_t antes = 0;
    heap_con_el_nombre_ocupado heap;
    yo.di("LISTO");

    void *fuera = heap.reserva([&] {
        heap.libera_nombre();
        antes = cuenta_manejadores();
        dentro = i_malloc(200);
    });

    EXPECT_EQ(s_num_cajas, 1u);
    EXPECT_EQ(s_num_heaps, 1u);
    EXPECT_EQ(cuenta_manejadores(), antes + 1) << "the lock, once";
    EXPECT_TRUE(cerrojo_queda_libre());
    {
        mutex_crudo otro_programa(CERROJO);
        EXPECT_TRUE(otro_programa.retiene(10000));
        hilo mio([&] { comprueba_bloque(dentro); });
        EXPECT_FALSE(mio.acaba(60)) << "it did not wait for the lock";
        otro_programa.suelta();
        EXPECT_TRUE(mio.acaba(10000));
    }
    comprueba_bloque(fuera);
    EXPECT_TRUE(cerrojo_queda_libre());
    antes = cuenta_manejadores();
    iv_mem_cierra();
    EXPECT_EQ(cuenta_manejadores(), antes - 1);
    return 0;
}

TEST(iv_mem_caja, cerrojo_que_se_crea_dentro_de_la_caja_es_el_que_queda)
{
    iv_mem_cierra();
    papel otro = arranca_papel("libera_el_nombre_dentro_de_la_caja");
    EXPECT_INFORME_DE(otro, "iv_mutex", "(mutex) != 0");
    EXPECT_EQ(otro.espera_fin(20000), 0u);
}

// ---- The report of a null block, with the lock held

TEST(iv_mem_caja, anfitrion_que_reserva_dentro_de_la_caja_de_un_bloque_nulo_lo_recibe)
{
    static decltype(&HeapAlloc) real = __imp_HeapAlloc;
    static bool negado;
    static void *dentro;
    i_free(i_malloc(1));
    ventana_cambiada ventana;
    ventana->MessageBoxA = caja;
    s_num_cajas = 0;
    s_anfitrion = [] { dentro = i_malloc(20); };
    importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc,
                                                      [](HANDLE heap, DWORD opciones, SIZE_T tam) -> void * {
                                                          bool primera = !negado;
                                                          negado = true;
                                                          return primera ? nullptr : real(heap, opciones, tam);
                                                      });

    EXPECT_EQ(i_malloc(10), nullptr);

    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    comprueba_bloque(dentro);
    EXPECT_TRUE(cerrojo_queda_libre());
}
