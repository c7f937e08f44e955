// A named pipe in message mode: each message is one request or one answer, so nothing need say how long it is, and
// TransactNamedPipe writes the request and waits for the answer in one call.
#include "../comun/proceso.h"
#include "mensaje_msgpack.h"

#include <vector>

namespace banco {

namespace {

const uint32_t TAM_MAXIMO = 1024 * 1024 * 1024;
const DWORD TAM_TUBERIA = 64 * 1024;

HANDLE s_tuberia = INVALID_HANDLE_VALUE;
msgpack::sbuffer s_salida;
std::vector<char> s_entrada(TAM_TUBERIA);

std::string nombre(const std::string &sesion)
{
    return "\\\\.\\pipe\\banco_pipe_" + sesion;
}

// The rest of a message that began with `leidos` bytes and is longer than the buffer, which from now on is longer.
DWORD lee_el_resto(DWORD leidos)
{
    DWORD faltan, del_resto;
    if (!PeekNamedPipe(s_tuberia, nullptr, 0, nullptr, nullptr, &faltan))
        falla("PeekNamedPipe");
    s_entrada.resize(leidos + faltan);
    if (!ReadFile(s_tuberia, s_entrada.data() + leidos, faltan, &del_resto, nullptr))
        falla("ReadFile");
    return leidos + del_resto;
}

// ---- The server's side

// 0 when the client has gone.
DWORD lee_peticion()
{
    DWORD leidos;
    if (ReadFile(s_tuberia, s_entrada.data(), static_cast<DWORD>(s_entrada.size()), &leidos, nullptr))
        return leidos;
    if (GetLastError() == ERROR_MORE_DATA)
        return lee_el_resto(leidos);
    if (GetLastError() != ERROR_BROKEN_PIPE)
        falla("ReadFile");
    return 0;
}

void contesta(DWORD tam)
{
    DWORD escritos;
    s_salida.clear();
    contesta_msgpack(s_entrada.data(), tam, &s_salida);
    if (!WriteFile(s_tuberia, s_salida.data(), static_cast<DWORD>(s_salida.size()), &escritos, nullptr))
        falla("WriteFile");
}

void sirve(const std::string &sesion)
{
    s_tuberia = CreateNamedPipeA(nombre(sesion).c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                 PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, TAM_TUBERIA, TAM_TUBERIA, 0,
                                 nullptr);
    if (s_tuberia == INVALID_HANDLE_VALUE)
        falla("CreateNamedPipe");
    papel_listo();
    if (!ConnectNamedPipe(s_tuberia, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED)
        falla("ConnectNamedPipe");
    while (DWORD tam = lee_peticion())
        contesta(tam);
    CloseHandle(s_tuberia);
    WaitForSingleObject(papel_fin(), LIMITE_MS);
}

// ---- The client's side

void conecta(const std::string &sesion)
{
    s_tuberia =
        CreateFileA(nombre(sesion).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    DWORD modo = PIPE_READMODE_MESSAGE | PIPE_WAIT;
    if (s_tuberia == INVALID_HANDLE_VALUE || !SetNamedPipeHandleState(s_tuberia, &modo, nullptr, nullptr))
        falla("the server's pipe could not be opened");
}

void pide(const peticion &peticion, respuesta *respuesta)
{
    DWORD leidos;
    s_salida.clear();
    empaqueta_peticion(peticion, &s_salida);
    if (!TransactNamedPipe(s_tuberia, s_salida.data(), static_cast<DWORD>(s_salida.size()), s_entrada.data(),
                           static_cast<DWORD>(s_entrada.size()), &leidos, nullptr)) {
        if (GetLastError() != ERROR_MORE_DATA)
            falla("TransactNamedPipe");
        leidos = lee_el_resto(leidos);
    }
    desempaqueta_respuesta(s_entrada.data(), leidos, respuesta);
}

void desconecta()
{
    CloseHandle(s_tuberia);
}

} // namespace

extern const fila fila_tuberia;
const fila fila_tuberia = {"pipe",    "named pipe, MessagePack", TAM_MAXIMO, false, true, sirve, conecta, pide,
                           desconecta};

} // namespace banco
