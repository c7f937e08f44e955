// The program's record and its entries: what each registration writes into them and what it leaves, and when.
#include "iv_reg_apoyo.h"

#include "comun/importacion.h"
#include "comun/proceso_propio.h"

IMPORTACION(CreateThread);

namespace {

struct iv_reg_ficha : con_sesion {};

// The static record, found by a session before; its bytes then hold what a test puts there.
uint8_t *ficha_de_antes()
{
    ivrexa_registra_servidor_net("C:\\antes.exe", nullptr, nombre_unico("Antes"), 1);
    uint8_t *ficha = reinterpret_cast<uint8_t *>(s_programa);
    ivrexa_terminado_registro();
    termina_canales();
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_programa, nullptr);
    return ficha;
}

std::vector<uint8_t> copia_de(const void *ini, size_t num)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(ini);
    return std::vector<uint8_t>(bytes, bytes + num);
}

std::string s_vista; // the record as a call of the registration sees it

std::string describe(const vista_memoria &ficha)
{
    return "state " + std::to_string(ficha.u32(0)) + " path " + ficha.texto(4) + " window " +
           std::to_string(ficha.u64(12) != 0) + " entry " + std::to_string(ficha.u16(28)) + " flag " +
           std::to_string(ficha.u16(30)) + " services " + std::to_string(ficha.u32(32)) + " next " +
           std::to_string(ficha.u32(1476)) + " used " + std::to_string(ficha.u32(1480));
}

} // namespace

// ---- The start of a registration

TEST_F(iv_reg_ficha, es_una_sola_y_cada_registro_limpia_sus_cuentas)
{
    uint8_t *ficha = ficha_de_antes();
    vista_memoria vista(ficha);
    vista.pon<uint32_t>(0, 9);
    for (size_t despl : {4, 12, 20})
        vista.pon<uint64_t>(despl, 0xEEEEEEEEEEEEEEEEu);
    vista.pon<uint16_t>(28, 0xEEEE);
    vista.pon<uint16_t>(30, 0xEEEE);
    for (size_t despl : {32, 1476, 1480, 2412})
        vista.pon<uint32_t>(despl, 0xEEEEEEEE);
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, nombre_unico("Usado"));

    EXPECT_EQ(reinterpret_cast<uint8_t *>(s_programa), ficha);
    EXPECT_EQ(vista.u32(0), 1u);
    EXPECT_EQ(vista.texto(4), "C:\\p.exe");
    EXPECT_EQ(vista.u64(12), 0u);
    EXPECT_EQ(vista.u64(20), 0u);
    EXPECT_EQ(vista.u16(28), 0u);
    EXPECT_EQ(vista.u16(30), 0u);
    EXPECT_EQ(vista.u32(32), 0u);
    EXPECT_EQ(vista.u32(1476), 200u);
    EXPECT_EQ(vista.u32(1480), 1u);
    EXPECT_EQ(vista.u32(2412), 0u);
}

// The record is cleared before the program enters the registry, and is the program's only behind that.
TEST_F(iv_reg_ficha, programa_lo_es_cuando_esta_en_el_registro_de_todos)
{
    vista_memoria ficha(ficha_de_antes());
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_programa(0, 0), "another program");
    mutex_crudo mutex("Ivrexa_Mutex_MCB", mutex_crudo::modo::crea);
    ASSERT_TRUE(mutex.retiene(5000));
    EXPECT_EQ(ficha.u32(0), 3u);
    const char *servicio = nombre_unico("Calc");
    hilo registra([&] { ivrexa_registra_servidor("C:\\p.exe", nullptr, servicio, 1, nullptr, funcion_comando); });
    EXPECT_TRUE(espera_hasta([&] { return ficha.u32(0) == 0; }, 5000));
    EXPECT_FALSE(registra.acaba(50));
    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(describe(ficha), "state 0 path (null) window 0 entry 0 flag 0 services 0 next 200 used 0");
    mutex.suelta();

    EXPECT_TRUE(registra.acaba(5000));
    EXPECT_EQ(describe(ficha), "state 1 path C:\\p.exe window 0 entry 1 flag 1 services 1 next 200 used 0");
    EXPECT_EQ(programa().u32(0), 1u);
}

// When the heartbeat is started the entry is known, and path, window and state are not there yet.
TEST_F(iv_reg_ficha, latido_empieza_antes_que_la_ruta_y_el_estado)
{
    static decltype(&CreateThread) s_crea;
    s_crea = __imp_CreateThread;
    s_vista.clear();
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_programa(0, 0), "another program");
    importacion_cambiada<decltype(&CreateThread)> cambio(
        __imp_CreateThread,
        [](LPSECURITY_ATTRIBUTES seguridad, SIZE_T pila, LPTHREAD_START_ROUTINE inicio, LPVOID arg, DWORD marcas,
           LPDWORD id) -> HANDLE {
            s_vista = describe(programa()) + (marcas == 0 ? "" : " suspended");
            return s_crea(seguridad, pila, inicio, arg, marcas, id);
        });
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("Calc"), 1, nullptr, funcion_comando);
    EXPECT_EQ(s_vista, "state 0 path (null) window 0 entry 1 flag 0 services 0 next 200 used 0");
}

