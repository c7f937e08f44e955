// The server that notifies stands still: what else goes on meanwhile, and what the mailbox needs to let it
// go.
#include "dll_notificaciones_apoyo.h"

// ---- Commands while the server notifies

class mientras : public avisos {
protected:
    // A server, a client with id 200 that acknowledges when it is told to, and another that sends commands.
    void arranca(const std::string &clase)
    {
        servidor = std::make_unique<papel>(arranca_avisador(clase, servicio));
        cliente = std::make_unique<papel>(arranca_avisado("ventana", "con_funcion", servicio));
        EXPECT_EQ(documento_abierto(*cliente, servicio), "ID 200");
        otro = std::make_unique<papel>(arranca_avisado("sin_ventana", "sin_funcion", servicio, true));
        if (clase == "sin_ventana")
            espera_latido(ruta_de(*otro)); // the last to register is the one whose heart the server looks at
        b = std::make_unique<buzon>(servicio);
    }
    // The other client stands still until the one notified has taken it: it would take it too.
    void notifica(const std::string &palabra)
    {
        b->suspende(*otro);
        manda(*servidor, orden(palabra, 200, 7, 0, servicio), "AVISANDO");
        espera_aviso();
    }
    void espera_aviso()
    {
        EXPECT_EQ(cliente->espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 200 7 " + servicio);
        otro->reanuda();
    }
    void acusa()
    {
        manda(*cliente, "ACUSA " + servicio, "ACUSADO");
        espera_avisado(*servidor, 7);
    }

    std::unique_ptr<papel> servidor, cliente, otro;
    std::unique_ptr<buzon> b;
};

class mientras_en : public mientras, public ::testing::WithParamInterface<const char *> {};

class mientras_en_ventana : public mientras_en {};
INSTANTIATE_TEST_SUITE_P(servidor, mientras_en_ventana, ::testing::Values("ventana", "net"),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(mientras_en_ventana, el_comando_espera_si_notifica_el_hilo_de_la_ventana)
{
    arranca(GetParam());
    notifica("AVISA");
    otro->di("COMANDO 127 |" + servicio);
    EXPECT_TRUE(espera_hasta([&] { return b->canal().u32(1198) == 2; }, PLAZO_MS)) << "the command is written";
    EXPECT_FALSE(otro->busca_linea("RESULTADO", QUIETO_MS));
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 0}));
    acusa();
    EXPECT_EQ(otro->espera_linea("RESULTADO ", PLAZO_MS), "RESULTADO 7");
}

TEST_P(mientras_en_ventana, el_comando_pasa_si_notifica_otro_hilo)
{
    arranca(GetParam());
    notifica("APARTE");
    for (uint32_t id : {127u, 128u})
        EXPECT_EQ(manda(*otro, "COMANDO " + std::to_string(id) + " |" + servicio, "RESULTADO "),
                  "RESULTADO " + std::to_string(id - 120));
    EXPECT_EQ(manda(*cliente, "COMANDO 129 |" + servicio, "RESULTADO "), "RESULTADO 9") << "the notified one too";
    sigue_bloqueado(*servidor, 0);
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 0}));
    acusa();
}

// The service has a thread of its own: it serves, whoever notifies.
TEST_F(mientras, sin_ventana_el_comando_pasa_aunque_notifique_el_hilo_principal)
{
    arranca("sin_ventana");
    notifica("AVISA");
    EXPECT_EQ(manda(*otro, "COMANDO 127 |" + servicio, "RESULTADO "), "RESULTADO 7");
    sigue_bloqueado(*servidor, 0);
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 0}));
    acusa();
}

TEST_F(mientras, sin_ventana_se_notifica_mientras_corre_un_comando)
{
    arranca("sin_ventana");
    otro->di("COMANDO 103 |" + servicio);
    servidor->espera_linea("DENTRO", PLAZO_MS);
    notifica("AVISA");
    acusa();
    EXPECT_FALSE(otro->busca_linea("RESULTADO", 0));
    servidor->di("SIGUE");
    EXPECT_EQ(otro->espera_linea("RESULTADO ", PLAZO_MS), "RESULTADO 1");
}

