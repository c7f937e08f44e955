// modelo.h - what the monitor has seen, apart from any window: a bounded history, what of it is shown, and what the
// blocks held.
#ifndef MONITOR_MODELO_H
#define MONITOR_MODELO_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "comun/valores.h"
#include "comun/vigia.h"

namespace monitor {

using herramientas::clase;
using herramientas::contenido;
using herramientas::lado;
using herramientas::suceso;

// The bit of a kind in a filter.
constexpr uint32_t bit_de(clase c)
{
    return 1u << static_cast<uint32_t>(c);
}

struct filtro {
    std::string servicio;         // UTF-8: shown are services whose name contains it, in any case; "" = all
    uint32_t clases = 0xffffffff; // gaps are always shown
};

bool operator==(const filtro &a, const filtro &b);
bool pasa(const filtro &f, const suceso &s);

// A filter made ready for many events.
class criba {
public:
    explicit criba(const filtro &f = {});
    bool pasa(const suceso &s) const;

private:
    uint32_t m_clases;
    std::wstring m_servicio;
};

// Events in order, the oldest dropped once there are more than `max`. Positions of those that are shown hold until the
// next call that changes something. While it is paused, what comes is kept aside, within the same bound, and comes in
// at the end of the pause.
class historia {
public:
    explicit historia(size_t max = 200000);

    void anyade(const suceso &s); // its number is greater than all before
    void filtra(const filtro &f);
    const filtro &filtrado() const { return m_filtro; }
    void pausa(bool parada);
    void limpia(); // what is kept aside too

    bool parada() const { return m_parada; }
    size_t num_visibles() const { return m_visibles.size(); }
    const suceso &visible(size_t i) const;
    std::optional<size_t> sitio_visible(uint64_t numero) const; // of the event, when it is shown
    size_t num_sucesos() const { return m_sucesos.size(); }     // kept, shown or not
    size_t num_aparte() const { return m_aparte.size(); }
    uint64_t num_descartados() const { return m_descartados; } // dropped to keep the bound, since the last limpia
    uint64_t num_perdidos() const { return m_perdidos; }       // told by gaps, since the last limpia

private:
    void mete(const suceso &s);
    void quita_el_primero();
    const suceso &en_sitio(uint64_t sitio) const { return m_sucesos[static_cast<size_t>(sitio - m_primero)]; }

    size_t m_max;
    filtro m_filtro;
    criba m_criba; // of it
    bool m_parada = false;
    std::deque<suceso> m_sucesos;    // in the order of their numbers
    uint64_t m_primero = 0;          // place of the first of them; places count from 0 and never come again
    std::deque<uint64_t> m_visibles; // places of those that are shown, in order
    std::deque<suceso> m_aparte;
    uint64_t m_descartados = 0, m_perdidos = 0;
};

// A channel that is made anew numbers its blocks from the beginning: whether, for all that is known, the channel of an
// event is still the one of its time, so that the number of its block is still that block's.
class vidas {
public:
    void anota(const suceso &s); // in their order
    void acaban_todas();         // something may have happened that nobody tells
    bool sigue(const suceso &s) const;

private:
    std::map<std::string, uint64_t> m_empieza; // number of the last event that told of the service itself
    uint64_t m_todas = 0, m_ultimo = 0; // of the last event behind which none of before goes on; of the last of all
};

size_t tam_de(const contenido &c); // bytes of memory that it takes, about

// What the blocks of events held, by the events' numbers; the oldest are forgotten once all are larger than
// `max_bytes`, so one that is larger by itself is not kept.
class contenidos {
public:
    explicit contenidos(size_t max_bytes = 64u << 20);
    void guarda(uint64_t numero, contenido c);
    const contenido *de(uint64_t numero) const; // nullptr: not there
    void limpia();
    void pasa_a(contenidos *otros); // all of them; here is nothing then

private:
    struct uno {
        contenido c;
        size_t tam = 0;
    };
    std::map<uint64_t, uno> m_todos;
    size_t m_max_bytes, m_bytes = 0;
};

// The shown events as a file's text, UTF-8. CSV: a BOM, a header line, RFC 4180, and a text that a spreadsheet would
// take for a formula made harmless. JSON lines: an event a line, with "values" where they are known.
std::string como_csv(const historia &h);
std::string como_json_lineas(const historia &h, const contenidos &c);

} // namespace monitor

#endif
