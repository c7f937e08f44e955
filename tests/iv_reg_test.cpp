// A program's registration: its record field by field, its services, what other programs see of them, its
// heartbeat.
#include "iv_reg_apoyo.h"

#include "comun/importacion.h"
#include "comun/proceso_propio.h"

#include "iv_mcbase.h"

IMPORTACION(CreateThread);

namespace {

const uint64_t DATOS = 0x1122334455667788u;

void *como_puntero(uint64_t valor)
{
    return reinterpret_cast<void *>(valor);
}

uint64_t como_numero(const void *puntero)
{
    return reinterpret_cast<uint64_t>(puntero);
}

uint64_t proc_de(HWND hwnd)
{
    return static_cast<uint64_t>(GetWindowLongPtrW(hwnd, GWLP_WNDPROC));
}

// What the library asks of the window system, in order.
std::vector<std::string> s_pasos;

// The states of two services' channels when the window is subclassed.
std::string s_canales[2];

UINT WINAPI apunta_mensaje(LPCSTR nombre)
{
    s_pasos.push_back(std::string("message ") + nombre);
    return RegisterWindowMessageA(nombre);
}

LONG_PTR WINAPI apunta_subclase(HWND hwnd, int indice, LONG_PTR valor)
{
    s_pasos.push_back("subclass " + std::to_string(indice));
    for (const std::string &canal : s_canales)
        if (!canal.empty())
            s_pasos.push_back("state " + std::to_string(bloque_crudo(canal.c_str()).u32(30)));
    return SetWindowLongPtrW(hwnd, indice, valor);
}

BOOL WINAPI apunta_aviso(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    s_pasos.push_back("post " + std::to_string(reinterpret_cast<uintptr_t>(hwnd)) + " " + std::to_string(msg) + " " +
                      std::to_string(wparam) + " " + std::to_string(lparam));
    for (const std::string &canal : s_canales)
        if (!canal.empty())
            s_pasos.push_back("state " + std::to_string(bloque_crudo(canal.c_str()).u32(30)));
    return TRUE;
}

struct iv_reg_registro : con_sesion {
    iv_reg_registro()
    {
        s_pasos.clear();
        s_canales[0].clear();
        s_canales[1].clear();
    }
};

struct iv_reg_servicios : iv_reg_registro {};
struct iv_reg_publica : iv_reg_registro {};
struct iv_reg_latido : iv_reg_registro {};

} // namespace

// ---- The program's record

TEST_F(iv_reg_registro, registro_de_servidor_llena_la_ficha_campo_a_campo)
{
    const char *servicio = nombre_unico("Calc");
    const char *ruta = "C:\\un programa.exe";
    ivrexa_registra_servidor(ruta, ventana(), servicio, 0x1234, como_puntero(DATOS), funcion_comando);

    EXPECT_EQ(programa().u32(0), 1u); // estado_registro
    EXPECT_EQ(programa().texto(4), ruta);
    EXPECT_NE(programa().puntero(4), ruta); // a copy
    EXPECT_EQ(programa().puntero(12), ventana());
    EXPECT_EQ(programa().u64(20), 0u);     // wndproc_anterior
    EXPECT_EQ(programa().u16(28), 0u);     // id_programa
    EXPECT_EQ(programa().u16(30), 1u);     // usa_procesaComandoExterno
    EXPECT_EQ(programa().u32(32), 1u);     // num_servicios_prestados
    EXPECT_EQ(programa().u32(1476), 200u); // siguiente_id_cliente
    EXPECT_EQ(programa().u32(1480), 0u);   // num_servicios_solicitados
    EXPECT_EQ(programa().u32(2412), 0u);   // num_documentos
    EXPECT_EQ(GetThreadId(programa().puntero(3312)), programa().u32(3320));
    EXPECT_NE(programa().u32(3320), 0u);

    EXPECT_EQ(prestado(0).texto(0), servicio);
    EXPECT_NE(prestado(0).puntero(0), servicio);
    EXPECT_EQ(prestado(0).u16(12), 0x1234); // version
    EXPECT_EQ(prestado(0).u64(14), DATOS);
    EXPECT_EQ(prestado(0).puntero(22), reinterpret_cast<void *>(funcion_comando));
    for (size_t despl : {30, 42, 50, 58, 66, 82})
        EXPECT_EQ(prestado(0).u64(despl), 0u) << despl;
    for (size_t despl : {38, 74, 78})
        EXPECT_EQ(prestado(0).u32(despl), 0u) << despl;
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str())); // nothing is published yet
}

