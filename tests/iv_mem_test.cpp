// The private heap: its life, its blocks, and the checked forms.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "comun/importacion.h"
#include "comun/informes_modulo.h"

#include "iv_mem.h"
#include "iv_mem_apoyo.h"

IMPORTACION(HeapAlloc);
IMPORTACION(HeapCreate);
IMPORTACION(HeapFree);
IMPORTACION(HeapReAlloc);

namespace {

decltype(&HeapAlloc) s_HeapAlloc;
decltype(&HeapReAlloc) s_HeapReAlloc;

} // namespace

// ---- Life of the heap

TEST(iv_mem, primera_reserva_crea_el_cerrojo_y_el_heap)
{
    iv_mem_cierra();
    ASSERT_EQ(s_LocalHeap, nullptr);

    void *memlocal = i_malloc(10);

    ASSERT_NE(s_LocalHeap, nullptr);
    EXPECT_NE(s_LocalHeap, GetProcessHeap());
    EXPECT_TRUE(HeapValidate(s_LocalHeap, 0, memlocal));
    EXPECT_TRUE(existe_mutex(CERROJO));
    EXPECT_TRUE(cerrojo_queda_libre());
    i_free(memlocal);
}

TEST(iv_mem, heap_se_pide_con_excepciones_16384_bytes_y_sin_maximo)
{
    static decltype(&HeapCreate) real = __imp_HeapCreate;
    static std::string llamada;
    iv_mem_cierra();
    importacion_cambiada<decltype(&HeapCreate)> cambio(
        __imp_HeapCreate, [](DWORD opciones, SIZE_T inicial, SIZE_T maximo) -> HANDLE {
            llamada += std::to_string(opciones) + " " + std::to_string(inicial) + " " + std::to_string(maximo) + ";";
            return real(opciones, inicial, maximo);
        });

    void *uno = i_malloc(1);
    void *dos = i_malloc(3u << 20);

    EXPECT_EQ(llamada, "4 16384 0;");
    EXPECT_EQ(tam_de(dos), 3u << 20);
    i_free(uno);
    i_free(dos);
}

TEST(iv_mem, operaciones_piden_bytes_a_cero_y_liberan_sin_opciones)
{
    static decltype(&HeapFree) real = __imp_HeapFree;
    static DWORD opciones_reserva, opciones_cambio, opciones_libera;
    s_HeapAlloc = __imp_HeapAlloc;
    s_HeapReAlloc = __imp_HeapReAlloc;
    importacion_cambiada<decltype(&HeapAlloc)> reserva(__imp_HeapAlloc,
                                                       [](HANDLE heap, DWORD opciones, SIZE_T tam) -> void * {
                                                           opciones_reserva = opciones;
                                                           return s_HeapAlloc(heap, opciones, tam);
                                                       });
    importacion_cambiada<decltype(&HeapReAlloc)> cambia(
        __imp_HeapReAlloc, [](HANDLE heap, DWORD opciones, void *memlocal, SIZE_T tam) -> void * {
            opciones_cambio = opciones;
            return s_HeapReAlloc(heap, opciones, memlocal, tam);
        });
    importacion_cambiada<decltype(&HeapFree)> libera(__imp_HeapFree,
                                                     [](HANDLE heap, DWORD opciones, void *memlocal) -> BOOL {
                                                         opciones_libera = opciones;
                                                         return real(heap, opciones, memlocal);
                                                     });

    opciones_libera = 99;
    i_free(i_realloc(i_malloc(8), 100));

    EXPECT_EQ(opciones_reserva, 8u);
    EXPECT_EQ(opciones_cambio, 8u);
    EXPECT_EQ(opciones_libera, 0u);
}

TEST(iv_mem, cierre_destruye_el_heap_y_otra_reserva_empieza_de_nuevo)
{
    i_malloc(100); // dies with the heap
    iv_mem_cierra();
    EXPECT_EQ(s_LocalHeap, nullptr);

    iv_mem_cierra(); // there is nothing left to close
    EXPECT_EQ(s_LocalHeap, nullptr);

    void *memlocal = i_malloc(100);
    ASSERT_NE(s_LocalHeap, nullptr);
    EXPECT_EQ(bloques_vivos(), 1u);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(100), bytes_de(memlocal, 100)));
    i_free(memlocal);
}

