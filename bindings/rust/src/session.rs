use std::os::raw::c_char;
use std::sync::atomic::{AtomicBool, AtomicUsize, Ordering};
use std::sync::Mutex;

use crate::raw::*;
use crate::server;
use crate::texts::{from_ansi, to_ansi};
use crate::window::Window;
use crate::{Client, Error};

static IS_OPEN: AtomicBool = AtomicBool::new(false);

/// Services that a program offers, and that it uses.
const MOST: usize = 16;

/// This program's registration; it ends with its owner, after the handlers that are under way. A process has one at a
/// time. Never drop it in a handler.
pub struct Session {
    path: Vec<u8>,
    window: Option<Window>,
    turn: Mutex<()>,
    served: AtomicUsize,
    used: AtomicUsize,
}

impl Session {
    /// Begins a session without a window. `path` names this program in the registry. Its servers look for commands in
    /// rounds of 100 ms, on threads of the library.
    pub fn open(path: &str) -> Result<Session, Error> {
        Session::begin(path, false)
    }

    /// Begins a session with a window that is never shown, on a thread of its own. Commands reach its servers through
    /// that window, which is the quick road, and run on its thread, one at a time.
    pub fn open_window(path: &str) -> Result<Session, Error> {
        Session::begin(path, true)
    }

    fn begin(path: &str, with_window: bool) -> Result<Session, Error> {
        let path = to_ansi(path, 255)?;
        if path.len() == 1 {
            return Err(Error::Text("a path of nothing".to_string()));
        }
        if IS_OPEN.swap(true, Ordering::SeqCst) {
            return Err(Error::Session("this process has a session open".to_string()));
        }
        let window = if with_window { Window::new().map(Some) } else { Ok(None) };
        let window = window.map_err(|e| {
            IS_OPEN.store(false, Ordering::SeqCst);
            e
        })?;
        let turn = Mutex::new(());
        Ok(Session { path, window, turn, served: AtomicUsize::new(0), used: AtomicUsize::new(0) })
    }

    /// Runs a call that belongs to the window's thread there, or here if there is none; no two at a time.
    fn run(&self, call: impl FnOnce() + Send) {
        match &self.window {
            Some(window) => window.run(call),
            None => {
                let _turn = self.turn.lock().unwrap_or_else(|e| e.into_inner());
                call()
            }
        }
    }

    fn hwnd(&self) -> usize {
        self.window.as_ref().map_or(0, |w| w.hwnd())
    }

    /// Registers this program as a client of a service, which need not be offered yet.
    pub fn client(&self, service: &str) -> Result<Client<'_>, Error> {
        let name = service_name(service)?;
        count(&self.used, "it uses 16 services already")?;
        self.run(|| unsafe {
            let (path, name) = (self.path.as_ptr() as *const c_char, name.as_ptr() as *const c_char);
            ivrexa_registra_cliente_de_servicio(path, self.hwnd() as ivrexa_hwnd, name)
        });
        Ok(Client::new(self, service, name))
    }

    /// Offers a service, with a version of yours. `publish` makes it known. An error of the handler is what the client
    /// gets as its result; a panic is result 3.
    ///
    /// The handler runs on the window's thread, or on a thread of the library's without one. Commands on other services
    /// may be run from it, but none on a service that has one under way, such as this one. In a session without a
    /// window it must not wait for a thread that runs commands on its own service or ends it.
    pub fn serve<H>(&self, service: &str, version: u16, handler: H) -> Result<(), Error>
    where
        H: Fn(&server::Request) -> Result<server::Answer, server::Refusal> + Send + Sync + 'static,
    {
        let name = service_name(service)?;
        count(&self.served, "it serves 16 services already")?;
        let id = server::enter(service, self.window.is_some(), Box::new(handler));
        self.run(|| unsafe {
            let (path, name) = (self.path.as_ptr() as *const c_char, name.as_ptr() as *const c_char);
            let hwnd = self.hwnd() as ivrexa_hwnd;
            ivrexa_registra_servidor(path, hwnd, name, version, id as *mut _, Some(server::run_command))
        });
        Ok(())
    }

    /// Makes the services known and begins to receive commands.
    pub fn publish(&self) {
        self.run(|| unsafe { ivrexa_terminado_registro() })
    }

    /// Returns when a client has asked the server to end: with a window once, without one for each service. With a
    /// window the session's services go on until the session is dropped.
    pub fn wait(&self) {
        match &self.window {
            Some(window) => window.wait(),
            None => unsafe { ivrexa_espera_comando_terminar_servidor() },
        }
    }
}

impl Drop for Session {
    fn drop(&mut self) {
        server::refuse_commands();
        self.run(|| unsafe { ivrexa_cierra_sesion() });
        self.window = None;
        IS_OPEN.store(false, Ordering::SeqCst);
    }
}

fn count(counter: &AtomicUsize, full: &str) -> Result<(), Error> {
    match counter.fetch_add(1, Ordering::SeqCst) < MOST {
        true => Ok(()),
        false => Err(Error::Session(full.to_string())),
    }
}

/// The version of a service, if it is offered. Each question for one that is leaves a handle open.
pub fn offered(service: &str) -> Result<Option<u16>, Error> {
    let (name, mut version) = (service_name(service)?, 0);
    let found = unsafe { ivrexa_hay_servicio_registrado(name.as_ptr() as *const c_char, &mut version) };
    Ok(if found == CIERTO { Some(version) } else { None })
}

/// The first service of the desktop's table whose name begins so, and its version.
pub fn first_offered(prefix: &str) -> Result<Option<(String, u16)>, Error> {
    let (name, mut found, mut version) = (to_ansi(prefix, 63)?, [0u8; 64], 0);
    let is_there = unsafe {
        let (prefix, room) = (name.as_ptr() as *const c_char, found.as_mut_ptr() as *mut c_char);
        ivrexa_hay_servicio_registrado_empiece_por(prefix, room, &mut version)
    };
    let len = found.iter().position(|&b| b == 0).unwrap_or(found.len());
    Ok(if is_there == CIERTO { Some((from_ansi(&found[..len]), version)) } else { None })
}

/// Asks the server of a service to end. A server without a window hears only its clients, and has ended when this
/// returns: hence its own handler gets an [`Error::Session`], since it would wait for itself. With a window a handler
/// may end its own service, behind the command that it carries out.
pub fn end_server(service: &str) -> Result<(), Error> {
    let name = service_name(service)?;
    if server::would_wait_for_itself(service) {
        return Err(Error::Session(format!("the handler of {} cannot end it", service)));
    }
    unsafe { ivrexa_terminar_servidor(name.as_ptr() as *const c_char) };
    Ok(())
}

fn service_name(service: &str) -> Result<Vec<u8>, Error> {
    let name = to_ansi(service, 63)?;
    if name.len() == 1 {
        return Err(Error::Text("a service without a name".to_string()));
    }
    Ok(name)
}