TEST_F(iv_reg_ficha, ventana_de_un_cliente_se_cambia_con_la_ruta_puesta_y_antes_del_estado)
{
    s_vista.clear();
    ventana_cambiada cambiada;
    cambiada->SetWindowLongPtrW = [](HWND hwnd, int indice, LONG_PTR valor) -> LONG_PTR {
        s_vista = describe(programa());
        return SetWindowLongPtrW(hwnd, indice, valor);
    };
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), nombre_unico("Usado"));
    EXPECT_EQ(s_vista, "state 0 path C:\\p.exe window 1 entry 0 flag 0 services 0 next 200 used 0");
    EXPECT_EQ(programa().u32(0), 1u);
}

TEST_F(iv_reg_ficha, traza_de_un_cliente_empieza_por_su_registro_y_antes_que_el_heap)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    ivrexa_registra_cliente_de_servicio("C:\\c.exe", nullptr, "Calc");
    std::string texto = enmascara_tiempos(traza.texto_propio());
    EXPECT_EQ(texto.rfind("\n*** <t>:  REGISTRO CLIENTE SERVICIO Calc C:\\c.exe hwnd=0\n", 0), 0u) << texto;
    EXPECT_NE(texto.find("HeapCreate: "), std::string::npos) << texto;
    traza.borra();
    ivrexa_registra_cliente_de_servicio("C:\\otro.exe", nullptr, "Calc"); // changes nothing, and is traced
    EXPECT_EQ(enmascara_tiempos(traza.texto_propio()),
              "\n*** <t>:  REGISTRO CLIENTE SERVICIO Calc C:\\otro.exe hwnd=0\n");
}

// ---- A service offered

TEST_F(iv_reg_ficha, anexar_escribe_toda_la_entrada_menos_su_posicion)
{
    ivrexa_registra_servidor("C:\\p.exe", nullptr, nombre_unico("A"), 1, nullptr, funcion_comando);
    uint8_t *entrada = reinterpret_cast<uint8_t *>(s_programa) + 36 + 90;
    memset(entrada, 0xEE, 2 * 90);
    ivrexa_anyade_servicio("B", 0xABCD, reinterpret_cast<void *>(0x1122334455667788u), funcion_comando);

    vista_memoria b = prestado(1);
    EXPECT_EQ(b.texto(0), "B");
    EXPECT_EQ(b.u32(8), 0xEEEEEEEEu); // ind_datServ
    EXPECT_EQ(b.u16(12), 0xABCDu);
    EXPECT_EQ(b.u64(14), 0x1122334455667788u);
    EXPECT_EQ(b.puntero(22), reinterpret_cast<void *>(funcion_comando));
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(60), copia_de(entrada + 30, 60)));
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(90, 0xEE), copia_de(entrada + 90, 90)));
    memset(entrada + 90, 0, 90);
}

TEST_F(iv_reg_ficha, decimoseptimo_sin_funcion_se_informa_dos_veces_y_no_se_traza)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    for (int n = 0; n < 16; n++)
        ivrexa_registra_servidor("C:\\p.exe", nullptr, ("S" + std::to_string(n)).c_str(), 1, nullptr, funcion_comando);
    EXPECT_NE(traza.texto_propio().find(" REGISTRO SERVICIO PRESTADO S15 "), std::string::npos);
    std::vector<uint8_t> antes = copia_de(s_programa, 3324);
    traza.borra();
    ivrexa_anyade_servicio("S16", 1, nullptr, nullptr);
    EXPECT_INFORME("iv_reg", "(procesaComandoExterno) != 0");
    EXPECT_INFORME("iv_reg", "s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(traza.texto_propio().find("REGISTRO SERVICIO"), std::string::npos);
    EXPECT_TRUE(bytes_iguales(antes, copia_de(s_programa, 3324)));
}

