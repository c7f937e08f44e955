// The channel of a service, byte by byte, and a client's command from its first record to its last. The other
// side is always played with plain system calls: by the test's own thread under the service's mutex, or by
// what the library itself calls while it waits (the monitor's message of each round, the window system's
// calls).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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

namespace {

// Offsets in the channel's data.
constexpr size_t C_TAM = 0, C_VERSION = 2, C_ESTADO_COMANDO = 4, C_RESULTADO = 8, C_SIGUIENTE = 12;
constexpr size_t C_HWND_SERVIDOR = 16, C_MSG = 24, C_TERMINADO = 28, C_ESTADO_SERVIDOR = 30,
                 C_ID_RESULTADO = 34;
constexpr size_t C_SERV_64 = 38, C_SERV_256 = 166, C_SERV2_256 = 678;
constexpr size_t C_HWND_CLIENTE = 1190, C_OCUPACION = 1198, C_ID_COMANDO = 1202, C_ID_ENTRADA = 1206;
constexpr size_t C_CLIENTE_64 = 1210, C_CLIENTE_256 = 1338, C_CLIENTE2_256 = 1850, C_BUZON = 2362;
constexpr uint32_t TAM_CANAL = 2378;

// Offsets in the registry's data, in one program's entry and in one service's.
constexpr size_t R_HWND_MONITOR = 6, R_MSG_MONITOR = 14, R_ACTIVIDAD_SIGUIENTE = 18;
constexpr size_t P_CONTADOR_VIVO = 270;
constexpr size_t S_PROGRAMA_SERVIDOR = 64, S_PROGRAMA_CLIENTE = 66, S_BUCLE_SERVIDOR = 68,
                 S_VIVO_CLIENTE = 76;
constexpr size_t S_EN_CURSO = 80, S_BUCLE_CLIENTE = 84, S_VUELTAS_CLIENTE = 88;

constexpr size_t en_programa(size_t i, size_t campo)
{
    return 1430 + i * 274 + campo;
}

constexpr size_t en_servicio(size_t j, size_t campo)
{
    return 5814 + j * 96 + campo;
}

std::string nombre_canal(const char *servicio)
{
    return std::string("Ivrexa_MCB_Serv_") + servicio;
}

std::string nombre_MCCom(const char *servicio, uint32_t id)
{
    return nombre_canal(servicio) + "_Com__comdat" + std::to_string(id);
}

std::string nombre_mutex(const char *servicio)
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
    explicit cerrojo_con_nombre(const std::string &nombre)
        : m_mutex(CreateMutexA(nullptr, FALSE, nombre.c_str()))
    {
    }
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
double ahora_ms()
{
    LARGE_INTEGER frecuencia, cuenta;
    QueryPerformanceFrequency(&frecuencia);
    QueryPerformanceCounter(&cuenta);
    return 1000.0 * static_cast<double>(cuenta.QuadPart) / static_cast<double>(frecuencia.QuadPart);
}

constexpr double RONDA_MINIMA_MS = 84;    // 100 less one tick of the system, by which a sleep may end early

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

[[maybe_unused]] void PrintTo(const mensaje &m, std::ostream *salida)
{
    *salida << "{hwnd " << m.hwnd << ", msg " << m.msg << ", wParam " << m.wparam << ", lParam " << m.lparam
            << "}";
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
    std::string orden;    // "F<hwnd> " brought to the front, "A " asked for the active, "S " sent
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

    static espia *s_espia;
    ventana_cambiada m_ventana;
    cerrojo m_candado;
};

espia *espia::s_espia = nullptr;

// ---- Records of the trace

const char *const NOMBRES_BUCLE_CLIENTE[] = {
    "", "CLIENTE_ESPERA_NINGUN_CLIENTE", "CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO",
    "CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO", "CLIENTE_ESPERA_SERVIDOR_AVISADO"};

std::string registro_bucle(const char *nombre)
{
    return std::string("\n*** <t>: BUCLE ") + nombre + "\n";
}

// The client's rounds in the order of their records, a digit each: "1224".
std::string rondas_de(const std::string &traza)
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

bool empieza_por(const std::string &texto, const std::string &parte)
{
    return texto.compare(0, parte.size(), parte) == 0;
}

bool acaba_en(const std::string &texto, const std::string &parte)
{
    return texto.size() >= parte.size() &&
           texto.compare(texto.size() - parte.size(), parte.size(), parte) == 0;
}

std::string apertura_inicio(const char *servicio, uint32_t id_comando, uint32_t id_entrada)
{
    return std::string("\n*** <t>:  INICIO COMANDO ") + servicio +
           " id_comando: " + std::to_string(id_comando) +
           "\n    Datos de entrada\n    id_bloque_MCCom_entrada = " + std::to_string(id_entrada) + "\n";
}

std::string apertura_fin(const char *servicio, uint32_t id_comando)
{
    return std::string("\n*** <t>:  FIN COMANDO ") + servicio + " id_comando: " + std::to_string(id_comando) +
           "\n    Resultado ";
}

// ---- Fixtures

class prueba_mcserv : public ::testing::Test {
protected:
    prueba_mcserv() { activa_traza(); }    // before the first trace call of the process

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

}

// ---- The block

TEST_F(iv_mcserv_canal, bloque_nuevo_tiene_2378_bytes_a_cero)
{
    const char *otro = nombre_unico("Nuevo");
    int16_t ya_estaba = 7;

    iv_shared_bloque *nuevo = iv_mcserv_crea_bloque(nombre_canal(otro).c_str(), &ya_estaba);

    ASSERT_NE(nuevo, nullptr);
    bloque_crudo visto(nombre_canal(otro).c_str());
    EXPECT_EQ(ya_estaba, 0);
    EXPECT_EQ(visto.cabecera(), 2378u);
    EXPECT_STREQ(nuevo->tipo, "iv_mcserv_t");
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(2378, 0), visto.bytes(0, 2378)));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(iv_mcserv_vista_de(nuevo)),
              reinterpret_cast<uintptr_t>(nuevo->sharedmem) + 4);
    iv_shared_destruye(&nuevo);
    EXPECT_EQ(iv_mcserv_vista_de(nullptr), nullptr);
}

TEST_F(iv_mcserv_canal, bloque_que_existe_se_abre_como_esta)
{
    llena(0x5A);
    int16_t ya_estaba = 7;

    iv_shared_bloque *abierto = iv_mcserv_crea_bloque(nombre_canal(servicio).c_str(), &ya_estaba);

    ASSERT_NE(abierto, nullptr);
    EXPECT_EQ(ya_estaba, 1);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(2378, 0x5A), canal.bytes(0, 2378)));
    iv_shared_destruye(&abierto);
}

TEST_F(iv_mcserv_canal, bloque_menor_que_el_canal_no_se_abre)
{
    const char *corto = nombre_unico("Corto");
    const char *justo = nombre_unico("Justo");
    bloque_crudo bloque_corto(nombre_canal(corto).c_str(), 2377);
    bloque_crudo bloque_justo(nombre_canal(justo).c_str(), 2378);
    int16_t ya_estaba;

    EXPECT_EQ(iv_mcserv_abre_bloque(corto), nullptr);
    EXPECT_EQ(iv_mcserv_crea_bloque(nombre_canal(corto).c_str(), &ya_estaba), nullptr);
    iv_shared_bloque *abierto = iv_mcserv_abre_bloque(justo);
    EXPECT_NE(abierto, nullptr);
    iv_shared_destruye(&abierto);
}

