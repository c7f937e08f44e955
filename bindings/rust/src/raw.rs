// Made by bindings/genera.py from bindings/ivrexa.json: do not edit.

//! The C interface of ivrexa.dll as it stands: one function for each export, with pointers and numbers.
//! `include/ivrexa.h` says what each does. The rest of this crate is what programs use.
//!
//! Wide texts and arrays of them that a container gives may lie at an odd address: read them with `read_unaligned`.

#![allow(non_camel_case_types, non_snake_case, non_upper_case_globals)]

use std::os::raw::{c_char, c_void};

/// A container of command data: opaque.
#[repr(C)]
pub struct comdat {
    _opaque: [u8; 0],
}

/// A window handle.
pub type ivrexa_hwnd = *mut c_void;

/// true.
pub const CIERTO: i16 = 1;

/// false.
pub const FALSO: i16 = 0;

// Type of a value.
/// a position that does not exist.
pub const ivrexa_tipoDato_desconocido: u32 = 0;
/// 8 bits.
pub const ivrexa_tipoDato_byte: u32 = 1;
/// 16 bits.
pub const ivrexa_tipoDato_ushort: u32 = 2;
/// 32 bits.
pub const ivrexa_tipoDato_ulong: u32 = 3;
/// a double.
pub const ivrexa_tipoDato_double: u32 = 4;
/// bytes.
pub const ivrexa_tipoDato_buffer: u32 = 5;
/// an ANSI text.
pub const ivrexa_tipoDato_cadena_ansi: u32 = 6;
/// a wide text.
pub const ivrexa_tipoDato_cadena_unicode: u32 = 7;
/// a window handle.
pub const ivrexa_tipoDato_hwnd: u32 = 8;
/// ANSI texts.
pub const ivrexa_tipoDato_arr_cadenas_ansi: u32 = 9;
/// wide texts, which do not come back.
pub const ivrexa_tipoDato_arr_cadenas_unicode: u32 = 10;

// Result of a command; a command function may return other numbers.
/// no answer.
pub const ivrexa_resultado_NINGUNO: u32 = 0;
/// the only result with which texts and output data arrive.
pub const ivrexa_resultado_OK: u32 = 1;
/// cancelled.
pub const ivrexa_resultado_CANCELADO: u32 = 2;
/// refused; not a client of the service; a server that is gone.
pub const ivrexa_resultado_ERROR: u32 = 3;

// Command ids; 1 to 99 are the library's own.
/// ends the server.
pub const ivrexa_comando_TERMINAR: u32 = 1;
/// the first id for hosts.
pub const ivrexa_comando_PRIMERO_PROPIO: u32 = 100;

// Bits of opciones_ventana.
/// server's window to the foreground when the command is sent.
pub const ivrexa_ventana_TRAE_SERVIDOR: u32 = 2;
/// foreground back when the command ends.
pub const ivrexa_ventana_DEVUELVE_FOCO: u32 = 4;

// Numbers of the registry.
/// programs; as an id_programa: none.
pub const iv_mcbase_NUM_MAX_PROGRAMAS: u32 = 16;
/// services; as an ind_datServ: none.
pub const iv_mcbase_NUM_MAX_SERVICIOS: u32 = 32;
/// activity records.
pub const iv_mcbase_NUM_ACTIVIDADES: u32 = 64;
/// bytes of a program's name.
pub const iv_mcbase_TAM_NOMBRE_PROGRAMA: u32 = 256;
/// bytes of a service's name.
pub const iv_mcbase_TAM_NOMBRE_SERVICIO: u32 = 64;
/// the registry's version.
pub const iv_mcbase_VERSION: u32 = 256;

/// What a command function is called with; lives for that call. 32 bytes.
#[repr(C)]
#[derive(Clone, Copy)]
pub struct comando {
    /// At 0: the command's input.
    pub datos_entrada: *mut comdat,
    /// At 8: NULL on entry; put your stored output here.
    pub datos_salida: *mut comdat,
    /// At 16: the client's main window, as a number; 0: none.
    pub hwnd_cliente: u64,
    /// At 24: the server's main window.
    pub hwnd_servidor: ivrexa_hwnd,
}

