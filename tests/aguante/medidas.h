// medidas.h - what a process holds: its handles, seen from another process; its memory, seen by itself.
#ifndef AGUANTE_MEDIDAS_H
#define AGUANTE_MEDIDAS_H

#include <cstdint>
#include <map>
#include <string>

#include "comun/sistema.h"

// ---- Memory, by the process itself

struct memoria {
    uint32_t hechos = 0; // commands, notifications or registrations so far
    uint64_t bytes_privados = 0;
    uint32_t bloques_monton = 0; // of the library's heap
    uint64_t bytes_monton = 0;
    uint32_t vistas = 0; // mapped views: of shared blocks and of files
};

std::string en_linea(const memoria &m);
memoria memoria_de_linea(const std::string &linea);

// The library's heap, known from outside by its coming: the one that is there after a first use of the
// library and was not before.
class monton_de_la_biblioteca {
public:
    monton_de_la_biblioteca();
    memoria mide(uint32_t hechos) const;

private:
    HANDLE m_monton = nullptr;
};

// ---- Handles, of all processes at one moment

struct manejadores_vistos {
    int32_t bloques = 0, mutexes = 0, hilos = 0, otros = 0;
    int32_t todos() const { return bloques + mutexes + hilos + otros; }
};

std::map<uint32_t, manejadores_vistos> manejadores_de_todos(); // by process id

#endif
