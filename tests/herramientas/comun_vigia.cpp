// comun_vigia.cpp - the desktop's monitor as the tools are it: real activities, each told once, in order, or as lost.
#include <algorithm>
#include <gtest/gtest.h>

#include "comun/hilo.h"
#include "comun/hilos_de.h"
#include "dll_conversa.h"

#include "comun/vigia.h"

#include "ivrexa.h"

using herramientas::clase;
using herramientas::lado;

// ROLE "escritor", service. Obeys
//     ESCRIBE first num        notes `num` activities of the service, "begins" of the commands 1000 + first...:
//                              "ESCRITO"
//     MONITOR                  becomes the monitor of the desktop, with a window of its own: "MONITOR n"
//     QUITA                    unregisters: "QUITADO"
//     ACABA
static void anota(const std::string &servicio, uint32_t i)
{
    // This program is no client of the service: that is told, and nothing else happens.
    EXPECT_EQ(ivrexa_ejecuta_comando(servicio.c_str(), 1000 + i, 0, 500000 + i, nullptr, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr),
              3u);
}

static void nada_de_actividad(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {}
static void nada_de_bucle(const iv_mcbase_t *, const datServ *, uint32_t, void *) {}

PAPEL(escritor)
{
    HWND hwnd = nullptr;
    yo.di("LISTO");
    while (std::optional<std::string> linea = yo.escucha(90000)) {
        if (*linea == "ACABA")
            return 0;
        if (linea->compare(0, 8, "ESCRIBE ") == 0) {
            char *fin = nullptr;
            uint32_t desde = static_cast<uint32_t>(strtoul(linea->c_str() + 8, &fin, 10));
            uint32_t num = static_cast<uint32_t>(strtoul(fin, nullptr, 10));
            for (uint32_t i = desde; i < desde + num; i++)
                anota(args[0], i);
            yo.di("ESCRITO");
        } else if (*linea == "MONITOR") {
            hwnd = crea_ventana();
            ivrexa_registra_monitor(hwnd, nada_de_actividad, nada_de_bucle, nada_de_bucle, nullptr);
            yo.di("MONITOR " + std::to_string(reinterpret_cast<uintptr_t>(hwnd)));
        } else if (*linea == "QUITA") {
            ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
            yo.di("QUITADO");
        }
    }
    return 1;
}

namespace {

// "command begins" of the writer's i-th activity.
uint32_t indice_de(const herramientas::suceso &s)
{
    return s.id_comando - 1000;
}

class vigia_del_escritorio : public ::testing::Test {
protected:
    void SetUp() override
    {
        vacia_registro();
        m_hwnd = crea_ventana();
        std::set<DWORD> hilos = hilos_de(GetCurrentProcessId());
        nuevo_vigia();
        size_t nuevos = 0;
        for (DWORD hilo : hilos_de(GetCurrentProcessId()))
            if (hilos.count(hilo) == 0) {
                m_contador = hilo;
                nuevos++;
            }
        ASSERT_EQ(nuevos, 1u) << "which one counts?";
    }

    void nuevo_vigia()
    {
        m_vigia.reset();
        oidos.clear();
        m_numero = m_dichas = 0;
        m_vigia = std::make_unique<herramientas::vigia>(m_hwnd, [this](const herramientas::suceso &s) { oye(s); });
    }

    void TearDown() override
    {
        m_vigia.reset();
        destruye_ventana(&m_hwnd);
    }

    // A running service and its writer. The announcement is activity 1.
    void con_servicio()
    {
        m_servidor.emplace(arranca_servidor("ventana", servicio));
        m_escritor.emplace(arranca_papel("escritor", {servicio}));
        ASSERT_TRUE(bombea([this] { return oidos.size() == 1; }));
        oidos.clear();
    }

    void escribe(uint32_t desde, uint32_t num, lugar donde = lugar::aqui())
    {
        m_escritor->di("ESCRIBE " + std::to_string(desde) + " " + std::to_string(num), donde);
        m_escritor->espera_linea("ESCRITO", 60000, donde);
    }

    bool bombea(const std::function<bool()> &condicion, uint32_t ms = 15000)
    {
        return bombea_hasta(condicion, ms) == bombeo::cumplido;
    }

    // All that is in the queue now, and what the counting thread may still remind of.
    void bombea_todo()
    {
        UINT mensaje = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
        MSG msg;
        EXPECT_TRUE(bombea([&] {
            return !PeekMessageW(&msg, m_hwnd, mensaje, mensaje, PM_NOREMOVE) &&
                   dichas() + m_vigia->num_perdidas() >= m_vigia->num_actividades();
        })) << describe();
    }

    uint64_t dichas() const { return m_dichas; }

    std::string describe() const
    {
        std::string todo = "told " + std::to_string(m_dichas) + " lost " + std::to_string(m_vigia->num_perdidas()) +
                           " written " + std::to_string(m_vigia->num_actividades());
        for (size_t i = 0; i < oidos.size() && i < 100; i++)
            todo += "\n" + std::string(herramientas::nombre_lado(oidos[i].quien)) + " " + oidos[i].servicio + " " +
                    herramientas::describe(oidos[i]);
        return todo;
    }

    // Activities desde..hasta of the writer, in order, each once.
    void espera_oidos(uint32_t desde, uint32_t num)
    {
        std::vector<uint32_t> esperados, reales;
        for (uint32_t i = desde; i < desde + num; i++)
            esperados.push_back(i);
        for (const herramientas::suceso &s : oidos)
            if (s.que == clase::comando)
                reales.push_back(indice_de(s));
        EXPECT_EQ(reales, esperados);
    }

    void oye(const herramientas::suceso &s)
    {
        EXPECT_EQ(s.numero, ++m_numero) << "each event has the next number";
        m_dichas += s.que != clase::hueco && s.que != clase::espera;
        oidos.push_back(s);
        if (al_oir)
            al_oir(s);
    }

    herramientas::vigia &v() { return *m_vigia; }

    const std::string servicio = nombre_unico("serv");
    std::vector<herramientas::suceso> oidos;
    std::function<void(const herramientas::suceso &)> al_oir;
    HWND m_hwnd = nullptr;
    std::unique_ptr<herramientas::vigia> m_vigia;
    std::optional<papel> m_servidor, m_escritor;
    uint64_t m_numero = 0, m_dichas = 0;
    DWORD m_contador = 0; // its counting thread
};

uint64_t u64_del_registro(size_t despl)
{
    return bloque_crudo("Ivrexa_MCB").u64(despl);
}

} // namespace

TEST_F(vigia_del_escritorio, se_registra_y_dice_cada_actividad_con_sus_campos)
{
    EXPECT_TRUE(v().sigue_siendo_monitor());
    EXPECT_EQ(u64_del_registro(6), reinterpret_cast<uint64_t>(m_hwnd));
    EXPECT_EQ(v().num_actividades(), 0u);
    m_servidor.emplace(arranca_servidor("ventana", servicio));
    papel cliente = arranca_cliente("sin_ventana", servicio);
    cliente.di("ECO 1");
    ASSERT_TRUE(bombea([this] {
        return std::any_of(oidos.begin(), oidos.end(), [](const herramientas::suceso &s) {
            return s.quien == lado::cliente && s.que == clase::salida;
        });
    })) << describe();
    std::string resultado = cliente.espera_linea("RESULTADO ", 10000).substr(10);
    ASSERT_EQ(resultado.compare(0, 2, "1|"), 0) << resultado;
    char *resto = nullptr;
    uint32_t entrada = static_cast<uint32_t>(strtoul(resultado.c_str() + 2, &resto, 10));
    uint32_t salida = static_cast<uint32_t>(strtoul(resto + 1, nullptr, 10));

    struct esperado {
        lado quien;
        clase que;
        bool empieza;
        uint32_t id_comando, id_bloque;
        const char *texto;
    };
    const esperado esperados[] = {
        {lado::servidor, clase::servicio, true, 0, 0, "service offered"},
        {lado::cliente, clase::entrada, true, 0, entrada, "input saved"},
        {lado::cliente, clase::comando, true, 100, entrada, "command begins"},
        {lado::servidor, clase::entrada, true, 0, entrada, "input opened"},
        {lado::servidor, clase::salida, true, 0, salida, "output saved"},
        {lado::cliente, clase::comando, false, 100, entrada, "command ends"},
        {lado::cliente, clase::salida, true, 0, salida, "output opened"},
    };
    std::vector<herramientas::suceso> actividades;
    for (const herramientas::suceso &s : oidos)
        if (s.que != clase::espera)
            actividades.push_back(s);
    ASSERT_EQ(actividades.size(), 7u) << describe();
    for (size_t i = 0; i < 7; i++) {
        SCOPED_TRACE(i);
        EXPECT_EQ(actividades[i].quien, esperados[i].quien);
        EXPECT_EQ(actividades[i].que, esperados[i].que);
        EXPECT_EQ(actividades[i].empieza, esperados[i].empieza);
        EXPECT_EQ(actividades[i].id_bloque, esperados[i].id_bloque);
        EXPECT_EQ(actividades[i].servicio, servicio);
        EXPECT_EQ(actividades[i].servicio_ansi, servicio);
        EXPECT_EQ(herramientas::describe(actividades[i]), esperados[i].texto);
        if (actividades[i].que == clase::comando) {
            EXPECT_EQ(actividades[i].id_comando, esperados[i].id_comando);
        }
    }
    bombea_todo();
    EXPECT_EQ(v().num_perdidas(), 0u);
    acaba(cliente);
}

// ---- While the loop stands still

class vigia_parado : public vigia_del_escritorio, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(vigia_parado, dice_lo_que_queda_en_el_anillo_y_lo_demas_como_perdido)
{
    con_servicio();
    const uint32_t num = GetParam(), quedan = std::min(num, 63u), perdidas = num - quedan;
    escribe(0, num); // nobody dispatches meanwhile
    EXPECT_LE(v().num_actividades(), 1u + num) << "laps that the thread has missed are told by the messages";
    bombea_todo();
    espera_oidos(perdidas, quedan);
    EXPECT_EQ(v().num_perdidas(), perdidas);
    EXPECT_EQ(v().num_actividades(), 1u + num);
    EXPECT_EQ(oidos.front().que, perdidas != 0 ? clase::hueco : clase::comando) << "the gap comes first, and once";
    EXPECT_EQ(oidos.front().perdidos, perdidas);
    EXPECT_EQ(oidos.size(), quedan + (perdidas != 0 ? 1 : 0));

    oidos.clear();
    escribe(num, 5);
    bombea_todo();
    espera_oidos(num, 5);
    EXPECT_EQ(v().num_perdidas(), perdidas);
}

INSTANTIATE_TEST_SUITE_P(actividades, vigia_parado,
                         ::testing::Values(1u, 62u, 63u, 64u, 65u, 125u, 126u, 127u, 189u, 1000u),
                         [](const auto &info) { return std::to_string(info.param); });

TEST_F(vigia_del_escritorio, dice_todo_mientras_se_escribe_sin_repetir_ni_desordenar)
{
    con_servicio();
    hilo escritor([this] { escribe(0, 2000); });
    ASSERT_TRUE(bombea([this] { return dichas() + v().num_perdidas() >= 2001; }, 60000)) << describe();
    EXPECT_EQ(dichas() + v().num_perdidas(), 2001u);
    EXPECT_EQ(v().num_actividades(), 2001u);
    uint32_t siguiente = 0;
    for (const herramientas::suceso &s : oidos) {
        if (s.que == clase::hueco)
            siguiente += static_cast<uint32_t>(s.perdidos);
        else
            EXPECT_EQ(indice_de(s), siguiente++) << "a gap has its true width and place";
    }
    EXPECT_EQ(siguiente, 2000u);
}

// A message is posted behind the lock: that of a later activity may come first.
TEST_F(vigia_del_escritorio, varios_escritores_a_la_vez_y_un_bucle_que_se_para)
{
    con_servicio();
    const uint32_t CADA_UNO = 700, NUM = 3;
    std::vector<papel> escritores;
    for (uint32_t i = 0; i < NUM; i++)
        escritores.push_back(arranca_papel("escritor", {servicio}));
    for (uint32_t i = 0; i < NUM; i++)
        escritores[i].di("ESCRIBE " + std::to_string(i * 10000) + " " + std::to_string(CADA_UNO));
    al_oir = [](const herramientas::suceso &s) {
        if (s.numero % 300 == 0)
            Sleep(60); // the loop stands still while others write on
    };
    ASSERT_TRUE(bombea([&] { return dichas() + v().num_perdidas() >= 1 + NUM * CADA_UNO; }, 60000)) << describe();
    for (papel &p : escritores)
        p.espera_linea("ESCRITO", 20000);
    EXPECT_EQ(v().num_actividades(), 1 + NUM * CADA_UNO);
    EXPECT_EQ(dichas() + v().num_perdidas(), 1 + NUM * CADA_UNO);

    std::vector<int64_t> ultimo(NUM, -1); // each writer's own come in its order
    for (const herramientas::suceso &s : oidos)
        if (s.que == clase::comando) {
            uint32_t quien = indice_de(s) / 10000;
            ASSERT_LT(quien, NUM);
            EXPECT_GT(int64_t(indice_de(s) % 10000), ultimo[quien]);
            ultimo[quien] = indice_de(s) % 10000;
            EXPECT_EQ(s.id_bloque, 499000 + s.id_comando) << "fields of one record";
        }
}

// ---- Messages

TEST_F(vigia_del_escritorio, mensajes_que_faltan_no_cuestan_nada_mientras_el_anillo_los_tenga)
{
    con_servicio();
    escribe(0, 20);
    MSG msg;
    UINT mensaje = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
    for (int i = 0; i < 20; i++) // as a full queue would have refused them
        ASSERT_TRUE(PeekMessageW(&msg, m_hwnd, mensaje, mensaje, PM_REMOVE));
    ASSERT_TRUE(bombea([this] { return dichas() == 21; }, 3000)) << "the last one too, that no message follows";
    espera_oidos(0, 20);
    EXPECT_EQ(v().num_perdidas(), 0u);
}

TEST_F(vigia_del_escritorio, mensajes_desordenados_y_repetidos_no_cambian_nada)
{
    con_servicio();
    escribe(0, 10);
    MSG msg;
    UINT mensaje = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
    std::vector<LPARAM> numeros;
    while (PeekMessageW(&msg, m_hwnd, mensaje, mensaje, PM_REMOVE))
        numeros.push_back(msg.lParam);
    ASSERT_EQ(numeros.size(), 10u);
    EXPECT_EQ(numeros.front(), 2) << "the number of the record";
    std::reverse(numeros.begin(), numeros.end());
    numeros.push_back(numeros[3]);
    for (LPARAM n : numeros)
        PostMessageW(m_hwnd, mensaje, 0, n);
    bombea_todo();
    escribe(10, 3);
    bombea_todo();
    espera_oidos(0, 13);
    EXPECT_EQ(v().num_perdidas(), 0u);
    EXPECT_EQ(v().num_actividades(), 14u);
}

// The counting thread misses whole laps on a machine that stalls: here it is held up while 130 are written.
TEST_F(vigia_del_escritorio, vueltas_que_nadie_ha_visto_pasar_las_dice_el_numero_de_mensajes)
{
    con_servicio();
    HANDLE contador = OpenThread(THREAD_SUSPEND_RESUME, FALSE, m_contador);
    ASSERT_NE(SuspendThread(contador), static_cast<DWORD>(-1));
    escribe(0, 130);
    ResumeThread(contador);
    CloseHandle(contador);
    EXPECT_EQ(v().num_actividades(), 1u + 130 % 63) << "what the count alone tells";
    bombea_todo();
    ASSERT_TRUE(bombea([this] { return dichas() + v().num_perdidas() >= 131; })) << describe();
    EXPECT_EQ(v().num_actividades(), 131u);
    EXPECT_EQ(v().num_perdidas(), 67u);
    espera_oidos(67, 63);
}

TEST_F(vigia_del_escritorio, los_demas_mensajes_siguen_su_camino)
{
    con_servicio();
    UINT mensaje = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
    EXPECT_EQ(SendMessageW(m_hwnd, WM_GETTEXTLENGTH, 0, 0), 0);
    SetWindowTextW(m_hwnd, L"abc");
    EXPECT_EQ(SendMessageW(m_hwnd, WM_GETTEXTLENGTH, 0, 0), 3);
    for (LPARAM n : {LPARAM(0), LPARAM(64), LPARAM(0xFFFFFFFF)}) { // no number of a record
        PostMessageW(m_hwnd, mensaje, 0, n);
        PostMessageW(m_hwnd, mensaje, 9, n);
    }
    PostMessageW(m_hwnd, mensaje, 1, 0 | 3 << 16);
    PostMessageW(m_hwnd, mensaje, 2, 0 | 2 << 16);
    PostMessageW(m_hwnd, mensaje, 1, 40 | 3 << 16); // no such service
    ASSERT_TRUE(bombea([this] { return oidos.size() == 2; }));
    EXPECT_EQ(herramientas::describe(oidos[0]), "waits for the server to finish");
    EXPECT_EQ(oidos[0].servicio, servicio);
    EXPECT_EQ(oidos[0].estado, 3u);
    EXPECT_EQ(herramientas::describe(oidos[1]), "waits for the client to take the result");
    EXPECT_EQ(oidos[1].quien, lado::servidor);
    PostMessageW(m_hwnd, WM_APP, 0, 0);
    escribe(0, 1);
    bombea_todo();
    espera_oidos(0, 1);
}

// A filter lets a quit through: taking our messages must not take the loop's.
TEST_F(vigia_del_escritorio, un_fin_del_bucle_pedido_mientras_atiende_llega_al_bucle)
{
    con_servicio();
    escribe(0, 3);
    al_oir = [](const herramientas::suceso &s) {
        if (indice_de(s) == 0)
            PostQuitMessage(7);
    };
    EXPECT_EQ(bombea_hasta_quit(10000), bombeo::quit);
    espera_oidos(0, 3);
    PostQuitMessage(8);
    nuevo_vigia(); // which empties the queue of what was meant for the one before
    MSG msg = {};
    ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_QUIT));
    EXPECT_EQ(msg.wParam, 8u);
}

