// The trace of one command, whole, in the client and in each kind of server. Lines of the heap are left out.
#include <regex>

#include "dll_conversa.h"

enum : uint32_t { CONTESTA = 200, SIETE = 201 };

static uint32_t s_hilo_comandos; // the thread that the command function ran on

static int32_t contesta(anfitrion_peticion *p)
{
    s_hilo_comandos = GetCurrentThreadId();
    uint32_t id = 0;
    wchar_t t1[64], t2[256], t3[256];
    if (p->id_comando == SIETE)
        return 7;
    ivrexa_get_datos_entrada_comando(p->servicio, 77, nullptr, t1, nullptr, nullptr);
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, &id, t1, nullptr, t3);
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_byte(p->salida, "b", 1);
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, ivrexa_guarda_datos(p->salida), L"r1", nullptr, L"");
    ivrexa_set_datos_salida_comando(p->servicio, 77, 0, L"mal", t2, nullptr);
    return 1;
}

// The heap's lines, rounds that may or may not come, and all that differs from run to run.
static std::string limpia(std::string texto)
{
    static const std::pair<const char *, const char *> REGLAS[] = {
        {R"(\[s_LocalHeap=\d+\] i_(malloc|realloc|free)\([^)]*\)( ->|:) memlocal = \d+\n)", ""},
        {R"((Antes|Despues) de i_(malloc|realloc|free): \(Info mem=\d+\): tam_bytes=\d+\n)", ""},
        {R"(Heap(Create|Destroy): \d+\n)", ""},
        {R"(\n\*\*\* <t>: BUCLE (CLIENTE_ESPERA_SERVIDOR_AVISADO|SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO)\n)", ""},
        {R"((\n\*\*\* <t>: BUCLE \w+\n)\1+)", "$1"},
        {R"( -> \d+\n)", " -> <p>\n"},
        {R"(prueba_traza_\w+)", "SERV"},
        {R"(papel_\d+)", "RUTA"},
        {R"(hwnd=[1-9]\d*)", "hwnd=<h>"},
    };
    texto = enmascara_tiempos(texto);
    for (const auto &[patron, reemplazo] : REGLAS)
        texto = std::regex_replace(texto, std::regex(patron), reemplazo);
    return texto;
}

PAPEL(servidor_trazado)
{
    activa_traza();
    captura_traza traza;
    anfitrion_yo.otros = contesta;
    int codigo = anfitrion_servidor(args[0].c_str(), args[1].c_str());
    yo.di("PROPIA " + limpia(traza.texto_propio()));
    yo.di("COMANDOS " + limpia(traza.texto_de_hilo(s_hilo_comandos)));
    return codigo;
}

PAPEL(cliente_trazado)
{
    activa_traza(""); // it need only exist
    captura_traza traza;
    const char *servicio = args[0].c_str();
    std::string mi_ruta = "papel_" + std::to_string(GetCurrentProcessId());
    ivrexa_registra_cliente_de_servicio(mi_ruta.c_str(), nullptr, servicio);
    if (args[1] == "sin_ventana")
        espera_latido(mi_ruta);
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_ushort(entrada, "u", 1);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada);
    respuesta r = ejecuta(servicio, CONTESTA, id_entrada, L"p1", nullptr, L"p3");
    comdat *salida = ivrexa_lee_datos(servicio, r.id_salida, FALSO);
    ivrexa_destruye_datos_comando(salida);
    ivrexa_destruye_datos_comando(entrada);
    ejecuta(servicio, SIETE);
    ejecuta("prueba_traza_de_nadie", CONTESTA, 5);
    ivrexa_cierra_sesion();
    yo.di("PROPIA " + limpia(traza.texto_propio()));
    yo.di("TODA " + limpia(traza.texto()));
    yo.di("LISTO");
    return 0;
}

static const char CANAL[] = "sharedmem->tam_datos = 2378  ---  tam_datos = 2378\n";

static std::string traza_cliente(bool con_rondas)
{
    std::string canal = CANAL, rondas;
    if (con_rondas)
        rondas = "\n*** <t>: BUCLE CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO\n";
    return "\n*** <t>:  REGISTRO CLIENTE SERVICIO SERV RUTA hwnd=0\n"
           "sharedmem->tam_datos = 8886  ---  tam_datos = 8886\n"
           "*** Inicio registro Cliente" +
           canal +
           "*** iv_comdat_crea_para_grabar(DatosEntrada)... \n"
           "*** -> <p>\n" +
           canal +
           "\n*** <t>:  INICIO COMANDO SERV id_comando: 200\n"
           "    Datos de entrada\n"
           "    id_bloque_MCCom_entrada = 100\n"
           "    param1\"p1\"\n"
           "    param3\"p3\"\n"
           "\n" +
           canal + rondas +
           "\n*** <t>:  FIN COMANDO SERV id_comando: 200\n"
           "    Resultado     OK\n"
           "    id_datos_salida_comando = 101\n"
           "    serv_buffer_64\"r1\"\n"
           "    serv_buffer_256\"\"\n"
           "    serv_buffer2_256\"\"\n"
           "\n"
           "sharedmem->tam_datos = 9  ---  tam_datos = 9\n"
           "*** iv_comdat_crea_para_leer(DatosSalida) -> <p>\n"
           "\n*** <t>:  INICIO COMANDO SERV id_comando: 201\n"
           "    Datos de entrada\n"
           "    id_bloque_MCCom_entrada = 0\n"
           "\n" +
           canal + rondas +
           "\n*** <t>:  FIN COMANDO SERV id_comando: 201\n"
           "    Resultado "                                    // another result than 0 to 3 ends the record here
           "\n*** <t>:  INICIO COMANDO SERV id_comando: 200\n" // not its client: no closing record
           "    Datos de entrada\n"
           "    id_bloque_MCCom_entrada = 5\n"
           "\n";
}

