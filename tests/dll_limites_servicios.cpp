// Thirty-two services on a desktop and the thirty-third; sixteen in a program and the seventeenth.
#include "comun/hilos_de.h"

#include "dll_limites.h"

static const char *const SIN_SITIO = "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS";

static std::vector<std::string> nombres(size_t num)
{
    std::vector<std::string> n;
    for (size_t i = 0; i < num; i++)
        n.push_back(nombre_unico("serv"));
    return n;
}

class limites_servicios : public limites {
protected:
    // So many services of programs that are no longer there.
    static void llena_tabla()
    {
        bloque_crudo registro("Ivrexa_MCB");
        for (size_t j = 0; j < 32; j++)
            if (registro.u16(en_servicio(j, 0)) % 256 == 0)
                registro.pon_texto(en_servicio(j, 0), "lleno" + std::to_string(j));
    }
    static void vacia_sitio(const std::string &servicio)
    {
        size_t j = lugar_de(servicios_registrados(), servicio, 32);
        bloque_crudo("Ivrexa_MCB").pon_u16(en_servicio(j, 0), 0);
    }
};

// A monitor, as the others see it: its window, and what is posted to it.
class monitor_crudo {
public:
    monitor_crudo()
    {
        m_registro.pon_u16(0, 8886);
        m_registro.pon_u16(2, 256);
        m_registro.pon_u64(6, reinterpret_cast<uint64_t>(m_hwnd));
        m_registro.pon_u32(14, MENSAJE);
        m_registro.pon_u32(18, 1);
    }
    ~monitor_crudo()
    {
        m_registro.pon_u64(6, 0);
        destruye_ventana(&m_hwnd);
    }
    // How many messages have come since the last call.
    uint32_t num_mensajes()
    {
        uint32_t num = 0;
        MSG msg;
        while (PeekMessageW(&msg, m_hwnd, MENSAJE, MENSAJE, PM_REMOVE))
            num++;
        return num;
    }
    uint32_t siguiente() const { return m_registro.u32(18); }

private:
    static const UINT MENSAJE = WM_APP + 7;
    HWND m_hwnd = crea_ventana();
    bloque_crudo m_registro{"Ivrexa_MCB"};
};

// ---- All thirty-two

TEST_F(limites_servicios, treinta_y_dos_de_dos_servidores_contestan_el_primero_y_el_ultimo)
{
    std::vector<std::string> suyos = nombres(16), otros = nombres(16);
    libre con_ventana(nombre_unico("servidor")), sin_ventana(nombre_unico("servidor")),
        cliente(nombre_unico("cliente"));
    con_ventana.da_ventana();
    con_ventana.ofrece(suyos);
    con_ventana.publica();
    sin_ventana.ofrece(otros);
    sin_ventana.publica();
    std::map<size_t, std::string> esperados;
    for (size_t j = 0; j < 32; j++)
        esperados[j] = j < 16 ? suyos[j] : otros[j - 16];
    EXPECT_EQ(servicios_registrados(), esperados);
    cliente.usa(suyos[0]);
    cliente.usa(otros[15]);
    espera_latido(cliente);
    cliente.conversa(suyos[0], 1);
    cliente.conversa(otros[15], 16);
    EXPECT_EQ(con_ventana.num_informes() + sin_ventana.num_informes() + cliente.num_informes(), 0u);
}

// Four clients for four each, at the same time: a command on a server without a window takes some rounds.
TEST_F(limites_servicios, dieciseis_sin_ventana_contestan_cada_uno_por_su_hilo_y_el_diecisiete_no_existe)
{
    std::vector<std::string> servicios = nombres(17);
    libre servidor(nombre_unico("servidor"));
    servidor.ofrece(servicios);
    servidor.espera_informe("iv_reg", "s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS");
    size_t hilos = hilos_de(servidor.pid()).size();
    servidor.publica();
    EXPECT_EQ(hilos_de(servidor.pid()).size(), hilos + 16);
    std::vector<libre> clientes;
    for (int n = 0; n < 4; n++) {
        clientes.emplace_back(nombre_unico("cliente"));
        for (size_t i = 0; i < 4; i++)
            clientes.back().usa(servicios[4 * clientes.size() - 4 + i]);
    }
    for (libre &c : clientes)
        espera_latido(c);
    for (size_t i = 0; i < 4; i++) {
        for (size_t n = 0; n < 4; n++)
            clientes[n].empieza({"MANDA", servicios[4 * n + i], "100", "t"});
        for (size_t n = 0; n < 4; n++) {
            std::vector<std::string> r = campos(clientes[n].respuesta());
            EXPECT_EQ(r.at(1), "1") << 4 * n + i;
            EXPECT_EQ(r.at(3), std::to_string(4 * n + i + 1));
            EXPECT_EQ(r.at(4), servicios[4 * n + i]);
        }
    }
    EXPECT_EQ(campos(clientes[0].pide({"HAY", servicios[15]})).at(2), "516");
    EXPECT_EQ(campos(clientes[0].pide({"HAY", servicios[16]})).at(1), "0");
    EXPECT_EQ(clientes[0].manda(servicios[16]), 3u) << "no client of it";
}

