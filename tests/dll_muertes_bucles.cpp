// Programs that die while they wait, or leave others waiting: whose heartbeat is missed, whose is not, and the ways out
// of a channel that stays claimed.
#include "muertes_canal.h"

namespace {

// A server without a window, and this process as its client; the victim registers in between or last.
class bucles : public con_tanda {
protected:
    const std::string servicio = nombre_unico("serv");

    void empieza(const std::string &clase)
    {
        empieza_vecinos();
        m_servidor = std::make_unique<papel>(arranca_servidor(clase, servicio));
    }

    papel &servidor() { return *m_servidor; }

    void registra_y_late()
    {
        registra(servicio);
        espera_latido(ruta());
    }

    void haz_de_cliente(papel &victima)
    {
        pide(victima, "REGISTRA_CLIENTE " + servicio, "SOLICITADO");
        espera_latido(ruta_de(victima));
    }

    void muere_en(papel &victima, const std::string &punto)
    {
        arma_en(victima, punto, 1);
        victima.di(ejecuta_callado());
        espera_muerte_de(victima);
    }

    void muere_un_cliente_en(const std::string &punto)
    {
        papel victima = nueva_victima("sin_ventana");
        haz_de_cliente(victima);
        muere_en(victima, punto);
    }

    std::string ejecuta_callado() const { return "EJECUTA " + servicio + " " + std::to_string(COMANDO_CALLADO); }

    // The server closes under the call that waits, which ends with the result and frees the channel.
    void sale_cerrando(const llamada &en_espera, uint32_t resultado)
    {
        canal_visto canal(servicio);
        EXPECT_FALSE(en_espera.hecha());
        cierra_servicio(servidor());
        EXPECT_EQ(en_espera.resultado(), resultado);
        canal.comprueba_libre();
        reabre_servicio(servidor());
        conversa_en(servicio);
    }

private:
    std::unique_ptr<papel> m_servidor;
};

// ---- Whose heartbeat is missed

// The call has set the server's snapshot to 0, and the dead client's heartbeat stands at more: that never counts as
// dead.
TEST_F(bucles, servidor_que_ya_esperaba_no_echa_en_falta_a_quien_muere_reclamando)
{
    empieza("sin_ventana");
    registra_y_late();
    papel victima = nueva_victima("sin_ventana");
    haz_de_cliente(victima);
    canal_visto canal(servicio);
    EXPECT_EQ(canal.bucle_servidor(), 1u);
    muere_en(victima, "comando ocupacion escribe");
    uint32_t desde = canal.vueltas_servidor();
    espera_rondas([&] { return canal.vueltas_servidor() - desde; });
    EXPECT_FALSE(canal.terminado());
    EXPECT_EQ(canal.en_curso(), static_cast<uint32_t>(COMANDO_CALLADO));
    sale_cerrando(llamada(servicio, COMANDO_CALLADO), 3);
}

// A client that frees the channel and dies before it takes its mark out of the registry is missed by the server, which
// ends the service, unless somebody calls before.
TEST_F(bucles, muerte_tras_soltar_el_canal_acaba_el_servicio_si_nadie_llama)
{
    empieza("sin_ventana");
    registra_y_late();
    canal_visto canal(servicio);
    muere_un_cliente_en("comando libre");
    EXPECT_EQ(canal.ocupacion(), 0u);
    canal.espera_terminado();
    pide(servidor(), "ESPERA", "ESPERADO");
    EXPECT_EQ(ejecuta(servicio, COMANDO_CALLADO).resultado, 3u);
    canal.comprueba_libre();
    cierra_servicio(servidor());
    reabre_servicio(servidor());
    conversa_en(servicio);
}

// The dead client's mark stays in the entry, where the next server without a window finds it and ends; a new client's
// registration takes it out.
TEST_F(bucles, marca_del_muerto_acaba_al_servidor_siguiente_hasta_que_alguien_se_registra)
{
    empieza("ventana");
    canal_visto canal(servicio);
    muere_un_cliente_en("comando libre");
    servidor().mata();
    papel siguiente = arranca_servidor("sin_ventana", servicio);
    EXPECT_EQ(canal.en_curso(), static_cast<uint32_t>(COMANDO_CALLADO));
    canal.espera_terminado();
    cierra_servicio(siguiente);
    registra(servicio);
    EXPECT_EQ(canal.en_curso(), 0u);
    reabre_servicio(siguiente);
    espera_rondas([&] { return canal.vueltas_servidor(); });
    EXPECT_FALSE(canal.terminado());
    espera_latido(ruta());
    conversa_en(servicio);
}

// The heartbeat that is looked at is the last registered client's, whoever runs the command.
TEST_F(bucles, muerto_no_se_echa_en_falta_si_otro_se_registro_despues)
{
    empieza("sin_ventana");
    papel victima = nueva_victima("sin_ventana");
    haz_de_cliente(victima);
    registra_y_late();
    canal_visto canal(servicio);
    muere_en(victima, "sale 16");
    espera_rondas([&] { return canal.bucle_servidor() == 2 ? canal.vueltas_servidor() : 0; });
    EXPECT_FALSE(canal.terminado());
    EXPECT_EQ(canal.en_curso(), static_cast<uint32_t>(COMANDO_CALLADO));
    EXPECT_EQ(canal.ocupacion(), 2u);
    sale_cerrando(llamada(servicio, COMANDO_CALLADO), 3);
}

// A call clears the server's snapshot of the dead client's heartbeat.
TEST_F(bucles, quien_llama_mientras_se_echa_en_falta_al_muerto_espera_con_el_servidor)
{
    empieza("sin_ventana");
    registra_y_late();
    canal_visto canal(servicio);
    muere_un_cliente_en("sale 16");
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_servidor() == 2; }, RESPONDE_MS));
    llamada en_espera(servicio, COMANDO_CALLADO);
    espera_rondas([&] { return canal.vueltas_servidor(); });
    EXPECT_EQ(canal.bucle_servidor(), 2u);
    EXPECT_EQ(canal.bucle_cliente(), 1u);
    EXPECT_FALSE(canal.terminado());
    sale_cerrando(en_espera, 3);
}

