// iv_mcbase_apoyo.h - what the tests of the registry share: the block as it ought to be, byte for byte at
// literal offsets, spies on the window system, a watch on who touches the block, the monitor's callbacks.
#ifndef IV_MCBASE_APOYO_H
#define IV_MCBASE_APOYO_H

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

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

const char *const BLOQUE = "Ivrexa_MCB";
const char *const MUTEX = "Ivrexa_Mutex_MCB";
constexpr uint32_t TAM_BLOQUE = 8886;
constexpr uint8_t SUCIO = 0x5A;

constexpr size_t en_actividad(uint32_t n)
{
    return 22 + (n - 1) * 22;
}
constexpr size_t en_programa(uint32_t i)
{
    return 1430 + i * 274;
}
constexpr size_t en_servicio(uint32_t j)
{
    return 5814 + j * 96;
}

// Where the field begins that a byte of the block belongs to.
inline size_t campo_de(size_t despl)
{
    static const struct {
        size_t ini, tam_entrada;
        std::vector<size_t> campos;
    } tablas[] = {
        {5814, 96, {0, 64, 66, 68, 72, 76, 80, 84, 88, 92}},
        {1430, 274, {0, 256, 264, 266, 268, 270}},
        {22, 22, {0, 4, 8, 12, 16, 20}},
        {0, 22, {0, 2, 4, 6, 14, 18}},
    };
    const auto *tabla = tablas;
    while (despl < tabla->ini)
        tabla++;
    size_t entrada = tabla->ini + (despl - tabla->ini) / tabla->tam_entrada * tabla->tam_entrada;
    return entrada + *(std::upper_bound(tabla->campos.begin(), tabla->campos.end(), despl - entrada) - 1);
}

inline HWND ventana_num(uint64_t n)
{
    return reinterpret_cast<HWND>(n);
}

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
inline uint32_t sitio_actual()
{
    const iv_mcbase_acceso *acceso = s_mcbase_acceso;
    if (acceso == nullptr || acceso->mutex == nullptr)
        return 0;
    int32_t nivel = acceso->mutex->nivel_bloqueo;
    return nivel < 1 || nivel > 4 ? 0 : acceso->mutex->codigos_bloqueo[nivel - 1];
}

// Four threads start together; `primera` is what each does.
inline void a_la_vez(const std::function<void(uint32_t)> &primera)
{
    HANDLE salida = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::vector<std::unique_ptr<hilo>> hilos;
    for (uint32_t h = 0; h < 4; h++)
        hilos.push_back(std::make_unique<hilo>([&, h] {
            WaitForSingleObject(salida, 10000);
            primera(h);
        }));
    SetEvent(salida);
    hilos.clear(); // waits for them
    CloseHandle(salida);
}

// ---- What the window system was asked

struct aviso {
    uint64_t hwnd;
    uint32_t msg;
    uint64_t wparam, lparam;
    uint32_t sitio;   // held while it was posted
    bool mutex_libre; // another thread could have had the mutex
};

inline std::vector<aviso> s_avisos;
inline std::vector<std::string> s_llamadas;
inline std::vector<uint64_t> s_ventanas_vivas;
inline mutex_crudo *s_mutex = nullptr;
inline const bloque_crudo *s_bloque = nullptr;

inline BOOL WINAPI apunta_aviso(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    s_avisos.push_back({reinterpret_cast<uint64_t>(hwnd), msg, wparam, static_cast<uint64_t>(lparam), sitio_actual(),
                        s_mutex->libre()});
    return TRUE;
}

inline BOOL WINAPI esta_viva(HWND hwnd)
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

    const std::vector<uint32_t> &sitios() const { return m_sitios; }        // each once for a run of equal ones
    uint32_t num_sin_mutex() const { return m_num_sin_mutex; }              // a site stood there, but free
    const std::vector<size_t> &campos_escritos() const { return m_campos; } // in the order of the writes

private:
    static LONG CALLBACK al_fallar(EXCEPTION_POINTERS *excepcion);
    bool es_del_bloque(const EXCEPTION_RECORD *r) const;
    void apunta();
    void apunta_escritura(uintptr_t direccion);
    void protege(DWORD proteccion);

    static vigia_bloque *s_vigia;
    static constexpr DWORD PASO_A_PASO = 0x100; // the trap flag
    uint8_t *m_vista;
    DWORD m_hilo;
    void *m_manejador;
    bool m_en_un_paso = false;
    std::vector<uint32_t> m_sitios;
    std::vector<size_t> m_campos;
    uint32_t m_num_sin_mutex = 0;
};

