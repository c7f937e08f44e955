// monitor_ventana_carga.cpp - the monitor's window under load: it stays smooth, and what is lost is told as lost.
#include <thread>

#include "ventana_monitor.h"

#include <tlhelp32.h>

using monitor_ventana_carga = monitor_ventana;

// ---- Who makes the traffic

static uint64_t ahora_us()
{
    LARGE_INTEGER f, c;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&c);
    return static_cast<uint64_t>(c.QuadPart) * 1000000 / static_cast<uint64_t>(f.QuadPart);
}

// Does it `num` times, evenly spread (0: as fast as it can), and says "CORRIDOS ms".
static void corre(papel_hijo &yo, const std::string &linea, const std::function<void()> &una_vez)
{
    unsigned long long num = 0, por_segundo = 0;
    EXPECT_EQ(sscanf(linea.c_str(), "CORRE %llu %llu", &num, &por_segundo), 2) << linea;
    uint64_t empieza = ahora_us();
    for (uint64_t i = 0; i < num; i++) {
        uint64_t debido = por_segundo != 0 ? empieza + i * 1000000 / por_segundo : 0, ahora = ahora_us();
        if (ahora < debido)
            Sleep(static_cast<DWORD>((debido - ahora) / 1000 + 1));
        una_vez();
    }
    yo.di("CORRIDOS " + std::to_string((ahora_us() - empieza) / 1000));
}

// A client: each command is two activities.
PAPEL(corredor)
{
    const char *servicio = args[0].c_str();
    HWND ventana = crea_ventana();
    std::string ruta = "papel_" + std::to_string(GetCurrentProcessId());
    ivrexa_registra_cliente_de_servicio(ruta.c_str(), ventana, servicio);
    yo.di("LISTO");
    while (std::optional<std::string> linea = bombea_hasta_linea(yo, 90000))
        corre(yo, *linea, [&] {
            EXPECT_EQ(ivrexa_ejecuta_comando(servicio, 121, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                             nullptr),
                      1u);
        });
    ivrexa_cierra_sesion();
    return 0;
}

// A crowd of clients in one: writes the activity "command begins" and tells the monitor as the library does, for a
// fraction of a command's cost. On a busy machine a few real ones do not make 1,000 a second.
PAPEL(muchedumbre)
{
    bloque_crudo registro("Ivrexa_MCB");
    HANDLE mutex = CreateMutexA(nullptr, FALSE, "Ivrexa_Mutex_MCB");
    uint32_t ind_datServ = static_cast<uint32_t>((despl_servicio(registro, args[0]) - 5814) / 96);
    yo.di("LISTO");
    while (std::optional<std::string> linea = yo.escucha(90000))
        corre(yo, *linea, [&] {
            EXPECT_EQ(WaitForSingleObject(mutex, 10000), WAIT_OBJECT_0);
            uint32_t n = registro.u32(18);
            size_t despl = 22 + (n - 1) * 22;
            const uint32_t campos[] = {ind_datServ, 300, 0, 1, 2};
            for (uint32_t campo : campos) {
                registro.pon_u32(despl, campo);
                despl += 4;
            }
            registro.pon_u16(despl, 1);
            registro.pon_u32(18, n == 63 ? 1 : n + 1);
            ReleaseMutex(mutex);
            PostMessageW(reinterpret_cast<HWND>(registro.u64(6)), registro.u32(14), 0, static_cast<LPARAM>(n));
        });
    CloseHandle(mutex);
    return 0;
}

// The milliseconds that it took.
static uint64_t espera_corridos(papel &p, lugar donde = lugar::aqui())
{
    return std::max<uint64_t>(numero_de(p.espera_linea("CORRIDOS ", 80000, donde)), 1);
}

// ---- What the list holds, by the words of its events

struct recuento {
    uint64_t ofrecidos = 0, empiezan = 0, acaban = 0, huecos = 0, perdidos = 0, otros = 0;
    uint64_t mostrados() const { return ofrecidos + empiezan + acaban + otros; }
};

