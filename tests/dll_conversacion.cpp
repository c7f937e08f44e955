// One command after another between real processes: data, texts and results, byte by byte, for each kind of server.
#include <tuple>

#include "dll_conversa.h"

// ---- Servers and clients in both languages, clients with and without a window

class cuatro_clientes : public ::testing::TestWithParam<std::tuple<const char *, bool>> {
    void SetUp() override { vacia_registro(); }
};

static std::wstring texto_muestra(uint32_t n, int cual)
{
    wchar_t textos[3][256];
    anfitrion_textos_muestra(n, textos[0], textos[1], textos[2]);
    return textos[cual];
}

// The eco of sample n as the server and the client tell it.
static void comprueba_eco(papel &servidor, papel &cliente, uint32_t n)
{
    std::wstring t1 = texto_muestra(n, 0), t2 = texto_muestra(n, 1), t3 = texto_muestra(n, 2);
    ASSERT_EQ(t1.size(), 63u);
    ASSERT_EQ(t2.size(), 255u);
    ASSERT_EQ(t3.size(), 255u);
    cliente.di("ECO " + std::to_string(n));
    EXPECT_EQ(servidor.espera_linea("ENTRADA ", 10000), "ENTRADA " + muestra_descrita(n));
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), linea_textos(t1, t2, t3));

    // Blocks are numbered from 100 up by both sides: the input, then the output.
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 10000),
              "RESULTADO 1|" + std::to_string(100 + 2 * n) + "|" + std::to_string(101 + 2 * n));
    EXPECT_EQ(cliente.espera_linea("TEXTOS ", 5000), linea_textos(del_reves(t1), del_reves(t2), del_reves(t3)));
    EXPECT_EQ(cliente.espera_linea("SALIDA ", 5000), "SALIDA " + muestra_descrita(n));
}

static std::string hwnd_de(papel &p)
{
    return p.espera_linea("HWND ", 5000).substr(5);
}

TEST_P(cuatro_clientes, mandan_por_turno_cada_tipo_y_tres_textos_y_los_reciben_iguales)
{
    auto [clase, en_c] = GetParam();
    std::string servicio = nombre_unico("eco");
    papel servidor = arranca_servidor(clase, servicio, en_c);
    std::vector<papel> clientes;
    for (bool cliente_en_c : {false, true})
        for (const char *clase_cliente : {"ventana", "sin_ventana"})
            clientes.push_back(arranca_cliente(clase_cliente, servicio, cliente_en_c));
    for (papel &cliente : clientes)
        if (std::string(clase) == "sin_ventana")
            espera_latido(ruta_de(cliente));

    std::string hwnd_servidor = hwnd_de(servidor);
    for (uint32_t n = 0; n < 4; n++) {
        SCOPED_TRACE("client " + std::to_string(n));
        comprueba_eco(servidor, clientes[n], n);
        std::string hwnd_cliente = hwnd_de(clientes[n]);
        EXPECT_EQ(hwnd_cliente == "0", n % 2 == 1);
        if (std::string(clase) != "net") {
            EXPECT_EQ(servidor.espera_linea("CONTEXTO ", 5000), "CONTEXTO " + hwnd_cliente + "|" + hwnd_servidor);
        }
    }
    for (papel &cliente : clientes)
        cliente.di("ACABA");
    for (papel &cliente : clientes)
        EXPECT_EQ(cliente.espera_fin(15000), 0u);
    acaba(servidor);
}

INSTANTIATE_TEST_SUITE_P(servidor, cuatro_clientes,
                         ::testing::Combine(::testing::ValuesIn(CLASES_SERVIDOR), ::testing::Bool()),
                         [](const auto &dato) {
                             return std::string(std::get<0>(dato.param)) +
                                    (std::get<1>(dato.param) ? "_en_c" : "_en_cpp");
                         });

// ---- Texts

class textos : public con_cada_servidor {};
CON_CADA_SERVIDOR(textos);

// The same length in each place: `n` characters, all different.
static std::wstring de_largo(size_t n)
{
    std::wstring texto;
    for (size_t i = 0; i < n; i++)
        texto += static_cast<wchar_t>(0x4e00 + i);
    return texto;
}

