#include "comun/fila.h"

namespace banco {

// Each is defined in its file of filas/ or suelo/.
extern const fila fila_sendmessage;
extern const fila fila_bloque;
extern const fila fila_suelo;
extern const fila fila_suelo_copias;
extern const fila fila_ivrexa_ventana;
extern const fila fila_ivrexa_net;
extern const fila fila_ivrexa_sin_ventana;
extern const fila fila_copydata;
extern const fila fila_tuberia;
extern const fila fila_tcp;
extern const fila fila_dde;
extern const fila fila_com;
extern const fila fila_boost;

const std::vector<const fila *> &filas()
{
    static const std::vector<const fila *> todas = {
        &fila_sendmessage,
        &fila_bloque,
        &fila_suelo,
        &fila_suelo_copias,
        &fila_ivrexa_ventana,
        &fila_ivrexa_net,
        &fila_ivrexa_sin_ventana,
        &fila_copydata,
        &fila_tuberia,
        &fila_tcp,
        &fila_dde,
        &fila_com,
        &fila_boost,
    };
    return todas;
}

} // namespace banco