static const char REGISTRO_SERVIDOR[] = "\n*** <t>: Registro Servidor RUTA hwnd=<h>\n"
                                        "*** Inicio registro Servidor"
                                        "\n*** <t>:  REGISTRO SERVICIO PRESTADO SERV Version 300\n";

// The records of both commands in the server; `get` is what tells the input's id there.
static std::string traza_comandos(const std::string &lectura, const std::string &id, bool con_fin,
                                  const std::string &entre)
{
    std::string fin_1, fin_2;
    if (con_fin) {
        fin_1 = "\n*** <t>:  FIN COMANDO SERV id_comando: 200\n"
                "    Resultado     OK\n"
                "    id_datos_salida_comando = 101\n"
                "\n";
        fin_2 = "\n*** <t>:  FIN COMANDO SERV id_comando: 201\n"
                "    Resultado ";
    }
    return lectura +
           "\n*** <t>:  GET_DATOS_ENTRADA_COMANDO SERV id_comando: 77\n"
           "    Resultado     FALSO\n"
           "\n*** <t>:  GET_DATOS_ENTRADA_COMANDO SERV id_comando: 200\n"
           "    Resultado     CIERTO\n"
           "    id_datos_entrada_comando = " +
           id +
           "\n    buffer_cliente_64\"p1\"\n"
           "    buffer_cliente2_256\"p3\"\n"
           "*** iv_comdat_crea_para_grabar(DatosSalida)... \n"
           "*** -> <p>\n" +
           CANAL +
           "\n*** <t>:  SET_DATOS_ENTRADA_COMANDO SERV id_comando: 200\n"
           "    Resultado     CIERTO\n"
           "    id_datos_salida_comando = 101\n"
           "    resultado_64\"r1\"\n"
           "    resultado_256_2\"\"\n"
           "\n"
           "\n*** <t>:  SET_DATOS_ENTRADA_COMANDO SERV id_comando: 77\n"
           "    Resultado     FALSO\n" +
           fin_1 + entre + fin_2;
}

static const char LECTURA[] = "sharedmem->tam_datos = 10  ---  tam_datos = 10\n"
                              "*** iv_comdat_crea_para_leer(DatosEntrada) -> <p>\n";

class traza_entera : public ::testing::TestWithParam<const char *> {};
CON_CADA_SERVIDOR(traza_entera);

static std::string traza_servidor(const std::string &clase)
{
    // The host of a _net server fetches the command by itself, and ends it without a record.
    std::string get_previo = "\n*** <t>:  GET_DATOS_ENTRADA_COMANDO SERV id_comando: ";
    std::string cierto = "\n    Resultado     CIERTO\n    id_datos_entrada_comando = ";
    if (clase == "net")
        return traza_comandos(get_previo + "200" + cierto + "100\n" + LECTURA, "100", false,
                              get_previo + "201" + cierto + "0\n");
    return traza_comandos(LECTURA, "0", true, "");
}

TEST_P(traza_entera, de_dos_comandos_en_cliente_y_servidor)
{
    std::string clase = GetParam(), servicio = nombre_unico("prueba_traza");
    papel servidor = arranca_papel("servidor_trazado", {clase, servicio});
    papel cliente = arranca_papel("cliente_trazado", {servicio, clase});
    EXPECT_EQ(cliente.espera_linea("PROPIA ", 10000), "PROPIA " + traza_cliente(clase == "sin_ventana"));
    std::string toda = cliente.espera_linea("TODA ", 5000);
    if (clase == "sin_ventana") {
        EXPECT_NE(toda.find("\n*** <t>:  ESTOY VIVO 1\n"), std::string::npos) << "after its first 2 s";
    }
    EXPECT_EQ(cliente.espera_fin(10000), 0u);

    servidor.di("ACABA");
    std::string propia = servidor.espera_linea("PROPIA ", 10000), comandos = servidor.espera_linea("COMANDOS ", 5000);
    std::string registro = REGISTRO_SERVIDOR;
    if (clase == "sin_ventana") {
        // Rounds stand before and after the commands, on the service's own thread; between them only if the thread
        // looked before the client had written the second one.
        std::string ronda = "\n*** <t>: BUCLE SERVIDOR_ESPERA_RECEPCION_COMANDO\n";
        EXPECT_EQ(propia, "PROPIA " + std::regex_replace(registro, std::regex("<h>"), "0"));
        std::string fin_2 = "\n*** <t>:  FIN COMANDO SERV id_comando: 201";
        bool sin_ronda_en_medio = comandos.find(ronda + fin_2) == std::string::npos;
        EXPECT_EQ(comandos,
                  "COMANDOS " + ronda + traza_comandos(LECTURA, "0", true, sin_ronda_en_medio ? "" : ronda) + ronda);
    } else {
        EXPECT_EQ(propia, "PROPIA " + registro + traza_servidor(clase));
        EXPECT_EQ(comandos.substr(9), propia.substr(7)) << "one thread does it all";
    }
    EXPECT_EQ(servidor.espera_fin(10000), 0u);
}
