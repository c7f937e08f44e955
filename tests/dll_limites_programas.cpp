// Sixteen programs on a desktop, and the seventeenth. This process itself never calls the library: nothing here keeps
// the registry in being.
#include "comun/hilos_de.h"

#include "dll_limites.h"

static const char *const SIN_SITIO = "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS";

class limites_programas : public limites {
protected:
    // Fills the free entries with programs that live, as far as anybody can tell: their window is this one's.
    void llena_tabla()
    {
        m_hwnd = crea_ventana();
        bloque_crudo registro("Ivrexa_MCB");
        for (size_t i = 0; i < 16; i++) {
            if (registro.u16(en_programa(i, 0)) % 256 != 0)
                continue;
            registro.pon_texto(en_programa(i, 0), "lleno" + std::to_string(i));
            registro.pon_u64(en_programa(i, 256), reinterpret_cast<uint64_t>(m_hwnd));
        }
        ASSERT_EQ(programas().size(), 16u);
    }
    void TearDown() override
    {
        if (m_hwnd != nullptr)
            destruye_ventana(&m_hwnd);
    }

    // The table of programs without what moves by itself.
    static std::vector<uint8_t> tabla()
    {
        bloque_crudo registro("Ivrexa_MCB");
        for (size_t i = 0; i < 16; i++)
            m_latidos[i] = registro.u32(en_programa(i, 270));
        std::vector<uint8_t> bytes = registro.bytes(1430, 16 * 274);
        for (size_t i = 0; i < 16; i++)
            std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(i * 274 + 270), 4, uint8_t{0});
        return bytes;
    }

    static size_t servicio_en_tabla(const std::string &servicio)
    {
        return lugar_de(servicios_registrados(), servicio, 32);
    }

    // Its heartbeat thread ends at the end of its first sleep.
    static void espera_fin_del_latido(const libre &p, size_t hilos_antes)
    {
        EXPECT_TRUE(espera_hasta([&] { return hilos_de(p.pid()).size() == hilos_antes - 1; }, 15000))
            << hilos_antes << " threads, now " << hilos_de(p.pid()).size();
    }

    // A client that has claimed the channel and does nothing more.
    static void reclama_el_canal(const std::string &servicio)
    {
        bloque_crudo(("Ivrexa_MCB_Serv_" + servicio).c_str()).pon_u32(1198, 1);
    }

    static inline uint32_t m_latidos[16];

private:
    HWND m_hwnd = nullptr;
};

// ---- All sixteen

// In fours: a server with a window and its client without one, a server without and its client with. The last one is a
// server as well.
TEST_F(limites_programas, dieciseis_hablan_y_el_ultimo_como_cliente_y_como_servidor)
{
    std::vector<libre> todos;
    std::vector<std::string> servicios;
    for (size_t i = 0; i < 16; i++) {
        todos.emplace_back(nombre_unico("programa"));
        if (i % 4 == 0 || i % 4 == 3)
            todos[i].da_ventana();
        if (i % 2 == 0) {
            servicios.push_back(nombre_unico("serv"));
            todos[i].ofrece({servicios.back()});
            todos[i].publica();
        } else {
            // cppcheck-suppress containerOutOfBounds  // the one before has pushed one
            todos[i].usa(servicios.back());
        }
    }
    std::string del_ultimo = nombre_unico("ultimo");
    todos[15].ofrece({del_ultimo});
    todos[15].publica();
    todos[13].usa(del_ultimo);

    bloque_crudo registro("Ivrexa_MCB");
    for (size_t i = 0; i < 16; i++) {
        SCOPED_TRACE(i);
        EXPECT_EQ(registro.texto(en_programa(i, 0), 256), todos[i].ruta());
        EXPECT_EQ(registro.u16(en_programa(i, 264)), i % 2 == 0 || i == 15 ? 1u : 0u) << "es_servidor";
        EXPECT_EQ(registro.u16(en_programa(i, 266)), i % 2) << "es_cliente";
    }
    for (size_t i = 3; i < 16; i += 4)
        espera_latido(todos[i]);
    for (size_t i = 1; i < 16; i += 2)
        todos[i].conversa(servicios[i / 2], 1);
    todos[13].conversa(del_ultimo, 1);
    for (size_t i = 0; i < 16; i++)
        EXPECT_EQ(todos[i].num_informes(), 0u) << i;
}

