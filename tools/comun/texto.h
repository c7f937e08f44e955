// texto.h - texts between the desktop's (ANSI, UTF-16) and ours (UTF-8).
#ifndef HERRAMIENTAS_TEXTO_H
#define HERRAMIENTAS_TEXTO_H

#include <cstdint>
#include <optional>
#include <string>

namespace herramientas {

std::string de_ansi(const std::string &ansi);
std::string de_ancho(const std::wstring &ancho); // lone surrogates become U+FFFD
std::wstring a_ancho(const std::string &utf8);
std::optional<std::string> a_ansi(const std::string &utf8); // none: a character that the code page has not

std::string entre_comillas(const std::string &utf8);  // for people: quotes, control characters escaped
std::string sin_controles(const std::string &utf8);   // control characters escaped: one line stays one
std::string numero_con_comas(uint64_t numero);        // "12,345"
std::string nombre_sin_ruta(const std::string &ruta); // "C:\\a\\b.exe" -> "b.exe"

} // namespace herramientas

#endif
