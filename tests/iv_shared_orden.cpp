// The system calls of shared blocks in order, with their arguments: which handles are opened, which are
// closed, and which are not.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/monton.h"
#include "comun/util.h"

#include "iv_shared.h"

IMPORTACION(CloseHandle);
IMPORTACION(CreateFileMappingA);
IMPORTACION(HeapAlloc);
IMPORTACION(HeapFree);
IMPORTACION(MapViewOfFile);
IMPORTACION(OpenFileMappingA);
IMPORTACION(UnmapViewOfFile);

namespace {

using llamadas = std::vector<std::string>;

// Handles are numbered as they come: "create 10 -> 1", "map 1".
llamadas s_llamadas;
DWORD s_hilo;
std::map<HANDLE, std::string> s_manejadores;
uint32_t s_num_manejadores, s_num_mapas;
uint32_t s_mapa_negado; // which view is refused, from 1

decltype(&CloseHandle) s_CloseHandle = __imp_CloseHandle;
decltype(&CreateFileMappingA) s_CreateFileMappingA = __imp_CreateFileMappingA;
decltype(&HeapAlloc) s_HeapAlloc = __imp_HeapAlloc;
decltype(&HeapFree) s_HeapFree = __imp_HeapFree;
decltype(&MapViewOfFile) s_MapViewOfFile = __imp_MapViewOfFile;
decltype(&OpenFileMappingA) s_OpenFileMappingA = __imp_OpenFileMappingA;
decltype(&UnmapViewOfFile) s_UnmapViewOfFile = __imp_UnmapViewOfFile;

void apunta(const std::string &llamada)
{
    if (GetCurrentThreadId() == s_hilo)
        s_llamadas.push_back(llamada);
}

std::string numera(HANDLE manejador)
{
    if (manejador == nullptr)
        return "null";
    DWORD error = GetLastError();
    std::string numero = std::to_string(++s_num_manejadores);
    s_manejadores[manejador] = numero;
    SetLastError(error);
    return numero;
}

HANDLE WINAPI apunta_CreateFileMappingA(HANDLE fichero, LPSECURITY_ATTRIBUTES seguridad, DWORD proteccion, DWORD alto,
                                        DWORD bajo, LPCSTR nombre)
{
    HANDLE mapa = s_CreateFileMappingA(fichero, seguridad, proteccion, alto, bajo, nombre);
    DWORD error = GetLastError();
    apunta("create " + std::to_string(bajo) + " -> " + numera(mapa));
    SetLastError(error);
    return mapa;
}

HANDLE WINAPI apunta_OpenFileMappingA(DWORD acceso, BOOL hereda, LPCSTR nombre)
{
    HANDLE mapa = s_OpenFileMappingA(acceso, hereda, nombre);
    apunta("open " + std::to_string(acceso) + (hereda ? " inherited" : "") + " -> " + numera(mapa));
    return mapa;
}

void *WINAPI apunta_MapViewOfFile(HANDLE mapa, DWORD acceso, DWORD alto, DWORD bajo, SIZE_T tam)
{
    bool entera = acceso == FILE_MAP_WRITE && alto == 0 && bajo == 0 && tam == 0;
    apunta("map " + s_manejadores[mapa] + (entera ? "" : " otherwise"));
    return ++s_num_mapas == s_mapa_negado ? nullptr : s_MapViewOfFile(mapa, acceso, alto, bajo, tam);
}

BOOL WINAPI apunta_UnmapViewOfFile(LPCVOID vista)
{
    apunta("unmap");
    return s_UnmapViewOfFile(vista);
}

BOOL WINAPI apunta_CloseHandle(HANDLE manejador)
{
    apunta("close " + s_manejadores[manejador]);
    return s_CloseHandle(manejador);
}

void *WINAPI apunta_HeapAlloc(HANDLE heap, DWORD opciones, SIZE_T tam)
{
    apunta("alloc");
    return s_HeapAlloc(heap, opciones, tam);
}

BOOL WINAPI apunta_HeapFree(HANDLE heap, DWORD opciones, void *memlocal)
{
    std::string texto(static_cast<char *>(memlocal), HeapSize(heap, 0, memlocal));
    apunta(texto.size() == sizeof(iv_shared_bloque) ? "free record" : "free " + texto.substr(0, texto.find('\0')));
    return s_HeapFree(heap, opciones, memlocal);
}

llamadas llamadas_de(const std::function<void()> &trabajo, uint32_t mapa_negado = 0)
{
    i_free(i_malloc(1)); // the heap is there
    importacion_cambiada<decltype(&CloseHandle)> cierra(__imp_CloseHandle, apunta_CloseHandle);
    importacion_cambiada<decltype(&CreateFileMappingA)> crea(__imp_CreateFileMappingA, apunta_CreateFileMappingA);
    importacion_cambiada<decltype(&HeapAlloc)> reserva(__imp_HeapAlloc, apunta_HeapAlloc);
    importacion_cambiada<decltype(&HeapFree)> libera(__imp_HeapFree, apunta_HeapFree);
    importacion_cambiada<decltype(&MapViewOfFile)> mapea(__imp_MapViewOfFile, apunta_MapViewOfFile);
    importacion_cambiada<decltype(&OpenFileMappingA)> abre(__imp_OpenFileMappingA, apunta_OpenFileMappingA);
    importacion_cambiada<decltype(&UnmapViewOfFile)> quita(__imp_UnmapViewOfFile, apunta_UnmapViewOfFile);
    s_llamadas.clear();
    s_manejadores.clear();
    s_num_manejadores = s_num_mapas = 0;
    s_mapa_negado = mapa_negado;
    s_hilo = GetCurrentThreadId();
    trabajo();
    s_hilo = 0;
    return s_llamadas;
}

} // namespace

