/* dll_notificaciones.h - hosts for the tests of notifications, on top of dll_anfitrion.h: a server that
 * notifies when it is told to, and a client that tells what reaches it. The same source is compiled as C11
 * (dll_notificaciones_c.c) and as C++17.
 *
 * SERVER  aviso_servidor("ventana" | "sin_ventana" | "net", "SERVICE,SERVICE...")
 * CLIENT  aviso_cliente("ventana" | "sin_ventana", "con_funcion" | "sin_funcion", "SERVICE,SERVICE...")
 * Both say "HWND n" and "LISTO" and obey the lines of dll_anfitrion.h's server and these; a NAME is the
 * line's rest:
 *   AVISA id dato datos NAME    ivrexa_notifica_a_cliente on the main thread: "AVISANDO dato", "AVISADO dato"
 *   APARTE id dato datos NAME   the same on a thread of its own
 *   GUARDA n NAME               stores output with sample n for a service: "GUARDADO id"
 *   DESTRUYE                    destroys all that it stored: "DESTRUIDO"
 *   ESCUCHA NAME                registers as a client with a notification function: "ESCUCHADO"
 *   DOC n NAME                  announces document n: "ID id"
 *   MODO m                      what the function does from now on, an aviso_modo: "MODO m"
 *   ACUSA NAME                  ivrexa_procesada_notificacion: "ACUSADO"
 *   PIDE id dato NAME           ivrexa_obtener_id_datos_notificacion: "DATOS n"
 *   LEE id NAME                 ivrexa_lee_datos: "LEIDO values"
 *   COMANDO id text|NAME        a command with text 1: "RESULTADO n"
 *   TERMINA NAME                ivrexa_terminar_servidor: "TERMINADO"
 *   PING                        "PONG"
 * The function says "AVISO hilo|ventana id dato NAME": on a thread of the library's or on the main thread. A
 * message of a listened service that reaches the host's own window procedure is "PROPIA wparam|lparam". */
#ifndef DLL_NOTIFICACIONES_H
#define DLL_NOTIFICACIONES_H

#include "dll_anfitrion.h"

/* Commands beside those of dll_anfitrion.h. Text 1 of both is "id dato datos". Others are said: "COMANDO id".
 */
enum {
    aviso_DENTRO = 140,    /* notifies from within the command function */
    aviso_DESDE_OTRO = 141 /* the same on another thread, whose end it waits for */
};

enum aviso_modo {
    aviso_modo_NADA,
    aviso_modo_ACUSA,        /* on the library's thread: acknowledges */
    aviso_modo_LEE,          /* there too: reads the block, acknowledges; "DATOS n" also on the main thread */
    aviso_modo_ESPERA,       /* there too: goes on at the line "SIGUE" */
    aviso_modo_ACUSA_VENTANA /* acknowledges on the main thread alone */
};

enum { aviso_MAX_GUARDADOS = 32 };

typedef struct aviso_orden {
    uint32_t id_cliente, dato, id_datos;
    char servicio[128];
} aviso_orden;

static DWORD aviso_hilo_principal;
static volatile LONG aviso_modo_actual;
static comdat *aviso_guardados[aviso_MAX_GUARDADOS];
static uint32_t aviso_num_guardados;
static UINT aviso_mensajes[anfitrion_MAX_SERVICIOS];
static uint32_t aviso_num_mensajes;

/* ---- Texts ----------------------------------------------------------------------------------------------- */

/* Reads `num` numbers and gives what stands behind them and a blank. */
static inline const char *aviso_numeros(const char *texto, uint32_t *numeros, uint32_t num)
{
    for (uint32_t i = 0; i < num; i++) {
        char *fin;
        numeros[i] = (uint32_t)strtoul(texto, &fin, 10);
        texto = *fin == ' ' ? fin + 1 : fin;
    }
    return texto;
}

/* The rest of a line that begins with a word and a blank; NULL if it does not. */
static inline const char *aviso_resto(const char *linea, const char *palabra)
{
    size_t largo = strlen(palabra);
    return strncmp(linea, palabra, largo) == 0 && linea[largo] == ' ' ? linea + largo + 1 : NULL;
}

static inline aviso_orden aviso_lee_orden(const char *texto, const char *servicio)
{
    aviso_orden o;
    uint32_t n[3];
    const char *nombre = aviso_numeros(texto, n, 3);
    o.id_cliente = n[0];
    o.dato = n[1];
    o.id_datos = n[2];
    snprintf(o.servicio, sizeof o.servicio, "%s", servicio != NULL ? servicio : nombre);
    return o;
}

/* ---- Notifying ------------------------------------------------------------------------------------------- */

static inline void aviso_notifica(const aviso_orden *o)
{
    papel_c_di("AVISANDO %u", (unsigned)o->dato);
    ivrexa_notifica_a_cliente(o->servicio, o->id_cliente, o->dato, o->id_datos);
    papel_c_di("AVISADO %u", (unsigned)o->dato);
}

