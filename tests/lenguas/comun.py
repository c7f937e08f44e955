"""What the tests of the bindings share. A case is a method `caso_<sentence>`; CTest runs each as a process."""

import copy
import os
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True  # nothing but sources in the tree

RAIZ = Path(os.environ.get("IVREXA_RAIZ", Path(__file__).resolve().parents[2]))
sys.path[:0] = [str(RAIZ / "bindings"), str(RAIZ / "bindings" / "python")]

import lista as m_lista  # noqa: E402

CLANG = os.environ.get("IVREXA_CLANG", "clang")
MCS = os.environ.get("IVREXA_MCS", "mcs")
MONO = os.environ.get("IVREXA_MONO", "mono")


def lista():
    return m_lista.carga(RAIZ / "bindings" / "ivrexa.json")


def otra(original, cambia):
    """A copy of the list with a change."""
    copia = copy.deepcopy(original)
    cambia(copia)
    return copia


def principal():
    cargador = unittest.TestLoader()
    cargador.testMethodPrefix = "caso_"
    unittest.main(testLoader=cargador, verbosity=2)
