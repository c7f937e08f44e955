/* servidor_ventana.c - a server with a window: it lists the commands that it got, and ends when it is closed.
 *
 *     servidor_ventana [SERVICE]      the service is "Ejemplo" if you name none
 *     cliente_c [SERVICE]             in a console, as often as you like; cliente ends the server, too
 *
 * Commands arrive in the message loop, and the window stands still meanwhile: keep them short. */
#include <stdio.h>
#include <wchar.h>
#include <windows.h>
#include "ivrexa.h"

enum { COMANDO_ECO = 100, VERSION = 3 }; /* ids below 100 are the library's; the version is our own */

/* Adds a line to the list in the window, which keeps the last 1,000, and prints it as UTF-8. */
static void anota(HWND lista, const wchar_t *linea)
{
    char utf8[4096];
    int tam = WideCharToMultiByte(CP_UTF8, 0, linea, -1, utf8, (int)sizeof utf8, NULL, NULL);
    printf("%s\n", tam != 0 ? utf8 : "?");
    if (SendMessageW(lista, LB_GETCOUNT, 0, 0) >= 1000)
        SendMessageW(lista, LB_DELETESTRING, 0, 0);
    SendMessageW(lista, LB_SETTOPINDEX, SendMessageW(lista, LB_ADDSTRING, 0, (LPARAM)linea), 0);
}

/* The command function: it reads the input, works, and answers. */
static int32_t procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    comdat *entrada = contexto->datos_entrada; /* NULL without input; the library destroys it */
    wchar_t texto1[64], texto2[256], texto3[256], saludo[128] = L"Hola, ", linea[1024];
    if (id_comando != COMANDO_ECO || entrada == NULL || ivrexa_numero_valores(entrada) != 5 ||
        ivrexa_get_datos_entrada_comando(servicio, id_comando, NULL, texto1, texto2, texto3) != CIERTO)
        return ivrexa_resultado_ERROR; /* so the client sees that we refuse it */

    /* Values are found by position. Another program wrote them, so expect anything: a value of another type
     * reads as 0 or NULL. Numbers first: they are checked against where the last text or buffer was read. */
    uint32_t tam = 0;
    uint32_t a = ivrexa_dame_ulong(entrada, 0);
    double b = ivrexa_dame_double(entrada, 1);
    const char *nombre = ivrexa_dame_cadena_ansi(entrada, 3);
    const void *bytes = ivrexa_dame_buffer(entrada, 4, &tam);
    MultiByteToWideChar(CP_ACP, 0, nombre != NULL ? nombre : "", -1, saludo + 6, 100);
    swprintf(linea, 1024, L"got  a=%u b=%g, \"%ls\", %u bytes, texts \"%ls\" \"%ls\" \"%ls\"", a, b, saludo, tam,
             texto1, texto2, texto3);
    anota((HWND)datos_externos, linea); /* main gave it to ivrexa_registra_servidor */

    comdat *salida = ivrexa_crea_datos_comando_salida(servicio);
    contexto->datos_salida = salida; /* the library's from here on: kept until the next command */
    ivrexa_graba_double(salida, "suma", a + b);
    ivrexa_graba_cadena_unicode(salida, "saludo", saludo);
    ivrexa_graba_buffer(salida, "bytes", bytes, tam);
    uint32_t id_salida = ivrexa_guarda_datos(salida); /* 0: there was no room for it */
    int16_t va = ivrexa_set_datos_salida_comando(servicio, id_comando, id_salida, texto1, texto2, texto3);
    return id_salida != 0 && va == CIERTO ? ivrexa_resultado_OK : ivrexa_resultado_ERROR;
}

/* The window's own messages; the library takes out those of the service. */
static LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == WM_SIZE)
        MoveWindow(GetWindow(hwnd, GW_CHILD), 0, 0, LOWORD(lparam), HIWORD(lparam), TRUE);
    if (msg != WM_CLOSE)
        return DefWindowProcW(hwnd, msg, wparam, lparam);
    PostQuitMessage(0); /* not DestroyWindow: main closes the session first */
    return 0;
}

int main(int argc, char **argv)
{
    const char *servicio = argc > 1 ? argv[1] : "Ejemplo";
    if (argc > 2) {
        fprintf(stderr, "usage: servidor_ventana [SERVICE]\n");
        return 2;
    }
    WNDCLASSW clase = {.lpfnWndProc = procedimiento, .lpszClassName = L"servidor_ventana"};
    RegisterClassW(&clase);
    HWND hwnd = CreateWindowExW(0, L"servidor_ventana", L"Commands", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                                800, 300, NULL, NULL, NULL, NULL);
    HWND lista = CreateWindowExW(0, L"LISTBOX", 0, WS_CHILD | WS_VISIBLE | WS_VSCROLL | LBS_NOINTEGRALHEIGHT, 0, 0, 0,
                                 0, hwnd, NULL, NULL, NULL);
    CreateMutexA(NULL, FALSE, servicio); /* ours while we live: two servers would disturb each other */
    if (GetLastError() == ERROR_ALREADY_EXISTS || lista == NULL) {
        fprintf(stderr, "%s %s\n", servicio, lista == NULL ? "has no window" : "has a server already");
        return 1;
    }
    setvbuf(stdout, NULL, _IONBF, 0);
    ivrexa_registra_servidor(argv[0], hwnd, servicio, VERSION, lista, procesa);
    ivrexa_terminado_registro(); /* from here on clients find the service */
    ShowWindow(hwnd, SW_SHOW);
    printf("ready: %s\n", servicio);

    MSG msg;
    while (GetMessageW(&msg, NULL, 0, 0) > 0) /* until it is closed, or ivrexa_terminar_servidor */
        DispatchMessageW(&msg);
    ivrexa_cierra_sesion();
    DestroyWindow(hwnd);
    printf("ended\n");
    return 0;
}
