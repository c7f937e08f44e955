// IvrexaNative.cs - the exports of ivrexa.dll as they are.
// Made by bindings/genera.py from bindings/ivrexa.json. Do not edit: a test compares.
//
// Names are those of ivrexa.h, which says what each function does. What is different from C:
//   texts    go in as string, copied for the call. An ANSI text that the code page cannot hold throws.
//            Those that come back are pointers: the library's, which nobody frees.
//   buffers  char[] and byte[] that the library writes must have the room that the comment says, or be null.
//   numbers  that come back through a pointer are ref: the library may leave them as they are.
//   truth    short, 1 or 0. Compare with 1.
//   functions that the library keeps must be kept alive by the caller: a delegate that is collected crashes.
using System;
using System.Runtime.InteropServices;

namespace Ivrexa
{
    /// <summary>Type of a value.</summary>
    public enum tipoDato : uint
    {
        /// <summary>a position that does not exist</summary>
        ivrexa_tipoDato_desconocido = 0,
        /// <summary>8 bits</summary>
        ivrexa_tipoDato_byte = 1,
        /// <summary>16 bits</summary>
        ivrexa_tipoDato_ushort = 2,
        /// <summary>32 bits</summary>
        ivrexa_tipoDato_ulong = 3,
        /// <summary>a double</summary>
        ivrexa_tipoDato_double = 4,
        /// <summary>bytes</summary>
        ivrexa_tipoDato_buffer = 5,
        /// <summary>an ANSI text</summary>
        ivrexa_tipoDato_cadena_ansi = 6,
        /// <summary>a wide text</summary>
        ivrexa_tipoDato_cadena_unicode = 7,
        /// <summary>a window handle</summary>
        ivrexa_tipoDato_hwnd = 8,
        /// <summary>ANSI texts</summary>
        ivrexa_tipoDato_arr_cadenas_ansi = 9,
        /// <summary>wide texts, which do not come back</summary>
        ivrexa_tipoDato_arr_cadenas_unicode = 10,
    }

    /// <summary>Result of a command; a command function may return other numbers.</summary>
    public enum ivrexa_resultado : uint
    {
        /// <summary>no answer</summary>
        ivrexa_resultado_NINGUNO = 0,
        /// <summary>the only result with which texts and output data arrive</summary>
        ivrexa_resultado_OK = 1,
        /// <summary>cancelled</summary>
        ivrexa_resultado_CANCELADO = 2,
        /// <summary>refused; not a client of the service; a server that is gone</summary>
        ivrexa_resultado_ERROR = 3,
    }

    /// <summary>What a command function is called with; lives for that call.</summary>
    [StructLayout(LayoutKind.Explicit, Size = 32)]
    public struct comando
    {
        /// <summary>the command's input</summary>
        [FieldOffset(0)]
        public IntPtr datos_entrada;
        /// <summary>NULL on entry; put your stored output here</summary>
        [FieldOffset(8)]
        public IntPtr datos_salida;
        /// <summary>the client's main window, as a number; 0: none</summary>
        [FieldOffset(16)]
        public ulong hwnd_cliente;
        /// <summary>the server's main window</summary>
        [FieldOffset(24)]
        public IntPtr hwnd_servidor;
    }

    /// <summary>One activity in the registry.</summary>
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct iv_mcbase_actividad_t
    {
        /// <summary>position in the service table; 32: none</summary>
        public uint ind_datServ;
        /// <summary>command id, or 0</summary>
        public uint dato1;
        /// <summary>id of a block, or 0</summary>
        public uint dato2;
        /// <summary>who acts: 0 server, 1 client, 2 monitor</summary>
        public uint tipo_programa;
        /// <summary>1 service, 2 command, 3 input data, 4 output data</summary>
        public uint tipo_actividad;
        /// <summary>1 begins, 0 ends</summary>
        public ushort indicador;
    }

