// servidor_sin_ventana.cpp - a server without a window: a thread of the library polls for commands.
//
//     servidor_sin_ventana SERVICE
//
// A command takes some half a second on this road, in rounds of 100 ms.
#include <atomic>

#include "eco.h"

struct cuenta {
    std::atomic<int> num_comandos{0};
    std::atomic<int> num_errores{0};
};

// The command function. It runs on the service's own thread.
static int32_t procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    cuenta *comandos = static_cast<cuenta *>(datos_externos);
    comdat *salida = nullptr;
    int32_t resultado = eco_contesta(servicio, id_comando, contexto->datos_entrada, &salida);
    contexto->datos_salida = salida;        // the library keeps it for the client and destroys it later
    comandos->num_comandos++;
    if (resultado != ivrexa_resultado_OK)
        comandos->num_errores++;
    return resultado;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: servidor_sin_ventana SERVICE\n");
        return 2;
    }
    cuenta comandos;
    ivrexa_registra_servidor(argv[0], nullptr, argv[1], ECO_VERSION, &comandos, procesa);
    ivrexa_terminado_registro();
    printf("LISTO\n");
    fflush(stdout);

    ivrexa_espera_comando_terminar_servidor();      // until ivrexa_terminar_servidor

    ivrexa_cierra_sesion();
    printf("ended after %d commands\n", comandos.num_comandos.load());
    return comandos.num_comandos > 0 && comandos.num_errores == 0 ? 0 : 1;
}
