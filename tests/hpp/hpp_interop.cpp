// The layer on one side and the C functions on the other, in C and in C++: nobody can tell which it is.
// The blocks are the same bytes, and the channels carry the same texts.
#include "hpp_apoyo.h"

#include "comun/hilo.h"

using ivrexa::answer;
using ivrexa::client;
using ivrexa::outcome;
using ivrexa::writer;

// The values of anfitrion_graba_muestra, as a host of the layer writes them.
static void escribe_muestra(writer &w, uint32_t n)
{
    w.add("b", static_cast<uint8_t>(250 + n)).add("u", static_cast<uint16_t>(0xfe00 + n)).add("l", 0xfedcba00u + n);
    w.add("d", -1.5 - n);
    w.add("h", reinterpret_cast<ivrexa_hwnd>(static_cast<uintptr_t>(0x1122334455667700ull + n)));
    w.add("bytes", ivrexa::bytes{0, 1, 0x7f, 0x80, 0xff, 0}).add("vacio", ivrexa::bytes_view());
    w.add("ansi", "a\xf1o %|").add("ansi", "").add_null_text("");
    w.add("arr", std::vector<std::string>{"uno", "", "tres\xf1"}).add("arr0", std::vector<std::string>());
    w.add(std::string(254, 'n'), uint8_t{0}).add_null_wide_text("w0").add("w1", L"");
    w.add("w", std::wstring{0x41, 0xf1, 0x20ac, 0xd83d, 0xde00, 0x7c});
}

static std::wstring texto_de(uint32_t n, int cual)
{
    wchar_t textos[3][256];
    anfitrion_textos_muestra(n, textos[0], textos[1], textos[2]);
    return textos[cual];
}

static ivrexa::texts textos_de(uint32_t n)
{
    return {texto_de(n, 0), texto_de(n, 1), texto_de(n, 2)};
}

static std::vector<uint8_t> bytes_del_bloque(const std::string &servicio, uint32_t id)
{
    bloque_crudo bloque(nombre_datos(servicio, id).c_str());
    EXPECT_TRUE(bloque.abierto()) << id;
    return bloque.abierto() ? bloque.bytes(0, bloque.cabecera()) : std::vector<uint8_t>();
}

// What the C functions store for sample n.
static std::vector<uint8_t> bytes_de_muestra(const std::string &servicio, uint32_t n)
{
    comdat *datos = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    anfitrion_graba_muestra(datos, n);
    std::vector<uint8_t> bytes = bytes_del_bloque(servicio, ivrexa_guarda_datos(datos));
    ivrexa_destruye_datos_comando(datos);
    return bytes;
}

class hpp_interop : public con_sesion, public ::testing::WithParamInterface<std::tuple<const char *, bool>> {
protected:
    const std::string clase = std::get<0>(GetParam());
    const bool en_c = std::get<1>(GetParam());
};
INSTANTIATE_TEST_SUITE_P(servidor, hpp_interop,
                         ::testing::Combine(::testing::Values("ventana", "sin_ventana", "net"), ::testing::Bool()),
                         [](const auto &dato) {
                             return std::string(std::get<0>(dato.param)) +
                                    (std::get<1>(dato.param) ? "_en_c" : "_en_cpp");
                         });

