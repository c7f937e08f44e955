// What compiles and what must not: what can be added, copied, moved and converted; and the view.
#include "ivrexa.hpp"

#include <array>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "comun/sistema.h"

// ---- Values

template <typename clase, typename valor, typename = void>
struct admite : std::false_type {
};
template <typename clase, typename valor>
struct admite<clase, valor, std::void_t<decltype(std::declval<clase &>().add("x", std::declval<valor>()))>>
    : std::true_type {
};

template <typename valor>
static bool se_anyade()
{
    EXPECT_TRUE((admite<ivrexa::request, valor>::value) || !(admite<ivrexa::writer, valor>::value));
    return admite<ivrexa::writer, valor>::value;
}

TEST(hpp_tipos, se_anyaden_los_numeros_de_las_medidas_que_hay)
{
    EXPECT_TRUE(se_anyade<uint8_t>());
    EXPECT_TRUE(se_anyade<uint16_t>());
    EXPECT_TRUE(se_anyade<uint32_t>());
    EXPECT_TRUE(se_anyade<unsigned long>());
    EXPECT_TRUE(se_anyade<DWORD>());
    EXPECT_TRUE(se_anyade<double>());
    EXPECT_TRUE(se_anyade<double &>());
    EXPECT_TRUE(se_anyade<const uint32_t &>());
    EXPECT_TRUE(se_anyade<ivrexa_hwnd>());
    EXPECT_TRUE(se_anyade<HWND>());
}

TEST(hpp_tipos, no_se_anyaden_numeros_de_otras_medidas)
{
    EXPECT_FALSE(se_anyade<bool>());
    EXPECT_FALSE(se_anyade<char>());
    EXPECT_FALSE(se_anyade<signed char>());
    EXPECT_FALSE(se_anyade<wchar_t>());
    EXPECT_FALSE(se_anyade<short>());
    EXPECT_FALSE(se_anyade<int>());
    EXPECT_FALSE(se_anyade<long>());
    EXPECT_FALSE(se_anyade<long long>());
    EXPECT_FALSE(se_anyade<unsigned long long>());
    EXPECT_FALSE(se_anyade<float>());
    EXPECT_FALSE(se_anyade<long double>());
    EXPECT_FALSE(se_anyade<std::nullptr_t>());
    EXPECT_FALSE(se_anyade<void *>());
    EXPECT_FALSE(se_anyade<ivrexa::outcome>());
}

TEST(hpp_tipos, se_anyaden_textos_bytes_y_matrices_de_textos)
{
    EXPECT_TRUE(se_anyade<std::string>());
    EXPECT_TRUE(se_anyade<std::string &>());
    EXPECT_TRUE(se_anyade<const std::string &>());
    EXPECT_TRUE(se_anyade<std::string_view>());
    EXPECT_TRUE(se_anyade<const char *>());
    EXPECT_TRUE(se_anyade<const char(&)[4]>());
    EXPECT_TRUE(se_anyade<std::wstring>());
    EXPECT_TRUE(se_anyade<std::wstring &>());
    EXPECT_TRUE(se_anyade<const std::wstring &>());
    EXPECT_TRUE(se_anyade<std::wstring_view>());
    EXPECT_TRUE(se_anyade<const wchar_t *>());
    EXPECT_TRUE(se_anyade<const wchar_t(&)[4]>());
    EXPECT_TRUE(se_anyade<ivrexa::bytes>());
    EXPECT_TRUE(se_anyade<ivrexa::bytes &>());
    EXPECT_TRUE(se_anyade<ivrexa::bytes_view>());
    EXPECT_TRUE(se_anyade<std::vector<std::string>>());
    EXPECT_TRUE(se_anyade<std::vector<std::string> &>());
}

// A buffer that a C function has filled is a text like any other.
TEST(hpp_tipos, se_anyaden_textos_de_un_buffer_que_se_puede_escribir)
{
    EXPECT_TRUE(se_anyade<char *>());
    EXPECT_TRUE(se_anyade<char(&)[64]>());
    EXPECT_TRUE(se_anyade<wchar_t *>());
    EXPECT_TRUE(se_anyade<wchar_t(&)[64]>());
}

TEST(hpp_tipos, no_se_anyaden_matrices_de_textos_anchos)
{
    EXPECT_FALSE(se_anyade<std::vector<std::wstring>>());
    EXPECT_FALSE(se_anyade<std::vector<std::wstring> &>());
    EXPECT_FALSE(se_anyade<std::vector<const wchar_t *>>());
    EXPECT_FALSE(se_anyade<const wchar_t *const *>());
    EXPECT_FALSE(se_anyade<ivrexa::span<const std::wstring>>());
}

// The literal 0 is a null pointer too.
template <typename lector, typename = void>
struct lee_la_posicion_cero : std::false_type {
};
template <typename lector>
struct lee_la_posicion_cero<lector, std::void_t<decltype(std::declval<const lector &>().template get<uint32_t>(0))>>
    : std::true_type {
};

