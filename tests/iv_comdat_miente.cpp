// Command data whose content lies. Behind the bytes and their four zero bytes begins a page that may not be
// touched.
#include "iv_comdat_apoyo.h"

#include <algorithm>

namespace {

class zona_con_guarda {
public:
    zona_con_guarda()
    {
        DWORD antes;
        void *paginas = VirtualAlloc(nullptr, 3 * 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
        m_inicio = static_cast<uint8_t *>(paginas);
        VirtualProtect(m_inicio + 2 * 4096, 4096, PAGE_NOACCESS, &antes);
    }
    ~zona_con_guarda() { VirtualFree(m_inicio, 0, MEM_RELEASE); }
    zona_con_guarda(const zona_con_guarda &) = delete;
    zona_con_guarda &operator=(const zona_con_guarda &) = delete;

    uint8_t *pon(const uint8_t *datos, size_t num)
    {
        uint8_t *sitio = m_inicio + 2 * 4096 - 4 - num;
        memset(m_inicio, 0xEE, 2 * 4096);
        memset(sitio, 0, num + 4);
        if (num != 0)
            memcpy(sitio, datos, num);
        return sitio;
    }

private:
    uint8_t *m_inicio;
};

// A container that reads the zone. It destroys a block of the heap in its place.
class lectura_con_guarda {
public:
    lectura_con_guarda(zona_con_guarda &zona, const uint8_t *datos, size_t num)
    {
        const uint32_t tam = static_cast<uint32_t>(num);
        iv_shared_bloque *sin_bloque = nullptr;
        c = iv_comdat_crea_para_leer("S", 7, &sin_bloque, zona.pon(datos, num), tam, 1);
    }
    ~lectura_con_guarda()
    {
        c->buffer = static_cast<uint8_t *>(i_malloc(1));
        iv_comdat_destruye(c);
    }
    lectura_con_guarda(const lectura_con_guarda &) = delete;
    lectura_con_guarda &operator=(const lectura_con_guarda &) = delete;

