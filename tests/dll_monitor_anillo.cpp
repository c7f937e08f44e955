// The ring of activities: who is handed which number, and what a monitor makes of what it is told.
#include "dll_monitor.h"

// A running service in entry 0 of the table. Its announcement was activity 1.
class anillo : public conversacion {
protected:
    void SetUp() override
    {
        conversacion::SetUp();
        m_vigia.emplace();
        m_servidor.emplace(arranca_servidor("ventana", servicio));
        m_registro.emplace("Ivrexa_MCB");
        v().oye_solo({{0, 1, 1, servicio, 0, 0}});
    }

    void TearDown() override
    {
        m_registro.reset();
        m_servidor.reset();
        m_vigia.reset();
        conversacion::TearDown();
    }

    vigia &v() { return *m_vigia; }
    bloque_crudo &registro() { return *m_registro; }

    // This program is no client of the service: that is told, and nothing else happens.
    suceso anota(uint32_t i)
    {
        EXPECT_EQ(ivrexa_ejecuta_comando(servicio.c_str(), 1000 + i, 0, 5000 + i, nullptr, nullptr, nullptr, nullptr,
                                         nullptr, nullptr, nullptr),
                  3u);
        return {1, 2, 1, servicio, 1000 + i, 5000 + i};
    }

    void forja(uint32_t n, const suceso &s)
    {
        size_t despl = 22 + (n - 1) * 22, campo = 0;
        for (uint32_t valor : {s.ind_datServ, s.dato1, s.dato2, s.tipo_programa, s.tipo_actividad})
            registro().pon_u32(despl + 4 * campo++, valor);
        registro().pon_u16(despl + 20, static_cast<uint16_t>(s.indicador));
    }

    const std::string servicio = nombre_unico("serv");

private:
    std::optional<vigia> m_vigia;
    std::optional<papel> m_servidor;
    std::optional<bloque_crudo> m_registro;
};

// ---- Numbers

TEST_F(anillo, numeros_van_de_1_a_63_y_vuelven_a_1_y_el_registro_64_nunca_se_escribe)
{
    std::vector<uint8_t> el_64 = registro().bytes(22 + 63 * 22, 22);
    std::vector<suceso> sucesos;
    for (uint32_t i = 0; i < 61; i++)
        sucesos.push_back(anota(i));
    v().oye_solo(sucesos);
    EXPECT_EQ(registro().u32(18), 63u);

    sucesos = {anota(61)};
    v().oye_solo(sucesos);
    EXPECT_EQ(registro().u32(18), 1u) << "past 63";
    EXPECT_EQ(registro_en(registro(), 63), "0 1061 5061 1 2 1");
    EXPECT_EQ(registro_en(registro(), 1), "0 0 0 0 1 1") << "the announcement is still there";

    uint32_t i = 62;
    for (uint32_t num : {63u, 7u}) { // once all the way round, and on
        sucesos.clear();
        for (uint32_t k = 0; k < num; k++)
            sucesos.push_back(anota(i++));
        v().oye_solo(sucesos);
    }
    EXPECT_EQ(registro().u32(18), 8u);
    EXPECT_TRUE(bytes_iguales(el_64, registro().bytes(22 + 63 * 22, 22)));
    EXPECT_EQ(registro_en(registro(), 64), "32 0 0 0 0 0");
}