// ---- The seventeenth

TEST_F(limites_programas, decimoseptimo_se_informa_una_vez_y_habla_con_un_servidor_con_ventana)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos"), propio = nombre_unico("propio");
    libre servidor(nombre_unico("servidor"));
    servidor.da_ventana();
    servidor.ofrece({uno, dos});
    servidor.publica();
    llena_tabla();
    std::vector<uint8_t> antes = tabla();

    libre cliente(nombre_unico("diecisiete"));
    cliente.da_ventana();
    cliente.usa(uno);
    cliente.espera_informe("iv_mcbase", SIN_SITIO);
    cliente.usa(dos);
    cliente.ofrece({propio});
    cliente.publica();
    size_t hilos = hilos_de(cliente.pid()).size();
    cliente.conversa(uno, 1);
    cliente.conversa(dos, 2);
    espera_fin_del_latido(cliente, hilos);
    cliente.conversa(uno, 1);

    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u16(en_servicio(servicio_en_tabla(uno), 66)), 16u);
    EXPECT_EQ(registro.u16(en_servicio(servicio_en_tabla(propio), 64)), 16u);
    EXPECT_TRUE(bytes_iguales(antes, tabla()));
    cliente.acaba();
    EXPECT_EQ(cliente.num_informes(), 0u);
    EXPECT_TRUE(bytes_iguales(antes, tabla()));
    EXPECT_EQ(servicio_en_tabla(propio), 32u);
    EXPECT_LT(servicio_en_tabla(uno), 32u);
}

// A server without a window looks for its client's heartbeat in each 25th round in which no command has come yet. Here
// each of its rounds counts as one of those.
TEST_F(limites_programas, decimoseptimo_acaba_con_un_servidor_sin_ventana_que_lo_echa_de_menos)
{
    std::string servicio = nombre_unico("serv");
    libre servidor(nombre_unico("servidor")), con_lugar(nombre_unico("dieciseis"));
    servidor.ofrece({servicio});
    servidor.publica();
    con_lugar.usa(servicio);
    espera_latido(con_lugar);
    llena_tabla();

    bloque_crudo registro("Ivrexa_MCB");
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + servicio).c_str());
    size_t vueltas = en_servicio(servicio_en_tabla(servicio), 72);
    auto manda_a_la_25 = [&](libre &cliente) {
        std::vector<std::string> respuesta;
        cliente.empieza({"MANDA", servicio, "100", "t"});
        std::string linea;
        espera_hasta(
            [&] {
                registro.pon_u32(vueltas, 24);
                std::optional<std::string> llegada = cliente.busca_respuesta();
                linea = llegada.value_or("");
                return llegada.has_value();
            },
            limites_PLAZO_MS);
        return campos(linea).at(1);
    };
    for (int n = 0; n < 3; n++)
        EXPECT_EQ(manda_a_la_25(con_lugar), "1");
    EXPECT_EQ(canal.u16(28), 0u);

    libre cliente(nombre_unico("diecisiete"));
    size_t hilos = hilos_de(cliente.pid()).size();
    cliente.usa(servicio);
    cliente.espera_informe("iv_mcbase", SIN_SITIO);
    EXPECT_EQ(registro.u16(vueltas - 6), 16u) << "id_programa_cliente";
    espera_fin_del_latido(cliente, hilos + 2); // heartbeat and notifications
    std::string resultado = "1";
    for (int n = 0; n < 20 && resultado == "1"; n++) // one that comes between two rounds is taken
        resultado = manda_a_la_25(cliente);
    EXPECT_EQ(resultado, "3");
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(con_lugar.manda(servicio), 3u);
}

