// servidor_avisa.cpp - a server that notifies: whoever opens a document is told that it has changed.
//
//     servidor_avisa [SERVICE]        in one console; the service is "Documentos" if you name none
//     cliente_avisado [SERVICE]       in another; it ends the server, too
// Clients tell by commands, 100 "opened" and 101 "closed", which document it is and the id to notify them by.
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <windows.h>
#include "ivrexa.h"

constexpr uint32_t ABIERTO = 100, CERRADO = 101;

using cambio = std::pair<uint32_t, uint32_t>; // the client's id, the document's
struct servidor {
    const char *servicio;
    std::deque<cambio> cambios = {}; // to be told, until client 0; two threads use them
    std::mutex guarda = {};
    std::condition_variable novedad = {};
};

static void anyade(servidor *yo, cambio c)
{
    std::lock_guard<std::mutex> cierre(yo->guarda);
    yo->cambios.push_back(c);
    yo->novedad.notify_one();
}

// On a thread of its own: ivrexa_notifica_a_cliente waits for the client. Meanwhile the window serves on.
static void notifica_cambios(servidor *yo)
{
    for (;;) {
        std::unique_lock<std::mutex> cierre(yo->guarda);
        yo->novedad.wait(cierre, [yo] { return !yo->cambios.empty(); });
        auto [id_cliente, id_documento] = yo->cambios.front();
        yo->cambios.pop_front();
        cierre.unlock();
        if (id_cliente == 0)
            return;
        comdat *datos = ivrexa_crea_datos_comando_salida(yo->servicio);
        ivrexa_graba_ulong(datos, "revision", 2);
        ivrexa_graba_cadena_unicode(datos, "autor", L"Bego\u00f1a");
        uint32_t id_datos = ivrexa_guarda_datos(datos);
        printf("notifies client %u: document %u, data block %u\n", id_cliente, id_documento, id_datos);
        ivrexa_notifica_a_cliente(yo->servicio, id_cliente, id_documento, id_datos);
        printf("client %u is done with it, or this server ends\n", id_cliente);
        ivrexa_destruye_datos_comando(datos); // not before: the client has read it now
    }
}

// The command function. It runs on the window's thread, inside the message loop.
static int32_t procesa(const char *, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    comdat *entrada = contexto->datos_entrada;
    if ((id_comando != ABIERTO && id_comando != CERRADO) || entrada == nullptr)
        return ivrexa_resultado_ERROR;
    uint32_t id_cliente = ivrexa_dame_ulong(entrada, 0), id_documento = ivrexa_dame_ulong(entrada, 1);
    const wchar_t *ruta = ivrexa_dame_cadena_unicode(entrada, 2);
    if (id_cliente == 0 || id_documento == 0 || ruta == nullptr) // missing, or of another type
        return ivrexa_resultado_ERROR;
    char utf8[1024] = "";
    WideCharToMultiByte(CP_UTF8, 0, ruta, -1, utf8, sizeof utf8 - 1, nullptr, nullptr);
    printf("client %u has %s document %u: \"%s\"\n", id_cliente, id_comando == ABIERTO ? "opened" : "closed",
           id_documento, utf8);
    if (id_comando == ABIERTO)
        anyade(static_cast<servidor *>(datos_externos), {id_cliente, id_documento});
    return ivrexa_resultado_OK;
}

int main(int argc, char **argv)
{
    if (argc > 2) {
        fprintf(stderr, "usage: servidor_avisa [SERVICE]\n");
        return 2;
    }
    servidor yo{argc > 1 ? argv[1] : "Documentos"};
    HWND hwnd = CreateWindowExA(0, "STATIC", yo.servicio, WS_POPUP, 0, 0, 1, 1, NULL, NULL, NULL, NULL);
    CreateMutexA(nullptr, FALSE, yo.servicio); // ours while we live: two servers would disturb each other
    if (GetLastError() == ERROR_ALREADY_EXISTS || hwnd == nullptr) {
        fprintf(stderr, "%s %s\n", yo.servicio, hwnd == nullptr ? "has no window" : "has a server already");
        return 1;
    }
    setvbuf(stdout, nullptr, _IONBF, 0); // each line at once, also into a pipe
    SetConsoleOutputCP(CP_UTF8);
    ivrexa_registra_servidor(argv[0], hwnd, yo.servicio, 1, &yo, procesa);
    ivrexa_terminado_registro();
    std::thread notificador(notifica_cambios, &yo);
    printf("ready: %s\n", yo.servicio);
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) // until ivrexa_terminar_servidor
        DispatchMessageW(&msg);
    anyade(&yo, {0, 0});
    notificador.join(); // command 1 has ended a notification under way, too
    ivrexa_cierra_sesion();
    return 0;
}
