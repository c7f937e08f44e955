#include "iv_comdat.h"

#include "iv_mem.h"
#include "iv_traza.h"

#define IV_MODULO "iv_comdat"

static const uint32_t TAM_INICIAL = 1024;
static const uint32_t PASO_CRECIMIENTO = 1024;
static const uint32_t TAM_CONTADOR = sizeof(uint32_t);       // the count of values at the head
static const uint32_t TAM_CABECERA_VALOR = 2;                // its type and the length of its name
static const uint32_t TAM_MINIMO_VALOR = TAM_CABECERA_VALOR; // with a name of no bytes
static const uint32_t TAM_MAXIMO_NOMBRE = 255;               // with its NUL; a longer one is reported
static const uint32_t TAM_MAXIMO_PEQUENYO = 64;              // of the data of a value that is written in one pass
static const uint32_t TAM_SIN_ADELANTO = 65536;              // a buffer below this grows by the rule alone
static const uint32_t FACTOR_ADELANTO = 4;                   // above, by so many times what the heap has given,
static const uint32_t MIN_ADELANTO = 4 << 20;                // but not by less
static const uint32_t MAX_ADELANTO = 256 << 20;              // nor by more
static const uint32_t TAM_MAXIMO = UINT32_MAX / PASO_CRECIMIENTO * PASO_CRECIMIENTO;
static const uintptr_t TAM_PAGINA = 4096;

// ---- Appending

// The size that the rule of growth gives for `tam_minimo_nuevo` bytes: the largest multiple of 1024 not above that and
// 1024, in 32 bits. Deliberate, also where it is such a multiple already. 0 where that wraps.
static uint32_t tam_por_regla(uint64_t tam_minimo_nuevo)
{
    uint32_t nuevo_tam =
        static_cast<uint32_t>(tam_minimo_nuevo + PASO_CRECIMIENTO) / PASO_CRECIMIENTO * PASO_CRECIMIENTO;
    iv_assert(nuevo_tam >= tam_minimo_nuevo);
    return nuevo_tam >= tam_minimo_nuevo ? nuevo_tam : 0;
}

// How much to ask the heap for. Up to 64 KiB what the rule says. A buffer that grows on from there is given several
// times more at once, so that it seldom moves and the cost of a value does not rise with their number: what moves is
// copied into memory that the system has to make anew.
static uint32_t tam_con_adelanto(const comdat *comdat, uint32_t nuevo_tam)
{
    if (comdat->reservado < TAM_SIN_ADELANTO || comdat->marca == CIERTO)
        return nuevo_tam;
    uint64_t adelanto = uint64_t{comdat->reservado} * FACTOR_ADELANTO;
    adelanto = adelanto < MIN_ADELANTO ? MIN_ADELANTO : adelanto > MAX_ADELANTO ? MAX_ADELANTO : adelanto;
    uint64_t tam = comdat->reservado + adelanto;
    if (tam > TAM_MAXIMO)
        tam = TAM_MAXIMO;
    return tam > nuevo_tam ? static_cast<uint32_t>(tam) : nuevo_tam;
}

// Moves the buffer to at least `nuevo_tam` bytes. FALSO, after the heap's own report, where there is no memory. A heap
// that once had not so much to give is not asked for it again.
static int16_t muda(comdat *comdat, uint32_t nuevo_tam)
{
    const uint32_t pedido = tam_con_adelanto(comdat, nuevo_tam);
    uint32_t dado = pedido;
    void *nuevo = iv_mem_realloc_con_adelanto(comdat->buffer, nuevo_tam, &dado);
    if (dado < pedido)
        comdat->marca = CIERTO;
    if (nuevo == NULL)
        return FALSO; // a heap that does not raise
    comdat->buffer = static_cast<uint8_t *>(nuevo);
    comdat->num_valores = static_cast<uint32_t *>(nuevo);
    comdat->reservado = dado;
    return CIERTO;
}

