#include "iv_reg.h"

#include "iv_excepcion.h"
#include "iv_fallo.h"
#include "iv_mcbase.h"
#include "iv_mcserv.h"
#include "iv_mem.h"
#include "iv_nombre.h"
#include "iv_traza.h"

#define IV_MODULO "iv_reg"

iv_reg_programa *volatile s_programa = NULL;

static iv_reg_programa s_registro_programa;
static WNDPROC s_wndproc_ultima = NULL; // the procedure last replaced, for what still comes after the close

static const SIZE_T TAM_PILA = 128; // the system rounds it up
static const uint32_t GRACIA_HILO_MS = 500;
static const uint32_t ESPERA_TERMINAR_MS = 400;
static const uint32_t VUELTA_NOTIFICACION_MS = 500;
static const uint32_t NUM_VUELTAS_NOTIFICACION = 60;
static const uint32_t ESPERA_NOTIFICADORES_MS = 2000;
static const uint32_t ESPERA_SALIDA_MS = 5000;

static volatile LONG s_num_notificadores = 0; // threads inside iv_reg_notifica_a_cliente

int16_t iv_reg_esta_cerrando(void)
{
    const iv_reg_programa *programa = s_programa;
    return programa != NULL && programa->estado_registro >= iv_reg_CERRANDO ? CIERTO : FALSO;
}

// ---- Finding services

static iv_reg_servicio_prestado *busca_prestado(const char *nombre_servicio)
{
    for (uint32_t i = 0; s_programa != NULL && i < s_programa->num_servicios_prestados; i++)
        if (iv_mem_cadenas_iguales(s_programa->servicios_prestados[i].nombre_servicio, nombre_servicio) == CIERTO)
            return &s_programa->servicios_prestados[i];
    return NULL;
}

static iv_reg_servicio_solicitado *busca_solicitado(const char *nombre_servicio)
{
    for (uint32_t i = 0; s_programa != NULL && i < s_programa->num_servicios_solicitados; i++)
        if (iv_mem_cadenas_iguales(s_programa->servicios_solicitados[i].nombre_servicio, nombre_servicio) == CIERTO)
            return &s_programa->servicios_solicitados[i];
    return NULL;
}

uint32_t iv_reg_dame_id_MSG_servicio(const char *nombre_servicio)
{
    const iv_reg_servicio_prestado *prestado = busca_prestado(nombre_servicio);
    if (prestado != NULL)
        return prestado->id_MSG_servicio;
    const iv_reg_servicio_solicitado *solicitado = busca_solicitado(nombre_servicio);
    return solicitado != NULL ? solicitado->id_MSG_servicio : 0;
}

int16_t iv_reg_dame_servicio_solicitado(const char *nombre_servicio, uint32_t *ind_datServ, ivrexa_hwnd *hwnd_programa)
{
    const iv_reg_servicio_solicitado *solicitado = busca_solicitado(nombre_servicio);
    if (solicitado == NULL)
        return FALSO;
    *ind_datServ = solicitado->ind_datServ;
    *hwnd_programa = s_programa->hwnd_programa;
    return CIERTO;
}

// The channel of a service offered, opened if the service does not hold it yet; NULL without one. *existia, if given,
// tells whether the block was there before.
static iv_mcserv_vista *canal_de(iv_reg_servicio_prestado *servicio, int16_t *existia)
{
    int16_t ya_estaba_creado = CIERTO;
    if (servicio->shared_MCServ == NULL) {
        char *nombre_MCServ = iv_nombre_MCServ(servicio->nombre_servicio);
        servicio->shared_MCServ = iv_mcserv_crea_bloque(nombre_MCServ, &ya_estaba_creado);
        iv_mem_libera(&nombre_MCServ);
    }
    if (existia != NULL)
        *existia = ya_estaba_creado;
    return iv_mcserv_vista_de(servicio->shared_MCServ);
}

// ---- The program's window

static void instala_wndproc(void)
{
    if (s_programa->wndproc_anterior != NULL)
        return;
    LONG_PTR nueva = reinterpret_cast<LONG_PTR>(&iv_reg_wndproc_programa);
    LONG_PTR anterior = iv_ventana()->SetWindowLongPtrW(s_programa->hwnd_programa, GWLP_WNDPROC, nueva);
    s_programa->wndproc_anterior = reinterpret_cast<WNDPROC>(anterior);
    s_wndproc_ultima = s_programa->wndproc_anterior;
}

static void quita_wndproc(void)
{
    if (s_programa->wndproc_anterior == NULL)
        return;
    LONG_PTR anterior = reinterpret_cast<LONG_PTR>(s_programa->wndproc_anterior);
    iv_ventana()->SetWindowLongPtrW(s_programa->hwnd_programa, GWLP_WNDPROC, anterior);
    iv_mcbase_programa_deja_ventana(iv_reg_wndproc_programa, s_programa->wndproc_anterior);
    s_programa->wndproc_anterior = NULL;
}

void iv_reg_monitor_deja_ventana(WNDPROC quitado, WNDPROC hallado)
{
    if (s_registro_programa.wndproc_anterior == quitado)
        s_registro_programa.wndproc_anterior = hallado;
    if (s_wndproc_ultima == quitado)
        s_wndproc_ultima = hallado;
}

// ---- How a thread of ours ends: by itself or by the close, never both at once. A thread that is ended while it leaves
// would take a lock of the system's with it, and the process would hang.

enum : LONG { SALIDA_NINGUNA = 0, SALIDA_PROPIA = 1, SALIDA_FORZADA = 2 };

static volatile LONG s_salida_registro;
static volatile LONG s_salida_servidor[i_NUM_MAX_SERVICIOS_PRESTADOS];
static volatile LONG s_salida_cliente[i_NUM_MAX_SERVICIOS_SOLICITADOS];

static volatile LONG *salida_de(const iv_reg_servicio_prestado *servicio)
{
    return &s_salida_servidor[servicio - s_registro_programa.servicios_prestados];
}

static volatile LONG *salida_de(const iv_reg_servicio_solicitado *solicitado)
{
    return &s_salida_cliente[solicitado - s_registro_programa.servicios_solicitados];
}

static DWORD sal_del_hilo(volatile LONG *salida)
{
    if (InterlockedCompareExchange(salida, SALIDA_PROPIA, SALIDA_NINGUNA) == SALIDA_FORZADA)
        Sleep(INFINITE); // the close is ending this thread
    ExitThread(0);
}

// ---- Start of a registration

