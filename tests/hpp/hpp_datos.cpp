// Command data: what is written comes back, by name and by position; what the C functions would cut, drop or show a box
// for is refused.
#include "hpp_apoyo.h"

#include <limits>

using ivrexa::bytes;
using ivrexa::bytes_view;
using ivrexa::reader;
using ivrexa::writer;

// A service of this process gives the numbers of the blocks.
class con_canal : public con_sesion {
protected:
    void SetUp() override
    {
        con_sesion::SetUp();
        m_hwnd = crea_ventana();
        m_sesion.emplace("hpp_datos", hwnd_capa(m_hwnd));
        m_sesion->offer(servicio, [](ivrexa::command &) { return ivrexa::result::ok; });
        m_sesion->publish();
    }
    void TearDown() override
    {
        m_sesion.reset();
        destruye_ventana(&m_hwnd);
    }

    writer entrada() const { return writer::input(servicio); }
    ivrexa::client cliente_mio(const std::string &de) { return ivrexa::client(*m_sesion, de); }
    void ofrece(const std::string &otro)
    {
        m_sesion->offer(otro, [](ivrexa::command &) { return ivrexa::result::ok; });
        m_sesion->publish();
    }

private:
    HWND m_hwnd = nullptr;
    std::optional<ivrexa::session> m_sesion;
};

using hpp_escribe = con_canal;
using hpp_lee = con_canal;
using hpp_rechaza = con_canal;

static const ivrexa_hwnd VENTANA = reinterpret_cast<ivrexa_hwnd>(0x1122334455667788);

static writer de_todo(const std::string &servicio)
{
    writer w = writer::input(servicio);
    w.add("byte", uint8_t{255}).add("ushort", uint16_t{0xfedc}).add("ulong", uint32_t{0xfedcba98});
    w.add("dword", static_cast<unsigned long>(0x89abcdef)).add("double", -1.5).add("hwnd", VENTANA);
    w.add("bytes", bytes{0, 1, 0xff}).add("nada", bytes()).add("vista", bytes_view());
    w.add("string", std::string("a\xf1o")).add("view", std::string_view("ojo", 2)).add("char", "c").add("vacio", "");
    w.add_null_text("falta");
    w.add("wstring", std::wstring(L"\x20ac")).add("wview", std::wstring_view(L"ojo", 2)).add("wchar", L"w");
    w.add("wvacio", L"").add_null_wide_text("wfalta");
    w.add("matriz", std::vector<std::string>{"uno", "", "tres"}).add("matriz0", std::vector<std::string>());
    return w;
}

TEST_F(hpp_lee, cada_tipo_vuelve_por_su_nombre)
{
    writer w = de_todo(servicio);
    EXPECT_EQ(w.size(), 21u);
    reader r = reader::open_input(servicio, w.store());
    EXPECT_EQ(r.size(), 21u);
    EXPECT_FALSE(r.empty());
    EXPECT_EQ(r.get<uint8_t>("byte"), 255);
    EXPECT_EQ(r.get<uint16_t>("ushort"), 0xfedc);
    EXPECT_EQ(r.get<uint32_t>("ulong"), 0xfedcba98);
    EXPECT_EQ(r.get<uint32_t>("dword"), 0x89abcdef);
    EXPECT_EQ(r.get<unsigned long>("dword"), 0x89abcdefu);
    EXPECT_EQ(r.get<double>("double"), -1.5);
    EXPECT_EQ(r.get<ivrexa_hwnd>("hwnd"), VENTANA);
    EXPECT_EQ(r.get<bytes>("bytes"), (bytes{0, 1, 0xff}));
    EXPECT_EQ(r.get<bytes_view>("bytes").size(), 3u);
    EXPECT_EQ(r.get<bytes_view>("bytes")[2], 0xff);
    EXPECT_EQ(r.get<bytes>("nada"), bytes());
    EXPECT_TRUE(r.get<bytes_view>("vista").empty());
    EXPECT_EQ(r.get<std::string>("string"), "a\xf1o");
    EXPECT_EQ(r.get<std::string_view>("string"), "a\xf1o");
    EXPECT_EQ(r.get<std::string>("view"), "oj");
    EXPECT_EQ(r.get<std::string>("char"), "c");
    EXPECT_EQ(r.get<std::wstring>("wstring"), L"\x20ac");
    EXPECT_EQ(r.get<std::wstring>("wview"), L"oj");
    EXPECT_EQ(r.get<std::wstring>("wchar"), L"w");
    EXPECT_EQ(r.get<std::vector<std::string>>("matriz"), (std::vector<std::string>{"uno", "", "tres"}));
    EXPECT_EQ(r.get<std::vector<std::string>>("matriz0"), std::vector<std::string>());
}

