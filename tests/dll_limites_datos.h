// dll_limites_datos.h - large command data: bytes by the gigabyte that take two megabytes, a server that checks and
// answers them, and a system that refuses memory to the DLL. For one source file of a program.
#ifndef DLL_LIMITES_DATOS_H
#define DLL_LIMITES_DATOS_H

#include <cstring>
#include <string>

#include "dll_conversa.h"

// ---- Bytes to send

// So many bytes in a row, which repeat only after the whole: chunks of two kinds in the order of the number of ones in
// their index, so that no shift by a chunk is another's place. The chunks of a kind are the same memory.
class bytes_de_muestra {
public:
    explicit bytes_de_muestra(size_t tam) : m_num_vistas((tam + TROZO - 1) / TROZO + 1)
    {
        for (uint64_t tipo = 0; tipo < 2; tipo++)
            llena(tipo);
        for (int intento = 0; intento < 8 && m_bytes == nullptr; intento++) // another thread may come first
            mapea();
        EXPECT_NE(m_bytes, nullptr) << "no room for a row of " << tam << " bytes";
    }
    ~bytes_de_muestra()
    {
        for (size_t k = 0; m_bytes != nullptr && k < m_num_vistas; k++)
            UnmapViewOfFile(m_bytes + k * TROZO);
        for (HANDLE mapa : m_mapas)
            CloseHandle(mapa);
    }
    bytes_de_muestra(const bytes_de_muestra &) = delete;
    bytes_de_muestra &operator=(const bytes_de_muestra &) = delete;

    // Those of value n begin n bytes further on.
    const uint8_t *del_valor(uint32_t n) const { return m_bytes + n; }

private:
    static const size_t TROZO = 1u << 20;

    void llena(uint64_t tipo)
    {
        m_mapas[tipo] = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, TROZO, nullptr);
        uint64_t *palabras = static_cast<uint64_t *>(MapViewOfFile(m_mapas[tipo], FILE_MAP_WRITE, 0, 0, 0));
        for (uint64_t i = 0; i < TROZO / 8; i++)
            palabras[i] = (2 * i + tipo + 1) * 0x9e3779b97f4a7c15u;
        UnmapViewOfFile(palabras);
    }
    void mapea()
    {
        uint8_t *sitio =
            static_cast<uint8_t *>(VirtualAlloc(nullptr, m_num_vistas * TROZO, MEM_RESERVE, PAGE_NOACCESS));
        VirtualFree(sitio, 0, MEM_RELEASE);
        size_t k = 0;
        while (k < m_num_vistas && MapViewOfFileEx(m_mapas[__builtin_popcountll(k) & 1], FILE_MAP_READ, 0, 0, 0,
                                                   sitio + k * TROZO) != nullptr)
            k++;
        if (k == m_num_vistas)
            m_bytes = sitio;
        while (k < m_num_vistas && k-- > 0)
            UnmapViewOfFile(sitio + k * TROZO);
    }

    const size_t m_num_vistas;
    HANDLE m_mapas[2] = {};
    uint8_t *m_bytes = nullptr;
};

// ---- A server

enum : uint32_t {
    datos_DEVUELVE = 200,  // answers the buffers of the input
    datos_COMPRUEBA = 201, // only checks them
};

// How many values there are, "nada" for no input; behind it the first that is not as sent.
inline std::string comprueba_valores(comdat *datos)
{
    if (datos == nullptr)
        return "nada";
    uint32_t num = ivrexa_numero_valores(datos);
    for (uint32_t i = 0; i < num; i++) {
        uint32_t tam = 0;
        const void *bytes = ivrexa_dame_buffer(datos, i, &tam);
        if (ivrexa_nombre_valor(datos, i) != std::to_string(i))
            return std::to_string(num) + " value " + std::to_string(i) + " has another name";
        if (tam != 0 && memcmp(bytes, bytes_de_muestra(size_t{tam} + i).del_valor(i), tam) != 0)
            return std::to_string(num) + " value " + std::to_string(i) + " of " + std::to_string(tam) + " differs";
    }
    return std::to_string(num);
}

inline void copia_buffers(comdat *de, comdat *a)
{
    for (uint32_t i = 0; i < ivrexa_numero_valores(de); i++) {
        uint32_t tam = 0;
        const void *bytes = ivrexa_dame_buffer(de, i, &tam);
        ivrexa_graba_buffer(a, ivrexa_nombre_valor(de, i), bytes, tam);
    }
}

inline int32_t atiende_datos(anfitrion_peticion *p)
{
    std::wstring leido = de_utf8(comprueba_valores(p->entrada));
    uint32_t id_salida = 0;
    if (p->id_comando == datos_DEVUELVE) {
        p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
        if (p->entrada != nullptr)
            copia_buffers(p->entrada, p->salida);
        id_salida = ivrexa_guarda_datos(p->salida);
    }
    return ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, id_salida, L"", leido.c_str(), L"");
}

