// What command data asks of the heap: how much, in which order, and what it gives back.
#include "iv_comdat_apoyo.h"

#include "comun/importacion.h"

IMPORTACION(HeapAlloc);
IMPORTACION(HeapFree);
IMPORTACION(HeapReAlloc);
IMPORTACION(UnmapViewOfFile);

namespace {

decltype(&HeapAlloc) s_HeapAlloc;
decltype(&HeapFree) s_HeapFree;
decltype(&UnmapViewOfFile) s_UnmapViewOfFile;

std::vector<SIZE_T> s_tamanyos;       // asked of HeapAlloc or HeapReAlloc
std::vector<const void *> s_soltados; // given to HeapFree or UnmapViewOfFile
const comdat *s_crece;                // the container whose growth is watched
std::vector<uint32_t> s_cuentas;      // its count of values while it grows

void *WINAPI apunta_y_reserva(HANDLE heap, DWORD opciones, SIZE_T tam)
{
    s_tamanyos.push_back(tam);
    return s_HeapAlloc(heap, opciones, tam);
}

// Always to another place, and what was there is lost.
void *WINAPI apunta_y_muda(HANDLE heap, DWORD opciones, void *viejo, SIZE_T tam)
{
    s_tamanyos.push_back(tam);
    if (s_crece != nullptr)
        s_cuentas.push_back(*s_crece->num_valores);
    SIZE_T antes = HeapSize(heap, 0, viejo);
    void *nuevo = s_HeapAlloc(heap, opciones, tam);
    memcpy(nuevo, viejo, antes);
    memset(viejo, 0xDD, antes);
    s_HeapFree(heap, 0, viejo);
    return nuevo;
}

BOOL WINAPI apunta_y_suelta(HANDLE heap, DWORD opciones, void *memlocal)
{
    s_soltados.push_back(memlocal);
    return s_HeapFree(heap, opciones, memlocal);
}

BOOL WINAPI apunta_y_cierra(const void *vista)
{
    s_soltados.push_back(vista);
    return s_UnmapViewOfFile(vista);
}

class iv_comdat_monton : public ::testing::Test {
protected:
    void SetUp() override
    {
        para_grabar(); // the heap exists from here on
        s_HeapAlloc = __imp_HeapAlloc;
        s_HeapFree = __imp_HeapFree;
        s_UnmapViewOfFile = __imp_UnmapViewOfFile;
        s_tamanyos.clear();
        s_soltados.clear();
        s_cuentas.clear();
        s_crece = nullptr;
    }

    // Destroys it and gives the places that it let go, in their order.
    std::vector<const void *> destruye(contenedor c)
    {
        importacion_cambiada<decltype(&HeapFree)> libera(__imp_HeapFree, apunta_y_suelta);
        importacion_cambiada<decltype(&UnmapViewOfFile)> cierra(__imp_UnmapViewOfFile, apunta_y_cierra);
        iv_comdat_destruye(c.release());
        return s_soltados;
    }
};

} // namespace

TEST_F(iv_comdat_monton, crear_para_grabar_reserva_1024_el_registro_y_el_nombre)
{
    importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, apunta_y_reserva);
    contenedor c(iv_comdat_crea_para_grabar("Calc", 1));
    EXPECT_EQ(s_tamanyos, (std::vector<SIZE_T>{1024, sizeof(comdat), 5}));
}

TEST_F(iv_comdat_monton, crear_para_leer_reserva_el_registro_el_nombre_y_una_entrada_por_valor)
{
    for (const char *hex : {"00000000", "03000000 01 01 00 07  01 01 00 07  01 01 00 07"}) {
        bytes b = de_hex(hex);
        const uint32_t tam = static_cast<uint32_t>(b.size());
        uint8_t *datos = static_cast<uint8_t *>(i_malloc(tam + 4));
        memcpy(datos, b.data(), tam);
        iv_shared_bloque *sin_bloque = nullptr;
        s_tamanyos.clear();
        importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, apunta_y_reserva);
        contenedor c(iv_comdat_crea_para_leer("Calc", 7, &sin_bloque, datos, tam, 1));

        std::vector<SIZE_T> esperados = {sizeof(comdat), 5};
        if (b[0] != 0)
            esperados.push_back(3 * 32);
        EXPECT_EQ(s_tamanyos, esperados);
    }
}

