// How the bench takes times: in which order, what counts, and what it comes to.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "comun/medida.h"

using namespace banco;

namespace {

plan plan_de(int calentamiento, int rondas, double segundos_por_muestra = 0)
{
    plan plan;
    plan.calentamiento = calentamiento;
    plan.rondas = rondas;
    plan.segundos_por_muestra = segundos_por_muestra;
    return plan;
}

// A task that takes so many seconds in each of its first calls, and `despues` in every other.
tarea irregular(std::vector<double> primeras, double despues, int *llamadas)
{
    tarea tarea;
    tarea.cronometra = [=] {
        size_t i = static_cast<size_t>((*llamadas)++);
        return i < primeras.size() ? primeras[i] : despues;
    };
    return tarea;
}

// How many calls make a sample of that task: those of one round more.
int llamadas_por_muestra(const std::vector<double> &primeras, double despues, double segundos_por_muestra)
{
    int con_una_ronda = 0, con_dos = 0;
    mide({irregular(primeras, despues, &con_una_ronda)}, plan_de(0, 1, segundos_por_muestra));
    mide({irregular(primeras, despues, &con_dos)}, plan_de(0, 2, segundos_por_muestra));
    return con_dos - con_una_ronda;
}

// A task that writes its name down, and says that it took `segundos`.
tarea apunta(const std::string &nombre, std::string *apuntes, double segundos = 1)
{
    tarea tarea;
    tarea.nombre = nombre;
    tarea.una_por_muestra = true;
    tarea.cronometra = [=] {
        *apuntes += nombre;
        return segundos;
    };
    return tarea;
}

} // namespace

TEST(medida, mediana_de_impares_es_la_de_en_medio)
{
    resumen resumen = resume({5, 1, 3});
    EXPECT_EQ(resumen.mediana, 3);
    EXPECT_EQ(resumen.minimo, 1);
    EXPECT_EQ(resumen.maximo, 5);
}

TEST(medida, mediana_de_pares_es_la_media_de_las_dos_de_en_medio)
{
    resumen resumen = resume({8, 1, 2, 4});
    EXPECT_EQ(resumen.mediana, 3);
    EXPECT_EQ(resumen.minimo, 1);
    EXPECT_EQ(resumen.maximo, 8);
}

TEST(medida, una_sola_muestra_es_mediana_minimo_y_maximo)
{
    resumen resumen = resume({7});
    EXPECT_EQ(resumen.mediana, 7);
    EXPECT_EQ(resumen.minimo, 7);
    EXPECT_EQ(resumen.maximo, 7);
}

TEST(medida, sin_muestras_no_hay_resumen)
{
    EXPECT_THROW(resume({}), std::logic_error);
}

// The ratio of the medians would be 2/1: it is the ratios of each round that have a median.
TEST(medida, razones_se_toman_ronda_por_ronda)
{
    resumen resumen = razon({"a", {1, 2, 30}}, {"b", {2, 1, 1}});
    EXPECT_EQ(resumen.minimo, 0.5);
    EXPECT_EQ(resumen.mediana, 2);
    EXPECT_EQ(resumen.maximo, 30);

    resumen = razon({"a", {1, 2, 3}}, {"b", {1, 4, 1}});
    EXPECT_EQ(resumen.mediana, 1);
}

TEST(medida, tareas_van_por_turno_ronda_tras_ronda)
{
    std::string apuntes;
    mide({apunta("A", &apuntes), apunta("B", &apuntes), apunta("C", &apuntes)}, plan_de(0, 3));
    EXPECT_EQ(apuntes, "ABCABCABC");
}

TEST(medida, medidas_llevan_el_nombre_y_el_orden_de_las_tareas)
{
    std::string apuntes;
    std::vector<medida> medidas = mide({apunta("A", &apuntes, 3), apunta("B", &apuntes, 5)}, plan_de(0, 2));
    ASSERT_EQ(medidas.size(), 2u);
    EXPECT_EQ(medidas[0].nombre, "A");
    EXPECT_EQ(medidas[0].segundos, (std::vector<double>{3, 3}));
    EXPECT_EQ(medidas[1].nombre, "B");
    EXPECT_EQ(medidas[1].segundos, (std::vector<double>{5, 5}));
}

