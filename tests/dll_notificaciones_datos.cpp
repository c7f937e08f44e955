// What travels with a notification, its limits, the reports, and what others see of it: trace, registry,
// monitor.
#include <regex>

#include "comun/hilo.h"

#include "dll_notificaciones_apoyo.h"

// ---- The block attached

class datos_adjuntos : public avisos {
protected:
    void arranca(const std::string &clase, bool servidor_en_c = false)
    {
        servidor = std::make_unique<papel>(arranca_avisador(clase, servicio, servidor_en_c));
        cliente = std::make_unique<papel>(arranca_avisado("ventana", "con_funcion", servicio, !servidor_en_c));
        EXPECT_EQ(documento_abierto(*cliente, servicio), "ID 200");
        b = std::make_unique<buzon>(servicio);
    }
    uint32_t guarda(uint32_t n)
    {
        std::string linea = manda(*servidor, "GUARDA " + std::to_string(n) + " " + servicio, "GUARDADO ");
        return static_cast<uint32_t>(std::stoul(linea.substr(9)));
    }
    bool hay_bloque(uint32_t id) const { return existe_bloque(nombre_datos(servicio, id).c_str()); }

    std::unique_ptr<papel> servidor, cliente;
    std::unique_ptr<buzon> b;
};

class con_datos : public datos_adjuntos, public ::testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(servidor, con_datos, ::testing::ValuesIn(CLASES_SERVIDOR),
                         [](const auto &dato) { return std::string(dato.param); });

// Values of every type, with their ANSI and wide texts. The second call asks with the id in the place of the
// datum.
TEST_P(con_datos, los_lee_el_cliente_en_la_llamada_del_hilo)
{
    arranca(GetParam(), std::string(GetParam()) == "net");
    pon_modo(*cliente, aviso_modo_LEE);
    for (uint32_t n = 0; n < 3; n++) {
        uint32_t id = guarda(n);
        EXPECT_EQ(id, 100 + n);
        servidor->di(orden("AVISA", 200, 7 + n, id, servicio));
        espera_avisado(*servidor, 7 + n);
        EXPECT_EQ(cliente->espera_linea("DATOS ", PLAZO_MS), "DATOS " + std::to_string(id));
        EXPECT_EQ(cliente->espera_linea("LEIDO ", PLAZO_MS), "LEIDO " + muestra_descrita(n));
        EXPECT_EQ(cliente->espera_linea("DATOS ", PLAZO_MS), "DATOS 0");
    }
    sosiega(*cliente);
    EXPECT_EQ(avisos_de(*cliente).size(), 6u);
}

