// ventana_ajena.h - another process's windows, found and used as a user does: with the keyboard. Texts are UTF-8.
#ifndef HERRAMIENTAS_VENTANA_AJENA_H
#define HERRAMIENTAS_VENTANA_AJENA_H

#include <cstdint>
#include <string>
#include <vector>

#include "comun/lugar.h"
#include "comun/sistema.h"

// A visible top-level window of the process and class; ends the test when none comes in time.
HWND espera_ventana(uint32_t pid, const wchar_t *clase, uint32_t ms, lugar donde = lugar::aqui());
HWND ventana_de(uint32_t pid, const wchar_t *clase); // nullptr: none now
HWND control_de(HWND ventana, int id);               // at any depth; nullptr: none
std::string texto_de(HWND hwnd);                     // asked of the control itself

// A dialog box: its title, and what its labels, edits and buttons say, a line each.
HWND espera_caja(uint32_t pid, uint32_t ms, lugar donde = lugar::aqui());
std::string texto_de_caja(HWND caja);

// Brings the window to the front, so that keys reach it, and waits until it is there.
void pon_delante(HWND ventana, lugar donde = lugar::aqui());
HWND con_foco(HWND ventana); // of its thread; nullptr: none

// Keys through the system's own input, as from a keyboard: pulsa({VK_CONTROL, 'L'}) holds all but the last down.
void pulsa(const std::vector<WORD> &teclas);
void teclea(const std::string &texto); // characters, whatever the keyboard's layout

#endif
