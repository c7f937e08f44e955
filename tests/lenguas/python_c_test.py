"""bindings/python over a stand-in for the library in C: that ctypes passes to compiled code what C means. On Linux
wchar_t has 32 bits, so no wide text is among the values; the three texts of a command go by wchar_t of any width."""

import ctypes
import tempfile
import unittest

import comun
import ivrexa
import python_falsa


class Cargada:
    """The stand-in as a loaded library. It has not all 50 functions: to a call of another it raises."""

    def __init__(self, ruta):
        self.dll = ctypes.CDLL(ruta)

    def __getattr__(self, nombre):
        funcion = getattr(self.dll, nombre, None) or python_falsa.Funcion(nombre, self.falta)
        setattr(self, nombre, funcion)
        return funcion

    @staticmethod
    def falta(*_):
        raise NotImplementedError


class CargadaTest(unittest.TestCase):
    """ivrexa.py and ivrexa_raw.py, and C on the other side."""

    def setUp(self):
        aparte = tempfile.TemporaryDirectory()
        self.addCleanup(aparte.cleanup)
        self.fallos = []
        self.sesion = ivrexa.Session(str(comun.compila_falsa(aparte.name)), self.fallos.append, Cargada, "cp1252")
        self.falsa = self.sesion.dll

    def sirve(self, funcion):
        self.sesion.register_server("servidor", None, "Calc", 3, funcion)

    def caso_un_comando_lleva_y_trae_valores_de_cada_tipo(self):
        valores = [("b", ivrexa.BYTE, 255), ("u", ivrexa.USHORT, 65535), ("l", ivrexa.ULONG, 0xFFFFFFFF),
                   ("d", ivrexa.DOUBLE, -2.5e-300), ("w", ivrexa.WINDOW, 0x7FFFFFFF12345678),
                   ("y", ivrexa.BUFFER, b"\0\1\2"), ("a", ivrexa.ANSI, "año"), ("n", ivrexa.TEXT, None),
                   ("z", ivrexa.ANSI, None), ("arr", ivrexa.ANSI_ARRAY, ["uno", "", None, "tres"]),
                   ("año", ivrexa.BYTE, 1)]
        vistos = []

        def funcion(command):
            vistos.append((command.service, command.id, command.client_window, command.texts))
            command.answer(command.input, *command.texts)
            return ivrexa.OK
        self.sirve(funcion)
        self.assertTrue(self.sesion.is_offered("Calc"))
        textos = ("x" * 63, "", "año \u4e2d")
        respuesta = self.sesion.execute("Calc", 100, valores, *textos)
        self.assertEqual(self.fallos, [])
        self.assertEqual(vistos, [("Calc", 100, 0xFEDCBA9876543210, textos)])
        self.assertEqual((respuesta.result, respuesta.texts), (ivrexa.OK, textos))
        self.assertEqual([tuple(valor) for valor in respuesta.output], valores)
        vacia = self.sesion.execute("Calc", 100)
        self.assertEqual(vacia, (ivrexa.OK, ("", "", ""), None))
        self.sesion.close()
        self.assertEqual(self.falsa.falsa_contenedores(), 0, "every container is destroyed")

    def caso_una_excepcion_o_un_fallo_de_la_biblioteca_es_un_error(self):
        self.sirve(lambda command: 1 // 0)
        self.assertEqual(self.sesion.execute("Calc", 100).result, ivrexa.ERROR)
        self.assertIsInstance(self.fallos.pop(), ZeroDivisionError)
        self.sirve(lambda command: ivrexa.OK)
        for sin_entrada, sin_salida in ((1, 0), (0, 1)):
            self.falsa.falsa_falla(sin_entrada, sin_salida)
            self.assertEqual(self.sesion.execute("Calc", 100).result, ivrexa.ERROR)
            self.assertIsInstance(self.fallos.pop(), OSError)

    def caso_la_cuenta_de_valores_puede_mentir(self):
        self.sirve(lambda command: command.answer(command.input) or ivrexa.OK)
        self.falsa.falsa_miente(1000000)
        respuesta = self.sesion.execute("Calc", 100, [("b", ivrexa.BYTE, 7)])
        self.assertEqual(respuesta.output, [("b", ivrexa.BYTE, 7)])

    def caso_una_notificacion_llega_en_un_hilo_que_no_es_de_python(self):
        llegadas = []

        def funcion(notification):
            llegadas.append(notification)
            if len(llegadas) == 2:
                raise ValueError
        self.sirve(lambda command: ivrexa.OK)
        self.sesion.register_client("cliente", 5, "Calc", funcion)
        self.sesion.notify("Calc", 200, 7, [("revision", ivrexa.ULONG, 2)])
        self.sesion.notify("Calc", 200, 7)
        self.assertEqual(llegadas, [("Calc", 200, 7, [("revision", ivrexa.ULONG, 2)]), ("Calc", 200, 7, None)])
        self.assertEqual([type(fallo) for fallo in self.fallos], [ValueError])
        self.assertEqual(self.falsa.falsa_procesadas(), 2)


if __name__ == "__main__":
    comun.principal()
