// ctl_doctor_rotas.cpp - ivrexactl doctor's rules and output for what was written during every try to read it. The
// looks are made here: nobody can be made to write at the very moment.
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "doctor_informe.h"
#include "iv_mcserv.h"
#include "orden.h"

using namespace ivrexactl;

// Nobody stops the test.
bool ivrexactl::espera_fin(uint32_t ms)
{
    Sleep(ms);
    return false;
}

// One program that serves "Calc" without a window, and is its own client.
static herramientas::escritorio_visto sano()
{
    herramientas::escritorio_visto e;
    e.hay_registro = true;
    e.tam = sizeof e.crudo;
    e.tam_hay = sizeof e.crudo;
    strcpy(e.crudo.programas[0].nombre, "programa");
    e.crudo.programas[0].es_servidor = e.crudo.programas[0].es_cliente = 1;
    strcpy(e.crudo.servicios[0].nombre, "Calc");
    herramientas::programa_visto p;
    p.nombre = "programa";
    p.es_servidor = p.es_cliente = true;
    e.programas.push_back(p);
    herramientas::servicio_visto s;
    s.ind_datServ = 0;
    s.nombre = s.nombre_ansi = "Calc";
    s.id_programa_servidor = s.id_programa_cliente = 0;
    s.canal.emplace();
    s.canal->tam = s.canal->tam_bloque = sizeof(iv_mcserv_t);
    s.canal->tam_hay = sizeof(iv_mcserv_t);
    s.canal->id_bloque_MCCom_siguiente = 100;
    e.servicios.push_back(s);
    return e;
}

static consulta con_miradas(const herramientas::escritorio_visto &e, int num)
{
    consulta c;
    for (int n = 0; n < num; n++)
        if (anota_rotas(&c, e)) {
            c.miradas.push_back(e);
            c.faltan.emplace_back();
        }
    return c;
}

static std::set<std::string> ids(const consulta &c)
{
    std::set<std::string> s;
    for (const hallazgo &h : diagnostica(c))
        s.insert(h.id);
    return s;
}

TEST(doctor_rotas, un_escritorio_sano_no_da_nada)
{
    consulta c = con_miradas(sano(), 3);
    EXPECT_EQ(ids(c), std::set<std::string>());
    EXPECT_TRUE(c.rotas.empty());
    EXPECT_EQ(informe_texto(c, {}), "nothing wrong: 1 program, 1 service");
}

TEST(doctor_rotas, un_canal_danyado_se_dice_solo_si_se_leyo_entero)
{
    herramientas::escritorio_visto e = sano();
    e.servicios[0].canal->tam_bloque = 5;
    EXPECT_EQ(ids(con_miradas(e, 3)), std::set<std::string>{"channel-version"});
    e.servicios[0].canal->quieto = false;
    EXPECT_EQ(ids(con_miradas(e, 3)), std::set<std::string>());
}

TEST(doctor_rotas, un_canal_roto_se_cuenta_y_se_dice_aparte)
{
    herramientas::escritorio_visto e = sano();
    e.servicios[0].canal->quieto = false;
    consulta c = con_miradas(e, 2);
    EXPECT_EQ(informe_texto(c, diagnostica(c)),
              "Not told: 2 looks at the channel of service \"Calc\" were torn, because it was written all the while. "
              "Run doctor again.\n\nnothing wrong: 1 program, 1 service");
    herramientas::json j = informe_json(c, diagnostica(c));
    EXPECT_EQ(j["torn"], herramientas::json::parse(R"([{"subject":"the channel of service \"Calc\"","looks":2}])"));
    EXPECT_EQ(j["problems"], 0);
    EXPECT_EQ(c.miradas.size(), 2u) << "the rest of the look is whole";
}

TEST(doctor_rotas, un_registro_roto_no_da_ninguna_mirada)
{
    herramientas::escritorio_visto e = sano();
    e.crudo.tam_bloque = 5;
    e.servicios[0].canal->quieto = false;
    e.quieto = false;
    consulta c = con_miradas(e, 1);
    EXPECT_TRUE(c.miradas.empty());
    EXPECT_EQ(ids(c), std::set<std::string>());
    EXPECT_EQ(informe_texto(c, {}), "Not told: 1 look at the registry was torn, because it was written all the while. "
                                    "Run doctor again.\n\nnothing told: the registry was written all the while");
    EXPECT_EQ(informe_json(c, {})["torn"], herramientas::json::parse(R"([{"subject":"the registry","looks":1}])"));
}
