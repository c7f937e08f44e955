#include "iv_mcserv.h"

#include "iv_fallo.h"
#include "iv_mcbase.h"
#include "iv_mem.h"
#include "iv_nombre.h"
#include "iv_reg.h"
#include "iv_traza.h"

#define IV_MODULO "iv_mcserv"

static const uint32_t RONDAS_SIN_LATIDO = 25;
static const uint32_t PRIMER_COMANDO_PROPIO = ivrexa_comando_PRIMERO_PROPIO;
static const uint32_t TAM_TEXTO_CORTO = 64; // characters, NUL included
static const uint32_t TAM_TEXTO_LARGO = 256;
static const uint32_t PRIMER_MENSAJE_REGISTRADO = 0xC000;
static const uint32_t ULTIMO_MENSAJE_REGISTRADO = 0xFFFF;

// ---- Texts of the block: always bounded by their field, since they are the other side's words

static void pon_texto(volatile wchar_t *campo, uint32_t num_caracteres, const wchar_t *texto)
{
    iv_mem_copia_cadena_u(texto, const_cast<wchar_t *>(campo), num_caracteres);
}

static void dame_texto(volatile wchar_t *campo, uint32_t num_caracteres, wchar_t *texto)
{
    if (texto != NULL)
        iv_mem_copia_cadena_u(const_cast<const wchar_t *>(campo), texto, num_caracteres);
}

static void duplica_texto(volatile wchar_t *campo, uint32_t num_caracteres, wchar_t **texto)
{
    if (texto == NULL)
        return;
    wchar_t copia[TAM_TEXTO_LARGO];
    dame_texto(campo, num_caracteres, copia);
    *texto = iv_mem_duplica_cadena_u(copia);
}

// ---- The block

iv_shared_bloque *iv_mcserv_crea_bloque(const char *nombre_MCServ, int16_t *ya_estaba_creado)
{
    iv_shared_bloque *bloque = iv_shared_crea(nombre_MCServ, "iv_mcserv_t", sizeof(iv_mcserv_t), ya_estaba_creado);
    if (bloque != NULL && iv_shared_contiene(bloque, sizeof(iv_mcserv_t)) != CIERTO)
        iv_shared_destruye(&bloque);
    return bloque;
}

iv_shared_bloque *iv_mcserv_abre_bloque(const char *nombre_servicio)
{
    char *nombre_MCServ = iv_nombre_MCServ(nombre_servicio);
    iv_shared_bloque *bloque = iv_shared_abre_si_existe(nombre_MCServ);
    iv_mem_libera(&nombre_MCServ);
    if (bloque != NULL && iv_shared_contiene(bloque, sizeof(iv_mcserv_t)) != CIERTO)
        iv_shared_destruye(&bloque);
    return bloque;
}

iv_mcserv_vista *iv_mcserv_vista_de(iv_shared_bloque *shared_MCServ)
{
    return static_cast<iv_mcserv_vista *>(iv_shared_datos(shared_MCServ));
}

// ---- Server

// Deliberate: the claim, servidor_terminado, the command's id and the mailbox are left as they are, and so is a counter
// of block ids, so that a block of an earlier run is never taken for a new one.
void iv_mcserv_inicia(iv_mcserv_vista *mcserv, uint16_t version_servicio, int16_t ya_existia)
{
    mcserv->tam_bloque = sizeof(iv_mcserv_t);
    mcserv->version_servicio = version_servicio;
    iv_fallo("canal version_servicio");
    mcserv->info_estadoComando = iv_mcserv_estadoComando_NINGUNO;
    mcserv->resultado = 0;
    if (ya_existia != CIERTO || mcserv->id_bloque_MCCom_siguiente < iv_mcserv_PRIMER_ID_BLOQUE)
        mcserv->id_bloque_MCCom_siguiente = iv_mcserv_PRIMER_ID_BLOQUE;
    iv_fallo("canal id_bloque_MCCom_siguiente");
    mcserv->estado_servidor = iv_mcserv_estadoServidor_PARADO;
    mcserv->id_resultado = 0;
    mcserv->serv_buffer_64[0] = L'\0';
    mcserv->serv_buffer_256[0] = L'\0';
    mcserv->serv_buffer2_256[0] = L'\0';
}

