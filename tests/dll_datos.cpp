// Command data as a host sees it: the exports alone, and another process that makes and reads the raw blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/informes.h"
#include "comun/lineas.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "ivrexa.h"

namespace {

using bytes = std::vector<uint8_t>;

const char *const NULO = "(comdat) != 0";

struct destructor_comdat {
    void operator()(comdat *c) const { ivrexa_destruye_datos_comando(c); }
};
using contenedor = std::unique_ptr<comdat, destructor_comdat>;

contenedor entrada(const std::string &servicio)
{
    return contenedor(ivrexa_crea_datos_comando_entrada(servicio.c_str()));
}

contenedor salida(const std::string &servicio)
{
    return contenedor(ivrexa_crea_datos_comando_salida(servicio.c_str()));
}

contenedor lee(const std::string &servicio, uint32_t id, int16_t es_entrada = 1)
{
    return contenedor(ivrexa_lee_datos(servicio.c_str(), id, es_entrada));
}

std::string nombre_canal(const std::string &servicio)
{
    return "Ivrexa_MCB_Serv_" + servicio;
}

std::string nombre_datos(const std::string &servicio, uint32_t id)
{
    return nombre_canal(servicio) + "_Com__comdat" + std::to_string(id);
}

ivrexa_hwnd hwnd_de(uint64_t valor)
{
    return reinterpret_cast<ivrexa_hwnd>(valor);
}

void graba_todos(comdat *c)
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
const char *const TODOS =
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
std::string describe_todos(comdat *c)
{
    uint32_t tam = 0, num = 0;
    std::vector<std::string> partes = {std::to_string(ivrexa_numero_valores(c)),
                                       std::to_string(ivrexa_dame_byte(c, 0)),
                                       std::to_string(ivrexa_dame_ushort(c, 1)),
                                       std::to_string(ivrexa_dame_ulong(c, 2)),
                                       std::to_string(ivrexa_dame_double(c, 3)),
                                       std::to_string(reinterpret_cast<uintptr_t>(ivrexa_dame_hwnd(c, 4)))};
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

const char *const DESCRIPCION =
    "10|42|4660|305419896|1.500000|1234605616436508552|a1a2a3|hola|e1002d4e0000|3|un,dos|null|"
    "a1|b2|c3|d4|e8|f5|g6|h7|i9|j6|?0";

// Each test ends with the library closed.
class dll_datos : public ::testing::Test {
protected:
    ~dll_datos() override { ivrexa_cierra_sesion(); }
};

}

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

namespace {

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

}

// ---- Null arguments

TEST_F(dll_datos, cada_escritor_informa_de_un_contenedor_nulo_una_vez)
{
    const std::vector<std::function<void()>> ESCRITORES = {
        [] { ivrexa_graba_byte(nullptr, "a", 1); },
        [] { ivrexa_graba_ushort(nullptr, "a", 1); },
        [] { ivrexa_graba_ulong(nullptr, "a", 1); },
        [] { ivrexa_graba_double(nullptr, "a", 1.0); },
        [] { ivrexa_graba_hwnd(nullptr, "a", nullptr); },
        [] { ivrexa_graba_buffer(nullptr, "a", "x", 1); },
        [] { ivrexa_graba_cadena_ansi(nullptr, "a", "x"); },
        [] { ivrexa_graba_cadena_unicode(nullptr, "a", L"x"); },
        [] { ivrexa_graba_arr_cadenas_ansi(nullptr, "a", nullptr, 3); },
        [] { ivrexa_graba_arr_cadenas_unicode(nullptr, "a", nullptr, 3); },
        [] { ivrexa_destruye_datos_comando(nullptr); },
        [] { EXPECT_EQ(ivrexa_guarda_datos(nullptr), 0u); },
    };
    for (size_t n = 0; n < ESCRITORES.size(); n++) {
        SCOPED_TRACE(n);
        ESCRITORES[n]();
        EXPECT_INFORME("ivrexa", NULO);
        EXPECT_SIN_INFORMES();
    }
}

TEST_F(dll_datos, cada_lector_informa_de_un_contenedor_nulo_y_da_lo_neutro)
{
    uint32_t tam = 66, num = 66, num_u = 66;
    const std::vector<std::function<void()>> LECTORES = {
        [] { EXPECT_EQ(ivrexa_dame_byte(nullptr, 0), 0); },
        [] { EXPECT_EQ(ivrexa_dame_ushort(nullptr, 0), 0); },
        [] { EXPECT_EQ(ivrexa_dame_ulong(nullptr, 0), 0u); },
        [] { EXPECT_EQ(ivrexa_dame_double(nullptr, 0), 0.0); },
        [] { EXPECT_EQ(ivrexa_dame_hwnd(nullptr, 0), nullptr); },
        [&] { EXPECT_EQ(ivrexa_dame_buffer(nullptr, 0, &tam), nullptr); },
        [] { EXPECT_EQ(ivrexa_dame_cadena_ansi(nullptr, 0), nullptr); },
        [] { EXPECT_EQ(ivrexa_dame_cadena_unicode(nullptr, 0), nullptr); },
        [&] { EXPECT_EQ(ivrexa_dame_arr_cadenas_ansi(nullptr, 0, &num), nullptr); },
        [&] { EXPECT_EQ(ivrexa_dame_arr_cadenas_unicode(nullptr, 0, &num_u), nullptr); },
    };
    for (size_t n = 0; n < LECTORES.size(); n++) {
        SCOPED_TRACE(n);
        LECTORES[n]();
        EXPECT_INFORME("ivrexa", NULO);
        EXPECT_SIN_INFORMES();
    }
    EXPECT_EQ(tam, 66u);
    EXPECT_EQ(num, 0u);
    EXPECT_EQ(num_u, 0u);
}

TEST_F(dll_datos, las_tres_consultas_informan_dos_veces_de_un_contenedor_nulo)
{
    EXPECT_EQ(ivrexa_numero_valores(nullptr), 0u);
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("iv_comdat", NULO);
    EXPECT_STREQ(ivrexa_nombre_valor(nullptr, 0), "?");
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("iv_comdat", NULO);
    EXPECT_EQ(ivrexa_tipoDato(nullptr, 0), 0u);
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("iv_comdat", NULO);
}

TEST_F(dll_datos, graba_buffer_informa_de_cada_argumento_nulo_en_su_orden)
{
    ivrexa_graba_buffer(nullptr, nullptr, nullptr, 1);
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("ivrexa", "(nombre_valor) != 0");
    EXPECT_INFORME("ivrexa", "(buffer) != 0");
    ivrexa_graba_buffer(nullptr, nullptr, nullptr, 0);      // no bytes need no buffer
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("ivrexa", "(nombre_valor) != 0");
    EXPECT_SIN_INFORMES();
}

TEST_F(dll_datos, argumentos_nulos_de_los_escritores_se_graban_vacios)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), nullptr, 7);
    ivrexa_graba_cadena_ansi(c.get(), nullptr, nullptr);
    ivrexa_graba_cadena_unicode(c.get(), nullptr, nullptr);
    ivrexa_graba_arr_cadenas_ansi(c.get(), nullptr, nullptr, 1);
    ivrexa_graba_arr_cadenas_unicode(c.get(), nullptr, nullptr, 1);
    ivrexa_graba_buffer(c.get(), "b", nullptr, 0);
    EXPECT_SIN_INFORMES();                                  // only for buffers is the name looked at
    ivrexa_graba_buffer(c.get(), nullptr, nullptr, 5);
    EXPECT_INFORME("ivrexa", "(nombre_valor) != 0");
    EXPECT_INFORME("ivrexa", "(buffer) != 0");

    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    auto [cabecera, contenido] = otro.mira(nombre_datos(servicio, 100), 64);
    EXPECT_EQ(cabecera, 63u);
    EXPECT_TRUE(bytes_iguales(de_hex("07000000 01 01 00 07  06 01 00 00000000  07 01 00 00000000"
                                     "09 01 00 01000000 21000000 00000000  0A 01 00 2C000000 00000000"
                                     "05 02 6200 00000000  05 01 00 00000000 00"),
                              contenido));
}

