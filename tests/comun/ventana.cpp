#include "ventana.h"

#include <cwchar>

HWND crea_ventana(WNDPROC proc)
{
    static LONG num_clases = 0;
    wchar_t nombre[32];
    swprintf(nombre, 32, L"ventana_comun_%ld", InterlockedIncrement(&num_clases));
    WNDCLASSW clase = {};
    clase.lpfnWndProc = proc;
    clase.hInstance = GetModuleHandleW(nullptr);
    clase.lpszClassName = nombre;
    RegisterClassW(&clase);
    return CreateWindowExW(0, nombre, L"", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr, nullptr, clase.hInstance,
                           nullptr);
}

void destruye_ventana(HWND *hwnd)
{
    wchar_t nombre[32] = L"";
    GetClassNameW(*hwnd, nombre, 32);
    DestroyWindow(*hwnd);
    UnregisterClassW(nombre, GetModuleHandleW(nullptr));
    *hwnd = nullptr;
}

// Waits for messages, for `evento` (NULL: none), and no longer than paso_ms at a time.
static bombeo bombea(const std::function<bool()> &condicion, uint32_t ms, HANDLE evento, uint32_t paso_ms)
{
    uint64_t limite = GetTickCount64() + ms;
    while (!condicion()) {
        MSG msg;
        if (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT)
                return bombeo::quit;
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
            continue;
        }
        uint64_t ahora = GetTickCount64();
        if (ahora >= limite)
            return bombeo::tarde;
        DWORD queda = static_cast<DWORD>(limite - ahora);
        MsgWaitForMultipleObjects(evento != nullptr ? 1 : 0, &evento, FALSE, queda < paso_ms ? queda : paso_ms,
                                  QS_ALLINPUT);
    }
    return bombeo::cumplido;
}

bombeo bombea_hasta(const std::function<bool()> &condicion, uint32_t ms)
{
    return bombea(condicion, ms, nullptr, 5);
}

bombeo bombea_hasta_quit(uint32_t ms)
{
    return bombea([] { return false; }, ms, nullptr, ms);
}

std::optional<std::string> bombea_hasta_linea(papel_hijo &yo, uint32_t ms)
{
    HANDLE evento = yo.evento_linea();
    auto hay_linea = [=] { return WaitForSingleObject(evento, 0) == WAIT_OBJECT_0; };
    if (bombea(hay_linea, ms, evento, ms) != bombeo::cumplido)
        return std::nullopt;
    return yo.escucha(0);
}
