// Notifications and documents: a client of the layer is told once, where it asked to be, with the data.
#include "hpp_apoyo.h"

#include "comun/hilo.h"

using ivrexa::client;
using ivrexa::document;
using ivrexa::notification;
using ivrexa::session;
using ivrexa::where;

// What reached the function, and where.
struct recibido {
    std::string servicio, texto;
    uint32_t id = 0, dato = 0;
    size_t valores = 0;
    std::thread::id hilo;
};

// A client with a window, of a server that notifies.
class hpp_avisos : public con_cada_capa {
protected:
    void SetUp() override
    {
        con_cada_capa::SetUp();
        m_hwnd = crea_ventana();
        m_sesion.emplace("hpp_avisado", hwnd_capa(m_hwnd));
        m_sesion->on_failure([this](const std::string &de, std::exception_ptr) {
            std::lock_guard<std::mutex> guarda(m_candado);
            m_fallos.push_back(de);
        });
    }
    void TearDown() override
    {
        m_documento.reset();
        m_sesion.reset();
        destruye_ventana(&m_hwnd);
    }

    // Registers, and opens a document, which gives the client its id.
    void escucha(where donde)
    {
        m_cliente.emplace(
            *m_sesion, servicio, [this](notification &n) { recibe(n); }, donde);
        m_documento.emplace(*m_cliente, L"c:\\documento", 7);
        EXPECT_EQ(m_documento->client_id(), 200u);
    }

    size_t cuantos()
    {
        std::lock_guard<std::mutex> guarda(m_candado);
        return m_recibidos.size();
    }

    // Dispatches until the server says that it was answered, and `num` have been received in all.
    void bombea_hasta_avisado(papel &servidor, uint32_t dato, size_t num)
    {
        std::string linea = "AVISADO " + std::to_string(dato);
        bool dicho = false;
        EXPECT_EQ(bombea_hasta(
                      [&] {
                          dicho = dicho || servidor.busca_linea(linea, 0).has_value();
                          return dicho && cuantos() >= num;
                      },
                      PLAZO_MS),
                  bombeo::cumplido)
            << linea;
    }

    void recibe(notification &n)
    {
        std::lock_guard<std::mutex> guarda(m_candado);
        m_recibidos.push_back({n.service, n.data.find<std::string>("texto").value_or("-"), n.client_id, n.datum,
                               n.data.size(), std::this_thread::get_id()});
        if (n.datum == 13)
            throw std::runtime_error("unlucky");
    }

    HWND m_hwnd = nullptr;
    std::optional<session> m_sesion;
    std::optional<client> m_cliente;
    std::optional<document> m_documento;
    std::mutex m_candado;
    std::vector<recibido> m_recibidos;
    std::vector<std::string> m_fallos;
};
CON_CADA_CAPA(hpp_avisos);

TEST_P(hpp_avisos, llegan_una_vez_con_sus_datos_al_hilo_de_la_ventana)
{
    papel servidor = arranca_capa(clase, servicio);
    escucha(where::window_thread);
    servidor.di("AVISA 200 41 hola");
    bombea_hasta_avisado(servidor, 41, 1);
    servidor.di("AVISA 200 42");
    bombea_hasta_avisado(servidor, 42, 2);
    ASSERT_EQ(m_recibidos.size(), 2u);
    EXPECT_EQ(m_recibidos[0].servicio, servicio);
    EXPECT_EQ(m_recibidos[0].id, 200u);
    EXPECT_EQ(m_recibidos[0].dato, 41u);
    EXPECT_EQ(m_recibidos[0].texto, "hola");
    EXPECT_EQ(m_recibidos[0].valores, 2u);
    EXPECT_EQ(m_recibidos[1].id, 200u);
    EXPECT_EQ(m_recibidos[1].dato, 42u);
    EXPECT_EQ(m_recibidos[1].valores, 0u);
    for (const recibido &r : m_recibidos)
        EXPECT_EQ(r.hilo, std::this_thread::get_id());
    EXPECT_TRUE(m_fallos.empty());
}

TEST_P(hpp_avisos, o_al_de_la_biblioteca_y_tambien_una_vez)
{
    papel servidor = arranca_capa(clase, servicio);
    escucha(where::library_thread);
    for (uint32_t dato : {41u, 42u}) {
        servidor.di("AVISA 200 " + std::to_string(dato) + " hola");
        bombea_hasta_avisado(servidor, dato, dato - 40);
    }
    // The window's messages of both have been dispatched behind a message of ours.
    PostMessageW(m_hwnd, WM_APP, 0, 0);
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&msg);
    ASSERT_EQ(cuantos(), 2u);
    for (const recibido &r : m_recibidos) {
        EXPECT_NE(r.hilo, std::this_thread::get_id());
        EXPECT_EQ(r.texto, "hola");
        EXPECT_EQ(r.id, 200u);
    }
    EXPECT_EQ(m_recibidos[0].dato, 41u);
    EXPECT_EQ(m_recibidos[1].dato, 42u);
}