TEST_F(iv_comdat_monton, crecer_pide_lo_justo_y_una_vez_por_parte)
{
    const std::vector<const char *> nulos(600);
    const bytes datos(5000);
    auto graba_buffer = [&](uint32_t fin) { // of all 12 bytes before its data
        return [&datos, fin](comdat *c) { iv_comdat_graba_buffer(c, "b", datos.data(), fin - 12); };
    };
    auto graba_nulos = [&](uint32_t num) {
        return [&nulos, num](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "t", nulos.data(), num); };
    };
    const struct {
        const char *que;
        std::function<void(comdat *)> graba;
        std::vector<SIZE_T> tamanyos;
    } CASOS[] = {
        {"to 1024", graba_buffer(1024), {}},
        {"to 1025", graba_buffer(1025), {2048}},
        {"to 2047", graba_buffer(2047), {2048}},
        {"to 2048", graba_buffer(2048), {3072}},
        {"to 5012", graba_buffer(5012), {5120}},
        {"table to 1024", graba_nulos(253), {2048}}, // the elements behind it
        {"table to 1028, elements to 2044", graba_nulos(254), {2048}},
        {"table to 2048, elements to 4084", graba_nulos(509), {3072, 4096}},
        {"name across 1024",
         [&](comdat *c) {
             iv_comdat_graba_buffer(c, "b", datos.data(), 1000);
             iv_comdat_graba_byte(c, std::string(254, 'n').c_str(), 1);
         },
         {2048}},
    };
    for (const auto &caso : CASOS) {
        SCOPED_TRACE(caso.que);
        s_tamanyos.clear();
        importacion_cambiada<decltype(&HeapReAlloc)> cambio(__imp_HeapReAlloc, apunta_y_muda);
        contenedor c = para_grabar();
        caso.graba(c.get());
        EXPECT_EQ(s_tamanyos, caso.tamanyos);
        EXPECT_EQ(static_cast<void *>(c->num_valores), c->buffer);
    }
}

TEST_F(iv_comdat_monton, contenido_que_se_muda_llega_entero)
{
    contenedor c = para_grabar();
    {
        importacion_cambiada<decltype(&HeapReAlloc)> cambio(__imp_HeapReAlloc, apunta_y_muda);
        for (uint32_t n = 0; n < 1000; n++)
            for (const escritor &e : escritores())
                if (e.tipo != 10) // it would hide those behind it
                    e.graba(c.get(), "n");
    }
    EXPECT_GT(s_tamanyos.size(), 50u);
    contenedor l = lee(contenido(c));
    ASSERT_EQ(iv_comdat_numero_valores(l.get()), 9000u);
    for (uint32_t i = 0; i < 9000; i += 9) {
        uint32_t num = 0;
        ASSERT_EQ(iv_comdat_dame_ulong(l.get(), i + 2), 0x12345678u);
        ASSERT_STREQ(iv_comdat_dame_cadena_ansi(l.get(), i + 5), "x");
        ASSERT_STREQ(iv_comdat_dame_arr_cadenas_ansi(l.get(), i + 8, &num)[0], "x");
        borra_informes(); // numbers are checked from the cursor
    }
}

TEST_F(iv_comdat_monton, valor_a_medias_no_cuenta)
{
    const std::string largo(3000, 'x');
    const std::wstring ancho(3000, L'x');
    const char *textos[] = {largo.c_str(), largo.c_str()};
    const wchar_t *anchos[] = {ancho.c_str(), ancho.c_str()};
    const std::vector<std::function<void(comdat *)>> CASOS = {
        [&](comdat *c) { iv_comdat_graba_buffer(c, "n", largo.data(), 3000); },
        [&](comdat *c) { iv_comdat_graba_cadena_ansi(c, "n", largo.c_str()); },
        [&](comdat *c) { iv_comdat_graba_cadena_unicode(c, "n", ancho.c_str()); },
        [&](comdat *c) { iv_comdat_graba_arr_cadenas_ansi(c, "n", textos, 2); },
        [&](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "n", anchos, 2); },
    };
    for (size_t n = 0; n < CASOS.size(); n++) {
        SCOPED_TRACE(n);
        s_cuentas.clear();
        contenedor c = para_grabar();
        iv_comdat_graba_byte(c.get(), "n", 1);
        s_crece = c.get(); // cppcheck-suppress danglingLifetime  // read only while the import below is changed
        importacion_cambiada<decltype(&HeapReAlloc)> cambio(__imp_HeapReAlloc, apunta_y_muda);
        CASOS[n](c.get());
        EXPECT_EQ(s_cuentas, std::vector<uint32_t>(n < 3 ? 1 : 2, 1));
        EXPECT_EQ(iv_comdat_numero_valores(c.get()), 2u);
    }
}

