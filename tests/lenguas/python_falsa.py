"""A stand-in for ivrexa.dll behind the Python layer: keeps the types that it is told, refuses arguments that ctypes
would refuse, and carries a command to the function that the same process registered."""

import ctypes


class Funcion:
    """An export. ctypes converts arguments by their type's from_param, and so does this."""

    def __init__(self, nombre, hace):
        self.nombre, self.hace = nombre, hace
        self.argtypes = self.restype = "not told"

    def __call__(self, *argumentos):
        if len(argumentos) != len(self.argtypes):
            raise TypeError(f"{self.nombre} takes {len(self.argtypes)} arguments, got {len(argumentos)}")
        for tipo, argumento in zip(self.argtypes, argumentos):
            if tipo in (ctypes.c_int16, ctypes.c_uint8, ctypes.c_uint16, ctypes.c_uint32, ctypes.c_double):
                tipo(argumento)
            else:
                tipo.from_param(argumento)
        return self.hace(*argumentos)


class Falsa:
    """Functions by their names, as a loaded library has them."""

    def __init__(self):
        self.contenedores, self.bloques, self.vivos = {}, {}, []
        self.destruidos, self.dichas = [], []
        self.comando = self.notificacion = self.respuesta = None
        self.textos = (None, None, None)
        self.datos_de_notificacion = 0
        self.siguiente = 1
        self.de_mas, self.da, self.toma = 0, 1, 1  # values that are not there; what reading and answering give
        self.hay_sitio, self.ejecutados = True, []

    def __getattr__(self, nombre):
        if not nombre.startswith("ivrexa_"):
            raise AttributeError(nombre)
        hace = getattr(type(self), nombre.removeprefix("ivrexa_"), None)
        if hace is None:
            hace = type(self)._valor if nombre.split("_")[1] in ("graba", "dame") else type(self)._dicha
            funcion = Funcion(nombre, lambda *argumentos: hace(self, nombre, *argumentos))
        else:
            funcion = Funcion(nombre, lambda *argumentos: hace(self, *argumentos))
        setattr(self, nombre, funcion)
        return funcion

    def _dicha(self, nombre, *argumentos):
        self.dichas.append((nombre, *argumentos))

    def _numero(self):
        self.siguiente += 1
        return self.siguiente

    def _valor(self, nombre, contenedor, *argumentos):
        clase = nombre.split("_", 2)[2]
        if nombre.startswith("ivrexa_graba_"):
            contenido = list(argumentos[1]) if clase.startswith("arr_") else argumentos[1]
            if clase == "buffer":
                contenido = contenido[:argumentos[2]]
            self.contenedores[contenedor].append((clase, argumentos[0], contenido))
            return None
        contenido = self.contenedores[contenedor][argumentos[0]][2]
        if clase in ("buffer", "arr_cadenas_ansi"):
            argumentos[1]._obj.value = len(contenido)
            textos = (ctypes.c_char_p * len(contenido))(*contenido) if clase != "buffer" else None
            return self._direccion(textos if textos is not None else contenido)
        return self._direccion_ancha(contenido) if clase == "cadena_unicode" else contenido

    def _direccion(self, contenido):
        guardado = ctypes.create_string_buffer(contenido) if isinstance(contenido, bytes) else contenido
        self.vivos.append(guardado)
        return ctypes.addressof(guardado)

    def _direccion_ancha(self, texto):
        """At an odd address, as one may lie."""
        if texto is None:
            return None
        coded = b"\0" + texto.encode("utf-16-le", "surrogatepass") + b"\0\0"
        base = self._direccion(coded)
        return base + 1 if base % 2 == 0 else self._direccion(b"\0" + coded) + 2

    def crea_datos_comando_entrada(self, _servicio):
        contenedor = self._numero()
        self.contenedores[contenedor] = []
        return contenedor

    crea_datos_comando_salida = crea_datos_comando_entrada

    def guarda_datos(self, contenedor):
        if not self.hay_sitio:
            return 0
        bloque = 100 + self._numero()
        self.bloques[bloque] = self.contenedores[contenedor]
        return bloque

    def lee_datos(self, _servicio, bloque, _es_entrada):
        if bloque not in self.bloques:
            return None
        contenedor = self._numero()
        self.contenedores[contenedor] = self.bloques[bloque]
        return contenedor

    def destruye_datos_comando(self, contenedor):
        del self.contenedores[contenedor]

    def numero_valores(self, contenedor):
        return len(self.contenedores[contenedor]) + self.de_mas

    def nombre_valor(self, contenedor, indice):
        valores = self.contenedores[contenedor]
        return valores[indice][1] if indice < len(valores) else b"?"

    def tipoDato(self, contenedor, indice):  # the export's name
        clases = ("", "byte", "ushort", "ulong", "double", "buffer", "cadena_ansi", "cadena_unicode", "hwnd",
                  "arr_cadenas_ansi", "arr_cadenas_unicode", "ninguna")
        valores = self.contenedores[contenedor]
        return clases.index(valores[indice][0]) if indice < len(valores) else 0

    def registra_servidor(self, *argumentos):
        self.comando = argumentos[-1]

    def registra_cliente_notificaciones_servicio(self, *argumentos):
        self.notificacion = argumentos[-1]

    def obtener_id_datos_notificacion(self, *_):
        return self.datos_de_notificacion

    def hay_servicio_registrado(self, _servicio, _version):
        return 1 if self.comando is not None else 0

    def get_datos_entrada_comando(self, _servicio, _id, _bloque, *sitios):
        for sitio, texto in zip(sitios, self.textos):
            sitio.value = texto or ""
        return self.da

    def set_datos_salida_comando(self, _servicio, _id, bloque, *textos):
        self.respuesta = (bloque, textos)
        return self.toma

    def ejecuta_comando(self, servicio, id_comando, _opciones, bloque, *resto):
        self.textos, (salida, *sitios) = resto[:3], resto[3:]
        self.ejecutados.append(id_comando)
        if self.comando is None:
            return 3
        entrada = self.lee_datos(servicio, bloque, 1) if bloque else None
        contexto = type(self).registro(datos_entrada=entrada, hwnd_cliente=77)
        resultado = self.comando(servicio, id_comando, ctypes.pointer(contexto), None)
        if resultado == 1:
            salida._obj.value = self.respuesta[0]
            for sitio, texto in zip(sitios, self.respuesta[1]):
                sitio.value = texto or ""
        if entrada:
            self.destruye_datos_comando(entrada)
        if contexto.datos_salida:
            self.destruye_datos_comando(contexto.datos_salida)
        return resultado
