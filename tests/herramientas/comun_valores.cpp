// comun_valores.cpp - typed values, read by the tools' own eyes: against what the library writes and reads, and against
// anybody's bytes.
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "dll_conversa.h"

#include "comun/valores.h"

#include "ivrexa.h"

using herramientas::contenido;
using herramientas::descifra;
using herramientas::valor;

namespace {

// Bytes at the end of a page, before one that cannot be read.
class ante_un_muro {
public:
    explicit ante_un_muro(size_t max) : m_max((max + 4095) / 4096 * 4096)
    {
        m_base = static_cast<uint8_t *>(VirtualAlloc(nullptr, m_max + 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD antes;
        VirtualProtect(m_base + m_max, 4096, PAGE_NOACCESS, &antes);
    }
    ~ante_un_muro() { VirtualFree(m_base, 0, MEM_RELEASE); }
    const uint8_t *pon(const uint8_t *datos, size_t num)
    {
        uint8_t *sitio = m_base + m_max - num;
        if (num != 0)
            memcpy(sitio, datos, num);
        return sitio;
    }

private:
    size_t m_max;
    uint8_t *m_base;
};

// A server's service and a client of it in this process: blocks can be saved.
class valores_de_la_biblioteca : public ::testing::Test {
protected:
    void SetUp() override
    {
        vacia_registro();
        m_servidor.emplace(arranca_servidor("ventana", servicio));
        ivrexa_registra_cliente_de_servicio("valores", nullptr, servicio.c_str());
        m_datos = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    }
    void TearDown() override
    {
        ivrexa_destruye_datos_comando(m_datos);
        ivrexa_cierra_sesion();
    }

    contenido guarda_y_lee()
    {
        m_id = ivrexa_guarda_datos(m_datos);
        EXPECT_GE(m_id, 100u);
        std::optional<contenido> c = herramientas::lee_bloque(servicio, m_id);
        EXPECT_TRUE(c);
        return c.value_or(contenido());
    }

    std::vector<uint8_t> bytes()
    {
        bloque_crudo crudo(nombre_datos(servicio, m_id).c_str());
        return crudo.bytes(0, crudo.cabecera());
    }

    void graba_de_todo()
    {
        static const uint8_t octetos[] = {0, 1, 0x7f, 0x80, 0xff};
        const char *ansi[] = {"uno", nullptr, "", "\xf1"};
        const wchar_t *ancho[] = {L"dos", nullptr, L"", L"\u4e00\U0001f600"};
        ivrexa_graba_byte(m_datos, "b", 250);
        ivrexa_graba_ushort(m_datos, "u", 65534);
        ivrexa_graba_ulong(m_datos, "l", 4294967295u);
        ivrexa_graba_double(m_datos, "d", -1.5);
        ivrexa_graba_buffer(m_datos, "datos", octetos, 5);
        ivrexa_graba_buffer(m_datos, "nada", nullptr, 0);
        ivrexa_graba_cadena_ansi(m_datos, "a", "hola \xf1");
        ivrexa_graba_cadena_ansi(m_datos, "a vacio", "");
        ivrexa_graba_cadena_ansi(m_datos, "a nulo", nullptr);
        ivrexa_graba_cadena_unicode(m_datos, "w", L"hola \u20ac\U0001f600");
        ivrexa_graba_cadena_unicode(m_datos, "w vacio", L"");
        ivrexa_graba_cadena_unicode(m_datos, "w nulo", nullptr);
        ivrexa_graba_hwnd(m_datos, "h", reinterpret_cast<ivrexa_hwnd>(0x0123456789abcdef));
        ivrexa_graba_arr_cadenas_ansi(m_datos, "aa", ansi, 4);
        ivrexa_graba_arr_cadenas_ansi(m_datos, "aa 0", nullptr, 0);
        ivrexa_graba_arr_cadenas_unicode(m_datos, "ww", ancho, 4);
        ivrexa_graba_arr_cadenas_unicode(m_datos, "ww 0", nullptr, 0);
        ivrexa_graba_arr_cadenas_unicode(m_datos, "ww nulos", nullptr, 2);
        ivrexa_graba_byte(m_datos, "", 7);
    }

    const std::string servicio = nombre_unico("serv");
    std::optional<papel> m_servidor;
    comdat *m_datos = nullptr;
    uint32_t m_id = 0;
};

// All that a value holds, on one line.
std::string linea_de(const valor &v)
{
    return v.nombre + ":" + herramientas::nombre_tipo(v.tipo) + "=" + herramientas::valor_a_texto(v);
}

std::vector<std::string> lineas_de(const contenido &c)
{
    std::vector<std::string> lineas;
    for (const valor &v : c.valores)
        lineas.push_back(linea_de(v));
    return lineas;
}

const std::vector<std::string> DE_TODO = {
    "b:byte=250",
    "u:ushort=65534",
    "l:ulong=4294967295",
    "d:double=-1.5",
    "datos:buffer=5 bytes 00017f80ff",
    "nada:buffer=0 bytes",
    "a:ansi=\"hola \xc3\xb1\"",
    "a vacio:ansi=\"\"",
    "a nulo:ansi=null",
    "w:wide=\"hola \xe2\x82\xac\xf0\x9f\x98\x80\"",
    "w vacio:wide=\"\"",
    "w nulo:wide=null",
    "h:hwnd=81985529216486895",
    "aa:ansi[]=[\"uno\", null, \"\", \"\xc3\xb1\"]",
    "aa 0:ansi[]=[]",
    "ww:wide[]=[\"dos\", null, \"\", \"\xe4\xb8\x80\xf0\x9f\x98\x80\"]",
    "ww 0:wide[]=[]",
    "ww nulos:wide[]=[null, null]",
    ":byte=7",
};

std::string utf8_de(const char *ansi)
{
    std::wstring ancho(500, L'\0');
    ancho.resize(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, ansi, -1, &ancho[0], 500)) - 1);
    std::string utf8(2000, '\0');
    int num =
        WideCharToMultiByte(CP_UTF8, 0, ancho.data(), static_cast<int>(ancho.size()), &utf8[0], 2000, nullptr, nullptr);
    return utf8.substr(0, static_cast<size_t>(num));
}

} // namespace

