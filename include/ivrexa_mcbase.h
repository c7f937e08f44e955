/* ivrexa_mcbase.h - the registry that every program of a desktop shares: programs, services, activities.
 *
 * FORMAT. Data of the block "Ivrexa_MCB": 8886 bytes, packed, little-endian, behind the block's 4-byte size header
 * (a 32-bit count of data bytes); all zeros when new. Texts are ANSI with their NUL.
 *
 * WHO WRITES, under the mutex "Ivrexa_Mutex_MCB" unless said otherwise:
 *      0..21    the monitor at its registration; num_actividad_siguiente by whoever notes an activity; hwnd_monitor is
 *               cleared by any program that unregisters a monitor.
 *               num_registros: by each process whose first opening is a registration, without the mutex. Deliberate.
 *     22..1429  the monitor at its registration; whoever acts, and only while a monitor is ready
 *   1430..5813  each program its own entry; a dead program's entry by the one that takes it over
 *   5814..8885  servers and clients of the service; the names are emptied by a monitor that registers
 *
 * A monitor is ready when tam_bloque is 8886, version is 256, and hwnd_monitor and msg_monitor are not 0.
 *
 * The monitor's callbacks receive pointers into this block. They read it without the mutex, so what they see may
 * change under them. Hosts read; only the library writes. */
#ifndef IVREXA_MCBASE_H
#define IVREXA_MCBASE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    iv_mcbase_NUM_MAX_PROGRAMAS = 16, /* an id_programa of 16 means none */
    iv_mcbase_NUM_MAX_SERVICIOS = 32, /* an ind_datServ of 32 means none */
    iv_mcbase_NUM_ACTIVIDADES = 64,   /* record 64 is initialised and never written. Deliberate. */
    iv_mcbase_TAM_NOMBRE_PROGRAMA = 256,
    iv_mcbase_TAM_NOMBRE_SERVICIO = 64,
    iv_mcbase_VERSION = 256
};

/* By hand: the columns make a table. */
/* clang-format off */
#pragma pack(push, 1)

/* One activity, 22 bytes. Record number n (1 to 63) is actividades[n - 1]; after 63 comes 1. */
typedef struct iv_mcbase_actividad_t {
    uint32_t ind_datServ;           /*  0  position in the service table; 32 = none */
    uint32_t dato1;                 /*  4  command id, or 0 */
    uint32_t dato2;                 /*  8  id of a command-data block, or 0 */
    uint32_t tipo_programa;         /* 12  who acts: 0 server, 1 client, 2 monitor */
    uint32_t tipo_actividad;        /* 16  1 service, 2 command, 3 input data, 4 output data */
    uint16_t indicador;             /* 20  1 begins, added, opened; 0 ends, removed */
} iv_mcbase_actividad_t;

/* One program, 274 bytes. Its position in the table is its id_programa. */
typedef struct iv_mcbase_programa_t {
    char     nombre[256];           /*   0  path of the executable; first byte 0 = free entry */
    uint64_t hwnd;                  /* 256  main window; 0 = none */
    uint16_t es_servidor;           /* 264  one entry can carry several kinds */
    uint16_t es_cliente;            /* 266 */
    uint16_t es_monitor;            /* 268 */
    uint32_t contador_vivo;         /* 270  heartbeat, one more every 2000 ms; cleared by removal only */
} iv_mcbase_programa_t;

/* One service, 96 bytes. Its position in the table is its ind_datServ. */
typedef struct datServ {
    char     nombre[64];                    /*  0  first byte 0 = free entry */
    uint16_t id_programa_servidor;          /* 64 */
    uint16_t id_programa_cliente;           /* 66  the last client that registered for the service */
    uint32_t bucle_servidor_estado;         /* 68  loop state the server waits in: 1 or 2 */
    uint32_t bucle_servidor_vueltas;        /* 72  rounds of 100 ms spent in it */
    uint32_t bucle_servidor_vivo_cliente;   /* 76  the client's heartbeat when the state was entered;
                                                   0 since a command began or ended */
    uint32_t id_comando_en_curso;           /* 80  command that a client is executing; 0 = none */
    uint32_t bucle_cliente_estado;          /* 84  loop state the client waits in: 1 to 4 */
    uint32_t bucle_cliente_vueltas;         /* 88  rounds of 100 ms spent in it */
    uint32_t bucle_cliente_vivo_servidor;   /* 92  the server's heartbeat when the state was entered */
} datServ;

