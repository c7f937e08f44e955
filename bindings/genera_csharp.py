"""C#: bindings/csharp/IvrexaNative.cs, the exports as P/Invoke."""

import textwrap

from lista import AVISO

NUMEROS = {"bool16": "short", "int32": "int", "uint8": "byte", "uint16": "ushort", "uint32": "uint",
           "uint64": "ulong", "double": "double"}
TEXTOS = {"ansi": "LPStr", "wide": "LPWStr", "ansi_array": "LPStr", "wide_array": "LPWStr"}

CABEZA = f"""// IvrexaNative.cs - the exports of ivrexa.dll as they are.
// {AVISO}
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
{{
"""


def tipo_puntero(cosa):
    """Of results, fields, and what a host's function is handed by the library."""
    return NUMEROS.get(cosa["type"], "void" if cosa["type"] == "void" else "IntPtr")


def parametro_de_funcion(parametro):
    tipo, nombre = parametro["type"], parametro["name"]
    if parametro["direction"] == "out":
        if tipo == "wide":
            return f"[Out, MarshalAs(UnmanagedType.LPArray)] char[] {nombre}"
        if tipo == "ansi":
            return f"[Out, MarshalAs(UnmanagedType.LPArray)] byte[] {nombre}"
        return f"ref {NUMEROS[tipo]} {nombre}"
    if tipo in ("ansi", "wide"):
        return f"[MarshalAs(UnmanagedType.{TEXTOS[tipo]})] string {nombre}"
    if tipo in ("ansi_array", "wide_array"):
        return f"[In, MarshalAs(UnmanagedType.LPArray, ArraySubType = UnmanagedType.{TEXTOS[tipo]})] string[] {nombre}"
    if tipo == "bytes":
        return f"[In, MarshalAs(UnmanagedType.LPArray)] byte[] {nombre}"
    if tipo == "callback":
        return f"{parametro['callback']} {nombre}"
    return f"{tipo_puntero(parametro)} {nombre}"


def parametro_de_delegado(parametro):
    if parametro["direction"] == "inout":
        return f"ref {parametro['record']} {parametro['name']}"
    if parametro["type"] == "ansi" and parametro["ownership"] == "call":
        return f"[MarshalAs(UnmanagedType.LPStr)] string {parametro['name']}"
    return f"{tipo_puntero(parametro)} {parametro['name']}"


def firma(cabeza, parametros, sangria):
    """On one line if it fits; otherwise a line for each parameter."""
    una = f"{sangria}{cabeza}({', '.join(parametros)});"
    if len(una) <= 120:
        return una + "\n"
    return f"{sangria}{cabeza}(\n" + ",\n".join(f"{sangria}    {parametro}" for parametro in parametros) + ");\n"


def documenta(texto, sangria):
    texto = texto.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")
    return textwrap.fill(f"<summary>{texto}</summary>", 120, break_long_words=False, break_on_hyphens=False,
                         initial_indent=f"{sangria}/// ", subsequent_indent=f"{sangria}/// ") + "\n"


def enumerado(enum):
    texto = documenta(enum["meaning"], "    ") + f"    public enum {enum['name']} : uint\n    {{\n"
    for valor in enum["values"]:
        texto += documenta(valor["meaning"], "        ") + f"        {valor['name']} = {valor['value']},\n"
    return texto + "    }\n\n"


def campo(c, packed):
    texto = documenta(c["meaning"], "        ")
    if not packed:
        texto += f"        [FieldOffset({c['offset']})]\n"
    if c["type"] == "ansi_field":
        texto += f"        [MarshalAs(UnmanagedType.ByValArray, SizeConst = {c['size']})]\n"
        return texto + f"        public byte[] {c['name']};\n"
    if c["type"] == "record":
        texto += "        [MarshalAs(UnmanagedType.ByValArray, ArraySubType = UnmanagedType.Struct, "
        texto += f"SizeConst = {c['items']})]\n"
        return texto + f"        public {c['record']}[] {c['name']};\n"
    return texto + f"        public {tipo_puntero(c)} {c['name']};\n"


def registro(record):
    """One without gaps is copied by Marshal.PtrToStructure; the other is the bytes themselves."""
    disposicion = "Sequential, Pack = 1" if record["packed"] else f"Explicit, Size = {record['size']}"
    texto = documenta(record["meaning"], "    ") + f"    [StructLayout(LayoutKind.{disposicion})]\n"
    texto += f"    public struct {record['name']}\n    {{\n"
    return texto + "".join(campo(c, record["packed"]) for c in record["fields"]) + "    }\n\n"


def delegado(callback):
    texto = documenta(f"{callback['meaning']} Thread: {callback['thread']}.", "    ")
    texto += "    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]\n"
    cabeza = f"public delegate {tipo_puntero(callback['returns'])} {callback['name']}"
    return texto + firma(cabeza, [parametro_de_delegado(p) for p in callback["parameters"]], "    ") + "\n"


def funcion(f):
    sitio = [f"{p['name']} {p['room']}" for p in f["parameters"] if "room" in p]
    texto = documenta(f["meaning"] + (f" Room: {', '.join(sitio)}." if sitio else ""), "        ")
    texto += "        [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true,\n"
    texto += "            CharSet = CharSet.Unicode, BestFitMapping = false, ThrowOnUnmappableChar = true)]\n"
    cabeza = f"public static extern {tipo_puntero(f['returns'])} {f['name']}"
    return texto + firma(cabeza, [parametro_de_funcion(p) for p in f["parameters"]], "        ")


def clase(lista):
    texto = documenta("The exports and the constants.", "    ") + "    public static class Native\n    {\n"
    texto += f"        public const string Dll = \"{lista['library']['dll']}\";\n\n"
    for constante in lista["constants"]:
        texto += documenta(constante["meaning"], "        ")
        texto += f"        public const {NUMEROS[constante['type']]} {constante['name']} = {constante['value']};\n"
    for enum in lista["enums"]:
        for valor in enum["values"] if enum["name"] is None else []:
            texto += documenta(valor["meaning"], "        ")
            texto += f"        public const uint {valor['name']} = {valor['value']};\n"
    return texto + "\n" + "\n".join(funcion(f) for f in lista["functions"]) + "    }\n"


def genera(lista):
    texto = CABEZA + "".join(enumerado(enum) for enum in lista["enums"] if enum["name"] is not None)
    texto += "".join(registro(record) for record in lista["records"])
    texto += "".join(delegado(callback) for callback in lista["callbacks"])
    return {"bindings/csharp/IvrexaNative.cs": texto + clase(lista) + "}\n"}