TEST(iv_mem, sesion_cerrada_no_deja_manejadores)
{
    i_free(i_malloc(1));
    iv_mem_cierra();
    uint32_t antes = cuenta_manejadores();

    i_malloc(1);
    EXPECT_EQ(cuenta_manejadores(), antes + 1) << "the lock, once";
    i_malloc(1);
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    iv_mem_cierra();

    EXPECT_EQ(cuenta_manejadores(), antes);
}

// The release of the lock at the close is a real one.
TEST(iv_mem, cierre_suelta_el_cerrojo_una_vez)
{
    i_malloc(1);
    HANDLE cerrojo = OpenMutexA(MUTEX_ALL_ACCESS, FALSE, CERROJO);
    ASSERT_EQ(WaitForSingleObject(cerrojo, 10000), WAIT_OBJECT_0);
    ASSERT_EQ(WaitForSingleObject(cerrojo, 0), WAIT_OBJECT_0);

    iv_mem_cierra();

    EXPECT_TRUE(ReleaseMutex(cerrojo)) << "the second hold is still there";
    EXPECT_FALSE(ReleaseMutex(cerrojo)) << "the first one is not";
    CloseHandle(cerrojo);
}

// ---- Blocks

TEST(iv_mem, bloque_nuevo_esta_a_cero_y_tiene_su_tamanyo)
{
    for (uint32_t tam : {0u, 1u, 7u, 16u, 4096u, 100000u}) {
        uint8_t *memlocal = static_cast<uint8_t *>(i_malloc(tam));
        ASSERT_NE(memlocal, nullptr);
        EXPECT_EQ(tam_de(memlocal), tam);
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(tam), bytes_de(memlocal, tam)));
        memset(memlocal, 0xee, tam); // the next one may get the same place
        i_free(memlocal);
    }
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_mem, bloque_cambiado_conserva_lo_suyo_y_lo_anyadido_esta_a_cero)
{
    uint8_t *memlocal = static_cast<uint8_t *>(i_malloc(5));
    memset(memlocal, 0x5a, 5);
    std::vector<uint8_t> esperados(70000);
    memset(esperados.data(), 0x5a, 5);

    for (uint32_t tam : {9u, 70000u}) {
        memlocal = static_cast<uint8_t *>(i_realloc(memlocal, tam));
        EXPECT_EQ(tam_de(memlocal), tam);
        EXPECT_TRUE(bytes_iguales({esperados.begin(), esperados.begin() + tam}, bytes_de(memlocal, tam)));
    }
    memlocal = static_cast<uint8_t *>(i_realloc(memlocal, 3));
    EXPECT_EQ(tam_de(memlocal), 3u);
    EXPECT_TRUE(bytes_iguales({0x5a, 0x5a, 0x5a}, bytes_de(memlocal, 3)));
    i_free(memlocal);
}

TEST(iv_mem, liberar_un_puntero_nulo_no_hace_nada)
{
    i_free(nullptr);
    EXPECT_SIN_INFORMES();
    EXPECT_TRUE(cerrojo_queda_libre());
}

TEST(iv_mem, envolturas_informan_de_un_tamanyo_0_y_siguen)
{
    void *uno = iv_mem_malloc(0);
    EXPECT_INFORME("iv_mem", "tam > 0");
    void *dos = iv_mem_calloc(0, 8);
    EXPECT_INFORME("iv_mem", "tam > 0");
    void *tres = iv_mem_calloc(8, 0);
    EXPECT_INFORME("iv_mem", "tam > 0");
    void *cuatro = iv_mem_realloc(i_malloc(10), 0);
    EXPECT_INFORME("iv_mem", "tam > 0");
    void *cinco = iv_mem_malloc_con_margen(0, 4);
    EXPECT_INFORME("iv_mem", "tam > 0");

    for (void *memlocal : {uno, dos, tres, cuatro}) {
        ASSERT_NE(memlocal, nullptr);
        EXPECT_EQ(tam_de(memlocal), 0u);
        i_free(memlocal);
    }
    EXPECT_EQ(tam_de(cinco), 4u);
    i_free(cinco);
}

