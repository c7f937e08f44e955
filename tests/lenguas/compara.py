"""The public headers as a compiler reads them, and src/ivrexa.def, against the list bindings/ivrexa.json."""

import json
import re
import subprocess
import tempfile
from pathlib import Path

# Both compilers' conventions on Windows must give the same interface.
DESTINOS = ("x86_64-w64-mingw32", "x86_64-pc-windows-msvc")
SISTEMA = "#include <stddef.h>\n#include <stdint.h>\n"
PROPIO = '#include "ivrexa.h"\n'
OPACOS = {"ivrexa_hwnd": "struct HWND__ *", "comdat": "struct comdat"}
MACROS_SIN_VALOR = {"IVREXA_API"}
SIN_COSA = {"RecordDecl", "StaticAssertDecl", "EmptyDecl"}  # records without content, and what declares nothing


def clang(compilador, destino, carpeta, fuente, *opciones):
    """What the compiler says of this source in C; only its own headers of types and ours are there."""
    with tempfile.TemporaryDirectory() as aparte:
        fichero = Path(aparte) / "sonda.c"
        fichero.write_text(fuente, encoding="utf-8")
        orden = [compilador, f"--target={destino}", "-ffreestanding", "-nostdlibinc", "-x", "c", "-std=c11",
                 "-I", str(carpeta), *opciones, str(fichero)]
        hecho = subprocess.run(orden, capture_output=True, text=True, encoding="utf-8", timeout=100, check=False)
    if hecho.returncode != 0:
        raise AssertionError(f"{' '.join(orden)}\n{hecho.stderr}")
    return hecho.stdout


def declaraciones(compilador, destino, carpeta, fuente):
    arbol = json.loads(clang(compilador, destino, carpeta, fuente, "-fsyntax-only", "-Xclang", "-ast-dump=json"))
    return [nodo for nodo in arbol["inner"] if not nodo.get("isImplicit")]


def sin_hueco(tipo):
    """Versions of clang write arrays with and without a space."""
    return tipo.replace(" [", "[")


def de_clase(nodo, clase):
    return [hijo for hijo in nodo.get("inner", []) if hijo["kind"] == clase]


def lee_macros(compilador, destino, carpeta):
    """Macros with a value that the headers define, and the values as they stand there."""
    def define(fuente):
        texto = clang(compilador, destino, carpeta, fuente, "-E", "-dD")
        return dict(re.findall(r"^#define (\w+)[ ]+(\S.*)$", texto, re.MULTILINE))
    del_sistema = define(SISTEMA)
    return {nombre for nombre in define(PROPIO) if nombre not in del_sistema} - MACROS_SIN_VALOR


def mide(compilador, destino, carpeta, expresiones):
    """The values of these integer expressions behind the header, as the compiler gives them."""
    fuente = PROPIO + "#include <stddef.h>\nenum {\n"
    fuente += "".join(f"    sonda_{i} = (int)({expresion}),\n" for i, expresion in enumerate(expresiones)) + "};\n"
    sonda = declaraciones(compilador, destino, carpeta, fuente)[-1]
    valores = [int(constante["inner"][0]["value"]) for constante in de_clase(sonda, "EnumConstantDecl")]
    return dict(zip(expresiones, valores, strict=True))


def lee_funcion(nodo):
    parametros = de_clase(nodo, "ParmVarDecl")
    return {
        "parameters": [(parametro.get("name", ""), parametro["type"]["qualType"]) for parametro in parametros],
        "returns": nodo["type"]["qualType"].split("(", maxsplit=1)[0].strip(),
        "variadic": nodo.get("variadic", False),
    }


def nombres_de_parametros(texto, nombre):
    """The names in `typedef RESULT (*nombre)(...)`, which the compiler does not keep."""
    lista = re.search(rf"typedef\s[^;(]*\(\*{nombre}\)\(([^)]*)\);", texto).group(1)
    return [re.search(r"(\w+)\s*$", pedazo).group(1) for pedazo in lista.split(",")]