static DWORD WINAPI bucle_registro(void *id_programa)
{
    int16_t parar = FALSO;
    while (parar != CIERTO) {
        const iv_reg_programa *programa = s_programa;
        if (programa == NULL || programa->estado_registro >= iv_reg_CERRANDO)
            break;
        parar = iv_mcbase_estoy_vivo(*static_cast<const uint16_t *>(id_programa));
    }
    return sal_del_hilo(&s_salida_registro);
}

static const char *nombre_tipo(uint32_t tipo_programa)
{
    switch (tipo_programa) {
    case iv_tipo_SERVIDOR:
        return "Servidor";
    case iv_tipo_CLIENTE:
        return "Cliente";
    case iv_tipo_MONITOR:
        return "Monitor";
    default:
        return "Error";
    }
}

static void inicia_registro(uint32_t tipo_programa, const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa)
{
    iv_reg_programa *programa = &s_registro_programa;
    programa->estado_registro = 0;
    programa->ruta_ejecutable = NULL;
    programa->hwnd_programa = NULL;
    programa->wndproc_anterior = NULL;
    programa->usa_procesaComandoExterno = 0;
    programa->num_servicios_prestados = 0;
    programa->siguiente_id_cliente = i_PRIMER_ID_CLIENTE;
    programa->num_servicios_solicitados = 0;
    programa->num_documentos = 0;
    s_num_notificadores = 0; // what the last session left are threads that it ended

    programa->id_programa = iv_mcbase_registra_programa(tipo_programa, ruta_ejecutable, hwnd_programa);
    s_programa = programa;
    DWORD id_hilo = 0;
    s_salida_registro = SALIDA_NINGUNA;
    programa->hilo_registro = CreateThread(NULL, TAM_PILA, bucle_registro, &programa->id_programa, 0, &id_hilo);
    programa->id_hilo_registro = id_hilo;
    iv_traza_cadena("*** Inicio registro ");
    iv_traza_cadena(nombre_tipo(tipo_programa));
}

// ---- Server registration

static void anexa_servicio(const char *nombre_servicio, uint16_t version, int16_t con_funcion, void *datos_externos,
                           ivrexa_funcion_comando procesaComandoExterno)
{
    iv_assert(s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS);
    if (s_programa->num_servicios_prestados >= i_NUM_MAX_SERVICIOS_PRESTADOS)
        return;

    iv_reg_servicio_prestado *servicio = &s_programa->servicios_prestados[s_programa->num_servicios_prestados];
    iv_traza_registro_servicio_prestado(nombre_servicio, version);
    servicio->nombre_servicio = iv_mem_duplica_cadena(nombre_servicio);
    servicio->version = version;
    servicio->datos_externos = con_funcion == CIERTO ? datos_externos : NULL;
    servicio->procesaComandoExterno = con_funcion == CIERTO ? procesaComandoExterno : NULL;
    servicio->nombre_MCServ = NULL;
    servicio->id_MSG_servicio = 0;
    servicio->mutex_interno = NULL;
    servicio->mutex_MCServ = NULL;
    servicio->shared_MCServ = NULL;
    servicio->hilo_servidor = NULL;
    servicio->id_hilo_servidor = 0;
    servicio->estado_hilo_servidor = iv_reg_hilo_NINGUNO;
    servicio->iv_comdat_salida_postergada = NULL;
    s_programa->num_servicios_prestados++;
}

// Deliberate: in a program that is registered already, path, window and flag are not looked at.
void iv_reg_registra_servidor(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa, const char *nombre_servicio,
                              uint16_t version, int16_t usa_procesaComandoExterno, void *datos_externos,
                              ivrexa_funcion_comando procesaComandoExterno)
{
    iv_traza_registro_servidor(ruta_ejecutable, hwnd_programa);
    if (s_programa == NULL) {
        inicia_registro(iv_tipo_SERVIDOR, ruta_ejecutable, hwnd_programa);
        s_programa->ruta_ejecutable = iv_mem_duplica_cadena(ruta_ejecutable);
        s_programa->hwnd_programa = hwnd_programa;
        s_programa->usa_procesaComandoExterno = static_cast<uint16_t>(usa_procesaComandoExterno);
        s_programa->estado_registro = iv_reg_REGISTRADO;
    }
    anexa_servicio(nombre_servicio, version, usa_procesaComandoExterno, datos_externos, procesaComandoExterno);
}

// Deliberate: both branches test for null, so a service of a _net server always makes the second report.
static void comprueba_funcion(ivrexa_funcion_comando procesaComandoExterno)
{
    if (s_programa->usa_procesaComandoExterno == CIERTO)
        iv_assert_puntero(procesaComandoExterno);
    else
        iv_assert(procesaComandoExterno != NULL);
}

void iv_reg_anyade_servicio(const char *nombre_servicio, uint16_t version, void *datos_externos,
                            ivrexa_funcion_comando procesaComandoExterno)
{
    iv_assert_puntero(s_programa);
    if (s_programa == NULL)
        return;
    comprueba_funcion(procesaComandoExterno);
    anexa_servicio(nombre_servicio, version, static_cast<int16_t>(s_programa->usa_procesaComandoExterno),
                   datos_externos, procesaComandoExterno);
}

// ---- End of the registration: services become reachable

static void registra_mensaje(iv_reg_servicio_prestado *servicio)
{
    char *nombre_MSG = iv_nombre_MSG_servicio(servicio->nombre_servicio);
    servicio->id_MSG_servicio = iv_ventana()->RegisterWindowMessageA(nombre_MSG);
    iv_mem_libera(&nombre_MSG);
}

static void crea_mutexes(iv_reg_servicio_prestado *servicio)
{
    char *nombre_mutex = iv_nombre_mutex_servicio(servicio->nombre_servicio, 0);
    char *nombre_interno = iv_nombre_mutex_servicio_interno(servicio->nombre_servicio);
    servicio->mutex_MCServ = iv_mutex_crea(nombre_mutex, CIERTO);
    servicio->mutex_interno = iv_mutex_crea(nombre_interno, CIERTO);
    iv_mem_libera(&nombre_mutex);
    iv_mem_libera(&nombre_interno);
}

static void crea_canal(iv_reg_servicio_prestado *servicio)
{
    iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_INICIA);
    int16_t ya_existia;
    iv_shared_destruye(&servicio->shared_MCServ); // an early look at the service may have opened it
    servicio->shared_MCServ = iv_mcserv_crea_bloque(servicio->nombre_MCServ, &ya_existia);
    if (servicio->shared_MCServ != NULL)
        iv_mcserv_inicia(iv_mcserv_vista_de(servicio->shared_MCServ), servicio->version, ya_existia);
    iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_INICIA);
}

