#include "papel_hijo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include "cerrojo.h"
#include "informes.h"
#include "sistema.h"
#include "vigilante.h"

namespace {

// What the parent has sent. Never destroyed: the reader's thread runs until the process is gone.
struct buzon {
    cerrojo candado;
    std::deque<std::string> lineas;
    bool cerrado = false;
    HANDLE hay_linea = CreateEventA(nullptr, TRUE, FALSE, nullptr); // set: a line waits, or closed
};

buzon *s_buzon;
cerrojo s_candado_salida;
registro_papel *s_papeles;

struct vigilancia {
    HANDLE padre; // NULL: nobody named a parent
    DWORD limite_ms;
};

void recibe(const std::string &linea)
{
    std::lock_guard<cerrojo> guarda(s_buzon->candado);
    s_buzon->lineas.push_back(descodifica(linea));
    SetEvent(s_buzon->hay_linea);
}

DWORD WINAPI hilo_lector(void *)
{
    HANDLE entrada = GetStdHandle(STD_INPUT_HANDLE);
    std::string pendiente;
    char trozo[1024];
    DWORD num = 0;
    while (ReadFile(entrada, trozo, sizeof trozo, &num, nullptr) && num != 0) {
        pendiente.append(trozo, num);
        for (size_t fin; (fin = pendiente.find('\n')) != std::string::npos; pendiente.erase(0, fin + 1))
            recibe(pendiente.substr(0, fin));
    }
    std::lock_guard<cerrojo> guarda(s_buzon->candado);
    s_buzon->cerrado = true;
    SetEvent(s_buzon->hay_linea);
    return 0;
}

void quejate(const std::string &texto)
{
    std::string linea = "role: " + texto + "\n";
    DWORD num;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), linea.data(), static_cast<DWORD>(linea.size()), &num, nullptr);
}

// Ends the process from outside its own threads: none of them may be able to end any more.
DWORD WINAPI hilo_perro(void *dato)
{
    vigilancia v = *static_cast<vigilancia *>(dato);
    DWORD espera = v.padre != nullptr ? WaitForSingleObject(v.padre, v.limite_ms) : (Sleep(v.limite_ms), WAIT_TIMEOUT);
    bool sin_padre = espera == WAIT_OBJECT_0;
    if (!sin_padre)
        quejate("its time is up");
    TerminateProcess(GetCurrentProcess(), sin_padre ? papel_SALIDA_SIN_PADRE : papel_SALIDA_LIMITE);
    return 0;
}

void arranca_hilo(LPTHREAD_START_ROUTINE funcion, void *dato)
{
    CloseHandle(CreateThread(nullptr, 0, funcion, dato, 0, nullptr));
}

void manda_informe(const datos_informe &i)
{
    papel_hijo yo;
    yo.di("INFORME " + (i.ajeno ? "?|0|" + i.titulo + ": " + i.texto
                                : i.modulo + "|" + std::to_string(i.linea) + "|" + i.expresion));
}

bool lee_opcion(const char *arg, const char *nombre, const char **valor)
{
    size_t largo = strlen(nombre);
    if (strncmp(arg, nombre, largo) != 0)
        return false;
    *valor = arg + largo;
    return true;
}

} // namespace

registro_papel::registro_papel(const char *nombre_papel, funcion_papel funcion_del_papel)
    : nombre(nombre_papel), funcion(funcion_del_papel), siguiente(s_papeles)
{
    s_papeles = this;
}

orden_papel inicia_papel(int argc, char **argv)
{
    static vigilancia v = {nullptr, 100000};
    orden_papel orden;
    for (int i = 1; i < argc; i++) {
        const char *valor;
        if (orden.nombre.empty() && !lee_opcion(argv[i], "--papel=", &valor))
            break; // a role's name comes first
        if (lee_opcion(argv[i], "--papel=", &valor))
            orden.nombre = valor;
        else if (lee_opcion(argv[i], "--padre=", &valor))
            v.padre = OpenProcess(SYNCHRONIZE, FALSE, strtoul(valor, nullptr, 10));
        else if (lee_opcion(argv[i], "--limite=", &valor))
            v.limite_ms = strtoul(valor, nullptr, 10) * 1000;
        else
            orden.args.push_back(descodifica(argv[i]));
    }
    if (orden.nombre.empty())
        return orden;
    s_buzon = new buzon;
    arranca_hilo(hilo_perro, &v);
    arranca_hilo(hilo_lector, nullptr);
    al_informar(manda_informe);
    arranca_vigilante();
    return orden;
}

int ejecuta_papel(const orden_papel &orden)
{
    for (registro_papel *p = s_papeles; p != nullptr; p = p->siguiente) {
        if (orden.nombre != p->nombre)
            continue;
        papel_hijo yo;
        prepara_prueba();
        return p->funcion(yo, orden.args);
    }
    quejate("there is no role \"" + orden.nombre + "\"");
    return papel_SALIDA_DESCONOCIDO;
}

void papel_hijo::di(const std::string &linea)
{
    std::string cable = codifica_linea(linea) + "\n";
    std::lock_guard<cerrojo> guarda(s_candado_salida);
    DWORD num;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), cable.data(), static_cast<DWORD>(cable.size()), &num, nullptr);
}

std::optional<std::string> papel_hijo::escucha(uint32_t ms)
{
    WaitForSingleObject(s_buzon->hay_linea, ms);
    std::lock_guard<cerrojo> guarda(s_buzon->candado);
    if (s_buzon->lineas.empty())
        return std::nullopt;
    std::string linea = s_buzon->lineas.front();
    s_buzon->lineas.pop_front();
    if (s_buzon->lineas.empty() && !s_buzon->cerrado)
        ResetEvent(s_buzon->hay_linea);
    return linea;
}

void papel_hijo::escucha_linea(const std::string &linea, uint32_t ms)
{
    std::optional<std::string> llegada = escucha(ms);
    if (llegada == linea)
        return;
    quejate("expected the line \"" + linea + "\", got " + (llegada ? "\"" + *llegada + "\"" : "none"));
    ExitProcess(1);
}

void *papel_hijo::evento_linea()
{
    return s_buzon->hay_linea;
}