// Messages taken together keep the order in which they were posted.
TEST_F(vigia_del_escritorio, una_espera_se_dice_entre_las_actividades_entre_las_que_llego)
{
    con_servicio();
    UINT mensaje = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
    escribe(0, 3);
    PostMessageW(m_hwnd, mensaje, 1, 0 | 2 << 16);
    escribe(3, 2);
    bombea_todo();
    ASSERT_EQ(oidos.size(), 6u);
    EXPECT_EQ(oidos[3].que, clase::espera);
    EXPECT_EQ(indice_de(oidos[2]), 2u);
    EXPECT_EQ(indice_de(oidos[4]), 3u);
}

TEST_F(vigia_del_escritorio, la_funcion_puede_tener_un_bucle_de_mensajes_propio)
{
    con_servicio();
    escribe(0, 5);
    al_oir = [this](const herramientas::suceso &s) {
        if (s.que == clase::comando && indice_de(s) == 2) {
            escribe(5, 5);
            bombea_hasta([] { return false; }, 50);
        }
    };
    ASSERT_TRUE(bombea([this] { return dichas() == 11; })) << describe();
    espera_oidos(0, 10);
}

// ---- Names

TEST_F(vigia_del_escritorio, servicio_cerrado_conserva_su_nombre)
{
    m_servidor.emplace(arranca_servidor("ventana", servicio));
    ASSERT_TRUE(bombea([this] { return oidos.size() == 1; }));
    acaba(*m_servidor);
    ASSERT_TRUE(bombea([this] { return dichas() == 2; }));
    EXPECT_EQ(oidos.back().servicio, servicio);
    EXPECT_EQ(herramientas::describe(oidos.back()), "service closed");
}

