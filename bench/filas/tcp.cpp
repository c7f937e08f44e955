// A TCP connection on the loopback interface. Frames: the length of what follows in four bytes, then MessagePack. One
// WSASend gathers the frame from where its parts lie, and one recv takes in whatever has arrived.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "../comun/proceso.h"
#include "mensaje_msgpack.h"

#include <cstring>
#include <stdexcept>
#include <vector>

namespace banco {

namespace {

const uint32_t TAM_MAXIMO = 1024 * 1024 * 1024;
const size_t TAM_LARGO = sizeof(uint32_t);
const size_t TAM_ENTRADA = 64 * 1024;
const size_t REFERIDOS_DESDE = 1024; // bytes; what is shorter goes beside the fields

SOCKET s_conexion = INVALID_SOCKET;
msgpack::vrefbuffer s_salida(REFERIDOS_DESDE);
std::vector<char> s_entrada(TAM_ENTRADA);

void abre_winsock()
{
    WSADATA datos;
    int error = WSAStartup(MAKEWORD(2, 2), &datos);
    if (error != 0)
        falla("WSAStartup", static_cast<DWORD>(error));
}

// Where the server writes the number of the port that it got.
uint32_t *puerto(const std::string &sesion)
{
    return static_cast<uint32_t *>(mapea("banco_tcp_" + sesion, sizeof(uint32_t)));
}

sockaddr_in direccion(uint32_t puerto)
{
    sockaddr_in direccion = {};
    direccion.sin_family = AF_INET;
    direccion.sin_port = htons(static_cast<u_short>(puerto));
    direccion.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return direccion;
}

void sin_demora()
{
    BOOL si = TRUE;
    if (setsockopt(s_conexion, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&si), sizeof si) != 0)
        falla("TCP_NODELAY", static_cast<DWORD>(WSAGetLastError()));
}

// ---- Frames

// Begins a frame with a place for its length.
void empieza_trama()
{
    const uint32_t aun_no_sabido = 0;
    s_salida.clear();
    s_salida.write(reinterpret_cast<const char *>(&aun_no_sabido), TAM_LARGO);
}

void envia(std::vector<WSABUF> *partes)
{
    for (size_t primera = 0; primera < partes->size();) {
        DWORD enviados;
        WSABUF *desde = partes->data() + primera;
        if (WSASend(s_conexion, desde, static_cast<DWORD>(partes->size() - primera), &enviados, 0, nullptr, nullptr))
            falla("WSASend", static_cast<DWORD>(WSAGetLastError()));
        for (; primera < partes->size() && enviados >= (*partes)[primera].len; primera++)
            enviados -= (*partes)[primera].len;
        if (primera < partes->size()) {
            (*partes)[primera].buf += enviados;
            (*partes)[primera].len -= enviados;
        }
    }
}

void envia_trama()
{
    static std::vector<WSABUF> partes;
    const msgpack::iovec *trozos = s_salida.vector();
    uint32_t largo = 0;
    partes.clear();
    for (size_t i = 0; i < s_salida.vector_size(); i++) {
        partes.push_back({static_cast<ULONG>(trozos[i].iov_len), static_cast<char *>(trozos[i].iov_base)});
        largo += static_cast<uint32_t>(trozos[i].iov_len);
    }
    largo -= TAM_LARGO;
    std::memcpy(partes[0].buf, &largo, TAM_LARGO);
    envia(&partes);
}

// Receives until there are `tam` bytes, and maybe more; false when the other side has closed the connection.
bool recibe_hasta(size_t tam, size_t *recibidos)
{
    while (*recibidos < tam) {
        int num = recv(s_conexion, s_entrada.data() + *recibidos, static_cast<int>(s_entrada.size() - *recibidos), 0);
        if (num < 0)
            falla("recv", static_cast<DWORD>(WSAGetLastError()));
        if (num == 0)
            return false;
        *recibidos += static_cast<size_t>(num);
    }
    return true;
}

// The length of what lies behind the frame's own; 0 when the other side has closed the connection. Nothing comes behind
// a frame before it is answered.
size_t recibe_trama()
{
    size_t recibidos = 0;
    uint32_t largo;
    if (!recibe_hasta(TAM_LARGO, &recibidos))
        return 0;
    std::memcpy(&largo, s_entrada.data(), TAM_LARGO);
    if (s_entrada.size() < TAM_LARGO + largo)
        s_entrada.resize(TAM_LARGO + largo);
    return recibe_hasta(TAM_LARGO + largo, &recibidos) ? largo : 0;
}

// ---- The server's side

SOCKET escucha(const std::string &sesion)
{
    SOCKET escucha = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in aqui = direccion(0);
    int tam = sizeof aqui;
    if (escucha == INVALID_SOCKET || bind(escucha, reinterpret_cast<sockaddr *>(&aqui), tam) != 0 ||
        listen(escucha, 1) != 0 || getsockname(escucha, reinterpret_cast<sockaddr *>(&aqui), &tam) != 0)
        falla("no port could be listened to", static_cast<DWORD>(WSAGetLastError()));
    *puerto(sesion) = ntohs(aqui.sin_port);
    return escucha;
}

void sirve(const std::string &sesion)
{
    abre_winsock();
    SOCKET escuchado = escucha(sesion);
    papel_listo();
    s_conexion = accept(escuchado, nullptr, nullptr);
    if (s_conexion == INVALID_SOCKET)
        falla("accept", static_cast<DWORD>(WSAGetLastError()));
    sin_demora();
    while (size_t largo = recibe_trama()) {
        empieza_trama();
        contesta_msgpack(s_entrada.data() + TAM_LARGO, largo, &s_salida);
        envia_trama();
    }
    closesocket(s_conexion);
    closesocket(escuchado);
    WaitForSingleObject(papel_fin(), LIMITE_MS);
}

// ---- The client's side

void conecta(const std::string &sesion)
{
    abre_winsock();
    s_conexion = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in alli = direccion(*puerto(sesion));
    if (s_conexion == INVALID_SOCKET || connect(s_conexion, reinterpret_cast<sockaddr *>(&alli), sizeof alli) != 0)
        falla("connect", static_cast<DWORD>(WSAGetLastError()));
    sin_demora();
}

void pide(const peticion &peticion, respuesta *respuesta)
{
    empieza_trama();
    empaqueta_peticion(peticion, &s_salida);
    envia_trama();
    size_t largo = recibe_trama();
    if (largo == 0)
        throw std::runtime_error("the server has closed the connection");
    desempaqueta_respuesta(s_entrada.data() + TAM_LARGO, largo, respuesta);
}

void desconecta()
{
    shutdown(s_conexion, SD_BOTH); // the servers started since have inherited the socket
    closesocket(s_conexion);
}

} // namespace

extern const fila fila_tcp;
const fila fila_tcp = {"tcp", "loopback TCP, MessagePack", TAM_MAXIMO, false, true, sirve, conecta, pide, desconecta};

} // namespace banco
