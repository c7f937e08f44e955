package ivrexa

import (
	"errors"
	"runtime"
	"sync"
	"syscall"
	"time"
	"unsafe"

	"ivrexa/raw"
)

var (
	user32               = syscall.NewLazyDLL("user32.dll")
	procCreateWindowExW  = user32.NewProc("CreateWindowExW")
	procDestroyWindow    = user32.NewProc("DestroyWindow")
	procGetMessageW      = user32.NewProc("GetMessageW")
	procDispatchMessageW = user32.NewProc("DispatchMessageW")
	procPostThreadMsgW   = user32.NewProc("PostThreadMessageW")
	procPeekMessageW     = user32.NewProc("PeekMessageW")
	procGetThreadID      = kernel32.NewProc("GetCurrentThreadId")
)

const (
	popup   = 0x80000000 // WS_POPUP
	doCalls = 0x8000     // WM_APP, to the thread: there are calls to do
)

type message struct {
	hwnd           uintptr
	id             uint32
	wparam, lparam uintptr
	time           uint32
	x, y           int32
	_              uint32
}

// window is a window that is never shown, with the thread it belongs to.
type window struct {
	hwnd    raw.Hwnd
	thread  uintptr
	calls   chan func()
	quit    chan struct{} // closed when the loop got WM_QUIT: the server was asked to end
	told    sync.Once     // quit is closed
	closing bool          // of the window's thread alone
}

func newWindow() (*window, error) {
	w := &window{calls: make(chan func(), 1), quit: make(chan struct{})}
	made := make(chan error)
	go w.run(made)
	return w, <-made
}

// run keeps its goroutine on one thread, since a window's messages come to the thread that made it. Nobody else gets
// that thread afterwards, for it is never unlocked: a second WM_QUIT may still be in its queue.
func (w *window) run(made chan<- error) {
	runtime.LockOSThread()
	class, title := [...]uint16{'S', 'T', 'A', 'T', 'I', 'C', 0}, [...]uint16{0}
	hwnd, _, err := procCreateWindowExW.Call(0, uintptr(unsafe.Pointer(&class[0])), uintptr(unsafe.Pointer(&title[0])),
		popup, 0, 0, 1, 1, 0, 0, 0, 0)
	if hwnd == 0 {
		made <- errors.New("no window: " + err.Error())
		return
	}
	w.hwnd = raw.Hwnd(hwnd)
	w.thread, _, _ = procGetThreadID.Call()
	var msg message
	procPeekMessageW.Call(uintptr(unsafe.Pointer(&msg)), 0, 0, 0, 0) // the thread has a queue of messages from now on
	made <- nil
	w.loop()
	procDestroyWindow.Call(hwnd)
}

// loop dispatches until the session closes: WM_QUIT is for one service, and clients of others may wait for an answer.
// What came as a message of the thread stands for a call.
func (w *window) loop() {
	defer w.tellQuit()
	for !w.closing {
		var msg message
		r, _, _ := procGetMessageW.Call(uintptr(unsafe.Pointer(&msg)), 0, 0, 0)
		if int32(r) <= 0 {
			w.tellQuit()
			continue
		}
		if msg.hwnd == 0 && msg.id == doCalls {
			w.takeCalls()
			continue
		}
		procDispatchMessageW.Call(uintptr(unsafe.Pointer(&msg)))
	}
}

func (w *window) tellQuit() {
	w.told.Do(func() { close(w.quit) })
}

func (w *window) takeCalls() {
	for {
		select {
		case call := <-w.calls:
			call()
		default:
			return
		}
	}
}

// do runs a call on the window's thread and waits for its end. The box of a report loses messages of the thread, hence
// the repetition.
func (w *window) do(call func()) {
	if here, _, _ := procGetThreadID.Call(); here == w.thread { // in a handler, which keeps its goroutine on its thread
		call()
		return
	}
	done := make(chan struct{})
	w.calls <- func() {
		defer close(done)
		call()
	}
	for {
		procPostThreadMsgW.Call(w.thread, doCalls, 0, 0)
		select {
		case <-done:
			return
		case <-time.After(100 * time.Millisecond):
		}
	}
}

// close ends the thread.
func (w *window) close() {
	w.do(func() { w.closing = true })
}
