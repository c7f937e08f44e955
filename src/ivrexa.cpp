// The exported functions: each checks its arguments by reports and forwards. A report changes nothing in what follows;
// the modules behind meet null containers and pointers themselves, and a null text goes on as an empty one.
#include "ivrexa.h"

#include "iv_comdat.h"
#include "iv_mcbase.h"
#include "iv_mcserv.h"
#include "iv_mem.h"
#include "iv_reg.h"
#include "iv_traza.h"

#define IV_MODULO "ivrexa"

static const char *texto_o_vacio(const char *texto)
{
    return texto != NULL ? texto : "";
}

static const wchar_t *texto_o_vacio(const wchar_t *texto)
{
    return texto != NULL ? texto : L"";
}

// ---- Command data: writing

comdat *ivrexa_crea_datos_comando_entrada(const char *nombre_servicio)
{
    return iv_comdat_crea_para_grabar(nombre_servicio, CIERTO);
}

comdat *ivrexa_crea_datos_comando_salida(const char *nombre_servicio)
{
    return iv_comdat_crea_para_grabar(nombre_servicio, FALSO);
}

void ivrexa_graba_byte(comdat *comdat, const char *nombre_valor, uint8_t valor)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_byte(comdat, nombre_valor, valor);
}

void ivrexa_graba_ushort(comdat *comdat, const char *nombre_valor, uint16_t valor)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_ushort(comdat, nombre_valor, valor);
}

void ivrexa_graba_ulong(comdat *comdat, const char *nombre_valor, uint32_t valor)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_ulong(comdat, nombre_valor, valor);
}

void ivrexa_graba_double(comdat *comdat, const char *nombre_valor, double valor)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_double(comdat, nombre_valor, valor);
}

void ivrexa_graba_hwnd(comdat *comdat, const char *nombre_valor, ivrexa_hwnd valor)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_hwnd(comdat, nombre_valor, valor);
}

void ivrexa_graba_buffer(comdat *comdat, const char *nombre_valor, const void *buffer, uint32_t tam)
{
    iv_assert_puntero(comdat);
    iv_assert_puntero(nombre_valor);
    if (tam != 0)
        iv_assert_puntero(buffer);
    iv_comdat_graba_buffer(comdat, nombre_valor, buffer, tam);
}

void ivrexa_graba_cadena_ansi(comdat *comdat, const char *nombre_valor, const char *cadena)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_cadena_ansi(comdat, nombre_valor, cadena);
}

void ivrexa_graba_cadena_unicode(comdat *comdat, const char *nombre_valor, const wchar_t *cadena)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_cadena_unicode(comdat, nombre_valor, cadena);
}

void ivrexa_graba_arr_cadenas_ansi(comdat *comdat, const char *nombre_valor, const char *const *cadenas,
                                   uint32_t num_valores)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_arr_cadenas_ansi(comdat, nombre_valor, cadenas, num_valores);
}

void ivrexa_graba_arr_cadenas_unicode(comdat *comdat, const char *nombre_valor, const wchar_t *const *cadenas,
                                      uint32_t num_valores)
{
    iv_assert_puntero(comdat);
    iv_comdat_graba_arr_cadenas_unicode(comdat, nombre_valor, cadenas, num_valores);
}

// The one export whose argument check changes the flow.
void ivrexa_destruye_datos_comando(comdat *comdat)
{
    iv_assert_puntero(comdat);
    if (comdat != NULL)
        iv_comdat_destruye(comdat);
}

// ---- Command data: storing and reading

uint32_t ivrexa_guarda_datos(comdat *comdat)
{
    iv_assert_puntero(comdat);
    return iv_reg_guarda_datos(comdat);
}

comdat *ivrexa_lee_datos(const char *nombre_servicio, uint32_t id_bloque_MCCom, int16_t es_entrada)
{
    nombre_servicio = texto_o_vacio(nombre_servicio);
    iv_shared_bloque *shared_MCCom = iv_mcserv_abre_MCCom(nombre_servicio, id_bloque_MCCom, es_entrada);
    iv_assert_puntero(shared_MCCom);
    if (shared_MCCom == NULL)
        return NULL;
    return iv_comdat_carga(nombre_servicio, id_bloque_MCCom, &shared_MCCom, es_entrada);
}

