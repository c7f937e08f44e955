// What a client's command leaves besides its result: records of the trace, activities, handles, heap.
#include "iv_mcserv_apoyo.h"

// ---- Command: records and activities

TEST_F(iv_mcserv_orden, registros_de_la_orden_al_caracter)
{
    registra_con_ventana();
    const struct {
        LRESULT respuesta;
        const char *cola;
    } casos[] = {
        {0, "    NINGUNO\n"},
        {1, "    OK\n    id_datos_salida_comando = 901\n    serv_buffer_64\"a1\"\n"
            "    serv_buffer_256\"b22\"\n    serv_buffer2_256\"c333\"\n\n"},
        {2, "    CANCELADO\n"},
        {3, "    ERROR\n"},
        {7, ""},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.respuesta);
        espia oido;
        oido.al_enviar = [&](const mensaje &) { return caso.respuesta; };
        captura_traza traza;
        orden o;
        o.id_entrada = 700;
        o.textos[0] = L"uno";
        o.textos[1] = L"";
        o.textos[2] = L"tres";

        o.ejecuta(servicio);

        std::string texto = enmascara_tiempos(traza.texto_propio());
        std::string inicio =
            apertura_inicio(servicio, 100, 700) + "    param1\"uno\"\n    param2\"\"\n    param3\"tres\"\n\n";
        EXPECT_TRUE(empieza_por(texto, inicio)) << texto;
        EXPECT_TRUE(acaba_en(texto, apertura_fin(servicio, 100) + caso.cola)) << texto;
        EXPECT_EQ(texto.find(" FIN COMANDO "), texto.rfind(" FIN COMANDO "));
        EXPECT_EQ(texto.find("\n*** <t>:  INICIO COMANDO ", 1), std::string::npos);
    }
}

TEST_F(iv_mcserv_orden, textos_y_salidas_que_faltan_no_se_trazan)
{
    registra_con_ventana();
    espia oido;
    captura_traza traza;

    iv_mcserv_ejecuta_comando(servicio, 100, 0, 0, nullptr, L"dos", nullptr, nullptr, nullptr, nullptr, nullptr);

    std::string texto = enmascara_tiempos(traza.texto_propio());
    EXPECT_TRUE(empieza_por(texto, apertura_inicio(servicio, 100, 0) + "    param2\"dos\"\n\n")) << texto;
    EXPECT_TRUE(acaba_en(texto, apertura_fin(servicio, 100) + "    OK\n\n")) << texto;
}

namespace {

class iv_mcserv_orden_monitor : public iv_mcserv_orden {
protected:
    std::vector<uint32_t> actividad(uint32_t n)
    {
        size_t r = 22 + (n - 1) * 22;
        return {mcb->u32(r), mcb->u32(r + 4), mcb->u32(r + 8), mcb->u32(r + 12), mcb->u32(r + 16), mcb->u16(r + 20)};
    }
};

} // namespace

TEST_F(iv_mcserv_orden_monitor, la_orden_se_anota_al_empezar_y_al_acabar)
{
    registra_con_ventana();
    pon_monitor(&*mcb, true, 63);
    espia oido;
    size_t avisos_durante = 0;
    oido.al_enviar = [&](const mensaje &) -> LRESULT {
        avisos_durante = oido.publicados.size();
        return 7;
    };
    orden o;
    o.id_entrada = 700;

    EXPECT_EQ(o.ejecuta(servicio), 7u);

    EXPECT_EQ(avisos_durante, 1u);
    EXPECT_EQ(actividad(63), (std::vector<uint32_t>{ind, 100, 700, 1, 2, 1}));
    EXPECT_EQ(actividad(1), (std::vector<uint32_t>{ind, 100, 700, 1, 2, 0}));
    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x4242, 0xC042, 0, 63}, {0x4242, 0xC042, 0, 1}}));
}

TEST_F(iv_mcserv_orden_monitor, sin_monitor_listo_no_se_anota)
{
    registra_con_ventana();
    pon_monitor(&*mcb, false, 5); // hears of rounds, but is not ready
    espia oido;
    orden o;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_TRUE(oido.publicados.empty());
    EXPECT_EQ(mcb->u32(R_ACTIVIDAD_SIGUIENTE), 5u);
}

TEST_F(iv_mcserv_orden_monitor, quien_no_es_cliente_recibe_3_sin_los_registros_del_final)
{
    registra_con_ventana();
    pon_monitor(&*mcb, true, 5);
    const char *ajeno = nombre_unico("Ajeno");
    bloque_crudo canal_ajeno(nombre_canal(ajeno).c_str(), TAM_CANAL);
    uint32_t ind_ajeno = iv_mcbase_busca_o_anyade_servicio(0, s_mcbase_acceso->mcbase, ajeno);
    espia oido;
    captura_traza traza;
    orden o;
    o.id_entrada = 700;

    EXPECT_EQ(o.ejecuta(ajeno), 3u);

    EXPECT_EQ(enmascara_tiempos(traza.texto_propio()), apertura_inicio(ajeno, 100, 700) + "\n");
    EXPECT_EQ(actividad(5), (std::vector<uint32_t>{ind_ajeno, 100, 700, 1, 2, 1}));
    EXPECT_EQ(oido.publicados, (std::vector<mensaje>{{0x4242, 0xC042, 0, 5}}));
    EXPECT_TRUE(oido.enviados.empty());
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(TAM_CANAL, 0), canal_ajeno.bytes(0, TAM_CANAL)));
    EXPECT_TRUE(o.sin_tocar());
    iv_mcbase_quita_servicio(0, s_mcbase_acceso->mcbase, ajeno);
}

