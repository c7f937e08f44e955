/* ivrexa.h - programs on one Windows desktop that work for each other.
 *
 * A server offers up to 16 named services. A client runs a numbered command on a service: it sends typed named
 * values and three wide texts, and gets back a result, three texts and typed output values. Servers notify clients,
 * clients announce documents, one monitor watches all traffic.
 *
 * ORDER OF CALLS
 *   server   ivrexa_registra_servidor (or _net), ivrexa_anyade_servicio (or _net) for each further service,
 *            ivrexa_terminado_registro; serve; ivrexa_cierra_sesion
 *   client   ivrexa_registra_cliente_de_servicio; ivrexa_crea_datos_comando_entrada, ivrexa_graba_*,
 *            ivrexa_guarda_datos, ivrexa_ejecuta_comando, ivrexa_lee_datos, ivrexa_dame_*,
 *            ivrexa_destruye_datos_comando for both containers; ivrexa_cierra_sesion
 *   notified   a client with ivrexa_registra_cliente_notificaciones_servicio, ivrexa_abierto_documento_de_cliente for
 *   client     its id, and a command that tells the server the id; the server's ivrexa_notifica_a_cliente calls its
 *              function, which ends with ivrexa_procesada_notificacion
 *   monitor    ivrexa_registra_monitor with a window; its message loop; the same with NULL; ivrexa_cierra_sesion
 *
 * WHAT HOLDS FOR EVERY FUNCTION
 *   Texts      `const char *` is ANSI, `const wchar_t *` is UTF-16, both with their NUL. What you pass is copied
 *              or used up before the call returns; it stays yours.
 *   Truth      16-bit CIERTO (1) or FALSO (0). Compare with 1.
 *   Reports    a broken precondition shows a message box "Assert ivrexa" with module, line and expression, and then
 *              the call goes on as is said here. A report never ends the program. A box dispatches messages: of
 *              more than 16 boxes inside each other on one thread the others go to the trace alone.
 *              "Reports E" below says which expression is shown. A null text goes on as an empty one.
 *   Memory     you free nothing that the library returns. Command data is yours from its creation to
 *              ivrexa_destruye_datos_comando; what its readers return lives as long as it does. When memory runs out,
 *              any call may raise the system's exception for that.
 *   Threads    any thread, unless said otherwise. Registration and ivrexa_cierra_sesion belong to the main thread:
 *              that of the program's window, or any one without; no two of these calls at a time.
 *              One container of command data belongs to one thread at a time.
 *
 * The library is a 64-bit one. Clean in C11 and C++17; <windows.h> is not needed and may come before or after. */
#ifndef IVREXA_H
#define IVREXA_H

#include <stddef.h>
#include <stdint.h>

#include "ivrexa_mcbase.h"

#if defined(_WIN32) && !defined(_WIN64)
#error "ivrexa is a 64-bit library"
#endif

/* The library's own build defines IVREXA_CONSTRUYE; its users define nothing. */
#if defined(IVREXA_CONSTRUYE) || !defined(_WIN32)
#define IVREXA_API
#else
#define IVREXA_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types ------------------------------------------------------------------------------------------------- */

#ifndef CIERTO
#define CIERTO ((int16_t)1) /* true */
#endif
#ifndef FALSO
#define FALSO ((int16_t)0) /* false */
#endif

/* A window handle: the HWND of <windows.h>, without it. */
struct HWND__;
typedef struct HWND__ *ivrexa_hwnd;

/* Command data: a counted sequence of typed, named values. Opaque. */
typedef struct comdat comdat;

/* By hand: the columns make a table. */
/* clang-format off */
/* Type of a value. */
typedef enum tipoDato {
    ivrexa_tipoDato_desconocido = 0,            /* never written; the answer for a position that does not exist */
    ivrexa_tipoDato_byte = 1,
    ivrexa_tipoDato_ushort = 2,
    ivrexa_tipoDato_ulong = 3,                  /* 32 bits */
    ivrexa_tipoDato_double = 4,
    ivrexa_tipoDato_buffer = 5,
    ivrexa_tipoDato_cadena_ansi = 6,
    ivrexa_tipoDato_cadena_unicode = 7,
    ivrexa_tipoDato_hwnd = 8,
    ivrexa_tipoDato_arr_cadenas_ansi = 9,
    ivrexa_tipoDato_arr_cadenas_unicode = 10
} tipoDato;

