// A program dies between two writes to what all share: the registry's entries, and blocks that it has just made.
#include "muertes_partes.h"

static const caso CASOS[] = {
    {"servidor_nuevo", "programa nombre", 1, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"servidor_nuevo", "programa hwnd", 1, "REGISTRA_SERVIDOR con_funcion %", "registra"},
    {"servidor", "programa quita nombre", 1, "CIERRA", "cierra"},
    {"mudo", "programa quita es_monitor", 1, "CIERRA", "cierra"},
    {"servidor_preparado", "servicio id_programa_servidor", 1, "TERMINADO_REGISTRO", "publica"},
    {"mudo_preparado", "servicio bucle_servidor_vueltas", 1, "TERMINADO_REGISTRO", "publica"},
    {"cliente_nuevo", "servicio nombre", 1, "REGISTRA_CLIENTE otro_%", "registra_otro"},
    {"cliente_nuevo", "servicio id_programa_cliente", 1, "REGISTRA_CLIENTE %", "registra"},
    {"cliente_nuevo", "servicio id_comando_en_curso", 1, "REGISTRA_CLIENTE %", "registra"},
    {"cliente", "comando bucle_servidor_vivo_cliente", 1, "EJECUTA % 102", "empieza_comando"},
    {"cliente", "comando bucle_servidor_vivo_cliente", 2, "ECO 5", "acaba_comando"},
    {"cliente_de_mudo", "comando bucle_servidor_vivo_cliente", 1, "EJECUTA % 102", "empieza_comando"},
    {"cliente_nuevo", "bloque creado", 1, "REGISTRA_CLIENTE otro_%", "hace_un_canal"},
    {"cliente_nuevo", "bloque tam_datos", 1, "REGISTRA_CLIENTE otro_%", "hace_un_canal"},
    {"cliente", "bloque creado", 1, "GUARDA % 0", "guarda"},
    {"cliente", "bloque sin datos", 1, "ECO 5", "guarda"},
    {"servidor", "bloque creado", 1, "@ECO 5", "guarda_salida"},
    {"servidor_net", "bloque sin datos", 1, "@ECO 5", "guarda_salida"},
    {"mudo", "bloque tam_datos", 1, "@ECO 5", "guarda_salida"},
};

MUERTES_EN(CASOS)

// ---- What a death leaves for good

// The number is used up, and nobody meets what the dead program had begun.
TEST_F(con_victima, bloque_a_medias_no_se_encuentra_y_su_numero_no_vuelve)
{
    for (const char *lugar : {"datos id_bloque_MCCom_siguiente", "bloque creado", "bloque sin datos"}) {
        SCOPED_TRACE(lugar);
        pareja propios("ventana", nombre_unico("serv"));
        bloque_crudo canal(nombre_canal(propios.servicio).c_str());
        arranca_victima("sin_ventana");
        haz("REGISTRA_CLIENTE " + propios.servicio, "SOLICITADO");
        muere(lugar, 1, "GUARDA " + propios.servicio + " 0");
        EXPECT_FALSE(existe_bloque(nombre_datos(propios.servicio, 100).c_str()));
        EXPECT_EQ(canal.u32(12), 101u);
        propios.conversa();
        EXPECT_EQ(canal.u32(12), 103u) << "input and output of one command";
    }
}

// The entry of a program that died stays until a program of the same path registers, or all programs have ended.
TEST_F(con_victima, entrada_a_medias_la_toma_el_mismo_camino)
{
    for (const char *clase : {"ventana", "sin_ventana"}) {
        SCOPED_TRACE(clase);
        empieza_vecinos();
        arranca_victima(clase);
        muere("programa nombre", 1, "REGISTRA_CLIENTE " + std::string(nombre_unico("serv")));
        bloque_crudo registro("Ivrexa_MCB");
        size_t despl = despl_programa(registro, ruta_de(victima()));
        ASSERT_NE(despl, 0u);
        EXPECT_EQ(registro.u64(despl + 256), 0u);
        EXPECT_EQ(registro.u16(despl + 266), 0u);

        HWND hwnd = std::string(clase) == "ventana" ? crea_ventana() : nullptr;
        ivrexa_registra_cliente_de_servicio(ruta_de(victima()).c_str(), hwnd, nombre_unico("serv"));
        EXPECT_EQ(despl_programa(registro, ruta_de(victima())), despl);
        EXPECT_EQ(registro.u64(despl + 256), reinterpret_cast<uint64_t>(hwnd));
        EXPECT_EQ(registro.u16(despl + 266), 1u);
        comprueba_registro_sano();
        ivrexa_cierra_sesion();
        EXPECT_EQ(registro.texto(despl, 256), "");
        if (hwnd != nullptr)
            destruye_ventana(&hwnd);
    }
}

// The name of its service stays in the table, too. It counts as offered for as long as somebody holds the channel.
TEST_F(con_victima, servicio_de_un_muerto_figura_hasta_que_nadie_tiene_su_canal)
{
    empieza_vecinos();
    std::string servicio = nombre_unico("serv");
    arranca_victima("ventana");
    haz_de_servidor("con_funcion", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    muere("entra 6", 1, "EMPIEZA_POR " + servicio);

    arranca_victima("sin_ventana");
    EXPECT_EQ(haz("EMPIEZA_POR " + servicio, "EMPIEZA "), "EMPIEZA 1 " + servicio);
    victima().mata(); // who asks holds the channel, too
    cliente.di("ACABA");
    EXPECT_EQ(cliente.espera_fin(15000), 0u);
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_NE(despl_servicio(registro, servicio), 0u) << "nobody takes the name out of the table";
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
    arranca_victima("sin_ventana");
    EXPECT_EQ(haz("EMPIEZA_POR " + servicio, "EMPIEZA "), "EMPIEZA 0 " + servicio);
    comprueba_supervivencia();
}
