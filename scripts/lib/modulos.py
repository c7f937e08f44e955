"""modulos.py TABLE OBJECTS: that no module of the library calls another than the architecture page allows.

TABLE is the page: in its first table, the first column names a module and the third what that module may call: names of
modules, names of functions (`iv_mutex_heap_*` stands for all that begin so) and "all of the above"; `iv_plataforma` is
everybody's. OBJECTS is the folder of the library's object files, one for each module. A call, here, is any use of
another module's function or variable; of a function that a header has inline, what that one calls.
"""
import collections
import pathlib
import re
import subprocess
import sys

DE_TODOS = 'iv_plataforma'


def reglas_de(pagina):
    """For each module of the table, in its order, the patterns of what it may use."""
    reglas = {}
    for linea in pagina.read_text(encoding='utf-8').splitlines():
        celdas = [celda.strip() for celda in linea.strip().strip('|').split('|')]
        modulo = re.fullmatch(r'`(iv\w+)`', celdas[0])
        if modulo is None or len(celdas) != 3:
            if reglas:
                break
            continue
        permitido = re.findall(r'`(iv\w+\*?)`', celdas[2])
        if 'all of the above' in celdas[2]:
            permitido += reglas
        reglas[modulo.group(1)] = permitido
    return reglas


def simbolos_de(objeto):
    """What an object file defines for others, and what it uses of theirs."""
    salida = subprocess.run(['llvm-nm', '--demangle', objeto], check=True, capture_output=True, text=True).stdout
    define, usa = set(), set()
    for linea in salida.splitlines():
        clase, nombre = re.fullmatch(r'(?:[0-9a-f]+| +) (\S) (.+)', linea).groups()
        nombre = re.match(r'[\w.$]*', nombre).group()
        if clase == 'U':
            usa.add(nombre)
        elif clase.isupper():
            define.add(nombre)
    return define, usa


def usos_entre_modulos(carpeta):
    """(user, used module, name) for each name that one module uses of another."""
    de_cada_uno = {o.name.split('.')[0]: simbolos_de(o) for o in sorted(carpeta.iterdir()) if '.cpp.o' in o.name}
    duenos = collections.defaultdict(set)
    for modulo, (define, _) in de_cada_uno.items():
        for nombre in define:
            duenos[nombre].add(modulo)
    usos = {(modulo, min(duenos[nombre]), nombre) for modulo, (define, usa) in de_cada_uno.items()
            for nombre in usa - define if nombre in duenos}
    return de_cada_uno.keys(), usos


def permite(permitido, usado, nombre):
    return any(p == usado or p == nombre or (p.endswith('*') and nombre.startswith(p[:-1])) for p in permitido)


def main():
    if len(sys.argv) != 3:
        sys.exit('usage: modulos.py TABLE OBJECTS')
    reglas = reglas_de(pathlib.Path(sys.argv[1]))
    modulos, usos = usos_entre_modulos(pathlib.Path(sys.argv[2]))
    faltas = [f'{modulo} uses {nombre} of {usado}, which the table does not allow'
              for modulo, usado, nombre in sorted(usos)
              if modulo in reglas and usado != DE_TODOS and not permite(reglas[modulo], usado, nombre)]
    faltas += [f'{modulo} is not in the table' for modulo in sorted(modulos - reglas.keys())]
    faltas += [f'{modulo} is in the table and has no object file' for modulo in sorted(reglas.keys() - modulos)]
    usados = {(modulo, p) for modulo, usado, nombre in usos for p in reglas.get(modulo, [])
              if permite([p], usado, nombre)}
    faltas += [f'the table allows {modulo} to call {p}, which it does not'
               for modulo, permitido in reglas.items() for p in permitido
               if p not in reglas and (modulo, p) not in usados]
    for falta in faltas:
        print(falta)
    print(f'{len(modulos)} modules, {len(usos)} names used across them')
    sys.exit(1 if faltas or not usos else 0)


main()
