// A command from its first write to its last, in the order in which another process could see it.
#include "iv_mcserv_pelicula.h"

// ---- The block

namespace {

class iv_mcserv_escritura : public iv_mcserv_canal {
protected:
    std::string filma(const std::function<void()> &que)
    {
        pelicula film(nombre_mutex(servicio));
        film.enfoca(mcserv);
        que();
        return film.texto();
    }
};

} // namespace

TEST_F(iv_mcserv_escritura, inicio_listo_y_terminado_escriben_en_su_orden)
{
    EXPECT_EQ(filma([&] { iv_mcserv_inicia(mcserv, 7, FALSO); }), "0=2378 2=7 4=0 8=0 12=100 30=0 34=0 38 166 678");
    EXPECT_EQ(filma([&] { iv_mcserv_inicia(mcserv, 8, CIERTO); }), // a counter that is kept is not written
              "0=2378 2=8 4=0 8=0 30=0 34=0 38 166 678");
    EXPECT_EQ(filma([&] { iv_mcserv_servidor_listo(mcserv, reinterpret_cast<ivrexa_hwnd>(77), 49443); }),
              "16=77 24=49443 30=1 28=0");
    EXPECT_EQ(filma([&] { iv_mcserv_servidor_terminado(mcserv); }), "28=1 30=0");
}

TEST_F(iv_mcserv_escritura, resultado_y_textos_se_escriben_en_su_orden)
{
    canal.pon_u32(C_ID_COMANDO, 100);
    canal.pon_u32(C_OCUPACION, 2);
    EXPECT_EQ(filma([&] { iv_mcserv_pon_resultado(mcserv, 100, 901, L"a", nullptr, L"c"); }), "34=901 38 166 678");
    EXPECT_EQ(filma([&] { iv_mcserv_pon_resultado(mcserv, 101, 901, L"a", L"b", L"c"); }), "");
}

TEST_F(iv_mcserv_escritura, notificacion_paso_a_paso)
{
    const std::string nombre = nombre_mutex(servicio) + "Interno";
    iv_mutex *interno = iv_mutex_crea(nombre.c_str(), FALSO);
    canal.pon_u32(C_BUZON, 3); // another's receipt: not free
    {
        pelicula film(nombre);
        film.enfoca(mcserv);
        film.al_dormir = [&](uint32_t vez) {
            const uint32_t estados[] = {0, 2, 3};
            canal.pon_u32(C_BUZON, estados[vez - 1]);
        };
        iv_mcserv_notifica(mcserv, interno, 201, 202, 203);
        EXPECT_EQ(film.texto(), "{21 } z100 {21 2362=1 2366=201 2370=202 2374=203 } {22 } z100 {22 } z100 "
                                "{22 2362=0 2366=0 2370=0 2374=0 }");
    }
    iv_mutex_destruye(&interno);
}

// Only 1 ends the waits, although any value but 0 keeps a notification from waiting for its receipt.
TEST_F(iv_mcserv_escritura, marca_de_fin_distinta_de_1_no_acaba_las_esperas_del_buzon)
{
    const std::string nombre = nombre_mutex(servicio) + "Interno";
    iv_mutex *interno = iv_mutex_crea(nombre.c_str(), FALSO);
    canal.pon_u32(C_BUZON, 2);
    {
        pelicula film(nombre);
        film.enfoca(mcserv);
        film.al_dormir = [&](uint32_t vez) {
            canal.pon_u16(C_TERMINADO, vez == 2 ? 0 : 2);
            if (vez == 2)
                canal.pon_u32(C_BUZON, 0);
            if (vez == 4)
                canal.pon_u32(C_BUZON, 3);
        };
        iv_mcserv_notifica(mcserv, interno, 201, 202, 203);
        EXPECT_EQ(film.texto(), "{21 } z100 {21 } z100 {21 2362=1 2366=201 2370=202 2374=203 } "
                                "{22 } z100 {22 } z100 {22 2362=0 2366=0 2370=0 2374=0 }");
    }
    iv_mutex_destruye(&interno);
}

// No time-out: a client that never answers keeps the server here.
TEST_F(iv_mcserv_escritura, notificar_no_se_cansa)
{
    const std::string nombre = nombre_mutex(servicio) + "Interno";
    iv_mutex *interno = iv_mutex_crea(nombre.c_str(), FALSO);
    {
        pelicula film(nombre);
        film.al_dormir = [&](uint32_t vez) { canal.pon_u16(C_TERMINADO, vez == 3000 ? 1 : 0); };
        iv_mcserv_notifica(mcserv, interno, 201, 202, 203);
        EXPECT_EQ(film.num_descansos(), 3000u);
    }
    EXPECT_EQ(canal.u32(C_BUZON), 1u);
    iv_mutex_destruye(&interno);
}

