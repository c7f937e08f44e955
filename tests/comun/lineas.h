// lineas.h - texts that go between a test and its roles: through command lines and pipes, a line each.
//
// A line is any text. On the wire control characters, '%' and DEL are written %XX, so that a text with line
// ends stays one line. Several fields go into one line with junta("a", ...) and come out with campos().
#ifndef COMUN_LINEAS_H
#define COMUN_LINEAS_H

#include <cstdint>
#include <string>
#include <vector>

using argumentos = std::vector<std::string>;

std::string codifica_linea(const std::string &texto);
std::string codifica_argumento(const std::string &texto); // also needs no quotes; an empty text gives "%"
std::string descodifica(const std::string &texto);        // undoes both; drops a '%' without two digits

// Fields as one line, "a|b|c", and back; '|' and '%' in a field are written %XX. "" is one empty field. With
// a prefix: the fields of what follows it.
std::string junta(const std::vector<std::string> &campos);
std::vector<std::string> campos(const std::string &linea);
std::vector<std::string> campos(const std::string &linea, const char *prefijo);

std::string a_utf8(const std::wstring &texto);
std::wstring de_utf8(const std::string &texto);
std::string a_hex(const void *bytes, size_t num);      // "00ff1a"
std::vector<uint8_t> de_hex(const std::string &texto); // blanks are skipped; two digits a byte

#endif
