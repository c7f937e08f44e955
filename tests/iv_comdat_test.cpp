// Command data: life of the container, growth, byte format, writers, readers, value index, content that lies.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/informes.h"
#include "comun/informes_modulo.h"
#include "comun/lineas.h"
#include "comun/papel.h"
#include "comun/traza_captura.h"
#include "comun/util.h"

#include "iv_comdat.h"
#include "iv_mcserv.h"
#include "iv_mem.h"
#include "iv_shared.h"

namespace {

using bytes = std::vector<uint8_t>;

const char *const MODULO = "iv_comdat";
const char *const FUERA = "(comdat->offset + tam) <= comdat->ocupado";
const char *const NO_ESCRIBE = "comdat->tipo == iv_comdat_tipo_ESCRITURA";
const char *const NO_LEE = "comdat->tipo == iv_comdat_tipo_LECTURA";

struct destructor_comdat {
    void operator()(comdat *c) const { iv_comdat_destruye(c); }
};
using contenedor = std::unique_ptr<comdat, destructor_comdat>;

contenedor para_grabar()
{
    return contenedor(iv_comdat_crea_para_grabar("S", 1));
}

bytes contenido(const contenedor &c)
{
    uint32_t ocupado = 0;
    const uint8_t *datos = iv_comdat_contenido(c.get(), &ocupado);
    return bytes(datos, datos + ocupado);
}

// A container that reads a copy of the bytes in the heap, four zero bytes behind them.
contenedor lee(const bytes &b)
{
    const uint32_t tam = static_cast<uint32_t>(b.size());
    uint8_t *datos = static_cast<uint8_t *>(i_malloc(tam + 4));
    if (tam != 0)
        memcpy(datos, b.data(), tam);
    iv_shared_bloque *sin_bloque = nullptr;
    return contenedor(iv_comdat_crea_para_leer("S", 7, &sin_bloque, datos, tam, 1));
}

contenedor lee(const char *hex)
{
    return lee(de_hex(hex));
}

const char *a_texto(const void *p)
{
    return static_cast<const char *>(p);
}

ivrexa_hwnd hwnd_de(uint64_t valor)
{
    return reinterpret_cast<ivrexa_hwnd>(valor);
}

struct uso_heap {
    uint32_t bloques = 0;
    size_t bytes = 0;
};

// What stands in the library's heap.
uso_heap mide_heap()
{
    uso_heap uso;
    PROCESS_HEAP_ENTRY e = {};
    while (s_LocalHeap != nullptr && HeapWalk(s_LocalHeap, &e)) {
        if ((e.wFlags & PROCESS_HEAP_ENTRY_BUSY) == 0)
            continue;
        uso.bloques++;
        uso.bytes += e.cbData;
    }
    return uso;
}

// Every type once, with names "a" to "j". The wide array carries the count that readers expect. 146 bytes.
const char *const TODOS =
    "0A000000"
    "01 02 6100 2A"
    "02 02 6200 3412"
    "03 02 6300 78563412"
    "04 02 6400 000000000000F83F"
    "05 02 6500 03000000 A1A2A3"
    "06 02 6600 05000000 686F6C6100"
    "07 02 6700 06000000 E100 E900 0000"
    "08 02 6800 8877665544332211"
    "09 02 6900 02000000 65000000 6C000000  03000000 756E00  00000000"
    "0A 02 6A00 02000000 80000000 88000000  04000000 7800 0000  06000000 7900 7A00 0000";

// Where the values of TODOS have their data, and where they end.
struct sitio {
    uint32_t tipo;
    const char *nombre;
    uint32_t datos;
    uint32_t fin;
};
const sitio SITIOS[] = {{1, "a", 8, 9},   {2, "b", 13, 15}, {3, "c", 19, 23},  {4, "d", 27, 35},
                        {5, "e", 39, 46}, {6, "f", 50, 59}, {7, "g", 63, 73},  {8, "h", 77, 85},
                        {9, "i", 89, 112}, {10, "j", 116, 146}};

}

// ---- The record

TEST(iv_comdat, registros_tienen_sus_campos_en_orden)
{
    EXPECT_EQ(offsetof(comdat, nombre_servicio), 0u);
    EXPECT_EQ(offsetof(comdat, id_bloque_MCCom), 8u);
    EXPECT_EQ(offsetof(comdat, shared_MCCom), 16u);
    EXPECT_EQ(offsetof(comdat, es_entrada), 24u);
    EXPECT_EQ(offsetof(comdat, tipo), 28u);
    EXPECT_EQ(offsetof(comdat, num_valores), 32u);
    EXPECT_EQ(offsetof(comdat, buffer), 40u);
    EXPECT_EQ(offsetof(comdat, tam), 48u);
    EXPECT_EQ(offsetof(comdat, ocupado), 52u);
    EXPECT_EQ(offsetof(comdat, offset), 56u);
    EXPECT_EQ(offsetof(comdat, valores), 64u);

    EXPECT_EQ(offsetof(iv_comdat_valor, tipoDato), 0u);
    EXPECT_EQ(offsetof(iv_comdat_valor, nombre), 8u);
    EXPECT_EQ(offsetof(iv_comdat_valor, offset), 16u);
    EXPECT_EQ(offsetof(iv_comdat_valor, tabla_cadenas), 24u);
}

TEST(iv_comdat, codigos_de_tipo_son_los_del_formato)
{
    EXPECT_EQ(ivrexa_tipoDato_desconocido, 0);
    EXPECT_EQ(ivrexa_tipoDato_byte, 1);
    EXPECT_EQ(ivrexa_tipoDato_ushort, 2);
    EXPECT_EQ(ivrexa_tipoDato_ulong, 3);
    EXPECT_EQ(ivrexa_tipoDato_double, 4);
    EXPECT_EQ(ivrexa_tipoDato_buffer, 5);
    EXPECT_EQ(ivrexa_tipoDato_cadena_ansi, 6);
    EXPECT_EQ(ivrexa_tipoDato_cadena_unicode, 7);
    EXPECT_EQ(ivrexa_tipoDato_hwnd, 8);
    EXPECT_EQ(ivrexa_tipoDato_arr_cadenas_ansi, 9);
    EXPECT_EQ(ivrexa_tipoDato_arr_cadenas_unicode, 10);
    EXPECT_EQ(iv_comdat_tipo_LECTURA, 0u);
    EXPECT_EQ(iv_comdat_tipo_ESCRITURA, 1u);
}

TEST(iv_comdat, contenedor_nuevo_tiene_4_bytes_de_1024)
{
    char nombre[] = "Calc";
    contenedor c(iv_comdat_crea_para_grabar(nombre, 0));
    nombre[0] = 'X';

    EXPECT_STREQ(c->nombre_servicio, "Calc");
    EXPECT_EQ(c->id_bloque_MCCom, 0u);
    EXPECT_EQ(c->shared_MCCom, nullptr);
    EXPECT_EQ(c->es_entrada, 0);
    EXPECT_EQ(c->tipo, 1u);
    EXPECT_EQ(c->tam, 1024u);
    EXPECT_EQ(c->ocupado, 4u);
    EXPECT_EQ(c->offset, 4u);
    EXPECT_EQ(c->valores, nullptr);
    EXPECT_EQ(static_cast<void *>(c->num_valores), c->buffer);
    EXPECT_TRUE(bytes_iguales(de_hex("00000000"), contenido(c)));
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, c->buffer), 1024u);
    EXPECT_EQ(para_grabar()->es_entrada, 1);
}

TEST(iv_comdat, nombre_de_servicio_nulo_es_vacio)
{
    contenedor c(iv_comdat_crea_para_grabar(nullptr, 1));
    EXPECT_STREQ(c->nombre_servicio, "");
}

TEST(iv_comdat, destruir_libera_todo)
{
    iv_comdat_destruye(iv_comdat_crea_para_grabar("S", 1));     // the heap exists from here on
    uso_heap antes = mide_heap();
    {
        contenedor c = para_grabar();
        EXPECT_EQ(mide_heap().bloques, antes.bloques + 3);      // record, name, buffer
        for (uint32_t n = 0; n < 1000; n++)
            iv_comdat_graba_byte(c.get(), "n", 1);
        EXPECT_EQ(mide_heap().bloques, antes.bloques + 3);
    }
    EXPECT_EQ(mide_heap().bloques, antes.bloques);
    {
        contenedor c = lee(TODOS);
        uint32_t num;
        iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, &num);
        iv_comdat_dame_arr_cadenas_unicode(c.get(), 9, &num);
        EXPECT_EQ(mide_heap().bloques, antes.bloques + 6);      // and the index, and a table for each array
    }
    EXPECT_EQ(mide_heap().bloques, antes.bloques);
    EXPECT_EQ(mide_heap().bytes, antes.bytes);
}

TEST(iv_comdat, destruir_nulo_se_informa_y_nada_mas)
{
    iv_comdat_destruye(nullptr);
    EXPECT_INFORME(MODULO, "(comdat) != 0");
}

// ---- Growth

TEST(iv_comdat, crecer_da_el_mayor_multiplo_de_1024_hasta_1024_mas)
{
    const struct { uint32_t ocupado, tam; } CASOS[] = {
        {1023, 1024},  {1024, 1024},  {1025, 2048},  {2047, 2048},      {2048, 3072},
        {2049, 3072},  {3071, 3072},  {3072, 4096},  {5000, 5120},      {100000, 100352},
    };
    for (const auto &caso : CASOS) {
        bytes datos(caso.ocupado - 12);                     // 4 of count, 4 of header, 4 of length
        for (size_t i = 0; i < datos.size(); i++)
            datos[i] = static_cast<uint8_t>(i * 7 + 1);
        contenedor c = para_grabar();
        iv_comdat_graba_buffer(c.get(), "b", datos.data(), static_cast<uint32_t>(datos.size()));

        EXPECT_EQ(c->ocupado, caso.ocupado);
        EXPECT_EQ(c->offset, caso.ocupado);
        EXPECT_EQ(c->tam, caso.tam) << "for " << caso.ocupado;
        EXPECT_EQ(HeapSize(s_LocalHeap, 0, c->buffer), caso.tam);
        EXPECT_EQ(static_cast<void *>(c->num_valores), c->buffer);
        bytes esperado = de_hex("01000000 05 02 6200");
        for (int desplaza = 0; desplaza < 32; desplaza += 8)
            esperado.push_back(static_cast<uint8_t>(datos.size() >> desplaza));
        esperado.insert(esperado.end(), datos.begin(), datos.end());
        EXPECT_TRUE(bytes_iguales(esperado, contenido(c)));
    }
}

