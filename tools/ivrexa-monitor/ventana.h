// ventana.h - the monitor's window: what it holds, and the commands that it obeys.
#ifndef MONITOR_VENTANA_H
#define MONITOR_VENTANA_H

#include <memory>
#include <optional>

#include <windows.h>

#include "ajustes.h"
#include "barra_estado.h"
#include "barra_filtro.h"
#include "disposicion.h"
#include "lista_actividades.h"
#include "lista_programas.h"
#include "lista_servicios.h"
#include "lista_valores.h"
#include "mirador.h"
#include "modelo.h"
#include "opciones.h"
#include "vigilancia.h"

namespace monitor {

class ventana {
public:
    explicit ventana(const opciones &o);
    ~ventana();
    ventana(const ventana &) = delete;
    ventana &operator=(const ventana &) = delete;

    bool crea(int como_se_muestra);
    void empieza(); // watches, unless the options or the user say no
    HWND hwnd() const { return m_hwnd; }

private:
    static LRESULT CALLBACK proc(HWND hwnd, UINT mensaje, WPARAM wparam, LPARAM lparam);
    LRESULT atiende(UINT mensaje, WPARAM wparam, LPARAM lparam);
    LRESULT atiende_raton(UINT mensaje, WPARAM wparam, LPARAM lparam);
    bool crea_controles();
    void acaba();
    void ha_cambiado_el_sistema();
    void pon_tam_minimo(MINMAXINFO *m) const;

    // what comes
    void recoge();
    void refresca();
    void ha_mirado();
    void di_estado();

    // looks
    void pon_ppp(UINT ppp);
    void coloca();
    void coloca_panel(const lista &l, const panel &sitio);
    HWND rotulo_de(int id_lista) const;
    medidas_disposicion medidas() const;
    void pon_alto_actividades(int por_mil);
    void situa_al_abrir(int como_se_muestra);
    void recuerda();
    void pon_marcas();

    // commands
    void obedece(int id, int aviso);
    bool obedece_de_fichero(int id);
    bool obedece_de_edicion(int id);
    bool obedece_de_vista(int id);
    LRESULT notifica(NMHDR *aviso);
    void pulsa_boton_con_foco();
    void vigila(bool sustituye, bool no_preguntes);
    void vigila_o_no();
    void pausa();
    void limpia();
    void filtra();
    void copia(const lista &l);
    void muestra_valores();
    void pon_valores(const suceso &s);
    void va_al_panel(int paso);
    lista *lista_de(HWND hwnd);

    opciones m_opciones;
    ajustes m_ajustes;
    HWND m_hwnd = nullptr;
    UINT m_ppp = 96;
    HFONT m_fuente = nullptr, m_negrita = nullptr;
    HWND m_foco = nullptr;   // of our controls, while another window has it
    bool m_arrastra = false; // the divisor
    bool m_hecha = false;    // with all that it holds
    bool m_cerrada = false;

    historia m_historia;
    contenidos m_contenidos;
    vidas m_vidas;
    std::optional<uint64_t> m_con_valores; // number of the event whose values are shown

    barra_filtro m_filtro;
    lista_actividades m_actividades{m_historia};
    lista_valores m_valores;
    lista_servicios m_servicios;
    lista_programas m_programas;
    barra_estado m_estado;

    std::unique_ptr<vigilancia> m_vigilancia;
    std::unique_ptr<mirador> m_mirador;
};

} // namespace monitor

#endif
