// The mailbox, from the server's side.
#include "iv_mcserv_apoyo.h"

namespace {

class iv_mcserv_buzon : public iv_mcserv_canal {
protected:
    iv_mcserv_buzon() : interno(nombre_mutex(servicio) + "Interno") {}

    void SetUp() override { mutex_interno = iv_mutex_crea((nombre_mutex(servicio) + "Interno").c_str(), FALSO); }

    void TearDown() override
    {
        canal.pon_u16(C_TERMINADO, 1); // whatever still waits gives up
        interno.suelta();
        aviso.reset();
        EXPECT_EQ(mutex_interno->nivel_bloqueo, 0);
        iv_mutex_destruye(&mutex_interno);
        iv_mcserv_canal::TearDown();
    }

    void pon_buzon(uint32_t estado, uint32_t dato1, uint32_t dato2, uint32_t dato3)
    {
        const uint32_t valores[] = {estado, dato1, dato2, dato3};
        for (size_t i = 0; i < 4; i++)
            canal.pon_u32(C_BUZON + i * 4, valores[i]);
    }

    std::vector<uint32_t> buzon() { return {canal.u32(2362), canal.u32(2366), canal.u32(2370), canal.u32(2374)}; }

    void notifica_en_otro_hilo()
    {
        aviso = std::make_unique<tarea>([this] { iv_mcserv_notifica(mcserv, mutex_interno, 201, 202, 203); });
    }

    bool acabada(uint32_t ms) { return aviso->acabada(ms); }

    cerrojo_con_nombre interno;
    iv_mutex *mutex_interno = nullptr;
    std::unique_ptr<tarea> aviso;
};

using cuatro = std::vector<uint32_t>;

} // namespace

TEST_F(iv_mcserv_buzon, una_notificacion_pasa_por_0_1_2_3_y_0)
{
    llena(0xEE);
    canal.pon_u16(C_TERMINADO, 0);
    std::vector<uint8_t> lo_demas = canal.bytes(0, 2362);
    pon_buzon(1, 11, 12, 13); // an earlier one is still there
    notifica_en_otro_hilo();

    EXPECT_FALSE(acabada(250)); // two of its polls
    ASSERT_TRUE(interno.toma());
    EXPECT_EQ(buzon(), (cuatro{1, 11, 12, 13}));
    EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 21u);
    pon_buzon(0, 0, 0, 0);
    interno.suelta();

    ASSERT_TRUE(
        espera_hasta([&] { return interno.toma() && (canal.u32(2362) == 1 || (interno.suelta(), false)); }, 5000));
    EXPECT_EQ(buzon(), (cuatro{1, 201, 202, 203}));
    canal.pon_u32(2362, 2); // the client's thread takes it
    interno.suelta();
    EXPECT_FALSE(acabada(250));
    EXPECT_EQ(buzon(), (cuatro{2, 201, 202, 203}));
    EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 22u);

    canal.pon_u32(2362, 3); // its receipt, without the mutex
    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{0, 0, 0, 0}));
    EXPECT_TRUE(bytes_iguales(lo_demas, canal.bytes(0, 2362)));
}

TEST_F(iv_mcserv_buzon, las_dos_esperas_duermen_sin_el_mutex)
{
    mutex_crudo otro((nombre_mutex(servicio) + "Interno").c_str());
    pon_buzon(2, 0, 0, 0);
    notifica_en_otro_hilo();

    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 21; }, 5000));
    EXPECT_TRUE(espera_hasta([&] { return otro.libre(); }, 60));
    canal.pon_u32(2362, 0);
    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 22; }, 5000));
    EXPECT_TRUE(espera_hasta([&] { return otro.libre(); }, 60));
}

TEST_F(iv_mcserv_buzon, ocupado_se_abandona_si_el_servidor_termina)
{
    pon_buzon(2, 11, 12, 13);
    notifica_en_otro_hilo();
    EXPECT_FALSE(acabada(150));

    canal.pon_u16(C_TERMINADO, 1);

    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{2, 11, 12, 13}));
    EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 21u); // the second wait never began
}

TEST_F(iv_mcserv_buzon, libre_se_escribe_aunque_el_servidor_haya_terminado_y_no_se_espera)
{
    for (uint16_t terminado : {1, 2, 0xFFFF}) { // here any value but 0 ends it
        pon_buzon(0, 0, 0, 0);
        canal.pon_u16(C_TERMINADO, terminado);

        notifica_en_otro_hilo();

        ASSERT_TRUE(acabada(5000)) << terminado;
        EXPECT_EQ(buzon(), (cuatro{1, 201, 202, 203}));
        EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 21u);
    }
}

TEST_F(iv_mcserv_buzon, la_espera_del_recibo_se_abandona_si_el_servidor_termina)
{
    notifica_en_otro_hilo();
    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 22; }, 5000));

    canal.pon_u16(C_TERMINADO, 1);

    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{1, 201, 202, 203})); // left as it is
}

TEST_F(iv_mcserv_buzon, un_recibo_vale_aunque_el_servidor_termine_a_la_vez)
{
    notifica_en_otro_hilo();
    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 22; }, 5000));

    ASSERT_TRUE(interno.toma());
    canal.pon_u16(C_TERMINADO, 1);
    canal.pon_u32(2362, 3);
    interno.suelta();

    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{0, 0, 0, 0}));
}
