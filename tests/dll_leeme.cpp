// dll_leeme.cpp - the server and the client of the README, built as they stand there.
#include <gtest/gtest.h>

#include "ivrexa.h"
#include "papel.h"
#include "util.h"

TEST(leeme, el_cliente_recibe_la_suma_y_el_texto)
{
    papel servidor = arranca_programa("leeme_servidor.exe", {});
    ASSERT_TRUE(espera_hasta([] { return ivrexa_hay_servicio_registrado("Calc", nullptr) == CIERTO; }, 10000));

    papel cliente = arranca_programa("leeme_cliente.exe", {});

    EXPECT_EQ(cliente.espera_linea("", 10000), "42 done");
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}
