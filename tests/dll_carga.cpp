// The DLL as a file: what loading it does and does not do, and what it exports. This program does not link it.
#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/util.h"

static const char *const NOMBRES[] = {
    "ivrexa_abierto_documento_de_cliente",
    "ivrexa_anyade_servicio",
    "ivrexa_anyade_servicio_net",
    "ivrexa_cerrado_documento_de_cliente",
    "ivrexa_cierra_sesion",
    "ivrexa_crea_datos_comando_entrada",
    "ivrexa_crea_datos_comando_salida",
    "ivrexa_dame_arr_cadenas_ansi",
    "ivrexa_dame_arr_cadenas_unicode",
    "ivrexa_dame_buffer",
    "ivrexa_dame_byte",
    "ivrexa_dame_cadena_ansi",
    "ivrexa_dame_cadena_unicode",
    "ivrexa_dame_double",
    "ivrexa_dame_hwnd",
    "ivrexa_dame_id_MSG_servicio",
    "ivrexa_dame_ulong",
    "ivrexa_dame_ushort",
    "ivrexa_destruye_datos_comando",
    "ivrexa_ejecuta_comando",
    "ivrexa_espera_comando_terminar_servidor",
    "ivrexa_get_datos_entrada_comando",
    "ivrexa_graba_arr_cadenas_ansi",
    "ivrexa_graba_arr_cadenas_unicode",
    "ivrexa_graba_buffer",
    "ivrexa_graba_byte",
    "ivrexa_graba_cadena_ansi",
    "ivrexa_graba_cadena_unicode",
    "ivrexa_graba_double",
    "ivrexa_graba_hwnd",
    "ivrexa_graba_ulong",
    "ivrexa_graba_ushort",
    "ivrexa_guarda_datos",
    "ivrexa_hay_servicio_registrado",
    "ivrexa_hay_servicio_registrado_empiece_por",
    "ivrexa_lee_datos",
    "ivrexa_nombre_valor",
    "ivrexa_notifica_a_cliente",
    "ivrexa_numero_valores",
    "ivrexa_obtener_id_datos_notificacion",
    "ivrexa_procesada_notificacion",
    "ivrexa_registra_cliente_de_servicio",
    "ivrexa_registra_cliente_notificaciones_servicio",
    "ivrexa_registra_monitor",
    "ivrexa_registra_servidor",
    "ivrexa_registra_servidor_net",
    "ivrexa_set_datos_salida_comando",
    "ivrexa_terminado_registro",
    "ivrexa_terminar_servidor",
    "ivrexa_tipoDato",
};

static bool hay_user32()
{
    return GetModuleHandleA("user32.dll") != nullptr;
}

template <typename Funcion>
static Funcion busca(HMODULE dll, const char *nombre)
{
    return reinterpret_cast<Funcion>(reinterpret_cast<void *>(GetProcAddress(dll, nombre)));
}

// The names in the DLL's export directory, in its order.
static std::vector<std::string> nombres_exportados(HMODULE dll)
{
    auto base = reinterpret_cast<const uint8_t *>(dll);
    auto dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(base);
    auto nt = reinterpret_cast<const IMAGE_NT_HEADERS64 *>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY &sitio = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    auto tabla = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY *>(base + sitio.VirtualAddress);
    auto nombres = reinterpret_cast<const DWORD *>(base + tabla->AddressOfNames);
    auto funciones = reinterpret_cast<const DWORD *>(base + tabla->AddressOfFunctions);
    EXPECT_EQ(std::count_if(funciones, funciones + tabla->NumberOfFunctions, [](DWORD f) { return f != 0; }),
              static_cast<ptrdiff_t>(tabla->NumberOfNames))
        << "nothing is exported by number alone";
    std::vector<std::string> lista;
    for (DWORD i = 0; i < tabla->NumberOfNames; i++)
        lista.push_back(reinterpret_cast<const char *>(base + nombres[i]));
    return lista;
}

static void comprueba_que_no_hay_objetos()
{
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
    for (const char *nombre : {"Ivrexa_Mutex_MCB", "ivrexa_iv_mem"})
        EXPECT_FALSE(existe_mutex(nombre)) << nombre;
}

