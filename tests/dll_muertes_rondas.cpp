// A program dies in a round of its wait, with the service's mutex and the registry's held, or beside it: the other side
// gives up by the rule of the 26 rounds, and the service comes back with a new server.
#include "muertes.h"

// Dying at once and 26 rounds of 100 ms after it; twice that where two waits follow each other.
static const uint32_t PLAZO_REGLA_MS = 8000;

using en_rondas = con_victima;

static void espera_servicio_terminado(const std::string &servicio)
{
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_TRUE(espera_hasta([&] { return canal.u16(28) == 1 && canal.u32(30) == 0; }, 2 * PLAZO_REGLA_MS))
        << "the server goes on with a dead client: state " << canal.u32(4) << ", server " << canal.u32(30);
    comprueba_canal_sano(servicio);
}

static void manda(papel &cliente, const std::string &esperado, uint32_t plazo_ms)
{
    cliente.di("COMANDO 102");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", plazo_ms), esperado);
}

// What a client leaves that dies with the channel claimed: the server ends the service by the rule, a command on that
// fails and frees the channel, and a server that registers anew serves.
static void comprueba_vuelta(pareja &propios)
{
    espera_servicio_terminado(propios.servicio);
    papel otro = arranca_cliente("sin_ventana", propios.servicio);
    manda(otro, "RESULTADO 3", PLAZO_REGLA_MS);
    bloque_crudo canal(nombre_canal(propios.servicio).c_str());
    EXPECT_EQ(canal.u32(1198), 0u) << "ocupacion";
    for (const char *linea : {"CIERRA", "PREPARA", "PUBLICA"})
        propios.servidor.di(linea);
    propios.servidor.espera_linea("PUBLICADO", 15000);
    propios.cambia_cliente();
    propios.conversa();
}

// ---- A client in its rounds

// Its command is written, and it dies in the first round of state 2, before the server has seen that.
class antes_de_la_toma : public con_victima {
protected:
    void registra_victima(const pareja &propios)
    {
        arranca_victima("sin_ventana");
        haz("REGISTRA_CLIENTE " + propios.servicio, "SOLICITADO");
        espera_latido(ruta_de(victima()));
    }

    void manda_y_muere(pareja &propios, const std::string &lugar)
    {
        parada escrito(victima());
        arma("comando en curso", 1, "PARA");
        victima().di("HILO EJECUTA " + propios.servicio + " 102");
        escrito.espera();
        propios.servidor.suspende(); // it waits for the mutex, and would have the command first
        arma(lugar, 1);
        escrito.sigue();
        espera_muerte();
        propios.servidor.reanuda();
    }
};

TEST_F(antes_de_la_toma, el_comando_de_un_cliente_muerto_se_ejecuta_y_el_servicio_acaba_y_vuelve)
{
    empieza_vecinos();
    pareja propios("sin_ventana", nombre_unico("serv"));
    registra_victima(propios);
    manda_y_muere(propios, "entra 12");
    EXPECT_EQ(propios.servidor.espera_linea("NADA ", PLAZO_REGLA_MS), "NADA 0");
    comprueba_supervivencia();
    comprueba_vuelta(propios);
}

