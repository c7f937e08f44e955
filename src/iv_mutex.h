// iv_mutex.h - named mutexes that count how deep this process holds them. One guards each shared block.
//
// ORDER. A service's mutex first, then the registry's, then the heap's; never the reverse. A mutex may be taken again
// by the thread that holds it. Nothing locks at load time. No lock is given up after a time, but a notifier's when its
// own session closes: a holder that died leaves its mutex abandoned, and the next to wait has it.
//
// Each place in the code that locks has its own code, a lock site. It is kept beside the hold it made, so that a
// debugger shows who holds what; it is never compared. New codes go at the end; none is renumbered.
#ifndef IV_MUTEX_H
#define IV_MUTEX_H

#include "iv_plataforma.h"

enum { i_NUM_NIVELES_BLOQUEO = 4 };

// By hand: the columns make a table.
// clang-format off
enum iv_sitio : uint32_t {
    // the registry's mutex "Ivrexa_Mutex_MCB", 1 to 15
    iv_sitio_MCB_LIBERA_SI_VACIO      = 1,  // counts the programs left; releases behind it
    iv_sitio_MCB_REGISTRA_MONITOR     = 2,  // initialises header and ring, empties the service table
    iv_sitio_MCB_QUITA_MONITOR        = 3,
    iv_sitio_MCB_HAY_MONITOR          = 4,
    iv_sitio_MCB_ANOTA_ACTIVIDAD      = 5,  // the post to the monitor comes behind it
    iv_sitio_MCB_BUSCA_PREFIJO        = 6,
    iv_sitio_MCB_REGISTRA_PROGRAMA    = 7,
    iv_sitio_MCB_REGISTRA_CLIENTE     = 8,
    iv_sitio_MCB_REGISTRA_SERVIDOR    = 9,
    iv_sitio_MCB_INICIA_COMANDO       = 10,
    iv_sitio_MCB_TERMINA_COMANDO      = 11,
    iv_sitio_MCB_RONDA_CLIENTE        = 12, // a client's round; the service's mutex is held; posts to the monitor
    iv_sitio_MCB_RONDA_SERVIDOR       = 13, // a server's round; likewise in its state 1
    iv_sitio_MCB_ESTOY_VIVO           = 14, // heartbeat thread, every 2000 ms
    iv_sitio_MCB_QUITA_PROGRAMA       = 15,
    // the two mutexes of a service, 16 to 35; 20 and 26 are not in use
    iv_sitio_CLIENTE_RECLAMA          = 16, // waits until the channel is free, writes the command
    iv_sitio_CLIENTE_ESPERA_TOMA      = 17, // waits until the server took it; or stores a window server's answer
    iv_sitio_CLIENTE_ESPERA_FIN       = 18, // waits until the server finished it, reads the result
    iv_sitio_CLIENTE_ESPERA_AVISADO   = 19, // waits until the server saw the receipt, frees the channel
    iv_sitio_NOTIFICA_ESCRIBE         = 21, // "Interno": the server waits for the free mailbox and writes it
    iv_sitio_NOTIFICA_ESPERA          = 22, // "Interno": the server waits for the receipt and clears the mailbox
    iv_sitio_SERVIDOR_INICIA          = 23,
    iv_sitio_SERVIDOR_LISTO           = 24,
    iv_sitio_SERVIDOR_CIERRA          = 25,
    iv_sitio_SERVIDOR_TERMINA         = 27, // command 1
    iv_sitio_SERVIDOR_ESPERA          = 28, // loop thread: waiting again
    iv_sitio_SERVIDOR_RECIBE          = 29, // loop thread: waits for a command; held while it runs. Deliberate.
    iv_sitio_SERVIDOR_ESPERA_RECIBO   = 30, // loop thread: waits until the client has the result
    iv_sitio_SERVIDOR_AVISADO         = 31, // loop thread: has seen the receipt
    iv_sitio_SERVIDOR_TERMINADO       = 32, // loop thread: ends
    iv_sitio_CLIENTE_NOTIFICACION     = 33, // "Interno": held while a notification is handled. Deliberate.
    iv_sitio_GUARDA_DATOS             = 34, // numbers a data block and stores it
    iv_sitio_PROCESA_COMANDO          = 35, // takes the input; not held while the command function runs
};
// clang-format on

// This process's record of a named mutex, from the private heap. Level and codes change only while it is held.
struct iv_mutex {
    HANDLE mutex;
    char *nombre;                                    // the record's own copy
    int32_t nivel_bloqueo;                           // holds of this process; 0 = free
    uint32_t codigos_bloqueo[i_NUM_NIVELES_BLOQUEO]; // entry i: site of the hold that made level i + 1
};

// Makes the mutex `nombre`, or opens it when it exists.
//   recrea   CIERTO: an existing one is closed and opened again, which makes a fresh one unless somebody else has it
//            open. What comes of it is taken as it is. Deliberate.
//   Returns  a new record, the caller's until iv_mutex_destruye. Reports "(mutex) != 0" and keeps a null handle.
iv_mutex *iv_mutex_crea(const char *nombre, int16_t recrea);

// Waits for the mutex and counts the hold. A null record: nothing at all, not even a report.
//   Reports  "(iv_mutex->mutex) != 0"; "iv_mutex->nivel_bloqueo < i_NUM_NIVELES_BLOQUEO" at a fifth hold. Goes on.
void iv_mutex_bloquea(iv_mutex *iv_mutex, uint32_t codigo);

// The same, for no longer than plazo_ms: FALSO, with nothing locked, when it was not to be had. The record is not null.
int16_t iv_mutex_bloquea_en(iv_mutex *iv_mutex, uint32_t codigo, uint32_t plazo_ms);

// Uncounts a hold and releases it. The second form is for a place that unlocks what either of two sites locked.
//   Reports  "iv_mutex != NULL", then nothing; "(iv_mutex->mutex) != 0"; "iv_mutex->nivel_bloqueo > 0". Goes on.
void iv_mutex_desbloquea(iv_mutex *iv_mutex, uint32_t codigo);
void iv_mutex_desbloquea_2(iv_mutex *iv_mutex, uint32_t codigo1, uint32_t codigo2);

// Closes the mutex, frees the record and sets *iv_mutex to NULL. What is still held becomes abandoned.
//   Reports  "(*iv_mutex) != 0", then nothing; "(*iv_mutex)->nivel_bloqueo == 0", and goes on. A null address: nothing.
void iv_mutex_destruye(iv_mutex **iv_mutex);

// The heap's plain lock "ivrexa_iv_mem": no record, no level. The handle is NULL while there is no heap, and waiting
// on it or releasing it then fails at once, without a report.
void iv_mutex_heap_crea_y_bloquea(void); // makes it where there is none
void iv_mutex_heap_bloquea(void);
void iv_mutex_heap_desbloquea(void);
void iv_mutex_heap_destruye(void); // releases it once, closes it

#endif