/* Result of a command. A command function may return other numbers; they reach the client as they are. */
typedef enum ivrexa_resultado {
    ivrexa_resultado_NINGUNO = 0,               /* no answer; also: no channel, or the server's window is gone. Where a
                                                   server closed and its window lives on, that answers: mostly 0 */
    ivrexa_resultado_OK = 1,                    /* the only result with which texts and output data arrive */
    ivrexa_resultado_CANCELADO = 2,
    ivrexa_resultado_ERROR = 3                  /* also: not a client of the service; a server without a window that
                                                   is gone or dead */
} ivrexa_resultado;

/* Command ids. 1 to 99 are the library's own; 1 ends the server. */
enum { ivrexa_comando_TERMINAR = 1, ivrexa_comando_PRIMERO_PROPIO = 100 };

/* Bits of opciones_ventana. */
enum {
    ivrexa_ventana_TRAE_SERVIDOR = 2,           /* server's window to the foreground when the command is sent */
    ivrexa_ventana_DEVUELVE_FOCO = 4            /* foreground back to the window active before, once it ends */
};

/* What a command function is called with; lives for that call. */
typedef struct comando {
    comdat     *datos_entrada;      /* the command's input, or NULL; the library's: do not destroy */
    comdat     *datos_salida;       /* NULL on entry; put your stored output here, the library then owns it */
    uint64_t    hwnd_cliente;       /* the client's main window, as a number; 0 = it has none */
    ivrexa_hwnd hwnd_servidor;      /* the server's main window, or NULL */
} comando;
/* clang-format on */

/* A service's command function. It runs on the window's thread (server with a window) or on the service's own
 * thread (server without). It reads contexto->datos_entrada. To answer with output it creates a container with
 * ivrexa_crea_datos_comando_salida, writes it, stores it with ivrexa_guarda_datos, passes the id that this gives to
 * ivrexa_set_datos_salida_comando, and puts the container into contexto->datos_salida, which keeps the block alive
 * until the service's next command. Texts too are answered with ivrexa_set_datos_salida_comando; what a command does
 * not answer stays as the command before left it. An exception that escapes gives ivrexa_resultado_ERROR in a server
 * without a window, whatever its kind; output that the function made stays the host's, also where it was put into
 * datos_salida. In a server with a window it is the host's: catch it inside the function.
 *
 * Never from here: ivrexa_cierra_sesion; a command on a service that has one under way, such as this one or the one
 * that its client is serving (A calls B calls A: the first exchange is still under way, so the second waits for ever);
 * a command on the window of a program that waits in rounds for this answer. A free service of a client that sends to
 * a window may be called. In a server without a window, besides: waiting for a thread that calls ivrexa_guarda_datos
 * for this service, whose mutex is held meanwhile. */
typedef int32_t (*ivrexa_funcion_comando)(const char *nombre_servicio, uint32_t id_comando, comando *contexto,
                                          void *datos_externos);

/* A client's notification function. A client with a window is called twice for each notification: on the service's
 * notification thread with the datum as `dato`, then on the window's thread with the client's id as `dato`. Deliberate.
 * (A _net server that is a client too is called once: the message goes to its own window procedure.)
 * Call ivrexa_obtener_id_datos_notificacion and ivrexa_procesada_notificacion in the first of the two, once. */
typedef void (*ivrexa_funcion_notificacion)(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato);

/* A monitor's activity function: the fields of an iv_mcbase_actividad_t. nombre_servicio points into the registry;
 * for a service that was withdrawn it is already empty. Runs on the thread that owns the monitor's window. */
typedef void (*ivrexa_funcion_actividad)(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador,
                                         const char *nombre_servicio, uint32_t dato1, uint32_t dato2,
                                         void *datos_externos_monitor);