TEST_F(iv_mcserv_canal, abrir_un_canal_que_no_existe_no_crea_nada)
{
    const char *otro = nombre_unico("Nadie");

    EXPECT_EQ(iv_mcserv_abre_bloque(otro), nullptr);

    EXPECT_FALSE(existe_bloque(nombre_canal(otro).c_str()));
}

// ---- Server: initialisation, ready, gone

TEST_F(iv_mcserv_canal, inicio_escribe_solo_sus_campos)
{
    llena(0xEE);
    std::vector<uint8_t> esperados(TAM_CANAL, 0xEE);
    pon<uint16_t>(&esperados, 0, 2378);
    pon<uint16_t>(&esperados, 2, 0xABCD);
    pon<uint32_t>(&esperados, 4, 0);
    pon<uint32_t>(&esperados, 8, 0);
    pon<uint32_t>(&esperados, 12, 100);
    pon<uint32_t>(&esperados, 30, 0);
    pon<uint32_t>(&esperados, 34, 0);
    pon<uint16_t>(&esperados, 38, 0);    // the first character of each result text
    pon<uint16_t>(&esperados, 166, 0);
    pon<uint16_t>(&esperados, 678, 0);

    iv_mcserv_inicia(mcserv, 0xABCD, FALSO);

    // Window, message, servidor_terminado, the client's half and the mailbox stay.
    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
}

TEST_F(iv_mcserv_canal, contador_de_bloques_se_conserva_desde_100_si_el_canal_existia)
{
    const struct {
        int16_t ya_existia;
        uint32_t antes, despues;
    } casos[] = {{0, 0, 100},   {0, 500, 100}, {1, 0, 100},   {1, 99, 100},
                 {1, 100, 100}, {1, 101, 101}, {1, 500, 500}, {1, 0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto &caso : casos) {
        canal.pon_u32(12, caso.antes);
        iv_mcserv_inicia(mcserv, 1, caso.ya_existia);
        EXPECT_EQ(canal.u32(12), caso.despues) << caso.antes << ", existed: " << caso.ya_existia;
    }
}

TEST_F(iv_mcserv_canal, servidor_listo_escribe_ventana_mensaje_y_estados)
{
    llena(0xEE);
    std::vector<uint8_t> esperados(TAM_CANAL, 0xEE);
    pon<uint64_t>(&esperados, 16, 0x1122334455667788);
    pon<uint32_t>(&esperados, 24, 0xC123);
    pon<uint16_t>(&esperados, 28, 0);
    pon<uint32_t>(&esperados, 30, 1);

    iv_mcserv_servidor_listo(mcserv, reinterpret_cast<ivrexa_hwnd>(0x1122334455667788), 0xC123);

    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
}

TEST_F(iv_mcserv_canal, servidor_terminado_escribe_los_dos_estados)
{
    llena(0xEE);
    std::vector<uint8_t> esperados(TAM_CANAL, 0xEE);
    pon<uint16_t>(&esperados, 28, 1);
    pon<uint32_t>(&esperados, 30, 0);

    iv_mcserv_servidor_terminado(mcserv);

    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
}

TEST_F(iv_mcserv_canal, ids_de_bloque_se_dan_uno_tras_otro)
{
    canal.pon_u32(12, 100);
    EXPECT_EQ(iv_mcserv_siguiente_id_bloque(mcserv), 100u);
    EXPECT_EQ(iv_mcserv_siguiente_id_bloque(mcserv), 101u);
    EXPECT_EQ(canal.u32(12), 102u);
}

TEST(iv_mcserv, comandos_del_1_al_99_son_de_la_biblioteca)
{
    const struct {
        uint32_t id;
        int16_t reservado;
    } casos[] = {{0, 0}, {1, 1}, {50, 1}, {99, 1}, {100, 0}, {0x80000001, 0}, {0xFFFFFFFF, 0}};
    for (const auto &caso : casos)
        EXPECT_EQ(iv_mcserv_es_comando_reservado(caso.id), caso.reservado) << caso.id;
}

// ---- Server: reads the command, writes the result

namespace {

class iv_mcserv_comando : public iv_mcserv_canal {
protected:
    void SetUp() override
    {
        llena(0);
        canal.pon_u32(C_ID_COMANDO, 100);
        canal.pon_u32(C_OCUPACION, 2);
        canal.pon_u32(C_ID_ENTRADA, 321);
    }

    int16_t dame(uint32_t id_comando)
    {
        return iv_mcserv_dame_comando(mcserv, id_comando, &id_entrada, texto_64, texto_256, texto2_256);
    }

    int16_t pon_textos(const std::wstring &uno, const std::wstring &dos, const std::wstring &tres)
    {
        return iv_mcserv_pon_resultado(mcserv, 100, 9, uno.c_str(), dos.c_str(), tres.c_str());
    }

    // Two characters more than the field has: what is written beyond it is seen.
    wchar_t texto_64[66], texto_256[258], texto2_256[258];
    uint32_t id_entrada = 0xAAAA;
};

}

TEST_F(iv_mcserv_comando, comando_en_curso_se_lee_entero)
{
    canal.pon_texto_u(C_CLIENTE_64, L"uno \x20AC");
    canal.pon_texto_u(C_CLIENTE_256, L"");
    canal.pon_texto_u(C_CLIENTE2_256, L"tres");

    EXPECT_EQ(dame(100), 1);

    EXPECT_EQ(id_entrada, 321u);
    EXPECT_STREQ(texto_64, L"uno \x20AC");
    EXPECT_STREQ(texto_256, L"");
    EXPECT_STREQ(texto2_256, L"tres");
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 321u);    // reading does not take it
}

TEST_F(iv_mcserv_comando, textos_sin_final_se_cortan_a_63_255_y_255)
{
    canal.pon_bytes(C_CLIENTE_64,
                    std::vector<uint8_t>(TAM_CANAL - C_CLIENTE_64, 'x'));    // to the block's last byte
    memset(texto_64, 0x7E, sizeof texto_64);
    memset(texto_256, 0x7E, sizeof texto_256);
    memset(texto2_256, 0x7E, sizeof texto2_256);

    EXPECT_EQ(dame(100), 1);

    const wchar_t x = 0x7878, marca = 0x7E7E;
    EXPECT_EQ(std::wstring(texto_64), std::wstring(63, x));
    EXPECT_EQ(std::wstring(texto_256), std::wstring(255, x));
    EXPECT_EQ(std::wstring(texto2_256), std::wstring(255, x));
    EXPECT_EQ(texto_64[64], marca);
    EXPECT_EQ(texto_256[256], marca);
    EXPECT_EQ(texto2_256[256], marca);
}

TEST_F(iv_mcserv_comando, cada_salida_de_la_lectura_puede_faltar)
{
    canal.pon_texto_u(C_CLIENTE_64, L"uno");
    canal.pon_texto_u(C_CLIENTE_256, L"dos");
    canal.pon_texto_u(C_CLIENTE2_256, L"tres");

    EXPECT_EQ(iv_mcserv_dame_comando(mcserv, 100, &id_entrada, nullptr, texto_256, nullptr), 1);
    EXPECT_EQ(id_entrada, 321u);
    EXPECT_STREQ(texto_256, L"dos");
    EXPECT_EQ(iv_mcserv_dame_comando(mcserv, 100, &id_entrada, texto_64, nullptr, texto2_256), 1);
    EXPECT_STREQ(texto_64, L"uno");
    EXPECT_STREQ(texto2_256, L"tres");
    EXPECT_EQ(iv_mcserv_dame_comando(mcserv, 100, nullptr, nullptr, nullptr, nullptr), 1);
}

