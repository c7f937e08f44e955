// iv_traza.h - what the library tells people: reports of broken preconditions, and the debug trace.
//
// A report is a message box; the caller goes on behind it. It is not a guard: where the flow must change, the code
// has an `if` of its own.
//
// The trace goes to the debugger output when the environment variable "IVREXA_DEBUG" exists, whatever its value. The
// variable is read at the first call of a trace function and never again. Every piece is one debug-string call.
// Threads may trace at once; their pieces may then interleave. Accepted: the trace is a debugging aid.
//
// With the trace off a call costs one test of iv_traza_activada and nothing else: the test is here, in the caller, and
// what comes behind it lies out of line, in a function of the same name with _si_activa at its end.
#ifndef IV_TRAZA_H
#define IV_TRAZA_H

#include "iv_plataforma.h"

// Each source file names itself in IV_MODULO before it reports. The expression is the report's text, so the names of
// locals and parameters inside it are part of the interface.
#define iv_assert(cond)      ((cond) ? (void)0 : (void)iv_assert_mensaje(#cond, IV_MODULO, __LINE__))
#define iv_assert_puntero(p) iv_assert((p) != 0) // the report shows "(p) != 0" with p as written

// Shows the report and returns what the box returned; 0 where 16 boxes stand on this thread already, one inside the
// other: the report then goes to the trace alone. Allocates nothing, so that it can report the heap's failures.
IV_RARA int iv_assert_mensaje(const char *expresion, const char *modulo, uint32_t linea);

// ---- The switch

// 0 once the trace is known to be off; not 0 while nobody has asked yet, and when it is on.
extern uint32_t iv_traza_activada;

// The answer behind that test: reads the variable if this is the first call of all. Not 0 when tracing is on.
IV_RARA uint32_t iv_traza_decide(void);

IV_EN_LINEA uint32_t iv_traza_activa(void) // not 0 when tracing is on
{
    return iv_traza_activada != 0 ? iv_traza_decide() : 0;
}

// A function that is the test alone, and the declaration of what it calls when the test does not stop it.
#define IV_TRAZA(nombre, parametros, argumentos) \
    IV_RARA void nombre##_si_activa parametros;  \
    IV_EN_LINEA void nombre parametros           \
    {                                            \
        if (iv_traza_activada != 0)              \
            nombre##_si_activa argumentos;       \
    }

// ---- Primitives. Each but the last four tests the switch. A null text is left out.

IV_TRAZA(iv_traza_cadena, (const char *texto), (texto))
IV_TRAZA(iv_traza_linea, (const char *texto), (texto)) // and a line end
IV_TRAZA(iv_traza_cadena_numero, (const char *texto, uint32_t numero, uint32_t con_fin_de_linea),
         (texto, numero, con_fin_de_linea))
IV_TRAZA(iv_traza_cadena_valor, (const char *texto, uint64_t valor, uint32_t con_fin_de_linea), // handle, address
         (texto, valor, con_fin_de_linea))

// Decimal digits in a static buffer that the next call overwrites; 0 gives "0".
const char *iv_traza_numero_a_texto(uint64_t numero);

void iv_traza_cabecera(void);                                          // "\n*** <tick count>: "
void iv_traza_valor_u32(const uint32_t *numero, const char *etiqueta); // <etiqueta> = <numero>; NULL: nothing
void iv_traza_texto_u(const wchar_t *texto, const char *etiqueta);     // <etiqueta>"<texto>"; NULL: nothing

// ---- Records. Each tests the switch and opens with the header.

IV_TRAZA(iv_traza_registro_servidor, (const char *programa, ivrexa_hwnd hwnd), (programa, hwnd))
IV_TRAZA(iv_traza_registro_cliente_servicio,
         (const char *ruta_ejecutable, ivrexa_hwnd hwnd, const char *nombre_servicio),
         (ruta_ejecutable, hwnd, nombre_servicio))
IV_TRAZA(iv_traza_registro_servicio_prestado, (const char *nombre_servicio, uint16_t version),
         (nombre_servicio, version))
IV_TRAZA(iv_traza_get_datos_entrada_comando,
         (const char *nombre_servicio, uint32_t id_comando, const uint32_t *id_datos_entrada_comando,
          const wchar_t *buffer_cliente_64, const wchar_t *buffer_cliente_256, const wchar_t *buffer_cliente2_256,
          int16_t resultado),
         (nombre_servicio, id_comando, id_datos_entrada_comando, buffer_cliente_64, buffer_cliente_256,
          buffer_cliente2_256, resultado))
IV_TRAZA(iv_traza_set_datos_entrada_comando,
         (const char *nombre_servicio, uint32_t id_comando, uint32_t id_datos_salida_comando,
          const wchar_t *resultado_64, const wchar_t *resultado_256, const wchar_t *resultado_256_2, int16_t resultado),
         (nombre_servicio, id_comando, id_datos_salida_comando, resultado_64, resultado_256, resultado_256_2,
          resultado))
IV_TRAZA(iv_traza_inicio_comando,
         (const char *nombre_servicio, uint32_t id_comando, uint32_t id_bloque_MCCom_entrada, const wchar_t *param1,
          const wchar_t *param2, const wchar_t *param3),
         (nombre_servicio, id_comando, id_bloque_MCCom_entrada, param1, param2, param3))
IV_TRAZA(iv_traza_fin_comando,
         (const char *nombre_servicio, uint32_t id_comando, uint32_t resultado, const uint32_t *id_datos_salida_comando,
          wchar_t *const *serv_buffer_64, wchar_t *const *serv_buffer_256, wchar_t *const *serv_buffer2_256),
         (nombre_servicio, id_comando, resultado, id_datos_salida_comando, serv_buffer_64, serv_buffer_256,
          serv_buffer2_256))
IV_TRAZA(iv_traza_estoy_vivo, (uint16_t id_programa), (id_programa))
IV_TRAZA(iv_traza_bucle, (const char *estado), (estado))

#undef IV_TRAZA

// One for each state that a client or a server waits in.
IV_EN_LINEA void iv_traza_CLIENTE_ESPERA_NINGUN_CLIENTE(void)
{
    iv_traza_bucle("CLIENTE_ESPERA_NINGUN_CLIENTE");
}

IV_EN_LINEA void iv_traza_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO(void)
{
    iv_traza_bucle("CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO");
}

IV_EN_LINEA void iv_traza_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO(void)
{
    iv_traza_bucle("CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO");
}

IV_EN_LINEA void iv_traza_CLIENTE_ESPERA_SERVIDOR_AVISADO(void)
{
    iv_traza_bucle("CLIENTE_ESPERA_SERVIDOR_AVISADO");
}

IV_EN_LINEA void iv_traza_SERVIDOR_ESPERA_RECEPCION_COMANDO(void)
{
    iv_traza_bucle("SERVIDOR_ESPERA_RECEPCION_COMANDO");
}

IV_EN_LINEA void iv_traza_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO(void)
{
    iv_traza_bucle("SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO");
}

#endif
