// Clients of one service that take turns under a mutex of their own: every command is answered once, to who sent it.
#include "dll_eco.h"

struct caso_turnos {
    const char *clase;
    uint32_t num_clientes, num_comandos; // of each

    friend std::ostream &operator<<(std::ostream &salida, const caso_turnos &c)
    {
        return salida << c.num_clientes << " clients with " << c.num_comandos << " commands each";
    }
};

class turnos : public ::testing::TestWithParam<caso_turnos> {
    void SetUp() override { vacia_registro(); }
};

static void todos(std::vector<papel> &clientes, const std::string &linea)
{
    for (papel &cliente : clientes)
        cliente.di(linea);
}

TEST_P(turnos, cada_comando_se_contesta_una_vez_y_a_quien_lo_mando)
{
    auto [clase, num_clientes, num_comandos] = GetParam();
    std::string servicio = nombre_unico("turnos"), turno = nombre_unico("turno");
    papel servidor = arranca_eco_servidor(clase, servicio);
    std::vector<papel> clientes;
    for (uint32_t i = 0; i < num_clientes; i++)
        clientes.push_back(arranca_eco_cliente(i, servicio, num_comandos, true, turno));
    for (papel &cliente : clientes)
        espera_latido(ruta_de(cliente));
    todos(clientes, "YA");
    std::string por_id, por_remitente;
    for (uint32_t i = 0; i < num_clientes; i++) {
        eco_cuentas c = espera_hecho(clientes[i]);
        EXPECT_EQ(c.bien, num_comandos) << "client " << i << " got " << en_linea(c);
        EXPECT_EQ(c.total(), num_comandos);
        EXPECT_EQ(c.salida_perdida, 0u);
        por_id += std::to_string(200 + i) + "=" + std::to_string(num_comandos) + ",";
        por_remitente += "c" + std::to_string(i) + "=" + std::to_string(num_comandos) + ",";
    }
    std::vector<std::string> cuenta = eco_cuenta_de(servidor);
    EXPECT_EQ(cuenta[0], std::to_string(num_clientes * num_comandos));
    EXPECT_EQ(cuenta[1] + cuenta[2], "00") << "refused";
    EXPECT_EQ(cuenta[4], "0") << "input of another";
    EXPECT_EQ(cuenta[6], por_id);
    EXPECT_EQ(cuenta[7], por_remitente);
    espera_canal_entero(servicio);
    todos(clientes, "ACABA");
    for (papel &cliente : clientes)
        EXPECT_EQ(cliente.espera_fin(15000), 0u);
    acaba(servidor);
}

// Without a window each costs half a second.
INSTANTIATE_TEST_SUITE_P(servidor, turnos,
                         ::testing::Values(caso_turnos{"ventana", 4, 250}, caso_turnos{"net", 4, 250},
                                           caso_turnos{"sin_ventana", 4, 6}),
                         [](const auto &dato) { return std::string(dato.param.clase); });
