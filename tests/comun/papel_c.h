/* papel_c.h - a role written in C11, in a program of its own: the other side of arranca_papel with
 * opciones_papel::programa. The same rules as in papel_hijo.h: watchdog, reports sent to the parent.
 *
 *     int main(int argc, char **argv)
 *     {
 *         char linea[256];
 *         papel_c_inicia(argc, argv);
 *         papel_c_di("LISTO");
 *         while (papel_c_escucha(linea, sizeof linea, 10000))
 *             papel_c_di("ECO %s", linea);
 *         return 0;
 *     }
 *
 * Link with pruebas_comun, by the C++ linker. GoogleTest is not needed. */
#ifndef COMUN_PAPEL_C_H
#define COMUN_PAPEL_C_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* First call of main(). Starts the watcher of message boxes, the watchdog and the reader of lines. */
void papel_c_inicia(int argc, char **argv);

/* The role's name and its arguments, from 0. They stay the support library's; a missing argument is "". */
const char *papel_c_nombre(void);
const char *papel_c_argumento(uint32_t i);

/* Sends a line; a printf format, up to 4095 bytes of result. */
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void papel_c_di(const char *formato, ...);

/* Copies the next line, cut to the buffer and terminated. 0: none within `ms`, or
 * the parent has closed its end. */
int papel_c_escucha(char *linea, uint32_t tam_linea, uint32_t ms);

/* The same while it dispatches this thread's window messages. 0 also when WM_QUIT arrives. */
int papel_c_bombea(char *linea, uint32_t tam_linea, uint32_t ms);

#ifdef __cplusplus
}
#endif

#endif