TEST_F(dll_datos, resultados_nulos_de_los_lectores_se_informan_y_se_lee_igual)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 7), 48,
              "03000000 05 02 6100 02000000 0102  09 02 6200 01000000 1A000000 02000000 7800"
              "0A 02 6300 01000000 2C000000 00000000");
    contenedor c = lee(servicio, 7);

    EXPECT_EQ(memcmp(ivrexa_dame_buffer(c.get(), 0, nullptr), "\1\2", 2), 0);
    EXPECT_INFORME("ivrexa", "(tam_buffer) != 0");
    EXPECT_STREQ(ivrexa_dame_arr_cadenas_ansi(c.get(), 1, nullptr)[0], "x");
    EXPECT_INFORME("ivrexa", "(num_valores) != 0");
    EXPECT_NE(ivrexa_dame_arr_cadenas_unicode(c.get(), 2, nullptr), nullptr);
    EXPECT_INFORME("ivrexa", "(num_valores) != 0");
    EXPECT_EQ(ivrexa_dame_buffer(nullptr, 0, nullptr), nullptr);
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("ivrexa", "(tam_buffer) != 0");
    EXPECT_EQ(ivrexa_dame_arr_cadenas_ansi(nullptr, 0, nullptr), nullptr);
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("ivrexa", "(num_valores) != 0");
    EXPECT_EQ(ivrexa_dame_arr_cadenas_unicode(nullptr, 0, nullptr), nullptr);
    EXPECT_INFORME("ivrexa", NULO);
    EXPECT_INFORME("ivrexa", "(num_valores) != 0");
}

