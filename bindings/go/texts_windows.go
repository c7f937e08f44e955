package ivrexa

import (
	"fmt"
	"syscall"
	"unicode/utf16"
	"unicode/utf8"
	"unsafe"
)

var (
	kernel32                = syscall.NewLazyDLL("kernel32.dll")
	procGetACP              = kernel32.NewProc("GetACP")
	procWideCharToMultiByte = kernel32.NewProc("WideCharToMultiByte")
	procMultiByteToWideChar = kernel32.NewProc("MultiByteToWideChar")
)

const (
	codePageUTF8   = 65001
	noBestFitChars = 0x400
)

// toWide makes a text of UTF-16 and its NUL. What is no UTF-8, and a NUL inside, is refused, and so is a text of more
// than longest units; 0 is no limit.
func toWide(text string, longest int) ([]uint16, error) {
	if !utf8.ValidString(text) {
		return nil, fmt.Errorf("%w: %q is no UTF-8", ErrText, text)
	}
	units := utf16.Encode([]rune(text))
	for _, unit := range units {
		if unit == 0 {
			return nil, fmt.Errorf("%w: %q has a NUL inside", ErrText, text)
		}
	}
	if longest != 0 && len(units) > longest {
		return nil, fmt.Errorf("%w: %q has %d characters, and %d is the most", ErrText, text, len(units), longest)
	}
	return append(units, 0), nil
}

// fromWide takes the units before the first NUL.
func fromWide(units []uint16) string {
	for i, unit := range units {
		if unit == 0 {
			units = units[:i]
			break
		}
	}
	return string(utf16.Decode(units))
}

// toANSI makes a text of the system's ANSI code page and its NUL. A character that the code page lacks is refused.
func toANSI(text string, longest int) ([]byte, error) {
	wide, err := toWide(text, 0)
	if err != nil {
		return nil, err
	}
	ansi := make([]byte, 4*len(wide))
	n, lost := uintptr(0), int32(0)
	page, _, _ := procGetACP.Call()
	if page == codePageUTF8 {
		n = uintptr(copy(ansi, text))
	} else if text != "" {
		n, _, _ = procWideCharToMultiByte.Call(page, noBestFitChars, uintptr(unsafe.Pointer(&wide[0])),
			uintptr(len(wide)-1), uintptr(unsafe.Pointer(&ansi[0])), uintptr(len(ansi)), 0,
			uintptr(unsafe.Pointer(&lost)))
	}
	if lost != 0 || (n == 0 && text != "") {
		return nil, fmt.Errorf("%w: %q is not all in the ANSI code page %d", ErrText, text, page)
	}
	if longest != 0 && int(n) > longest {
		return nil, fmt.Errorf("%w: %q has %d ANSI characters, and %d is the most", ErrText, text, n, longest)
	}
	return ansi[:n+1], nil
}

// fromANSI takes the bytes before the first NUL.
func fromANSI(ansi []byte) string {
	for i, b := range ansi {
		if b == 0 {
			ansi = ansi[:i]
			break
		}
	}
	if len(ansi) == 0 {
		return ""
	}
	page, _, _ := procGetACP.Call()
	wide := make([]uint16, len(ansi)) // never more characters than bytes
	n, _, _ := procMultiByteToWideChar.Call(page, 0, uintptr(unsafe.Pointer(&ansi[0])), uintptr(len(ansi)),
		uintptr(unsafe.Pointer(&wide[0])), uintptr(len(wide)))
	return string(utf16.Decode(wide[:n]))
}

// ansiAt copies a text of the library's. In an array there is none where the writer put it outside the content: "".
func ansiAt(text *byte) string {
	return fromANSI(copyANSI(text))
}

// wideAt copies a wide text of the library's, which may lie at an odd address.
func wideAt(text unsafe.Pointer) string {
	var units []uint16
	for i := 0; ; i += 2 {
		unit := uint16(*(*byte)(unsafe.Add(text, i))) | uint16(*(*byte)(unsafe.Add(text, i+1)))<<8
		if unit == 0 {
			return string(utf16.Decode(units))
		}
		units = append(units, unit)
	}
}

// Texts are the three texts that go with a command and come back with its answer.
// The first has at most 63 characters, the others 255, counted in UTF-16.
type Texts [3]string

var longestText = [3]int{63, 255, 255}

// wide makes the texts as the library takes them; nil is an empty one.
func (t Texts) wide() (texts [3]*uint16, err error) {
	for i, text := range t {
		if text == "" {
			continue
		}
		wide, err := toWide(text, longestText[i])
		if err != nil {
			return texts, fmt.Errorf("text %d: %w", i+1, err)
		}
		texts[i] = &wide[0]
	}
	return texts, nil
}

// textBuffers is where the library writes three texts.
type textBuffers struct {
	first         [64]uint16
	second, third [256]uint16
}

func (b *textBuffers) texts() Texts {
	return Texts{fromWide(b.first[:]), fromWide(b.second[:]), fromWide(b.third[:])}
}