static recuento recuenta(const monitor_vivo &m)
{
    recuento r;
    for (const std::string &s : m.actividades().columna(ACT_SUCESO)) {
        if (s.find(" lost") != std::string::npos) {
            r.huecos++;
            r.perdidos += numero_de(s);
        } else if (s.compare(0, 6, "waits ") != 0) {
            uint64_t &cual = s == "service offered"  ? r.ofrecidos
                             : s == "command begins" ? r.empiezan
                             : s == "command ends"   ? r.acaban
                                                     : r.otros;
            cual++;
        }
    }
    return r;
}

// All that was written is shown, or told as lost.
static recuento espera_todo(monitor_vivo &m, uint64_t escritas, lugar donde = lugar::aqui())
{
    recuento r;
    m.espera_cuenta(BARRA_ACTIVIDADES, escritas, donde);
    m.espera([&] { return m.cuenta(BARRA_MOSTRADAS) + m.cuenta(BARRA_PERDIDAS) >= escritas; }, "all of it", donde);
    m.espera([&] { return (r = recuenta(m)).mostrados() + r.perdidos >= escritas; }, "all of it in the list", donde);
    EXPECT_EQ(r.mostrados() + r.perdidos, escritas) << m.descrito();
    EXPECT_EQ(r.perdidos, m.cuenta(BARRA_PERDIDAS)) << "the bar tells what the gaps tell";
    return r;
}

// Rows of waits come as the machine has time: the kind is not shown.
static void sin_filas_de_esperas()
{
    monitor::ajustes a;
    a.filtro_clases = ~(1u << 4);
    ASSERT_TRUE(monitor::escribe_ajustes(a));
}

// ---- Gaps

// All threads of a process stand still while it lives.
class parado {
public:
    explicit parado(uint32_t pid)
    {
        HANDLE foto = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
        THREADENTRY32 t = {};
        t.dwSize = sizeof t;
        for (BOOL hay = Thread32First(foto, &t); hay; hay = Thread32Next(foto, &t)) {
            if (t.th32OwnerProcessID != pid)
                continue;
            m_hilos.push_back(OpenThread(THREAD_SUSPEND_RESUME, FALSE, t.th32ThreadID));
            SuspendThread(m_hilos.back());
        }
        CloseHandle(foto);
        EXPECT_GE(m_hilos.size(), 1u);
    }
    ~parado()
    {
        for (HANDLE hilo : m_hilos) {
            ResumeThread(hilo);
            CloseHandle(hilo);
        }
    }

private:
    std::vector<HANDLE> m_hilos;
};

TEST_F(monitor_ventana_carga, cuando_el_anillo_da_la_vuelta_el_hueco_se_muestra_con_cuantas_se_perdieron)
{
    sin_filas_de_esperas();
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel corredor = arranca_papel("corredor", {servicio()});
    corredor.di("CORRE 1 0");
    espera_corridos(corredor);
    m.espera_cuenta(BARRA_ACTIVIDADES, 1 + 2);
    {
        parado quieto(m.pid());
        corredor.di("CORRE 45 0"); // 90 activities; the ring holds the last 63
        espera_corridos(corredor);
    }
    m.espera([&] { return m.cuenta(BARRA_PERDIDAS) != 0; }, "what was lost to be told");
    corredor.di("CORRE 1 0");
    espera_corridos(corredor);
    recuento r = espera_todo(m, 1 + 2 + 90 + 2);
    EXPECT_GE(r.huecos, 1u);
    EXPECT_GE(r.perdidos, 27u) << "of 90 at most 63 could still be read";
    m.pon_delante();
    pulsa({VK_CONTROL, 'F'});
    m.espera_foco(ID_FILTRO_SERVICIO);
    teclea("nobody");
    m.espera([&] { return static_cast<uint64_t>(m.actividades().num_filas()) == r.huecos; }, "the gaps alone");
    acaba(servidor);
    m.cierra();
}

// ---- Smoothness

