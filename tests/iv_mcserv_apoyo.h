// iv_mcserv_apoyo.h - what the tests of a service's channel and of a client's command share. The other side
// is always played with plain system calls: by the test's own thread under the service's mutex, or by what
// the library itself calls while it waits (the monitor's message of each round, the window system's calls).
#ifndef IV_MCSERV_APOYO_H
#define IV_MCSERV_APOYO_H

#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/cerrojo.h"
#include "comun/crudo.h"
#include "comun/informes_modulo.h"
#include "comun/sistema.h"
#include "comun/traza_captura.h"
#include "comun/util.h"
#include "comun/ventana.h"

#include "iv_mcbase.h"
#include "iv_mcserv.h"
#include "iv_mem.h"
#include "iv_reg.h"

// Offsets in the channel's data.
constexpr size_t C_TAM = 0, C_VERSION = 2, C_ESTADO_COMANDO = 4, C_RESULTADO = 8, C_SIGUIENTE = 12;
constexpr size_t C_HWND_SERVIDOR = 16, C_MSG = 24, C_TERMINADO = 28, C_ESTADO_SERVIDOR = 30, C_ID_RESULTADO = 34;
constexpr size_t C_SERV_64 = 38, C_SERV_256 = 166, C_SERV2_256 = 678;
constexpr size_t C_HWND_CLIENTE = 1190, C_OCUPACION = 1198, C_ID_COMANDO = 1202, C_ID_ENTRADA = 1206;
constexpr size_t C_CLIENTE_64 = 1210, C_CLIENTE_256 = 1338, C_CLIENTE2_256 = 1850, C_BUZON = 2362;
constexpr uint32_t TAM_CANAL = 2378;

// Offsets in the registry's data, in one program's entry and in one service's.
constexpr size_t R_HWND_MONITOR = 6, R_MSG_MONITOR = 14, R_ACTIVIDAD_SIGUIENTE = 18;
constexpr size_t P_CONTADOR_VIVO = 270;
constexpr size_t S_PROGRAMA_SERVIDOR = 64, S_PROGRAMA_CLIENTE = 66, S_BUCLE_SERVIDOR = 68, S_VIVO_CLIENTE = 76;
constexpr size_t S_EN_CURSO = 80, S_BUCLE_CLIENTE = 84, S_VUELTAS_CLIENTE = 88;

constexpr size_t en_programa(size_t i, size_t campo)
{
    return 1430 + i * 274 + campo;
}

constexpr size_t en_servicio(size_t j, size_t campo)
{
    return 5814 + j * 96 + campo;
}

inline std::string nombre_canal(const char *servicio)
{
    return std::string("Ivrexa_MCB_Serv_") + servicio;
}

inline std::string nombre_MCCom(const char *servicio, uint32_t id)
{
    return nombre_canal(servicio) + "_Com__comdat" + std::to_string(id);
}

inline std::string nombre_mutex(const char *servicio)
{
    return std::string("Mutex_Ivrexa_") + servicio;
}

template <typename numero>
void pon(std::vector<uint8_t> *bytes, size_t despl, numero valor)
{
    memcpy(bytes->data() + despl, &valor, sizeof valor);
}

// A named mutex that the calling thread holds.
class cerrojo_con_nombre {
public:
    explicit cerrojo_con_nombre(const std::string &nombre) : m_mutex(CreateMutexA(nullptr, FALSE, nombre.c_str())) {}
    ~cerrojo_con_nombre()
    {
        suelta();
        CloseHandle(m_mutex);
    }
    cerrojo_con_nombre(const cerrojo_con_nombre &) = delete;
    cerrojo_con_nombre &operator=(const cerrojo_con_nombre &) = delete;

    bool toma(uint32_t ms = 5000)
    {
        DWORD espera = WaitForSingleObject(m_mutex, ms);
        m_mio = espera == WAIT_OBJECT_0 || espera == WAIT_ABANDONED;
        return m_mio;
    }

