/* servidor_net.c - a server without a command function: its window procedure fetches and answers commands.
 *
 *     servidor_net [SERVICE]          in one console; the service is "Ejemplo" if you name none
 *     cliente_c [SERVICE]             in another, as often as you like; or cliente, which ends the server too
 *
 * The road for hosts that cannot hand a function to C, such as managed programs. They do what the library
 * does for others: open the input and destroy it, and keep the output until the next command. */
#include <stdio.h>
#include <wchar.h>
#include <windows.h>
#include "ivrexa.h"

enum { COMANDO_ECO = 100, VERSION = 3 }; /* ids below 100 are the library's; the version is our own */

static const char *s_servicio = "Ejemplo";
static uint32_t s_msg_servicio; /* the message by which commands arrive */
static comdat *s_salida;        /* the last command's output: its client may still read it */

/* Makes the output from the input. Another program wrote it, so expect anything: a value of another type
 * reads as 0 or NULL. Numbers first: they are checked against where the last text or buffer was read. */
static comdat *calcula(comdat *entrada)
{
    wchar_t saludo[128] = L"Hola, ";
    uint32_t a = ivrexa_dame_ulong(entrada, 0); /* values are found by position */
    double b = ivrexa_dame_double(entrada, 1);
    const char *nombre = ivrexa_dame_cadena_ansi(entrada, 3);
    uint32_t tam = 0;
    const void *bytes = ivrexa_dame_buffer(entrada, 4, &tam);
    printf("got  a=%u b=%g bytes=%u\n", a, b, tam);
    MultiByteToWideChar(CP_ACP, 0, nombre != NULL ? nombre : "", -1, saludo + 6, 100);
    comdat *salida = ivrexa_crea_datos_comando_salida(s_servicio);
    ivrexa_graba_double(salida, "suma", a + b);
    ivrexa_graba_cadena_unicode(salida, "saludo", saludo);
    ivrexa_graba_buffer(salida, "bytes", bytes, tam);
    return salida;
}

/* Fetches the command under way, answers it and returns its result. */
static int32_t atiende(uint32_t id_comando)
{
    wchar_t texto1[64], texto2[256], texto3[256];
    uint32_t id_entrada, id_salida = 0;
    if (ivrexa_get_datos_entrada_comando(s_servicio, id_comando, &id_entrada, texto1, texto2, texto3) != 1)
        return ivrexa_resultado_ERROR; /* a message of nobody's command */
    comdat *entrada = id_entrada != 0 ? ivrexa_lee_datos(s_servicio, id_entrada, CIERTO) : NULL;
    if (s_salida != NULL)
        ivrexa_destruye_datos_comando(s_salida);
    s_salida = NULL;
    if (id_comando == COMANDO_ECO && entrada != NULL && ivrexa_numero_valores(entrada) == 5) {
        s_salida = calcula(entrada);
        id_salida = ivrexa_guarda_datos(s_salida); /* 0: there was no room for it */
    }
    if (entrada != NULL)
        ivrexa_destruye_datos_comando(entrada);
    if (id_salida == 0 ||
        ivrexa_set_datos_salida_comando(s_servicio, id_comando, id_salida, texto1, texto2, texto3) != 1)
        return ivrexa_resultado_ERROR; /* so the client sees that we refuse it */
    printf("sent the sum, a greeting, the bytes and the three texts, output block %u\n", id_salida);
    return ivrexa_resultado_OK;
}

static LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg != s_msg_servicio || msg == 0 || wparam == 0)
        return DefWindowProcW(hwnd, msg, wparam, lparam);
    if (wparam != ivrexa_comando_TERMINAR)
        return atiende((uint32_t)wparam);
    PostQuitMessage(0);
    return ivrexa_resultado_OK;
}

int main(int argc, char **argv)
{
    if (argc > 2) {
        fprintf(stderr, "usage: servidor_net [SERVICE]\n");
        return 2;
    }
    s_servicio = argc > 1 ? argv[1] : s_servicio;
    HWND hwnd = CreateWindowExA(0, "STATIC", s_servicio, WS_POPUP, 0, 0, 1, 1, NULL, NULL, NULL, NULL);
    CreateMutexA(NULL, FALSE, s_servicio); /* ours while we live: two servers would disturb each other */
    if (GetLastError() == ERROR_ALREADY_EXISTS || hwnd == NULL) {
        fprintf(stderr, "%s %s\n", s_servicio, hwnd == NULL ? "has no window" : "has a server already");
        return 1;
    }
    setvbuf(stdout, NULL, _IONBF, 0);
    SetWindowLongPtrW(hwnd, GWLP_WNDPROC, (LONG_PTR)procedimiento);
    ivrexa_registra_servidor_net(argv[0], hwnd, s_servicio, VERSION);
    ivrexa_terminado_registro(); /* from here on clients find the service */
    s_msg_servicio = ivrexa_dame_id_MSG_servicio(s_servicio);
    printf("ready: %s\n", s_servicio);
    MSG msg;
    while (GetMessageW(&msg, NULL, 0, 0) > 0)
        DispatchMessageW(&msg);
    if (s_salida != NULL)
        ivrexa_destruye_datos_comando(s_salida);
    ivrexa_cierra_sesion();
    printf("ended\n");
    return 0;
}
