// The registry forged by a program that does not use the library, while servers, clients and a monitor live.
#include "dll_mentiras.h"

static const char *const SIETE = "RESULTADO 7|0|0|0|0";
static const uint64_t NUNCA = 0xffffffff;

class registro_mentido : public ::testing::Test {
protected:
    const std::string servicio = nombre_unico("con"), sin = nombre_unico("sin");
    papel monitor = arranca_papel("vigia"); // the first: it empties the table
    papel servidor = arranca_servidor("ventana", servicio), servidor_sin = arranca_servidor("sin_ventana", sin);
    papel cliente = arranca_victima("sin_ventana", servicio), cliente_sin = arranca_victima("sin_ventana", sin);
    bloque_crudo registro{"Ivrexa_MCB"};

    void SetUp() override { espera_latido(cliente_sin); }

    unsigned actividades()
    {
        unsigned num = 0;
        sscanf(pide(monitor, "CUENTA", "CUENTA ").c_str(), "CUENTA %u", &num);
        return num;
    }

    void siguen()
    {
        EXPECT_EQ(manda(cliente, 127), SIETE);
        EXPECT_EQ(manda(cliente_sin, 127), SIETE);
        for (papel *p : {&cliente, &cliente_sin, &servidor, &servidor_sin, &monitor})
            acaba(*p);
    }
};

TEST_F(registro_mentido, indices_estados_y_cuentas_de_un_servicio)
{
    size_t s = despl_servicio(registro, servicio);
    for (const mentira &m : {
             mentira{"id_programa_servidor", s + 64, 2, 16},
             mentira{"id_programa_servidor", s + 64, 2, 0xffff},
             mentira{"id_programa_cliente", s + 66, 2, 17},
             mentira{"id_programa_cliente", s + 66, 2, 0xffff},
             mentira{"bucle_servidor_estado", s + 68, 4, 7},
             mentira{"bucle_servidor_vueltas", s + 72, 4, NUNCA},
             mentira{"id_comando_en_curso", s + 80, 4, NUNCA},
             mentira{"bucle_cliente_estado", s + 84, 4, 0},
             mentira{"bucle_cliente_estado", s + 84, 4, NUNCA},
             mentira{"bucle_cliente_vueltas", s + 88, 4, NUNCA},
             mentira{"bucle_cliente_vivo_servidor", s + 92, 4, NUNCA},
         }) {
        SCOPED_TRACE(describe(m));
        mentido falso(registro, m);
        EXPECT_EQ(manda(cliente, 127), SIETE);
    }
    // The one that waits in rounds.
    s = despl_servicio(registro, sin);
    for (const mentira &m : {
             mentira{"id_programa_servidor", s + 64, 2, 0xffff},
             mentira{"bucle_servidor_estado", s + 68, 4, 7},
             mentira{"bucle_cliente_estado", s + 84, 4, NUNCA},
             mentira{"bucle_cliente_vueltas", s + 88, 4, NUNCA},
         }) {
        SCOPED_TRACE(describe(m));
        mentido falso(registro, m);
        EXPECT_EQ(manda(cliente_sin, 127), SIETE);
    }
    siguen();
}

// A number that is none counts as 1; a monitor that is not ready is not told.
TEST_F(registro_mentido, contador_de_actividades_y_monitor)
{
    for (uint32_t numero : {0u, 64u, 65u, 0xffffffffu}) {
        SCOPED_TRACE(numero);
        unsigned antes = actividades();
        registro.pon_u32(18, numero);
        EXPECT_EQ(manda(cliente, 127), SIETE);
        EXPECT_EQ(registro.u32(18), 3u);
        EXPECT_EQ(actividades(), antes + 2);
    }
    HWND propia = crea_ventana(), muerta = crea_ventana();
    uint64_t hwnd_propia = reinterpret_cast<uintptr_t>(propia), hwnd_muerta = reinterpret_cast<uintptr_t>(muerta);
    destruye_ventana(&muerta);
    for (const mentira &m :
         {mentira{"tam_bloque", 0, 2, 100}, mentira{"version", 2, 2, 0xffff}, mentira{"hwnd_monitor", 6, 8, 0},
          mentira{"hwnd_monitor", 6, 8, hwnd_muerta}, mentira{"hwnd_monitor", 6, 8, hwnd_propia},
          mentira{"hwnd_monitor", 6, 8, ~uint64_t{0} - 9}, mentira{"msg_monitor", 14, 4, 0},
          mentira{"msg_monitor", 14, 4, NUNCA}}) {
        SCOPED_TRACE(describe(m));
        unsigned antes = actividades();
        mentido falso(registro, m);
        EXPECT_EQ(manda(cliente, 127), SIETE);
        EXPECT_EQ(actividades(), antes);
    }
    destruye_ventana(&propia);
    siguen();
}

