// Several services in one server, several programs on one service, and servers that are clients of each other.
#include <thread>

#include "dll_conversa.h"

static const uint32_t LLAMA = 200;

// Text 1 names the services still to be called, "next>next", with the own one first in the answer: the last returns
// its input times ten, each before it one more than it got.
static int32_t llama(anfitrion_peticion *p)
{
    wchar_t camino[64] = L"";
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, nullptr, camino, nullptr, nullptr);
    uint32_t valor = ivrexa_dame_ulong(p->entrada, 0);
    std::wstring todo = camino, texto = todo;
    uint32_t devuelto = valor * 10;
    if (!todo.empty()) {
        size_t corte = todo.find(L'>');
        std::string siguiente = a_utf8(todo.substr(0, corte));
        std::wstring resto = corte == std::wstring::npos ? L"" : todo.substr(corte + 1);
        comdat *entrada = ivrexa_crea_datos_comando_entrada(siguiente.c_str());
        ivrexa_graba_ulong(entrada, "v", valor);
        respuesta r = ejecuta(siguiente, LLAMA, ivrexa_guarda_datos(entrada), resto.c_str());
        EXPECT_EQ(r.resultado, 1u);
        comdat *salida = ivrexa_lee_datos(siguiente.c_str(), r.id_salida, FALSO);
        devuelto = ivrexa_dame_ulong(salida, 0) + 1;
        ivrexa_destruye_datos_comando(salida);
        ivrexa_destruye_datos_comando(entrada);
        texto = r.t2;
    }
    // What this command was given is as it was before the calls in between.
    EXPECT_EQ(ivrexa_dame_ulong(p->entrada, 0), valor);
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_ulong(p->salida, "v", devuelto);
    texto = de_utf8(p->servicio) + L"<" + texto;
    uint32_t id_salida = ivrexa_guarda_datos(p->salida);
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, id_salida, L"", texto.c_str(), L"");
    return 1;
}

PAPEL(servidor_que_llama)
{
    anfitrion_yo.otros = llama;
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

// ---- Several services

class varios_servicios : public con_cada_servidor {};
CON_CADA_SERVIDOR(varios_servicios);

// Each further service of a _net server makes the report about a missing command function, and is added.
TEST_P(varios_servicios, contesta_cada_uno_con_su_nombre_su_version_y_sus_datos)
{
    const uint32_t num = clase == "ventana" ? 16 : 3;
    std::vector<std::string> servicios;
    std::string lista;
    for (uint32_t i = 0; i < num; i++) {
        servicios.push_back(nombre_unico("serv"));
        lista += (i > 0 ? "," : "") + servicios[i];
    }
    papel servidor = arranca_servidor(clase, lista);
    for (uint32_t i = 1; i < num && clase == "net"; i++)
        EXPECT_INFORME_DE(servidor, "iv_reg", "procesaComandoExterno != NULL");
    for (const std::string &s : servicios)
        registra(s);
    if (clase == "sin_ventana")
        espera_latido(ruta());

    for (uint32_t i = num; i-- > 0;) {
        SCOPED_TRACE(i);
        uint16_t version = 0;
        EXPECT_EQ(ivrexa_hay_servicio_registrado(servicios[i].c_str(), &version), CIERTO);
        EXPECT_EQ(version, 300 + i);
        respuesta r = ejecuta(servicios[i], 107);
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(a_utf8(r.t1), servicios[i]);
        wchar_t externos[] = {static_cast<wchar_t>(L'0' + (clase == "net" ? 0 : i + 1)), 0};
        EXPECT_EQ(r.t2, externos);
    }
}

using servicios = conversacion;

TEST_F(servicios, decimoseptimo_de_un_servidor_se_informa_y_se_deja)
{
    std::string lista = nombre_unico("serv"), ultimo;
    for (int i = 1; i < 17; i++) {
        ultimo = nombre_unico("serv");
        lista += "," + ultimo;
    }
    papel servidor = arranca_servidor("ventana", lista);
    EXPECT_INFORME_DE(servidor, "iv_reg", "s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS");
    EXPECT_EQ(ivrexa_hay_servicio_registrado(ultimo.c_str(), nullptr), FALSO);
    EXPECT_FALSE(existe_bloque(nombre_canal(ultimo).c_str()));
}

// Whose channel is whose: the commands of two servers and the numbers of their blocks do not meet.
TEST_F(servicios, un_cliente_habla_con_dos_servidores)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    papel servidor_uno = arranca_servidor("ventana", uno);
    papel servidor_dos = arranca_servidor("net", dos, true);
    registra(uno);
    registra(dos);
    entrada_muestra entrada_uno(uno, 1), entrada_dos(dos, 2);
    EXPECT_EQ(entrada_uno.id(), 100u);
    EXPECT_EQ(entrada_dos.id(), 100u);
    EXPECT_EQ(ejecuta(uno, 100, entrada_uno.id(), L"a").id_salida, 101u);
    EXPECT_EQ(ejecuta(dos, 100, entrada_dos.id(), L"b").id_salida, 101u);
    EXPECT_EQ(servidor_uno.espera_linea("ENTRADA ", 5000), "ENTRADA " + muestra_descrita(1));
    EXPECT_EQ(servidor_dos.espera_linea("ENTRADA ", 5000), "ENTRADA " + muestra_descrita(2));
    for (const std::string &servicio : {uno, dos}) {
        comdat *salida = ivrexa_lee_datos(servicio.c_str(), 101, FALSO);
        EXPECT_EQ(describe(salida), muestra_descrita(servicio == uno ? 1 : 2));
        ivrexa_destruye_datos_comando(salida);
    }
}

