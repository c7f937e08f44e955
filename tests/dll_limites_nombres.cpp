// Names of services of every length, and with characters that matter: what works with them, and what their programs see
// where the system has no such objects.
#include "comun/hilos_de.h"

#include "dll_limites.h"

static const char *const SIN_MUTEX = "(mutex) != 0";
static const char *const MUTEX_NULO = "(iv_mutex->mutex) != 0";

// A name of so many characters, of this test alone.
static std::string de_largo(size_t largo)
{
    std::string nombre = nombre_unico("n");
    nombre.resize(largo, 'x');
    return nombre;
}

static size_t cuenta(const std::string &nombre)
{
    size_t num = 0;
    for (const auto &[j, n] : servicios_registrados())
        num += n == nombre;
    return num;
}

static std::string bytes_altos(int primero)
{
    std::string nombre;
    for (int c = primero; c < primero + 63; c++)
        nombre += static_cast<char>(c);
    return nombre;
}

class limites_nombres : public limites {
protected:
    // A server of all these, and a client that holds a full conversation with each, questions and withdrawal included.
    static void conversa_y_acaba(bool con_ventana, const std::vector<std::string> &nombres)
    {
        libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
        if (con_ventana)
            servidor.da_ventana();
        servidor.ofrece(nombres);
        servidor.publica();
        for (const std::string &nombre : nombres)
            cliente.usa(nombre);
        if (!con_ventana)
            espera_latido(cliente);
        for (uint32_t n = 0; n < nombres.size(); n++) {
            const std::string &nombre = nombres[n];
            cliente.conversa(nombre, n + 1);
            EXPECT_EQ(cliente.pide({"HAY", nombre}), "HAY|1|" + std::to_string(501 + n));
            if (!nombre.empty())
                EXPECT_EQ(cliente.pide({"EMPIEZA", nombre}), junta({"EMPIEZA", "1", nombre}));
            EXPECT_EQ(cuenta(nombre), nombre.empty() ? 0u : 1u);
        }
        servidor.acaba();
        EXPECT_EQ(servicios_registrados().size(), 0u);
        for (const std::string &nombre : nombres)
            EXPECT_EQ(campos(cliente.pide({"HAY", nombre})).at(1), "0");
        EXPECT_EQ(servidor.num_informes() + cliente.num_informes(), 0u);
    }
    const std::vector<std::string> VALIDOS = {
        "x",           std::string(62, 'x'), std::string(63, 'x'), "a%s %d %% |;,'\"*?<>:/.&",
        "  uno  dos ", "a\nb\r\tc\x01\x7f",  bytes_altos(0x80),    bytes_altos(0xc1),
        "Interno"};
};

// ---- Names that are like any other

TEST_F(limites_nombres, de_1_a_63_de_cualquier_caracter_son_de_un_servidor_con_ventana)
{
    conversa_y_acaba(true, VALIDOS);
}

// Some of them: a close takes half a second for each.
TEST_F(limites_nombres, de_1_a_63_de_cualquier_caracter_son_de_un_servidor_sin_ventana)
{
    conversa_y_acaba(false, {VALIDOS[0], VALIDOS[2], VALIDOS[5], VALIDOS[6]});
}

TEST_F(limites_nombres, vacio_es_de_un_servidor_con_ventana_y_de_uno_sin_ella)
{
    conversa_y_acaba(true, {""});
    conversa_y_acaba(false, {""});
}

