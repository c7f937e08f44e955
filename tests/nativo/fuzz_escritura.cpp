// Any sequence of writers: the content that they make, the growth of its buffer, their reports; and what
// readers then find. The content is put together a second time here, piece by piece.
#include "formato_escritura.h"

#include <memory>
#include <optional>

#include "modelo_comdat.h"

namespace {

using namespace formato_escritura;
using apoyo::entrada;
using textos = std::vector<std::optional<std::string>>;

const char LARGO[] = "iv_comdat: len < 256";
const char DA_LA_VUELTA[] = "iv_comdat: nuevo_tam >= tam_minimo_nuevo";
const char SIN_MEMORIA[] = "iv_mem: (memlocal) != 0";

// A writing container as it must be.
struct modelo_escritura {
    bytes b = bytes(4);
    uint32_t tam = 1024;
    uint32_t num_valores = 0;
    size_t limite = sustituto::LIMITE_RESERVA;
    bool ilegible = false;     // a name or an array that readers cannot get past
    uint32_t num_legibles = 0; // values before that
    std::vector<std::string> informes;

    bytes valor; // the one being written
    bool completo = true;

    bool cabe(uint64_t n)
    {
        const uint64_t fin = b.size() + valor.size() + n;
        if (fin <= tam)
            return true;
        const uint32_t nuevo = static_cast<uint32_t>((fin + 1024) & 0xFFFFFC00u);
        if (nuevo < fin)
            informes.push_back(DA_LA_VUELTA);
        else if (nuevo > limite)
            informes.push_back(SIN_MEMORIA);
        else
            tam = nuevo;
        return fin <= tam;
    }
    void pieza(const void *datos, uint64_t n)
    {
        completo = completo && cabe(n);
        if (!completo || n == 0)
            return;
        const uint8_t *p = static_cast<const uint8_t *>(datos);
        valor.insert(valor.end(), p, p + n);
    }
    void numero(uint32_t n) { pieza(&n, sizeof n); }

