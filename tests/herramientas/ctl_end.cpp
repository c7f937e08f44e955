// ctl_end.cpp - ivrexactl end, as a user runs it, against servers of each kind.
#include "ctl_cliente_apoyo.h"

using nlohmann::json;

class fin : public ctl_cliente {
protected:
    salida_de termina(std::vector<std::string> mas = {}) const
    {
        mas.insert(mas.begin(), {"end", servicio()});
        return ejecuta_ctl(mas);
    }
    std::string nota() const
    {
        return "note: takes a program entry and the client slot of \"" + servicio() + "\" while it runs\n";
    }
};

// ---- With a window

class fin_con_ventana : public fin, public ::testing::WithParamInterface<const char *> {};

INSTANTIATE_TEST_SUITE_P(servidor, fin_con_ventana, ::testing::Values("ventana", "net"),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(fin_con_ventana, dice_ended_cuando_el_programa_se_ha_ido_y_no_toma_ninguna_entrada)
{
    papel servidor = arranca(GetParam());
    herramienta h({"end", servicio(), "--wait", "20"});
    servidor.espera_linea("QUIT 1", CTL_PLAZO_MS);
    EXPECT_EQ(busca_programa("ivrexactl"), 16u);
    acaba(servidor);
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 0u);
    EXPECT_EQ(h.salida(), "ended\n");
    EXPECT_EQ(h.error(), "");
}

TEST_P(fin_con_ventana, dice_que_no_ha_terminado_con_1_cuando_el_tiempo_se_acaba)
{
    papel servidor = arranca(GetParam());
    std::vector<uint8_t> antes = tablas();
    uint64_t empieza = GetTickCount64();
    salida_de s = termina({"--wait", "0.6"});
    EXPECT_GE(GetTickCount64() - empieza, 600u);
    EXPECT_EQ(s.codigo, 1u);
    EXPECT_EQ(s.salida, "has not ended yet\n");
    EXPECT_EQ(s.error, "");
    servidor.espera_linea("QUIT 1", 5000);
    EXPECT_TRUE(bytes_iguales(antes, tablas()));
}

// A session that is closed is the server's end, also where its window lives on.
TEST_F(fin, una_sesion_cerrada_vale_por_el_fin)
{
    papel servidor = arranca("ventana");
    bloque_crudo el_canal = canal();
    herramienta h({"end", servicio(), "--wait", "20"});
    servidor.espera_linea("QUIT 1", CTL_PLAZO_MS);
    servidor.di("CIERRA");
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 0u);
    EXPECT_EQ(h.salida(), "ended\n");
    EXPECT_TRUE(servidor.vive());
}

TEST_F(fin, un_servidor_que_muere_vale_tambien)
{
    papel servidor = arranca("ventana");
    bloque_crudo el_canal = canal();
    herramienta h({"end", servicio(), "--wait", "20", "--json"});
    servidor.espera_linea("QUIT 1", CTL_PLAZO_MS);
    servidor.mata();
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 0u);
    EXPECT_EQ(json::parse(h.salida()), json::parse(R"({"service":")" + servicio() + R"(","asked":true,"ended":true})"));
}

