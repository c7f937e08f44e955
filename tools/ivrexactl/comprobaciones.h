// comprobaciones.h - what an option's value must be, told in words.
#ifndef IVREXACTL_COMPROBACIONES_H
#define IVREXACTL_COMPROBACIONES_H

#include <string>

namespace ivrexactl {

// For CLI11's check(): "" where the text is right, else what is wrong with it.
std::string es_tiempo(const std::string &texto);  // seconds, more than 0
std::string es_cuenta(const std::string &texto);  // 1 or more
std::string es_proceso(const std::string &texto); // a process id

} // namespace ivrexactl

#endif
