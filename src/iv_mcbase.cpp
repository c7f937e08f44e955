#include "iv_mcbase.h"

#include "iv_fallo.h"
#include "iv_mem.h"
#include "iv_nombre.h"
#include "iv_reg.h"
#include "iv_traza.h"

#define IV_MODULO "iv_mcbase"

iv_mcbase_acceso *volatile s_mcbase_acceso = NULL;
iv_mcbase_monitor *s_programa_monitor = NULL;

static iv_mcbase_monitor s_registro_monitor;

static const uint32_t NUM_ACTIVIDAD_FINAL = 64; // the counter wraps here; this record is never written
static const uint32_t LATIDO_MS = 2000;
static const uint32_t ESPERA_USOS_MS = 500;

static SRWLOCK s_apertura = SRWLOCK_INIT;  // the first opens of two threads make one access record
static volatile DWORD s_hilo_apertura = 0; // who holds it: the box of a report lets that thread come back
static uint32_t s_veces_apertura = 0;
static volatile LONG s_num_usos = 0; // operations under way in this process

// ---- Access

static void cierra_acceso(iv_mcbase_acceso *acceso)
{
    iv_mutex_destruye(&acceso->mutex);
    iv_shared_destruye(&acceso->bloque);
    iv_mem_libera(&acceso);
}

static iv_mcbase_acceso *crea_acceso(int16_t registrando)
{
    int16_t ya_estaba_creado;
    iv_shared_bloque *bloque = iv_shared_crea(iv_nombre_MCB(), "iv_mcbase_t", sizeof(iv_mcbase_t), &ya_estaba_creado);
    if (bloque != NULL && iv_shared_contiene(bloque, sizeof(iv_mcbase_t)) != CIERTO)
        iv_shared_destruye(&bloque);
    if (bloque == NULL)
        return NULL;

    iv_mcbase_acceso *acceso = static_cast<iv_mcbase_acceso *>(iv_mem_malloc(sizeof(iv_mcbase_acceso)));
    acceso->bloque = bloque;
    acceso->mutex = iv_mutex_crea(iv_nombre_mutex_MCB(), ya_estaba_creado);
    acceso->mcbase = static_cast<iv_mcbase_t *>(iv_shared_datos(bloque));
    if (registrando == CIERTO)
        acceso->mcbase->num_registros = static_cast<uint16_t>(acceso->mcbase->num_registros + 1);
    return acceso;
}

static void retiene_apertura(void)
{
    if (s_hilo_apertura != GetCurrentThreadId()) {
        AcquireSRWLockExclusive(&s_apertura);
        s_hilo_apertura = GetCurrentThreadId();
    }
    s_veces_apertura++;
}

static void suelta_apertura(void)
{
    s_veces_apertura--;
    if (s_veces_apertura > 0)
        return;
    s_hilo_apertura = 0;
    ReleaseSRWLockExclusive(&s_apertura);
}

// A host that asks from inside the box of a report of the first open finds no registry yet.
iv_mcbase_acceso *iv_mcbase_abre(uint32_t, int16_t registrando)
{
    iv_mcbase_acceso *acceso = s_mcbase_acceso;
    if (acceso != NULL)
        return acceso;

    retiene_apertura();
    __try {
        if (s_mcbase_acceso == NULL && s_veces_apertura == 1)
            s_mcbase_acceso = crea_acceso(registrando);
        acceso = s_mcbase_acceso;
    } __finally {
        suelta_apertura(); // the heap raises when memory runs out
    }
    return acceso;
}

iv_mcbase_acceso *iv_mcbase_bloquea(uint32_t tipo_programa, int16_t registrando, iv_sitio sitio)
{
    iv_mcbase_acceso *acceso = NULL;
    InterlockedIncrement(&s_num_usos);
    __try {
        acceso = iv_mcbase_abre(tipo_programa, registrando);
    } __finally {
        if (acceso == NULL)
            InterlockedDecrement(&s_num_usos);
    }
    if (acceso != NULL)
        iv_mutex_bloquea(acceso->mutex, sitio);
    return acceso;
}

