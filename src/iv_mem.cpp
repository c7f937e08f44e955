#include "iv_mem.h"

#include "iv_mutex.h"
#include "iv_traza.h"

#define IV_MODULO "iv_mem"

HANDLE s_LocalHeap = NULL;

static const SIZE_T TAM_INICIAL_HEAP = 16384;
static SRWLOCK s_creacion = SRWLOCK_INIT;       // the first allocations of two threads make one heap
static volatile DWORD s_hilo_creacion = 0;      // who makes it

// ---- Heap

static void crea_heap(void)
{
    iv_mutex_heap_crea_y_bloquea();
    if (s_LocalHeap != NULL)                    // made meanwhile, from inside the box of the lock's report
        return;
    HANDLE heap = HeapCreate(HEAP_GENERATE_EXCEPTIONS, TAM_INICIAL_HEAP, 0);
    InterlockedExchangePointer(&s_LocalHeap, heap);
    iv_mutex_heap_desbloquea();
    iv_traza_cadena_valor("HeapCreate: ", reinterpret_cast<uint64_t>(heap), CIERTO);
}

static HANDLE dame_heap(void)
{
    HANDLE heap = InterlockedCompareExchangePointer(&s_LocalHeap, NULL, NULL);
    if (heap != NULL)
        return heap;

    if (s_hilo_creacion == GetCurrentThreadId()) {      // back from inside the box of a report
        crea_heap();
        return s_LocalHeap;
    }
    AcquireSRWLockExclusive(&s_creacion);
    s_hilo_creacion = GetCurrentThreadId();
    __try {
        if (s_LocalHeap == NULL)
            crea_heap();
    } __finally {
        s_hilo_creacion = 0;
        ReleaseSRWLockExclusive(&s_creacion);           // what the host does inside that box may raise
    }
    return s_LocalHeap;
}

static void valida(HANDLE heap)
{
    if (iv_traza_activa() && heap != NULL && !HeapValidate(heap, HEAP_NO_SERIALIZE, NULL))
        iv_traza_linea("****** HEAP INVALIDO ***********");
}

static uint64_t valor_de(const void *puntero)
{
    return reinterpret_cast<uint64_t>(puntero);
}

static void traza_informacion(const char *prefijo, HANDLE heap, const void *memlocal)
{
    if (!iv_traza_activa())
        return;
    uint32_t tam = 0;
    if (heap != NULL && memlocal != NULL)       // the heap cannot size what is no block
        tam = static_cast<uint32_t>(HeapSize(heap, HEAP_NO_SERIALIZE, memlocal));
    iv_traza_cadena(prefijo);
    iv_traza_cadena_valor("(Info mem=", valor_de(memlocal), FALSO);
    iv_traza_cadena_numero("): tam_bytes=", tam, CIERTO);
}

static void traza_heap(HANDLE heap)
{
    iv_traza_cadena_valor("[s_LocalHeap=", valor_de(heap), FALSO);
    iv_traza_cadena("] ");
}

static void traza_malloc(HANDLE heap, uint32_t tam, const void *memlocal)
{
    if (!iv_traza_activa())
        return;
    traza_heap(heap);
    if (tam != 0)
        iv_traza_cadena_numero("i_malloc(", tam, FALSO);
    else
        iv_traza_cadena("i_malloc(");
    iv_traza_cadena_valor("): memlocal = ", valor_de(memlocal), CIERTO);
    traza_informacion("Despues de i_malloc: ", heap, memlocal);
}

static void traza_realloc(HANDLE heap, const void *viejo, uint32_t tam, const void *memlocal)
{
    if (!iv_traza_activa())
        return;
    traza_heap(heap);
    iv_traza_cadena_valor("i_realloc(", valor_de(viejo), FALSO);
    iv_traza_cadena_numero(", ", tam, FALSO);
    iv_traza_cadena_valor(") -> memlocal = ", valor_de(memlocal), CIERTO);
    traza_informacion("Despues de i_realloc: ", heap, memlocal);
}

static void traza_free(HANDLE heap, const void *memlocal)
{
    if (!iv_traza_activa())
        return;
    traza_informacion("Antes de i_free: ", heap, memlocal);
    traza_heap(heap);
    iv_traza_cadena("i_free(");
    iv_traza_cadena_valor("): memlocal = ", valor_de(memlocal), CIERTO);
}

// The body of i_malloc, under the heap's lock.
static void *reserva(uint32_t tam)
{
    HANDLE heap = dame_heap();
    valida(heap);
    void *memlocal = heap != NULL ? HeapAlloc(heap, HEAP_ZERO_MEMORY, tam) : NULL;
    iv_assert_puntero(memlocal);
    traza_malloc(heap, tam, memlocal);
    valida(heap);
    return memlocal;
}

static void *cambia_tam(void *viejo, uint32_t tam)
{
    HANDLE heap = dame_heap();
    valida(heap);
    traza_informacion("Antes de i_realloc: ", heap, viejo);
    void *memlocal = heap != NULL ? HeapReAlloc(heap, HEAP_ZERO_MEMORY, viejo, tam) : NULL;
    iv_assert_puntero(memlocal);
    valida(heap);
    traza_realloc(heap, viejo, tam, memlocal);
    return memlocal;
}

static void suelta(void *memlocal)
{
    HANDLE heap = dame_heap();
    valida(heap);
    traza_free(heap, memlocal);
    if (heap != NULL)
        HeapFree(heap, 0, memlocal);
    valida(heap);
}

