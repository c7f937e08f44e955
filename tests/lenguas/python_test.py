"""bindings/python: what ctypes is told, against the list; and the pleasant layer over a stand-in for the library."""

import array
import ctypes
import threading
import unittest
from pathlib import Path

import comun
import ivrexa
import ivrexa_raw as raw
import python_falsa

ESCALARES = {"bool16": ctypes.c_int16, "int32": ctypes.c_int32, "uint8": ctypes.c_uint8, "uint16": ctypes.c_uint16,
             "uint32": ctypes.c_uint32, "uint64": ctypes.c_uint64, "double": ctypes.c_double, "void": None}


def esperado(cosa, es_resultado):
    """The type of ctypes that carries this, said independently of what generates it: by the C type."""
    c = cosa["c"]
    if cosa["type"] in ESCALARES and not c.endswith("*"):
        return ESCALARES[cosa["type"]]
    if cosa["type"] == "callback":
        return getattr(raw, c)
    fijos = {"wchar_t *": ctypes.POINTER(ctypes.c_wchar), "char *": ctypes.POINTER(ctypes.c_char),
             "uint32_t *": ctypes.POINTER(ctypes.c_uint32), "uint16_t *": ctypes.POINTER(ctypes.c_uint16),
             "comando *": ctypes.POINTER(raw.comando),
             "const char *": ctypes.c_void_p if cosa.get("ownership") == "library" else ctypes.c_char_p}
    if not es_resultado:
        fijos.update({"const wchar_t *": ctypes.c_wchar_p, "const char *const *": ctypes.POINTER(ctypes.c_char_p),
                      "const wchar_t *const *": ctypes.POINTER(ctypes.c_wchar_p)})
    return fijos.get(c, ctypes.c_void_p)


class CrudaTest(unittest.TestCase):
    """ivrexa_raw.py"""

    def setUp(self):
        self.lista = comun.lista()
        self.dll = raw.declare(python_falsa.Falsa())

    def caso_declara_cada_funcion_como_la_lista(self):
        for funcion in self.lista["functions"]:
            declarada = vars(self.dll)[funcion["name"]]
            tipos = [esperado(parametro, False) for parametro in funcion["parameters"]]
            self.assertEqual(declarada.argtypes, tipos, funcion["name"])
            self.assertEqual(declarada.restype, esperado(funcion["returns"], True), funcion["name"])

    def caso_no_declara_nada_que_no_este_en_la_lista(self):
        declaradas = {nombre for nombre, cosa in vars(self.dll).items() if isinstance(cosa, python_falsa.Funcion)}
        self.assertEqual(declaradas, {funcion["name"] for funcion in self.lista["functions"]})

    def caso_los_tipos_de_funcion_son_los_de_la_lista(self):
        for tipo in self.lista["callbacks"]:
            prototipo = getattr(raw, tipo["name"])
            self.assertEqual(list(prototipo._argtypes_), [esperado(p, False) for p in tipo["parameters"]], tipo["name"])
            self.assertEqual(prototipo._restype_, esperado(tipo["returns"], True), tipo["name"])
            self.assertFalse(bool(prototipo()), "no function is the type called without arguments")

    def caso_los_registros_tienen_los_campos_en_su_sitio(self):
        for registro in self.lista["records"]:
            clase = getattr(raw, registro["name"])
            self.assertEqual(ctypes.sizeof(clase), registro["size"], registro["name"])
            sitios = [(nombre, getattr(clase, nombre).offset, getattr(clase, nombre).size)
                      for nombre, _ in clase._fields_]
            self.assertEqual(sitios, [(c["name"], c["offset"], c["size"]) for c in registro["fields"]])

    def caso_las_constantes_son_las_de_la_lista(self):
        constantes = self.lista["constants"] + [valor for enum in self.lista["enums"] for valor in enum["values"]]
        for constante in constantes:
            self.assertEqual(getattr(raw, constante["name"]), constante["value"], constante["name"])


