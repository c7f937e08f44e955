// DDEML: the request is poked into an item of a conversation that stays open, and the answer requested from that item.
//
// Under Wine the server sends an acknowledgement behind the answer to an XTYP_REQUEST. Nobody waits for it, and DDEML
// takes one that comes in the middle of the next transaction for the end of that transaction. So a call lasts until it
// has come, one message more in what is measured; in a program with windows the message loop would get it. Whether
// there is such a message is found out when the conversation begins.
//
// Wine receives the bytes on the stack; bench/CMakeLists.txt asks for one that holds them.
#include "../comun/fila.h"
#include "../comun/proceso.h"

#include <windows.h>
#include <dde.h>
#include <ddeml.h>

#include <cstring>
#include <string>

namespace banco {

namespace {

const UINT CODIGO_PAGINA = CP_WINANSI;
const uint32_t TAM_MAXIMO = 4 * 1024 * 1024; // as the stack allows under Wine
const DWORD PRUEBA_MS = 1000;                // for a message to come that does not come under Windows

struct cabecera_peticion {
    double real;
    uint32_t id_comando;
    uint32_t numero;
    uint32_t tam;
    char texto[64];
};

struct cabecera_respuesta {
    uint32_t numero;
    uint32_t tam;
    char texto[64];
};

// One conversation, seen from either side.
struct dde {
    DWORD instancia = 0;
    HSZ servicio = nullptr;
    HSZ elemento = nullptr;
    UINT formato = 0;
    HDDEDATA respuesta = nullptr; // what the last call brought, or is still to be fetched
    HCONV conversacion = nullptr; // the client's
    HWND ventana = nullptr;       // the conversation's
    bool sobra_acuse = false;     // an acknowledgement follows that nobody waits for
};

dde s_dde;

[[noreturn]] void falla_dde(const char *que)
{
    falla(que, DdeGetLastError(s_dde.instancia));
}

void empieza(const std::string &sesion, PFNCALLBACK procedimiento, DWORD clase)
{
    UINT error = DdeInitializeA(&s_dde.instancia, procedimiento, clase, 0);
    if (error != DMLERR_NO_ERROR)
        falla("DdeInitialize", error);
    s_dde.servicio = DdeCreateStringHandleA(s_dde.instancia, ("banco_dde_" + sesion).c_str(), CODIGO_PAGINA);
    s_dde.elemento = DdeCreateStringHandleA(s_dde.instancia, "orden", CODIGO_PAGINA);
    s_dde.formato = RegisterClipboardFormatA("banco_dde");
    if (s_dde.servicio == nullptr || s_dde.elemento == nullptr || s_dde.formato == 0)
        falla_dde("the names of the DDE conversation");
}

void olvida_respuesta()
{
    if (s_dde.respuesta != nullptr)
        DdeFreeDataHandle(s_dde.respuesta);
    s_dde.respuesta = nullptr;
}

void acaba()
{
    olvida_respuesta();
    DdeFreeStringHandle(s_dde.instancia, s_dde.servicio);
    DdeFreeStringHandle(s_dde.instancia, s_dde.elemento);
    DdeUninitialize(s_dde.instancia);
    s_dde = dde();
}

// A data handle with a header and, behind it, the bytes. It stays ours, since Wine does not free what it is given. Nor
// does it free what each side receives: every call leaves a copy of its bytes in either process. NULL where it fails.
HDDEDATA crea_datos(const void *cabecera, size_t tam_cabecera, const uint8_t *buffer, uint32_t tam)
{
    DWORD total = static_cast<DWORD>(tam_cabecera) + tam;
    HDDEDATA datos =
        DdeCreateDataHandle(s_dde.instancia, nullptr, total, 0, s_dde.elemento, s_dde.formato, HDATA_APPOWNED);
    BYTE *destino = datos != nullptr ? DdeAccessData(datos, nullptr) : nullptr;
    if (destino == nullptr)
        return nullptr;
    std::memcpy(destino, cabecera, tam_cabecera);
    if (tam > 0)
        std::memcpy(destino + tam_cabecera, buffer, tam);
    DdeUnaccessData(datos);
    return datos;
}

// ---- The server

// False where the bytes are no request, or there is no answer to it.
bool atiende(HDDEDATA datos)
{
    DWORD tam = 0;
    const BYTE *bytes = DdeAccessData(datos, &tam);
    cabecera_peticion peticion;
    if (bytes == nullptr || tam < sizeof peticion)
        return false;
    std::memcpy(&peticion, bytes, sizeof peticion);
    if (tam < sizeof peticion + peticion.tam) // the system may give it more bytes than it was sent
        return false;
    cabecera_respuesta respuesta = {peticion.numero + 1, peticion.tam, ""};
    invierte(peticion.texto, respuesta.texto, sizeof respuesta.texto);
    olvida_respuesta();
    s_dde.respuesta = crea_datos(&respuesta, sizeof respuesta, bytes + sizeof peticion, peticion.tam);
    DdeUnaccessData(datos);
    return s_dde.respuesta != nullptr;
}

HDDEDATA CALLBACK procedimiento_servidor(UINT tipo, UINT, HCONV, HSZ, HSZ, HDDEDATA datos, ULONG_PTR, ULONG_PTR)
{
    switch (tipo) {
    case XTYP_CONNECT:
        return reinterpret_cast<HDDEDATA>(TRUE);
    case XTYP_POKE:
        return reinterpret_cast<HDDEDATA>(static_cast<uintptr_t>(atiende(datos) ? DDE_FACK : DDE_FNOTPROCESSED));
    case XTYP_REQUEST:
        return s_dde.respuesta;
    default:
        return nullptr;
    }
}

void sirve(const std::string &sesion)
{
    empieza(sesion, procedimiento_servidor, APPCLASS_STANDARD | CBF_SKIP_ALLNOTIFICATIONS);
    if (DdeNameService(s_dde.instancia, s_dde.servicio, nullptr, DNS_REGISTER) == nullptr)
        falla_dde("DdeNameService");
    papel_listo();
    papel_bucle_mensajes();
    DdeNameService(s_dde.instancia, nullptr, nullptr, DNS_UNREGISTER);
    acaba();
}

// ---- The client

HDDEDATA CALLBACK procedimiento_cliente(UINT, UINT, HCONV, HSZ, HSZ, HDDEDATA, ULONG_PTR, ULONG_PTR)
{
    return nullptr;
}

void envia(const peticion &peticion)
{
    cabecera_peticion cabecera = {peticion.real, peticion.id_comando, peticion.numero, peticion.tam, ""};
    std::strncpy(cabecera.texto, peticion.texto, sizeof cabecera.texto - 1);
    HDDEDATA datos = crea_datos(&cabecera, sizeof cabecera, peticion.buffer, peticion.tam);
    if (datos == nullptr)
        falla_dde("DdeCreateDataHandle");
    HDDEDATA hecho = DdeClientTransaction(reinterpret_cast<BYTE *>(datos), 0xFFFFFFFF, s_dde.conversacion,
                                          s_dde.elemento, s_dde.formato, XTYP_POKE, LIMITE_MS, nullptr);
    DdeFreeDataHandle(datos);
    if (hecho == nullptr)
        falla_dde("XTYP_POKE");
}

void recoge(respuesta *respuesta)
{
    olvida_respuesta();
    s_dde.respuesta = DdeClientTransaction(nullptr, 0, s_dde.conversacion, s_dde.elemento, s_dde.formato, XTYP_REQUEST,
                                           LIMITE_MS, nullptr);
    DWORD tam = 0;
    const BYTE *bytes = s_dde.respuesta != nullptr ? DdeAccessData(s_dde.respuesta, &tam) : nullptr;
    cabecera_respuesta cabecera;
    if (bytes == nullptr || tam < sizeof cabecera)
        falla_dde("XTYP_REQUEST");
    std::memcpy(&cabecera, bytes, sizeof cabecera);
    respuesta->numero = cabecera.numero;
    respuesta->texto = cabecera.texto;
    respuesta->buffer = bytes + sizeof cabecera;
    respuesta->tam = cabecera.tam;
}

// Dispatches the acknowledgement that comes behind an answer. False where none comes in this time.
bool despacha_acuse(DWORD ms)
{
    MSG msg;
    while (!PeekMessageW(&msg, s_dde.ventana, WM_DDE_ACK, WM_DDE_ACK, PM_REMOVE))
        if (MsgWaitForMultipleObjects(0, nullptr, FALSE, ms, QS_POSTMESSAGE) != WAIT_OBJECT_0)
            return false;
    DispatchMessageW(&msg);
    return true;
}

void pide(const peticion &peticion, respuesta *respuesta)
{
    envia(peticion);
    recoge(respuesta);
    if (s_dde.sobra_acuse && !despacha_acuse(LIMITE_MS))
        falla_dde("WM_DDE_ACK");
}

void conecta(const std::string &sesion)
{
    empieza(sesion, procedimiento_cliente, APPCLASS_STANDARD | APPCMD_CLIENTONLY);
    s_dde.conversacion = DdeConnect(s_dde.instancia, s_dde.servicio, s_dde.servicio, nullptr);
    CONVINFO info = {};
    info.cb = sizeof info;
    if (s_dde.conversacion == nullptr || DdeQueryConvInfo(s_dde.conversacion, QID_SYNC, &info) == 0)
        falla_dde("DdeConnect");
    s_dde.ventana = info.hwnd;
    respuesta respuesta;
    pide({100, "", 0, 0, nullptr, 0}, &respuesta);
    s_dde.sobra_acuse = despacha_acuse(PRUEBA_MS);
}

void desconecta()
{
    DdeDisconnect(s_dde.conversacion);
    acaba();
}

} // namespace

extern const fila fila_dde;
const fila fila_dde = {"dde", "DDEML", TAM_MAXIMO, false, true, sirve, conecta, pide, desconecta};

} // namespace banco
