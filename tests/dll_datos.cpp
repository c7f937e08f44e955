// Command data as a host sees it: null arguments, writing, and reading what another process forged.
#include "dll_datos.h"

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
    ivrexa_graba_buffer(nullptr, nullptr, nullptr, 0); // no bytes need no buffer
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
    EXPECT_SIN_INFORMES(); // only for buffers is the name looked at
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
    uint32_t id = GetCurrentProcessId(); // blocks of the empty name are everybody's
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
        otro.pon(nombre_datos(servicio, 9), despl, 0xEEEEEEEE); // the other side may do what it likes
    otro.suelta(nombre_datos(servicio, 9));
    for (int vez = 0; vez < 3; vez++) {
        EXPECT_NE(ivrexa_dame_arr_cadenas_ansi(c.get(), 8, &num), textos); // a new array each time
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

TEST_F(dll_datos, arreglo_ancho_se_graba_sin_cuenta_y_esconde_lo_que_sigue)
{
    const std::string servicio = nombre_unico("S");
    const wchar_t *textos[] = {L"\u4E2D", nullptr, L""};
    vecino otro;
    otro.canal(servicio);
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 7);
    ivrexa_graba_arr_cadenas_unicode(c.get(), "b", textos, 3);
    ivrexa_graba_byte(c.get(), "c", 8);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    EXPECT_TRUE(bytes_iguales(de_hex("03000000 01 02 6100 07  0A 02 6200 19000000 21000000 25000000"
                                     "04000000 2D4E 0000  00000000  02000000 0000  01 02 6300 08"),
                              otro.mira(nombre_datos(servicio, 100), 48).second));

    contenedor l = lee(servicio, 100);
    EXPECT_INFORME("iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(ivrexa_numero_valores(l.get()), 3u);
    EXPECT_EQ(ivrexa_dame_byte(l.get(), 0), 7);
    EXPECT_EQ(ivrexa_tipoDato(l.get(), 1), 10u);
    EXPECT_STREQ(ivrexa_nombre_valor(l.get(), 2), "?");
    EXPECT_EQ(ivrexa_dame_byte(l.get(), 2), 0);
}

TEST_F(dll_datos, bloque_que_falta_se_informa_y_no_se_crea)
{
    const std::string servicio = nombre_unico("S");
    lee(nombre_unico("S"), 1); // opens the registry and the window system
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
    EXPECT_EQ(cuenta_manejadores(), antes + 1); // the one that keeps an opened block in being
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
    EXPECT_INFORME("iv_comdat", "valor->tipoDato != ivrexa_tipoDato_desconocido"); // the zeros behind it
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
