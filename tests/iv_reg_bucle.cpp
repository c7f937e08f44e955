// A server without a window: its loop threads, as a client sees them that knows the channel's bytes alone.
#include "iv_reg_apoyo.h"

#include "comun/importacion.h"
#include "comun/papel.h"
#include "comun/proceso_propio.h"

#include "iv_mcbase.h"
#include "iv_mem.h"

IMPORTACION(HeapAlloc);

namespace {

const SIZE_T i_TAM_IMPOSIBLE = 0x100000;

int s_num_quit;
int s_codigo_quit;
DWORD s_hilo_quit;

void WINAPI apunta_quit(int codigo)
{
    s_hilo_quit = GetCurrentThreadId();
    s_codigo_quit = codigo;
    s_num_quit++;
}

// Holds a command function until the test lets it go.
class puerta {
public:
    puerta() : m_abierta(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}
    ~puerta()
    {
        abre();
        CloseHandle(m_abierta);
    }
    void abre() { SetEvent(m_abierta); }
    int32_t espera() const { return WaitForSingleObject(m_abierta, 20000) == WAIT_OBJECT_0 ? 1 : -1; }

private:
    HANDLE m_abierta;
};

struct iv_reg_bucle : con_sesion {
    void prepara(ivrexa_funcion_comando funcion = funcion_comando)
    {
        m_servicio = nombre_unico("Calc");
        m_mcb = std::make_unique<bloque_crudo>(abre_registro());
        sirve(m_servicio, nullptr, funcion);
        m_canal = std::make_unique<bloque_crudo>(abre_canal(m_servicio));
    }

    bool espera_estado(uint32_t estado, uint32_t ms = 5000)
    {
        return espera_hasta([&] { return m_canal->u32(4) == estado; }, ms);
    }
    bool espera_servidor(uint32_t estado, uint32_t ms = 5000)
    {
        return espera_hasta([&] { return m_canal->u32(30) == estado; }, ms);
    }
    bool acaba_hilo(uint32_t ms = 5000) { return WaitForSingleObject(prestado(0).puntero(66), ms) == WAIT_OBJECT_0; }
    DWORD codigo_hilo()
    {
        DWORD codigo = 0;
        GetExitCodeThread(prestado(0).puntero(66), &codigo);
        return codigo;
    }

    // Runs a command to its end and returns its result; 0xFFFFFFFF if it does not end.
    uint32_t ejecuta(const orden_cruda &orden)
    {
        escribe_orden(m_canal.get(), orden);
        if (!espera_estado(3))
            return 0xFFFFFFFFu;
        uint32_t resultado = m_canal->u32(8);
        return acusa_recibo(m_canal.get()) ? resultado : 0xFFFFFFFFu;
    }

    // The loop's next round of `estado` finds its client dead: a command under way and a heartbeat that
    // stands still since the state was entered. Only the count of rounds is moved on, to one before the 25th.
    void da_por_muerto_al_cliente(uint32_t estado)
    {
        mutex_crudo mutex("Ivrexa_Mutex_MCB");
        uint32_t i = busca_en_registro(*m_mcb, m_servicio);
        EXPECT_TRUE(espera_hasta([&] { return m_mcb->u32(en_servicio(i, 68)) == estado; }, 5000));
        EXPECT_TRUE(mutex.retiene(5000));
        m_mcb->pon_u16(en_servicio(i, 66), 5);
        m_mcb->pon_u32(en_servicio(i, 80), 100);
        m_mcb->pon_u32(en_servicio(i, 72), 24);
        mutex.suelta();
    }

