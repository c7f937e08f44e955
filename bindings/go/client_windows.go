package ivrexa

import (
	"errors"
	"fmt"
	"sync"
	"time"

	"ivrexa/raw"
)

// Client runs commands on one service.
type Client struct {
	service string
	name    []byte
	turn    sync.Mutex
	readyAt time.Time
}

// settle is how long a program's heartbeat takes to begin: before, a server without a window may take a client for
// dead and end.
const settle = 2500 * time.Millisecond

// Client registers this program as a client of a service, which need not be offered yet.
func (s *Session) Client(service string) (*Client, error) {
	name, err := serviceName(service)
	if err != nil {
		return nil, err
	}
	if s.used.Add(1) > most {
		return nil, fmt.Errorf("%w: it uses %d services already", ErrSession, most)
	}
	err = s.do(func() { raw.RegistraClienteDeServicio(&s.path[0], s.hwnd(), &name[0]) })
	if err != nil {
		return nil, err
	}
	return &Client{service: service, name: name, readyAt: time.Now().Add(settle)}, nil
}

// Execute runs a command, 100 and up, and waits for its answer: ids below are the library's own, and ErrData here.
// input may be nil. The first command waits until 2.5 s after the registration. One command of a client goes after the
// other; those of other programs are another matter, see TakeTurn. No command can be taken back, so there is no context
// to cancel it with.
//
// A command that does not end with ResultOK is a *CommandError. Whether the service is offered is asked before and, for
// the results 0 and 3, after the command: that is what tells ErrNotOffered, ErrGone, ErrNoAnswer and ErrRefused apart.
func (c *Client) Execute(command uint32, input *Data, texts Texts) (*Answer, error) {
	return c.execute(command, 0, input, texts)
}

// ExecuteInFront is Execute with the server's window brought to the foreground meanwhile, and what was there before
// brought back at the end.
func (c *Client) ExecuteInFront(command uint32, input *Data, texts Texts) (*Answer, error) {
	return c.execute(command, raw.VentanaTraeServidor|raw.VentanaDevuelveFoco, input, texts)
}

func (c *Client) execute(command uint32, options uint16, input *Data, texts Texts) (*Answer, error) {
	if command < raw.ComandoPrimeroPropio { // 1 would end the server, the others answer with an earlier command's texts
		return nil, fmt.Errorf("%w: command %d is the library's: yours are 100 and up", ErrData, command)
	}
	wide, err := texts.wide()
	if err != nil {
		return nil, err
	}
	c.turn.Lock()
	defer c.turn.Unlock()
	time.Sleep(time.Until(c.readyAt))
	if !c.offered() {
		return nil, &CommandError{c.service, command, ResultNone, 0, ErrNotOffered}
	}
	container, block, err := input.store(&c.name[0], true)
	if err != nil {
		return nil, err
	}
	if container != 0 {
		defer raw.DestruyeDatosComando(container) // only now has the server read it
	}
	var output uint32
	var came textBuffers
	result := Result(raw.EjecutaComando(&c.name[0], command, options, block, wide[0], wide[1], wide[2], &output,
		&came.first[0], &came.second[0], &came.third[0]))
	if result != ResultOK {
		return nil, &CommandError{c.service, command, result, block, c.reason(result)}
	}
	answer := &Answer{Texts: came.texts(), InputBlock: block, OutputBlock: output}
	return answer, answer.read(c)
}

func (a *Answer) read(c *Client) error {
	if a.OutputBlock == 0 {
		return nil
	}
	container := raw.LeeDatos(&c.name[0], a.OutputBlock, raw.Falso)
	if container == 0 {
		return errors.New("the server's output is not there any more")
	}
	a.Data = *readData(container)
	raw.DestruyeDatosComando(container)
	return nil
}

func (c *Client) offered() bool {
	return raw.HayServicioRegistrado(&c.name[0], nil) == raw.Cierto
}

func (c *Client) reason(result Result) error {
	switch {
	case result == ResultCancelled:
		return ErrCancelled
	case result != ResultNone && result != ResultError:
		return ErrOther
	case !c.offered():
		return ErrGone
	case result == ResultNone:
		return ErrNoAnswer
	}
	return ErrRefused
}
