// comun_registro_traza.cpp - pieces of the debug trace become records again, and the end of a command finds its
// beginning.
#include <algorithm>

#include <gtest/gtest.h>

#include "comun/registro_traza.h"

using namespace herramientas;
using clase = registro_traza::clase;
using pareja = registro_traza::pareja;

static const uint64_t SEGUNDO = 10000000;

struct montaje {
    explicit montaje(bool todos = false)
        : junta(todos, [this](registro_traza &r) {
              comandos.anota(r);
              registros.push_back(r);
          })
    {
    }
    void di(uint32_t pid, const std::string &trozo) { junta.anyade(pid, trozo, hora += 10000); }
    void acaba() { junta.acaba(); }

    uint64_t hora = SEGUNDO;
    empareja_comandos comandos;
    std::vector<registro_traza> registros;
    junta_registros junta;
};

static std::string inicio(uint32_t tick, const std::string &servicio, uint32_t id)
{
    return "\n*** " + std::to_string(tick) + ":  INICIO COMANDO " + servicio + " id_comando: " + std::to_string(id) +
           "\n    Datos de entrada\n    id_bloque_MCCom_entrada = 0\n    param1\"p\"\n\n";
}

static std::string fin(uint32_t tick, const std::string &servicio, uint32_t id,
                       const std::string &resultado = "    ERROR\n")
{
    return "\n*** " + std::to_string(tick) + ":  FIN COMANDO " + servicio + " id_comando: " + std::to_string(id) +
           "\n    Resultado " + resultado;
}

static std::string junto(const registro_traza &r)
{
    std::string texto;
    for (const std::string &l : r.lineas)
        texto += l + "/";
    return texto;
}

TEST(registro_traza, trozos_de_dos_programas_mezclados_se_separan)
{
    montaje m;
    const std::string uno = inicio(100, "A", 200) + fin(130, "A", 200, "    OK\n    id_datos_salida_comando = 101\n\n");
    const std::string otro = "\n*** 110: Registro Servidor c:\\s.exe hwnd=7\n*** Inicio registro Servidor" +
                             std::string("\n*** 111:  REGISTRO SERVICIO PRESTADO A Version 1\n");
    for (size_t i = 0; i < std::max(uno.size(), otro.size()); i++) { // a character of each in turn
        if (i < uno.size())
            m.di(1, uno.substr(i, 1));
        if (i < otro.size())
            m.di(2, otro.substr(i, 1));
    }
    m.acaba();
    std::vector<std::string> de_uno, de_otro;
    for (const registro_traza &r : m.registros)
        (r.pid == 1 ? de_uno : de_otro).push_back(junto(r));
    EXPECT_EQ(de_uno,
              (std::vector<std::string>{
                  "*** 100:  INICIO COMANDO A id_comando: 200/    Datos de entrada/    id_bloque_MCCom_entrada = 0/"
                  "    param1\"p\"/",
                  "*** 130:  FIN COMANDO A id_comando: 200/    Resultado     OK/    id_datos_salida_comando = 101/"}));
    EXPECT_EQ(de_otro,
              (std::vector<std::string>{"*** 110: Registro Servidor c:\\s.exe hwnd=7/", "*** Inicio registro Servidor/",
                                        "*** 111:  REGISTRO SERVICIO PRESTADO A Version 1/"}));
    EXPECT_EQ(m.junta.num_programas(), 2u);
}

TEST(registro_traza, el_fin_lleva_lo_que_tardo_tambien_si_el_contador_de_ticks_dio_la_vuelta)
{
    montaje m;
    m.di(1, inicio(1000, "Calc uno", 200) + fin(1301, "Calc uno", 200) + inicio(4294967290u, "B", 4294967295u) +
                fin(10, "B", 4294967295u));
    m.acaba();
    ASSERT_EQ(m.registros.size(), 4u);
    EXPECT_EQ(m.registros[0].que, clase::inicio);
    EXPECT_EQ(m.registros[1].que, clase::fin);
    EXPECT_EQ(m.registros[1].con, pareja::hallada);
    EXPECT_EQ(m.registros[1].ms, 301u);
    EXPECT_EQ(m.registros[3].ms, 16u);
    EXPECT_EQ(m.registros[3].id_comando, 4294967295u);
    EXPECT_EQ(m.comandos.num_comandos(), 2u);
    EXPECT_TRUE(m.comandos.sin_fin().empty());
}

