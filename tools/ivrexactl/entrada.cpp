#include "entrada.h"

#include <algorithm>
#include <charconv>

#include "comun/json.h"
#include "comun/texto.h"
#include "comun/valores.h"

#include "orden.h"

namespace ivrexactl {

using herramientas::entre_comillas;
using herramientas::numero_con_comas;

[[noreturn]] static void no_vale(const std::string &texto)
{
    throw fallo(codigo_USO, texto);
}

static std::string a_ansi_o_falla(const std::string &que, const std::string &texto)
{
    std::optional<std::string> ansi = herramientas::a_ansi(texto);
    if (!ansi)
        no_vale(que + ": " + entre_comillas(texto) + " has a character that the ANSI code page has not");
    return *ansi;
}

// ---- Service, id, texts

// A backslash would make the service's blocks unreachable, since it separates the folders of names.
std::string lee_nombre_servicio(const std::string &nombre)
{
    std::string ansi = a_ansi_o_falla("service", nombre);
    if (ansi.empty() || ansi.size() > MAX_NOMBRE_SERVICIO || ansi.find('\\') != std::string::npos)
        no_vale("service: " + entre_comillas(nombre) +
                " is no name of a service; those have 1 to 63 bytes, and no "
                "backslash");
    return ansi;
}

// Digits, or 0x and hexadecimal digits; nothing else before, between or behind.
static std::optional<uint64_t> numero_de(const std::string &texto)
{
    bool hexadecimal = texto.size() > 2 && texto[0] == '0' && (texto[1] == 'x' || texto[1] == 'X');
    const char *fin = texto.data() + texto.size();
    uint64_t numero = 0;
    auto leido = std::from_chars(texto.data() + (hexadecimal ? 2 : 0), fin, numero, hexadecimal ? 16 : 10);
    if (leido.ec != std::errc() || leido.ptr != fin)
        return std::nullopt;
    return numero;
}

static uint64_t lee_numero(const std::string &que, const std::string &texto, uint64_t max)
{
    std::optional<uint64_t> numero = numero_de(texto);
    if (!numero || *numero > max)
        no_vale(que + ": " + entre_comillas(texto) + " is not a number from 0 to " + numero_con_comas(max) +
                ", decimal or as 0x...");
    return *numero;
}

// 0 is no command at all: its message goes to the host's own procedure. A server answers 2 to 99 with OK and runs
// nothing, and what comes with that OK is the answer to an earlier command.
uint32_t lee_id_comando(const std::string &id)
{
    uint32_t numero = static_cast<uint32_t>(lee_numero("id", id, UINT32_MAX));
    if (numero == ivrexa_comando_TERMINAR)
        no_vale("id: 1 is the command that ends a server; use 'ivrexactl end'");
    if (numero < ivrexa_comando_PRIMERO_PROPIO)
        no_vale("id: " + std::to_string(numero) + " is the library's own; a server's commands begin at 100");
    return numero;
}

std::wstring lee_texto(const std::string &opcion, const std::string &texto, size_t max)
{
    std::wstring ancho = herramientas::a_ancho(texto);
    if (ancho.size() > max)
        no_vale(opcion + ": the text has " + std::to_string(ancho.size()) + " characters, and only " +
                std::to_string(max) + " reach the server");
    return ancho;
}

// ---- Values

namespace {

struct partes {
    std::string que; // how messages call it
    std::string nombre, tipo;
    std::optional<std::string> valor;
};

} // namespace

// The type stands between the last colon before the first equals sign and that sign.
static partes separa(const std::string &argumento)
{
    size_t igual = argumento.find('=');
    std::string cabeza = argumento.substr(0, igual);
    size_t dos_puntos = cabeza.rfind(':');
    if (dos_puntos == std::string::npos)
        no_vale("value " + entre_comillas(argumento) + " has no type; write NAME:TYPE=VALUE");
    partes p;
    p.nombre = cabeza.substr(0, dos_puntos);
    p.tipo = cabeza.substr(dos_puntos + 1);
    p.que = "value " + entre_comillas(p.nombre);
    if (igual != std::string::npos)
        p.valor = argumento.substr(igual + 1);
    return p;
}

static uint32_t lee_tipo(const partes &p)
{
    std::string todos;
    for (uint32_t tipo = ivrexa_tipoDato_byte; tipo <= ivrexa_tipoDato_arr_cadenas_unicode; tipo++) {
        if (p.tipo == herramientas::nombre_tipo(tipo))
            return tipo;
        todos += std::string(" ") + herramientas::nombre_tipo(tipo);
    }
    no_vale(p.que + ": there is no type " + entre_comillas(p.tipo) + "; the types are" + todos);
}

static std::string lee_nombre(const partes &p)
{
    std::string ansi = a_ansi_o_falla("name of a value", p.nombre);
    if (ansi.size() > MAX_NOMBRE_VALOR)
        no_vale("name of a value: it has " + std::to_string(ansi.size()) + " characters, and 254 is the most");
    return ansi;
}

static double lee_real(const partes &p)
{
    const std::string &texto = *p.valor;
    double real = 0;
    auto leido = std::from_chars(texto.data(), texto.data() + texto.size(), real);
    if (leido.ec == std::errc::result_out_of_range)
        no_vale(p.que + ": " + entre_comillas(texto) + " is beyond what a double holds");
    if (leido.ec != std::errc() || leido.ptr != texto.data() + texto.size())
        no_vale(p.que + ": " + entre_comillas(texto) + " is not a number");
    return real;
}

static std::vector<uint8_t> lee_hexadecimal(const partes &p)
{
    const std::string &texto = *p.valor;
    std::vector<uint8_t> bytes(texto.size() / 2);
    bool vale = texto.size() % 2 == 0;
    for (size_t i = 0; vale && i < bytes.size(); i++) {
        const char *dos = texto.data() + 2 * i;
        auto leido = std::from_chars(dos, dos + 2, bytes[i], 16);
        vale = leido.ec == std::errc() && leido.ptr == dos + 2;
    }
    if (!vale)
        no_vale(p.que + ": " + entre_comillas(texto) +
                " is not made of pairs of hexadecimal digits; @FILE takes the "
                "bytes from a file");
    return bytes;
}

static void lee_trozos(HANDLE fichero, std::vector<uint8_t> *bytes, bool *leido)
{
    const size_t TROZO = 1 << 20;
    DWORD num = 0;
    for (size_t sitio = 0; *leido && sitio < bytes->size(); sitio += num) {
        DWORD pedido = static_cast<DWORD>(std::min(TROZO, bytes->size() - sitio));
        *leido = ReadFile(fichero, bytes->data() + sitio, pedido, &num, nullptr) && num > 0;
    }
}

static std::vector<uint8_t> lee_fichero(const partes &p, const std::string &ruta)
{
    std::wstring ancha = herramientas::a_ancho(ruta);
    HANDLE fichero = CreateFileW(ancha.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    LARGE_INTEGER tam = {};
    bool leido =
        fichero != INVALID_HANDLE_VALUE && GetFileType(fichero) == FILE_TYPE_DISK && GetFileSizeEx(fichero, &tam);
    std::vector<uint8_t> bytes;
    bool cabe = static_cast<uint64_t>(tam.QuadPart) <= MAX_CONTENIDO;
    if (leido && cabe) {
        bytes.resize(static_cast<size_t>(tam.QuadPart));
        lee_trozos(fichero, &bytes, &leido);
    }
    if (fichero != INVALID_HANDLE_VALUE)
        CloseHandle(fichero);
    if (!leido)
        throw fallo(codigo_NO_SE_LEE, p.que + ": the file " + entre_comillas(ruta) + " cannot be read");
    if (!cabe)
        no_vale(p.que + ": the file " + entre_comillas(ruta) + " has more bytes than a command can carry");
    return bytes;
}

static std::vector<uint8_t> lee_buffer(const partes &p)
{
    bool de_fichero = !p.valor->empty() && p.valor->front() == '@';
    return de_fichero ? lee_fichero(p, p.valor->substr(1)) : lee_hexadecimal(p);
}

// A text that holds a NUL would be cut there.
static std::vector<std::optional<std::string>> lee_textos(const partes &p)
{
    herramientas::json arreglo = herramientas::json::parse(*p.valor, nullptr, false);
    std::vector<std::optional<std::string>> textos;
    bool vale = arreglo.is_array();
    for (size_t i = 0; vale && i < arreglo.size(); i++) {
        const auto &uno = arreglo[i];
        vale = uno.is_null() || (uno.is_string() && uno.get_ref<const std::string &>().find('\0') == std::string::npos);
        if (vale)
            textos.push_back(uno.is_null() ? std::nullopt : std::optional<std::string>(uno.get<std::string>()));
    }
    if (!vale)
        no_vale(p.que + ": " + entre_comillas(*p.valor) + " is not a JSON array of texts and nulls");
    return textos;
}

static void lee_arreglo(const partes &p, dato *d)
{
    for (const std::optional<std::string> &texto : lee_textos(p)) {
        if (d->tipo == ivrexa_tipoDato_arr_cadenas_ansi)
            d->textos_ansi.push_back(texto ? std::optional<std::string>(a_ansi_o_falla(p.que, *texto)) : std::nullopt);
        else
            d->textos_anchos.push_back(texto ? std::optional<std::wstring>(herramientas::a_ancho(*texto))
                                             : std::nullopt);
    }
}

static void lee_valor(const partes &p, dato *d)
{
    switch (d->tipo) {
    case ivrexa_tipoDato_byte:
        d->numero = lee_numero(p.que, *p.valor, UINT8_MAX);
        break;
    case ivrexa_tipoDato_ushort:
        d->numero = lee_numero(p.que, *p.valor, UINT16_MAX);
        break;
    case ivrexa_tipoDato_ulong:
        d->numero = lee_numero(p.que, *p.valor, UINT32_MAX);
        break;
    case ivrexa_tipoDato_hwnd:
        d->numero = lee_numero(p.que, *p.valor, UINT64_MAX);
        break;
    case ivrexa_tipoDato_double:
        d->real = lee_real(p);
        break;
    case ivrexa_tipoDato_buffer:
        d->bytes = lee_buffer(p);
        break;
    case ivrexa_tipoDato_cadena_ansi:
        d->ansi = a_ansi_o_falla(p.que, *p.valor);
        break;
    case ivrexa_tipoDato_cadena_unicode:
        d->ancho = herramientas::a_ancho(*p.valor);
        break;
    default:
        lee_arreglo(p, d);
    }
}

dato lee_dato(const std::string &argumento)
{
    partes p = separa(argumento);
    dato d;
    d.tipo = lee_tipo(p);
    d.nombre = lee_nombre(p);
    bool es_texto = d.tipo == ivrexa_tipoDato_cadena_ansi || d.tipo == ivrexa_tipoDato_cadena_unicode;
    if (!p.valor && !es_texto)
        no_vale(p.que + ": a value of type " + p.tipo + " is missing; only a text, ansi or wide, can be null");
    if (p.valor)
        lee_valor(p, &d);
    return d;
}

std::vector<dato> lee_datos(const std::vector<std::string> &argumentos)
{
    std::vector<dato> datos;
    uint64_t tam = sizeof(uint32_t); // the count of values
    for (const std::string &argumento : argumentos) {
        datos.push_back(lee_dato(argumento));
        tam += tam_en_bloque(datos.back());
        if (tam > MAX_CONTENIDO)
            no_vale("the values have more bytes than a command can carry, which is 4 GiB less 1 KiB");
    }
    return datos;
}

// ---- Into command data

template <typename T>
static uint64_t tam_texto(const std::optional<T> &texto)
{
    return sizeof(uint32_t) + (texto ? (texto->size() + 1) * sizeof(typename T::value_type) : 0);
}

// A position for each text besides; an array of wide texts lacks the count, so this is 4 too many for one.
template <typename T>
static uint64_t tam_textos(const std::vector<std::optional<T>> &textos)
{
    uint64_t tam = sizeof(uint32_t);
    for (const std::optional<T> &texto : textos)
        tam += sizeof(uint32_t) + tam_texto(texto);
    return tam;
}

uint64_t tam_en_bloque(const dato &d)
{
    uint64_t cabeza = 2 + d.nombre.size() + 1;
    switch (d.tipo) {
    case ivrexa_tipoDato_byte:
        return cabeza + 1;
    case ivrexa_tipoDato_ushort:
        return cabeza + 2;
    case ivrexa_tipoDato_ulong:
        return cabeza + 4;
    case ivrexa_tipoDato_buffer:
        return cabeza + sizeof(uint32_t) + d.bytes.size();
    case ivrexa_tipoDato_cadena_ansi:
        return cabeza + tam_texto(d.ansi);
    case ivrexa_tipoDato_cadena_unicode:
        return cabeza + tam_texto(d.ancho);
    case ivrexa_tipoDato_arr_cadenas_ansi:
        return cabeza + tam_textos(d.textos_ansi);
    case ivrexa_tipoDato_arr_cadenas_unicode:
        return cabeza + tam_textos(d.textos_anchos);
    default:
        return cabeza + 8;
    }
}

template <typename T>
static auto punteros(const std::vector<std::optional<T>> &textos)
{
    std::vector<const typename T::value_type *> todos;
    todos.reserve(textos.size());
    for (const std::optional<T> &texto : textos)
        todos.push_back(texto ? texto->c_str() : nullptr);
    return todos;
}

void graba(const dato &d, comdat *datos)
{
    const char *nombre = d.nombre.c_str();
    auto ansis = punteros(d.textos_ansi);
    auto anchos = punteros(d.textos_anchos);
    switch (d.tipo) {
    case ivrexa_tipoDato_byte:
        ivrexa_graba_byte(datos, nombre, static_cast<uint8_t>(d.numero));
        break;
    case ivrexa_tipoDato_ushort:
        ivrexa_graba_ushort(datos, nombre, static_cast<uint16_t>(d.numero));
        break;
    case ivrexa_tipoDato_ulong:
        ivrexa_graba_ulong(datos, nombre, static_cast<uint32_t>(d.numero));
        break;
    case ivrexa_tipoDato_hwnd:
        ivrexa_graba_hwnd(datos, nombre, reinterpret_cast<ivrexa_hwnd>(d.numero));
        break;
    case ivrexa_tipoDato_double:
        ivrexa_graba_double(datos, nombre, d.real);
        break;
    case ivrexa_tipoDato_buffer:
        ivrexa_graba_buffer(datos, nombre, d.bytes.data(), static_cast<uint32_t>(d.bytes.size()));
        break;
    case ivrexa_tipoDato_cadena_ansi:
        ivrexa_graba_cadena_ansi(datos, nombre, d.ansi ? d.ansi->c_str() : nullptr);
        break;
    case ivrexa_tipoDato_cadena_unicode:
        ivrexa_graba_cadena_unicode(datos, nombre, d.ancho ? d.ancho->c_str() : nullptr);
        break;
    case ivrexa_tipoDato_arr_cadenas_ansi:
        ivrexa_graba_arr_cadenas_ansi(datos, nombre, ansis.data(), static_cast<uint32_t>(ansis.size()));
        break;
    default:
        ivrexa_graba_arr_cadenas_unicode(datos, nombre, anchos.data(), static_cast<uint32_t>(anchos.size()));
    }
}

} // namespace ivrexactl
