/* dll_anfitrion.h - a host program of the library, as tests need one: a server of any kind, or a client. The same
 * source is compiled as C11 (dll_papel_c.c) and as C++17 (the roles of dll_*.cpp).
 *
 * SERVER   anfitrion_servidor("ventana" | "sin_ventana" | "net", "SERVICE,SERVICE..."). Service i, from 0, has the
 *          version 300 + i and the external data i + 1. Says "HWND n" and "LISTO"; then it serves and obeys the lines
 *            CIERRA         closes the session: "CERRADO"
 *            PREPARA        registers the same services anew, versions 10 higher, without the last step: "PREPARADO"
 *            PUBLICA        the last step: "PUBLICADO"
 *            SOLICITA name  registers as a client too: "SOLICITADO"
 *            ESPERA         ivrexa_espera_comando_terminar_servidor: "ESPERADO"
 *            FUERA id       asks for command `id` while none is under way: "FUERA get set"
 *            MSG name       "MSG n", the service's message
 *            PROC           "PROC n", the window's procedure as it is now
 *            ACABA          closes the session and ends with 0
 *          and says "QUIT n" when the quit message arrives.
 * CLIENT   anfitrion_cliente("ventana" | "sin_ventana", "SERVICE"). Says "HWND n" and "LISTO", and obeys
 *            ECO n          command anfitrion_ECO with sample n: "RESULTADO result|input id|output id", "TEXTOS ...",
 *                           "SALIDA ..."
 *            COMANDO id     a command with nothing else: "RESULTADO result"
 *            ACABA
 *
 * Both are registered as "papel_<process id>". Wide texts are said as four hex digits a unit. */
#ifndef DLL_ANFITRION_H
#define DLL_ANFITRION_H

#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "comun/papel_c.h"
#include "ivrexa.h"

/* The commands. 120 to 139 only return what is above 120; other ids go to anfitrion_yo.otros. */
enum {
    anfitrion_ECO = 100,       /* answers the input values as they came and each text turned round */
    anfitrion_RESULTADO = 101, /* answers output and texts, and returns the number that text 1 spells */
    anfitrion_NADA = 102,      /* answers nothing: "NADA input?" */
    anfitrion_ESPERA = 103,    /* says "DENTRO" and goes on at the line "SIGUE" */
    anfitrion_LARGOS = 104,    /* answers texts of 64, 256 and 300 characters: "LARGOS n|n|n", what it got */
    anfitrion_NULOS = 105,     /* answers id 0 and null texts */
    anfitrion_CONSULTA = 106,  /* asks for the command in every way: "CONSULTA ..." */
    anfitrion_QUIEN = 107,     /* answers the service's name and external data */
    anfitrion_PRIMER_NUMERO = 120,
    anfitrion_ULTIMO_NUMERO = 139
};

enum { anfitrion_MAX_SERVICIOS = 20, anfitrion_TAM_LINEA = 4000, anfitrion_PLAZO_MS = 60000 };

typedef struct anfitrion_peticion {
    const char *servicio;
    uint32_t id_comando;
    comdat *entrada; /* NULL: the command has none */
    comdat *salida;  /* out: stored output, or NULL */
    void *datos_externos;
} anfitrion_peticion;

typedef struct anfitrion {
    int con_funcion;
    uint32_t num_servicios;
    char servicios[anfitrion_MAX_SERVICIOS][64];
    uint32_t mensajes[anfitrion_MAX_SERVICIOS]; /* net: the services' messages */
    comdat *salidas[anfitrion_MAX_SERVICIOS];   /* net: the last output, until the next command */
    uint16_t version;                           /* of the first service */
    HWND hwnd;
    char ruta[64];
    int32_t (*otros)(anfitrion_peticion *peticion);
    void (*al_nacer)(void); /* called once the window stands, before the registration */
} anfitrion;

static anfitrion anfitrion_yo;
static volatile LONG anfitrion_sigue; /* the line "SIGUE" has come */

/* ---- Texts ----------------------------------------------------------------------------------------------- */

