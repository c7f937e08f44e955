"""What the sources report, trace and name."""
import glob
import os
import re

import paginas

LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
COMENTARIO = re.compile(r'"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)*\'|//[^\n]*|/\*.*?\*/', re.S)
ESCAPES = {'n': '\n', 't': '\t', '0': '\0'}

# What writes its argument into the trace, and the one format that a report is made of: of more than 16 boxes inside
# each other the others go there, too.
ESCRITORES = re.compile(
    r'\b(\w*traza\w*|escribe|abre_registro|abre_registro_comando|escribe_texto_salida|wsprintfA)\s*\(')


def sin_comentarios(texto):
    return COMENTARIO.sub(lambda m: ' ' if m.group().startswith('/') else m.group(), texto)


def ficheros(arbol, *patrones):
    return sorted(x for patron in patrones for x in glob.glob(os.path.join(arbol, patron), recursive=True))


def codigo(fichero):
    return sin_comentarios(paginas.lee('', fichero))


def todo_el_codigo(arbol, carpeta):
    return '\n'.join(codigo(x) for x in ficheros(arbol, carpeta + '/**/*.cpp', carpeta + '/**/*.h'))


def literales(texto):
    return [re.sub(r'\\(.)', lambda m: ESCAPES.get(m.group(1), m.group(1)), x) for x in LITERAL.findall(texto)]


# What stands between the parenthesis at `desde` and its other one. Parentheses within texts do not count.
def argumentos(texto, desde):
    nivel = 0
    for m in re.compile(r'"(?:[^"\\\n]|\\.)*"|[()]').finditer(texto, desde):
        nivel += {'(': 1, ')': -1}.get(m.group(), 0)
        if nivel == 0:
            return texto[desde + 1:m.start()]
    return texto[desde + 1:]


# ---- Reports

def exportadas(arbol):
    return set(re.findall(r'^\s+(ivrexa_\w+)', paginas.lee(arbol, 'src/ivrexa.def'), re.M))


# {(module, expression): the functions that check it}. The expression is what the preprocessor makes of it.
def informes(arbol):
    hallados = {}
    for fichero in ficheros(arbol, 'src/*.cpp', 'src/*.h'):
        texto = re.sub(r'(?m)^#define iv_assert.*$', '', codigo(fichero))
        modulo = re.search(r'#define IV_MODULO "(\w+)"', texto)
        funciones = [(m.start(), m.group(1)) for m in re.finditer(r'(?m)^(?!\s)[^\n;=]*?\b(\w+)\(', texto)]
        for m in re.finditer(r'\biv_assert(_puntero)?\s*\(', texto):
            expresion = ' '.join(argumentos(texto, m.end() - 1).split())
            expresion = '(%s) != 0' % expresion if m.group(1) else expresion
            quien = [nombre for sitio, nombre in funciones if sitio < m.start()][-1]
            hallados.setdefault((modulo.group(1), expresion), set()).add(quien)
    return hallados


# ---- Trace

# The texts that a function of this file may return, where its call is an argument.
def devueltos(texto, funcion):
    m = re.search(r'\bstatic const char \*%s\([^)]*\)\s*\{(.*?)^\}' % funcion, texto, re.M | re.S)
    return [x for linea in re.findall(r'return ([^;]*);', m.group(1)) for x in literales(linea)] if m else []


# The lines of all texts that go into the trace, whole but for their line ends and the places of a format.
def textos_de_traza(arbol):
    hallados = set()
    for fichero in ficheros(arbol, 'src/*.cpp', 'src/*.h'):
        texto = codigo(fichero)
        for m in ESCRITORES.finditer(texto):
            dentro = argumentos(texto, m.end() - 1)
            piezas = literales(dentro)
            for funcion in re.findall(r'\b(\w+)\s*\(', dentro):
                piezas += devueltos(texto, funcion)
            hallados |= {x for pieza in piezas for linea in pieza.split('\n') for x in re.split('%[sd]', linea)}
    return hallados


# ---- Names

# What hosts include, what the bindings declare, and what is the build's own.
NOMBRADOR = re.compile(r'(include|bindings)/|src/[^/]*\.def$|(.*/)?CMakeLists\.txt$|.*\.cmake$')


# Whatever a page may call by a name that begins like the library's: besides those, a file, and a text in the code, such
# as the name of a mutex or of a row of the bench.
def nombres(arbol):
    hallados = set()
    for ruta in paginas.ficheros(arbol):
        hallados |= set(re.findall(r'\bivrexa_\w+', os.path.basename(ruta)))
        if NOMBRADOR.match(ruta) and not ruta.endswith('.md'):
            hallados |= set(re.findall(r'\bivrexa_\w+', codigo(os.path.join(arbol, ruta))))
    for fichero in ficheros(arbol, 'src/*.cpp', 'bench/**/*.cpp', 'tools/**/*.cpp'):
        hallados |= {x for texto in literales(codigo(fichero)) for x in re.findall(r'\bivrexa_\w+', texto)}
    return hallados
