// herramienta.h - the tools, run as a user runs them: a process, its arguments, its two outputs, its exit status.
//
//     salida_de s = ejecuta_ctl({"has", "Calc"});
//     EXPECT_EQ(s.codigo, 1u);
//     EXPECT_EQ(s.salida, "no\n");
//
//     herramienta monitor({"monitor"});                    // one that goes on until it is asked to end
//     monitor.espera_salida("Watching", 10000);
//     monitor.pulsa_ctrl_c();
//     EXPECT_EQ(monitor.espera_fin(10000), 0u);
//
// Texts are UTF-8, and their line ends are "\n". Every wait has a bound and fails the test when it runs out, with what
// the tool has said and, if it shows a box, the box's text. A tool cannot outlive its test.
#ifndef HERRAMIENTAS_HERRAMIENTA_H
#define HERRAMIENTAS_HERRAMIENTA_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "comun/lugar.h"

struct opciones_herramienta {
    std::string programa = "ivrexactl.exe";                    // beside the test
    std::map<std::string, std::optional<std::string>> entorno; // set for it; nullopt removes one
    bool con_ctrl_c = false;        // give it a console of its own, in which pulsa_ctrl_c works
    bool con_lector_parado = false; // its output is open, and nobody reads it
    bool sin_lector = false;        // nobody reads its output, from the start
};

struct salida_de {
    uint32_t codigo;
    std::string salida, error;
};

class herramienta {
public:
    explicit herramienta(const std::vector<std::string> &args, const opciones_herramienta &opciones = {},
                         lugar donde = lugar::aqui());
    ~herramienta(); // ends it if it still runs
    herramienta(const herramienta &) = delete;
    herramienta &operator=(const herramienta &) = delete;

    // Waits until the output (or the error output) contains the text; what was said so far.
    std::string espera_salida(const std::string &texto, uint32_t ms, lugar donde = lugar::aqui());
    std::string espera_error(const std::string &texto, uint32_t ms, lugar donde = lugar::aqui());
    std::string salida() const;
    std::string error() const;
    uint32_t espera_fin(uint32_t ms, lugar donde = lugar::aqui()); // exit status; both outputs are whole then
    void pulsa_ctrl_c();
    void cierra_salida(); // behind the next piece of output nobody reads on, as `head` does
    void mata();
    uint32_t pid() const; // of what was started: with con_ctrl_c, of its console's holder

    struct interior;

private:
    std::unique_ptr<interior> m;
};

// Runs ivrexactl (or another one) to its end.
salida_de ejecuta_ctl(const std::vector<std::string> &args, uint32_t ms = 30000,
                      const opciones_herramienta &opciones = {}, lugar donde = lugar::aqui());

std::vector<std::string> en_lineas(const std::string &texto); // without their ends

#endif
