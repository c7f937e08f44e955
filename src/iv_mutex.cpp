#include "iv_mutex.h"

#include "iv_fallo.h"
#include "iv_mem.h"
#include "iv_traza.h"

#define IV_MODULO "iv_mutex"

static HANDLE s_mutex_heap = NULL;

// The site of the hold at that level, for the places of iv_fallo.h.
#define SITIO_TOMADO(iv_mutex, nivel) (iv_mutex)->codigos_bloqueo[(nivel) & (i_NUM_NIVELES_BLOQUEO - 1)]

// *ya_existia is told from the last error, which must be read before anything else is called.
static HANDLE abre_por_nombre(const char *nombre, int16_t *ya_existia)
{
    HANDLE mutex = CreateMutexA(NULL, FALSE, nombre);
    *ya_existia = GetLastError() == ERROR_ALREADY_EXISTS ? CIERTO : FALSO;
    iv_assert_puntero(mutex);
    return mutex;
}

iv_mutex *iv_mutex_crea(const char *nombre, int16_t recrea)
{
    int16_t ya_existia;
    HANDLE mutex = abre_por_nombre(nombre, &ya_existia);
    if (ya_existia == CIERTO && recrea == CIERTO) {
        ReleaseMutex(mutex); // not ours, so this fails without effect. Deliberate.
        CloseHandle(mutex);
        mutex = abre_por_nombre(nombre, &ya_existia);
    }

    iv_mutex *registro = static_cast<iv_mutex *>(iv_mem_malloc(sizeof(iv_mutex)));
    registro->mutex = mutex;
    registro->nombre = iv_mem_duplica_cadena(nombre);
    return registro; // level and codes are 0: blocks are zero
}

static int16_t espera_y_cuenta(iv_mutex *iv_mutex, uint32_t codigo, uint32_t plazo_ms)
{
    iv_assert_puntero(iv_mutex->mutex); // the wait then fails at once
    iv_fallo_cerrojo("espera", codigo);
    if (WaitForSingleObject(iv_mutex->mutex, plazo_ms) == WAIT_TIMEOUT)
        return FALSO; // any other result counts as acquired: an abandoned mutex does
    int32_t nivel = iv_mutex->nivel_bloqueo;
    iv_assert(iv_mutex->nivel_bloqueo < i_NUM_NIVELES_BLOQUEO);
    if (0 <= nivel && nivel < i_NUM_NIVELES_BLOQUEO) // the table has no other entries
        iv_mutex->codigos_bloqueo[nivel] = codigo;
    iv_mutex->nivel_bloqueo = nivel + 1;
    iv_fallo_cerrojo("entra", codigo);
    return CIERTO;
}

void iv_mutex_bloquea(iv_mutex *iv_mutex, uint32_t codigo)
{
    if (iv_mutex != NULL)
        espera_y_cuenta(iv_mutex, codigo, INFINITE);
}

int16_t iv_mutex_bloquea_en(iv_mutex *iv_mutex, uint32_t codigo, uint32_t plazo_ms)
{
    return espera_y_cuenta(iv_mutex, codigo, plazo_ms);
}

static void suelta(iv_mutex *iv_mutex)
{
    iv_assert_puntero(iv_mutex->mutex);
    iv_assert(iv_mutex->nivel_bloqueo > 0);
    iv_fallo_cerrojo("sale", SITIO_TOMADO(iv_mutex, iv_mutex->nivel_bloqueo - 1));
    iv_mutex->nivel_bloqueo--;
    ReleaseMutex(iv_mutex->mutex);
    iv_fallo_cerrojo("fuera", SITIO_TOMADO(iv_mutex, iv_mutex->nivel_bloqueo));
}

void iv_mutex_desbloquea(iv_mutex *iv_mutex, uint32_t)
{
    iv_assert(iv_mutex != NULL);
    if (iv_mutex != NULL)
        suelta(iv_mutex);
}

void iv_mutex_desbloquea_2(iv_mutex *iv_mutex, uint32_t, uint32_t)
{
    iv_assert(iv_mutex != NULL);
    if (iv_mutex != NULL)
        suelta(iv_mutex);
}

void iv_mutex_destruye(iv_mutex **iv_mutex)
{
    if (iv_mutex == NULL)
        return;
    iv_assert_puntero(*iv_mutex);
    if (*iv_mutex == NULL)
        return;

    iv_assert((*iv_mutex)->nivel_bloqueo == 0);
    CloseHandle((*iv_mutex)->mutex);
    iv_mem_libera(&(*iv_mutex)->nombre);
    iv_mem_libera(iv_mutex);
}

// ---- The heap's lock

// The handle is published once it is held: a thread that took it before would wait for the heap that is being made.
void iv_mutex_heap_crea_y_bloquea(void)
{
    HANDLE mutex = s_mutex_heap;
    int16_t ya_existia;
    if (mutex == NULL)
        mutex = abre_por_nombre("ivrexa_iv_mem", &ya_existia);
    WaitForSingleObject(mutex, INFINITE);
    InterlockedCompareExchangePointer(&s_mutex_heap, mutex, NULL);
    iv_fallo("heap crea");
}

void iv_mutex_heap_bloquea(void)
{
    WaitForSingleObject(s_mutex_heap, INFINITE);
    iv_fallo("heap entra");
}

void iv_mutex_heap_desbloquea(void)
{
    iv_fallo("heap sale");
    ReleaseMutex(s_mutex_heap);
}

void iv_mutex_heap_destruye(void)
{
    ReleaseMutex(s_mutex_heap);
    CloseHandle(s_mutex_heap);
    s_mutex_heap = NULL;
}
