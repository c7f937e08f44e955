// The channel of a service, byte by byte: the block, and what a server writes and reads there.
#include "iv_mcserv_apoyo.h"

// ---- The block

TEST_F(iv_mcserv_canal, bloque_nuevo_tiene_2378_bytes_a_cero)
{
    const char *otro = nombre_unico("Nuevo");
    int16_t ya_estaba = 7;

    iv_shared_bloque *nuevo = iv_mcserv_crea_bloque(nombre_canal(otro).c_str(), &ya_estaba);

    ASSERT_NE(nuevo, nullptr);
    bloque_crudo visto(nombre_canal(otro).c_str());
    EXPECT_EQ(ya_estaba, 0);
    EXPECT_EQ(visto.cabecera(), 2378u);
    EXPECT_STREQ(nuevo->tipo, "iv_mcserv_t");
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(2378, 0), visto.bytes(0, 2378)));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(iv_mcserv_vista_de(nuevo)),
              reinterpret_cast<uintptr_t>(nuevo->sharedmem) + 4);
    iv_shared_destruye(&nuevo);
    EXPECT_EQ(iv_mcserv_vista_de(nullptr), nullptr);
}

TEST_F(iv_mcserv_canal, bloque_que_existe_se_abre_como_esta)
{
    llena(0x5A);
    int16_t ya_estaba = 7;

    iv_shared_bloque *abierto = iv_mcserv_crea_bloque(nombre_canal(servicio).c_str(), &ya_estaba);

    ASSERT_NE(abierto, nullptr);
    EXPECT_EQ(ya_estaba, 1);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(2378, 0x5A), canal.bytes(0, 2378)));
    iv_shared_destruye(&abierto);
}

TEST_F(iv_mcserv_canal, bloque_menor_que_el_canal_no_se_abre)
{
    const char *corto = nombre_unico("Corto");
    const char *justo = nombre_unico("Justo");
    bloque_crudo bloque_corto(nombre_canal(corto).c_str(), 2377);
    bloque_crudo bloque_justo(nombre_canal(justo).c_str(), 2378);
    int16_t ya_estaba;

    EXPECT_EQ(iv_mcserv_abre_bloque(corto), nullptr);
    EXPECT_EQ(iv_mcserv_crea_bloque(nombre_canal(corto).c_str(), &ya_estaba), nullptr);
    iv_shared_bloque *abierto = iv_mcserv_abre_bloque(justo);
    EXPECT_NE(abierto, nullptr);
    iv_shared_destruye(&abierto);
}

TEST_F(iv_mcserv_canal, abrir_un_canal_que_no_existe_no_crea_nada)
{
    const char *otro = nombre_unico("Nadie");

    EXPECT_EQ(iv_mcserv_abre_bloque(otro), nullptr);

    EXPECT_FALSE(existe_bloque(nombre_canal(otro).c_str()));
}

// ---- Server: initialisation, ready, gone

TEST_F(iv_mcserv_canal, inicio_escribe_solo_sus_campos)
{
    llena(0xEE);
    std::vector<uint8_t> esperados(TAM_CANAL, 0xEE);
    pon<uint16_t>(&esperados, 0, 2378);
    pon<uint16_t>(&esperados, 2, 0xABCD);
    pon<uint32_t>(&esperados, 4, 0);
    pon<uint32_t>(&esperados, 8, 0);
    pon<uint32_t>(&esperados, 12, 100);
    pon<uint32_t>(&esperados, 30, 0);
    pon<uint32_t>(&esperados, 34, 0);
    pon<uint16_t>(&esperados, 38, 0); // the first character of each result text
    pon<uint16_t>(&esperados, 166, 0);
    pon<uint16_t>(&esperados, 678, 0);

    iv_mcserv_inicia(mcserv, 0xABCD, FALSO);

    // Window, message, servidor_terminado, the client's half and the mailbox stay.
    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
}