TEST_F(valores_de_la_biblioteca, lo_que_la_biblioteca_escribe_se_lee_entero)
{
    graba_de_todo();
    contenido c = guarda_y_lee();
    EXPECT_EQ(c.fallo, "");
    EXPECT_EQ(lineas_de(c), DE_TODO);
}

TEST_F(valores_de_la_biblioteca, sin_valores_y_un_bloque_que_no_hay)
{
    contenido c = guarda_y_lee();
    EXPECT_EQ(c.fallo, "");
    EXPECT_TRUE(c.valores.empty());
    EXPECT_FALSE(herramientas::lee_bloque(servicio, m_id + 1));
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, m_id + 1).c_str()));
}

// The library's reader sees the same, type by type, up to an array of wide texts, which it cannot read.
TEST_F(valores_de_la_biblioteca, coincide_con_los_lectores_de_la_biblioteca)
{
    anfitrion_graba_muestra(m_datos, 3);
    const char *ansi[] = {"uno", nullptr, ""};
    ivrexa_graba_arr_cadenas_ansi(m_datos, "arr", ansi, 3);
    ivrexa_graba_double(m_datos, "inf", -INFINITY);
    contenido c = guarda_y_lee();
    comdat *leido = ivrexa_lee_datos(servicio.c_str(), m_id, CIERTO);
    ASSERT_NE(leido, nullptr);
    ASSERT_EQ(c.valores.size(), ivrexa_numero_valores(leido));
    for (uint32_t i = 0; i < c.valores.size(); i++) {
        const valor &v = c.valores[i];
        SCOPED_TRACE(v.nombre);
        EXPECT_EQ(v.tipo, static_cast<uint32_t>(ivrexa_tipoDato(leido, i)));
        EXPECT_EQ(v.nombre, utf8_de(ivrexa_nombre_valor(leido, i)));
        uint32_t num = 0;
        switch (v.tipo) {
        case 1:
            EXPECT_EQ(v.numero, ivrexa_dame_byte(leido, i));
            break;
        case 2:
            EXPECT_EQ(v.numero, ivrexa_dame_ushort(leido, i));
            break;
        case 3:
            EXPECT_EQ(v.numero, ivrexa_dame_ulong(leido, i));
            break;
        case 4:
            EXPECT_EQ(v.real, ivrexa_dame_double(leido, i));
            break;
        case 5: {
            const void *buffer = ivrexa_dame_buffer(leido, i, &num);
            EXPECT_EQ(v.tam, num);
            EXPECT_EQ(v.bytes.size(), num);
            EXPECT_TRUE(num == 0 || memcmp(v.bytes.data(), buffer, num) == 0);
            break;
        }
        case 6: {
            const char *texto = ivrexa_dame_cadena_ansi(leido, i);
            EXPECT_EQ(v.texto, texto ? std::optional<std::string>(utf8_de(texto)) : std::nullopt);
            break;
        }
        case 7:
            EXPECT_EQ(v.texto.has_value(), ivrexa_dame_cadena_unicode(leido, i) != nullptr);
            break;
        case 8:
            EXPECT_EQ(v.numero, reinterpret_cast<uint64_t>(ivrexa_dame_hwnd(leido, i)));
            break;
        case 9: {
            const char *const *textos = ivrexa_dame_arr_cadenas_ansi(leido, i, &num);
            ASSERT_EQ(v.textos.size(), num);
            // A null element is handed out as the position of its bytes, which are none.
            for (uint32_t k = 0; k < num; k++)
                if (v.textos[k]) {
                    EXPECT_EQ(*v.textos[k], utf8_de(textos[k])) << k;
                }
            break;
        }
        default:
            ADD_FAILURE() << "type " << v.tipo;
        }
    }
    ivrexa_destruye_datos_comando(leido);
}

