// main() of every test program.
#include "principal.h"

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "informes.h"
#include "papel_hijo.h"
#include "vigilante.h"

// Boxes that came when the last test was already over belong to no test: they fail the program.
static int cuenta_rezagados()
{
    int num = 0;
    for (; std::optional<datos_informe> i = toma_informe(); num++)
        fprintf(stderr, "a report after the last test: %s\n", describe_informe(*i).c_str());
    return num;
}

// A process that ends while its watcher sets up a window system that was loaded late hangs in Wine, which then kills
// it.
static void espera_vigilante()
{
    if (!vigilante_en_reposo(5000))
        fprintf(stderr, "the watcher did not come to rest\n");
}

namespace {

// In a role there is no test to fail: the parent's has to.
class oyente_de_papel : public ::testing::EmptyTestEventListener {
    void OnTestPartResult(const ::testing::TestPartResult &resultado) override
    {
        papel_hijo yo;
        if (resultado.failed())
            yo.di(std::string("FALLO ") + (resultado.file_name() != nullptr ? resultado.file_name() : "?") + ":" +
                  std::to_string(resultado.line_number()) + ": " + resultado.message());
    }
};

int corre_papel(const orden_papel &orden)
{
    ::testing::TestEventListeners &oyentes = ::testing::UnitTest::GetInstance()->listeners();
    delete oyentes.Release(oyentes.default_result_printer());
    oyentes.Append(new oyente_de_papel);
    int codigo = ejecuta_papel(orden);
    espera_vigilante();
    return codigo;
}

} // namespace

int main(int argc, char **argv)
{
    prepara_proceso();
    orden_papel orden = inicia_papel(argc, argv);
    if (!orden.nombre.empty())
        return corre_papel(orden);

    ::testing::InitGoogleTest(&argc, argv);
    arranca_vigilante();
    instala_oyente_de_informes();
    int resultado = RUN_ALL_TESTS();
    espera_vigilante();
    return cuenta_rezagados() > 0 ? 1 : resultado;
}
