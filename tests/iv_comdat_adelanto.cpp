// Command data above 64 KiB: `tam` goes on by its rule, while the heap is asked for far more at once.
#include "iv_comdat_apoyo.h"

#include "comun/importacion.h"
#include "comun/traza_captura.h"

IMPORTACION(HeapReAlloc);

namespace {

const uint32_t LIMITE = 64 * 1024; // up to here the heap is asked for what the rule says
const uint32_t MUCHO = 1024 * 1024;
const uint32_t PRIMERO = LIMITE + 4 * MUCHO; // what is asked for first, above

// What the rule of growth makes of the parts of values, appended one after the other.
struct regla {
    uint32_t ocupado = 4;
    uint32_t tam = 1024;

    void anexa(uint32_t num_bytes)
    {
        ocupado += num_bytes;
        if (ocupado > tam)
            tam = (ocupado + 1024) / 1024 * 1024;
    }

    void graba(const std::string &nombre, std::initializer_list<uint32_t> datos)
    {
        anexa(2);
        anexa(static_cast<uint32_t>(nombre.size()) + 1);
        for (uint32_t parte : datos)
            if (parte != 0)
                anexa(parte);
    }
};

std::vector<SIZE_T> s_pedidos;
decltype(&HeapReAlloc) s_HeapReAlloc;

void *WINAPI apunta(HANDLE heap, DWORD opciones, void *viejo, SIZE_T tam)
{
    s_pedidos.push_back(tam);
    return s_HeapReAlloc(heap, opciones, viejo, tam);
}

void *WINAPI niega_mucho(HANDLE heap, DWORD opciones, void *viejo, SIZE_T tam)
{
    s_pedidos.push_back(tam);
    return tam > MUCHO ? nullptr : s_HeapReAlloc(heap, opciones, viejo, tam);
}

void *WINAPI lanza_por_mucho(HANDLE heap, DWORD opciones, void *viejo, SIZE_T tam)
{
    s_pedidos.push_back(tam);
    if (tam > MUCHO)
        RaiseException(static_cast<DWORD>(STATUS_NO_MEMORY), 0, 0, nullptr);
    return s_HeapReAlloc(heap, opciones, viejo, tam);
}

void *WINAPI lanza_por_todo(HANDLE, DWORD, void *, SIZE_T tam)
{
    s_pedidos.push_back(tam);
    RaiseException(static_cast<DWORD>(STATUS_NO_MEMORY), 0, 0, nullptr);
    return nullptr;
}

// The code of the exception that came out, or 0.
DWORD graba_y_atrapa(comdat *c)
{
    DWORD codigo = 0;
    __try {
        iv_comdat_graba_ulong(c, "numero", 1);
    } __except (codigo = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER) {
    }
    return codigo;
}

void *WINAPI niega_todo(HANDLE, DWORD, void *, SIZE_T tam)
{
    s_pedidos.push_back(tam);
    return nullptr;
}

// While it lives the heap grows blocks by the given function, and s_pedidos has what it was asked for.
class heap_que {
public:
    explicit heap_que(decltype(&HeapReAlloc) otra) : m_cambio(anota(), otra) {}

private:
    static decltype(&HeapReAlloc) &anota()
    {
        s_pedidos.clear();
        s_HeapReAlloc = __imp_HeapReAlloc;
        return __imp_HeapReAlloc;
    }

    importacion_cambiada<decltype(&HeapReAlloc)> m_cambio;
};

uint32_t veces(const std::string &texto, const std::string &parte)
{
    uint32_t num = 0;
    for (size_t donde = texto.find(parte); donde != std::string::npos; donde = texto.find(parte, donde + 1))
        num++;
    return num;
}

void graba_numeros(comdat *c, uint32_t desde, uint32_t hasta)
{
    for (uint32_t n = desde; n < hasta; n++)
        iv_comdat_graba_ulong(c, "numero", n * 2654435761u);
}

// A container that has just been filled beyond the limit with values of 13 bytes.
const uint32_t NUM_HASTA_LIMITE = LIMITE / 13 + 10;

void espera_numeros(const contenedor &c, uint32_t num)
{
    contenedor l = lee(contenido(c));
    ASSERT_EQ(iv_comdat_numero_valores(l.get()), num);
    for (uint32_t n = 0; n < num; n++)
        ASSERT_EQ(iv_comdat_dame_ulong(l.get(), n), n * 2654435761u) << n;
}

} // namespace