// ---- A client's command

namespace {

class iv_mcserv_pelicula : public iv_mcserv_orden {
protected:
    // The steps of one command. P: a post to the monitor; A: the active window is asked for; F: a window is
    // brought to the front; S: the message is sent.
    std::string filma(orden o, const std::vector<paso> &guion, uint32_t resultado)
    {
        espia oido;
        pelicula film(nombre_mutex(servicio));
        pon_guion(&oido, guion);
        auto al_publicar = oido.al_publicar;
        auto al_preguntar = oido.al_preguntar_activa;
        oido.al_publicar = [&](const mensaje &m) {
            film.anota("P");
            al_publicar(m);
        };
        oido.al_preguntar_activa = [&] {
            film.anota("A");
            al_preguntar();
        };
        oido.al_traer = [&] { film.anota("F"); };
        oido.al_enviar = [&](const mensaje &) -> LRESULT {
            film.anota("S");
            return respuesta;
        };
        EXPECT_EQ(o.ejecuta(servicio), resultado);
        return film.texto();
    }

    LRESULT respuesta = 1;
};

const char *const ANTES = "r4 1202=100 1206=700 r10 ";
const char *const ESCRIBE = "1198=1 1190=0 1206=700 1210 1338 1850 4=1 1198=2 } ";
const char *const DESPUES = "{19 1198=0 4=0 } r11 1202=0 1206=0 r4";

orden orden_entera()
{
    orden o;
    o.id_entrada = 700;
    o.textos[0] = L"uno";
    o.textos[2] = L"tres";
    return o;
}

} // namespace

TEST_F(iv_mcserv_pelicula, orden_a_un_servidor_sin_ventana)
{
    registra_con_servidor();
    canal->pon_u32(C_OCUPACION, 1);
    EXPECT_EQ(filma(orden_entera(),
                    {{1, 2, C_OCUPACION, 0},
                     {2, 2, C_ESTADO_SERVIDOR, 3},
                     {3, 1, C_ESTADO_COMANDO, 3},
                     {4, 1, C_ESTADO_COMANDO, 5}},
                    1),
              std::string(ANTES) + "{16 z100 P r12 } {16 z100 P r12 } {16 " + ESCRIBE +
                  "A {17 z100 P r12 } {17 z100 P r12 } {18 z100 P r12 } {18 4=4 } {19 z100 P r12 } " + DESPUES);
    comprueba_libre();
}

TEST_F(iv_mcserv_pelicula, orden_a_un_servidor_con_ventana)
{
    registra_con_ventana();
    orden o = orden_entera();
    o.opciones = 6;
    EXPECT_EQ(filma(o, {}, 1), std::string(ANTES) + "{16 " + ESCRIBE + "F A S {17 8=1 F 4=4 } " + DESPUES);
    respuesta = 2;
    EXPECT_EQ(filma(orden_entera(), {}, 2), std::string(ANTES) + "{16 " + ESCRIBE + "A S {17 8=2 4=4 } " + DESPUES);
}

// A wait that fails still makes state 4 and frees the channel, under the site at which it failed.
TEST_F(iv_mcserv_pelicula, orden_que_falla)
{
    registra_con_servidor();
    const std::string toma = std::string(ANTES) + "{16 " + ESCRIBE + "A ";
    EXPECT_EQ(filma(orden_entera(), {{0, 1, C_TERMINADO, 1}}, 3), toma + "{17 4=4 } " + DESPUES);
    canal->pon_u16(C_TERMINADO, 0);
    EXPECT_EQ(filma(orden_entera(), {{2, 1, C_ESTADO_SERVIDOR, 0}}, 3), toma + "{17 z100 P r12 } {18 4=4 } " + DESPUES);
}

