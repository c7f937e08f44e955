// The registry that all programs share: this process's access to it, its making, counting and closing.
#include "iv_mcbase_apoyo.h"

#include "comun/importacion.h"
#include "comun/monton.h"

IMPORTACION(CloseHandle);
IMPORTACION(CreateFileMappingA);
IMPORTACION(CreateMutexA);
IMPORTACION(MapViewOfFile);
IMPORTACION(UnmapViewOfFile);

// What the library asks the system for while it opens the registry, in order.
static argumentos llamadas_al_abrir()
{
    static decltype(&CreateFileMappingA) crea_bloque = __imp_CreateFileMappingA;
    static decltype(&CreateMutexA) crea_mutex = __imp_CreateMutexA;
    s_llamadas.clear();
    importacion_cambiada<decltype(&CreateFileMappingA)> bloque(
        __imp_CreateFileMappingA,
        [](HANDLE fichero, LPSECURITY_ATTRIBUTES seguridad, DWORD proteccion, DWORD alto, DWORD bajo,
           LPCSTR nombre) -> HANDLE {
            s_llamadas.push_back(junta({"block", nombre, std::to_string(bajo)}));
            return crea_bloque(fichero, seguridad, proteccion, alto, bajo, nombre);
        });
    importacion_cambiada<decltype(&CreateMutexA)> mutex(
        __imp_CreateMutexA, [](LPSECURITY_ATTRIBUTES seguridad, BOOL tomado, LPCSTR nombre) -> HANDLE {
            if (nombre != nullptr && std::string(nombre) != "ivrexa_iv_mem")
                s_llamadas.push_back(junta({"mutex", nombre, std::to_string(tomado)}));
            return crea_mutex(seguridad, tomado, nombre);
        });
    EXPECT_NE(iv_mcbase_abre(0, FALSO), nullptr);
    return s_llamadas;
}

// ---- A registry that the library itself makes

class iv_mcbase_nuevo : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (s_registro_ajeno)
            GTEST_SKIP() << "this process keeps alive a registry that others made: run this case alone";
    }
};

// Obeys lines, each answered by "HECHO|result|open or closed|num_registros".
PAPEL(registro)
{
    yo.di("LISTO");
    while (std::optional<std::string> linea = yo.escucha(30000)) {
        argumentos orden = campos(*linea);
        uint32_t resultado = 0;
        if (orden[0] == "ABRE")
            iv_mcbase_abre(1, FALSO);
        else if (orden[0] == "REGISTRA")
            resultado = iv_mcbase_registra_programa(0, orden.at(1).c_str(), nullptr);
        else if (orden[0] == "QUITA")
            iv_mcbase_quita_programa(static_cast<uint16_t>(std::stoul(orden.at(1))));
        else if (orden[0] == "LIBERA")
            iv_mcbase_libera_si_vacio();
        const iv_mcbase_acceso *acceso = s_mcbase_acceso;
        yo.di(junta({"HECHO", std::to_string(resultado), acceso != nullptr ? "open" : "closed",
                     acceso != nullptr ? std::to_string(acceso->mcbase->num_registros) : "-"}));
    }
    return 0;
}

static std::string manda(papel &p, const std::string &orden)
{
    p.di(orden);
    return p.espera_linea("HECHO|", 10000).substr(6);
}

TEST_F(iv_mcbase_nuevo, primera_apertura_hace_un_bloque_de_8886_bytes_a_cero)
{
    ASSERT_FALSE(existe_bloque(BLOQUE));
    iv_mcbase_acceso *acceso = iv_mcbase_abre(0, FALSO);
    ASSERT_NE(acceso, nullptr);
    {
        bloque_crudo bloque(BLOQUE);
        ASSERT_TRUE(bloque.abierto());
        EXPECT_EQ(bloque.cabecera(), 8886u);
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(8886, 0), bloque.bytes(0, 8886)));
        acceso->mcbase->num_registros = 0x1234;
        EXPECT_TRUE(bytes_iguales(de_hex("34 12"), bloque.bytes(4, 2)));
    }
    EXPECT_STREQ(acceso->bloque->nombre, "Ivrexa_MCB");
    EXPECT_STREQ(acceso->bloque->tipo, "iv_mcbase_t");
    EXPECT_STREQ(acceso->mutex->nombre, "Ivrexa_Mutex_MCB");
    EXPECT_TRUE(existe_mutex(MUTEX));

    iv_mcbase_cierra();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_FALSE(existe_bloque(BLOQUE));
    EXPECT_FALSE(existe_mutex(MUTEX));
}