/// One activity in the registry. 22 bytes.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct iv_mcbase_actividad_t {
    /// At 0: position in the service table; 32: none.
    pub ind_datServ: u32,
    /// At 4: command id, or 0.
    pub dato1: u32,
    /// At 8: id of a block, or 0.
    pub dato2: u32,
    /// At 12: who acts: 0 server, 1 client, 2 monitor.
    pub tipo_programa: u32,
    /// At 16: 1 service, 2 command, 3 input data, 4 output data.
    pub tipo_actividad: u32,
    /// At 20: 1 begins, 0 ends.
    pub indicador: u16,
}

/// One program in the registry. 274 bytes.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct iv_mcbase_programa_t {
    /// At 0: path of the executable; first byte 0: free entry.
    pub nombre: [c_char; 256],
    /// At 256: main window; 0: none.
    pub hwnd: u64,
    /// At 264: is it a server?
    pub es_servidor: u16,
    /// At 266: is it a client?
    pub es_cliente: u16,
    /// At 268: is it the monitor?
    pub es_monitor: u16,
    /// At 270: heartbeat, one more every 2000 ms.
    pub contador_vivo: u32,
}

/// One service in the registry. 96 bytes.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct datServ {
    /// At 0: first byte 0: free entry.
    pub nombre: [c_char; 64],
    /// At 64: the server's entry.
    pub id_programa_servidor: u16,
    /// At 66: the last registered client's entry.
    pub id_programa_cliente: u16,
    /// At 68: loop state the server waits in.
    pub bucle_servidor_estado: u32,
    /// At 72: rounds of 100 ms spent in it.
    pub bucle_servidor_vueltas: u32,
    /// At 76: the client's heartbeat then.
    pub bucle_servidor_vivo_cliente: u32,
    /// At 80: command under way; 0: none.
    pub id_comando_en_curso: u32,
    /// At 84: loop state the client waits in.
    pub bucle_cliente_estado: u32,
    /// At 88: rounds of 100 ms spent in it.
    pub bucle_cliente_vueltas: u32,
    /// At 92: the server's heartbeat then.
    pub bucle_cliente_vivo_servidor: u32,
}

/// The registry that every program of a desktop shares. Read only. 8886 bytes.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct iv_mcbase_t {
    /// At 0: 8886 once a monitor has initialised it.
    pub tam_bloque: u16,
    /// At 2: 256 likewise.
    pub version: u16,
    /// At 4: processes that opened it to register.
    pub num_registros: u16,
    /// At 6: 0: no monitor.
    pub hwnd_monitor: u64,
    /// At 14: the monitor's window message.
    pub msg_monitor: u32,
    /// At 18: number of the next activity record, 1 to 63.
    pub num_actividad_siguiente: u32,
    /// At 22: the activities.
    pub actividades: [iv_mcbase_actividad_t; 64],
    /// At 1430: the programs.
    pub programas: [iv_mcbase_programa_t; 16],
    /// At 5814: the services.
    pub servicios: [datServ; 32],
}

/// A service's command function. Thread: the window's, or the service's own without a window. `None` is NULL.
pub type ivrexa_funcion_comando = Option<
    unsafe extern "C" fn(
        nombre_servicio: *const c_char,
        id_comando: u32,
        contexto: *mut comando,
        datos_externos: *mut c_void,
    ) -> i32,
>;

/// A client's notification function, called twice for each notification. Thread: the notification thread, then the
/// window's. `None` is NULL.
pub type ivrexa_funcion_notificacion =
    Option<unsafe extern "C" fn(nombre_servicio: *const c_char, id_cliente: u32, dato: u32)>;

/// A monitor's activity function. Thread: the window's. `None` is NULL.
pub type ivrexa_funcion_actividad = Option<
    unsafe extern "C" fn(
        tipo_programa: u32,
        tipo_actividad: u32,
        indicador: u16,
        nombre_servicio: *const c_char,
        dato1: u32,
        dato2: u32,
        datos_externos_monitor: *mut c_void,
    ),
>;

/// A monitor's loop function: somebody waits. Thread: the window's. `None` is NULL.
pub type ivrexa_funcion_bucle = Option<
    unsafe extern "C" fn(
        mcbase: *const iv_mcbase_t,
        servicio: *const datServ,
        estado: u32,
        datos_externos_monitor: *mut c_void,
    ),
>;

