// The session and what it offers: one at a time, services, limits, their end; and what reaches a command function.
#include "hpp_apoyo.h"

#include <atomic>

#include "comun/hilo.h"
#include "otra_unidad.h"

using ivrexa::answer;
using ivrexa::client;
using ivrexa::command;
using ivrexa::outcome;
using ivrexa::result;
using ivrexa::session;

// Without anything registered.
class hpp_sesion : public ::testing::Test {
protected:
    void SetUp() override { vacia_registro(); }
    void TearDown() override { destruye_ventana(&m_hwnd); }

    ivrexa_hwnd ventana()
    {
        if (m_hwnd == nullptr)
            m_hwnd = crea_ventana();
        return hwnd_capa(m_hwnd);
    }

    const std::string servicio = nombre_unico("sesion");

private:
    HWND m_hwnd = nullptr;
};

static result bien(command &)
{
    return result::ok;
}

TEST_F(hpp_sesion, hay_una_a_la_vez)
{
    {
        session s("hpp");
        EXPECT_RECHAZO(usage, session("otra"));
    }
    session s("hpp");
    EXPECT_EQ(s.window(), nullptr);
}

// What one has made is the other's.
TEST_F(hpp_sesion, hay_una_a_la_vez_tambien_con_otra_unidad_del_programa)
{
    EXPECT_EQ(constantes_de_otra_unidad(),
              (std::vector<const void *>{&ivrexa::max_service_name, &ivrexa::max_value_name, &ivrexa::max_path,
                                         &ivrexa::max_short_text, &ivrexa::max_long_text, &ivrexa::max_services,
                                         &ivrexa::max_documents, &ivrexa::detail::heartbeat_begins}));
    ivrexa::writer datos = ivrexa::writer::output(servicio);
    {
        session s("hpp");
        EXPECT_RECHAZO(usage, sesion_de_otra_unidad());
        client c(s, servicio);
        ivrexa::request r = c.request(100);
        EXPECT_EQ(ejecuta_en_otra_unidad(c, r).what, outcome::no_such_service);
        EXPECT_RECHAZO(usage, c.execute(r)) << "it has been run there";
    }
    sesion_de_otra_unidad();
    EXPECT_RECHAZO(usage, datos.add("x", 1u)) << "it ended with a session";
}

TEST_F(hpp_sesion, rechaza_rutas_vacias_de_256_y_con_nulo_y_despues_puede_haber_una)
{
    EXPECT_RECHAZO(path, session(""));
    EXPECT_RECHAZO(path, session(std::string(256, 'r')));
    EXPECT_RECHAZO(path, session(std::string("a\0b", 3)));
    std::string ruta(255, 'r');
    session s(ruta, ventana());
    EXPECT_EQ(s.window(), ventana());
    client c(s, servicio);
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_NE(despl_programa(registro, ruta), 0u);
}

TEST_F(hpp_sesion, no_registra_nada_hasta_que_se_publica_o_se_usa_algo)
{
    auto registrado = [] {
        return existe_bloque("Ivrexa_MCB") && despl_programa(bloque_crudo("Ivrexa_MCB"), "hpp_nada") != 0;
    };
    session s("hpp_nada", ventana());
    EXPECT_FALSE(registrado());
    s.offer(servicio, bien);
    EXPECT_FALSE(registrado());
    s.publish();
    EXPECT_TRUE(registrado());
}

TEST_F(hpp_sesion, un_servicio_se_conoce_con_su_version_desde_que_se_publica_hasta_que_acaba)
{
    {
        session s("hpp", ventana());
        s.offer(servicio, bien, 321);
        s.offer(servicio + "_2", bien);
        EXPECT_EQ(ivrexa::offered(servicio), std::nullopt);
        s.publish();
        EXPECT_EQ(ivrexa::offered(servicio), 321);
        EXPECT_EQ(ivrexa::offered(servicio + "_2"), 0);
        EXPECT_EQ(ivrexa::offered(servicio + "_3"), std::nullopt);
        s.offer(servicio + "_3", bien, 0xffff);
        EXPECT_EQ(ivrexa::offered(servicio + "_3"), std::nullopt);
        s.publish();
        EXPECT_EQ(ivrexa::offered(servicio + "_3"), 0xffff);
    }
    for (const char *cola : {"", "_2", "_3"})
        EXPECT_EQ(ivrexa::offered(servicio + cola), std::nullopt);
}

