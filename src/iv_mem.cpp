#include "iv_mem.h"

#include <emmintrin.h>

#include "iv_mutex.h"
#include "iv_traza.h"

#define IV_MODULO "iv_mem"

HANDLE s_LocalHeap = NULL;

static const SIZE_T TAM_INICIAL_HEAP = 16384;
static const uint32_t TAM_LINEA = 64;      // of the processor's cache, in bytes
static SRWLOCK s_creacion = SRWLOCK_INIT;  // the first allocations of two threads make one heap
static volatile DWORD s_hilo_creacion = 0; // who makes it

// ---- Heap

static void crea_heap(void)
{
    iv_mutex_heap_crea_y_bloquea();
    if (s_LocalHeap != NULL) // made meanwhile, from inside the box of the lock's report
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

    if (s_hilo_creacion == GetCurrentThreadId()) { // back from inside the box of a report
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
        ReleaseSRWLockExclusive(&s_creacion); // what the host does inside that box may raise
    }
    return s_LocalHeap;
}

IV_RARA static void traza_heap_invalido(HANDLE heap)
{
    if (heap != NULL && !HeapValidate(heap, HEAP_NO_SERIALIZE, NULL))
        iv_traza_linea("****** HEAP INVALIDO ***********");
}

static void valida(HANDLE heap)
{
    if (iv_traza_activa())
        traza_heap_invalido(heap);
}

static uint64_t valor_de(const void *puntero)
{
    return reinterpret_cast<uint64_t>(puntero);
}

IV_RARA static void traza_informacion(const char *prefijo, HANDLE heap, const void *memlocal)
{
    uint32_t tam = 0;
    if (heap != NULL && memlocal != NULL) // the heap cannot size what is no block
        tam = static_cast<uint32_t>(HeapSize(heap, HEAP_NO_SERIALIZE, memlocal));
    iv_traza_cadena(prefijo);
    iv_traza_cadena_valor("(Info mem=", valor_de(memlocal), FALSO);
    iv_traza_cadena_numero("): tam_bytes=", tam, CIERTO);
}

IV_RARA static void traza_heap(HANDLE heap)
{
    iv_traza_cadena_valor("[s_LocalHeap=", valor_de(heap), FALSO);
    iv_traza_cadena("] ");
}

IV_RARA static void traza_malloc(HANDLE heap, uint32_t tam, const void *memlocal)
{
    traza_heap(heap);
    if (tam != 0)
        iv_traza_cadena_numero("i_malloc(", tam, FALSO);
    else
        iv_traza_cadena("i_malloc(");
    iv_traza_cadena_valor("): memlocal = ", valor_de(memlocal), CIERTO);
    traza_informacion("Despues de i_malloc: ", heap, memlocal);
}

IV_RARA static void traza_realloc(HANDLE heap, const void *viejo, uint32_t tam, const void *memlocal)
{
    traza_heap(heap);
    iv_traza_cadena_valor("i_realloc(", valor_de(viejo), FALSO);
    iv_traza_cadena_numero(", ", tam, FALSO);
    iv_traza_cadena_valor(") -> memlocal = ", valor_de(memlocal), CIERTO);
    traza_informacion("Despues de i_realloc: ", heap, memlocal);
}

IV_RARA static void traza_free(HANDLE heap, const void *memlocal)
{
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
    if (iv_traza_activa())
        traza_malloc(heap, tam, memlocal);
    valida(heap);
    return memlocal;
}

// NULL where the heap has no memory, also where it raises for that.
static void *intenta_cambiar(HANDLE heap, void *viejo, uint32_t tam)
{
    void *memlocal = NULL;
    __try {
        memlocal = HeapReAlloc(heap, HEAP_ZERO_MEMORY, viejo, tam);
    } __except (GetExceptionCode() == STATUS_NO_MEMORY ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH) {
        memlocal = NULL;
    }
    return memlocal;
}

// *dado, if given, is how much one would like, tam at the least, and becomes how much it is.
static void *cambia_tam(void *viejo, uint32_t tam, uint32_t *dado)
{
    HANDLE heap = dame_heap();
    valida(heap);
    if (iv_traza_activa())
        traza_informacion("Antes de i_realloc: ", heap, viejo);
    void *memlocal = NULL;
    if (heap != NULL && dado != NULL && *dado > tam)
        memlocal = intenta_cambiar(heap, viejo, *dado);
    if (memlocal != NULL)
        tam = *dado;
    else if (heap != NULL)
        memlocal = HeapReAlloc(heap, HEAP_ZERO_MEMORY, viejo, tam);
    if (dado != NULL)
        *dado = tam;
    iv_assert_puntero(memlocal);
    valida(heap);
    if (iv_traza_activa())
        traza_realloc(heap, viejo, tam, memlocal);
    return memlocal;
}