TEST_P(textos, se_cortan_a_63_255_y_255_y_los_nulos_llegan_vacios_en_las_dos_direcciones)
{
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    std::wstring de_64 = de_largo(64), de_256 = de_largo(256), de_300 = de_largo(300);

    respuesta r = ejecuta(servicio, 104, 0, de_64.c_str(), de_256.c_str(), de_300.c_str());
    EXPECT_EQ(servidor.espera_linea("LARGOS ", 5000), "LARGOS 63|255|255");
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.t1, de_largo(63));
    EXPECT_EQ(r.t2, de_largo(255));
    EXPECT_EQ(r.t3, de_largo(255));

    r = ejecuta(servicio, 100, 0, de_64.c_str(), de_256.c_str(), de_300.c_str());
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), linea_textos(de_largo(63), de_largo(255), de_largo(255)));
    EXPECT_EQ(r.t1, del_reves(de_largo(63)));
    EXPECT_EQ(r.t2, del_reves(de_largo(255)));
    EXPECT_EQ(r.t3, del_reves(de_largo(255)));

    r = ejecuta(servicio, 105, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), linea_textos(L"", L"", L""));
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.id_salida, 0u);
    EXPECT_EQ(r.t1 + L"|" + r.t2 + L"|" + r.t3, L"||");
}

TEST_P(textos, y_datos_que_un_comando_no_contesta_son_los_del_anterior)
{
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);

    respuesta r = ejecuta(servicio, 102);
    EXPECT_EQ(servidor.espera_linea("NADA ", 5000), "NADA 0");
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.id_salida, 0u);
    EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");

    entrada_muestra entrada(servicio, 1);
    EXPECT_EQ(entrada.id(), 100u);
    EXPECT_EQ(ivrexa_ejecuta_comando(servicio.c_str(), 100, 0, entrada.id(), L"abc", L"de", nullptr, nullptr, nullptr,
                                     nullptr, nullptr),
              1u);
    EXPECT_EQ(servidor.espera_linea("ENTRADA ", 5000), "ENTRADA " + muestra_descrita(1));
    r = ejecuta(servicio, 102);
    EXPECT_EQ(servidor.espera_linea("NADA ", 5000), "NADA 0");
    EXPECT_EQ(r.id_salida, 101u);
    EXPECT_EQ(r.t1 + L"|" + r.t2 + L"|" + r.t3, L"cba|ed|");
}

// ---- Results

class resultados : public con_cada_servidor {};
CON_CADA_SERVIDOR(resultados);

TEST_P(resultados, otro_que_1_llega_tal_cual_sin_textos_ni_datos)
{
    struct caso {
        const wchar_t *escrito;
        uint32_t resultado;
    };
    static const caso CASOS[] = {{L"0", 0}, {L"2", 2}, {L"3", 3}, {L"7", 7}, {L"-5", 0xfffffffb}};
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    for (const caso &c : CASOS) {
        SCOPED_TRACE(c.resultado);
        respuesta r = ejecuta(servicio, 101, 0, c.escrito);
        EXPECT_EQ(r.resultado, c.resultado);
        EXPECT_EQ(r.id_salida, 0xaaaaaaaau);
        EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");
    }
    respuesta r = ejecuta(servicio, 101, 0, L"1");
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.id_salida, 105u);
    EXPECT_EQ(r.t1 + L"|" + r.t2 + L"|" + r.t3, L"con|resultado|1");
}

// ---- Output data

class salida : public con_cada_servidor {};
using salida_leida = conversacion;
CON_CADA_SERVIDOR(salida);

TEST_P(salida, esta_hasta_el_comando_siguiente_o_el_cierre_y_despues_ya_no)
{
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    ASSERT_EQ(ejecuta(servicio, 101, 0, L"1").id_salida, 100u);
    EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 100).c_str()));

    EXPECT_EQ(ejecuta(servicio, 102).resultado, 1u);
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, 100).c_str()));
    EXPECT_EQ(ivrexa_lee_datos(servicio.c_str(), 100, FALSO), nullptr);
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");

    ASSERT_EQ(ejecuta(servicio, 101, 0, L"1").id_salida, 101u);
    EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 101).c_str()));
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, 101).c_str()));
}

