"""The raw layer for Rust: bindings/rust/src/raw.rs. See genera.py."""

from lista import frase

FICHERO = 'bindings/rust/src/raw.rs'

ENTRA = {
    'ansi': '*const c_char', 'wide': '*const u16', 'ansi_array': '*const *const c_char',
    'wide_array': '*const *const u16', 'bytes': '*const c_void', 'comdat': '*mut comdat', 'hwnd': 'ivrexa_hwnd',
    'pointer': '*mut c_void', 'bool16': 'i16', 'uint8': 'u8', 'uint16': 'u16', 'uint32': 'u32', 'uint64': 'u64',
    'int32': 'i32', 'double': 'f64',
}

CABEZA = '''// Made by bindings/genera.py from bindings/ivrexa.json: do not edit.

//! The C interface of ivrexa.dll as it stands: one function for each export, with pointers and numbers.
//! `include/ivrexa.h` says what each does. The rest of this crate is what programs use.
//!
//! Wide texts and arrays of them that a container gives may lie at an odd address: read them with `read_unaligned`.

#![allow(non_camel_case_types, non_snake_case, non_upper_case_globals)]

use std::os::raw::{c_char, c_void};

/// A container of command data: opaque.
#[repr(C)]
pub struct comdat {
    _opaque: [u8; 0],
}

/// A window handle.
pub type ivrexa_hwnd = *mut c_void;
'''


def tipo_parametro(parametro):
    tipo, direccion = parametro['type'], parametro.get('direction', 'in')
    if tipo == 'record':
        return ('*const ' if direccion == 'in' else '*mut ') + parametro['record']
    if tipo == 'callback':
        return parametro['callback']
    rust = ENTRA[tipo]
    if direccion == 'in':
        return rust
    if tipo in ('ansi', 'wide'):
        return rust.replace('*const', '*mut')
    return '*mut ' + rust


def documenta(texto, sangria='', marca='///'):
    lineas, linea = [], sangria + marca
    for palabra in texto.split():
        if len(linea) + 1 + len(palabra) > 120:
            lineas.append(linea)
            linea = sangria + marca
        linea += ' ' + palabra
    return lineas + [linea]


def constantes(lista):
    lineas = []
    for c in lista['constants']:
        lineas += [''] + documenta(frase(c['meaning']))
        lineas.append(f"pub const {c['name']}: {ENTRA[c['type']]} = {c['value']};")
    for enum in lista['enums']:
        lineas += [''] + documenta(enum['meaning'], marca='//')
        for valor in enum['values']:
            lineas += documenta(frase(valor['meaning']))
            lineas.append(f"pub const {valor['name']}: u32 = {valor['value']};")
    return lineas


def tipo_campo(campo):
    if campo['type'] == 'record':
        return f"[{campo['record']}; {campo['items']}]"
    if campo['type'] == 'ansi_field':
        return f"[c_char; {campo['size']}]"
    return ENTRA[campo['type']]


def registro(r):
    lineas = [''] + documenta(f"{r['meaning']} {r['size']} bytes.")
    lineas += ['#[repr(C, packed)]' if r['packed'] else '#[repr(C)]', '#[derive(Clone, Copy)]',
               f"pub struct {r['name']} {{"]
    for campo in r['fields']:
        lineas += documenta(frase(f"At {campo['offset']}: {campo['meaning']}"), '    ')
        lineas.append(f"    pub {campo['name']}: {tipo_campo(campo)},")
    return lineas + ['}']


def lista_de(parametros, sangria, antes, despues):
    """A parameter list as rustfmt writes it: in one line if that has at most 120 columns."""
    trozos = [f"{p['name']}: {tipo_parametro(p)}" for p in parametros]
    una = f"{sangria}{antes}({', '.join(trozos)}){despues}"
    if len(una) <= 120:
        return [una]
    return [f'{sangria}{antes}('] + [f'{sangria}    {t},' for t in trozos] + [f'{sangria}){despues}']


def devuelve(cosa):
    return '' if cosa['returns']['type'] == 'void' else ' -> ' + ENTRA[cosa['returns']['type']]


def callback(c):
    lineas = [''] + documenta(f"{c['meaning']} Thread: {c['thread']}. `None` is NULL.")
    trozos = [f"{p['name']}: {tipo_parametro(p)}" for p in c['parameters']]
    antes = f"pub type {c['name']} = Option<"
    una = f"{antes}unsafe extern \"C\" fn({', '.join(trozos)}){devuelve(c)}>;"
    if len(una) <= 120:
        return lineas + [una]
    if len(una) - len(antes) + 4 + len('Option<') <= 120:
        return lineas + [antes[:-len(' Option<')], '    ' + una[len(antes) - len('Option<'):]]
    dentro = f"    unsafe extern \"C\" fn({', '.join(trozos)}){devuelve(c)},"
    if len(dentro) <= 120:
        return lineas + [antes, dentro, '>;']
    return lineas + [antes, '    unsafe extern "C" fn('] + [f'        {t},' for t in trozos] + [
        f'    ){devuelve(c)},', '>;']


def funcion(f):
    lineas = documenta(f"{f['meaning']} Thread: {f['thread']}.", '    ')
    if f['parameters'] or f['returns'].get('meaning'):
        lineas.append('    ///')
    for p in f['parameters']:
        lineas += documenta(f"* `{p['name']}`: {p['meaning']}", '    ')
    if f['returns'].get('meaning'):
        lineas += documenta(f"* Returns: {f['returns']['meaning']}", '    ')
    return lineas + lista_de(f['parameters'], '    ', f"pub fn {f['name']}", devuelve(f) + ';')


def tabla(lista):
    """Names and addresses of all functions, for the check that each is bound."""
    lineas = ['', '/// Name and address of every function that is bound here.',
              'pub fn funciones() -> Vec<(&\'static str, *const c_void)> {', '    vec![']
    for f in lista['functions']:
        linea = f"        (\"{f['name']}\", {f['name']} as *const c_void),"
        if len(linea) > 120:
            lineas += ['        (', f"            \"{f['name']}\",", f"            {f['name']} as *const c_void,",
                       '        ),']
        else:
            lineas.append(linea)
    return lineas + ['    ]', '}']


def genera(lista):
    """Path from the root of the tree -> text of that file."""
    lineas = CABEZA.rstrip('\n').split('\n') + constantes(lista)
    for r in lista['records']:
        lineas += registro(r)
    for c in lista['callbacks']:
        lineas += callback(c)
    lineas += ['', f"#[link(name = \"{lista['library']['name']}\", kind = \"dylib\")]", 'extern "C" {']
    for i, f in enumerate(lista['functions']):
        lineas += ([''] if i else []) + funcion(f)
    lineas += ['}'] + tabla(lista)
    return {FICHERO: '\n'.join(lineas) + '\n'}
