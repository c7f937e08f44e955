// comun_mirada.cpp - one look at the registry and the channels: each field where it lies, and nothing changed.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "dll_conversa.h"

#include "comun/mirada.h"

using namespace herramientas;

namespace {

// The registry and a channel, written by hand with the offsets of their format.
class mirada_a_mano : public ::testing::Test {
protected:
    mirada_a_mano() : registro("Ivrexa_MCB", 8886) {}
    static size_t programa(size_t i) { return 1430 + i * 274; }
    static size_t servicio(size_t j) { return 5814 + j * 96; }
    bloque_crudo registro;
};

} // namespace

TEST(mirada, sin_registro_no_hay_nada_y_no_se_crea)
{
    escritorio_visto e = mira_escritorio();
    EXPECT_FALSE(e.hay_registro);
    EXPECT_TRUE(e.quieto);
    EXPECT_EQ(e.tam, 0u);
    EXPECT_TRUE(e.programas.empty() && e.servicios.empty());
    EXPECT_EQ(mira_canal("nada"), std::nullopt);
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
}

TEST_F(mirada_a_mano, campos_de_un_programa)
{
    HWND hwnd = crea_ventana();
    registro.pon_texto(programa(3), "C:\\dir\\\xf1.exe");
    registro.pon_u64(programa(3) + 256, reinterpret_cast<uint64_t>(hwnd));
    registro.pon_u16(programa(3) + 264, 1);
    registro.pon_u16(programa(3) + 268, 1);
    registro.pon_u32(programa(3) + 270, 77);
    registro.pon_texto(programa(15), "b");
    registro.pon_u16(programa(15) + 266, 1);
    registro.pon_u64(programa(15) + 256, 0x123456789abcdef0);
    registro.pon_u32(programa(7) + 270, 5); // a free entry keeps other bytes
    escritorio_visto e = mira_escritorio();
    EXPECT_TRUE(e.hay_registro && e.quieto);
    EXPECT_EQ(e.tam, 8886u);
    EXPECT_FALSE(e.hay_monitor);
    ASSERT_EQ(e.programas.size(), 2u);
    const programa_visto &p = e.programas[0];
    EXPECT_EQ(p.id_programa, 3u);
    EXPECT_EQ(p.nombre, "C:\\dir\\\xc3\xb1.exe");
    EXPECT_EQ(p.hwnd, reinterpret_cast<uint64_t>(hwnd));
    EXPECT_TRUE(p.es_ventana);
    EXPECT_EQ(p.pid, GetCurrentProcessId());
    EXPECT_TRUE(p.es_servidor && p.es_monitor && !p.es_cliente);
    EXPECT_EQ(p.contador_vivo, 77u);
    const programa_visto &q = e.programas[1];
    EXPECT_EQ(q.id_programa, 15u);
    EXPECT_TRUE(!q.es_servidor && !q.es_monitor && q.es_cliente);
    EXPECT_FALSE(q.es_ventana);
    EXPECT_EQ(q.pid, 0u);
    EXPECT_EQ(e.programa(15), &e.programas[1]);
    EXPECT_EQ(e.programa(7), nullptr);
    EXPECT_EQ(e.programa(16), nullptr);
    destruye_ventana(&hwnd);
}