TEST_F(iv_comdat_monton, leer_no_reserva_nada_sino_tablas_de_punteros)
{
    contenedor c = lee(TODOS);
    uint32_t n;
    importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, apunta_y_reserva);
    for (uint32_t i = 0; i < 8; i++) {
        iv_comdat_nombre_valor(c.get(), i);
        iv_comdat_tipoDato(c.get(), i);
        iv_comdat_dame_byte(c.get(), i);
        iv_comdat_dame_ushort(c.get(), i);
        iv_comdat_dame_ulong(c.get(), i);
        iv_comdat_dame_double(c.get(), i);
        iv_comdat_dame_hwnd(c.get(), i);
        iv_comdat_dame_buffer(c.get(), i, &n);
        iv_comdat_dame_cadena_ansi(c.get(), i);
        iv_comdat_dame_cadena_unicode(c.get(), i);
        iv_comdat_dame_arr_cadenas_ansi(c.get(), i, &n);
        iv_comdat_dame_arr_cadenas_unicode(c.get(), i, &n);
    }
    borra_informes();
    EXPECT_EQ(s_tamanyos, std::vector<SIZE_T>{});
    iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, &n);
    iv_comdat_dame_arr_cadenas_unicode(c.get(), 9, &n);
    EXPECT_EQ(s_tamanyos, (std::vector<SIZE_T>{16, 16}));
}

TEST_F(iv_comdat_monton, cuenta_que_miente_no_reserva_mas_de_lo_que_cabe)
{
    const bytes b = de_hex("01000000 09 02 6100 1C000000 10000000 05000000 61620000 01010101");
    contenedor c = lee(b); // the count of the array is that of the bytes
    bytes con_cuenta = b;
    for (size_t i = 0; i < 4; i++)
        con_cuenta[i] = 0xFF;
    borra_informes();
    importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, apunta_y_reserva);
    uint32_t num = 0;
    iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num);
    EXPECT_EQ(num, 28u);
    EXPECT_EQ(s_tamanyos, std::vector<SIZE_T>{28 * 8});
    s_tamanyos.clear();
    contenedor otro = lee(con_cuenta); // 12 values of two bytes could stand there
    // cppcheck-suppress containerOutOfBounds  // the changed HeapAlloc has pushed one
    EXPECT_EQ(s_tamanyos.back(), 12u * 32);
    borra_informes();
}

TEST_F(iv_comdat_monton, destruir_lo_escrito_libera_nombre_bloque_y_registro_en_su_orden)
{
    contenedor c = para_grabar();
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 8, nullptr), *suyo = bloque;
    iv_comdat_guardado(c.get(), 100, &suyo);
    const std::vector<const void *> esperados = {
        c->nombre_servicio, c->buffer, bloque->sharedmem, bloque->nombre, bloque->tipo, bloque, c.get()};
    EXPECT_EQ(destruye(std::move(c)), esperados);
}

TEST_F(iv_comdat_monton, destruir_lo_leido_libera_tablas_e_indice_antes_del_buffer)
{
    const char *nombre = nombre_unico("bloque");
    bytes b = de_hex(TODOS);
    iv_shared_bloque *bloque = iv_shared_crea_con_datos(nombre, 146, b.data()), *suyo = bloque;
    contenedor c(iv_comdat_carga("S", 7, &suyo, 1));
    uint32_t num;
    const void *ancha = iv_comdat_dame_arr_cadenas_unicode(c.get(), 9, &num); // freed in the values' order
    const void *ansi = iv_comdat_dame_arr_cadenas_ansi(c.get(), 8, &num);
    const std::vector<const void *> esperados = {
        c->nombre_servicio, ansi,           ancha,        c->valores, c->buffer,
        bloque->sharedmem,  bloque->nombre, bloque->tipo, bloque,     c.get()};
    EXPECT_EQ(destruye(std::move(c)), esperados);
}