TEST_F(iv_reg_registro, publicar_llena_el_resto_de_la_ficha_del_servicio)
{
    const char *servicio = nombre_unico("Calc");
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_servicio(0, 0), "otro");
    sirve(servicio, ventana());

    EXPECT_EQ(prestado(0).u32(8), 1u); // ind_datServ
    EXPECT_EQ(prestado(0).texto(30), nombre_canal(servicio));
    EXPECT_EQ(prestado(0).u32(38), RegisterWindowMessageA((std::string("Ivrexa_MSG_Serv_") + servicio).c_str()));
    EXPECT_STREQ(mutex_en(prestado(0), 42)->nombre, (std::string("Mutex_Ivrexa_") + servicio + "Interno").c_str());
    EXPECT_STREQ(mutex_en(prestado(0), 50)->nombre, (std::string("Mutex_Ivrexa_") + servicio).c_str());
    auto *bloque = static_cast<iv_shared_bloque *>(prestado(0).puntero(58));
    EXPECT_EQ(bloque->nombre, nombre_canal(servicio));
    EXPECT_STREQ(bloque->tipo, "iv_mcserv_t");
    EXPECT_EQ(mcb.texto(en_servicio(1, 0), 64), servicio);
    EXPECT_EQ(mcb.u16(en_servicio(1, 64)), 0u); // id_programa_servidor
}

TEST_F(iv_reg_registro, programa_entra_en_el_registro_de_todos)
{
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_programa(0, 0), "otro");
    ivrexa_registra_servidor("C:\\p.exe", ventana(), nombre_unico("Calc"), 1, nullptr, funcion_comando);

    EXPECT_EQ(programa().u16(28), 1u);
    EXPECT_EQ(mcb.texto(en_programa(1, 0), 256), "C:\\p.exe");
    EXPECT_EQ(mcb.u64(en_programa(1, 256)), como_numero(ventana()));
    EXPECT_EQ(mcb.u16(en_programa(1, 264)), 1u);
    EXPECT_EQ(mcb.u16(en_programa(1, 266)), 0u);
    EXPECT_EQ(mcb.u16(en_programa(1, 268)), 0u);
    EXPECT_EQ(mcb.u16(4), 1u); // num_registros
}

TEST_F(iv_reg_registro, servidor_que_usa_un_servicio_lleva_las_dos_marcas_en_una_entrada)
{
    bloque_crudo mcb = abre_registro();
    ivrexa_registra_servidor("C:\\p.exe", nullptr, nombre_unico("Calc"), 1, nullptr, funcion_comando);
    ivrexa_registra_cliente_de_servicio("C:\\otro.exe", nullptr, nombre_unico("Otro"));

    EXPECT_EQ(mcb.u16(en_programa(0, 264)), 1u);
    EXPECT_EQ(mcb.u16(en_programa(0, 266)), 1u);
    EXPECT_EQ(mcb.texto(en_programa(1, 0), 256), "");
    EXPECT_EQ(programa().texto(4), "C:\\p.exe");
    EXPECT_EQ(programa().u16(30), 1u);
}

TEST_F(iv_reg_registro, segundo_registro_solo_anyade_un_servicio)
{
    bloque_crudo mcb = abre_registro();
    ivrexa_registra_servidor("C:\\uno.exe", nullptr, nombre_unico("A"), 1, nullptr, funcion_comando);
    uint32_t id_hilo = programa().u32(3320);
    const char *segundo = nombre_unico("B");
    ivrexa_registra_servidor_net("C:\\dos.exe", ventana(), segundo, 2);

    EXPECT_EQ(programa().texto(4), "C:\\uno.exe");
    EXPECT_EQ(programa().puntero(12), nullptr);
    EXPECT_EQ(programa().u16(30), 1u);
    EXPECT_EQ(programa().u32(3320), id_hilo);
    EXPECT_EQ(mcb.texto(en_programa(1, 0), 256), "");
    EXPECT_EQ(programa().u32(32), 2u);
    EXPECT_EQ(prestado(1).texto(0), segundo);
    EXPECT_EQ(prestado(1).u16(12), 2u);
    EXPECT_EQ(prestado(1).puntero(22), nullptr);
}

