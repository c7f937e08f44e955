#include "lista_valores.h"

#include "comun/texto.h"

namespace monitor {

using namespace herramientas;

lista_valores::lista_valores() : lista_filas({{L"Name", 84}, {L"Type", 56}, {L"Value", 232}}) {}

static fila fila_que_dice(size_t sitio, const std::wstring &texto)
{
    return {std::to_string(sitio), {texto}, aspecto::aviso};
}

void lista_valores::muestra(const contenido &c)
{
    std::vector<fila> filas;
    for (const valor &v : c.valores)
        filas.push_back({std::to_string(filas.size()),
                         {a_ancho(sin_controles(v.nombre)), a_ancho(nombre_tipo(v.tipo)), a_ancho(valor_a_texto(v))},
                         aspecto::normal});
    if (!c.fallo.empty())
        filas.push_back(fila_que_dice(filas.size(), a_ancho("(" + c.fallo + ")")));
    else if (filas.empty())
        filas.push_back(fila_que_dice(0, L"(no values)"));
    pon(std::move(filas));
}

void lista_valores::di(const wchar_t *texto)
{
    pon({fila_que_dice(0, texto)});
}

void lista_valores::vacia()
{
    pon({});
}

} // namespace monitor
