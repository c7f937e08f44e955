// monitor_ajustes.cpp - what the monitor remembers: read back as written, and harmless whatever stands in the registry.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#include "comun/util.h"
#include "ivrexa-monitor/ajustes.h"

using namespace monitor;

static bool operator==(const RECT &a, const RECT &b)
{
    return EqualRect(&a, &b) != FALSE;
}

static std::ostream &operator<<(std::ostream &salida, const RECT &r)
{
    return salida << r.left << "," << r.top << "," << r.right << "," << r.bottom;
}

static std::wstring ancho(const std::string &ascii)
{
    return std::wstring(ascii.begin(), ascii.end());
}

// A key of this test alone, which is gone behind it.
class monitor_ajustes : public ::testing::Test {
protected:
    monitor_ajustes() : m_clave(L"Software\\ivrexa\\" + ancho(nombre_unico("test-ajustes"))) {}
    ~monitor_ajustes() override
    {
        RegDeleteKeyW(HKEY_CURRENT_USER, m_clave.c_str());
        RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\ivrexa"); // only where nothing else is in it
    }

    const wchar_t *clave() const { return m_clave.c_str(); }
    ajustes lee() const { return lee_ajustes(clave()); }

    void pon(const wchar_t *nombre, DWORD tipo, const void *datos, size_t bytes)
    {
        ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, clave(), nombre, tipo, datos, static_cast<DWORD>(bytes)), 0);
    }
    void pon_texto(const wchar_t *nombre, const std::wstring &texto)
    {
        pon(nombre, REG_SZ, texto.c_str(), (texto.size() + 1) * sizeof(wchar_t));
    }
    void pon_numero(const wchar_t *nombre, DWORD numero) { pon(nombre, REG_DWORD, &numero, sizeof numero); }

private:
    std::wstring m_clave;
};

static ajustes otros()
{
    ajustes a;
    a.hay_ventana = true;
    a.ventana = {-300, 20, 900, 720};
    a.ppp_ventana = 144;
    a.maximizada = true;
    a.anchos_actividades = {90, 60, 0, 200, 100, 50, 10000};
    a.anchos_servicios = {100, 40};
    a.anchos_programas = {77};
    a.anchos_valores = {1, 2, 3};
    a.alto_actividades_por_mil = 700;
    a.filtro_servicio = "Espa\xc3\xb1"
                        "a, \xe2\x82\xac \xf0\x9f\x98\x80";
    a.filtro_clases = 0x80000005;
    a.guarda_valores = false;
    return a;
}

static void espera_iguales(const ajustes &a, const ajustes &b)
{
    EXPECT_EQ(a.hay_ventana, b.hay_ventana);
    EXPECT_EQ(a.ventana, b.ventana);
    EXPECT_EQ(a.ppp_ventana, b.ppp_ventana);
    EXPECT_EQ(a.maximizada, b.maximizada);
    EXPECT_EQ(a.anchos_actividades, b.anchos_actividades);
    EXPECT_EQ(a.anchos_servicios, b.anchos_servicios);
    EXPECT_EQ(a.anchos_programas, b.anchos_programas);
    EXPECT_EQ(a.anchos_valores, b.anchos_valores);
    EXPECT_EQ(a.alto_actividades_por_mil, b.alto_actividades_por_mil);
    EXPECT_EQ(a.filtro_servicio, b.filtro_servicio);
    EXPECT_EQ(a.filtro_clases, b.filtro_clases);
    EXPECT_EQ(a.guarda_valores, b.guarda_valores);
}

TEST_F(monitor_ajustes, sin_clave_son_los_de_fabrica_y_leer_no_la_crea)
{
    ajustes a = lee();
    espera_iguales(a, ajustes());
    EXPECT_FALSE(a.hay_ventana);
    EXPECT_EQ(a.alto_actividades_por_mil, 550);
    EXPECT_EQ(a.filtro_clases, 0xffffffffu);
    EXPECT_TRUE(a.guarda_valores);
    HKEY abierta = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, clave(), 0, KEY_READ, &abierta), ERROR_FILE_NOT_FOUND);
}

TEST_F(monitor_ajustes, se_lee_lo_que_se_escribio)
{
    ASSERT_TRUE(escribe_ajustes(otros(), clave()));
    espera_iguales(lee(), otros());
    ASSERT_TRUE(escribe_ajustes(ajustes(), clave()));
    espera_iguales(lee(), ajustes());
}

