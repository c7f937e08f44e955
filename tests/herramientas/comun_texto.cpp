// comun_texto.cpp - texts between the desktop's and ours, and JSON.
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "comun/sistema.h"

#include "comun/json.h"
#include "comun/texto.h"

#include "ivrexa.h"

using namespace herramientas;

TEST(texto, ancho_va_y_vuelve)
{
    for (const std::wstring &ancho : {std::wstring(), std::wstring(L"abc"), std::wstring(L"\u00f1\u20ac\U0001f600"),
                                      std::wstring(L"a\0b", 3), std::wstring(100000, L'\u4e00')})
        EXPECT_EQ(a_ancho(de_ancho(ancho)), ancho);
    EXPECT_EQ(de_ancho(L"\u00f1\u20ac\U0001f600"), "\xc3\xb1\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST(texto, sustitutos_sueltos_y_utf8_estropeado_se_vuelven_fffd)
{
    const std::string MAL = "\xef\xbf\xbd";
    for (wchar_t suelto : {wchar_t(0xd83d), wchar_t(0xde00), wchar_t(0xd800), wchar_t(0xdfff)}) {
        EXPECT_EQ(de_ancho(std::wstring(1, suelto)), MAL);
        EXPECT_EQ(de_ancho(std::wstring(1, suelto) + L"x"), MAL + "x");
    }
    for (const char *mal : {"\xff", "\xc3", "\xe2\x82", "a\x80z", "\xc0\xaf", "\xed\xa0\x80"})
        EXPECT_NE(a_ancho(mal).find(L'\ufffd'), std::wstring::npos) << mal;
}

TEST(texto, ansi_va_y_vuelve_en_todo_lo_que_la_pagina_tiene)
{
    for (int byte = 1; byte < 256; byte++) {
        std::string ansi(1, static_cast<char>(byte));
        wchar_t ancho[4] = L"";
        if (MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, ansi.data(), 1, ancho, 4) != 1)
            continue;
        std::optional<std::string> vuelta = a_ansi(de_ansi(ansi));
        ASSERT_TRUE(vuelta) << byte;
        EXPECT_EQ(*vuelta, ansi) << byte;
    }
    EXPECT_EQ(a_ansi(""), std::optional<std::string>(""));
}

TEST(texto, lo_que_la_pagina_no_tiene_no_se_sustituye)
{
    EXPECT_EQ(a_ansi("\xf0\x9f\x98\x80"), std::nullopt);
    EXPECT_EQ(a_ansi("x\xe4\xb8\x80"), std::nullopt);
    EXPECT_EQ(a_ansi("\xe2\x88\x9e"), std::nullopt) << "infinity has 8 as its best fit";
    EXPECT_EQ(a_ansi("a\xff"), std::nullopt) << "no text";
}

TEST(texto, controles_se_escapan)
{
    struct caso {
        std::string texto, sin, comillas;
    };
    const caso casos[] = {
        {"abc", "abc", "\"abc\""},
        {"a\nb\rc\td", "a\\nb\\rc\\td", "\"a\\nb\\rc\\td\""},
        {std::string("\0\x01\x1b\x7f", 4), "\\x00\\x01\\x1b\\x7f", "\"\\x00\\x01\\x1b\\x7f\""},
        {"a\"b\\c", "a\"b\\c", "\"a\\\"b\\\\c\""},
        {"\xc2\x80-\xc2\x9b-\xc2\x9f-\xc2\xa0", "\\u0080-\\u009b-\\u009f-\xc2\xa0",
         "\"\\u0080-\\u009b-\\u009f-\xc2\xa0\""},
        {"\xe2\x80\xa8\xe2\x80\xa9\xe2\x80\xaa", "\\u2028\\u2029\xe2\x80\xaa", "\"\\u2028\\u2029\xe2\x80\xaa\""},
        {"\xc2", "\xc2", "\"\xc2\""},
        {"x\xe2\x80", "x\xe2\x80", "\"x\xe2\x80\""},
        {"\xc3\xb1\xe2\x82\xac", "\xc3\xb1\xe2\x82\xac", "\"\xc3\xb1\xe2\x82\xac\""},
    };
    for (const caso &c : casos) {
        EXPECT_EQ(sin_controles(c.texto), c.sin);
        EXPECT_EQ(entre_comillas(c.texto), c.comillas);
    }
}

TEST(texto, numeros_con_comas)
{
    EXPECT_EQ(numero_con_comas(0), "0");
    EXPECT_EQ(numero_con_comas(999), "999");
    EXPECT_EQ(numero_con_comas(1000), "1,000");
    EXPECT_EQ(numero_con_comas(123456), "123,456");
    EXPECT_EQ(numero_con_comas(UINT64_MAX), "18,446,744,073,709,551,615");
}

TEST(texto, nombre_sin_ruta)
{
    EXPECT_EQ(nombre_sin_ruta("C:\\a\\b.exe"), "b.exe");
    EXPECT_EQ(nombre_sin_ruta("C:/a\\b/c.exe"), "c.exe");
    EXPECT_EQ(nombre_sin_ruta("b.exe"), "b.exe");
    EXPECT_EQ(nombre_sin_ruta("C:\\a\\"), "C:\\a\\");
    EXPECT_EQ(nombre_sin_ruta(""), "");
}

// ---- JSON

TEST(json, suceso_de_comando)
{
    suceso s;
    s.numero = 7;
    s.quien = lado::cliente;
    s.que = clase::comando;
    s.empieza = true;
    s.servicio = "Calc";
    s.id_comando = 200;
    s.id_bloque = 101;
    EXPECT_EQ(en_linea(a_json(s)),
              "{\"n\":7,\"time\":\"1601-01-01T00:00:00.000Z\",\"side\":\"client\",\"kind\":\"command\","
              "\"event\":\"command begins\",\"service\":\"Calc\",\"begins\":true,\"command\":200,\"block\":101}");
}

TEST(json, suceso_de_espera_y_de_hueco)
{
    suceso s;
    s.quien = lado::servidor;
    s.que = clase::espera;
    s.estado = 1;
    s.servicio = "Calc";
    EXPECT_EQ(en_linea(a_json(s)),
              "{\"n\":0,\"time\":\"1601-01-01T00:00:00.000Z\",\"side\":\"server\",\"kind\":\"wait\","
              "\"event\":\"waits for a command\",\"service\":\"Calc\",\"state\":1}");
    s.que = clase::hueco;
    s.perdidos = 12;
    EXPECT_EQ(en_linea(a_json(s)), "{\"n\":0,\"time\":\"1601-01-01T00:00:00.000Z\",\"kind\":\"gap\",\"lost\":12}");
}

static valor un_valor(uint32_t tipo)
{
    valor v;
    v.nombre = "v";
    v.tipo = tipo;
    v.numero = UINT64_MAX;
    v.bytes = {0x00, 0x7f, 0xff};
    v.tam = 3;
    v.texto = "a\"\n";
    v.textos = {std::string("x"), std::nullopt, std::string("")};
    v.real = 0.1;
    return v;
}

TEST(json, valores_de_cada_tipo)
{
    const struct {
        uint32_t tipo;
        const char *linea;
    } casos[] = {
        {ivrexa_tipoDato_byte, "{\"name\":\"v\",\"type\":\"byte\",\"value\":18446744073709551615}"},
        {ivrexa_tipoDato_hwnd, "{\"name\":\"v\",\"type\":\"hwnd\",\"value\":18446744073709551615}"},
        {ivrexa_tipoDato_double, "{\"name\":\"v\",\"type\":\"double\",\"value\":0.1}"},
        {ivrexa_tipoDato_buffer, "{\"name\":\"v\",\"type\":\"buffer\",\"size\":3,\"value\":\"007fff\"}"},
        {ivrexa_tipoDato_cadena_ansi, "{\"name\":\"v\",\"type\":\"ansi\",\"value\":\"a\\\"\\n\"}"},
        {ivrexa_tipoDato_cadena_unicode, "{\"name\":\"v\",\"type\":\"wide\",\"value\":\"a\\\"\\n\"}"},
        {ivrexa_tipoDato_arr_cadenas_ansi, "{\"name\":\"v\",\"type\":\"ansi[]\",\"value\":[\"x\",null,\"\"]}"},
        {ivrexa_tipoDato_arr_cadenas_unicode, "{\"name\":\"v\",\"type\":\"wide[]\",\"value\":[\"x\",null,\"\"]}"},
    };
    for (const auto &c : casos)
        EXPECT_EQ(en_linea(a_json(un_valor(c.tipo))), c.linea);
    valor nulo = un_valor(ivrexa_tipoDato_cadena_ansi);
    nulo.texto = std::nullopt;
    EXPECT_EQ(en_linea(a_json(nulo)), "{\"name\":\"v\",\"type\":\"ansi\",\"value\":null}");
    valor real = un_valor(ivrexa_tipoDato_double);
    real.real = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(a_json(real)["value"], "nan");
    real.real = -std::numeric_limits<double>::infinity();
    EXPECT_EQ(a_json(real)["value"], "-inf");
}

TEST(json, contenido_con_su_fallo_y_texto_que_no_es_utf8)
{
    contenido c;
    EXPECT_EQ(en_linea(a_json(c)), "{\"values\":[]}");
    c.valores.push_back(un_valor(ivrexa_tipoDato_byte));
    c.valores[0].nombre = "\xff";
    c.valores[0].numero = 1;
    c.fallo = "short";
    EXPECT_EQ(en_linea(a_json(c)),
              "{\"values\":[{\"name\":\"\xef\xbf\xbd\",\"type\":\"byte\",\"value\":1}],\"error\":\"short\"}");
}

TEST(valores, para_personas_en_una_linea)
{
    EXPECT_EQ(valor_a_texto(un_valor(ivrexa_tipoDato_ulong)), "18446744073709551615");
    EXPECT_EQ(valor_a_texto(un_valor(ivrexa_tipoDato_double)), "0.1");
    EXPECT_EQ(valor_a_texto(un_valor(ivrexa_tipoDato_buffer)), "3 bytes 007fff");
    EXPECT_EQ(valor_a_texto(un_valor(ivrexa_tipoDato_cadena_ansi)), "\"a\\\"\\n\"");
    EXPECT_EQ(valor_a_texto(un_valor(ivrexa_tipoDato_arr_cadenas_ansi)), "[\"x\", null, \"\"]");
    valor v = un_valor(ivrexa_tipoDato_buffer);
    v.bytes.assign(33, 0xab);
    v.tam = 5000;
    std::string cifras;
    for (int i = 0; i < 32; i++)
        cifras += "ab";
    EXPECT_EQ(valor_a_texto(v), "5,000 bytes " + cifras + "...");
    v.bytes.clear();
    v.tam = 0;
    EXPECT_EQ(valor_a_texto(v), "0 bytes");
    v.tipo = ivrexa_tipoDato_cadena_unicode;
    v.texto = std::nullopt;
    EXPECT_EQ(valor_a_texto(v), "null");
    const double reales[] = {0, -1.5, 1e300, 5e-324, 1.0 / 3, 123456789012345680.0};
    for (double real : reales)
        EXPECT_EQ(std::strtod(real_a_texto(real).c_str(), nullptr), real);
    EXPECT_EQ(real_a_texto(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(real_a_texto(std::nan("")), "nan");
}
