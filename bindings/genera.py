#!/usr/bin/env python3
"""Writes the raw layer of each language from the list of the library's interface, ivrexa.json.

    genera.py [LANGUAGE...]            writes the files of these languages, or of all
    genera.py --check [LANGUAGE...]    writes nothing; ends with 1 if a file is not what the list gives

Each genera_<language>.py beside this file makes one language. It has a function

    genera(lista) -> {path: text}

which takes the list as `lista.carga` returns it, and gives the text of each file by its path from the root of the
tree, with slashes. It reads nothing else, so that the same list gives the same files.
"""

import argparse
import difflib
import importlib
import sys
from pathlib import Path

CARPETA = Path(__file__).resolve().parent
sys.path.insert(0, str(CARPETA))
sys.dont_write_bytecode = True  # nothing but sources in the tree

import lista as m_lista  # by the path set above


def lenguajes():
    return sorted(fichero.stem.removeprefix("genera_") for fichero in CARPETA.glob("genera_*.py"))


def hace(lista, elegidos):
    """The files of these languages, by path."""
    ficheros = {}
    for lenguaje in elegidos:
        for ruta, texto in importlib.import_module(f"genera_{lenguaje}").genera(lista).items():
            m_lista.exige(ruta not in ficheros, ruta, "two languages make it")
            ficheros[ruta] = texto
    return ficheros


def difiere(raiz, ruta, texto):
    """Whether the file in the tree is another; then the first differences are shown."""
    fichero = raiz / ruta
    if not fichero.is_file():
        print(f"{ruta}: is missing; bindings/genera.py makes it")
        return True
    bytes_en_el_arbol = fichero.read_bytes()
    if bytes_en_el_arbol == texto.encode("utf-8"):
        return False
    print(f"{ruta}: is not what bindings/genera.py makes of bindings/ivrexa.json")
    hay = bytes_en_el_arbol.decode("utf-8", "replace").splitlines()
    diferencias = difflib.unified_diff(hay, texto.splitlines(), "in the tree", "from the list", n=1, lineterm="")
    for linea in list(diferencias)[:40]:
        print(f"    {linea}")
    return True


def main():
    argumentos = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    argumentos.add_argument("--check", action="store_true", help="compare, write nothing")
    argumentos.add_argument("--root", type=Path, default=CARPETA.parent, help="the tree to write to or compare with")
    argumentos.add_argument("--list", type=Path, default=CARPETA / "ivrexa.json", help="another list")
    argumentos.add_argument("languages", nargs="*", help=f"of {', '.join(lenguajes())}; all if none is named")
    opciones = argumentos.parse_args()
    desconocidos = set(opciones.languages) - set(lenguajes())
    if desconocidos:
        argumentos.error(f"no genera_<language>.py for {', '.join(sorted(desconocidos))}")
    ficheros = hace(m_lista.carga(opciones.list), opciones.languages or lenguajes())
    if opciones.check:
        distintos = [ruta for ruta, texto in ficheros.items() if difiere(opciones.root, ruta, texto)]
        print(f"{len(ficheros) - len(distintos)} of {len(ficheros)} files are what the list gives")
        return 1 if distintos else 0
    for ruta, texto in ficheros.items():
        (opciones.root / ruta).parent.mkdir(parents=True, exist_ok=True)
        (opciones.root / ruta).write_bytes(texto.encode("utf-8"))
        print(ruta)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except m_lista.MalaLista as mal:
        sys.exit(f"genera.py: {mal}")
