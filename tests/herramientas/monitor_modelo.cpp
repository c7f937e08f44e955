// monitor_modelo.cpp - the monitor's history without a window: what is kept, what is shown, and what is saved.
#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <windows.h>
#include <psapi.h>

#include "ivrexa-monitor/modelo.h"

using namespace monitor;
using herramientas::valor;

static suceso comando(uint64_t numero, const std::string &servicio = "Calc")
{
    suceso s;
    s.numero = numero;
    s.hora_100ns = 134000000000000000ull + numero * 10000;
    s.quien = lado::cliente;
    s.que = clase::comando;
    s.empieza = true;
    s.servicio = servicio;
    s.id_comando = 200;
    return s;
}

static suceso de_clase(uint64_t numero, clase que)
{
    suceso s = comando(numero);
    s.que = que;
    return s;
}

static suceso hueco(uint64_t numero, uint64_t perdidos)
{
    suceso s;
    s.numero = numero;
    s.que = clase::hueco;
    s.perdidos = perdidos;
    return s;
}

static filtro de_servicio(const std::string &texto)
{
    filtro f;
    f.servicio = texto;
    return f;
}

static filtro de_clases(std::vector<clase> clases)
{
    filtro f;
    f.clases = 0;
    for (clase c : clases)
        f.clases |= bit_de(c);
    return f;
}

static std::vector<uint64_t> mostrados(const historia &h)
{
    std::vector<uint64_t> numeros;
    for (size_t i = 0; i < h.num_visibles(); i++)
        numeros.push_back(h.visible(i).numero);
    return numeros;
}

using numeros = std::vector<uint64_t>;

// ---- Bound and places

TEST(monitor_modelo, pasado_el_limite_se_descartan_los_mas_viejos_y_se_cuentan)
{
    historia h(3);
    for (uint64_t n = 1; n <= 3; n++)
        h.anyade(comando(n));
    EXPECT_EQ(h.num_descartados(), 0u);
    h.anyade(comando(4));
    h.anyade(comando(5));
    EXPECT_EQ(mostrados(h), (numeros{3, 4, 5}));
    EXPECT_EQ(h.num_sucesos(), 3u);
    EXPECT_EQ(h.num_descartados(), 2u);
    EXPECT_EQ(h.sitio_visible(2), std::nullopt);
    EXPECT_EQ(h.sitio_visible(3), 0u);
    EXPECT_EQ(h.sitio_visible(5), 2u);
    EXPECT_EQ(h.sitio_visible(6), std::nullopt);
}

TEST(monitor_modelo, los_sitios_son_los_de_lo_mostrado_tambien_cuando_lo_no_mostrado_se_descarta)
{
    historia h(4);
    h.filtra(de_servicio("uno"));
    for (uint64_t n = 1; n <= 4; n++)
        h.anyade(comando(n, n % 2 != 0 ? "uno" : "dos"));
    EXPECT_EQ(mostrados(h), (numeros{1, 3}));
    h.anyade(comando(5, "dos")); // drops 1, which is shown
    EXPECT_EQ(mostrados(h), (numeros{3}));
    h.anyade(comando(6, "uno")); // drops 2, which is not
    EXPECT_EQ(mostrados(h), (numeros{3, 6}));
    EXPECT_EQ(h.sitio_visible(3), 0u);
    EXPECT_EQ(h.sitio_visible(4), std::nullopt);
    EXPECT_EQ(h.sitio_visible(6), 1u);
    h.filtra({});
    EXPECT_EQ(mostrados(h), (numeros{3, 4, 5, 6}));
    EXPECT_EQ(h.sitio_visible(6), 3u);
    EXPECT_EQ(h.num_descartados(), 2u);
}

// ---- Filter

