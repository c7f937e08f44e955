use std::fmt;

/// Why a command did not end with OK. Whether the service is offered is asked before and, for the results 0 and 3,
/// after the command; that tells the first four apart.
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
pub enum Reason {
    /// Nobody offers the service; nothing was sent.
    NotOffered,
    /// Result 0, and the service counts as offered: the server answered 0, or it has a window and has died without
    /// ending its session.
    NoAnswer,
    /// Result 0 or 3, and nobody offers the service any more.
    Gone,
    /// Result 3, and the service is still offered.
    Refused,
    /// Result 2.
    Cancelled,
    /// Another result: the server's own.
    Other,
}

/// A command that did not end with OK.
#[derive(Clone, Debug, PartialEq, Eq)]
pub struct CommandError {
    pub service: String,
    pub command: u32,
    pub result: u32,
    /// As a monitor shows it; 0 without input.
    pub input_block: u32,
    pub reason: Reason,
}

#[derive(Clone, Debug, PartialEq, Eq)]
pub enum Error {
    /// A text that the library cannot carry: too long, a NUL inside, not in the code page.
    Text(String),
    /// Data that the library cannot carry.
    Data(String),
    /// The session is not open, is open already, or is full; or a handler would have to wait for itself.
    Session(String),
    /// The service has a server; see [`crate::claim`].
    Taken(String),
    /// It was not this client's turn in time; see [`crate::take_turn`].
    Turn(String),
    /// The system did not give what it was asked for; its error code.
    System(u32),
    Command(CommandError),
}

impl fmt::Display for Reason {
    fn fmt(&self, f: &mut fmt::Formatter) -> fmt::Result {
        f.write_str(match self {
            Reason::NotOffered => "nobody offers the service",
            Reason::NoAnswer => "no answer",
            Reason::Gone => "the server is gone",
            Reason::Refused => "the server refused it",
            Reason::Cancelled => "cancelled by the server",
            Reason::Other => "a result of the server's own",
        })
    }
}

impl fmt::Display for Error {
    fn fmt(&self, f: &mut fmt::Formatter) -> fmt::Result {
        match self {
            Error::Text(what) | Error::Data(what) | Error::Session(what) | Error::Turn(what) => f.write_str(what),
            Error::Taken(service) => write!(f, "{}: the service has a server", service),
            Error::System(code) => write!(f, "the system's error {}", code),
            Error::Command(e) => {
                write!(f, "command {} on {}: {} (result {})", e.command, e.service, e.reason, e.result)
            }
        }
    }
}

impl std::error::Error for Error {}