void iv_mcbase_desbloquea(iv_mcbase_acceso *acceso, iv_sitio sitio)
{
    iv_mutex_desbloquea(acceso->mutex, sitio);
    InterlockedDecrement(&s_num_usos);
}

// The mutex is taken bare: this is no operation, and has no site.
void iv_mcbase_retiene(void)
{
    retiene_apertura();
    if (s_mcbase_acceso != NULL)
        WaitForSingleObject(s_mcbase_acceso->mutex->mutex, INFINITE);
}

void iv_mcbase_suelta(void)
{
    if (s_mcbase_acceso != NULL)
        ReleaseMutex(s_mcbase_acceso->mutex->mutex);
    suelta_apertura();
}

// A thread of ours may still be in the middle of an operation: it is given a moment to leave, since the block and the
// mutex vanish under it otherwise. A thread that was ended inside one never leaves; hence the bound.
static void espera_usos(void)
{
    for (uint32_t ms = 0; ms < ESPERA_USOS_MS && InterlockedCompareExchange(&s_num_usos, 0, 0) > 0; ms++)
        Sleep(1);
}

static void olvida_acceso(void)
{
    retiene_apertura();
    iv_mcbase_acceso *acceso = s_mcbase_acceso;
    s_mcbase_acceso = NULL;
    suelta_apertura();
    if (acceso == NULL)
        return;
    espera_usos();
    cierra_acceso(acceso);
}

void iv_mcbase_cierra(void)
{
    olvida_acceso();
    InterlockedExchange(&s_num_usos, 0); // what is left are threads that were ended
}

static uint32_t cuenta_programas(iv_mcbase_vista *mcbase)
{
    uint32_t num = 0;
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_PROGRAMAS; i++)
        if (mcbase->programas[i].nombre[0] != '\0')
            num++;
    return num;
}

void iv_mcbase_libera_si_vacio(void)
{
    if (s_mcbase_acceso == NULL)
        return;
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_MONITOR, FALSO, iv_sitio_MCB_LIBERA_SI_VACIO);
    if (acceso == NULL)
        return;
    uint32_t num_programas = cuenta_programas(acceso->mcbase);
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_LIBERA_SI_VACIO);
    if (num_programas == 0)
        olvida_acceso();
}

// ---- Texts of the block

template <uint32_t num>
static void copia_nombre(volatile char (&campo)[num], char (&nombre)[num])
{
    iv_mem_copia_cadena(const_cast<const char *>(campo), nombre, num);
}

template <uint32_t num>
static void pon_nombre(volatile char (&campo)[num], const char *nombre)
{
    iv_mem_copia_cadena(nombre, const_cast<char *>(campo), num);
}

// ---- Programs

static int16_t es_el_programa(volatile iv_mcbase_programa_t *programa, const char *nombre_programa, uint64_t hwnd)
{
    char nombre[iv_mcbase_TAM_NOMBRE_PROGRAMA];
    copia_nombre(programa->nombre, nombre);
    if (iv_mem_cadenas_iguales(nombre, nombre_programa) != CIERTO)
        return FALSO;
    if (programa->hwnd == hwnd)
        return CIERTO;
    if (hwnd == 0 || iv_ventana()->IsWindow(reinterpret_cast<HWND>(programa->hwnd)))
        return FALSO;      // the name is another live program's
    programa->hwnd = hwnd; // its old holder is dead
    return CIERTO;
}

// Index of the program's own entry, 16 for none; the first free entry before it in *ind_libre, 16 for none.
static uint32_t busca_programa(iv_mcbase_vista *mcbase, const char *nombre_programa, uint64_t hwnd, uint32_t *ind_libre)
{
    *ind_libre = iv_mcbase_NUM_MAX_PROGRAMAS;
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_PROGRAMAS; i++) {
        volatile iv_mcbase_programa_t *programa = &mcbase->programas[i];
        if (programa->nombre[0] == '\0') {
            if (*ind_libre == iv_mcbase_NUM_MAX_PROGRAMAS)
                *ind_libre = i;
        } else if (es_el_programa(programa, nombre_programa, hwnd) == CIERTO) {
            return i;
        }
    }
    return iv_mcbase_NUM_MAX_PROGRAMAS;
}

