// veredicto.h - what each program may come to hold for each thing that it does, and whether it kept to that.
#ifndef AGUANTE_VEREDICTO_H
#define AGUANTE_VEREDICTO_H

#include <cstdint>
#include <string>
#include <vector>

#include "medidas.h"

// What stays in the program: handles of shared blocks and of mutexes, views, blocks and bytes of the
// library's heap; and data blocks of its service that stay in being.
struct coste {
    int32_t manejadores = 0, bloques = 0, mutexes = 0, vistas = 0, bloques_monton = 0, bytes_monton = 0;
};

struct muestra {
    double segundos = 0;
    uint32_t generacion = 0;
    uint32_t hechos = 0; // by the program; in one that does nothing, 0
    manejadores_vistos manejadores;
    memoria propia;
    int32_t bloques_servicio = 0;
};

struct historia {
    std::string papel; // as the report and the data call it
    coste por_cosa;
    bool ocioso;                   // it is never told to do a thing
    std::vector<muestra> muestras; // the first of a generation comes after everything was done once
};

// Prints a line for each program, with what each thing that it did has cost. What grew beside that fails the
// test.
void juzga(const std::vector<historia> &historias);

#endif