// Makes room for `tam_minimo_nuevo` bytes. FALSO where the size wraps, and in a container that is read: its readers'
// pointers point into the buffer, which must not move.
static int16_t crece(comdat *comdat, uint64_t tam_minimo_nuevo)
{
    if (comdat->tipo != iv_comdat_tipo_ESCRITURA)
        return FALSO;
    uint32_t nuevo_tam = tam_por_regla(tam_minimo_nuevo);
    if (nuevo_tam == 0)
        return FALSO;
    if (nuevo_tam > comdat->reservado && muda(comdat, nuevo_tam) != CIERTO)
        return FALSO;
    comdat->tam = nuevo_tam;
    return CIERTO;
}

// The place at the cursor for `tam` bytes that fit, with the cursor moved behind them.
static inline uint8_t *avanza(comdat *comdat, uint32_t tam)
{
    uint8_t *sitio = comdat->buffer + comdat->offset;
    comdat->offset += tam;
    if (comdat->tipo == iv_comdat_tipo_ESCRITURA)
        comdat->ocupado += tam;
    return sitio;
}

// A value being written. A part that finds no room makes it incomplete: it is then taken back whole, also where the
// heap raises. In a container that is read only the cursor goes back: what was written over stays written over.
struct escritura {
    struct comdat *comdat;
    uint32_t offset_inicial;
    uint32_t ocupado_inicial;
    int16_t completa;
};

static void deshace(escritura *escritura)
{
    escritura->completa = FALSO;
    escritura->comdat->offset = escritura->offset_inicial;
    escritura->comdat->ocupado = escritura->ocupado_inicial;
}

static __declspec(noinline) int16_t crece_en_valor(escritura *escritura, uint64_t tam_minimo_nuevo)
{
    int16_t hay = FALSO;
    __try {
        hay = crece(escritura->comdat, tam_minimo_nuevo);
    } __finally {
        if (hay != CIERTO)
            deshace(escritura);
    }
    return hay;
}

// The place of the value's next `tam` bytes; NULL where the value is incomplete.
static inline uint8_t *ocupa_en_valor(escritura *escritura, uint64_t tam)
{
    if (escritura->completa != CIERTO)
        return NULL;
    uint64_t fin = escritura->comdat->offset + tam;
    if (fin > escritura->comdat->tam && crece_en_valor(escritura, fin) != CIERTO)
        return NULL;
    return avanza(escritura->comdat, static_cast<uint32_t>(tam));
}

static inline void anexa(escritura *escritura, const void *datos, uint64_t tam)
{
    uint8_t *sitio = ocupa_en_valor(escritura, tam);
    if (sitio != NULL)
        iv_mem_copia(sitio, datos, static_cast<uint32_t>(tam));
}

// The same for a number: a size that the compiler knows is a single store.
template <typename numero>
static inline void anexa_numero(escritura *escritura, const numero *valor)
{
    uint8_t *sitio = ocupa_en_valor(escritura, sizeof *valor);
    if (sitio != NULL)
        memcpy(sitio, valor, sizeof *valor);
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

static inline escritura empieza_valor(comdat *comdat, tipoDato tipo, const char *nombre_valor)
{
    iv_assert(comdat->tipo == iv_comdat_tipo_ESCRITURA);
    escritura escritura = {comdat, comdat->offset, comdat->ocupado, CIERTO};
    uint32_t len = iv_mem_longitud(nombre_valor) + 1;
    iv_assert(len < 256); // Deliberate: a longer name is written all the same
    const uint8_t codigo_y_len[2] = {static_cast<uint8_t>(tipo), static_cast<uint8_t>(len)};
    anexa_numero(&escritura, &codigo_y_len);
    anexa(&escritura, nombre_valor != NULL ? nombre_valor : "", len);
    return escritura;
}

static inline void termina_valor(const escritura *escritura)
{
    if (escritura->completa == CIERTO)
        (*escritura->comdat->num_valores)++;
}

// ---- Reading at the cursor. A read past the end is reported, gives zeros, and leaves the cursor where it was.

static inline int16_t cabe(const comdat *comdat, uint64_t tam)
{
    return comdat->offset + tam <= comdat->ocupado ? CIERTO : FALSO;
}

static __declspec(noinline) void informa_que_falta(const comdat *comdat, uint64_t tam)
{
    iv_assert((comdat->offset + tam) <= comdat->ocupado);
}

static inline int16_t hay_para_leer(const comdat *comdat, uint64_t tam)
{
    int16_t hay = cabe(comdat, tam);
    if (hay != CIERTO)
        informa_que_falta(comdat, tam);
    return hay;
}

template <typename numero>
static inline int16_t lee(comdat *comdat, numero *destino)
{
    *destino = 0;
    if (hay_para_leer(comdat, sizeof *destino) == CIERTO) {
        memcpy(destino, comdat->buffer + comdat->offset, sizeof *destino);
        comdat->offset += static_cast<uint32_t>(sizeof *destino);
        return CIERTO;
    }
    if (comdat->offset < comdat->ocupado) // some of its bytes are there
        iv_mem_copia(destino, comdat->buffer + comdat->offset, comdat->ocupado - comdat->offset);
    return FALSO;
}

static inline int16_t salta(comdat *comdat, uint64_t tam)
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
    return lee(comdat, &tam) == CIERTO ? salta(comdat, tam) : FALSO;
}

