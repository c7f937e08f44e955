// Clients of one service at the same moment, without turns. A client writes the ids of its command and of its input
// into the channel before it has claimed it and clears them after it has freed it, both without the lock: whoever is
// inside then finds other ids, or none. What that can do to a command, and what it cannot.
#include "comun/hilo.h"

#include "dll_eco.h"

static const char *const ENTRADA_DISTINTA = "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada";
static const char *const SIN_BLOQUE = "(shared_MCCom) != 0";

// Takes all reports of a program; each must be this one. Returns how many there were.
static uint32_t solo_informa(papel &p, const char *modulo, const char *expresion)
{
    uint32_t num = 0;
    while (std::optional<datos_informe> i = p.toma_informe()) {
        EXPECT_EQ(i->modulo, modulo) << describe_informe(*i);
        EXPECT_EQ(i->expresion, expresion);
        num++;
    }
    return num;
}

// One further client, alone: all is as ever.
static void uno_solo_lo_encuentra_entero(const std::string &servicio)
{
    espera_canal_entero(servicio);
    papel solo = arranca_eco_cliente(9, servicio, 2, true);
    espera_latido(ruta_de(solo));
    solo.di("YA");
    eco_cuentas c = espera_hecho(solo);
    EXPECT_EQ(c.bien, 2u) << en_linea(c);
    EXPECT_EQ(c.total(), 2u);
    acaba(solo);
}

// ---- Many

struct caso_a_la_vez {
    const char *clase;
    uint32_t num_clientes, num_comandos; // of each

    friend std::ostream &operator<<(std::ostream &salida, const caso_a_la_vez &c)
    {
        return salida << c.num_clientes << " clients with " << c.num_comandos << " commands each";
    }
};

class a_la_vez : public ::testing::TestWithParam<caso_a_la_vez> {
    void SetUp() override { vacia_registro(); }
};

// Each command got one answer: its own, whole or without its input, or one that says that the library refused. A server
// without a window takes the ids from the channel, and so may be called with another's or with 0, and with another's
// input.
static eco_cuentas suma_respuestas(std::vector<papel> &clientes, const caso_a_la_vez &caso)
{
    const bool sin_ventana = caso.clase == std::string("sin_ventana");
    eco_cuentas suma;
    for (papel &cliente : clientes) {
        eco_cuentas c = espera_hecho(cliente, 100000);
        EXPECT_EQ(c.total(), caso.num_comandos) << en_linea(c);
        EXPECT_EQ(c.raro, 0u) << en_linea(c);
        if (!sin_ventana) {
            EXPECT_EQ(c.id_ajeno + c.entrada_ajena, 0u) << en_linea(c);
        }
        EXPECT_EQ(solo_informa(cliente, "ivrexa", SIN_BLOQUE), c.salida_perdida);
        suma.sin_get += c.sin_get;
        suma.sin_set += c.sin_set;
    }
    return suma;
}

static void comprueba_ids(const std::string &por_id, const caso_a_la_vez &caso)
{
    std::istringstream lista(por_id);
    for (std::string uno; std::getline(lista, uno, ',');) {
        uint32_t id = static_cast<uint32_t>(strtoul(uno.c_str(), nullptr, 10));
        bool mandado = id >= eco_PRIMERO && id < eco_PRIMERO + caso.num_clientes;
        EXPECT_TRUE(mandado || (id == 0 && caso.clase == std::string("sin_ventana"))) << "called with " << uno;
    }
}

TEST_P(a_la_vez, se_estorban_como_los_pasos_permiten_y_despues_todo_esta_entero)
{
    const caso_a_la_vez &caso = GetParam();
    std::string servicio = nombre_unico("vez");
    papel servidor = arranca_eco_servidor(caso.clase, servicio);
    std::vector<papel> clientes;
    for (uint32_t i = 0; i < caso.num_clientes; i++)
        clientes.push_back(arranca_eco_cliente(i, servicio, caso.num_comandos, true));
    for (papel &cliente : clientes)
        espera_latido(ruta_de(cliente));
    for (papel &cliente : clientes)
        cliente.di("YA");

    eco_cuentas suma = suma_respuestas(clientes, caso);
    std::vector<std::string> cuenta = eco_cuenta_de(servidor);
    if (caso.clase != std::string("net")) {
        EXPECT_EQ(cuenta[0], std::to_string(caso.num_clientes * caso.num_comandos)) << "called once for each";
        EXPECT_EQ(cuenta[1], std::to_string(suma.sin_get));
    }
    EXPECT_EQ(cuenta[2], std::to_string(suma.sin_set));
    comprueba_ids(cuenta[6], caso);
    EXPECT_LE(solo_informa(servidor, "iv_mcserv", ENTRADA_DISTINTA), caso.num_clientes * caso.num_comandos);

    uno_solo_lo_encuentra_entero(servicio);
    for (papel &cliente : clientes)
        cliente.di("ACABA");
    for (papel &cliente : clientes)
        EXPECT_EQ(cliente.espera_fin(15000), 0u);
    acaba(servidor);
}

