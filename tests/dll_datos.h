// dll_datos.h - what the tests of command data on the exports share: containers that end with the test, one
// content with a value of nearly every type, and the role "vecino", which makes, holds and shows blocks
// without the library.
#ifndef DLL_DATOS_H
#define DLL_DATOS_H

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/informes.h"
#include "comun/lineas.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "ivrexa.h"

using bytes = std::vector<uint8_t>;

inline const char *const NULO = "(comdat) != 0";

struct destructor_comdat {
    void operator()(comdat *c) const { ivrexa_destruye_datos_comando(c); }
};
using contenedor = std::unique_ptr<comdat, destructor_comdat>;

inline contenedor entrada(const std::string &servicio)
{
    return contenedor(ivrexa_crea_datos_comando_entrada(servicio.c_str()));
}

inline contenedor salida(const std::string &servicio)
{
    return contenedor(ivrexa_crea_datos_comando_salida(servicio.c_str()));
}

inline contenedor lee(const std::string &servicio, uint32_t id, int16_t es_entrada = 1)
{
    return contenedor(ivrexa_lee_datos(servicio.c_str(), id, es_entrada));
}

inline std::string nombre_canal(const std::string &servicio)
{
    return "Ivrexa_MCB_Serv_" + servicio;
}

inline std::string nombre_datos(const std::string &servicio, uint32_t id)
{
    return nombre_canal(servicio) + "_Com__comdat" + std::to_string(id);
}

inline ivrexa_hwnd hwnd_de(uint64_t valor)
{
    return reinterpret_cast<ivrexa_hwnd>(valor);
}

inline void graba_todos(comdat *c)
{
    const char *textos[] = {"un", nullptr, "dos"};
    ivrexa_graba_byte(c, "a", 0x2A);
    ivrexa_graba_ushort(c, "b", 0x1234);
    ivrexa_graba_ulong(c, "c", 0x12345678);
    ivrexa_graba_double(c, "d", 1.5);
    ivrexa_graba_hwnd(c, "e", hwnd_de(0x1122334455667788));
    ivrexa_graba_buffer(c, "f", "\xA1\xA2\xA3", 3);
    ivrexa_graba_cadena_ansi(c, "g", "hola");
    ivrexa_graba_cadena_unicode(c, "h", L"\u00E1\u4E2D");
    ivrexa_graba_arr_cadenas_ansi(c, "i", textos, 3);
    ivrexa_graba_cadena_ansi(c, "j", nullptr);
}

// What graba_todos makes. The array's value begins at 85, its elements at 105, 112 and 116.
inline const char *const TODOS =
    "0A000000"
    "01 02 6100 2A"
    "02 02 6200 3412"
    "03 02 6300 78563412"
    "04 02 6400 000000000000F83F"
    "08 02 6500 8877665544332211"
    "05 02 6600 03000000 A1A2A3"
    "06 02 6700 05000000 686F6C6100"
    "07 02 6800 06000000 E100 2D4E 0000"
    "09 02 6900 03000000 69000000 70000000 74000000  03000000 756E00  00000000  04000000 646F7300"
    "06 02 6A00 00000000";

// All the values as one line, each got by its reader.
inline std::string describe_todos(comdat *c)
{
    uint32_t tam = 0, num = 0;
    std::vector<std::string> partes = {
        std::to_string(ivrexa_numero_valores(c)), std::to_string(ivrexa_dame_byte(c, 0)),
        std::to_string(ivrexa_dame_ushort(c, 1)), std::to_string(ivrexa_dame_ulong(c, 2)),
        std::to_string(ivrexa_dame_double(c, 3)), std::to_string(reinterpret_cast<uintptr_t>(ivrexa_dame_hwnd(c, 4)))};
    const void *buffer = ivrexa_dame_buffer(c, 5, &tam);
    partes.push_back(a_hex(buffer, tam));
    partes.push_back(ivrexa_dame_cadena_ansi(c, 6));
    partes.push_back(a_hex(ivrexa_dame_cadena_unicode(c, 7), 6));
    const char *const *textos = ivrexa_dame_arr_cadenas_ansi(c, 8, &num);
    partes.push_back(std::to_string(num));
    partes.push_back(std::string(textos[0]) + "," + textos[2]);
    partes.push_back(ivrexa_dame_cadena_ansi(c, 9) == nullptr ? "null" : "text");
    for (uint32_t i = 0; i < 11; i++)
        partes.push_back(ivrexa_nombre_valor(c, i) + std::to_string(ivrexa_tipoDato(c, i)));
    return junta(partes);
}

