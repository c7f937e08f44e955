// ctl_call.cpp - ivrexactl call, as a user runs it, against servers of each kind.
#include "ctl_cliente_apoyo.h"

#include <atomic>
#include <thread>

#include "comun/lineas.h"

using nlohmann::json;

enum : uint32_t {
    CRUDO = 200,
    SALIDA = 201,
    SALIDA_ANCHA = 202,
    SALIDA_QUE_NO_HAY = 203,
    DELANTE = 204,
    LARGA = 205,
    SALIDA_MAL = 206
};

// The bytes of the input block, as they came.
static int32_t hace_crudo(const anfitrion_peticion *p)
{
    bloque_crudo bloque(("Ivrexa_MCB_Serv_" + std::string(p->servicio) + "_Com__comdat100").c_str());
    std::vector<uint8_t> bytes = bloque.bytes(0, bloque.cabecera());
    papel_c_di("CRUDO %s", a_hex(bytes.data(), bytes.size()).c_str());
    return 1;
}

static int32_t guarda_y_contesta(anfitrion_peticion *p)
{
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, ivrexa_guarda_datos(p->salida), L"uno", L"d\x20ac!",
                                    L"\"");
    return 1;
}

static int32_t hace_salida(anfitrion_peticion *p)
{
    static const char *const textos[] = {"a\xf1", nullptr, ""};
    static const uint8_t bytes[] = {0, 1, 2, 0xff};
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_cadena_ansi(p->salida, "texto", "l\xednea\n2");
    ivrexa_graba_byte(p->salida, "b", 255);
    ivrexa_graba_ushort(p->salida, "u", 65535);
    ivrexa_graba_buffer(p->salida, "bytes", bytes, sizeof bytes);
    ivrexa_graba_ulong(p->salida, "l", 4294967295u);
    ivrexa_graba_arr_cadenas_ansi(p->salida, "arr", textos, 3);
    ivrexa_graba_double(p->salida, "d", 0.1);
    ivrexa_graba_cadena_ansi(p->salida, "nulo", nullptr);
    ivrexa_graba_cadena_unicode(p->salida, "ancho", L"\x20ac");
    ivrexa_graba_hwnd(p->salida, "h", reinterpret_cast<ivrexa_hwnd>(uintptr_t{0x1122334455667788}));
    ivrexa_graba_buffer(p->salida, "vacio", nullptr, 0);
    ivrexa_graba_arr_cadenas_ansi(p->salida, "arr0", nullptr, 0);
    return guarda_y_contesta(p);
}

static int32_t hace_salida_ancha(anfitrion_peticion *p)
{
    static const wchar_t *const textos[] = {L"x"};
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_byte(p->salida, "antes", 7);
    ivrexa_graba_arr_cadenas_unicode(p->salida, "arr", textos, 1);
    ivrexa_graba_byte(p->salida, "detras", 8);
    return guarda_y_contesta(p);
}

// Two values, says its count, and one is there.
static int32_t hace_salida_mal(anfitrion_peticion *p)
{
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_byte(p->salida, "b", 7);
    uint32_t id = ivrexa_guarda_datos(p->salida);
    bloque_crudo(("Ivrexa_MCB_Serv_" + std::string(p->servicio) + "_Com__comdat" + std::to_string(id)).c_str())
        .pon_u32(0, 2);
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, id, L"", L"", L"");
    return 1;
}

static int32_t hace_larga(anfitrion_peticion *p)
{
    std::vector<uint8_t> bytes(3000000);
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = static_cast<uint8_t>(i * 31 >> 3);
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_buffer(p->salida, "bytes", bytes.data(), static_cast<uint32_t>(bytes.size()));
    return guarda_y_contesta(p);
}

static int32_t di_quien_esta_delante()
{
    papel_c_di("DELANTE %llu", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(GetForegroundWindow())));
    return 1;
}

static int32_t otros(anfitrion_peticion *p)
{
    switch (p->id_comando) {
    case CRUDO:
        return hace_crudo(p);
    case SALIDA:
        return hace_salida(p);
    case SALIDA_ANCHA:
        return hace_salida_ancha(p);
    case SALIDA_QUE_NO_HAY:
        ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 4242, L"", L"", L"");
        return 1;
    case DELANTE:
        return di_quien_esta_delante();
    case LARGA:
        return hace_larga(p);
    case SALIDA_MAL:
        return hace_salida_mal(p);
    default:
        return 99;
    }
}