TEST(medida, calentamiento_se_hace_y_no_cuenta)
{
    int llamadas = 0;
    tarea tarea;
    tarea.una_por_muestra = true;
    tarea.cronometra = [&] { return static_cast<double>(++llamadas); };
    std::vector<medida> medidas = mide({tarea}, plan_de(2, 3));
    EXPECT_EQ(medidas[0].segundos, (std::vector<double>{3, 4, 5}));
}

TEST(medida, prepara_va_antes_de_cada_muestra)
{
    std::string apuntes;
    tarea tarea = apunta("a", &apuntes);
    tarea.prepara = [&] { apuntes += "p"; };
    mide({tarea}, plan_de(1, 2));
    EXPECT_EQ(apuntes, "papapa");
}

// 16 calls of 1/1024 s make 1/64 s. What `prepara` does stands before them all.
TEST(medida, muestra_es_la_media_de_las_llamadas_que_la_llenan)
{
    std::string apuntes;
    tarea tarea = apunta("a", &apuntes, 1.0 / 1024);
    tarea.una_por_muestra = false;
    tarea.prepara = [&] { apuntes += "p"; };
    std::vector<medida> medidas = mide({tarea}, plan_de(0, 2, 1.0 / 64));
    EXPECT_EQ(medidas[0].segundos, (std::vector<double>{1.0 / 1024, 1.0 / 1024}));
    std::string muestra = "p" + std::string(16, 'a');
    ASSERT_GE(apuntes.size(), 2 * muestra.size());
    EXPECT_EQ(apuntes.substr(apuntes.size() - 2 * muestra.size()), muestra + muestra);
}

TEST(medida, llamadas_se_buscan_antes_de_la_primera_ronda)
{
    std::string apuntes;
    tarea a = apunta("A", &apuntes, 1.0 / 2), b = apunta("B", &apuntes, 1.0 / 4);
    a.una_por_muestra = b.una_por_muestra = false;
    mide({a, b}, plan_de(0, 2, 1.0 / 2));
    EXPECT_EQ(apuntes.substr(apuntes.size() - 6), "ABBABB");
}

TEST(medida, primera_llamada_lenta_no_decide_cuantas_hacen_una_muestra)
{
    EXPECT_EQ(llamadas_por_muestra({100}, 1.0 / 64, 1), 64);
}

// The second batch, of the one call that seemed to be enough, shows that it is not.
TEST(medida, tanda_interrumpida_no_decide_cuantas_hacen_una_muestra)
{
    EXPECT_EQ(llamadas_por_muestra({1.0 / 64, 100}, 1.0 / 64, 1), 64);
}

// From one call it goes on to more, the first of which is slow.
TEST(medida, tanda_interrumpida_mas_tarde_tampoco)
{
    EXPECT_EQ(llamadas_por_muestra({1.0 / 64, 1.0 / 64, 100}, 1.0 / 64, 1), 64);
}

TEST(medida, segunda_tanda_confirma_con_la_mitad_del_tiempo)
{
    EXPECT_EQ(llamadas_por_muestra({1, 1}, 0.5, 1), 1);
    EXPECT_EQ(llamadas_por_muestra({1, 1}, 0.25, 1), 4);
}

TEST(medida, una_por_muestra_se_llama_una_vez_aunque_sea_breve)
{
    std::string apuntes;
    mide({apunta("A", &apuntes, 1e-9)}, plan_de(0, 3, 1));
    EXPECT_EQ(apuntes, "AAA");
}

TEST(medida, muestra_es_el_tiempo_de_una_de_las_cosas_de_la_llamada)
{
    std::string apuntes;
    tarea tarea = apunta("a", &apuntes, 6);
    tarea.por_llamada = 3;
    EXPECT_EQ(mide({tarea}, plan_de(0, 1))[0].segundos, (std::vector<double>{2}));
}

TEST(medida, sin_cronometro_propio_se_mide_la_llamada)
{
    int llamadas = 0;
    tarea tarea;
    tarea.una_por_muestra = true;
    tarea.llama = [&] {
        llamadas++;
        for (double hasta = ahora() + 0.005; ahora() < hasta;) {
        }
    };
    medida medida = mide({tarea}, plan_de(1, 2))[0];
    EXPECT_EQ(llamadas, 3);
    EXPECT_GE(medida.tiempo().minimo, 0.005);
}
