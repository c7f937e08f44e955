// Notifications and ends: a client that dies or closes, a server that closes, is told to end or is killed
// while it notifies, and who hears of what afterwards.
#include "comun/hilos_de.h"

#include "dll_notificaciones_apoyo.h"

static const bool C = true;

class fin : public avisos {
protected:
    void arranca(const std::string &clase)
    {
        servidor = std::make_unique<papel>(arranca_avisador(clase, servicio));
        b = std::make_unique<buzon>(servicio);
        arranca_cliente_200();
    }
    void arranca_cliente_200()
    {
        cliente = std::make_unique<papel>(arranca_avisado("ventana", "con_funcion", servicio, C));
        EXPECT_EQ(documento_abierto(*cliente, servicio), "ID 200");
    }
    void notifica(uint32_t dato, const char *palabra = "APARTE")
    {
        manda(*servidor, orden(palabra, 200, dato, 105, servicio), "AVISANDO");
    }
    void espera_aviso(uint32_t dato)
    {
        EXPECT_EQ(cliente->espera_linea("AVISO hilo", PLAZO_MS),
                  "AVISO hilo 200 " + std::to_string(dato) + " " + servicio);
    }
    void acusa(uint32_t dato)
    {
        manda(*cliente, "ACUSA " + servicio, "ACUSADO");
        espera_avisado(*servidor, dato);
    }
    // A whole notification, from here to there and back.
    void llega(uint32_t dato)
    {
        notifica(dato);
        espera_aviso(dato);
        acusa(dato);
        EXPECT_EQ(b->lee(), (palabras{0, 0, 0, 0}));
    }

    std::unique_ptr<papel> servidor, cliente;
    std::unique_ptr<buzon> b;
};

// ---- The client goes

// Nobody can tell that it is gone: the server waits for any client at all.
TEST_F(fin, cliente_muerto_antes_de_tomarla_la_deja_al_siguiente)
{
    arranca("ventana");
    b->suspende(*cliente);
    notifica(7, "AVISA");
    EXPECT_TRUE(b->espera(1));
    cliente->mata();
    sigue_bloqueado(*servidor, 1200);
    EXPECT_EQ(b->lee(), (palabras{1, 200, 7, 105}));
    arranca_cliente_200(); // it takes it before it is 200
    EXPECT_TRUE(b->espera(2));
    sigue_bloqueado(*servidor);
    sosiega(*cliente);
    EXPECT_TRUE(avisos_de(*cliente).empty());
    acusa(7);
    llega(8);
}

TEST_F(fin, cliente_muerto_con_ella_tomada_suelta_el_mutex_y_no_el_buzon)
{
    arranca("sin_ventana");
    notifica(7, "AVISA");
    espera_aviso(7);
    EXPECT_FALSE(b->libre());
    cliente->mata();
    EXPECT_TRUE(b->espera_libre(5000)) << "abandoned, not held for the rest of its 30 s";
    sigue_bloqueado(*servidor, 1200);
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));

    // The next client finds it taken: it hears nothing, but may ask, and may say that it is processed.
    arranca_cliente_200();
    sigue_bloqueado(*servidor, 1200);
    EXPECT_TRUE(b->libre());
    EXPECT_EQ(manda(*cliente, "PIDE 200 7 " + servicio, "DATOS "), "DATOS 105");
    EXPECT_TRUE(avisos_de(*cliente).empty());
    acusa(7);
    llega(8);
}

TEST_F(fin, cliente_que_cierra_con_ella_tomada_deja_al_servidor_esperando)
{
    arranca("ventana");
    notifica(7, "AVISA");
    espera_aviso(7);
    manda(*cliente, "CIERRA", "CERRADO");
    EXPECT_TRUE(b->espera_libre(5000));
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));
    manda(*cliente, "ACUSA " + servicio, "ACUSADO"); // no client any more
    sigue_bloqueado(*servidor, 1200);
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));

    manda(*cliente, "ESCUCHA " + servicio, "ESCUCHADO");
    EXPECT_EQ(documento_abierto(*cliente, servicio), "ID 200");
    acusa(7);
    llega(8);
}

