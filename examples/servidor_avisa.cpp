// servidor_avisa.cpp - a server that notifies: whoever opens a document is told that it has changed.
//
//     servidor_avisa SERVICE
//
// It hears of documents, and under which id their client can be notified, by commands: see documento.h.
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "documento.h"

struct cambio {
    uint32_t id_cliente, id_documento;              // client 0: there are no more
};

struct servidor {
    const char *servicio;
    int num_abiertos = 0, num_cerrados = 0;
    std::deque<cambio> cambios = {};                // to be told; two threads use them
    std::mutex guarda = {};
    std::condition_variable novedad = {};
};

static void anyade(servidor *yo, cambio c)
{
    std::lock_guard<std::mutex> cierre(yo->guarda);
    yo->cambios.push_back(c);
    yo->novedad.notify_one();
}

static void notifica(const char *servicio, cambio c)
{
    comdat *datos = ivrexa_crea_datos_comando_salida(servicio);
    ivrexa_graba_ulong(datos, "revision", 2);
    ivrexa_graba_cadena_unicode(datos, "autor", L"Bego\u00f1a");
    uint32_t id_datos = ivrexa_guarda_datos(datos);
    printf("notifies client %u: document %u, data block %u\n", c.id_cliente, c.id_documento, id_datos);
    ivrexa_notifica_a_cliente(servicio, c.id_cliente, c.id_documento, id_datos);
    printf("client %u is done with it\n", c.id_cliente);
    ivrexa_destruye_datos_comando(datos);           // not before: the client has read it now
}

// Runs on a thread of its own: ivrexa_notifica_a_cliente waits for the client. The window goes on serving.
static void notifica_cambios(servidor *yo)
{
    for (;;) {
        std::unique_lock<std::mutex> cierre(yo->guarda);
        yo->novedad.wait(cierre, [yo] { return !yo->cambios.empty(); });
        cambio c = yo->cambios.front();
        yo->cambios.pop_front();
        cierre.unlock();
        if (c.id_cliente == 0)
            return;
        notifica(yo->servicio, c);
    }
}

// The command function. It runs on the window's thread, inside the message loop.
static int32_t procesa(const char *, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    servidor *yo = static_cast<servidor *>(datos_externos);
    comdat *entrada = contexto->datos_entrada;
    if ((id_comando != DOCUMENTO_ABIERTO && id_comando != DOCUMENTO_CERRADO) || entrada == nullptr)
        return ivrexa_resultado_ERROR;
    bool abierto = id_comando == DOCUMENTO_ABIERTO;
    cambio c = {ivrexa_dame_ulong(entrada, 0), ivrexa_dame_ulong(entrada, 1)};
    std::string que = "client " + std::to_string(c.id_cliente) + (abierto ? " has opened " : " has closed ");
    imprime_texto((que + "document " + std::to_string(c.id_documento) + ": ").c_str(),
                  ivrexa_dame_cadena_unicode(entrada, 2));
    (abierto ? yo->num_abiertos : yo->num_cerrados)++;
    if (abierto && c.id_cliente != 0)
        anyade(yo, c);
    return ivrexa_resultado_OK;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: servidor_avisa SERVICE\n");
        return 2;
    }
    setvbuf(stdout, nullptr, _IONBF, 0);
    HWND hwnd = CreateWindowExA(0, "STATIC", "servidor_avisa", WS_POPUP, 0, 0, 9, 9, NULL, NULL, NULL, NULL);
    servidor yo{argv[1]};
    ivrexa_registra_servidor(argv[0], hwnd, yo.servicio, DOCUMENTO_VERSION, &yo, procesa);
    ivrexa_terminado_registro();
    std::thread notificador(notifica_cambios, &yo);
    printf("LISTO\n");

    MSG msg;
    while (GetMessageW(&msg, NULL, 0, 0) > 0)       // ivrexa_terminar_servidor ends it
        DispatchMessageW(&msg);
    anyade(&yo, {0, 0});
    notificador.join();                             // command 1 has ended a notification under way, too
    ivrexa_cierra_sesion();
    return yo.num_abiertos > 0 && yo.num_abiertos == yo.num_cerrados ? 0 : 1;
}
