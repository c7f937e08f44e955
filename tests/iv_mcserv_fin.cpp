// Ending a server from another program.
#include "iv_mcserv_apoyo.h"

#include "comun/monton.h"

TEST_F(iv_mcserv_canal, servidor_con_ventana_termina_por_su_mensaje)
{
    espia oido;
    captura_traza traza;
    canal.pon_u64(C_HWND_SERVIDOR, 0x1122334455667788);
    canal.pon_u32(C_MSG, 0xC123);
    std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);

    iv_mcserv_termina_servidor(servicio);

    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x1122334455667788, 0xC123, 1, 0}}));
    EXPECT_TRUE(oido.enviados.empty());
    EXPECT_TRUE(bytes_iguales(antes, canal.bytes(0, TAM_CANAL)));
    EXPECT_EQ(traza.texto().find("COMANDO"), std::string::npos); // no command is run
}

TEST_F(iv_mcserv_orden, servidor_sin_ventana_termina_por_la_orden_1)
{
    registra_con_servidor();
    canal->pon_texto_u(C_CLIENTE_64, L"anterior");
    espia oido;
    uint32_t id_comando = 0, id_entrada = 9, estado = 0;
    std::wstring texto = L"?";
    oido.al_preguntar_activa = [&] {
        id_comando = canal->u32(C_ID_COMANDO);
        id_entrada = canal->u32(C_ID_ENTRADA);
        estado = canal->u32(C_ESTADO_COMANDO);
        texto = canal->texto_u(C_CLIENTE_64, 64);
        canal->pon_u16(C_TERMINADO, 1); // the server has answered it
    };
    captura_traza traza;

    iv_mcserv_termina_servidor(servicio);

    EXPECT_EQ(id_comando, 1u);
    EXPECT_EQ(id_entrada, 0u);
    EXPECT_EQ(estado, 1u);
    EXPECT_EQ(texto, L"");
    EXPECT_EQ(oido.orden, "A ");
    EXPECT_TRUE(oido.publicados.empty());
    std::string registros = enmascara_tiempos(traza.texto_propio());
    EXPECT_NE(registros.find(apertura_inicio(servicio, 1, 0) + "\n"), std::string::npos) << registros;
    EXPECT_NE(registros.find(apertura_fin(servicio, 1) + "    ERROR\n"), std::string::npos) << registros;
    comprueba_libre();
}

TEST_F(iv_mcserv_canal, quien_no_es_cliente_no_termina_un_servidor_sin_ventana)
{
    espia oido;
    captura_traza traza;
    canal.pon_u32(C_ESTADO_SERVIDOR, 1);
    std::vector<uint8_t> antes = canal.bytes(0, TAM_CANAL);

    iv_mcserv_termina_servidor(servicio);

    EXPECT_TRUE(bytes_iguales(antes, canal.bytes(0, TAM_CANAL)));
    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_NE(traza.texto().find(" INICIO COMANDO "), std::string::npos);
    EXPECT_EQ(traza.texto().find(" FIN COMANDO "), std::string::npos);
}

TEST_F(iv_mcserv_canal, terminar_un_servidor_sin_canal_no_hace_nada)
{
    espia oido;
    captura_traza traza;
    const char *nadie = nombre_unico("Nadie");
    const char *corto = nombre_unico("Corto");
    bloque_crudo bloque_corto(nombre_canal(corto).c_str(), 2377);
    bloque_corto.pon_u64(C_HWND_SERVIDOR, 77);

    iv_mcserv_termina_servidor(nadie);
    iv_mcserv_termina_servidor(corto);

    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_EQ(traza.texto().find("COMANDO"), std::string::npos);
    EXPECT_FALSE(existe_bloque(nombre_canal(nadie).c_str()));
}

TEST_F(iv_mcserv_canal, servidor_con_ventana_y_sin_mensaje_recibe_el_0)
{
    espia oido;
    captura_traza traza;
    canal.pon_u64(C_HWND_SERVIDOR, 77);

    iv_mcserv_termina_servidor(servicio);

    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{77, 0, 1, 0}}));
    EXPECT_EQ(traza.texto().find("COMANDO"), std::string::npos);
}

// The window decides who is posted to, the message how a command goes.
TEST_F(iv_mcserv_orden, servidor_con_mensaje_y_sin_ventana_termina_por_la_orden_1)
{
    registra_con_ventana();
    canal->pon_u64(C_HWND_SERVIDOR, 0);
    for (size_t campo : {C_CLIENTE_64, C_CLIENTE_256, C_CLIENTE2_256})
        canal->pon_texto_u(campo, L"anterior");
    espia oido;
    oido.al_enviar = [&](const mensaje &) -> LRESULT {
        for (size_t campo : {C_CLIENTE_64, C_CLIENTE_256, C_CLIENTE2_256})
            EXPECT_EQ(canal->texto_u(campo, 64), L"") << campo;
        return 1;
    };

    iv_mcserv_termina_servidor(servicio);

    EXPECT_EQ(oido.enviados, (std::vector<mensaje>{{0, 0xC123, 1, 0}}));
    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_EQ(oido.orden, "A S ");
    comprueba_libre();
}

// The channel is closed again; what finding an existing block leaves open is one handle.
TEST_F(iv_mcserv_canal, terminar_deja_un_manejador_y_ningun_bloque_en_el_monton)
{
    espia oido;
    canal.pon_u64(C_HWND_SERVIDOR, 77);
    iv_mcserv_termina_servidor(servicio);
    uint32_t manejadores = cuenta_manejadores(), bloques = bloques_vivos();

    for (int n = 0; n < 3; n++)
        iv_mcserv_termina_servidor(servicio);

    EXPECT_EQ(cuenta_manejadores(), manejadores + 3);
    EXPECT_EQ(bloques_vivos(), bloques);
}
