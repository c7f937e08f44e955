// What one small value more costs, among few and among many.
#include "datos.h"

#include <algorithm>
#include <stdexcept>

namespace banco {

namespace {

const size_t POCOS = 1000, MUCHOS = 1000000;

// Seconds for one value more, round by round. Where noise has made one value the dearer, next to nothing remains, so
// that such a round does not count in favour of the larger size.
medida coste_por_valor(const std::vector<double> &diferencias, size_t num)
{
    const double CASI_NADA = 1e-12;
    medida coste = {"cost", {}};
    for (double diferencia : diferencias)
        coste.segundos.push_back(std::max(diferencia / static_cast<double>(num - 1), CASI_NADA));
    return coste;
}

std::vector<double> diferencias(const medida &muchos, const medida &uno)
{
    std::vector<double> diferencias;
    for (size_t i = 0; i < muchos.segundos.size(); i++)
        diferencias.push_back(muchos.segundos[i] - uno.segundos[i]);
    return diferencias;
}

const nlohmann::json &grupo_de(const nlohmann::json &grupos, size_t num)
{
    for (const nlohmann::json &grupo : grupos)
        if (grupo.at("values") == num)
            return grupo;
    throw std::logic_error("no group of that size");
}

// How often a buffer is reallocated until it has room for so many bytes, up to 64 KiB. It begins with 1 KiB.
size_t num_realojos(size_t bytes)
{
    const size_t PASO = 1024;
    return bytes <= PASO ? 0 : (bytes - PASO + PASO - 1) / PASO;
}

// The goal bounds one direction alone, that a value among many is the dearer one. This says why one among few is.
void explica_pocos(const medida &pocos, const medida &muchos, size_t realojos, informe *informe)
{
    double demas = pocos.tiempo().mediana - muchos.tiempo().mediana;
    if (demas <= 0)
        return;
    double cada_uno = demas * static_cast<double>(POCOS) / static_cast<double>(realojos);
    informe->linea("Among " + con_comas(POCOS) + " values one costs " + tres_cifras(razon(pocos, muchos).mediana) +
                   " times what it costs among " + con_comas(MUCHOS) +
                   ": below 64 KiB the buffer is\nreallocated"
                   " every 1 KiB, " +
                   std::to_string(realojos) +
                   " times for these, each time a heap operation under"
                   " the lock of the whole desktop.\nWhat they cost more comes to " +
                   duracion(cada_uno) + " for each reallocation.");
}

void tabula_coste(const medida &pocos, const medida &muchos, const medida &uno, informe *informe)
{
    std::vector<std::vector<std::string>> tabla = {{"ivrexa", "for each value", "least", "most"}};
    auto fila = [&](const std::string &que, const resumen &coste) {
        tabla.push_back({que, duracion(coste.mediana), duracion(coste.minimo), duracion(coste.maximo)});
    };
    fila(con_comas(POCOS) + " values", pocos.tiempo());
    fila(con_comas(MUCHOS) + " values", muchos.tiempo());
    fila("one value: the fixed cost", uno.tiempo());
    informe->tabla("Command data: the cost of a value, less the fixed cost", tabla);
}

} // namespace

void anota_coste(const nlohmann::json &grupos, informe *informe)
{
    medida uno = busca(grupo_de(grupos, 1).at("rows"), "ivrexa");
    medida pocos = coste_por_valor(grupo_de(grupos, 1).at("difference"), POCOS);
    medida muchos = coste_por_valor(diferencias(busca(grupo_de(grupos, MUCHOS).at("rows"), "ivrexa"), uno), MUCHOS);
    size_t realojos = num_realojos(grupo_de(grupos, POCOS).at("bytes").at("ivrexa"));
    resumen razon_costes = razon(muchos, pocos);
    tabula_coste(pocos, muchos, uno, informe);
    explica_pocos(pocos, muchos, realojos, informe);
    informe->seccion("data")["cost_per_value"] = {{"fixed", a_json(uno)},
                                                  {"1000", a_json(pocos)},
                                                  {"1000000", a_json(muchos)},
                                                  {"reallocations_of_1000", realojos},
                                                  {"ratio", a_json(razon_costes)}};
    informe->anota_meta("cost of a value, 1,000,000 over 1,000", razon_costes.mediana, 1.5);
}

} // namespace banco
