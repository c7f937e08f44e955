// Clients: what becomes of a command, told apart with real servers; futures, deadlines, and the end of the session.
#include "hpp_apoyo.h"

#include <algorithm>

#include "comun/hilo.h"

using ivrexa::answer;
using ivrexa::client;
using ivrexa::outcome;

class hpp_cliente : public con_cada_capa {};
CON_CADA_CAPA(hpp_cliente);

static void espera_viene(papel &servidor, uint32_t id, lugar donde = lugar::aqui())
{
    EXPECT_EQ(servidor.espera_linea("VIENE ", PLAZO_MS, donde), "VIENE " + std::to_string(id));
}

static std::future<answer> deja_dentro(client &c, papel &servidor, lugar donde = lugar::aqui())
{
    std::future<answer> f = c.execute_async(c.request(capa_ESPERA));
    servidor.espera_linea("DENTRO", PLAZO_MS, donde);
    return f;
}

// ---- execute

TEST_P(hpp_cliente, manda_valores_y_textos_y_recibe_los_suyos)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    EXPECT_EQ(c.service(), servicio);
    std::wstring t1(63, L'a'), t2(255, L'b'), t3(255, L'c');
    t1[0] = t2[0] = t3[0] = 0x20ac;
    answer a = c.execute(c.request(capa_ECO).add("a", 40u).add("t", "texto").text({t1, t2, t3}));
    EXPECT_EQ(a.what, outcome::ok);
    EXPECT_TRUE(static_cast<bool>(a));
    EXPECT_EQ(a.code, 1u);
    EXPECT_EQ(a.texts.first, del_reves(t1));
    EXPECT_EQ(a.texts.second, del_reves(t2));
    EXPECT_EQ(a.texts.third, del_reves(t3));
    EXPECT_EQ(a.data.size(), 2u);
    EXPECT_EQ(a.data.get<uint32_t>("a"), 40u);
    EXPECT_EQ(a.data.get<std::string>("t"), "texto");

    // Nothing stays of the command before.
    a = c.execute(capa_NADA);
    EXPECT_EQ(a.what, outcome::ok);
    EXPECT_EQ(a.texts.first + a.texts.second + a.texts.third, L"");
    EXPECT_TRUE(a.data.empty());
}

// The numbers that the server's program answers, with output and texts that only 1 lets pass.
TEST_P(hpp_cliente, distingue_cada_resultado_y_guarda_su_numero)
{
    static const struct {
        const wchar_t *escrito;
        outcome que;
        uint32_t codigo;
    } CASOS[] = {
        {L"1", outcome::ok, 1},           {L"0", outcome::no_answer, 0}, {L"2", outcome::cancelled, 2},
        {L"3", outcome::server_error, 3}, {L"7", outcome::other, 7},     {L"-5", outcome::other, 0xfffffffb},
    };
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    for (const auto &caso : CASOS) {
        SCOPED_TRACE(caso.codigo);
        answer a = c.execute(c.request(capa_NUMERO).text({caso.escrito, L"", L""}));
        EXPECT_EQ(a.what, caso.que);
        EXPECT_EQ(a.code, caso.codigo);
        EXPECT_EQ(a.texts.second, caso.que == outcome::ok ? L"resultado" : L"");
        EXPECT_EQ(a.data.size(), caso.que == outcome::ok ? 1u : 0u);
        EXPECT_EQ(static_cast<bool>(a), caso.que == outcome::ok);
    }
}