// A new client's registration takes the mark of a command under way out of the registry: the server waits on.
TEST_F(bucles, cliente_nuevo_mientras_se_echa_en_falta_al_muerto_espera_con_el_servidor)
{
    empieza("sin_ventana");
    canal_visto canal(servicio);
    muere_un_cliente_en("sale 16");
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_servidor() == 2; }, RESPONDE_MS));
    registra(servicio);
    EXPECT_EQ(canal.en_curso(), 0u);
    espera_rondas([&] { return canal.vueltas_servidor(); });
    EXPECT_EQ(canal.bucle_servidor(), 2u);
    EXPECT_FALSE(canal.terminado());
    sale_cerrando(llamada(servicio, COMANDO_CALLADO), 3);
}

// ---- Ways out of a channel that stays claimed

TEST_F(bucles, reabrir_sin_que_nadie_haya_llamado_no_libera_el_canal)
{
    empieza("ventana");
    registra(servicio);
    canal_visto canal(servicio);
    muere_un_cliente_en("comando en curso");
    cierra_servicio(servidor());
    reabre_servicio(servidor());
    EXPECT_EQ(canal.ocupacion(), 2u);
    EXPECT_FALSE(canal.terminado());
    llamada en_espera(servicio, COMANDO_CALLADO);
    espera_rondas([&] { return canal.bucle_cliente() == 1 ? canal.vueltas_cliente() : 0; });
    sale_cerrando(en_espera, 77);
}

