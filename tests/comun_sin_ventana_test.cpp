// The support library in a program that does not load user32 by itself: it must not load it either, and must
// catch boxes from the moment that somebody does.
#include <gtest/gtest.h>

#include "comun/informes.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/traza_captura.h"
#include "comun/util.h"

static int muestra_caja()
{
    HMODULE user32 = LoadLibraryA("user32.dll");
    auto caja =
        reinterpret_cast<decltype(&MessageBoxA)>(reinterpret_cast<void *>(GetProcAddress(user32, "MessageBoxA")));
    return caja(nullptr, "Error in iv_mem - lin 87\n\nExpr: (memlocal) != 0", "Assert ivrexa", 0);
}

// A process of its own: in this one, another test may already have loaded it.
PAPEL(sin_ventana)
{
    captura_traza traza;
    OutputDebugStringA("x");
    EXPECT_TRUE(traza.espera("x", 5000));
    EXPECT_GT(cuenta_todos_los_manejadores(), 0u);
    bloque_crudo bloque(nombre_unico("bloque"), 16);
    mutex_crudo mutex(nombre_unico("mutex"), mutex_crudo::modo::crea);
    EXPECT_TRUE(mutex.libre());
    yo.di("LISTO");
    yo.escucha(30000);
    yo.di(GetModuleHandleA("user32.dll") == nullptr ? "NO CARGADA" : "CARGADA");
    return 0;
}

TEST(comun_sin_ventana, nada_de_lo_comun_carga_el_sistema_de_ventanas)
{
    papel p = arranca_papel("sin_ventana");
    p.di("DI");

    EXPECT_EQ(p.espera_linea("", 5000), "NO CARGADA");
}

TEST(comun_sin_ventana, primera_caja_se_lee_aunque_se_cargue_justo_antes)
{
    EXPECT_EQ(muestra_caja(), IDOK);
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
}

TEST(comun_sin_ventana, las_cajas_siguientes_no_dejan_manejadores)
{
    muestra_caja();
    uint32_t antes = cuenta_todos_los_manejadores();
    for (int vez = 0; vez < 10; vez++)
        muestra_caja();
    EXPECT_LT(cuenta_todos_los_manejadores(), antes + 10);
    borra_informes();
}
