// Full tables, blocks of other sizes, and a system that refuses: what the module does then.
#include "iv_reg_apoyo.h"

#include "comun/importacion.h"

IMPORTACION(CreateThread);
IMPORTACION(Sleep);

namespace {

struct iv_reg_limites : con_sesion {
    // A registry with no free place for a service, or for a program.
    void llena_servicios(bloque_crudo *mcb)
    {
        for (uint32_t i = 0; i < 32; i++)
            mcb->pon_texto(en_servicio(i, 0), "s" + std::to_string(i));
    }
    void llena_programas(bloque_crudo *mcb)
    {
        for (uint32_t i = 0; i < 16; i++)
            mcb->pon_texto(en_programa(i, 0), "p" + std::to_string(i));
    }
    void espera_informe_de_tabla(int veces)
    {
        for (int n = 0; n < veces; n++)
            EXPECT_INFORME("iv_mcbase", "ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS");
        EXPECT_SIN_INFORMES();
    }
};
struct iv_reg_sistema : con_sesion {};

HANDLE WINAPI sin_hilos(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

} // namespace

// ---- Full tables

// A service that is in no place of the registry: its loop's first round ends it.
TEST_F(iv_reg_limites, servicio_trigesimo_tercero_sin_ventana_se_informa_y_acaba)
{
    bloque_crudo mcb = abre_registro();
    llena_servicios(&mcb);
    const char *servicio = nombre_unico("Calc");
    bloque_crudo canal = abre_canal(servicio);
    sirve(servicio, nullptr);
    espera_informe_de_tabla(2); // it is entered, and announced

    EXPECT_EQ(prestado(0).u32(8), 32u);
    EXPECT_EQ(WaitForSingleObject(prestado(0).puntero(66), 5000), WAIT_OBJECT_0);
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(canal.u32(30), 0u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
    ivrexa_espera_comando_terminar_servidor();
    cierra();
    EXPECT_EQ(mcb.texto(en_servicio(0, 0), 64), "s0");
    EXPECT_EQ(mcb.texto(en_servicio(31, 0), 64), "s31");
}

TEST_F(iv_reg_limites, servicio_trigesimo_tercero_con_ventana_sirve)
{
    bloque_crudo mcb = abre_registro();
    llena_servicios(&mcb);
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, ventana());
    espera_informe_de_tabla(2);
    EXPECT_EQ(prestado(0).u32(8), 32u);
    EXPECT_EQ(bloque_crudo(nombre_canal(servicio).c_str()).u32(30), 1u);
    EXPECT_EQ(SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(servicio), 100, 0), 1);
    EXPECT_EQ(num_llamadas(), 1u);
}

TEST_F(iv_reg_limites, cliente_del_trigesimo_tercero_se_informa_y_recibe_notificaciones)
{
    bloque_crudo mcb = abre_registro();
    llena_servicios(&mcb);
    const char *servicio = nombre_unico("Calc");
    iv_reg_registra_cliente("C:\\p.exe", nullptr, servicio, funcion_aviso);
    espera_informe_de_tabla(1);
    EXPECT_EQ(solicitado(0).u32(8), 32u);
    bloque_crudo canal = abre_canal(servicio);
    canal.pon_u32(2362, 1);
    EXPECT_TRUE(espera_hasta([] { return num_avisos() == 1; }, 5000));
}

TEST_F(iv_reg_limites, decimoseptimo_programa_sirve_y_su_cierre_no_toca_a_los_demas)
{
    bloque_crudo mcb = abre_registro();
    llena_programas(&mcb);
    mcb.pon_u32(en_programa(15, 270), 77);
    std::vector<uint8_t> antes = mcb.bytes(1430, 16 * 274);
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, ventana());
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    EXPECT_EQ(programa().u16(28), 16u);
    EXPECT_EQ(mcb.u16(en_servicio(0, 64)), 16u); // id_programa_servidor
    EXPECT_EQ(SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(servicio), 100, 0), 1);
    cierra();
    EXPECT_SIN_INFORMES();
    EXPECT_TRUE(bytes_iguales(antes, mcb.bytes(1430, 16 * 274)));
    EXPECT_EQ(busca_en_registro(mcb, servicio), 32u);
}