// The flag of the call decides for its service, the program's own stays.
TEST_F(iv_reg_registro, segundo_registro_con_funcion_la_guarda_en_un_programa_net)
{
    ivrexa_registra_servidor_net("C:\\uno.exe", ventana(), nombre_unico("A"), 1);
    ivrexa_registra_servidor("C:\\dos.exe", ventana(), nombre_unico("B"), 1, como_puntero(DATOS), funcion_comando);

    EXPECT_EQ(programa().u16(30), 0u);
    EXPECT_EQ(prestado(0).puntero(22), nullptr);
    EXPECT_EQ(prestado(1).puntero(22), reinterpret_cast<void *>(funcion_comando));
    EXPECT_EQ(prestado(1).u64(14), DATOS);
}

TEST_F(iv_reg_registro, sin_la_marca_no_se_guarda_ni_funcion_ni_datos)
{
    iv_reg_registra_servidor("C:\\p.exe", nullptr, nombre_unico("A"), 1, 0, como_puntero(DATOS), funcion_comando);

    EXPECT_EQ(programa().u16(30), 0u);
    EXPECT_EQ(prestado(0).u64(14), 0u);
    EXPECT_EQ(prestado(0).u64(22), 0u);
}

TEST_F(iv_reg_registro, traza_empieza_por_el_registro_y_antes_que_el_heap)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    ivrexa_registra_servidor("C:\\p.exe", nullptr, "Calc", 7, nullptr, funcion_comando);

    std::string texto = traza.texto_propio(), sin_tiempos = enmascara_tiempos(texto);
    EXPECT_EQ(sin_tiempos.rfind("\n*** <t>: Registro Servidor C:\\p.exe hwnd=0\n", 0), 0u) << sin_tiempos;
    EXPECT_NE(sin_tiempos.find("HeapCreate: "), std::string::npos) << sin_tiempos;
    EXPECT_EQ(solo_registros(texto), "\n*** <t>: Registro Servidor C:\\p.exe hwnd=0\n"
                                     "*** Inicio registro Servidor"
                                     "\n*** <t>:  REGISTRO SERVICIO PRESTADO Calc Version 7\n");
}

TEST_F(iv_reg_registro, traza_de_los_demas_registros)
{
    if (!en_proceso_trazado())
        return;
    std::string hwnd = std::to_string(como_numero(ventana()));
    captura_traza traza;
    ivrexa_registra_cliente_de_servicio("C:\\c.exe", ventana(), "Calc");
    EXPECT_EQ(solo_registros(traza.texto_propio()),
              "\n*** <t>:  REGISTRO CLIENTE SERVICIO Calc C:\\c.exe hwnd=" + hwnd + "\n*** Inicio registro Cliente");
    traza.borra();
    ivrexa_registra_servidor_net("C:\\otro.exe", ventana(), "Net", 65535);
    EXPECT_EQ(solo_registros(traza.texto_propio()), "\n*** <t>: Registro Servidor C:\\otro.exe hwnd=" + hwnd +
                                                        "\n\n*** <t>:  REGISTRO SERVICIO PRESTADO Net Version 65535\n");
    traza.borra();
    ivrexa_anyade_servicio("Mas", 0, nullptr, funcion_comando);
    EXPECT_EQ(solo_registros(traza.texto_propio()), "\n*** <t>:  REGISTRO SERVICIO PRESTADO Mas Version 0\n");
}

// ---- Further services

TEST_F(iv_reg_servicios, anyadir_sin_programa_se_informa_y_no_hace_nada)
{
    ivrexa_anyade_servicio("Calc", 1, nullptr, nullptr);
    EXPECT_INFORME("iv_reg", "(s_programa) != 0");
    ivrexa_anyade_servicio_net("Calc", 1);
    EXPECT_INFORME("iv_reg", "(s_programa) != 0");

    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
}

