// The registry's services: the table, who serves and uses each, the search by prefix.
#include "iv_mcbase_apoyo.h"

// ---- Services

TEST_F(iv_mcbase, busqueda_da_indice_y_primera_entrada_libre)
{
    for (uint32_t j : {0u, 1u, 3u})
        pon_servicio(j, "Otro" + std::to_string(j));
    pon_servicio(31, "Calc");
    imagen esperada(m_bloque);
    uint32_t libre = 99;
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Calc", &libre), 31u);
    EXPECT_EQ(libre, 2u);
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Otro3", nullptr), 3u);
    for (const char *ausente : {"calc", "Cal", "Calcu", ""}) {
        libre = 99;
        EXPECT_EQ(iv_mcbase_busca_servicio(vista(), ausente, &libre), 32u) << ausente;
        EXPECT_EQ(libre, 2u) << ausente;
    }
    comprueba(esperada);
    for (uint32_t j = 0; j < 32; j++)
        pon_servicio(j, "s" + std::to_string(j));
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "s0", nullptr), 0u);
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Calc", &libre), 32u);
    EXPECT_EQ(libre, 32u);
}

TEST_F(iv_mcbase, busqueda_da_la_primera_libre_aunque_este_tras_la_hallada)
{
    pon_servicio(0, "Calc");
    pon_servicio(1, "Otro");
    uint32_t libre = 99;
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Calc", &libre), 0u);
    EXPECT_EQ(libre, 2u);
}

TEST_F(iv_mcbase, de_dos_servicios_de_un_nombre_vale_el_primero)
{
    pon_servicio(3, "Calc");
    pon_servicio(9, "Calc");
    imagen esperada(m_bloque);
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Calc", nullptr), 3u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "Calc"), 3u);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, vista(), "Calc"), 3u);
    esperada.ceros(en_servicio(3), 1);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Calc", nullptr), 9u);
}

// The platform says what is the same text, and not the bytes: a soft hyphen, for one, does not count.
TEST_F(iv_mcbase, nombres_son_iguales_si_lo_son_para_la_plataforma)
{
    const bool iguales = lstrcmpA("Ca\xADlco", "Calco") == 0;
    char nombre[64];
    pon_programa(3, "Calco", 0);
    pon_servicio(9, "Calco");
    EXPECT_EQ(iv_mcbase_registra_programa(0, "Ca\xADlco", nullptr), iguales ? 3 : 0);
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Ca\xADlco", nullptr), iguales ? 9u : 32u);
    // Of a prefix the bytes count: five of the name are another text, and six are more than it has.
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("Ca\xADlc", nombre), 0);
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("Calco\xAD", nombre), 0);
    pon_servicio(9, "Ca\xADlco");
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("Cal\xAD", nombre), iguales ? 1 : 0);
}

TEST_F(iv_mcbase, busqueda_alta_y_baja_dejan_el_mutex_a_quien_llama)
{
    iv_mcbase_vista *mcbase = vista();
    ASSERT_TRUE(m_mutex.retiene());
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, mcbase, "Calc"), 0u); // would wait for ever
    EXPECT_EQ(iv_mcbase_busca_servicio(mcbase, "Calc", nullptr), 0u);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, mcbase, "Calc"), 0u);
    m_mutex.suelta();
}

TEST_F(iv_mcbase, buscar_o_anyadir_escribe_solo_el_nombre)
{
    pon_servicio(0, "Otro");
    pon_servicio(2, "Calc");
    imagen esperada(m_bloque);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "Calc"), 2u);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(1, vista(), "Nuevo"), 1u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "Nuevo"), 1u);
    esperada.texto(en_servicio(1), "Nuevo");
    comprueba(esperada);
}

TEST_F(iv_mcbase, nombre_de_servicio_guarda_63_caracteres)
{
    const std::string justo(63, 'j'), largo(64, 'l');
    imagen esperada(m_bloque);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), justo.c_str()), 0u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), justo.c_str()), 0u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), largo.c_str()), 1u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), largo.c_str()), 2u); // kept was another name
    esperada.texto(en_servicio(0), justo);
    esperada.texto(en_servicio(1), largo.substr(0, 63));
    esperada.texto(en_servicio(2), largo.substr(0, 63));
    comprueba(esperada);
}