TEST_F(iv_mcserv_canal, contador_de_bloques_se_conserva_desde_100_si_el_canal_existia)
{
    const struct {
        int16_t ya_existia;
        uint32_t antes, despues;
    } casos[] = {{0, 0, 100},   {0, 500, 100}, {1, 0, 100},   {1, 99, 100},
                 {1, 100, 100}, {1, 101, 101}, {1, 500, 500}, {1, 0xFFFFFFFF, 0xFFFFFFFF},
                 {2, 500, 100}}; // 1 alone is true
    for (const auto &caso : casos) {
        canal.pon_u32(12, caso.antes);
        iv_mcserv_inicia(mcserv, 1, caso.ya_existia);
        EXPECT_EQ(canal.u32(12), caso.despues) << caso.antes << ", existed: " << caso.ya_existia;
    }
}

TEST_F(iv_mcserv_canal, servidor_listo_escribe_ventana_mensaje_y_estados)
{
    llena(0xEE);
    std::vector<uint8_t> esperados(TAM_CANAL, 0xEE);
    pon<uint64_t>(&esperados, 16, 0x1122334455667788);
    pon<uint32_t>(&esperados, 24, 0xC123);
    pon<uint16_t>(&esperados, 28, 0);
    pon<uint32_t>(&esperados, 30, 1);

    iv_mcserv_servidor_listo(mcserv, reinterpret_cast<ivrexa_hwnd>(0x1122334455667788), 0xC123);

    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
}

TEST_F(iv_mcserv_canal, servidor_terminado_escribe_los_dos_estados)
{
    llena(0xEE);
    std::vector<uint8_t> esperados(TAM_CANAL, 0xEE);
    pon<uint16_t>(&esperados, 28, 1);
    pon<uint32_t>(&esperados, 30, 0);

    iv_mcserv_servidor_terminado(mcserv);

    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
}

TEST_F(iv_mcserv_canal, ids_de_bloque_se_dan_uno_tras_otro)
{
    canal.pon_u32(12, 100);
    EXPECT_EQ(iv_mcserv_siguiente_id_bloque(mcserv), 100u);
    EXPECT_EQ(iv_mcserv_siguiente_id_bloque(mcserv), 101u);
    EXPECT_EQ(canal.u32(12), 102u);
}

TEST(iv_mcserv, comandos_del_1_al_99_son_de_la_biblioteca)
{
    const struct {
        uint32_t id;
        int16_t reservado;
    } casos[] = {{0, 0}, {1, 1}, {50, 1}, {99, 1}, {100, 0}, {0x80000001, 0}, {0xFFFFFFFF, 0}};
    for (const auto &caso : casos)
        EXPECT_EQ(iv_mcserv_es_comando_reservado(caso.id), caso.reservado) << caso.id;
}

// ---- Server: reads the command, writes the result

namespace {

class iv_mcserv_comando : public iv_mcserv_canal {
protected:
    void SetUp() override
    {
        llena(0);
        canal.pon_u32(C_ID_COMANDO, 100);
        canal.pon_u32(C_OCUPACION, 2);
        canal.pon_u32(C_ID_ENTRADA, 321);
    }

    int16_t dame(uint32_t id_comando)
    {
        return iv_mcserv_dame_comando(mcserv, id_comando, &id_entrada, texto_64, texto_256, texto2_256);
    }

    int16_t pon_textos(const std::wstring &uno, const std::wstring &dos, const std::wstring &tres)
    {
        return iv_mcserv_pon_resultado(mcserv, 100, 9, uno.c_str(), dos.c_str(), tres.c_str());
    }

    // Two characters more than the field has: what is written beyond it is seen.
    wchar_t texto_64[66], texto_256[258], texto2_256[258];
    uint32_t id_entrada = 0xAAAA;
};

} // namespace

TEST_F(iv_mcserv_comando, comando_en_curso_se_lee_entero)
{
    canal.pon_texto_u(C_CLIENTE_64, L"uno \x20AC");
    canal.pon_texto_u(C_CLIENTE_256, L"");
    canal.pon_texto_u(C_CLIENTE2_256, L"tres");

    EXPECT_EQ(dame(100), 1);

    EXPECT_EQ(id_entrada, 321u);
    EXPECT_STREQ(texto_64, L"uno \x20AC");
    EXPECT_STREQ(texto_256, L"");
    EXPECT_STREQ(texto2_256, L"tres");
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 321u); // reading does not take it
}

