// ordenes.cpp - the window's commands.
#include <windows.h>

#include "comun/texto.h"
#include "guardar.h"
#include "recursos.h"
#include "ventana.h"

#include "ivrexa_version.h"

namespace monitor {

using namespace herramientas;

static const int PASO_POR_MIL = 50;
static const int AVISO_DE_TECLA = 1; // of a command: an accelerator gave it

static const wchar_t *const TECLAS = L"F5: pause, go on\n"
                                     L"Ctrl+L: clear\n"
                                     L"Ctrl+M: watch, stop watching\n"
                                     L"Ctrl+F, Alt+S: filter by service\n"
                                     L"Esc: remove the filter\n"
                                     L"Alt+R, C, I, O, W: show services, commands, input, output, waits or not\n"
                                     L"Alt+P, Alt+U, Alt+L: the buttons Pause, Resume, Clear\n"
                                     L"Alt+A: to the activities\n"
                                     L"End: go to the end and follow it\n"
                                     L"Ctrl+End: follow the end or not\n"
                                     L"Digits: in the activities: go to that number\n"
                                     L"Letters: in a list: go to the next such service or name\n"
                                     L"Ctrl+B: keep the values of blocks or not\n"
                                     L"F6, Tab: next pane, next control (with Shift: previous)\n"
                                     L"Ctrl+Shift+Down: more room for the activities\n"
                                     L"Ctrl+Shift+Up: less room for the activities\n"
                                     L"Ctrl+A: select all rows\n"
                                     L"Ctrl+C: copy the selected rows\n"
                                     L"Ctrl+S: save what is shown as CSV\n"
                                     L"Ctrl+Shift+S: save it as JSON lines\n"
                                     L"Ctrl+W, Alt+F4: exit";

static const wchar_t *const ACERCA_DE =
    monitor_TITULO L" " IVREXA_VERSION_TEXTO L"\n\nShows what the programs of this desktop do for each other.";

void ventana::obedece(int id, int aviso)
{
    bool es_clase = id >= ID_FILTRO_CLASE && id < ID_FILTRO_CLASE + 5;
    if ((id == ID_FILTRO_SERVICIO && aviso == EN_CHANGE) || (es_clase && aviso == BN_CLICKED)) {
        if (m_vigilancia != nullptr) // not while the window is being made
            filtra();
        return;
    }
    // The end of its text is what a text box knows this key for.
    if (id == ID_SIGUE_EL_FINAL && aviso == AVISO_DE_TECLA && GetFocus() == m_filtro.texto()) {
        LPARAM fin = GetWindowTextLengthW(m_filtro.texto());
        SendMessageW(m_filtro.texto(), EM_SETSEL, static_cast<WPARAM>(fin), fin);
        return;
    }
    if (!obedece_de_fichero(id) && !obedece_de_edicion(id))
        obedece_de_vista(id);
}

bool ventana::obedece_de_fichero(int id)
{
    switch (id) {
    case ID_GUARDA_CSV:
        pregunta_y_guarda(m_hwnd, formato::csv, m_historia, m_contenidos);
        return true;
    case ID_GUARDA_JSON:
        pregunta_y_guarda(m_hwnd, formato::json_lineas, m_historia, m_contenidos);
        return true;
    case ID_SALIR:
        PostMessageW(m_hwnd, WM_CLOSE, 0, 0);
        return true;
    case ID_TECLAS:
        MessageBoxW(m_hwnd, TECLAS, monitor_TITULO, MB_OK);
        return true;
    case ID_ACERCA_DE:
        MessageBoxW(m_hwnd, ACERCA_DE, monitor_TITULO, MB_OK | MB_ICONINFORMATION);
        return true;
    default:
        return false;
    }
}

// Keys that a text box knows too are its own while it has the focus.
bool ventana::obedece_de_edicion(int id)
{
    bool en_texto = GetFocus() == m_filtro.texto();
    lista *l = lista_de(GetFocus());
    switch (id) {
    case ID_COPIA:
        if (en_texto)
            SendMessageW(m_filtro.texto(), WM_COPY, 0, 0);
        else
            copia(l != nullptr ? *l : m_actividades);
        return true;
    case ID_ELIGE_TODO:
        if (en_texto)
            SendMessageW(m_filtro.texto(), EM_SETSEL, 0, -1);
        else
            (l != nullptr ? *l : m_actividades).elige_todo();
        return true;
    case ID_IR_A_FILTRO:
        SetFocus(m_filtro.texto());
        SendMessageW(m_filtro.texto(), EM_SETSEL, 0, -1);
        return true;
    case ID_QUITA_FILTRO:
        m_filtro.pon({});
        filtra();
        return true;
    default:
        return false;
    }
}

// Nothing is selected: what the clipboard holds stays.
void ventana::copia(const lista &l)
{
    std::wstring texto = l.elegidas_como_texto();
    if (!texto.empty() && !pon_en_portapapeles(m_hwnd, texto))
        MessageBoxW(m_hwnd, L"The clipboard cannot be written now.", monitor_TITULO, MB_OK | MB_ICONERROR);
}

bool ventana::obedece_de_vista(int id)
{
    switch (id) {
    case IDOK:
        pulsa_boton_con_foco();
        return true;
    case ID_VIGILA:
        vigila_o_no();
        return true;
    case ID_PAUSA:
    case ID_BOTON_PAUSA:
        pausa();
        return true;
    case ID_LIMPIA:
    case ID_BOTON_LIMPIA:
        limpia();
        return true;
    case ID_SIGUE_EL_FINAL:
        m_actividades.pon_sigue(!m_actividades.sigue_el_final());
        break;
    case ID_GUARDA_VALORES:
        m_ajustes.guarda_valores = !m_ajustes.guarda_valores;
        m_vigilancia->lee_bloques(m_ajustes.guarda_valores);
        break;
    case ID_PANEL_SIGUIENTE:
        va_al_panel(1);
        return true;
    case ID_PANEL_ANTERIOR:
        va_al_panel(-1);
        return true;
    case ID_ACTIVIDADES_MAS_ALTAS:
        pon_alto_actividades(m_ajustes.alto_actividades_por_mil + PASO_POR_MIL);
        return true;
    case ID_ACTIVIDADES_MAS_BAJAS:
        pon_alto_actividades(m_ajustes.alto_actividades_por_mil - PASO_POR_MIL);
        return true;
    default:
        return false;
    }
    pon_marcas();
    return true;
}

void ventana::pon_marcas()
{
    const struct {
        int id;
        bool puesta;
    } marcas[] = {
        {ID_VIGILA, m_vigilancia->como_esta() == situacion::vigila},
        {ID_PAUSA, m_historia.parada()},
        {ID_SIGUE_EL_FINAL, m_actividades.sigue_el_final()},
        {ID_GUARDA_VALORES, m_ajustes.guarda_valores},
    };
    for (const auto &m : marcas)
        CheckMenuItem(GetMenu(m_hwnd), static_cast<UINT>(m.id), MF_BYCOMMAND | (m.puesta ? MF_CHECKED : MF_UNCHECKED));
    m_filtro.pon_pausa(m_historia.parada());
}

// The Enter key.
void ventana::pulsa_boton_con_foco()
{
    int id = GetDlgCtrlID(GetFocus());
    if (id == ID_BOTON_PAUSA || id == ID_BOTON_LIMPIA)
        obedece_de_vista(id);
}

// What happens while nobody watches is not known: the blocks of before may be gone, and others have their numbers.
void ventana::vigila(bool sustituye, bool no_preguntes)
{
    recoge();
    m_vidas.acaban_todas();
    m_vigilancia->empieza(sustituye, no_preguntes);
}

void ventana::vigila_o_no()
{
    if (m_vigilancia->como_esta() == situacion::vigila)
        m_vigilancia->para();
    else
        vigila(false, false);
    di_estado();
    pon_marcas();
}

void ventana::pausa()
{
    recoge();
    m_historia.pausa(!m_historia.parada());
    refresca();
    pon_marcas();
}

void ventana::limpia()
{
    recoge();
    m_historia.limpia();
    m_contenidos.limpia();
    m_actividades.rehaz();
    refresca();
}

// What was selected stays so as long as it is shown.
void ventana::filtra()
{
    filtro f = m_filtro.lee();
    if (f == m_historia.filtrado())
        return;
    const suceso *s = m_actividades.elegido();
    uint64_t numero = s != nullptr ? s->numero : 0;
    m_historia.filtra(f);
    m_actividades.rehaz();
    m_actividades.elige(numero);
    refresca();
}

// ---- Values

void ventana::muestra_valores()
{
    const suceso *s = m_actividades.elegido();
    std::optional<uint64_t> numero = s != nullptr ? std::optional<uint64_t>(s->numero) : std::nullopt;
    if (numero == m_con_valores)
        return;
    m_con_valores = numero;
    std::wstring rotulo = L"Values of the selected block";
    if (s != nullptr && s->id_bloque != 0)
        rotulo = L"Values of block " + std::to_wstring(s->id_bloque) + L" of " + a_ancho(sin_controles(s->servicio));
    SetWindowTextW(rotulo_de(ID_LISTA_VALORES), rotulo.c_str());
    if (s == nullptr)
        m_valores.vacia();
    else
        pon_valores(*s);
}

void ventana::pon_valores(const suceso &s)
{
    if (s.id_bloque == 0) {
        m_valores.di(L"(no block)");
        return;
    }
    if (const contenido *guardado = m_contenidos.de(s.numero)) {
        m_valores.muestra(*guardado);
        return;
    }
    if (m_vigilancia->como_esta() != situacion::vigila || !m_vidas.sigue(s)) {
        m_valores.di(L"(not kept, and its number may be another block's by now)");
        return;
    }
    std::optional<contenido> ahora = lee_bloque(s.servicio_ansi, s.id_bloque);
    if (ahora)
        m_valores.muestra(*ahora);
    else
        m_valores.di(L"(the block is gone)");
}

void ventana::va_al_panel(int paso)
{
    const HWND paneles[] = {m_filtro.texto(), m_actividades.hwnd(), m_valores.hwnd(), m_servicios.hwnd(),
                            m_programas.hwnd()};
    const int num = ARRAYSIZE(paneles);
    int donde = 0;
    for (int i = 0; i < num; i++)
        if (paneles[i] == GetFocus())
            donde = i;
    SetFocus(paneles[(donde + paso + num) % num]);
}

} // namespace monitor