    comdat *c;
};

// False when it touched memory that it may not.
bool sin_fallo(const std::function<void()> &f)
{
    auto llama = [](const std::function<void()> *funcion) { (*funcion)(); };
    void (*volatile de_fuera)(const std::function<void()> *) = llama;
    __try {
        de_fuera(&f);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        return false;
    }
    return true;
}

uint32_t recorre_texto(const char *texto)
{
    uint32_t suma = 0;
    for (; texto != nullptr && *texto != '\0'; texto++)
        suma += static_cast<uint8_t>(*texto);
    return suma;
}

uint32_t recorre_texto(const wchar_t *texto)
{
    uint32_t suma = 0;
    for (const char *p = reinterpret_cast<const char *>(texto); p != nullptr; p += 2) {
        uint16_t unidad;
        memcpy(&unidad, p, 2); // may lie at an odd address
        if (unidad == 0)
            break;
        suma += unidad;
    }
    return suma;
}

template <typename texto>
uint32_t recorre_tabla(const texto *tabla, uint32_t num)
{
    uint32_t suma = 0;
    EXPECT_TRUE(tabla != nullptr || num == 0);
    for (uint32_t i = 0; i < num; i++)
        suma += recorre_texto(tabla[i]);
    return suma;
}

// Asks everything of one position and reads all that is handed out, to its end.
uint32_t recorre_valor(comdat *c, uint32_t i)
{
    uint32_t tam = 0, num = 0, num_u = 0;
    uint32_t suma = recorre_texto(iv_comdat_nombre_valor(c, i)) + iv_comdat_tipoDato(c, i);
    suma += iv_comdat_dame_byte(c, i) + iv_comdat_dame_ushort(c, i) + iv_comdat_dame_ulong(c, i);
    suma += iv_comdat_dame_double(c, i) == 0.0 ? 1 : 0;
    suma += iv_comdat_dame_hwnd(c, i) == nullptr ? 1 : 0;
    suma += recorre_texto(iv_comdat_dame_cadena_ansi(c, i));
    suma += recorre_texto(iv_comdat_dame_cadena_unicode(c, i));
    const uint8_t *buffer = static_cast<const uint8_t *>(iv_comdat_dame_buffer(c, i, &tam));
    for (uint32_t n = 0; n < tam; n++)
        suma += buffer[n];
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c, i, &num);
    suma += recorre_tabla(textos, num);
    const wchar_t *const *anchos = iv_comdat_dame_arr_cadenas_unicode(c, i, &num_u);
    return suma + recorre_tabla(anchos, num_u);
}

volatile uint32_t s_suma;

void recorre(comdat *c)
{
    uint32_t num = std::min(iv_comdat_numero_valores(c), 20u);
    for (uint32_t i = 0; i <= num; i++)
        s_suma = s_suma + recorre_valor(c, i);
    s_suma = s_suma + recorre_valor(c, 0xFFFFFFFF);
}

void graba_de_todo(comdat *c)
{
    const char *textos[] = {"a", nullptr};
    const wchar_t *anchos[] = {L"a", nullptr};
    iv_comdat_graba_byte(c, "n", 0xEE);
    iv_comdat_graba_double(c, "n", -1.0);
    iv_comdat_graba_buffer(c, "n", "0123456789", 10);
    iv_comdat_graba_cadena_ansi(c, "n", "texto");
    iv_comdat_graba_cadena_unicode(c, "n", L"texto");
    iv_comdat_graba_arr_cadenas_ansi(c, "n", textos, 2);
    iv_comdat_graba_arr_cadenas_unicode(c, "n", anchos, 2);
    iv_comdat_graba_arr_cadenas_ansi(c, "n", nullptr, 0xFFFFFFFF);
}

// The number that a fixed-size value of TODOS has when only the first `corte` bytes are there.
uint64_t numero_cortado(const bytes &todos, const sitio &s, uint32_t corte)
{
    uint64_t numero = 0;
    if (s.datos < corte)
        memcpy(&numero, todos.data() + s.datos, std::min(s.fin, corte) - s.datos);
    return numero;
}

void comprueba_numeros_cortados(comdat *c, const bytes &todos, uint32_t corte)
{
    uint64_t bits_double, hwnd = reinterpret_cast<uintptr_t>(iv_comdat_dame_hwnd(c, 7));
    double d = iv_comdat_dame_double(c, 3);
    memcpy(&bits_double, &d, 8);
    EXPECT_EQ(iv_comdat_dame_byte(c, 0), numero_cortado(todos, SITIOS[0], corte));
    EXPECT_EQ(iv_comdat_dame_ushort(c, 1), numero_cortado(todos, SITIOS[1], corte));
    EXPECT_EQ(iv_comdat_dame_ulong(c, 2), numero_cortado(todos, SITIOS[2], corte));
    EXPECT_EQ(bits_double, numero_cortado(todos, SITIOS[3], corte));
    EXPECT_EQ(hwnd, numero_cortado(todos, SITIOS[7], corte));
    EXPECT_SIN_INFORMES(); // the cursor stands at 0
}

// One report where the value is there but cut off.
void comprueba_informe_de_corte(const sitio &s, uint32_t corte)
{
    if (s.datos <= corte && corte < s.fin)
        EXPECT_INFORME(MODULO, FUERA);
    EXPECT_SIN_INFORMES();
}

void comprueba_textos_cortados(comdat *c, uint32_t corte)
{
    uint32_t tam = 66;
    const void *buffer = iv_comdat_dame_buffer(c, 4, &tam);
    comprueba_informe_de_corte(SITIOS[4], corte);
    EXPECT_EQ(buffer, corte >= 46 ? c->buffer + 43 : nullptr);
    EXPECT_EQ(tam, corte >= 46 ? 3u : corte >= 39 ? 0u : 66u);
    EXPECT_EQ(a_texto(iv_comdat_dame_cadena_ansi(c, 5)), a_texto(corte >= 59 ? c->buffer + 54 : nullptr));
    comprueba_informe_de_corte(SITIOS[5], corte);
    EXPECT_EQ(a_texto(iv_comdat_dame_cadena_unicode(c, 6)), a_texto(corte >= 73 ? c->buffer + 67 : nullptr));
    comprueba_informe_de_corte(SITIOS[6], corte);
}

// An array of TODOS: two elements, whose bytes begin at `elementos`.
template <typename texto>
void comprueba_tabla_cortada(comdat *c, const texto *tabla, uint32_t num, const sitio &s,
                             const uint32_t (&elementos)[2], uint32_t corte)
{
    bool hay_cuenta = corte >= s.datos + 4;
    EXPECT_EQ(num, hay_cuenta ? 2u : 0u);
    EXPECT_EQ(tabla != nullptr, hay_cuenta);
    for (uint32_t i = 0; i < num; i++) {
        bool esta = corte >= s.datos + 8 + 4 * i && corte >= elementos[i];
        EXPECT_EQ(a_texto(tabla[i]), a_texto(esta ? c->buffer + elementos[i] : nullptr)) << i;
    }
    if (s.datos <= corte && corte < s.datos + 12)
        EXPECT_INFORME(MODULO, FUERA);
    EXPECT_SIN_INFORMES();
}

void comprueba_arreglos_cortados(comdat *c, uint32_t corte)
{
    uint32_t num = 66, num_u = 66;
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c, 8, &num);
    comprueba_tabla_cortada(c, textos, num, SITIOS[8], {105, 112}, corte);
    const wchar_t *const *anchos = iv_comdat_dame_arr_cadenas_unicode(c, 9, &num_u);
    comprueba_tabla_cortada(c, anchos, num_u, SITIOS[9], {132, 140}, corte);
}

