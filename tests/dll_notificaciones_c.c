/* dll_notificaciones_c.c - the hosts of dll_notificaciones.h in C: a server that notifies, a client that
 * listens. */
#include "ivrexa.h"

#include "dll_notificaciones.h"

int main(int argc, char **argv)
{
    papel_c_inicia(argc, argv);
    if (strcmp(papel_c_nombre(), "avisador") == 0)
        return aviso_servidor(papel_c_argumento(0), papel_c_argumento(1));
    if (strcmp(papel_c_nombre(), "avisado") == 0)
        return aviso_cliente(papel_c_argumento(0), papel_c_argumento(1), papel_c_argumento(2));
    return 126;
}
