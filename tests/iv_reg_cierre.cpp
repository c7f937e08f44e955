// The end of a session: in which order it withdraws, what it leaves, and what comes after it.
#include "iv_reg_apoyo.h"

#include "comun/importacion.h"
#include "comun/proceso_propio.h"

#include "iv_mcbase.h"

IMPORTACION(GetExitCodeThread);
IMPORTACION(TerminateThread);
IMPORTACION(CloseHandle);
IMPORTACION(Sleep);

namespace {

// The record outlives its session: it is static.
const iv_reg_programa *s_ficha;
std::string s_canales[2];
std::vector<std::string> s_pasos;

std::string numero(uint64_t n)
{
    return std::to_string(n);
}

// How far the close is, as seen from a call that it makes.
std::string donde_esta()
{
    vista_memoria ficha(s_ficha);
    bloque_crudo mcb("Ivrexa_MCB");
    std::string texto = "closing " + numero(ficha.u32(0)) + " beat " + numero(ficha.puntero(3312) != nullptr) +
                        " entered " + numero(mcb.texto(1430, 256) != "");
    for (uint32_t i = 0; i < 2; i++) {
        bloque_crudo canal(s_canales[i].c_str());
        texto += " ended " + numero(canal.u16(28)) + numero(canal.u32(30)) + " thread " +
                 numero(ficha.puntero(36 + 90 * i + 66) != nullptr);
    }
    texto += " client " + numero(ficha.puntero(1484 + 44) != nullptr);
    return texto;
}

BOOL WINAPI apunta_aviso(HWND, UINT, WPARAM wparam, LPARAM lparam)
{
    s_pasos.push_back("post " + numero(wparam) + " " + numero(static_cast<uint64_t>(lparam)) + ": " + donde_esta());
    return TRUE;
}

LONG_PTR WINAPI apunta_subclase(HWND hwnd, int indice, LONG_PTR valor)
{
    s_pasos.push_back("subclass " + std::to_string(indice) + ": " + donde_esta());
    return SetWindowLongPtrW(hwnd, indice, valor);
}

struct iv_reg_cierre : con_sesion {
    iv_reg_cierre() { s_pasos.clear(); }
};

} // namespace

TEST_F(iv_reg_cierre, orden_de_los_efectos_sin_ventana)
{
    std::string a = nombre_unico("A"), b = nombre_unico("B");
    s_canales[0] = nombre_canal(a);
    s_canales[1] = nombre_canal(b);
    bloque_crudo canal_a = abre_canal(a), canal_b = abre_canal(b), mcb = abre_registro();
    ivrexa_registra_servidor("C:\\p.exe", nullptr, a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(b.c_str(), 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, nombre_unico("Usado"));
    pon_monitor(&mcb, 1, 1);
    s_ficha = s_programa;
    {
        ventana_cambiada cambiada;
        cambiada->PostMessageW = [](HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam) -> BOOL {
            return wparam == 0 ? apunta_aviso(hwnd, msg, wparam, lparam) : TRUE; // without the rounds
        };
        iv_reg_cierra_sesion();
    }

    // The heartbeat first, then the program's entry; each service is marked, told of, and its thread stopped
    // before the next one; the clients' threads come last.
    EXPECT_EQ(s_pasos, (std::vector<std::string>{
                           "post 0 1: closing 2 beat 0 entered 0 ended 10 thread 1 ended 01 thread 1 client 1",
                           "post 0 2: closing 2 beat 0 entered 0 ended 10 thread 0 ended 10 thread 1 client 1"}));
    // a server; kind 1; ends
    for (size_t n : {22, 44})
        EXPECT_TRUE(bytes_iguales({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, mcb.bytes(n + 4, 18))) << n;
    EXPECT_EQ(busca_en_registro(mcb, a), 32u); // out of the table
    EXPECT_EQ(busca_en_registro(mcb, b), 32u);
    EXPECT_EQ(mcb.texto(1430, 256), "");
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(18), mcb.bytes(1430 + 256, 18)));
    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(vista_memoria(s_ficha).u32(0), 3u);
}

