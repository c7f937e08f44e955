// A program's life on the desktop: being found, being told to end, closing, and coming back.
#include "dll_conversa.h"

using sesion = conversacion;

// ---- Is there a server?

TEST_F(sesion, servicio_se_ve_solo_mientras_tiene_servidor)
{
    std::string servicio = nombre_unico("serv");
    const char *nombre = servicio.c_str();
    uint16_t version = 7;
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, &version), FALSO);
    EXPECT_EQ(version, 7u) << "without a channel the version is left alone";

    // The client makes the channel; nobody serves it.
    registra(servicio);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, &version), FALSO);
    EXPECT_EQ(version, 0u);

    papel servidor = arranca_servidor("ventana", servicio);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, &version), CIERTO);
    EXPECT_EQ(version, 300u);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, nullptr), CIERTO);

    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    version = 7;
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, &version), FALSO);
    EXPECT_EQ(version, 300u) << "the channel is still there";

    // Registered, but not yet published.
    servidor.di("PREPARA");
    servidor.espera_linea("PREPARADO", 5000);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, &version), FALSO);
    EXPECT_EQ(version, 300u);
    servidor.di("PUBLICA");
    servidor.espera_linea("PUBLICADO", 5000);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, &version), CIERTO);
    EXPECT_EQ(version, 310u);

    servidor.mata();
    EXPECT_EQ(ivrexa_hay_servicio_registrado(nombre, &version), CIERTO) << "a killed server did not say so";
}

TEST_F(sesion, preguntar_por_un_servicio_no_hace_su_canal_ni_lo_apunta)
{
    std::string servicio = nombre_unico("serv");
    char nombre[64];
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), FALSO);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), nombre, nullptr), FALSO);
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(despl_servicio(registro, servicio), 0u);
    EXPECT_EQ(registro.u16(4), 0u) << "num_registros counts registrations, not looks";
}

TEST_F(sesion, prefijo_da_el_primero_de_la_tabla_que_empieza_asi)
{
    std::string base = nombre_unico("Pre");
    std::string b = base + "_B", a = base + "_A", largo = base + "_L" + std::string(62 - base.size() - 2, 'x');
    papel servidor = arranca_servidor("net", b + "," + a + "," + largo + "yz");
    for (int i = 0; i < 2; i++)
        EXPECT_INFORME_DE(servidor, "iv_reg", "procesaComandoExterno != NULL");

    struct caso {
        std::string prefijo;
        std::string encontrado; // empty: none
        uint16_t version;
    };
    const caso casos[] = {
        {base, b, 300}, // the first in the table, not in the alphabet
        {b, b, 300},    // a whole name
        {a, a, 301},
        {base + "_", b, 300},
        {"", b, 300},     // every name begins so
        {b + "x", "", 0}, // longer than every name
        {"pre" + base.substr(3), "", 0},
    };
    for (const caso &c : casos) {
        SCOPED_TRACE("prefix \"" + c.prefijo + "\"");
        char nombre[64 + 4];
        memset(nombre, '#', sizeof nombre);
        uint16_t version = 0;
        int16_t hay = ivrexa_hay_servicio_registrado_empiece_por(c.prefijo.c_str(), nombre, &version);
        EXPECT_EQ(hay, c.encontrado.empty() ? FALSO : CIERTO);
        EXPECT_EQ(version, c.version);
        if (c.encontrado.empty())
            EXPECT_EQ(std::string(nombre, 4), "####");
        else
            EXPECT_STREQ(nombre, c.encontrado.c_str());
        EXPECT_EQ(std::string(nombre + 64, 4), "####");
    }
    char nombre[64];
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(base.c_str(), nombre, nullptr), CIERTO);
}

TEST_F(sesion, prefijo_de_un_servicio_cerrado_ya_no_lo_encuentra)
{
    std::string servicio = nombre_unico("serv");
    registra(servicio);
    char nombre[64] = "nada";
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), nombre, nullptr), FALSO);
    EXPECT_STREQ(nombre, servicio.c_str()) << "the client entered it; nobody serves it";

    papel servidor = arranca_servidor("ventana", servicio);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), nombre, nullptr), CIERTO);
    acaba(servidor);
    strcpy(nombre, "nada");
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), nombre, nullptr), FALSO);
    EXPECT_STREQ(nombre, "nada");
}

