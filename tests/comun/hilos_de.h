// hilos_de.h - the threads that a process has, this one or another.
#ifndef COMUN_HILOS_DE_H
#define COMUN_HILOS_DE_H

#include <set>

#include "sistema.h"

#include <tlhelp32.h>

inline std::set<DWORD> hilos_de(DWORD id_proceso)
{
    std::set<DWORD> hilos;
    HANDLE foto = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 hilo = {};
    hilo.dwSize = sizeof hilo;
    for (BOOL hay = Thread32First(foto, &hilo); hay; hay = Thread32Next(foto, &hilo))
        if (hilo.th32OwnerProcessID == id_proceso)
            hilos.insert(hilo.th32ThreadID);
    CloseHandle(foto);
    return hilos;
}

#endif
