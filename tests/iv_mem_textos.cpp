// The text helpers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "comun/informes_modulo.h"

#include "iv_mem.h"
#include "iv_mem_apoyo.h"

TEST(iv_mem_textos, copia_nueva_ocupa_su_longitud_y_su_cero)
{
    for (const char *cadena : {"", "a", "hola \xf1"}) {
        char *copia = iv_mem_duplica_cadena(cadena);
        EXPECT_STREQ(copia, cadena);
        EXPECT_NE(copia, cadena);
        EXPECT_EQ(tam_de(copia), strlen(cadena) + 1);
        iv_mem_libera_cadena(&copia);
    }
    for (const wchar_t *cadena : {L"", L"a", L"hola \u00f1\u4e2d"}) {
        wchar_t *copia = iv_mem_duplica_cadena_u(cadena);
        EXPECT_EQ(std::wstring(copia), cadena);
        EXPECT_EQ(tam_de(copia), (wcslen(cadena) + 1) * 2);
        iv_mem_libera_cadena_u(&copia);
    }
}

TEST(iv_mem_textos, longitudes_cuentan_caracteres_y_un_texto_nulo_es_0)
{
    EXPECT_EQ(iv_mem_longitud(""), 0u);
    EXPECT_EQ(iv_mem_longitud("ab\xf1"), 3u);
    EXPECT_EQ(iv_mem_longitud(std::string(70000, 'x').c_str()), 70000u);
    EXPECT_EQ(iv_mem_longitud(nullptr), 0u);
    EXPECT_EQ(iv_mem_longitud_u(L""), 0u);
    EXPECT_EQ(iv_mem_longitud_u(L"ab\u4e2d"), 3u);
    EXPECT_EQ(iv_mem_longitud_u(nullptr), 0u);
}

TEST(iv_mem_textos, comparaciones_distinguen_mayusculas_y_dan_1_o_0)
{
    EXPECT_EQ(iv_mem_cadenas_iguales("Calc", "Calc"), 1);
    EXPECT_EQ(iv_mem_cadenas_iguales("", ""), 1);
    for (const char *otra : {"calc", "CALC", "Cal", "Calc ", "Calcu", ""}) {
        EXPECT_EQ(iv_mem_cadenas_iguales("Calc", otra), 0) << otra;
        EXPECT_EQ(iv_mem_cadenas_iguales(otra, "Calc"), 0) << otra;
    }
    EXPECT_EQ(iv_mem_cadenas_iguales_u(L"Calc\u00f1", L"Calc\u00f1"), 1);
    for (const wchar_t *otra : {L"calc\u00f1", L"Calcn", L"Calc", L"Calc\u00d1", L""})
        EXPECT_EQ(iv_mem_cadenas_iguales_u(L"Calc\u00f1", otra), 0);
}

// The comparison is the platform's own, with its idea of what is the same text.
TEST(iv_mem_textos, comparaciones_dicen_lo_que_dice_la_plataforma)
{
    const char *const TEXTOS[] = {"a", "a\x01", "a\xad", "co-op", "coop", "\xe4", "a\xcc", "A"};
    for (const char *uno : TEXTOS)
        for (const char *otro : TEXTOS)
            EXPECT_EQ(iv_mem_cadenas_iguales(uno, otro), lstrcmpA(uno, otro) == 0 ? 1 : 0) << uno << " " << otro;
    EXPECT_EQ(iv_mem_cadenas_iguales(nullptr, nullptr), 1);
}

TEST(iv_mem_textos, copia_acotada_toma_primero_el_origen_y_siempre_termina)
{
    const struct {
        const char *origen;
        uint32_t num_caracteres;
        std::string esperado; // all of the buffer
    } CASOS[] = {
        {"abc", 1, std::string("\0#####", 6)},      {"abc", 2, std::string("a\0####", 6)},
        {"abc", 3, std::string("ab\0###", 6)},      {"abc", 4, std::string("abc\0##", 6)},
        {"abc", 6, std::string("abc\0##", 6)},      {"", 3, std::string("\0#####", 6)},
        {"abcdefgh", 6, std::string("abcde\0", 6)}, {nullptr, 3, std::string("\0#####", 6)},
    };

    for (const auto &caso : CASOS) {
        char buffer[] = "######";
        wchar_t buffer_u[] = L"######";
        wchar_t origen_u[16] = L"";
        for (uint32_t i = 0; caso.origen != nullptr && caso.origen[i] != 0; i++)
            origen_u[i] = static_cast<wchar_t>(caso.origen[i]);

        iv_mem_copia_cadena(caso.origen, buffer, caso.num_caracteres);
        iv_mem_copia_cadena_u(caso.origen != nullptr ? origen_u : nullptr, buffer_u, caso.num_caracteres);

        EXPECT_EQ(std::string(buffer, 6), caso.esperado);
        EXPECT_EQ(std::wstring(buffer_u, 6), std::wstring(caso.esperado.begin(), caso.esperado.end()));
    }
}