TEST(iv_comdat, byte_1025_hace_crecer)
{
    contenedor c = para_grabar();
    bytes datos(1024 - 5 - 12);
    iv_comdat_graba_buffer(c.get(), "b", datos.data(), static_cast<uint32_t>(datos.size()));
    iv_comdat_graba_byte(c.get(), "n", 0xEE);

    EXPECT_EQ(c->ocupado, 1024u);
    EXPECT_EQ(c->tam, 1024u);
    iv_comdat_graba_byte(c.get(), "", 0xDD);
    EXPECT_EQ(c->ocupado, 1028u);
    EXPECT_EQ(c->tam, 2048u);
    EXPECT_EQ(c->buffer[1023], 0xEE);
    EXPECT_EQ(c->buffer[1027], 0xDD);
    EXPECT_EQ(*c->num_valores, 3u);
}

TEST(iv_comdat, muchos_valores_crecen_sin_perder_ninguno)
{
    contenedor c = para_grabar();
    for (uint32_t n = 0; n < 3000; n++)
        iv_comdat_graba_ulong(c.get(), "n", n * 77777u);

    contenedor l = lee(contenido(c));
    EXPECT_EQ(c->ocupado, 4 + 3000 * 8u);
    EXPECT_EQ(iv_comdat_numero_valores(l.get()), 3000u);
    for (uint32_t n = 0; n < 3000; n++)
        ASSERT_EQ(iv_comdat_dame_ulong(l.get(), n), n * 77777u);
}

TEST(iv_comdat, tabla_de_un_arreglo_crece_y_queda_en_su_sitio)
{
    std::vector<const char *> textos(1000, "x");
    contenedor c = para_grabar();
    iv_comdat_graba_arr_cadenas_ansi(c.get(), "t", textos.data(), 1000);

    ASSERT_EQ(c->ocupado, 12u + 4000u + 6000u);
    for (uint32_t i = 0; i < 1000; i++) {
        uint32_t posicion;
        memcpy(&posicion, c->buffer + 12 + i * 4, 4);
        ASSERT_EQ(posicion, 4012 + i * 6);
        ASSERT_EQ(memcmp(c->buffer + posicion, "\2\0\0\0x", 6), 0);
    }
}

TEST(iv_comdat, crecer_hasta_dar_la_vuelta_se_informa_y_no_graba_nada)
{
    uint8_t byte = 1;
    const std::vector<std::function<void(comdat *)>> CASOS = {
        [&](comdat *c) { iv_comdat_graba_buffer(c, "b", &byte, 0xFFFFFFFF); },
        [&](comdat *c) { iv_comdat_graba_buffer(c, "b", &byte, 0xFFFFFC00 - 17); },     // grows to 2^32
        [](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "t", nullptr, 0x40000000); },   // 2^32 of table
        [](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "t", nullptr, 0x40000001); },
        [](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "t", nullptr, 0x3FFFFFFF); },
        [](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "t", nullptr, 0xFFFFFFFF); },
        [](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "t", nullptr, 0x40000000); },
        [](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "t", nullptr, 0xFFFFFFFF); },
    };
    for (size_t n = 0; n < CASOS.size(); n++) {
        SCOPED_TRACE(n);
        contenedor c = para_grabar();
        iv_comdat_graba_byte(c.get(), "a", 1);
        CASOS[n](c.get());

        EXPECT_INFORME(MODULO, "nuevo_tam >= tam_minimo_nuevo");
        EXPECT_SIN_INFORMES();
        EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 01"), contenido(c)));
        EXPECT_EQ(c->tam, 1024u);
        iv_comdat_graba_byte(c.get(), "b", 2);
        EXPECT_TRUE(bytes_iguales(de_hex("02000000 01 02 6100 01 01 02 6200 02"), contenido(c)));
    }
}

// ---- Byte format

TEST(iv_comdat, cada_valor_se_graba_con_sus_bytes)
{
    const uint8_t tres[] = {1, 2, 3};
    const char *ansi[] = {"a", "", nullptr, "bc"};
    const wchar_t *anchos[] = {L"\u0101", nullptr, L""};
    const struct {
        const char *que;
        std::function<void(comdat *)> graba;
        const char *hex;            // behind the count
    } CASOS[] = {
        {"byte", [](comdat *c) { iv_comdat_graba_byte(c, "a", 7); }, "01 02 6100 07"},
        {"byte 255", [](comdat *c) { iv_comdat_graba_byte(c, "a", 255); }, "01 02 6100 FF"},
        {"ushort", [](comdat *c) { iv_comdat_graba_ushort(c, "ab", 0xFE01); }, "02 03 616200 01FE"},
        {"ulong", [](comdat *c) { iv_comdat_graba_ulong(c, "a", 0xFE020304); }, "03 02 6100 040302FE"},
        {"double", [](comdat *c) { iv_comdat_graba_double(c, "a", -1.5); }, "04 02 6100 000000000000F8BF"},
        {"double -0", [](comdat *c) { iv_comdat_graba_double(c, "a", -0.0); }, "04 02 6100 0000000000000080"},
        {"hwnd", [](comdat *c) { iv_comdat_graba_hwnd(c, "a", hwnd_de(0xFF22334455667788)); },
         "08 02 6100 88776655443322FF"},
        {"hwnd null", [](comdat *c) { iv_comdat_graba_hwnd(c, "a", nullptr); },
         "08 02 6100 0000000000000000"},
        {"buffer", [&](comdat *c) { iv_comdat_graba_buffer(c, "a", tres, 3); }, "05 02 6100 03000000 010203"},
        {"buffer 0", [&](comdat *c) { iv_comdat_graba_buffer(c, "a", tres, 0); }, "05 02 6100 00000000"},
        {"buffer null", [](comdat *c) { iv_comdat_graba_buffer(c, "a", nullptr, 0); }, "05 02 6100 00000000"},
        {"buffer null of 5", [](comdat *c) { iv_comdat_graba_buffer(c, "a", nullptr, 5); },
         "05 02 6100 00000000"},
        {"text", [](comdat *c) { iv_comdat_graba_cadena_ansi(c, "a", "\xF1z"); },
         "06 02 6100 03000000 F17A00"},
        {"text empty", [](comdat *c) { iv_comdat_graba_cadena_ansi(c, "a", ""); }, "06 02 6100 01000000 00"},
        {"text null", [](comdat *c) { iv_comdat_graba_cadena_ansi(c, "a", nullptr); }, "06 02 6100 00000000"},
        {"wide", [](comdat *c) { iv_comdat_graba_cadena_unicode(c, "a", L"\u4E2D\x80"); },
         "07 02 6100 06000000 2D4E 8000 0000"},
        {"wide empty", [](comdat *c) { iv_comdat_graba_cadena_unicode(c, "a", L""); },
         "07 02 6100 02000000 0000"},
        {"wide null", [](comdat *c) { iv_comdat_graba_cadena_unicode(c, "a", nullptr); },
         "07 02 6100 00000000"},
        {"texts", [&](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "a", ansi, 4); },
         "09 02 6100 04000000 1C000000 22000000 27000000 2B000000"
         "02000000 6100  01000000 00  00000000  03000000 626300"},
        {"texts 0", [&](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "a", ansi, 0); },
         "09 02 6100 00000000"},
        {"texts null", [](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "a", nullptr, 2); },
         "09 02 6100 02000000 14000000 18000000 00000000 00000000"},
        {"wide texts", [&](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "a", anchos, 3); },
         "0A 02 6100 14000000 1C000000 20000000  04000000 0101 0000  00000000  02000000 0000"},
        {"wide texts 0", [&](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "a", anchos, 0); },
         "0A 02 6100"},
        {"wide texts null", [](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "a", nullptr, 1); },
         "0A 02 6100 0C000000 00000000"},
        {"name empty", [](comdat *c) { iv_comdat_graba_byte(c, "", 7); }, "01 01 00 07"},
        {"name null", [](comdat *c) { iv_comdat_graba_ushort(c, nullptr, 7); }, "02 01 00 0700"},
        {"name null of a buffer", [&](comdat *c) { iv_comdat_graba_buffer(c, nullptr, tres, 1); },
         "05 01 00 01000000 01"},
        {"name null of texts", [&](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, nullptr, ansi, 0); },
         "09 01 00 00000000"},
        {"name ANSI", [](comdat *c) { iv_comdat_graba_byte(c, "\xE1", 7); }, "01 02 E100 07"},
    };
    for (const auto &caso : CASOS) {
        contenedor c = para_grabar();
        caso.graba(c.get());
        EXPECT_TRUE(bytes_iguales(de_hex(std::string("01000000") + caso.hex), contenido(c))) << caso.que;
    }
}

TEST(iv_comdat, valores_se_graban_seguidos_y_se_cuentan)
{
    contenedor c = para_grabar();
    iv_comdat_graba_byte(c.get(), "a", 1);
    iv_comdat_graba_cadena_ansi(c.get(), "a", "x");
    const char *textos[] = {"y"};
    iv_comdat_graba_arr_cadenas_ansi(c.get(), "b", textos, 1);
    iv_comdat_graba_hwnd(c.get(), "", nullptr);

    EXPECT_TRUE(bytes_iguales(de_hex("04000000 01 02 6100 01  06 02 6100 02000000 7800"
                                     "09 02 6200 01000000 1F000000 02000000 7900  08 01 00 0000000000000000"),
                              contenido(c)));
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 4u);
}

TEST(iv_comdat, nombre_de_255_caracteres_o_mas_se_informa_y_se_graba_entero)
{
    for (uint32_t largo : {253u, 254u, 255u, 256u, 300u, 600u}) {
        std::string nombre(largo, 'n');
        contenedor c = para_grabar();
        iv_comdat_graba_byte(c.get(), nombre.c_str(), 0x77);
        if (largo >= 255)
            EXPECT_INFORME(MODULO, "len < 256");
        EXPECT_SIN_INFORMES();

        bytes esperado = de_hex("01000000 01");
        esperado.push_back(static_cast<uint8_t>(largo + 1));
        esperado.insert(esperado.end(), nombre.begin(), nombre.end());
        esperado.push_back(0);
        esperado.push_back(0x77);
        EXPECT_TRUE(bytes_iguales(esperado, contenido(c))) << largo;
    }
}

TEST(iv_comdat, nombre_de_254_caracteres_se_vuelve_a_leer)
{
    std::string nombre(254, 'n');
    contenedor c = para_grabar();
    iv_comdat_graba_byte(c.get(), nombre.c_str(), 0x77);

    contenedor l = lee(contenido(c));
    EXPECT_EQ(iv_comdat_nombre_valor(l.get(), 0), nombre);
    EXPECT_EQ(iv_comdat_dame_byte(l.get(), 0), 0x77);
}

// ---- Null containers

