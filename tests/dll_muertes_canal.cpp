// A client dies in its exchange with a server, at each place of it. What it had not claimed goes on at once; what it
// had claimed stays claimed until the service has ended and some client has run a call since.
#include "muertes_canal.h"

namespace {

enum desenlace {
    sigue,     // the service is whole at once
    reclamado, // the claim stays, and nobody misses the client
    acaba,     // the server misses the client and ends the service; the claim stays
};

struct muerte {
    const char *punto;
    desenlace despues;
    uint32_t ocupacion;
};

struct tanda {
    const char *nombre;
    const char *clase;
    std::vector<muerte> muertes;
};

const tanda TANDAS[] = {
    {"sin_ventana_al_reclamar",
     "sin_ventana",
     {{"comando id_comando", sigue, 0},
      {"espera 16", sigue, 0},
      {"entra 16", sigue, 0},
      {"comando ocupacion escribe", reclamado, 1},
      {"comando hwnd_cliente", reclamado, 1},
      {"comando buffer_cliente_64", reclamado, 1}}},
    {"sin_ventana_tras_escribir",
     "sin_ventana",
     {{"comando escrito", acaba, 1},
      {"comando en curso", acaba, 2},
      {"sale 16", acaba, 2},
      {"fuera 16", acaba, 2},
      {"entra 17", acaba, 2},
      {"sale 17", acaba, 2}}},
    {"sin_ventana_al_recoger",
     "sin_ventana",
     {{"entra 18", acaba, 2},
      {"comando recogido", acaba, 2},
      {"sale 18", acaba, 2},
      {"entra 19", acaba, 2},
      {"comando libre", sigue, 0},
      {"comando quita id_comando", sigue, 0}}},
    {"ventana_al_reclamar",
     "ventana",
     {{"comando id_comando", sigue, 0},
      {"espera 16", sigue, 0},
      {"entra 16", sigue, 0},
      {"comando ocupacion escribe", reclamado, 1},
      {"comando hwnd_cliente", reclamado, 1},
      {"comando buffer_cliente_64", reclamado, 1},
      {"comando escrito", reclamado, 1}}},
    {"ventana_tras_escribir",
     "ventana",
     {{"comando en curso", reclamado, 2},
      {"sale 16", reclamado, 2},
      {"fuera 16", reclamado, 2},
      {"comando respondido", reclamado, 2},
      {"entra 17", reclamado, 2},
      {"comando recogido", reclamado, 2},
      {"sale 17", reclamado, 2}}},
    {"ventana_al_soltar",
     "ventana",
     {{"entra 19", reclamado, 2},
      {"comando libre", sigue, 0},
      {"sale 19", sigue, 0},
      {"fuera 19", sigue, 0},
      {"comando quita id_comando", sigue, 0}}},
    {"net",
     "net",
     {{"entra 16", sigue, 0},
      {"comando buffer_cliente_64", reclamado, 1},
      {"comando respondido", reclamado, 2},
      {"entra 19", reclamado, 2},
      {"sale 19", sigue, 0}}},
};

std::ostream &operator<<(std::ostream &salida, const tanda &t)
{
    return salida << t.nombre;
}

class muere_el_cliente : public con_tanda, public ::testing::WithParamInterface<tanda> {
protected:
    struct victima_de {
        muerte caso;
        std::string servicio;
        papel programa;
        std::unique_ptr<canal_visto> canal;
        std::unique_ptr<llamada> en_espera;
    };

    const std::string clase = GetParam().clase;
    std::vector<victima_de> victimas;

    void arranca_servidor_de_todas()
    {
        std::vector<std::string> servicios = nombra_servicios(GetParam().muertes.size());
        m_servidor = std::make_unique<papel>(arranca_servidor(clase, lista(servicios)));
        for (size_t i = 1; clase == "net" && i < servicios.size(); i++)
            EXPECT_INFORME_DE(*m_servidor, "iv_reg", "procesaComandoExterno != NULL");
        for (size_t i = 0; i < servicios.size(); i++) {
            registra(servicios[i]);
            victimas.push_back({GetParam().muertes[i], servicios[i], nueva_victima("sin_ventana"),
                                std::make_unique<canal_visto>(servicios[i]), nullptr});
            pide(victimas[i].programa, "REGISTRA_CLIENTE " + servicios[i], "SOLICITADO");
        }
        for (victima_de &v : victimas)
            espera_latido(ruta_de(v.programa));
    }

    // The first call after the death: it goes through, or waits.
    void mata(victima_de &v)
    {
        arma_en(v.programa, v.caso.punto, 1);
        v.programa.di("EJECUTA " + v.servicio + " " + std::to_string(COMANDO_CALLADO));
        espera_muerte_de(v.programa);
        comprueba_canal_sano(v.servicio);
        if (v.caso.despues == sigue)
            conversa_en(v.servicio);
        if (v.caso.despues == reclamado)
            v.en_espera = std::make_unique<llamada>(v.servicio, COMANDO_CALLADO);
    }

    // Nobody has called since, and still the channel is claimed: the first who calls gets 3 and frees it.
    static void comprueba_acabado(const victima_de &v)
    {
        const canal_visto &canal = *v.canal;
        canal.espera_terminado();
        EXPECT_EQ(canal.ocupacion(), v.caso.ocupacion);
        EXPECT_EQ(ejecuta(v.servicio, COMANDO_CALLADO).resultado, 3u);
        canal.comprueba_libre();
    }

    // The call waits in its claim, and the service lives.
    static void comprueba_en_espera(const victima_de &v)
    {
        const canal_visto &canal = *v.canal;
        EXPECT_TRUE(espera_hasta([&] { return canal.bucle_cliente() == 1; }, RESPONDE_MS)) << "no round of its wait";
        EXPECT_FALSE(v.en_espera->hecha());
        EXPECT_EQ(canal.ocupacion(), v.caso.ocupacion);
        EXPECT_FALSE(canal.terminado());
    }

    void cierra_y_reabre()
    {
        cierra_servicio(*m_servidor);
        for (victima_de &v : victimas) {
            SCOPED_TRACE(v.caso.punto);
            if (v.en_espera != nullptr)
                EXPECT_EQ(v.en_espera->resultado(), resultado_sin_servicio(clase));
            v.canal->comprueba_libre();
        }
        pide(*m_servidor, "PREPARA", "PREPARADO");
        for (size_t i = 1; clase == "net" && i < victimas.size(); i++)
            EXPECT_INFORME_DE(*m_servidor, "iv_reg", "procesaComandoExterno != NULL");
        pide(*m_servidor, "PUBLICA", "PUBLICADO");
    }

private:
    std::unique_ptr<papel> m_servidor;
};

TEST_P(muere_el_cliente, y_el_servicio_vuelve_por_el_camino_mas_corto)
{
    empieza_vecinos();
    arranca_servidor_de_todas();
    for (victima_de &v : victimas) {
        SCOPED_TRACE(v.caso.punto);
        mata(v);
    }
    comprueba_supervivencia();
    for (victima_de &v : victimas) {
        SCOPED_TRACE(v.caso.punto);
        if (v.caso.despues == acaba)
            comprueba_acabado(v);
        if (v.caso.despues == reclamado)
            comprueba_en_espera(v);
    }
    cierra_y_reabre();
    for (victima_de &v : victimas) {
        SCOPED_TRACE(v.caso.punto);
        conversa_en(v.servicio);
    }
}

INSTANTIATE_TEST_SUITE_P(en, muere_el_cliente, ::testing::ValuesIn(TANDAS),
                         [](const auto &dato) { return std::string(dato.param.nombre); });

} // namespace
