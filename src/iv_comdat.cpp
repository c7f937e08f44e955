#include "iv_comdat.h"

#include "iv_mem.h"
#include "iv_traza.h"

#define IV_MODULO "iv_comdat"

static const uint32_t TAM_INICIAL = 1024;
static const uint32_t PASO_CRECIMIENTO = 1024;
static const uint32_t TAM_CONTADOR = sizeof(uint32_t);      // the count of values at the head
static const uint32_t TAM_MINIMO_VALOR = 2;                 // type and length of a name of no bytes

// ---- Appending

// Makes room for `tam_minimo_nuevo` bytes: the largest multiple of 1024 not above that and 1024, in 32 bits.
// Deliberate, also where it is such a multiple already. FALSO where that wraps, and in a container that is read: its
// readers' pointers point into the buffer, which must not move.
static int16_t crece(comdat *comdat, uint64_t tam_minimo_nuevo)
{
    if (comdat->tipo != iv_comdat_tipo_ESCRITURA)
        return FALSO;
    uint32_t nuevo_tam = static_cast<uint32_t>(tam_minimo_nuevo + PASO_CRECIMIENTO) / PASO_CRECIMIENTO
                         * PASO_CRECIMIENTO;
    iv_assert(nuevo_tam >= tam_minimo_nuevo);
    if (nuevo_tam < tam_minimo_nuevo)
        return FALSO;
    uint8_t *nuevo = static_cast<uint8_t *>(iv_mem_realloc(comdat->buffer, nuevo_tam));
    if (nuevo == NULL)
        return FALSO;                                       // a heap that does not raise; it has been reported
    comdat->buffer = nuevo;
    comdat->num_valores = reinterpret_cast<uint32_t *>(comdat->buffer);
    comdat->tam = nuevo_tam;
    return CIERTO;
}

// The place of the next `tam` bytes, with the cursor moved behind them; NULL when there is no room.
static uint8_t *ocupa(comdat *comdat, uint64_t tam)
{
    uint64_t fin = comdat->offset + tam;
    if (fin > comdat->tam && crece(comdat, fin) != CIERTO)
        return NULL;
    uint8_t *sitio = comdat->buffer + comdat->offset;
    comdat->offset = static_cast<uint32_t>(fin);
    if (comdat->tipo == iv_comdat_tipo_ESCRITURA)
        comdat->ocupado += static_cast<uint32_t>(tam);
    return sitio;
}

// A value being written. A part that finds no room makes it incomplete: it is then taken back whole, also where the
// heap raises. In a container that is read only the cursor goes back: what was written over stays written over.
struct escritura {
    struct comdat *comdat;
    uint32_t       offset_inicial;
    uint32_t       ocupado_inicial;
    int16_t        completa;
};

static void deshace(escritura *escritura)
{
    escritura->completa = FALSO;
    escritura->comdat->offset = escritura->offset_inicial;
    escritura->comdat->ocupado = escritura->ocupado_inicial;
}

// The place of the value's next `tam` bytes; NULL where the value is incomplete.
static uint8_t *ocupa_en_valor(escritura *escritura, uint64_t tam)
{
    uint8_t *sitio = NULL;
    if (escritura->completa != CIERTO)
        return NULL;
    __try {
        sitio = ocupa(escritura->comdat, tam);
    } __finally {
        if (sitio == NULL)
            deshace(escritura);
    }
    return sitio;
}

static void anexa(escritura *escritura, const void *datos, uint64_t tam)
{
    uint8_t *sitio = ocupa_en_valor(escritura, tam);
    if (sitio != NULL)
        iv_mem_copia(sitio, datos, static_cast<uint32_t>(tam));
}

// Position of `tam` zeroed bytes.
static uint32_t anexa_ceros(escritura *escritura, uint64_t tam)
{
    uint32_t posicion = escritura->comdat->offset;
    uint8_t *sitio = ocupa_en_valor(escritura, tam);
    if (sitio != NULL)
        memset(sitio, 0, static_cast<size_t>(tam));
    return posicion;
}

