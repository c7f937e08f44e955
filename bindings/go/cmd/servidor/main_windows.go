// servidor serves command 100 of the examples, as examples/servidor_sin_ventana does.
//
//	servidor [--window] [SERVICE]      the service is "Ejemplo" if you name none
//
// With --window commands come through a window that is never shown, which is quicker. A client's request ends it.
package main

import (
	"fmt"
	"os"
	"sync/atomic"

	"ivrexa"
)

const (
	echo    = 100
	version = 3 // ours: clients ask for it
)

func main() {
	service, open := "Ejemplo", ivrexa.Open
	args := os.Args[1:]
	if len(args) > 0 && args[0] == "--window" {
		args, open = args[1:], ivrexa.OpenWindow
	}
	if len(args) > 1 {
		fmt.Fprintln(os.Stderr, "usage: servidor [--window] [SERVICE]")
		os.Exit(2)
	}
	if len(args) == 1 {
		service = args[0]
	}
	if err := run(service, open); err != nil {
		fmt.Fprintln(os.Stderr, err)
		os.Exit(1)
	}
}

func run(service string, open func(string) (*ivrexa.Session, error)) error {
	if err := ivrexa.Claim(service); err != nil { // two servers would disturb each other
		return err
	}
	session, err := open(os.Args[0])
	if err != nil {
		return err
	}
	defer session.Close()
	var commands int32
	handler := func(r *ivrexa.Request) (*ivrexa.Answer, error) {
		answer, err := process(r)
		if err == nil {
			atomic.AddInt32(&commands, 1)
		}
		return answer, err
	}
	if err := session.Serve(service, version, handler); err != nil {
		return err
	}
	if err := session.Publish(); err != nil { // from here on clients find the service
		return err
	}
	fmt.Println("ready:", service)
	session.Wait()
	fmt.Printf("ended after %d commands\n", atomic.LoadInt32(&commands))
	return nil
}

// process makes the output from the input. Another program wrote it, so expect anything: a value of another type reads
// as 0 or nothing.
func process(r *ivrexa.Request) (*ivrexa.Answer, error) {
	if r.Command != echo || r.Input.Len() != 5 {
		return nil, ivrexa.ErrRefused
	}
	for _, text := range r.Texts {
		fmt.Printf("got  text \"%s\"\n", text)
	}
	a, _ := r.Input.Uint(0)
	b, _ := r.Input.Double(1)
	words, _ := r.Input.TextList(2)
	name, _ := r.Input.Text(3)
	bytes, _ := r.Input.Bytes(4)
	fmt.Printf("got  a=%d b=%g bytes=%d palabras=%d \"Hola, %s\"\n", a, b, len(bytes), len(words), name)

	answer := &ivrexa.Answer{Texts: r.Texts}
	answer.Data.AddDouble("suma", float64(a)+b)
	answer.Data.AddText("saludo", "Hola, "+name)
	answer.Data.AddBytes("bytes", bytes)
	fmt.Printf("sent suma=%g bytes=%d and the three texts\n", float64(a)+b, len(bytes))
	return answer, nil
}