TEST_P(hpp_cliente, lo_que_escapa_de_la_funcion_es_un_error_y_se_dice)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    answer a = c.execute(c.request(capa_LANZA).text({L"lo dicho", L"", L""}));
    EXPECT_EQ(a.what, outcome::server_error);
    EXPECT_EQ(a.code, 3u);
    EXPECT_EQ(servidor.espera_linea("ESCAPA ", PLAZO_MS), "ESCAPA " + servicio + "|lo dicho");
    a = c.execute(capa_LANZA_INT);
    EXPECT_EQ(a.what, outcome::server_error);
    EXPECT_EQ(servidor.espera_linea("ESCAPA ", PLAZO_MS), "ESCAPA " + servicio + "|7");
    a = c.execute(capa_LARGO);
    EXPECT_EQ(a.what, outcome::server_error);
    EXPECT_NE(servidor.espera_linea("ESCAPA ", PLAZO_MS).find("63"), std::string::npos);

    // And the service goes on, with nothing of what the failed ones wrote.
    a = c.execute(capa_NADA);
    EXPECT_EQ(a.what, outcome::ok);
    EXPECT_EQ(a.texts.first + a.texts.second + a.texts.third, L"");
    EXPECT_TRUE(a.data.empty());
    acaba(servidor);
}

TEST_P(hpp_cliente, ni_del_aviso_de_fallos_sale_una_excepcion)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    answer a = c.execute(c.request(capa_LANZA).text({L"y el aviso tambien", L"", L""}));
    EXPECT_EQ(a.what, outcome::server_error);
    EXPECT_EQ(a.code, 3u);
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
    acaba(servidor);
}

TEST_P(hpp_cliente, la_funcion_sabe_servicio_orden_y_ventanas)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    answer a = c.execute(capa_QUIEN);
    EXPECT_EQ(a.texts.first, std::wstring(servicio.begin(), servicio.end()));
    EXPECT_EQ(a.texts.second, L"106");
    EXPECT_EQ(a.texts.third.substr(0, 2), L"0|");
    EXPECT_EQ(a.texts.third == L"0|0", clase == "sin_ventana");
}

using hpp_primera = con_sesion;

// A server without a window may take a client whose heartbeat still stands at 0 for a dead one, and end.
TEST_F(hpp_primera, la_primera_orden_a_un_servidor_sin_ventana_espera_al_latido)
{
    papel servidor = arranca_capa("sin_ventana", servicio);
    std::string ruta = "papel_" + std::to_string(GetCurrentProcessId());
    client c(sesion(), servicio);
    std::future<answer> f = c.execute_async(c.request(capa_ESPERA));
    servidor.espera_linea("DENTRO", PLAZO_MS);
    EXPECT_NE(latido_de(ruta), 0u);
    servidor.di("SIGUE");
    EXPECT_EQ(espera_respuesta(f).what, outcome::ok);
}

// Where the host says so, the first command does not wait. On a machine that is busy it may take as long all the same.
TEST_F(hpp_primera, la_primera_orden_a_un_servidor_con_ventana_no_espera_si_se_dice)
{
    papel servidor = arranca_capa("ventana", servicio);
    bool sin_esperar = false;
    for (int vez = 0; vez < 5 && !sin_esperar; vez++) {
        uint64_t antes = GetTickCount64();
        client c = cliente_de("ventana");
        EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
        sin_esperar = GetTickCount64() - antes < 2500;
        cierra();
    }
    EXPECT_TRUE(sin_esperar);
}

// ---- Nobody there

TEST_P(hpp_cliente, sin_servidor_no_hay_servicio_y_con_el_lo_hay)
{
    client c = cliente();
    answer a = c.execute(capa_NADA);
    EXPECT_EQ(a.what, outcome::no_such_service);
    EXPECT_EQ(a.code, 0u);
    papel servidor = arranca_capa(clase, servicio);
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
}

TEST_P(hpp_cliente, un_servidor_que_se_cerro_se_ha_ido)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", PLAZO_MS);
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::server_gone);
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::no_such_service);
    papel otro = arranca_capa(clase, servicio);
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
}

TEST_P(hpp_cliente, un_servidor_muerto_durante_la_orden_no_contesta_o_se_ha_ido)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    std::future<answer> f = deja_dentro(c, servidor);
    servidor.mata();
    answer a = espera_respuesta(f);
    // Nobody marks the end of a window: its service counts as offered for as long as we use it.
    EXPECT_EQ(a.what, clase == "ventana" ? outcome::no_answer : outcome::server_gone);
    EXPECT_EQ(a.code, clase == "ventana" ? 0u : 3u);
    EXPECT_EQ(c.execute(capa_NADA).what, clase == "ventana" ? outcome::no_answer : outcome::no_such_service);
}

