// Rounds: what one does in each state, and when the other side counts as dead.
#include "iv_mcserv_pelicula.h"

namespace {

struct ronda_de_estado {
    const char *nombre;
    int16_t (*ronda)(uint32_t ind_datServ, iv_mcserv_vista *mcserv);
    bool de_cliente;
    uint32_t estado;
};

const ronda_de_estado RONDAS[] = {
    {"CLIENTE_ESPERA_NINGUN_CLIENTE", iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE, true, 1},
    {"CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO", iv_mcserv_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO, true, 2},
    {"CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO", iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO, true, 3},
    {"CLIENTE_ESPERA_SERVIDOR_AVISADO", iv_mcserv_CLIENTE_ESPERA_SERVIDOR_AVISADO, true, 4},
    {"SERVIDOR_ESPERA_RECEPCION_COMANDO", iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO, false, 1},
    {"SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO", iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO, false, 2},
};
const ronda_de_estado &RONDA_CLIENTE = RONDAS[2], &RONDA_SERVIDOR = RONDAS[4];

// Service 5, offered by program 14 and used by program 15.
class iv_mcserv_ronda : public iv_mcserv_canal {
protected:
    void SetUp() override
    {
        iv_mcbase_abre(1, FALSO);
        mcb.emplace("Ivrexa_MCB");
        limpia();
        mcb->pon_u16(en_servicio(5, S_PROGRAMA_SERVIDOR), 14);
        mcb->pon_u16(en_servicio(5, S_PROGRAMA_CLIENTE), 15);
        mcb->pon_u32(en_programa(14, P_CONTADOR_VIVO), 1400);
        mcb->pon_u32(en_programa(15, P_CONTADOR_VIVO), 1500);
        mcb->pon_u32(en_servicio(5, S_EN_CURSO), 100);
    }

    void TearDown() override
    {
        limpia();
        iv_mcserv_canal::TearDown();
    }

    void limpia()
    {
        quita_monitor(&*mcb);
        mcb->pon_bytes(en_servicio(5, 0), std::vector<uint8_t>(96, 0));
        mcb->pon_u32(en_programa(14, P_CONTADOR_VIVO), 0);
        mcb->pon_u32(en_programa(15, P_CONTADOR_VIVO), 0);
    }

    // State, rounds and noted heartbeat of the side whose round it is.
    static size_t bucle_de(const ronda_de_estado &r) { return r.de_cliente ? S_BUCLE_CLIENTE : S_BUCLE_SERVIDOR; }
    static size_t latido_de(const ronda_de_estado &r) { return en_programa(r.de_cliente ? 14 : 15, P_CONTADOR_VIVO); }

    void pon_bucle(const ronda_de_estado &r, uint32_t estado, uint32_t vueltas, uint32_t vivo)
    {
        mcb->pon_u32(en_servicio(5, bucle_de(r)), estado);
        mcb->pon_u32(en_servicio(5, bucle_de(r) + 4), vueltas);
        mcb->pon_u32(en_servicio(5, bucle_de(r) + 8), vivo);
    }

    std::vector<uint32_t> bucle(const ronda_de_estado &r)
    {
        size_t b = bucle_de(r);
        return {mcb->u32(en_servicio(5, b)), mcb->u32(en_servicio(5, b + 4)), mcb->u32(en_servicio(5, b + 8))};
    }

    std::optional<bloque_crudo> mcb;
};

} // namespace

TEST_F(iv_mcserv_ronda, cada_ronda_se_traza_duerme_cuenta_y_avisa_al_monitor)
{
    pon_monitor(&*mcb, false);
    for (const ronda_de_estado &r : RONDAS) {
        SCOPED_TRACE(r.nombre);
        espia oido;
        captura_traza traza;
        llena(0);
        size_t otro_bucle = r.de_cliente ? S_BUCLE_SERVIDOR : S_BUCLE_CLIENTE;
        mcb->pon_bytes(en_servicio(5, otro_bucle), std::vector<uint8_t>(12, 0x33));
        pon_bucle(r, 77, 24, 0); // another state: the peer's silence there does not count here
        uint32_t latido = mcb->u32(latido_de(r));
        double inicio_ms = ahora_ms();

        EXPECT_EQ(r.ronda(5, mcserv), 0);

        EXPECT_GE(ahora_ms() - inicio_ms, RONDA_MINIMA_MS);
        EXPECT_EQ(enmascara_tiempos(traza.texto_propio()), registro_bucle(r.nombre));
        EXPECT_EQ(bucle(r), (std::vector<uint32_t>{r.estado, 0, latido}));

        mcb->pon_u32(latido_de(r), latido + 1); // the heartbeat is noted on entry only
        EXPECT_EQ(r.ronda(5, mcserv), 0);

        EXPECT_EQ(bucle(r), (std::vector<uint32_t>{r.estado, 1, latido}));
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(12, 0x33), mcb->bytes(en_servicio(5, otro_bucle), 12)));
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(TAM_CANAL, 0), canal.bytes(0, TAM_CANAL)));
        mensaje aviso = {0x4242, 0xC042, r.de_cliente ? 1u : 2u, r.estado * 65536 + 5};
        EXPECT_EQ(oido.publicados, (std::vector<mensaje>{aviso, aviso}));
    }
}

