#include "ivrexa_comun.h"

#include "../comun/medida.h"

#include <windows.h>

#include <stdexcept>

namespace banco {

std::string ivrexa_servicio(const std::string &sesion)
{
    const size_t TAM_SESION = 16;
    return "Banco" + sesion + std::string(TAM_SESION - sesion.size(), '_');
}

std::string ivrexa_programa(const std::string &sesion)
{
    return "banco_" + sesion + ".exe";
}

// ---- Server

comdat *ivrexa_contesta(const char *servicio, uint32_t id_comando, comdat *entrada)
{
    if (entrada == nullptr)
        return nullptr;
    uint32_t tam = 0;
    const char *texto = ivrexa_dame_cadena_ansi(entrada, 0);
    uint32_t numero = ivrexa_dame_ulong(entrada, 1);
    ivrexa_dame_double(entrada, 2);
    const void *buffer = ivrexa_dame_buffer(entrada, 3, &tam);
    char al_reves[64];
    invierte(texto != nullptr ? texto : "", al_reves, sizeof al_reves);

    comdat *salida = ivrexa_crea_datos_comando_salida(servicio);
    ivrexa_graba_ulong(salida, "number", numero + 1);
    ivrexa_graba_cadena_ansi(salida, "text", al_reves);
    ivrexa_graba_buffer(salida, "buffer", buffer, tam);
    uint32_t id_salida = ivrexa_guarda_datos(salida);
    ivrexa_set_datos_salida_comando(servicio, id_comando, id_salida, nullptr, nullptr, nullptr);
    return salida;
}

int32_t ivrexa_procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *)
{
    contexto->datos_salida = ivrexa_contesta(servicio, id_comando, contexto->datos_entrada);
    return contexto->datos_salida != nullptr ? ivrexa_resultado_OK : ivrexa_resultado_ERROR;
}

// ---- Client

static int s_conectados = 0; // rows that use this program's registration
static double s_registrado;  // when it began

void ivrexa_cliente::conecta(const std::string &sesion)
{
    if (s_conectados++ == 0)
        s_registrado = ahora();
    servicio_ = ivrexa_servicio(sesion);
    ivrexa_registra_cliente_de_servicio("banco_cliente.exe", nullptr, servicio_.c_str());
}

// The first heartbeat comes 2 s after the registration. A server without a window may take a client without one for
// dead, and end.
void ivrexa_cliente::espera_latido()
{
    const double PRIMER_LATIDO = 2.5;
    double faltan = s_registrado + PRIMER_LATIDO - ahora();
    if (faltan > 0)
        Sleep(static_cast<DWORD>(faltan * 1000) + 1);
}

void ivrexa_cliente::suelta_salida()
{
    if (salida_ != nullptr)
        ivrexa_destruye_datos_comando(salida_);
    salida_ = nullptr;
}

void ivrexa_cliente::pide(const peticion &peticion, respuesta *respuesta)
{
    suelta_salida();
    const char *servicio = servicio_.c_str();
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_cadena_ansi(entrada, "text", peticion.texto);
    ivrexa_graba_ulong(entrada, "number", peticion.numero);
    ivrexa_graba_double(entrada, "real", peticion.real);
    ivrexa_graba_buffer(entrada, "buffer", peticion.buffer, peticion.tam);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada);
    uint32_t id_salida = 0;
    uint32_t resultado = ivrexa_ejecuta_comando(servicio, peticion.id_comando, 0, id_entrada, nullptr, nullptr, nullptr,
                                                &id_salida, nullptr, nullptr, nullptr);
    ivrexa_destruye_datos_comando(entrada);
    if (resultado != ivrexa_resultado_OK)
        throw std::runtime_error(servicio_ + ": the command gave " + std::to_string(resultado));
    salida_ = ivrexa_lee_datos(servicio, id_salida, FALSO);
    if (salida_ == nullptr)
        throw std::runtime_error(servicio_ + ": the answer has no data");

    respuesta->numero = ivrexa_dame_ulong(salida_, 0);
    const char *texto = ivrexa_dame_cadena_ansi(salida_, 1);
    respuesta->texto = texto != nullptr ? texto : "";
    respuesta->tam = 0;
    respuesta->buffer = static_cast<const uint8_t *>(ivrexa_dame_buffer(salida_, 2, &respuesta->tam));
}

void ivrexa_cliente::desconecta()
{
    suelta_salida();
    if (--s_conectados == 0)
        ivrexa_cierra_sesion();
}

} // namespace banco
