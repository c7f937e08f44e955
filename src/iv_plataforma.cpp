#include "iv_plataforma.h"

static iv_ventana_llamadas s_ventana;
static volatile LONG s_ventana_lista = 0;

template <typename funcion>
static void enlaza(HMODULE user32, const char *nombre, funcion **llamada)
{
    *llamada = reinterpret_cast<funcion *>(reinterpret_cast<void *>(GetProcAddress(user32, nombre)));
}

static void enlaza_ventana(void)
{
    HMODULE user32 = LoadLibraryA("user32.dll");
    enlaza(user32, "MessageBoxA", &s_ventana.MessageBoxA);
    enlaza(user32, "wsprintfA", &s_ventana.wsprintfA);
    enlaza(user32, "RegisterWindowMessageA", &s_ventana.RegisterWindowMessageA);
    enlaza(user32, "SetWindowLongPtrW", &s_ventana.SetWindowLongPtrW);
    enlaza(user32, "CallWindowProcW", &s_ventana.CallWindowProcW);
    enlaza(user32, "PostMessageW", &s_ventana.PostMessageW);
    enlaza(user32, "SendMessageW", &s_ventana.SendMessageW);
    enlaza(user32, "PostQuitMessage", &s_ventana.PostQuitMessage);
    enlaza(user32, "IsWindow", &s_ventana.IsWindow);
    enlaza(user32, "GetActiveWindow", &s_ventana.GetActiveWindow);
    enlaza(user32, "SetForegroundWindow", &s_ventana.SetForegroundWindow);
}

iv_ventana_llamadas *iv_ventana(void)
{
    if (InterlockedCompareExchange(&s_ventana_lista, 0, 0) == 0) {
        enlaza_ventana();
        InterlockedExchange(&s_ventana_lista, 1);
    }
    return &s_ventana;
}
