// traza_captura.h - the debugger output of this process, read by the process itself.
//
// The debug-string calls raise an exception for the debugger: 0x40010006 with ANSI text, and on Windows
// itself 0x4001000A with wide text. The wide call raises the wide one first; only if nobody handles it, the
// ANSI one follows. A vectored handler takes either and says "handled", so each call is one piece, and no
// debugger sees it. Wine knows the ANSI exception alone: there, wide text arrives converted to the ANSI code
// page, and characters that the code page lacks are lost. Pieces hold ANSI text in both cases, so that a test
// compares the same everywhere.
//
// The library reads IVREXA_DEBUG at its first trace call and never again. Under CTest each test is a process
// of its own: it calls activa_traza() or desactiva_traza() first. Another process gets it through
// opciones_papel::entorno.
#ifndef COMUN_TRAZA_CAPTURA_H
#define COMUN_TRAZA_CAPTURA_H

#include <cstdint>
#include <string>
#include <vector>

struct pieza_traza {
    std::string texto;  // one debug-string call
    uint32_t hilo = 0;  // the thread that made it
    bool ancha = false; // came as wide text (never under Wine)
};

void activa_traza(const char *valor = "1"); // IVREXA_DEBUG=valor in this process; "" defines it empty
void desactiva_traza();                     // removes it

// Each record's tick count replaced by "<t>": "\n*** 5123406: " becomes "\n*** <t>: ".
std::string enmascara_tiempos(const std::string &texto);

// Catches while it lives. The newest capture gets all pieces.
class captura_traza {
public:
    captura_traza();
    ~captura_traza();
    captura_traza(const captura_traza &) = delete;
    captura_traza &operator=(const captura_traza &) = delete;

    std::vector<pieza_traza> piezas() const;        // in the order of the calls
    std::string texto() const;                      // all of them, one behind the other
    std::string texto_de_hilo(uint32_t hilo) const; // those of one thread (GetCurrentThreadId)
    std::string texto_propio() const;               // those of the calling thread
    void borra();
    bool espera(const std::string &parte, uint32_t ms) const; // until texto() has it; or false

private:
    captura_traza *m_anterior;
    void *m_manejador;
    std::vector<pieza_traza> m_piezas;
    friend void anyade_pieza(const pieza_traza &pieza);
};

#endif
