// WM_COPYDATA both ways: the server answers from inside its handler, with a message to the window of the client, which
// waits in SendMessage meanwhile and so receives it. Windows carries the bytes from one process to the other.
//
// Under Wine the receiver gets the bytes on its stack: those of the request lie on the server's while it sends the
// answer, which lies on the client's. The 1 MiB that a program has by default does not hold 4 MiB; bench/CMakeLists.txt
// asks for more.
#include "../comun/proceso.h"
#include "mensaje_msgpack.h"

#include <vector>

namespace banco {

namespace {

const uint32_t TAM_MAXIMO = 4 * 1024 * 1024; // as the stack allows under Wine
const ULONG_PTR PETICION = 1, RESPUESTA = 2;

msgpack::sbuffer s_salida;

bool envia(HWND destino, HWND origen, ULONG_PTR que)
{
    COPYDATASTRUCT datos = {que, static_cast<DWORD>(s_salida.size()), s_salida.data()};
    return SendMessageW(destino, WM_COPYDATA, reinterpret_cast<WPARAM>(origen), reinterpret_cast<LPARAM>(&datos)) != 0;
}

// ---- The server's side

bool contesta(HWND servidor, HWND cliente, const COPYDATASTRUCT &datos)
{
    s_salida.clear();
    contesta_msgpack(static_cast<const char *>(datos.lpData), datos.cbData, &s_salida);
    return envia(cliente, servidor, RESPUESTA);
}

LRESULT CALLBACK procedimiento_servidor(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    auto datos = reinterpret_cast<const COPYDATASTRUCT *>(lparam);
    if (msg == WM_COPYDATA && datos->dwData == PETICION)
        return contesta(hwnd, reinterpret_cast<HWND>(wparam), *datos);
    return DefWindowProcA(hwnd, msg, wparam, lparam);
}

void sirve(const std::string &sesion)
{
    HWND hwnd = crea_ventana("banco_copydata_" + sesion, procedimiento_servidor);
    papel_listo();
    papel_bucle_mensajes();
    DestroyWindow(hwnd);
}

// ---- The client's side

HWND s_servidor, s_cliente;
std::vector<char> s_recibido;

// The bytes are lent for as long as the message lasts.
LRESULT CALLBACK procedimiento_cliente(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    auto datos = reinterpret_cast<const COPYDATASTRUCT *>(lparam);
    if (msg != WM_COPYDATA || datos->dwData != RESPUESTA)
        return DefWindowProcA(hwnd, msg, wparam, lparam);
    auto bytes = static_cast<const char *>(datos->lpData);
    s_recibido.assign(bytes, bytes + datos->cbData);
    return TRUE;
}

void conecta(const std::string &sesion)
{
    s_servidor = busca_ventana("banco_copydata_" + sesion);
    s_cliente = crea_ventana("banco_copydata_cliente_" + sesion, procedimiento_cliente);
}

void pide(const peticion &peticion, respuesta *respuesta)
{
    s_salida.clear();
    empaqueta_peticion(peticion, &s_salida);
    s_recibido.clear();
    if (!envia(s_servidor, s_cliente, PETICION))
        falla("WM_COPYDATA");
    desempaqueta_respuesta(s_recibido.data(), s_recibido.size(), respuesta);
}

void desconecta()
{
    DestroyWindow(s_cliente);
}

} // namespace

extern const fila fila_copydata;
const fila fila_copydata = {"copydata", "WM_COPYDATA, MessagePack", TAM_MAXIMO, false, true, sirve, conecta, pide,
                            desconecta};

} // namespace banco