inline const char *const DESCRIPCION =
    "10|42|4660|305419896|1.500000|1234605616436508552|a1a2a3|hola|e1002d4e0000|3|un,dos|null|"
    "a1|b2|c3|d4|e8|f5|g6|h7|i9|j6|?0";

// Each test ends with the library closed.
class dll_datos : public ::testing::Test {
protected:
    ~dll_datos() override { ivrexa_cierra_sesion(); }
};

// ---- The other process, which never calls the library: it makes, holds and shows blocks.

PAPEL(vecino)
{
    std::map<std::string, bloque_crudo> bloques;
    yo.di("LISTO");
    while (std::optional<std::string> linea = yo.escucha(60000)) {
        std::vector<std::string> orden = campos(*linea);
        if (orden[0] == "CREA") {
            bytes datos = de_hex(orden[3]);
            bloque_crudo bloque(orden[1].c_str(), static_cast<uint32_t>(std::stoul(orden[2])));
            bloque.pon_bytes(0, datos);
            EXPECT_FALSE(bloque.ya_existia());
            bloques.emplace(orden[1], std::move(bloque));
            yo.di("HECHO");
        } else if (orden[0] == "PON") {
            bloques.at(orden[1]).pon_u32(std::stoul(orden[2]), static_cast<uint32_t>(std::stoul(orden[3])));
            yo.di("HECHO");
        } else if (orden[0] == "CABECERA") {
            bloques.at(orden[1]).pon_cabecera(static_cast<uint32_t>(std::stoul(orden[2])));
            yo.di("HECHO");
        } else if (orden[0] == "SUELTA") {
            bloques.erase(orden[1]);
            yo.di("HECHO");
        } else if (orden[0] == "HAY") {
            yo.di(existe_bloque(orden[1].c_str()) ? "HAY" : "FALTA");
        } else {
            bloque_crudo bloque(orden[1].c_str());
            bytes datos = bloque.bytes(0, std::stoul(orden[2]));
            yo.di(junta({"BLOQUE", std::to_string(bloque.cabecera()), a_hex(datos.data(), datos.size())}));
        }
    }
    return 0;
}

class vecino {
public:
    void crea(const std::string &nombre, uint32_t tam, const std::string &hex = "")
    {
        haz(junta({"CREA", nombre, std::to_string(tam), hex}));
    }
    void pon(const std::string &nombre, uint32_t despl, uint32_t valor)
    {
        haz(junta({"PON", nombre, std::to_string(despl), std::to_string(valor)}));
    }
    void pon_cabecera(const std::string &nombre, uint32_t valor)
    {
        haz(junta({"CABECERA", nombre, std::to_string(valor)}));
    }
    void suelta(const std::string &nombre) { haz(junta({"SUELTA", nombre})); }
    bool hay(const std::string &nombre)
    {
        m_papel.di(junta({"HAY", nombre}));
        return m_papel.espera_linea("", 10000) == "HAY";
    }
    // The size in the header, and so many bytes behind it.
    std::pair<uint32_t, bytes> mira(const std::string &nombre, uint32_t num)
    {
        m_papel.di(junta({"MIRA", nombre, std::to_string(num)}));
        std::vector<std::string> partes = campos(m_papel.espera_linea("BLOQUE", 10000));
        return {static_cast<uint32_t>(std::stoul(partes.at(1))), de_hex(partes.at(2))};
    }
    uint32_t u32(const std::string &nombre, uint32_t despl)
    {
        bytes b = mira(nombre, despl + 4).second;
        uint32_t valor;
        memcpy(&valor, b.data() + despl, 4);
        return valor;
    }
    // The channel of a service, with the next id of its blocks.
    std::string canal(const std::string &servicio, uint32_t siguiente_id = 100)
    {
        crea(nombre_canal(servicio), 2378);
        pon(nombre_canal(servicio), 12, siguiente_id);
        return nombre_canal(servicio);
    }

private:
    void haz(const std::string &orden)
    {
        m_papel.di(orden);
        EXPECT_EQ(m_papel.espera_linea("", 10000), "HECHO") << orden;
    }
    papel m_papel = arranca_papel("vecino");
};

#endif
