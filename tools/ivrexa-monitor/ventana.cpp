#include "ventana.h"

#include <algorithm>

#include <windowsx.h>

#include "comun/texto.h"
#include "pantalla.h"
#include "recursos.h"

namespace monitor {

using namespace herramientas;

namespace {

enum : UINT { MENSAJE_MIRADA = WM_APP + 1 };
const UINT_PTR RELOJ = 1;
const UINT RELOJ_MS = 50;
const int FILAS_MIN = 2; // of each list, however small the window is
const int ANCHO = 1280, ALTO = 700;

} // namespace

ventana::ventana(const opciones &o) : m_opciones(o), m_ajustes(lee_ajustes()) {}

ventana::~ventana()
{
    DeleteObject(m_fuente);
    DeleteObject(m_negrita);
}

// ---- Making it

static bool registra_clase(WNDPROC proc)
{
    WNDCLASSEXW c = {};
    c.cbSize = sizeof c;
    c.lpfnWndProc = proc;
    c.hInstance = GetModuleHandleW(nullptr);
    c.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    c.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    c.hbrBackground = GetSysColorBrush(COLOR_BTNFACE);
    c.lpszMenuName = MAKEINTRESOURCEW(ID_MENU);
    c.lpszClassName = monitor_CLASE;
    return RegisterClassExW(&c) != 0;
}

bool ventana::crea(int como_se_muestra)
{
    if (!registra_clase(proc) ||
        CreateWindowExW(0, monitor_CLASE, monitor_TITULO, WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, CW_USEDEFAULT,
                        CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr, GetModuleHandleW(nullptr),
                        this) == nullptr)
        return false;
    situa_al_abrir(como_se_muestra);
    SetFocus(m_actividades.hwnd());
    SetTimer(m_hwnd, RELOJ, RELOJ_MS, nullptr);
    m_mirador = std::make_unique<mirador>(m_hwnd, MENSAJE_MIRADA);
    return true;
}

static bool crea_rotulo(HWND padre, int id, const wchar_t *texto)
{
    DWORD estilo = WS_CHILD | WS_VISIBLE | SS_LEFT | SS_CENTERIMAGE | SS_ENDELLIPSIS;
    return CreateWindowExW(0, WC_STATICW, texto, estilo, 0, 0, 0, 0, padre,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr),
                           nullptr) != nullptr;
}

static int id_de_rotulo(int id_lista)
{
    return ID_ROTULO + id_lista - ID_LISTA_ACTIVIDADES;
}

// In the order of the Tab key; each list's name for screen readers is the text before it.
bool ventana::crea_controles()
{
    const struct {
        lista *l;
        int id;
        const wchar_t *rotulo;
        const std::vector<int> &anchos;
    } listas[] = {
        {&m_actividades, ID_LISTA_ACTIVIDADES, L"&Activities", m_ajustes.anchos_actividades},
        {&m_valores, ID_LISTA_VALORES, L"Values of the selected block", m_ajustes.anchos_valores},
        {&m_servicios, ID_LISTA_SERVICIOS, L"Services", m_ajustes.anchos_servicios},
        {&m_programas, ID_LISTA_PROGRAMAS, L"Programs", m_ajustes.anchos_programas},
    };
    bool bien = m_filtro.crea(m_hwnd);
    for (const auto &una : listas) {
        bien = bien && crea_rotulo(m_hwnd, id_de_rotulo(una.id), una.rotulo) && una.l->crea(m_hwnd, una.id);
        if (bien)
            una.l->pon_anchos(una.anchos);
    }
    if (!bien || !m_estado.crea(m_hwnd, ID_BARRA_ESTADO))
        return false;
    m_actividades.al_elegir = [this] { muestra_valores(); };
    m_actividades.al_cambiar_sigue = [this] { pon_marcas(); };
    m_filtro.pon({m_ajustes.filtro_servicio, m_ajustes.filtro_clases});
    m_historia.filtra(m_filtro.lee());
    m_vigilancia = std::make_unique<vigilancia>(m_hwnd);
    m_vigilancia->lee_bloques(m_ajustes.guarda_valores);
    pon_ppp(ppp_de(m_hwnd));
    pon_marcas();
    m_hecha = true;
    return true;
}

void ventana::empieza()
{
    if (m_opciones.vigila)
        vigila(m_opciones.sustituye, m_opciones.no_preguntes);
    di_estado();
    pon_marcas();
}

// Once, however the window ends; one that could not be made has nothing to remember.
void ventana::acaba()
{
    if (m_cerrada || !m_hecha)
        return;
    m_cerrada = true;
    KillTimer(m_hwnd, RELOJ);
    recuerda();
    m_mirador.reset();
    m_vigilancia->para();
}

