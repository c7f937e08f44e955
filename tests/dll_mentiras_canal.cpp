// The channel forged by a program that does not use the library: what a command then gives, what waits, and that the
// same server serves on once the lie is gone.
#include "dll_mentiras.h"

static const char *const SIETE = "RESULTADO 7|0|0|0|0";
static const char *const CERO = "RESULTADO 0|0|0|0|0";
static const char *const TRES = "RESULTADO 3|0|0|0|0";
static const uint64_t NUNCA = 0xffffffff;

// ---- Lies that a command does not mind

static const mentira INOCUAS[] = {
    {"tam_bloque", 0, 2, 0},
    {"tam_bloque", 0, 2, 0xffff},
    {"version_servicio", 2, 2, 0xffff},
    {"info_estadoComando", 4, 4, 3},
    {"info_estadoComando", 4, 4, 9},
    {"info_estadoComando", 4, 4, NUNCA},
    {"resultado", 8, 4, NUNCA},
    {"id_bloque_MCCom_siguiente", 12, 4, 0},
    {"id_bloque_MCCom_siguiente", 12, 4, NUNCA},
    {"servidor_terminado", 28, 2, 2},
    {"servidor_terminado", 28, 2, 0xffff},
    {"id_resultado", 34, 4, NUNCA},
    {"hwnd_cliente", 1190, 8, ~uint64_t{0}},
    {"id_comando", 1202, 4, NUNCA},
    {"id_bloque_MCCom_entrada", 1206, 4, NUNCA},
    {"estado_notificacion", 2362, 4, 2},
    {"estado_notificacion", 2362, 4, 4},
    {"estado_notificacion", 2362, 4, 7},
    {"estado_notificacion", 2362, 4, NUNCA},
    {"notificacion_dato1", 2366, 4, NUNCA},
};

class con_servidor : public ::testing::Test {
protected:
    const std::string servicio = nombre_unico("mentira");

    void con_cada_mentira(papel &cliente)
    {
        bloque_crudo canal(nombre_canal(servicio).c_str());
        for (const mentira &m : INOCUAS) {
            SCOPED_TRACE(describe(m));
            mentido falso(canal, m);
            EXPECT_EQ(manda(cliente, 127), SIETE);
        }
    }
};

TEST_F(con_servidor, con_ventana_contesta_igual_con_campos_que_no_mira)
{
    papel servidor = arranca_servidor("ventana", servicio), cliente = arranca_victima("sin_ventana", servicio);
    con_cada_mentira(cliente);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    for (const mentira &m : {mentira{"servidor_terminado", 28, 2, 1}, mentira{"estado_servidor", 30, 4, 0}}) {
        SCOPED_TRACE(describe(m));
        mentido falso(canal, m);
        EXPECT_EQ(manda(cliente, 127), SIETE);
        EXPECT_EQ(pide(cliente, "HAY", "HAY "), "HAY 0 300");
    }
    for (const mentira &m : {mentira{"estado_servidor", 30, 4, 77}, mentira{"servidor_terminado", 28, 2, 2}}) {
        SCOPED_TRACE(describe(m));
        mentido falso(canal, m);
        EXPECT_EQ(pide(cliente, "HAY", "HAY "), "HAY 1 300");
    }
    EXPECT_EQ(manda(cliente, 127), SIETE);
    acaba(cliente);
    acaba(servidor);
}

TEST_F(con_servidor, net_contesta_igual_con_campos_que_no_mira)
{
    papel servidor = arranca_servidor("net", servicio), cliente = arranca_victima("ventana", servicio);
    con_cada_mentira(cliente);
    EXPECT_EQ(manda(cliente, 127), SIETE);
    acaba(cliente);
    acaba(servidor);
}

// About five rounds a command: the longest of these tests.
TEST_F(con_servidor, sin_ventana_contesta_igual_con_campos_que_no_mira)
{
    papel servidor = arranca_servidor("sin_ventana", servicio), cliente = arranca_victima("sin_ventana", servicio);
    espera_latido(cliente);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    for (const mentira &m : {mentira{"info_estadoComando", 4, 4, 9}, mentira{"id_resultado", 34, 4, NUNCA},
                             mentira{"servidor_terminado", 28, 2, 2}, mentira{"hwnd_cliente", 1190, 8, NUNCA},
                             mentira{"estado_servidor", 30, 4, 77}, mentira{"hwnd_servidor", 16, 8, NUNCA}}) {
        SCOPED_TRACE(describe(m));
        mentido falso(canal, m);
        EXPECT_EQ(manda(cliente, 127), SIETE);
    }
    EXPECT_EQ(manda(cliente, 127), SIETE);
    acaba(cliente);
    acaba(servidor);
}