// ---- Messages

TEST_F(sesion, mensaje_de_un_servicio_es_el_registrado_con_su_nombre)
{
    std::string servicio = nombre_unico("serv"), otro = nombre_unico("otro");
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(servicio.c_str()), 0u) << "before any registration";
    papel con_ventana = arranca_servidor("ventana", servicio);
    papel sin_ventana = arranca_servidor("sin_ventana", otro);
    uint32_t msg = RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + servicio).c_str());
    uint32_t msg_otro = RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + otro).c_str());

    con_ventana.di("MSG " + servicio);
    EXPECT_EQ(con_ventana.espera_linea("MSG ", 5000), "MSG " + std::to_string(msg));
    con_ventana.di("MSG " + otro);
    EXPECT_EQ(con_ventana.espera_linea("MSG ", 5000), "MSG 0");
    sin_ventana.di("MSG " + otro);
    EXPECT_EQ(sin_ventana.espera_linea("MSG ", 5000), "MSG 0");

    // A client has it with or without a window, of whatever kind the server is.
    registra(servicio);
    registra(otro);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(servicio.c_str()), msg);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(otro.c_str()), msg_otro);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("nadie ofrece esto"), 0u);
    ivrexa_cierra_sesion();
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(servicio.c_str()), 0u);

    con_ventana.di("CIERRA");
    con_ventana.espera_linea("CERRADO", 10000);
    con_ventana.di("PREPARA");
    con_ventana.espera_linea("PREPARADO", 5000);
    con_ventana.di("MSG " + servicio);
    EXPECT_EQ(con_ventana.espera_linea("MSG ", 5000), "MSG 0") << "before the end of the registration";
}

TEST_F(sesion, comando_0_llega_al_procedimiento_de_la_propia_ventana)
{
    for (const char *clase : {"ventana", "net"}) {
        std::string servicio = nombre_unico("serv");
        papel servidor = arranca_servidor(clase, servicio);
        registra(servicio);
        EXPECT_EQ(ejecuta(servicio, 0).resultado, 77u);
        EXPECT_EQ(servidor.espera_linea("PROPIA ", 5000), "PROPIA 0");
    }
}

TEST_F(sesion, comandos_reservados_dan_1_y_no_hacen_nada)
{
    std::string con = nombre_unico("con"), sin = nombre_unico("sin");
    papel con_ventana = arranca_servidor("ventana", con);
    papel sin_ventana = arranca_servidor("sin_ventana", sin, true);
    registra(con);
    registra(sin);
    for (uint32_t id : {2u, 50u, 99u})
        EXPECT_EQ(ejecuta(con, id).resultado, 1u) << id;
    EXPECT_EQ(ejecuta(con, 102).resultado, 1u);
    espera_latido(ruta());
    EXPECT_EQ(ejecuta(sin, 2).resultado, 1u);
    EXPECT_EQ(ejecuta(sin, 99).resultado, 1u);
    EXPECT_EQ(ejecuta(sin, 100, 0, L"ab").t1, L"ba");
}

// ---- Being told to end

// Any program may end a server with a window: command 1 is posted, and the loop gets the quit message with 1.
TEST_F(sesion, servidor_con_ventana_acaba_con_el_mensaje_de_fin)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio, true);
    servidor.di("ESPERA");
    servidor.espera_linea("ESPERADO", 5000); // it has no thread of a service to wait for

    ivrexa_terminar_servidor(servicio.c_str());
    EXPECT_EQ(servidor.espera_linea("QUIT ", 5000), "QUIT 1");
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), FALSO);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u16(28), 1u) << "servidor_terminado";
    EXPECT_EQ(canal.u32(30), 0u) << "estado_servidor";
    acaba(servidor);
}

TEST_F(sesion, servidor_net_recibe_el_comando_1_en_su_propio_procedimiento)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("net", servicio);
    ivrexa_terminar_servidor(servicio.c_str());
    EXPECT_EQ(servidor.espera_linea("PROPIA ", 5000), "PROPIA 1");
    EXPECT_EQ(servidor.espera_linea("QUIT ", 5000), "QUIT 1");
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), CIERTO) << "that is the host's to end";
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), FALSO);
}

