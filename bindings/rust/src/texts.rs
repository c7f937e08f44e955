use std::os::raw::c_char;
use std::ptr;

use crate::system::*;
use crate::Error;

/// The three texts that go with a command and come back with its answer. The first has at most 63 characters, the
/// others 255, counted in UTF-16.
#[derive(Clone, Debug, Default, PartialEq, Eq)]
pub struct Texts(pub [String; 3]);

impl Texts {
    pub fn new(first: &str, second: &str, third: &str) -> Texts {
        Texts([first.to_string(), second.to_string(), third.to_string()])
    }

    pub(crate) fn wide(&self) -> Result<[Vec<u16>; 3], Error> {
        Ok([to_wide(&self.0[0], 63)?, to_wide(&self.0[1], 255)?, to_wide(&self.0[2], 255)?])
    }
}

/// Where the library writes three texts.
pub(crate) struct TextBuffers {
    pub first: [u16; 64],
    pub second: [u16; 256],
    pub third: [u16; 256],
}

impl TextBuffers {
    pub fn new() -> TextBuffers {
        TextBuffers { first: [0; 64], second: [0; 256], third: [0; 256] }
    }

    pub fn texts(&self) -> Texts {
        Texts([from_wide(&self.first), from_wide(&self.second), from_wide(&self.third)])
    }
}

/// UTF-16 and its NUL. A NUL inside is refused, and so is a text of more than `longest` units.
pub(crate) fn to_wide(text: &str, longest: usize) -> Result<Vec<u16>, Error> {
    let mut wide: Vec<u16> = text.encode_utf16().collect();
    if wide.contains(&0) {
        return Err(Error::Text(format!("{:?} has a NUL inside", text)));
    }
    if wide.len() > longest {
        return Err(Error::Text(format!("{:?} has {} characters, and {} is the most", text, wide.len(), longest)));
    }
    wide.push(0);
    Ok(wide)
}

/// The units before the first NUL.
pub(crate) fn from_wide(wide: &[u16]) -> String {
    let len = wide.iter().position(|&unit| unit == 0).unwrap_or(wide.len());
    String::from_utf16_lossy(&wide[..len])
}

/// The system's ANSI code page and a NUL. A character that the code page lacks is refused.
pub(crate) fn to_ansi(text: &str, longest: usize) -> Result<Vec<u8>, Error> {
    let wide = to_wide(text, usize::MAX)?;
    let page = unsafe { GetACP() };
    let mut ansi = if page == CP_UTF8 { text.as_bytes().to_vec() } else { convert(page, text, &wide)? };
    if ansi.len() > longest {
        return Err(Error::Text(format!("{:?} has {} ANSI characters, and {} is the most", text, ansi.len(), longest)));
    }
    ansi.push(0);
    Ok(ansi)
}

fn convert(page: u32, text: &str, wide: &[u16]) -> Result<Vec<u8>, Error> {
    let units = wide.len() - 1;
    if units == 0 {
        return Ok(Vec::new());
    }
    let room = i32::try_from(2 * units).map_err(|_| Error::Text("a text past 2 GiB".to_string()))?;
    let mut ansi = vec![0u8; room as usize]; // no code page of the system's takes more than two
    let mut lost = 0;
    let len = unsafe {
        WideCharToMultiByte(
            page,
            WC_NO_BEST_FIT_CHARS,
            wide.as_ptr(),
            units as i32,
            ansi.as_mut_ptr() as *mut c_char,
            room,
            ptr::null(),
            &mut lost,
        )
    };
    if lost != 0 || len <= 0 {
        return Err(Error::Text(format!("{:?} is not all in the ANSI code page {}", text, page)));
    }
    ansi.truncate(len as usize);
    Ok(ansi)
}

/// A text in the ANSI code page, without its NUL.
pub(crate) fn from_ansi(ansi: &[u8]) -> String {
    if ansi.is_empty() {
        return String::new();
    }
    let mut wide = vec![0u16; ansi.len()]; // never more characters than bytes
    let len = unsafe {
        let narrow = ansi.as_ptr() as *const c_char;
        MultiByteToWideChar(GetACP(), 0, narrow, ansi.len() as i32, wide.as_mut_ptr(), wide.len() as i32)
    };
    String::from_utf16_lossy(&wide[..len.max(0) as usize])
}

/// Copies a text of the library's.
pub(crate) unsafe fn ansi_at(text: *const c_char) -> String {
    from_ansi(std::ffi::CStr::from_ptr(text).to_bytes())
}

/// Copies a wide text of the library's, which may lie at an odd address.
pub(crate) unsafe fn wide_at(text: *const u16) -> String {
    let text = text as *const [u8; 2];
    let mut units = Vec::new();
    loop {
        let unit = u16::from_le_bytes(*text.add(units.len()));
        if unit == 0 {
            return String::from_utf16_lossy(&units);
        }
        units.push(unit);
    }
}