/* A monitor's loop functions: somebody waits. `estado` is, for clients, 1 until no other client uses the service,
 * 2 until the server takes the command, 3 until it has finished, 4 until it has seen the receipt; for servers, 1 for
 * a command, 2 until the client has the result. Runs on the thread that owns the monitor's window. */
typedef void (*ivrexa_funcion_bucle)(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado,
                                     void *datos_externos_monitor);

/* ---- Command data: writing --------------------------------------------------------------------------------- */

/** Makes empty command data for a command's input (client) or output (server).
 *
 *  nombre_servicio  service the data is for; its channel numbers the block at ivrexa_guarda_datos.
 *  Returns          a new container, yours until ivrexa_destruye_datos_comando. */
IVREXA_API comdat *ivrexa_crea_datos_comando_entrada(const char *nombre_servicio);
IVREXA_API comdat *ivrexa_crea_datos_comando_salida(const char *nombre_servicio);

/*  The writers append one value each. Values are found again by position only, counted from 0 in the order written;
 *  names are for people and need not differ.
 *
 *  comdat        from ivrexa_crea_datos_comando_*. NULL reports "(comdat) != 0" and writes nothing.
 *  nombre_valor  up to 254 characters. A longer one reports "len < 256" and is written, but the content cannot be
 *                read back. Deliberate.
 *  Reports       "comdat->tipo == iv_comdat_tipo_ESCRITURA" for a container that is being read, and writes over its
 *                content where the last reading ended: never do that;
 *                "nuevo_tam >= tam_minimo_nuevo" where the content would pass 4 GiB, then writes nothing. */

/** Appends a number or a window handle. */
IVREXA_API void ivrexa_graba_byte(comdat *comdat, const char *nombre_valor, uint8_t valor);
IVREXA_API void ivrexa_graba_ushort(comdat *comdat, const char *nombre_valor, uint16_t valor);
IVREXA_API void ivrexa_graba_ulong(comdat *comdat, const char *nombre_valor, uint32_t valor);
IVREXA_API void ivrexa_graba_double(comdat *comdat, const char *nombre_valor, double valor);
IVREXA_API void ivrexa_graba_hwnd(comdat *comdat, const char *nombre_valor, ivrexa_hwnd valor);

/** Appends `tam` bytes.
 *  buffer   may be NULL when tam is 0; otherwise NULL reports "(buffer) != 0" and writes a buffer of 0 bytes.
 *  Reports  "(nombre_valor) != 0" too. */
IVREXA_API void ivrexa_graba_buffer(comdat *comdat, const char *nombre_valor, const void *buffer, uint32_t tam);

/** Appends a text. NULL is written as a null text and read back as NULL. */
IVREXA_API void ivrexa_graba_cadena_ansi(comdat *comdat, const char *nombre_valor, const char *cadena);
IVREXA_API void ivrexa_graba_cadena_unicode(comdat *comdat, const char *nombre_valor, const wchar_t *cadena);

/** Appends num_valores texts. NULL among them is a null text; a NULL array holds null texts only.
 *  Limit: an array of wide texts is written without its count while readers expect one, so it does not come back
 *  and hides the values behind it; ivrexa_lee_datos reports that. Deliberate, a format shared with every other host:
 *  use single wide texts. */
IVREXA_API void ivrexa_graba_arr_cadenas_ansi(comdat *comdat, const char *nombre_valor, const char *const *cadenas,
                                              uint32_t num_valores);
IVREXA_API void ivrexa_graba_arr_cadenas_unicode(comdat *comdat, const char *nombre_valor,
                                                 const wchar_t *const *cadenas, uint32_t num_valores);

/** Destroys a container and what its readers returned, and closes the shared block it keeps open. A block that this
 *  process opened to read stays in being until the process ends (see docs/limits.md).
 *  NULL reports "(comdat) != 0" and does nothing. */
IVREXA_API void ivrexa_destruye_datos_comando(comdat *comdat);

/* ---- Command data: storing and reading ---------------------------------------------------------------------- */

