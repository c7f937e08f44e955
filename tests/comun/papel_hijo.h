// papel_hijo.h - a role, seen from inside: what the other process of a test does.
//
//     PAPEL(eco)
//     {
//         yo.di("LISTO");                              // arranca_papel returns when this line arrives
//         while (std::optional<std::string> linea = yo.escucha(10000))
//             yo.di("ECO " + args[0] + *linea);
//         return 0;                                    // the exit code
//     }
//
// The process ends by itself when its parent is gone (code 125) and when its time is up (code 124, 100 s
// unless the parent chose another limit).
//
// Reports are sent to the parent, each before its box is closed, as lines "INFORME modulo|linea|expresion" (a
// foreign box: "INFORME ?|0|<its text>"). Expectations of GoogleTest may stand in a role: one that fails is
// sent as a line "FALLO ..." and fails the parent's test.
#ifndef COMUN_PAPEL_HIJO_H
#define COMUN_PAPEL_HIJO_H

#include <cstdint>
#include <optional>
#include <string>

#include "lineas.h"

enum : uint32_t { papel_SALIDA_LIMITE = 124, papel_SALIDA_SIN_PADRE = 125, papel_SALIDA_DESCONOCIDO = 126 };

class papel_hijo {
public:
    // Sends a line to the parent. Any thread.
    void di(const std::string &linea);

    // The next line from the parent. Nothing when none comes within `ms`, or the parent has closed its end.
    std::optional<std::string> escucha(uint32_t ms);

    // Waits for exactly this line. Another one, or none: tells stderr and ends the process with code 1.
    void escucha_linea(const std::string &linea, uint32_t ms);

    // An event HANDLE, set while a line waits or the parent has closed its end: for waits of another kind.
    void *evento_linea();
};

using funcion_papel = int (*)(papel_hijo &yo, const argumentos &args);

struct registro_papel {
    registro_papel(const char *nombre, funcion_papel funcion);
    const char *nombre;
    funcion_papel funcion;
    registro_papel *siguiente;
};

#define PAPEL(nombre)                                                         \
    static int hace_de_##nombre(papel_hijo &yo, const argumentos &args);      \
    static const registro_papel registra_##nombre(#nombre, hace_de_##nombre); \
    static int hace_de_##nombre([[maybe_unused]] papel_hijo &yo, [[maybe_unused]] const argumentos &args)

// ---- For main().

struct orden_papel {
    std::string nombre; // empty: this process was not started as a role
    argumentos args;
};

// Reads --papel=, --padre= and --limite=, and starts what a role needs: watchdog, forwarding of reports,
// reader.
orden_papel inicia_papel(int argc, char **argv);
int ejecuta_papel(const orden_papel &orden); // the role's exit code; 126 if no role has that name

#endif
