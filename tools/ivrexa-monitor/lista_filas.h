// lista_filas.h - a short list that is filled again and again: rows that stay as they are are not drawn, and what is
// selected stays so wherever it goes.
#ifndef MONITOR_LISTA_FILAS_H
#define MONITOR_LISTA_FILAS_H

#include "lista.h"

namespace monitor {

struct fila {
    std::string clave; // what it is, from filling to filling; no two rows have the same
    std::vector<std::wstring> celdas;
    aspecto como = aspecto::normal;
};

class lista_filas : public lista {
public:
    using lista::lista;
    void pon(std::vector<fila> filas);

protected:
    std::wstring celda(int fila, int columna) const override;
    aspecto aspecto_de(int fila) const override;

private:
    void pon_otras(std::vector<fila> filas);

    std::vector<fila> m_filas;
};

} // namespace monitor

#endif
