// iv_fallo.h - places where a test build of the library may be told to die or to stand still, to see what that leaves
// to the other programs. In the library that ships there is nothing of it: the two macros are empty.
//
// A place is a lock site with a moment, or what lies between two writes to shared memory, by a name of its own:
//   "espera N"   before the wait for the mutex at lock site N
//   "entra N"    the mutex is held and counted, nothing is done yet
//   "sale N"     all is done, the mutex is still held
//   "fuera N"    the mutex is released
//   "heap crea", "heap entra", "heap sale"    the same for the heap's plain lock
//   "comando respondido", "comando recogido"  a client has its answer from the window, and from the channel
//   any other    right behind the write that the name tells
#ifndef IV_FALLO_H
#define IV_FALLO_H

#if defined(IVREXA_FALLOS)
#include <stdint.h>

enum iv_fallo_modo : uint32_t {
    iv_fallo_MUERE = 0,  // the process ends with the code iv_fallo_CODIGO, without a chance to tidy up
    iv_fallo_ESPERA = 1, // sets the event "ivrexa_fallo_llega_<pid>", waits for "ivrexa_fallo_sigue_<pid>"
};

enum : uint32_t { iv_fallo_CODIGO = 86 };

// Arms one place: the process dies or stands still there when a thread comes by for the `vez`-th time from now on, and
// the place is disarmed. NULL disarms.
extern "C" __declspec(dllexport) void iv_fallo_arma(const char *punto, uint32_t vez, uint32_t modo);

void iv_fallo_paso(const char *punto);
void iv_fallo_paso_cerrojo(const char *momento, uint32_t sitio);

#define iv_fallo(punto)                  iv_fallo_paso(punto)
#define iv_fallo_cerrojo(momento, sitio) iv_fallo_paso_cerrojo(momento, sitio)
#else
#define iv_fallo(punto)                  static_cast<void>(0)
#define iv_fallo_cerrojo(momento, sitio) static_cast<void>(0)
#endif

#endif