// A client's mark is 0: what it adds later keeps no command function, the call that makes it a server does.
TEST_F(iv_reg_ficha, cliente_que_se_hace_servidor_conserva_su_marca_0)
{
    bloque_crudo mcb = abre_registro();
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), nombre_unico("Usado"));
    const char *a = nombre_unico("A");
    ivrexa_registra_servidor("C:\\otra.exe", nullptr, a, 1, reinterpret_cast<void *>(5), funcion_comando);
    ivrexa_anyade_servicio(nombre_unico("B"), 1, reinterpret_cast<void *>(6), funcion_comando);
    EXPECT_SIN_INFORMES();
    ivrexa_anyade_servicio("C", 1, nullptr, nullptr);
    EXPECT_INFORME("iv_reg", "procesaComandoExterno != NULL");

    EXPECT_EQ(programa().u16(30), 0u);
    EXPECT_EQ(programa().texto(4), "C:\\p.exe");
    EXPECT_EQ(programa().puntero(12), ventana());
    EXPECT_EQ(prestado(0).puntero(22), reinterpret_cast<void *>(funcion_comando));
    EXPECT_EQ(prestado(0).u64(14), 5u);
    EXPECT_EQ(prestado(1).u64(22), 0u);
    EXPECT_EQ(prestado(1).u64(14), 0u);
    EXPECT_EQ(mcb.u16(en_programa(0, 264)), 0u); // a server once it is published
    ivrexa_terminado_registro();
    EXPECT_EQ(mcb.u16(en_programa(0, 264)), 1u);
    EXPECT_EQ(mcb.u16(en_programa(0, 266)), 1u);
    EXPECT_EQ(SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(a), 100, 0), 1);
}

// ---- Finding a service

TEST_F(iv_reg_ficha, de_dos_servicios_con_un_nombre_vale_el_primero)
{
    const char *nombre = nombre_unico("Calc");
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre, 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(nombre, 2, nullptr, funcion_comando);
    EXPECT_EQ(programa().u32(32), 2u);
    prestado(0).pon<uint32_t>(38, 0xC111);
    prestado(1).pon<uint32_t>(38, 0xC222);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(nombre), 0xC111u);
}

TEST_F(iv_reg_ficha, nombres_se_distinguen_por_mayusculas)
{
    ivrexa_registra_servidor("C:\\p.exe", ventana(), "Calc", 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio("CALC", 1, nullptr, funcion_comando);
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, "Otro");
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, "OTRO");
    EXPECT_EQ(programa().u32(1480), 2u); // another service
    for (uint32_t i = 0; i < 2; i++) {
        prestado(i).pon<uint32_t>(38, 0xC111 + i);
        solicitado(i).pon<uint32_t>(12, 0xC222 + i);
    }
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("Calc"), 0xC111u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("CALC"), 0xC112u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("calc"), 0u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("Otro"), 0xC222u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("OTRO"), 0xC223u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("Otr"), 0u);
}

// ---- A service used

TEST_F(iv_reg_ficha, entrada_de_un_servicio_usado_se_escribe_entera)
{
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, nombre_unico("A"));
    uint8_t *entrada = reinterpret_cast<uint8_t *>(s_programa) + 1484 + 58;
    memset(entrada, 0xEE, 2 * 58);
    const char *b = nombre_unico("B");
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, b);

    EXPECT_EQ(solicitado(1).texto(0), b);
    EXPECT_EQ(solicitado(1).u32(8), 1u);
    EXPECT_EQ(solicitado(1).u32(12), RegisterWindowMessageA((std::string("Ivrexa_MSG_Serv_") + b).c_str()));
    EXPECT_EQ(solicitado(1).u32(16), 0u);
    EXPECT_EQ(solicitado(1).u64(20), 0u);
    EXPECT_EQ(GetThreadId(solicitado(1).puntero(44)), solicitado(1).u32(52));
    EXPECT_EQ(solicitado(1).u16(56), 0u);
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(58, 0xEE), copia_de(entrada + 58, 58)));
    memset(entrada + 58, 0, 58);
}

TEST_F(iv_reg_ficha, mismo_servicio_con_otra_ventana_se_informa_y_no_cambia_nada)
{
    const char *servicio = nombre_unico("Calc");
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, servicio);
    std::vector<uint8_t> antes = copia_de(s_programa, 3324);
    ivrexa_registra_cliente_notificaciones_servicio("C:\\otra.exe", ventana(), servicio, funcion_aviso);
    EXPECT_INFORME("iv_reg", "hwnd_programa == s_programa->hwnd_programa");
    EXPECT_TRUE(bytes_iguales(antes, copia_de(s_programa, 3324)));
    EXPECT_EQ(GetWindowLongPtrW(ventana(), GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(proc_propia));
}

// Only the first registration of a program subclasses its window, and a server's not before it is published.
TEST_F(iv_reg_ficha, cliente_no_cambia_la_ventana_de_un_servidor)
{
    for (bool net : {true, false}) {
        if (net)
            ivrexa_registra_servidor_net("C:\\p.exe", ventana(), nombre_unico("Net"), 1);
        else
            ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("Calc"), 1, nullptr, funcion_comando);
        ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), nombre_unico("Usado"));
        EXPECT_EQ(programa().u64(20), 0u);
        EXPECT_EQ(GetWindowLongPtrW(ventana(), GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(proc_propia));
        ivrexa_terminado_registro();
        EXPECT_EQ(programa().puntero(20), net ? nullptr : reinterpret_cast<void *>(proc_propia));
        cierra();
    }
}