TEST_F(iv_mcbase_nuevo, quitar_el_ultimo_programa_cierra_bloque_y_mutex_sin_dejar_manejadores)
{
    auto ronda = [] {
        EXPECT_EQ(iv_mcbase_registra_programa(0, "uno", nullptr), 0);
        EXPECT_EQ(iv_mcbase_registra_programa(1, "dos", nullptr), 1);
        iv_mcbase_quita_programa(0);
        EXPECT_NE(s_mcbase_acceso, nullptr);
        EXPECT_TRUE(existe_bloque(BLOQUE));
        iv_mcbase_quita_programa(1);
        EXPECT_EQ(s_mcbase_acceso, nullptr);
        EXPECT_FALSE(existe_bloque(BLOQUE));
        EXPECT_FALSE(existe_mutex(MUTEX));
    };
    ronda();
    uint32_t antes = cuenta_manejadores();
    ronda();
    EXPECT_EQ(cuenta_manejadores(), antes);
}

TEST_F(iv_mcbase_nuevo, cerrar_suelta_el_mutex_y_despues_el_bloque)
{
    static decltype(&CloseHandle) cierra = __imp_CloseHandle;
    static decltype(&UnmapViewOfFile) quita_vista = __imp_UnmapViewOfFile;
    static HANDLE mutex, mapa;
    static const void *vista;
    i_free(i_malloc(1));
    uint32_t vivos = bloques_vivos();
    EXPECT_EQ(iv_mcbase_registra_programa(0, "uno", nullptr), 0);
    mutex = s_mcbase_acceso->mutex->mutex;
    mapa = s_mcbase_acceso->bloque->hmap;
    vista = s_mcbase_acceso->bloque->sharedmem;
    s_llamadas.clear();
    {
        importacion_cambiada<decltype(&CloseHandle)> cierre(__imp_CloseHandle, [](HANDLE h) -> BOOL {
            if (h == mutex || h == mapa)
                s_llamadas.push_back(h == mutex ? "mutex" : "block");
            return cierra(h);
        });
        importacion_cambiada<decltype(&UnmapViewOfFile)> desmapa(__imp_UnmapViewOfFile, [](LPCVOID v) -> BOOL {
            if (v == vista)
                s_llamadas.push_back("view");
            return quita_vista(v);
        });
        iv_mcbase_quita_programa(0);
    }
    EXPECT_EQ(s_llamadas, (argumentos{"mutex", "view", "block"}));
    EXPECT_EQ(bloques_vivos(), vivos); // the access record and all that hung on it
}

TEST_F(iv_mcbase_nuevo, liberar_un_registro_sin_programas_lo_cierra)
{
    EXPECT_EQ(iv_mcbase_hay_monitor(1), 0);
    ASSERT_TRUE(existe_bloque(BLOQUE));

    iv_mcbase_libera_si_vacio();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_FALSE(existe_bloque(BLOQUE));
    EXPECT_FALSE(existe_mutex(MUTEX));
    iv_mcbase_libera_si_vacio(); // nothing is open now, and nothing is opened for it
    EXPECT_FALSE(existe_bloque(BLOQUE));
}

TEST_F(iv_mcbase_nuevo, programa_de_otro_proceso_mantiene_el_acceso)
{
    papel uno = arranca_papel("registro"), otro = arranca_papel("registro");
    EXPECT_EQ(manda(uno, "REGISTRA|uno"), "0|open|1");
    EXPECT_EQ(manda(otro, "REGISTRA|otro"), "1|open|2");

    EXPECT_EQ(manda(uno, "QUITA|0"), "0|open|2");
    EXPECT_EQ(manda(uno, "LIBERA"), "0|open|2");
    EXPECT_EQ(manda(otro, "QUITA|1"), "0|closed|-");
    EXPECT_EQ(manda(uno, "LIBERA"), "0|closed|-");
}