// ---- Its place

static void mueve(HWND hwnd, const RECT &r)
{
    SetWindowPos(hwnd, nullptr, r.left, r.top, r.right - r.left, r.bottom - r.top, SWP_NOZORDER | SWP_NOACTIVATE);
}

void ventana::situa_al_abrir(int como_se_muestra)
{
    std::vector<RECT> areas = areas_de_trabajo();
    RECT recordado = m_ajustes.ventana;
    UINT ppp = m_ajustes.ppp_ventana;
    if (!m_ajustes.hay_ventana) {
        GetWindowRect(m_hwnd, &recordado);
        recordado.right = recordado.left + ANCHO;
        recordado.bottom = recordado.top + ALTO;
        ppp = 96;
    }
    // Twice: the first brings it to its screen, whose dpi may be others.
    for (int i = 0; i < 2; i++)
        mueve(m_hwnd, dentro_de_una_pantalla(con_otros_ppp(recordado, ppp, m_ppp), areas));
    bool sin_mas = como_se_muestra == SW_SHOWNORMAL || como_se_muestra == SW_SHOWDEFAULT || como_se_muestra == SW_SHOW;
    ShowWindow(m_hwnd, sin_mas && m_ajustes.maximizada ? SW_SHOWMAXIMIZED : como_se_muestra);
    UpdateWindow(m_hwnd);
}

static RECT sitio_sin_maximizar(HWND hwnd)
{
    WINDOWPLACEMENT p = {};
    p.length = sizeof p;
    GetWindowPlacement(hwnd, &p);
    RECT sitio = p.rcNormalPosition;
    // The placement is told from the work area's corner, windows are placed from the screen's.
    MONITORINFO pantalla = {};
    pantalla.cbSize = sizeof pantalla;
    if (GetMonitorInfoW(MonitorFromWindow(hwnd, MONITOR_DEFAULTTONEAREST), &pantalla))
        OffsetRect(&sitio, pantalla.rcWork.left - pantalla.rcMonitor.left,
                   pantalla.rcWork.top - pantalla.rcMonitor.top);
    return sitio;
}

void ventana::recuerda()
{
    WINDOWPLACEMENT p = {};
    p.length = sizeof p;
    m_ajustes.hay_ventana = GetWindowPlacement(m_hwnd, &p) != FALSE;
    m_ajustes.ventana = sitio_sin_maximizar(m_hwnd);
    m_ajustes.ppp_ventana = m_ppp;
    bool vuelve_maximizada = IsIconic(m_hwnd) && (p.flags & WPF_RESTORETOMAXIMIZED) != 0;
    m_ajustes.maximizada = p.showCmd == SW_SHOWMAXIMIZED || vuelve_maximizada;
    m_ajustes.anchos_actividades = m_actividades.anchos();
    m_ajustes.anchos_servicios = m_servicios.anchos();
    m_ajustes.anchos_programas = m_programas.anchos();
    m_ajustes.anchos_valores = m_valores.anchos();
    filtro f = m_filtro.lee();
    m_ajustes.filtro_servicio = f.servicio;
    m_ajustes.filtro_clases = f.clases;
    escribe_ajustes(m_ajustes);
}

void ventana::pon_ppp(UINT ppp)
{
    m_ppp = ppp;
    HFONT antes[] = {m_fuente, m_negrita};
    m_fuente = crea_fuente(ppp, false);
    m_negrita = crea_fuente(ppp, true);
    m_filtro.pon_fuente(m_fuente);
    for (lista *l : {static_cast<lista *>(&m_actividades), static_cast<lista *>(&m_valores),
                     static_cast<lista *>(&m_servicios), static_cast<lista *>(&m_programas)}) {
        l->pon_fuentes(m_fuente, m_negrita);
        l->cambia_ppp(ppp);
        SendMessageW(rotulo_de(l->id()), WM_SETFONT, reinterpret_cast<WPARAM>(m_fuente), TRUE);
    }
    m_estado.cambia_ppp(ppp, m_fuente);
    for (HFONT f : antes)
        DeleteObject(f);
}

HWND ventana::rotulo_de(int id_lista) const
{
    return GetDlgItem(m_hwnd, id_de_rotulo(id_lista));
}

medidas_disposicion ventana::medidas() const
{
    RECT r = {};
    GetClientRect(m_hwnd, &r);
    return {r.right,
            std::max<int>(0, r.bottom - m_estado.alto()),
            alto_de_linea(m_hwnd, m_fuente),
            m_actividades.alto_de_filas(FILAS_MIN),
            m_ppp,
            m_ajustes.alto_actividades_por_mil};
}

