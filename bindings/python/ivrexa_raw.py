"""The exports of ivrexa.dll as they are, by ctypes.

Made by bindings/genera.py from bindings/ivrexa.json. Do not edit: a test compares.

Names are those of ivrexa.h, which says what each function does. `declare` tells ctypes the types of the 50 functions
of a loaded library. What is different from C:
  texts      bytes for ANSI, str for wide ones. Wide texts and arrays that come back are addresses: they may be odd.
  buffers    that the library writes are arrays of c_char or c_wchar with the room that the comment says, or None.
  functions  that the library keeps must be kept alive by the caller. No function is the type called without arguments.
"""

from ctypes import (
    CFUNCTYPE, POINTER, Structure, c_char, c_char_p, c_double, c_int16, c_int32, c_uint8, c_uint16, c_uint32, c_uint64,
    c_void_p, c_wchar, c_wchar_p,
)

DLL = "ivrexa.dll"

CIERTO = 1
FALSO = 0

# Type of a value.
ivrexa_tipoDato_desconocido = 0
ivrexa_tipoDato_byte = 1
ivrexa_tipoDato_ushort = 2
ivrexa_tipoDato_ulong = 3
ivrexa_tipoDato_double = 4
ivrexa_tipoDato_buffer = 5
ivrexa_tipoDato_cadena_ansi = 6
ivrexa_tipoDato_cadena_unicode = 7
ivrexa_tipoDato_hwnd = 8
ivrexa_tipoDato_arr_cadenas_ansi = 9
ivrexa_tipoDato_arr_cadenas_unicode = 10

# Result of a command; a command function may return other numbers.
ivrexa_resultado_NINGUNO = 0
ivrexa_resultado_OK = 1
ivrexa_resultado_CANCELADO = 2
ivrexa_resultado_ERROR = 3

# Command ids; 1 to 99 are the library's own.
ivrexa_comando_TERMINAR = 1
ivrexa_comando_PRIMERO_PROPIO = 100

# Bits of opciones_ventana.
ivrexa_ventana_TRAE_SERVIDOR = 2
ivrexa_ventana_DEVUELVE_FOCO = 4

# Numbers of the registry.
iv_mcbase_NUM_MAX_PROGRAMAS = 16
iv_mcbase_NUM_MAX_SERVICIOS = 32
iv_mcbase_NUM_ACTIVIDADES = 64
iv_mcbase_TAM_NOMBRE_PROGRAMA = 256
iv_mcbase_TAM_NOMBRE_SERVICIO = 64
iv_mcbase_VERSION = 256


class comando(Structure):
    """What a command function is called with; lives for that call."""

    _fields_ = (
        ("datos_entrada", c_void_p),  # 0: the command's input
        ("datos_salida", c_void_p),  # 8: NULL on entry; put your stored output here
        ("hwnd_cliente", c_uint64),  # 16: the client's main window, as a number; 0: none
        ("hwnd_servidor", c_void_p),  # 24: the server's main window
    )


class iv_mcbase_actividad_t(Structure):
    """One activity in the registry."""

    _pack_ = 1
    _fields_ = (
        ("ind_datServ", c_uint32),  # 0: position in the service table; 32: none
        ("dato1", c_uint32),  # 4: command id, or 0
        ("dato2", c_uint32),  # 8: id of a block, or 0
        ("tipo_programa", c_uint32),  # 12: who acts: 0 server, 1 client, 2 monitor
        ("tipo_actividad", c_uint32),  # 16: 1 service, 2 command, 3 input data, 4 output data
        ("indicador", c_uint16),  # 20: 1 begins, 0 ends
    )


class iv_mcbase_programa_t(Structure):
    """One program in the registry."""

    _pack_ = 1
    _fields_ = (
        ("nombre", c_char * 256),  # 0: path of the executable; first byte 0: free entry
        ("hwnd", c_uint64),  # 256: main window; 0: none
        ("es_servidor", c_uint16),  # 264: is it a server?
        ("es_cliente", c_uint16),  # 266: is it a client?
        ("es_monitor", c_uint16),  # 268: is it the monitor?
        ("contador_vivo", c_uint32),  # 270: heartbeat, one more every 2000 ms
    )


