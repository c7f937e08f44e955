use crate::texts::{to_ansi, to_wide};
use crate::Error;

/// A value of command data. A text that is not there is `None`, rather than an empty one.
#[derive(Clone, Debug, PartialEq)]
pub enum Value {
    U8(u8),
    U16(u16),
    U32(u32),
    F64(f64),
    Bytes(Vec<u8>),
    Ansi(Option<String>),
    Wide(Option<String>),
    Window(usize),
    AnsiList(Vec<String>),
    /// Wide texts, which do not come back to any reader: only read, and none is written.
    WideList,
}

/// The input or the output of a command: named values in an order, found by position from 0 or by name. It lives in
/// Rust's memory alone.
#[derive(Clone, Debug, Default)]
pub struct Data {
    pub(crate) values: Vec<(String, Value)>,
    /// At least what the values that were added take. Those that were read count nothing.
    pub(crate) size: u64,
}

/// Data is equal if its values are, in their order.
impl PartialEq for Data {
    fn eq(&self, other: &Data) -> bool {
        self.values == other.values
    }
}

pub(crate) const LONGEST_NAME: usize = 254;

impl Data {
    pub fn new() -> Data {
        Data::default()
    }

    pub fn len(&self) -> usize {
        self.values.len()
    }

    pub fn is_empty(&self) -> bool {
        self.values.is_empty()
    }

    /// Appends a value. Refuses what the library would cut or could not read back.
    pub fn add(&mut self, name: &str, value: Value) -> Result<(), Error> {
        to_ansi(name, LONGEST_NAME)?;
        let size = match &value {
            Value::WideList => return Err(Error::Data(format!("value {:?} would not come back", name))),
            Value::Bytes(bytes) => bytes.len(),
            Value::Ansi(Some(text)) => to_ansi(text, usize::MAX)?.len(),
            Value::Wide(Some(text)) => 2 * to_wide(text, usize::MAX)?.len(),
            Value::AnsiList(texts) => {
                let mut size = 0;
                for text in texts {
                    size += to_ansi(text, usize::MAX)?.len() + 8;
                }
                size
            }
            _ => 8,
        };
        let size = self.size + size as u64 + 600; // more than a name and the format's own fields take
        if size > u32::MAX as u64 {
            return Err(Error::Data(format!("value {:?} brings it past 4 GiB", name)));
        }
        self.size = size;
        self.values.push((name.to_string(), value));
        Ok(())
    }

    pub(crate) fn push_read(&mut self, name: String, value: Value) {
        self.values.push((name, value));
    }

    /// The value at a position.
    pub fn get(&self, pos: usize) -> Option<&Value> {
        self.values.get(pos).map(|(_, value)| value)
    }

    /// The name at a position.
    pub fn name(&self, pos: usize) -> Option<&str> {
        self.values.get(pos).map(|(name, _)| name.as_str())
    }

    /// The first value with a name.
    pub fn find(&self, name: &str) -> Option<&Value> {
        self.values.iter().find(|(n, _)| n == name).map(|(_, value)| value)
    }

    /// The number at a position, of 8, 16 or 32 bits. Another program wrote what came: `None` for a value of another
    /// type or none. So for all that follow.
    pub fn number(&self, pos: usize) -> Option<u32> {
        match self.get(pos)? {
            Value::U8(n) => Some(*n as u32),
            Value::U16(n) => Some(*n as u32),
            Value::U32(n) => Some(*n),
            _ => None,
        }
    }

    pub fn double(&self, pos: usize) -> Option<f64> {
        match self.get(pos)? {
            Value::F64(n) => Some(*n),
            _ => None,
        }
    }

    pub fn bytes(&self, pos: usize) -> Option<&[u8]> {
        match self.get(pos)? {
            Value::Bytes(bytes) => Some(bytes),
            _ => None,
        }
    }

    /// The text at a position, ANSI or wide.
    pub fn text(&self, pos: usize) -> Option<&str> {
        match self.get(pos)? {
            Value::Ansi(text) | Value::Wide(text) => text.as_deref(),
            _ => None,
        }
    }

    /// The ANSI texts at a position.
    pub fn texts(&self, pos: usize) -> Option<&[String]> {
        match self.get(pos)? {
            Value::AnsiList(texts) => Some(texts),
            _ => None,
        }
    }
}