TEST_F(iv_reg_servicios, funcion_nula_se_informa_y_el_servicio_se_anyade)
{
    ivrexa_registra_servidor("C:\\p.exe", nullptr, nombre_unico("A"), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio("B", 2, como_puntero(DATOS), nullptr);
    EXPECT_INFORME("iv_reg", "(procesaComandoExterno) != 0");
    ivrexa_anyade_servicio_net("C", 3);
    EXPECT_INFORME("iv_reg", "(procesaComandoExterno) != 0");
    ivrexa_anyade_servicio("D", 4, como_puntero(DATOS), funcion_comando);

    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(programa().u32(32), 4u);
    EXPECT_EQ(prestado(1).texto(0), "B");
    EXPECT_EQ(prestado(1).u64(14), DATOS);
    EXPECT_EQ(prestado(1).puntero(22), nullptr);
    EXPECT_EQ(prestado(2).u16(12), 3u);
    EXPECT_EQ(prestado(3).puntero(22), reinterpret_cast<void *>(funcion_comando));
}

TEST_F(iv_reg_servicios, en_un_programa_net_no_se_guarda_funcion_y_la_nula_tiene_otro_texto)
{
    ivrexa_registra_servidor_net("C:\\p.exe", nullptr, nombre_unico("A"), 1);
    ivrexa_anyade_servicio_net("B", 2);
    EXPECT_INFORME("iv_reg", "procesaComandoExterno != NULL");
    ivrexa_anyade_servicio("C", 3, como_puntero(DATOS), funcion_comando);

    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(programa().u32(32), 3u);
    EXPECT_EQ(prestado(1).texto(0), "B");
    EXPECT_EQ(prestado(2).u64(14), 0u);
    EXPECT_EQ(prestado(2).u64(22), 0u);
}

TEST_F(iv_reg_servicios, posicion_en_el_registro_no_se_toca_hasta_publicar)
{
    ivrexa_registra_servidor("C:\\p.exe", nullptr, nombre_unico("A"), 1, nullptr, funcion_comando);
    prestado(1).pon<uint32_t>(8, 4242);
    ivrexa_anyade_servicio(nombre_unico("B"), 1, nullptr, funcion_comando);
    EXPECT_EQ(prestado(1).u32(8), 4242u);

    ivrexa_terminado_registro();
    EXPECT_EQ(prestado(1).u32(8), 1u);
}

// Both roads to a 17th service report it and drop it, and touch nothing behind the table.
TEST_F(iv_reg_servicios, decimoseptimo_se_informa_y_se_pierde_por_los_dos_caminos)
{
    ivrexa_registra_servidor("C:\\p.exe", nullptr, "S0", 1, nullptr, funcion_comando);
    for (int n = 1; n < 8; n++)
        ivrexa_anyade_servicio(("S" + std::to_string(n)).c_str(), 1, nullptr, funcion_comando);
    for (int n = 8; n < 16; n++)
        ivrexa_registra_servidor("x", nullptr, ("S" + std::to_string(n)).c_str(), 1, nullptr, funcion_comando);
    ASSERT_EQ(num_informes(), 0u);
    ASSERT_EQ(programa().u32(32), 16u);
    EXPECT_EQ(prestado(15).texto(0), "S15");

    ivrexa_anyade_servicio("S16", 1, nullptr, funcion_comando);
    EXPECT_INFORME("iv_reg", "s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS");
    ivrexa_registra_servidor("x", nullptr, "S17", 1, nullptr, funcion_comando);
    EXPECT_INFORME("iv_reg", "s_programa->num_servicios_prestados < i_NUM_MAX_SERVICIOS_PRESTADOS");

    EXPECT_EQ(programa().u32(32), 16u);
    EXPECT_EQ(prestado(15).texto(0), "S15");
    EXPECT_EQ(programa().u32(1476), 200u);
    EXPECT_EQ(programa().u32(1480), 0u);
}

// ---- Publishing

TEST_F(iv_reg_publica, sin_programa_no_hace_nada)
{
    ivrexa_terminado_registro();
    EXPECT_EQ(s_programa, nullptr);
    EXPECT_EQ(s_LocalHeap, nullptr);
}

TEST_F(iv_reg_publica, canal_de_un_servidor_sin_ventana_byte_a_byte)
{
    const char *servicio = nombre_unico("Calc");
    ivrexa_registra_servidor("C:\\p.exe", nullptr, servicio, 0xABCD, nullptr, funcion_comando);
    ivrexa_terminado_registro();

    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.cabecera(), 2378u);
    std::vector<uint8_t> esperados(2378);
    esperados[0] = 0x4A; // 2378
    esperados[1] = 0x09;
    esperados[2] = 0xCD; // version
    esperados[3] = 0xAB;
    esperados[12] = 100; // next block
    esperados[30] = 1;   // waiting
    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, 2378)));
}

