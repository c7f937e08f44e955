// The registry that all programs share, and the monitor: what another program sees of them, byte for byte at
// literal offsets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "comun/hilo.h"
#include "comun/informes.h"
#include "comun/informes_modulo.h"
#include "comun/papel.h"
#include "comun/traza_captura.h"
#include "comun/util.h"
#include "comun/ventana.h"

#include "iv_mcbase.h"
#include "iv_mcserv.h"
#include "iv_mem.h"

namespace {

const char *const BLOQUE = "Ivrexa_MCB";
const char *const MUTEX = "Ivrexa_Mutex_MCB";
constexpr uint32_t TAM_BLOQUE = 8886;
constexpr uint8_t SUCIO = 0x5A;

constexpr size_t en_actividad(uint32_t n) { return 22 + (n - 1) * 22; }
constexpr size_t en_programa(uint32_t i) { return 1430 + i * 274; }
constexpr size_t en_servicio(uint32_t j) { return 5814 + j * 96; }

HWND ventana_num(uint64_t n) { return reinterpret_cast<HWND>(n); }

// The bytes that a block ought to have: a copy of it, changed at the places that a test states.
class imagen {
public:
    explicit imagen(const bloque_crudo &bloque) : m_bytes(bloque.bytes(0, TAM_BLOQUE)) {}

    void u16(size_t despl, uint16_t valor) { pon(despl, &valor, sizeof valor); }
    void u32(size_t despl, uint32_t valor) { pon(despl, &valor, sizeof valor); }
    void u64(size_t despl, uint64_t valor) { pon(despl, &valor, sizeof valor); }
    void texto(size_t despl, const std::string &texto) { pon(despl, texto.c_str(), texto.size() + 1); }
    void ceros(size_t despl, size_t num) { std::fill_n(m_bytes.begin() + despl, num, uint8_t{0}); }
    const std::vector<uint8_t> &bytes() const { return m_bytes; }

private:
    void pon(size_t despl, const void *origen, size_t num) { memcpy(&m_bytes.at(despl), origen, num); }
    std::vector<uint8_t> m_bytes;
};

// The site of the hold that this process has on the registry's mutex; 0 without one.
uint32_t sitio_actual()
{
    const iv_mcbase_acceso *acceso = s_mcbase_acceso;
    if (acceso == nullptr || acceso->mutex == nullptr)
        return 0;
    int32_t nivel = acceso->mutex->nivel_bloqueo;
    return nivel < 1 || nivel > 4 ? 0 : acceso->mutex->codigos_bloqueo[nivel - 1];
}

// ---- What the window system was asked

struct aviso {
    uint64_t hwnd;
    uint32_t msg;
    uint64_t wparam, lparam;
    uint32_t sitio;         // held while it was posted
    bool mutex_libre;       // another thread could have had the mutex
};

std::vector<aviso> s_avisos;
std::vector<std::string> s_llamadas;
std::vector<uint64_t> s_ventanas_vivas;
mutex_crudo *s_mutex = nullptr;
const bloque_crudo *s_bloque = nullptr;

BOOL WINAPI apunta_aviso(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    s_avisos.push_back({reinterpret_cast<uint64_t>(hwnd), msg, wparam, static_cast<uint64_t>(lparam),
                        sitio_actual(), s_mutex->libre()});
    return TRUE;
}

BOOL WINAPI esta_viva(HWND hwnd)
{
    uint64_t n = reinterpret_cast<uint64_t>(hwnd);
    return std::count(s_ventanas_vivas.begin(), s_ventanas_vivas.end(), n) != 0 ? TRUE : FALSE;
}

// ---- Who touches the block, and under which lock

// While it lives, every instruction of this thread that touches the library's view of the block is noted with
// the site held at that moment: the view's pages are closed, and opened for the one instruction that faults.
class vigia_bloque {
public:
    vigia_bloque();
    ~vigia_bloque();
    vigia_bloque(const vigia_bloque &) = delete;
    vigia_bloque &operator=(const vigia_bloque &) = delete;

    const std::vector<uint32_t> &sitios() const { return m_sitios; }    // each once for a run of equal ones
    uint32_t num_sin_mutex() const { return m_num_sin_mutex; }          // a site stood there, but free

private:
    static LONG CALLBACK al_fallar(EXCEPTION_POINTERS *excepcion);
    bool es_del_bloque(const EXCEPTION_RECORD *r) const;
    void apunta();
    void protege(DWORD proteccion);

    static vigia_bloque *s_vigia;
    static constexpr DWORD PASO_A_PASO = 0x100;     // the trap flag
    uint8_t *m_vista;
    DWORD m_hilo;
    void *m_manejador;
    bool m_en_un_paso = false;
    std::vector<uint32_t> m_sitios;
    uint32_t m_num_sin_mutex = 0;
};

vigia_bloque *vigia_bloque::s_vigia = nullptr;

vigia_bloque::vigia_bloque()
    : m_vista(static_cast<uint8_t *>(s_mcbase_acceso->bloque->sharedmem)), m_hilo(GetCurrentThreadId())
{
    m_sitios.reserve(64);
    s_vigia = this;
    m_manejador = AddVectoredExceptionHandler(1, al_fallar);
    protege(PAGE_NOACCESS);
}

vigia_bloque::~vigia_bloque()
{
    protege(PAGE_READWRITE);
    RemoveVectoredExceptionHandler(m_manejador);
    s_vigia = nullptr;
}

void vigia_bloque::protege(DWORD proteccion)
{
    DWORD antes;
    if (!VirtualProtect(m_vista, 4 + TAM_BLOQUE, proteccion, &antes))
        ADD_FAILURE() << "the view cannot be protected: " << GetLastError();
}

bool vigia_bloque::es_del_bloque(const EXCEPTION_RECORD *r) const
{
    if (r->ExceptionCode != EXCEPTION_ACCESS_VIOLATION || GetCurrentThreadId() != m_hilo || m_en_un_paso)
        return false;
    uintptr_t vista = reinterpret_cast<uintptr_t>(m_vista);
    return vista <= r->ExceptionInformation[1] && r->ExceptionInformation[1] < vista + 4 + TAM_BLOQUE;
}

void vigia_bloque::apunta()
{
    uint32_t sitio = sitio_actual();
    if (!m_sitios.empty() && m_sitios.back() == sitio)
        return;
    m_sitios.push_back(sitio);
    if (sitio != 0 && s_mutex->libre())
        m_num_sin_mutex++;
}

LONG CALLBACK vigia_bloque::al_fallar(EXCEPTION_POINTERS *excepcion)
{
    vigia_bloque *v = s_vigia;
    if (v != nullptr && v->es_del_bloque(excepcion->ExceptionRecord)) {
        v->apunta();
        v->protege(PAGE_READWRITE);
        v->m_en_un_paso = true;
        excepcion->ContextRecord->EFlags |= PASO_A_PASO;
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    DWORD codigo = excepcion->ExceptionRecord->ExceptionCode;
    if (v != nullptr && v->m_en_un_paso && codigo == EXCEPTION_SINGLE_STEP) {
        v->m_en_un_paso = false;
        v->protege(PAGE_NOACCESS);
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

// ---- What the monitor's callbacks were told

struct llamada_monitor {
    std::string cual;
    uint32_t tipo_programa, tipo_actividad, indicador;
    const void *nombre;
    std::string texto;
    uint32_t dato1, dato2;
    const void *mcbase, *servicio;
    uint32_t estado;
    void *datos;
    DWORD hilo;
};

std::vector<llamada_monitor> s_monitor;

void al_notificar(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador,
                  const char *nombre_servicio, uint32_t dato1, uint32_t dato2, void *datos)
{
    s_monitor.push_back({"actividad", tipo_programa, tipo_actividad, indicador, nombre_servicio,
                         nombre_servicio, dato1, dato2, nullptr, nullptr, 0, datos, GetCurrentThreadId()});
}

void al_rondar_cliente(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado, void *datos)
{
    s_monitor.push_back({"cliente", 0, 0, 0, nullptr, servicio->nombre, 0, 0, mcbase, servicio, estado, datos,
                         GetCurrentThreadId()});
}

void al_rondar_servidor(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado, void *datos)
{
    s_monitor.push_back({"servidor", 0, 0, 0, nullptr, servicio->nombre, 0, 0, mcbase, servicio, estado,
                         datos, GetCurrentThreadId()});
}

int s_datos_monitor;

void registra_monitor(HWND hwnd)
{
    iv_mcbase_registra_monitor(hwnd, al_notificar, al_rondar_cliente, al_rondar_servidor, &s_datos_monitor);
}

LRESULT manda_al_monitor(UINT msg, WPARAM wparam, uint64_t lparam)
{
    return iv_mcbase_proc_monitor(ventana_num(0x77), msg, wparam, static_cast<LPARAM>(lparam));
}

UINT mensaje_monitor()
{
    return RegisterWindowMessageA("Ivrexa_Monitor_MSG");
}

}

// ---- A registry that the library itself makes. These come first: once the library has opened a block that
// was there already, the process keeps it in being until it ends.

// Obeys lines, each answered by "HECHO|result|open or closed|num_registros".
PAPEL(registro)
{
    yo.di("LISTO");
    while (std::optional<std::string> linea = yo.escucha(30000)) {
        argumentos orden = campos(*linea);
        uint32_t resultado = 0;
        if (orden[0] == "ABRE")
            iv_mcbase_abre(1, FALSO);
        else if (orden[0] == "REGISTRA")
            resultado = iv_mcbase_registra_programa(0, orden.at(1).c_str(), nullptr);
        else if (orden[0] == "QUITA")
            iv_mcbase_quita_programa(static_cast<uint16_t>(std::stoul(orden.at(1))));
        else if (orden[0] == "LIBERA")
            iv_mcbase_libera_si_vacio();
        const iv_mcbase_acceso *acceso = s_mcbase_acceso;
        yo.di(junta({"HECHO", std::to_string(resultado), acceso != nullptr ? "open" : "closed",
                     acceso != nullptr ? std::to_string(acceso->mcbase->num_registros) : "-"}));
    }
    return 0;
}

static std::string manda(papel &p, const std::string &orden)
{
    p.di(orden);
    return p.espera_linea("HECHO|", 10000).substr(6);
}

TEST(iv_mcbase_nuevo, primera_apertura_hace_un_bloque_de_8886_bytes_a_cero)
{
    ASSERT_FALSE(existe_bloque(BLOQUE));
    iv_mcbase_acceso *acceso = iv_mcbase_abre(0, FALSO);
    ASSERT_NE(acceso, nullptr);
    {
        bloque_crudo bloque(BLOQUE);
        ASSERT_TRUE(bloque.abierto());
        EXPECT_EQ(bloque.cabecera(), 8886u);
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(8886, 0), bloque.bytes(0, 8886)));
        acceso->mcbase->num_registros = 0x1234;
        EXPECT_TRUE(bytes_iguales(de_hex("34 12"), bloque.bytes(4, 2)));
    }
    EXPECT_STREQ(acceso->bloque->nombre, "Ivrexa_MCB");
    EXPECT_STREQ(acceso->bloque->tipo, "iv_mcbase_t");
    EXPECT_STREQ(acceso->mutex->nombre, "Ivrexa_Mutex_MCB");
    EXPECT_TRUE(existe_mutex(MUTEX));

    iv_mcbase_cierra();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_FALSE(existe_bloque(BLOQUE));
    EXPECT_FALSE(existe_mutex(MUTEX));
}

TEST(iv_mcbase_nuevo, quitar_el_ultimo_programa_cierra_bloque_y_mutex_sin_dejar_manejadores)
{
    auto ronda = [] {
        EXPECT_EQ(iv_mcbase_registra_programa(0, "uno", nullptr), 0);
        EXPECT_EQ(iv_mcbase_registra_programa(1, "dos", nullptr), 1);
        iv_mcbase_quita_programa(0);
        EXPECT_NE(s_mcbase_acceso, nullptr);
        EXPECT_TRUE(existe_bloque(BLOQUE));
        iv_mcbase_quita_programa(1);
        EXPECT_EQ(s_mcbase_acceso, nullptr);
        EXPECT_FALSE(existe_bloque(BLOQUE));
        EXPECT_FALSE(existe_mutex(MUTEX));
    };
    ronda();
    uint32_t antes = cuenta_manejadores();
    ronda();
    EXPECT_EQ(cuenta_manejadores(), antes);
}

TEST(iv_mcbase_nuevo, liberar_un_registro_sin_programas_lo_cierra)
{
    EXPECT_EQ(iv_mcbase_hay_monitor(1), 0);
    ASSERT_TRUE(existe_bloque(BLOQUE));

    iv_mcbase_libera_si_vacio();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_FALSE(existe_bloque(BLOQUE));
    EXPECT_FALSE(existe_mutex(MUTEX));
    iv_mcbase_libera_si_vacio();        // nothing is open now, and nothing is opened for it
    EXPECT_FALSE(existe_bloque(BLOQUE));
}

TEST(iv_mcbase_nuevo, programa_de_otro_proceso_mantiene_el_acceso)
{
    papel uno = arranca_papel("registro"), otro = arranca_papel("registro");
    EXPECT_EQ(manda(uno, "REGISTRA|uno"), "0|open|1");
    EXPECT_EQ(manda(otro, "REGISTRA|otro"), "1|open|2");

    EXPECT_EQ(manda(uno, "QUITA|0"), "0|open|2");
    EXPECT_EQ(manda(uno, "LIBERA"), "0|open|2");
    EXPECT_EQ(manda(otro, "QUITA|1"), "0|closed|-");
    EXPECT_EQ(manda(uno, "LIBERA"), "0|closed|-");
}

TEST(iv_mcbase_nuevo, bloque_nuevo_solo_cuando_todos_lo_han_cerrado)
{
    papel uno = arranca_papel("registro"), otro = arranca_papel("registro");
    EXPECT_EQ(manda(uno, "REGISTRA|uno"), "0|open|1");
    EXPECT_EQ(manda(otro, "ABRE"), "0|open|1");

    EXPECT_EQ(manda(uno, "QUITA|0"), "0|closed|-");     // the last program of all, but another has it open
    EXPECT_TRUE(existe_bloque(BLOQUE));
    EXPECT_EQ(manda(uno, "REGISTRA|uno"), "0|open|2");

    uno.mata();
    otro.mata();
    EXPECT_TRUE(espera_hasta([] { return !existe_bloque(BLOQUE) && !existe_mutex(MUTEX); }, 5000));
    papel nuevo = arranca_papel("registro");
    EXPECT_EQ(manda(nuevo, "REGISTRA|nuevo"), "0|open|1");
}

TEST(iv_mcbase_nuevo, cada_proceso_se_cuenta_una_vez)
{
    papel uno = arranca_papel("registro"), otro = arranca_papel("registro"), mudo = arranca_papel("registro");
    EXPECT_EQ(manda(uno, "REGISTRA|a"), "0|open|1");
    EXPECT_EQ(manda(uno, "REGISTRA|b"), "1|open|1");
    EXPECT_EQ(manda(mudo, "ABRE"), "0|open|1");
    EXPECT_EQ(manda(otro, "REGISTRA|c"), "2|open|2");
    EXPECT_EQ(manda(mudo, "REGISTRA|d"), "3|open|2");   // it was open already
}

// A block of another size, made by a program that does not keep to the format. Arguments: bytes of the block,
// bytes that its header states, "open" when the registry can be used.
PAPEL(bloque_raro)
{
    bloque_crudo bloque(BLOQUE, std::stoul(args.at(0)));
    EXPECT_FALSE(bloque.ya_existia());
    bloque.pon_cabecera(std::stoul(args.at(1)));
    iv_ventana()->PostMessageW = [](HWND, UINT, WPARAM, LPARAM) -> BOOL { return FALSE; };
    iv_ventana()->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };

    bool abierto = iv_mcbase_abre(0, CIERTO) != nullptr;
    EXPECT_EQ(abierto, args.at(2) == "open");
    if (!abierto) {
        EXPECT_EQ(s_mcbase_acceso, nullptr);
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 16);
        uint32_t ind = 7;
        iv_mcbase_registra_servidor_de_servicio(0, "Calc", &ind);
        EXPECT_EQ(ind, 32u);
        ind = 7;
        iv_mcbase_registra_cliente_de_servicio(0, "Calc", &ind);
        EXPECT_EQ(ind, 32u);
        char nombre[64] = "intacto";
        EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("", nombre), 0);
        EXPECT_STREQ(nombre, "intacto");
        EXPECT_EQ(iv_mcbase_hay_monitor(0), 0);
        iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
        iv_mcbase_inicia_comando(0, 100);
        iv_mcbase_termina_comando(0, 100);
        iv_mcbase_quita_programa(0);
        iv_mcbase_libera_si_vacio();
        registra_monitor(ventana_num(0x1234));
        iv_mcbase_quita_monitor();
        iv_mcserv_t canal = {};
        EXPECT_EQ(iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(0, &canal), 1);
        std::vector<uint8_t> datos = bloque.bytes(0, std::stoul(args.at(0)));
        EXPECT_EQ(std::count(datos.begin(), datos.end(), 0), static_cast<ptrdiff_t>(datos.size()));
    } else {
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
        EXPECT_EQ(bloque.u16(4), 1);
        EXPECT_EQ(bloque.texto(1430, 256), "programa");
    }
    EXPECT_EQ(bloque.cabecera(), std::stoul(args.at(1)));
    yo.di("LISTO");
    return 0;
}

TEST(iv_mcbase_nuevo, bloque_pequenyo_o_de_cabecera_falsa_no_se_abre)
{
    const std::vector<argumentos> casos = {
        {"8886", "8886", "open"},
        {"20000", "20000", "open"},
        {"8886", "4294967295", "open"},         // cut to what the view holds, which is enough
        {"8886", "8885", "closed"},
        {"8886", "0", "closed"},
        {"100", "100", "closed"},
        {"100", "8886", "closed"},              // a view of one page
        {"4092", "4294967295", "closed"},
        {"8184", "8886", "closed"},             // two pages
    };
    for (const argumentos &caso : casos) {
        SCOPED_TRACE(caso[0] + " bytes, header " + caso[1]);
        EXPECT_EQ(arranca_papel("bloque_raro", caso).espera_fin(20000), 0u);
        EXPECT_TRUE(espera_hasta([] { return !existe_bloque(BLOQUE); }, 5000));
    }
}

// Four threads start together; `primera` is what each does.
static void a_la_vez(const std::function<void(uint32_t)> &primera)
{
    HANDLE salida = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::vector<std::unique_ptr<hilo>> hilos;
    for (uint32_t h = 0; h < 4; h++)
        hilos.push_back(std::make_unique<hilo>([&, h] {
            WaitForSingleObject(salida, 10000);
            primera(h);
        }));
    SetEvent(salida);
    hilos.clear();                      // waits for them
    CloseHandle(salida);
}

TEST(iv_mcbase_nuevo, hilos_que_abren_a_la_vez_hacen_un_solo_acceso_y_cuentan_una_vez)
{
    for (uint32_t ronda = 0; ronda < 40; ronda++) {
        iv_mcbase_acceso *accesos[4] = {};
        a_la_vez([&](uint32_t h) { accesos[h] = iv_mcbase_abre(0, CIERTO); });

        ASSERT_NE(s_mcbase_acceso, nullptr);
        for (iv_mcbase_acceso *acceso : accesos)
            EXPECT_EQ(acceso, s_mcbase_acceso);
        ASSERT_EQ(s_mcbase_acceso->mcbase->num_registros, 1) << "round " << ronda;
        iv_mcbase_cierra();
        ASSERT_FALSE(existe_bloque(BLOQUE)) << "round " << ronda;
    }
}

