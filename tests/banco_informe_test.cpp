// What the bench prints and writes.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "comun/informe.h"

using namespace banco;

namespace {

// What the table of a quick run looks like, without the line that titles it.
std::string tabla_de(const std::vector<std::vector<std::string>> &filas)
{
    informe informe(true);
    testing::internal::CaptureStdout();
    informe.tabla("Title", filas);
    std::string texto = testing::internal::GetCapturedStdout();
    EXPECT_EQ(texto.rfind("\nTitle [" + sistema() + ", quick]\n", 0), 0u) << texto;
    return texto.substr(texto.find(']') + 2);
}

// What it writes to a file.
nlohmann::json escrito(informe *informe)
{
    std::string fichero = "banco_informe_" + std::to_string(GetCurrentProcessId()) + ".json";
    informe->escribe(fichero);
    nlohmann::json json;
    std::ifstream(fichero) >> json;
    std::remove(fichero.c_str());
    return json;
}

} // namespace

TEST(informe, tabla_de_una_pasada_entera_dice_solo_el_sistema)
{
    informe informe(false);
    testing::internal::CaptureStdout();
    informe.tabla("Title", {{"a"}});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nTitle [" + sistema() + "]\na\n-\n");
}

TEST(informe, sistema_dice_si_es_wine_o_windows)
{
    std::string nombre = sistema();
    EXPECT_TRUE(nombre.rfind("Wine ", 0) == 0 || nombre.rfind("Windows ", 0) == 0) << nombre;
}

TEST(informe, duraciones_en_la_unidad_que_les_va)
{
    EXPECT_EQ(duracion(2), "2.00 s");
    EXPECT_EQ(duracion(0.0345), "34.5 ms");
    EXPECT_EQ(duracion(12.3e-6), "12.3 us");
    EXPECT_EQ(duracion(1.234e-6), "1.23 us");
    EXPECT_EQ(duracion(123e-9), "123.0 ns");
    EXPECT_EQ(duracion(0), "0.00 ns");
}

TEST(informe, tres_cifras_son_tres)
{
    EXPECT_EQ(tres_cifras(1.04), "1.04");
    EXPECT_EQ(tres_cifras(0.5), "0.50");
    EXPECT_EQ(tres_cifras(12.34), "12.3");
    EXPECT_EQ(tres_cifras(175.4), "175");
}

TEST(informe, tres_cifras_tambien_donde_el_redondeo_anyade_una)
{
    EXPECT_EQ(tres_cifras(9.996), "10.0");
    EXPECT_EQ(tres_cifras(99.96), "100");
}

TEST(informe, extremos_van_entre_parentesis)
{
    EXPECT_EQ(con_extremos({1.04, 1.01, 1.09}), "1.04 (1.01-1.09)");
}

TEST(informe, bytes_en_la_mayor_unidad_que_los_divide)
{
    EXPECT_EQ(bytes(0), "0 B");
    EXPECT_EQ(bytes(1000), "1000 B");
    EXPECT_EQ(bytes(4096), "4 KiB");
    EXPECT_EQ(bytes(256 * 1024), "256 KiB");
    EXPECT_EQ(bytes(1536 * 1024), "1536 KiB");
    EXPECT_EQ(bytes(64.0 * 1024 * 1024), "64 MiB");
}

// The first column to the left; numbers, what stands for one, and the heads of their columns to the right.
TEST(informe, columnas_alineadas)
{
    EXPECT_EQ(tabla_de({{"row", "median", "note"}, {"a long name", "1.5", "met"}, {"b", "-", "NOT MET"}}),
              "row          median     note\n"
              "----------------------------\n"
              "a long name     1.5  met\n"
              "b                 -  NOT MET\n");
}

TEST(informe, filas_cortas_dejan_hueco)
{
    EXPECT_EQ(tabla_de({{"a", "b", "c"}, {"1", "2"}, {"x", "10", "20"}}), "a   b   c\n"
                                                                          "---------\n"
                                                                          "1   2\n"
                                                                          "x  10  20\n");
}

TEST(informe, meta_cumplida_hasta_el_limite_inclusive)
{
    informe informe(false);
    informe.anota_meta("at the limit", 1.05, 1.05);
    informe.anota_meta("beyond", 1.06, 1.05);
    testing::internal::CaptureStdout();
    informe.tabla_de_metas();
    std::string texto = testing::internal::GetCapturedStdout();
    EXPECT_NE(texto.find("at the limit   1.05     1.05  met\n"), std::string::npos) << texto;
    EXPECT_NE(texto.find("beyond         1.06     1.05  NOT MET\n"), std::string::npos) << texto;
}

TEST(informe, json_lleva_las_muestras_y_su_resumen)
{
    nlohmann::json json = a_json(medida{"a", {3, 1, 2}});
    EXPECT_EQ(json, (nlohmann::json{
                        {"name", "a"}, {"samples", {3.0, 1.0, 2.0}}, {"median", 2.0}, {"min", 1.0}, {"max", 3.0}}));
}

TEST(informe, json_dice_cuando_donde_y_con_que_se_midio)
{
    informe informe(true);
    informe.anota_procesador(3);
    nlohmann::json json = escrito(&informe);
    EXPECT_TRUE(std::regex_match(json.at("date").get<std::string>(),
                                 std::regex("20\\d\\d-[01]\\d-[0-3]\\dT[0-2]\\d:[0-5]\\d:[0-6]\\dZ")))
        << json.at("date");
    EXPECT_TRUE(std::regex_match(json.at("version").get<std::string>(), std::regex("\\d+\\.\\d+\\.\\d+")))
        << json.at("version");
    EXPECT_EQ(json.at("system"), sistema());
    EXPECT_EQ(json.at("cpu"), 3);
    EXPECT_EQ(json.at("quick"), true);
}

TEST(informe, fichero_que_no_se_puede_escribir_se_dice)
{
    EXPECT_THROW(informe(false).escribe("no such folder/informe.json"), std::runtime_error);
}
