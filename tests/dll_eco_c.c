/* The C side of the support library's own tests: role "eco" sends back what it hears, role "ventana" has a
 * window and shows a box on demand. Exit code 7. */
#include <windows.h>

#include <string.h>

#include "comun/papel_c.h"

static LRESULT CALLBACK proc_que_suma(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == WM_APP)
        return (LRESULT)wparam + lparam;
    if (msg == WM_APP + 1)
        PostQuitMessage(0);
    return DefWindowProcW(hwnd, msg, wparam, lparam);
}

static HWND crea_ventana_c(void)
{
    WNDCLASSW clase = {0};
    clase.lpfnWndProc = proc_que_suma;
    clase.hInstance = GetModuleHandleW(NULL);
    clase.lpszClassName = L"eco_c";
    RegisterClassW(&clase);
    return CreateWindowExW(0, L"eco_c", L"", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, NULL, NULL, clase.hInstance, NULL);
}

static void haz_de_ventana(void)
{
    char linea[64];
    papel_c_di("HWND %llu", (unsigned long long)(uintptr_t)crea_ventana_c());
    while (papel_c_bombea(linea, sizeof linea, 30000))
        papel_c_di("CAJA %d", MessageBoxA(NULL, "Error in eco - lin 1\n\nExpr: 1 == 2", "Assert ivrexa", 0));
}

static void haz_de_eco(void)
{
    char linea[64];
    while (papel_c_escucha(linea, sizeof linea, 30000))
        papel_c_di("ECO %s", linea);
}

int main(int argc, char **argv)
{
    papel_c_inicia(argc, argv);
    papel_c_di("YO %s|%s|%s|%s|", papel_c_nombre(), papel_c_argumento(0), papel_c_argumento(1), papel_c_argumento(9));
    papel_c_di("LISTO");
    if (strcmp(papel_c_nombre(), "ventana") == 0)
        haz_de_ventana();
    else
        haz_de_eco();
    return 7;
}
