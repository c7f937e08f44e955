// Exceptions that leave a command function of a server without a window: the answer is 3, nothing stays held, and the
// same thread serves the next command, however often.
#include "iv_reg_apoyo.h"

#include "comun/importacion.h"
#include "comun/manejadores.h"
#include "comun/reventar.h"

IMPORTACION(Sleep);

namespace {

// The loop thread's rounds, cut short: it rests here instead of sleeping and is woken when there is news.
decltype(&Sleep) s_duerme;
DWORD s_hilo_bucle;
HANDLE s_descansa, s_hay_novedad;

void WINAPI descansa(DWORD ms)
{
    if (GetCurrentThreadId() != s_hilo_bucle)
        return s_duerme(ms);
    SetEvent(s_descansa);
    WaitForSingleObject(s_hay_novedad, ms);
}

struct iv_reg_excepciones : con_sesion {
    enum : int { VECES = 1000 };

    void SetUp() override
    {
        con_sesion::SetUp();
        reventar::vivos = reventar::excepciones = 0;
        s_duerme = __imp_Sleep;
        s_hilo_bucle = 0;
        s_descansa = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        s_hay_novedad = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        m_cambio = std::make_unique<importacion_cambiada<decltype(&Sleep)>>(__imp_Sleep, descansa);
        m_servicio = nombre_unico("Calc");
        sirve(m_servicio, nullptr);
        m_canal = std::make_unique<bloque_crudo>(abre_canal(m_servicio));
        m_mutex = std::make_unique<mutex_crudo>((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
        m_hilo = prestado(0).u32(74);
        s_hilo_bucle = m_hilo;
    }

    void TearDown() override
    {
        cierra();
        m_cambio.reset();
        CloseHandle(s_descansa);
        CloseHandle(s_hay_novedad);
        con_sesion::TearDown();
    }

    // The loop thread has come to the state and rests.
    bool espera(uint32_t estado)
    {
        uint64_t limite = GetTickCount64() + 10000;
        SetEvent(s_hay_novedad);
        while (m_canal->u32(4) != estado && GetTickCount64() < limite)
            WaitForSingleObject(s_descansa, 200);
        return m_canal->u32(4) == estado;
    }

    // The result; 0xFFFFFFFF when the thread did not come back. `nivel` is what it held in its rest behind the command.
    uint32_t ejecuta(const orden_cruda &orden, int32_t *nivel = nullptr)
    {
        escribe_orden(m_canal.get(), orden);
        if (!espera(3))
            return 0xFFFFFFFFu;
        uint32_t resultado = m_canal->u32(8);
        if (nivel != nullptr)
            *nivel = nivel_tras_la_orden();
        m_canal->pon_u32(4, 4);
        bool visto = espera(5);
        m_canal->pon_u32(4, 0);
        m_canal->pon_u32(1198, 0);
        return visto ? resultado : 0xFFFFFFFFu;
    }

    // Read while a stranger holds the mutex, so that the loop thread has none of it by a round of its own.
    int32_t nivel_tras_la_orden()
    {
        EXPECT_TRUE(m_mutex->retiene(5000));
        int32_t nivel = mutex_en(prestado(0), 50)->nivel_bloqueo;
        m_mutex->suelta();
        return nivel;
    }

    void comprueba_que_sirve()
    {
        s_trabajo = [this](uint32_t, comando *contexto) {
            EXPECT_EQ(ivrexa_dame_byte(contexto->datos_entrada, 0), 9u);
            pon_salida(m_servicio, contexto);
            return 7;
        };
        bloque_crudo datos = crea_datos(m_servicio, 8000, {1, 0, 0, 0, 1, 2, 'b', 0, 9});
        EXPECT_EQ(ejecuta({100, 8000, 0, {}}), 7u);
        EXPECT_NE(prestado(0).puntero(82), nullptr) << "the output, kept for the client";
        s_trabajo = nullptr;
        EXPECT_EQ(ejecuta({}), 1u);
        EXPECT_EQ(prestado(0).puntero(82), nullptr);
        EXPECT_EQ(s_llamadas.back().hilo, m_hilo);
        EXPECT_EQ(prestado(0).u32(78), 2u);
    }

    const char *m_servicio = nullptr;
    uint32_t m_hilo = 0;
    std::unique_ptr<importacion_cambiada<decltype(&Sleep)>> m_cambio;
    std::unique_ptr<bloque_crudo> m_canal;
    std::unique_ptr<mutex_crudo> m_mutex;
};

int32_t revienta(uint32_t id_comando, comando *)
{
    reventar::revienta(id_comando);
    return 1;
}

} // namespace

// ---- Each kind once

struct iv_reg_cada_excepcion : iv_reg_excepciones, ::testing::WithParamInterface<reventar::nombre_modo> {};

TEST_P(iv_reg_cada_excepcion, da_3_suelta_lo_suyo_y_el_hilo_sigue)
{
    const uint32_t id = GetParam().m;
    comprueba_que_sirve();
    s_trabajo = revienta;
    uint32_t vivos = bloques_vivos();
    LONG hechos = reventar::hechos;
    for (int n = 1; n <= 3; n++) {
        int32_t nivel = -100;
        EXPECT_EQ(ejecuta({id, 0, 0, {}}, &nivel), 3u);
        EXPECT_EQ(nivel, 0);
        EXPECT_EQ(bloques_vivos(), vivos);
        EXPECT_EQ(prestado(0).puntero(82), nullptr);
        EXPECT_EQ(reventar::excepciones, 0) << "the host's exception object";
        EXPECT_EQ(reventar::vivos, id == reventar::PILA_CON_DESTRUCTORES ? n : 0) << "destructors that did not run";
    }
    bool con_objetos = (reventar::CPP_UN_DESTRUCTOR <= id && id < reventar::CPP_MALA_AL_MORIR) ||
                       id == reventar::PILA_CON_DESTRUCTORES;
    EXPECT_EQ(reventar::hechos != hechos, con_objetos) << "objects on the way";
    comprueba_que_sirve();
}

static std::string dime_modo(const ::testing::TestParamInfo<reventar::nombre_modo> &dato)
{
    return dato.param.nombre;
}
INSTANTIATE_TEST_SUITE_P(sistema, iv_reg_cada_excepcion, ::testing::ValuesIn(reventar::SISTEMA), dime_modo);
INSTANTIATE_TEST_SUITE_P(cpp, iv_reg_cada_excepcion, ::testing::ValuesIn(reventar::CPP), dime_modo);
INSTANTIATE_TEST_SUITE_P(pila, iv_reg_cada_excepcion, ::testing::ValuesIn(reventar::PILAS), dime_modo);

// ---- A thousand in a row

struct iv_reg_mil_excepciones : iv_reg_excepciones, ::testing::WithParamInterface<reventar::nombre_modo> {};

TEST_P(iv_reg_mil_excepciones, seguidas_dan_3_cada_vez_y_no_dejan_nada)
{
    const uint32_t id = GetParam().m;
    comprueba_que_sirve();
    s_trabajo = revienta;
    EXPECT_EQ(ejecuta({id, 0, 0, {}}), 3u);
    manejadores antes = cuenta_por_tipo();
    uint32_t vivos = bloques_vivos();
    int treses = 0;
    for (int n = 0; n < VECES; n++)
        treses += ejecuta({id, 0, 0, {}}) == 3u;

    EXPECT_EQ(treses, VECES);
    EXPECT_EQ(num_llamadas(), VECES + 3u);
    EXPECT_EQ(cuenta_por_tipo(), antes);
    EXPECT_EQ(bloques_vivos(), vivos);
    EXPECT_EQ(reventar::vivos, 0);
    EXPECT_EQ(reventar::excepciones, 0);
    int32_t nivel = -100;
    EXPECT_EQ(ejecuta({id, 0, 0, {}}, &nivel), 3u);
    EXPECT_EQ(nivel, 0);
    comprueba_que_sirve();
}

INSTANTIATE_TEST_SUITE_P(clase, iv_reg_mil_excepciones,
                         ::testing::Values(reventar::nombre_modo{reventar::ESCRIBE_NULO, "ESCRIBE_NULO"},
                                           reventar::nombre_modo{reventar::CODIGO, "CODIGO"},
                                           reventar::nombre_modo{reventar::CPP_ANIDADOS, "CPP_ANIDADOS"},
                                           reventar::nombre_modo{reventar::CPP_OTRA_EN_SU_CATCH,
                                                                 "CPP_OTRA_EN_SU_CATCH"},
                                           reventar::nombre_modo{reventar::PILA, "PILA"}),
                         dime_modo);

// All kinds in turn, with input data: of each command stays what finding its block leaves, and no more. The first round
// is not counted: the C++ run-time makes some of its own for a thread that it has not seen.
TEST_F(iv_reg_excepciones, mil_de_todas_las_clases_con_datos_dejan_un_manejador_cada_una)
{
    bloque_crudo datos = crea_datos(m_servicio, 9000, {1, 0, 0, 0, 1, 2, 'b', 0, 9});
    s_trabajo = [](uint32_t id_comando, comando *contexto) {
        EXPECT_EQ(ivrexa_dame_byte(contexto->datos_entrada, 0), 9u);
        return revienta(id_comando, contexto);
    };
    auto de_todas = [&](uint32_t num) {
        uint32_t treses = 0;
        for (uint32_t n = 0; n < num; n++)
            treses += ejecuta({reventar::LEE_NULO + n % (reventar::FIN - reventar::LEE_NULO), 9000, 0, {}}) == 3u;
        return treses;
    };
    de_todas(reventar::FIN - reventar::LEE_NULO);
    manejadores antes = cuenta_por_tipo();
    uint32_t vivos = bloques_vivos();

    EXPECT_EQ(de_todas(VECES), VECES + 0u);
    EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{VECES, 0, 0}));
    EXPECT_EQ(bloques_vivos(), vivos);
    EXPECT_EQ(reventar::excepciones, 0);
    s_trabajo = nullptr;
    comprueba_que_sirve();
}