PAPEL(servidor_propio)
{
    anfitrion_yo.otros = otros;
    if (args.size() > 2)
        anfitrion_yo.al_nacer = [] { ShowWindow(anfitrion_yo.hwnd, SW_SHOWNOACTIVATE); };
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

class call : public ctl_cliente {
protected:
    papel arranca_propio(const std::string &clase) const
    {
        return arranca_papel("servidor_propio", {clase, servicio()});
    }
    salida_de llama(uint32_t id, std::vector<std::string> mas = {}) const
    {
        mas.insert(mas.begin(), {"call", servicio(), std::to_string(id)});
        return ejecuta_ctl(mas);
    }
    std::string nota() const
    {
        return "note: takes a program entry and the client slot of \"" + servicio() + "\" while it runs\n";
    }
};

class call_de : public call, public ::testing::WithParamInterface<const char *> {};

INSTANTIATE_TEST_SUITE_P(servidor, call_de, ::testing::ValuesIn(CLASES),
                         [](const auto &dato) { return std::string(dato.param); });

// ---- Values and texts, there and back

static const std::vector<std::string> TODOS = {"b:byte=0xff",
                                               "u:ushort=65535",
                                               "l:ulong=4294967295",
                                               "d:double=-1.5",
                                               "h:hwnd=0x1122334455667788",
                                               "bytes:buffer=00ff7f",
                                               "vacio:buffer=",
                                               "a:ansi=a\xc3\xb1o",
                                               "v:ansi=",
                                               "n:ansi",
                                               "w:wide=\xe2\x82\xac\xf0\x9f\x98\x80",
                                               "wv:wide=",
                                               "wn:wide",
                                               "arr:ansi[]=[\"uno\",\"\",\"tres\"]",
                                               "arr0:ansi[]=[]"};

static const char *const TODOS_EN_EL_SERVIDOR =
    "ENTRADA 15;1:b=ff;2:u=ffff;3:l=ffffffff;4:d=000000000000f8bf;8:h=8877665544332211;5:bytes=00ff7f;5:vacio=nulo;"
    "6:a=61f16f00;6:v=00;6:n=nulo;7:w=20acd83dde00;7:wv=;7:wn=nulo;9:arr=756e6f00,00,7472657300,;9:arr0=";

static const char *const TODOS_DE_VUELTA = R"([
    {"name":"b","type":"byte","value":255},
    {"name":"u","type":"ushort","value":65535},
    {"name":"l","type":"ulong","value":4294967295},
    {"name":"d","type":"double","value":-1.5},
    {"name":"h","type":"hwnd","value":1234605616436508552},
    {"name":"bytes","type":"buffer","size":3,"value":"00ff7f"},
    {"name":"vacio","type":"buffer","size":0,"value":""},
    {"name":"a","type":"ansi","value":"a\u00f1o"},
    {"name":"v","type":"ansi","value":""},
    {"name":"n","type":"ansi","value":null},
    {"name":"w","type":"wide","value":"\u20ac\ud83d\ude00"},
    {"name":"wv","type":"wide","value":""},
    {"name":"wn","type":"wide","value":null},
    {"name":"arr","type":"ansi[]","value":["uno","","tres"]},
    {"name":"arr0","type":"ansi[]","value":[]}])";

TEST_P(call_de, cada_tipo_y_los_textos_van_y_vuelven)
{
    papel servidor = arranca(GetParam());
    std::vector<uint8_t> antes = programas_en_tabla();
    std::vector<std::string> args = {"--json", "--text1", "-5", "--text2", "/abc", "--text3", "fin\xe2\x82\xac"};
    args.insert(args.end(), TODOS.begin(), TODOS.end());
    salida_de s = llama(anfitrion_ECO, args);
    EXPECT_EQ(s.codigo, 0u) << s.salida;
    EXPECT_EQ(s.error, nota());
    servidor.espera_linea(TODOS_EN_EL_SERVIDOR, 5000);
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), "TEXTOS 002d0035|002f006100620063|00660069006e20ac");
    ASSERT_EQ(en_lineas(s.salida).size(), 1u);
    json j = json::parse(s.salida);
    EXPECT_EQ(j["service"], servicio());
    EXPECT_EQ(j["id"], 100);
    EXPECT_EQ(j["result"], json::parse(R"({"code":1,"name":"OK"})"));
    EXPECT_EQ(j["texts"], json::parse(R"(["5-","cba/","\u20acnif"])"));
    EXPECT_EQ(j["values"], json::parse(TODOS_DE_VUELTA));
    EXPECT_EQ(j.size(), 5u) << j;
    EXPECT_TRUE(bytes_iguales(antes, programas_en_tabla())) << "the entry was released";
}

