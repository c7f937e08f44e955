#include "iv_nombre.h"

#include "iv_mem.h"

static const char PREFIJO_MUTEX[] = "Mutex_Ivrexa_";
static const char PREFIJO_MSG[] = "Ivrexa_MSG";
static const char SEPARADOR_SERVICIO[] = "_Serv_";

const char *iv_nombre_MCB(void)
{
    return "Ivrexa_MCB";
}

const char *iv_nombre_mutex_MCB(void)
{
    return "Ivrexa_Mutex_MCB";
}

const char *iv_nombre_monitor_MSG(void)
{
    return "Ivrexa_Monitor_MSG";
}

static void anyade_texto_y_numero(char **nombre, const char *texto, uint32_t numero)
{
    char *cifras = iv_mem_numero_a_cadena(numero);
    iv_mem_concatena(nombre, texto);
    iv_mem_concatena(nombre, cifras);
    iv_mem_libera(&cifras);
}

void iv_nombre_anyade_instancia(char **nombre, uint32_t instancia)
{
    anyade_texto_y_numero(nombre, "_Inst", instancia);
}

void iv_nombre_anyade_comdat(char **nombre, uint32_t id_bloque_MCCom)
{
    anyade_texto_y_numero(nombre, "_comdat", id_bloque_MCCom);
}

char *iv_nombre_mutex_servicio(const char *nombre_servicio, uint32_t instancia)
{
    char *nombre = iv_mem_duplica_cadena(PREFIJO_MUTEX);
    iv_mem_concatena(&nombre, nombre_servicio);
    if (instancia != 0)
        iv_nombre_anyade_instancia(&nombre, instancia);
    return nombre;
}

char *iv_nombre_mutex_servicio_interno(const char *nombre_servicio)
{
    char *nombre = iv_mem_duplica_cadena(PREFIJO_MUTEX);
    iv_mem_concatena(&nombre, nombre_servicio);
    iv_mem_concatena(&nombre, "Interno");
    return nombre;
}

static char *nombre_de_servicio(const char *prefijo, const char *nombre_servicio)
{
    char *nombre = iv_mem_duplica_cadena(prefijo);
    iv_mem_concatena(&nombre, SEPARADOR_SERVICIO);
    iv_mem_concatena(&nombre, nombre_servicio);
    return nombre;
}

char *iv_nombre_MCServ(const char *nombre_servicio)
{
    return nombre_de_servicio(iv_nombre_MCB(), nombre_servicio);
}

char *iv_nombre_MCCom(const char *nombre_servicio, uint32_t id_bloque_MCCom)
{
    char *nombre = iv_nombre_MCServ(nombre_servicio);
    iv_mem_concatena(&nombre, "_Com_");
    iv_nombre_anyade_comdat(&nombre, id_bloque_MCCom);
    return nombre;
}

char *iv_nombre_MSG_servicio(const char *nombre_servicio)
{
    return nombre_de_servicio(PREFIJO_MSG, nombre_servicio);
}