// The library's thread is in the host's function, and does not come back in time: it is ended there.
TEST_F(fin, cliente_cierra_aunque_su_funcion_no_vuelva)
{
    arranca("sin_ventana");
    pon_modo(*cliente, aviso_modo_ESPERA);
    notifica(7, "AVISA");
    espera_aviso(7);
    manda(*cliente, "CIERRA", "CERRADO");
    EXPECT_TRUE(b->espera_libre(5000));
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));
    cliente->di("SIGUE");
    sigue_bloqueado(*servidor);
    sosiega(*cliente);
    EXPECT_TRUE(avisos_de(*cliente).empty()) << "no second call";

    pon_modo(*cliente, aviso_modo_NADA);
    manda(*cliente, "ESCUCHA " + servicio, "ESCUCHADO");
    EXPECT_EQ(documento_abierto(*cliente, servicio), "ID 200");
    acusa(7);
    llega(8);
}

// ---- The server closes

enum class momento { sin_tomar, tomada, ocupado };

struct caso_cierre {
    const char *clase;
    momento cuando;
    const char *nombre;
};

static void PrintTo(const caso_cierre &c, std::ostream *o)
{
    *o << c.nombre;
}

static const caso_cierre CIERRES[] = {
    {"ventana", momento::sin_tomar, "ventana_sin_tomar"},
    {"ventana", momento::tomada, "ventana_tomada"},
    {"ventana", momento::ocupado, "ventana_buzon_ocupado"},
    {"sin_ventana", momento::sin_tomar, "sin_ventana_sin_tomar"},
    {"sin_ventana", momento::tomada, "sin_ventana_tomada"},
    {"sin_ventana", momento::ocupado, "sin_ventana_buzon_ocupado"},
    {"net", momento::tomada, "net_tomada"},
};

class cierre_del_servidor : public fin, public ::testing::WithParamInterface<caso_cierre> {};
INSTANTIATE_TEST_SUITE_P(cuando, cierre_del_servidor, ::testing::ValuesIn(CIERRES),
                         [](const auto &dato) { return std::string(dato.param.nombre); });

TEST_P(cierre_del_servidor, quien_notifica_vuelve_y_el_buzon_queda_como_estaba)
{
    arranca(GetParam().clase);
    palabras queda{2, 200, 7, 105};
    if (GetParam().cuando == momento::ocupado) {
        queda = {3, 0, 0, 0};
        manda(*cliente, "ACUSA " + servicio, "ACUSADO");
        notifica(7);
        sigue_bloqueado(*servidor);
    } else if (GetParam().cuando == momento::sin_tomar) {
        queda = {1, 200, 7, 105};
        b->suspende(*cliente);
        notifica(7);
        EXPECT_TRUE(b->espera(1));
    } else {
        notifica(7);
        espera_aviso(7);
    }
    uint64_t inicio = GetTickCount64();
    manda(*servidor, "CIERRA", "CERRADO");
    espera_avisado(*servidor, 7);
    EXPECT_LT(GetTickCount64() - inicio, 10000u);
    EXPECT_EQ(b->lee(), queda);
    EXPECT_EQ(b->canal().u16(28), 1u);
    EXPECT_EQ(b->canal().u32(30), 0u);

    // Its clients' threads end too. One that was stopped still takes and delivers what it finds.
    cliente->reanuda();
    if (GetParam().cuando == momento::sin_tomar) {
        espera_aviso(7);
        queda[0] = 2;
    }
    EXPECT_TRUE(b->espera_libre(5000));
    EXPECT_EQ(b->lee(), queda);
    manda(*servidor, "PING", "PONG");
}

