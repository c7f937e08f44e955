// The registry's ring of activities, and what the monitor is told of them and of waits.
#include "iv_mcbase_apoyo.h"

// ---- Activity

TEST_F(iv_mcbase, monitor_esta_listo_con_sus_cuatro_campos)
{
    struct {
        uint16_t tam, version;
        uint64_t hwnd;
        uint32_t msg;
        int16_t listo;
    } const casos[] = {
        {8886, 256, 0x1234, 0xC001, 1},
        {8886, 256, 0x100000000, 1, 1},
        {8885, 256, 0x1234, 0xC001, 0},
        {8887, 256, 0x1234, 0xC001, 0},
        {0, 256, 0x1234, 0xC001, 0},
        {8886, 255, 0x1234, 0xC001, 0},
        {8886, 257, 0x1234, 0xC001, 0},
        {8886, 1, 0x1234, 0xC001, 0},
        {8886, 256, 0, 0xC001, 0},
        {8886, 256, 0x1234, 0, 0},
        {0, 0, 0, 0, 0},
    };
    pon_servicio(0, "Calc");
    for (const auto &caso : casos) {
        SCOPED_TRACE(junta({std::to_string(caso.tam), std::to_string(caso.version), std::to_string(caso.hwnd),
                            std::to_string(caso.msg)}));
        m_bloque.pon_u16(0, caso.tam);
        m_bloque.pon_u16(2, caso.version);
        m_bloque.pon_u64(6, caso.hwnd);
        m_bloque.pon_u32(14, caso.msg);
        m_bloque.pon_u32(18, 1);
        imagen esperada(m_bloque);
        for (uint32_t tipo : {0u, 1u, 2u})
            EXPECT_EQ(iv_mcbase_hay_monitor(tipo), caso.listo);
        comprueba(esperada);

        s_avisos.clear();
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", 100, 7);
        ASSERT_EQ(s_avisos.size(), static_cast<size_t>(caso.listo));
        if (caso.listo != 1) {
            comprueba(esperada);
            continue;
        }
        EXPECT_EQ(s_avisos[0].hwnd, caso.hwnd);
        EXPECT_EQ(s_avisos[0].msg, caso.msg);
        EXPECT_EQ(m_bloque.u32(18), 2u);
    }
}

TEST_F(iv_mcbase, cada_actividad_llena_su_registro_y_se_avisa_ya_sin_el_mutex)
{
    struct {
        uint32_t tipo_programa, tipo_actividad;
        int16_t indicador;
        uint32_t dato1, dato2;
    } const casos[] = {
        {0, 1, 1, 0, 0},    {1, 2, 1, 100, 17}, {1, 2, 0, 100, 17},
        {1, 3, 1, 100, 18}, {0, 3, 1, 0, 18},   {0, 4, 1, 0, 19},
        {1, 4, 1, 0, 19},   {1, 1, 0, 1, 2},    {2, 2, 1, 0xFFFFFFFF, 0xFFFFFFFE},
        {0, 1, 0, 0, 0},
    };
    pon_monitor(0x1122334455667788, 0xC123);
    pon_servicio(2, "Otro");
    pon_servicio(7, "Calc");
    imagen esperada(m_bloque);
    uint32_t n = 0;
    for (const auto &caso : casos) {
        n++;
        SCOPED_TRACE(n);
        iv_mcbase_anota_actividad(caso.tipo_programa, caso.tipo_actividad, caso.indicador, "Calc", caso.dato1,
                                  caso.dato2);
        size_t registro = en_actividad(n);
        esperada.u32(registro, 7);
        esperada.u32(registro + 4, caso.dato1);
        esperada.u32(registro + 8, caso.dato2);
        esperada.u32(registro + 12, caso.tipo_programa);
        esperada.u32(registro + 16, caso.tipo_actividad);
        esperada.u16(registro + 20, static_cast<uint16_t>(caso.indicador));
        esperada.u32(18, n + 1);
        if (n == 10)
            esperada.ceros(en_servicio(7), 1); // a server's withdrawal: the record names it all the same
        comprueba(esperada);

        ASSERT_EQ(s_avisos.size(), n);
        EXPECT_EQ(s_avisos.back().hwnd, 0x1122334455667788u);
        EXPECT_EQ(s_avisos.back().msg, 0xC123u);
        EXPECT_EQ(s_avisos.back().wparam, 0u);
        EXPECT_EQ(s_avisos.back().lparam, n);
        EXPECT_EQ(s_avisos.back().sitio, 0u);
        EXPECT_TRUE(s_avisos.back().mutex_libre);
    }
}