TEST_F(mirada_a_mano, campos_de_un_servicio_y_de_su_canal)
{
    std::string nombre = nombre_unico("S");
    size_t s = servicio(31);
    registro.pon_texto(s, nombre);
    registro.pon_u16(s + 64, 4);
    registro.pon_u16(s + 66, 999);
    for (uint32_t i = 0; i < 7; i++)
        registro.pon_u32(s + 68 + 4 * i, 1000 + i);
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + nombre).c_str(), 2378);
    canal.pon_u16(0, 2378);
    canal.pon_u16(2, 301);
    canal.pon_u32(4, 11);
    canal.pon_u32(8, 12);
    canal.pon_u32(12, 13);
    canal.pon_u64(16, 0x1122334455667788);
    canal.pon_u32(24, 15);
    canal.pon_u16(28, 16);
    canal.pon_u32(30, 17);
    canal.pon_u32(34, 18);
    canal.pon_texto_u(38, L"s64");
    canal.pon_texto_u(166, L"s256 \u20ac");
    canal.pon_texto_u(678, std::wstring(255, L'x'));
    canal.pon_u64(1190, 0x8877665544332211);
    canal.pon_u32(1198, 19);
    canal.pon_u32(1202, 20);
    canal.pon_u32(1206, 21);
    canal.pon_texto_u(1210, L"c64");
    canal.pon_texto_u(1338, L"c256");
    canal.pon_bytes(1850, std::vector<uint8_t>(512, 'y')); // without its NUL: 256 characters
    for (uint32_t i = 0; i < 4; i++)
        canal.pon_u32(2362 + 4 * i, 31 + i);

    escritorio_visto e = mira_escritorio();
    ASSERT_EQ(e.servicios.size(), 1u);
    const servicio_visto &v = e.servicios[0];
    EXPECT_EQ(v.ind_datServ, 31u);
    EXPECT_EQ(v.nombre, nombre);
    EXPECT_EQ(v.nombre_ansi, nombre);
    EXPECT_EQ(v.id_programa_servidor, 4);
    EXPECT_EQ(v.id_programa_cliente, 999);
    EXPECT_EQ(v.bucle_servidor_estado, 1000u);
    EXPECT_EQ(v.bucle_servidor_vueltas, 1001u);
    EXPECT_EQ(v.id_comando_en_curso, 1003u);
    EXPECT_EQ(v.bucle_cliente_estado, 1004u);
    EXPECT_EQ(v.bucle_cliente_vueltas, 1005u);
    ASSERT_TRUE(v.canal);
    const canal_visto &c = *v.canal;
    EXPECT_EQ(c.tam, 2378u);
    EXPECT_EQ(c.tam_bloque, 2378);
    EXPECT_EQ(c.version_servicio, 301);
    EXPECT_EQ(c.info_estadoComando, 11u);
    EXPECT_EQ(c.resultado, 12u);
    EXPECT_EQ(c.id_bloque_MCCom_siguiente, 13u);
    EXPECT_EQ(c.hwnd_servidor, 0x1122334455667788u);
    EXPECT_EQ(c.msg_servidor, 15u);
    EXPECT_EQ(c.servidor_terminado, 16);
    EXPECT_EQ(c.estado_servidor, 17u);
    EXPECT_EQ(c.id_resultado, 18u);
    EXPECT_EQ(c.hwnd_cliente, 0x8877665544332211u);
    EXPECT_EQ(c.ocupacion, 19u);
    EXPECT_EQ(c.id_comando, 20u);
    EXPECT_EQ(c.id_bloque_MCCom_entrada, 21u);
    EXPECT_EQ(c.estado_notificacion, 31u);
    EXPECT_EQ(c.notificacion_dato1, 32u);
    EXPECT_EQ(c.notificacion_dato2, 33u);
    EXPECT_EQ(c.notificacion_dato3, 34u);
    EXPECT_EQ(c.textos_servidor[0], "s64");
    EXPECT_EQ(c.textos_servidor[1], "s256 \xe2\x82\xac");
    EXPECT_EQ(c.textos_servidor[2], std::string(255, 'x'));
    EXPECT_EQ(c.textos_cliente[0], "c64");
    EXPECT_EQ(c.textos_cliente[1], "c256");
    std::string yy;
    for (int i = 0; i < 256; i++)
        yy += "\xe7\xa5\xb9"; // U+7979
    EXPECT_EQ(c.textos_cliente[2], yy);
}