// Without a window only a client may, and only the service's own thread ends.
TEST_F(sesion, servidor_sin_ventana_acaba_servicio_a_servicio)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    papel servidor = arranca_servidor("sin_ventana", uno + "," + dos);
    ivrexa_terminar_servidor(uno.c_str());
    EXPECT_EQ(ivrexa_hay_servicio_registrado(uno.c_str(), nullptr), CIERTO) << "this program is no client of it";

    registra(uno);
    registra(dos);
    espera_latido(ruta());
    servidor.di("ESPERA");
    ivrexa_terminar_servidor(uno.c_str());
    EXPECT_EQ(ivrexa_hay_servicio_registrado(uno.c_str(), nullptr), FALSO);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(dos.c_str(), nullptr), CIERTO);
    EXPECT_EQ(ejecuta(dos, 100, 0, L"ab").t1, L"ba");
    EXPECT_FALSE(servidor.busca_linea("ESPERADO", 0)) << "one thread still runs";
    EXPECT_EQ(ejecuta(uno, 102).resultado, 3u);

    ivrexa_terminar_servidor(dos.c_str());
    servidor.espera_linea("ESPERADO", 5000);
    for (const std::string &servicio : {uno, dos}) {
        bloque_crudo canal(nombre_canal(servicio).c_str());
        EXPECT_EQ(canal.u16(28), 1u);
        EXPECT_EQ(canal.u32(30), 0u);
    }
    acaba(servidor);
}

TEST_F(sesion, terminar_lo_que_nadie_ofrece_no_hace_nada)
{
    std::string servicio = nombre_unico("serv");
    ivrexa_terminar_servidor(servicio.c_str());
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
}

// ---- Nobody there

TEST_F(sesion, sin_servidor_el_comando_da_3)
{
    std::string servicio = nombre_unico("serv");
    respuesta r = ejecuta(servicio, 100, 0, L"t");
    EXPECT_EQ(r.resultado, 3u) << "not a client, and no program at all";
    EXPECT_EQ(r.id_salida, 0xaaaaaaaau);
    EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");

    registra(nombre_unico("otro"));
    EXPECT_EQ(ejecuta(servicio, 100).resultado, 3u) << "a client, but of another service";

    registra(servicio);
    r = ejecuta(servicio, 100, 0, L"t");
    EXPECT_EQ(r.resultado, 3u) << "a client of a service that nobody offers";
    EXPECT_EQ(r.id_salida, 0xaaaaaaaau);
    EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u32(4), 0u);
    EXPECT_EQ(canal.u32(1198), 0u);
    EXPECT_EQ(canal.u32(1202), 0u);
}

// A client's registration makes the channel. Where another object has its name there is none, and the result is 0.
TEST_F(sesion, sin_canal_el_comando_da_0)
{
    std::string servicio = nombre_unico("serv");
    HANDLE ajeno = CreateEventA(nullptr, FALSE, FALSE, nombre_canal(servicio).c_str());
    registra(servicio);
    respuesta r = ejecuta(servicio, 100, 0, L"t");
    EXPECT_EQ(r.resultado, 0u);
    EXPECT_EQ(r.id_salida, 0xaaaaaaaau);
    EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");
    CloseHandle(ajeno);
}

// ---- Closing and coming back

class vuelta : public con_cada_servidor {};
CON_CADA_SERVIDOR(vuelta);

// Holds the server up between making its channel and declaring it ready. A thread of the service that ran too early
// would find the old servidor_terminado there, and end: it is given the time to.
static void publica_despacio(papel &servidor, const bloque_crudo &canal)
{
    mutex_crudo registro("Ivrexa_Mutex_MCB");
    ASSERT_TRUE(registro.retiene(5000));
    servidor.di("PUBLICA");
    EXPECT_TRUE(espera_hasta([&] { return canal.u16(2) == 310; }, 5000)) << "the channel's version";
    EXPECT_FALSE(servidor.busca_linea("PUBLICADO", 300));
    EXPECT_EQ(canal.u16(28), 1u);
    registro.suelta();
    servidor.espera_linea("PUBLICADO", 5000);
}