    const char *m_servicio = nullptr;
    std::unique_ptr<bloque_crudo> m_mcb, m_canal;
};

// Each escapes the command function in its own way.
int32_t cae(uint32_t, comando *)
{
    volatile int *volatile nada = nullptr;
    *nada = 1; // cppcheck-suppress nullPointer  // the crash is what is tested
    return 1;
}

int32_t lanza_sistema(uint32_t, comando *)
{
    RaiseException(0xE0001234, 0, 0, nullptr);
    return 1;
}

// Leaves the service's mutex one hold deeper than it found it.
int32_t lanza_con_mutex(uint32_t, comando *)
{
    iv_mutex_bloquea(mutex_en(prestado(0), 50), 99);
    RaiseException(0xE0001234, 0, 0, nullptr);
    return 1;
}

// A command function by itself, without the noting one between it and the library.
bool s_lanza;

// With the code that GCC's run-time throws with, and with something else where its object would be.
int32_t lanza_como_cpp(const char *, uint32_t, comando *, void *)
{
    const ULONG_PTR ningun_objeto = 0x10;
    if (s_lanza)
        RaiseException(0x20474343, 0, 1, &ningun_objeto);
    return 1;
}

int32_t lanza_cpp(const char *, uint32_t, comando *, void *)
{
    if (s_lanza)
        throw 5;
    return 1;
}

} // namespace

// ---- The states

// One client of a service, with the channel's bytes alone: tells what it sees.
PAPEL(cliente_crudo)
{
    bloque_crudo canal(nombre_canal(args.at(0)).c_str());
    mutex_crudo mutex(("Mutex_Ivrexa_" + args.at(0)).c_str());
    yo.di("LISTO");
    auto cuenta = [&](uint32_t estado) {
        bool visto = espera_hasta([&] { return canal.u32(4) == estado; }, 10000);
        yo.di((visto ? "STATE " : "NEVER ") + std::to_string(estado) + " server " + std::to_string(canal.u32(30)) +
              " result " + std::to_string(canal.u32(8)));
        return visto;
    };
    canal.pon_u32(8, 77);
    mutex.retiene(10000);
    escribe_orden(&canal, {100, 0, 0, {L"hola", L"", L""}});
    yo.di("STATE " + std::to_string(canal.u32(4)));
    mutex.suelta();
    cuenta(2);
    yo.di("FREE " + std::to_string(mutex.libre()));
    yo.escucha_linea("SIGUE", 10000);
    cuenta(3);
    yo.di("FREE " + std::to_string(espera_hasta([&] { return mutex.libre(); }, 5000)));
    mutex.retiene(10000);
    canal.pon_u32(4, 4);
    mutex.suelta();
    cuenta(5);
    bool espera_otra = espera_hasta([&] { return canal.u32(30) == 1; }, 10000);
    yo.di("SERVES " + std::to_string(espera_otra));
    canal.pon_u32(4, 0);
    canal.pon_u32(1198, 0);
    return 0;
}

TEST_F(iv_reg_bucle, estados_en_su_orden_vistos_por_otro_proceso)
{
    prepara();
    puerta sigue;
    std::wstring texto(64, L'\0');
    s_trabajo = [&](uint32_t, comando *) {
        ivrexa_get_datos_entrada_comando(m_servicio, 100, nullptr, &texto[0], nullptr, nullptr);
        return sigue.espera() == 1 ? 9 : -1;
    };
    papel cliente = arranca_papel("cliente_crudo", {m_servicio});

    EXPECT_EQ(cliente.espera_linea("STATE", 10000), "STATE 1");
    EXPECT_EQ(cliente.espera_linea("STATE", 10000), "STATE 2 server 2 result 0");
    EXPECT_EQ(cliente.espera_linea("FREE", 10000), "FREE 0"); // held while the command runs
    cliente.di("SIGUE");
    sigue.abre();
    EXPECT_EQ(cliente.espera_linea("STATE", 10000), "STATE 3 server 3 result 9");
    EXPECT_EQ(cliente.espera_linea("FREE", 10000), "FREE 1"); // the rounds for the receipt run without it
    EXPECT_EQ(cliente.espera_linea("STATE", 10000).substr(0, 7), "STATE 5");
    EXPECT_EQ(cliente.espera_linea("SERVES", 10000), "SERVES 1");
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
    EXPECT_EQ(texto.substr(0, 5), std::wstring(L"hola\0", 5));
    EXPECT_EQ(s_llamadas.at(0).hilo, prestado(0).u32(74));
}