TEST(hpp_tipos, la_posicion_0_se_escribe_como_cualquier_otra)
{
    EXPECT_TRUE(lee_la_posicion_cero<ivrexa::reader>::value);
}

TEST(hpp_tipos, el_tipo_que_se_pide_es_el_que_se_recibe)
{
    using ivrexa::reader;
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<reader>().get<uint8_t>("x")), uint8_t>));
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<reader>().get<std::wstring>(size_t{1})), std::wstring>));
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<reader>().get<ivrexa::bytes_view>("x")), ivrexa::bytes_view>));
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<reader>().find<double>("x")), std::optional<double>>));
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<reader>().position("x")), std::optional<size_t>>));
}

// ---- Owners

template <typename tipo>
constexpr bool se_copia = std::is_copy_constructible_v<tipo> || std::is_copy_assignable_v<tipo>;
template <typename tipo>
constexpr bool se_mueve = std::is_move_constructible_v<tipo>;

TEST(hpp_tipos, lo_que_posee_algo_se_mueve_y_no_se_copia)
{
    EXPECT_FALSE(se_copia<ivrexa::writer>);
    EXPECT_TRUE(se_mueve<ivrexa::writer> && std::is_move_assignable_v<ivrexa::writer>);
    EXPECT_FALSE(se_copia<ivrexa::reader>);
    EXPECT_TRUE(se_mueve<ivrexa::reader> && std::is_move_assignable_v<ivrexa::reader>);
    EXPECT_FALSE(se_copia<ivrexa::answer>);
    EXPECT_TRUE(se_mueve<ivrexa::answer> && std::is_move_assignable_v<ivrexa::answer>);
    EXPECT_FALSE(se_copia<ivrexa::request>);
    EXPECT_TRUE(se_mueve<ivrexa::request>);
    EXPECT_FALSE(se_copia<ivrexa::notification>);
    EXPECT_TRUE(se_mueve<ivrexa::notification>);
}

TEST(hpp_tipos, sesion_y_orden_recibida_ni_se_copian_ni_se_mueven)
{
    EXPECT_FALSE(se_copia<ivrexa::session> || se_mueve<ivrexa::session>);
    EXPECT_FALSE(se_copia<ivrexa::document> || std::is_move_assignable_v<ivrexa::document>);
    EXPECT_FALSE(se_copia<ivrexa::command> || se_mueve<ivrexa::command>);
}

TEST(hpp_tipos, un_documento_solo_se_mueve_a_otro_nuevo)
{
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<ivrexa::document>);
}

TEST(hpp_tipos, un_cliente_se_copia)
{
    EXPECT_TRUE(std::is_copy_constructible_v<ivrexa::client>);
    EXPECT_TRUE(std::is_copy_assignable_v<ivrexa::client>);
}

TEST(hpp_tipos, solo_la_capa_hace_ordenes_y_escritores)
{
    EXPECT_FALSE((std::is_constructible_v<ivrexa::request, uint32_t, std::string>));
    EXPECT_FALSE((std::is_constructible_v<ivrexa::writer, std::string, int16_t>));
    EXPECT_FALSE((std::is_constructible_v<ivrexa::command, const char *, uint32_t, comando *>));
    EXPECT_FALSE(std::is_default_constructible_v<ivrexa::request>);
    EXPECT_FALSE(std::is_default_constructible_v<ivrexa::writer>);
    EXPECT_FALSE(std::is_default_constructible_v<ivrexa::client>);
    EXPECT_TRUE(std::is_default_constructible_v<ivrexa::reader>);
}

TEST(hpp_tipos, una_ruta_sola_no_es_una_sesion)
{
    EXPECT_FALSE((std::is_convertible_v<std::string, ivrexa::session>));
    EXPECT_TRUE((std::is_constructible_v<ivrexa::session, const char *>));
    EXPECT_TRUE((std::is_constructible_v<ivrexa::session, std::string, HWND>));
}

TEST(hpp_tipos, una_respuesta_es_cierta_pero_no_un_numero)
{
    EXPECT_TRUE((std::is_constructible_v<bool, const ivrexa::answer &>));
    EXPECT_FALSE((std::is_convertible_v<ivrexa::answer, bool>));
    ivrexa::answer a;
    EXPECT_EQ(a.what, ivrexa::outcome::not_sent);
    EXPECT_EQ(a.code, 0u);
    EXPECT_FALSE(a);
    a.what = ivrexa::outcome::ok;
    EXPECT_TRUE(static_cast<bool>(a));
    for (ivrexa::outcome otro : {ivrexa::outcome::cancelled, ivrexa::outcome::server_error, ivrexa::outcome::no_answer,
                                 ivrexa::outcome::other, ivrexa::outcome::no_such_service, ivrexa::outcome::server_gone,
                                 ivrexa::outcome::not_a_client, ivrexa::outcome::late, ivrexa::outcome::not_sent}) {
        a.what = otro;
        EXPECT_FALSE(static_cast<bool>(a));
    }
}