TEST_F(call, en_texto_una_linea_para_cada_cosa)
{
    papel servidor = arranca_propio("ventana");
    salida_de s = llama(SALIDA);
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.salida, "result OK (1)\n"
                        "text1  \"uno\"\n"
                        "text2  \"d\xe2\x82\xac!\"\n"
                        "text3  \"\\\"\"\n"
                        "value  texto  ansi    \"l\xc3\xadnea\\n2\"\n"
                        "value  b      byte    255\n"
                        "value  u      ushort  65535\n"
                        "value  bytes  buffer  4 bytes 000102ff\n"
                        "value  l      ulong   4294967295\n"
                        "value  arr    ansi[]  [\"a\xc3\xb1\", null, \"\"]\n"
                        "value  d      double  0.1\n"
                        "value  nulo   ansi    null\n"
                        "value  ancho  wide    \"\xe2\x82\xac\"\n"
                        "value  h      hwnd    1234605616436508552\n"
                        "value  vacio  buffer  0 bytes\n"
                        "value  arr0   ansi[]  []\n");
    EXPECT_EQ(s.error, nota());
}

TEST_F(call, la_salida_con_nulos_en_un_arreglo_vuelve_en_json)
{
    papel servidor = arranca_propio("ventana");
    salida_de s = llama(SALIDA, {"--json"});
    json j = json::parse(s.salida);
    EXPECT_EQ(j["texts"], json::parse(R"(["uno","d\u20ac!","\""])"));
    EXPECT_EQ(j["values"][5], json::parse(R"({"name":"arr","type":"ansi[]","value":["a\u00f1",null,""]})"));
    EXPECT_EQ(j["values"].size(), 12u);
}

TEST_F(call, un_buffer_largo_vuelve_entero_en_json)
{
    papel servidor = arranca_propio("ventana");
    salida_de s = llama(LARGA, {"--json"});
    std::vector<uint8_t> bytes(3000000);
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = static_cast<uint8_t>(i * 31 >> 3);
    json j = json::parse(s.salida);
    EXPECT_EQ(j["values"][0]["size"], 3000000);
    EXPECT_TRUE(j["values"][0]["value"] == a_hex(bytes.data(), bytes.size()));
}

TEST_F(call, los_nulos_de_un_arreglo_y_un_fichero_llegan_al_servidor_byte_a_byte)
{
    papel servidor = arranca_propio("ventana");
    char carpeta[MAX_PATH];
    GetTempPathA(MAX_PATH, carpeta);
    std::string ruta = std::string(carpeta) + "ivrexactl_call.bin";
    FILE *fichero = fopen(ruta.c_str(), "wb");
    fwrite("\x00\r\n\x1a\xff", 1, 5, fichero);
    fclose(fichero);
    salida_de s = llama(CRUDO, {"s:ansi[]=[\"u\",null]", "f:buffer=@" + ruta});
    DeleteFileA(ruta.c_str());
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(servidor.espera_linea("CRUDO ", 5000), "CRUDO 02000000"
                                                     "09027300"
                                                     "02000000"
                                                     "14000000"
                                                     "1a000000"
                                                     "02000000"
                                                     "7500"
                                                     "00000000"
                                                     "05026600"
                                                     "05000000"
                                                     "000d0a1aff");
}

