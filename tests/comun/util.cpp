#include "util.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <mutex>

#include "cerrojo.h"
#include "manejadores.h"
#include "sistema.h"
#include "vigilante.h"

const char *nombre_unico(const char *base)
{
    static cerrojo candado;
    static std::deque<std::string> nombres; // a deque does not move them
    std::lock_guard<cerrojo> guarda(candado);
    char cola[32];
    snprintf(cola, sizeof cola, "_%lx_%zu", GetCurrentProcessId(), nombres.size() + 1);
    nombres.push_back(std::string(base).substr(0, 32) + cola);
    return nombres.back().c_str();
}

uint32_t cuenta_manejadores()
{
    const manejadores m = cuenta_por_tipo();
    return static_cast<uint32_t>(m.bloques + m.mutexes);
}

// Handles are multiples of 4, and a new one takes a low free place. GetProcessHandleCount answers 0 under
// Wine.
uint32_t cuenta_todos_los_manejadores()
{
    constexpr uint32_t i_MAX_HUECO = 1024;
    vigilante_en_reposo(5000);
    uint32_t num = 0;
    uintptr_t ultimo = 0;
    for (uintptr_t i = 1; i <= ultimo + i_MAX_HUECO; i++) {
        DWORD marcas;
        if (!GetHandleInformation(reinterpret_cast<HANDLE>(i * 4), &marcas))
            continue;
        num++;
        ultimo = i;
    }
    return num;
}

uint64_t mas_breve_de_cinco(const std::function<void()> &tarea)
{
    uint64_t menor = UINT64_MAX;
    for (int vez = 0; vez < 5; vez++) {
        uint64_t inicio = GetTickCount64();
        tarea();
        menor = std::min<uint64_t>(menor, GetTickCount64() - inicio);
    }
    return menor;
}

bool espera_hasta(const std::function<bool()> &condicion, uint32_t ms)
{
    uint64_t limite = GetTickCount64() + ms;
    while (!condicion()) {
        if (GetTickCount64() >= limite)
            return condicion();
        Sleep(2);
    }
    return true;
}

static std::string linea_de_volcado(const std::vector<uint8_t> &bytes, size_t ini)
{
    char trozo[16];
    snprintf(trozo, sizeof trozo, "%6zu ", ini);
    std::string linea = trozo, letras;
    for (size_t i = ini; i < ini + 16; i++) {
        if (i < bytes.size()) {
            snprintf(trozo, sizeof trozo, " %02x", bytes[i]);
            letras += 0x20 <= bytes[i] && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
        }
        linea += i < bytes.size() ? trozo : "   ";
    }
    return linea + "  " + letras;
}

std::string volcado_hex(const std::vector<uint8_t> &bytes)
{
    std::string texto;
    for (size_t ini = 0; ini < bytes.size(); ini += 16)
        texto += linea_de_volcado(bytes, ini) + "\n";
    return texto;
}

// The lines around byte `pos`, one before and two after, marked where they differ.
static std::string volcado_alrededor(const std::vector<uint8_t> &esperados, const std::vector<uint8_t> &reales,
                                     size_t pos)
{
    std::string texto;
    size_t primera = pos / 16 == 0 ? 0 : pos / 16 - 1;
    size_t num_lineas = (std::max(esperados.size(), reales.size()) + 15) / 16;
    for (size_t n = primera; n < std::min(primera + 4, num_lineas); n++) {
        std::string esperada = linea_de_volcado(esperados, n * 16), real = linea_de_volcado(reales, n * 16);
        bool igual = esperada == real;
        texto += (igual ? "\n    same" : "\nexpected") + esperada;
        texto += igual ? "" : "\n     got" + real;
    }
    return texto;
}

::testing::AssertionResult bytes_iguales(const std::vector<uint8_t> &esperados, const std::vector<uint8_t> &reales)
{
    if (esperados == reales)
        return ::testing::AssertionSuccess();
    size_t comunes = std::min(esperados.size(), reales.size());
    size_t pos = 0;
    while (pos < comunes && esperados[pos] == reales[pos])
        pos++;
    return ::testing::AssertionFailure() << "bytes differ first at " << pos << " (expected " << esperados.size()
                                         << " bytes, got " << reales.size() << ")"
                                         << volcado_alrededor(esperados, reales, pos);
}