// Sites, as the mutex's record keeps them: the wait holds 29, and 35 lies above it while the input is read.
TEST_F(iv_reg_bucle, sitio_29_se_tiene_mientras_corre_y_el_35_ya_no)
{
    prepara();
    puerta sigue;
    s_trabajo = [&](uint32_t, comando *) { return sigue.espera(); };
    escribe_orden(m_canal.get(), {});
    EXPECT_TRUE(espera_hasta([] { return num_llamadas() == 1; }, 5000));

    iv_mutex *mutex = mutex_en(prestado(0), 50);
    EXPECT_EQ(mutex->nivel_bloqueo, 1);
    EXPECT_EQ(mutex->codigos_bloqueo[0], 29u);
    EXPECT_EQ(mutex->codigos_bloqueo[1], 35u);
    sigue.abre();
    EXPECT_TRUE(espera_hasta([&] { return mutex->codigos_bloqueo[0] == 30; }, 5000));
    EXPECT_TRUE(acusa_recibo(m_canal.get()));
    EXPECT_TRUE(espera_hasta([&] { return mutex->codigos_bloqueo[0] == 29; }, 5000));
}

TEST_F(iv_reg_bucle, rondas_dicen_en_la_traza_que_se_espera)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    prepara();
    uint32_t id_hilo = prestado(0).u32(74);
    EXPECT_TRUE(traza.espera("BUCLE SERVIDOR_ESPERA_RECEPCION_COMANDO\n", 5000));
    escribe_orden(m_canal.get(), {});
    EXPECT_TRUE(traza.espera("BUCLE SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO\n", 5000));
    EXPECT_TRUE(acusa_recibo(m_canal.get()));

    std::string texto = solo_registros(traza.texto_de_hilo(id_hilo));
    EXPECT_EQ(texto.rfind("\n*** <t>: BUCLE SERVIDOR_ESPERA_RECEPCION_COMANDO\n", 0), 0u) << texto;
    EXPECT_NE(texto.find("\n*** <t>:  FIN COMANDO " + std::string(m_servicio) +
                         " id_comando: 100\n    Resultado     OK\n    id_datos_salida_comando = 0\n\n"
                         "\n*** <t>: BUCLE SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO\n"),
              std::string::npos)
        << texto;
}

TEST_F(iv_reg_bucle, datos_de_entrada_y_salida_postergada)
{
    prepara();
    bloque_crudo datos = crea_datos(m_servicio, 100, {1, 0, 0, 0, 1, 2, 'b', 0, 9});
    m_canal->pon_u32(12, 101);
    uint32_t valor = 0;
    s_trabajo = [&](uint32_t, comando *contexto) {
        valor = ivrexa_dame_byte(contexto->datos_entrada, 0);
        uint32_t id = pon_salida(m_servicio, contexto);
        return static_cast<int32_t>(id);
    };
    EXPECT_EQ(ejecuta({100, 100, 0x5555, {}}), 101u);
    EXPECT_EQ(valor, 9u);
    EXPECT_EQ(s_llamadas.at(0).contexto[2], 0x5555u);
    EXPECT_EQ(s_llamadas.at(0).contexto[3], 0u);
    EXPECT_EQ(m_canal->u32(1206), 0u);
    EXPECT_TRUE(existen_datos(m_servicio, 101));

    s_trabajo = nullptr;
    EXPECT_EQ(ejecuta({}), 1u);
    EXPECT_FALSE(existen_datos(m_servicio, 101));
}

TEST_F(iv_reg_bucle, servicio_sin_funcion_da_3)
{
    prepara(nullptr);
    EXPECT_EQ(ejecuta({}), 3u);
    EXPECT_EQ(ejecuta({50, 0, 0, {}}), 1u); // the library's own
    EXPECT_EQ(m_canal->u16(28), 0u);
}

// ---- Exceptions