// The server's library takes the first position for the count, and reports what it then misses.
TEST_F(call, un_arreglo_ancho_se_manda_con_un_aviso_y_el_servidor_no_lo_lee)
{
    papel servidor = arranca_propio("ventana");
    salida_de s = llama(CRUDO, {"a:wide[]=[\"x\"]", "b:byte=1"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.error,
              "note: value \"a\" is a wide[]: the server cannot read it, nor what stands behind it, and the library "
              "shows a box there; use single wide texts\n" +
                  nota());
    EXPECT_EQ(servidor.espera_linea("CRUDO ", 5000), "CRUDO 02000000"
                                                     "0a026100"
                                                     "0c000000"
                                                     "04000000"
                                                     "78000000"
                                                     "01026200"
                                                     "01");
    EXPECT_INFORME_DE(servidor, "iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
}

TEST_F(call, un_arreglo_ancho_en_la_respuesta_se_dice_sin_que_salga_una_caja)
{
    papel servidor = arranca_propio("ventana");
    salida_de s = llama(SALIDA_ANCHA, {"--json"});
    EXPECT_EQ(s.codigo, 0u);
    json j = json::parse(s.salida);
    EXPECT_EQ(j["values"], json::parse(R"([{"name":"antes","type":"byte","value":7},
        {"name":"arr","type":"wide[]","value":["x"]},{"name":"detras","type":"byte","value":8}])"));
    EXPECT_EQ(s.error,
              nota() + "note: the output has a wide[]; other clients cannot read it, nor what stands behind it\n");
}

TEST_F(call, un_bloque_de_salida_que_miente_se_lee_hasta_donde_llega_sin_que_salga_una_caja)
{
    papel servidor = arranca_propio("ventana");
    salida_de s = llama(SALIDA_MAL, {"--json"});
    EXPECT_EQ(s.codigo, 0u);
    json j = json::parse(s.salida);
    EXPECT_EQ(j["values"], json::parse(R"([{"name":"b","type":"byte","value":7}])"));
    EXPECT_TRUE(contiene(s.error, "note: " + j["error"].get<std::string>() + "\n")) << s.error;
}

TEST_F(call, un_bloque_de_salida_que_no_hay_se_dice_sin_que_salga_una_caja)
{
    papel servidor = arranca_propio("ventana");
    salida_de s = llama(SALIDA_QUE_NO_HAY, {"--json"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(json::parse(s.salida)["values"], json::array());
    EXPECT_TRUE(contiene(s.error, "note: there is no output block 4242")) << s.error;
}

TEST_F(call, sin_nada_no_lleva_bloque_y_los_textos_vacios_llegan_vacios)
{
    papel servidor = arranca("ventana");
    EXPECT_EQ(llama(anfitrion_NADA).codigo, 0u);
    EXPECT_EQ(servidor.espera_linea("NADA ", 5000), "NADA 0");
    salida_de s = llama(anfitrion_NULOS);
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), "TEXTOS ||");
    EXPECT_EQ(s.salida, "result OK (1)\ntext1  \"\"\ntext2  \"\"\ntext3  \"\"\n");
}

TEST_F(call, textos_y_nombres_llegan_enteros_en_su_limite)
{
    papel servidor = arranca("ventana");
    salida_de s = llama(anfitrion_LARGOS, {"--text1", std::string(63, 'x'), "--text2", std::string(255, 'y'), "--text3",
                                           std::string(253, 'z') + "\xf0\x9f\x98\x80", "--json"});
    EXPECT_EQ(servidor.espera_linea("LARGOS ", 5000), "LARGOS 63|255|255");
    json textos = json::parse(s.salida)["texts"];
    EXPECT_EQ(de_utf8(textos[0]).size(), 63u);
    EXPECT_EQ(de_utf8(textos[1]).size(), 255u);
    EXPECT_EQ(de_utf8(textos[2]).size(), 255u);

    std::string nombre(254, 'n');
    s = llama(anfitrion_ECO, {nombre + ":byte=9", "--json"});
    servidor.espera_linea("ENTRADA 1;1:" + nombre + "=09", 5000);
    EXPECT_EQ(json::parse(s.salida)["values"][0]["name"], nombre);
}

// ---- Results

TEST_F(call, el_estado_de_salida_dice_el_resultado)
{
    papel servidor = arranca("ventana");
    struct {
        uint32_t resultado, codigo;
        const char *salida;
    } const casos[] = {
        {0, 10, "result NINGUNO (0)\n"}, {2, 12, "result CANCELADO (2)\n"}, {3, 13, "result ERROR (3)\n"},
        {4, 14, "result 4\n"},           {19, 14, "result 19\n"},
    };
    for (const auto &caso : casos) {
        salida_de s = llama(anfitrion_PRIMER_NUMERO + caso.resultado);
        EXPECT_EQ(s.codigo, caso.codigo);
        EXPECT_EQ(s.salida, caso.salida);
        std::string pista = caso.resultado == 0
                                ? "hint: the server returned it, or its window does not know the command\n"
                            : caso.resultado == 3 ? "hint: the server returned it\n"
                                                  : "";
        EXPECT_EQ(s.error, nota() + pista);
    }
    salida_de s = llama(anfitrion_RESULTADO, {"--text1", "-7"});
    EXPECT_EQ(s.codigo, 14u);
    EXPECT_EQ(s.salida, "result 4294967289 (-7)\n");
    s = llama(anfitrion_RESULTADO, {"--text1", "7", "--json"});
    EXPECT_EQ(json::parse(s.salida), json::parse(R"({"service":")" + servicio() +
                                                 R"(","id":101,"result":{"code":7,"name":null},)"
                                                 R"("texts":["","",""],"values":[]})"));
}

TEST_F(call, un_servidor_con_ventana_que_muere_en_el_comando_da_ninguno_y_una_pista)
{
    papel servidor = arranca("ventana");
    herramienta h({"call", servicio(), std::to_string(anfitrion_ESPERA)});
    servidor.espera_linea("DENTRO", CTL_PLAZO_MS);
    servidor.mata();
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 10u);
    EXPECT_EQ(h.salida(), "result NINGUNO (0)\n");
    EXPECT_TRUE(contiene(h.error(), "hint: the server of \"" + servicio() + "\" is gone")) << h.error();
}

// Begun behind a heartbeat of the server's, so that none comes between the command and its death: one that comes
// counts as life for the whole wait.
TEST_F(call, un_servidor_sin_ventana_que_muere_en_el_comando_da_error_y_una_pista)
{
    papel servidor = arranca("sin_ventana");
    espera_latido_nuevo(servidor);
    herramienta h({"call", servicio(), std::to_string(anfitrion_ESPERA)});
    servidor.espera_linea("DENTRO", CTL_PLAZO_MS);
    servidor.mata();
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 13u);
    EXPECT_EQ(h.salida(), "result ERROR (3)\n");
    EXPECT_TRUE(contiene(h.error(), "hint: the service \"" + servicio() + "\" is no more")) << h.error();
}