TEST_F(dll_datos, servicio_nulo_es_el_nombre_vacio)
{
    uint32_t id = GetCurrentProcessId();                    // blocks of the empty name are everybody's
    vecino otro;
    otro.crea("Ivrexa_MCB_Serv__Com__comdat" + std::to_string(id), 9, "01000000 01 02 6100 07");
    contenedor c(ivrexa_lee_datos(nullptr, id, 1));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(ivrexa_dame_byte(c.get(), 0), 7);
    EXPECT_NE(contenedor(ivrexa_crea_datos_comando_entrada(nullptr)), nullptr);
    EXPECT_NE(contenedor(ivrexa_crea_datos_comando_salida(nullptr)), nullptr);
}

// ---- Writing and reading containers

TEST_F(dll_datos, contenedor_que_se_graba_cuenta_y_no_se_lee)
{
    contenedor c = salida("S");
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 0u);
    graba_todos(c.get());
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 10u);
    EXPECT_STREQ(ivrexa_nombre_valor(c.get(), 0), "?");
    EXPECT_EQ(ivrexa_tipoDato(c.get(), 0), 0u);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(ivrexa_dame_byte(c.get(), 0), 0);
    EXPECT_INFORME("iv_comdat", "comdat->tipo == iv_comdat_tipo_LECTURA");
}

TEST_F(dll_datos, anchura_de_los_argumentos_es_la_de_sus_tipos)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "", 0xFF);
    ivrexa_graba_ushort(c.get(), "", 0xFFFF);
    ivrexa_graba_ulong(c.get(), "", 0xFFFFFFFF);
    ivrexa_graba_hwnd(c.get(), "", hwnd_de(0xFFFFFFFFFFFFFFFE));
    ivrexa_graba_double(c.get(), "", -2.5e-300);
    contenedor l = lee(servicio, ivrexa_guarda_datos(c.get()));

    EXPECT_EQ(ivrexa_dame_byte(l.get(), 0), 0xFF);
    EXPECT_EQ(ivrexa_dame_ushort(l.get(), 1), 0xFFFF);
    EXPECT_EQ(ivrexa_dame_ulong(l.get(), 2), 0xFFFFFFFFu);
    EXPECT_EQ(ivrexa_dame_hwnd(l.get(), 3), hwnd_de(0xFFFFFFFFFFFFFFFE));
    EXPECT_EQ(ivrexa_dame_double(l.get(), 4), -2.5e-300);
}