TEST_F(iv_reg_publica, sin_ventana_hay_un_hilo_por_servicio_y_ningun_mensaje)
{
    bloque_crudo mcb = abre_registro();
    const char *servicios[2] = {nombre_unico("A"), nombre_unico("B")};
    ivrexa_registra_servidor("C:\\p.exe", nullptr, servicios[0], 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(servicios[1], 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();

    EXPECT_NE(prestado(0).u32(74), prestado(1).u32(74));
    for (uint32_t i = 0; i < 2; i++) {
        EXPECT_EQ(GetThreadId(prestado(i).puntero(66)), prestado(i).u32(74));
        EXPECT_EQ(prestado(i).u32(78), 2u);
        EXPECT_EQ(prestado(i).u32(38), 0u);
        EXPECT_EQ(ivrexa_dame_id_MSG_servicio(servicios[i]), 0u);
        EXPECT_EQ(prestado(i).u32(8), busca_en_registro(mcb, servicios[i]));
    }
    // Both threads take rounds in their service's entry.
    EXPECT_TRUE(
        espera_hasta([&] { return mcb.u32(en_servicio(0, 68)) == 1 && mcb.u32(en_servicio(1, 68)) == 1; }, 5000));
}

TEST_F(iv_reg_publica, con_ventana_el_canal_la_nombra_y_no_hay_hilos)
{
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, ventana());

    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u64(16), como_numero(ventana()));
    EXPECT_EQ(canal.u32(24), ivrexa_dame_id_MSG_servicio(servicio));
    EXPECT_GE(canal.u32(24), 0xC000u);
    EXPECT_EQ(canal.u16(28), 0u);
    EXPECT_EQ(canal.u32(30), 1u);
    EXPECT_EQ(prestado(0).puntero(66), nullptr);
    EXPECT_EQ(prestado(0).u32(74), 0u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
}

// All services are made first, then the window is subclassed, once; only then they are marked ready.
TEST_F(iv_reg_publica, mensajes_luego_una_subclase_y_luego_los_canales_listos)
{
    std::string a = nombre_unico("A"), b = nombre_unico("B");
    s_canales[0] = nombre_canal(a);
    s_canales[1] = nombre_canal(b);
    ivrexa_registra_servidor("C:\\p.exe", ventana(), a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(b.c_str(), 1, nullptr, funcion_comando);
    {
        ventana_cambiada cambiada;
        cambiada->RegisterWindowMessageA = apunta_mensaje;
        cambiada->SetWindowLongPtrW = apunta_subclase;
        ivrexa_terminado_registro();
    }

    EXPECT_EQ(s_pasos, (std::vector<std::string>{"message Ivrexa_MSG_Serv_" + a, "message Ivrexa_MSG_Serv_" + b,
                                                 "subclass -4", "state 0", "state 0"}));
    EXPECT_EQ(programa().u64(20), como_numero(reinterpret_cast<void *>(proc_propia)));
    EXPECT_EQ(proc_de(ventana()), como_numero(reinterpret_cast<void *>(iv_reg_wndproc_programa)));
    EXPECT_EQ(bloque_crudo(s_canales[1].c_str()).u32(30), 1u);
}

TEST_F(iv_reg_publica, ventana_de_un_programa_net_no_se_toca)
{
    const char *servicio = nombre_unico("Net");
    ivrexa_registra_servidor_net("C:\\p.exe", ventana(), servicio, 1);
    ivrexa_terminado_registro();

    EXPECT_EQ(programa().u64(20), 0u);
    EXPECT_EQ(proc_de(ventana()), como_numero(reinterpret_cast<void *>(proc_propia)));
    EXPECT_EQ(SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(servicio), 100, 3), 77);
    ASSERT_EQ(s_mensajes.size(), 1u);
    EXPECT_EQ(s_mensajes[0].wparam, 100u);
}

TEST_F(iv_reg_publica, ventana_ya_cambiada_por_ser_cliente_no_se_cambia_otra_vez)
{
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), nombre_unico("Otro"));
    iv_reg_registra_servidor("C:\\p.exe", ventana(), nombre_unico("Calc"), 1, 1, nullptr, funcion_comando);
    s_programa->usa_procesaComandoExterno = 1;
    ventana_cambiada cambiada;
    cambiada->SetWindowLongPtrW = apunta_subclase;
    ivrexa_terminado_registro();

    EXPECT_EQ(s_pasos.size(), 0u);
    EXPECT_EQ(programa().u64(20), como_numero(reinterpret_cast<void *>(proc_propia)));
}