TEST_F(iv_reg_cierre, ventana_vuelve_a_su_procedimiento_tras_parar_los_hilos)
{
    std::string a = nombre_unico("A"), b = nombre_unico("B");
    s_canales[0] = nombre_canal(a);
    s_canales[1] = nombre_canal(b);
    bloque_crudo canal_a = abre_canal(a), canal_b = abre_canal(b), mcb = abre_registro();
    ivrexa_registra_servidor("C:\\p.exe", ventana(), a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(b.c_str(), 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, nombre_unico("Usado"));
    UINT msg = ivrexa_dame_id_MSG_servicio(a.c_str());
    s_ficha = s_programa;
    {
        ventana_cambiada cambiada;
        cambiada->SetWindowLongPtrW = apunta_subclase;
        iv_reg_cierra_sesion();
    }

    EXPECT_EQ(s_pasos, (std::vector<std::string>{
                           "subclass -4: closing 2 beat 0 entered 0 ended 10 thread 0 ended 10 thread 0 client 0"}));
    EXPECT_EQ(GetWindowLongPtrW(ventana(), GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(proc_propia));
    EXPECT_EQ(SendMessageW(ventana(), msg, 100, 0), 77);
    EXPECT_EQ(num_llamadas(), 0u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(a.c_str()), 0u);
}

TEST_F(iv_reg_cierre, ficha_queda_vacia_con_sus_cuentas)
{
    const char *usado = nombre_unico("Usado");
    sirve(nombre_unico("Calc"), nullptr);
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, usado);
    ivrexa_abierto_documento_de_cliente(usado, L"uno", 11);
    ivrexa_abierto_documento_de_cliente(usado, L"dos", 12);
    vista_memoria ficha(s_programa);
    uint32_t hilos[3] = {ficha.u32(3320), ficha.u32(36 + 74), ficha.u32(1484 + 52)};
    HANDLE abiertos[3];
    for (int i = 0; i < 3; i++)
        abiertos[i] = OpenThread(SYNCHRONIZE, FALSE, hilos[i]);
    ivrexa_cierra_sesion();

    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(ficha.u32(0), 3u);
    for (size_t despl : {4, 3312, 36 + 0, 36 + 30, 36 + 42, 36 + 50, 36 + 58, 36 + 66, 36 + 82, 1484 + 0, 1484 + 28,
                         1484 + 36, 1484 + 44, 2416, 2416 + 28})
        EXPECT_EQ(ficha.u64(despl), 0u) << despl;
    for (size_t despl : {3320, 36 + 74, 36 + 78, 1484 + 52, 2416 + 8, 2416 + 28 + 8})
        EXPECT_EQ(ficha.u32(despl), 0u) << despl;
    EXPECT_EQ(ficha.u16(1484 + 56), 0u);
    EXPECT_EQ(ficha.u8(2416 + 12), 0u);
    EXPECT_EQ(ficha.u32(32), 1u);
    EXPECT_EQ(ficha.u32(1480), 1u);
    for (HANDLE abierto : abiertos) {
        ASSERT_NE(abierto, nullptr);
        EXPECT_EQ(WaitForSingleObject(abierto, 2000), WAIT_OBJECT_0);
        CloseHandle(abierto);
    }
    EXPECT_EQ(s_LocalHeap, nullptr);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

// Each thread: its exit code; if it still runs, 500 ms and then its end, seen or not; its handle closed at
// last.
TEST_F(iv_reg_cierre, hilo_que_duerme_recibe_500_ms_y_el_acabado_ninguno)
{
    static HANDLE s_latido, s_servidor;
    static decltype(&GetExitCodeThread) s_codigo;
    static decltype(&TerminateThread) s_mata;
    static decltype(&CloseHandle) s_cierra;
    static decltype(&Sleep) s_duerme;
    static DWORD s_hilo;
    s_codigo = __imp_GetExitCodeThread;
    s_mata = __imp_TerminateThread;
    s_cierra = __imp_CloseHandle;
    s_duerme = __imp_Sleep;
    s_hilo = GetCurrentThreadId();
    sirve(nombre_unico("Calc"), nullptr);
    s_latido = programa().puntero(3312);
    s_servidor = prestado(0).puntero(66);
    termina_canales();
    ASSERT_EQ(WaitForSingleObject(s_servidor, 5000), WAIT_OBJECT_0);
    static auto quien = [](HANDLE h) {
        const char *nombre = h == s_latido ? "heartbeat" : h == s_servidor ? "service" : "";
        return std::string(h != nullptr ? nombre : "");
    };
    {
        importacion_cambiada<decltype(&GetExitCodeThread)> codigo(__imp_GetExitCodeThread,
                                                                  [](HANDLE h, LPDWORD n) -> BOOL {
                                                                      s_pasos.push_back("code " + quien(h));
                                                                      return s_codigo(h, n);
                                                                  });
        importacion_cambiada<decltype(&TerminateThread)> mata(__imp_TerminateThread, [](HANDLE h, DWORD n) -> BOOL {
            s_pasos.push_back("kill " + quien(h) + " " + std::to_string(n));
            return s_mata(h, n);
        });
        importacion_cambiada<decltype(&CloseHandle)> cierra_manejador(__imp_CloseHandle, [](HANDLE h) -> BOOL {
            if (!quien(h).empty())
                s_pasos.push_back("close " + quien(h));
            s_latido = h == s_latido ? nullptr : s_latido; // the number may come back
            s_servidor = h == s_servidor ? nullptr : s_servidor;
            return s_cierra(h);
        });
        importacion_cambiada<decltype(&Sleep)> duerme(__imp_Sleep, [](DWORD ms) {
            if (GetCurrentThreadId() == s_hilo && ms >= 100)
                s_pasos.push_back("sleep " + std::to_string(ms));
            s_duerme(ms);
        });
        ivrexa_cierra_sesion();
    }
    EXPECT_EQ(s_pasos, (std::vector<std::string>{"code heartbeat", "sleep 500", "kill heartbeat 0", "close heartbeat",
                                                 "code service", "close service"}));
}

// Keeps the heartbeat, once it touches the registry's block, where it has counted its hold of the mutex, until long
// after the grace that a close gives it.
class latido_parado {
public:
    latido_parado()
    {
        s_dentro = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        m_manejador = AddVectoredExceptionHandler(1, para);
        protege(PAGE_NOACCESS);
    }
    ~latido_parado()
    {
        RemoveVectoredExceptionHandler(m_manejador);
        CloseHandle(s_dentro);
    }
    latido_parado(const latido_parado &) = delete;
    latido_parado &operator=(const latido_parado &) = delete;
    bool espera() { return WaitForSingleObject(s_dentro, 5000) == WAIT_OBJECT_0; }

private:
    static void protege(DWORD proteccion)
    {
        DWORD antes;
        VirtualProtect(s_mcbase_acceso->bloque->sharedmem, 8890, proteccion, &antes);
    }
    static LONG CALLBACK para(EXCEPTION_POINTERS *p)
    {
        if (p->ExceptionRecord->ExceptionCode != EXCEPTION_ACCESS_VIOLATION)
            return EXCEPTION_CONTINUE_SEARCH;
        protege(PAGE_READWRITE);
        SetEvent(s_dentro);
        const iv_reg_programa *programa = s_programa;
        for (int ms = 0; ms < 5000 && programa->estado_registro < iv_reg_CERRANDO; ms++)
            Sleep(1);
        Sleep(2000);
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static inline HANDLE s_dentro;
    void *m_manejador;
};

// Ended inside the registry it would leave a hold counted that nobody has.
TEST_F(iv_reg_cierre, latido_no_se_acaba_dentro_del_registro_ni_del_heap)
{
    static std::vector<bool> s_libres, s_con_registro;
    static decltype(&TerminateThread) s_mata;
    s_mata = __imp_TerminateThread;
    importacion_cambiada<decltype(&TerminateThread)> mata(__imp_TerminateThread, [](HANDLE h, DWORD n) -> BOOL {
        s_con_registro.push_back(s_mcbase_acceso != nullptr); // without it, nobody is inside
        s_libres.push_back(s_con_registro.back() && mutex_crudo("Ivrexa_Mutex_MCB").libre());
        s_libres.push_back(mutex_crudo("ivrexa_iv_mem").libre());
        return s_mata(h, n);
    });
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, nombre_unico("Calc"));
    mutex_crudo registro("Ivrexa_Mutex_MCB"), heap("ivrexa_iv_mem");
    latido_parado parado;
    ASSERT_TRUE(parado.espera());
    EXPECT_FALSE(registro.libre());
    ivrexa_cierra_sesion();
    ASSERT_GE(s_libres.size(), 2u); // the heartbeat, and a notification thread that slept too long
    EXPECT_TRUE(s_con_registro[0]);
    EXPECT_EQ(s_libres, std::vector<bool>(s_libres.size(), false));
    EXPECT_TRUE(registro.libre());
    EXPECT_TRUE(heap.libre());
    EXPECT_SIN_INFORMES();
}

TEST_F(iv_reg_cierre, no_deja_manejadores)
{
    auto sesion = [&] {
        sirve(nombre_unico("Calc"), nullptr);
        ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, nombre_unico("Usado"));
        cierra();
    };
    sesion();
    // Opening what exists leaves a handle behind. Only tests before this one, in the same process, keep the
    // registry; a session then opens it twice, since the last program to leave closes it before the services
    // are withdrawn.
    uint32_t del_registro = existe_bloque("Ivrexa_MCB") ? 2 : 0;
    uint32_t antes = cuenta_manejadores();
    sesion();
    EXPECT_EQ(cuenta_manejadores(), antes + del_registro);
}

TEST_F(iv_reg_cierre, no_deja_objetos_con_nombre)
{
    std::string servicio = nombre_unico("Calc"), usado = nombre_unico("Usado");
    sirve(servicio.c_str(), ventana());
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, usado.c_str());
    cierra();
    for (const std::string &s : {servicio, usado}) {
        EXPECT_FALSE(existe_bloque(nombre_canal(s).c_str())) << s;
        EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + s).c_str())) << s;
        EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + s + "Interno").c_str())) << s;
    }
    EXPECT_FALSE(existe_mutex("Ivrexa_Mutex_MCB"));
    EXPECT_FALSE(existe_mutex("ivrexa_iv_mem"));
}

