// Programs that stand still for longer than a heartbeat may stay away, as in a debugger, and go on later. Who waits for
// a mutex waits as long; who counts heartbeats takes them for dead; afterwards everybody ends and nothing stays locked.
#include "muertes_canal.h"

namespace {

enum : uint32_t { MAS_QUE_LA_REGLA_MS = 3500 };

class suspendidos : public con_tanda {
protected:
    const std::string servicio = nombre_unico("serv");

    // The victim stands at the place, and then altogether.
    void para(papel &victima, const std::string &punto, const std::string &orden, lugar donde = lugar::aqui())
    {
        m_parada = std::make_unique<parada>(victima);
        arma_en(victima, punto, 1, "PARA", donde);
        if (!orden.empty())
            victima.di(orden, donde);
        m_parada->espera(donde);
        victima.suspende();
    }

    void sigue(papel &victima)
    {
        victima.reanuda();
        m_parada->sigue();
    }

    void registra_y_late()
    {
        registra(servicio);
        espera_latido(ruta());
    }

    void haz_de_servidor(papel &victima)
    {
        pide(victima, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
        pide(victima, "TERMINADO_REGISTRO", "PUBLICADO");
    }

    void haz_de_cliente(papel &victima)
    {
        pide(victima, "REGISTRA_CLIENTE " + servicio, "SOLICITADO");
        espera_latido(ruta_de(victima));
    }

    std::string ejecuta_callado() const { return "EJECUTA " + servicio + " " + std::to_string(COMANDO_CALLADO); }

    // The call waits, for longer than a dead peer would be waited for.
    static void sigue_esperando(const llamada &en_espera)
    {
        espera_hasta([&] { return en_espera.hecha() || en_espera.dura_ms() >= MAS_QUE_LA_REGLA_MS; }, RONDAS_MS);
        EXPECT_FALSE(en_espera.hecha()) << "the call came back after " << en_espera.dura_ms() << " ms";
    }

private:
    std::unique_ptr<parada> m_parada;
};

// ---- The service's mutex is held

TEST_F(suspendidos, servidor_parado_en_su_comando_hace_esperar_y_luego_responde)
{
    empieza_vecinos();
    papel servidor = nueva_victima("sin_ventana");
    haz_de_servidor(servidor);
    registra_y_late();
    canal_visto canal(servicio);
    parada en_comando(servidor);
    arma_en(servidor, "servidor en ejecucion", 1, "PARA");
    llamada en_espera(servicio, COMANDO_CALLADO);
    en_comando.espera();
    servidor.suspende();
    comprueba_supervivencia();
    sigue_esperando(en_espera);
    EXPECT_FALSE(canal.terminado());

    servidor.reanuda();
    en_comando.sigue();
    EXPECT_EQ(en_espera.resultado(), 1u);
    canal.comprueba_libre();
    EXPECT_FALSE(canal.terminado());
    conversa_en(servicio);
}

struct parada_de_cliente {
    const char *clase;
    const char *punto;
};

std::ostream &operator<<(std::ostream &salida, const parada_de_cliente &p)
{
    return salida << p.clase << ", " << p.punto;
}

class suspendido_con_el_cerrojo : public suspendidos, public ::testing::WithParamInterface<parada_de_cliente> {};

TEST_P(suspendido_con_el_cerrojo, todos_los_del_servicio_esperan_y_luego_acaban)
{
    empieza_vecinos();
    papel servidor = arranca_servidor(GetParam().clase, servicio);
    registra(servicio);
    papel cliente = nueva_victima("sin_ventana");
    haz_de_cliente(cliente);
    canal_visto canal(servicio);
    para(cliente, GetParam().punto, ejecuta_callado());
    llamada en_espera(servicio, COMANDO_CALLADO);
    comprueba_supervivencia();
    sigue_esperando(en_espera);
    EXPECT_FALSE(canal.terminado());

    sigue(cliente);
    EXPECT_EQ(resultado_de(cliente), 1u);
    en_espera.resultado(); // two clients at once: the number of its command may have been taken out
    EXPECT_TRUE(en_espera.hecha());
    canal.comprueba_libre();
    EXPECT_FALSE(canal.terminado());
    conversa_en(servicio);
}

const parada_de_cliente PARADAS[] = {
    {"sin_ventana", "entra 16"},
    {"sin_ventana", "comando ocupacion escribe"},
    {"sin_ventana", "entra 19"},
    {"ventana", "comando ocupacion escribe"},
};

INSTANTIATE_TEST_SUITE_P(en, suspendido_con_el_cerrojo, ::testing::ValuesIn(PARADAS), [](const auto &dato) {
    std::string nombre = std::string(dato.param.clase) + "_" + dato.param.punto;
    for (char &c : nombre)
        c = c == ' ' ? '_' : c;
    return nombre;
});

// ---- No mutex of the service is held

// The server took its client for dead, went on and ended the service.
TEST_F(suspendidos, cliente_parado_ante_su_resultado_recibe_3_si_el_servicio_ha_acabado)
{
    empieza_vecinos();
    papel servidor = arranca_servidor("sin_ventana", servicio);
    registra(servicio);
    papel cliente = nueva_victima("sin_ventana");
    haz_de_cliente(cliente);
    canal_visto canal(servicio);
    para(cliente, "espera 18", ejecuta_callado());
    comprueba_supervivencia();
    canal.espera_terminado();
    sigue(cliente);
    EXPECT_EQ(resultado_de(cliente), 3u);
    canal.comprueba_libre();
    pide(servidor, "ESPERA", "ESPERADO");
    cierra_servicio(servidor);
    reabre_servicio(servidor);
    conversa_en(servicio);
    pide(cliente, ejecuta_callado(), "RESULTADO 1");
}

// It goes on between the two: its command is over for the server, whose next wait sees the heartbeat again. Both wait
// until the service ends. Killed instead, the client leaves its claim.
TEST_F(suspendidos, cliente_que_vuelve_cuando_lo_dieron_por_muerto_espera_hasta_el_cierre)
{
    const std::vector<std::string> servicios = nombra_servicios(2);
    papel servidor = arranca_servidor("sin_ventana", lista(servicios));
    std::vector<papel> clientes;
    std::vector<canal_visto> canales;
    std::vector<std::unique_ptr<parada>> paradas;
    for (const std::string &s : servicios) {
        registra(s);
        clientes.push_back(nueva_victima("sin_ventana"));
        pide(clientes.back(), "REGISTRA_CLIENTE " + s, "SOLICITADO");
        canales.emplace_back(s);
        paradas.push_back(std::make_unique<parada>(clientes.back()));
    }
    for (size_t i = 0; i < 2; i++) {
        espera_latido(ruta_de(clientes[i]));
        arma_en(clientes[i], "espera 18", 1, "PARA");
        clientes[i].di("EJECUTA " + servicios[i] + " 121");
        paradas[i]->espera();
        clientes[i].suspende();
    }
    for (size_t i = 0; i < 2; i++) {
        EXPECT_TRUE(espera_hasta([&] { return canales[i].info() == 5; }, RESPONDE_MS));
        clientes[i].reanuda();
        paradas[i]->sigue();
    }
    for (const canal_visto &canal : canales) {
        espera_rondas([&] { return canal.bucle_cliente() == 3 ? canal.vueltas_cliente() : 0; });
        EXPECT_FALSE(canal.terminado());
        EXPECT_EQ(canal.ocupacion(), 2u);
    }
    clientes[1].mata();
    cierra_servicio(servidor);
    EXPECT_EQ(resultado_de(clientes[0]), 3u);
    EXPECT_EQ(canales[1].ocupacion(), 2u);
    EXPECT_EQ(ejecuta(servicios[1], COMANDO_CALLADO).resultado, 3u);
    reabre_servicio(servidor);
    for (size_t i = 0; i < 2; i++) {
        canales[i].comprueba_libre();
        conversa_en(servicios[i]);
    }
}

// A server that was taken for dead finds its service ended when it comes back: its thread leaves, without a report.
TEST_F(suspendidos, servidor_sin_ventana_parado_vuelve_a_un_servicio_acabado)
{
    empieza_vecinos();
    papel servidor = nueva_victima("sin_ventana");
    haz_de_servidor(servidor);
    registra_y_late();
    canal_visto canal(servicio);
    para(servidor, "espera 29", "");
    EXPECT_EQ(llamada(servicio, COMANDO_CALLADO).resultado(), 3u);
    canal.comprueba_libre();
    EXPECT_TRUE(canal.terminado());
    comprueba_supervivencia();

    sigue(servidor);
    pide(servidor, "ESPERA", "ESPERADO");
    EXPECT_EQ(canal.estado(), 0u);
    EXPECT_EQ(ejecuta(servicio, COMANDO_CALLADO).resultado, 3u);
    canal.comprueba_libre();
    cierra_servicio(servidor);
    reabre_servicio(servidor);
    conversa_en(servicio);
}

// The first call waits in the window's queue. A second one waits for the channel, takes the server for dead and goes to
// the window too. Both are answered; the mark stays until the server announces its service again.
TEST_F(suspendidos, servidor_con_ventana_parado_responde_a_todos_y_queda_marcado)
{
    empieza_vecinos();
    papel servidor = arranca_servidor("ventana", servicio);
    registra(servicio);
    papel otro = arranca_cliente("sin_ventana", servicio);
    canal_visto canal(servicio);
    servidor.suspende();
    llamada en_espera(servicio, COMANDO_CALLADO);
    EXPECT_TRUE(espera_hasta([&] { return canal.ocupacion() == 2; }, RESPONDE_MS));
    otro.di("COMANDO 121");
    EXPECT_TRUE(espera_hasta([&] { return canal.terminado(); }, RESPONDE_MS));
    comprueba_supervivencia();
    EXPECT_FALSE(en_espera.hecha());

    servidor.reanuda();
    EXPECT_EQ(en_espera.resultado(), 1u);
    EXPECT_EQ(resultado_de(otro), 1u);
    canal.comprueba_libre();
    EXPECT_TRUE(canal.terminado());
    EXPECT_EQ(canal.estado(), 0u);
    conversa_en(servicio);
    pide(servidor, "PUBLICA", "PUBLICADO");
    EXPECT_FALSE(canal.terminado());
    conversa_en(servicio);
}

TEST_F(suspendidos, cliente_parado_sin_hacer_nada_no_estorba)
{
    empieza_vecinos();
    papel servidor = arranca_servidor("sin_ventana", servicio);
    registra_y_late();
    papel cliente = nueva_victima("sin_ventana");
    haz_de_cliente(cliente);
    cliente.suspende();
    comprueba_supervivencia();
    canal_visto canal(servicio);
    uint32_t desde = canal.vueltas_servidor();
    espera_rondas([&] { return canal.vueltas_servidor() - desde; });
    EXPECT_FALSE(canal.terminado());
    conversa_en(servicio);
    cliente.reanuda();
    pide(cliente, ejecuta_callado(), "RESULTADO 1");
}

// ---- A mutex of all programs is held

struct parada_general {
    const char *punto;
    const char *orden; // that leads there, "" for the heartbeat
};

std::ostream &operator<<(std::ostream &salida, const parada_general &p)
{
    return salida << p.punto;
}

class suspendido_con_el_de_todos : public suspendidos, public ::testing::WithParamInterface<parada_general> {};

// The heartbeats stand still as well, and so do the rounds that would miss them.
TEST_P(suspendido_con_el_de_todos, los_demas_esperan_y_nadie_pasa_por_muerto)
{
    pareja vecinos("ventana", nombre_unico("vecino"));
    papel servidor = arranca_servidor("sin_ventana", servicio);
    papel victima = nueva_victima("sin_ventana");
    haz_de_cliente(victima);
    std::string orden = GetParam().orden;
    if (!orden.empty())
        orden += orden == "EJECUTA" ? " " + servicio + " 121" : std::string(" ") + nombre_unico("otro");
    para(victima, GetParam().punto, orden);
    llama(vecinos.cliente);
    sigue_llamando(vecinos.cliente, MAS_QUE_LA_REGLA_MS);

    sigue(victima);
    EXPECT_EQ(resultado_de(vecinos.cliente), 1u);
    EXPECT_FALSE(canal_visto(servicio).terminado());
    if (orden.empty())
        pide(victima, ejecuta_callado(), "RESULTADO 1");
    else
        victima.espera_linea(orden[0] == 'E' ? "RESULTADO 1" : "SOLICITADO", RESPONDE_MS);
    vecinos.conversa();
    comprueba_supervivencia();
}

const parada_general PARADAS_GENERALES[] = {
    {"entra 12", "EJECUTA"},
    {"entra 14", ""},
    {"entra 8", "REGISTRA_CLIENTE"},
    {"heap entra", "REGISTRA_CLIENTE"},
};

INSTANTIATE_TEST_SUITE_P(en, suspendido_con_el_de_todos, ::testing::ValuesIn(PARADAS_GENERALES), [](const auto &dato) {
    std::string nombre = dato.param.punto;
    for (char &c : nombre)
        c = c == ' ' ? '_' : c;
    return nombre;
});

} // namespace