TEST_F(monitor_ajustes, una_clave_que_no_se_puede_crear_se_dice)
{
    std::wstring larga = std::wstring(clave()) + L"\\" + std::wstring(300, L'x'); // names have 255 characters at most
    EXPECT_FALSE(escribe_ajustes(otros(), larga.c_str()));
    espera_iguales(lee_ajustes(larga.c_str()), ajustes());
}

TEST_F(monitor_ajustes, un_valor_de_otro_tipo_es_como_uno_que_falta)
{
    for (const wchar_t *nombre : {L"ventana", L"anchos_actividades", L"anchos_servicios", L"anchos_programas",
                                  L"anchos_valores", L"filtro_servicio"})
        pon_numero(nombre, 7);
    for (const wchar_t *nombre :
         {L"ppp_ventana", L"maximizada", L"alto_actividades_por_mil", L"filtro_clases", L"guarda_valores"})
        pon_texto(nombre, L"0");
    espera_iguales(lee(), ajustes());
}

TEST_F(monitor_ajustes, un_numero_de_otro_tamanyo_o_sin_sentido_es_como_uno_que_falta)
{
    const BYTE cortos[] = {1, 0};
    pon(L"filtro_clases", REG_DWORD, cortos, sizeof cortos);
    pon_numero(L"maximizada", 2);
    pon_numero(L"ppp_ventana", 47);
    pon_numero(L"guarda_valores", 2);
    for (DWORD alto : {0u, 49u, 951u, 0xffffffffu}) {
        pon_numero(L"alto_actividades_por_mil", alto);
        espera_iguales(lee(), ajustes());
    }
    for (DWORD alto : {50u, 950u}) {
        pon_numero(L"alto_actividades_por_mil", alto);
        EXPECT_EQ(lee().alto_actividades_por_mil, static_cast<int>(alto));
    }
}

TEST_F(monitor_ajustes, una_ventana_sin_sentido_no_se_recuerda)
{
    for (const wchar_t *texto :
         {L"", L"1,2,3", L"1,2,3,4,5", L"100,100,100,200", L"100,100,200,100", L"200,100,100,200", L"a,b,c,d",
          L"1,2,3,4x", L"1,2,3,4,", L",1,2,3,4", L"1,,3,4", L"1;2;3;4", L"0,0,100001,10", L"-100001,0,10,10",
          L"99999999999999999999,0,99999999999999999999,10", L"0,0,10.5,10"}) {
        pon_texto(L"ventana", texto);
        EXPECT_FALSE(lee().hay_ventana) << texto;
        EXPECT_EQ(lee().ventana, (RECT{0, 0, 0, 0}));
    }
    pon_texto(L"ventana", L"-100000,-5,100000,10");
    EXPECT_TRUE(lee().hay_ventana);
    EXPECT_EQ(lee().ventana, (RECT{-100000, -5, 100000, 10}));
}

TEST_F(monitor_ajustes, anchos_sin_sentido_no_se_recuerdan)
{
    std::wstring sesenta_y_cinco = L"1";
    for (int i = 0; i < 64; i++)
        sesenta_y_cinco += L",1";
    for (const std::wstring &texto : {std::wstring(L"10,-1,20"), std::wstring(L"10,10001"), std::wstring(L"10,x"),
                                      std::wstring(L"4294967306"), sesenta_y_cinco, std::wstring(5000, L'1')}) {
        pon_texto(L"anchos_actividades", texto);
        EXPECT_TRUE(lee().anchos_actividades.empty()) << std::string(texto.begin(), texto.end());
    }
    pon_texto(L"anchos_actividades", sesenta_y_cinco.substr(2));
    EXPECT_EQ(lee().anchos_actividades.size(), 64u);
}

