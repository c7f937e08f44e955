// Blocks of command data: a container stored, and a command's input handed to its server.
#include "iv_mcserv_apoyo.h"

#include "comun/monton.h"

namespace {

const char *const HEX_UN_ULONG = "01000000 03 02 6e00 2a000000"; // one value: ulong "n" = 42

class iv_mcserv_datos : public iv_mcserv_canal {
protected:
    comdat *crea_datos(uint32_t valor = 42)
    {
        comdat *datos = iv_comdat_crea_para_grabar(servicio, CIERTO);
        iv_comdat_graba_ulong(datos, "n", valor);
        return datos;
    }

    comdat *lee(uint32_t id) { return iv_mcserv_lee_datos_entrada(servicio, bloque, id); }
};

} // namespace

TEST_F(iv_mcserv_datos, guardar_crea_el_bloque_con_el_contenido_justo)
{
    comdat *datos = crea_datos();

    EXPECT_EQ(iv_mcserv_guarda_datos(datos, 4294967295u), 1);

    bloque_crudo guardado((nombre_canal(servicio) + "_Com__comdat4294967295").c_str());
    EXPECT_EQ(guardado.cabecera(), 12u);
    EXPECT_TRUE(bytes_iguales(de_hex(HEX_UN_ULONG), guardado.bytes(0, 12)));
    EXPECT_EQ(datos->id_bloque_MCCom, 4294967295u);
    EXPECT_NE(datos->shared_MCCom, nullptr);
    iv_comdat_destruye(datos);
}

TEST_F(iv_mcserv_datos, bloque_vivo_demasiado_corto_no_se_escribe)
{
    bloque_crudo corto(nombre_MCCom(servicio, 100).c_str(), 11);
    corto.pon_bytes(0, std::vector<uint8_t>(64, 0xEE));
    comdat *datos = crea_datos();

    EXPECT_EQ(iv_mcserv_guarda_datos(datos, 100), 0);

    EXPECT_INFORME("iv_comdat", "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_EQ(corto.cabecera(), 11u);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(64, 0xEE), corto.bytes(0, 64)));
    EXPECT_EQ(datos->shared_MCCom, nullptr);
    iv_comdat_destruye(datos);
}

TEST_F(iv_mcserv_datos, entrada_se_entrega_una_sola_vez)
{
    comdat *datos = crea_datos();
    iv_mcserv_guarda_datos(datos, 100);
    canal.pon_u32(C_ID_ENTRADA, 100);

    comdat *entrada = lee(100);

    ASSERT_NE(entrada, nullptr);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 0u);
    EXPECT_EQ(entrada->es_entrada, 1);
    EXPECT_EQ(iv_comdat_numero_valores(entrada), 1u);
    EXPECT_EQ(iv_comdat_dame_ulong(entrada, 0), 42u);
    EXPECT_EQ(lee(100), nullptr);
    EXPECT_INFORME("iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    EXPECT_SIN_INFORMES();
    iv_comdat_destruye(datos);
    EXPECT_TRUE(existe_bloque(nombre_MCCom(servicio, 100).c_str())); // the reader keeps it
    iv_comdat_destruye(entrada);
}

TEST_F(iv_mcserv_datos, sin_entrada_no_hay_datos_ni_informe)
{
    EXPECT_EQ(lee(0), nullptr);
}

TEST_F(iv_mcserv_datos, se_abre_el_bloque_pedido_aunque_el_canal_nombre_otro)
{
    comdat *uno = crea_datos(1);
    comdat *dos = crea_datos(2);
    iv_mcserv_guarda_datos(uno, 100);
    iv_mcserv_guarda_datos(dos, 101);
    canal.pon_u32(C_ID_ENTRADA, 100);

    comdat *entrada = lee(101);

    EXPECT_INFORME("iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    ASSERT_NE(entrada, nullptr);
    EXPECT_EQ(iv_comdat_dame_ulong(entrada, 0), 2u);
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 0u);
    iv_comdat_destruye(entrada);
    iv_comdat_destruye(uno);
    iv_comdat_destruye(dos);
}

TEST_F(iv_mcserv_datos, entrada_cuyo_bloque_falta_es_un_informe_y_no_crea_nada)
{
    canal.pon_u32(C_ID_ENTRADA, 100);

    EXPECT_EQ(lee(100), nullptr);

    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 0u);
    EXPECT_FALSE(existe_bloque(nombre_MCCom(servicio, 100).c_str()));
}