static DWORD WINAPI aviso_hilo(void *orden)
{
    aviso_notifica((const aviso_orden *)orden);
    free(orden);
    return 0;
}

static inline HANDLE aviso_notifica_aparte(const aviso_orden *o)
{
    aviso_orden *copia = (aviso_orden *)malloc(sizeof *copia);
    *copia = *o;
    return CreateThread(NULL, 0, aviso_hilo, copia, 0, NULL);
}

/* The commands that dll_anfitrion.h does not know. */
static inline int32_t aviso_otros(anfitrion_peticion *p)
{
    wchar_t t1[64] = L"";
    char texto[64];
    if (p->id_comando != aviso_DENTRO && p->id_comando != aviso_DESDE_OTRO) {
        papel_c_di("COMANDO %u", (unsigned)p->id_comando);
        return 1;
    }
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, NULL, t1, NULL, NULL);
    snprintf(texto, sizeof texto, "%ls", t1);
    aviso_orden o = aviso_lee_orden(texto, p->servicio);
    if (p->id_comando == aviso_DENTRO) {
        aviso_notifica(&o);
        return 1;
    }
    HANDLE hilo = aviso_notifica_aparte(&o);
    DWORD espera = WaitForSingleObject(hilo, anfitrion_PLAZO_MS);
    CloseHandle(hilo);
    return espera == WAIT_OBJECT_0 ? 1 : 95;
}

static inline void aviso_guarda(const char *texto)
{
    uint32_t n;
    const char *servicio = aviso_numeros(texto, &n, 1);
    comdat *datos = ivrexa_crea_datos_comando_salida(servicio);
    anfitrion_graba_muestra(datos, n);
    aviso_guardados[aviso_num_guardados++] = datos;
    papel_c_di("GUARDADO %u", (unsigned)ivrexa_guarda_datos(datos));
}

static inline void aviso_destruye(void)
{
    while (aviso_num_guardados > 0)
        ivrexa_destruye_datos_comando(aviso_guardados[--aviso_num_guardados]);
    papel_c_di("DESTRUIDO");
}

/* ---- Being notified -------------------------------------------------------------------------------------- */

static inline void aviso_lee(uint32_t id, const char *servicio)
{
    char texto[anfitrion_TAM_LINEA] = "nada";
    comdat *datos = ivrexa_lee_datos(servicio, id, FALSO);
    if (datos != NULL) {
        anfitrion_copia_valores(datos, NULL, texto);
        ivrexa_destruye_datos_comando(datos);
    }
    papel_c_di("LEIDO %s", texto);
}

static inline void aviso_lee_los_suyos(const char *servicio, uint32_t id_cliente, uint32_t dato, int en_ventana)
{
    uint32_t id = ivrexa_obtener_id_datos_notificacion(servicio, id_cliente, dato);
    papel_c_di("DATOS %u", (unsigned)id);
    if (en_ventana)
        return;
    if (id != 0)
        aviso_lee(id, servicio);
    ivrexa_procesada_notificacion(servicio);
}

static inline void aviso_funcion(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    int en_ventana = GetCurrentThreadId() == aviso_hilo_principal;
    papel_c_di("AVISO %s %u %u %s", en_ventana ? "ventana" : "hilo", (unsigned)id_cliente, (unsigned)dato, servicio);
    switch (aviso_modo_actual) {
    case aviso_modo_LEE:
        aviso_lee_los_suyos(servicio, id_cliente, dato, en_ventana);
        break;
    case aviso_modo_ACUSA:
        if (!en_ventana)
            ivrexa_procesada_notificacion(servicio);
        break;
    case aviso_modo_ACUSA_VENTANA:
        if (en_ventana)
            ivrexa_procesada_notificacion(servicio);
        break;
    case aviso_modo_ESPERA:
        if (!en_ventana)
            anfitrion_espera_sigue();
        break;
    default:
        break;
    }
}

static LRESULT CALLBACK aviso_procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    for (uint32_t i = 0; i < aviso_num_mensajes; i++)
        if (msg == aviso_mensajes[i]) {
            papel_c_di("PROPIA %llu|%lld", (unsigned long long)wparam, (long long)lparam);
            return 77;
        }
    return anfitrion_procedimiento(hwnd, msg, wparam, lparam);
}

/* The host's own procedure is the window's before the library replaces it. */
static inline void aviso_al_nacer(void)
{
    aviso_hilo_principal = GetCurrentThreadId();
    if (anfitrion_yo.hwnd != NULL)
        SetWindowLongPtrW(anfitrion_yo.hwnd, GWLP_WNDPROC, (LONG_PTR)aviso_procedimiento);
}

static inline void aviso_escucha(const char *servicio, int con_funcion)
{
    char nombre[160];
    snprintf(nombre, sizeof nombre, "Ivrexa_MSG_Serv_%s", servicio);
    if (aviso_num_mensajes < anfitrion_MAX_SERVICIOS)
        aviso_mensajes[aviso_num_mensajes++] = RegisterWindowMessageA(nombre);
    if (con_funcion)
        ivrexa_registra_cliente_notificaciones_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, servicio, aviso_funcion);
    else
        ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, servicio);
}