// Its data have gone with it: that is reported in the server, and the function gets none.
TEST_F(antes_de_la_toma, los_datos_de_un_cliente_muerto_faltan_y_se_informa)
{
    pareja propios("sin_ventana", nombre_unico("serv"));
    registra_victima(propios);
    haz("GUARDA " + propios.servicio + " 0", "GUARDADO 100");
    manda_y_muere(propios, "sale 12");
    EXPECT_INFORME_DE(propios.servidor, "iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_EQ(propios.servidor.espera_linea("NADA ", PLAZO_REGLA_MS), "NADA 0");
    comprueba_supervivencia();
    espera_servicio_terminado(propios.servicio);
}

// A round of state 4, after the receipt.
TEST_F(en_rondas, cliente_que_muere_tras_recoger_el_resultado)
{
    pareja propios("sin_ventana", nombre_unico("serv"));
    arranca_victima("sin_ventana");
    haz("REGISTRA_CLIENTE " + propios.servicio, "SOLICITADO");
    espera_latido(ruta_de(victima()));
    parada recogido(victima());
    arma("comando recogido", 1, "PARA");
    victima().di("HILO EJECUTA " + propios.servicio + " 102");
    recogido.espera();
    arma("sale 12", 1);
    bloque_crudo registro("Ivrexa_MCB");
    size_t despl = despl_servicio(registro, propios.servicio);
    recogido.sigue();
    espera_muerte();
    EXPECT_EQ(registro.u32(despl + 84), 4u) << "the client's loop state";
    comprueba_supervivencia();
    comprueba_vuelta(propios);
}

// State 1: another client has the channel. The dead one waited for it with the service's mutex held.
TEST_F(en_rondas, cliente_que_muere_esperando_su_turno_no_estorba_al_que_lo_tiene)
{
    for (auto [lugar, vez] : {std::pair<const char *, uint32_t>{"entra 12", 1}, {"sale 12", 5}}) {
        SCOPED_TRACE(lugar);
        pareja propios("ventana", nombre_unico("serv"));
        propios.cliente.di("COMANDO 103");
        propios.servidor.espera_linea("DENTRO", 10000);
        arranca_victima("ventana");
        haz("REGISTRA_CLIENTE " + propios.servicio, "SOLICITADO");
        muere(lugar, vez, "EJECUTA " + propios.servicio + " 102");
        bloque_crudo canal(nombre_canal(propios.servicio).c_str());
        EXPECT_EQ(canal.u32(1198), 2u) << "ocupacion";
        propios.servidor.di("SIGUE");
        EXPECT_EQ(propios.cliente.espera_linea("RESULTADO ", PLAZO_REGLA_MS), "RESULTADO 1");
        propios.conversa();
        comprueba_supervivencia();
        propios.cambia_cliente();
        propios.conversa();
    }
}

// ---- A server in its rounds

// Its client learns it by the rule: 26 rounds in which no heartbeat came.
TEST_F(en_rondas, servidor_que_muere_esperando_comandos_se_da_por_muerto)
{
    empieza_vecinos("sin_ventana");
    std::string servicio = nombre_unico("serv");
    arranca_victima("sin_ventana");
    haz_de_servidor("con_funcion", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    arma("sale 13", 3);
    espera_muerte();
    uint64_t antes = GetTickCount64();
    manda(cliente, "RESULTADO 3", PLAZO_REGLA_MS);
    EXPECT_GE(GetTickCount64() - antes, 2600u) << "given up before 26 rounds";
    comprueba_supervivencia();
    comprueba_relevo("sin_ventana", servicio, std::move(cliente));
}

// State 2: it has finished with a command and waits for the receipt. The client reads the result as it stands.
TEST_F(en_rondas, servidor_que_muere_esperando_el_recibo_ha_respondido)
{
    for (const char *lugar : {"entra 13", "sale 13"}) {
        SCOPED_TRACE(lugar);
        std::string servicio = nombre_unico("serv");
        arranca_victima("sin_ventana");
        haz_de_servidor("con_funcion", servicio);
        papel cliente = arranca_cliente("sin_ventana", servicio);
        espera_latido(ruta_de(cliente));
        parada terminado(victima());
        arma("servidor terminado", 1, "PARA");
        cliente.di("ECO 1");
        terminado.espera();
        cliente.suspende(); // it does not fetch the result before the server looks for the receipt
        arma(lugar, 1);
        terminado.sigue();
        espera_muerte();
        bloque_crudo registro("Ivrexa_MCB");
        size_t despl = despl_servicio(registro, servicio);
        EXPECT_EQ(registro.u32(despl + 68), std::string(lugar) == "sale 13" ? 2u : 1u);
        cliente.reanuda();
        EXPECT_EQ(cliente.espera_linea("RESULTADO ", PLAZO_REGLA_MS), "RESULTADO 1|100|101");
        EXPECT_INFORME_DE(cliente, "ivrexa", "(shared_MCCom) != 0");
        EXPECT_EQ(cliente.espera_linea("SALIDA ", 5000), "SALIDA ninguna") << "its output has gone with it";
        cliente.espera_linea("TEXTOS ", 5000);
        comprueba_supervivencia();
        comprueba_relevo("sin_ventana", servicio, std::move(cliente));
    }
}
