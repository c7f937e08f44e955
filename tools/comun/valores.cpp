#include "valores.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "leido.h"
#include "nombres.h"
#include "texto.h"

#include "ivrexa.h"

namespace herramientas {

namespace {

// Reads forwards; past the end nothing is read, and `fallo` says so.
struct lector {
    const uint8_t *datos;
    size_t num;
    size_t sitio = 0;
    bool corto = false;

    bool quedan(size_t n)
    {
        corto = corto || n > num - sitio;
        return !corto;
    }
    template <typename T>
    T toma()
    {
        T v{};
        if (quedan(sizeof v)) {
            memcpy(&v, datos + sitio, sizeof v);
            sitio += sizeof v;
        }
        return v;
    }
    const uint8_t *toma_bytes(size_t n)
    {
        if (!quedan(n))
            return nullptr;
        const uint8_t *p = datos + sitio;
        sitio += n;
        return p;
    }
};

std::string ansi_hasta_nul(const uint8_t *p, size_t num)
{
    const char *texto = reinterpret_cast<const char *>(p);
    return de_ansi(std::string(texto, strnlen(texto, num)));
}

std::string ancho_hasta_nul(const uint8_t *p, size_t num)
{
    std::wstring texto(num / 2, L'\0');
    if (num >= 2)
        memcpy(&texto[0], p, texto.size() * 2);
    return de_ancho(texto.substr(0, texto.find(L'\0')));
}

// A text as values and arrays hold it: its length in bytes, then its bytes; length 0 is a null text.
std::optional<std::string> toma_texto(lector &l, bool ancho, size_t max)
{
    uint32_t tam = l.toma<uint32_t>();
    if (l.corto || tam == 0)
        return std::nullopt;
    const uint8_t *p = l.toma_bytes(tam);
    if (p == nullptr)
        return std::nullopt;
    size_t num = std::min<size_t>(tam, max);
    return ancho ? ancho_hasta_nul(p, num) : ansi_hasta_nul(p, num);
}

// The elements of an array, behind their positions; those beyond the limit are passed over.
void toma_elementos(lector &l, valor &v, uint32_t num, bool ancho, const limites_valores &limites)
{
    for (uint32_t i = 0; i < num && !l.corto; i++) {
        size_t max = v.textos.size() < limites.max_valores ? limites.max_bytes : 0;
        std::optional<std::string> texto = toma_texto(l, ancho, max);
        if (!l.corto && v.textos.size() < limites.max_valores)
            v.textos.push_back(texto);
    }
}

// Count, a position for each element, the elements.
void toma_textos_ansi(lector &l, valor &v, const limites_valores &limites)
{
    uint32_t num = l.toma<uint32_t>();
    if (!l.corto && l.toma_bytes(size_t(num) * 4) != nullptr)
        toma_elementos(l, v, num, false, limites);
}

// An array of wide texts is written without its count. Its first position tells: there the elements begin, so the
// positions end there. Each of them must name the place that the elements' lengths give it. Nothing is written for an
// array of none, and what follows does not pass for one.
uint32_t cuenta_anchos(lector l)
{
    const size_t tabla = l.sitio;
    const size_t primero = l.toma<uint32_t>();
    if (l.corto || primero <= tabla || (primero - tabla) % 4 != 0 || primero > l.num)
        return 0;
    const size_t num = (primero - tabla) / 4;
    lector elementos = {l.datos, l.num, primero};
    l.sitio = tabla;
    for (size_t i = 0; i < num; i++) {
        if (l.toma<uint32_t>() != elementos.sitio)
            return 0;
        uint32_t tam = elementos.toma<uint32_t>();
        if (elementos.corto || elementos.toma_bytes(tam) == nullptr)
            return 0;
    }
    return static_cast<uint32_t>(num);
}

void toma_textos_anchos(lector &l, valor &v, const limites_valores &limites)
{
    uint32_t num = cuenta_anchos(l);
    if (l.toma_bytes(size_t(num) * 4) != nullptr)
        toma_elementos(l, v, num, true, limites);
}

void toma_buffer(lector &l, valor &v, const limites_valores &limites)
{
    v.tam = l.toma<uint32_t>();
    const uint8_t *p = l.corto ? nullptr : l.toma_bytes(v.tam);
    if (p != nullptr)
        v.bytes.assign(p, p + std::min<size_t>(v.tam, limites.max_bytes));
}

bool toma_dato(lector &l, valor &v, const limites_valores &limites)
{
    switch (v.tipo) {
    case ivrexa_tipoDato_byte:
        v.numero = l.toma<uint8_t>();
        break;
    case ivrexa_tipoDato_ushort:
        v.numero = l.toma<uint16_t>();
        break;
    case ivrexa_tipoDato_ulong:
        v.numero = l.toma<uint32_t>();
        break;
    case ivrexa_tipoDato_double:
        v.real = l.toma<double>();
        break;
    case ivrexa_tipoDato_hwnd:
        v.numero = l.toma<uint64_t>();
        break;
    case ivrexa_tipoDato_buffer:
        toma_buffer(l, v, limites);
        break;
    case ivrexa_tipoDato_cadena_ansi:
        v.texto = toma_texto(l, false, limites.max_bytes);
        break;
    case ivrexa_tipoDato_cadena_unicode:
        v.texto = toma_texto(l, true, limites.max_bytes);
        break;
    case ivrexa_tipoDato_arr_cadenas_ansi:
        toma_textos_ansi(l, v, limites);
        break;
    case ivrexa_tipoDato_arr_cadenas_unicode:
        toma_textos_anchos(l, v, limites);
        break;
    default:
        return false;
    }
    return !l.corto;
}

} // namespace

contenido descifra(const uint8_t *datos, size_t num, const limites_valores &limites)
{
    contenido c;
    lector l = {datos, num};
    uint32_t num_dichos = l.toma<uint32_t>();
    for (uint32_t i = 0; i < num_dichos && c.fallo.empty(); i++) {
        if (c.valores.size() >= limites.max_valores) {
            c.fallo = "only the first " + numero_con_comas(limites.max_valores) + " values are shown";
            break;
        }
        valor v;
        v.tipo = l.toma<uint8_t>();
        uint8_t tam_nombre = l.toma<uint8_t>();
        const uint8_t *nombre = l.corto ? nullptr : l.toma_bytes(tam_nombre);
        if (nombre != nullptr)
            v.nombre = ansi_hasta_nul(nombre, tam_nombre);
        if (!l.corto && !toma_dato(l, v, limites) && !l.corto) {
            c.fallo = "a value of type " + std::to_string(v.tipo) + ", which there is not";
            c.danyado = true;
        }
        if (l.corto)
            c.fallo = "the content ends inside a value";
        if (c.fallo.empty())
            c.valores.push_back(v);
    }
    if (l.corto && c.fallo.empty())
        c.fallo = "the content ends before its count";
    c.danyado = c.danyado || l.corto;
    return c;
}

std::optional<contenido> lee_bloque(const std::string &nombre_servicio_ansi, uint32_t id_bloque_MCCom,
                                    const limites_valores &limites)
{
    bloque_leido bloque(nombre_de_datos(nombre_servicio_ansi, id_bloque_MCCom));
    if (!bloque.abierto())
        return std::nullopt;
    return descifra(bloque.datos(), bloque.tam(), limites);
}

const char *nombre_tipo(uint32_t tipo)
{
    static const char *const nombres[] = {"?",    "byte", "ushort", "ulong",  "double", "buffer",
                                          "ansi", "wide", "hwnd",   "ansi[]", "wide[]"};
    return tipo < sizeof nombres / sizeof nombres[0] ? nombres[tipo] : "?";
}

std::string hexadecimal(const std::vector<uint8_t> &bytes, size_t max)
{
    static const char cifras[] = "0123456789abcdef";
    std::string texto;
    for (size_t i = 0; i < bytes.size() && i < max; i++) {
        texto += cifras[bytes[i] >> 4];
        texto += cifras[bytes[i] & 15];
    }
    return texto;
}

static std::string texto_o_null(const std::optional<std::string> &texto)
{
    return texto ? entre_comillas(*texto) : "null";
}

// The shortest digits that give the same number again.
std::string real_a_texto(double real)
{
    if (std::isnan(real))
        return "nan";
    if (std::isinf(real))
        return real < 0 ? "-inf" : "inf";
    char texto[40] = "";
    for (int cifras = 1; cifras <= 17; cifras++) {
        snprintf(texto, sizeof texto, "%.*g", cifras, real);
        if (strtod(texto, nullptr) == real)
            break;
    }
    return texto;
}

std::string valor_a_texto(const valor &v)
{
    const size_t MAX_BYTES = 32;
    std::string texto;
    switch (v.tipo) {
    case ivrexa_tipoDato_double:
        return real_a_texto(v.real);
    case ivrexa_tipoDato_buffer:
        texto = numero_con_comas(v.tam) + (v.tam == 1 ? " byte" : " bytes");
        return v.bytes.empty() ? texto
                               : texto + " " + hexadecimal(v.bytes, MAX_BYTES) + (v.tam > MAX_BYTES ? "..." : "");
    case ivrexa_tipoDato_cadena_ansi:
    case ivrexa_tipoDato_cadena_unicode:
        return texto_o_null(v.texto);
    case ivrexa_tipoDato_arr_cadenas_ansi:
    case ivrexa_tipoDato_arr_cadenas_unicode:
        for (const std::optional<std::string> &t : v.textos)
            texto += (texto.empty() ? "" : ", ") + texto_o_null(t);
        return "[" + texto + "]";
    default:
        return std::to_string(v.numero);
    }
}

} // namespace herramientas
