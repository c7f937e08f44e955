// consola_propia.exe EVENT PROGRAM [ARGUMENT...] - started in a console of its own, runs the program in it, and presses
// Ctrl-C there once the named event is set. Its exit status is the program's, or 125 where the program has left the
// console another code page than it found.
#include <string>

#include "comun/sistema.h"

// What follows our own two arguments, as it was written.
static std::wstring resto(const wchar_t *orden)
{
    for (int n = 0; n < 2; n++) {
        const wchar_t *fin = wcschr(orden + 1, L'"');
        orden = fin == nullptr ? L"" : fin + 1 + wcsspn(fin + 1, L" ");
    }
    return orden;
}

int main(int argc, char **argv)
{
    HANDLE ctrl_c = argc > 2 ? OpenEventA(SYNCHRONIZE, FALSE, argv[1]) : nullptr;
    if (ctrl_c == nullptr)
        return 126;
    SetConsoleOutputCP(850); // another than programs here take
    const UINT pagina = GetConsoleOutputCP();
    std::wstring orden = resto(GetCommandLineW());
    STARTUPINFOW inicio = {};
    GetStartupInfoW(&inicio);
    PROCESS_INFORMATION hijo = {};
    if (!CreateProcessW(nullptr, &orden[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &inicio, &hijo))
        return 126;
    SetConsoleCtrlHandler(nullptr, TRUE); // behind the start, since a process inherits that it hears no Ctrl-C
    HANDLE ambos[] = {hijo.hProcess, ctrl_c};
    WaitForMultipleObjects(2, ambos, FALSE, INFINITE);
    while (WaitForSingleObject(hijo.hProcess, 0) == WAIT_TIMEOUT) { // again: one that came before it listened is lost
        GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
        WaitForSingleObject(hijo.hProcess, 500);
    }
    DWORD codigo = 126;
    GetExitCodeProcess(hijo.hProcess, &codigo);
    return GetConsoleOutputCP() == pagina ? static_cast<int>(codigo) : 125;
}
