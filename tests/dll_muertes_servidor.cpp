// A server dies at each place of its life: while it makes its service reachable, between commands, in a command, while
// it closes. Its client gets an answer within the rule of the heartbeats and leaves the channel free; a new server of
// the same service then serves it.
#include "muertes_canal.h"

namespace {

enum momento {
    al_publicar,  // dies in ivrexa_terminado_registro, or in its loop soon after; then the client calls
    al_cerrar,    // dies in ivrexa_cierra_sesion; then the client calls
    en_comando,   // dies while the client's call is under way
    tras_comando, // the same; armed when the command function runs
    al_terminar,  // dies of command 1
};

struct muerte {
    const char *punto;
    uint32_t vez;
    momento cuando;
    uint32_t resultado; // the client's
};

struct tanda {
    const char *nombre;
    const char *clase;
    std::vector<muerte> muertes;
};

const tanda TANDAS[] = {
    {"sin_ventana_al_iniciar_el_canal",
     "sin_ventana",
     {{"entra 23", 1, al_publicar, 3},
      {"canal version_servicio", 1, al_publicar, 3},
      {"canal id_bloque_MCCom_siguiente", 1, al_publicar, 3},
      {"sale 23", 1, al_publicar, 3},
      {"entra 24", 1, al_publicar, 3},
      {"canal hwnd_servidor", 1, al_publicar, 3},
      {"canal msg_servidor", 1, al_publicar, 3}}},
    {"sin_ventana_al_empezar",
     "sin_ventana",
     {{"canal estado_servidor espera", 1, al_publicar, 3},
      {"sale 24", 1, al_publicar, 3},
      {"fuera 24", 1, al_publicar, 3},
      {"entra 28", 1, al_publicar, 3},
      {"sale 28", 1, al_publicar, 3},
      {"entra 29", 1, al_publicar, 3},
      {"sale 29", 5, al_publicar, 3}}},
    {"sin_ventana_al_tomar_el_comando",
     "sin_ventana",
     {{"servidor ejecuta", 1, en_comando, 3},
      {"servidor en ejecucion", 1, en_comando, 3},
      {"entra 35", 1, en_comando, 3},
      {"sale 35", 1, en_comando, 3},
      {"entra 34", 1, en_comando, 3},
      {"datos id_bloque_MCCom_siguiente", 1, en_comando, 3},
      {"sale 34", 1, en_comando, 3}}},
    {"sin_ventana_al_responder",
     "sin_ventana",
     {{"canal id_resultado", 1, en_comando, 3},
      {"servidor resultado", 1, en_comando, 3},
      {"servidor terminado", 1, en_comando, 3},
      {"sale 29", 1, tras_comando, 1},
      {"entra 30", 1, en_comando, 1},
      {"sale 30", 1, en_comando, 1},
      {"entra 31", 1, en_comando, 1}}},
    {"sin_ventana_al_acabar",
     "sin_ventana",
     {{"sale 31", 1, en_comando, 1},
      {"entra 28", 1, en_comando, 1},
      {"canal servidor_terminado", 1, al_terminar, 3},
      {"entra 27", 1, al_terminar, 3},
      {"sale 27", 1, al_terminar, 3},
      {"entra 32", 1, al_terminar, 3},
      {"sale 32", 1, al_terminar, 3}}},
    {"sin_ventana_al_cerrar",
     "sin_ventana",
     {{"canal servidor_terminado", 1, al_cerrar, 3},
      {"sale 25", 1, al_cerrar, 3},
      {"entra 32", 1, al_cerrar, 3},
      {"entra 25", 1, al_cerrar, 3}}},
    {"ventana_al_publicar",
     "ventana",
     {{"entra 23", 1, al_publicar, 3},
      {"sale 23", 1, al_publicar, 3},
      {"entra 24", 1, al_publicar, 3},
      {"canal hwnd_servidor", 1, al_publicar, 3},
      {"canal msg_servidor", 1, al_publicar, 0},
      {"canal estado_servidor espera", 1, al_publicar, 0},
      {"sale 24", 1, al_publicar, 0}}},
    {"ventana_en_el_comando",
     "ventana",
     {{"entra 35", 1, en_comando, 0},
      {"sale 35", 1, en_comando, 0},
      {"entra 34", 1, en_comando, 0},
      {"datos id_bloque_MCCom_siguiente", 1, en_comando, 0},
      {"sale 34", 1, en_comando, 0},
      {"canal id_resultado", 1, en_comando, 0}}},
    {"ventana_al_acabar",
     "ventana",
     {{"canal servidor_terminado", 1, al_terminar, 0},
      {"entra 27", 1, al_terminar, 0},
      {"sale 27", 1, al_terminar, 0},
      {"canal servidor_terminado", 1, al_cerrar, 0},
      {"sale 25", 1, al_cerrar, 0},
      {"entra 25", 1, al_cerrar, 0}}},
};

std::ostream &operator<<(std::ostream &salida, const tanda &t)
{
    return salida << t.nombre;
}

class muere_el_servidor : public con_tanda, public ::testing::WithParamInterface<tanda> {
protected:
    struct victima_de {
        muerte caso;
        std::string servicio;
        papel programa;
        std::unique_ptr<canal_visto> canal;
        std::unique_ptr<entrada_muestra> entrada;
        std::unique_ptr<llamada> en_espera;
    };

