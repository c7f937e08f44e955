// A server dies while it notifies, or a client while it is notified, at each place. The mutex of the mailbox goes on;
// what stands in the mailbox stays, and decides who can be notified afterwards. One that only stands still is waited
// for.
#include "muertes_canal.h"

#include "dll_notificaciones_apoyo.h"

namespace {

const char *const EN_MARCHA = nullptr; // killed from outside, while the client's function runs

struct muerte {
    const char *nombre;
    const char *punto;
    uint32_t vez;
    uint32_t buzon; // the mailbox when all has come to rest
};

std::ostream &operator<<(std::ostream &salida, const muerte &m)
{
    return salida << m.nombre;
}

std::string nombre_de(const ::testing::TestParamInfo<muerte> &dato)
{
    return dato.param.nombre;
}

class muere_avisando : public con_tanda, public ::testing::WithParamInterface<muerte> {
protected:
    const muerte &caso = GetParam();
    const std::string servicio = nombre_unico("aviso");

    static void avisa(papel &servidor, const std::string &servicio, uint32_t dato)
    {
        servidor.di(orden("APARTE", 200, dato, 0, servicio));
    }

    // Notified, and the server knows.
    void comprueba_aviso(papel &servidor, papel &cliente, uint32_t dato)
    {
        avisa(servidor, servicio, dato);
        EXPECT_EQ(cliente.espera_linea("AVISO hilo ", PLAZO_MS),
                  "AVISO hilo 200 " + std::to_string(dato) + " " + servicio);
        espera_avisado(servidor, dato);
    }

    void comprueba_orden(papel &cliente)
    {
        cliente.di("COMANDO 121 |" + servicio);
        EXPECT_EQ(cliente.espera_linea("RESULTADO ", PLAZO_COMANDO_MS), "RESULTADO 1");
    }