TEST_F(dll_datos, punteros_valen_hasta_la_destruccion)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 9), 132, TODOS);
    contenedor c = lee(servicio, 9);
    uint32_t tam = 0, num = 0;
    const char *nombre = ivrexa_nombre_valor(c.get(), 6), *texto = ivrexa_dame_cadena_ansi(c.get(), 6);
    const wchar_t *ancho = ivrexa_dame_cadena_unicode(c.get(), 7);
    const void *buffer = ivrexa_dame_buffer(c.get(), 5, &tam);
    const char *const *textos = ivrexa_dame_arr_cadenas_ansi(c.get(), 8, &num);

    for (uint32_t despl = 0; despl < 132; despl += 4)
        otro.pon(nombre_datos(servicio, 9), despl, 0xEEEEEEEE);     // the other side may do what it likes
    otro.suelta(nombre_datos(servicio, 9));
    for (int vez = 0; vez < 3; vez++) {
        EXPECT_NE(ivrexa_dame_arr_cadenas_ansi(c.get(), 8, &num), textos);      // a new array each time
        EXPECT_EQ(ivrexa_dame_cadena_ansi(c.get(), 6), texto);
        EXPECT_EQ(ivrexa_nombre_valor(c.get(), 6), nombre);
    }
    EXPECT_STREQ(nombre, "g");
    EXPECT_STREQ(texto, "hola");
    EXPECT_EQ(memcmp(ancho, L"\u00E1\u4E2D", 6), 0);
    EXPECT_EQ(memcmp(buffer, "\xA1\xA2\xA3", 3), 0);
    EXPECT_STREQ(textos[0], "un");
    EXPECT_STREQ(textos[2], "dos");
}

// ---- Storing

TEST_F(dll_datos, lo_guardado_son_los_bytes_del_formato_en_el_bloque_de_su_numero)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    const std::string canal = otro.canal(servicio, 117);
    contenedor c = entrada(servicio);
    graba_todos(c.get());
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 117u);

    auto [cabecera, contenido] = otro.mira(nombre_datos(servicio, 117), 133);
    EXPECT_EQ(cabecera, 132u);
    EXPECT_TRUE(bytes_iguales(de_hex(std::string(TODOS) + "00"), contenido));
    EXPECT_EQ(otro.u32(canal, 12), 118u);
    EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + servicio).c_str()));
    c.reset();
    EXPECT_FALSE(otro.hay(nombre_datos(servicio, 117)));    // the container kept it alive
}

TEST_F(dll_datos, bloques_se_numeran_seguidos_y_por_servicio)
{
    const std::string uno = nombre_unico("S"), dos = nombre_unico("S");
    vecino otro;
    otro.canal(uno, 100);
    otro.canal(dos, 0xFFFFFFFF);
    contenedor a = entrada(uno), b = salida(uno), c = entrada(dos);
    EXPECT_EQ(ivrexa_guarda_datos(a.get()), 100u);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0xFFFFFFFFu);
    EXPECT_EQ(ivrexa_guarda_datos(b.get()), 101u);
    EXPECT_TRUE(otro.hay(nombre_datos(dos, 0xFFFFFFFF)));
}

TEST_F(dll_datos, guardar_copia_lo_grabado_hasta_entonces)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    ivrexa_graba_byte(c.get(), "b", 2);
    auto [cabecera, contenido] = otro.mira(nombre_datos(servicio, 100), 11);
    EXPECT_EQ(cabecera, 9u);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 01 0000"), contenido));
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 2u);
}

TEST_F(dll_datos, guardar_mucho_llega_entero)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    bytes datos(100000);
    for (size_t i = 0; i < datos.size(); i++)
        datos[i] = static_cast<uint8_t>(i * 31 + i / 256);
    contenedor c = entrada(servicio);
    ivrexa_graba_buffer(c.get(), "a", datos.data(), 100000);
    contenedor l = lee(servicio, ivrexa_guarda_datos(c.get()));
    uint32_t tam = 0;
    const uint8_t *leidos = static_cast<const uint8_t *>(ivrexa_dame_buffer(l.get(), 0, &tam));
    ASSERT_EQ(tam, 100000u);
    EXPECT_TRUE(bytes_iguales(datos, bytes(leidos, leidos + tam)));
}