TEST_F(hpp_sesion, se_encuentra_un_servicio_por_el_principio_de_su_nombre)
{
    EXPECT_EQ(ivrexa::find_service(servicio), std::nullopt);
    session s("hpp", ventana());
    s.offer(servicio + "_uno", bien, 7);
    s.publish();
    for (const std::string &prefijo : {servicio, servicio + "_uno", std::string()}) {
        std::optional<ivrexa::found_service> hallado = ivrexa::find_service(prefijo);
        ASSERT_TRUE(hallado) << prefijo;
        EXPECT_EQ(hallado->name, servicio + "_uno");
        EXPECT_EQ(hallado->version, 7);
    }
    EXPECT_FALSE(ivrexa::find_service(servicio + "_unos"));
    EXPECT_RECHAZO(service_name, ivrexa::find_service(std::string(64, 'x')));
    EXPECT_RECHAZO(service_name, ivrexa::find_service(std::string("a\0b", 3)));
}

TEST_F(hpp_sesion, nombres_que_se_rechazan_en_cada_funcion)
{
    session s("hpp", ventana());
    for (const std::string &mal : {std::string(), std::string(64, 'x'), std::string("a\\b"), std::string("a\0b", 3)}) {
        EXPECT_RECHAZO(service_name, s.offer(mal, bien));
        EXPECT_RECHAZO(service_name, s.offer_number(mal, [](command &) { return 1; }));
        EXPECT_RECHAZO(service_name, s.notify(mal, 200, 1));
        EXPECT_RECHAZO(service_name, ivrexa::offered(mal));
        EXPECT_RECHAZO(service_name, ivrexa::end_server(mal));
        EXPECT_RECHAZO(service_name, client(s, mal));
    }
    std::string de_63 = servicio + std::string(63 - servicio.size(), 'x');
    s.offer(de_63, bien, 5);
    s.publish();
    EXPECT_EQ(ivrexa::offered(de_63), 5);
}

TEST_F(hpp_sesion, usos_que_no_pueden_valer_se_rechazan)
{
    session s("hpp", ventana());
    EXPECT_RECHAZO(usage, s.publish());
    EXPECT_RECHAZO(usage, s.offer(servicio, session::handler()));
    EXPECT_RECHAZO(usage, s.offer_number(servicio, session::number_handler()));
    EXPECT_RECHAZO(usage, s.publish());
    s.offer(servicio, bien);
    EXPECT_RECHAZO(usage, s.offer(servicio, bien));
    EXPECT_RECHAZO(usage, s.notify(servicio, 200, 1));
    ivrexa::writer w = ivrexa::writer::output(servicio);
    w.add("x", 1u);
    EXPECT_RECHAZO(usage, s.notify(w, 200, 1));
    hilo aparte([&] {
        EXPECT_RECHAZO(usage, s.offer(servicio + "_2", bien));
        EXPECT_RECHAZO(usage, s.publish());
        EXPECT_RECHAZO(usage, client(s, servicio + "_3"));
    });
    EXPECT_TRUE(aparte.acaba(PLAZO_MS));
    s.publish();
}

// The loop of a service that is announced again would forget the command that it is at.
TEST_F(hpp_sesion, sin_ventana_se_publica_una_vez_y_entonces_no_se_ofrece_mas)
{
    session s("hpp");
    std::optional<ivrexa::fault> al_ofrecer, al_publicar;
    s.offer(servicio, [&](command &) {
        al_ofrecer = fallo_de([&] { s.offer(servicio + "_dentro", bien); });
        al_publicar = fallo_de([&] { s.publish(); });
        return result::ok;
    });
    s.publish();
    std::string texto;
    EXPECT_EQ(fallo_de([&] { s.publish(); }, &texto), ivrexa::fault::usage);
    EXPECT_NE(texto.find("at once"), std::string::npos) << texto;
    EXPECT_RECHAZO(usage, s.offer(servicio + "_2", bien));
    client c(s, servicio);
    EXPECT_EQ(c.execute(100).what, outcome::ok);
    EXPECT_EQ(al_ofrecer, ivrexa::fault::usage);
    EXPECT_EQ(al_publicar, ivrexa::fault::usage);
}

