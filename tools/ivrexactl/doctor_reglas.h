// doctor_reglas.h - what `ivrexactl doctor` checks, and what it says to do.
#ifndef IVREXACTL_DOCTOR_REGLAS_H
#define IVREXACTL_DOCTOR_REGLAS_H

#include <string>
#include <vector>

#include "doctor_mirada.h"

namespace ivrexactl {

enum class gravedad { nota, problema };

struct hallazgo {
    std::string id; // of the check
    gravedad grave = gravedad::problema;
    std::string sujeto;  // where
    std::string texto;   // what
    std::string consejo; // what to do
    std::string clave;   // values that must be the same in every look
};

// One look, and what is known of all of them.
struct examen {
    const consulta &c;
    const herramientas::escritorio_visto &e;
    const std::set<std::string> &faltan;
    std::vector<hallazgo> *hallazgos;
};

struct regla {
    const char *id;
    gravedad grave;      // of its findings, unless the check says otherwise
    const char *consejo; // what to do
    void (*comprueba)(const regla &r, const examen &x);
};

extern const std::vector<regla> reglas_registro, reglas_programas, reglas_servicios, reglas_canales, reglas_datos;

// Told at the end of a check.
hallazgo &apunta(const regla &r, const examen &x, const std::string &sujeto, const std::string &texto,
                 const std::string &clave = "");

// What every look showed, in the order of the tables.
std::vector<hallazgo> diagnostica(const consulta &c);

// ---- What several checks ask

enum class vida { vive, parado, muerto, libre, ninguno }; // ninguno: no such entry; libre: nobody has it

vida vida_de(const examen &x, uint32_t id_programa);
bool esta_fuera(vida v); // it cannot act: dead, stopped, or not there
std::string describe_programa(const examen &x, uint32_t id_programa);
std::string describe_servicio(const herramientas::servicio_visto &s);
std::string segundos_callado(const examen &x, uint32_t id_programa);
bool es_entrada(const herramientas::servicio_visto &s);     // of the table; otherwise a channel alone
bool se_lee(const herramientas::servicio_visto &s);         // its channel is whole and was not torn
bool dice_que_sirve(const herramientas::servicio_visto &s); // the channel says that a server is there
bool es_de_ventana(const herramientas::servicio_visto &s);
bool esta_quieto(const examen &x, const herramientas::servicio_visto &s); // nothing moved in it all the while

} // namespace ivrexactl

#endif
