#include "papel_c.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "papel_c_interno.h"
#include "principal.h"

static orden_papel s_orden;

extern "C" void papel_c_inicia(int argc, char **argv)
{
    prepara_proceso();
    s_orden = inicia_papel(argc, argv);
}

extern "C" const char *papel_c_nombre(void)
{
    return s_orden.nombre.c_str();
}

extern "C" const char *papel_c_argumento(uint32_t i)
{
    return i < s_orden.args.size() ? s_orden.args[i].c_str() : "";
}

extern "C" void papel_c_di(const char *formato, ...)
{
    char linea[4096];
    va_list args;
    va_start(args, formato);
    vsnprintf(linea, sizeof linea, formato, args);
    va_end(args);
    papel_hijo yo;
    yo.di(linea);
}

int entrega_linea(const std::optional<std::string> &recibida, char *linea, uint32_t tam_linea)
{
    if (!recibida || tam_linea == 0)
        return 0;
    size_t num = recibida->size() < tam_linea ? recibida->size() : tam_linea - 1;
    memcpy(linea, recibida->data(), num);
    linea[num] = '\0';
    return 1;
}

extern "C" int papel_c_escucha(char *linea, uint32_t tam_linea, uint32_t ms)
{
    papel_hijo yo;
    return entrega_linea(yo.escucha(ms), linea, tam_linea);
}