TEST_F(iv_mcserv_comando, otro_id_u_otra_ocupacion_no_lee_ni_escribe_nada)
{
    const struct {
        uint32_t id_canal, ocupacion, id_pedido;
        int16_t esperado;
    } casos[] = {{100, 2, 100, 1}, {100, 2, 101, 0}, {100, 2, 0, 0},  {0, 2, 100, 0},
                 {100, 0, 100, 0}, {100, 1, 100, 0}, {100, 3, 100, 0}};
    for (const auto &caso : casos) {
        canal.pon_u32(C_ID_COMANDO, caso.id_canal);
        canal.pon_u32(C_OCUPACION, caso.ocupacion);
        std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);
        id_entrada = 0xAAAA;
        wcscpy(texto_64, L"sin tocar");

        EXPECT_EQ(dame(caso.id_pedido), caso.esperado) << caso.id_canal << " " << caso.ocupacion;
        EXPECT_EQ(id_entrada, caso.esperado ? 321u : 0xAAAAu);
        EXPECT_STREQ(texto_64, caso.esperado ? L"" : L"sin tocar");
        EXPECT_TRUE(bytes_iguales(antes, canal.bytes(0, TAM_CANAL)));

        EXPECT_EQ(iv_mcserv_pon_resultado(mcserv, caso.id_pedido, 9, L"a", L"b", L"c"), caso.esperado);
        EXPECT_EQ(antes != canal.bytes(0, TAM_CANAL), caso.esperado == 1);
        canal.pon_bytes(0, antes);
    }
}

TEST_F(iv_mcserv_comando, resultado_escribe_id_y_textos_y_nada_mas)
{
    llena(0xEE);
    canal.pon_u32(C_ID_COMANDO, 100);
    canal.pon_u32(C_OCUPACION, 2);
    std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);

    EXPECT_EQ(pon_textos(L"a", L"b", L"c"), 1);

    EXPECT_EQ(canal.u32(C_ID_RESULTADO), 9u);
    EXPECT_EQ(canal.texto_u(C_SERV_64, 64), L"a");
    EXPECT_EQ(canal.texto_u(C_SERV_256, 256), L"b");
    EXPECT_EQ(canal.texto_u(C_SERV2_256, 256), L"c");
    std::vector<uint8_t> despues = canal.bytes(0, TAM_CANAL);
    std::copy(antes.begin() + 34, antes.begin() + 1190, despues.begin() + 34);
    EXPECT_TRUE(bytes_iguales(antes, despues));    // neither `resultado` nor the states
}

TEST_F(iv_mcserv_comando, textos_del_resultado_se_cortan_a_63_255_y_255)
{
    const struct {
        size_t corto, largo, queda_corto, queda_largo;
    } casos[] = {{63, 255, 63, 255}, {64, 256, 63, 255}, {2000, 2000, 63, 255}};
    for (const auto &caso : casos) {
        pon_textos(std::wstring(caso.corto, L'a'), std::wstring(caso.largo, L'b'),
                   std::wstring(caso.largo, L'c'));

        EXPECT_EQ(canal.texto_u(C_SERV_64, 64), std::wstring(caso.queda_corto, L'a'));
        EXPECT_EQ(canal.texto_u(C_SERV_256, 256), std::wstring(caso.queda_largo, L'b'));
        EXPECT_EQ(canal.texto_u(C_SERV2_256, 256), std::wstring(caso.queda_largo, L'c'));
        EXPECT_EQ(canal.u64(C_HWND_CLIENTE), 0u);
    }
}

TEST_F(iv_mcserv_comando, texto_nulo_del_resultado_se_escribe_vacio)
{
    pon_textos(L"a", L"b", L"c");

    EXPECT_EQ(iv_mcserv_pon_resultado(mcserv, 100, 0, nullptr, nullptr, nullptr), 1);

    EXPECT_EQ(canal.u32(C_ID_RESULTADO), 0u);
    EXPECT_EQ(canal.u16(C_SERV_64), 0u);
    EXPECT_EQ(canal.u16(C_SERV_256), 0u);
    EXPECT_EQ(canal.u16(C_SERV2_256), 0u);
}

// ---- Data blocks

namespace {

const char *const HEX_UN_ULONG = "01000000 03 02 6e00 2a000000";    // one value: ulong "n" = 42

class iv_mcserv_datos : public iv_mcserv_canal {
protected:
    comdat *crea_datos(uint32_t valor = 42)
    {
        comdat *datos = iv_comdat_crea_para_grabar(servicio, CIERTO);
        iv_comdat_graba_ulong(datos, "n", valor);
        return datos;
    }

    comdat *lee(uint32_t id) { return iv_mcserv_lee_datos_entrada(servicio, bloque, id); }
};

}

TEST_F(iv_mcserv_datos, guardar_crea_el_bloque_con_el_contenido_justo)
{
    comdat *datos = crea_datos();

    EXPECT_EQ(iv_mcserv_guarda_datos(datos, 4294967295u), 1);

    bloque_crudo guardado((nombre_canal(servicio) + "_Com__comdat4294967295").c_str());
    EXPECT_EQ(guardado.cabecera(), 12u);
    EXPECT_TRUE(bytes_iguales(de_hex(HEX_UN_ULONG), guardado.bytes(0, 12)));
    EXPECT_EQ(datos->id_bloque_MCCom, 4294967295u);
    EXPECT_NE(datos->shared_MCCom, nullptr);
    iv_comdat_destruye(datos);
}

TEST_F(iv_mcserv_datos, bloque_vivo_demasiado_corto_no_se_escribe)
{
    bloque_crudo corto(nombre_MCCom(servicio, 100).c_str(), 11);
    corto.pon_bytes(0, std::vector<uint8_t>(64, 0xEE));
    comdat *datos = crea_datos();

    EXPECT_EQ(iv_mcserv_guarda_datos(datos, 100), 0);

    EXPECT_INFORME("iv_comdat", "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_EQ(corto.cabecera(), 11u);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(64, 0xEE), corto.bytes(0, 64)));
    EXPECT_EQ(datos->shared_MCCom, nullptr);
    iv_comdat_destruye(datos);
}

TEST_F(iv_mcserv_datos, entrada_se_entrega_una_sola_vez)
{
    comdat *datos = crea_datos();
    iv_mcserv_guarda_datos(datos, 100);
    canal.pon_u32(C_ID_ENTRADA, 100);

    comdat *entrada = lee(100);

    ASSERT_NE(entrada, nullptr);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 0u);
    EXPECT_EQ(entrada->es_entrada, 1);
    EXPECT_EQ(iv_comdat_numero_valores(entrada), 1u);
    EXPECT_EQ(iv_comdat_dame_ulong(entrada, 0), 42u);
    EXPECT_EQ(lee(100), nullptr);
    EXPECT_INFORME("iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    EXPECT_SIN_INFORMES();
    iv_comdat_destruye(datos);
    EXPECT_TRUE(existe_bloque(nombre_MCCom(servicio, 100).c_str()));    // the reader keeps it
    iv_comdat_destruye(entrada);
}

TEST_F(iv_mcserv_datos, sin_entrada_no_hay_datos_ni_informe)
{
    EXPECT_EQ(lee(0), nullptr);
}

TEST_F(iv_mcserv_datos, se_abre_el_bloque_pedido_aunque_el_canal_nombre_otro)
{
    comdat *uno = crea_datos(1);
    comdat *dos = crea_datos(2);
    iv_mcserv_guarda_datos(uno, 100);
    iv_mcserv_guarda_datos(dos, 101);
    canal.pon_u32(C_ID_ENTRADA, 100);

    comdat *entrada = lee(101);

    EXPECT_INFORME("iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    ASSERT_NE(entrada, nullptr);
    EXPECT_EQ(iv_comdat_dame_ulong(entrada, 0), 2u);
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 0u);
    iv_comdat_destruye(entrada);
    iv_comdat_destruye(uno);
    iv_comdat_destruye(dos);
}

TEST_F(iv_mcserv_datos, entrada_cuyo_bloque_falta_es_un_informe_y_no_crea_nada)
{
    canal.pon_u32(C_ID_ENTRADA, 100);

    EXPECT_EQ(lee(100), nullptr);

    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 0u);
    EXPECT_FALSE(existe_bloque(nombre_MCCom(servicio, 100).c_str()));
}