static void suelta(void *memlocal)
{
    HANDLE heap = dame_heap();
    valida(heap);
    if (iv_traza_activa())
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

static void *muda(void *memlocal, uint32_t tam, uint32_t *dado)
{
    void *nuevo = NULL;
    iv_mutex_heap_bloquea();
    __try {
        nuevo = cambia_tam(memlocal, tam, dado);
    } __finally {
        iv_mutex_heap_desbloquea();
    }
    return nuevo;
}

void *i_realloc(void *memlocal, uint32_t tam)
{
    return muda(memlocal, tam, NULL);
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

void *iv_mem_realloc_con_adelanto(void *memlocal, uint32_t tam, uint32_t *dado)
{
    iv_assert(tam > 0);
    return muda(memlocal, tam, dado);
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
    iv_mem_copia(copia, cadena, tam - 1); // the NUL is there: blocks are zero
    return copia;
}

wchar_t *iv_mem_duplica_cadena_u(const wchar_t *cadena)
{
    uint32_t tam = iv_mem_longitud_u(cadena) * static_cast<uint32_t>(sizeof(wchar_t));
    wchar_t *copia = static_cast<wchar_t *>(i_malloc(tam + static_cast<uint32_t>(sizeof(wchar_t))));
    iv_mem_copia(copia, cadena, tam);
    return copia;
}

// Equal bytes are equal texts; where they differ the system may still find the texts equal.
template <typename caracter>
static int16_t mismos_caracteres(const caracter *cadena1, const caracter *cadena2)
{
    if (cadena1 == NULL || cadena2 == NULL)
        return cadena1 == cadena2 ? CIERTO : FALSO;
    while (*cadena1 == *cadena2 && *cadena1 != 0) {
        cadena1++;
        cadena2++;
    }
    return *cadena1 == *cadena2 ? CIERTO : FALSO;
}

int16_t iv_mem_cadenas_iguales(const char *cadena1, const char *cadena2)
{
    return mismos_caracteres(cadena1, cadena2) == CIERTO || lstrcmpA(cadena1, cadena2) == 0 ? CIERTO : FALSO;
}

int16_t iv_mem_cadenas_iguales_u(const wchar_t *cadena1, const wchar_t *cadena2)
{
    return mismos_caracteres(cadena1, cadena2) == CIERTO || lstrcmpW(cadena1, cadena2) == 0 ? CIERTO : FALSO;
}

// A call of its own: clang guards calls, not single reads.
template <typename caracter>
static __declspec(noinline) uint32_t cuenta_caracteres(const caracter *cadena)
{
    const caracter *fin = cadena;
    while (*fin != 0)
        fin++;
    return static_cast<uint32_t>(fin - cadena);
}

// 0 for a text that cannot be read, as the system's own function has it.
template <typename caracter>
static uint32_t longitud(const caracter *cadena)
{
    uint32_t num = 0;
    if (cadena == NULL)
        return 0;
    __try {
        num = cuenta_caracteres(cadena);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        num = 0;
    }
    return num;
}

uint32_t iv_mem_longitud(const char *cadena)
{
    return longitud(cadena);
}

uint32_t iv_mem_longitud_u(const wchar_t *cadena)
{
    return longitud(cadena);
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

template <typename palabra>
static inline void copia_palabra(uint8_t *destino, const uint8_t *origen, uint32_t posicion)
{
    palabra bytes;
    memcpy(&bytes, origen + posicion, sizeof bytes);
    memcpy(destino + posicion, &bytes, sizeof bytes);
}

// At least one word. The last one overlaps the one before it, so the places must be apart.
template <typename palabra>
static inline void copia_palabras(uint8_t *destino, const uint8_t *origen, uint32_t num_bytes)
{
    const uint32_t tam = sizeof(palabra);
    for (uint32_t n = 0; n + tam <= num_bytes; n += tam)
        copia_palabra<palabra>(destino, origen, n);
    copia_palabra<palabra>(destino, origen, num_bytes - tam);
}

// Most copies are of a name or a few numbers, between places that are apart.
static void copia_corta(uint8_t *destino, const uint8_t *origen, uint32_t num_bytes)
{
    if (num_bytes >= sizeof(uint64_t))
        copia_palabras<uint64_t>(destino, origen, num_bytes);
    else if (num_bytes >= sizeof(uint32_t))
        copia_palabras<uint32_t>(destino, origen, num_bytes);
    else
        for (uint32_t n = 0; n < num_bytes; n++)
            copia_palabra<uint8_t>(destino, origen, n);
}

// Line by line of an aligned destination, what lies before and behind byte by byte. Right also where the destination is
// a line or more behind the source. In fresh memory, which the system makes page by page meanwhile, this is quicker
// than one instruction for all.
static void copia_larga(uint8_t *destino, const uint8_t *origen, uint32_t num_bytes)
{
    const uint32_t tam = sizeof(__m128i);
    const uint32_t cabeza = static_cast<uint32_t>(0 - reinterpret_cast<uintptr_t>(destino)) % tam;
    iv_copia_bytes(destino, origen, cabeza);
    destino += cabeza;
    origen += cabeza;
    num_bytes -= cabeza;
    for (; num_bytes >= TAM_LINEA; num_bytes -= TAM_LINEA) {
        __m128i linea[TAM_LINEA / tam];
        for (uint32_t i = 0; i < TAM_LINEA / tam; i++)
            linea[i] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(origen) + i);
        for (uint32_t i = 0; i < TAM_LINEA / tam; i++)
            _mm_store_si128(reinterpret_cast<__m128i *>(destino) + i, linea[i]);
        origen += TAM_LINEA;
        destino += TAM_LINEA;
    }
    iv_copia_bytes(destino, origen, num_bytes);
}

void iv_mem_copia(void *destino, const void *origen, uint32_t num_bytes)
{
    uint8_t *d = static_cast<uint8_t *>(destino);
    const uint8_t *o = static_cast<const uint8_t *>(origen);
    const uint64_t detras = reinterpret_cast<uint64_t>(d) - reinterpret_cast<uint64_t>(o);
    const uint64_t delante = reinterpret_cast<uint64_t>(o) - reinterpret_cast<uint64_t>(d);
    if (num_bytes < 2 * TAM_LINEA && detras >= num_bytes && delante >= num_bytes)
        copia_corta(d, o, num_bytes);
    else if (num_bytes >= TAM_LINEA && detras >= TAM_LINEA)
        copia_larga(d, o, num_bytes);
    else
        iv_copia_bytes(destino, origen, num_bytes);
}