// A process of its own, that has neither this DLL nor the window system.
PAPEL(cargador)
{
    EXPECT_EQ(GetModuleHandleA("ivrexa.dll"), nullptr);
    EXPECT_FALSE(hay_user32());
    HMODULE dll = LoadLibraryA("ivrexa.dll");
    if (dll == nullptr)
        return static_cast<int>(GetLastError());
    EXPECT_FALSE(hay_user32());
    comprueba_que_no_hay_objetos();

    std::vector<std::string> esperados(std::begin(NOMBRES), std::end(NOMBRES));
    std::vector<std::string> reales = nombres_exportados(dll);
    EXPECT_EQ(esperados.size(), 50u);
    std::sort(esperados.begin(), esperados.end());
    EXPECT_EQ(reales, esperados);
    for (const char *nombre : NOMBRES)
        EXPECT_NE(GetProcAddress(dll, nombre), nullptr) << nombre;

    EXPECT_TRUE(FreeLibrary(dll));
    EXPECT_EQ(GetModuleHandleA("ivrexa.dll"), nullptr);

    uint32_t manejadores = cuenta_todos_los_manejadores();
    for (int vez = 0; vez < 20; vez++)
        EXPECT_TRUE(FreeLibrary(LoadLibraryA("ivrexa.dll")));
    EXPECT_LT(cuenta_todos_los_manejadores(), manejadores + 20) << "one a time";
    yo.di("LISTO");
    return 0;
}

// Neither command data nor a server without a window needs it.
PAPEL(servidor_sin_user32)
{
    using comdat = void;
    HMODULE dll = LoadLibraryA("ivrexa.dll");
    auto crea = busca<comdat *(*)(const char *)>(dll, "ivrexa_crea_datos_comando_salida");
    auto graba = busca<void (*)(comdat *, const char *, uint32_t)>(dll, "ivrexa_graba_ulong");
    auto destruye = busca<void (*)(comdat *)>(dll, "ivrexa_destruye_datos_comando");
    auto registra =
        busca<void (*)(const char *, void *, const char *, uint16_t, void *, void *)>(dll, "ivrexa_registra_servidor");
    auto publica = busca<void (*)()>(dll, "ivrexa_terminado_registro");
    auto cierra = busca<void (*)()>(dll, "ivrexa_cierra_sesion");
    comdat *datos = crea("serv");
    EXPECT_TRUE(existe_mutex("ivrexa_iv_mem")) << "made by the first allocation";
    graba(datos, "l", 1);
    destruye(datos);
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
    EXPECT_FALSE(hay_user32());

    registra("ruta", nullptr, args[0].c_str(), 1, nullptr, reinterpret_cast<void *>(publica)); // never called
    publica();
    EXPECT_TRUE(existe_bloque("Ivrexa_MCB"));
    EXPECT_TRUE(existe_mutex("Ivrexa_Mutex_MCB"));
    EXPECT_TRUE(existe_bloque(("Ivrexa_MCB_Serv_" + args[0]).c_str()));
    EXPECT_TRUE(existe_mutex(("Mutex_Ivrexa_" + args[0]).c_str()));
    EXPECT_TRUE(existe_mutex(("Mutex_Ivrexa_" + args[0] + "Interno").c_str()));
    EXPECT_FALSE(hay_user32());
    cierra();
    comprueba_que_no_hay_objetos();
    EXPECT_FALSE(existe_bloque(("Ivrexa_MCB_Serv_" + args[0]).c_str()));
    EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + args[0]).c_str()));
    EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + args[0] + "Interno").c_str()));
    yo.di("LISTO");
    return 0;
}

TEST(dll_carga, cargarla_no_carga_user32_ni_crea_objetos_y_da_sus_50_nombres)
{
    papel p = arranca_papel("cargador");
    EXPECT_EQ(p.espera_fin(5000), 0u);
}

TEST(dll_carga, servidor_sin_ventana_no_carga_user32_y_al_cerrar_no_deja_objetos)
{
    papel p = arranca_papel("servidor_sin_user32", {nombre_unico("serv")});
    EXPECT_EQ(p.espera_fin(5000), 0u);
}