TEST(iv_comdat, contenedor_nulo_da_el_resultado_neutro)
{
    uint32_t num = 55, tam = 66;
    iv_comdat_graba_byte(nullptr, "a", 1);
    iv_comdat_graba_ushort(nullptr, "a", 1);
    iv_comdat_graba_ulong(nullptr, "a", 1);
    iv_comdat_graba_double(nullptr, "a", 1);
    iv_comdat_graba_hwnd(nullptr, "a", nullptr);
    iv_comdat_graba_buffer(nullptr, "a", "x", 1);
    iv_comdat_graba_cadena_ansi(nullptr, "a", "x");
    iv_comdat_graba_cadena_unicode(nullptr, "a", L"x");
    iv_comdat_graba_arr_cadenas_ansi(nullptr, "a", nullptr, 3);
    iv_comdat_graba_arr_cadenas_unicode(nullptr, "a", nullptr, 3);
    EXPECT_EQ(iv_comdat_dame_byte(nullptr, 0), 0);
    EXPECT_EQ(iv_comdat_dame_ushort(nullptr, 0), 0);
    EXPECT_EQ(iv_comdat_dame_ulong(nullptr, 0), 0u);
    EXPECT_EQ(iv_comdat_dame_double(nullptr, 0), 0.0);
    EXPECT_EQ(iv_comdat_dame_hwnd(nullptr, 0), nullptr);
    EXPECT_EQ(iv_comdat_dame_buffer(nullptr, 0, &tam), nullptr);
    EXPECT_EQ(tam, 66u);
    EXPECT_EQ(iv_comdat_dame_cadena_ansi(nullptr, 0), nullptr);
    EXPECT_EQ(iv_comdat_dame_cadena_unicode(nullptr, 0), nullptr);
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_ansi(nullptr, 0, &num), nullptr);
    EXPECT_EQ(num, 0u);
    num = 55;
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(nullptr, 0, &num), nullptr);
    EXPECT_EQ(num, 0u);
    EXPECT_SIN_INFORMES();                                  // the export has made it
}

TEST(iv_comdat, consultas_de_un_nulo_informan_tambien_aqui)
{
    EXPECT_EQ(iv_comdat_numero_valores(nullptr), 0u);
    EXPECT_INFORME(MODULO, "(comdat) != 0");
    EXPECT_STREQ(iv_comdat_nombre_valor(nullptr, 0), "?");
    EXPECT_INFORME(MODULO, "(comdat) != 0");
    EXPECT_EQ(iv_comdat_tipoDato(nullptr, 0), 0u);
    EXPECT_INFORME(MODULO, "(comdat) != 0");
}

// ---- Creation for reading, and the index

TEST(iv_comdat, contenedor_de_lectura_se_queda_con_la_copia_y_el_bloque)
{
    bytes b = de_hex(TODOS);
    uint8_t *datos = static_cast<uint8_t *>(i_malloc(static_cast<uint32_t>(b.size()) + 4));
    memcpy(datos, b.data(), b.size());
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 10, nullptr);
    iv_shared_bloque *de_quien_llama = bloque;
    char nombre[] = "Calc";
    contenedor c(iv_comdat_crea_para_leer(nombre, 4711, &de_quien_llama, datos, 146, 0));
    nombre[0] = 'X';

    EXPECT_STREQ(c->nombre_servicio, "Calc");
    EXPECT_EQ(c->id_bloque_MCCom, 4711u);
    EXPECT_EQ(c->shared_MCCom, bloque);
    EXPECT_EQ(de_quien_llama, nullptr);
    EXPECT_EQ(c->es_entrada, 0);
    EXPECT_EQ(c->tipo, 0u);
    EXPECT_EQ(c->buffer, datos);
    EXPECT_EQ(static_cast<void *>(c->num_valores), datos);
    EXPECT_EQ(c->tam, 146u);
    EXPECT_EQ(c->ocupado, 146u);
    EXPECT_EQ(c->offset, 0u);
    EXPECT_NE(c->valores, nullptr);
}

TEST(iv_comdat, indice_apunta_a_cada_valor)
{
    contenedor c = lee(TODOS);
    for (uint32_t i = 0; i < 10; i++) {
        const iv_comdat_valor &v = c->valores[i];
        EXPECT_EQ(v.tipoDato, SITIOS[i].tipo);
        EXPECT_EQ(a_texto(v.nombre), a_texto(c->buffer) + SITIOS[i].datos - 2);
        EXPECT_STREQ(v.nombre, SITIOS[i].nombre);
        EXPECT_EQ(v.offset, SITIOS[i].datos);
        EXPECT_EQ(v.tabla_cadenas, nullptr);
        EXPECT_EQ(iv_comdat_tipoDato(c.get(), i), SITIOS[i].tipo);
        EXPECT_EQ(iv_comdat_nombre_valor(c.get(), i), v.nombre);
    }
}

TEST(iv_comdat, contenido_sin_valores_no_tiene_indice)
{
    contenedor c = lee("00000000");
    EXPECT_EQ(c->valores, nullptr);
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 0u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "?");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 0u);
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0);
}

TEST(iv_comdat, id_0_se_informa_y_se_sigue)
{
    iv_shared_bloque *sin_bloque = nullptr;
    contenedor c(iv_comdat_crea_para_leer("S", 0, &sin_bloque, static_cast<uint8_t *>(i_malloc(8)), 4, 1));
    EXPECT_INFORME(MODULO, "id_bloque_MCCom != 0");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->id_bloque_MCCom, 0u);
    EXPECT_EQ(c->shared_MCCom, nullptr);
}

TEST(iv_comdat, direccion_nula_del_bloque_se_informa_y_da_nulo)
{
    uint8_t *datos = static_cast<uint8_t *>(i_malloc(8));
    EXPECT_EQ(iv_comdat_crea_para_leer("S", 0, nullptr, datos, 4, 1), nullptr);
    EXPECT_INFORME(MODULO, "id_bloque_MCCom != 0");
    EXPECT_INFORME(MODULO, "shared_MCCom != NULL");
    i_free(datos);
}

// ---- Readers

TEST(iv_comdat, cada_lector_da_su_valor)
{
    contenedor c = lee(TODOS);
    uint32_t tam = 0, num = 0, num_u = 0;

    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 10u);
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0x2A);
    EXPECT_EQ(iv_comdat_dame_ushort(c.get(), 1), 0x1234);
    EXPECT_EQ(iv_comdat_dame_ulong(c.get(), 2), 0x12345678u);
    EXPECT_EQ(iv_comdat_dame_double(c.get(), 3), 1.5);
    EXPECT_EQ(iv_comdat_dame_hwnd(c.get(), 7), hwnd_de(0x1122334455667788));
    EXPECT_EQ(a_texto(iv_comdat_dame_buffer(c.get(), 4, &tam)), a_texto(c->buffer) + 43);
    EXPECT_EQ(tam, 3u);
    EXPECT_EQ(iv_comdat_dame_cadena_ansi(c.get(), 5), a_texto(c->buffer) + 54);
    EXPECT_STREQ(iv_comdat_dame_cadena_ansi(c.get(), 5), "hola");
    EXPECT_EQ(a_texto(iv_comdat_dame_cadena_unicode(c.get(), 6)), a_texto(c->buffer) + 67);
    EXPECT_EQ(memcmp(iv_comdat_dame_cadena_unicode(c.get(), 6), L"\u00E1\u00E9", 6), 0);
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, &num);
    ASSERT_EQ(num, 2u);
    EXPECT_EQ(textos[0], a_texto(c->buffer) + 105);
    EXPECT_EQ(textos[1], a_texto(c->buffer) + 112);         // a null text: what follows it
    EXPECT_EQ(c->valores[8].tabla_cadenas, textos);
    const wchar_t *const *anchos = iv_comdat_dame_arr_cadenas_unicode(c.get(), 9, &num_u);
    ASSERT_EQ(num_u, 2u);
    EXPECT_EQ(a_texto(anchos[0]), a_texto(c->buffer) + 132);
    EXPECT_EQ(a_texto(anchos[1]), a_texto(c->buffer) + 140);
    EXPECT_EQ(memcmp(anchos[1], L"yz", 6), 0);
}

TEST(iv_comdat, valores_extremos_van_y_vuelven)
{
    const uint64_t bits_nan = 0x7FF8000000000123;
    double nan;
    memcpy(&nan, &bits_nan, 8);
    contenedor e = para_grabar();
    iv_comdat_graba_byte(e.get(), "", 255);
    iv_comdat_graba_ushort(e.get(), "", 65535);
    iv_comdat_graba_ulong(e.get(), "", 4294967295u);
    iv_comdat_graba_double(e.get(), "", 1.7976931348623157e308);
    iv_comdat_graba_double(e.get(), "", 5e-324);
    iv_comdat_graba_double(e.get(), "", nan);
    iv_comdat_graba_hwnd(e.get(), "", hwnd_de(0xFFFFFFFFFFFFFFFF));

    contenedor l = lee(contenido(e));
    EXPECT_EQ(iv_comdat_dame_byte(l.get(), 0), 255);
    EXPECT_EQ(iv_comdat_dame_ushort(l.get(), 1), 65535);
    EXPECT_EQ(iv_comdat_dame_ulong(l.get(), 2), 4294967295u);
    EXPECT_EQ(iv_comdat_dame_double(l.get(), 3), 1.7976931348623157e308);
    EXPECT_EQ(iv_comdat_dame_double(l.get(), 4), 5e-324);
    double leido = iv_comdat_dame_double(l.get(), 5);
    EXPECT_EQ(memcmp(&leido, &bits_nan, 8), 0);
    EXPECT_EQ(iv_comdat_dame_hwnd(l.get(), 6), hwnd_de(0xFFFFFFFFFFFFFFFF));
}

TEST(iv_comdat, otro_tipo_u_otra_posicion_da_el_resultado_neutro)
{
    contenedor c = lee(TODOS);
    for (uint32_t i : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(i);
        uint32_t tam = 66, num = 66, num_u = 66;
        if (i != 0)
            EXPECT_EQ(iv_comdat_dame_byte(c.get(), i), 0);
        if (i != 1)
            EXPECT_EQ(iv_comdat_dame_ushort(c.get(), i), 0);
        if (i != 2)
            EXPECT_EQ(iv_comdat_dame_ulong(c.get(), i), 0u);
        if (i != 3)
            EXPECT_EQ(iv_comdat_dame_double(c.get(), i), 0.0);
        if (i != 7)
            EXPECT_EQ(iv_comdat_dame_hwnd(c.get(), i), nullptr);
        if (i != 4) {
            EXPECT_EQ(iv_comdat_dame_buffer(c.get(), i, &tam), nullptr);
            EXPECT_EQ(tam, 66u);
        }
        if (i != 5)
            EXPECT_EQ(iv_comdat_dame_cadena_ansi(c.get(), i), nullptr);
        if (i != 6)
            EXPECT_EQ(iv_comdat_dame_cadena_unicode(c.get(), i), nullptr);
        if (i != 8) {
            EXPECT_EQ(iv_comdat_dame_arr_cadenas_ansi(c.get(), i, &num), nullptr);
            EXPECT_EQ(num, 0u);
        }
        if (i != 9) {
            EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(c.get(), i, &num_u), nullptr);
            EXPECT_EQ(num_u, 0u);
        }
    }
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 10), "?");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 10), 0u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0xFFFFFFFF), "?");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0xFFFFFFFF), 0u);
    EXPECT_EQ(c->offset, 0u);                               // none of these moves the cursor
}