TEST_P(hpp_cliente, un_servidor_muerto_entre_ordenes_no_contesta_o_se_ha_ido)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
    servidor.mata();
    EXPECT_EQ(c.execute(capa_NADA).what, clase == "ventana" ? outcome::no_answer : outcome::server_gone);
}

TEST_P(hpp_cliente, tras_la_sesion_ya_no_es_cliente)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    cierra();
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::not_a_client);
    std::future<answer> f = c.execute_async(c.request(capa_NADA));
    EXPECT_EQ(espera_respuesta(f).what, outcome::not_a_client);
    f = c.execute_async(c.request(capa_NADA), std::chrono::milliseconds(0));
    EXPECT_EQ(espera_respuesta(f).what, outcome::not_a_client);
    EXPECT_FALSE(servidor.busca_linea("VIENE", 0));
}

// ---- What is refused

using hpp_orden = con_sesion;

TEST_F(hpp_orden, textos_que_no_caben_se_rechazan_al_ponerlos)
{
    client c = cliente_de("ventana");
    ivrexa::request r = c.request(100);
    EXPECT_RECHAZO(text, r.text({std::wstring(64, L'x'), L"", L""}));
    EXPECT_RECHAZO(text, r.text({L"", std::wstring(256, L'x'), L""}));
    EXPECT_RECHAZO(text, r.text({L"", L"", std::wstring(256, L'x')}));
    EXPECT_RECHAZO(text, r.text({L"", std::wstring(L"a\0b", 3), L""}));
    EXPECT_RECHAZO(value_name, r.add(std::string(255, 'n'), 1u));
    EXPECT_EQ(r.input().size(), 0u);
    EXPECT_EQ(r.input().service(), servicio);
}

TEST_F(hpp_orden, se_gasta_al_mandarla)
{
    papel servidor = arranca_capa("ventana", servicio);
    client c = cliente_de("ventana");
    ivrexa::request r = c.request(capa_PRIMERO);
    r.add("x", 1u);
    EXPECT_EQ(c.execute(r).what, outcome::ok);
    EXPECT_RECHAZO(usage, c.execute(r));
    EXPECT_RECHAZO(usage, r.add("y", 1u));
    EXPECT_RECHAZO(usage, c.execute_async(r));
    EXPECT_RECHAZO(usage, c.execute_async(r, std::chrono::milliseconds(100)));
    EXPECT_SIN_INFORMES();
}

TEST_F(hpp_orden, de_otro_servicio_o_con_un_numero_de_la_biblioteca_se_rechaza)
{
    client c = cliente_de("ventana"), otro(sesion(), servicio + "_otro");
    ivrexa::request r = otro.request(100);
    EXPECT_RECHAZO(usage, c.execute(r));
    EXPECT_RECHAZO(usage, c.execute_async(r));
    EXPECT_EQ(otro.execute(r).what, outcome::no_such_service) << "it has not been used up";
    for (uint32_t id : {0u, 1u, 99u}) {
        EXPECT_RECHAZO(usage, c.request(id));
        EXPECT_RECHAZO(usage, c.execute(id));
    }
    EXPECT_EQ(c.execute(0xffffffff).what, outcome::no_such_service);
}

// What was stored before it is run belongs to no command any more.
TEST_F(hpp_orden, lo_que_lanza_execute_sale_del_futuro)
{
    papel servidor = arranca_capa("ventana", servicio);
    client c = cliente_de("ventana");
    ivrexa::request r = c.request(capa_PRIMERO);
    r.add("x", 1u).input().store();
    std::future<answer> f = c.execute_async(r);
    ASSERT_EQ(f.wait_for(std::chrono::milliseconds(PLAZO_MS)), std::future_status::ready);
    EXPECT_RECHAZO(usage, f.get());
    EXPECT_EQ(c.execute(capa_PRIMERO + 1).what, outcome::ok);
    espera_viene(servidor, capa_PRIMERO + 1);
}

