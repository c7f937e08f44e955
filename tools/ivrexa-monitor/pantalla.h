// pantalla.h - dots per inch and fonts. Sizes in the code are those of 96 dpi. What newer systems tell for each screen
// is asked of them where they have it; elsewhere the system's one number holds.
#ifndef MONITOR_PANTALLA_H
#define MONITOR_PANTALLA_H

#include <windows.h>

namespace monitor {

UINT ppp_de(HWND hwnd);
int escala(int pixeles_a_96, UINT ppp);
int a_96(int pixeles, UINT ppp);

HFONT crea_fuente(UINT ppp, bool negrita); // the one of messages, the caller's to delete
int ancho_de(HWND hwnd, HFONT fuente, const wchar_t *texto);
int alto_de_linea(HWND hwnd, HFONT fuente);
int medida_del_sistema(int cual, UINT ppp);        // SM_...
SIZE con_marco(HWND hwnd, SIZE cliente, UINT ppp); // of a window with a menu
bool alto_contraste();                             // the user wants the system's colours alone

} // namespace monitor

#endif