TEST_F(iv_mcserv_ronda, monitor_se_avisa_con_el_registro_bloqueado)
{
    pon_monitor(&*mcb, false);
    mutex_crudo registro("Ivrexa_Mutex_MCB");
    espia oido;
    bool libre = true;
    uint32_t sitio = 0;
    oido.al_publicar = [&](const mensaje &) {
        libre = registro.libre();
        sitio = s_mcbase_acceso->mutex->codigos_bloqueo[0];
    };

    iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO(5, mcserv);
    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x4242, 0xC042, 1, 196613}}));
    EXPECT_FALSE(libre);
    EXPECT_EQ(sitio, 12u);
    EXPECT_TRUE(registro.libre());

    libre = true;
    iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(5, mcserv);
    EXPECT_FALSE(libre);
    EXPECT_EQ(sitio, 13u);
    EXPECT_TRUE(registro.libre());
}

TEST_F(iv_mcserv_ronda, sin_ventana_o_sin_mensaje_no_se_avisa_a_nadie)
{
    espia oido;
    for (const ronda_de_estado &r : {RONDA_CLIENTE, RONDA_SERVIDOR}) {
        pon_monitor(&*mcb, true);
        mcb->pon_u64(R_HWND_MONITOR, 0);
        r.ronda(5, mcserv);
        pon_monitor(&*mcb, true);
        mcb->pon_u32(R_MSG_MONITOR, 0);
        r.ronda(5, mcserv);
    }
    EXPECT_TRUE(oido.publicados.empty());
}

TEST_F(iv_mcserv_ronda, el_descanso_no_bloquea_el_registro)
{
    mutex_crudo registro("Ivrexa_Mutex_MCB");
    captura_traza traza;
    int16_t abandona = 7;
    tarea ronda([&] { abandona = RONDA_CLIENTE.ronda(5, mcserv); });

    ASSERT_TRUE(traza.espera("BUCLE ", 5000)); // the record comes just before the sleep
    EXPECT_TRUE(espera_hasta([&] { return registro.libre(); }, 60));

    ASSERT_TRUE(ronda.acabada(5000));
    EXPECT_EQ(abandona, 0);
}

TEST_F(iv_mcserv_ronda, a_las_25_vueltas_sin_latido_el_otro_cuenta_como_muerto)
{
    espia oido;
    pon_monitor(&*mcb, false);
    const struct {
        uint32_t vueltas, vivo, latido, en_curso;
        bool cliente_lo_da_por_muerto, servidor_lo_da_por_muerto;
    } casos[] = {
        {23, 7, 7, 100, false, false}, // becomes round 24
        {24, 7, 7, 100, true, true},   // 25
        {25, 7, 7, 100, false, false}, // 26: asked at multiples of 25 only
        {24, 7, 8, 100, false, false}, // moved once: lives at 25,
        {49, 7, 8, 100, false, false}, // at 50
        {74, 7, 9, 100, false, false}, // and at 75 of the same wait
        {49, 7, 7, 100, true, true},
        {24, 0, 0, 100, true, true}, // a counter that has not moved since its registration
        {24, 7, 7, 0, true, false},  // a server misses its client only while a command is under way
        {24, 7, 7, 1, true, true},
    };
    for (const auto &caso : casos)
        for (const ronda_de_estado &r : {RONDA_CLIENTE, RONDA_SERVIDOR}) {
            SCOPED_TRACE(std::string(r.nombre) + " " + std::to_string(caso.vueltas) + " " +
                         std::to_string(caso.latido) + " " + std::to_string(caso.en_curso));
            llena(0xEE);
            oido.publicados.clear();
            pon_bucle(r, r.estado, caso.vueltas, caso.vivo);
            mcb->pon_u32(latido_de(r), caso.latido);
            mcb->pon_u32(en_servicio(5, S_EN_CURSO), caso.en_curso);
            bool muerto = r.de_cliente ? caso.cliente_lo_da_por_muerto : caso.servidor_lo_da_por_muerto;

            EXPECT_EQ(r.ronda(5, mcserv), muerto ? 1 : 0);

            std::vector<uint8_t> esperados(TAM_CANAL, 0xEE);
            if (muerto && r.de_cliente) { // a server's round writes nothing into the channel
                pon<uint16_t>(&esperados, 28, 1);
                pon<uint32_t>(&esperados, 30, 0);
            }
            EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
            EXPECT_EQ(bucle(r), (std::vector<uint32_t>{r.estado, caso.vueltas + 1, caso.vivo}));
            EXPECT_EQ(oido.publicados.size(), 1u); // also in the round that finds it dead
        }
}