TEST_P(hpp_interop, un_cliente_de_la_capa_con_un_servidor_de_las_funciones_c)
{
    papel servidor = arranca_servidor(clase, servicio, en_c);
    client c(sesion(), servicio);
    if (clase != "sin_ventana")
        c.server_has_window();
    for (uint32_t n = 0; n < 2; n++) {
        ivrexa::request r = c.request(100);
        escribe_muestra(r.input(), n);
        answer a = c.execute(r.text(textos_de(n)));
        EXPECT_EQ(servidor.espera_linea("ENTRADA ", PLAZO_MS), "ENTRADA " + muestra_descrita(n));
        EXPECT_EQ(servidor.espera_linea("TEXTOS ", PLAZO_MS),
                  linea_textos(texto_de(n, 0), texto_de(n, 1), texto_de(n, 2)));
        ASSERT_EQ(a.what, outcome::ok);
        EXPECT_EQ(a.texts.first, del_reves(texto_de(n, 0)));
        EXPECT_EQ(a.texts.second, del_reves(texto_de(n, 1)));
        EXPECT_EQ(a.texts.third, del_reves(texto_de(n, 2)));
        EXPECT_EQ(a.data.size(), 16u);
        EXPECT_EQ(a.data.get<uint8_t>("b"), 250 + n);
        EXPECT_EQ(a.data.get<ivrexa::bytes>("bytes"), (ivrexa::bytes{0, 1, 0x7f, 0x80, 0xff, 0}));
        EXPECT_EQ(a.data.get<std::wstring>("w"), (std::wstring{0x41, 0xf1, 0x20ac, 0xd83d, 0xde00, 0x7c}));
        EXPECT_TRUE(a.data.is_null(9));

        // The blocks still stand: the server keeps its output, and what was opened stays open.
        uint32_t id = 100 + 2 * n;
        std::vector<uint8_t> entrada = bytes_del_bloque(servicio, id), salida = bytes_del_bloque(servicio, id + 1);
        EXPECT_TRUE(bytes_iguales(salida, entrada));
        EXPECT_EQ(entrada.size(), salida.size());
    }
    EXPECT_TRUE(bytes_iguales(bytes_de_muestra(servicio, 0), bytes_del_bloque(servicio, 100)));
    acaba(servidor);
}

class hpp_interop_servidor : public con_cada_capa {};
CON_CADA_CAPA(hpp_interop_servidor);

TEST_P(hpp_interop_servidor, de_la_capa_con_clientes_de_las_funciones_c)
{
    papel servidor = arranca_capa(clase, servicio);
    uint32_t n = 0;
    for (bool en_c : {false, true}) {
        papel otro = arranca_cliente(n == 0 ? "ventana" : "sin_ventana", servicio, en_c);
        if (clase == "sin_ventana")
            espera_latido(ruta_de(otro));
        otro.di("ECO " + std::to_string(n));
        EXPECT_EQ(otro.espera_linea("RESULTADO ", PLAZO_MS),
                  "RESULTADO 1|" + std::to_string(100 + 2 * n) + "|" + std::to_string(101 + 2 * n));
        EXPECT_EQ(otro.espera_linea("TEXTOS ", PLAZO_MS),
                  linea_textos(del_reves(texto_de(n, 0)), del_reves(texto_de(n, 1)), del_reves(texto_de(n, 2))));
        EXPECT_EQ(otro.espera_linea("SALIDA ", PLAZO_MS), "SALIDA " + muestra_descrita(n));
        EXPECT_TRUE(bytes_iguales(bytes_del_bloque(servicio, 100 + 2 * n), bytes_del_bloque(servicio, 101 + 2 * n)));

        // A result without output, and one of its own.
        otro.di("COMANDO 102");
        EXPECT_EQ(otro.espera_linea("RESULTADO ", PLAZO_MS), "RESULTADO 1");
        otro.di("COMANDO 105");
        EXPECT_EQ(otro.espera_linea("RESULTADO ", PLAZO_MS), "RESULTADO 3");
        acaba(otro);
        n++;
    }
    acaba(servidor);
}

// Layer on both sides: the same blocks once more.
TEST_P(hpp_interop_servidor, de_la_capa_con_cliente_de_la_capa_guarda_los_mismos_bytes)
{
    papel servidor = arranca_capa(clase, servicio);
    client c = cliente();
    ivrexa::request r = c.request(capa_ECO);
    escribe_muestra(r.input(), 3);
    ASSERT_EQ(c.execute(r.text(textos_de(3))).what, outcome::ok);
    std::vector<uint8_t> esperados = bytes_de_muestra(servicio, 3);
    EXPECT_TRUE(bytes_iguales(esperados, bytes_del_bloque(servicio, 100)));
    EXPECT_TRUE(bytes_iguales(esperados, bytes_del_bloque(servicio, 101)));
    // The texts as they stand in the channel.
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.texto_u(1210, 64), texto_de(3, 0));
    EXPECT_EQ(canal.texto_u(1338, 256), texto_de(3, 1));
    EXPECT_EQ(canal.texto_u(1850, 256), texto_de(3, 2));
    EXPECT_EQ(canal.texto_u(38, 64), del_reves(texto_de(3, 0)));
}