TEST_F(iv_mcbase_nuevo, bloque_nuevo_solo_cuando_todos_lo_han_cerrado)
{
    papel uno = arranca_papel("registro"), otro = arranca_papel("registro");
    EXPECT_EQ(manda(uno, "REGISTRA|uno"), "0|open|1");
    EXPECT_EQ(manda(otro, "ABRE"), "0|open|1");

    EXPECT_EQ(manda(uno, "QUITA|0"), "0|closed|-"); // the last program of all, but another has it open
    EXPECT_TRUE(existe_bloque(BLOQUE));
    EXPECT_EQ(manda(uno, "REGISTRA|uno"), "0|open|2");

    uno.mata();
    otro.mata();
    EXPECT_TRUE(espera_hasta([] { return !existe_bloque(BLOQUE) && !existe_mutex(MUTEX); }, 5000));
    papel nuevo = arranca_papel("registro");
    EXPECT_EQ(manda(nuevo, "REGISTRA|nuevo"), "0|open|1");
}

TEST_F(iv_mcbase_nuevo, cada_proceso_se_cuenta_una_vez)
{
    papel uno = arranca_papel("registro"), otro = arranca_papel("registro"), mudo = arranca_papel("registro");
    EXPECT_EQ(manda(uno, "REGISTRA|a"), "0|open|1");
    EXPECT_EQ(manda(uno, "REGISTRA|b"), "1|open|1");
    EXPECT_EQ(manda(mudo, "ABRE"), "0|open|1");
    EXPECT_EQ(manda(otro, "REGISTRA|c"), "2|open|2");
    EXPECT_EQ(manda(mudo, "REGISTRA|d"), "3|open|2"); // it was open already
}

TEST_F(iv_mcbase_nuevo, mutex_se_abre_una_vez_cuando_el_bloque_es_nuevo)
{
    mutex_crudo mutex(MUTEX, mutex_crudo::modo::crea);
    EXPECT_EQ(llamadas_al_abrir(), (argumentos{"block|Ivrexa_MCB|8890", "mutex|Ivrexa_Mutex_MCB|0"}));
    iv_mcbase_cierra();
}

PAPEL(bloque_sin_mutex)
{
    bloque_crudo bloque(BLOQUE, TAM_BLOQUE);
    EXPECT_FALSE(existe_mutex(MUTEX));
    EXPECT_EQ(llamadas_al_abrir(), (argumentos{"block|Ivrexa_MCB|8890", "mutex|Ivrexa_Mutex_MCB|0"}));
    EXPECT_TRUE(existe_mutex(MUTEX));
    yo.di("LISTO");
    return 0;
}

TEST_F(iv_mcbase_nuevo, mutex_que_falta_se_hace_aunque_el_bloque_ya_estuviera)
{
    EXPECT_EQ(arranca_papel("bloque_sin_mutex").espera_fin(20000), 0u);
}

// The mutex's name belongs to something else, so the first opening reports. A report's box lets the thread's
// windows have their messages, and the host answers one of them with a question to the registry.
PAPEL(pregunta_durante_el_informe)
{
    HANDLE evento = CreateEventA(nullptr, TRUE, FALSE, MUTEX);
    static int16_t hay;
    hay = 77;
    iv_ventana()->MessageBoxA = [](HWND, LPCSTR, LPCSTR, UINT) -> int {
        if (hay == 77) {
            hay = 78;
            hay = iv_mcbase_hay_monitor(1);
        }
        return IDOK;
    };
    yo.di("LISTO");
    EXPECT_NE(iv_mcbase_abre(1, FALSO), nullptr);
    EXPECT_EQ(hay, 0);
    CloseHandle(evento);
    return 0;
}

TEST_F(iv_mcbase_nuevo, informe_al_abrir_no_atasca_a_quien_pregunta_desde_su_caja)
{
    EXPECT_EQ(arranca_papel("pregunta_durante_el_informe").espera_fin(10000), 0u);
}