TEST_F(vigia_del_escritorio, servicios_que_se_suceden_en_un_sitio_mientras_nadie_lee_tienen_cada_uno_su_nombre)
{
    m_servidor.emplace(arranca_servidor("ventana", servicio));
    ASSERT_TRUE(bombea([this] { return oidos.size() == 1; }));
    acaba(*m_servidor); // nobody dispatches from here
    std::string otro = nombre_unico("otro");
    papel segundo = arranca_servidor("ventana", otro);
    acaba(segundo);
    ASSERT_TRUE(bombea([this] { return dichas() == 4; }));
    ASSERT_EQ(oidos.size(), 4u);
    EXPECT_EQ(oidos[1].servicio, servicio);
    EXPECT_FALSE(oidos[1].empieza);
    EXPECT_EQ(oidos[2].servicio, otro);
    EXPECT_TRUE(oidos[2].empieza);
    EXPECT_EQ(oidos[3].servicio, otro);
    EXPECT_FALSE(oidos[3].empieza);
}

// ---- Waits

TEST_F(vigia_del_escritorio, una_espera_se_dice_una_vez_y_otra_tras_cada_comando)
{
    m_servidor.emplace(arranca_servidor("sin_ventana", servicio));
    auto esperas = [this](lado quien, uint32_t estado) {
        return std::count_if(oidos.begin(), oidos.end(), [=](const herramientas::suceso &s) {
            return s.que == clase::espera && s.quien == quien && s.estado == estado;
        });
    };
    ASSERT_TRUE(bombea([&] { return esperas(lado::servidor, 1) == 1; }));
    EXPECT_EQ(herramientas::describe(oidos.back()), "waits for a command");
    EXPECT_FALSE(bombea([&] { return esperas(lado::servidor, 1) > 1; }, 700)) << "rounds of the same wait";

    papel cliente = arranca_cliente("sin_ventana", servicio);
    for (int n = 1; n <= 2; n++) {
        oidos.clear();
        cliente.di("COMANDO 121");
        ASSERT_TRUE(bombea([&] { return esperas(lado::servidor, 1) >= 1 && dichas() == 1u + 2 * n; })) << n;
        EXPECT_EQ(esperas(lado::servidor, 1), 1) << "it waits anew behind each command";
        int del_cliente = 0;
        for (uint32_t estado = 1; estado <= 4; estado++) {
            EXPECT_LE(esperas(lado::cliente, estado), 1) << "rounds of the same wait: " << estado;
            del_cliente += static_cast<int>(esperas(lado::cliente, estado));
        }
        EXPECT_GE(del_cliente, 1) << "the same states as in the command before are told again";
        EXPECT_FALSE(bombea([&] { return esperas(lado::servidor, 1) > 1; }, 350)) << "rounds of the same wait";
    }
    EXPECT_EQ(oidos.back().servicio, servicio);
    acaba(cliente);
}

