// The road of a notification: the mailbox step by step, and who is called with what.
#include "dll_notificaciones_apoyo.h"

// ---- The mailbox as a third process sees it

struct pareja {
    const char *servidor;
    bool servidor_en_c;
    bool cliente_en_c;
};

static void PrintTo(const pareja &p, std::ostream *o)
{
    *o << p.servidor;
}

class buzon_visto : public avisos, public ::testing::WithParamInterface<pareja> {};
INSTANTIATE_TEST_SUITE_P(servidor, buzon_visto,
                         ::testing::Values(pareja{"ventana", false, true}, pareja{"sin_ventana", true, false},
                                           pareja{"net", true, true}),
                         [](const auto &dato) { return std::string(dato.param.servidor); });

TEST_P(buzon_visto, paso_a_paso_y_nada_mas_del_canal_cambia)
{
    papel servidor = arranca_avisador(GetParam().servidor, servicio, GetParam().servidor_en_c);
    papel cliente = arranca_avisado("ventana", "con_funcion", servicio, GetParam().cliente_en_c);
    buzon b(servicio);
    mutex_crudo interno(buzon::nombre_interno(servicio).c_str());
    EXPECT_EQ(documento_abierto(cliente, servicio), "ID 200");
    pon_modo(cliente, aviso_modo_ESPERA);
    EXPECT_EQ(b.lee(), (palabras{0, 0, 0, 0}));
    const std::vector<uint8_t> canal = b.lo_demas();

    // While somebody else has the mailbox's mutex nothing is written.
    ASSERT_TRUE(interno.retiene(PLAZO_MS));
    cliente.suspende();
    manda(servidor, orden("AVISA", 200, 0x01020304, 0x0a0b0c0d, servicio), "AVISANDO");
    EXPECT_FALSE(espera_hasta([&] { return b.lee() != palabras(4, 0); }, QUIETO_MS));
    interno.suelta();
    EXPECT_TRUE(b.espera(1));
    EXPECT_TRUE(interno.retiene(PLAZO_MS));
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 c8000000 04030201 0d0c0b0a"), b.canal().bytes(2362, 16)));
    interno.suelta();
    sigue_bloqueado(servidor);

    // Taken: the mutex is the client's, and the data stand as they were.
    cliente.reanuda();
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 200 16909060 " + servicio);
    EXPECT_TRUE(bytes_iguales(de_hex("02000000 c8000000 04030201 0d0c0b0a"), b.canal().bytes(2362, 16)));
    EXPECT_FALSE(b.libre());
    sigue_bloqueado(servidor);
    EXPECT_TRUE(avisos_de(cliente).empty()) << "the window is told when the function has returned";

    // Processed: one word, written without the mutex, which its thread still holds.
    servidor.suspende();
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    EXPECT_TRUE(bytes_iguales(de_hex("03000000 c8000000 04030201 0d0c0b0a"), b.canal().bytes(2362, 16)));
    EXPECT_FALSE(b.libre());
    cliente.di("SIGUE");
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO ventana 200 200 " + servicio);
    EXPECT_TRUE(b.espera_libre());
    EXPECT_EQ(b.lee(), (palabras{3, 200, 0x01020304, 0x0a0b0c0d})) << "the server clears it, not the client";

    servidor.reanuda();
    espera_avisado(servidor, 0x01020304);
    EXPECT_EQ(b.lee(), (palabras{0, 0, 0, 0}));
    EXPECT_TRUE(bytes_iguales(canal, b.lo_demas()));
    EXPECT_TRUE(b.espera_libre());
    sosiega(cliente);
    EXPECT_TRUE(avisos_de(cliente).empty());
}

// ---- Who is called, and with what

struct caso_aviso {
    const char *nombre;
    const char *ventana;
    const char *funcion;
    bool con_id; // it has announced a document: its id is 200
    uint32_t destino;
    std::vector<std::string> avisos; // $ stands for the service
};

static void PrintTo(const caso_aviso &c, std::ostream *o)
{
    *o << c.nombre;
}

static std::vector<std::string> con_servicio(std::vector<std::string> avisos, const std::string &servicio)
{
    for (std::string &linea : avisos)
        if (linea.back() == '$')
            linea.replace(linea.size() - 1, 1, servicio);
    return avisos;
}

