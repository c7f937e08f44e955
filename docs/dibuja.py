#!/usr/bin/env python3
"""dibuja.py [--check] - the two pictures of architecture.md, beside it.

  road.svg     the road of one command, from STEPS below
  modules.svg  which module may call which, from the table in architecture.md

--check writes nothing, and ends with 1 if a picture is not what this makes. No font is measured, so that every machine
makes the same bytes.
"""

import os
import re
import sys

CARPETA = os.path.dirname(os.path.abspath(__file__))
TINTA, CLARO, AZUL, VERDE, ROJO = '#222222', '#bbbbbb', '#1f5fa8', '#2a7a3b', '#b0451b'

# ---- The road of one command

LANES = [('host', 'client'), ('library', 'client'), ('registry', 'shared'), ('channel', 'shared'),
         ('data blocks', 'shared'), ('library', 'server'), ('command function', 'server')]
HOST_C, LIB_C, REG, CHAN, DATA, LIB_S, FUNC = range(7)
BOTH, WINDOW, POLLS = TINTA, AZUL, VERDE

# from, to, what, modules or lock site, on which road
STEPS = [
    (HOST_C, LIB_C, 'ivrexa_graba_*: values', 'iv_comdat', BOTH),
    (HOST_C, LIB_C, 'ivrexa_guarda_datos', 'iv_reg', BOTH),
    (LIB_C, CHAN, 'takes the next block id', 'site 34', BOTH),
    (LIB_C, DATA, 'copies the content into a new block', 'iv_mcserv, iv_shared', BOTH),
    (HOST_C, LIB_C, 'ivrexa_ejecuta_comando', 'iv_mcserv', BOTH),
    (LIB_C, CHAN, 'ids of command and input', 'no lock', BOTH),
    (LIB_C, REG, 'command begins', 'iv_mcbase, site 10', BOTH),
    (LIB_C, CHAN, 'claims it, texts, state 1', 'site 16', BOTH),
    (LIB_C, LIB_S, "the service's message, by SendMessage", 'no lock', WINDOW),
    (LIB_S, CHAN, 'finds the command, state 2', 'site 29, held on', POLLS),
    (LIB_S, DATA, 'input: opens and copies the block', 'iv_reg, site 35', BOTH),
    (LIB_S, FUNC, 'calls it', 'no lock but 29', BOTH),
    (FUNC, DATA, 'ivrexa_guarda_datos: output', 'site 34', BOTH),
    (FUNC, CHAN, 'ivrexa_set_datos_salida_comando: texts, output id', 'no lock', BOTH),
    (FUNC, LIB_S, 'returns the result', 'no lock but 29', BOTH),
    (LIB_S, LIB_C, "the window procedure's return value", 'no lock', WINDOW),
    (LIB_S, CHAN, 'result, state 3', 'end of site 29', POLLS),
    (LIB_C, CHAN, 'stores the result, reads texts and output id, state 4', 'site 17', WINDOW),
    (LIB_C, CHAN, 'reads result, texts and output id, state 4', 'sites 17, 18', POLLS),
    (LIB_S, CHAN, 'sees the receipt, state 5', 'sites 30, 31', POLLS),
    (LIB_C, CHAN, 'frees it, state 0', 'site 19', BOTH),
    (LIB_C, REG, 'command has ended', 'site 11', BOTH),
    (HOST_C, LIB_C, 'ivrexa_lee_datos', 'iv_mcserv', BOTH),
    (LIB_C, DATA, 'output: opens and copies the block', 'iv_shared, iv_comdat', BOTH),
]


def texto(x, y, palabras, color=TINTA, ancla='start', tam=12, extra=''):
    palabras = palabras.replace('&', '&amp;').replace('<', '&lt;')
    return f'<text x="{x}" y="{y}" fill="{color}" text-anchor="{ancla}" font-size="{tam}"{extra}>{palabras}</text>'


def linea(x1, y1, x2, y2, color, extra=''):
    return f'<line x1="{x1}" y1="{y1}" x2="{x2}" y2="{y2}" stroke="{color}"{extra}/>'


def caja(x, y, ancho, alto, relleno, extra=''):
    return f'<rect x="{x}" y="{y}" width="{ancho}" height="{alto}" fill="{relleno}"{extra}/>'


def hoja(ancho, alto, titulo, partes):
    cabeza = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{ancho}" height="{alto}" viewBox="0 0 {ancho} {alto}" '
              f'font-family="sans-serif" role="img">\n<title>{titulo}</title>\n')
    return cabeza + '\n'.join([caja(0, 0, ancho, alto, 'white')] + partes) + '\n</svg>\n'


def flecha(x1, x2, y, color):
    punta = 7 if x1 < x2 else -7
    return (linea(x1, y, x2 - punta, y, color, ' stroke-width="1.5"') +
            f'<path d="M{x2} {y} l{-punta} -4 v8 z" fill="{color}"/>')


