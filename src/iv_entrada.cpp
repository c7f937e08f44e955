// The DLL's entry point, and what compilers ask a C runtime for. The library is linked without one: it imports
// kernel32 alone and runs nothing when it is loaded.
#include "iv_plataforma.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE modulo, DWORD motivo, LPVOID)
{
    if (motivo == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(modulo);
    return TRUE;
}

#if defined(_MSC_VER)
#pragma function(memcpy, memset)
extern "C" int _fltused = 0; // the compiler names it wherever floating point is used
#endif

extern "C" void *memcpy(void *destino, const void *origen, size_t n)
{
    iv_copia_bytes(destino, origen, n);
    return destino;
}

extern "C" void *memset(void *destino, int valor, size_t n)
{
    iv_llena_bytes(destino, static_cast<unsigned char>(valor), n);
    return destino;
}