TEST_F(iv_mcbase, servicio_33_se_informa_y_no_escribe_nada)
{
    for (uint32_t j = 0; j < 32; j++)
        EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), ("s" + std::to_string(j)).c_str()), j);
    EXPECT_SIN_INFORMES();
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "s32"), 32u);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    uint32_t ind = 7;
    iv_mcbase_registra_servidor_de_servicio(16, "s32", &ind);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    EXPECT_EQ(ind, 32u);
    ind = 7;
    iv_mcbase_registra_cliente_de_servicio(16, "s32", &ind);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    EXPECT_EQ(ind, 32u);
    iv_mcbase_anota_actividad(0, 1, 1, "s32", 0, 0);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "s31"), 31u);
}

TEST_F(iv_mcbase, quitar_un_servicio_vacia_solo_el_primer_byte)
{
    pon_servicio(0, "Otro");
    pon_servicio(9, "Calc");
    imagen esperada(m_bloque);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, vista(), "Nada"), 32u);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, vista(), "Calc"), 9u);
    esperada.ceros(en_servicio(9), 1);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, vista(), "Calc"), 32u);
}

TEST_F(iv_mcbase, servidor_de_servicio_borra_los_12_bytes_desde_68)
{
    pon_programa(3, "servidor", 0, 1);
    pon_servicio(4, "Calc");
    imagen esperada(m_bloque);
    uint32_t ind = 99;

    iv_mcbase_registra_servidor_de_servicio(3, "Calc", &ind);
    EXPECT_EQ(ind, 4u);
    esperada.u16(en_servicio(4) + 64, 3);
    esperada.ceros(en_servicio(4) + 68, 12);
    comprueba(esperada);

    iv_mcbase_registra_servidor_de_servicio(3, "Nuevo", nullptr);
    esperada.texto(en_servicio(0), "Nuevo");
    esperada.u16(en_servicio(0) + 64, 3);
    esperada.ceros(en_servicio(0) + 68, 12);
    comprueba(esperada);
}

TEST_F(iv_mcbase, cliente_de_servicio_borra_los_16_bytes_desde_80_y_el_ultimo_queda)
{
    pon_programa(3, "uno", 0, 0, 1);
    pon_programa(5, "dos", 0, 0, 1);
    pon_servicio(4, "Calc");
    imagen esperada(m_bloque);
    esperada.u16(4, 1);
    uint32_t ind = 99;

    iv_mcbase_registra_cliente_de_servicio(3, "Calc", &ind);
    EXPECT_EQ(ind, 4u);
    esperada.u16(en_servicio(4) + 66, 3);
    esperada.ceros(en_servicio(4) + 80, 16);
    comprueba(esperada);

    m_bloque.pon_u32(en_servicio(4) + 92, 77);
    iv_mcbase_registra_cliente_de_servicio(5, "Calc", nullptr);
    esperada.u16(en_servicio(4) + 66, 5);
    comprueba(esperada);

    iv_mcbase_registra_cliente_de_servicio(16, "Nuevo", &ind); // 16 is no program: it has no entry
    EXPECT_EQ(ind, 0u);
    esperada.texto(en_servicio(0), "Nuevo");
    esperada.u16(en_servicio(0) + 66, 16);
    esperada.ceros(en_servicio(0) + 80, 16);
    comprueba(esperada);
}

TEST_F(iv_mcbase, servidor_que_se_hace_cliente_de_un_servicio_lleva_los_dos_tipos)
{
    pon_programa(3, "servidor", 0, 1, 0, 0, 8);
    pon_servicio(4, "Calc");
    imagen esperada(m_bloque);
    iv_mcbase_registra_cliente_de_servicio(3, "Calc", nullptr);
    esperada.u16(4, 1);
    esperada.u16(en_programa(3) + 266, 1);
    esperada.u16(en_servicio(4) + 66, 3);
    esperada.ceros(en_servicio(4) + 80, 16);
    comprueba(esperada);
}