// One call while the service is closed is enough.
TEST_F(bucles, una_llamada_al_servicio_cerrado_libera_el_canal)
{
    for (const char *clase : {"ventana", "sin_ventana"}) {
        SCOPED_TRACE(clase);
        std::string servicio = nombre_unico("serv");
        papel servidor = arranca_servidor(clase, servicio);
        registra(servicio);
        espera_latido(ruta());
        papel victima = nueva_victima("sin_ventana");
        pide(victima, "REGISTRA_CLIENTE " + servicio, "SOLICITADO");
        canal_visto canal(servicio);
        arma_en(victima, "comando hwnd_cliente", 1);
        espera_latido(ruta_de(victima));
        victima.di("EJECUTA " + servicio + " " + std::to_string(COMANDO_CALLADO));
        espera_muerte_de(victima);
        cierra_servicio(servidor);
        EXPECT_EQ(canal.ocupacion(), 1u);
        EXPECT_EQ(ejecuta(servicio, COMANDO_CALLADO).resultado, resultado_sin_servicio(clase));
        canal.comprueba_libre();
        reabre_servicio(servidor);
        conversa_en(servicio);
    }
}

// Command 1 to a window is posted, and needs no claim. The call that waited is answered by the window all the same.
TEST_F(bucles, terminar_servidor_libera_a_quien_espera_a_un_servidor_con_ventana)
{
    empieza("ventana");
    registra(servicio);
    canal_visto canal(servicio);
    muere_un_cliente_en("comando en curso");
    llamada en_espera(servicio, COMANDO_CALLADO);
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_cliente() == 1; }, RESPONDE_MS));
    ivrexa_terminar_servidor(servicio.c_str());
    servidor().espera_linea("QUIT 1", RESPONDE_MS);
    EXPECT_EQ(en_espera.resultado(), 1u);
    canal.comprueba_libre();
    cierra_servicio(servidor());
    reabre_servicio(servidor());
    conversa_en(servicio);
}

// Without a window command 1 is a call like any other: it waits too.
TEST_F(bucles, terminar_servidor_espera_tambien_si_el_servidor_no_tiene_ventana)
{
    empieza("sin_ventana");
    registra_y_late();
    canal_visto canal(servicio);
    muere_un_cliente_en("comando ocupacion escribe");
    llamada en_espera(servicio, 1);
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_cliente() == 1 && canal.vueltas_cliente() >= 5; }, RONDAS_MS));
    EXPECT_EQ(canal.bucle_cliente(), 1u);
    EXPECT_FALSE(canal.terminado());
    sale_cerrando(en_espera, 3);
}

// A server's program needs nobody else: closed, it is its own client for one call.
TEST_F(bucles, el_programa_del_servidor_libera_su_canal_el_solo)
{
    for (const char *clase : {"ventana", "sin_ventana"}) {
        SCOPED_TRACE(clase);
        std::string servicio = nombre_unico("serv");
        papel servidor = nueva_victima(clase);
        pide(servidor, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
        pide(servidor, "TERMINADO_REGISTRO", "PUBLICADO");
        registra(servicio);
        papel victima = nueva_victima("sin_ventana");
        pide(victima, "REGISTRA_CLIENTE " + servicio, "SOLICITADO");
        espera_latido(ruta_de(victima));
        canal_visto canal(servicio);
        arma_en(victima, "comando hwnd_cliente", 1);
        victima.di("EJECUTA " + servicio + " " + std::to_string(COMANDO_CALLADO));
        espera_muerte_de(victima);

        cierra_servicio(servidor);
        pide(servidor, "REGISTRA_CLIENTE " + servicio, "SOLICITADO");
        pide(servidor, "EJECUTA " + servicio + " " + std::to_string(COMANDO_CALLADO), "RESULTADO ");
        canal.comprueba_libre();
        cierra_servicio(servidor);
        reabre_servicio(servidor);
        conversa_en(servicio);
    }
}

// A block that nobody holds vanishes, and its claim with it.
TEST_F(bucles, cuando_todos_los_programas_del_servicio_acaban_el_canal_es_nuevo)
{
    empieza_vecinos();
    pareja propios("ventana", servicio);
    papel victima = nueva_victima("sin_ventana");
    haz_de_cliente(victima);
    muere_en(victima, "comando en curso");
    EXPECT_TRUE(existe_bloque(nombre_canal(servicio).c_str()));
    for (papel *p : {&propios.servidor, &propios.cliente})
        acaba(*p);
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
    pareja nuevos("ventana", servicio);
    nuevos.conversa();
}

// ---- Killed from outside while they wait

TEST_F(bucles, cliente_muerto_en_su_estado_1_no_deja_rastro)
{
    empieza("ventana");
    registra(servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    canal_visto canal(servicio);
    llamada primera(servicio, 103);
    servidor().espera_linea("DENTRO", RESPONDE_MS);
    cliente.di("COMANDO 121");
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_cliente() == 1; }, RESPONDE_MS));
    cliente.mata();
    servidor().di("SIGUE");
    EXPECT_EQ(primera.resultado(), 1u);
    canal.comprueba_libre();
    conversa_en(servicio);
    comprueba_supervivencia();
}