TEST(iv_mcbase_nuevo, hilos_que_se_registran_a_la_vez_tienen_entradas_distintas)
{
    uint16_t ids[4] = {};
    const char *const nombres[4] = {"a", "b", "c", "d"};
    a_la_vez([&](uint32_t h) { ids[h] = iv_mcbase_registra_programa(0, nombres[h], nullptr); });

    std::sort(ids, ids + 4);
    for (uint16_t i = 0; i < 4; i++)
        EXPECT_EQ(ids[i], i);
    for (uint16_t i = 0; i < 4; i++)
        iv_mcbase_quita_programa(i);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

TEST(iv_mcbase_nuevo, quitar_el_monitor_sin_programas_cierra_el_registro)
{
    HWND hwnd = crea_ventana();
    ASSERT_NE(hwnd, nullptr);
    registra_monitor(hwnd);
    ASSERT_TRUE(existe_bloque(BLOQUE));

    iv_mcbase_quita_monitor();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_FALSE(existe_bloque(BLOQUE));
    EXPECT_FALSE(existe_mutex(MUTEX));
    destruye_ventana(&hwnd);
}

// ---- A registry that another program holds open: every byte dirty but the header; no program, no service.

class iv_mcbase : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_bloque.abierto());
        m_bloque.pon_cabecera(TAM_BLOQUE);
        m_bloque.pon_bytes(0, std::vector<uint8_t>(TAM_BLOQUE, SUCIO));
        m_bloque.pon_bytes(0, std::vector<uint8_t>(22, 0));
        for (uint32_t i = 0; i < 16; i++)
            m_bloque.pon_bytes(en_programa(i), {0});
        for (uint32_t j = 0; j < 32; j++)
            m_bloque.pon_bytes(en_servicio(j), {0});
        s_avisos.clear();
        s_llamadas.clear();
        s_monitor.clear();
        s_ventanas_vivas.clear();
        s_mutex = &m_mutex;
        s_bloque = &m_bloque;
        iv_ventana()->PostMessageW = apunta_aviso;
    }

    void TearDown() override
    {
        const iv_mcbase_acceso *acceso = s_mcbase_acceso;
        if (acceso != nullptr)
            EXPECT_EQ(acceso->mutex->nivel_bloqueo, 0);
        EXPECT_TRUE(m_mutex.libre()) << "somebody still holds the registry's mutex";
        if (s_programa_monitor != nullptr)
            iv_mcbase_quita_monitor();
        iv_mcbase_cierra();
    }

    // A registered program, as the block shows it.
    void pon_programa(uint32_t i, const std::string &nombre, uint64_t hwnd, uint16_t servidor = 0,
                      uint16_t cliente = 0, uint16_t monitor = 0, uint32_t contador = 0)
    {
        m_bloque.pon_texto(en_programa(i), nombre);
        m_bloque.pon_u64(en_programa(i) + 256, hwnd);
        m_bloque.pon_u16(en_programa(i) + 264, servidor);
        m_bloque.pon_u16(en_programa(i) + 266, cliente);
        m_bloque.pon_u16(en_programa(i) + 268, monitor);
        m_bloque.pon_u32(en_programa(i) + 270, contador);
    }

    void pon_servicio(uint32_t j, const std::string &nombre) { m_bloque.pon_texto(en_servicio(j), nombre); }

    void pon_monitor(uint64_t hwnd = 0x1234, uint32_t msg = 0xC001)
    {
        m_bloque.pon_u16(0, 8886);
        m_bloque.pon_u16(2, 256);
        m_bloque.pon_u64(6, hwnd);
        m_bloque.pon_u32(14, msg);
        m_bloque.pon_u32(18, 1);
    }

    // The entry of a program that is new there: what is not stated here stays.
    static void espera_programa_nuevo(imagen *esperada, uint32_t i, const std::string &nombre, uint64_t hwnd,
                                      uint32_t tipo)
    {
        esperada->texto(en_programa(i), nombre);
        esperada->u64(en_programa(i) + 256, hwnd);
        esperada->ceros(en_programa(i) + 264, 6);
        esperada->u16(en_programa(i) + 264 + 2 * tipo, 1);
    }

    void comprueba(const imagen &esperada, lugar donde = lugar::aqui()) const
    {
        ::testing::AssertionResult iguales = bytes_iguales(esperada.bytes(), m_bloque.bytes(0, TAM_BLOQUE));
        if (!iguales)
            ADD_FAILURE_AT(donde.fichero, donde.linea) << iguales.message();
    }

    static iv_mcbase_vista *vista() { return iv_mcbase_abre(0, FALSO)->mcbase; }

    bloque_crudo m_bloque{BLOQUE, TAM_BLOQUE};
    mutex_crudo m_mutex{MUTEX, mutex_crudo::modo::crea};
    ventana_cambiada m_ventana;
    HWND m_hwnd = nullptr;
};

// ---- Access

TEST_F(iv_mcbase, apertura_da_siempre_el_mismo_acceso_sea_cual_sea_el_tipo)
{
    iv_mcbase_acceso *acceso = iv_mcbase_abre(0, FALSO);
    ASSERT_NE(acceso, nullptr);
    EXPECT_EQ(s_mcbase_acceso, acceso);
    EXPECT_EQ(iv_mcbase_abre(1, CIERTO), acceso);
    EXPECT_EQ(iv_mcbase_abre(2, FALSO), acceso);
    EXPECT_EQ(iv_mcbase_abre(77, CIERTO), acceso);
    EXPECT_EQ(static_cast<const volatile void *>(acceso->mcbase), iv_shared_datos(acceso->bloque));
    EXPECT_EQ(m_bloque.u16(4), 0);      // the first open did not register
}

TEST_F(iv_mcbase, apertura_no_toca_un_bloque_que_ya_estaba)
{
    m_bloque.pon_bytes(0, std::vector<uint8_t>(TAM_BLOQUE, SUCIO));
    imagen esperada(m_bloque);

    iv_mcbase_abre(0, FALSO);
    comprueba(esperada);

    iv_mcbase_cierra();
    iv_mcbase_abre(2, CIERTO);
    esperada.u16(4, 0x5A5B);
    comprueba(esperada);
}

TEST_F(iv_mcbase, solo_los_registros_de_programa_de_cliente_y_de_monitor_cuentan_al_abrir)
{
    struct {
        const char *nombre;
        uint16_t cuenta;
        std::function<void()> operacion;
    } const casos[] = {
        {"open, not registering", 0, [] { iv_mcbase_abre(0, FALSO); }},
        {"open, registering", 1, [] { iv_mcbase_abre(0, CIERTO); }},
        {"open with another truth value", 0, [] { iv_mcbase_abre(0, 2); }},
        {"program", 1, [] { iv_mcbase_registra_programa(0, "programa", nullptr); }},
        {"client of a service", 1, [] { iv_mcbase_registra_cliente_de_servicio(16, "Calc", nullptr); }},
        {"server of a service", 0, [] { iv_mcbase_registra_servidor_de_servicio(16, "Calc", nullptr); }},
        {"monitor", 1, [] { registra_monitor(ventana_num(0x1234)); }},
        {"monitor there?", 0, [] { iv_mcbase_hay_monitor(0); }},
        {"activity", 0, [] { iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0); }},
        {"prefix", 0, [] { char nombre[64]; iv_mcbase_hay_servicio_registrado_empiece_por("x", nombre); }},
        {"command begins", 0, [] { iv_mcbase_inicia_comando(0, 100); }},
        {"command ends", 0, [] { iv_mcbase_termina_comando(0, 100); }},
    };
    m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        m_bloque.pon_u16(4, 500);
        caso.operacion();
        ASSERT_NE(s_mcbase_acceso, nullptr);
        EXPECT_EQ(m_bloque.u16(4), 500 + caso.cuenta);
        iv_mcbase_registra_programa(1, "programa", nullptr);    // the access is made already: counts nothing
        EXPECT_EQ(m_bloque.u16(4), 500 + caso.cuenta);
        if (s_programa_monitor != nullptr)
            iv_mcbase_quita_monitor();
        iv_mcbase_cierra();
    }
}

TEST_F(iv_mcbase, num_registros_da_la_vuelta_a_los_16_bits)
{
    imagen esperada(m_bloque);
    m_bloque.pon_u16(4, 65535);
    iv_mcbase_abre(0, CIERTO);
    comprueba(esperada);
}

TEST_F(iv_mcbase, num_registros_se_cuenta_sin_esperar_al_mutex)
{
    ASSERT_TRUE(m_mutex.retiene());
    EXPECT_NE(iv_mcbase_abre(0, CIERTO), nullptr);      // would wait for ever
    EXPECT_EQ(m_bloque.u16(4), 1);
    m_mutex.suelta();
}

TEST_F(iv_mcbase, mutex_es_el_del_mismo_nombre_que_ya_tenia_otro)
{
    pon_servicio(5, "Calc");
    ASSERT_TRUE(m_mutex.retiene());
    hilo otro([] { iv_mcbase_inicia_comando(5, 100); });

    EXPECT_FALSE(otro.acaba(100));
    EXPECT_EQ(m_bloque.u32(en_servicio(5) + 80), 0x5A5A5A5Au);
    m_mutex.suelta();
    EXPECT_TRUE(otro.acaba(10000));
    EXPECT_EQ(m_bloque.u32(en_servicio(5) + 80), 100u);
}

TEST_F(iv_mcbase, cada_operacion_toca_el_bloque_solo_bajo_el_mutex_y_en_su_sitio)
{
    pon_programa(0, "programa", 0, 1);
    pon_programa(1, "otro", 0, 1);
    pon_servicio(0, "Calc");
    m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };
    iv_mcserv_t canal = {};
    struct {
        const char *nombre;
        std::vector<uint32_t> sitios;
        std::function<void()> operacion;
    } const casos[] = {
        {"release", {1}, [] { iv_mcbase_libera_si_vacio(); }},
        {"monitor", {2}, [] { registra_monitor(ventana_num(0x1234)); }},
        {"monitor there?", {4}, [] { iv_mcbase_hay_monitor(0); }},
        {"activity", {5}, [] { iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0); }},
        {"prefix", {6}, [] { char nombre[64]; iv_mcbase_hay_servicio_registrado_empiece_por("Ca", nombre); }},
        {"program", {7}, [] { iv_mcbase_registra_programa(2, "programa", nullptr); }},
        {"client", {8}, [] { iv_mcbase_registra_cliente_de_servicio(0, "Calc", nullptr); }},
        {"server", {9}, [] { iv_mcbase_registra_servidor_de_servicio(0, "Calc", nullptr); }},
        {"command begins", {10}, [] { iv_mcbase_inicia_comando(0, 100); }},
        {"command ends", {11}, [] { iv_mcbase_termina_comando(0, 100); }},
        {"client round", {12}, [&] { iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(0, &canal); }},
        {"server round", {13}, [&] { iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(0, &canal); }},
        {"heartbeat", {14}, [] { iv_mcbase_estoy_vivo(0); }},           // waits 2 s
        {"monitor's message", {0}, [] { manda_al_monitor(s_programa_monitor->msg_monitor, 0, 1); }},
        {"monitor's round message", {}, [] { manda_al_monitor(s_programa_monitor->msg_monitor, 1, 40); }},
        {"removal", {15, 1}, [] { iv_mcbase_quita_programa(0); }},
        {"monitor's end", {3, 1}, [] { iv_mcbase_quita_monitor(); }},
    };
    iv_mcbase_abre(0, FALSO);
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        vigia_bloque vigia;
        caso.operacion();
        EXPECT_EQ(vigia.sitios(), caso.sitios);
        EXPECT_EQ(vigia.num_sin_mutex(), 0u);
        EXPECT_TRUE(m_mutex.libre());
    }
}

TEST_F(iv_mcbase, cierre_de_sesion_cierra_el_acceso_y_el_siguiente_registro_vuelve_a_contar)
{
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
    EXPECT_EQ(m_bloque.u16(4), 1);

    ivrexa_cierra_sesion();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
    EXPECT_EQ(m_bloque.texto(en_programa(0), 256), "programa");     // not this process's to clear
    EXPECT_EQ(iv_mcbase_registra_programa(0, "otro", nullptr), 1);
    EXPECT_EQ(m_bloque.u16(4), 2);
}

// An operation of another thread is under way, inside the lock: its post to the monitor takes a while.
static HANDLE s_dentro;
static volatile bool s_acabado;

TEST_F(iv_mcbase, cierre_espera_a_la_operacion_de_otro_hilo)
{
    pon_monitor();
    iv_mcbase_abre(0, FALSO);
    s_dentro = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    s_acabado = false;
    m_ventana->PostMessageW = [](HWND, UINT, WPARAM, LPARAM) -> BOOL {
        SetEvent(s_dentro);
        Sleep(100);                     // well below the bound of the closing thread's wait
        s_acabado = true;
        return TRUE;
    };
    iv_mcserv_t canal = {};
    hilo otro([&] { iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(0, &canal); });
    EXPECT_EQ(WaitForSingleObject(s_dentro, 10000), WAIT_OBJECT_0);

    iv_mcbase_cierra();

    EXPECT_TRUE(s_acabado);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_TRUE(otro.acaba(10000));
    CloseHandle(s_dentro);
}

// ---- Programs