TEST_F(hpp_orden, nombres_que_la_biblioteca_cortaria)
{
    EXPECT_RECHAZO(service_name, client(sesion(), ""));
    EXPECT_RECHAZO(service_name, client(sesion(), std::string(64, 'x')));
    EXPECT_RECHAZO(service_name, client(sesion(), "a\\b"));
    EXPECT_RECHAZO(service_name, client(sesion(), std::string("a\0b", 3)));
}

TEST_F(hpp_orden, el_decimoseptimo_servicio_usado_se_rechaza_y_otro_cliente_del_mismo_no)
{
    std::vector<client> clientes;
    for (int i = 0; i < 16; i++)
        clientes.emplace_back(sesion(), servicio + "_" + std::to_string(i));
    EXPECT_RECHAZO(too_many, client(sesion(), servicio + "_16"));
    client otro(sesion(), servicio + "_3");
    EXPECT_EQ(otro.service(), servicio + "_3");
}

// ---- Several at once

TEST_P(hpp_cliente, ordenes_de_varios_hilos_y_objetos_van_una_tras_otra)
{
    const uint32_t num = clase == "ventana" ? 10 : 2;
    papel servidor = arranca_capa(clase, servicio);
    client uno = cliente(), otro(sesion(), servicio);
    auto manda = [&](client *c, uint32_t desde) {
        for (uint32_t i = 0; i < num; i++) {
            answer a =
                c->execute(c->request(capa_ECO).add("n", desde + i).text({std::to_wstring(desde + i), L"", L""}));
            EXPECT_EQ(a.what, outcome::ok);
            EXPECT_EQ(del_reves(a.texts.first), std::to_wstring(desde + i));
            EXPECT_EQ(a.data.find<uint32_t>("n"), desde + i);
        }
    };
    hilo aparte([&] { manda(&otro, 1000); });
    manda(&uno, 2000);
    EXPECT_TRUE(aparte.acaba(PLAZO_MS));
}

TEST_P(hpp_cliente, las_de_un_futuro_van_en_el_orden_en_que_se_pidieron)
{
    const uint32_t num = clase == "ventana" ? 20 : 3;
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    std::vector<std::future<answer>> futuros;
    for (uint32_t i = 0; i < num; i++)
        futuros.push_back(c.execute_async(c.request(capa_PRIMERO + i), std::chrono::milliseconds(100000)));
    for (uint32_t i = 0; i < num; i++) {
        answer a = espera_respuesta(futuros[i]);
        EXPECT_EQ(a.what, outcome::ok);
        EXPECT_EQ(a.texts.first, std::to_wstring(capa_PRIMERO + i));
        espera_viene(servidor, capa_PRIMERO + i);
    }
    EXPECT_FALSE(servidor.busca_linea("VIENE", 0));
}

// ---- Deadlines

TEST_P(hpp_cliente, un_plazo_que_se_cumple_da_la_respuesta)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    std::future<answer> f = c.execute_async(c.request(capa_ECO).add("x", 5u), std::chrono::milliseconds(PLAZO_MS));
    answer a = espera_respuesta(f);
    EXPECT_EQ(a.what, outcome::ok);
    EXPECT_EQ(a.data.find<uint32_t>("x"), 5u);

    f = c.execute_async(c.request(capa_ECO).add("x", 6u), std::chrono::milliseconds::max());
    EXPECT_EQ(espera_respuesta(f).data.find<uint32_t>("x"), 6u) << "a deadline that never comes";
}