/** Stores a written container in a shared block of its own, numbered by the service's channel.
 *
 *  Returns  the block's id, to pass to ivrexa_ejecuta_comando or ivrexa_set_datos_salida_comando: from 100 up once a
 *           server has offered the service, worthless before; 0 without a channel (nobody offers or uses the service).
 *  Owns     the container keeps the block alive: destroy it only after the other side has read it.
 *  Reports  "(comdat) != 0"; "existia_MCServ == CIERTO" without a channel; "comdat->id_bloque_MCCom == 0" and
 *           "comdat->shared_MCCom == NULL" for a container stored before (the new id is good all the same, and its
 *           block stays open until the process ends); "comdat->tipo == iv_comdat_tipo_ESCRITURA" for one that is
 *           being read; "shared_MCCom != NULL && *shared_MCCom != NULL" when the
 *           block could not be made, then 0.
 *  Waits    for the service's mutex: while a windowless server runs a command, until that ends. */
IVREXA_API uint32_t ivrexa_guarda_datos(comdat *comdat);

/** Opens stored command data for reading.
 *
 *  nombre_servicio  service whose channel numbered the block.
 *  id_bloque_MCCom  the id that ivrexa_guarda_datos gave on the other side.
 *  es_entrada       CIERTO for a command's input (the server reads), FALSO for its output (the client reads).
 *  Returns          a container for reading, yours until ivrexa_destruye_datos_comando; NULL without such a block.
 *  Reports          "(shared_MCCom) != 0" without such a block. For content that does not keep to the format, which an
 *                   array of wide texts makes too: "(comdat->offset + tam) <= comdat->ocupado" where it ends too early,
 *                   "valor->tipoDato != ivrexa_tipoDato_desconocido" for each such; what was read before stays
 *                   readable.
 *                   "id_bloque_MCCom != 0" and "tam > 0" for a block 0 and for an empty one. */
IVREXA_API comdat *ivrexa_lee_datos(const char *nombre_servicio, uint32_t id_bloque_MCCom, int16_t es_entrada);

/*  The readers take a position from 0. A position that does not exist, another type, or a container that is not
 *  being read gives the neutral result: 0, 0.0 or NULL, and "?" for a name.
 *
 *  comdat   from ivrexa_lee_datos, or a command's datos_entrada. NULL reports "(comdat) != 0"; neutral result.
 *  Reports  "comdat->tipo == iv_comdat_tipo_LECTURA" for a container that is being written;
 *           "(comdat->offset + tam) <= comdat->ocupado" where the content ends too early. The readers of numbers
 *           make this check from where the last text, buffer or array read ended, not from the value's own place:
 *           read numbers first, or everything in the order written. Deliberate; the value is right.
 *  Pointers that are returned point into the container and live as long as it does. */

/** How many values; works on both kinds of container. NULL reports "(comdat) != 0" twice and gives 0. */
IVREXA_API uint32_t ivrexa_numero_valores(comdat *comdat);

/** Name of a value; "?" where there is none. NULL reports "(comdat) != 0" twice. */
IVREXA_API const char *ivrexa_nombre_valor(comdat *comdat, uint32_t indice);

/** Type of a value, a tipoDato; 0 for a position that does not exist. NULL reports "(comdat) != 0" twice. */
IVREXA_API uint32_t ivrexa_tipoDato(comdat *comdat, uint32_t indice);

/** The value at a position. */
IVREXA_API uint8_t ivrexa_dame_byte(comdat *comdat, uint32_t indice);
IVREXA_API uint16_t ivrexa_dame_ushort(comdat *comdat, uint32_t indice);
IVREXA_API uint32_t ivrexa_dame_ulong(comdat *comdat, uint32_t indice);
IVREXA_API double ivrexa_dame_double(comdat *comdat, uint32_t indice);
IVREXA_API ivrexa_hwnd ivrexa_dame_hwnd(comdat *comdat, uint32_t indice);

/** The bytes at a position, NULL when there are none.
 *  tam_buffer  out, in bytes; untouched when the position or the type does not fit. NULL reports
 *              "(tam_buffer) != 0". */
