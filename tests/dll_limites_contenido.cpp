// Content of no bytes, of four, on both sides of each step of growth, and of 64 MiB: through real commands, there and
// back, with every byte looked at. And what a program sees where the system gives it no memory.
#include "dll_limites_datos.h"

static const uint32_t CABEZA = 4 + 2 + 2 + 4; // what a buffer named by one letter takes besides its bytes

class limites_contenido : public conversacion {
protected:
    void SetUp() override
    {
        conversacion::SetUp();
        registra(servicio);
    }

    // Sends what is stored, and looks at what comes back: so many values of those sizes.
    void comprueba_vuelta(uint32_t id_entrada, uint32_t num, uint32_t tam)
    {
        respuesta r = ejecuta(servicio, datos_DEVUELVE, id_entrada);
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(a_utf8(r.t2), std::to_string(num)) << "what the server read";
        contenedor salida(ivrexa_lee_datos(servicio.c_str(), r.id_salida, FALSO));
        ASSERT_NE(salida, nullptr);
        EXPECT_EQ(comprueba_valores(salida.get()), std::to_string(num));
        for (uint32_t i = 0; i < num; i++) {
            uint32_t leidos = 0xffffffff;
            ivrexa_dame_buffer(salida.get(), i, &leidos);
            EXPECT_EQ(leidos, tam);
        }
        EXPECT_EQ(bloque_crudo(nombre_datos(servicio, r.id_salida).c_str()).cabecera(),
                  bloque_crudo(nombre_datos(servicio, id_entrada).c_str()).cabecera());
    }

    const std::string servicio = nombre_unico("serv");
};

// ---- Small

TEST_F(limites_contenido, de_cada_lado_de_los_escalones_va_y_vuelve_entero)
{
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio});
    for (uint32_t escalon : {1024u, 2048u, 4096u, 65536u})
        for (uint32_t total = escalon - 4; total <= escalon + 4; total++) {
            SCOPED_TRACE(total);
            contenedor c = entrada_de(servicio);
            graba_muestra(c, 0, total - CABEZA);
            uint32_t id = ivrexa_guarda_datos(c.get());
            EXPECT_EQ(bloque_crudo(nombre_datos(servicio, id).c_str()).cabecera(), total);
            comprueba_vuelta(id, 1, total - CABEZA);
        }
    acaba(servidor);
}

TEST_F(limites_contenido, vacio_son_4_bytes_y_va_y_vuelve_sin_valores)
{
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio});
    contenedor c = entrada_de(servicio);
    uint32_t id = ivrexa_guarda_datos(c.get());
    bloque_crudo bloque(nombre_datos(servicio, id).c_str());
    EXPECT_EQ(bloque.cabecera(), 4u);
    EXPECT_EQ(bloque.u32(0), 0u);
    comprueba_vuelta(id, 0, 0);
    acaba(servidor);
}

// The block of a program that does not keep to the format. It is input all the same, without values.
TEST_F(limites_contenido, bloque_de_0_bytes_se_informa_y_es_una_entrada_sin_valores)
{
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio});
    bloque_crudo bloque(nombre_datos(servicio, 7000).c_str(), 0);
    respuesta r = ejecuta(servicio, datos_DEVUELVE, 7000);
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(a_utf8(r.t2), "0");
    EXPECT_INFORME_DE(servidor, "iv_mem", "tam > 0");
    EXPECT_INFORME_DE(servidor, "iv_comdat", "(comdat->offset + tam) <= comdat->ocupado");
    EXPECT_EQ(ejecuta(servicio, datos_COMPRUEBA).t2, L"nada") << "which is not the same as no input";
    acaba(servidor);
}

// ---- 64 MiB

class limites_64_mib : public conversacion {
protected:
    static const uint32_t TAM = 64u << 20;

