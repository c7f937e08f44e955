#include "vigilante.h"

#include <algorithm>
#include <vector>

#include "informes.h"
#include "sistema.h"

namespace {

constexpr DWORD vigilante_PASO_MS = 100;       // between two looks without an event
constexpr DWORD vigilante_PASO_OCULTA_MS = 2;  // while a box is being made: no event tells that it is complete
constexpr uint64_t vigilante_INSISTE_MS = 500; // a box that still stands then is asked again, in another way

// user32, bound when the process has it. Linking against it would load it into every test program.
struct llamadas_user32 {
    decltype(&::EnumWindows) EnumWindows;
    decltype(&::GetWindowThreadProcessId) GetWindowThreadProcessId;
    decltype(&::GetClassNameA) GetClassNameA;
    decltype(&::IsWindowVisible) IsWindowVisible;
    decltype(&::InternalGetWindowText) InternalGetWindowText;
    decltype(&::GetDlgItem) GetDlgItem;
    decltype(&::PostMessageW) PostMessageW;
    decltype(&::SetWinEventHook) SetWinEventHook;
    decltype(&::MsgWaitForMultipleObjects) MsgWaitForMultipleObjects;
    decltype(&::PeekMessageW) PeekMessageW;
    decltype(&::DispatchMessageW) DispatchMessageW;
};

struct caja_vista {
    HWND hwnd;
    uint64_t pedido; // tick of the last request to close
    uint32_t num_peticiones;
    bool sigue; // seen again in this look
};

llamadas_user32 s_u;
std::vector<caja_vista> &s_cajas = *new std::vector<caja_vista>; // the thread's own; it outlives main()
bool s_hay_oculta;  // the last look found a dialog box that is not visible yet
HANDLE s_despierta; // set when a module has been loaded
HANDLE s_en_reposo; // set once the hook stands

template <typename funcion>
void enlaza(HMODULE user32, const char *nombre, funcion *llamada)
{
    *llamada = reinterpret_cast<funcion>(reinterpret_cast<void *>(GetProcAddress(user32, nombre)));
}

void enlaza_user32(HMODULE user32)
{
    enlaza(user32, "EnumWindows", &s_u.EnumWindows);
    enlaza(user32, "GetWindowThreadProcessId", &s_u.GetWindowThreadProcessId);
    enlaza(user32, "GetClassNameA", &s_u.GetClassNameA);
    enlaza(user32, "IsWindowVisible", &s_u.IsWindowVisible);
    enlaza(user32, "InternalGetWindowText", &s_u.InternalGetWindowText);
    enlaza(user32, "GetDlgItem", &s_u.GetDlgItem);
    enlaza(user32, "PostMessageW", &s_u.PostMessageW);
    enlaza(user32, "SetWinEventHook", &s_u.SetWinEventHook);
    enlaza(user32, "MsgWaitForMultipleObjects", &s_u.MsgWaitForMultipleObjects);
    enlaza(user32, "PeekMessageW", &s_u.PeekMessageW);
    enlaza(user32, "DispatchMessageW", &s_u.DispatchMessageW);
}

// Reads without sending a message: the box's thread need not be listening yet.
std::string texto_de(HWND hwnd)
{
    wchar_t ancho[4096];
    int num = hwnd == nullptr ? 0 : s_u.InternalGetWindowText(hwnd, ancho, 4096);
    std::string texto(static_cast<size_t>(num) * 3, '\0'); // UTF-8 can be the ANSI code page
    int bytes = WideCharToMultiByte(CP_ACP, 0, ancho, num, &texto[0], static_cast<int>(texto.size()), nullptr, nullptr);
    texto.resize(static_cast<size_t>(std::max(bytes, 0)));
    return texto;
}

bool es_caja_del_proceso(HWND hwnd)
{
    DWORD proceso = 0;
    char clase[16];
    s_u.GetWindowThreadProcessId(hwnd, &proceso);
    return proceso == GetCurrentProcessId() && s_u.GetClassNameA(hwnd, clase, sizeof clase) == 6 &&
           lstrcmpA(clase, "#32770") == 0;
}

// A box with one button answers to OK; what does not, may answer to being closed.
void pide_cierre(caja_vista *caja)
{
    if (caja->num_peticiones % 2 == 0)
        s_u.PostMessageW(caja->hwnd, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED),
                         reinterpret_cast<LPARAM>(s_u.GetDlgItem(caja->hwnd, IDOK)));
    else
        s_u.PostMessageW(caja->hwnd, WM_CLOSE, 0, 0);
    caja->num_peticiones++;
    caja->pedido = GetTickCount64();
}