#[link(name = "ivrexa", kind = "dylib")]
extern "C" {
    /// Makes empty command data for a command's input (client). Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * Returns: the new container
    pub fn ivrexa_crea_datos_comando_entrada(nombre_servicio: *const c_char) -> *mut comdat;

    /// Makes empty command data for a command's output (server). Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * Returns: the new container
    pub fn ivrexa_crea_datos_comando_salida(nombre_servicio: *const c_char) -> *mut comdat;

    /// Appends a number. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `valor`: the number
    pub fn ivrexa_graba_byte(comdat: *mut comdat, nombre_valor: *const c_char, valor: u8);

    /// Appends a number. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `valor`: the number
    pub fn ivrexa_graba_ushort(comdat: *mut comdat, nombre_valor: *const c_char, valor: u16);

    /// Appends a number. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `valor`: the number
    pub fn ivrexa_graba_ulong(comdat: *mut comdat, nombre_valor: *const c_char, valor: u32);

    /// Appends a number. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `valor`: the number
    pub fn ivrexa_graba_double(comdat: *mut comdat, nombre_valor: *const c_char, valor: f64);

    /// Appends a window handle. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `valor`: the window
    pub fn ivrexa_graba_hwnd(comdat: *mut comdat, nombre_valor: *const c_char, valor: ivrexa_hwnd);

    /// Appends bytes. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `buffer`: the bytes; NULL where tam is 0
    /// * `tam`: how many bytes
    pub fn ivrexa_graba_buffer(comdat: *mut comdat, nombre_valor: *const c_char, buffer: *const c_void, tam: u32);

    /// Appends an ANSI text. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `cadena`: the text; NULL is a null text
    pub fn ivrexa_graba_cadena_ansi(comdat: *mut comdat, nombre_valor: *const c_char, cadena: *const c_char);

    /// Appends a wide text. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `cadena`: the text; NULL is a null text
    pub fn ivrexa_graba_cadena_unicode(comdat: *mut comdat, nombre_valor: *const c_char, cadena: *const u16);

    /// Appends ANSI texts. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `cadenas`: the texts; NULL: null texts only
    /// * `num_valores`: how many texts
    pub fn ivrexa_graba_arr_cadenas_ansi(
        comdat: *mut comdat,
        nombre_valor: *const c_char,
        cadenas: *const *const c_char,
        num_valores: u32,
    );

    /// Appends wide texts. They do not come back, and hide the values behind them. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `nombre_valor`: the value's name, for people
    /// * `cadenas`: the texts; NULL: null texts only
    /// * `num_valores`: how many texts
    pub fn ivrexa_graba_arr_cadenas_unicode(
        comdat: *mut comdat,
        nombre_valor: *const c_char,
        cadenas: *const *const u16,
        num_valores: u32,
    );

    /// Destroys a container and what its readers returned. Thread: any.
    ///
    /// * `comdat`: the container
    pub fn ivrexa_destruye_datos_comando(comdat: *mut comdat);

    /// Stores a written container in a shared block of its own. Thread: any.
    ///
    /// * `comdat`: a written container, which keeps the block alive
    /// * Returns: the block's id; 0: not stored
    pub fn ivrexa_guarda_datos(comdat: *mut comdat) -> u32;

    /// Opens stored command data for reading. Thread: any.
    ///
    /// * `nombre_servicio`: the service whose channel numbered the block
    /// * `id_bloque_MCCom`: the id from ivrexa_guarda_datos
    /// * `es_entrada`: CIERTO: a command's input; FALSO: its output
    /// * Returns: a container for reading; NULL without such a block
    pub fn ivrexa_lee_datos(nombre_servicio: *const c_char, id_bloque_MCCom: u32, es_entrada: i16) -> *mut comdat;

    /// How many values. Thread: any.
    ///
    /// * `comdat`: the container
    /// * Returns: how many
    pub fn ivrexa_numero_valores(comdat: *mut comdat) -> u32;

    /// Name of a value. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the name; where there is none, "?", which is always there
    pub fn ivrexa_nombre_valor(comdat: *mut comdat, indice: u32) -> *const c_char;

    /// Type of a value. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: 0 for a position that does not exist
    pub fn ivrexa_tipoDato(comdat: *mut comdat, indice: u32) -> u32;

    /// The number at a position. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the number; 0 where there is none of this type
    pub fn ivrexa_dame_byte(comdat: *mut comdat, indice: u32) -> u8;

    /// The number at a position. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the number; 0 where there is none of this type
    pub fn ivrexa_dame_ushort(comdat: *mut comdat, indice: u32) -> u16;

    /// The number at a position. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the number; 0 where there is none of this type
    pub fn ivrexa_dame_ulong(comdat: *mut comdat, indice: u32) -> u32;

    /// The number at a position. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the number; 0 where there is none of this type
    pub fn ivrexa_dame_double(comdat: *mut comdat, indice: u32) -> f64;

    /// The window handle at a position. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the window
    pub fn ivrexa_dame_hwnd(comdat: *mut comdat, indice: u32) -> ivrexa_hwnd;

    /// The bytes at a position. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * `tam_buffer`: how many bytes; untouched where there are none
    /// * Returns: the bytes
    pub fn ivrexa_dame_buffer(comdat: *mut comdat, indice: u32, tam_buffer: *mut u32) -> *const c_void;

    /// The ANSI text at a position. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the text; NULL for a null text
    pub fn ivrexa_dame_cadena_ansi(comdat: *mut comdat, indice: u32) -> *const c_char;

    /// The wide text at a position, perhaps at an odd address. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * Returns: the text; NULL for a null text
    pub fn ivrexa_dame_cadena_unicode(comdat: *mut comdat, indice: u32) -> *const u16;

    /// The ANSI texts at a position; read an array once. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * `num_valores`: how many texts; 0 where there are none, or more than the content can hold
    /// * Returns: the texts; a text outside the content is NULL
    pub fn ivrexa_dame_arr_cadenas_ansi(
        comdat: *mut comdat,
        indice: u32,
        num_valores: *mut u32,
    ) -> *const *const c_char;

    /// The wide texts at a position; read an array once. Thread: any.
    ///
    /// * `comdat`: the container
    /// * `indice`: position, from 0
    /// * `num_valores`: how many texts; 0 where there are none, or more than the content can hold
    /// * Returns: nothing that was written; what lies outside the content is NULL
    pub fn ivrexa_dame_arr_cadenas_unicode(
        comdat: *mut comdat,
        indice: u32,
        num_valores: *mut u32,
    ) -> *const *const u16;

    /// Registers this program as a server and adds its first service. Thread: main.
    ///
    /// * `ruta_ejecutable`: path of the executable
    /// * `hwnd_programa`: main window; NULL: a thread for each service polls
    /// * `nombre_servicio`: the service's name, case included
    /// * `version`: yours; clients can ask for it
    /// * `datos_externos`: yours; last argument of each call of the command function
    /// * `procesaComandoExterno`: the command function
    pub fn ivrexa_registra_servidor(
        ruta_ejecutable: *const c_char,
        hwnd_programa: ivrexa_hwnd,
        nombre_servicio: *const c_char,
        version: u16,
        datos_externos: *mut c_void,
        procesaComandoExterno: ivrexa_funcion_comando,
    );

    /// The same for a host whose own window procedure answers commands. Thread: main.
    ///
    /// * `ruta_ejecutable`: path of the executable
    /// * `hwnd_programa`: main window, whose own procedure answers the service's message
    /// * `nombre_servicio`: the service's name, case included
    /// * `version`: yours; clients can ask for it
    pub fn ivrexa_registra_servidor_net(
        ruta_ejecutable: *const c_char,
        hwnd_programa: ivrexa_hwnd,
        nombre_servicio: *const c_char,
        version: u16,
    );

    /// Adds a service, before ivrexa_terminado_registro. Thread: main.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `version`: yours; clients can ask for it
    /// * `datos_externos`: yours; last argument of each call of the command function
    /// * `procesaComandoExterno`: the command function
    pub fn ivrexa_anyade_servicio(
        nombre_servicio: *const c_char,
        version: u16,
        datos_externos: *mut c_void,
        procesaComandoExterno: ivrexa_funcion_comando,
    );

    /// The same in a server of the _net kind. Thread: main.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `version`: yours; clients can ask for it
    pub fn ivrexa_anyade_servicio_net(nombre_servicio: *const c_char, version: u16);

    /// Publishes the services and starts to receive commands. Thread: main.
    pub fn ivrexa_terminado_registro();

    /// Waits until no service of this program has a running thread. Thread: any.
    pub fn ivrexa_espera_comando_terminar_servidor();

    /// Asks the server of a service to end. Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    pub fn ivrexa_terminar_servidor(nombre_servicio: *const c_char);

    /// Registered window message of a service. Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * Returns: 0: unknown or not registered
    pub fn ivrexa_dame_id_MSG_servicio(nombre_servicio: *const c_char) -> u32;

    /// Reads the command under way. Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `id_comando`: the command under way
    /// * `id_datos_entrada_comando`: id of the input block; 0: none
    /// * `buffer_cliente_64`: the client's first text
    /// * `buffer_cliente_256`: the client's second text
    /// * `buffer_cliente2_256`: the client's third text
    /// * Returns: FALSO: nothing written; not this server's service, or another command
    pub fn ivrexa_get_datos_entrada_comando(
        nombre_servicio: *const c_char,
        id_comando: u32,
        id_datos_entrada_comando: *mut u32,
        buffer_cliente_64: *mut u16,
        buffer_cliente_256: *mut u16,
        buffer_cliente2_256: *mut u16,
    ) -> i16;

    /// Answers the command under way. Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `id_comando`: the command under way
    /// * `id_datos_salida_comando`: id of the output block; 0: none
    /// * `resultado_64`: first text; NULL: empty
    /// * `resultado_256`: second text; NULL: empty
    /// * `resultado_256_2`: third text; NULL: empty
    /// * Returns: FALSO: nothing written; not this server's service, or another command
    pub fn ivrexa_set_datos_salida_comando(
        nombre_servicio: *const c_char,
        id_comando: u32,
        id_datos_salida_comando: u32,
        resultado_64: *const u16,
        resultado_256: *const u16,
        resultado_256_2: *const u16,
    ) -> i16;

    /// Notifies a client and waits for its answer. Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `id_cliente`: the client's id
    /// * `dato`: yours
    /// * `id_datos`: id of a stored block; 0: none
    pub fn ivrexa_notifica_a_cliente(nombre_servicio: *const c_char, id_cliente: u32, dato: u32, id_datos: u32);

    /// Registers this program as a client of a service. Thread: main.
    ///
    /// * `ruta_ejecutable`: path of the executable
    /// * `hwnd_programa`: main window
    /// * `nombre_servicio`: the service's name, case included
    pub fn ivrexa_registra_cliente_de_servicio(
        ruta_ejecutable: *const c_char,
        hwnd_programa: ivrexa_hwnd,
        nombre_servicio: *const c_char,
    );

    /// The same, with a function for notifications. Thread: main.
    ///
    /// * `ruta_ejecutable`: path of the executable
    /// * `hwnd_programa`: main window
    /// * `nombre_servicio`: the service's name, case included
    /// * `funcion_notificacion_cliente`: the notification function
    pub fn ivrexa_registra_cliente_notificaciones_servicio(
        ruta_ejecutable: *const c_char,
        hwnd_programa: ivrexa_hwnd,
        nombre_servicio: *const c_char,
        funcion_notificacion_cliente: ivrexa_funcion_notificacion,
    );

    /// Runs a command on a service and waits for its end. Thread: any.
    ///
    /// * `nombre_servicio`: a service that this program is a client of
    /// * `id_comando`: 100 and up
    /// * `opciones_ventana`: bits ivrexa_ventana_*
    /// * `id_bloque_MCCom_entrada`: id of the input block; 0: none
    /// * `param1`: first text; NULL: empty
    /// * `param2`: second text; NULL: empty
    /// * `param3`: third text; NULL: empty
    /// * `id_datos_salida_comando`: id of the output block; written with result 1 only
    /// * `serv_buffer_64`: first text; empty unless the result is 1
    /// * `serv_buffer_256`: second text, likewise
    /// * `serv_buffer2_256`: third text, likewise
    /// * Returns: the command's result; servers may return other numbers
    pub fn ivrexa_ejecuta_comando(
        nombre_servicio: *const c_char,
        id_comando: u32,
        opciones_ventana: u16,
        id_bloque_MCCom_entrada: u32,
        param1: *const u16,
        param2: *const u16,
        param3: *const u16,
        id_datos_salida_comando: *mut u32,
        serv_buffer_64: *mut u16,
        serv_buffer_256: *mut u16,
        serv_buffer2_256: *mut u16,
    ) -> u32;

    /// Is a server attached to the service? Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `version_servicio`: the service's version
    /// * Returns: is one attached?
    pub fn ivrexa_hay_servicio_registrado(nombre_servicio: *const c_char, version_servicio: *mut u16) -> i16;

    /// The same for the first service whose name begins so. Thread: any.
    ///
    /// * `prefijo_nombre_servicio`: compared exactly; "" fits the first service
    /// * `buffer_nombre_servicio_registrado64`: the name found; untouched where there is none
    /// * `version_servicio`: the service's version
    /// * Returns: is there one?
    pub fn ivrexa_hay_servicio_registrado_empiece_por(
        prefijo_nombre_servicio: *const c_char,
        buffer_nombre_servicio_registrado64: *mut c_char,
        version_servicio: *mut u16,
    ) -> i16;

    /// Records that this program has opened a document for a service. Thread: main.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `ruta_documento`: path of the document
    /// * `id_documento`: yours, not 0
    /// * Returns: this client's id for the service; 0: not registered
    pub fn ivrexa_abierto_documento_de_cliente(
        nombre_servicio: *const c_char,
        ruta_documento: *const u16,
        id_documento: u32,
    ) -> u32;

    /// Records that the document is closed, for every service. Thread: main.
    ///
    /// * `ruta_documento`: path of the document
    /// * `id_documento`: yours, not 0
    pub fn ivrexa_cerrado_documento_de_cliente(ruta_documento: *const u16, id_documento: u32);

    /// Id of the block attached to the notification that is being handled. Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    /// * `id_cliente`: as the notification function got it
    /// * `dato`: as the notification function got it
    /// * Returns: id of the block; 0: none
    pub fn ivrexa_obtener_id_datos_notificacion(nombre_servicio: *const c_char, id_cliente: u32, dato: u32) -> u32;

    /// Tells the server that the notification has been handled. Thread: any.
    ///
    /// * `nombre_servicio`: the service's name, case included
    pub fn ivrexa_procesada_notificacion(nombre_servicio: *const c_char);

    /// Makes this program the desktop's monitor, or ends that. Thread: main.
    ///
    /// * `hwnd_monitor`: main window; NULL ends the monitor
    /// * `funcionNotificacionActividad`: called for each activity; NULL without a window
    /// * `funcionMonitorBuclesCliente`: called while a client waits; NULL without a window
    /// * `funcionMonitorBuclesServidor`: called while a server waits; NULL without a window
    /// * `datos_externos_monitor`: yours; last argument of every callback; NULL without a window
    pub fn ivrexa_registra_monitor(
        hwnd_monitor: ivrexa_hwnd,
        funcionNotificacionActividad: ivrexa_funcion_actividad,
        funcionMonitorBuclesCliente: ivrexa_funcion_bucle,
        funcionMonitorBuclesServidor: ivrexa_funcion_bucle,
        datos_externos_monitor: *mut c_void,
    );

    /// Ends this program's registration. Thread: main.
    pub fn ivrexa_cierra_sesion();
}

