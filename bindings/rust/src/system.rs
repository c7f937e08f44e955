//! What is needed of the system itself.

use std::os::raw::{c_char, c_void};

pub const CP_UTF8: u32 = 65001;
pub const WC_NO_BEST_FIT_CHARS: u32 = 0x400;
pub const ERROR_ALREADY_EXISTS: u32 = 183;
pub const WAIT_ABANDONED: u32 = 0x80;
pub const WS_POPUP: u32 = 0x8000_0000;
pub const WM_APP: u32 = 0x8000;

#[repr(C)]
#[derive(Default)]
pub struct Message {
    pub hwnd: usize,
    pub id: u32,
    pub wparam: usize,
    pub lparam: isize,
    pub time: u32,
    pub point: [i32; 2],
    pub private: u32,
}

#[link(name = "kernel32")]
extern "system" {
    pub fn GetACP() -> u32;
    pub fn WideCharToMultiByte(
        page: u32,
        flags: u32,
        wide: *const u16,
        wide_len: i32,
        narrow: *mut c_char,
        narrow_len: i32,
        default: *const c_char,
        used_default: *mut i32,
    ) -> i32;
    pub fn MultiByteToWideChar(
        page: u32,
        flags: u32,
        narrow: *const c_char,
        narrow_len: i32,
        wide: *mut u16,
        wide_len: i32,
    ) -> i32;
    pub fn CreateMutexW(security: *const c_void, owned: i32, name: *const u16) -> *mut c_void;
    pub fn ReleaseMutex(mutex: *mut c_void) -> i32;
    pub fn WaitForSingleObject(object: *mut c_void, milliseconds: u32) -> u32;
    pub fn CloseHandle(object: *mut c_void) -> i32;
    pub fn GetLastError() -> u32;
    pub fn GetCurrentThreadId() -> u32;
}

#[link(name = "user32")]
extern "system" {
    pub fn CreateWindowExW(
        style_ex: u32,
        class: *const u16,
        title: *const u16,
        style: u32,
        x: i32,
        y: i32,
        width: i32,
        height: i32,
        parent: *mut c_void,
        menu: *mut c_void,
        instance: *mut c_void,
        param: *mut c_void,
    ) -> *mut c_void;
    pub fn DestroyWindow(hwnd: *mut c_void) -> i32;
    pub fn GetMessageW(message: *mut Message, hwnd: *mut c_void, first: u32, last: u32) -> i32;
    pub fn PeekMessageW(message: *mut Message, hwnd: *mut c_void, first: u32, last: u32, remove: u32) -> i32;
    pub fn DispatchMessageW(message: *const Message) -> isize;
    pub fn PostThreadMessageW(thread: u32, message: u32, wparam: usize, lparam: isize) -> i32;
}