TEST_F(iv_mcserv_datos, abrir_un_bloque_se_anota_para_el_monitor)
{
    espia oido;
    iv_mcbase_acceso *acceso = iv_mcbase_abre(0, FALSO);
    bloque_crudo mcb("Ivrexa_MCB");
    pon_monitor(&mcb, true, 5);
    uint32_t ind = iv_mcbase_busca_o_anyade_servicio(0, acceso->mcbase, servicio);
    comdat *datos = crea_datos();
    iv_mcserv_guarda_datos(datos, 100);
    canal.pon_u32(C_ID_ENTRADA, 100);

    comdat *entrada = lee(100);
    iv_shared_bloque *salida = iv_mcserv_abre_MCCom(servicio, 100, FALSO);

    const uint32_t esperados[2][6] = {{ind, 0, 100, 0, 3, 1}, {ind, 0, 100, 1, 4, 1}};
    for (size_t n = 0; n < 2; n++) {
        size_t registro = 22 + (5 + n - 1) * 22;
        for (size_t i = 0; i < 5; i++)
            EXPECT_EQ(mcb.u32(registro + i * 4), esperados[n][i]) << n << " " << i;
        EXPECT_EQ(mcb.u16(registro + 20), esperados[n][5]);
    }
    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x4242, 0xC042, 0, 5}, {0x4242, 0xC042, 0, 6}}));
    quita_monitor(&mcb);
    iv_mcbase_quita_servicio(0, acceso->mcbase, servicio);
    iv_shared_destruye(&salida);
    iv_comdat_destruye(entrada);
    iv_comdat_destruye(datos);
}

// ---- Rounds

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
    {"SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO", iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO, false,
     2},
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
    static size_t bucle_de(const ronda_de_estado &r)
    {
        return r.de_cliente ? S_BUCLE_CLIENTE : S_BUCLE_SERVIDOR;
    }
    static size_t latido_de(const ronda_de_estado &r)
    {
        return en_programa(r.de_cliente ? 14 : 15, P_CONTADOR_VIVO);
    }

    void pon_bucle(const ronda_de_estado &r, uint32_t estado, uint32_t vueltas, uint32_t vivo)
    {
        mcb->pon_u32(en_servicio(5, bucle_de(r)), estado);
        mcb->pon_u32(en_servicio(5, bucle_de(r) + 4), vueltas);
        mcb->pon_u32(en_servicio(5, bucle_de(r) + 8), vivo);
    }

    std::vector<uint32_t> bucle(const ronda_de_estado &r)
    {
        size_t b = bucle_de(r);
        return {mcb->u32(en_servicio(5, b)), mcb->u32(en_servicio(5, b + 4)),
                mcb->u32(en_servicio(5, b + 8))};
    }

    std::optional<bloque_crudo> mcb;
};

}

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
        pon_bucle(r, 77, 24, 0);    // another state: the peer's silence there does not count here
        uint32_t latido = mcb->u32(latido_de(r));
        double inicio_ms = ahora_ms();

        EXPECT_EQ(r.ronda(5, mcserv), 0);

        EXPECT_GE(ahora_ms() - inicio_ms, RONDA_MINIMA_MS);
        EXPECT_EQ(enmascara_tiempos(traza.texto_propio()), registro_bucle(r.nombre));
        EXPECT_EQ(bucle(r), (std::vector<uint32_t>{r.estado, 0, latido}));

        mcb->pon_u32(latido_de(r), latido + 1);    // the heartbeat is noted on entry only
        EXPECT_EQ(r.ronda(5, mcserv), 0);

        EXPECT_EQ(bucle(r), (std::vector<uint32_t>{r.estado, 1, latido}));
        EXPECT_TRUE(
            bytes_iguales(std::vector<uint8_t>(12, 0x33), mcb->bytes(en_servicio(5, otro_bucle), 12)));
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

    ASSERT_TRUE(traza.espera("BUCLE ", 5000));    // the record comes just before the sleep
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
        {23, 7, 7, 100, false, false},    // becomes round 24
        {24, 7, 7, 100, true, true},      // 25
        {25, 7, 7, 100, false, false},    // 26: asked at multiples of 25 only
        {24, 7, 8, 100, false, false},    // moved once: lives at 25,
        {49, 7, 8, 100, false, false},    // at 50
        {74, 7, 9, 100, false, false},    // and at 75 of the same wait
        {49, 7, 7, 100, true, true},
        {24, 0, 0, 100, true, true},    // a counter that has not moved since its registration
        {24, 7, 7, 0, true, false},     // a server misses its client only while a command is under way
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
            if (muerto && r.de_cliente) {    // a server's round writes nothing into the channel
                pon<uint16_t>(&esperados, 28, 1);
                pon<uint32_t>(&esperados, 30, 0);
            }
            EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, TAM_CANAL)));
            EXPECT_EQ(bucle(r), (std::vector<uint32_t>{r.estado, caso.vueltas + 1, caso.vivo}));
            EXPECT_EQ(oido.publicados.size(), 1u);    // also in the round that finds it dead
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
            mcb->pon_u16(en_servicio(5, r.de_cliente ? S_PROGRAMA_SERVIDOR : S_PROGRAMA_CLIENTE),
                         id_programa);
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
    EXPECT_EQ(bucle(RONDA_SERVIDOR), (std::vector<uint32_t>{1, 23, 0}));    // not noted again
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

// ---- Mailbox

namespace {

class iv_mcserv_buzon : public iv_mcserv_canal {
protected:
    iv_mcserv_buzon() : interno(nombre_mutex(servicio) + "Interno") {}

    void SetUp() override
    {
        mutex_interno = iv_mutex_crea((nombre_mutex(servicio) + "Interno").c_str(), FALSO);
    }

    void TearDown() override
    {
        canal.pon_u16(C_TERMINADO, 1);    // whatever still waits gives up
        interno.suelta();
        aviso.reset();
        EXPECT_EQ(mutex_interno->nivel_bloqueo, 0);
        iv_mutex_destruye(&mutex_interno);
        iv_mcserv_canal::TearDown();
    }

    void pon_buzon(uint32_t estado, uint32_t dato1, uint32_t dato2, uint32_t dato3)
    {
        const uint32_t valores[] = {estado, dato1, dato2, dato3};
        for (size_t i = 0; i < 4; i++)
            canal.pon_u32(C_BUZON + i * 4, valores[i]);
    }

    std::vector<uint32_t> buzon()
    {
        return {canal.u32(2362), canal.u32(2366), canal.u32(2370), canal.u32(2374)};
    }

    void notifica_en_otro_hilo()
    {
        aviso = std::make_unique<tarea>([this] { iv_mcserv_notifica(mcserv, mutex_interno, 201, 202, 203); });
    }

    bool acabada(uint32_t ms) { return aviso->acabada(ms); }

