"""Python: bindings/python/ivrexa_raw.py, the exports by ctypes."""

import textwrap

from lista import AVISO

NUMEROS = {"bool16": "c_int16", "int32": "c_int32", "uint8": "c_uint8", "uint16": "c_uint16", "uint32": "c_uint32",
           "uint64": "c_uint64", "double": "c_double", "void": "None"}
TEXTOS = {"ansi": "c_char", "wide": "c_wchar"}

CABEZA = f'''"""The exports of ivrexa.dll as they are, by ctypes.

{AVISO}

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

'''


def tipo_de_resultado(cosa):
    """ctypes copies an ANSI text that comes back; everything else that is a pointer stays an address."""
    if cosa["type"] == "ansi" and cosa.get("ownership") != "library":
        return "c_char_p"
    return NUMEROS.get(cosa["type"], "c_void_p")


def tipo_de_parametro(parametro):
    tipo = parametro["type"]
    if parametro["direction"] == "inout":
        return f"POINTER({parametro['record']})"
    if parametro["direction"] == "out":
        return f"POINTER({TEXTOS.get(tipo) or NUMEROS[tipo]})"
    if tipo == "callback":
        return parametro["callback"]
    if tipo in TEXTOS:
        return TEXTOS[tipo] + "_p" if parametro["ownership"] != "library" else "c_void_p"
    if tipo in ("ansi_array", "wide_array"):
        return f"POINTER({TEXTOS[tipo.removesuffix('_array')]}_p)"
    return NUMEROS.get(tipo, "c_void_p")


def comentario(texto, sangria=""):
    return textwrap.fill(texto, 120, initial_indent=sangria + "# ", subsequent_indent=sangria + "# ") + "\n"


def constantes(lista):
    texto = "".join(f"{c['name']} = {c['value']}\n" for c in lista["constants"])
    for enum in lista["enums"]:
        texto += "\n" + comentario(enum["meaning"])
        texto += "".join(f"{valor['name']} = {valor['value']}\n" for valor in enum["values"])
    return texto


def campo(c):
    if c["type"] == "ansi_field":
        return f"c_char * {c['size']}"
    if c["type"] == "record":
        return f"{c['record']} * {c['items']}"
    return NUMEROS.get(c["type"], "c_void_p")


def registro(record):
    texto = f'\n\nclass {record["name"]}(Structure):\n    """{record["meaning"]}"""\n\n'
    texto += "    _pack_ = 1\n" if record["packed"] else ""
    texto += "    _fields_ = (\n"
    for c in record["fields"]:
        texto += f"        (\"{c['name']}\", {campo(c)}),  # {c['offset']}: {c['meaning']}\n"
    return texto + "    )\n"


def lista_de_tipos(tipos, cabeza, cola):
    una = cabeza + ", ".join(tipos) + cola + "\n"
    if len(una) <= 121:
        return una
    return textwrap.fill(una, 120, subsequent_indent=" " * len(cabeza), break_long_words=False) + "\n"


def llamada(callback):
    texto = "\n" + comentario(f"{callback['meaning']} Thread: {callback['thread']}. Arguments: "
                              + ", ".join(p["name"] for p in callback["parameters"]))
    tipos = [tipo_de_resultado(callback["returns"])] + [tipo_de_parametro(p) for p in callback["parameters"]]
    return texto + lista_de_tipos(tipos, f"{callback['name']} = CFUNCTYPE(", ")")


def funcion(f):
    parametros = [p["name"] + (f" (room {p['room']})" if "room" in p else "") for p in f["parameters"]]
    texto = comentario(f"{f['meaning']} Arguments: {', '.join(parametros) or 'none'}", "    ")
    texto += f"    dll.{f['name']}.restype = {tipo_de_resultado(f['returns'])}\n"
    tipos = [tipo_de_parametro(p) for p in f["parameters"]]
    return texto + lista_de_tipos(tipos, f"    dll.{f['name']}.argtypes = [", "]")


def genera(lista):
    texto = CABEZA + f"DLL = \"{lista['library']['dll']}\"\n\n" + constantes(lista)
    texto += "".join(registro(record) for record in lista["records"]) + "\n"
    texto += "".join(llamada(callback) for callback in lista["callbacks"])
    texto += "\n\ndef declare(dll):\n"
    texto += '    """Tells ctypes the types of the functions of a loaded library; returns it."""\n'
    texto += "".join(funcion(f) for f in lista["functions"]) + "    return dll\n"
    return {"bindings/python/ivrexa_raw.py": texto}