    const std::string clase = GetParam().clase;
    const std::vector<std::string> servicios = nombra_servicios(GetParam().muertes.size());
    std::vector<victima_de> victimas;

    // The client is there first, and holds the channels.
    void arranca_victimas()
    {
        for (size_t i = 0; i < servicios.size(); i++) {
            registra(servicios[i]);
            victimas.push_back({GetParam().muertes[i], servicios[i], nueva_victima(clase),
                                std::make_unique<canal_visto>(servicios[i]), nullptr, nullptr});
            pide(victimas[i].programa, "REGISTRA_SERVIDOR con_funcion " + servicios[i], "PREPARADO");
            if (victimas[i].caso.cuando != al_publicar)
                pide(victimas[i].programa, "TERMINADO_REGISTRO", "PUBLICADO");
        }
        espera_latido(ruta());
    }

    void llama(victima_de &v)
    {
        if (v.caso.cuando == al_terminar) {
            v.en_espera = std::make_unique<llamada>(v.servicio, 1);
            return;
        }
        v.entrada = std::make_unique<entrada_muestra>(v.servicio, 1);
        v.en_espera = std::make_unique<llamada>(v.servicio, v.caso.cuando == tras_comando ? 110 : 100, v.entrada->id());
    }

    // A server that has beaten within the client's wait lives for it through that wait: the call begins behind a beat.
    void mata(victima_de &v)
    {
        bool por_comando = v.caso.cuando != al_publicar && v.caso.cuando != al_cerrar;
        if (por_comando && clase == "sin_ventana")
            espera_latido_nuevo(ruta_de(v.programa));
        arma_en(v.programa, v.caso.punto, v.caso.vez, v.caso.cuando == tras_comando ? "MUERE_DENTRO" : "MUERE");
        if (v.caso.cuando == al_publicar)
            v.programa.di("TERMINADO_REGISTRO");
        else if (v.caso.cuando == al_cerrar)
            v.programa.di("CIERRA");
        else
            llama(v);
        espera_muerte_de(v.programa);
        comprueba_canal_sano(v.servicio);
    }

    // Called at once, before another program can have the dead one's place in the registry.
    void espera_respuestas()
    {
        for (victima_de &v : victimas)
            if (v.en_espera == nullptr)
                v.en_espera = std::make_unique<llamada>(v.servicio, COMANDO_CALLADO);
        for (victima_de &v : victimas) {
            SCOPED_TRACE(v.caso.punto);
            EXPECT_EQ(v.en_espera->resultado(), v.caso.resultado);
            v.canal->comprueba_libre();
        }
    }
};

TEST_P(muere_el_servidor, y_su_cliente_es_servido_por_el_siguiente)
{
    empieza_vecinos();
    arranca_victimas();
    for (victima_de &v : victimas) {
        SCOPED_TRACE(v.caso.punto);
        mata(v);
    }
    espera_respuestas();
    comprueba_supervivencia();
    papel relevo = arranca_servidor(clase, lista(servicios));
    for (const std::string &servicio : servicios)
        conversa_en(servicio);
}

INSTANTIATE_TEST_SUITE_P(en, muere_el_servidor, ::testing::ValuesIn(TANDAS),
                         [](const auto &dato) { return std::string(dato.param.nombre); });

} // namespace