TEST_F(hpp_lee, cada_valor_esta_en_su_sitio_con_su_nombre_y_su_tipo)
{
    static const struct {
        const char *nombre;
        tipoDato tipo;
    } ESPERADOS[] = {
        {"byte", ivrexa_tipoDato_byte},
        {"ushort", ivrexa_tipoDato_ushort},
        {"ulong", ivrexa_tipoDato_ulong},
        {"dword", ivrexa_tipoDato_ulong},
        {"double", ivrexa_tipoDato_double},
        {"hwnd", ivrexa_tipoDato_hwnd},
        {"bytes", ivrexa_tipoDato_buffer},
        {"nada", ivrexa_tipoDato_buffer},
        {"vista", ivrexa_tipoDato_buffer},
        {"string", ivrexa_tipoDato_cadena_ansi},
        {"view", ivrexa_tipoDato_cadena_ansi},
        {"char", ivrexa_tipoDato_cadena_ansi},
        {"vacio", ivrexa_tipoDato_cadena_ansi},
        {"falta", ivrexa_tipoDato_cadena_ansi},
        {"wstring", ivrexa_tipoDato_cadena_unicode},
        {"wview", ivrexa_tipoDato_cadena_unicode},
        {"wchar", ivrexa_tipoDato_cadena_unicode},
        {"wvacio", ivrexa_tipoDato_cadena_unicode},
        {"wfalta", ivrexa_tipoDato_cadena_unicode},
        {"matriz", ivrexa_tipoDato_arr_cadenas_ansi},
        {"matriz0", ivrexa_tipoDato_arr_cadenas_ansi},
    };
    writer w = de_todo(servicio);
    reader r = reader::open_input(servicio, w.store());
    ASSERT_EQ(r.size(), std::size(ESPERADOS));
    for (size_t i = 0; i < r.size(); i++) {
        EXPECT_EQ(r.name(i), ESPERADOS[i].nombre);
        EXPECT_EQ(r.type(i), ESPERADOS[i].tipo) << r.name(i);
        EXPECT_EQ(r.position(r.name(i)), i);
        EXPECT_TRUE(r.contains(r.name(i)));
        EXPECT_EQ(r.is_null(i), r.name(i) == "falta" || r.name(i) == "wfalta") << r.name(i);
    }
    EXPECT_EQ(r.get<uint8_t>(0), 255);
    EXPECT_EQ(r.get<double>(4), -1.5);
    EXPECT_EQ(r.get<std::string>(11), "c");
}

TEST_F(hpp_lee, un_texto_que_falta_esta_vacio_y_como_opcional_no_esta)
{
    writer w = de_todo(servicio);
    reader r = reader::open_input(servicio, w.store());
    EXPECT_EQ(r.get<std::string>("falta"), "");
    EXPECT_EQ(r.get<std::string_view>("falta"), "");
    EXPECT_EQ(r.get<std::optional<std::string>>("falta"), std::nullopt);
    EXPECT_EQ(r.get<std::optional<std::string>>("vacio"), "");
    EXPECT_EQ(r.get<std::optional<std::string>>("char"), "c");
    EXPECT_EQ(r.get<std::wstring>("wfalta"), L"");
    EXPECT_EQ(r.get<std::optional<std::wstring>>("wfalta"), std::nullopt);
    EXPECT_EQ(r.get<std::optional<std::wstring>>("wvacio"), L"");
    EXPECT_EQ(r.get<std::optional<std::wstring>>("wchar"), L"w");
}