static int16_t salta_arreglo(comdat *comdat)
{
    uint32_t num_elementos;
    if (lee(comdat, &num_elementos) != CIERTO)
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
        return salta_arreglo(comdat); // Deliberate: wide texts have no count; their first position is read
    default:
        return CIERTO;
    }
}

// Indexes the value at the cursor. FALSO when the content ends inside it.
static int16_t indexa_valor(comdat *comdat, iv_comdat_valor *valor)
{
    uint8_t tipo, len;
    if (lee(comdat, &tipo) != CIERTO || lee(comdat, &len) != CIERTO)
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
        hay_para_leer(comdat, TAM_MINIMO_VALOR); // the content is at its end: this reports that
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
    registro->reservado = tam;
    return registro;
}

comdat *iv_comdat_crea_para_grabar(const char *nombre_servicio, int16_t es_entrada)
{
    iv_traza_cadena("*** iv_comdat_crea_para_grabar(");
    iv_traza_linea(es_entrada == CIERTO ? "DatosEntrada)... " : "DatosSalida)... ");

    uint8_t *buffer = static_cast<uint8_t *>(iv_mem_malloc(TAM_INICIAL));
    comdat *comdat = crea_registro(nombre_servicio, es_entrada, iv_comdat_tipo_ESCRITURA, buffer, TAM_INICIAL);
    uint32_t num_valores = 0;
    memcpy(avanza(comdat, sizeof num_valores), &num_valores, sizeof num_valores);
    iv_assert(*comdat->num_valores == num_valores);

    traza_creacion("*** -> ", comdat);
    return comdat;
}

comdat *iv_comdat_crea_para_leer(const char *nombre_servicio, uint32_t id_bloque_MCCom, iv_shared_bloque **shared_MCCom,
                                 uint8_t *datos, uint32_t tam_datos, int16_t es_entrada)
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
    int16_t hay_contador = lee(comdat, &num_valores);
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
    for (uint32_t i = 0; comdat->marca == CIERTO && i < comdat->num_indexados; i++)
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

// Copies a text with its NUL to a place for `tam` bytes. How many they were; 0 when it has more, or might come to where
// it cannot be read: a text that does counts as empty, which iv_mem_longitud finds out.
static inline uint32_t copia_si_cabe(uint8_t *sitio, const char *texto, uint32_t tam)
{
    if (reinterpret_cast<uintptr_t>(texto) % TAM_PAGINA > TAM_PAGINA - tam)
        return 0;
    for (uint32_t n = 0; n < tam; n++) {
        sitio[n] = static_cast<uint8_t>(texto[n]);
        if (texto[n] == '\0')
            return n + 1;
    }
    return 0;
}

static_assert(
    TAM_CABECERA_VALOR + TAM_MAXIMO_NOMBRE + TAM_MAXIMO_PEQUENYO < PASO_CRECIMIENTO,
    "a value that fits what the heap has given crosses at most one step of `tam`, which so stays within that");

