// The test build's half of iv_fallo.h. It uses kernel32 alone, like the library that it is linked into, and nothing of
// the library's own: a place may lie inside the heap's lock.
#include "iv_fallo.h"

#include "iv_plataforma.h"

static char s_punto[64];
static volatile LONG s_faltan = 0; // how often the place must be passed until it happens; 0 = disarmed
static uint32_t s_modo;

void iv_fallo_arma(const char *punto, uint32_t vez, uint32_t modo)
{
    InterlockedExchange(&s_faltan, 0);
    if (punto == NULL)
        return;
    lstrcpynA(s_punto, punto, sizeof s_punto);
    s_modo = modo;
    InterlockedExchange(&s_faltan, static_cast<LONG>(vez));
}

static char *pon_numero(char *destino, uint32_t numero)
{
    if (numero >= 10)
        destino = pon_numero(destino, numero / 10);
    *destino = static_cast<char>('0' + numero % 10);
    destino[1] = '\0';
    return destino + 1;
}

static HANDLE suceso(const char *prefijo)
{
    char nombre[64];
    lstrcpynA(nombre, prefijo, sizeof nombre);
    pon_numero(nombre + lstrlenA(nombre), GetCurrentProcessId());
    return CreateEventA(NULL, FALSE, FALSE, nombre);
}

// The handle of the second event is opened before the first is set: whoever was waiting finds it.
static void espera_permiso(void)
{
    HANDLE llega = suceso("ivrexa_fallo_llega_");
    HANDLE sigue = suceso("ivrexa_fallo_sigue_");
    SetEvent(llega);
    WaitForSingleObject(sigue, INFINITE);
    CloseHandle(llega);
    CloseHandle(sigue);
}

void iv_fallo_paso(const char *punto)
{
    if (InterlockedCompareExchange(&s_faltan, 0, 0) <= 0 || lstrcmpA(punto, s_punto) != 0)
        return;
    if (InterlockedDecrement(&s_faltan) != 0)
        return;
    if (s_modo == iv_fallo_MUERE)
        TerminateProcess(GetCurrentProcess(), iv_fallo_CODIGO);
    espera_permiso();
}

void iv_fallo_paso_cerrojo(const char *momento, uint32_t sitio)
{
    if (InterlockedCompareExchange(&s_faltan, 0, 0) <= 0)
        return;
    char punto[32];
    lstrcpynA(punto, momento, 16);
    char *fin = punto + lstrlenA(punto);
    *fin = ' ';
    pon_numero(fin + 1, sitio);
    iv_fallo_paso(punto);
}