TEST_F(monitor_ajustes, textos_enormes_o_sin_su_fin_no_hacen_danyo)
{
    pon_texto(L"filtro_servicio", std::wstring(1u << 20, L'x'));
    EXPECT_EQ(lee().filtro_servicio, "");
    pon_texto(L"filtro_servicio", std::wstring(1023, L'x'));
    EXPECT_EQ(lee().filtro_servicio, std::string(1023, 'x'));
    pon(L"filtro_servicio", REG_SZ, L"sin fin", 7 * sizeof(wchar_t));
    EXPECT_EQ(lee().filtro_servicio, "sin fin");
    pon(L"filtro_servicio", REG_SZ, L"abc", 5); // half a character at its end
    EXPECT_EQ(lee().filtro_servicio.substr(0, 2), "ab");
    pon(L"ventana", REG_SZ, L"1,2,3,4", 7 * sizeof(wchar_t));
    EXPECT_EQ(lee().ventana, (RECT{1, 2, 3, 4}));
}

TEST_F(monitor_ajustes, lo_que_falta_no_quita_lo_que_hay)
{
    pon_texto(L"anchos_valores", L"5,6");
    pon_texto(L"ventana", L"nonsense");
    ajustes a = lee();
    EXPECT_EQ(a.anchos_valores, (std::vector<int>{5, 6}));
    a.anchos_valores.clear();
    espera_iguales(a, ajustes());
}

// ---- Screens

TEST_F(monitor_ajustes, en_una_pantalla_de_otra_densidad_la_ventana_es_igual_de_grande_a_la_vista)
{
    const RECT ventana = {-300, 20, 500, 620};
    struct fila {
        uint32_t de, a;
        RECT despues;
    };
    const fila filas[] = {
        {96, 96, ventana},
        {96, 144, {-300, 20, 900, 920}},
        {144, 96, {-300, 20, 233, 420}},
        {192, 96, {-300, 20, 100, 320}},
        {0, 144, ventana}, // written by a version that did not tell
    };
    for (const fila &f : filas)
        EXPECT_EQ(con_otros_ppp(ventana, f.de, f.a), f.despues) << f.de << " to " << f.a;
}

TEST_F(monitor_ajustes, la_ventana_acaba_dentro_de_una_pantalla)
{
    const std::vector<RECT> areas = {{0, 0, 1920, 1040}, {1920, 0, 3200, 984}, {-1280, 100, 0, 1124}};
    struct fila {
        const char *que;
        RECT antes, despues;
    };
    const fila filas[] = {
        {"inside: as it is", {100, 50, 900, 650}, {100, 50, 900, 650}},
        {"inside another screen: as it is", {2000, 10, 2800, 600}, {2000, 10, 2800, 600}},
        {"left of the main one", {-1200, 200, -300, 800}, {-1200, 200, -300, 800}},
        {"fills a screen: as it is", {0, 0, 1920, 1040}, {0, 0, 1920, 1040}},
        {"over the right edge of all", {2900, 10, 3700, 600}, {2400, 10, 3200, 600}},
        {"over the bottom", {100, 800, 900, 1400}, {100, 440, 900, 1040}},
        {"above the top", {100, -40, 900, 560}, {100, 0, 900, 600}},
        {"between two: to where more of it is", {1800, 10, 2600, 600}, {1920, 10, 2720, 600}},
        {"off all screens: onto the main one", {5000, 5000, 5800, 5600}, {1120, 440, 1920, 1040}},
        {"off all screens, far to the left", {-90000, -90000, -89200, -89400}, {0, 0, 800, 600}},
        {"larger than its screen: cut", {2000, -500, 6000, 5000}, {1920, 0, 3200, 984}},
        {"touches the edge from outside", {3200, 0, 4000, 600}, {1120, 0, 1920, 600}},
    };
    for (const fila &f : filas)
        EXPECT_EQ(dentro_de_una_pantalla(f.antes, areas), f.despues) << f.que;
    EXPECT_EQ(dentro_de_una_pantalla({5, 6, 7, 8}, {}), (RECT{5, 6, 7, 8})) << "no screen is known";
}

TEST_F(monitor_ajustes, las_areas_de_trabajo_empiezan_por_la_principal)
{
    std::vector<RECT> areas = areas_de_trabajo();
    RECT principal = {};
    ASSERT_TRUE(SystemParametersInfoW(SPI_GETWORKAREA, 0, &principal, 0));
    ASSERT_FALSE(areas.empty());
    EXPECT_EQ(static_cast<int>(areas.size()), GetSystemMetrics(SM_CMONITORS));
    EXPECT_EQ(areas[0], principal);
}