// The C functions check numbers against the place where the last text was read, and show a box.
TEST_F(hpp_lee, el_orden_en_que_se_pregunta_no_importa)
{
    writer w = de_todo(servicio);
    reader r = reader::open_input(servicio, w.store());
    for (int vuelta = 0; vuelta < 2; vuelta++) {
        EXPECT_EQ(r.get<std::vector<std::string>>("matriz").size(), 3u);
        EXPECT_EQ(r.get<std::wstring>("wchar"), L"w");
        EXPECT_EQ(r.get<ivrexa_hwnd>("hwnd"), VENTANA);
        EXPECT_EQ(r.get<double>("double"), -1.5);
        EXPECT_EQ(r.get<uint8_t>("byte"), 255);
    }
    EXPECT_SIN_INFORMES();
}

TEST_F(hpp_lee, las_vistas_son_los_bytes_del_lector_y_no_copias)
{
    writer w = entrada();
    w.add("b", bytes{1, 2, 3}).add("t", "texto");
    reader r = reader::open_input(servicio, w.store());
    EXPECT_EQ(r.get<bytes_view>("b").data(), r.get<bytes_view>("b").data());
    std::string_view antes = r.get<std::string_view>("t");
    reader movido = std::move(r);
    EXPECT_EQ(movido.get<std::string_view>("t").data(), antes.data());
    EXPECT_EQ(antes, "texto");
}

TEST_F(hpp_lee, los_textos_anchos_se_leen_en_direcciones_pares_e_impares)
{
    writer w = entrada();
    w.add("a", L"\x20ac par o impar").add("bc", L"").add("d", L"\xd83d\xde00");
    reader r = reader::open_input(servicio, w.store());
    EXPECT_EQ(r.get<std::wstring>("a"), L"\x20ac par o impar");
    EXPECT_EQ(r.get<std::wstring>("d"), L"\xd83d\xde00");
    writer v = entrada();
    v.add("ab", L"\x20ac par o impar").add("bc", L"").add("d", L"\xd83d\xde00");
    reader s = reader::open_input(servicio, v.store());
    EXPECT_EQ(s.get<std::wstring>("ab"), L"\x20ac par o impar");
    EXPECT_EQ(s.get<std::wstring>("d"), L"\xd83d\xde00");
}

TEST_F(hpp_lee, de_un_nombre_repetido_se_lee_el_primero)
{
    writer w = entrada();
    w.add("otro", 1u).add("x", 2u).add("x", "tres").add("", 4u);
    EXPECT_EQ(w.size(), 4u);
    reader r = reader::open_input(servicio, w.store());
    EXPECT_EQ(r.position("x"), 1u);
    EXPECT_EQ(r.get<uint32_t>("x"), 2u);
    EXPECT_EQ(r.get<std::string>(2), "tres");
    EXPECT_EQ(r.get<uint32_t>(""), 4u);
}

TEST_F(hpp_lee, lo_que_no_hay_no_se_encuentra_y_pedirlo_se_rechaza)
{
    writer w = entrada();
    w.add("x", 2u);
    reader r = reader::open_input(servicio, w.store());
    EXPECT_FALSE(r.contains("y"));
    EXPECT_FALSE(r.contains("X"));
    EXPECT_EQ(r.position("y"), std::nullopt);
    EXPECT_EQ(r.find<uint32_t>("y"), std::nullopt);
    EXPECT_EQ(r.find<uint32_t>("x"), 2u);
    EXPECT_RECHAZO(no_value, r.get<uint32_t>("y"));
    EXPECT_RECHAZO(no_value, r.get<uint32_t>(std::string("y")));
    EXPECT_RECHAZO(no_value, r.get<uint32_t>(1));
    EXPECT_RECHAZO(no_value, r.get<uint32_t>(std::numeric_limits<size_t>::max()));
    EXPECT_RECHAZO(no_value, r.name(1));
    EXPECT_RECHAZO(no_value, r.type(1));
    EXPECT_RECHAZO(no_value, r.is_null(1));
    std::string texto;
    fallo_de([&] { r.get<uint32_t>("y"); }, &texto);
    EXPECT_NE(texto.find("\"y\""), std::string::npos) << texto;
}