TEST(iv_mem, envolturas_dan_lo_pedido_a_cero)
{
    void *uno = iv_mem_malloc(1);
    void *dos = iv_mem_calloc(3, 7);
    void *tres = iv_mem_malloc_con_margen(10, 4);
    memset(uno, 0x77, 1);
    uno = iv_mem_realloc(uno, 50);

    std::vector<uint8_t> esperados(50);
    esperados[0] = 0x77;
    EXPECT_TRUE(bytes_iguales(esperados, bytes_de(uno, 50)));
    EXPECT_EQ(tam_de(uno), 50u);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(21), bytes_de(dos, tam_de(dos))));
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(14), bytes_de(tres, tam_de(tres))));
    iv_mem_libera(&uno);
    iv_mem_libera(&dos);
    iv_mem_libera(&tres);
    EXPECT_EQ(bloques_vivos(), 0u);
}

// Deliberate: the product is a 32-bit one, and it is the product that is checked.
TEST(iv_mem, producto_que_da_la_vuelta_pide_lo_que_queda)
{
    void *vuelta = iv_mem_calloc(0x10000, 0x10001);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(tam_de(vuelta), 0x10000u);
    i_free(vuelta);

    vuelta = iv_mem_calloc(0x10000, 0x10000);
    EXPECT_INFORME("iv_mem", "tam > 0");
    EXPECT_EQ(tam_de(vuelta), 0u);
    i_free(vuelta);
}

TEST(iv_mem, libera_anula_el_puntero_de_quien_llama)
{
    void *memlocal = i_malloc(4);
    char *cadena = static_cast<char *>(i_malloc(4));
    wchar_t *cadena_u = static_cast<wchar_t *>(i_malloc(4));

    iv_mem_libera(&memlocal);
    iv_mem_libera_cadena(&cadena);
    iv_mem_libera_cadena_u(&cadena_u);

    EXPECT_EQ(memlocal, nullptr);
    EXPECT_EQ(cadena, nullptr);
    EXPECT_EQ(cadena_u, nullptr);
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_mem, libera_informa_de_un_puntero_nulo_y_aun_asi_lo_libera)
{
    static decltype(&HeapFree) real = __imp_HeapFree;
    static std::vector<void *> liberados;
    i_free(i_malloc(1));
    importacion_cambiada<decltype(&HeapFree)> cambio(__imp_HeapFree,
                                                     [](HANDLE heap, DWORD opciones, void *memlocal) -> BOOL {
                                                         liberados.push_back(memlocal);
                                                         return real(heap, opciones, memlocal);
                                                     });
    void *memlocal = nullptr;
    char *cadena = nullptr;
    wchar_t *cadena_u = nullptr;

    iv_mem_libera(&memlocal);
    EXPECT_INFORME("iv_mem", "*ptr != 0");
    iv_mem_libera_cadena(&cadena);
    EXPECT_INFORME("iv_mem", "*ptr != 0");
    iv_mem_libera_cadena_u(&cadena_u);
    EXPECT_INFORME("iv_mem", "*ptr != 0");

    EXPECT_EQ(memlocal, nullptr);
    EXPECT_EQ(cadena, nullptr);
    EXPECT_EQ(cadena_u, nullptr);
    EXPECT_EQ(liberados, (std::vector<void *>{nullptr, nullptr, nullptr}));
}

TEST(iv_mem, libera_informa_de_una_direccion_nula_y_no_hace_mas)
{
    static uint32_t num_liberados;
    importacion_cambiada<decltype(&HeapFree)> cambio(__imp_HeapFree, [](HANDLE, DWORD, void *) -> BOOL {
        num_liberados++;
        return TRUE;
    });

    iv_mem_libera(static_cast<void **>(nullptr));
    EXPECT_INFORME("iv_mem", "ptr != 0");
    iv_mem_libera_cadena(nullptr);
    EXPECT_INFORME("iv_mem", "ptr != 0");
    iv_mem_libera_cadena_u(nullptr);
    EXPECT_INFORME("iv_mem", "ptr != 0");

    EXPECT_EQ(num_liberados, 0u);
}