IVREXA_API const void *ivrexa_dame_buffer(comdat *comdat, uint32_t indice, uint32_t *tam_buffer);

/** The text at a position; NULL for a null text. A wide text may lie at an odd address. */
IVREXA_API const char *ivrexa_dame_cadena_ansi(comdat *comdat, uint32_t indice);
IVREXA_API const wchar_t *ivrexa_dame_cadena_unicode(comdat *comdat, uint32_t indice);

/** The texts at a position, as an array of pointers; a null text comes back as a pointer to what follows it.
 *  num_valores  out, how many; 0 when the position or the type does not fit. NULL reports "(num_valores) != 0".
 *  Each call makes a new array and only the last one goes with the container: read an array once. Deliberate. */
IVREXA_API const char *const *ivrexa_dame_arr_cadenas_ansi(comdat *comdat, uint32_t indice, uint32_t *num_valores);
IVREXA_API const wchar_t *const *ivrexa_dame_arr_cadenas_unicode(comdat *comdat, uint32_t indice,
                                                                 uint32_t *num_valores);

/* ---- Server ------------------------------------------------------------------------------------------------- */

/** Registers this program as a server and adds its first service. Main thread.
 *
 *  ruta_ejecutable        path of the executable; the program's name in the registry, 255 characters kept. Not empty:
 *                         an entry without a name counts as free.
 *  hwnd_programa          main window: commands arrive in its message loop. NULL: a thread for each service polls.
 *  nombre_servicio        1 to 63 characters; clients use it as it stands, case included.
 *  version                yours; ivrexa_hay_servicio_registrado hands it to clients.
 *  datos_externos         yours; last argument of every call of the command function.
 *  procesaComandoExterno  the command function; NULL makes this the same as the _net variant.
 *  A second call only adds a service: path, window and kind stay those of the first. Deliberate.
 *  The _net variant is for hosts whose own window procedure answers the service's message
 *  (ivrexa_dame_id_MSG_servicio) with ivrexa_get_datos_entrada_comando and ivrexa_set_datos_salida_comando.
 *  Reports  "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS" with 16 programs registered on the desktop: the program then
 *           has no heartbeat: who waits 26 rounds for it takes it for dead, and each of its commands may end a
 *           server without a window;
 *           "s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS" past 16 services, dropped. */
IVREXA_API void ivrexa_registra_servidor(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa,
                                         const char *nombre_servicio, uint16_t version, void *datos_externos,
                                         ivrexa_funcion_comando procesaComandoExterno);
IVREXA_API void ivrexa_registra_servidor_net(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa,
                                             const char *nombre_servicio, uint16_t version);

/** Adds a service to the registered server, before ivrexa_terminado_registro. Main thread.
 *
 *  Arguments as above. In a program registered through the _net variant, or first as a client, the command function
 *  is not kept: such a program adds a service with its function by a further ivrexa_registra_servidor.
 *  Reports  "(s_programa) != 0" without registration, then nothing; "(procesaComandoExterno) != 0" or, in a program
 *           registered as above, "procesaComandoExterno != NULL" for a null command function, and adds the service
 *           all the same: ivrexa_anyade_servicio_net always makes one of the two. Deliberate;
 *           "s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS" past 16 services, dropped. */
IVREXA_API void ivrexa_anyade_servicio(const char *nombre_servicio, uint16_t version, void *datos_externos,
                                       ivrexa_funcion_comando procesaComandoExterno);
IVREXA_API void ivrexa_anyade_servicio_net(const char *nombre_servicio, uint16_t version);

/** Publishes the services and starts to receive commands. Main thread, once, after the last service.
 *  A window with a command function is subclassed here: call it on the window's thread. Without registration it does
 *  nothing. A later call publishes services added since and announces the others again.
 *  Reports  "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS" twice with 32 services on the desktop: clients still reach a
 *           server with a window; a service without one ends at once. */
IVREXA_API void ivrexa_terminado_registro(void);

/** Waits, in steps of 400 ms, until no service of this program has a running thread: in a server without a window
 *  until it was told to end or another thread closed the session, in any other program not at all. */
