#include "leido.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <string>

#include <windows.h>
#include <winternl.h>

#include "texto.h"

namespace herramientas {

static const size_t TAM_CABECERA = 4;
static const int NUM_COPIAS = 50;

// What is mapped there may be no block at all: pages that nobody has committed, or a program's image. What can be read
// without a fault are the pages up to the first that differ.
static size_t tam_legible(const void *vista)
{
    const DWORD LEGIBLE = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE |
                          PAGE_EXECUTE_WRITECOPY;
    MEMORY_BASIC_INFORMATION info;
    if (VirtualQuery(vista, &info, sizeof info) == 0 || info.State != MEM_COMMIT || (info.Protect & LEGIBLE) == 0 ||
        (info.Protect & PAGE_GUARD) != 0)
        return 0;
    return info.RegionSize;
}

bloque_leido::bloque_leido(const std::string &nombre)
{
    m_mapa = OpenFileMappingA(FILE_MAP_READ, FALSE, nombre.c_str());
    if (m_mapa == nullptr)
        return;
    m_vista = static_cast<const uint8_t *>(MapViewOfFile(m_mapa, FILE_MAP_READ, 0, 0, 0));
    if (m_vista != nullptr)
        m_tam_vista = tam_legible(m_vista);
}

bloque_leido::~bloque_leido()
{
    if (m_vista != nullptr)
        UnmapViewOfFile(m_vista);
    if (m_mapa != nullptr)
        CloseHandle(m_mapa);
}

uint32_t bloque_leido::tam_dicho() const
{
    uint32_t tam = 0;
    if (m_tam_vista >= TAM_CABECERA)
        memcpy(&tam, m_vista, sizeof tam);
    return tam;
}

// The header is another program's word.
size_t bloque_leido::tam() const
{
    return m_tam_vista < TAM_CABECERA ? 0 : std::min<size_t>(tam_dicho(), m_tam_vista - TAM_CABECERA);
}

const uint8_t *bloque_leido::datos() const
{
    return abierto() ? m_vista + TAM_CABECERA : nullptr;
}

bool bloque_leido::copia(void *destino, size_t num) const
{
    if (!abierto() || num > tam())
        return false;
    return num == 0 || copia_quieta(destino, num, [&](void *copia) { memcpy(copia, datos(), num); });
}

bool copia_quieta(void *destino, size_t num, const std::function<void(void *)> &lee)
{
    std::vector<uint8_t> antes(num);
    lee(destino);
    for (int n = 0; n < NUM_COPIAS; n++) {
        memcpy(antes.data(), destino, num);
        std::atomic_thread_fence(std::memory_order_seq_cst); // the second copy is read anew
        lee(destino);
        if (memcmp(antes.data(), destino, num) == 0)
            return true;
    }
    return false;
}

// ---- The session's directory of objects

namespace {

const size_t TAM_MAXIMO_OBJETO = size_t{132} * 1024; // a name and a type have 64 KiB at most

using abre_directorio = NTSTATUS(NTAPI *)(HANDLE *, ACCESS_MASK, OBJECT_ATTRIBUTES *);
using lee_directorio = NTSTATUS(NTAPI *)(HANDLE, void *, ULONG, BOOLEAN, BOOLEAN, ULONG *, ULONG *);

struct objeto {
    UNICODE_STRING nombre;
    UNICODE_STRING tipo;
};

template <typename F>
F de_ntdll(const char *nombre)
{
    return reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("ntdll.dll"), nombre)));
}

HANDLE directorio_de_la_sesion()
{
    DWORD sesion = 0;
    auto abre = de_ntdll<abre_directorio>("NtOpenDirectoryObject");
    if (abre == nullptr || !ProcessIdToSessionId(GetCurrentProcessId(), &sesion))
        return nullptr;
    std::wstring ruta =
        sesion == 0 ? L"\\BaseNamedObjects" : L"\\Sessions\\" + std::to_wstring(sesion) + L"\\BaseNamedObjects";
    UNICODE_STRING nombre = {};
    nombre.Length = nombre.MaximumLength = static_cast<USHORT>(ruta.size() * sizeof(wchar_t));
    nombre.Buffer = &ruta[0];
    OBJECT_ATTRIBUTES atributos = {};
    atributos.Length = sizeof atributos;
    atributos.ObjectName = &nombre;
    HANDLE directorio = nullptr;
    return abre(&directorio, 1 /* query */, &atributos) >= 0 ? directorio : nullptr;
}

std::wstring texto_de(const UNICODE_STRING &texto)
{
    return std::wstring(texto.Buffer, texto.Length / sizeof(wchar_t));
}

} // namespace

std::vector<std::string> bloques_que_empiezan_por(const std::string &prefijo)
{
    std::vector<std::string> nombres;
    auto lee = de_ntdll<lee_directorio>("NtQueryDirectoryObject");
    HANDLE directorio = lee != nullptr ? directorio_de_la_sesion() : nullptr;
    if (directorio == nullptr)
        return nombres;
    std::vector<objeto> uno(TAM_MAXIMO_OBJETO / sizeof(objeto));
    ULONG tam = static_cast<ULONG>(uno.size() * sizeof(objeto));
    ULONG sitio = 0, leidos = 0;
    for (BOOLEAN primero = TRUE; lee(directorio, uno.data(), tam, TRUE, primero, &sitio, &leidos) >= 0;
         primero = FALSE) {
        // Programs name blocks in ANSI: what has no such name is none of ours.
        std::optional<std::string> nombre = a_ansi(de_ancho(texto_de(uno[0].nombre)));
        if (nombre && texto_de(uno[0].tipo) == L"Section" && nombre->compare(0, prefijo.size(), prefijo) == 0)
            nombres.push_back(*nombre);
    }
    CloseHandle(directorio);
    std::sort(nombres.begin(), nombres.end());
    return nombres;
}

} // namespace herramientas