static void anexa_u32(escritura *escritura, uint32_t numero)
{
    anexa(escritura, &numero, sizeof numero);
}

static escritura empieza_valor(comdat *comdat, tipoDato tipo, const char *nombre_valor)
{
    iv_assert(comdat->tipo == iv_comdat_tipo_ESCRITURA);
    escritura escritura = {comdat, comdat->offset, comdat->ocupado, CIERTO};
    uint32_t len = iv_mem_longitud(nombre_valor) + 1;
    iv_assert(len < 256);                                   // Deliberate: a longer name is written all the same
    const uint8_t codigo_y_len[2] = {static_cast<uint8_t>(tipo), static_cast<uint8_t>(len)};
    anexa(&escritura, codigo_y_len, sizeof codigo_y_len);
    anexa(&escritura, nombre_valor != NULL ? nombre_valor : "", len);
    return escritura;
}

static void termina_valor(const escritura *escritura)
{
    if (escritura->completa == CIERTO)
        (*escritura->comdat->num_valores)++;
}

// ---- Reading at the cursor. A read past the end is reported, gives zeros, and leaves the cursor where it was.

static int16_t hay_para_leer(comdat *comdat, uint64_t tam)
{
    iv_assert((comdat->offset + tam) <= comdat->ocupado);
    return (comdat->offset + tam) <= comdat->ocupado ? CIERTO : FALSO;
}

static int16_t lee(comdat *comdat, void *destino, uint32_t tam)
{
    int16_t hay = hay_para_leer(comdat, tam);
    uint32_t quedan = comdat->offset < comdat->ocupado ? comdat->ocupado - comdat->offset : 0;
    memset(destino, 0, tam);
    iv_mem_copia(destino, comdat->buffer + comdat->offset, hay == CIERTO ? tam : quedan);
    if (hay == CIERTO)
        comdat->offset += tam;
    return hay;
}

static int16_t salta(comdat *comdat, uint64_t tam)
{
    int16_t hay = hay_para_leer(comdat, tam);
    if (hay == CIERTO)
        comdat->offset += static_cast<uint32_t>(tam);
    return hay;
}

// ---- The value index

static int16_t salta_con_longitud(comdat *comdat)
{
    uint32_t tam;
    return lee(comdat, &tam, sizeof tam) == CIERTO ? salta(comdat, tam) : FALSO;
}

static int16_t salta_arreglo(comdat *comdat)
{
    uint32_t num_elementos;
    if (lee(comdat, &num_elementos, sizeof num_elementos) != CIERTO)
        return FALSO;
    if (salta(comdat, static_cast<uint64_t>(num_elementos) * sizeof(uint32_t)) != CIERTO)
        return FALSO;
    for (uint32_t i = 0; i < num_elementos; i++)
        if (salta_con_longitud(comdat) != CIERTO)
            return FALSO;
    return CIERTO;
}

static int16_t salta_datos(comdat *comdat, const iv_comdat_valor *valor)
{
    iv_assert(valor->tipoDato != ivrexa_tipoDato_desconocido);
    switch (valor->tipoDato) {
    case ivrexa_tipoDato_byte:
        return salta(comdat, 1);
    case ivrexa_tipoDato_ushort:
        return salta(comdat, 2);
    case ivrexa_tipoDato_ulong:
        return salta(comdat, 4);
    case ivrexa_tipoDato_double:
    case ivrexa_tipoDato_hwnd:
        return salta(comdat, 8);
    case ivrexa_tipoDato_buffer:
    case ivrexa_tipoDato_cadena_ansi:
    case ivrexa_tipoDato_cadena_unicode:
        return salta_con_longitud(comdat);
    case ivrexa_tipoDato_arr_cadenas_ansi:
    case ivrexa_tipoDato_arr_cadenas_unicode:
        return salta_arreglo(comdat);           // Deliberate: wide texts have no count; their first position is read
    default:
        return CIERTO;
    }
}