/* Appends to a text of anfitrion_TAM_LINEA bytes. */
static inline void anfitrion_anexa(char *texto, const char *mas)
{
    size_t largo = strlen(texto);
    snprintf(texto + largo, anfitrion_TAM_LINEA - largo, "%s", mas);
}

static inline void anfitrion_anexa_hex(char *texto, const void *bytes, size_t num)
{
    const unsigned char *byte = (const unsigned char *)bytes;
    char dos[3];
    for (size_t i = 0; i < num; i++) {
        // cppcheck-suppress objectIndex  // there are num bytes
        snprintf(dos, sizeof dos, "%02x", byte[i]);
        anfitrion_anexa(texto, dos);
    }
}

static inline void anfitrion_anexa_texto_u(char *texto, const wchar_t *t)
{
    char cuatro[5];
    if (t == NULL)
        anfitrion_anexa(texto, "nulo");
    for (; t != NULL && *t != 0; t++) {
        snprintf(cuatro, sizeof cuatro, "%04x", (unsigned)*t);
        anfitrion_anexa(texto, cuatro);
    }
}

static inline void anfitrion_di_textos(const wchar_t *t1, const wchar_t *t2, const wchar_t *t3)
{
    const wchar_t *partes[3] = {t1, t2, t3};
    char linea[anfitrion_TAM_LINEA] = "";
    for (int i = 0; i < 3; i++) {
        if (i > 0)
            anfitrion_anexa(linea, "|");
        anfitrion_anexa_texto_u(linea, partes[i]);
    }
    papel_c_di("TEXTOS %s", linea);
}

static inline void anfitrion_da_la_vuelta(wchar_t *texto)
{
    size_t largo = wcslen(texto);
    for (size_t i = 0; i < largo / 2; i++) {
        wchar_t c = texto[i];
        texto[i] = texto[largo - 1 - i];
        texto[largo - 1 - i] = c;
    }
}

static inline void anfitrion_ensancha(const char *ansi, wchar_t *texto, size_t tam)
{
    size_t i = 0;
    for (; ansi[i] != '\0' && i + 1 < tam; i++)
        texto[i] = (wchar_t)(unsigned char)ansi[i];
    texto[i] = 0;
}

/* ---- Values of every type that comes back ---------------------------------------------------------------- */

/* Sample n: every type, empty and null values, a name twice, no name at all, and the longest one. */
static inline void anfitrion_graba_muestra(comdat *datos, uint32_t n)
{
    static const unsigned char bytes[] = {0, 1, 0x7f, 0x80, 0xff, 0};
    static const char *const palabras[] = {"uno", "", "tres\xf1"};
    static const wchar_t unidades[] = {0x41, 0xf1, 0x20ac, 0xd83d, 0xde00, 0x7c, 0};
    char nombre_largo[255];
    memset(nombre_largo, 'n', sizeof nombre_largo);
    nombre_largo[254] = '\0';

    ivrexa_graba_byte(datos, "b", (uint8_t)(250 + n));
    ivrexa_graba_ushort(datos, "u", (uint16_t)(0xfe00 + n));
    ivrexa_graba_ulong(datos, "l", 0xfedcba00u + n);
    ivrexa_graba_double(datos, "d", -1.5 - n);
    ivrexa_graba_hwnd(datos, "h", (ivrexa_hwnd)(uintptr_t)(0x1122334455667700ull + n));
    ivrexa_graba_buffer(datos, "bytes", bytes, sizeof bytes);
    ivrexa_graba_buffer(datos, "vacio", NULL, 0);
    ivrexa_graba_cadena_ansi(datos, "ansi", "a\xf1o %|");
    ivrexa_graba_cadena_ansi(datos, "ansi", "");
    ivrexa_graba_cadena_ansi(datos, "", NULL);
    ivrexa_graba_arr_cadenas_ansi(datos, "arr", palabras, 3);
    ivrexa_graba_arr_cadenas_ansi(datos, "arr0", NULL, 0);
    ivrexa_graba_byte(datos, nombre_largo, 0);
    ivrexa_graba_cadena_unicode(datos, "w0", NULL);
    ivrexa_graba_cadena_unicode(datos, "w1", L"");
    ivrexa_graba_cadena_unicode(datos, "w", unidades);
}

