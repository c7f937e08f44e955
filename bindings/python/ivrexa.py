"""What makes the exports in ivrexa_raw.py pleasant: values that are copied out, texts that are refused where the
library would cut them, functions that are kept alive, exceptions that stay in this program.

    import ivrexa
    session = ivrexa.Session()                                  # loads the ivrexa.dll beside this file
    session.register_client("client.py", None, "Calc")
    answer = session.execute("Calc", 100, [("a", ivrexa.ULONG, 40), ("b", ivrexa.ULONG, 2)])
    print(answer.result, answer.output["total"].content, answer.texts[0])
    session.close()

One session to a process. Registration and close belong to the main thread: that of the window, if there is one.
Windows are numbers. ANSI texts are str in the code page of Windows ("mbcs").
"""

import ctypes
import threading
import time
from pathlib import Path
from typing import NamedTuple

import ivrexa_raw as raw

BYTE = raw.ivrexa_tipoDato_byte
USHORT = raw.ivrexa_tipoDato_ushort
ULONG = raw.ivrexa_tipoDato_ulong
DOUBLE = raw.ivrexa_tipoDato_double
BUFFER = raw.ivrexa_tipoDato_buffer
ANSI = raw.ivrexa_tipoDato_cadena_ansi
TEXT = raw.ivrexa_tipoDato_cadena_unicode
WINDOW = raw.ivrexa_tipoDato_hwnd
ANSI_ARRAY = raw.ivrexa_tipoDato_arr_cadenas_ansi

NO_ANSWER = raw.ivrexa_resultado_NINGUNO
OK = raw.ivrexa_resultado_OK
CANCELLED = raw.ivrexa_resultado_CANCELADO
ERROR = raw.ivrexa_resultado_ERROR

NUMBERS = {BYTE: ("byte", 0xFF), USHORT: ("ushort", 0xFFFF), ULONG: ("ulong", 0xFFFFFFFF)}
LARGEST_ID = 0xFFFFFFFF
FIELDS = (63, 255, 255)  # characters of the three texts that arrive
DLL = str(Path(__file__).absolute().with_name(raw.DLL))  # Windows searches for a bare name elsewhere, if at all
FIRST_HEARTBEAT_S = 2.5  # a server without a window may take a client for dead whose heartbeat has not begun


class Value(NamedTuple):
    """One value of command data. `content` is None for a null text and for wide texts in an array, which the format
    does not bring back; so is an ANSI text in an array that its writer put outside the content."""

    name: str
    type: int
    content: object


class Values(list):
    """Values in the order in which they were written; by position, or by name for the first that is called so."""

    def __getitem__(self, key):
        if not isinstance(key, str):
            return super().__getitem__(key)
        for value in self:
            if value.name == key:
                return value
        raise KeyError(key)


class Answer(NamedTuple):
    """What comes back of a command. Texts are empty and the output None unless the result is OK."""

    result: int
    texts: tuple
    output: object


class Notification(NamedTuple):
    """What a client is notified of, on a thread of the library."""

    service: str
    client: int
    datum: int
    data: object


class Command:
    """A command, as its handler gets it: `service`, `id`, `client_window`, `input` (Values or None), `texts`."""

    def __init__(self, service, id_, client_window, values, texts):
        self.service, self.id, self.client_window, self.input, self.texts = service, id_, client_window, values, texts
        self.output, self.answers = None, (None, None, None)

    def answer(self, output=None, *texts):
        """What the client gets if the handler returns OK: triples as of Session.execute, and up to three texts."""
        self.output, self.answers = output, fields(texts)


def whole(text):
    """A text that arrives as it is."""
    if text is not None and "\0" in text:
        raise ValueError("a NUL inside a text")
    return text


def ansi(text, longest=None, shortest=0, encoding="mbcs"):
    """A text as the bytes of the code page; refused if it cannot be one, or does not fit."""
    if text is None:
        return None
    coded = whole(text).encode(encoding)
    if longest is not None and not shortest <= len(coded) <= longest:
        raise ValueError(f"{text!r} has {len(coded)} characters where {shortest} to {longest} are allowed")
    return coded


def fields(texts):
    """The three wide texts of a command or an answer."""
    if len(texts) > 3:
        raise ValueError("more than three texts")
    three = (*texts, None, None, None)[:3]
    for text, longest in zip(three, FIELDS):
        if text is not None and len(text.encode("utf-16-le", "surrogatepass")) // 2 > longest:
            raise ValueError(f"a text of {len(text)} characters where {longest} arrive")
        whole(text)
    return three


def wide_at(address):
    """Copies the wide text at an address, which may be odd; None for none."""
    if not address:
        return None
    size = 0
    while ctypes.string_at(address + size, 2) != b"\0\0":
        size += 2
    return ctypes.string_at(address, size).decode("utf-16-le", "surrogatepass")


