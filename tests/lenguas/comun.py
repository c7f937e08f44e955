"""What the tests of the bindings share. A case is a method `caso_<sentence>`; CTest runs each as a process."""

import copy
import os
import subprocess
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True  # nothing but sources in the tree

RAIZ = Path(os.environ.get("IVREXA_RAIZ", Path(__file__).resolve().parents[2]))
sys.path[:0] = [str(RAIZ / "bindings"), str(RAIZ / "bindings" / "python")]

import lista as m_lista  # by the path set above

CLANG = os.environ.get("IVREXA_CLANG", "clang")
MCS = os.environ.get("IVREXA_MCS", "mcs")
MONO = os.environ.get("IVREXA_MONO", "mono")


def lista():
    return m_lista.carga(RAIZ / "bindings" / "ivrexa.json")


def corre(*orden):
    """Runs a program, and gives what it said."""
    orden = list(map(str, orden))
    hecho = subprocess.run(orden, capture_output=True, text=True, encoding="utf-8", timeout=100, check=False)
    if hecho.returncode != 0:
        raise AssertionError(f"{' '.join(orden)}\nends with {hecho.returncode}\n{hecho.stdout}{hecho.stderr}")
    return hecho.stdout + hecho.stderr


def compila_falsa(carpeta, *opciones):
    """The stand-in for the library in C, as a library of Linux."""
    falsa = Path(carpeta) / "libfalsa.so"
    corre(CLANG, "-shared", "-fPIC", "-std=gnu11", "-Wall", "-Wextra", "-Werror", "-pthread", *opciones, "-I",
          RAIZ / "include", RAIZ / "tests" / "lenguas" / "csharp" / "falsa.c", "-o", falsa)
    return falsa


def otra(original, cambia):
    """A copy of the list with a change."""
    copia = copy.deepcopy(original)
    cambia(copia)
    return copia


def principal():
    cargador = unittest.TestLoader()
    cargador.testMethodPrefix = "caso_"
    unittest.main(testLoader=cargador, verbosity=2)