TEST_F(iv_mcbase, solo_el_servidor_que_anuncia_mete_y_saca_servicios)
{
    for (bool con_monitor : {false, true}) {
        SetUp();
        if (con_monitor)
            pon_monitor();
        pon_servicio(0, "Otro");
        iv_mcbase_abre(0, FALSO);
        imagen esperada(m_bloque);
        for (uint32_t tipo_programa : {1u, 2u})
            for (int16_t indicador : {1, 0})
                iv_mcbase_anota_actividad(tipo_programa, 1, indicador, "Calc", 0, 0);
        for (uint32_t tipo_actividad : {2u, 3u, 4u})
            iv_mcbase_anota_actividad(0, tipo_actividad, 1, "Calc", 0, 0);
        iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
        comprueba(esperada); // an unknown service leaves no record either
        EXPECT_TRUE(s_avisos.empty());

        iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "Calc");
        iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(2), 64), "");
        for (uint32_t tipo_actividad : {2u, 3u, 4u})
            iv_mcbase_anota_actividad(0, tipo_actividad, 0, "Calc", 0, 0);
        iv_mcbase_anota_actividad(1, 1, 0, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "Calc");
        iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "");
        EXPECT_EQ(s_avisos.size(), con_monitor ? 7u : 0u);
        iv_mcbase_cierra();
    }
}

TEST_F(iv_mcbase, sin_monitor_el_anuncio_cambia_solo_el_nombre_del_servicio)
{
    imagen esperada(m_bloque);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 5, 6);
    esperada.texto(en_servicio(0), "Calc");
    comprueba(esperada);
    iv_mcbase_anota_actividad(0, 1, 0, "Calc", 5, 6);
    esperada.ceros(en_servicio(0), 1);
    comprueba(esperada);
    EXPECT_TRUE(s_avisos.empty());
}

TEST_F(iv_mcbase, anuncio_que_ya_no_cabe_no_deja_registro_ni_avisa)
{
    pon_monitor();
    for (uint32_t j = 0; j < 32; j++)
        pon_servicio(j, "s" + std::to_string(j));
    iv_mcbase_abre(0, FALSO);
    imagen esperada(m_bloque);
    iv_mcbase_anota_actividad(0, 1, 1, "s32", 0, 0);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    iv_mcbase_anota_actividad(1, 2, 1, "s32", 100, 0); // looked up only: nothing to report
    EXPECT_SIN_INFORMES();
    comprueba(esperada);
    EXPECT_TRUE(s_avisos.empty());
}

TEST_F(iv_mcbase, anuncio_de_un_servicio_nuevo_lleva_el_indice_que_acaba_de_recibir)
{
    pon_monitor();
    for (uint32_t j = 0; j < 31; j++)
        pon_servicio(j, "s" + std::to_string(j));
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
    EXPECT_EQ(m_bloque.u32(22), 31u);
    EXPECT_EQ(m_bloque.texto(en_servicio(31), 64), "Calc");
    ASSERT_EQ(s_avisos.size(), 1u);
    EXPECT_EQ(s_avisos[0].lparam, 1u);
}

static volatile LONG s_veces[65];

TEST_F(iv_mcbase, actividades_de_varios_hilos_tienen_cada_una_su_numero)
{
    pon_monitor();
    pon_servicio(0, "Calc");
    std::fill(std::begin(s_veces), std::end(s_veces), 0);
    m_ventana->PostMessageW = [](HWND, UINT, WPARAM, LPARAM n) -> BOOL {
        InterlockedIncrement(&s_veces[n < 64 ? n : 64]);
        return TRUE;
    };
    a_la_vez([](uint32_t h) {
        for (uint32_t i = 0; i < 63; i++)
            iv_mcbase_anota_actividad(1, 2, 1, "Calc", h, i);
    });
    EXPECT_EQ(s_veces[0] + s_veces[64], 0);
    for (uint32_t n = 1; n <= 63; n++)
        EXPECT_EQ(s_veces[n], 4) << n; // four times round
    EXPECT_EQ(m_bloque.u32(18), 1u);
}