BOOL CALLBACK mira_ventana(HWND hwnd, LPARAM)
{
    if (!es_caja_del_proceso(hwnd))
        return TRUE;
    if (!s_u.IsWindowVisible(hwnd)) { // its text may not be there yet
        s_hay_oculta = true;
        return TRUE;
    }
    auto vista = std::find_if(s_cajas.begin(), s_cajas.end(), [=](const caja_vista &c) { return c.hwnd == hwnd; });
    if (vista == s_cajas.end()) {
        const int id_texto = 0xffff; // the static control of a message box
        anyade_informe(lee_informe(texto_de(hwnd), texto_de(s_u.GetDlgItem(hwnd, id_texto))));
        vista = s_cajas.insert(s_cajas.end(), caja_vista{hwnd, 0, 0, true});
    }
    vista->sigue = true;
    if (GetTickCount64() - vista->pedido >= vigilante_INSISTE_MS)
        pide_cierre(&*vista);
    return TRUE;
}

// A handle value is only forgotten, and so free for another box, once a look no longer finds it visible.
void mira_ventanas()
{
    for (caja_vista &caja : s_cajas)
        caja.sigue = false;
    s_hay_oculta = false;
    s_u.EnumWindows(mira_ventana, 0);
    s_cajas.erase(std::remove_if(s_cajas.begin(), s_cajas.end(), [](const caja_vista &c) { return !c.sigue; }),
                  s_cajas.end());
}

// The event itself only wakes the thread; its loop then looks.
void CALLBACK ventana_creada(HWINEVENTHOOK, DWORD, HWND, LONG, LONG, DWORD, DWORD) {}

void vigila()
{
    s_u.SetWinEventHook(EVENT_OBJECT_CREATE, EVENT_OBJECT_CREATE, nullptr, ventana_creada, GetCurrentProcessId(), 0,
                        WINEVENT_OUTOFCONTEXT);
    // The first wait opens the queue's handles: who counts handles must not see them come.
    s_u.MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_ALLINPUT);
    for (;;) {
        MSG msg;
        while (s_u.PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
            s_u.DispatchMessageW(&msg);
        mira_ventanas();
        SetEvent(s_en_reposo);
        s_u.MsgWaitForMultipleObjects(0, nullptr, FALSE, s_hay_oculta ? vigilante_PASO_OCULTA_MS : vigilante_PASO_MS,
                                      QS_ALLINPUT);
    }
}

void CALLBACK modulo_cargado(ULONG, const void *, void *)
{
    SetEvent(s_despierta); // the loader is locked here: nothing more
}

// Without the notification the thread looks for user32 every few milliseconds.
DWORD pide_avisos_de_carga()
{
    using registra = LONG(NTAPI *)(ULONG, void(CALLBACK *)(ULONG, const void *, void *), void *, void **);
    void *direccion =
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "LdrRegisterDllNotification"));
    static void *galleta;
    if (direccion != nullptr && reinterpret_cast<registra>(direccion)(0, modulo_cargado, nullptr, &galleta) == 0)
        return vigilante_PASO_MS;
    return 5;
}

DWORD WINAPI hilo_vigilante(void *)
{
    DWORD paso_ms = pide_avisos_de_carga();
    while (GetModuleHandleA("user32.dll") == nullptr)
        WaitForSingleObject(s_despierta, paso_ms);
    enlaza_user32(LoadLibraryA("user32.dll")); // waits until a load under way is complete
    vigila();
    return 0;
}

} // namespace

void arranca_vigilante()
{
    static bool arrancado = false;
    if (arrancado)
        return;
    arrancado = true;
    s_despierta = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    s_en_reposo = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE hilo = CreateThread(nullptr, 0, hilo_vigilante, nullptr, 0, nullptr);
    CloseHandle(hilo);
}

bool vigilante_en_reposo(uint32_t ms)
{
    if (GetModuleHandleA("user32.dll") == nullptr || s_en_reposo == nullptr)
        return true;
    return WaitForSingleObject(s_en_reposo, ms) == WAIT_OBJECT_0;
}
