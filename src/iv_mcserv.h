// iv_mcserv.h - one service's channel: one command at a time to the server, its result back; and the client's side of
// running a command.
//
// FORMAT. Data of the block "Ivrexa_MCB_Serv_<service>": 2378 bytes, packed, little-endian, behind the 4-byte size
// header of iv_shared.h; all zeros when new. Texts are UTF-16 with their NUL.
//
// STATES of info_estadoComando, with the side that makes each step:
//   0 none -client-> 1 written -server-> 2 executing -server-> 3 finished
//          -client-> 4 received -server-> 5 seen -client-> 0
//   A server with a window answers by its window procedure and never sets 2, 3 or 5.
//
// WHO WRITES, under the service's mutex unless said otherwise (lock sites: iv_mutex.h):
//      0..1189  the server, sites 23 to 32, and the result while it runs the command. Exceptions: a client whose round
//               finds it dead sets servidor_terminado and estado_servidor (16 to 19), stores the answer of a server
//               with a window in resultado (17), makes the steps 1, 4 and 0 of info_estadoComando (16 to 19), and
//               either side numbers its data blocks with id_bloque_MCCom_siguiente (34).
//   1190..2361  the client that holds `ocupacion` (16 to 19); the server clears id_bloque_MCCom_entrada when it takes
//               the input (35)
//   2362..2377  mailbox: the server (21, 22) and its client (33), under the *internal* mutex
//   no lock     estado_notificacion = 3, the client's receipt; id_comando, id_bloque_MCCom_entrada: written before the
//               claim, cleared after the release; resultado texts by the command function; servidor_terminado by
//               command 1. Deliberate; so a reader compares id_comando with the id it was given.
//
// WAITS are rounds of 100 ms. A round is run with the service's mutex held, also during its sleep: the other side can
// change the channel only between two rounds. Deliberate. Two waits of the server run theirs without: for the receipt,
// and for the mailbox. A peer whose heartbeat stands still in the first 26 rounds of a wait counts as dead.
#ifndef IV_MCSERV_H
#define IV_MCSERV_H

#include "iv_comdat.h"
#include "iv_mutex.h"
#include "iv_plataforma.h"
#include "iv_shared.h"

// By hand: the columns make a table.
// clang-format off
#pragma pack(push, 1)
struct iv_mcserv_t {
    uint16_t tam_bloque;                 //    0  bytes, 2378 once a server has initialised the channel
    uint16_t version_servicio;           //    2  the host's; not interpreted
    uint32_t info_estadoComando;         //    4  see STATES
    uint32_t resultado;                  //    8  1 = success
    uint32_t id_bloque_MCCom_siguiente;  //   12  from 100 up, never reused while the block lives
    uint64_t hwnd_servidor;              //   16  0 = windowless
    uint32_t msg_servidor;               //   24  0 = windowless
    uint16_t servidor_terminado;         //   28  1 ends every wait on both sides
    uint32_t estado_servidor;            //   30  see iv_mcserv_estadoServidor
    uint32_t id_resultado;               //   34  block of output data; 0 = none
    wchar_t  serv_buffer_64[64];         //   38  result texts
    wchar_t  serv_buffer_256[256];       //  166
    wchar_t  serv_buffer2_256[256];      //  678
    uint64_t hwnd_cliente;               // 1190  of the client that runs the command
    uint32_t ocupacion;                  // 1198  see iv_mcserv_ocupacion
    uint32_t id_comando;                 // 1202  0 = none; 1..99 are the library's own
    uint32_t id_bloque_MCCom_entrada;    // 1206  0 = none or already taken
    wchar_t  buffer_cliente_64[64];      // 1210  command texts
    wchar_t  buffer_cliente_256[256];    // 1338
    wchar_t  buffer_cliente2_256[256];   // 1850
    uint32_t estado_notificacion;        // 2362  see iv_mcserv_estadoNotificacion
    uint32_t notificacion_dato1;         // 2366  the client's id
    uint32_t notificacion_dato2;         // 2370  the datum
    uint32_t notificacion_dato3;         // 2374  id of the data block attached
};
#pragma pack(pop)
// clang-format on