// What a window of ours does at WM_APP.
static std::function<void()> s_al_mandarle;

static LRESULT CALLBACK obediente(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == WM_APP)
        s_al_mandarle();
    return DefWindowProcW(hwnd, msg, wparam, lparam);
}

// Says when it dies, and then calls the layer by the client that it holds.
class testigo {
public:
    testigo(client c, uint32_t *muertos) : m_cliente(std::move(c)), m_muertos(muertos) {}
    ~testigo()
    {
        EXPECT_EQ(m_cliente.execute(100).what, outcome::not_a_client);
        ++*m_muertos;
    }
    testigo(const testigo &) = delete;
    testigo &operator=(const testigo &) = delete;

private:
    client m_cliente;
    uint32_t *m_muertos;
};

// The session knows them, and they know it by their client.
TEST_F(hpp_sesion, las_funciones_mueren_con_la_sesion_aunque_tengan_un_cliente)
{
    uint32_t muertos = 0;
    std::optional<client> sobrevive;
    {
        session s("hpp", ventana());
        sobrevive.emplace(s, servicio + "_otro");
        auto nuevo = [&] { return std::make_shared<testigo>(*sobrevive, &muertos); };
        s.offer(servicio, [suyo = nuevo()](command &) { return result::ok; });
        s.offer_number(servicio + "_2", [suyo = nuevo()](command &) { return 1; });
        s.on_failure([suyo = nuevo()](const std::string &, const std::exception_ptr &) {});
        s.publish();
        client avisado(s, servicio + "_3", [suyo = nuevo()](ivrexa::notification &) {});
        // And one whose function has itself.
        auto yo = std::make_shared<std::optional<client>>();
        yo->emplace(s, servicio + "_4", [yo, suyo = nuevo()](ivrexa::notification &) {});
        EXPECT_EQ(muertos, 0u);
    }
    EXPECT_EQ(muertos, 5u);
    EXPECT_EQ(sobrevive->execute(100).what, outcome::not_a_client);
    EXPECT_SIN_INFORMES();
}

// The library's box for a desktop without a place for another program dispatches messages.
TEST_F(hpp_sesion, lo_que_se_ofrece_bajo_una_caja_de_la_biblioteca_se_publica_con_lo_demas)
{
    HWND otra = crea_ventana(obediente);
    bloque_crudo registro("Ivrexa_MCB", 8886);
    for (size_t i = 0; i < 16; i++)
        registro.pon_texto(1430 + i * 274, "lleno_" + std::to_string(i));
    std::optional<session> s(std::in_place, "hpp", ventana());
    std::optional<ivrexa::fault> fallo;
    s_al_mandarle = [&] {
        for (int i = 1; i < 10; i++)
            s->offer(servicio + "_" + std::to_string(i), bien);
        fallo = fallo_de([&] { s->publish(); });
    };
    s->offer(servicio + "_0", bien);
    {
        hilo aparte([&] { EXPECT_TRUE(SendNotifyMessageW(otra, WM_APP, 0, 0)); }); // waits for the box
    }
    s->publish();
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    EXPECT_EQ(fallo, ivrexa::fault::usage);
    for (int i = 0; i < 10; i++)
        EXPECT_TRUE(ivrexa::offered(servicio + "_" + std::to_string(i))) << i;
    s.reset();
    s_al_mandarle = nullptr;
    destruye_ventana(&otra);
    registro.pon_bytes(0, std::vector<uint8_t>(8886, 0));
}

// The C functions would report it at the end.
TEST_F(hpp_sesion, un_servicio_que_no_se_publico_acaba_sin_una_palabra)
{
    {
        session s("hpp", ventana());
        s.offer(servicio, bien);
    }
    EXPECT_SIN_INFORMES();
}

