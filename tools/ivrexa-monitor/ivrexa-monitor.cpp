// ivrexa-monitor.cpp - the desktop's traffic in a window.
#include <windows.h>
#include <commctrl.h>

#include "opciones.h"
#include "recursos.h"
#include "ventana.h"

#include "ivrexa.h"

using monitor::opciones;
using monitor::ventana;

static const int MAL_USO = 64, SIN_VENTANA = 70;

static bool es_de_teclas(const MSG &msg)
{
    return msg.message >= WM_KEYFIRST && msg.message <= WM_KEYLAST;
}

static void da_vueltas(HWND hwnd)
{
    HACCEL teclado = LoadAcceleratorsW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(ID_TECLADO));
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
        if (es_de_teclas(msg) && (TranslateAcceleratorW(hwnd, teclado, &msg) || IsDialogMessageW(hwnd, &msg)))
            continue;
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
}

static int ejecuta(const opciones &o, int como_se_muestra)
{
    INITCOMMONCONTROLSEX controles = {sizeof controles, ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES | ICC_STANDARD_CLASSES};
    InitCommonControlsEx(&controles);
    ventana v(o);
    if (!v.crea(como_se_muestra)) {
        MessageBoxW(nullptr, L"The window could not be made.", monitor_TITULO, MB_OK | MB_ICONERROR);
        return SIN_VENTANA;
    }
    v.empieza();
    da_vueltas(v.hwnd());
    return 0;
}

int WINAPI WinMain(HINSTANCE, HINSTANCE, char *, int como_se_muestra)
{
    opciones o = monitor::lee_opciones(monitor::argumentos_del_proceso());
    if (!o.desconocida.empty()) {
        MessageBoxW(nullptr, (L"There is no argument " + o.desconocida + L".\n\n" + monitor::USO).c_str(),
                    monitor_TITULO, MB_OK | MB_ICONERROR);
        return MAL_USO;
    }
    if (o.ayuda) {
        MessageBoxW(nullptr, monitor::USO, monitor_TITULO, MB_OK | MB_ICONINFORMATION);
        return 0;
    }
    int codigo = ejecuta(o, como_se_muestra);
    ivrexa_cierra_sesion();
    return codigo;
}