// Two clients of one service wait in different states at once: their rounds come in turn.
TEST_F(vigia_del_escritorio, rondas_de_dos_que_se_alternan_son_dos_esperas)
{
    con_servicio();
    UINT mensaje = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
    for (int i = 0; i < 20; i++)
        PostMessageW(m_hwnd, mensaje, 1, static_cast<LPARAM>(i % 2 == 0 ? 1 << 16 : 3 << 16));
    PostMessageW(m_hwnd, mensaje, 2, 3 << 16);
    ASSERT_TRUE(bombea([this] { return !oidos.empty() && oidos.back().quien == lado::servidor; }));
    EXPECT_EQ(oidos.size(), 3u);
}

// ---- Taking over, ending

TEST_F(vigia_del_escritorio, otro_monitor_toma_su_puesto_y_no_lo_pierde_cuando_este_termina)
{
    con_servicio();
    escribe(0, 3);
    bombea_todo();
    m_escritor->di("MONITOR");
    std::string otro = m_escritor->espera_linea("MONITOR ", 10000).substr(8);
    EXPECT_FALSE(v().sigue_siendo_monitor());
    EXPECT_EQ(herramientas::pid_de_otro_monitor(), m_escritor->pid());
    uint64_t antes = v().num_actividades();
    arranca_servidor("ventana", nombre_unico("nuevo"));
    EXPECT_EQ(v().num_actividades(), antes) << "the other's activities are not ours";
    EXPECT_EQ(antes, 4u);

    m_vigia.reset();
    EXPECT_EQ(std::to_string(u64_del_registro(6)), otro) << "the other one is still registered";
    m_escritor->di("QUITA");
    m_escritor->espera_linea("QUITADO", 10000);
}

