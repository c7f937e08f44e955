/* cabecera.c - includes one public header in one of the ways in which hosts do. It is compiled, as C and as C++, and
 * never run; see cmake/ivrexa_comprueba_cabeceras.cmake. */
#ifdef WINDOWS_ANTES
#include <windows.h>
#endif

#include CABECERA
#include CABECERA

#ifdef WINDOWS_DESPUES
#include <windows.h>
#endif

#if defined(_WINDOWS_) && !defined(WINDOWS_ANTES) && !defined(WINDOWS_DESPUES)
#error the header has brought in windows.h
#endif

int main(void)
{
    return 0;
}