TEST(iv_shared_orden, bloque_nuevo_se_crea_se_mapea_y_al_final_se_quita_y_se_cierra)
{
    const char *nombre = nombre_unico("nuevo");
    EXPECT_EQ(llamadas_de([&] {
                  iv_shared_bloque *b = iv_shared_crea(nombre, "tipo", 100, nullptr);
                  iv_shared_destruye(&b);
              }),
              (llamadas{"create 104 -> 1", "map 1", "alloc", "alloc", "alloc", "unmap", "close 1",
                        std::string("free ") + nombre, "free tipo", "free record"}));
}

// 983071 is every access there is. The handle that found the block is not closed.
TEST(iv_shared_orden, bloque_que_existe_se_abre_otra_vez_y_la_primera_no_se_cierra)
{
    const char *nombre = nombre_unico("existe");
    bloque_crudo ajeno(nombre, 100);
    const struct {
        const char *que;
        iv_shared_bloque *(*abre)(const char *nombre);
        llamadas hechas;
    } FORMAS[] = {
        {"crea",
         [](const char *n) { return iv_shared_crea(n, "tipo", 60, nullptr); },
         {"create 64 -> 1", "open 983071 -> 2", "map 2", "alloc", "alloc", "alloc"}},
        {"abre", iv_shared_abre, {"create 4 -> 1", "open 983071 -> 2", "map 2", "alloc", "alloc", "alloc"}},
        {"crea_con_datos",
         [](const char *n) { return iv_shared_crea_con_datos(n, 100, std::string(100, 'x').c_str()); },
         {"create 104 -> 1", "open 983071 -> 2", "map 2", "alloc", "alloc", "alloc"}},
        {"abre_si_existe",
         iv_shared_abre_si_existe,
         {"open 983071 -> 1", "create 4 -> 2", "map 1", "alloc", "alloc", "alloc"}},
    };

    for (const auto &forma : FORMAS) {
        SCOPED_TRACE(forma.que);
        iv_shared_bloque *b = nullptr;
        EXPECT_EQ(llamadas_de([&] { b = forma.abre(nombre); }), forma.hechas);
        iv_shared_destruye(&b);
    }
}

