#include "modelo.h"

#include <algorithm>
#include <utility>

#include <windows.h>

#include "comun/json.h"
#include "comun/texto.h"

namespace monitor {

using herramientas::json;

// ---- What is shown

// By the system's own table of capitals, so that "ñ" finds "Ñ", in whatever language the desktop is.
static bool contiene(const std::string &texto, const std::wstring &b)
{
    std::wstring t = herramientas::a_ancho(texto);
    if (b.size() > t.size())
        return false;
    return FindStringOrdinal(FIND_FROMSTART, t.data(), static_cast<int>(t.size()), b.data(), static_cast<int>(b.size()),
                             TRUE) >= 0;
}

bool operator==(const filtro &a, const filtro &b)
{
    return a.servicio == b.servicio && a.clases == b.clases;
}

criba::criba(const filtro &f) : m_clases(f.clases), m_servicio(herramientas::a_ancho(f.servicio)) {}

bool criba::pasa(const suceso &s) const
{
    if (s.que == clase::hueco)
        return true;
    return (m_clases & bit_de(s.que)) != 0 && (m_servicio.empty() || contiene(s.servicio, m_servicio));
}

bool pasa(const filtro &f, const suceso &s)
{
    return criba(f).pasa(s);
}

// ---- The history

historia::historia(size_t max) : m_max(std::max<size_t>(max, 1)) {}

void historia::anyade(const suceso &s)
{
    m_perdidos += s.perdidos;
    if (!m_parada) {
        mete(s);
        return;
    }
    m_aparte.push_back(s);
    if (m_aparte.size() > m_max) {
        m_aparte.pop_front();
        m_descartados++;
    }
}

void historia::mete(const suceso &s)
{
    if (m_sucesos.size() == m_max)
        quita_el_primero();
    m_sucesos.push_back(s);
    if (m_criba.pasa(s))
        m_visibles.push_back(m_primero + m_sucesos.size() - 1);
}

void historia::quita_el_primero()
{
    if (!m_visibles.empty() && m_visibles.front() == m_primero)
        m_visibles.pop_front();
    m_sucesos.pop_front();
    m_primero++;
    m_descartados++;
}

void historia::filtra(const filtro &f)
{
    m_filtro = f;
    m_criba = criba(f);
    m_visibles.clear();
    for (size_t i = 0; i < m_sucesos.size(); i++)
        if (m_criba.pasa(m_sucesos[i]))
            m_visibles.push_back(m_primero + i);
}

void historia::pausa(bool parada)
{
    m_parada = parada;
    if (parada)
        return;
    for (const suceso &s : m_aparte)
        mete(s);
    m_aparte.clear();
}

void historia::limpia()
{
    m_primero += m_sucesos.size();
    m_sucesos.clear();
    m_visibles.clear();
    m_aparte.clear();
    m_descartados = m_perdidos = 0;
}

const suceso &historia::visible(size_t i) const
{
    return en_sitio(m_visibles[i]);
}

std::optional<size_t> historia::sitio_visible(uint64_t numero) const
{
    auto sitio = std::lower_bound(m_visibles.begin(), m_visibles.end(), numero,
                                  [this](uint64_t s, uint64_t n) { return en_sitio(s).numero < n; });
    if (sitio == m_visibles.end() || en_sitio(*sitio).numero != numero)
        return std::nullopt;
    return static_cast<size_t>(sitio - m_visibles.begin());
}

// ---- What the blocks held

static const size_t MAX_SERVICIOS = 10000; // remembered; a desktop has 32 at a time

void vidas::anota(const suceso &s)
{
    m_ultimo = s.numero;
    if (s.que == clase::hueco || m_empieza.size() >= MAX_SERVICIOS)
        acaban_todas();
    if (s.que == clase::servicio)
        m_empieza[s.servicio_ansi] = s.numero;
}

void vidas::acaban_todas()
{
    m_todas = m_ultimo;
    m_empieza.clear();
}

bool vidas::sigue(const suceso &s) const
{
    auto suya = m_empieza.find(s.servicio_ansi);
    return s.numero > m_todas && (suya == m_empieza.end() || s.numero > suya->second);
}

size_t tam_de(const contenido &c)
{
    size_t tam = sizeof c + c.fallo.size();
    for (const herramientas::valor &v : c.valores) {
        tam += sizeof v + v.nombre.size() + v.bytes.size() + (v.texto ? v.texto->size() : 0);
        for (const std::optional<std::string> &t : v.textos)
            tam += sizeof t + (t ? t->size() : 0);
    }
    return tam;
}

contenidos::contenidos(size_t max_bytes) : m_max_bytes(max_bytes) {}

void contenidos::guarda(uint64_t numero, contenido c)
{
    size_t tam = tam_de(c);
    if (tam > m_max_bytes)
        return;
    uno &sitio = m_todos[numero];
    m_bytes += tam - sitio.tam;
    sitio = {std::move(c), tam};
    while (m_bytes > m_max_bytes) {
        m_bytes -= m_todos.begin()->second.tam;
        m_todos.erase(m_todos.begin());
    }
}

const contenido *contenidos::de(uint64_t numero) const
{
    auto sitio = m_todos.find(numero);
    return sitio != m_todos.end() ? &sitio->second.c : nullptr;
}

void contenidos::pasa_a(contenidos *otros)
{
    for (auto &uno : m_todos)
        otros->guarda(uno.first, std::move(uno.second.c));
    limpia();
}

void contenidos::limpia()
{
    m_todos.clear();
    m_bytes = 0;
}

// ---- Files

// A name is whatever a program calls its service. What a spreadsheet would compute gets an apostrophe before it.
static std::string celda(const std::string &texto)
{
    bool formula = !texto.empty() && std::string("=+-@\t\r").find(texto[0]) != std::string::npos;
    if (!formula && texto.find_first_of(",\"\r\n") == std::string::npos)
        return texto;
    std::string entre = formula ? "\"'" : "\"";
    for (char c : texto)
        entre += c == '"' ? std::string("\"\"") : std::string(1, c);
    return entre + "\"";
}

static std::string numero_o_nada(uint64_t numero)
{
    return numero != 0 ? std::to_string(numero) : "";
}

static std::string linea_csv(const suceso &s)
{
    bool hueco = s.que == clase::hueco;
    return std::to_string(s.numero) + "," + herramientas::hora_iso(s.hora_100ns) + "," +
           (hueco ? "" : herramientas::nombre_lado(s.quien)) + "," + herramientas::nombre_clase(s.que) + "," +
           celda(herramientas::describe(s)) + "," + celda(s.servicio) + "," + numero_o_nada(s.id_comando) + "," +
           numero_o_nada(s.id_bloque) + "," + (s.que == clase::espera ? std::to_string(s.estado) : "") + "," +
           numero_o_nada(s.perdidos) + "\r\n";
}

std::string como_csv(const historia &h)
{
    std::string texto = "\xef\xbb\xbfn,time,side,kind,event,service,command,block,state,lost\r\n";
    for (size_t i = 0; i < h.num_visibles(); i++)
        texto += linea_csv(h.visible(i));
    return texto;
}

std::string como_json_lineas(const historia &h, const contenidos &c)
{
    std::string texto;
    for (size_t i = 0; i < h.num_visibles(); i++) {
        const suceso &s = h.visible(i);
        json j = herramientas::a_json(s);
        if (const contenido *suyo = c.de(s.numero))
            j.update(herramientas::a_json(*suyo));
        texto += herramientas::en_linea(j) + "\n";
    }
    return texto;
}

} // namespace monitor