void iv_mcserv_servidor_listo(iv_mcserv_vista *mcserv, ivrexa_hwnd hwnd_servidor, uint32_t msg_servidor)
{
    mcserv->hwnd_servidor = reinterpret_cast<uint64_t>(hwnd_servidor);
    iv_fallo("canal hwnd_servidor");
    mcserv->msg_servidor = msg_servidor;
    iv_fallo("canal msg_servidor");
    mcserv->estado_servidor = iv_mcserv_estadoServidor_ESPERA;
    iv_fallo("canal estado_servidor espera");
    mcserv->servidor_terminado = 0;
}

void iv_mcserv_servidor_terminado(iv_mcserv_vista *mcserv)
{
    mcserv->servidor_terminado = 1;
    iv_fallo("canal servidor_terminado");
    mcserv->estado_servidor = iv_mcserv_estadoServidor_PARADO;
}

int16_t iv_mcserv_es_comando_reservado(uint32_t id_comando)
{
    return id_comando >= ivrexa_comando_TERMINAR && id_comando < PRIMER_COMANDO_PROPIO ? CIERTO : FALSO;
}

static int16_t esta_en_curso(iv_mcserv_vista *mcserv, uint32_t id_comando)
{
    return mcserv->id_comando == id_comando && mcserv->ocupacion == iv_mcserv_ocupacion_EN_CURSO ? CIERTO : FALSO;
}

int16_t iv_mcserv_dame_comando(iv_mcserv_vista *mcserv, uint32_t id_comando, uint32_t *id_bloque_MCCom_entrada,
                               wchar_t *buffer_64, wchar_t *buffer_256, wchar_t *buffer2_256)
{
    if (esta_en_curso(mcserv, id_comando) != CIERTO)
        return FALSO;
    if (id_bloque_MCCom_entrada != NULL)
        *id_bloque_MCCom_entrada = mcserv->id_bloque_MCCom_entrada;
    dame_texto(mcserv->buffer_cliente_64, TAM_TEXTO_CORTO, buffer_64);
    dame_texto(mcserv->buffer_cliente_256, TAM_TEXTO_LARGO, buffer_256);
    dame_texto(mcserv->buffer_cliente2_256, TAM_TEXTO_LARGO, buffer2_256);
    return CIERTO;
}

int16_t iv_mcserv_pon_resultado(iv_mcserv_vista *mcserv, uint32_t id_comando, uint32_t id_resultado,
                                const wchar_t *resultado_64, const wchar_t *resultado_256,
                                const wchar_t *resultado_256_2)
{
    if (esta_en_curso(mcserv, id_comando) != CIERTO)
        return FALSO;
    mcserv->id_resultado = id_resultado;
    iv_fallo("canal id_resultado");
    pon_texto(mcserv->serv_buffer_64, TAM_TEXTO_CORTO, resultado_64);
    pon_texto(mcserv->serv_buffer_256, TAM_TEXTO_LARGO, resultado_256);
    pon_texto(mcserv->serv_buffer2_256, TAM_TEXTO_LARGO, resultado_256_2);
    return CIERTO;
}

// The channel's field decides whether there is input; the block is the one that the argument names.
static comdat *toma_datos_entrada(const char *nombre_servicio, uint32_t id_bloque_MCCom_entrada)
{
    iv_shared_bloque *shared_MCCom = iv_mcserv_abre_MCCom(nombre_servicio, id_bloque_MCCom_entrada, CIERTO);
    iv_assert_puntero(shared_MCCom);
    if (shared_MCCom == NULL)
        return NULL;
    return iv_comdat_carga(nombre_servicio, id_bloque_MCCom_entrada, &shared_MCCom, CIERTO);
}

comdat *iv_mcserv_lee_datos_entrada(const char *nombre_servicio, iv_shared_bloque *shared_MCServ,
                                    uint32_t id_bloque_MCCom_entrada)
{
    iv_mcserv_vista *mcserv = iv_mcserv_vista_de(shared_MCServ);
    iv_assert(mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada);
    if (mcserv->id_bloque_MCCom_entrada == 0)
        return NULL;
    comdat *datos_entrada = toma_datos_entrada(nombre_servicio, id_bloque_MCCom_entrada);
    mcserv->id_bloque_MCCom_entrada = 0;
    return datos_entrada;
}

// ---- Mailbox

