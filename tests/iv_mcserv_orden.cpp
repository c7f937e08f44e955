// A client's command: the claim, and each way through a server without a window.
#include "iv_mcserv_apoyo.h"

#include <algorithm>
#include <atomic>

// ---- Command: claim and release, seen by another thread

TEST_F(iv_mcserv_orden, los_ids_se_escriben_antes_de_reclamar_y_sin_el_mutex)
{
    registra_con_servidor();
    canal->pon_u32(C_OCUPACION, 2); // another client's command is under way
    canal->pon_u64(C_HWND_CLIENTE, 0x99);
    canal->pon_texto_u(C_CLIENTE_64, L"ajeno");
    mcb->pon_u32(en_servicio(ind, S_VIVO_CLIENTE), 77);
    ASSERT_TRUE(mutex.toma());
    orden o;
    o.id_entrada = 700;
    o.textos[0] = L"propio";

    empieza(o);

    ASSERT_TRUE(espera_hasta([&] { return mcb->u32(en_servicio(ind, S_EN_CURSO)) == 100; }, 5000));
    EXPECT_EQ(canal->u32(C_ID_COMANDO), 100u);
    EXPECT_EQ(canal->u32(C_ID_ENTRADA), 700u);
    EXPECT_EQ(mcb->u32(en_servicio(ind, S_VIVO_CLIENTE)), 0u);
    EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
    EXPECT_EQ(canal->u32(C_ESTADO_COMANDO), 0u);
    EXPECT_EQ(canal->u64(C_HWND_CLIENTE), 0x99u);
    EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"ajeno");
}

TEST_F(iv_mcserv_orden, canal_ocupado_se_espera_en_el_estado_1)
{
    registra_con_servidor();
    canal->pon_u32(C_OCUPACION, 1);
    captura_traza traza;
    orden o;
    o.id_entrada = 700;
    o.textos[1] = L"dos";
    empieza(o);
    std::string ronda = std::string("BUCLE ") + NOMBRES_BUCLE_CLIENTE[1];
    ASSERT_TRUE(traza.espera(ronda, 5000));

    // The mutex is held during the round's sleep: this thread has it only between two rounds.
    ASSERT_TRUE(espera_turno([&] { return mcb->u32(en_servicio(ind, S_VUELTAS_CLIENTE)) >= 1; }));
    EXPECT_EQ(mcb->u32(en_servicio(ind, S_BUCLE_CLIENTE)), 1u);
    EXPECT_EQ(canal->u32(C_OCUPACION), 1u);
    EXPECT_EQ(canal->texto_u(C_CLIENTE_256, 256), L"");
    canal->pon_u32(C_ID_ENTRADA, 0); // the claim writes it again
    canal->pon_u32(C_OCUPACION, 0);
    mutex.suelta();

    ASSERT_TRUE(espera_turno([&] { return canal->u32(C_ESTADO_COMANDO) == 1; }));
    EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
    EXPECT_EQ(canal->u32(C_ID_ENTRADA), 700u);
    EXPECT_EQ(canal->u64(C_HWND_CLIENTE), 0u);
    EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"");
    EXPECT_EQ(canal->texto_u(C_CLIENTE_256, 256), L"dos");
    EXPECT_EQ(canal->texto_u(C_CLIENTE2_256, 256), L"");
}