static inline void anfitrion_copia_numero(comdat *de, uint32_t i, comdat *a, char *texto)
{
    const char *nombre = ivrexa_nombre_valor(de, i);
    uint32_t tipo = ivrexa_tipoDato(de, i);
    uint8_t byte = ivrexa_dame_byte(de, i);
    uint16_t ushort = ivrexa_dame_ushort(de, i);
    uint32_t ulong = ivrexa_dame_ulong(de, i);
    double real = ivrexa_dame_double(de, i);
    ivrexa_hwnd hwnd = ivrexa_dame_hwnd(de, i);
    if (tipo == ivrexa_tipoDato_byte)
        anfitrion_anexa_hex(texto, &byte, 1);
    if (tipo == ivrexa_tipoDato_byte && a != NULL)
        ivrexa_graba_byte(a, nombre, byte);
    if (tipo == ivrexa_tipoDato_ushort)
        anfitrion_anexa_hex(texto, &ushort, 2);
    if (tipo == ivrexa_tipoDato_ushort && a != NULL)
        ivrexa_graba_ushort(a, nombre, ushort);
    if (tipo == ivrexa_tipoDato_ulong)
        anfitrion_anexa_hex(texto, &ulong, 4);
    if (tipo == ivrexa_tipoDato_ulong && a != NULL)
        ivrexa_graba_ulong(a, nombre, ulong);
    if (tipo == ivrexa_tipoDato_double)
        anfitrion_anexa_hex(texto, &real, 8);
    if (tipo == ivrexa_tipoDato_double && a != NULL)
        ivrexa_graba_double(a, nombre, real);
    if (tipo == ivrexa_tipoDato_hwnd)
        anfitrion_anexa_hex(texto, &hwnd, 8);
    if (tipo == ivrexa_tipoDato_hwnd && a != NULL)
        ivrexa_graba_hwnd(a, nombre, hwnd);
}

static inline void anfitrion_copia_buffer(comdat *de, uint32_t i, comdat *a, char *texto)
{
    uint32_t tam = 0xffff;
    const void *bytes = ivrexa_dame_buffer(de, i, &tam);
    anfitrion_anexa_hex(texto, bytes, bytes != NULL ? tam : 0);
    anfitrion_anexa(texto, bytes != NULL ? "" : tam == 0 ? "nulo" : "MAL");
    if (a != NULL)
        ivrexa_graba_buffer(a, ivrexa_nombre_valor(de, i), bytes, tam);
}

static inline void anfitrion_anexa_ansi(char *texto, const char *cadena)
{
    if (cadena == NULL)
        anfitrion_anexa(texto, "nulo");
    else
        anfitrion_anexa_hex(texto, cadena, strlen(cadena) + 1);
}

static inline void anfitrion_copia_texto(comdat *de, uint32_t i, comdat *a, char *texto)
{
    const char *nombre = ivrexa_nombre_valor(de, i);
    if (ivrexa_tipoDato(de, i) == ivrexa_tipoDato_cadena_ansi) {
        const char *cadena = ivrexa_dame_cadena_ansi(de, i);
        anfitrion_anexa_ansi(texto, cadena);
        if (a != NULL)
            ivrexa_graba_cadena_ansi(a, nombre, cadena);
        return;
    }
    const wchar_t *cadena_u = ivrexa_dame_cadena_unicode(de, i);
    anfitrion_anexa_texto_u(texto, cadena_u);
    if (a != NULL)
        ivrexa_graba_cadena_unicode(a, nombre, cadena_u);
}

static inline void anfitrion_copia_arr(comdat *de, uint32_t i, comdat *a, char *texto)
{
    uint32_t num = 0xffff;
    const char *const *cadenas = ivrexa_dame_arr_cadenas_ansi(de, i, &num);
    for (uint32_t j = 0; j < num; j++) {
        anfitrion_anexa_ansi(texto, cadenas[j]);
        anfitrion_anexa(texto, ",");
    }
    if (a != NULL)
        ivrexa_graba_arr_cadenas_ansi(a, ivrexa_nombre_valor(de, i), cadenas, num);
}

