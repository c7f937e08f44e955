#include "modelo_comdat.h"

namespace {

const uint32_t MARGEN = 4; // zero bytes behind the copy that is read
const size_t INFORMES_POR_LECTURA = 2;

const char FUERA[] = "iv_comdat: (comdat->offset + tam) <= comdat->ocupado";
const char SIN_TIPO[] = "iv_comdat: valor->tipoDato != ivrexa_tipoDato_desconocido";

// The number at a position, whose missing bytes are 0; false when some are missing.
template <typename tipo>
bool numero(const bytes &b, size_t donde, tipo *n)
{
    size_t hay = donde < b.size() ? b.size() - donde : 0;
    *n = 0;
    if (hay != 0)
        memcpy(n, b.data() + donde, hay < sizeof *n ? hay : sizeof *n);
    return hay >= sizeof *n;
}

bool salta(const bytes &b, size_t *donde, uint64_t n)
{
    if (n > b.size() - *donde)
        return false;
    *donde += static_cast<size_t>(n);
    return true;
}

bool salta_con_longitud(const bytes &b, size_t *donde)
{
    uint32_t n;
    return numero(b, *donde, &n) && salta(b, donde, sizeof n) && salta(b, donde, n);
}

bool salta_arreglo(const bytes &b, size_t *donde)
{
    uint32_t n;
    if (!numero(b, *donde, &n) || !salta(b, donde, sizeof n) || !salta(b, donde, uint64_t{n} * 4))
        return false;
    for (uint32_t i = 0; i < n; i++)
        if (!salta_con_longitud(b, donde))
            return false;
    return true;
}

bool salta_datos(const bytes &b, size_t *donde, uint32_t tipo)
{
    static const uint8_t TAM_FIJO[] = {0, 1, 2, 4, 8, 0, 0, 0, 8};
    if (tipo >= 5 && tipo <= 7)
        return salta_con_longitud(b, donde);
    if (tipo == 9 || tipo == 10)
        return salta_arreglo(b, donde);
    return salta(b, donde, tipo <= 8 ? TAM_FIJO[tipo] : 0);
}

bool esta_dentro(const comdat *c, const void *p)
{
    return p >= c->buffer && p <= c->buffer + c->ocupado;
}

// A text handed out ends inside the copy, its margin included.
void comprueba_texto_ansi(const comdat *c, const void *p)
{
    COMPRUEBA(esta_dentro(c, p));
    const ptrdiff_t quedan = c->buffer + c->ocupado + MARGEN - static_cast<const uint8_t *>(p);
    COMPRUEBA(memchr(p, 0, static_cast<size_t>(quedan)) != nullptr);
}

void comprueba_texto_ancho(const comdat *c, const void *p)
{
    COMPRUEBA(esta_dentro(c, p));
    const uint8_t *q = static_cast<const uint8_t *>(p);
    while (q[0] != 0 || q[1] != 0) {
        q += 2;
        COMPRUEBA(q + 2 <= c->buffer + c->ocupado + MARGEN);
    }
}

// One reader's call: its reports and its allocations are bounded by the content.
class llamada {
public:
    explicit llamada(const comdat *c) : m_c(c), m_informes(sustituto::num_informes()), m_bytes(sustituto::num_bytes())
    {
    }
    ~llamada()
    {
        COMPRUEBA(sustituto::num_informes() <= m_informes + INFORMES_POR_LECTURA);
        COMPRUEBA(sustituto::num_bytes() - m_bytes <= m_c->ocupado * sizeof(void *));
    }

private:
    const comdat *m_c;
    size_t m_informes, m_bytes;
};

const void *lee_buffer(comdat *c, uint32_t i, uint32_t *tam)
{
    llamada una(c);
    return iv_comdat_dame_buffer(c, i, tam);
}

// Calls both readers of texts; at most one gives something.
const void *lee_texto(comdat *c, uint32_t i, bool ancho)
{
    llamada una(c);
    if (ancho)
        return iv_comdat_dame_cadena_unicode(c, i);
    return iv_comdat_dame_cadena_ansi(c, i);
}

const void *const *lee_arreglo(comdat *c, uint32_t i, bool ancho, uint32_t *num)
{
    llamada una(c);
    if (ancho)
        return reinterpret_cast<const void *const *>(iv_comdat_dame_arr_cadenas_unicode(c, i, num));
    return reinterpret_cast<const void *const *>(iv_comdat_dame_arr_cadenas_ansi(c, i, num));
}

// The value at a position, as far as the content bears it out.
const modelo::valor *valor_en(const modelo::contenido &m, uint32_t i)
{
    return i < m.num_valores && i < m.valores.size() ? &m.valores[i] : nullptr;
}

bool es(const modelo::valor *v, uint32_t tipo)
{
    return v != nullptr && v->tipo == tipo;
}

template <typename tipo>
tipo fijo(const modelo::contenido &m, const modelo::valor *v, uint32_t codigo)
{
    tipo n = 0;
    if (es(v, codigo))
        numero(m.b, v->datos, &n);
    return n;
}

void comprueba_fijos(comdat *c, const modelo::contenido &m, const modelo::valor *v, uint32_t i)
{
    COMPRUEBA(iv_comdat_dame_byte(c, i) == fijo<uint8_t>(m, v, 1));
    COMPRUEBA(iv_comdat_dame_ushort(c, i) == fijo<uint16_t>(m, v, 2));
    COMPRUEBA(iv_comdat_dame_ulong(c, i) == fijo<uint32_t>(m, v, 3));
    double d = iv_comdat_dame_double(c, i);
    uint64_t d_esperado = fijo<uint64_t>(m, v, 4);
    COMPRUEBA(memcmp(&d, &d_esperado, sizeof d) == 0);
    COMPRUEBA(reinterpret_cast<uint64_t>(iv_comdat_dame_hwnd(c, i)) == fijo<uint64_t>(m, v, 8));
}

// The bytes behind a length at the value's place; SIZE_MAX for none.
size_t con_longitud(const modelo::contenido &m, const modelo::valor *v, uint32_t *tam)
{
    size_t donde = v->datos;
    uint32_t n;
    *tam = 0;
    if (!numero(m.b, donde, &n) || n == 0 || n > m.b.size() - donde - sizeof n)
        return SIZE_MAX;
    *tam = n;
    return donde + sizeof n;
}

bool es_sitio(const comdat *c, const void *p, size_t donde)
{
    return donde == SIZE_MAX ? p == nullptr : p == c->buffer + donde;
}

void comprueba_variables(comdat *c, const modelo::contenido &m, const modelo::valor *v, uint32_t i)
{
    const uint32_t INTACTO = 0xABCDEF01;
    uint32_t tam = INTACTO, esperado = 0;
    const void *p = lee_buffer(c, i, &tam);
    COMPRUEBA(es_sitio(c, p, es(v, 5) ? con_longitud(m, v, &esperado) : SIZE_MAX));
    COMPRUEBA(tam == (es(v, 5) ? esperado : INTACTO));

    p = lee_texto(c, i, false);
    COMPRUEBA(es_sitio(c, p, es(v, 6) ? con_longitud(m, v, &esperado) : SIZE_MAX));
    if (p != nullptr)
        comprueba_texto_ansi(c, p);
    p = lee_texto(c, i, true);
    COMPRUEBA(es_sitio(c, p, es(v, 7) ? con_longitud(m, v, &esperado) : SIZE_MAX));
    if (p != nullptr)
        comprueba_texto_ancho(c, p);
}

// Place of element e of an array of texts; SIZE_MAX for a null one.
size_t elemento(const modelo::contenido &m, const modelo::valor *v, uint32_t e)
{
    uint32_t posicion = 0;
    if (!numero(m.b, v->datos + 4 + size_t{e} * 4, &posicion) || size_t{posicion} + 4 > m.b.size())
        return SIZE_MAX;
    return size_t{posicion} + 4;
}

size_t comprueba_arreglo(comdat *c, const modelo::contenido &m, const modelo::valor *v, uint32_t i, bool ancho)
{
    uint32_t num = 0xABCDEF01, esperado = 0;
    const void *const *tabla = lee_arreglo(c, i, ancho, &num);
    bool hay = es(v, ancho ? 10 : 9) && numero(m.b, v->datos, &esperado) && esperado <= m.b.size();
    COMPRUEBA((tabla != nullptr) == hay);
    COMPRUEBA(num == (hay ? esperado : 0));
    for (uint32_t e = 0; e < num; e++) {
        COMPRUEBA(es_sitio(c, tabla[e], elemento(m, v, e)));
        if (e < 64 && tabla[e] != nullptr) // each may be as long as the content: not all of thousands
            (ancho ? comprueba_texto_ancho : comprueba_texto_ansi)(c, tabla[e]);
    }
    return hay ? 1 : 0;
}

size_t comprueba_posicion(comdat *c, const modelo::contenido &m, uint32_t i)
{
    const modelo::valor *v = valor_en(m, i);
    COMPRUEBA(iv_comdat_tipoDato(c, i) == (v != nullptr ? v->tipo : 0));
    const char *nombre = iv_comdat_nombre_valor(c, i);
    if (v != nullptr) {
        COMPRUEBA(es_sitio(c, nombre, v->nombre));
        comprueba_texto_ansi(c, nombre);
    } else {
        COMPRUEBA(strcmp(nombre, "?") == 0);
    }
    comprueba_fijos(c, m, v, i);
    comprueba_variables(c, m, v, i);
    return comprueba_arreglo(c, m, v, i, false) + comprueba_arreglo(c, m, v, i, true);
}

} // namespace