// The thread is made suspended and goes once the channel is ready: a server that registers again while a client kept
// the block alive would find its own old servidor_terminado there.
static void crea_hilo_servidor(iv_reg_servicio_prestado *servicio)
{
    DWORD id_hilo = 0;
    *salida_de(servicio) = SALIDA_NINGUNA;
    servicio->hilo_servidor = CreateThread(NULL, TAM_PILA, iv_reg_bucle_servidor, servicio, CREATE_SUSPENDED, &id_hilo);
    servicio->id_hilo_servidor = id_hilo;
    servicio->estado_hilo_servidor = servicio->hilo_servidor != NULL ? iv_reg_hilo_CREADO : iv_reg_hilo_NINGUNO;
}

static void crea_objetos(iv_reg_servicio_prestado *servicio)
{
    if (s_programa->hwnd_programa != NULL)
        registra_mensaje(servicio);
    servicio->nombre_MCServ = iv_nombre_MCServ(servicio->nombre_servicio);
    crea_mutexes(servicio);
    crea_canal(servicio);
    if (s_programa->hwnd_programa == NULL)
        crea_hilo_servidor(servicio);
}

static void anuncia(iv_reg_servicio_prestado *servicio)
{
    if (s_programa->hwnd_programa == NULL && servicio->estado_hilo_servidor == iv_reg_hilo_NINGUNO)
        return; // nobody would serve it: its thread has ended or never was
    iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_LISTO);
    if (servicio->shared_MCServ != NULL)
        iv_mcserv_servidor_listo(iv_mcserv_vista_de(servicio->shared_MCServ), s_programa->hwnd_programa,
                                 servicio->id_MSG_servicio);
    iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_LISTO);
    iv_mcbase_anota_actividad(iv_tipo_SERVIDOR, iv_actividad_SERVICIO, CIERTO, servicio->nombre_servicio, 0, 0);
    if (servicio->estado_hilo_servidor == iv_reg_hilo_CREADO) {
        servicio->estado_hilo_servidor = iv_reg_hilo_EN_MARCHA;
        ResumeThread(servicio->hilo_servidor);
    }
}

// A service that an earlier call made reachable keeps its objects and is announced again.
void iv_reg_terminado_registro(void)
{
    iv_reg_programa *programa = s_programa;
    if (programa == NULL)
        return;
    for (uint32_t i = 0; i < programa->num_servicios_prestados; i++) {
        iv_reg_servicio_prestado *servicio = &programa->servicios_prestados[i];
        if (servicio->nombre_MCServ == NULL)
            crea_objetos(servicio);
        uint32_t ind_datServ;
        iv_mcbase_registra_servidor_de_servicio(programa->id_programa, servicio->nombre_servicio, &ind_datServ);
        servicio->ind_datServ = ind_datServ;
    }
    if (programa->hwnd_programa != NULL && programa->usa_procesaComandoExterno == CIERTO)
        instala_wndproc();
    for (uint32_t i = 0; i < programa->num_servicios_prestados; i++)
        anuncia(&programa->servicios_prestados[i]);
}

// ---- A command in the server

// What one run of a command function holds; given back however it ends.
struct iv_reg_ejecucion {
    int16_t con_mutex; // site 35 is held
    comdat *datos_entrada;
    comando *contexto;
};

static void destruye_salida(iv_reg_servicio_prestado *servicio)
{
    if (servicio->iv_comdat_salida_postergada == NULL)
        return;
    iv_comdat_destruye(servicio->iv_comdat_salida_postergada);
    servicio->iv_comdat_salida_postergada = NULL;
}

static void prepara_ejecucion(iv_reg_servicio_prestado *servicio, iv_mcserv_vista *mcserv, uint32_t id_bloque_entrada,
                              iv_reg_ejecucion *ejecucion)
{
    destruye_salida(servicio);
    uint64_t hwnd_cliente = mcserv->hwnd_cliente;
    uint64_t hwnd_servidor = mcserv->hwnd_servidor;
    if (id_bloque_entrada != 0)
        ejecucion->datos_entrada =
            iv_mcserv_lee_datos_entrada(servicio->nombre_servicio, servicio->shared_MCServ, id_bloque_entrada);
    comando *contexto = static_cast<comando *>(iv_mem_malloc(sizeof(comando)));
    contexto->datos_entrada = ejecucion->datos_entrada;
    contexto->datos_salida = NULL;
    contexto->hwnd_cliente = hwnd_cliente;
    contexto->hwnd_servidor = reinterpret_cast<ivrexa_hwnd>(hwnd_servidor);
    ejecucion->contexto = contexto;
}

static void guarda_salida(iv_reg_servicio_prestado *servicio, comdat *datos_salida)
{
    if (datos_salida == NULL)
        return;
    iv_assert(servicio->iv_comdat_salida_postergada == NULL);
    servicio->iv_comdat_salida_postergada = datos_salida;
}

static uint32_t ejecuta(iv_reg_servicio_prestado *servicio, iv_mcserv_vista *mcserv, uint32_t id_comando,
                        uint32_t id_bloque_entrada, iv_reg_ejecucion *ejecucion)
{
    iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_PROCESA_COMANDO);
    ejecucion->con_mutex = CIERTO;
    prepara_ejecucion(servicio, mcserv, id_bloque_entrada, ejecucion);
    ejecucion->con_mutex = FALSO;
    iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_PROCESA_COMANDO);

    int32_t resultado = servicio->procesaComandoExterno(servicio->nombre_servicio, id_comando, ejecucion->contexto,
                                                        servicio->datos_externos);

    comdat *datos_salida = ejecucion->contexto->datos_salida;
    uint32_t id_bloque_salida = datos_salida != NULL ? datos_salida->id_bloque_MCCom : 0;
    iv_traza_fin_comando(servicio->nombre_servicio, id_comando, static_cast<uint32_t>(resultado), &id_bloque_salida,
                         NULL, NULL, NULL);
    if (ejecucion->datos_entrada != NULL && ejecucion->datos_entrada != datos_salida)
        iv_comdat_destruye(ejecucion->datos_entrada);
    ejecucion->datos_entrada = NULL;
    guarda_salida(servicio, datos_salida);
    return static_cast<uint32_t>(resultado);
}

static void termina_ejecucion(iv_reg_servicio_prestado *servicio, iv_reg_ejecucion *ejecucion)
{
    if (ejecucion->con_mutex == CIERTO)
        iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_PROCESA_COMANDO);
    if (ejecucion->datos_entrada != NULL)
        iv_comdat_destruye(ejecucion->datos_entrada);
    if (ejecucion->contexto != NULL)
        iv_mem_libera(&ejecucion->contexto);
}

