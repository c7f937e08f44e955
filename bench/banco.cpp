// banco.exe - measures the library side by side with what one would use instead, and with the floor beneath it.
#include "comun/fila.h"
#include "comun/proceso.h"
#include "comun/seccion.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <stdexcept>

using namespace banco;

namespace {

struct orden {
    opciones opciones;
    std::vector<std::string> secciones;
    std::string json;
    bool estricto = false;
    std::string papel, sesion, padre, listo, fin; // of a child
};

int juega_papel(const orden &orden)
{
    papel_recibe(orden.padre, orden.listo, orden.fin);
    for (const fila *fila : filas())
        if (orden.papel == fila->clave) {
            fila->sirve(orden.sesion);
            return 0;
        }
    for (const papel &papel : papeles())
        if (orden.papel == papel.clave) {
            papel.sirve(orden.sesion);
            return 0;
        }
    throw std::runtime_error("no role is called " + orden.papel);
}

// A check needs no processor of its own, and only one section has any.
void prepara(orden *orden, informe *informe)
{
    const char COMPROBABLE[] = "roundtrip";
    if (!orden->opciones.solo_comprueba) {
        fija_cpu(orden->opciones.cpu);
        informe->anota_procesador(orden->opciones.cpu);
        return;
    }
    for (const std::string &clave : orden->secciones)
        if (clave != COMPROBABLE)
            throw std::runtime_error("--check is for the section " + std::string(COMPROBABLE) + ": " + clave +
                                     " has no check that measures nothing");
    orden->secciones = {COMPROBABLE};
}

int mide_todo(orden orden)
{
    informe informe(orden.opciones.rapido);
    prepara(&orden, &informe);
    for (const seccion &seccion : secciones())
        if (pedida(orden.secciones, seccion.clave)) {
            double antes = ahora();
            seccion.mide(orden.opciones, &informe);
            informe.seccion(seccion.clave)["seconds"] = ahora() - antes;
        }
    informe.tabla_de_metas();
    if (!orden.json.empty())
        informe.escribe(orden.json);
    return orden.estricto && !informe.metas_cumplidas() ? 1 : 0;
}

std::vector<std::string> claves_de_secciones()
{
    std::vector<std::string> claves;
    for (const seccion &seccion : secciones())
        claves.push_back(seccion.clave);
    return claves;
}

std::vector<std::string> claves_de_filas()
{
    std::vector<std::string> claves;
    for (const fila *fila : filas())
        claves.push_back(fila->clave);
    return claves;
}

} // namespace

int main(int argc, char **argv)
{
    orden orden;
    orden.opciones.cpu = ultima_cpu();
    CLI::App app("Measures ivrexa side by side with what one would use instead, and with the floor beneath it.");
    app.add_flag("--quick", orden.opciones.rapido, "fewer rounds: the whole in two minutes");
    app.add_flag("--check", orden.opciones.solo_comprueba, "roundtrip: only see that every row answers right");
    app.add_flag("--strict", orden.estricto, "end with 1 when a goal is not met");
    app.add_option("--json", orden.json, "write what was measured to this file");
    app.add_option("--cpu", orden.opciones.cpu, "the processor on which all processes run (the last)")
        ->check(CLI::Range(0, 63));
    app.add_option("--rows", orden.opciones.filas, "only these rows of the round trip")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember(claves_de_filas()));
    app.add_option("sections", orden.secciones, "only these sections")->check(CLI::IsMember(claves_de_secciones()));
    app.add_option("--papel", orden.papel)->group("");
    app.add_option("--sesion", orden.sesion)->group("");
    app.add_option("--padre", orden.padre)->group("");
    app.add_option("--listo", orden.listo)->group("");
    app.add_option("--fin", orden.fin)->group("");
    CLI11_PARSE(app, argc, argv);
    try {
        return orden.papel.empty() ? mide_todo(orden) : juega_papel(orden);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "banco%s%s: %s\n", orden.papel.empty() ? "" : " ", orden.papel.c_str(), e.what());
        return 1;
    }
}
