// The private heap, its lock, its trace lines, and the text helpers.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "comun/crudo.h"
#include "comun/hilo.h"
#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/monton.h"
#include "comun/papel.h"
#include "comun/proceso_propio.h"
#include "comun/traza_captura.h"
#include "comun/util.h"

#include "iv_mem.h"
#include "iv_mutex.h"

IMPORTACION(CreateMutexA);
IMPORTACION(HeapAlloc);
IMPORTACION(HeapCreate);
IMPORTACION(HeapFree);
IMPORTACION(HeapReAlloc);
IMPORTACION(HeapSize);
IMPORTACION(HeapValidate);
IMPORTACION(WaitForSingleObject);

// libstdc++ makes an empty word of it.
#ifdef __try
#undef __try
#endif

namespace {

const char *const CERROJO = "ivrexa_iv_mem";

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

std::string en_texto(const void *direccion)
{
    return std::to_string(reinterpret_cast<uint64_t>(direccion));
}

std::vector<uint8_t> bytes_de(const void *memlocal, uint32_t num)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(memlocal);
    return {bytes, bytes + num};
}

// The line of sizes that the heap's operations trace.
std::string informacion(const char *prefijo, const void *memlocal, const std::string &tam)
{
    return std::string(prefijo) + "(Info mem=" + en_texto(memlocal) + "): tam_bytes=" + tam + "\n";
}

std::string heap_en_traza()
{
    return "[s_LocalHeap=" + en_texto(s_LocalHeap) + "] ";
}

