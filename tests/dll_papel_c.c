/* dll_papel_c.c - the other side of conversations, in C: a host that knows the library by its public header alone.
 *     servidor KIND SERVICE,SERVICE...
 *     cliente KIND SERVICE
 * What they say and obey stands in dll_anfitrion.h. */
#include "ivrexa.h"

#include "dll_anfitrion.h"

int main(int argc, char **argv)
{
    papel_c_inicia(argc, argv);
    if (strcmp(papel_c_nombre(), "servidor") == 0)
        return anfitrion_servidor(papel_c_argumento(0), papel_c_argumento(1));
    if (strcmp(papel_c_nombre(), "cliente") == 0)
        return anfitrion_cliente(papel_c_argumento(0), papel_c_argumento(1));
    return 126;
}