TEST(monitor_modelo, el_filtro_por_servicio_busca_una_parte_del_nombre_en_cualquier_caja)
{
    struct fila {
        const char *filtro, *servicio;
        bool pasa;
    };
    const fila filas[] = {
        {"", "Calc", true},
        {"", "", true},
        {"calc", "Calc", true},
        {"CALC", "Calc", true},
        {"al", "Calc", true},
        {"lc", "CALC", true},
        {"calcs", "Calc", false},
        {"d", "Calc", false},
        {"a", "", false},
        {"c l", "Calc", false},
        {"*", "Calc", false}, // no wildcards: a part of the name
        {"\xc3\xb1",
         "Espa\xc3\x91"
         "a",
         true},                                           // ñ, Ñ
        {"\xc3\x89T\xc3\x89", "\xc3\xa9t\xc3\xa9", true}, // ÉTÉ, été
        {"e", "\xc3\xa9t\xc3\xa9", false},                // an accent is a difference
        {"\xd0\xbf\xd1\x80\xd0\xb8", "\xd0\x9f\xd0\xa0\xd0\x98\xd0\x92\xd0\x95\xd0\xa2", true}, // при, ПРИВЕТ
        {"\xce\xa9", "\xcf\x89", true},                                                         // Ω, ω
        {"\xf0\x9f\x98\x80",
         "a\xf0\x9f\x98\x80"
         "b",
         true}, // beyond 16 bits
    };
    for (const fila &f : filas)
        EXPECT_EQ(pasa(de_servicio(f.filtro), comando(1, f.servicio)), f.pasa) << f.filtro << " in " << f.servicio;
}

TEST(monitor_modelo, el_filtro_por_clases_deja_solo_las_elegidas)
{
    const clase todas[] = {clase::servicio, clase::comando, clase::entrada, clase::salida, clase::espera, clase::otra};
    for (clase elegida : todas)
        for (clase que : todas)
            EXPECT_EQ(pasa(de_clases({elegida}), de_clase(1, que)), elegida == que)
                << static_cast<int>(elegida) << " " << static_cast<int>(que);
    EXPECT_TRUE(pasa(de_clases({clase::entrada, clase::salida}), de_clase(1, clase::salida)));
    EXPECT_FALSE(pasa(de_clases({}), de_clase(1, clase::comando)));
    filtro ambos = de_clases({clase::comando});
    ambos.servicio = "otro";
    EXPECT_FALSE(pasa(ambos, comando(1, "Calc")));
    EXPECT_TRUE(pasa(ambos, comando(1, "otros")));
}

TEST(monitor_modelo, los_huecos_se_muestran_con_cualquier_filtro_y_lo_perdido_se_suma)
{
    historia h;
    filtro nada = de_clases({});
    nada.servicio = "nobody";
    h.filtra(nada);
    h.anyade(comando(1));
    h.anyade(hueco(2, 12));
    h.anyade(comando(3));
    h.anyade(hueco(4, 30));
    EXPECT_EQ(mostrados(h), (numeros{2, 4}));
    EXPECT_EQ(h.num_perdidos(), 42u);
    EXPECT_EQ(h.num_sucesos(), 4u);
}

TEST(monitor_modelo, cambiar_el_filtro_muestra_tambien_lo_que_ya_estaba_guardado)
{
    historia h;
    h.filtra(de_servicio("uno"));
    h.anyade(comando(1, "uno"));
    h.anyade(comando(2, "dos"));
    h.filtra(de_servicio("dos"));
    EXPECT_EQ(mostrados(h), (numeros{2}));
    h.anyade(comando(3, "dos"));
    h.anyade(comando(4, "uno"));
    EXPECT_EQ(mostrados(h), (numeros{2, 3}));
    h.filtra({});
    EXPECT_EQ(mostrados(h), (numeros{1, 2, 3, 4}));
}

// ---- Pause and clear