/* Tells all values of a container, "count;type:name=hex;...", and writes them into `a`, if there is one. In one go:
 * a text read last would move the place that the library checks numbers against. */
static inline void anfitrion_copia_valores(comdat *de, comdat *a, char *texto)
{
    char trozo[300];
    uint32_t num = ivrexa_numero_valores(de);
    snprintf(texto, anfitrion_TAM_LINEA, "%u", (unsigned)num);
    for (uint32_t i = 0; i < num; i++) {
        uint32_t tipo = ivrexa_tipoDato(de, i);
        snprintf(trozo, sizeof trozo, ";%u:%s=", (unsigned)tipo, ivrexa_nombre_valor(de, i));
        anfitrion_anexa(texto, trozo);
        if (tipo == ivrexa_tipoDato_buffer)
            anfitrion_copia_buffer(de, i, a, texto);
        else if (tipo == ivrexa_tipoDato_cadena_ansi || tipo == ivrexa_tipoDato_cadena_unicode)
            anfitrion_copia_texto(de, i, a, texto);
        else if (tipo == ivrexa_tipoDato_arr_cadenas_ansi)
            anfitrion_copia_arr(de, i, a, texto);
        else
            anfitrion_copia_numero(de, i, a, texto);
    }
}

/* ---- Server: the commands -------------------------------------------------------------------------------- */

static inline int32_t anfitrion_hace_eco(anfitrion_peticion *p)
{
    char texto[anfitrion_TAM_LINEA] = "ninguna";
    wchar_t t1[64] = L"?", t2[256] = L"?", t3[256] = L"?";
    uint32_t id_salida = 0;
    if (ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, NULL, t1, t2, t3) != CIERTO)
        return 98;
    if (p->entrada != NULL) {
        p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
        anfitrion_copia_valores(p->entrada, p->salida, texto);
        id_salida = ivrexa_guarda_datos(p->salida);
    }
    papel_c_di("ENTRADA %s", texto);
    anfitrion_di_textos(t1, t2, t3);
    anfitrion_da_la_vuelta(t1);
    anfitrion_da_la_vuelta(t2);
    anfitrion_da_la_vuelta(t3);
    return ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, id_salida, t1, t2, t3) == CIERTO ? 1 : 97;
}

static inline int32_t anfitrion_hace_resultado(anfitrion_peticion *p)
{
    wchar_t t1[64] = L"96";
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, NULL, t1, NULL, NULL);
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_byte(p->salida, "b", 9);
    uint32_t id = ivrexa_guarda_datos(p->salida);
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, id, L"con", L"resultado", t1);
    return (int32_t)wcstol(t1, NULL, 10);
}

/* Without a window the command runs beside the main thread, which goes on reading the lines: it passes this one on. */
static inline int anfitrion_espera_sigue(void)
{
    uint64_t limite = GetTickCount64() + anfitrion_PLAZO_MS;
    while (!anfitrion_sigue && GetTickCount64() < limite)
        Sleep(5);
    return anfitrion_sigue;
}

static inline int32_t anfitrion_hace_espera(void)
{
    char linea[32] = "";
    anfitrion_sigue = 0;
    papel_c_di("DENTRO");
    if (anfitrion_yo.hwnd == NULL)
        return anfitrion_espera_sigue() ? 1 : 95;
    return papel_c_escucha(linea, sizeof linea, anfitrion_PLAZO_MS) && strcmp(linea, "SIGUE") == 0 ? 1 : 95;
}

static inline int32_t anfitrion_hace_largos(anfitrion_peticion *p)
{
    wchar_t t1[64], t2[256], t3[256], largo[301];
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, NULL, t1, t2, t3);
    papel_c_di("LARGOS %u|%u|%u", (unsigned)wcslen(t1), (unsigned)wcslen(t2), (unsigned)wcslen(t3));
    for (int i = 0; i < 300; i++)
        largo[i] = (wchar_t)(0x4e00 + i);
    largo[300] = 0;
    wchar_t de_256[257], de_64[65];
    memcpy(de_256, largo, sizeof de_256);
    memcpy(de_64, largo, sizeof de_64);
    de_256[256] = de_64[64] = 0;
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 0, de_64, de_256, largo);
    return 1;
}

