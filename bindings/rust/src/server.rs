use std::collections::HashMap;
use std::os::raw::{c_char, c_void};
use std::panic::{catch_unwind, AssertUnwindSafe};
use std::sync::{Arc, Condvar, Mutex, MutexGuard};

use crate::container::{self, Container};
use crate::raw::*;
use crate::system::GetCurrentThreadId;
use crate::texts::TextBuffers;
use crate::{Data, Error, Texts};

/// A command that came.
#[derive(Clone, Debug)]
pub struct Request {
    pub service: String,
    /// 100 and up.
    pub command: u32,
    /// Empty without input.
    pub input: Data,
    pub texts: Texts,
    /// The client's main window; 0: it has none.
    pub client_window: u64,
}

/// What a command gives. The default is an answer without data and with empty texts.
#[derive(Clone, Debug, Default)]
pub struct Answer {
    pub data: Data,
    pub texts: Texts,
    /// Of an answer that a client got: the ids of the two blocks as a monitor shows them; 0 = none.
    pub input_block: u32,
    pub output_block: u32,
}

/// What a handler gives in place of an answer: the result that the client gets. No text travels.
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
pub enum Refusal {
    /// Result 3.
    Refused,
    /// Result 2.
    Cancelled,
    /// A result of the server's own. 1 is an answer without data and with empty texts.
    Result(u32),
}

/// What the layer itself refuses in an answer, as result 3.
impl From<Error> for Refusal {
    fn from(_: Error) -> Refusal {
        Refusal::Refused
    }
}

pub(crate) type Handler = dyn Fn(&Request) -> Result<Answer, Refusal> + Send + Sync;

struct Offer {
    service: String,
    has_window: bool,
    handler: Box<Handler>,
}

#[derive(Default)]
struct Offers {
    of: HashMap<usize, Arc<Offer>>,
    last: usize,
    /// The handlers that are under way, each with its thread.
    working: Vec<(u32, Arc<Offer>)>,
}

static OFFERS: Mutex<Option<Offers>> = Mutex::new(None);
static DONE: Condvar = Condvar::new();

fn offers() -> MutexGuard<'static, Option<Offers>> {
    OFFERS.lock().unwrap_or_else(|e| e.into_inner())
}

/// Keeps a handler, under a number for `run_command`.
pub(crate) fn enter(service: &str, has_window: bool, handler: Box<Handler>) -> usize {
    let mut guard = offers();
    let all = guard.get_or_insert_with(Offers::default);
    all.last += 1;
    all.of.insert(all.last, Arc::new(Offer { service: service.to_string(), has_window, handler }));
    all.last
}

/// From now on each command is refused; returns once those under way have ended.
pub(crate) fn refuse_commands() {
    let mut guard = offers();
    let gone = guard.as_mut().map(|all| std::mem::take(&mut all.of));
    while guard.as_ref().map_or(false, |all| !all.working.is_empty()) {
        guard = DONE.wait(guard).unwrap_or_else(|e| e.into_inner());
    }
    drop(guard);
    drop(gone); // what the handlers own, without the lock
}

/// Is this the thread of that service's handler, in a session without a window?
pub(crate) fn would_wait_for_itself(service: &str) -> bool {
    let here = unsafe { GetCurrentThreadId() };
    let is_this = |offer: &Offer| !offer.has_window && offer.service == service;
    offers().as_ref().map_or(false, |all| all.working.iter().any(|(thread, offer)| *thread == here && is_this(offer)))
}

/// Says that a handler has ended, however it did.
struct Working;

impl Drop for Working {
    fn drop(&mut self) {
        if let Some(all) = offers().as_mut() {
            let here = unsafe { GetCurrentThreadId() };
            if let Some(last) = all.working.iter().rposition(|(thread, _)| *thread == here) {
                all.working.remove(last);
            }
        }
        DONE.notify_all();
    }
}

fn begin(id: usize) -> Option<(Working, Arc<Offer>)> {
    let mut guard = offers();
    let all = guard.as_mut()?;
    let offer = all.of.get(&id)?.clone();
    all.working.push((unsafe { GetCurrentThreadId() }, offer.clone()));
    Some((Working, offer))
}

/// What the library calls, on its own thread or on the window's. No panic leaves it.
pub(crate) unsafe extern "C" fn run_command(
    service: *const c_char,
    command: u32,
    context: *mut comando,
    id: *mut c_void,
) -> i32 {
    let run = AssertUnwindSafe(|| match begin(id as usize) {
        Some((_working, offer)) => match offer.run(service, command, context) {
            Ok(()) => ivrexa_resultado_OK,
            Err(Refusal::Refused) => ivrexa_resultado_ERROR,
            Err(Refusal::Cancelled) => ivrexa_resultado_CANCELADO,
            Err(Refusal::Result(number)) => number,
        },
        None => ivrexa_resultado_ERROR, // the session closes
    });
    let result = catch_unwind(run).unwrap_or_else(|payload| {
        std::mem::forget(payload); // dropping it might panic in turn
        ivrexa_resultado_ERROR
    });
    result as i32
}

impl Offer {
    unsafe fn run(&self, service: *const c_char, command: u32, context: *mut comando) -> Result<(), Refusal> {
        let request = self.request(service, command, &*context).ok_or(Refusal::Refused)?;
        let answer = match (self.handler)(&request) {
            // The client takes texts and data: not those of an earlier command.
            Err(Refusal::Result(number)) if number == ivrexa_resultado_OK => Answer::default(),
            other => other?,
        };
        give(&answer, service, command, &mut *context)
    }

    unsafe fn request(&self, service: *const c_char, command: u32, context: &comando) -> Option<Request> {
        let mut came = TextBuffers::new();
        let (first, second, third) = (came.first.as_mut_ptr(), came.second.as_mut_ptr(), came.third.as_mut_ptr());
        let none = std::ptr::null_mut();
        if ivrexa_get_datos_entrada_comando(service, command, none, first, second, third) != CIERTO {
            return None;
        }
        let input = if context.datos_entrada.is_null() { Data::new() } else { container::read(context.datos_entrada) };
        let service = self.service.clone();
        Some(Request { service, command, input, texts: came.texts(), client_window: context.hwnd_cliente })
    }
}

/// Answers the command: always with texts, so that none of an earlier command stays.
unsafe fn give(answer: &Answer, service: *const c_char, command: u32, context: &mut comando) -> Result<(), Refusal> {
    let wide = answer.texts.wide()?;
    let name = std::ffi::CStr::from_ptr(service).to_bytes_with_nul();
    let mut block = 0;
    if let Some((container, id)) = Container::store(&answer.data, name, false)? {
        context.datos_salida = container.release(); // the library's from here on
        block = id;
    }
    let (first, second, third) = (wide[0].as_ptr(), wide[1].as_ptr(), wide[2].as_ptr());
    match ivrexa_set_datos_salida_comando(service, command, block, first, second, third) {
        CIERTO => Ok(()),
        _ => Err(Refusal::Refused),
    }
}