// 2.6 s: the whole count from the entry on.
TEST_F(iv_mcserv_ronda, un_cliente_mudo_se_descubre_en_la_ronda_26_y_no_antes)
{
    for (uint32_t n = 1; n <= 25; n++)
        ASSERT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 0) << n;
    EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 1);
}

TEST_F(iv_mcserv_ronda, indice_32_o_mayor_abandona_tras_dormir)
{
    espia oido;
    pon_monitor(&*mcb, false);
    std::vector<uint8_t> registro = mcb->bytes(0, 8886);
    llena(0xEE);
    for (const ronda_de_estado &r : {RONDA_CLIENTE, RONDA_SERVIDOR})
        for (uint32_t ind : {32u, 33u, 0xFFFFFFFFu}) {
            captura_traza traza;
            double inicio_ms = ahora_ms();
            EXPECT_EQ(r.ronda(ind, mcserv), 1) << r.nombre << " " << ind;
            EXPECT_GE(ahora_ms() - inicio_ms, RONDA_MINIMA_MS);
            EXPECT_EQ(enmascara_tiempos(traza.texto_propio()), registro_bucle(r.nombre));
        }
    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_TRUE(bytes_iguales(registro, mcb->bytes(0, 8886)));
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(TAM_CANAL, 0xEE), canal.bytes(0, TAM_CANAL)));
}

TEST_F(iv_mcserv_ronda, ultimo_servicio_de_la_tabla_tiene_rondas)
{
    const size_t entrada = en_servicio(31, 0);
    mcb->pon_bytes(entrada, std::vector<uint8_t>(96, 0));
    mcb->pon_u16(entrada + S_PROGRAMA_SERVIDOR, 14);

    EXPECT_EQ(RONDA_CLIENTE.ronda(31, mcserv), 0);

    EXPECT_EQ(mcb->u32(entrada + 84), 3u);
    EXPECT_EQ(mcb->u32(entrada + 92), 1400u);
    mcb->pon_bytes(entrada, std::vector<uint8_t>(96, 0));
}

TEST_F(iv_mcserv_ronda, programa_sin_entrada_tiene_un_latido_de_0)
{
    for (uint16_t id_programa : {16, 17, 65535})
        for (const ronda_de_estado &r : {RONDA_CLIENTE, RONDA_SERVIDOR}) {
            SCOPED_TRACE(std::string(r.nombre) + " " + std::to_string(id_programa));
            mcb->pon_u16(en_servicio(5, r.de_cliente ? S_PROGRAMA_SERVIDOR : S_PROGRAMA_CLIENTE), id_programa);
            pon_bucle(r, 0, 0, 77);

            EXPECT_EQ(r.ronda(5, mcserv), 0);
            EXPECT_EQ(bucle(r), (std::vector<uint32_t>{r.estado, 0, 0}));

            pon_bucle(r, r.estado, 24, 0);
            EXPECT_EQ(r.ronda(5, mcserv), 1);
        }
}

// A client that runs a command while its counter is still 0 is taken for dead when its server's count stands
// badly.
TEST_F(iv_mcserv_ronda, una_orden_pone_a_0_el_latido_anotado_y_deja_la_cuenta)
{
    pon_bucle(RONDA_SERVIDOR, 1, 22, 1500);

    iv_mcbase_inicia_comando(5, 100);
    EXPECT_EQ(bucle(RONDA_SERVIDOR), (std::vector<uint32_t>{1, 22, 0}));
    EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 0);
    EXPECT_EQ(bucle(RONDA_SERVIDOR), (std::vector<uint32_t>{1, 23, 0})); // not noted again
    mcb->pon_u32(en_programa(15, P_CONTADOR_VIVO), 0);
    EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 0);
    EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 1);
    iv_mcbase_termina_comando(5, 100);
    EXPECT_EQ(bucle(RONDA_SERVIDOR), (std::vector<uint32_t>{1, 25, 0}));
}

