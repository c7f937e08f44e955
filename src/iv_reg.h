// iv_reg.h - this process's registration: the services it offers and uses, its documents, its threads; and the server's
// side of a command.
//
// LIFE. s_programa is NULL until the first registration and again after iv_reg_cierra_sesion. estado_registro: 1
// registered, 2 while the session closes, 3 closed. A service offered: its entry is filled by the registration, the
// shared objects are made by iv_reg_terminado_registro, and everything is released at the close.
//
// THREADS. Registration and close belong to the main thread; the record is not locked. The library adds one heartbeat
// thread, one thread for each service of a server without a window, and one for the notifications of each service
// used. Each reads only its own entry and the flags made for it. The command function runs on the window's thread or
// on the service's thread.
//
// What the functions do for hosts: ivrexa.h, under the names with ivrexa_. Service names and texts are not NULL here
// unless said otherwise.
#ifndef IV_REG_H
#define IV_REG_H

#include "iv_comdat.h"
#include "iv_mutex.h"
#include "iv_plataforma.h"
#include "iv_shared.h"

enum {
    i_NUM_MAX_SERVICIOS_PRESTADOS = 16,
    i_NUM_MAX_SERVICIOS_SOLICITADOS = 16,
    i_NUM_MAX_DOCUMENTOS = 32,
    i_PRIMER_ID_CLIENTE = 200,
};

enum iv_reg_estado : uint32_t { iv_reg_REGISTRADO = 1, iv_reg_CERRANDO = 2, iv_reg_CERRADO = 3 };
enum iv_reg_estado_hilo : uint32_t { iv_reg_hilo_NINGUNO = 0, iv_reg_hilo_CREADO = 1, iv_reg_hilo_EN_MARCHA = 2 };

#pragma pack(push, 1)

// A service offered.
struct iv_reg_servicio_prestado {
    char *nombre_servicio;
    uint32_t ind_datServ; // filled by iv_reg_terminado_registro
    uint16_t version;
    void *datos_externos;
    ivrexa_funcion_comando procesaComandoExterno;
    char *nombre_MCServ;      // name of the channel block
    uint32_t id_MSG_servicio; // 0 without a window
    iv_mutex *mutex_interno;  // guards the mailbox
    iv_mutex *mutex_MCServ;   // guards the channel
    iv_shared_bloque *shared_MCServ;
    HANDLE hilo_servidor; // without a window only
    uint32_t id_hilo_servidor;
    volatile uint32_t estado_hilo_servidor; // iv_reg_estado_hilo
    comdat *iv_comdat_salida_postergada;    // the last command's output, kept for its client
};

// A service used as client.
struct iv_reg_servicio_solicitado {
    char *nombre_servicio;
    uint32_t ind_datServ;
    uint32_t id_MSG_servicio;     // with or without a window
    volatile uint32_t id_cliente; // 0 until a document is opened or a message brings one
    ivrexa_funcion_notificacion funcion_notificacion_cliente;
    iv_mutex *mutex_interno;
    iv_shared_bloque *shared_MCServ;
    HANDLE hilo_cliente;
    uint32_t id_hilo_cliente;
    volatile uint16_t terminar_hilo_cliente;
};

struct documento {
    wchar_t *ruta;
    uint32_t id;                                        // 0 = free slot
    uint8_t servicios[i_NUM_MAX_SERVICIOS_SOLICITADOS]; // 1 = opened for that service; nothing reads it
};

struct iv_reg_programa {
    volatile uint32_t estado_registro; // iv_reg_estado
    char *ruta_ejecutable;
    ivrexa_hwnd hwnd_programa;
    WNDPROC wndproc_anterior; // NULL while the window is not subclassed
    uint16_t id_programa;
    uint16_t usa_procesaComandoExterno;
    uint32_t num_servicios_prestados;
    iv_reg_servicio_prestado servicios_prestados[i_NUM_MAX_SERVICIOS_PRESTADOS];
    uint32_t siguiente_id_cliente;
    uint32_t num_servicios_solicitados;
    iv_reg_servicio_solicitado servicios_solicitados[i_NUM_MAX_SERVICIOS_SOLICITADOS];
    uint32_t num_documentos; // 0 and never maintained: all slots are scanned. Deliberate.
    documento documentos[i_NUM_MAX_DOCUMENTOS];
    HANDLE hilo_registro; // heartbeat
    uint32_t id_hilo_registro;
};