TEST(monitor_modelo, en_pausa_lo_mostrado_no_cambia_y_lo_que_llega_entra_al_final_de_ella)
{
    historia h;
    h.anyade(comando(1));
    h.pausa(true);
    EXPECT_TRUE(h.parada());
    h.anyade(comando(2, "dos"));
    h.anyade(hueco(3, 7));
    EXPECT_EQ(mostrados(h), (numeros{1}));
    EXPECT_EQ(h.num_aparte(), 2u);
    EXPECT_EQ(h.num_perdidos(), 7u) << "what is lost is told at once";
    h.filtra(de_servicio("dos"));
    EXPECT_EQ(mostrados(h), (numeros{})) << "a filter works on what stands still";
    h.pausa(true);
    EXPECT_EQ(h.num_aparte(), 2u) << "paused twice";
    h.pausa(false);
    EXPECT_FALSE(h.parada());
    EXPECT_EQ(mostrados(h), (numeros{2, 3}));
    EXPECT_EQ(h.num_aparte(), 0u);
    EXPECT_EQ(h.num_sucesos(), 3u);
    EXPECT_EQ(h.num_perdidos(), 7u) << "counted once";
    h.anyade(comando(4, "dos"));
    EXPECT_EQ(mostrados(h), (numeros{2, 3, 4}));
}

TEST(monitor_modelo, una_pausa_larga_guarda_aparte_hasta_el_limite_y_cuenta_lo_descartado)
{
    historia h(4);
    for (uint64_t n = 1; n <= 3; n++)
        h.anyade(comando(n));
    h.pausa(true);
    for (uint64_t n = 4; n <= 9; n++)
        h.anyade(comando(n));
    EXPECT_EQ(mostrados(h), (numeros{1, 2, 3})) << "stands still whatever comes";
    EXPECT_EQ(h.num_aparte(), 4u);
    EXPECT_EQ(h.num_descartados(), 2u); // 4 and 5
    h.pausa(false);
    EXPECT_EQ(mostrados(h), (numeros{6, 7, 8, 9}));
    EXPECT_EQ(h.num_descartados(), 5u); // and 1 to 3
    EXPECT_EQ(h.num_sucesos() + h.num_descartados(), 9u) << "every event is kept or told as dropped";
}

TEST(monitor_modelo, limpiar_vacia_tambien_lo_apartado_y_las_cuentas_pero_no_la_pausa_ni_el_filtro)
{
    historia h(2);
    h.filtra(de_servicio("uno"));
    for (uint64_t n = 1; n <= 3; n++)
        h.anyade(comando(n, "uno"));
    h.anyade(hueco(4, 5));
    h.pausa(true);
    h.anyade(comando(5, "uno"));
    h.limpia();
    EXPECT_EQ(h.num_visibles() + h.num_sucesos() + h.num_aparte(), 0u);
    EXPECT_EQ(h.num_descartados(), 0u);
    EXPECT_EQ(h.num_perdidos(), 0u);
    EXPECT_TRUE(h.parada());
    h.anyade(comando(6, "uno"));
    EXPECT_EQ(h.num_aparte(), 1u);
    h.pausa(false);
    h.anyade(comando(7, "dos"));
    EXPECT_EQ(mostrados(h), (numeros{6}));
    EXPECT_EQ(h.sitio_visible(6), 0u);
}

// ---- Cost

static double segundos(const std::function<void()> &hace)
{
    auto antes = std::chrono::steady_clock::now();
    hace();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - antes).count();
}

static size_t memoria_propia()
{
    PROCESS_MEMORY_COUNTERS m = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &m, sizeof m);
    return m.PagefileUsage;
}

static const char *const VARIOS[] = {"Calculadora", "Un servicio de nombre largo que no cabe en el propio texto",
                                     "Eco"};

// Events `desde` to `hasta` into a full history: the seconds for one of them.
static double coste_de_cada_uno(historia *h, uint64_t *ultimo, uint64_t cuantos)
{
    double s = segundos([&] {
        for (uint64_t i = 0; i < cuantos; i++, ++*ultimo)
            h->anyade(comando(*ultimo + 1, VARIOS[*ultimo % 3]));
    });
    return s / static_cast<double>(cuantos);
}

