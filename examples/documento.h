/* documento.h - what servidor_avisa and cliente_avisado say to each other. Plain C.
 *
 * Commands 100, "opened", and 101, "closed". Input data, in this order: id_cliente (ulong), the id under
 * which the client can be notified; id_documento (ulong); ruta (wide text). No output.
 *
 * Notification, "has changed". Datum: the document's id. Data: revision (ulong), autor (wide text). */
#ifndef DOCUMENTO_H
#define DOCUMENTO_H

#include "imprime.h"
#include "ivrexa.h"

enum { DOCUMENTO_ABIERTO = 100, DOCUMENTO_CERRADO = 101, DOCUMENTO_VERSION = 1 };

#endif