// Each type, asked for as each other.
TEST_F(hpp_lee, otro_tipo_que_el_escrito_se_rechaza)
{
    writer w = de_todo(servicio);
    reader r = reader::open_input(servicio, w.store());
    size_t bien = 0;
    for (size_t i = 0; i < r.size(); i++) {
        size_t antes = bien;
        auto prueba = [&](auto cual) {
            using tipo = decltype(cual);
            std::string texto;
            std::optional<ivrexa::fault> fallo = fallo_de([&] { r.get<tipo>(i); }, &texto);
            bien += fallo == std::nullopt;
            if (fallo) {
                EXPECT_EQ(fallo, ivrexa::fault::wrong_type) << r.name(i);
                EXPECT_NE(texto.find(r.name(i)), std::string::npos) << texto;
            }
        };
        prueba(uint8_t());
        prueba(uint16_t());
        prueba(uint32_t());
        prueba(double());
        prueba(ivrexa_hwnd());
        prueba(bytes());
        prueba(std::string());
        prueba(std::wstring());
        prueba(std::vector<std::string>());
        EXPECT_EQ(bien, antes + 1) << r.name(i);
    }
    EXPECT_RECHAZO(wrong_type, r.get<bytes_view>("char"));
    EXPECT_RECHAZO(wrong_type, r.get<std::string_view>("bytes"));
    EXPECT_RECHAZO(wrong_type, r.get<std::optional<std::string>>("wfalta"));
    EXPECT_RECHAZO(wrong_type, r.get<std::optional<std::wstring>>("falta"));
    EXPECT_RECHAZO(wrong_type, r.find<double>("byte"));
}

// What the session's end took with it is not there any more, and nothing breaks.
TEST_F(hpp_lee, los_datos_acaban_con_la_sesion)
{
    writer w = entrada(), sin_guardar = entrada();
    w.add("x", 1u).add("t", "texto");
    sin_guardar.add("x", 1u);
    reader r = reader::open_input(servicio, w.store());
    TearDown();
    EXPECT_RECHAZO(usage, r.get<uint32_t>("x"));
    EXPECT_RECHAZO(usage, r.get<std::string_view>(1));
    EXPECT_RECHAZO(usage, r.name(0));
    EXPECT_RECHAZO(usage, r.find<uint32_t>("x"));
    EXPECT_RECHAZO(usage, sin_guardar.add("y", 1u));
    EXPECT_EQ(sin_guardar.size(), 0u);
    EXPECT_EQ(w.size(), 0u);
    r = reader();
    sin_guardar = writer::input(servicio);
    SetUp();
    writer otro = entrada();
    EXPECT_EQ(reader::open_input(servicio, otro.add("x", 2u).store()).get<uint32_t>("x"), 2u);
}

TEST_F(hpp_lee, sin_datos_no_hay_valores)
{
    reader ninguno;
    EXPECT_EQ(ninguno.size(), 0u);
    EXPECT_TRUE(ninguno.empty());
    EXPECT_FALSE(ninguno.contains(""));
    EXPECT_EQ(ninguno.find<uint8_t>("x"), std::nullopt);
    EXPECT_RECHAZO(no_value, ninguno.get<uint8_t>(size_t{0}));
    EXPECT_TRUE(reader::open_input(servicio, 0).empty());
    EXPECT_TRUE(reader::open_output(servicio, 0).empty());
    EXPECT_TRUE(reader::borrow(nullptr).empty());
}

TEST_F(hpp_lee, un_bloque_que_no_hay_se_rechaza)
{
    EXPECT_RECHAZO(no_block, reader::open_input(servicio, 4321));
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
    EXPECT_RECHAZO(service_name, reader::open_input("", 100));
    EXPECT_RECHAZO(service_name, reader::open_output(std::string(64, 'x'), 100));
}

TEST_F(hpp_lee, lo_prestado_sigue_siendo_de_su_duenyo)
{
    writer w = entrada();
    w.add("x", 7u);
    comdat *datos = ivrexa_lee_datos(servicio.c_str(), w.store(), CIERTO);
    ASSERT_NE(datos, nullptr);
    {
        reader r = reader::borrow(datos);
        EXPECT_EQ(r.get<uint32_t>("x"), 7u);
    }
    EXPECT_EQ(ivrexa_dame_ulong(datos, 0), 7u);
    ivrexa_destruye_datos_comando(datos);
}

