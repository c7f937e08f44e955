// Our server without a window: a thread of the library looks for commands, and each takes some five rounds of 100 ms.
#include "../comun/proceso.h"
#include "ivrexa_comun.h"

namespace banco {

static void sirve(const std::string &sesion)
{
    ivrexa_registra_servidor(ivrexa_programa(sesion).c_str(), nullptr, ivrexa_servicio(sesion).c_str(), 1, nullptr,
                             ivrexa_procesa);
    ivrexa_terminado_registro();
    papel_listo();
    WaitForSingleObject(papel_fin(), INFINITE);
    ivrexa_cierra_sesion();
}

extern const fila fila_ivrexa_sin_ventana;
const fila fila_ivrexa_sin_ventana = ivrexa_fila<sirve, false>("ivrexa_windowless", "ivrexa, server without a window");

} // namespace banco