// Deliberate: contador_vivo is left as it is; removal clears it.
static void ocupa_entrada(volatile iv_mcbase_programa_t *programa, const char *nombre_programa, uint64_t hwnd)
{
    pon_nombre(programa->nombre, nombre_programa);
    iv_fallo("programa nombre");
    programa->hwnd = hwnd;
    iv_fallo("programa hwnd");
    programa->es_servidor = 0;
    programa->es_cliente = 0;
    programa->es_monitor = 0;
}

static void pon_tipo(volatile iv_mcbase_programa_t *programa, uint32_t tipo_programa)
{
    switch (tipo_programa) {
    case iv_tipo_SERVIDOR:
        programa->es_servidor = 1;
        break;
    case iv_tipo_CLIENTE:
        programa->es_cliente = 1;
        break;
    case iv_tipo_MONITOR:
        programa->es_monitor = 1;
        break;
    default:
        break;
    }
}

static uint32_t entra_programa(iv_mcbase_vista *mcbase, uint32_t tipo_programa, const char *nombre_programa,
                               uint64_t hwnd)
{
    uint32_t ind_libre;
    uint32_t id_programa = busca_programa(mcbase, nombre_programa, hwnd, &ind_libre);
    if (id_programa >= iv_mcbase_NUM_MAX_PROGRAMAS) {
        id_programa = ind_libre;
        iv_assert(id_programa < iv_mcbase_NUM_MAX_PROGRAMAS);
        if (id_programa >= iv_mcbase_NUM_MAX_PROGRAMAS)
            return iv_mcbase_NUM_MAX_PROGRAMAS;
        ocupa_entrada(&mcbase->programas[id_programa], nombre_programa, hwnd);
    }
    pon_tipo(&mcbase->programas[id_programa], tipo_programa);
    return id_programa;
}

uint16_t iv_mcbase_registra_programa(uint32_t tipo_programa, const char *nombre_programa, ivrexa_hwnd hwnd)
{
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(tipo_programa, CIERTO, iv_sitio_MCB_REGISTRA_PROGRAMA);
    if (acceso == NULL)
        return iv_mcbase_NUM_MAX_PROGRAMAS;
    uint32_t id_programa =
        entra_programa(acceso->mcbase, tipo_programa, nombre_programa, reinterpret_cast<uint64_t>(hwnd));
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_REGISTRA_PROGRAMA);
    return static_cast<uint16_t>(id_programa);
}

static void vacia_entrada(volatile iv_mcbase_programa_t *programa)
{
    programa->nombre[0] = '\0';
    iv_fallo("programa quita nombre");
    programa->hwnd = 0;
    programa->es_servidor = 0;
    programa->es_cliente = 0;
    programa->es_monitor = 0;
    iv_fallo("programa quita es_monitor");
    programa->contador_vivo = 0;
}

void iv_mcbase_quita_programa(uint16_t id_programa)
{
    if (s_mcbase_acceso == NULL || id_programa >= iv_mcbase_NUM_MAX_PROGRAMAS)
        return;
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_SERVIDOR, FALSO, iv_sitio_MCB_QUITA_PROGRAMA);
    if (acceso == NULL)
        return;
    vacia_entrada(&acceso->mcbase->programas[id_programa]);
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_QUITA_PROGRAMA);
    iv_mcbase_libera_si_vacio();
}

int16_t iv_mcbase_estoy_vivo(uint16_t id_programa)
{
    Sleep(LATIDO_MS);
    iv_traza_estoy_vivo(id_programa);
    if (id_programa >= iv_mcbase_NUM_MAX_PROGRAMAS)
        return CIERTO;
    if (s_LocalHeap == NULL) // the session is closed; opening the registry would bring the heap back
        return CIERTO;

    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_MONITOR, FALSO, iv_sitio_MCB_ESTOY_VIVO);
    if (acceso == NULL)
        return FALSO;
    volatile iv_mcbase_programa_t *programa = &acceso->mcbase->programas[id_programa];
    programa->contador_vivo = programa->contador_vivo + 1;
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_ESTOY_VIVO);
    return FALSO;
}

