// The registry's programs: who has which entry, and the heartbeat.
#include "iv_mcbase_apoyo.h"

#include "comun/importacion.h"

IMPORTACION(Sleep);

// ---- Programs

TEST_F(iv_mcbase, programa_nuevo_toma_la_primera_entrada_libre_y_conserva_su_contador)
{
    pon_programa(0, "a", 0);
    pon_programa(2, "b", 0);
    imagen esperada(m_bloque);
    esperada.u16(4, 1);

    EXPECT_EQ(iv_mcbase_registra_programa(0, "C:\\uno.exe", ventana_num(0x1122334455667788)), 1);
    espera_programa_nuevo(&esperada, 1, "C:\\uno.exe", 0x1122334455667788, 0);
    comprueba(esperada);
    EXPECT_EQ(m_bloque.u32(en_programa(1) + 270), 0x5A5A5A5Au);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "C:\\dos.exe", nullptr), 3);
    espera_programa_nuevo(&esperada, 3, "C:\\dos.exe", 0, 1);
    EXPECT_EQ(iv_mcbase_registra_programa(2, "C:\\tres.exe", nullptr), 4);
    espera_programa_nuevo(&esperada, 4, "C:\\tres.exe", 0, 2);
    comprueba(esperada);
}

TEST_F(iv_mcbase, mismo_nombre_y_misma_ventana_es_el_mismo_programa_y_suma_sus_tipos)
{
    m_ventana->IsWindow = [](HWND) -> BOOL {
        ADD_FAILURE() << "nothing to ask";
        return FALSE;
    };
    pon_programa(6, "programa", 0x1234, 0, 0, 0, 77);
    imagen esperada(m_bloque);
    esperada.u16(4, 1);
    for (uint32_t tipo : {0u, 1u, 2u, 1u}) { // the free entries before it do not matter
        EXPECT_EQ(iv_mcbase_registra_programa(tipo, "programa", ventana_num(0x1234)), 6);
        esperada.u16(en_programa(6) + 264 + 2 * tipo, 1);
        comprueba(esperada);
    }
}

TEST_F(iv_mcbase, nombre_de_ventana_muerta_pasa_al_nuevo_con_sus_tipos_y_su_contador)
{
    m_ventana->IsWindow = esta_viva;
    pon_programa(3, "programa", 0x1111, 1, 0, 1, 0xFFFFFFFF);
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "programa", ventana_num(0x2222)), 3);

    esperada.u16(4, 1);
    esperada.u64(en_programa(3) + 256, 0x2222);
    esperada.u16(en_programa(3) + 266, 1);
    comprueba(esperada);
}

TEST_F(iv_mcbase, quien_tiene_un_nombre_se_decide_por_su_ventana)
{
    m_ventana->IsWindow = esta_viva;
    s_ventanas_vivas = {0x1111, 0x3333};
    struct {
        const char *nombre;
        uint64_t guardada, dada;
        uint16_t esperado;
    } const casos[] = {
        {"same window", 0x1111, 0x1111, 2},
        {"same window, dead", 0x2222, 0x2222, 2},
        {"none and none: two windowless programs share", 0, 0, 2},
        {"another live window", 0x1111, 0x3333, 0},
        {"dead window", 0x2222, 0x3333, 2},
        {"dead window, new one dead too", 0x2222, 0x4444, 2},
        {"windowless holder gives way to a window", 0, 0x3333, 2},
        {"windowless newcomer against a live window", 0x1111, 0, 0},
        {"windowless newcomer against a dead window", 0x2222, 0, 0},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        SetUp();
        s_ventanas_vivas = {0x1111, 0x3333};
        pon_programa(2, "programa", caso.guardada, 1, 0, 0, 9);
        iv_mcbase_abre(0, FALSO);
        imagen esperada(m_bloque);
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(caso.dada)), caso.esperado);
        if (caso.esperado == 2)
            esperada.u64(en_programa(2) + 256, caso.dada);
        else
            espera_programa_nuevo(&esperada, 0, "programa", caso.dada, 0);
        comprueba(esperada);
    }
}

