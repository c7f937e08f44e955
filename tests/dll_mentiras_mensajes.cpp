// Messages that a foreign program sends or posts: a service's to its server, and the monitor's to the monitor.
#include "dll_mentiras.h"

static const char *const SIETE = "RESULTADO 7|0|0|0|0";
static const char *const ENTRADA_AJENA = "iv_mcserv: mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada";

class mensajes : public ::testing::Test {
protected:
    const std::string servicio = nombre_unico("mensaje");
    papel servidor = arranca_servidor("ventana", servicio), cliente = arranca_victima("sin_ventana", servicio);
    const HWND hwnd = reinterpret_cast<HWND>(hwnd_de(servidor));
    const UINT msg = RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + servicio).c_str());

    LRESULT envia(WPARAM wparam, LPARAM lparam)
    {
        DWORD_PTR respuesta = 0xeeee;
        EXPECT_NE(SendMessageTimeoutW(hwnd, msg, wparam, lparam, SMTO_NORMAL, PLAZO_MS, &respuesta), 0)
            << "the server does not answer";
        return static_cast<LRESULT>(respuesta);
    }

    // What was posted before is done when this is answered.
    void comprueba_que_sirve()
    {
        EXPECT_EQ(manda(cliente, 127), SIETE);
        acaba(cliente);
        acaba(servidor);
    }
};

// The low 32 bits are what counts; 0 in all 64 is no command.
TEST_F(mensajes, de_un_servicio_llevan_32_bits)
{
    static const struct {
        uint64_t wparam, lparam;
        LRESULT respuesta;
    } CASOS[] = {
        {2, 0, 1},
        {99, 5, 1},
        {127, 0, 7},
        {0x7fffffff, 0, 99},
        {0xffffffff, 0, 99},
        {0x10000007f, 0, 7},
        {0x8000000000000002, 0, 1},
        {0xffffffffffffffff, 0, 99},
        {127, 0xffffffff00000000, 7},
        {127, 0x8000000000000000, 7},
    };
    for (const auto &c : CASOS) {
        SCOPED_TRACE(volcado_hex({reinterpret_cast<const uint8_t *>(&c), reinterpret_cast<const uint8_t *>(&c + 1)}));
        EXPECT_EQ(envia(c.wparam, static_cast<LPARAM>(c.lparam)), c.respuesta);
    }
    EXPECT_EQ(envia(0, 7), 77);
    EXPECT_EQ(servidor.espera_linea("PROPIA ", PLAZO_MS), "PROPIA 0");
    comprueba_que_sirve();
}

// A block that the channel does not name is one report, and the command has no input; one that it names and that is not
// there is another.
TEST_F(mensajes, con_bloques_que_no_hay_son_un_informe_cada_uno)
{
    bloque_crudo canal(nombre_canal(servicio).c_str());
    for (uint32_t id : {1u, 99u, 0x80000000u, 0xffffffffu}) {
        SCOPED_TRACE(id);
        EXPECT_EQ(envia(127, id), 7);
        EXPECT_EQ(toma_informes(servidor), std::vector<std::string>{ENTRADA_AJENA});
        canal.pon_u32(1206, id);
        EXPECT_EQ(envia(127, id), 7);
        EXPECT_EQ(toma_informes(servidor), std::vector<std::string>{"iv_mcserv: (shared_MCCom) != 0"});
        EXPECT_EQ(canal.u32(1206), 0u);
    }
    comprueba_que_sirve();
}

TEST_F(mensajes, miles_en_cola_se_atienden_uno_tras_otro)
{
    for (int i = 0; i < 9000; i++)
        ASSERT_TRUE(PostMessageW(hwnd, msg, i % 2 == 0 ? 127 : 2, 0)) << i;
    comprueba_que_sirve();
}

// Each of these reports, and the box of a report takes the next message from the queue: boxes would stand inside boxes
// as deep as the queue is long.
TEST_F(mensajes, que_se_informan_no_se_apilan_sin_fin)
{
    for (int i = 0; i < 600; i++)
        ASSERT_TRUE(PostMessageW(hwnd, msg, 127, 5)) << i;
    cliente.di("COMANDO 127 0");
    std::optional<std::string> linea = cliente.busca_linea("RESULTADO ", 30000);
    std::vector<std::string> informes = toma_informes(servidor);
    ASSERT_TRUE(servidor.vive()) << "the server crashed after " << informes.size() << " reports";
    ASSERT_EQ(linea.value_or("nothing"), SIETE) << "it no longer serves, after " << informes.size() << " reports";
    EXPECT_FALSE(informes.empty());
    acaba(cliente);
    acaba(servidor);
}

// ---- The monitor's

TEST(mensajes_monitor, forjados_se_dejan_caer_o_se_leen_dentro_de_la_tabla)
{
    papel monitor = arranca_papel("vigia");
    HWND hwnd = reinterpret_cast<HWND>(hwnd_de(monitor));
    UINT msg = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
    bloque_crudo registro("Ivrexa_MCB");
    auto envia = [&](WPARAM wparam, uint64_t lparam) {
        DWORD_PTR respuesta = 0xeeee;
        LPARAM dato = static_cast<LPARAM>(lparam);
        EXPECT_NE(SendMessageTimeoutW(hwnd, msg, wparam, dato, SMTO_NORMAL, PLAZO_MS, &respuesta), 0);
        EXPECT_EQ(respuesta, 0u);
    };
    EXPECT_EQ(pide(monitor, "CUENTA", "CUENTA "), "CUENTA 0 0 0");

    // Records name no service yet; then all of them name the last, or one beyond it.
    static const uint64_t EXTREMOS[] = {0,          1,
                                        2,          63,
                                        64,         65,
                                        0xffff,     0x10000,
                                        0x7fffffff, 0x80000000,
                                        0xffffffff, 0x100000001,
                                        31,         0x1f001f,
                                        32,         0xffff0000,
                                        0xffff001f, 0x8000000000000000,
                                        33,         0xffffffffffffffff};
    for (uint32_t ind : {32u, 31u, 33u, 0xffffffffu}) {
        SCOPED_TRACE(ind);
        for (uint32_t n = 0; n < 64; n++)
            registro.pon_bytes(22 + n * 22, std::vector<uint8_t>(22, 0xff));
        for (uint32_t n = 0; n < 64; n++)
            registro.pon_u32(22 + n * 22, ind);
        for (WPARAM wparam : {WPARAM{0}, WPARAM{3}, WPARAM{0xffffffff}, WPARAM{0x100000000}, ~WPARAM{0}})
            for (uint64_t lparam : EXTREMOS)
                envia(wparam, lparam);
    }
    // Of the numbers these are records: 1 (twice: one with upper bits), 2, 63, 64, 31, 32 and 33.
    EXPECT_EQ(pide(monitor, "CUENTA", "CUENTA "), "CUENTA 8 0 0");

    registro.pon_bytes(5814, std::vector<uint8_t>(32 * 96, 'x')); // names without an end
    for (WPARAM wparam : {WPARAM{1}, WPARAM{2}})
        for (uint64_t lparam : EXTREMOS)
            envia(wparam, lparam);
    // As indexes: 0 (four times, by upper bits), 1 (twice), 2, and 31 (three times).
    EXPECT_EQ(pide(monitor, "CUENTA", "CUENTA "), "CUENTA 8 11 11");

    for (int i = 0; i < 9000; i++)
        ASSERT_TRUE(PostMessageW(hwnd, msg, i % 5, i * 7919)) << i;
    EXPECT_EQ(pide(monitor, "CUENTA", "CUENTA ").substr(0, 7), "CUENTA ");
    acaba(monitor);
}
