"""The raw layers in the tree are what bindings/genera.py makes of the list."""

import contextlib
import io
import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import comun
import genera as m_genera

GENERA = comun.RAIZ / "bindings" / "genera.py"


def genera(*argumentos):
    orden = [sys.executable, "-B", str(GENERA), *map(str, argumentos)]
    return subprocess.run(orden, capture_output=True, text=True, encoding="utf-8", timeout=100, check=False)


class GeneraTest(unittest.TestCase):
    """As the tree is, and in a copy with one thing changed."""

    def copia(self):
        """A tree with what genera.py makes, and the paths in it."""
        aparte = tempfile.TemporaryDirectory()
        self.addCleanup(aparte.cleanup)
        hecho = genera("--root", aparte.name)
        self.assertEqual(hecho.returncode, 0, hecho.stderr)
        return Path(aparte.name), hecho.stdout.split()

    def caso_los_ficheros_del_arbol_son_los_de_la_lista(self):
        hecho = genera("--check", "--root", comun.RAIZ)
        self.assertEqual(hecho.returncode, 0, hecho.stdout + hecho.stderr)

    def caso_hace_un_fichero_al_menos_de_cada_lenguaje(self):
        arbol, rutas = self.copia()
        for lenguaje in GENERA.parent.glob("genera_*.py"):
            carpeta = f"bindings/{lenguaje.stem.removeprefix('genera_')}/"
            self.assertTrue(any(ruta.startswith(carpeta) for ruta in rutas), f"{carpeta}: nothing in {arbol}")

    def caso_se_nota_un_fichero_cambiado_a_mano(self):
        arbol, rutas = self.copia()
        self.assertEqual(genera("--check", "--root", arbol).returncode, 0)
        cambiado = arbol / rutas[0]
        cambiado.write_bytes(cambiado.read_bytes().replace(b"ivrexa", b"ivreza", 1))
        hecho = genera("--check", "--root", arbol)
        self.assertEqual(hecho.returncode, 1)
        self.assertIn(f"{rutas[0]}: is not what", hecho.stdout)

    def dice(self, arbol, ruta, texto):
        """What the comparison says of this file."""
        with contextlib.redirect_stdout(io.StringIO()) as dicho:
            difiere = m_genera.difiere(arbol, ruta, texto)
        self.assertEqual(difiere, dicho.getvalue() != "")
        return dicho.getvalue()

    def caso_se_nota_cada_cambio_en_cada_fichero_y_cada_uno_que_falta(self):
        arbol, rutas = self.copia()
        ficheros = m_genera.hace(comun.lista(), m_genera.lenguajes())
        self.assertEqual(sorted(ficheros), sorted(rutas))
        for ruta, texto in ficheros.items():
            self.assertEqual(self.dice(arbol, ruta, texto), "")
            bueno = texto.encode("utf-8")
            for malo in (bueno + b"\n", bueno.replace(b"ivrexa", b"ivreza", 1), bueno.replace(b"\n", b"\r\n"), b"\xff"):
                (arbol / ruta).write_bytes(malo)
                self.assertIn(f"{ruta}: is not what", self.dice(arbol, ruta, texto))
            (arbol / ruta).unlink()
            self.assertIn(f"{ruta}: is missing", self.dice(arbol, ruta, texto))

    def caso_una_lista_cambiada_cambia_los_ficheros_de_cada_lenguaje(self):
        arbol, rutas = self.copia()

        def cambia(lista):
            funcion = lista["functions"][2]
            funcion["parameters"][2].update(c="uint64_t", type="uint64")
        lista = arbol / "otra.json"
        lista.write_text(json.dumps(comun.otra(comun.lista(), cambia)), encoding="utf-8")
        hecho = genera("--check", "--root", arbol, "--list", lista)
        self.assertEqual(hecho.returncode, 1, hecho.stderr)
        for carpeta in {ruta.split("/")[1] for ruta in rutas}:
            self.assertIn(f"bindings/{carpeta}/", hecho.stdout)


if __name__ == "__main__":
    comun.principal()
