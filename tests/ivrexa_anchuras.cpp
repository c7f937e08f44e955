// Widths at the interface. A caller fills only as much of a register or of a place on the stack as an
// argument is wide; what the rest holds is chance. These tests put rubbish there, and beside every result
// that is written through a pointer.
#include "iv_reg_apoyo.h"

#include "iv_comdat.h"
#include "iv_mcserv.h"

namespace {

using palabra = uint64_t;

const palabra BASURA = 0xA5A5A5A5A5A5A5A5;
const palabra ENTERO = 0xFEDCBA9876543210; // where all 64 bits count

palabra u8(uint8_t valor)
{
    return (BASURA << 8) | valor;
}

palabra u16(uint16_t valor)
{
    return (BASURA << 16) | valor;
}

palabra u32(uint32_t valor)
{
    return (BASURA << 32) | valor;
}

palabra p(const void *puntero)
{
    return reinterpret_cast<palabra>(puntero);
}

template <typename funcion>
palabra de_funcion(funcion *f)
{
    return reinterpret_cast<palabra>(f);
}

// Calls an export as a caller that knows of no narrower type than 64 bits.
template <typename funcion, typename... argumentos>
palabra llama(funcion *f, argumentos... args)
{
    void *volatile sitio = reinterpret_cast<void *>(f);
    return reinterpret_cast<palabra (*)(decltype(palabra(args))...)>(sitio)(args...);
}

// A truth value is 16 bits wide, with a sign.
int16_t verdad(palabra resultado)
{
    return static_cast<int16_t>(resultado);
}

// A place for a result, with what must stay as it is on both sides.
template <typename tipo>
struct hueco {
    tipo antes, valor, detras;

    hueco() { memset(static_cast<void *>(this), 0xA5, sizeof *this); }
    bool solo_vale(tipo esperado) const
    {
        hueco intacto;
        return antes == intacto.antes && valor == esperado && detras == intacto.detras;
    }
};

// A text buffer of the caller's with as much behind it as would show a character too many.
struct buffer_texto {
    wchar_t texto[260];

    buffer_texto() { wmemset(texto, L'#', 260); }
    bool es(const std::wstring &esperado, size_t limite) const { return esperado == texto && texto[limite] == L'#'; }
};

std::vector<uint8_t> contenido(const comdat *c)
{
    return std::vector<uint8_t>(c->buffer, c->buffer + c->ocupado);
}

struct ivrexa_anchuras : con_sesion {
    const char *m_servicio = nombre_unico("Calc");
};

} // namespace

TEST_F(ivrexa_anchuras, de_lo_que_se_graba)
{
    comdat *c = ivrexa_crea_datos_comando_entrada(m_servicio);
    const char *ansi[] = {"x"};
    const wchar_t *ancho[] = {L"x"};
    llama(ivrexa_graba_byte, p(c), p("a"), u8(0xFE));
    llama(ivrexa_graba_ushort, p(c), p("b"), u16(0xFEDC));
    llama(ivrexa_graba_ulong, p(c), p("c"), u32(0xFEDCBA98));
    llama(ivrexa_graba_hwnd, p(c), p("d"), ENTERO);
    llama(ivrexa_graba_buffer, p(c), p("e"), p("\1\2\3"), u32(2));
    llama(ivrexa_graba_arr_cadenas_ansi, p(c), p("f"), p(ansi), u32(1));
    llama(ivrexa_graba_arr_cadenas_unicode, p(c), p("g"), p(ancho), u32(1));
    llama(ivrexa_graba_buffer, p(c), p("h"), p(nullptr), u32(0)); // a size of 0 needs no buffer
    EXPECT_EQ(num_informes(), 0u);

    EXPECT_TRUE(bytes_iguales(de_hex("08000000"
                                     "01 02 6100 FE  02 02 6200 DCFE  03 02 6300 98BADCFE"
                                     "08 02 6400 1032547698BADCFE  05 02 6500 02000000 0102"
                                     "09 02 6600 01000000 39000000 02000000 7800"
                                     "0A 02 6700 47000000 04000000 7800 0000  05 02 6800 00000000"),
                              contenido(c)));
    EXPECT_EQ(static_cast<uint32_t>(llama(ivrexa_numero_valores, p(c))), 8u);
    ivrexa_destruye_datos_comando(c);
}