TEST_F(hpp_sesion, el_decimoseptimo_servicio_se_rechaza)
{
    session s("hpp", ventana());
    for (uint16_t i = 0; i < 16; i++)
        s.offer(servicio + "_" + std::to_string(i), bien, i);
    EXPECT_RECHAZO(too_many, s.offer(servicio + "_16", bien));
    s.publish();
    for (uint16_t i = 0; i < 16; i++)
        EXPECT_EQ(ivrexa::offered(servicio + "_" + std::to_string(i)), i);
    EXPECT_EQ(ivrexa::offered(servicio + "_16"), std::nullopt);
}

TEST_F(hpp_sesion, un_cliente_avisado_pide_ventana_funcion_y_ser_el_primero)
{
    auto nada = [](ivrexa::notification &) {};
    {
        session s("hpp");
        EXPECT_RECHAZO(usage, client(s, servicio, nada));
    }
    session s("hpp", ventana());
    EXPECT_RECHAZO(usage, client(s, servicio, nullptr));
    client c(s, servicio, nada);
    EXPECT_RECHAZO(usage, client(s, servicio, nada));
    client mismo(s, servicio);
    EXPECT_EQ(mismo.service(), servicio);
}

TEST_F(hpp_sesion, quien_empezo_de_cliente_ofrece_despues)
{
    session s("hpp", ventana());
    client c(s, nombre_unico("nadie"));
    s.offer(servicio, [](command &orden) {
        orden.answer_texts({L"aqui", L"", L""});
        return result::ok;
    });
    s.publish();
    client mio(s, servicio);
    mio.server_has_window();
    hilo aparte([&] {
        ivrexa::answer a = mio.execute(100);
        EXPECT_EQ(a.what, outcome::ok);
        EXPECT_EQ(a.texts.first, L"aqui");
    });
    EXPECT_EQ(bombea_hasta([&] { return aparte.acaba(0); }, PLAZO_MS), bombeo::cumplido);
}

// ---- Command functions

TEST_F(hpp_sesion, la_funcion_corre_en_el_hilo_de_la_ventana)
{
    session s("hpp", ventana());
    std::thread::id aqui = std::this_thread::get_id(), alli;
    s.offer(servicio, [&](command &) {
        alli = std::this_thread::get_id();
        return result::cancelled;
    });
    s.publish();
    client c(s, servicio);
    c.server_has_window();
    ivrexa::answer a;
    hilo aparte([&] { a = c.execute(100); });
    EXPECT_EQ(bombea_hasta([&] { return aparte.acaba(0); }, PLAZO_MS), bombeo::cumplido);
    EXPECT_EQ(a.what, outcome::cancelled);
    EXPECT_EQ(alli, aqui);
}

TEST_F(hpp_sesion, sin_ventana_la_funcion_corre_en_el_hilo_del_servicio_y_wait_for_end_espera_a_su_fin)
{
    session s("hpp");
    std::atomic<std::thread::id> uno{}, otro{};
    s.offer(servicio, [&](command &) {
        uno = std::this_thread::get_id();
        return result::ok;
    });
    s.offer(servicio + "_2", [&](command &) {
        otro = std::this_thread::get_id();
        return result::ok;
    });
    s.publish();
    client c(s, servicio), d(s, servicio + "_2");
    EXPECT_EQ(c.execute(100).what, outcome::ok);
    EXPECT_EQ(d.execute(100).what, outcome::ok);
    EXPECT_NE(uno.load(), std::this_thread::get_id());
    EXPECT_NE(uno.load(), otro.load());
    std::atomic<bool> acabado{false};
    hilo aparte([&] {
        ivrexa::end_server(servicio);
        EXPECT_EQ(ivrexa::offered(servicio), std::nullopt) << "it has ended when end_server returns";
        EXPECT_TRUE(ivrexa::offered(servicio + "_2"));
        acabado = true;
        ivrexa::end_server(servicio + "_2");
    });
    s.wait_for_end();
    EXPECT_TRUE(acabado);
    EXPECT_TRUE(aparte.acaba(PLAZO_MS));
}

TEST_F(hpp_sesion, en_un_cliente_wait_for_end_no_espera)
{
    session s("hpp");
    client c(s, servicio);
    s.wait_for_end();
    EXPECT_EQ(c.execute(100).what, outcome::no_such_service);
}

