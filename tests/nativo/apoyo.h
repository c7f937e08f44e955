// apoyo.h - what the fuzzers share: an input read piece by piece, checks that end the run, and the end of an
// execution.
#ifndef NATIVO_APOYO_H
#define NATIVO_APOYO_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "iv_mem.h"
#include "sustituto.h"

using bytes = std::vector<uint8_t>;

#define COMPRUEBA(cond) ((cond) ? (void)0 : apoyo::falla(#cond, __FILE__, __LINE__))

namespace apoyo {

[[noreturn]] inline void falla(const char *cond, const char *fichero, int linea)
{
    fprintf(stderr, "%s:%d: does not hold: %s\n", fichero, linea, cond);
    for (const std::string &informe : sustituto::informes())
        fprintf(stderr, "  report: %s\n", informe.c_str());
    abort();
}

// The input of one execution. Past its end everything is 0.
class entrada {
public:
    entrada(const uint8_t *datos, size_t tam) : m_datos(datos), m_quedan(tam) {}

    bool vacia() const { return m_quedan == 0; }
    uint8_t u8() { return numero<uint8_t>(); }
    uint16_t u16() { return numero<uint16_t>(); }
    uint32_t u32() { return numero<uint32_t>(); }
    uint64_t u64() { return numero<uint64_t>(); }

    // As many as there are, up to n.
    bytes toma(size_t n)
    {
        n = n < m_quedan ? n : m_quedan;
        bytes b(m_datos, m_datos + n);
        m_datos += n;
        m_quedan -= n;
        return b;
    }
    bytes resto() { return toma(m_quedan); }

    // A length byte and that many characters, up to a NUL among them.
    std::string texto()
    {
        bytes b = toma(u8());
        return std::string(b.begin(), std::find(b.begin(), b.end(), 0));
    }

private:
    template <typename tipo>
    tipo numero()
    {
        bytes b = toma(sizeof(tipo));
        tipo n = 0;
        if (!b.empty())
            memcpy(&n, b.data(), b.size());
        return n;
    }

    const uint8_t *m_datos;
    size_t m_quedan;
};

// A seed, written as `entrada` reads it.
class salida {
public:
    salida &u8(uint32_t n) { return pon(&n, 1); }
    salida &u16(uint32_t n) { return pon(&n, 2); }
    salida &u32(uint32_t n) { return pon(&n, 4); }
    salida &u64(uint64_t n) { return pon(&n, 8); }
    salida &texto(const std::string &t) { return u8(static_cast<uint32_t>(t.size())).pon(t.data(), t.size()); }
    salida &pon(const void *datos, size_t n)
    {
        const uint8_t *p = static_cast<const uint8_t *>(datos);
        m_bytes.insert(m_bytes.end(), p, p + n);
        return *this;
    }
    operator const bytes &() const { return m_bytes; }

private:
    bytes m_bytes;
};

// A copy in a block of malloc's of exactly its size: who reads past its end is seen.
template <typename letra>
class exacto {
public:
    exacto(const letra *origen, size_t num)
        : m_num(num), m_letras(static_cast<letra *>(malloc(num != 0 ? num * sizeof(letra) : 1)))
    {
        if (num != 0)
            memcpy(m_letras, origen, num * sizeof(letra));
    }
    ~exacto() { free(m_letras); }
    exacto(const exacto &) = delete;
    exacto &operator=(const exacto &) = delete;

    letra *get() { return m_letras; }
    size_t size() const { return m_num; }

private:
    size_t m_num;
    letra *m_letras;
};

// Whether these are the reports made since they were last forgotten, in this order. Forgets them.
inline bool informes_son(const std::vector<std::string> &esperados)
{
    bool iguales = sustituto::informes() == esperados;
    if (iguales)
        sustituto::olvida_informes();
    return iguales;
}

// The end of an execution: only what is said to be leaked on purpose stands in the heap, and nothing is held.
inline void termina(size_t num_bloques_olvidados = 0)
{
    COMPRUEBA(sustituto::num_bloques() == num_bloques_olvidados);
    iv_mem_cierra();
    sustituto::reinicia();
}

} // namespace apoyo

#endif