    void suelta()
    {
        if (m_mio)
            ReleaseMutex(m_mutex);
        m_mio = false;
    }

private:
    HANDLE m_mutex;
    bool m_mio = false;
};

// A function on a thread of its own. The destructor waits for its end.
class tarea {
public:
    explicit tarea(std::function<void()> funcion)
        : m_funcion(std::make_unique<std::function<void()>>(std::move(funcion))),
          m_hilo(CreateThread(nullptr, 0, corre, m_funcion.get(), 0, nullptr))
    {
    }
    ~tarea()
    {
        acabada(INFINITE);
        CloseHandle(m_hilo);
    }
    tarea(const tarea &) = delete;
    tarea &operator=(const tarea &) = delete;

    bool acabada(uint32_t ms) { return WaitForSingleObject(m_hilo, ms) == WAIT_OBJECT_0; }

private:
    static DWORD WINAPI corre(void *funcion)
    {
        (*static_cast<std::function<void()> *>(funcion))();
        return 0;
    }

    std::unique_ptr<std::function<void()>> m_funcion;
    HANDLE m_hilo;
};

// GetTickCount's grain is too coarse for a round.
inline double ahora_ms()
{
    LARGE_INTEGER frecuencia, cuenta;
    QueryPerformanceFrequency(&frecuencia);
    QueryPerformanceCounter(&cuenta);
    return 1000.0 * static_cast<double>(cuenta.QuadPart) / static_cast<double>(frecuencia.QuadPart);
}

constexpr double RONDA_MINIMA_MS = 84; // 100 less one tick of the system, by which a sleep may end early

// ---- The window system, overheard

struct mensaje {
    uint64_t hwnd;
    uint32_t msg;
    uint64_t wparam;
    uint64_t lparam;
    bool operator==(const mensaje &otro) const
    {
        return hwnd == otro.hwnd && msg == otro.msg && wparam == otro.wparam && lparam == otro.lparam;
    }
};

inline void PrintTo(const mensaje &m, std::ostream *salida)
{
    *salida << "{hwnd " << m.hwnd << ", msg " << m.msg << ", wParam " << m.wparam << ", lParam " << m.lparam << "}";
}

// Takes the place of the calls that go to other programs, and keeps what they were given.
class espia {
public:
    espia()
    {
        s_espia = this;
        m_ventana->PostMessageW = publica;
        m_ventana->SendMessageW = envia;
        m_ventana->GetActiveWindow = dame_activa;
        m_ventana->SetForegroundWindow = trae;
    }
    ~espia() { s_espia = nullptr; }

