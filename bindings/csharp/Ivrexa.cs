// Ivrexa.cs - what makes the exports in IvrexaNative.cs pleasant: values that are copied out, texts that are refused
// where the library would cut them, functions that are kept alive, exceptions that stay in this program.
//
// One session to a process. Registration and Session.Close belong to the main thread: that of the window, if there is
// one. Nothing here has a finalizer: command data is destroyed by Dispose, on the thread that uses it.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;

namespace Ivrexa
{
    /// <summary>One value of command data.</summary>
    public sealed class Value
    {
        public string Name { get; internal set; }
        public tipoDato Type { get; internal set; }
        /// <summary>byte, ushort, uint, double, IntPtr (a window), byte[], string or string[]; null for a null text and
        /// for wide texts in an array, which do not come back. So is an ANSI text in an array that its writer put
        /// outside the content.</summary>
        public object Content { get; internal set; }
    }

    /// <summary>The values of command data, copied out of it in the order in which they were written.</summary>
    public sealed class Values
    {
        readonly List<Value> m_values = new List<Value>();

        // The count is the writer's word, and so is each type: the first that is none ends it.
        internal Values(IntPtr container)
        {
            uint count = Native.ivrexa_numero_valores(container);
            for (uint i = 0; i < count; i++) {
                tipoDato type = (tipoDato)Native.ivrexa_tipoDato(container, i);
                if (type == tipoDato.ivrexa_tipoDato_desconocido || type > tipoDato.ivrexa_tipoDato_arr_cadenas_unicode)
                    break;
                string name = Texts.FromAnsi(Native.ivrexa_nombre_valor(container, i));
                m_values.Add(new Value { Name = name, Type = type, Content = Read(container, i, type) });
            }
        }

        public int Count { get { return m_values.Count; } }
        public Value this[int position] { get { return m_values[position]; } }

        /// <summary>The first value of this name, or null.</summary>
        public Value Find(string name)
        {
            return m_values.Find(value => value.Name == name);
        }

        /// <summary>The content of a value, of exactly this type: another throws InvalidCastException, a name that
        /// does not exist KeyNotFoundException.</summary>
        public T Get<T>(string name)
        {
            Value value = Find(name);
            if (value == null)
                throw new KeyNotFoundException("no value is called " + name);
            return (T)value.Content;
        }

        public T Get<T>(int position)
        {
            return (T)m_values[position].Content;
        }

        /// <summary>Opens a stored block and copies its values; null where there is no such block.</summary>
        public static Values Open(string service, uint block, bool isInput)
        {
            if (block == 0)
                return null;
            IntPtr container = Native.ivrexa_lee_datos(service, block, isInput ? Native.CIERTO : Native.FALSO);
            if (container == IntPtr.Zero)
                return null;
            try {
                return new Values(container);
            } finally {
                Native.ivrexa_destruye_datos_comando(container);
            }
        }

        static object Read(IntPtr container, uint i, tipoDato type)
        {
            uint size = 0;
            switch (type) {
            case tipoDato.ivrexa_tipoDato_byte:
                return Native.ivrexa_dame_byte(container, i);
            case tipoDato.ivrexa_tipoDato_ushort:
                return Native.ivrexa_dame_ushort(container, i);
            case tipoDato.ivrexa_tipoDato_ulong:
                return Native.ivrexa_dame_ulong(container, i);
            case tipoDato.ivrexa_tipoDato_double:
                return Native.ivrexa_dame_double(container, i);
            case tipoDato.ivrexa_tipoDato_hwnd:
                return Native.ivrexa_dame_hwnd(container, i);
            case tipoDato.ivrexa_tipoDato_buffer:
                IntPtr buffer = Native.ivrexa_dame_buffer(container, i, ref size);
                byte[] bytes = new byte[buffer == IntPtr.Zero ? 0 : checked((int)size)];
                if (bytes.Length != 0)
                    Marshal.Copy(buffer, bytes, 0, bytes.Length);
                return bytes;
            case tipoDato.ivrexa_tipoDato_cadena_ansi:
                return Texts.FromAnsi(Native.ivrexa_dame_cadena_ansi(container, i));
            case tipoDato.ivrexa_tipoDato_cadena_unicode:
                return Texts.FromWide(Native.ivrexa_dame_cadena_unicode(container, i));
            case tipoDato.ivrexa_tipoDato_arr_cadenas_ansi:
                IntPtr array = Native.ivrexa_dame_arr_cadenas_ansi(container, i, ref size);
                string[] texts = new string[array == IntPtr.Zero ? 0 : checked((int)size)];
                for (int k = 0; k < texts.Length; k++)
                    texts[k] = Texts.FromAnsi(Marshal.ReadIntPtr(array, k * IntPtr.Size));
                return texts;
            default:
                return null;
            }
        }
    }