static const caso_aviso CASOS[] = {
    {"dos_llamadas", "ventana", "con_funcion", true, 200, {"AVISO hilo 200 77 $", "AVISO ventana 200 200 $"}},
    {"sin_id_una_y_mensaje_al_host", "ventana", "con_funcion", false, 0, {"AVISO hilo 0 77 $", "PROPIA 0|77"}},
    {"sin_funcion_nada", "ventana", "sin_funcion", true, 200, {}},
    {"sin_funcion_ni_id_mensaje_al_host", "ventana", "sin_funcion", false, 0, {"PROPIA 0|77"}},
    {"sin_ventana_una", "sin_ventana", "con_funcion", true, 200, {"AVISO hilo 200 77 $"}},
    {"sin_ventana_ni_id_una", "sin_ventana", "con_funcion", false, 0, {"AVISO hilo 0 77 $"}},
    {"sin_ventana_ni_funcion_nada", "sin_ventana", "sin_funcion", true, 200, {}},
    {"con_id_la_del_0_no_es_suya", "ventana", "con_funcion", true, 0, {}},
    {"sin_id_la_del_200_no_es_suya", "ventana", "con_funcion", false, 200, {}},
    {"uno_menos_no_es_suya", "ventana", "con_funcion", true, 199, {}},
    {"uno_mas_no_es_suya", "ventana", "con_funcion", true, 201, {}},
    {"dieciseis_es_un_id_como_otro", "sin_ventana", "con_funcion", true, 16, {}},
    {"dieciseis_tampoco_sin_id", "sin_ventana", "con_funcion", false, 16, {}},
    {"todos_los_bits_es_un_id_como_otro", "ventana", "con_funcion", false, 0xffffffff, {}},
};

class llamadas : public avisos, public ::testing::WithParamInterface<caso_aviso> {};
INSTANTIATE_TEST_SUITE_P(cliente, llamadas, ::testing::ValuesIn(CASOS),
                         [](const auto &dato) { return std::string(dato.param.nombre); });

TEST_P(llamadas, de_una_notificacion)
{
    const caso_aviso &c = GetParam();
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado(c.ventana, c.funcion, servicio);
    buzon b(servicio);
    if (c.con_id)
        EXPECT_EQ(documento_abierto(cliente, servicio), "ID 200");
    manda(servidor, orden("AVISA", c.destino, 77, 0, servicio), "AVISANDO");
    EXPECT_TRUE(b.espera(2)) << "taken, whoever it is for";
    EXPECT_EQ(b.lee(), (palabras{2, c.destino, 77, 0}));
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(servidor, 77); // the delivery lies behind
    sosiega(cliente);
    EXPECT_EQ(avisos_de(cliente), con_servicio(c.avisos, servicio));
}

// The posted message is a message like others: no notification need stand behind it.
TEST_F(avisos, mensaje_llama_a_la_funcion_y_su_primer_lparam_es_el_id)
{
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado("ventana", "con_funcion", servicio + "," + servicio + "_2");
    HWND hwnd = ventana_de(cliente);
    UINT msg = RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + servicio).c_str());
    struct {
        WPARAM wparam;
        LPARAM lparam;
        LRESULT respuesta;
        std::string aviso;
    } const casos[] = {
        {31, 0, 0, "AVISO ventana 0 31 " + servicio}, // no id in it yet
        {0, 777, 77, "PROPIA 0|777"},                 // to the host's own procedure
        {32, 555, 0, "AVISO ventana 555 32 " + servicio},
        {33, 666, 0, "AVISO ventana 555 33 " + servicio}, // the id stays
        {0xffffffff, 0, 0, "AVISO ventana 555 4294967295 " + servicio},
        {0x100000000, 0, 0, "AVISO ventana 555 0 " + servicio}, // not 0, but its 32 bits are
    };
    for (const auto &c : casos) {
        DWORD_PTR respuesta = 0;
        EXPECT_NE(SendMessageTimeoutW(hwnd, msg, c.wparam, c.lparam, SMTO_NORMAL, PLAZO_MS, &respuesta), 0);
        EXPECT_EQ(static_cast<LRESULT>(respuesta), c.respuesta) << c.aviso;
        sosiega(cliente);
        EXPECT_EQ(avisos_de(cliente), std::vector<std::string>{c.aviso});
    }

    pon_modo(cliente, aviso_modo_ACUSA);
    servidor.di(orden("AVISA", 555, 9, 0, servicio));
    espera_avisado(servidor, 9);
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 555 9 " + servicio);
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO ventana 555 555 " + servicio);
    EXPECT_EQ(documento_abierto(cliente, servicio), "ID 555");
    EXPECT_EQ(documento_abierto(cliente, servicio + "_2"), "ID 200") << "no id was handed out before";
}

