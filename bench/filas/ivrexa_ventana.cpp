// Our server with a window: a command arrives in its message loop, and the library calls the command function there.
#include "../comun/proceso.h"
#include "ivrexa_comun.h"

namespace banco {

static void sirve(const std::string &sesion)
{
    HWND hwnd = crea_ventana("banco_ivrexa_window_" + sesion, DefWindowProcA);
    ivrexa_registra_servidor(ivrexa_programa(sesion).c_str(), hwnd, ivrexa_servicio(sesion).c_str(), 1, nullptr,
                             ivrexa_procesa);
    ivrexa_terminado_registro();
    papel_listo();
    papel_bucle_mensajes();
    ivrexa_cierra_sesion();
    DestroyWindow(hwnd);
}

extern const fila fila_ivrexa_ventana;
const fila fila_ivrexa_ventana = ivrexa_fila<sirve, true>("ivrexa_window", "ivrexa, server with a window");

} // namespace banco
