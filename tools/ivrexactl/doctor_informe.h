// doctor_informe.h - what `ivrexactl doctor` prints, for people and for programs.
#ifndef IVREXACTL_DOCTOR_INFORME_H
#define IVREXACTL_DOCTOR_INFORME_H

#include <string>
#include <vector>

#include "comun/json.h"

#include "doctor_reglas.h"

namespace ivrexactl {

// Without the end of its last line, which is the summary.
std::string informe_texto(const consulta &c, const std::vector<hallazgo> &hallazgos);

herramientas::json informe_json(const consulta &c, const std::vector<hallazgo> &hallazgos);

} // namespace ivrexactl

#endif
