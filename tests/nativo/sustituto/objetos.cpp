// Named mutexes and mappings of the stand-in.
#include "sustituto.h"

#include <sanitizer/asan_interface.h>
#include <sys/mman.h>

#include <map>
#include <memory>
#include <set>

#include "interno.h"

namespace {

const size_t MAYOR_LIBRE = 1u << 16;

// Free pages of each size, to be used again: the kernel is slow to give and take them.
std::map<size_t, std::vector<uint8_t *>> s_paginas_libres;

// Pages that a view can show, zeroed, with one behind them that nobody may touch.
class paginas {
public:
    explicit paginas(size_t tam) : m_tam(tam)
    {
        std::vector<uint8_t *> &libres = s_paginas_libres[tam];
        if (!libres.empty()) {
            m_bytes = libres.back();
            libres.pop_back();
            memset(m_bytes, 0, tam);
            return;
        }
        const int banderas = MAP_PRIVATE | MAP_ANONYMOUS;
        void *sitio = mmap(nullptr, tam + sustituto::TAM_PAGINA, PROT_NONE, banderas, -1, 0);
        interno::exige(sitio != MAP_FAILED, "no address space");
        interno::exige(mprotect(sitio, tam, PROT_READ | PROT_WRITE) == 0, "no memory for a mapping");
        m_bytes = static_cast<uint8_t *>(sitio);
    }
    ~paginas()
    {
        ASAN_UNPOISON_MEMORY_REGION(m_bytes, m_tam);
        if (m_tam <= MAYOR_LIBRE)
            s_paginas_libres[m_tam].push_back(m_bytes);
        else
            munmap(m_bytes, m_tam + sustituto::TAM_PAGINA);
    }
    paginas(const paginas &) = delete;
    paginas &operator=(const paginas &) = delete;