// A block of another size, made by a program that does not keep to the format. Arguments: bytes of the block,
// bytes that its header states, "open" when the registry can be used.
PAPEL(bloque_raro)
{
    bloque_crudo bloque(BLOQUE, std::stoul(args.at(0)));
    EXPECT_FALSE(bloque.ya_existia());
    bloque.pon_cabecera(std::stoul(args.at(1)));
    iv_ventana()->PostMessageW = [](HWND, UINT, WPARAM, LPARAM) -> BOOL { return FALSE; };
    iv_ventana()->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };

    bool abierto = iv_mcbase_abre(0, CIERTO) != nullptr;
    EXPECT_EQ(abierto, args.at(2) == "open");
    if (!abierto) {
        EXPECT_EQ(s_mcbase_acceso, nullptr);
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 16);
        uint32_t ind = 7;
        iv_mcbase_registra_servidor_de_servicio(0, "Calc", &ind);
        EXPECT_EQ(ind, 32u);
        ind = 7;
        iv_mcbase_registra_cliente_de_servicio(0, "Calc", &ind);
        EXPECT_EQ(ind, 32u);
        char nombre[64] = "intacto";
        EXPECT_EQ(iv_mcbase_hay_servicio_registrado_empiece_por("", nombre), 0);
        EXPECT_STREQ(nombre, "intacto");
        EXPECT_EQ(iv_mcbase_hay_monitor(0), 0);
        iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0);
        iv_mcbase_inicia_comando(0, 100);
        iv_mcbase_termina_comando(0, 100);
        iv_mcbase_quita_programa(0);
        iv_mcbase_libera_si_vacio();
        registra_monitor(ventana_num(0x1234));
        iv_mcbase_quita_monitor();
        iv_mcserv_t canal = {};
        EXPECT_EQ(iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(0, &canal), 1);
        std::vector<uint8_t> datos = bloque.bytes(0, std::stoul(args.at(0)));
        EXPECT_EQ(std::count(datos.begin(), datos.end(), 0), static_cast<ptrdiff_t>(datos.size()));
    } else {
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
        EXPECT_EQ(bloque.u16(4), 1);
        EXPECT_EQ(bloque.texto(1430, 256), "programa");
    }
    EXPECT_EQ(bloque.cabecera(), std::stoul(args.at(1)));
    yo.di("LISTO");
    return 0;
}

TEST_F(iv_mcbase_nuevo, bloque_pequenyo_o_de_cabecera_falsa_no_se_abre)
{
    const std::vector<argumentos> casos = {
        {"8886", "8886", "open"},         {"20000", "20000", "open"},
        {"8886", "4294967295", "open"}, // cut to what the view holds, which is enough
        {"8886", "8885", "closed"},       {"8886", "0", "closed"},
        {"100", "100", "closed"},         {"100", "8886", "closed"},  // a view of one page
        {"4092", "4294967295", "closed"}, {"8184", "8886", "closed"}, // two pages
    };
    for (const argumentos &caso : casos) {
        SCOPED_TRACE(caso[0] + " bytes, header " + caso[1]);
        EXPECT_EQ(arranca_papel("bloque_raro", caso).espera_fin(20000), 0u);
        EXPECT_TRUE(espera_hasta([] { return !existe_bloque(BLOQUE); }, 5000));
    }
}

TEST_F(iv_mcbase_nuevo, hilos_que_abren_a_la_vez_hacen_un_solo_acceso_y_cuentan_una_vez)
{
    for (uint32_t ronda = 0; ronda < 40; ronda++) {
        iv_mcbase_acceso *accesos[4] = {};
        a_la_vez([&](uint32_t h) { accesos[h] = iv_mcbase_abre(0, CIERTO); });

        ASSERT_NE(s_mcbase_acceso, nullptr);
        for (iv_mcbase_acceso *acceso : accesos)
            EXPECT_EQ(acceso, s_mcbase_acceso);
        ASSERT_EQ(s_mcbase_acceso->mcbase->num_registros, 1) << "round " << ronda;
        iv_mcbase_cierra();
        ASSERT_FALSE(existe_bloque(BLOQUE)) << "round " << ronda;
    }
}

TEST_F(iv_mcbase_nuevo, hilos_que_se_registran_a_la_vez_tienen_entradas_distintas)
{
    uint16_t ids[4] = {};
    const char *const nombres[4] = {"a", "b", "c", "d"};
    a_la_vez([&](uint32_t h) { ids[h] = iv_mcbase_registra_programa(0, nombres[h], nullptr); });

    std::sort(ids, ids + 4);
    for (uint16_t i = 0; i < 4; i++)
        EXPECT_EQ(ids[i], i);
    for (uint16_t i = 0; i < 4; i++)
        iv_mcbase_quita_programa(i);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
}

TEST_F(iv_mcbase_nuevo, quitar_el_monitor_sin_programas_cierra_el_registro)
{
    HWND hwnd = crea_ventana();
    ASSERT_NE(hwnd, nullptr);
    registra_monitor(hwnd);
    ASSERT_TRUE(existe_bloque(BLOQUE));

    iv_mcbase_quita_monitor();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_programa_monitor, nullptr);
    EXPECT_FALSE(existe_bloque(BLOQUE));
    EXPECT_FALSE(existe_mutex(MUTEX));
    destruye_ventana(&hwnd);
}

