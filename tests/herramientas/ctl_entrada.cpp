// ctl_entrada.cpp - what is typed for a command: every type, at its limits and one past, and the bytes that come of it.
#include <cmath>
#include <functional>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/lineas.h"
#include "comun/util.h"

#include "entrada.h"
#include "orden.h"

using namespace ivrexactl;

static std::string fallo_de(const std::function<void()> &hazlo, codigo esperado)
{
    try {
        hazlo();
    } catch (const fallo &f) {
        EXPECT_EQ(f.que(), esperado) << f.what();
        return f.what();
    }
    return "(accepted)";
}

static std::string refused(const std::string &argumento, codigo esperado = codigo_USO)
{
    return fallo_de([&] { lee_dato(argumento); }, esperado);
}

// A file that goes with the test.
class fichero_propio {
public:
    explicit fichero_propio(const std::string &nombre)
    {
        char carpeta[MAX_PATH];
        GetTempPathA(MAX_PATH, carpeta);
        m_ruta = carpeta + nombre;
        m_fichero = CreateFileA(m_ruta.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
    }
    ~fichero_propio()
    {
        CloseHandle(m_fichero);
        DeleteFileA(m_ruta.c_str());
    }
    void escribe(const std::vector<uint8_t> &bytes)
    {
        DWORD num = 0;
        WriteFile(m_fichero, bytes.data(), static_cast<DWORD>(bytes.size()), &num, nullptr);
    }
    void estira(uint64_t tam)
    {
        LARGE_INTEGER fin;
        fin.QuadPart = static_cast<LONGLONG>(tam);
        EXPECT_TRUE(SetFilePointerEx(m_fichero, fin, nullptr, FILE_BEGIN) && SetEndOfFile(m_fichero));
    }
    const std::string &ruta() const { return m_ruta; }

private:
    std::string m_ruta;
    HANDLE m_fichero;
};

// ---- Numbers

TEST(entrada, numeros_en_decimal_y_hexadecimal_hasta_su_limite)
{
    struct {
        const char *argumento;
        uint32_t tipo;
        uint64_t numero;
    } const casos[] = {
        {"n:byte=0", 1, 0},
        {"n:byte=255", 1, 255},
        {"n:byte=0xfF", 1, 255},
        {"n:byte=007", 1, 7},
        {"n:ushort=65535", 2, 65535},
        {"n:ushort=0X0", 2, 0},
        {"n:ulong=4294967295", 3, 4294967295u},
        {"n:ulong=0xffffffff", 3, 4294967295u},
        {"n:hwnd=18446744073709551615", 8, UINT64_MAX},
        {"n:hwnd=0x1122334455667788", 8, 0x1122334455667788u},
    };
    for (const auto &caso : casos) {
        dato d = lee_dato(caso.argumento);
        EXPECT_EQ(d.nombre, "n");
        EXPECT_EQ(d.tipo, caso.tipo) << caso.argumento;
        EXPECT_EQ(d.numero, caso.numero) << caso.argumento;
    }
}

TEST(entrada, numeros_que_no_caben_o_no_lo_son_se_rechazan)
{
    for (const char *argumento : {"n:byte=256", "n:byte=0x100", "n:ushort=65536", "n:ulong=4294967296",
                                  "n:hwnd=18446744073709551616", "n:byte=", "n:byte=-1", "n:byte=+1", "n:byte= 1",
                                  "n:byte=1 ", "n:byte=1.0", "n:byte=0x", "n:byte=0xg", "n:byte=ff", "n:ulong=1e3"})
        EXPECT_NE(refused(argumento).find("is not a number from 0 to "), std::string::npos) << argumento;
    EXPECT_EQ(refused("n:byte=256"), "value \"n\": \"256\" is not a number from 0 to 255, decimal or as 0x...");
}

TEST(entrada, reales)
{
    EXPECT_EQ(lee_dato("d:double=-1.5e3").real, -1500.0);
    EXPECT_EQ(lee_dato("d:double=0").real, 0.0);
    EXPECT_EQ(lee_dato("d:double=1.7976931348623157e308").real, 1.7976931348623157e308);
    EXPECT_EQ(lee_dato("d:double=5").tipo, 4u);
    EXPECT_TRUE(std::isnan(lee_dato("d:double=nan").real));
    EXPECT_EQ(refused("d:double=1e999"), "value \"d\": \"1e999\" is beyond what a double holds");
    for (const char *argumento : {"d:double=", "d:double=x", "d:double=1,5", "d:double= 1", "d:double=1 "})
        EXPECT_NE(refused(argumento).find("is not a number"), std::string::npos) << argumento;
}

// ---- Buffers

TEST(entrada, buffers_en_hexadecimal_o_de_un_fichero)
{
    EXPECT_EQ(lee_dato("b:buffer=").bytes, std::vector<uint8_t>());
    EXPECT_EQ(lee_dato("b:buffer=00fF7f").bytes, (std::vector<uint8_t>{0, 255, 127}));
    fichero_propio fichero("ivrexactl_entrada.bin");
    EXPECT_EQ(lee_dato("b:buffer=@" + fichero.ruta()).bytes, std::vector<uint8_t>()) << "an empty file";
    std::vector<uint8_t> bytes(3000000);
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = static_cast<uint8_t>(i * 31 >> 3);
    fichero.escribe(bytes);
    EXPECT_TRUE(lee_dato("b:buffer=@" + fichero.ruta()).bytes == bytes);
    for (const char *argumento : {"b:buffer=0", "b:buffer=0g", "b:buffer=+1", "b:buffer=0x11", "b:buffer=00 ff"})
        EXPECT_NE(refused(argumento).find("is not made of pairs of hexadecimal digits"), std::string::npos)
            << argumento;
}

TEST(entrada, un_fichero_que_no_se_lee_se_dice_con_66)
{
    for (const char *argumento : {"b:buffer=@", "b:buffer=@Z:\\no\\such\\file", "b:buffer=@C:\\windows"})
        EXPECT_NE(refused(argumento, codigo_NO_SE_LEE).find("cannot be read"), std::string::npos) << argumento;
}

// The container would report that it cannot grow. The file is only as long as it says, and is not read.
TEST(entrada, mas_bytes_que_un_comando_lleva_se_rechazan_sin_leerlos)
{
    fichero_propio fichero("ivrexactl_enorme.bin");
    fichero.estira(0xffffffffull - 1023);
    EXPECT_NE(refused("b:buffer=@" + fichero.ruta()).find("more bytes than a command can carry"), std::string::npos);
}

// ---- Texts

TEST(entrada, textos_ansi_y_anchos_tambien_vacios_y_nulos)
{
    EXPECT_EQ(lee_dato("t:ansi=a\xc3\xb1o").ansi, "a\xf1o");
    EXPECT_EQ(lee_dato("t:ansi=@no file: x=y").ansi, "@no file: x=y");
    EXPECT_EQ(lee_dato("t:ansi=").ansi, "");
    EXPECT_EQ(lee_dato("t:ansi").ansi, std::nullopt);
    EXPECT_EQ(lee_dato("t:wide=\xe2\x82\xac\xf0\x9f\x98\x80").ancho, std::wstring(L"\x20ac\xd83d\xde00"));
    EXPECT_EQ(lee_dato("t:wide=").ancho, L"");
    EXPECT_EQ(lee_dato("t:wide").ancho, std::nullopt);
    EXPECT_EQ(lee_dato("t:wide").tipo, 7u);
    EXPECT_EQ(refused("t:ansi=\xe4\xb8\x80"),
              "value \"t\": \"\xe4\xb8\x80\" has a character that the ANSI code page has not");
}

TEST(entrada, arreglos_de_textos_y_nulos)
{
    using textos = std::vector<std::optional<std::string>>;
    EXPECT_EQ(lee_dato("a:ansi[]=[]").textos_ansi, textos());
    EXPECT_EQ(lee_dato("a:ansi[]=[\"uno\",null,\"\",\"tr\\u00e9s\"]").textos_ansi,
              (textos{"uno", std::nullopt, "", "tr\xe9s"}));
    dato d = lee_dato("a:wide[]= [ \"\\u20ac\", null ]");
    EXPECT_EQ(d.tipo, 10u);
    EXPECT_EQ(d.textos_anchos, (std::vector<std::optional<std::wstring>>{L"\x20ac", std::nullopt}));
    for (const char *argumento :
         {"a:ansi[]=", "a:ansi[]=x", "a:ansi[]={}", "a:ansi[]=\"x\"", "a:ansi[]=[1]", "a:ansi[]=[[\"x\"]]",
          "a:ansi[]=[\"x\"", "a:ansi[]=[\"a\\u0000b\"]", "a:wide[]=[\"\\ud800\"]", "a:wide[]=[true]"})
        EXPECT_NE(refused(argumento).find("is not a JSON array of texts and nulls"), std::string::npos) << argumento;
    EXPECT_NE(refused("a:ansi[]=[\"\xe4\xb8\x80\"]").find("ANSI code page"), std::string::npos);
}

// ---- Names and types

TEST(entrada, el_tipo_esta_tras_los_ultimos_dos_puntos_antes_del_primer_igual)
{
    EXPECT_EQ(lee_dato("a:b:byte=7").nombre, "a:b");
    EXPECT_EQ(lee_dato(":byte=7").nombre, "");
    EXPECT_EQ(lee_dato("a\xc3\xb1o:byte=7").nombre, "a\xf1o");
    EXPECT_EQ(lee_dato("u:ansi=http://h:1/?q=2").ansi, "http://h:1/?q=2");
    EXPECT_EQ(lee_dato("u:ansi=http://h:1/?q=2").nombre, "u");
}

TEST(entrada, un_nombre_tiene_hasta_254_caracteres)
{
    EXPECT_EQ(lee_dato(std::string(254, 'n') + ":byte=1").nombre.size(), 254u);
    EXPECT_EQ(refused(std::string(255, 'n') + ":byte=1"),
              "name of a value: it has 255 characters, and 254 is the most");
    std::string eres;
    for (int i = 0; i < 254; i++)
        eres += "\xc3\xb1";
    EXPECT_EQ(lee_dato(eres + ":byte=1").nombre, std::string(254, '\xf1')) << "counted in the code page";
    EXPECT_NE(refused("\xe4\xb8\x80:byte=1").find("ANSI code page"), std::string::npos);
}

TEST(entrada, sin_tipo_con_otro_o_sin_valor_se_rechaza)
{
    EXPECT_EQ(refused("x"), "value \"x\" has no type; write NAME:TYPE=VALUE");
    EXPECT_EQ(refused("x=a:byte"), "value \"x=a:byte\" has no type; write NAME:TYPE=VALUE");
    EXPECT_EQ(refused("x:int=1"),
              "value \"x\": there is no type \"int\"; the types are byte ushort ulong double buffer "
              "ansi wide hwnd ansi[] wide[]");
    for (const char *tipo : {"byte", "ushort", "ulong", "double", "buffer", "hwnd", "ansi[]", "wide[]"})
        EXPECT_EQ(refused(std::string("x:") + tipo), std::string("value \"x\": a value of type ") + tipo +
                                                         " is missing; only a text, ansi or wide, can be null");
}

// ---- Service, id, texts of the command

TEST(entrada, nombre_de_servicio)
{
    EXPECT_EQ(lee_nombre_servicio("A\xc3\xb1o 1"), "A\xf1o 1");
    EXPECT_EQ(lee_nombre_servicio(std::string(63, 's')).size(), 63u);
    for (const std::string &nombre :
         {std::string(), std::string(64, 's'), std::string("a\\b"), std::string("\xe4\xb8\x80")})
        EXPECT_NE(fallo_de([&] { lee_nombre_servicio(nombre); }, codigo_USO), "(accepted)") << nombre;
}

TEST(entrada, id_de_comando)
{
    EXPECT_EQ(lee_id_comando("100"), 100u);
    EXPECT_EQ(lee_id_comando("0xffffffff"), 4294967295u);
    EXPECT_EQ(fallo_de([] { lee_id_comando("1"); }, codigo_USO),
              "id: 1 is the command that ends a server; use 'ivrexactl end'");
    EXPECT_EQ(fallo_de([] { lee_id_comando("99"); }, codigo_USO),
              "id: 99 is the library's own; a server's commands begin at 100");
    for (const char *id : {"0", "2", "-1", "4294967296", "", "x"})
        EXPECT_NE(fallo_de([&] { lee_id_comando(id); }, codigo_USO), "(accepted)") << id;
}

TEST(entrada, un_texto_se_cuenta_en_unidades_utf16)
{
    EXPECT_EQ(lee_texto("--text1", std::string(63, 'x'), MAX_TEXTO_CORTO).size(), 63u);
    EXPECT_EQ(fallo_de([] { lee_texto("--text1", std::string(64, 'x'), MAX_TEXTO_CORTO); }, codigo_USO),
              "--text1: the text has 64 characters, and only 63 reach the server");
    EXPECT_EQ(lee_texto("--text2", std::string(253, 'x') + "\xf0\x9f\x98\x80", MAX_TEXTO_LARGO).size(), 255u);
    EXPECT_EQ(
        fallo_de([] { lee_texto("--text3", std::string(254, 'x') + "\xf0\x9f\x98\x80", MAX_TEXTO_LARGO); }, codigo_USO),
        "--text3: the text has 256 characters, and only 255 reach the server");
}

// ---- Bytes

// A channel that nobody serves is enough to store data.
class entrada_en_bloque : public ::testing::Test {
protected:
    entrada_en_bloque() : m_canal(("Ivrexa_MCB_Serv_" + m_servicio).c_str(), 2378) { m_canal.pon_u32(12, 100); }
    ~entrada_en_bloque() override { ivrexa_cierra_sesion(); }

