// Command data that is written: the record, its life, growth, the byte format, null containers.
#include "iv_comdat_apoyo.h"

#include <cstddef>

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
    iv_comdat_destruye(iv_comdat_crea_para_grabar("S", 1)); // the heap exists from here on
    uso_heap antes = mide_heap();
    {
        contenedor c = para_grabar();
        EXPECT_EQ(mide_heap().bloques, antes.bloques + 3); // record, name, buffer
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
        EXPECT_EQ(mide_heap().bloques, antes.bloques + 6); // and the index, and a table for each array
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
    const struct {
        uint32_t ocupado, tam;
    } CASOS[] = {
        {1023, 1024}, {1024, 1024}, {1025, 2048}, {2047, 2048}, {2048, 3072},
        {2049, 3072}, {3071, 3072}, {3072, 4096}, {5000, 5120}, {100000, 100352},
    };
    for (const auto &caso : CASOS) {
        bytes datos(caso.ocupado - 12); // 4 of count, 4 of header, 4 of length
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

TEST(iv_comdat, cada_kilobyte_lleno_sigue_lleno_y_el_byte_siguiente_pide_otro)
{
    contenedor c = para_grabar();
    for (uint32_t ocupado = 8; ocupado <= 6000; ocupado += 4) {
        iv_comdat_graba_byte(c.get(), "", 1);
        ASSERT_EQ(c->ocupado, ocupado);
        ASSERT_EQ(c->offset, ocupado);
        ASSERT_EQ(c->tam, (ocupado + 1023) / 1024 * 1024) << ocupado;
    }
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
        [&](comdat *c) { iv_comdat_graba_buffer(c, "b", &byte, 0xFFFFFC00 - 17); },       // grows to 2^32
        [](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "t", nullptr, 0x40000000); }, // 2^32 of table
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
        const char *hex; // behind the count
    } CASOS[] = {
        {"byte", [](comdat *c) { iv_comdat_graba_byte(c, "a", 7); }, "01 02 6100 07"},
        {"byte 255", [](comdat *c) { iv_comdat_graba_byte(c, "a", 255); }, "01 02 6100 FF"},
        {"ushort", [](comdat *c) { iv_comdat_graba_ushort(c, "ab", 0xFE01); }, "02 03 616200 01FE"},
        {"ulong", [](comdat *c) { iv_comdat_graba_ulong(c, "a", 0xFE020304); }, "03 02 6100 040302FE"},
        {"double", [](comdat *c) { iv_comdat_graba_double(c, "a", -1.5); }, "04 02 6100 000000000000F8BF"},
        {"double -0", [](comdat *c) { iv_comdat_graba_double(c, "a", -0.0); }, "04 02 6100 0000000000000080"},
        {"hwnd", [](comdat *c) { iv_comdat_graba_hwnd(c, "a", hwnd_de(0xFF22334455667788)); },
         "08 02 6100 88776655443322FF"},
        {"hwnd null", [](comdat *c) { iv_comdat_graba_hwnd(c, "a", nullptr); }, "08 02 6100 0000000000000000"},
        {"buffer", [&](comdat *c) { iv_comdat_graba_buffer(c, "a", tres, 3); }, "05 02 6100 03000000 010203"},
        {"buffer 0", [&](comdat *c) { iv_comdat_graba_buffer(c, "a", tres, 0); }, "05 02 6100 00000000"},
        {"buffer null", [](comdat *c) { iv_comdat_graba_buffer(c, "a", nullptr, 0); }, "05 02 6100 00000000"},
        {"buffer null of 5", [](comdat *c) { iv_comdat_graba_buffer(c, "a", nullptr, 5); }, "05 02 6100 00000000"},
        {"text", [](comdat *c) { iv_comdat_graba_cadena_ansi(c, "a", "\xF1z"); }, "06 02 6100 03000000 F17A00"},
        {"text empty", [](comdat *c) { iv_comdat_graba_cadena_ansi(c, "a", ""); }, "06 02 6100 01000000 00"},
        {"text null", [](comdat *c) { iv_comdat_graba_cadena_ansi(c, "a", nullptr); }, "06 02 6100 00000000"},
        {"wide", [](comdat *c) { iv_comdat_graba_cadena_unicode(c, "a", L"\u4E2D\x80"); },
         "07 02 6100 06000000 2D4E 8000 0000"},
        {"wide empty", [](comdat *c) { iv_comdat_graba_cadena_unicode(c, "a", L""); }, "07 02 6100 02000000 0000"},
        {"wide null", [](comdat *c) { iv_comdat_graba_cadena_unicode(c, "a", nullptr); }, "07 02 6100 00000000"},
        {"texts", [&](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "a", ansi, 4); },
         "09 02 6100 04000000 1C000000 22000000 27000000 2B000000"
         "02000000 6100  01000000 00  00000000  03000000 626300"},
        {"texts 0", [&](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "a", ansi, 0); }, "09 02 6100 00000000"},
        {"texts null", [](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "a", nullptr, 2); },
         "09 02 6100 02000000 14000000 18000000 00000000 00000000"},
        {"wide texts", [&](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "a", anchos, 3); },
         "0A 02 6100 14000000 1C000000 20000000  04000000 0101 0000  00000000  02000000 0000"},
        {"wide texts 0", [&](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "a", anchos, 0); }, "0A 02 6100"},
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

TEST(iv_comdat, cada_escritor_informa_una_vez_de_un_nombre_largo_y_lo_graba)
{
    const std::string nombre(255, 'n');
    for (const escritor &e : escritores()) {
        SCOPED_TRACE(e.que);
        contenedor c = para_grabar();
        e.graba(c.get(), nombre.c_str());
        EXPECT_INFORME(MODULO, "len < 256");
        EXPECT_SIN_INFORMES();

        bytes esperado = {1, 0, 0, 0, e.tipo, 0}; // 256 in 8 bits
        anyade(&esperado, bytes(nombre.begin(), nombre.end()));
        esperado.push_back(0);
        bytes cabecera = contenido(c);
        EXPECT_EQ(cabecera.size(), esperado.size() + de_hex(e.datos).size());
        cabecera.resize(esperado.size());
        EXPECT_TRUE(bytes_iguales(esperado, cabecera));
    }
}

TEST(iv_comdat, cada_escritor_toma_un_nombre_nulo_por_vacio)
{
    for (const escritor &e : escritores()) {
        contenedor c = para_grabar();
        iv_comdat_graba_cadena_ansi(c.get(), "", nullptr);
        e.graba(c.get(), nullptr);
        EXPECT_SIN_INFORMES();

        bytes esperado = de_hex("02000000 06 01 00 00000000");
        anyade(&esperado, {e.tipo, 1, 0});
        anyade(&esperado, de_hex(e.datos));
        EXPECT_TRUE(bytes_iguales(esperado, contenido(c))) << e.que;
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
    EXPECT_SIN_INFORMES(); // the export has made it
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
