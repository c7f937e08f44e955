// vigia.h - the desktop's monitor, as the two tools are it: events in order, with what was lost between them.
//
// The library hands an activity's fields to a callback when the window's message is dispatched: what the ring holds by
// then, and it has room for 63. So the messages are taken before the library sees them, all that wait at once, and the
// ring is read from the first activity that was not told yet: what is still there is told, each once and in order, and
// what was overwritten is told as a gap. Messages that a full queue refused cost nothing as long as the ring holds
// their activities.
//
// How many were written is known modulo 63, from the number of the next one. Laps are told by a thread that looks at it
// every millisecond, and by the number of messages, so it takes both to miss one: 63 written between two looks of that
// thread while more than 31 messages are missing, in a queue that is full (10,000 on Windows). What was written over
// then is not counted as lost; nothing is told twice. Messages are taken as they come: 32 that another program forged
// make a lap that there was not, told as 63 lost. An activity whose writer died in the middle of it is told with what
// its record holds.
#ifndef HERRAMIENTAS_VIGIA_H
#define HERRAMIENTAS_VIGIA_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <windows.h>

namespace herramientas {

enum class lado : uint8_t { servidor, cliente, monitor, otro };
enum class clase : uint8_t { servicio, comando, entrada, salida, espera, hueco, otra };

struct suceso {
    uint64_t numero = 0;     // counts from 1 in this session, gaps and waits included
    uint64_t hora_100ns = 0; // FILETIME, local clock's UTC
    lado quien = lado::otro;
    clase que = clase::otra;
    bool empieza = false; // indicador 1
    std::string servicio; // UTF-8; remembered when the registry's is empty by now
    std::string servicio_ansi;
    uint32_t id_comando = 0; // 0 = none
    uint32_t id_bloque = 0;  // 0 = none
    uint32_t estado = 0;     // of a wait: the loop state
    uint64_t perdidos = 0;   // of a gap: how many activities
};

// "service offered", "command begins", "input saved", "waits until ...", "12 activities lost": for people.
std::string describe(const suceso &s);
const char *nombre_lado(lado l);             // "server", "client", "monitor", "?"
const char *nombre_clase(clase c);           // "service", "command", "input", "output", "wait", "gap", "?"
uint64_t ahora_100ns();                      // FILETIME of now, as exact as the system tells it
std::string hora_local(uint64_t hora_100ns); // "16:22:30.123"
std::string hora_iso(uint64_t hora_100ns);   // "2026-11-21T16:22:30.123Z"

// A monitor that lives: 0 = none. What registering would take: the names in the service table.
uint32_t pid_de_otro_monitor();
std::vector<std::string> servicios_que_se_borran();

// Makes `hwnd`, a window of the calling thread, the desktop's monitor; `dime` is called for each event on that thread,
// in its message loop, and must not end the vigia. A wait is told once, not in each round: again only once a command of
// the service has ended, or after two seconds without it. One at a time in a process. The destructor unregisters, but
// where another program has become the monitor.
//
// Limits. The library unregisters whoever is the monitor: a program that registers between the destructor's look and
// its call loses its place. The window's procedure is replaced by ours, and there is one place to keep it in: where
// somebody replaces ours in turn and stays behind the vigia's end, another vigia on the same window would call itself.
class vigia {
public:
    vigia(HWND hwnd, std::function<void(const suceso &)> dime);
    ~vigia();
    vigia(const vigia &) = delete;
    vigia &operator=(const vigia &) = delete;
    uint64_t num_actividades() const; // written in all since registration; no more than that, till all is told
    uint64_t num_perdidas() const;
    bool sigue_siendo_monitor() const; // no other program took its place

    struct estado;

private:
    std::unique_ptr<estado> m;
};

} // namespace herramientas

#endif