TEST_F(iv_mcserv_orden, recorrido_completo_con_un_servidor_sin_ventana)
{
    registra_con_servidor();
    captura_traza traza;
    orden argumentos;
    argumentos.id_entrada = 700;
    const orden &o = empieza(argumentos);

    ASSERT_TRUE(espera_turno([&] { return canal->u32(C_ESTADO_COMANDO) == 1; }));
    EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
    EXPECT_EQ(canal->u32(C_ID_COMANDO), 100u);
    canal->pon_u32(C_ESTADO_SERVIDOR, 2);
    canal->pon_u32(C_ESTADO_COMANDO, 2);
    canal->pon_u32(C_RESULTADO, 0);
    pon_respuesta(1);
    canal->pon_u32(C_ESTADO_COMANDO, 3);
    canal->pon_u32(C_ESTADO_SERVIDOR, 3);
    mutex.suelta();

    ASSERT_TRUE(espera_turno([&] { return canal->u32(C_ESTADO_COMANDO) == 4; }));
    EXPECT_FALSE(acabada(0, 0));
    EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
    EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 100u);
    ASSERT_TRUE(registro->toma()); // holds back what follows the release
    canal->pon_u32(C_ESTADO_COMANDO, 5);
    canal->pon_u32(C_ESTADO_SERVIDOR, 1);
    mutex.suelta();

    ASSERT_TRUE(espera_turno([&] { return canal->u32(C_OCUPACION) == 0; }));
    EXPECT_EQ(canal->u32(C_ESTADO_COMANDO), 0u);
    // The ids are cleared only after the registry's mark, which cannot be taken off yet.
    EXPECT_FALSE(espera_hasta([&] { return canal->u32(C_ID_COMANDO) == 0; }, 50));
    EXPECT_EQ(canal->u32(C_ID_COMANDO), 100u);
    EXPECT_EQ(canal->u32(C_ID_ENTRADA), 700u);
    EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 100u);
    mcb->pon_u32(en_servicio(ind, S_VIVO_CLIENTE), 77);
    registro->suelta();
    ASSERT_TRUE(acabada(0, 5000)); // although this thread holds the service's mutex
    mutex.suelta();

    comprueba_libre();
    EXPECT_EQ(mcb->u32(en_servicio(ind, S_VIVO_CLIENTE)), 0u);
    EXPECT_EQ(o.resultado, 1u);
    EXPECT_EQ(o.id_resultado, 901u);
    EXPECT_STREQ(o.salidas[0], L"a1");
    EXPECT_STREQ(o.salidas[1], L"b22");
    EXPECT_STREQ(o.salidas[2], L"c333");
    std::string rondas = rondas_de(traza.texto_de_hilo(o.hilo));
    EXPECT_TRUE(std::is_sorted(rondas.begin(), rondas.end())) << rondas;
    EXPECT_EQ(rondas.substr(0, 1), "2");
}

TEST_F(iv_mcserv_orden, segundo_cliente_espera_a_que_acabe_el_primero)
{
    registra_con_ventana();
    espia oido;
    captura_traza traza;
    HANDLE sigue = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::atomic<uint32_t> dentro{0};
    oido.al_enviar = [&](const mensaje &m) -> LRESULT {
        dentro = static_cast<uint32_t>(m.wparam);
        WaitForSingleObject(sigue, 10000);
        return m.wparam == 100 ? 1 : 2;
    };
    orden una, otra;
    una.textos[0] = L"primera";
    otra.id_comando = 200;
    otra.textos[0] = L"segunda";

    const orden &primera = empieza(una);
    ASSERT_TRUE(espera_hasta([&] { return dentro == 100; }, 5000));
    const orden &segunda = empieza(otra);
    ASSERT_TRUE(traza.espera(std::string("BUCLE ") + NOMBRES_BUCLE_CLIENTE[1], 5000));

    EXPECT_EQ(oido.enviados.size(), 1u);
    EXPECT_EQ(canal->u32(C_ID_COMANDO), 200u); // written before the claim, over the first one's
    EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
    EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"primera");
    SetEvent(sigue);
    ASSERT_TRUE(acabada(0, 5000));
    ASSERT_TRUE(acabada(1, 5000));
    CloseHandle(sigue);
    EXPECT_EQ(oido.enviados, (std::vector<mensaje>{{77, 0xC123, 100, 0}, {77, 0xC123, 200, 0}}));
    EXPECT_EQ(primera.resultado, 1u);
    EXPECT_EQ(segunda.resultado, 2u);
    EXPECT_EQ(rondas_de(traza.texto_de_hilo(primera.hilo)), "");
    std::string rondas = rondas_de(traza.texto_de_hilo(segunda.hilo));
    EXPECT_EQ(rondas, std::string(rondas.size(), '1'));
    comprueba_libre();
}

// ---- Command: each way through a server without a window