// Runs the service's command function. An exception passes through here; what the host put into datos_salida is then
// left alone: the host may have destroyed it.
uint32_t iv_reg_procesa_comando(iv_reg_servicio_prestado *servicio, uint32_t id_comando, uint32_t id_bloque_entrada)
{
    iv_mcserv_vista *mcserv = canal_de(servicio, NULL);
    if (mcserv == NULL || servicio->procesaComandoExterno == NULL)
        return ivrexa_resultado_ERROR;
    uint32_t resultado = ivrexa_resultado_ERROR;
    iv_reg_ejecucion ejecucion = {};
    __try {
        resultado = ejecuta(servicio, mcserv, id_comando, id_bloque_entrada, &ejecucion);
    } __finally {
        termina_ejecucion(servicio, &ejecucion);
    }
    return resultado;
}

// The library's own commands: 1 ends the server, the others do nothing. In a server without a window the quit message
// goes to the service's own thread, which the termination flag ends.
static void ejecuta_reservado(iv_reg_servicio_prestado *servicio, uint32_t id_comando)
{
    int16_t existia;
    iv_mcserv_vista *mcserv = canal_de(servicio, &existia);
    if (mcserv == NULL || existia != CIERTO || id_comando != ivrexa_comando_TERMINAR)
        return;
    iv_mcserv_servidor_terminado(mcserv);
    iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_TERMINA);
    mcserv->servidor_terminado = 1;
    iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_TERMINA);
    servicio->estado_hilo_servidor = iv_reg_hilo_NINGUNO;
    iv_ventana()->PostQuitMessage(1);
}

static uint32_t despacha(iv_reg_servicio_prestado *servicio, uint32_t id_comando, uint32_t id_bloque_entrada)
{
    if (iv_mcserv_es_comando_reservado(id_comando) != CIERTO)
        return iv_reg_procesa_comando(servicio, id_comando, id_bloque_entrada);
    ejecuta_reservado(servicio, id_comando);
    return ivrexa_resultado_OK;
}

// ---- Server with a window

static iv_reg_servicio_prestado *busca_prestado_por_mensaje(UINT msg)
{
    for (uint32_t i = 0; i < s_programa->num_servicios_prestados; i++)
        if (s_programa->servicios_prestados[i].id_MSG_servicio == msg)
            return &s_programa->servicios_prestados[i];
    return NULL;
}

static iv_reg_servicio_solicitado *busca_solicitado_por_mensaje(UINT msg)
{
    for (uint32_t i = 0; i < s_programa->num_servicios_solicitados; i++)
        if (s_programa->servicios_solicitados[i].id_MSG_servicio == msg)
            return &s_programa->servicios_solicitados[i];
    return NULL;
}

// Deliberate: the datum of this call is the message's wParam, the client's id, not the notification's datum.
static void recibe_notificacion(iv_reg_servicio_solicitado *solicitado, uint32_t wparam, uint32_t lparam)
{
    if (solicitado->funcion_notificacion_cliente == NULL)
        return;
    if (solicitado->id_cliente == 0)
        solicitado->id_cliente = lparam;
    solicitado->funcion_notificacion_cliente(solicitado->nombre_servicio, solicitado->id_cliente, wparam);
}

// CIERTO when the message was a service's and has been answered. A service without a command function leaves its
// message to the host's own procedure.
static int16_t responde(UINT msg, uint32_t wparam, uint32_t lparam, LRESULT *respuesta)
{
    iv_reg_servicio_prestado *prestado = busca_prestado_por_mensaje(msg);
    if (prestado != NULL) {
        if (prestado->procesaComandoExterno == NULL)
            return FALSO;
        *respuesta = static_cast<LRESULT>(despacha(prestado, wparam, lparam));
        return CIERTO;
    }
    iv_reg_servicio_solicitado *solicitado = busca_solicitado_por_mensaje(msg);
    if (solicitado == NULL)
        return FALSO;
    recibe_notificacion(solicitado, wparam, lparam);
    *respuesta = 0;
    return CIERTO;
}

// Services that have no message yet bear 0, which is a message of the system's own.
LRESULT CALLBACK iv_reg_wndproc_programa(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    LRESULT respuesta;
    if (s_programa != NULL && msg != 0 && wparam != 0 &&
        responde(msg, static_cast<uint32_t>(wparam), static_cast<uint32_t>(lparam), &respuesta) == CIERTO)
        return respuesta;

    WNDPROC anterior = s_programa != NULL ? s_programa->wndproc_anterior : NULL;
    if (anterior == NULL)
        anterior = s_wndproc_ultima;
    return iv_ventana()->CallWindowProcW(anterior, hwnd, msg, wparam, lparam);
}

// ---- Server without a window: one thread for each service

// Returns with site 29 held; CIERTO when a command has come, FALSO when the service ends.
static int16_t espera_comando(iv_reg_servicio_prestado *servicio, iv_mcserv_vista *mcserv)
{
    for (;;) {
        iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_RECIBE);
        if (mcserv->info_estadoComando == iv_mcserv_estadoComando_ESCRITO)
            return CIERTO;
        if (iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(servicio->ind_datServ, mcserv) == CIERTO)
            mcserv->servidor_terminado = 1;
        if (mcserv->servidor_terminado == 1)
            return FALSO;
        iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_RECIBE);
    }
}

// An exception that escapes the command function gives 3, and the mutex goes back to the depth it had.
static __declspec(noinline) uint32_t
    despacha_protegido(iv_reg_servicio_prestado *servicio, uint32_t id_comando, uint32_t id_bloque_entrada)
{
    uint32_t resultado;
    // NOLINTNEXTLINE(clang-analyzer-deadcode.DeadStores): the handler reads it
    int32_t nivel = servicio->mutex_MCServ->nivel_bloqueo;
    iv_excepcion_guarda guarda;
    iv_excepcion_prepara(&guarda);
    __try {
        resultado = despacha(servicio, id_comando, id_bloque_entrada);
    } __except (iv_excepcion_filtra(&guarda, GetExceptionInformation())) {
        resultado = ivrexa_resultado_ERROR;
        while (servicio->mutex_MCServ->nivel_bloqueo > nivel)
            iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_PROCESA_COMANDO);
        iv_excepcion_acaba(&guarda);
    }
    return resultado;
}

