package ivrexa

import (
	"bytes"
	"errors"
	"flag"
	"fmt"
	"math"
	"os"
	"strings"
	"testing"
	"unsafe"

	"ivrexa/raw"
)

// What bindings/ivrexa.json says, a line each: "function NAME", "record NAME SIZE", "field RECORD NAME OFFSET SIZE".
var listFile = flag.String("lista", "", "the interface's list, as tests/lenguas/conversa/lista.py writes it")

func lines(t *testing.T, kind string) (found [][]string) {
	t.Helper()
	text, err := os.ReadFile(*listFile)
	if err != nil {
		t.Fatal(err)
	}
	for _, line := range strings.Split(string(text), "\n") {
		if fields := strings.Fields(line); len(fields) > 1 && fields[0] == kind {
			found = append(found, fields[1:])
		}
	}
	return found
}

func expect(t *testing.T, what string, got, want interface{}) {
	t.Helper()
	if got != want {
		t.Errorf("%s: got %v, want %v", what, got, want)
	}
}

func Test_las_50_funciones_de_la_lista_estan_y_la_dll_las_tiene(t *testing.T) {
	var bound, listed []string
	for _, fields := range lines(t, "function") {
		listed = append(listed, fields[0])
	}
	bound = raw.Names()
	expect(t, "names", strings.Join(bound, " "), strings.Join(listed, " "))
	expect(t, "how many", len(bound), 50)
	if err := raw.Load(); err != nil {
		t.Error(err)
	}
}

func Test_el_registro_comando_tiene_sus_desplazamientos(t *testing.T) {
	var c raw.Comando
	got := fmt.Sprint("comando ", unsafe.Sizeof(c))
	for name, offset := range map[string]uintptr{
		"datos_entrada": unsafe.Offsetof(c.DatosEntrada), "datos_salida": unsafe.Offsetof(c.DatosSalida),
		"hwnd_cliente": unsafe.Offsetof(c.HwndCliente), "hwnd_servidor": unsafe.Offsetof(c.HwndServidor),
	} {
		found := false
		for _, field := range lines(t, "field") {
			if field[0] == "comando" && field[1] == name {
				found = true
				expect(t, name, fmt.Sprint(offset), field[2])
			}
		}
		expect(t, name+" in the list", found, true)
	}
	expect(t, "size", got, "comando 32")
}

func Test_los_registros_empaquetados_miden_lo_que_dice_la_lista(t *testing.T) {
	sizes := map[string]uintptr{
		"comando":               unsafe.Sizeof(raw.Comando{}),
		"iv_mcbase_actividad_t": unsafe.Sizeof(raw.McbaseActividad{}),
		"iv_mcbase_programa_t":  unsafe.Sizeof(raw.McbasePrograma{}),
		"datServ":               unsafe.Sizeof(raw.DatServ{}),
		"iv_mcbase_t":           unsafe.Sizeof(raw.Mcbase{}),
	}
	records := lines(t, "record")
	expect(t, "records", len(records), len(sizes))
	for _, record := range records {
		expect(t, record[0], fmt.Sprint(sizes[record[0]]), record[1])
	}

	var base raw.Mcbase
	base[5814+2*96+80] = 100 // the third service's command under way
	base[1430+15*274+271] = 1
	expect(t, "a command", base.Servicios()[2].IdComandoEnCurso(), uint32(100))
	expect(t, "a heartbeat", base.Programas()[15].ContadorVivo(), uint32(256))
}

func Test_los_textos_que_no_caben_se_rehusan(t *testing.T) {
	long := strings.Repeat("x", 300)
	for _, texts := range []Texts{{long[:64]}, {"", long[:256]}, {"", "", long[:256]}, {"a\x00b"}, {"\xff"},
		{strings.Repeat("\U0001F600", 32)}} {
		_, err := texts.wide()
		expect(t, "refused", errors.Is(err, ErrText), true)
	}
	_, err := Texts{long[:63], long[:255], strings.Repeat("\U0001F600", 127)}.wide()
	expect(t, "the longest", err, nil)
	for _, service := range []string{"", long[:64], "a\x00b", "\u4e2d"} {
		_, _, err := Offered(service)
		expect(t, "service "+service, errors.Is(err, ErrText), true)
	}
	_, offered, err := Offered(long[:63])
	expect(t, "nobody's", offered || err != nil, false)
}

