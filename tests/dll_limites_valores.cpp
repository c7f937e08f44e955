// Names of values of every length, as the process at the other end reads them: past 254 characters the length that the
// content states is not the name's.
#include "dll_limites_datos.h"

using limites_valores = conversacion;

static const char *const LARGO = "len < 256";

// What a value is read as. A name of 255 counts as one of no bytes and of 256 as one of a byte: what follows it is
// taken for the value.
struct nombre_de_valor {
    size_t largo;
    uint8_t byte_de_largo;
    uint32_t leido;
};

static const nombre_de_valor NOMBRES[] = {
    {0, 1, 0x12345678},   {1, 2, 0x12345678},   {253, 254, 0x12345678}, {254, 255, 0x12345678},
    {255, 0, 0x6e6e6e6e}, {256, 1, 0x6e6e6e6e}, {300, 45, 0x6e6e6e6e},
};

// The role that reads answers what it saw, and the same value under the same name.
static int32_t lee_nombre(anfitrion_peticion *p)
{
    std::wstring nombre = de_utf8(ivrexa_nombre_valor(p->entrada, 0));
    std::string leido = std::to_string(ivrexa_numero_valores(p->entrada)) + " " + std::to_string(nombre.size()) + " " +
                        std::to_string(ivrexa_tipoDato(p->entrada, 0)) + " " +
                        std::to_string(ivrexa_dame_ulong(p->entrada, 0)) + " " +
                        std::to_string(ivrexa_tipoDato(p->entrada, 1));
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 0, L"", de_utf8(leido).c_str(), nombre.c_str());
    return 1;
}

PAPEL(servidor_de_nombres)
{
    anfitrion_yo.otros = lee_nombre;
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

static std::vector<uint8_t> contenido_de(const nombre_de_valor &n)
{
    std::vector<uint8_t> bytes = de_hex("01000000 03");
    bytes.push_back(n.byte_de_largo);
    bytes.insert(bytes.end(), n.largo, 'n');
    for (uint8_t byte : de_hex("00 78563412"))
        bytes.push_back(byte);
    return bytes;
}

TEST_F(limites_valores, de_cada_largo_se_graban_enteros_y_se_leen_hasta_254)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_papel("servidor_de_nombres", {"ventana", servicio});
    registra(servicio);
    for (const nombre_de_valor &n : NOMBRES) {
        SCOPED_TRACE(n.largo);
        contenedor c = entrada_de(servicio);
        ivrexa_graba_ulong(c.get(), std::string(n.largo, 'n').c_str(), 0x12345678);
        if (n.largo > 254)
            EXPECT_INFORME("iv_comdat", LARGO);
        EXPECT_SIN_INFORMES();
        uint32_t id = ivrexa_guarda_datos(c.get());
        std::vector<uint8_t> esperado = contenido_de(n);
        bloque_crudo bloque(nombre_datos(servicio, id).c_str());
        EXPECT_EQ(bloque.cabecera(), esperado.size());
        EXPECT_TRUE(bytes_iguales(esperado, bloque.bytes(0, esperado.size())));

        // The name itself is read to its end, wherever its length says that this is. Nothing is reported there.
        respuesta r = ejecuta(servicio, 200, id);
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(a_utf8(r.t2), "1 " + std::to_string(n.largo) + " 3 " + std::to_string(n.leido) + " 0");
        EXPECT_EQ(a_utf8(r.t3), std::string(std::min<size_t>(n.largo, 255), 'n'));
    }
    acaba(servidor);
}

// What stands behind such a value is lost: its second value is read out of the name of the first.
TEST_F(limites_valores, detras_de_uno_de_255_se_lee_lo_que_no_es)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_papel("servidor_de_nombres", {"ventana", servicio});
    registra(servicio);
    contenedor c = entrada_de(servicio);
    ivrexa_graba_ulong(c.get(), std::string(255, 'n').c_str(), 0x12345678);
    EXPECT_INFORME("iv_comdat", LARGO);
    ivrexa_graba_byte(c.get(), "z", 7);
    EXPECT_SIN_INFORMES();
    respuesta r = ejecuta(servicio, 200, ivrexa_guarda_datos(c.get()));
    EXPECT_EQ(a_utf8(r.t2), "2 255 3 " + std::to_string(0x6e6e6e6e) + " " + std::to_string('n'));
    acaba(servidor);
}

// Three more, and the reader comes to the end of the content: that it reports.
TEST_F(limites_valores, lectura_que_se_sale_por_un_nombre_de_255_se_informa_en_quien_lee)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_papel("servidor_de_nombres", {"ventana", servicio});
    registra(servicio);
    contenedor c = entrada_de(servicio);
    ivrexa_graba_ulong(c.get(), std::string(255, 'n').c_str(), 0x12345678);
    EXPECT_INFORME("iv_comdat", LARGO);
    for (int n = 0; n < 3; n++)
        ivrexa_graba_byte(c.get(), "z", 7);
    respuesta r = ejecuta(servicio, 200, ivrexa_guarda_datos(c.get()));
    EXPECT_EQ(a_utf8(r.t2), "4 255 3 " + std::to_string(0x6e6e6e6e) + " " + std::to_string('n'));
    EXPECT_INFORME_DE(servidor, "iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
    acaba(servidor);
}
