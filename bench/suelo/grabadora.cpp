#include "grabadora.h"

#include "../comun/proceso.h"

#include <cstring>
#include <stdexcept>
#include <vector>

namespace banco {

namespace {

cinta *s_cinta;
DWORD s_hilo;
std::vector<std::string> s_nombres;
decltype(&GetProcAddress) s_dame_direccion = GetProcAddress;

// The registers that carry arguments, as the machine code below pushes them, and the stack above.
struct argumentos {
    uint64_t r9, r8, rdx, rcx, vuelta, sombra[4], quinto;
};

uint32_t tam_pedido(const std::string &nombre, const argumentos &a)
{
    if (nombre == "HeapAlloc")
        return static_cast<uint32_t>(a.r8);
    if (nombre == "HeapReAlloc")
        return static_cast<uint32_t>(a.r9);
    if (nombre == "CreateFileMappingA")
        return static_cast<uint32_t>(a.quinto);
    return 0;
}

// Calls nothing that would change the last error.
void anota(uint32_t n, const argumentos *a)
{
    if (s_cinta->graba == 0 || GetCurrentThreadId() != s_hilo)
        return;
    uint32_t k = s_cinta->num++;
    if (k >= sizeof s_cinta->llamadas / sizeof s_cinta->llamadas[0])
        return;
    llamada_grabada *llamada = &s_cinta->llamadas[k];
    std::strncpy(llamada->nombre, s_nombres[n].c_str(), sizeof llamada->nombre - 1);
    llamada->tam = tam_pedido(s_nombres[n], *a);
}

class codigo {
public:
    explicit codigo(uint8_t *donde) : donde_(donde) {}
    codigo &pon(std::initializer_list<uint8_t> bytes)
    {
        for (uint8_t byte : bytes)
            *donde_++ = byte;
        return *this;
    }
    template <typename numero>
    codigo &pon(numero valor)
    {
        std::memcpy(donde_, &valor, sizeof valor);
        donde_ += sizeof valor;
        return *this;
    }

private:
    uint8_t *donde_;
};

const size_t TAM_DESVIO = 64;

// Notes the call and jumps to the function, with all arguments and the stack as they were. No floating-point argument
// is kept: no function here takes one.
void escribe_desvio(uint8_t *donde, uint32_t n, void *funcion)
{
    codigo(donde)
        .pon({0x51, 0x52, 0x41, 0x50, 0x41, 0x51}) // push rcx, rdx, r8, r9
        .pon({0x48, 0x83, 0xEC, 0x28})             // sub rsp, 28h
        .pon({0xB9})
        .pon(n)                              // mov ecx, n
        .pon({0x48, 0x8D, 0x54, 0x24, 0x28}) // lea rdx, [rsp + 28h]
        .pon({0x48, 0xB8})
        .pon(reinterpret_cast<uint64_t>(&anota))
        .pon({0xFF, 0xD0})                         // call anota
        .pon({0x48, 0x83, 0xC4, 0x28})             // add rsp, 28h
        .pon({0x41, 0x59, 0x41, 0x58, 0x5A, 0x59}) // pop r9, r8, rdx, rcx
        .pon({0x48, 0xB8})
        .pon(reinterpret_cast<uint64_t>(funcion))
        .pon({0xFF, 0xE0}); // jmp funcion
}

void *desvia(const std::string &nombre, void *funcion)
{
    const size_t TAM_ZONA = 65536;
    static uint8_t *zona = nullptr;
    static size_t usado = TAM_ZONA;
    if (usado + TAM_DESVIO > TAM_ZONA) {
        zona =
            static_cast<uint8_t *>(VirtualAlloc(nullptr, TAM_ZONA, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE));
        if (zona == nullptr)
            falla("VirtualAlloc");
        usado = 0;
    }
    uint8_t *donde = zona + usado;
    usado += TAM_DESVIO;
    s_nombres.push_back(nombre);
    escribe_desvio(donde, static_cast<uint32_t>(s_nombres.size() - 1), funcion);
    return donde;
}

FARPROC WINAPI dame_direccion(HMODULE modulo, LPCSTR nombre)
{
    FARPROC funcion = s_dame_direccion(modulo, nombre);
    if (funcion == nullptr)
        return nullptr;
    return reinterpret_cast<FARPROC>(desvia(nombre, reinterpret_cast<void *>(funcion)));
}

void cambia(void **entrada, const std::string &nombre)
{
    void *otra = nombre == "GetProcAddress" ? reinterpret_cast<void *>(&dame_direccion) : desvia(nombre, *entrada);
    DWORD proteccion;
    if (!VirtualProtect(entrada, sizeof *entrada, PAGE_READWRITE, &proteccion))
        falla("VirtualProtect");
    *entrada = otra;
    VirtualProtect(entrada, sizeof *entrada, proteccion, &proteccion);
}

void cambia_importaciones(uint8_t *modulo)
{
    auto dos = reinterpret_cast<IMAGE_DOS_HEADER *>(modulo);
    auto nt = reinterpret_cast<IMAGE_NT_HEADERS *>(modulo + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY &donde = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    auto dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR *>(modulo + donde.VirtualAddress);
    for (; dll->Name != 0; dll++) {
        auto nombres = reinterpret_cast<IMAGE_THUNK_DATA *>(modulo + dll->OriginalFirstThunk);
        auto entradas = reinterpret_cast<void **>(modulo + dll->FirstThunk);
        for (; nombres->u1.AddressOfData != 0; nombres++, entradas++) {
            if (IMAGE_SNAP_BY_ORDINAL(nombres->u1.Ordinal))
                throw std::runtime_error("ivrexa.dll imports a function without a name");
            auto nombre = reinterpret_cast<IMAGE_IMPORT_BY_NAME *>(modulo + nombres->u1.AddressOfData);
            cambia(entradas, reinterpret_cast<const char *>(nombre->Name));
        }
    }
}

} // namespace

cintas *cintas_de(const std::string &sesion)
{
    return static_cast<cintas *>(mapea("banco_counts_" + sesion, sizeof(cintas)));
}

void grabadora_empieza(cinta *cinta)
{
    s_cinta = cinta;
    s_hilo = GetCurrentThreadId();
    s_nombres.reserve(256); // other threads read it while late bindings add to it
    HMODULE modulo = GetModuleHandleA("ivrexa.dll");
    if (modulo == nullptr)
        falla("ivrexa.dll is not loaded");
    cambia_importaciones(reinterpret_cast<uint8_t *>(modulo));
}

} // namespace banco
