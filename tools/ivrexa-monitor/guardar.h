// guardar.h - what is shown, into a file. A file is there whole or as it was before.
#ifndef MONITOR_GUARDAR_H
#define MONITOR_GUARDAR_H

#include <optional>
#include <string>

#include <windows.h>

#include "modelo.h"

namespace monitor {

enum class formato { csv, json_lineas };

// Asks where, and writes; says what went wrong.
void pregunta_y_guarda(HWND hwnd, formato como, const historia &h, const contenidos &c);

// False: nothing has changed, and `fallo` says why.
bool escribe_fichero(const std::wstring &ruta, const std::string &texto, std::wstring *fallo);

bool pon_en_portapapeles(HWND hwnd, const std::wstring &texto);

} // namespace monitor

#endif