// Indexes the value at the cursor. FALSO when the content ends inside it.
static int16_t indexa_valor(comdat *comdat, iv_comdat_valor *valor)
{
    uint8_t tipo, len;
    if (lee(comdat, &tipo, 1) != CIERTO || lee(comdat, &len, 1) != CIERTO)
        return FALSO;
    const uint8_t *nombre = comdat->buffer + comdat->offset;
    if (salta(comdat, len) != CIERTO)
        return FALSO;
    valor->tipoDato = tipo;
    valor->nombre = reinterpret_cast<const char *>(nombre);
    valor->offset = comdat->offset;
    comdat->num_indexados++;
    return salta_datos(comdat, valor);
}

// No more entries than the content can hold, whatever the count says.
static uint32_t num_entradas_posibles(const comdat *comdat, uint32_t num_valores)
{
    uint32_t caben = (comdat->ocupado - TAM_CONTADOR) / TAM_MINIMO_VALOR;
    const uint32_t caben_en_heap = UINT32_MAX / sizeof(iv_comdat_valor);
    if (caben > caben_en_heap)
        caben = caben_en_heap;
    return num_valores < caben ? num_valores : caben;
}

static void indexa(comdat *comdat, uint32_t num_valores)
{
    uint32_t num = num_entradas_posibles(comdat, num_valores);
    uint32_t reservadas = num > 0 ? num : 1;
    comdat->valores = static_cast<iv_comdat_valor *>(iv_mem_calloc(reservadas, sizeof(iv_comdat_valor)));
    if (comdat->valores == NULL)
        return;
    for (uint32_t i = 0; i < num; i++)
        if (indexa_valor(comdat, &comdat->valores[i]) != CIERTO)
            return;
    if (num < num_valores)
        hay_para_leer(comdat, TAM_MINIMO_VALOR);        // the content is at its end: this reports that
}

// ---- Life

static void traza_creacion(const char *titulo, const comdat *comdat)
{
    iv_traza_cadena_valor(titulo, reinterpret_cast<uint64_t>(comdat), CIERTO);
}

static comdat *crea_registro(const char *nombre_servicio, int16_t es_entrada, iv_comdat_tipo tipo, uint8_t *buffer,
                             uint32_t tam)
{
    comdat *registro = static_cast<comdat *>(iv_mem_malloc(sizeof(comdat)));
    registro->nombre_servicio = iv_mem_duplica_cadena(nombre_servicio);
    registro->es_entrada = es_entrada;
    registro->tipo = tipo;
    registro->buffer = buffer;
    registro->num_valores = reinterpret_cast<uint32_t *>(buffer);
    registro->tam = tam;
    return registro;
}

comdat *iv_comdat_crea_para_grabar(const char *nombre_servicio, int16_t es_entrada)
{
    iv_traza_cadena("*** iv_comdat_crea_para_grabar(");
    iv_traza_linea(es_entrada == CIERTO ? "DatosEntrada)... " : "DatosSalida)... ");

    uint8_t *buffer = static_cast<uint8_t *>(iv_mem_malloc(TAM_INICIAL));
    comdat *comdat = crea_registro(nombre_servicio, es_entrada, iv_comdat_tipo_ESCRITURA, buffer, TAM_INICIAL);
    uint32_t num_valores = 0;
    iv_mem_copia(ocupa(comdat, sizeof num_valores), &num_valores, sizeof num_valores);
    iv_assert(*comdat->num_valores == num_valores);

    traza_creacion("*** -> ", comdat);
    return comdat;
}