std::string traza_de(const std::function<void()> &trabajo)
{
    captura_traza traza;
    trabajo();
    return traza.texto();
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

BOOL WINAPI heap_invalido(HANDLE, DWORD, LPCVOID)
{
    return FALSE;
}

// Nobody holds the heap's lock, or not for long: other programs of the desktop use it as well.
bool cerrojo_queda_libre()
{
    mutex_crudo cerrojo(CERROJO);
    return espera_hasta([&] { return cerrojo.libre(); }, 5000);
}

}

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
            llamada += std::to_string(opciones) + " " + std::to_string(inicial) + " " +
                       std::to_string(maximo) + ";";
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
    importacion_cambiada<decltype(&HeapAlloc)> reserva(
        __imp_HeapAlloc, [](HANDLE heap, DWORD opciones, SIZE_T tam) -> void * {
            opciones_reserva = opciones;
            return s_HeapAlloc(heap, opciones, tam);
        });
    importacion_cambiada<decltype(&HeapReAlloc)> cambia(
        __imp_HeapReAlloc, [](HANDLE heap, DWORD opciones, void *memlocal, SIZE_T tam) -> void * {
            opciones_cambio = opciones;
            return s_HeapReAlloc(heap, opciones, memlocal, tam);
        });
    importacion_cambiada<decltype(&HeapFree)> libera(
        __imp_HeapFree, [](HANDLE heap, DWORD opciones, void *memlocal) -> BOOL {
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
    i_malloc(100);              // dies with the heap
    iv_mem_cierra();
    EXPECT_EQ(s_LocalHeap, nullptr);

    iv_mem_cierra();            // there is nothing left to close
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
        memset(memlocal, 0xee, tam);        // the next one may get the same place
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
    importacion_cambiada<decltype(&HeapFree)> cambio(
        __imp_HeapFree, [](HANDLE heap, DWORD opciones, void *memlocal) -> BOOL {
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

// ---- Without memory

TEST(iv_mem, resultado_nulo_del_heap_se_informa_y_se_devuelve)
{
    i_free(i_malloc(1));
    {
        importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, reserva_nada);
        EXPECT_EQ(i_malloc(10), nullptr);
    }
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");

    EXPECT_EQ(i_realloc(nullptr, 10), nullptr);     // the heap changes no null block
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_TRUE(cerrojo_queda_libre());
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

}

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

// ---- The lock

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
    iv_mem_cierra();            // we have no heap here: only its lock, held
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

}

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
std::atomic<uint32_t> s_fase;       // 1: the second thread may allocate; 2: it has been to the lock
decltype(&WaitForSingleObject) s_WaitForSingleObject;

// The first thread has made the lock and is about to take it. Here it lets the second one overtake it.
DWORD WINAPI espera_adelantada(HANDLE objeto, DWORD ms)
{
    if (GetCurrentThreadId() == s_hilo_primero && objeto != nullptr && s_fase == 0) {
        s_fase = 1;
        espera_hasta([] { return s_fase == 2; }, 5000);
        Sleep(50);      // the second one blocks behind its wait, where nothing can be seen of it
    }
    DWORD resultado = s_WaitForSingleObject(objeto, ms);
    if (GetCurrentThreadId() != s_hilo_primero && ms == INFINITE && s_fase == 1)
        s_fase = 2;
    return resultado;
}

}

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

// ---- The trace of the heap

TEST(iv_mem_traza, reserva_escribe_su_linea_y_la_de_informacion)
{
    if (!en_proceso_trazado())
        return;
    i_free(i_malloc(1));
    void *memlocal = nullptr;

    std::string traza = traza_de([&] { memlocal = i_malloc(24); });

    EXPECT_EQ(traza, heap_en_traza() + "i_malloc(24): memlocal = " + en_texto(memlocal) + "\n" +
                         informacion("Despues de i_malloc: ", memlocal, "24"));
}

TEST(iv_mem_traza, linea_de_reserva_llega_en_sus_piezas)
{
    if (!en_proceso_trazado())
        return;
    i_free(i_malloc(1));
    captura_traza traza;
    void *memlocal = i_malloc(24);

    const char *const ESPERADAS[] = {"[s_LocalHeap=", "<heap>", "] ", "i_malloc(",
                                     "24", "): memlocal = ", "<mem>", "\n"};
    ASSERT_GE(traza.piezas().size(), std::size(ESPERADAS));
    for (size_t i = 0; i < std::size(ESPERADAS); i++) {
        std::string esperada = ESPERADAS[i];
        if (esperada == "<heap>")
            esperada = en_texto(s_LocalHeap);
        if (esperada == "<mem>")
            esperada = en_texto(memlocal);
        EXPECT_EQ(traza.piezas()[i].texto, esperada);
    }
    i_free(memlocal);
}

TEST(iv_mem_traza, tamanyo_0_no_se_escribe)
{
    if (!en_proceso_trazado())
        return;
    i_free(i_malloc(1));
    void *memlocal = nullptr;

    std::string traza = traza_de([&] { memlocal = i_malloc(0); });

    EXPECT_EQ(traza, heap_en_traza() + "i_malloc(): memlocal = " + en_texto(memlocal) + "\n" +
                         informacion("Despues de i_malloc: ", memlocal, "0"));
}

TEST(iv_mem_traza, cambio_de_tamanyo_cuenta_el_bloque_viejo_y_el_nuevo)
{
    if (!en_proceso_trazado())
        return;
    void *viejo = i_malloc(10);
    void *nuevo = nullptr;

    std::string traza = traza_de([&] { nuevo = i_realloc(viejo, 5000); });
    EXPECT_EQ(traza, informacion("Antes de i_realloc: ", viejo, "10") + heap_en_traza() + "i_realloc(" +
                         en_texto(viejo) + ", 5000) -> memlocal = " + en_texto(nuevo) + "\n" +
                         informacion("Despues de i_realloc: ", nuevo, "5000"));

    viejo = nuevo;
    traza = traza_de([&] { nuevo = i_realloc(viejo, 0); });
    EXPECT_EQ(traza, informacion("Antes de i_realloc: ", viejo, "5000") + heap_en_traza() + "i_realloc(" +
                         en_texto(viejo) + ", 0) -> memlocal = " + en_texto(nuevo) + "\n" +
                         informacion("Despues de i_realloc: ", nuevo, "0"))
        << "a size of 0 is left out of the line of i_malloc alone";
}

TEST(iv_mem_traza, liberacion_cuenta_el_bloque_antes_de_liberarlo)
{
    if (!en_proceso_trazado())
        return;
    void *memlocal = i_malloc(10);

    std::string traza = traza_de([&] { i_free(memlocal); });

    EXPECT_EQ(traza, informacion("Antes de i_free: ", memlocal, "10") + heap_en_traza() +
                         "i_free(): memlocal = " + en_texto(memlocal) + "\n");
}

TEST(iv_mem_traza, liberacion_de_un_puntero_nulo_tambien_se_escribe)
{
    if (!en_proceso_trazado())
        return;
    i_free(i_malloc(1));

    std::string traza = traza_de([] { i_free(nullptr); });

    EXPECT_EQ(traza.rfind("Antes de i_free: (Info mem=0): tam_bytes=", 0), 0u) << traza;
    std::string cola = "\n" + heap_en_traza() + "i_free(): memlocal = 0\n";
    EXPECT_EQ(traza.substr(traza.find('\n')), cola);
}

TEST(iv_mem_traza, primera_reserva_escribe_el_heap_creado_y_el_cierre_el_destruido)
{
    if (!en_proceso_trazado())
        return;
    void *memlocal = nullptr;

    std::string traza = traza_de([&] { memlocal = i_malloc(1); });
    EXPECT_EQ(traza.rfind("HeapCreate: " + en_texto(s_LocalHeap) + "\n[s_LocalHeap=", 0), 0u) << traza;

    std::string heap = en_texto(s_LocalHeap);
    EXPECT_EQ(traza_de(iv_mem_cierra), "HeapDestroy: " + heap + "\n");
    EXPECT_EQ(traza_de(iv_mem_cierra), "");
}

// Reported where the validation stands, and nothing else happens.
TEST(iv_mem_traza, heap_invalido_se_escribe_en_cada_comprobacion_y_todo_sigue)
{
    if (!en_proceso_trazado())
        return;
    const std::string MALO = "****** HEAP INVALIDO ***********\n";
    i_free(i_malloc(1));
    importacion_cambiada<decltype(&HeapValidate)> cambio(__imp_HeapValidate, heap_invalido);
    void *memlocal = nullptr, *nuevo = nullptr;

    std::string traza = traza_de([&] { memlocal = i_malloc(8); });
    EXPECT_EQ(traza, MALO + heap_en_traza() + "i_malloc(8): memlocal = " + en_texto(memlocal) + "\n" +
                         informacion("Despues de i_malloc: ", memlocal, "8") + MALO);

    traza = traza_de([&] { nuevo = i_realloc(memlocal, 9); });
    EXPECT_EQ(traza, MALO + informacion("Antes de i_realloc: ", memlocal, "8") + MALO + heap_en_traza() +
                         "i_realloc(" + en_texto(memlocal) + ", 9) -> memlocal = " + en_texto(nuevo) + "\n" +
                         informacion("Despues de i_realloc: ", nuevo, "9"));

    traza = traza_de([&] { i_free(nuevo); });
    EXPECT_EQ(traza, MALO + informacion("Antes de i_free: ", nuevo, "9") + heap_en_traza() +
                         "i_free(): memlocal = " + en_texto(nuevo) + "\n" + MALO);
    EXPECT_SIN_INFORMES();
}

TEST(iv_mem_traza, heap_entero_se_comprueba_y_se_mide_sin_su_propio_cerrojo)
{
    if (!en_proceso_trazado())
        return;
    static uint32_t num_validaciones, num_medidas;
    static decltype(&HeapSize) real = __imp_HeapSize;
    i_free(i_malloc(1));
    importacion_cambiada<decltype(&HeapValidate)> valida(
        __imp_HeapValidate, [](HANDLE heap, DWORD opciones, LPCVOID memlocal) -> BOOL {
            num_validaciones++;
            EXPECT_EQ(heap, s_LocalHeap);
            EXPECT_EQ(opciones, 1u);
            EXPECT_EQ(memlocal, nullptr);
            return TRUE;
        });
    importacion_cambiada<decltype(&HeapSize)> mide(
        __imp_HeapSize, [](HANDLE heap, DWORD opciones, LPCVOID memlocal) -> SIZE_T {
            num_medidas++;
            EXPECT_EQ(opciones, 1u);
            return real(heap, opciones, memlocal);
        });

    i_free(i_realloc(i_malloc(1), 2));

    EXPECT_EQ(num_validaciones, 6u);
    EXPECT_EQ(num_medidas, 4u);
}

TEST(iv_mem, sin_traza_no_se_comprueba_ni_se_mide_nada)
{
    static uint32_t num_llamadas;
    desactiva_traza();
    i_free(i_malloc(1));
    captura_traza traza;
    importacion_cambiada<decltype(&HeapValidate)> valida(
        __imp_HeapValidate, [](HANDLE, DWORD, LPCVOID) -> BOOL {
            num_llamadas++;
            return TRUE;
        });
    importacion_cambiada<decltype(&HeapSize)> mide(__imp_HeapSize, [](HANDLE, DWORD, LPCVOID) -> SIZE_T {
        num_llamadas++;
        return 0;
    });

    i_free(i_realloc(i_malloc(1), 2));
    iv_mem_cierra();
    i_free(i_malloc(1));

    EXPECT_EQ(num_llamadas, 0u);
    EXPECT_EQ(traza.texto(), "");
}

namespace {

// Whether the heap's lock was held by this thread at each debug-string call.
std::vector<bool> s_retenido;

LONG CALLBACK mira_cerrojo(EXCEPTION_POINTERS *excepcion)
{
    if (excepcion->ExceptionRecord->ExceptionCode != 0x40010006)
        return EXCEPTION_CONTINUE_SEARCH;
    mutex_crudo cerrojo(CERROJO);
    s_retenido.push_back(!espera_hasta([&] { return cerrojo.libre(); }, 30));
    return EXCEPTION_CONTINUE_SEARCH;
}

}

TEST(iv_mem_traza, lineas_se_escriben_con_el_cerrojo_tomado)
{
    if (!en_proceso_trazado())
        return;
    i_free(i_malloc(1));
    captura_traza traza;
    void *manejador = AddVectoredExceptionHandler(1, mira_cerrojo);

    i_free(i_malloc(1));

    RemoveVectoredExceptionHandler(manejador);
    EXPECT_EQ(s_retenido, std::vector<bool>(traza.piezas().size(), true));
    EXPECT_EQ(s_retenido.size(), 27u);
}

// Making the heap takes the lock and gives it back: the rest of the first allocation goes without it.
TEST(iv_mem_traza, primera_reserva_escribe_con_el_cerrojo_ya_suelto)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    void *manejador = AddVectoredExceptionHandler(1, mira_cerrojo);

    i_malloc(1);

    RemoveVectoredExceptionHandler(manejador);
    EXPECT_EQ(s_retenido, std::vector<bool>(traza.piezas().size(), false));
    EXPECT_EQ(s_retenido.size(), 17u);
}