// Where datum and id are the same number, the second call can ask too, as long as it is not processed.
TEST_F(datos_adjuntos, con_el_dato_igual_al_id_tambien_los_da_la_llamada_de_la_ventana)
{
    arranca("ventana");
    b->suspende(*cliente);
    manda(*servidor, orden("AVISA", 200, 200, 105, servicio), "AVISANDO");
    EXPECT_TRUE(b->espera(1));
    cliente->reanuda();
    EXPECT_EQ(cliente->espera_linea("AVISO ventana", PLAZO_MS), "AVISO ventana 200 200 " + servicio);
    EXPECT_EQ(manda(*cliente, "PIDE 200 200 " + servicio, "DATOS "), "DATOS 105");
    manda(*cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(*servidor, 200);
    EXPECT_EQ(manda(*cliente, "PIDE 200 200 " + servicio, "DATOS "), "DATOS 0");
}

TEST_F(datos_adjuntos, bloque_vive_lo_que_su_contenedor_si_nadie_lo_abre)
{
    arranca("sin_ventana");
    uint32_t id = guarda(0);
    manda(*servidor, orden("APARTE", 200, 7, id, servicio), "AVISANDO");
    cliente->espera_linea("AVISO ", PLAZO_MS);
    EXPECT_TRUE(hay_bloque(id));
    manda(*cliente, "ACUSA " + servicio, "ACUSADO");
    espera_avisado(*servidor, 7);
    EXPECT_TRUE(hay_bloque(id)) << "the notification is over, the container is not";
    manda(*servidor, "DESTRUYE", "DESTRUIDO");
    EXPECT_FALSE(hay_bloque(id));
    EXPECT_EQ(manda(*cliente, "LEE " + std::to_string(id) + " " + servicio, "LEIDO "), "LEIDO nada");
    EXPECT_INFORME_DE(*cliente, "ivrexa", "(shared_MCCom) != 0");
    EXPECT_EQ(guarda(1), id + 1) << "no number comes again";
}

TEST_F(datos_adjuntos, bloque_que_el_cliente_leyo_dura_lo_que_su_proceso)
{
    arranca("ventana");
    pon_modo(*cliente, aviso_modo_LEE);
    uint32_t id = guarda(4);
    servidor->di(orden("AVISA", 200, 7, id, servicio));
    espera_avisado(*servidor, 7);
    manda(*servidor, "DESTRUYE", "DESTRUIDO");
    EXPECT_TRUE(hay_bloque(id));
    EXPECT_EQ(manda(*cliente, "LEE " + std::to_string(id) + " " + servicio, "LEIDO "), "LEIDO " + muestra_descrita(4));
    acaba(*cliente);
    EXPECT_FALSE(hay_bloque(id));
}

TEST_F(datos_adjuntos, destruidos_antes_de_leerlos_se_informa_y_se_acusa_igual)
{
    arranca("ventana");
    pon_modo(*cliente, aviso_modo_LEE);
    b->suspende(*cliente);
    uint32_t id = guarda(0);
    manda(*servidor, orden("APARTE", 200, 7, id, servicio), "AVISANDO");
    EXPECT_TRUE(b->espera(1));
    manda(*servidor, "DESTRUYE", "DESTRUIDO");
    cliente->reanuda();
    EXPECT_EQ(cliente->espera_linea("LEIDO ", PLAZO_MS), "LEIDO nada");
    EXPECT_INFORME_DE(*cliente, "ivrexa", "(shared_MCCom) != 0");
    espera_avisado(*servidor, 7);
}

TEST_F(datos_adjuntos, el_cierre_del_servidor_no_los_retira_y_su_fin_si)
{
    arranca("sin_ventana");
    uint32_t id = guarda(2);
    manda(*servidor, orden("APARTE", 200, 7, id, servicio), "AVISANDO");
    EXPECT_EQ(cliente->espera_linea("AVISO hilo", PLAZO_MS), "AVISO hilo 200 7 " + servicio);
    manda(*servidor, "CIERRA", "CERRADO");
    espera_avisado(*servidor, 7);
    EXPECT_EQ(manda(*cliente, "PIDE 200 7 " + servicio, "DATOS "), "DATOS " + std::to_string(id));
    EXPECT_TRUE(hay_bloque(id));
    servidor->mata();
    EXPECT_FALSE(hay_bloque(id));
}

// The counter is the channel's: input of commands, output and what is attached take their numbers from it.
TEST_F(datos_adjuntos, se_numeran_con_los_de_los_comandos)
{
    arranca("ventana");
    EXPECT_EQ(guarda(0), 100u);
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    EXPECT_EQ(ivrexa_guarda_datos(entrada), 101u);
    EXPECT_EQ(guarda(1), 102u);
    ivrexa_destruye_datos_comando(entrada);
    EXPECT_EQ(b->canal().u32(12), 103u);
}

// ---- The three numbers and the name

TEST_F(avisos, los_tres_numeros_llegan_enteros)
{
    const uint32_t valores[] = {0, 1, 0xffff, 0x10000, 0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff};
    papel servidor = arranca_avisador("ventana", servicio);
    papel cliente = arranca_avisado("ventana", "con_funcion", servicio);
    buzon b(servicio);
    for (uint32_t valor : valores) { // without an id the datum comes as the message's lParam too
        std::string v = std::to_string(valor);
        manda(servidor, orden("AVISA", 0, valor, valor, servicio), "AVISANDO");
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 0 " + v + " " + servicio);
        EXPECT_EQ(cliente.espera_linea("PROPIA ", PLAZO_MS), "PROPIA 0|" + v);
        EXPECT_EQ(b.lee(), (palabras{2, 0, valor, valor}));
        EXPECT_EQ(manda(cliente, "PIDE 0 " + v + " " + servicio, "DATOS "), "DATOS " + v);
        manda(cliente, "ACUSA " + servicio, "ACUSADO");
        espera_avisado(servidor, valor);
    }
}

TEST_F(avisos, id_de_cualquier_valor_recibe_lo_suyo)
{
    papel servidor = arranca_avisador("ventana", servicio);
    UINT msg = RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + servicio).c_str());
    for (uint32_t id : {1u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        papel cliente = arranca_avisado("ventana", "con_funcion", servicio);
        std::string i = std::to_string(id);
        DWORD_PTR respuesta;
        SendMessageTimeoutW(ventana_de(cliente), msg, 5, static_cast<LPARAM>(id), SMTO_NORMAL, PLAZO_MS, &respuesta);
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO ventana " + i + " 5 " + servicio);
        pon_modo(cliente, aviso_modo_ACUSA);
        servidor.di(orden("AVISA", id, 7, 0, servicio));
        espera_avisado(servidor, 7);
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo " + i + " 7 " + servicio);
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO ventana " + i + " " + i + " " + servicio);
    }
}

