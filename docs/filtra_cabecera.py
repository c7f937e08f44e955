#!/usr/bin/env python3
"""filtra_cabecera.py HEADER - a public header as Doxygen takes it, on the output; docs/Doxyfile calls it.

The headers are written to be read as they stand. This changes no word of them, only what marks the words:

  the first comment              the file's own text, as it stands
  a comment with ---- in it      a group of the reference, up to the next such comment
  a comment after two blanks     goes to the group's own page
  a documentation comment        goes to each declaration up to the next empty line, with those arguments that it has
  a comment before a type        the type's
  a comment behind code          the member's before it
  a macro of the headers' own    is left out

In a documentation comment "name  text" is an argument, "Returns", "Reports" and the like open a paragraph of that name.
A name that no declaration below has becomes an unknown command, so that Doxygen says so.
"""

import re
import sys

COMENTARIO = re.compile(r'/\*.*?\*/', re.S)
SECCION = re.compile(r'/\* -{4} (.*?) -+ \*/$')
ELEMENTO = re.compile(r' {2}(\w+(?:, \w+)*) {2,}(\S.*)$')
SOLO_NOMBRES = re.compile(r' {2}(\w+(?:, \w+)+)$')
MACRO_INTERNA = re.compile(r'^#define (?:IVREXA_API|IV_FORMATO|IV_CAMPO)\b.*$', re.M)
APARTADOS = {'Returns': '@return', 'Reports': '@par Reports\n', 'Limits': '@par Limits\n', 'Owns': '@par Owns\n',
             'Waits': '@par Waits\n', 'Returns, Reports': '@par Returns, reports\n'}


def protege(texto):
    """Prose, with what Doxygen would take as its own."""
    return re.sub(r'([\\@<>&#%$"])', r'\\\1', texto)


def lineas_de(comentario):
    """The lines between the marks of a comment; what follows ' *' keeps its blanks."""
    interior = re.sub(r'^/\*\*? ?', '', comentario)
    interior = re.sub(r'\s*\*/$', '', interior)
    primera, *otras = interior.split('\n')
    return [primera.strip()] + [re.sub(r'^\s*\* ?(?=\s|$)', '', linea).rstrip() for linea in otras]


def parrafos(comentario):
    """(names, text) for each paragraph of a documentation comment, names being '' for prose."""
    lineas = lineas_de(comentario)
    hechos = [['', lineas[0]]]
    for linea in lineas[1:]:
        linea = ' ' + linea if re.match(r' \S', linea) else linea
        elemento = ELEMENTO.match(linea) or SOLO_NOMBRES.match(linea)
        if elemento:
            hechos.append([elemento.group(1), (elemento.groups() + ('',))[1]])
        elif not linea.strip():
            hechos.append(['', ''])
        elif hechos[-1][0] and re.match(r' {2}\S', linea):
            hechos.append(['', linea.strip()])
        else:
            hechos[-1][1] += ' ' + linea.strip()
    return [(nombres, texto.strip()) for nombres, texto in hechos if nombres or texto.strip()]


def de_la_declaracion(comentario, declaracion, todas):
    """The comment of one declaration of a block."""
    salida = []
    for nombres, texto in parrafos(comentario):
        if not nombres:
            salida.append(protege(texto))
        elif nombres in APARTADOS:
            salida.append(APARTADOS[nombres] + ' ' + protege(texto))
        else:
            desconocidos = [n for n in nombres.split(', ') if not re.search(rf'\b{n}\b', todas)]
            propios = [n for n in nombres.split(', ') if re.search(rf'\b{n}\b', declaracion)]
            salida += [f'@{n}_is_no_argument' for n in desconocidos]
            if propios:
                salida.append(f'@param {",".join(propios)} {protege(texto)}')
    return '/** ' + '\n\n'.join(salida) + ' */\n'


def documenta_bloque(comentario, resto):
    """The declarations behind a documentation comment, each with its own; and what comes behind them."""
    bloque, corte, detras = resto.partition('\n\n')
    declaraciones = [d for d in re.split(r'(?<=;)\n', bloque.lstrip('\n')) if d.strip()]
    hechas = [de_la_declaracion(comentario, d, bloque) + d for d in declaraciones]
    return '\n'.join(hechas), corte + detras


def de_un_tipo(comentario, resto):
    """A comment that stands alone: of the type, the macro or the member behind it, or of none."""
    texto = protege('\n'.join(linea.strip() for linea in lineas_de(comentario)))
    adelantada = re.match(r'\n(struct \w+;\n)?(typedef|enum|struct)\b', resto)
    if not adelantada:
        return comentario, resto
    previa = adelantada.group(1) or ''
    return f'{previa}/** {texto} */', resto.replace(previa, '', 1) if previa else resto


class Filtro:
    def __init__(self, nombre):
        self.nombre = nombre
        self.grupo = None
        self.num_grupos = 0

    def abre_grupo(self, titulo):
        cierre = '/** @} */\n' if self.grupo else ''
        self.num_grupos += 1
        self.grupo = f'{self.nombre.replace(".", "_")}_{self.num_grupos}'
        return f'{cierre}/** @defgroup {self.grupo} {protege(titulo)}\n@{{ */'

    def comentario(self, previo, texto, resto):
        """What a comment becomes, and what is still to be read."""
        if previo.rpartition('\n')[2].strip():
            lineas = ' '.join(linea.strip() for linea in lineas_de(texto))
            return f'/**< {protege(lineas)} */', resto
        seccion = SECCION.match(texto)
        if seccion:
            return self.abre_grupo(seccion.group(1)), resto
        if texto.startswith('/**'):
            return documenta_bloque(texto, resto)
        if texto.startswith('/*  '):
            prosa = [(n + ': ' if n else '') + t for n, t in parrafos(texto)]
            return f'/** @}} */\n/** @addtogroup {self.grupo}\n' + protege('\n\n'.join(prosa)) + '\n@{ */', resto
        return de_un_tipo(texto, resto)

    def fichero(self, texto):
        cabeza = COMENTARIO.match(texto)
        lineas = lineas_de(cabeza.group())
        titulo = protege(lineas[0].partition(' - ')[2])
        cuerpo = '\n'.join(lineas[1:])
        salida = [f'/** @file\n@brief {titulo}\n@verbatim\n{cuerpo}\n@endverbatim */']
        resto = texto[cabeza.end():]
        siguiente = COMENTARIO.search(resto)
        while siguiente:
            salida.append(resto[:siguiente.start()])
            hecho, resto = self.comentario(salida[-1], siguiente.group(), resto[siguiente.end():])
            salida.append(hecho)
            siguiente = COMENTARIO.search(resto)
        return ''.join(salida) + resto + ('/** @} */\n' if self.grupo else '')


def principal():
    ruta = sys.argv[1]
    with open(ruta, encoding='utf-8') as fichero:
        texto = MACRO_INTERNA.sub('', fichero.read())
    sys.stdout.write(Filtro(ruta.rpartition('/')[2]).fichero(texto))


principal()