comdat *iv_comdat_crea_para_leer(const char *nombre_servicio, uint32_t id_bloque_MCCom,
                                 iv_shared_bloque **shared_MCCom, uint8_t *datos, uint32_t tam_datos,
                                 int16_t es_entrada)
{
    iv_traza_cadena("*** iv_comdat_crea_para_leer(");
    iv_traza_cadena(es_entrada == CIERTO ? "DatosEntrada)" : "DatosSalida)");
    iv_assert(id_bloque_MCCom != 0);
    iv_assert(shared_MCCom != NULL);
    if (shared_MCCom == NULL)
        return NULL;

    comdat *comdat = crea_registro(nombre_servicio, es_entrada, iv_comdat_tipo_LECTURA, datos, tam_datos);
    comdat->id_bloque_MCCom = id_bloque_MCCom;
    comdat->shared_MCCom = *shared_MCCom;
    *shared_MCCom = NULL;
    comdat->ocupado = tam_datos;

    uint32_t num_valores;
    int16_t hay_contador = lee(comdat, &num_valores, sizeof num_valores);
    iv_assert(*comdat->num_valores == num_valores);
    if (hay_contador == CIERTO && num_valores != 0)
        indexa(comdat, num_valores);
    comdat->offset = 0;

    traza_creacion(" -> ", comdat);
    return comdat;
}

comdat *iv_comdat_carga(const char *nombre_servicio, uint32_t id_bloque_MCCom, iv_shared_bloque **shared_MCCom,
                        int16_t es_entrada)
{
    uint32_t tam_datos;
    uint8_t *datos = static_cast<uint8_t *>(iv_shared_copia_local(*shared_MCCom, &tam_datos));
    if (datos == NULL) {
        iv_shared_destruye(shared_MCCom);
        return NULL;
    }
    return iv_comdat_crea_para_leer(nombre_servicio, id_bloque_MCCom, shared_MCCom, datos, tam_datos, es_entrada);
}

void iv_comdat_guardado(comdat *comdat, uint32_t id_bloque_MCCom, iv_shared_bloque **shared_MCCom)
{
    iv_assert(comdat->id_bloque_MCCom == 0);
    iv_assert(comdat->shared_MCCom == NULL);
    iv_assert(comdat->tipo == iv_comdat_tipo_ESCRITURA);
    iv_assert(shared_MCCom != NULL && *shared_MCCom != NULL);
    if (shared_MCCom == NULL || *shared_MCCom == NULL)
        return;

    if (comdat->shared_MCCom == NULL) {
        comdat->id_bloque_MCCom = id_bloque_MCCom;
        comdat->shared_MCCom = *shared_MCCom;
    }
    *shared_MCCom = NULL;
}

const uint8_t *iv_comdat_contenido(const comdat *comdat, uint32_t *ocupado)
{
    *ocupado = comdat->ocupado;
    return comdat->buffer;
}

static void libera_indice(comdat *comdat)
{
    for (uint32_t i = 0; i < comdat->num_indexados; i++)
        if (comdat->valores[i].tabla_cadenas != NULL)
            iv_mem_libera(&comdat->valores[i].tabla_cadenas);
    iv_mem_libera(&comdat->valores);
}

void iv_comdat_destruye(comdat *comdat)
{
    iv_assert_puntero(comdat);
    if (comdat == NULL)
        return;
    iv_mem_libera(&comdat->nombre_servicio);
    if (comdat->valores != NULL)
        libera_indice(comdat);
    iv_mem_libera(&comdat->buffer);
    iv_shared_destruye(&comdat->shared_MCCom);
    iv_mem_libera(&comdat);
}

// ---- Writers

static void graba_fijo(comdat *comdat, tipoDato tipo, const char *nombre_valor, const void *valor, uint32_t tam)
{
    if (comdat == NULL)
        return;
    escritura escritura = empieza_valor(comdat, tipo, nombre_valor);
    anexa(&escritura, valor, tam);
    termina_valor(&escritura);
}

void iv_comdat_graba_byte(comdat *comdat, const char *nombre_valor, uint8_t valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_byte, nombre_valor, &valor, sizeof valor);
}

void iv_comdat_graba_ushort(comdat *comdat, const char *nombre_valor, uint16_t valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_ushort, nombre_valor, &valor, sizeof valor);
}

void iv_comdat_graba_ulong(comdat *comdat, const char *nombre_valor, uint32_t valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_ulong, nombre_valor, &valor, sizeof valor);
}

void iv_comdat_graba_double(comdat *comdat, const char *nombre_valor, double valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_double, nombre_valor, &valor, sizeof valor);
}