// The registry keeps 63 characters of a name; channel, mutex, message and function have all of it.
TEST_F(avisos, nombre_del_servicio_llega_entero)
{
    const std::string unico = servicio + "_";
    const std::string nombres[] = {
        unico + "a\xf1o \x80 %|&",
        unico + std::string(63 - unico.size(), 'x'),
        unico + std::string(64 - unico.size(), 'y'),
        unico + std::string(120 - unico.size(), 'z'),
    };
    for (const std::string &nombre : nombres) {
        SCOPED_TRACE(nombre);
        ivrexa_registra_servidor("servidor", nullptr, nombre.c_str(), 1, nullptr, anfitrion_procesa);
        ivrexa_terminado_registro();
        papel cliente = arranca_avisado("ventana", "con_funcion", servicio);
        manda(cliente, "ESCUCHA " + nombre, "ESCUCHADO");
        EXPECT_EQ(documento_abierto(cliente, nombre), "ID 200");
        pon_modo(cliente, aviso_modo_ACUSA);
        {
            hilo notifica([&] { ivrexa_notifica_a_cliente(nombre.c_str(), 200, 7, 0); });
            EXPECT_TRUE(notifica.acaba(PLAZO_MS));
        }
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO hilo 200 7 " + nombre);
        EXPECT_EQ(cliente.espera_linea("AVISO ", PLAZO_MS), "AVISO ventana 200 200 " + nombre);
        ivrexa_cierra_sesion();
    }
}

// ---- Reports

static void no_llega(const char *, uint32_t, uint32_t)
{
    ADD_FAILURE() << "nobody is notified here";
}

TEST_F(avisos, nulos_se_informan_uno_a_uno)
{
    const char *s = servicio.c_str();
    ivrexa_notifica_a_cliente(nullptr, 200, 7, 0);
    EXPECT_INFORME("ivrexa", "(nombre_servicio) != 0");
    EXPECT_EQ(ivrexa_obtener_id_datos_notificacion(nullptr, 200, 7), 0u);
    EXPECT_INFORME("ivrexa", "(nombre_servicio) != 0");
    ivrexa_procesada_notificacion(nullptr);
    EXPECT_INFORME("ivrexa", "(nombre_servicio) != 0");

    HWND hwnd = crea_ventana();
    ivrexa_registra_cliente_notificaciones_servicio(nullptr, nullptr, nullptr, nullptr);
    for (const char *expresion : {"(ruta_ejecutable) != 0", "(hwnd_programa) != 0", "(nombre_servicio) != 0",
                                  "(funcion_notificacion_cliente) != 0"})
        EXPECT_INFORME("ivrexa", expresion);
    ivrexa_cierra_sesion();

    ivrexa_registra_cliente_notificaciones_servicio("prueba", hwnd, s, nullptr);
    EXPECT_INFORME("ivrexa", "(funcion_notificacion_cliente) != 0");
    ivrexa_registra_cliente_notificaciones_servicio(nullptr, hwnd, s, no_llega);
    EXPECT_INFORME("ivrexa", "(ruta_ejecutable) != 0");
    ivrexa_registra_cliente_notificaciones_servicio("prueba", nullptr, s, no_llega);
    EXPECT_INFORME("ivrexa", "(hwnd_programa) != 0");
    HWND otra = crea_ventana();
    ivrexa_registra_cliente_notificaciones_servicio("prueba", otra, s, no_llega);
    EXPECT_INFORME("iv_reg", "hwnd_programa == s_programa->hwnd_programa");
    ivrexa_registra_cliente_notificaciones_servicio("prueba", hwnd, s, no_llega);
    EXPECT_SIN_INFORMES();
    ivrexa_cierra_sesion();
    destruye_ventana(&otra);
    destruye_ventana(&hwnd);
}

