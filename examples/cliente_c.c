/* cliente_c.c - a client in C: runs one command, prints what comes back, and says what went wrong.
 *
 *     servidor_consola [SERVICE]      or any other server of command 100, in one console
 *     cliente_c [SERVICE]             in another; the service is "Ejemplo" if you name none
 *
 * Ends with 0 if the command was carried out, with 1 if not. */
#include <stdio.h>
#include <windows.h>
#include "ivrexa.h"

enum { ECO = 100, VERSION = 3 }; /* what the server of the service understands */

static void imprime(const char *rotulo, const wchar_t *texto)
{
    char utf8[1024] = ""; /* the library gives NULL for a text that is missing */
    WideCharToMultiByte(CP_UTF8, 0, texto != NULL ? texto : L"", -1, utf8, (int)sizeof utf8 - 1, NULL, NULL);
    printf("%s\"%s\"\n", rotulo, utf8);
}

/* The input: typed values. Their names are for people; the server finds them by their order. */
static comdat *crea_entrada(const char *servicio)
{
    const char *const palabras[] = {"uno", "dos", "tres"};
    unsigned char bytes[1000];
    for (size_t i = 0; i < sizeof bytes; i++)
        bytes[i] = (unsigned char)(i * 7);
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_ulong(entrada, "a", 40);
    ivrexa_graba_double(entrada, "b", 2.5);
    ivrexa_graba_arr_cadenas_ansi(entrada, "palabras", palabras, 3);
    ivrexa_graba_cadena_ansi(entrada, "nombre", "mundo");
    ivrexa_graba_buffer(entrada, "bytes", bytes, (uint32_t)sizeof bytes);
    return entrada;
}

/* Output comes with result OK only. Another program wrote it: a value of another type reads as 0 or NULL. */
static void imprime_salida(const char *servicio, uint32_t id_salida)
{
    comdat *salida = id_salida != 0 ? ivrexa_lee_datos(servicio, id_salida, FALSO) : NULL;
    if (salida == NULL) {
        printf("no output data\n");
        return;
    }
    uint32_t tam = 0;
    double suma = ivrexa_dame_double(salida, 0); /* numbers first, then texts and buffers */
    const wchar_t *saludo = ivrexa_dame_cadena_unicode(salida, 1);
    ivrexa_dame_buffer(salida, 2, &tam);
    printf("got  suma=%g bytes=%u ", suma, tam);
    imprime("saludo=", saludo);
    ivrexa_destruye_datos_comando(salida); /* and with it the text that saludo points to */
}

static uint32_t ejecuta(const char *servicio)
{
    static const char *const sentido[] = {"no answer: the server is gone", "OK", "cancelled by the server",
                                          "error: the server refused the command, or it has died"};
    wchar_t texto1[64], texto2[256], texto3[256]; /* these are the sizes that the library fills */
    uint32_t id_salida = 0;
    comdat *entrada = crea_entrada(servicio);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada); /* now the server can open it by this id */
    printf("sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000, input block %u\n", id_entrada);
    uint32_t resultado = ivrexa_ejecuta_comando(servicio, ECO, 0, id_entrada, L"corto", L"a\u00f1o nuevo",
                                                L"tercer texto", &id_salida, texto1, texto2, texto3);
    printf("got  result %u: %s\n", resultado, resultado <= 3 ? sentido[resultado] : "the server's own");
    if (resultado == ivrexa_resultado_OK) {
        imprime("got  text 1 ", texto1);
        imprime("got  text 2 ", texto2);
        imprime("got  text 3 ", texto3);
        imprime_salida(servicio, id_salida);
    }
    ivrexa_destruye_datos_comando(entrada); /* only now: the server has read it */
    return resultado;
}

int main(int argc, char **argv)
{
    const char *servicio = argc > 1 ? argv[1] : "Ejemplo";
    uint16_t version = 0;
    if (argc > 2) {
        fprintf(stderr, "usage: cliente_c [SERVICE]\n");
        return 2;
    }
    SetConsoleOutputCP(CP_UTF8);
    if (ivrexa_hay_servicio_registrado(servicio, &version) != CIERTO || version != VERSION) {
        printf("nobody offers %s in version %d: start a server first\n", servicio, VERSION);
        return 1;
    }
    char nombre[100];
    snprintf(nombre, sizeof nombre, "turn of %s", servicio);
    HANDLE turno = CreateMutexA(NULL, FALSE, nombre); /* clients of one service take turns */
    if (WaitForSingleObject(turno, 60000) > WAIT_ABANDONED)
        return 1;
    ivrexa_registra_cliente_de_servicio(argv[0], NULL, servicio);
    Sleep(2500); /* our heartbeat has to begin: at 0 a server without a window may take us for dead */
    uint32_t resultado = ejecuta(servicio);
    ivrexa_cierra_sesion();
    ReleaseMutex(turno);
    return resultado == ivrexa_resultado_OK ? 0 : 1;
}