// Who opens an existing block keeps a handle of it for good.
TEST_F(salida_leida, se_lee_cuantas_veces_se_quiera_y_vive_en_quien_la_leyo)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    registra(servicio);
    ASSERT_EQ(ejecuta(servicio, 101, 0, L"1").id_salida, 100u);
    comdat *primera = ivrexa_lee_datos(servicio.c_str(), 100, FALSO);
    comdat *segunda = ivrexa_lee_datos(servicio.c_str(), 100, FALSO);
    ASSERT_TRUE(primera != nullptr && segunda != nullptr && primera != segunda);

    EXPECT_EQ(ejecuta(servicio, 102).resultado, 1u);
    EXPECT_EQ(describe(primera), "1;1:b=09");
    EXPECT_EQ(describe(segunda), "1;1:b=09");
    ivrexa_destruye_datos_comando(primera);
    ivrexa_destruye_datos_comando(segunda);
    comdat *tercera = ivrexa_lee_datos(servicio.c_str(), 100, FALSO);
    ASSERT_NE(tercera, nullptr);
    EXPECT_EQ(describe(tercera), "1;1:b=09");
    ivrexa_destruye_datos_comando(tercera);
}

// ---- The bytes between the two sides

using bytes_en_bloques = conversacion;

TEST_F(bytes_en_bloques, entrada_y_salida_son_el_formato_byte_a_byte)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    registra(servicio);
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    ivrexa_graba_byte(entrada, "a", 7);
    ivrexa_graba_ushort(entrada, "", 0x1234);
    ivrexa_graba_ulong(entrada, "l", 0x89abcdef);
    ivrexa_graba_double(entrada, "d", 1.0);
    ivrexa_graba_buffer(entrada, "x", "\x00\xff", 2);
    ivrexa_graba_cadena_ansi(entrada, "s", "ab");
    ivrexa_graba_hwnd(entrada, "h", reinterpret_cast<ivrexa_hwnd>(0x0102030405060708));
    const char *const palabras[] = {"p", ""};
    ivrexa_graba_arr_cadenas_ansi(entrada, "r", palabras, 2);
    ivrexa_graba_cadena_unicode(entrada, "w", L"\x20ac");
    ASSERT_EQ(ivrexa_guarda_datos(entrada), 100u);
    ASSERT_EQ(ejecuta(servicio, 100, 100).id_salida, 101u);

    std::vector<uint8_t> esperados = de_hex("09000000"
                                            "01 02 6100 07"
                                            "02 01 00 3412"
                                            "03 02 6c00 efcdab89"
                                            "04 02 6400 000000000000f03f"
                                            "05 02 7800 02000000 00ff"
                                            "06 02 7300 03000000 616200"
                                            "08 02 6800 0807060504030201"
                                            // elements at 83 and 89
                                            "09 02 7200 02000000 53000000 59000000"
                                            "02000000 7000 01000000 00"
                                            "07 02 7700 04000000 ac200000");
    for (uint32_t id : {100u, 101u}) {
        SCOPED_TRACE(id);
        bloque_crudo bloque(nombre_datos(servicio, id).c_str());
        ASSERT_TRUE(bloque.abierto());
        EXPECT_EQ(bloque.cabecera(), esperados.size());
        EXPECT_TRUE(bytes_iguales(esperados, bloque.bytes(0, esperados.size())));
    }
    ivrexa_destruye_datos_comando(entrada);
}

// An array of wide texts has no count before its table while readers expect one: what stands there is taken for it.
TEST_F(bytes_en_bloques, matriz_de_textos_anchos_va_sin_su_cuenta_y_no_se_lee)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    registra(servicio);
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    const wchar_t *const palabras[] = {L"p", nullptr};
    ivrexa_graba_byte(entrada, "b", 1);
    ivrexa_graba_arr_cadenas_unicode(entrada, "r", palabras, 2);
    ivrexa_graba_byte(entrada, "z", 2);
    ASSERT_EQ(ivrexa_guarda_datos(entrada), 100u);
    std::vector<uint8_t> esperados = de_hex("03000000"
                                            "01 02 6200 01"
                                            "0a 02 7200 15000000 1d000000"
                                            "04000000 70000000 00000000"
                                            "01 02 7a00 02");
    bloque_crudo bloque(nombre_datos(servicio, 100).c_str());
    EXPECT_EQ(bloque.cabecera(), esperados.size());
    EXPECT_TRUE(bytes_iguales(esperados, bloque.bytes(0, esperados.size())));

    EXPECT_EQ(ejecuta(servicio, 102, 100).resultado, 1u);
    EXPECT_EQ(servidor.espera_linea("NADA ", 5000), "NADA 1");
    EXPECT_INFORME_DE(servidor, "iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
    EXPECT_EQ(servidor.num_informes(), 0u);
    ivrexa_destruye_datos_comando(entrada);
}