// With the window's thread standing still: the server waits until the data has been taken, no longer.
TEST_P(hpp_avisos, el_servidor_no_espera_a_la_ventana)
{
    papel servidor = arranca_capa(clase, servicio);
    escucha(where::window_thread);
    servidor.di("AVISA 200 41 uno");
    EXPECT_EQ(servidor.espera_linea("AVISADO ", PLAZO_MS), "AVISADO 41");
    servidor.di("AVISA 200 42 dos");
    EXPECT_EQ(servidor.espera_linea("AVISADO ", PLAZO_MS), "AVISADO 42");
    EXPECT_EQ(cuantos(), 0u);
    EXPECT_EQ(bombea_hasta([&] { return cuantos() >= 2; }, PLAZO_MS), bombeo::cumplido);
    ASSERT_EQ(cuantos(), 2u);
    EXPECT_EQ(m_recibidos[0].texto + m_recibidos[1].texto, "unodos");
}

// What the function works on may go before the session does. The messages of the window are the host's to dispatch.
TEST_P(hpp_avisos, lo_que_la_ventana_no_ha_repartido_cuando_acaba_la_sesion_se_pierde)
{
    papel servidor = arranca_capa(clase, servicio);
    escucha(where::window_thread);
    servidor.di("AVISA 200 41 uno");
    EXPECT_EQ(servidor.espera_linea("AVISADO ", PLAZO_MS), "AVISADO 41");
    m_documento.reset();
    m_sesion.reset();
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&msg);
    EXPECT_EQ(cuantos(), 0u);
    EXPECT_TRUE(m_fallos.empty());
}

TEST_P(hpp_avisos, lo_que_escapa_de_la_funcion_se_dice_y_el_servidor_sigue)
{
    for (where donde : {where::library_thread, where::window_thread}) {
        papel servidor = arranca_capa(clase, servicio);
        escucha(donde);
        servidor.di("AVISA 200 13 mal");
        bombea_hasta_avisado(servidor, 13, 1);
        servidor.di("AVISA 200 14 bien");
        bombea_hasta_avisado(servidor, 14, 2);
        EXPECT_EQ(m_fallos, std::vector<std::string>{servicio});
        acaba(servidor);
        m_documento.reset();
        m_sesion.reset();
        destruye_ventana(&m_hwnd);
        m_recibidos.clear();
        m_fallos.clear();
        SetUp();
    }
}

// ---- Documents

class hpp_documentos : public con_sesion {};

TEST_F(hpp_documentos, dan_al_cliente_su_numero_el_mismo_para_todos)
{
    client c(sesion(), servicio);
    document uno(c, L"c:\\uno", 1), dos(c, L"", 0xffffffff);
    EXPECT_EQ(uno.client_id(), 200u);
    EXPECT_EQ(dos.client_id(), 200u);
    EXPECT_EQ(uno.id(), 1u);
    EXPECT_EQ(dos.id(), 0xffffffffu);
}

TEST_F(hpp_documentos, rechazan_el_numero_0_un_nulo_y_otra_ruta_para_el_mismo_numero)
{
    client c(sesion(), servicio), otro(sesion(), servicio + "_2");
    EXPECT_RECHAZO(usage, document(c, L"c:\\uno", 0));
    EXPECT_RECHAZO(path, document(c, std::wstring(L"a\0b", 3), 1));
    document uno(c, L"c:\\uno", 1);
    EXPECT_RECHAZO(usage, document(otro, L"c:\\dos", 1));
    {
        document mismo(otro, L"c:\\uno", 1);
        EXPECT_EQ(mismo.id(), 1u);
    }
    EXPECT_RECHAZO(usage, document(otro, L"c:\\dos", 1));
    EXPECT_SIN_INFORMES();
}

TEST_F(hpp_documentos, caben_32_y_al_cerrar_uno_cabe_otro)
{
    client c(sesion(), servicio), otro(sesion(), servicio + "_2");
    std::vector<document> abiertos;
    for (uint32_t i = 1; i <= 32; i++)
        abiertos.emplace_back(c, L"c:\\" + std::to_wstring(i), i);
    EXPECT_RECHAZO(too_many, document(c, L"c:\\33", 33));
    EXPECT_EQ(document(otro, L"c:\\32", 32).id(), 32u) << "the same one, for another service";
    abiertos.pop_back();
    document otro_mas(c, L"c:\\33", 33);
    EXPECT_EQ(otro_mas.client_id(), 200u);
    EXPECT_RECHAZO(too_many, document(c, L"c:\\34", 34));
}

TEST_F(hpp_documentos, se_mueven_y_se_cierran_una_vez)
{
    client c(sesion(), servicio);
    std::optional<document> movido;
    {
        document uno(c, L"c:\\uno", 1);
        movido.emplace(std::move(uno));
    }
    EXPECT_RECHAZO(usage, document(c, L"c:\\otro", 1));
    movido.reset();
    document otro(c, L"c:\\otro", 1);
    EXPECT_SIN_INFORMES();
}

TEST_F(hpp_documentos, tras_la_sesion_no_se_abren_y_cerrarlos_no_hace_nada)
{
    client c(sesion(), servicio);
    {
        document uno(c, L"c:\\uno", 1);
        cierra();
        EXPECT_RECHAZO(usage, document(c, L"c:\\dos", 2));
    }
    EXPECT_SIN_INFORMES();
}