    cerrojo_con_nombre interno;
    iv_mutex *mutex_interno = nullptr;
    std::unique_ptr<tarea> aviso;
};

using cuatro = std::vector<uint32_t>;

}

TEST_F(iv_mcserv_buzon, una_notificacion_pasa_por_0_1_2_3_y_0)
{
    llena(0xEE);
    canal.pon_u16(C_TERMINADO, 0);
    std::vector<uint8_t> lo_demas = canal.bytes(0, 2362);
    pon_buzon(1, 11, 12, 13);    // an earlier one is still there
    notifica_en_otro_hilo();

    EXPECT_FALSE(acabada(250));    // two of its polls
    ASSERT_TRUE(interno.toma());
    EXPECT_EQ(buzon(), (cuatro{1, 11, 12, 13}));
    EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 21u);
    pon_buzon(0, 0, 0, 0);
    interno.suelta();

    ASSERT_TRUE(espera_hasta(
        [&] { return interno.toma() && (canal.u32(2362) == 1 || (interno.suelta(), false)); }, 5000));
    EXPECT_EQ(buzon(), (cuatro{1, 201, 202, 203}));
    canal.pon_u32(2362, 2);    // the client's thread takes it
    interno.suelta();
    EXPECT_FALSE(acabada(250));
    EXPECT_EQ(buzon(), (cuatro{2, 201, 202, 203}));
    EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 22u);

    canal.pon_u32(2362, 3);    // its receipt, without the mutex
    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{0, 0, 0, 0}));
    EXPECT_TRUE(bytes_iguales(lo_demas, canal.bytes(0, 2362)));
}

TEST_F(iv_mcserv_buzon, las_dos_esperas_duermen_sin_el_mutex)
{
    mutex_crudo otro((nombre_mutex(servicio) + "Interno").c_str());
    pon_buzon(2, 0, 0, 0);
    notifica_en_otro_hilo();

    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 21; }, 5000));
    EXPECT_TRUE(espera_hasta([&] { return otro.libre(); }, 60));
    canal.pon_u32(2362, 0);
    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 22; }, 5000));
    EXPECT_TRUE(espera_hasta([&] { return otro.libre(); }, 60));
}

TEST_F(iv_mcserv_buzon, ocupado_se_abandona_si_el_servidor_termina)
{
    pon_buzon(2, 11, 12, 13);
    notifica_en_otro_hilo();
    EXPECT_FALSE(acabada(150));

    canal.pon_u16(C_TERMINADO, 1);

    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{2, 11, 12, 13}));
    EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 21u);    // the second wait never began
}

TEST_F(iv_mcserv_buzon, libre_se_escribe_aunque_el_servidor_haya_terminado_y_no_se_espera)
{
    for (uint16_t terminado : {1, 2, 0xFFFF}) {    // here any value but 0 ends it
        pon_buzon(0, 0, 0, 0);
        canal.pon_u16(C_TERMINADO, terminado);

        notifica_en_otro_hilo();

        ASSERT_TRUE(acabada(5000)) << terminado;
        EXPECT_EQ(buzon(), (cuatro{1, 201, 202, 203}));
        EXPECT_EQ(mutex_interno->codigos_bloqueo[0], 21u);
    }
}

TEST_F(iv_mcserv_buzon, la_espera_del_recibo_se_abandona_si_el_servidor_termina)
{
    notifica_en_otro_hilo();
    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 22; }, 5000));

    canal.pon_u16(C_TERMINADO, 1);

    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{1, 201, 202, 203}));    // left as it is
}

TEST_F(iv_mcserv_buzon, un_recibo_vale_aunque_el_servidor_termine_a_la_vez)
{
    notifica_en_otro_hilo();
    ASSERT_TRUE(espera_hasta([&] { return mutex_interno->codigos_bloqueo[0] == 22; }, 5000));

    ASSERT_TRUE(interno.toma());
    canal.pon_u16(C_TERMINADO, 1);
    canal.pon_u32(2362, 3);
    interno.suelta();

    ASSERT_TRUE(acabada(5000));
    EXPECT_EQ(buzon(), (cuatro{0, 0, 0, 0}));
}

// ---- A client's command

namespace {

const wchar_t *const SIN_TOCAR = L"untouched";

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
        resultado =
            iv_mcserv_ejecuta_comando(servicio, id_comando, opciones, id_entrada, textos[0], textos[1],
                                      textos[2], &id_resultado, &salidas[0], &salidas[1], &salidas[2]);
        return resultado;
    }

    bool textos_nulos() const
    {
        return salidas[0] == nullptr && salidas[1] == nullptr && salidas[2] == nullptr;
    }
    bool sin_tocar() const
    {
        return id_resultado == 55555 && salidas[0] == SIN_TOCAR && salidas[1] == SIN_TOCAR &&
               salidas[2] == SIN_TOCAR;
    }
};

// At the `vez`-th round of the client in `estado` (0: when it asks for the active window) the server writes.
struct paso {
    uint32_t estado, vez;
    size_t campo;
    uint32_t valor;
};

constexpr size_t VUELTAS = 100000;    // a paso's campo: the count of the client's rounds in the registry

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
        llamadas.clear();    // waits for them
        registro.reset();
        if (mcb) {
            quita_monitor(&*mcb);
            mcb->pon_bytes(en_servicio(ind, 0), std::vector<uint8_t>(96, 0));
            mcb->pon_u32(en_programa(15, P_CONTADOR_VIVO), 0);
        }
        mcb.reset();
        if (s_programa != nullptr)    // ended early, so that the close need not wait for it
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
    std::deque<orden> ordenes;    // a deque does not move them
    std::vector<std::unique_ptr<tarea>> llamadas;
};

}

// ---- Command: claim and release, seen by another thread

TEST_F(iv_mcserv_orden, los_ids_se_escriben_antes_de_reclamar_y_sin_el_mutex)
{
    registra_con_servidor();
    canal->pon_u32(C_OCUPACION, 2);    // another client's command is under way
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
    canal->pon_u32(C_ID_ENTRADA, 0);    // the claim writes it again
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
    ASSERT_TRUE(registro->toma());    // holds back what follows the release
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
    ASSERT_TRUE(acabada(0, 5000));    // although this thread holds the service's mutex
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
    EXPECT_EQ(canal->u32(C_ID_COMANDO), 200u);    // written before the claim, over the first one's
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
    uint32_t ocupacion;    // at the start
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

}

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
        {"any other state counts as running",
         0,
         {{2, 1, SERV, 9}, {3, 1, INFO, 3}, {4, 1, INFO, 5}},
         1,
         "234"},
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
    EXPECT_EQ(oido.orden, "A F5 ");    // the later steps run all the same
    EXPECT_FALSE(libre);               // a wait that failed keeps the mutex
    comprueba_libre();                 // the other client's hold included
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
        libres += std::to_string(m.lparam >> 16) +
                  (servicio_ajeno.libre() || registro_ajeno.libre() ? "free " : "held ");
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

// ---- Command: a server with a window

TEST_F(iv_mcserv_orden, mensaje_lleva_los_argumentos_y_no_los_campos)
{
    registra_con_ventana();
    canal->pon_u64(C_HWND_SERVIDOR, 0x1122334455667788);
    espia oido;
    oido.al_preguntar_activa = [&] {
        canal->pon_u32(C_ID_COMANDO, 111);
        canal->pon_u32(C_ID_ENTRADA, 222);
    };
    orden o;
    o.id_comando = 0xFFFFFFFE;
    o.id_entrada = 0xFFFFFFFD;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(oido.enviados, (std::vector<mensaje>{{0x1122334455667788, 0xC123, 0xFFFFFFFE, 0xFFFFFFFD}}));
    comprueba_libre();
}