namespace {

// What a server without a window does, and how the call ends: its result, and its rounds in their order.
struct camino {
    const char *que;
    uint32_t ocupacion; // at the start
    std::vector<paso> guion;
    uint32_t resultado;
    const char *rondas;
};

class iv_mcserv_camino : public iv_mcserv_orden {
protected:
    void recorre(const std::vector<camino> &caminos)
    {
        registra();
        for (const camino &c : caminos) {
            SCOPED_TRACE(c.que);
            canal->pon_bytes(0, std::vector<uint8_t>(TAM_CANAL, 0));
            canal->pon_u32(C_ESTADO_SERVIDOR, 1);
            canal->pon_u32(C_OCUPACION, c.ocupacion);
            pon_respuesta(1);
            recorre_uno(c);
        }
    }

private:
    void recorre_uno(const camino &c)
    {
        espia oido;
        pon_guion(&oido, c.guion);
        captura_traza traza;
        orden o;
        o.id_entrada = 700;

        EXPECT_EQ(o.ejecuta(servicio), c.resultado);

        EXPECT_EQ(rondas_de(traza.texto_propio()), c.rondas);
        EXPECT_TRUE(oido.enviados.empty());
        EXPECT_EQ(o.id_resultado, c.resultado == 1 ? 901u : 55555u);
        EXPECT_EQ(o.textos_nulos(), c.resultado != 1);
        if (c.resultado == 1) {
            EXPECT_EQ(std::wstring(o.salidas[0]) + o.salidas[1] + o.salidas[2], L"a1b22c333");
        }
        comprueba_libre();
    }
};

constexpr size_t INFO = C_ESTADO_COMANDO, SERV = C_ESTADO_SERVIDOR, FIN = C_TERMINADO, OCUP = C_OCUPACION;

} // namespace

TEST_F(iv_mcserv_camino, reclamar_el_canal)
{
    recorre({
        {"free after two rounds", 2, {{1, 2, OCUP, 0}, {0, 1, FIN, 1}}, 3, "11"},
        {"free after one round, then answered",
         1,
         {{1, 1, OCUP, 0}, {2, 1, SERV, 3}, {2, 1, INFO, 3}, {4, 1, INFO, 5}},
         1,
         "124"},
        {"a server that ended meanwhile", 1, {{1, 1, FIN, 1}}, 3, "1"},
        {"dead while claiming", 2, {{1, 1, VUELTAS, 24}}, 3, "11"},
        {"any other value is a claim too",
         9,
         {{1, 1, OCUP, 0}, {2, 1, SERV, 3}, {2, 1, INFO, 3}, {4, 1, INFO, 5}},
         1,
         "124"},
        {"a mark other than 1 ends none of the four waits",
         1,
         {{1, 1, FIN, 2}, {1, 2, OCUP, 0}, {2, 2, SERV, 3}, {3, 1, INFO, 3}, {4, 2, INFO, 5}},
         1,
         "1122344"},
    });
}

TEST_F(iv_mcserv_camino, esperar_a_que_el_servidor_ejecute)
{
    recorre({
        {"ended before the first round", 0, {{0, 1, FIN, 1}, {0, 1, SERV, 3}, {0, 1, INFO, 3}}, 3, ""},
        {"ended in a round", 0, {{2, 2, FIN, 1}}, 3, "22"},
        {"dead", 0, {{2, 1, VUELTAS, 24}}, 3, "22"},
        {"a round comes before the server's state is looked at",
         0,
         {{0, 1, SERV, 3}, {0, 1, INFO, 3}, {4, 1, INFO, 5}},
         1,
         "24"},
        {"states 1 and 2 are waited for",
         0,
         {{2, 2, SERV, 2}, {2, 3, SERV, 3}, {2, 3, INFO, 3}, {4, 1, INFO, 5}},
         1,
         "2224"},
        {"a stopped server, finished all the same", 0, {{2, 1, SERV, 0}, {2, 1, INFO, 3}}, 3, "2"},
        {"a stopped server, not finished", 0, {{2, 1, SERV, 0}, {2, 1, INFO, 2}}, 3, "2"},
        {"any other state counts as running", 0, {{2, 1, SERV, 9}, {3, 1, INFO, 3}, {4, 1, INFO, 5}}, 1, "234"},
    });
}