uint32_t iv_mcbase_latido(iv_mcbase_vista *mcbase, uint16_t id_programa)
{
    return id_programa < iv_mcbase_NUM_MAX_PROGRAMAS ? mcbase->programas[id_programa].contador_vivo : 0;
}

// ---- Services

uint32_t iv_mcbase_busca_servicio(iv_mcbase_vista *mcbase, const char *nombre_servicio, uint32_t *ind_libre)
{
    uint32_t libre = iv_mcbase_NUM_MAX_SERVICIOS;
    uint32_t ind_datServ = iv_mcbase_NUM_MAX_SERVICIOS;
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_SERVICIOS; i++) {
        char nombre[iv_mcbase_TAM_NOMBRE_SERVICIO];
        copia_nombre(mcbase->servicios[i].nombre, nombre);
        if (nombre[0] == '\0') {
            if (libre == iv_mcbase_NUM_MAX_SERVICIOS)
                libre = i;
        } else if (ind_datServ == iv_mcbase_NUM_MAX_SERVICIOS &&
                   iv_mem_cadenas_iguales(nombre, nombre_servicio) == CIERTO) {
            ind_datServ = i;
        }
    }
    if (ind_libre != NULL)
        *ind_libre = libre;
    return ind_datServ;
}

uint32_t iv_mcbase_busca_o_anyade_servicio(uint32_t, iv_mcbase_vista *mcbase, const char *nombre_servicio)
{
    uint32_t ind_libre;
    uint32_t ind_datServ = iv_mcbase_busca_servicio(mcbase, nombre_servicio, &ind_libre);
    if (ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS)
        return ind_datServ;

    ind_datServ = ind_libre;
    iv_assert(ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS);
    if (ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS)
        pon_nombre(mcbase->servicios[ind_datServ].nombre, nombre_servicio);
    iv_fallo("servicio nombre");
    return ind_datServ;
}

uint32_t iv_mcbase_quita_servicio(uint32_t, iv_mcbase_vista *mcbase, const char *nombre_servicio)
{
    uint32_t ind_datServ = iv_mcbase_busca_servicio(mcbase, nombre_servicio, NULL);
    if (ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS)
        mcbase->servicios[ind_datServ].nombre[0] = '\0'; // the other fields stay
    return ind_datServ;
}

static int16_t empieza_por(const char *nombre, const char *prefijo)
{
    uint32_t longitud_prefijo = iv_mem_longitud(prefijo);
    if (iv_mem_longitud(nombre) < longitud_prefijo)
        return FALSO;
    char cortado[iv_mcbase_TAM_NOMBRE_SERVICIO];
    iv_mem_copia_cadena(nombre, cortado, longitud_prefijo + 1);
    return iv_mem_cadenas_iguales(cortado, prefijo);
}

static int16_t busca_prefijo(iv_mcbase_vista *mcbase, const char *prefijo, char *nombre_hallado)
{
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_SERVICIOS; i++) {
        char nombre[iv_mcbase_TAM_NOMBRE_SERVICIO];
        copia_nombre(mcbase->servicios[i].nombre, nombre);
        if (nombre[0] == '\0' || empieza_por(nombre, prefijo) != CIERTO)
            continue;
        iv_mem_copia_cadena(nombre, nombre_hallado, iv_mcbase_TAM_NOMBRE_SERVICIO);
        return CIERTO;
    }
    return FALSO;
}

int16_t iv_mcbase_hay_servicio_registrado_empiece_por(const char *prefijo_nombre_servicio,
                                                      char *buffer_nombre_servicio_registrado64)
{
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_CLIENTE, FALSO, iv_sitio_MCB_BUSCA_PREFIJO);
    if (acceso == NULL)
        return FALSO;
    int16_t hay = busca_prefijo(acceso->mcbase, prefijo_nombre_servicio, buffer_nombre_servicio_registrado64);
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_BUSCA_PREFIJO);
    return hay;
}

