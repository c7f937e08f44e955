/* cliente_avisado.c - a client that is notified: opens a document, waits until the server tells that it has
 * changed, closes it and ends the server.
 *
 *     cliente_avisado SERVICE
 *
 * ivrexa_abierto_documento_de_cliente gives the id under which the server can notify this client. The server
 * hears of it, and of the document, by a command: see documento.h. */
#include "documento.h"

static const wchar_t *const RUTA = L"C:\\informes\\a\u00f1o nuevo.txt";
static const uint32_t ID_DOCUMENTO = 7;         /* ours */

static DWORD s_hilo_ventana;
static CRITICAL_SECTION s_guarda;               /* for s_revision and s_autor: two threads use them */
static uint32_t s_revision;
static wchar_t s_autor[64];

/* Takes what is attached, and answers once: until then the server waits, and keeps the data. */
static void toma(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    uint32_t id_datos = ivrexa_obtener_id_datos_notificacion(servicio, id_cliente, dato);
    printf("notified: client %u, document %u, data block %u\n", id_cliente, dato, id_datos);
    comdat *datos = id_datos != 0 ? ivrexa_lee_datos(servicio, id_datos, FALSO) : NULL;
    if (datos != NULL) {
        EnterCriticalSection(&s_guarda);
        s_revision = ivrexa_dame_ulong(datos, 0);
        swprintf(s_autor, 64, L"%ls", ivrexa_dame_cadena_unicode(datos, 1));
        LeaveCriticalSection(&s_guarda);
        ivrexa_destruye_datos_comando(datos);
    }
    ivrexa_procesada_notificacion(servicio);
}

static void muestra(void)
{
    char rotulo[64];
    EnterCriticalSection(&s_guarda);
    snprintf(rotulo, sizeof rotulo, "on the window's thread: revision %u by ", s_revision);
    imprime_texto(rotulo, s_autor);
    LeaveCriticalSection(&s_guarda);
    PostQuitMessage(0);
}

/* The notification function. It is called twice for each notification: on a thread of the library, with the
 * datum, to take and answer it; then on the window's thread, where windows may be touched, with the client's
 * id in place of the datum. */
static void avisado(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    if (GetCurrentThreadId() == s_hilo_ventana)
        muestra();
    else
        toma(servicio, id_cliente, dato);
}

/* Tells the server what became of the document. */
static uint32_t manda(const char *servicio, uint32_t id_comando, uint32_t id_cliente)
{
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_ulong(entrada, "id_cliente", id_cliente);
    ivrexa_graba_ulong(entrada, "id_documento", ID_DOCUMENTO);
    ivrexa_graba_cadena_unicode(entrada, "ruta", RUTA);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada);
    uint32_t resultado = ivrexa_ejecuta_comando(servicio, id_comando, 0, id_entrada, NULL, NULL, NULL, NULL,
                                                NULL, NULL, NULL);
    ivrexa_destruye_datos_comando(entrada);
    printf("%s: result %u\n", id_comando == DOCUMENTO_ABIERTO ? "opened" : "closed", resultado);
    return resultado;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: cliente_avisado SERVICE\n");
        return 2;
    }
    setvbuf(stdout, NULL, _IONBF, 0);
    const char *servicio = argv[1];
    HWND hwnd = CreateWindowExA(0, "STATIC", "cliente_avisado", WS_POPUP, 0, 0, 9, 9, NULL, NULL, NULL, NULL);
    s_hilo_ventana = GetCurrentThreadId();
    InitializeCriticalSection(&s_guarda);
    ivrexa_registra_cliente_notificaciones_servicio(argv[0], hwnd, servicio, avisado);
    uint32_t id_cliente = ivrexa_abierto_documento_de_cliente(servicio, RUTA, ID_DOCUMENTO);
    uint32_t abierto = manda(servicio, DOCUMENTO_ABIERTO, id_cliente);

    MSG msg;
    while (abierto == ivrexa_resultado_OK && GetMessageW(&msg, NULL, 0, 0) > 0)     /* until notified */
        DispatchMessageW(&msg);

    ivrexa_cerrado_documento_de_cliente(RUTA, ID_DOCUMENTO);
    uint32_t cerrado = manda(servicio, DOCUMENTO_CERRADO, id_cliente);
    ivrexa_terminar_servidor(servicio);
    ivrexa_cierra_sesion();
    return abierto == ivrexa_resultado_OK && cerrado == ivrexa_resultado_OK && s_revision != 0 ? 0 : 1;
}