    void empieza(uint32_t tipo, const std::optional<std::string> &nombre)
    {
        const std::string n = nombre.value_or("");
        const uint32_t len = static_cast<uint32_t>(n.size()) + 1;
        const uint8_t cabeza[] = {static_cast<uint8_t>(tipo), static_cast<uint8_t>(len)};
        valor.clear();
        completo = true;
        if (len >= 256)
            informes.push_back(LARGO);
        pieza(cabeza, sizeof cabeza);
        pieza(n.c_str(), len);
        hace_ilegible = tipo == 10 || len >= 256;
    }
    void termina()
    {
        if (!completo)
            return;
        b.insert(b.end(), valor.begin(), valor.end());
        num_valores++;
        memcpy(b.data(), &num_valores, sizeof num_valores);
        ilegible = ilegible || hace_ilegible;
        num_legibles += ilegible ? 0 : 1;
    }
    void texto(const std::optional<std::string> &t, uint32_t ancho)
    {
        if (!t) {
            numero(0);
            return;
        }
        std::string ensanchado;
        for (char c : *t) {
            ensanchado += c;
            ensanchado.append(ancho - 1, '\x01');
        }
        ensanchado.append(ancho, '\0');
        numero(static_cast<uint32_t>(ensanchado.size()));
        pieza(ensanchado.data(), ensanchado.size());
    }
    void arreglo(const textos &t, uint32_t num, uint32_t ancho)
    {
        if (ancho == 1)
            numero(num);
        const size_t tabla = valor.size();
        if (num >= ARREGLO_ENORME) {
            completo = completo && cabe(uint64_t{num} * 4);
            COMPRUEBA(!completo);
            return;
        }
        const bytes ceros(size_t{num} * 4);
        pieza(ceros.data(), ceros.size());
        for (uint32_t i = 0; i < num && completo; i++) {
            const uint32_t posicion = static_cast<uint32_t>(b.size() + valor.size());
            memcpy(valor.data() + tabla + size_t{i} * 4, &posicion, sizeof posicion);
            texto(i < t.size() ? t[i] : std::nullopt, ancho);
        }
    }

private:
    bool hace_ilegible = false;
};

// ---- The arguments of the writers, each in a block of its own size

std::optional<std::string> lee_texto(entrada &e)
{
    switch (e.u8()) {
    case TEXTO_NULO:
        return std::nullopt;
    case TEXTO_RELLENO:
        return std::string(e.u16(), 'r');
    default:
        return e.texto();
    }
}

using ansi = std::unique_ptr<apoyo::exacto<char>>;
using ancha = std::unique_ptr<apoyo::exacto<wchar_t>>;

ansi a_ansi(const std::optional<std::string> &t)
{
    return t ? std::make_unique<apoyo::exacto<char>>(t->c_str(), t->size() + 1) : nullptr;
}

ancha a_ancha(const std::optional<std::string> &t)
{
    if (!t)
        return nullptr;
    std::vector<wchar_t> letras;
    for (char c : *t)
        letras.push_back(static_cast<wchar_t>(0x0100 | static_cast<uint8_t>(c)));
    letras.push_back(0);
    return std::make_unique<apoyo::exacto<wchar_t>>(letras.data(), letras.size());
}

template <typename letra>
letra *puntero(const std::unique_ptr<apoyo::exacto<letra>> &t)
{
    return t ? t->get() : nullptr;
}

// ---- One value

void graba_fijo(entrada &e, comdat *c, modelo_escritura &m, uint32_t tipo, const char *nombre)
{
    const uint64_t n = tipo == 1 ? e.u8() : tipo == 2 ? e.u16() : tipo == 3 ? e.u32() : e.u64();
    double d;
    memcpy(&d, &n, sizeof d);
    if (tipo == 1)
        iv_comdat_graba_byte(c, nombre, static_cast<uint8_t>(n));
    else if (tipo == 2)
        iv_comdat_graba_ushort(c, nombre, static_cast<uint16_t>(n));
    else if (tipo == 3)
        iv_comdat_graba_ulong(c, nombre, static_cast<uint32_t>(n));
    else if (tipo == 4)
        iv_comdat_graba_double(c, nombre, d);
    else
        iv_comdat_graba_hwnd(c, nombre, reinterpret_cast<ivrexa_hwnd>(n));
    m.pieza(&n, tipo == 1 ? 1 : tipo == 2 ? 2 : tipo == 3 ? 4 : 8);
}

void graba_buffer(entrada &e, comdat *c, modelo_escritura &m, const char *nombre)
{
    const uint32_t forma = e.u8();
    const uint32_t tam = forma <= ENORME ? e.u32() : e.u16();
    if (forma == NULO) {
        iv_comdat_graba_buffer(c, nombre, nullptr, tam);
        m.numero(0);
        return;
    }
    const uint32_t tam_dicho = forma == ENORME ? tam | BUFFER_ENORME : tam;
    const bytes relleno(forma == ENORME ? 1 : tam, 0xB5);
    apoyo::exacto<uint8_t> datos(relleno.data(), relleno.size());
    iv_comdat_graba_buffer(c, nombre, datos.get(), tam_dicho);
    m.numero(tam_dicho);
    m.pieza(relleno.data(), tam_dicho);
}

void graba_texto(entrada &e, comdat *c, modelo_escritura &m, uint32_t tipo, const char *nombre)
{
    const std::optional<std::string> t = lee_texto(e);
    if (tipo == 6)
        iv_comdat_graba_cadena_ansi(c, nombre, puntero(a_ansi(t)));
    else
        iv_comdat_graba_cadena_unicode(c, nombre, puntero(a_ancha(t)));
    m.texto(t, tipo == 6 ? 1 : 2);
}

template <typename letra, typename funcion>
void graba_textos(comdat *c, const char *nombre, const textos &t, bool nulo, uint32_t num,
                  std::unique_ptr<apoyo::exacto<letra>> (*convierte)(const std::optional<std::string> &), funcion graba)
{
    std::vector<std::unique_ptr<apoyo::exacto<letra>>> letras;
    std::vector<const letra *> punteros;
    for (const std::optional<std::string> &texto : t) {
        letras.push_back(convierte(texto));
        punteros.push_back(puntero(letras.back()));
    }
    apoyo::exacto<const letra *> tabla(punteros.data(), punteros.size());
    graba(c, nombre, nulo ? nullptr : tabla.get(), num);
}

void graba_arreglo(entrada &e, comdat *c, modelo_escritura &m, uint32_t tipo, const char *nombre)
{
    const uint32_t forma = e.u8();
    const uint32_t num = forma == ENORME ? e.u32() | ARREGLO_ENORME : e.u8();
    textos t;
    for (uint32_t i = 0; forma > ENORME && i < num; i++)
        t.push_back(lee_texto(e));
    if (tipo == 9)
        graba_textos<char>(c, nombre, t, forma <= ENORME, num, a_ansi, iv_comdat_graba_arr_cadenas_ansi);
    else
        graba_textos<wchar_t>(c, nombre, t, forma <= ENORME, num, a_ancha, iv_comdat_graba_arr_cadenas_unicode);
    m.arreglo(t, num, tipo == 9 ? 1 : 2);
}

void graba_valor(entrada &e, comdat *c, modelo_escritura &m)
{
    const uint32_t tipo = e.u8() % 10 + 1;
    const std::optional<std::string> nombre = lee_texto(e);
    const ansi texto_nombre = a_ansi(nombre);
    m.empieza(tipo, nombre);
    if (tipo <= 4 || tipo == 8)
        graba_fijo(e, c, m, tipo, puntero(texto_nombre));
    else if (tipo == 5)
        graba_buffer(e, c, m, puntero(texto_nombre));
    else if (tipo <= 7)
        graba_texto(e, c, m, tipo, puntero(texto_nombre));
    else
        graba_arreglo(e, c, m, tipo, puntero(texto_nombre));
    m.termina();
}

// ---- The whole

void comprueba_escrito(comdat *c, modelo_escritura &m)
{
    uint32_t ocupado;
    const uint8_t *contenido = iv_comdat_contenido(c, &ocupado);
    COMPRUEBA(ocupado == m.b.size() && c->offset == ocupado);
    COMPRUEBA(memcmp(contenido, m.b.data(), ocupado) == 0);
    COMPRUEBA(c->tam == m.tam);
    COMPRUEBA(iv_comdat_numero_valores(c) == m.num_valores);
    COMPRUEBA(apoyo::informes_son(m.informes));
    m.informes.clear();
}

// Stores the content as the library does and reads it back. What was written under a name that fits, before a
// wide array, is all there; the rest is what the bytes are taken for.
void comprueba_lo_que_se_lee(const modelo_escritura &m, const uint8_t *contenido)
{
    iv_shared_bloque *bloque = iv_shared_crea_con_datos("C", static_cast<uint32_t>(m.b.size()), contenido);
    sustituto::cerca_mapa("C");
    comdat *c = iv_comdat_carga("S", 1, &bloque, CIERTO);
    const modelo::contenido leido = modelo::analiza(m.b);
    COMPRUEBA(leido.num_valores == m.num_valores && leido.valores.size() >= m.num_legibles);
    COMPRUEBA(sustituto::num_informes() == leido.num_informes);
    COMPRUEBA(m.ilegible || (leido.num_informes == 0 && leido.valores.size() == m.num_valores));
    sustituto::olvida_informes();
    modelo::comprueba_lectura(c, leido);
    iv_comdat_destruye(c);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *datos, size_t tam)
{
    entrada e(datos, tam);
    modelo_escritura m;
    const uint32_t limite_kb = e.u8();
    if (limite_kb != 0)
        m.limite = size_t{limite_kb} * 1024;
    sustituto::limita_reservas(m.limite);
    comdat *c = iv_comdat_crea_para_grabar("S", CIERTO);
    while (!e.vacia() && m.b.size() < m.limite) {
        graba_valor(e, c, m);
        comprueba_escrito(c, m);
    }
    sustituto::limita_reservas(SIZE_MAX);
    comprueba_lo_que_se_lee(m, c->buffer);
    iv_comdat_destruye(c);
    apoyo::termina();
    return 0;
}
