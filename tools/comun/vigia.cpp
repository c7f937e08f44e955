#include "vigia.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <thread>
#include <tuple>
#include <utility>

#include <windows.h>
#include <mmsystem.h>

#include "leido.h"
#include "mirada.h"
#include "nombres.h"
#include "texto.h"

#include "ivrexa.h"

namespace herramientas {

static const uint64_t NUM_EN_ANILLO = 63; // records 1 to 63 are written in turn
static const uint64_t HOLGURA = 31;       // messages that may be missing, or come late
static const size_t MAX_MENSAJES = 10000; // taken from the queue at once
static const uint64_t QUIETO_MS = 200;    // a record is filled, and its message posted, in far less
static const uint64_t ESPERA_OLVIDADA_MS = 2000;
static const int NUM_COPIAS = 20;

// The plain clock moves on 64 times a second; systems before Windows 8 have no other.
uint64_t ahora_100ns()
{
    static const auto precisa = reinterpret_cast<void(WINAPI *)(FILETIME *)>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetSystemTimePreciseAsFileTime")));
    FILETIME t;
    if (precisa != nullptr)
        precisa(&t);
    else
        GetSystemTimeAsFileTime(&t);
    return (uint64_t(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}

// ---- What the registry says. It belongs to two threads.

class registro_visto {
public:
    void abre(HWND hwnd)
    {
        cerrojo mio(&m_cerrojo);
        m_hwnd = reinterpret_cast<uint64_t>(hwnd);
        m_bloque = std::make_unique<bloque_leido>(NOMBRE_REGISTRO);
        m_mcbase = m_bloque->tam() < sizeof(iv_mcbase_t) ? nullptr
                                                         : reinterpret_cast<const iv_mcbase_vista *>(m_bloque->datos());
    }

    // As it was before the registration, which empties the table: who waits goes on to wait in that place.
    void recuerda_nombre(uint32_t ind_datServ, const std::string &nombre) { m_nombres[ind_datServ] = nombre; }

    // Looks at the number of the next activity. False once the registry is another monitor's, for good: its count and
    // records are the other's. The window is looked at behind the number, as who registers writes them.
    bool mira()
    {
        cerrojo mio(&m_cerrojo);
        uint64_t siguiente = m_mcbase == nullptr ? 0 : m_mcbase->num_actividad_siguiente;
        if (m_mcbase == nullptr || m_mcbase->hwnd_monitor != m_hwnd)
            m_mcbase = nullptr;
        else if (siguiente >= 1 && siguiente <= NUM_EN_ANILLO)
            cuenta(siguiente);
        return m_mcbase != nullptr;
    }

    // Copies ring and names. `antes` and `despues` are the counts when copying began and when it had ended. False: the
    // ring is not ours.
    struct copiado {
        iv_mcbase_actividad_t anillo[NUM_EN_ANILLO];
        uint64_t antes, despues;
    };
    bool copia(copiado *c, std::string (&nombres)[iv_mcbase_NUM_MAX_SERVICIOS])
    {
        bool nuestro = mira();
        for (int n = 0; n < NUM_COPIAS; n++) {
            c->antes = escritas();
            copia_anillo(c->anillo);
            nuestro = mira();
            c->despues = escritas();
            if (c->antes == c->despues)
                break;
        }
        cerrojo mio(&m_cerrojo);
        std::copy(std::begin(m_nombres), std::end(m_nombres), std::begin(nombres));
        return nuestro;
    }

    // So many messages have come: the laps that they say were missed are counted. True: there were some.
    bool han_llegado(uint64_t mensajes)
    {
        mira();
        cerrojo mio(&m_cerrojo);
        if (mensajes <= m_escritas + HOLGURA)
            return false;
        m_escritas += (mensajes - m_escritas + HOLGURA) / NUM_EN_ANILLO * NUM_EN_ANILLO;
        return true;
    }

    uint64_t escritas()
    {
        cerrojo mio(&m_cerrojo);
        return m_escritas;
    }

    // Nothing was written for a while: the last one is filled, and its message has come or will not.
    bool quieto()
    {
        cerrojo mio(&m_cerrojo);
        return GetTickCount64() - m_desde_ms >= QUIETO_MS;
    }

private:
    using iv_mcbase_vista = volatile iv_mcbase_t;

    struct cerrojo {
        explicit cerrojo(SRWLOCK *c) : mio(c) { AcquireSRWLockExclusive(mio); }
        ~cerrojo() { ReleaseSRWLockExclusive(mio); }
        SRWLOCK *mio;
    };

    // Names are kept from when they are there: a service that was closed has none any more.
    void cuenta(uint64_t siguiente)
    {
        if (siguiente != m_siguiente)
            m_desde_ms = GetTickCount64();
        m_escritas += (siguiente + NUM_EN_ANILLO - m_siguiente) % NUM_EN_ANILLO;
        m_siguiente = siguiente;
        for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_SERVICIOS; i++) {
            const char *nombre = const_cast<const char *>(m_mcbase->servicios[i].nombre);
            if (nombre[0] != '\0' && strncmp(nombre, m_nombres[i].c_str(), iv_mcbase_TAM_NOMBRE_SERVICIO) != 0)
                m_nombres[i].assign(nombre, strnlen(nombre, iv_mcbase_TAM_NOMBRE_SERVICIO));
        }
    }

    void copia_anillo(iv_mcbase_actividad_t (&anillo)[NUM_EN_ANILLO])
    {
        cerrojo mio(&m_cerrojo);
        if (m_mcbase != nullptr)
            memcpy(anillo, const_cast<const iv_mcbase_actividad_t *>(m_mcbase->actividades), sizeof anillo);
    }

    SRWLOCK m_cerrojo = SRWLOCK_INIT;
    std::unique_ptr<bloque_leido> m_bloque;
    const iv_mcbase_vista *m_mcbase = nullptr; // no more once it is another monitor's
    uint64_t m_hwnd = 0;
    uint64_t m_escritas = 0;
    uint64_t m_siguiente = 1;               // as registering a monitor leaves it
    uint64_t m_desde_ms = GetTickCount64(); // when it was last seen to move
    std::string m_nombres[iv_mcbase_NUM_MAX_SERVICIOS];
};

// ---- State

struct mensaje_tomado {
    WPARAM wparam;
    LPARAM lparam;
};

struct vigia::estado {
    HWND hwnd = nullptr;
    UINT mensaje = 0;
    std::function<void(const suceso &)> dime;

    registro_visto registro;
    std::thread contador;
    HANDLE fin = nullptr;
    std::atomic<uint64_t> ultima{0}; // number of the last activity that was read, or lost

    std::vector<mensaje_tomado> mensajes; // taken, and not seen to yet
    bool atiende = false;
    uint64_t llegados = 0;                    // messages of activities
    uint64_t llegada[NUM_EN_ANILLO + 1] = {}; // `llegados` when the last message of each record had come

    std::deque<iv_mcbase_actividad_t> leidas;         // from the ring, and not told yet; the last is number `ultima`
    std::string nombres[iv_mcbase_NUM_MAX_SERVICIOS]; // of the services, as of the last activity told
    std::string nombres_vistos[iv_mcbase_NUM_MAX_SERVICIOS];          // as of the last activity read
    uint64_t perdidas = 0;                                            // in all
    uint64_t hueco = 0;                                               // not told yet
    uint64_t numero = 0;                                              // of the last event
    std::map<std::tuple<lado, uint32_t, uint32_t>, uint64_t> esperas; // side, service, loop state: last round, in ms
};

// There is one, and the library and the window may call when it has gone.
static vigia::estado *s_vigia;
static WNDPROC s_proc_anterior;
static bool s_es_de_otro; // the library still takes us for the monitor, whose place another program has

// ---- The counting thread

// The message of the last activity may have found the queue full: the window is reminded of what was not read.
static void recuerda(vigia::estado *m, uint64_t *recordadas)
{
    uint64_t escritas = m->registro.escritas();
    if (escritas > m->ultima && escritas != *recordadas && m->registro.quieto() &&
        PostMessageW(m->hwnd, m->mensaje, 0, 0))
        *recordadas = escritas;
}

static void cuenta(vigia::estado *m)
{
    uint64_t recordadas = 0;
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
    while (WaitForSingleObject(m->fin, 1) == WAIT_TIMEOUT) {
        m->registro.mira();
        recuerda(m, &recordadas);
    }
}

// ---- Telling

static void di(vigia::estado *m, suceso s)
{
    s.numero = ++m->numero;
    s.hora_100ns = ahora_100ns();
    m->dime(s);
}

static void di_hueco(vigia::estado *m)
{
    if (m->hueco == 0)
        return;
    suceso s;
    s.que = clase::hueco;
    s.perdidos = m->hueco;
    m->hueco = 0;
    di(m, s);
}

static void pierde(vigia::estado *m, uint64_t num)
{
    m->perdidas += num;
    m->hueco += num;
}

static lado lado_de(uint32_t tipo_programa)
{
    return tipo_programa == 0   ? lado::servidor
           : tipo_programa == 1 ? lado::cliente
           : tipo_programa == 2 ? lado::monitor
                                : lado::otro;
}

static clase clase_de(uint32_t tipo_actividad)
{
    static const clase clases[] = {clase::otra, clase::servicio, clase::comando, clase::entrada, clase::salida};
    return tipo_actividad < sizeof clases / sizeof clases[0] ? clases[tipo_actividad] : clase::otra;
}

static void pon_nombre(suceso *s, const std::string &nombre_ansi)
{
    s->servicio_ansi = nombre_ansi;
    s->servicio = de_ansi(nombre_ansi);
}

// A service is offered (1), or closed (0).
static bool es_de_servicio(const iv_mcbase_actividad_t &a, uint16_t indicador)
{
    return clase_de(a.tipo_actividad) == clase::servicio && a.indicador == indicador;
}

static bool queda_por_decir(const vigia::estado *m, uint32_t ind_datServ, uint16_t indicador)
{
    return std::any_of(m->leidas.begin(), m->leidas.end(), [=](const iv_mcbase_actividad_t &a) {
        return a.ind_datServ == ind_datServ && es_de_servicio(a, indicador);
    });
}

// The names seen are those behind the last activity read: where a service is still to be told as closed, or as offered,
// the place may have been another's before.
static void pon_nombres_al_dia(vigia::estado *m)
{
    for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_SERVICIOS; i++)
        if (!queda_por_decir(m, i, 1) && (m->nombres[i].empty() || !queda_por_decir(m, i, 0)))
            m->nombres[i] = m->nombres_vistos[i];
}

// The name of the activity's service. It is not known of one that was closed before its name was seen.
static std::string nombre_en(vigia::estado *m, const iv_mcbase_actividad_t &a)
{
    std::string &nombre = m->nombres[a.ind_datServ];
    bool es_la_ultima = !queda_por_decir(m, a.ind_datServ, 1);
    if (es_de_servicio(a, 1))
        nombre = es_la_ultima ? m->nombres_vistos[a.ind_datServ] : "";
    std::string suyo = nombre;
    if (es_de_servicio(a, 0) && es_la_ultima)
        nombre = m->nombres_vistos[a.ind_datServ];
    return suyo;
}

// What waits for a command of the service begins anew behind its end. Its turn others may wait for.
static void olvida_esperas(vigia::estado *m, uint32_t ind_datServ)
{
    for (auto e = m->esperas.begin(); e != m->esperas.end();) {
        bool turno = std::get<0>(e->first) == lado::cliente && std::get<2>(e->first) == 1;
        e = std::get<1>(e->first) == ind_datServ && !turno ? m->esperas.erase(e) : std::next(e);
    }
}

static void di_actividad(vigia::estado *m)
{
    const iv_mcbase_actividad_t a = m->leidas.front();
    m->leidas.pop_front();
    di_hueco(m);
    suceso s;
    s.quien = lado_de(a.tipo_programa);
    s.que = clase_de(a.tipo_actividad);
    s.empieza = a.indicador == 1;
    pon_nombre(&s, nombre_en(m, a));
    s.id_comando = a.dato1;
    s.id_bloque = a.dato2;
    if (s.que == clase::comando && !s.empieza)
        olvida_esperas(m, a.ind_datServ);
    di(m, s);
}

// ---- The library's callbacks. It hands out the loops' states; activities are read before it sees their messages.

static void actividad(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {}

static void espera(void *datos, lado quien, const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado)
{
    vigia::estado *m = s_vigia;
    if (m == nullptr || m != datos)
        return;
    uint32_t ind_datServ = static_cast<uint32_t>(servicio - mcbase->servicios);
    auto antes = m->esperas.find({quien, ind_datServ, estado});
    uint64_t ahora = GetTickCount64();
    bool sigue = antes != m->esperas.end() && ahora - antes->second < ESPERA_OLVIDADA_MS;
    m->esperas[{quien, ind_datServ, estado}] = ahora;
    if (sigue)
        return;
    suceso s;
    s.quien = quien;
    s.que = clase::espera;
    s.empieza = true;
    s.estado = estado;
    std::string nombre(servicio->nombre, strnlen(servicio->nombre, sizeof servicio->nombre));
    pon_nombre(&s, nombre.empty() ? m->nombres[ind_datServ] : nombre);
    di(m, s);
}

static void bucle_cliente(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado, void *datos)
{
    espera(datos, lado::cliente, mcbase, servicio, estado);
}

static void bucle_servidor(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado, void *datos)
{
    espera(datos, lado::servidor, mcbase, servicio, estado);
}

// ---- The window's messages

static uint64_t numero_en_anillo(uint64_t numero)
{
    return (numero - 1) % NUM_EN_ANILLO + 1;
}

static bool es_de_actividad(const mensaje_tomado &t)
{
    uint64_t n = static_cast<uint32_t>(t.lparam);
    return t.wparam == 0 && n >= 1 && n <= NUM_EN_ANILLO;
}

static void toma(vigia::estado *m, WPARAM wparam, LPARAM lparam)
{
    mensaje_tomado t = {wparam, lparam};
    m->mensajes.push_back(t);
    if (es_de_actividad(t))
        m->llegada[static_cast<uint32_t>(lparam)] = ++m->llegados;
}

// WM_QUIT passes every filter; it is the message loop's.
static bool quita_de_la_cola(HWND hwnd, UINT mensaje, MSG *msg)
{
    bool hay = PeekMessageW(msg, hwnd, mensaje, mensaje, PM_REMOVE | PM_QS_POSTMESSAGE) != FALSE;
    if (hay && msg->message == WM_QUIT)
        PostQuitMessage(static_cast<int>(msg->wParam));
    return hay && msg->message == mensaje;
}

static void toma_los_que_esperan(vigia::estado *m)
{
    MSG msg;
    while (m->mensajes.size() < MAX_MENSAJES && quita_de_la_cola(m->hwnd, m->mensaje, &msg))
        toma(m, msg.wParam, msg.lParam);
}

// The number moves on before the record is filled. It is once its message comes (that of a lap before is told by when
// it came), once there is a later one, or when nothing has moved for a while.
static bool esta_llena(vigia::estado *m, uint64_t ultima)
{
    return m->llegada[numero_en_anillo(ultima)] + HOLGURA >= ultima || m->registro.quieto();
}

// Messages that are missing while none waits were refused, and will not come; but for some that are on their way.
static void iguala_llegados(vigia::estado *m, uint64_t escritas)
{
    MSG msg;
    m->llegados = std::min(m->llegados, escritas);
    if (m->llegados + HOLGURA / 2 < escritas &&
        !PeekMessageW(&msg, m->hwnd, m->mensaje, m->mensaje, PM_NOREMOVE | PM_QS_POSTMESSAGE))
        m->llegados = escritas - HOLGURA / 2;
}

// Reads what was not read yet; returns how many of the messages had come by then. What was written 63 ago is
// overwritten, or is about to be. Whether a lap was missed, as when the whole process stood still, is asked behind the
// copying: only then it is sure which activities the copy holds.
static size_t lee_anillo(vigia::estado *m)
{
    registro_visto::copiado c = {};
    bool nuestro = false, llena = false;
    size_t num_mensajes = 0;
    for (int n = 0; n < NUM_COPIAS; n++) {
        num_mensajes = m->mensajes.size();
        nuestro = m->registro.copia(&c, m->nombres_vistos);
        llena = c.antes == 0 || esta_llena(m, c.antes);
        toma_los_que_esperan(m);
        if (!m->registro.han_llegado(m->llegados))
            break;
    }
    const uint64_t fin = llena ? c.antes : c.antes - 1;
    for (uint64_t k = m->ultima + 1; k <= fin; k++) {
        const iv_mcbase_actividad_t &a = c.anillo[numero_en_anillo(k) - 1];
        if (nuestro && c.despues - k < NUM_EN_ANILLO && a.ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS)
            m->leidas.push_back(a);
        else
            pierde(m, 1);
    }
    m->ultima = std::max<uint64_t>(m->ultima, fin);
    iguala_llegados(m, m->registro.escritas());
    pon_nombres_al_dia(m);
    return num_mensajes;
}

// Tells what was read at its message, so that waits keep their place; the last message is the last activity's.
static void reparte(vigia::estado *m, size_t num_mensajes)
{
    auto fin = m->mensajes.begin() + static_cast<std::ptrdiff_t>(num_mensajes);
    std::vector<mensaje_tomado> mensajes(m->mensajes.begin(), fin);
    m->mensajes.erase(m->mensajes.begin(), fin);
    size_t faltan = static_cast<size_t>(std::count_if(mensajes.begin(), mensajes.end(), es_de_actividad));
    for (const mensaje_tomado &t : mensajes) {
        if (es_de_actividad(t))
            for (faltan--; m->leidas.size() > faltan;)
                di_actividad(m);
        else if (t.wparam != 0)
            CallWindowProcW(s_proc_anterior, m->hwnd, m->mensaje, t.wparam, t.lparam);
    }
    while (!m->leidas.empty())
        di_actividad(m);
    di_hueco(m);
}

// `dime` may run a message loop of its own: what comes in there waits for its turn.
static void atiende(vigia::estado *m)
{
    if (m->atiende)
        return;
    m->atiende = true;
    while (!m->mensajes.empty()) {
        toma_los_que_esperan(m);
        reparte(m, lee_anillo(m));
    }
    m->atiende = false;
}

// The library posts; what is sent is somebody else's.
static LRESULT CALLBACK proc_vigia(HWND hwnd, UINT mensaje, WPARAM wparam, LPARAM lparam)
{
    vigia::estado *m = s_vigia;
    if (m == nullptr || mensaje != m->mensaje || InSendMessage())
        return CallWindowProcW(s_proc_anterior, hwnd, mensaje, wparam, lparam);
    toma(m, wparam, lparam);
    atiende(m);
    return 0;
}

// ---- The monitor

static uint64_t ventana_del_monitor()
{
    bloque_leido registro(NOMBRE_REGISTRO);
    uint64_t hwnd = 0;
    if (registro.abierto() && registro.tam() >= sizeof(iv_mcbase_t))
        memcpy(&hwnd, registro.datos() + offsetof(iv_mcbase_t, hwnd_monitor), sizeof hwnd);
    return hwnd;
}

// Messages for a monitor that this window was before are not ours.
static void vacia_cola(HWND hwnd, UINT mensaje)
{
    MSG msg;
    while (quita_de_la_cola(hwnd, mensaje, &msg)) {
    }
}

// Unregistering takes the place from whoever has it. Where that was another program, it was left until now, when the
// place is taken anyway.
static void quita_el_de_antes()
{
    if (s_es_de_otro)
        ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    s_es_de_otro = false;
}

vigia::vigia(HWND hwnd, std::function<void(const suceso &)> dime) : m(new estado)
{
    m->hwnd = hwnd;
    m->dime = std::move(dime);
    m->mensaje = RegisterWindowMessageA(NOMBRE_MENSAJE_MONITOR);
    m->fin = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    quita_el_de_antes();
    vacia_cola(hwnd, m->mensaje);
    for (const servicio_visto &s : mira_registro().servicios) {
        m->registro.recuerda_nombre(s.ind_datServ, s.nombre_ansi);
        m->nombres[s.ind_datServ] = s.nombre_ansi;
    }
    m->contador = std::thread(cuenta, m.get()); // before the rest, which would stay if there were no thread
    s_vigia = m.get();
    ivrexa_registra_monitor(hwnd, actividad, bucle_cliente, bucle_servidor, m.get());
    m->registro.abre(hwnd);
    timeBeginPeriod(1); // else a wait of a millisecond lasts up to 16
    s_proc_anterior =
        reinterpret_cast<WNDPROC>(SetWindowLongPtrW(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(proc_vigia)));
}

vigia::~vigia()
{
    SetEvent(m->fin);
    m->contador.join();
    timeEndPeriod(1);
    CloseHandle(m->fin);
    s_vigia = nullptr;
    if (GetWindowLongPtrW(m->hwnd, GWLP_WNDPROC) == reinterpret_cast<LONG_PTR>(proc_vigia))
        SetWindowLongPtrW(m->hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(s_proc_anterior));
    bool es_de_otro = ventana_del_monitor() != 0 && !sigue_siendo_monitor();
    if (!es_de_otro)
        ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    s_es_de_otro = es_de_otro;
}

uint64_t vigia::num_actividades() const
{
    m->registro.mira();
    return m->registro.escritas();
}

uint64_t vigia::num_perdidas() const
{
    return m->perdidas;
}

bool vigia::sigue_siendo_monitor() const
{
    return ventana_del_monitor() == reinterpret_cast<uint64_t>(m->hwnd);
}

uint32_t pid_de_otro_monitor()
{
    escritorio_visto e = mira_registro();
    DWORD pid = 0;
    if (e.hay_monitor)
        GetWindowThreadProcessId(reinterpret_cast<HWND>(e.crudo.hwnd_monitor), &pid);
    return pid == GetCurrentProcessId() ? 0 : pid;
}

std::vector<std::string> servicios_que_se_borran()
{
    std::vector<std::string> nombres;
    for (const servicio_visto &s : mira_registro().servicios)
        nombres.push_back(s.nombre);
    return nombres;
}

// ---- For people

const char *nombre_lado(lado l)
{
    static const char *const nombres[] = {"server", "client", "monitor", "?"};
    return nombres[static_cast<size_t>(l)];
}

const char *nombre_clase(clase c)
{
    static const char *const nombres[] = {"service", "command", "input", "output", "wait", "gap", "?"};
    return nombres[static_cast<size_t>(c)];
}

// What one side saves the other opens.
static std::string describe_datos(const suceso &s, const char *que, lado quien_guarda)
{
    return std::string(que) + (s.quien == quien_guarda ? " saved" : " opened");
}

std::string describe(const suceso &s)
{
    switch (s.que) {
    case clase::servicio:
        return s.empieza ? "service offered" : "service closed";
    case clase::comando:
        return s.empieza ? "command begins" : "command ends";
    case clase::entrada:
        return describe_datos(s, "input", lado::cliente);
    case clase::salida:
        return describe_datos(s, "output", lado::servidor);
    case clase::espera:
        return "waits " +
               (s.quien == lado::cliente ? nombre_espera_cliente(s.estado) : nombre_espera_servidor(s.estado));
    case clase::hueco:
        return numero_con_comas(s.perdidos) + (s.perdidos == 1 ? " activity lost" : " activities lost");
    default:
        return "?";
    }
}

static SYSTEMTIME a_sistema(uint64_t hora_100ns, bool local)
{
    FILETIME t = {static_cast<DWORD>(hora_100ns), static_cast<DWORD>(hora_100ns >> 32)};
    SYSTEMTIME s = {}, aqui = {};
    FileTimeToSystemTime(&t, &s);
    return local && SystemTimeToTzSpecificLocalTime(nullptr, &s, &aqui) ? aqui : s; // by that day's summer time
}

std::string hora_local(uint64_t hora_100ns)
{
    SYSTEMTIME s = a_sistema(hora_100ns, true);
    char texto[40];
    snprintf(texto, sizeof texto, "%02u:%02u:%02u.%03u", s.wHour, s.wMinute, s.wSecond, s.wMilliseconds);
    return texto;
}

std::string hora_iso(uint64_t hora_100ns)
{
    SYSTEMTIME s = a_sistema(hora_100ns, false);
    char texto[64];
    snprintf(texto, sizeof texto, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", s.wYear, s.wMonth, s.wDay, s.wHour, s.wMinute,
             s.wSecond, s.wMilliseconds);
    return texto;
}

} // namespace herramientas