modelo::contenido modelo::analiza(const bytes &b)
{
    contenido c = {b, 0, {}, 0};
    if (!numero(b, 0, &c.num_valores)) {
        c.num_informes = 1;
        return c;
    }
    size_t donde = 4;
    for (uint32_t i = 0; i < c.num_valores; i++) {
        uint8_t tipo, len;
        if (!numero(b, donde, &tipo) || !numero(b, donde + 1, &len) || size_t{len} > b.size() - donde - 2) {
            c.num_informes++;
            break;
        }
        size_t nombre = donde + 2;
        donde = nombre + len;
        c.valores.push_back({tipo, nombre, donde});
        c.num_informes += tipo == 0 ? 1 : 0;
        if (!salta_datos(b, &donde, tipo)) {
            c.num_informes++;
            break;
        }
    }
    return c;
}

size_t modelo::comprueba_lectura(comdat *comdat, const contenido &c)
{
    COMPRUEBA(iv_comdat_numero_valores(comdat) == c.num_valores);
    COMPRUEBA(comdat->num_indexados == c.valores.size());
    size_t num_tablas = 0;
    for (uint32_t i = 0; i < c.valores.size() + 2; i++)
        num_tablas += comprueba_posicion(comdat, c, i);
    for (uint32_t i : {c.num_valores - 1, c.num_valores, 0x7FFFFFFFu, 0x80000000u, UINT32_MAX})
        if (i >= c.valores.size() + 2)
            num_tablas += comprueba_posicion(comdat, c, i);
    for (const std::string &informe : sustituto::informes())
        COMPRUEBA(informe == FUERA || informe == SIN_TIPO);
    return num_tablas;
}

