"""bindings/ivrexa.json says what include/ivrexa.h, include/ivrexa_mcbase.h and src/ivrexa.def say, and nothing else."""

import tempfile
import unittest
from pathlib import Path

import comun
import compara

INCLUDE = comun.RAIZ / "include"
DEF = comun.RAIZ / "src" / "ivrexa.def"


class ListaTest(unittest.TestCase):
    """Each comparison as the tree is, and each with one thing changed."""

    maxDiff = None

    def setUp(self):
        self.lista = comun.lista()

    def hechos(self, destino=compara.DESTINOS[0]):
        return compara.lee_cabecera(comun.CLANG, destino, INCLUDE)

    def nota(self, comparacion, cambiada, hechos, que):
        diferencias = comparacion(cambiada, hechos)
        self.assertTrue(any(que in diferencia for diferencia in diferencias), f"{que}: not among {diferencias}")

    def caso_dice_lo_que_dicen_las_cabeceras_en_mingw(self):
        self.assertEqual(compara.compara_cabecera(self.lista, self.hechos("x86_64-w64-mingw32")), [])

    def caso_dice_lo_que_dicen_las_cabeceras_en_msvc(self):
        self.assertEqual(compara.compara_cabecera(self.lista, self.hechos("x86_64-pc-windows-msvc")), [])

    def caso_son_las_50_funciones_del_def(self):
        self.assertEqual(len(self.lista["functions"]), 50)
        self.assertEqual(compara.compara_exportadas(self.lista, compara.exportadas(DEF)), [])

    def caso_cada_clave_tipo_y_duenyo_se_explica(self):
        texto = (comun.RAIZ / "bindings" / "README.md").read_text(encoding="utf-8")
        m = comun.m_lista
        claves = m.CLAVES_PARAMETRO | m.CLAVES_RESULTADO | m.CLAVES_CAMPO | set(self.lista)
        for palabra in claves | set(m.ESCALARES) | set(m.PUNTEROS) | m.DUENYOS:
            self.assertIn(f"`{palabra}`", texto)

    def caso_se_nota_cada_funcion_que_falta(self):
        hechos, exportadas = self.hechos(), compara.exportadas(DEF)
        for i, funcion in enumerate(self.lista["functions"]):
            cambiada = comun.otra(self.lista, lambda lista, i=i: lista["functions"].pop(i))
            self.nota(compara.compara_funciones, cambiada, hechos, funcion["name"])
            self.nota(compara.compara_exportadas, cambiada, exportadas, funcion["name"])

    def caso_se_nota_cada_funcion_que_sobra(self):
        def anyade(lista):
            lista["functions"].append(dict(lista["functions"][0], name="ivrexa_otra"))
        cambiada = comun.otra(self.lista, anyade)
        self.nota(compara.compara_funciones, cambiada, self.hechos(), "ivrexa_otra")
        self.nota(compara.compara_exportadas, cambiada, compara.exportadas(DEF), "ivrexa_otra")

    def caso_se_nota_cada_tipo_nombre_y_lugar_de_parametro(self):
        hechos = self.hechos()
        for i, funcion in enumerate(self.lista["functions"]):
            for j in range(len(funcion["parameters"])):
                for clave in ("c", "name"):
                    def cambia(lista, i=i, j=j, clave=clave):
                        lista["functions"][i]["parameters"][j][clave] += "x"
                    self.nota(compara.compara_funciones, comun.otra(self.lista, cambia), hechos, funcion["name"])
            for cambio in (lambda lista, i=i: lista["functions"][i]["parameters"].pop(),
                           lambda lista, i=i: lista["functions"][i]["parameters"].reverse()):
                cambiada = comun.otra(self.lista, cambio) if len(funcion["parameters"]) > 1 else None
                if cambiada:
                    self.nota(compara.compara_funciones, cambiada, hechos, funcion["name"])

    def caso_se_nota_cada_tipo_de_resultado(self):
        hechos = self.hechos()
        for i, funcion in enumerate(self.lista["functions"]):
            def cambia(lista, i=i):
                lista["functions"][i]["returns"]["c"] = "int64_t"
            self.nota(compara.compara_funciones, comun.otra(self.lista, cambia), hechos, f"{funcion['name']}, returns")

    def caso_se_nota_cada_cambio_en_los_tipos_de_funcion(self):
        hechos = self.hechos()
        for i, tipo in enumerate(self.lista["callbacks"]):
            for j in range(len(tipo["parameters"])):
                for clave in ("c", "name"):
                    def cambia(lista, i=i, j=j, clave=clave):
                        lista["callbacks"][i]["parameters"][j][clave] += "x"
                    cambiada = comun.otra(self.lista, cambia)
                    self.nota(compara.compara_tipos_de_funcion, cambiada, hechos, tipo["name"])
            cambiada = comun.otra(self.lista, lambda lista, i=i: lista["callbacks"].pop(i))
            self.nota(compara.compara_tipos_de_funcion, cambiada, hechos, tipo["name"])

    def caso_se_nota_cada_valor_de_constante(self):
        hechos = self.hechos()
        for i, constante in enumerate(self.lista["constants"]):
            def cambia(lista, i=i):
                lista["constants"][i]["value"] += 1
            self.nota(compara.compara_constantes, comun.otra(self.lista, cambia), hechos, constante["name"])
        for i, enumerado in enumerate(self.lista["enums"]):
            for j, valor in enumerate(enumerado["values"]):
                def cambia(lista, i=i, j=j):
                    lista["enums"][i]["values"][j]["value"] += 1
                self.nota(compara.compara_enumerados, comun.otra(self.lista, cambia), hechos, valor["name"])
                cambiada = comun.otra(self.lista, lambda lista, i=i, j=j: lista["enums"][i]["values"].pop(j))
                self.nota(compara.compara_enumerados, cambiada, hechos, valor["name"])

    def caso_se_nota_cada_campo_movido_de_un_registro(self):
        hechos = self.hechos()
        for i, registro in enumerate(self.lista["records"]):
            def engorda(lista, i=i):
                lista["records"][i]["size"] += 1
            self.nota(compara.compara_registros, comun.otra(self.lista, engorda), hechos, f"{registro['name']}, size")
            for j, campo in enumerate(registro["fields"]):
                for clave, mas in (("offset", 1), ("size", 1), ("c", "x"), ("name", "x")):
                    def cambia(lista, i=i, j=j, clave=clave, mas=mas):
                        lista["records"][i]["fields"][j][clave] += mas
                    self.nota(compara.compara_registros, comun.otra(self.lista, cambia), hechos, campo["name"])

    def con_otra_cabecera(self, cambios):
        """Every (header, before, after, what) at once, in a copy of the headers."""
        textos = {cabecera: (INCLUDE / cabecera).read_text(encoding="utf-8")
                  for cabecera in ("ivrexa.h", "ivrexa_mcbase.h")}
        for cabecera, antes, despues, _ in cambios:
            self.assertIn(antes, textos[cabecera])
            textos[cabecera] = textos[cabecera].replace(antes, despues, 1)
        with tempfile.TemporaryDirectory() as aparte:
            for cabecera, texto in textos.items():
                (Path(aparte) / cabecera).write_text(texto, encoding="utf-8")
            hechos = compara.lee_cabecera(comun.CLANG, compara.DESTINOS[0], aparte)
        for _, _, _, que in cambios:
            self.nota(compara.compara_cabecera, self.lista, hechos, que)

    def caso_se_nota_lo_que_falta_o_cambia_en_la_cabecera(self):
        self.con_otra_cabecera((
            ("ivrexa.h", "IVREXA_API void ivrexa_cierra_sesion(void);", "", "ivrexa_cierra_sesion is in the list"),
            ("ivrexa.h", "uint16_t valor", "int16_t valor", "ivrexa_graba_ushort, parameter 2"),
            ("ivrexa.h", "uint32_t indice, uint32_t *tam_buffer", "uint32_t indice, uint32_t *tam",
             "ivrexa_dame_buffer, parameter 2"),
            ("ivrexa.h", "uint64_t    hwnd_cliente", "int64_t    hwnd_cliente", "comando, fields"),
            ("ivrexa.h", "#define FALSO ((int16_t)0)", "#define FALSO 0", "FALSO, is an int16_t"),
            ("ivrexa.h", "ivrexa_resultado_CANCELADO = 2", "ivrexa_resultado_CANCELADO = 4", "CANCELADO, enum and"),
            ("ivrexa.h", "(*ivrexa_funcion_notificacion)(const char *nombre_servicio, uint32_t id_cliente,",
             "(*ivrexa_funcion_notificacion)(const char *nombre_servicio, uint64_t id_cliente,",
             "ivrexa_funcion_notificacion"),
            ("ivrexa_mcbase.h", "iv_mcbase_VERSION = 256", "iv_mcbase_VERSION = 257", "iv_mcbase_VERSION, enum"),
        ))

    def caso_se_nota_lo_que_sobra_en_la_cabecera(self):
        self.con_otra_cabecera((
            ("ivrexa.h", "IVREXA_API void ivrexa_cierra_sesion(void);",
             "IVREXA_API void ivrexa_cierra_sesion(void); IVREXA_API void ivrexa_nueva(void);", "ivrexa_nueva is in"),
            ("ivrexa.h", "#define FALSO ((int16_t)0)", "#define FALSO ((int16_t)0)\n#define NADA 2",
             "NADA is in the header"),
            ("ivrexa.h", "typedef struct comdat comdat;", "typedef struct comdat comdat;\ntypedef int otro_tipo;",
             "otro_tipo is in the header"),
            ("ivrexa.h", "ivrexa_ventana_TRAE_SERVIDOR = 2,", "ivrexa_ventana_TRAE_SERVIDOR = 2, OTRA_VENTANA = 8,",
             "constant OTRA_VENTANA is in the header"),
            ("ivrexa.h", "typedef struct comdat comdat;", "typedef struct comdat comdat;\nextern int una_variable;",
             "VarDecl una_variable"),
        ))

    def caso_se_rechaza_una_lista_que_no_guarda_la_forma(self):
        def cambia(clave, valor):
            def hace(lista):
                lista["functions"][0]["parameters"][0][clave] = valor
            return hace
        for clave, valor in (("type", "wide"), ("direction", "out"), ("ownership", "nobody"), ("otra", 1), ("room", 4)):
            with self.assertRaises(comun.m_lista.MalaLista, msg=clave):
                comun.m_lista.comprueba_forma(comun.otra(self.lista, cambia(clave, valor)))
        repetida = comun.otra(self.lista, lambda lista: lista["functions"].append(lista["functions"][0]))
        with self.assertRaises(comun.m_lista.MalaLista):
            comun.m_lista.comprueba_forma(repetida)


if __name__ == "__main__":
    comun.principal()