TEST(hpp_tipos, cada_desenlace_tiene_su_nombre)
{
    using ivrexa::outcome;
    static const std::pair<outcome, const char *> NOMBRES[] = {
        {outcome::ok, "ok"},
        {outcome::cancelled, "cancelled"},
        {outcome::server_error, "server_error"},
        {outcome::no_answer, "no_answer"},
        {outcome::other, "other"},
        {outcome::no_such_service, "no_such_service"},
        {outcome::server_gone, "server_gone"},
        {outcome::not_a_client, "not_a_client"},
        {outcome::late, "late"},
        {outcome::not_sent, "not_sent"},
    };
    for (const auto &[que, nombre] : NOMBRES)
        EXPECT_STREQ(ivrexa::to_string(que), nombre);
}

TEST(hpp_tipos, cada_fallo_tiene_su_nombre)
{
    using ivrexa::fault;
    static const std::pair<fault, const char *> NOMBRES[] = {
        {fault::service_name, "service_name"}, {fault::path, "path"},
        {fault::value_name, "value_name"},     {fault::text, "text"},
        {fault::content, "content"},           {fault::no_value, "no_value"},
        {fault::wrong_type, "wrong_type"},     {fault::no_block, "no_block"},
        {fault::too_many, "too_many"},         {fault::usage, "usage"},
    };
    for (const auto &[por_que, nombre] : NOMBRES)
        EXPECT_STREQ(ivrexa::to_string(por_que), nombre);
}

TEST(hpp_tipos, los_resultados_son_los_numeros_de_la_interfaz_c)
{
    EXPECT_EQ(static_cast<int32_t>(ivrexa::result::none), 0);
    EXPECT_EQ(static_cast<int32_t>(ivrexa::result::ok), 1);
    EXPECT_EQ(static_cast<int32_t>(ivrexa::result::cancelled), 2);
    EXPECT_EQ(static_cast<int32_t>(ivrexa::result::error), 3);
    EXPECT_FALSE((std::is_convertible_v<ivrexa::result, int>));
    EXPECT_FALSE((std::is_convertible_v<ivrexa::outcome, int>));
}

TEST(hpp_tipos, los_limites_son_los_de_la_biblioteca)
{
    EXPECT_EQ(ivrexa::max_service_name, 63u);
    EXPECT_EQ(ivrexa::max_value_name, 254u);
    EXPECT_EQ(ivrexa::max_path, 255u);
    EXPECT_EQ(ivrexa::max_short_text, 63u);
    EXPECT_EQ(ivrexa::max_long_text, 255u);
    EXPECT_EQ(ivrexa::max_services, 16u);
    EXPECT_EQ(ivrexa::max_documents, 32u);
}

TEST(hpp_tipos, un_fallo_es_un_runtime_error_que_dice_por_que)
{
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, ivrexa::error>));
    ivrexa::error e(ivrexa::fault::path, "the reason");
    EXPECT_EQ(e.why(), ivrexa::fault::path);
    EXPECT_STREQ(e.what(), "the reason");
}

// ---- The view

TEST(hpp_tipos, una_vista_mira_lo_de_otro_sin_copiarlo)
{
    int num[] = {5, 6, 7};
    ivrexa::span<int> vista(num, 3);
    EXPECT_EQ(vista.data(), num);
    EXPECT_EQ(vista.size(), 3u);
    EXPECT_FALSE(vista.empty());
    EXPECT_EQ(&vista[2], num + 2);
    EXPECT_EQ(vista.begin(), num);
    EXPECT_EQ(vista.end(), num + 3);
    int suma = 0;
    for (int n : vista)
        suma += n;
    EXPECT_EQ(suma, 18);
    vista[0] = 1;
    EXPECT_EQ(num[0], 1);

    ivrexa::span<int> ninguna;
    EXPECT_EQ(ninguna.data(), nullptr);
    EXPECT_EQ(ninguna.size(), 0u);
    EXPECT_TRUE(ninguna.empty());
    EXPECT_EQ(ninguna.begin(), ninguna.end());
}

TEST(hpp_tipos, una_vista_sale_de_cualquier_contenedor_seguido)
{
    std::vector<uint8_t> vector = {1, 2, 3};
    std::array<uint8_t, 2> matriz = {4, 5};
    ivrexa::bytes_view de_vector = vector, de_matriz = matriz;
    EXPECT_EQ(de_vector.data(), vector.data());
    EXPECT_EQ(de_vector.size(), 3u);
    EXPECT_EQ(de_matriz.data(), matriz.data());
    EXPECT_EQ(de_matriz.size(), 2u);
    EXPECT_FALSE((std::is_constructible_v<ivrexa::bytes_view, std::vector<uint16_t>>));
    EXPECT_FALSE((std::is_constructible_v<ivrexa::span<uint8_t>, const std::vector<uint8_t> &>));
    EXPECT_FALSE((std::is_constructible_v<ivrexa::bytes_view, int>));
}
