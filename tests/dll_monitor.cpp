// A monitor comes and goes: what it writes, what it wipes, what stays.
#include "dll_monitor.h"

using monitor_solo = conversacion;
using registro_de_monitor = conversacion;
using fin_de_monitor = conversacion;

static const uint8_t SUCIO = 0x5A;

static std::vector<uint8_t> todo(const bloque_crudo &registro)
{
    return registro.bytes(0, 8886);
}

template <class numero>
static void pon(std::vector<uint8_t> *imagen, size_t despl, numero valor)
{
    memcpy(imagen->data() + despl, &valor, sizeof valor);
}

static uint64_t numero_de(HWND hwnd)
{
    return reinterpret_cast<uint64_t>(hwnd);
}

// Dirt everywhere but in the programs' names, with which nobody could register.
static void ensucia(bloque_crudo *registro)
{
    registro->pon_bytes(0, std::vector<uint8_t>(8886, SUCIO));
    for (size_t i = 0; i < 16; i++)
        registro->pon_u16(1430 + i * 274, 0);
}

// ---- Alone on the desktop. First: this process, too, keeps the registry open once it has used it.

TEST_F(monitor_solo, sin_registro_y_sin_acceso_no_hace_nada_ni_al_de_otro)
{
    vigia v(monitor_NINGUNO);
    v.quita();
    EXPECT_EQ(v.proceso().num_informes(), 0u);
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
    EXPECT_TRUE(v.ventanas_propias());

    v.registra(monitor_ENTERO);
    bloque_crudo registro("Ivrexa_MCB");
    std::vector<uint8_t> antes = todo(registro);
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_TRUE(bytes_iguales(antes, todo(registro))) << "this process has not opened the registry";
}

TEST_F(monitor_solo, sin_programas_cierra_el_registro_y_con_ellos_sus_manejadores_quedan)
{
    vigia v;
    EXPECT_TRUE(existe_bloque("Ivrexa_MCB"));
    v.quita();
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB")) << "nobody else had it";
    EXPECT_FALSE(existe_mutex("Ivrexa_Mutex_MCB"));

    v.registra(monitor_ENTERO);
    papel servidor = arranca_servidor("ventana", nombre_unico("serv"));
    v.dicho();
    uint32_t antes = v.manejadores();
    v.quita();
    EXPECT_EQ(v.manejadores(), antes);
    servidor.mata();
    EXPECT_TRUE(existe_bloque("Ivrexa_MCB")) << "the handles that were left open hold it";
    EXPECT_TRUE(existe_mutex("Ivrexa_Mutex_MCB"));
    v.pide("REGISTRA 0", "REGISTRADO");
    EXPECT_TRUE(existe_bloque("Ivrexa_MCB")) << "and are not found again";
    v.proceso().di("ACABA");
    EXPECT_EQ(v.proceso().espera_fin(15000), 0u);
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
}

// ---- Registering

TEST_F(registro_de_monitor, escribe_cabecera_y_anillo_y_vacia_los_nombres_y_nada_mas)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    ensucia(&registro);
    std::vector<uint8_t> esperado = todo(registro);
    vigia v;

    pon<uint16_t>(&esperado, 0, 8886);
    pon<uint16_t>(&esperado, 2, 256);
    pon<uint16_t>(&esperado, 4, 0x5A5B);
    pon<uint64_t>(&esperado, 6, numero_de(v.hwnd()));
    pon<uint32_t>(&esperado, 14, mensaje_monitor());
    pon<uint32_t>(&esperado, 18, 1);
    for (size_t n = 0; n < 64; n++) {
        pon<uint32_t>(&esperado, 22 + n * 22, 32);
        pon<uint64_t>(&esperado, 22 + n * 22 + 4, 0);
        pon<uint32_t>(&esperado, 22 + n * 22 + 16, 0); // the acting side and the flag stay as they were
    }
    for (size_t j = 0; j < 32; j++)
        pon<uint8_t>(&esperado, 5814 + j * 96, 0);
    EXPECT_TRUE(bytes_iguales(esperado, todo(registro)));
    EXPECT_GE(mensaje_monitor(), 0xC000u);

    v.quita();
    pon<uint64_t>(&esperado, 6, 0);
    EXPECT_TRUE(bytes_iguales(esperado, todo(registro))) << "the end clears the window and nothing else";
}

