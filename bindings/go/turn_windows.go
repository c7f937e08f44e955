package ivrexa

import (
	"fmt"
	"runtime"
	"syscall"
	"time"
	"unsafe"
)

var (
	procCreateMutexW        = kernel32.NewProc("CreateMutexW")
	procWaitForSingleObject = kernel32.NewProc("WaitForSingleObject")
	procReleaseMutex        = kernel32.NewProc("ReleaseMutex")
)

// Claim makes this process the one server of a service among those that ask so, as the programs of examples/ do: by a
// mutex with the service's name, held until the process ends. ErrTaken if another has it.
func Claim(service string) error {
	name, err := toWide(service, 63)
	if err != nil {
		return err
	}
	mutex, _, err := procCreateMutexW.Call(0, 0, uintptr(unsafe.Pointer(&name[0])))
	if mutex == 0 {
		return err
	}
	if err == syscall.ERROR_ALREADY_EXISTS {
		_ = syscall.CloseHandle(syscall.Handle(mutex))
		return fmt.Errorf("%s: %w", service, ErrTaken)
	}
	return nil
}

// TakeTurn waits until it is this goroutine's turn among the clients of a service that ask so, as those of examples/
// do, and keeps others out until release is called, by the same goroutine. Two commands on one service at a time would
// disturb each other.
func TakeTurn(service string, atMost time.Duration) (release func(), err error) {
	name, err := toWide("turn of "+service, 0)
	if err != nil {
		return nil, err
	}
	mutex, _, err := procCreateMutexW.Call(0, 0, uintptr(unsafe.Pointer(&name[0])))
	if mutex == 0 {
		return nil, err
	}
	runtime.LockOSThread() // a mutex belongs to a thread
	const abandoned = 0x80 // its owner died: ours now, all the same
	r, _, _ := procWaitForSingleObject.Call(mutex, uintptr(atMost.Milliseconds()))
	if uint32(r) > abandoned {
		runtime.UnlockOSThread()
		_ = syscall.CloseHandle(syscall.Handle(mutex))
		return nil, fmt.Errorf("no turn for %s within %v", service, atMost)
	}
	return func() {
		procReleaseMutex.Call(mutex)
		_ = syscall.CloseHandle(syscall.Handle(mutex))
		runtime.UnlockOSThread()
	}, nil
}
