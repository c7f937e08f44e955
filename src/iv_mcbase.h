// iv_mcbase.h - this process's way into the registry that all programs share, and the monitor.
//
// The registry's format, and who writes what: ivrexa_mcbase.h.
//
// ACCESS. A process opens the registry once and keeps one access record until no program is registered any more, or
// until its session closes. Every operation below locks "Ivrexa_Mutex_MCB" at a site of its own (iv_mutex.h) and is
// harmless where the registry cannot be opened: it then gives the neutral result. Operations that take a block are
// called with the lock held. No other mutex is taken while the registry's is held, but the heap's by who ends a thread.
//
// Texts in the block are other programs' words: they are read through bounded copies. A program index of 16 or more has
// no heartbeat: its counter reads as 0. A service index of 32 or more is ignored everywhere.
#ifndef IV_MCBASE_H
#define IV_MCBASE_H

#include "iv_mutex.h"
#include "iv_plataforma.h"
#include "iv_shared.h"

// The block as the code sees it: volatile, so that other processes see every write, and in the order written here.
using iv_mcbase_vista = volatile iv_mcbase_t;

struct iv_mcbase_acceso {
    iv_mutex *mutex;
    iv_shared_bloque *bloque;
    iv_mcbase_vista *mcbase;
};

enum iv_tipo_programa : uint32_t {
    iv_tipo_SERVIDOR = 0,
    iv_tipo_CLIENTE = 1,
    iv_tipo_MONITOR = 2,
};

enum iv_tipo_actividad : uint32_t {
    iv_actividad_SERVICIO = 1,      // a service becomes available / is closed
    iv_actividad_COMANDO = 2,       // a client starts / has finished a command
    iv_actividad_DATOS_ENTRADA = 3, // a block of input data is saved or opened
    iv_actividad_DATOS_SALIDA = 4,  // a block of output data is saved or opened
};

// wParam of the monitor's message.
enum iv_aviso_monitor : uint32_t {
    iv_aviso_ACTIVIDAD = 0,      // lParam: number of the activity record
    iv_aviso_RONDA_CLIENTE = 1,  // lParam: service index in the low 16 bits, loop state in the high 16
    iv_aviso_RONDA_SERVIDOR = 2, // likewise
};

extern iv_mcbase_acceso *volatile s_mcbase_acceso; // NULL while the registry is not open

// ---- Access

// The access record; the first call opens the registry, whatever the kind. With `registrando` CIERTO that first call
// also counts in num_registros, without the mutex. Deliberate. NULL when the block cannot be opened or is too small.
iv_mcbase_acceso *iv_mcbase_abre(uint32_t tipo_programa, int16_t registrando);

// Opens and locks; iv_mcbase_desbloquea ends the use. NULL, with nothing locked, when the registry cannot be opened.
iv_mcbase_acceso *iv_mcbase_bloquea(uint32_t tipo_programa, int16_t registrando, iv_sitio sitio);
void iv_mcbase_desbloquea(iv_mcbase_acceso *acceso, iv_sitio sitio);

// Closes this process's access if no program is registered on the desktop. Without an access record: nothing.
void iv_mcbase_libera_si_vacio(void);

// Closes this process's access, at the end of a session: the library's threads are stopped. Without one: nothing.
void iv_mcbase_cierra(void);

// Keeps the opening and closing of the access, and the registry's mutex, to this thread while it ends another: that is
// inside of neither then.
void iv_mcbase_retiene(void);
void iv_mcbase_suelta(void);

// ---- Programs

// Enters a program and its kind; a program of that name with the same window, or whose window is gone, keeps its entry.
//   Returns  its index; 16 when the table is full, after "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS".
uint16_t iv_mcbase_registra_programa(uint32_t tipo_programa, const char *nombre_programa, ivrexa_hwnd hwnd);

// Clears an entry, its heartbeat included, then releases the registry if no program is left. Without access: nothing.
void iv_mcbase_quita_programa(uint16_t id_programa);

// One beat: sleeps 2000 ms, then counts the program's heartbeat. CIERTO when the heartbeat must stop.
int16_t iv_mcbase_estoy_vivo(uint16_t id_programa);

// The program's heartbeat counter. Called with the lock held.
uint32_t iv_mcbase_latido(iv_mcbase_vista *mcbase, uint16_t id_programa);