// A round that finds the server dead marks the channel before it tells the monitor, the registry still
// locked.
TEST_F(iv_mcserv_pelicula, servidor_que_resulta_muerto_en_cada_espera)
{
    const struct {
        uint32_t ocupacion;
        std::vector<paso> guion;
        uint32_t resultado;
        std::string pasos;
    } casos[] = {
        {2, {{1, 1, VUELTAS, 24}}, 3, "{16 z100 P r12 } {16 z100 28=1 30=0 P r12 } A {17 4=4 } "},
        {0,
         {{2, 1, VUELTAS, 24}},
         3,
         std::string("{16 ") + ESCRIBE + "A {17 z100 P r12 } {17 z100 28=1 30=0 P r12 4=4 } "},
        {0,
         {{2, 1, C_ESTADO_SERVIDOR, 3}, {3, 1, VUELTAS, 24}},
         1,
         std::string("{16 ") + ESCRIBE + "A {17 z100 P r12 } {18 z100 P r12 } {18 z100 28=1 30=0 P r12 4=4 } "},
        {0,
         {{2, 1, C_ESTADO_SERVIDOR, 3}, {2, 1, C_ESTADO_COMANDO, 3}, {4, 1, VUELTAS, 24}},
         1,
         std::string("{16 ") + ESCRIBE +
             "A {17 z100 P r12 } {18 4=4 } {19 z100 P r12 } {19 z100 28=1 30=0 P r12 1198=0 4=0 } "},
    };
    registra_con_servidor();
    for (const auto &caso : casos) {
        canal->pon_u32(C_OCUPACION, caso.ocupacion);
        canal->pon_u32(C_ESTADO_SERVIDOR, 1);
        canal->pon_u16(C_TERMINADO, 0);
        bool al_final = caso.guion.back().estado == 4;
        EXPECT_EQ(filma(orden_entera(), caso.guion, caso.resultado),
                  ANTES + caso.pasos + (al_final ? "r11 1202=0 1206=0 r4" : DESPUES));
    }
}

// A live server that never answers keeps its client waiting: here for 100 s worth of rounds.
TEST_F(iv_mcserv_pelicula, servidor_vivo_que_no_contesta_se_espera_sin_limite)
{
    registra_con_servidor();
    orden o;
    pelicula film(nombre_mutex(servicio));
    film.al_dormir = [&](uint32_t vez) {
        if (vez == 2) // one heartbeat since the wait began is enough for all of it
            mcb->pon_u32(en_programa(15, P_CONTADOR_VIVO), 1001);
        if (vez == 1000)
            canal->pon_u16(C_TERMINADO, 1);
    };

    EXPECT_EQ(o.ejecuta(servicio), 3u);

    EXPECT_EQ(film.num_descansos(), 1000u);
    EXPECT_EQ(canal->u32(C_ESTADO_SERVIDOR), 1u); // never taken for dead
}

// ---- The loop thread of a server without a window

IMPORTACION(ResumeThread);

namespace {

class iv_mcserv_hilo : public prueba_mcserv {
protected:
    // The thread's steps until it ends. `cliente` plays the other side in the place of each sleep. C: the
    // command function runs.
    std::string filma(const std::function<void(uint32_t vez)> &cliente)
    {
        bloque_crudo mcb("Ivrexa_MCB", 8886);
        canal.emplace(nombre_canal(servicio).c_str(), TAM_CANAL);
        pelicula film(nombre_mutex(servicio));
        s_film = &film; // cppcheck-suppress danglingLifetime  // read only while it runs
        film.al_dormir = cliente;
        ventana_cambiada ventana;
        ventana->PostQuitMessage = [](int) { s_film->anota("Q"); };
        importacion_cambiada<decltype(&ResumeThread)> cambio(__imp_ResumeThread, arranca);
        iv_reg_registra_servidor("C:\\servidor.exe", nullptr, servicio, 7, CIERTO, this, funcion);
        iv_reg_terminado_registro();
        HANDLE hilo = s_programa->servicios_prestados[0].hilo_servidor;
        EXPECT_EQ(WaitForSingleObject(hilo, 20000), WAIT_OBJECT_0);
        return film.texto();
    }

    void TearDown() override
    {
        iv_reg_cierra_sesion();
        prueba_mcserv::TearDown();
    }

    void ordena(uint32_t id_comando, uint32_t id_entrada)
    {
        canal->pon_u32(C_ID_COMANDO, id_comando);
        canal->pon_u32(C_ID_ENTRADA, id_entrada);
        canal->pon_u32(C_OCUPACION, 2);
        canal->pon_u32(C_ESTADO_COMANDO, 1);
    }

    std::optional<bloque_crudo> canal;

private:
    // The thread is made suspended, and is filmed from its first step.
    static DWORD WINAPI arranca(HANDLE hilo)
    {
        s_film->de_hilo(GetThreadId(hilo));
        return s_arranca(hilo);
    }

    static int32_t funcion(const char *nombre_servicio, uint32_t id_comando, comando *, void *)
    {
        s_film->anota("C");
        iv_reg_set_datos_salida_comando(nombre_servicio, id_comando, 901, L"a", L"b", L"c");
        return 9;
    }