TEST_F(hpp_sesion, pedir_el_fin_a_un_servidor_con_ventana_le_manda_el_quit)
{
    papel servidor = arranca_capa("ventana", servicio);
    ivrexa::end_server(servicio);
    EXPECT_EQ(servidor.espera_fin(PLAZO_MS), 0u);
    ivrexa::end_server(servicio);
}

// A: offers a service with a window, and asks it to end on the window's thread, which a command on it waits for.
PAPEL(capa_que_se_acaba)
{
    HWND hwnd = crea_ventana();
    {
        session s("que_se_acaba", hwnd_capa(hwnd));
        s.offer(args[0], bien);
        s.publish();
        client c(s, args[0]);
        std::future<answer> f = c.execute_async(c.request(100), std::chrono::milliseconds(60000));
        // It has come to the window, and waits for its thread.
        EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, FALSE, PLAZO_MS, QS_SENDMESSAGE), WAIT_OBJECT_0);
        yo.di("LISTO");
        ivrexa::end_server(args[0]);
        yo.di("VUELVE");
        EXPECT_EQ(bombea_hasta_quit(PLAZO_MS), bombeo::quit);
        EXPECT_EQ(espera_respuesta(f).what, outcome::ok);
    }
    destruye_ventana(&hwnd);
    return 0;
}

TEST_F(hpp_sesion, pedir_el_fin_del_servicio_propio_con_ventana_no_espera_a_la_orden_en_curso)
{
    papel a = arranca_papel("capa_que_se_acaba", {servicio});
    ASSERT_EQ(a.espera_linea("VUELVE", PLAZO_MS), "VUELVE");
    EXPECT_EQ(a.espera_fin(PLAZO_MS), 0u);
}

// A command on a server that hangs may never end. A server that may have none waits for its turn, as a command does.
TEST_F(hpp_sesion, pedir_el_fin_no_espera_a_la_orden_en_curso_si_se_dice_que_hay_ventana)
{
    for (bool se_dice : {true, false}) {
        SCOPED_TRACE(se_dice);
        papel servidor = arranca_capa("ventana", servicio);
        session s("hpp");
        client c(s, servicio);
        if (se_dice)
            c.server_has_window();
        std::future<answer> f = c.execute_async(c.request(capa_ESPERA));
        servidor.espera_linea("DENTRO", PLAZO_MS);
        hilo aparte([&] { ivrexa::end_server(servicio); });
        EXPECT_EQ(aparte.acaba(se_dice ? PLAZO_MS / 3 : QUIETO_MS), se_dice);
        servidor.di("SIGUE");
        EXPECT_EQ(espera_respuesta(f).what, outcome::ok);
        EXPECT_TRUE(aparte.acaba(PLAZO_MS));
        EXPECT_EQ(servidor.espera_fin(PLAZO_MS), 0u);
    }
}

// A second message of the library's in the middle of a command would wait for itself.
TEST_F(hpp_sesion, la_funcion_de_un_servicio_no_puede_mandarle_ordenes)
{
    session s("hpp", ventana());
    std::optional<client> c;
    std::optional<ivrexa::request> suya;
    std::optional<ivrexa::fault> fallo;
    uint32_t valor = 0;
    s.offer(servicio, [&](command &orden) {
        if (orden.id() == 100)
            fallo = fallo_de([&] { c->execute(*suya); });
        else
            valor = orden.input().get<uint32_t>("x");
        return result::cancelled;
    });
    s.publish();
    c.emplace(s, servicio);
    c->server_has_window();
    suya.emplace(c->request(101));
    suya->add("x", 7u);
    hilo aparte([&] {
        EXPECT_EQ(c->execute(100).what, outcome::cancelled);
        EXPECT_NO_THROW(EXPECT_EQ(c->execute(*suya).what, outcome::cancelled)) << "it has not been used up";
    });
    EXPECT_EQ(bombea_hasta([&] { return aparte.acaba(0); }, PLAZO_MS), bombeo::cumplido);
    EXPECT_EQ(fallo, ivrexa::fault::usage);
    EXPECT_EQ(valor, 7u);
}