// ---- Texts

TEST(iv_mem_textos, copia_nueva_ocupa_su_longitud_y_su_cero)
{
    for (const char *cadena : {"", "a", "hola \xf1"}) {
        char *copia = iv_mem_duplica_cadena(cadena);
        EXPECT_STREQ(copia, cadena);
        EXPECT_NE(copia, cadena);
        EXPECT_EQ(tam_de(copia), strlen(cadena) + 1);
        iv_mem_libera_cadena(&copia);
    }
    for (const wchar_t *cadena : {L"", L"a", L"hola \u00f1\u4e2d"}) {
        wchar_t *copia = iv_mem_duplica_cadena_u(cadena);
        EXPECT_EQ(std::wstring(copia), cadena);
        EXPECT_EQ(tam_de(copia), (wcslen(cadena) + 1) * 2);
        iv_mem_libera_cadena_u(&copia);
    }
}

TEST(iv_mem_textos, longitudes_cuentan_caracteres_y_un_texto_nulo_es_0)
{
    EXPECT_EQ(iv_mem_longitud(""), 0u);
    EXPECT_EQ(iv_mem_longitud("ab\xf1"), 3u);
    EXPECT_EQ(iv_mem_longitud(std::string(70000, 'x').c_str()), 70000u);
    EXPECT_EQ(iv_mem_longitud(nullptr), 0u);
    EXPECT_EQ(iv_mem_longitud_u(L""), 0u);
    EXPECT_EQ(iv_mem_longitud_u(L"ab\u4e2d"), 3u);
    EXPECT_EQ(iv_mem_longitud_u(nullptr), 0u);
}

