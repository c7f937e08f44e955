package ivrexa

import (
	"fmt"
	"math"
)

// Type is the type of a value.
type Type uint32

// Types of values. The library's arrays of wide texts do not come back to any reader: one that was read is empty, and
// there is none to write here. Unknown is what At gives where there is no value.
const (
	Unknown  Type = 0
	Byte     Type = 1
	Uint16   Type = 2
	Uint32   Type = 3
	Double   Type = 4
	Bytes    Type = 5
	ANSI     Type = 6
	Wide     Type = 7
	Window   Type = 8
	ANSIList Type = 9
	WideList Type = 10
)

const longestName = 254

// Value is a typed, named value.
type Value struct {
	Name string
	Type Type
	Null bool // a text that is not there, rather than an empty one

	name   []byte // as it stands, its NUL included
	number uint64 // also the bits of a double
	bytes  []byte // also an ANSI text as it stands, its NUL included
	text   string
	texts  []string
	list   [][]byte
}

// Data is the input or the output of a command: values in an order, found by position from 0 or by name. It lives in
// Go's memory alone; the zero value is empty. An error of Add sticks, and Execute or the handler's end gives it.
type Data struct {
	values []Value
	size   uint64
	err    error
}

// Len is how many values there are.
func (d *Data) Len() int {
	if d == nil {
		return 0
	}
	return len(d.values)
}

// Err is the first refusal of an Add.
func (d *Data) Err() error {
	if d == nil {
		return nil
	}
	return d.err
}

func (d *Data) add(v Value, size int) {
	if d.err != nil {
		return
	}
	name, err := toANSI(v.Name, longestName)
	if err != nil {
		d.err = fmt.Errorf("name of value %d: %w", len(d.values), err)
		return
	}
	v.name = name
	d.size += uint64(size) + 600 // more than a name and the format's own fields take
	if d.size > math.MaxUint32 {
		d.err = fmt.Errorf("%w: value %q brings it past 4 GiB", ErrData, v.Name)
		return
	}
	d.values = append(d.values, v)
}

// AddByte appends a number of 8 bits.
func (d *Data) AddByte(name string, n uint8) {
	d.add(Value{Name: name, Type: Byte, number: uint64(n)}, 1)
}

// AddUint16 appends a number of 16 bits.
func (d *Data) AddUint16(name string, n uint16) {
	d.add(Value{Name: name, Type: Uint16, number: uint64(n)}, 2)
}

// AddUint32 appends a number of 32 bits.
func (d *Data) AddUint32(name string, n uint32) {
	d.add(Value{Name: name, Type: Uint32, number: uint64(n)}, 4)
}

// AddDouble appends a double.
func (d *Data) AddDouble(name string, n float64) {
	d.add(Value{Name: name, Type: Double, number: math.Float64bits(n)}, 8)
}

// AddWindow appends a window handle.
func (d *Data) AddWindow(name string, hwnd uintptr) {
	d.add(Value{Name: name, Type: Window, number: uint64(hwnd)}, 8)
}

// AddBytes appends bytes, which it keeps: leave them alone until the data was sent.
func (d *Data) AddBytes(name string, b []byte) {
	d.add(Value{Name: name, Type: Bytes, bytes: b}, len(b))
}

// AddText appends a wide text.
func (d *Data) AddText(name, text string) {
	if _, err := toWide(text, 0); err != nil && d.err == nil {
		d.err = fmt.Errorf("value %q: %w", name, err)
	}
	d.add(Value{Name: name, Type: Wide, text: text}, 2*len(text))
}

// AddANSI appends a text in the system's ANSI code page.
func (d *Data) AddANSI(name, text string) {
	ansi, err := toANSI(text, 0)
	if err != nil && d.err == nil {
		d.err = fmt.Errorf("value %q: %w", name, err)
	}
	d.add(Value{Name: name, Type: ANSI, text: text, bytes: ansi}, len(ansi))
}

// AddNull appends a text that is not there: ANSI or Wide.
func (d *Data) AddNull(name string, t Type) {
	if t != ANSI && t != Wide && d.err == nil {
		d.err = fmt.Errorf("%w: value %q is null and no text", ErrData, name)
	}
	d.add(Value{Name: name, Type: t, Null: true}, 0)
}

// AddANSIList appends texts in the system's ANSI code page.
func (d *Data) AddANSIList(name string, texts ...string) {
	list, size := make([][]byte, len(texts)), 0
	for i, text := range texts {
		ansi, err := toANSI(text, 0)
		if err != nil && d.err == nil {
			d.err = fmt.Errorf("value %q, text %d: %w", name, i, err)
		}
		list[i] = ansi
		size += len(ansi) + 8
	}
	d.add(Value{Name: name, Type: ANSIList, texts: append([]string(nil), texts...), list: list}, size)
}

// At is the value at a position; of type Unknown where there is none.
func (d *Data) At(pos int) Value {
	if pos < 0 || pos >= d.Len() {
		return Value{}
	}
	return d.values[pos]
}

// Find is the position of the first value with a name, or -1.
func (d *Data) Find(name string) int {
	for i := 0; i < d.Len(); i++ {
		if d.values[i].Name == name {
			return i
		}
	}
	return -1
}

// Uint is the number at a position, of 8, 16 or 32 bits. Another program wrote what came: false, and 0, for a value of
// another type or none. So for all that follow.
func (d *Data) Uint(pos int) (uint32, bool) {
	v := d.At(pos)
	return uint32(v.number), v.Type >= Byte && v.Type <= Uint32
}

// Double is the double at a position.
func (d *Data) Double(pos int) (float64, bool) {
	v := d.At(pos)
	if v.Type != Double {
		return 0, false
	}
	return math.Float64frombits(v.number), true
}

// Window is the window handle at a position.
func (d *Data) Window(pos int) (uintptr, bool) {
	v := d.At(pos)
	if v.Type != Window {
		return 0, false
	}
	return uintptr(v.number), true
}

// Bytes are the bytes at a position.
func (d *Data) Bytes(pos int) ([]byte, bool) {
	v := d.At(pos)
	if v.Type != Bytes {
		return nil, false
	}
	return v.bytes, true
}

// Text is the text at a position, ANSI or wide; a null one is "", and At tells.
func (d *Data) Text(pos int) (string, bool) {
	v := d.At(pos)
	return v.text, v.Type == ANSI || v.Type == Wide
}

// TextList are the texts at a position.
func (d *Data) TextList(pos int) ([]string, bool) {
	v := d.At(pos)
	return v.texts, v.Type == ANSIList || v.Type == WideList
}
