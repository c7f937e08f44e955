// dll_paginas.cpp - the programs of the README and of the pages, built as they stand there.
#include <gtest/gtest.h>

#include "ivrexa.h"
#include "papel.h"
#include "util.h"

static void espera_servicio()
{
    EXPECT_TRUE(espera_hasta([] { return ivrexa_hay_servicio_registrado("Calc", nullptr) == CIERTO; }, 10000));
}

// It says that line within so many ms, and ends in good order.
static void dice(const char *programa, const char *linea, uint32_t ms)
{
    papel cliente = arranca_programa(programa, {});
    EXPECT_EQ(cliente.espera_linea("", ms), linea);
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}

TEST(leeme, el_cliente_recibe_la_suma_y_el_texto)
{
    papel servidor = arranca_programa("leeme_servidor.exe", {});
    espera_servicio();
    dice("leeme_cliente.exe", "42 done", 10000);
}

TEST(capa, el_cliente_recibe_la_suma)
{
    papel servidor = arranca_programa("capa_servidor.exe", {});
    espera_servicio();
    dice("capa_cliente.exe", "42", 20000);
}

TEST(porque, dice_que_nadie_ofrece_el_servicio)
{
    dice("porque.exe", "nobody offers the service", 20000);
}