    /// <summary>Command data that is written: a command's input, or its output.</summary>
    public sealed class DataWriter : IDisposable
    {
        readonly string m_service;
        IntPtr m_container;

        DataWriter(string service, IntPtr container)
        {
            m_service = service;
            m_container = container;
        }

        public static DataWriter ForInput(string service)
        {
            return new DataWriter(service, Native.ivrexa_crea_datos_comando_entrada(Texts.Service(service)));
        }

        public static DataWriter ForOutput(string service)
        {
            return new DataWriter(service, Native.ivrexa_crea_datos_comando_salida(Texts.Service(service)));
        }

        public void Add(string name, byte value)
        {
            Native.ivrexa_graba_byte(Container, Texts.Name(name), value);
        }

        public void Add(string name, ushort value)
        {
            Native.ivrexa_graba_ushort(Container, Texts.Name(name), value);
        }

        public void Add(string name, uint value)
        {
            Native.ivrexa_graba_ulong(Container, Texts.Name(name), value);
        }

        public void Add(string name, double value)
        {
            Native.ivrexa_graba_double(Container, Texts.Name(name), value);
        }

        public void Add(string name, byte[] value)
        {
            Native.ivrexa_graba_buffer(Container, Texts.Name(name), value, value == null ? 0 : (uint)value.Length);
        }

        /// <summary>A wide text; null stays null.</summary>
        public void Add(string name, string value)
        {
            Native.ivrexa_graba_cadena_unicode(Container, Texts.Name(name), Texts.Whole(value, "value"));
        }

        public void AddAnsi(string name, string value)
        {
            Native.ivrexa_graba_cadena_ansi(Container, Texts.Name(name), Texts.Whole(value, "value"));
        }

        /// <summary>ANSI texts; there is nothing of the kind for wide ones, because those do not come back.</summary>
        public void AddAnsi(string name, string[] values)
        {
            foreach (string value in values)
                Texts.Whole(value, "values");
            Native.ivrexa_graba_arr_cadenas_ansi(Container, Texts.Name(name), values, (uint)values.Length);
        }

        public void AddWindow(string name, IntPtr value)
        {
            Native.ivrexa_graba_hwnd(Container, Texts.Name(name), value);
        }

        /// <summary>Stores the data, once, and returns the block's id. This object keeps the block alive. There must be
        /// a server of the service. Client.Execute and Server.Notify store by themselves what was not.</summary>
        public uint Store()
        {
            if (Block != 0)
                throw new InvalidOperationException("this command data was stored before");
            Block = Native.ivrexa_guarda_datos(Container);
            if (Block == 0)
                throw new InvalidOperationException(
                    Client.IsOffered(m_service) ? "no room for the command data"
                                                : "nobody offers " + m_service + ": there is no place for its data");
            return Block;
        }

        /// <summary>The block's id, 0 before it is stored.</summary>
        public uint Block { get; private set; }

        public void Dispose()
        {
            if (m_container != IntPtr.Zero)
                Native.ivrexa_destruye_datos_comando(m_container);
            m_container = IntPtr.Zero;
        }

        /// <summary>Hands the container over to the library.</summary>
        internal IntPtr Release()
        {
            IntPtr container = Container;
            m_container = IntPtr.Zero;
            return container;
        }

        IntPtr Container
        {
            get {
                if (m_container == IntPtr.Zero)
                    throw new ObjectDisposedException("DataWriter");
                return m_container;
            }
        }
    }