TEST(monitor_modelo, un_millon_de_sucesos_en_200000_cuesta_por_suceso_lo_que_en_1000)
{
    historia pequenya(1000), grande(200000);
    uint64_t n_pequenya = 0, n_grande = 0;
    for (historia *h : {&pequenya, &grande})
        h->filtra(de_servicio("servicio"));
    coste_de_cada_uno(&pequenya, &n_pequenya, 1000);
    coste_de_cada_uno(&grande, &n_grande, 200000);
    // The two take turns, and the least of each counts: others may take the processor meanwhile.
    double menor_pequenya = 1e9, menor_grande = 1e9;
    for (int turno = 0; turno < 8; turno++) {
        menor_pequenya = std::min(menor_pequenya, coste_de_cada_uno(&pequenya, &n_pequenya, 100000));
        menor_grande = std::min(menor_grande, coste_de_cada_uno(&grande, &n_grande, 100000));
    }
    EXPECT_EQ(n_grande, 1000000u);
    EXPECT_EQ(grande.num_sucesos(), 200000u);
    EXPECT_EQ(grande.num_descartados(), 800000u);
    ASSERT_EQ(grande.num_visibles(), 66666u);
    EXPECT_EQ(grande.visible(66665).numero, 999998u);
    EXPECT_LT(menor_grande / menor_pequenya, 4.0) << menor_grande * 1e9 << " ns, " << menor_pequenya * 1e9 << " ns";
    EXPECT_LT(menor_grande, 100e-6) << "1,000 events a second are to leave the processor nine tenths of its time";
    RecordProperty("ns_for_one_of_200000", std::to_string(menor_grande * 1e9));
}

TEST(monitor_modelo, la_memoria_no_crece_con_lo_descartado)
{
    historia h(200000);
    uint64_t n = 0;
    coste_de_cada_uno(&h, &n, 250000);
    size_t llena = memoria_propia();
    coste_de_cada_uno(&h, &n, 750000);
    size_t despues = memoria_propia();
    EXPECT_LT(llena, 400u << 20) << "a full history";
    EXPECT_LT(despues, llena + (20u << 20)) << "750,000 events later";
}

TEST(monitor_modelo, cambiar_el_filtro_de_200000_sucesos_y_hallar_sitios_no_se_nota)
{
    historia h(200000);
    uint64_t n = 0;
    coste_de_cada_uno(&h, &n, 200000);
    EXPECT_LT(segundos([&] { h.filtra(de_servicio("ECO")); }), 2.0);
    EXPECT_EQ(h.num_visibles(), 66666u);
    EXPECT_LT(segundos([&] { h.filtra({}); }), 1.0);
    EXPECT_EQ(h.num_visibles(), 200000u);
    double s = segundos([&] {
        for (uint64_t numero = 1; numero <= 200000; numero++)
            ASSERT_EQ(h.sitio_visible(numero), numero - 1);
    });
    EXPECT_LT(s, 2.0);
}

// ---- What the blocks held

static contenido con_texto(const std::string &texto)
{
    valor v;
    v.tipo = 6;
    v.nombre = "t";
    v.texto = texto;
    contenido c;
    c.valores.push_back(v);
    return c;
}

TEST(monitor_modelo, los_contenidos_se_hallan_por_el_numero_y_los_mas_viejos_se_olvidan)
{
    contenidos c(10000);
    EXPECT_EQ(c.de(1), nullptr);
    for (uint64_t n = 1; n <= 3; n++)
        c.guarda(n, con_texto(std::string(3500, 'x') + std::to_string(n)));
    EXPECT_EQ(c.de(1), nullptr) << "the oldest goes";
    ASSERT_NE(c.de(2), nullptr);
    EXPECT_EQ(c.de(2)->valores[0].texto, std::string(3500, 'x') + "2");
    ASSERT_NE(c.de(3), nullptr);
    c.guarda(3, con_texto("tres")); // in place of the other: its room is free again
    c.guarda(4, con_texto(std::string(3500, 'y')));
    ASSERT_NE(c.de(2), nullptr);
    EXPECT_EQ(c.de(3)->valores[0].texto, "tres");
    c.limpia();
    EXPECT_EQ(c.de(3), nullptr);
    c.guarda(5, con_texto(std::string(9000, 'z')));
    EXPECT_NE(c.de(5), nullptr) << "the whole room is free";
}

