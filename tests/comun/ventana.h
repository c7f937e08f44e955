// ventana.h - windows and message loops for tests and roles. A program that uses this has user32 loaded from
// its start.
#ifndef COMUN_VENTANA_H
#define COMUN_VENTANA_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "papel_hijo.h"
#include "sistema.h"

enum class bombeo {
    cumplido, // the condition came true
    quit,     // WM_QUIT was taken from the queue
    tarde,    // the time ran out
};

// A top-level overlapped Unicode window that is not shown, of a class of its own. Gone with the thread, or
// when destroyed.
HWND crea_ventana(WNDPROC proc = DefWindowProcW);
void destruye_ventana(HWND *hwnd);

// Dispatches this thread's messages until the condition holds (looked at after each message, and every 5 ms).
bombeo bombea_hasta(const std::function<bool()> &condicion, uint32_t ms);

bombeo bombea_hasta_quit(uint32_t ms); // quit, or tarde

// Dispatches messages until the parent's next line. Nothing on WM_QUIT, when time runs out or the parent is
// gone.
std::optional<std::string> bombea_hasta_linea(papel_hijo &yo, uint32_t ms);

#endif
