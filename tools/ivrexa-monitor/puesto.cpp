#include "puesto.h"

#include "recursos.h"

namespace monitor {

puesto::puesto(std::function<void(const herramientas::suceso &)> dime)
    : m_dime(std::move(dime)), m_listo(CreateEventW(nullptr, TRUE, FALSE, nullptr)), m_hilo(&puesto::vive, this)
{
    WaitForSingleObject(m_listo, INFINITE);
}

puesto::~puesto()
{
    PostThreadMessageW(m_id_hilo, WM_QUIT, 0, 0); // a box that the thread is in ends too, and passes it on
    m_hilo.join();
    CloseHandle(m_listo);
}

void puesto::vive()
{
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
    HWND hwnd = CreateWindowExW(0, L"STATIC", monitor_TITULO, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                GetModuleHandleW(nullptr), nullptr);
    m_id_hilo = GetCurrentThreadId();
    if (hwnd != nullptr)
        m_vigia = std::make_unique<herramientas::vigia>(hwnd, m_dime);
    SetEvent(m_listo);
    if (hwnd == nullptr)
        return;
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0)
        DispatchMessageW(&msg);
    m_vigia.reset();
    DestroyWindow(hwnd);
}

} // namespace monitor
