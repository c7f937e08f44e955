// dll_paginas.cpp - the programs of the README and of the pages, built as they stand there.
#include <gtest/gtest.h>

#include "ivrexa.h"
#include "papel.h"
#include "util.h"

static void espera_servicio()
{
    EXPECT_TRUE(espera_hasta([] { return ivrexa_hay_servicio_registrado("Calc", nullptr) == CIERTO; }, 10000));
}

TEST(leeme, el_cliente_recibe_la_suma_y_el_texto)
{
    papel servidor = arranca_programa("leeme_servidor.exe", {});
    espera_servicio();

    papel cliente = arranca_programa("leeme_cliente.exe", {});

    EXPECT_EQ(cliente.espera_linea("", 10000), "42 done");
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}

TEST(capa, el_cliente_recibe_la_suma)
{
    papel servidor = arranca_programa("capa_servidor.exe", {});
    espera_servicio();

    papel cliente = arranca_programa("capa_cliente.exe", {});

    EXPECT_EQ(cliente.espera_linea("", 20000), "42");
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}

TEST(porque, dice_que_nadie_ofrece_el_servicio)
{
    papel cliente = arranca_programa("porque.exe", {});

    EXPECT_EQ(cliente.espera_linea("", 20000), "nobody offers the service");
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}
