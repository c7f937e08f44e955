// monitor_bloques.cpp - what the blocks of events hold, read when they come: remembered when they are gone, for as long
// as the number is sure to be that block's, and within a bound.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/util.h"

#include "ivrexa-monitor/lector_bloques.h"

using namespace herramientas;
using monitor::lector_bloques;

static std::string nombre_de(const std::string &servicio, uint32_t id)
{
    return "Ivrexa_MCB_Serv_" + servicio + "_Com__comdat" + std::to_string(id);
}

// A block of command data with `num` buffers of that size, called "b".
static bloque_crudo pon_bloque(const std::string &servicio, uint32_t id, uint32_t tam, uint32_t num = 1)
{
    uint32_t cada_uno = 1 + 1 + 2 + 4 + tam; // type, size of the name, name, size, bytes
    bloque_crudo b(nombre_de(servicio, id).c_str(), 4 + num * cada_uno);
    b.pon_u32(0, num);
    for (uint32_t i = 0; i < num; i++) {
        size_t despl = 4 + size_t(i) * cada_uno;
        b.pon_bytes(despl, {5, 2, 'b', 0});
        b.pon_u32(despl + 4, tam);
    }
    return b;
}

class monitor_bloques : public ::testing::Test {
protected:
    suceso con_bloque(uint32_t id, const std::string &servicio)
    {
        suceso s = de(clase::entrada, servicio);
        s.id_bloque = id;
        return s;
    }
    suceso de(clase que, const std::string &servicio)
    {
        suceso s;
        s.numero = ++m_numero;
        s.que = que;
        s.servicio = s.servicio_ansi = servicio;
        return s;
    }
    // Reads a block that lives only meanwhile.
    void lee_y_quita(const std::string &servicio, uint32_t id, uint32_t tam = 8, uint32_t num = 1)
    {
        bloque_crudo b = pon_bloque(servicio, id, tam, num);
        std::optional<contenido> c = m_lector.lee(con_bloque(id, servicio));
        ASSERT_TRUE(c);
        ASSERT_EQ(c->fallo, "");
        ASSERT_EQ(c->valores.size(), num);
        EXPECT_EQ(c->valores[0].tam, tam);
    }
    bool se_recuerda(const std::string &servicio, uint32_t id)
    {
        return m_lector.lee(con_bloque(id, servicio)).has_value();
    }

    const std::string m_uno = nombre_unico("Uno"), m_dos = nombre_unico("Dos");
    lector_bloques m_lector;
    uint64_t m_numero = 0;
};

TEST_F(monitor_bloques, lo_que_tuvo_un_bloque_que_ya_no_esta_se_recuerda_hasta_que_su_servicio_empieza_de_nuevo)
{
    lee_y_quita(m_uno, 100);
    lee_y_quita(m_dos, 100, 16);
    EXPECT_EQ(m_lector.lee(con_bloque(100, m_uno))->valores[0].tam, 8u);
    EXPECT_EQ(m_lector.lee(con_bloque(100, m_dos))->valores[0].tam, 16u);
    EXPECT_FALSE(se_recuerda(m_uno, 101));
    m_lector.lee(de(clase::servicio, m_uno));
    EXPECT_FALSE(se_recuerda(m_uno, 100)) << "block 100 is another one from now on";
    EXPECT_TRUE(se_recuerda(m_dos, 100));
}

TEST_F(monitor_bloques, un_hueco_hace_olvidar_todos)
{
    lee_y_quita(m_uno, 100);
    lee_y_quita(m_dos, 100);
    m_lector.lee(de(clase::hueco, ""));
    EXPECT_FALSE(se_recuerda(m_uno, 100)) << "a service that was offered anew may be among what is lost";
    EXPECT_FALSE(se_recuerda(m_dos, 100));
    lee_y_quita(m_uno, 100);
    EXPECT_TRUE(se_recuerda(m_uno, 100));
}

TEST_F(monitor_bloques, se_recuerdan_los_ultimos_64)
{
    for (uint32_t id = 100; id < 165; id++)
        lee_y_quita(m_uno, id);
    EXPECT_FALSE(se_recuerda(m_uno, 100));
    for (uint32_t id = 101; id < 165; id++)
        EXPECT_TRUE(se_recuerda(m_uno, id)) << id;
}

TEST_F(monitor_bloques, se_recuerdan_hasta_16_mib_y_uno_mayor_no_echa_a_los_demas)
{
    const uint32_t VALORES = 112; // of 64 KiB: 7 MiB
    lee_y_quita(m_uno, 100, 65536, VALORES);
    lee_y_quita(m_uno, 101, 65536, VALORES);
    EXPECT_TRUE(se_recuerda(m_uno, 100));
    EXPECT_TRUE(se_recuerda(m_uno, 101));
    lee_y_quita(m_uno, 102, 65536, VALORES);
    EXPECT_FALSE(se_recuerda(m_uno, 100)) << "the oldest goes";
    EXPECT_TRUE(se_recuerda(m_uno, 101));
    lee_y_quita(m_uno, 103, 65536, 300);
    EXPECT_FALSE(se_recuerda(m_uno, 103)) << "larger than the whole room";
    EXPECT_TRUE(se_recuerda(m_uno, 101));
    EXPECT_TRUE(se_recuerda(m_uno, 102));
    lee_y_quita(m_uno, 102, 65536, 300);
    EXPECT_FALSE(se_recuerda(m_uno, 102)) << "what it held before is not what it holds";
}