TEST_F(ivrexa_anchuras, de_lo_que_se_lee)
{
    bloque_crudo datos =
        crea_datos(m_servicio, 107,
                   de_hex("09000000"
                          "01 02 6100 FE  02 02 6200 DCFE  03 02 6300 98BADCFE  08 02 6400 1032547698BADCFE"
                          "04 02 6500 000000000000F8BF  06 02 6600 02000000 7800  07 02 6700 04000000 7800 0000"
                          "05 02 6800 02000000 0102  09 02 6900 01000000 00000000 02000000 7800"));
    comdat *c = reinterpret_cast<comdat *>(llama(ivrexa_lee_datos, p(m_servicio), u32(107), u16(1)));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->id_bloque_MCCom, 107u);
    EXPECT_EQ(c->es_entrada, 1);

    EXPECT_EQ(static_cast<uint32_t>(llama(ivrexa_numero_valores, p(c))), 9u);
    EXPECT_STREQ(reinterpret_cast<const char *>(llama(ivrexa_nombre_valor, p(c), u32(8))), "i");
    EXPECT_EQ(static_cast<uint32_t>(llama(ivrexa_tipoDato, p(c), u32(4))), 4u);
    EXPECT_EQ(static_cast<uint8_t>(llama(ivrexa_dame_byte, p(c), u32(0))), 0xFEu);
    EXPECT_EQ(static_cast<uint16_t>(llama(ivrexa_dame_ushort, p(c), u32(1))), 0xFEDCu);
    EXPECT_EQ(static_cast<uint32_t>(llama(ivrexa_dame_ulong, p(c), u32(2))), 0xFEDCBA98u);
    EXPECT_EQ(llama(ivrexa_dame_hwnd, p(c), u32(3)), ENTERO);
    void *volatile dame_double = reinterpret_cast<void *>(ivrexa_dame_double);
    EXPECT_EQ(reinterpret_cast<double (*)(palabra, palabra)>(dame_double)(p(c), u32(4)), -1.5);
    EXPECT_STREQ(reinterpret_cast<const char *>(llama(ivrexa_dame_cadena_ansi, p(c), u32(5))), "x");
    EXPECT_NE(llama(ivrexa_dame_cadena_unicode, p(c), u32(6)), 0u);
    hueco<uint32_t> tam, num, num_ancho;
    EXPECT_NE(llama(ivrexa_dame_buffer, p(c), u32(7), p(&tam.valor)), 0u);
    EXPECT_TRUE(tam.solo_vale(2));
    EXPECT_NE(llama(ivrexa_dame_arr_cadenas_ansi, p(c), u32(8), p(&num.valor)), 0u);
    EXPECT_TRUE(num.solo_vale(1));
    EXPECT_EQ(llama(ivrexa_dame_arr_cadenas_unicode, p(c), u32(8), p(&num_ancho.valor)), 0u);
    EXPECT_TRUE(num_ancho.solo_vale(0));
    EXPECT_EQ(num_informes(), 0u);
    ivrexa_destruye_datos_comando(c);
}

// Only the lowest 16 bits of the flag say what is read; bits above are no part of it.
TEST_F(ivrexa_anchuras, de_la_marca_de_entrada)
{
    bloque_crudo datos = crea_datos(m_servicio, 107);
    const struct {
        palabra marca;
        int16_t es_entrada;
    } casos[] = {{0x10000, 0}, {0x10001, 1}, {u16(0), 0}, {u16(0xFFFF), -1}};
    for (const auto &caso : casos) {
        comdat *c = reinterpret_cast<comdat *>(llama(ivrexa_lee_datos, p(m_servicio), u32(107), caso.marca));
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(c->es_entrada, caso.es_entrada);
        ivrexa_destruye_datos_comando(c);
    }
}