TEST_F(iv_mcserv_comando, textos_sin_final_se_cortan_a_63_255_y_255)
{
    canal.pon_bytes(C_CLIENTE_64, std::vector<uint8_t>(TAM_CANAL - C_CLIENTE_64, 'x')); // to the block's last byte
    memset(texto_64, 0x7E, sizeof texto_64);
    memset(texto_256, 0x7E, sizeof texto_256);
    memset(texto2_256, 0x7E, sizeof texto2_256);

    EXPECT_EQ(dame(100), 1);

    const wchar_t x = 0x7878, marca = 0x7E7E;
    EXPECT_EQ(std::wstring(texto_64), std::wstring(63, x));
    EXPECT_EQ(std::wstring(texto_256), std::wstring(255, x));
    EXPECT_EQ(std::wstring(texto2_256), std::wstring(255, x));
    EXPECT_EQ(texto_64[64], marca);
    EXPECT_EQ(texto_256[256], marca);
    EXPECT_EQ(texto2_256[256], marca);
}

TEST_F(iv_mcserv_comando, cada_salida_de_la_lectura_puede_faltar)
{
    canal.pon_texto_u(C_CLIENTE_64, L"uno");
    canal.pon_texto_u(C_CLIENTE_256, L"dos");
    canal.pon_texto_u(C_CLIENTE2_256, L"tres");

    EXPECT_EQ(iv_mcserv_dame_comando(mcserv, 100, &id_entrada, nullptr, texto_256, nullptr), 1);
    EXPECT_EQ(id_entrada, 321u);
    EXPECT_STREQ(texto_256, L"dos");
    EXPECT_EQ(iv_mcserv_dame_comando(mcserv, 100, &id_entrada, texto_64, nullptr, texto2_256), 1);
    EXPECT_STREQ(texto_64, L"uno");
    EXPECT_STREQ(texto2_256, L"tres");
    EXPECT_EQ(iv_mcserv_dame_comando(mcserv, 100, nullptr, nullptr, nullptr, nullptr), 1);
}

TEST_F(iv_mcserv_comando, otro_id_u_otra_ocupacion_no_lee_ni_escribe_nada)
{
    const struct {
        uint32_t id_canal, ocupacion, id_pedido;
        int16_t esperado;
    } casos[] = {{100, 2, 100, 1}, {100, 2, 101, 0}, {100, 2, 0, 0},  {0, 2, 100, 0},
                 {100, 0, 100, 0}, {100, 1, 100, 0}, {100, 3, 100, 0}};
    for (const auto &caso : casos) {
        canal.pon_u32(C_ID_COMANDO, caso.id_canal);
        canal.pon_u32(C_OCUPACION, caso.ocupacion);
        std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);
        id_entrada = 0xAAAA;
        wcscpy(texto_64, L"sin tocar");

        EXPECT_EQ(dame(caso.id_pedido), caso.esperado) << caso.id_canal << " " << caso.ocupacion;
        EXPECT_EQ(id_entrada, caso.esperado ? 321u : 0xAAAAu);
        EXPECT_STREQ(texto_64, caso.esperado ? L"" : L"sin tocar");
        EXPECT_TRUE(bytes_iguales(antes, canal.bytes(0, TAM_CANAL)));

        EXPECT_EQ(iv_mcserv_pon_resultado(mcserv, caso.id_pedido, 9, L"a", L"b", L"c"), caso.esperado);
        EXPECT_EQ(antes != canal.bytes(0, TAM_CANAL), caso.esperado == 1);
        canal.pon_bytes(0, antes);
    }
}

