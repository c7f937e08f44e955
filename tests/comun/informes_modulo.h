// informes_modulo.h - reports in module tests, which link the library's sources. Including this header is
// enough.
//
// Before each test the entry MessageBoxA of the window-system table is replaced by a recorder: no box is
// shown, and the report goes to the list of informes.h. An owner, caption or style that is not the library's
// makes it foreign.
#ifndef COMUN_INFORMES_MODULO_H
#define COMUN_INFORMES_MODULO_H

#include "informes.h"
#include "sistema.h"

#include "iv_plataforma.h"

bool registra_grabador(); // puts the recorder in before each test from now on
int WINAPI graba_informe(HWND hwnd, LPCSTR texto, LPCSTR titulo, UINT estilo); // the recorder; answers IDOK

namespace {
[[maybe_unused]] const bool comun_grabador_registrado = registra_grabador();
}

// Lets a test swap entries of the window-system table: at the end of its scope the table is again as it was.
//     ventana_cambiada ventana;
//     ventana->PostMessageW = [](HWND, UINT, WPARAM, LPARAM) -> BOOL { return FALSE; };
class ventana_cambiada {
public:
    ventana_cambiada() : m_antes(*iv_ventana()) {}
    ~ventana_cambiada() { *iv_ventana() = m_antes; }
    ventana_cambiada(const ventana_cambiada &) = delete;
    ventana_cambiada &operator=(const ventana_cambiada &) = delete;

    iv_ventana_llamadas *operator->() { return iv_ventana(); }
    const iv_ventana_llamadas &antes() const { return m_antes; }

private:
    const iv_ventana_llamadas m_antes;
};

#endif
