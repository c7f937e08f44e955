/* servidor_ventana.c - a server with a window: commands arrive in its message loop.
 *
 *     servidor_ventana SERVICE
 *
 * A console program with a window that is never shown: the quickest road for a command. */
#include "eco.h"

typedef struct {
    int num_comandos;
    int num_errores;
} cuenta;

/* The command function. It runs on the window's thread, inside the message loop. */
static int32_t procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    cuenta *cuenta_comandos = (cuenta *)datos_externos;
    comdat *salida = NULL;
    int32_t resultado = eco_contesta(servicio, id_comando, contexto->datos_entrada, &salida);
    contexto->datos_salida = salida;        /* the library keeps it for the client and destroys it later */
    cuenta_comandos->num_comandos++;
    if (resultado != ivrexa_resultado_OK)
        cuenta_comandos->num_errores++;
    return resultado;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: servidor_ventana SERVICE\n");
        return 2;
    }
    HWND hwnd = CreateWindowExA(0, "STATIC", "servidor_ventana", WS_POPUP, 0, 0, 10, 10, NULL, NULL, NULL, NULL);
    cuenta cuenta_comandos = {0, 0};
    ivrexa_registra_servidor(argv[0], hwnd, argv[1], ECO_VERSION, &cuenta_comandos, procesa);
    ivrexa_terminado_registro();
    printf("LISTO\n");
    fflush(stdout);

    MSG msg;
    while (GetMessageW(&msg, NULL, 0, 0) > 0)       /* ivrexa_terminar_servidor ends it */
        DispatchMessageW(&msg);

    ivrexa_cierra_sesion();
    printf("ended after %d commands\n", cuenta_comandos.num_comandos);
    return cuenta_comandos.num_comandos > 0 && cuenta_comandos.num_errores == 0 ? 0 : 1;
}