void iv_comdat_graba_hwnd(comdat *comdat, const char *nombre_valor, ivrexa_hwnd valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_hwnd, nombre_valor, &valor, sizeof valor);
}

static void anexa_con_longitud(escritura *escritura, const void *datos, uint64_t tam)
{
    anexa_u32(escritura, static_cast<uint32_t>(tam));       // what passes 32 bits finds no room below
    if (tam != 0)
        anexa(escritura, datos, tam);
}

static void anexa_cadena_ansi(escritura *escritura, const char *cadena)
{
    anexa_con_longitud(escritura, cadena, cadena != NULL ? uint64_t{iv_mem_longitud(cadena)} + 1 : 0);
}

static void anexa_cadena_unicode(escritura *escritura, const wchar_t *cadena)
{
    uint64_t num_caracteres = cadena != NULL ? uint64_t{iv_mem_longitud_u(cadena)} + 1 : 0;
    anexa_con_longitud(escritura, cadena, num_caracteres * sizeof(wchar_t));
}

void iv_comdat_graba_buffer(comdat *comdat, const char *nombre_valor, const void *buffer, uint32_t tam)
{
    if (comdat == NULL)
        return;
    escritura escritura = empieza_valor(comdat, ivrexa_tipoDato_buffer, nombre_valor);
    anexa_con_longitud(&escritura, buffer, buffer != NULL ? tam : 0);
    termina_valor(&escritura);
}

void iv_comdat_graba_cadena_ansi(comdat *comdat, const char *nombre_valor, const char *cadena)
{
    if (comdat == NULL)
        return;
    escritura escritura = empieza_valor(comdat, ivrexa_tipoDato_cadena_ansi, nombre_valor);
    anexa_cadena_ansi(&escritura, cadena);
    termina_valor(&escritura);
}

void iv_comdat_graba_cadena_unicode(comdat *comdat, const char *nombre_valor, const wchar_t *cadena)
{
    if (comdat == NULL)
        return;
    escritura escritura = empieza_valor(comdat, ivrexa_tipoDato_cadena_unicode, nombre_valor);
    anexa_cadena_unicode(&escritura, cadena);
    termina_valor(&escritura);
}

static uint32_t anexa_tabla(escritura *escritura, uint32_t num_cadenas)
{
    return anexa_ceros(escritura, uint64_t{num_cadenas} * sizeof(uint32_t));
}

// Notes where element i of the table begins: at the cursor.
static void anota_posicion(escritura *escritura, uint32_t posicion_tabla, uint32_t i)
{
    comdat *comdat = escritura->comdat;
    uint32_t posicion = comdat->offset;
    iv_mem_copia(comdat->buffer + posicion_tabla + i * sizeof posicion, &posicion, sizeof posicion);
}

void iv_comdat_graba_arr_cadenas_ansi(comdat *comdat, const char *nombre_valor, const char *const *cadenas,
                                      uint32_t num_cadenas)
{
    if (comdat == NULL)
        return;
    escritura escritura = empieza_valor(comdat, ivrexa_tipoDato_arr_cadenas_ansi, nombre_valor);
    anexa_u32(&escritura, num_cadenas);
    uint32_t posicion_tabla = anexa_tabla(&escritura, num_cadenas);
    for (uint32_t i = 0; i < num_cadenas && escritura.completa == CIERTO; i++) {
        anota_posicion(&escritura, posicion_tabla, i);
        anexa_cadena_ansi(&escritura, cadenas != NULL ? cadenas[i] : NULL);
    }
    termina_valor(&escritura);
}

// Deliberate: no count before the table, though readers expect one.
void iv_comdat_graba_arr_cadenas_unicode(comdat *comdat, const char *nombre_valor, const wchar_t *const *cadenas,
                                         uint32_t num_cadenas)
{
    if (comdat == NULL)
        return;
    escritura escritura = empieza_valor(comdat, ivrexa_tipoDato_arr_cadenas_unicode, nombre_valor);
    uint32_t posicion_tabla = anexa_tabla(&escritura, num_cadenas);
    for (uint32_t i = 0; i < num_cadenas && escritura.completa == CIERTO; i++) {
        anota_posicion(&escritura, posicion_tabla, i);
        anexa_cadena_unicode(&escritura, cadenas != NULL ? cadenas[i] : NULL);
    }
    termina_valor(&escritura);
}

