/* recursos.h - numbers of the monitor's commands and controls, for the resources, the code and the tests. */
#ifndef MONITOR_RECURSOS_H
#define MONITOR_RECURSOS_H

#define monitor_CLASE  L"IvrexaMonitor" /* of the main window */
#define monitor_TITULO L"ivrexa monitor"

/* commands */
#define ID_GUARDA_CSV            101
#define ID_GUARDA_JSON           102
#define ID_SALIR                 103
#define ID_VIGILA                104 /* become the desktop's monitor, or stop being it */
#define ID_PAUSA                 105
#define ID_LIMPIA                106
#define ID_SIGUE_EL_FINAL        107
#define ID_GUARDA_VALORES        108
#define ID_COPIA                 109
#define ID_IR_A_FILTRO           110
#define ID_QUITA_FILTRO          111
#define ID_TECLAS                112
#define ID_ACERCA_DE             113
#define ID_PANEL_SIGUIENTE       114
#define ID_PANEL_ANTERIOR        115
#define ID_ELIGE_TODO            116
#define ID_ACTIVIDADES_MAS_ALTAS 117 /* the list of activities gets more of the height, or less */
#define ID_ACTIVIDADES_MAS_BAJAS 118

/* controls */
#define ID_LISTA_ACTIVIDADES 201
#define ID_LISTA_SERVICIOS   202
#define ID_LISTA_PROGRAMAS   203
#define ID_LISTA_VALORES     204
#define ID_BARRA_ESTADO      205
#define ID_FILTRO_SERVICIO   206
#define ID_FILTRO_CLASE      210 /* and one more for each kind: service, command, input, output, wait: 210 to 214 */
#define ID_BOTON_PAUSA       220
#define ID_BOTON_LIMPIA      221
#define ID_ROTULO            230 /* of a list, and one more for each: 230 to 233 in the order of the lists' numbers */

/* resources */
#define ID_MENU    1
#define ID_TECLADO 1

#endif
