// Command data that is read: creation over a copy, the index, each reader, the cursor, the wrong kind.
#include "iv_comdat_apoyo.h"

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

TEST(iv_comdat, direccion_nula_del_bloque_no_reserva_ni_toca_nada)
{
    uint8_t *datos = static_cast<uint8_t *>(i_malloc(8));
    memset(datos, 0xEE, 8);
    uso_heap antes = mide_heap();
    EXPECT_EQ(iv_comdat_crea_para_leer("S", 7, nullptr, datos, 8, 1), nullptr);
    EXPECT_INFORME(MODULO, "shared_MCCom != NULL");
    EXPECT_EQ(mide_heap().bloques, antes.bloques);
    EXPECT_TRUE(bytes_iguales(bytes(8, 0xEE), bytes(datos, datos + 8)));
    i_free(datos);
}

// What is cut counts as 0, while the count that the queries give is read where it stands: here a caller that
// has not put zeros behind the copy.
TEST(iv_comdat, cuenta_que_no_es_la_que_se_leyo_se_informa)
{
    uint8_t *datos = static_cast<uint8_t *>(i_malloc(8));
    memset(datos, 1, 3);
    iv_shared_bloque *sin_bloque = nullptr;
    contenedor c(iv_comdat_crea_para_leer("S", 7, &sin_bloque, datos, 2, 1));
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_INFORME(MODULO, "*comdat->num_valores == num_valores");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 0x010101u);
    EXPECT_EQ(c->valores, nullptr);
    EXPECT_EQ(c->offset, 0u);
}

TEST(iv_comdat, elementos_de_un_arreglo_se_saltan_por_sus_longitudes_y_no_por_la_tabla)
{
    for (const char *tipo : {"09", "0A"}) {
        contenedor c = lee(de_hex(std::string("02000000") + tipo +
                                  "01 00 02000000 FFFFFFFF 04000000 03000000 616200 00000000  01 01 00 07"));
        EXPECT_SIN_INFORMES();
        EXPECT_EQ(c->valores[1].offset, 33u);
        EXPECT_EQ(iv_comdat_dame_byte(c.get(), 1), 7);
    }
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
    EXPECT_EQ(textos[1], a_texto(c->buffer) + 112); // a null text: what follows it
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
    EXPECT_EQ(c->offset, 0u); // none of these moves the cursor
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
    EXPECT_EQ(c->offset, 101u); // behind the table
    iv_comdat_dame_arr_cadenas_unicode(c.get(), 9, &n);
    EXPECT_EQ(c->offset, 128u);
}

TEST(iv_comdat, valor_vacio_deja_el_cursor_detras_de_su_longitud)
{
    contenedor c = lee("05000000 05 01 00 00000000  06 01 00 00000000  07 01 00 00000000"
                       "09 01 00 00000000  0A 01 00 00000000");
    uint32_t n;
    iv_comdat_dame_buffer(c.get(), 0, &n);
    EXPECT_EQ(c->offset, 11u);
    iv_comdat_dame_cadena_ansi(c.get(), 1);
    EXPECT_EQ(c->offset, 18u);
    iv_comdat_dame_cadena_unicode(c.get(), 2);
    EXPECT_EQ(c->offset, 25u);
    iv_comdat_dame_arr_cadenas_ansi(c.get(), 3, &n);
    EXPECT_EQ(c->offset, 32u);
    iv_comdat_dame_arr_cadenas_unicode(c.get(), 4, &n);
    EXPECT_EQ(c->offset, 39u);
}

TEST(iv_comdat, consultas_y_lecturas_que_no_encajan_no_mueven_el_cursor)
{
    contenedor c = lee(TODOS);
    iv_comdat_dame_cadena_ansi(c.get(), 5);
    for (uint32_t i : {0u, 10u, 0xFFFFFFFFu}) { // a byte, and nothing
        uint32_t n;
        iv_comdat_numero_valores(c.get());
        iv_comdat_nombre_valor(c.get(), i);
        iv_comdat_tipoDato(c.get(), i);
        iv_comdat_dame_ushort(c.get(), i);
        iv_comdat_dame_cadena_ansi(c.get(), i);
        iv_comdat_dame_cadena_unicode(c.get(), i);
        iv_comdat_dame_buffer(c.get(), i, &n);
        iv_comdat_dame_arr_cadenas_ansi(c.get(), i, &n);
        iv_comdat_dame_arr_cadenas_unicode(c.get(), i, &n);
        EXPECT_EQ(c->offset, 59u) << i;
    }
}