// Site 29 is held the whole time, so that a client waits in the mutex and not in rounds. Deliberate.
static void atiende_comando(iv_reg_servicio_prestado *servicio, iv_mcserv_vista *mcserv)
{
    mcserv->estado_servidor = iv_mcserv_estadoServidor_EJECUTA;
    iv_fallo("servidor ejecuta");
    mcserv->info_estadoComando = iv_mcserv_estadoComando_EN_EJECUCION;
    iv_fallo("servidor en ejecucion");
    mcserv->resultado = 0;
    mcserv->resultado = despacha_protegido(servicio, mcserv->id_comando, mcserv->id_bloque_MCCom_entrada);
    iv_fallo("servidor resultado");
    mcserv->info_estadoComando = iv_mcserv_estadoComando_TERMINADO_POR_SERVIDOR;
    iv_fallo("servidor terminado");
    mcserv->estado_servidor = iv_mcserv_estadoServidor_TERMINADO;
    iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_RECIBE);
}

// The rounds of this wait run without the mutex. A client that counts as dead ends the wait, not the service.
static void espera_recibo(iv_reg_servicio_prestado *servicio, iv_mcserv_vista *mcserv)
{
    int16_t seguir = CIERTO;
    while (seguir == CIERTO) {
        iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_ESPERA_RECIBO);
        if (mcserv->servidor_terminado == 1 ||
            mcserv->info_estadoComando == iv_mcserv_estadoComando_RECIBIDO_POR_CLIENTE)
            seguir = FALSO;
        else
            iv_assert(mcserv->info_estadoComando == iv_mcserv_estadoComando_TERMINADO_POR_SERVIDOR);
        iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_ESPERA_RECIBO);
        if (seguir == CIERTO &&
            iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO(servicio->ind_datServ, mcserv) == CIERTO)
            seguir = FALSO;
    }
}

static void sirve(iv_reg_servicio_prestado *servicio, iv_mcserv_vista *mcserv)
{
    while (mcserv->servidor_terminado != 1) {
        iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_ESPERA);
        mcserv->estado_servidor = iv_mcserv_estadoServidor_ESPERA;
        iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_ESPERA);

        if (espera_comando(servicio, mcserv) != CIERTO) {
            iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_RECIBE);
            break;
        }
        atiende_comando(servicio, mcserv);
        espera_recibo(servicio, mcserv);

        iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_AVISADO);
        mcserv->info_estadoComando = iv_mcserv_estadoComando_AVISADO_SERVIDOR;
        iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_AVISADO);
    }
    iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_TERMINADO);
    mcserv->estado_servidor = iv_mcserv_estadoServidor_PARADO;
    iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_TERMINADO);
}

DWORD WINAPI iv_reg_bucle_servidor(void *arg)
{
    iv_reg_servicio_prestado *servicio = static_cast<iv_reg_servicio_prestado *>(arg);
    iv_mcserv_vista *mcserv = iv_mcserv_vista_de(servicio->shared_MCServ);
    if (mcserv != NULL)
        sirve(servicio, mcserv);
    servicio->estado_hilo_servidor = iv_reg_hilo_NINGUNO; // the last act: a close may follow at once
    return sal_del_hilo(salida_de(servicio));
}

// ---- Server: what hosts call while a command runs

int16_t iv_reg_get_datos_entrada_comando(const char *nombre_servicio, uint32_t id_comando,
                                         uint32_t *id_datos_entrada_comando, wchar_t *buffer_cliente_64,
                                         wchar_t *buffer_cliente_256, wchar_t *buffer_cliente2_256)
{
    int16_t resultado = FALSO;
    iv_reg_servicio_prestado *servicio = busca_prestado(nombre_servicio);
    iv_mcserv_vista *mcserv = servicio != NULL ? canal_de(servicio, NULL) : NULL;
    if (mcserv != NULL)
        resultado = iv_mcserv_dame_comando(mcserv, id_comando, id_datos_entrada_comando, buffer_cliente_64,
                                           buffer_cliente_256, buffer_cliente2_256);
    iv_traza_get_datos_entrada_comando(nombre_servicio, id_comando, id_datos_entrada_comando, buffer_cliente_64,
                                       buffer_cliente_256, buffer_cliente2_256, resultado);
    return resultado;
}

int16_t iv_reg_set_datos_salida_comando(const char *nombre_servicio, uint32_t id_comando,
                                        uint32_t id_datos_salida_comando, const wchar_t *resultado_64,
                                        const wchar_t *resultado_256, const wchar_t *resultado_256_2)
{
    int16_t resultado = FALSO;
    iv_reg_servicio_prestado *servicio = busca_prestado(nombre_servicio);
    iv_mcserv_vista *mcserv = servicio != NULL ? canal_de(servicio, NULL) : NULL;
    if (mcserv != NULL)
        resultado = iv_mcserv_pon_resultado(mcserv, id_comando, id_datos_salida_comando, resultado_64, resultado_256,
                                            resultado_256_2);
    iv_traza_set_datos_entrada_comando(nombre_servicio, id_comando, id_datos_salida_comando, resultado_64,
                                       resultado_256, resultado_256_2, resultado);
    return resultado;
}

static uint32_t cuenta_hilos_servidor(void)
{
    uint32_t num = 0;
    for (uint32_t i = 0; s_programa != NULL && i < s_programa->num_servicios_prestados; i++)
        if (s_programa->servicios_prestados[i].estado_hilo_servidor != iv_reg_hilo_NINGUNO)
            num++;
    return num;
}

void iv_reg_espera_comando_terminar_servidor(void)
{
    while (cuenta_hilos_servidor() > 0)
        Sleep(ESPERA_TERMINAR_MS);
}

void iv_reg_notifica_a_cliente(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato, uint32_t id_datos)
{
    InterlockedIncrement(&s_num_notificadores);
    iv_reg_servicio_prestado *servicio = iv_reg_esta_cerrando() != CIERTO ? busca_prestado(nombre_servicio) : NULL;
    iv_mcserv_vista *mcserv = servicio != NULL ? canal_de(servicio, NULL) : NULL;
    if (mcserv != NULL && servicio->mutex_interno != NULL) // none before iv_reg_terminado_registro
        iv_mcserv_notifica(mcserv, servicio->mutex_interno, id_cliente, dato, id_datos);
    InterlockedDecrement(&s_num_notificadores);
}

// ---- Either side: storing command data

struct iv_reg_guardado {
    uint32_t id_comando;
    uint32_t id_bloque_MCCom;
};