// Its entry has no name, and so it is free: the next service has the same.
TEST_F(limites_nombres, vacio_comparte_su_entrada_con_el_siguiente)
{
    std::string otro = nombre_unico("otro");
    libre primero(nombre_unico("servidor")), segundo(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    primero.da_ventana();
    segundo.da_ventana();
    primero.ofrece({""});
    primero.publica();
    EXPECT_EQ(servicios_registrados().size(), 0u);
    segundo.ofrece({otro});
    segundo.publica();
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(lugar_de(servicios_registrados(), otro, 32), 0u);
    EXPECT_EQ(registro.u16(en_servicio(0, 64)), 1u) << "the second program's";
    EXPECT_EQ(campos(cliente.pide({"EMPIEZA", ""})), (std::vector<std::string>{"EMPIEZA", "1", otro}));
    cliente.usa("");
    cliente.usa(otro);
    cliente.conversa("", 1);
    cliente.conversa(otro, 1);
    primero.cierra();
    EXPECT_EQ(lugar_de(servicios_registrados(), otro, 32), 0u);
    cliente.conversa(otro, 1);
}

// The internal mutex of service A is the mutex of service AInterno.
TEST_F(limites_nombres, con_Interno_detras_de_otro_nombre_comparten_un_mutex_y_hablan_los_dos)
{
    std::string nombre = nombre_unico("n"), con_cola = nombre + "Interno";
    libre uno(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    uno.ofrece({nombre, con_cola});
    uno.publica();
    cliente.usa(nombre);
    cliente.usa(con_cola);
    espera_latido(cliente);
    cliente.conversa(nombre, 1);
    cliente.conversa(con_cola, 2);
}

// ---- Longer than the registry keeps

// No entry is ever found by the whole name. Each registration and announcement takes one more, and none is given back.
TEST_F(limites_nombres, de_64_habla_y_cada_registro_gasta_una_entrada_que_nadie_devuelve)
{
    std::string nombre = de_largo(64), cortado = nombre.substr(0, 63);
    for (bool con_ventana : {true, false}) {
        SCOPED_TRACE(con_ventana);
        size_t antes = cuenta(cortado);
        libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
        if (con_ventana)
            servidor.da_ventana();
        servidor.ofrece({nombre});
        servidor.publica();
        EXPECT_EQ(cuenta(cortado), antes + 2) << "the registration and the announcement";
        cliente.usa(nombre);
        EXPECT_EQ(cuenta(cortado), antes + 3);
        if (!con_ventana)
            espera_latido(cliente);
        cliente.conversa(nombre, 1);
        EXPECT_EQ(cliente.pide({"HAY", nombre}), "HAY|1|501");
        EXPECT_EQ(cliente.pide({"EMPIEZA", nombre.substr(0, 40)}), junta({"EMPIEZA", "0", cortado}));
        EXPECT_EQ(cliente.pide({"EMPIEZA", nombre}), "EMPIEZA|0|-");
        servidor.cierra();
        EXPECT_EQ(cuenta(cortado), antes + 3) << "nothing is found to be taken out";
        EXPECT_EQ(cliente.pide({"HAY", nombre}), "HAY|0|501");
        EXPECT_EQ(servidor.num_informes() + cliente.num_informes(), 0u);
    }
}

// The client's entry is not the server's: the heartbeat that it looks for is that of the program in place 0.
TEST_F(limites_nombres, de_64_no_echa_de_menos_a_su_servidor_muerto_mientras_vive_el_primer_programa)
{
    std::string nombre = de_largo(64);
    libre primero(nombre_unico("primero")), servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    primero.usa(nombre_unico("otro"));
    servidor.ofrece({nombre});
    servidor.publica();
    cliente.usa(nombre);
    bloque_crudo registro("Ivrexa_MCB"), canal(("Ivrexa_MCB_Serv_" + nombre).c_str());
    EXPECT_EQ(registro.u16(en_servicio(1, 64)), 1u) << "the server's registration";
    EXPECT_EQ(registro.u16(en_servicio(3, 66)), 2u) << "the client's";
    EXPECT_EQ(registro.u16(en_servicio(3, 64)), 0u);
    servidor.mata();
    cliente.empieza({"MANDA", nombre, "100", "t"});
    EXPECT_TRUE(espera_hasta([&] { return registro.u32(en_servicio(3, 88)) > 30; }, 20000));
    EXPECT_FALSE(cliente.busca_respuesta().has_value());
    canal.pon_u16(28, 1);
    EXPECT_EQ(campos(cliente.respuesta()).at(1), "3");
}

TEST_F(limites_nombres, de_64_llena_la_tabla_en_dieciseis_registros)
{
    std::string nombre = de_largo(64);
    libre servidor(nombre_unico("servidor")), otro(nombre_unico("servidor"));
    otro.da_ventana();
    servidor.da_ventana();
    servidor.ofrece({nombre});
    for (int n = 0; n < 16; n++)
        servidor.publica();
    EXPECT_EQ(cuenta(nombre.substr(0, 63)), 32u);
    EXPECT_EQ(servidor.num_informes(), 0u);
    otro.ofrece({nombre_unico("otro")});
    otro.publica();
    otro.espera_informe("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS", 2);
}

// One client talks to both. A service that bears just what is kept of them takes the first entry of theirs for its own.
TEST_F(limites_nombres, iguales_en_63_son_dos_servicios_y_el_de_63_se_lleva_una_entrada_suya)
{
    std::string uno = de_largo(64), dos = uno, justo = uno.substr(0, 63);
    dos[63] = 'z';
    libre servidor(nombre_unico("servidor")), de_justo(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    servidor.da_ventana();
    de_justo.da_ventana();
    servidor.ofrece({uno, dos});
    servidor.publica();
    EXPECT_EQ(cuenta(justo), 4u);
    cliente.usa(uno);
    cliente.usa(dos);
    cliente.conversa(uno, 1);
    cliente.conversa(dos, 2);
    EXPECT_EQ(cuenta(justo), 6u);
    de_justo.ofrece({justo});
    de_justo.publica();
    EXPECT_EQ(cuenta(justo), 6u);
    size_t id = lugar_de(programas(), de_justo.ruta(), 16);
    EXPECT_EQ(bloque_crudo("Ivrexa_MCB").u16(en_servicio(0, 64)), id) << "the first entry is its";
    cliente.usa(justo);
    cliente.conversa(justo, 1);
    de_justo.cierra();
    EXPECT_EQ(cuenta(justo), 5u);
    cliente.conversa(uno, 1);
    cliente.conversa(dos, 2);
}

// ---- Longer than the system's names

// What each object's name has besides the service's: data blocks 31 with three digits, the internal mutex 20, the
// channel 16, the mutex 13, the message 16. A message takes 255 characters, a mutex 260; a block that or one less.
class limites_largo : public limites_nombres, public ::testing::WithParamInterface<size_t> {
protected:
    static size_t largo_de_bloque()
    {
        HANDLE mapa =
            CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 8, std::string(260, 'q').c_str());
        if (mapa != nullptr)
            CloseHandle(mapa);
        return mapa != nullptr ? 260 : 259;
    }
    // What storing data reports.
    void guarda_y_comprueba(libre *programa) const
    {
        std::string id = campos(programa->pide({"GUARDA", nombre, "7"})).at(1);
        EXPECT_EQ(id != "0", datos);
        if (!mutex)
            for (const char *expresion : {SIN_MUTEX, MUTEX_NULO})
                programa->espera_informe("iv_mutex", expresion);
        if (!canal)
            programa->espera_informe("iv_reg", "existia_MCServ == CIERTO");
        else if (!datos)
            programa->espera_informe("iv_comdat", "shared_MCCom != NULL && *shared_MCCom != NULL");
        if (!mutex)
            programa->espera_informe("iv_mutex", MUTEX_NULO);
        EXPECT_EQ(programa->num_informes(), 0u);
    }

    const size_t largo = GetParam();
    const std::string nombre = de_largo(largo);
    const bool datos = 31 + largo <= largo_de_bloque(), canal = 16 + largo <= largo_de_bloque();
    const bool mensaje = 16 + largo <= 255, interno = 20 + largo <= 260, mutex = 13 + largo <= 260;
};
INSTANTIATE_TEST_SUITE_P(nombre, limites_largo,
                         ::testing::Values(228, 229, 230, 239, 240, 243, 244, 245, 247, 248, 255, 400),
                         [](const auto &dato) { return "de_" + std::to_string(dato.param); });

// The other service of the program goes on as if this one were not there. Two cases are told below: a client of a
// server without a message waits, and one without an internal mutex reports for as long as there is a channel.
TEST_P(limites_largo, de_un_servidor_con_ventana)
{
    std::string otro = nombre_unico("otro");
    libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    servidor.da_ventana();
    servidor.ofrece({nombre, otro});
    servidor.publica();
    servidor.espera_informe("iv_mutex", SIN_MUTEX, !mutex + !interno);
    servidor.espera_informe("iv_mutex", MUTEX_NULO, mutex ? 0 : 4);
    EXPECT_EQ(servidor.num_informes(), 0u);
    EXPECT_EQ(existe_bloque(("Ivrexa_MCB_Serv_" + nombre).c_str()), canal);
    EXPECT_EQ(servidor.pide({"MENSAJE", nombre}) != "MENSAJE|0", mensaje);
    cliente.usa(otro);
    EXPECT_EQ(cliente.pide({"HAY", nombre}), canal ? "HAY|1|501" : "HAY|0|-1");
    guarda_y_comprueba(&cliente);
    if (interno || !canal) {
        cliente.usa(nombre);
        cliente.espera_informe("iv_mutex", SIN_MUTEX, !interno);
        EXPECT_EQ(cliente.num_informes(), 0u);
    }
    if (datos)
        cliente.conversa(nombre, 1);
    else if (!canal)
        EXPECT_EQ(cliente.manda(nombre), 0u) << "as for a service that nobody ever offered";
    else if (mensaje)
        EXPECT_EQ(cliente.manda(nombre), 1u);
    cliente.conversa(otro, 2);
    servidor.acaba();
    servidor.espera_informe("iv_mutex", MUTEX_NULO, mutex ? 0 : 2);
    EXPECT_EQ(servidor.num_informes(), 0u);
}

// It has a window and no message for it: its client waits for a thread that is not there, for as long as the server
// lives or says that it ends.
TEST_F(limites_nombres, de_240_de_un_servidor_con_ventana_hace_esperar_al_cliente_hasta_que_cierra)
{
    std::string nombre = de_largo(240);
    libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    servidor.da_ventana();
    servidor.ofrece({nombre});
    servidor.publica();
    cliente.usa(nombre);
    cliente.empieza({"MANDA", nombre, "100", "t"});
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_TRUE(espera_hasta(
        [&] { return registro.u32(en_servicio(2, 84)) == 2 && registro.u32(en_servicio(2, 88)) > 30; }, 20000));
    EXPECT_FALSE(cliente.busca_respuesta().has_value());
    servidor.cierra();
    EXPECT_EQ(campos(cliente.respuesta()).at(1), "3");
}

// It needs no message. Its client's notification thread locks what it has not, twice a round, until the server ends.
TEST_F(limites_nombres, de_241_de_un_servidor_sin_ventana_habla_con_un_cliente_que_informa_sin_fin)
{
    std::string nombre = de_largo(241);
    libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    servidor.ofrece({nombre});
    servidor.publica();
    servidor.espera_informe("iv_mutex", SIN_MUTEX);
    size_t hilos = hilos_de(cliente.pid()).size();
    cliente.usa(nombre);
    cliente.espera_informe("iv_mutex", SIN_MUTEX);
    cliente.espera_informe("iv_mutex", MUTEX_NULO, 6);
    espera_latido(cliente);
    EXPECT_EQ(cliente.manda(nombre), 1u);
    servidor.acaba();
    EXPECT_TRUE(espera_hasta([&] { return hilos_de(cliente.pid()).size() <= hilos + 1; }, 15000)) << "the heartbeat";
    cliente.toma_informes(MUTEX_NULO);
}

TEST_F(limites_nombres, largos_de_un_servidor_sin_ventana_hablan_mientras_tienen_canal)
{
    std::vector<std::string> nombres = {de_largo(228), de_largo(240), de_largo(255), de_largo(400),
                                        nombre_unico("otro")};
    libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
    servidor.ofrece(nombres);
    servidor.publica();
    for (int n = 0; n < 2; n++) { // those of 255 and of 400
        servidor.espera_informe("iv_mutex", SIN_MUTEX, 2);
        servidor.espera_informe("iv_mutex", MUTEX_NULO, 2);
    }
    servidor.espera_informe("iv_mutex", MUTEX_NULO, 4);
    for (const std::string &nombre : nombres)
        cliente.usa(nombre);
    cliente.espera_informe("iv_mutex", SIN_MUTEX, 2);
    espera_latido(cliente);
    cliente.conversa(nombres[0], 1);
    EXPECT_EQ(cliente.manda(nombres[1]), 1u);
    EXPECT_EQ(cliente.manda(nombres[2]), 0u);
    EXPECT_EQ(cliente.manda(nombres[3]), 0u);
    cliente.conversa(nombres[4], 5);
    EXPECT_EQ(servidor.num_informes() + cliente.num_informes(), 0u);
}

// ---- A backslash

// The system takes what stands before it for a folder of objects, which there is not.
TEST_F(limites_nombres, con_barra_inversa_no_tiene_objetos_y_lo_demas_sirve)
{
    std::string nombre = std::string(nombre_unico("a")) + "\\b", otro = nombre_unico("otro");
    for (bool con_ventana : {true, false}) {
        SCOPED_TRACE(con_ventana);
        libre servidor(nombre_unico("servidor")), cliente(nombre_unico("cliente"));
        if (con_ventana)
            servidor.da_ventana();
        servidor.ofrece({nombre, otro});
        servidor.publica();
        servidor.espera_informe("iv_mutex", SIN_MUTEX, 2);
        servidor.espera_informe("iv_mutex", MUTEX_NULO, 4);
        cliente.usa(nombre);
        cliente.espera_informe("iv_mutex", SIN_MUTEX);
        cliente.usa(otro);
        if (!con_ventana)
            espera_latido(cliente);
        EXPECT_EQ(cliente.manda(nombre), 0u);
        EXPECT_EQ(cliente.pide({"HAY", nombre}), "HAY|0|-1");
        EXPECT_EQ(cliente.pide({"EMPIEZA", nombre.substr(0, 5)}), junta({"EMPIEZA", "0", nombre})) << "it is entered";
        cliente.conversa(otro, 2);
        servidor.cierra();
        servidor.espera_informe("iv_mutex", MUTEX_NULO, 2);
        EXPECT_EQ(servidor.num_informes() + cliente.num_informes(), 0u);
        EXPECT_EQ(servicios_registrados().size(), 0u);
    }
}
