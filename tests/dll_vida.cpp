// The DLL between its loading and its unloading: nothing is decided at the one, nothing given back at the
// other. This program does not link it.
#include <string>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/traza_captura.h"

static HMODULE carga()
{
    HMODULE dll = LoadLibraryA("ivrexa.dll");
    EXPECT_NE(dll, nullptr);
    return dll;
}

template <typename Funcion>
static Funcion busca(HMODULE dll, const char *nombre)
{
    return reinterpret_cast<Funcion>(reinterpret_cast<void *>(GetProcAddress(dll, nombre)));
}

static void *crea_datos(HMODULE dll)
{
    return busca<void *(*)(const char *)>(dll, "ivrexa_crea_datos_comando_entrada")("serv");
}

static void cierra_sesion(HMODULE dll)
{
    busca<void (*)()>(dll, "ivrexa_cierra_sesion")();
}

// The variable appears between loading and the first call: it counts. What changes behind that call does not.
PAPEL(variable_tras_cargar)
{
    desactiva_traza();
    captura_traza traza;
    HMODULE dll = carga();
    EXPECT_EQ(traza.texto(), "");
    activa_traza("");
    void *datos = crea_datos(dll);
    desactiva_traza();
    EXPECT_EQ(traza.texto().rfind("*** iv_comdat_crea_para_grabar(DatosEntrada)... \n", 0), 0u);
    traza.borra();
    busca<void (*)(void *)>(dll, "ivrexa_destruye_datos_comando")(datos);
    EXPECT_NE(traza.texto(), "") << "on for good";
    cierra_sesion(dll);
    FreeLibrary(dll);
    yo.di("LISTO");
    return 0;
}

TEST(dll_vida, variable_de_la_traza_se_lee_en_la_primera_llamada_y_no_al_cargar)
{
    EXPECT_EQ(arranca_papel("variable_tras_cargar").espera_fin(10000), 0u);
}

// Only the close of the session gives back; a library that is loaded anew starts with nothing.
PAPEL(descarga_sin_cerrar)
{
    HMODULE dll = carga();
    EXPECT_FALSE(existe_mutex("ivrexa_iv_mem"));
    EXPECT_NE(crea_datos(dll), nullptr);
    EXPECT_TRUE(existe_mutex("ivrexa_iv_mem"));
    EXPECT_TRUE(FreeLibrary(dll));
    EXPECT_EQ(GetModuleHandleA("ivrexa.dll"), nullptr);
    EXPECT_TRUE(existe_mutex("ivrexa_iv_mem")) << "the heap and its lock stay";

    dll = carga();
    EXPECT_NE(crea_datos(dll), nullptr);
    cierra_sesion(dll);
    FreeLibrary(dll);
    yo.di("LISTO");
    return 0;
}

TEST(dll_vida, descargarla_no_devuelve_nada)
{
    EXPECT_EQ(arranca_papel("descarga_sin_cerrar").espera_fin(10000), 0u);
}

// A thread that begins and ends while the DLL is loaded does not call it. The loader notes that in its entry.
PAPEL(hilos_sin_aviso)
{
    struct entrada_modulo { // what the loader keeps of a module, as far as its flags
        LIST_ENTRY cargados, en_memoria, iniciados;
        void *base, *inicio;
        ULONG tam;
        struct {
            USHORT tam, tam_max;
            wchar_t *texto;
        } ruta, nombre;
        ULONG marcas;
    };
    const ULONG SIN_AVISO_DE_HILOS = 0x40000;
    HMODULE dll = carga();
    auto entorno = reinterpret_cast<const uint8_t *>(__readgsqword(0x60)); // PEB
    auto cargador = *reinterpret_cast<uint8_t *const *>(entorno + 0x18);   // its loader data
    auto cabeza = reinterpret_cast<const LIST_ENTRY *>(cargador + 0x10);
    ULONG marcas = 0;
    for (const LIST_ENTRY *e = cabeza->Flink; e != cabeza; e = e->Flink) {
        auto modulo = reinterpret_cast<const entrada_modulo *>(e);
        if (modulo->base == dll)
            marcas = modulo->marcas;
    }
    EXPECT_NE(marcas, 0u) << "its entry was found";
    EXPECT_NE(marcas & SIN_AVISO_DE_HILOS, 0u);
    FreeLibrary(dll);
    yo.di("LISTO");
    return 0;
}

TEST(dll_vida, hilos_que_empiezan_y_acaban_no_la_llaman)
{
    EXPECT_EQ(arranca_papel("hilos_sin_aviso").espera_fin(10000), 0u);
}
