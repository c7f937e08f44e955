#include <cstdio>

#include "principal.h"
#include "sistema.h"

// Uses neither the heap nor the C run-time's streams: what crashed may have been them.
static LONG WINAPI al_caer(EXCEPTION_POINTERS *excepcion)
{
    const EXCEPTION_RECORD *r = excepcion->ExceptionRecord;
    HMODULE modulo = nullptr;
    char ruta[MAX_PATH] = "?", texto[MAX_PATH + 160];
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<LPCSTR>(r->ExceptionAddress), &modulo);
    if (modulo != nullptr)
        GetModuleFileNameA(modulo, ruta, sizeof ruta);
    uintptr_t direccion = reinterpret_cast<uintptr_t>(r->ExceptionAddress);
    int num = snprintf(texto, sizeof texto, "unhandled exception 0x%08lx at %p (%s+0x%zx), thread %lu\n",
                       r->ExceptionCode, r->ExceptionAddress, ruta,
                       static_cast<size_t>(direccion - reinterpret_cast<uintptr_t>(modulo)), GetCurrentThreadId());
    DWORD escritos;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), texto, static_cast<DWORD>(num), &escritos, nullptr);
    TerminateProcess(GetCurrentProcess(), 3);
    return EXCEPTION_EXECUTE_HANDLER;
}

void prepara_proceso()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    SetUnhandledExceptionFilter(al_caer);
}