// It would be a command to itself, for which it would wait for ever.
TEST_F(hpp_sesion, sin_ventana_la_funcion_de_un_servicio_no_puede_acabarlo)
{
    session s("hpp");
    std::optional<ivrexa::fault> fallo;
    s.offer(servicio, [&](command &) {
        fallo = fallo_de([&] { ivrexa::end_server(servicio); });
        return result::cancelled;
    });
    s.publish();
    client c(s, servicio);
    EXPECT_EQ(c.execute(100).what, outcome::cancelled);
    EXPECT_EQ(fallo, ivrexa::fault::usage);
    EXPECT_TRUE(ivrexa::offered(servicio));
}

// Also where the command is this program's own, which then has the turn of the service.
TEST_F(hpp_sesion, con_ventana_la_funcion_de_un_servicio_puede_acabarlo)
{
    session s("hpp", ventana());
    s.offer(servicio, [&](command &) {
        ivrexa::end_server(servicio);
        return result::ok;
    });
    s.publish();
    client c(s, servicio);
    c.server_has_window();
    answer a;
    hilo aparte([&] { a = c.execute(100); });
    EXPECT_EQ(bombea_hasta_quit(PLAZO_MS), bombeo::quit);
    EXPECT_TRUE(aparte.acaba(PLAZO_MS));
    EXPECT_EQ(a.what, outcome::ok);
}

// The number of its message is 0 there, as where there is no client.
TEST_F(hpp_sesion, de_su_propio_servicio_sin_ventana_un_error_es_del_servidor)
{
    session s("hpp");
    s.offer(servicio, [](command &) { return result::error; });
    s.publish();
    client c(s, servicio);
    answer a = c.execute(100);
    EXPECT_EQ(a.what, outcome::server_error);
    EXPECT_EQ(a.code, 3u);
}

TEST_F(hpp_sesion, sin_aviso_de_fallos_una_excepcion_tampoco_sale)
{
    session s("hpp", ventana());
    s.offer(servicio, [](command &) -> result { throw std::runtime_error("nobody hears it"); });
    s.publish();
    client c(s, servicio);
    c.server_has_window();
    hilo aparte([&] {
        EXPECT_EQ(c.execute(100).what, outcome::server_error);
        EXPECT_EQ(c.execute(100).what, outcome::server_error);
    });
    EXPECT_EQ(bombea_hasta([&] { return aparte.acaba(0); }, PLAZO_MS), bombeo::cumplido);
}

// ---- What only another program out of its turn does

TEST_F(hpp_sesion, una_orden_que_ya_no_esta_en_el_canal_es_un_error_y_no_llega_a_la_funcion)
{
    session s("hpp", ventana());
    uint32_t llamadas = 0;
    s.offer(servicio, [&](command &) {
        llamadas++;
        return result::ok;
    });
    s.publish();
    HWND hwnd = reinterpret_cast<HWND>(s.window());
    uint32_t msg = ivrexa_dame_id_MSG_servicio(servicio.c_str());
    ASSERT_NE(msg, 0u);
    EXPECT_EQ(SendMessageW(hwnd, msg, 555, 0), 3);
    EXPECT_EQ(llamadas, 0u);
}

// The channel has another command by the time of the answer: nothing can be answered, and what the one before it
// answered must not pass for it.
TEST_F(hpp_sesion, una_respuesta_que_la_biblioteca_rehusa_es_un_error)
{
    session s("hpp", ventana());
    s.offer(servicio, [&](command &orden) {
        orden.answer_texts({L"texto", L"", L""});
        if (orden.id() == 101)
            bloque_crudo(nombre_canal(servicio).c_str()).pon_u32(1202, 999);
        return result::ok;
    });
    s.publish();
    client c(s, servicio);
    c.server_has_window();
    hilo aparte([&] {
        EXPECT_EQ(c.execute(100).texts.first, L"texto");
        ivrexa::answer a = c.execute(101);
        EXPECT_EQ(a.what, outcome::server_error);
        EXPECT_EQ(a.texts.first, L"");
    });
    EXPECT_EQ(bombea_hasta([&] { return aparte.acaba(0); }, PLAZO_MS), bombeo::cumplido);
}