TEST_F(registro_de_monitor, en_un_bloque_nuevo_escribe_lo_mismo_y_no_entra_en_la_tabla_de_programas)
{
    vigia v;
    bloque_crudo registro("Ivrexa_MCB");
    ASSERT_TRUE(registro.abierto());
    EXPECT_EQ(registro.cabecera(), 8886u);
    EXPECT_EQ(registro.u16(0), 8886u);
    EXPECT_EQ(registro.u16(2), 256u);
    EXPECT_EQ(registro.u16(4), 1u) << "num_registros";
    EXPECT_EQ(registro.u32(18), 1u);
    for (uint32_t n = 1; n <= 64; n++)
        EXPECT_EQ(registro_en(registro, n), "32 0 0 0 0 0") << n;
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(8886 - 1430, 0), registro.bytes(1430, 8886 - 1430)));
}

TEST_F(registro_de_monitor, se_cuenta_si_es_lo_primero_que_abre_el_registro_en_su_proceso)
{
    vigia v(monitor_NINGUNO);
    v.pide("SOLICITA " + std::string(nombre_unico("serv")), "SOLICITADO");
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u16(4), 1u) << "a client's registration opened it";
    v.registra(monitor_ENTERO);
    EXPECT_EQ(registro.u16(4), 1u);
    size_t entrada = despl_programa(registro, ruta_de(v.proceso()));
    ASSERT_NE(entrada, 0u);
    EXPECT_EQ(registro.u16(entrada + 266), 1u) << "es_cliente";
    EXPECT_EQ(registro.u16(entrada + 268), 0u) << "es_monitor";

    vigia segundo(monitor_NINGUNO);
    EXPECT_EQ(registro.u16(4), 1u);
    segundo.registra(monitor_ENTERO);
    EXPECT_EQ(registro.u16(4), 2u);
    registro.pon_u16(4, 0xFFFF);
    vigia tercero;
    EXPECT_EQ(registro.u16(4), 0u) << "it wraps";
}

TEST_F(registro_de_monitor, segundo_del_mismo_proceso_se_informa_y_no_cambia_nada)
{
    vigia v;
    papel servidor = arranca_servidor("ventana", nombre_unico("serv"));
    bloque_crudo registro("Ivrexa_MCB");
    std::vector<uint8_t> cabecera_y_anillo = registro.bytes(0, 1430), servicios = registro.bytes(5814, 3072);

    for (uint32_t mascara : {uint32_t{monitor_ENTERO}, uint32_t{con_OTRA_VENTANA | 15}}) {
        v.pide("REGISTRA " + std::to_string(mascara), "REGISTRADO");
        EXPECT_INFORME_DE(v.proceso(), "iv_mcbase", "s_programa_monitor == NULL");
        EXPECT_EQ(v.proceso().num_informes(), 0u);
    }
    EXPECT_TRUE(bytes_iguales(cabecera_y_anillo, registro.bytes(0, 1430)));
    EXPECT_TRUE(bytes_iguales(servicios, registro.bytes(5814, 3072)));
    EXPECT_EQ(v.pide("PROC", "PROC "), "PROC 0 1") << "the first window stays subclassed, the other is left alone";

    // The checks on the functions come first, and do not say what happens.
    v.pide("REGISTRA " + std::to_string(con_VENTANA), "REGISTRADO");
    EXPECT_INFORME_DE(v.proceso(), "ivrexa", "(funcionNotificacionActividad) != 0");
    EXPECT_INFORME_DE(v.proceso(), "ivrexa", "(funcionMonitorBuclesCliente) != 0");
    EXPECT_INFORME_DE(v.proceso(), "ivrexa", "(funcionMonitorBuclesServidor) != 0");
    EXPECT_INFORME_DE(v.proceso(), "iv_mcbase", "s_programa_monitor == NULL");
    EXPECT_EQ(registro.u32(18), 2u);
}

