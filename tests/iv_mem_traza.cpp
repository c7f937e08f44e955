// What the heap traces, and what it checks then.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/proceso_propio.h"
#include "comun/traza_captura.h"

#include "iv_mem.h"
#include "iv_mem_apoyo.h"

IMPORTACION(HeapSize);
IMPORTACION(HeapValidate);

namespace {

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

BOOL WINAPI heap_invalido(HANDLE, DWORD, LPCVOID)
{
    return FALSE;
}

} // namespace

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

    const char *const ESPERADAS[] = {"[s_LocalHeap=",  "<heap>", "] ", "i_malloc(", "24",
                                     "): memlocal = ", "<mem>",  "\n"};
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
    EXPECT_EQ(traza, MALO + informacion("Antes de i_realloc: ", memlocal, "8") + MALO + heap_en_traza() + "i_realloc(" +
                         en_texto(memlocal) + ", 9) -> memlocal = " + en_texto(nuevo) + "\n" +
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
    importacion_cambiada<decltype(&HeapValidate)> valida(__imp_HeapValidate,
                                                         [](HANDLE heap, DWORD opciones, LPCVOID memlocal) -> BOOL {
                                                             num_validaciones++;
                                                             EXPECT_EQ(heap, s_LocalHeap);
                                                             EXPECT_EQ(opciones, 1u);
                                                             EXPECT_EQ(memlocal, nullptr);
                                                             return TRUE;
                                                         });
    importacion_cambiada<decltype(&HeapSize)> mide(__imp_HeapSize,
                                                   [](HANDLE heap, DWORD opciones, LPCVOID memlocal) -> SIZE_T {
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
    importacion_cambiada<decltype(&HeapValidate)> valida(__imp_HeapValidate, [](HANDLE, DWORD, LPCVOID) -> BOOL {
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

} // namespace

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