TEST(iv_comdat, ulong_de_un_ushort_da_0_y_su_tipo_sigue_siendo_2)
{
    contenedor c = lee("01000000 02 02 6100 FFFF");
    EXPECT_EQ(iv_comdat_dame_ulong(c.get(), 0), 0u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 2u);
}

TEST(iv_comdat, textos_y_buffers_nulos_y_vacios_se_distinguen)
{
    contenedor e = para_grabar();
    iv_comdat_graba_cadena_ansi(e.get(), "a", nullptr);
    iv_comdat_graba_cadena_ansi(e.get(), "b", "");
    iv_comdat_graba_cadena_unicode(e.get(), "c", nullptr);
    iv_comdat_graba_cadena_unicode(e.get(), "d", L"");
    iv_comdat_graba_buffer(e.get(), "e", nullptr, 0);

    contenedor l = lee(contenido(e));
    uint32_t tam = 66;
    EXPECT_EQ(iv_comdat_dame_cadena_ansi(l.get(), 0), nullptr);
    EXPECT_STREQ(iv_comdat_dame_cadena_ansi(l.get(), 1), "");
    EXPECT_EQ(iv_comdat_dame_cadena_unicode(l.get(), 2), nullptr);
    EXPECT_STREQ(iv_comdat_dame_cadena_unicode(l.get(), 3), L"");
    EXPECT_EQ(iv_comdat_dame_buffer(l.get(), 4, &tam), nullptr);
    EXPECT_EQ(tam, 0u);
}

TEST(iv_comdat, lectores_admiten_un_resultado_nulo)
{
    contenedor c = lee(TODOS);
    EXPECT_EQ(a_texto(iv_comdat_dame_buffer(c.get(), 4, nullptr)), a_texto(c->buffer) + 43);
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, nullptr)[0], a_texto(c->buffer) + 105);
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, nullptr), nullptr);
}

TEST(iv_comdat, nombres_repetidos_se_encuentran_por_posicion)
{
    contenedor c = lee("03000000 01 02 6100 01  01 02 6100 02  01 01 00 03");
    for (uint8_t i = 0; i < 3; i++)
        EXPECT_EQ(iv_comdat_dame_byte(c.get(), i), i + 1);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 1), "a");
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 2), "");
}

TEST(iv_comdat, solo_textos_buffers_y_arreglos_mueven_el_cursor)
{
    contenedor c = lee(TODOS);
    uint32_t n;
    iv_comdat_dame_cadena_ansi(c.get(), 5);
    EXPECT_EQ(c->offset, 59u);
    iv_comdat_dame_byte(c.get(), 0);
    iv_comdat_dame_ushort(c.get(), 1);
    iv_comdat_dame_ulong(c.get(), 2);
    iv_comdat_dame_double(c.get(), 3);
    iv_comdat_dame_hwnd(c.get(), 7);
    EXPECT_EQ(c->offset, 59u);
    iv_comdat_dame_buffer(c.get(), 4, &n);
    EXPECT_EQ(c->offset, 46u);
    iv_comdat_dame_cadena_unicode(c.get(), 6);
    EXPECT_EQ(c->offset, 73u);
    iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, &n);
    EXPECT_EQ(c->offset, 101u);                             // behind the table
    iv_comdat_dame_arr_cadenas_unicode(c.get(), 9, &n);
    EXPECT_EQ(c->offset, 128u);
}

TEST(iv_comdat, numeros_se_comprueban_desde_el_cursor_y_no_desde_su_sitio)
{
    // A number of each size, then a text that leaves the cursor `quedan` bytes before the end.
    const std::string NUMEROS = "07000000 01 01 00 11  02 01 00 2222  03 01 00 33333333"
                                "04 01 00 000000000000F03F  08 01 00 8800000000000000"
                                "06 01 00 01000000 00  05 01 00";
    const struct { uint32_t tam; std::function<bool(comdat *)> lee_bien; } LECTORES[] = {
        {1, [](comdat *c) { return iv_comdat_dame_byte(c, 0) == 0x11; }},
        {2, [](comdat *c) { return iv_comdat_dame_ushort(c, 1) == 0x2222; }},
        {4, [](comdat *c) { return iv_comdat_dame_ulong(c, 2) == 0x33333333; }},
        {8, [](comdat *c) { return iv_comdat_dame_double(c, 3) == 1.0; }},
        {8, [](comdat *c) { return iv_comdat_dame_hwnd(c, 4) == hwnd_de(0x88); }},
    };
    for (uint32_t quedan = 7; quedan <= 15; quedan++) {
        uint8_t relleno = static_cast<uint8_t>(quedan - 7);
        bytes b = de_hex(NUMEROS);
        b.insert(b.end(), {relleno, 0, 0, 0});
        b.insert(b.end(), relleno, 0xEE);
        contenedor c = lee(b);
        iv_comdat_dame_cadena_ansi(c.get(), 5);
        ASSERT_EQ(c->ocupado - c->offset, quedan);
        for (const auto &lector : LECTORES) {
            EXPECT_TRUE(lector.lee_bien(c.get()));
            if (lector.tam > quedan)
                EXPECT_INFORME(MODULO, FUERA);
            EXPECT_SIN_INFORMES();
        }
        uint32_t n;
        iv_comdat_dame_buffer(c.get(), 6, &n);
        ASSERT_EQ(c->offset, c->ocupado);
        for (const auto &lector : LECTORES) {
            EXPECT_TRUE(lector.lee_bien(c.get()));          // all the same
            EXPECT_INFORME(MODULO, FUERA);
        }
    }
}

TEST(iv_comdat, arreglo_leido_dos_veces_da_otra_tabla_y_solo_la_ultima_se_libera)
{
    contenedor c = lee(TODOS);
    uint32_t num;
    iv_comdat_dame_byte(c.get(), 0);
    uso_heap antes = mide_heap();
    const char *const *primera = iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, &num);
    const char *const *segunda = iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, &num);

    EXPECT_NE(primera, segunda);
    EXPECT_EQ(c->valores[8].tabla_cadenas, segunda);
    EXPECT_STREQ(primera[0], "un");
    EXPECT_STREQ(segunda[0], "un");
    EXPECT_EQ(mide_heap().bloques, antes.bloques + 2);
    c.reset();
    EXPECT_EQ(mide_heap().bloques, antes.bloques - 4 + 1);      // all but the first table
    i_free(const_cast<char **>(primera));
}

TEST(iv_comdat, arreglo_sin_elementos_se_lee_sin_informe)
{
    for (const char *hex : {"01000000 09 02 6100 00000000", "01000000 0A 02 6100 00000000"}) {
        contenedor c = lee(hex);
        uint32_t num = 66;
        const void *tabla = iv_comdat_tipoDato(c.get(), 0) == 9
            ? static_cast<const void *>(iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num))
            : static_cast<const void *>(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num));
        EXPECT_NE(tabla, nullptr);
        EXPECT_EQ(num, 0u);
    }
}

TEST(iv_comdat, arreglo_ansi_va_y_vuelve)
{
    const char *textos[] = {"uno", nullptr, "", "cuatro"};
    contenedor e = para_grabar();
    iv_comdat_graba_arr_cadenas_ansi(e.get(), "t", textos, 4);
    iv_comdat_graba_byte(e.get(), "b", 9);

    contenedor l = lee(contenido(e));
    uint32_t num = 0;
    const char *const *leidos = iv_comdat_dame_arr_cadenas_ansi(l.get(), 0, &num);
    ASSERT_EQ(num, 4u);
    EXPECT_STREQ(leidos[0], "uno");
    EXPECT_EQ(a_texto(leidos[1]) + 4, a_texto(leidos[2]));  // what follows the null text
    EXPECT_STREQ(leidos[2], "");
    EXPECT_STREQ(leidos[3], "cuatro");
    EXPECT_EQ(iv_comdat_dame_byte(l.get(), 1), 9);
}

TEST(iv_comdat, texto_nulo_al_final_de_un_arreglo_es_vacio)
{
    for (const char *hex : {"01000000 09 02 6100 01000000 10000000 00000000",
                            "01000000 0A 02 6100 01000000 10000000 00000000"}) {
        contenedor c = lee(hex);
        uint32_t num = 0;
        const void *texto = iv_comdat_tipoDato(c.get(), 0) == 9
            ? static_cast<const void *>(iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num)[0])
            : static_cast<const void *>(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num)[0]);
        EXPECT_EQ(num, 1u);
        ASSERT_EQ(texto, c->buffer + 20);
        EXPECT_EQ(memcmp(texto, "\0\0", 2), 0);
    }
}

// ---- The wrong kind of container

TEST(iv_comdat, leer_de_un_contenedor_de_escritura_se_informa_y_no_da_nada)
{
    contenedor c = para_grabar();
    iv_comdat_graba_byte(c.get(), "a", 1);
    uint32_t n = 66;

    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 1u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "?");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 0u);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0);
    EXPECT_EQ(iv_comdat_dame_ushort(c.get(), 0), 0);
    EXPECT_EQ(iv_comdat_dame_ulong(c.get(), 0), 0u);
    EXPECT_EQ(iv_comdat_dame_double(c.get(), 0), 0.0);
    EXPECT_EQ(iv_comdat_dame_hwnd(c.get(), 0), nullptr);
    EXPECT_EQ(iv_comdat_dame_cadena_ansi(c.get(), 0), nullptr);
    EXPECT_EQ(iv_comdat_dame_cadena_unicode(c.get(), 0), nullptr);
    EXPECT_EQ(iv_comdat_dame_buffer(c.get(), 0, &n), nullptr);
    EXPECT_EQ(n, 66u);
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &n), nullptr);
    EXPECT_EQ(n, 0u);
    n = 66;
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &n), nullptr);
    EXPECT_EQ(n, 0u);
    for (int informes = 0; informes < 10; informes++)
        EXPECT_INFORME(MODULO, NO_LEE);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 01"), contenido(c)));
}

TEST(iv_comdat, grabar_en_un_contenedor_de_lectura_se_informa_y_escribe_en_el_cursor)
{
    contenedor c = lee("02000000 06 02 6100 02000000 7800  05 02 6200 08000000 0102030405060708");
    const uint8_t *antes = c->buffer;
    iv_comdat_dame_cadena_ansi(c.get(), 0);
    iv_comdat_graba_byte(c.get(), "z", 9);

    EXPECT_INFORME(MODULO, NO_ESCRIBE);
    EXPECT_EQ(c->buffer, antes);                            // readers' pointers still hold
    EXPECT_EQ(c->offset, 19u);
    EXPECT_EQ(c->ocupado, 30u);
    EXPECT_TRUE(bytes_iguales(
        de_hex("03000000 06 02 6100 02000000 7800  01 02 7A00 09 000000 0102030405060708"), contenido(c)));
}