static inline int32_t anfitrion_hace_nulos(anfitrion_peticion *p)
{
    wchar_t t1[64], t2[256], t3[256];
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, NULL, t1, t2, t3);
    anfitrion_di_textos(t1, t2, t3);
    return ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 0, NULL, NULL, NULL) == CIERTO ? 1 : 94;
}

/* Says: three times FALSO, what they wrote, CIERTO, the input's id, the texts of one call with places for some. */
static inline int32_t anfitrion_hace_consulta(anfitrion_peticion *p)
{
    wchar_t t1[64] = L"-", t2[256] = L"-", t3[256] = L"-";
    uint32_t id = 4321;
    const char *s = p->servicio;
    int otro_comando = ivrexa_get_datos_entrada_comando(s, p->id_comando + 1, &id, t1, t2, t3);
    int sin_servicio = ivrexa_get_datos_entrada_comando("nadie ofrece esto", p->id_comando, &id, t1, t2, t3);
    int pon_otro = ivrexa_set_datos_salida_comando(s, p->id_comando + 1, 5, L"mal", L"mal", L"mal");
    int pon_sin = ivrexa_set_datos_salida_comando("nadie ofrece esto", p->id_comando, 5, L"mal", L"mal", L"mal");
    papel_c_di("CONSULTA %d %d %d %d %u", otro_comando, sin_servicio, pon_otro, pon_sin, (unsigned)id);
    anfitrion_di_textos(t1, t2, t3);
    int sin_sitio = ivrexa_get_datos_entrada_comando(s, p->id_comando, NULL, NULL, NULL, NULL);
    int con_algo = ivrexa_get_datos_entrada_comando(s, p->id_comando, &id, NULL, t2, NULL);
    papel_c_di("CONSULTA %d %d %u", sin_sitio, con_algo, (unsigned)id);
    anfitrion_di_textos(t1, t2, t3);
    return 1;
}

static inline int32_t anfitrion_hace_quien(anfitrion_peticion *p)
{
    wchar_t nombre[64], externos[2] = L"0";
    anfitrion_ensancha(p->servicio, nombre, 64);
    externos[0] = (wchar_t)(L'0' + (uintptr_t)p->datos_externos);
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 0, nombre, externos, NULL);
    return 1;
}

static inline int32_t anfitrion_atiende(anfitrion_peticion *p)
{
    if (p->id_comando >= anfitrion_PRIMER_NUMERO && p->id_comando <= anfitrion_ULTIMO_NUMERO)
        return (int32_t)(p->id_comando - anfitrion_PRIMER_NUMERO);
    switch (p->id_comando) {
    case anfitrion_ECO:
        return anfitrion_hace_eco(p);
    case anfitrion_RESULTADO:
        return anfitrion_hace_resultado(p);
    case anfitrion_NADA:
        papel_c_di("NADA %d", p->entrada != NULL);
        return 1;
    case anfitrion_ESPERA:
        return anfitrion_hace_espera();
    case anfitrion_LARGOS:
        return anfitrion_hace_largos(p);
    case anfitrion_NULOS:
        return anfitrion_hace_nulos(p);
    case anfitrion_CONSULTA:
        return anfitrion_hace_consulta(p);
    case anfitrion_QUIEN:
        return anfitrion_hace_quien(p);
    default:
        return anfitrion_yo.otros != NULL ? anfitrion_yo.otros(p) : 99;
    }
}

/* The command function. */
static inline int32_t anfitrion_procesa(const char *nombre_servicio, uint32_t id_comando, comando *contexto,
                                        void *datos_externos)
{
    anfitrion_peticion p = {nombre_servicio, id_comando, contexto->datos_entrada, NULL, datos_externos};
    if (contexto->datos_salida != NULL)
        return 93;
    if (id_comando == anfitrion_ECO)
        papel_c_di("CONTEXTO %llu|%llu", (unsigned long long)contexto->hwnd_cliente,
                   (unsigned long long)(uintptr_t)contexto->hwnd_servidor);
    int32_t resultado = anfitrion_atiende(&p);
    contexto->datos_salida = p.salida;
    return resultado;
}