// What does not keep to the format is reported as it is opened; what came before it is there.
TEST_F(hpp_lee, de_un_contenido_que_miente_se_lee_lo_que_va_delante)
{
    comdat *datos = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    const wchar_t *const palabras[] = {L"p", nullptr};
    ivrexa_graba_byte(datos, "b", 1);
    ivrexa_graba_arr_cadenas_unicode(datos, "r", palabras, 2);
    ivrexa_graba_byte(datos, "z", 2);
    uint32_t id = ivrexa_guarda_datos(datos);
    {
        reader r = reader::open_input(servicio, id);
        while (num_informes() != 0)
            EXPECT_EQ(toma_informe()->modulo, "iv_comdat");
        EXPECT_EQ(r.get<uint8_t>("b"), 1);
        EXPECT_FALSE(r.contains("z"));
    }
    ivrexa_destruye_datos_comando(datos);
}

// ---- Writing

TEST_F(hpp_escribe, un_escritor_vacio_no_es_ningun_bloque)
{
    writer w = entrada();
    EXPECT_EQ(w.size(), 0u);
    EXPECT_EQ(w.service(), servicio);
    EXPECT_EQ(w.store(), 0u);
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, 100).c_str()));
    w.add("x", 1u);
    EXPECT_EQ(w.store(), 100u);
    EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 100).c_str()));
}

TEST_F(hpp_escribe, el_bloque_vive_lo_que_el_escritor)
{
    {
        writer w = entrada();
        EXPECT_EQ(w.add("x", 1u).store(), 100u);
        writer movido = std::move(w);
        EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 100).c_str()));
        EXPECT_EQ(movido.size(), 1u);
    }
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, 100).c_str()));
}

TEST_F(hpp_escribe, entrada_y_salida_llevan_lo_mismo)
{
    writer e = writer::input(servicio), s = writer::output(servicio);
    uint32_t id_e = e.add("x", 1u).store(), id_s = s.add("x", 2u).store();
    EXPECT_EQ(reader::open_input(servicio, id_e).get<uint32_t>("x"), 1u);
    EXPECT_EQ(reader::open_output(servicio, id_s).get<uint32_t>("x"), 2u);
}

TEST_F(hpp_escribe, los_bytes_son_los_de_las_llamadas_c)
{
    writer w = entrada();
    w.add("a", uint8_t{7}).add("", uint16_t{0x1234}).add("l", uint32_t{0x89abcdef}).add("d", 1.0);
    w.add("x", bytes{0, 0xff}).add("s", "ab").add("h", reinterpret_cast<ivrexa_hwnd>(0x0102030405060708));
    w.add("r", std::vector<std::string>{"p", ""}).add("w", L"\x20ac");
    w.add("u", static_cast<unsigned long>(1)).add_null_text("n").add_null_wide_text("m");
    std::vector<uint8_t> esperados = de_hex("0c000000"
                                            "01 02 6100 07"
                                            "02 01 00 3412"
                                            "03 02 6c00 efcdab89"
                                            "04 02 6400 000000000000f03f"
                                            "05 02 7800 02000000 00ff"
                                            "06 02 7300 03000000 616200"
                                            "08 02 6800 0807060504030201"
                                            "09 02 7200 02000000 53000000 59000000"
                                            "02000000 7000 01000000 00"
                                            "07 02 7700 04000000 ac200000"
                                            "03 02 7500 01000000"
                                            "06 02 6e00 00000000"
                                            "07 02 6d00 00000000");
    bloque_crudo bloque(nombre_datos(servicio, w.store()).c_str());
    EXPECT_EQ(bloque.cabecera(), esperados.size());
    EXPECT_TRUE(bytes_iguales(esperados, bloque.bytes(0, esperados.size())));
}

TEST_F(hpp_escribe, get_da_el_contenedor_y_sigue_siendo_su_duenyo)
{
    writer w = entrada();
    w.add("x", 1u);
    ASSERT_NE(w.get(), nullptr);
    EXPECT_EQ(ivrexa_numero_valores(w.get()), 1u);
}

