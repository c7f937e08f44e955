// ctl_list.cpp - ivrexactl list and has: which services there are, asked without a trace.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "dll_monitor.h"
#include "herramienta.h"

using nlohmann::json;

namespace {

const uint32_t MS = 30000;

std::string lista(const std::vector<std::string> &mas = {}, const std::string &error = "")
{
    std::vector<std::string> args = {"list"};
    args.insert(args.end(), mas.begin(), mas.end());
    salida_de s = ejecuta_ctl(args);
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.error, error);
    return s.salida;
}

// "yes" or "no" as the output and the exit status both say.
std::string hay(const std::string &servicio, lugar donde = lugar::aqui())
{
    salida_de s = ejecuta_ctl({"has", servicio}, MS, {}, donde);
    EXPECT_EQ(s.error, "");
    EXPECT_EQ(s.codigo, s.salida == "yes\n" ? 0u : 1u);
    return en_lineas(s.salida).empty() ? "" : en_lineas(s.salida)[0];
}

const char *const NINGUNO = "ivrexactl list: the service table has no such name\n";

class ivrexactl_list : public testing::Test {
protected:
    ivrexactl_list() { vacia_registro(); }
    const std::string calc = nombre_unico("Calc"), otro = nombre_unico("Otro");
};

class ivrexactl_has : public ivrexactl_list {};

} // namespace

TEST_F(ivrexactl_list, da_los_nombres_de_la_tabla_uno_por_linea_y_los_que_empiezan_asi)
{
    papel servidor = arranca_servidor("ventana", calc + "," + otro);
    EXPECT_EQ(lista(), calc + "\n" + otro + "\n");
    EXPECT_EQ(lista({"Calc"}), calc + "\n");
    EXPECT_EQ(lista({calc}), calc + "\n");
    EXPECT_EQ(lista({""}), calc + "\n" + otro + "\n");
    EXPECT_EQ(lista({"calc"}, NINGUNO), "");
    EXPECT_EQ(lista({calc + "x"}, NINGUNO), "");
}

TEST_F(ivrexactl_list, sin_ningun_nombre_o_sin_registro_termina_con_0_y_lo_dice_aparte)
{
    EXPECT_EQ(lista({}, "ivrexactl list: no program is registered on this desktop\n"), "");
    EXPECT_EQ(lista({"--json"}), "{\"services\":[],\"torn\":false}\n");
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
    bloque_crudo registro("Ivrexa_MCB", 8886);
    EXPECT_EQ(lista({}, NINGUNO), "");
    EXPECT_EQ(lista({"--long"}, NINGUNO), "");
}

TEST_F(ivrexactl_list, con_long_y_con_json_da_version_y_servidor)
{
    papel servidor = arranca_servidor("sin_ventana", calc);
    papel cliente = arranca_cliente("sin_ventana", otro); // enters a name that nobody serves
    std::vector<std::string> lineas = en_lineas(lista({"--long"}));
    ASSERT_EQ(lineas.size(), 3u);
    std::string ancho(std::max(calc.size(), otro.size()) - 4, ' ');
    EXPECT_EQ(lineas[0], "name" + ancho + "  version  attached  server");
    EXPECT_EQ(lineas[1],
              calc + std::string(ancho.size() + 4 - calc.size(), ' ') + "  300      yes       " + ruta_de(servidor));
    EXPECT_EQ(lineas[2], otro + std::string(ancho.size() + 4 - otro.size(), ' ') + "  -        no        -");
    json j = json::parse(lista({"Calc", "--json"}));
    EXPECT_EQ(j["services"],
              json::array({json{
                  {"index", 0}, {"name", calc}, {"version", 300}, {"server", ruta_de(servidor)}, {"attached", true}}}));
    j = json::parse(lista({"Otro", "--json"}));
    EXPECT_EQ(j["services"],
              json::array({json{
                  {"index", 1}, {"name", otro}, {"version", nullptr}, {"server", nullptr}, {"attached", false}}}));
}

TEST_F(ivrexactl_list, un_nombre_con_controles_es_una_linea)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    registro.pon_texto(5814, "a\nb\x1b");
    registro.pon_u16(5814 + 64, 65535);
    EXPECT_EQ(lista(), "a\\nb\\x1b\n");
    EXPECT_EQ(en_lineas(lista({"--long"})).size(), 2u);
    EXPECT_EQ(json::parse(lista({"--json"}))["services"][0]["server"], nullptr);
}

// What the library finds first is the first that the tool lists, byte for byte or as the system compares.
TEST_F(ivrexactl_list, compara_como_la_biblioteca)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    registro.pon_texto(5814 + 5 * 96, "co-op");
    registro.pon_texto(5814 + 9 * 96, "Co");
    for (const char *prefijo : {"c", "C", "co", "coo", "co-", "CO", "Co", "x", "co-op", "co-opx"}) {
        std::string primera;
        salida_de s = ejecuta_ctl({"list", prefijo});
        EXPECT_EQ(s.codigo, 0u);
        if (!s.salida.empty())
            primera = en_lineas(s.salida)[0];
        char nombre[64] = "";
        ivrexa_hay_servicio_registrado_empiece_por(prefijo, nombre, nullptr); // no channel: only the name counts
        EXPECT_EQ(primera, nombre) << prefijo;
    }
}

TEST_F(ivrexactl_list, un_prefijo_que_ningun_nombre_puede_tener_termina_con_64)
{
    for (const std::string &prefijo : {std::string(64, 'a'), std::string("\xe6\x97\xa5\xe6\x9c\xac")}) {
        salida_de s = ejecuta_ctl({"list", prefijo});
        EXPECT_EQ(s.codigo, 64u);
        EXPECT_EQ(s.salida, "");
        EXPECT_NE(s.error.find("ivrexactl list: no name can begin with \""), std::string::npos) << s.error;
    }
    EXPECT_EQ(ejecuta_ctl({"list", std::string(63, 'a')}).codigo, 0u);
    EXPECT_NE(ejecuta_ctl({"list", "--help"}).salida.find("empties the table"), std::string::npos);
}