// The very first allocation waits on a lock that does not exist yet, which does nothing; making the heap takes the
// lock and releases it, and the release below fails silently. Deliberate: the order is kept.
// The release stands in a __finally: it is every program's lock, and the heap raises when memory runs out, or
// when it is given what is no block of its own.
void *i_malloc(uint32_t tam)
{
    void *memlocal = NULL;
    iv_mutex_heap_bloquea();
    __try {
        memlocal = reserva(tam);
    } __finally {
        iv_mutex_heap_desbloquea();
    }
    return memlocal;
}

void *i_realloc(void *memlocal, uint32_t tam)
{
    void *nuevo = NULL;
    iv_mutex_heap_bloquea();
    __try {
        nuevo = cambia_tam(memlocal, tam);
    } __finally {
        iv_mutex_heap_desbloquea();
    }
    return nuevo;
}

void i_free(void *memlocal)
{
    iv_mutex_heap_bloquea();
    __try {
        suelta(memlocal);
    } __finally {
        iv_mutex_heap_desbloquea();
    }
}

void *iv_mem_malloc(uint32_t tam)
{
    return iv_mem_malloc_con_margen(tam, 0);
}

void *iv_mem_malloc_con_margen(uint32_t tam, uint32_t margen)
{
    iv_assert(tam > 0);
    return i_malloc(tam + margen);
}

void *iv_mem_calloc(uint32_t num, uint32_t tam_elemento)
{
    uint32_t tam = num * tam_elemento;
    iv_assert(tam > 0);
    return i_malloc(tam);
}

void *iv_mem_realloc(void *memlocal, uint32_t tam)
{
    iv_assert(tam > 0);
    return i_realloc(memlocal, tam);
}

void iv_mem_libera(void **ptr)
{
    iv_assert(ptr != 0);
    if (ptr == NULL)
        return;
    iv_assert(*ptr != 0);
    i_free(*ptr);
    *ptr = NULL;
}

void iv_mem_libera_cadena(char **ptr)
{
    iv_mem_libera(ptr);
}

void iv_mem_libera_cadena_u(wchar_t **ptr)
{
    iv_mem_libera(ptr);
}

void iv_mem_cierra(void)
{
    if (s_LocalHeap == NULL)
        return;
    iv_traza_cadena_valor("HeapDestroy: ", valor_de(s_LocalHeap), CIERTO);
    HeapDestroy(s_LocalHeap);
    s_LocalHeap = NULL;
    iv_mutex_heap_destruye();
}

// ---- Texts

char *iv_mem_duplica_cadena(const char *cadena)
{
    uint32_t tam = iv_mem_longitud(cadena) + 1;
    char *copia = static_cast<char *>(i_malloc(tam));
    iv_mem_copia(copia, cadena, tam - 1);       // the NUL is there: blocks are zero
    return copia;
}

wchar_t *iv_mem_duplica_cadena_u(const wchar_t *cadena)
{
    uint32_t tam = iv_mem_longitud_u(cadena) * static_cast<uint32_t>(sizeof(wchar_t));
    wchar_t *copia = static_cast<wchar_t *>(i_malloc(tam + static_cast<uint32_t>(sizeof(wchar_t))));
    iv_mem_copia(copia, cadena, tam);
    return copia;
}

int16_t iv_mem_cadenas_iguales(const char *cadena1, const char *cadena2)
{
    return lstrcmpA(cadena1, cadena2) == 0 ? CIERTO : FALSO;
}

int16_t iv_mem_cadenas_iguales_u(const wchar_t *cadena1, const wchar_t *cadena2)
{
    return lstrcmpW(cadena1, cadena2) == 0 ? CIERTO : FALSO;
}

uint32_t iv_mem_longitud(const char *cadena)
{
    return static_cast<uint32_t>(lstrlenA(cadena));
}

uint32_t iv_mem_longitud_u(const wchar_t *cadena)
{
    return static_cast<uint32_t>(lstrlenW(cadena));
}

void iv_mem_copia_cadena(const char *origen, char *destino, uint32_t num_caracteres)
{
    lstrcpynA(destino, origen != NULL ? origen : "", static_cast<int>(num_caracteres));
}

void iv_mem_copia_cadena_u(const wchar_t *origen, wchar_t *destino, uint32_t num_caracteres)
{
    lstrcpynW(destino, origen != NULL ? origen : L"", static_cast<int>(num_caracteres));
}

void iv_mem_concatena(char **cadena, const char *cola)
{
    iv_assert_puntero(cadena);
    if (cadena == NULL)
        return;
    uint32_t longitud = iv_mem_longitud(*cadena);
    uint32_t longitud_cola = iv_mem_longitud(cola);
    char *nueva = static_cast<char *>(i_malloc(longitud + longitud_cola + 1));
    iv_mem_copia(nueva, *cadena, longitud);
    iv_mem_copia(nueva + longitud, cola, longitud_cola);
    i_free(*cadena);
    *cadena = nueva;
}

char *iv_mem_numero_a_cadena(uint32_t numero)
{
    char al_reves[31];
    uint32_t num_cifras = 0;
    for (; numero != 0; numero /= 10)
        al_reves[num_cifras++] = static_cast<char>('0' + numero % 10);

    char *cadena = static_cast<char *>(i_malloc(num_cifras + 1));
    for (uint32_t n = 0; n < num_cifras; n++)
        cadena[n] = al_reves[num_cifras - 1 - n];
    return cadena;
}

void iv_mem_copia(void *destino, const void *origen, uint32_t num_bytes)
{
    iv_copia_bytes(destino, origen, num_bytes);
}