TEST_F(iv_mcbase, la_busqueda_sigue_tras_un_nombre_vivo_hasta_el_propio)
{
    m_ventana->IsWindow = esta_viva;
    s_ventanas_vivas = {0x1111, 0x2222};
    pon_programa(0, "programa", 0x1111);
    pon_programa(4, "programa", 0x2222);
    pon_programa(9, "programa", 0x3333);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(0x2222)), 4);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(0x4444)), 9); // the dead one's
    s_ventanas_vivas.push_back(0x4444);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(0x5555)), 1);
}

TEST_F(iv_mcbase, solo_se_pregunta_por_la_ventana_de_quien_tiene_el_nombre)
{
    m_ventana->IsWindow = [](HWND hwnd) -> BOOL {
        uintptr_t n = reinterpret_cast<uintptr_t>(hwnd);
        s_llamadas.push_back(std::to_string(n) + " " + std::to_string(sitio_actual()));
        return TRUE;
    };
    pon_programa(1, "otro", 100);
    pon_programa(2, "programa", 200);
    pon_programa(3, "programa", 300);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
    EXPECT_TRUE(s_llamadas.empty()); // who has no window takes nobody's place
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", ventana_num(400)), 4);
    EXPECT_EQ(s_llamadas, (argumentos{"0 7", "200 7", "300 7"}));
}

TEST_F(iv_mcbase, ventanas_de_verdad_viva_y_destruida)
{
    m_ventana->IsWindow = m_ventana.antes().IsWindow;
    HWND viva = crea_ventana(), otra = crea_ventana(), nueva = crea_ventana();
    ASSERT_TRUE(viva != nullptr && otra != nullptr && nueva != nullptr);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", viva), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", otra), 1);
    destruye_ventana(&viva);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nueva), 0);
    destruye_ventana(&otra);
    destruye_ventana(&nueva);
}

TEST_F(iv_mcbase, nombres_de_programa_se_comparan_enteros_y_con_mayusculas)
{
    pon_programa(5, "Programa", 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "Program", nullptr), 1);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "Programa2", nullptr), 2);
    EXPECT_EQ(iv_mcbase_registra_programa(0, "Programa", nullptr), 5);
}

TEST_F(iv_mcbase, nombre_de_programa_guarda_255_caracteres)
{
    const std::string justo(255, 'j'), largo(256, 'l');
    iv_mcbase_abre(0, FALSO);
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_registra_programa(0, justo.c_str(), nullptr), 0);
    espera_programa_nuevo(&esperada, 0, justo, 0, 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, justo.c_str(), nullptr), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, largo.c_str(), nullptr), 1);
    espera_programa_nuevo(&esperada, 1, largo.substr(0, 255), 0, 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, largo.c_str(), nullptr), 2); // what was kept is another name
    espera_programa_nuevo(&esperada, 2, largo.substr(0, 255), 0, 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, largo.substr(0, 255).c_str(), nullptr), 1);
    comprueba(esperada);
}

TEST_F(iv_mcbase, programa_17_se_informa_y_no_escribe_nada)
{
    m_ventana->IsWindow = esta_viva;
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(iv_mcbase_registra_programa(0, ("p" + std::to_string(i)).c_str(), ventana_num(0x1111)), i);
    EXPECT_SIN_INFORMES();
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "p16", ventana_num(0x1111)), 16);
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    comprueba(esperada);

    EXPECT_EQ(iv_mcbase_registra_programa(1, "p15", ventana_num(0x1111)), 15); // who is there needs no place
    EXPECT_EQ(iv_mcbase_registra_programa(1, "p7", ventana_num(0x2222)), 7);
    esperada.u16(en_programa(15) + 266, 1);
    esperada.u16(en_programa(7) + 266, 1);
    esperada.u64(en_programa(7) + 256, 0x2222);
    comprueba(esperada);
}