    inline static pelicula *s_film;
    inline static const decltype(&ResumeThread) s_arranca = __imp_ResumeThread;
};

// What the registration does, on the host's thread, before the loop thread goes.
const std::string PUBLICA = "r7 {23 0=2378 2=7 4=0 8=0 12=100 30=0 34=0 38 166 678 } r9 "
                            "{24 16=0 24=0 30=1 28=0 } r5 ";

} // namespace

TEST_F(iv_mcserv_hilo, orden_completa)
{
    bloque_crudo entrada(nombre_MCCom(servicio, 100).c_str(), 4);
    std::string pasos = filma([&](uint32_t vez) {
        if (vez == 2)
            ordena(100, 100);
        if (vez == 4) // two rounds for the receipt
            canal->pon_u32(C_ESTADO_COMANDO, 4);
        if (vez == 5)
            canal->pon_u16(C_TERMINADO, 1);
    });
    EXPECT_EQ(pasos, PUBLICA + "{28 30=1 } {29 z100 r13 } {29 z100 r13 } "
                               "{29 30=2 4=2 8=0 {35 r4 1206=0 } C 34=901 38 166 678 8=9 4=3 30=3 } "
                               "{30 } z100 r13 {30 } z100 r13 {30 } {31 4=5 } {28 30=1 } {29 z100 r13 } {32 30=0 }");
}

TEST_F(iv_mcserv_hilo, orden_1)
{
    std::string pasos = filma([&](uint32_t vez) {
        if (vez == 1)
            ordena(1, 0);
    });
    EXPECT_EQ(pasos, PUBLICA + "{28 30=1 } {29 z100 r13 } "
                               "{29 30=2 4=2 8=0 28=1 30=0 {27 28=1 } Q 8=1 4=3 30=3 } {30 } {31 4=5 } {32 30=0 }");
}

// Of both, the mark of the end and a command, the command comes first.
TEST_F(iv_mcserv_hilo, orden_escrita_se_atiende_aunque_el_servicio_termine)
{
    std::string pasos = filma([&](uint32_t vez) {
        if (vez == 1)
            ordena(50, 0);
        if (vez == 2)
            canal->pon_u16(C_TERMINADO, 1);
    });
    EXPECT_EQ(pasos, PUBLICA + "{28 30=1 } {29 z100 r13 } {29 30=2 4=2 8=0 8=1 4=3 30=3 } "
                               "{30 } z100 r13 {30 } {31 4=5 } {32 30=0 }");
}

// 26 rounds, the 25th count. The server's caller marks the channel, behind the round.
TEST_F(iv_mcserv_hilo, cliente_muerto_acaba_el_servicio)
{
    bloque_crudo mcb("Ivrexa_MCB", 8886);
    std::string pasos = filma([&](uint32_t vez) {
        uint32_t ind = s_programa->servicios_prestados[0].ind_datServ;
        if (vez == 1) {
            mcb.pon_u16(en_servicio(ind, S_PROGRAMA_CLIENTE), 14);
            mcb.pon_u32(en_servicio(ind, S_EN_CURSO), 100);
        }
    });
    std::string esperado = PUBLICA + "{28 30=1 } ";
    for (int n = 1; n <= 25; n++)
        esperado += "{29 z100 r13 } ";
    EXPECT_EQ(pasos, esperado + "{29 z100 r13 28=1 } {32 30=0 }");
}

TEST_F(iv_mcserv_hilo, cliente_muerto_antes_de_su_recibo_solo_acaba_esa_espera)
{
    bloque_crudo mcb("Ivrexa_MCB", 8886);
    std::string pasos = filma([&](uint32_t vez) {
        uint32_t ind = s_programa->servicios_prestados[0].ind_datServ;
        if (vez == 1) {
            ordena(50, 0);
            mcb.pon_u16(en_servicio(ind, S_PROGRAMA_CLIENTE), 14);
            mcb.pon_u32(en_servicio(ind, S_EN_CURSO), 50);
        }
        if (vez == 28)
            canal->pon_u16(C_TERMINADO, 1);
    });
    std::string esperado = PUBLICA + "{28 30=1 } {29 z100 r13 } {29 30=2 4=2 8=0 8=1 4=3 30=3 } ";
    for (int n = 1; n <= 26; n++)
        esperado += "{30 } z100 r13 ";
    EXPECT_EQ(pasos, esperado + "{31 4=5 } {28 30=1 } {29 z100 r13 } {32 30=0 }");
}