// ---- Queries

uint32_t iv_comdat_numero_valores(comdat *comdat)
{
    iv_assert_puntero(comdat);
    return comdat != NULL ? *comdat->num_valores : 0;
}

// The index entry at a position; NULL for none, and always in a container that is written: it has no index.
static iv_comdat_valor *valor_en(comdat *comdat, uint32_t indice)
{
    if (comdat == NULL || indice >= *comdat->num_valores || indice >= comdat->num_indexados)
        return NULL;
    return &comdat->valores[indice];
}

const char *iv_comdat_nombre_valor(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    const iv_comdat_valor *valor = valor_en(comdat, indice);
    return valor != NULL ? valor->nombre : "?";
}

uint32_t iv_comdat_tipoDato(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    const iv_comdat_valor *valor = valor_en(comdat, indice);
    return valor != NULL ? valor->tipoDato : static_cast<uint32_t>(ivrexa_tipoDato_desconocido);
}

// ---- Readers

static iv_comdat_valor *busca_valor(comdat *comdat, uint32_t indice, tipoDato tipo)
{
    if (comdat == NULL)
        return NULL;
    iv_assert(comdat->tipo == iv_comdat_tipo_LECTURA);
    iv_comdat_valor *valor = valor_en(comdat, indice);
    return valor != NULL && valor->tipoDato == static_cast<uint32_t>(tipo) ? valor : NULL;
}

// Copies the value's bytes; missing ones are 0. The cursor does not move. The check is made from the cursor, not from
// the value's own place. Deliberate.
static void dame_fijo(comdat *comdat, uint32_t indice, tipoDato tipo, void *destino, uint32_t tam_valor)
{
    memset(destino, 0, tam_valor);
    const iv_comdat_valor *valor = busca_valor(comdat, indice, tipo);
    if (valor == NULL)
        return;
    uint64_t tam = tam_valor;
    iv_assert((comdat->offset + tam) <= comdat->ocupado);
    uint32_t quedan = comdat->ocupado - valor->offset;
    iv_mem_copia(destino, comdat->buffer + valor->offset, tam_valor < quedan ? tam_valor : quedan);
}

uint8_t iv_comdat_dame_byte(comdat *comdat, uint32_t indice)
{
    uint8_t valor;
    dame_fijo(comdat, indice, ivrexa_tipoDato_byte, &valor, sizeof valor);
    return valor;
}

uint16_t iv_comdat_dame_ushort(comdat *comdat, uint32_t indice)
{
    uint16_t valor;
    dame_fijo(comdat, indice, ivrexa_tipoDato_ushort, &valor, sizeof valor);
    return valor;
}

uint32_t iv_comdat_dame_ulong(comdat *comdat, uint32_t indice)
{
    uint32_t valor;
    dame_fijo(comdat, indice, ivrexa_tipoDato_ulong, &valor, sizeof valor);
    return valor;
}

double iv_comdat_dame_double(comdat *comdat, uint32_t indice)
{
    double valor;
    dame_fijo(comdat, indice, ivrexa_tipoDato_double, &valor, sizeof valor);
    return valor;
}

ivrexa_hwnd iv_comdat_dame_hwnd(comdat *comdat, uint32_t indice)
{
    ivrexa_hwnd valor;
    dame_fijo(comdat, indice, ivrexa_tipoDato_hwnd, &valor, sizeof valor);
    return valor;
}