TEST_F(iv_mcbase, nombre_sin_final_en_el_bloque_se_lee_acotado)
{
    for (uint32_t i = 0; i < 16; i++)
        pon_programa(i, "x", 0x7878787878787878);
    for (uint32_t i = 0; i < 16; i++)
        m_bloque.pon_bytes(en_programa(i), std::vector<uint8_t>(256, 'x'));
    imagen esperada(m_bloque);
    esperada.u16(4, 1);
    esperada.u16(en_programa(0) + 264, 1);
    HWND hwnd = ventana_num(0x7878787878787878);
    EXPECT_EQ(iv_mcbase_registra_programa(0, std::string(255, 'x').c_str(), hwnd), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(0, std::string(256, 'x').c_str(), hwnd), 16);
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    comprueba(esperada);
}

TEST_F(iv_mcbase, quitar_un_programa_vacia_su_entrada_y_deja_sus_servicios)
{
    pon_programa(0, "uno", 0x1111, 1, 1, 1, 5);
    pon_programa(15, "dos", 0x2222, 1, 1, 1, 6);
    pon_servicio(0, "Calc");
    m_bloque.pon_u16(en_servicio(0) + 64, 15);
    iv_mcbase_abre(0, FALSO);
    imagen esperada(m_bloque);

    iv_mcbase_quita_programa(15);

    esperada.ceros(en_programa(15), 1);
    esperada.ceros(en_programa(15) + 256, 18);
    comprueba(esperada);
    EXPECT_NE(s_mcbase_acceso, nullptr);
}