// The channel is marked under site 25, before the service is withdrawn.
TEST_F(iv_reg_cierre, canal_se_marca_bajo_el_sitio_25)
{
    std::string servicio = nombre_unico("Calc");
    sirve(servicio.c_str(), ventana());
    bloque_crudo canal = abre_canal(servicio), mcb = abre_registro();
    mutex_crudo mutex(("Mutex_Ivrexa_" + servicio).c_str()), registro("Ivrexa_Mutex_MCB");
    ASSERT_TRUE(mutex.retiene(5000));
    hilo cierra_en_otro([] { ivrexa_cierra_sesion(); });
    EXPECT_TRUE(espera_hasta([&] { return mcb.texto(1430, 256) == ""; }, 5000));
    EXPECT_FALSE(cierra_en_otro.acaba(100));
    EXPECT_EQ(canal.u16(28), 0u);
    EXPECT_EQ(canal.u32(30), 1u);

    ASSERT_TRUE(registro.retiene(5000)); // stops it again, before the service leaves the table
    mutex.suelta();
    EXPECT_TRUE(espera_hasta([&] { return canal.u16(28) == 1 && canal.u32(30) == 0; }, 5000));
    EXPECT_TRUE(espera_hasta([] { return mutex_en(prestado(0), 50)->nivel_bloqueo == 0; }, 5000));
    EXPECT_EQ(mutex_en(prestado(0), 50)->codigos_bloqueo[0], 25u);
    EXPECT_EQ(busca_en_registro(mcb, servicio), 0u);
    registro.suelta();
    EXPECT_TRUE(cierra_en_otro.acaba(5000));
    EXPECT_EQ(busca_en_registro(mcb, servicio), 32u);
}

