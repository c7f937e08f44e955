// columnas.h - rows of texts as aligned lines.
#ifndef IVREXACTL_COLUMNAS_H
#define IVREXACTL_COLUMNAS_H

#include <string>
#include <vector>

namespace ivrexactl {

// One line a row, each with its end, its columns as wide as their widest text. The texts are UTF-8.
std::string en_columnas(const std::vector<std::vector<std::string>> &filas, const std::string &sangria);

} // namespace ivrexactl

#endif