TEST_F(mirada_a_mano, nombres_sin_su_nul_llenan_su_campo_y_nada_mas)
{
    registro.pon_bytes(programa(0), std::vector<uint8_t>(256, 'p'));
    registro.pon_u64(programa(0) + 256, 0x7070707070707070);
    registro.pon_bytes(servicio(0), std::vector<uint8_t>(64, 's'));
    registro.pon_u16(servicio(0) + 64, 0x7373);
    escritorio_visto e = mira_escritorio();
    ASSERT_EQ(e.programas.size(), 1u);
    ASSERT_EQ(e.servicios.size(), 1u);
    EXPECT_EQ(e.programas[0].nombre, std::string(256, 'p'));
    EXPECT_EQ(e.servicios[0].nombre, std::string(64, 's'));
    EXPECT_FALSE(e.servicios[0].canal);
}

TEST(mirada, registro_de_otro_tamano)
{
    {
        bloque_crudo corto("Ivrexa_MCB", 1500);
        corto.pon_texto(1430, "p");
        escritorio_visto e = mira_escritorio();
        EXPECT_TRUE(e.hay_registro && e.quieto);
        EXPECT_EQ(e.tam, 1500u);
        ASSERT_EQ(e.programas.size(), 1u) << "what of it is there is shown";
        EXPECT_EQ(e.programas[0].nombre, "p");
        corto.pon_cabecera(0);
        EXPECT_TRUE(mira_escritorio().programas.empty());
        corto.pon_cabecera(0xffffffff);
        e = mira_escritorio();
        EXPECT_EQ(e.tam, 0xffffffffu);
        EXPECT_EQ(e.programas.size(), 1u);
    }
    EXPECT_FALSE(mira_escritorio().hay_registro) << "looking keeps nothing in being";
}

TEST(mirada, canales_que_la_tabla_no_nombra)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    std::string base = nombre_unico("Z");
    registro.pon_texto(5814, base + "en_tabla");
    std::vector<bloque_crudo> bloques;
    for (const char *cola :
         {"en_tabla", "suelto", "suelto_Com__comdat100", "corto", "a_Com__comdat", "b_Com__comdat1x"})
        bloques.emplace_back(("Ivrexa_MCB_Serv_" + base + cola).c_str(), std::string(cola) == "corto" ? 10 : 2378);
    bloques[3].pon_u16(2, 44);
    escritorio_visto e = mira_escritorio();
    std::vector<std::string> nombres;
    for (const servicio_visto &s : e.servicios)
        nombres.push_back(s.nombre.substr(base.size()) + " " + std::to_string(s.ind_datServ));
    EXPECT_EQ(nombres, (std::vector<std::string>{"en_tabla 0", "a_Com__comdat 32", "b_Com__comdat1x 32", "corto 32",
                                                 "suelto 32"}));
    ASSERT_EQ(e.servicios.size(), 5u);
    EXPECT_TRUE(e.servicios[0].canal.has_value());
    EXPECT_EQ(e.servicios[3].canal->tam, 10u);
    EXPECT_EQ(e.servicios[3].canal->version_servicio, 44);
    EXPECT_EQ(e.servicios[3].canal->estado_notificacion, 0u) << "the rest is empty";
    EXPECT_EQ(e.servicios[4].id_programa_servidor, 16);
}

TEST_F(mirada_a_mano, el_registro_solo_es_sus_tablas_sin_ningun_canal)
{
    std::string nombre = nombre_unico("S");
    registro.pon_texto(servicio(2), nombre);
    registro.pon_texto(programa(1), "p");
    registro.pon_u64(6, reinterpret_cast<uint64_t>(GetDesktopWindow()));
    registro.pon_u32(14, 0xC000);
    registro.pon_u16(0, 8886);
    registro.pon_u16(2, 256);
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + nombre).c_str(), 2378);
    bloque_crudo suelto(("Ivrexa_MCB_Serv_" + nombre + "x").c_str(), 2378);
    escritorio_visto e = mira_registro();
    EXPECT_TRUE(e.hay_registro && e.hay_monitor && e.quieto);
    ASSERT_EQ(e.programas.size(), 1u);
    ASSERT_EQ(e.servicios.size(), 1u);
    EXPECT_EQ(e.servicios[0].nombre, nombre);
    EXPECT_EQ(e.servicios[0].ind_datServ, 2u);
    EXPECT_FALSE(e.servicios[0].canal);
}