IVREXA_API void ivrexa_espera_comando_terminar_servidor(void);

/** Asks the server of a service to end. Nothing happens when there is no such service; where a server closed its
 *  session and its window lives on, that gets the message.
 *  With a window: any program may ask, and does not wait; the server gets command 1 posted, and so WM_QUIT with 1, or,
 *  in a _net server, the message with wParam 1 in its own procedure.
 *  Without one: this program must be a client of the service; that service's thread ends. A server that offers several
 *  waits in ivrexa_espera_comando_terminar_servidor until all of them were told. */
IVREXA_API void ivrexa_terminar_servidor(const char *nombre_servicio);

/** Registered window message of a service that this program offers or uses; wParam is the command id, lParam the id
 *  of the input block (0 = none), the window procedure's return value the result. 0 when unknown or not registered, and
 *  for a service that is offered without a window or before ivrexa_terminado_registro. */
IVREXA_API uint32_t ivrexa_dame_id_MSG_servicio(const char *nombre_servicio);

/** Reads the command under way, from the window procedure of a _net server or from a command function.
 *
 *  id_comando                 the message's wParam; another command than the one under way gives FALSO.
 *  id_datos_entrada_comando   out, may be NULL: id of the input block for ivrexa_lee_datos, 0 = none, and always in a
 *                             command function, whose context has the input already.
 *  buffer_cliente_64, buffer_cliente_256, buffer_cliente2_256
 *                             out, each may be NULL: the client's texts, room for 64, 256 and 256 characters.
 *  Returns                    CIERTO; FALSO, with nothing written, for a service that is not one of this server's
 *                             or a command that is not under way.
 *  Reports                    "(nombre_servicio) != 0". */
IVREXA_API int16_t ivrexa_get_datos_entrada_comando(const char *nombre_servicio, uint32_t id_comando,
                                                    uint32_t *id_datos_entrada_comando, wchar_t *buffer_cliente_64,
                                                    wchar_t *buffer_cliente_256, wchar_t *buffer_cliente2_256);

/** Answers the command under way with an output block and three texts; the client gets them with result 1.
 *
 *  id_datos_salida_comando  from ivrexa_guarda_datos; 0 = none. The container must live until the client has read
 *                           it: give it to contexto->datos_salida, or keep it until the next command.
 *  resultado_64, resultado_256, resultado_256_2
 *                           at most 63, 255 and 255 characters are sent; NULL sends an empty text.
 *  Returns, Reports         as ivrexa_get_datos_entrada_comando. */
IVREXA_API int16_t ivrexa_set_datos_salida_comando(const char *nombre_servicio, uint32_t id_comando,
                                                   uint32_t id_datos_salida_comando, const wchar_t *resultado_64,
                                                   const wchar_t *resultado_256, const wchar_t *resultado_256_2);

/** Notifies a client of a service that this server offers, and waits until it called
 *  ivrexa_procesada_notificacion, or until this server ends the service: without any other time-out. Deliberate.
 *
 *  id_cliente  the client's id, which it got from ivrexa_abierto_documento_de_cliente.
 *  dato        yours.
 *  id_datos    id of a stored block for the client, from ivrexa_guarda_datos; 0 = none.
 *  Limits      with several clients the first whose thread looks takes it, also when it is another's; so does one that
 *              has no id yet. This server then waits until it ends the service, and so it does when a client ends
 *              without its answer. A server killed meanwhile leaves the mailbox full: the service notifies nobody
 *              until every program that uses it has ended.
 *  Reports     "(nombre_servicio) != 0". */
IVREXA_API void ivrexa_notifica_a_cliente(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato,
                                          uint32_t id_datos);

/* ---- Client ------------------------------------------------------------------------------------------------- */

