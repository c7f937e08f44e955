// vigilancia.h - being the desktop's monitor or not, with the questions that go before.
#ifndef MONITOR_VIGILANCIA_H
#define MONITOR_VIGILANCIA_H

#include <atomic>
#include <memory>
#include <vector>

#include <windows.h>

#include "comun/valores.h"
#include "comun/vigia.h"
#include "lector_bloques.h"
#include "modelo.h"
#include "puesto.h"

namespace monitor {

enum class situacion { no_vigila, vigila, desbancada, sin_sitio };

class vigilancia {
public:
    explicit vigilancia(HWND hwnd) : m_hwnd(hwnd) {} // whose the questions are

    // Asks what has not been answered beforehand, and begins. False: somebody said no.
    bool empieza(bool sustituye, bool no_preguntes);
    void para();
    void comprueba(bool hay_monitor); // whether the place is still ours; the desktop has a monitor or not
    situacion como_esta() const { return m_situacion; }
    uint64_t num_actividades() const; // in all sessions

    void lee_bloques(bool si) { m_lee_bloques = si; }
    // What came since, and what the blocks held; numbers go on from one session to the next.
    std::vector<herramientas::suceso> recoge(contenidos *suyos);

private:
    bool puede_sustituir() const;
    bool puede_vaciar() const;
    void llega(herramientas::suceso s, uint64_t numeros_antes);

    HWND m_hwnd;
    situacion m_situacion = situacion::no_vigila;
    uint64_t m_num_antes = 0; // activities of sessions that are over
    std::atomic<bool> m_lee_bloques{true};

    // the post's thread writes them while there is one
    lector_bloques m_lector;
    uint64_t m_numero = 0; // of the last event
    SRWLOCK m_cerrojo = SRWLOCK_INIT;
    std::vector<herramientas::suceso> m_llegados; // under the lock
    contenidos m_contenidos{16u << 20};           // of theirs; under the lock

    std::unique_ptr<puesto> m_puesto;
};

} // namespace monitor

#endif
