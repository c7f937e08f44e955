// principal.h - what every process of the tests does first, whether it runs tests or a role.
#ifndef COMUN_PRINCIPAL_H
#define COMUN_PRINCIPAL_H

// No crash shows a dialog: an unhandled exception writes code, address and module to stderr and ends with
// code 3.
void prepara_proceso();

#endif