inline vigia_bloque *vigia_bloque::s_vigia = nullptr;

inline vigia_bloque::vigia_bloque()
    : m_vista(static_cast<uint8_t *>(s_mcbase_acceso->bloque->sharedmem)), m_hilo(GetCurrentThreadId())
{
    m_sitios.reserve(64);
    m_campos.reserve(1024);
    s_vigia = this;
    m_manejador = AddVectoredExceptionHandler(1, al_fallar);
    protege(PAGE_NOACCESS);
}

inline vigia_bloque::~vigia_bloque()
{
    protege(PAGE_READWRITE);
    RemoveVectoredExceptionHandler(m_manejador);
    s_vigia = nullptr;
}

inline void vigia_bloque::protege(DWORD proteccion)
{
    DWORD antes;
    if (!VirtualProtect(m_vista, 4 + TAM_BLOQUE, proteccion, &antes))
        ADD_FAILURE() << "the view cannot be protected: " << GetLastError();
}

inline bool vigia_bloque::es_del_bloque(const EXCEPTION_RECORD *r) const
{
    if (r->ExceptionCode != EXCEPTION_ACCESS_VIOLATION || GetCurrentThreadId() != m_hilo || m_en_un_paso)
        return false;
    uintptr_t vista = reinterpret_cast<uintptr_t>(m_vista);
    return vista <= r->ExceptionInformation[1] && r->ExceptionInformation[1] < vista + 4 + TAM_BLOQUE;
}

inline void vigia_bloque::apunta()
{
    uint32_t sitio = sitio_actual();
    if (!m_sitios.empty() && m_sitios.back() == sitio)
        return;
    m_sitios.push_back(sitio);
    if (sitio != 0 && s_mutex->libre())
        m_num_sin_mutex++;
}

inline void vigia_bloque::apunta_escritura(uintptr_t direccion)
{
    size_t campo = campo_de(direccion - reinterpret_cast<uintptr_t>(m_vista) - 4);
    if (m_campos.empty() || m_campos.back() != campo)
        m_campos.push_back(campo);
}

inline LONG CALLBACK vigia_bloque::al_fallar(EXCEPTION_POINTERS *excepcion)
{
    vigia_bloque *v = s_vigia;
    if (v != nullptr && v->es_del_bloque(excepcion->ExceptionRecord)) {
        v->apunta();
        const ULONG_PTR *acceso = excepcion->ExceptionRecord->ExceptionInformation;
        if (acceso[0] == 1)
            v->apunta_escritura(acceso[1]);
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

inline std::vector<llamada_monitor> s_monitor;

inline void al_notificar(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador,
                         const char *nombre_servicio, uint32_t dato1, uint32_t dato2, void *datos)
{
    s_monitor.push_back({"actividad", tipo_programa, tipo_actividad, indicador, nombre_servicio, nombre_servicio, dato1,
                         dato2, nullptr, nullptr, 0, datos, GetCurrentThreadId()});
}

inline void al_rondar_cliente(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado, void *datos)
{
    s_monitor.push_back(
        {"cliente", 0, 0, 0, nullptr, servicio->nombre, 0, 0, mcbase, servicio, estado, datos, GetCurrentThreadId()});
}

inline void al_rondar_servidor(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado, void *datos)
{
    s_monitor.push_back(
        {"servidor", 0, 0, 0, nullptr, servicio->nombre, 0, 0, mcbase, servicio, estado, datos, GetCurrentThreadId()});
}

inline int s_datos_monitor;

inline void registra_monitor(HWND hwnd)
{
    iv_mcbase_registra_monitor(hwnd, al_notificar, al_rondar_cliente, al_rondar_servidor, &s_datos_monitor);
}

inline LRESULT manda_al_monitor(UINT msg, WPARAM wparam, uint64_t lparam)
{
    return iv_mcbase_proc_monitor(ventana_num(0x77), msg, wparam, static_cast<LPARAM>(lparam));
}

inline UINT mensaje_monitor()
{
    return RegisterWindowMessageA("Ivrexa_Monitor_MSG");
}

// This process has met a registry that was there already: the library keeps it in being until the process
// ends.
inline bool s_registro_ajeno = false;

// ---- A registry that another program holds open: every byte dirty but the header; no program, no service.

class iv_mcbase : public ::testing::Test {
protected:
    void SetUp() override
    {
        s_registro_ajeno = true;
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
    void pon_programa(uint32_t i, const std::string &nombre, uint64_t hwnd, uint16_t servidor = 0, uint16_t cliente = 0,
                      uint16_t monitor = 0, uint32_t contador = 0)
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

#endif