TEST_F(iv_mcserv_orden, programa_sin_registrar_no_es_cliente_de_nada)
{
    orden o;
    EXPECT_EQ(o.ejecuta(servicio), 3u);
    EXPECT_TRUE(o.sin_tocar());
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
}

namespace {

class iv_mcserv_sin_canal : public iv_mcserv_orden_monitor {
protected:
    void comprueba_sin_canal()
    {
        pon_monitor(&*mcb, true, 5);
        espia oido;
        captura_traza traza;
        orden o;
        o.opciones = 6;

        EXPECT_EQ(o.ejecuta(servicio), 0u);

        std::string texto = enmascara_tiempos(traza.texto_propio());
        EXPECT_TRUE(empieza_por(texto, apertura_inicio(servicio, 100, 0) + "\n")) << texto;
        EXPECT_TRUE(acaba_en(texto, apertura_fin(servicio, 100) + "    NINGUNO\n")) << texto;
        EXPECT_EQ(actividad(5), (std::vector<uint32_t>{ind, 100, 0, 1, 2, 1}));
        EXPECT_EQ(actividad(6), (std::vector<uint32_t>{ind, 100, 0, 1, 2, 0}));
        EXPECT_EQ(oido.orden, "");
        EXPECT_TRUE(o.sin_tocar());
        EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 0u);
    }
};

} // namespace

TEST_F(iv_mcserv_sin_canal, sin_canal_el_resultado_es_0_con_todos_los_registros)
{
    // An object of another kind has the name, so the registration cannot make the channel.
    HANDLE tapon = CreateEventA(nullptr, TRUE, FALSE, nombre_canal(servicio).c_str());
    registra();
    ASSERT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));

    comprueba_sin_canal();

    CloseHandle(tapon);
}

TEST_F(iv_mcserv_sin_canal, canal_demasiado_corto_cuenta_como_ninguno)
{
    bloque_crudo corto(nombre_canal(servicio).c_str(), 2377);
    corto.pon_bytes(0, std::vector<uint8_t>(2377, 0xEE));
    registra();

    comprueba_sin_canal();

    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(2377, 0xEE), corto.bytes(0, 2377)));
    canal.reset();
}

// The probe and the opening of an existing block leave one each, so that what a peer was told of does not
// vanish.
TEST_F(iv_mcserv_orden, cada_orden_deja_dos_manejadores)
{
    registra_con_ventana();
    espia oido;
    orden o;
    o.ejecuta(servicio);
    uint32_t antes = cuenta_manejadores();

    for (int n = 0; n < 3; n++)
        o.ejecuta(servicio);

    EXPECT_EQ(cuenta_manejadores(), antes + 6);
    EXPECT_EQ(o.ejecuta("nobody's"), 3u);
    EXPECT_EQ(cuenta_manejadores(), antes + 6);
}

TEST_F(iv_mcserv_orden, el_monton_no_crece_con_cada_orden)
{
    registra_con_ventana();
    espia oido;
    auto cuenta_bloques = [] {
        PROCESS_HEAP_ENTRY entrada = {};
        uint32_t num = 0;
        while (HeapWalk(s_LocalHeap, &entrada))
            num += (entrada.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? 1 : 0;
        return num;
    };
    auto ejecuta_y_libera = [&](LRESULT respuesta) {
        oido.al_enviar = [=](const mensaje &) { return respuesta; };
        orden o;
        o.ejecuta(servicio);
        for (wchar_t *&texto : o.salidas)
            if (texto != nullptr)
                iv_mem_libera_cadena_u(&texto);
    };
    ejecuta_y_libera(1);
    uint32_t antes = cuenta_bloques();

    ejecuta_y_libera(1);
    ejecuta_y_libera(2);

    EXPECT_GT(antes, 0u);
    EXPECT_EQ(cuenta_bloques(), antes);
}

// Record, activity, command; then the activity when all is free again, and the record.
TEST_F(iv_mcserv_orden_monitor, las_actividades_van_dentro_de_los_registros_y_fuera_de_la_orden)
{
    registra_con_ventana();
    pon_monitor(&*mcb, true);
    espia oido;
    captura_traza traza;
    uint32_t num_avisos = 0;
    oido.al_publicar = [&](const mensaje &) {
        num_avisos++;
        std::string texto = traza.texto_propio();
        EXPECT_NE(texto.find(" INICIO COMANDO "), std::string::npos) << num_avisos;
        EXPECT_EQ(texto.find(" FIN COMANDO "), std::string::npos) << num_avisos;
        EXPECT_EQ(oido.enviados.size(), num_avisos - 1);
        EXPECT_TRUE(mutex_crudo("Ivrexa_Mutex_MCB").libre());
        comprueba_libre();
    };
    orden o;
    o.id_entrada = 700;

    EXPECT_EQ(o.ejecuta(servicio), 1u);

    EXPECT_EQ(num_avisos, 2u);
}