def lee_cabecera(compilador, destino, carpeta):
    """What the headers declare: functions, types of functions, enums, records, opaque types, macros."""
    del_sistema = {nodo.get("name") for nodo in declaraciones(compilador, destino, carpeta, SISTEMA)}
    nodos = [nodo for nodo in declaraciones(compilador, destino, carpeta, PROPIO)
             if "name" not in nodo or nodo["name"] not in del_sistema]
    texto = (Path(carpeta) / "ivrexa.h").read_text(encoding="utf-8")
    hechos = {"functions": {}, "callbacks": {}, "enums": {}, "records": {}, "opaque": {}, "types": set(), "others": []}
    for nodo in nodos:
        nombre = nodo.get("name")
        if nodo["kind"] == "FunctionDecl":
            hechos["functions"][nombre] = lee_funcion(nodo)
        elif nodo["kind"] == "EnumDecl":
            constantes = tuple(constante["name"] for constante in de_clase(nodo, "EnumConstantDecl"))
            hechos["enums"][constantes] = nombre
        elif nodo["kind"] == "RecordDecl" and nombre and nodo.get("completeDefinition"):
            hechos["records"][nombre] = [(campo["name"], sin_hueco(campo["type"]["qualType"]))
                                         for campo in de_clase(nodo, "FieldDecl")]
        elif nodo["kind"] == "TypedefDecl":
            tipo = nodo["type"]["qualType"]
            if "(*)" in tipo:
                hechos["callbacks"][nombre] = {"type": tipo, "names": nombres_de_parametros(texto, nombre)}
            elif nombre in OPACOS:
                hechos["opaque"][nombre] = tipo
            else:
                hechos["types"].add(nombre)
        elif nodo["kind"] not in SIN_COSA:
            hechos["others"].append(f"{nodo['kind']} {nombre}")
    hechos["macros"] = lee_macros(compilador, destino, carpeta)
    hechos["values"] = mide(compilador, destino, carpeta, expresiones(hechos))
    return hechos


def expresiones(hechos):
    """What to ask the compiler of what the headers declare."""
    pregunta = [constante for constantes in hechos["enums"] for constante in constantes]
    for macro in sorted(hechos["macros"]):
        pregunta += [macro, f"__builtin_types_compatible_p(__typeof__({macro}), int16_t)"]
    for registro, campos in hechos["records"].items():
        pregunta += [f"sizeof({registro})", f"_Alignof({registro})"]
        for campo, _ in campos:
            pregunta += [f"offsetof({registro}, {campo})", f"sizeof((({registro} *)0)->{campo})"]
    return pregunta


def exportadas(fichero):
    """The names behind EXPORTS."""
    lineas = [linea.split(";")[0].strip() for linea in Path(fichero).read_text(encoding="utf-8").splitlines()]
    return [linea for linea in lineas[lineas.index("EXPORTS") + 1:] if linea]


def compara(diferencias, que, lista, otro, donde="the header"):
    if lista != otro:
        diferencias.append(f"{que}: {lista!r} in the list, {otro!r} in {donde}")


def compara_nombres(diferencias, que, lista, otros, donde="the header"):
    for nombre in sorted(set(lista) - set(otros)):
        diferencias.append(f"{que} {nombre} is in the list and not in {donde}")
    for nombre in sorted(set(otros) - set(lista)):
        diferencias.append(f"{que} {nombre} is in {donde} and not in the list")
    return sorted(set(lista) & set(otros))


def por_nombre(cosas):
    return {cosa["name"]: cosa for cosa in cosas}


def compara_funciones(lista, hechos):
    diferencias = []
    funciones = por_nombre(lista["functions"])
    for nombre in compara_nombres(diferencias, "function", funciones, hechos["functions"]):
        funcion, hecho = funciones[nombre], hechos["functions"][nombre]
        parametros = [(parametro["name"], parametro["c"]) for parametro in funcion["parameters"]]
        compara(diferencias, f"{nombre}, returns", funcion["returns"]["c"], hecho["returns"])
        compara(diferencias, f"{nombre}, number of parameters", len(parametros), len(hecho["parameters"]))
        for i, (parametro, otro) in enumerate(zip(parametros, hecho["parameters"])):
            compara(diferencias, f"{nombre}, parameter {i}", parametro, otro)
        compara(diferencias, f"{nombre}, further arguments", False, hecho["variadic"])
    return diferencias


