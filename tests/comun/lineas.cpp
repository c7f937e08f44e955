#include "lineas.h"

#include <cctype>
#include <cstring>

#include "sistema.h"

static void anyade_hex(std::string *texto, unsigned char byte)
{
    const char *digitos = "0123456789abcdef";
    *texto += digitos[byte >> 4];
    *texto += digitos[byte & 15];
}

template <typename regla>
static std::string codifica(const std::string &texto, regla se_codifica)
{
    std::string resultado;
    for (char c : texto) {
        if (!se_codifica(static_cast<unsigned char>(c))) {
            resultado += c;
            continue;
        }
        resultado += '%';
        anyade_hex(&resultado, static_cast<unsigned char>(c));
    }
    return resultado;
}

std::string codifica_linea(const std::string &texto)
{
    return codifica(texto, [](unsigned char c) { return c < 0x20 || c == '%' || c == 0x7f; });
}

std::string codifica_argumento(const std::string &texto)
{
    if (texto.empty())
        return "%";
    return codifica(texto,
                    [](unsigned char c) { return c >= 0x80 || (!isalnum(c) && strchr("_.,:;/+=-", c) == nullptr); });
}

static int valor_hex(char c)
{
    if ('0' <= c && c <= '9')
        return c - '0';
    c = static_cast<char>(c | 0x20);
    return 'a' <= c && c <= 'f' ? c - 'a' + 10 : -1;
}

std::string descodifica(const std::string &texto)
{
    std::string resultado;
    for (size_t i = 0; i < texto.size(); i++) {
        if (texto[i] != '%') {
            resultado += texto[i];
            continue;
        }
        int alto = i + 2 < texto.size() ? valor_hex(texto[i + 1]) : -1;
        int bajo = i + 2 < texto.size() ? valor_hex(texto[i + 2]) : -1;
        if (alto < 0 || bajo < 0)
            continue;
        resultado += static_cast<char>(alto * 16 + bajo);
        i += 2;
    }
    return resultado;
}

std::string junta(const std::vector<std::string> &campos)
{
    std::string linea;
    for (size_t i = 0; i < campos.size(); i++) {
        linea += i == 0 ? "" : "|";
        linea += codifica(campos[i], [](unsigned char c) { return c == '|' || c == '%'; });
    }
    return linea;
}

std::vector<std::string> campos(const std::string &linea)
{
    std::vector<std::string> resultado;
    for (size_t ini = 0;;) {
        size_t fin = linea.find('|', ini);
        resultado.push_back(descodifica(linea.substr(ini, fin - ini)));
        if (fin == std::string::npos)
            return resultado;
        ini = fin + 1;
    }
}

std::vector<std::string> campos(const std::string &linea, const char *prefijo)
{
    size_t num = strlen(prefijo);
    return campos(linea.compare(0, num, prefijo) == 0 ? linea.substr(num) : linea);
}

std::string a_utf8(const std::wstring &texto)
{
    std::string utf8(texto.size() * 3, '\0');
    int num = WideCharToMultiByte(CP_UTF8, 0, texto.data(), static_cast<int>(texto.size()), &utf8[0],
                                  static_cast<int>(utf8.size()), nullptr, nullptr);
    utf8.resize(static_cast<size_t>(num));
    return utf8;
}

std::wstring de_utf8(const std::string &texto)
{
    std::wstring ancho(texto.size(), L'\0');
    int num = MultiByteToWideChar(CP_UTF8, 0, texto.data(), static_cast<int>(texto.size()), &ancho[0],
                                  static_cast<int>(ancho.size()));
    ancho.resize(static_cast<size_t>(num));
    return ancho;
}

std::string a_hex(const void *bytes, size_t num)
{
    std::string texto;
    for (size_t i = 0; i < num; i++)
        anyade_hex(&texto, static_cast<const unsigned char *>(bytes)[i]);
    return texto;
}

std::vector<uint8_t> de_hex(const std::string &texto)
{
    std::vector<uint8_t> bytes;
    int alto = -1;
    for (char c : texto) {
        int valor = valor_hex(c);
        if (valor < 0)
            continue;
        if (alto >= 0)
            bytes.push_back(static_cast<uint8_t>(alto * 16 + valor));
        alto = alto >= 0 ? -1 : valor;
    }
    return bytes;
}
