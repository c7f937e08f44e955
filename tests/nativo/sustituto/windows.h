// windows.h - the little of the platform that the modules under test use, for Linux x86-64. Types have the
// widths that they have on Windows. What the calls do here: sustituto.h.
#ifndef SUSTITUTO_WINDOWS_H
#define SUSTITUTO_WINDOWS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#define WINAPI
#define WINAPIV
#define CALLBACK

// Nothing raises here: what is guarded runs, then what comes finally; a handler never. The last one is formatted by hand:
// a space behind a keyword would make it another macro.
#define __try
#define __finally
// clang-format off
#define __except(filtro) if (false)
// clang-format on

typedef int BOOL;
typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD, UINT;
typedef int32_t LONG;
typedef int64_t LONG_PTR, LPARAM, LRESULT;
typedef uint64_t WPARAM, SIZE_T;
typedef const char *LPCSTR;
typedef char *LPSTR;
typedef const wchar_t *LPCWSTR;
typedef wchar_t *LPWSTR;
typedef void *HANDLE, *HMODULE, *LPVOID, *PVOID;
typedef struct HWND__ *HWND;
typedef int (*FARPROC)(void);
typedef LRESULT(CALLBACK *WNDPROC)(HWND, UINT, WPARAM, LPARAM);
typedef DWORD(WINAPI *LPTHREAD_START_ROUTINE)(LPVOID);

typedef struct SRWLOCK {
    PVOID Ptr;
} SRWLOCK;
#define SRWLOCK_INIT \
    {                \
        NULL         \
    }

typedef struct MEMORY_BASIC_INFORMATION {
    PVOID BaseAddress;
    SIZE_T RegionSize;
    DWORD State;
    DWORD Protect;
} MEMORY_BASIC_INFORMATION;

#define TRUE                     1
#define FALSE                    0
#define LOWORD(l)                ((WORD)((uint64_t)(l)&0xFFFF))
#define HIWORD(l)                ((WORD)(((uint64_t)(l) >> 16) & 0xFFFF))
#define INVALID_HANDLE_VALUE     ((HANDLE)(intptr_t)-1)
#define INFINITE                 0xFFFFFFFFu
#define MEM_COMMIT               0x1000u
#define TLS_OUT_OF_INDEXES       0xFFFFFFFFu
#define WAIT_OBJECT_0            0u
#define WAIT_TIMEOUT             258u
#define WAIT_FAILED              0xFFFFFFFFu
#define ERROR_FILE_NOT_FOUND     2u
#define ERROR_INVALID_HANDLE     6u
#define ERROR_NOT_ENOUGH_MEMORY  8u
#define ERROR_ALREADY_EXISTS     183u
#define ERROR_NOT_OWNER          288u
#define PAGE_READWRITE           4u
#define FILE_MAP_WRITE           2u
#define FILE_MAP_ALL_ACCESS      0xF001Fu
#define HEAP_NO_SERIALIZE        1u
#define HEAP_GENERATE_EXCEPTIONS 4u
#define HEAP_ZERO_MEMORY         8u
#define GWLP_WNDPROC             (-4)

extern "C" {

DWORD WINAPI GetLastError(void);
DWORD WINAPI GetTickCount(void);
DWORD WINAPI GetCurrentThreadId(void);
DWORD WINAPI GetEnvironmentVariableA(LPCSTR nombre, LPSTR texto, DWORD tam);
void WINAPI Sleep(DWORD ms);
void WINAPI OutputDebugStringA(LPCSTR texto);
void WINAPI OutputDebugStringW(LPCWSTR texto);

HANDLE WINAPI HeapCreate(DWORD opciones, SIZE_T tam_inicial, SIZE_T tam_maximo);
BOOL WINAPI HeapDestroy(HANDLE heap);
LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD opciones, SIZE_T tam);
LPVOID WINAPI HeapReAlloc(HANDLE heap, DWORD opciones, LPVOID bloque, SIZE_T tam);
BOOL WINAPI HeapFree(HANDLE heap, DWORD opciones, LPVOID bloque);
SIZE_T WINAPI HeapSize(HANDLE heap, DWORD opciones, const void *bloque);
BOOL WINAPI HeapValidate(HANDLE heap, DWORD opciones, const void *bloque);

HANDLE WINAPI CreateMutexA(void *seguridad, BOOL propio, LPCSTR nombre);
BOOL WINAPI ReleaseMutex(HANDLE mutex);
DWORD WINAPI WaitForSingleObject(HANDLE objeto, DWORD plazo_ms);
BOOL WINAPI CloseHandle(HANDLE manejador);
HANDLE WINAPI CreateFileMappingA(HANDLE fichero, void *seguridad, DWORD proteccion, DWORD tam_alto, DWORD tam_bajo,
                                 LPCSTR nombre);
HANDLE WINAPI OpenFileMappingA(DWORD acceso, BOOL se_hereda, LPCSTR nombre);
LPVOID WINAPI MapViewOfFile(HANDLE hmap, DWORD acceso, DWORD desde_alto, DWORD desde_bajo, SIZE_T tam);
BOOL WINAPI UnmapViewOfFile(const void *vista);
SIZE_T WINAPI VirtualQuery(const void *sitio, MEMORY_BASIC_INFORMATION *informacion, SIZE_T tam);

int WINAPI lstrlenA(LPCSTR texto);
int WINAPI lstrlenW(LPCWSTR texto);
int WINAPI lstrcmpA(LPCSTR uno, LPCSTR otro);
int WINAPI lstrcmpW(LPCWSTR uno, LPCWSTR otro);
LPSTR WINAPI lstrcpynA(LPSTR destino, LPCSTR origen, int num);
LPWSTR WINAPI lstrcpynW(LPWSTR destino, LPCWSTR origen, int num);

HMODULE WINAPI LoadLibraryA(LPCSTR nombre);
FARPROC WINAPI GetProcAddress(HMODULE modulo, LPCSTR nombre);
}

inline void AcquireSRWLockExclusive(SRWLOCK *) {}
inline void ReleaseSRWLockExclusive(SRWLOCK *) {}

DWORD WINAPI TlsAlloc(void);
BOOL WINAPI TlsFree(DWORD indice);
PVOID WINAPI TlsGetValue(DWORD indice);
BOOL WINAPI TlsSetValue(DWORD indice, PVOID valor);

inline LONG InterlockedIncrement(volatile LONG *p)
{
    return __atomic_add_fetch(p, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(volatile LONG *p)
{
    return __atomic_sub_fetch(p, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchange(volatile LONG *p, LONG valor)
{
    return __atomic_exchange_n(p, valor, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedCompareExchange(volatile LONG *p, LONG valor, LONG esperado)
{
    __atomic_compare_exchange_n(p, &esperado, valor, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return esperado;
}
inline PVOID InterlockedExchangePointer(PVOID volatile *p, PVOID valor)
{
    return __atomic_exchange_n(p, valor, __ATOMIC_SEQ_CST);
}
inline PVOID InterlockedCompareExchangePointer(PVOID volatile *p, PVOID valor, PVOID esperado)
{
    __atomic_compare_exchange_n(p, &esperado, valor, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return esperado;
}

#endif
