// The names by which programs meet, to the character.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "comun/informes_modulo.h"
#include "comun/lineas.h"
#include "comun/monton.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "iv_nombre.h"

namespace {

// The text, freed.
std::string toma(char *nombre)
{
    std::string texto = nombre;
    iv_mem_libera(&nombre);
    return texto;
}

struct nombres_de_servicio {
    const char *servicio;
    const char *mutex, *interno, *bloque, *comdat17, *mensaje;
};

// A service's name enters as it is: no folding, no escaping, no check.
const nombres_de_servicio SERVICIOS[] = {
    {"Calc", "Mutex_Ivrexa_Calc", "Mutex_Ivrexa_CalcInterno", "Ivrexa_MCB_Serv_Calc",
     "Ivrexa_MCB_Serv_Calc_Com__comdat17", "Ivrexa_MSG_Serv_Calc"},
    {"calc", "Mutex_Ivrexa_calc", "Mutex_Ivrexa_calcInterno", "Ivrexa_MCB_Serv_calc",
     "Ivrexa_MCB_Serv_calc_Com__comdat17", "Ivrexa_MSG_Serv_calc"},
    {"", "Mutex_Ivrexa_", "Mutex_Ivrexa_Interno", "Ivrexa_MCB_Serv_", "Ivrexa_MCB_Serv__Com__comdat17",
     "Ivrexa_MSG_Serv_"},
    {" a%s_\\\xf1\t", "Mutex_Ivrexa_ a%s_\\\xf1\t", "Mutex_Ivrexa_ a%s_\\\xf1\tInterno",
     "Ivrexa_MCB_Serv_ a%s_\\\xf1\t", "Ivrexa_MCB_Serv_ a%s_\\\xf1\t_Com__comdat17", "Ivrexa_MSG_Serv_ a%s_\\\xf1\t"},
};

std::vector<std::string> nombres_de(const std::string &servicio)
{
    const char *s = servicio.c_str();
    return {iv_nombre_MCB(),
            iv_nombre_mutex_MCB(),
            iv_nombre_monitor_MSG(),
            toma(iv_nombre_mutex_servicio(s, 0)),
            toma(iv_nombre_mutex_servicio(s, 12)),
            toma(iv_nombre_mutex_servicio_interno(s)),
            toma(iv_nombre_MCServ(s)),
            toma(iv_nombre_MCCom(s, 100)),
            toma(iv_nombre_MSG_servicio(s))};
}

} // namespace

TEST(iv_nombre, nombres_fijos_son_constantes)
{
    iv_mem_cierra();
    EXPECT_STREQ(iv_nombre_MCB(), "Ivrexa_MCB");
    EXPECT_STREQ(iv_nombre_mutex_MCB(), "Ivrexa_Mutex_MCB");
    EXPECT_STREQ(iv_nombre_monitor_MSG(), "Ivrexa_Monitor_MSG");

    EXPECT_EQ(iv_nombre_MCB(), iv_nombre_MCB());
    EXPECT_EQ(iv_nombre_mutex_MCB(), iv_nombre_mutex_MCB());
    EXPECT_EQ(iv_nombre_monitor_MSG(), iv_nombre_monitor_MSG());
    EXPECT_EQ(s_LocalHeap, nullptr) << "the fixed names need no memory";
}

TEST(iv_nombre, nombres_de_un_servicio_se_componen_con_su_nombre_tal_cual)
{
    for (const nombres_de_servicio &n : SERVICIOS) {
        SCOPED_TRACE(n.servicio);
        EXPECT_EQ(toma(iv_nombre_mutex_servicio(n.servicio, 0)), n.mutex);
        EXPECT_EQ(toma(iv_nombre_mutex_servicio_interno(n.servicio)), n.interno);
        EXPECT_EQ(toma(iv_nombre_MCServ(n.servicio)), n.bloque);
        EXPECT_EQ(toma(iv_nombre_MCCom(n.servicio, 17)), n.comdat17);
        EXPECT_EQ(toma(iv_nombre_MSG_servicio(n.servicio)), n.mensaje);
    }
}

TEST(iv_nombre, instancia_0_no_anyade_nada_y_otra_anyade_sus_cifras)
{
    EXPECT_EQ(toma(iv_nombre_mutex_servicio("A", 0)), "Mutex_Ivrexa_A");
    EXPECT_EQ(toma(iv_nombre_mutex_servicio("A", 3)), "Mutex_Ivrexa_A_Inst3");
    EXPECT_EQ(toma(iv_nombre_mutex_servicio("A", 10)), "Mutex_Ivrexa_A_Inst10");
    EXPECT_EQ(toma(iv_nombre_mutex_servicio("A", 4294967295u)), "Mutex_Ivrexa_A_Inst4294967295");
    EXPECT_EQ(toma(iv_nombre_mutex_servicio("", 1)), "Mutex_Ivrexa__Inst1");
}

