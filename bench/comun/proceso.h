// proceso.h - the other processes of a measurement: children of this program that play a role.
//
// A child is `banco.exe --papel CLAVE --sesion SESION`. It says when it is ready, serves until it is asked to end, and
// ends with 0. One whose parent ends ends itself. How long a child may take to be ready and to end has a bound; how
// long it may take to answer has none in most rows, as the calls of their users have none: a server that is stuck stops
// the run, which scripts/bench bounds as a whole.
#ifndef BANCO_PROCESO_H
#define BANCO_PROCESO_H

#include <windows.h>

#include <memory>
#include <string>

namespace banco {

const DWORD LIMITE_MS = 60000; // for a child to be ready, and to end

// The parent's side. The destructor asks the child to end and waits; one that does not is ended.
class hijo {
public:
    hijo(const std::string &papel, const std::string &sesion); // returns once the child is ready
    ~hijo();
    hijo(const hijo &) = delete;
    hijo &operator=(const hijo &) = delete;
    DWORD id() const { return id_; }
    void termina(); // asks, waits, and throws where the child did not end with 0
    void mata();    // ends it at once: for one that would not hear it is asked
private:
    void suelta_handles();

    HANDLE proceso_ = nullptr;
    HANDLE listo_ = nullptr;
    HANDLE fin_ = nullptr;
    DWORD id_ = 0;
};

// ---- The child's side

// What main found on the command line, each a handle in hexadecimal digits. First of all. Throws where they are none.
void papel_recibe(const std::string &padre, const std::string &listo, const std::string &fin);

// Tells the parent that this child serves. From now on a request to end reaches this thread as WM_QUIT, once it has a
// message queue, and everybody as the event.
void papel_listo();
HANDLE papel_fin();         // set when this child is to end
int papel_bucle_mensajes(); // GetMessage and DispatchMessage until WM_QUIT

// ---- Both

std::string sesion_nueva();               // a text no other run has: letters and digits, at most 16
int ultima_cpu();                         // of those on which this process may run
void fija_cpu(int cpu);                   // this process, and its children, to one processor
[[noreturn]] void falla(const char *que); // throws, with the system's last error
[[noreturn]] void falla(const char *que, DWORD error);

// A window that nobody sees, top-level, with that title; and the one that has it. Both throw.
HWND crea_ventana(const std::string &titulo, WNDPROC procedimiento);
HWND busca_ventana(const std::string &titulo);

// Opens the mapping of `tam` bytes with that name, made if it is not there. Never unmapped
// nor closed: it is there for as long as this process.
void *mapea(const std::string &nombre, size_t tam);

} // namespace banco

#endif