// ---- Notifying from within a command

class desde_comando : public mientras_en {};
INSTANTIATE_TEST_SUITE_P(servidor, desde_comando, ::testing::ValuesIn(CLASES_SERVIDOR),
                         [](const auto &dato) { return std::string(dato.param); });

// The client that runs the command is the one notified: its first call comes while it waits for the result,
// and the second when its window's thread is back.
TEST_P(desde_comando, llega_al_cliente_que_lo_ejecuta)
{
    arranca(GetParam());
    mutex_crudo del_servicio(("Mutex_Ivrexa_" + servicio).c_str(), mutex_crudo::modo::crea);
    for (uint32_t id_comando : {uint32_t(aviso_DENTRO), uint32_t(aviso_DESDE_OTRO)}) {
        pon_modo(*cliente, aviso_modo_NADA);
        b->suspende(*otro);
        cliente->di("COMANDO " + std::to_string(id_comando) + " 200 7 0|" + servicio);
        EXPECT_EQ(servidor->espera_linea("AVISANDO", PLAZO_MS), "AVISANDO 7");
        espera_aviso();
        EXPECT_FALSE(cliente->busca_linea("RESULTADO", QUIETO_MS));
        EXPECT_TRUE(avisos_de(*cliente).empty()) << "its window's thread runs the command";
        EXPECT_EQ(b->canal().u32(1202), id_comando);
        EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 0}));
        // A server without a window has the service's mutex while its function runs.
        EXPECT_EQ(del_servicio.libre(), std::string(GetParam()) != "sin_ventana");

        manda(*otro, "ACUSA " + servicio, "ACUSADO");
        espera_avisado(*servidor, 7);
        EXPECT_EQ(cliente->espera_linea("RESULTADO ", PLAZO_MS), "RESULTADO 1");
        EXPECT_EQ(cliente->espera_linea("AVISO ", PLAZO_MS), "AVISO ventana 200 200 " + servicio);
    }
}