// The bytes behind a 32-bit length at the value's place; NULL, with *tam 0, when there are none or they are cut off.
static const uint8_t *toma_con_longitud(comdat *comdat, const iv_comdat_valor *valor, uint32_t *tam)
{
    comdat->offset = valor->offset;
    if (lee(comdat, tam, sizeof *tam) != CIERTO) {
        *tam = 0;
        return NULL;
    }
    const uint8_t *datos = comdat->buffer + comdat->offset;
    if (salta(comdat, *tam) != CIERTO)
        *tam = 0;
    return *tam != 0 ? datos : NULL;
}

static const void *dame_texto(comdat *comdat, uint32_t indice, tipoDato tipo)
{
    const iv_comdat_valor *valor = busca_valor(comdat, indice, tipo);
    uint32_t tam;
    return valor != NULL ? toma_con_longitud(comdat, valor, &tam) : NULL;
}

const void *iv_comdat_dame_buffer(comdat *comdat, uint32_t indice, uint32_t *tam_buffer)
{
    const iv_comdat_valor *valor = busca_valor(comdat, indice, ivrexa_tipoDato_buffer);
    if (valor == NULL)
        return NULL;
    uint32_t tam;
    const void *buffer = toma_con_longitud(comdat, valor, &tam);
    if (tam_buffer != NULL)
        *tam_buffer = tam;
    return buffer;
}

const char *iv_comdat_dame_cadena_ansi(comdat *comdat, uint32_t indice)
{
    return static_cast<const char *>(dame_texto(comdat, indice, ivrexa_tipoDato_cadena_ansi));
}

const wchar_t *iv_comdat_dame_cadena_unicode(comdat *comdat, uint32_t indice)
{
    return static_cast<const wchar_t *>(dame_texto(comdat, indice, ivrexa_tipoDato_cadena_unicode));
}

// Fills the table from the positions at the cursor, up to the first that is missing. An element outside the content is
// NULL; one right at its end is the empty text behind it.
static void llena_tabla(comdat *comdat, const void **tabla, uint32_t num)
{
    for (uint32_t i = 0; i < num; i++) {
        uint32_t posicion;
        if (lee(comdat, &posicion, sizeof posicion) != CIERTO)
            return;
        uint64_t texto = uint64_t{posicion} + sizeof(uint32_t);
        if (texto <= comdat->ocupado)
            tabla[i] = comdat->buffer + texto;
    }
}

// A new table of the value's texts; NULL, with *num 0, when the content cannot hold as many as it says.
static const void **lee_tabla(comdat *comdat, iv_comdat_valor *valor, uint32_t *num)
{
    comdat->offset = valor->offset;
    if (lee(comdat, num, sizeof *num) != CIERTO || *num > comdat->ocupado
        || uint64_t{*num} * sizeof(void *) > UINT32_MAX) {
        *num = 0;
        return NULL;
    }
    const void **tabla = static_cast<const void **>(i_malloc(*num * static_cast<uint32_t>(sizeof(void *))));
    if (tabla == NULL)
        *num = 0;
    valor->tabla_cadenas = tabla;           // Deliberate: the table of an earlier read is not freed
    llena_tabla(comdat, tabla, *num);
    return tabla;
}

static const void *dame_arreglo(comdat *comdat, uint32_t indice, tipoDato tipo, uint32_t *num_valores)
{
    iv_comdat_valor *valor = busca_valor(comdat, indice, tipo);
    uint32_t num = 0;
    const void *tabla = valor != NULL ? lee_tabla(comdat, valor, &num) : NULL;
    if (num_valores != NULL)
        *num_valores = num;
    return tabla;
}

const char *const *iv_comdat_dame_arr_cadenas_ansi(comdat *comdat, uint32_t indice, uint32_t *num_valores)
{
    const void *tabla = dame_arreglo(comdat, indice, ivrexa_tipoDato_arr_cadenas_ansi, num_valores);
    return static_cast<const char *const *>(tabla);
}

const wchar_t *const *iv_comdat_dame_arr_cadenas_unicode(comdat *comdat, uint32_t indice, uint32_t *num_valores)
{
    const void *tabla = dame_arreglo(comdat, indice, ivrexa_tipoDato_arr_cadenas_unicode, num_valores);
    return static_cast<const wchar_t *const *>(tabla);
}