static void guarda_en_canal(comdat *comdat, iv_mcserv_vista *mcserv, iv_reg_guardado *guardado)
{
    guardado->id_comando = mcserv->id_comando;
    uint32_t id_bloque_MCCom = iv_mcserv_siguiente_id_bloque(mcserv);
    if (iv_mcserv_guarda_datos(comdat, id_bloque_MCCom) == CIERTO)
        guardado->id_bloque_MCCom = id_bloque_MCCom;
}

// Numbers and stores under site 34. *shared_MCServ stays open for the caller.
static void guarda_bloqueando(comdat *comdat, iv_mutex *mutex, const char *nombre_MCServ,
                              iv_shared_bloque **shared_MCServ, iv_reg_guardado *guardado)
{
    iv_mutex_bloquea(mutex, iv_sitio_GUARDA_DATOS);
    __try {
        int16_t existia_MCServ;
        *shared_MCServ = iv_mcserv_crea_bloque(nombre_MCServ, &existia_MCServ);
        if (*shared_MCServ == NULL)
            existia_MCServ = FALSO;
        iv_assert(existia_MCServ == CIERTO);
        if (existia_MCServ == CIERTO)
            guarda_en_canal(comdat, iv_mcserv_vista_de(*shared_MCServ), guardado);
    } __finally {
        iv_mutex_desbloquea(mutex, iv_sitio_GUARDA_DATOS);
    }
}

// A client writes input and a server output; whoever stores what it read is the other side.
static void anota_guardado(const comdat *comdat, const iv_reg_guardado *guardado)
{
    int16_t escribe = comdat->tipo == iv_comdat_tipo_ESCRITURA ? CIERTO : FALSO;
    uint32_t tipo_programa = (comdat->es_entrada == CIERTO) == (escribe == CIERTO) ? iv_tipo_CLIENTE : iv_tipo_SERVIDOR;
    uint32_t actividad = comdat->es_entrada == CIERTO ? iv_actividad_DATOS_ENTRADA : iv_actividad_DATOS_SALIDA;
    iv_mcbase_anota_actividad(tipo_programa, actividad, CIERTO, comdat->nombre_servicio, guardado->id_comando,
                              guardado->id_bloque_MCCom);
}

uint32_t iv_reg_guarda_datos(comdat *comdat)
{
    if (comdat == NULL)
        return 0;
    char *nombre_MCServ = iv_nombre_MCServ(comdat->nombre_servicio);
    char *nombre_mutex = iv_nombre_mutex_servicio(comdat->nombre_servicio, 0);
    iv_mutex *mutex = iv_mutex_crea(nombre_mutex, FALSO);
    iv_shared_bloque *shared_MCServ = NULL;
    iv_reg_guardado guardado = {};
    guarda_bloqueando(comdat, mutex, nombre_MCServ, &shared_MCServ, &guardado);
    iv_mutex_destruye(&mutex);
    iv_mem_libera(&nombre_mutex);
    iv_mem_libera(&nombre_MCServ);

    anota_guardado(comdat, &guardado);
    iv_shared_destruye(&shared_MCServ);
    return guardado.id_bloque_MCCom;
}

// ---- Client: notifications

static void entrega(const iv_reg_servicio_solicitado *solicitado, uint32_t dato)
{
    uint32_t id_cliente = solicitado->id_cliente;
    if (solicitado->funcion_notificacion_cliente != NULL)
        solicitado->funcion_notificacion_cliente(solicitado->nombre_servicio, id_cliente, dato);
    HWND hwnd_programa = s_registro_programa.hwnd_programa;
    if (hwnd_programa != NULL)
        iv_ventana()->PostMessageW(hwnd_programa, solicitado->id_MSG_servicio, id_cliente, static_cast<LPARAM>(dato));
}

static int16_t acaba_notificaciones(const iv_reg_servicio_solicitado *solicitado, iv_mcserv_vista *mcserv)
{
    return mcserv->servidor_terminado == 1 || solicitado->terminar_hilo_cliente == 1 ? CIERTO : FALSO;
}

// Takes the notification, whoever it is for, and waits up to 30 s for its receipt with site 33 held: the server cannot
// see the state until then. Deliberate; the receipt is written without the mutex.
static void toma_notificacion(const iv_reg_servicio_solicitado *solicitado, iv_mcserv_vista *mcserv)
{
    mcserv->estado_notificacion = iv_mcserv_estadoNotificacion_TOMADA;
    iv_fallo("buzon tomada");
    if (mcserv->notificacion_dato1 == solicitado->id_cliente)
        entrega(solicitado, mcserv->notificacion_dato2);
    for (uint32_t n = 0; n < NUM_VUELTAS_NOTIFICACION; n++) {
        if (mcserv->estado_notificacion == iv_mcserv_estadoNotificacion_PROCESADA ||
            acaba_notificaciones(solicitado, mcserv) == CIERTO)
            return;
        Sleep(VUELTA_NOTIFICACION_MS);
    }
}

static void atiende_notificaciones(const iv_reg_servicio_solicitado *solicitado, iv_mcserv_vista *mcserv)
{
    for (;;) {
        iv_mutex_bloquea(solicitado->mutex_interno, iv_sitio_CLIENTE_NOTIFICACION);
        if (mcserv->estado_notificacion == iv_mcserv_estadoNotificacion_ESCRITA)
            toma_notificacion(solicitado, mcserv);
        int16_t acaba = acaba_notificaciones(solicitado, mcserv);
        iv_mutex_desbloquea(solicitado->mutex_interno, iv_sitio_CLIENTE_NOTIFICACION);
        if (acaba == CIERTO)
            return;
        Sleep(VUELTA_NOTIFICACION_MS);
    }
}

static DWORD WINAPI bucle_notificaciones_cliente(void *arg)
{
    const iv_reg_servicio_solicitado *solicitado = static_cast<iv_reg_servicio_solicitado *>(arg);
    iv_mcserv_vista *mcserv = iv_mcserv_vista_de(solicitado->shared_MCServ);
    if (mcserv != NULL)
        atiende_notificaciones(solicitado, mcserv);
    return sal_del_hilo(salida_de(solicitado));
}

uint32_t iv_reg_obtener_id_datos_notificacion(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato)
{
    const iv_reg_servicio_solicitado *solicitado = busca_solicitado(nombre_servicio);
    iv_mcserv_vista *mcserv = solicitado != NULL ? iv_mcserv_vista_de(solicitado->shared_MCServ) : NULL;
    if (mcserv == NULL || mcserv->notificacion_dato2 != dato || mcserv->notificacion_dato1 != id_cliente)
        return 0;
    return mcserv->notificacion_dato3;
}

