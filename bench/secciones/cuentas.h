// cuentas.h - the two processes whose calls the section `counts` counts.
#ifndef BANCO_CUENTAS_H
#define BANCO_CUENTAS_H

#include <string>

namespace banco {

void sirve_cuentas_servidor(const std::string &sesion);
void sirve_cuentas_cliente(const std::string &sesion);

} // namespace banco

#endif