TEST(iv_comdat, grabar_mas_alla_de_un_contenedor_de_lectura_no_cuenta)
{
    contenedor c = lee("01000000 06 02 6100 02000000 7800");
    iv_comdat_dame_cadena_ansi(c.get(), 0);
    ASSERT_EQ(c->offset, 14u);
    iv_comdat_graba_byte(c.get(), "z", 9);

    EXPECT_INFORME(MODULO, NO_ESCRIBE);
    EXPECT_EQ(c->offset, 14u);
    EXPECT_EQ(c->tam, 14u);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 06 02 6100 02000000 7800"), contenido(c)));
    EXPECT_EQ(memcmp(c->buffer + 14, "\0\0\0\0", 4), 0);
}

TEST(iv_comdat, clase_equivocada_y_nombre_largo_se_informan_en_orden)
{
    contenedor c = lee("00000000");
    iv_comdat_graba_byte(c.get(), std::string(255, 'n').c_str(), 9);
    EXPECT_INFORME(MODULO, NO_ESCRIBE);
    EXPECT_INFORME(MODULO, "len < 256");
}

// ---- Storing and loading

TEST(iv_comdat, cargar_copia_el_bloque_y_lo_tiene_abierto)
{
    const char *nombre = nombre_unico("bloque");
    bytes b = de_hex(TODOS);
    iv_shared_bloque *bloque = iv_shared_crea_con_datos(nombre, 146, b.data());
    iv_shared_bloque *abierto = bloque;
    void *vista = bloque->sharedmem;
    contenedor c(iv_comdat_carga("S", 7, &abierto, 1));

    EXPECT_EQ(abierto, nullptr);
    EXPECT_EQ(c->shared_MCCom, bloque);
    EXPECT_EQ(c->tam, 146u);
    EXPECT_TRUE(bytes_iguales(b, contenido(c)));
    EXPECT_GE(HeapSize(s_LocalHeap, 0, c->buffer), 150u);
    EXPECT_EQ(memcmp(c->buffer + 146, "\0\0\0\0", 4), 0);
    const char *texto = iv_comdat_dame_cadena_ansi(c.get(), 5);
    bloque_crudo(nombre).pon_bytes(0, bytes(146, 0xFF));
    EXPECT_STREQ(texto, "hola");                            // a private copy
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0x2A);

    EXPECT_TRUE(existe_bloque(nombre));
    c.reset();
    EXPECT_FALSE(existe_bloque(nombre));
    MEMORY_BASIC_INFORMATION memoria = {};
    VirtualQuery(vista, &memoria, sizeof memoria);
    EXPECT_EQ(memoria.State, static_cast<DWORD>(MEM_FREE)); // unmapped, too
}

TEST(iv_comdat, bloque_vacio_se_informa_y_da_un_contenedor_sin_valores)
{
    const char *nombre = nombre_unico("vacio");
    bloque_crudo crudo(nombre, 0);
    iv_shared_bloque *bloque = iv_shared_abre_si_existe(nombre);
    contenedor c(iv_comdat_carga("S", 7, &bloque, 1));

    EXPECT_INFORME("iv_mem", "tam > 0");
    EXPECT_INFORME(MODULO, FUERA);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 0u);
    EXPECT_EQ(c->valores, nullptr);
}

TEST(iv_comdat, guardado_engancha_el_bloque)
{
    contenedor c = para_grabar();
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 8, nullptr);
    iv_shared_bloque *de_quien_llama = bloque;
    iv_comdat_guardado(c.get(), 123, &de_quien_llama);

    EXPECT_EQ(de_quien_llama, nullptr);
    EXPECT_EQ(c->id_bloque_MCCom, 123u);
    EXPECT_EQ(c->shared_MCCom, bloque);
}