TEST_F(hpp_escribe, release_entrega_el_contenedor)
{
    writer w = entrada();
    w.add("x", 1u);
    comdat *datos = w.release();
    EXPECT_EQ(w.get(), nullptr);
    EXPECT_EQ(ivrexa_numero_valores(datos), 1u);
    ivrexa_destruye_datos_comando(datos);
}

// ---- Refusals

TEST_F(hpp_rechaza, nombres_de_servicio_vacios_de_64_con_barra_o_con_nulo)
{
    EXPECT_RECHAZO(service_name, writer::input(""));
    EXPECT_RECHAZO(service_name, writer::input(std::string(64, 'x')));
    EXPECT_RECHAZO(service_name, writer::output(std::string(256, 'x')));
    EXPECT_RECHAZO(service_name, writer::input("a\\b"));
    EXPECT_RECHAZO(service_name, writer::input(std::string("a\0b", 3)));
    EXPECT_EQ(writer::input(std::string(63, 'x')).service(), std::string(63, 'x'));
    EXPECT_EQ(writer::output("x").service(), "x");
}

TEST_F(hpp_rechaza, nombres_de_valor_de_255_y_con_nulo)
{
    writer w = entrada();
    EXPECT_RECHAZO(value_name, w.add(std::string(255, 'n'), 1u));
    EXPECT_RECHAZO(value_name, w.add(std::string(256, 'n'), "texto"));
    EXPECT_RECHAZO(value_name, w.add(std::string_view("a\0b", 3), 1.0));
    EXPECT_RECHAZO(value_name, w.add(std::string(255, 'n'), bytes{1}));
    EXPECT_RECHAZO(value_name, w.add(std::string(255, 'n'), L"texto"));
    EXPECT_RECHAZO(value_name, w.add(std::string(255, 'n'), std::vector<std::string>{"a"}));
    EXPECT_RECHAZO(value_name, w.add_null_text(std::string(255, 'n')));
    EXPECT_RECHAZO(value_name, w.add_null_wide_text(std::string(255, 'n')));
    EXPECT_EQ(w.size(), 0u);
    w.add(std::string(254, 'n'), 1u).add(std::string(253, 'm'), "dos").add(std::string(254, 'o'), L"tres");
    reader r = reader::open_input(servicio, w.store());
    EXPECT_EQ(r.get<uint32_t>(std::string(254, 'n')), 1u);
    EXPECT_EQ(r.get<std::string>(std::string(253, 'm')), "dos");
    EXPECT_EQ(r.get<std::wstring>(std::string(254, 'o')), L"tres");
}

TEST_F(hpp_rechaza, textos_con_un_nulo_dentro_y_dice_de_que_valor)
{
    writer w = entrada();
    EXPECT_RECHAZO(text, w.add("x", std::string("a\0b", 3)));
    EXPECT_RECHAZO(text, w.add("x", std::string_view("a\0", 2)));
    EXPECT_RECHAZO(text, w.add("x", std::wstring(L"a\0b", 3)));
    EXPECT_RECHAZO(text, w.add("x", std::wstring_view(L"\0", 1)));
    EXPECT_RECHAZO(text, w.add("x", std::vector<std::string>{"bien", std::string("a\0b", 3)}));
    EXPECT_EQ(w.size(), 0u);
    std::string texto;
    fallo_de([&] { w.add("cuyo", std::string("\0", 1)); }, &texto);
    EXPECT_NE(texto.find("\"cuyo\""), std::string::npos) << texto;
    w.add("x", std::string(70000, 'x'));
    EXPECT_EQ(reader::open_input(servicio, w.store()).get<std::string>("x"), std::string(70000, 'x'));
}