// The server has it, goes on with it, and its answer is dropped; the next command waits for its end.
TEST_P(hpp_cliente, un_plazo_que_pasa_en_el_servidor_llega_tarde_y_la_orden_sigue)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
    espera_viene(servidor, capa_NADA);
    std::future<answer> tarde = c.execute_async(c.request(capa_ESPERA), std::chrono::milliseconds(3000));
    servidor.espera_linea("DENTRO", PLAZO_MS);
    espera_viene(servidor, capa_ESPERA);
    answer a = espera_respuesta(tarde);
    EXPECT_EQ(a.what, outcome::late);
    EXPECT_EQ(a.code, 0u);
    EXPECT_TRUE(a.data.empty());

    std::future<answer> otra = c.execute_async(c.request(capa_PRIMERO), std::chrono::milliseconds(PLAZO_MS));
    EXPECT_FALSE(servidor.busca_linea("VIENE", QUIETO_MS));
    EXPECT_EQ(otra.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
    servidor.di("SIGUE");
    EXPECT_EQ(espera_respuesta(otra).texts.first, std::to_wstring(capa_PRIMERO));
    espera_viene(servidor, capa_PRIMERO);
}

TEST_P(hpp_cliente, un_plazo_que_pasa_en_la_cola_no_llega_nunca_al_servidor)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    std::future<answer> dentro = deja_dentro(c, servidor);
    espera_viene(servidor, capa_ESPERA);
    std::future<answer> nunca = c.execute_async(c.request(capa_PRIMERO), std::chrono::milliseconds(50));
    std::future<answer> otra = c.execute_async(c.request(capa_PRIMERO + 1), std::chrono::milliseconds(100000));
    std::future<answer> cero = c.execute_async(c.request(capa_PRIMERO + 2), std::chrono::milliseconds(0));
    std::future<answer> ayer = c.execute_async(c.request(capa_PRIMERO + 3), std::chrono::milliseconds(-1000));
    std::future<answer> antes = c.execute_async(c.request(capa_PRIMERO + 5), std::chrono::milliseconds::min());
    for (std::future<answer> *f : {&nunca, &cero, &ayer, &antes}) {
        answer a = espera_respuesta(*f);
        EXPECT_EQ(a.what, outcome::not_sent);
        EXPECT_EQ(a.code, 0u);
    }
    servidor.di("SIGUE");
    EXPECT_EQ(espera_respuesta(dentro).what, outcome::ok);
    EXPECT_EQ(espera_respuesta(otra).what, outcome::ok);
    EXPECT_EQ(c.execute(capa_PRIMERO + 4).what, outcome::ok);
    espera_viene(servidor, capa_PRIMERO + 1);
    espera_viene(servidor, capa_PRIMERO + 4);
    EXPECT_FALSE(servidor.busca_linea("VIENE", 0));
}

// Somebody else holds the lock of the service, under which the input is stored.
TEST_F(hpp_orden, un_plazo_que_pasa_al_guardar_la_entrada_no_llega_nunca_al_servidor)
{
    papel servidor = arranca_capa("ventana", servicio);
    client c = cliente_de("ventana");
    mutex_crudo cerrojo(("Mutex_Ivrexa_" + servicio).c_str());
    ASSERT_TRUE(cerrojo.retiene(PLAZO_MS));
    std::future<answer> f = c.execute_async(c.request(capa_PRIMERO).add("x", 1u), std::chrono::milliseconds(QUIETO_MS));
    EXPECT_EQ(espera_respuesta(f).what, outcome::not_sent);
    cerrojo.suelta();
    EXPECT_EQ(c.execute(capa_PRIMERO + 1).what, outcome::ok);
    espera_viene(servidor, capa_PRIMERO + 1);
    EXPECT_FALSE(servidor.busca_linea("VIENE", 0));
}

// ---- The end of the session

// Lets the server go on once the session's end has begun, and only if that waits.
class quien_suelta {
public:
    explicit quien_suelta(papel &servidor)
        : m_hilo([this, &servidor] {
              EXPECT_EQ(WaitForSingleObject(m_fin, QUIETO_MS), WAIT_TIMEOUT) << "the session has ended meanwhile";
              servidor.di("SIGUE");
          })
    {
    }
    ~quien_suelta() { SetEvent(m_fin); }

private:
    HANDLE m_fin = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    hilo m_hilo;
};

TEST_P(hpp_cliente, el_fin_de_la_sesion_espera_a_la_orden_tardia)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok);
    std::future<answer> tarde = c.execute_async(c.request(capa_ESPERA), std::chrono::milliseconds(3000));
    servidor.espera_linea("DENTRO", PLAZO_MS);
    EXPECT_EQ(espera_respuesta(tarde).what, outcome::late);
    quien_suelta luego(servidor);
    cierra();
}

