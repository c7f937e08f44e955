#include "columnas.h"

#include <algorithm>

namespace ivrexactl {

static size_t num_caracteres(const std::string &utf8)
{
    return static_cast<size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string en_columnas(const std::vector<std::vector<std::string>> &filas, const std::string &sangria)
{
    std::vector<size_t> anchos;
    for (const auto &fila : filas) {
        anchos.resize(std::max(anchos.size(), fila.size()), 0);
        for (size_t i = 0; i < fila.size(); i++)
            anchos[i] = std::max(anchos[i], num_caracteres(fila[i]));
    }
    std::string texto;
    for (const auto &fila : filas) {
        texto += sangria;
        for (size_t i = 0; i < fila.size(); i++) {
            texto += fila[i];
            if (i + 1 < fila.size())
                texto += std::string(anchos[i] - num_caracteres(fila[i]) + 2, ' ');
        }
        texto += "\n";
    }
    return texto;
}

} // namespace ivrexactl