// Asks the window every 20 ms, as its user does.
class interrogador {
public:
    explicit interrogador(HWND hwnd) : m_hilo([this, hwnd] { pregunta(hwnd); }) {}
    std::vector<double> acaba()
    {
        SetEvent(m_fin);
        m_hilo.join();
        CloseHandle(m_fin);
        std::sort(m_ms.begin(), m_ms.end());
        return m_ms;
    }

private:
    void pregunta(HWND hwnd)
    {
        do {
            DWORD_PTR nada = 0;
            uint64_t antes = ahora_us();
            if (SendMessageTimeoutW(hwnd, WM_NULL, 0, 0, SMTO_NORMAL, 10000, &nada) == 0)
                ADD_FAILURE() << "no answer in 10 s";
            m_ms.push_back(static_cast<double>(ahora_us() - antes) / 1000);
        } while (WaitForSingleObject(m_fin, 20) == WAIT_TIMEOUT);
    }
    HANDLE m_fin = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::vector<double> m_ms;
    std::thread m_hilo;
};

static void espera_agil(const std::vector<double> &ms)
{
    ASSERT_GE(ms.size(), 20u);
    double mediana = ms[ms.size() / 2], p99 = ms[ms.size() * 99 / 100];
    EXPECT_LT(mediana, 100) << "of " << ms.size() << " answers";
    EXPECT_LT(p99, 500) << "of " << ms.size() << " answers";
    ::testing::Test::RecordProperty("median_ms", std::to_string(mediana));
    ::testing::Test::RecordProperty("p99_ms", std::to_string(p99));
    printf("answers: median %.1f ms, 99th percentile %.1f ms, longest %.1f ms\n", mediana, p99, ms.back());
}

// Two pairs of a server and a client run commands all the while, and the crowd tells of 6,000 activities besides.
static void carga(const std::string &servicio, uint64_t comandos_por_segundo, uint64_t muchedumbre_por_segundo)
{
    const uint64_t PARES = 2, COMANDOS = 300, MUCHEDUMBRE = 6000;
    sin_filas_de_esperas();
    monitor_vivo m;
    std::vector<papel> servidores, corredores;
    for (uint64_t i = 0; i < PARES; i++) {
        servidores.push_back(arranca_servidor("ventana", servicio + std::to_string(i)));
        corredores.push_back(arranca_papel("corredor", {servicio + std::to_string(i)}));
    }
    corredores.push_back(arranca_papel("muchedumbre", {servicio + "0"}));
    m.espera_cuenta(BARRA_ACTIVIDADES, PARES);
    interrogador preguntas(m.hwnd());
    for (uint64_t i = 0; i < PARES; i++)
        corredores[i].di("CORRE " + std::to_string(COMANDOS) + " " + std::to_string(comandos_por_segundo));
    corredores[PARES].di("CORRE " + std::to_string(MUCHEDUMBRE) + " " + std::to_string(muchedumbre_por_segundo));
    double por_s = static_cast<double>(MUCHEDUMBRE) * 1000 / static_cast<double>(espera_corridos(corredores[PARES]));
    for (uint64_t i = 0; i < PARES; i++)
        por_s += 2000.0 * COMANDOS / static_cast<double>(espera_corridos(corredores[i]));
    std::vector<double> ms = preguntas.acaba();
    recuento r = espera_todo(m, PARES + 2 * PARES * COMANDOS + MUCHEDUMBRE);
    printf("%.0f activities/s; %llu shown, %llu lost in %llu gaps\n", por_s,
           static_cast<unsigned long long>(r.mostrados()), static_cast<unsigned long long>(r.perdidos),
           static_cast<unsigned long long>(r.huecos));
    EXPECT_GE(por_s, 1000) << "the test itself did not make the traffic";
    espera_agil(ms);
    for (papel &p : servidores)
        p.mata();
    m.cierra();
}

TEST_F(monitor_ventana_carga, con_1000_sucesos_por_segundo_contesta_pronto_y_nada_falta)
{
    carga(servicio(), 50, 1000);
}

TEST_F(monitor_ventana_carga, con_lo_que_la_maquina_da_contesta_pronto_y_lo_perdido_se_dice)
{
    carga(servicio(), 0, 0);
}