class datServ(Structure):
    """One service in the registry."""

    _pack_ = 1
    _fields_ = (
        ("nombre", c_char * 64),  # 0: first byte 0: free entry
        ("id_programa_servidor", c_uint16),  # 64: the server's entry
        ("id_programa_cliente", c_uint16),  # 66: the last registered client's entry
        ("bucle_servidor_estado", c_uint32),  # 68: loop state the server waits in
        ("bucle_servidor_vueltas", c_uint32),  # 72: rounds of 100 ms spent in it
        ("bucle_servidor_vivo_cliente", c_uint32),  # 76: the client's heartbeat then
        ("id_comando_en_curso", c_uint32),  # 80: command under way; 0: none
        ("bucle_cliente_estado", c_uint32),  # 84: loop state the client waits in
        ("bucle_cliente_vueltas", c_uint32),  # 88: rounds of 100 ms spent in it
        ("bucle_cliente_vivo_servidor", c_uint32),  # 92: the server's heartbeat then
    )


class iv_mcbase_t(Structure):
    """The registry that every program of a desktop shares. Read only."""

    _pack_ = 1
    _fields_ = (
        ("tam_bloque", c_uint16),  # 0: 8886 once a monitor has initialised it
        ("version", c_uint16),  # 2: 256 likewise
        ("num_registros", c_uint16),  # 4: processes that opened it to register
        ("hwnd_monitor", c_uint64),  # 6: 0: no monitor
        ("msg_monitor", c_uint32),  # 14: the monitor's window message
        ("num_actividad_siguiente", c_uint32),  # 18: number of the next activity record, 1 to 63
        ("actividades", iv_mcbase_actividad_t * 64),  # 22: the activities
        ("programas", iv_mcbase_programa_t * 16),  # 1430: the programs
        ("servicios", datServ * 32),  # 5814: the services
    )


# A service's command function. Thread: the window's, or the service's own without a window. Arguments: nombre_servicio,
# id_comando, contexto, datos_externos
ivrexa_funcion_comando = CFUNCTYPE(c_int32, c_char_p, c_uint32, POINTER(comando), c_void_p)

# A client's notification function, called twice for each notification. Thread: the notification thread, then the
# window's. Arguments: nombre_servicio, id_cliente, dato
ivrexa_funcion_notificacion = CFUNCTYPE(None, c_char_p, c_uint32, c_uint32)

# A monitor's activity function. Thread: the window's. Arguments: tipo_programa, tipo_actividad, indicador,
# nombre_servicio, dato1, dato2, datos_externos_monitor
ivrexa_funcion_actividad = CFUNCTYPE(None, c_uint32, c_uint32, c_uint16, c_void_p, c_uint32, c_uint32, c_void_p)

# A monitor's loop function: somebody waits. Thread: the window's. Arguments: mcbase, servicio, estado,
# datos_externos_monitor
ivrexa_funcion_bucle = CFUNCTYPE(None, c_void_p, c_void_p, c_uint32, c_void_p)


