#include "informe.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace banco {

std::string sistema()
{
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    using version_wine = const char *(CDECL *)();
    auto wine = reinterpret_cast<version_wine>(reinterpret_cast<void *>(GetProcAddress(ntdll, "wine_get_version")));
    if (wine != nullptr)
        return std::string("Wine ") + wine();
    using version_windows = LONG(WINAPI *)(OSVERSIONINFOW *);
    auto windows = reinterpret_cast<version_windows>(reinterpret_cast<void *>(GetProcAddress(ntdll, "RtlGetVersion")));
    OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof info;
    if (windows == nullptr || windows(&info) != 0)
        return "Windows";
    return "Windows " + std::to_string(info.dwMajorVersion) + "." + std::to_string(info.dwMinorVersion) + "." +
           std::to_string(info.dwBuildNumber);
}

static std::string formato(const char *con, double valor)
{
    char texto[64];
    std::snprintf(texto, sizeof texto, con, valor);
    return texto;
}

std::string duracion(double segundos)
{
    struct unidad {
        double segundos;
        const char *nombre;
    };
    static const unidad unidades[] = {{1, " s"}, {1e-3, " ms"}, {1e-6, " us"}, {1e-9, " ns"}};
    for (const unidad &unidad : unidades)
        if (segundos >= unidad.segundos || &unidad == &unidades[3])
            return formato(segundos / unidad.segundos < 10 ? "%.2f" : "%.1f", segundos / unidad.segundos) +
                   unidad.nombre;
    return "";
}

std::string tres_cifras(double valor)
{
    int decimales = valor >= 99.95 ? 0 : valor >= 9.995 ? 1 : 2; // of what rounding makes of it
    char texto[64];
    std::snprintf(texto, sizeof texto, "%.*f", decimales, valor);
    return texto;
}

std::string con_extremos(const resumen &resumen)
{
    return tres_cifras(resumen.mediana) + " (" + tres_cifras(resumen.minimo) + "-" + tres_cifras(resumen.maximo) + ")";
}

std::string bytes(double num)
{
    if (num >= 1048576 && std::fmod(num, 1048576) == 0)
        return formato("%.0f MiB", num / 1048576);
    if (num >= 1024 && std::fmod(num, 1024) == 0)
        return formato("%.0f KiB", num / 1024);
    return formato("%.0f B", num);
}

nlohmann::json a_json(const resumen &resumen)
{
    return {{"median", resumen.mediana}, {"min", resumen.minimo}, {"max", resumen.maximo}};
}

nlohmann::json a_json(const medida &medida)
{
    nlohmann::json json = a_json(medida.tiempo());
    json["name"] = medida.nombre;
    json["samples"] = medida.segundos;
    return json;
}

// UTC, ISO 8601.
static std::string fecha()
{
    SYSTEMTIME hora;
    GetSystemTime(&hora);
    char texto[64];
    std::snprintf(texto, sizeof texto, "%04u-%02u-%02uT%02u:%02u:%02uZ", hora.wYear, hora.wMonth, hora.wDay, hora.wHour,
                  hora.wMinute, hora.wSecond);
    return texto;
}

informe::informe(bool rapido) : origen_(sistema() + (rapido ? ", quick" : ""))
{
    json_["date"] = fecha();
    json_["system"] = sistema();
    json_["version"] = BANCO_VERSION;
    json_["quick"] = rapido;
    json_["sections"] = nlohmann::json::object();
}

void informe::anota_procesador(int cpu)
{
    json_["cpu"] = cpu;
}

static bool es_numero(const std::string &texto)
{
    return !texto.empty() && (texto[0] == '-' || (texto[0] >= '0' && texto[0] <= '9'));
}

void informe::tabla(const std::string &titulo, const std::vector<std::vector<std::string>> &filas)
{
    std::vector<size_t> anchos;
    for (const auto &fila : filas) {
        anchos.resize(std::max(anchos.size(), fila.size()));
        for (size_t i = 0; i < fila.size(); i++)
            anchos[i] = std::max(anchos[i], fila[i].size());
    }
    std::printf("\n%s [%s]\n", titulo.c_str(), origen_.c_str());
    for (size_t n = 0; n < filas.size(); n++) {
        std::string texto;
        for (size_t i = 0; i < filas[n].size(); i++) {
            const std::string &celda = filas[n][i];
            std::string hueco(anchos[i] - celda.size(), ' ');
            bool derecha = i > 0 && (n == 0 || es_numero(celda) || celda == "-");
            texto += (i > 0 ? "  " : "") + (derecha ? hueco + celda : celda + hueco);
        }
        texto.erase(texto.find_last_not_of(' ') + 1);
        std::printf("%s\n", texto.c_str());
        if (n == 0)
            std::printf("%s\n", std::string(texto.size(), '-').c_str());
    }
    std::fflush(stdout);
}

void informe::linea(const std::string &texto)
{
    std::printf("%s\n", texto.c_str());
    std::fflush(stdout);
}

nlohmann::json &informe::seccion(const std::string &clave)
{
    return json_["sections"][clave];
}

void informe::anota_meta(const std::string &nombre, double valor, double limite)
{
    metas_.push_back({nombre, valor, limite});
    json_["goals"].push_back(
        {{"name", nombre}, {"value", valor}, {"limit", limite}, {"met", metas_.back().cumplida()}});
}

void informe::tabla_de_metas()
{
    std::vector<std::vector<std::string>> filas = {{"goal", "found", "at most", ""}};
    for (const meta &meta : metas_)
        filas.push_back(
            {meta.nombre, tres_cifras(meta.valor), tres_cifras(meta.limite), meta.cumplida() ? "met" : "NOT MET"});
    if (!metas_.empty())
        tabla("Goals", filas);
}

bool informe::metas_cumplidas() const
{
    return std::all_of(metas_.begin(), metas_.end(), [](const meta &meta) { return meta.cumplida(); });
}

void informe::escribe(const std::string &fichero)
{
    std::ofstream salida(fichero, std::ios::binary);
    salida << json_.dump(1) << "\n";
    salida.close();
    if (!salida)
        throw std::runtime_error("could not write " + fichero);
}

} // namespace banco