TEST_F(iv_reg_publica, contador_de_bloques_de_un_canal_que_ya_existia_se_conserva)
{
    for (uint32_t contador : {150u, 100u, 99u}) {
        const char *servicio = nombre_unico("Calc");
        bloque_crudo canal = abre_canal(servicio);
        canal.pon_u32(12, contador);
        canal.pon_u16(28, 1);
        sirve(servicio, ventana());

        EXPECT_EQ(canal.u32(12), contador < 100 ? 100u : contador);
        EXPECT_EQ(canal.u16(28), 0u);
        cierra();
    }
}

// The first lock of a service makes its channel, the second marks it ready; the registry is entered in
// between.
TEST_F(iv_reg_publica, sitios_23_y_24_y_el_hilo_parado_hasta_estar_listo)
{
    std::string servicio = nombre_unico("Calc");
    bloque_crudo mcb = abre_registro();
    bloque_crudo canal = abre_canal(servicio);
    canal.pon_u16(28, 1); // left by a server before, whose client keeps the block alive
    mutex_crudo mutex_registro("Ivrexa_Mutex_MCB", mutex_crudo::modo::crea);
    mutex_crudo mutex_servicio(("Mutex_Ivrexa_" + servicio).c_str(), mutex_crudo::modo::crea);
    ivrexa_registra_servidor("C:\\p.exe", nullptr, servicio.c_str(), 5, nullptr, funcion_comando);
    ASSERT_TRUE(mutex_registro.retiene(5000));
    ASSERT_TRUE(mutex_servicio.retiene(5000));

    hilo publica([] { ivrexa_terminado_registro(); });
    EXPECT_TRUE(espera_hasta([] { return mutex_en(prestado(0), 42) != nullptr; }, 5000));
    EXPECT_FALSE(publica.acaba(50));
    EXPECT_EQ(canal.u16(0), 0u); // not initialised: site 23 waits
    mutex_servicio.suelta();

    EXPECT_TRUE(espera_hasta([] { return prestado(0).u32(78) == 1; }, 5000));
    EXPECT_EQ(canal.u16(0), 2378u);
    EXPECT_EQ(canal.u32(30), 0u);
    EXPECT_EQ(mutex_en(prestado(0), 50)->codigos_bloqueo[0], 23u);
    EXPECT_EQ(SuspendThread(prestado(0).puntero(66)), 1u); // it was suspended already
    ResumeThread(prestado(0).puntero(66));

    ASSERT_TRUE(mutex_servicio.retiene(5000));
    mutex_registro.suelta();
    EXPECT_TRUE(espera_hasta([&] { return busca_en_registro(mcb, servicio) == 0; }, 5000));
    EXPECT_FALSE(publica.acaba(50));
    EXPECT_EQ(canal.u32(30), 0u); // not ready: site 24 waits
    EXPECT_EQ(prestado(0).u32(78), 1u);
    mutex_servicio.suelta();

    EXPECT_TRUE(publica.acaba(5000));
    EXPECT_EQ(prestado(0).u32(78), 2u);
    EXPECT_TRUE(espera_hasta([&] { return mcb.u32(en_servicio(0, 68)) == 1; }, 5000));
    EXPECT_EQ(canal.u16(28), 0u);
    EXPECT_EQ(canal.u32(30), 1u);
}

TEST_F(iv_reg_publica, sitio_24_es_el_ultimo_de_un_servidor_con_ventana)
{
    sirve(nombre_unico("Calc"), ventana());
    EXPECT_EQ(mutex_en(prestado(0), 50)->codigos_bloqueo[0], 24u);
    EXPECT_EQ(mutex_en(prestado(0), 50)->nivel_bloqueo, 0);
}