TEST(monitor_modelo, cada_parte_de_un_contenido_cuenta_y_uno_mayor_que_todo_no_se_guarda)
{
    struct caso {
        const char *que;
        contenido c;
    };
    contenido nombre = con_texto(""), bytes = con_texto(""), textos = con_texto(""), muchos, fallo;
    nombre.valores[0].nombre = std::string(20000, 'n');
    bytes.valores[0].bytes.resize(20000);
    textos.valores[0].textos = {std::string(10000, 'a'), std::nullopt, std::string(10000, 'b')};
    muchos.valores.resize(500);
    fallo.fallo = std::string(20000, 'f');
    for (const caso &x : {caso{"text", con_texto(std::string(20000, 't'))}, caso{"name", nombre}, caso{"bytes", bytes},
                          caso{"array", textos}, caso{"many", muchos}, caso{"error", fallo}}) {
        contenidos c(10000);
        c.guarda(1, con_texto("pequenyo"));
        c.guarda(2, x.c);
        EXPECT_EQ(c.de(2), nullptr) << x.que;
        EXPECT_NE(c.de(1), nullptr) << x.que << ": nothing goes for its sake";
        c.guarda(3, con_texto("otro"));
        EXPECT_NE(c.de(3), nullptr) << x.que;
    }
}

TEST(monitor_modelo, los_contenidos_pasan_a_otros_dentro_del_limite_de_estos)
{
    contenidos unos(100000), otros(10000);
    for (uint64_t n = 1; n <= 3; n++)
        unos.guarda(n, con_texto(std::string(3500, 'x') + std::to_string(n)));
    unos.pasa_a(&otros);
    EXPECT_EQ(unos.de(3), nullptr);
    EXPECT_EQ(otros.de(1), nullptr) << "the oldest goes";
    ASSERT_NE(otros.de(3), nullptr);
    EXPECT_EQ(otros.de(3)->valores[0].texto, std::string(3500, 'x') + "3");
    unos.guarda(4, con_texto(std::string(90000, 'y')));
    EXPECT_NE(unos.de(4), nullptr) << "the whole room is free";
}

// ---- Whether a block's number is still that block's

static suceso de_servicio_ansi(uint64_t numero, clase que, const std::string &servicio)
{
    suceso s = de_clase(numero, que);
    s.servicio = s.servicio_ansi = servicio;
    return s;
}

TEST(monitor_modelo, un_canal_sigue_hasta_que_su_servicio_se_ofrece_o_se_cierra_o_hay_un_hueco)
{
    vidas v;
    const suceso uno = de_servicio_ansi(2, clase::entrada, "Uno"), dos = de_servicio_ansi(3, clase::entrada, "Dos");
    v.anota(de_servicio_ansi(1, clase::servicio, "Uno"));
    v.anota(uno);
    v.anota(dos);
    v.anota(de_servicio_ansi(4, clase::comando, "Uno"));
    v.anota(de_servicio_ansi(5, clase::salida, "Uno"));
    EXPECT_TRUE(v.sigue(uno) && v.sigue(dos));
    v.anota(de_servicio_ansi(6, clase::servicio, "Uno"));
    EXPECT_FALSE(v.sigue(uno));
    EXPECT_TRUE(v.sigue(dos)) << "the other service has told nothing";
    const suceso nuevo = de_servicio_ansi(7, clase::entrada, "Uno");
    v.anota(nuevo);
    EXPECT_TRUE(v.sigue(nuevo));
    v.anota(hueco(8, 1));
    EXPECT_FALSE(v.sigue(nuevo) || v.sigue(dos)) << "what is lost may have been of any service";
    const suceso ultimo = de_servicio_ansi(9, clase::entrada, "Dos");
    v.anota(ultimo);
    EXPECT_TRUE(v.sigue(ultimo));
    v.acaban_todas();
    EXPECT_FALSE(v.sigue(ultimo));
    EXPECT_TRUE(v.sigue(de_servicio_ansi(10, clase::entrada, "Dos")));
}