TEST_F(ivrexactl_has, dice_si_lo_hay_y_con_su_version_en_json)
{
    papel servidor = arranca_servidor("ventana", calc);
    EXPECT_EQ(hay(calc), "yes");
    EXPECT_EQ(hay(otro), "no");
    EXPECT_EQ(hay(calc.substr(0, calc.size() - 1)), "no");
    EXPECT_FALSE(existe_bloque(nombre_canal(otro).c_str()));
    salida_de s = ejecuta_ctl({"has", calc, "--json"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.salida, "{\"service\":\"" + calc + "\",\"has\":true,\"version\":300}\n");
    s = ejecuta_ctl({"has", otro, "--json"});
    EXPECT_EQ(s.codigo, 1u);
    EXPECT_EQ(s.salida, "{\"service\":\"" + otro + "\",\"has\":false,\"version\":null}\n");
    acaba(servidor);
    EXPECT_EQ(hay(calc), "no");
}

TEST_F(ivrexactl_has, un_monitor_que_vacia_la_tabla_no_quita_el_servicio)
{
    papel servidor = arranca_servidor("sin_ventana", calc);
    papel monitor = arranca_papel("monitor");
    monitor.di("REGISTRA " + std::to_string(monitor_ENTERO));
    monitor.espera_linea("REGISTRADO", MS);
    EXPECT_EQ(lista({}, NINGUNO), "");
    EXPECT_EQ(hay(calc), "yes");
}

// Both rules, the tool's and the library's, on the same bytes.
TEST_F(ivrexactl_has, decide_como_la_biblioteca)
{
    bloque_crudo canal(nombre_canal(calc).c_str(), 2378);
    struct {
        uint16_t terminado;
        uint32_t estado;
        const char *hay;
    } const filas[] = {{0, 0, "no"},   {0, 1, "yes"}, {0, 2, "yes"}, {0, 3, "yes"},
                       {0, 77, "yes"}, {1, 1, "no"},  {2, 1, "yes"}, {1, 0, "no"}};
    for (const auto &fila : filas) {
        canal.pon_u16(28, fila.terminado);
        canal.pon_u32(30, fila.estado);
        EXPECT_EQ(hay(calc), fila.hay) << fila.terminado << " " << fila.estado;
        EXPECT_EQ(ivrexa_hay_servicio_registrado(calc.c_str(), nullptr) == CIERTO, fila.hay == std::string("yes"));
    }
}

TEST_F(ivrexactl_has, un_canal_demasiado_pequenyo_o_que_miente_no_es_ninguno)
{
    bloque_crudo canal(nombre_canal(calc).c_str(), 100);
    canal.pon_u32(30, 1);
    for (uint32_t cabecera : {0u, 1u, 100u, 2377u}) {
        canal.pon_cabecera(cabecera);
        EXPECT_EQ(hay(calc), "no") << cabecera;
    }
}

// Who makes a channel writes its size a moment later. Here it comes and goes: a single look would meet it one time in
// five. That so much time goes by between two of it, as when the machine stalls, is not what is asked for.
TEST_F(ivrexactl_has, un_canal_recien_hecho_se_espera_hasta_que_dice_su_tamanyo)
{
    bloque_crudo canal(nombre_canal(calc).c_str(), 2378);
    canal.pon_u32(30, 1);
    std::atomic<bool> sigue{true};
    std::thread vaiven([&] {
        while (sigue) {
            canal.pon_cabecera(0);
            Sleep(8);
            canal.pon_cabecera(2378);
            Sleep(2);
        }
    });
    int veces = 0;
    for (int n = 0; n < 12; n++)
        veces += hay(calc) == "yes";
    sigue = false;
    vaiven.join();
    EXPECT_GE(veces, 9);
}

TEST_F(ivrexactl_has, ni_has_ni_list_registran_nada_ni_cambian_un_byte)
{
    papel servidor = arranca_servidor("sin_ventana", calc);
    bloque_crudo registro("Ivrexa_MCB"), canal(nombre_canal(calc).c_str());
    servidor.suspende(); // nobody else writes
    std::vector<uint8_t> antes = registro.bytes(0, 8886), canal_antes = canal.bytes(0, 2378);
    EXPECT_EQ(hay(calc), "yes");
    EXPECT_EQ(hay(otro), "no");
    lista();
    lista({"--long"});
    EXPECT_TRUE(bytes_iguales(antes, registro.bytes(0, 8886)));
    EXPECT_TRUE(bytes_iguales(canal_antes, canal.bytes(0, 2378)));
    servidor.reanuda();
}

TEST_F(ivrexactl_has, un_nombre_que_ningun_servicio_puede_tener_termina_con_64)
{
    for (const std::string &nombre : {std::string(), std::string(64, 'a'), std::string("\xe6\x97\xa5")}) {
        salida_de s = ejecuta_ctl({"has", nombre});
        EXPECT_EQ(s.codigo, 64u) << nombre;
        EXPECT_EQ(s.salida, "");
        EXPECT_NE(s.error, "");
    }
    EXPECT_EQ(ejecuta_ctl({"has"}).codigo, 64u);
    std::string largo = calc + std::string(63 - calc.size(), 'z');
    bloque_crudo canal(nombre_canal(largo).c_str(), 2378);
    canal.pon_u32(30, 1);
    EXPECT_EQ(hay(largo), "yes");
}
