#!/usr/bin/env python3
"""comprueba_docs.py CHECK TREE: one check of the pages against the sources of the same tree.

Prints what is wrong, a line each, and ends with 1 if there is something. The checks are the functions at the end.
"""
import json
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import fuentes  # by the path set above
import paginas

FORMA, EJEMPLO = 'form', 'text'     # what stands behind the fences of trace.md


def falta(de, en, frase):
    return ['%s: %s' % (frase, x if isinstance(x, str) else ' '.join(x)) for x in sorted(set(de) - set(en))]


# ---- Reports

FILA = re.compile(r'^\| `(\w+)` \| `([^`]+)` \| ([^|]*) \|', re.M)


def expande(celda, exportadas):
    nombres = set()
    for nombre, comodin in re.findall(r'`(ivrexa_\w+)(\*?)`', celda):
        nombres |= {e for e in exportadas if e.startswith(nombre)} if comodin else {nombre}
    return nombres


# The rows of the module of the exports name the very exports that make the check.
def informes(arbol):
    pagina = paginas.lee(arbol, 'docs/reports.md')
    filas = FILA.findall(pagina)
    en_fuentes = fuentes.informes(arbol)
    escritos = [(m, e) for m, e, _ in filas]
    malos = falta(en_fuentes, escritos, 'docs/reports.md lacks')
    malos += falta(escritos, en_fuentes, 'docs/reports.md has what no source reports')
    malos += ['docs/reports.md has twice: %s %s' % f for f in sorted(set(escritos)) if escritos.count(f) > 1]
    exportadas = fuentes.exportadas(arbol)
    for modulo, expresion, celda in filas:
        quienes = en_fuentes.get((modulo, expresion), set())
        if modulo == 'ivrexa' and expande(celda, exportadas) != quienes:
            malos.append('%s is checked by %s' % (expresion, ' '.join(sorted(quienes))))
    return malos


# ---- Trace

def formas(arbol):
    return '\n'.join(paginas.bloques(paginas.lee(arbol, 'docs/trace.md'), FORMA)).split('\n')


# The literals that a piece of a form can be made of, one after another; None where it cannot be.
def partes(trozo, literales):
    desde, hasta = {0}, {len(trozo)}        # where literals from the piece's begin end, and those to its end begin
    for i in range(len(trozo)):
        if i in desde:
            desde |= {i + len(x) for x in literales if trozo.startswith(x, i)}
    for i in range(len(trozo), 0, -1):
        if i in hasta:
            hasta |= {i - len(x) for x in literales if trozo.endswith(x, 0, i)}
    if len(trozo) not in desde:
        return None
    return {x for i in desde for x in literales if i + len(x) in hasta and trozo.startswith(x, i)}


# At the end of a line a literal's blanks may be left out.
def traza(arbol):
    literales = {x for x in fuentes.textos_de_traza(arbol) if x}
    posibles = literales | {x.rstrip() for x in literales if x.rstrip()}
    usados = set()
    malos = []
    for linea in formas(arbol):
        for trozo in re.split(r'<[^<>]*>', linea):
            de_este = partes(trozo, posibles)
            if de_este is None:
                malos.append('docs/trace.md has what no source writes: "%s" in "%s"' % (trozo, linea))
            usados |= de_este or set()
    return malos + ['docs/trace.md lacks: "%s"' % x for x in sorted(literales)
                    if re.search('[A-Za-z]', x) and x not in usados and x.rstrip() not in usados]


# What stands on the same line behind one of these is another form.
SIN_FIN = tuple(re.escape(x) for x in ('*** Inicio registro ',))


def ejemplos_traza(arbol):
    patrones = [''.join('[^\n]*?' if t.startswith('<') else re.escape(t) for t in re.split(r'(<[^<>]*>)', forma))
                for forma in formas(arbol) if forma]
    sin_fin = [x for x in patrones if x.startswith(SIN_FIN)]
    linea_posible = re.compile('(?:(?:%s) ?)*(?:%s)$' % ('|'.join(sin_fin), '|'.join(patrones)))
    ejemplos = paginas.bloques(paginas.lee(arbol, 'docs/trace.md'), EJEMPLO)
    lineas = [x for bloque in ejemplos for x in bloque.split('\n') if x]
    malos = ['no record has this form: "%s"' % x for x in lineas if not linea_posible.match(x)]
    return malos if lineas else ['docs/trace.md has no example']


# ---- Links

def enlaces(arbol):
    malos = []
    anclas = {}
    for ruta in paginas.todas(arbol):
        for destino in paginas.enlaces(paginas.lee(arbol, ruta)):
            camino, _, ancla = destino.partition('#')
            fichero = os.path.normpath(os.path.join(os.path.dirname(ruta), camino)) if camino else ruta
            if fichero.startswith('..') or not os.path.exists(os.path.join(arbol, fichero)):
                malos.append('%s: nothing at %s' % (ruta, destino))
            elif ancla and fichero.endswith('.md'):
                if fichero not in anclas:
                    anclas[fichero] = paginas.anclas(paginas.lee(arbol, fichero))
                if ancla not in anclas[fichero]:
                    malos.append('%s: no heading for %s' % (ruta, destino))
    return malos


