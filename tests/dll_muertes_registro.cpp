// A program dies inside the registry's mutex, at each of the sites that lock it, as each part that comes there: the
// others go on at once, and a new program takes the place of the dead one.
#include "muertes_partes.h"

static const caso CASOS[] = {
    {"servidor", "entra 1", 1, "CIERRA", "cierra"},
    {"cliente", "sale 1", 1, "CIERRA", "cierra"},
    {"mudo", "fuera 1", 1, "CIERRA", "cierra"},
    {"cliente", "entra 4", 1, "ECO 5", "empieza_comando"},
    {"cliente", "sale 4", 2, "ECO 5", "acaba_comando"},
    {"servidor", "entra 4", 1, "@ECO 5", "abre_entrada"},
    {"mudo", "sale 4", 1, "@ECO 5", "abre_entrada"},
    {"servidor_preparado", "entra 5", 1, "TERMINADO_REGISTRO", "anuncia"},
    {"mudo_preparado", "sale 5", 1, "TERMINADO_REGISTRO", "anuncia"},
    {"servidor", "entra 5", 1, "CIERRA", "retira"},
    {"servidor_net", "sale 5", 1, "CIERRA", "retira"},
    {"servidor", "entra 5", 1, "@ECO 5", "guarda_salida"},
    {"cliente", "entra 5", 1, "ECO 5", "guarda_entrada"},
    {"cliente", "entra 6", 1, "EMPIEZA_POR %", "busca"},
    {"cliente", "sale 6", 1, "EMPIEZA_POR %", "busca"},
    {"servidor_nuevo", "espera 7", 1, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"servidor_nuevo", "entra 7", 1, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"servidor_nuevo", "fuera 7", 1, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"mudo_nuevo", "sale 7", 1, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"cliente_nuevo", "sale 7", 1, "REGISTRA_CLIENTE %", "registra"},
    {"cliente_nuevo", "entra 8", 1, "REGISTRA_CLIENTE %", "registra"},
    {"cliente_nuevo", "sale 8", 1, "REGISTRA_CLIENTE %", "registra"},
    {"cliente", "sale 8", 1, "REGISTRA_CLIENTE otro_%", "registra_otro"},
    {"servidor_preparado", "entra 9", 1, "TERMINADO_REGISTRO", "publica"},
    {"servidor_preparado", "sale 9", 1, "TERMINADO_REGISTRO", "publica"},
    {"mudo_preparado", "sale 9", 1, "TERMINADO_REGISTRO", "publica"},
    {"cliente", "entra 10", 1, "EJECUTA % 102", "empieza_comando"},
    {"cliente", "sale 10", 1, "EJECUTA % 102", "empieza_comando"},
    {"cliente_de_mudo", "entra 10", 1, "EJECUTA % 102", "empieza_comando"},
    {"cliente_de_mudo", "sale 10", 1, "EJECUTA % 102", "empieza_comando"},
    {"cliente", "entra 11", 1, "EJECUTA % 102", "acaba_comando"},
    {"cliente", "sale 11", 1, "ECO 5", "acaba_comando"},
    {"cliente_de_mudo", "sale 11", 1, "EJECUTA % 102", "acaba_comando"},
    {"mudo", "entra 13", 1, "", "espera_comando"},
    {"mudo", "sale 13", 1, "", "espera_comando"},
    {"mudo", "sale 13", 30, "", "espera_comando"},
    {"servidor", "entra 14", 1, "", "late"},
    {"mudo", "sale 14", 2, "", "late"},
    {"cliente_de_mudo", "sale 14", 1, "", "late"},
    {"servidor", "entra 15", 1, "CIERRA", "cierra"},
    {"mudo", "sale 15", 1, "CIERRA", "cierra"},
    {"cliente", "sale 15", 1, "CIERRA", "cierra"},
};

MUERTES_EN(CASOS)

// ---- What all of these tests take for granted of their victim

// It dies the time that was said and none before, counted from the line on; disarmed, it passes.
TEST_F(con_victima, muere_a_la_vez_que_se_dijo_y_no_antes)
{
    const std::string servicio = nombre_unico("serv");
    const struct {
        const char *lugar, *orden, *respuesta;
    } PASOS[] = {
        {"sale 6", "EMPIEZA_POR nadie", "EMPIEZA 0 "},
        {"bloque creado", "GUARDA % 0", "GUARDADO "},
    };
    for (const auto &paso : PASOS) {
        SCOPED_TRACE(paso.lugar);
        std::string orden = paso.orden;
        if (size_t i = orden.find('%'); i != std::string::npos)
            orden.replace(i, 1, servicio);
        arranca_victima("sin_ventana");
        haz("REGISTRA_CLIENTE " + servicio, "SOLICITADO");
        haz(orden, paso.respuesta);
        arma(paso.lugar, 1);
        haz("DESARMA", "DESARMADO");
        haz(orden, paso.respuesta);
        arma(paso.lugar, 3);
        haz(orden, paso.respuesta);
        haz(orden, paso.respuesta);
        victima().di(orden);
        espera_muerte();
        EXPECT_EQ(victima().busca_linea(paso.respuesta, 0), std::nullopt) << "it died behind its place";
    }
    comprueba_supervivencia();
}
