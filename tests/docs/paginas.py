"""The pages of the tree, and what stands in one: links, headings, blocks of code, commands."""
import os
import re

VALLA = re.compile(r'^( *)(```+|~~~+)([^\n`]*)\n(.*?)^\1\2[ \t]*$', re.M | re.S)


def lee(arbol, ruta):
    with open(os.path.join(arbol, ruta), encoding='utf-8', errors='replace') as fichero:
        return fichero.read()


# All files of the tree, by their paths from its root. What lies in build folders and hidden ones is nobody's.
def ficheros(arbol):
    rutas = []
    for carpeta, subcarpetas, nombres in os.walk(arbol):
        subcarpetas[:] = sorted(x for x in subcarpetas if x != 'build' and not x.startswith('.') and
                                not os.path.exists(os.path.join(carpeta, x, 'CMakeCache.txt')))
        rutas += [os.path.relpath(os.path.join(carpeta, x), arbol) for x in sorted(nombres)]
    return rutas


def todas(arbol):
    return [x for x in ficheros(arbol) if x.endswith('.md')]


# The blocks between fences that have `clase` behind them.
def bloques(texto, clase):
    return [cuerpo.rstrip('\n') for _, _, info, cuerpo in VALLA.findall(texto) if info.strip() == clase]


def sin_codigo(texto):
    texto = VALLA.sub('', texto)
    texto = re.sub(r'(?m)(?:^\s*\n)((?:(?:    |\t).*\n)+)', '\n', texto)
    return re.sub(r'(`+)(?!`).*?(?<!`)\1(?!`)', '', texto, flags=re.S)


# Where the links lead that stay in the tree.
def enlaces(texto):
    texto = sin_codigo(texto)
    destinos = re.findall(r'\]\(\s*<?([^)\s>]+)>?(?:\s+"[^"]*")?\s*\)', texto)
    destinos += re.findall(r'(?m)^ {0,3}\[[^\]]+\]:\s*<?(\S+?)>?\s*$', texto)
    return [x for x in destinos if not re.match(r'[a-z]+:', x)]


# The anchors that the headings of a page make: lower case, blanks as hyphens, no other punctuation; a second one of
# the same name gets a number.
def anclas(texto):
    hechas = set(re.findall(r'<a (?:id|name)="([^"]+)"', texto))
    veces = {}
    for titulo in re.findall(r'(?m)^#{1,6} +(.*?) *#*$', VALLA.sub('', texto)):
        titulo = re.sub(r'\[([^\]]*)\]\([^)]*\)', r'\1', titulo)
        ancla = re.sub(r'[^\w\- ]', '', titulo.lower()).replace(' ', '-')
        hechas.add(ancla if ancla not in veces else '%s-%d' % (ancla, veces[ancla]))
        veces[ancla] = veces.get(ancla, 0) + 1
    return hechas


# What a page shows as code, a command a piece: the lines of blocks, without a prompt or a comment, and what stands
# between back quotes.
def mandatos(texto):
    trozos = [x for _, _, _, cuerpo in VALLA.findall(texto) for x in cuerpo.split('\n')]
    resto = VALLA.sub('', texto)
    trozos += re.findall(r'(?m)^(?:    |\t)(.*)$', resto)
    trozos += [x.replace('\n', ' ') for x in re.findall(r'`([^`]+)`', resto)]
    trozos = [parte for x in trozos for parte in re.split(r'&&|;', re.sub(r'\s#.*', '', x))]
    return [re.sub(r'^(\$|>|sudo|nice)\s+', '', x.strip()) for x in trozos]