TEST_F(limites_servicios, diecisiete_usados_son_dieciseis_y_el_otro_da_3_sin_una_palabra)
{
    std::vector<std::string> servicios = nombres(15), ofrecidos = nombres(2);
    libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    servidor.da_ventana();
    servidor.ofrece(ofrecidos);
    servidor.publica();
    size_t hilos = hilos_de(cliente.pid()).size();
    for (const std::string &s : servicios)
        cliente.usa(s);
    cliente.usa(ofrecidos[0]);
    EXPECT_EQ(hilos_de(cliente.pid()).size(), hilos + 17) << "the heartbeat, and one for each service";
    cliente.usa(ofrecidos[1]);
    EXPECT_EQ(hilos_de(cliente.pid()).size(), hilos + 17);
    cliente.conversa(ofrecidos[0], 1);
    EXPECT_EQ(cliente.manda(ofrecidos[1]), 3u);
    EXPECT_EQ(cliente.pide({"MENSAJE", ofrecidos[1]}), "MENSAJE|0");
    bloque_crudo registro("Ivrexa_MCB");
    size_t j = lugar_de(servicios_registrados(), ofrecidos[1], 32);
    EXPECT_EQ(registro.u16(en_servicio(j, 66)), 0u) << "id_programa_cliente";
    EXPECT_EQ(cliente.num_informes(), 0u);
}

// ---- The thirty-third

TEST_F(limites_servicios, trigesimo_tercero_con_ventana_contesta_y_ningun_monitor_lo_ve)
{
    std::vector<std::string> servicios = nombres(2);
    libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    servidor.da_ventana();
    servidor.ofrece({servicios[0]});
    servidor.publica();
    llena_tabla();
    std::map<size_t, std::string> antes = servicios_registrados();
    monitor_crudo monitor;
    libre otro(nombre_unico("servidor"));
    otro.da_ventana();
    otro.ofrece({servicios[1]});
    otro.publica();
    otro.espera_informe("iv_mcbase", SIN_SITIO, 2); // it is entered, and announced
    cliente.usa(servicios[1]);
    cliente.espera_informe("iv_mcbase", SIN_SITIO);
    cliente.conversa(servicios[1], 1);
    otro.cierra();
    EXPECT_EQ(monitor.siguiente(), 1u);
    EXPECT_EQ(monitor.num_mensajes(), 0u);
    EXPECT_EQ(servicios_registrados(), antes);

    // One that is in the table is seen: opening and closing record, input, its reading, output, its reading.
    cliente.usa(servicios[0]);
    cliente.conversa(servicios[0], 1);
    EXPECT_EQ(monitor.siguiente(), 7u);
    EXPECT_EQ(monitor.num_mensajes(), 6u);
}

TEST_F(limites_servicios, trigesimo_tercero_sin_ventana_acaba_en_su_primera_ronda)
{
    std::string servicio = nombre_unico("serv");
    libre cliente(nombre_unico("cliente")), servidor(nombre_unico("servidor"));
    cliente.usa(nombre_unico("otro"));
    llena_tabla();
    monitor_crudo monitor;
    size_t hilos = hilos_de(servidor.pid()).size();
    servidor.ofrece({servicio});
    servidor.publica();
    servidor.espera_informe("iv_mcbase", SIN_SITIO, 2);
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + servicio).c_str());
    EXPECT_TRUE(espera_hasta([&] { return canal.u16(28) == 1 && canal.u32(30) == 0; }, 10000));
    EXPECT_TRUE(espera_hasta([&] { return hilos_de(servidor.pid()).size() == hilos + 1; }, 10000)) << "the heartbeat";
    EXPECT_EQ(campos(cliente.pide({"HAY", servicio})).at(1), "0");
    cliente.usa(servicio);
    cliente.espera_informe("iv_mcbase", SIN_SITIO);
    EXPECT_EQ(cliente.manda(servicio), 3u);
    EXPECT_EQ(monitor.siguiente(), 1u);
    EXPECT_EQ(monitor.num_mensajes(), 0u);

    // Registered anew when there is room, it serves; so does a client.
    vacia_sitio("lleno5");
    for (libre *p : {&servidor, &cliente})
        p->cierra();
    servidor.ofrece({servicio});
    servidor.publica();
    EXPECT_EQ(lugar_de(servicios_registrados(), servicio, 32), 5u);
    cliente.usa(servicio);
    espera_latido(cliente);
    cliente.conversa(servicio, 1);
}