// Window, version, the host's datum and the function, in each way to offer a service.
TEST_F(ivrexa_anchuras, de_lo_que_un_servidor_registra)
{
    ventana_cambiada cambiada;
    cambiada->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };
    bloque_crudo mcb = abre_registro();
    const char *otro = nombre_unico("Otro");
    bloque_crudo canal = abre_canal(m_servicio), canal_otro = abre_canal(otro);

    llama(ivrexa_registra_servidor, p("C:\\p.exe"), ENTERO, p(m_servicio), u16(0xFEDC), ENTERO,
          de_funcion(funcion_comando));
    llama(ivrexa_anyade_servicio, p(otro), u16(0x1234), ENTERO + 1, de_funcion(otra_funcion));
    EXPECT_EQ(prestado(0).puntero(14), reinterpret_cast<void *>(ENTERO));
    EXPECT_EQ(prestado(0).puntero(22), reinterpret_cast<void *>(funcion_comando));
    EXPECT_EQ(prestado(1).puntero(14), reinterpret_cast<void *>(ENTERO + 1));
    EXPECT_EQ(prestado(1).puntero(22), reinterpret_cast<void *>(otra_funcion));
    ivrexa_terminado_registro();

    EXPECT_EQ(mcb.u64(en_programa(0, 256)), ENTERO);
    EXPECT_EQ(canal.u64(16), ENTERO);
    hueco<uint16_t> version, version_otro;
    EXPECT_EQ(verdad(llama(ivrexa_hay_servicio_registrado, p(m_servicio), p(&version.valor))), 1);
    EXPECT_TRUE(version.solo_vale(0xFEDC));
    EXPECT_EQ(verdad(llama(ivrexa_hay_servicio_registrado, p(otro), p(&version_otro.valor))), 1);
    EXPECT_TRUE(version_otro.solo_vale(0x1234));
    EXPECT_EQ(static_cast<uint32_t>(llama(ivrexa_dame_id_MSG_servicio, p(m_servicio))), canal.u32(24));
}

TEST_F(ivrexa_anchuras, de_lo_que_un_servidor_net_registra)
{
    bloque_crudo mcb = abre_registro();
    const char *otro = nombre_unico("Otro");
    llama(ivrexa_registra_servidor_net, p("C:\\p.exe"), ENTERO, p(m_servicio), u16(0xFEDC));
    llama(ivrexa_anyade_servicio_net, p(otro), u16(0x1234));
    EXPECT_INFORME("iv_reg", "procesaComandoExterno != NULL");
    ivrexa_terminado_registro();
    EXPECT_EQ(mcb.u64(en_programa(0, 256)), ENTERO);
    for (uint32_t i : {0u, 1u}) {
        EXPECT_EQ(prestado(i).puntero(14), nullptr);
        EXPECT_EQ(prestado(i).puntero(22), nullptr);
    }
    char nombre[80];
    memset(nombre, '#', sizeof nombre);
    hueco<uint16_t> version;
    palabra hay = llama(ivrexa_hay_servicio_registrado_empiece_por, p(otro), p(nombre), p(&version.valor));
    EXPECT_EQ(verdad(hay), 1);
    EXPECT_TRUE(version.solo_vale(0x1234));
    EXPECT_STREQ(nombre, otro);
    EXPECT_EQ(nombre[64], '#');
}

TEST_F(ivrexa_anchuras, de_un_comando_y_de_su_respuesta)
{
    sirve(m_servicio, ventana());
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), m_servicio);
    bloque_crudo canal = abre_canal(m_servicio), datos = crea_datos(m_servicio, 107);
    const std::wstring corto(63, L'c'), largo(255, L'l');
    s_trabajo = [&](uint32_t, comando *contexto) {
        EXPECT_NE(contexto->datos_entrada, nullptr);
        EXPECT_EQ(canal.u32(1202), 4321u);
        hueco<uint32_t> id;
        buffer_texto b64, b256, b2_256;
        EXPECT_EQ(verdad(llama(ivrexa_get_datos_entrada_comando, p(m_servicio), u32(4321), p(&id.valor), p(b64.texto),
                               p(b256.texto), p(b2_256.texto))),
                  1);
        EXPECT_TRUE(id.solo_vale(0));
        EXPECT_TRUE(b64.es(corto, 64) && b256.es(largo, 256) && b2_256.es(largo, 256));
        EXPECT_EQ(verdad(llama(ivrexa_set_datos_salida_comando, p(m_servicio), u32(4321), u32(0xFEDCBA98),
                               p(corto.c_str()), p(largo.c_str()), p(largo.c_str()))),
                  1);
        return 1;
    };
    hueco<uint32_t> id;
    buffer_texto b64, b256, b2_256;
    EXPECT_EQ(static_cast<uint32_t>(llama(ivrexa_ejecuta_comando, p(m_servicio), u32(4321), u16(0), u32(107),
                                          p(corto.c_str()), p(largo.c_str()), p(largo.c_str()), p(&id.valor),
                                          p(b64.texto), p(b256.texto), p(b2_256.texto))),
              1u);
    EXPECT_EQ(num_llamadas(), 1u);
    EXPECT_TRUE(id.solo_vale(0xFEDCBA98));
    EXPECT_TRUE(b64.es(corto, 64) && b256.es(largo, 256) && b2_256.es(largo, 256));
}