    std::vector<uint8_t> guarda(const std::vector<std::string> &argumentos)
    {
        m_tam = 4;
        comdat *datos = ivrexa_crea_datos_comando_entrada(m_servicio.c_str());
        for (const dato &d : lee_datos(argumentos)) {
            m_tam += tam_en_bloque(d);
            graba(d, datos);
        }
        uint32_t id = ivrexa_guarda_datos(datos);
        bloque_crudo bloque(("Ivrexa_MCB_Serv_" + m_servicio + "_Com__comdat" + std::to_string(id)).c_str());
        std::vector<uint8_t> bytes = bloque.bytes(0, bloque.cabecera());
        ivrexa_destruye_datos_comando(datos);
        return bytes;
    }
    uint64_t tam_dicho() const { return m_tam; }

private:
    const std::string m_servicio = nombre_unico("serv");
    bloque_crudo m_canal;
    uint64_t m_tam = 0;
};

TEST_F(entrada_en_bloque, cada_tipo_es_los_bytes_del_formato_y_su_tamanyo_se_sabe_antes)
{
    struct {
        const char *argumento;
        const char *bytes;
    } const casos[] = {
        {"b:byte=0xfe", "01 02 6200 fe"},
        {"u:ushort=0x1234", "02 02 7500 3412"},
        {"l:ulong=0x12345678", "03 02 6c00 78563412"},
        {"d:double=-1.5", "04 02 6400 000000000000f8bf"},
        {"f:buffer=00ff", "05 02 6600 02000000 00ff"},
        {"f:buffer=", "05 02 6600 00000000"},
        {"a:ansi=a\xc3\xb1", "06 02 6100 03000000 61f100"},
        {"a:ansi=", "06 02 6100 01000000 00"},
        {"a:ansi", "06 02 6100 00000000"},
        {"w:wide=\xe2\x82\xac", "07 02 7700 04000000 ac200000"},
        {"w:wide=", "07 02 7700 02000000 0000"},
        {"w:wide", "07 02 7700 00000000"},
        {"h:hwnd=0x1122334455667788", "08 02 6800 8877665544332211"},
        {":byte=7", "01 01 00 07"},
        {"s:ansi[]=[]", "09 02 7300 00000000"},
        // count; positions of "u", null, ""; the texts
        {"s:ansi[]=[\"u\",null,\"\"]",
         "09 02 7300 03000000 18000000 1e000000 22000000 02000000 7500 00000000 01000000 00"},
    };
    for (const auto &caso : casos) {
        std::vector<uint8_t> bytes = guarda({caso.argumento});
        EXPECT_TRUE(bytes_iguales(de_hex(std::string("01000000") + caso.bytes), bytes)) << caso.argumento;
        EXPECT_EQ(tam_dicho(), bytes.size()) << caso.argumento;
    }
}

// Why such an array does not come back: there is no count before the positions, and readers take the first of those
// for it.
TEST_F(entrada_en_bloque, un_arreglo_ancho_no_lleva_su_cuenta)
{
    std::vector<uint8_t> bytes = guarda({"s:wide[]=[\"u\",null]"});
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 0a 02 7300 10000000 18000000 04000000 75000000 00000000"), bytes));
    EXPECT_EQ(tam_dicho(), bytes.size() + 4);
}

TEST_F(entrada_en_bloque, varios_valores_van_en_su_orden)
{
    EXPECT_TRUE(bytes_iguales(de_hex("02000000 01 02 6200 01 01 02 6100 02"), guarda({"b:byte=1", "a:byte=2"})));
}
