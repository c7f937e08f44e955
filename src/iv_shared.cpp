#include "iv_shared.h"

#include "iv_fallo.h"
#include "iv_mem.h"
#include "iv_traza.h"

#define IV_MODULO "iv_shared"

static const uint32_t TAM_CABECERA = sizeof(iv_shared_cabecera);
static const uint32_t TAM_PAGINA = 4096;         // a view is never smaller
static const uint32_t MARGEN_COPIA_LOCAL = 4;    // zero bytes, so that a text at the end of a copy ends
static const uint32_t NUM_ESPERAS_CABECERA = 20; // of 1 ms
static const char TIPO_POR_DEFECTO[] = "bloqueMC";

// ---- Mapping

// The handle of the block, made or opened. For an existing block the handle that found it stays open. Deliberate.
static HANDLE crea_o_abre(const char *nombre, uint32_t tam_datos, int16_t *ya_estaba_creado)
{
    *ya_estaba_creado = FALSO;
    if (tam_datos > UINT32_MAX - TAM_CABECERA)
        return NULL; // header and data together do not fit a 32-bit size

    HANDLE hmap = CreateFileMappingA(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, tam_datos + TAM_CABECERA, nombre);
    if (GetLastError() == ERROR_ALREADY_EXISTS) {
        hmap = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, nombre);
        *ya_estaba_creado = CIERTO;
    }
    return hmap;
}

static void anota_tam_nuevo(iv_shared_cabecera *sharedmem, uint32_t tam_datos)
{
    iv_assert(tam_datos > 0);
    iv_fallo("bloque creado");
    sharedmem->tam_datos = tam_datos;
    iv_fallo("bloque tam_datos");
}

// A call of its own: clang guards calls, not single reads.
static __declspec(noinline) uint32_t lee_tam(const volatile iv_shared_cabecera *sharedmem)
{
    return sharedmem->tam_datos;
}

// What stands in the header; 0 where its page cannot be read: whoever made the block has not given it out.
static uint32_t lee_cabecera(const volatile iv_shared_cabecera *sharedmem)
{
    uint32_t tam_datos = 0;
    __try {
        tam_datos = lee_tam(sharedmem);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
    }
    return tam_datos;
}

// An existing block is never resized and its header never rewritten: its size is only told.
static void traza_tam_existente(const iv_shared_cabecera *sharedmem, uint32_t tam_datos)
{
    if (!iv_traza_activa())
        return;
    uint32_t tam_existente = lee_cabecera(sharedmem);
    if (tam_datos == 0)
        tam_datos = tam_existente;
    iv_traza_cadena_numero("sharedmem->tam_datos = ", tam_existente, FALSO);
    iv_traza_cadena_numero("  ---  tam_datos = ", tam_datos, CIERTO);
}

// The whole block; NULL, after a report, where the system has no place for it. The handle then stays open.
static iv_shared_cabecera *monta(HANDLE hmap)
{
    void *sharedmem = MapViewOfFile(hmap, FILE_MAP_WRITE, 0, 0, 0);
    iv_assert(sharedmem != NULL);
    return static_cast<iv_shared_cabecera *>(sharedmem);
}

static iv_shared_cabecera *iv_shared_mapea(const char *nombre, uint32_t tam_datos, HANDLE *hmap,
                                           int16_t *ya_estaba_creado)
{
    *hmap = crea_o_abre(nombre, tam_datos, ya_estaba_creado);
    if (*hmap == NULL)
        return NULL;

    iv_shared_cabecera *sharedmem = monta(*hmap);
    if (sharedmem == NULL)
        return NULL;
    if (*ya_estaba_creado == CIERTO)
        traza_tam_existente(sharedmem, tam_datos);
    else
        anota_tam_nuevo(sharedmem, tam_datos);
    return sharedmem;
}

static void iv_shared_cierra(void *sharedmem, HANDLE hmap)
{
    BOOL res = UnmapViewOfFile(sharedmem);
    iv_assert(res != 0);
    res = CloseHandle(hmap);
    iv_assert(res != 0);
}

// The header is read once: another program may change it under us. What is mapped there may be no block at all, but a
// program's image, which cannot be written: its first bytes make a size beyond a page.
static uint32_t tam_legible(const volatile iv_shared_cabecera *sharedmem)
{
    uint32_t tam_datos = lee_cabecera(sharedmem);
    if (tam_datos <= TAM_PAGINA - TAM_CABECERA)
        return tam_datos;

    MEMORY_BASIC_INFORMATION vista;
    if (VirtualQuery(const_cast<const iv_shared_cabecera *>(sharedmem), &vista, sizeof vista) == 0)
        return TAM_PAGINA - TAM_CABECERA;
    if (vista.State != MEM_COMMIT || vista.Protect != PAGE_READWRITE)
        return 0;
    SIZE_T cabe = vista.RegionSize - TAM_CABECERA;
    return tam_datos <= cabe ? tam_datos : static_cast<uint32_t>(cabe);
}

static iv_shared_bloque *crea_registro(const char *nombre, const char *tipo, HANDLE hmap, void *sharedmem)
{
    iv_shared_bloque *bloque = static_cast<iv_shared_bloque *>(iv_mem_malloc(sizeof(iv_shared_bloque)));
    bloque->nombre = iv_mem_duplica_cadena(nombre);
    bloque->tipo = iv_mem_duplica_cadena(tipo != NULL ? tipo : TIPO_POR_DEFECTO);
    bloque->hmap = hmap;
    bloque->sharedmem = sharedmem;
    return bloque;
}

