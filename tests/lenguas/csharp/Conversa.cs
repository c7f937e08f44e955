// Conversa.cs - the C# layer in conversation with falsa.c in place of the library: what goes in must come back.
using System;
using System.Linq;
using System.Runtime.InteropServices;
using Ivrexa;

static class Conversa
{
    [DllImport(Native.Dll)]
    static extern int falsa_contenedores();
    [DllImport(Native.Dll)]
    static extern int falsa_procesadas();
    [DllImport(Native.Dll)]
    static extern void falsa_miente(uint more);
    [DllImport(Native.Dll)]
    static extern void falsa_falla(int noTexts, int noAnswer);
    [DllImport(Native.Dll)]
    static extern void falsa_sin_sitio(int noRoom);

    static void Demand(bool good, string what)
    {
        if (!good)
            throw new Exception(what);
    }

    static void Refused<T>(string what, Action action) where T : Exception
    {
        try {
            action();
        } catch (T) {
            Console.WriteLine("refused: " + what);
            return;
        }
        throw new Exception("not refused: " + what);
    }

    static void Collect()
    {
        GC.Collect();
        GC.WaitForPendingFinalizers();
    }

    static void Write(DataWriter data)
    {
        data.Add("b", (byte)255);
        data.Add("u", (ushort)65535);
        data.Add("l", 4294967295u);
        data.Add("d", 2.5);
        data.AddWindow("w", new IntPtr(0x1234567890));
        data.Add("y", new byte[] { 0, 1, 2 });
        data.AddAnsi("a", "uno");
        data.Add("t", "a\u00f1o\u20ac");
        data.Add("n", (string)null);
        data.AddAnsi("z", (string)null);
        data.AddAnsi("arr", new[] { "uno", "", null, "tres" });
    }

    static void Check(Values values)
    {
        Demand(string.Join(",", Enumerable.Range(0, values.Count).Select(i => values[i].Name)) ==
               "b,u,l,d,w,y,a,t,n,z,arr", "names in order");
        Demand(values.Get<byte>("b") == 255 && values.Get<ushort>("u") == 65535, "byte and ushort");
        Demand(values.Get<uint>("l") == 4294967295u && values.Get<double>("d") == 2.5, "ulong and double");
        Demand(values.Get<IntPtr>("w").ToInt64() == 0x1234567890, "window");
        Demand(values.Get<byte[]>("y").SequenceEqual(new byte[] { 0, 1, 2 }), "bytes");
        Demand(values.Get<string>("a") == "uno" && values.Get<string>("t") == "a\u00f1o\u20ac", "texts");
        Demand(values.Get<string>("n") == null && values.Get<string>(9) == null, "null texts");
        Demand(values.Get<string[]>("arr").SequenceEqual(new[] { "uno", "", null, "tres" }), "array");
        Demand(values[7].Type == tipoDato.ivrexa_tipoDato_cadena_unicode && values.Find("x") == null, "types, find");
    }

    static ivrexa_resultado Handle(Command command)
    {
        if (command.Id == 101)
            throw new InvalidOperationException("on purpose");
        Demand(command.Service == "Calc" && command.ClientWindow == 0xFEDCBA9876543210, "service and window");
        if (command.Input == null)
            return ivrexa_resultado.ivrexa_resultado_OK;
        Check(command.Input);
        DataWriter output = DataWriter.ForOutput(command.Service);
        Write(output);
        command.Answer(output, command.Texts[0], command.Texts[1], command.Texts[2]);
        return ivrexa_resultado.ivrexa_resultado_OK;
    }

    static void Nobody()
    {
        Answer plain = Client.Execute("Calc", 100);
        Demand(plain.Result == 3 && plain.Output == null, "nobody, without input: " + plain.Result);
        using (DataWriter input = DataWriter.ForInput("Calc")) {
            Write(input);
            Answer answer = Client.Execute("Calc", 100, input, "one");
            Demand(answer.Result == 3 && answer.Output == null && answer.Texts.SequenceEqual(plain.Texts),
                   "nobody, with input: " + answer.Result);
            RefusedStore("nobody offers Calc: there is no place for its data", input);
        }
    }

    static void RefusedStore(string expected, DataWriter data)
    {
        try {
            data.Store();
        } catch (InvalidOperationException e) {
            Demand(e.Message == expected, "\"" + e.Message + "\" in place of \"" + expected + "\"");
            return;
        }
        throw new Exception("stored: " + expected);
    }

    // The commonest mistake: no server was started.
    static void WithoutServer()
    {
        Nobody();
        Client.Register("cliente", IntPtr.Zero, "Calc");
        Nobody();
    }