// ---- What the function had in its hands

// The output of the command before goes as ever; what this one made is the host's, even where it was put into the
// context: the host may have destroyed it on its way out.
TEST_F(iv_reg_excepciones, salida_de_quien_revienta_se_queda_como_estaba)
{
    for (bool puesta : {false, true}) {
        s_trabajo = [this](uint32_t, comando *contexto) {
            return static_cast<int32_t>(pon_salida(m_servicio, contexto));
        };
        uint32_t anterior = ejecuta({});
        EXPECT_TRUE(existen_datos(m_servicio, anterior));

        comdat *salida = nullptr;
        uint32_t id_salida = 0;
        s_trabajo = [&](uint32_t, comando *contexto) -> int32_t {
            EXPECT_FALSE(existen_datos(m_servicio, anterior));
            id_salida = pon_salida(m_servicio, contexto);
            salida = contexto->datos_salida;
            contexto->datos_salida = puesta ? salida : nullptr;
            throw std::runtime_error("with output");
        };
        EXPECT_EQ(ejecuta({}), 3u);
        EXPECT_EQ(prestado(0).puntero(82), nullptr);
        EXPECT_TRUE(existen_datos(m_servicio, id_salida));
        s_trabajo = nullptr;
        EXPECT_EQ(ejecuta({}), 1u);
        EXPECT_TRUE(existen_datos(m_servicio, id_salida)) << "nobody but the host destroys it";
        ivrexa_destruye_datos_comando(salida);
        EXPECT_FALSE(existen_datos(m_servicio, id_salida));
    }
    EXPECT_EQ(num_informes(), 0u);
}