void ventana::coloca_panel(const lista &l, const panel &sitio)
{
    mueve(rotulo_de(l.id()), sitio.rotulo);
    mueve(l.hwnd(), sitio.lista);
}

void ventana::coloca()
{
    SendMessageW(m_estado.hwnd(), WM_SIZE, 0, 0);
    disposicion d = reparte(medidas());
    m_filtro.coloca(d.filtro, m_ppp);
    coloca_panel(m_actividades, d.actividades);
    coloca_panel(m_valores, d.valores);
    coloca_panel(m_servicios, d.servicios);
    coloca_panel(m_programas, d.programas);
}

void ventana::pon_alto_actividades(int por_mil)
{
    m_ajustes.alto_actividades_por_mil = por_mil_valido(medidas(), por_mil);
    coloca();
}

// ---- What comes

void ventana::recoge()
{
    for (const suceso &s : m_vigilancia->recoge(&m_contenidos)) {
        m_vidas.anota(s);
        m_historia.anyade(s);
    }
}

// At each tick of the clock, and where the user must see at once what he did.
void ventana::refresca()
{
    recoge();
    m_actividades.refresca();
    muestra_valores();
    di_estado();
}

void ventana::ha_mirado()
{
    std::shared_ptr<const vista> v = m_mirador != nullptr ? m_mirador->ultima() : nullptr;
    if (v == nullptr)
        return;
    m_servicios.muestra(v->escritorio);
    m_programas.muestra(v->escritorio, v->pulsos, v->ms);
    situacion antes = m_vigilancia->como_esta();
    m_vigilancia->comprueba(v->escritorio.hay_monitor);
    if (m_vigilancia->como_esta() != antes)
        pon_marcas();
}

static std::wstring cuantos(uint64_t num, const wchar_t *uno, const wchar_t *varios)
{
    return a_ancho(numero_con_comas(num)) + L" " + (num == 1 ? uno : varios);
}

static const wchar_t *texto_de(situacion s)
{
    switch (s) {
    case situacion::vigila:
        return L"watching";
    case situacion::desbancada:
        return L"another program is the monitor now";
    case situacion::sin_sitio:
        return L"not watching: another program took the place, and has gone";
    default:
        return L"not watching";
    }
}

void ventana::di_estado()
{
    std::wstring como = texto_de(m_vigilancia->como_esta());
    m_estado.di({cuantos(m_vigilancia->num_actividades(), L"activity", L"activities"),
                 cuantos(m_historia.num_perdidos(), L"lost", L"lost"),
                 cuantos(m_historia.num_visibles(), L"shown", L"shown"),
                 cuantos(m_historia.num_aparte(), L"kept aside", L"kept aside"),
                 cuantos(m_historia.num_descartados(), L"dropped", L"dropped"),
                 m_historia.parada() ? L"paused, " + como : como});
}

// ---- Messages

LRESULT CALLBACK ventana::proc(HWND hwnd, UINT mensaje, WPARAM wparam, LPARAM lparam)
{
    if (mensaje == WM_NCCREATE) {
        auto *v = static_cast<ventana *>(reinterpret_cast<CREATESTRUCTW *>(lparam)->lpCreateParams);
        v->m_hwnd = hwnd;
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(v));
    }
    auto *v = reinterpret_cast<ventana *>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    return v != nullptr ? v->atiende(mensaje, wparam, lparam) : DefWindowProcW(hwnd, mensaje, wparam, lparam);
}

// What the filter, the lists and the bottom line need, in the font that they have.
void ventana::pon_tam_minimo(MINMAXINFO *m) const
{
    disposicion d = reparte(medidas());
    int margenes = 2 * d.filtro.left;
    SIZE cliente = {std::max(m_filtro.ancho_minimo(m_ppp) + margenes, m_estado.ancho_minimo()),
                    alto_minimo(medidas()) + m_estado.alto()};
    SIZE todo = con_marco(m_hwnd, cliente, m_ppp);
    m->ptMinTrackSize = {todo.cx, todo.cy};
}

static BOOL CALLBACK di_colores(HWND hwnd, LPARAM)
{
    SendMessageW(hwnd, WM_SYSCOLORCHANGE, 0, 0);
    return TRUE;
}

// Another font may need a larger window.
void ventana::ha_cambiado_el_sistema()
{
    RECT r = {};
    pon_ppp(m_ppp);
    coloca();
    GetWindowRect(m_hwnd, &r);
    if (!IsIconic(m_hwnd) && !IsZoomed(m_hwnd))
        mueve(m_hwnd, r);
}

