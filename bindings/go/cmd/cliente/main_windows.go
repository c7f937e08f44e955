// cliente runs command 100 of the examples and prints what comes back, as examples/cliente_c does.
//
//	cliente [SERVICE]      the service is "Ejemplo" if you name none
//
// Ends with 0 if the command was carried out, with 1 if not.
package main

import (
	"errors"
	"fmt"
	"os"
	"strings"
	"time"

	"ivrexa"
)

const (
	echo    = 100
	version = 3 // what the server of the service understands
)

func main() {
	service := "Ejemplo"
	if len(os.Args) > 2 {
		fmt.Fprintln(os.Stderr, "usage: cliente [SERVICE]")
		os.Exit(2)
	}
	if len(os.Args) == 2 {
		service = os.Args[1]
	}
	if err := run(service); err != nil {
		fmt.Println(err)
		os.Exit(1)
	}
}

func run(service string) error {
	has, offered, err := ivrexa.Offered(service)
	if err != nil {
		return err
	}
	if !offered || has != version {
		return fmt.Errorf("nobody offers %s in version %d: start a server first", service, version)
	}
	release, err := ivrexa.TakeTurn(service, time.Minute) // clients of one service take turns
	if err != nil {
		return err
	}
	defer release()
	session, err := ivrexa.Open(os.Args[0])
	if err != nil {
		return err
	}
	defer session.Close()
	client, err := session.Client(service)
	if err != nil {
		return err
	}
	return execute(client)
}

func execute(client *ivrexa.Client) error {
	words := []string{"uno", "dos", "tres"}
	bytes := make([]byte, 1000)
	for i := range bytes {
		bytes[i] = byte(i * 7)
	}
	var input ivrexa.Data
	input.AddUint32("a", 40)
	input.AddDouble("b", 2.5)
	input.AddANSIList("palabras", words...)
	input.AddANSI("nombre", "mundo")
	input.AddBytes("bytes", bytes)
	answer, err := client.Execute(echo, &input, ivrexa.Texts{"corto", "año nuevo", "tercer texto"})

	var refused *ivrexa.CommandError
	switch {
	case err == nil:
		tellSent(words, answer.InputBlock)
		tell(answer)
	case errors.As(err, &refused):
		tellSent(words, refused.InputBlock)
		err = fmt.Errorf("got  result %d: %w", refused.Result, refused.Reason)
	}
	return err
}

func tellSent(words []string, block uint32) {
	fmt.Printf("sent a=40 b=2.5 palabras=%s nombre=\"mundo\" bytes=1000, input block %d\n", strings.Join(words, ","),
		block)
}

// Another program wrote what came: a value of another type reads as nothing.
func tell(answer *ivrexa.Answer) {
	fmt.Println("got  result 1: OK")
	for i, text := range answer.Texts {
		fmt.Printf("got  text %d \"%s\"\n", i+1, text)
	}
	if answer.Data.Len() == 0 {
		fmt.Println("no output data")
		return
	}
	sum, _ := answer.Data.Double(0)
	greeting, _ := answer.Data.Text(1)
	bytes, _ := answer.Data.Bytes(2)
	fmt.Printf("got  suma=%g bytes=%d saludo=\"%s\"\n", sum, len(bytes), greeting)
}