func Test_los_datos_que_no_caben_se_rehusan(t *testing.T) {
	long := strings.Repeat("n", 255)
	for what, add := range map[string]func(*Data){
		"a long name":     func(d *Data) { d.AddByte(long, 1) },
		"a NUL in a name": func(d *Data) { d.AddByte("a\x00b", 1) },
		"a NUL in a text": func(d *Data) { d.AddText("a", "a\x00b") },
		"not ANSI":        func(d *Data) { d.AddANSI("a", "\u4e2d") },
		"not ANSI, list":  func(d *Data) { d.AddANSIList("a", "b", "\u4e2d") },
		"null and a byte": func(d *Data) { d.AddNull("a", Byte) },
	} {
		var d Data
		add(&d)
		d.AddByte("behind", 1)
		expect(t, what, d.Err() != nil && d.Len() == 0, true)
	}
	var d Data
	d.AddByte(long[:254], 1)
	expect(t, "the longest name", d.Err(), nil)
}

// all holds one value of every type that can be written, among them a wide text at an odd address.
func all() *Data {
	d := new(Data)
	d.AddByte("byte", 255)
	d.AddUint16("ushort", 65535)
	d.AddUint32("a\u00f1o", math.MaxUint32)
	d.AddDouble("double", -2.5e-300)
	d.AddWindow("window", 0x7fffffff12345678)
	d.AddBytes("bytes", []byte{0, 1, 255})
	d.AddBytes("no bytes", nil)
	d.AddANSI("ansi", "a\u00f1o")
	d.AddANSI("", "")
	d.AddNull("null", ANSI)
	d.AddText("wide", "a\u00f1o \u4e2d \U0001F600")
	d.AddText("odd+", "odd")
	d.AddNull("null", Wide)
	d.AddANSIList("list", "uno", "", "a\u00f1o")
	d.AddANSIList("no list")
	d.AddByte("last", 7)
	return d
}

func compare(t *testing.T, got, want *Data) {
	t.Helper()
	expect(t, "values", got.Len(), want.Len())
	for i := 0; i < want.Len() && i < got.Len(); i++ {
		a, b := got.At(i), want.At(i)
		same := a.Name == b.Name && a.Type == b.Type && a.Null == b.Null && a.number == b.number && a.text == b.text &&
			bytes.Equal(a.bytes, b.bytes) && strings.Join(a.texts, "|") == strings.Join(b.texts, "|")
		if !same {
			t.Errorf("value %d: got %+v, want %+v", i, a, b)
		}
	}
}

var numServices = 0

func uniqueService() string {
	numServices++
	return fmt.Sprintf("Go_%d_%d", os.Getpid(), numServices)
}

// withServer runs the test as client of a service of this process.
func withServer(t *testing.T, open func(string) (*Session, error), handler Handler, test func(*Session, *Client)) {
	t.Helper()
	service := uniqueService()
	session, err := open("prueba.exe")
	if err != nil {
		t.Fatal(err)
	}
	defer session.Close()
	if err := session.Serve(service, 7, handler); err != nil {
		t.Fatal(err)
	}
	if err := session.Publish(); err != nil {
		t.Fatal(err)
	}
	version, offered, err := Offered(service)
	expect(t, "offered", fmt.Sprint(version, offered, err), "7 true <nil>")
	name, version, offered, err := FirstOffered(service[:len(service)-1])
	expect(t, "first offered", fmt.Sprint(name, version, offered, err), service+"7 true <nil>")
	client, err := session.Client(service)
	if err != nil {
		t.Fatal(err)
	}
	test(session, client)
}

// handle answers each command of the tests in its own way.
func handle(r *Request) (*Answer, error) {
	switch r.Command {
	case 100:
		a := &Answer{Texts: Texts{r.Texts[2], r.Texts[0], r.Texts[1]}}
		if r.Input != nil {
			a.Data = *r.Input
		}
		return a, nil
	case 101:
		return nil, nil
	case 102:
		return nil, ErrCancelled
	case 103:
		return nil, errors.New("whatever")
	case 104:
		return nil, fmt.Errorf("behind: %w", Result(77))
	case 105:
		panic("of a handler")
	case 106:
		return &Answer{Texts: Texts{strings.Repeat("x", 64)}}, nil
	}
	a := new(Answer)
	a.Data.AddByte(strings.Repeat("n", 255), 1)
	return a, nil
}