TEST_P(hpp_cliente, el_fin_de_la_sesion_acaba_la_que_esta_en_curso_y_no_manda_las_demas)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    std::future<answer> dentro = deja_dentro(c, servidor);
    espera_viene(servidor, capa_ESPERA);
    std::future<answer> una = c.execute_async(c.request(capa_PRIMERO));
    std::future<answer> otra = c.execute_async(c.request(capa_PRIMERO + 1), std::chrono::milliseconds(100000));
    {
        quien_suelta luego(servidor);
        cierra();
    }
    EXPECT_EQ(espera_respuesta(dentro).what, outcome::ok);
    EXPECT_EQ(espera_respuesta(una).what, outcome::not_sent);
    EXPECT_EQ(espera_respuesta(otra).what, outcome::not_sent);
    EXPECT_FALSE(servidor.busca_linea("VIENE", 0));
}

TEST_P(hpp_cliente, el_fin_de_la_sesion_espera_a_las_ordenes_de_otros_hilos)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    answer a;
    hilo aparte([&] { a = c.execute(capa_ESPERA); });
    servidor.espera_linea("DENTRO", PLAZO_MS);
    {
        quien_suelta luego(servidor);
        cierra();
    }
    ASSERT_TRUE(aparte.acaba(PLAZO_MS));
    EXPECT_EQ(a.what, outcome::ok);
}

// The number of the next block of the service's data.
static uint32_t siguiente_bloque(const std::string &servicio)
{
    return bloque_crudo(nombre_canal(servicio).c_str()).u32(12);
}

// The end has begun when it gives up what waits in a queue, and goes on when the command under way has ended.
TEST_F(hpp_orden, cuando_la_sesion_acaba_ya_no_se_guardan_datos_de_avisos)
{
    std::string mio = servicio + "_mio";
    papel servidor = arranca_capa("ventana", servicio);
    HWND hwnd = crea_ventana();
    std::optional<ivrexa::session> s(std::in_place, "avisa", hwnd_capa(hwnd));
    s->offer(mio, [](ivrexa::command &) { return ivrexa::result::ok; });
    s->publish();
    client c(*s, servicio);
    c.server_has_window();
    std::future<answer> dentro = deja_dentro(c, servidor), cola = c.execute_async(c.request(capa_PRIMERO));
    ivrexa::writer datos = ivrexa::writer::output(mio);
    datos.add("x", 1u);
    bloque_crudo canal(nombre_canal(mio).c_str());
    uint32_t antes = siguiente_bloque(mio);
    hilo aparte([&] {
        EXPECT_EQ(espera_respuesta(cola).what, outcome::not_sent);
        s->notify(datos, 200, 1);
        EXPECT_EQ(siguiente_bloque(mio), antes) << "it was stored";
        servidor.di("SIGUE");
    });
    s.reset();
    EXPECT_TRUE(aparte.acaba(PLAZO_MS));
    EXPECT_EQ(espera_respuesta(dentro).what, outcome::ok);
    EXPECT_EQ(datos.get(), nullptr) << "the session's end has taken it";
    destruye_ventana(&hwnd);
}

// How many areas of this process are so large.
static size_t areas_de(size_t tam)
{
    size_t num = 0;
    MEMORY_BASIC_INFORMATION area;
    for (const char *aqui = nullptr; VirtualQuery(aqui, &area, sizeof area) != 0; aqui += area.RegionSize)
        num += area.State == MEM_COMMIT && area.RegionSize >= tam ? 1 : 0;
    return num;
}

