use std::os::raw::c_void;
use std::ptr;
use std::time::Duration;

use crate::system::*;
use crate::texts::to_wide;
use crate::Error;

/// Makes this process the one server of a service among those that ask so, as the programs of examples/ do: by a mutex
/// with the service's name, held until the process ends. [`Error::Taken`] if another has it.
pub fn claim(service: &str) -> Result<(), Error> {
    let (mutex, is_new) = mutex(service)?;
    if is_new {
        return Ok(());
    }
    unsafe { CloseHandle(mutex) };
    Err(Error::Taken(service.to_string()))
}

/// A turn among the clients of a service; it ends with its owner, on the thread that took it.
pub struct Turn {
    mutex: *mut c_void,
}

/// Waits until it is this thread's turn among the clients of a service that ask so, as those of examples/ do. Two
/// commands on one service at a time would disturb each other.
pub fn take_turn(service: &str, at_most: Duration) -> Result<Turn, Error> {
    let (mutex, _) = mutex(&format!("turn of {}", service))?;
    let milliseconds = u32::try_from(at_most.as_millis()).unwrap_or(u32::MAX);
    if unsafe { WaitForSingleObject(mutex, milliseconds) } > WAIT_ABANDONED {
        unsafe { CloseHandle(mutex) };
        return Err(Error::Turn(format!("no turn for {} within {:?}", service, at_most)));
    }
    Ok(Turn { mutex })
}

impl Drop for Turn {
    fn drop(&mut self) {
        unsafe {
            ReleaseMutex(self.mutex);
            CloseHandle(self.mutex);
        }
    }
}

fn mutex(name: &str) -> Result<(*mut c_void, bool), Error> {
    let name = to_wide(name, 255)?;
    unsafe {
        let mutex = CreateMutexW(ptr::null(), 0, name.as_ptr());
        let error = GetLastError();
        if mutex.is_null() {
            return Err(Error::System(error));
        }
        Ok((mutex, error != ERROR_ALREADY_EXISTS))
    }
}