uint32_t ivrexa_numero_valores(comdat *comdat)
{
    iv_assert_puntero(comdat);
    return iv_comdat_numero_valores(comdat);
}

const char *ivrexa_nombre_valor(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_nombre_valor(comdat, indice);
}

uint32_t ivrexa_tipoDato(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_tipoDato(comdat, indice);
}

uint8_t ivrexa_dame_byte(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_dame_byte(comdat, indice);
}

uint16_t ivrexa_dame_ushort(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_dame_ushort(comdat, indice);
}

uint32_t ivrexa_dame_ulong(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_dame_ulong(comdat, indice);
}

double ivrexa_dame_double(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_dame_double(comdat, indice);
}

ivrexa_hwnd ivrexa_dame_hwnd(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_dame_hwnd(comdat, indice);
}

const void *ivrexa_dame_buffer(comdat *comdat, uint32_t indice, uint32_t *tam_buffer)
{
    iv_assert_puntero(comdat);
    iv_assert_puntero(tam_buffer);
    return iv_comdat_dame_buffer(comdat, indice, tam_buffer);
}

const char *ivrexa_dame_cadena_ansi(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_dame_cadena_ansi(comdat, indice);
}

const wchar_t *ivrexa_dame_cadena_unicode(comdat *comdat, uint32_t indice)
{
    iv_assert_puntero(comdat);
    return iv_comdat_dame_cadena_unicode(comdat, indice);
}

const char *const *ivrexa_dame_arr_cadenas_ansi(comdat *comdat, uint32_t indice, uint32_t *num_valores)
{
    iv_assert_puntero(comdat);
    iv_assert_puntero(num_valores);
    return iv_comdat_dame_arr_cadenas_ansi(comdat, indice, num_valores);
}

const wchar_t *const *ivrexa_dame_arr_cadenas_unicode(comdat *comdat, uint32_t indice, uint32_t *num_valores)
{
    iv_assert_puntero(comdat);
    iv_assert_puntero(num_valores);
    return iv_comdat_dame_arr_cadenas_unicode(comdat, indice, num_valores);
}

// ---- Server

void ivrexa_registra_servidor(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa, const char *nombre_servicio,
                              uint16_t version, void *datos_externos, ivrexa_funcion_comando procesaComandoExterno)
{
    int16_t usa_procesaComandoExterno = procesaComandoExterno != NULL ? CIERTO : FALSO;
    iv_reg_registra_servidor(texto_o_vacio(ruta_ejecutable), hwnd_programa, texto_o_vacio(nombre_servicio), version,
                             usa_procesaComandoExterno, datos_externos, procesaComandoExterno);
}

void ivrexa_registra_servidor_net(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa, const char *nombre_servicio,
                                  uint16_t version)
{
    iv_reg_registra_servidor(texto_o_vacio(ruta_ejecutable), hwnd_programa, texto_o_vacio(nombre_servicio), version,
                             FALSO, NULL, NULL);
}

void ivrexa_anyade_servicio(const char *nombre_servicio, uint16_t version, void *datos_externos,
                            ivrexa_funcion_comando procesaComandoExterno)
{
    iv_reg_anyade_servicio(texto_o_vacio(nombre_servicio), version, datos_externos, procesaComandoExterno);
}

void ivrexa_anyade_servicio_net(const char *nombre_servicio, uint16_t version)
{
    iv_reg_anyade_servicio(texto_o_vacio(nombre_servicio), version, NULL, NULL);
}

void ivrexa_terminado_registro(void)
{
    iv_reg_terminado_registro();
}

void ivrexa_espera_comando_terminar_servidor(void)
{
    iv_reg_espera_comando_terminar_servidor();
}

void ivrexa_terminar_servidor(const char *nombre_servicio)
{
    iv_mcserv_termina_servidor(texto_o_vacio(nombre_servicio));
}

uint32_t ivrexa_dame_id_MSG_servicio(const char *nombre_servicio)
{
    return iv_reg_dame_id_MSG_servicio(texto_o_vacio(nombre_servicio));
}

