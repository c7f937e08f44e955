// monitor_teclado.cpp - the monitor's window by the keyboard alone: letters with Alt, selecting, copying, and how small
// the window can be made.
#include <map>

#include "ventana_monitor.h"

#include <commctrl.h>

using monitor_teclado = monitor_ventana;

// ---- Letters with Alt

using letras = std::multimap<char, std::string>;

static void anota_letra(letras *donde, const std::string &texto)
{
    size_t sitio = texto.find('&');
    if (sitio != std::string::npos && sitio + 1 < texto.size() && texto[sitio + 1] != '&')
        donde->insert({static_cast<char>(toupper(static_cast<unsigned char>(texto[sitio + 1]))), texto});
}

static void espera_de_uno_solo(const letras &todas, const std::string &donde)
{
    for (const auto &una : todas)
        EXPECT_EQ(todas.count(una.first), 1u) << donde << ": " << una.second;
}

static std::string texto_de_orden(HMENU menu, int sitio)
{
    wchar_t texto[200] = L"";
    GetMenuStringW(menu, static_cast<UINT>(sitio), texto, 200, MF_BYPOSITION);
    return a_utf8(texto);
}

static letras letras_de_menu(HMENU menu)
{
    letras todas;
    for (int i = 0; i < GetMenuItemCount(menu); i++)
        anota_letra(&todas, texto_de_orden(menu, i));
    return todas;
}

// The menu as the program's file has it.
class menu_de_fichero {
public:
    menu_de_fichero()
    {
        wchar_t ruta[MAX_PATH];
        GetModuleFileNameW(nullptr, ruta, MAX_PATH);
        std::wstring fichero(ruta);
        fichero.resize(fichero.find_last_of(L'\\') + 1);
        fichero += L"ivrexa-monitor.exe";
        m_modulo = LoadLibraryExW(fichero.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
        menu = LoadMenuW(m_modulo, MAKEINTRESOURCEW(ID_MENU));
        EXPECT_NE(menu, nullptr);
    }
    ~menu_de_fichero()
    {
        DestroyMenu(menu);
        FreeLibrary(m_modulo);
    }
    HMENU menu;

private:
    HMODULE m_modulo;
};

static letras letras_de_ventana(const monitor_vivo &m)
{
    letras todas = letras_de_menu(menu_de_fichero().menu);
    EXPECT_EQ(todas.size(), 4u);
    for (HWND hijo = nullptr; (hijo = FindWindowExW(m.hwnd(), hijo, nullptr, nullptr)) != nullptr;)
        anota_letra(&todas, texto_de(hijo));
    return todas;
}

TEST_F(monitor_teclado, cada_letra_con_alt_es_de_uno_solo_tambien_en_pausa)
{
    menu_de_fichero f;
    for (int i = 0; i < GetMenuItemCount(f.menu); i++)
        espera_de_uno_solo(letras_de_menu(GetSubMenu(f.menu, i)), texto_de_orden(f.menu, i));
    monitor_vivo m;
    letras marcha = letras_de_ventana(m);
    EXPECT_GE(marcha.size(), 4u + 9u) << "four menus, the filter, five kinds, two buttons, the activities";
    espera_de_uno_solo(marcha, "watching");
    m.pon_delante();
    pulsa({VK_F5});
    m.espera_estado("paused, watching");
    espera_de_uno_solo(letras_de_ventana(m), "paused");
    m.cierra();
}

TEST_F(monitor_teclado, alt_y_letra_hacen_lo_suyo_en_pausa_sin_acabarla)
{
    monitor_vivo m;
    m.pon_delante();
    pulsa({VK_MENU, 'P'});
    m.espera_estado("paused, watching");
    pulsa({VK_MENU, 'C'});
    m.espera_foco(ID_FILTRO_CLASE + 1);
    pulsa({VK_MENU, 'R'});
    m.espera_foco(ID_FILTRO_CLASE);
    m.espera([&] { return manda(m.control(ID_FILTRO_CLASE), BM_GETCHECK) == BST_UNCHECKED; }, "no services");
    EXPECT_EQ(m.estado(), "paused, watching");
    pulsa({VK_MENU, 'U'});
    m.espera_estado("watching");
    pulsa({VK_MENU, 'A'});
    m.espera_foco(ID_LISTA_ACTIVIDADES);
    pulsa({VK_MENU, 'S'});
    m.espera_foco(ID_FILTRO_SERVICIO);
    m.cierra();
}

// ---- Selecting and copying

static std::string portapapeles()
{
    std::string texto = "(cannot be opened)";
    EXPECT_TRUE(espera_hasta([] { return OpenClipboard(nullptr) != FALSE; }, 5000));
    HANDLE datos = GetClipboardData(CF_UNICODETEXT);
    const void *vista = datos != nullptr ? GlobalLock(datos) : nullptr;
    texto = vista != nullptr ? a_utf8(static_cast<const wchar_t *>(vista)) : "(no text)";
    if (vista != nullptr)
        GlobalUnlock(datos);
    CloseClipboard();
    return texto;
}

static void pon_en_portapapeles(const std::wstring &texto)
{
    ASSERT_TRUE(espera_hasta([] { return OpenClipboard(nullptr) != FALSE; }, 5000));
    EmptyClipboard();
    HGLOBAL memoria = GlobalAlloc(GMEM_MOVEABLE, (texto.size() + 1) * sizeof(wchar_t));
    memcpy(GlobalLock(memoria), texto.c_str(), (texto.size() + 1) * sizeof(wchar_t));
    GlobalUnlock(memoria);
    EXPECT_NE(SetClipboardData(CF_UNICODETEXT, memoria), nullptr);
    CloseClipboard();
}

TEST_F(monitor_teclado, copiar_sin_nada_elegido_deja_el_portapapeles_como_esta)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    pon_en_portapapeles(L"of before");
    m.pon_delante();
    pulsa({VK_CONTROL, 'C'});
    pulsa({VK_F5}); // keys are obeyed in their order
    m.espera_estado("paused, watching");
    EXPECT_EQ(portapapeles(), "of before");
    pulsa({VK_CONTROL, 'A'});
    m.espera([&] { return m.actividades().primera_elegida() == 0; }, "the row to be selected");
    pulsa({VK_CONTROL, 'C'});
    m.espera([&] { return portapapeles() != "of before"; }, "the copy");
    EXPECT_NE(portapapeles().find("\tserver\tservice offered\t" + servicio()), std::string::npos) << portapapeles();
    acaba(servidor);
    m.cierra();
}

