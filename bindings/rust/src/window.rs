//! A window that is never shown, with the thread it belongs to.

use std::sync::atomic::{AtomicBool, Ordering};
use std::sync::mpsc::{channel, sync_channel, Receiver, RecvTimeoutError, Sender};
use std::sync::{Condvar, Mutex};
use std::thread::{spawn, JoinHandle};
use std::time::Duration;
use std::{mem, ptr, sync::Arc};

use crate::system::*;
use crate::Error;

type Call = Box<dyn FnOnce() + Send>;

pub(crate) struct Window {
    hwnd: usize,
    thread: u32,
    calls: Mutex<Sender<Call>>,
    quit: Arc<Quit>,
    handle: Option<JoinHandle<()>>,
}

#[derive(Default)]
struct Quit {
    /// The loop got WM_QUIT: the server was asked to end.
    came: Mutex<bool>,
    signal: Condvar,
    closing: AtomicBool,
}

impl Window {
    pub fn new() -> Result<Window, Error> {
        let (calls, received) = channel();
        let (made, came) = sync_channel(1);
        let quit = Arc::new(Quit::default());
        let loops = quit.clone();
        let handle = spawn(move || unsafe {
            let class: Vec<u16> = "STATIC\0".encode_utf16().collect();
            let none = ptr::null_mut();
            let hwnd = CreateWindowExW(0, class.as_ptr(), [0].as_ptr(), WS_POPUP, 0, 0, 1, 1, none, none, none, none);
            let mut message = Message::default();
            PeekMessageW(&mut message, none, 0, 0, 0); // the thread has a queue of messages from now on
            let _ = made.send((hwnd as usize, GetCurrentThreadId(), GetLastError()));
            if !hwnd.is_null() {
                serve(&received, &loops);
                DestroyWindow(hwnd);
            }
        });
        let (hwnd, thread, error) = came.recv().map_err(|_| Error::System(0))?;
        if hwnd == 0 {
            return Err(Error::System(error));
        }
        Ok(Window { hwnd, thread, calls: Mutex::new(calls), quit, handle: Some(handle) })
    }

    pub fn hwnd(&self) -> usize {
        self.hwnd
    }

    /// Runs a call on the window's thread and waits for its end.
    pub fn run<'a>(&self, call: impl FnOnce() + Send + 'a) {
        if unsafe { GetCurrentThreadId() } == self.thread {
            return call(); // in a handler
        }
        let (done, ended) = sync_channel::<()>(0);
        let call: Box<dyn FnOnce() + Send + 'a> = Box::new(move || {
            let _done = done; // dropped at the call's end, however it ends
            call();
        });
        // What the call borrows outlives it: this function returns only once the call has ended.
        let call: Call = unsafe { mem::transmute(call) };
        let _ = self.calls.lock().unwrap_or_else(|e| e.into_inner()).send(call);
        // The box of a report loses messages of the thread, hence the repetition.
        loop {
            unsafe { PostThreadMessageW(self.thread, WM_APP, 0, 0) };
            if ended.recv_timeout(Duration::from_millis(100)) != Err(RecvTimeoutError::Timeout) {
                return;
            }
        }
    }

    pub fn wait(&self) {
        let mut came = self.quit.came.lock().unwrap_or_else(|e| e.into_inner());
        while !*came {
            came = self.quit.signal.wait(came).unwrap_or_else(|e| e.into_inner());
        }
    }
}

impl Drop for Window {
    fn drop(&mut self) {
        self.run(|| self.quit.closing.store(true, Ordering::SeqCst));
        if let Some(handle) = self.handle.take() {
            let _ = handle.join();
        }
    }
}

/// Dispatches, and carries out calls, until the window closes: WM_QUIT is for one service, and clients of others may
/// wait for an answer.
unsafe fn serve(calls: &Receiver<Call>, quit: &Quit) {
    let mut message = Message::default();
    while !quit.closing.load(Ordering::SeqCst) {
        if GetMessageW(&mut message, ptr::null_mut(), 0, 0) <= 0 {
            *quit.came.lock().unwrap_or_else(|e| e.into_inner()) = true;
            quit.signal.notify_all();
        } else if message.hwnd == 0 && message.id == WM_APP {
            while let Ok(call) = calls.try_recv() {
                call();
            }
        } else {
            DispatchMessageW(&message);
        }
    }
}