// Who waits for it in rounds takes it for dead in the 26th, whatever its window does.
TEST_F(limites_programas, decimoseptimo_con_ventana_sirve_hasta_que_uno_lo_espera_26_rondas)
{
    std::string con_lugar = nombre_unico("con_lugar"), servicio = nombre_unico("serv");
    libre vecino(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    vecino.da_ventana();
    vecino.ofrece({con_lugar});
    vecino.publica();
    cliente.usa(con_lugar);
    llena_tabla();
    std::vector<uint8_t> antes = tabla();
    libre servidor(nombre_unico("diecisiete"));
    servidor.da_ventana();
    servidor.ofrece({servicio});
    servidor.espera_informe("iv_mcbase", SIN_SITIO);
    servidor.publica();
    cliente.usa(servicio);
    cliente.conversa(servicio, 1);

    bloque_crudo canal(("Ivrexa_MCB_Serv_" + servicio).c_str());
    reclama_el_canal(servicio);
    // Its message is sent all the same; a command that is not written is none for the command function.
    EXPECT_EQ(cliente.manda(servicio), 98u);
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(canal.u32(30), 0u);
    EXPECT_EQ(campos(cliente.pide({"HAY", servicio})).at(1), "0") << "it counts as gone";
    cliente.conversa(servicio, 1); // and answers

    // One in the table is waited for as long as it beats.
    reclama_el_canal(con_lugar);
    size_t vueltas = en_servicio(servicio_en_tabla(con_lugar), 88);
    cliente.empieza({"MANDA", con_lugar, "100", "t"});
    EXPECT_TRUE(espera_hasta([&] { return bloque_crudo("Ivrexa_MCB").u32(vueltas) >= 30; }, 20000));
    bloque_crudo(("Ivrexa_MCB_Serv_" + con_lugar).c_str()).pon_u32(1198, 0);
    EXPECT_EQ(campos(cliente.respuesta()).at(1), "1");

    servidor.acaba();
    EXPECT_TRUE(bytes_iguales(antes, tabla()));
    EXPECT_EQ(servicio_en_tabla(servicio), 32u);
}

class limites_diecisiete_sin_ventana : public limites_programas {
protected:
    void SetUp() override
    {
        limites_programas::SetUp();
        cliente.usa(servicio);
        espera_latido(cliente);
        llena_tabla();
        servidor.ofrece({servicio});
        servidor.espera_informe("iv_mcbase", SIN_SITIO);
        servidor.publica();
    }

    const std::string servicio = nombre_unico("serv");
    libre cliente{nombre_unico("cliente")}, servidor{nombre_unico("diecisiete")};
    size_t hilos = hilos_de(servidor.pid()).size();
};

// While a command runs its client waits in the mutex and counts no rounds.
TEST_F(limites_diecisiete_sin_ventana, acaba_un_comando_mas_largo_que_26_rondas)
{
    const char *sigue = nombre_unico("sigue");
    HANDLE evento = CreateEventA(nullptr, TRUE, FALSE, sigue);
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + servicio).c_str());
    cliente.empieza({"MANDA", servicio, "102", sigue});
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(30) == 2; }, 10000));
    uint64_t desde = GetTickCount64();
    EXPECT_TRUE(espera_hasta([&] { return GetTickCount64() - desde > 3200 || canal.u32(30) != 2; }, 10000));
    EXPECT_EQ(canal.u32(30), 2u);
    SetEvent(evento);
    EXPECT_EQ(campos(cliente.respuesta()).at(1), "1");
    EXPECT_EQ(canal.u16(28), 0u);
    CloseHandle(evento);
}

TEST_F(limites_diecisiete_sin_ventana, muere_si_uno_lo_espera_26_rondas)
{
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + servicio).c_str());
    cliente.conversa(servicio, 1);
    reclama_el_canal(servicio);
    EXPECT_EQ(cliente.manda(servicio), 3u);
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_TRUE(espera_hasta([&] { return hilos_de(servidor.pid()).size() == hilos; }, 15000))
        << "heartbeat and loop are gone";
    EXPECT_EQ(canal.u32(30), 0u);
}

TEST_F(limites_programas, sitio_del_que_se_va_es_del_que_llega_y_el_diecisiete_vuelve_a_registrarse)
{
    std::string servicio = nombre_unico("serv");
    libre servidor(nombre_unico("servidor")), se_va(nombre_unico("se_va")), otro_se_va(nombre_unico("se_va"));
    servidor.da_ventana();
    servidor.ofrece({servicio});
    servidor.publica();
    se_va.usa(servicio);
    otro_se_va.usa(servicio);
    llena_tabla();
    libre diecisiete(nombre_unico("diecisiete"));
    diecisiete.usa(servicio);
    diecisiete.espera_informe("iv_mcbase", SIN_SITIO);

    size_t sitio = lugar_de(programas(), se_va.ruta(), 16);
    se_va.acaba();
    libre llega(nombre_unico("llega"));
    llega.usa(servicio);
    EXPECT_EQ(lugar_de(programas(), llega.ruta(), 16), sitio);
    otro_se_va.acaba();
    diecisiete.usa(nombre_unico("otro")); // registered as it is: no second look for a place
    EXPECT_EQ(lugar_de(programas(), diecisiete.ruta(), 16), 16u);
    diecisiete.cierra();
    diecisiete.usa(servicio);
    EXPECT_LT(lugar_de(programas(), diecisiete.ruta(), 16), 16u);
    espera_latido(diecisiete);
    diecisiete.conversa(servicio, 1);
    llega.conversa(servicio, 1);
}

