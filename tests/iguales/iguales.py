#!/usr/bin/env python3
"""iguales.py construye SOURCE WORK --producto F... --objetivo O... [-- CMAKE_ARG...]: builds the source twice, from
copies of it in two folders and without a compiler cache, and compares the bytes of the products.

iguales.py nombra SOURCE BUILD --producto F...: looks in the products of a build for the names of its folders.
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

# What a machine may have set, and what would let the second build take from the first.
VARIABLES_AJENAS = ("CMAKE_C_COMPILER_LAUNCHER", "CMAKE_CXX_COMPILER_LAUNCHER", "CMAKE_C_LINKER_LAUNCHER",
                    "CMAKE_CXX_LINKER_LAUNCHER", "CFLAGS", "CXXFLAGS", "LDFLAGS", "DESTDIR")
TROZO = 16


def sin_construcciones(carpeta, nombres):
    """For copytree: what is no source. A build folder may lie in the tree, and this very copy in that."""
    return [nombre for nombre in nombres if nombre in (".git", "__pycache__")
            or os.path.exists(os.path.join(carpeta, nombre, "CMakeCache.txt"))]


def lanza(orden, entorno, registro):
    """Runs one step of a build; when it fails, shows the end of what it said and ends."""
    with open(registro, "ab") as salida:
        codigo = subprocess.run(orden, env=entorno, stdin=subprocess.DEVNULL, stdout=salida,
                                stderr=subprocess.STDOUT, check=False).returncode
    if codigo != 0:
        lineas = pathlib.Path(registro).read_text(errors="replace").splitlines()
        sys.exit("\n".join(lineas[-40:] + [f"{' '.join(map(str, orden))}: ended with {codigo}"]))


def construye(fuente, copia, construccion, opciones, conserva_fechas, variables):
    """Builds a copy of the source; says how long it took."""
    inicio = time.monotonic()
    shutil.copytree(fuente, copia, symlinks=True, ignore=sin_construcciones,
                    copy_function=shutil.copy2 if conserva_fechas else shutil.copy)
    entorno = {clave: valor for clave, valor in os.environ.items() if clave not in VARIABLES_AJENAS}
    entorno |= {"CCACHE_DISABLE": "1"} | variables
    registro = construccion.with_suffix(".log")
    registro.parent.mkdir(parents=True, exist_ok=True)
    lanza(["cmake", "-G", "Ninja", "-S", copia, "-B", construccion,
           f"-DCMAKE_TOOLCHAIN_FILE={copia}/cmake/mingw-clang.cmake", *opciones.cmake], entorno, registro)
    lanza(["nice", "-n", "5", "cmake", "--build", construccion, "-j", "2", "--target", *opciones.objetivo],
          entorno, registro)
    print(f"{construccion}: built in {time.monotonic() - inicio:.0f} s", flush=True)


def compara(producto, uno, otro):
    """None when the two files are equal; else what differs, and where first."""
    a, b = ((carpeta / producto).read_bytes() for carpeta in (uno, otro))
    if a == b:
        return None
    donde = next((i for i, (x, y) in enumerate(zip(a, b)) if x != y), min(len(a), len(b)))
    trozos = [datos[max(0, donde - TROZO):donde + TROZO] for datos in (a, b)]
    return (f"{producto}: {len(a)} and {len(b)} bytes, first different at offset {donde} (0x{donde:x}):\n"
            f"    {trozos[0]!r}\n    {trozos[1]!r}")


def orden_construye(opciones):
    trabajo = opciones.carpeta
    shutil.rmtree(trabajo, ignore_errors=True)
    uno = trabajo / "a" / "build" / "mingw"
    otro = trabajo / "otra carpeta, más honda" / "construcción 2"
    construye(opciones.fuente, trabajo / "a", uno, opciones, True, {"TZ": "UTC0"})
    construye(opciones.fuente, otro.parent / "las fuentes", otro, opciones, False,
              {"TZ": "XXX-9", "LIBRARY_PATH": str(trabajo), "CPATH": str(trabajo)})

    diferencias = [d for d in (compara(producto, uno, otro) for producto in opciones.producto) if d]
    if diferencias:
        sys.exit("\n".join([f"Built in {uno} and in {otro}:"] + diferencias))
    print("equal:", ", ".join(opciones.producto))
    shutil.rmtree(trabajo)


def orden_nombra(opciones):
    """The names as they stand, in UTF-8 or UTF-16, with either slash, at the end of a part of a path."""
    halladas = []
    for producto in opciones.producto:
        datos = (opciones.carpeta / producto).read_bytes()
        for carpeta in (opciones.fuente, opciones.carpeta):
            for nombre in {str(carpeta), str(carpeta).replace("/", "\\")}:
                for cifrado in ("utf-8", "utf-16-le"):
                    hallada = re.search(rb"(?<![\w./-])" + re.escape(nombre.encode(cifrado)) + rb"(?![\w.-])", datos)
                    if hallada:
                        halladas.append(f"{producto}: offset {hallada.start()} (0x{hallada.start():x}) has {nombre}")
    if halladas:
        sys.exit("\n".join(halladas))
    print("none of its folders named in:", ", ".join(opciones.producto))


def main():
    lector = argparse.ArgumentParser()
    lector.add_argument("orden", choices=("construye", "nombra"))
    lector.add_argument("fuente", type=pathlib.Path)
    lector.add_argument("carpeta", type=pathlib.Path)
    lector.add_argument("--producto", nargs="+", required=True)
    lector.add_argument("--objetivo", nargs="+", default=[])
    argumentos, de_cmake = sys.argv[1:], []
    if "--" in argumentos:
        corte = argumentos.index("--")
        argumentos, de_cmake = argumentos[:corte], argumentos[corte + 1:]
    opciones = lector.parse_args(argumentos)
    opciones.cmake = de_cmake
    {"construye": orden_construye, "nombra": orden_nombra}[opciones.orden](opciones)


main()
