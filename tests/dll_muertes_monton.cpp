// A program dies while it holds the heap's lock, which is one for all programs: the next who waits for it has it.
#include "muertes_partes.h"

static const caso CASOS[] = {
    {"servidor_nuevo", "heap crea", 1, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"servidor_nuevo", "heap entra", 2, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"mudo_nuevo", "heap sale", 5, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"servidor_preparado", "heap entra", 3, "TERMINADO_REGISTRO", "publica"},
    {"mudo_preparado", "heap sale", 10, "TERMINADO_REGISTRO", "publica"},
    {"cliente_nuevo", "heap entra", 8, "REGISTRA_CLIENTE %", "registra"},
    {"cliente", "heap entra", 1, "GUARDA % 0", "guarda"},
    {"cliente", "heap sale", 30, "GUARDA % 0", "guarda"},
    {"cliente", "heap entra", 2, "EJECUTA % 102", "manda"},
    {"cliente_de_mudo", "heap sale", 2, "EJECUTA % 102", "manda"},
    {"servidor", "heap entra", 1, "@ECO 5", "prepara_comando"},
    {"servidor", "heap entra", 3, "@COMANDO 110", "en_el_comando"},
    {"mudo", "heap sale", 4, "@COMANDO 110", "en_el_comando"},
    {"servidor", "heap entra", 1, "CIERRA", "cierra"},
    {"mudo", "heap sale", 8, "CIERRA", "cierra"},
};

MUERTES_EN(CASOS)

// Until it dies nobody gets past it, and then all do at once.
TEST_F(con_victima, quien_se_para_en_el_cerrojo_detiene_a_todos_hasta_que_muere)
{
    for (auto [lugar, vez] : {std::pair<const char *, uint32_t>{"heap entra", 2}, {"entra 7", 1}}) {
        SCOPED_TRACE(lugar);
        pareja vecinos("ventana", nombre_unico("serv"));
        arranca_victima("sin_ventana");
        parada quieta(victima());
        arma(lugar, vez, "PARA");
        victima().di("REGISTRA_CLIENTE " + vecinos.servicio);
        quieta.espera();
        vecinos.cliente.di("ECO 5");
        EXPECT_EQ(vecinos.cliente.busca_linea("RESULTADO ", 600), std::nullopt);
        victima().mata();
        EXPECT_EQ(vecinos.cliente.espera_linea("RESULTADO ", 2000), "RESULTADO 1|100|101");
        for (const char *linea : {"TEXTOS ", "SALIDA "})
            vecinos.cliente.espera_linea(linea, 5000);
        for (const char *linea : {"ENTRADA ", "TEXTOS "})
            vecinos.servidor.espera_linea(linea, 5000);
        vecinos.conversa();
    }
}