TEST_F(iv_reg_limites, decimosexto_servicio_ofrecido_sirve_como_los_demas)
{
    std::string ultimo = nombre_unico("S");
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("S"), 1, nullptr, funcion_comando);
    for (int n = 1; n < 15; n++)
        ivrexa_anyade_servicio(nombre_unico("S"), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(ultimo.c_str(), 1, reinterpret_cast<void *>(16), funcion_comando);
    ivrexa_terminado_registro();
    EXPECT_EQ(prestado(15).u32(8), 15u);
    EXPECT_EQ(SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(ultimo.c_str()), 100, 0), 1);
    ASSERT_EQ(num_llamadas(), 1u);
    EXPECT_EQ(s_llamadas[0].servicio, ultimo);
    EXPECT_EQ(s_llamadas[0].datos_externos, reinterpret_cast<void *>(16));
}

TEST_F(iv_reg_limites, decimosexto_servicio_usado_tiene_la_ultima_marca_del_documento)
{
    std::string ultimo;
    for (int n = 0; n < 16; n++)
        ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, (ultimo = nombre_unico("S")).c_str());
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(ultimo.c_str(), L"uno", 11), 200u);
    for (size_t i = 0; i < 16; i++)
        EXPECT_EQ(documento_en(0).u8(12 + i), i == 15 ? 1u : 0u) << i;
    EXPECT_EQ(documento_en(1).u64(0), 0u);
    ivrexa_cerrado_documento_de_cliente(L"uno", 11);
    EXPECT_EQ(documento_en(0).u8(12 + 15), 0u);
}

// ---- Blocks that are too small count as none

TEST_F(iv_reg_limites, canal_pequenyo_no_se_sirve_ni_se_escribe)
{
    for (bool con_ventana : {true, false}) {
        const char *servicio = nombre_unico("Calc");
        bloque_crudo canal(nombre_canal(servicio).c_str(), 100);
        sirve(servicio, con_ventana ? ventana() : nullptr);
        EXPECT_SIN_INFORMES();
        EXPECT_EQ(prestado(0).puntero(58), nullptr);
        if (con_ventana) {
            UINT msg = ivrexa_dame_id_MSG_servicio(servicio);
            EXPECT_EQ(SendMessageW(ventana(), msg, 100, 0), 3);
            EXPECT_EQ(SendMessageW(ventana(), msg, 1, 0), 1);
        } else {
            EXPECT_EQ(WaitForSingleObject(prestado(0).puntero(66), 5000), WAIT_OBJECT_0);
            ivrexa_espera_comando_terminar_servidor();
        }
        EXPECT_EQ(ivrexa_get_datos_entrada_comando(servicio, 0, nullptr, nullptr, nullptr, nullptr), 0);
        ivrexa_notifica_a_cliente(servicio, 200, 7, 105);
        cierra();
        EXPECT_SIN_INFORMES();
        EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(4092), canal.bytes(0, 4092)));
    }
    EXPECT_EQ(num_llamadas(), 0u);
    MSG msg;
    EXPECT_FALSE(PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
}

TEST_F(iv_reg_limites, cliente_de_un_canal_pequenyo_no_recibe_nada)
{
    const char *servicio = nombre_unico("Calc");
    bloque_crudo canal(nombre_canal(servicio).c_str(), 100);
    iv_reg_registra_cliente("C:\\p.exe", nullptr, servicio, funcion_aviso);
    EXPECT_EQ(solicitado(0).puntero(36), nullptr);
    HANDLE h = solicitado(0).puntero(44);
    EXPECT_EQ(WaitForSingleObject(h, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(ivrexa_obtener_id_datos_notificacion(servicio, 0, 0), 0u);
    ivrexa_procesada_notificacion(servicio);
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(servicio, L"x", 1), 200u);
    cierra();
    EXPECT_SIN_INFORMES();
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(4092), canal.bytes(0, 4092)));
}