// The view is never looked into.
TEST_F(hpp_rechaza, contenidos_de_4_GiB)
{
    static const uint8_t byte = 0;
    writer w = entrada();
    w.add("x", 1u);
    std::string texto;
    for (uint64_t tam : {0xffffffffull, 0x100000000ull, 0x100000001ull, 0xffffffffffffffffull})
        EXPECT_EQ(fallo_de([&] { w.add("enorme", bytes_view(&byte, tam)); }, &texto), ivrexa::fault::content) << tam;
    EXPECT_NE(texto.find("\"enorme\""), std::string::npos) << texto;
    for (uint64_t tam : {0xffffffffull, 0x7fffffffffffffffull}) {
        EXPECT_RECHAZO(content, w.add("t", std::string_view("", tam)));
        EXPECT_RECHAZO(content, w.add("w", std::wstring_view(L"", tam)));
    }
    EXPECT_RECHAZO(content, w.add("w", std::wstring_view(L"", 0x80000000)));
    EXPECT_EQ(w.size(), 1u);
    EXPECT_EQ(reader::open_input(servicio, w.store()).size(), 1u);
}

TEST_F(hpp_rechaza, escribir_o_guardar_otra_vez_lo_que_ya_se_guardo)
{
    writer w = entrada();
    EXPECT_EQ(w.add("x", 1u).store(), 100u);
    EXPECT_RECHAZO(usage, w.add("y", 2u));
    EXPECT_RECHAZO(usage, w.add("y", "dos"));
    EXPECT_RECHAZO(usage, w.store());
    EXPECT_EQ(w.size(), 1u);
    EXPECT_EQ(reader::open_input(servicio, 100).size(), 1u);
}

// No box: there is no container any more.
TEST_F(hpp_rechaza, usar_un_escritor_que_se_movio_o_se_entrego)
{
    writer w = entrada();
    w.add("x", 1u);
    writer otro = std::move(w);
    EXPECT_RECHAZO(usage, w.add("y", 2u));
    EXPECT_RECHAZO(usage, w.add("y", "dos"));
    EXPECT_RECHAZO(usage, w.store());
    EXPECT_EQ(otro.add("y", 2u).size(), 2u);
    ivrexa_destruye_datos_comando(otro.release());
    EXPECT_RECHAZO(usage, otro.add("z", 3u));
    EXPECT_RECHAZO(usage, otro.store());
    EXPECT_SIN_INFORMES();
}

TEST_F(hpp_rechaza, guardar_para_un_servicio_que_nadie_ofrece)
{
    writer w = writer::input(nombre_unico("nadie"));
    w.add("x", 1u);
    EXPECT_RECHAZO(no_block, w.store());
    EXPECT_SIN_INFORMES();
}

// A client holds the channel, but no server has given the blocks their first number.
TEST_F(hpp_rechaza, guardar_para_un_servicio_que_solo_se_usa_y_cuando_se_ofrece_se_guarda)
{
    std::string usado = servicio + "_usado", texto;
    ivrexa::client c = cliente_mio(usado);
    writer w = writer::input(usado);
    w.add("x", 1u);
    for (int vez = 0; vez < 2; vez++) {
        EXPECT_EQ(fallo_de([&] { w.store(); }, &texto), ivrexa::fault::no_block);
        EXPECT_NE(texto.find("nobody offers \"" + usado + "\""), std::string::npos) << texto;
    }
    EXPECT_SIN_INFORMES();
    ofrece(usado);
    EXPECT_EQ(w.store(), 100u);
}

// The number 0 is none, and the container holds the block with it: the library would report a second try.
TEST_F(hpp_rechaza, guardar_otra_vez_lo_que_no_se_pudo_guardar)
{
    writer w = entrada();
    w.add("x", 1u);
    bloque_crudo(nombre_canal(servicio).c_str()).pon_u32(12, 0);
    EXPECT_RECHAZO(no_block, w.store());
    EXPECT_RECHAZO(usage, w.store());
    EXPECT_RECHAZO(usage, w.add("y", 1u));
    EXPECT_SIN_INFORMES();
}

// ---- What the refusals say