// What it had not read yet is told as lost.
TEST_F(vigia_del_escritorio, lo_que_borra_otro_monitor_se_dice_perdido)
{
    con_servicio();
    escribe(0, 3);
    m_escritor->di("MONITOR");
    m_escritor->espera_linea("MONITOR ", 10000);
    bombea_todo();
    ASSERT_EQ(oidos.size(), 1u);
    EXPECT_EQ(oidos[0].perdidos, 3u);
    EXPECT_EQ(herramientas::describe(oidos[0]), "3 activities lost");
}

TEST_F(vigia_del_escritorio, uno_que_perdio_su_puesto_puede_volver_a_tomarlo)
{
    con_servicio();
    m_escritor->di("MONITOR");
    m_escritor->espera_linea("MONITOR ", 10000);
    nuevo_vigia();
    EXPECT_TRUE(v().sigue_siendo_monitor());
    EXPECT_EQ(herramientas::pid_de_otro_monitor(), 0u) << "it is this process's own";
    papel nuevo = arranca_servidor("ventana", nombre_unico("nuevo"));
    ASSERT_TRUE(bombea([this] { return oidos.size() == 1; }));
    EXPECT_EQ(herramientas::describe(oidos[0]), "service offered");
}

TEST_F(vigia_del_escritorio, al_terminar_deja_de_ser_monitor_y_la_ventana_queda_como_estaba)
{
    con_servicio();
    escribe(0, 5); // their messages are still in the queue
    m_vigia.reset();
    EXPECT_EQ(u64_del_registro(6), 0u);
    bombea_hasta([] { return false; }, 100); // and reach the window's own procedure
    EXPECT_TRUE(oidos.empty());
    EXPECT_EQ(GetWindowLongPtrW(m_hwnd, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(DefWindowProcW));
}

TEST_F(vigia_del_escritorio, el_siguiente_no_oye_los_mensajes_del_anterior)
{
    con_servicio();
    escribe(0, 40);
    nuevo_vigia();
    papel nuevo = arranca_servidor("ventana", nombre_unico("nuevo"));
    ASSERT_TRUE(bombea([this] { return oidos.size() == 1; }));
    EXPECT_EQ(herramientas::describe(oidos[0]), "service offered");
    EXPECT_EQ(v().num_actividades(), 1u);
    EXPECT_EQ(v().num_perdidas(), 0u);
}

// The library leaves handles of the registry open each time; what is ours goes.
TEST_F(vigia_del_escritorio, no_deja_hilos_ni_manejadores)
{
    nuevo_vigia();
    bloque_crudo registro("Ivrexa_MCB");
    uint32_t antes = cuenta_manejadores();
    size_t hilos = hilos_de(GetCurrentProcessId()).size();
    for (int i = 0; i < 5; i++)
        nuevo_vigia();
    uint32_t de_la_biblioteca = 0;
    m_vigia.reset();
    {
        uint32_t solo = cuenta_manejadores();
        for (int i = 0; i < 5; i++) {
            ivrexa_registra_monitor(m_hwnd, nada_de_actividad, nada_de_bucle, nada_de_bucle, nullptr);
            ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        }
        de_la_biblioteca = cuenta_manejadores() - solo;
    }
    nuevo_vigia();
    EXPECT_LE(cuenta_manejadores(), antes + 2 * de_la_biblioteca + 2);
    EXPECT_EQ(hilos_de(GetCurrentProcessId()).size(), hilos);
}

// ---- Before it begins

TEST(vigia, dice_que_servicios_se_borran_y_que_no_hay_otro)
{
    EXPECT_EQ(herramientas::pid_de_otro_monitor(), 0u);
    std::string uno = nombre_unico("uno"), otro = nombre_unico("otro");
    papel servidor = arranca_servidor("ventana", uno + "," + otro);
    EXPECT_EQ(herramientas::servicios_que_se_borran(), (std::vector<std::string>{uno, otro}));
    HWND hwnd = crea_ventana();
    {
        herramientas::vigia v(hwnd, [](const herramientas::suceso &) {});
        EXPECT_EQ(herramientas::servicios_que_se_borran(), std::vector<std::string>{});
    }
    destruye_ventana(&hwnd);
}

TEST(vigia, sucesos_en_palabras)
{
    herramientas::suceso s;
    s.que = clase::hueco;
    s.perdidos = 1;
    EXPECT_EQ(herramientas::describe(s), "1 activity lost");
    s.perdidos = 12345;
    EXPECT_EQ(herramientas::describe(s), "12,345 activities lost");
    s.que = clase::entrada;
    s.quien = lado::servidor;
    EXPECT_EQ(herramientas::describe(s), "input opened");
    s.que = clase::salida;
    EXPECT_EQ(herramientas::describe(s), "output saved");
    s.quien = lado::cliente;
    EXPECT_EQ(herramientas::describe(s), "output opened");
    s.que = clase::espera;
    s.estado = 1;
    EXPECT_EQ(herramientas::describe(s), "waits for its turn");
    s.estado = 9;
    EXPECT_EQ(herramientas::describe(s), "waits ?9");
    const char *lados[] = {"server", "client", "monitor", "?"};
    for (uint8_t i = 0; i < 4; i++)
        EXPECT_STREQ(herramientas::nombre_lado(static_cast<lado>(i)), lados[i]);
    const char *clases[] = {"service", "command", "input", "output", "wait", "gap", "?"};
    for (uint8_t i = 0; i < 7; i++)
        EXPECT_STREQ(herramientas::nombre_clase(static_cast<clase>(i)), clases[i]);
}

TEST(vigia, horas)
{
    const uint64_t HORA = 134103470401239999; // 100 ns since 1601
    SYSTEMTIME utc;
    FILETIME t = {static_cast<DWORD>(HORA), static_cast<DWORD>(HORA >> 32)}, local;
    ASSERT_TRUE(FileTimeToSystemTime(&t, &utc));
    char iso[40];
    snprintf(iso, sizeof iso, "%04u-%02u-%02uT%02u:%02u:%02u.123Z", utc.wYear, utc.wMonth, utc.wDay, utc.wHour,
             utc.wMinute, utc.wSecond);
    EXPECT_EQ(herramientas::hora_iso(HORA), iso);
    EXPECT_EQ(herramientas::hora_iso(0), "1601-01-01T00:00:00.000Z");
    FileTimeToLocalFileTime(&t, &local);
    EXPECT_EQ(herramientas::hora_local(HORA).size(), 12u);
    EXPECT_EQ(herramientas::hora_local(HORA).substr(8), ".123");
}