TEST_F(iv_mcserv_ronda, un_registro_de_cliente_o_servidor_empieza_su_cuenta_de_nuevo)
{
    mcb->pon_texto(en_servicio(5, 0), servicio);
    pon_bucle(RONDA_CLIENTE, 3, 24, 1400);
    pon_bucle(RONDA_SERVIDOR, 1, 24, 1500);
    uint32_t ind_datServ = 32;

    iv_mcbase_registra_cliente_de_servicio(15, servicio, &ind_datServ);
    ASSERT_EQ(ind_datServ, 5u);
    EXPECT_EQ(RONDA_CLIENTE.ronda(5, mcserv), 0);
    EXPECT_EQ(bucle(RONDA_CLIENTE), (std::vector<uint32_t>{3, 0, 1400}));
    EXPECT_EQ(bucle(RONDA_SERVIDOR), (std::vector<uint32_t>{1, 24, 1500}));

    iv_mcbase_registra_servidor_de_servicio(14, servicio, &ind_datServ);
    EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 0);
    EXPECT_EQ(bucle(RONDA_SERVIDOR), (std::vector<uint32_t>{1, 0, 1500}));
    EXPECT_EQ(bucle(RONDA_CLIENTE), (std::vector<uint32_t>{3, 0, 1400}));
    mcb->pon_bytes(en_programa(14, 264), std::vector<uint8_t>(6, 0));
    mcb->pon_bytes(en_programa(15, 264), std::vector<uint8_t>(6, 0));
}

TEST_F(iv_mcserv_ronda, la_ronda_duerme_antes_de_abrir_el_registro)
{
    pon_monitor(&*mcb, false);
    for (const ronda_de_estado &r : RONDAS) {
        SCOPED_TRACE(r.nombre);
        pon_bucle(r, 77, 24, 0);
        iv_mcbase_cierra();
        mcb->pon_u16(4, 500);
        espia oido;
        captura_traza traza;
        pelicula film(nombre_mutex(servicio));
        oido.al_publicar = [&](const mensaje &) { film.anota("P"); };
        film.al_dormir = [&](uint32_t) {
            EXPECT_EQ(enmascara_tiempos(traza.texto_propio()), registro_bucle(r.nombre));
            EXPECT_EQ(bucle(r), (std::vector<uint32_t>{77, 24, 0}));
            EXPECT_EQ(s_mcbase_acceso, nullptr);
        };

        EXPECT_EQ(r.ronda(5, mcserv), 0);

        EXPECT_EQ(film.texto(), r.de_cliente ? "z100 P r12" : "z100 P r13");
        EXPECT_EQ(bucle(r)[0], r.estado);
        EXPECT_NE(s_mcbase_acceso, nullptr);
        EXPECT_EQ(mcb->u16(4), 500u); // it is no registration
    }
}

// The whole of a long wait, from its entry on. The heartbeat is noted there and never again.
TEST_F(iv_mcserv_ronda, a_la_ronda_26_y_cada_25_mas_se_pregunta_por_el_latido_de_la_entrada)
{
    pelicula sin_esperas(nombre_mutex(servicio));
    const struct {
        uint32_t cambia_en; // the round behind which the heartbeat moves; 0: it stands still
        std::vector<uint32_t> muerto_en;
    } casos[] = {{0, {26, 51, 76, 101}}, {1, {}}, {25, {}}, {26, {26}}, {60, {26, 51}}};
    for (const ronda_de_estado &r : RONDAS)
        for (const auto &caso : casos) {
            SCOPED_TRACE(std::string(r.nombre) + " " + std::to_string(caso.cambia_en));
            pon_bucle(r, 77, 0, 0);
            mcb->pon_u32(latido_de(r), 0);
            std::vector<uint32_t> muerto_en;
            for (uint32_t n = 1; n <= 101; n++) {
                if (r.ronda(5, mcserv) == 1)
                    muerto_en.push_back(n);
                if (n == caso.cambia_en)
                    mcb->pon_u32(latido_de(r), 1);
            }
            EXPECT_EQ(muerto_en, caso.muerto_en);
        }
}

// A dead client is seen at the next multiple of 25 behind the moment in which a command is under way.
TEST_F(iv_mcserv_ronda, cliente_sin_orden_en_curso_no_se_echa_de_menos_hasta_la_siguiente_cuenta)
{
    pelicula sin_esperas(nombre_mutex(servicio));
    mcb->pon_u32(en_servicio(5, S_EN_CURSO), 0);
    for (uint32_t n = 1; n <= 26; n++)
        EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 0) << n;
    mcb->pon_u32(en_servicio(5, S_EN_CURSO), 100);
    for (uint32_t n = 27; n <= 50; n++)
        EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 0) << n;
    EXPECT_EQ(RONDA_SERVIDOR.ronda(5, mcserv), 1);
}
