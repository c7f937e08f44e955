/* servidor_net.c - a server without a command function: its own window procedure fetches and answers commands.
 *
 *     servidor_net SERVICE
 *
 * The road for hosts that cannot hand a function to C, such as managed programs. */
#include "eco.h"

static const char *s_servicio;
static uint32_t s_msg_servicio;
static comdat *s_salida;            /* output of the last command: kept until the next, for the client to read */
static int s_num_comandos, s_num_errores;

/* Fetches the command under way, answers it and returns its result. */
static int32_t atiende(uint32_t id_comando)
{
    uint32_t id_entrada = 0;
    comdat *entrada = NULL;
    if (ivrexa_get_datos_entrada_comando(s_servicio, id_comando, &id_entrada, NULL, NULL, NULL) != CIERTO)
        return ivrexa_resultado_ERROR;
    if (id_entrada != 0)
        entrada = ivrexa_lee_datos(s_servicio, id_entrada, CIERTO);
    if (s_salida != NULL)
        ivrexa_destruye_datos_comando(s_salida);
    s_salida = NULL;

    int32_t resultado = eco_contesta(s_servicio, id_comando, entrada, &s_salida);
    if (entrada != NULL)
        ivrexa_destruye_datos_comando(entrada);
    return resultado;
}

static LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg != s_msg_servicio || msg == 0 || wparam == 0)
        return DefWindowProcW(hwnd, msg, wparam, lparam);
    if (wparam == ivrexa_comando_TERMINAR) {
        PostQuitMessage(0);
        return ivrexa_resultado_OK;
    }
    int32_t resultado = atiende((uint32_t)wparam);
    s_num_comandos++;
    if (resultado != ivrexa_resultado_OK)
        s_num_errores++;
    return resultado;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: servidor_net SERVICE\n");
        return 2;
    }
    s_servicio = argv[1];
    HWND hwnd = CreateWindowExA(0, "STATIC", "servidor_net", WS_POPUP, 0, 0, 10, 10, NULL, NULL, NULL, NULL);
    SetWindowLongPtrW(hwnd, GWLP_WNDPROC, (LONG_PTR)procedimiento);
    ivrexa_registra_servidor_net(argv[0], hwnd, s_servicio, ECO_VERSION);
    ivrexa_terminado_registro();
    s_msg_servicio = ivrexa_dame_id_MSG_servicio(s_servicio);
    printf("LISTO\n");
    fflush(stdout);

    MSG msg;
    while (GetMessageW(&msg, NULL, 0, 0) > 0)
        DispatchMessageW(&msg);

    if (s_salida != NULL)
        ivrexa_destruye_datos_comando(s_salida);
    ivrexa_cierra_sesion();
    printf("ended after %d commands\n", s_num_comandos);
    return s_num_comandos > 0 && s_num_errores == 0 ? 0 : 1;
}