// 0 is what a field holds that nobody has written, and an entry too.
TEST_F(mirada_a_mano, servidor_y_cliente_son_los_que_lo_son_y_el_servidor_tiene_la_ventana_del_canal)
{
    enum : uint16_t { SERVIDOR = 1, CLIENTE = 2 };
    const struct {
        uint16_t clases;
        uint64_t hwnd;
    } programas[] = {{SERVIDOR, 0x10}, {SERVIDOR, 0}, {CLIENTE, 0}, {SERVIDOR | CLIENTE, 0x20}, {SERVIDOR, 0x20}};
    for (size_t i = 0; i < 5; i++) {
        registro.pon_texto(programa(i), "p" + std::to_string(i));
        registro.pon_u64(programa(i) + 256, programas[i].hwnd);
        registro.pon_u16(programa(i) + 264, programas[i].clases & SERVIDOR);
        registro.pon_u16(programa(i) + 266, programas[i].clases >> 1);
    }
    std::string nombre = nombre_unico("S");
    registro.pon_texto(servicio(0), nombre);
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + nombre).c_str(), 2378);
    const struct {
        uint16_t en_tabla, terminado;
        uint32_t estado;
        uint64_t ventana;
        int esperado; // -1: nobody
    } servidores[] = {
        {0, 0, 1, 0x10, 0}, {0, 0, 0, 0x10, -1},  {0, 1, 1, 0x10, -1}, {0, 2, 1, 0x10, 0}, {0, 0, 1, 0, -1},
        {1, 0, 1, 0, 1},    {2, 0, 1, 0, -1},     {2, 0, 1, 0x10, 0},  {9, 0, 1, 0x10, 0}, {9, 0, 1, 0, -1},
        {16, 0, 1, 0, -1},  {65535, 0, 1, 0, -1}, {0, 0, 1, 0x20, 3},  {4, 0, 1, 0x20, 4}, {0, 0, 1, 0x30, -1},
    };
    for (const auto &f : servidores) {
        registro.pon_u16(servicio(0) + 64, f.en_tabla);
        canal.pon_u64(16, f.ventana);
        canal.pon_u16(28, f.terminado);
        canal.pon_u32(30, f.estado);
        escritorio_visto e = mira_escritorio();
        ASSERT_EQ(e.servicios.size(), 1u);
        const programa_visto *p = servidor_de(e, e.servicios[0]);
        EXPECT_EQ(p != nullptr ? static_cast<int>(p->id_programa) : -1, f.esperado)
            << f.en_tabla << " " << f.terminado << " " << f.estado << " " << f.ventana;
    }
    const struct {
        uint16_t en_tabla;
        int esperado;
    } clientes[] = {{0, -1}, {1, -1}, {2, 2}, {3, 3}, {9, -1}, {16, -1}, {65535, -1}};
    for (const auto &f : clientes) {
        registro.pon_u16(servicio(0) + 66, f.en_tabla);
        escritorio_visto e = mira_escritorio();
        const programa_visto *p = cliente_de(e, e.servicios[0]);
        EXPECT_EQ(p != nullptr ? static_cast<int>(p->id_programa) : -1, f.esperado) << f.en_tabla;
    }
    registro.pon_texto(servicio(0), ""); // a channel that the table does not name
    canal.pon_u16(28, 0);
    canal.pon_u32(30, 1);
    canal.pon_u64(16, 0x10);
    escritorio_visto e = mira_escritorio();
    ASSERT_EQ(e.servicios.size(), 1u);
    ASSERT_NE(servidor_de(e, e.servicios[0]), nullptr);
    EXPECT_EQ(servidor_de(e, e.servicios[0])->nombre, "p0");
    EXPECT_EQ(cliente_de(e, e.servicios[0]), nullptr);
    EXPECT_EQ(programa_del_proceso(GetCurrentProcessId()), "herramientas_comun_mirada.exe");
    EXPECT_EQ(programa_del_proceso(0xfffffff0), "");
}