TEST(iv_shared_orden, sonda_abre_y_no_cierra)
{
    const char *nombre = nombre_unico("sonda");
    EXPECT_EQ(llamadas_de([&] { iv_shared_existe(nombre); }), llamadas{"open 983071 -> null"});
    EXPECT_EQ(llamadas_de([&] { iv_shared_abre_si_existe(nombre); }), llamadas{"open 983071 -> null"});
    bloque_crudo ajeno(nombre, 8);
    EXPECT_EQ(llamadas_de([&] { iv_shared_existe(nombre); }), llamadas{"open 983071 -> 1"});
}

TEST(iv_shared_orden, bloque_sin_sitio_se_quita_y_se_cierra_antes_del_segundo_intento)
{
    const char *nombre = nombre_unico("sitio");
    bloque_crudo ajeno(nombre, 10);
    iv_shared_bloque *b = nullptr;

    EXPECT_EQ(llamadas_de([&] { b = iv_shared_crea_con_datos(nombre, 11, "???????????"); }),
              (llamadas{"create 15 -> 1", "open 983071 -> 2", "map 2", "unmap", "close 2", "create 15 -> 3",
                        "open 983071 -> 4", "map 4", "unmap", "close 4"}));
    EXPECT_EQ(b, nullptr);
    EXPECT_SIN_INFORMES();
}

TEST(iv_shared_orden, vista_que_falta_en_el_segundo_intento_se_informa_y_da_nulo)
{
    const char *nombre = nombre_unico("ciego");
    bloque_crudo ajeno(nombre, 10);
    iv_shared_bloque *b = nullptr;

    EXPECT_EQ(llamadas_de([&] { b = iv_shared_crea_con_datos(nombre, 11, "???????????"); }, 2),
              (llamadas{"create 15 -> 1", "open 983071 -> 2", "map 2", "unmap", "close 2", "create 15 -> 3",
                        "open 983071 -> 4", "map 4"}))
        << "the handle stays open";
    EXPECT_INFORME("iv_shared", "sharedmem != NULL");
    EXPECT_EQ(b, nullptr);
}

// What has no view gets no size: the next to open it finds a block that states none.
TEST(iv_shared_orden, bloque_nuevo_sin_vista_queda_abierto_y_sin_su_tamanyo)
{
    const char *nombre = nombre_unico("ciego");
    int16_t ya_estaba_creado = 77;
    iv_shared_bloque *b = nullptr;
    // The first report loads what it needs.
    llamadas_de([&] { b = iv_shared_crea(nombre, "t", 10, &ya_estaba_creado); }, 1);
    EXPECT_INFORME("iv_shared", "sharedmem != NULL");
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(ya_estaba_creado, 0);
    EXPECT_EQ(bloque_crudo(nombre).cabecera(), 0u);

    nombre = nombre_unico("ciego");
    uint32_t antes = cuenta_manejadores();
    EXPECT_EQ(llamadas_de([&] { b = iv_shared_crea(nombre, "t", 0, nullptr); }, 1),
              (llamadas{"create 4 -> 1", "map 1"}));
    EXPECT_INFORME("iv_shared", "tam_memcomp > 0");
    EXPECT_INFORME("iv_shared", "sharedmem != NULL");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    EXPECT_TRUE(existe_bloque(nombre));
}

// The largest size that its header still fits beside is asked for; one more is not.
TEST(iv_shared_orden, tamanyo_mayor_que_cabe_se_pide_y_uno_mas_no)
{
    static llamadas pedidos;
    importacion_cambiada<decltype(&CreateFileMappingA)> cambio(
        __imp_CreateFileMappingA, [](HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD alto, DWORD bajo, LPCSTR) -> HANDLE {
            pedidos.push_back(std::to_string(alto) + " " + std::to_string(bajo));
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        });

    EXPECT_EQ(iv_shared_crea(nombre_unico("mayor"), "t", 4294967291u, nullptr), nullptr);
    EXPECT_EQ(iv_shared_crea(nombre_unico("mayor"), "t", 4294967292u, nullptr), nullptr);

    EXPECT_EQ(pedidos, llamadas{"0 4294967295"});
    EXPECT_SIN_INFORMES();
}
