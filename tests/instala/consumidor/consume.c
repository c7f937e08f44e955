/* A user's program in C: command data written, stored and read back. It ends with 0 if all came back. */
#include <stdio.h>
#include <string.h>

#include <ivrexa.h>
#include <ivrexa_mcbase.h>

/* Nobody asks for a command. */
static int32_t procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    (void)servicio, (void)id_comando, (void)contexto, (void)datos_externos;
    return ivrexa_resultado_ERROR;
}

int main(void)
{
    ivrexa_registra_servidor("consume.exe", NULL, "Consumidor", 1, NULL, procesa);
    ivrexa_terminado_registro();
    comdat *datos = ivrexa_crea_datos_comando_salida("Consumidor");
    ivrexa_graba_ulong(datos, "a", 40);
    ivrexa_graba_ulong(datos, "b", 2);
    ivrexa_graba_cadena_ansi(datos, "nombre", "mundo");
    comdat *leidos = ivrexa_lee_datos("Consumidor", ivrexa_guarda_datos(datos), FALSO);
    unsigned a = ivrexa_dame_ulong(leidos, 0), b = ivrexa_dame_ulong(leidos, 1);
    unsigned cuantos = ivrexa_numero_valores(leidos);
    const char *nombre = ivrexa_dame_cadena_ansi(leidos, 2);
    printf("a=%u b=%u nombre=%s, %u values\n", a, b, nombre != NULL ? nombre : "(none)", cuantos);
    int bien = a == 40 && b == 2 && cuantos == 3 && nombre != NULL && strcmp(nombre, "mundo") == 0;
    ivrexa_destruye_datos_comando(leidos);
    ivrexa_destruye_datos_comando(datos);
    ivrexa_cierra_sesion();
    return bien ? 0 : 1;
}
