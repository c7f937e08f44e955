/* servidor_consola.c - a console program as a server, by the quick road: with a window that it never shows.
 *
 *     servidor_consola [SERVICE]      in one console; the service is "Ejemplo" if you name none
 *     cliente_c [SERVICE]             in another, as often as you like; or cliente, which ends the server too
 *
 * A command to a window takes a few milliseconds, and one to a server without a window half a second. So this
 * program makes a window although it has nothing to show. All runs on main's thread: nothing needs a lock. */
#include <stdio.h>
#include <wchar.h>
#include <windows.h>
#include "ivrexa.h"

enum { COMANDO_ECO = 100, VERSION = 3 }; /* ids below 100 are the library's; the version is our own */

static DWORD s_hilo_principal;

static void imprime(const char *rotulo, const wchar_t *texto)
{
    char utf8[1024];
    int tam = WideCharToMultiByte(CP_UTF8, 0, texto, -1, utf8, (int)sizeof utf8, NULL, NULL);
    printf("%s\"%s\"\n", rotulo, tam != 0 ? utf8 : "?");
}

/* The command function, called inside main's message loop: it reads the input, works, and answers. */
static int32_t procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    comdat *entrada = contexto->datos_entrada; /* NULL without input; the library destroys it */
    wchar_t texto1[64], texto2[256], texto3[256], saludo[128] = L"Hola, ";
    if (id_comando != COMANDO_ECO || entrada == NULL || ivrexa_numero_valores(entrada) != 5 ||
        ivrexa_get_datos_entrada_comando(servicio, id_comando, NULL, texto1, texto2, texto3) != CIERTO)
        return ivrexa_resultado_ERROR; /* so the client sees that we refuse it */

    /* Values are found by position. Another program wrote them, so expect anything: a value of another type
     * reads as 0 or NULL. Numbers first: they are checked against where the last text or buffer was read. */
    uint32_t num_palabras = 0, tam = 0;
    uint32_t a = ivrexa_dame_ulong(entrada, 0);
    double b = ivrexa_dame_double(entrada, 1);
    ivrexa_dame_arr_cadenas_ansi(entrada, 2, &num_palabras);
    const char *nombre = ivrexa_dame_cadena_ansi(entrada, 3);
    const void *bytes = ivrexa_dame_buffer(entrada, 4, &tam);
    imprime("got  text ", texto1);
    imprime("got  text ", texto2);
    imprime("got  text ", texto3);
    MultiByteToWideChar(CP_ACP, 0, nombre != NULL ? nombre : "", -1, saludo + 6, 100);
    printf("got  a=%u b=%g bytes=%u palabras=%u ", a, b, tam, num_palabras);
    imprime("", saludo);

    comdat *salida = ivrexa_crea_datos_comando_salida(servicio);
    contexto->datos_salida = salida; /* the library's from here on: kept until the next command */
    ivrexa_graba_double(salida, "suma", a + b);
    ivrexa_graba_cadena_unicode(salida, "saludo", saludo);
    ivrexa_graba_buffer(salida, "bytes", bytes, tam);
    uint32_t id_salida = ivrexa_guarda_datos(salida); /* 0: there was no room for it */
    if (id_salida == 0 ||
        ivrexa_set_datos_salida_comando(servicio, id_comando, id_salida, texto1, texto2, texto3) != CIERTO)
        return ivrexa_resultado_ERROR;
    printf("sent suma=%g bytes=%u and the three texts, output block %u\n", a + b, tam, id_salida);
    ++*(int *)datos_externos;
    return ivrexa_resultado_OK;
}

static BOOL WINAPI al_interrumpir(DWORD suceso) /* Ctrl-C ends the message loop, in good order */
{
    return suceso == CTRL_C_EVENT && PostThreadMessageW(s_hilo_principal, WM_QUIT, 0, 0);
}

int main(int argc, char **argv)
{
    const char *servicio = argc > 1 ? argv[1] : "Ejemplo";
    int num_comandos = 0;
    if (argc > 2) {
        fprintf(stderr, "usage: servidor_consola [SERVICE]\n");
        return 2;
    }
    HWND hwnd = CreateWindowExA(0, "STATIC", servicio, WS_POPUP, 0, 0, 1, 1, NULL, NULL, NULL, NULL);
    CreateMutexA(NULL, FALSE, servicio); /* ours while we live: two servers would disturb each other */
    if (GetLastError() == ERROR_ALREADY_EXISTS || hwnd == NULL) {
        fprintf(stderr, "%s %s\n", servicio, hwnd == NULL ? "has no window" : "has a server already");
        return 1;
    }
    setvbuf(stdout, NULL, _IONBF, 0);
    SetConsoleOutputCP(CP_UTF8);
    s_hilo_principal = GetCurrentThreadId();
    SetConsoleCtrlHandler(al_interrumpir, TRUE);

    ivrexa_registra_servidor(argv[0], hwnd, servicio, VERSION, &num_comandos, procesa);
    ivrexa_terminado_registro(); /* from here on clients find the service */
    printf("ready: %s\n", servicio);

    MSG msg;
    while (GetMessageW(&msg, NULL, 0, 0) > 0) /* until Ctrl-C or ivrexa_terminar_servidor */
        DispatchMessageW(&msg);
    ivrexa_cierra_sesion(); /* before the window goes: the library uses it */
    DestroyWindow(hwnd);
    printf("ended after %d commands\n", num_comandos);
    return 0;
}