PAPEL(servidor_de_datos)
{
    anfitrion_yo.otros = atiende_datos;
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

// ---- A client in this process

struct destructor_comdat {
    void operator()(comdat *c) const { ivrexa_destruye_datos_comando(c); }
};
using contenedor = std::unique_ptr<comdat, destructor_comdat>;

inline contenedor entrada_de(const std::string &servicio)
{
    return contenedor(ivrexa_crea_datos_comando_entrada(servicio.c_str()));
}

inline void graba_muestra(const contenedor &c, uint32_t n, uint32_t tam)
{
    ivrexa_graba_buffer(c.get(), std::to_string(n).c_str(), bytes_de_muestra(size_t{tam} + n).del_valor(n), tam);
}

// ---- A system that refuses

// A call that the DLL imports, replaced in this process for a while.
class importacion_de_la_dll {
public:
    importacion_de_la_dll(const char *nombre, void *otra) : m_entrada(busca(nombre)), m_antes(*m_entrada) { pon(otra); }
    ~importacion_de_la_dll() { pon(m_antes); }
    importacion_de_la_dll(const importacion_de_la_dll &) = delete;
    importacion_de_la_dll &operator=(const importacion_de_la_dll &) = delete;

private:
    static void **busca(const char *nombre)
    {
        uint8_t *modulo = reinterpret_cast<uint8_t *>(GetModuleHandleA("ivrexa.dll"));
        auto *cabecera =
            reinterpret_cast<IMAGE_NT_HEADERS64 *>(modulo + reinterpret_cast<IMAGE_DOS_HEADER *>(modulo)->e_lfanew);
        uint32_t lista = cabecera->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        auto *de = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR *>(modulo + lista); // it imports KERNEL32 alone
        auto *nombres = reinterpret_cast<uint64_t *>(modulo + de->OriginalFirstThunk);
        auto **entradas = reinterpret_cast<void **>(modulo + de->FirstThunk);
        for (size_t i = 0; nombres[i] != 0; i++)
            if (strcmp(reinterpret_cast<IMAGE_IMPORT_BY_NAME *>(modulo + nombres[i])->Name, nombre) == 0)
                return &entradas[i];
        ADD_FAILURE() << "the DLL does not import " << nombre;
        static void *ninguna;
        return &ninguna;
    }
    void pon(void *otra)
    {
        DWORD proteccion;
        VirtualProtect(m_entrada, sizeof *m_entrada, PAGE_READWRITE, &proteccion);
        *m_entrada = otra;
        VirtualProtect(m_entrada, sizeof *m_entrada, proteccion, &proteccion);
    }

    void **const m_entrada;
    void *const m_antes;
};

// What is larger than this is refused: by NULL, as Wine's heap does, or by raising, as Windows' does.
enum : size_t { datos_NEGADO = 1u << 20 };

inline void *WINAPI niega_HeapAlloc(HANDLE heap, DWORD opciones, SIZE_T tam)
{
    return tam > datos_NEGADO ? nullptr : HeapAlloc(heap, opciones, tam);
}

inline void *WINAPI niega_HeapReAlloc(HANDLE heap, DWORD opciones, void *bloque, SIZE_T tam)
{
    return tam > datos_NEGADO ? nullptr : HeapReAlloc(heap, opciones, bloque, tam);
}

inline void *WINAPI lanza_HeapAlloc(HANDLE heap, DWORD opciones, SIZE_T tam)
{
    if (tam > datos_NEGADO)
        RaiseException(static_cast<DWORD>(STATUS_NO_MEMORY), 0, 0, nullptr);
    return HeapAlloc(heap, opciones, tam);
}

inline void *WINAPI lanza_HeapReAlloc(HANDLE heap, DWORD opciones, void *bloque, SIZE_T tam)
{
    if (tam > datos_NEGADO)
        RaiseException(static_cast<DWORD>(STATUS_NO_MEMORY), 0, 0, nullptr);
    return HeapReAlloc(heap, opciones, bloque, tam);
}

inline HANDLE WINAPI niega_CreateFileMappingA(HANDLE fichero, LPSECURITY_ATTRIBUTES seguridad, DWORD proteccion,
                                              DWORD alto, DWORD bajo, LPCSTR nombre)
{
    if (bajo <= datos_NEGADO)
        return CreateFileMappingA(fichero, seguridad, proteccion, alto, bajo, nombre);
    SetLastError(ERROR_COMMITMENT_LIMIT);
    return nullptr;
}

#endif
