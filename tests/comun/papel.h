// papel.h - other processes of a test. The other side is this same program, started again with a role:
//
//     PAPEL(sin_ventana) { ...register..., yo.di("LISTO"); ... return 0; }
//
//     TEST(canal, servidor_que_muere_se_descubre)
//     {
//         papel servidor = arranca_papel("sin_ventana", {servicio});   // returns at its "LISTO"
//         servidor.di("CONTESTA 7");                                   // a line to its stdin
//         EXPECT_EQ(servidor.espera_linea("CONTESTADO", 5000), "CONTESTADO 7");
//         servidor.mata();
//     }
//
// Every wait has a bound and fails the test when it runs out, at the line of the test and with what the child
// has said. A child cannot outlive its parent: all are in one job that dies with it, and each watches its
// parent besides.
#ifndef COMUN_PAPEL_H
#define COMUN_PAPEL_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "informes.h"
#include "lineas.h"
#include "lugar.h"
#include "papel_hijo.h"

struct opciones_papel {
    bool suspendido = false;   // start it suspended; nothing is waited for, reanuda() lets it go
    bool espera_listo = true;  // wait for its line "LISTO" and take it
    uint32_t listo_ms = 30000; // for that long
    uint32_t limite_s = 100;   // the child ends itself after that
    std::string programa;      // another .exe, such as a role in C; a bare name lies beside us

    // Environment variables set for the child; nullopt removes one.
    std::map<std::string, std::optional<std::string>> entorno;
};

class papel {
public:
    papel(papel &&) noexcept;
    papel &operator=(papel &&) noexcept;

    // Ends what still runs, without a complaint. Fails the test if the child had ended by itself with another
    // code than 0 that espera_fin never told, if there are reports of its that nobody took, or if an
    // expectation failed in it.
    ~papel();

    void di(const std::string &linea, lugar donde = lugar::aqui());

    // Takes the oldest line that begins with `prefijo`; the others stay, in order. None in time, or the child
    // has ended without it: the test fails, and the answer is "".
    std::string espera_linea(const std::string &prefijo, uint32_t ms, lugar donde = lugar::aqui());
    std::optional<std::string> busca_linea(const std::string &prefijo, uint32_t ms); // without failing
    std::vector<std::string> lineas() const;                                         // those that nobody took so far

    // The exit code. 259 if it still runs after `ms`, and then the test fails.
    uint32_t espera_fin(uint32_t ms, lugar donde = lugar::aqui());
    void cierra_entrada(); // its escucha() answers "nothing" from now on
    void mata();           // TerminateProcess with code 9, and waits for its end
    void suspende();       // all its threads
    void reanuda();

    bool vive() const;
    uint32_t pid() const;

    // The oldest report of the child that nobody took; waits up to `ms` for one.
    std::optional<datos_informe> toma_informe(uint32_t ms = 0);
    uint32_t num_informes() const;

private:
    struct interior;
    explicit papel(std::shared_ptr<interior> i);
    void termina();
    std::shared_ptr<interior> m_i;
    static papel arranca(const std::string &nombre, const std::string &programa, const std::string &args,
                         const opciones_papel &opciones, bool codificado, lugar donde);
    friend papel arranca_papel(const std::string &, const argumentos &, const opciones_papel &, lugar);
    friend papel arranca_programa(const std::string &, const argumentos &, const opciones_papel &, lugar);
};

// Starts `nombre` with arguments. A child that cannot be started or does not get ready fails the test.
papel arranca_papel(const std::string &nombre, const argumentos &args = {}, const opciones_papel &opciones = {},
                    lugar donde = lugar::aqui());

// Starts any program with its own arguments, such as this one with a --gtest_filter. Does not wait for
// "LISTO".
papel arranca_programa(const std::string &programa, const argumentos &args, const opciones_papel &opciones = {},
                       lugar donde = lugar::aqui());

std::string este_programa(); // the path of this .exe

// Takes the child's oldest report, waiting up to 5 s, and compares it with module and expression.
#define EXPECT_INFORME_DE(papel, modulo, expresion) comprueba_informe_de(papel, modulo, expresion)

void comprueba_informe_de(papel &p, const char *modulo, const char *expresion, lugar donde = lugar::aqui());

#endif