TEST_F(iv_reg_cierre, salida_postergada_se_destruye)
{
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, ventana());
    s_trabajo = [&](uint32_t, comando *contexto) { return pon_salida(servicio, contexto) == 100 ? 1 : 3; };
    SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(servicio), 100, 0);
    EXPECT_TRUE(existen_datos(servicio, 100));
    cierra();
    EXPECT_FALSE(existen_datos(servicio, 100));
}

TEST_F(iv_reg_cierre, hilo_del_servicio_acaba_en_la_gracia_y_la_espera_vuelve)
{
    sirve(nombre_unico("Calc"), nullptr);
    HANDLE servidor = OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION, FALSE, prestado(0).u32(74));
    hilo espera([] { ivrexa_espera_comando_terminar_servidor(); });
    uint64_t inicio = GetTickCount64();
    ivrexa_cierra_sesion();
    EXPECT_LT(GetTickCount64() - inicio, 3000u); // two graces
    EXPECT_EQ(WaitForSingleObject(servidor, 0), WAIT_OBJECT_0);
    CloseHandle(servidor);
    EXPECT_TRUE(espera.acaba(2000));
}

// A thread of the host that notifies gives up, and only then its mutex and channel go.
TEST_F(iv_reg_cierre, quien_notifica_vuelve_cuando_el_servicio_acaba)
{
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, ventana());
    bloque_crudo canal = abre_canal(servicio);
    hilo notifica([&] { ivrexa_notifica_a_cliente(servicio, 200, 7, 105); });
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(2362) == 1; }, 5000));
    ivrexa_cierra_sesion();
    EXPECT_TRUE(notifica.acaba(5000));
    EXPECT_EQ(canal.u32(2362), 1u);
}

