// Our _net server: no command function; its own window procedure fetches the command and answers it.
#include "../comun/proceso.h"
#include "ivrexa_comun.h"

namespace banco {

static std::string s_servicio;
static UINT s_mensaje;
static comdat *s_salida = nullptr; // of the last command: kept until the next, for the client to read

static void suelta_salida()
{
    if (s_salida != nullptr)
        ivrexa_destruye_datos_comando(s_salida);
    s_salida = nullptr;
}

static LRESULT atiende(uint32_t id_comando)
{
    const char *servicio = s_servicio.c_str();
    uint32_t id_entrada = 0;
    if (ivrexa_get_datos_entrada_comando(servicio, id_comando, &id_entrada, nullptr, nullptr, nullptr) != CIERTO ||
        id_entrada == 0)
        return ivrexa_resultado_ERROR;
    comdat *entrada = ivrexa_lee_datos(servicio, id_entrada, CIERTO);
    suelta_salida();
    s_salida = ivrexa_contesta(servicio, id_comando, entrada);
    if (entrada != nullptr)
        ivrexa_destruye_datos_comando(entrada);
    return s_salida != nullptr ? ivrexa_resultado_OK : ivrexa_resultado_ERROR;
}

static LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (s_mensaje != 0 && msg == s_mensaje && wparam >= ivrexa_comando_PRIMERO_PROPIO)
        return atiende(static_cast<uint32_t>(wparam));
    return DefWindowProcA(hwnd, msg, wparam, lparam);
}

static void sirve(const std::string &sesion)
{
    s_servicio = ivrexa_servicio(sesion);
    HWND hwnd = crea_ventana("banco_ivrexa_net_" + sesion, procedimiento);
    ivrexa_registra_servidor_net(ivrexa_programa(sesion).c_str(), hwnd, s_servicio.c_str(), 1);
    ivrexa_terminado_registro();
    s_mensaje = ivrexa_dame_id_MSG_servicio(s_servicio.c_str());
    papel_listo();
    papel_bucle_mensajes();
    suelta_salida();
    ivrexa_cierra_sesion();
    DestroyWindow(hwnd);
}

extern const fila fila_ivrexa_net;
const fila fila_ivrexa_net = ivrexa_fila<sirve, true>("ivrexa_net", "ivrexa, _net server");

} // namespace banco