TEST_F(iv_reg_publica, monitor_recibe_cada_servicio_cuando_ya_esta_listo)
{
    std::string a = nombre_unico("A"), b = nombre_unico("B");
    s_canales[0] = nombre_canal(a);
    s_canales[1] = nombre_canal(b);
    bloque_crudo mcb = abre_registro();
    pon_monitor(&mcb, 1234, 50000);
    ivrexa_registra_servidor("C:\\p.exe", ventana(), a.c_str(), 1, nullptr, funcion_comando);
    ivrexa_anyade_servicio(b.c_str(), 1, nullptr, funcion_comando);
    {
        ventana_cambiada cambiada;
        cambiada->PostMessageW = apunta_aviso;
        ivrexa_terminado_registro();
    }

    EXPECT_EQ(s_pasos, (std::vector<std::string>{"post 1234 50000 0 1", "state 1", "state 0", "post 1234 50000 0 2",
                                                 "state 1", "state 1"}));
    // service 0 and 1; no data; a server; kind 1; begins
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0,
                                                   1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0},
                              mcb.bytes(22, 44)));
}

TEST_F(iv_reg_publica, hilos_se_piden_con_una_pila_de_128_bytes)
{
    struct peticion {
        SIZE_T pila;
        void *arg;
    };
    static std::vector<peticion> s_peticiones;
    static decltype(&CreateThread) s_crea;
    s_peticiones.clear();
    s_crea = __imp_CreateThread;
    importacion_cambiada<decltype(&CreateThread)> cambio(__imp_CreateThread,
                                                         [](LPSECURITY_ATTRIBUTES seguridad, SIZE_T pila,
                                                            LPTHREAD_START_ROUTINE inicio, LPVOID arg, DWORD marcas,
                                                            LPDWORD id) -> HANDLE {
                                                             s_peticiones.push_back({pila, arg});
                                                             return s_crea(seguridad, pila, inicio, arg, marcas, id);
                                                         });
    sirve(nombre_unico("Calc"), nullptr);
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, nombre_unico("Otro"));

    uint8_t *ficha = reinterpret_cast<uint8_t *>(s_programa);
    ASSERT_EQ(s_peticiones.size(), 3u);
    EXPECT_EQ(s_peticiones[0].arg, ficha + 28);   // heartbeat: the address of id_programa
    EXPECT_EQ(s_peticiones[1].arg, ficha + 36);   // the service offered
    EXPECT_EQ(s_peticiones[2].arg, ficha + 1484); // the service used
    for (const peticion &p : s_peticiones)
        EXPECT_EQ(p.pila, 128u);
}

TEST_F(iv_reg_publica, mensaje_de_un_servicio_por_su_nombre)
{
    const char *ofrecido = nombre_unico("Calc"), *usado = nombre_unico("Otro");
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(ofrecido), 0u); // not registered
    ivrexa_registra_servidor("C:\\p.exe", ventana(), ofrecido, 1, nullptr, funcion_comando);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(ofrecido), 0u); // not published
    ivrexa_terminado_registro();
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, usado);

    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(ofrecido),
              RegisterWindowMessageA((std::string("Ivrexa_MSG_Serv_") + ofrecido).c_str()));
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(usado),
              RegisterWindowMessageA((std::string("Ivrexa_MSG_Serv_") + usado).c_str()));
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio((std::string(usado) + "x").c_str()), 0u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio("calc"), 0u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(""), 0u);
}

TEST_F(iv_reg_publica, servicio_ofrecido_gana_al_usado_del_mismo_nombre)
{
    const char *servicio = nombre_unico("Calc");
    sirve(servicio, nullptr);
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", nullptr, servicio);

    EXPECT_NE(solicitado(0).u32(12), 0u);
    EXPECT_EQ(ivrexa_dame_id_MSG_servicio(servicio), 0u); // the offered one's: no window, no message
}

// ---- Heartbeat. Its turns are 2 s long, so these tests are as long.

