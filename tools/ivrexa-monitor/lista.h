// lista.h - a report list whose cells are asked for when they are drawn.
#ifndef MONITOR_LISTA_H
#define MONITOR_LISTA_H

#include <string>
#include <vector>

#include <windows.h>
#include <commctrl.h>

namespace monitor {

struct columna {
    const wchar_t *titulo;
    int ancho; // at 96 dpi
    bool a_la_derecha = false;
};

// How a row is drawn. A notice is one text across all columns.
enum class aspecto { normal, apagado, destacado, aviso };

class lista {
public:
    explicit lista(std::vector<columna> columnas);
    virtual ~lista() = default;
    lista(const lista &) = delete;
    lista &operator=(const lista &) = delete;

    bool crea(HWND padre, int id);
    HWND hwnd() const { return m_hwnd; }
    int id() const { return m_id; }
    int num_filas() const;

    std::vector<int> anchos() const;                 // at 96 dpi
    void pon_anchos(const std::vector<int> &anchos); // ignored when they are not as many as the columns
    void cambia_ppp(UINT ppp);                       // columns keep their widths of 96 dpi
    void pon_fuentes(HFONT normal, HFONT negrita);
    int alto_de_filas(int num) const; // with header, scroll bar and edges

    virtual LRESULT notifica(NMHDR *aviso);
    void elige_todo();
    std::wstring elegidas_como_texto() const; // a row a line, tabs between cells

protected:
    virtual std::wstring celda(int fila, int columna) const = 0;
    virtual aspecto aspecto_de(int fila) const = 0;
    virtual int busca(const std::wstring &principio, int desde) const; // row that typing leads to; -1: none
    int busca_en(int columna, const std::wstring &principio, int desde) const;
    std::vector<int> elegidas(size_t max) const;
    int num_columnas() const { return static_cast<int>(m_columnas.size()); }

private:
    void da_texto(NMLVDISPINFOW *aviso) const;
    LRESULT dibuja(NMLVCUSTOMDRAW *aviso) const;
    LRESULT dibuja_aviso(const NMCUSTOMDRAW &aviso) const;
    void mide_fila();
    int busca_texto(const NMLVFINDITEMW *aviso) const;

    std::vector<columna> m_columnas;
    int m_id = 0;
    HWND m_hwnd = nullptr;
    UINT m_ppp = 96;
    HFONT m_negrita = nullptr;
    int m_alto_fila = 0;
    bool m_alto_contraste = false;
};

} // namespace monitor

#endif