TEST_F(iv_mcserv_datos, abrir_un_bloque_se_anota_para_el_monitor)
{
    espia oido;
    iv_mcbase_acceso *acceso = iv_mcbase_abre(0, FALSO);
    bloque_crudo mcb("Ivrexa_MCB");
    pon_monitor(&mcb, true, 5);
    uint32_t ind = iv_mcbase_busca_o_anyade_servicio(0, acceso->mcbase, servicio);
    comdat *datos = crea_datos();
    iv_mcserv_guarda_datos(datos, 100);
    canal.pon_u32(C_ID_ENTRADA, 100);

    comdat *entrada = lee(100);
    iv_shared_bloque *salida = iv_mcserv_abre_MCCom(servicio, 100, FALSO);

    const uint32_t esperados[2][6] = {{ind, 0, 100, 0, 3, 1}, {ind, 0, 100, 1, 4, 1}};
    for (size_t n = 0; n < 2; n++) {
        size_t registro = 22 + (5 + n - 1) * 22;
        for (size_t i = 0; i < 5; i++)
            EXPECT_EQ(mcb.u32(registro + i * 4), esperados[n][i]) << n << " " << i;
        EXPECT_EQ(mcb.u16(registro + 20), esperados[n][5]);
    }
    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x4242, 0xC042, 0, 5}, {0x4242, 0xC042, 0, 6}}));
    quita_monitor(&mcb);
    iv_mcbase_quita_servicio(0, acceso->mcbase, servicio);
    iv_shared_destruye(&salida);
    iv_comdat_destruye(entrada);
    iv_comdat_destruye(datos);
}

// The channel has input, but not what is asked for: a block without a number, which nobody makes.
TEST_F(iv_mcserv_datos, pedir_la_0_con_entrada_en_el_canal_la_da_por_tomada)
{
    comdat *datos = crea_datos();
    iv_mcserv_guarda_datos(datos, 100);
    canal.pon_u32(C_ID_ENTRADA, 100);

    EXPECT_EQ(lee(0), nullptr);

    EXPECT_INFORME("iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(canal.u32(C_ID_ENTRADA), 0u);
    iv_comdat_destruye(datos);
}

TEST_F(iv_mcserv_datos, entrada_cuyo_bloque_falta_no_deja_manejadores)
{
    auto lee_la_que_falta = [&] {
        canal.pon_u32(C_ID_ENTRADA, 100);
        EXPECT_EQ(lee(100), nullptr);
        EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    };
    lee_la_que_falta();
    uint32_t antes = cuenta_manejadores();

    lee_la_que_falta();
    lee_la_que_falta();

    EXPECT_EQ(cuenta_manejadores(), antes);
}

TEST_F(iv_mcserv_datos, contenedor_vacio_ocupa_4_bytes)
{
    comdat *vacio = iv_comdat_crea_para_grabar(servicio, FALSO);

    EXPECT_EQ(iv_mcserv_guarda_datos(vacio, 100), 1);

    bloque_crudo guardado(nombre_MCCom(servicio, 100).c_str());
    EXPECT_EQ(guardado.cabecera(), 4u);
    EXPECT_EQ(guardado.u32(0), 0u);
    iv_comdat_destruye(vacio);
}

// The block's name lives only as long as the call.
TEST_F(iv_mcserv_datos, guardar_y_leer_no_dejan_nada_en_el_monton)
{
    auto guarda_y_lee = [&] {
        comdat *datos = crea_datos();
        iv_mcserv_guarda_datos(datos, 100);
        canal.pon_u32(C_ID_ENTRADA, 100);
        comdat *entrada = lee(100);
        EXPECT_NE(entrada, nullptr);
        iv_comdat_destruye(entrada);
        iv_comdat_destruye(datos);
    };
    guarda_y_lee();
    uint32_t vivos = bloques_vivos();

    guarda_y_lee();
    EXPECT_EQ(bloques_vivos(), vivos);

    canal.pon_u32(C_ID_ENTRADA, 101);
    EXPECT_EQ(lee(101), nullptr);
    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_EQ(bloques_vivos(), vivos);
}
