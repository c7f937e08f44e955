package ivrexa

import (
	"fmt"
	"math"
	"unsafe"

	"ivrexa/raw"
)

// store writes the data into a container of the library's and that into a shared block, whose id it gives. The block
// lives as long as the container. No values make no block: 0 and 0.
func (d *Data) store(service *byte, isInput bool) (raw.Comdat, uint32, error) {
	if d.Len() == 0 {
		return 0, 0, d.Err()
	}
	if d.err != nil {
		return 0, 0, d.err
	}
	create := raw.CreaDatosComandoSalida
	if isInput {
		create = raw.CreaDatosComandoEntrada
	}
	container := create(service)
	stored := false
	defer func() {
		if !stored {
			raw.DestruyeDatosComando(container)
		}
	}()
	for i := range d.values {
		if err := d.values[i].write(container); err != nil {
			return 0, 0, err
		}
	}
	block := raw.GuardaDatos(container)
	if block == 0 {
		return 0, 0, fmt.Errorf("%w: there is no room for it, or nobody offers the service", ErrData)
	}
	stored = true
	return container, block, nil
}

// write refuses what add never lets in, but what may have been read: of that, another program has the say.
func (v *Value) write(container raw.Comdat) error {
	if len(v.name) == 0 || len(v.name)-1 > longestName {
		return fmt.Errorf("%w: a name of %d ANSI characters, and %d is the most", ErrData, len(v.name)-1, longestName)
	}
	name := &v.name[0]
	switch v.Type {
	case Byte:
		raw.GrabaByte(container, name, uint8(v.number))
	case Uint16:
		raw.GrabaUshort(container, name, uint16(v.number))
	case Uint32:
		raw.GrabaUlong(container, name, uint32(v.number))
	case Double:
		raw.GrabaDouble(container, name, math.Float64frombits(v.number))
	case Window:
		raw.GrabaHwnd(container, name, raw.Hwnd(v.number))
	case Bytes:
		var first unsafe.Pointer
		if len(v.bytes) != 0 {
			first = unsafe.Pointer(&v.bytes[0])
		}
		raw.GrabaBuffer(container, name, first, uint32(len(v.bytes)))
	case ANSI:
		raw.GrabaCadenaAnsi(container, name, v.ansi())
	case Wide:
		raw.GrabaCadenaUnicode(container, name, v.wide())
	case ANSIList:
		v.writeList(container, name)
	default:
		return fmt.Errorf("%w: value %q was read and cannot be written", ErrData, v.Name)
	}
	return nil
}

func (v *Value) ansi() *byte {
	if v.Null {
		return nil
	}
	return &v.bytes[0]
}

func (v *Value) wide() *uint16 {
	if v.Null {
		return nil
	}
	wide, _ := toWide(v.text, 0)
	return &wide[0]
}

func (v *Value) writeList(container raw.Comdat, name *byte) {
	pointers := make([]*byte, len(v.list)+1)
	for i, text := range v.list {
		pointers[i] = &text[0]
	}
	raw.GrabaArrCadenasAnsi(container, name, &pointers[0], uint32(len(v.list)))
}

// readData copies all values of a container, once and in the order written: so the library never compares a number
// with the place of another value, and makes each array once. The count is the writer's word, and so is each type: the
// first that is none ends it.
func readData(container raw.Comdat) *Data {
	d := new(Data)
	count := raw.NumeroValores(container)
	for pos := uint32(0); pos < count; pos++ {
		t := Type(raw.TipoDato(container, pos))
		if t == Unknown || t > WideList {
			break
		}
		d.values = append(d.values, readValue(container, pos, t))
	}
	return d
}

func readValue(container raw.Comdat, pos uint32, t Type) Value {
	name := copyANSI(raw.NombreValor(container, pos))
	v := Value{Name: fromANSI(name), Type: t, name: name}
	switch v.Type {
	case Byte:
		v.number = uint64(raw.DameByte(container, pos))
	case Uint16:
		v.number = uint64(raw.DameUshort(container, pos))
	case Uint32:
		v.number = uint64(raw.DameUlong(container, pos))
	case Double:
		v.number = math.Float64bits(raw.DameDouble(container, pos))
	case Window:
		v.number = uint64(raw.DameHwnd(container, pos))
	case Bytes:
		v.readBytes(container, pos)
	case ANSI:
		v.readANSI(container, pos)
	case Wide:
		text := raw.DameCadenaUnicode(container, pos)
		v.Null = text == nil
		if text != nil {
			v.text = wideAt(text)
		}
	case ANSIList:
		v.readANSIList(container, pos)
	case WideList: // what the library gives for one is nothing that was written
	}
	return v
}

func (v *Value) readBytes(container raw.Comdat, pos uint32) {
	size := uint32(0)
	if first := raw.DameBuffer(container, pos, &size); first != nil {
		v.bytes = append([]byte(nil), unsafe.Slice((*byte)(first), size)...)
	}
}

// readANSI keeps the text both ways: to be read, and to be written again.
func (v *Value) readANSI(container raw.Comdat, pos uint32) {
	text := raw.DameCadenaAnsi(container, pos)
	v.Null = text == nil
	if text != nil {
		v.text = ansiAt(text)
		v.bytes = copyANSI(text)
	}
}

func (v *Value) readANSIList(container raw.Comdat, pos uint32) {
	n := uint32(0)
	texts := raw.DameArrCadenasAnsi(container, pos, &n)
	if texts == nil {
		return
	}
	for _, text := range unsafe.Slice(texts, n) {
		v.texts = append(v.texts, ansiAt(text))
		v.list = append(v.list, copyANSI(text))
	}
}

// copyANSI copies a text with its NUL; that alone where there is no text.
func copyANSI(text *byte) []byte {
	if text == nil {
		return []byte{0}
	}
	n := 0
	for *(*byte)(unsafe.Add(unsafe.Pointer(text), n)) != 0 {
		n++
	}
	return append([]byte(nil), unsafe.Slice(text, n+1)...)
}