    /// <summary>A command, as its handler gets it. It is good for that call.</summary>
    public sealed class Command
    {
        internal DataWriter Output;
        internal string[] Answers = { null, null, null };

        public string Service { get; internal set; }
        public uint Id { get; internal set; }
        /// <summary>The client's main window as a number, 0 without.</summary>
        public ulong ClientWindow { get; internal set; }
        /// <summary>The input, or null without.</summary>
        public Values Input { get; internal set; }
        /// <summary>The client's three texts.</summary>
        public string[] Texts { get; internal set; }

        /// <summary>What the client gets if the handler returns ivrexa_resultado_OK. The output, which may be null, is
        /// the library's from then on.</summary>
        public void Answer(DataWriter output, string text1 = null, string text2 = null, string text3 = null)
        {
            Answers = new[] { Ivrexa.Texts.Field(text1, 63), Ivrexa.Texts.Field(text2, 255),
                              Ivrexa.Texts.Field(text3, 255) };
            if (Output != null && Output != output)
                Output.Dispose();
            Output = output;
        }
    }

    /// <summary>What comes back of a command.</summary>
    public sealed class Answer
    {
        /// <summary>An ivrexa_resultado, or a number of the server's own.</summary>
        public uint Result { get; internal set; }
        public bool IsOk { get { return Result == (uint)ivrexa_resultado.ivrexa_resultado_OK; } }
        /// <summary>The server's three texts; empty unless IsOk.</summary>
        public string[] Texts { get; internal set; }
        /// <summary>The output, or null without.</summary>
        public Values Output { get; internal set; }
    }

    /// <summary>What a client is notified of, on a thread of the library.</summary>
    public sealed class Notification
    {
        public string Service { get; internal set; }
        public uint Client { get; internal set; }
        public uint Datum { get; internal set; }
        /// <summary>The attached data, or null without.</summary>
        public Values Data { get; internal set; }
    }

    public static class Session
    {
        // Functions that the library may call until the session ends.
        static readonly List<Delegate> s_kept = new List<Delegate>();

        /// <summary>Told of an exception that a handler let escape. One of its own goes nowhere.</summary>
        public static event Action<Exception> HandlerFailed;

        /// <summary>Ends this program's registration; not from a handler.</summary>
        public static void Close()
        {
            Native.ivrexa_cierra_sesion();
            Client.Forget();
            lock (s_kept)
                s_kept.Clear();
        }

        internal static T Keep<T>(T function) where T : class
        {
            lock (s_kept)
                s_kept.Add(function as Delegate);
            return function;
        }

        // The library waits for the function that failed, so nothing leaves this.
        internal static void Failed(Exception failure)
        {
            Action<Exception> told = HandlerFailed;
            if (told == null)
                return;
            foreach (Delegate one in told.GetInvocationList()) {
                try {
                    ((Action<Exception>)one)(failure);
                } catch (Exception) {
                }
            }
        }
    }

    public static class Server
    {
        /// <summary>Registers this program, or adds a service if it is registered. IntPtr.Zero as window: a thread for
        /// each service calls the handler; otherwise the window's message loop does.</summary>
        public static void Register(string path, IntPtr window, string service, ushort version,
                                    Func<Command, ivrexa_resultado> handler)
        {
            if (handler == null)
                throw new ArgumentNullException("handler");
            Texts.Service(service);
            Native.ivrexa_registra_servidor(Texts.Path(path), window, service, version, IntPtr.Zero,
                                            Session.Keep(Trampoline(handler)));
        }

        /// <summary>Publishes the services that were registered.</summary>
        public static void Publish()
        {
            Native.ivrexa_terminado_registro();
        }

        /// <summary>Waits until a server without a window was told to end.</summary>
        public static void Wait()
        {
            Native.ivrexa_espera_comando_terminar_servidor();
        }

        /// <summary>Notifies a client, and waits until it has answered or this server ends the service.</summary>
        public static void Notify(string service, uint client, uint datum, DataWriter data = null)
        {
            uint block = data == null ? 0 : data.Block != 0 ? data.Block : data.Store();
            Native.ivrexa_notifica_a_cliente(Texts.Service(service), client, datum, block);
        }

