#!/usr/bin/env python3
"""lista.py LIST OUTPUT: what bindings/ivrexa.json says of names and places, in lines that a test program reads easily.

    function NAME
    record NAME SIZE
    field RECORD NAME OFFSET SIZE
"""

import json
import sys
from pathlib import Path


def main():
    lista = json.loads(Path(sys.argv[1]).read_text(encoding='utf-8'))
    lineas = [f"function {f['name']}" for f in lista['functions']]
    for registro in lista['records']:
        lineas.append(f"record {registro['name']} {registro['size']}")
        lineas += [f"field {registro['name']} {c['name']} {c['offset']} {c['size']}" for c in registro['fields']]
    Path(sys.argv[2]).write_text('\n'.join(lineas) + '\n', encoding='utf-8', newline='\n')


if __name__ == '__main__':
    main()
