// informe.h - what a run says: tables for people, one JSON for programs, and which goals are met.
#ifndef BANCO_INFORME_H
#define BANCO_INFORME_H

#include "medida.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace banco {

// "Wine 8.0" or "Windows 10.0.19045": every table says where its numbers come from, and whether the run was quick.
std::string sistema();

struct meta {
    std::string nombre;
    double valor = 0;
    double limite = 0; // met when valor <= limite
    bool cumplida() const { return valor <= limite; }
};

class informe {
public:
    explicit informe(bool rapido);  // begun now: the JSON has the date
    void anota_procesador(int cpu); // on which all processes run

    // A table: the first row has the column heads. Columns are aligned, numbers to the right.
    void tabla(const std::string &titulo, const std::vector<std::vector<std::string>> &filas);
    void linea(const std::string &texto);

    // What the section found out, under its name in the JSON.
    nlohmann::json &seccion(const std::string &clave);

    void anota_meta(const std::string &nombre, double valor, double limite);
    void tabla_de_metas();
    bool metas_cumplidas() const;
    void escribe(const std::string &fichero); // throws where it cannot

private:
    nlohmann::json json_;
    std::string origen_; // of the numbers, as every table says it
    std::vector<meta> metas_;
};

nlohmann::json a_json(const medida &medida); // samples, median, least and most, in seconds
nlohmann::json a_json(const resumen &resumen);

std::string duracion(double segundos);            // "12.3 us"
std::string tres_cifras(double valor);            // "1.04"
std::string con_extremos(const resumen &resumen); // "1.04 (1.01-1.09)"
std::string bytes(double num);                    // "256 KiB"

} // namespace banco

#endif