TEST(iv_comdat, guardado_sin_bloque_se_informa_y_no_engancha)
{
    contenedor c = para_grabar();
    iv_shared_bloque *sin_bloque = nullptr;
    iv_comdat_guardado(c.get(), 123, nullptr);
    EXPECT_INFORME(MODULO, "shared_MCCom != NULL && *shared_MCCom != NULL");
    iv_comdat_guardado(c.get(), 123, &sin_bloque);
    EXPECT_INFORME(MODULO, "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_EQ(c->id_bloque_MCCom, 0u);
    EXPECT_EQ(c->shared_MCCom, nullptr);
}

TEST(iv_comdat, segundo_guardado_se_informa_y_deja_vivos_los_dos_bloques)
{
    const char *nombres[] = {nombre_unico("primero"), nombre_unico("segundo")};
    contenedor c = para_grabar();
    iv_shared_bloque *primero = iv_shared_crea(nombres[0], nullptr, 8, nullptr), *suyo = primero;
    iv_comdat_guardado(c.get(), 100, &suyo);
    iv_shared_bloque *segundo = iv_shared_crea(nombres[1], nullptr, 8, nullptr);
    iv_comdat_guardado(c.get(), 101, &segundo);

    EXPECT_INFORME(MODULO, "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME(MODULO, "comdat->shared_MCCom == NULL");
    EXPECT_EQ(segundo, nullptr);
    EXPECT_EQ(c->id_bloque_MCCom, 100u);
    EXPECT_EQ(c->shared_MCCom, primero);
    c.reset();
    EXPECT_FALSE(existe_bloque(nombres[0]));
    EXPECT_TRUE(existe_bloque(nombres[1]));
}

TEST(iv_comdat, guardar_lo_que_se_lee_se_informa)
{
    contenedor c = lee("00000000");
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 8, nullptr);
    iv_comdat_guardado(c.get(), 100, &bloque);
    EXPECT_INFORME(MODULO, "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME(MODULO, NO_ESCRIBE);
    EXPECT_EQ(bloque, nullptr);
}

namespace {

// A container for a service of its own, and the name of its block of that id.
struct a_guardar {
    std::string servicio = nombre_unico("S");
    contenedor c{iv_comdat_crea_para_grabar(servicio.c_str(), 1)};
    std::string nombre(uint32_t id) const
    {
        return "Ivrexa_MCB_Serv_" + servicio + "_Com__comdat" + std::to_string(id);
    }
};

}

TEST(iv_comdat, guardar_hace_un_bloque_de_los_bytes_justos)
{
    a_guardar g;
    iv_comdat_graba_byte(g.c.get(), "a", 7);
    EXPECT_EQ(iv_mcserv_guarda_datos(g.c.get(), 117), 1);

    bloque_crudo crudo(g.nombre(117).c_str());
    EXPECT_EQ(crudo.cabecera(), 9u);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 07 0000"), crudo.bytes(0, 11)));
    EXPECT_EQ(g.c->id_bloque_MCCom, 117u);
    EXPECT_STREQ(g.c->shared_MCCom->nombre, g.nombre(117).c_str());
}

TEST(iv_comdat, guardar_en_un_bloque_mayor_deja_su_cabecera)
{
    a_guardar g;
    bloque_crudo crudo(g.nombre(5).c_str(), 30);
    crudo.pon_bytes(0, bytes(30, 0xEE));
    EXPECT_EQ(iv_mcserv_guarda_datos(g.c.get(), 5), 1);

    EXPECT_EQ(crudo.cabecera(), 30u);
    EXPECT_TRUE(bytes_iguales(de_hex("00000000 EEEE"), crudo.bytes(0, 6)));
    EXPECT_EQ(g.c->id_bloque_MCCom, 5u);
}

TEST(iv_comdat, guardar_en_un_bloque_menor_que_otro_tiene_no_escribe_nada)
{
    a_guardar g;
    bloque_crudo crudo(g.nombre(5).c_str(), 3);
    crudo.pon_bytes(0, bytes(3, 0xEE));
    EXPECT_EQ(iv_mcserv_guarda_datos(g.c.get(), 5), 0);

    EXPECT_INFORME(MODULO, "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_TRUE(bytes_iguales(de_hex("EEEEEE 00"), crudo.bytes(0, 4)));
    EXPECT_EQ(g.c->id_bloque_MCCom, 0u);
    EXPECT_EQ(g.c->shared_MCCom, nullptr);
}

// ---- The server's reading of its input

namespace {

struct canal_forjado {
    std::string servicio = nombre_unico("S");
    std::string nombre = "Ivrexa_MCB_Serv_" + servicio;
    bloque_crudo crudo{nombre.c_str(), 2378};
    iv_shared_bloque *abierto = iv_mcserv_abre_bloque(servicio.c_str());
    ~canal_forjado() { iv_shared_destruye(&abierto); }

    std::string nombre_datos(uint32_t id) const { return nombre + "_Com__comdat" + std::to_string(id); }
    bloque_crudo con_datos(uint32_t id, const char *hex) const
    {
        bytes b = de_hex(hex);
        bloque_crudo datos(nombre_datos(id).c_str(), static_cast<uint32_t>(b.size()));
        datos.pon_bytes(0, b);
        return datos;
    }
    contenedor lee_entrada(uint32_t campo, uint32_t argumento)
    {
        crudo.pon_u32(1206, campo);
        return contenedor(iv_mcserv_lee_datos_entrada(servicio.c_str(), abierto, argumento));
    }
};

const char *const OTRO_BLOQUE = "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada";

}

TEST(iv_comdat_entrada, se_toma_una_vez)
{
    canal_forjado canal;
    bloque_crudo datos = canal.con_datos(100, "01000000 01 02 6100 07");
    contenedor c = canal.lee_entrada(100, 100);

    ASSERT_NE(c, nullptr);
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 7);
    EXPECT_EQ(c->es_entrada, 1);
    EXPECT_EQ(c->id_bloque_MCCom, 100u);
    EXPECT_EQ(c->nombre_servicio, canal.servicio);
    EXPECT_EQ(canal.crudo.u32(1206), 0u);
}

TEST(iv_comdat_entrada, el_campo_decide_y_el_argumento_nombra)
{
    canal_forjado canal;
    bloque_crudo uno = canal.con_datos(100, "01000000 01 02 6100 01");
    bloque_crudo otro = canal.con_datos(101, "01000000 01 02 6100 02");

    EXPECT_EQ(canal.lee_entrada(0, 0), nullptr);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(canal.lee_entrada(0, 100), nullptr);
    EXPECT_INFORME("iv_mcserv", OTRO_BLOQUE);
    contenedor c = canal.lee_entrada(100, 101);
    EXPECT_INFORME("iv_mcserv", OTRO_BLOQUE);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 2);
    EXPECT_EQ(canal.crudo.u32(1206), 0u);
}

TEST(iv_comdat_entrada, bloque_que_falta_se_informa_y_el_campo_se_borra)
{
    canal_forjado canal;
    EXPECT_EQ(canal.lee_entrada(555, 555), nullptr);
    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_EQ(canal.crudo.u32(1206), 0u);
    EXPECT_FALSE(existe_bloque(canal.nombre_datos(555).c_str()));
}

// ---- Trace. In roles: the switch is read once in a process.

PAPEL(traza_de_contenedores)
{
    captura_traza traza;
    auto manda = [&](comdat *c) {
        yo.di(junta({"TRAZA", traza.texto_propio(), std::to_string(reinterpret_cast<uintptr_t>(c))}));
        traza.borra();
    };
    yo.di("LISTO");
    for (int16_t es_entrada : {1, 0}) {
        manda(iv_comdat_crea_para_grabar("S", es_entrada));
        iv_shared_bloque *sin_bloque = nullptr;
        uint8_t *datos = static_cast<uint8_t *>(i_malloc(12));
        traza.borra();
        manda(iv_comdat_crea_para_leer("S", 1, &sin_bloque, datos, 4, es_entrada));
    }
    manda(iv_comdat_crea_para_leer("S", 1, nullptr, nullptr, 4, 0));
    return 0;
}

static papel arranca_traza(const std::optional<std::string> &valor)
{
    opciones_papel opciones;
    opciones.entorno["IVREXA_DEBUG"] = valor;
    return arranca_papel("traza_de_contenedores", {}, opciones);
}

// The beginning, then lines of the heap alone, then the end.
static void comprueba_traza(papel &p, const std::string &inicio, const std::string &antes_de_direccion)
{
    std::vector<std::string> partes = campos(p.espera_linea("TRAZA|", 10000));
    ASSERT_EQ(partes.size(), 3u);
    std::string texto = partes[1], fin = antes_de_direccion + partes[2] + "\n";
    EXPECT_EQ(texto.substr(0, inicio.size()), inicio);
    ASSERT_GE(texto.size(), inicio.size() + fin.size());
    EXPECT_EQ(texto.substr(texto.size() - fin.size()), fin);
    std::string medio = texto.substr(inicio.size(), texto.size() - inicio.size() - fin.size());
    EXPECT_NE(medio, "");
    while (!medio.empty()) {
        std::string linea = medio.substr(0, medio.find('\n') + 1);
        ASSERT_NE(linea, "") << medio;
        EXPECT_TRUE(linea.rfind("[s_LocalHeap=", 0) == 0 || linea.rfind("Despues de i_malloc: ", 0) == 0 ||
                    linea.rfind("HeapCreate: ", 0) == 0)
            << linea;
        medio.erase(0, linea.size());
    }
}

TEST(iv_comdat, crear_se_traza_antes_y_despues)
{
    papel p = arranca_traza("1");
    comprueba_traza(p, "*** iv_comdat_crea_para_grabar(DatosEntrada)... \n", "*** -> ");
    comprueba_traza(p, "*** iv_comdat_crea_para_leer(DatosEntrada)", " -> ");
    comprueba_traza(p, "*** iv_comdat_crea_para_grabar(DatosSalida)... \n", "*** -> ");
    comprueba_traza(p, "*** iv_comdat_crea_para_leer(DatosSalida)", " -> ");
    EXPECT_EQ(p.espera_linea("TRAZA|", 10000), "TRAZA|*** iv_comdat_crea_para_leer(DatosSalida)|0");
    EXPECT_INFORME_DE(p, MODULO, "shared_MCCom != NULL");
    EXPECT_EQ(p.espera_fin(10000), 0u);
}

TEST(iv_comdat, crear_sin_traza_no_escribe_nada)
{
    papel p = arranca_traza(std::nullopt);
    for (int n = 0; n < 5; n++)
        EXPECT_EQ(campos(p.espera_linea("TRAZA|", 10000)).at(1), "");
    EXPECT_INFORME_DE(p, MODULO, "shared_MCCom != NULL");
    EXPECT_EQ(p.espera_fin(10000), 0u);
}

// ---- Content that lies. Behind the bytes and their four zero bytes begins a page that may not be touched.

namespace {

class zona_con_guarda {
public:
    zona_con_guarda()
    {
        DWORD antes;
        void *paginas = VirtualAlloc(nullptr, 3 * 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
        m_inicio = static_cast<uint8_t *>(paginas);
        VirtualProtect(m_inicio + 2 * 4096, 4096, PAGE_NOACCESS, &antes);
    }
    ~zona_con_guarda() { VirtualFree(m_inicio, 0, MEM_RELEASE); }
    zona_con_guarda(const zona_con_guarda &) = delete;
    zona_con_guarda &operator=(const zona_con_guarda &) = delete;

    uint8_t *pon(const uint8_t *datos, size_t num)
    {
        uint8_t *sitio = m_inicio + 2 * 4096 - 4 - num;
        memset(m_inicio, 0xEE, 2 * 4096);
        memset(sitio, 0, num + 4);
        if (num != 0)
            memcpy(sitio, datos, num);
        return sitio;
    }

private:
    uint8_t *m_inicio;
};

// A container that reads the zone. It destroys a block of the heap in its place.
class lectura_con_guarda {
public:
    lectura_con_guarda(zona_con_guarda &zona, const uint8_t *datos, size_t num)
    {
        const uint32_t tam = static_cast<uint32_t>(num);
        iv_shared_bloque *sin_bloque = nullptr;
        c = iv_comdat_crea_para_leer("S", 7, &sin_bloque, zona.pon(datos, num), tam, 1);
    }
    ~lectura_con_guarda()
    {
        c->buffer = static_cast<uint8_t *>(i_malloc(1));
        iv_comdat_destruye(c);
    }
    lectura_con_guarda(const lectura_con_guarda &) = delete;
    lectura_con_guarda &operator=(const lectura_con_guarda &) = delete;

    comdat *c;
};

// False when it touched memory that it may not.
bool sin_fallo(const std::function<void()> &f)
{
    auto llama = [](const std::function<void()> *funcion) { (*funcion)(); };
    void (*volatile de_fuera)(const std::function<void()> *) = llama;
    __try {
        de_fuera(&f);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        return false;
    }
    return true;
}

uint32_t recorre_texto(const char *texto)
{
    uint32_t suma = 0;
    for (; texto != nullptr && *texto != '\0'; texto++)
        suma += static_cast<uint8_t>(*texto);
    return suma;
}

uint32_t recorre_texto(const wchar_t *texto)
{
    uint32_t suma = 0;
    for (const char *p = reinterpret_cast<const char *>(texto); p != nullptr; p += 2) {
        uint16_t unidad;
        memcpy(&unidad, p, 2);                              // may lie at an odd address
        if (unidad == 0)
            break;
        suma += unidad;
    }
    return suma;
}

template <typename texto>
uint32_t recorre_tabla(const texto *tabla, uint32_t num)
{
    uint32_t suma = 0;
    EXPECT_TRUE(tabla != nullptr || num == 0);
    for (uint32_t i = 0; i < num; i++)
        suma += recorre_texto(tabla[i]);
    return suma;
}

// Asks everything of one position and reads all that is handed out, to its end.
uint32_t recorre_valor(comdat *c, uint32_t i)
{
    uint32_t tam = 0, num = 0, num_u = 0;
    uint32_t suma = recorre_texto(iv_comdat_nombre_valor(c, i)) + iv_comdat_tipoDato(c, i);
    suma += iv_comdat_dame_byte(c, i) + iv_comdat_dame_ushort(c, i) + iv_comdat_dame_ulong(c, i);
    suma += iv_comdat_dame_double(c, i) == 0.0 ? 1 : 0;
    suma += iv_comdat_dame_hwnd(c, i) == nullptr ? 1 : 0;
    suma += recorre_texto(iv_comdat_dame_cadena_ansi(c, i));
    suma += recorre_texto(iv_comdat_dame_cadena_unicode(c, i));
    const uint8_t *buffer = static_cast<const uint8_t *>(iv_comdat_dame_buffer(c, i, &tam));
    for (uint32_t n = 0; n < tam; n++)
        suma += buffer[n];
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c, i, &num);
    suma += recorre_tabla(textos, num);
    const wchar_t *const *anchos = iv_comdat_dame_arr_cadenas_unicode(c, i, &num_u);
    return suma + recorre_tabla(anchos, num_u);
}

volatile uint32_t s_suma;

void recorre(comdat *c)
{
    uint32_t num = std::min(iv_comdat_numero_valores(c), 20u);
    for (uint32_t i = 0; i <= num; i++)
        s_suma = s_suma + recorre_valor(c, i);
    s_suma = s_suma + recorre_valor(c, 0xFFFFFFFF);
}

void graba_de_todo(comdat *c)
{
    const char *textos[] = {"a", nullptr};
    const wchar_t *anchos[] = {L"a", nullptr};
    iv_comdat_graba_byte(c, "n", 0xEE);
    iv_comdat_graba_double(c, "n", -1.0);
    iv_comdat_graba_buffer(c, "n", "0123456789", 10);
    iv_comdat_graba_cadena_ansi(c, "n", "texto");
    iv_comdat_graba_cadena_unicode(c, "n", L"texto");
    iv_comdat_graba_arr_cadenas_ansi(c, "n", textos, 2);
    iv_comdat_graba_arr_cadenas_unicode(c, "n", anchos, 2);
    iv_comdat_graba_arr_cadenas_ansi(c, "n", nullptr, 0xFFFFFFFF);
}

// The number that a fixed-size value of TODOS has when only the first `corte` bytes are there.
uint64_t numero_cortado(const bytes &todos, const sitio &s, uint32_t corte)
{
    uint64_t numero = 0;
    if (s.datos < corte)
        memcpy(&numero, todos.data() + s.datos, std::min(s.fin, corte) - s.datos);
    return numero;
}

void comprueba_numeros_cortados(comdat *c, const bytes &todos, uint32_t corte)
{
    uint64_t bits_double, hwnd = reinterpret_cast<uintptr_t>(iv_comdat_dame_hwnd(c, 7));
    double d = iv_comdat_dame_double(c, 3);
    memcpy(&bits_double, &d, 8);
    EXPECT_EQ(iv_comdat_dame_byte(c, 0), numero_cortado(todos, SITIOS[0], corte));
    EXPECT_EQ(iv_comdat_dame_ushort(c, 1), numero_cortado(todos, SITIOS[1], corte));
    EXPECT_EQ(iv_comdat_dame_ulong(c, 2), numero_cortado(todos, SITIOS[2], corte));
    EXPECT_EQ(bits_double, numero_cortado(todos, SITIOS[3], corte));
    EXPECT_EQ(hwnd, numero_cortado(todos, SITIOS[7], corte));
    EXPECT_SIN_INFORMES();                                  // the cursor stands at 0
}

// One report where the value is there but cut off.
void comprueba_informe_de_corte(const sitio &s, uint32_t corte)
{
    if (s.datos <= corte && corte < s.fin)
        EXPECT_INFORME(MODULO, FUERA);
    EXPECT_SIN_INFORMES();
}

void comprueba_textos_cortados(comdat *c, uint32_t corte)
{
    uint32_t tam = 66;
    const void *buffer = iv_comdat_dame_buffer(c, 4, &tam);
    comprueba_informe_de_corte(SITIOS[4], corte);
    EXPECT_EQ(buffer, corte >= 46 ? c->buffer + 43 : nullptr);
    EXPECT_EQ(tam, corte >= 46 ? 3u : corte >= 39 ? 0u : 66u);
    EXPECT_EQ(a_texto(iv_comdat_dame_cadena_ansi(c, 5)), a_texto(corte >= 59 ? c->buffer + 54 : nullptr));
    comprueba_informe_de_corte(SITIOS[5], corte);
    EXPECT_EQ(a_texto(iv_comdat_dame_cadena_unicode(c, 6)), a_texto(corte >= 73 ? c->buffer + 67 : nullptr));
    comprueba_informe_de_corte(SITIOS[6], corte);
}

// An array of TODOS: two elements, whose bytes begin at `elementos`.
template <typename texto>
void comprueba_tabla_cortada(comdat *c, const texto *tabla, uint32_t num, const sitio &s,
                             const uint32_t (&elementos)[2], uint32_t corte)
{
    bool hay_cuenta = corte >= s.datos + 4;
    EXPECT_EQ(num, hay_cuenta ? 2u : 0u);
    EXPECT_EQ(tabla != nullptr, hay_cuenta);
    for (uint32_t i = 0; i < num; i++) {
        bool esta = corte >= s.datos + 8 + 4 * i && corte >= elementos[i];
        EXPECT_EQ(a_texto(tabla[i]), a_texto(esta ? c->buffer + elementos[i] : nullptr)) << i;
    }
    if (s.datos <= corte && corte < s.datos + 12)
        EXPECT_INFORME(MODULO, FUERA);
    EXPECT_SIN_INFORMES();
}

void comprueba_arreglos_cortados(comdat *c, uint32_t corte)
{
    uint32_t num = 66, num_u = 66;
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c, 8, &num);
    comprueba_tabla_cortada(c, textos, num, SITIOS[8], {105, 112}, corte);
    const wchar_t *const *anchos = iv_comdat_dame_arr_cadenas_unicode(c, 9, &num_u);
    comprueba_tabla_cortada(c, anchos, num_u, SITIOS[9], {132, 140}, corte);
}

void comprueba_indice_cortado(comdat *c, uint32_t corte)
{
    uint64_t cuenta = 0x0A;
    EXPECT_EQ(iv_comdat_numero_valores(c), corte == 0 ? 0 : cuenta);
    for (uint32_t i = 0; i < 10; i++) {
        bool con_cabecera = SITIOS[i].datos <= corte;
        EXPECT_EQ(iv_comdat_tipoDato(c, i), con_cabecera ? SITIOS[i].tipo : 0u) << i;
        EXPECT_STREQ(iv_comdat_nombre_valor(c, i), con_cabecera ? SITIOS[i].nombre : "?") << i;
    }
}

void comprueba_corte(comdat *c, const bytes &todos, uint32_t corte)
{
    ASSERT_NE(c, nullptr);
    if (corte < todos.size())
        EXPECT_INFORME(MODULO, FUERA);                      // one at most: the scan stops there
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(c->offset, 0u);
    comprueba_indice_cortado(c, corte);
    if (corte >= 8)                                         // below, the check from the cursor reports
        comprueba_numeros_cortados(c, todos, corte);
    comprueba_textos_cortados(c, corte);
    comprueba_arreglos_cortados(c, corte);
}

}

