/* eco.h - the command that the example servers carry out, the same in all three kinds of server. Plain C.
 *
 * Command 100, "echo". Input data, in this order: a (ulong), b (double), palabras (ANSI texts), nombre (ANSI text),
 * bytes (buffer); and three wide texts. Output data: suma (double) = a + b, saludo (wide text) = "Hola, " and the name,
 * bytes (buffer) = the input's, last one first; and the three texts as they came. */
#ifndef ECO_H
#define ECO_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <windows.h>

#include "imprime.h"
#include "ivrexa.h"

enum { ECO_COMANDO = 100, ECO_VERSION = 3 };

/* Builds the answer from the input. */
static inline comdat *eco_calcula(const char *servicio, comdat *entrada)
{
    /* Numbers first: what is read as a text or buffer moves the place that the library checks numbers against. */
    uint32_t a = ivrexa_dame_ulong(entrada, 0);
    double b = ivrexa_dame_double(entrada, 1);
    uint32_t num_palabras, tam;
    const char *const *palabras = ivrexa_dame_arr_cadenas_ansi(entrada, 2, &num_palabras);
    const char *nombre = ivrexa_dame_cadena_ansi(entrada, 3);
    const unsigned char *bytes = (const unsigned char *)ivrexa_dame_buffer(entrada, 4, &tam);
    printf("got  a=%u b=%g nombre=\"%s\" bytes=%u palabras=", (unsigned)a, b, nombre, (unsigned)tam);
    for (uint32_t i = 0; i < num_palabras; i++)
        printf("%s%s", i > 0 ? "," : "", palabras[i]);
    printf("\n");

    wchar_t saludo[128];
    swprintf(saludo, 128, L"Hola, %hs", nombre);
    unsigned char *al_reves = (unsigned char *)malloc(tam + 1);
    for (uint32_t i = 0; i < tam; i++)
        al_reves[i] = bytes[tam - 1 - i];

    comdat *salida = ivrexa_crea_datos_comando_salida(servicio);
    ivrexa_graba_double(salida, "suma", a + b);
    ivrexa_graba_cadena_unicode(salida, "saludo", saludo);
    ivrexa_graba_buffer(salida, "bytes", al_reves, tam);
    free(al_reves);
    printf("sent suma=%g bytes=%u ", a + b, (unsigned)tam);
    imprime_texto("saludo=", saludo);
    return salida;
}

/* Answers the command under way; *salida gets the output data, which must live until the client has read it. */
static inline int32_t eco_contesta(const char *servicio, uint32_t id_comando, comdat *entrada, comdat **salida)
{
    wchar_t texto1[64], texto2[256], texto3[256];
    if (id_comando != ECO_COMANDO || entrada == NULL || ivrexa_numero_valores(entrada) != 5)
        return ivrexa_resultado_ERROR;
    if (ivrexa_get_datos_entrada_comando(servicio, id_comando, NULL, texto1, texto2, texto3) != CIERTO)
        return ivrexa_resultado_ERROR;
    imprime_texto("got  text 1 ", texto1);
    imprime_texto("got  text 2 ", texto2);
    imprime_texto("got  text 3 ", texto3);

    *salida = eco_calcula(servicio, entrada);
    uint32_t id_salida = ivrexa_guarda_datos(*salida);
    ivrexa_set_datos_salida_comando(servicio, id_comando, id_salida, texto1, texto2, texto3);
    printf("sent the three texts back, output block %u, result 1\n", (unsigned)id_salida);
    fflush(stdout);
    return ivrexa_resultado_OK;
}

#endif
