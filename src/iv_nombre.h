// iv_nombre.h - the names of all shared objects. Programs meet by name alone, so every program must build these texts
// byte for byte.
//
//   "Ivrexa_MCB"                          block of the registry
//   "Ivrexa_Mutex_MCB"                    its mutex
//   "Ivrexa_Monitor_MSG"                  window message that tells the monitor of activity
//   "Mutex_Ivrexa_<service>"              mutex of a service; "_Inst<n>" behind it for an instance other than 0
//   "Mutex_Ivrexa_<service>Interno"       mutex of its mailbox. No separator. Deliberate.
//   "Ivrexa_MCB_Serv_<service>"           block of its channel
//   "Ivrexa_MCB_Serv_<service>_Com__comdat<n>"   block n of its command data. Two underscores. Deliberate.
//   "Ivrexa_MSG_Serv_<service>"           its window message
//
// The service's name enters as it is; the number 0 adds no digit. No prefix: the names live in the desktop's session.
#ifndef IV_NOMBRE_H
#define IV_NOMBRE_H

#include "iv_plataforma.h"

// Constants; nobody frees them.
const char *iv_nombre_MCB(void);
const char *iv_nombre_mutex_MCB(void);
const char *iv_nombre_monitor_MSG(void);

// New texts, the caller's until iv_mem_libera.
char *iv_nombre_mutex_servicio(const char *nombre_servicio, uint32_t instancia);
char *iv_nombre_mutex_servicio_interno(const char *nombre_servicio);
char *iv_nombre_MCServ(const char *nombre_servicio);
char *iv_nombre_MCCom(const char *nombre_servicio, uint32_t id_bloque_MCCom);
char *iv_nombre_MSG_servicio(const char *nombre_servicio);

// The two steps that append a number, "_Inst<n>" and "_comdat<n>".
void iv_nombre_anyade_instancia(char **nombre, uint32_t instancia);
void iv_nombre_anyade_comdat(char **nombre, uint32_t id_bloque_MCCom);

#endif
