/* falsa.c - in place of ivrexa.dll on Linux, for the conversation of the layers for C# and Python with the public
 * header's types: one process, one service, one command at a time. Compiled with 16-bit wchar_t for C#, and for Python,
 * whose ctypes has Linux's own, with that. */
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include "ivrexa.h"

enum { MAX_VALORES = 32, MAX_CONTENEDORES = 64 };

typedef struct valor {
    char nombre[256];
    uint32_t tipo, tam;
    int es_nulo;
    unsigned char bytes[2048]; /* a wide text from the second byte on: at an odd address */
    const char *textos[8];
} valor;

struct comdat {
    uint32_t id, num;
    valor valores[MAX_VALORES];
};

static comdat *s_vivos[MAX_CONTENEDORES];
static uint32_t s_id = 100;
static int s_contenedores, s_procesadas;
static ivrexa_funcion_comando s_funcion;
static ivrexa_funcion_notificacion s_notificacion;
static void *s_externos;
static wchar_t s_entrada[3][256], s_salida[3][256];
static uint32_t s_id_salida, s_id_notificado, s_de_mas;
static int s_sin_entrada, s_sin_salida, s_sin_sitio;

static comdat *crea(void)
{
    s_contenedores++;
    return calloc(1, sizeof(comdat));
}

comdat *ivrexa_crea_datos_comando_entrada(const char *servicio)
{
    return strcmp(servicio, "Calc") == 0 ? crea() : NULL;
}

comdat *ivrexa_crea_datos_comando_salida(const char *servicio)
{
    return strcmp(servicio, "Calc") == 0 ? crea() : NULL;
}

static valor *graba(comdat *c, const char *nombre, uint32_t tipo, const void *bytes, size_t tam)
{
    valor *v = &c->valores[c->num++];
    strncpy(v->nombre, nombre, sizeof v->nombre - 1);
    v->tipo = tipo;
    v->tam = (uint32_t)tam;
    v->es_nulo = bytes == NULL;
    if (bytes != NULL)
        memcpy(v->bytes + 1, bytes, tam);
    return v;
}