void modelo::comprueba_limites(comdat *c)
{
    const uint32_t NUM_PRIMEROS = 32, NUM_ULTIMOS = 4; // of thousands that an empty page may be read as
    for (uint32_t i = 0; i < c->num_indexados + 2; i++) {
        if (i == NUM_PRIMEROS && c->num_indexados > NUM_PRIMEROS + NUM_ULTIMOS)
            i = c->num_indexados - NUM_ULTIMOS;
        iv_comdat_tipoDato(c, i);
        const char *nombre = iv_comdat_nombre_valor(c, i);
        if (strcmp(nombre, "?") != 0)
            comprueba_texto_ansi(c, nombre);
        iv_comdat_dame_byte(c, i);
        iv_comdat_dame_ushort(c, i);
        iv_comdat_dame_ulong(c, i);
        iv_comdat_dame_double(c, i);
        iv_comdat_dame_hwnd(c, i);
        uint32_t num = 0;
        const void *p = lee_buffer(c, i, &num);
        if (p != nullptr)
            COMPRUEBA(esta_dentro(c, p) && esta_dentro(c, static_cast<const uint8_t *>(p) + num));
        if ((p = lee_texto(c, i, false)) != nullptr)
            comprueba_texto_ansi(c, p);
        if ((p = lee_texto(c, i, true)) != nullptr)
            comprueba_texto_ancho(c, p);
        for (bool ancho : {false, true}) {
            const void *const *tabla = lee_arreglo(c, i, ancho, &num);
            for (uint32_t e = 0; e < num; e++)
                COMPRUEBA(tabla[e] == nullptr || esta_dentro(c, tabla[e]));
        }
    }
}