TEST(iv_comdat_miente, la_guarda_se_nota)
{
    zona_con_guarda zona;
    const bytes b(10, 0x61);
    const volatile uint8_t *datos = zona.pon(b.data(), b.size());
    EXPECT_TRUE(sin_fallo([&] { s_suma = datos[13]; }));
    EXPECT_FALSE(sin_fallo([&] { s_suma = datos[14]; }));
}

TEST(iv_comdat_miente, contenido_cortado_en_cada_byte_da_lo_que_queda)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    ASSERT_EQ(todos.size(), 146u);
    for (uint32_t corte = 0; corte <= 146; corte++) {
        SCOPED_TRACE(corte);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, todos.data(), corte);
            comprueba_corte(l.c, todos, corte);
            recorre(l.c);
            borra_informes();
        }));
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, bloque_cortado_en_cada_byte_da_lo_que_queda)
{
    const bytes todos = de_hex(TODOS);
    for (uint32_t corte = 1; corte <= 146; corte++) {
        SCOPED_TRACE(corte);
        iv_shared_bloque *bloque = iv_shared_crea_con_datos(nombre_unico("corte"), corte, todos.data());
        contenedor c(iv_comdat_carga("S", 7, &bloque, 1));
        comprueba_corte(c.get(), todos, corte);
        EXPECT_EQ(memcmp(c->buffer + corte, "\0\0\0\0", 4), 0);
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, numeros_de_menos_de_4_bytes_se_leen_con_ceros)
{
    for (uint32_t corte = 0; corte < 4; corte++) {
        bytes b = de_hex("04030201");
        b.resize(corte);
        contenedor c = lee(b);
        EXPECT_INFORME(MODULO, FUERA);
        EXPECT_EQ(c->valores, nullptr);
        EXPECT_EQ(iv_comdat_numero_valores(c.get()), 0x01020304u & ((1u << corte * 8) - 1));
        EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "?");
        EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 0u);
        EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0);
    }
}

TEST(iv_comdat_miente, cada_byte_cambiado_se_lee_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    size_t antes = mide_heap().bytes;
    for (uint32_t i = 0; i < todos.size(); i++) {
        for (uint8_t valor : {0x00, 0x01, 0x09, 0x0A, 0x0B, 0x7F, 0x80, 0xFF}) {
            bytes b = todos;
            b[i] = valor;
            EXPECT_TRUE(sin_fallo([&] {
                lectura_con_guarda l(zona, b.data(), b.size());
                EXPECT_LE(mide_heap().bytes, antes + 32 * b.size() + 1024);
                recorre(l.c);
            })) << "byte " << i << " is " << static_cast<int>(valor);
            borra_informes();
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, cada_palabra_cambiada_se_lee_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    for (uint32_t i = 0; i + 4 <= todos.size(); i++) {
        for (uint32_t valor : {0xFFFFFFFFu, 0xFFFFFFFCu, 0x80000000u, 0x7FFFFFFFu, 0x40000000u, 0x20000000u,
                               0x10000000u, 146u, 142u}) {
            bytes b = todos;
            memcpy(&b[i], &valor, 4);
            EXPECT_TRUE(sin_fallo([&] {
                lectura_con_guarda l(zona, b.data(), b.size());
                recorre(l.c);
            })) << "word " << i << " is " << valor;
            borra_informes();
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, bytes_al_azar_se_leen_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    uint32_t azar = 12345;
    for (uint32_t ronda = 0; ronda < 1500; ronda++) {
        bytes b = de_hex("20000000");
        while (b.size() < 4 + ronda % 97) {
            azar = azar * 1664525 + 1013904223;
            b.push_back(static_cast<uint8_t>(azar >> 24) % (ronda % 2 ? 12 : 256));
        }
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            recorre(l.c);
        })) << a_hex(b.data(), b.size());
        borra_informes();
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, grabar_en_lo_cortado_queda_dentro)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    for (uint32_t corte = 0; corte <= 146; corte++) {
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, todos.data(), corte);
            iv_comdat_dame_cadena_ansi(l.c, 5);             // moves the cursor, where there is one
            graba_de_todo(l.c);
            l.c->offset = corte;
            graba_de_todo(l.c);
            EXPECT_EQ(l.c->tam, corte);
            EXPECT_EQ(memcmp(l.c->buffer + corte, "\0\0\0\0", 4), 0);
            recorre(l.c);
        })) << corte;
        borra_informes();
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, cuenta_de_mas_da_un_informe_y_valores_ausentes)
{
    const struct { const char *hex; uint32_t num, presentes; } CASOS[] = {
        {"FFFFFFFF 01 02 6100 07", 0xFFFFFFFF, 1},
        {"00000008 01 02 6100 07", 0x08000000, 1},          // 32 times that is 0 in 32 bits
        {"02000000 01 02 6100 07", 2, 1},
        {"02000000 01 02 6100 07 01", 2, 1},                // ends behind the second one's type
        {"02000000 01 02 6100 07 01 02 62", 2, 1},          // inside its name
        {"02000000 01 02 6100 07 01 02 6200", 2, 2},        // behind its name
        {"04000000 0B00 0B00 0B00", 4, 3},                  // full to the last byte
        {"04000000 0B00 0B00 0B00 0B", 4, 3},
        {"FFFFFFFF", 0xFFFFFFFF, 0},
        {"FFFFFFFF 01", 0xFFFFFFFF, 0},
    };
    for (const auto &caso : CASOS) {
        SCOPED_TRACE(caso.hex);
        iv_comdat_destruye(iv_comdat_crea_para_grabar("S", 1));
        size_t antes = mide_heap().bytes;
        contenedor c = lee(caso.hex);
        EXPECT_INFORME(MODULO, FUERA);
        EXPECT_SIN_INFORMES();
        EXPECT_LT(mide_heap().bytes, antes + 2048);
        EXPECT_EQ(iv_comdat_numero_valores(c.get()), caso.num);
        for (uint32_t i = 0; i < caso.presentes; i++)
            EXPECT_NE(iv_comdat_tipoDato(c.get(), i), 0u);
        for (uint32_t i : {caso.presentes, caso.num - 1}) {
            if (i < caso.presentes)
                continue;
            EXPECT_EQ(iv_comdat_tipoDato(c.get(), i), 0u);
            EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), i), "?");
            EXPECT_EQ(iv_comdat_dame_byte(c.get(), i), 0);
        }
        if (caso.presentes > 0 && caso.hex[9] == '0' && caso.hex[10] == '1')
            EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 7);
    }
}

TEST(iv_comdat_miente, cuenta_exacta_de_valores_minimos_no_se_informa)
{
    contenedor c = lee("03000000 0B00 FF00 0B00");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 11u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 255u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 2), 11u);
}

TEST(iv_comdat_miente, codigos_desconocidos_no_saltan_datos)
{
    contenedor c = lee("04000000 0B 02 6100  FF 02 6200  00 02 6300  01 02 6400 07");
    EXPECT_INFORME(MODULO, "valor->tipoDato != ivrexa_tipoDato_desconocido");
    EXPECT_SIN_INFORMES();
    const uint32_t tipos[] = {11, 255, 0, 1};
    const char *const nombres[] = {"a", "b", "c", "d"};
    for (uint32_t i = 0; i < 4; i++) {
        EXPECT_EQ(iv_comdat_tipoDato(c.get(), i), tipos[i]);
        EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), i), nombres[i]);
    }
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 3), 7);
}

