package ivrexa

import (
	"bytes"
	"errors"
	"flag"
	"fmt"
	"math"
	"os"
	"reflect"
	"runtime"
	"strings"
	"testing"
	"time"
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

// place is where an accessor of a record reads, and how many bytes: all around is 0.
func place(t *testing.T, record []byte, accessor reflect.Value) (offset, size uintptr) {
	t.Helper()
	if accessor.Type().Out(0).Kind() == reflect.Ptr {
		field := accessor.Call(nil)[0]
		return field.Pointer() - uintptr(unsafe.Pointer(&record[0])), field.Type().Elem().Size()
	}
	size = accessor.Type().Out(0).Size()
	for i := range record {
		record[i] = 0xa5
		n := accessor.Call(nil)[0].Uint()
		record[i] = 0
		if n == 0xa5 { // the lowest byte
			return uintptr(i), size
		}
	}
	t.Error("it reads no byte of the record")
	return 0, 0
}

func Test_cada_campo_de_los_registros_empaquetados_esta_en_su_sitio(t *testing.T) {
	found := 0
	for name, record := range map[string]interface{}{
		"iv_mcbase_actividad_t": new(raw.McbaseActividad), "iv_mcbase_programa_t": new(raw.McbasePrograma),
		"datServ": new(raw.DatServ), "iv_mcbase_t": new(raw.Mcbase),
	} {
		value := reflect.ValueOf(record)
		content := value.Elem().Slice(0, value.Elem().Len()).Bytes()
		accessors := 0
		for _, field := range lines(t, "field") {
			if field[0] != name {
				continue
			}
			method := ""
			for _, part := range strings.Split(field[1], "_") {
				method += strings.ToUpper(part[:1]) + part[1:]
			}
			accessor := value.MethodByName(method)
			if !accessor.IsValid() {
				t.Errorf("%s has no %s", name, method)
				continue
			}
			offset, size := place(t, content, accessor)
			expect(t, name+"."+method, fmt.Sprint(offset, size), field[2]+" "+field[3])
			accessors++
		}
		expect(t, name+", accessors", accessors, value.NumMethod())
		found += accessors
	}
	expect(t, "fields, with those of comando", found+4, len(lines(t, "field")))
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
	for _, service := range append(notANSI(), "", long[:64], "a\x00b") {
		_, _, err := Offered(service)
		expect(t, "service "+service, errors.Is(err, ErrText), true)
	}
	_, offered, err := Offered(long[:63])
	expect(t, "nobody's", offered || err != nil, false)
}

// notANSI gives a text that no ANSI code page has but UTF-8, which has all.
func notANSI() []string {
	if page, _, _ := procGetACP.Call(); page == codePageUTF8 {
		return nil
	}
	return []string{"\U0001F600"}
}

func Test_los_datos_que_no_caben_se_rehusan(t *testing.T) {
	long := strings.Repeat("n", 255)
	for _, text := range notANSI() {
		var one, list Data
		one.AddANSI("a", text)
		list.AddANSIList("a", "b", text)
		expect(t, "not ANSI", errors.Is(one.Err(), ErrText) && one.Len() == 0, true)
		expect(t, "not ANSI, list", errors.Is(list.Err(), ErrText) && list.Len() == 0, true)
	}
	for what, add := range map[string]func(*Data){
		"a long name":     func(d *Data) { d.AddByte(long, 1) },
		"a NUL in a name": func(d *Data) { d.AddByte("a\x00b", 1) },
		"a NUL in a text": func(d *Data) { d.AddText("a", "a\x00b") },
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

var panics = make(chan string, 1) // what OnPanic hears

// withServer runs the test as client of a service of this process.
func withServer(t *testing.T, open func(string) (*Session, error), handler Handler, test func(*Session, *Client)) {
	t.Helper()
	service := uniqueService()
	session, err := open("prueba.exe")
	if err != nil {
		t.Fatal(err)
	}
	defer session.Close()
	session.OnPanic = func(_ string, command uint32, value interface{}) { panics <- fmt.Sprint(command, value) }
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
	case 108:
		return &Answer{Texts: r.Texts}, ResultOK
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
		_, err = client.Execute(105, nil, Texts{})
		expect(t, "a panic", errors.Is(err, ErrRefused), true)
		select {
		case told := <-panics:
			expect(t, "OnPanic", told, "105of a handler")
		default:
			t.Error("OnPanic heard nothing")
		}
		_, err = client.Execute(100, all(), texts)
		expect(t, "afterwards", err, nil)
		answer, err = client.Execute(108, nil, texts)
		if err != nil {
			t.Fatal(err)
		}
		expect(t, "OK as an error", fmt.Sprint(answer.Data.Len(), answer.Texts, answer.OutputBlock), "0 [  ] 0")
	})
}

func Test_todo_va_y_vuelve_con_un_servidor_con_ventana(t *testing.T) { testConversation(t, OpenWindow) }
func Test_todo_va_y_vuelve_con_un_servidor_sin_ventana(t *testing.T) { testConversation(t, Open) }

func Test_un_comando_de_la_biblioteca_se_rehusa_y_no_llega(t *testing.T) {
	withServer(t, Open, handle, func(session *Session, client *Client) {
		for _, command := range []uint32{0, 1, 2, 99} {
			answer, err := client.Execute(command, all(), Texts{})
			expect(t, fmt.Sprint("command ", command), errors.Is(err, ErrData) && answer == nil, true)
		}
		_, err := client.Execute(101, nil, Texts{})
		expect(t, "the server is still there", err, nil)
	})
}

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

var (
	procOpenThread = kernel32.NewProc("OpenThread")
	procOpenMap    = kernel32.NewProc("OpenFileMappingA")
	procMapView    = kernel32.NewProc("MapViewOfFile")
	procUnmapView  = kernel32.NewProc("UnmapViewOfFile")
	procCloses     = kernel32.NewProc("CloseHandle")
	procFindWindow = user32.NewProc("FindWindowA")
	procPost       = user32.NewProc("PostMessageA")
)

// Keeps other goroutines from the main thread, which is the one that does not end with its goroutine: it stays idle.
func init() {
	runtime.LockOSThread()
}

// A window's thread may have a second WM_QUIT in its queue: the next window must not get it.
func Test_el_hilo_de_la_ventana_acaba_con_la_sesion_y_otra_sirve(t *testing.T) {
	for round := 0; round < 3; round++ {
		var thread uintptr
		withServer(t, OpenWindow, handle, func(session *Session, client *Client) {
			const synchronize = 0x100000
			thread, _, _ = procOpenThread.Call(synchronize, 0, session.window.thread)
			expect(t, "a thread", thread != 0, true)
			expect(t, "asked", EndServer(client.service), nil)
			session.Wait()
		})
		r, _, _ := procWaitForSingleObject.Call(thread, 20000)
		expect(t, "it has ended", uint32(r), uint32(0))
		procCloses.Call(thread)
	}
}

func Test_acabado_un_servicio_los_demas_de_la_sesion_siguen(t *testing.T) {
	withServer(t, OpenWindow, handle, func(session *Session, ends *Client) {
		service := uniqueService()
		expect(t, "another service", session.Serve(service, 1, handle), nil)
		expect(t, "published", session.Publish(), nil)
		client, err := session.Client(service)
		if err != nil {
			t.Fatal(err)
		}
		expect(t, "asked", EndServer(ends.service), nil)
		session.Wait()
		done := make(chan error, 1)
		go func() {
			_, err := client.Execute(100, all(), Texts{})
			done <- err
		}()
		select {
		case err := <-done:
			expect(t, "the other service", err, nil)
		case <-time.After(30 * time.Second):
			t.Fatal("the other service does not answer")
		}
	})
}

// forged reads what was written, after a change in the block: what is read is another program's.
func forged(t *testing.T, write func(raw.Comdat), change func([]byte), test func(*Client, *Data)) {
	t.Helper()
	withServer(t, OpenWindow, handle, func(_ *Session, client *Client) {
		written := raw.CreaDatosComandoEntrada(&client.name[0])
		defer raw.DestruyeDatosComando(written)
		write(written)
		block := raw.GuardaDatos(written)
		changeBlock(t, fmt.Sprintf("Ivrexa_MCB_Serv_%s_Com__comdat%d\x00", client.service, block), change)
		container := raw.LeeDatos(&client.name[0], block, raw.Cierto)
		if container == 0 {
			t.Fatal("no such block")
		}
		defer raw.DestruyeDatosComando(container)
		test(client, readData(container))
	})
}

func changeBlock(t *testing.T, name string, change func([]byte)) {
	t.Helper()
	const all = 0xf001f // FILE_MAP_ALL_ACCESS
	block, _, _ := procOpenMap.Call(all, 0, uintptr(unsafe.Pointer(&[]byte(name)[0])))
	view, _, err := procMapView.Call(block, all, 0, 0, 0)
	if view == 0 {
		t.Fatal(err)
	}
	change(unsafe.Slice(*(**byte)(unsafe.Pointer(&view)), 4096)[4:]) // behind the size
	procUnmapView.Call(view)
	procCloses.Call(block)
}

func nul(text string) *byte {
	return &append([]byte(text), 0)[0]
}

// The first position of a wide array, 16 here, is taken for its count. Zeros behind it make that many texts.
func Test_un_arreglo_de_textos_anchos_se_lee_vacio_y_lo_que_sigue_tambien(t *testing.T) {
	behind := make([]byte, 200)
	copy(behind[108:], []byte{byte(Byte), 2, 'b', 0, 7})
	write := func(c raw.Comdat) {
		raw.GrabaArrCadenasUnicode(c, nul("r"), nil, 2)
		raw.GrabaBuffer(c, nul("z"), unsafe.Pointer(&behind[0]), uint32(len(behind)))
	}
	forged(t, write, func([]byte) {}, func(client *Client, read *Data) {
		texts, ok := read.TextList(0)
		expect(t, "a list", fmt.Sprint(read.At(0).Name, read.At(0).Type, texts, ok), "r10 [] true")
		number, ok := read.Uint(1)
		expect(t, "behind", fmt.Sprint(read.Len(), read.At(1).Name, number, ok), "2b7 true")
		_, _, err := read.store(&client.name[0], true)
		expect(t, "written again", errors.Is(err, ErrData), true)
	})
}

func Test_un_texto_fuera_del_contenido_es_vacio(t *testing.T) {
	write := func(c raw.Comdat) {
		texts := []*byte{nul("uno"), nul("dos")}
		raw.GrabaArrCadenasAnsi(c, nul("r"), &texts[0], 2)
		raw.GrabaByte(c, nul("b"), 7)
	}
	change := func(block []byte) { copy(block[16:], []byte{0, 0xff, 0xff, 0xff}) } // the second's position
	forged(t, write, change, func(client *Client, read *Data) {
		texts, _ := read.TextList(0)
		expect(t, "texts", strings.Join(texts, "|"), "uno|")
		number, _ := read.Uint(1)
		expect(t, "behind", number, uint32(7))
		container, block, err := read.store(&client.name[0], true)
		expect(t, "written again", err == nil && block != 0, true)
		raw.DestruyeDatosComando(container)
	})
}

func Test_un_tipo_que_no_existe_acaba_los_valores(t *testing.T) {
	write := func(c raw.Comdat) {
		raw.GrabaByte(c, nul("a"), 1)
		raw.GrabaUlong(c, nul("b"), 0x07000101) // a byte without a name, once it is no number
		raw.GrabaByte(c, nul("c"), 9)
	}
	change := func(block []byte) { block[9] = 11 } // the type of "b"
	forged(t, write, change, func(_ *Client, read *Data) {
		expect(t, "values", fmt.Sprint(read.Len(), read.At(0).Name), "1a")
	})
}

// closeBoxes closes the library's reports until it is stopped; then it tells how many there were.
func closeBoxes() (stop func() int) {
	ask, told := make(chan struct{}), make(chan int)
	go func() {
		seen := map[uintptr]bool{}
		for {
			box, _, _ := procFindWindow.Call(uintptr(unsafe.Pointer(nul("#32770"))),
				uintptr(unsafe.Pointer(nul("Assert ivrexa"))))
			if box != 0 {
				seen[box] = true
				const command, ok = 0x111, 1
				procPost.Call(box, command, ok, 0)
			}
			select {
			case <-ask:
				told <- len(seen)
				return
			case <-time.After(20 * time.Millisecond):
			}
		}
	}()
	return func() int {
		close(ask)
		return <-told
	}
}

func Test_la_cuenta_de_valores_puede_mentir(t *testing.T) {
	stop := closeBoxes()
	write := func(c raw.Comdat) { raw.GrabaByte(c, nul("b"), 7) }
	change := func(block []byte) { copy(block, []byte{0x40, 0x42, 0x0f, 0}) } // a million
	forged(t, write, change, func(_ *Client, read *Data) {
		expect(t, "values", read.Len(), 1)
	})
	expect(t, "reports", stop(), 1)
}

func Test_un_nombre_leido_que_no_cabe_no_se_escribe(t *testing.T) {
	write := func(c raw.Comdat) {
		raw.GrabaByte(c, nul(strings.Repeat("n", 254)), 7)
		raw.GrabaByte(c, nul("b"), 8)
	}
	change := func(block []byte) { block[4+2+254] = 'n' } // its NUL
	forged(t, write, change, func(client *Client, read *Data) {
		expect(t, "its length", len(read.At(0).Name), 255+len("\x07\x01\x02b"))
		_, _, err := read.store(&client.name[0], true)
		expect(t, "written again", errors.Is(err, ErrData), true)
	})
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

// testOwnEnd lets a handler end its own service. What hangs ends the process: the session could not be closed either.
func testOwnEnd(t *testing.T, open func(string) (*Session, error), want error) {
	asked := make(chan error, 1)
	handler := func(r *Request) (*Answer, error) {
		asked <- EndServer(r.Service)
		return nil, nil
	}
	withServer(t, open, handler, func(session *Session, client *Client) {
		done := make(chan error, 1)
		go func() {
			_, err := client.Execute(100, nil, Texts{})
			if session.window == nil {
				EndServer(client.service)
			}
			session.Wait()
			done <- err
		}()
		select {
		case err := <-done:
			expect(t, "the command", err, nil)
		case <-time.After(30 * time.Second):
			fmt.Fprintln(os.Stderr, "the command, or the wait for the service's end, hangs")
			os.Exit(1)
		}
		expect(t, "EndServer", errors.Is(<-asked, want), true)
	})
}

func Test_sin_ventana_un_servicio_no_se_acaba_desde_su_funcion(t *testing.T) {
	testOwnEnd(t, Open, ErrOwnHandler)
}
func Test_con_ventana_un_servicio_se_acaba_desde_su_funcion(t *testing.T) {
	testOwnEnd(t, OpenWindow, nil)
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