TEST(registro_traza, un_comando_dentro_de_otro_y_el_mismo_en_dos_programas_encuentran_cada_uno_el_suyo)
{
    montaje m;
    m.di(1, inicio(100, "A", 200));
    m.di(2, inicio(105, "A", 200));
    m.di(1, inicio(110, "B", 200) + inicio(120, "A", 200) + fin(125, "A", 200)); // the innermost of the same name first
    m.di(2, fin(180, "A", 200));
    m.di(1, fin(150, "B", 200) + fin(190, "A", 200) + fin(195, "A", 201));
    m.acaba();
    std::vector<std::pair<uint32_t, uint32_t>> ms;
    for (const registro_traza &r : m.registros)
        if (r.con == pareja::hallada)
            ms.push_back({r.pid, r.ms});
    EXPECT_EQ(std::vector<std::vector<uint32_t>>({{1, 5}, {1, 40}, {1, 90}, {2, 75}}).size(), ms.size());
    for (std::pair<uint32_t, uint32_t> esperado : {std::pair<uint32_t, uint32_t>{1, 5}, {2, 75}, {1, 40}, {1, 90}})
        EXPECT_EQ(std::count(ms.begin(), ms.end(), esperado), 1) << esperado.second;
    EXPECT_EQ(m.comandos.num_sueltos(), 1u);
}

TEST(registro_traza, un_fin_sin_inicio_y_un_inicio_sin_fin_se_dicen)
{
    montaje m;
    m.di(1, fin(90, "A", 200) + inicio(100, "A", 201) + fin(140, "A", 202));
    m.acaba();
    EXPECT_EQ(m.registros[0].con, pareja::suelta);
    EXPECT_EQ(m.registros[2].con, pareja::suelta);
    EXPECT_EQ(m.comandos.num_sueltos(), 2u);
    ASSERT_EQ(m.comandos.sin_fin().size(), 1u);
    EXPECT_EQ(m.comandos.sin_fin()[0].id_comando, 201u);
    EXPECT_EQ(m.comandos.num_comandos(), 0u);
}

// A server writes no INICIO: its FIN is not loose, and is measured from the client's.
TEST(registro_traza, el_fin_de_un_servidor_se_mide_desde_el_inicio_del_cliente)
{
    for (bool conocido : {true, false}) {
        montaje m;
        if (conocido)
            m.di(2, "\n*** 10:  REGISTRO SERVICIO PRESTADO A Version 1\n");
        m.di(1, inicio(100, "A", 200));
        m.di(1, fin(160, "A", 200));
        m.di(1, "x\n");
        m.di(2, fin(140, "A", 200, "")); // arrives behind the client's, and ends without a line end
        m.di(2, fin(170, "A", 200, "")); // not within that command
        m.acaba();
        const registro_traza &dentro = m.registros[m.registros.size() - 2], &fuera = m.registros.back();
        EXPECT_EQ(junto(dentro), "*** 140:  FIN COMANDO A id_comando: 200/    Resultado /");
        EXPECT_EQ(dentro.con, pareja::del_servidor);
        EXPECT_TRUE(dentro.hay_ms);
        EXPECT_EQ(dentro.ms, 40u);
        EXPECT_EQ(dentro.pid_cliente, 1u);
        EXPECT_EQ(fuera.con, conocido ? pareja::del_servidor : pareja::suelta);
        EXPECT_FALSE(fuera.hay_ms);
        EXPECT_EQ(m.comandos.num_comandos(), 1u);
    }
}

// Only a client gets texts back: while another client's command is open, its FIN is not taken for the server's.
TEST(registro_traza, un_fin_con_textos_es_de_un_cliente)
{
    montaje m;
    m.di(1, inicio(100, "A", 200));
    m.di(2, fin(140, "A", 200, "    OK\n    serv_buffer_64\"x\"\n\n"));
    m.acaba();
    EXPECT_EQ(m.registros.back().con, pareja::suelta);
}