def indice(arbol):
    nombradas = set(paginas.enlaces(paginas.lee(arbol, 'docs/README.md')))
    hay = {x for x in os.listdir(os.path.join(arbol, 'docs')) if x.endswith('.md') and x != 'README.md'}
    hay |= {'../%s/README.md' % x for x in os.listdir(arbol)
            if os.path.exists(os.path.join(arbol, x, 'README.md')) and x != 'docs'}
    return falta(hay, nombradas, 'docs/README.md does not lead to')


# ---- Names and commands

def nombres(arbol):
    conocidos = fuentes.nombres(arbol)
    malos = []
    for ruta in paginas.todas(arbol):
        for nombre, resto in re.findall(r'\b(ivrexa_\w+)(.?)', paginas.lee(arbol, ruta)):
            hay = nombre in conocidos
            if nombre.endswith('_') and resto in '*<':
                hay = any(x.startswith(nombre) for x in conocidos)
            if not hay:
                malos.append('%s: nothing is called %s' % (ruta, nombre))
    return malos


def opciones_ajenas(mandato, texto):
    return [x for x in re.findall(r'(?<=[\s\[])--?[A-Za-z][\w-]*', mandato)
            if not re.search(re.escape(x) + r'(?![\w-])', texto)]


def mandato_malo(arbol, mandato, herramientas):
    guion = re.match(r'(scripts/[\w./-]+)', mandato)
    if guion:
        if not os.access(os.path.join(arbol, guion.group(1)), os.X_OK):
            return 'no such script'
        texto = paginas.lee(arbol, guion.group(1)) + herramientas['bench']
        return ' '.join(opciones_ajenas(mandato, texto))
    orden = re.match(r'ivrexactl ([a-z]+)\b', mandato)
    if orden:
        if 'add_subcommand("%s"' % orden.group(1) not in herramientas['tools']:
            return 'ivrexactl has no such command'
        return ' '.join(opciones_ajenas(mandato, herramientas['tools']))
    preset = re.search(r'cmake (?:--build )?--preset ([\w-]+)', mandato)
    if preset:
        hay = [x['name'] for x in json.loads(paginas.lee(arbol, 'CMakePresets.json'))['configurePresets']]
        return '' if preset.group(1) in hay else 'no such preset'
    return ''


def mandatos(arbol):
    herramientas = {x: fuentes.todo_el_codigo(arbol, x) for x in ('tools', 'bench')}
    malos = []
    vistos = 0
    for ruta in paginas.todas(arbol):
        for mandato in paginas.mandatos(paginas.lee(arbol, ruta)):
            vistos += mandato.startswith(('scripts/', 'ivrexactl ', 'cmake '))
            malo = mandato_malo(arbol, mandato, herramientas)
            if malo:
                malos.append('%s: "%s": %s' % (ruta, mandato, malo))
    return malos if vistos else ['no page shows a command']


# The table of the C++ page has each outcome of the C++ header once.
def salidas(arbol):
    cabecera = fuentes.sin_comentarios(paginas.lee(arbol, 'include/ivrexa.hpp'))
    enumerados = re.findall(r'\w+', re.search(r'enum class outcome \{(.*?)\}', cabecera, re.S).group(1))
    seccion = paginas.lee(arbol, 'docs/cpp.md').split('## What each outcome means\n')[1].split('\n## ')[0]
    filas = re.findall(r'^\| `(\w+)` \|', seccion, re.M)
    malos = falta(enumerados, filas, 'docs/cpp.md lacks the outcome')
    malos += falta(filas, enumerados, 'docs/cpp.md has what is no outcome')
    malos += ['docs/cpp.md has twice: ' + x for x in sorted(set(filas)) if filas.count(x) > 1]
    return malos if enumerados else ['include/ivrexa.hpp has no outcomes']


# A test of the DLL runs those of the README.
def programas(arbol):
    leeme = paginas.bloques(paginas.lee(arbol, 'README.md'), 'c')[:2]
    comienzo = paginas.bloques(paginas.lee(arbol, 'docs/start-here.md'), 'c')
    return [] if leeme == comienzo else ['the two programs of docs/start-here.md are not those of README.md']


COMPROBACIONES = (informes, traza, ejemplos_traza, enlaces, indice, nombres, mandatos, salidas, programas)


def main():
    for funcion in COMPROBACIONES:
        if funcion.__name__ == sys.argv[1]:
            malos = funcion(os.path.abspath(sys.argv[2]))
            print('\n'.join(malos) or 'All right.')
            return 1 if malos else 0
    print('no such check: ' + sys.argv[1])
    return 2


if __name__ == '__main__':
    sys.exit(main())