TEST(iv_mem_textos, concatena_cambia_el_texto_por_otro_nuevo_con_los_dos)
{
    char *cadena = iv_mem_duplica_cadena("ab");
    for (const char *cola : {"cd", "", "e"}) {
        iv_mem_concatena(&cadena, cola);
        EXPECT_EQ(bloques_vivos(), 1u) << "the old text is freed";
        EXPECT_EQ(tam_de(cadena), strlen(cadena) + 1);
    }
    EXPECT_STREQ(cadena, "abcde");

    iv_mem_concatena(&cadena, cadena); // its own text as the tail
    EXPECT_STREQ(cadena, "abcdeabcde");
    iv_mem_libera(&cadena);
}

TEST(iv_mem_textos, concatena_a_un_texto_nulo_copia_la_cola)
{
    char *cadena = nullptr;
    iv_mem_concatena(&cadena, "cola");

    EXPECT_STREQ(cadena, "cola");
    EXPECT_SIN_INFORMES();
    iv_mem_libera(&cadena);
}

TEST(iv_mem_textos, concatena_informa_de_una_direccion_nula_y_no_hace_mas)
{
    i_free(i_malloc(1));

    iv_mem_concatena(nullptr, "cola");

    EXPECT_INFORME("iv_mem", "(cadena) != 0");
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_mem_textos, numero_se_escribe_en_decimal_y_el_0_es_un_texto_vacio)
{
    const std::pair<uint32_t, const char *> CASOS[] = {{0, ""},      {1, "1"},           {10, "10"},
                                                       {100, "100"}, {907060, "907060"}, {4294967295u, "4294967295"}};
    for (const auto &[numero, texto] : CASOS) {
        char *cadena = iv_mem_numero_a_cadena(numero);
        EXPECT_STREQ(cadena, texto);
        EXPECT_EQ(tam_de(cadena), strlen(texto) + 1);
        iv_mem_libera(&cadena);
    }
}

// Against a loop of single bytes: every length up to where the instruction takes over and beyond, every way to overlap.
TEST(iv_mem_textos, copia_de_cualquier_longitud_y_solape_es_la_de_byte_a_byte)
{
    const int CENTRO = 800;
    for (int num = 0; num <= 330; num += num < 140 ? 1 : 19)
        for (int distancia = -num - 1; distancia <= num + 1; distancia++) {
            std::vector<uint8_t> esperado(3 * CENTRO), hallado;
            for (size_t i = 0; i < esperado.size(); i++)
                esperado[i] = static_cast<uint8_t>(i * 31 + 7);
            hallado = esperado;
            for (int i = 0; i < num; i++)
                esperado[CENTRO + distancia + i] = esperado[CENTRO + i];
            iv_mem_copia(&hallado[CENTRO + distancia], &hallado[CENTRO], static_cast<uint32_t>(num));
            ASSERT_EQ(hallado, esperado) << num << " bytes, " << distancia << " apart";
        }
}

TEST(iv_mem_textos, texto_que_no_se_puede_leer_mide_0)
{
    char *pagina = static_cast<char *>(VirtualAlloc(nullptr, 8192, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    memset(pagina, 'x', 4096);
    DWORD antes;
    ASSERT_TRUE(VirtualProtect(pagina + 4096, 4096, PAGE_NOACCESS, &antes));

    EXPECT_EQ(iv_mem_longitud(pagina + 4000), 0u);
    EXPECT_EQ(iv_mem_longitud_u(reinterpret_cast<wchar_t *>(pagina + 4000)), 0u);
    EXPECT_EQ(iv_mem_longitud(reinterpret_cast<char *>(16)), 0u);
    pagina[4095] = '\0';
    EXPECT_EQ(iv_mem_longitud(pagina + 4000), 95u);
    VirtualFree(pagina, 0, MEM_RELEASE);
}

TEST(iv_mem_textos, copia_va_byte_a_byte_hacia_delante)
{
    char bytes[] = "abcdef";
    iv_mem_copia(bytes + 1, bytes, 5);
    EXPECT_STREQ(bytes, "aaaaaa") << "what was written is read again";

    char otros[] = "abcdef";
    iv_mem_copia(otros, otros + 2, 4);
    EXPECT_STREQ(otros, "cdefef");
    iv_mem_copia(otros, "xyz", 0);
    EXPECT_STREQ(otros, "cdefef");
    iv_mem_copia(otros, "x\0z", 3);
    EXPECT_TRUE(bytes_iguales({'x', 0, 'z', 'f', 'e', 'f'}, bytes_de(otros, 6)));
}
