// Package ivrexa lets Go programs offer services on a Windows desktop and run commands on those of others. It stands on
// ivrexa.dll, which it loads at the first call, and needs no cgo.
//
//	session, err := ivrexa.Open("client.exe")
//	client, err := session.Client("Calc")
//	var input ivrexa.Data
//	input.AddUint32("a", 40)
//	answer, err := client.Execute(100, &input, ivrexa.Texts{})
//
// Texts are UTF-8 here. Names of services and values, and ANSI texts, are turned into the system's ANSI code page, all
// others into UTF-16; what does not fit is refused, never cut.
package ivrexa

import (
	"fmt"
	"sync"
	"sync/atomic"

	"ivrexa/raw"
)

// Session is this program's registration. A process has one at a time.
type Session struct {
	// OnPanic, if set before Serve, hears of a panic in a handler; the client gets ResultError either way.
	OnPanic func(service string, command uint32, value interface{})

	path         []byte
	window       *window // nil without one
	turn         sync.Mutex
	working      sync.WaitGroup // handlers that are under way
	served, used atomic.Int32
	open         atomic.Bool
}

const most = 16 // services that a program offers, and that it uses

var (
	onlyOne  sync.Mutex
	isOpen   bool
	handlers = map[uintptr]*offer{}
	lastID   uintptr
)

// Open begins a session without a window. path names this program in the registry; os.Args[0] does.
// Its servers look for commands in rounds of 100 ms, on threads of the library.
func Open(path string) (*Session, error) {
	return open(path, false)
}

// OpenWindow begins a session with a window that is never shown, on a thread of its own. Commands reach its servers
// through that window, which is the quick road, and run on its thread, one at a time.
func OpenWindow(path string) (*Session, error) {
	return open(path, true)
}

func open(path string, withWindow bool) (*Session, error) {
	if err := raw.Load(); err != nil {
		return nil, err
	}
	ansi, err := toANSI(path, 255)
	if err != nil {
		return nil, err
	}
	if len(ansi) == 1 {
		return nil, fmt.Errorf("%w: a path of nothing", ErrText)
	}
	onlyOne.Lock()
	defer onlyOne.Unlock()
	if isOpen {
		return nil, fmt.Errorf("%w: this process has one open", ErrSession)
	}
	s := &Session{path: ansi}
	if withWindow {
		if s.window, err = newWindow(); err != nil {
			return nil, err
		}
	}
	s.open.Store(true)
	isOpen = true
	return s, nil
}

func (s *Session) hwnd() raw.Hwnd {
	if s.window == nil {
		return 0
	}
	return s.window.hwnd
}

// do runs a call that belongs to the window's thread there, or here if there is none; no two at a time.
func (s *Session) do(call func()) error {
	if !s.open.Load() {
		return ErrSession
	}
	if s.window != nil {
		s.window.do(call)
		return nil
	}
	s.turn.Lock()
	defer s.turn.Unlock()
	call()
	return nil
}

// Close ends the registration, after the handlers that are under way. Never call it from a handler. No other goroutine
// may be in a call of this package. A closed session stays closed; Open begins another.
func (s *Session) Close() error {
	if !s.open.Load() {
		return ErrSession
	}
	s.refuseCommands()
	s.working.Wait()
	err := s.do(raw.CierraSesion)
	s.open.Store(false)
	if s.window != nil {
		s.window.close()
	}
	onlyOne.Lock()
	defer onlyOne.Unlock()
	for id, o := range handlers {
		if o.session == s {
			delete(handlers, id)
		}
	}
	isOpen = false
	return err
}

func (s *Session) refuseCommands() {
	onlyOne.Lock()
	defer onlyOne.Unlock()
	for _, o := range handlers {
		if o.session == s {
			o.handler = nil
		}
	}
}

// Offered asks whether a service is offered, and for its version. Each question for one that is leaves a handle open.
func Offered(service string) (version uint16, offered bool, err error) {
	name, err := serviceName(service)
	if err != nil {
		return 0, false, err
	}
	offered = raw.HayServicioRegistrado(&name[0], &version) == raw.Cierto
	return version, offered, nil
}

// FirstOffered gives the first service of the desktop's table whose name begins so, and its version.
func FirstOffered(prefix string) (service string, version uint16, offered bool, err error) {
	name, err := toANSI(prefix, 63)
	if err != nil {
		return "", 0, false, err
	}
	var found [64]byte
	if raw.HayServicioRegistradoEmpiecePor(&name[0], &found[0], &version) != raw.Cierto {
		return "", 0, false, nil
	}
	return fromANSI(found[:]), version, true, nil
}

// EndServer asks the server of a service to end. A server without a window hears only its clients, and has ended when
// this returns: hence its own handler gets ErrOwnHandler, since it would wait for itself. With a window a handler may
// end its own service, behind the command that it carries out.
func EndServer(service string) error {
	name, err := serviceName(service)
	if err != nil {
		return err
	}
	if waitsForItself(service) {
		return fmt.Errorf("%w: %s", ErrOwnHandler, service)
	}
	raw.TerminarServidor(&name[0])
	return nil
}

// waitsForItself tells whether this is the thread of that service's handler, in a session without a window.
func waitsForItself(service string) bool {
	thread, _, _ := procGetThreadID.Call() // inside a handler a goroutine keeps its thread
	onlyOne.Lock()
	defer onlyOne.Unlock()
	for _, o := range handlers {
		if o.service == service && o.session.window == nil && o.thread == thread {
			return true
		}
	}
	return false
}

func serviceName(service string) ([]byte, error) {
	name, err := toANSI(service, 63)
	if err == nil && len(name) == 1 {
		err = fmt.Errorf("%w: a service without a name", ErrText)
	}
	return name, err
}