int16_t ivrexa_get_datos_entrada_comando(const char *nombre_servicio, uint32_t id_comando,
                                         uint32_t *id_datos_entrada_comando, wchar_t *buffer_cliente_64,
                                         wchar_t *buffer_cliente_256, wchar_t *buffer_cliente2_256)
{
    iv_assert_puntero(nombre_servicio);
    return iv_reg_get_datos_entrada_comando(texto_o_vacio(nombre_servicio), id_comando, id_datos_entrada_comando,
                                            buffer_cliente_64, buffer_cliente_256, buffer_cliente2_256);
}

int16_t ivrexa_set_datos_salida_comando(const char *nombre_servicio, uint32_t id_comando,
                                        uint32_t id_datos_salida_comando, const wchar_t *resultado_64,
                                        const wchar_t *resultado_256, const wchar_t *resultado_256_2)
{
    iv_assert_puntero(nombre_servicio);
    return iv_reg_set_datos_salida_comando(texto_o_vacio(nombre_servicio), id_comando, id_datos_salida_comando,
                                           resultado_64, resultado_256, resultado_256_2);
}

void ivrexa_notifica_a_cliente(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato, uint32_t id_datos)
{
    iv_assert_puntero(nombre_servicio);
    iv_reg_notifica_a_cliente(texto_o_vacio(nombre_servicio), id_cliente, dato, id_datos);
}

// ---- Client

void ivrexa_registra_cliente_de_servicio(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa,
                                         const char *nombre_servicio)
{
    iv_assert_puntero(ruta_ejecutable);
    iv_assert_puntero(nombre_servicio);
    iv_reg_registra_cliente(texto_o_vacio(ruta_ejecutable), hwnd_programa, texto_o_vacio(nombre_servicio), NULL);
}

void ivrexa_registra_cliente_notificaciones_servicio(const char *ruta_ejecutable, ivrexa_hwnd hwnd_programa,
                                                     const char *nombre_servicio,
                                                     ivrexa_funcion_notificacion funcion_notificacion_cliente)
{
    iv_assert_puntero(ruta_ejecutable);
    iv_assert_puntero(hwnd_programa);
    iv_assert_puntero(nombre_servicio);
    iv_assert_puntero(funcion_notificacion_cliente);
    iv_reg_registra_cliente(texto_o_vacio(ruta_ejecutable), hwnd_programa, texto_o_vacio(nombre_servicio),
                            funcion_notificacion_cliente);
}

// Fills the caller's buffer, empty unless the command succeeded, and frees the text.
static void entrega_texto(uint32_t resultado, wchar_t **texto, wchar_t *buffer, uint32_t num_caracteres)
{
    if (buffer != NULL)
        iv_mem_copia_cadena_u(resultado == ivrexa_resultado_OK ? *texto : NULL, buffer, num_caracteres);
    if (*texto != NULL)
        iv_mem_libera(texto);
}

uint32_t ivrexa_ejecuta_comando(const char *nombre_servicio, uint32_t id_comando, uint16_t opciones_ventana,
                                uint32_t id_bloque_MCCom_entrada, const wchar_t *param1, const wchar_t *param2,
                                const wchar_t *param3, uint32_t *id_datos_salida_comando, wchar_t *serv_buffer_64,
                                wchar_t *serv_buffer_256, wchar_t *serv_buffer2_256)
{
    iv_assert_puntero(nombre_servicio);
    wchar_t *texto_64 = NULL;
    wchar_t *texto_256 = NULL;
    wchar_t *texto2_256 = NULL;
    uint32_t resultado =
        iv_mcserv_ejecuta_comando(texto_o_vacio(nombre_servicio), id_comando, opciones_ventana, id_bloque_MCCom_entrada,
                                  param1, param2, param3, id_datos_salida_comando, &texto_64, &texto_256, &texto2_256);
    entrega_texto(resultado, &texto_64, serv_buffer_64, 64);
    entrega_texto(resultado, &texto_256, serv_buffer_256, 256);
    entrega_texto(resultado, &texto2_256, serv_buffer2_256, 256);
    return resultado;
}

static int16_t tiene_servidor(iv_mcserv_vista *mcserv)
{
    return mcserv->servidor_terminado != 1 && mcserv->estado_servidor != iv_mcserv_estadoServidor_PARADO ? CIERTO
                                                                                                         : FALSO;
}

