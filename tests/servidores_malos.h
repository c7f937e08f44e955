// servidores_malos.h - roles: servers that a client meets on bad days. For one source of a test program.
#ifndef SERVIDORES_MALOS_H
#define SERVIDORES_MALOS_H

#include <windows.h>
#include <stdint.h>

#include <string>

#include "ivrexa.h"
#include "papel_hijo.h"

// Ends its process at once, inside the command.
static int32_t cae(const char *, uint32_t, comando *, void *)
{
    TerminateProcess(GetCurrentProcess(), 9);
    return ivrexa_resultado_OK;
}

static int32_t contesta_un_numero(const char *, uint32_t, comando *, void *numero)
{
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(numero));
}

// OK with output, where each value is of another type than clients expect.
static int32_t contesta_otra_cosa(const char *servicio, uint32_t id_comando, comando *contexto, void *)
{
    wchar_t texto1[64], texto2[256], texto3[256];
    ivrexa_get_datos_entrada_comando(servicio, id_comando, nullptr, texto1, texto2, texto3);
    contexto->datos_salida = ivrexa_crea_datos_comando_salida(servicio);
    for (const char *nombre : {"suma", "saludo", "bytes"})
        ivrexa_graba_byte(contexto->datos_salida, nombre, 1);
    ivrexa_set_datos_salida_comando(servicio, id_comando, ivrexa_guarda_datos(contexto->datos_salida), texto1, texto2,
                                    texto3);
    return ivrexa_resultado_OK;
}

// Serves with one function until the session's last message. Version 3, unless another is given.
static int sirve(papel_hijo &yo, const std::string &servicio, bool con_ventana, ivrexa_funcion_comando funcion,
                 intptr_t dato = 0, uint16_t version = 3)
{
    HWND hwnd = nullptr;
    if (con_ventana)
        hwnd = CreateWindowExA(0, "STATIC", "", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
    std::string ruta = "papel_" + std::to_string(GetCurrentProcessId());
    ivrexa_registra_servidor(ruta.c_str(), hwnd, servicio.c_str(), version, reinterpret_cast<void *>(dato), funcion);
    ivrexa_terminado_registro();
    yo.di("LISTO");
    MSG msg;
    while (con_ventana && GetMessageW(&msg, nullptr, 0, 0) > 0)
        DispatchMessageW(&msg);
    ivrexa_espera_comando_terminar_servidor();
    ivrexa_cierra_sesion();
    return 0;
}

PAPEL(cae_con_ventana)
{
    return sirve(yo, args[0], true, cae);
}
PAPEL(cae_sin_ventana)
{
    return sirve(yo, args[0], false, cae);
}
PAPEL(da_un_numero)
{
    return sirve(yo, args[0], true, contesta_un_numero, std::stoi(args[1]));
}
PAPEL(da_otra_cosa)
{
    return sirve(yo, args[0], true, contesta_otra_cosa);
}
PAPEL(de_otra_version)
{
    return sirve(yo, args[0], true, contesta_un_numero, 1, 4);
}

#endif