// ---- Access

TEST_F(iv_mcbase, apertura_da_siempre_el_mismo_acceso_sea_cual_sea_el_tipo)
{
    iv_mcbase_acceso *acceso = iv_mcbase_abre(0, FALSO);
    ASSERT_NE(acceso, nullptr);
    EXPECT_EQ(s_mcbase_acceso, acceso);
    EXPECT_EQ(iv_mcbase_abre(1, CIERTO), acceso);
    EXPECT_EQ(iv_mcbase_abre(2, FALSO), acceso);
    EXPECT_EQ(iv_mcbase_abre(77, CIERTO), acceso);
    EXPECT_EQ(static_cast<const volatile void *>(acceso->mcbase), iv_shared_datos(acceso->bloque));
    EXPECT_EQ(m_bloque.u16(4), 0); // the first open did not register
}

TEST_F(iv_mcbase, apertura_no_toca_un_bloque_que_ya_estaba)
{
    m_bloque.pon_bytes(0, std::vector<uint8_t>(TAM_BLOQUE, SUCIO));
    imagen esperada(m_bloque);

    iv_mcbase_abre(0, FALSO);
    comprueba(esperada);

    iv_mcbase_cierra();
    iv_mcbase_abre(2, CIERTO);
    esperada.u16(4, 0x5A5B);
    comprueba(esperada);
}

TEST_F(iv_mcbase, solo_los_registros_de_programa_de_cliente_y_de_monitor_cuentan_al_abrir)
{
    struct {
        const char *nombre;
        uint16_t cuenta;
        std::function<void()> operacion;
    } const casos[] = {
        {"open, not registering", 0, [] { iv_mcbase_abre(0, FALSO); }},
        {"open, registering", 1, [] { iv_mcbase_abre(0, CIERTO); }},
        {"open with another truth value", 0, [] { iv_mcbase_abre(0, 2); }},
        {"program", 1, [] { iv_mcbase_registra_programa(0, "programa", nullptr); }},
        {"client of a service", 1, [] { iv_mcbase_registra_cliente_de_servicio(16, "Calc", nullptr); }},
        {"server of a service", 0, [] { iv_mcbase_registra_servidor_de_servicio(16, "Calc", nullptr); }},
        {"monitor", 1, [] { registra_monitor(ventana_num(0x1234)); }},
        {"monitor there?", 0, [] { iv_mcbase_hay_monitor(0); }},
        {"activity", 0, [] { iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0); }},
        {"prefix", 0,
         [] {
             char nombre[64];
             iv_mcbase_hay_servicio_registrado_empiece_por("x", nombre);
         }},
        {"command begins", 0, [] { iv_mcbase_inicia_comando(0, 100); }},
        {"command ends", 0, [] { iv_mcbase_termina_comando(0, 100); }},
    };
    m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        m_bloque.pon_u16(4, 500);
        caso.operacion();
        ASSERT_NE(s_mcbase_acceso, nullptr);
        EXPECT_EQ(m_bloque.u16(4), 500 + caso.cuenta);
        iv_mcbase_registra_programa(1, "programa", nullptr); // the access is made already: counts nothing
        EXPECT_EQ(m_bloque.u16(4), 500 + caso.cuenta);
        if (s_programa_monitor != nullptr)
            iv_mcbase_quita_monitor();
        iv_mcbase_cierra();
    }
}

TEST_F(iv_mcbase, rondas_abren_el_registro_sin_contar)
{
    pon_servicio(0, "Calc");
    iv_mcserv_t canal = {};
    for (auto ronda : {iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE, iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO}) {
        m_bloque.pon_u16(4, 500);
        EXPECT_EQ(ronda(0, &canal), 0);
        EXPECT_NE(s_mcbase_acceso, nullptr);
        EXPECT_EQ(m_bloque.u16(4), 500);
        iv_mcbase_cierra();
    }
}

TEST_F(iv_mcbase, num_registros_da_la_vuelta_a_los_16_bits)
{
    imagen esperada(m_bloque);
    m_bloque.pon_u16(4, 65535);
    iv_mcbase_abre(0, CIERTO);
    comprueba(esperada);
}

TEST_F(iv_mcbase, num_registros_se_cuenta_sin_esperar_al_mutex)
{
    ASSERT_TRUE(m_mutex.retiene());
    EXPECT_NE(iv_mcbase_abre(0, CIERTO), nullptr); // would wait for ever
    EXPECT_EQ(m_bloque.u16(4), 1);
    m_mutex.suelta();
}