TEST_F(dll_datos, guardar_sin_canal_se_informa_y_da_0)
{
    const std::string servicio = nombre_unico("S");
    contenedor c = entrada(servicio);
    for (int vez = 0; vez < 2; vez++) {
        EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0u);
        EXPECT_INFORME("iv_reg", "existia_MCServ == CIERTO");
        EXPECT_SIN_INFORMES();
        EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
        EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + servicio).c_str()));
    }
    vecino otro;                                            // nothing was attached: it can be stored later
    otro.canal(servicio);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
}

TEST_F(dll_datos, canal_menor_que_su_registro_es_como_ninguno)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_canal(servicio), 2377);
    otro.pon(nombre_canal(servicio), 12, 100);
    contenedor c = entrada(servicio);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0u);
    EXPECT_INFORME("iv_reg", "existia_MCServ == CIERTO");
    EXPECT_EQ(otro.u32(nombre_canal(servicio), 12), 100u);
}

TEST_F(dll_datos, guardar_dos_veces_se_informa_y_el_segundo_numero_vale)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    ivrexa_graba_byte(c.get(), "b", 2);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 101u);
    EXPECT_INFORME("iv_comdat", "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME("iv_comdat", "comdat->shared_MCCom == NULL");
    EXPECT_SIN_INFORMES();

    EXPECT_EQ(otro.mira(nombre_datos(servicio, 100), 9).first, 9u);
    EXPECT_EQ(otro.mira(nombre_datos(servicio, 101), 14).first, 14u);
    c.reset();
    EXPECT_FALSE(otro.hay(nombre_datos(servicio, 100)));    // the first one was the container's
    EXPECT_TRUE(otro.hay(nombre_datos(servicio, 101)));
}

TEST_F(dll_datos, guardar_lo_que_se_lee_se_informa_y_se_guarda)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    otro.crea(nombre_datos(servicio, 50), 9, "01000000 01 02 6100 07");
    contenedor c = lee(servicio, 50);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    EXPECT_INFORME("iv_comdat", "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME("iv_comdat", "comdat->shared_MCCom == NULL");
    EXPECT_INFORME("iv_comdat", "comdat->tipo == iv_comdat_tipo_ESCRITURA");
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 07"),
                              otro.mira(nombre_datos(servicio, 100), 9).second));
}

TEST_F(dll_datos, bloque_menor_que_otro_tiene_no_se_escribe_y_da_0)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    otro.crea(nombre_datos(servicio, 100), 8, "EEEEEEEEEEEEEEEE");
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0u);
    EXPECT_INFORME("iv_comdat", "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_SIN_INFORMES();
    EXPECT_TRUE(bytes_iguales(de_hex("EEEEEEEEEEEEEEEE 00"),
                              otro.mira(nombre_datos(servicio, 100), 9).second));
    EXPECT_EQ(otro.u32(nombre_canal(servicio), 12), 101u);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 101u);          // nothing was attached, and the number is used up
}

TEST_F(dll_datos, bloque_mayor_que_ya_habia_se_usa_con_su_cabecera)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    otro.crea(nombre_datos(servicio, 100), 12, "EEEEEEEEEEEEEEEEEEEEEEEE");
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    auto [cabecera, contenido] = otro.mira(nombre_datos(servicio, 100), 12);
    EXPECT_EQ(cabecera, 12u);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 01 EEEEEE"), contenido));
    EXPECT_EQ(ivrexa_dame_byte(lee(servicio, 100).get(), 0), 1);
}

static DWORD WINAPI hilo_que_guarda(void *c)
{
    return ivrexa_guarda_datos(static_cast<comdat *>(c));
}