/* ---- Lines ----------------------------------------------------------------------------------------------- */

static inline void aviso_comando(const char *texto)
{
    uint32_t id;
    wchar_t t1[64];
    char texto1[64];
    const char *resto = aviso_numeros(texto, &id, 1);
    const char *barra = strchr(resto, '|');
    snprintf(texto1, sizeof texto1, "%.*s", (int)(barra - resto), resto);
    anfitrion_ensancha(texto1, t1, 64);
    uint32_t resultado = ivrexa_ejecuta_comando(barra + 1, id, 0, 0, t1, NULL, NULL, NULL, NULL, NULL, NULL);
    papel_c_di("RESULTADO %u", (unsigned)resultado);
}

static inline void aviso_documento(const char *texto)
{
    uint32_t id_documento;
    wchar_t ruta[32];
    const char *servicio = aviso_numeros(texto, &id_documento, 1);
    swprintf(ruta, 32, L"c:\\%u", (unsigned)id_documento);
    papel_c_di("ID %u", (unsigned)ivrexa_abierto_documento_de_cliente(servicio, ruta, id_documento));
}

static inline void aviso_pide(const char *texto)
{
    uint32_t n[2];
    const char *servicio = aviso_numeros(texto, n, 2);
    papel_c_di("DATOS %u", (unsigned)ivrexa_obtener_id_datos_notificacion(servicio, n[0], n[1]));
}

static inline int aviso_obedece_cliente(const char *linea)
{
    const char *resto;
    uint32_t n;
    if ((resto = aviso_resto(linea, "ESCUCHA")) != NULL) {
        aviso_escucha(resto, 1);
        papel_c_di("ESCUCHADO");
    } else if ((resto = aviso_resto(linea, "DOC")) != NULL) {
        aviso_documento(resto);
    } else if ((resto = aviso_resto(linea, "MODO")) != NULL) {
        aviso_modo_actual = (LONG)strtoul(resto, NULL, 10);
        papel_c_di("MODO %ld", (long)aviso_modo_actual);
    } else if ((resto = aviso_resto(linea, "ACUSA")) != NULL) {
        ivrexa_procesada_notificacion(resto);
        papel_c_di("ACUSADO");
    } else if ((resto = aviso_resto(linea, "PIDE")) != NULL) {
        aviso_pide(resto);
    } else if ((resto = aviso_resto(linea, "LEE")) != NULL) {
        resto = aviso_numeros(resto, &n, 1);
        aviso_lee(n, resto);
    } else if ((resto = aviso_resto(linea, "COMANDO")) != NULL) {
        aviso_comando(resto);
    } else if ((resto = aviso_resto(linea, "TERMINA")) != NULL) {
        ivrexa_terminar_servidor(resto);
        papel_c_di("TERMINADO");
    } else {
        return 0;
    }
    return 1;
}

/* Obeys one line; 0 when it was the last. */
static inline int aviso_obedece(const char *linea)
{
    const char *resto;
    if (aviso_obedece_cliente(linea))
        return 1;
    if ((resto = aviso_resto(linea, "AVISA")) != NULL) {
        aviso_orden o = aviso_lee_orden(resto, NULL);
        aviso_notifica(&o);
    } else if ((resto = aviso_resto(linea, "APARTE")) != NULL) {
        aviso_orden o = aviso_lee_orden(resto, NULL);
        CloseHandle(aviso_notifica_aparte(&o));
    } else if ((resto = aviso_resto(linea, "GUARDA")) != NULL) {
        aviso_guarda(resto);
    } else if (strcmp(linea, "DESTRUYE") == 0) {
        aviso_destruye();
    } else if (strcmp(linea, "PING") == 0) {
        papel_c_di("PONG");
    } else {
        return anfitrion_obedece(linea);
    }
    return 1;
}

/* ---- Lives ----------------------------------------------------------------------------------------------- */

static inline int aviso_servidor(const char *clase, const char *servicios)
{
    anfitrion_yo.otros = aviso_otros;
    anfitrion_yo.al_nacer = aviso_al_nacer;
    return anfitrion_servidor_que(clase, servicios, aviso_obedece);
}

static inline int aviso_cliente(const char *clase, const char *funcion, const char *servicios)
{
    anfitrion_lee_servicios(servicios);
    anfitrion_yo.al_nacer = aviso_al_nacer;
    anfitrion_nace(strcmp(clase, "ventana") == 0);
    for (uint32_t i = 0; i < anfitrion_yo.num_servicios; i++)
        aviso_escucha(anfitrion_yo.servicios[i], strcmp(funcion, "con_funcion") == 0);
    papel_c_di("LISTO");
    anfitrion_vive(aviso_obedece);
    ivrexa_cierra_sesion();
    return 0;
}

#endif
