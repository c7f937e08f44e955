// manejadores.h - the handles of this process to what the library makes: blocks and mutexes among the session's names,
// and threads. The window system's threads open and close others at any time, sections without a name among them, so
// only these are counted exactly.
#ifndef COMUN_MANEJADORES_H
#define COMUN_MANEJADORES_H

#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>

#include "sistema.h"
#include "vigilante.h"

#include <winternl.h>

struct manejadores {
    int32_t bloques = 0, mutexes = 0, hilos = 0;

    bool operator==(const manejadores &otros) const
    {
        return bloques == otros.bloques && mutexes == otros.mutexes && hilos == otros.hilos;
    }
    manejadores operator-(const manejadores &otros) const
    {
        return {bloques - otros.bloques, mutexes - otros.mutexes, hilos - otros.hilos};
    }
};

inline std::ostream &operator<<(std::ostream &salida, const manejadores &m)
{
    return salida << m.bloques << " blocks, " << m.mutexes << " mutexes, " << m.hilos << " threads";
}

// The text that the system gives of a handle's object, 1 its name, 2 its kind; "" for none and for no handle.
inline std::wstring texto_de_manejador(HANDLE manejador, int que)
{
    using consulta = LONG(WINAPI *)(HANDLE, int, void *, ULONG, ULONG *);
    static const consulta pregunta = reinterpret_cast<consulta>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQueryObject")));
    alignas(8) uint8_t datos[2048];
    DWORD marcas;
    if (!GetHandleInformation(manejador, &marcas) || pregunta(manejador, que, datos, sizeof datos, nullptr) < 0)
        return L"";
    const UNICODE_STRING *texto = reinterpret_cast<const UNICODE_STRING *>(datos);
    return std::wstring(texto->Buffer, texto->Length / 2);
}

// "Section", "Mutant", "Thread"...
inline std::wstring tipo_de_manejador(HANDLE manejador)
{
    return texto_de_manejador(manejador, 2);
}

inline std::wstring nombre_de_manejador(HANDLE manejador)
{
    return texto_de_manejador(manejador, 1);
}

// Whether its name is one of the session's; those of Wine itself are not meant.
inline bool es_de_la_sesion(HANDLE manejador)
{
    std::wstring nombre = nombre_de_manejador(manejador);
    return nombre.find(L"BaseNamedObjects") != nombre.npos && nombre.find(L"\\__wine") == nombre.npos &&
           nombre.find(L"\\__WINE") == nombre.npos;
}

inline manejadores cuenta_por_tipo()
{
    manejadores num;
    vigilante_en_reposo(5000);
    for (uintptr_t i = 1; i < 4096; i++) {
        HANDLE manejador = reinterpret_cast<HANDLE>(i * 4);
        std::wstring tipo = tipo_de_manejador(manejador);
        num.bloques += tipo == L"Section" && es_de_la_sesion(manejador);
        num.mutexes += tipo == L"Mutant" && es_de_la_sesion(manejador);
        num.hilos += tipo == L"Thread";
    }
    return num;
}

// As a role says it, and back.
inline std::string en_linea(const manejadores &m)
{
    return std::to_string(m.bloques) + " " + std::to_string(m.mutexes) + " " + std::to_string(m.hilos);
}

inline manejadores de_linea(const std::string &linea)
{
    manejadores m;
    std::istringstream(linea) >> m.bloques >> m.mutexes >> m.hilos;
    return m;
}

#endif