// Every free entry taken, by names without an end that are all the same. Who is in the tables goes on; who comes anew
// reports that they are full, and works by messages all the same.
TEST_F(registro_mentido, tablas_llenas_de_nombres_sin_nul)
{
    const std::vector<uint8_t> sano = registro.bytes(1430, 8886 - 1430);
    for (size_t i = 0; i < 16; i++)
        if (registro.bytes(1430 + i * 274, 1)[0] == 0)
            registro.pon_bytes(1430 + i * 274, std::vector<uint8_t>(256, 'A'));
    for (size_t j = 0; j < 32; j++)
        if (registro.bytes(5814 + j * 96, 1)[0] == 0)
            registro.pon_bytes(5814 + j * 96, std::vector<uint8_t>(96, 'B'));
    EXPECT_EQ(manda(cliente, 127), SIETE);
    EXPECT_EQ(manda(cliente_sin, 127), SIETE);
    EXPECT_EQ(pide(cliente, "EMPIEZA BBBB", "EMPIEZA "), "EMPIEZA 0 0"); // found, but it has no channel
    EXPECT_EQ(pide(cliente, "EMPIEZA " + servicio, "EMPIEZA "), "EMPIEZA 1 " + std::to_string(servicio.size()));

    papel nuevo = arranca_victima("sin_ventana", servicio);
    EXPECT_INFORME_DE(nuevo, "iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    EXPECT_EQ(manda(nuevo, 127), SIETE);
    papel servidor_nuevo = arranca_servidor("ventana", servicio + "n");
    EXPECT_INFORME_DE(servidor_nuevo, "iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    EXPECT_INFORME_DE(servidor_nuevo, "iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    EXPECT_INFORME_DE(servidor_nuevo, "iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    papel suyo = arranca_victima("sin_ventana", servicio + "n");
    EXPECT_EQ(toma_informes(suyo), (std::vector<std::string>{"iv_mcbase: id_programa < iv_mcbase_NUM_MAX_PROGRAMAS",
                                                             "iv_mcbase: ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS"}));
    EXPECT_EQ(manda(suyo, 127), SIETE);
    for (papel *p : {&nuevo, &suyo, &servidor_nuevo})
        acaba(*p);

    // The same name in every entry, without an end, also in those of the living.
    for (size_t j = 0; j < 32; j++)
        registro.pon_bytes(5814 + j * 96, std::vector<uint8_t>(64, 'C'));
    EXPECT_EQ(manda(cliente, 127), SIETE);
    EXPECT_EQ(manda(cliente_sin, 127), SIETE);
    for (size_t j = 0; j < 32; j++)
        registro.pon_bytes(5814 + j * 96, {sano.begin() + static_cast<ptrdiff_t>(5814 - 1430 + j * 96),
                                           sano.begin() + static_cast<ptrdiff_t>(5814 - 1430 + j * 96 + 64)});
    siguen();
}

// ---- Anything, anywhere, for a while

class azar {
public:
    explicit azar(uint32_t semilla) : m_estado(semilla) {}
    uint32_t da()
    {
        m_estado = m_estado * 1664525 + 1013904223;
        return m_estado >> 8;
    }

private:
    uint32_t m_estado;
};

// A field of four bytes becomes something else: any number, or one that a state or an index could be. Windows and
// messages stay: what is sent there reaches whoever they name, and that is not for chance to try.
static void miente(bloque_crudo &bloque, size_t tam, size_t desde_ventana, size_t hasta_ventana, azar &a)
{
    static const uint32_t NUMEROS[] = {0, 1, 2, 3, 4, 5, 7, 16, 31, 32, 63, 64, 65, 99, 100, 0x7fffffff, 0xffffffff};
    size_t despl = a.da() % (tam - 4);
    if (despl + 4 > desde_ventana && despl < hasta_ventana)
        return;
    uint32_t cual = a.da();
    bloque.pon_u32(despl, cual % 3 == 0 ? a.da() * 257 : NUMEROS[cual / 3 % 17]);
}

TEST_F(registro_mentido, bytes_al_azar_en_todos_los_bloques_mientras_hay_comandos)
{
    bloque_crudo canal(nombre_canal(servicio).c_str()), canal_sin(nombre_canal(sin).c_str());
    const std::vector<uint8_t> sano = registro.bytes(0, 8886), canal_sano = canal.bytes(0, 2378);
    EXPECT_EQ(manda(cliente_sin, 127), SIETE);
    azar a(20240607);
    cliente.di("RACHA 9000");
    cliente_sin.di("RACHA 9000");
    for (uint64_t limite = GetTickCount64() + 9000; GetTickCount64() < limite; Sleep(2)) {
        miente(canal, 2378, 16, 28, a);
        miente(canal_sin, 2378, 16, 28, a);
        miente(registro, 8886, 6, 18, a);
        if (a.da() % 4 == 0) { // lets them move: what stands in the way is put right
            canal.pon_u32(1198, 0);
            canal.pon_u32(30, 1);
            canal_sin.pon_u32(1198, 0);
        }
    }
    // The one with a window serves on; the others' wait ends at the latest when the service is said to be over.
    registro.pon_bytes(0, sano);
    canal.pon_bytes(0, canal_sano);
    EXPECT_NE(cliente.espera_linea("RACHA ", PLAZO_MS), "RACHA 0");
    canal_sin.pon_u16(28, 1);
    canal_sin.pon_u32(1198, 0);
    EXPECT_NE(cliente_sin.espera_linea("RACHA ", PLAZO_MS), "RACHA 0");
    EXPECT_TRUE(espera_hasta([&] { return canal_sin.u32(30) == 0; }, PLAZO_MS)) << "the loop thread has not ended";
    canal.pon_bytes(0, canal_sano);
    EXPECT_EQ(manda(cliente, 127), SIETE);
    EXPECT_NE(manda(cliente_sin, 127), SIETE);

    static const std::string ESPERADOS[] = {
        "iv_reg: mcserv->info_estadoComando == iv_mcserv_estadoComando_TERMINADO_POR_SERVIDOR",
        "iv_mcserv: mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada", "iv_mcserv: (shared_MCCom) != 0"};
    for (papel *p : {&cliente, &cliente_sin, &servidor, &servidor_sin, &monitor}) {
        for (const std::string &informe : toma_informes(*p))
            EXPECT_NE(std::find(std::begin(ESPERADOS), std::end(ESPERADOS), informe), std::end(ESPERADOS)) << informe;
        acaba(*p);
    }
}