// ---- Killed programs

TEST_F(limites_programas, entrada_de_un_matado_es_del_que_llega_con_su_ruta_segun_sus_ventanas)
{
    std::string servicio = nombre_unico("serv");
    const char *con = nombre_unico("con_ventana"), *sin = nombre_unico("sin_ventana"), *vivo = nombre_unico("vivo");
    libre con_ventana(con), sin_ventana(sin), que_vive(vivo);
    con_ventana.da_ventana();
    que_vive.da_ventana();
    for (libre *p : {&con_ventana, &sin_ventana, &que_vive})
        p->usa(servicio);
    llena_tabla();
    size_t de_con = lugar_de(programas(), con, 16), de_sin = lugar_de(programas(), sin, 16);
    con_ventana.mata();
    sin_ventana.mata();
    EXPECT_EQ(programas().size(), 16u);
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_TRUE(
        espera_hasta([&] { return !IsWindow(reinterpret_cast<HWND>(registro.u64(en_programa(de_con, 256)))); }, 10000));

    // Without a window it cannot tell that the window of that name is dead; nor is a living window's name for another.
    libre otro_con(con), otro_vivo(vivo);
    otro_con.usa(servicio);
    otro_con.espera_informe("iv_mcbase", SIN_SITIO);
    otro_vivo.da_ventana();
    otro_vivo.usa(servicio);
    otro_vivo.espera_informe("iv_mcbase", SIN_SITIO);

    libre heredero_con(con), heredero_sin(sin), con_de_sin(sin);
    uint64_t hwnd = heredero_con.da_ventana();
    heredero_con.usa(servicio);
    EXPECT_EQ(registro.u64(en_programa(de_con, 256)), hwnd);
    heredero_sin.usa(servicio);
    EXPECT_EQ(registro.u64(en_programa(de_sin, 256)), 0u);
    espera_latido(heredero_con);
    espera_latido(heredero_sin);
    EXPECT_EQ(programas().size(), 16u);
    // A program without a window has none that lives: one with a window and its path takes the entry, and shares it.
    hwnd = con_de_sin.da_ventana();
    con_de_sin.usa(servicio);
    EXPECT_EQ(registro.u64(en_programa(de_sin, 256)), hwnd);
    con_de_sin.acaba();
    EXPECT_EQ(lugar_de(programas(), sin, 16), 16u) << "the first to close clears it for both";
}

// Their entries last as long as any program holds the registry, and no longer: not even the living have places then.
TEST_F(limites_programas, tabla_de_matados_esta_llena_hasta_que_nadie_tiene_el_registro)
{
    if (existe_bloque("Ivrexa_MCB"))
        GTEST_SKIP() << "a test before, in the same process, keeps the registry";
    std::string servicio = nombre_unico("serv");
    std::vector<libre> todos;
    for (int i = 0; i < 16; i++) {
        todos.emplace_back(nombre_unico("matado"));
        todos.back().usa(servicio);
    }
    libre llega(nombre_unico("llega")), despues(nombre_unico("despues"));
    for (size_t i = 0; i < 15; i++)
        todos[i].mata();
    llega.usa(servicio);
    llega.espera_informe("iv_mcbase", SIN_SITIO);
    EXPECT_EQ(programas().size(), 16u);
    todos[15].mata();
    EXPECT_EQ(programas().size(), 16u) << "the seventeenth holds the table, and has no place in it";
    llega.cierra(); // what found the registry in being holds it to its end
    EXPECT_EQ(programas().size(), 16u);
    llega.acaba();
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));

    despues.usa(servicio);
    std::map<size_t, std::string> esperados = {{0, despues.ruta()}};
    EXPECT_EQ(programas(), esperados);
}