// ---- Windows and messages

TEST_F(con_servidor, ventana_que_no_lo_es_da_0_y_nadie_espera)
{
    papel servidor = arranca_servidor("ventana", servicio), cliente = arranca_victima("ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    HWND muerta = crea_ventana();
    uint64_t hwnd_muerta = reinterpret_cast<uintptr_t>(muerta);
    destruye_ventana(&muerta);
    for (uint64_t hwnd : {uint64_t{0}, uint64_t{1}, hwnd_muerta, uint64_t{0x7fffffffffffffff}, ~uint64_t{0} - 9}) {
        SCOPED_TRACE(hwnd);
        mentido falso(canal, {"hwnd_servidor", 16, 8, hwnd});
        EXPECT_EQ(manda(cliente, 127), CERO);
    }
    // Its own window: it has no command function, and no function for notifications either.
    mentido falso(canal, {"hwnd_servidor", 16, 8, hwnd_de(cliente)});
    EXPECT_EQ(manda(cliente, 127), CERO);
    EXPECT_EQ(pide(cliente, "TERMINA", "TERMINADO"), "TERMINADO");
    pon_campo(canal, {"hwnd_servidor", 16, 8, 0}, hwnd_de(servidor));
    EXPECT_EQ(manda(cliente, 127), SIETE);
    pon_campo(canal, {"hwnd_servidor", 16, 8, 0}, 0);
    acaba(cliente);
    acaba(servidor);
}

// Within one thread a message is a call of the window's procedure, and what that is given as an address with a system
// message it reads or writes: 0x0d the text of a window, 0x24 its bounds, 0x83 its rectangle.
TEST_F(con_servidor, mensaje_del_sistema_no_escribe_en_la_memoria_del_cliente)
{
    papel servidor = arranca_servidor("ventana", servicio), cliente = arranca_victima("ventana", servicio);
    uint64_t hwnd_cliente = hwnd_de(cliente);
    uint32_t direccion = static_cast<uint32_t>(std::stoull(pide(cliente, "DIRECCION", "DIRECCION ").substr(10)));
    const std::string intactos = pide(cliente, "BYTES", "BYTES ");
    bloque_crudo canal(nombre_canal(servicio).c_str());
    for (uint32_t msg : {0x0du, 0x24u, 0x83u}) {
        SCOPED_TRACE(msg);
        mentido ventana(canal, {"hwnd_servidor", 16, 8, hwnd_cliente});
        mentido mensaje(canal, {"msg_servidor", 24, 4, msg});
        manda(cliente, 127, direccion);
        EXPECT_EQ(pide(cliente, "BYTES", "BYTES "), intactos) << "the forger wrote into the client's own memory";
    }
    EXPECT_EQ(manda(cliente, 127), SIETE);
    acaba(cliente);
    acaba(servidor);
}

// ---- Texts without an end

static void llena_textos(bloque_crudo &canal)
{
    canal.pon_bytes(38, std::vector<uint8_t>(1190 - 38, 0x41));
    canal.pon_bytes(1210, std::vector<uint8_t>(2362 - 1210, 0x41));
}

class con_cada_servidor : public con_servidor, public ::testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(servidor, con_cada_servidor, ::testing::Values("ventana", "sin_ventana", "net"),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(con_cada_servidor, textos_sin_nul_se_cortan_a_su_campo)
{
    papel servidor = arranca_servidor(GetParam(), servicio), cliente = arranca_victima("sin_ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    espera_latido(cliente);
    cliente.di("COMANDO 103 0");
    servidor.espera_linea("DENTRO", PLAZO_MS);
    llena_textos(canal);
    servidor.di("SIGUE");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", PLAZO_MS), "RESULTADO 1|0|63|255|255");

    if (std::string(GetParam()) != "sin_ventana") { // there the command's texts are sent by a foreign client
        llena_textos(canal);
        canal.pon_u32(1198, 2);
        canal.pon_u32(1202, 104);
        EXPECT_EQ(SendMessageW(reinterpret_cast<HWND>(canal.u64(16)), canal.u32(24), 104, 0), 1);
        EXPECT_EQ(servidor.espera_linea("LARGOS ", PLAZO_MS), "LARGOS 63|255|255");
        canal.pon_u32(1198, 0);
    }
    EXPECT_EQ(manda(cliente, 127), SIETE);
    acaba(cliente);
    acaba(servidor);
}

// ---- States that do not exist

struct atasco {
    mentira falso;
    mentira remedio;
    const char *fin;
};

// The client waits, as it does for a server that is slow; the right state ends that.
TEST_F(con_servidor, estado_que_no_existe_hace_esperar_hasta_que_se_arregla)
{
    static const atasco ATASCOS[] = {
        {{"ocupacion", 1198, 4, 5}, {"ocupacion", 1198, 4, 0}, SIETE},
        {{"ocupacion", 1198, 4, NUNCA}, {"servidor_terminado", 28, 2, 1}, SIETE}, // unclaimed, and sent all the same
        {{"estado_servidor", 30, 4, 2}, {"estado_servidor", 30, 4, 1}, SIETE},
        {{"estado_servidor", 30, 4, 77}, {"servidor_terminado", 28, 2, 1}, SIETE},
        {{"estado_servidor", 30, 4, NUNCA}, {"info_estadoComando", 4, 4, 5}, SIETE},
        {{"msg_servidor", 24, 4, 0}, {"servidor_terminado", 28, 2, 1}, TRES},
    };
    papel servidor = arranca_servidor("ventana", servicio), cliente = arranca_victima("sin_ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    const std::vector<uint8_t> sano = canal.bytes(0, 2378);
    for (const atasco &a : ATASCOS) {
        SCOPED_TRACE(describe(a.falso));
        pon_campo(canal, a.falso, a.falso.valor);
        cliente.di("COMANDO 127 0");
        EXPECT_EQ(cliente.busca_linea("RESULTADO ", 400), std::nullopt);
        pon_campo(canal, a.remedio, a.remedio.valor);
        EXPECT_EQ(cliente.espera_linea("RESULTADO ", PLAZO_MS), a.fin);
        canal.pon_bytes(0, sano);
        EXPECT_EQ(manda(cliente, 127), SIETE);
    }
    acaba(cliente);
    acaba(servidor);
}

// Whatever the state says: 26 rounds without a heartbeat end each wait.
TEST_F(con_servidor, estado_que_no_existe_no_sobrevive_al_servidor)
{
    for (const mentira &m : {mentira{"ocupacion", 1198, 4, 5}, mentira{"estado_servidor", 30, 4, 77}}) {
        SCOPED_TRACE(describe(m));
        std::string suyo = servicio + m.campo;
        papel servidor = arranca_servidor("ventana", suyo), cliente = arranca_victima("sin_ventana", suyo);
        bloque_crudo canal(nombre_canal(suyo).c_str());
        pon_campo(canal, m, m.valor);
        servidor.mata();
        EXPECT_EQ(manda(cliente, 127), CERO);
        EXPECT_EQ(canal.u16(28), 1u);
        acaba(cliente);
    }
}

// A foreign client without the library leaves the state 9 where its receipt should be: a report in each round, until it
// says 4.
TEST_F(con_servidor, recibo_que_no_existe_se_informa_en_cada_ronda_y_el_servidor_sigue)
{
    papel servidor = arranca_servidor("sin_ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    canal.pon_u32(1202, 127);
    canal.pon_u32(1198, 2);
    canal.pon_u32(4, 1);
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(4) == 3; }, PLAZO_MS));
    EXPECT_EQ(canal.u32(8), 7u);
    canal.pon_u32(4, 9);
    for (int i = 0; i < 3; i++)
        EXPECT_INFORME_DE(servidor, "iv_reg",
                          "mcserv->info_estadoComando == iv_mcserv_estadoComando_TERMINADO_POR_SERVIDOR");
    canal.pon_u32(4, 4);
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(4) == 5; }, PLAZO_MS));
    canal.pon_u32(1198, 0);
    canal.pon_u32(4, 0);
    for (const std::string &informe : toma_informes(servidor)) // one may have stood meanwhile
        EXPECT_NE(informe.find("TERMINADO_POR_SERVIDOR"), std::string::npos) << informe;

    papel cliente = arranca_victima("sin_ventana", servicio);
    espera_latido(cliente);
    EXPECT_EQ(manda(cliente, 127), SIETE);
    acaba(cliente);
    acaba(servidor);
}
