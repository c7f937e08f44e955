// proceso_propio.h - a test that needs the trace on, whatever this process has decided about it before.
//
//     TEST(iv_mem, ...)
//     {
//         if (!en_proceso_trazado())
//             return;                 // it has run in a process of its own
//         ...
//     }
#ifndef COMUN_PROCESO_PROPIO_H
#define COMUN_PROCESO_PROPIO_H

#include <string>

#include <gtest/gtest.h>

#include "papel.h"
#include "sistema.h"

// True in a process that was started for this test with IVREXA_DEBUG set. False elsewhere: it starts that
// process, waits for its end and fails the test if it failed there.
inline bool en_proceso_trazado(lugar donde = lugar::aqui())
{
    static const char MARCA[] = "IVREXA_PRUEBA_PROPIA";
    const testing::TestInfo *prueba = testing::UnitTest::GetInstance()->current_test_info();
    std::string nombre = std::string(prueba->test_suite_name()) + "." + prueba->name();
    char marca[256] = "";
    GetEnvironmentVariableA(MARCA, marca, sizeof marca);
    if (nombre == marca)
        return true;

    opciones_papel opciones;
    opciones.entorno = {{MARCA, nombre}, {"IVREXA_DEBUG", "1"}};
    papel hija = arranca_programa("", {"--gtest_filter=" + nombre}, opciones, donde);
    uint32_t codigo = hija.espera_fin(60000, donde);
    std::string salida;
    for (const std::string &linea : hija.lineas())
        salida += linea + "\n";
    EXPECT_EQ(codigo, 0u) << salida;
    EXPECT_NE(salida.find("[  PASSED  ] 1 test."), std::string::npos) << salida;
    return false;
}

#endif
