// The floor beneath every row that wakes a window: one message, with the number alone. Text and buffer stay behind.
#include "../comun/fila.h"
#include "../comun/proceso.h"

namespace banco {

static const UINT MENSAJE = WM_APP + 1;
static HWND s_servidor;

static LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == MENSAJE)
        return static_cast<LRESULT>(static_cast<uint32_t>(lparam) + 1);
    return DefWindowProcA(hwnd, msg, wparam, lparam);
}

static void sirve(const std::string &sesion)
{
    HWND hwnd = crea_ventana("banco_sendmessage_" + sesion, procedimiento);
    papel_listo();
    papel_bucle_mensajes();
    DestroyWindow(hwnd);
}

static void conecta(const std::string &sesion)
{
    s_servidor = busca_ventana("banco_sendmessage_" + sesion);
}

static void pide(const peticion &peticion, respuesta *respuesta)
{
    LRESULT numero = SendMessageW(s_servidor, MENSAJE, peticion.id_comando, static_cast<LPARAM>(peticion.numero));
    if (numero == 0) // as when the server has died
        falla("SendMessage");
    respuesta->numero = static_cast<uint32_t>(numero);
}

static void desconecta() {}

extern const fila fila_sendmessage;
const fila fila_sendmessage = {"sendmessage", "bare SendMessage", 0xFFFFFFFF, false, false, sirve, conecta,
                               pide,          desconecta};

} // namespace banco