TEST_F(iv_mcbase, programa_nuevo_toma_la_primera_entrada_libre_y_conserva_su_contador)
{
    pon_programa(0, "a", 0);
    pon_programa(2, "b", 0);
    imagen esperada(m_bloque);
    esperada.u16(4, 1);

    EXPECT_EQ(iv_mcbase_registra_programa(0, "C:\\uno.exe", ventana_num(0x1122334455667788)), 1);
    espera_programa_nuevo(&esperada, 1, "C:\\uno.exe", 0x1122334455667788, 0);
    comprueba(esperada);
    EXPECT_EQ(m_bloque.u32(en_programa(1) + 270), 0x5A5A5A5Au);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "C:\\dos.exe", nullptr), 3);
    espera_programa_nuevo(&esperada, 3, "C:\\dos.exe", 0, 1);
    EXPECT_EQ(iv_mcbase_registra_programa(2, "C:\\tres.exe", nullptr), 4);
    espera_programa_nuevo(&esperada, 4, "C:\\tres.exe", 0, 2);
    comprueba(esperada);
}

TEST_F(iv_mcbase, mismo_nombre_y_misma_ventana_es_el_mismo_programa_y_suma_sus_tipos)
{
    m_ventana->IsWindow = [](HWND) -> BOOL { ADD_FAILURE() << "nothing to ask"; return FALSE; };
    pon_programa(6, "programa", 0x1234, 0, 0, 0, 77);
    imagen esperada(m_bloque);
    esperada.u16(4, 1);
    for (uint32_t tipo : {0u, 1u, 2u, 1u}) {        // the free entries before it do not matter
        EXPECT_EQ(iv_mcbase_registra_programa(tipo, "programa", ventana_num(0x1234)), 6);
        esperada.u16(en_programa(6) + 264 + 2 * tipo, 1);
        comprueba(esperada);
    }
}

TEST_F(iv_mcbase, nombre_de_ventana_muerta_pasa_al_nuevo_con_sus_tipos_y_su_contador)
{
    m_ventana->IsWindow = esta_viva;
    pon_programa(3, "programa", 0x1111, 1, 0, 1, 0xFFFFFFFF);
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "programa", ventana_num(0x2222)), 3);

    esperada.u16(4, 1);
    esperada.u64(en_programa(3) + 256, 0x2222);
    esperada.u16(en_programa(3) + 266, 1);
    comprueba(esperada);
}

TEST_F(iv_mcbase, quien_tiene_un_nombre_se_decide_por_su_ventana)
{
    m_ventana->IsWindow = esta_viva;
    s_ventanas_vivas = {0x1111, 0x3333};
    struct {
        const char *nombre;
        uint64_t guardada, dada;
        uint16_t esperado;
    } const casos[] = {
        {"same window", 0x1111, 0x1111, 2},
        {"same window, dead", 0x2222, 0x2222, 2},
        {"none and none: two windowless programs share", 0, 0, 2},
        {"another live window", 0x1111, 0x3333, 0},
        {"dead window", 0x2222, 0x3333, 2},
        {"dead window, new one dead too", 0x2222, 0x4444, 2},
        {"windowless holder gives way to a window", 0, 0x3333, 2},
        {"windowless newcomer against a live window", 0x1111, 0, 0},
        {"windowless newcomer against a dead window", 0x2222, 0, 0},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        SetUp();
        s_ventanas_vivas = {0x1111, 0x3333};
        pon_programa(2, "programa", caso.guardada, 1, 0, 0, 9);
        iv_mcbase_abre(0, FALSO);
        imagen esperada(m_bloque);
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(caso.dada)), caso.esperado);
        if (caso.esperado == 2)
            esperada.u64(en_programa(2) + 256, caso.dada);
        else
            espera_programa_nuevo(&esperada, 0, "programa", caso.dada, 0);
        comprueba(esperada);
    }
}

TEST_F(iv_mcbase, la_busqueda_sigue_tras_un_nombre_vivo_hasta_el_propio)
{
    m_ventana->IsWindow = esta_viva;
    s_ventanas_vivas = {0x1111, 0x2222};
    pon_programa(0, "programa", 0x1111);
    pon_programa(4, "programa", 0x2222);
    pon_programa(9, "programa", 0x3333);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(0x2222)), 4);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(0x4444)), 9);      // the dead one's
    s_ventanas_vivas.push_back(0x4444);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(0x5555)), 1);
}

TEST_F(iv_mcbase, ventanas_de_verdad_viva_y_destruida)
{
    m_ventana->IsWindow = m_ventana.antes().IsWindow;
    HWND viva = crea_ventana(), otra = crea_ventana(), nueva = crea_ventana();
    ASSERT_TRUE(viva != nullptr && otra != nullptr && nueva != nullptr);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", viva), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", otra), 1);
    destruye_ventana(&viva);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nueva), 0);
    destruye_ventana(&otra);
    destruye_ventana(&nueva);
}

TEST_F(iv_mcbase, nombres_de_programa_se_comparan_enteros_y_con_mayusculas)
{
    pon_programa(5, "Programa", 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "Program", nullptr), 1);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "Programa2", nullptr), 2);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "Programa", nullptr), 5);
}

TEST_F(iv_mcbase, nombre_de_programa_guarda_255_caracteres)
{
    const std::string justo(255, 'j'), largo(256, 'l');
    iv_mcbase_abre(0, FALSO);
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_registra_programa(0, justo.c_str(), nullptr), 0);
    espera_programa_nuevo(&esperada, 0, justo, 0, 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, justo.c_str(), nullptr), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, largo.c_str(), nullptr), 1);
    espera_programa_nuevo(&esperada, 1, largo.substr(0, 255), 0, 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, largo.c_str(), nullptr), 2);   // what was kept is another name
    espera_programa_nuevo(&esperada, 2, largo.substr(0, 255), 0, 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, largo.substr(0, 255).c_str(), nullptr), 1);
    comprueba(esperada);
}

TEST_F(iv_mcbase, programa_17_se_informa_y_no_escribe_nada)
{
    m_ventana->IsWindow = esta_viva;
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(iv_mcbase_registra_programa(0, ("p" + std::to_string(i)).c_str(), ventana_num(0x1111)), i);
    EXPECT_SIN_INFORMES();
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "p16", ventana_num(0x1111)), 16);
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    comprueba(esperada);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "p15", ventana_num(0x1111)), 15);  // who is there needs no place
    EXPECT_EQ(iv_mcbase_registra_programa(1, "p7", ventana_num(0x2222)), 7);
    esperada.u16(en_programa(15) + 266, 1);
    esperada.u16(en_programa(7) + 266, 1);
    esperada.u64(en_programa(7) + 256, 0x2222);
    comprueba(esperada);
}

TEST_F(iv_mcbase, nombre_sin_final_en_el_bloque_se_lee_acotado)
{
    for (uint32_t i = 0; i < 16; i++)
        pon_programa(i, "x", 0x7878787878787878);
    for (uint32_t i = 0; i < 16; i++)
        m_bloque.pon_bytes(en_programa(i), std::vector<uint8_t>(256, 'x'));
    imagen esperada(m_bloque);
    esperada.u16(4, 1);
    esperada.u16(en_programa(0) + 264, 1);
    HWND hwnd = ventana_num(0x7878787878787878);
    EXPECT_EQ(iv_mcbase_registra_programa(0, std::string(255, 'x').c_str(), hwnd), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, std::string(256, 'x').c_str(), hwnd), 16);
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    comprueba(esperada);
}

TEST_F(iv_mcbase, quitar_un_programa_vacia_su_entrada_y_deja_sus_servicios)
{
    pon_programa(0, "uno", 0x1111, 1, 1, 1, 5);
    pon_programa(15, "dos", 0x2222, 1, 1, 1, 6);
    pon_servicio(0, "Calc");
    m_bloque.pon_u16(en_servicio(0) + 64, 15);
    iv_mcbase_abre(0, FALSO);
    imagen esperada(m_bloque);

    iv_mcbase_quita_programa(15);

    esperada.ceros(en_programa(15), 1);
    esperada.ceros(en_programa(15) + 256, 18);
    comprueba(esperada);
    EXPECT_NE(s_mcbase_acceso, nullptr);
}

TEST_F(iv_mcbase, quitar_un_indice_de_16_o_mas_o_sin_acceso_no_hace_nada)
{
    pon_programa(0, "uno", 0x1111, 1, 1, 1, 5);
    imagen esperada(m_bloque);
    iv_mcbase_quita_programa(0);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    comprueba(esperada);

    m_bloque.pon_bytes(en_programa(0), {0});
    esperada.ceros(en_programa(0), 1);
    iv_mcbase_abre(0, FALSO);
    iv_mcbase_quita_programa(16);
    iv_mcbase_quita_programa(65535);
    comprueba(esperada);
    EXPECT_NE(s_mcbase_acceso, nullptr);        // not even released, though it is empty
    iv_mcbase_quita_programa(3);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

TEST_F(iv_mcbase, programa_quitado_dos_sin_ventana_de_un_nombre_se_van_a_la_vez)
{
    EXPECT_EQ(iv_mcbase_registra_programa(0, "mismo", nullptr), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(1, "mismo", nullptr), 0);
    iv_mcbase_quita_programa(0);
    EXPECT_EQ(m_bloque.texto(en_programa(0), 256), "");
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

// ---- Heartbeat

TEST_F(iv_mcbase, latido_cuenta_uno_tras_dos_segundos_y_para_sin_entrada)
{
    pon_programa(3, "uno", 0, 1, 0, 0, 41);
    pon_programa(15, "dos", 0, 1, 0, 0, 0xFFFFFFFF);
    imagen esperada(m_bloque);
    esperada.u32(en_programa(3) + 270, 42);
    esperada.u32(en_programa(15) + 270, 0);
    i_free(i_malloc(1));                            // who beats has a heap; without one it would stop
    const uint16_t ids[] = {3, 15, 16, 65535};      // each beat sleeps 2 s, so all of them at once
    int16_t paradas[4] = {7, 7, 7, 7};
    uint64_t ms[4] = {};
    std::vector<std::unique_ptr<hilo>> hilos;
    for (uint32_t h = 0; h < 4; h++)
        hilos.push_back(std::make_unique<hilo>([&, h] {
            uint64_t inicio = GetTickCount64();
            paradas[h] = iv_mcbase_estoy_vivo(ids[h]);
            ms[h] = GetTickCount64() - inicio;
        }));
    hilos.clear();                                  // waits for them

    const int16_t esperadas[4] = {0, 0, 1, 1};
    for (uint32_t h = 0; h < 4; h++) {
        EXPECT_EQ(paradas[h], esperadas[h]) << ids[h];
        EXPECT_GE(ms[h], 1980u) << ids[h];          // the tick count is coarse
        EXPECT_LT(ms[h], 8000u) << ids[h];
    }
    comprueba(esperada);
    EXPECT_NE(s_mcbase_acceso, nullptr);            // opened for it, without counting as a registration
}

TEST_F(iv_mcbase, latido_para_cuando_la_sesion_se_ha_cerrado)
{
    pon_programa(3, "uno", 0, 1, 0, 0, 41);
    iv_mcbase_abre(0, FALSO);
    ivrexa_cierra_sesion();
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_estoy_vivo(3), 1);

    comprueba(esperada);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
}

PAPEL(latido_con_traza)
{
    captura_traza traza;
    iv_mcbase_registra_programa(0, "programa", nullptr);
    traza.borra();
    yo.di("LISTO");
    hilo latido([] { iv_mcbase_estoy_vivo(16); });
    EXPECT_FALSE(traza.espera("ESTOY VIVO", 1500));     // the record follows the sleep
    EXPECT_TRUE(latido.acaba(10000));
    EXPECT_EQ(enmascara_tiempos(traza.texto()), "\n*** <t>:  ESTOY VIVO 16\n");
    traza.borra();
    iv_mcbase_estoy_vivo(0);
    EXPECT_EQ(enmascara_tiempos(traza.texto()), "\n*** <t>:  ESTOY VIVO 0\n");
    return 0;
}

TEST_F(iv_mcbase, latido_deja_su_traza_tambien_sin_entrada)
{
    opciones_papel con_traza;
    con_traza.entorno["IVREXA_DEBUG"] = "1";
    EXPECT_EQ(arranca_papel("latido_con_traza", {}, con_traza).espera_fin(20000), 0u);
}

TEST_F(iv_mcbase, latido_de_un_indice_de_16_o_mas_se_lee_como_0)
{
    pon_programa(15, "p", 0, 0, 0, 0, 0xFFFFFFFF);
    EXPECT_EQ(iv_mcbase_latido(vista(), 15), 0xFFFFFFFFu);
    EXPECT_EQ(iv_mcbase_latido(vista(), 14), 0x5A5A5A5Au);
    EXPECT_EQ(iv_mcbase_latido(vista(), 16), 0u);
    EXPECT_EQ(iv_mcbase_latido(vista(), 65535), 0u);
}

// ---- Services

TEST_F(iv_mcbase, busqueda_da_indice_y_primera_entrada_libre)
{
    for (uint32_t j : {0u, 1u, 3u})
        pon_servicio(j, "Otro" + std::to_string(j));
    pon_servicio(31, "Calc");
    imagen esperada(m_bloque);
    uint32_t libre = 99;
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Calc", &libre), 31u);
    EXPECT_EQ(libre, 2u);
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Otro3", nullptr), 3u);
    for (const char *ausente : {"calc", "Cal", "Calcu", ""}) {
        libre = 99;
        EXPECT_EQ(iv_mcbase_busca_servicio(vista(), ausente, &libre), 32u) << ausente;
        EXPECT_EQ(libre, 2u) << ausente;
    }
    comprueba(esperada);
    for (uint32_t j = 0; j < 32; j++)
        pon_servicio(j, "s" + std::to_string(j));
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "s0", nullptr), 0u);
    EXPECT_EQ(iv_mcbase_busca_servicio(vista(), "Calc", &libre), 32u);
    EXPECT_EQ(libre, 32u);
}