TEST_F(iv_reg_limites, registro_pequenyo_deja_al_servidor_con_ventana_sin_lugar_y_sirviendo)
{
    bloque_crudo mcb("Ivrexa_MCB", 100);
    if (mcb.ya_existia())
        GTEST_SKIP() << "a test before, in the same process, keeps the registry";
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, ventana());
    EXPECT_EQ(programa().u16(28), 16u);
    EXPECT_EQ(prestado(0).u32(8), 32u);
    EXPECT_EQ(SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(servicio), 100, 0), 1);
    cierra();
    EXPECT_SIN_INFORMES();
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(4092), mcb.bytes(0, 4092)));
}

// ---- The system refuses: nothing is checked, and nothing is reported

TEST_F(iv_reg_sistema, sin_numero_de_mensaje_el_servicio_se_publica_con_0)
{
    const char *servicio = nombre_unico("Calc"), *usado = nombre_unico("Usado");
    ventana_cambiada cambiada;
    cambiada->RegisterWindowMessageA = [](LPCSTR) -> UINT { return 0; };
    sirve(servicio, ventana());
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, usado);

    EXPECT_SIN_INFORMES();
    EXPECT_EQ(prestado(0).u32(38), 0u);
    EXPECT_EQ(solicitado(0).u32(12), 0u);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u64(16), reinterpret_cast<uint64_t>(ventana()));
    EXPECT_EQ(canal.u32(24), 0u);
    EXPECT_EQ(canal.u32(30), 1u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(servicio), 0u);
}

TEST_F(iv_reg_sistema, sin_hilos_el_programa_se_registra_y_se_cierra)
{
    const char *servicio = nombre_unico("Calc"), *usado = nombre_unico("Usado");
    {
        importacion_cambiada<decltype(&CreateThread)> cambio(__imp_CreateThread, sin_hilos);
        sirve(servicio, nullptr);
        ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, usado);
    }
    EXPECT_EQ(programa().u32(0), 1u);
    EXPECT_EQ(programa().puntero(3312), nullptr);
    EXPECT_EQ(programa().u32(3320), 0u);
    EXPECT_EQ(prestado(0).puntero(66), nullptr);
    EXPECT_EQ(prestado(0).u32(74), 0u);
    EXPECT_EQ(solicitado(0).puntero(44), nullptr);
    EXPECT_EQ(solicitado(0).u32(52), 0u);
    ivrexa_espera_comando_terminar_servidor(); // there is nobody to wait for
    static decltype(&Sleep) s_duerme;
    static int s_gracias;
    s_duerme = __imp_Sleep;
    s_gracias = 0;
    importacion_cambiada<decltype(&Sleep)> cambio(__imp_Sleep, [](DWORD ms) {
        s_gracias += ms == 500;
        s_duerme(ms);
    });
    cierra();
    EXPECT_EQ(s_gracias, 0); // nor to give time to
    EXPECT_SIN_INFORMES();
}

// A window that is not subclassed: what is kept is null, the next to install tries again, the close does not.
TEST_F(iv_reg_sistema, ventana_que_no_se_deja_cambiar_se_queda_como_esta)
{
    static int s_num;
    s_num = 0;
    ventana_cambiada cambiada;
    cambiada->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return s_num++, 0; };
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), nombre_unico("Usado"));
    EXPECT_EQ(s_num, 1);
    EXPECT_EQ(programa().u64(20), 0u);
    s_programa->usa_procesaComandoExterno = 1;
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("Calc"), 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    EXPECT_EQ(s_num, 2);
    cierra();
    EXPECT_EQ(s_num, 2);
    EXPECT_SIN_INFORMES();
}