// FALSO when the session closes before the mutex is to be had: a client holds it for as long as its function runs, and
// the close cannot wait for that.
static int16_t bloquea_buzon(iv_mutex *mutex_interno, iv_sitio sitio)
{
    while (iv_mutex_bloquea_en(mutex_interno, sitio, iv_mcserv_RONDA_MS) != CIERTO)
        if (iv_reg_esta_cerrando() == CIERTO)
            return FALSO;
    return CIERTO;
}

// CIERTO, with the internal mutex held, when the state has come; FALSO when the server ends. It sleeps outside the
// mutex, and has no time-out but that. Deliberate. A session that closes ends it before it marks the channel: a command
// function that notifies holds the mutex that the mark needs.
static int16_t espera_notificacion(iv_mcserv_vista *mcserv, iv_mutex *mutex_interno, iv_sitio sitio, uint32_t estado)
{
    while (bloquea_buzon(mutex_interno, sitio) == CIERTO) {
        if (mcserv->estado_notificacion == estado)
            return CIERTO;
        int16_t acaba = mcserv->servidor_terminado == 1 ? CIERTO : iv_reg_esta_cerrando();
        iv_mutex_desbloquea(mutex_interno, sitio);
        if (acaba == CIERTO)
            return FALSO;
        Sleep(iv_mcserv_RONDA_MS);
    }
    return FALSO;
}

static void escribe_notificacion(iv_mcserv_vista *mcserv, uint32_t dato1, uint32_t dato2, uint32_t dato3)
{
    mcserv->estado_notificacion = iv_mcserv_estadoNotificacion_ESCRITA;
    iv_fallo("buzon escrita");
    mcserv->notificacion_dato1 = dato1;
    mcserv->notificacion_dato2 = dato2;
    iv_fallo("buzon dato2");
    mcserv->notificacion_dato3 = dato3;
}

static void vacia_buzon(iv_mcserv_vista *mcserv)
{
    mcserv->estado_notificacion = iv_mcserv_estadoNotificacion_LIBRE;
    iv_fallo("buzon libre");
    mcserv->notificacion_dato1 = 0;
    mcserv->notificacion_dato2 = 0;
    mcserv->notificacion_dato3 = 0;
}

void iv_mcserv_notifica(iv_mcserv_vista *mcserv, iv_mutex *mutex_interno, uint32_t dato1, uint32_t dato2,
                        uint32_t dato3)
{
    int16_t libre =
        espera_notificacion(mcserv, mutex_interno, iv_sitio_NOTIFICA_ESCRIBE, iv_mcserv_estadoNotificacion_LIBRE);
    if (libre != CIERTO)
        return;
    escribe_notificacion(mcserv, dato1, dato2, dato3);
    int16_t terminado = mcserv->servidor_terminado != 0 ? CIERTO : FALSO;
    iv_mutex_desbloquea(mutex_interno, iv_sitio_NOTIFICA_ESCRIBE);
    if (terminado == CIERTO)
        return;

    int16_t procesada =
        espera_notificacion(mcserv, mutex_interno, iv_sitio_NOTIFICA_ESPERA, iv_mcserv_estadoNotificacion_PROCESADA);
    if (procesada != CIERTO)
        return;
    vacia_buzon(mcserv);
    iv_mutex_desbloquea(mutex_interno, iv_sitio_NOTIFICA_ESPERA);
}

// ---- Data blocks

iv_shared_bloque *iv_mcserv_abre_MCCom(const char *nombre_servicio, uint32_t id_bloque_MCCom, int16_t es_entrada)
{
    uint32_t tipo_programa = es_entrada == CIERTO ? iv_tipo_SERVIDOR : iv_tipo_CLIENTE;
    uint32_t actividad = es_entrada == CIERTO ? iv_actividad_DATOS_ENTRADA : iv_actividad_DATOS_SALIDA;
    if (iv_mcbase_hay_monitor(tipo_programa) == CIERTO)
        iv_mcbase_anota_actividad(tipo_programa, actividad, CIERTO, nombre_servicio, 0, id_bloque_MCCom);

    char *nombre_MCCom = iv_nombre_MCCom(nombre_servicio, id_bloque_MCCom);
    iv_shared_bloque *shared_MCCom = iv_shared_abre_si_existe(nombre_MCCom);
    iv_mem_libera(&nombre_MCCom);
    return shared_MCCom;
}

uint32_t iv_mcserv_siguiente_id_bloque(iv_mcserv_vista *mcserv)
{
    uint32_t id_bloque_MCCom = mcserv->id_bloque_MCCom_siguiente;
    mcserv->id_bloque_MCCom_siguiente = id_bloque_MCCom + 1;
    iv_fallo("datos id_bloque_MCCom_siguiente");
    return id_bloque_MCCom;
}