TEST_F(iv_mcbase, quitar_un_indice_de_16_o_mas_o_sin_acceso_no_hace_nada)
{
    pon_programa(0, "uno", 0x1111, 1, 1, 1, 5);
    imagen esperada(m_bloque);
    iv_mcbase_quita_programa(0);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    comprueba(esperada);

    m_bloque.pon_bytes(en_programa(0), {0});
    esperada.ceros(en_programa(0), 1);
    iv_mcbase_abre(0, FALSO);
    iv_mcbase_quita_programa(16);
    iv_mcbase_quita_programa(65535);
    comprueba(esperada);
    EXPECT_NE(s_mcbase_acceso, nullptr); // not even released, though it is empty
    iv_mcbase_quita_programa(3);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

TEST_F(iv_mcbase, programa_quitado_dos_sin_ventana_de_un_nombre_se_van_a_la_vez)
{
    EXPECT_EQ(iv_mcbase_registra_programa(0, "mismo", nullptr), 0);
    EXPECT_EQ(iv_mcbase_registra_programa(1, "mismo", nullptr), 0);
    iv_mcbase_quita_programa(0);
    EXPECT_EQ(m_bloque.texto(en_programa(0), 256), "");
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

// ---- Heartbeat

TEST_F(iv_mcbase, latido_cuenta_uno_tras_dos_segundos_y_para_sin_entrada)
{
    pon_programa(3, "uno", 0, 1, 0, 0, 41);
    pon_programa(15, "dos", 0, 1, 0, 0, 0xFFFFFFFF);
    imagen esperada(m_bloque);
    esperada.u32(en_programa(3) + 270, 42);
    esperada.u32(en_programa(15) + 270, 0);
    i_free(i_malloc(1));                       // who beats has a heap; without one it would stop
    const uint16_t ids[] = {3, 15, 16, 65535}; // each beat sleeps 2 s, so all of them at once
    int16_t paradas[4] = {7, 7, 7, 7};
    uint64_t ms[4] = {};
    std::vector<std::unique_ptr<hilo>> hilos;
    for (uint32_t h = 0; h < 4; h++)
        hilos.push_back(std::make_unique<hilo>([&, h] {
            uint64_t inicio = GetTickCount64();
            paradas[h] = iv_mcbase_estoy_vivo(ids[h]);
            ms[h] = GetTickCount64() - inicio;
        }));
    hilos.clear(); // waits for them

    const int16_t esperadas[4] = {0, 0, 1, 1};
    for (uint32_t h = 0; h < 4; h++) {
        EXPECT_EQ(paradas[h], esperadas[h]) << ids[h];
        EXPECT_GE(ms[h], 1980u) << ids[h]; // the tick count is coarse
        EXPECT_LT(ms[h], 8000u) << ids[h];
    }
    comprueba(esperada);
    EXPECT_NE(s_mcbase_acceso, nullptr); // opened for it, without counting as a registration
}

TEST_F(iv_mcbase, latido_para_cuando_la_sesion_se_ha_cerrado)
{
    pon_programa(3, "uno", 0, 1, 0, 0, 41);
    iv_mcbase_abre(0, FALSO);
    ivrexa_cierra_sesion();
    imagen esperada(m_bloque);

    EXPECT_EQ(iv_mcbase_estoy_vivo(3), 1);

    comprueba(esperada);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
}

PAPEL(latido_con_traza)
{
    captura_traza traza;
    iv_mcbase_registra_programa(0, "programa", nullptr);
    traza.borra();
    yo.di("LISTO");
    hilo latido([] { iv_mcbase_estoy_vivo(16); });
    EXPECT_FALSE(traza.espera("ESTOY VIVO", 1500)); // the record follows the sleep
    EXPECT_TRUE(latido.acaba(10000));
    EXPECT_EQ(enmascara_tiempos(traza.texto()), "\n*** <t>:  ESTOY VIVO 16\n");
    traza.borra();
    iv_mcbase_estoy_vivo(0);
    EXPECT_EQ(enmascara_tiempos(traza.texto()), "\n*** <t>:  ESTOY VIVO 0\n");
    return 0;
}

TEST_F(iv_mcbase, latido_deja_su_traza_tambien_sin_entrada)
{
    opciones_papel con_traza;
    con_traza.entorno["IVREXA_DEBUG"] = "1";
    EXPECT_EQ(arranca_papel("latido_con_traza", {}, con_traza).espera_fin(20000), 0u);
}

// The beat's own sleep, seen and not slept.
static void con_latido_seguido(const std::function<void()> &trabajo)
{
    static decltype(&Sleep) duerme = __imp_Sleep;
    s_llamadas.clear();
    importacion_cambiada<decltype(&Sleep)> cambio(__imp_Sleep, [](DWORD ms) {
        if (ms < 1000)
            return duerme(ms);
        s_llamadas.push_back(
            junta({std::to_string(ms), std::to_string(sitio_actual()), s_mutex->libre() ? "free" : "held",
                   std::to_string(s_bloque->u32(en_programa(4) + 270))}));
    });
    trabajo();
}

TEST_F(iv_mcbase, latido_duerme_antes_y_sin_el_mutex_y_cuenta_tambien_en_una_entrada_libre)
{
    i_free(i_malloc(1));
    m_bloque.pon_u32(en_programa(4) + 270, 7);
    imagen esperada(m_bloque);
    con_latido_seguido([] {
        EXPECT_EQ(iv_mcbase_estoy_vivo(4), 0);
        EXPECT_EQ(iv_mcbase_estoy_vivo(4), 0);
    });
    EXPECT_EQ(s_llamadas, (argumentos{"2000|0|free|7", "2000|0|free|8"}));
    esperada.u32(en_programa(4) + 270, 9);
    comprueba(esperada);
}

TEST_F(iv_mcbase, latido_sin_entrada_no_abre_el_registro)
{
    i_free(i_malloc(1));
    con_latido_seguido([] {
        EXPECT_EQ(iv_mcbase_estoy_vivo(16), 1);
        EXPECT_EQ(s_mcbase_acceso, nullptr);
        EXPECT_EQ(iv_mcbase_estoy_vivo(15), 0);
        EXPECT_NE(s_mcbase_acceso, nullptr);
    });
    EXPECT_EQ(s_llamadas.size(), 2u);
}

TEST_F(iv_mcbase, latido_de_un_indice_de_16_o_mas_se_lee_como_0)
{
    pon_programa(15, "p", 0, 0, 0, 0, 0xFFFFFFFF);
    EXPECT_EQ(iv_mcbase_latido(vista(), 15), 0xFFFFFFFFu);
    EXPECT_EQ(iv_mcbase_latido(vista(), 14), 0x5A5A5A5Au);
    EXPECT_EQ(iv_mcbase_latido(vista(), 16), 0u);
    EXPECT_EQ(iv_mcbase_latido(vista(), 65535), 0u);
}