TEST(iv_mem_textos, comparaciones_distinguen_mayusculas_y_dan_1_o_0)
{
    EXPECT_EQ(iv_mem_cadenas_iguales("Calc", "Calc"), 1);
    EXPECT_EQ(iv_mem_cadenas_iguales("", ""), 1);
    for (const char *otra : {"calc", "CALC", "Cal", "Calc ", "Calcu", ""}) {
        EXPECT_EQ(iv_mem_cadenas_iguales("Calc", otra), 0) << otra;
        EXPECT_EQ(iv_mem_cadenas_iguales(otra, "Calc"), 0) << otra;
    }
    EXPECT_EQ(iv_mem_cadenas_iguales_u(L"Calc\u00f1", L"Calc\u00f1"), 1);
    for (const wchar_t *otra : {L"calc\u00f1", L"Calcn", L"Calc", L"Calc\u00d1", L""})
        EXPECT_EQ(iv_mem_cadenas_iguales_u(L"Calc\u00f1", otra), 0);
}

// The comparison is the platform's own, with its idea of what is the same text.
TEST(iv_mem_textos, comparaciones_dicen_lo_que_dice_la_plataforma)
{
    const char *const TEXTOS[] = {"a", "a\x01", "co-op", "coop", "\xe4", "a\xcc", "A"};
    for (const char *uno : TEXTOS)
        for (const char *otro : TEXTOS)
            EXPECT_EQ(iv_mem_cadenas_iguales(uno, otro), lstrcmpA(uno, otro) == 0 ? 1 : 0)
                << uno << " " << otro;
    EXPECT_EQ(iv_mem_cadenas_iguales(nullptr, nullptr), 1);
}

