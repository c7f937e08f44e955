//! The library's containers of command data.

// Patterns below are constants of C, and are called so.
#![allow(non_upper_case_globals)]

use std::os::raw::{c_char, c_void};
use std::ptr;

use crate::data::LONGEST_NAME;
use crate::raw::*;
use crate::texts::{ansi_at, to_ansi, to_wide, wide_at};
use crate::{Data, Error, Value};

/// A container that is destroyed with its owner.
pub(crate) struct Container(*mut comdat);

impl Container {
    /// Writes the data and stores it in a shared block, whose id comes too and which lives as long as the container.
    /// No values make no block.
    pub fn store(data: &Data, service: &[u8], is_input: bool) -> Result<Option<(Container, u32)>, Error> {
        if data.is_empty() {
            return Ok(None);
        }
        let name = service.as_ptr() as *const c_char;
        let create = if is_input { ivrexa_crea_datos_comando_entrada } else { ivrexa_crea_datos_comando_salida };
        let container = Container(unsafe { create(name) });
        for (name, value) in &data.values {
            container.write(&to_ansi(name, LONGEST_NAME)?, value)?; // one that was read may be longer
        }
        match unsafe { ivrexa_guarda_datos(container.0) } {
            0 => Err(Error::Data("there is no room for the data, or nobody offers the service".to_string())),
            block => Ok(Some((container, block))),
        }
    }

    fn write(&self, name: &[u8], value: &Value) -> Result<(), Error> {
        let (c, name) = (self.0, name.as_ptr() as *const c_char);
        unsafe {
            match value {
                Value::U8(n) => ivrexa_graba_byte(c, name, *n),
                Value::U16(n) => ivrexa_graba_ushort(c, name, *n),
                Value::U32(n) => ivrexa_graba_ulong(c, name, *n),
                Value::F64(n) => ivrexa_graba_double(c, name, *n),
                Value::Window(hwnd) => ivrexa_graba_hwnd(c, name, *hwnd as ivrexa_hwnd),
                Value::Bytes(bytes) => {
                    ivrexa_graba_buffer(c, name, bytes.as_ptr() as *const c_void, bytes.len() as u32)
                }
                Value::Ansi(None) => ivrexa_graba_cadena_ansi(c, name, ptr::null()),
                Value::Ansi(Some(text)) => {
                    ivrexa_graba_cadena_ansi(c, name, to_ansi(text, usize::MAX)?.as_ptr() as *const c_char)
                }
                Value::Wide(None) => ivrexa_graba_cadena_unicode(c, name, ptr::null()),
                Value::Wide(Some(text)) => ivrexa_graba_cadena_unicode(c, name, to_wide(text, usize::MAX)?.as_ptr()),
                Value::AnsiList(texts) => {
                    let texts = texts.iter().map(|t| to_ansi(t, usize::MAX)).collect::<Result<Vec<_>, _>>()?;
                    let pointers: Vec<_> = texts.iter().map(|t| t.as_ptr() as *const c_char).collect();
                    ivrexa_graba_arr_cadenas_ansi(c, name, pointers.as_ptr(), pointers.len() as u32)
                }
                Value::WideList => return Err(Error::Data("a value that was read and cannot be written".to_string())),
            }
        }
        Ok(())
    }

    /// Opens the output of a command.
    pub fn open_output(service: &[u8], block: u32) -> Option<Container> {
        let container = unsafe { ivrexa_lee_datos(service.as_ptr() as *const c_char, block, FALSO) };
        if container.is_null() {
            None
        } else {
            Some(Container(container))
        }
    }

    pub fn read(&self) -> Data {
        unsafe { read(self.0) }
    }

    /// Gives it away.
    pub fn release(self) -> *mut comdat {
        let container = self.0;
        std::mem::forget(self);
        container
    }
}

impl Drop for Container {
    fn drop(&mut self) {
        unsafe { ivrexa_destruye_datos_comando(self.0) }
    }
}

/// Copies all values, once and in the order written: so the library never compares a number with the place of another
/// value, and makes each array once. The count is the writer's word, and so is each type: the first that is none ends
/// it.
pub(crate) unsafe fn read(container: *mut comdat) -> Data {
    let mut data = Data::new();
    for pos in 0..ivrexa_numero_valores(container) {
        match read_value(container, pos) {
            Some(value) => data.push_read(ansi_at(ivrexa_nombre_valor(container, pos)), value),
            None => break,
        }
    }
    data
}

unsafe fn read_value(c: *mut comdat, pos: u32) -> Option<Value> {
    Some(match ivrexa_tipoDato(c, pos) {
        ivrexa_tipoDato_byte => Value::U8(ivrexa_dame_byte(c, pos)),
        ivrexa_tipoDato_ushort => Value::U16(ivrexa_dame_ushort(c, pos)),
        ivrexa_tipoDato_ulong => Value::U32(ivrexa_dame_ulong(c, pos)),
        ivrexa_tipoDato_double => Value::F64(ivrexa_dame_double(c, pos)),
        ivrexa_tipoDato_hwnd => Value::Window(ivrexa_dame_hwnd(c, pos) as usize),
        ivrexa_tipoDato_buffer => Value::Bytes(read_bytes(c, pos)),
        ivrexa_tipoDato_cadena_ansi => {
            let text = ivrexa_dame_cadena_ansi(c, pos);
            Value::Ansi(if text.is_null() { None } else { Some(ansi_at(text)) })
        }
        ivrexa_tipoDato_cadena_unicode => {
            let text = ivrexa_dame_cadena_unicode(c, pos);
            Value::Wide(if text.is_null() { None } else { Some(wide_at(text)) })
        }
        ivrexa_tipoDato_arr_cadenas_ansi => {
            let mut num = 0;
            let texts = ivrexa_dame_arr_cadenas_ansi(c, pos, &mut num);
            Value::AnsiList(read_list(texts, num))
        }
        ivrexa_tipoDato_arr_cadenas_unicode => Value::WideList, // what the library gives is nothing that was written
        _ => return None,
    })
}

unsafe fn read_bytes(c: *mut comdat, pos: u32) -> Vec<u8> {
    let mut size = 0;
    let first = ivrexa_dame_buffer(c, pos, &mut size) as *const u8;
    if first.is_null() {
        return Vec::new();
    }
    std::slice::from_raw_parts(first, size as usize).to_vec()
}

/// A text that the writer put outside the content is none: "".
unsafe fn read_list(texts: *const *const c_char, num: u32) -> Vec<String> {
    if texts.is_null() {
        return Vec::new();
    }
    let copy = |text: *const c_char| if text.is_null() { String::new() } else { ansi_at(text) };
    (0..num as usize).map(|i| copy(ptr::read_unaligned(texts.add(i)))).collect()
}