// Its memory is there as long as the command, and given back when the answer is told: the session's end, which takes
// all of it, waits for no more.
TEST_F(hpp_orden, la_entrada_se_suelta_antes_de_que_se_sepa_la_respuesta)
{
    const size_t tam = 32 << 20;
    papel servidor = arranca_capa("ventana", servicio);
    client c = cliente_de("ventana");
    const size_t antes = areas_de(tam);
    for (uint32_t vez = 0; vez < 10; vez++) {
        ivrexa::request r = c.request(capa_ESPERA);
        r.add("x", ivrexa::bytes(tam));
        std::future<answer> f = c.execute_async(r);
        servidor.espera_linea("DENTRO", PLAZO_MS);
        EXPECT_GT(areas_de(tam), antes);
        servidor.di("SIGUE");
        EXPECT_EQ(espera_respuesta(f).what, outcome::ok);
        EXPECT_EQ(areas_de(tam), antes) << vez;
    }
}

// It ends with the session, and the texts stay: they are its own.
TEST_F(hpp_orden, una_respuesta_que_sobrevive_a_la_sesion_no_da_sus_datos)
{
    papel servidor = arranca_capa("ventana", servicio);
    answer a;
    {
        client c = cliente_de("ventana");
        a = c.execute(c.request(capa_ECO).add("x", 5u).text({L"uno", L"", L""}));
        ASSERT_EQ(a.what, outcome::ok);
    }
    cierra();
    EXPECT_RECHAZO(usage, a.data.get<uint32_t>("x"));
    EXPECT_EQ(a.texts.first, L"onu");
    a = answer();
    client c = cliente_de("ventana");
    EXPECT_EQ(c.execute(capa_NADA).what, outcome::ok) << "and a session may follow";
}

// ---- Inside each other

// A: offers a service with a window, and is a client of another, whose server calls A back.
PAPEL(capa_llamado)
{
    std::string mio = args[0], suyo = args[1];
    HWND hwnd = crea_ventana();
    {
        ivrexa::session s("llamado", hwnd_capa(hwnd));
        std::optional<client> c;
        std::optional<ivrexa::request> suya;
        s.offer(mio, [&](ivrexa::command &) {
            std::optional<ivrexa::fault> fallo = fallo_de([&] { c->execute(*suya); });
            yo.di(fallo == ivrexa::fault::usage ? "RECHAZADO" : "SIN RECHAZO");
            return ivrexa::result::cancelled;
        });
        s.publish();
        c.emplace(s, suyo);
        c->server_has_window();
        suya.emplace(c->request(capa_PRIMERO + 1));
        yo.di("LISTO");
        yo.escucha_linea("YA", PLAZO_MS);
        yo.di("RESULTADO " + std::to_string(c->execute(capa_PRIMERO).code));
        EXPECT_EQ(c->execute(*suya).what, outcome::ok) << "its turn has been given back, and it has not been used up";
    }
    destruye_ventana(&hwnd);
    return 0;
}

PAPEL(capa_que_llama)
{
    std::string mio = args[0], suyo = args[1];
    HWND hwnd = crea_ventana();
    {
        ivrexa::session s("que_llama", hwnd_capa(hwnd));
        std::optional<client> c;
        s.offer_number(mio, [&](ivrexa::command &orden) {
            return orden.id() == capa_PRIMERO ? 40 + static_cast<int32_t>(c->execute(capa_NADA).code) : 1;
        });
        s.publish();
        c.emplace(s, suyo);
        c->server_has_window();
        yo.di("LISTO");
        bombea_hasta_linea(yo, 60000);
    }
    destruye_ventana(&hwnd);
    return 0;
}

// Its server can answer one at a time: a second would wait for ever.
TEST_F(hpp_orden, dentro_de_otra_del_mismo_hilo_y_servicio_se_rechaza)
{
    std::string otro = nombre_unico("otra");
    papel a = arranca_papel("capa_llamado", {servicio, otro});
    papel b = arranca_papel("capa_que_llama", {otro, servicio});
    a.di("YA");
    EXPECT_EQ(a.espera_linea("R", PLAZO_MS), "RECHAZADO");
    EXPECT_EQ(a.espera_linea("RESULTADO ", PLAZO_MS), "RESULTADO 42");
    EXPECT_EQ(a.espera_fin(PLAZO_MS), 0u);
    acaba(b);
}