TEST_F(iv_mcbase, mutex_es_el_del_mismo_nombre_que_ya_tenia_otro)
{
    pon_servicio(5, "Calc");
    ASSERT_TRUE(m_mutex.retiene());
    hilo otro([] { iv_mcbase_inicia_comando(5, 100); });

    EXPECT_FALSE(otro.acaba(100));
    EXPECT_EQ(m_bloque.u32(en_servicio(5) + 80), 0x5A5A5A5Au);
    m_mutex.suelta();
    EXPECT_TRUE(otro.acaba(10000));
    EXPECT_EQ(m_bloque.u32(en_servicio(5) + 80), 100u);
}

TEST_F(iv_mcbase, mutex_se_abre_dos_veces_cuando_bloque_y_mutex_ya_estaban)
{
    EXPECT_EQ(llamadas_al_abrir(),
              (argumentos{"block|Ivrexa_MCB|8890", "mutex|Ivrexa_Mutex_MCB|0", "mutex|Ivrexa_Mutex_MCB|0"}));
}

TEST_F(iv_mcbase, sin_bloque_o_sin_vista_no_hay_registro_y_la_siguiente_vez_se_intenta_de_nuevo)
{
    imagen esperada(m_bloque);
    {
        importacion_cambiada<decltype(&CreateFileMappingA)> cambio(
            __imp_CreateFileMappingA, [](HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCSTR) -> HANDLE {
                SetLastError(ERROR_ACCESS_DENIED);
                return nullptr;
            });
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 16);
        EXPECT_EQ(iv_mcbase_hay_monitor(0), 0);
        EXPECT_SIN_INFORMES();
    }
    {
        importacion_cambiada<decltype(&MapViewOfFile)> cambio(
            __imp_MapViewOfFile, [](HANDLE, DWORD, DWORD, DWORD, SIZE_T) -> void * { return nullptr; });
        EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 16);
        EXPECT_INFORME("iv_shared", "sharedmem != NULL");
        EXPECT_SIN_INFORMES();
    }
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    comprueba(esperada);

    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
    EXPECT_EQ(m_bloque.u16(4), 1);
}

