// vigilante.h - the thread that finds, notes and closes the message boxes of this process.
//
// It does nothing until the process has loaded user32, and does not load it: a test can still see whether the
// library does. From then on it hears of each window made (an event hook), looks closely while a dialog box
// is being made, and looks through the windows ten times a second besides. It notes every visible dialog box
// (class "#32770") of this process once, and closes it.
#ifndef COMUN_VIGILANTE_H
#define COMUN_VIGILANTE_H

#include <cstdint>

void arranca_vigilante(); // once per process; further calls do nothing

// Waits until the thread has set itself up for a window system that is loaded. True at once if none is
// loaded.
bool vigilante_en_reposo(uint32_t ms);

#endif