int16_t iv_mcserv_guarda_datos(comdat *comdat, uint32_t id_bloque_MCCom)
{
    uint32_t ocupado;
    const uint8_t *contenido = iv_comdat_contenido(comdat, &ocupado);
    char *nombre_MCCom = iv_nombre_MCCom(comdat->nombre_servicio, id_bloque_MCCom);
    iv_shared_bloque *shared_MCCom = iv_shared_crea_con_datos(nombre_MCCom, ocupado, contenido);
    int16_t guardado = shared_MCCom != NULL ? CIERTO : FALSO;
    iv_comdat_guardado(comdat, id_bloque_MCCom, &shared_MCCom);
    iv_mem_libera(&nombre_MCCom);
    return guardado;
}

void iv_mcserv_termina_servidor(const char *nombre_servicio)
{
    iv_shared_bloque *shared_MCServ = iv_mcserv_abre_bloque(nombre_servicio);
    if (shared_MCServ == NULL)
        return;
    iv_mcserv_vista *mcserv = iv_mcserv_vista_de(shared_MCServ);
    HWND hwnd_servidor = reinterpret_cast<HWND>(mcserv->hwnd_servidor);
    if (hwnd_servidor != NULL)
        iv_ventana()->PostMessageW(hwnd_servidor, mcserv->msg_servidor, ivrexa_comando_TERMINAR, 0);
    else
        iv_mcserv_ejecuta_comando(nombre_servicio, ivrexa_comando_TERMINAR, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL,
                                  NULL);
    iv_shared_destruye(&shared_MCServ);
}

// ---- Rounds

// The loop fields that one side keeps in the service's entry of the registry.
struct iv_bucle {
    volatile uint32_t *estado;
    volatile uint32_t *vueltas;
    volatile uint32_t *vivo; // the other side's heartbeat when the state was entered
};

// Counts one round of the wait for `estado`; CIERTO at each 25th with the heartbeat where it was on entry. Entering
// counts as round 0, so the rule can first come true in the 26th. Deliberate: the heartbeat is noted on entry only, so
// a peer that moved once lives through that wait.
static int16_t cuenta_ronda(const iv_bucle *bucle, uint32_t estado, uint32_t latido)
{
    if (*bucle->estado != estado) {
        *bucle->estado = estado;
        *bucle->vueltas = 0;
        *bucle->vivo = latido;
        return FALSO;
    }
    *bucle->vueltas = *bucle->vueltas + 1;
    if (*bucle->vueltas % RONDAS_SIN_LATIDO != 0)
        return FALSO;
    return *bucle->vivo == latido ? CIERTO : FALSO;
}

static int16_t cuenta_ronda_cliente(iv_mcbase_vista *mcbase, uint32_t ind_datServ, uint32_t estado)
{
    volatile datServ *servicio = &mcbase->servicios[ind_datServ];
    iv_bucle bucle = {&servicio->bucle_cliente_estado, &servicio->bucle_cliente_vueltas,
                      &servicio->bucle_cliente_vivo_servidor};
    return cuenta_ronda(&bucle, estado, iv_mcbase_latido(mcbase, servicio->id_programa_servidor));
}

// A client is missed only while it has a command under way.
static int16_t cuenta_ronda_servidor(iv_mcbase_vista *mcbase, uint32_t ind_datServ, uint32_t estado)
{
    volatile datServ *servicio = &mcbase->servicios[ind_datServ];
    iv_bucle bucle = {&servicio->bucle_servidor_estado, &servicio->bucle_servidor_vueltas,
                      &servicio->bucle_servidor_vivo_cliente};
    int16_t sin_latido = cuenta_ronda(&bucle, estado, iv_mcbase_latido(mcbase, servicio->id_programa_cliente));
    return sin_latido == CIERTO && servicio->id_comando_en_curso != 0 ? CIERTO : FALSO;
}