IV_FORMATO(sizeof(iv_mcserv_t) == 2378, "the channel is a cross-process format");
IV_CAMPO(iv_mcserv_t, tam_bloque, 0);
IV_CAMPO(iv_mcserv_t, version_servicio, 2);
IV_CAMPO(iv_mcserv_t, info_estadoComando, 4);
IV_CAMPO(iv_mcserv_t, resultado, 8);
IV_CAMPO(iv_mcserv_t, id_bloque_MCCom_siguiente, 12);
IV_CAMPO(iv_mcserv_t, hwnd_servidor, 16);
IV_CAMPO(iv_mcserv_t, msg_servidor, 24);
IV_CAMPO(iv_mcserv_t, servidor_terminado, 28);
IV_CAMPO(iv_mcserv_t, estado_servidor, 30);
IV_CAMPO(iv_mcserv_t, id_resultado, 34);
IV_CAMPO(iv_mcserv_t, serv_buffer_64, 38);
IV_CAMPO(iv_mcserv_t, serv_buffer_256, 166);
IV_CAMPO(iv_mcserv_t, serv_buffer2_256, 678);
IV_CAMPO(iv_mcserv_t, hwnd_cliente, 1190);
IV_CAMPO(iv_mcserv_t, ocupacion, 1198);
IV_CAMPO(iv_mcserv_t, id_comando, 1202);
IV_CAMPO(iv_mcserv_t, id_bloque_MCCom_entrada, 1206);
IV_CAMPO(iv_mcserv_t, buffer_cliente_64, 1210);
IV_CAMPO(iv_mcserv_t, buffer_cliente_256, 1338);
IV_CAMPO(iv_mcserv_t, buffer_cliente2_256, 1850);
IV_CAMPO(iv_mcserv_t, estado_notificacion, 2362);
IV_CAMPO(iv_mcserv_t, notificacion_dato1, 2366);
IV_CAMPO(iv_mcserv_t, notificacion_dato2, 2370);
IV_CAMPO(iv_mcserv_t, notificacion_dato3, 2374);

// The channel as the code sees it: volatile, so that the other side sees every write, and in the order written here.
using iv_mcserv_vista = volatile iv_mcserv_t;

enum iv_mcserv_estadoComando : uint32_t {
    iv_mcserv_estadoComando_NINGUNO = 0,
    iv_mcserv_estadoComando_ESCRITO = 1,
    iv_mcserv_estadoComando_EN_EJECUCION = 2,
    iv_mcserv_estadoComando_TERMINADO_POR_SERVIDOR = 3,
    iv_mcserv_estadoComando_RECIBIDO_POR_CLIENTE = 4,
    iv_mcserv_estadoComando_AVISADO_SERVIDOR = 5,
};

enum iv_mcserv_estadoServidor : uint32_t {
    iv_mcserv_estadoServidor_PARADO = 0,
    iv_mcserv_estadoServidor_ESPERA = 1,
    iv_mcserv_estadoServidor_EJECUTA = 2,
    iv_mcserv_estadoServidor_TERMINADO = 3, // with the current command
};

enum iv_mcserv_ocupacion : uint32_t {
    iv_mcserv_ocupacion_LIBRE = 0,
    iv_mcserv_ocupacion_ESCRIBE = 1,  // a client is writing its command
    iv_mcserv_ocupacion_EN_CURSO = 2, // a command is written and under way
};

enum iv_mcserv_estadoNotificacion : uint32_t {
    iv_mcserv_estadoNotificacion_LIBRE = 0,
    iv_mcserv_estadoNotificacion_ESCRITA = 1,   // by the server
    iv_mcserv_estadoNotificacion_TOMADA = 2,    // by a client's thread
    iv_mcserv_estadoNotificacion_PROCESADA = 3, // the client's receipt
};

enum : uint32_t { iv_mcserv_PRIMER_ID_BLOQUE = 100, iv_mcserv_RONDA_MS = 100 };

// ---- The block

// Makes or opens the channel block `nombre_MCServ`.
//   Returns  a new record; NULL without a mapping, or when an existing block is smaller than a channel.
iv_shared_bloque *iv_mcserv_crea_bloque(const char *nombre_MCServ, int16_t *ya_estaba_creado);

// Opens the channel of a service; NULL, with nothing created, without one.
iv_shared_bloque *iv_mcserv_abre_bloque(const char *nombre_servicio);

// The channel in an open block; NULL for a null record.
iv_mcserv_vista *iv_mcserv_vista_de(iv_shared_bloque *shared_MCServ);

