// monitor_lista.cpp - the list of activities in a window of the test's own: following the end, and what is selected
// when the oldest rows are dropped.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>
#include <commctrl.h>

#include "ivrexa-monitor/lista_actividades.h"

using namespace monitor;

class monitor_lista : public ::testing::Test {
protected:
    monitor_lista() : m_historia(5000), m_lista(m_historia)
    {
        INITCOMMONCONTROLSEX controles = {sizeof controles, ICC_LISTVIEW_CLASSES};
        InitCommonControlsEx(&controles);
        m_padre = CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0, 800, 300, nullptr, nullptr, nullptr,
                                  nullptr);
        SetWindowLongPtrW(m_padre, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        SetWindowLongPtrW(m_padre, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(proc));
        EXPECT_TRUE(m_lista.crea(m_padre, 1));
        SetWindowPos(m_lista.hwnd(), nullptr, 0, 0, 800, 300, SWP_NOZORDER);
    }
    ~monitor_lista() override { DestroyWindow(m_padre); }

    static LRESULT CALLBACK proc(HWND hwnd, UINT mensaje, WPARAM wparam, LPARAM lparam)
    {
        auto *yo = reinterpret_cast<monitor_lista *>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
        return mensaje == WM_NOTIFY ? yo->m_lista.notifica(reinterpret_cast<NMHDR *>(lparam))
                                    : DefWindowProcW(hwnd, mensaje, wparam, lparam);
    }

    void llegan(int cuantos)
    {
        for (int i = 0; i < cuantos; i++) {
            suceso s;
            s.numero = ++m_numero;
            s.que = clase::comando;
            m_historia.anyade(s);
        }
        m_lista.refresca();
    }

    void pulsa(WORD tecla, bool con_shift = false)
    {
        BYTE teclas[256] = {};
        teclas[VK_SHIFT] = con_shift ? 0x80 : 0;
        SetKeyboardState(teclas);
        SendMessageW(m_lista.hwnd(), WM_KEYDOWN, tecla, 1);
        SendMessageW(m_lista.hwnd(), WM_KEYUP, tecla, 1);
        teclas[VK_SHIFT] = 0;
        SetKeyboardState(teclas);
    }

    // Numbers of the events.
    std::vector<uint64_t> elegidos() const
    {
        std::vector<uint64_t> numeros;
        for (int i = -1; (i = ListView_GetNextItem(m_lista.hwnd(), i, LVNI_SELECTED)) >= 0;)
            numeros.push_back(m_historia.visible(static_cast<size_t>(i)).numero);
        return numeros;
    }
    void elige(int fila, bool con_foco = false)
    {
        UINT como = LVIS_SELECTED | (con_foco ? LVIS_FOCUSED : 0u);
        ListView_SetItemState(m_lista.hwnd(), fila, como, como);
    }
    uint64_t arriba() const
    {
        return m_historia.visible(static_cast<size_t>(ListView_GetTopIndex(m_lista.hwnd()))).numero;
    }

    historia m_historia;
    lista_actividades m_lista;
    HWND m_padre = nullptr;
    uint64_t m_numero = 0;
};

using numeros = std::vector<uint64_t>;

TEST_F(monitor_lista, la_ultima_fila_elegida_no_deja_de_seguir_el_final)
{
    llegan(200);
    pulsa(VK_END);
    EXPECT_EQ(elegidos(), (numeros{200}));
    EXPECT_TRUE(m_lista.sigue_el_final());
    llegan(100);
    EXPECT_GT(arriba(), 200u);
}

TEST_F(monitor_lista, una_eleccion_que_crece_hacia_arriba_deja_de_seguir_el_final)
{
    llegan(200);
    pulsa(VK_END);
    for (int i = 0; i < 3; i++)
        pulsa(VK_UP, true);
    EXPECT_EQ(elegidos(), (numeros{197, 198, 199, 200}));
    EXPECT_FALSE(m_lista.sigue_el_final());
    uint64_t antes = arriba();
    llegan(140);
    EXPECT_EQ(arriba(), antes) << "what is selected does not run away";
    EXPECT_EQ(elegidos(), (numeros{197, 198, 199, 200}));
}

TEST_F(monitor_lista, un_aviso_de_varias_filas_elegidas_deja_de_seguir_el_final)
{
    llegan(200);
    NMLVODSTATECHANGE varias = {};
    varias.hdr = {m_lista.hwnd(), 1, LVN_ODSTATECHANGED};
    varias.iFrom = 199;
    varias.iTo = 199;
    varias.uNewState = LVIS_SELECTED;
    m_lista.notifica(&varias.hdr);
    EXPECT_TRUE(m_lista.sigue_el_final()) << "the last row alone";
    varias.iFrom = 198;
    varias.uNewState = 0;
    varias.uOldState = LVIS_SELECTED;
    m_lista.notifica(&varias.hdr);
    EXPECT_TRUE(m_lista.sigue_el_final()) << "none is selected";
    varias.uNewState = LVIS_SELECTED;
    varias.uOldState = 0;
    m_lista.notifica(&varias.hdr);
    EXPECT_FALSE(m_lista.sigue_el_final());
}

TEST_F(monitor_lista, lo_elegido_va_con_sus_sucesos_cuando_se_descartan_los_mas_viejos)
{
    llegan(5000);
    m_lista.pon_sigue(false);
    for (int fila : {5, 30, 31})
        elige(fila);
    llegan(20);
    EXPECT_EQ(elegidos(), (numeros{31, 32})) << "number 6 is dropped";
}

TEST_F(monitor_lista, una_eleccion_de_mas_de_2000_filas_se_suelta_entera_y_una_de_2000_no)
{
    llegan(5000);
    m_lista.pon_sigue(false);
    for (int fila = 100; fila < 2100; fila++)
        elige(fila);
    llegan(1);
    EXPECT_EQ(elegidos().size(), 2000u);
    EXPECT_EQ(elegidos().front(), 101u);
    elige(4000);
    ASSERT_EQ(elegidos().size(), 2001u);
    llegan(1);
    EXPECT_EQ(elegidos(), numeros());
    EXPECT_EQ(m_lista.elegidas_como_texto(), L"") << "no part of it is copied either";
}

TEST_F(monitor_lista, el_comienzo_de_una_eleccion_con_shift_va_con_su_suceso)
{
    llegan(5000);
    m_lista.pon_sigue(false);
    elige(100, true);
    ListView_SetSelectionMark(m_lista.hwnd(), 100);
    llegan(40);
    EXPECT_EQ(ListView_GetSelectionMark(m_lista.hwnd()), 60);
    pulsa(VK_DOWN, true);
    EXPECT_EQ(elegidos(), (numeros{101, 102}));
    llegan(80);
    EXPECT_EQ(ListView_GetSelectionMark(m_lista.hwnd()), 0) << "dropped: from the first that is kept";
}