// A NUL would end the text, and a long name need not be in it whole.
TEST_F(hpp_rechaza, el_texto_nombra_lo_rechazado)
{
    auto dice = [](auto f) {
        std::string texto;
        EXPECT_TRUE(fallo_de(f, &texto));
        return texto;
    };
    auto tiene = [](const std::string &texto, const std::string &parte) {
        return texto.find(parte) != std::string::npos ? ::testing::AssertionSuccess()
                                                      : ::testing::AssertionFailure() << texto;
    };
    writer w = entrada();
    std::string largo = "largo" + std::string(300, 'n');
    EXPECT_TRUE(tiene(dice([&] { w.add(largo, 1u); }), '"' + largo.substr(0, 64) + "...\" has 305"));
    EXPECT_TRUE(tiene(dice([&] { w.add(std::string("a\0b", 3), 1u); }), R"("a\0b" has 3)"));
    EXPECT_TRUE(tiene(dice([&] { w.add("x", std::string("a\0b", 3)); }), R"("x")"));
    EXPECT_TRUE(tiene(dice([&] { writer::input(std::string("c\0d", 3)); }), R"("c\0d" has 3)"));
    EXPECT_TRUE(tiene(dice([&] { writer::input(std::string(64, 's')); }), '"' + std::string(64, 's') + "\" has 64"));
    EXPECT_TRUE(tiene(dice([&] { ivrexa::session(std::string("e\0f", 3)); }), R"("e\0f" has 3)"));
    EXPECT_TRUE(tiene(dice([&] { w.add("bytes", bytes_view(nullptr, 1)); }), R"("bytes")"));

    w.add("t", "texto").add("w", L"texto").add("r", std::vector<std::string>());
    reader r = reader::open_input(servicio, w.store());
    EXPECT_TRUE(tiene(dice([&] { r.get<uint32_t>("t"); }), R"("t" is ANSI text, not uint32_t)"));
    EXPECT_TRUE(tiene(dice([&] { r.get<bytes>("w"); }), R"("w" is wide text, not bytes)"));
    EXPECT_TRUE(tiene(dice([&] { r.get<double>("r"); }), R"("r" is array of ANSI texts, not double)"));
    EXPECT_TRUE(tiene(dice([&] { r.get<ivrexa_hwnd>("t"); }), "not window"));
    EXPECT_TRUE(tiene(dice([&] { r.get<double>(std::string("g\0h", 3)); }), R"("g\0h")"));
    EXPECT_TRUE(tiene(dice([&] { w.store(); }), '"' + servicio + '"'));
    TearDown();
    EXPECT_TRUE(tiene(dice([&] { r.get<double>("t"); }), '"' + servicio + '"'));
}

TEST_F(hpp_rechaza, bytes_que_no_estan_en_ningun_sitio)
{
    writer w = entrada();
    EXPECT_RECHAZO(usage, w.add("x", bytes_view(nullptr, 1)));
    EXPECT_EQ(w.add("x", bytes_view(nullptr, 0)).size(), 1u);
}

TEST_F(hpp_escribe, un_puntero_nulo_es_un_texto_que_falta)
{
    writer w = entrada();
    w.add("a", static_cast<const char *>(nullptr)).add("w", static_cast<const wchar_t *>(nullptr));
    reader r = reader::open_input(servicio, w.store());
    EXPECT_TRUE(r.is_null(0) && r.is_null(1));
    EXPECT_EQ(r.type(0), ivrexa_tipoDato_cadena_ansi);
    EXPECT_EQ(r.type(1), ivrexa_tipoDato_cadena_unicode);
}

TEST(hpp_textos, de_63_255_y_255_caben_y_con_uno_mas_o_un_nulo_no)
{
    auto largo = [](size_t n) { return std::wstring(n, L'x'); };
    ivrexa::texts caben{largo(63), largo(255), largo(255)};
    EXPECT_EQ(fallo_de([&] { caben.check(); }), std::nullopt);
    EXPECT_EQ(fallo_de([&] { ivrexa::texts().check(); }), std::nullopt);
    EXPECT_RECHAZO(text, (ivrexa::texts{largo(64), L"", L""}.check()));
    EXPECT_RECHAZO(text, (ivrexa::texts{L"", largo(256), L""}.check()));
    EXPECT_RECHAZO(text, (ivrexa::texts{L"", L"", largo(256)}.check()));
    for (int i = 0; i < 3; i++) {
        ivrexa::texts con_nulo;
        (i == 0 ? con_nulo.first : i == 1 ? con_nulo.second : con_nulo.third) = std::wstring(L"a\0b", 3);
        EXPECT_RECHAZO(text, con_nulo.check());
    }
}