/* The registry, 8886 bytes. */
typedef struct iv_mcbase_t {
    uint16_t tam_bloque;                    /*    0  8886 once a monitor has initialised the block */
    uint16_t version;                       /*    2  256 likewise */
    uint16_t num_registros;                 /*    4  processes that opened it to register; wraps */
    uint64_t hwnd_monitor;                  /*    6  0 = no monitor */
    uint32_t msg_monitor;                   /*   14  registered message "Ivrexa_Monitor_MSG" */
    uint32_t num_actividad_siguiente;       /*   18  number (1 to 63) of the next activity record */
    iv_mcbase_actividad_t actividades[64];  /*   22 */
    iv_mcbase_programa_t  programas[16];    /* 1430 */
    datServ               servicios[32];    /* 5814 */
} iv_mcbase_t;

#pragma pack(pop)
/* clang-format on */

#ifdef __cplusplus
#define IV_FORMATO(condicion, texto) static_assert(condicion, texto)
#else
#define IV_FORMATO(condicion, texto) _Static_assert(condicion, texto)
#endif
#define IV_CAMPO(tipo, campo, despl) IV_FORMATO(offsetof(tipo, campo) == (despl), #tipo "." #campo " has moved")

IV_FORMATO(sizeof(iv_mcbase_actividad_t) == 22, "the registry is a cross-process format");
IV_FORMATO(sizeof(iv_mcbase_programa_t) == 274, "the registry is a cross-process format");
IV_FORMATO(sizeof(datServ) == 96, "the registry is a cross-process format");
IV_FORMATO(sizeof(iv_mcbase_t) == 8886, "the registry is a cross-process format");

IV_CAMPO(iv_mcbase_actividad_t, ind_datServ, 0);
IV_CAMPO(iv_mcbase_actividad_t, dato1, 4);
IV_CAMPO(iv_mcbase_actividad_t, dato2, 8);
IV_CAMPO(iv_mcbase_actividad_t, tipo_programa, 12);
IV_CAMPO(iv_mcbase_actividad_t, tipo_actividad, 16);
IV_CAMPO(iv_mcbase_actividad_t, indicador, 20);

IV_CAMPO(iv_mcbase_programa_t, nombre, 0);
IV_CAMPO(iv_mcbase_programa_t, hwnd, 256);
IV_CAMPO(iv_mcbase_programa_t, es_servidor, 264);
IV_CAMPO(iv_mcbase_programa_t, es_cliente, 266);
IV_CAMPO(iv_mcbase_programa_t, es_monitor, 268);
IV_CAMPO(iv_mcbase_programa_t, contador_vivo, 270);

IV_CAMPO(datServ, nombre, 0);
IV_CAMPO(datServ, id_programa_servidor, 64);
IV_CAMPO(datServ, id_programa_cliente, 66);
IV_CAMPO(datServ, bucle_servidor_estado, 68);
IV_CAMPO(datServ, bucle_servidor_vueltas, 72);
IV_CAMPO(datServ, bucle_servidor_vivo_cliente, 76);
IV_CAMPO(datServ, id_comando_en_curso, 80);
IV_CAMPO(datServ, bucle_cliente_estado, 84);
IV_CAMPO(datServ, bucle_cliente_vueltas, 88);
IV_CAMPO(datServ, bucle_cliente_vivo_servidor, 92);

IV_CAMPO(iv_mcbase_t, tam_bloque, 0);
IV_CAMPO(iv_mcbase_t, version, 2);
IV_CAMPO(iv_mcbase_t, num_registros, 4);
IV_CAMPO(iv_mcbase_t, hwnd_monitor, 6);
IV_CAMPO(iv_mcbase_t, msg_monitor, 14);
IV_CAMPO(iv_mcbase_t, num_actividad_siguiente, 18);
IV_CAMPO(iv_mcbase_t, actividades, 22);
IV_CAMPO(iv_mcbase_t, programas, 1430);
IV_CAMPO(iv_mcbase_t, servicios, 5814);

#ifdef __cplusplus
}
#endif

#endif /* IVREXA_MCBASE_H */