    std::vector<mensaje> publicados, enviados;
    std::string orden; // "F<hwnd> " brought to the front, "A " asked for the active, "S " sent
    HWND activa = nullptr;
    std::function<void(const mensaje &)> al_publicar;
    std::function<LRESULT(const mensaje &)> al_enviar;
    std::function<void()> al_preguntar_activa;
    std::function<void()> al_traer;

private:
    static mensaje de(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
    {
        return {reinterpret_cast<uint64_t>(hwnd), msg, wparam, static_cast<uint64_t>(lparam)};
    }

    void anota(const std::string &que)
    {
        std::lock_guard<cerrojo> guarda(m_candado);
        orden += que + " ";
    }

    static BOOL WINAPI publica(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
    {
        mensaje m = de(hwnd, msg, wparam, lparam);
        {
            std::lock_guard<cerrojo> guarda(s_espia->m_candado);
            s_espia->publicados.push_back(m);
        }
        if (s_espia->al_publicar)
            s_espia->al_publicar(m);
        return TRUE;
    }

    static LRESULT WINAPI envia(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
    {
        mensaje m = de(hwnd, msg, wparam, lparam);
        {
            std::lock_guard<cerrojo> guarda(s_espia->m_candado);
            s_espia->enviados.push_back(m);
        }
        s_espia->anota("S");
        return s_espia->al_enviar ? s_espia->al_enviar(m) : 1;
    }

    static HWND WINAPI dame_activa()
    {
        s_espia->anota("A");
        if (s_espia->al_preguntar_activa)
            s_espia->al_preguntar_activa();
        return s_espia->activa;
    }

    static BOOL WINAPI trae(HWND hwnd)
    {
        s_espia->anota("F" + std::to_string(reinterpret_cast<uint64_t>(hwnd)));
        if (s_espia->al_traer)
            s_espia->al_traer();
        return TRUE;
    }

    inline static espia *s_espia = nullptr;
    ventana_cambiada m_ventana;
    cerrojo m_candado;
};

// ---- Records of the trace

inline const char *const NOMBRES_BUCLE_CLIENTE[] = {
    "", "CLIENTE_ESPERA_NINGUN_CLIENTE", "CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO",
    "CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO", "CLIENTE_ESPERA_SERVIDOR_AVISADO"};

inline std::string registro_bucle(const char *nombre)
{
    return std::string("\n*** <t>: BUCLE ") + nombre + "\n";
}

// The client's rounds in the order of their records, a digit each: "1224".
inline std::string rondas_de(const std::string &traza)
{
    std::string rondas, texto = enmascara_tiempos(traza);
    for (size_t pos = 0; (pos = texto.find("\n*** <t>: BUCLE ", pos)) != std::string::npos; pos++)
        for (size_t estado = 1; estado <= 4; estado++) {
            std::string registro = registro_bucle(NOMBRES_BUCLE_CLIENTE[estado]);
            if (texto.compare(pos, registro.size(), registro) == 0)
                rondas += static_cast<char>('0' + estado);
        }
    return rondas;
}

inline bool empieza_por(const std::string &texto, const std::string &parte)
{
    return texto.compare(0, parte.size(), parte) == 0;
}

inline bool acaba_en(const std::string &texto, const std::string &parte)
{
    return texto.size() >= parte.size() && texto.compare(texto.size() - parte.size(), parte.size(), parte) == 0;
}

inline std::string apertura_inicio(const char *servicio, uint32_t id_comando, uint32_t id_entrada)
{
    return std::string("\n*** <t>:  INICIO COMANDO ") + servicio + " id_comando: " + std::to_string(id_comando) +
           "\n    Datos de entrada\n    id_bloque_MCCom_entrada = " + std::to_string(id_entrada) + "\n";
}

inline std::string apertura_fin(const char *servicio, uint32_t id_comando)
{
    return std::string("\n*** <t>:  FIN COMANDO ") + servicio + " id_comando: " + std::to_string(id_comando) +
           "\n    Resultado ";
}

// ---- Fixtures

class prueba_mcserv : public ::testing::Test {
protected:
    prueba_mcserv() { activa_traza(); } // before the first trace call of the process

    void TearDown() override
    {
        iv_mcbase_cierra();
        iv_mem_cierra();
    }

    // A monitor that hears of rounds; with `listo` also of activities.
    static void pon_monitor(bloque_crudo *mcb, bool listo, uint32_t siguiente = 1)
    {
        mcb->pon_u16(0, listo ? 8886 : 0);
        mcb->pon_u16(2, listo ? 256 : 0);
        mcb->pon_u64(R_HWND_MONITOR, 0x4242);
        mcb->pon_u32(R_MSG_MONITOR, 0xC042);
        mcb->pon_u32(R_ACTIVIDAD_SIGUIENTE, siguiente);
    }

    static void quita_monitor(bloque_crudo *mcb) { mcb->pon_bytes(0, std::vector<uint8_t>(22, 0)); }

    const char *const servicio = nombre_unico("Calc");
};

// A channel that a stranger made, and the library's view of it.
class iv_mcserv_canal : public prueba_mcserv {
protected:
    iv_mcserv_canal()
        : canal(nombre_canal(servicio).c_str(), TAM_CANAL), bloque(iv_mcserv_abre_bloque(servicio)),
          mcserv(iv_mcserv_vista_de(bloque))
    {
    }

    void TearDown() override
    {
        iv_shared_destruye(&bloque);
        prueba_mcserv::TearDown();
    }

    void llena(uint8_t valor) { canal.pon_bytes(0, std::vector<uint8_t>(TAM_CANAL, valor)); }

    bloque_crudo canal;
    iv_shared_bloque *bloque;
    iv_mcserv_vista *mcserv;
};

// ---- A client's command

inline const wchar_t *const SIN_TOCAR = L"untouched";

struct orden {
    uint32_t id_comando = 100;
    uint16_t opciones = 0;
    uint32_t id_entrada = 0;
    const wchar_t *textos[3] = {nullptr, nullptr, nullptr};

    uint32_t resultado = 66666;
    uint32_t id_resultado = 55555;
    wchar_t *salidas[3] = {const_cast<wchar_t *>(SIN_TOCAR), const_cast<wchar_t *>(SIN_TOCAR),
                           const_cast<wchar_t *>(SIN_TOCAR)};
    uint32_t hilo = 0;

    uint32_t ejecuta(const char *servicio)
    {
        hilo = GetCurrentThreadId();
        resultado = iv_mcserv_ejecuta_comando(servicio, id_comando, opciones, id_entrada, textos[0], textos[1],
                                              textos[2], &id_resultado, &salidas[0], &salidas[1], &salidas[2]);
        return resultado;
    }

    bool textos_nulos() const { return salidas[0] == nullptr && salidas[1] == nullptr && salidas[2] == nullptr; }
    bool sin_tocar() const
    {
        return id_resultado == 55555 && salidas[0] == SIN_TOCAR && salidas[1] == SIN_TOCAR && salidas[2] == SIN_TOCAR;
    }
};

// At the `vez`-th round of the client in `estado` (0: when it asks for the active window) the server writes.
struct paso {
    uint32_t estado, vez;
    size_t campo;
    uint32_t valor;
};

constexpr size_t VUELTAS = 100000; // a paso's campo: the count of the client's rounds in the registry

// This process is a client of the service, through its registration. The channel shows a server in wait,
// program 15.
class iv_mcserv_orden : public prueba_mcserv {
protected:
    iv_mcserv_orden() : mutex(nombre_mutex(servicio)) {}

    void registra(HWND hwnd = nullptr)
    {
        iv_reg_registra_cliente("C:\\cliente.exe", hwnd, servicio, nullptr);
        ind = s_programa->servicios_solicitados[0].ind_datServ;
        mcb.emplace("Ivrexa_MCB");
        registro.emplace("Ivrexa_Mutex_MCB");
        mcb->pon_u16(en_servicio(ind, S_PROGRAMA_SERVIDOR), 15);
        mcb->pon_u32(en_programa(15, P_CONTADOR_VIVO), 1000);
        canal.emplace(nombre_canal(servicio).c_str());
    }

    void registra_con_servidor(HWND hwnd = nullptr)
    {
        registra(hwnd);
        canal->pon_u16(C_TAM, 2378);
        canal->pon_u16(C_VERSION, 7);
        canal->pon_u32(C_SIGUIENTE, 100);
        canal->pon_u32(C_ESTADO_SERVIDOR, 1);
        pon_respuesta(1);
    }

    // A server with a window answers by its message.
    void registra_con_ventana(HWND hwnd = nullptr)
    {
        registra_con_servidor(hwnd);
        canal->pon_u64(C_HWND_SERVIDOR, 77);
        canal->pon_u32(C_MSG, 0xC123);
    }

    void pon_respuesta(uint32_t resultado)
    {
        canal->pon_u32(C_RESULTADO, resultado);
        canal->pon_u32(C_ID_RESULTADO, 901);
        canal->pon_texto_u(C_SERV_64, L"a1");
        canal->pon_texto_u(C_SERV_256, L"b22");
        canal->pon_texto_u(C_SERV2_256, L"c333");
    }

    void TearDown() override
    {
        desbloquea_llamadas();
        llamadas.clear(); // waits for them
        registro.reset();
        if (mcb) {
            quita_monitor(&*mcb);
            mcb->pon_bytes(en_servicio(ind, 0), std::vector<uint8_t>(96, 0));
            mcb->pon_u32(en_programa(15, P_CONTADOR_VIVO), 0);
        }
        mcb.reset();
        if (s_programa != nullptr) // ended early, so that the close need not wait for it
            s_programa->servicios_solicitados[0].terminar_hilo_cliente = 1;
        iv_reg_cierra_sesion();
        prueba_mcserv::TearDown();
    }

    // Calls that a failed test left behind must end.
    void desbloquea_llamadas()
    {
        if (canal && canal->abierto())
            canal->pon_u16(C_TERMINADO, 1);
        mutex.suelta();
        if (registro)
            registro->suelta();
    }

    // Runs it on another thread. It stays the fixture's, so that a test may end before it.
    orden &empieza(const orden &argumentos)
    {
        ordenes.push_back(argumentos);
        orden *o = &ordenes.back();
        llamadas.push_back(std::make_unique<tarea>([this, o] { o->ejecuta(servicio); }));
        return *o;
    }

    bool acabada(size_t i, uint32_t ms) { return llamadas[i]->acabada(ms); }

    // Takes the service's mutex once the condition holds, and keeps it.
    bool espera_turno(const std::function<bool()> &condicion)
    {
        return espera_hasta(
            [&] {
                if (mutex.toma() && condicion())
                    return true;
                mutex.suelta();
                return false;
            },
            10000);
    }

    void aplica(const std::vector<paso> &guion, uint32_t estado, uint32_t vez)
    {
        for (const paso &p : guion) {
            if (p.estado != estado || p.vez != vez)
                continue;
            if (p.campo == VUELTAS)
                mcb->pon_u32(en_servicio(ind, S_VUELTAS_CLIENTE), p.valor);
            else if (p.campo == C_TERMINADO)
                canal->pon_u16(p.campo, static_cast<uint16_t>(p.valor));
            else
                canal->pon_u32(p.campo, p.valor);
        }
    }

    // Lets the server's writes happen at their rounds: each round tells the monitor, and that is where they
    // are made.
    void pon_guion(espia *oido, const std::vector<paso> &guion)
    {
        pon_monitor(&*mcb, false);
        oido->al_preguntar_activa = [=] { aplica(guion, 0, 1); };
        auto veces = std::make_shared<std::vector<uint32_t>>(5, 0);
        oido->al_publicar = [=](const mensaje &m) {
            uint32_t estado = static_cast<uint32_t>(m.lparam >> 16);
            if (m.wparam == 1 && estado <= 4)
                aplica(guion, estado, ++veces->at(estado));
        };
    }

    void comprueba_libre(const char *que = "")
    {
        EXPECT_EQ(canal->u32(C_OCUPACION), 0u) << que;
        EXPECT_EQ(canal->u32(C_ESTADO_COMANDO), 0u) << que;
        EXPECT_EQ(canal->u32(C_ID_COMANDO), 0u) << que;
        EXPECT_EQ(canal->u32(C_ID_ENTRADA), 0u) << que;
        EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 0u) << que;
        EXPECT_TRUE(mutex_crudo(nombre_mutex(servicio).c_str()).libre()) << que;
    }

    cerrojo_con_nombre mutex;
    std::optional<cerrojo_con_nombre> registro;
    std::optional<bloque_crudo> canal, mcb;
    uint32_t ind = 32;
    std::deque<orden> ordenes; // a deque does not move them
    std::vector<std::unique_ptr<tarea>> llamadas;
};

#endif