def compara_exportadas(lista, nombres):
    diferencias = []
    compara(diferencias, "number of functions", len(lista["functions"]), len(nombres), "ivrexa.def")
    compara_nombres(diferencias, "function", por_nombre(lista["functions"]), nombres, "ivrexa.def")
    return diferencias


def compara_tipos_de_funcion(lista, hechos):
    diferencias = []
    tipos = por_nombre(lista["callbacks"])
    for nombre in compara_nombres(diferencias, "type of function", tipos, hechos["callbacks"]):
        parametros = tipos[nombre]["parameters"]
        tipo = f"{tipos[nombre]['returns']['c']} (*)({', '.join(parametro['c'] for parametro in parametros)})"
        compara(diferencias, nombre, tipo, hechos["callbacks"][nombre]["type"])
        compara(diferencias, f"{nombre}, parameters", [parametro["name"] for parametro in parametros],
                hechos["callbacks"][nombre]["names"])
    return diferencias


def compara_constantes(lista, hechos):
    diferencias = []
    macros = por_nombre(lista["constants"])
    for nombre in compara_nombres(diferencias, "constant", macros, hechos["macros"]):
        compara(diferencias, nombre, macros[nombre]["value"], hechos["values"][nombre])
        es_int16 = hechos["values"][f"__builtin_types_compatible_p(__typeof__({nombre}), int16_t)"] == 1
        compara(diferencias, f"{nombre}, is an int16_t", macros[nombre]["c"] == "int16_t", es_int16)
    return diferencias


def compara_enumerados(lista, hechos):
    diferencias = []
    enumerados = {valor["name"]: (enumerado["name"], valor["value"])
                  for enumerado in lista["enums"] for valor in enumerado["values"]}
    hechos_por_nombre = {constante: (nombre, hechos["values"][constante])
                         for constantes, nombre in hechos["enums"].items() for constante in constantes}
    for nombre in compara_nombres(diferencias, "constant", enumerados, hechos_por_nombre):
        compara(diferencias, f"{nombre}, enum and value", enumerados[nombre], hechos_por_nombre[nombre])
    grupos = {tuple(valor["name"] for valor in enumerado["values"]) for enumerado in lista["enums"]}
    compara(diferencias, "constants of each enum, in order", sorted(grupos), sorted(hechos["enums"]))
    return diferencias


def compara_registros(lista, hechos):
    diferencias = []
    registros = por_nombre(lista["records"])
    valores = hechos["values"]
    for nombre in compara_nombres(diferencias, "record", registros, hechos["records"]):
        registro = registros[nombre]
        compara(diferencias, f"{nombre}, size", registro["size"], valores[f"sizeof({nombre})"])
        compara(diferencias, f"{nombre}, packed", registro["packed"], valores[f"_Alignof({nombre})"] == 1)
        campos = [(campo["name"], campo["c"]) for campo in registro["fields"]]
        compara(diferencias, f"{nombre}, fields", campos, hechos["records"][nombre])
        for campo, _ in set(campos) & set(hechos["records"][nombre]):
            en_lista = por_nombre(registro["fields"])[campo]
            sitio = (valores[f"offsetof({nombre}, {campo})"], valores[f"sizeof((({nombre} *)0)->{campo})"])
            compara(diferencias, f"{nombre}.{campo}, offset and size", (en_lista["offset"], en_lista["size"]), sitio)
    return diferencias


def compara_los_demas(lista, hechos):
    """Nothing that the headers declare is of a kind that the list does not know."""
    diferencias = []
    compara(diferencias, "opaque types", OPACOS, hechos["opaque"])
    conocidos = {enumerado["name"] for enumerado in lista["enums"] if enumerado["name"]}
    compara(diferencias, "other declarations", [], hechos["others"])
    compara_nombres(diferencias, "type", conocidos | set(por_nombre(lista["records"])), hechos["types"])
    return diferencias


COMPARACIONES = (compara_funciones, compara_tipos_de_funcion, compara_constantes, compara_enumerados,
                 compara_registros, compara_los_demas)


def compara_cabecera(lista, hechos):
    return [diferencia for comparacion in COMPARACIONES for diferencia in comparacion(lista, hechos)]