    /// <summary>One program in the registry.</summary>
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct iv_mcbase_programa_t
    {
        /// <summary>path of the executable; first byte 0: free entry</summary>
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 256)]
        public byte[] nombre;
        /// <summary>main window; 0: none</summary>
        public ulong hwnd;
        /// <summary>is it a server?</summary>
        public ushort es_servidor;
        /// <summary>is it a client?</summary>
        public ushort es_cliente;
        /// <summary>is it the monitor?</summary>
        public ushort es_monitor;
        /// <summary>heartbeat, one more every 2000 ms</summary>
        public uint contador_vivo;
    }

    /// <summary>One service in the registry.</summary>
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct datServ
    {
        /// <summary>first byte 0: free entry</summary>
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)]
        public byte[] nombre;
        /// <summary>the server's entry</summary>
        public ushort id_programa_servidor;
        /// <summary>the last registered client's entry</summary>
        public ushort id_programa_cliente;
        /// <summary>loop state the server waits in</summary>
        public uint bucle_servidor_estado;
        /// <summary>rounds of 100 ms spent in it</summary>
        public uint bucle_servidor_vueltas;
        /// <summary>the client's heartbeat then</summary>
        public uint bucle_servidor_vivo_cliente;
        /// <summary>command under way; 0: none</summary>
        public uint id_comando_en_curso;
        /// <summary>loop state the client waits in</summary>
        public uint bucle_cliente_estado;
        /// <summary>rounds of 100 ms spent in it</summary>
        public uint bucle_cliente_vueltas;
        /// <summary>the server's heartbeat then</summary>
        public uint bucle_cliente_vivo_servidor;
    }

    /// <summary>The registry that every program of a desktop shares. Read only.</summary>
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct iv_mcbase_t
    {
        /// <summary>8886 once a monitor has initialised it</summary>
        public ushort tam_bloque;
        /// <summary>256 likewise</summary>
        public ushort version;
        /// <summary>processes that opened it to register</summary>
        public ushort num_registros;
        /// <summary>0: no monitor</summary>
        public ulong hwnd_monitor;
        /// <summary>the monitor's window message</summary>
        public uint msg_monitor;
        /// <summary>number of the next activity record, 1 to 63</summary>
        public uint num_actividad_siguiente;
        /// <summary>the activities</summary>
        [MarshalAs(UnmanagedType.ByValArray, ArraySubType = UnmanagedType.Struct, SizeConst = 64)]
        public iv_mcbase_actividad_t[] actividades;
        /// <summary>the programs</summary>
        [MarshalAs(UnmanagedType.ByValArray, ArraySubType = UnmanagedType.Struct, SizeConst = 16)]
        public iv_mcbase_programa_t[] programas;
        /// <summary>the services</summary>
        [MarshalAs(UnmanagedType.ByValArray, ArraySubType = UnmanagedType.Struct, SizeConst = 32)]
        public datServ[] servicios;
    }

    /// <summary>A service's command function. Thread: the window's, or the service's own without a window.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate int ivrexa_funcion_comando(
        [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
        uint id_comando,
        ref comando contexto,
        IntPtr datos_externos);

    /// <summary>A client's notification function, called twice for each notification. Thread: the notification thread,
    /// then the window's.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void ivrexa_funcion_notificacion(
        [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
        uint id_cliente,
        uint dato);

    /// <summary>A monitor's activity function. Thread: the window's.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void ivrexa_funcion_actividad(
        uint tipo_programa,
        uint tipo_actividad,
        ushort indicador,
        IntPtr nombre_servicio,
        uint dato1,
        uint dato2,
        IntPtr datos_externos_monitor);

    /// <summary>A monitor's loop function: somebody waits. Thread: the window's.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void ivrexa_funcion_bucle(
        IntPtr mcbase,
        IntPtr servicio,
        uint estado,
        IntPtr datos_externos_monitor);

    /// <summary>The exports and the constants.</summary>
    public static class Native
    {
        public const string Dll = "ivrexa.dll";

        /// <summary>true</summary>
        public const short CIERTO = 1;
        /// <summary>false</summary>
        public const short FALSO = 0;
        /// <summary>ends the server</summary>
        public const uint ivrexa_comando_TERMINAR = 1;
        /// <summary>the first id for hosts</summary>
        public const uint ivrexa_comando_PRIMERO_PROPIO = 100;
        /// <summary>server's window to the foreground when the command is sent</summary>
        public const uint ivrexa_ventana_TRAE_SERVIDOR = 2;
        /// <summary>foreground back when the command ends</summary>
        public const uint ivrexa_ventana_DEVUELVE_FOCO = 4;
        /// <summary>programs; as an id_programa: none</summary>
        public const uint iv_mcbase_NUM_MAX_PROGRAMAS = 16;
        /// <summary>services; as an ind_datServ: none</summary>
        public const uint iv_mcbase_NUM_MAX_SERVICIOS = 32;
        /// <summary>activity records</summary>
        public const uint iv_mcbase_NUM_ACTIVIDADES = 64;
        /// <summary>bytes of a program's name</summary>
        public const uint iv_mcbase_TAM_NOMBRE_PROGRAMA = 256;
        /// <summary>bytes of a service's name</summary>
        public const uint iv_mcbase_TAM_NOMBRE_SERVICIO = 64;
        /// <summary>the registry's version</summary>
        public const uint iv_mcbase_VERSION = 256;

        /// <summary>Makes empty command data for a command's input (client).</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_crea_datos_comando_entrada(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio);

        /// <summary>Makes empty command data for a command's output (server).</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_crea_datos_comando_salida(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio);

        /// <summary>Appends a number.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_byte(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            byte valor);

        /// <summary>Appends a number.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_ushort(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            ushort valor);

        /// <summary>Appends a number.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_ulong(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            uint valor);

        /// <summary>Appends a number.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_double(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            double valor);

        /// <summary>Appends a window handle.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_hwnd(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            IntPtr valor);

        /// <summary>Appends bytes.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_buffer(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            [In, MarshalAs(UnmanagedType.LPArray)] byte[] buffer,
            uint tam);

        /// <summary>Appends an ANSI text.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_cadena_ansi(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            [MarshalAs(UnmanagedType.LPStr)] string cadena);

        /// <summary>Appends a wide text.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_cadena_unicode(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            [MarshalAs(UnmanagedType.LPWStr)] string cadena);

        /// <summary>Appends ANSI texts.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_arr_cadenas_ansi(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            [In, MarshalAs(UnmanagedType.LPArray, ArraySubType = UnmanagedType.LPStr)] string[] cadenas,
            uint num_valores);

        /// <summary>Appends wide texts. They do not come back, and hide the values behind them.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_graba_arr_cadenas_unicode(
            IntPtr comdat,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_valor,
            [In, MarshalAs(UnmanagedType.LPArray, ArraySubType = UnmanagedType.LPWStr)] string[] cadenas,
            uint num_valores);

        /// <summary>Destroys a container and what its readers returned.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_destruye_datos_comando(IntPtr comdat);

        /// <summary>Stores a written container in a shared block of its own.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_guarda_datos(IntPtr comdat);

        /// <summary>Opens stored command data for reading.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_lee_datos(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            uint id_bloque_MCCom,
            short es_entrada);

        /// <summary>How many values.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_numero_valores(IntPtr comdat);

        /// <summary>Name of a value.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_nombre_valor(IntPtr comdat, uint indice);

        /// <summary>Type of a value.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_tipoDato(IntPtr comdat, uint indice);

        /// <summary>The number at a position.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte ivrexa_dame_byte(IntPtr comdat, uint indice);

        /// <summary>The number at a position.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern ushort ivrexa_dame_ushort(IntPtr comdat, uint indice);

        /// <summary>The number at a position.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_dame_ulong(IntPtr comdat, uint indice);

        /// <summary>The number at a position.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern double ivrexa_dame_double(IntPtr comdat, uint indice);

        /// <summary>The window handle at a position.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_dame_hwnd(IntPtr comdat, uint indice);

        /// <summary>The bytes at a position.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_dame_buffer(IntPtr comdat, uint indice, ref uint tam_buffer);

        /// <summary>The ANSI text at a position.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_dame_cadena_ansi(IntPtr comdat, uint indice);

        /// <summary>The wide text at a position, perhaps at an odd address.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_dame_cadena_unicode(IntPtr comdat, uint indice);

        /// <summary>The ANSI texts at a position; read an array once.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_dame_arr_cadenas_ansi(IntPtr comdat, uint indice, ref uint num_valores);

        /// <summary>The wide texts at a position; read an array once.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern IntPtr ivrexa_dame_arr_cadenas_unicode(IntPtr comdat, uint indice, ref uint num_valores);

        /// <summary>Registers this program as a server and adds its first service.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_registra_servidor(
            [MarshalAs(UnmanagedType.LPStr)] string ruta_ejecutable,
            IntPtr hwnd_programa,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            ushort version,
            IntPtr datos_externos,
            ivrexa_funcion_comando procesaComandoExterno);

        /// <summary>The same for a host whose own window procedure answers commands.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_registra_servidor_net(
            [MarshalAs(UnmanagedType.LPStr)] string ruta_ejecutable,
            IntPtr hwnd_programa,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            ushort version);

        /// <summary>Adds a service, before ivrexa_terminado_registro.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_anyade_servicio(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            ushort version,
            IntPtr datos_externos,
            ivrexa_funcion_comando procesaComandoExterno);

        /// <summary>The same in a server of the _net kind.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_anyade_servicio_net(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            ushort version);

        /// <summary>Publishes the services and starts to receive commands.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_terminado_registro();

        /// <summary>Waits until no service of this program has a running thread.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_espera_comando_terminar_servidor();

        /// <summary>Asks the server of a service to end.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_terminar_servidor([MarshalAs(UnmanagedType.LPStr)] string nombre_servicio);

        /// <summary>Registered window message of a service.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_dame_id_MSG_servicio([MarshalAs(UnmanagedType.LPStr)] string nombre_servicio);

        /// <summary>Reads the command under way. Room: buffer_cliente_64 64, buffer_cliente_256 256,
        /// buffer_cliente2_256 256.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern short ivrexa_get_datos_entrada_comando(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            uint id_comando,
            ref uint id_datos_entrada_comando,
            [Out, MarshalAs(UnmanagedType.LPArray)] char[] buffer_cliente_64,
            [Out, MarshalAs(UnmanagedType.LPArray)] char[] buffer_cliente_256,
            [Out, MarshalAs(UnmanagedType.LPArray)] char[] buffer_cliente2_256);

        /// <summary>Answers the command under way.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern short ivrexa_set_datos_salida_comando(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            uint id_comando,
            uint id_datos_salida_comando,
            [MarshalAs(UnmanagedType.LPWStr)] string resultado_64,
            [MarshalAs(UnmanagedType.LPWStr)] string resultado_256,
            [MarshalAs(UnmanagedType.LPWStr)] string resultado_256_2);

        /// <summary>Notifies a client and waits for its answer.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_notifica_a_cliente(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            uint id_cliente,
            uint dato,
            uint id_datos);

        /// <summary>Registers this program as a client of a service.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_registra_cliente_de_servicio(
            [MarshalAs(UnmanagedType.LPStr)] string ruta_ejecutable,
            IntPtr hwnd_programa,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio);

        /// <summary>The same, with a function for notifications.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_registra_cliente_notificaciones_servicio(
            [MarshalAs(UnmanagedType.LPStr)] string ruta_ejecutable,
            IntPtr hwnd_programa,
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            ivrexa_funcion_notificacion funcion_notificacion_cliente);

        /// <summary>Runs a command on a service and waits for its end. Room: serv_buffer_64 64, serv_buffer_256 256,
        /// serv_buffer2_256 256.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_ejecuta_comando(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            uint id_comando,
            ushort opciones_ventana,
            uint id_bloque_MCCom_entrada,
            [MarshalAs(UnmanagedType.LPWStr)] string param1,
            [MarshalAs(UnmanagedType.LPWStr)] string param2,
            [MarshalAs(UnmanagedType.LPWStr)] string param3,
            ref uint id_datos_salida_comando,
            [Out, MarshalAs(UnmanagedType.LPArray)] char[] serv_buffer_64,
            [Out, MarshalAs(UnmanagedType.LPArray)] char[] serv_buffer_256,
            [Out, MarshalAs(UnmanagedType.LPArray)] char[] serv_buffer2_256);

        /// <summary>Is a server attached to the service?</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern short ivrexa_hay_servicio_registrado(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            ref ushort version_servicio);

        /// <summary>The same for the first service whose name begins so. Room: buffer_nombre_servicio_registrado64
        /// 64.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern short ivrexa_hay_servicio_registrado_empiece_por(
            [MarshalAs(UnmanagedType.LPStr)] string prefijo_nombre_servicio,
            [Out, MarshalAs(UnmanagedType.LPArray)] byte[] buffer_nombre_servicio_registrado64,
            ref ushort version_servicio);

        /// <summary>Records that this program has opened a document for a service.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_abierto_documento_de_cliente(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            [MarshalAs(UnmanagedType.LPWStr)] string ruta_documento,
            uint id_documento);

        /// <summary>Records that the document is closed, for every service.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_cerrado_documento_de_cliente(
            [MarshalAs(UnmanagedType.LPWStr)] string ruta_documento,
            uint id_documento);

        /// <summary>Id of the block attached to the notification that is being handled.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern uint ivrexa_obtener_id_datos_notificacion(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio,
            uint id_cliente,
            uint dato);

        /// <summary>Tells the server that the notification has been handled.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_procesada_notificacion(
            [MarshalAs(UnmanagedType.LPStr)] string nombre_servicio);

        /// <summary>Makes this program the desktop's monitor, or ends that.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_registra_monitor(
            IntPtr hwnd_monitor,
            ivrexa_funcion_actividad funcionNotificacionActividad,
            ivrexa_funcion_bucle funcionMonitorBuclesCliente,
            ivrexa_funcion_bucle funcionMonitorBuclesServidor,
            IntPtr datos_externos_monitor);

        /// <summary>Ends this program's registration.</summary>
        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,
            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void ivrexa_cierra_sesion();
    }
}