#define NUMERO(clase, tipo_c)                                              \
    void ivrexa_graba_##clase(comdat *c, const char *nombre, tipo_c valor) \
    {                                                                      \
        graba(c, nombre, ivrexa_tipoDato_##clase, &valor, sizeof valor);   \
    }                                                                      \
    tipo_c ivrexa_dame_##clase(comdat *c, uint32_t i)                      \
    {                                                                      \
        tipo_c valor;                                                      \
        memcpy(&valor, c->valores[i].bytes + 1, sizeof valor);             \
        return valor;                                                      \
    }
NUMERO(byte, uint8_t)
NUMERO(ushort, uint16_t)
NUMERO(ulong, uint32_t)
NUMERO(double, double)
NUMERO(hwnd, ivrexa_hwnd)

static size_t ancho(const wchar_t *texto)
{
    size_t n = 0;
    while (texto != NULL && texto[n] != 0)
        n++;
    return (n + 1) * sizeof(wchar_t);
}

void ivrexa_graba_buffer(comdat *c, const char *nombre, const void *buffer, uint32_t tam)
{
    graba(c, nombre, ivrexa_tipoDato_buffer, buffer, tam);
}

void ivrexa_graba_cadena_ansi(comdat *c, const char *nombre, const char *texto)
{
    graba(c, nombre, ivrexa_tipoDato_cadena_ansi, texto, texto != NULL ? strlen(texto) + 1 : 0);
}

void ivrexa_graba_cadena_unicode(comdat *c, const char *nombre, const wchar_t *texto)
{
    graba(c, nombre, ivrexa_tipoDato_cadena_unicode, texto, texto != NULL ? ancho(texto) : 0);
}

void ivrexa_graba_arr_cadenas_ansi(comdat *c, const char *nombre, const char *const *textos, uint32_t num)
{
    valor *v = graba(c, nombre, ivrexa_tipoDato_arr_cadenas_ansi, "", 0);
    for (v->tam = 0; v->tam < num; v->tam++)
        v->textos[v->tam] = textos[v->tam] != NULL ? strdup(textos[v->tam]) : NULL;
}

void ivrexa_destruye_datos_comando(comdat *c)
{
    s_contenedores--;
    for (int i = 0; i < MAX_CONTENEDORES; i++)
        s_vivos[i] = s_vivos[i] == c ? NULL : s_vivos[i];
    free(c);
}

/* Where nobody offers the service the numbers begin at none. */
uint32_t ivrexa_guarda_datos(comdat *c)
{
    if (s_funcion == NULL || s_sin_sitio)
        return 0;
    c->id = s_id++;
    s_vivos[c->id % MAX_CONTENEDORES] = c;
    return c->id;
}

comdat *ivrexa_lee_datos(const char *servicio, uint32_t id, int16_t es_entrada)
{
    comdat *c = s_vivos[id % MAX_CONTENEDORES];
    if (c == NULL || c->id != id || strcmp(servicio, "Calc") != 0 || es_entrada != FALSO)
        return NULL;
    comdat *copia = crea();
    memcpy(copia, c, sizeof *c);
    copia->id = 0;
    return copia;
}

uint32_t ivrexa_numero_valores(comdat *c)
{
    return c->num + s_de_mas;
}

const char *ivrexa_nombre_valor(comdat *c, uint32_t i)
{
    return i < c->num ? c->valores[i].nombre : "?";
}

uint32_t ivrexa_tipoDato(comdat *c, uint32_t i)
{
    return i < c->num ? c->valores[i].tipo : (uint32_t)ivrexa_tipoDato_desconocido;
}

static const void *bytes(comdat *c, uint32_t i)
{
    return c->valores[i].es_nulo ? NULL : c->valores[i].bytes + 1;
}

const void *ivrexa_dame_buffer(comdat *c, uint32_t i, uint32_t *tam)
{
    *tam = c->valores[i].tam;
    return bytes(c, i);
}

const char *ivrexa_dame_cadena_ansi(comdat *c, uint32_t i)
{
    return bytes(c, i);
}

const wchar_t *ivrexa_dame_cadena_unicode(comdat *c, uint32_t i)
{
    return bytes(c, i);
}

const char *const *ivrexa_dame_arr_cadenas_ansi(comdat *c, uint32_t i, uint32_t *num)
{
    *num = c->valores[i].tam;
    return c->valores[i].textos;
}

void ivrexa_registra_servidor(const char *ruta, ivrexa_hwnd hwnd, const char *servicio, uint16_t version,
                              void *externos, ivrexa_funcion_comando funcion)
{
    if (strcmp(ruta, "servidor") == 0 && hwnd == NULL && strcmp(servicio, "Calc") == 0 && version == 3)
        s_funcion = funcion;
    s_externos = externos;
}

void ivrexa_terminado_registro(void) {}

void ivrexa_espera_comando_terminar_servidor(void) {}

void ivrexa_registra_cliente_de_servicio(const char *ruta, ivrexa_hwnd hwnd, const char *servicio)
{
    (void)ruta, (void)hwnd, (void)servicio;
}

void ivrexa_registra_cliente_notificaciones_servicio(const char *ruta, ivrexa_hwnd hwnd, const char *servicio,
                                                     ivrexa_funcion_notificacion funcion)
{
    if (strcmp(ruta, "cliente") == 0 && hwnd == (ivrexa_hwnd)5 && strcmp(servicio, "Calc") == 0)
        s_notificacion = funcion;
}

int16_t ivrexa_hay_servicio_registrado(const char *servicio, uint16_t *version)
{
    if (version != NULL)
        *version = 3;
    return s_funcion != NULL && strcmp(servicio, "Calc") == 0 ? CIERTO : FALSO;
}

static void copia(wchar_t *sitio, const wchar_t *texto)
{
    if (sitio != NULL)
        memcpy(sitio, texto != NULL ? texto : L"", ancho(texto));
}

int16_t ivrexa_get_datos_entrada_comando(const char *servicio, uint32_t id, uint32_t *bloque, wchar_t *t1, wchar_t *t2,
                                         wchar_t *t3)
{
    (void)servicio, (void)id;
    if (s_sin_entrada)
        return FALSO;
    if (bloque != NULL)
        *bloque = 0;
    copia(t1, s_entrada[0]);
    copia(t2, s_entrada[1]);
    copia(t3, s_entrada[2]);
    return CIERTO;
}

int16_t ivrexa_set_datos_salida_comando(const char *servicio, uint32_t id, uint32_t bloque, const wchar_t *t1,
                                        const wchar_t *t2, const wchar_t *t3)
{
    (void)servicio, (void)id;
    if (s_sin_salida)
        return FALSO;
    s_id_salida = bloque;
    copia(s_salida[0], t1);
    copia(s_salida[1], t2);
    copia(s_salida[2], t3);
    return CIERTO;
}

static comdat *s_salida_anterior;

uint32_t ivrexa_ejecuta_comando(const char *servicio, uint32_t id, uint16_t opciones, uint32_t bloque,
                                const wchar_t *p1, const wchar_t *p2, const wchar_t *p3, uint32_t *id_salida,
                                wchar_t *t1, wchar_t *t2, wchar_t *t3)
{
    comando contexto = {NULL, NULL, 0xFEDCBA9876543210u, NULL};
    copia(s_entrada[0], p1);
    copia(s_entrada[1], p2);
    copia(s_entrada[2], p3);
    if (s_funcion == NULL) {
        copia(t1, NULL);
        copia(t2, NULL);
        copia(t3, NULL);
        return ivrexa_resultado_ERROR;
    }
    contexto.datos_entrada = bloque != 0 ? ivrexa_lee_datos(servicio, bloque, FALSO) : NULL;
    uint32_t resultado = opciones == 0 ? (uint32_t)s_funcion(servicio, id, &contexto, s_externos) : 0;
    if (contexto.datos_entrada != NULL)
        ivrexa_destruye_datos_comando(contexto.datos_entrada);
    if (s_salida_anterior != NULL)
        ivrexa_destruye_datos_comando(s_salida_anterior);
    s_salida_anterior = contexto.datos_salida;
    int es_ok = resultado == ivrexa_resultado_OK;
    if (es_ok)
        *id_salida = s_id_salida;
    copia(t1, es_ok ? s_salida[0] : NULL);
    copia(t2, es_ok ? s_salida[1] : NULL);
    copia(t3, es_ok ? s_salida[2] : NULL);
    return resultado;
}

uint32_t ivrexa_obtener_id_datos_notificacion(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    return strcmp(servicio, "Calc") == 0 && id_cliente == 200 && dato == 7 ? s_id_notificado : 0;
}

static void *hilo(void *dato)
{
    s_notificacion("Calc", 200, *(uint32_t *)dato);
    return NULL;
}

/* First on a thread of its own, then on the window's. */
void ivrexa_notifica_a_cliente(const char *servicio, uint32_t id_cliente, uint32_t dato, uint32_t id_datos)
{
    pthread_t suyo;
    s_id_notificado = id_datos;
    if (pthread_create(&suyo, NULL, hilo, &dato) == 0)
        pthread_join(suyo, NULL);
    s_notificacion(servicio, id_cliente, id_cliente);
}

void ivrexa_procesada_notificacion(const char *servicio)
{
    s_procesadas += strcmp(servicio, "Calc") == 0;
}

void ivrexa_cierra_sesion(void)
{
    if (s_salida_anterior != NULL)
        ivrexa_destruye_datos_comando(s_salida_anterior);
    s_salida_anterior = NULL;
}

/* From now on containers say that they have so many values more. */
void falsa_miente(uint32_t de_mas)
{
    s_de_mas = de_mas;
}

/* From now on the texts of a command cannot be read, or the command cannot be answered. */
void falsa_falla(int sin_entrada, int sin_salida)
{
    s_sin_entrada = sin_entrada;
    s_sin_salida = sin_salida;
}

/* From now on nothing can be stored, or again something. */
void falsa_sin_sitio(int sin_sitio)
{
    s_sin_sitio = sin_sitio;
}

int falsa_contenedores(void)
{
    return s_contenedores;
}

int falsa_procesadas(void)
{
    return s_procesadas;
}