    void va_y_vuelve(const std::string &clase, uint32_t num)
    {
        const std::string servicio = nombre_unico("serv");
        papel servidor = arranca_papel("servidor_de_datos", {clase, servicio});
        registra_para(clase, servicio);
        contenedor c = entrada_de(servicio);
        for (uint32_t n = 0; n < num; n++)
            graba_muestra(c, n, TAM / num);
        respuesta r = ejecuta(servicio, datos_DEVUELVE, ivrexa_guarda_datos(c.get()));
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(a_utf8(r.t2), std::to_string(num)) << "what the server read";
        contenedor salida(ivrexa_lee_datos(servicio.c_str(), r.id_salida, FALSO));
        ASSERT_NE(salida, nullptr);
        EXPECT_EQ(comprueba_valores(salida.get()), std::to_string(num));
        uint32_t tam = 0;
        ivrexa_dame_buffer(salida.get(), num - 1, &tam);
        EXPECT_EQ(tam, TAM / num);
        acaba(servidor);
    }
};
TEST_F(limites_64_mib, en_un_buffer_van_y_vuelven_enteros_con_ventana)
{
    va_y_vuelve("ventana", 1);
}

TEST_F(limites_64_mib, en_un_buffer_van_y_vuelven_enteros_sin_ventana)
{
    va_y_vuelve("sin_ventana", 1);
}

TEST_F(limites_64_mib, en_un_buffer_van_y_vuelven_enteros_con_un_servidor_net)
{
    va_y_vuelve("net", 1);
}

TEST_F(limites_64_mib, en_16_buffers_van_y_vuelven_enteros)
{
    va_y_vuelve("ventana", 16);
}

// ---- Past what 32 bits state

// None of them is looked at: the container does not grow.
TEST_F(limites_contenido, lo_que_da_la_vuelta_a_32_bits_se_informa_y_lo_demas_va_y_vuelve)
{
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio});
    contenedor c = entrada_de(servicio);
    graba_muestra(c, 0, 100);
    for (uint32_t tam : {0xfffffc00u - CABEZA - 100 - 8, 0xffffffffu - CABEZA - 100 - 8, 0xffffffffu}) {
        SCOPED_TRACE(tam);
        ivrexa_graba_buffer(c.get(), "x", "y", tam);
        EXPECT_INFORME("iv_comdat", "nuevo_tam >= tam_minimo_nuevo");
        EXPECT_SIN_INFORMES();
        EXPECT_EQ(ivrexa_numero_valores(c.get()), 1u);
    }
    const char *textos[] = {"uno", "dos"};
    ivrexa_graba_arr_cadenas_ansi(c.get(), "x", textos, 0xffffffffu);
    EXPECT_INFORME("iv_comdat", "nuevo_tam >= tam_minimo_nuevo");
    EXPECT_SIN_INFORMES();
    graba_muestra(c, 1, 100);
    uint32_t id = ivrexa_guarda_datos(c.get());
    EXPECT_EQ(bloque_crudo(nombre_datos(servicio, id).c_str()).cabecera(), 4 + 2 * (CABEZA - 4 + 100));
    comprueba_vuelta(id, 2, 100);
    acaba(servidor);
}

// ---- No memory

static const uint32_t TAM_NEGADO = 2u << 20;
static const char *const SIN_MEMORIA = "(memlocal) != 0";

// 1 when an exception came out.
static int graba_y_atrapa(comdat *c, const void *bytes, uint32_t tam)
{
    __try {
        ivrexa_graba_buffer(c, "1", bytes, tam);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        return 1;
    }
    return 0;
}

TEST_F(limites_contenido, valor_que_no_cabe_en_la_memoria_se_retira_y_lo_demas_va_y_vuelve)
{
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio});
    bytes_de_muestra bytes(TAM_NEGADO);
    for (bool lanza : {false, true}) {
        SCOPED_TRACE(lanza);
        contenedor c = entrada_de(servicio);
        graba_muestra(c, 0, 50);
        {
            importacion_de_la_dll negada("HeapReAlloc",
                                         reinterpret_cast<void *>(lanza ? lanza_HeapReAlloc : niega_HeapReAlloc));
            EXPECT_EQ(graba_y_atrapa(c.get(), bytes.del_valor(0), TAM_NEGADO), lanza ? 1 : 0);
        }
        if (!lanza)
            EXPECT_INFORME("iv_mem", SIN_MEMORIA);
        EXPECT_SIN_INFORMES();
        EXPECT_TRUE(mutex_crudo("ivrexa_iv_mem").libre());
        EXPECT_EQ(ivrexa_numero_valores(c.get()), 1u);
        graba_muestra(c, 1, 50);
        comprueba_vuelta(ivrexa_guarda_datos(c.get()), 2, 50);
    }
    acaba(servidor);
}