TEST(iv_comdat_adelanto, tam_sigue_su_regla_tras_cada_valor)
{
    contenedor c = para_grabar();
    regla r;
    const std::string NOMBRES[] = {
        "", "a", "nombre", std::string(100, 'n'), std::string(253, 'm'), std::string(254, 'l'),
    };
    const std::vector<uint8_t> datos(700, 0x5A);
    for (uint32_t n = 0; r.ocupado < 5 * LIMITE; n++) {
        const std::string &nombre = NOMBRES[n % 6];
        iv_comdat_graba_ulong(c.get(), nombre.c_str(), n);
        r.graba(nombre, {4});
        iv_comdat_graba_byte(c.get(), nombre.c_str(), 1);
        r.graba(nombre, {1});
        iv_comdat_graba_double(c.get(), nombre.c_str(), 1.5);
        r.graba(nombre, {8});
        uint32_t tam = n * 37 % 700;
        iv_comdat_graba_buffer(c.get(), nombre.c_str(), datos.data(), tam);
        r.graba(nombre, {4, tam});
        iv_comdat_graba_cadena_unicode(c.get(), nombre.c_str(), L"hola");
        r.graba(nombre, {4, 10});
        ASSERT_EQ(c->ocupado, r.ocupado) << n;
        ASSERT_EQ(c->offset, r.ocupado) << n;
        ASSERT_EQ(c->tam, r.tam) << n;
        ASSERT_EQ(static_cast<void *>(c->num_valores), c->buffer) << n;
    }
}

TEST(iv_comdat_adelanto, tam_cambia_en_el_byte_que_no_cabe_tambien_por_encima)
{
    contenedor c = para_grabar();
    std::vector<uint8_t> datos(300 * 1024);
    iv_comdat_graba_buffer(c.get(), "b", datos.data(), static_cast<uint32_t>(datos.size()));
    while (c->ocupado < 420 * 1024) {
        uint32_t tam = c->tam;
        iv_comdat_graba_byte(c.get(), "", 1); // four bytes: 2, 1 and 1
        if (c->ocupado <= tam)
            ASSERT_EQ(c->tam, tam) << c->ocupado;
        else
            ASSERT_EQ(c->tam, tam + 1024) << c->ocupado;
    }
}

TEST(iv_comdat_adelanto, hasta_64_kib_se_pide_cada_kilobyte_y_despues_mucho_de_una_vez)
{
    contenedor c = para_grabar();
    {
        heap_que cambio(apunta);
        graba_numeros(c.get(), 0, 400000); // 5.2 million bytes
    }

    std::vector<SIZE_T> esperados;
    for (SIZE_T tam = 2048; tam <= LIMITE; tam += 1024)
        esperados.push_back(tam);
    esperados.push_back(PRIMERO);
    esperados.push_back(5 * PRIMERO);
    EXPECT_EQ(s_pedidos, esperados);
    EXPECT_EQ(HeapSize(s_LocalHeap, 0, c->buffer), esperados.back());
    EXPECT_EQ(c->tam, (4 + 5200000 + 1023) / 1024 * 1024u);
    espera_numeros(c, 400000);
}

TEST(iv_comdat_adelanto, lo_que_crece_mas_se_pide_en_pocas_veces)
{
    contenedor c = para_grabar();
    {
        heap_que cambio(apunta);
        std::vector<uint8_t> datos(60000);
        while (c->ocupado < 300u << 20)
            iv_comdat_graba_buffer(c.get(), "b", datos.data(), 60000);
    }

    EXPECT_LE(s_pedidos.size(), 8u);
    for (size_t n = 2; n < s_pedidos.size(); n++)
        EXPECT_LE(s_pedidos[n] - s_pedidos[n - 1], 256u << 20) << "it asks for too much at once";
}

