// monitor.cpp - the desktop's monitor: prints what all programs do, until one service is closed or Ctrl-C.
//
//     monitor [SERVICE]               first, in one console; the service is "Ejemplo" if you name none
//     servidor_consola [SERVICE]      or any other server, in another
//     cliente [SERVICE]               in a third
//
// The first, because a monitor that registers empties the desktop's table of services. There is only one.
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <windows.h>
#include "ivrexa.h"

struct vista {
    std::string hasta;                                                   // whose end is ours
    std::map<const char *, std::string> nombres;                         // by their place in the registry
    std::map<std::pair<std::string, const datServ *>, uint32_t> esperas; // the last state of each side
};
static DWORD s_hilo_principal;

// A service that was closed has no name in the registry any more: the one it had is remembered by its place.
// Others write there too: never read beyond the field's 64 bytes.
static std::string nombre_de(vista *v, const char *nombre)
{
    if (nombre[0] != '\0')
        v->nombres[nombre] = std::string(nombre, strnlen(nombre, iv_mcbase_TAM_NOMBRE_SERVICIO));
    return v->nombres[nombre];
}

// The activity function. What one side saves the other opens.
static void actividad(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador, const char *nombre_servicio,
                      uint32_t dato1, uint32_t dato2, void *datos)
{
    static const char *const textos[5][2] = {{"?", "?"},
                                             {"service closed", "service offered"},
                                             {"command ends", "command begins"},
                                             {"input opened", "input saved"},
                                             {"output saved", "output opened"}};
    vista *v = static_cast<vista *>(datos);
    std::string nombre = nombre_de(v, nombre_servicio);
    bool segundo = tipo_actividad <= 2 ? indicador == 1 : tipo_programa == 1;
    std::string linea = textos[tipo_actividad <= 4 ? tipo_actividad : 0][segundo];
    linea += dato1 != 0 ? ", command " + std::to_string(dato1) : "";
    linea += dato2 != 0 ? ", block " + std::to_string(dato2) : "";
    printf("%s %s: %s\n", tipo_programa == 0 ? "server" : "client", nombre.c_str(), linea.c_str());
    if (tipo_actividad == 1 && indicador == 0 && v->hasta == nombre)
        PostQuitMessage(0);
}

// Somebody waits. That is told every 100 ms; what is new is another state than the last.
static void espera(void *datos, const char *lado, const datServ *servicio, uint32_t estado, const char *que)
{
    vista *v = static_cast<vista *>(datos);
    uint32_t *ultimo = &v->esperas[{lado, servicio}];
    if (*ultimo != estado)
        printf("%s %s: waits %s\n", lado, nombre_de(v, servicio->nombre).c_str(), que);
    *ultimo = estado;
}

// The loop functions, for the waits of clients and of servers.
static void bucle_cliente(const iv_mcbase_t *, const datServ *servicio, uint32_t estado, void *datos)
{
    static const char *const textos[] = {"?", "until no other client uses the service",
                                         "until the server has taken the command", "until it has finished",
                                         "until the server has seen the receipt"};
    espera(datos, "client", servicio, estado, textos[estado <= 4 ? estado : 0]);
}

static void bucle_servidor(const iv_mcbase_t *, const datServ *servicio, uint32_t estado, void *datos)
{
    espera(datos, "server", servicio, estado, estado == 1 ? "for a command" : "until the client has the result");
}

static BOOL WINAPI al_interrumpir(DWORD suceso)
{
    return suceso == CTRL_C_EVENT && PostThreadMessageW(s_hilo_principal, WM_QUIT, 0, 0);
}

int main(int argc, char **argv)
{
    if (argc > 2) {
        fprintf(stderr, "usage: monitor [SERVICE]\n");
        return 2;
    }
    setvbuf(stdout, nullptr, _IONBF, 0); // each line at once, also into a pipe
    HWND hwnd = CreateWindowExA(0, "STATIC", "monitor", WS_POPUP, 0, 0, 1, 1, NULL, NULL, NULL, NULL);
    s_hilo_principal = GetCurrentThreadId();
    SetConsoleCtrlHandler(al_interrumpir, TRUE);
    vista v{argc > 1 ? argv[1] : "Ejemplo", {}, {}};
    ivrexa_registra_monitor(hwnd, actividad, bucle_cliente, bucle_servidor, &v);
    printf("ready: until %s is closed, or Ctrl-C\n", v.hasta.c_str());
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) // the functions above are called in here
        DispatchMessageW(&msg);
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr); // closing the session does not
    ivrexa_cierra_sesion();
    return 0;
}