// Neither reports nor waits: not registered, another's service, one that it only uses.
TEST_F(avisos, notificar_lo_que_no_se_ofrece_vuelve_sin_nada)
{
    const char *s = servicio.c_str();
    ivrexa_notifica_a_cliente(s, 200, 7, 0);
    EXPECT_EQ(ivrexa_obtener_id_datos_notificacion(s, 200, 7), 0u);
    ivrexa_procesada_notificacion(s);
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
    papel servidor = arranca_avisador("ventana", servicio);
    ivrexa_registra_cliente_de_servicio("prueba", nullptr, s);
    ivrexa_notifica_a_cliente(s, 200, 7, 0);
    EXPECT_EQ(buzon(servicio).lee(), (palabras{0, 0, 0, 0}));
    ivrexa_cierra_sesion();
}

// ---- The trace

// Without the heap's lines; a heartbeat may come at any moment.
static std::string sin_latidos(std::string texto)
{
    static const std::pair<const char *, const char *> REGLAS[] = {
        {R"(\[s_LocalHeap=\d+\] i_(malloc|realloc|free)\([^)]*\)( ->|:) memlocal = \d+\n)", ""},
        {R"((Antes|Despues) de i_(malloc|realloc|free): \(Info mem=\d+\): tam_bytes=\d+\n)", ""},
        {R"(HeapCreate: \d+\n)", ""},
        {R"(\n\*\*\* <t>:  ESTOY VIVO \d+ *\n)", ""},
        {R"(hwnd=[1-9]\d*)", "hwnd=<h>"},
    };
    texto = enmascara_tiempos(texto);
    for (const auto &[patron, reemplazo] : REGLAS)
        texto = std::regex_replace(texto, std::regex(patron), reemplazo);
    return texto;
}

static void acusa_traza(const char *nombre, uint32_t id_cliente, uint32_t dato)
{
    ivrexa_obtener_id_datos_notificacion(nombre, id_cliente, dato);
    ivrexa_procesada_notificacion(nombre);
}

// What the registration traces, twice, then what the notifications do.
PAPEL(avisado_trazado)
{
    activa_traza();
    captura_traza traza;
    HWND hwnd = crea_ventana();
    for (int i = 0; i < 2; i++)
        ivrexa_registra_cliente_notificaciones_servicio("ruta", hwnd, args[0].c_str(), acusa_traza);
    ivrexa_abierto_documento_de_cliente(args[0].c_str(), L"uno", 1);
    yo.di("REGISTRO " + sin_latidos(traza.texto()));
    yo.di("LISTO");
    traza.borra();
    if (bombea_hasta_linea(yo, 60000) == "CUENTA")
        yo.di("AVISOS " + sin_latidos(traza.texto()));
    ivrexa_cierra_sesion();
    return 0;
}

PAPEL(avisador_trazado)
{
    activa_traza();
    ivrexa_registra_servidor("ruta", nullptr, args[0].c_str(), 1, nullptr, anfitrion_procesa);
    ivrexa_terminado_registro();
    yo.di("LISTO");
    yo.escucha_linea("AVISA", 60000);
    captura_traza traza;
    for (uint32_t dato = 0; dato < 3; dato++)
        ivrexa_notifica_a_cliente(args[0].c_str(), 200, dato, dato);
    yo.di("AVISOS " + sin_latidos(traza.texto_propio()));
    traza.espera(" ESTOY VIVO ", 10000); // the capture does see records
    yo.di(std::string("LATIDO ") + (traza.texto().find(" ESTOY VIVO ") != std::string::npos ? "si" : "no"));
    ivrexa_cierra_sesion();
    return 0;
}

TEST_F(avisos, no_dejan_nada_en_la_traza_y_el_registro_del_cliente_si)
{
    papel servidor = arranca_papel("avisador_trazado", {servicio});
    papel cliente = arranca_papel("avisado_trazado", {servicio});
    std::string cabecera = "\n*** <t>:  REGISTRO CLIENTE SERVICIO " + servicio + " ruta hwnd=<h>\n";
    EXPECT_EQ(cliente.espera_linea("REGISTRO ", PLAZO_MS), "REGISTRO " + cabecera +
                                                               "sharedmem->tam_datos = 8886  ---  tam_datos = 8886\n"
                                                               "*** Inicio registro Cliente"
                                                               "sharedmem->tam_datos = 2378  ---  tam_datos = 2378\n" +
                                                               cabecera);
    servidor.di("AVISA");
    EXPECT_EQ(servidor.espera_linea("AVISOS", PLAZO_MS), "AVISOS ");
    EXPECT_EQ(servidor.espera_linea("LATIDO", PLAZO_MS), "LATIDO si");
    cliente.di("CUENTA");
    EXPECT_EQ(cliente.espera_linea("AVISOS", PLAZO_MS), "AVISOS ");
    EXPECT_EQ(servidor.espera_fin(PLAZO_MS), 0u);
    EXPECT_EQ(cliente.espera_fin(PLAZO_MS), 0u);
}

