#include "disposicion.h"

#include <algorithm>

#include "pantalla.h"

namespace monitor {

namespace {

const int MARGEN = 8, ALTO_DIVISOR = 6, ALTO_FILTRO = 26;
const int VALORES_POR_CIENTO = 34;
const int MIN_POR_MIL = 50, MAX_POR_MIL = 950; // of the height, whatever it is

struct franja {
    int izquierda, arriba, derecha, abajo;
};

panel con_rotulo(const franja &f, int alto_rotulo)
{
    int abajo = std::max(f.abajo, f.arriba + alto_rotulo);
    int derecha = std::max(f.izquierda, f.derecha);
    return {{f.izquierda, f.arriba, derecha, f.arriba + alto_rotulo},
            {f.izquierda, f.arriba + alto_rotulo, derecha, abajo}};
}

int arriba_de_listas(const medidas_disposicion &m)
{
    return escala(MARGEN, m.ppp) + std::max(escala(ALTO_FILTRO, m.ppp), m.alto_linea + escala(MARGEN, m.ppp)) +
           escala(MARGEN / 2, m.ppp);
}

int alto_de_listas(const medidas_disposicion &m)
{
    return std::max(1, m.alto - arriba_de_listas(m) - escala(MARGEN / 2, m.ppp));
}

int alto_rotulo(const medidas_disposicion &m)
{
    return m.alto_linea + escala(4, m.ppp);
}

int medio_divisor(const medidas_disposicion &m)
{
    return escala(ALTO_DIVISOR, m.ppp) / 2;
}

int alto_panel_min(const medidas_disposicion &m)
{
    return alto_rotulo(m) + m.alto_lista_min;
}

// The activities stand above the divisor; services and programs share what is below it.
int arriba_min(const medidas_disposicion &m)
{
    return alto_panel_min(m) + medio_divisor(m);
}

int abajo_min(const medidas_disposicion &m)
{
    return medio_divisor(m) + 2 * alto_panel_min(m) + escala(MARGEN, m.ppp) / 2 + 1;
}

// Where the middle of the divisor goes.
int corte_valido(const medidas_disposicion &m, int y)
{
    int arriba = arriba_de_listas(m);
    return std::max(arriba + arriba_min(m), std::min(arriba + alto_de_listas(m) - abajo_min(m), y));
}

int corte_de(const medidas_disposicion &m)
{
    return corte_valido(m, arriba_de_listas(m) + MulDiv(alto_de_listas(m), m.alto_actividades_por_mil, 1000));
}

} // namespace

int alto_minimo(const medidas_disposicion &m)
{
    return arriba_de_listas(m) + arriba_min(m) + abajo_min(m) + escala(MARGEN / 2, m.ppp);
}

int por_mil_valido(const medidas_disposicion &m, int por_mil)
{
    return por_mil_en(m, arriba_de_listas(m) + MulDiv(alto_de_listas(m), por_mil, 1000));
}

disposicion reparte(const medidas_disposicion &m)
{
    int margen = escala(MARGEN, m.ppp), rotulo = alto_rotulo(m);
    int izquierda = margen, derecha = std::max(izquierda, m.ancho - margen);
    int arriba = arriba_de_listas(m), abajo = arriba + alto_de_listas(m);
    int corte = corte_de(m), medio = medio_divisor(m);
    int valores = derecha - MulDiv(derecha - izquierda, VALORES_POR_CIENTO, 100);
    int mitad = (corte + medio + abajo) / 2;

    disposicion d = {};
    d.filtro = {izquierda, margen, derecha, arriba - margen / 2};
    d.actividades = con_rotulo({izquierda, arriba, valores - margen / 2, corte - medio}, rotulo);
    d.valores = con_rotulo({valores + margen / 2, arriba, derecha, corte - medio}, rotulo);
    d.divisor = {izquierda, corte - medio, derecha, corte + medio};
    d.servicios = con_rotulo({izquierda, corte + medio, derecha, mitad - margen / 4}, rotulo);
    d.programas = con_rotulo({izquierda, mitad + margen / 4, derecha, abajo}, rotulo);
    return d;
}

int por_mil_en(const medidas_disposicion &m, int y)
{
    int por_mil = MulDiv(corte_valido(m, y) - arriba_de_listas(m), 1000, alto_de_listas(m));
    return std::min(MAX_POR_MIL, std::max(MIN_POR_MIL, por_mil));
}

} // namespace monitor