TEST_F(iv_reg_bucle, excepcion_del_sistema_da_3_y_no_deja_nada)
{
    prepara();
    bloque_crudo datos = crea_datos(m_servicio, 100);
    s_trabajo = nullptr;
    EXPECT_EQ(ejecuta({100, 100, 0, {}}), 1u);
    uint32_t vivos = bloques_vivos(), id_hilo = prestado(0).u32(74);
    for (auto falla : {cae, lanza_sistema, lanza_con_mutex}) {
        s_trabajo = falla;
        EXPECT_EQ(ejecuta({100, 100, 0, {}}), 3u);
        EXPECT_NE(s_llamadas.back().contexto[0], 0u);
        EXPECT_EQ(bloques_vivos(), vivos);
        mutex_crudo mutex((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
        EXPECT_TRUE(mutex.retiene(5000));
        EXPECT_EQ(mutex_en(prestado(0), 50)->nivel_bloqueo, 0);
        mutex.suelta();
    }
    s_trabajo = nullptr;
    EXPECT_EQ(ejecuta({}), 1u); // it keeps serving, on the same thread
    EXPECT_EQ(s_llamadas.back().hilo, id_hilo);
    EXPECT_EQ(prestado(0).u32(78), 2u);
}

TEST_F(iv_reg_bucle, excepcion_de_cpp_da_3_y_no_deja_nada)
{
    prepara(lanza_cpp);
    bloque_crudo datos = crea_datos(m_servicio, 100);
    s_lanza = false;
    EXPECT_EQ(ejecuta({100, 100, 0, {}}), 1u);
    uint32_t vivos = bloques_vivos();
    s_lanza = true;
    EXPECT_EQ(ejecuta({100, 100, 0, {}}), 3u);

    EXPECT_EQ(bloques_vivos(), vivos);
    mutex_crudo mutex((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
    EXPECT_TRUE(mutex.retiene(5000));
    EXPECT_EQ(mutex_en(prestado(0), 50)->nivel_bloqueo, 0);
    mutex.suelta();
    s_lanza = false;
    EXPECT_EQ(ejecuta({}), 1u);
    EXPECT_EQ(prestado(0).u32(78), 2u);
}

TEST_F(iv_reg_bucle, excepcion_que_solo_parece_de_cpp_da_3)
{
    prepara(lanza_como_cpp);
    for (int vez = 0; vez < 3; vez++) {
        s_lanza = true;
        EXPECT_EQ(ejecuta({}), 3u);
        s_lanza = false;
        EXPECT_EQ(ejecuta({}), 1u);
    }
    EXPECT_EQ(prestado(0).u32(78), 2u);
}

// The heap raises while the input is read, under site 35: nothing stays locked, neither here nor for other
// programs.
TEST_F(iv_reg_bucle, excepcion_bajo_el_sitio_35_suelta_lo_que_quedaba_tomado)
{
    prepara();
    bloque_crudo datos = crea_datos(m_servicio, 100, std::vector<uint8_t>(i_TAM_IMPOSIBLE));
    static decltype(&HeapAlloc) s_reserva;
    s_reserva = __imp_HeapAlloc;
    importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc,
                                                      [](HANDLE heap, DWORD marcas, SIZE_T tam) -> void * {
                                                          if (heap == s_LocalHeap && tam >= i_TAM_IMPOSIBLE)
                                                              RaiseException(STATUS_NO_MEMORY, 0, 0, nullptr);
                                                          return s_reserva(heap, marcas, tam);
                                                      });
    EXPECT_EQ(ejecuta({100, 100, 0, {}}), 3u);

    EXPECT_EQ(num_llamadas(), 0u);
    EXPECT_TRUE(mutex_crudo("ivrexa_iv_mem").libre());
    mutex_crudo mutex((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
    EXPECT_TRUE(mutex.retiene(5000));
    EXPECT_EQ(mutex_en(prestado(0), 50)->nivel_bloqueo, 0);
    mutex.suelta();
    m_canal->pon_u32(1206, 0);
    EXPECT_EQ(ejecuta({}), 1u);
}

// ---- Waiting for the receipt

TEST_F(iv_reg_bucle, estado_inesperado_se_informa_en_cada_vuelta)
{
    const char *texto = "mcserv->info_estadoComando == iv_mcserv_estadoComando_TERMINADO_POR_SERVIDOR";
    prepara();
    escribe_orden(m_canal.get(), {});
    EXPECT_TRUE(espera_estado(3));
    EXPECT_EQ(num_informes(), 0u);
    for (uint32_t estado : {7u, 0u}) {
        m_canal->pon_u32(4, estado);
        ESPERA_INFORME("iv_reg", texto, 5000);
        ESPERA_INFORME("iv_reg", texto, 5000);
    }
    EXPECT_TRUE(acusa_recibo(m_canal.get()));
    while (num_informes() > 0)
        EXPECT_INFORME("iv_reg", texto);
    EXPECT_EQ(ejecuta({}), 1u);
}

TEST_F(iv_reg_bucle, marca_de_fin_acaba_la_espera_del_recibo_y_el_hilo)
{
    prepara();
    escribe_orden(m_canal.get(), {});
    EXPECT_TRUE(espera_estado(3));
    m_canal->pon_u16(28, 1);

    EXPECT_TRUE(acaba_hilo());
    EXPECT_EQ(codigo_hilo(), 0u);
    EXPECT_EQ(m_canal->u32(4), 5u);
    EXPECT_EQ(m_canal->u32(30), 0u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
    EXPECT_EQ(mutex_en(prestado(0), 50)->codigos_bloqueo[0], 32u);
    EXPECT_EQ(mutex_en(prestado(0), 50)->nivel_bloqueo, 0);
}

TEST_F(iv_reg_bucle, marca_de_fin_acaba_la_espera_de_una_orden)
{
    prepara();
    m_canal->pon_u16(28, 1);
    EXPECT_TRUE(acaba_hilo());
    EXPECT_EQ(m_canal->u32(30), 0u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
    EXPECT_EQ(mutex_en(prestado(0), 50)->nivel_bloqueo, 0);
}

// The command is looked at before the flag: it is carried out, answered, and only then the thread ends.
TEST_F(iv_reg_bucle, orden_que_llega_con_la_marca_de_fin_se_cumple_todavia)
{
    prepara();
    EXPECT_TRUE(espera_hasta([&] { return m_mcb->u32(en_servicio(prestado(0).u32(8), 68)) == 1; }, 5000));
    mutex_crudo mutex((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
    ASSERT_TRUE(mutex.retiene(5000)); // between two rounds of its wait
    escribe_orden(m_canal.get(), {});
    m_canal->pon_u16(28, 1);
    mutex.suelta();

    EXPECT_TRUE(acaba_hilo());
    EXPECT_EQ(num_llamadas(), 1u);
    EXPECT_EQ(m_canal->u32(8), 1u);
    EXPECT_EQ(m_canal->u32(4), 5u); // without a receipt
    EXPECT_EQ(m_canal->u32(30), 0u);
}

// Only 1 ends a wait.
TEST_F(iv_reg_bucle, otro_valor_de_la_marca_de_fin_no_acaba_nada)
{
    prepara();
    m_canal->pon_u16(28, 2);
    EXPECT_EQ(ejecuta({}), 1u);
    EXPECT_EQ(ejecuta({101, 0, 0, {}}), 1u);
    EXPECT_EQ(num_llamadas(), 2u);
    EXPECT_EQ(m_canal->u16(28), 2u);
    EXPECT_EQ(prestado(0).u32(78), 2u);
}

// ---- Dead clients

TEST_F(iv_reg_bucle, cliente_muerto_mientras_se_espera_una_orden_acaba_el_servicio)
{
    prepara();
    da_por_muerto_al_cliente(1);

    EXPECT_TRUE(acaba_hilo());
    EXPECT_EQ(m_canal->u16(28), 1u);
    EXPECT_EQ(m_canal->u32(30), 0u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
}

TEST_F(iv_reg_bucle, cliente_muerto_antes_del_recibo_solo_acaba_esa_espera)
{
    prepara();
    escribe_orden(m_canal.get(), {});
    EXPECT_TRUE(espera_estado(3));
    da_por_muerto_al_cliente(2);

    EXPECT_TRUE(espera_estado(5));
    EXPECT_TRUE(espera_servidor(1));
    EXPECT_EQ(m_canal->u16(28), 0u);
    m_mcb->pon_u32(en_servicio(busca_en_registro(*m_mcb, m_servicio), 80), 0);
    EXPECT_EQ(ejecuta({}), 1u);
    EXPECT_EQ(prestado(0).u32(78), 2u);
}

// ---- The end

TEST_F(iv_reg_bucle, orden_1_acaba_el_hilo_y_la_espera_de_su_fin)
{
    prepara();
    ventana_cambiada cambiada;
    cambiada->PostQuitMessage = apunta_quit;
    s_num_quit = 0;
    HANDLE acabado = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    hilo espera([&] {
        ivrexa_espera_comando_terminar_servidor();
        SetEvent(acabado);
    });
    EXPECT_EQ(WaitForSingleObject(acabado, 450), static_cast<DWORD>(WAIT_TIMEOUT)); // past its first look
    uint32_t id_hilo = prestado(0).u32(74);
    escribe_orden(m_canal.get(), {1, 0, 0, {}});

    EXPECT_TRUE(acaba_hilo());
    EXPECT_EQ(codigo_hilo(), 0u);
    EXPECT_EQ(m_canal->u32(8), 1u);
    EXPECT_EQ(m_canal->u32(4), 5u);
    EXPECT_EQ(m_canal->u16(28), 1u);
    EXPECT_EQ(m_canal->u32(30), 0u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
    EXPECT_EQ(s_num_quit, 1);
    EXPECT_EQ(s_codigo_quit, 1);
    EXPECT_EQ(s_hilo_quit, id_hilo); // its own queue, not the main thread's
    EXPECT_EQ(num_llamadas(), 0u);
    EXPECT_EQ(WaitForSingleObject(acabado, 2000), WAIT_OBJECT_0);
    CloseHandle(acabado);
}

TEST_F(iv_reg_bucle, ordenes_2_a_99_dan_1_y_no_hacen_nada)
{
    prepara();
    for (uint32_t id : {2u, 99u})
        EXPECT_EQ(ejecuta({id, 0, 0, {}}), 1u) << id;
    EXPECT_EQ(num_llamadas(), 0u);
    EXPECT_EQ(m_canal->u16(28), 0u);
    EXPECT_EQ(prestado(0).u32(78), 2u);
    EXPECT_EQ(ejecuta({0, 0, 0, {}}), 1u); // 0 is the host's: the window alone passes it on
    EXPECT_EQ(num_llamadas(), 1u);
}

TEST_F(iv_reg_bucle, orden_1_acaba_solo_su_servicio)
{
    prepara();
    const char *otro = nombre_unico("Otro");
    ivrexa_anyade_servicio(otro, 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    escribe_orden(m_canal.get(), {1, 0, 0, {}});

    EXPECT_TRUE(acaba_hilo());
    bloque_crudo canal = abre_canal(otro);
    EXPECT_EQ(canal.u16(28), 0u);
    EXPECT_EQ(prestado(1).u32(78), 2u);
    escribe_orden(&canal, {});
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(4) == 3; }, 5000));
    EXPECT_TRUE(acusa_recibo(&canal));
}

// By the road of a client: the reserved command, without data and texts.
TEST_F(iv_reg_bucle, terminar_servidor_ejecuta_la_orden_1)
{
    prepara();
    m_mcb->pon_u32(en_programa(0, 270), 5); // a heartbeat that has moved: nobody counts as dead
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, m_servicio);
    ivrexa_terminar_servidor(m_servicio);

    EXPECT_TRUE(acaba_hilo());
    EXPECT_EQ(m_canal->u16(28), 1u);
    EXPECT_EQ(m_canal->u32(1198), 0u);
    ivrexa_espera_comando_terminar_servidor();
}

TEST_F(iv_reg_bucle, terminar_servidor_de_quien_no_es_cliente_no_hace_nada)
{
    prepara();
    ivrexa_terminar_servidor(m_servicio);
    EXPECT_EQ(m_canal->u16(28), 0u);
    EXPECT_EQ(ejecuta({}), 1u);
}

// Any thread that is not ended counts, whatever its state.
TEST_F(iv_reg_bucle, esperar_cuenta_todo_hilo_que_no_ha_acabado)
{
    prepara();
    m_canal->pon_u16(28, 1);
    EXPECT_TRUE(acaba_hilo());
    prestado(0).pon<uint32_t>(78, 1);
    hilo espera([] { ivrexa_espera_comando_terminar_servidor(); });
    EXPECT_FALSE(espera.acaba(450)); // past its first look
    prestado(0).pon<uint32_t>(78, 0);
    EXPECT_TRUE(espera.acaba(2000));
}