// The server has a copy of its own while the command runs, and keeps a handle of each block that it opened.
TEST_F(bytes_en_bloques, de_la_entrada_viven_hasta_que_acaban_cliente_y_servidor)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    registra(servicio);
    for (uint32_t n = 0; n < 2; n++) {
        entrada_muestra entrada(servicio, n);
        EXPECT_EQ(ejecuta(servicio, 100, entrada.id()).resultado, 1u);
        EXPECT_EQ(servidor.espera_linea("ENTRADA ", 5000), "ENTRADA " + muestra_descrita(n));
    }
    entrada_muestra sin_mandar(servicio, 0);
    EXPECT_EQ(sin_mandar.id(), 104u);
    for (uint32_t id : {100u, 102u, 104u})
        EXPECT_TRUE(existe_bloque(nombre_datos(servicio, id).c_str())) << id;
    acaba(servidor);
    for (uint32_t id : {100u, 102u})
        EXPECT_FALSE(existe_bloque(nombre_datos(servicio, id).c_str())) << id;
    EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 104).c_str()));
}

// ---- Many in a row

class seguidos : public con_cada_servidor {};
CON_CADA_SERVIDOR(seguidos);

TEST_P(seguidos, cincuenta_con_ventana_y_tres_sin_ella_vuelven_todos)
{
    const uint32_t num = clase == "sin_ventana" ? 3 : 50;
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    for (uint32_t n = 0; n < num; n++) {
        entrada_muestra entrada(servicio, n % 6);
        ASSERT_EQ(entrada.id(), 100 + 2 * n);
        std::wstring texto = L"comando " + std::to_wstring(n);
        respuesta r = ejecuta(servicio, 100, entrada.id(), texto.c_str());
        ASSERT_EQ(r.resultado, 1u);
        ASSERT_EQ(r.id_salida, 101 + 2 * n);
        ASSERT_EQ(r.t1, del_reves(texto));
        comdat *datos = ivrexa_lee_datos(servicio.c_str(), r.id_salida, FALSO);
        ASSERT_NE(datos, nullptr);
        EXPECT_EQ(describe(datos), muestra_descrita(n % 6));
        ivrexa_destruye_datos_comando(datos);
    }
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u32(4), 0u) << "command state";
    EXPECT_EQ(canal.u32(1198), 0u) << "ocupacion";
    EXPECT_EQ(canal.u32(1202), 0u) << "id_comando";
    EXPECT_EQ(canal.u32(1206), 0u) << "input block";
    EXPECT_TRUE(mutex_crudo(("Mutex_Ivrexa_" + servicio).c_str()).libre() || clase == "sin_ventana");
}

// ---- Asking for the command from inside it, and from outside

class consulta : public con_cada_servidor {};
CON_CADA_SERVIDOR(consulta);

TEST_P(consulta, solo_el_comando_en_curso_da_y_recibe)
{
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    entrada_muestra entrada(servicio, 0);
    respuesta r = ejecuta(servicio, 106, entrada.id(), L"uno", L"dos", L"tres");

    EXPECT_EQ(servidor.espera_linea("CONSULTA ", 5000), "CONSULTA 0 0 0 0 4321");
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), linea_textos(L"-", L"-", L"-"));
    // In a command function the input has been taken already; a _net server takes it by this very id.
    EXPECT_EQ(servidor.espera_linea("CONSULTA ", 5000), clase == "net" ? "CONSULTA 1 1 100" : "CONSULTA 1 1 0");
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), linea_textos(L"-", L"dos", L"-"));
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");

    for (const char *linea : {"FUERA 106", "FUERA 0"}) {
        servidor.di(linea);
        EXPECT_EQ(servidor.espera_linea("FUERA ", 5000), "FUERA 0 0 1") << linea;
    }
    EXPECT_EQ(bloque_crudo(nombre_canal(servicio).c_str()).texto_u(38, 64), L"");
}
