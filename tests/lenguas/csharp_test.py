"""bindings/csharp: compiled by mcs without a warning, its declarations against the list, and a conversation with a
stand-in for the library. Mono runs these on Linux; nothing here runs with ivrexa.dll."""

import tempfile
import unittest
from pathlib import Path

import comun

CAPA = [comun.RAIZ / "bindings" / "csharp" / nombre for nombre in ("IvrexaNative.cs", "Ivrexa.cs")]
EJEMPLO = comun.RAIZ / "bindings" / "csharp" / "Consumidor.cs"
PRUEBAS = comun.RAIZ / "tests" / "lenguas" / "csharp"

# What carries each C type, said independently of what generates it.
ENTRA = {
    "int16_t": "Int16", "int32_t": "Int32", "uint8_t": "Byte", "uint16_t": "UInt16", "uint32_t": "UInt32",
    "uint64_t": "UInt64", "double": "Double", "void": "Void", "ivrexa_hwnd": "IntPtr", "comdat *": "IntPtr",
    "void *": "IntPtr", "const void *": "Byte[]/LPArray", "const char *": "String/LPStr",
    "const wchar_t *": "String/LPWStr", "const char *const *": "String[]/LPArray/LPStr",
    "const wchar_t *const *": "String[]/LPArray/LPWStr", "wchar_t *": "Char[]/LPArray", "char *": "Byte[]/LPArray",
    "uint32_t *": "UInt32&", "uint16_t *": "UInt16&",
}


def vuelve(cosa):
    """What comes back, or reaches a delegate, is a number or an address."""
    return "IntPtr" if cosa["c"].endswith("*") else ENTRA[cosa["c"]]


def recibe(parametro):
    """What a delegate gets."""
    if parametro["c"] == "comando *":
        return "comando&"
    if parametro["c"] == "const char *" and parametro["ownership"] == "call":
        return "String/LPStr"
    return vuelve(parametro)


class CsharpTest(unittest.TestCase):
    """Each case compiles into a folder of its own."""

    maxDiff = None

    def setUp(self):
        self.lista = comun.lista()
        aparte = tempfile.TemporaryDirectory()
        self.addCleanup(aparte.cleanup)
        self.aparte = Path(aparte.name)

    def compila(self, *fuentes, es_biblioteca=False):
        programa = self.aparte / ("capa.dll" if es_biblioteca else "programa.exe")
        comun.corre(comun.MCS, "-warnaserror", "-warn:4", "-platform:x64",
              f"-target:{'library' if es_biblioteca else 'exe'}", f"-out:{programa}", *fuentes)
        return programa

    def hechos(self):
        """Lines of Hechos.cs, by their first word."""
        salida = comun.corre(comun.MONO, self.compila(*CAPA, PRUEBAS / "Hechos.cs"))
        hechos = {}
        for linea in salida.splitlines():
            palabra, resto = linea.split("\t", 1)
            hechos.setdefault(palabra, []).append(resto.rstrip("\t"))
        return hechos

    def firmas(self, llamables, de_parametro):
        for llamable in llamables:
            partes = [llamable["name"], vuelve(llamable["returns"])]
            partes += [f"{p['name']}={de_parametro(p)}" for p in llamable["parameters"]]
            yield "\t".join(partes)

    def caso_la_capa_compila_sin_avisos(self):
        self.compila(*CAPA, es_biblioteca=True)

    def caso_la_capa_cruda_compila_sola_sin_avisos(self):
        self.compila(CAPA[0], es_biblioteca=True)

    def caso_un_programa_que_la_usa_compila_sin_avisos(self):
        self.compila(*CAPA, EJEMPLO)

    def caso_declara_cada_funcion_como_la_lista(self):
        def pasa(parametro):
            return parametro["c"] if parametro["type"] == "callback" else ENTRA[parametro["c"]]
        hechos = self.hechos()
        self.assertEqual(sorted(hechos["function"]), sorted(self.firmas(self.lista["functions"], pasa)))
        self.assertEqual(sorted(hechos["delegate"]), sorted(self.firmas(self.lista["callbacks"], recibe)))

    def caso_cada_funcion_se_importa_por_su_nombre_y_sin_cambiar_letras(self):
        nombres = [funcion["name"] for funcion in self.lista["functions"]]
        esperadas = [f"{nombre}\tivrexa.dll {nombre} Cdecl True False True False" for nombre in nombres]
        esperadas += [f"{tipo['name']}\tCdecl" for tipo in self.lista["callbacks"]]
        self.assertEqual(sorted(self.hechos()["import"]), sorted(esperadas))

    def caso_las_constantes_son_las_de_la_lista(self):
        constantes = self.lista["constants"] + [valor for enum in self.lista["enums"] for valor in enum["values"]]
        esperadas = [f"{constante['name']}\t{constante['value']}" for constante in constantes]
        self.assertEqual(sorted(self.hechos()["constant"]), sorted(esperadas))

    def caso_los_registros_tienen_los_campos_en_su_sitio(self):
        def tipo(campo):
            fijos = {"ansi_field": "Byte[]", "record": f"{campo.get('record')}[]"}
            return fijos.get(campo["type"]) or vuelve(campo)
        hechos = self.hechos()
        registros = self.lista["records"]
        self.assertEqual(sorted(hechos["record"]), sorted(f"{r['name']}\t{r['size']}" for r in registros))
        esperados = [f"{registro['name']}\t{campo['name']}\t{tipo(campo)}\t{campo['offset']}"
                     for registro in registros for campo in registro["fields"]]
        self.assertEqual(sorted(hechos["field"]), sorted(esperados))

    def caso_lo_que_se_manda_vuelve_y_lo_que_se_cortaria_se_rehusa(self):
        programa = self.compila(*CAPA, PRUEBAS / "Conversa.cs")
        falsa = comun.compila_falsa(self.aparte, "-fshort-wchar")
        programa.with_name("programa.exe.config").write_text(
            f'<configuration><dllmap dll="ivrexa.dll" target="{falsa}"/></configuration>', encoding="utf-8")
        salida = comun.corre(comun.MONO, programa)
        self.assertTrue(salida.endswith("all came back\n"), salida)
        self.assertEqual(salida.count("refused: "), 13, salida)


if __name__ == "__main__":
    comun.principal()