// ---- What it takes

// The library's rule: a server without a window takes a client whose heartbeat is 0 for dead, and may end.
TEST_F(call, sin_ventana_espera_a_su_primer_latido_y_con_ventana_no)
{
    for (const char *clase : {"ventana", "sin_ventana"}) {
        papel servidor = arranca(clase);
        herramienta h({"call", servicio(), std::to_string(anfitrion_ESPERA)});
        servidor.espera_linea("DENTRO", CTL_PLAZO_MS);
        size_t i = busca_programa("ivrexactl");
        ASSERT_LT(i, 16u);
        bloque_crudo registro("Ivrexa_MCB");
        if (clase == std::string("sin_ventana"))
            EXPECT_GE(registro.u32(en_programa(i, 270)), 1u);
        else
            EXPECT_EQ(registro.u32(en_programa(i, 270)), 0u);
        EXPECT_EQ(registro.u64(en_programa(i, 256)), 0u) << "it has no window";
        EXPECT_EQ(registro.u16(en_servicio(busca_servicio(servicio()), 66)), i) << "the client slot";
        servidor.di("SIGUE");
        EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 0u);
        EXPECT_EQ(busca_programa("ivrexactl"), 16u);
        acaba(servidor);
    }
}

TEST_F(call, dos_a_la_vez_no_comparten_su_entrada)
{
    std::string otro = nombre_unico("otro");
    papel uno = arranca("ventana"), dos = arranca_papel("servidor", {"ventana", otro});
    std::vector<uint8_t> antes = programas_en_tabla();
    herramienta h1({"call", servicio(), std::to_string(anfitrion_ESPERA)});
    uno.espera_linea("DENTRO", CTL_PLAZO_MS);
    herramienta h2({"call", otro, std::to_string(anfitrion_ESPERA)});
    dos.espera_linea("DENTRO", CTL_PLAZO_MS);
    EXPECT_LT(busca_programa("ivrexactl.exe 2"), 16u);
    uno.di("SIGUE");
    EXPECT_EQ(h1.espera_fin(CTL_PLAZO_MS), 0u);
    EXPECT_LT(busca_programa("ivrexactl.exe 2"), 16u) << "the first that ends leaves the other's entry";
    dos.di("SIGUE");
    EXPECT_EQ(h2.espera_fin(CTL_PLAZO_MS), 0u);
    EXPECT_TRUE(bytes_iguales(antes, programas_en_tabla()));
}

TEST_F(call, no_quita_el_sitio_a_un_cliente_que_vive_de_un_servicio_sin_ventana_si_no_se_fuerza)
{
    papel servidor = arranca("sin_ventana");
    papel cliente = arranca_papel("cliente", {"sin_ventana", servicio()});
    std::string quien = "\"papel_" + std::to_string(cliente.pid()) + "\"";
    std::vector<uint8_t> antes = programas_en_tabla();
    salida_de s = llama(anfitrion_NADA);
    EXPECT_EQ(s.codigo, 75u);
    EXPECT_EQ(s.salida, "");
    EXPECT_TRUE(contiene(s.error, quien + " has the client slot of \"" + servicio() + "\"")) << s.error;
    EXPECT_EQ(en_lineas(s.error).size(), 1u) << "it has registered: " << s.error;
    EXPECT_TRUE(bytes_iguales(antes, programas_en_tabla()));
    s = ejecuta_ctl({"call", servicio(), std::to_string(anfitrion_NADA), "--force"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_TRUE(contiene(s.error, "note: " + quien + " loses the client slot: ")) << s.error;
}

TEST_F(call, quita_el_sitio_a_un_cliente_que_ha_muerto)
{
    papel servidor = arranca("sin_ventana");
    papel cliente = arranca_papel("cliente", {"sin_ventana", servicio()});
    cliente.mata();
    salida_de s = llama(anfitrion_NADA);
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.error, nota());
}

TEST_F(call, un_servicio_que_un_monitor_quito_de_la_tabla_se_llama_y_vuelve_a_ella)
{
    papel servidor = arranca("ventana");
    bloque_crudo("Ivrexa_MCB").pon_u16(en_servicio(busca_servicio(servicio()), 0), 0);
    salida_de s = llama(anfitrion_NADA);
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.error, nota() + "note: the service table did not name \"" + servicio() +
                           "\", as after the start of a monitor; now it does\n");
    EXPECT_LT(busca_servicio(servicio()), 32u);
}

TEST_F(call, un_servicio_puede_llamarse_como_una_suborden)
{
    papel servidor = arranca_papel("servidor", {"ventana", "end"});
    EXPECT_EQ(ejecuta_ctl({"call", "end", std::to_string(anfitrion_NADA)}).codigo, 0u);
    EXPECT_EQ(servidor.espera_linea("NADA ", 5000), "NADA 0");
}