static int32_t notifica_sin_que_nadie_acuse(const char *servicio, uint32_t, comando *, void *)
{
    ivrexa_notifica_a_cliente(servicio, 200, 7, 105);
    return 1;
}

// The service's thread holds the channel's mutex while its function notifies, and the close needs it.
TEST_F(iv_reg_cierre, funcion_sin_ventana_que_notifica_no_detiene_el_cierre)
{
    const char *servicio = nombre_unico("Calc");
    ivrexa_registra_servidor("C:\\p.exe", nullptr, servicio, 1, nullptr, notifica_sin_que_nadie_acuse);
    ivrexa_terminado_registro();
    bloque_crudo canal = abre_canal(servicio);
    canal.pon_u32(1202, 100);
    canal.pon_u32(1198, 2);
    canal.pon_u32(4, 1);
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(2362) == 1; }, 5000));

    ivrexa_cierra_sesion();

    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(canal.u32(8), 1u); // the command was answered
    EXPECT_EQ(canal.u16(28), 1u);
}

// The command's mutex is held while its function runs, and site 25 waits for it.
TEST_F(iv_reg_cierre, canal_se_marca_cuando_la_orden_en_curso_ha_acabado)
{
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, nullptr);
    bloque_crudo canal = abre_canal(servicio), mcb = abre_registro();
    HANDLE sigue = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    s_trabajo = [&](uint32_t, comando *contexto) {
        pon_salida(servicio, contexto);
        return WaitForSingleObject(sigue, 20000) == WAIT_OBJECT_0 ? 42 : 3;
    };
    escribe_orden(&canal, {});
    EXPECT_TRUE(espera_hasta([] { return num_llamadas() == 1; }, 5000));
    hilo cierra_en_otro([] { ivrexa_cierra_sesion(); });
    EXPECT_TRUE(espera_hasta([&] { return mcb.texto(1430, 256) == ""; }, 5000));
    EXPECT_FALSE(cierra_en_otro.acaba(100));
    EXPECT_EQ(canal.u16(28), 0u);
    EXPECT_EQ(canal.u32(30), 2u);
    SetEvent(sigue);

    EXPECT_TRUE(cierra_en_otro.acaba(10000));
    CloseHandle(sigue);
    EXPECT_EQ(canal.u32(8), 42u);
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(canal.u32(30), 0u);
    EXPECT_FALSE(existen_datos(servicio, 100)); // the output that it left went too
}