void comprueba_indice_cortado(comdat *c, uint32_t corte)
{
    uint64_t cuenta = 0x0A;
    EXPECT_EQ(iv_comdat_numero_valores(c), corte == 0 ? 0 : cuenta);
    for (uint32_t i = 0; i < 10; i++) {
        bool con_cabecera = SITIOS[i].datos <= corte;
        EXPECT_EQ(iv_comdat_tipoDato(c, i), con_cabecera ? SITIOS[i].tipo : 0u) << i;
        EXPECT_STREQ(iv_comdat_nombre_valor(c, i), con_cabecera ? SITIOS[i].nombre : "?") << i;
    }
}

void comprueba_corte(comdat *c, const bytes &todos, uint32_t corte)
{
    ASSERT_NE(c, nullptr);
    if (corte < todos.size())
        EXPECT_INFORME(MODULO, FUERA); // one at most: the scan stops there
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(c->offset, 0u);
    comprueba_indice_cortado(c, corte);
    if (corte >= 8) // below, the check from the cursor reports
        comprueba_numeros_cortados(c, todos, corte);
    comprueba_textos_cortados(c, corte);
    comprueba_arreglos_cortados(c, corte);
}

} // namespace

TEST(iv_comdat_miente, la_guarda_se_nota)
{
    zona_con_guarda zona;
    const bytes b(10, 0x61);
    const volatile uint8_t *datos = zona.pon(b.data(), b.size());
    EXPECT_TRUE(sin_fallo([&] { s_suma = datos[13]; }));
    EXPECT_FALSE(sin_fallo([&] { s_suma = datos[14]; }));
}

TEST(iv_comdat_miente, contenido_cortado_en_cada_byte_da_lo_que_queda)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    ASSERT_EQ(todos.size(), 146u);
    for (uint32_t corte = 0; corte <= 146; corte++) {
        SCOPED_TRACE(corte);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, todos.data(), corte);
            comprueba_corte(l.c, todos, corte);
            recorre(l.c);
            borra_informes();
        }));
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, bloque_cortado_en_cada_byte_da_lo_que_queda)
{
    const bytes todos = de_hex(TODOS);
    for (uint32_t corte = 1; corte <= 146; corte++) {
        SCOPED_TRACE(corte);
        iv_shared_bloque *bloque = iv_shared_crea_con_datos(nombre_unico("corte"), corte, todos.data());
        contenedor c(iv_comdat_carga("S", 7, &bloque, 1));
        comprueba_corte(c.get(), todos, corte);
        EXPECT_EQ(memcmp(c->buffer + corte, "\0\0\0\0", 4), 0);
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, numeros_de_menos_de_4_bytes_se_leen_con_ceros)
{
    for (uint32_t corte = 0; corte < 4; corte++) {
        bytes b = de_hex("04030201");
        b.resize(corte);
        contenedor c = lee(b);
        EXPECT_INFORME(MODULO, FUERA);
        EXPECT_EQ(c->valores, nullptr);
        EXPECT_EQ(iv_comdat_numero_valores(c.get()), 0x01020304u & ((1u << corte * 8) - 1));
        EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "?");
        EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 0u);
        EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0);
    }
}