// One round of a client's wait: sleeps, counts the round, tells the monitor. The caller holds the service's mutex.
static int16_t ronda_cliente(uint32_t ind_datServ, iv_mcserv_vista *mcserv, uint32_t estado)
{
    Sleep(iv_mcserv_RONDA_MS);
    if (ind_datServ >= iv_mcbase_NUM_MAX_SERVICIOS)
        return CIERTO; // the service is not in the table
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_CLIENTE, FALSO, iv_sitio_MCB_RONDA_CLIENTE);
    if (acceso == NULL)
        return CIERTO;

    int16_t servidor_muerto = cuenta_ronda_cliente(acceso->mcbase, ind_datServ, estado);
    if (servidor_muerto == CIERTO)
        iv_mcserv_servidor_terminado(mcserv);
    iv_mcbase_avisa_ronda(acceso->mcbase, iv_aviso_RONDA_CLIENTE, ind_datServ, estado);

    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_RONDA_CLIENTE);
    return servidor_muerto;
}

// The same for a server. It writes nothing into the channel.
static int16_t ronda_servidor(uint32_t ind_datServ, uint32_t estado)
{
    Sleep(iv_mcserv_RONDA_MS);
    if (ind_datServ >= iv_mcbase_NUM_MAX_SERVICIOS)
        return CIERTO;
    iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_SERVIDOR, FALSO, iv_sitio_MCB_RONDA_SERVIDOR);
    if (acceso == NULL)
        return CIERTO;

    int16_t cliente_muerto = cuenta_ronda_servidor(acceso->mcbase, ind_datServ, estado);
    iv_mcbase_avisa_ronda(acceso->mcbase, iv_aviso_RONDA_SERVIDOR, ind_datServ, estado);

    iv_mcbase_desbloquea(acceso, iv_sitio_MCB_RONDA_SERVIDOR);
    return cliente_muerto;
}

int16_t iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(uint32_t ind_datServ, iv_mcserv_vista *mcserv)
{
    iv_traza_CLIENTE_ESPERA_NINGUN_CLIENTE();
    return ronda_cliente(ind_datServ, mcserv, 1);
}

int16_t iv_mcserv_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO(uint32_t ind_datServ, iv_mcserv_vista *mcserv)
{
    iv_traza_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO();
    return ronda_cliente(ind_datServ, mcserv, 2);
}

int16_t iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO(uint32_t ind_datServ, iv_mcserv_vista *mcserv)
{
    iv_traza_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO();
    return ronda_cliente(ind_datServ, mcserv, 3);
}

int16_t iv_mcserv_CLIENTE_ESPERA_SERVIDOR_AVISADO(uint32_t ind_datServ, iv_mcserv_vista *mcserv)
{
    iv_traza_CLIENTE_ESPERA_SERVIDOR_AVISADO();
    return ronda_cliente(ind_datServ, mcserv, 4);
}

int16_t iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(uint32_t ind_datServ, iv_mcserv_vista *)
{
    iv_traza_SERVIDOR_ESPERA_RECEPCION_COMANDO();
    return ronda_servidor(ind_datServ, 1);
}

int16_t iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO(uint32_t ind_datServ, iv_mcserv_vista *)
{
    iv_traza_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO();
    return ronda_servidor(ind_datServ, 2);
}

// ---- Client: one exchange over the channel

struct iv_intercambio {
    uint32_t id_comando;
    uint16_t opciones_ventana;
    uint32_t id_bloque_MCCom_entrada;
    const wchar_t *textos[3];
    uint32_t *id_resultado; // outs, each may be NULL
    wchar_t **resultados[3];
    uint32_t ind_datServ;
    ivrexa_hwnd hwnd_cliente;
    iv_mcserv_vista *mcserv;
    iv_mutex *mutex;
    int16_t reclamado; // the channel is ours until it is freed
    int16_t completo;
};

// Waits until no other client uses the channel. CIERTO when it is ours. Either way the mutex is held.
static int16_t reclama(const iv_intercambio *x)
{
    for (;;) {
        iv_mutex_bloquea(x->mutex, iv_sitio_CLIENTE_RECLAMA);
        if (x->mcserv->ocupacion == iv_mcserv_ocupacion_LIBRE)
            return CIERTO; // also where the server has ended
        if (x->mcserv->servidor_terminado == 1)
            return FALSO;
        if (iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(x->ind_datServ, x->mcserv) == CIERTO)
            return FALSO;
        iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_RECLAMA);
    }
}