def paso(numero, x_de, y, datos):
    de, a, que, donde, color = datos
    izquierda = min(x_de(de), x_de(a))
    rotulo = f'{numero}  {que}'
    fondo = caja(izquierda + 5, y - 15, 6 * len(rotulo) + 8, 12, 'white')
    return [flecha(x_de(de), x_de(a), y, color), fondo, texto(izquierda + 8, y - 5, rotulo, color, tam=11),
            texto(1176, y - 1, donde, color, 'end', 11)]


def camino():
    paso_x, arriba, paso_y = 150, 92, 32
    abajo = arriba + paso_y * len(STEPS) + 12

    def x_de(carril):
        return 80 + paso_x * carril

    partes = []
    for desde, hasta, nombre, relleno in ((0, 1, 'client process', '#eef3fa'), (2, 4, 'shared memory', '#f6f3e8'),
                                          (5, 6, 'server process', '#eef6ee')):
        x = x_de(desde) - 62
        partes.append(caja(x, 10, x_de(hasta) + 62 - x, abajo - 4, relleno, ' rx="6"'))
        partes.append(texto((x_de(desde) + x_de(hasta)) // 2, 30, nombre, ancla='middle', tam=14))
    for carril, (nombre, _) in enumerate(LANES):
        partes.append(texto(x_de(carril), 52, nombre, ancla='middle'))
        partes.append(linea(x_de(carril), 60, x_de(carril), abajo, CLARO))
    partes.append(texto(1176, 52, 'modules; lock site', ancla='end'))
    for n, datos in enumerate(STEPS):
        partes += paso(n + 1, x_de, arriba + paso_y * n, datos)
    x = 18
    for color, palabras in ((TINTA, 'both roads'), (AZUL, 'server with a window'), (VERDE, 'server without one')):
        partes.append(caja(x, abajo + 18, 12, 12, color))
        partes.append(texto(x + 18, abajo + 28, palabras, color))
        x += 170
    return hoja(1190, abajo + 44, 'The road of one command', partes)


# ---- Which module may call which

ABAJO = 'all of the above'


def tabla(pagina):
    """{module: modules that it may call}, in the page's order. A function stands for its module."""
    filas = dict(re.findall(r'^\| `(\w+)` \| [^|]+ \| ([^|]+) \|$', pagina, re.M))
    llamadas = {}
    for modulo, puede in filas.items():
        nombrados = [max((m for m in filas if nombre == m or nombre.startswith(m + '_')), key=len)
                     for nombre in re.findall(r'`(iv_\w+)\*?`', puede)]
        llamadas[modulo] = (list(llamadas) if ABAJO in puede else []) + nombrados
    return llamadas


def modulos():
    with open(os.path.join(CARPETA, 'architecture.md'), encoding='utf-8') as fichero:
        llamadas = tabla(fichero.read())
    nombres = list(llamadas)
    lado, x0, y0 = 34, 150, 110
    partes = [texto(18, 28, 'A row may call the marked columns, and what is of iv_plataforma.', tam=14)]
    for i, nombre in enumerate(nombres):
        y, x = y0 + lado * i, x0 + lado * i
        partes.append(texto(x0 - 10, y + 22, nombre, ancla='end'))
        partes.append(texto(x + 20, y0 - 8, nombre, extra=f' transform="rotate(-45 {x + 20} {y0 - 8})"'))
        for j, otro in enumerate(nombres):
            marca = otro in llamadas[nombre]
            relleno = '#dddddd' if i == j else 'white' if not marca else AZUL if j < i else ROJO
            partes.append(caja(x0 + lado * j, y, lado, lado, relleno, f' stroke="{CLARO}"'))
    y = y0 + lado * len(nombres) + 26
    for color, palabras in ((AZUL, 'down'), (ROJO, 'up, or across: for the purposes that the table names')):
        partes.append(caja(18, y - 10, 12, 12, color))
        partes.append(texto(36, y, palabras))
        y += 20
    partes.append(texto(18, y + 8, "Locks, in this order: a service's mutex, the registry's, the heap's."))
    return hoja(x0 + lado * len(nombres) + 60, y + 26, 'Which module may call which', partes)


def principal():
    distintos = 0
    for nombre, hecho in (('road.svg', camino()), ('modules.svg', modulos())):
        ruta = os.path.join(CARPETA, nombre)
        if '--check' not in sys.argv:
            with open(ruta, 'w', encoding='utf-8', newline='\n') as fichero:
                fichero.write(hecho)
            continue
        with open(ruta, encoding='utf-8', newline='') as fichero:
            if fichero.read() != hecho:
                print(f'{nombre} is not what docs/dibuja.py makes: run it')
                distintos += 1
    return 1 if distintos else 0


sys.exit(principal())