// Each wait for the mutex lasts a round of 100 ms for each client that waits, and a command has about five of them.
INSTANTIATE_TEST_SUITE_P(servidor, a_la_vez,
                         ::testing::Values(caso_a_la_vez{"ventana", 2, 40}, caso_a_la_vez{"ventana", 4, 6},
                                           caso_a_la_vez{"net", 2, 20}, caso_a_la_vez{"sin_ventana", 2, 6}),
                         [](const auto &dato) {
                             return std::string(dato.param.clase) + "_" + std::to_string(dato.param.num_clientes);
                         });

// ---- One interference at a time: another client's ids come between a command's claim and the server's look at it

struct estorbo {
    const char *nombre;
    uint32_t id_comando;     // written over the client's 200
    int32_t entrada;         // written over its input: 0 none, 1 its own, 2 another's, 3 one that is not there
    const char *con_ventana; // what the client then tells: eco_cuentas
    const char *sin_ventana;
    const char *informe_con, *informe_sin;

    friend std::ostream &operator<<(std::ostream &salida, const estorbo &e) { return salida << e.nombre; }
};

// bien, no get, no set, other id, other's input, no input, output lost, odd
static const estorbo ESTORBOS[] = {
    {"nada", 200, 1, "1 0 0 0 0 0 0 0", "1 0 0 0 0 0 0 0", nullptr, nullptr},
    {"otro_comando", 777, 1, "0 1 0 0 0 0 0 0", "0 0 0 1 0 0 0 0", nullptr, nullptr},
    {"otro_comando_sin_entrada", 777, 0, "0 1 0 0 0 0 0 0", "0 0 0 1 0 0 0 0", ENTRADA_DISTINTA, nullptr},
    {"despedida", 0, 0, "0 1 0 0 0 0 0 0", "0 0 0 1 0 0 0 0", ENTRADA_DISTINTA, nullptr},
    {"mismo_comando_sin_entrada", 200, 0, "0 0 0 0 0 1 0 0", "0 0 0 0 0 1 0 0", ENTRADA_DISTINTA, nullptr},
    {"mismo_comando_otra_entrada", 200, 2, "1 0 0 0 0 0 0 0", "0 0 0 0 1 0 0 0", ENTRADA_DISTINTA, nullptr},
    {"mismo_comando_entrada_que_no_esta", 200, 3, "1 0 0 0 0 0 0 0", "0 0 0 0 0 1 0 0", ENTRADA_DISTINTA, SIN_BLOQUE},
};

using caso_estorbo = std::tuple<const char *, estorbo>;

class entre_reclamo_y_toma : public conversacion, public ::testing::WithParamInterface<caso_estorbo> {};

// The server stands still while the client claims, then `hace` runs, then the server goes on. One without a window is
// suspended where it does not hold the mutex that the claim needs.
static void mientras_espera(const std::string &clase, papel &servidor, const std::string &servicio,
                            const std::function<void()> &manda, const std::function<void(bloque_crudo &)> &hace)
{
    const bool sin_ventana = clase == "sin_ventana";
    bloque_crudo canal(nombre_canal(servicio).c_str());
    mutex_crudo mutex(("Mutex_Ivrexa_" + servicio).c_str());
    if (sin_ventana) {
        ASSERT_TRUE(mutex.retiene(10000));
        servidor.suspende();
        mutex.suelta();
    } else {
        servidor.di("PARA");
        servidor.espera_linea("PARADO", 10000);
    }
    manda();
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(1198) == 2; }, 10000)) << "no claim";
    hace(canal);
    if (sin_ventana)
        servidor.reanuda();
    else
        servidor.di("SIGUE");
}