        static ivrexa_funcion_comando Trampoline(Func<Command, ivrexa_resultado> handler)
        {
            return (string service, uint id, ref comando context, IntPtr data) => {
                Command command = new Command { Service = service, Id = id, ClientWindow = context.hwnd_cliente };
                try {
                    Take(command, context.datos_entrada);
                    ivrexa_resultado result = handler(command);
                    Give(command, ref context);
                    return (int)result;
                } catch (Exception failure) {
                    if (command.Output != null)
                        command.Output.Dispose();
                    Session.Failed(failure);
                    return (int)ivrexa_resultado.ivrexa_resultado_ERROR;
                }
            };
        }

        static void Take(Command command, IntPtr input)
        {
            char[] text1 = new char[64], text2 = new char[256], text3 = new char[256];
            uint block = 0;
            if (Native.ivrexa_get_datos_entrada_comando(command.Service, command.Id, ref block, text1, text2, text3) !=
                Native.CIERTO)
                throw new InvalidOperationException("the command's texts could not be read");
            command.Texts = new[] { Texts.FromRoom(text1), Texts.FromRoom(text2), Texts.FromRoom(text3) };
            command.Input = input == IntPtr.Zero ? null : new Values(input);
        }

        // Answers in any case, so that no answer of a former command stays.
        static void Give(Command command, ref comando context)
        {
            uint block = command.Output == null ? 0 : command.Output.Block;
            if (command.Output != null && block == 0)
                block = command.Output.Store();
            if (Native.ivrexa_set_datos_salida_comando(command.Service, command.Id, block, command.Answers[0],
                                                       command.Answers[1], command.Answers[2]) != Native.CIERTO)
                throw new InvalidOperationException("the command could not be answered");
            if (command.Output != null)
                context.datos_salida = command.Output.Release();
        }
    }

    public static class Client
    {
        // A server without a window may take a client for dead whose heartbeat has not begun.
        const int FirstHeartbeatMs = 2500;
        static readonly Dictionary<string, Stopwatch> s_registered = new Dictionary<string, Stopwatch>();

        public static void Register(string path, IntPtr window, string service)
        {
            Native.ivrexa_registra_cliente_de_servicio(Texts.Path(path), window, Texts.Service(service));
            Registered(service);
        }

        /// <summary>Registers with a handler for notifications, which a thread of the library calls once for each. The
        /// server waits until it returns. Call this on the window's thread.</summary>
        public static void Register(string path, IntPtr window, string service, Action<Notification> handler)
        {
            if (handler == null || window == IntPtr.Zero)
                throw new ArgumentNullException(handler == null ? "handler" : "window");
            Texts.Service(service);
            Native.ivrexa_registra_cliente_notificaciones_servicio(Texts.Path(path), window, service,
                                                                   Session.Keep(Trampoline(handler)));
            Registered(service);
        }

        /// <summary>Runs a command and waits for its end. The first one after the registration waits until 2.5 s have
        /// passed since. Commands on one service must take turns, also those of other programs. An id below 100 is the
        /// library's own and throws ArgumentException. Before input is stored the service is asked for, as by
        /// IsOffered: where nobody offers it the result is ERROR, the library's own for that.</summary>
        public static Answer Execute(string service, uint id, DataWriter input = null, string text1 = null,
                                     string text2 = null, string text3 = null, ushort options = 0)
        {
            if (id < Native.ivrexa_comando_PRIMERO_PROPIO) // 1 would end the server
                throw new ArgumentException("command " + id + " is the library's: yours are 100 and up", "id");
            Texts.Field(text1, 63);
            Texts.Field(text2, 255);
            Texts.Field(text3, 255);
            AwaitHeartbeat(service);
            if (input != null && input.Block == 0 && !IsOffered(service))
                return new Answer {
                    Result = (uint)ivrexa_resultado.ivrexa_resultado_ERROR, Texts = new[] { "", "", "" }
                };
            char[] back1 = new char[64], back2 = new char[256], back3 = new char[256];
            uint block = input == null ? 0 : input.Block != 0 ? input.Block : input.Store(), output = 0;
            uint result = Native.ivrexa_ejecuta_comando(Texts.Service(service), id, options, block, text1, text2, text3,
                                                        ref output, back1, back2, back3);
            Answer answer = new Answer { Result = result };
            answer.Texts = new[] { Texts.FromRoom(back1), Texts.FromRoom(back2), Texts.FromRoom(back3) };
            answer.Output = answer.IsOk ? Values.Open(service, output, false) : null;
            return answer;
        }