TEST(iv_mem_textos, copia_acotada_toma_primero_el_origen_y_siempre_termina)
{
    const struct {
        const char *origen;
        uint32_t num_caracteres;
        std::string esperado;       // all of the buffer
    } CASOS[] = {
        {"abc", 1, std::string("\0#####", 6)},    {"abc", 2, std::string("a\0####", 6)},
        {"abc", 3, std::string("ab\0###", 6)},    {"abc", 4, std::string("abc\0##", 6)},
        {"abc", 6, std::string("abc\0##", 6)},    {"", 3, std::string("\0#####", 6)},
        {"abcdefgh", 6, std::string("abcde\0", 6)}, {nullptr, 3, std::string("\0#####", 6)},
    };

    for (const auto &caso : CASOS) {
        char buffer[] = "######";
        wchar_t buffer_u[] = L"######";
        wchar_t origen_u[16] = L"";
        for (uint32_t i = 0; caso.origen != nullptr && caso.origen[i] != 0; i++)
            origen_u[i] = static_cast<wchar_t>(caso.origen[i]);

        iv_mem_copia_cadena(caso.origen, buffer, caso.num_caracteres);
        iv_mem_copia_cadena_u(caso.origen != nullptr ? origen_u : nullptr, buffer_u, caso.num_caracteres);

        EXPECT_EQ(std::string(buffer, 6), caso.esperado);
        EXPECT_EQ(std::wstring(buffer_u, 6), std::wstring(caso.esperado.begin(), caso.esperado.end()));
    }
}

TEST(iv_mem_textos, concatena_cambia_el_texto_por_otro_nuevo_con_los_dos)
{
    char *cadena = iv_mem_duplica_cadena("ab");
    for (const char *cola : {"cd", "", "e"}) {
        iv_mem_concatena(&cadena, cola);
        EXPECT_EQ(bloques_vivos(), 1u) << "the old text is freed";
        EXPECT_EQ(tam_de(cadena), strlen(cadena) + 1);
    }
    EXPECT_STREQ(cadena, "abcde");

    iv_mem_concatena(&cadena, cadena);      // its own text as the tail
    EXPECT_STREQ(cadena, "abcdeabcde");
    iv_mem_libera(&cadena);
}

TEST(iv_mem_textos, concatena_a_un_texto_nulo_copia_la_cola)
{
    char *cadena = nullptr;
    iv_mem_concatena(&cadena, "cola");

    EXPECT_STREQ(cadena, "cola");
    EXPECT_SIN_INFORMES();
    iv_mem_libera(&cadena);
}

TEST(iv_mem_textos, concatena_informa_de_una_direccion_nula_y_no_hace_mas)
{
    i_free(i_malloc(1));

    iv_mem_concatena(nullptr, "cola");

    EXPECT_INFORME("iv_mem", "(cadena) != 0");
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_mem_textos, numero_se_escribe_en_decimal_y_el_0_es_un_texto_vacio)
{
    const std::pair<uint32_t, const char *> CASOS[] = {{0, ""},           {1, "1"},
                                                       {10, "10"},        {100, "100"},
                                                       {907060, "907060"}, {4294967295u, "4294967295"}};
    for (const auto &[numero, texto] : CASOS) {
        char *cadena = iv_mem_numero_a_cadena(numero);
        EXPECT_STREQ(cadena, texto);
        EXPECT_EQ(tam_de(cadena), strlen(texto) + 1);
        iv_mem_libera(&cadena);
    }
}

TEST(iv_mem_textos, copia_va_byte_a_byte_hacia_delante)
{
    char bytes[] = "abcdef";
    iv_mem_copia(bytes + 1, bytes, 5);
    EXPECT_STREQ(bytes, "aaaaaa") << "what was written is read again";

    char otros[] = "abcdef";
    iv_mem_copia(otros, otros + 2, 4);
    EXPECT_STREQ(otros, "cdefef");
    iv_mem_copia(otros, "xyz", 0);
    EXPECT_STREQ(otros, "cdefef");
    iv_mem_copia(otros, "x\0z", 3);
    EXPECT_TRUE(bytes_iguales({'x', 0, 'z', 'f', 'e', 'f'}, bytes_de(otros, 6)));
}