TEST_F(iv_mcbase, anillo_numera_de_1_a_63_y_no_escribe_el_64)
{
    pon_monitor();
    pon_servicio(0, "Calc");
    std::vector<uint8_t> registro_64 = m_bloque.bytes(en_actividad(64), 22);
    for (uint32_t i = 0; i < 130; i++) {
        uint32_t n = i % 63 + 1;
        ASSERT_EQ(m_bloque.u32(18), n);
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", i, 0);
        ASSERT_EQ(s_avisos.back().lparam, n);
        ASSERT_EQ(m_bloque.u32(en_actividad(n) + 4), i);
    }
    EXPECT_TRUE(bytes_iguales(registro_64, m_bloque.bytes(en_actividad(64), 22)));
    EXPECT_EQ(m_bloque.u32(18), 5u);
}

TEST_F(iv_mcbase, contador_de_actividad_estropeado_vale_1)
{
    pon_servicio(0, "Calc");
    for (uint32_t malo : {0u, 64u, 65u, 0x10001u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        pon_monitor();
        m_bloque.pon_u32(18, malo);
        imagen esperada(m_bloque);
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", malo, 9);
        esperada.u32(18, 2);
        const uint32_t campos_u32[] = {0, malo, 9, 1, 2};
        for (uint32_t c = 0; c < 5; c++)
            esperada.u32(22 + c * 4, campos_u32[c]);
        esperada.u16(42, 1);
        comprueba(esperada);
        EXPECT_EQ(s_avisos.back().lparam, 1u) << malo;
    }
}

// ---- Rounds

TEST_F(iv_mcbase, aviso_de_ronda_lleva_servicio_y_estado_en_lparam)
{
    struct {
        uint64_t hwnd;
        uint32_t msg;
        bool se_manda;
    } const monitores[] = {{0x1234, 0xC001, true}, {0, 0xC001, false}, {0x1234, 0, false}, {0, 0, false}};
    for (const auto &monitor : monitores) {
        m_bloque.pon_u64(6, monitor.hwnd); // size and version of the block do not matter here
        m_bloque.pon_u32(14, monitor.msg);
        imagen esperada(m_bloque);
        s_avisos.clear();
        iv_mcbase_avisa_ronda(vista(), iv_aviso_RONDA_CLIENTE, 5, 3);
        iv_mcbase_avisa_ronda(vista(), iv_aviso_RONDA_SERVIDOR, 31, 2);
        comprueba(esperada);
        ASSERT_EQ(s_avisos.size(), monitor.se_manda ? 2u : 0u);
        if (!monitor.se_manda)
            continue;
        EXPECT_EQ(s_avisos[0].hwnd, 0x1234u);
        EXPECT_EQ(s_avisos[0].msg, 0xC001u);
        EXPECT_EQ(s_avisos[0].wparam, 1u);
        EXPECT_EQ(s_avisos[0].lparam, 196613u);
        EXPECT_EQ(s_avisos[1].wparam, 2u);
        EXPECT_EQ(s_avisos[1].lparam, 131103u);
    }
}

TEST_F(iv_mcbase, rondas_avisan_al_monitor_con_el_mutex_tomado)
{
    pon_monitor();
    pon_servicio(5, "Calc");
    iv_mcserv_t canal = {};
    struct {
        int16_t (*ronda)(uint32_t, iv_mcserv_vista *);
        uint32_t sitio, wparam, lparam;
    } const casos[] = {
        {iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE, 12, 1, 0x10005},
        {iv_mcserv_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO, 12, 1, 0x20005},
        {iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO, 12, 1, 0x30005},
        {iv_mcserv_CLIENTE_ESPERA_SERVIDOR_AVISADO, 12, 1, 0x40005},
        {iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO, 13, 2, 0x10005},
        {iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO, 13, 2, 0x20005},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.lparam);
        s_avisos.clear();
        EXPECT_EQ(caso.ronda(5, &canal), 0);
        ASSERT_EQ(s_avisos.size(), 1u);
        EXPECT_EQ(s_avisos[0].wparam, caso.wparam);
        EXPECT_EQ(s_avisos[0].lparam, caso.lparam);
        EXPECT_EQ(s_avisos[0].sitio, caso.sitio);
        EXPECT_FALSE(s_avisos[0].mutex_libre);
        EXPECT_EQ(caso.ronda(32, &canal), 1);
        EXPECT_EQ(s_avisos.size(), 1u);
    }
}