// ---- Operations

int16_t iv_shared_existe(const char *nombre)
{
    return OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, nombre) != NULL ? CIERTO : FALSO;
}

iv_shared_bloque *iv_shared_crea(const char *nombre, const char *tipo, uint32_t tam_memcomp, int16_t *ya_estaba_creado)
{
    iv_assert(tam_memcomp > 0);
    HANDLE hmap;
    int16_t existia;
    void *sharedmem = iv_shared_mapea(nombre, tam_memcomp, &hmap, &existia);
    if (ya_estaba_creado != NULL)
        *ya_estaba_creado = existia;
    return sharedmem != NULL ? crea_registro(nombre, tipo, hmap, sharedmem) : NULL;
}

// The mapping of a block that has room for the data; NULL, with nothing left mapped, when there is none.
static iv_shared_cabecera *mapea_con_sitio(const char *nombre, uint32_t tam_datos, HANDLE *hmap)
{
    for (uint32_t intento = 0; intento < 2; intento++) {
        int16_t ya_estaba_creado;
        iv_shared_cabecera *sharedmem = iv_shared_mapea(nombre, tam_datos, hmap, &ya_estaba_creado);
        if (sharedmem == NULL)
            return NULL;
        if (ya_estaba_creado != CIERTO || tam_legible(sharedmem) >= tam_datos)
            return sharedmem;
        iv_shared_cierra(sharedmem, *hmap);
    }
    return NULL;
}

iv_shared_bloque *iv_shared_crea_con_datos(const char *nombre, uint32_t tam_datos_memlocal, const void *datos)
{
    iv_assert(tam_datos_memlocal > 0);
    HANDLE hmap;
    iv_shared_cabecera *sharedmem = mapea_con_sitio(nombre, tam_datos_memlocal, &hmap);
    if (sharedmem == NULL)
        return NULL;
    iv_fallo("bloque sin datos");
    iv_mem_copia(sharedmem + 1, datos, tam_datos_memlocal);
    return crea_registro(nombre, NULL, hmap, sharedmem);
}

iv_shared_bloque *iv_shared_abre(const char *nombre)
{
    HANDLE hmap;
    int16_t ya_estaba_creado;
    void *sharedmem = iv_shared_mapea(nombre, 0, &hmap, &ya_estaba_creado);
    if (sharedmem == NULL)
        return NULL;
    iv_assert(ya_estaba_creado == CIERTO);
    return crea_registro(nombre, NULL, hmap, sharedmem);
}

iv_shared_bloque *iv_shared_abre_si_existe(const char *nombre)
{
    HANDLE hmap = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, nombre);
    if (hmap == NULL)
        return NULL;
    // It is there as long as this handle is, so this makes none: it leaves the handle that stays. Deliberate.
    CreateFileMappingA(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, TAM_CABECERA, nombre);
    iv_shared_cabecera *sharedmem = monta(hmap);
    if (sharedmem == NULL)
        return NULL;
    traza_tam_existente(sharedmem, 0);
    return crea_registro(nombre, NULL, hmap, sharedmem);
}

void *iv_shared_datos(const iv_shared_bloque *bloque)
{
    return bloque != NULL ? static_cast<iv_shared_cabecera *>(bloque->sharedmem) + 1 : NULL;
}

uint32_t iv_shared_tam_datos(const iv_shared_bloque *bloque)
{
    return tam_legible(static_cast<const iv_shared_cabecera *>(bloque->sharedmem));
}

int16_t iv_shared_contiene(const iv_shared_bloque *bloque, uint32_t tam_datos)
{
    const volatile iv_shared_cabecera *cabecera = static_cast<iv_shared_cabecera *>(bloque->sharedmem);
    for (uint32_t n = 0; n < NUM_ESPERAS_CABECERA && lee_cabecera(cabecera) == 0; n++)
        Sleep(1);
    return iv_shared_tam_datos(bloque) >= tam_datos ? CIERTO : FALSO;
}

void *iv_shared_copia_local(const iv_shared_bloque *bloque, uint32_t *tam_datos)
{
    uint32_t tam = iv_shared_tam_datos(bloque);
    if (tam > UINT32_MAX - MARGEN_COPIA_LOCAL)
        tam = UINT32_MAX - MARGEN_COPIA_LOCAL;
    void *copia = iv_mem_malloc_con_margen(tam, MARGEN_COPIA_LOCAL);
    if (copia == NULL)
        tam = 0; // a heap that does not raise; it has been reported
    iv_mem_copia(copia, iv_shared_datos(bloque), tam);
    *tam_datos = tam;
    return copia;
}

void iv_shared_destruye(iv_shared_bloque **bloque)
{
    if (bloque == NULL || *bloque == NULL)
        return;
    if ((*bloque)->hmap != NULL)
        iv_shared_cierra((*bloque)->sharedmem, (*bloque)->hmap);
    iv_mem_libera(&(*bloque)->nombre);
    iv_mem_libera(&(*bloque)->tipo);
    iv_mem_libera(bloque);
}