    static void NoRoom()
    {
        falsa_sin_sitio(1);
        using (DataWriter input = DataWriter.ForInput("Calc")) {
            RefusedStore("no room for the command data", input);
            Refused<InvalidOperationException>("no room", () => Client.Execute("Calc", 100, input));
        }
        falsa_sin_sitio(0);
    }

    static void Commands()
    {
        Server.Register("servidor", IntPtr.Zero, "Calc", 3, Handle);
        Server.Publish();
        Client.Register("cliente", IntPtr.Zero, "Calc");
        Collect(); // what the library keeps must live
        Demand(Client.IsOffered("Calc") && !Client.IsOffered("Otro"), "is offered");
        using (DataWriter input = DataWriter.ForInput("Calc")) {
            Write(input);
            Answer answer = Client.Execute("Calc", 100, input, new string('x', 63), null, "a\u00f1o");
            Demand(answer.IsOk, "result " + answer.Result);
            Check(answer.Output);
            Demand(answer.Texts.SequenceEqual(new[] { new string('x', 63), "", "a\u00f1o" }), "the three texts");
        }
        Answer plain = Client.Execute("Calc", 100);
        Demand(plain.IsOk && plain.Output == null && plain.Texts.All(t => t == ""), "no answer of a former command");
    }

    static string s_failure;

    static void Listen(Exception failure)
    {
        s_failure = failure.Message;
    }

    static void Throw(Exception failure)
    {
        throw failure;
    }

    static void FailsWith(string failure)
    {
        s_failure = null;
        Demand(Client.Execute("Calc", failure == "on purpose" ? 101u : 100u).Result == 3, failure + " is ERROR");
        Demand(s_failure == failure, "told \"" + s_failure + "\" in place of \"" + failure + "\"");
    }

    static void Failures()
    {
        Session.HandlerFailed += Throw; // that of one who listens stays there
        Session.HandlerFailed += Listen;
        FailsWith("on purpose");
        falsa_falla(1, 0);
        FailsWith("the command's texts could not be read");
        falsa_falla(0, 1);
        FailsWith("the command could not be answered");
        falsa_falla(0, 0);
        s_failure = null;
    }

    static void Lies()
    {
        falsa_miente(1000000);
        using (DataWriter input = DataWriter.ForInput("Calc")) {
            Write(input);
            Answer answer = Client.Execute("Calc", 100, input);
            Demand(answer.IsOk, "a count that is a lie: " + s_failure);
            Check(answer.Output);
        }
        falsa_miente(0);
    }

    static void Refusals()
    {
        foreach (uint id in new uint[] { 0, 1, 99 })
            Refused<ArgumentException>("command " + id, () => Client.Execute("Calc", id));
        Refused<ArgumentException>("text 1", () => Client.Execute("Calc", 100, null, new string('x', 64)));
        Refused<ArgumentException>("text 3", () => Client.Execute("Calc", 100, null, "", "", new string('x', 256)));
        Refused<ArgumentException>("NUL", () => Client.Execute("Calc", 100, null, "a\0b"));
        Refused<ArgumentException>("service", () => Client.Execute(new string('x', 64), 100));
        Refused<ArgumentException>("no service", () => Client.Execute("", 100));
        using (DataWriter data = DataWriter.ForInput("Calc")) {
            data.Add(new string('x', 254), 1u);
            Refused<ArgumentException>("name", () => data.Add(new string('x', 255), 1u));
            Refused<ArgumentException>("value with NUL", () => data.Add("n", "a\0b"));
            data.Store();
            Refused<InvalidOperationException>("second store", () => data.Store());
            data.Dispose();
            Refused<ObjectDisposedException>("disposed", () => data.Add("n", 1u));
        }
    }

    static void Notifications()
    {
        int calls = 0;
        Client.Register("cliente", new IntPtr(5), "Calc", notification => {
            if (++calls == 2)
                throw new InvalidOperationException("a notification");
            Demand(notification.Client == 200 && notification.Datum == 7, "client and datum");
            Check(notification.Data);
        });
        Collect();
        using (DataWriter data = DataWriter.ForOutput("Calc")) {
            Write(data);
            Server.Notify("Calc", 200, 7, data);
        }
        Demand(s_failure == null, "it failed: " + s_failure);
        Demand(calls == 1 && falsa_procesadas() == 1, "told once, answered once");
        Server.Notify("Calc", 200, 7);
        Demand(s_failure == "a notification" && falsa_procesadas() == 2, "answered after an exception too");
    }

    static int Main()
    {
        try {
            WithoutServer();
            Commands();
            NoRoom();
            Failures();
            Lies();
            Refusals();
            Notifications();
            Session.Close();
            Demand(falsa_contenedores() == 0, falsa_contenedores() + " containers are left");
        } catch (Exception e) {
            Console.WriteLine("failed: " + e);
            return 1;
        }
        Console.WriteLine("all came back");
        return 0;
    }
}