TEST(monitor_modelo, servicios_sin_fin_no_hacen_crecer_lo_que_se_recuerda_de_sus_canales)
{
    vidas v;
    const suceso primero = de_servicio_ansi(1, clase::entrada, "Calc");
    v.anota(primero);
    size_t antes = memoria_propia();
    for (uint64_t n = 2; n <= 300000; n++)
        v.anota(de_servicio_ansi(n, clase::servicio, "a name that is another each time " + std::to_string(n)));
    EXPECT_LT(memoria_propia(), antes + (20u << 20));
    EXPECT_FALSE(v.sigue(primero)) << "in doubt it does not";
    EXPECT_TRUE(v.sigue(de_servicio_ansi(300001, clase::entrada, "Calc")));
}

// ---- Files

static const std::string CABECERA = "\xef\xbb\xbfn,time,side,kind,event,service,command,block,state,lost\r\n";

TEST(monitor_modelo, el_csv_de_nada_es_su_cabecera)
{
    EXPECT_EQ(como_csv(historia()), CABECERA);
    EXPECT_EQ(como_json_lineas(historia(), contenidos()), "");
}

TEST(monitor_modelo, el_csv_tiene_una_linea_por_suceso_mostrado)
{
    historia h;
    suceso s = comando(1);
    s.hora_100ns = 134397517501230000ull;
    h.anyade(s);
    s.numero = 2;
    s.que = clase::salida;
    s.quien = lado::servidor;
    s.id_bloque = 101;
    h.anyade(s);
    s = de_clase(3, clase::espera);
    s.hora_100ns = 134397517501230000ull;
    s.id_comando = 0;
    s.estado = 0;
    h.anyade(s);
    s = hueco(4, 12);
    s.hora_100ns = 134397517501230000ull;
    h.anyade(s);
    h.anyade(de_clase(5, clase::servicio)); // not shown
    h.filtra(de_clases({clase::comando, clase::salida, clase::espera}));
    std::string hora = "2026-11-21T16:22:30.123Z";
    EXPECT_EQ(como_csv(h), CABECERA + "1," + hora + ",client,command,command begins,Calc,200,,,\r\n2," + hora +
                               ",server,output,output saved,Calc,200,101,,\r\n3," + hora + ",client,wait," +
                               herramientas::describe(h.visible(2)) + ",Calc,,,0,\r\n4," + hora +
                               ",,gap,12 activities lost,,,,,12\r\n");
}

// RFC 4180, taken apart again.
static std::vector<std::vector<std::string>> deshaz_csv(const std::string &csv)
{
    std::vector<std::vector<std::string>> filas(1, std::vector<std::string>(1));
    bool entre = false;
    for (size_t i = 0; i < csv.size(); i++) {
        char c = csv[i];
        if (entre && c == '"' && i + 1 < csv.size() && csv[i + 1] == '"')
            filas.back().back() += csv[++i];
        else if (c == '"')
            entre = !entre;
        else if (!entre && c == ',')
            filas.back().emplace_back();
        else if (!entre && c == '\r' && i + 1 < csv.size() && csv[i + 1] == '\n') {
            filas.emplace_back(1);
            i++;
        } else
            filas.back().back() += c;
    }
    EXPECT_FALSE(entre);
    EXPECT_EQ(filas.back(), std::vector<std::string>{""}) << "the last line has its end";
    filas.pop_back();
    return filas;
}

