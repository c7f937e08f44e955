// ctl_cliente_apoyo.h - servers for ivrexactl's call and end, and the registry as bytes. The test's own process never
// calls the library. For one source file of a program: it defines the roles "servidor" and "cliente"; dll_anfitrion.h
// says what they obey.
#ifndef CTL_CLIENTE_APOYO_H
#define CTL_CLIENTE_APOYO_H

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/util.h"
#include "comun/ventana.h"

#include "dll_anfitrion.h"
#include "herramienta.h"

[[maybe_unused]] static const char *const CLASES[] = {"ventana", "sin_ventana", "net"};

enum : uint32_t { CTL_PLAZO_MS = 30000 };

// ---- The registry

inline size_t en_programa(size_t i, size_t campo)
{
    return 1430 + i * 274 + campo;
}

inline size_t en_servicio(size_t j, size_t campo)
{
    return 5814 + j * 96 + campo;
}

// Place of the program whose name contains this, 16 for none.
inline size_t busca_programa(const std::string &parte)
{
    bloque_crudo registro("Ivrexa_MCB");
    for (size_t i = 0; registro.abierto() && i < 16; i++)
        if (registro.texto(en_programa(i, 0), 256).find(parte) != std::string::npos)
            return i;
    return 16;
}

inline size_t busca_servicio(const std::string &servicio)
{
    bloque_crudo registro("Ivrexa_MCB");
    for (size_t j = 0; registro.abierto() && j < 32; j++)
        if (registro.texto(en_servicio(j, 0), 64) == servicio)
            return j;
    return 32;
}

// All of it but what moves by itself, heartbeats, and what a name that was cleared by its first byte leaves behind. (A
// server without a window counts its rounds there, too.)
inline std::vector<uint8_t> tablas()
{
    bloque_crudo registro("Ivrexa_MCB");
    std::vector<uint8_t> bytes = registro.bytes(0, 8886);
    for (size_t i = 0; i < 16; i++) {
        uint8_t *programa = bytes.data() + en_programa(i, 0);
        memset(programa + strnlen(reinterpret_cast<char *>(programa), 255), 0,
               256 - strnlen(reinterpret_cast<char *>(programa), 255));
        memset(programa + 270, 0, 4);
    }
    return bytes;
}

inline std::vector<uint8_t> programas_en_tabla()
{
    std::vector<uint8_t> bytes = tablas();
    return {bytes.begin() + 1430, bytes.begin() + 5814};
}

inline std::string nombre_canal(const std::string &servicio)
{
    return "Ivrexa_MCB_Serv_" + servicio;
}

// Fills the free entries with programs that live, as far as anybody can tell: their window is the desktop's.
inline void llena_programas()
{
    bloque_crudo registro("Ivrexa_MCB");
    for (size_t i = 0; i < 16; i++) {
        if (registro.u16(en_programa(i, 0)) % 256 != 0)
            continue;
        registro.pon_texto(en_programa(i, 0), "lleno" + std::to_string(i));
        registro.pon_u64(en_programa(i, 256), reinterpret_cast<uint64_t>(GetDesktopWindow()));
    }
}

inline void llena_servicios()
{
    bloque_crudo registro("Ivrexa_MCB");
    for (size_t j = 0; j < 32; j++)
        if (registro.u16(en_servicio(j, 0)) % 256 == 0)
            registro.pon_texto(en_servicio(j, 0), "lleno" + std::to_string(j));
}

// ---- Roles

PAPEL(servidor)
{
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

PAPEL(cliente)
{
    return anfitrion_cliente(args[0].c_str(), args[1].c_str());
}

class ctl_cliente : public ::testing::Test {
protected:
    papel arranca(const std::string &clase) const { return arranca_papel("servidor", {clase, m_servicio}); }
    const std::string &servicio() const { return m_servicio; }
    bloque_crudo canal() const { return bloque_crudo(nombre_canal(m_servicio).c_str()); }

private:
    const std::string m_servicio = nombre_unico("serv");
};

inline void acaba(papel &p)
{
    p.di("ACABA");
    EXPECT_EQ(p.espera_fin(15000), 0u);
}

// Returns just after a heartbeat of that program: the next is 2 s away.
inline void espera_latido_nuevo(const papel &p)
{
    size_t i = busca_programa("papel_" + std::to_string(p.pid()));
    ASSERT_LT(i, 16u);
    bloque_crudo registro("Ivrexa_MCB");
    uint32_t antes = registro.u32(en_programa(i, 270));
    EXPECT_TRUE(espera_hasta([&] { return registro.u32(en_programa(i, 270)) != antes; }, 10000));
}

inline bool contiene(const std::string &texto, const std::string &parte)
{
    return texto.find(parte) != std::string::npos;
}

#endif