TEST_F(registro_de_monitor, funciones_nulas_se_informan_y_solo_se_llaman_las_otras)
{
    struct caso {
        uint32_t mascara;
        std::vector<const char *> informes;
        std::vector<std::string> llamadas;
    };
    const std::string act = "ACT 1 2 1 \"visto\" 70 80 0", cliente = "BUCLE cliente 4 \"visto\" 3 0 0 0 0 0 0 0",
                      servidor = "BUCLE servidor 4 \"visto\" 2 0 0 0 0 0 0 0";
    const char *const sin_act = "(funcionNotificacionActividad) != 0";
    const char *const sin_cliente = "(funcionMonitorBuclesCliente) != 0";
    const char *const sin_servidor = "(funcionMonitorBuclesServidor) != 0";
    const caso casos[] = {
        {con_VENTANA | 7, {}, {act, cliente, servidor}}, // null external data are nothing to report
        {con_VENTANA | 6, {sin_act}, {cliente, servidor}}, {con_VENTANA | 5, {sin_cliente}, {act, servidor}},
        {con_VENTANA | 3, {sin_servidor}, {act, cliente}}, {con_VENTANA, {sin_act, sin_cliente, sin_servidor}, {}},
    };
    vigia v(monitor_NINGUNO);
    bloque_crudo registro("Ivrexa_MCB", 8886);
    for (const caso &c : casos) {
        SCOPED_TRACE(c.mascara);
        v.registra(c.mascara);
        for (const char *informe : c.informes)
            EXPECT_INFORME_DE(v.proceso(), "ivrexa", informe);
        EXPECT_EQ(v.proceso().num_informes(), 0u);
        EXPECT_EQ(registro.u64(6), numero_de(v.hwnd())) << "registered all the same";

        registro.pon_texto(5814 + 4 * 96, "visto");
        registro.pon_bytes(22, de_hex("04000000 46000000 50000000 01000000 02000000 0100"));
        EXPECT_EQ(v.manda(0, 1), 0);
        EXPECT_EQ(v.manda(1, 0x30004), 0);
        EXPECT_EQ(v.manda(2, 0x20004), 0);
        EXPECT_EQ(v.dicho(), c.llamadas);
        v.quita();
    }
}

TEST_F(registro_de_monitor, los_demas_mensajes_van_al_procedimiento_de_la_ventana_con_su_respuesta)
{
    vigia v(monitor_NINGUNO);
    EXPECT_TRUE(v.ventanas_propias());
    EXPECT_EQ(v.manda(0, 1), 55) << "no monitor: its message is as any other";
    EXPECT_EQ(v.dicho(), std::vector<std::string>{"PROPIA"});

    v.registra(monitor_ENTERO);
    EXPECT_EQ(v.pide("PROC", "PROC "), "PROC 0 1");
    EXPECT_EQ(v.manda(0x1234567890, 0x9876543210, MSG_MARCA), 0x1234567890 * 3 + 0x9876543210);
    EXPECT_EQ(v.dicho(), std::vector<std::string>{"MARCA 78187493520"});
    EXPECT_EQ(v.manda(0, 1), 0);
    EXPECT_EQ(v.manda(99, 1), 0);
    EXPECT_EQ(v.dicho(), std::vector<std::string>{}) << "the monitor's own message goes no further";

    v.quita();
    EXPECT_TRUE(v.ventanas_propias());
    EXPECT_EQ(v.manda(0, 1), 55);
}

// ---- The service table, wiped

class tabla_vaciada : public con_cada_servidor {};
CON_CADA_SERVIDOR(tabla_vaciada);