// Held by a hold of the function's own, more than one deep.
TEST_F(iv_reg_excepciones, mutex_que_la_funcion_deja_tomado_vuelve_a_su_hondura)
{
    for (uint32_t id : {reventar::CODIGO, reventar::CPP_ANIDADOS, reventar::PILA}) {
        s_trabajo = [](uint32_t id_comando, comando *contexto) {
            for (int n = 0; n < 3; n++)
                iv_mutex_bloquea(mutex_en(prestado(0), 50), 99);
            return revienta(id_comando, contexto);
        };
        int32_t nivel = -100;
        EXPECT_EQ(ejecuta({id, 0, 0, {}}, &nivel), 3u);
        EXPECT_EQ(nivel, 0);
    }
    EXPECT_EQ(num_informes(), 0u);
}

// The deepest calls are the library's own, with the heap's lock held as often as not.
static volatile int s_num_bajadas;

static __attribute__((noinline)) int baja(comdat *datos)
{
    volatile char marco[400];
    marco[0] = 1;
    ivrexa_graba_byte(datos, "b", 1);
    s_num_bajadas = s_num_bajadas + 1;
    return s_num_bajadas < reventar::s_fondo ? baja(datos) + marco[0] : 0;
}

TEST_F(iv_reg_excepciones, pila_agotada_dentro_de_la_biblioteca_no_deja_el_cerrojo_del_heap)
{
    for (int n = 0; n < 20; n++) {
        comdat *datos = ivrexa_crea_datos_comando_salida(m_servicio);
        s_num_bajadas = 0;
        s_trabajo = [&](uint32_t, comando *) { return baja(datos); };
        EXPECT_EQ(ejecuta({}), 3u);
        EXPECT_GT(s_num_bajadas, 100);
        EXPECT_TRUE(mutex_crudo("ivrexa_iv_mem").libre());
        ivrexa_destruye_datos_comando(datos);
    }
    s_trabajo = nullptr;
    comprueba_que_sirve();
}