TEST_F(iv_mcserv_camino, esperar_a_que_la_orden_termine)
{
    recorre({
        {"finishes later", 0, {{2, 1, SERV, 3}, {3, 3, INFO, 3}, {4, 1, INFO, 5}}, 1, "23334"},
        {"stops before it finishes", 0, {{2, 1, SERV, 3}, {3, 1, SERV, 0}}, 3, "23"},
        {"stops and ends before it finishes", 0, {{2, 1, SERV, 3}, {3, 1, SERV, 0}, {3, 1, FIN, 1}}, 3, "23"},
        {"finishes, stops and ends at once",
         0,
         {{2, 1, SERV, 3}, {3, 1, INFO, 3}, {3, 1, SERV, 0}, {3, 1, FIN, 1}},
         1,
         "23"},
        {"ends after it ran, read as it stands", 0, {{2, 1, SERV, 3}, {3, 1, FIN, 1}}, 1, "23"},
        {"dead after it ran, read as it stands", 0, {{2, 1, SERV, 3}, {3, 1, VUELTAS, 24}}, 1, "233"},
    });
}

TEST_F(iv_mcserv_camino, esperar_a_que_el_servidor_vea_el_recibo)
{
    recorre({
        {"back in wait already: no round", 0, {{2, 1, SERV, 3}, {3, 1, INFO, 3}, {3, 1, SERV, 1}}, 1, "23"},
        {"seen after two rounds", 0, {{2, 1, SERV, 3}, {2, 1, INFO, 3}, {4, 2, INFO, 5}}, 1, "244"},
        {"waits again", 0, {{2, 1, SERV, 3}, {2, 1, INFO, 3}, {4, 1, SERV, 1}}, 1, "24"},
        {"stopped", 0, {{2, 1, SERV, 3}, {2, 1, INFO, 3}, {4, 1, SERV, 0}}, 1, "24"},
        {"ended", 0, {{2, 1, SERV, 3}, {2, 1, INFO, 3}, {4, 1, FIN, 1}}, 1, "24"},
        {"dead at last", 0, {{2, 1, SERV, 3}, {2, 1, INFO, 3}, {4, 1, VUELTAS, 24}}, 1, "244"},
    });
}

TEST_F(iv_mcserv_orden, servidor_muerto_en_la_reclamacion_no_recibe_la_orden)
{
    registra_con_servidor();
    canal->pon_u32(C_OCUPACION, 2);
    canal->pon_u32(C_ESTADO_COMANDO, 1);
    canal->pon_u64(C_HWND_CLIENTE, 0x99);
    canal->pon_texto_u(C_CLIENTE_64, L"ajeno");
    espia oido;
    pon_guion(&oido, {{1, 1, VUELTAS, 24}});
    oido.activa = reinterpret_cast<HWND>(5);
    mutex_crudo ajeno(nombre_mutex(servicio).c_str());
    bool libre = true;
    oido.al_traer = [&] { libre = ajeno.libre(); };
    orden o;
    o.opciones = 4;
    o.textos[0] = L"propio";

    EXPECT_EQ(o.ejecuta(servicio), 3u);

    EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"ajeno");
    EXPECT_EQ(canal->u64(C_HWND_CLIENTE), 0x99u);
    EXPECT_EQ(canal->u16(C_TERMINADO), 1u);
    EXPECT_EQ(canal->u32(C_ESTADO_SERVIDOR), 0u);
    EXPECT_EQ(oido.orden, "A F5 "); // the later steps run all the same
    EXPECT_FALSE(libre);            // a wait that failed keeps the mutex
    comprueba_libre();              // the other client's hold included
}

TEST_F(iv_mcserv_orden, canal_libre_de_un_servidor_terminado_recibe_la_orden_y_da_3)
{
    registra_con_servidor();
    canal->pon_u16(C_TERMINADO, 1);
    espia oido;
    std::wstring escrito;
    oido.al_preguntar_activa = [&] { escrito = canal->texto_u(C_CLIENTE_64, 64); };
    orden o;
    o.textos[0] = L"propio";

    EXPECT_EQ(o.ejecuta(servicio), 3u);

    EXPECT_EQ(escrito, L"propio");
    EXPECT_EQ(canal->u16(C_TERMINADO), 1u);
    EXPECT_EQ(canal->u32(C_ESTADO_SERVIDOR), 1u);
    comprueba_libre();
}