TEST(iv_comdat_miente, cada_valor_de_codigo_0_se_informa)
{
    contenedor c = lee("03000000 00 02 6100  01 02 6200 07  00 02 6300");
    EXPECT_INFORME(MODULO, "valor->tipoDato != ivrexa_tipoDato_desconocido");
    EXPECT_INFORME(MODULO, "valor->tipoDato != ivrexa_tipoDato_desconocido");
    EXPECT_SIN_INFORMES();
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 2), "c");
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 1), 7);
}

TEST(iv_comdat_miente, longitud_de_mas_da_nulo_y_0)
{
    for (const char *longitud : {"FFFFFFFF", "00000080", "04000000"}) {
        for (const char *tipo : {"05", "06", "07"}) {
            SCOPED_TRACE(std::string(tipo) + longitud);
            contenedor c = lee(de_hex(std::string("02000000") + tipo + "02 6100" + longitud + "010203"));
            EXPECT_INFORME(MODULO, FUERA);                  // the scan: the second value is absent
            EXPECT_SIN_INFORMES();
            EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "a");
            EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
            uint32_t tam = 66;
            EXPECT_EQ(iv_comdat_dame_buffer(c.get(), 0, &tam), nullptr);
            EXPECT_EQ(tam, *tipo == '0' && tipo[1] == '5' ? 0u : 66u);
            EXPECT_EQ(iv_comdat_dame_cadena_ansi(c.get(), 0), nullptr);
            EXPECT_EQ(iv_comdat_dame_cadena_unicode(c.get(), 0), nullptr);
            EXPECT_INFORME(MODULO, FUERA);                  // by the one reader of that type
        }
    }
}

TEST(iv_comdat_miente, longitud_justa_se_lee)
{
    contenedor c = lee("01000000 05 02 6100 03000000 010203");
    uint32_t tam = 0;
    EXPECT_EQ(a_texto(iv_comdat_dame_buffer(c.get(), 0, &tam)), a_texto(c->buffer) + 12);
    EXPECT_EQ(tam, 3u);
}

TEST(iv_comdat_miente, textos_sin_nul_acaban_en_los_ceros_de_detras)
{
    zona_con_guarda zona;
    const struct { const char *hex; uint32_t suma; } CASOS[] = {
        {"01000000 06 02 6100 03000000 010203", 6},
        {"01000000 07 02 6100 02000000 0101", 0x0101},
        {"01000000 07 02 6100 03000000 010101", 0x0102},    // an odd number of bytes: 0101 0100
        {"01000000 09 02 6100 01000000 10000000 02000000 0102", 3},
        {"01000000 0A 02 6100 01000000 10000000 03000000 010101", 0x0102},
    };
    for (const auto &caso : CASOS) {
        bytes b = de_hex(caso.hex);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            uint32_t num = 0, tipo = iv_comdat_tipoDato(l.c, 0), suma = 0;
            if (tipo == 6)
                suma = recorre_texto(iv_comdat_dame_cadena_ansi(l.c, 0));
            else if (tipo == 7)
                suma = recorre_texto(iv_comdat_dame_cadena_unicode(l.c, 0));
            else if (tipo == 9)
                suma = recorre_texto(iv_comdat_dame_arr_cadenas_ansi(l.c, 0, &num)[0]);
            else
                suma = recorre_texto(iv_comdat_dame_arr_cadenas_unicode(l.c, 0, &num)[0]);
            EXPECT_EQ(suma, caso.suma) << caso.hex;
        })) << caso.hex;
    }
}

TEST(iv_comdat_miente, nombres_sin_nul_o_sin_bytes_acaban_en_la_memoria)
{
    zona_con_guarda zona;
    const struct { const char *hex; const char *nombre; } CASOS[] = {
        {"01000000 0B 00", ""},                             // right at the end: the zero bytes
        {"01000000 0B 03 616263", "abc"},
        {"02000000 0B 02 6162 FF 02 6300", "ab\xFF\x02" "c"},
        {"01000000 01 00 61", "a"},                         // of no bytes: it begins with the value's data
    };
    for (const auto &caso : CASOS) {
        bytes b = de_hex(caso.hex);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            EXPECT_EQ(std::string(iv_comdat_nombre_valor(l.c, 0)), caso.nombre) << caso.hex;
        })) << caso.hex;
    }
    contenedor c = lee("01000000 01 00 61");
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0x61);
}

TEST(iv_comdat_miente, nombre_mas_largo_que_lo_que_queda_no_es_un_valor)
{
    contenedor c = lee("01000000 01 FF 6100 07");
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 0u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "?");
}

TEST(iv_comdat_miente, cuenta_de_un_arreglo_mayor_que_el_contenido_da_nulo_y_0)
{
    // 28 bytes in all: a count of 29 is one too many.
    for (const char *cuenta :
         {"FFFFFFFF", "00000040", "01000040", "00000020", "01000020", "00000080", "1D000000"}) {
        for (const char *tipo : {"09", "0A"}) {
            SCOPED_TRACE(std::string(tipo) + cuenta);
            contenedor c = lee(de_hex(std::string("02000000") + tipo + "02 6100" + cuenta +
                                      "14000000 04000000 61006200 01010101"));
            ASSERT_EQ(c->ocupado, 28u);
            EXPECT_INFORME(MODULO, FUERA);
            EXPECT_SIN_INFORMES();
            EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
            uint32_t num = 66, bloques = mide_heap().bloques;
            EXPECT_EQ(iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num), nullptr);
            EXPECT_EQ(num, 0u);
            num = 66;
            EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num), nullptr);
            EXPECT_EQ(num, 0u);
            EXPECT_EQ(mide_heap().bloques, bloques);
            if (num_informes() == 1)                        // the count itself can be read, the table cannot
                EXPECT_INFORME(MODULO, FUERA);
        }
    }
}

TEST(iv_comdat_miente, cuenta_de_un_arreglo_hasta_el_contenido_da_tantos_punteros)
{
    contenedor c = lee("01000000 09 02 6100 1C000000 10000000 05000000 61620000 01010101");
    ASSERT_EQ(c->ocupado, 28u);
    EXPECT_INFORME(MODULO, FUERA);
    uint32_t num = 0;
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num);
    EXPECT_INFORME(MODULO, FUERA);                          // the table's first missing entry
    EXPECT_SIN_INFORMES();
    ASSERT_EQ(num, 28u);
    EXPECT_STREQ(textos[0], "ab");                          // at 20
    EXPECT_EQ(textos[1], a_texto(c->buffer) + 9);
    for (uint32_t i = 2; i < 28; i++)
        EXPECT_EQ(textos[i], nullptr) << i;
}

TEST(iv_comdat_miente, posiciones_de_un_arreglo_fuera_del_contenido_dan_nulo)
{
    // 36 bytes: five positions, then bytes of an element.
    const struct { const char *posicion; int texto; } CASOS[] = {
        {"FFFFFFFF", -1}, {"FCFFFFFF", -1}, {"FDFFFFFF", -1}, {"21000000", -1}, {"24000000", -1},
        {"20000000", 36},                                   // right at the end: an empty text
        {"1F000000", 35}, {"00000000", 4},
    };
    for (const auto &caso : CASOS) {
        for (const char *tipo : {"09", "0A"}) {
            SCOPED_TRACE(caso.posicion);
            contenedor c = lee(de_hex(std::string("01000000") + tipo + "02 6100 01000000" + caso.posicion +
                                      "0C000000 616161616161616161616161 61616100"));
            ASSERT_EQ(c->ocupado, 36u);
            EXPECT_SIN_INFORMES();
            uint32_t num = 0;
            const void *texto = *tipo == '0' && tipo[1] == '9'
                ? static_cast<const void *>(iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num)[0])
                : static_cast<const void *>(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num)[0]);
            EXPECT_EQ(num, 1u);
            EXPECT_EQ(texto, caso.texto < 0 ? nullptr : c->buffer + caso.texto);
        }
    }
}

TEST(iv_comdat_miente, elemento_de_longitud_falsa_detiene_el_indice_y_no_el_arreglo)
{
    contenedor c = lee("02000000 09 02 6100 02000000 14000000 1A000000 FFFFFFFF 6100 02000000 6200"
                       "01 02 6200 07");
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 9u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
    uint32_t num = 0;
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num);
    ASSERT_EQ(num, 2u);
    EXPECT_STREQ(textos[0], "a");
    EXPECT_STREQ(textos[1], "b");
}

TEST(iv_comdat_miente, arreglo_ancho_propio_se_lee_con_su_primera_posicion_como_cuenta)
{
    const wchar_t *textos[] = {L"a"};
    contenedor e = para_grabar();
    iv_comdat_graba_arr_cadenas_unicode(e.get(), "w", textos, 1);
    iv_comdat_graba_byte(e.get(), "b", 7);

    contenedor c = lee(contenido(e));       // 02000000 0A027700 0C000000 04000000 61000000 01026200 07
    ASSERT_EQ(c->ocupado, 25u);
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 2u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 10u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "w");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 1), "?");
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 1), 0);
    uint32_t num = 0;
    const wchar_t *const *leidos = iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num);
    EXPECT_INFORME(MODULO, FUERA);
    ASSERT_EQ(num, 12u);                                    // the count that stands there
    EXPECT_EQ(a_texto(leidos[0]), a_texto(c->buffer) + 8);  // 4 + 4
    for (uint32_t i = 1; i < 12; i++)
        EXPECT_EQ(leidos[i], nullptr) << i;                 // 0x61 + 4 and 0x00620201 + 4 lie outside
}

TEST(iv_comdat_miente, arreglo_ancho_propio_sin_elementos_al_final_da_nulo_y_0)
{
    contenedor e = para_grabar();
    iv_comdat_graba_arr_cadenas_unicode(e.get(), "w", nullptr, 0);

    contenedor c = lee(contenido(e));
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 10u);
    uint32_t num = 66;
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num), nullptr);
    EXPECT_EQ(num, 0u);
    EXPECT_INFORME(MODULO, FUERA);
}

TEST(iv_comdat_miente, nombre_de_256_grabado_se_lee_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    for (uint32_t largo : {255u, 256u, 300u}) {
        contenedor e = para_grabar();
        iv_comdat_graba_byte(e.get(), std::string(largo, 'n').c_str(), 0x77);
        iv_comdat_graba_ulong(e.get(), "u", 1);
        EXPECT_INFORME(MODULO, "len < 256");
        EXPECT_SIN_INFORMES();
        bytes b = contenido(e);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            EXPECT_EQ(iv_comdat_tipoDato(l.c, 0), 1u);
            EXPECT_EQ(iv_comdat_dame_byte(l.c, 0), 'n');    // the length byte is 0, 1 or 45
            recorre(l.c);
        }));
        borra_informes();
    }
}