TEST(registro_traza, un_texto_con_fines_de_linea_sigue_en_su_registro)
{
    montaje m;
    m.di(1, "\n*** 7:  INICIO COMANDO A id_comando: 1\n    Datos de entrada\n    param1\"\nuno\n\ndos\"\n    "
            "param2\"tres\"\n\nsuelta\n");
    m.di(1, "\n*** 8:  INICIO COMANDO A id_comando: 1\n    param1\"no se cierra\n\n*** 9: BUCLE X\n    y\n");
    m.acaba();
    ASSERT_EQ(m.registros.size(), 4u);
    EXPECT_EQ(junto(m.registros[0]),
              "*** 7:  INICIO COMANDO A id_comando: 1/    Datos de entrada/    param1\"/uno//dos\"/"
              "    param2\"tres\"/");
    EXPECT_EQ(m.registros[1].que, clase::linea);
    EXPECT_EQ(junto(m.registros[1]), "suelta/");
    EXPECT_EQ(junto(m.registros[3]), "*** 9: BUCLE X/    y/"); // a header opens a record in any case
}

TEST(registro_traza, lo_que_dicen_programas_ajenos_no_entra_y_lo_dicho_antes_del_primer_registro_si)
{
    for (bool todos : {false, true}) {
        montaje m(todos);
        m.di(1, "HeapCreate: 17\n");
        m.di(9, "*** hello: 5\n*** 5 : x\n***5: x\n    ajena\n");
        m.di(1, "\n*** 5:  ESTOY VIVO 0\n");
        m.acaba();
        std::vector<std::string> de_uno, ajenas;
        for (const registro_traza &r : m.registros)
            (r.pid == 1 ? de_uno : ajenas).push_back(junto(r));
        EXPECT_EQ(de_uno, (std::vector<std::string>{"HeapCreate: 17/", "*** 5:  ESTOY VIVO 0/"}));
        EXPECT_EQ(ajenas.size(), todos ? 4u : 0u);
        EXPECT_EQ(m.junta.num_programas(), 1u);
    }
}

// A program may go on for days before it uses the library, or never do so.
TEST(registro_traza, de_lo_dicho_antes_del_primer_registro_se_guarda_lo_ultimo_hasta_128_KiB)
{
    for (size_t largo : {size_t(60000), size_t(10)}) {
        montaje m;
        for (int i = 0; i<20000; i += largo> 10 ? 1000 : 1)
            m.di(1, std::to_string(i) + std::string(largo, '.') + "\n");
        m.di(1, "\n*** 5:  ESTOY VIVO 0\n");
        m.acaba();
        ASSERT_GE(m.registros.size(), 3u);
        EXPECT_EQ(junto(m.registros.back()), "*** 5:  ESTOY VIVO 0/");
        EXPECT_EQ(junto(m.registros[m.registros.size() - 2]).substr(0, 5), largo > 10 ? "19000" : "19999");
        size_t num = 0;
        for (const registro_traza &r : m.registros)
            num += junto(r).size();
        EXPECT_LE(num, 128u << 10);
        EXPECT_GT(num, 1000u);
    }
}

TEST(registro_traza, un_registro_se_entrega_cuando_su_programa_calla)
{
    montaje m;
    m.di(1, fin(50, "A", 9, ""));
    m.junta.vence(m.hora + SEGUNDO / 10);
    EXPECT_TRUE(m.registros.empty());
    m.junta.vence(m.hora + SEGUNDO);
    ASSERT_EQ(m.registros.size(), 1u);
    EXPECT_EQ(junto(m.registros[0]), "*** 50:  FIN COMANDO A id_comando: 9/    Resultado /");
}

