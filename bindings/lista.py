"""The list of the library's interface, ivrexa.json, as the generators and the checks read it."""

import json
from pathlib import Path

CARPETA = Path(__file__).resolve().parent
AVISO = "Made by bindings/genera.py from bindings/ivrexa.json. Do not edit: a test compares."

# Types that are passed as they are, with their C type.
ESCALARES = {
    "bool16": "int16_t", "int32": "int32_t", "uint8": "uint8_t", "uint16": "uint16_t", "uint32": "uint32_t",
    "uint64": "uint64_t", "double": "double",
}
# Types that are pointers, with their C type as parameters that go in, and as results.
PUNTEROS = {
    "comdat": "comdat *", "hwnd": "ivrexa_hwnd", "pointer": "void *", "bytes": "const void *",
    "ansi": "const char *", "wide": "const wchar_t *",
    "ansi_array": "const char *const *", "wide_array": "const wchar_t *const *",
}
TEXTOS_DE_SALIDA = {"ansi": "char *", "wide": "wchar_t *"}
DUENYOS = {"copied", "borrowed", "kept", "caller", "container", "destroyed", "call", "library", "given"}
CLAVES_PARAMETRO = {
    "name", "c", "type", "direction", "nullable", "items_nullable", "longest", "room", "count", "ownership", "enum",
    "record", "callback", "meaning",
}
CLAVES_RESULTADO = {"c", "type", "nullable", "items_nullable", "unaligned", "count", "ownership", "enum", "meaning"}
CLAVES_CAMPO = {"name", "c", "type", "offset", "size", "nullable", "ownership", "record", "items", "meaning"}


def frase(texto):
    """A meaning as a sentence of its own."""
    return texto if texto.endswith((".", "?")) else texto + "."


class MalaLista(Exception):
    """The list does not keep to its form; the text says where."""


def exige(bien, donde, que):
    if not bien:
        raise MalaLista(f"{donde}: {que}")


def sin_repetir(pares):
    claves = [clave for clave, _ in pares]
    exige(len(claves) == len(set(claves)), "ivrexa.json", f"a key stands twice among {claves}")
    return dict(pares)


def carga(fichero=CARPETA / "ivrexa.json"):
    """The list, checked for its form."""
    lista = json.loads(Path(fichero).read_text(encoding="utf-8"), object_pairs_hook=sin_repetir)
    comprueba_forma(lista)
    return lista


def nombrados(cosas):
    """By name; a name that stands twice is refused."""
    nombres = [cosa["name"] for cosa in cosas]
    for nombre in nombres:
        exige(nombres.count(nombre) == 1, nombre, "stands twice in the list")
    return dict(zip(nombres, cosas))


def tipo_c(lista, cosa):
    """The C type that `type` and what stands beside it give; `c` must be this."""
    tipo = cosa["type"]
    sale = cosa.get("direction") == "out"
    if tipo == "void":
        return "void"
    if tipo in ESCALARES:
        return ESCALARES[tipo] + (" *" if sale else "")
    if tipo in TEXTOS_DE_SALIDA and sale:
        return TEXTOS_DE_SALIDA[tipo]
    if tipo in PUNTEROS and not sale:
        return PUNTEROS[tipo]
    if tipo == "callback" and not sale:
        return cosa["callback"]
    if tipo == "record" and "items" in cosa:
        return f"{cosa['record']}[{cosa['items']}]"
    if tipo == "record" and not sale:
        return ("" if cosa["direction"] == "inout" else "const ") + cosa["record"] + " *"
    if tipo == "ansi_field":
        return f"char[{cosa['size']}]"
    raise MalaLista(f"{cosa.get('name', 'returns')}: no type is called {tipo!r}, or not there")


def comprueba_cosa(lista, donde, cosa, claves):
    exige(set(cosa) <= claves, donde, f"unknown keys {sorted(set(cosa) - claves)}")
    exige("meaning" in cosa or cosa["type"] == "void", donde, "has no meaning")
    exige(cosa["c"] == tipo_c(lista, cosa), donde, f"C type {cosa['c']!r} where its type gives "
          f"{tipo_c(lista, cosa)!r}")
    exige(cosa.get("ownership", "call") in DUENYOS, donde, f"nobody is called {cosa.get('ownership')!r}")
    es_puntero = cosa["c"].endswith("*") or cosa["type"] in ("hwnd", "callback")
    exige(("nullable" in cosa) == es_puntero, donde, "only a pointer says whether it may be null, and each does")
    if "enum" in cosa:
        exige(any(enum["name"] == cosa["enum"] for enum in lista["enums"]), donde, f"no enum {cosa['enum']}")
    if "record" in cosa:
        exige(cosa["record"] in nombrados(lista["records"]), donde, f"no record {cosa['record']}")
    if "callback" in cosa:
        exige(cosa["callback"] in nombrados(lista["callbacks"]), donde, f"no callback {cosa['callback']}")


def comprueba_llamable(lista, llamable):
    donde = llamable["name"]
    parametros = nombrados(llamable["parameters"])
    comprueba_cosa(lista, donde, llamable["returns"], CLAVES_RESULTADO)
    for nombre, parametro in parametros.items():
        comprueba_cosa(lista, f"{donde}.{nombre}", parametro, CLAVES_PARAMETRO)
        exige(parametro["direction"] in ("in", "out", "inout"), f"{donde}.{nombre}", "has no such direction")
        texto_que_sale = parametro["direction"] == "out" and parametro["type"] in TEXTOS_DE_SALIDA
        exige(("room" in parametro) == texto_que_sale, f"{donde}.{nombre}", "room is for texts that go out")
    for cosa in [llamable["returns"], *parametros.values()]:
        exige(("count" in cosa) == (cosa["type"] in ("bytes", "ansi_array", "wide_array")), donde,
              "count is for bytes and arrays, and each has it")
        exige(cosa.get("count") is None or cosa["count"] in parametros, donde, f"no parameter {cosa.get('count')}")


def comprueba_forma(lista):
    exige(lista["format"] == 1, "ivrexa.json", "another format than 1")
    nombrados(lista["constants"] + [valor for enum in lista["enums"] for valor in enum["values"]])
    for registro in nombrados(lista["records"]).values():
        for nombre, campo in nombrados(registro["fields"]).items():
            comprueba_cosa(lista, f"{registro['name']}.{nombre}", campo, CLAVES_CAMPO)
    for llamable in nombrados(lista["callbacks"] + lista["functions"]).values():
        comprueba_llamable(lista, llamable)