TEST_P(desde_comando, acusada_en_la_funcion_el_comando_acaba_solo)
{
    arranca(GetParam());
    pon_modo(*cliente, aviso_modo_ACUSA);
    b->suspende(*otro);
    EXPECT_EQ(manda(*cliente, "COMANDO 140 200 9 0|" + servicio, "RESULTADO "), "RESULTADO 1");
    espera_avisado(*servidor, 9);
    EXPECT_EQ(cliente->espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 200 9 " + servicio);
    EXPECT_EQ(cliente->espera_linea("AVISO ", PLAZO_MS), "AVISO ventana 200 200 " + servicio);
    EXPECT_EQ(b->lee(), (palabras{0, 0, 0, 0}));
}

// ---- What the mailbox holds, and what the server waits for

// The first wait is for 0 alone, the second for 3 alone, whatever else may stand there.
TEST_F(avisos, espera_al_buzon_libre_y_despues_al_acuse)
{
    papel servidor = arranca_avisador("ventana", servicio);
    buzon b(servicio);
    b.pon({3, 44, 55, 66});
    manda(servidor, orden("AVISA", 200, 7, 105, servicio), "AVISANDO");
    for (uint32_t estado : {3u, 1u, 2u, 4u, 0x10000u, 0xffffffffu}) {
        b.canal().pon_u32(2362, estado);
        EXPECT_FALSE(espera_hasta([&] { return b.lee() != palabras{estado, 44, 55, 66}; }, QUIETO_MS)) << estado;
    }
    uint64_t inicio = GetTickCount64();
    b.canal().pon_u32(2362, 0);
    EXPECT_TRUE(b.espera(1));
    EXPECT_TRUE(b.espera_libre());
    EXPECT_EQ(b.lee(), (palabras{1, 200, 7, 105}));
    for (uint32_t estado : {1u, 2u, 0u, 4u, 0x30000u, 0xffffffffu}) {
        b.canal().pon_u32(2362, estado);
        sigue_bloqueado(servidor);
        EXPECT_EQ(b.lee(), (palabras{estado, 200, 7, 105}));
    }
    b.canal().pon_u32(2362, 3);
    espera_avisado(servidor, 7);
    EXPECT_EQ(b.lee(), (palabras{0, 0, 0, 0}));
    EXPECT_LT(GetTickCount64() - inicio, PLAZO_MS) << "rounds of 100 ms, not of seconds";
}

// The waits end by a flag of 1. The test between them is for any flag but 0, and comes when the words are
// written.
TEST_F(avisos, marca_de_fin_acaba_las_esperas_y_con_el_buzon_libre_se_escribe_antes)
{
    struct {
        palabras antes;
        uint16_t marca;
        bool vuelve;
        palabras despues;
    } const casos[] = {
        {{0, 0, 0, 0}, 1, true, {1, 200, 7, 105}},   {{0, 0, 0, 0}, 2, true, {1, 200, 7, 105}},
        {{1, 44, 55, 66}, 1, true, {1, 44, 55, 66}}, {{2, 44, 55, 66}, 1, true, {2, 44, 55, 66}},
        {{3, 44, 55, 66}, 1, true, {3, 44, 55, 66}}, {{1, 44, 55, 66}, 2, false, {1, 44, 55, 66}},
    };
    papel servidor = arranca_avisador("ventana", servicio);
    buzon b(servicio);
    for (const auto &c : casos) {
        SCOPED_TRACE(c.antes[0] * 10 + c.marca);
        b.pon(c.antes);
        b.canal().pon_u16(28, c.marca);
        manda(servidor, orden("AVISA", 200, 7, 105, servicio), "AVISANDO");
        if (!c.vuelve) {
            sigue_bloqueado(servidor);
            b.canal().pon_u16(28, 1);
        }
        espera_avisado(servidor, 7);
        EXPECT_EQ(b.lee(), c.despues);
    }
}

TEST_F(avisos, sin_clientes_espera_al_primero_que_se_registre)
{
    papel servidor = arranca_avisador("sin_ventana", servicio);
    buzon b(servicio);
    manda(servidor, orden("AVISA", 0, 7, 105, servicio), "AVISANDO");
    EXPECT_TRUE(b.espera(1));
    sigue_bloqueado(servidor, 1200);
    EXPECT_EQ(b.lee(), (palabras{1, 0, 7, 105}));
    papel cliente = arranca_avisado("ventana", "con_funcion", servicio);
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 0 7 " + servicio);
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(servidor, 7);
}

// Its thread looks at once, before it can have an id.
TEST_F(avisos, la_que_espera_a_un_200_la_toma_un_cliente_nuevo_que_aun_no_lo_es)
{
    papel servidor = arranca_avisador("sin_ventana", servicio);
    buzon b(servicio);
    manda(servidor, orden("AVISA", 200, 7, 0, servicio), "AVISANDO");
    EXPECT_TRUE(b.espera(1));
    papel cliente = arranca_avisado("ventana", "con_funcion", servicio);
    EXPECT_TRUE(b.espera(2));
    EXPECT_EQ(documento_abierto(cliente, servicio), "ID 200");
    sigue_bloqueado(servidor, 1200);
    sosiega(cliente);
    EXPECT_TRUE(avisos_de(cliente).empty());
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(servidor, 7);
}

// ---- What a client asks and answers

TEST_F(avisos, id_de_los_datos_en_cualquier_estado_y_solo_con_su_destino_y_su_dato)
{
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado("sin_ventana", "sin_funcion", servicio + "," + servicio + "_2");
    buzon b(servicio);
    documento_abierto(cliente, servicio);
    auto pide = [&](uint32_t id, uint32_t dato, const std::string &nombre) {
        return manda(cliente, "PIDE " + std::to_string(id) + " " + std::to_string(dato) + " " + nombre, "DATOS ");
    };
    EXPECT_EQ(pide(200, 7, servicio), "DATOS 0");
    EXPECT_EQ(pide(0, 0, servicio), "DATOS 0");
    mutex_crudo interno(buzon::nombre_interno(servicio).c_str());
    ASSERT_TRUE(interno.retiene(PLAZO_MS)); // it is asked for without the mutex
    for (uint32_t estado : {0u, 1u, 2u, 3u}) {
        b.pon({estado, 200, 7, 105});
        EXPECT_EQ(pide(200, 7, servicio), "DATOS 105") << estado;
        EXPECT_EQ(pide(200, 6, servicio), "DATOS 0") << "a stale datum";
        EXPECT_EQ(pide(201, 7, servicio), "DATOS 0");
        EXPECT_EQ(pide(7, 200, servicio), "DATOS 0");
        EXPECT_EQ(pide(200, 7, servicio + "_2"), "DATOS 0") << "another service";
        EXPECT_EQ(pide(200, 7, nombre_unico("nadie")), "DATOS 0");
        EXPECT_EQ(b.lee(), (palabras{estado, 200, 7, 105})) << "asking changes nothing";
    }
    b.pon({2, 333, 7, 106});
    EXPECT_EQ(pide(333, 7, servicio), "DATOS 106") << "another client's";
    EXPECT_EQ(manda(servidor, "PIDE 333 7 " + servicio, "DATOS "), "DATOS 0") << "a server is no client of it";
    manda(cliente, "CIERRA", "CERRADO");
    EXPECT_EQ(pide(333, 7, servicio), "DATOS 0") << "no program";
}

TEST_F(avisos, acuse_pone_el_estado_y_solo_el_de_un_servicio_usado)
{
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado("sin_ventana", "sin_funcion", servicio);
    buzon b(servicio);
    mutex_crudo interno(buzon::nombre_interno(servicio).c_str());
    ASSERT_TRUE(interno.retiene(PLAZO_MS));
    b.pon({2, 200, 7, 105});
    manda(servidor, "ACUSA " + servicio, "ACUSADO");
    manda(cliente, std::string("ACUSA ") + nombre_unico("nadie"), "ACUSADO");
    EXPECT_EQ(b.lee(), (palabras{2, 200, 7, 105}));
    for (uint32_t estado : {0u, 1u, 2u, 3u}) {
        b.pon({estado, 200, 7, 105});
        manda(cliente, "ACUSA " + servicio, "ACUSADO");
        EXPECT_EQ(b.lee(), (palabras{3, 200, 7, 105})) << estado;
    }
    b.pon({2, 200, 7, 105});
    interno.suelta();
    manda(cliente, "CIERRA", "CERRADO");
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    EXPECT_EQ(b.lee(), (palabras{2, 200, 7, 105})) << "no program";
}

TEST_F(avisos, segundo_acuse_mientras_se_espera_no_importa_y_despues_bloquea_el_buzon)
{
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado("sin_ventana", "con_funcion", servicio);
    buzon b(servicio);
    documento_abierto(cliente, servicio);
    manda(servidor, orden("AVISA", 200, 7, 0, servicio), "AVISANDO");
    cliente.espera_linea("AVISO ", PLAZO_MS);
    servidor.suspende();
    for (int vez = 0; vez < 2; vez++) {
        manda(cliente, "ACUSA " + servicio, "ACUSADO");
        EXPECT_EQ(b.lee(), (palabras{3, 200, 7, 0}));
    }
    servidor.reanuda();
    espera_avisado(servidor, 7);
    EXPECT_EQ(b.lee(), (palabras{0, 0, 0, 0}));
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    EXPECT_EQ(b.lee(), (palabras{3, 0, 0, 0}));
    manda(servidor, orden("AVISA", 200, 8, 0, servicio), "AVISANDO");
    sigue_bloqueado(servidor, 1200);
    EXPECT_EQ(b.lee(), (palabras{3, 0, 0, 0}));
    EXPECT_TRUE(avisos_de(cliente).empty());
    b.pon({0, 0, 0, 0}); // no call of the library's does this
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 200 8 " + servicio);
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(servidor, 8);
}