TEST(iv_comdat_miente, cada_byte_cambiado_se_lee_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    size_t antes = mide_heap().bytes;
    for (uint32_t i = 0; i < todos.size(); i++) {
        for (uint8_t valor : {0x00, 0x01, 0x09, 0x0A, 0x0B, 0x7F, 0x80, 0xFF}) {
            bytes b = todos;
            b[i] = valor;
            EXPECT_TRUE(sin_fallo([&] {
                lectura_con_guarda l(zona, b.data(), b.size());
                EXPECT_LE(mide_heap().bytes, antes + 32 * b.size() + 1024);
                recorre(l.c);
            })) << "byte "
                << i << " is " << static_cast<int>(valor);
            borra_informes();
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, cada_palabra_cambiada_se_lee_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    for (uint32_t i = 0; i + 4 <= todos.size(); i++) {
        for (uint32_t valor :
             {0xFFFFFFFFu, 0xFFFFFFFCu, 0x80000000u, 0x7FFFFFFFu, 0x40000000u, 0x20000000u, 0x10000000u, 146u, 142u}) {
            bytes b = todos;
            memcpy(&b[i], &valor, 4);
            EXPECT_TRUE(sin_fallo([&] {
                lectura_con_guarda l(zona, b.data(), b.size());
                recorre(l.c);
            })) << "word "
                << i << " is " << valor;
            borra_informes();
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, bytes_al_azar_se_leen_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    uint32_t azar = 12345;
    for (uint32_t ronda = 0; ronda < 1500; ronda++) {
        bytes b = de_hex("20000000");
        while (b.size() < 4 + ronda % 97) {
            azar = azar * 1664525 + 1013904223;
            b.push_back(static_cast<uint8_t>(azar >> 24) % (ronda % 2 ? 12 : 256));
        }
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            recorre(l.c);
        })) << a_hex(b.data(), b.size());
        borra_informes();
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, grabar_en_lo_cortado_queda_dentro)
{
    zona_con_guarda zona;
    const bytes todos = de_hex(TODOS);
    for (uint32_t corte = 0; corte <= 146; corte++) {
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, todos.data(), corte);
            iv_comdat_dame_cadena_ansi(l.c, 5); // moves the cursor, where there is one
            graba_de_todo(l.c);
            l.c->offset = corte;
            graba_de_todo(l.c);
            EXPECT_EQ(l.c->tam, corte);
            EXPECT_EQ(memcmp(l.c->buffer + corte, "\0\0\0\0", 4), 0);
            recorre(l.c);
        })) << corte;
        borra_informes();
        ASSERT_FALSE(HasFailure());
    }
}

TEST(iv_comdat_miente, cuenta_de_mas_da_un_informe_y_valores_ausentes)
{
    const struct {
        const char *hex;
        uint32_t num, presentes;
    } CASOS[] = {
        {"FFFFFFFF 01 02 6100 07", 0xFFFFFFFF, 1},
        {"00000008 01 02 6100 07", 0x08000000, 1}, // 32 times that is 0 in 32 bits
        {"02000000 01 02 6100 07", 2, 1},
        {"02000000 01 02 6100 07 01", 2, 1},         // ends behind the second one's type
        {"02000000 01 02 6100 07 01 02 62", 2, 1},   // inside its name
        {"02000000 01 02 6100 07 01 02 6200", 2, 2}, // behind its name
        {"04000000 0B00 0B00 0B00", 4, 3},           // full to the last byte
        {"04000000 0B00 0B00 0B00 0B", 4, 3},
        {"FFFFFFFF", 0xFFFFFFFF, 0},
        {"FFFFFFFF 01", 0xFFFFFFFF, 0},
    };
    for (const auto &caso : CASOS) {
        SCOPED_TRACE(caso.hex);
        iv_comdat_destruye(iv_comdat_crea_para_grabar("S", 1));
        size_t antes = mide_heap().bytes;
        contenedor c = lee(caso.hex);
        EXPECT_INFORME(MODULO, FUERA);
        EXPECT_SIN_INFORMES();
        EXPECT_LT(mide_heap().bytes, antes + 2048);
        EXPECT_EQ(iv_comdat_numero_valores(c.get()), caso.num);
        for (uint32_t i = 0; i < caso.presentes; i++)
            EXPECT_NE(iv_comdat_tipoDato(c.get(), i), 0u);
        for (uint32_t i : {caso.presentes, caso.num - 1}) {
            if (i < caso.presentes)
                continue;
            EXPECT_EQ(iv_comdat_tipoDato(c.get(), i), 0u);
            EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), i), "?");
            EXPECT_EQ(iv_comdat_dame_byte(c.get(), i), 0);
        }
        if (caso.presentes > 0 && caso.hex[9] == '0' && caso.hex[10] == '1')
            EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 7);
    }
}

