#!/usr/bin/env python3
"""alinea_codigo.py DLL: moves the code of a linked DLL to a whole page of its file.

Wine maps a section straight from the file when it begins at a page of it, and copies it into memory of its own when it
does not: for the code that is most of what loading costs. The linker only aligns all sections or none, and all of them
would make the file a quarter larger. So the headers are filled up with zeros to one page, and what lies behind moves.
Addresses in memory stay as they are; Windows does not care.
"""
import struct
import sys

PAGINA = 4096
NUM_DIRECTORIO_DEPURACION = 6


def u32(datos, posicion):
    return struct.unpack_from("<I", datos, posicion)[0]


def alinea(datos):
    pe = u32(datos, 60)
    num_secciones, tam_opcional = struct.unpack_from("<H12xH", datos, pe + 6)
    opcional = pe + 24
    primera = opcional + tam_opcional
    tam_cabeceras = u32(datos, opcional + 60)
    if datos[pe:pe + 4] != b"PE\0\0" or u32(datos, opcional + 64) != 0:
        sys.exit("a PE file without a checksum is expected")
    if tam_cabeceras >= PAGINA:
        return datos

    falta = PAGINA - tam_cabeceras
    struct.pack_into("<I", datos, opcional + 60, PAGINA)
    secciones = [struct.unpack_from("<4I", datos, primera + 40 * i + 8) for i in range(num_secciones)]
    for i, (_, _, tam, posicion) in enumerate(secciones):
        if tam != 0:
            struct.pack_into("<I", datos, primera + 40 * i + 20, posicion + falta)

    # Each entry of the debug directory tells where in the file its data lies.
    rva, tam = struct.unpack_from("<2I", datos, opcional + 112 + 8 * NUM_DIRECTORIO_DEPURACION)
    for _, rva_seccion, tam_seccion, posicion in secciones:
        if rva_seccion <= rva < rva_seccion + tam_seccion:
            for entrada in range(rva - rva_seccion + posicion, rva - rva_seccion + posicion + tam, 28):
                if u32(datos, entrada + 24) != 0:
                    struct.pack_into("<I", datos, entrada + 24, u32(datos, entrada + 24) + falta)
    return datos[:tam_cabeceras] + bytes(falta) + datos[tam_cabeceras:]


with open(sys.argv[1], "rb") as fichero:
    contenido = alinea(bytearray(fichero.read()))
with open(sys.argv[1], "wb") as fichero:
    fichero.write(contenido)