/// Name and address of every function that is bound here.
pub fn funciones() -> Vec<(&'static str, *const c_void)> {
    vec![
        ("ivrexa_crea_datos_comando_entrada", ivrexa_crea_datos_comando_entrada as *const c_void),
        ("ivrexa_crea_datos_comando_salida", ivrexa_crea_datos_comando_salida as *const c_void),
        ("ivrexa_graba_byte", ivrexa_graba_byte as *const c_void),
        ("ivrexa_graba_ushort", ivrexa_graba_ushort as *const c_void),
        ("ivrexa_graba_ulong", ivrexa_graba_ulong as *const c_void),
        ("ivrexa_graba_double", ivrexa_graba_double as *const c_void),
        ("ivrexa_graba_hwnd", ivrexa_graba_hwnd as *const c_void),
        ("ivrexa_graba_buffer", ivrexa_graba_buffer as *const c_void),
        ("ivrexa_graba_cadena_ansi", ivrexa_graba_cadena_ansi as *const c_void),
        ("ivrexa_graba_cadena_unicode", ivrexa_graba_cadena_unicode as *const c_void),
        ("ivrexa_graba_arr_cadenas_ansi", ivrexa_graba_arr_cadenas_ansi as *const c_void),
        ("ivrexa_graba_arr_cadenas_unicode", ivrexa_graba_arr_cadenas_unicode as *const c_void),
        ("ivrexa_destruye_datos_comando", ivrexa_destruye_datos_comando as *const c_void),
        ("ivrexa_guarda_datos", ivrexa_guarda_datos as *const c_void),
        ("ivrexa_lee_datos", ivrexa_lee_datos as *const c_void),
        ("ivrexa_numero_valores", ivrexa_numero_valores as *const c_void),
        ("ivrexa_nombre_valor", ivrexa_nombre_valor as *const c_void),
        ("ivrexa_tipoDato", ivrexa_tipoDato as *const c_void),
        ("ivrexa_dame_byte", ivrexa_dame_byte as *const c_void),
        ("ivrexa_dame_ushort", ivrexa_dame_ushort as *const c_void),
        ("ivrexa_dame_ulong", ivrexa_dame_ulong as *const c_void),
        ("ivrexa_dame_double", ivrexa_dame_double as *const c_void),
        ("ivrexa_dame_hwnd", ivrexa_dame_hwnd as *const c_void),
        ("ivrexa_dame_buffer", ivrexa_dame_buffer as *const c_void),
        ("ivrexa_dame_cadena_ansi", ivrexa_dame_cadena_ansi as *const c_void),
        ("ivrexa_dame_cadena_unicode", ivrexa_dame_cadena_unicode as *const c_void),
        ("ivrexa_dame_arr_cadenas_ansi", ivrexa_dame_arr_cadenas_ansi as *const c_void),
        ("ivrexa_dame_arr_cadenas_unicode", ivrexa_dame_arr_cadenas_unicode as *const c_void),
        ("ivrexa_registra_servidor", ivrexa_registra_servidor as *const c_void),
        ("ivrexa_registra_servidor_net", ivrexa_registra_servidor_net as *const c_void),
        ("ivrexa_anyade_servicio", ivrexa_anyade_servicio as *const c_void),
        ("ivrexa_anyade_servicio_net", ivrexa_anyade_servicio_net as *const c_void),
        ("ivrexa_terminado_registro", ivrexa_terminado_registro as *const c_void),
        ("ivrexa_espera_comando_terminar_servidor", ivrexa_espera_comando_terminar_servidor as *const c_void),
        ("ivrexa_terminar_servidor", ivrexa_terminar_servidor as *const c_void),
        ("ivrexa_dame_id_MSG_servicio", ivrexa_dame_id_MSG_servicio as *const c_void),
        ("ivrexa_get_datos_entrada_comando", ivrexa_get_datos_entrada_comando as *const c_void),
        ("ivrexa_set_datos_salida_comando", ivrexa_set_datos_salida_comando as *const c_void),
        ("ivrexa_notifica_a_cliente", ivrexa_notifica_a_cliente as *const c_void),
        ("ivrexa_registra_cliente_de_servicio", ivrexa_registra_cliente_de_servicio as *const c_void),
        (
            "ivrexa_registra_cliente_notificaciones_servicio",
            ivrexa_registra_cliente_notificaciones_servicio as *const c_void,
        ),
        ("ivrexa_ejecuta_comando", ivrexa_ejecuta_comando as *const c_void),
        ("ivrexa_hay_servicio_registrado", ivrexa_hay_servicio_registrado as *const c_void),
        ("ivrexa_hay_servicio_registrado_empiece_por", ivrexa_hay_servicio_registrado_empiece_por as *const c_void),
        ("ivrexa_abierto_documento_de_cliente", ivrexa_abierto_documento_de_cliente as *const c_void),
        ("ivrexa_cerrado_documento_de_cliente", ivrexa_cerrado_documento_de_cliente as *const c_void),
        ("ivrexa_obtener_id_datos_notificacion", ivrexa_obtener_id_datos_notificacion as *const c_void),
        ("ivrexa_procesada_notificacion", ivrexa_procesada_notificacion as *const c_void),
        ("ivrexa_registra_monitor", ivrexa_registra_monitor as *const c_void),
        ("ivrexa_cierra_sesion", ivrexa_cierra_sesion as *const c_void),
    ]
}