// A program registered as one kind that later takes part in a service as the other has one entry with both.
static void pon_tipo_de(iv_mcbase_vista *mcbase, uint16_t id_programa, uint32_t tipo_programa)
{
    if (id_programa < iv_mcbase_NUM_MAX_PROGRAMAS)
        pon_tipo(&mcbase->programas[id_programa], tipo_programa);
}

static void pon_servidor(volatile datServ *servicio, uint16_t id_programa)
{
    servicio->id_programa_servidor = id_programa;
    iv_fallo("servicio id_programa_servidor");
    servicio->bucle_servidor_estado = 0;
    servicio->bucle_servidor_vueltas = 0;
    iv_fallo("servicio bucle_servidor_vueltas");
    servicio->bucle_servidor_vivo_cliente = 0;
}

static void pon_cliente(volatile datServ *servicio, uint16_t id_programa)
{
    servicio->id_programa_cliente = id_programa;
    iv_fallo("servicio id_programa_cliente");
    servicio->id_comando_en_curso = 0;
    iv_fallo("servicio id_comando_en_curso");
    servicio->bucle_cliente_estado = 0;
    servicio->bucle_cliente_vueltas = 0;
    servicio->bucle_cliente_vivo_servidor = 0;
}

static void registra_en_servicio(uint32_t tipo_programa, int16_t registrando, iv_sitio sitio, uint16_t id_programa,
                                 const char *nombre_servicio, uint32_t *ind_datServ,
                                 void (*pon_programa)(volatile datServ *, uint16_t))
{
    uint32_t ind = iv_mcbase_NUM_MAX_SERVICIOS;
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(tipo_programa, registrando, sitio);
    if (acceso != NULL) {
        ind = iv_mcbase_busca_o_anyade_servicio(tipo_programa, acceso->mcbase, nombre_servicio);
        if (ind < iv_mcbase_NUM_MAX_SERVICIOS)
            pon_programa(&acceso->mcbase->servicios[ind], id_programa);
        pon_tipo_de(acceso->mcbase, id_programa, tipo_programa);
        iv_mcbase_desbloquea(acceso, sitio);
    }
    if (ind_datServ != NULL)
        *ind_datServ = ind;
}

void iv_mcbase_registra_servidor_de_servicio(uint16_t id_programa, const char *nombre_servicio, uint32_t *ind_datServ)
{
    registra_en_servicio(iv_tipo_SERVIDOR, FALSO, iv_sitio_MCB_REGISTRA_SERVIDOR, id_programa, nombre_servicio,
                         ind_datServ, pon_servidor);
}

void iv_mcbase_registra_cliente_de_servicio(uint16_t id_programa, const char *nombre_servicio, uint32_t *ind_datServ)
{
    registra_en_servicio(iv_tipo_CLIENTE, CIERTO, iv_sitio_MCB_REGISTRA_CLIENTE, id_programa, nombre_servicio,
                         ind_datServ, pon_cliente);
}

static void marca_comando(iv_sitio sitio, uint32_t ind_datServ, uint32_t id_comando)
{
    if (ind_datServ >= iv_mcbase_NUM_MAX_SERVICIOS)
        return;
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_CLIENTE, FALSO, sitio);
    if (acceso == NULL)
        return;
    acceso->mcbase->servicios[ind_datServ].bucle_servidor_vivo_cliente = 0;
    iv_fallo("comando bucle_servidor_vivo_cliente");
    acceso->mcbase->servicios[ind_datServ].id_comando_en_curso = id_comando;
    iv_mcbase_desbloquea(acceso, sitio);
}

void iv_mcbase_inicia_comando(uint32_t ind_datServ, uint32_t id_comando)
{
    marca_comando(iv_sitio_MCB_INICIA_COMANDO, ind_datServ, id_comando);
}

