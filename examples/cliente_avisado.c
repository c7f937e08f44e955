/* cliente_avisado.c - a client that is notified: it opens a document, waits until the server says that it
 * has changed, closes it, and ends the server.
 *
 *     servidor_avisa [SERVICE]        in one console
 *     cliente_avisado [SERVICE]       in another; the service is "Documentos" if you name none
 *
 * The library gives us the id under which we can be notified, and tells nobody. The server hears of it and of
 * our document by commands: 100 "opened" and 101 "closed", with our id, the document's and its path. */
#include <stdio.h>
#include <windows.h>
#include "ivrexa.h"

enum { ABIERTO = 100, CERRADO = 101, ID_DOCUMENTO = 7, PLAZO_MS = 5000 };
static const wchar_t *const RUTA = L"C:\\informes\\a\u00f1o nuevo.txt";

static DWORD s_hilo_ventana, s_avisado;
static CRITICAL_SECTION s_guarda; /* for what two threads use: */
static uint32_t s_revision;
static char s_autor[256];

/* Takes what is attached, and answers, once: until then the server waits, and keeps the data for us. */
static void toma(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    uint32_t id_datos = ivrexa_obtener_id_datos_notificacion(servicio, id_cliente, dato);
    printf("notified: client %u, document %u, data block %u\n", id_cliente, dato, id_datos);
    comdat *datos = id_datos != 0 ? ivrexa_lee_datos(servicio, id_datos, FALSO) : NULL;
    if (datos != NULL) {
        EnterCriticalSection(&s_guarda);
        s_revision = ivrexa_dame_ulong(datos, 0);
        const wchar_t *autor = ivrexa_dame_cadena_unicode(datos, 1);
        if (autor != NULL) /* copied: it goes with the container */
            WideCharToMultiByte(CP_UTF8, 0, autor, -1, s_autor, (int)sizeof s_autor - 1, NULL, NULL);
        LeaveCriticalSection(&s_guarda);
        ivrexa_destruye_datos_comando(datos);
    }
    ivrexa_procesada_notificacion(servicio);
}

/* The notification function. It is called twice for each notification: on a thread of the library with the
 * datum, to take it and answer; then on the window's thread, which may touch windows, without the datum. */
static void avisado(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    if (GetCurrentThreadId() != s_hilo_ventana) {
        toma(servicio, id_cliente, dato);
        return;
    }
    s_avisado = 1;
    EnterCriticalSection(&s_guarda);
    printf("on the window's thread: revision %u by \"%s\"\n", s_revision, s_autor);
    LeaveCriticalSection(&s_guarda);
    PostQuitMessage(0);
}

/* Tells the server what became of the document. */
static uint32_t manda(const char *servicio, uint32_t id_comando, uint32_t id_cliente)
{
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_ulong(entrada, "id_cliente", id_cliente);
    ivrexa_graba_ulong(entrada, "id_documento", ID_DOCUMENTO);
    ivrexa_graba_cadena_unicode(entrada, "ruta", RUTA);
    uint32_t resultado = ivrexa_ejecuta_comando(servicio, id_comando, 0, ivrexa_guarda_datos(entrada), NULL, NULL, NULL,
                                                NULL, NULL, NULL, NULL);
    ivrexa_destruye_datos_comando(entrada);
    printf("%s: result %u%s\n", id_comando == ABIERTO ? "opened" : "closed", resultado,
           resultado == ivrexa_resultado_OK ? "" : ", the server refuses it or is gone");
    return resultado;
}

int main(int argc, char **argv)
{
    const char *servicio = argc > 1 ? argv[1] : "Documentos";
    if (argc > 2) {
        fprintf(stderr, "usage: cliente_avisado [SERVICE]\n");
        return 2;
    }
    if (ivrexa_hay_servicio_registrado(servicio, NULL) != CIERTO) { /* first the server, then its clients */
        printf("nobody offers %s: start servidor_avisa first\n", servicio);
        return 1;
    }
    setvbuf(stdout, NULL, _IONBF, 0);
    SetConsoleOutputCP(CP_UTF8);
    HWND hwnd = CreateWindowExA(0, "STATIC", servicio, WS_POPUP, 0, 0, 1, 1, NULL, NULL, NULL, NULL);
    s_hilo_ventana = GetCurrentThreadId();
    InitializeCriticalSection(&s_guarda);
    ivrexa_registra_cliente_notificaciones_servicio(argv[0], hwnd, servicio, avisado);
    uint32_t id_cliente = ivrexa_abierto_documento_de_cliente(servicio, RUTA, ID_DOCUMENTO);
    uint32_t abierto = manda(servicio, ABIERTO, id_cliente);

    MSG msg;
    SetTimer(NULL, 0, PLAZO_MS, NULL); /* a server that was killed never notifies us */
    while (abierto == ivrexa_resultado_OK && GetMessageW(&msg, NULL, 0, 0) > 0 && msg.message != WM_TIMER)
        DispatchMessageW(&msg);

    ivrexa_cerrado_documento_de_cliente(RUTA, ID_DOCUMENTO);
    uint32_t cerrado = manda(servicio, CERRADO, id_cliente);
    ivrexa_terminar_servidor(servicio);
    ivrexa_cierra_sesion();
    return abierto == ivrexa_resultado_OK && cerrado == ivrexa_resultado_OK && s_avisado ? 0 : 1;
}
