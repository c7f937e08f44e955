// The desktop's monitor dies, or a program dies while it notes what the monitor is to hear: the traffic goes on, and
// a monitor hears it.
#include "dll_monitor.h"

#include "muertes_partes.h"

// ---- The monitor itself

struct caso_monitor {
    const char *lugar;
    uint32_t vez;
    bool registrado; // it dies when it withdraws, not when it registers
};

static const caso_monitor CASOS_MONITOR[] = {
    {"entra 2", 1, false},
    {"sale 2", 1, false},
    {"monitor version", 1, false},
    {"monitor msg_monitor", 1, false},
    {"monitor actividades", 1, false},
    {"monitor servicio", 1, false},
    {"monitor servicio", 17, false},
    {"entra 3", 1, true},
    {"sale 3", 1, true},
    {"sale 1", 1, true},
};

static void PrintTo(const caso_monitor &c, std::ostream *salida)
{
    *salida << c.lugar;
}

class con_monitor_muerto : public con_victima, public ::testing::WithParamInterface<caso_monitor> {};

TEST_P(con_monitor_muerto, los_demas_siguen_y_otro_monitor_oye)
{
    const caso_monitor &c = GetParam();
    empieza_vecinos();
    arranca_victima("ventana");
    if (c.registrado)
        haz("MONITOR", "MONITOR");
    muere(c.lugar, c.vez, c.registrado ? "QUITA_MONITOR" : "MONITOR");
    comprueba_supervivencia();

    vigia otro;
    pareja oida("ventana", nombre_unico("serv"));
    otro.dicho();
    oida.conversa();
    std::vector<std::string> dicho = las_que_empiezan(otro.dicho(), "ACT 1 2 ");
    EXPECT_EQ(dicho.size(), 2u) << "begin and end of the command";
    comprueba_registro_sano();
}

static std::string nombre_de_monitor(const ::testing::TestParamInfo<caso_monitor> &dato)
{
    std::string nombre = dato.param.lugar + std::string("_") + std::to_string(dato.param.vez);
    std::replace(nombre.begin(), nombre.end(), ' ', '_');
    return nombre;
}

INSTANTIATE_TEST_SUITE_P(lugar, con_monitor_muerto, ::testing::ValuesIn(CASOS_MONITOR), nombre_de_monitor);

// ---- Those it watches

struct caso_oido {
    const char *lugar;
    uint32_t vez;
    const char *orden; // on the service %
};

static const caso_oido CASOS_OIDO[] = {
    {"actividad num_actividad_siguiente", 1, "GUARDA % 0"},
    {"actividad dato2", 1, "GUARDA % 0"},
    {"entra 5", 1, "EJECUTA % 102"},
    {"sale 5", 1, "EJECUTA % 102"},
    {"sale 5", 2, "EJECUTA % 102"},
    {"fuera 5", 4, "ECO 5"},
};

static void PrintTo(const caso_oido &c, std::ostream *salida)
{
    *salida << c.lugar << ": " << c.orden;
}

class con_monitor_vivo : public con_victima, public ::testing::WithParamInterface<caso_oido> {};

TEST_P(con_monitor_vivo, oye_a_los_que_siguen)
{
    const caso_oido &c = GetParam();
    vigia monitor;
    pareja propios("ventana", nombre_unico("serv"));
    arranca_victima("ventana");
    haz("REGISTRA_CLIENTE " + propios.servicio, "SOLICITADO");
    std::string orden = c.orden;
    if (size_t i = orden.find('%'); i != std::string::npos)
        orden.replace(i, 1, propios.servicio);
    muere(c.lugar, c.vez, orden);

    monitor.dicho();
    propios.conversa();
    std::vector<std::string> dicho = las_que_empiezan(monitor.dicho(), "ACT ");
    ASSERT_EQ(dicho.size(), 6u) << "input saved, command, input opened, output saved, command's end, output opened";
    for (const std::string &linea : dicho)
        EXPECT_NE(linea.find("\"" + propios.servicio + "\""), std::string::npos) << linea;
    comprueba_supervivencia();
    propios.cambia_cliente();
    propios.conversa();
}

static std::string nombre_de_oido(const ::testing::TestParamInfo<caso_oido> &dato)
{
    std::string nombre = dato.param.lugar + std::string("_") + std::to_string(dato.param.vez);
    std::replace(nombre.begin(), nombre.end(), ' ', '_');
    return nombre;
}

INSTANTIATE_TEST_SUITE_P(lugar, con_monitor_vivo, ::testing::ValuesIn(CASOS_OIDO), nombre_de_oido);
