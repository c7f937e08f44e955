// Patterns below are constants of C, and are called so.
#![allow(non_upper_case_globals)]

use std::marker::PhantomData;
use std::os::raw::c_char;
use std::sync::Mutex;
use std::thread::sleep;
use std::time::{Duration, Instant};

use crate::container::Container;
use crate::raw::*;
use crate::texts::TextBuffers;
use crate::{Answer, CommandError, Data, Error, Reason, Session, Texts};

/// How long a program's heartbeat takes to begin: before, a server without a window may take a client for dead and end.
const SETTLE: Duration = Duration::from_millis(2500);

/// Runs commands on one service; lives as long as the session.
pub struct Client<'a> {
    service: String,
    name: Vec<u8>,
    ready_at: Instant,
    turn: Mutex<()>,
    session: PhantomData<&'a Session>,
}

impl<'a> Client<'a> {
    pub(crate) fn new(_: &'a Session, service: &str, name: Vec<u8>) -> Client<'a> {
        let ready_at = Instant::now() + SETTLE;
        Client { service: service.to_string(), name, ready_at, turn: Mutex::new(()), session: PhantomData }
    }

    fn name(&self) -> *const c_char {
        self.name.as_ptr() as *const c_char
    }

    /// Runs a command, 100 and up, and waits for its answer: ids below are the library's own, and an [`Error::Data`]
    /// here. The first command waits until 2.5 s after the registration. One command of a client goes after the other;
    /// those of other programs are another matter, see [`crate::take_turn`]. No command can be taken back. One that
    /// does not end with OK is an [`Error::Command`].
    pub fn execute(&self, command: u32, input: &Data, texts: &Texts) -> Result<Answer, Error> {
        if command < ivrexa_comando_PRIMERO_PROPIO {
            // 1 would end the server, the others answer with an earlier command's texts.
            return Err(Error::Data(format!("command {} is the library's: yours are 100 and up", command)));
        }
        let wide = texts.wide()?;
        let _turn = self.turn.lock().unwrap_or_else(|e| e.into_inner());
        sleep(self.ready_at.saturating_duration_since(Instant::now()));
        if !self.offered() {
            return Err(self.error(command, 0, 0, Reason::NotOffered));
        }
        let stored = Container::store(input, &self.name, true)?; // until the end: only then has the server read it
        let block = stored.as_ref().map_or(0, |(_, block)| *block);
        let (mut output, mut came) = (0, TextBuffers::new());
        let result = unsafe {
            ivrexa_ejecuta_comando(
                self.name(),
                command,
                0,
                block,
                wide[0].as_ptr(),
                wide[1].as_ptr(),
                wide[2].as_ptr(),
                &mut output,
                came.first.as_mut_ptr(),
                came.second.as_mut_ptr(),
                came.third.as_mut_ptr(),
            )
        };
        if result != ivrexa_resultado_OK {
            return Err(self.error(command, result, block, self.reason(result)));
        }
        let data = self.read(output)?;
        Ok(Answer { data, texts: came.texts(), input_block: block, output_block: output })
    }

    fn read(&self, block: u32) -> Result<Data, Error> {
        if block == 0 {
            return Ok(Data::new());
        }
        let gone = || Error::Data("the server's output is not there any more".to_string());
        Ok(Container::open_output(&self.name, block).ok_or_else(gone)?.read())
    }

    fn offered(&self) -> bool {
        unsafe { ivrexa_hay_servicio_registrado(self.name(), std::ptr::null_mut()) == CIERTO }
    }

    fn reason(&self, result: u32) -> Reason {
        match result {
            ivrexa_resultado_CANCELADO => Reason::Cancelled,
            ivrexa_resultado_NINGUNO | ivrexa_resultado_ERROR if !self.offered() => Reason::Gone,
            ivrexa_resultado_NINGUNO => Reason::NoAnswer,
            ivrexa_resultado_ERROR => Reason::Refused,
            _ => Reason::Other,
        }
    }

    fn error(&self, command: u32, result: u32, input_block: u32, reason: Reason) -> Error {
        Error::Command(CommandError { service: self.service.clone(), command, result, input_block, reason })
    }
}