static void aviso_que_no_vuelve(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    funcion_aviso(servicio, id_cliente, dato);
    Sleep(INFINITE);
}

// A thread that does not come back is ended after its 500 ms, with code 0, and what it held is held no more.
TEST_F(iv_reg_cierre, hilo_que_no_vuelve_se_acaba_con_codigo_0_y_su_mutex_queda_libre)
{
    std::string servicio = nombre_unico("Calc");
    iv_reg_registra_cliente("C:\\p.exe", nullptr, servicio.c_str(), aviso_que_no_vuelve);
    bloque_crudo canal = abre_canal(servicio);
    mutex_crudo mutex(("Mutex_Ivrexa_" + servicio + "Interno").c_str());
    canal.pon_u32(2362, 1);
    EXPECT_TRUE(espera_hasta([] { return num_avisos() == 1; }, 5000));
    EXPECT_FALSE(mutex.libre());
    DWORD derechos = SYNCHRONIZE | THREAD_QUERY_INFORMATION;
    HANDLE avisos = OpenThread(derechos, FALSE, solicitado(0).u32(52));
    HANDLE latido = OpenThread(derechos, FALSE, programa().u32(3320));
    ivrexa_cierra_sesion();

    EXPECT_SIN_INFORMES();
    for (HANDLE h : {avisos, latido}) {
        DWORD codigo = 259;
        EXPECT_EQ(WaitForSingleObject(h, 5000), WAIT_OBJECT_0);
        EXPECT_TRUE(GetExitCodeThread(h, &codigo));
        EXPECT_EQ(codigo, 0u);
        CloseHandle(h);
    }
    EXPECT_TRUE(mutex.retiene(5000));
    EXPECT_EQ(canal.u32(2362), 2u); // as the thread left it
}

// Everything that the record and its calls held; the private heap is looked at before the caller destroys it.
TEST_F(iv_reg_cierre, no_deja_nada_en_el_heap)
{
    const char *usado = nombre_unico("Usado"), *servicio = nombre_unico("Calc");
    auto sesion = [&](HWND hwnd) {
        ivrexa_registra_servidor("C:\\p.exe", hwnd, servicio, 1, nullptr, funcion_comando);
        ivrexa_anyade_servicio(nombre_unico("Otro"), 1, nullptr, funcion_comando);
        ivrexa_terminado_registro();
        ivrexa_registra_cliente_de_servicio("C:\\p.exe", hwnd, usado);
        for (uint32_t n = 0; n < 33; n++) // one of them of id 0, one too many
            iv_reg_abierto_documento_de_cliente(usado, L"uno", n);
        uint32_t id = 0;
        s_trabajo = [&](uint32_t, comando *contexto) { return (id = pon_salida(servicio, contexto)) != 0; };
        EXPECT_EQ(iv_reg_procesa_comando(&s_programa->servicios_prestados[0], 100, 0), 1u);
        EXPECT_TRUE(existen_datos(servicio, id));
        termina_canales();
        iv_reg_cierra_sesion();
        iv_mcbase_cierra();
        EXPECT_FALSE(existen_datos(servicio, id));
    };
    i_free(i_malloc(1)); // the heap is there from now on
    uint32_t vivos = bloques_vivos();
    for (HWND hwnd : {ventana(), static_cast<HWND>(nullptr)}) {
        sesion(hwnd);
        EXPECT_EQ(bloques_vivos(), vivos);
    }
}