TEST_F(iv_mcbase, buscar_o_anyadir_escribe_solo_el_nombre)
{
    pon_servicio(0, "Otro");
    pon_servicio(2, "Calc");
    imagen esperada(m_bloque);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "Calc"), 2u);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(1, vista(), "Nuevo"), 1u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "Nuevo"), 1u);
    esperada.texto(en_servicio(1), "Nuevo");
    comprueba(esperada);
}

TEST_F(iv_mcbase, nombre_de_servicio_guarda_63_caracteres)
{
    const std::string justo(63, 'j'), largo(64, 'l');
    imagen esperada(m_bloque);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), justo.c_str()), 0u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), justo.c_str()), 0u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), largo.c_str()), 1u);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), largo.c_str()), 2u);    // kept was another name
    esperada.texto(en_servicio(0), justo);
    esperada.texto(en_servicio(1), largo.substr(0, 63));
    esperada.texto(en_servicio(2), largo.substr(0, 63));
    comprueba(esperada);
}

TEST_F(iv_mcbase, servicio_33_se_informa_y_no_escribe_nada)
{
    for (uint32_t j = 0; j < 32; j++)
        EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), ("s" + std::to_string(j)).c_str()), j);
    EXPECT_SIN_INFORMES();
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "s32"), 32u);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    uint32_t ind = 7;
    iv_mcbase_registra_servidor_de_servicio(16, "s32", &ind);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    EXPECT_EQ(ind, 32u);
    ind = 7;
    iv_mcbase_registra_cliente_de_servicio(16, "s32", &ind);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    EXPECT_EQ(ind, 32u);
    iv_mcbase_anota_actividad(0, 1, 1, "s32", 0, 0);
    EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_busca_o_anyade_servicio(0, vista(), "s31"), 31u);
}

TEST_F(iv_mcbase, quitar_un_servicio_vacia_solo_el_primer_byte)
{
    pon_servicio(0, "Otro");
    pon_servicio(9, "Calc");
    imagen esperada(m_bloque);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, vista(), "Nada"), 32u);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, vista(), "Calc"), 9u);
    esperada.ceros(en_servicio(9), 1);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_quita_servicio(0, vista(), "Calc"), 32u);
}

TEST_F(iv_mcbase, servidor_de_servicio_borra_los_12_bytes_desde_68)
{
    pon_programa(3, "servidor", 0, 1);
    pon_servicio(4, "Calc");
    imagen esperada(m_bloque);
    uint32_t ind = 99;

    iv_mcbase_registra_servidor_de_servicio(3, "Calc", &ind);
    EXPECT_EQ(ind, 4u);
    esperada.u16(en_servicio(4) + 64, 3);
    esperada.ceros(en_servicio(4) + 68, 12);
    comprueba(esperada);

    iv_mcbase_registra_servidor_de_servicio(3, "Nuevo", nullptr);
    esperada.texto(en_servicio(0), "Nuevo");
    esperada.u16(en_servicio(0) + 64, 3);
    esperada.ceros(en_servicio(0) + 68, 12);
    comprueba(esperada);
}

TEST_F(iv_mcbase, cliente_de_servicio_borra_los_16_bytes_desde_80_y_el_ultimo_queda)
{
    pon_programa(3, "uno", 0, 0, 1);
    pon_programa(5, "dos", 0, 0, 1);
    pon_servicio(4, "Calc");
    imagen esperada(m_bloque);
    esperada.u16(4, 1);
    uint32_t ind = 99;

    iv_mcbase_registra_cliente_de_servicio(3, "Calc", &ind);
    EXPECT_EQ(ind, 4u);
    esperada.u16(en_servicio(4) + 66, 3);
    esperada.ceros(en_servicio(4) + 80, 16);
    comprueba(esperada);

    m_bloque.pon_u32(en_servicio(4) + 92, 77);
    iv_mcbase_registra_cliente_de_servicio(5, "Calc", nullptr);
    esperada.u16(en_servicio(4) + 66, 5);
    comprueba(esperada);

    iv_mcbase_registra_cliente_de_servicio(16, "Nuevo", &ind);      // 16 is no program: it has no entry
    EXPECT_EQ(ind, 0u);
    esperada.texto(en_servicio(0), "Nuevo");
    esperada.u16(en_servicio(0) + 66, 16);
    esperada.ceros(en_servicio(0) + 80, 16);
    comprueba(esperada);
}

TEST_F(iv_mcbase, servidor_que_se_hace_cliente_de_un_servicio_lleva_los_dos_tipos)
{
    pon_programa(3, "servidor", 0, 1, 0, 0, 8);
    pon_servicio(4, "Calc");
    imagen esperada(m_bloque);
    iv_mcbase_registra_cliente_de_servicio(3, "Calc", nullptr);
    esperada.u16(4, 1);
    esperada.u16(en_programa(3) + 266, 1);
    esperada.u16(en_servicio(4) + 66, 3);
    esperada.ceros(en_servicio(4) + 80, 16);
    comprueba(esperada);
}

TEST_F(iv_mcbase, comando_en_curso_se_marca_y_se_quita)
{
    pon_servicio(31, "Calc");
    imagen esperada(m_bloque);
    iv_mcbase_inicia_comando(31, 0x01020304);
    esperada.u32(en_servicio(31) + 76, 0);
    esperada.u32(en_servicio(31) + 80, 0x01020304);
    comprueba(esperada);

    m_bloque.pon_u32(en_servicio(31) + 76, 5);
    iv_mcbase_termina_comando(31, 999);             // whichever it is
    esperada.u32(en_servicio(31) + 80, 0);
    comprueba(esperada);

    for (uint32_t ind : {32u, 33u, 0x10000u, 0xFFFFFFFFu}) {
        iv_mcbase_inicia_comando(ind, 100);
        iv_mcbase_termina_comando(ind, 100);
    }
    comprueba(esperada);
}

// ---- Search by prefix

TEST_F(iv_mcbase, prefijo_halla_el_primer_servicio_que_empieza_asi)
{
    pon_servicio(3, "Calculo");
    pon_servicio(5, "Calc");
    pon_servicio(9, "Texto");
    pon_servicio(31, std::string(63, 'z'));
    imagen esperada(m_bloque);
    struct {
        std::string prefijo, hallado;
    } const casos[] = {
        {"Calc", "Calculo"},            // the lowest index, though another is equal
        {"Calculo", "Calculo"},
        {"", "Calculo"},                // the first entry in use
        {"T", "Texto"},
        {"Texto", "Texto"},
        {"Texto2", "-"},
        {"texto", "-"},
        {"exto", "-"},
        {std::string(63, 'z'), std::string(63, 'z')},
        {std::string(64, 'z'), "-"},
        {std::string(300, 'z'), "-"},
        {"z", std::string(63, 'z')},
    };
    for (const auto &caso : casos) {
        char marco[66];
        memset(marco, '#', sizeof marco);
        bool hay = iv_mcbase_hay_servicio_registrado_empiece_por(caso.prefijo.c_str(), marco + 1) == 1;
        EXPECT_EQ(hay, caso.hallado != "-") << caso.prefijo;
        if (hay)
            EXPECT_STREQ(marco + 1, caso.hallado.c_str()) << caso.prefijo;
        else
            EXPECT_EQ(std::string(marco, 66), std::string(66, '#')) << caso.prefijo;
        EXPECT_EQ(marco[0], '#');
        EXPECT_EQ(marco[65], '#');
    }
    comprueba(esperada);
}

TEST_F(iv_mcbase, prefijo_sin_servicios_no_halla_nada_ni_el_vacio)
{
    char nombre[64] = "intacto";
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("", nombre), 0);
    EXPECT_STREQ(nombre, "intacto");
}

TEST_F(iv_mcbase, nombre_de_servicio_sin_final_se_copia_acotado)
{
    m_bloque.pon_bytes(en_servicio(31), std::vector<uint8_t>(96, 'A'));     // to the end of the block
    char marco[66];
    memset(marco, '#', sizeof marco);
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("AAA", marco + 1), 1);
    EXPECT_EQ(std::string(marco, 66), "#" + std::string(63, 'A') + std::string(1, '\0') + "#");
}