TEST_F(limites_contenido, bloque_que_el_sistema_niega_da_0_y_su_numero_no_vuelve)
{
    const char *const SIN_BLOQUE = "shared_MCCom != NULL && *shared_MCCom != NULL";
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio});
    contenedor c = entrada_de(servicio);
    graba_muestra(c, 0, TAM_NEGADO);
    {
        importacion_de_la_dll negada("CreateFileMappingA", reinterpret_cast<void *>(niega_CreateFileMappingA));
        EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0u);
    }
    EXPECT_INFORME("iv_comdat", SIN_BLOQUE);
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, 100).c_str()));
    EXPECT_SIN_INFORMES();
    comprueba_vuelta(ivrexa_guarda_datos(c.get()), 1, TAM_NEGADO);
    EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 101).c_str()));
    acaba(servidor);
}

TEST_F(limites_contenido, lectura_sin_memoria_se_informa_da_nulo_y_despues_se_lee)
{
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio});
    contenedor c = entrada_de(servicio);
    graba_muestra(c, 0, TAM_NEGADO);
    respuesta r = ejecuta(servicio, datos_DEVUELVE, ivrexa_guarda_datos(c.get()));
    {
        importacion_de_la_dll negada("HeapAlloc", reinterpret_cast<void *>(niega_HeapAlloc));
        EXPECT_EQ(ivrexa_lee_datos(servicio.c_str(), r.id_salida, FALSO), nullptr);
    }
    EXPECT_INFORME("iv_mem", SIN_MEMORIA);
    EXPECT_SIN_INFORMES();
    contenedor salida(ivrexa_lee_datos(servicio.c_str(), r.id_salida, FALSO));
    EXPECT_EQ(comprueba_valores(salida.get()), "1");
    acaba(servidor);
}

// A server whose heap refuses what is large.
PAPEL(servidor_sin_memoria)
{
    importacion_de_la_dll negada("HeapAlloc",
                                 reinterpret_cast<void *>(args[2] == "lanza" ? lanza_HeapAlloc : niega_HeapAlloc));
    anfitrion_yo.otros = atiende_datos;
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

class limites_servidor_sin_memoria : public conversacion {
protected:
    void manda_lo_que_no_cabe_y_lo_que_si(const std::string &clase, const char *como, uint32_t resultado,
                                          const wchar_t *leido)
    {
        const std::string servicio = nombre_unico("serv");
        papel servidor = arranca_papel("servidor_sin_memoria", {clase, servicio, como});
        registra_para(clase, servicio);
        contenedor grande = entrada_de(servicio), chico = entrada_de(servicio);
        graba_muestra(grande, 0, TAM_NEGADO);
        graba_muestra(chico, 0, 1000);
        respuesta r = ejecuta(servicio, datos_COMPRUEBA, ivrexa_guarda_datos(grande.get()));
        EXPECT_EQ(r.resultado, resultado);
        EXPECT_EQ(r.t2, leido);
        if (resultado == 1)
            EXPECT_INFORME_DE(servidor, "iv_mem", SIN_MEMORIA);
        EXPECT_TRUE(mutex_crudo("ivrexa_iv_mem").libre());
        EXPECT_EQ(ejecuta(servicio, datos_COMPRUEBA, ivrexa_guarda_datos(chico.get())).t2, L"1");
        acaba(servidor);
    }
};

TEST_F(limites_servidor_sin_memoria, para_la_entrada_ejecuta_el_comando_como_sin_ella)
{
    for (const char *clase : CLASES_SERVIDOR)
        manda_lo_que_no_cabe_y_lo_que_si(clase, "niega", 1, L"nada");
}

// In a server with a window nothing guards the command: what its heap raises is the host's.
TEST_F(limites_servidor_sin_memoria, y_monton_que_lanza_da_3_si_no_tiene_ventana)
{
    manda_lo_que_no_cabe_y_lo_que_si("sin_ventana", "lanza", 3, L"");
}
