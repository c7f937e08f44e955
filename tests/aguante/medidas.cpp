#include "medidas.h"

#include <set>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#define PSAPI_VERSION 2
#include <psapi.h>

#include "ivrexa.h"

// ---- Memory

std::string en_linea(const memoria &m)
{
    std::ostringstream linea;
    linea << m.hechos << " " << m.bytes_privados << " " << m.bloques_monton << " " << m.bytes_monton << " " << m.vistas;
    return linea.str();
}

memoria memoria_de_linea(const std::string &linea)
{
    memoria m;
    std::istringstream(linea) >> m.hechos >> m.bytes_privados >> m.bloques_monton >> m.bytes_monton >> m.vistas;
    return m;
}

static std::set<HANDLE> montones()
{
    HANDLE todos[256];
    DWORD num = GetProcessHeaps(256, todos);
    return std::set<HANDLE>(todos, todos + num);
}

monton_de_la_biblioteca::monton_de_la_biblioteca()
{
    std::set<HANDLE> antes = montones();
    ivrexa_destruye_datos_comando(ivrexa_crea_datos_comando_entrada("aguante"));
    std::set<HANDLE> despues = montones();
    for (HANDLE monton : despues)
        if (antes.count(monton) == 0)
            m_monton = monton;
    EXPECT_EQ(despues.size(), antes.size() + 1) << "the library's heap is not the only one that came";
}

// The commit charge, the same as PrivateUsage where that is filled in. Wine leaves that 0, and counts here
// the private pages that have been touched.
static uint64_t bytes_privados()
{
    PROCESS_MEMORY_COUNTERS memoria = {};
    memoria.cb = sizeof memoria;
    EXPECT_TRUE(GetProcessMemoryInfo(GetCurrentProcess(), &memoria, sizeof memoria));
    EXPECT_GT(memoria.PagefileUsage, 0u);
    return memoria.PagefileUsage;
}

static uint32_t cuenta_vistas()
{
    uint32_t num = 0;
    MEMORY_BASIC_INFORMATION zona;
    for (char *lugar = nullptr; VirtualQuery(lugar, &zona, sizeof zona) != 0;) {
        num += zona.State == MEM_COMMIT && zona.Type == MEM_MAPPED && zona.AllocationBase == zona.BaseAddress;
        lugar = static_cast<char *>(zona.BaseAddress) + zona.RegionSize;
    }
    return num;
}

memoria monton_de_la_biblioteca::mide(uint32_t hechos) const
{
    memoria m;
    PROCESS_HEAP_ENTRY entrada = {};
    HeapLock(m_monton);
    while (HeapWalk(m_monton, &entrada)) {
        bool ocupado = (entrada.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
        m.bloques_monton += ocupado;
        m.bytes_monton += ocupado ? entrada.cbData : 0;
    }
    HeapUnlock(m_monton);
    m.hechos = hechos;
    m.vistas = cuenta_vistas();
    m.bytes_privados = bytes_privados();
    return m;
}

// ---- Handles

namespace {

// What the system answers to question 64: the handles of all processes.
struct manejador_ajeno {
    void *objeto;
    uintptr_t proceso;
    uintptr_t valor;
    uint32_t acceso;
    uint16_t pila;
    uint16_t tipo;
    uint32_t atributos;
    uint32_t reservado;
};
struct lista_de_manejadores {
    uintptr_t num;
    uintptr_t reservado;
    manejador_ajeno manejadores[1];
};
constexpr int PREGUNTA_MANEJADORES = 64;
constexpr LONG FALTA_SITIO = static_cast<LONG>(0xC0000004);

std::vector<uint8_t> pregunta_manejadores()
{
    using consulta = LONG(WINAPI *)(int, void *, ULONG, ULONG *);
    static const consulta pregunta = reinterpret_cast<consulta>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<uint8_t> datos(1 << 20);
    LONG estado;
    while ((estado = pregunta(PREGUNTA_MANEJADORES, datos.data(), static_cast<ULONG>(datos.size()), nullptr)) ==
           FALTA_SITIO)
        datos.resize(datos.size() * 2);
    EXPECT_EQ(estado, 0) << "the system does not tell its handles";
    return datos;
}

// The numbers of the kinds differ between systems: they are read off one handle of each kind of our own.
class uno_de_cada {
public:
    uno_de_cada()
        : m_bloque(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 1, nullptr)),
          m_mutex(CreateMutexA(nullptr, FALSE, nullptr))
    {
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &m_hilo, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
    }
    ~uno_de_cada()
    {
        for (HANDLE manejador : {m_bloque, m_mutex, m_hilo})
            CloseHandle(manejador);
    }
    uno_de_cada(const uno_de_cada &) = delete;
    uno_de_cada &operator=(const uno_de_cada &) = delete;

    void reconoce(const manejador_ajeno &m)
    {
        HANDLE valor = reinterpret_cast<HANDLE>(m.valor);
        if (m.proceso != GetCurrentProcessId())
            return;
        tipo_bloque = valor == m_bloque ? m.tipo : tipo_bloque;
        tipo_mutex = valor == m_mutex ? m.tipo : tipo_mutex;
        tipo_hilo = valor == m_hilo ? m.tipo : tipo_hilo;
    }

    uint16_t tipo_bloque = 0, tipo_mutex = 0, tipo_hilo = 0;

private:
    HANDLE m_bloque, m_mutex, m_hilo = nullptr;
};

} // namespace

std::map<uint32_t, manejadores_vistos> manejadores_de_todos()
{
    uno_de_cada propios;
    const std::vector<uint8_t> datos = pregunta_manejadores();
    const lista_de_manejadores *lista = reinterpret_cast<const lista_de_manejadores *>(datos.data());
    const manejador_ajeno *fin = lista->manejadores + lista->num;
    for (const manejador_ajeno *m = lista->manejadores; m < fin; m++)
        propios.reconoce(*m);
    EXPECT_TRUE(propios.tipo_bloque != 0 && propios.tipo_mutex != 0 && propios.tipo_hilo != 0);

    std::map<uint32_t, manejadores_vistos> todos;
    for (const manejador_ajeno *m = lista->manejadores; m < fin; m++) {
        manejadores_vistos &v = todos[static_cast<uint32_t>(m->proceso)];
        int32_t &cuenta = m->tipo == propios.tipo_bloque  ? v.bloques
                          : m->tipo == propios.tipo_mutex ? v.mutexes
                          : m->tipo == propios.tipo_hilo  ? v.hilos
                                                          : v.otros;
        cuenta++;
    }
    return todos;
}