// While it tries, its window answers nothing; a box that it showed instead would answer.
TEST_F(monitor_teclado, copiar_espera_a_quien_tiene_el_portapapeles_un_momento)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    pon_en_portapapeles(L"of before");
    m.pon_delante();
    pulsa({VK_CONTROL, 'A'});
    m.espera([&] { return m.actividades().primera_elegida() == 0; }, "the row to be selected");
    ASSERT_TRUE(espera_hasta([] { return OpenClipboard(nullptr) != FALSE; }, 5000));
    pulsa({VK_CONTROL, 'C'});
    bool prueba =
        espera_hasta([&] { return SendMessageTimeoutW(m.hwnd(), WM_NULL, 0, 0, SMTO_NORMAL, 50, nullptr) == 0; }, 5000);
    CloseClipboard();
    EXPECT_TRUE(prueba) << "it does not wait for the clipboard";
    m.espera([&] { return portapapeles().find("\tserver\tservice offered\t" + servicio()) != std::string::npos; },
             "the copy");
    EXPECT_EQ(ventana_de(m.pid(), L"#32770"), nullptr);
    acaba(servidor);
    m.cierra();
}

TEST_F(monitor_teclado, con_ctrl_y_flechas_se_eligen_filas_que_no_son_seguidas)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio() + "A," + servicio() + "B," + servicio() + "C");
    m.espera_filas(ID_LISTA_ACTIVIDADES, 3);
    lista_ajena l = m.actividades();
    m.pon_delante();
    pulsa({VK_HOME});
    m.espera([&] { return l.con_foco() == 0 && l.primera_elegida() == 0; }, "the first row");
    for (int fila : {1, 2}) {
        pulsa({VK_CONTROL, VK_DOWN});
        m.espera([&] { return l.con_foco() == fila; }, "the focus on the next row");
    }
    pulsa({VK_CONTROL, VK_SPACE});
    auto elegida = [&](WPARAM fila) { return manda(l.hwnd(), LVM_GETITEMSTATE, fila, LVIS_SELECTED) != 0; };
    m.espera([&] { return elegida(2); }, "the third row to be selected");
    EXPECT_TRUE(elegida(0));
    EXPECT_FALSE(elegida(1));
    acaba(servidor);
    m.cierra();
}

static int alto_de(HWND hwnd)
{
    RECT r = {};
    GetWindowRect(hwnd, &r);
    return r.bottom - r.top;
}

TEST_F(monitor_teclado, ctrl_shift_y_flechas_dan_y_quitan_sitio_a_las_actividades)
{
    monitor_vivo m;
    HWND lista = m.control(ID_LISTA_ACTIVIDADES);
    int antes = alto_de(lista);
    m.pon_delante();
    pulsa({VK_CONTROL, VK_SHIFT, VK_DOWN});
    m.espera([&] { return alto_de(lista) > antes; }, "more room");
    pulsa({VK_CONTROL, VK_SHIFT, VK_UP});
    m.espera([&] { return alto_de(lista) == antes; }, "the room of before");
    m.cierra();
}

TEST_F(monitor_teclado, ctrl_fin_en_el_texto_del_filtro_va_al_final_del_texto)
{
    monitor_vivo m;
    m.pon_delante();
    pulsa({VK_CONTROL, 'F'});
    m.espera_foco(ID_FILTRO_SERVICIO);
    teclea("abc");
    HWND texto = m.control(ID_FILTRO_SERVICIO);
    m.espera([&] { return texto_de(texto) == "abc"; }, "the text");
    pulsa({VK_HOME});
    m.espera([&] { return LOWORD(manda(texto, EM_GETSEL)) == 0; }, "its beginning");
    pulsa({VK_CONTROL, VK_END});
    m.espera([&] { return LOWORD(manda(texto, EM_GETSEL)) == 3; }, "its end");
    m.cierra();
}

