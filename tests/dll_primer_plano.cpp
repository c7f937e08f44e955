// The foreground during a command. Windows of two programs, shown, on a screen without a window manager.
#include "dll_conversa.h"

enum : uint32_t { QUIEN_DELANTE = 200, PONTE_DELANTE = 201 };

// Says which window is in front while the command runs: "DELANTE n".
static int32_t dice_delante(anfitrion_peticion *p)
{
    if (p->id_comando == PONTE_DELANTE)
        SetForegroundWindow(anfitrion_yo.hwnd);
    papel_c_di("DELANTE %llu", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(GetForegroundWindow())));
    return 1;
}

PAPEL(servidor_visible)
{
    anfitrion_yo.otros = dice_delante;
    anfitrion_yo.al_nacer = [] { ShowWindow(anfitrion_yo.hwnd, SW_SHOWNOACTIVATE); };
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

class primer_plano : public conversacion, public ::testing::WithParamInterface<const char *> {
protected:
    void SetUp() override
    {
        conversacion::SetUp();
        m_servidor.emplace(arranca_papel("servidor_visible", {GetParam(), m_servicio}));
        m_hwnd_servidor = m_servidor->espera_linea("HWND ", 5000).substr(5);
        da_ventana();
        ShowWindow(hwnd(), SW_SHOW);
        registra(m_servicio);
        ponte_delante();
    }

    void TearDown() override
    {
        m_servidor.reset();
        conversacion::TearDown();
    }

    void ponte_delante()
    {
        SetForegroundWindow(hwnd());
        EXPECT_EQ(bombea_hasta([&] { return GetForegroundWindow() == hwnd() && GetActiveWindow() == hwnd(); }, 5000),
                  bombeo::cumplido);
    }

    // Runs the command; who was in front in it.
    std::string delante_en(uint32_t id_comando, uint16_t opciones)
    {
        EXPECT_EQ(ejecuta(m_servicio, id_comando, 0, nullptr, nullptr, nullptr, opciones).resultado, 1u);
        return m_servidor->espera_linea("DELANTE ", 5000).substr(8);
    }

    std::string hwnd_servidor() const { return m_hwnd_servidor; }
    std::string hwnd_cliente() const { return std::to_string(reinterpret_cast<uintptr_t>(hwnd())); }
    static std::string delante() { return std::to_string(reinterpret_cast<uintptr_t>(GetForegroundWindow())); }

private:
    const std::string m_servicio = nombre_unico("serv");
    std::optional<papel> m_servidor;
    std::string m_hwnd_servidor;
};

INSTANTIATE_TEST_SUITE_P(servidor, primer_plano, ::testing::Values("ventana", "net"),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(primer_plano, sin_opciones_se_queda_donde_esta)
{
    EXPECT_EQ(delante_en(QUIEN_DELANTE, 0), hwnd_cliente());
    EXPECT_EQ(delante(), hwnd_cliente());
    EXPECT_EQ(delante_en(PONTE_DELANTE, 0), hwnd_servidor());
    EXPECT_EQ(delante(), hwnd_servidor()) << "nobody gave it back";
}

TEST_P(primer_plano, opcion_2_trae_la_ventana_del_servidor_antes_del_comando)
{
    EXPECT_EQ(delante_en(QUIEN_DELANTE, 2), hwnd_servidor());
    EXPECT_EQ(delante(), hwnd_servidor());
}

TEST_P(primer_plano, opcion_4_lo_devuelve_a_la_ventana_que_estaba_activa)
{
    EXPECT_EQ(delante_en(QUIEN_DELANTE, 4), hwnd_cliente());
    EXPECT_EQ(delante(), hwnd_cliente());
    EXPECT_EQ(delante_en(PONTE_DELANTE, 4), hwnd_servidor());
    EXPECT_EQ(delante(), hwnd_cliente());
}

TEST_P(primer_plano, otros_bits_no_cuentan)
{
    EXPECT_EQ(delante_en(QUIEN_DELANTE, 0xfff9), hwnd_cliente());
    EXPECT_EQ(delante(), hwnd_cliente());
}

// What is given back is the window that this thread has active once the server's is in front. Whether it then still
// has one is the system's business: under Wine it has none, and the server's stays.
TEST_P(primer_plano, opciones_2_y_4_juntas_traen_al_servidor_y_devuelven_lo_que_quede_activo)
{
    EXPECT_EQ(delante_en(QUIEN_DELANTE, 6), hwnd_servidor());
    std::string al_final = delante();
    EXPECT_TRUE(al_final == hwnd_servidor() || al_final == hwnd_cliente()) << al_final;
}