/** Registers this program as a client of a service; at most 16, a further one is dropped silently. Main thread.
 *
 *  ruta_ejecutable  path of the executable, as for servers; used by the program's first registration only.
 *  hwnd_programa    main window, subclassed by the program's first registration if that is this one, on whose thread it
 *                   is called; may be NULL.
 *  nombre_servicio  need not be offered yet. One client at a time has the service's entry in the registry: the last
 *                   one to register. Clients of one service must take turns in running commands.
 *  A second registration for the same service changes nothing.
 *  Limits   a command on a server without a window while the heartbeat of the service's client is 0 ends that server
 *           with a chance of one in 25: for 2 s after this call, and also once the last client that registered for the
 *           service has closed its session.
 *           Notifications end with the server: after its restart, ivrexa_cierra_sesion and register anew.
 *  Reports  "(ruta_ejecutable) != 0", "(nombre_servicio) != 0"; "hwnd_programa == s_programa->hwnd_programa" for
 *           another window than the program's; the two full tables, as for servers, the services' once. */
IVREXA_API void ivrexa_registra_cliente_de_servicio(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa,
                                                    const char *nombre_servicio);

/** The same, with a function for notifications.
 *  Reports  "(hwnd_programa) != 0" and "(funcion_notificacion_cliente) != 0" too; goes on without. */
IVREXA_API void ivrexa_registra_cliente_notificaciones_servicio(
    const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa, const char *nombre_servicio,
    ivrexa_funcion_notificacion funcion_notificacion_cliente);

/** Runs a command on a service and waits for its end. With a server that has a window it is a SendMessage: messages
 *  sent to this thread's windows are delivered meanwhile. With one that has none it polls in rounds of 100 ms: this
 *  thread's windows stand still. Each call leaves two handles open (see docs/limits.md).
 *
 *  nombre_servicio          one that this program registered for as a client.
 *  id_comando               100 and up.
 *  opciones_ventana         bits ivrexa_ventana_*; 0 leaves the foreground alone.
 *  id_bloque_MCCom_entrada  from ivrexa_guarda_datos; 0 = no input data.
 *  param1, param2, param3   at most 63, 255 and 255 characters are sent; NULL sends an empty text.
 *  id_datos_salida_comando  out, may be NULL: id of the output block for ivrexa_lee_datos, read it before the next
 *                           command; written with result 1 only.
 *  serv_buffer_64, serv_buffer_256, serv_buffer2_256
 *                           out, each may be NULL: room for 64, 256 and 256 characters; empty unless result is 1.
 *  Returns                  the command's result; see ivrexa_resultado. A server without a window whose heartbeat
 *                           stands still for 26 rounds counts as dead.
 *  Reports                  "(nombre_servicio) != 0". */
IVREXA_API uint32_t ivrexa_ejecuta_comando(const char *nombre_servicio, uint32_t id_comando, uint16_t opciones_ventana,
                                           uint32_t id_bloque_MCCom_entrada, const wchar_t *param1,
                                           const wchar_t *param2, const wchar_t *param3,
                                           uint32_t *id_datos_salida_comando, wchar_t *serv_buffer_64,
                                           wchar_t *serv_buffer_256, wchar_t *serv_buffer2_256);

/** Is a server attached to the service? Any program may ask. One that died without closing its session counts as
 *  attached for as long as a program holds the service's channel, or until a client found it dead.
 *  version_servicio  out, may be NULL; written whenever the channel exists, also with FALSO.
 *  Reports           "(nombre_servicio) != 0". */
IVREXA_API int16_t ivrexa_hay_servicio_registrado(const char *nombre_servicio, uint16_t *version_servicio);

/** The same for the first service of the registry whose name begins so.
 *
 *  prefijo_nombre_servicio               compared exactly; "" fits the first service.
 *  buffer_nombre_servicio_registrado64   out, 64 characters: the name found; untouched when there is none.
 *  Reports  "(prefijo_nombre_servicio) != 0", "(buffer_nombre_servicio_registrado64) != 0". */
IVREXA_API int16_t ivrexa_hay_servicio_registrado_empiece_por(const char *prefijo_nombre_servicio,
                                                              char *buffer_nombre_servicio_registrado64,
                                                              uint16_t *version_servicio);

