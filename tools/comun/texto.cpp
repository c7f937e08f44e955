#include "texto.h"

#include <windows.h>

namespace herramientas {

static std::wstring a_ancho_de(UINT pagina, const std::string &texto)
{
    int num = MultiByteToWideChar(pagina, 0, texto.data(), static_cast<int>(texto.size()), nullptr, 0);
    std::wstring ancho(static_cast<size_t>(num), L'\0');
    MultiByteToWideChar(pagina, 0, texto.data(), static_cast<int>(texto.size()), &ancho[0], num);
    return ancho;
}

std::string de_ansi(const std::string &ansi)
{
    return de_ancho(a_ancho_de(CP_ACP, ansi));
}

std::string de_ancho(const std::wstring &ancho)
{
    int num =
        WideCharToMultiByte(CP_UTF8, 0, ancho.data(), static_cast<int>(ancho.size()), nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(num), '\0');
    WideCharToMultiByte(CP_UTF8, 0, ancho.data(), static_cast<int>(ancho.size()), &utf8[0], num, nullptr, nullptr);
    return utf8;
}

std::wstring a_ancho(const std::string &utf8)
{
    return a_ancho_de(CP_UTF8, utf8);
}

// What does not come back the same is not in the code page, or was no text.
std::optional<std::string> a_ansi(const std::string &utf8)
{
    if (GetACP() == CP_UTF8) // the system then refuses to tell what it put in the place of others
        return utf8;
    std::wstring ancho = a_ancho(utf8);
    int num =
        WideCharToMultiByte(CP_ACP, 0, ancho.data(), static_cast<int>(ancho.size()), nullptr, 0, nullptr, nullptr);
    std::string ansi(static_cast<size_t>(num), '\0');
    WideCharToMultiByte(CP_ACP, 0, ancho.data(), static_cast<int>(ancho.size()), &ansi[0], num, nullptr, nullptr);
    if (de_ansi(ansi) != utf8)
        return std::nullopt;
    return ansi;
}

static const char CIFRAS[] = "0123456789abcdef";

static std::string escapa_byte(const char *letra, unsigned char byte)
{
    return std::string(letra) + CIFRAS[byte >> 4] + CIFRAS[byte & 15];
}

// Terminals obey the controls U+0080 to U+009F, and break lines at U+2028 and U+2029. `largo` is how many bytes it has;
// the text is empty for any other character.
static std::string escapa_control_largo(const std::string &utf8, size_t i, size_t *largo)
{
    const unsigned char *u = reinterpret_cast<const unsigned char *>(utf8.c_str()) + i;
    *largo = u[0] == 0xc2 ? 2 : 3;
    if (u[0] == 0xc2 && u[1] >= 0x80 && u[1] <= 0x9f)
        return escapa_byte("\\u00", u[1]);
    if (u[0] == 0xe2 && u[1] == 0x80 && (u[2] == 0xa8 || u[2] == 0xa9))
        return escapa_byte("\\u20", static_cast<unsigned char>(u[2] - 0x80));
    return "";
}

static std::string escapa_uno(char c, bool comillas)
{
    unsigned char u = static_cast<unsigned char>(c);
    switch (c) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    case '"':
    case '\\':
        return comillas ? std::string("\\") + c : std::string(1, c);
    default:
        return u < 0x20 || u == 0x7f ? escapa_byte("\\x", u) : std::string(1, c);
    }
}

static std::string escapa(const std::string &utf8, bool comillas)
{
    std::string texto;
    for (size_t i = 0; i < utf8.size(); i++) {
        size_t largo = 0;
        std::string control = escapa_control_largo(utf8, i, &largo);
        texto += control.empty() ? escapa_uno(utf8[i], comillas) : control;
        i += control.empty() ? 0 : largo - 1;
    }
    return texto;
}

std::string entre_comillas(const std::string &utf8)
{
    return "\"" + escapa(utf8, true) + "\"";
}

std::string sin_controles(const std::string &utf8)
{
    return escapa(utf8, false);
}

std::string numero_con_comas(uint64_t numero)
{
    std::string texto = std::to_string(numero);
    for (size_t i = texto.size(); i > 3; i -= 3)
        texto.insert(i - 3, ",");
    return texto;
}

std::string nombre_sin_ruta(const std::string &ruta)
{
    size_t barra = ruta.find_last_of("\\/");
    std::string nombre = barra == std::string::npos ? ruta : ruta.substr(barra + 1);
    return nombre.empty() ? ruta : nombre;
}

} // namespace herramientas