// Who had registered before goes on as if nothing had happened, but unseen: nothing finds the service by its
// name.
TEST_P(tabla_vaciada, quien_ya_era_cliente_manda_y_recibe_pero_el_monitor_no_sabe_de_que_servicio)
{
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    bloque_crudo registro("Ivrexa_MCB");
    ASSERT_EQ(despl_servicio(registro, servicio), 5814u);
    vigia v;

    char nombre[64] = "nada";
    uint16_t version = 7;
    EXPECT_EQ(registro.texto(5814, 64), "");
    EXPECT_EQ(registro.texto(5814 + 1, 63), servicio.substr(1)) << "only the first byte is cleared";
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por("", nombre, &version), FALSO);
    EXPECT_STREQ(nombre, "nada");
    EXPECT_EQ(version, 7u);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), &version), CIERTO) << "the channel says so";
    EXPECT_EQ(version, 300u);
    {
        entrada_muestra entrada(servicio, 1);
        respuesta r = ejecuta(servicio, 100, entrada.id(), L"ab");
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(r.id_salida, 101u);
        EXPECT_EQ(r.t1, L"ba");
    }
    std::vector<std::string> rondas = las_que_empiezan(v.oye({}), "BUCLE ");
    EXPECT_EQ(rondas.empty(), clase != "sin_ventana");
    for (const std::string &ronda : rondas)
        EXPECT_NE(ronda.find(" 0 \"\" "), std::string::npos) << "rounds come by the index: " << ronda;

    // A new client enters the service again: from now on its commands are seen, whoever sends them.
    papel cliente = arranca_cliente("sin_ventana", servicio);
    EXPECT_EQ(despl_servicio(registro, servicio), 5814u);
    if (clase == "sin_ventana")
        espera_latido(ruta_de(cliente));
    EXPECT_EQ(ejecuta(servicio, 102).resultado, 1u);
    v.oye({{1, 2, 1, servicio, 102, 0}, {1, 2, 0, servicio, 102, 0}});
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), nombre, nullptr), CIERTO);
    acaba(servidor);
    v.oye({{0, 1, 0, "", 0, 0}});
    acaba(cliente);
}

TEST_F(registro_de_monitor, servicio_anunciado_otra_vez_vuelve_a_la_tabla_y_al_anillo)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    papel servidor = arranca_servidor("ventana", uno + "," + dos);
    registra(dos);
    bloque_crudo registro("Ivrexa_MCB");
    ASSERT_EQ(despl_servicio(registro, dos), 5814u + 96);
    vigia v;
    EXPECT_EQ(ejecuta(dos, 102).resultado, 1u);
    v.oye_solo({});

    servidor.di("PUBLICA");
    servidor.espera_linea("PUBLICADO", 10000);
    v.oye_solo({{0, 1, 1, uno, 0, 0, 0}, {0, 1, 1, dos, 0, 0, 1}});
    EXPECT_EQ(ejecuta(dos, 102).resultado, 1u);
    v.oye_solo({{1, 2, 1, dos, 102, 0, 1}, {1, 2, 0, dos, 102, 0, 1}});
    acaba(servidor);
    v.oye_solo({{0, 1, 0, "", 0, 0, 0}, {0, 1, 0, "", 0, 0, 1}});
}

// ---- Unregistering

TEST_F(fin_de_monitor, con_lo_que_debe_ser_nulo_se_informa_y_acaba_igual)
{
    struct caso {
        uint32_t mascara;
        const char *informe;
    };
    static const caso CASOS[] = {
        {con_ACTIVIDAD, "funcionNotificacionActividad == NULL"},
        {con_CLIENTE, "funcionMonitorBuclesCliente == NULL"},
        {con_SERVIDOR, "funcionMonitorBuclesServidor == NULL"},
        {con_EXTERNOS, "datos_externos_monitor == NULL"},
    };
    vigia v(monitor_NINGUNO);
    bloque_crudo registro("Ivrexa_MCB", 8886);
    for (const caso &c : CASOS) {
        SCOPED_TRACE(c.informe);
        v.registra(monitor_ENTERO);
        v.registra(c.mascara);
        EXPECT_INFORME_DE(v.proceso(), "ivrexa", c.informe);
        EXPECT_EQ(v.proceso().num_informes(), 0u);
        EXPECT_EQ(registro.u64(6), 0u);
        EXPECT_TRUE(v.ventanas_propias());
    }
    v.registra(monitor_ENTERO);
    v.registra(15);
    for (const caso &c : CASOS)
        EXPECT_INFORME_DE(v.proceso(), "ivrexa", c.informe);
    EXPECT_EQ(v.proceso().num_informes(), 0u);
    EXPECT_EQ(registro.u64(6), 0u);
    EXPECT_TRUE(v.ventanas_propias());
}