TEST_F(iv_mcserv_orden, durante_el_mensaje_esta_la_orden_escrita_y_nada_bloqueado)
{
    HWND hwnd = crea_ventana();
    registra_con_ventana(hwnd);
    espia oido;
    mutex_crudo servicio_ajeno(nombre_mutex(servicio).c_str()), registro_ajeno("Ivrexa_Mutex_MCB");
    oido.al_enviar = [&](const mensaje &) -> LRESULT {
        EXPECT_TRUE(servicio_ajeno.libre());
        EXPECT_TRUE(espera_hasta([&] { return registro_ajeno.libre(); }, 1000));    // but for a heartbeat
        EXPECT_EQ(canal->u32(C_ESTADO_COMANDO), 1u);
        EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
        EXPECT_EQ(canal->u32(C_ID_COMANDO), 100u);
        EXPECT_EQ(canal->u32(C_ID_ENTRADA), 700u);
        EXPECT_EQ(canal->u64(C_HWND_CLIENTE), reinterpret_cast<uint64_t>(hwnd));
        EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 100u);
        return 1;
    };
    captura_traza traza;
    orden o;
    o.id_entrada = 700;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(rondas_de(traza.texto_propio()), "");    // no wait, not even for the receipt
    EXPECT_EQ(canal->u32(C_ESTADO_SERVIDOR), 1u);
    comprueba_libre();
    iv_reg_cierra_sesion();
    destruye_ventana(&hwnd);
}

TEST_F(iv_mcserv_orden, respuesta_del_mensaje_es_el_resultado_y_queda_en_el_canal)
{
    registra_con_ventana();
    const struct {
        LRESULT respuesta;
        uint32_t resultado;
    } casos[] = {{1, 1}, {0, 0}, {2, 2}, {3, 3}, {7, 7}, {-1, 0xFFFFFFFF}, {0x700000001, 1}};
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.respuesta);
        espia oido;
        oido.al_enviar = [&](const mensaje &) { return caso.respuesta; };
        canal->pon_u32(C_RESULTADO, 0xEEEE);
        orden o;

        EXPECT_EQ(o.ejecuta(servicio), caso.resultado);

        EXPECT_EQ(canal->u32(C_RESULTADO), caso.resultado);
        EXPECT_EQ(o.id_resultado, caso.resultado == 1 ? 901u : 55555u);
        EXPECT_EQ(o.textos_nulos(), caso.resultado != 1);
        comprueba_libre();
    }
}

TEST_F(iv_mcserv_orden, canal_no_reclamado_envia_su_mensaje_igualmente)
{
    registra_con_ventana();
    canal->pon_u32(C_OCUPACION, 2);
    canal->pon_u16(C_TERMINADO, 1);
    canal->pon_texto_u(C_CLIENTE_64, L"ajeno");
    espia oido;
    captura_traza traza;
    orden o;
    o.textos[0] = L"propio";

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(oido.enviados, (std::vector<mensaje>{{77, 0xC123, 100, 0}}));
    EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"ajeno");
    EXPECT_EQ(rondas_de(traza.texto_propio()), "");
    comprueba_libre();
}

TEST_F(iv_mcserv_orden, ventanas_se_traen_al_frente_segun_los_bits_2_y_4)
{
    registra_con_ventana();
    const struct {
        uint64_t hwnd_servidor;
        uint16_t opciones;
        uint64_t activa;
        const char *orden;
    } casos[] = {
        {77, 0, 5, "A S "},
        {77, 2, 5, "F77 A S "},
        {77, 4, 5, "A S F5 "},
        {77, 6, 5, "F77 A S F5 "},
        {0, 6, 5, "A S F5 "},       // no window to bring
        {77, 4, 0, "A S F0 "},      // none was active
        {77, 0xFFF9, 5, "A S "},    // the other bits mean nothing
        {77, 0xFFFF, 5, "F77 A S F5 "},
    };
    for (const auto &caso : casos) {
        espia oido;
        oido.activa = reinterpret_cast<HWND>(caso.activa);
        canal->pon_u64(C_HWND_SERVIDOR, caso.hwnd_servidor);
        orden o;
        o.opciones = caso.opciones;

        EXPECT_EQ(o.ejecuta(servicio), 1u);

        EXPECT_EQ(oido.orden, caso.orden) << caso.hwnd_servidor << " " << caso.opciones;
    }
}

TEST_F(iv_mcserv_orden, foco_se_devuelve_antes_de_leer_el_resultado_y_con_el_mutex)
{
    registra_con_ventana();
    espia oido;
    mutex_crudo ajeno(nombre_mutex(servicio).c_str());
    bool libre = true;
    uint32_t estado = 0;
    oido.al_traer = [&] {
        libre = ajeno.libre();
        estado = canal->u32(C_ESTADO_COMANDO);
        canal->pon_u32(C_ID_RESULTADO, 902);
    };
    orden o;
    o.opciones = 4;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_FALSE(libre);
    EXPECT_EQ(estado, 1u);
    EXPECT_EQ(o.id_resultado, 902u);
}

// A window without a message: the server has a loop thread, and the window is brought all the same.
TEST_F(iv_mcserv_orden, el_mensaje_y_no_la_ventana_decide_el_camino)
{
    registra_con_servidor();
    canal->pon_u64(C_HWND_SERVIDOR, 77);
    espia oido;
    oido.activa = reinterpret_cast<HWND>(5);
    pon_guion(&oido,
              {{2, 1, C_ESTADO_SERVIDOR, 3}, {2, 1, C_ESTADO_COMANDO, 3}, {4, 1, C_ESTADO_COMANDO, 5}});
    orden o;
    o.opciones = 6;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(oido.orden, "F77 A F5 ");
}

// ---- Command: texts

TEST_F(iv_mcserv_orden, textos_de_la_orden_llegan_hasta_63_255_y_255_caracteres)
{
    registra_con_ventana();
    for (size_t de_mas : {0u, 1u, 2000u}) {
        espia oido;
        std::wstring textos[3] = {std::wstring(63 + de_mas, L'a'), std::wstring(255 + de_mas, L'b'),
                                  std::wstring(255 + de_mas, L'c')};
        std::vector<uint8_t> buzon = canal->bytes(C_BUZON, 16);
        oido.al_enviar = [&](const mensaje &) -> LRESULT {
            EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), std::wstring(63, L'a'));
            EXPECT_EQ(canal->texto_u(C_CLIENTE_256, 256), std::wstring(255, L'b'));
            EXPECT_EQ(canal->texto_u(C_CLIENTE2_256, 256), std::wstring(255, L'c'));
            return 1;
        };
        orden o;
        for (size_t i = 0; i < 3; i++)
            o.textos[i] = textos[i].c_str();

        EXPECT_EQ(o.ejecuta(servicio), 1u);

        EXPECT_TRUE(bytes_iguales(buzon, canal->bytes(C_BUZON, 16)));
    }
}

TEST_F(iv_mcserv_orden, textos_nulos_llegan_vacios)
{
    registra_con_ventana();
    canal->pon_texto_u(C_CLIENTE_64, L"anterior");
    canal->pon_texto_u(C_CLIENTE_256, L"anterior");
    canal->pon_texto_u(C_CLIENTE2_256, L"anterior");
    espia oido;
    oido.al_enviar = [&](const mensaje &) -> LRESULT {
        EXPECT_EQ(canal->texto_u(C_CLIENTE_64, 64), L"");
        EXPECT_EQ(canal->texto_u(C_CLIENTE_256, 256), L"");
        EXPECT_EQ(canal->texto_u(C_CLIENTE2_256, 256), L"");
        return 1;
    };
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);
}