// ---- Refusals, with everything as it was

TEST_F(call, lo_que_no_vale_se_rechaza_sin_tocar_nada)
{
    papel servidor = arranca("ventana");
    std::string s63(63, 's');
    struct {
        std::vector<std::string> args;
        uint32_t codigo;
        const char *error;
    } const casos[] = {
        {{servicio()}, 64, "ID is required"},
        {{servicio(), "0"}, 64, "ivrexactl call: id: 0 is the library's own"},
        {{servicio(), "1"}, 64, "use 'ivrexactl end'"},
        {{servicio(), "99"}, 64, "id: 99 is the library's own; a server's commands begin at 100"},
        {{servicio(), "4294967296"}, 64, "is not a number from 0 to 4,294,967,295"},
        {{servicio(), "100", "--text1", std::string(64, 'x')}, 64, "--text1: the text has 64 characters"},
        {{servicio(), "100", "--text2", std::string(256, 'x')}, 64, "--text2: the text has 256 characters"},
        {{servicio(), "100", "--text3", std::string(256, 'x')}, 64, "--text3: the text has 256 characters"},
        {{servicio(), "100", "x"}, 64, "has no type"},
        {{servicio(), "100", "x:int=1"}, 64, "there is no type \"int\""},
        {{servicio(), "100", "b:byte=256"}, 64, "is not a number from 0 to 255"},
        {{servicio(), "100", "a:ansi=\xe4\xb8\x80"}, 64, "has a character that the ANSI code page has not"},
        {{servicio(), "100", std::string(255, 'n') + ":byte=1"}, 64, "254 is the most"},
        {{servicio(), "100", "ok:byte=1", "f:buffer=@C:\\no\\such"}, 66, "\"C:\\\\no\\\\such\" cannot be read"},
        {{servicio(), "100", "--no-such"}, 64, "--help"},
        {{s63 + "s", "100"}, 64, "is no name of a service"},
        {{"", "100"}, 64, "is no name of a service"},
        {{"a\\b", "100"}, 64, "is no name of a service"},
        {{s63, "100"}, 69, "there is no service \"sss"},
        {{servicio() + "x", "100"}, 69, "there is no service"},
    };
    std::vector<uint8_t> antes = tablas(), canal_antes = canal().bytes(0, 2378);
    for (const auto &caso : casos) {
        std::vector<std::string> args = caso.args;
        args.insert(args.begin(), "call");
        salida_de s = ejecuta_ctl(args);
        EXPECT_EQ(s.codigo, caso.codigo) << caso.error;
        EXPECT_EQ(s.salida, "");
        EXPECT_TRUE(contiene(s.error, caso.error)) << s.error;
    }
    EXPECT_TRUE(bytes_iguales(antes, tablas()));
    EXPECT_TRUE(bytes_iguales(canal_antes, canal().bytes(0, 2378)));
    EXPECT_FALSE(existe_bloque(nombre_canal(s63).c_str())) << "asking for a service makes no channel";
}

TEST_F(call, en_un_escritorio_sin_nada_no_hay_servicio)
{
    salida_de s = llama(100);
    EXPECT_EQ(s.codigo, 69u);
    EXPECT_EQ(s.error, "ivrexactl call: there is no service \"" + servicio() +
                           "\"; 'ivrexactl list' shows those that there are\n");
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
}

TEST_F(call, un_servicio_cerrado_no_esta_y_el_de_un_servidor_muerto_tampoco)
{
    papel servidor = arranca("ventana");
    bloque_crudo el_canal = canal(), registro("Ivrexa_MCB");
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 15000);
    EXPECT_EQ(llama(100).codigo, 69u);
    servidor.di("PREPARA");
    servidor.di("PUBLICA");
    servidor.espera_linea("PUBLICADO", 15000);
    EXPECT_EQ(llama(anfitrion_NADA).codigo, 0u);
    servidor.mata();
    std::vector<uint8_t> antes = tablas();
    salida_de s = llama(100);
    EXPECT_EQ(s.codigo, 69u);
    EXPECT_TRUE(contiene(s.error, "is gone, and its window with it; start it again")) << s.error;
    EXPECT_TRUE(bytes_iguales(antes, tablas()));
}

TEST_F(call, con_la_tabla_de_programas_llena_se_rechaza_sin_caja)
{
    papel servidor = arranca("ventana");
    llena_programas();
    std::vector<uint8_t> antes = tablas();
    salida_de s = llama(anfitrion_NADA);
    EXPECT_EQ(s.codigo, 69u);
    EXPECT_TRUE(contiene(s.error, "ivrexactl call: the desktop has its 16 programs")) << s.error;
    EXPECT_TRUE(bytes_iguales(antes, tablas()));
}

