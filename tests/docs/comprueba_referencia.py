#!/usr/bin/env python3
"""comprueba_referencia.py TREE FOLDER: makes the reference of the public headers in FOLDER, and looks into it.

Doxygen must not warn. The functions in the reference are the exports of src/ivrexa.def, each once; each has words, and
no argument that it is not declared with. Prints what is wrong, a line each, and ends with 1 if there is something.
"""
import glob
import os
import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree as arbol_xml


def exportadas(arbol):
    with open(os.path.join(arbol, 'src/ivrexa.def'), encoding='utf-8') as fichero:
        return re.findall(r'^    (\w+)$', fichero.read(), re.M)


# What Doxygen said; its settings are those of the tree but for the place of what it makes.
def haz(arbol, carpeta):
    shutil.rmtree(carpeta, ignore_errors=True)
    os.makedirs(carpeta)
    with open(os.path.join(arbol, 'docs/Doxyfile'), encoding='utf-8') as fichero:
        ajustes = fichero.read() + '\nOUTPUT_DIRECTORY = "%s"\n' % carpeta
    hecho = subprocess.run(['doxygen', '-'], input=ajustes, cwd=arbol, text=True, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, timeout=100, check=False)
    dicho = [x for x in hecho.stdout.splitlines() if x.strip()]
    return dicho if dicho or hecho.returncode == 0 else ['doxygen ends with %d' % hecho.returncode]


# {name: the elements that define it}, of the functions in C. One that is in a group stands in the group's file and in
# the header's, with one id.
def funciones(carpeta):
    halladas = {}
    for ruta in sorted(glob.glob(os.path.join(carpeta, 'xml', '*.xml'))):
        for miembro in arbol_xml.parse(ruta).iter('memberdef'):
            if miembro.get('kind') == 'function' and miembro.find('name').text.startswith('ivrexa_'):
                halladas.setdefault(miembro.find('name').text, {})[miembro.get('id')] = miembro
    return halladas


def palabras(miembro):
    textos = [''.join(miembro.find(x).itertext()) for x in ('briefdescription', 'detaileddescription')]
    return ' '.join(textos).split()


def mira(nombre, definiciones):
    malos = [] if len(definiciones) == 1 else ['%s is there %d times' % (nombre, len(definiciones))]
    for miembro in definiciones.values():
        if len(palabras(miembro)) < 3:
            malos.append('%s has no words' % nombre)
        nombrados = {x.text for x in miembro.iter('parametername')}
        declarados = {x.find('declname').text for x in miembro.findall('param') if x.find('declname') is not None}
        malos += ['%s has no argument %s' % (nombre, x) for x in sorted(nombrados - declarados)]
    return malos


def principal():
    arbol, carpeta = sys.argv[1:]
    malos = haz(arbol, carpeta)
    halladas, esperadas = funciones(carpeta), exportadas(arbol)
    if len(esperadas) != 50:
        malos.append('src/ivrexa.def has %d exports' % len(esperadas))
    malos += ['the reference lacks %s' % x for x in esperadas if x not in halladas]
    malos += ['the reference has %s, which is not exported' % x for x in sorted(halladas) if x not in esperadas]
    for nombre, definiciones in sorted(halladas.items()):
        malos += mira(nombre, definiciones)
    print('\n'.join(malos) if malos else '%d exports in the reference' % len(halladas))
    return 1 if malos else 0


sys.exit(principal())