// ---- Two clients

// The second one claims the channel in rounds until the first has freed it.
TEST_F(servicios, segundo_cliente_espera_en_rondas_a_que_el_primero_acabe)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    papel primero = arranca_cliente("sin_ventana", servicio, true);
    registra(servicio);
    primero.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u32(1198), 2u);

    std::thread al_ver_la_espera([&] {
        bloque_crudo registro("Ivrexa_MCB");
        size_t despl = despl_servicio(registro, servicio);
        auto espera_turno = [&] { return registro.u32(despl + 84) == 1 && registro.u32(despl + 88) >= 2; };
        EXPECT_TRUE(espera_hasta(espera_turno, 10000));
        EXPECT_EQ(canal.u32(1198), 2u);
        EXPECT_FALSE(primero.busca_linea("RESULTADO", 0));
        servidor.di("SIGUE");
    });
    // Result 18 comes from the command id alone: what this client wrote into the channel before it had claimed it,
    // the first one's end may clear. Clients that share a service take turns.
    EXPECT_EQ(ejecuta(servicio, 138).resultado, 18u);
    al_ver_la_espera.join();
    EXPECT_EQ(primero.espera_linea("RESULTADO ", 5000), "RESULTADO 1");
    EXPECT_EQ(canal.u32(1198), 0u);
}

TEST_F(servicios, dos_clientes_se_turnan_y_cada_uno_recibe_lo_suyo)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("net", servicio);
    papel otro = arranca_cliente("ventana", servicio);
    registra(servicio);
    for (uint32_t turno = 0; turno < 2; turno++) {
        otro.di("ECO " + std::to_string(turno));
        EXPECT_EQ(otro.espera_linea("RESULTADO 1|", 10000),
                  "RESULTADO 1|" + std::to_string(100 + 3 * turno) + "|" + std::to_string(101 + 3 * turno));
        EXPECT_EQ(otro.espera_linea("SALIDA ", 5000), "SALIDA " + muestra_descrita(turno));
        respuesta r = ejecuta(servicio, 101, 0, L"1");
        EXPECT_EQ(r.id_salida, 102 + 3 * turno);
        EXPECT_EQ(r.t1, L"con");
    }
}

// ---- Servers that are clients

class entre_servidores : public conversacion, public ::testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(primero, entre_servidores, ::testing::Values("ventana", "sin_ventana"),
                         [](const auto &dato) { return std::string(dato.param); });

// A command of A runs one of B, which runs one of another service of A, while A still waits in the first. Between
// windows, A's procedure is entered again from inside its own SendMessage.
TEST_P(entre_servidores, a_llama_a_b_que_llama_a_a)
{
    std::string a1 = nombre_unico("a1"), a2 = nombre_unico("a2"), b = nombre_unico("b");
    std::string clase = GetParam();
    papel servidor_a = arranca_papel("servidor_que_llama", {clase, a1 + "," + a2});
    papel servidor_b = arranca_papel("servidor_que_llama", {"ventana", b});
    servidor_a.di("SOLICITA " + b);
    servidor_a.espera_linea("SOLICITADO", 5000);
    servidor_b.di("SOLICITA " + a2);
    servidor_b.espera_linea("SOLICITADO", 5000);
    registra(a1);
    if (clase == "sin_ventana") {
        espera_latido(ruta());
        espera_latido(ruta_de(servidor_b));
    }
    comdat *entrada = ivrexa_crea_datos_comando_entrada(a1.c_str());
    ivrexa_graba_ulong(entrada, "v", 4);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada);

    respuesta r = ejecuta(a1, LLAMA, id_entrada, de_utf8(b + ">" + a2).c_str());
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(a_utf8(r.t2), a1 + "<" + b + "<" + a2 + "<");
    comdat *salida = ivrexa_lee_datos(a1.c_str(), r.id_salida, FALSO);
    ASSERT_NE(salida, nullptr);
    EXPECT_EQ(ivrexa_dame_ulong(salida, 0), 42u);
    ivrexa_destruye_datos_comando(salida);
    ivrexa_destruye_datos_comando(entrada);

    // One entry of the registry for each program, with both flags.
    bloque_crudo registro("Ivrexa_MCB");
    for (papel *p : {&servidor_a, &servidor_b}) {
        size_t despl = despl_programa(registro, ruta_de(*p));
        ASSERT_NE(despl, 0u);
        EXPECT_EQ(registro.u16(despl + 264), 1u);
        EXPECT_EQ(registro.u16(despl + 266), 1u);
        EXPECT_EQ(registro.u16(despl + 268), 0u);
    }
    acaba(servidor_a);
    acaba(servidor_b);
}
