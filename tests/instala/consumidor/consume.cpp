// The same in C++, with what C++ has for it, and with the C++ header where it is installed.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <ivrexa.h>
#include <ivrexa_mcbase.h>

#if __has_include(<ivrexa.hpp>)
#include <ivrexa.hpp>
static_assert(static_cast<int>(ivrexa::result::ok) == ivrexa_resultado_OK);
#endif

namespace {

using datos_comando = std::unique_ptr<comdat, decltype(&ivrexa_destruye_datos_comando)>;

// Nobody asks for a command.
std::int32_t procesa(const char *, std::uint32_t, comando *, void *)
{
    return ivrexa_resultado_ERROR;
}

bool ida_y_vuelta()
{
    datos_comando datos(ivrexa_crea_datos_comando_salida("Consumidor"), ivrexa_destruye_datos_comando);
    ivrexa_graba_ulong(datos.get(), "a", 40);
    ivrexa_graba_cadena_ansi(datos.get(), "nombre", "mundo");
    datos_comando leidos(ivrexa_lee_datos("Consumidor", ivrexa_guarda_datos(datos.get()), FALSO),
                         ivrexa_destruye_datos_comando);
    const auto a = ivrexa_dame_ulong(leidos.get(), 0);
    const char *nombre = ivrexa_dame_cadena_ansi(leidos.get(), 1);
    std::printf("a=%u nombre=%s\n", static_cast<unsigned>(a), nombre != nullptr ? nombre : "(none)");
    return a == 40 && nombre != nullptr && std::string(nombre) == "mundo";
}

} // namespace

int main()
{
    ivrexa_registra_servidor("consume.exe", nullptr, "Consumidor", 1, nullptr, procesa);
    ivrexa_terminado_registro();
    const bool bien = ida_y_vuelta();
    ivrexa_cierra_sesion();
    return bien ? 0 : 1;
}