TEST(registro_traza, duraciones_con_minimo_mediana_y_maximo)
{
    montaje m;
    for (uint32_t ms : {30u, 10u, 20u, 40u})
        m.di(1, inicio(100, "A", 1) + fin(100 + ms, "A", 1));
    for (uint32_t ms : {7u, 5u, 900u})
        m.di(1, inicio(100, "A", 2) + fin(100 + ms, "A", 2));
    m.acaba();
    auto d = m.comandos.duraciones();
    ASSERT_EQ(d.size(), 2u);
    auto una = d[{"A", 1}], otra = d[{"A", 2}];
    EXPECT_EQ(std::vector<size_t>({una.num, una.minimo, una.mediana, una.maximo}),
              std::vector<size_t>({4, 10, 25, 40}));
    EXPECT_EQ(std::vector<size_t>({otra.num, otra.minimo, otra.mediana, otra.maximo}),
              std::vector<size_t>({3, 5, 7, 900}));
}

// A program's heartbeat comes every two seconds, in the middle of what its other threads write. Headers that are
// written at once have the same tick count, but for some milliseconds.
TEST(registro_traza, un_latido_entre_los_trozos_de_un_comando_no_lo_estropea_este_donde_este)
{
    const std::vector<std::string> latido = {"\n*** ", "51736780", ": ", " ESTOY VIVO ", "1", "\n"};
    const std::vector<std::string> comando = {"\n*** ",
                                              "51736780",
                                              ": ",
                                              " INICIO COMANDO ",
                                              "A",
                                              " id_comando: ",
                                              "200",
                                              "\n",
                                              "    Datos de entrada\n",
                                              "    id_bloque_MCCom_entrada",
                                              " = ",
                                              "100",
                                              "\n",
                                              "    param1",
                                              "\"",
                                              "p",
                                              "\"",
                                              "\n",
                                              "\n",
                                              "[s_LocalHeap=",
                                              "131072",
                                              "] ",
                                              "i_malloc(",
                                              "48",
                                              "): memlocal = ",
                                              "140737",
                                              "\n",
                                              "\n*** ",
                                              "51736780",
                                              ": ",
                                              " FIN COMANDO ",
                                              "A",
                                              " id_comando: ",
                                              "200",
                                              "\n",
                                              "    Resultado ",
                                              "    ERROR\n"};
    const std::vector<std::string> esperados = {
        "*** 51736780:  INICIO COMANDO A id_comando: 200/    Datos de entrada/    id_bloque_MCCom_entrada = 100/    "
        "param1\"p\"/",
        "[s_LocalHeap=131072] i_malloc(48): memlocal = 140737/",
        "*** 51736780:  FIN COMANDO A id_comando: 200/    Resultado     ERROR/"};
    for (size_t sitio = 0; sitio <= comando.size(); sitio++)
        for (size_t cada : {0u, 1u, 2u}) { // the heartbeat in one go, and in turn with one or two of the other's pieces
            montaje m;
            size_t l = 0;
            auto late = [&](size_t num) {
                for (; num > 0 && l < latido.size(); num--)
                    m.di(1, latido[l++]);
            };
            for (size_t i = 0; i < comando.size(); i++) {
                if (i >= sitio)
                    late(cada == 0 ? latido.size() : i % cada == 0 ? 1 : 0);
                m.di(1, comando[i]);
            }
            late(latido.size());
            m.acaba();
            std::vector<std::string> dichos;
            size_t latidos = 0;
            for (const registro_traza &r : m.registros)
                if (junto(r).find("ESTOY VIVO 1/") != std::string::npos)
                    latidos++;
                else
                    dichos.push_back(junto(r));
            EXPECT_EQ(dichos, esperados) << "heartbeat at piece " << sitio << ", every " << cada;
            EXPECT_EQ(latidos, 1u) << "heartbeat at piece " << sitio << ", every " << cada;
            EXPECT_EQ(m.comandos.num_comandos(), 1u);
        }
}

// Threads of one program that trace at once mix their pieces for good. What follows is right again.
TEST(registro_traza, trozos_mezclados_sin_remedio_no_estropean_los_siguientes)
{
    montaje m;
    m.di(1, "\n*** \n*** 1212: : BUCLE X ESTOY VIVO 3\n\n    FIN COMANDO\"\n" + std::string(200000, 'x') + "\n");
    m.di(1, inicio(100, "A", 1) + fin(103, "A", 1));
    m.acaba();
    EXPECT_EQ(m.registros.back().ms, 3u);
    EXPECT_EQ(m.registros.back().con, pareja::hallada);
}
