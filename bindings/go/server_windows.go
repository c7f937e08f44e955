package ivrexa

import (
	"errors"
	"fmt"
	"sync"
	"syscall"

	"ivrexa/raw"
)

// Request is a command that came.
type Request struct {
	Service      string
	Command      uint32 // 100 and up
	Input        *Data  // nil without input
	Texts        Texts
	ClientWindow uint64 // the client's main window; 0: it has none
}

// Answer is what a command gives. The zero value is an answer without data and with empty texts.
type Answer struct {
	Data  Data
	Texts Texts
	// Of an answer that a client got: the ids of the two blocks as a monitor shows them; 0 = none.
	InputBlock, OutputBlock uint32
}

// Handler carries out a command. An error is what the client gets as its result: a Result its number, ErrCancelled
// ResultCancelled, any other ResultError; no text of it travels. ResultOK as an error is an empty answer. A panic is
// ResultError.
//
// It runs on the window's thread, or on a thread of the library's without one. Commands on other services may be run
// from here, but none on a service that has one under way, such as this one. In a session without a window it must not
// wait for a goroutine that runs commands on its own service, ends it or offers data there.
type Handler func(*Request) (*Answer, error)

// offer is a service with its handler, which is nil once the session closes, and the thread that the handler is under
// way on; 0 without.
type offer struct {
	session *Session
	service string
	handler Handler
	thread  uintptr
}

var (
	oneCallback sync.Once
	callback    uintptr
)

// Serve offers a service, with a version of yours. Publish makes it known.
func (s *Session) Serve(service string, version uint16, handler Handler) error {
	name, err := serviceName(service)
	if err != nil {
		return err
	}
	if handler == nil {
		return fmt.Errorf("%w: %s has no handler", ErrData, service)
	}
	if s.served.Add(1) > most {
		return fmt.Errorf("%w: it serves %d services already", ErrSession, most)
	}
	oneCallback.Do(func() { callback = syscall.NewCallback(runCommand) })
	onlyOne.Lock()
	lastID++
	id := lastID
	handlers[id] = &offer{session: s, service: service, handler: handler}
	onlyOne.Unlock()
	return s.do(func() {
		raw.RegistraServidor(&s.path[0], s.hwnd(), &name[0], version, id, callback)
	})
}

// Publish makes the services known and begins to receive commands.
func (s *Session) Publish() error {
	return s.do(raw.TerminadoRegistro)
}

// Wait returns when a client has asked the server to end: with a window once, without one for each service. With a
// window the session's services go on until Close.
func (s *Session) Wait() {
	if s.window != nil {
		<-s.window.quit
		return
	}
	raw.EsperaComandoTerminarServidor()
}

// runCommand is what the library calls, on its own thread or on the window's. Go keeps it on that thread.
func runCommand(service *byte, command uintptr, context *raw.Comando, id uintptr) uintptr {
	o, handler := begin(id)
	if handler == nil {
		return uintptr(ResultError) // the session closes
	}
	defer o.end()
	return uintptr(o.run(handler, service, uint32(command), context))
}

func begin(id uintptr) (*offer, Handler) {
	thread, _, _ := procGetThreadID.Call()
	onlyOne.Lock()
	defer onlyOne.Unlock()
	o := handlers[id]
	if o == nil || o.handler == nil {
		return nil, nil
	}
	o.session.working.Add(1)
	o.thread = thread
	return o, o.handler
}

func (o *offer) end() {
	onlyOne.Lock()
	o.thread = 0
	onlyOne.Unlock()
	o.session.working.Done()
}

// run never panics.
func (o *offer) run(handler Handler, service *byte, command uint32, context *raw.Comando) (result Result) {
	result = ResultError
	defer func() {
		if value := recover(); value != nil && o.session.OnPanic != nil {
			defer func() { _ = recover() }()
			o.session.OnPanic(o.service, command, value)
		}
	}()
	request, ok := o.request(service, command, context)
	if !ok {
		return ResultError
	}
	answer, err := handler(request)
	if err != nil && resultOf(err) == ResultOK { // the client takes texts and data: not those of an earlier command
		answer, err = nil, nil
	}
	if err == nil {
		err = answer.give(service, command, context)
	}
	return resultOf(err)
}

func (o *offer) request(service *byte, command uint32, context *raw.Comando) (*Request, bool) {
	var texts textBuffers
	if raw.GetDatosEntradaComando(service, command, nil, &texts.first[0], &texts.second[0],
		&texts.third[0]) != raw.Cierto {
		return nil, false
	}
	request := &Request{Service: o.service, Command: command, Texts: texts.texts(), ClientWindow: context.HwndCliente}
	if context.DatosEntrada != 0 {
		request.Input = readData(context.DatosEntrada)
	}
	return request, true
}

// give answers the command: always with texts, so that none of an earlier command stays.
func (a *Answer) give(service *byte, command uint32, context *raw.Comando) error {
	if a == nil {
		a = new(Answer)
	}
	texts, err := a.Texts.wide()
	if err != nil {
		return err
	}
	container, block, err := a.Data.store(service, false)
	if err != nil {
		return err
	}
	context.DatosSalida = container // the library's from here on
	if raw.SetDatosSalidaComando(service, command, block, texts[0], texts[1], texts[2]) != raw.Cierto {
		return ResultError
	}
	return nil
}

func resultOf(err error) Result {
	var result Result
	switch {
	case err == nil:
		return ResultOK
	case errors.As(err, &result):
		return result
	case errors.Is(err, ErrCancelled):
		return ResultCancelled
	}
	return ResultError
}
