// informes.h - the library's reports (assertion boxes) as a test sees them.
//
// Every report of this process is put into one list, oldest first, and its box is closed at once:
//   - a thread of this support library (vigilante.h) finds real boxes, on whatever thread they stand;
//   - in module tests the recorder of informes_modulo.h takes the place of MessageBoxA.
// A report is in the list before the library's call returns. A report by a thread of the library's own comes
// when it comes: wait for it with ESPERA_INFORME.
//
// A test takes the reports it expects, in their order. What is left when it ends fails it, text shown. Any
// other box of this process, and a box with another owner, caption or style, is also in the list: as a
// foreign one, which no EXPECT_INFORME accepts.
#ifndef COMUN_INFORMES_H
#define COMUN_INFORMES_H

#include <cstdint>
#include <optional>
#include <string>

#include "lugar.h"

struct datos_informe {
    std::string modulo;    // "iv_mem"; empty in a foreign box
    uint32_t linea = 0;    // the line of the check in that module
    std::string expresion; // the condition that failed, as written in the source
    std::string texto;     // the whole text of the box
    std::string titulo;    // its caption
    bool ajeno = false;    // a foreign box: not the library's, or not shown as it must be
};

uint32_t num_informes();                              // how many nobody has taken yet
datos_informe informe(uint32_t i);                    // the i-th of them; an empty one beyond the last
std::optional<datos_informe> toma_informe();          // takes the oldest
void borra_informes();                                // forgets all of them
bool espera_informes(uint32_t num, uint32_t ms);      // waits until `num` are there; false: not in time
std::string describe_informe(const datos_informe &i); // one readable line

// Takes the oldest report and compares module and expression, to the character. No report: the test fails.
#define EXPECT_INFORME(modulo, expresion) comprueba_informe(modulo, expresion, 0)

// The same, but waits up to `ms` for the report of another thread.
#define ESPERA_INFORME(modulo, expresion, ms) comprueba_informe(modulo, expresion, ms)

// Fails, and forgets them, if there are reports that nobody has taken.
#define EXPECT_SIN_INFORMES() comprueba_sin_informes()

// ---- What the macros call, and what feeds the list. Tests need none of it.

void comprueba_informe(const char *modulo, const char *expresion, uint32_t ms, lugar donde = lugar::aqui());
void comprueba_sin_informes(lugar donde = lugar::aqui());

// Reads the text "Error in %s - lin %d\n\nExpr: %s" of a box into a report; a text of another form gives a
// foreign one.
datos_informe lee_informe(const std::string &titulo, const std::string &texto);

void anyade_informe(const datos_informe &i);            // any thread
void al_informar(void (*aviso)(const datos_informe &)); // called for each report before its box is closed
void al_empezar_prueba(void (*preparacion)());          // called before each test, and before a role
void prepara_prueba();                                  // calls it

void instala_oyente_de_informes(); // fails tests that end with reports left over

#endif