void iv_mcbase_termina_comando(uint32_t ind_datServ, uint32_t)
{
    marca_comando(iv_sitio_MCB_TERMINA_COMANDO, ind_datServ, 0);
}

// ---- Activity

static int16_t monitor_listo(iv_mcbase_vista *mcbase)
{
    return mcbase->tam_bloque == sizeof(iv_mcbase_t) && mcbase->version == iv_mcbase_VERSION &&
                   mcbase->hwnd_monitor != 0 && mcbase->msg_monitor != 0
               ? CIERTO
               : FALSO;
}

int16_t iv_mcbase_hay_monitor(uint32_t tipo_programa)
{
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(tipo_programa, FALSO, iv_sitio_MCB_HAY_MONITOR);
    if (acceso == NULL)
        return FALSO;
    int16_t hay = monitor_listo(acceso->mcbase);
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_HAY_MONITOR);
    return hay;
}

// The number of the record to write now; the counter moves on, past 63 to 1. A damaged counter counts as 1.
static uint32_t siguiente_actividad(iv_mcbase_vista *mcbase)
{
    uint32_t n = mcbase->num_actividad_siguiente;
    if (n == 0 || n >= NUM_ACTIVIDAD_FINAL)
        n = 1;
    mcbase->num_actividad_siguiente = n + 1 == NUM_ACTIVIDAD_FINAL ? 1 : n + 1;
    return n;
}

// The service's index, entering it or taking it out where a server announces it; 32 for none.
static uint32_t servicio_anunciado(iv_mcbase_vista *mcbase, uint32_t tipo_programa, uint32_t tipo_actividad,
                                   int16_t indicador, const char *nombre_servicio)
{
    if (tipo_programa != iv_tipo_SERVIDOR || tipo_actividad != iv_actividad_SERVICIO)
        return iv_mcbase_NUM_MAX_SERVICIOS;
    if (indicador == CIERTO)
        return iv_mcbase_busca_o_anyade_servicio(tipo_programa, mcbase, nombre_servicio);
    return iv_mcbase_quita_servicio(tipo_programa, mcbase, nombre_servicio);
}

static uint32_t escribe_actividad(iv_mcbase_vista *mcbase, const iv_mcbase_actividad_t *actividad)
{
    uint32_t n = siguiente_actividad(mcbase);
    iv_fallo("actividad num_actividad_siguiente");
    volatile iv_mcbase_actividad_t *hueco = &mcbase->actividades[n - 1];
    hueco->ind_datServ = actividad->ind_datServ;
    hueco->dato1 = actividad->dato1;
    hueco->dato2 = actividad->dato2;
    iv_fallo("actividad dato2");
    hueco->tipo_programa = actividad->tipo_programa;
    hueco->tipo_actividad = actividad->tipo_actividad;
    hueco->indicador = actividad->indicador;
    return n;
}

static void avisa(uint64_t hwnd_monitor, uint32_t msg_monitor, iv_aviso_monitor aviso, uint32_t dato)
{
    iv_ventana()->PostMessageW(reinterpret_cast<HWND>(hwnd_monitor), msg_monitor, aviso, static_cast<LPARAM>(dato));
}

void iv_mcbase_anota_actividad(uint32_t tipo_programa, uint32_t tipo_actividad, int16_t indicador,
                               const char *nombre_servicio, uint32_t dato1, uint32_t dato2)
{
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(tipo_programa, FALSO, iv_sitio_MCB_ANOTA_ACTIVIDAD);
    if (acceso == NULL)
        return;

    iv_mcbase_vista *mcbase = acceso->mcbase;
    uint32_t n = 0;
    uint64_t hwnd_monitor = 0;
    uint32_t msg_monitor = 0;
    uint32_t ind = servicio_anunciado(mcbase, tipo_programa, tipo_actividad, indicador, nombre_servicio);
    if (monitor_listo(mcbase) == CIERTO) {
        if (ind >= iv_mcbase_NUM_MAX_SERVICIOS)
            ind = iv_mcbase_busca_servicio(mcbase, nombre_servicio, NULL);
        iv_mcbase_actividad_t actividad = {ind,           dato1,          dato2,
                                           tipo_programa, tipo_actividad, static_cast<uint16_t>(indicador)};
        if (ind < iv_mcbase_NUM_MAX_SERVICIOS)
            n = escribe_actividad(mcbase, &actividad);
        hwnd_monitor = mcbase->hwnd_monitor;
        msg_monitor = mcbase->msg_monitor;
    }
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_ANOTA_ACTIVIDAD);

    if (hwnd_monitor != 0 && n != 0)
        avisa(hwnd_monitor, msg_monitor, iv_aviso_ACTIVIDAD, n);
}