TEST_F(iv_mcbase, prefijo_y_buffer_nulos_se_informan_una_vez_cada_uno)
{
    const char *servicio = nombre_unico("Servicio");
    pon_servicio(2, servicio);
    char nombre[64] = "intacto";
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(nullptr, nombre, nullptr), 0); // it has no server
    EXPECT_INFORME("ivrexa", "(prefijo_nombre_servicio) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_STREQ(nombre, servicio);

    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por("Ser", nullptr, nullptr), 0);
    EXPECT_INFORME("ivrexa", "(buffer_nombre_servicio_registrado64) != 0");
    EXPECT_SIN_INFORMES();
}

// ---- Activity

TEST_F(iv_mcbase, monitor_esta_listo_con_sus_cuatro_campos)
{
    struct {
        uint16_t tam, version;
        uint64_t hwnd;
        uint32_t msg;
        int16_t listo;
    } const casos[] = {
        {8886, 256, 0x1234, 0xC001, 1}, {8886, 256, 0x100000000, 1, 1}, {8885, 256, 0x1234, 0xC001, 0},
        {8887, 256, 0x1234, 0xC001, 0}, {0, 256, 0x1234, 0xC001, 0},    {8886, 255, 0x1234, 0xC001, 0},
        {8886, 257, 0x1234, 0xC001, 0}, {8886, 1, 0x1234, 0xC001, 0},   {8886, 256, 0, 0xC001, 0},
        {8886, 256, 0x1234, 0, 0},      {0, 0, 0, 0, 0},
    };
    pon_servicio(0, "Calc");
    for (const auto &caso : casos) {
        SCOPED_TRACE(junta({std::to_string(caso.tam), std::to_string(caso.version), std::to_string(caso.hwnd),
                            std::to_string(caso.msg)}));
        m_bloque.pon_u16(0, caso.tam);
        m_bloque.pon_u16(2, caso.version);
        m_bloque.pon_u64(6, caso.hwnd);
        m_bloque.pon_u32(14, caso.msg);
        m_bloque.pon_u32(18, 1);
        imagen esperada(m_bloque);
        for (uint32_t tipo : {0u, 1u, 2u})
            EXPECT_EQ(iv_mcbase_hay_monitor(tipo), caso.listo);
        comprueba(esperada);

        s_avisos.clear();
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", 100, 7);
        ASSERT_EQ(s_avisos.size(), static_cast<size_t>(caso.listo));
        if (caso.listo != 1) {
            comprueba(esperada);
            continue;
        }
        EXPECT_EQ(s_avisos[0].hwnd, caso.hwnd);
        EXPECT_EQ(s_avisos[0].msg, caso.msg);
        EXPECT_EQ(m_bloque.u32(18), 2u);
    }
}

TEST_F(iv_mcbase, cada_actividad_llena_su_registro_y_se_avisa_ya_sin_el_mutex)
{
    struct {
        uint32_t tipo_programa, tipo_actividad;
        int16_t indicador;
        uint32_t dato1, dato2;
    } const casos[] = {
        {0, 1, 1, 0, 0},    {1, 2, 1, 100, 17}, {1, 2, 0, 100, 17},
        {1, 3, 1, 100, 18}, {0, 3, 1, 0, 18},   {0, 4, 1, 0, 19},
        {1, 4, 1, 0, 19},   {1, 1, 0, 1, 2},    {2, 2, 1, 0xFFFFFFFF, 0xFFFFFFFE},
        {0, 1, 0, 0, 0},
    };
    pon_monitor(0x1122334455667788, 0xC123);
    pon_servicio(2, "Otro");
    pon_servicio(7, "Calc");
    imagen esperada(m_bloque);
    uint32_t n = 0;
    for (const auto &caso : casos) {
        n++;
        SCOPED_TRACE(n);
        iv_mcbase_anota_actividad(caso.tipo_programa, caso.tipo_actividad, caso.indicador, "Calc", caso.dato1,
                                  caso.dato2);
        size_t registro = en_actividad(n);
        esperada.u32(registro, 7);
        esperada.u32(registro + 4, caso.dato1);
        esperada.u32(registro + 8, caso.dato2);
        esperada.u32(registro + 12, caso.tipo_programa);
        esperada.u32(registro + 16, caso.tipo_actividad);
        esperada.u16(registro + 20, static_cast<uint16_t>(caso.indicador));
        esperada.u32(18, n + 1);
        if (n == 10)
            esperada.ceros(en_servicio(7), 1);      // a server's withdrawal: the record names it all the same
        comprueba(esperada);

        ASSERT_EQ(s_avisos.size(), n);
        EXPECT_EQ(s_avisos.back().hwnd, 0x1122334455667788u);
        EXPECT_EQ(s_avisos.back().msg, 0xC123u);
        EXPECT_EQ(s_avisos.back().wparam, 0u);
        EXPECT_EQ(s_avisos.back().lparam, n);
        EXPECT_EQ(s_avisos.back().sitio, 0u);
        EXPECT_TRUE(s_avisos.back().mutex_libre);
    }
}

TEST_F(iv_mcbase, solo_el_servidor_que_anuncia_mete_y_saca_servicios)
{
    for (bool con_monitor : {false, true}) {
        SetUp();
        if (con_monitor)
            pon_monitor();
        pon_servicio(0, "Otro");
        iv_mcbase_abre(0, FALSO);
        imagen esperada(m_bloque);
        for (uint32_t tipo_programa : {1u, 2u})
            for (int16_t indicador : {1, 0})
                iv_mcbase_anota_actividad(tipo_programa, 1, indicador, "Calc", 0, 0);
        for (uint32_t tipo_actividad : {2u, 3u, 4u})
            iv_mcbase_anota_actividad(0, tipo_actividad, 1, "Calc", 0, 0);
        iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
        comprueba(esperada);                        // an unknown service leaves no record either
        EXPECT_TRUE(s_avisos.empty());

        iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "Calc");
        iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(2), 64), "");
        for (uint32_t tipo_actividad : {2u, 3u, 4u})
            iv_mcbase_anota_actividad(0, tipo_actividad, 0, "Calc", 0, 0);
        iv_mcbase_anota_actividad(1, 1, 0, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "Calc");
        iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
        EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "");
        EXPECT_EQ(s_avisos.size(), con_monitor ? 7u : 0u);
        iv_mcbase_cierra();
    }
}

TEST_F(iv_mcbase, sin_monitor_el_anuncio_cambia_solo_el_nombre_del_servicio)
{
    imagen esperada(m_bloque);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 5, 6);
    esperada.texto(en_servicio(0), "Calc");
    comprueba(esperada);
    iv_mcbase_anota_actividad(0, 1, 0, "Calc", 5, 6);
    esperada.ceros(en_servicio(0), 1);
    comprueba(esperada);
    EXPECT_TRUE(s_avisos.empty());
}

TEST_F(iv_mcbase, anillo_numera_de_1_a_63_y_no_escribe_el_64)
{
    pon_monitor();
    pon_servicio(0, "Calc");
    std::vector<uint8_t> registro_64 = m_bloque.bytes(en_actividad(64), 22);
    for (uint32_t i = 0; i < 130; i++) {
        uint32_t n = i % 63 + 1;
        ASSERT_EQ(m_bloque.u32(18), n);
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", i, 0);
        ASSERT_EQ(s_avisos.back().lparam, n);
        ASSERT_EQ(m_bloque.u32(en_actividad(n) + 4), i);
    }
    EXPECT_TRUE(bytes_iguales(registro_64, m_bloque.bytes(en_actividad(64), 22)));
    EXPECT_EQ(m_bloque.u32(18), 5u);
}

TEST_F(iv_mcbase, contador_de_actividad_estropeado_vale_1)
{
    pon_servicio(0, "Calc");
    for (uint32_t malo : {0u, 64u, 65u, 0x10001u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        pon_monitor();
        m_bloque.pon_u32(18, malo);
        imagen esperada(m_bloque);
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", malo, 9);
        esperada.u32(18, 2);
        const uint32_t campos_u32[] = {0, malo, 9, 1, 2};
        for (uint32_t c = 0; c < 5; c++)
            esperada.u32(22 + c * 4, campos_u32[c]);
        esperada.u16(42, 1);
        comprueba(esperada);
        EXPECT_EQ(s_avisos.back().lparam, 1u) << malo;
    }
}

// ---- Rounds

TEST_F(iv_mcbase, aviso_de_ronda_lleva_servicio_y_estado_en_lparam)
{
    struct {
        uint64_t hwnd;
        uint32_t msg;
        bool se_manda;
    } const monitores[] = {{0x1234, 0xC001, true}, {0, 0xC001, false}, {0x1234, 0, false}, {0, 0, false}};
    for (const auto &monitor : monitores) {
        m_bloque.pon_u64(6, monitor.hwnd);          // size and version of the block do not matter here
        m_bloque.pon_u32(14, monitor.msg);
        imagen esperada(m_bloque);
        s_avisos.clear();
        iv_mcbase_avisa_ronda(vista(), iv_aviso_RONDA_CLIENTE, 5, 3);
        iv_mcbase_avisa_ronda(vista(), iv_aviso_RONDA_SERVIDOR, 31, 2);
        comprueba(esperada);
        ASSERT_EQ(s_avisos.size(), monitor.se_manda ? 2u : 0u);
        if (!monitor.se_manda)
            continue;
        EXPECT_EQ(s_avisos[0].hwnd, 0x1234u);
        EXPECT_EQ(s_avisos[0].msg, 0xC001u);
        EXPECT_EQ(s_avisos[0].wparam, 1u);
        EXPECT_EQ(s_avisos[0].lparam, 196613u);
        EXPECT_EQ(s_avisos[1].wparam, 2u);
        EXPECT_EQ(s_avisos[1].lparam, 131103u);
    }
}

TEST_F(iv_mcbase, rondas_avisan_al_monitor_con_el_mutex_tomado)
{
    pon_monitor();
    pon_servicio(5, "Calc");
    iv_mcserv_t canal = {};
    struct {
        int16_t (*ronda)(uint32_t, iv_mcserv_vista *);
        uint32_t sitio, wparam, lparam;
    } const casos[] = {
        {iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE, 12, 1, 0x10005},
        {iv_mcserv_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO, 12, 1, 0x20005},
        {iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO, 12, 1, 0x30005},
        {iv_mcserv_CLIENTE_ESPERA_SERVIDOR_AVISADO, 12, 1, 0x40005},
        {iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO, 13, 2, 0x10005},
        {iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO, 13, 2, 0x20005},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.lparam);
        s_avisos.clear();
        EXPECT_EQ(caso.ronda(5, &canal), 0);
        ASSERT_EQ(s_avisos.size(), 1u);
        EXPECT_EQ(s_avisos[0].wparam, caso.wparam);
        EXPECT_EQ(s_avisos[0].lparam, caso.lparam);
        EXPECT_EQ(s_avisos[0].sitio, caso.sitio);
        EXPECT_FALSE(s_avisos[0].mutex_libre);
        EXPECT_EQ(caso.ronda(32, &canal), 1);
        EXPECT_EQ(s_avisos.size(), 1u);
    }
}

// ---- Monitor: registering

class iv_mcbase_monitor_registro : public iv_mcbase {
protected:
    void SetUp() override
    {
        iv_mcbase::SetUp();
        m_hwnd = crea_ventana();
        ASSERT_NE(m_hwnd, nullptr);
        m_proc_antes = GetWindowLongPtrW(m_hwnd, GWLP_WNDPROC);
    }

