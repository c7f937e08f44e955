package ivrexa

import (
	"errors"
	"fmt"
)

// What errors of this package are, for errors.Is. ErrNoAnswer is a server that answered 0, or one with a window that
// died without ending its session: that counts as offered for as long as this client holds its channel.
var (
	ErrText       = errors.New("a text that the library cannot carry") // too long, a NUL inside, not in the code page
	ErrData       = errors.New("data that the library cannot carry")
	ErrSession    = errors.New("the session is not open")  // or one is open already
	ErrTaken      = errors.New("the service has a server") // see Claim
	ErrOwnHandler = errors.New("the service's own handler cannot end it")
	ErrNotOffered = errors.New("nobody offers the service")    // nothing was sent
	ErrNoAnswer   = errors.New("no answer")                    // result 0, and the service counts as offered
	ErrGone       = errors.New("the server is gone")           // result 0 or 3, and nobody offers the service any more
	ErrCancelled  = errors.New("cancelled by the server")      // result 2
	ErrRefused    = errors.New("the server refused it")        // result 3, and the service is still offered
	ErrOther      = errors.New("a result of the server's own") // see CommandError
)

// Results of a command. A handler may give others by an error of type Result.
const (
	ResultNone      Result = 0
	ResultOK        Result = 1
	ResultCancelled Result = 2
	ResultError     Result = 3
)

// Result is the number that a command ends with. As an error of a handler it is what the client gets.
type Result uint32

func (r Result) Error() string {
	return fmt.Sprintf("result %d", uint32(r))
}

// CommandError is a command that did not end with OK.
type CommandError struct {
	Service    string
	Command    uint32
	Result     Result
	InputBlock uint32 // as a monitor shows it; 0 without input
	Reason     error  // one of the Err values
}

func (e *CommandError) Error() string {
	return fmt.Sprintf("command %d on %s: %v (result %d)", e.Command, e.Service, e.Reason, e.Result)
}

// Unwrap gives the reason.
func (e *CommandError) Unwrap() error {
	return e.Reason
}