        /// <summary>Is a server attached to the service? Each question for one that is offered leaves a handle open.
        /// </summary>
        public static bool IsOffered(string service)
        {
            ushort version = 0;
            return Native.ivrexa_hay_servicio_registrado(Texts.Service(service), ref version) == Native.CIERTO;
        }

        static void Registered(string service)
        {
            lock (s_registered)
                s_registered[service] = Stopwatch.StartNew();
        }

        internal static void Forget()
        {
            lock (s_registered)
                s_registered.Clear();
        }

        static void AwaitHeartbeat(string service)
        {
            Stopwatch since;
            lock (s_registered)
                s_registered.TryGetValue(service, out since);
            long left = since == null ? 0 : FirstHeartbeatMs - since.ElapsedMilliseconds;
            if (left > 0)
                Thread.Sleep((int)left);
        }

        // The library calls twice for each notification; only the first call is on a thread of its own.
        static ivrexa_funcion_notificacion Trampoline(Action<Notification> handler)
        {
            int windowThread = Thread.CurrentThread.ManagedThreadId;
            return (string service, uint client, uint datum) => {
                if (Thread.CurrentThread.ManagedThreadId == windowThread)
                    return;
                try {
                    uint block = Native.ivrexa_obtener_id_datos_notificacion(service, client, datum);
                    handler(new Notification {
                        Service = service, Client = client, Datum = datum, Data = Values.Open(service, block, false)
                    });
                } catch (Exception failure) {
                    Session.Failed(failure);
                } finally {
                    Native.ivrexa_procesada_notificacion(service); // the server waits for it
                }
            };
        }
    }

    /// <summary>Texts on their way in and out.</summary>
    static class Texts
    {
        public static string Service(string service)
        {
            return Bounded(service, 1, 63, "service");
        }

        public static string Name(string name)
        {
            return Bounded(name, 0, 254, "name");
        }

        public static string Path(string path)
        {
            return Bounded(path, 1, 255, "path");
        }

        /// <summary>A wide text that must arrive whole.</summary>
        public static string Field(string text, int longest)
        {
            if (text != null && text.Length > longest)
                throw new ArgumentException("a text of " + text.Length + " characters where " + longest + " arrive");
            return Whole(text, "text");
        }

        public static string Whole(string text, string what)
        {
            if (text != null && text.IndexOf('\0') >= 0)
                throw new ArgumentException("a NUL inside the text", what);
            return text;
        }

        public static string FromAnsi(IntPtr text)
        {
            return text == IntPtr.Zero ? null : Marshal.PtrToStringAnsi(text);
        }

        /// <summary>Of a wide text, which may lie at an odd address.</summary>
        public static string FromWide(IntPtr text)
        {
            if (text == IntPtr.Zero)
                return null;
            StringBuilder copy = new StringBuilder();
            for (int i = 0; Marshal.ReadInt16(text, i) != 0; i += 2)
                copy.Append((char)(ushort)Marshal.ReadInt16(text, i));
            return copy.ToString();
        }

        public static string FromRoom(char[] room)
        {
            int end = Array.IndexOf(room, '\0');
            return new string(room, 0, end < 0 ? room.Length : end);
        }

        // The limit counts bytes of the code page.
        static string Bounded(string text, int shortest, int longest, string what)
        {
            if (text == null)
                throw new ArgumentNullException(what);
            Whole(text, what);
            IntPtr ansi = Marshal.StringToHGlobalAnsi(text);
            int length = 0;
            while (length <= longest && Marshal.ReadByte(ansi, length) != 0)
                length++;
            Marshal.FreeHGlobal(ansi);
            if (length < shortest)
                throw new ArgumentException("it is empty", what);
            if (length > longest)
                throw new ArgumentException("it has more than " + longest + " characters", what);
            return text;
        }
    }
}