// ---- Following is of the day

TEST_F(monitor_teclado, cada_ventana_empieza_siguiendo_el_final)
{
    {
        monitor_vivo m;
        m.pon_delante();
        pulsa({VK_CONTROL, VK_END});
        pulsa({VK_F5}); // keys are obeyed in their order
        m.espera_estado("paused, watching");
        m.cierra();
    }
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    papel cliente = arranca_cliente("ventana", servicio());
    lista_ajena l = m.actividades();
    int comandos = l.num_a_la_vista() / 2 + 3;
    for (int i = 0; i < comandos; i++)
        manda_comando(cliente, 121);
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1 + 2 * comandos);
    m.espera([&] { return l.primera_a_la_vista() + l.num_a_la_vista() >= l.num_filas(); }, "the last row to be seen");
    acaba(cliente);
    acaba(servidor);
    m.cierra();
}

// ---- The smallest size

static RECT sitio_en(HWND ventana, HWND hijo)
{
    RECT r = {};
    GetWindowRect(hijo, &r);
    MapWindowPoints(nullptr, ventana, reinterpret_cast<POINT *>(&r), 2);
    return r;
}

static void espera_que_quepa_todo(monitor_vivo &m)
{
    RECT cliente = {};
    GetClientRect(m.hwnd(), &cliente);
    std::vector<RECT> antes;
    for (HWND hijo = nullptr; (hijo = FindWindowExW(m.hwnd(), hijo, nullptr, nullptr)) != nullptr;) {
        RECT r = sitio_en(m.hwnd(), hijo), comun = {};
        EXPECT_TRUE(IntersectRect(&comun, &cliente, &r) && EqualRect(&comun, &r))
            << texto_de(hijo) << " at " << r.left << "," << r.top << "," << r.right << "," << r.bottom << " in "
            << cliente.right << "," << cliente.bottom;
        for (const RECT &otro : antes)
            EXPECT_FALSE(IntersectRect(&comun, &otro, &r)) << texto_de(hijo) << " lies over another control";
        antes.push_back(r);
    }
    EXPECT_GE(antes.size(), 9u + 4u * 2u + 1u) << "the filter, four lists with labels, the bottom line";
    for (int id : {ID_LISTA_ACTIVIDADES, ID_LISTA_VALORES, ID_LISTA_SERVICIOS, ID_LISTA_PROGRAMAS})
        EXPECT_GE(m.lista(id).num_a_la_vista(), 2) << id;
}

// Whatever share of the height the activities have.
static void espera_que_quepa_en_lo_minimo(monitor_vivo &m)
{
    m.pon_delante();
    SetWindowPos(m.hwnd(), nullptr, 0, 0, 10, 10, SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOMOVE);
    for (WORD tecla : {VK_DOWN, VK_UP}) {
        for (int i = 0; i < 20; i++)
            pulsa({VK_CONTROL, VK_SHIFT, tecla});
        std::string antes = m.estado().find("paused") == 0 ? "watching" : "paused, watching";
        pulsa({VK_F5}); // keys are obeyed in their order
        m.espera_estado(antes);
        espera_que_quepa_todo(m);
    }
}

TEST_F(monitor_teclado, en_la_ventana_mas_pequenya_cabe_todo_y_cada_lista_muestra_dos_filas)
{
    monitor_vivo m;
    espera_que_quepa_en_lo_minimo(m);
    m.cierra();
}

// The desktop's font of messages while it lives.
class letra_grande {
public:
    explicit letra_grande(LONG alto)
    {
        m_antes.cbSize = sizeof m_antes;
        EXPECT_TRUE(SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof m_antes, &m_antes, 0));
        NONCLIENTMETRICSW m = m_antes;
        m.lfMessageFont.lfHeight = -alto;
        EXPECT_TRUE(SystemParametersInfoW(SPI_SETNONCLIENTMETRICS, sizeof m, &m, SPIF_UPDATEINIFILE));
    }
    ~letra_grande() { SystemParametersInfoW(SPI_SETNONCLIENTMETRICS, sizeof m_antes, &m_antes, SPIF_UPDATEINIFILE); }

private:
    NONCLIENTMETRICSW m_antes = {};
};

TEST_F(monitor_teclado, con_letra_grande_tambien_cabe_todo)
{
    int alto_normal = 0;
    {
        monitor_vivo m;
        alto_normal = alto_de(m.control(ID_FILTRO_SERVICIO));
        m.cierra();
    }
    RegDeleteTreeW(HKEY_CURRENT_USER, CLAVE_MONITOR);
    letra_grande grande(22);
    monitor_vivo m;
    EXPECT_GT(alto_de(m.control(ID_FILTRO_SERVICIO)), alto_normal) << "the font is the desktop's";
    espera_que_quepa_en_lo_minimo(m);
    m.cierra();
}