// One large value in a fresh container: nothing beyond it is asked for.
TEST(iv_comdat_adelanto, un_solo_valor_grande_pide_lo_justo)
{
    contenedor c = para_grabar();
    std::vector<uint8_t> datos(4u << 20);
    {
        heap_que cambio(apunta);
        iv_comdat_graba_buffer(c.get(), "b", datos.data(), static_cast<uint32_t>(datos.size()));
    }

    EXPECT_EQ(s_pedidos, std::vector<SIZE_T>{(4u << 20) + 1024});
    EXPECT_EQ(c->tam, (4u << 20) + 1024);
}

TEST(iv_comdat_adelanto, donde_no_hay_tanto_se_pide_lo_de_la_regla_sin_informe)
{
    contenedor c = para_grabar();
    {
        heap_que cambio(niega_mucho);
        graba_numeros(c.get(), 0, NUM_HASTA_LIMITE);
        ASSERT_EQ(s_pedidos.size(), 65u);
        EXPECT_EQ(s_pedidos[63], PRIMERO);
        EXPECT_EQ(s_pedidos[64], LIMITE + 1024);
        EXPECT_EQ(HeapSize(s_LocalHeap, 0, c->buffer), LIMITE + 1024);
        graba_numeros(c.get(), NUM_HASTA_LIMITE, NUM_HASTA_LIMITE + 200);
    }

    // It is not asked again.
    EXPECT_EQ(std::vector<SIZE_T>(s_pedidos.begin() + 65, s_pedidos.end()),
              (std::vector<SIZE_T>{LIMITE + 2048, LIMITE + 3072}));
    espera_numeros(c, NUM_HASTA_LIMITE + 200);
}

TEST(iv_comdat_adelanto, donde_el_heap_lanza_se_pide_lo_de_la_regla)
{
    contenedor c = para_grabar();
    {
        heap_que cambio(lanza_por_mucho);
        graba_numeros(c.get(), 0, NUM_HASTA_LIMITE);
    }

    ASSERT_EQ(s_pedidos.size(), 65u);
    EXPECT_EQ(s_pedidos[64], LIMITE + 1024);
    espera_numeros(c, NUM_HASTA_LIMITE);
}

TEST(iv_comdat_adelanto, donde_no_hay_ni_lo_de_la_regla_se_informa_una_vez_y_se_retira)
{
    contenedor c = para_grabar();
    uint32_t num = (LIMITE - 4) / 13; // the next does not fit
    graba_numeros(c.get(), 0, num);
    ASSERT_EQ(c->tam, LIMITE);
    bytes antes = contenido(c);
    {
        heap_que cambio(niega_todo);
        iv_comdat_graba_ulong(c.get(), "numero", 1);
    }

    EXPECT_EQ(s_pedidos, (std::vector<SIZE_T>{PRIMERO, LIMITE + 1024}));
    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_EQ(c->tam, LIMITE);
    EXPECT_TRUE(bytes_iguales(antes, contenido(c)));
    graba_numeros(c.get(), num, num + 100);
    espera_numeros(c, num + 100);
}

TEST(iv_comdat_adelanto, donde_el_heap_lanza_por_todo_la_excepcion_pasa_y_el_valor_se_retira)
{
    contenedor c = para_grabar();
    uint32_t num = (LIMITE - 4) / 13;
    graba_numeros(c.get(), 0, num);
    bytes antes = contenido(c);
    {
        heap_que cambio(lanza_por_todo);
        EXPECT_EQ(graba_y_atrapa(c.get()), static_cast<DWORD>(STATUS_NO_MEMORY));
    }

    EXPECT_EQ(s_pedidos, (std::vector<SIZE_T>{PRIMERO, LIMITE + 1024}));
    EXPECT_EQ(c->tam, LIMITE);
    EXPECT_TRUE(bytes_iguales(antes, contenido(c)));
    graba_numeros(c.get(), num, num + 100);
    espera_numeros(c, num + 100);
}