void iv_reg_procesada_notificacion(const char *nombre_servicio)
{
    const iv_reg_servicio_solicitado *solicitado = busca_solicitado(nombre_servicio);
    iv_mcserv_vista *mcserv = solicitado != NULL ? iv_mcserv_vista_de(solicitado->shared_MCServ) : NULL;
    if (mcserv != NULL)
        mcserv->estado_notificacion = iv_mcserv_estadoNotificacion_PROCESADA;
}

// ---- Client registration

static void crea_objetos_cliente(iv_reg_servicio_solicitado *solicitado)
{
    char *nombre_MSG = iv_nombre_MSG_servicio(solicitado->nombre_servicio);
    char *nombre_interno = iv_nombre_mutex_servicio_interno(solicitado->nombre_servicio);
    char *nombre_MCServ = iv_nombre_MCServ(solicitado->nombre_servicio);
    solicitado->id_MSG_servicio = iv_ventana()->RegisterWindowMessageA(nombre_MSG);
    solicitado->mutex_interno = iv_mutex_crea(nombre_interno, FALSO);
    int16_t ya_estaba_creado;
    solicitado->shared_MCServ = iv_mcserv_crea_bloque(nombre_MCServ, &ya_estaba_creado);
    iv_mem_libera(&nombre_MSG);
    iv_mem_libera(&nombre_interno);
    iv_mem_libera(&nombre_MCServ);
}

static void anyade_solicitado(const char *nombre_servicio, ivrexa_funcion_notificacion funcion_notificacion_cliente)
{
    if (s_programa->num_servicios_solicitados >= i_NUM_MAX_SERVICIOS_SOLICITADOS)
        return;
    iv_reg_servicio_solicitado *solicitado = &s_programa->servicios_solicitados[s_programa->num_servicios_solicitados];
    s_programa->num_servicios_solicitados++;
    solicitado->nombre_servicio = iv_mem_duplica_cadena(nombre_servicio);
    uint32_t ind_datServ;
    iv_mcbase_registra_cliente_de_servicio(s_programa->id_programa, nombre_servicio, &ind_datServ);
    solicitado->ind_datServ = ind_datServ;
    solicitado->id_cliente = 0;
    solicitado->funcion_notificacion_cliente = funcion_notificacion_cliente;
    crea_objetos_cliente(solicitado);
    solicitado->terminar_hilo_cliente = 0;
    DWORD id_hilo = 0;
    *salida_de(solicitado) = SALIDA_NINGUNA;
    solicitado->hilo_cliente = CreateThread(NULL, TAM_PILA, bucle_notificaciones_cliente, solicitado, 0, &id_hilo);
    solicitado->id_hilo_cliente = id_hilo;
}

static void registra_programa_cliente(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa)
{
    inicia_registro(iv_tipo_CLIENTE, ruta_ejecutable, hwnd_programa);
    s_programa->ruta_ejecutable = iv_mem_duplica_cadena(ruta_ejecutable);
    s_programa->hwnd_programa = hwnd_programa;
    if (hwnd_programa != NULL)
        instala_wndproc();
    s_programa->estado_registro = iv_reg_REGISTRADO;
}

void iv_reg_registra_cliente(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa, const char *nombre_servicio,
                             ivrexa_funcion_notificacion funcion_notificacion_cliente)
{
    iv_traza_registro_cliente_servicio(ruta_ejecutable, hwnd_programa, nombre_servicio);
    if (s_programa == NULL)
        registra_programa_cliente(ruta_ejecutable, hwnd_programa);
    else if (hwnd_programa != NULL)
        iv_assert(hwnd_programa == s_programa->hwnd_programa);
    if (busca_solicitado(nombre_servicio) == NULL)
        anyade_solicitado(nombre_servicio, funcion_notificacion_cliente);
}

// ---- Client: documents

// The used slot of that id; NULL for none, and the first free slot in *libre, if given.
static documento *busca_documento(uint32_t id_documento, documento **libre)
{
    for (uint32_t i = 0; i < i_NUM_MAX_DOCUMENTOS; i++) {
        documento *doc = &s_programa->documentos[i];
        if (doc->id == 0) {
            if (libre != NULL && *libre == NULL)
                *libre = doc;
        } else if (doc->id == id_documento) {
            return doc;
        }
    }
    return NULL;
}

static void vacia_documento(documento *doc)
{
    if (doc->ruta != NULL)
        iv_mem_libera(&doc->ruta);
    doc->id = 0;
    for (uint32_t i = 0; i < i_NUM_MAX_SERVICIOS_SOLICITADOS; i++)
        doc->servicios[i] = 0;
}

// Emptied first: a document of id 0 fills a slot that goes on counting as free.
static void llena_documento(documento *doc, const wchar_t *ruta_documento, uint32_t id_documento)
{
    vacia_documento(doc);
    doc->ruta = iv_mem_duplica_cadena_u(ruta_documento);
    doc->id = id_documento;
}

static void comprueba_documento(const documento *doc, const wchar_t *ruta_documento, uint32_t id_documento)
{
    iv_assert(doc->id == id_documento);
    iv_assert(iv_mem_cadenas_iguales_u(doc->ruta, ruta_documento) == CIERTO);
}

static void registra_documento(const wchar_t *ruta_documento, uint32_t id_documento, uint32_t ind_solicitado)
{
    documento *libre = NULL;
    documento *doc = busca_documento(id_documento, &libre);
    if (doc == NULL && libre != NULL) {
        llena_documento(libre, ruta_documento, id_documento);
        doc = libre;
    }
    if (doc == NULL)
        return; // all slots are used: it is not recorded
    comprueba_documento(doc, ruta_documento, id_documento);
    doc->servicios[ind_solicitado] = 1;
}

uint32_t iv_reg_abierto_documento_de_cliente(const char *nombre_servicio, const wchar_t *ruta_documento,
                                             uint32_t id_documento)
{
    iv_assert(s_programa != NULL);
    if (s_programa == NULL)
        return 0;
    iv_reg_servicio_solicitado *servicio_solicitado = busca_solicitado(nombre_servicio);
    iv_assert(servicio_solicitado != NULL);
    if (servicio_solicitado == NULL)
        return 0;

    uint32_t ind_solicitado = static_cast<uint32_t>(servicio_solicitado - s_programa->servicios_solicitados);
    registra_documento(ruta_documento, id_documento, ind_solicitado);
    if (servicio_solicitado->id_cliente == 0) {
        servicio_solicitado->id_cliente = s_programa->siguiente_id_cliente;
        s_programa->siguiente_id_cliente++;
    }
    return servicio_solicitado->id_cliente;
}