LRESULT ventana::atiende(UINT mensaje, WPARAM wparam, LPARAM lparam)
{
    switch (mensaje) {
    case WM_CREATE:
        return crea_controles() ? 0 : -1;
    case WM_SIZE:
        if (wparam != SIZE_MINIMIZED)
            coloca();
        return 0;
    case WM_GETMINMAXINFO:
        if (m_hecha)
            pon_tam_minimo(reinterpret_cast<MINMAXINFO *>(lparam));
        return 0;
    case WM_DPICHANGED:
        pon_ppp(HIWORD(wparam));
        mueve(m_hwnd, *reinterpret_cast<RECT *>(lparam));
        coloca();
        return 0;
    case WM_SYSCOLORCHANGE:
        EnumChildWindows(m_hwnd, di_colores, 0);
        [[fallthrough]];
    case WM_SETTINGCHANGE:
    case WM_THEMECHANGED:
        if (m_hecha)
            ha_cambiado_el_sistema();
        return 0;
    case WM_TIMER:
        refresca();
        return 0;
    case MENSAJE_MIRADA:
        ha_mirado();
        return 0;
    case WM_COMMAND:
        obedece(LOWORD(wparam), HIWORD(wparam));
        return 0;
    case WM_NOTIFY:
        return notifica(reinterpret_cast<NMHDR *>(lparam));
    case WM_ACTIVATE:
        if (LOWORD(wparam) == WA_INACTIVE && IsChild(m_hwnd, GetFocus()))
            m_foco = GetFocus();
        return DefWindowProcW(m_hwnd, mensaje, wparam, lparam);
    case WM_SETFOCUS:
        SetFocus(m_foco != nullptr ? m_foco : m_actividades.hwnd());
        return 0;
    case WM_NEXTDLGCTL: // a label's letter leads to the control behind it
        SetFocus(lparam != 0 ? reinterpret_cast<HWND>(wparam) : GetNextDlgTabItem(m_hwnd, GetFocus(), wparam != 0));
        return 0;
    case WM_CLOSE:
        acaba();
        DestroyWindow(m_hwnd);
        return 0;
    case WM_ENDSESSION:
        if (wparam != FALSE)
            acaba();
        return 0;
    case WM_DESTROY:
        acaba();
        if (m_hecha)
            PostQuitMessage(0);
        return 0;
    default:
        return atiende_raton(mensaje, wparam, lparam);
    }
}

// The divisor is dragged.
LRESULT ventana::atiende_raton(UINT mensaje, WPARAM wparam, LPARAM lparam)
{
    POINT p = {GET_X_LPARAM(lparam), GET_Y_LPARAM(lparam)};
    switch (mensaje) {
    case WM_SETCURSOR: {
        GetCursorPos(&p);
        ScreenToClient(m_hwnd, &p);
        RECT divisor = reparte(medidas()).divisor;
        if (reinterpret_cast<HWND>(wparam) != m_hwnd || LOWORD(lparam) != HTCLIENT || !PtInRect(&divisor, p))
            break;
        SetCursor(LoadCursorW(nullptr, IDC_SIZENS));
        return TRUE;
    }
    case WM_LBUTTONDOWN: {
        RECT divisor = reparte(medidas()).divisor;
        m_arrastra = PtInRect(&divisor, p) != FALSE;
        if (m_arrastra)
            SetCapture(m_hwnd);
        return 0;
    }
    case WM_MOUSEMOVE:
        if (m_arrastra)
            pon_alto_actividades(por_mil_en(medidas(), p.y));
        return 0;
    case WM_LBUTTONUP:
        if (m_arrastra)
            ReleaseCapture();
        return 0;
    case WM_CAPTURECHANGED:
        m_arrastra = false;
        return 0;
    }
    return DefWindowProcW(m_hwnd, mensaje, wparam, lparam);
}

LRESULT ventana::notifica(NMHDR *aviso)
{
    lista *l = lista_de(aviso->hwndFrom);
    return l != nullptr ? l->notifica(aviso) : 0;
}

lista *ventana::lista_de(HWND hwnd)
{
    for (lista *l : {static_cast<lista *>(&m_actividades), static_cast<lista *>(&m_valores),
                     static_cast<lista *>(&m_servicios), static_cast<lista *>(&m_programas)})
        if (hwnd != nullptr && l->hwnd() == hwnd)
            return l;
    return nullptr;
}

} // namespace monitor
