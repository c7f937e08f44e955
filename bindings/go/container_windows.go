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
	for i := range d.values {
		d.values[i].write(container)
	}
	block := raw.GuardaDatos(container)
	if block == 0 {
		raw.DestruyeDatosComando(container)
		return 0, 0, fmt.Errorf("%w: there is no room for it, or nobody offers the service", ErrData)
	}
	return container, block, nil
}

func (v *Value) write(container raw.Comdat) {
	ansi, _ := toANSI(v.Name, longestName) // add has refused what does not fit
	name := &ansi[0]
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
	}
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
// with the place of another value, and makes each array once.
func readData(container raw.Comdat) *Data {
	d := new(Data)
	count := raw.NumeroValores(container)
	for pos := uint32(0); pos < count; pos++ {
		d.values = append(d.values, readValue(container, pos))
	}
	return d
}

func readValue(container raw.Comdat, pos uint32) Value {
	v := Value{Name: ansiAt(raw.NombreValor(container, pos)), Type: Type(raw.TipoDato(container, pos))}
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
	case WideList:
		v.readWideList(container, pos)
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

func (v *Value) readWideList(container raw.Comdat, pos uint32) {
	n := uint32(0)
	texts := raw.DameArrCadenasUnicode(container, pos, &n)
	if texts == nil {
		return
	}
	for _, text := range unsafe.Slice((*unsafe.Pointer)(texts), n) {
		v.texts = append(v.texts, wideAt(text))
	}
}

// copyANSI copies a text with its NUL.
func copyANSI(text *byte) []byte {
	n := 0
	for *(*byte)(unsafe.Add(unsafe.Pointer(text), n)) != 0 {
		n++
	}
	return append([]byte(nil), unsafe.Slice(text, n+1)...)
}