TEST_F(anillo, contador_estropeado_vale_1)
{
    for (uint32_t contador : {0u, 64u, 65u, 0x10001u, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(contador);
        registro().pon_bytes(22, std::vector<uint8_t>(22, 0));
        registro().pon_u32(18, contador);
        suceso s = anota(contador & 0xFF);
        EXPECT_EQ(v().dicho(), (std::vector<std::string>{"CRUDO 0 1", linea_de(s)}));
        EXPECT_EQ(registro_en(registro(), 1), registro_de(s));
        EXPECT_EQ(registro().u32(18), 2u);
        EXPECT_EQ(registro_en(registro(), 64), "32 0 0 0 0 0");
    }
    registro().pon_u32(18, 63);
    suceso s = anota(7);
    EXPECT_EQ(v().dicho(), (std::vector<std::string>{"CRUDO 0 63", linea_de(s)}));
    EXPECT_EQ(registro().u32(18), 1u);
}

TEST_F(anillo, servicio_que_no_esta_en_la_tabla_no_gasta_numero)
{
    for (const std::string &otro : {nombre_unico("otro") + std::string(), servicio + "x", servicio.substr(1)}) {
        EXPECT_EQ(ivrexa_ejecuta_comando(otro.c_str(), 100, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                         nullptr),
                  3u);
    }
    v().oye_solo({});
    v().oye_solo({anota(1)});
}

// A monitor is ready when all four fields of the header say so; each alone silences it.
TEST_F(anillo, sin_un_monitor_listo_no_se_anota_nada)
{
    std::vector<uint8_t> cabecera = registro().bytes(0, 18);
    struct caso {
        size_t despl;
        uint16_t valor;
    };
    for (const caso &c : {caso{0, 8885}, caso{0, 0}, caso{2, 257}, caso{2, 0}}) {
        SCOPED_TRACE(c.despl);
        registro().pon_u16(c.despl, c.valor);
        anota(1);
        registro().pon_bytes(0, cabecera);
    }
    registro().pon_u64(6, 0);
    anota(2);
    registro().pon_bytes(0, cabecera);
    registro().pon_u32(14, 0);
    anota(3);
    registro().pon_bytes(0, cabecera);
    v().oye_solo({});
    v().oye_solo({anota(4)});
}

// ---- A slow monitor

TEST_F(anillo, monitor_lento_ve_en_los_registros_pisados_lo_mas_nuevo)
{
    v().pide("PARA", "PARADO");
    std::vector<suceso> sucesos;
    for (uint32_t i = 0; i < 70; i++)
        sucesos.push_back(anota(i)); // numbers 2 to 63, 1, 2 to 8
    v().proceso().di("SIGUE");
    EXPECT_EQ(v().proceso().espera_linea("SEGUIDO", 10000), "SEGUIDO");

    std::vector<std::string> esperadas;
    for (uint32_t i = 0; i < 70; i++) {
        esperadas.push_back("CRUDO 0 " + std::to_string((i + 1) % 63 + 1));
        esperadas.push_back(linea_de(sucesos[i < 7 ? i + 63 : i]));
    }
    EXPECT_EQ(v().dicho(), esperadas);
}

// What the callback gets is what stands there when the message is read, whatever it was when it was posted.
TEST_F(anillo, monitor_parado_ve_el_nombre_de_quien_tenga_entonces_la_entrada)
{
    v().pide("PARA", "PARADO");
    suceso s = anota(1);
    registro().pon_texto(5814, "otro");
    v().proceso().di("SIGUE");
    v().proceso().espera_linea("SEGUIDO", 10000);
    s.nombre = "otro";
    EXPECT_EQ(v().dicho(), (std::vector<std::string>{"CRUDO 0 2", linea_de(s)}));
}

TEST_F(anillo, monitor_suspendido_no_detiene_a_nadie_y_luego_lo_oye_todo)
{
    registra(servicio);
    v().proceso().suspende();
    std::vector<suceso> sucesos;
    for (uint32_t i = 0; i < 5; i++) {
        EXPECT_EQ(ejecuta(servicio, 120 + i).resultado, i);
        sucesos.push_back({1, 2, 1, servicio, 120 + i, 0});
        sucesos.push_back({1, 2, 0, servicio, 120 + i, 0});
    }
    v().proceso().reanuda();
    v().oye_solo(sucesos);
}

// ---- What the window makes of a message

TEST_F(anillo, numero_0_y_los_mayores_que_64_se_dejan_caer)
{
    for (uint32_t n = 1; n <= 64; n++)
        forja(n, {0, 2, 0, "", n, 9});
    for (uint64_t n :
         {uint64_t{0}, uint64_t{65}, uint64_t{66}, uint64_t{0x80000000}, uint64_t{0xFFFFFFFF}, uint64_t{0x500000000}})
        EXPECT_EQ(v().manda(0, n), 0) << n;
    EXPECT_EQ(v().dicho(), std::vector<std::string>{});

    // The low 32 bits count. Record 64 is read as any other, though nobody writes it.
    const std::pair<uint64_t, uint32_t> leidos[] = {{1, 1}, {63, 63}, {64, 64}, {0x700000005, 5}};
    for (const auto &[lparam, n] : leidos) {
        EXPECT_EQ(v().manda(0, lparam), 0);
        EXPECT_EQ(v().dicho(), std::vector<std::string>{linea_de({0, 2, 0, servicio, n, 9})});
    }
}

TEST_F(anillo, campos_del_registro_llegan_como_estan)
{
    registro().pon_texto(5814 + 31 * 96, "ultimo");
    const suceso casos[] = {
        {2, 77, 0xFFFF, "ultimo", 0xFFFFFFFF, 0x80000000, 31},
        {0xFFFFFFFF, 0xFFFFFFFE, 2, servicio, 1, 2, 0},
        {0, 0, 0, "", 0, 0, 30}, // an entry without a name
    };
    for (const suceso &s : casos) {
        forja(9, s);
        EXPECT_EQ(v().manda(0, 9), 0);
        EXPECT_EQ(v().dicho(), std::vector<std::string>{linea_de(s)});
    }
}

TEST_F(anillo, registro_de_un_servicio_32_o_mayor_se_deja_caer)
{
    for (uint32_t ind : {32u, 33u, 0x10000u, 0x80000000u, 0xFFFFFFFFu}) {
        forja(9, {1, 2, 1, "", 1, 2, ind});
        EXPECT_EQ(v().manda(0, 9), 0) << ind;
    }
    EXPECT_EQ(v().dicho(), std::vector<std::string>{});
}

TEST_F(anillo, rondas_llegan_a_la_funcion_de_su_lado_con_el_estado_y_la_entrada_del_bloque)
{
    for (uint32_t j : {0u, 5u, 31u}) {
        size_t despl = 5814 + j * 96;
        registro().pon_texto(despl, "serv" + std::to_string(j));
        registro().pon_u16(despl + 64, 11);
        registro().pon_u16(despl + 66, 12);
        for (uint32_t i = 0; i < 7; i++)
            registro().pon_u32(despl + 68 + 4 * i, 100 * j + i + 1);
    }
    struct caso {
        WPARAM wparam;
        uint64_t lparam;
        const char *linea;
    };
    // Server's loop at 68, 72 and 76, command at 80, client's loop at 84, 88 and 92.
    static const caso CASOS[] = {
        {1, 196613, "BUCLE cliente 5 \"serv5\" 3 505 506 507 504 11 12 "},
        {2, 131077, "BUCLE servidor 5 \"serv5\" 2 501 502 503 504 11 12 "},
        {1, 65536, "BUCLE cliente 0 \"serv0\" 1 5 6 7 4 11 12 "},
        {2, 65567, "BUCLE servidor 31 \"serv31\" 1 3101 3102 3103 3104 11 12 "},
        {1, 0xFFFF001F, "BUCLE cliente 31 \"serv31\" 65535 3105 3106 3107 3104 11 12 "},
        {1, 5, "BUCLE cliente 5 \"serv5\" 0 505 506 507 504 11 12 "},
        {2, 0x900040005, "BUCLE servidor 5 \"serv5\" 4 501 502 503 504 11 12 "},
    };
    for (const caso &c : CASOS) {
        EXPECT_EQ(v().manda(c.wparam, c.lparam), 0);
        EXPECT_EQ(v().dicho(), std::vector<std::string>{c.linea + std::string(EXTERNOS)});
    }
    for (WPARAM wparam : {1, 2})
        for (uint64_t lparam : {uint64_t{0x10020}, uint64_t{0x30021}, uint64_t{0x1FFFF}})
            EXPECT_EQ(v().manda(wparam, lparam), 0);
    EXPECT_EQ(v().dicho(), std::vector<std::string>{});
}

TEST_F(anillo, otro_wparam_se_contesta_con_0_y_no_llama_a_nadie)
{
    for (WPARAM wparam : {WPARAM{3}, WPARAM{4}, WPARAM{0x10000}, WPARAM{0x100000000}, WPARAM{0x100000001}, ~WPARAM{0}})
        EXPECT_EQ(v().manda(wparam, 1), 0) << wparam;
    EXPECT_EQ(v().dicho(), std::vector<std::string>{});
}

TEST_F(anillo, monitor_lee_sin_el_mutex_del_registro)
{
    suceso s = anota(1);
    v().oye_solo({s});
    mutex_crudo mutex("Ivrexa_Mutex_MCB");
    ASSERT_TRUE(mutex.retiene(5000));
    EXPECT_EQ(v().manda(0, 2), 0);
    EXPECT_EQ(v().manda(1, 0x10000), 0);
    EXPECT_EQ(v().manda(2, 0x10000), 0);
    EXPECT_EQ(v().dicho().size(), 3u) << "while the test held the mutex";
    mutex.suelta();
}