TEST(iv_comdat_miente, cuenta_exacta_de_valores_minimos_no_se_informa)
{
    contenedor c = lee("03000000 0B00 FF00 0B00");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 11u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 255u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 2), 11u);
}

TEST(iv_comdat_miente, codigos_desconocidos_no_saltan_datos)
{
    contenedor c = lee("04000000 0B 02 6100  FF 02 6200  00 02 6300  01 02 6400 07");
    EXPECT_INFORME(MODULO, "valor->tipoDato != ivrexa_tipoDato_desconocido");
    EXPECT_SIN_INFORMES();
    const uint32_t tipos[] = {11, 255, 0, 1};
    const char *const nombres[] = {"a", "b", "c", "d"};
    for (uint32_t i = 0; i < 4; i++) {
        EXPECT_EQ(iv_comdat_tipoDato(c.get(), i), tipos[i]);
        EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), i), nombres[i]);
    }
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 3), 7);
}

TEST(iv_comdat_miente, cada_valor_de_codigo_0_se_informa)
{
    contenedor c = lee("03000000 00 02 6100  01 02 6200 07  00 02 6300");
    EXPECT_INFORME(MODULO, "valor->tipoDato != ivrexa_tipoDato_desconocido");
    EXPECT_INFORME(MODULO, "valor->tipoDato != ivrexa_tipoDato_desconocido");
    EXPECT_SIN_INFORMES();
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 2), "c");
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 1), 7);
}

TEST(iv_comdat_miente, longitud_de_mas_da_nulo_y_0)
{
    for (const char *longitud : {"FFFFFFFF", "00000080", "04000000"}) {
        for (const char *tipo : {"05", "06", "07"}) {
            SCOPED_TRACE(std::string(tipo) + longitud);
            contenedor c = lee(de_hex(std::string("02000000") + tipo + "02 6100" + longitud + "010203"));
            EXPECT_INFORME(MODULO, FUERA); // the scan: the second value is absent
            EXPECT_SIN_INFORMES();
            EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "a");
            EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
            uint32_t tam = 66;
            EXPECT_EQ(iv_comdat_dame_buffer(c.get(), 0, &tam), nullptr);
            EXPECT_EQ(tam, *tipo == '0' && tipo[1] == '5' ? 0u : 66u);
            EXPECT_EQ(iv_comdat_dame_cadena_ansi(c.get(), 0), nullptr);
            EXPECT_EQ(iv_comdat_dame_cadena_unicode(c.get(), 0), nullptr);
            EXPECT_INFORME(MODULO, FUERA); // by the one reader of that type
        }
    }
}

TEST(iv_comdat_miente, longitud_justa_se_lee)
{
    contenedor c = lee("01000000 05 02 6100 03000000 010203");
    uint32_t tam = 0;
    EXPECT_EQ(a_texto(iv_comdat_dame_buffer(c.get(), 0, &tam)), a_texto(c->buffer) + 12);
    EXPECT_EQ(tam, 3u);
}

TEST(iv_comdat_miente, textos_sin_nul_acaban_en_los_ceros_de_detras)
{
    zona_con_guarda zona;
    const struct {
        const char *hex;
        uint32_t suma;
    } CASOS[] = {
        {"01000000 06 02 6100 03000000 010203", 6},
        {"01000000 07 02 6100 02000000 0101", 0x0101},
        {"01000000 07 02 6100 03000000 010101", 0x0102}, // an odd number of bytes: 0101 0100
        {"01000000 09 02 6100 01000000 10000000 02000000 0102", 3},
        {"01000000 0A 02 6100 01000000 10000000 03000000 010101", 0x0102},
    };
    for (const auto &caso : CASOS) {
        bytes b = de_hex(caso.hex);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            uint32_t num = 0, tipo = iv_comdat_tipoDato(l.c, 0), suma = 0;
            if (tipo == 6)
                suma = recorre_texto(iv_comdat_dame_cadena_ansi(l.c, 0));
            else if (tipo == 7)
                suma = recorre_texto(iv_comdat_dame_cadena_unicode(l.c, 0));
            else if (tipo == 9)
                suma = recorre_texto(iv_comdat_dame_arr_cadenas_ansi(l.c, 0, &num)[0]);
            else
                suma = recorre_texto(iv_comdat_dame_arr_cadenas_unicode(l.c, 0, &num)[0]);
            EXPECT_EQ(suma, caso.suma) << caso.hex;
        })) << caso.hex;
    }
}