#pragma pack(pop)

IV_FORMATO(sizeof(iv_reg_servicio_prestado) == 90, "packed");
IV_FORMATO(sizeof(iv_reg_servicio_solicitado) == 58, "packed");
IV_FORMATO(sizeof(documento) == 28, "packed");
IV_FORMATO(sizeof(iv_reg_programa) == 3324, "packed");

extern iv_reg_programa *volatile s_programa;

// ---- Registration

// `ruta_ejecutable` may be NULL. usa_procesaComandoExterno is the mark of a command function.
void iv_reg_registra_servidor(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa, const char *nombre_servicio,
                              uint16_t version, int16_t usa_procesaComandoExterno, void *datos_externos,
                              ivrexa_funcion_comando procesaComandoExterno);
void iv_reg_anyade_servicio(const char *nombre_servicio, uint16_t version, void *datos_externos,
                            ivrexa_funcion_comando procesaComandoExterno);
void iv_reg_terminado_registro(void);
uint32_t iv_reg_dame_id_MSG_servicio(const char *nombre_servicio);

// funcion_notificacion_cliente may be NULL.
void iv_reg_registra_cliente(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa, const char *nombre_servicio,
                             ivrexa_funcion_notificacion funcion_notificacion_cliente);

// A service that this program uses, for running commands on it. FALSO, with nothing written, when it does not.
int16_t iv_reg_dame_servicio_solicitado(const char *nombre_servicio, uint32_t *ind_datServ, ivrexa_hwnd *hwnd_programa);

// The monitor's procedure leaves a window that may be this program's: see iv_mcbase_programa_deja_ventana.
void iv_reg_monitor_deja_ventana(WNDPROC quitado, WNDPROC hallado);

// ---- Server

LRESULT CALLBACK iv_reg_wndproc_programa(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam);
DWORD WINAPI iv_reg_bucle_servidor(void *servicio); // thread of one service of a server without a window
uint32_t iv_reg_procesa_comando(iv_reg_servicio_prestado *servicio, uint32_t id_comando, uint32_t id_bloque_entrada);

int16_t iv_reg_get_datos_entrada_comando(const char *nombre_servicio, uint32_t id_comando,
                                         uint32_t *id_datos_entrada_comando, wchar_t *buffer_cliente_64,
                                         wchar_t *buffer_cliente_256, wchar_t *buffer_cliente2_256);
int16_t iv_reg_set_datos_salida_comando(const char *nombre_servicio, uint32_t id_comando,
                                        uint32_t id_datos_salida_comando, const wchar_t *resultado_64,
                                        const wchar_t *resultado_256, const wchar_t *resultado_256_2);
void iv_reg_espera_comando_terminar_servidor(void);
void iv_reg_notifica_a_cliente(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato, uint32_t id_datos);

// ---- Either side

// Stores command data in a block of its own and returns the block's id; see ivrexa_guarda_datos. NULL gives 0.
uint32_t iv_reg_guarda_datos(comdat *comdat);

// ---- Client

uint32_t iv_reg_abierto_documento_de_cliente(const char *nombre_servicio, const wchar_t *ruta_documento,
                                             uint32_t id_documento);
void iv_reg_cerrado_documento_de_cliente(const wchar_t *ruta_documento, uint32_t id_documento);
uint32_t iv_reg_obtener_id_datos_notificacion(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato);
void iv_reg_procesada_notificacion(const char *nombre_servicio);

// ---- Close

// CIERTO from the close's first step on.
int16_t iv_reg_esta_cerrando(void);

// Ends the registration. Not registered: nothing. The private heap is the caller's affair.
void iv_reg_cierra_sesion(void);

#endif