TEST_F(iv_mcbase, cliente_que_se_hace_servidor_de_un_servicio_lleva_los_dos_tipos)
{
    pon_programa(3, "cliente", 0, 0, 1, 0, 8);
    pon_servicio(4, "Calc");
    imagen esperada(m_bloque);
    iv_mcbase_registra_servidor_de_servicio(3, "Calc", nullptr);
    esperada.u16(en_programa(3) + 264, 1);
    esperada.u16(en_servicio(4) + 64, 3);
    esperada.ceros(en_servicio(4) + 68, 12);
    comprueba(esperada);
}

TEST_F(iv_mcbase, comando_en_curso_se_marca_y_se_quita)
{
    pon_servicio(31, "Calc");
    imagen esperada(m_bloque);
    iv_mcbase_inicia_comando(31, 0x01020304);
    esperada.u32(en_servicio(31) + 76, 0);
    esperada.u32(en_servicio(31) + 80, 0x01020304);
    comprueba(esperada);

    m_bloque.pon_u32(en_servicio(31) + 76, 5);
    iv_mcbase_termina_comando(31, 999); // whichever it is
    esperada.u32(en_servicio(31) + 80, 0);
    comprueba(esperada);

    for (uint32_t ind : {32u, 33u, 0x10000u, 0xFFFFFFFFu}) {
        iv_mcbase_inicia_comando(ind, 100);
        iv_mcbase_termina_comando(ind, 100);
    }
    comprueba(esperada);
}

// ---- Search by prefix

TEST_F(iv_mcbase, prefijo_halla_el_primer_servicio_que_empieza_asi)
{
    pon_servicio(3, "Calculo");
    pon_servicio(5, "Calc");
    pon_servicio(9, "Texto");
    pon_servicio(31, std::string(63, 'z'));
    imagen esperada(m_bloque);
    struct {
        std::string prefijo, hallado;
    } const casos[] = {
        {"Calc", "Calculo"}, // the lowest index, though another is equal
        {"Calculo", "Calculo"},
        {"", "Calculo"}, // the first entry in use
        {"T", "Texto"},
        {"Texto", "Texto"},
        {"Texto2", "-"},
        {"texto", "-"},
        {"exto", "-"},
        {std::string(63, 'z'), std::string(63, 'z')},
        {std::string(64, 'z'), "-"},
        {std::string(300, 'z'), "-"},
        {"z", std::string(63, 'z')},
    };
    for (const auto &caso : casos) {
        char marco[66];
        memset(marco, '#', sizeof marco);
        bool hay = iv_mcbase_hay_servicio_registrado_empiece_por(caso.prefijo.c_str(), marco + 1) == 1;
        EXPECT_EQ(hay, caso.hallado != "-") << caso.prefijo;
        if (hay)
            EXPECT_STREQ(marco + 1, caso.hallado.c_str()) << caso.prefijo;
        else
            EXPECT_EQ(std::string(marco, 66), std::string(66, '#')) << caso.prefijo;
        EXPECT_EQ(marco[0], '#');
        EXPECT_EQ(marco[65], '#');
    }
    comprueba(esperada);
}

TEST_F(iv_mcbase, prefijo_sin_servicios_no_halla_nada_ni_el_vacio)
{
    char nombre[64] = "intacto";
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("", nombre), 0);
    EXPECT_STREQ(nombre, "intacto");
}

TEST_F(iv_mcbase, nombre_de_servicio_sin_final_se_copia_acotado)
{
    m_bloque.pon_bytes(en_servicio(31), std::vector<uint8_t>(96, 'A')); // to the end of the block
    char marco[66];
    memset(marco, '#', sizeof marco);
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("AAA", marco + 1), 1);
    EXPECT_EQ(std::string(marco, 66), "#" + std::string(63, 'A') + std::string(1, '\0') + "#");
}

TEST_F(iv_mcbase, prefijo_y_buffer_nulos_se_informan_una_vez_cada_uno)
{
    const char *servicio = nombre_unico("Servicio");
    pon_servicio(2, servicio);
    char nombre[64] = "intacto";
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(nullptr, nombre, nullptr), 0); // it has no server
    EXPECT_INFORME("ivrexa", "(prefijo_nombre_servicio) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_STREQ(nombre, servicio);

    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por("Ser", nullptr, nullptr), 0);
    EXPECT_INFORME("ivrexa", "(buffer_nombre_servicio_registrado64) != 0");
    EXPECT_SIN_INFORMES();
}