TEST_F(fin, con_wait_0_no_espera)
{
    papel servidor = arranca("ventana");
    salida_de s = termina({"--wait", "0"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.salida, "asked to end\n");
    servidor.espera_linea("QUIT 1", 5000);
    s = termina({"--wait", "0", "--json"});
    EXPECT_EQ(s.codigo, 69u) << "its service is closed already";
}

TEST_F(fin, con_ventana_y_la_tabla_de_programas_llena_se_pide_igual)
{
    papel servidor = arranca("ventana");
    llena_programas();
    EXPECT_EQ(termina({"--wait", "0"}).codigo, 0u);
    servidor.espera_linea("QUIT 1", 5000);
}

TEST_F(fin, ctrl_c_acaba_la_espera)
{
    papel servidor = arranca("ventana");
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    herramienta h({"end", servicio(), "--wait", "60"}, opciones);
    servidor.espera_linea("QUIT 1", CTL_PLAZO_MS);
    h.pulsa_ctrl_c();
    EXPECT_EQ(h.espera_fin(10000), 1u);
    EXPECT_EQ(h.salida(), "has not ended yet\n");
}

class fin_ctrl_c : public fin, public ::testing::WithParamInterface<const char *> {};

INSTANTIATE_TEST_SUITE_P(servidor, fin_ctrl_c, ::testing::ValuesIn(CLASES),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(fin_ctrl_c, lo_termina_aunque_otro_retenga_la_memoria_de_la_biblioteca)
{
    papel servidor = arranca(GetParam());
    mutex_crudo cerrojo("ivrexa_iv_mem");
    ASSERT_TRUE(cerrojo.retiene(5000));
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    herramienta h({"end", servicio(), "--wait", "60"}, opciones);
    EXPECT_FALSE(espera_hasta([&] { return !h.salida().empty(); }, 2000)) << "it stands in the library";
    h.pulsa_ctrl_c();
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 75u);
    EXPECT_EQ(h.salida(), "");
    EXPECT_TRUE(contiene(h.error(), "it has taken nothing")) << h.error();
}

// ---- Without one

TEST_F(fin, sin_ventana_termina_el_servicio_y_suelta_su_entrada)
{
    papel servidor = arranca("sin_ventana");
    std::vector<uint8_t> antes = programas_en_tabla();
    bloque_crudo el_canal = canal();
    servidor.di("ESPERA");
    salida_de s = termina({"--json"});
    EXPECT_EQ(s.codigo, 0u) << s.salida;
    EXPECT_EQ(json::parse(s.salida), json::parse(R"({"service":")" + servicio() + R"(","asked":true,"ended":true})"));
    EXPECT_EQ(s.error, nota());
    servidor.espera_linea("ESPERADO", 5000);
    EXPECT_TRUE(bytes_iguales(antes, programas_en_tabla()));
    EXPECT_EQ(el_canal.u16(28), 1u);
    EXPECT_EQ(el_canal.u32(30), 0u);
    EXPECT_EQ(el_canal.u32(1198), 0u) << "no claim is left";
}

TEST_F(fin, dice_los_otros_servicios_del_mismo_programa)
{
    std::string otro = nombre_unico("otro");
    papel servidor = arranca_papel("servidor", {"sin_ventana", servicio() + "," + otro});
    salida_de s = termina();
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.salida, "ended\n");
    EXPECT_EQ(s.error, nota() + "note: the same program still offers \"" + otro + "\"\n");
    EXPECT_EQ(ejecuta_ctl({"end", otro}).error,
              "note: takes a program entry and the client slot of \"" + otro + "\" while it runs\n");
}

TEST_F(fin, sin_ventana_con_la_tabla_de_programas_llena_se_rechaza_sin_caja)
{
    papel servidor = arranca("sin_ventana");
    llena_programas();
    std::vector<uint8_t> antes = programas_en_tabla();
    salida_de s = termina();
    EXPECT_EQ(s.codigo, 69u);
    EXPECT_TRUE(contiene(s.error, "ivrexactl end: the desktop has its 16 programs")) << s.error;
    EXPECT_TRUE(bytes_iguales(antes, programas_en_tabla()));
    EXPECT_EQ(canal().u16(28), 0u);
}

// The channel has one place for a command's number: another command would be run as this one.
TEST_F(fin, sin_ventana_espera_a_que_acabe_el_comando_de_otro)
{
    papel servidor = arranca("sin_ventana");
    canal().pon_u32(1198, 2);
    salida_de s = termina({"--wait", "0.3"});
    EXPECT_EQ(s.codigo, 75u);
    EXPECT_TRUE(contiene(s.error, "ivrexactl end: a command of another client is under way on \"" + servicio() +
                                      "\", so its server was not asked"))
        << s.error;
    EXPECT_EQ(canal().u16(28), 0u);
    EXPECT_EQ(canal().u32(1202), 0u);

    herramienta h({"end", servicio(), "--wait", "20"});
    canal().pon_u32(1198, 0);
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 0u);
    EXPECT_EQ(h.salida(), "ended\n");
}

// ---- What is not there

TEST_F(fin, sin_servicio_da_69_y_lo_que_no_vale_64)
{
    EXPECT_EQ(termina().codigo, 69u);
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{{"end"},
                                                                                      {"end", std::string(64, 's')},
                                                                                      {"end", "S", "--wait", "-1"},
                                                                                      {"end", "S", "--wait", "x"},
                                                                                      {"end", "S", "T"}}) {
        salida_de s = ejecuta_ctl(args);
        EXPECT_EQ(s.codigo, 64u);
        EXPECT_EQ(s.salida, "");
        EXPECT_NE(s.error, "");
    }
}

TEST_F(fin, la_ventana_de_un_servidor_muerto_no_se_pide)
{
    papel servidor = arranca("ventana");
    bloque_crudo el_canal = canal();
    servidor.mata();
    salida_de s = termina();
    EXPECT_EQ(s.codigo, 69u);
    EXPECT_TRUE(contiene(s.error, "is gone, and its window with it")) << s.error;
}

// Nobody runs the command: the library finds the server dead, and marks it.
TEST_F(fin, un_servidor_sin_ventana_que_murio_acaba_como_terminado)
{
    papel servidor = arranca("sin_ventana");
    bloque_crudo el_canal = canal(), registro("Ivrexa_MCB");
    servidor.mata();
    salida_de s = termina();
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.salida, "ended\n");
    EXPECT_EQ(el_canal.u16(28), 1u);
}