TEST_P(entre_reclamo_y_toma, los_ids_de_otro_dan_lo_que_los_pasos_dicen)
{
    const auto &[clase, e] = GetParam();
    const bool sin_ventana = clase == std::string("sin_ventana");
    std::string servicio = nombre_unico("vez");
    papel servidor = arranca_eco_servidor(clase, servicio);
    papel cliente = arranca_eco_cliente(0, servicio, 1, true);
    registra_para("ventana", servicio);
    comdat *otra = eco_escribe(servicio, "otro:5", 5);
    uint32_t id_otra = ivrexa_guarda_datos(otra);
    espera_latido(ruta_de(cliente));

    mientras_espera(
        clase, servidor, servicio, [&] { cliente.di("YA"); },
        [&, e = e](bloque_crudo &canal) {
            const uint32_t entradas[] = {0, canal.u32(1206), id_otra, 99999};
            EXPECT_EQ(canal.u32(1206), id_otra + 1);
            canal.pon_u32(1202, e.id_comando);
            canal.pon_u32(1206, entradas[e.entrada]);
        });
    EXPECT_EQ(resto_de(cliente, "HECHO ", 20000), sin_ventana ? e.sin_ventana : e.con_ventana);
    if (const char *informe = sin_ventana ? e.informe_sin : e.informe_con)
        EXPECT_INFORME_DE(servidor, "iv_mcserv", informe);
    EXPECT_EQ(servidor.num_informes(), 0u);
    ivrexa_destruye_datos_comando(otra);
    if (e.id_comando == 777) // the longest road
        uno_solo_lo_encuentra_entero(servicio);
    else
        espera_canal_entero(servicio);
    acaba(cliente);
    acaba(servidor);
}

INSTANTIATE_TEST_SUITE_P(servidor, entre_reclamo_y_toma,
                         ::testing::Combine(::testing::Values("ventana", "sin_ventana"), ::testing::ValuesIn(ESTORBOS)),
                         [](const auto &dato) {
                             return std::string(std::get<0>(dato.param)) + "_" + std::get<1>(dato.param).nombre;
                         });

using a_la_vez_uno = conversacion;

// A function that answers without looking whether the library took the answer: the client gets the answer before.
TEST_F(a_la_vez_uno, una_funcion_que_no_mira_si_se_le_acepta_da_los_textos_de_otro)
{
    std::string servicio = nombre_unico("vez");
    papel servidor = arranca_eco_servidor("ventana", servicio);
    papel otro = arranca_eco_cliente(0, servicio, 1, false);
    otro.di("YA");
    EXPECT_EQ(espera_hecho(otro).bien, 1u);
    registra(servicio);
    respuesta r;
    std::unique_ptr<hilo> mio;
    mientras_espera(
        "ventana", servidor, servicio,
        [&] { mio = std::make_unique<hilo>([&] { r = ejecuta(servicio, anfitrion_QUIEN); }); },
        [](bloque_crudo &canal) { canal.pon_u32(1202, 200); });
    EXPECT_TRUE(mio->acaba(10000));
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.t1, L"c0:0");
    EXPECT_EQ(ejecuta(servicio, anfitrion_QUIEN).t1, eco_ancho(servicio));
    acaba(otro);
    acaba(servidor);
}

// Who ends a server without a window while another's command waits there ends it with that command.
TEST_F(a_la_vez_uno, el_final_de_un_servidor_sin_ventana_se_lleva_el_comando_de_otro)
{
    std::string servicio = nombre_unico("vez");
    papel servidor = arranca_eco_servidor("sin_ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    espera_latido(ruta_de(cliente));
    mientras_espera(
        "sin_ventana", servidor, servicio, [&] { cliente.di("COMANDO 200"); },
        [](bloque_crudo &canal) { canal.pon_u32(1202, 1); });
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 10000), "RESULTADO 3");
    servidor.di("ESPERA");
    servidor.espera_linea("ESPERADO", 10000);
    EXPECT_EQ(eco_cuenta_de(servidor)[0], "0") << "never called";
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u16(28), 1u) << "ended";
    EXPECT_EQ(canal.u32(1198), 0u) << "free";
    acaba(cliente);
    acaba(servidor);
}

// Both waits count in the one place that the service has for clients: each round of the one begins the other's count
// anew. Once there is one client left it finds the server dead.
TEST_F(a_la_vez_uno, dos_clientes_de_un_servidor_muerto_esperan_hasta_que_queda_uno)
{
    std::string servicio = nombre_unico("vez");
    papel servidor = arranca_eco_servidor("sin_ventana", servicio);
    papel primero = arranca_cliente("sin_ventana", servicio), segundo = arranca_cliente("sin_ventana", servicio);
    mientras_espera(
        "sin_ventana", servidor, servicio, [&] { primero.di("COMANDO 200"); },
        [&](bloque_crudo &) { servidor.mata(); });
    segundo.di("COMANDO 201");
    EXPECT_FALSE(segundo.busca_linea("RESULTADO ", 6000)) << "alone, a client would have known after 2.6 s";
    EXPECT_FALSE(primero.busca_linea("RESULTADO ", 0));
    primero.mata();
    EXPECT_EQ(segundo.espera_linea("RESULTADO ", 20000), "RESULTADO 3");
    espera_canal_entero(servicio);
    acaba(segundo);
}