TEST_F(dll_datos, guardar_espera_al_mutex_del_servicio)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    const std::string canal = otro.canal(servicio);
    contenedor c = entrada(servicio);
    mutex_crudo mutex(("Mutex_Ivrexa_" + servicio).c_str(), mutex_crudo::modo::crea);
    ASSERT_TRUE(mutex.retiene());
    HANDLE hilo = CreateThread(nullptr, 0, hilo_que_guarda, c.get(), 0, nullptr);

    EXPECT_EQ(WaitForSingleObject(hilo, 200), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(otro.u32(canal, 12), 100u);
    mutex.suelta();
    EXPECT_EQ(WaitForSingleObject(hilo, 10000), WAIT_OBJECT_0);
    DWORD id = 0;
    GetExitCodeThread(hilo, &id);
    CloseHandle(hilo);
    EXPECT_EQ(id, 100u);
    EXPECT_EQ(otro.u32(canal, 12), 101u);
    EXPECT_TRUE(mutex.libre());
}

// ---- Loading

TEST_F(dll_datos, lo_que_otro_forjo_se_lee)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 4294967295u), 132, TODOS);
    EXPECT_EQ(describe_todos(lee(servicio, 4294967295u).get()), DESCRIPCION);
}

TEST_F(dll_datos, arreglo_ancho_con_cuenta_que_otro_forjo_se_lee)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 1), 34,
              "01000000 0A 02 6100 02000000 14000000 1A000000  02000000 0000  04000000 2D4E 0000");
    contenedor c = lee(servicio, 1, 0);
    uint32_t num = 0;
    const wchar_t *const *textos = ivrexa_dame_arr_cadenas_unicode(c.get(), 0, &num);
    ASSERT_EQ(num, 2u);
    EXPECT_EQ(memcmp(textos[0], L"", 2), 0);
    EXPECT_EQ(memcmp(textos[1], L"\u4E2D", 4), 0);
}

TEST_F(dll_datos, bloque_que_falta_se_informa_y_no_se_crea)
{
    const std::string servicio = nombre_unico("S");
    lee(nombre_unico("S"), 1);                              // opens the registry and the window system
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
    uint32_t antes = cuenta_manejadores();
    for (int16_t es_entrada : {1, 0}) {
        EXPECT_EQ(lee(servicio, 100, es_entrada), nullptr);
        EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
        EXPECT_SIN_INFORMES();
    }
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, 100).c_str()));
    EXPECT_EQ(cuenta_manejadores(), antes);
}

TEST_F(dll_datos, id_0_nombra_el_bloque_sin_cifras_y_se_informa)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_canal(servicio) + "_Com__comdat", 9, "01000000 01 02 6100 07");
    contenedor c = lee(servicio, 0);
    EXPECT_INFORME("iv_comdat", "id_bloque_MCCom != 0");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(ivrexa_dame_byte(c.get(), 0), 7);
}

TEST_F(dll_datos, leer_deja_abierto_un_solo_manejador)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 1), 9, "01000000 01 02 6100 07");
    otro.crea(nombre_datos(servicio, 2), 9, "01000000 01 02 6100 07");
    lee(servicio, 1);
    uint32_t antes = cuenta_manejadores();
    contenedor c = lee(servicio, 2);
    EXPECT_EQ(cuenta_manejadores(), antes + 2);
    c.reset();
    EXPECT_EQ(cuenta_manejadores(), antes + 1);             // the one that keeps an opened block in being
}

TEST_F(dll_datos, cabecera_mayor_que_la_vista_se_recorta)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 1), 9, "02000000 01 02 6100 07");
    otro.pon_cabecera(nombre_datos(servicio, 1), 0xFFFFFFFF);
    contenedor c = lee(servicio, 1);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(ivrexa_dame_byte(c.get(), 0), 7);
    EXPECT_INFORME("iv_comdat", "valor->tipoDato != ivrexa_tipoDato_desconocido");  // the zeros behind it
    EXPECT_STREQ(ivrexa_nombre_valor(c.get(), 1), "");
}

