#include "lector_bloques.h"

#include <algorithm>
#include <iterator>

#include "modelo.h"

namespace monitor {

using namespace herramientas;

static const size_t MAX_VISTOS = 64, MAX_BYTES = 16u << 20;

static limites_valores limites_de_lo_guardado()
{
    limites_valores limites;
    limites.max_valores = 10000;
    limites.max_bytes = 1u << 16;
    return limites;
}

std::optional<contenido> lector_bloques::lee(const suceso &s)
{
    // A channel that is made anew numbers its blocks from the beginning. A gap may hide that any of them was.
    if (s.que == clase::servicio || s.que == clase::hueco)
        olvida_si([&](const bloque &b) { return s.que == clase::hueco || b.first == s.servicio_ansi; });
    if (s.id_bloque == 0)
        return std::nullopt;
    bloque b(s.servicio_ansi, s.id_bloque);
    std::optional<contenido> c = lee_bloque(b.first, b.second, limites_de_lo_guardado());
    if (c) {
        recuerda(b, *c);
        return c;
    }
    auto visto = std::find_if(m_vistos.begin(), m_vistos.end(), [&](const uno &v) { return v.b == b; });
    return visto != m_vistos.end() ? std::optional<contenido>(visto->c) : std::nullopt;
}

void lector_bloques::recuerda(const bloque &b, const contenido &c)
{
    olvida_si([&](const bloque &otro) { return otro == b; });
    size_t tam = tam_de(c);
    if (tam > MAX_BYTES)
        return;
    m_vistos.push_back({b, c, tam});
    m_bytes += tam;
    while (m_vistos.size() > MAX_VISTOS || m_bytes > MAX_BYTES) {
        m_bytes -= m_vistos.front().tam;
        m_vistos.pop_front();
    }
}

void lector_bloques::olvida_si(const std::function<bool(const bloque &)> &cual)
{
    for (auto v = m_vistos.begin(); v != m_vistos.end();) {
        bool se_va = cual(v->b);
        m_bytes -= se_va ? v->tam : 0;
        v = se_va ? m_vistos.erase(v) : std::next(v);
    }
}

} // namespace monitor