void iv_mcbase_avisa_ronda(iv_mcbase_vista *mcbase, iv_aviso_monitor aviso, uint32_t ind_datServ, uint32_t estado)
{
    uint64_t hwnd_monitor = mcbase->hwnd_monitor;
    uint32_t msg_monitor = mcbase->msg_monitor;
    if (hwnd_monitor != 0 && msg_monitor != 0)
        avisa(hwnd_monitor, msg_monitor, aviso, (ind_datServ & 0xFFFF) | estado << 16);
}

// ---- Monitor

// Deliberate: tipo_programa and indicador of the records are left as they are.
static void inicia_registro(iv_mcbase_vista *mcbase, const iv_mcbase_monitor *monitor)
{
    mcbase->tam_bloque = sizeof(iv_mcbase_t);
    mcbase->version = iv_mcbase_VERSION;
    iv_fallo("monitor version");
    mcbase->hwnd_monitor = reinterpret_cast<uint64_t>(monitor->hwnd);
    mcbase->msg_monitor = monitor->msg_monitor;
    iv_fallo("monitor msg_monitor");
    mcbase->num_actividad_siguiente = 1;
    for (uint32_t i = 0; i < iv_mcbase_NUM_ACTIVIDADES; i++) {
        mcbase->actividades[i].ind_datServ = iv_mcbase_NUM_MAX_SERVICIOS;
        mcbase->actividades[i].dato1 = 0;
        mcbase->actividades[i].dato2 = 0;
        mcbase->actividades[i].tipo_actividad = 0;
    }
    iv_fallo("monitor actividades");
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_SERVICIOS; i++) {
        mcbase->servicios[i].nombre[0] = '\0';
        iv_fallo("monitor servicio");
    }
}

static WNDPROC cambia_procedimiento(ivrexa_hwnd hwnd, WNDPROC proc)
{
    LONG_PTR anterior = iv_ventana()->SetWindowLongPtrW(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(proc));
    return reinterpret_cast<WNDPROC>(anterior);
}

void iv_mcbase_registra_monitor(ivrexa_hwnd hwnd_monitor, ivrexa_funcion_actividad funcionNotificacionActividad,
                                ivrexa_funcion_bucle funcionMonitorBuclesCliente,
                                ivrexa_funcion_bucle funcionMonitorBuclesServidor, void *datos_externos_monitor)
{
    iv_assert(s_programa_monitor == NULL);
    if (s_programa_monitor != NULL || iv_mcbase_abre(iv_tipo_MONITOR, CIERTO) == NULL)
        return;

    iv_mcbase_monitor *monitor = &s_registro_monitor;
    monitor->hwnd = hwnd_monitor;
    monitor->funcionNotificacionActividad = funcionNotificacionActividad;
    monitor->funcionMonitorBuclesCliente = funcionMonitorBuclesCliente;
    monitor->funcionMonitorBuclesServidor = funcionMonitorBuclesServidor;
    monitor->datos_externos_monitor = datos_externos_monitor;
    monitor->msg_monitor = iv_ventana()->RegisterWindowMessageA(iv_nombre_monitor_MSG());
    s_programa_monitor = monitor;
    monitor->proc_ventana_anterior = cambia_procedimiento(hwnd_monitor, iv_mcbase_proc_monitor);

    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_MONITOR, FALSO, iv_sitio_MCB_REGISTRA_MONITOR);
    if (acceso == NULL)
        return;
    inicia_registro(acceso->mcbase, monitor);
    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_REGISTRA_MONITOR);
}