TEST_F(mirada_a_mano, monitor_listo_es_el_que_dicen_los_cuatro_campos_y_su_ventana)
{
    HWND hwnd = crea_ventana();
    auto pon = [&](uint16_t tam, uint16_t version, uint64_t ventana, uint32_t msg) {
        registro.pon_u16(0, tam);
        registro.pon_u16(2, version);
        registro.pon_u64(6, ventana);
        registro.pon_u32(14, msg);
        return mira_escritorio().hay_monitor;
    };
    uint64_t h = reinterpret_cast<uint64_t>(hwnd);
    EXPECT_TRUE(pon(8886, 256, h, 0xC000));
    EXPECT_FALSE(pon(8885, 256, h, 0xC000));
    EXPECT_FALSE(pon(8886, 257, h, 0xC000));
    EXPECT_FALSE(pon(8886, 256, 0, 0xC000));
    EXPECT_FALSE(pon(8886, 256, h, 0));
    EXPECT_FALSE(pon(8886, 256, 0x7ffffff0, 0xC000)) << "its window is gone";
    destruye_ventana(&hwnd);
}

// ---- Against the library's own

TEST(mirada, servidor_y_cliente_de_verdad_y_nada_cambia)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio), cliente = arranca_cliente("sin_ventana", servicio);
    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    mira_escritorio();
    uint32_t antes = cuenta_todos_los_manejadores();
    escritorio_visto e;
    for (int i = 0; i < 20; i++)
        e = mira_escritorio();
    EXPECT_LT(cuenta_todos_los_manejadores(), antes + 20) << "one a look";
    ASSERT_EQ(e.servicios.size(), 1u);
    const servicio_visto &s = e.servicios[0];
    EXPECT_EQ(s.id_comando_en_curso, 103u);
    const programa_visto *ps = e.programa(s.id_programa_servidor), *pc = e.programa(s.id_programa_cliente);
    ASSERT_TRUE(ps != nullptr && pc != nullptr);
    EXPECT_EQ(ps->nombre, ruta_de(servidor));
    EXPECT_TRUE(ps->es_servidor && ps->es_ventana);
    EXPECT_EQ(ps->pid, servidor.pid());
    EXPECT_EQ(pc->nombre, ruta_de(cliente));
    EXPECT_TRUE(pc->es_cliente && !pc->es_ventana && pc->hwnd == 0);
    ASSERT_TRUE(s.canal);
    EXPECT_EQ(s.canal->version_servicio, 300);
    EXPECT_EQ(s.canal->id_comando, 103u);
    EXPECT_EQ(nombre_ocupacion(s.canal->ocupacion), "under way");
    EXPECT_EQ(s.canal->hwnd_servidor, ps->hwnd);
    EXPECT_FALSE(e.hay_monitor);
    bloque_crudo registro("Ivrexa_MCB");
    std::vector<uint8_t> bytes = registro.bytes(0, 22);
    mira_escritorio();
    EXPECT_TRUE(bytes_iguales(bytes, registro.bytes(0, 22)));
    servidor.di("SIGUE");
    cliente.espera_linea("RESULTADO", 10000);
}

TEST(mirada, un_registro_que_no_para_se_mira_y_se_dice)
{
    bloque_crudo registro("Ivrexa_MCB", 8886);
    volatile uint8_t *datos = registro.datos();
    std::atomic<bool> fin{false};
    std::thread otro([&] {
        for (uint8_t n = 1; !fin; n++)
            for (size_t i = 22; i < 8886; i += 64)
                datos[i] = n;
    });
    // A busy machine may let the other thread rest during a look.
    EXPECT_TRUE(espera_hasta([] { return !mira_escritorio().quieto; }, 10000));
    fin = true;
    otro.join();
    EXPECT_TRUE(mira_escritorio().quieto);
}

// ---- Names of states