    papel arranca_avisado_que(aviso_modo modo)
    {
        papel cliente = arranca_avisado("ventana", "con_funcion", servicio);
        pon_modo(cliente, modo);
        EXPECT_EQ(documento_abierto(cliente, servicio), "ID 200");
        return cliente;
    }
};

// ---- The server dies

using muere_el_que_avisa = muere_avisando;

TEST_P(muere_el_que_avisa, y_el_buzon_dice_si_el_siguiente_puede_avisar)
{
    empieza_vecinos();
    papel cliente = arranca_avisado_que(caso.punto == EN_MARCHA ? aviso_modo_ESPERA : aviso_modo_ACUSA);
    papel servidor = nueva_victima("ventana");
    manda(servidor, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
    manda(servidor, "TERMINADO_REGISTRO", "PUBLICADO");
    canal_visto canal(servicio);
    if (caso.punto != EN_MARCHA)
        arma_en(servidor, caso.punto, caso.vez);
    servidor.di("NOTIFICA " + servicio + " 200 5 0");
    if (caso.punto == EN_MARCHA) {
        cliente.espera_linea("AVISO hilo 200 5", PLAZO_MS);
        servidor.mata();
        cliente.di("SIGUE");
    } else {
        espera_muerte_de(servidor);
    }
    comprueba_canal_sano(servicio);
    comprueba_supervivencia();
    EXPECT_TRUE(espera_hasta([&] { return canal.buzon() == caso.buzon; }, PLAZO_MS)) << canal.buzon();

    papel relevo = arranca_avisador("ventana", servicio);
    comprueba_orden(cliente);
    while (cliente.busca_linea("AVISO ", 0))
        continue; // of the dead server
    if (caso.buzon == 0) {
        comprueba_aviso(relevo, cliente, 6);
        return;
    }
    avisa(relevo, servicio, 6);
    EXPECT_EQ(manda(cliente, "ACUSA " + servicio, "ACUSADO"), "ACUSADO");
    sigue_bloqueado(relevo, 1500);
    cierra_servicio(relevo);
    espera_avisado(relevo, 6);
    acaba(relevo);
    acaba(cliente);
}

const muerte MUERTES_SERVIDOR[] = {
    {"entra_21", "entra 21", 1, 0},     {"buzon_escrita", "buzon escrita", 1, 2}, {"buzon_dato2", "buzon dato2", 1, 3},
    {"sale_21", "sale 21", 1, 3},       {"entra_22", "entra 22", 1, 3},           {"sale_22", "sale 22", 1, 3},
    {"en_la_funcion", EN_MARCHA, 0, 2}, {"buzon_libre", "buzon libre", 1, 0},
};

INSTANTIATE_TEST_SUITE_P(en, muere_el_que_avisa, ::testing::ValuesIn(MUERTES_SERVIDOR), nombre_de);

// All programs of the service have to end: then it has a mailbox of its own again.
TEST_F(con_tanda, un_buzon_lleno_acaba_con_el_ultimo_programa_del_servicio)
{
    const std::string servicio = nombre_unico("aviso");
    papel servidor = nueva_victima("ventana");
    manda(servidor, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
    manda(servidor, "TERMINADO_REGISTRO", "PUBLICADO");
    papel cliente = arranca_avisado("ventana", "con_funcion", servicio);
    arma_en(servidor, "sale 21", 1);
    servidor.di("NOTIFICA " + servicio + " 200 5 0");
    espera_muerte_de(servidor);
    EXPECT_TRUE(existe_bloque(nombre_canal(servicio).c_str()));
    acaba(cliente);
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));

    papel relevo = arranca_avisador("ventana", servicio);
    papel nuevo = arranca_avisado("ventana", "con_funcion", servicio);
    pon_modo(nuevo, aviso_modo_ACUSA);
    EXPECT_EQ(documento_abierto(nuevo, servicio), "ID 200");
    relevo.di(orden("APARTE", 200, 7, 0, servicio));
    EXPECT_EQ(nuevo.espera_linea("AVISO hilo ", PLAZO_MS), "AVISO hilo 200 7 " + servicio);
    espera_avisado(relevo, 7);
}

// ---- The client dies

class muere_el_avisado : public muere_avisando {
protected:
    // Dies on its notification thread.
    void mata(papel &victima, papel &servidor)
    {
        if (caso.buzon == 1) {
            arma_en(victima, caso.punto, 1);
            espera_muerte_de(victima);
            avisa(servidor, servicio, 5);
            return;
        }
        parada tomada(victima); // its other places it passes twice a second
        arma_en(victima, "buzon tomada", 1, "PARA");
        avisa(servidor, servicio, 5);
        tomada.espera();
        if (caso.buzon == 2) {
            victima.mata();
            return;
        }
        arma_en(victima, caso.punto, 1);
        tomada.sigue();
        espera_muerte_de(victima);
    }
};

// What it had not taken, the next client takes, who has no id yet and is not told. Either way the server waits until
// some client of the service acknowledges it.
TEST_P(muere_el_avisado, y_otro_cliente_lo_sustituye)
{
    empieza_vecinos();
    papel servidor = arranca_avisador("ventana", servicio);
    papel victima = nueva_victima("ventana");
    manda(victima, "REGISTRA_NOTIFICACIONES " + servicio, "SOLICITADO");
    manda(victima, "DOCUMENTO " + servicio + " 1", "CLIENTE 200");
    canal_visto canal(servicio);
    mata(victima, servidor);
    comprueba_canal_sano(servicio);
    comprueba_supervivencia();
    if (caso.buzon == 0)
        espera_avisado(servidor, 5);
    else
        sigue_bloqueado(servidor);
    EXPECT_TRUE(espera_hasta([&] { return canal.buzon() == caso.buzon; }, PLAZO_MS)) << canal.buzon();

    papel nuevo = arranca_avisado("ventana", "con_funcion", servicio);
    pon_modo(nuevo, aviso_modo_ACUSA);
    if (caso.buzon != 0) {
        EXPECT_TRUE(espera_hasta([&] { return canal.buzon() == 2; }, PLAZO_MS)) << canal.buzon();
        sigue_bloqueado(servidor, 1500);
        manda(nuevo, "ACUSA " + servicio, "ACUSADO");
        espera_avisado(servidor, 5);
    }
    EXPECT_EQ(documento_abierto(nuevo, servicio), "ID 200");
    comprueba_orden(nuevo);
    comprueba_aviso(servidor, nuevo, 6);
}

const muerte MUERTES_CLIENTE[] = {
    {"entra_33", "entra 33", 1, 1},
    {"buzon_tomada", "buzon tomada", 1, 2},
    {"sale_33", "sale 33", 1, 0},
};

INSTANTIATE_TEST_SUITE_P(en, muere_el_avisado, ::testing::ValuesIn(MUERTES_CLIENTE), nombre_de);

// ---- One of them stands still instead, for longer than a heartbeat may stay away

// The server stops with the mailbox half written, its client with the notification taken: the other waits, and when it
// goes on both end as ever.
TEST_F(con_tanda, quien_se_para_en_un_aviso_hace_esperar_y_luego_acaba)
{
    empieza_vecinos();
    for (bool el_servidor : {true, false}) {
        SCOPED_TRACE(el_servidor);
        const std::string servicio = nombre_unico("aviso");
        papel servidor = nueva_victima("ventana"), cliente = nueva_victima("ventana");
        manda(servidor, "REGISTRA_SERVIDOR con_funcion " + servicio, "PREPARADO");
        manda(servidor, "TERMINADO_REGISTRO", "PUBLICADO");
        manda(cliente, "REGISTRA_NOTIFICACIONES " + servicio, "SOLICITADO");
        manda(cliente, "DOCUMENTO " + servicio + " 1", "CLIENTE 200");
        canal_visto canal(servicio);
        papel &quieto = el_servidor ? servidor : cliente;
        parada en_su_sitio(quieto);
        arma_en(quieto, el_servidor ? "buzon escrita" : "buzon tomada", 1, "PARA");
        servidor.di("HILO NOTIFICA " + servicio + " 200 5 0");
        en_su_sitio.espera();
        quieto.suspende();
        comprueba_supervivencia();
        EXPECT_FALSE((el_servidor ? cliente : servidor).busca_linea("NOTIFICA", 3500));
        EXPECT_EQ(canal.buzon(), el_servidor ? 1u : 2u);
        EXPECT_FALSE(canal.terminado());

        quieto.reanuda();
        en_su_sitio.sigue();
        for (int dato : {5, 6}) {
            EXPECT_EQ(cliente.espera_linea("NOTIFICACION ", PLAZO_MS), "NOTIFICACION " + std::to_string(dato) + "|0");
            servidor.espera_linea("NOTIFICADO", PLAZO_MS);
            EXPECT_EQ(canal.buzon(), 0u);
            if (dato == 5)
                servidor.di("HILO NOTIFICA " + servicio + " 200 6 0");
        }
        comprueba_canal_sano(servicio);
    }
}

} // namespace
