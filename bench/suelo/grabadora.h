// grabadora.h - writes down what ivrexa.dll calls: each import of the DLL in this process goes through a few bytes of
// machine code that note the call and jump on. What the DLL binds late, with GetProcAddress, gets the same.
//
// Only the calls of the thread that began are noted, and only while the record is switched on: heartbeats and other
// threads do not disturb. The record lies in a block that the processes of a measurement share.
#ifndef BANCO_GRABADORA_H
#define BANCO_GRABADORA_H

#include "guion.h"

#include <string>

namespace banco {

struct llamada_grabada {
    char nombre[28]; // of the function
    uint32_t tam;    // bytes asked for; 0 where it asks for none
};

struct cinta {
    volatile long graba; // CIERTO while calls are noted
    uint32_t num;        // of calls, those beyond the end counted too
    llamada_grabada llamadas[4096];
};

// The two tapes of a session. Never unmapped.
struct cintas {
    cinta cliente, servidor;
};
cintas *cintas_de(const std::string &sesion);

// From now on this thread's calls go to that tape. Before the DLL has made its first call into user32; once a process.
void grabadora_empieza(cinta *cinta);

} // namespace banco

#endif