// What a killed one has left is taken over: it bears the same path.
TEST_F(call, con_la_tabla_llena_sirve_la_entrada_de_uno_que_murio)
{
    papel servidor = arranca("ventana");
    herramienta h({"call", servicio(), std::to_string(anfitrion_ESPERA)});
    servidor.espera_linea("DENTRO", CTL_PLAZO_MS);
    h.mata();
    servidor.di("SIGUE");
    EXPECT_LT(busca_programa("ivrexactl"), 16u);
    llena_programas();
    canal().pon_u32(1198, 0); // the claim that it left
    EXPECT_EQ(llama(anfitrion_NADA).codigo, 0u);
    EXPECT_EQ(busca_programa("ivrexactl"), 16u);
}

TEST_F(call, con_la_tabla_de_servicios_llena_vale_solo_un_servicio_que_esta_en_ella)
{
    papel servidor = arranca("ventana");
    llena_servicios();
    EXPECT_EQ(llama(anfitrion_NADA).codigo, 0u);
    bloque_crudo("Ivrexa_MCB").pon_texto(en_servicio(busca_servicio(servicio()), 0), "otro");
    std::vector<uint8_t> antes = tablas();
    salida_de s = llama(anfitrion_NADA);
    EXPECT_EQ(s.codigo, 69u);
    EXPECT_TRUE(
        contiene(s.error, "the service table has its 32 services, and \"" + servicio() + "\" is not among them"))
        << s.error;
    EXPECT_TRUE(bytes_iguales(antes, tablas()));
}

TEST_F(call, un_registro_que_alguien_retiene_no_lo_cuelga)
{
    papel servidor = arranca("ventana");
    mutex_crudo mutex("Ivrexa_Mutex_MCB");
    ASSERT_TRUE(mutex.retiene(5000));
    salida_de s = llama(anfitrion_NADA);
    EXPECT_EQ(s.codigo, 75u);
    EXPECT_TRUE(contiene(s.error, "a program holds the registry and does not go on")) << s.error;
}

// ---- Other clients, Ctrl-C

TEST_F(call, un_servicio_ocupado_se_deja_en_paz_y_con_force_se_espera_el_turno)
{
    papel servidor = arranca("ventana");
    canal().pon_u32(1198, 2);
    canal().pon_u32(1202, 777);
    std::vector<uint8_t> antes = tablas();
    salida_de s = llama(anfitrion_NADA);
    EXPECT_EQ(s.codigo, 75u);
    EXPECT_TRUE(contiene(s.error, "ivrexactl call: command 777 of another client is under way on")) << s.error;
    EXPECT_TRUE(bytes_iguales(antes, tablas()));

    herramienta h({"call", servicio(), std::to_string(anfitrion_NADA), "--force"});
    h.espera_error("note: command 777 of another client is under way on \"" + servicio() +
                       "\"; this one waits for its turn, and may disturb it\n",
                   CTL_PLAZO_MS);
    EXPECT_TRUE(espera_hasta(
        [&] { return bloque_crudo("Ivrexa_MCB").u32(en_servicio(busca_servicio(servicio()), 84)) == 1; }, 15000))
        << "it waits in the library's own rounds";
    EXPECT_FALSE(servidor.busca_linea("NADA", 0));
    canal().pon_u32(1198, 0);
    servidor.espera_linea("NADA 0", CTL_PLAZO_MS);
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 0u);
}

class call_ctrl_c : public call, public ::testing::WithParamInterface<const char *> {};

INSTANTIATE_TEST_SUITE_P(servidor, call_ctrl_c, ::testing::Values("ventana", "sin_ventana"),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(call_ctrl_c, lo_termina_en_un_comando_que_no_vuelve_y_dice_lo_que_queda)
{
    papel servidor = arranca(GetParam());
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    herramienta h({"call", servicio(), std::to_string(anfitrion_ESPERA)}, opciones);
    servidor.espera_linea("DENTRO", CTL_PLAZO_MS);
    h.pulsa_ctrl_c();
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 75u);
    EXPECT_EQ(h.salida(), "");
    EXPECT_TRUE(contiene(h.error(), "ended without a result; its program entry stays")) << h.error();
    EXPECT_TRUE(contiene(h.error(), "service \"" + servicio() + "\" may stay claimed")) << h.error();
    EXPECT_EQ(canal().u32(1198), 2u) << "as it says";
    EXPECT_LT(busca_programa("ivrexactl"), 16u);
    EXPECT_EQ(llama(anfitrion_NADA).codigo, 75u);
    servidor.di("SIGUE");
}