// Moves the cursor behind a part that has been written into what the heap has given; `tam` follows its rule.
static inline void anota_ocupado(comdat *comdat, uint32_t tam)
{
    comdat->offset += tam;
    comdat->ocupado += tam;
    if (comdat->offset > comdat->tam)
        comdat->tam = tam_por_regla(comdat->offset);
}

// Most values are small, and there is room for them whatever their name: one pass over the name and the data, and all
// is written. These give FALSO, with nothing added, for the others.

// The place of a small value, with its name; NULL for none, and its length in *len.
static inline uint8_t *empieza_de_una_vez(const comdat *comdat, const char *nombre_valor, uint32_t *len)
{
    if (comdat->tipo != iv_comdat_tipo_ESCRITURA || nombre_valor == NULL ||
        comdat->reservado - comdat->offset < TAM_CABECERA_VALOR + TAM_MAXIMO_NOMBRE + TAM_MAXIMO_PEQUENYO)
        return NULL;
    uint8_t *sitio = comdat->buffer + comdat->offset;
    *len = copia_si_cabe(sitio + TAM_CABECERA_VALOR, nombre_valor, TAM_MAXIMO_NOMBRE);
    return *len != 0 ? sitio : NULL;
}

static inline void termina_de_una_vez(comdat *comdat, tipoDato tipo, uint8_t *sitio, uint32_t len)
{
    sitio[0] = static_cast<uint8_t>(tipo);
    sitio[1] = static_cast<uint8_t>(len);
    anota_ocupado(comdat, TAM_CABECERA_VALOR);
    anota_ocupado(comdat, len);
}

template <typename numero>
static inline int16_t graba_de_una_vez(comdat *comdat, tipoDato tipo, const char *nombre_valor, const numero *valor)
{
    uint32_t len;
    uint8_t *sitio = empieza_de_una_vez(comdat, nombre_valor, &len);
    if (sitio == NULL)
        return FALSO;
    memcpy(sitio + TAM_CABECERA_VALOR + len, valor, sizeof *valor);
    termina_de_una_vez(comdat, tipo, sitio, len);
    anota_ocupado(comdat, static_cast<uint32_t>(sizeof *valor));
    (*comdat->num_valores)++;
    return CIERTO;
}

static inline int16_t graba_texto_de_una_vez(comdat *comdat, const char *nombre_valor, const char *cadena)
{
    uint32_t len;
    uint8_t *sitio = cadena != NULL ? empieza_de_una_vez(comdat, nombre_valor, &len) : NULL;
    if (sitio == NULL)
        return FALSO;
    uint8_t *datos = sitio + TAM_CABECERA_VALOR + len;
    uint32_t tam = copia_si_cabe(datos + sizeof tam, cadena, TAM_MAXIMO_PEQUENYO - static_cast<uint32_t>(sizeof tam));
    if (tam == 0)
        return FALSO;
    memcpy(datos, &tam, sizeof tam);
    termina_de_una_vez(comdat, ivrexa_tipoDato_cadena_ansi, sitio, len);
    anota_ocupado(comdat, static_cast<uint32_t>(sizeof tam));
    anota_ocupado(comdat, tam);
    (*comdat->num_valores)++;
    return CIERTO;
}

template <typename numero>
static inline void graba_fijo(comdat *comdat, tipoDato tipo, const char *nombre_valor, const numero *valor)
{
    if (comdat == NULL || graba_de_una_vez(comdat, tipo, nombre_valor, valor) == CIERTO)
        return;
    escritura escritura = empieza_valor(comdat, tipo, nombre_valor);
    anexa_numero(&escritura, valor);
    termina_valor(&escritura);
}

void iv_comdat_graba_byte(comdat *comdat, const char *nombre_valor, uint8_t valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_byte, nombre_valor, &valor);
}

void iv_comdat_graba_ushort(comdat *comdat, const char *nombre_valor, uint16_t valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_ushort, nombre_valor, &valor);
}

void iv_comdat_graba_ulong(comdat *comdat, const char *nombre_valor, uint32_t valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_ulong, nombre_valor, &valor);
}

