// The leanest means of transport that carries everything: a message that wakes the server's window, and one named
// block, mapped once by both sides, with a place for the request and a place for the answer. Each way costs one copy,
// that of the sender; the receiver reads where it lies.
#include "../comun/fila.h"
#include "../comun/proceso.h"

#include <cstring>

namespace banco {

namespace {

const UINT MENSAJE = WM_APP + 1;
const uint32_t TAM_MAXIMO = 4 * 1024 * 1024;
const size_t TAM_TEXTO = 64;

struct sitio_peticion {
    uint32_t id_comando;
    uint32_t numero;
    double real;
    char texto[TAM_TEXTO];
    uint32_t tam;
    uint8_t buffer[TAM_MAXIMO];
};

struct sitio_respuesta {
    uint32_t numero;
    char texto[TAM_TEXTO];
    uint32_t tam;
    uint8_t buffer[TAM_MAXIMO];
};

struct bloque {
    sitio_peticion peticion;
    sitio_respuesta respuesta;
};

bloque *s_bloque;
HWND s_servidor;

// A copy of nothing may come with no address.
void copia(uint8_t *destino, const uint8_t *origen, uint32_t tam)
{
    if (tam > 0)
        std::memcpy(destino, origen, tam);
}

bloque *abre_bloque(const std::string &sesion)
{
    return static_cast<bloque *>(mapea("banco_block_" + sesion, sizeof(bloque)));
}

// ---- The server's side

void contesta(const sitio_peticion &peticion, sitio_respuesta *respuesta)
{
    respuesta->numero = peticion.numero + 1;
    invierte(peticion.texto, respuesta->texto, sizeof respuesta->texto);
    respuesta->tam = peticion.tam;
    copia(respuesta->buffer, peticion.buffer, peticion.tam);
}

LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg != MENSAJE)
        return DefWindowProcA(hwnd, msg, wparam, lparam);
    contesta(s_bloque->peticion, &s_bloque->respuesta);
    return TRUE;
}

void sirve(const std::string &sesion)
{
    s_bloque = abre_bloque(sesion);
    HWND hwnd = crea_ventana("banco_block_" + sesion, procedimiento);
    papel_listo();
    papel_bucle_mensajes();
    DestroyWindow(hwnd);
}

// ---- The client's side

void conecta(const std::string &sesion)
{
    s_bloque = abre_bloque(sesion);
    s_servidor = busca_ventana("banco_block_" + sesion);
}

void pide(const peticion &peticion, respuesta *respuesta)
{
    sitio_peticion &ida = s_bloque->peticion;
    ida.id_comando = peticion.id_comando;
    ida.numero = peticion.numero;
    ida.real = peticion.real;
    std::memcpy(ida.texto, peticion.texto, std::strlen(peticion.texto) + 1);
    ida.tam = peticion.tam;
    copia(ida.buffer, peticion.buffer, peticion.tam);
    if (!SendMessageW(s_servidor, MENSAJE, 0, 0))
        falla("SendMessage");
    const sitio_respuesta &vuelta = s_bloque->respuesta;
    *respuesta = {vuelta.numero, vuelta.texto, vuelta.buffer, vuelta.tam};
}

void desconecta() {}

} // namespace

extern const fila fila_bloque;
const fila fila_bloque = {"block",   "SendMessage and one mapped block", TAM_MAXIMO, false, true, sirve, conecta, pide,
                          desconecta};

} // namespace banco
