// reventar.h - the ways in which a host's function may fail to return: by an exception of the system's or of the C++
// run-time's, past nothing, past objects with destructors, or with the stack used up.
#ifndef COMUN_REVENTAR_H
#define COMUN_REVENTAR_H

#include <cstdint>
#include <exception>
#include <ostream>
#include <stdexcept>
#include <string>

#include "sistema.h"

namespace reventar {

enum modo : uint32_t {
    LEE_NULO = 200,
    ESCRIBE_NULO,
    EJECUTA_NULO,
    CODIGO,
    CODIGO_SIN_VUELTA, // noncontinuable
    DIVIDE_POR_CERO,
    INSTRUCCION_ILEGAL,
    CPP_ENTERO, // nothing to destroy on the way
    CPP_ESTANDAR,
    CPP_UN_DESTRUCTOR,
    CPP_ANIDADOS,             // frame below frame, several objects in each
    CPP_DESTRUCTOR_QUE_LANZA, // and catches
    CPP_RELANZADA,
    CPP_OTRA_EN_SU_CATCH,
    CPP_GUARDADA,      // rethrown out of an exception_ptr
    CPP_TRAS_CAPTURA,  // behind one that the function caught itself
    CPP_MALA_AL_MORIR, // the exception's own destructor raises
    PILA,
    PILA_CON_DESTRUCTORES,
    FIN
};

struct nombre_modo {
    modo m;
    const char *nombre;
};

inline std::ostream &operator<<(std::ostream &salida, const nombre_modo &m)
{
    return salida << m.nombre;
}

inline constexpr nombre_modo SISTEMA[] = {
    {LEE_NULO, "LEE_NULO"},
    {ESCRIBE_NULO, "ESCRIBE_NULO"},
    {EJECUTA_NULO, "EJECUTA_NULO"},
    {CODIGO, "CODIGO"},
    {CODIGO_SIN_VUELTA, "CODIGO_SIN_VUELTA"},
    {DIVIDE_POR_CERO, "DIVIDE_POR_CERO"},
    {INSTRUCCION_ILEGAL, "INSTRUCCION_ILEGAL"},
};
inline constexpr nombre_modo CPP[] = {
    {CPP_ENTERO, "CPP_ENTERO"},
    {CPP_ESTANDAR, "CPP_ESTANDAR"},
    {CPP_UN_DESTRUCTOR, "CPP_UN_DESTRUCTOR"},
    {CPP_ANIDADOS, "CPP_ANIDADOS"},
    {CPP_DESTRUCTOR_QUE_LANZA, "CPP_DESTRUCTOR_QUE_LANZA"},
    {CPP_RELANZADA, "CPP_RELANZADA"},
    {CPP_OTRA_EN_SU_CATCH, "CPP_OTRA_EN_SU_CATCH"},
    {CPP_GUARDADA, "CPP_GUARDADA"},
    {CPP_TRAS_CAPTURA, "CPP_TRAS_CAPTURA"},
    {CPP_MALA_AL_MORIR, "CPP_MALA_AL_MORIR"},
};
inline constexpr nombre_modo PILAS[] = {
    {PILA, "PILA"},
    {PILA_CON_DESTRUCTORES, "PILA_CON_DESTRUCTORES"},
};

// Objects of this header that were made and not destroyed: on the way out, and exceptions themselves.
inline volatile LONG vivos = 0, hechos = 0, excepciones = 0;

struct testigo {
    testigo()
    {
        InterlockedIncrement(&vivos);
        InterlockedIncrement(&hechos);
    }
    testigo(const testigo &) = delete;
    ~testigo() { InterlockedDecrement(&vivos); }
};

struct testigo_que_lanza : testigo {
    ~testigo_que_lanza()
    {
        try {
            testigo t;
            throw std::string("inside a destructor");
        } catch (const std::string &) {
        }
    }
};

struct excepcion : std::runtime_error {
    excepcion() : std::runtime_error("the host's own") { InterlockedIncrement(&excepciones); }
    excepcion(const excepcion &otra) : std::runtime_error(otra) { InterlockedIncrement(&excepciones); }
    ~excepcion() override { InterlockedDecrement(&excepciones); }
};

struct mala_al_morir : std::runtime_error {
    mala_al_morir() : std::runtime_error("worse to come") {}
    ~mala_al_morir() override { RaiseException(0xE0004321, 0, 0, nullptr); }
};

__attribute__((noinline)) inline void lanza()
{
    throw excepcion();
}

__attribute__((noinline)) inline void lanza_bajo(uint32_t marcos)
{
    testigo a, b;
    if (marcos > 1)
        lanza_bajo(marcos - 1);
    testigo c;
    lanza();
}

__attribute__((noinline)) inline void lanza_bajo_uno_que_lanza()
{
    testigo_que_lanza t;
    lanza();
}

__attribute__((noinline)) inline void relanza()
{
    testigo t;
    try {
        lanza_bajo(2);
    } catch (const std::exception &) {
        testigo otro;
        throw;
    }
}

__attribute__((noinline)) inline void lanza_otra()
{
    testigo t;
    try {
        lanza_bajo(2);
    } catch (const std::exception &) {
        testigo otro;
        lanza_bajo(1);
    }
}

__attribute__((noinline)) inline void relanza_guardada()
{
    testigo t;
    std::exception_ptr guardada;
    try {
        lanza_bajo(1);
    } catch (...) {
        guardada = std::current_exception();
    }
    std::rethrow_exception(guardada);
}

__attribute__((noinline)) inline void lanza_tras_captura()
{
    try {
        lanza_bajo(3);
    } catch (const std::exception &) {
    }
    lanza_bajo(1);
}

inline volatile int s_sumidero, s_fondo = 0x7fffffff;

__attribute__((noinline)) inline int agota_pila(int n)
{
    volatile char marco[200];
    marco[0] = static_cast<char>(n);
    int hondo = n < s_fondo ? agota_pila(n + 1) + marco[0] : 0;
    s_sumidero = hondo;
    return hondo;
}

// Fails in this way; returns only from what should not.
__attribute__((noinline)) inline void revienta(uint32_t m)
{
    volatile int *volatile nulo = nullptr;
    void (*volatile funcion_nula)() = nullptr;
    volatile int cero = 0;
    switch (m) {
    case LEE_NULO:
        s_sumidero = *nulo;
        return;
    case ESCRIBE_NULO:
        *nulo = 1;
        return;
    case EJECUTA_NULO:
        funcion_nula();
        return;
    case CODIGO:
        RaiseException(0xE0001234, 0, 0, nullptr);
        return;
    case CODIGO_SIN_VUELTA:
        RaiseException(0xE0001234, EXCEPTION_NONCONTINUABLE, 0, nullptr);
        return;
    case DIVIDE_POR_CERO:
        s_sumidero = 7 / cero;
        return;
    case INSTRUCCION_ILEGAL:
        __builtin_trap();
    case CPP_ENTERO:
        throw 5;
    case CPP_ESTANDAR:
        lanza();
        return;
    case CPP_UN_DESTRUCTOR:
        lanza_bajo(1);
        return;
    case CPP_ANIDADOS:
        lanza_bajo(20);
        return;
    case CPP_DESTRUCTOR_QUE_LANZA:
        lanza_bajo_uno_que_lanza();
        return;
    case CPP_RELANZADA:
        relanza();
        return;
    case CPP_OTRA_EN_SU_CATCH:
        lanza_otra();
        return;
    case CPP_GUARDADA:
        relanza_guardada();
        return;
    case CPP_TRAS_CAPTURA:
        lanza_tras_captura();
        return;
    case CPP_MALA_AL_MORIR:
        throw mala_al_morir();
    case PILA:
        agota_pila(0);
        return;
    case PILA_CON_DESTRUCTORES: {
        testigo t; // the system's exceptions do not run destructors: it stays
        agota_pila(0);
        return;
    }
    default:
        return;
    }
}

} // namespace reventar

#endif