void iv_mcbase_quita_monitor(void)
{
    if (s_mcbase_acceso != NULL || s_programa_monitor != NULL) { // the session may have been closed before
        iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_MONITOR, FALSO, iv_sitio_MCB_QUITA_MONITOR);
        if (acceso != NULL) {
            acceso->mcbase->hwnd_monitor = 0;
            iv_mcbase_desbloquea(acceso, iv_sitio_MCB_QUITA_MONITOR);
        }
        iv_mcbase_libera_si_vacio();
    }
    if (s_programa_monitor != NULL) {
        cambia_procedimiento(s_programa_monitor->hwnd, s_programa_monitor->proc_ventana_anterior);
        iv_reg_monitor_deja_ventana(iv_mcbase_proc_monitor, s_programa_monitor->proc_ventana_anterior);
    }
    s_programa_monitor = NULL;
    retiene_apertura();
    s_mcbase_acceso = NULL;
    suelta_apertura();
}

void iv_mcbase_programa_deja_ventana(WNDPROC quitado, WNDPROC hallado)
{
    if (s_registro_monitor.proc_ventana_anterior == quitado)
        s_registro_monitor.proc_ventana_anterior = hallado;
}

static void recibe_actividad(const iv_mcbase_monitor *monitor, iv_mcbase_vista *mcbase, uint32_t n)
{
    if (monitor->funcionNotificacionActividad == NULL || n == 0 || n > iv_mcbase_NUM_ACTIVIDADES)
        return;
    volatile iv_mcbase_actividad_t *actividad = &mcbase->actividades[n - 1];
    uint32_t ind_datServ = actividad->ind_datServ;
    if (ind_datServ >= iv_mcbase_NUM_MAX_SERVICIOS)
        return;
    const char *nombre_servicio = const_cast<const char *>(mcbase->servicios[ind_datServ].nombre);
    monitor->funcionNotificacionActividad(actividad->tipo_programa, actividad->tipo_actividad, actividad->indicador,
                                          nombre_servicio, actividad->dato1, actividad->dato2,
                                          monitor->datos_externos_monitor);
}

static void recibe_ronda(const iv_mcbase_monitor *monitor, iv_mcbase_vista *mcbase, ivrexa_funcion_bucle funcion,
                         LPARAM lparam)
{
    uint32_t ind_datServ = LOWORD(lparam);
    uint32_t estado = HIWORD(lparam);
    if (funcion == NULL || ind_datServ >= iv_mcbase_NUM_MAX_SERVICIOS)
        return;
    funcion(const_cast<const iv_mcbase_t *>(mcbase), const_cast<const datServ *>(&mcbase->servicios[ind_datServ]),
            estado, monitor->datos_externos_monitor);
}

// The registry is read without its mutex. Deliberate: a monitor never holds up those it watches.
static void recibe_aviso(WPARAM aviso, LPARAM lparam)
{
    const iv_mcbase_monitor *monitor = s_programa_monitor;
    iv_mcbase_acceso *acceso = s_mcbase_acceso;
    if (monitor == NULL || acceso == NULL)
        return;
    if (aviso == iv_aviso_ACTIVIDAD)
        recibe_actividad(monitor, acceso->mcbase, static_cast<uint32_t>(lparam));
    else if (aviso == iv_aviso_RONDA_CLIENTE)
        recibe_ronda(monitor, acceso->mcbase, monitor->funcionMonitorBuclesCliente, lparam);
    else if (aviso == iv_aviso_RONDA_SERVIDOR)
        recibe_ronda(monitor, acceso->mcbase, monitor->funcionMonitorBuclesServidor, lparam);
}

LRESULT CALLBACK iv_mcbase_proc_monitor(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == s_registro_monitor.msg_monitor) {
        recibe_aviso(wparam, lparam);
        return 0;
    }
    return iv_ventana()->CallWindowProcW(s_registro_monitor.proc_ventana_anterior, hwnd, msg, wparam, lparam);
}