void iv_reg_cerrado_documento_de_cliente(const wchar_t *ruta_documento, uint32_t id_documento)
{
    iv_assert(s_programa != NULL);
    if (s_programa == NULL)
        return;
    documento *doc = busca_documento(id_documento, NULL);
    if (doc == NULL)
        return;
    comprueba_documento(doc, ruta_documento, id_documento);
    vacia_documento(doc);
}

// ---- Close

// The guards of this process that a thread may be inside of are held meanwhile, so that it is not ended there: they
// would stay locked. What it held of a named mutex is abandoned, and the next to wait has it.
static void mata_hilo(HANDLE hilo, iv_mutex *mutex)
{
    iv_mcbase_retiene();
    iv_mutex_heap_bloquea();
    TerminateThread(hilo, 0);
    WaitForSingleObject(hilo, ESPERA_SALIDA_MS); // it is asked to end, and runs until the system sees to that
    iv_mutex_heap_desbloquea();
    iv_mcbase_suelta();
    if (mutex != NULL)
        mutex->nivel_bloqueo = 0;
}

// `mutex` is the one that the thread may hold, NULL for none.
static void para_hilo(HANDLE hilo, volatile LONG *salida, iv_mutex *mutex)
{
    DWORD codigo = 0;
    GetExitCodeThread(hilo, &codigo);
    if (codigo == STILL_ACTIVE) {
        Sleep(GRACIA_HILO_MS);
        if (InterlockedCompareExchange(salida, SALIDA_FORZADA, SALIDA_NINGUNA) == SALIDA_NINGUNA)
            mata_hilo(hilo, mutex);
        else
            WaitForSingleObject(hilo, ESPERA_SALIDA_MS);
    }
    CloseHandle(hilo);
}

static void para_latido(void)
{
    if (s_programa->hilo_registro == NULL)
        return;
    para_hilo(s_programa->hilo_registro, &s_salida_registro, NULL);
    s_programa->hilo_registro = NULL;
    s_programa->id_hilo_registro = 0;
}

static void cierra_canal(iv_reg_servicio_prestado *servicio)
{
    iv_mutex_bloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_CIERRA);
    if (servicio->shared_MCServ != NULL)
        iv_mcserv_servidor_terminado(iv_mcserv_vista_de(servicio->shared_MCServ));
    destruye_salida(servicio);
    iv_mutex_desbloquea(servicio->mutex_MCServ, iv_sitio_SERVIDOR_CIERRA);
}

// The channel is marked before its thread is stopped, so that a thread that waits sees the flag.
static void retira_servicio(iv_reg_servicio_prestado *servicio)
{
    cierra_canal(servicio);
    iv_mcbase_anota_actividad(iv_tipo_SERVIDOR, iv_actividad_SERVICIO, FALSO, servicio->nombre_servicio, 0, 0);
    if (servicio->hilo_servidor == NULL)
        return;
    para_hilo(servicio->hilo_servidor, salida_de(servicio), servicio->mutex_MCServ);
    if (*salida_de(servicio) == SALIDA_PROPIA)
        destruye_salida(servicio); // of a command that it still ran after the mark
    servicio->hilo_servidor = NULL;
    servicio->id_hilo_servidor = 0;
    servicio->estado_hilo_servidor = iv_reg_hilo_NINGUNO;
}

static void para_notificaciones(iv_reg_servicio_solicitado *solicitado)
{
    if (solicitado->hilo_cliente == NULL)
        return;
    solicitado->terminar_hilo_cliente = 1;
    para_hilo(solicitado->hilo_cliente, salida_de(solicitado), solicitado->mutex_interno);
    solicitado->hilo_cliente = NULL;
    solicitado->id_hilo_cliente = 0;
    solicitado->terminar_hilo_cliente = 0;
}

// A thread of the host that notifies gives up on the termination flag: it is given the time to see it, since mutex and
// channel go next. The bound is for one that does not run.
static void espera_notificadores(void)
{
    for (uint32_t ms = 0; ms < ESPERA_NOTIFICADORES_MS; ms++) {
        if (InterlockedCompareExchange(&s_num_notificadores, 0, 0) <= 0)
            return;
        Sleep(1);
    }
}

static void libera_mutex(iv_mutex **mutex)
{
    if (*mutex != NULL)
        iv_mutex_destruye(mutex);
}

static void libera_prestado(iv_reg_servicio_prestado *servicio)
{
    iv_mem_libera(&servicio->nombre_servicio);
    iv_mem_libera(&servicio->nombre_MCServ);
    libera_mutex(&servicio->mutex_interno);
    libera_mutex(&servicio->mutex_MCServ);
    iv_shared_destruye(&servicio->shared_MCServ);
}

static void libera_solicitado(iv_reg_servicio_solicitado *solicitado)
{
    if (solicitado->nombre_servicio != NULL)
        iv_mem_libera(&solicitado->nombre_servicio);
    libera_mutex(&solicitado->mutex_interno);
    iv_shared_destruye(&solicitado->shared_MCServ);
}

static void libera_programa(iv_reg_programa *programa)
{
    iv_mem_libera(&programa->ruta_ejecutable);
    for (uint32_t i = 0; i < programa->num_servicios_prestados; i++)
        libera_prestado(&programa->servicios_prestados[i]);
    for (uint32_t i = 0; i < programa->num_servicios_solicitados; i++)
        libera_solicitado(&programa->servicios_solicitados[i]);
    for (uint32_t i = 0; i < i_NUM_MAX_DOCUMENTOS; i++)
        vacia_documento(&programa->documentos[i]);
}

void iv_reg_cierra_sesion(void)
{
    iv_reg_programa *programa = s_programa;
    if (programa == NULL)
        return;
    programa->estado_registro = iv_reg_CERRANDO;
    iv_mcbase_abre(iv_tipo_SERVIDOR, FALSO); // a monitor that has gone took the access with it
    para_latido();
    iv_mcbase_quita_programa(programa->id_programa);
    for (uint32_t i = 0; i < programa->num_servicios_prestados; i++)
        retira_servicio(&programa->servicios_prestados[i]);
    for (uint32_t i = 0; i < programa->num_servicios_solicitados; i++)
        para_notificaciones(&programa->servicios_solicitados[i]);
    if (programa->hwnd_programa != NULL)
        quita_wndproc();
    espera_notificadores();
    libera_programa(programa);
    programa->estado_registro = iv_reg_CERRADO;
    s_programa = NULL;
}