    void TearDown() override
    {
        iv_mcbase::TearDown();
        destruye_ventana(&m_hwnd);
    }

    LONG_PTR proc_actual() const { return GetWindowLongPtrW(m_hwnd, GWLP_WNDPROC); }
    static LONG_PTR proc_monitor() { return reinterpret_cast<LONG_PTR>(iv_mcbase_proc_monitor); }

    LONG_PTR m_proc_antes = 0;
};

TEST_F(iv_mcbase_monitor_registro, escribe_cabecera_y_anillo_y_vacia_los_nombres_de_servicio)
{
    m_bloque.pon_bytes(0, std::vector<uint8_t>(TAM_BLOQUE, SUCIO));
    imagen esperada(m_bloque);

    registra_monitor(m_hwnd);

    esperada.u16(0, 8886);
    esperada.u16(2, 256);
    esperada.u16(4, 0x5A5B);
    esperada.u64(6, reinterpret_cast<uint64_t>(m_hwnd));
    esperada.u32(14, mensaje_monitor());
    esperada.u32(18, 1);
    for (uint32_t n = 1; n <= 64; n++) {
        esperada.u32(en_actividad(n), 32);
        esperada.ceros(en_actividad(n) + 4, 8);
        esperada.ceros(en_actividad(n) + 16, 4);
    }
    for (uint32_t j = 0; j < 32; j++)
        esperada.ceros(en_servicio(j), 1);
    comprueba(esperada);
    EXPECT_EQ(iv_mcbase_hay_monitor(2), 1);
}

TEST_F(iv_mcbase_monitor_registro, guarda_lo_dado_y_subclasifica_la_ventana)
{
    registra_monitor(m_hwnd);

    ASSERT_NE(s_programa_monitor, nullptr);
    EXPECT_EQ(s_programa_monitor->hwnd, m_hwnd);
    EXPECT_EQ(s_programa_monitor->funcionNotificacionActividad, al_notificar);
    EXPECT_EQ(s_programa_monitor->funcionMonitorBuclesCliente, al_rondar_cliente);
    EXPECT_EQ(s_programa_monitor->funcionMonitorBuclesServidor, al_rondar_servidor);
    EXPECT_EQ(s_programa_monitor->datos_externos_monitor, &s_datos_monitor);
    EXPECT_EQ(s_programa_monitor->msg_monitor, mensaje_monitor());
    EXPECT_EQ(reinterpret_cast<LONG_PTR>(s_programa_monitor->proc_ventana_anterior), m_proc_antes);
    EXPECT_EQ(proc_actual(), proc_monitor());
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(m_bloque.texto(en_programa(i), 256), "");

    iv_mcbase_quita_monitor();
    EXPECT_EQ(proc_actual(), m_proc_antes);
}

TEST_F(iv_mcbase_monitor_registro, mensaje_y_ventana_vienen_antes_que_el_bloque)
{
    m_ventana->RegisterWindowMessageA = [](LPCSTR nombre) -> UINT {
        s_llamadas.push_back(junta({"message", nombre, std::to_string(s_bloque->u16(0))}));
        return 0xC0DE;
    };
    m_ventana->SetWindowLongPtrW = [](HWND hwnd, int indice, LONG_PTR proc) -> LONG_PTR {
        bool nuestro = proc == reinterpret_cast<LONG_PTR>(iv_mcbase_proc_monitor);
        s_llamadas.push_back(junta({"window", std::to_string(reinterpret_cast<uintptr_t>(hwnd)),
                                    std::to_string(indice), nuestro ? "ours" : "theirs",
                                    std::to_string(s_bloque->u16(0)), s_mutex->libre() ? "free" : "held"}));
        return 0x7777;
    };
    registra_monitor(ventana_num(0x1234));
    EXPECT_EQ(s_llamadas, (argumentos{"message|Ivrexa_Monitor_MSG|0", "window|4660|-4|ours|0|free"}));
    EXPECT_EQ(m_bloque.u32(14), 0xC0DEu);

    s_llamadas.clear();
    iv_mcbase_quita_monitor();
    EXPECT_EQ(s_llamadas, (argumentos{"window|4660|-4|theirs|8886|free"}));
}

TEST_F(iv_mcbase_monitor_registro, segundo_monitor_del_proceso_se_informa_y_nada_cambia)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    imagen esperada(m_bloque);
    HWND otra = crea_ventana();
    LONG_PTR proc_otra = GetWindowLongPtrW(otra, GWLP_WNDPROC);

    iv_mcbase_registra_monitor(otra, nullptr, nullptr, nullptr, nullptr);

    EXPECT_INFORME("iv_mcbase", "s_programa_monitor == NULL");
    comprueba(esperada);
    EXPECT_EQ(GetWindowLongPtrW(otra, GWLP_WNDPROC), proc_otra);
    EXPECT_EQ(s_programa_monitor->hwnd, m_hwnd);
    EXPECT_EQ(s_programa_monitor->funcionNotificacionActividad, al_notificar);
    destruye_ventana(&otra);
}

TEST_F(iv_mcbase_monitor_registro, tabla_de_servicios_se_llena_otra_vez_segun_se_usan)
{
    pon_programa(0, "servidor", 0, 1);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Texto", 0, 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Lista", 0, 0);
    registra_monitor(m_hwnd);

    char nombre[64];
    EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("", nombre), 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Lista", 0, 0);
    iv_mcbase_registra_cliente_de_servicio(0, "Texto", nullptr);
    iv_mcbase_registra_servidor_de_servicio(0, "Calc", nullptr);
    EXPECT_EQ(m_bloque.texto(en_servicio(0), 64), "Lista");
    EXPECT_EQ(m_bloque.texto(en_servicio(1), 64), "Texto");
    EXPECT_EQ(m_bloque.texto(en_servicio(2), 64), "Calc");
    ASSERT_EQ(s_avisos.size(), 1u);
    EXPECT_EQ(s_avisos[0].lparam, 1u);
    EXPECT_EQ(m_bloque.u32(22 + 16), 1u);
    EXPECT_EQ(m_bloque.u16(22 + 20), 1);
}

TEST_F(iv_mcbase_monitor_registro, funciones_nulas_se_informan_y_se_registra_igual)
{
    ivrexa_registra_monitor(m_hwnd, nullptr, nullptr, nullptr, nullptr);
    EXPECT_INFORME("ivrexa", "(funcionNotificacionActividad) != 0");
    EXPECT_INFORME("ivrexa", "(funcionMonitorBuclesCliente) != 0");
    EXPECT_INFORME("ivrexa", "(funcionMonitorBuclesServidor) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(m_bloque.u64(6), reinterpret_cast<uint64_t>(m_hwnd));
    EXPECT_EQ(proc_actual(), proc_monitor());

    pon_servicio(0, "Calc");
    iv_mcbase_anota_actividad(1, 2, 1, "Calc", 0, 0);
    for (WPARAM wparam : {0, 1, 2})
        EXPECT_EQ(SendMessageW(m_hwnd, mensaje_monitor(), wparam, wparam == 0 ? 1 : 0x10000), 0);
}

TEST_F(iv_mcbase_monitor_registro, ventana_nula_con_lo_demas_se_informa_y_se_quita_igual)
{
    ivrexa_registra_monitor(m_hwnd, al_notificar, al_rondar_cliente, al_rondar_servidor, &s_datos_monitor);
    EXPECT_SIN_INFORMES();
    ivrexa_registra_monitor(nullptr, al_notificar, al_rondar_cliente, al_rondar_servidor, &s_datos_monitor);
    EXPECT_INFORME("ivrexa", "funcionNotificacionActividad == NULL");
    EXPECT_INFORME("ivrexa", "funcionMonitorBuclesCliente == NULL");
    EXPECT_INFORME("ivrexa", "funcionMonitorBuclesServidor == NULL");
    EXPECT_INFORME("ivrexa", "datos_externos_monitor == NULL");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_EQ(m_bloque.u64(6), 0u);
    EXPECT_EQ(proc_actual(), m_proc_antes);
}

// ---- Monitor: ending

TEST_F(iv_mcbase_monitor_registro, fin_del_monitor_borra_solo_su_ventana)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    imagen esperada(m_bloque);

    iv_mcbase_quita_monitor();

    esperada.u64(6, 0);
    comprueba(esperada);
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(proc_actual(), m_proc_antes);
    EXPECT_EQ(iv_mcbase_hay_monitor(0), 0);

    registra_monitor(m_hwnd);           // and again
    EXPECT_EQ(m_bloque.u64(6), reinterpret_cast<uint64_t>(m_hwnd));
    EXPECT_EQ(m_bloque.u16(4), 1);      // the access was open already
}

TEST_F(iv_mcbase_monitor_registro, con_programas_el_fin_deja_abiertos_los_manejadores_y_olvida_el_acceso)
{
    pon_programa(0, "otro", 0, 1);
    registra_monitor(m_hwnd);
    iv_mcbase_acceso *antes = s_mcbase_acceso;
    uint32_t manejadores = cuenta_manejadores();

    iv_mcbase_quita_monitor();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_EQ(cuenta_manejadores(), manejadores);
    EXPECT_EQ(antes->mcbase->tam_bloque, 8886);         // still mapped

    EXPECT_EQ(iv_mcbase_registra_programa(0, "este", nullptr), 1);
    EXPECT_NE(s_mcbase_acceso, antes);
    EXPECT_NE(s_mcbase_acceso->mutex->mutex, antes->mutex->mutex);
    EXPECT_NE(s_mcbase_acceso->bloque->hmap, antes->bloque->hmap);
    EXPECT_EQ(m_bloque.u16(4), 2);                      // a first open once more
}

TEST_F(iv_mcbase_monitor_registro, sin_programas_el_fin_cierra_los_manejadores)
{
    registra_monitor(m_hwnd);
    uint32_t manejadores = cuenta_manejadores();
    iv_mcbase_quita_monitor();
    EXPECT_EQ(cuenta_manejadores(), manejadores - 2);   // mutex and block
}

TEST_F(iv_mcbase_monitor_registro, fin_sin_monitor_ni_acceso_no_hace_nada)
{
    pon_monitor();
    imagen esperada(m_bloque);
    iv_mcbase_quita_monitor();
    comprueba(esperada);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(proc_actual(), m_proc_antes);
}

