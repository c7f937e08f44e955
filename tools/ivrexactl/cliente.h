// cliente.h - ivrexactl as a client of a service: what is looked at before, the registration, and Ctrl-C meanwhile.
// Whatever would make the library show a message box is found out first, and refused with a line of text.
#ifndef IVREXACTL_CLIENTE_H
#define IVREXACTL_CLIENTE_H

#include <atomic>
#include <string>
#include <thread>

#include <windows.h>

#include "comun/mirada.h"

namespace ivrexactl {

struct destino {
    std::string nombre; // UTF-8
    std::string nombre_ansi;
    herramientas::canal_visto canal;                             // as it was when we looked
    bool con_ventana() const { return canal.msg_servidor != 0; } // commands go by message, not by polling
};

// The service, with a server that can be asked. Throws when there is none.
destino busca_destino(const std::string &nombre_utf8);

bool ventana_viva(const herramientas::canal_visto &canal); // true also where the server has no window

// One program at a time has the place of a service's client, and a server without a window that finds no heartbeat
// there during a command may end: throws where a client that lives has the place of such a service; forced, says what
// that does.
void comprueba_desplazado(const destino &d, bool fuerza);

// While one lives, Ctrl-C ends this process, whatever the library waits for, and says what stays behind. It is made
// before the library is first called, and outlives the session.
class vela {
public:
    explicit vela(const destino &d);
    ~vela();
    vela(const vela &) = delete;
    vela &operator=(const vela &) = delete;

    // What comes next. The first two throw once the end was asked for, so nothing is begun after that.
    void toma_entrada(); // from now on the program entry may be ours
    void manda();        // from now on the command may be under way
    void vuelve() { m_etapa = etapa::vuelto; }

private:
    enum class etapa { nada, entrada, mandado, vuelto };
    void pasa_a(etapa e);
    void vigila();
    bool acaba_en(uint32_t ms) const;
    void di_lo_que_queda() const;
    const destino &m_destino;
    std::atomic<etapa> m_etapa{etapa::nada};
    HANDLE m_acabado;
    std::thread m_hilo;
};

// Registers this program as a client without a window, and closes the session at its end.
class cliente {
public:
    cliente(const destino &d, vela &ctrl_c); // throws where a table has no room; says what it takes
    ~cliente();
    cliente(const cliente &) = delete;
    cliente &operator=(const cliente &) = delete;
    void espera_latido() const; // throws when Ctrl-C comes first

private:
    HANDLE m_turno = nullptr;
    std::string m_nombre; // our entry among the programs
};

} // namespace ivrexactl

#endif
