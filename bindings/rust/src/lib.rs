//! Rust programs that offer services on a Windows desktop and run commands on those of others. It stands on
//! ivrexa.dll, and needs nothing but the standard library.
//!
//! ```no_run
//! # fn main() -> Result<(), ivrexa::Error> {
//! let session = ivrexa::Session::open("client.exe")?;
//! let client = session.client("Calc")?;
//! let mut input = ivrexa::Data::new();
//! input.add("a", ivrexa::Value::U32(40))?;
//! let answer = client.execute(100, &input, &ivrexa::Texts::default())?;
//! # Ok(())
//! # }
//! ```
//!
//! Texts are UTF-8 here. Names of services and values, and ANSI texts, are turned into the system's ANSI code page, all
//! others into UTF-16; what does not fit is refused, never cut.

#[cfg(not(all(windows, target_pointer_width = "64")))]
compile_error!("ivrexa is a library for 64-bit Windows");

mod client;
mod container;
mod data;
mod error;
pub mod raw;
mod server;
mod session;
mod system;
mod texts;
mod turn;
mod window;

#[cfg(test)]
mod prueba;

pub use client::Client;
pub use data::{Data, Value};
pub use error::{CommandError, Error, Reason};
pub use server::{Answer, Refusal, Request};
pub use session::{end_server, first_offered, offered, Session};
pub use texts::Texts;
pub use turn::{claim, take_turn, Turn};