TEST(iv_comdat_miente, nombres_sin_nul_o_sin_bytes_acaban_en_la_memoria)
{
    zona_con_guarda zona;
    const struct {
        const char *hex;
        const char *nombre;
    } CASOS[] = {
        {"01000000 0B 00", ""}, // right at the end: the zero bytes
        {"01000000 0B 03 616263", "abc"},
        {"02000000 0B 02 6162 FF 02 6300", "ab\xFF\x02"
                                           "c"},
        {"01000000 01 00 61", "a"}, // of no bytes: it begins with the value's data
    };
    for (const auto &caso : CASOS) {
        bytes b = de_hex(caso.hex);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            EXPECT_EQ(std::string(iv_comdat_nombre_valor(l.c, 0)), caso.nombre) << caso.hex;
        })) << caso.hex;
    }
    contenedor c = lee("01000000 01 00 61");
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0x61);
}

TEST(iv_comdat_miente, nombre_mas_largo_que_lo_que_queda_no_es_un_valor)
{
    contenedor c = lee("01000000 01 FF 6100 07");
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 0u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "?");
}

TEST(iv_comdat_miente, cuenta_de_un_arreglo_mayor_que_el_contenido_da_nulo_y_0)
{
    // 28 bytes in all: a count of 29 is one too many.
    for (const char *cuenta : {"FFFFFFFF", "00000040", "01000040", "00000020", "01000020", "00000080", "1D000000"}) {
        for (const char *tipo : {"09", "0A"}) {
            SCOPED_TRACE(std::string(tipo) + cuenta);
            contenedor c = lee(
                de_hex(std::string("02000000") + tipo + "02 6100" + cuenta + "14000000 04000000 61006200 01010101"));
            ASSERT_EQ(c->ocupado, 28u);
            EXPECT_INFORME(MODULO, FUERA);
            EXPECT_SIN_INFORMES();
            EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
            uint32_t num = 66, bloques = mide_heap().bloques;
            EXPECT_EQ(iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num), nullptr);
            EXPECT_EQ(num, 0u);
            num = 66;
            EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num), nullptr);
            EXPECT_EQ(num, 0u);
            EXPECT_EQ(mide_heap().bloques, bloques);
            EXPECT_SIN_INFORMES(); // the count itself can be read, more is not tried
        }
    }
}

TEST(iv_comdat_miente, cuenta_de_un_arreglo_hasta_el_contenido_da_tantos_punteros)
{
    contenedor c = lee("01000000 09 02 6100 1C000000 10000000 05000000 61620000 01010101");
    ASSERT_EQ(c->ocupado, 28u);
    EXPECT_INFORME(MODULO, FUERA);
    uint32_t num = 0;
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num);
    EXPECT_INFORME(MODULO, FUERA); // the table's first missing entry
    EXPECT_SIN_INFORMES();
    ASSERT_EQ(num, 28u);
    EXPECT_STREQ(textos[0], "ab"); // at 20
    EXPECT_EQ(textos[1], a_texto(c->buffer) + 9);
    for (uint32_t i = 2; i < 28; i++)
        EXPECT_EQ(textos[i], nullptr) << i;
}