TEST_P(vuelta, del_mismo_programa_sirve_otra_vez_y_sigue_numerando)
{
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    {
        entrada_muestra entrada(servicio, 0);
        EXPECT_EQ(ejecuta(servicio, 100, entrada.id()).id_salida, 101u);
    }
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr), FALSO);
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(despl_programa(registro, ruta_de(servidor)), 0u);
    EXPECT_EQ(despl_servicio(registro, servicio), 0u);
    if (clase == "sin_ventana") {
        EXPECT_EQ(ejecuta(servicio, 100).resultado, 3u);
    }
    servidor.di("PROC");
    EXPECT_EQ(servidor.espera_linea("PROC ", 5000), clase == "sin_ventana" ? "PROC 0" : "PROC 1");

    // This client kept the channel alive with the old servidor_terminado in it, and its counter.
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u16(28), 1u);
    servidor.di("PREPARA");
    servidor.espera_linea("PREPARADO", 5000);
    publica_despacio(servidor, canal);
    uint16_t version = 0;
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), &version), CIERTO);
    EXPECT_EQ(version, 310u);
    EXPECT_NE(despl_programa(registro, ruta_de(servidor)), 0u);
    entrada_muestra entrada(servicio, 2);
    EXPECT_EQ(entrada.id(), 102u);
    respuesta r = ejecuta(servicio, 100, entrada.id(), L"ab");
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.id_salida, 103u);
    EXPECT_EQ(r.t1, L"ba");
    servidor.di("PROC");
    EXPECT_EQ(servidor.espera_linea("PROC ", 5000), clase == "net" ? "PROC 1" : "PROC 0");
    acaba(servidor);
}

TEST_F(sesion, canal_que_nadie_guardo_empieza_de_nuevo_en_100)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    cliente.di("ECO 0");
    cliente.espera_linea("RESULTADO 1|100|101", 10000);
    acaba(cliente);
    acaba(servidor);
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));

    papel otro_servidor = arranca_servidor("ventana", servicio, true);
    papel otro_cliente = arranca_cliente("ventana", servicio, true);
    otro_cliente.di("ECO 1");
    otro_cliente.espera_linea("RESULTADO 1|100|101", 10000);
    acaba(otro_cliente);
    acaba(otro_servidor);
}

// Client ids begin at 200 again, and the window is the program's own again.
TEST_F(sesion, cliente_cierra_y_vuelve_a_registrarse_como_nuevo)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    da_ventana();
    LONG_PTR propio = GetWindowLongPtrW(hwnd(), GWLP_WNDPROC);
    for (int vez = 0; vez < 2; vez++) {
        registra(uno);
        EXPECT_NE(GetWindowLongPtrW(hwnd(), GWLP_WNDPROC), propio);
        registra(dos);
        EXPECT_EQ(ivrexa_abierto_documento_de_cliente(dos.c_str(), L"c:\\uno", 1), 200u);
        EXPECT_EQ(ivrexa_abierto_documento_de_cliente(uno.c_str(), L"c:\\uno", 1), 201u);
        EXPECT_EQ(ivrexa_abierto_documento_de_cliente(dos.c_str(), L"c:\\dos", 2), 200u);
        bloque_crudo registro("Ivrexa_MCB");
        size_t despl = despl_programa(registro, ruta());
        ASSERT_NE(despl, 0u);
        EXPECT_EQ(registro.u64(despl + 256), reinterpret_cast<uint64_t>(hwnd()));
        EXPECT_EQ(registro.u16(despl + 264), 0u);
        EXPECT_EQ(registro.u16(despl + 266), 1u);

        ivrexa_cierra_sesion();
        EXPECT_EQ(despl_programa(registro, ruta()), 0u);
        EXPECT_EQ(GetWindowLongPtrW(hwnd(), GWLP_WNDPROC), propio);
        EXPECT_EQ(ivrexa_dame_id_MSG_servicio(uno.c_str()), 0u);
    }
}

TEST_F(sesion, cierre_sin_registro_y_dos_veces_no_hace_nada)
{
    ivrexa_cierra_sesion();
    ivrexa_terminado_registro();
    comdat *datos = ivrexa_crea_datos_comando_entrada("serv");
    ivrexa_destruye_datos_comando(datos);
    ivrexa_cierra_sesion();
    ivrexa_cierra_sesion();
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("serv"), 0u);
    ivrexa_espera_comando_terminar_servidor();
}