    uint8_t *bytes() const { return m_bytes; }
    size_t tam() const { return m_tam; }

private:
    size_t m_tam;
    uint8_t *m_bytes;
};

struct objeto {
    std::unique_ptr<paginas> memoria; // of a mapping; a mutex has none
    uint32_t tam = 0;                 // that the mapping was made with
    uint32_t veces = 0;               // that the mutex is held
    std::string nombre;
};

using ref = std::shared_ptr<objeto>;

const size_t MAYOR_MAPA = 1u << 24;

std::map<std::string, std::weak_ptr<objeto>> s_por_nombre;
std::map<HANDLE, ref> s_manejadores;
std::map<const void *, ref> s_vistas;
std::vector<ref> s_ajenos; // kept open by another program
uintptr_t s_ultimo_manejador = 0;
bool s_fallan_vistas = false;

ref busca(const char *nombre)
{
    auto hallado = s_por_nombre.find(nombre);
    return hallado != s_por_nombre.end() ? hallado->second.lock() : nullptr;
}

HANDLE da_manejador(const ref &o)
{
    s_ultimo_manejador += 4; // never used again, so that a stale one is seen
    HANDLE manejador = reinterpret_cast<HANDLE>(s_ultimo_manejador);
    s_manejadores[manejador] = o;
    return manejador;
}

ref de_manejador(HANDLE manejador)
{
    auto hallado = s_manejadores.find(manejador);
    if (hallado != s_manejadores.end())
        return hallado->second;
    interno::pon_error(ERROR_INVALID_HANDLE);
    return nullptr;
}

ref crea(const char *nombre, size_t tam)
{
    ref o = std::make_shared<objeto>();
    o->nombre = nombre;
    if (tam != 0) {
        size_t redondo = (tam + sustituto::TAM_PAGINA - 1) / sustituto::TAM_PAGINA * sustituto::TAM_PAGINA;
        o->memoria = std::make_unique<paginas>(redondo);
        o->tam = static_cast<uint32_t>(tam);
    }
    s_por_nombre[nombre] = o;
    return o;
}

// A handle of the object, made (as a mapping where tam is not 0) or opened; NULL where the name is another
// kind's.
HANDLE crea_o_abre(const char *nombre, size_t tam)
{
    ref o = busca(nombre);
    if (o != nullptr && (o->memoria != nullptr) != (tam != 0)) {
        interno::pon_error(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    interno::pon_error(o != nullptr ? ERROR_ALREADY_EXISTS : 0);
    return da_manejador(o != nullptr ? o : crea(nombre, tam));
}

ref mapa(const char *nombre)
{
    ref o = busca(nombre);
    return o != nullptr && o->memoria != nullptr ? o : nullptr;
}

} // namespace

HANDLE CreateMutexA(void *, BOOL, LPCSTR nombre)
{
    return crea_o_abre(nombre, 0);
}

BOOL ReleaseMutex(HANDLE mutex)
{
    ref o = de_manejador(mutex);
    if (o == nullptr || o->veces == 0) {
        interno::pon_error(ERROR_NOT_OWNER);
        return FALSE;
    }
    o->veces--;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE objeto, DWORD)
{
    ref o = de_manejador(objeto);
    if (o == nullptr)
        return WAIT_FAILED;
    interno::exige(o->memoria == nullptr, "a wait for a mapping");
    o->veces++;
    return WAIT_OBJECT_0;
}

BOOL CloseHandle(HANDLE manejador)
{
    if (s_manejadores.erase(manejador) != 0)
        return TRUE;
    interno::exige(manejador == nullptr, "a handle is closed that is not open");
    interno::pon_error(ERROR_INVALID_HANDLE);
    return FALSE;
}

HANDLE CreateFileMappingA(HANDLE, void *, DWORD, DWORD tam_alto, DWORD tam_bajo, LPCSTR nombre)
{
    size_t tam = static_cast<size_t>(tam_alto) << 32 | tam_bajo;
    if (tam != 0 && (tam <= MAYOR_MAPA || busca(nombre) != nullptr))
        return crea_o_abre(nombre, tam);
    interno::pon_error(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

HANDLE OpenFileMappingA(DWORD, BOOL, LPCSTR nombre)
{
    ref o = busca(nombre);
    if (o == nullptr || o->memoria == nullptr) {
        interno::pon_error(o == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return da_manejador(o);
}

// Views of one mapping share an address here. Each is counted by a key of its own: they are few.
LPVOID MapViewOfFile(HANDLE hmap, DWORD, DWORD, DWORD, SIZE_T)
{
    ref o = de_manejador(hmap);
    interno::exige(o != nullptr && o->memoria != nullptr, "a view of what is no mapping");
    if (s_fallan_vistas) {
        interno::pon_error(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    o->veces++;
    s_vistas[o->memoria->bytes()] = o;
    return o->memoria->bytes();
}

BOOL UnmapViewOfFile(const void *vista)
{
    auto hallada = s_vistas.find(vista);
    interno::exige(hallada != s_vistas.end(), "a view is unmapped that is not mapped");
    if (--hallada->second->veces == 0)
        s_vistas.erase(hallada);
    return TRUE;
}

SIZE_T VirtualQuery(const void *sitio, MEMORY_BASIC_INFORMATION *informacion, SIZE_T)
{
    auto hallada = s_vistas.find(sitio);
    interno::exige(hallada != s_vistas.end(), "a question about what is no view");
    informacion->BaseAddress = hallada->second->memoria->bytes();
    informacion->RegionSize = hallada->second->memoria->tam();
    informacion->State = MEM_COMMIT;
    informacion->Protect = PAGE_READWRITE;
    return sizeof *informacion;
}

uint8_t *sustituto::pon_mapa(const char *nombre, uint32_t tam)
{
    ref o = mapa(nombre);
    if (o == nullptr) {
        interno::exige(busca(nombre) == nullptr, "the name is a mutex's");
        o = crea(nombre, tam);
    }
    s_ajenos.push_back(o);
    return o->memoria->bytes();
}

void sustituto::pon_mutex(const char *nombre)
{
    ref o = busca(nombre);
    s_ajenos.push_back(o != nullptr ? o : crea(nombre, 0));
}

void sustituto::cerca_mapa(const char *nombre)
{
    ref o = mapa(nombre);
    interno::exige(o != nullptr, "no such mapping");
    uint8_t *bytes = o->memoria->bytes();
    size_t tam = o->memoria->tam();
    ASAN_UNPOISON_MEMORY_REGION(bytes, tam);
    uint32_t cabecera = 0;
    if (o->tam < sizeof cabecera)
        return;
    memcpy(&cabecera, bytes, sizeof cabecera);
    if (cabecera <= o->tam - sizeof cabecera)
        ASAN_POISON_MEMORY_REGION(bytes + o->tam, tam - o->tam);
}

bool sustituto::hay_mapa(const char *nombre)
{
    return mapa(nombre) != nullptr;
}

uint32_t sustituto::tam_mapa(const char *nombre)
{
    ref o = mapa(nombre);
    return o != nullptr ? static_cast<uint32_t>(o->memoria->tam()) : 0;
}

void sustituto::fallan_vistas(bool fallan)
{
    s_fallan_vistas = fallan;
}

size_t sustituto::num_vistas()
{
    size_t num = 0;
    for (const auto &vista : s_vistas)
        num += vista.second->veces;
    return num;
}

size_t sustituto::num_mutex_tomados()
{
    std::set<objeto *> tomados;
    for (const auto &m : s_manejadores)
        if (m.second->memoria == nullptr && m.second->veces != 0)
            tomados.insert(m.second.get());
    return tomados.size();
}

void interno::reinicia_objetos()
{
    exige(sustituto::num_vistas() == 0, "a view is still mapped");
    exige(sustituto::num_mutex_tomados() == 0, "a mutex is still held");
    s_manejadores.clear();
    s_ajenos.clear();
    s_por_nombre.clear();
    s_fallan_vistas = false;
}