TEST(iv_nombre, bloque_0_de_datos_no_lleva_cifra)
{
    EXPECT_EQ(toma(iv_nombre_MCCom("A", 1)), "Ivrexa_MCB_Serv_A_Com__comdat1");
    EXPECT_EQ(toma(iv_nombre_MCCom("Calc", 0)), "Ivrexa_MCB_Serv_Calc_Com__comdat");
    EXPECT_EQ(toma(iv_nombre_MCCom("Calc", 100)), "Ivrexa_MCB_Serv_Calc_Com__comdat100");
    EXPECT_EQ(toma(iv_nombre_MCCom("Calc", 4294967295u)), "Ivrexa_MCB_Serv_Calc_Com__comdat4294967295");
}

TEST(iv_nombre, pasos_de_texto_y_numero_anyaden_siempre_su_texto)
{
    char *nombre = iv_mem_duplica_cadena("x");

    iv_nombre_anyade_instancia(&nombre, 0);
    EXPECT_STREQ(nombre, "x_Inst");
    iv_nombre_anyade_instancia(&nombre, 7);
    EXPECT_STREQ(nombre, "x_Inst_Inst7");
    iv_nombre_anyade_comdat(&nombre, 0);
    EXPECT_STREQ(nombre, "x_Inst_Inst7_comdat");
    iv_nombre_anyade_comdat(&nombre, 4294967295u);
    EXPECT_STREQ(nombre, "x_Inst_Inst7_comdat_comdat4294967295");
    iv_mem_libera(&nombre);
}

TEST(iv_nombre, servicio_nulo_es_el_nombre_vacio)
{
    EXPECT_EQ(toma(iv_nombre_mutex_servicio(nullptr, 0)), "Mutex_Ivrexa_");
    EXPECT_EQ(toma(iv_nombre_mutex_servicio(nullptr, 2)), "Mutex_Ivrexa__Inst2");
    EXPECT_EQ(toma(iv_nombre_mutex_servicio_interno(nullptr)), "Mutex_Ivrexa_Interno");
    EXPECT_EQ(toma(iv_nombre_MCServ(nullptr)), "Ivrexa_MCB_Serv_");
    EXPECT_EQ(toma(iv_nombre_MCCom(nullptr, 7)), "Ivrexa_MCB_Serv__Com__comdat7");
    EXPECT_EQ(toma(iv_nombre_MSG_servicio(nullptr)), "Ivrexa_MSG_Serv_");
    EXPECT_SIN_INFORMES();
}

// Longer than any object name that the system takes: composing checks no length.
TEST(iv_nombre, nombre_largo_no_se_corta)
{
    std::string servicio(1000, 'L');

    EXPECT_EQ(toma(iv_nombre_mutex_servicio(servicio.c_str(), 5)), "Mutex_Ivrexa_" + servicio + "_Inst5");
    EXPECT_EQ(toma(iv_nombre_mutex_servicio_interno(servicio.c_str())), "Mutex_Ivrexa_" + servicio + "Interno");
    EXPECT_EQ(toma(iv_nombre_MCCom(servicio.c_str(), 5)), "Ivrexa_MCB_Serv_" + servicio + "_Com__comdat5");
    EXPECT_EQ(toma(iv_nombre_MSG_servicio(servicio.c_str())), "Ivrexa_MSG_Serv_" + servicio);
}

// Each call builds a text of its own on the private heap and leaves nothing else there.
TEST(iv_nombre, cada_llamada_da_un_texto_nuevo_y_nada_mas)
{
    nombres_de("Calc");
    ASSERT_NE(s_LocalHeap, nullptr);
    EXPECT_EQ(bloques_vivos(), 0u);

    char *textos[] = {iv_nombre_mutex_servicio("Calc", 0),
                      iv_nombre_mutex_servicio("Calc", 3),
                      iv_nombre_mutex_servicio_interno("Calc"),
                      iv_nombre_MCServ("Calc"),
                      iv_nombre_MCCom("Calc", 17),
                      iv_nombre_MSG_servicio("Calc")};
    char *otro = iv_nombre_MCServ("Calc");

    EXPECT_EQ(bloques_vivos(), 7u);
    EXPECT_NE(textos[3], otro);
    iv_mem_libera(&otro);
    for (char *&texto : textos) {
        EXPECT_EQ(tam_de(texto), strlen(texto) + 1);
        iv_mem_libera(&texto);
    }
    EXPECT_EQ(bloques_vivos(), 0u);
}

PAPEL(nombrador)
{
    yo.di("LISTO");
    yo.di("NOMBRES " + junta(nombres_de(args.at(0))));
    return 0;
}

TEST(iv_nombre, dos_procesos_componen_los_mismos_textos)
{
    const std::string servicio = "Calc de \xe1\\prueba";
    papel otro = arranca_papel("nombrador", {servicio});

    EXPECT_EQ(campos(otro.espera_linea("NOMBRES ", 10000), "NOMBRES "), nombres_de(servicio));
}