// Half a second is what the client's thread needs to see the end. One that does not run cannot, and has the
// mutex that the server waits for: the close does not wait for it for ever, and the server survives what
// comes later.
TEST_F(fin, servidor_cierra_aunque_la_funcion_de_su_cliente_no_vuelva)
{
    arranca("ventana");
    pon_modo(*cliente, aviso_modo_ESPERA);
    notifica(7);
    espera_aviso(7);
    manda(*servidor, "CIERRA", "CERRADO");
    EXPECT_FALSE(b->libre());
    cliente->di("SIGUE");
    EXPECT_TRUE(b->espera_libre());
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));
    espera_avisado(*servidor, 7);
    EXPECT_FALSE(espera_hasta([&] { return !servidor->vive(); }, 500)) << "the server has crashed";
    manda(*servidor, "PING", "PONG");
}

// ---- A server is told to end

TEST_F(fin, sin_ventana_el_comando_1_devuelve_a_quien_notifica)
{
    arranca("sin_ventana");
    espera_latido(ruta_de(*cliente));
    notifica(7, "AVISA");
    espera_aviso(7);
    manda(*cliente, "TERMINA " + servicio, "TERMINADO");
    espera_avisado(*servidor, 7);
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));
    EXPECT_EQ(b->canal().u16(28), 1u);
    // Another one finds the mailbox full and the service ended; with the mailbox free it would be written.
    manda(*servidor, orden("AVISA", 200, 8, 0, servicio), "AVISANDO");
    espera_avisado(*servidor, 8);
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));
    b->pon({0, 0, 0, 0});
    EXPECT_TRUE(b->espera_libre());
    manda(*servidor, orden("AVISA", 200, 9, 0, servicio), "AVISANDO");
    espera_avisado(*servidor, 9);
    EXPECT_FALSE(espera_hasta([&] { return b->lee() != palabras{1, 200, 9, 0}; }, 800)) << "nobody listens any more";
}

TEST_F(fin, con_ventana_el_comando_1_devuelve_a_quien_notifica_en_otro_hilo)
{
    arranca("ventana");
    notifica(7);
    espera_aviso(7);
    manda(*cliente, "TERMINA " + servicio, "TERMINADO");
    EXPECT_EQ(servidor->espera_linea("QUIT ", PLAZO_MS), "QUIT 1");
    espera_avisado(*servidor, 7);
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));
}

// The message that would end it waits in the queue of the thread that notifies.
TEST_F(fin, con_ventana_que_notifica_en_su_hilo_el_comando_1_espera_al_acuse)
{
    arranca("ventana");
    notifica(7, "AVISA");
    espera_aviso(7);
    manda(*cliente, "TERMINA " + servicio, "TERMINADO");
    sigue_bloqueado(*servidor, 1000);
    EXPECT_EQ(b->canal().u16(28), 0u);
    EXPECT_FALSE(servidor->busca_linea("QUIT", 0));
    acusa(7);
    EXPECT_EQ(servidor->espera_linea("QUIT ", PLAZO_MS), "QUIT 1");
    EXPECT_EQ(b->canal().u16(28), 1u);
}

// ---- A server is killed

TEST_F(fin, servidor_muerto_no_lo_dice_y_su_notificacion_queda)
{
    arranca("ventana");
    b->suspende(*cliente);
    notifica(7, "AVISA");
    EXPECT_TRUE(b->espera(1));
    servidor->mata();
    EXPECT_EQ(b->lee(), (palabras{1, 200, 7, 105}));
    EXPECT_EQ(b->canal().u16(28), 0u);
    cliente->reanuda();
    espera_aviso(7);
    EXPECT_EQ(manda(*cliente, "PIDE 200 7 " + servicio, "DATOS "), "DATOS 105");
    manda(*cliente, "ACUSA " + servicio, "ACUSADO");
    EXPECT_FALSE(espera_hasta([&] { return b->lee() != palabras{3, 200, 7, 105}; }, 1200)) << "nobody clears it";
    EXPECT_TRUE(b->espera_libre());

    // The next server of the service takes the channel over with what stands there.
    servidor = std::make_unique<papel>(arranca_avisador("sin_ventana", servicio, C));
    EXPECT_EQ(b->lee(), (palabras{3, 200, 7, 105}));
    notifica(8);
    sigue_bloqueado(*servidor);
    EXPECT_EQ(b->lee(), (palabras{3, 200, 7, 105}));
    b->pon({0, 0, 0, 0});
    espera_aviso(8);
    acusa(8);
}