/** Records that this program has opened a document for a service that it uses. No other program hears of it: send the
 *  id that it returns to the server by a command. Main thread.
 *
 *  ruta_documento, id_documento  of the document; the id is yours, not 0. At most 32 documents, a further one is
 *                                not recorded.
 *  Returns  this client's id for the service, which servers notify: the same for every document, from 200 up in each
 *           program; 0 when the program or the service is not registered.
 *  Reports  "(nombre_servicio) != 0", "(ruta_documento) != 0", "id_documento != 0"; "s_programa != NULL",
 *           "servicio_solicitado != NULL" (then 0); for a known id with another path
 *           "iv_mem_cadenas_iguales_u(doc->ruta, ruta_documento) == CIERTO". */
IVREXA_API uint32_t ivrexa_abierto_documento_de_cliente(const char *nombre_servicio, const wchar_t *ruta_documento,
                                                        uint32_t id_documento);

/** Records that the document is closed, for every service. An unknown id does nothing. Main thread.
 *  Reports  "(ruta_documento) != 0", "id_documento != 0", "s_programa != NULL", and another path as above. */
IVREXA_API void ivrexa_cerrado_documento_de_cliente(const wchar_t *ruta_documento, uint32_t id_documento);

/** Id of the block that the server attached to the notification that is being handled; 0 when there is none or it
 *  is another notification.
 *  id_cliente, dato  as the notification function got them on the notification thread.
 *  Reports           "(nombre_servicio) != 0". */
IVREXA_API uint32_t ivrexa_obtener_id_datos_notificacion(const char *nombre_servicio, uint32_t id_cliente,
                                                         uint32_t dato);

/** Tells the server that the notification has been handled; ivrexa_notifica_a_cliente then returns there. Once for each
 *  notification: a stray call stays in the mailbox and blocks the service's notifications.
 *  Reports  "(nombre_servicio) != 0". */
IVREXA_API void ivrexa_procesada_notificacion(const char *nombre_servicio);

/* ---- Monitor and session ------------------------------------------------------------------------------------ */

/** Makes this program the desktop's monitor, or, with a NULL window, ends that. Main thread.
 *
 *  hwnd_monitor            main window, subclassed; the callbacks run in its message loop.
 *  datos_externos_monitor  yours; last argument of every callback.
 *  Registering takes the place of another program's monitor, and empties the desktop's service table: a service is seen
 *  again once its server announces it or a client registers for it. Deliberate.
 *  ivrexa_cierra_sesion does not end a monitor: unregister it first. Call it on the window's thread. Unregistering ends
 *  the desktop's monitor, also where another program is it, if this program has the registry open; otherwise it does
 *  nothing. Where the window is also that of a registered program, register the monitor last: each of the two puts back
 *  the window procedure that it found.
 *  Reports  with a window "(funcionNotificacionActividad) != 0", "(funcionMonitorBuclesCliente) != 0",
 *           "(funcionMonitorBuclesServidor) != 0" (a null one is not called), "s_programa_monitor == NULL" when
 *           this program is the monitor already (nothing changes); without one "funcionNotificacionActividad ==
 *           NULL", "funcionMonitorBuclesCliente == NULL", "funcionMonitorBuclesServidor == NULL",
 *           "datos_externos_monitor == NULL". */
IVREXA_API void ivrexa_registra_monitor(ivrexa_hwnd hwnd_monitor, ivrexa_funcion_actividad funcionNotificacionActividad,
                                        ivrexa_funcion_bucle funcionMonitorBuclesCliente,
                                        ivrexa_funcion_bucle funcionMonitorBuclesServidor,
                                        void *datos_externos_monitor);

/** Ends this program's registration: threads, services, window procedure, everything the library holds. Main thread,
 *  once at the program's end; afterwards the program may register anew. Every pointer the library handed out is
 *  invalid. No other thread may be inside the library, but in ivrexa_notifica_a_cliente, which then returns and is
 *  waited for during 2000 sleeps of 1 ms; nor may this one be: not from a callback, nor from inside the box of a
 *  report. Takes half a second for each thread that still sleeps. Without registration only memory is released. */
IVREXA_API void ivrexa_cierra_sesion(void);

#ifdef __cplusplus
}
#endif

#endif /* IVREXA_H */
