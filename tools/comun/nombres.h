// nombres.h - what the tools know of the library's shared objects by heart: their names, and how long it is patient.
#ifndef HERRAMIENTAS_NOMBRES_H
#define HERRAMIENTAS_NOMBRES_H

#include <cstdint>
#include <string>

namespace herramientas {

inline const char *const NOMBRE_REGISTRO = "Ivrexa_MCB";
inline const char *const NOMBRE_MUTEX_REGISTRO = "Ivrexa_Mutex_MCB";
inline const char *const NOMBRE_MENSAJE_MONITOR = "Ivrexa_Monitor_MSG";
inline const char *const PREFIJO_CANAL = "Ivrexa_MCB_Serv_"; // a service's name follows
inline const char *const COLA_DATOS = "_Com__comdat";        // a block's number follows

inline std::string nombre_de_canal(const std::string &servicio_ansi)
{
    return PREFIJO_CANAL + servicio_ansi;
}

inline std::string nombre_de_datos(const std::string &servicio_ansi, uint32_t id_bloque_MCCom)
{
    std::string numero = id_bloque_MCCom != 0 ? std::to_string(id_bloque_MCCom) : ""; // as the library names them
    return nombre_de_canal(servicio_ansi) + COLA_DATOS + numero;
}

// A heartbeat comes every 2000 ms. Who begins to wait for another gives it up after 26 rounds of 100 ms without one.
constexpr uint64_t SIN_LATIDO_MS = 2600;

} // namespace herramientas

#endif