TEST_F(fin, servidor_muerto_entre_dos_notificaciones_y_el_siguiente_llega_a_los_mismos_clientes)
{
    arranca("sin_ventana");
    llega(7);
    servidor->mata();
    servidor = std::make_unique<papel>(arranca_avisador("ventana", servicio, C));
    llega(8);
}

// ---- A second session in the same processes

class segunda_sesion : public fin, public ::testing::WithParamInterface<const char *> {
protected:
    void vuelve()
    {
        manda(*servidor, "PREPARA", "PREPARADO");
        manda(*servidor, "PUBLICA", "PUBLICADO");
    }
};
INSTANTIATE_TEST_SUITE_P(servidor, segunda_sesion, ::testing::ValuesIn(CLASES_SERVIDOR),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(segunda_sesion, notifica_de_nuevo_a_quien_se_registra_de_nuevo)
{
    arranca(GetParam());
    llega(7);
    const size_t num_hilos = hilos_de(cliente->pid()).size();
    manda(*servidor, "CIERRA", "CERRADO");
    manda(*servidor, orden("AVISA", 200, 8, 0, servicio), "AVISANDO");
    espera_avisado(*servidor, 8); // no program
    EXPECT_EQ(b->lee(), (palabras{0, 0, 0, 0}));
    EXPECT_TRUE(espera_hasta([&] { return b->libre(); }, 5000));
    EXPECT_TRUE(espera_hasta([&] { return hilos_de(cliente->pid()).size() < num_hilos; }, 5000))
        << "the client's notification thread ends with the session";
    vuelve();

    notifica(9);
    EXPECT_TRUE(b->espera(1));
    sigue_bloqueado(*servidor, 1200);
    EXPECT_EQ(b->lee(), (palabras{1, 200, 9, 105})) << "its thread ended with the first session";
    manda(*cliente, "CIERRA", "CERRADO");
    manda(*cliente, "ESCUCHA " + servicio, "ESCUCHADO");
    EXPECT_TRUE(b->espera(2));
    EXPECT_EQ(documento_abierto(*cliente, servicio), "ID 200");
    acusa(9); // taken before it had its id
    llega(10);
    sosiega(*cliente);
    EXPECT_EQ(avisos_de(*cliente), (std::vector<std::string>(2, "AVISO ventana 200 200 " + servicio)));
}

// What a session that gave up left in the mailbox blocks the next one for as long as anybody keeps the
// channel.
TEST_F(fin, buzon_abandonado_bloquea_hasta_que_nadie_tiene_el_canal)
{
    arranca("ventana");
    notifica(7);
    espera_aviso(7);
    manda(*servidor, "CIERRA", "CERRADO");
    espera_avisado(*servidor, 7);
    manda(*servidor, "PREPARA", "PREPARADO");
    manda(*servidor, "PUBLICA", "PUBLICADO");
    EXPECT_EQ(b->lee(), (palabras{2, 200, 7, 105}));
    EXPECT_EQ(b->canal().u16(28), 0u);
    notifica(8);
    manda(*cliente, "ACUSA " + servicio, "ACUSADO");
    sigue_bloqueado(*servidor);
    EXPECT_EQ(b->lee(), (palabras{3, 200, 7, 105}));

    // The close alone does not let go of a channel that was there before: a process does at its end.
    manda(*servidor, "CIERRA", "CERRADO");
    espera_avisado(*servidor, 8);
    acaba(*servidor);
    acaba(*cliente);
    b.reset();
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
    arranca("ventana");
    llega(9);
}