TEST(mirada, nombres_de_los_estados)
{
    using funcion = std::string (*)(uint32_t);
    struct caso {
        funcion nombre;
        std::vector<const char *> nombres;
    };
    const caso casos[] = {
        {nombre_estado_comando, {"none", "written", "executing", "finished", "received", "seen", "?6"}},
        {nombre_estado_servidor, {"stopped", "waiting", "executing", "finished", "?4"}},
        {nombre_ocupacion, {"free", "being written", "under way", "?3"}},
        {nombre_estado_notificacion, {"free", "written", "taken", "handled", "?4"}},
        {nombre_espera_cliente,
         {"", "for its turn", "for the server to take the command", "for the server to finish",
          "for the server to see the receipt", "?5"}},
        {nombre_espera_servidor, {"", "for a command", "for the client to take the result", "?3"}},
        {nombre_resultado, {"NINGUNO", "OK", "CANCELADO", "ERROR", ""}},
    };
    for (const caso &c : casos)
        for (uint32_t i = 0; i < c.nombres.size(); i++)
            EXPECT_EQ(c.nombre(i), c.nombres[i]);
    EXPECT_EQ(nombre_ocupacion(0xffffffff), "?4294967295");
}

// ---- Heartbeats

static escritorio_visto con_programa(const char *nombre, uint32_t contador, uint64_t hwnd = 0)
{
    escritorio_visto e;
    programa_visto p;
    p.id_programa = 2;
    p.nombre = nombre;
    p.contador_vivo = contador;
    p.hwnd = hwnd;
    e.programas.push_back(p);
    return e;
}

static void espera_pulso(const latidos &l, uint64_t ahora, latidos::pulso p, uint64_t callado)
{
    EXPECT_EQ(l.de(2, ahora).p, p);
    EXPECT_EQ(l.de(2, ahora).callado_ms, callado);
}

TEST(latidos, nuevo_se_mueve_callado)
{
    latidos l;
    espera_pulso(l, 1000, latidos::pulso::nuevo, 0);
    l.anota(con_programa("a", 5), 1000);
    espera_pulso(l, 1000, latidos::pulso::nuevo, 0);
    espera_pulso(l, 3599, latidos::pulso::nuevo, 2599);
    espera_pulso(l, 3600, latidos::pulso::callado, 2600);
    l.anota(con_programa("a", 6), 4000);
    espera_pulso(l, 4000, latidos::pulso::se_mueve, 0);
    l.anota(con_programa("a", 6), 6000);
    espera_pulso(l, 6599, latidos::pulso::se_mueve, 2599);
    espera_pulso(l, 6600, latidos::pulso::callado, 2600);
    l.anota(con_programa("a", 7), 7000);
    espera_pulso(l, 7100, latidos::pulso::se_mueve, 100);
    espera_pulso(l, 6900, latidos::pulso::se_mueve, 0); // a clock that went back
    l.anota(escritorio_visto(), 7200);
    espera_pulso(l, 7200, latidos::pulso::nuevo, 0);
}

TEST(latidos, entrada_que_toma_otro_programa_empieza_de_nuevo)
{
    const escritorio_visto otros[] = {con_programa("b", 50), con_programa("a", 50, 0x1234), con_programa("a", 3)};
    for (const escritorio_visto &otro : otros) {
        latidos l;
        l.anota(con_programa("a", 5), 1000);
        l.anota(con_programa("a", 6), 2000);
        l.anota(otro, 3000);
        espera_pulso(l, 3500, latidos::pulso::nuevo, 500);
    }
}

TEST(latidos, de_un_servidor_de_verdad)
{
    papel servidor = arranca_servidor("ventana", nombre_unico("serv"));
    latidos l;
    auto pulso = [&] {
        escritorio_visto e = mira_escritorio();
        l.anota(e, GetTickCount64());
        return e.programas.size() == 1 ? l.de(e.programas[0].id_programa, GetTickCount64()).p : latidos::pulso::nuevo;
    };
    EXPECT_TRUE(espera_hasta([&] { return pulso() == latidos::pulso::se_mueve; }, 5000));
    servidor.suspende();
    EXPECT_TRUE(espera_hasta([&] { return pulso() == latidos::pulso::callado; }, 8000));
    servidor.reanuda();
    EXPECT_TRUE(espera_hasta([&] { return pulso() == latidos::pulso::se_mueve; }, 8000));
}