TEST_F(iv_reg_latido, cuenta_uno_cada_dos_segundos_bajo_el_sitio_14)
{
    if (!en_proceso_trazado())
        return;
    bloque_crudo mcb = abre_registro();
    mutex_crudo mutex_registro("Ivrexa_Mutex_MCB", mutex_crudo::modo::crea);
    captura_traza traza;
    uint64_t inicio = GetTickCount64();
    ivrexa_registra_servidor("C:\\p.exe", ventana(), "Calc", 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    uint32_t id_hilo = programa().u32(3320);
    ASSERT_TRUE(mutex_registro.retiene(5000));

    EXPECT_TRUE(traza.espera("ESTOY VIVO", 5000));
    uint64_t ms = GetTickCount64() - inicio;
    EXPECT_GE(ms, 1990u);
    EXPECT_LT(ms, 3500u);
    EXPECT_EQ(mcb.u32(en_programa(0, 270)), 0u); // it waits for the registry
    mutex_registro.suelta();
    EXPECT_TRUE(espera_hasta([&] { return mcb.u32(en_programa(0, 270)) == 1; }, 5000));
    EXPECT_TRUE(espera_hasta([&] { return s_mcbase_acceso->mutex->nivel_bloqueo == 0; }, 5000));
    EXPECT_EQ(s_mcbase_acceso->mutex->codigos_bloqueo[0], 14u);
    EXPECT_TRUE(espera_hasta([&] { return mcb.u32(en_programa(0, 270)) == 2; }, 5000));
    EXPECT_GE(GetTickCount64() - inicio, 3990u);
    EXPECT_EQ(enmascara_tiempos(traza.texto_de_hilo(id_hilo)), "\n*** <t>:  ESTOY VIVO 0\n\n*** <t>:  ESTOY VIVO 0\n");
}

TEST_F(iv_reg_latido, programa_que_no_cupo_en_el_registro_no_late)
{
    if (!en_proceso_trazado())
        return;
    bloque_crudo mcb = abre_registro();
    for (uint32_t i = 0; i < 16; i++)
        mcb.pon_texto(en_programa(i, 0), "otro" + std::to_string(i));
    captura_traza traza;
    sirve("Calc", ventana());
    EXPECT_INFORME("iv_mcbase", "id_programa < iv_mcbase_NUM_MAX_PROGRAMAS");
    EXPECT_EQ(programa().u16(28), 16u);

    HANDLE latido = programa().puntero(3312);
    EXPECT_EQ(WaitForSingleObject(latido, 5000), WAIT_OBJECT_0);
    DWORD codigo = 259;
    GetExitCodeThread(latido, &codigo);
    EXPECT_EQ(codigo, 0u);
    EXPECT_EQ(enmascara_tiempos(traza.texto_de_hilo(programa().u32(3320))), "\n*** <t>:  ESTOY VIVO 16\n");
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(mcb.u32(en_programa(i, 270)), 0u);
}

TEST_F(iv_reg_latido, se_para_cuando_la_sesion_se_cierra_sin_un_latido_de_mas)
{
    sirve(nombre_unico("Calc"), ventana());
    bloque_crudo mcb = abre_registro();
    HANDLE latido = programa().puntero(3312);
    ASSERT_TRUE(espera_hasta([&] { return mcb.u32(en_programa(0, 270)) == 1; }, 5000));
    programa().pon<uint32_t>(0, 2);

    EXPECT_EQ(WaitForSingleObject(latido, 5000), WAIT_OBJECT_0);
    EXPECT_LE(mcb.u32(en_programa(0, 270)), 2u); // at most the turn under way, and no other
}

TEST_F(iv_reg_latido, sin_heap_se_para_sin_latir)
{
    sirve(nombre_unico("Calc"), ventana());
    bloque_crudo mcb = abre_registro();
    HANDLE heap = s_LocalHeap, latido = programa().puntero(3312);
    s_LocalHeap = nullptr;
    EXPECT_EQ(WaitForSingleObject(latido, 5000), WAIT_OBJECT_0);
    s_LocalHeap = heap;

    EXPECT_EQ(mcb.u32(en_programa(0, 270)), 0u);
}

TEST_F(iv_reg_latido, sin_programa_se_para)
{
    sirve(nombre_unico("Calc"), ventana());
    iv_reg_programa *ficha = s_programa;
    HANDLE latido = programa().puntero(3312);
    s_programa = nullptr;
    EXPECT_EQ(WaitForSingleObject(latido, 5000), WAIT_OBJECT_0);
    s_programa = ficha;
}
