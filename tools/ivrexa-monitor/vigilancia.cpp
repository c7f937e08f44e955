#include "vigilancia.h"

#include <algorithm>
#include <string>
#include <vector>

#include "comun/texto.h"
#include "recursos.h"

namespace monitor {

using namespace herramientas;

static const size_t MAX_NOMBRES = 12; // in a question

static bool pregunta(HWND hwnd, const std::wstring &texto)
{
    return MessageBoxW(hwnd, texto.c_str(), monitor_TITULO, MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) == IDYES;
}

bool vigilancia::puede_sustituir() const
{
    uint32_t pid = pid_de_otro_monitor();
    return pid == 0 ||
           pregunta(m_hwnd, L"Another program, process " + std::to_wstring(pid) +
                                L", is the monitor of this desktop. There is one at a time: that one would see nothing "
                                L"any more.\n\nTake its place?");
}

bool vigilancia::puede_vaciar() const
{
    std::vector<std::string> nombres = servicios_que_se_borran();
    if (nombres.empty())
        return true;
    std::string lista;
    for (size_t i = 0; i < std::min(nombres.size(), MAX_NOMBRES); i++)
        lista += "\n    " + sin_controles(nombres[i]);
    if (nombres.size() > MAX_NOMBRES)
        lista += "\n    and " + std::to_string(nombres.size() - MAX_NOMBRES) + " more";
    return pregunta(m_hwnd, L"Watching empties the desktop's table of services. These are taken out of it: new clients "
                            L"do not find them, and their traffic is not seen, until their servers start again or a "
                            L"client registers for them.\n" +
                                a_ancho(lista) + L"\n\nEmpty the table and watch?");
}

bool vigilancia::empieza(bool sustituye, bool no_preguntes)
{
    if (m_puesto != nullptr)
        return true;
    if ((!sustituye && !puede_sustituir()) || (!no_preguntes && !puede_vaciar()))
        return false;
    uint64_t antes = m_numero;
    m_puesto = std::make_unique<puesto>([this, antes](const suceso &s) { llega(s, antes); });
    if (!m_puesto->hecho()) {
        m_puesto.reset();
        MessageBoxW(m_hwnd, L"The window that the monitor needs could not be made.", monitor_TITULO,
                    MB_OK | MB_ICONERROR);
        return false;
    }
    m_situacion = situacion::vigila;
    return true;
}

void vigilancia::para()
{
    if (m_puesto == nullptr)
        return;
    m_num_antes = num_actividades();
    m_puesto.reset();
    m_situacion = situacion::no_vigila;
}

void vigilancia::comprueba(bool hay_monitor)
{
    bool perdido = m_puesto != nullptr && !m_puesto->sigue_siendo_monitor();
    if (perdido)
        para();
    if (perdido || m_situacion == situacion::desbancada || m_situacion == situacion::sin_sitio)
        m_situacion = hay_monitor ? situacion::desbancada : situacion::sin_sitio;
}

uint64_t vigilancia::num_actividades() const
{
    return m_num_antes + (m_puesto != nullptr ? m_puesto->num_actividades() : 0);
}

// A block is read at once: the next moment it may be gone.
void vigilancia::llega(suceso s, uint64_t numeros_antes)
{
    s.numero += numeros_antes;
    m_numero = s.numero;
    std::optional<contenido> c = m_lee_bloques ? m_lector.lee(s) : std::nullopt;
    AcquireSRWLockExclusive(&m_cerrojo);
    if (c)
        m_contenidos.guarda(s.numero, std::move(*c));
    m_llegados.push_back(std::move(s));
    ReleaseSRWLockExclusive(&m_cerrojo);
}

std::vector<suceso> vigilancia::recoge(contenidos *suyos)
{
    std::vector<suceso> llegados;
    AcquireSRWLockExclusive(&m_cerrojo);
    llegados.swap(m_llegados);
    m_contenidos.pasa_a(suyos);
    ReleaseSRWLockExclusive(&m_cerrojo);
    return llegados;
}

} // namespace monitor
