// monitor.cpp - the desktop's monitor: prints what all programs do, until one service was closed.
//
//     monitor SERVICE
//
// Start it first: registering a monitor empties the desktop's table of services.
#include <cstdio>
#include <map>
#include <string>

#include <windows.h>

#include "ivrexa.h"

struct vista {
    std::string hasta;                                                      // whose end is ours
    std::map<const char *, std::string> nombres;                            // by their place in the registry
    std::map<std::pair<std::string, const datServ *>, uint32_t> esperas;    // the last state of each side
};

// A service that was closed has no name in the registry any more: the one it had is remembered by its place.
static const char *nombre_de(vista *v, const char *nombre)
{
    if (nombre[0] != '\0')
        v->nombres[nombre] = nombre;
    return v->nombres[nombre].c_str();
}

// What one side saves the other opens.
static const char *describe(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador)
{
    if (tipo_actividad == 1)
        return indicador == 1 ? "service offered" : "service closed";
    if (tipo_actividad == 2)
        return indicador == 1 ? "command begins" : "command ends";
    if (tipo_actividad == 3)
        return tipo_programa == 0 ? "input opened" : "input saved";
    return tipo_programa == 0 ? "output saved" : "output opened";
}

// The activity function.
static void actividad(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador,
                      const char *nombre_servicio, uint32_t dato1, uint32_t dato2, void *datos)
{
    vista *v = static_cast<vista *>(datos);
    const char *nombre = nombre_de(v, nombre_servicio);
    std::string linea = describe(tipo_programa, tipo_actividad, indicador);
    linea += dato1 != 0 ? ", command " + std::to_string(dato1) : "";
    linea += dato2 != 0 ? ", block " + std::to_string(dato2) : "";
    printf("%s %s: %s\n", tipo_programa == 0 ? "server" : "client", nombre, linea.c_str());
    if (tipo_actividad == 1 && indicador == 0 && v->hasta == nombre)
        PostQuitMessage(0);
}

// Somebody waits. That is told every 100 ms; what is new is another state than the last.
static void espera(void *datos, const char *lado, const datServ *servicio, uint32_t estado, const char *que)
{
    vista *v = static_cast<vista *>(datos);
    uint32_t *ultimo = &v->esperas[{lado, servicio}];
    if (*ultimo != estado)
        printf("%s %s: waits %s\n", lado, nombre_de(v, servicio->nombre), que);
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
    espera(datos, "server", servicio, estado,
           estado == 1 ? "for a command" : "until the client has the result");
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: monitor SERVICE\n");
        return 2;
    }
    setvbuf(stdout, nullptr, _IONBF, 0);
    HWND hwnd = CreateWindowExA(0, "STATIC", "monitor", WS_POPUP, 0, 0, 10, 10, NULL, NULL, NULL, NULL);
    vista v;
    v.hasta = argv[1];
    ivrexa_registra_monitor(hwnd, actividad, bucle_cliente, bucle_servidor, &v);
    printf("LISTO\n");

    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0)
        DispatchMessageW(&msg);

    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    ivrexa_cierra_sesion();
    return 0;
}
