#include "opciones.h"

#include <windows.h>
#include <shellapi.h>

namespace monitor {

const wchar_t *const USO = L"ivrexa-monitor [--replace] [--no-watch] [--yes]\n\n"
                           L"--replace: takes the place of another monitor without asking\n"
                           L"--no-watch: opens without becoming the desktop's monitor\n"
                           L"--yes: empties the table of services without asking\n"
                           L"--help: shows this";

opciones lee_opciones(const std::vector<std::wstring> &argumentos)
{
    opciones o;
    for (const std::wstring &a : argumentos) {
        if (a == L"--replace")
            o.sustituye = true;
        else if (a == L"--no-watch")
            o.vigila = false;
        else if (a == L"--yes")
            o.no_preguntes = true;
        else if (a == L"--help")
            o.ayuda = true;
        else if (o.desconocida.empty())
            o.desconocida = a;
    }
    return o;
}

std::vector<std::wstring> argumentos_del_proceso()
{
    int num = 0;
    wchar_t **todos = CommandLineToArgvW(GetCommandLineW(), &num);
    std::vector<std::wstring> argumentos;
    for (int i = 1; todos != nullptr && i < num; i++)
        argumentos.push_back(todos[i]);
    LocalFree(todos);
    return argumentos;
}

} // namespace monitor