// Its own rounds give up at once, whatever the server is at. The channel here has no server behind it: a real one may
// come between two of the client's steps, and then meets states that it reports (docs/survival.md).
TEST_F(limites_servicios, cliente_que_no_cupo_no_espera_a_un_servidor_sin_ventana)
{
    std::string servicio = nombre_unico("serv");
    libre no_cupo(nombre_unico("no_cupo"));
    no_cupo.usa(nombre_unico("otro")); // the registry is there
    llena_tabla();
    no_cupo.usa(servicio);
    no_cupo.espera_informe("iv_mcbase", SIN_SITIO);
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + servicio).c_str(), 2378);
    for (uint32_t estado_servidor : {1u, 2u, 3u}) {
        canal.pon_u32(8, 1); // a result that nobody may take for this command's
        canal.pon_u32(30, estado_servidor);
        EXPECT_EQ(no_cupo.manda(servicio), 3u) << estado_servidor;
        EXPECT_EQ(canal.u32(4), 0u) << "info_estadoComando";
        EXPECT_EQ(canal.u32(1198), 0u) << "ocupacion";
        EXPECT_EQ(canal.u32(1202), 0u) << "id_comando";
        EXPECT_EQ(canal.u32(30), estado_servidor);
        EXPECT_EQ(canal.u16(28), 0u) << "servidor_terminado";
    }
}

TEST_F(limites_servicios, cliente_que_no_cupo_habla_cuando_se_registra_de_nuevo_y_hay_sitio)
{
    std::string servicio = nombre_unico("serv");
    libre no_cupo(nombre_unico("no_cupo")), cupo(nombre_unico("cupo")), servidor(nombre_unico("servidor"));
    cupo.usa(nombre_unico("otro"));
    llena_tabla();
    no_cupo.usa(servicio);
    no_cupo.espera_informe("iv_mcbase", SIN_SITIO);
    vacia_sitio("lleno31");
    servidor.ofrece({servicio});
    servidor.publica();
    EXPECT_EQ(lugar_de(servicios_registrados(), servicio, 32), 31u);
    cupo.usa(servicio);
    espera_latido(cupo);
    cupo.conversa(servicio, 1);
    no_cupo.cierra();
    no_cupo.usa(servicio);
    espera_latido(no_cupo);
    no_cupo.conversa(servicio, 1);
    EXPECT_EQ(bloque_crudo(("Ivrexa_MCB_Serv_" + servicio).c_str()).u16(28), 0u);
}

// The close of a server frees the places of its services, and only those.
TEST_F(limites_servicios, retirada_deja_sitio_para_el_siguiente)
{
    std::vector<std::string> suyos = nombres(16), otros = nombres(16), nuevos = nombres(2);
    libre uno(nombre_unico("servidor")), dos(nombre_unico("servidor")), tres(nombre_unico("servidor")),
        cliente(nombre_unico("cliente"));
    for (libre *p : {&uno, &dos, &tres})
        p->da_ventana();
    uno.ofrece(suyos);
    dos.ofrece(otros);
    tres.ofrece({nuevos[0]});
    uno.publica();
    dos.publica();
    tres.publica();
    tres.espera_informe("iv_mcbase", SIN_SITIO, 2);
    uno.cierra();
    EXPECT_EQ(servicios_registrados().size(), 16u);
    tres.ofrece({nuevos[1]});
    tres.publica(); // announces both: now the first has a place as well
    std::map<size_t, std::string> registrados = servicios_registrados();
    EXPECT_EQ(registrados[0], nuevos[0]);
    EXPECT_EQ(registrados[1], nuevos[1]);
    EXPECT_EQ(registrados.size(), 18u);
    for (const std::string &s : {nuevos[0], nuevos[1], otros[15]})
        cliente.usa(s);
    cliente.conversa(nuevos[0], 1);
    cliente.conversa(nuevos[1], 2);
    cliente.conversa(otros[15], 16);
    dos.mata(); // what a killed one offered stays
    EXPECT_EQ(servicios_registrados().size(), 18u);
}