TEST_F(dll_datos, cabecera_0_se_informa_y_da_un_contenedor_sin_valores)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 1), 9, "01000000 01 02 6100 07");
    otro.pon_cabecera(nombre_datos(servicio, 1), 0);
    contenedor c = lee(servicio, 1);
    EXPECT_INFORME("iv_mem", "tam > 0");
    EXPECT_INFORME("iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 0u);
}

TEST_F(dll_datos, contenido_que_miente_se_informa_y_se_lee_lo_que_hay)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 1), 17, "FFFFFFFF 01 02 6100 07  05 02 6200 FFFFFFFF");
    contenedor c = lee(servicio, 1);
    EXPECT_INFORME("iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
    EXPECT_SIN_INFORMES();
    uint32_t tam = 66;
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 0xFFFFFFFFu);
    EXPECT_EQ(ivrexa_dame_byte(c.get(), 0), 7);
    EXPECT_STREQ(ivrexa_nombre_valor(c.get(), 1), "b");
    EXPECT_EQ(ivrexa_dame_buffer(c.get(), 1, &tam), nullptr);
    EXPECT_EQ(tam, 0u);
    EXPECT_INFORME("iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
    EXPECT_STREQ(ivrexa_nombre_valor(c.get(), 0xFFFFFFFE), "?");
    EXPECT_EQ(ivrexa_tipoDato(c.get(), 0xFFFFFFFE), 0u);
}

// ---- Two processes with the library

PAPEL(guarda)
{
    contenedor c = std::stoi(args.at(1)) == 1 ? entrada(args.at(0)) : salida(args.at(0));
    graba_todos(c.get());
    uint32_t id = ivrexa_guarda_datos(c.get());
    yo.di("LISTO");
    yo.di("ID " + std::to_string(id));
    yo.escucha_linea("DESTRUYE", 30000);
    c.reset();
    yo.di("DESTRUIDO");
    yo.escucha_linea("ACABA", 30000);
    ivrexa_cierra_sesion();
    return 0;
}

PAPEL(lee)
{
    contenedor c = lee(args.at(0), static_cast<uint32_t>(std::stoul(args.at(1))), 0);
    yo.di("LISTO");
    yo.di("LEIDO " + describe_todos(c.get()));
    c.reset();
    ivrexa_cierra_sesion();
    return 0;
}

TEST_F(dll_datos, un_proceso_lee_lo_que_otro_guarda)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio, 200);
    papel guardador = arranca_papel("guarda", {servicio, "1"});
    EXPECT_EQ(guardador.espera_linea("ID", 5000), "ID 200");
    contenedor c = lee(servicio, 200);
    guardador.di("DESTRUYE");
    guardador.espera_linea("DESTRUIDO", 5000);
    guardador.di("ACABA");
    EXPECT_EQ(guardador.espera_fin(10000), 0u);

    EXPECT_EQ(describe_todos(c.get()), DESCRIPCION);
    EXPECT_EQ(describe_todos(lee(servicio, 200).get()), DESCRIPCION);   // whoever opened it keeps it
}

TEST_F(dll_datos, lo_que_guarda_uno_lo_lee_otro_proceso)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = salida(servicio);
    graba_todos(c.get());
    papel lector = arranca_papel("lee", {servicio, std::to_string(ivrexa_guarda_datos(c.get()))});
    EXPECT_EQ(lector.espera_linea("LEIDO", 5000), std::string("LEIDO ") + DESCRIPCION);
    EXPECT_EQ(lector.espera_fin(10000), 0u);
}

TEST_F(dll_datos, bloque_que_nadie_abrio_se_va_con_su_contenedor)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    papel guardador = arranca_papel("guarda", {servicio, "0"});
    EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 100).c_str()));
    guardador.di("DESTRUYE");
    guardador.espera_linea("DESTRUIDO", 5000);
    EXPECT_EQ(lee(servicio, 100, 0), nullptr);
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
}

// ---- Activity records, read from a registry whose monitor is forged