TEST(iv_comdat_miente, posiciones_de_un_arreglo_fuera_del_contenido_dan_nulo)
{
    // 36 bytes: five positions, then bytes of an element.
    const struct {
        const char *posicion;
        int texto;
    } CASOS[] = {
        {"FFFFFFFF", -1}, {"FCFFFFFF", -1}, {"FDFFFFFF", -1},
        {"21000000", -1}, {"24000000", -1}, {"20000000", 36}, // right at the end: an empty text
        {"1F000000", 35}, {"00000000", 4},
    };
    for (const auto &caso : CASOS) {
        for (const char *tipo : {"09", "0A"}) {
            SCOPED_TRACE(caso.posicion);
            contenedor c = lee(de_hex(std::string("01000000") + tipo + "02 6100 01000000" + caso.posicion +
                                      "0C000000 616161616161616161616161 61616100"));
            ASSERT_EQ(c->ocupado, 36u);
            EXPECT_SIN_INFORMES();
            uint32_t num = 0;
            const void *texto =
                *tipo == '0' && tipo[1] == '9'
                    ? static_cast<const void *>(iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num)[0])
                    : static_cast<const void *>(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num)[0]);
            EXPECT_EQ(num, 1u);
            EXPECT_EQ(texto, caso.texto < 0 ? nullptr : c->buffer + caso.texto);
        }
    }
}

TEST(iv_comdat_miente, elemento_de_longitud_falsa_detiene_el_indice_y_no_el_arreglo)
{
    contenedor c = lee("02000000 09 02 6100 02000000 14000000 1A000000 FFFFFFFF 6100 02000000 6200"
                       "01 02 6200 07");
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 9u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
    uint32_t num = 0;
    const char *const *textos = iv_comdat_dame_arr_cadenas_ansi(c.get(), 0, &num);
    ASSERT_EQ(num, 2u);
    EXPECT_STREQ(textos[0], "a");
    EXPECT_STREQ(textos[1], "b");
}

TEST(iv_comdat_miente, arreglo_ancho_propio_se_lee_con_su_primera_posicion_como_cuenta)
{
    const wchar_t *textos[] = {L"a"};
    contenedor e = para_grabar();
    iv_comdat_graba_arr_cadenas_unicode(e.get(), "w", textos, 1);
    iv_comdat_graba_byte(e.get(), "b", 7);

    contenedor c = lee(contenido(e)); // 02000000 0A027700 0C000000 04000000 61000000 01026200 07
    ASSERT_EQ(c->ocupado, 25u);
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 2u);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 10u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 0), "w");
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 1), 0u);
    EXPECT_STREQ(iv_comdat_nombre_valor(c.get(), 1), "?");
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 1), 0);
    uint32_t num = 0;
    const wchar_t *const *leidos = iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num);
    EXPECT_INFORME(MODULO, FUERA);
    ASSERT_EQ(num, 12u);                                   // the count that stands there
    EXPECT_EQ(a_texto(leidos[0]), a_texto(c->buffer) + 8); // 4 + 4
    for (uint32_t i = 1; i < 12; i++)
        EXPECT_EQ(leidos[i], nullptr) << i; // 0x61 + 4 and 0x00620201 + 4 lie outside
}

TEST(iv_comdat_miente, arreglo_ancho_propio_sin_elementos_al_final_da_nulo_y_0)
{
    contenedor e = para_grabar();
    iv_comdat_graba_arr_cadenas_unicode(e.get(), "w", nullptr, 0);

    contenedor c = lee(contenido(e));
    EXPECT_INFORME(MODULO, FUERA);
    EXPECT_EQ(iv_comdat_tipoDato(c.get(), 0), 10u);
    uint32_t num = 66;
    EXPECT_EQ(iv_comdat_dame_arr_cadenas_unicode(c.get(), 0, &num), nullptr);
    EXPECT_EQ(num, 0u);
    EXPECT_INFORME(MODULO, FUERA);
}

TEST(iv_comdat_miente, nombre_de_256_grabado_se_lee_sin_salir_de_la_memoria)
{
    zona_con_guarda zona;
    for (uint32_t largo : {255u, 256u, 300u}) {
        contenedor e = para_grabar();
        iv_comdat_graba_byte(e.get(), std::string(largo, 'n').c_str(), 0x77);
        iv_comdat_graba_ulong(e.get(), "u", 1);
        EXPECT_INFORME(MODULO, "len < 256");
        EXPECT_SIN_INFORMES();
        bytes b = contenido(e);
        EXPECT_TRUE(sin_fallo([&] {
            lectura_con_guarda l(zona, b.data(), b.size());
            EXPECT_EQ(iv_comdat_tipoDato(l.c, 0), 1u);
            EXPECT_EQ(iv_comdat_dame_byte(l.c, 0), 'n'); // the length byte is 0, 1 or 45
            recorre(l.c);
        }));
        borra_informes();
    }
}