TEST_F(iv_mcserv_orden, textos_del_resultado_son_copias_justas_del_monton)
{
    registra_con_ventana();
    canal->pon_texto_u(C_SERV_256, L"");
    espia oido;
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_STREQ(o.salidas[0], L"a1");
    EXPECT_STREQ(o.salidas[1], L"");
    EXPECT_STREQ(o.salidas[2], L"c333");
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, o.salidas[0]), 6u);
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, o.salidas[1]), 2u);
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, o.salidas[2]), 10u);
}

TEST_F(iv_mcserv_orden, textos_del_resultado_sin_final_se_cortan_en_su_campo)
{
    registra_con_ventana();
    canal->pon_bytes(C_SERV_64, std::vector<uint8_t>(C_HWND_CLIENTE - C_SERV_64, 'x'));
    espia oido;
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    const wchar_t x = 0x7878;
    EXPECT_EQ(std::wstring(o.salidas[0]), std::wstring(63, x));
    EXPECT_EQ(std::wstring(o.salidas[1]), std::wstring(255, x));
    EXPECT_EQ(std::wstring(o.salidas[2]), std::wstring(255, x));
}

TEST_F(iv_mcserv_orden, cada_salida_puede_faltar)
{
    registra_con_ventana();
    espia oido;
    for (uint32_t resultado : {1u, 2u})
        for (size_t falta = 0; falta <= 4; falta++) {    // 4: all of them
            oido.al_enviar = [&](const mensaje &) { return static_cast<LRESULT>(resultado); };
            uint32_t id_resultado = 55555;
            wchar_t *textos[3] = {nullptr, nullptr, nullptr}, **salidas[3];
            for (size_t i = 0; i < 3; i++)
                salidas[i] = falta == i + 1 || falta == 4 ? nullptr : &textos[i];

            EXPECT_EQ(iv_mcserv_ejecuta_comando(servicio, 100, 0, 0, nullptr, nullptr, nullptr,
                                                falta == 0 || falta == 4 ? nullptr : &id_resultado,
                                                salidas[0], salidas[1], salidas[2]),
                      resultado);

            for (size_t i = 0; i < 3; i++)
                EXPECT_EQ(textos[i] != nullptr, resultado == 1 && salidas[i] != nullptr) << falta << " " << i;
            EXPECT_EQ(id_resultado == 901, resultado == 1 && falta != 0 && falta != 4) << falta;
        }
}

// ---- Command: records and activities

TEST_F(iv_mcserv_orden, registros_de_la_orden_al_caracter)
{
    registra_con_ventana();
    const struct {
        LRESULT respuesta;
        const char *cola;
    } casos[] = {
        {0, "    NINGUNO\n"},
        {1, "    OK\n    id_datos_salida_comando = 901\n    serv_buffer_64\"a1\"\n"
            "    serv_buffer_256\"b22\"\n    serv_buffer2_256\"c333\"\n\n"},
        {2, "    CANCELADO\n"},
        {3, "    ERROR\n"},
        {7, ""},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.respuesta);
        espia oido;
        oido.al_enviar = [&](const mensaje &) { return caso.respuesta; };
        captura_traza traza;
        orden o;
        o.id_entrada = 700;
        o.textos[0] = L"uno";
        o.textos[1] = L"";
        o.textos[2] = L"tres";

        o.ejecuta(servicio);

        std::string texto = enmascara_tiempos(traza.texto_propio());
        std::string inicio =
            apertura_inicio(servicio, 100, 700) + "    param1\"uno\"\n    param2\"\"\n    param3\"tres\"\n\n";
        EXPECT_TRUE(empieza_por(texto, inicio)) << texto;
        EXPECT_TRUE(acaba_en(texto, apertura_fin(servicio, 100) + caso.cola)) << texto;
        EXPECT_EQ(texto.find(" FIN COMANDO "), texto.rfind(" FIN COMANDO "));
        EXPECT_EQ(texto.find("\n*** <t>:  INICIO COMANDO ", 1), std::string::npos);
    }
}

TEST_F(iv_mcserv_orden, textos_y_salidas_que_faltan_no_se_trazan)
{
    registra_con_ventana();
    espia oido;
    captura_traza traza;

    iv_mcserv_ejecuta_comando(servicio, 100, 0, 0, nullptr, L"dos", nullptr, nullptr, nullptr, nullptr,
                              nullptr);

    std::string texto = enmascara_tiempos(traza.texto_propio());
    EXPECT_TRUE(empieza_por(texto, apertura_inicio(servicio, 100, 0) + "    param2\"dos\"\n\n")) << texto;
    EXPECT_TRUE(acaba_en(texto, apertura_fin(servicio, 100) + "    OK\n\n")) << texto;
}

namespace {

class iv_mcserv_orden_monitor : public iv_mcserv_orden {
protected:
    std::vector<uint32_t> actividad(uint32_t n)
    {
        size_t r = 22 + (n - 1) * 22;
        return {mcb->u32(r),      mcb->u32(r + 4),  mcb->u32(r + 8),
                mcb->u32(r + 12), mcb->u32(r + 16), mcb->u16(r + 20)};
    }
};

}

TEST_F(iv_mcserv_orden_monitor, la_orden_se_anota_al_empezar_y_al_acabar)
{
    registra_con_ventana();
    pon_monitor(&*mcb, true, 63);
    espia oido;
    size_t avisos_durante = 0;
    oido.al_enviar = [&](const mensaje &) -> LRESULT {
        avisos_durante = oido.publicados.size();
        return 7;
    };
    orden o;
    o.id_entrada = 700;

    EXPECT_EQ(o.ejecuta(servicio), 7u);

    EXPECT_EQ(avisos_durante, 1u);
    EXPECT_EQ(actividad(63), (std::vector<uint32_t>{ind, 100, 700, 1, 2, 1}));
    EXPECT_EQ(actividad(1), (std::vector<uint32_t>{ind, 100, 700, 1, 2, 0}));
    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x4242, 0xC042, 0, 63}, {0x4242, 0xC042, 0, 1}}));
}

TEST_F(iv_mcserv_orden_monitor, sin_monitor_listo_no_se_anota)
{
    registra_con_ventana();
    pon_monitor(&*mcb, false, 5);    // hears of rounds, but is not ready
    espia oido;
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_EQ(mcb->u32(R_ACTIVIDAD_SIGUIENTE), 5u);
}

TEST_F(iv_mcserv_orden_monitor, quien_no_es_cliente_recibe_3_sin_los_registros_del_final)
{
    registra_con_ventana();
    pon_monitor(&*mcb, true, 5);
    const char *ajeno = nombre_unico("Ajeno");
    bloque_crudo canal_ajeno(nombre_canal(ajeno).c_str(), TAM_CANAL);
    uint32_t ind_ajeno = iv_mcbase_busca_o_anyade_servicio(0, s_mcbase_acceso->mcbase, ajeno);
    espia oido;
    captura_traza traza;
    orden o;
    o.id_entrada = 700;

    EXPECT_EQ(o.ejecuta(ajeno), 3u);

    EXPECT_EQ(enmascara_tiempos(traza.texto_propio()), apertura_inicio(ajeno, 100, 700) + "\n");
    EXPECT_EQ(actividad(5), (std::vector<uint32_t>{ind_ajeno, 100, 700, 1, 2, 1}));
    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x4242, 0xC042, 0, 5}}));
    EXPECT_TRUE(oido.enviados.empty());
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(TAM_CANAL, 0), canal_ajeno.bytes(0, TAM_CANAL)));
    EXPECT_TRUE(o.sin_tocar());
    iv_mcbase_quita_servicio(0, s_mcbase_acceso->mcbase, ajeno);
}