// ---- Limits

TEST_F(valores_de_la_biblioteca, lo_que_pasa_de_los_limites_se_corta_sin_perder_el_sitio)
{
    std::string largo(5000, 'x');
    std::vector<const char *> muchos(50, "y");
    ivrexa_graba_cadena_ansi(m_datos, "a", largo.c_str());
    ivrexa_graba_cadena_unicode(m_datos, "w", std::wstring(5000, L'z').c_str());
    ivrexa_graba_buffer(m_datos, "b", largo.data(), 5000);
    ivrexa_graba_arr_cadenas_ansi(m_datos, "aa", muchos.data(), 50);
    ivrexa_graba_byte(m_datos, "fin", 1);
    ivrexa_graba_byte(m_datos, "de mas", 2);
    m_id = ivrexa_guarda_datos(m_datos);
    herramientas::limites_valores limites;
    limites.max_valores = 5;
    limites.max_bytes = 100;
    contenido c = herramientas::lee_bloque(servicio, m_id, limites).value();
    ASSERT_EQ(c.valores.size(), 5u);
    EXPECT_EQ(c.valores[0].texto, std::string(100, 'x'));
    EXPECT_EQ(c.valores[1].texto, std::string(50, 'z'));
    EXPECT_EQ(c.valores[2].tam, 5000u);
    EXPECT_EQ(c.valores[2].bytes.size(), 100u);
    EXPECT_EQ(c.valores[3].textos, std::vector<std::optional<std::string>>(5, "y"));
    EXPECT_EQ(linea_de(c.valores[4]), "fin:byte=1");
    EXPECT_EQ(c.fallo, "only the first 5 values are shown");
}

// ---- Contents that lie

TEST_F(valores_de_la_biblioteca, cortado_en_cualquier_byte_da_lo_que_hay_y_lo_dice)
{
    graba_de_todo();
    guarda_y_lee();
    std::vector<uint8_t> todo = bytes();
    ante_un_muro muro(todo.size());
    for (size_t num = 0; num < todo.size(); num++) {
        contenido c = descifra(muro.pon(todo.data(), num), num);
        EXPECT_NE(c.fallo, "") << num;
        ASSERT_LT(c.valores.size(), DE_TODO.size()) << num;
        for (size_t i = 0; i < c.valores.size() && i < 15; i++) // behind, a cut array of wide texts passes for none
            EXPECT_EQ(linea_de(c.valores[i]), DE_TODO[i]) << num;
    }
    EXPECT_EQ(lineas_de(descifra(muro.pon(todo.data(), todo.size()), todo.size())), DE_TODO);
}

TEST_F(valores_de_la_biblioteca, un_byte_cambiado_no_lleva_fuera)
{
    graba_de_todo();
    guarda_y_lee();
    std::vector<uint8_t> todo = bytes();
    ante_un_muro muro(todo.size());
    for (size_t i = 0; i < todo.size(); i++)
        for (int valor : {0, 1, 0x7f, 0xff, todo[i] + 1}) {
            std::vector<uint8_t> otro = todo;
            otro[i] = static_cast<uint8_t>(valor);
            descifra(muro.pon(otro.data(), otro.size()), otro.size());
        }
}