TEST_F(iv_mcserv_orden, las_rondas_bloquean_el_servicio_y_el_registro)
{
    registra_con_servidor();
    espia oido;
    mutex_crudo servicio_ajeno(nombre_mutex(servicio).c_str()), registro_ajeno("Ivrexa_Mutex_MCB");
    std::string libres;
    pon_guion(&oido, {{1, 1, C_OCUPACION, 0},
                      {2, 1, C_ESTADO_SERVIDOR, 3},
                      {3, 1, C_ESTADO_COMANDO, 3},
                      {4, 1, C_ESTADO_COMANDO, 5}});
    auto guion = oido.al_publicar;
    oido.al_publicar = [&](const mensaje &m) {
        guion(m);
        libres +=
            std::to_string(m.lparam >> 16) + (servicio_ajeno.libre() || registro_ajeno.libre() ? "free " : "held ");
    };
    canal->pon_u32(C_OCUPACION, 1);
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(libres, "1held 2held 3held 4held ");
}

// 2.6 s: a server that never answers, whose heartbeat stands still, found without any help.
TEST_F(iv_mcserv_orden, servidor_mudo_se_descubre_en_la_ronda_26)
{
    registra_con_servidor();
    captura_traza traza;
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 3u);

    EXPECT_EQ(rondas_de(traza.texto_propio()), std::string(26, '2'));
    EXPECT_EQ(canal->u16(C_TERMINADO), 1u);
    EXPECT_EQ(canal->u32(C_ESTADO_SERVIDOR), 0u);
    comprueba_libre();
}

TEST_F(iv_mcserv_orden, resultado_del_servidor_sin_ventana_se_devuelve_como_esta)
{
    registra_con_servidor();
    for (uint32_t resultado : {0u, 1u, 2u, 3u, 7u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(resultado);
        espia oido;
        pon_guion(&oido, {{2, 1, C_RESULTADO, resultado},
                          {2, 1, C_ESTADO_SERVIDOR, 3},
                          {2, 1, C_ESTADO_COMANDO, 3},
                          {4, 1, C_ESTADO_SERVIDOR, 1}});
        orden o;

        EXPECT_EQ(o.ejecuta(servicio), resultado);

        EXPECT_EQ(o.id_resultado, resultado == 1 ? 901u : 55555u);
        EXPECT_EQ(o.textos_nulos(), resultado != 1);
        EXPECT_EQ(canal->u32(C_RESULTADO), resultado);
    }
}

// Deliberate: only another state starts the count anew, and the claim of the next command is the same state.
TEST_F(iv_mcserv_orden, la_cuenta_de_la_reclamacion_sigue_de_una_orden_a_otra)
{
    registra_con_servidor();
    const struct {
        uint32_t vivo, resultado;
        const char *rondas;
    } casos[] = {{1000, 3, "1"}, {999, 1, "1124"}};
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.vivo);
        espia oido;
        captura_traza traza;
        pon_guion(&oido, {{1, 2, C_OCUPACION, 0},
                          {2, 1, C_ESTADO_SERVIDOR, 3},
                          {2, 1, C_ESTADO_COMANDO, 3},
                          {4, 1, C_ESTADO_COMANDO, 5}});
        canal->pon_u16(C_TERMINADO, 0);
        canal->pon_u32(C_ESTADO_SERVIDOR, 1);
        canal->pon_u32(C_OCUPACION, 2);
        mcb->pon_u32(en_servicio(ind, S_BUCLE_CLIENTE), 1);
        mcb->pon_u32(en_servicio(ind, S_VUELTAS_CLIENTE), 24);
        mcb->pon_u32(en_servicio(ind, S_VUELTAS_CLIENTE + 4), caso.vivo);
        orden o;

        EXPECT_EQ(o.ejecuta(servicio), caso.resultado);

        EXPECT_EQ(rondas_de(traza.texto_propio()), caso.rondas);
        comprueba_libre();
    }
}
