// iv_mem_apoyo.h - what the tests of the heap share.
#ifndef IV_MEM_APOYO_H
#define IV_MEM_APOYO_H

#include <cstdint>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/monton.h"
#include "comun/util.h"

inline const char *const CERROJO = "ivrexa_iv_mem";

inline std::string en_texto(const void *direccion)
{
    return std::to_string(reinterpret_cast<uint64_t>(direccion));
}

inline std::vector<uint8_t> bytes_de(const void *memlocal, uint32_t num)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(memlocal);
    return {bytes, bytes + num};
}

// Nobody holds the heap's lock, or not for long: other programs of the desktop use it as well.
inline bool cerrojo_queda_libre()
{
    mutex_crudo cerrojo(CERROJO);
    return espera_hasta([&] { return cerrojo.libre(); }, 5000);
}

#endif
