// importacion.h - a system call of this program, replaced for a while: to see what the library asks of the
// system, and to refuse it. Only calls of this .exe are met (the modules under test and the support library),
// not those of DLLs.
//
//     IMPORTACION(HeapAlloc);          // at namespace scope
//     importacion_cambiada<decltype(&HeapAlloc)> cambio(
//         __imp_HeapAlloc, [](HANDLE, DWORD, SIZE_T) -> void * { return nullptr; });
#ifndef COMUN_IMPORTACION_H
#define COMUN_IMPORTACION_H

#include "sistema.h"

// The slot through which this program calls `nombre`; the linker gives it this name.
#define IMPORTACION(nombre) extern "C" decltype(&nombre) __imp_##nombre

template <typename funcion>
class importacion_cambiada {
public:
    importacion_cambiada(funcion &entrada, funcion otra) : m_entrada(entrada), m_antes(entrada) { pon(otra); }
    ~importacion_cambiada() { pon(m_antes); }
    importacion_cambiada(const importacion_cambiada &) = delete;
    importacion_cambiada &operator=(const importacion_cambiada &) = delete;

private:
    void pon(funcion otra)
    {
        DWORD proteccion; // the slots are read-only once the program is loaded
        VirtualProtect(&m_entrada, sizeof m_entrada, PAGE_READWRITE, &proteccion);
        m_entrada = otra;
        VirtualProtect(&m_entrada, sizeof m_entrada, proteccion, &proteccion);
    }

    funcion &m_entrada;
    const funcion m_antes;
};

#endif