TEST(valores, bytes_al_azar_no_llevan_fuera)
{
    std::mt19937 azar(20261121);
    ante_un_muro muro(400);
    uint8_t datos[400];
    size_t con_valores = 0;
    for (int ronda = 0; ronda < 100000; ronda++) {
        size_t num = azar() % 300;
        for (size_t i = 0; i < num; i++)
            datos[i] =
                static_cast<uint8_t>(azar() % 3 == 0 ? azar() : azar() % 11); // many small numbers: types, lengths
        contenido c = descifra(muro.pon(datos, num), num);
        con_valores += !c.valores.empty();
        ASSERT_LE(c.valores.size(), num / 2);
        for (const valor &v : c.valores)
            ASSERT_LE(v.textos.size(), num / 4);
    }
    EXPECT_GT(con_valores, 10000u) << "bytes that never pass for values prove little";
}

TEST(valores, cuentas_enormes)
{
    struct caso {
        std::vector<uint8_t> bytes;
        const char *fallo;
    };
    const std::string FIN = "the content ends inside a value";
    const std::vector<caso> casos = {
        {de_hex(""), "the content ends before its count"},
        {de_hex("01 00 00"), "the content ends before its count"},
        {de_hex("ff ff ff ff"), FIN.c_str()},
        {de_hex("01 00 00 00 05 01 00 ff ff ff ff 00"), FIN.c_str()},
        {de_hex("01 00 00 00 06 01 00 ff ff ff ff 00"), FIN.c_str()},
        {de_hex("01 00 00 00 07 01 00 fe ff ff ff 00"), FIN.c_str()},
        {de_hex("01 00 00 00 09 01 00 ff ff ff ff 00 00 00 00"), FIN.c_str()},
        {de_hex("01 00 00 00 09 01 00 00 00 00 40 00 00 00 00"), FIN.c_str()}, // times 4 it is 0 in 32 bits
        {de_hex("01 00 00 00 01 ff 61"), FIN.c_str()},
        {de_hex("01 00 00 00 0b 01 00 00"), "a value of type 11, which there is not"},
        {de_hex("01 00 00 00 00 01 00 00"), "a value of type 0, which there is not"},
        {de_hex("01 00 00 00 01 01 61 07"), ""},                   // a name without its NUL
        {de_hex("01 00 00 00 01 00 07"), ""},                      // a name of no bytes
        {de_hex("01 00 00 00 06 01 00 02 00 00 00 61 62"), ""},    // a text without its NUL
        {de_hex("01 00 00 00 07 01 00 03 00 00 00 61 00 62"), ""}, // half a character
    };
    ante_un_muro muro(100);
    for (const caso &c : casos) {
        contenido leido = descifra(muro.pon(c.bytes.data(), c.bytes.size()), c.bytes.size());
        EXPECT_EQ(leido.fallo, c.fallo) << volcado_hex(c.bytes);
        EXPECT_EQ(leido.valores.size(), leido.fallo.empty() ? 1u : 0u);
    }
}

// A table of positions that its elements do not bear out is none.
TEST(valores, textos_anchos_cuyas_posiciones_mienten_no_se_siguen)
{
    const std::string BUENO = "01 00 00 00 0a 01 00 0f 00 00 00 15 00 00 00 02 00 00 00 00 00 02 00 00 00 00 00";
    std::vector<uint8_t> bytes = de_hex(BUENO);
    contenido c = descifra(bytes.data(), bytes.size());
    ASSERT_EQ(c.valores.size(), 1u);
    EXPECT_EQ(linea_de(c.valores[0]), ":wide[]=[\"\", \"\"]");
    for (uint8_t mal : {0x00, 0x07, 0x0b, 0x10, 0x13, 0x1b, 0xff}) {
        std::vector<uint8_t> otro = bytes;
        otro[7] = mal; // the first position
        c = descifra(otro.data(), otro.size());
        EXPECT_TRUE(c.valores.empty() || c.valores[0].textos.empty()) << int(mal);
    }
    bytes[11]++; // the second one
    c = descifra(bytes.data(), bytes.size());
    EXPECT_TRUE(c.valores.empty() || c.valores[0].textos.empty());
}

TEST(valores, nombres_de_los_tipos)
{
    const char *nombres[] = {"?",    "byte", "ushort", "ulong",  "double", "buffer",
                             "ansi", "wide", "hwnd",   "ansi[]", "wide[]", "?"};
    for (uint32_t i = 0; i < 12; i++)
        EXPECT_STREQ(herramientas::nombre_tipo(i), nombres[i]);
    EXPECT_STREQ(herramientas::nombre_tipo(0xffffffff), "?");
}