/* ---- Server: the window ---------------------------------------------------------------------------------- */

static inline LRESULT anfitrion_atiende_net(uint32_t i, uint32_t id_comando, uint32_t id_entrada)
{
    anfitrion_peticion p = {anfitrion_yo.servicios[i], id_comando, NULL, NULL, NULL};
    uint32_t id = 0;
    if (ivrexa_get_datos_entrada_comando(p.servicio, id_comando, &id, NULL, NULL, NULL) != CIERTO || id != id_entrada)
        return 92;
    if (id != 0)
        p.entrada = ivrexa_lee_datos(p.servicio, id, CIERTO);
    if (anfitrion_yo.salidas[i] != NULL)
        ivrexa_destruye_datos_comando(anfitrion_yo.salidas[i]);
    anfitrion_yo.salidas[i] = NULL;
    int32_t resultado = anfitrion_atiende(&p);
    anfitrion_yo.salidas[i] = p.salida;
    if (p.entrada != NULL)
        ivrexa_destruye_datos_comando(p.entrada);
    return resultado;
}

/* The host's own window procedure. What reaches it of a service's messages it says as "PROPIA wparam". */
static inline LRESULT CALLBACK anfitrion_procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    for (uint32_t i = 0; i < anfitrion_yo.num_servicios && msg != 0; i++) {
        if (msg != anfitrion_yo.mensajes[i])
            continue;
        if (!anfitrion_yo.con_funcion && wparam >= 100)
            return anfitrion_atiende_net(i, (uint32_t)wparam, (uint32_t)lparam);
        papel_c_di("PROPIA %u", (unsigned)wparam);
        if (wparam == ivrexa_comando_TERMINAR)
            PostQuitMessage(1);
        return 77;
    }
    return DefWindowProcW(hwnd, msg, wparam, lparam);
}

static inline HWND anfitrion_crea_ventana(void)
{
    WNDCLASSW clase;
    memset(&clase, 0, sizeof clase);
    clase.lpfnWndProc = anfitrion_procedimiento;
    clase.hInstance = GetModuleHandleW(NULL);
    clase.lpszClassName = L"anfitrion";
    RegisterClassW(&clase);
    return CreateWindowExW(0, L"anfitrion", L"", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, NULL, NULL, clase.hInstance,
                           NULL);
}

/* ---- Server: life ---------------------------------------------------------------------------------------- */

static inline void anfitrion_prepara(void)
{
    anfitrion *yo = &anfitrion_yo;
    for (uint32_t i = 0; i < yo->num_servicios; i++) {
        uint16_t version = (uint16_t)(yo->version + i);
        void *externos = (void *)(uintptr_t)(i + 1);
        if (i == 0 && yo->con_funcion)
            ivrexa_registra_servidor(yo->ruta, yo->hwnd, yo->servicios[i], version, externos, anfitrion_procesa);
        else if (i == 0)
            ivrexa_registra_servidor_net(yo->ruta, yo->hwnd, yo->servicios[i], version);
        else if (yo->con_funcion)
            ivrexa_anyade_servicio(yo->servicios[i], version, externos, anfitrion_procesa);
        else
            ivrexa_anyade_servicio_net(yo->servicios[i], version);
    }
}

static inline void anfitrion_publica(void)
{
    ivrexa_terminado_registro();
    for (uint32_t i = 0; i < anfitrion_yo.num_servicios; i++)
        anfitrion_yo.mensajes[i] = ivrexa_dame_id_MSG_servicio(anfitrion_yo.servicios[i]);
}

static inline void anfitrion_cierra(void)
{
    for (uint32_t i = 0; i < anfitrion_yo.num_servicios; i++) {
        if (anfitrion_yo.salidas[i] != NULL)
            ivrexa_destruye_datos_comando(anfitrion_yo.salidas[i]);
        anfitrion_yo.salidas[i] = NULL;
    }
    ivrexa_cierra_sesion();
}

