#include "registro_traza.h"

#include <algorithm>
#include <cstdlib>

namespace herramientas {

static const uint64_t SIN_MAS_100NS = 500 * 10000ull; // a piece takes some milliseconds; a suspended program longer
static const size_t MAX_LINEA = 64u << 10;
static const size_t MAX_BYTES_RETENIDOS = 128u << 10; // the longest line at least
static const size_t MAX_CERRADOS = 256;

static bool empieza_por(const std::string &texto, const char *prefijo, size_t sitio = 0)
{
    return texto.compare(sitio, std::char_traits<char>::length(prefijo), prefijo) == 0;
}

// ---- Records

// "*** 5123406: ": where the title begins; 0: not a header.
static size_t fin_de_cabecera(const std::string &linea, uint32_t *tick)
{
    const size_t CIFRAS = 4;
    if (!empieza_por(linea, "*** "))
        return 0;
    size_t fin = linea.find_first_not_of("0123456789", CIFRAS);
    if (fin == CIFRAS || fin == std::string::npos || !empieza_por(linea, ": ", fin))
        return 0;
    *tick = static_cast<uint32_t>(strtoull(linea.c_str() + CIFRAS, nullptr, 10));
    return fin + 2;
}

// "Calc id_comando: 200" behind a title.
static bool pon_comando(registro_traza *r, const std::string &resto)
{
    static const std::string ENTRE = " id_comando: ";
    size_t sitio = resto.rfind(ENTRE);
    if (sitio == std::string::npos)
        return false;
    const std::string numero = resto.substr(sitio + ENTRE.size());
    if (numero.empty() || numero.find_first_not_of("0123456789") != std::string::npos)
        return false;
    r->servicio = resto.substr(0, sitio);
    r->id_comando = static_cast<uint32_t>(strtoull(numero.c_str(), nullptr, 10));
    return true;
}

static const std::string INICIO = " INICIO COMANDO ", FIN = " FIN COMANDO ";

static void pon_titulo(registro_traza *r, const std::string &titulo)
{
    r->que = registro_traza::clase::otro;
    if (empieza_por(titulo, INICIO.c_str()) && pon_comando(r, titulo.substr(INICIO.size())))
        r->que = registro_traza::clase::inicio;
    else if (empieza_por(titulo, FIN.c_str()) && pon_comando(r, titulo.substr(FIN.size())))
        r->que = registro_traza::clase::fin;
}

static size_t tam_de(const registro_traza &r)
{
    size_t tam = sizeof r;
    for (const std::string &linea : r.lineas)
        tam += sizeof linea + linea.size();
    return tam;
}

void junta_registros::entrega(programa &p, registro_traza &r)
{
    if (p.conocido || m_todos) {
        m_toma(r);
        return;
    }
    p.tam_retenidos += tam_de(r);
    p.retenidos.push_back(std::move(r));
    for (; p.tam_retenidos > MAX_BYTES_RETENIDOS; p.retenidos.pop_front())
        p.tam_retenidos -= tam_de(p.retenidos.front());
}

void junta_registros::cierra(programa &p)
{
    p.entre_comillas = false;
    if (p.abierto.lineas.empty())
        return;
    registro_traza r;
    std::swap(r, p.abierto);
    entrega(p, r);
}

// A text's closing quotation mark ends its line.
static bool deja_comillas_abiertas(const std::string &linea)
{
    size_t primera = linea.find('"');
    return primera != std::string::npos && (primera == linea.size() - 1 || linea.back() != '"');
}

// A line is whole.
void junta_registros::linea(uint32_t pid, programa &p)
{
    std::string linea;
    linea.swap(p.linea);
    registro_traza r;
    size_t titulo = fin_de_cabecera(linea, &r.tick);
    bool de_texto = titulo == 0 && p.entre_comillas;
    bool del_registro = titulo == 0 && !p.abierto.lineas.empty() && empieza_por(linea, "    ");
    if (de_texto || del_registro) {
        p.entre_comillas = de_texto ? linea.empty() || linea.back() != '"' : deja_comillas_abiertas(linea);
        p.abierto.lineas.push_back(linea);
        return;
    }
    cierra(p);
    if (linea.empty())
        return;
    r.pid = pid;
    r.hora_100ns = p.hora_linea;
    r.lineas.push_back(linea);
    if (titulo == 0)
        return entrega(p, r);
    pon_titulo(&r, linea.substr(titulo));
    p.abierto = r;
    conoce(p);
}

void junta_registros::conoce(programa &p)
{
    p.escribio = true;
    p.conocido = true;
    for (registro_traza &retenido : p.retenidos)
        m_toma(retenido);
    p.retenidos.clear();
    p.tam_retenidos = 0;
}

// ---- Headers, and the heartbeat between other threads' pieces

static bool es_numero(const std::string &trozo)
{
    return !trozo.empty() && trozo.size() <= 20 && trozo.find_first_not_of("0123456789") == std::string::npos;
}

static bool es_titulo(const std::string &trozo)
{
    static const char *const TITULOS[] = {" INICIO COMANDO ", " FIN COMANDO ",      " REGISTRO ", " GET_DATOS_",
                                          " SET_DATOS_",      "Registro Servidor ", "BUCLE "};
    return std::any_of(std::begin(TITULOS), std::end(TITULOS), [&](const char *t) { return empieza_por(trozo, t); });
}

// Whether a number comes next in a line that a program writes piece by piece.
static bool espera_numero(const std::string &linea)
{
    static const char *const FINALES[] = {"=", "= ", ": ", "(", ", ", "-> ", " Version "};
    return std::any_of(std::begin(FINALES), std::end(FINALES), [&](const char *f) {
        size_t num = std::char_traits<char>::length(f);
        return linea.size() >= num && empieza_por(linea, f, linea.size() - num);
    });
}

// The heartbeat's record is whole, and touches nothing else of its program.
void junta_registros::late(uint32_t pid, programa &p, const cabecera &c)
{
    registro_traza r;
    r.pid = pid;
    r.hora_100ns = c.hora_100ns;
    r.lineas.push_back(c.texto.substr(1));
    pon_titulo(&r, c.texto.substr(1 + fin_de_cabecera(r.lineas[0], &r.tick)));
    conoce(p);
    m_toma(r);
    p.debe_fin = 8;
}

// The header has its title: it is that of the record that the program's other pieces belong to.
bool junta_registros::suelta_cabecera(uint32_t pid, programa &p, const std::string &titulo)
{
    auto c = std::find_if(p.cabeceras.begin(), p.cabeceras.end(), [](const cabecera &x) { return x.num_trozos == 3; });
    if (c == p.cabeceras.end())
        return false;
    std::string texto = c->texto + titulo;
    p.cabeceras.erase(c);
    pon_texto(pid, p, texto);
    return true;
}

static bool iguales(const std::string &linea, char abre, char cierra)
{
    return std::count(linea.begin(), linea.end(), abre) == std::count(linea.begin(), linea.end(), cierra);
}

// The line end of a heartbeat's record comes a little behind it. Where it would break a line it is that one; where a
// line may end it may be either's, and the other one comes soon; an empty line more or less changes nothing.
bool junta_registros::es_fin_de_latido(programa &p)
{
    if (p.debe_fin == 0 || p.entre_comillas)
        return false;
    if (p.linea.empty())
        return true;
    bool puede_acabar = (p.tras_numero && iguales(p.linea, '(', ')') && iguales(p.linea, '[', ']')) ||
                        (p.linea.back() == '"' && p.linea.find('"') != p.linea.size() - 1);
    if (!puede_acabar)
        p.debe_fin = 0;
    return !puede_acabar;
}

// True: the piece is one of a header's, or of the heartbeat's. A number may be another line's as well: a tick count is
// near the last one, an entry of the program table is below 16. Of two headers under way at once it cannot be told
// whose number is whose: they are some milliseconds apart.
bool junta_registros::es_de_cabecera(uint32_t pid, programa &p, const std::string &trozo)
{
    const uint64_t CERCA_MS = 60000, NUM_PROGRAMAS = 16;
    if (trozo == "\n*** ") {
        p.cabeceras.push_back({1, trozo, p.hora_100ns});
        return true;
    }
    if (trozo == "\n")
        return es_fin_de_latido(p);
    if (es_titulo(trozo))
        return suelta_cabecera(pid, p, trozo);
    const bool numero = es_numero(trozo);
    const uint64_t valor = numero ? strtoull(trozo.c_str(), nullptr, 10) : 0;
    const bool de_otra_linea = numero && espera_numero(p.linea);
    auto cabe = [&](const cabecera &c) {
        switch (c.num_trozos) {
        case 1:
            return numero && (!de_otra_linea || (valor + CERCA_MS > m_tick && valor < m_tick + CERCA_MS));
        case 2:
            return trozo == ": ";
        case 3:
            return trozo == " ESTOY VIVO ";
        default:
            return numero && valor < NUM_PROGRAMAS;
        }
    };
    auto c = std::find_if(p.cabeceras.begin(), p.cabeceras.end(), cabe);
    if (c == p.cabeceras.end())
        return false;
    c->texto += trozo;
    if (c->num_trozos == 1)
        m_tick = valor;
    if (++c->num_trozos == 5) {
        late(pid, p, *c);
        p.cabeceras.erase(c);
    }
    return true;
}

void junta_registros::anyade(uint32_t pid, const std::string &trozo, uint64_t hora_100ns)
{
    programa &p = m_programas[pid];
    p.hora_100ns = hora_100ns;
    if (es_de_cabecera(pid, p, trozo))
        return;
    pon_texto(pid, p, trozo);
    p.tras_numero = es_numero(trozo);
    p.debe_fin -= p.debe_fin > 0;
}

void junta_registros::pon_texto(uint32_t pid, programa &p, const std::string &texto)
{
    for (char c : texto) {
        if (p.linea.empty())
            p.hora_linea = p.hora_100ns;
        if (c != '\n')
            p.linea += c;
        if (c == '\n' || p.linea.size() >= MAX_LINEA)
            linea(pid, p);
    }
}

void junta_registros::vacia(uint32_t pid, programa &p)
{
    for (; !p.cabeceras.empty(); p.cabeceras.pop_front())
        pon_texto(pid, p, p.cabeceras.front().texto);
    if (!p.linea.empty())
        linea(pid, p);
    cierra(p);
}

void junta_registros::vence(uint64_t hora_100ns)
{
    for (auto &p : m_programas)
        if (p.second.hora_100ns + SIN_MAS_100NS <= hora_100ns)
            vacia(p.first, p.second);
}

void junta_registros::acaba()
{
    for (auto &p : m_programas)
        vacia(p.first, p.second);
}

size_t junta_registros::num_programas() const
{
    return static_cast<size_t>(
        std::count_if(m_programas.begin(), m_programas.end(), [](const auto &p) { return p.second.escribio; }));
}

// ---- Commands

// The service that a registration or a server's own record names.
static std::string servicio_tras(const std::string &linea, const char *titulo, const char *hasta)
{
    size_t sitio = linea.find(titulo), desde = sitio + std::char_traits<char>::length(titulo);
    size_t fin = sitio == std::string::npos ? sitio : linea.find(hasta, desde);
    return fin == std::string::npos ? "" : linea.substr(desde, fin - desde);
}

void empareja_comandos::anota(registro_traza &r)
{
    using clase = registro_traza::clase;
    if (r.que == clase::fin)
        return termina(r);
    if (r.que == clase::inicio) {
        m_abiertos.push_back({r.pid, r.servicio, r.id_comando, r.tick, 0, r.hora_100ns});
        m_clientes.insert({r.pid, r.servicio});
    }
    if (r.que != clase::otro)
        return;
    for (const auto &[titulo, hasta] :
         {std::pair<const char *, const char *>{" REGISTRO SERVICIO PRESTADO ", " Version "},
          {" GET_DATOS_ENTRADA_COMANDO ", " id_comando: "},
          {" SET_DATOS_ENTRADA_COMANDO ", " id_comando: "}})
        m_servidores.insert({r.pid, servicio_tras(r.lineas[0], titulo, hasta)});
    m_clientes.insert({r.pid, servicio_tras(r.lineas[0], " REGISTRO CLIENTE SERVICIO ", " ")});
}

// Only clients get texts back, and a server's record shows what it is by where it stands: between the client's two.
bool empareja_comandos::es_del_servidor(const registro_traza &r) const
{
    bool con_textos = std::any_of(r.lineas.begin(), r.lineas.end(),
                                  [](const std::string &l) { return empieza_por(l, "    serv_buffer"); });
    if (con_textos || m_servidores.count({r.pid, r.servicio}) != 0)
        return !con_textos;
    return m_clientes.count({r.pid, r.servicio}) == 0 && del_cliente(r) != nullptr;
}

// The command of another program that this one was executing.
const empareja_comandos::abierto *empareja_comandos::del_cliente(const registro_traza &r) const
{
    auto es_suyo = [&](const abierto &a) {
        return a.pid != r.pid && a.servicio == r.servicio && a.id_comando == r.id_comando;
    };
    for (auto a = m_cerrados.rbegin(); a != m_cerrados.rend(); ++a)
        if (es_suyo(*a) && r.tick - a->tick <= a->tick_fin - a->tick)
            return &*a;
    for (auto a = m_abiertos.rbegin(); a != m_abiertos.rend(); ++a)
        if (es_suyo(*a) && static_cast<int32_t>(r.tick - a->tick) >= 0)
            return &*a;
    return nullptr;
}

// The tick count begins anew after 49 days: the difference stays right.
void empareja_comandos::termina(registro_traza &r)
{
    auto a = std::find_if(m_abiertos.rbegin(), m_abiertos.rend(), [&](const abierto &x) {
        return x.pid == r.pid && x.servicio == r.servicio && x.id_comando == r.id_comando;
    });
    if (a != m_abiertos.rend()) {
        r.con = registro_traza::pareja::hallada;
        r.hay_ms = true;
        r.ms = r.tick - a->tick;
        m_ms[{r.servicio, r.id_comando}].push_back(r.ms);
        m_cerrados.push_back(*a);
        m_cerrados.back().tick_fin = r.tick;
        if (m_cerrados.size() > MAX_CERRADOS)
            m_cerrados.pop_front();
        m_abiertos.erase(std::next(a).base());
        return;
    }
    if (!es_del_servidor(r)) {
        r.con = registro_traza::pareja::suelta;
        m_sueltos++;
        return;
    }
    const abierto *cliente = del_cliente(r);
    r.con = registro_traza::pareja::del_servidor;
    r.hay_ms = cliente != nullptr;
    r.ms = cliente != nullptr ? r.tick - cliente->tick : 0;
    r.pid_cliente = cliente != nullptr ? cliente->pid : 0;
}

size_t empareja_comandos::num_comandos() const
{
    size_t num = 0;
    for (const auto &m : m_ms)
        num += m.second.size();
    return num;
}

std::map<std::pair<std::string, uint32_t>, empareja_comandos::duracion> empareja_comandos::duraciones() const
{
    std::map<std::pair<std::string, uint32_t>, duracion> todas;
    for (const auto &m : m_ms) {
        std::vector<uint32_t> ms = m.second;
        std::sort(ms.begin(), ms.end());
        size_t medio = ms.size() / 2;
        uint32_t mediana = ms.size() % 2 != 0 ? ms[medio] : ms[medio - 1] + (ms[medio] - ms[medio - 1]) / 2;
        todas[m.first] = {ms.size(), ms.front(), mediana, ms.back()};
    }
    return todas;
}

} // namespace herramientas
