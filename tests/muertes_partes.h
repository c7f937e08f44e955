// muertes_partes.h - one death for each row of a table: what part the victim plays, where it dies, and what
// leads there. For one source file of a program, like muertes.h.
//
//     static const caso CASOS[] = {{"cliente", "entra 6", 1, "EMPIEZA_POR %", "busca"}};
//     MUERTES_EN(CASOS)
#ifndef MUERTES_PARTES_H
#define MUERTES_PARTES_H

#include <algorithm>
#include <ostream>

#include "muertes.h"

struct parte {
    const char *nombre;
    const char *clase;          // of the victim: "ventana" or "sin_ventana"
    const char *clase_servidor; // of its service's server; NULL: the victim is the server
    const char *antes;          // what it does before, lines apart by ';', the service as %
};

static const parte PARTES[] = {
    {"servidor_nuevo", "ventana", nullptr, ""},
    {"servidor_preparado", "ventana", nullptr, "REGISTRA_SERVIDOR con_funcion %"},
    {"servidor", "ventana", nullptr, "REGISTRA_SERVIDOR con_funcion %;TERMINADO_REGISTRO"},
    {"servidor_net", "ventana", nullptr, "REGISTRA_SERVIDOR net %;TERMINADO_REGISTRO"},
    {"mudo_nuevo", "sin_ventana", nullptr, ""},
    {"mudo_preparado", "sin_ventana", nullptr, "REGISTRA_SERVIDOR con_funcion %"},
    {"mudo", "sin_ventana", nullptr, "REGISTRA_SERVIDOR con_funcion %;TERMINADO_REGISTRO"},
    {"cliente_nuevo", "sin_ventana", "ventana", ""},
    {"cliente", "ventana", "ventana", "REGISTRA_CLIENTE %"},
    {"cliente_de_mudo", "sin_ventana", "sin_ventana", "REGISTRA_CLIENTE %"},
};

struct caso {
    const char *parte;
    const char *lugar;
    uint32_t vez;
    const char *orden; // what leads there; "" time alone; "@line" the line is its client's
    const char *que;   // for the name of the case
};

inline void PrintTo(const caso &c, std::ostream *salida)
{
    *salida << c.parte << ": " << c.orden;
}

inline const parte &parte_de(const caso &c)
{
    for (const parte &p : PARTES)
        if (std::string(p.nombre) == c.parte)
            return p;
    ADD_FAILURE() << "no part is called " << c.parte;
    return PARTES[0];
}

inline std::string nombre_de_caso(const ::testing::TestParamInfo<caso> &dato)
{
    std::string nombre = std::string(dato.param.lugar) + "_" + dato.param.parte + "_" + dato.param.que + "_" +
                         std::to_string(dato.param.vez);
    std::replace(nombre.begin(), nombre.end(), ' ', '_');
    return nombre;
}

class con_parte : public con_victima, public ::testing::WithParamInterface<caso> {
protected:
    const std::string servicio = nombre_unico("serv");

    void prepara(const parte &p)
    {
        if (p.clase_servidor != nullptr)
            m_propios = std::make_unique<pareja>(p.clase_servidor, servicio);
        arranca_victima(p.clase);
        hazlo_todo(p.antes);
        if (p.clase_servidor == nullptr)
            m_cliente = std::make_unique<papel>(arranca_cliente("sin_ventana", servicio));
        else if (std::string(p.clase_servidor) == "sin_ventana")
            espera_latido(ruta_de(victima()));
    }

    void muere_en(const caso &c, const parte &p)
    {
        std::string orden = con_servicio(c.orden);
        bool de_su_cliente = orden.compare(0, 1, "@") == 0;
        if (de_su_cliente)
            espera_inicio_de_latido(p);
        arma(c.lugar, c.vez, std::string(c.orden) == "@COMANDO 110" ? "MUERE_DENTRO" : "MUERE");
        if (de_su_cliente)
            m_cliente->di(orden.substr(1));
        else if (!orden.empty())
            victima().di(orden);
        espera_muerte();
        if (de_su_cliente)
            comprueba_respuesta_sin_servidor(p, orden);
    }

    // A new server for the client that was there, or a new client for the server.
    void comprueba_sucesor(const parte &p)
    {
        if (p.clase_servidor == nullptr) {
            comprueba_relevo(p.clase, servicio, std::move(*m_cliente));
            return;
        }
        m_propios->cambia_cliente();
        m_propios->conversa();
    }

    void muere_y_los_demas_siguen()
    {
        const parte &p = parte_de(GetParam());
        bool con_otro_cliente = p.clase_servidor != nullptr && std::string(p.clase_servidor) == "ventana";
        if (!con_otro_cliente)
            empieza_vecinos();
        prepara(p);
        muere_en(GetParam(), p);
        if (con_otro_cliente)
            m_propios->conversa(); // the service's other client is who survives
        comprueba_supervivencia();
        comprueba_sucesor(p);
        acaban_los_vecinos();
    }

private:
    std::string con_servicio(std::string texto) const
    {
        for (size_t i; (i = texto.find('%')) != std::string::npos;)
            texto.replace(i, 1, servicio);
        return texto;
    }

    void hazlo_todo(const std::string &lineas)
    {
        for (size_t desde = 0, hasta; desde < lineas.size(); desde = hasta + 1) {
            hasta = std::min(lineas.find(';', desde), lineas.size());
            std::string orden = con_servicio(lineas.substr(desde, hasta - desde));
            haz(orden, orden.compare(0, 17, "REGISTRA_SERVIDOR") == 0  ? "PREPARADO"
                       : orden.compare(0, 16, "REGISTRA_CLIENTE") == 0 ? "SOLICITADO"
                                                                       : "PUBLICADO");
        }
    }

    // Its client's command must see no heartbeat of a server that dies in it: it would wait for the next for good.
    void espera_inicio_de_latido(const parte &p)
    {
        if (std::string(p.clase) != "sin_ventana")
            return;
        espera_latido(ruta_de(*m_cliente));
        espera_latido_nuevo(ruta_de(victima()));
    }

    // A window that is gone answers 0 at once; a server without one is given up after 26 rounds. The client that asks
    // for data reads its output all the same, which is reported where there is none.
    void comprueba_respuesta_sin_servidor(const parte &p, const std::string &orden)
    {
        std::string resultado = m_cliente->espera_linea("RESULTADO ", PLAZO_COMANDO_MS);
        EXPECT_EQ(resultado.substr(0, 11), std::string(p.clase) == "ventana" ? "RESULTADO 0" : "RESULTADO 3");
        if (orden.compare(0, 5, "@ECO ") != 0)
            return;
        EXPECT_EQ(m_cliente->espera_linea("TEXTOS ", 5000), "TEXTOS ||");
        EXPECT_INFORME_DE(*m_cliente, "ivrexa", "(shared_MCCom) != 0");
        EXPECT_EQ(m_cliente->espera_linea("SALIDA ", 5000), "SALIDA ninguna");
    }

    std::unique_ptr<papel> m_cliente;  // of a server that dies
    std::unique_ptr<pareja> m_propios; // of a client that dies
};

#define MUERTES_EN(casos)                       \
    TEST_P(con_parte, muere_y_los_demas_siguen) \
    {                                           \
        muere_y_los_demas_siguen();             \
    }                                           \
    INSTANTIATE_TEST_SUITE_P(lugar, con_parte, ::testing::ValuesIn(casos), nombre_de_caso);

#endif