// ---- Services

// Index of a service, 32 for none; the first free entry in *ind_libre, if given, 32 for none. Lock held.
uint32_t iv_mcbase_busca_servicio(iv_mcbase_vista *mcbase, const char *nombre_servicio, uint32_t *ind_libre);

// The same, entering it where it is missing; 32 when the table is full, after "ind_datServ <
// iv_mcbase_NUM_MAX_SERVICIOS". Names are kept to 63 characters; a longer one is never found again. Lock held.
uint32_t iv_mcbase_busca_o_anyade_servicio(uint32_t tipo_programa, iv_mcbase_vista *mcbase,
                                           const char *nombre_servicio);

// Empties the service's name; its index, 32 for none. Lock held.
uint32_t iv_mcbase_quita_servicio(uint32_t tipo_programa, iv_mcbase_vista *mcbase, const char *nombre_servicio);

// Name of the first service whose name begins so, into a buffer of 64 characters; FALSO and untouched without one.
int16_t iv_mcbase_hay_servicio_registrado_empiece_por(const char *prefijo_nombre_servicio,
                                                      char *buffer_nombre_servicio_registrado64);

// Makes the program the server, or the (last) client, of a service. The service's index in *ind_datServ, if given.
void iv_mcbase_registra_servidor_de_servicio(uint16_t id_programa, const char *nombre_servicio, uint32_t *ind_datServ);
void iv_mcbase_registra_cliente_de_servicio(uint16_t id_programa, const char *nombre_servicio, uint32_t *ind_datServ);

// A client's command begins / has ended.
void iv_mcbase_inicia_comando(uint32_t ind_datServ, uint32_t id_comando);
void iv_mcbase_termina_comando(uint32_t ind_datServ, uint32_t id_comando);

// ---- Activity

int16_t iv_mcbase_hay_monitor(uint32_t tipo_programa);

// Notes an activity for the monitor and tells it. A server's iv_actividad_SERVICIO also enters the service in the table
// or takes it out, with or without a monitor. Deliberate: it is how services come and go.
void iv_mcbase_anota_actividad(uint32_t tipo_programa, uint32_t tipo_actividad, int16_t indicador,
                               const char *nombre_servicio, uint32_t dato1, uint32_t dato2);

// Tells the monitor, if there is one, that a side waits. Called with the lock held. Deliberate.
void iv_mcbase_avisa_ronda(iv_mcbase_vista *mcbase, iv_aviso_monitor aviso, uint32_t ind_datServ, uint32_t estado);

// ---- Monitor

// This process's monitor. The callbacks run on the thread that owns the window.
struct iv_mcbase_monitor {
    ivrexa_hwnd hwnd;
    WNDPROC proc_ventana_anterior;
    ivrexa_funcion_actividad funcionNotificacionActividad;
    ivrexa_funcion_bucle funcionMonitorBuclesCliente;
    ivrexa_funcion_bucle funcionMonitorBuclesServidor;
    void *datos_externos_monitor;
    uint32_t msg_monitor;
};

extern iv_mcbase_monitor *s_programa_monitor; // NULL while this process is not the monitor

// Makes this process the monitor: subclasses the window, initialises the registry's header and ring, and empties the
// names of all services. Deliberate. Reports "s_programa_monitor == NULL" where it is that already, then nothing.
void iv_mcbase_registra_monitor(ivrexa_hwnd hwnd_monitor, ivrexa_funcion_actividad funcionNotificacionActividad,
                                ivrexa_funcion_bucle funcionMonitorBuclesCliente,
                                ivrexa_funcion_bucle funcionMonitorBuclesServidor, void *datos_externos_monitor);

// Ends that. Where programs remain, the access record is forgotten with its handles open. Deliberate: the next open
// makes fresh ones.
void iv_mcbase_quita_monitor(void);

// A window may be both the monitor's and the program's, and either may go first. The one that goes takes its procedure,
// `quitado`, out from under the other, which then keeps the one that `quitado` had found.
void iv_mcbase_programa_deja_ventana(WNDPROC quitado, WNDPROC hallado);

// The procedure of the monitor's window.
LRESULT CALLBACK iv_mcbase_proc_monitor(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam);

#endif