// A server that stands still for a moment, and its client dies meanwhile.
struct espera_de_cliente {
    uint32_t estado;
    const char *donde; // where the server stands
};

std::ostream &operator<<(std::ostream &salida, const espera_de_cliente &espera)
{
    return salida << espera.estado;
}

class bucles_de_cliente : public bucles, public ::testing::WithParamInterface<espera_de_cliente> {};

TEST_P(bucles_de_cliente, cliente_muerto_en_su_estado_acaba_el_servicio)
{
    empieza_vecinos();
    papel lento = nueva_victima("sin_ventana");
    pide(lento, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
    pide(lento, "TERMINADO_REGISTRO", "PUBLICADO");
    registra(servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    espera_latido(ruta_de(cliente));
    canal_visto canal(servicio);
    parada quieto(lento);
    arma_en(lento, GetParam().donde, 1, "PARA");
    cliente.di("COMANDO 121");
    quieto.espera();
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_cliente() == GetParam().estado; }, RESPONDE_MS));
    cliente.mata();
    quieto.sigue();
    comprueba_supervivencia();
    canal.espera_terminado();
    EXPECT_EQ(canal.ocupacion(), 2u);
    EXPECT_EQ(ejecuta(servicio, COMANDO_CALLADO).resultado, 3u);
    canal.comprueba_libre();
    cierra_servicio(lento);
    reabre_servicio(lento);
    conversa_en(servicio);
}

const espera_de_cliente ESPERAS[] = {{2, "espera 29"}, {4, "espera 31"}};

INSTANTIATE_TEST_SUITE_P(estado, bucles_de_cliente, ::testing::ValuesIn(ESPERAS),
                         [](const auto &dato) { return std::to_string(dato.param.estado); });

// The result had been written: it is read, and the answer to the receipt is waited for in vain.
TEST_F(bucles, servidor_muerto_en_su_estado_2_ya_habia_respondido)
{
    empieza("sin_ventana");
    papel lento = nueva_victima("sin_ventana");
    haz_de_cliente(lento);
    canal_visto canal(servicio);
    parada visto(lento);
    arma_en(lento, "espera 18", 1, "PARA");
    lento.di(ejecuta_callado());
    visto.espera();
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_servidor() == 2; }, RESPONDE_MS));
    servidor().mata();
    visto.sigue();
    EXPECT_EQ(resultado_de(lento), 1u);
    canal.comprueba_libre();
    papel relevo = arranca_servidor("sin_ventana", servicio);
    comprueba_supervivencia();
    pide(lento, ejecuta_callado(), "RESULTADO 1");
}