TEST_F(iv_mcserv_orden, programa_sin_registrar_no_es_cliente_de_nada)
{
    orden o;
    EXPECT_EQ(o.ejecuta(servicio), 3u);
    EXPECT_TRUE(o.sin_tocar());
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
}

namespace {

class iv_mcserv_sin_canal : public iv_mcserv_orden_monitor {
protected:
    void comprueba_sin_canal()
    {
        pon_monitor(&*mcb, true, 5);
        espia oido;
        captura_traza traza;
        orden o;
        o.opciones = 6;

        EXPECT_EQ(o.ejecuta(servicio), 0u);

        std::string texto = enmascara_tiempos(traza.texto_propio());
        EXPECT_TRUE(empieza_por(texto, apertura_inicio(servicio, 100, 0) + "\n")) << texto;
        EXPECT_TRUE(acaba_en(texto, apertura_fin(servicio, 100) + "    NINGUNO\n")) << texto;
        EXPECT_EQ(actividad(5), (std::vector<uint32_t>{ind, 100, 0, 1, 2, 1}));
        EXPECT_EQ(actividad(6), (std::vector<uint32_t>{ind, 100, 0, 1, 2, 0}));
        EXPECT_EQ(oido.orden, "");
        EXPECT_EQ(o.id_resultado, 55555u);
        EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 0u);
    }
};

}

TEST_F(iv_mcserv_sin_canal, sin_canal_el_resultado_es_0_con_todos_los_registros)
{
    // An object of another kind has the name, so the registration cannot make the channel.
    HANDLE tapon = CreateEventA(nullptr, TRUE, FALSE, nombre_canal(servicio).c_str());
    registra();
    ASSERT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));

    comprueba_sin_canal();

    CloseHandle(tapon);
}

TEST_F(iv_mcserv_sin_canal, canal_demasiado_corto_cuenta_como_ninguno)
{
    bloque_crudo corto(nombre_canal(servicio).c_str(), 2377);
    corto.pon_bytes(0, std::vector<uint8_t>(2377, 0xEE));
    registra();

    comprueba_sin_canal();

    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(2377, 0xEE), corto.bytes(0, 2377)));
    canal.reset();
}

// The probe and the opening of an existing block leave one each, so that what a peer was told of does not
// vanish.
TEST_F(iv_mcserv_orden, cada_orden_deja_dos_manejadores)
{
    registra_con_ventana();
    espia oido;
    orden o;
    o.ejecuta(servicio);
    uint32_t antes = cuenta_manejadores();

    for (int n = 0; n < 3; n++)
        o.ejecuta(servicio);

    EXPECT_EQ(cuenta_manejadores(), antes + 6);
    EXPECT_EQ(o.ejecuta("nobody's"), 3u);
    EXPECT_EQ(cuenta_manejadores(), antes + 6);
}

TEST_F(iv_mcserv_orden, el_monton_no_crece_con_cada_orden)
{
    registra_con_ventana();
    espia oido;
    auto cuenta_bloques = [] {
        PROCESS_HEAP_ENTRY entrada = {};
        uint32_t num = 0;
        while (HeapWalk(s_LocalHeap, &entrada))
            num += (entrada.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? 1 : 0;
        return num;
    };
    auto ejecuta_y_libera = [&](LRESULT respuesta) {
        oido.al_enviar = [=](const mensaje &) { return respuesta; };
        orden o;
        o.ejecuta(servicio);
        for (wchar_t *&texto : o.salidas)
            if (texto != nullptr)
                iv_mem_libera_cadena_u(&texto);
    };
    ejecuta_y_libera(1);
    uint32_t antes = cuenta_bloques();

    ejecuta_y_libera(1);
    ejecuta_y_libera(2);

    EXPECT_GT(antes, 0u);
    EXPECT_EQ(cuenta_bloques(), antes);
}

// ---- Ending a server

TEST_F(iv_mcserv_canal, servidor_con_ventana_termina_por_su_mensaje)
{
    espia oido;
    captura_traza traza;
    canal.pon_u64(C_HWND_SERVIDOR, 0x1122334455667788);
    canal.pon_u32(C_MSG, 0xC123);
    std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);

    iv_mcserv_termina_servidor(servicio);

    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x1122334455667788, 0xC123, 1, 0}}));
    EXPECT_TRUE(oido.enviados.empty());
    EXPECT_TRUE(bytes_iguales(antes, canal.bytes(0, TAM_CANAL)));
    EXPECT_EQ(traza.texto().find("COMANDO"), std::string::npos);    // no command is run
}

TEST_F(iv_mcserv_orden, servidor_sin_ventana_termina_por_la_orden_1)
{
    registra_con_servidor();
    canal->pon_texto_u(C_CLIENTE_64, L"anterior");
    espia oido;
    uint32_t id_comando = 0, id_entrada = 9, estado = 0;
    std::wstring texto = L"?";
    oido.al_preguntar_activa = [&] {
        id_comando = canal->u32(C_ID_COMANDO);
        id_entrada = canal->u32(C_ID_ENTRADA);
        estado = canal->u32(C_ESTADO_COMANDO);
        texto = canal->texto_u(C_CLIENTE_64, 64);
        canal->pon_u16(C_TERMINADO, 1);    // the server has answered it
    };
    captura_traza traza;

    iv_mcserv_termina_servidor(servicio);

    EXPECT_EQ(id_comando, 1u);
    EXPECT_EQ(id_entrada, 0u);
    EXPECT_EQ(estado, 1u);
    EXPECT_EQ(texto, L"");
    EXPECT_EQ(oido.orden, "A ");
    EXPECT_TRUE(oido.publicados.empty());
    std::string registros = enmascara_tiempos(traza.texto_propio());
    EXPECT_NE(registros.find(apertura_inicio(servicio, 1, 0) + "\n"), std::string::npos) << registros;
    EXPECT_NE(registros.find(apertura_fin(servicio, 1) + "    ERROR\n"), std::string::npos) << registros;
    comprueba_libre();
}

TEST_F(iv_mcserv_canal, quien_no_es_cliente_no_termina_un_servidor_sin_ventana)
{
    espia oido;
    captura_traza traza;
    canal.pon_u32(C_ESTADO_SERVIDOR, 1);
    std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);

    iv_mcserv_termina_servidor(servicio);

    EXPECT_TRUE(bytes_iguales(antes, canal.bytes(0, TAM_CANAL)));
    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_NE(traza.texto().find(" INICIO COMANDO "), std::string::npos);
    EXPECT_EQ(traza.texto().find(" FIN COMANDO "), std::string::npos);
}

TEST_F(iv_mcserv_canal, terminar_un_servidor_sin_canal_no_hace_nada)
{
    espia oido;
    captura_traza traza;
    const char *nadie = nombre_unico("Nadie");
    const char *corto = nombre_unico("Corto");
    bloque_crudo bloque_corto(nombre_canal(corto).c_str(), 2377);
    bloque_corto.pon_u64(C_HWND_SERVIDOR, 77);

    iv_mcserv_termina_servidor(nadie);
    iv_mcserv_termina_servidor(corto);

    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_EQ(traza.texto().find("COMANDO"), std::string::npos);
    EXPECT_FALSE(existe_bloque(nombre_canal(nadie).c_str()));
}