namespace {

class registro_forjado {
public:
    registro_forjado()
    {
        m_crudo.pon_u16(0, 8886);
        m_crudo.pon_u16(2, 256);
        m_crudo.pon_u64(6, 0x7FFFFFF0);                     // no window's handle
        m_crudo.pon_u32(14, 0xC0DE);
        m_crudo.pon_u32(18, 1);
    }
    ~registro_forjado() { m_crudo.pon_u64(6, 0); }
    void pon_servicio(uint32_t ind, const std::string &servicio)
    {
        m_crudo.pon_texto(5814 + 96 * ind, servicio);
    }
    void quita_monitor() { m_crudo.pon_u64(6, 0); }
    uint32_t siguiente() const { return m_crudo.u32(18); }

    // "index dato1 dato2 program activity flag" of record n.
    std::string actividad(uint32_t n) const
    {
        size_t despl = 22 + (n - 1) * 22;
        std::string texto;
        for (size_t campo = 0; campo < 20; campo += 4)
            texto += std::to_string(m_crudo.u32(despl + campo)) + " ";
        return texto + std::to_string(m_crudo.u16(despl + 20));
    }

private:
    bloque_crudo m_crudo{"Ivrexa_MCB", 8886};
};

}

TEST_F(dll_datos, leer_se_anota_para_el_monitor)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 345), 4, "00000000");
    registro_forjado registro;
    registro.pon_servicio(5, servicio);

    lee(servicio, 345, 1);
    lee(servicio, 345, 0);
    lee(servicio, 345, 2);                                  // anything but 1 is output
    EXPECT_EQ(lee(servicio, 346, 1), nullptr);
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");

    EXPECT_EQ(registro.actividad(1), "5 0 345 0 3 1");
    EXPECT_EQ(registro.actividad(2), "5 0 345 1 4 1");
    EXPECT_EQ(registro.actividad(3), "5 0 345 1 4 1");
    EXPECT_EQ(registro.actividad(4), "5 0 346 0 3 1");      // noted before it is opened
    EXPECT_EQ(registro.siguiente(), 5u);
    registro.quita_monitor();
    lee(servicio, 345, 1);
    EXPECT_EQ(registro.siguiente(), 5u);
}

TEST_F(dll_datos, guardar_se_anota_para_el_monitor)
{
    const std::string servicio = nombre_unico("S"), sin_canal = nombre_unico("S");
    vecino otro;
    const std::string canal = otro.canal(servicio);
    otro.pon(canal, 1202, 777);                             // the command under way
    otro.crea(nombre_datos(servicio, 50), 4, "00000000");
    contenedor leida = lee(servicio, 50, 1), leida_salida = lee(servicio, 50, 0);
    registro_forjado registro;
    registro.pon_servicio(31, servicio);
    registro.pon_servicio(0, sin_canal);

    contenedor escrita = entrada(servicio), escrita_salida = salida(servicio), perdida = entrada(sin_canal);
    EXPECT_EQ(ivrexa_guarda_datos(escrita.get()), 100u);
    EXPECT_EQ(ivrexa_guarda_datos(escrita_salida.get()), 101u);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(ivrexa_guarda_datos(leida.get()), 102u);
    EXPECT_EQ(ivrexa_guarda_datos(leida_salida.get()), 103u);
    for (int vez = 0; vez < 2; vez++) {
        EXPECT_INFORME("iv_comdat", "comdat->id_bloque_MCCom == 0");
        EXPECT_INFORME("iv_comdat", "comdat->shared_MCCom == NULL");
        EXPECT_INFORME("iv_comdat", "comdat->tipo == iv_comdat_tipo_ESCRITURA");
    }
    EXPECT_EQ(ivrexa_guarda_datos(perdida.get()), 0u);
    EXPECT_INFORME("iv_reg", "existia_MCServ == CIERTO");

    EXPECT_EQ(registro.actividad(1), "31 777 100 1 3 1");
    EXPECT_EQ(registro.actividad(2), "31 777 101 0 4 1");
    EXPECT_EQ(registro.actividad(3), "31 777 102 0 3 1");
    EXPECT_EQ(registro.actividad(4), "31 777 103 1 4 1");
    EXPECT_EQ(registro.actividad(5), "0 0 0 1 3 1");
    EXPECT_EQ(registro.siguiente(), 6u);
}