static int16_t hay_servicio_registrado(const char *nombre_servicio, uint16_t *version_servicio)
{
    iv_shared_bloque *shared_MCServ = iv_mcserv_abre_bloque(nombre_servicio);
    if (shared_MCServ == NULL)
        return FALSO;
    iv_mcserv_vista *mcserv = iv_mcserv_vista_de(shared_MCServ);
    if (version_servicio != NULL)
        *version_servicio = mcserv->version_servicio;
    int16_t hay = tiene_servidor(mcserv);
    iv_shared_destruye(&shared_MCServ);
    return hay;
}

int16_t ivrexa_hay_servicio_registrado(const char *nombre_servicio, uint16_t *version_servicio)
{
    iv_assert_puntero(nombre_servicio);
    return hay_servicio_registrado(texto_o_vacio(nombre_servicio), version_servicio);
}

int16_t ivrexa_hay_servicio_registrado_empiece_por(const char *prefijo_nombre_servicio,
                                                   char *buffer_nombre_servicio_registrado64,
                                                   uint16_t *version_servicio)
{
    iv_assert_puntero(prefijo_nombre_servicio);
    iv_assert_puntero(buffer_nombre_servicio_registrado64);
    char nombre[iv_mcbase_TAM_NOMBRE_SERVICIO];
    if (iv_mcbase_hay_servicio_registrado_empiece_por(texto_o_vacio(prefijo_nombre_servicio), nombre) != CIERTO)
        return FALSO;
    if (buffer_nombre_servicio_registrado64 != NULL)
        iv_mem_copia_cadena(nombre, buffer_nombre_servicio_registrado64, sizeof nombre);
    return hay_servicio_registrado(nombre, version_servicio);
}

uint32_t ivrexa_abierto_documento_de_cliente(const char *nombre_servicio, const wchar_t *ruta_documento,
                                             uint32_t id_documento)
{
    iv_assert_puntero(nombre_servicio);
    iv_assert_puntero(ruta_documento);
    iv_assert(id_documento != 0);
    return iv_reg_abierto_documento_de_cliente(texto_o_vacio(nombre_servicio), texto_o_vacio(ruta_documento),
                                               id_documento);
}

void ivrexa_cerrado_documento_de_cliente(const wchar_t *ruta_documento, uint32_t id_documento)
{
    iv_assert_puntero(ruta_documento);
    iv_assert(id_documento != 0);
    iv_reg_cerrado_documento_de_cliente(texto_o_vacio(ruta_documento), id_documento);
}

uint32_t ivrexa_obtener_id_datos_notificacion(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato)
{
    iv_assert_puntero(nombre_servicio);
    return iv_reg_obtener_id_datos_notificacion(texto_o_vacio(nombre_servicio), id_cliente, dato);
}

void ivrexa_procesada_notificacion(const char *nombre_servicio)
{
    iv_assert_puntero(nombre_servicio);
    iv_reg_procesada_notificacion(texto_o_vacio(nombre_servicio));
}

// ---- Monitor and session

void ivrexa_registra_monitor(ivrexa_hwnd hwnd_monitor, ivrexa_funcion_actividad funcionNotificacionActividad,
                             ivrexa_funcion_bucle funcionMonitorBuclesCliente,
                             ivrexa_funcion_bucle funcionMonitorBuclesServidor, void *datos_externos_monitor)
{
    if (hwnd_monitor != NULL) {
        iv_assert_puntero(funcionNotificacionActividad);
        iv_assert_puntero(funcionMonitorBuclesCliente);
        iv_assert_puntero(funcionMonitorBuclesServidor);
        iv_mcbase_registra_monitor(hwnd_monitor, funcionNotificacionActividad, funcionMonitorBuclesCliente,
                                   funcionMonitorBuclesServidor, datos_externos_monitor);
    } else {
        iv_assert(funcionNotificacionActividad == NULL);
        iv_assert(funcionMonitorBuclesCliente == NULL);
        iv_assert(funcionMonitorBuclesServidor == NULL);
        iv_assert(datos_externos_monitor == NULL);
        iv_mcbase_quita_monitor();
    }
}

// The access to the registry is closed before the heap goes, so that nothing points into it.
void ivrexa_cierra_sesion(void)
{
    iv_reg_cierra_sesion();
    iv_mcbase_cierra();
    iv_mem_cierra();
}