class CapaTest(unittest.TestCase):
    """ivrexa.py"""

    def setUp(self):
        python_falsa.Falsa.registro = raw.comando
        self.falsa = python_falsa.Falsa()
        self.fallos = []
        self.sesion = ivrexa.Session(loader=lambda ruta: self.falsa, on_failure=self.fallos.append, encoding="cp1252")

    def sirve(self, funcion):
        self.sesion.register_server("servidor", None, "Calc", 3, funcion)

    def caso_un_comando_lleva_y_trae_valores_de_cada_tipo(self):
        valores = [("b", ivrexa.BYTE, 255), ("u", ivrexa.USHORT, 65535), ("l", ivrexa.ULONG, 0xFFFFFFFF),
                   ("d", ivrexa.DOUBLE, 2.5), ("w", ivrexa.WINDOW, 0x1234567890), ("y", ivrexa.BUFFER, b"\0\1\2"),
                   ("a", ivrexa.ANSI, "año"), ("t", ivrexa.TEXT, "año\u20ac"), ("n", ivrexa.TEXT, None),
                   ("z", ivrexa.ANSI, None), ("arr", ivrexa.ANSI_ARRAY, ["uno", "", None, "tres"]),
                   ("año", ivrexa.BYTE, 1)]
        vistos = []

        def funcion(command):
            vistos.extend([command.service, command.id, command.client_window, command.texts])
            command.answer(command.input, *command.texts)
            return ivrexa.OK
        self.sirve(funcion)
        respuesta = self.sesion.execute("Calc", 100, valores, "uno", None, "año")
        self.assertEqual(self.fallos, [])
        self.assertEqual(vistos, ["Calc", 100, 77, ("uno", "", "año")])
        self.assertEqual(respuesta.result, ivrexa.OK)
        self.assertEqual([tuple(valor) for valor in respuesta.output], valores)
        self.assertEqual(respuesta.output["arr"].content, ["uno", "", None, "tres"])
        self.assertEqual(respuesta.texts, ("uno", "", "año"))
        self.assertEqual(self.falsa.contenedores, {}, "every container is destroyed")

    def caso_la_biblioteca_es_la_de_al_lado_si_nadie_nombra_otra(self):
        pedidas = []

        def carga(ruta):
            pedidas.append(ruta)
            return self.falsa
        ivrexa.Session(loader=carga)
        ivrexa.Session("/otra/ivrexa.dll", loader=carga)
        propia = comun.RAIZ.absolute() / "bindings" / "python" / "ivrexa.dll"
        self.assertEqual(pedidas, [str(propia), "/otra/ivrexa.dll"])
        self.assertTrue(Path(pedidas[0]).is_absolute())

    def lee(self, *valores):
        """What the layer reads of these, which another program wrote."""
        contenedor = self.falsa.crea_datos_comando_salida(b"Calc")
        self.falsa.contenedores[contenedor] = list(valores)
        return [tuple(valor) for valor in self.sesion.read("Calc", self.falsa.guarda_datos(contenedor), False)]

    def caso_la_cuenta_y_los_tipos_pueden_mentir(self):
        self.falsa.de_mas = 1000000
        self.assertEqual(self.lee(("byte", b"b", 7)), [("b", ivrexa.BYTE, 7)])
        self.falsa.de_mas = 0
        leidos = self.lee(("arr_cadenas_unicode", b"w", None), ("byte", b"b", 7), ("ninguna", b"x", 1),
                          ("byte", b"c", 8))
        self.assertEqual(leidos, [("w", 10, None), ("b", ivrexa.BYTE, 7)])

    def caso_lo_que_no_es_un_caracter_se_marca(self):
        self.assertEqual(self.lee(("cadena_ansi", b"\x81", b"a\x81o")), [("\ufffd", ivrexa.ANSI, "a\ufffdo")])

    def caso_un_buffer_mide_sus_bytes(self):
        self.sirve(lambda command: command.answer(command.input) or ivrexa.OK)
        numeros = array.array("I", [1, 2])
        respuesta = self.sesion.execute("Calc", 100, [("y", ivrexa.BUFFER, numeros)])
        self.assertEqual(respuesta.output["y"].content, numeros.tobytes())
        with self.assertRaises(TypeError):
            self.sesion.execute("Calc", 100, [("y", ivrexa.BUFFER, 3)])

    def caso_sin_datos_no_hay_contenedor_ni_salida(self):
        self.sirve(lambda command: command.input is None and ivrexa.OK)
        respuesta = self.sesion.execute("Calc", 100)
        self.assertEqual((respuesta.result, respuesta.output), (ivrexa.OK, None))
        self.assertEqual(self.falsa.respuesta, (0, (None, None, None)), "it answers in any case")

    def caso_una_excepcion_se_queda_en_el_servidor(self):
        self.sirve(lambda command: 1 // 0)
        self.assertEqual(self.sesion.execute("Calc", 100).result, ivrexa.ERROR)
        self.assertIsInstance(self.fallos[0], ZeroDivisionError)

    def caso_si_no_se_lee_o_no_se_contesta_es_un_error(self):
        self.sirve(lambda command: ivrexa.OK)
        for da, toma, dicho in ((0, 1, "the command's texts could not be read"),
                                (1, 0, "the command could not be answered")):
            self.falsa.da, self.falsa.toma = da, toma
            self.assertEqual(self.sesion.execute("Calc", 100).result, ivrexa.ERROR)
            self.assertEqual(str(self.fallos.pop()), dicho)

    def caso_una_excepcion_de_quien_la_oye_no_estorba(self):
        def oye(fallo):
            self.fallos.append(fallo)
            raise RuntimeError
        self.sesion.on_failure = oye
        self.sirve(lambda command: 1 // 0)
        self.assertEqual(self.sesion.execute("Calc", 100).result, ivrexa.ERROR)
        self.sesion.register_client("cliente", 5, "Calc", lambda notification: 1 // 0)
        hilo = threading.Thread(target=self.falsa.notificacion, args=(b"Calc", 200, 7))
        hilo.start()
        hilo.join(60)
        self.assertEqual([type(fallo) for fallo in self.fallos], [ZeroDivisionError] * 2)
        self.assertEqual(self.falsa.dichas[-1], ("ivrexa_procesada_notificacion", b"Calc"))

    def caso_rehusa_lo_que_la_biblioteca_cortaria(self):
        self.sirve(lambda command: ivrexa.OK)
        for textos in (("x" * 64,), (None, "x" * 256), (None, None, "x" * 256), ("a\0b",), ("\U0001F600" * 32,)):
            with self.assertRaises(ValueError):
                self.sesion.execute("Calc", 100, None, *textos)
        for valor in (("x" * 255, ivrexa.BYTE, 1), ("n", ivrexa.BYTE, 256), ("n", ivrexa.ULONG, -1),
                      ("n\0", ivrexa.BYTE, 1), ("n", ivrexa.TEXT, "a\0b"), ("n", ivrexa.ANSI, "\u0416"), ("n", 10, [])):
            with self.assertRaises(ValueError):
                self.sesion.execute("Calc", 100, [valor])
        for servicio in ("", "x" * 64, "a\0b"):
            with self.assertRaises(ValueError):
                self.sesion.execute(servicio, 100)
        self.assertEqual(self.falsa.contenedores, {}, "what was refused half-way leaves nothing")
        largos = self.sesion.execute("Calc", 100, [("x" * 254, ivrexa.BYTE, 1)], "x" * 63, "x" * 255, "x" * 255)
        self.assertEqual(largos.result, ivrexa.OK)

    def caso_un_comando_de_la_biblioteca_se_rehusa_y_no_llega(self):
        self.sirve(lambda command: ivrexa.OK)
        for numero in (-1, 0, 1, 99, 2**32, 2**32 + 1):
            with self.assertRaisesRegex(ValueError, f"command {numero} is the library's or none"):
                self.sesion.execute("Calc", numero)
        self.assertEqual(self.falsa.ejecutados, [])
        self.assertEqual(self.sesion.execute("Calc", 2**32 - 1).result, ivrexa.OK)

    def caso_sin_servidor_da_lo_mismo_con_datos_que_sin_ellos(self):
        self.falsa.hay_sitio = False  # the numbers of blocks begin at none
        self.addCleanup(setattr, ivrexa.time, "sleep", ivrexa.time.sleep)
        ivrexa.time.sleep = lambda _: None
        for _ in ("no client yet", "a client"):
            sin_datos = self.sesion.execute("Calc", 100)
            self.assertEqual(sin_datos, (ivrexa.ERROR, ("", "", ""), None))
            self.assertEqual(self.sesion.execute("Calc", 100, [("b", ivrexa.BYTE, 7)], "uno"), sin_datos)
            self.sesion.register_client("cliente", None, "Calc")
        self.assertEqual(self.falsa.ejecutados, [100, 100], "nothing is sent without its data")
        with self.assertRaisesRegex(OSError, "nobody offers Calc"):
            self.sesion.notify("Calc", 200, 7, [("b", ivrexa.BYTE, 7)])
        self.assertEqual(self.falsa.contenedores, {})

    def caso_sin_sitio_para_los_datos_se_dice(self):
        self.sirve(lambda command: ivrexa.OK)
        self.falsa.hay_sitio = False
        with self.assertRaisesRegex(OSError, "no room for the command data"):
            self.sesion.execute("Calc", 100, [("b", ivrexa.BYTE, 7)])
        self.assertEqual((self.falsa.ejecutados, self.falsa.contenedores), ([], {}))

    def caso_espera_el_primer_latido_una_vez(self):
        self.sirve(lambda command: ivrexa.OK)
        dormidos, reloj = [], [1000.0]
        ahora, duerme = ivrexa.time.monotonic, ivrexa.time.sleep
        ivrexa.time.monotonic, ivrexa.time.sleep = lambda: reloj[0], dormidos.append
        try:
            self.sesion.register_client("cliente", None, "Calc")
            self.sesion.execute("Calc", 100)
            reloj[0] += 2.6
            self.sesion.execute("Calc", 100)
        finally:
            ivrexa.time.monotonic, ivrexa.time.sleep = ahora, duerme
        self.assertEqual(dormidos, [2.5])

    def caso_una_notificacion_llega_una_vez_con_sus_datos(self):
        llegadas = []
        self.sesion.register_client("cliente", 5, "Calc", llegadas.append)
        contenedor = self.falsa.crea_datos_comando_salida(b"Calc")
        self.falsa.contenedores[contenedor].append(("ulong", b"revision", 2))
        self.falsa.datos_de_notificacion = self.falsa.guarda_datos(contenedor)
        hilo = threading.Thread(target=self.falsa.notificacion, args=(b"Calc", 200, 7))
        hilo.start()
        hilo.join(60)
        self.falsa.notificacion(b"Calc", 200, 200)  # the second call, on the window's thread
        self.assertEqual(self.fallos, [])
        self.assertEqual(llegadas, [("Calc", 200, 7, [("revision", ivrexa.ULONG, 2)])])
        self.assertEqual([d for d in self.falsa.dichas if "procesada" in d[0]],
                         [("ivrexa_procesada_notificacion", b"Calc")])

    def caso_guarda_las_funciones_hasta_el_fin_de_la_sesion(self):
        self.sirve(lambda command: ivrexa.OK)
        self.assertEqual(self.sesion.kept, [self.falsa.comando])
        self.sesion.close()
        self.assertEqual(self.sesion.kept, [])
        self.assertEqual(self.falsa.dichas[-1], ("ivrexa_cierra_sesion",))


if __name__ == "__main__":
    comun.principal()