TEST_F(iv_mcbase, sin_mutex_se_informa_en_cada_paso_y_se_sigue)
{
    i_free(i_malloc(1)); // the heap's own mutex is not refused
    {
        importacion_cambiada<decltype(&CreateMutexA)> cambio(__imp_CreateMutexA,
                                                             [](LPSECURITY_ATTRIBUTES, BOOL, LPCSTR) -> HANDLE {
                                                                 SetLastError(ERROR_ACCESS_DENIED);
                                                                 return nullptr;
                                                             });
        EXPECT_NE(iv_mcbase_abre(0, FALSO), nullptr);
    }
    EXPECT_INFORME("iv_mutex", "(mutex) != 0");
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
    EXPECT_INFORME("iv_mutex", "(iv_mutex->mutex) != 0");
    EXPECT_INFORME("iv_mutex", "(iv_mutex->mutex) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(m_bloque.texto(en_programa(0), 256), "programa");
}

static std::vector<std::string> s_informes_bajo;

TEST_F(iv_mcbase, tabla_llena_se_informa_con_el_mutex_tomado)
{
    for (uint32_t i = 0; i < 16; i++)
        pon_programa(i, "p" + std::to_string(i), 0);
    for (uint32_t j = 0; j < 32; j++)
        pon_servicio(j, "s" + std::to_string(j));
    m_ventana->MessageBoxA = [](HWND hwnd, LPCSTR texto, LPCSTR titulo, UINT estilo) -> int {
        s_informes_bajo.push_back(std::to_string(sitio_actual()) + (s_mutex->libre() ? " free" : " held"));
        return graba_informe(hwnd, texto, titulo, estilo);
    };
    s_informes_bajo.clear();

    iv_mcbase_registra_programa(0, "p16", nullptr);
    iv_mcbase_registra_cliente_de_servicio(16, "s32", nullptr);
    iv_mcbase_registra_servidor_de_servicio(16, "s32", nullptr);
    iv_mcbase_anota_actividad(0, 1, 1, "s32", 0, 0);

    EXPECT_EQ(s_informes_bajo, (argumentos{"7 held", "8 held", "9 held", "5 held"}));
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    for (int n = 0; n < 3; n++)
        EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
}

TEST_F(iv_mcbase, cada_operacion_toca_el_bloque_solo_bajo_el_mutex_y_en_su_sitio)
{
    pon_programa(0, "programa", 0, 1);
    pon_programa(1, "otro", 0, 1);
    pon_servicio(0, "Calc");
    m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };
    iv_mcserv_t canal = {};
    struct {
        const char *nombre;
        std::vector<uint32_t> sitios;
        std::function<void()> operacion;
    } const casos[] = {
        {"release", {1}, [] { iv_mcbase_libera_si_vacio(); }},
        {"monitor", {2}, [] { registra_monitor(ventana_num(0x1234)); }},
        {"monitor there?", {4}, [] { iv_mcbase_hay_monitor(0); }},
        {"activity", {5}, [] { iv_mcbase_anota_actividad(0, 1, 1, "Calc", 0, 0); }},
        {"prefix",
         {6},
         [] {
             char nombre[64];
             iv_mcbase_hay_servicio_registrado_empiece_por("Ca", nombre);
         }},
        {"program", {7}, [] { iv_mcbase_registra_programa(2, "programa", nullptr); }},
        {"client", {8}, [] { iv_mcbase_registra_cliente_de_servicio(0, "Calc", nullptr); }},
        {"server", {9}, [] { iv_mcbase_registra_servidor_de_servicio(0, "Calc", nullptr); }},
        {"command begins", {10}, [] { iv_mcbase_inicia_comando(0, 100); }},
        {"command ends", {11}, [] { iv_mcbase_termina_comando(0, 100); }},
        {"client round", {12}, [&] { iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(0, &canal); }},
        {"server round", {13}, [&] { iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(0, &canal); }},
        {"heartbeat", {14}, [] { iv_mcbase_estoy_vivo(0); }}, // waits 2 s
        {"monitor's message", {0}, [] { manda_al_monitor(s_programa_monitor->msg_monitor, 0, 1); }},
        {"monitor's round message", {}, [] { manda_al_monitor(s_programa_monitor->msg_monitor, 1, 40); }},
        {"removal", {15, 1}, [] { iv_mcbase_quita_programa(0); }},
        {"monitor's end", {3, 1}, [] { iv_mcbase_quita_monitor(); }},
    };
    iv_mcbase_abre(0, FALSO);
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        vigia_bloque vigia;
        caso.operacion();
        EXPECT_EQ(vigia.sitios(), caso.sitios);
        EXPECT_EQ(vigia.num_sin_mutex(), 0u);
        EXPECT_TRUE(m_mutex.libre());
    }
}

TEST_F(iv_mcbase, cierre_de_sesion_cierra_el_acceso_y_el_siguiente_registro_vuelve_a_contar)
{
    EXPECT_EQ(iv_mcbase_registra_programa(0, "programa", nullptr), 0);
    EXPECT_EQ(m_bloque.u16(4), 1);

    ivrexa_cierra_sesion();

    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
    EXPECT_EQ(m_bloque.texto(en_programa(0), 256), "programa"); // not this process's to clear
    EXPECT_EQ(iv_mcbase_registra_programa(0, "otro", nullptr), 1);
    EXPECT_EQ(m_bloque.u16(4), 2);
}

// An operation of another thread is under way, inside the lock: its post to the monitor takes a while.
static HANDLE s_dentro;
static volatile bool s_acabado;

TEST_F(iv_mcbase, cierre_espera_a_la_operacion_de_otro_hilo)
{
    pon_monitor();
    iv_mcbase_abre(0, FALSO);
    s_dentro = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    s_acabado = false;
    m_ventana->PostMessageW = [](HWND, UINT, WPARAM, LPARAM) -> BOOL {
        SetEvent(s_dentro);
        Sleep(100); // well below the bound of the closing thread's wait
        s_acabado = true;
        return TRUE;
    };
    iv_mcserv_t canal = {};
    hilo otro([&] { iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(0, &canal); });
    EXPECT_EQ(WaitForSingleObject(s_dentro, 10000), WAIT_OBJECT_0);

    iv_mcbase_cierra();

    EXPECT_TRUE(s_acabado);
    EXPECT_EQ(s_mcbase_acceso, nullptr);
    EXPECT_TRUE(otro.acaba(10000));
    CloseHandle(s_dentro);
}