TEST_F(call, ctrl_c_antes_del_comando_no_deja_nada)
{
    papel servidor = arranca("sin_ventana");
    std::vector<uint8_t> antes = programas_en_tabla();
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    herramienta h({"call", servicio(), std::to_string(anfitrion_NADA)}, opciones);
    ASSERT_TRUE(espera_hasta([] { return busca_programa("ivrexactl") < 16; }, 15000));
    h.pulsa_ctrl_c();
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 75u);
    EXPECT_TRUE(contiene(h.error(), "ivrexactl call: ended before the command was sent\n")) << h.error();
    EXPECT_TRUE(bytes_iguales(antes, programas_en_tabla()));
    EXPECT_EQ(canal().u32(1198), 0u);
    EXPECT_FALSE(servidor.busca_linea("NADA", 0));
}

// Whatever lock of the library another one holds. The heap's stands in the way of everything, a service's of the
// registration; the registry's is waited for, with a bound, and 75 is the answer to that too.
class call_ctrl_c_con_cerrojo : public call, public ::testing::WithParamInterface<const char *> {};

INSTANTIATE_TEST_SUITE_P(cerrojo, call_ctrl_c_con_cerrojo,
                         ::testing::Values("ivrexa_iv_mem", "Ivrexa_Mutex_MCB", "Mutex_Ivrexa_"));

TEST_P(call_ctrl_c_con_cerrojo, lo_termina_aunque_la_biblioteca_espere)
{
    papel servidor = arranca("ventana");
    std::string nombre = GetParam();
    mutex_crudo cerrojo((nombre.back() == '_' ? nombre + servicio() : nombre).c_str());
    ASSERT_TRUE(cerrojo.retiene(5000));
    opciones_herramienta opciones;
    opciones.con_ctrl_c = true;
    herramienta h({"call", servicio(), std::to_string(anfitrion_NADA)}, opciones);
    if (nombre == "Mutex_Ivrexa_")
        h.espera_error("note: takes", CTL_PLAZO_MS);
    else // its number among those that run: taken just before
        ASSERT_TRUE(espera_hasta([] { return existe_mutex("ivrexactl.client.1"); }, CTL_PLAZO_MS));
    h.pulsa_ctrl_c();
    uint64_t desde = GetTickCount64();
    EXPECT_EQ(h.espera_fin(CTL_PLAZO_MS), 75u);
    EXPECT_LT(GetTickCount64() - desde, 15000u);
    EXPECT_EQ(h.salida(), "");
    EXPECT_TRUE(contiene(h.error(), "ivrexactl")) << h.error();
    if (nombre == "ivrexa_iv_mem")
        EXPECT_TRUE(contiene(h.error(), "it has taken nothing. 'ivrexactl doctor' looks for")) << h.error();
    EXPECT_FALSE(servidor.busca_linea("NADA", 0));
}

// ---- The foreground

class call_delante : public call {
protected:
    call_delante()
        : m_hwnd(crea_ventana()), m_servidor(arranca_papel("servidor_propio", {"ventana", servicio(), "visible"}))
    {
        m_suya = m_servidor.espera_linea("HWND ", 5000).substr(5);
        ShowWindow(m_hwnd, SW_SHOW);
        SetForegroundWindow(m_hwnd);
        bombea_hasta([&] { return GetForegroundWindow() == m_hwnd; }, 5000);
    }
    ~call_delante() override { destruye_ventana(&m_hwnd); }

    static std::string delante() { return std::to_string(reinterpret_cast<uintptr_t>(GetForegroundWindow())); }
    std::string nuestra() const { return std::to_string(reinterpret_cast<uintptr_t>(m_hwnd)); }
    std::string suya() const { return m_suya; }
    std::string dice_delante() { return m_servidor.espera_linea("DELANTE ", 5000).substr(8); }

private:
    HWND m_hwnd;
    papel m_servidor;
    std::string m_suya;
};

// The tool runs on a thread beside: our window has to answer while the foreground changes.
static salida_de llama_bombeando(const std::vector<std::string> &args)
{
    salida_de s = {};
    std::atomic<bool> hecho{false};
    std::thread hilo([&] {
        s = ejecuta_ctl(args);
        hecho = true;
    });
    bombea_hasta([&] { return hecho.load(); }, CTL_PLAZO_MS);
    hilo.join();
    return s;
}

TEST_F(call_delante, sin_opciones_se_queda_con_front_lo_trae_y_con_back_lo_devuelve)
{
    std::string id = std::to_string(DELANTE);
    EXPECT_EQ(llama_bombeando({"call", servicio(), id}).codigo, 0u);
    EXPECT_EQ(dice_delante(), nuestra());
    EXPECT_EQ(llama_bombeando({"call", servicio(), id, "--front", "--back"}).codigo, 0u);
    EXPECT_EQ(dice_delante(), suya());
    EXPECT_EQ(delante(), nuestra());
    EXPECT_EQ(llama_bombeando({"call", servicio(), id, "--front"}).codigo, 0u);
    EXPECT_EQ(dice_delante(), suya());
    EXPECT_EQ(delante(), suya());
}