static inline void anfitrion_pregunta_fuera(uint32_t id_comando)
{
    wchar_t t1[64] = L"-";
    const char *servicio = anfitrion_yo.servicios[0];
    int get = ivrexa_get_datos_entrada_comando(servicio, id_comando, NULL, t1, NULL, NULL);
    int set = ivrexa_set_datos_salida_comando(servicio, id_comando, 0, L"mal", L"mal", L"mal");
    papel_c_di("FUERA %d %d %d", get, set, t1[0] == L'-' && t1[1] == 0);
}

/* Obeys one line; 0 when it was the last. */
static inline int anfitrion_obedece(const char *linea)
{
    if (strcmp(linea, "ACABA") == 0)
        return 0;
    if (strcmp(linea, "CIERRA") == 0) {
        anfitrion_cierra();
        papel_c_di("CERRADO");
    } else if (strcmp(linea, "PREPARA") == 0) {
        anfitrion_yo.version = (uint16_t)(anfitrion_yo.version + 10);
        anfitrion_prepara();
        papel_c_di("PREPARADO");
    } else if (strcmp(linea, "PUBLICA") == 0) {
        anfitrion_publica();
        papel_c_di("PUBLICADO");
    } else if (strncmp(linea, "SOLICITA ", 9) == 0) {
        ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, linea + 9);
        papel_c_di("SOLICITADO");
    } else if (strcmp(linea, "SIGUE") == 0) {
        anfitrion_sigue = 1;
    } else if (strcmp(linea, "ESPERA") == 0) {
        ivrexa_espera_comando_terminar_servidor();
        papel_c_di("ESPERADO");
    } else if (strncmp(linea, "FUERA ", 6) == 0) {
        anfitrion_pregunta_fuera((uint32_t)strtoul(linea + 6, NULL, 10));
    } else if (strncmp(linea, "MSG ", 4) == 0) {
        papel_c_di("MSG %u", (unsigned)ivrexa_dame_id_MSG_servicio(linea + 4));
    } else if (strcmp(linea, "PROC") == 0) {
        papel_c_di("PROC %d", GetWindowLongPtrW(anfitrion_yo.hwnd, GWLP_WNDPROC) == (LONG_PTR)anfitrion_procedimiento);
    } else {
        papel_c_di("?? %s", linea);
    }
    return 1;
}

/* Messages at once, lines every 20 ms. */
static inline void anfitrion_vive(int (*obedece)(const char *linea))
{
    char linea[512];
    uint64_t limite = GetTickCount64() + anfitrion_PLAZO_MS;
    while (GetTickCount64() < limite) {
        MSG msg;
        if (anfitrion_yo.hwnd != NULL)
            MsgWaitForMultipleObjects(0, NULL, FALSE, 20, QS_ALLINPUT);
        while (anfitrion_yo.hwnd != NULL && PeekMessageW(&msg, NULL, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT)
                papel_c_di("QUIT %u", (unsigned)msg.wParam);
            DispatchMessageW(&msg);
        }
        if (papel_c_escucha(linea, sizeof linea, anfitrion_yo.hwnd != NULL ? 0 : 1000) && !obedece(linea))
            return;
    }
}

static inline void anfitrion_nace(int con_ventana)
{
    anfitrion_yo.hwnd = con_ventana ? anfitrion_crea_ventana() : NULL;
    snprintf(anfitrion_yo.ruta, sizeof anfitrion_yo.ruta, "papel_%lu", (unsigned long)GetCurrentProcessId());
    papel_c_di("HWND %llu", (unsigned long long)(uintptr_t)anfitrion_yo.hwnd);
    if (anfitrion_yo.al_nacer != NULL)
        anfitrion_yo.al_nacer();
}

static inline void anfitrion_lee_servicios(const char *lista)
{
    while (*lista != '\0' && anfitrion_yo.num_servicios < anfitrion_MAX_SERVICIOS) {
        size_t largo = strcspn(lista, ",");
        snprintf(anfitrion_yo.servicios[anfitrion_yo.num_servicios], 64, "%.*s", (int)largo, lista);
        anfitrion_yo.num_servicios++;
        lista += lista[largo] == ',' ? largo + 1 : largo;
    }
}