// Of the options only bits 2 and 4 of 16 count.
TEST_F(ivrexa_anchuras, de_las_opciones_de_ventana)
{
    static uint32_t s_primer_plano;
    sirve(m_servicio, ventana());
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), m_servicio);
    ventana_cambiada cambiada;
    cambiada->SetForegroundWindow = [](HWND) -> BOOL {
        s_primer_plano++;
        return TRUE;
    };
    const struct {
        palabra opciones;
        uint32_t veces;
    } casos[] = {{u16(0), 0}, {u16(2), 1}, {u16(4), 1}, {u16(6), 2}, {u16(0xFFF9), 0}, {0x60000, 0}};
    for (const auto &caso : casos) {
        s_primer_plano = 0;
        llama(ivrexa_ejecuta_comando, p(m_servicio), u32(100), caso.opciones, u32(0), p(nullptr), p(nullptr),
              p(nullptr), p(nullptr), p(nullptr), p(nullptr), p(nullptr));
        EXPECT_EQ(s_primer_plano, caso.veces) << std::hex << caso.opciones;
    }
}

TEST_F(ivrexa_anchuras, de_los_documentos)
{
    llama(ivrexa_registra_cliente_de_servicio, p("C:\\p.exe"), p(nullptr), p(m_servicio));
    palabra id = llama(ivrexa_abierto_documento_de_cliente, p(m_servicio), p(L"uno"), u32(0));
    EXPECT_EQ(static_cast<uint32_t>(id), 200u);
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    id = llama(ivrexa_abierto_documento_de_cliente, p(m_servicio), p(L"dos"), u32(0xFEDCBA98));
    EXPECT_EQ(static_cast<uint32_t>(id), 200u);
    EXPECT_EQ(documento_en(0).u32(8), 0xFEDCBA98u);
    llama(ivrexa_cerrado_documento_de_cliente, p(L"dos"), u32(0));
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    llama(ivrexa_cerrado_documento_de_cliente, p(L"dos"), u32(0xFEDCBA98));
    EXPECT_EQ(documento_en(0).u32(8), 0u);
    EXPECT_EQ(num_informes(), 0u);
}

// The mailbox is emptied by hand, as a client's receipt would let the server do.
TEST_F(ivrexa_anchuras, de_las_notificaciones)
{
    sirve(m_servicio, ventana());
    bloque_crudo canal = abre_canal(m_servicio);
    hilo avisa(
        [&] { llama(ivrexa_notifica_a_cliente, p(m_servicio), u32(0xFEDCBA98), u32(0x12345678), u32(0x87654321)); });
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(2374) == 0x87654321; }, 5000));
    EXPECT_EQ(canal.u32(2362), 1u);
    EXPECT_EQ(canal.u32(2366), 0xFEDCBA98u);
    EXPECT_EQ(canal.u32(2370), 0x12345678u);
    canal.pon_u32(2362, 3);
    EXPECT_TRUE(avisa.acaba(5000));
    cierra();

    bloque_crudo otro_canal = abre_canal(m_servicio);
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, m_servicio);
    otro_canal.pon_u32(2366, 0xFEDCBA98);
    otro_canal.pon_u32(2370, 0x12345678);
    otro_canal.pon_u32(2374, 0x87654321);
    palabra id = llama(ivrexa_obtener_id_datos_notificacion, p(m_servicio), u32(0xFEDCBA98), u32(0x12345678));
    EXPECT_EQ(static_cast<uint32_t>(id), 0x87654321u);
}

TEST_F(ivrexa_anchuras, del_identificador_de_lo_guardado)
{
    bloque_crudo canal = abre_canal(m_servicio);
    canal.pon_u32(12, 0xFEDCBA98);
    comdat *c = ivrexa_crea_datos_comando_salida(m_servicio);
    EXPECT_EQ(static_cast<uint32_t>(llama(ivrexa_guarda_datos, p(c))), 0xFEDCBA98u);
    EXPECT_EQ(canal.u32(12), 0xFEDCBA99u);
    EXPECT_TRUE(existen_datos(m_servicio, 0xFEDCBA98));
    ivrexa_destruye_datos_comando(c);
}