// A mutex that was never made: unlocking it reports, and so does freeing the name that is not there.
TEST_F(iv_reg_cierre, antes_de_publicar_se_informa_de_lo_que_falta_y_se_cierra)
{
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("A"), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(nombre_unico("B"), 1, nullptr, funcion_comando);
    ivrexa_cierra_sesion();
    EXPECT_INFORME("iv_mutex", "iv_mutex != NULL");
    EXPECT_INFORME("iv_mutex", "iv_mutex != NULL");
    EXPECT_INFORME("iv_mem", "*ptr != 0");
    EXPECT_INFORME("iv_mem", "*ptr != 0");

    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
}

TEST_F(iv_reg_cierre, sin_registro_solo_se_va_el_heap)
{
    ivrexa_cierra_sesion(); // neither heap nor program
    i_malloc(1);
    EXPECT_NE(s_LocalHeap, nullptr);
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_LocalHeap, nullptr);
    iv_reg_cierra_sesion();
    EXPECT_EQ(num_informes(), 0u);
}

TEST_F(iv_reg_cierre, cerrar_dos_veces_no_hace_nada_la_segunda)
{
    sirve(nombre_unico("Calc"), ventana());
    ivrexa_cierra_sesion();
    EXPECT_LT(mas_breve_de_cinco([] { ivrexa_cierra_sesion(); }), 300u);
    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(GetWindowLongPtrW(ventana(), GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(proc_propia));
}

TEST_F(iv_reg_cierre, registro_posterior_empieza_de_nuevo)
{
    bloque_crudo mcb = abre_registro();
    const char *usado = nombre_unico("Usado"), *servicio = nombre_unico("Calc");
    sirve(nombre_unico("Antes"), ventana());
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), usado);
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(usado, L"uno", 11), 200u);
    cierra();

    ivrexa_registra_servidor_net("C:\\nuevo.exe", nullptr, servicio, 3);
    EXPECT_EQ(programa().u32(0), 1u);
    EXPECT_EQ(programa().texto(4), "C:\\nuevo.exe");
    EXPECT_EQ(programa().puntero(12), nullptr);
    EXPECT_EQ(programa().puntero(20), nullptr);
    EXPECT_EQ(programa().u16(30), 0u);
    EXPECT_EQ(programa().u32(32), 1u);
    EXPECT_EQ(prestado(0).texto(0), servicio);
    EXPECT_EQ(programa().u32(1476), 200u);
    EXPECT_EQ(programa().u32(1480), 0u);
    EXPECT_EQ(mcb.texto(1430, 256), "C:\\nuevo.exe");
    EXPECT_EQ(mcb.u16(4), 2u); // it opened the registry anew
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, usado);
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(usado, L"dos", 12), 200u);
    EXPECT_EQ(documento_en(0).texto_u(0), L"dos");
}

// A client that keeps the block alive sees the service end, and live again.
TEST_F(iv_reg_cierre, mismo_servicio_vuelve_a_servir_en_un_canal_que_quedo_marcado)
{
    const char *servicio = nombre_unico("Calc");
    bloque_crudo canal = abre_canal(servicio);
    sirve(servicio, nullptr);
    canal.pon_u32(12, 140);
    ivrexa_cierra_sesion();
    EXPECT_EQ(canal.u16(28), 1u);

    sirve(servicio, nullptr);
    EXPECT_EQ(canal.u16(28), 0u);
    EXPECT_EQ(canal.u32(12), 140u);
    escribe_orden(&canal, {});
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(4) == 3; }, 5000));
    EXPECT_TRUE(acusa_recibo(&canal));
}

TEST_F(iv_reg_cierre, lo_ultimo_de_la_traza_es_el_heap)
{
    if (!en_proceso_trazado())
        return;
    sirve("Calc", ventana());
    std::string heap = std::to_string(reinterpret_cast<uintptr_t>(s_LocalHeap));
    captura_traza traza;
    ivrexa_cierra_sesion();
    std::string texto = traza.texto_propio(), fin = "HeapDestroy: " + heap + "\n";
    ASSERT_GE(texto.size(), fin.size());
    EXPECT_EQ(texto.substr(texto.size() - fin.size()), fin);
}