class Session:
    """The library in this process. `path` is that of the DLL, in full. `on_failure` is told of an exception that a
    handler let escape; one of its own goes nowhere."""

    def __init__(self, path=DLL, on_failure=None, loader=ctypes.CDLL, encoding="mbcs"):
        self.dll = raw.declare(loader(path))
        self.on_failure = on_failure or (lambda failure: None)
        self.encoding = encoding
        self.kept = []  # functions that the library may call until the session ends
        self.registered = {}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends this program's registration; not from a handler."""
        self.dll.ivrexa_cierra_sesion()
        self.kept.clear()
        self.registered.clear()

    # ---- Server

    def register_server(self, path, window, service, version, handler):
        """Registers this program, or adds a service if it is registered. `handler(command)` returns a result. Without
        a window a thread of the library calls it; otherwise the window's message loop does."""
        function = raw.ivrexa_funcion_comando(lambda *arguments: self._handle(handler, *arguments))
        name = self._service(service)
        self.kept.append(function)
        self.dll.ivrexa_registra_servidor(self._path(path), window, name, version, None, function)

    def publish(self):
        """Publishes the services that were registered."""
        self.dll.ivrexa_terminado_registro()

    def wait(self):
        """Waits until a server without a window was told to end."""
        self.dll.ivrexa_espera_comando_terminar_servidor()

    def notify(self, service, client, datum, data=None):
        """Notifies a client, and waits until it has answered or this server ends the service."""
        container, block = self._store(service, data, self.dll.ivrexa_crea_datos_comando_salida)
        try:
            self.dll.ivrexa_notifica_a_cliente(self._service(service), client, datum, block)
        finally:
            self._destroy(container)

    # ---- Client

    def register_client(self, path, window, service, handler=None):
        """Registers as a client. A window and `handler(notification)` make it one that is notified: a thread of the
        library calls the handler once for each, and the server waits until it returns."""
        name = self._service(service)
        if handler is None:
            self.dll.ivrexa_registra_cliente_de_servicio(self._path(path), window, name)
        elif not window:
            raise ValueError("a client that is notified needs a window")
        else:
            thread = threading.get_ident()
            function = raw.ivrexa_funcion_notificacion(lambda *what: self._notified(handler, thread, *what))
            self.kept.append(function)
            self.dll.ivrexa_registra_cliente_notificaciones_servicio(self._path(path), window, name, function)
        self.registered.setdefault(service, time.monotonic())

    def execute(self, service, id_, data=None, *texts, options=0):
        """Runs a command and waits for its end. `data` is a sequence of (name, type, content). The first command waits
        until 2.5 s have passed since the registration. Commands on one service must take turns, also those of other
        programs. An id below 100 is the library's own and raises ValueError. Before data is stored the service is asked
        for, as by is_offered: where nobody offers it the result is ERROR, the library's own for that."""
        if not raw.ivrexa_comando_PRIMERO_PROPIO <= id_ <= LARGEST_ID:  # 1 would end the server
            raise ValueError(f"command {id_} is the library's or none: yours are 100 to {LARGEST_ID}")
        three = fields(texts)
        name = self._service(service)
        left = self.registered.get(service, 0) + FIRST_HEARTBEAT_S - time.monotonic()
        if service in self.registered and left > 0:
            time.sleep(left)
        if data is not None and not self.is_offered(service):
            return Answer(ERROR, ("", "", ""), None)
        container, block = self._store(service, data, self.dll.ivrexa_crea_datos_comando_entrada)
        try:
            back = [ctypes.create_unicode_buffer(longest + 1) for longest in FIELDS]
            output = ctypes.c_uint32(0)
            result = self.dll.ivrexa_ejecuta_comando(name, id_, options, block, *three, ctypes.byref(output), *back)
            values = self.read(service, output.value, False) if result == OK else None
        finally:
            self._destroy(container)
        return Answer(result, tuple(text.value for text in back), values)

    def is_offered(self, service):
        """Is a server attached to the service? Each question for one that is offered leaves a handle open."""
        return self.dll.ivrexa_hay_servicio_registrado(self._service(service), None) == raw.CIERTO

    def read(self, service, block, is_input):
        """Copies the values of a stored block; None where there is no such block."""
        if block == 0:
            return None
        container = self.dll.ivrexa_lee_datos(self._service(service), block, raw.CIERTO if is_input else raw.FALSO)
        if not container:
            return None
        try:
            return self._values(container)
        finally:
            self._destroy(container)

    # ---- Inside

    def _service(self, name):
        return ansi(name, 63, 1, self.encoding)

    def _path(self, path):
        return ansi(path, 255, 1, self.encoding)

    def _text(self, coded):
        """Another program wrote it: what is no character becomes a mark."""
        return None if coded is None else coded.decode(self.encoding, "replace")

    def _failed(self, failure):
        """The library waits for the function that failed, so nothing leaves this."""
        try:
            self.on_failure(failure)
        except BaseException:  # on_failure itself has failed, and there is nobody left to tell
            pass

    def _destroy(self, container):
        if container:
            self.dll.ivrexa_destruye_datos_comando(container)

    def _store(self, service, data, create):
        """The container that keeps the block alive, and the block's id; (None, 0) without data."""
        if data is None:
            return None, 0
        container = create(self._service(service))
        try:
            for name, type_, content in data:
                self._write(container, ansi(name, 254, 0, self.encoding), type_, content)
            block = self.dll.ivrexa_guarda_datos(container)
            if block == 0:
                raise OSError("no room for the command data" if self.is_offered(service) else
                              f"nobody offers {service}: there is no place for its data")
        except BaseException:
            self._destroy(container)
            raise
        return container, block

    def _write(self, container, name, type_, content):
        dll = self.dll
        if type_ in NUMBERS:
            number, largest = NUMBERS[type_]
            if not 0 <= content <= largest:
                raise ValueError(f"{content} is no {number}")
            getattr(dll, f"ivrexa_graba_{number}")(container, name, content)
        elif type_ == DOUBLE:
            dll.ivrexa_graba_double(container, name, content)
        elif type_ == WINDOW:
            dll.ivrexa_graba_hwnd(container, name, content)
        elif type_ == BUFFER:
            coded = bytes(memoryview(content))
            dll.ivrexa_graba_buffer(container, name, coded, len(coded))
        elif type_ == ANSI:
            dll.ivrexa_graba_cadena_ansi(container, name, ansi(content, encoding=self.encoding))
        elif type_ == TEXT:
            dll.ivrexa_graba_cadena_unicode(container, name, whole(content))
        elif type_ == ANSI_ARRAY:
            texts = [ansi(text, encoding=self.encoding) for text in content]
            dll.ivrexa_graba_arr_cadenas_ansi(container, name, (ctypes.c_char_p * len(texts))(*texts), len(texts))
        else:
            raise ValueError(f"no value of type {type_} can be written; arrays of wide texts do not come back")

    def _values(self, container):
        """The count is the writer's word, and so is each type: the first that is none ends it."""
        values = Values()
        for position in range(self.dll.ivrexa_numero_valores(container)):
            type_ = self.dll.ivrexa_tipoDato(container, position)
            if not BYTE <= type_ <= raw.ivrexa_tipoDato_arr_cadenas_unicode:
                break
            name = self._text(self.dll.ivrexa_nombre_valor(container, position))
            values.append(Value(name, type_, self._content(container, position, type_)))
        return values

    def _content(self, container, position, type_):
        dll, size = self.dll, ctypes.c_uint32(0)
        if type_ in NUMBERS:
            return getattr(dll, f"ivrexa_dame_{NUMBERS[type_][0]}")(container, position)
        if type_ == DOUBLE:
            return dll.ivrexa_dame_double(container, position)
        if type_ == WINDOW:
            return dll.ivrexa_dame_hwnd(container, position)
        if type_ == BUFFER:
            address = dll.ivrexa_dame_buffer(container, position, ctypes.byref(size))
            return ctypes.string_at(address, size.value) if address else b""
        if type_ == ANSI:
            return self._text(dll.ivrexa_dame_cadena_ansi(container, position))
        if type_ == TEXT:
            return wide_at(dll.ivrexa_dame_cadena_unicode(container, position))
        if type_ == ANSI_ARRAY:
            address = dll.ivrexa_dame_arr_cadenas_ansi(container, position, ctypes.byref(size))
            array = (ctypes.c_char_p * size.value).from_address(address) if address else ()
            return [self._text(text) for text in array]
        return None

    def _handle(self, handler, service, id_, context, _):
        """The command function: no exception leaves it, and it answers in any case, so that no former answer stays."""
        try:
            texts = [ctypes.create_unicode_buffer(longest + 1) for longest in FIELDS]
            if self.dll.ivrexa_get_datos_entrada_comando(service, id_, None, *texts) != raw.CIERTO:
                raise OSError("the command's texts could not be read")
            at = context.contents
            values = self._values(at.datos_entrada) if at.datos_entrada else None
            command = Command(self._text(service), id_, at.hwnd_cliente, values, tuple(text.value for text in texts))
            result = int(handler(command))
            container, block = self._store(command.service, command.output, self.dll.ivrexa_crea_datos_comando_salida)
            at.datos_salida = container  # the library's from here on
            if self.dll.ivrexa_set_datos_salida_comando(service, id_, block, *command.answers) != raw.CIERTO:
                raise OSError("the command could not be answered")
            return result
        except BaseException as failure:  # an interruption too: nothing may pass through the library
            self._failed(failure)
            return ERROR

    def _notified(self, handler, window_thread, service, client, datum):
        """The library calls twice for each notification; only the first call is on a thread of its own."""
        if threading.get_ident() == window_thread:
            return
        try:
            block = self.dll.ivrexa_obtener_id_datos_notificacion(service, client, datum)
            name = self._text(service)
            handler(Notification(name, client, datum, self.read(name, block, False)))
        except BaseException as failure:  # an interruption too: nothing may pass through the library
            self._failed(failure)
        finally:
            self.dll.ivrexa_procesada_notificacion(service)  # the server waits for it