TEST_F(iv_mcserv_comando, resultado_escribe_id_y_textos_y_nada_mas)
{
    llena(0xEE);
    canal.pon_u32(C_ID_COMANDO, 100);
    canal.pon_u32(C_OCUPACION, 2);
    std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);

    EXPECT_EQ(pon_textos(L"a", L"b", L"c"), 1);

    EXPECT_EQ(canal.u32(C_ID_RESULTADO), 9u);
    EXPECT_EQ(canal.texto_u(C_SERV_64, 64), L"a");
    EXPECT_EQ(canal.texto_u(C_SERV_256, 256), L"b");
    EXPECT_EQ(canal.texto_u(C_SERV2_256, 256), L"c");
    std::vector<uint8_t> despues = canal.bytes(0, TAM_CANAL);
    std::copy(antes.begin() + 34, antes.begin() + 1190, despues.begin() + 34);
    EXPECT_TRUE(bytes_iguales(antes, despues)); // neither `resultado` nor the states
}

TEST_F(iv_mcserv_comando, textos_del_resultado_se_cortan_a_63_255_y_255)
{
    const struct {
        size_t corto, largo, queda_corto, queda_largo;
    } casos[] = {{63, 255, 63, 255}, {64, 256, 63, 255}, {2000, 2000, 63, 255}};
    for (const auto &caso : casos) {
        pon_textos(std::wstring(caso.corto, L'a'), std::wstring(caso.largo, L'b'), std::wstring(caso.largo, L'c'));

        EXPECT_EQ(canal.texto_u(C_SERV_64, 64), std::wstring(caso.queda_corto, L'a'));
        EXPECT_EQ(canal.texto_u(C_SERV_256, 256), std::wstring(caso.queda_largo, L'b'));
        EXPECT_EQ(canal.texto_u(C_SERV2_256, 256), std::wstring(caso.queda_largo, L'c'));
        EXPECT_EQ(canal.u64(C_HWND_CLIENTE), 0u);
    }
}

TEST_F(iv_mcserv_comando, texto_nulo_del_resultado_se_escribe_vacio)
{
    pon_textos(L"a", L"b", L"c");

    EXPECT_EQ(iv_mcserv_pon_resultado(mcserv, 100, 0, nullptr, nullptr, nullptr), 1);

    EXPECT_EQ(canal.u32(C_ID_RESULTADO), 0u);
    EXPECT_EQ(canal.u16(C_SERV_64), 0u);
    EXPECT_EQ(canal.u16(C_SERV_256), 0u);
    EXPECT_EQ(canal.u16(C_SERV2_256), 0u);
}

TEST_F(iv_mcserv_comando, sin_comando_en_curso_ningun_texto_se_toca)
{
    canal.pon_texto_u(C_CLIENTE_64, L"uno");
    canal.pon_texto_u(C_CLIENTE_256, L"dos");
    canal.pon_texto_u(C_CLIENTE2_256, L"tres");
    wcscpy(texto_64, L"a");
    wcscpy(texto_256, L"b");
    wcscpy(texto2_256, L"c");

    EXPECT_EQ(dame(101), 0);

    EXPECT_EQ(std::wstring(texto_64) + texto_256 + texto2_256, L"abc");
    EXPECT_EQ(dame(100), 1);
    EXPECT_EQ(std::wstring(texto_64) + texto_256 + texto2_256, L"unodostres");
}

TEST_F(iv_mcserv_comando, cada_texto_del_resultado_puede_faltar)
{
    for (size_t falta = 0; falta < 3; falta++) {
        pon_textos(L"x", L"y", L"z");
        const wchar_t *textos[3] = {L"a", L"b", L"c"};
        textos[falta] = nullptr;

        EXPECT_EQ(iv_mcserv_pon_resultado(mcserv, 100, 9, textos[0], textos[1], textos[2]), 1);

        EXPECT_EQ(canal.texto_u(C_SERV_64, 64), falta == 0 ? L"" : L"a");
        EXPECT_EQ(canal.texto_u(C_SERV_256, 256), falta == 1 ? L"" : L"b");
        EXPECT_EQ(canal.texto_u(C_SERV2_256, 256), falta == 2 ? L"" : L"c");
    }
}