// The client waits in the mutex meanwhile, and begins to count when the server is dead. A client that had its first
// round before the server took the command (it was quicker to the mutex) has begun to count already: then once more.
TEST_F(bucles, servidor_muerto_en_un_comando_largo_da_3_segun_la_regla)
{
    empieza("sin_ventana");
    registra_y_late();
    canal_visto canal(servicio);
    std::unique_ptr<llamada> en_espera;
    for (int intento = 0; intento < 5; intento++) {
        uint32_t antes = canal.bucle_cliente();
        en_espera = std::make_unique<llamada>(servicio, 103);
        servidor().espera_linea("DENTRO", RESPONDE_MS);
        if (canal.bucle_cliente() == antes)
            break;
        servidor().di("SIGUE");
        ASSERT_EQ(en_espera->resultado(), 1u);
        ASSERT_LT(intento, 4) << "the client was quicker five times";
    }
    uint32_t antes = canal.bucle_cliente();
    espera_latido_nuevo(ruta_de(servidor()));
    EXPECT_FALSE(en_espera->hecha());
    EXPECT_EQ(canal.bucle_cliente(), antes);
    servidor().mata();
    EXPECT_EQ(en_espera->resultado(), 3u);
    canal.comprueba_libre();
    comprueba_supervivencia();
    papel relevo = arranca_servidor("sin_ventana", servicio);
    conversa_en(servicio);
}

// A server that beat within the wait lives for its client through that wait, also once it is dead: the second time that
// the rule is looked at, too. A new server does not know of the command; when it closes, the client is told.
TEST_F(bucles, servidor_que_latio_en_la_espera_y_murio_deja_esperando_hasta_que_el_siguiente_cierre)
{
    papel lento = nueva_victima("sin_ventana");
    pide(lento, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
    pide(lento, "TERMINADO_REGISTRO", "PUBLICADO");
    registra_y_late();
    canal_visto canal(servicio);
    parada quieto(lento);
    arma_en(lento, "espera 29", 1, "PARA");
    quieto.espera();
    llamada en_espera(servicio, COMANDO_CALLADO);
    EXPECT_TRUE(espera_hasta([&] { return canal.bucle_cliente() == 2; }, RESPONDE_MS));
    espera_latido_nuevo(ruta_de(lento));
    lento.mata();
    espera_rondas([&] { return canal.vueltas_cliente(); }, 53);
    EXPECT_FALSE(en_espera.hecha());
    EXPECT_FALSE(canal.terminado());

    papel relevo = arranca_servidor("sin_ventana", servicio);
    cierra_servicio(relevo);
    EXPECT_EQ(en_espera.resultado(), 3u);
    canal.comprueba_libre();
    reabre_servicio(relevo);
    conversa_en(servicio);
}

// Its close has taken it out of the table of programs, and not yet marked the channel; who takes its place beats for
// it.
TEST_F(bucles, servidor_muerto_al_cerrar_vive_en_quien_ocupa_su_sitio)
{
    papel victima = nueva_victima("sin_ventana");
    pide(victima, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
    pide(victima, "TERMINADO_REGISTRO", "PUBLICADO");
    registra_y_late();
    bloque_crudo registro("Ivrexa_MCB");
    size_t sitio = despl_programa(registro, ruta_de(victima));
    arma_en(victima, "entra 25", 1);
    victima.di("CIERRA");
    espera_muerte_de(victima);
    EXPECT_EQ(registro.texto(sitio, 256), "");

    papel otro = arranca_cliente("sin_ventana", nombre_unico("otro"));
    EXPECT_EQ(registro.texto(sitio, 256), ruta_de(otro));
    espera_latido(ruta_de(otro));
    canal_visto canal(servicio);
    llamada en_espera(servicio, COMANDO_CALLADO);
    espera_rondas([&] { return canal.bucle_cliente() == 2 ? canal.vueltas_cliente() : 0; });
    EXPECT_FALSE(en_espera.hecha());

    papel relevo = arranca_servidor("sin_ventana", servicio);
    cierra_servicio(relevo);
    EXPECT_EQ(en_espera.resultado(), 3u);
    canal.comprueba_libre();
    reabre_servicio(relevo);
    conversa_en(servicio);
}

} // namespace
