#include "informes_modulo.h"

int WINAPI graba_informe(HWND hwnd, LPCSTR texto, LPCSTR titulo, UINT estilo)
{
    datos_informe i = lee_informe(titulo != nullptr ? titulo : "(null)", texto != nullptr ? texto : "(null)");
    if (hwnd != nullptr || estilo != 0) {
        i.ajeno = true;
        i.titulo += hwnd != nullptr ? " (with an owner)" : "";
        i.titulo += estilo != 0 ? " (style " + std::to_string(estilo) + ")" : "";
    }
    anyade_informe(i);
    return IDOK;
}

static void pon_grabador()
{
    iv_ventana()->MessageBoxA = graba_informe;
}

bool registra_grabador()
{
    static const bool registrado = (al_empezar_prueba(pon_grabador), true);
    return registrado;
}