// ---- The registry and the monitor

// All but the heartbeats.
static std::vector<uint8_t> sin_contadores(const bloque_crudo &registro)
{
    std::vector<uint8_t> bytes = registro.bytes(0, 8886);
    for (size_t i = 0; i < 16; i++)
        std::fill_n(bytes.begin() + 1430 + 274 * static_cast<ptrdiff_t>(i) + 270, 4, uint8_t(0));
    return bytes;
}

static uint32_t s_num_mensajes_monitor;
static UINT s_msg_monitor;

static LRESULT CALLBACK cuenta_monitor(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == s_msg_monitor && msg != 0)
        s_num_mensajes_monitor++;
    return DefWindowProcW(hwnd, msg, wparam, lparam);
}

// The fields of activity record n: service, data 1 and 2, side, kind, flag.
static palabras actividad(const bloque_crudo &registro, uint32_t n)
{
    size_t d = 22 + (n - 1) * 22;
    return {registro.u32(d),      registro.u32(d + 4),  registro.u32(d + 8),
            registro.u32(d + 12), registro.u32(d + 16), registro.u16(d + 20)};
}

// A monitor is told of the block that is stored and of its reading, and of nothing else.
TEST_F(datos_adjuntos, ni_el_registro_ni_el_monitor_ven_la_notificacion_sino_sus_datos)
{
    arranca("ventana");
    uint32_t id = guarda(0);
    HWND hwnd = crea_ventana(cuenta_monitor);
    s_msg_monitor = RegisterWindowMessageA("Ivrexa_Monitor_MSG");
    bloque_crudo registro("Ivrexa_MCB");
    size_t despl = despl_servicio(registro, servicio);
    ASSERT_NE(despl, 0u);
    uint32_t indice = static_cast<uint32_t>((despl - 5814) / 96);
    registro.pon_u32(14, s_msg_monitor);
    registro.pon_u32(18, 1);
    registro.pon_u16(2, 256);
    registro.pon_u64(6, reinterpret_cast<uint64_t>(hwnd));
    registro.pon_u16(0, 8886);

    const std::vector<uint8_t> antes = sin_contadores(registro);
    for (uint32_t dato : {7u, 8u}) {
        manda(*servidor, orden("AVISA", 200, dato, id, servicio), "AVISANDO");
        EXPECT_EQ(cliente->espera_linea("AVISO hilo", PLAZO_MS),
                  "AVISO hilo 200 " + std::to_string(dato) + " " + servicio);
        EXPECT_EQ(manda(*cliente, "PIDE 200 " + std::to_string(dato) + " " + servicio, "DATOS "),
                  "DATOS " + std::to_string(id));
        EXPECT_TRUE(bytes_iguales(antes, sin_contadores(registro))) << "while the server waits";
        sigue_bloqueado(*servidor); // three of its rounds: not the kind that a monitor is told of
        manda(*cliente, "ACUSA " + servicio, "ACUSADO");
        espera_avisado(*servidor, dato);
    }
    EXPECT_EQ(bombea_hasta([] { return s_num_mensajes_monitor > 0; }, QUIETO_MS), bombeo::tarde);
    EXPECT_TRUE(bytes_iguales(antes, sin_contadores(registro)));

    manda(*cliente, "LEE " + std::to_string(id) + " " + servicio, "LEIDO ");
    EXPECT_EQ(guarda(1), id + 1);
    EXPECT_EQ(bombea_hasta([] { return s_num_mensajes_monitor == 2; }, PLAZO_MS), bombeo::cumplido);
    EXPECT_EQ(registro.u32(18), 3u);
    EXPECT_EQ(actividad(registro, 1), (palabras{indice, 0, id, 1, 4, 1})) << "a client reads output";
    EXPECT_EQ(actividad(registro, 2), (palabras{indice, 0, id + 1, 0, 4, 1})) << "a server stores output";
    registro.pon_u64(6, 0);
    destruye_ventana(&hwnd);
}