static void escribe_comando(const iv_intercambio *x)
{
    iv_mcserv_vista *mcserv = x->mcserv;
    mcserv->ocupacion = iv_mcserv_ocupacion_ESCRIBE;
    iv_fallo("comando ocupacion escribe");
    mcserv->hwnd_cliente = reinterpret_cast<uint64_t>(x->hwnd_cliente);
    mcserv->id_bloque_MCCom_entrada = x->id_bloque_MCCom_entrada;
    iv_fallo("comando hwnd_cliente");
    pon_texto(mcserv->buffer_cliente_64, TAM_TEXTO_CORTO, x->textos[0]);
    iv_fallo("comando buffer_cliente_64");
    pon_texto(mcserv->buffer_cliente_256, TAM_TEXTO_LARGO, x->textos[1]);
    pon_texto(mcserv->buffer_cliente2_256, TAM_TEXTO_LARGO, x->textos[2]);
    mcserv->info_estadoComando = iv_mcserv_estadoComando_ESCRITO;
    iv_fallo("comando escrito");
    mcserv->ocupacion = iv_mcserv_ocupacion_EN_CURSO;
    iv_fallo("comando en curso");
}

// The service's message, to whatever window the channel names. A number that the system never gives to a registered
// message is no service's: many of its own make a window write where lParam points, which here would be our memory.
static LRESULT manda_mensaje(const iv_intercambio *x)
{
    HWND hwnd_servidor = reinterpret_cast<HWND>(x->mcserv->hwnd_servidor);
    uint32_t msg_servidor = x->mcserv->msg_servidor;
    if (msg_servidor < PRIMER_MENSAJE_REGISTRADO || msg_servidor > ULTIMO_MENSAJE_REGISTRADO)
        return 0;
    return iv_ventana()->SendMessageW(hwnd_servidor, msg_servidor, x->id_comando,
                                      static_cast<LPARAM>(x->id_bloque_MCCom_entrada));
}

// A server with a window: its window procedure's return value is the result. No lock is held meanwhile; it is
// afterwards.
static uint32_t ejecuta_con_mensaje(const iv_intercambio *x)
{
    LRESULT respuesta = manda_mensaje(x);
    iv_fallo("comando respondido");
    uint32_t resultado = static_cast<uint32_t>(respuesta);
    iv_mutex_bloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_TOMA);
    x->mcserv->resultado = resultado;
    return resultado;
}

// Waits until the server has taken and left the command. CIERTO, with the mutex released and in *en_marcha whether its
// thread still runs; FALSO, with the mutex held, when it is gone.
static int16_t espera_que_ejecute(const iv_intercambio *x, int16_t *en_marcha)
{
    for (;;) {
        iv_mutex_bloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_TOMA);
        if (x->mcserv->servidor_terminado == 1)
            return FALSO;
        if (iv_mcserv_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO(x->ind_datServ, x->mcserv) == CIERTO)
            return FALSO;
        uint32_t estado = x->mcserv->estado_servidor;
        iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_TOMA);
        if (estado == iv_mcserv_estadoServidor_ESPERA || estado == iv_mcserv_estadoServidor_EJECUTA)
            continue;
        *en_marcha = estado != iv_mcserv_estadoServidor_PARADO ? CIERTO : FALSO;
        return CIERTO;
    }
}

// Waits until the command is finished; whether it succeeded. The mutex is held afterwards. A server that had finished
// with a command before it went counts as successful, and its result is read as it stands.
static int16_t espera_que_termine(const iv_intercambio *x, int16_t en_marcha)
{
    for (;;) {
        iv_mutex_bloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_FIN);
        if (x->mcserv->info_estadoComando == iv_mcserv_estadoComando_TERMINADO_POR_SERVIDOR)
            return en_marcha;
        if (x->mcserv->estado_servidor == iv_mcserv_estadoServidor_PARADO)
            return FALSO;
        if (x->mcserv->servidor_terminado == 1)
            return en_marcha;
        if (iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO(x->ind_datServ, x->mcserv) == CIERTO)
            return en_marcha;
        iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_FIN);
    }
}

// A server without a window: its loop thread polls the channel. The mutex is held afterwards.
static uint32_t ejecuta_con_rondas(const iv_intercambio *x)
{
    int16_t en_marcha;
    if (espera_que_ejecute(x, &en_marcha) != CIERTO)
        return ivrexa_resultado_ERROR;
    return espera_que_termine(x, en_marcha) == CIERTO ? ivrexa_resultado_OK : ivrexa_resultado_ERROR;
}

static void vacia_resultados(const iv_intercambio *x)
{
    for (uint32_t i = 0; i < 3; i++)
        if (x->resultados[i] != NULL)
            *x->resultados[i] = NULL;
}