TEST_F(iv_mcbase_monitor_registro, fin_en_un_proceso_que_no_es_el_monitor_quita_el_de_otro)
{
    pon_monitor();
    pon_programa(0, "otro", 0, 1);
    iv_mcbase_abre(0, FALSO);
    imagen esperada(m_bloque);
    iv_mcbase_quita_monitor();
    esperada.u64(6, 0);
    comprueba(esperada);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

TEST_F(iv_mcbase_monitor_registro, cierre_de_sesion_no_acaba_con_el_monitor_que_queda_sordo)
{
    pon_servicio(0, "Calc");
    registra_monitor(m_hwnd);
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    ASSERT_NE(s_programa_monitor, nullptr);
    EXPECT_EQ(m_bloque.u64(6), reinterpret_cast<uint64_t>(m_hwnd));
    EXPECT_EQ(SendMessageW(m_hwnd, mensaje_monitor(), 1, 0x10000), 0);
    EXPECT_TRUE(s_monitor.empty());

    iv_mcbase_quita_monitor();          // still in time: nobody may go on posting to the window
    EXPECT_EQ(m_bloque.u64(6), 0u);
    EXPECT_EQ(m_bloque.u16(4), 1);
    EXPECT_EQ(proc_actual(), m_proc_antes);
    EXPECT_EQ(s_programa_monitor, nullptr);
}

// ---- Monitor: its window procedure

TEST_F(iv_mcbase_monitor_registro, otros_mensajes_van_al_procedimiento_anterior)
{
    registra_monitor(m_hwnd);
    s_programa_monitor->proc_ventana_anterior = reinterpret_cast<WNDPROC>(0x7777);
    m_ventana->CallWindowProcW = [](WNDPROC proc, HWND hwnd, UINT msg, WPARAM wparam,
                                    LPARAM lparam) -> LRESULT {
        s_llamadas.push_back(junta({std::to_string(reinterpret_cast<uintptr_t>(proc)),
                                    std::to_string(reinterpret_cast<uintptr_t>(hwnd)), std::to_string(msg),
                                    std::to_string(wparam), std::to_string(lparam)}));
        return 0x123456789;
    };
    EXPECT_EQ(manda_al_monitor(mensaje_monitor() - 1, 5, 0x100000006), 0x123456789);
    EXPECT_EQ(s_llamadas, (argumentos{junta({"30583", "119", std::to_string(mensaje_monitor() - 1), "5",
                                             "4294967302"})}));
    s_llamadas.clear();
    for (WPARAM wparam : {0, 1, 2, 3})
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, 0), 0);
    EXPECT_TRUE(s_llamadas.empty());
    s_programa_monitor->proc_ventana_anterior = reinterpret_cast<WNDPROC>(m_proc_antes);
}

TEST_F(iv_mcbase_monitor_registro, actividad_llega_con_los_campos_de_su_registro)
{
    registra_monitor(m_hwnd);
    pon_servicio(31, "Calc");
    const uint32_t valores[] = {31, 100, 17, 1, 2};
    for (uint32_t n : {1u, 63u, 64u}) {
        for (uint32_t c = 0; c < 5; c++)
            m_bloque.pon_u32(en_actividad(n) + 4 * c, valores[c] + (c == 1 ? n : 0));
        m_bloque.pon_u16(en_actividad(n) + 20, 0xFFFE);
    }
    for (uint64_t lparam : {uint64_t{1}, uint64_t{63}, uint64_t{64}, uint64_t{0x700000001}}) {
        SCOPED_TRACE(lparam);
        s_monitor.clear();
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, lparam), 0);
        ASSERT_EQ(s_monitor.size(), 1u);
        EXPECT_EQ(s_monitor[0].cual, "actividad");
        EXPECT_EQ(s_monitor[0].tipo_programa, 1u);
        EXPECT_EQ(s_monitor[0].tipo_actividad, 2u);
        EXPECT_EQ(s_monitor[0].indicador, 0xFFFEu);
        EXPECT_EQ(s_monitor[0].dato1, 100 + (lparam & 0xFF));
        EXPECT_EQ(s_monitor[0].dato2, 17u);
        EXPECT_EQ(s_monitor[0].texto, "Calc");
        EXPECT_EQ(s_monitor[0].datos, &s_datos_monitor);
        const uint8_t *datos = static_cast<uint8_t *>(iv_shared_datos(s_mcbase_acceso->bloque));
        EXPECT_EQ(s_monitor[0].nombre, datos + 5814 + 31 * 96);      // the name itself, not a copy
    }
}

TEST_F(iv_mcbase_monitor_registro, actividad_fuera_de_sus_limites_se_deja_caer)
{
    registra_monitor(m_hwnd);
    for (uint32_t n = 1; n <= 64; n++)
        m_bloque.pon_u32(en_actividad(n), 0);
    m_bloque.pon_bytes(en_programa(0), std::vector<uint8_t>(16 * 274, 0));      // would be records 65 and on
    for (uint64_t n : {uint64_t{0}, uint64_t{65}, uint64_t{66}, uint64_t{0xFFFFFFFF}, uint64_t{0x500000000}})
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, n), 0) << n;
    for (uint32_t ind : {32u, 33u, 0xFFFFFFFFu}) {
        m_bloque.pon_u32(en_actividad(7), ind);
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, 7), 0) << ind;
    }
    EXPECT_TRUE(s_monitor.empty());
    m_bloque.pon_u32(en_actividad(7), 31);
    EXPECT_EQ(manda_al_monitor(mensaje_monitor(), 0, 7), 0);
    EXPECT_EQ(s_monitor.size(), 1u);
}

TEST_F(iv_mcbase_monitor_registro, retirada_de_un_servicio_se_cuenta_con_el_nombre_ya_vacio)
{
    registra_monitor(m_hwnd);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
    iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
    ASSERT_EQ(s_avisos.size(), 2u);
    manda_al_monitor(s_avisos[1].msg, s_avisos[1].wparam, s_avisos[1].lparam);
    ASSERT_EQ(s_monitor.size(), 1u);
    EXPECT_EQ(s_monitor[0].texto, "");
    EXPECT_EQ(s_monitor[0].tipo_actividad, 1u);
    EXPECT_EQ(s_monitor[0].indicador, 0u);
}

TEST_F(iv_mcbase_monitor_registro, rondas_llegan_a_la_funcion_de_su_lado)
{
    registra_monitor(m_hwnd);
    const uint8_t *datos = static_cast<uint8_t *>(iv_shared_datos(s_mcbase_acceso->bloque));
    struct {
        WPARAM wparam;
        uint64_t lparam;
        const char *cual;
        uint32_t ind, estado;
    } const casos[] = {
        {1, 196613, "cliente", 5, 3},   {1, 0x10000, "cliente", 0, 1},
        {1, 0x4001F, "cliente", 31, 4}, {1, 0xFFFF0001, "cliente", 1, 0xFFFF},
        {2, 0x20005, "servidor", 5, 2}, {2, 0x1001F, "servidor", 31, 1},
        {1, 7, "cliente", 7, 0},        {2, 0x500030002, "servidor", 2, 3},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.lparam);
        s_monitor.clear();
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), caso.wparam, caso.lparam), 0);
        ASSERT_EQ(s_monitor.size(), 1u);
        EXPECT_EQ(s_monitor[0].cual, caso.cual);
        EXPECT_EQ(s_monitor[0].mcbase, datos);
        EXPECT_EQ(s_monitor[0].servicio, datos + 5814 + caso.ind * 96);
        EXPECT_EQ(s_monitor[0].estado, caso.estado);
        EXPECT_EQ(s_monitor[0].datos, &s_datos_monitor);
    }
    s_monitor.clear();
    for (WPARAM wparam : {1, 2})
        for (uint64_t ind : {uint64_t{32}, uint64_t{33}, uint64_t{0xFFFF}, uint64_t{0x30020}})
            EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, ind), 0);
    for (WPARAM wparam : {WPARAM{3}, WPARAM{4}, WPARAM{0x10001}, WPARAM{0x100000001}, ~WPARAM{0}})
        EXPECT_EQ(manda_al_monitor(mensaje_monitor(), wparam, 1), 0) << wparam;
    EXPECT_TRUE(s_monitor.empty());
}

TEST_F(iv_mcbase_monitor_registro, el_monitor_lee_sin_esperar_al_mutex)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    iv_mcbase_anota_actividad(1, 2, 1, "Calc", 100, 0);
    ASSERT_TRUE(m_mutex.retiene());
    manda_al_monitor(mensaje_monitor(), 0, 1);          // would wait for ever
    manda_al_monitor(mensaje_monitor(), 1, 0x10000);
    manda_al_monitor(mensaje_monitor(), 2, 0x10000);
    m_mutex.suelta();
    EXPECT_EQ(s_monitor.size(), 3u);
}

// ---- Monitor and another process, with real messages

PAPEL(anunciante)
{
    iv_mcserv_t canal = {};
    uint16_t id = iv_mcbase_registra_programa(0, "anunciante", nullptr);
    EXPECT_EQ(id, 0);
    iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
    iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO(0, &canal);
    iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO(0, &canal);
    yo.di("LISTO");
    yo.escucha_linea("FIN", 30000);
    iv_mcbase_anota_actividad(0, 1, 0, "Calc", 0, 0);
    iv_mcbase_quita_programa(id);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    return 0;
}

TEST_F(iv_mcbase_monitor_registro, avisos_de_otro_proceso_llegan_por_la_cola_de_la_ventana)
{
    registra_monitor(m_hwnd);
    papel otro = arranca_papel("anunciante");
    EXPECT_EQ(bombea_hasta([] { return s_monitor.size() >= 3; }, 10000), bombeo::cumplido);
    ASSERT_EQ(s_monitor.size(), 3u);
    EXPECT_EQ(s_monitor[0].cual, "actividad");
    EXPECT_EQ(s_monitor[0].tipo_programa, 0u);
    EXPECT_EQ(s_monitor[0].tipo_actividad, 1u);
    EXPECT_EQ(s_monitor[0].indicador, 1u);
    EXPECT_EQ(s_monitor[0].texto, "Calc");
    EXPECT_EQ(m_bloque.u32(22), 0u);                    // it was record 1
    EXPECT_EQ(m_bloque.u32(18), 2u);
    EXPECT_EQ(s_monitor[1].cual, "cliente");
    EXPECT_EQ(s_monitor[1].estado, 3u);
    EXPECT_EQ(s_monitor[2].cual, "servidor");
    EXPECT_EQ(s_monitor[2].estado, 2u);

    otro.di("FIN");
    EXPECT_EQ(bombea_hasta([] { return s_monitor.size() >= 4; }, 10000), bombeo::cumplido);
    EXPECT_EQ(otro.espera_fin(10000), 0u);
    ASSERT_EQ(s_monitor.size(), 4u);
    EXPECT_EQ(s_monitor[3].indicador, 0u);
    EXPECT_EQ(s_monitor[3].texto, "");
    for (const llamada_monitor &llamada : s_monitor)
        EXPECT_EQ(llamada.hilo, GetCurrentThreadId());
}

TEST_F(iv_mcbase_monitor_registro, actividad_pisada_se_ve_con_lo_mas_nuevo)
{
    registra_monitor(m_hwnd);
    pon_servicio(0, "Calc");
    for (uint32_t i = 0; i < 64; i++)
        iv_mcbase_anota_actividad(1, 2, 1, "Calc", i, 0);
    ASSERT_EQ(s_avisos.size(), 64u);
    for (uint32_t i : {0u, 1u})
        manda_al_monitor(s_avisos[i].msg, s_avisos[i].wparam, s_avisos[i].lparam);
    ASSERT_EQ(s_monitor.size(), 2u);
    EXPECT_EQ(s_monitor[0].dato1, 63u);
    EXPECT_EQ(s_monitor[1].dato1, 1u);
}