// The trace of a refused reservation is that of a growth by the rule.
TEST(iv_comdat_adelanto, lo_negado_no_se_ve_en_la_traza)
{
    activa_traza();
    contenedor c = para_grabar();
    uint32_t num = (LIMITE - 4) / 13;
    graba_numeros(c.get(), 0, num);
    captura_traza traza;
    {
        heap_que cambio(niega_mucho);
        iv_comdat_graba_ulong(c.get(), "numero", 1);
    }
    const std::string texto = traza.texto();
    EXPECT_EQ(veces(texto, "Antes de i_realloc: "), 1u);
    EXPECT_EQ(veces(texto, "] i_realloc("), 1u);
    EXPECT_EQ(veces(texto, ", 66560) -> memlocal = "), 1u);
    EXPECT_EQ(veces(texto, "Despues de i_realloc: "), 1u);
}

// A text that runs into a page that cannot be read counts as empty: its first character is written, and its NUL is not.
TEST(iv_comdat_adelanto, texto_que_no_se_puede_leer_hasta_el_final_cuenta_como_vacio)
{
    char *pagina = static_cast<char *>(VirtualAlloc(nullptr, 8192, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    memset(pagina, 'x', 4096);
    DWORD antes;
    ASSERT_TRUE(VirtualProtect(pagina + 4096, 4096, PAGE_NOACCESS, &antes));
    const char *texto = pagina + 4090;
    for (uint32_t relleno : {100u, 1000u}) { // room for one pass over the value, and none
        contenedor c = para_grabar();
        std::vector<uint8_t> datos(relleno - 12);
        iv_comdat_graba_buffer(c.get(), "b", datos.data(), static_cast<uint32_t>(datos.size()));
        bytes esperado = contenido(c);
        esperado[0] = 3;
        iv_comdat_graba_ulong(c.get(), texto, 0x01020304);
        esperado.insert(esperado.end(), {3, 1, 'x', 4, 3, 2, 1});
        iv_comdat_graba_cadena_ansi(c.get(), "t", texto);
        esperado.insert(esperado.end(), {6, 2, 't', 0, 1, 0, 0, 0, 'x'});
        EXPECT_TRUE(bytes_iguales(esperado, contenido(c))) << relleno;
        pagina[4095] = '\0'; // the last byte that can be read
        iv_comdat_graba_ulong(c.get(), texto, 1);
        esperado[0] = 4;
        esperado.insert(esperado.end(), {3, 6, 'x', 'x', 'x', 'x', 'x', 0, 1, 0, 0, 0});
        EXPECT_TRUE(bytes_iguales(esperado, contenido(c))) << relleno;
        pagina[4095] = 'x';
    }
    VirtualFree(pagina, 0, MEM_RELEASE);
}

// A name that cannot be taken in one pass near the end of what the heap has given.
TEST(iv_comdat_adelanto, cualquier_nombre_se_graba_a_cualquier_distancia_del_final)
{
    for (uint32_t longitud : {0u, 1u, 7u, 8u, 100u, 253u, 254u}) {
        const std::string nombre(longitud, 'x');
        for (uint32_t hueco = 0; hueco < 300; hueco += 1) {
            contenedor c = para_grabar();
            std::vector<uint8_t> relleno(1024 - 4 - 8 - hueco);
            iv_comdat_graba_buffer(c.get(), "b", relleno.data(), static_cast<uint32_t>(relleno.size()));
            regla r;
            r.graba("b", {4, static_cast<uint32_t>(relleno.size())});
            iv_comdat_graba_ulong(c.get(), nombre.c_str(), 0xDEADBEEF);
            r.graba(nombre, {4});

            ASSERT_EQ(c->ocupado, r.ocupado) << longitud << " " << hueco;
            ASSERT_EQ(c->tam, r.tam) << longitud << " " << hueco;
            bytes b = contenido(c);
            bytes esperado = {3, static_cast<uint8_t>(longitud + 1)};
            esperado.insert(esperado.end(), nombre.begin(), nombre.end());
            esperado.insert(esperado.end(), {0, 0xEF, 0xBE, 0xAD, 0xDE});
            ASSERT_TRUE(bytes_iguales(esperado, bytes(b.end() - esperado.size(), b.end()))) << longitud;
        }
    }
}