// The server's own result, with what belongs to it.
static uint32_t recoge_resultado(const iv_intercambio *x)
{
    iv_mcserv_vista *mcserv = x->mcserv;
    uint32_t resultado = mcserv->resultado;
    if (resultado != ivrexa_resultado_OK)
        return resultado;
    if (x->id_resultado != NULL)
        *x->id_resultado = mcserv->id_resultado;
    duplica_texto(mcserv->serv_buffer_64, TAM_TEXTO_CORTO, x->resultados[0]);
    duplica_texto(mcserv->serv_buffer_256, TAM_TEXTO_LARGO, x->resultados[1]);
    duplica_texto(mcserv->serv_buffer2_256, TAM_TEXTO_LARGO, x->resultados[2]);
    return resultado;
}

// Waits until the server has seen the receipt, and frees the channel. A server with a window never leaves
// estado_servidor 1, so this ends at once for it.
static void despide(iv_intercambio *x)
{
    iv_mcserv_vista *mcserv = x->mcserv;
    for (;;) {
        iv_mutex_bloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_AVISADO);
        if (mcserv->info_estadoComando == iv_mcserv_estadoComando_AVISADO_SERVIDOR ||
            mcserv->estado_servidor == iv_mcserv_estadoServidor_ESPERA ||
            mcserv->estado_servidor == iv_mcserv_estadoServidor_PARADO || mcserv->servidor_terminado == 1)
            break;
        if (iv_mcserv_CLIENTE_ESPERA_SERVIDOR_AVISADO(x->ind_datServ, mcserv) == CIERTO)
            break;
        iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_AVISADO);
    }
    mcserv->ocupacion = iv_mcserv_ocupacion_LIBRE;
    x->reclamado = FALSO;
    iv_fallo("comando libre");
    mcserv->info_estadoComando = iv_mcserv_estadoComando_NINGUNO;
    iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_AVISADO);
}

// Deliberate: a channel that could not be claimed runs the later steps all the same.
static uint32_t intercambia(iv_intercambio *x)
{
    iv_mcserv_vista *mcserv = x->mcserv;
    x->reclamado = reclama(x);
    if (x->reclamado == CIERTO)
        escribe_comando(x);
    iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_RECLAMA);

    HWND hwnd_servidor = reinterpret_cast<HWND>(mcserv->hwnd_servidor);
    if (hwnd_servidor != NULL && (x->opciones_ventana & ivrexa_ventana_TRAE_SERVIDOR) != 0)
        iv_ventana()->SetForegroundWindow(hwnd_servidor);
    HWND hwnd_activa = iv_ventana()->GetActiveWindow();

    uint32_t resultado = mcserv->msg_servidor != 0 ? ejecuta_con_mensaje(x) : ejecuta_con_rondas(x);
    if ((x->opciones_ventana & ivrexa_ventana_DEVUELVE_FOCO) != 0)
        iv_ventana()->SetForegroundWindow(hwnd_activa);

    vacia_resultados(x);
    if (resultado == ivrexa_resultado_OK)
        resultado = recoge_resultado(x);
    iv_fallo("comando recogido");
    mcserv->info_estadoComando = iv_mcserv_estadoComando_RECIBIDO_POR_CLIENTE;
    iv_mutex_desbloquea_2(x->mutex, iv_sitio_CLIENTE_ESPERA_TOMA, iv_sitio_CLIENTE_ESPERA_FIN);

    despide(x);
    x->completo = CIERTO;
    return resultado;
}

// An exception leaves the exchange, of the heap or of a window procedure of this very thread: a program that lives does
// not leave its channel claimed. A server without a window that has run the command waits for the receipt.
static void abandona(iv_intercambio *x)
{
    while (x->mutex->nivel_bloqueo > 0)
        iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_RECLAMA);
    if (x->reclamado != CIERTO)
        return;
    iv_mutex_bloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_FIN);
    x->mcserv->info_estadoComando = iv_mcserv_estadoComando_RECIBIDO_POR_CLIENTE;
    iv_mutex_desbloquea(x->mutex, iv_sitio_CLIENTE_ESPERA_FIN);
    despide(x);
}