func testConversation(t *testing.T, open func(string) (*Session, error)) {
	withServer(t, open, handle, func(session *Session, client *Client) {
		texts := Texts{"corto", "a\u00f1o", "\u4e2d"}
		answer, err := client.Execute(100, all(), texts)
		if err != nil {
			t.Fatal(err)
		}
		compare(t, &answer.Data, all())
		expect(t, "texts", answer.Texts, Texts{texts[2], texts[0], texts[1]})
		answer, err = client.Execute(101, nil, texts)
		if err != nil {
			t.Fatal(err)
		}
		expect(t, "an answer of nothing", fmt.Sprint(answer.Data.Len(), answer.Texts, answer.OutputBlock), "0 [  ] 0")
		for command, want := range map[uint32]error{102: ErrCancelled, 103: ErrRefused, 104: ErrOther, 106: ErrRefused,
			107: ErrRefused} {
			_, err := client.Execute(command, nil, Texts{})
			var refused *CommandError
			expect(t, fmt.Sprint("command ", command), errors.Is(err, want) && errors.As(err, &refused), true)
			if command == 104 {
				expect(t, "its number", refused.Result, Result(77))
			}
		}
		var told string
		session.OnPanic = func(_ string, command uint32, value interface{}) { told = fmt.Sprint(command, value) }
		_, err = client.Execute(105, nil, Texts{})
		expect(t, "a panic", errors.Is(err, ErrRefused), true)
		expect(t, "OnPanic", told, "105of a handler")
		_, err = client.Execute(100, all(), texts)
		expect(t, "afterwards", err, nil)
	})
}

func Test_todo_va_y_vuelve_con_un_servidor_con_ventana(t *testing.T) { testConversation(t, OpenWindow) }
func Test_todo_va_y_vuelve_con_un_servidor_sin_ventana(t *testing.T) { testConversation(t, Open) }

func Test_sin_servidor_no_se_envia_nada(t *testing.T) {
	session, err := Open("prueba.exe")
	if err != nil {
		t.Fatal(err)
	}
	client, err := session.Client(uniqueService())
	if err != nil {
		t.Fatal(err)
	}
	_, err = client.Execute(100, all(), Texts{})
	expect(t, "not offered", errors.Is(err, ErrNotOffered), true)
	_, err = Open("otra.exe")
	expect(t, "a second session", errors.Is(err, ErrSession), true)
	expect(t, "closed", session.Close(), nil)
	expect(t, "closed again", errors.Is(session.Close(), ErrSession), true)
	_, err = session.Client("Calc")
	expect(t, "a closed one", errors.Is(err, ErrSession), true)
}

func Test_el_servicio_17_se_rehusa(t *testing.T) {
	session, err := Open("prueba.exe")
	if err != nil {
		t.Fatal(err)
	}
	defer session.Close()
	for i := 0; i < 16; i++ {
		_, err := session.Client(uniqueService())
		expect(t, "a client", err, nil)
	}
	_, err = session.Client(uniqueService())
	expect(t, "the 17th", errors.Is(err, ErrSession), true)
}

func Test_un_cliente_pide_al_servidor_que_acabe(t *testing.T) {
	for _, open := range []func(string) (*Session, error){Open, OpenWindow} {
		withServer(t, open, handle, func(session *Session, client *Client) {
			_, err := client.Execute(101, nil, Texts{})
			expect(t, "a command first", err, nil)
			expect(t, "asked", EndServer(client.service), nil)
			session.Wait()
		})
	}
}

func Test_el_otro_turno_espera_y_la_segunda_plaza_se_niega(t *testing.T) {
	service := uniqueService()
	expect(t, "claimed", Claim(service), nil)
	expect(t, "claimed again", errors.Is(Claim(service), ErrTaken), true)
	release, err := TakeTurn(service, 0)
	expect(t, "a turn", err, nil)
	other := make(chan error)
	go func() {
		_, err := TakeTurn(service, 0)
		other <- err
	}()
	expect(t, "the other waits", <-other != nil, true)
	release()
	go func() {
		release, err := TakeTurn(service, 0)
		if err == nil {
			release()
		}
		other <- err
	}()
	expect(t, "the other's turn", <-other, nil)
}
