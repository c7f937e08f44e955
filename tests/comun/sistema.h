// sistema.h - <windows.h> the way all tests include it.
#ifndef COMUN_SISTEMA_H
#define COMUN_SISTEMA_H

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#endif