TEST(iv_comdat, numeros_se_comprueban_desde_el_cursor_y_no_desde_su_sitio)
{
    // A number of each size, then a text that leaves the cursor `quedan` bytes before the end.
    const std::string NUMEROS = "07000000 01 01 00 11  02 01 00 2222  03 01 00 33333333"
                                "04 01 00 000000000000F03F  08 01 00 8800000000000000"
                                "06 01 00 01000000 00  05 01 00";
    const struct {
        uint32_t tam;
        std::function<bool(comdat *)> lee_bien;
    } LECTORES[] = {
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
            EXPECT_TRUE(lector.lee_bien(c.get())); // all the same
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
    EXPECT_EQ(mide_heap().bloques, antes.bloques - 4 + 1); // all but the first table
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
    EXPECT_EQ(a_texto(leidos[1]) + 4, a_texto(leidos[2])); // what follows the null text
    EXPECT_STREQ(leidos[2], "");
    EXPECT_STREQ(leidos[3], "cuatro");
    EXPECT_EQ(iv_comdat_dame_byte(l.get(), 1), 9);
}

TEST(iv_comdat, texto_nulo_de_un_arreglo_ancho_es_lo_que_le_sigue)
{
    contenedor c = lee("01000000 0A 01 00 02000000 13000000 17000000  00000000  04000000 7800 0000");
    uint32_t num = 0;
    const wchar_t *const *textos = iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num);
    ASSERT_EQ(num, 2u);
    EXPECT_EQ(a_texto(textos[0]), a_texto(c->buffer) + 23); // the next one's length
    EXPECT_EQ(a_texto(textos[1]), a_texto(c->buffer) + 27);
}

TEST(iv_comdat, texto_nulo_al_final_de_un_arreglo_es_vacio)
{
    for (const char *hex :
         {"01000000 09 02 6100 01000000 10000000 00000000", "01000000 0A 02 6100 01000000 10000000 00000000"}) {
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
    EXPECT_EQ(c->buffer, antes); // readers' pointers still hold
    EXPECT_EQ(c->offset, 19u);
    EXPECT_EQ(c->ocupado, 30u);
    EXPECT_TRUE(bytes_iguales(de_hex("03000000 06 02 6100 02000000 7800  01 02 7A00 09 000000 0102030405060708"),
                              contenido(c)));
}

TEST(iv_comdat, cada_escritor_informa_una_vez_de_un_contenedor_de_lectura_y_escribe_en_el_cursor)
{
    const bytes inicio = de_hex("02000000 06 01 00 00000000");
    const bytes relleno(60, 0xEE);
    for (const escritor &e : escritores()) {
        SCOPED_TRACE(e.que);
        bytes b = inicio;
        anyade(&b, de_hex("05 01 00 3C000000"));
        anyade(&b, relleno);
        contenedor c = lee(b);
        const uint8_t *antes = c->buffer;
        iv_comdat_dame_cadena_ansi(c.get(), 0);
        e.graba(c.get(), "");
        EXPECT_INFORME(MODULO, NO_ESCRIBE);
        EXPECT_SIN_INFORMES();

        bytes esperado = inicio;
        esperado[0] = 3;
        anyade(&esperado, {e.tipo, 1, 0});
        anyade(&esperado, de_hex(e.datos));
        EXPECT_EQ(c->offset, esperado.size());
        anyade(&esperado, bytes(b.begin() + static_cast<ptrdiff_t>(esperado.size()), b.end()));
        EXPECT_TRUE(bytes_iguales(esperado, contenido(c)));
        EXPECT_EQ(c->buffer, antes);
        EXPECT_EQ(c->tam, b.size());
    }
}

TEST(iv_comdat, grabar_antes_de_leer_escribe_sobre_la_cuenta)
{
    contenedor c = lee("01000000 05 02 6100 03000000 010203");
    iv_comdat_graba_byte(c.get(), "z", 9);
    EXPECT_INFORME(MODULO, NO_ESCRIBE);

    // 01 02 7A 00 is the count now, and goes up by one.
    EXPECT_TRUE(bytes_iguales(de_hex("02027A00 09 02 6100 03000000 010203"), contenido(c)));
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 0x007A0202u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "a"); // the index stays
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 5u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 1), "?");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0x007A0201), 0u);
}

// The second element finds no room: what was written before stays, the table's last entries are the zeros
// that it began with.
TEST(iv_comdat, tabla_de_un_arreglo_empieza_en_ceros)
{
    const char *textos[] = {"x", "abcdefghijklmnopqrstuvwxyz", "y", "z"};
    bytes b = de_hex("02000000 06 01 00 00000000  05 01 00 20000000");
    b.resize(b.size() + 32, 0xEE);
    contenedor c = lee(b);
    iv_comdat_dame_cadena_ansi(c.get(), 0);
    iv_comdat_graba_arr_cadenas_ansi(c.get(), "", textos, 4);
    EXPECT_INFORME(MODULO, NO_ESCRIBE);

    bytes esperado = de_hex("02000000 06 01 00 00000000"
                            "09 01 00 04000000 22000000 28000000 00000000 00000000  02000000 7800  1B000000");
    esperado.resize(b.size(), 0xEE);
    EXPECT_TRUE(bytes_iguales(esperado, contenido(c)));
    EXPECT_EQ(c->offset, 11u);
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
