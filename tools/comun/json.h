// json.h - events and values as JSON, in the form that tools/README.md describes.
#ifndef HERRAMIENTAS_JSON_H
#define HERRAMIENTAS_JSON_H

#include <string>

#include <nlohmann/json.hpp>

#include "valores.h"
#include "vigia.h"

namespace herramientas {

using json = nlohmann::ordered_json;

json a_json(const suceso &s);        // {"n":1,"time":"...Z","side":"client","kind":"command","begins":true,...}
json a_json(const valor &v);         // {"name":"a","type":"ulong","value":7}; a buffer in hexadecimal, inf as text
json a_json(const contenido &c);     // {"values":[...]} and "error" where reading ended early
std::string en_linea(const json &j); // one line; text that is not UTF-8 is replaced, never refused

} // namespace herramientas

#endif