/* The same with an answer of the caller's own to each line. */
static inline int anfitrion_servidor_que(const char *clase, const char *servicios, int (*obedece)(const char *linea))
{
    anfitrion_lee_servicios(servicios);
    anfitrion_yo.con_funcion = strcmp(clase, "net") != 0;
    anfitrion_yo.version = 300;
    anfitrion_nace(strcmp(clase, "sin_ventana") != 0);
    anfitrion_prepara();
    anfitrion_publica();
    papel_c_di("LISTO");
    anfitrion_vive(obedece);
    anfitrion_cierra();
    return 0;
}

static inline int anfitrion_servidor(const char *clase, const char *servicios)
{
    return anfitrion_servidor_que(clase, servicios, anfitrion_obedece);
}

/* ---- Client ---------------------------------------------------------------------------------------------- */

/* The texts of sample n: the full length of each place, and characters of every kind. */
static inline void anfitrion_textos_muestra(uint32_t n, wchar_t *t1, wchar_t *t2, wchar_t *t3)
{
    for (int i = 0; i < 255; i++) {
        if (i < 63)
            t1[i] = (wchar_t)(L'a' + (i + (int)n) % 26);
        t2[i] = (wchar_t)(0x100 + 255 * (int)n + i);
        t3[i] = (wchar_t)(0xd7ff - i);
    }
    t1[63] = t2[255] = t3[255] = 0;
}

static inline void anfitrion_di_salida(uint32_t id_salida)
{
    char texto[anfitrion_TAM_LINEA] = "ninguna";
    comdat *salida = ivrexa_lee_datos(anfitrion_yo.servicios[0], id_salida, FALSO);
    if (salida != NULL) {
        anfitrion_copia_valores(salida, NULL, texto);
        ivrexa_destruye_datos_comando(salida);
    }
    papel_c_di("SALIDA %s", texto);
}

static inline void anfitrion_manda_eco(uint32_t n)
{
    wchar_t t1[64], t2[256], t3[256], r1[64], r2[256], r3[256];
    const char *servicio = anfitrion_yo.servicios[0];
    anfitrion_textos_muestra(n, t1, t2, t3);
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    anfitrion_graba_muestra(entrada, n);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada), id_salida = 0;
    uint32_t resultado =
        ivrexa_ejecuta_comando(servicio, anfitrion_ECO, 0, id_entrada, t1, t2, t3, &id_salida, r1, r2, r3);
    papel_c_di("RESULTADO %u|%u|%u", (unsigned)resultado, (unsigned)id_entrada, (unsigned)id_salida);
    anfitrion_di_textos(r1, r2, r3);
    anfitrion_di_salida(id_salida);
    ivrexa_destruye_datos_comando(entrada);
}

static inline int anfitrion_obedece_cliente(const char *linea)
{
    const char *servicio = anfitrion_yo.servicios[0];
    if (strcmp(linea, "ACABA") == 0)
        return 0;
    if (strncmp(linea, "ECO ", 4) == 0) {
        anfitrion_manda_eco((uint32_t)strtoul(linea + 4, NULL, 10));
    } else if (strncmp(linea, "COMANDO ", 8) == 0) {
        uint32_t id_comando = (uint32_t)strtoul(linea + 8, NULL, 10);
        uint32_t resultado =
            ivrexa_ejecuta_comando(servicio, id_comando, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL);
        papel_c_di("RESULTADO %u", (unsigned)resultado);
    } else {
        papel_c_di("?? %s", linea);
    }
    return 1;
}

static inline int anfitrion_cliente(const char *clase, const char *servicio)
{
    anfitrion_lee_servicios(servicio);
    anfitrion_nace(strcmp(clase, "ventana") == 0);
    ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, servicio);
    papel_c_di("LISTO");
    anfitrion_vive(anfitrion_obedece_cliente);
    ivrexa_cierra_sesion();
    return 0;
}

#endif