TEST_F(avisos, mensaje_sin_funcion_da_0_y_no_deja_id)
{
    papel cliente = arranca_avisado("ventana", "sin_funcion", servicio);
    DWORD_PTR respuesta = 5;
    EXPECT_NE(SendMessageTimeoutW(ventana_de(cliente), RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + servicio).c_str()),
                                  32, 555, SMTO_NORMAL, PLAZO_MS, &respuesta),
              0);
    EXPECT_EQ(respuesta, 0u);
    sosiega(cliente);
    EXPECT_TRUE(avisos_de(cliente).empty());
    EXPECT_EQ(documento_abierto(cliente, servicio), "ID 200");
}

TEST_F(avisos, acuse_desde_la_ventana_sirve_igual)
{
    papel servidor = arranca_avisador("sin_ventana", servicio);
    papel cliente = arranca_avisado("ventana", "con_funcion", servicio, true);
    documento_abierto(cliente, servicio);
    pon_modo(cliente, aviso_modo_ACUSA_VENTANA);
    for (uint32_t dato : {7u, 8u}) {
        servidor.di(orden("AVISA", 200, dato, 0, servicio));
        espera_avisado(servidor, dato);
        sosiega(cliente);
        EXPECT_EQ(avisos_de(cliente),
                  (std::vector<std::string>{"AVISO hilo 200 " + std::to_string(dato) + " " + servicio,
                                            "AVISO ventana 200 200 " + servicio}));
    }
}

TEST_F(avisos, segundo_registro_no_cambia_la_funcion)
{
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado("ventana", "sin_funcion", servicio);
    manda(cliente, "ESCUCHA " + servicio, "ESCUCHADO");
    documento_abierto(cliente, servicio);
    manda(servidor, orden("AVISA", 200, 7, 0, servicio), "AVISANDO");
    EXPECT_TRUE(buzon(servicio).espera(2));
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(servidor, 7);
    sosiega(cliente);
    EXPECT_TRUE(avisos_de(cliente).empty());
}

// ---- Programs that serve and listen

struct caso_doble {
    const char *clase;
    std::vector<std::string> avisos;
};

static void PrintTo(const caso_doble &c, std::ostream *o)
{
    *o << c.clase;
}

static const caso_doble DOBLES[] = {
    {"ventana", {"AVISO hilo 200 7 $", "AVISO ventana 200 200 $"}},
    {"net", {"AVISO hilo 200 7 $", "PROPIA 200|7"}}, // its window is not the library's
    {"sin_ventana", {"AVISO hilo 200 7 $"}},
};

class servidor_que_escucha : public avisos, public ::testing::WithParamInterface<caso_doble> {};
INSTANTIATE_TEST_SUITE_P(clase, servidor_que_escucha, ::testing::ValuesIn(DOBLES),
                         [](const auto &dato) { return std::string(dato.param.clase); });

TEST_P(servidor_que_escucha, a_otro_servidor)
{
    papel servidor = arranca_avisador("ventana", servicio);
    papel doble = arranca_avisador(GetParam().clase, nombre_unico("propio"));
    manda(doble, "ESCUCHA " + servicio, "ESCUCHADO");
    if (std::string(GetParam().clase) == "sin_ventana")
        EXPECT_INFORME_DE(doble, "ivrexa", "(hwnd_programa) != 0");
    pon_modo(doble, aviso_modo_ACUSA);
    EXPECT_EQ(documento_abierto(doble, servicio), "ID 200");
    servidor.di(orden("AVISA", 200, 7, 0, servicio));
    espera_avisado(servidor, 7);
    sosiega(doble);
    EXPECT_EQ(avisos_de(doble), con_servicio(GetParam().avisos, servicio));
}

