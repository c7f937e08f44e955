// What the reports mean to a test: apart from informes.cpp, so that roles in C need no GoogleTest.
#include <gtest/gtest.h>

#include "informes.h"

void comprueba_informe(const char *modulo, const char *expresion, uint32_t ms, lugar donde)
{
    espera_informes(1, ms);
    std::optional<datos_informe> i = toma_informe();
    if (!i) {
        ADD_FAILURE_AT(donde.fichero, donde.linea)
            << "no report came; expected " << modulo << ": \"" << expresion << "\"";
        return;
    }
    if (i->ajeno || i->modulo != modulo || i->expresion != expresion)
        ADD_FAILURE_AT(donde.fichero, donde.linea)
            << "expected the report " << modulo << ": \"" << expresion << "\"\n  but got " << describe_informe(*i);
}

static std::string describe_y_borra_todos()
{
    std::string texto;
    while (std::optional<datos_informe> i = toma_informe())
        texto += "\n  " + describe_informe(*i);
    return texto;
}

void comprueba_sin_informes(lugar donde)
{
    std::string sobrantes = describe_y_borra_todos();
    if (!sobrantes.empty())
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "reports that nobody expected:" << sobrantes;
}

namespace {

class oyente_de_informes : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo &) override { prepara_prueba(); }

    void OnTestEnd(const ::testing::TestInfo &) override
    {
        std::string sobrantes = describe_y_borra_todos();
        if (!sobrantes.empty())
            ADD_FAILURE() << "the test ended with reports that nobody expected:" << sobrantes;
    }
};

} // namespace

void instala_oyente_de_informes()
{
    ::testing::UnitTest::GetInstance()->listeners().Append(new oyente_de_informes);
}
