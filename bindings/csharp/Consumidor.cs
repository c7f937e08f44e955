// Consumidor.cs - a program that uses the C# layer as a host would: a server without a window, or its client.
//
//     consumidor server [SERVICE]
//     consumidor client [SERVICE]
//
// Compiled by: mcs -platform:x64 Consumidor.cs Ivrexa.cs IvrexaNative.cs
using System;
using Ivrexa;

static class Consumidor
{
    const uint Sum = 100;

    static ivrexa_resultado Handle(Command command)
    {
        if (command.Id != Sum || command.Input == null)
            return ivrexa_resultado.ivrexa_resultado_ERROR;
        DataWriter output = DataWriter.ForOutput(command.Service);
        output.Add("total", command.Input.Get<uint>("a") + command.Input.Get<uint>(1));
        command.Answer(output, "done", command.Texts[1]);
        return ivrexa_resultado.ivrexa_resultado_OK;
    }

    static int Serve(string service)
    {
        Session.HandlerFailed += failure => Console.Error.WriteLine(failure.Message);
        Server.Register("consumidor.exe", IntPtr.Zero, service, 1, Handle);
        Server.Publish();
        Console.WriteLine("ready: " + service);
        Server.Wait();
        return 0;
    }

    static int Ask(string service)
    {
        if (!Client.IsOffered(service)) {
            Console.Error.WriteLine("nobody offers {0}: start the server first", service);
            return 2;
        }
        Client.Register("consumidor.exe", IntPtr.Zero, service);
        using (DataWriter input = DataWriter.ForInput(service)) {
            input.Add("a", 40u);
            input.Add("b", 2u);
            Answer answer = Client.Execute(service, Sum, input, "one", "two");
            Console.WriteLine("result {0}: {1} {2}", answer.Result, answer.IsOk ? answer.Output.Get<uint>("total") : 0,
                              answer.Texts[0]);
            return answer.IsOk ? 0 : 1;
        }
    }

    static int Main(string[] args)
    {
        string service = args.Length > 1 ? args[1] : "Ejemplo";
        int code = args.Length > 0 && args[0] == "server" ? Serve(service) : Ask(service);
        Session.Close();
        return code;
    }
}