// Offered services come before used ones: the message that would be the second call is a command, the id its
// number and the datum its input block.
TEST_F(avisos, servidor_que_se_escucha_a_si_mismo_recibe_un_comando)
{
    papel servidor = arranca_avisador("ventana", servicio);
    manda(servidor, "ESCUCHA " + servicio, "ESCUCHADO");
    pon_modo(servidor, aviso_modo_ACUSA);
    EXPECT_EQ(documento_abierto(servidor, servicio), "ID 200");
    servidor.di(orden("AVISA", 200, 0, 0, servicio));
    espera_avisado(servidor, 0);
    EXPECT_EQ(servidor.espera_linea("COMANDO ", PLAZO_MS), "COMANDO 200");
    servidor.di(orden("AVISA", 200, 7, 0, servicio));
    espera_avisado(servidor, 7);
    EXPECT_EQ(servidor.espera_linea("COMANDO ", PLAZO_MS), "COMANDO 200");
    EXPECT_INFORME_DE(servidor, "iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    sosiega(servidor);
    EXPECT_EQ(avisos_de(servidor),
              (std::vector<std::string>{"AVISO hilo 200 0 " + servicio, "AVISO hilo 200 7 " + servicio}));
}

// ---- Several clients

class varios : public avisos {
protected:
    // Ids are each process's own: 200 twice, unless one has announced a document for another service before.
    void arranca(bool con_ids_distintos)
    {
        servidor = std::make_unique<papel>(arranca_avisador("sin_ventana", servicio));
        uno = std::make_unique<papel>(arranca_avisado("ventana", "con_funcion", servicio));
        std::string otro = nombre_unico("otro");
        dos = std::make_unique<papel>(arranca_avisado("ventana", "con_funcion", servicio + "," + otro, true));
        EXPECT_EQ(documento_abierto(*uno, servicio), "ID 200");
        if (con_ids_distintos)
            EXPECT_EQ(documento_abierto(*dos, otro), "ID 200");
        EXPECT_EQ(documento_abierto(*dos, servicio), con_ids_distintos ? "ID 201" : "ID 200");
        b = std::make_unique<buzon>(servicio);
    }

    std::unique_ptr<papel> servidor, uno, dos;
    std::unique_ptr<buzon> b;
};

TEST_F(varios, de_dos_con_el_mismo_id_la_recibe_solo_el_que_la_toma)
{
    arranca(false);
    uint32_t dato = 7;
    for (auto [toma, otro] : {std::pair(&uno, &dos), std::pair(&dos, &uno)}) {
        b->suspende(**otro);
        servidor->di(orden("AVISA", 200, ++dato, 0, servicio));
        EXPECT_EQ((*toma)->espera_linea("AVISO hilo", PLAZO_MS),
                  "AVISO hilo 200 " + std::to_string(dato) + " " + servicio);
        (*otro)->reanuda();
        manda(**toma, "ACUSA " + servicio, "ACUSADO");
        espera_avisado(*servidor, dato);
        EXPECT_EQ((*toma)->espera_linea("AVISO ", PLAZO_MS), "AVISO ventana 200 200 " + servicio);
        sosiega(**otro);
        EXPECT_TRUE(avisos_de(**otro).empty());
    }
}

TEST_F(varios, la_de_otro_la_toma_quien_llega_y_no_llega_a_nadie)
{
    arranca(true);
    b->suspende(*dos);
    manda(*servidor, orden("AVISA", 201, 7, 105, servicio), "AVISANDO");
    EXPECT_TRUE(b->espera(2));
    dos->reanuda();
    EXPECT_FALSE(b->libre());
    // Whoever asks gets the id of its data, and whoever says so has processed it.
    EXPECT_EQ(manda(*uno, "PIDE 201 7 " + servicio, "DATOS "), "DATOS 105");
    EXPECT_EQ(manda(*dos, "PIDE 201 7 " + servicio, "DATOS "), "DATOS 105");
    sigue_bloqueado(*servidor, 1200); // more than two turns of the other's thread
    EXPECT_EQ(b->lee(), (palabras{2, 201, 7, 105}));
    manda(*dos, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(*servidor, 7);
    for (papel *cliente : {uno.get(), dos.get()}) {
        sosiega(*cliente);
        EXPECT_TRUE(avisos_de(*cliente).empty());
    }

    // Where only its own client looks, it arrives.
    b->suspende(*uno);
    servidor->di(orden("AVISA", 201, 8, 0, servicio));
    EXPECT_EQ(dos->espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 201 8 " + servicio);
    uno->reanuda();
    manda(*uno, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(*servidor, 8);
}

// 60 turns of 500 ms: this test is as long. Commands go their way meanwhile.
TEST_F(varios, la_de_otro_retiene_el_buzon_30_segundos_y_despues_sigue_tomada)
{
    arranca(true);
    b->suspende(*dos);
    manda(*servidor, orden("APARTE", 201, 7, 0, servicio), "AVISANDO");
    EXPECT_TRUE(b->espera(2));
    uint64_t inicio = GetTickCount64();
    dos->reanuda();
    espera_latido(ruta_de(*dos));
    EXPECT_EQ(manda(*dos, "COMANDO 102 |" + servicio, "RESULTADO "), "RESULTADO 1");
    EXPECT_TRUE(b->espera_libre(40000));
    uint64_t ms = GetTickCount64() - inicio;
    EXPECT_GE(ms, 29000u);
    EXPECT_LT(ms, 40000u);
    EXPECT_EQ(b->lee(), (palabras{2, 201, 7, 0}));
    sigue_bloqueado(*servidor, 1200); // nobody takes it a second time, and the server has no time-out
    EXPECT_TRUE(b->espera_libre());
    EXPECT_TRUE(avisos_de(*uno).empty());
    EXPECT_TRUE(avisos_de(*dos).empty());
    manda(*dos, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(*servidor, 7);
    EXPECT_EQ(b->lee(), (palabras{0, 0, 0, 0}));
}

// ---- Several services, several notifications

TEST_F(avisos, varios_servicios_se_notifican_a_la_vez_y_cada_uno_espera_lo_suyo)
{
    std::string nombres[3] = {servicio + "_a", servicio + "_b", servicio + "_c"};
    std::string lista = nombres[0] + "," + nombres[1] + "," + nombres[2];
    papel servidor = arranca_avisador("net", lista);
    papel cliente = arranca_avisado("sin_ventana", "con_funcion", lista);
    for (uint32_t i = 0; i < 3; i++)
        EXPECT_EQ(documento_abierto(cliente, nombres[2 - i]), "ID " + std::to_string(200 + i));
    for (uint32_t i = 0; i < 3; i++)
        servidor.di(orden("APARTE", 202 - i, 70 + i, 100 + i, nombres[i]));
    for (uint32_t i = 0; i < 3; i++) {
        std::string aviso = "AVISO hilo " + std::to_string(202 - i) + " " + std::to_string(70 + i) + " " + nombres[i];
        EXPECT_EQ(cliente.espera_linea(aviso, PLAZO_MS), aviso);
    }
    for (uint32_t i : {1u, 0u, 2u}) {
        std::string que = std::to_string(202 - i) + " " + std::to_string(70 + i) + " ";
        EXPECT_EQ(manda(cliente, "PIDE " + que + nombres[i], "DATOS "), "DATOS " + std::to_string(100 + i));
        EXPECT_EQ(manda(cliente, "PIDE " + que + nombres[(i + 1) % 3], "DATOS "), "DATOS 0") << "another service's";
        sigue_bloqueado(servidor, 150);
        manda(cliente, "ACUSA " + nombres[i], "ACUSADO");
        espera_avisado(servidor, 70 + i);
    }
    sosiega(cliente);
    EXPECT_TRUE(avisos_de(cliente).empty());
}

TEST_F(avisos, dos_notificaciones_del_mismo_servicio_van_una_tras_otra)
{
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado("sin_ventana", "con_funcion", servicio);
    buzon b(servicio);
    documento_abierto(cliente, servicio);
    b.suspende(cliente);
    manda(servidor, orden("APARTE", 200, 1, 11, servicio), "AVISANDO");
    EXPECT_TRUE(b.espera(1));
    manda(servidor, orden("APARTE", 200, 2, 22, servicio), "AVISANDO");
    EXPECT_FALSE(espera_hasta([&] { return b.lee() != palabras{1, 200, 1, 11}; }, QUIETO_MS));
    cliente.reanuda();
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 200 1 " + servicio);
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(servidor, 1);
    EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 200 2 " + servicio);
    EXPECT_EQ(b.lee(), (palabras{2, 200, 2, 22}));
    manda(cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(servidor, 2);
}

TEST_F(avisos, de_dieciseis_servicios_se_escucha_y_del_siguiente_no)
{
    std::string lista, ultimo = nombre_unico("resto");
    for (int i = 0; i < 16; i++)
        lista += (i > 0 ? "," : "") + servicio + "_" + std::to_string(i);
    papel servidor = arranca_avisador("ventana", lista);
    papel otro = arranca_avisador("ventana", ultimo);
    papel cliente = arranca_avisado("ventana", "con_funcion", lista + "," + ultimo);
    pon_modo(cliente, aviso_modo_ACUSA);
    for (int i = 0; i < 16; i++)
        EXPECT_EQ(documento_abierto(cliente, servicio + "_" + std::to_string(i)), "ID " + std::to_string(200 + i));
    EXPECT_EQ(documento_abierto(cliente, ultimo), "ID 0");
    EXPECT_INFORME_DE(cliente, "iv_reg", "servicio_solicitado != NULL");

    for (uint32_t i : {0u, 15u}) {
        std::string nombre = servicio + "_" + std::to_string(i);
        servidor.di(orden("AVISA", 200 + i, i, 0, nombre));
        espera_avisado(servidor, i);
        std::string id = std::to_string(200 + i);
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS),
                  "AVISO hilo " + id + " " + std::to_string(i) + " " + nombre);
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO ventana " + id + " " + id + " " + nombre);
    }
    manda(otro, orden("AVISA", 0, 9, 0, ultimo), "AVISANDO");
    sigue_bloqueado(otro, 800); // more than a turn of a client's thread
    EXPECT_EQ(buzon(ultimo).lee(), (palabras{1, 0, 9, 0}));
}