void iv_comdat_graba_double(comdat *comdat, const char *nombre_valor, double valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_double, nombre_valor, &valor);
}

void iv_comdat_graba_hwnd(comdat *comdat, const char *nombre_valor, ivrexa_hwnd valor)
{
    graba_fijo(comdat, ivrexa_tipoDato_hwnd, nombre_valor, &valor);
}

static void anexa_con_longitud(escritura *escritura, const void *datos, uint64_t tam)
{
    uint32_t longitud = static_cast<uint32_t>(tam); // what passes 32 bits finds no room below
    anexa_numero(escritura, &longitud);
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
    if (comdat == NULL || graba_texto_de_una_vez(comdat, nombre_valor, cadena) == CIERTO)
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
    anexa_numero(&escritura, &num_cadenas);
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
static inline iv_comdat_valor *valor_en(comdat *comdat, uint32_t indice)
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

static inline iv_comdat_valor *busca_valor(comdat *comdat, uint32_t indice, tipoDato tipo)
{
    if (comdat == NULL)
        return NULL;
    iv_assert(comdat->tipo == iv_comdat_tipo_LECTURA);
    iv_comdat_valor *valor = valor_en(comdat, indice);
    return valor != NULL && valor->tipoDato == static_cast<uint32_t>(tipo) ? valor : NULL;
}

// The value's bytes; missing ones are 0. The cursor does not move. The check is made from the cursor, not from the
// value's own place. Deliberate.
template <typename numero>
static inline numero dame_fijo(comdat *comdat, uint32_t indice, tipoDato tipo)
{
    numero destino = 0;
    const iv_comdat_valor *valor = busca_valor(comdat, indice, tipo);
    if (valor == NULL)
        return destino;
    hay_para_leer(comdat, sizeof destino);
    uint32_t quedan = comdat->ocupado - valor->offset;
    if (quedan >= sizeof destino)
        memcpy(&destino, comdat->buffer + valor->offset, sizeof destino);
    else
        iv_mem_copia(&destino, comdat->buffer + valor->offset, quedan);
    return destino;
}

uint8_t iv_comdat_dame_byte(comdat *comdat, uint32_t indice)
{
    return dame_fijo<uint8_t>(comdat, indice, ivrexa_tipoDato_byte);
}

uint16_t iv_comdat_dame_ushort(comdat *comdat, uint32_t indice)
{
    return dame_fijo<uint16_t>(comdat, indice, ivrexa_tipoDato_ushort);
}

uint32_t iv_comdat_dame_ulong(comdat *comdat, uint32_t indice)
{
    return dame_fijo<uint32_t>(comdat, indice, ivrexa_tipoDato_ulong);
}

double iv_comdat_dame_double(comdat *comdat, uint32_t indice)
{
    return dame_fijo<double>(comdat, indice, ivrexa_tipoDato_double);
}

ivrexa_hwnd iv_comdat_dame_hwnd(comdat *comdat, uint32_t indice)
{
    return reinterpret_cast<ivrexa_hwnd>(dame_fijo<uint64_t>(comdat, indice, ivrexa_tipoDato_hwnd));
}

// The bytes behind a 32-bit length at the value's place; NULL, with *tam 0, when there are none or they are cut off.
static const uint8_t *toma_con_longitud(comdat *comdat, const iv_comdat_valor *valor, uint32_t *tam)
{
    comdat->offset = valor->offset;
    if (lee(comdat, tam) != CIERTO) {
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
        if (lee(comdat, &posicion) != CIERTO)
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
    if (lee(comdat, num) != CIERTO || *num > comdat->ocupado || uint64_t{*num} * sizeof(void *) > UINT32_MAX) {
        *num = 0;
        return NULL;
    }
    const void **tabla = static_cast<const void **>(i_malloc(*num * static_cast<uint32_t>(sizeof(void *))));
    if (tabla == NULL)
        *num = 0;
    valor->tabla_cadenas = tabla; // Deliberate: the table of an earlier read is not freed
    comdat->marca = CIERTO;
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