// Deliberate: the ids are written before the channel is claimed and cleared after it is freed, without the mutex.
static uint32_t ejecuta_en_canal(iv_intercambio *x, const char *nombre_servicio, char **nombre_MCServ,
                                 iv_shared_bloque *shared_MCServ)
{
    char *nombre_mutex = iv_nombre_mutex_servicio(nombre_servicio, 0);
    x->mutex = iv_mutex_crea(nombre_mutex, FALSO);
    iv_mem_libera(&nombre_mutex);
    x->mcserv = iv_mcserv_vista_de(shared_MCServ);

    uint32_t resultado = ivrexa_resultado_ERROR;
    __try {
        x->mcserv->id_comando = x->id_comando;
        iv_fallo("comando id_comando");
        x->mcserv->id_bloque_MCCom_entrada = x->id_bloque_MCCom_entrada;
        iv_mcbase_inicia_comando(x->ind_datServ, x->id_comando);
        resultado = intercambia(x);
    } __finally {
        if (x->completo != CIERTO)
            abandona(x);
        iv_mcbase_termina_comando(x->ind_datServ, x->id_comando);
        x->mcserv->id_comando = 0;
        iv_fallo("comando quita id_comando");
        x->mcserv->id_bloque_MCCom_entrada = 0;
        iv_mem_libera(nombre_MCServ);
        iv_mutex_destruye(&x->mutex);
    }
    return resultado;
}

// 0 when nobody ever made the service's channel.
static uint32_t ejecuta_si_hay_canal(iv_intercambio *x, const char *nombre_servicio)
{
    uint32_t resultado = ivrexa_resultado_NINGUNO;
    char *nombre_MCServ = iv_nombre_MCServ(nombre_servicio);
    iv_shared_bloque *shared_MCServ = NULL;
    __try {
        int16_t ya_estaba_creado;
        if (iv_shared_existe(nombre_MCServ) == CIERTO)
            shared_MCServ = iv_mcserv_crea_bloque(nombre_MCServ, &ya_estaba_creado);
        if (shared_MCServ != NULL)
            resultado = ejecuta_en_canal(x, nombre_servicio, &nombre_MCServ, shared_MCServ);
    } __finally {
        iv_shared_destruye(&shared_MCServ);
        if (nombre_MCServ != NULL)
            iv_mem_libera(&nombre_MCServ);
    }
    return resultado;
}

static void anota_comando(int16_t indicador, const char *nombre_servicio, const iv_intercambio *x)
{
    if (iv_mcbase_hay_monitor(iv_tipo_CLIENTE) == CIERTO)
        iv_mcbase_anota_actividad(iv_tipo_CLIENTE, iv_actividad_COMANDO, indicador, nombre_servicio, x->id_comando,
                                  x->id_bloque_MCCom_entrada);
}

// Deliberate: a program that is not a client of the service gets 3 without the closing records.
uint32_t iv_mcserv_ejecuta_comando(const char *nombre_servicio, uint32_t id_comando, uint16_t opciones_ventana,
                                   uint32_t id_bloque_MCCom_entrada, const wchar_t *buffer_cliente_64,
                                   const wchar_t *buffer_cliente_256, const wchar_t *buffer_cliente2_256,
                                   uint32_t *id_resultado, wchar_t **resultado_64, wchar_t **resultado_256,
                                   wchar_t **resultado_256_2)
{
    iv_intercambio x = {};
    x.id_comando = id_comando;
    x.opciones_ventana = opciones_ventana;
    x.id_bloque_MCCom_entrada = id_bloque_MCCom_entrada;
    x.textos[0] = buffer_cliente_64;
    x.textos[1] = buffer_cliente_256;
    x.textos[2] = buffer_cliente2_256;
    x.id_resultado = id_resultado;
    x.resultados[0] = resultado_64;
    x.resultados[1] = resultado_256;
    x.resultados[2] = resultado_256_2;

    iv_traza_inicio_comando(nombre_servicio, id_comando, id_bloque_MCCom_entrada, buffer_cliente_64, buffer_cliente_256,
                            buffer_cliente2_256);
    anota_comando(CIERTO, nombre_servicio, &x);
    if (iv_reg_dame_servicio_solicitado(nombre_servicio, &x.ind_datServ, &x.hwnd_cliente) != CIERTO)
        return ivrexa_resultado_ERROR;

    uint32_t resultado = ejecuta_si_hay_canal(&x, nombre_servicio);

    anota_comando(FALSO, nombre_servicio, &x);
    iv_traza_fin_comando(nombre_servicio, id_comando, resultado, id_resultado, resultado_64, resultado_256,
                         resultado_256_2);
    return resultado;
}