// ---- Server. The service's mutex is the caller's affair.

void iv_mcserv_inicia(iv_mcserv_vista *mcserv, uint16_t version_servicio, int16_t ya_existia);
void iv_mcserv_servidor_listo(iv_mcserv_vista *mcserv, ivrexa_hwnd hwnd_servidor, uint32_t msg_servidor);
void iv_mcserv_servidor_terminado(iv_mcserv_vista *mcserv);
int16_t iv_mcserv_es_comando_reservado(uint32_t id_comando); // CIERTO for 1 to 99

// The command under way, if it is this one: its input block and texts into those outs that are given, of 64, 256 and
// 256 characters. FALSO, with nothing written, otherwise.
int16_t iv_mcserv_dame_comando(iv_mcserv_vista *mcserv, uint32_t id_comando, uint32_t *id_bloque_MCCom_entrada,
                               wchar_t *buffer_64, wchar_t *buffer_256, wchar_t *buffer2_256);

// The answer to the command under way, if it is this one; a null text is written as an empty one.
int16_t iv_mcserv_pon_resultado(iv_mcserv_vista *mcserv, uint32_t id_comando, uint32_t id_resultado,
                                const wchar_t *resultado_64, const wchar_t *resultado_256,
                                const wchar_t *resultado_256_2);

// The command's input, once: the channel's field is cleared. NULL when it is 0 already.
//   Reports  "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada"; "(shared_MCCom) != 0" without the block.
comdat *iv_mcserv_lee_datos_entrada(const char *nombre_servicio, iv_shared_bloque *shared_MCServ,
                                    uint32_t id_bloque_MCCom_entrada);

// Hands a notification to a client and waits for its receipt, or until the server ends.
void iv_mcserv_notifica(iv_mcserv_vista *mcserv, iv_mutex *mutex_interno, uint32_t dato1, uint32_t dato2,
                        uint32_t dato3);

// ---- Either side

// Notes that a block is opened, and opens it. NULL without such a block.
iv_shared_bloque *iv_mcserv_abre_MCCom(const char *nombre_servicio, uint32_t id_bloque_MCCom, int16_t es_entrada);

// The next block id of the channel, which moves on.
uint32_t iv_mcserv_siguiente_id_bloque(iv_mcserv_vista *mcserv);

// Stores a container's content in the block of that id and attaches it. CIERTO when the block could be made.
int16_t iv_mcserv_guarda_datos(comdat *comdat, uint32_t id_bloque_MCCom);

// Asks the server of a service to end. See ivrexa_terminar_servidor.
void iv_mcserv_termina_servidor(const char *nombre_servicio);

// Rounds of 100 ms, one for each state that a side waits in. CIERTO when the wait must be given up: the index is 32 or
// more, or the other side counts as dead. A client then marks the server as ended; the server's caller does what fits.
int16_t iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(uint32_t ind_datServ, iv_mcserv_vista *mcserv);
int16_t iv_mcserv_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO(uint32_t ind_datServ, iv_mcserv_vista *mcserv);
int16_t iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO(uint32_t ind_datServ, iv_mcserv_vista *mcserv);
int16_t iv_mcserv_CLIENTE_ESPERA_SERVIDOR_AVISADO(uint32_t ind_datServ, iv_mcserv_vista *mcserv);
int16_t iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(uint32_t ind_datServ, iv_mcserv_vista *mcserv);
int16_t iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO(uint32_t ind_datServ, iv_mcserv_vista *mcserv);

// ---- Client

// Runs a command. See ivrexa_ejecuta_comando; the texts are given as they came, each a new text of the caller's, and
// NULL where the result is another than 1; they are left as they are where nothing was exchanged: the program is no
// client of the service, or there is no channel. Each out may be NULL.
uint32_t iv_mcserv_ejecuta_comando(const char *nombre_servicio, uint32_t id_comando, uint16_t opciones_ventana,
                                   uint32_t id_bloque_MCCom_entrada, const wchar_t *buffer_cliente_64,
                                   const wchar_t *buffer_cliente_256, const wchar_t *buffer_cliente2_256,
                                   uint32_t *id_resultado, wchar_t **resultado_64, wchar_t **resultado_256,
                                   wchar_t **resultado_256_2);

#endif
