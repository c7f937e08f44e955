// barra_filtro.h - the row at the top: what is to be shown, and two buttons.
#ifndef MONITOR_BARRA_FILTRO_H
#define MONITOR_BARRA_FILTRO_H

#include <string>
#include <vector>

#include <windows.h>

#include "modelo.h"

namespace monitor {

class barra_filtro {
public:
    bool crea(HWND padre);
    void pon_fuente(HFONT fuente);
    void coloca(const RECT &sitio, UINT ppp);
    int ancho_minimo(UINT ppp) const;

    filtro lee() const;
    void pon(const filtro &f);
    void pon_pausa(bool parada);
    HWND texto() const { return m_texto; }

private:
    struct pieza {
        HWND hwnd;
        int aparte;    // free space before it, at 96 dpi
        bool con_caja; // a check box: its mark takes room
        bool es_boton;
    };
    HWND anade(HWND padre, const wchar_t *clase, const wchar_t *texto, DWORD estilo, int id);
    int ancho(const pieza &p, UINT ppp) const;
    int ancho_con_aparte(const pieza &p, UINT ppp) const;
    int ancho_de_los_otros(UINT ppp) const;
    int ancho_del_texto(int sitio, UINT ppp) const;
    int alto_del_texto(UINT ppp) const;

    std::vector<pieza> m_piezas; // from left to right
    HWND m_texto = nullptr, m_pausa = nullptr;
    std::vector<HWND> m_clases;
    HFONT m_fuente = nullptr;
};

} // namespace monitor

#endif
