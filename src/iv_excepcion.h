// iv_excepcion.h - what a guard around a host's function needs besides __try and __except, so that each exception that
// leaves the function ends in the guard and the thread goes on.
//
// GCC. Its run-time leaves a frame that has destructors to run, runs them, and goes on to a target that it keeps in the
// exception object. It notes the target where it finds a catch of its own, so a guard that it does not know has to
// note itself there, and to give the exception back in the end, as any catch of another language.
//
// STACK. An overflow takes place in what the system keeps free below a guard page, and takes the guard page with it: a
// second one would end the process. Some systems keep less than it takes to leave the frames.
//
//     iv_excepcion_guarda guarda;
//     iv_excepcion_prepara(&guarda);
//     __try {
//         ...
//     } __except (iv_excepcion_filtra(&guarda, GetExceptionInformation())) {
//         iv_excepcion_acaba(&guarda);
//     }
//
// In a function of its own, that is not inlined and has this one __except.
#ifndef IV_EXCEPCION_H
#define IV_EXCEPCION_H

#include "iv_plataforma.h"

struct iv_excepcion_gcc;

struct iv_excepcion_guarda {
    uint64_t marco;             // the frame of the function with the __except
    uint64_t destino;           // where that __except begins
    iv_excepcion_gcc *en_vuelo; // a C++ exception of GCC's run-time that ends here; NULL for none
};

// Notes the caller's frame, and makes sure that its thread has room for leaving an overflow.
__declspec(noinline) void iv_excepcion_prepara(iv_excepcion_guarda *guarda);

// The filter: handles everything.
__declspec(noinline) LONG iv_excepcion_filtra(iv_excepcion_guarda *guarda, const EXCEPTION_POINTERS *excepcion);

// Gives back the exception that has ended. Not inlined either: it has an __except of its own.
__declspec(noinline) void iv_excepcion_acaba(iv_excepcion_guarda *guarda);

#endif
