#include "ventana_ajena.h"

#include <gtest/gtest.h>

#include "comun/lineas.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "lista_ajena.h"

HWND ventana_de(uint32_t pid, const wchar_t *clase)
{
    for (HWND hwnd = nullptr; (hwnd = FindWindowExW(nullptr, hwnd, clase, nullptr)) != nullptr;) {
        DWORD suyo = 0;
        GetWindowThreadProcessId(hwnd, &suyo);
        if (suyo == pid && IsWindowVisible(hwnd))
            return hwnd;
    }
    return nullptr;
}

HWND espera_ventana(uint32_t pid, const wchar_t *clase, uint32_t ms, lugar donde)
{
    HWND hwnd = nullptr;
    if (!espera_hasta([&] { return (hwnd = ventana_de(pid, clase)) != nullptr; }, ms)) {
        HWND caja = ventana_de(pid, L"#32770");
        se_acabo("no window of class " + a_utf8(clase) + " in process " + std::to_string(pid) +
                     (caja != nullptr ? "; a box:\n" + texto_de_caja(caja) : ""),
                 donde);
    }
    return hwnd;
}

struct busqueda {
    int id;
    HWND hallado;
};

HWND control_de(HWND ventana, int id)
{
    busqueda b = {id, nullptr};
    EnumChildWindows(
        ventana,
        [](HWND hwnd, LPARAM dato) -> BOOL {
            busqueda *b = reinterpret_cast<busqueda *>(dato);
            if (GetDlgCtrlID(hwnd) == b->id)
                b->hallado = hwnd;
            return b->hallado == nullptr;
        },
        reinterpret_cast<LPARAM>(&b));
    return b.hallado;
}

std::string texto_de(HWND hwnd)
{
    wchar_t texto[4096] = L"";
    manda(hwnd, WM_GETTEXT, 4096, reinterpret_cast<LPARAM>(texto));
    return a_utf8(texto);
}

HWND espera_caja(uint32_t pid, uint32_t ms, lugar donde)
{
    return espera_ventana(pid, L"#32770", ms, donde);
}

std::string texto_de_caja(HWND caja)
{
    std::string textos = texto_de(caja);
    EnumChildWindows(
        caja,
        [](HWND hwnd, LPARAM dato) -> BOOL {
            *reinterpret_cast<std::string *>(dato) += "\n" + texto_de(hwnd);
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&textos));
    return textos;
}

// ---- Keyboard

void pon_delante(HWND ventana, lugar donde)
{
    bool alli = espera_hasta(
        [&] {
            SetForegroundWindow(ventana);
            return GetForegroundWindow() == ventana && con_foco(ventana) != nullptr;
        },
        10000);
    if (!alli)
        ADD_FAILURE_AT(donde.fichero, donde.linea)
            << "window " << ventana << " does not come to the front; there is " << GetForegroundWindow();
}

HWND con_foco(HWND ventana)
{
    GUITHREADINFO info = {};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(ventana, nullptr), &info);
    return info.hwndFocus;
}

static INPUT tecla(WORD virt, WORD codigo, DWORD como)
{
    INPUT una = {};
    una.type = INPUT_KEYBOARD;
    una.ki.wVk = virt;
    una.ki.wScan = codigo;
    una.ki.dwFlags = como;
    return una;
}

// Keys of the block beside the digits; without the mark they are those of the number pad.
static DWORD extendida(WORD virt)
{
    return (virt >= VK_PRIOR && virt <= VK_DOWN) || virt == VK_INSERT || virt == VK_DELETE || virt == VK_APPS
               ? KEYEVENTF_EXTENDEDKEY
               : 0;
}

static void mete(std::vector<INPUT> teclas)
{
    EXPECT_EQ(SendInput(static_cast<UINT>(teclas.size()), teclas.data(), sizeof(INPUT)), teclas.size());
}

void pulsa(const std::vector<WORD> &teclas)
{
    std::vector<INPUT> todas;
    for (WORD virt : teclas)
        todas.push_back(tecla(virt, static_cast<WORD>(MapVirtualKeyW(virt, MAPVK_VK_TO_VSC)), extendida(virt)));
    for (size_t i = teclas.size(); i-- > 0;) {
        todas.push_back(todas[i]);
        todas.back().ki.dwFlags |= KEYEVENTF_KEYUP;
    }
    mete(todas);
}

void teclea(const std::string &texto)
{
    std::vector<INPUT> todas;
    for (wchar_t c : de_utf8(texto)) {
        todas.push_back(tecla(0, c, KEYEVENTF_UNICODE));
        todas.push_back(tecla(0, c, KEYEVENTF_UNICODE | KEYEVENTF_KEYUP));
    }
    if (!todas.empty())
        mete(todas);
}