TEST(monitor_modelo, el_csv_entrecomilla_y_desarma_las_formulas)
{
    struct fila {
        const char *servicio, *celda, *leida;
    };
    const fila filas[] = {
        {"Calc", "Calc", "Calc"},
        {"a,b", "\"a,b\"", "a,b"},
        {"di \"hola\"", "\"di \"\"hola\"\"\"", "di \"hola\""},
        {"\"", "\"\"\"\"", "\""},
        {"a\nb", "\"a\nb\"", "a\nb"},
        {"a\r\nb", "\"a\r\nb\"", "a\r\nb"},
        {" a ", " a ", " a "},
        {"a=1", "a=1", "a=1"},
        {"=1+1", "\"'=1+1\"", "'=1+1"},
        {"+1", "\"'+1\"", "'+1"},
        {"-1", "\"'-1\"", "'-1"},
        {"@SUM(A1)", "\"'@SUM(A1)\"", "'@SUM(A1)"},
        {"\tx", "\"'\tx\"", "'\tx"},
        {"\rx", "\"'\rx\"", "'\rx"},
        {"=\"a\",b", "\"'=\"\"a\"\",b\"", "'=\"a\",b"},
        {"\xc3\xb1\xe2\x82\xac", "\xc3\xb1\xe2\x82\xac", "\xc3\xb1\xe2\x82\xac"},
        {"", "", ""},
    };
    historia h;
    for (const fila &f : filas)
        h.anyade(comando(h.num_sucesos() + 1, f.servicio));
    std::string csv = como_csv(h);
    std::vector<std::vector<std::string>> leidas = deshaz_csv(csv.substr(CABECERA.size()));
    ASSERT_EQ(leidas.size(), h.num_visibles());
    size_t sitio = 0;
    for (size_t i = 0; i < leidas.size(); i++) {
        ASSERT_EQ(leidas[i].size(), 10u) << filas[i].celda;
        EXPECT_EQ(leidas[i][0], std::to_string(i + 1));
        EXPECT_EQ(leidas[i][5], filas[i].leida);
        sitio = csv.find("," + std::string(filas[i].celda) + ",200,,,\r\n", sitio);
        EXPECT_NE(sitio, std::string::npos) << filas[i].celda;
    }
}

static std::vector<nlohmann::json> deshaz_json(const std::string &texto)
{
    std::vector<nlohmann::json> lineas;
    size_t sitio = 0;
    while (sitio < texto.size()) {
        size_t fin = texto.find('\n', sitio);
        EXPECT_NE(fin, std::string::npos) << "the last line has its end";
        lineas.push_back(nlohmann::json::parse(texto.substr(sitio, fin - sitio)));
        sitio = fin + 1;
    }
    return lineas;
}

TEST(monitor_modelo, las_lineas_json_se_leen_de_vuelta_con_los_valores_que_se_saben)
{
    historia h;
    suceso s = comando(1, "com \"illas\" \n y \xc3\xb1");
    h.anyade(s);
    s = de_clase(2, clase::entrada);
    s.id_bloque = 100;
    h.anyade(s);
    h.anyade(hueco(3, 12));
    h.anyade(de_clase(4, clase::servicio));
    h.filtra(de_clases({clase::comando, clase::entrada}));
    contenidos c;
    contenido del_2 = con_texto("di, \"esto\"\n");
    valor n;
    n.tipo = 3;
    n.nombre = "n";
    n.numero = 7;
    del_2.valores.push_back(n);
    del_2.fallo = "cut short";
    c.guarda(2, del_2);
    c.guarda(4, con_texto("not shown"));
    std::vector<nlohmann::json> lineas = deshaz_json(como_json_lineas(h, c));
    ASSERT_EQ(lineas.size(), 3u);
    EXPECT_EQ(lineas[0]["n"], 1);
    EXPECT_EQ(lineas[0]["service"], "com \"illas\" \n y \xc3\xb1");
    EXPECT_EQ(lineas[0]["kind"], "command");
    EXPECT_EQ(lineas[0]["side"], "client");
    EXPECT_EQ(lineas[0]["begins"], true);
    EXPECT_EQ(lineas[0]["command"], 200);
    EXPECT_FALSE(lineas[0].contains("values")) << "not known";
    EXPECT_EQ(lineas[1]["block"], 100);
    ASSERT_EQ(lineas[1]["values"].size(), 2u);
    EXPECT_EQ(lineas[1]["values"][0]["value"], "di, \"esto\"\n");
    EXPECT_EQ(lineas[1]["values"][1]["value"], 7);
    EXPECT_EQ(lineas[1]["error"], "cut short");
    EXPECT_EQ(lineas[2]["kind"], "gap");
    EXPECT_EQ(lineas[2]["lost"], 12);
}

TEST(monitor_modelo, se_guarda_lo_que_se_muestra_en_pausa_y_no_lo_apartado)
{
    historia h;
    h.anyade(comando(1));
    h.pausa(true);
    h.anyade(comando(2));
    EXPECT_EQ(deshaz_csv(como_csv(h)).size(), 2u);
    EXPECT_EQ(deshaz_json(como_json_lineas(h, contenidos())).size(), 1u);
}
