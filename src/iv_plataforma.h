// iv_plataforma.h - what depends on the compiler and on the window system, in one place.
#ifndef IV_PLATAFORMA_H
#define IV_PLATAFORMA_H

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include "ivrexa.h"

static_assert(sizeof(wchar_t) == 2, "texts are UTF-16");
static_assert(sizeof(void *) == 8, "a 64-bit library");

// A function that is seldom called: out of line and small, and the ways to it lie away from what is quick. And one that
// stands in its caller whatever else is asked of the compiler.
#if defined(_MSC_VER) && !defined(__clang__)
#define IV_RARA     __declspec(noinline)
#define IV_EN_LINEA __forceinline
#else
#define IV_RARA     __attribute__((cold, noinline))
#define IV_EN_LINEA inline __attribute__((always_inline))
#endif

// Copies n bytes one after the other, forwards: where the places overlap, the bytes written are read again. Written as
// one instruction, like filling, because a compiler may make a call of memcpy or memset out of a loop, and those
// two are built on these.
#if defined(_MSC_VER)
#include <intrin.h>
inline void iv_copia_bytes(void *destino, const void *origen, size_t n)
{
    __movsb(static_cast<unsigned char *>(destino), static_cast<const unsigned char *>(origen), n);
}
inline void iv_llena_bytes(void *destino, unsigned char valor, size_t n)
{
    __stosb(static_cast<unsigned char *>(destino), valor, n);
}
#else
inline void iv_copia_bytes(void *destino, const void *origen, size_t n)
{
    __asm__ volatile("rep movsb" : "+D"(destino), "+S"(origen), "+c"(n) : : "memory");
}
inline void iv_llena_bytes(void *destino, unsigned char valor, size_t n)
{
    __asm__ volatile("rep stosb" : "+D"(destino), "+c"(n) : "a"(valor) : "memory");
}
#endif

// The calls of the window system. They are bound on first use: loading the library does not load user32. Tests swap
// entries to record a message or to answer a message box.
struct iv_ventana_llamadas {
    int(WINAPI *MessageBoxA)(HWND hwnd, LPCSTR texto, LPCSTR titulo, UINT estilo);
    int(WINAPIV *wsprintfA)(LPSTR destino, LPCSTR formato, ...);
    UINT(WINAPI *RegisterWindowMessageA)(LPCSTR nombre);
    LONG_PTR(WINAPI *SetWindowLongPtrW)(HWND hwnd, int indice, LONG_PTR valor);
    LRESULT(WINAPI *CallWindowProcW)(WNDPROC proc, HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam);
    BOOL(WINAPI *PostMessageW)(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam);
    LRESULT(WINAPI *SendMessageW)(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam);
    void(WINAPI *PostQuitMessage)(int codigo);
    BOOL(WINAPI *IsWindow)(HWND hwnd);
    HWND(WINAPI *GetActiveWindow)(void);
    BOOL(WINAPI *SetForegroundWindow)(HWND hwnd);
};

// The table, filled. Never NULL; the first call loads user32. Threads may race to it: they store the same addresses.
iv_ventana_llamadas *iv_ventana(void);

#endif
