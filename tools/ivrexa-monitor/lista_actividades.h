// lista_actividades.h - the live list of what happens, over the history. It is told of changes in one go, not for each
// event.
#ifndef MONITOR_LISTA_ACTIVIDADES_H
#define MONITOR_LISTA_ACTIVIDADES_H

#include <functional>
#include <optional>

#include "lista.h"
#include "modelo.h"

namespace monitor {

class lista_actividades : public lista {
public:
    explicit lista_actividades(const historia &h);

    std::function<void()> al_elegir;        // another event is the selected one
    std::function<void()> al_cambiar_sigue; // the user went back in the list, or to its end

    void refresca(); // what came, what was dropped
    void rehaz();    // after another filter, or clearing
    bool sigue_el_final() const { return m_sigue; }
    void pon_sigue(bool sigue);
    void elige(uint64_t numero);   // the event of that number, where it is shown
    const suceso *elegido() const; // nullptr: none; holds until the history changes
    LRESULT notifica(NMHDR *aviso) override;

protected:
    std::wstring celda(int fila, int columna) const override;
    aspecto aspecto_de(int fila) const override;
    int busca(const std::wstring &principio, int desde) const override;

private:
    const suceso *en(int fila) const;
    int num_quitados() const;
    void corre(int cuantos);
    void pon_arriba(int fila);
    void pon_cuenta(DWORD como);
    void va_al_final();
    void ha_elegido(int fila, UINT antes, UINT ahora);
    void pon_sigue_el_usuario(bool sigue);

    const historia &m_historia;
    bool m_sigue = true;
    bool m_callada = false; // what changes now is our own doing
    int m_num = 0;          // rows that the control knows
    uint64_t m_ultimo = 0;  // number of the last of them
};

} // namespace monitor

#endif