def declare(dll):
    """Tells ctypes the types of the functions of a loaded library; returns it."""
    # Makes empty command data for a command's input (client). Arguments: nombre_servicio
    dll.ivrexa_crea_datos_comando_entrada.restype = c_void_p
    dll.ivrexa_crea_datos_comando_entrada.argtypes = [c_char_p]
    # Makes empty command data for a command's output (server). Arguments: nombre_servicio
    dll.ivrexa_crea_datos_comando_salida.restype = c_void_p
    dll.ivrexa_crea_datos_comando_salida.argtypes = [c_char_p]
    # Appends a number. Arguments: comdat, nombre_valor, valor
    dll.ivrexa_graba_byte.restype = None
    dll.ivrexa_graba_byte.argtypes = [c_void_p, c_char_p, c_uint8]
    # Appends a number. Arguments: comdat, nombre_valor, valor
    dll.ivrexa_graba_ushort.restype = None
    dll.ivrexa_graba_ushort.argtypes = [c_void_p, c_char_p, c_uint16]
    # Appends a number. Arguments: comdat, nombre_valor, valor
    dll.ivrexa_graba_ulong.restype = None
    dll.ivrexa_graba_ulong.argtypes = [c_void_p, c_char_p, c_uint32]
    # Appends a number. Arguments: comdat, nombre_valor, valor
    dll.ivrexa_graba_double.restype = None
    dll.ivrexa_graba_double.argtypes = [c_void_p, c_char_p, c_double]
    # Appends a window handle. Arguments: comdat, nombre_valor, valor
    dll.ivrexa_graba_hwnd.restype = None
    dll.ivrexa_graba_hwnd.argtypes = [c_void_p, c_char_p, c_void_p]
    # Appends bytes. Arguments: comdat, nombre_valor, buffer, tam
    dll.ivrexa_graba_buffer.restype = None
    dll.ivrexa_graba_buffer.argtypes = [c_void_p, c_char_p, c_void_p, c_uint32]
    # Appends an ANSI text. Arguments: comdat, nombre_valor, cadena
    dll.ivrexa_graba_cadena_ansi.restype = None
    dll.ivrexa_graba_cadena_ansi.argtypes = [c_void_p, c_char_p, c_char_p]
    # Appends a wide text. Arguments: comdat, nombre_valor, cadena
    dll.ivrexa_graba_cadena_unicode.restype = None
    dll.ivrexa_graba_cadena_unicode.argtypes = [c_void_p, c_char_p, c_wchar_p]
    # Appends ANSI texts. Arguments: comdat, nombre_valor, cadenas, num_valores
    dll.ivrexa_graba_arr_cadenas_ansi.restype = None
    dll.ivrexa_graba_arr_cadenas_ansi.argtypes = [c_void_p, c_char_p, POINTER(c_char_p), c_uint32]
    # Appends wide texts. They do not come back, and hide the values behind them. Arguments: comdat, nombre_valor,
    # cadenas, num_valores
    dll.ivrexa_graba_arr_cadenas_unicode.restype = None
    dll.ivrexa_graba_arr_cadenas_unicode.argtypes = [c_void_p, c_char_p, POINTER(c_wchar_p), c_uint32]
    # Destroys a container and what its readers returned. Arguments: comdat
    dll.ivrexa_destruye_datos_comando.restype = None
    dll.ivrexa_destruye_datos_comando.argtypes = [c_void_p]
    # Stores a written container in a shared block of its own. Arguments: comdat
    dll.ivrexa_guarda_datos.restype = c_uint32
    dll.ivrexa_guarda_datos.argtypes = [c_void_p]
    # Opens stored command data for reading. Arguments: nombre_servicio, id_bloque_MCCom, es_entrada
    dll.ivrexa_lee_datos.restype = c_void_p
    dll.ivrexa_lee_datos.argtypes = [c_char_p, c_uint32, c_int16]
    # How many values. Arguments: comdat
    dll.ivrexa_numero_valores.restype = c_uint32
    dll.ivrexa_numero_valores.argtypes = [c_void_p]
    # Name of a value. Arguments: comdat, indice
    dll.ivrexa_nombre_valor.restype = c_char_p
    dll.ivrexa_nombre_valor.argtypes = [c_void_p, c_uint32]
    # Type of a value. Arguments: comdat, indice
    dll.ivrexa_tipoDato.restype = c_uint32
    dll.ivrexa_tipoDato.argtypes = [c_void_p, c_uint32]
    # The number at a position. Arguments: comdat, indice
    dll.ivrexa_dame_byte.restype = c_uint8
    dll.ivrexa_dame_byte.argtypes = [c_void_p, c_uint32]
    # The number at a position. Arguments: comdat, indice
    dll.ivrexa_dame_ushort.restype = c_uint16
    dll.ivrexa_dame_ushort.argtypes = [c_void_p, c_uint32]
    # The number at a position. Arguments: comdat, indice
    dll.ivrexa_dame_ulong.restype = c_uint32
    dll.ivrexa_dame_ulong.argtypes = [c_void_p, c_uint32]
    # The number at a position. Arguments: comdat, indice
    dll.ivrexa_dame_double.restype = c_double
    dll.ivrexa_dame_double.argtypes = [c_void_p, c_uint32]
    # The window handle at a position. Arguments: comdat, indice
    dll.ivrexa_dame_hwnd.restype = c_void_p
    dll.ivrexa_dame_hwnd.argtypes = [c_void_p, c_uint32]
    # The bytes at a position. Arguments: comdat, indice, tam_buffer
    dll.ivrexa_dame_buffer.restype = c_void_p
    dll.ivrexa_dame_buffer.argtypes = [c_void_p, c_uint32, POINTER(c_uint32)]
    # The ANSI text at a position. Arguments: comdat, indice
    dll.ivrexa_dame_cadena_ansi.restype = c_char_p
    dll.ivrexa_dame_cadena_ansi.argtypes = [c_void_p, c_uint32]
    # The wide text at a position, perhaps at an odd address. Arguments: comdat, indice
    dll.ivrexa_dame_cadena_unicode.restype = c_void_p
    dll.ivrexa_dame_cadena_unicode.argtypes = [c_void_p, c_uint32]
    # The ANSI texts at a position; read an array once. Arguments: comdat, indice, num_valores
    dll.ivrexa_dame_arr_cadenas_ansi.restype = c_void_p
    dll.ivrexa_dame_arr_cadenas_ansi.argtypes = [c_void_p, c_uint32, POINTER(c_uint32)]
    # The wide texts at a position; read an array once. Arguments: comdat, indice, num_valores
    dll.ivrexa_dame_arr_cadenas_unicode.restype = c_void_p
    dll.ivrexa_dame_arr_cadenas_unicode.argtypes = [c_void_p, c_uint32, POINTER(c_uint32)]
    # Registers this program as a server and adds its first service. Arguments: ruta_ejecutable, hwnd_programa,
    # nombre_servicio, version, datos_externos, procesaComandoExterno
    dll.ivrexa_registra_servidor.restype = None
    dll.ivrexa_registra_servidor.argtypes = [c_char_p, c_void_p, c_char_p, c_uint16, c_void_p, ivrexa_funcion_comando]
    # The same for a host whose own window procedure answers commands. Arguments: ruta_ejecutable, hwnd_programa,
    # nombre_servicio, version
    dll.ivrexa_registra_servidor_net.restype = None
    dll.ivrexa_registra_servidor_net.argtypes = [c_char_p, c_void_p, c_char_p, c_uint16]
    # Adds a service, before ivrexa_terminado_registro. Arguments: nombre_servicio, version, datos_externos,
    # procesaComandoExterno
    dll.ivrexa_anyade_servicio.restype = None
    dll.ivrexa_anyade_servicio.argtypes = [c_char_p, c_uint16, c_void_p, ivrexa_funcion_comando]
    # The same in a server of the _net kind. Arguments: nombre_servicio, version
    dll.ivrexa_anyade_servicio_net.restype = None
    dll.ivrexa_anyade_servicio_net.argtypes = [c_char_p, c_uint16]
    # Publishes the services and starts to receive commands. Arguments: none
    dll.ivrexa_terminado_registro.restype = None
    dll.ivrexa_terminado_registro.argtypes = []
    # Waits until no service of this program has a running thread. Arguments: none
    dll.ivrexa_espera_comando_terminar_servidor.restype = None
    dll.ivrexa_espera_comando_terminar_servidor.argtypes = []
    # Asks the server of a service to end. Arguments: nombre_servicio
    dll.ivrexa_terminar_servidor.restype = None
    dll.ivrexa_terminar_servidor.argtypes = [c_char_p]
    # Registered window message of a service. Arguments: nombre_servicio
    dll.ivrexa_dame_id_MSG_servicio.restype = c_uint32
    dll.ivrexa_dame_id_MSG_servicio.argtypes = [c_char_p]
    # Reads the command under way. Arguments: nombre_servicio, id_comando, id_datos_entrada_comando, buffer_cliente_64
    # (room 64), buffer_cliente_256 (room 256), buffer_cliente2_256 (room 256)
    dll.ivrexa_get_datos_entrada_comando.restype = c_int16
    dll.ivrexa_get_datos_entrada_comando.argtypes = [c_char_p, c_uint32, POINTER(c_uint32), POINTER(c_wchar),
                                                     POINTER(c_wchar), POINTER(c_wchar)]
    # Answers the command under way. Arguments: nombre_servicio, id_comando, id_datos_salida_comando, resultado_64,
    # resultado_256, resultado_256_2
    dll.ivrexa_set_datos_salida_comando.restype = c_int16
    dll.ivrexa_set_datos_salida_comando.argtypes = [c_char_p, c_uint32, c_uint32, c_wchar_p, c_wchar_p, c_wchar_p]
    # Notifies a client and waits for its answer. Arguments: nombre_servicio, id_cliente, dato, id_datos
    dll.ivrexa_notifica_a_cliente.restype = None
    dll.ivrexa_notifica_a_cliente.argtypes = [c_char_p, c_uint32, c_uint32, c_uint32]
    # Registers this program as a client of a service. Arguments: ruta_ejecutable, hwnd_programa, nombre_servicio
    dll.ivrexa_registra_cliente_de_servicio.restype = None
    dll.ivrexa_registra_cliente_de_servicio.argtypes = [c_char_p, c_void_p, c_char_p]
    # The same, with a function for notifications. Arguments: ruta_ejecutable, hwnd_programa, nombre_servicio,
    # funcion_notificacion_cliente
    dll.ivrexa_registra_cliente_notificaciones_servicio.restype = None
    dll.ivrexa_registra_cliente_notificaciones_servicio.argtypes = [c_char_p, c_void_p, c_char_p,
                                                                    ivrexa_funcion_notificacion]
    # Runs a command on a service and waits for its end. Arguments: nombre_servicio, id_comando, opciones_ventana,
    # id_bloque_MCCom_entrada, param1, param2, param3, id_datos_salida_comando, serv_buffer_64 (room 64),
    # serv_buffer_256 (room 256), serv_buffer2_256 (room 256)
    dll.ivrexa_ejecuta_comando.restype = c_uint32
    dll.ivrexa_ejecuta_comando.argtypes = [c_char_p, c_uint32, c_uint16, c_uint32, c_wchar_p, c_wchar_p, c_wchar_p,
                                           POINTER(c_uint32), POINTER(c_wchar), POINTER(c_wchar), POINTER(c_wchar)]
    # Is a server attached to the service? Arguments: nombre_servicio, version_servicio
    dll.ivrexa_hay_servicio_registrado.restype = c_int16
    dll.ivrexa_hay_servicio_registrado.argtypes = [c_char_p, POINTER(c_uint16)]
    # The same for the first service whose name begins so. Arguments: prefijo_nombre_servicio,
    # buffer_nombre_servicio_registrado64 (room 64), version_servicio
    dll.ivrexa_hay_servicio_registrado_empiece_por.restype = c_int16
    dll.ivrexa_hay_servicio_registrado_empiece_por.argtypes = [c_char_p, POINTER(c_char), POINTER(c_uint16)]
    # Records that this program has opened a document for a service. Arguments: nombre_servicio, ruta_documento,
    # id_documento
    dll.ivrexa_abierto_documento_de_cliente.restype = c_uint32
    dll.ivrexa_abierto_documento_de_cliente.argtypes = [c_char_p, c_wchar_p, c_uint32]
    # Records that the document is closed, for every service. Arguments: ruta_documento, id_documento
    dll.ivrexa_cerrado_documento_de_cliente.restype = None
    dll.ivrexa_cerrado_documento_de_cliente.argtypes = [c_wchar_p, c_uint32]
    # Id of the block attached to the notification that is being handled. Arguments: nombre_servicio, id_cliente, dato
    dll.ivrexa_obtener_id_datos_notificacion.restype = c_uint32
    dll.ivrexa_obtener_id_datos_notificacion.argtypes = [c_char_p, c_uint32, c_uint32]
    # Tells the server that the notification has been handled. Arguments: nombre_servicio
    dll.ivrexa_procesada_notificacion.restype = None
    dll.ivrexa_procesada_notificacion.argtypes = [c_char_p]
    # Makes this program the desktop's monitor, or ends that. Arguments: hwnd_monitor, funcionNotificacionActividad,
    # funcionMonitorBuclesCliente, funcionMonitorBuclesServidor, datos_externos_monitor
    dll.ivrexa_registra_monitor.restype = None
    dll.ivrexa_registra_monitor.argtypes = [c_void_p, ivrexa_funcion_actividad, ivrexa_funcion_bucle,
                                            ivrexa_funcion_bucle, c_void_p]
    # Ends this program's registration. Arguments: none
    dll.ivrexa_cierra_sesion.restype = None
    dll.ivrexa_cierra_sesion.argtypes = []
    return dll
