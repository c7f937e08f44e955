// orden.h - what the subcommands of ivrexactl share: how they are added, how they fail, how they end.
#ifndef IVREXACTL_ORDEN_H
#define IVREXACTL_ORDEN_H

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include <windows.h>

#include <CLI/CLI.hpp>

namespace ivrexactl {

// Exit status. Those from 64 up are the ones of sysexits.h.
enum codigo : int {
    codigo_HECHO = 0,              // done; a command's result OK
    codigo_NO = 1,                 // has: no such service; end: it has not ended; doctor: there are findings
    codigo_RESULTADO_NINGUNO = 10, // call: the results
    codigo_RESULTADO_CANCELADO = 12,
    codigo_RESULTADO_ERROR = 13,
    codigo_RESULTADO_OTRO = 14,
    codigo_USO = 64,           // arguments that make no sense
    codigo_NO_SE_LEE = 66,     // a file that cannot be read
    codigo_NO_HAY = 69,        // no such service, no registry, or no room in a table
    codigo_INTERNO = 70,       // not expected
    codigo_NO_SE_ESCRIBE = 73, // a file that cannot be written
    codigo_OCUPADO = 75,       // somebody else is at it; try again
};

// Ends the subcommand with a line on the error output.
class fallo : public std::runtime_error {
public:
    fallo(codigo c, const std::string &texto) : std::runtime_error(texto), m_codigo(c) {}
    codigo que() const { return m_codigo; }

private:
    codigo m_codigo;
};

// Each adds its subcommand; when it is the one asked for, *hazlo becomes what runs it and returns the exit status.
using trabajo = std::function<int()>;
void anyade_status(CLI::App &app, trabajo *hazlo);
void anyade_list(CLI::App &app, trabajo *hazlo);
void anyade_has(CLI::App &app, trabajo *hazlo);
void anyade_call(CLI::App &app, trabajo *hazlo);
void anyade_end(CLI::App &app, trabajo *hazlo);
void anyade_monitor(CLI::App &app, trabajo *hazlo);
void anyade_trace(CLI::App &app, trabajo *hazlo);
void anyade_doctor(CLI::App &app, trabajo *hazlo);

// Output is UTF-8, on a console too. What is printed is there at once: others read it while we run.
void di(const std::string &utf8);       // and a line end; throws where nobody can read it any more
void di_error(const std::string &utf8); // notes and errors: the error output

// The console's code page is changed while we run; whoever ends the process outside main puts it back himself.
void toma_consola();
void devuelve_consola();

// Ctrl-C, Ctrl-Break, the console's close: asks the subcommand to end, which it does in its own time.
void atiende_fin();
HANDLE evento_fin();          // set once the end was asked for
bool espera_fin(uint32_t ms); // waits so long; true: the end was asked for

} // namespace ivrexactl

#endif