TEST_F(fin_de_monitor, quedan_cabecera_y_anillo_y_los_servicios_siguen_entrando_y_saliendo)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_servidor("ventana", servicio);
    registra(servicio);
    EXPECT_EQ(ejecuta(servicio, 102).resultado, 1u);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}, {1, 2, 1, servicio, 102, 0}, {1, 2, 0, servicio, 102, 0}});

    v.quita();
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u16(0), 8886u);
    EXPECT_EQ(registro.u16(2), 256u);
    EXPECT_EQ(registro.u64(6), 0u);
    EXPECT_EQ(registro.u32(14), mensaje_monitor());
    EXPECT_EQ(registro.u32(18), 4u);
    std::vector<uint8_t> cabecera_y_anillo = registro.bytes(0, 1430);

    EXPECT_EQ(ejecuta(servicio, 102).resultado, 1u);
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    EXPECT_EQ(despl_servicio(registro, servicio), 0u) << "the announcement of the close takes it out";
    servidor.di("PREPARA");
    servidor.espera_linea("PREPARADO", 5000);
    servidor.di("PUBLICA");
    servidor.espera_linea("PUBLICADO", 5000);
    EXPECT_EQ(despl_servicio(registro, servicio), 5814u);
    registro.pon_u16(5814, 0);
    servidor.di("PUBLICA"); // what is announced again is entered again
    servidor.espera_linea("PUBLICADO", 5000);
    EXPECT_EQ(despl_servicio(registro, servicio), 5814u);

    cabecera_y_anillo[4]++; // the server's new registration
    EXPECT_TRUE(bytes_iguales(cabecera_y_anillo, registro.bytes(0, 1430)));
    EXPECT_EQ(v.dicho(), std::vector<std::string>{});
    acaba(servidor);
}

TEST_F(fin_de_monitor, apertura_siguiente_es_nueva_y_se_cuenta_otra_vez)
{
    vigia v;
    std::string servicio = nombre_unico("serv"), otro_servicio = nombre_unico("otro");
    papel servidor = arranca_servidor("ventana", servicio);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}});
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u16(4), 2u);
    v.quita();
    uint32_t antes = v.manejadores();
    v.registra(monitor_ENTERO);
    EXPECT_EQ(registro.u16(4), 3u);
    EXPECT_EQ(registro.u64(6), numero_de(v.hwnd()));
    EXPECT_GT(v.manejadores(), antes) << "handles of its own";
    EXPECT_EQ(v.pide("PROC", "PROC "), "PROC 0 1");

    papel otro = arranca_servidor("net", otro_servicio);
    v.oye_solo({{0, 1, 1, otro_servicio, 0, 0}});
    v.quita();
    EXPECT_TRUE(v.ventanas_propias());
    acaba(otro);
    EXPECT_EQ(v.dicho(), std::vector<std::string>{});
}

// A window may take the monitor's part at one time and another one later.
TEST_F(fin_de_monitor, la_vez_siguiente_puede_ser_con_otra_ventana)
{
    vigia v;
    v.quita();
    v.registra(con_OTRA_VENTANA | 15);
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u64(6), numero_de(v.otra_ventana()));
    EXPECT_EQ(v.pide("PROC", "PROC "), "PROC 1 0");
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}});
    v.quita();
    EXPECT_TRUE(v.ventanas_propias());
}

TEST_F(fin_de_monitor, un_programa_que_no_lo_es_acaba_con_el_de_otro_y_olvida_su_acceso)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_servidor("ventana", servicio);
    registra(servicio);
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u16(4), 3u);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}});

    uint32_t manejadores = cuenta_manejadores();
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(cuenta_manejadores(), manejadores);
    EXPECT_EQ(registro.u64(6), 0u);
    EXPECT_EQ(ejecuta(servicio, 102).resultado, 1u);
    EXPECT_GT(cuenta_manejadores(), manejadores) << "fresh handles";
    EXPECT_EQ(v.dicho(), std::vector<std::string>{});

    // The forgotten one does not know; for itself it is the monitor still.
    EXPECT_EQ(v.pide("PROC", "PROC "), "PROC 0 1");
    v.pide("REGISTRA 31", "REGISTRADO");
    EXPECT_INFORME_DE(v.proceso(), "iv_mcbase", "s_programa_monitor == NULL");
    EXPECT_EQ(registro.u64(6), 0u);
    v.quita();
    EXPECT_TRUE(v.ventanas_propias());
    v.registra(monitor_ENTERO);
    EXPECT_EQ(registro.u64(6), numero_de(v.hwnd()));
}
