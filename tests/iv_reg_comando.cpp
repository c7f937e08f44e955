// A command in the server: how the program's window takes it, what the command function gets, what stays
// behind.
#include "iv_reg_apoyo.h"

#include "comun/proceso_propio.h"

#include "iv_comdat.h"

namespace {

int s_num_quit;
int s_codigo_quit;

void WINAPI apunta_quit(int codigo)
{
    s_num_quit++;
    s_codigo_quit = codigo;
}

struct iv_reg_ventana : con_sesion {
    iv_reg_ventana() { s_num_quit = 0; }

    // A server with a window; messages are sent to `m_msg`.
    void prepara(int32_t (*funcion)(const char *, uint32_t, comando *, void *) = funcion_comando)
    {
        m_servicio = nombre_unico("Calc");
        sirve(m_servicio, ventana(), funcion);
        m_msg = ivrexa_dame_id_MSG_servicio(m_servicio);
    }

    LRESULT manda(WPARAM id_comando, LPARAM id_entrada = 0)
    {
        return SendMessageW(ventana(), m_msg, id_comando, id_entrada);
    }

    const char *m_servicio = nullptr;
    UINT m_msg = 0;
};
struct iv_reg_comando : iv_reg_ventana {};

// Runs a command whose function raises; true when the exception came out.
bool sale_excepcion(iv_reg_servicio_prestado *servicio, uint32_t id_entrada, DWORD *codigo)
{
    __try {
        iv_reg_procesa_comando(servicio, 100, id_entrada);
    } __except (*codigo = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER) {
        return true;
    }
    return false;
}

} // namespace

// ---- The window procedure

TEST_F(iv_reg_ventana, orden_llega_a_la_funcion_y_su_resultado_es_la_respuesta)
{
    prepara();
    s_trabajo = [](uint32_t, comando *) { return 42; };

    EXPECT_EQ(manda(100), 42);
    ASSERT_EQ(num_llamadas(), 1u);
    EXPECT_EQ(s_llamadas[0].servicio, m_servicio);
    EXPECT_EQ(s_llamadas[0].id_comando, 100u);
    EXPECT_EQ(s_llamadas[0].hilo, GetCurrentThreadId());
    EXPECT_TRUE(s_mensajes.empty());
}

TEST_F(iv_reg_ventana, cada_mensaje_es_de_su_servicio)
{
    std::string a = nombre_unico("A"), b = nombre_unico("B");
    ivrexa_registra_servidor("C:\\p.exe", ventana(), a.c_str(), 1, reinterpret_cast<void *>(1), funcion_comando);
    ivrexa_anyade_servicio(b.c_str(), 1, reinterpret_cast<void *>(0xFEDCBA9876543210u), funcion_comando);
    ivrexa_terminado_registro();

    SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(b.c_str()), 4294967295u, 0);
    SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(a.c_str()), 101, 0);
    ASSERT_EQ(num_llamadas(), 2u);
    EXPECT_EQ(s_llamadas[0].servicio, b);
    EXPECT_EQ(s_llamadas[0].id_comando, 4294967295u);
    EXPECT_EQ(s_llamadas[0].datos_externos, reinterpret_cast<void *>(0xFEDCBA9876543210u));
    EXPECT_EQ(s_llamadas[1].servicio, a);
    EXPECT_EQ(s_llamadas[1].datos_externos, reinterpret_cast<void *>(1));
}

TEST_F(iv_reg_ventana, wparam_0_pasa_al_procedimiento_del_programa)
{
    prepara();
    EXPECT_EQ(manda(0, 55), 77);

    ASSERT_EQ(s_mensajes.size(), 1u);
    EXPECT_EQ(s_mensajes[0].msg, m_msg);
    EXPECT_EQ(s_mensajes[0].wparam, 0u);
    EXPECT_EQ(s_mensajes[0].lparam, 55);
    EXPECT_EQ(num_llamadas(), 0u);
}

TEST_F(iv_reg_ventana, otro_mensaje_pasa_con_sus_argumentos_enteros)
{
    prepara();
    UINT otro = RegisterWindowMessageA(nombre_unico("otro"));
    EXPECT_EQ(SendMessageW(ventana(), otro, 0x8000000000000064u, -5), 77);

    ASSERT_EQ(s_mensajes.size(), 1u);
    EXPECT_EQ(s_mensajes[0].msg, otro);
    EXPECT_EQ(s_mensajes[0].wparam, 0x8000000000000064u);
    EXPECT_EQ(s_mensajes[0].lparam, -5);
}

TEST_F(iv_reg_ventana, argumentos_se_toman_de_32_bits)
{
    prepara();
    manda(0x5000000C8u, 0x700000000);

    ASSERT_EQ(num_llamadas(), 1u);
    EXPECT_EQ(s_llamadas[0].id_comando, 200u);
    EXPECT_EQ(s_llamadas[0].contexto[0], 0u); // input block 0: none
}

// wParam decides whether the message is a command, its low half which one; 0 is none of the library's.
TEST_F(iv_reg_ventana, wparam_con_la_mitad_baja_0_es_la_orden_0)
{
    prepara();
    EXPECT_EQ(manda(0x700000000u), 1);
    ASSERT_EQ(num_llamadas(), 1u);
    EXPECT_EQ(s_llamadas[0].id_comando, 0u);
    EXPECT_TRUE(s_mensajes.empty());
}

// What still comes when the session is closed, from a window that somebody else subclassed on top, goes on.
TEST_F(iv_reg_ventana, mensaje_que_llega_tras_el_cierre_pasa_al_procedimiento_del_programa)
{
    prepara();
    cierra();
    EXPECT_EQ(iv_reg_wndproc_programa(ventana(), m_msg, 100, 8), 77);
    ASSERT_EQ(s_mensajes.size(), 1u);
    EXPECT_EQ(s_mensajes[0].msg, m_msg);
    EXPECT_EQ(s_mensajes[0].wparam, 100u);
    EXPECT_EQ(s_mensajes[0].lparam, 8);
    EXPECT_EQ(num_llamadas(), 0u);
}

TEST_F(iv_reg_ventana, resultado_con_signo_llega_sin_signo)
{
    prepara();
    s_trabajo = [](uint32_t, comando *) { return -1; };
    EXPECT_EQ(manda(100), 4294967295);
}

TEST_F(iv_reg_ventana, ordenes_2_a_99_dan_1_y_no_hacen_nada)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    std::vector<uint8_t> antes = canal.bytes(0, 2378);
    for (WPARAM id : {2u, 50u, 99u})
        EXPECT_EQ(manda(id, 7), 1) << id;

    EXPECT_TRUE(bytes_iguales(antes, canal.bytes(0, 2378)));
    EXPECT_EQ(num_llamadas(), 0u);
    EXPECT_TRUE(s_mensajes.empty());
    MSG msg;
    EXPECT_FALSE(PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
}

TEST_F(iv_reg_ventana, orden_1_termina_el_servidor)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    EXPECT_EQ(manda(1), 1);

    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(canal.u32(30), 0u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
    EXPECT_EQ(mutex_en(prestado(0), 50)->codigos_bloqueo[0], 27u);
    EXPECT_EQ(num_llamadas(), 0u);
    MSG msg = {};
    ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_QUIT));
    EXPECT_EQ(msg.wParam, 1u);
}

// The channel is marked at once; the flag again and the rest under site 27.
TEST_F(iv_reg_ventana, orden_1_marca_el_canal_y_luego_espera_su_mutex)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    mutex_crudo mutex((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
    ventana_cambiada cambiada;
    cambiada->PostQuitMessage = apunta_quit;
    prestado(0).pon<uint32_t>(78, 2);
    ASSERT_TRUE(mutex.retiene(5000));

    hilo manda_orden([&] { iv_reg_wndproc_programa(ventana(), m_msg, 1, 0); });
    EXPECT_TRUE(espera_hasta([&] { return canal.u16(28) == 1; }, 5000));
    EXPECT_FALSE(manda_orden.acaba(50));
    EXPECT_EQ(canal.u32(30), 0u);
    EXPECT_EQ(prestado(0).u32(78), 2u);
    EXPECT_EQ(s_num_quit, 0);
    canal.pon_u16(28, 0);
    mutex.suelta();

    EXPECT_TRUE(manda_orden.acaba(5000));
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(prestado(0).u32(78), 0u);
    EXPECT_EQ(s_num_quit, 1);
    EXPECT_EQ(s_codigo_quit, 1);
}

// A service that does not hold its channel yet: only a block that somebody else made is marked.
TEST_F(iv_reg_ventana, orden_1_sin_canal_abierto_solo_marca_uno_que_existia)
{
    const char *servicio = nombre_unico("Calc");
    ventana_cambiada cambiada;
    cambiada->PostQuitMessage = apunta_quit;
    ivrexa_registra_servidor("C:\\p.exe", ventana(), servicio, 1, nullptr, funcion_comando);
    prestado(0).pon<uint32_t>(38, 0xC321);
    for (WPARAM id : {50u, 1u}) { // any of the library's own opens it
        EXPECT_EQ(iv_reg_wndproc_programa(ventana(), 0xC321, id, 0), 1);
        EXPECT_NE(prestado(0).puntero(58), nullptr);
        EXPECT_EQ(s_num_quit, 0);
        if (id == 50)
            iv_shared_destruye(&s_programa->servicios_prestados[0].shared_MCServ);
    }
    bloque_crudo canal(nombre_canal(servicio).c_str());
    ASSERT_TRUE(canal.abierto());
    EXPECT_EQ(canal.cabecera(), 2378u);
    EXPECT_EQ(canal.u16(28), 0u);

    iv_shared_destruye(&s_programa->servicios_prestados[0].shared_MCServ);
    EXPECT_EQ(iv_reg_wndproc_programa(ventana(), 0xC321, 1, 0), 1);
    EXPECT_INFORME("iv_mutex", "iv_mutex != NULL"); // the service has no mutex yet
    EXPECT_EQ(s_num_quit, 1);
    EXPECT_EQ(canal.u16(28), 1u);
}

// Its message goes on to the host's own procedure, whatever the command.
TEST_F(iv_reg_ventana, servicio_sin_funcion_deja_su_mensaje_al_programa)
{
    prepara();
    const char *sin_funcion = nombre_unico("Net");
    ivrexa_anyade_servicio_net(sin_funcion, 1);
    EXPECT_INFORME("iv_reg", "(procesaComandoExterno) != 0");
    ivrexa_terminado_registro();
    UINT msg = ivrexa_dame_id_MSG_servicio(sin_funcion);

    for (WPARAM id : {1u, 50u, 100u})
        EXPECT_EQ(SendMessageW(ventana(), msg, id, 9), 77) << id;
    ASSERT_EQ(s_mensajes.size(), 3u);
    EXPECT_EQ(s_mensajes[2].msg, msg);
    EXPECT_EQ(s_mensajes[2].wparam, 100u);
    EXPECT_EQ(s_mensajes[2].lparam, 9);
    EXPECT_EQ(num_llamadas(), 0u);
}

// A service that is not published yet has the message id 0, which is the system's WM_NULL.
TEST_F(iv_reg_ventana, mensaje_0_nunca_es_de_un_servicio)
{
    prepara();
    ivrexa_anyade_servicio(nombre_unico("Nuevo"), 1, nullptr, funcion_comando);

    EXPECT_EQ(SendMessageW(ventana(), WM_NULL, 100, 3), 77);
    ASSERT_EQ(s_mensajes.size(), 1u);
    EXPECT_EQ(s_mensajes[0].wparam, 100u);
    EXPECT_EQ(num_llamadas(), 0u);
}

TEST_F(iv_reg_ventana, servicio_ofrecido_gana_al_usado)
{
    prepara();
    ivrexa_registra_cliente_notificaciones_servicio("C:\\p.exe", ventana(), m_servicio, funcion_aviso);
    EXPECT_EQ(solicitado(0).u32(12), m_msg);
    manda(100, 0);

    EXPECT_EQ(num_llamadas(), 1u);
    EXPECT_EQ(num_avisos(), 0u);
}

// ---- What the command function gets

TEST_F(iv_reg_comando, contexto_sin_datos_de_entrada)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    escribe_orden(&canal, {100, 0, 0xFEDCBA9876543210u, {}});
    canal.pon_u64(16, 0x1111222233334444u); // the channel's field, not the program's window
    manda(100);

    ASSERT_EQ(num_llamadas(), 1u);
    EXPECT_EQ(s_llamadas[0].contexto[0], 0u);
    EXPECT_EQ(s_llamadas[0].contexto[1], 0u);
    EXPECT_EQ(s_llamadas[0].contexto[2], 0xFEDCBA9876543210u);
    EXPECT_EQ(s_llamadas[0].contexto[3], 0x1111222233334444u);
}

TEST_F(iv_reg_comando, datos_de_entrada_se_leen_una_vez_y_se_destruyen)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    // one ulong "n" = 5
    bloque_crudo datos = crea_datos(m_servicio, 100, {1, 0, 0, 0, 3, 2, 'n', 0, 5, 0, 0, 0});
    escribe_orden(&canal, {100, 100, 0, {}});
    uint32_t vivos = bloques_vivos();
    uint32_t valor = 0, tipo = 9, entrada = 9;
    s_trabajo = [&](uint32_t, comando *contexto) {
        EXPECT_NE(contexto->datos_entrada, nullptr);
        valor = ivrexa_dame_ulong(contexto->datos_entrada, 0);
        tipo = contexto->datos_entrada->tipo;
        entrada = canal.u32(1206);
        return 1;
    };
    EXPECT_EQ(manda(100, 100), 1);

    EXPECT_EQ(valor, 5u);
    EXPECT_EQ(tipo, 0u);    // for reading
    EXPECT_EQ(entrada, 0u); // taken
    EXPECT_EQ(bloques_vivos(), vivos);
}

TEST_F(iv_reg_comando, contexto_son_32_bytes_del_heap_privado)
{
    prepara();
    bool del_heap = false;
    uint32_t tam = 0, vivos = bloques_vivos(), durante = 0;
    s_trabajo = [&](uint32_t, comando *contexto) {
        del_heap = HeapValidate(s_LocalHeap, 0, contexto);
        tam = del_heap ? tam_de(contexto) : 0;
        durante = bloques_vivos();
        return 1;
    };
    manda(100);
    EXPECT_TRUE(del_heap);
    EXPECT_EQ(tam, 32u);
    EXPECT_EQ(durante, vivos + 1);
    EXPECT_EQ(bloques_vivos(), vivos);
}

// The window's answer is the result: of the channel, only the input's number is touched.
TEST_F(iv_reg_comando, canal_queda_como_estaba_menos_la_entrada)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio), datos = crea_datos(m_servicio, 100);
    escribe_orden(&canal, {100, 100, 0x5555, {L"uno", L"dos", L"tres"}});
    canal.pon_u32(8, 88);
    canal.pon_u32(34, 99);
    canal.pon_texto_u(38, L"before");
    std::vector<uint8_t> esperados = canal.bytes(0, 2378);
    EXPECT_EQ(esperados[1206], 100u);
    esperados[1206] = 0;
    s_trabajo = [](uint32_t, comando *) { return 2; };
    EXPECT_EQ(manda(100, 100), 2);
    EXPECT_TRUE(bytes_iguales(esperados, canal.bytes(0, 2378)));
}

TEST_F(iv_reg_comando, entrada_que_no_es_la_del_canal_se_informa)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    bloque_crudo datos = crea_datos(m_servicio, 100);
    escribe_orden(&canal, {100, 101, 0, {}});
    manda(100, 100);
    EXPECT_INFORME("iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    EXPECT_NE(s_llamadas.at(0).contexto[0], 0u); // the block of the message is opened
    EXPECT_EQ(canal.u32(1206), 0u);

    manda(100, 100); // taken already
    EXPECT_INFORME("iv_mcserv", "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada");
    EXPECT_EQ(s_llamadas.at(1).contexto[0], 0u);
}

TEST_F(iv_reg_comando, entrada_que_no_existe_se_informa_y_la_orden_se_cumple)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    escribe_orden(&canal, {100, 100, 0, {}});
    uint32_t vivos = bloques_vivos();

    EXPECT_EQ(manda(100, 100), 1);
    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_EQ(s_llamadas.at(0).contexto[0], 0u);
    EXPECT_EQ(canal.u32(1206), 0u);
    EXPECT_FALSE(existen_datos(m_servicio, 100));
    EXPECT_EQ(bloques_vivos(), vivos);
}

TEST_F(iv_reg_comando, sitio_35_se_toma_antes_y_no_se_tiene_mientras_la_funcion_corre)
{
    prepara();
    std::string nombre = std::string("Mutex_Ivrexa_") + m_servicio;
    mutex_crudo mutex(nombre.c_str()), mirado(nombre.c_str());
    bool libre = false;
    uint32_t codigo = 0;
    s_trabajo = [&](uint32_t, comando *) {
        libre = mirado.libre();
        codigo = mutex_en(prestado(0), 50)->codigos_bloqueo[0];
        return 1;
    };
    ASSERT_TRUE(mutex.retiene(5000));
    hilo ejecuta([&] { iv_reg_procesa_comando(&s_programa->servicios_prestados[0], 100, 0); });
    EXPECT_FALSE(ejecuta.acaba(50));
    EXPECT_EQ(num_llamadas(), 0u);
    mutex.suelta();

    EXPECT_TRUE(ejecuta.acaba(5000));
    EXPECT_TRUE(libre);
    EXPECT_EQ(codigo, 35u);
}

// ---- Deferred output

TEST_F(iv_reg_comando, salida_vive_hasta_el_comando_siguiente)
{
    prepara();
    uint32_t vivos = bloques_vivos(), id = 0;
    void *salida = nullptr;
    s_trabajo = [&](uint32_t, comando *contexto) {
        id = pon_salida(m_servicio, contexto);
        salida = contexto->datos_salida;
        return 1;
    };
    manda(100);
    EXPECT_EQ(id, 100u);
    EXPECT_EQ(prestado(0).puntero(82), salida);
    EXPECT_TRUE(existen_datos(m_servicio, 100));

    bool existia = true;
    void *postergada = salida;
    s_trabajo = [&](uint32_t, comando *) {
        existia = existen_datos(m_servicio, 100);
        postergada = prestado(0).puntero(82);
        return 1;
    };
    manda(101);
    EXPECT_FALSE(existia);
    EXPECT_EQ(postergada, nullptr);
    EXPECT_EQ(prestado(0).puntero(82), nullptr);
    EXPECT_EQ(bloques_vivos(), vivos);
}

TEST_F(iv_reg_comando, salida_se_destruye_con_el_sitio_35_tomado_y_antes_de_leer_la_entrada)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    s_trabajo = [&](uint32_t, comando *contexto) { return pon_salida(m_servicio, contexto) == 100 ? 1 : 3; };
    manda(100);
    s_trabajo = nullptr;
    mutex_crudo mutex((std::string("Mutex_Ivrexa_") + m_servicio).c_str());
    ASSERT_TRUE(mutex.retiene(5000));
    hilo ejecuta([&] { iv_reg_procesa_comando(&s_programa->servicios_prestados[0], 101, 100); });
    EXPECT_FALSE(ejecuta.acaba(50));
    EXPECT_TRUE(existen_datos(m_servicio, 100));
    canal.pon_u32(1206, 100); // its own last output, as input: gone by then
    mutex.suelta();
    EXPECT_TRUE(ejecuta.acaba(5000));
    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_EQ(s_llamadas.at(1).contexto[0], 0u);
    EXPECT_FALSE(existen_datos(m_servicio, 100));
}

// A host that hands its input back as output keeps it: it is destroyed once, with the next command.
TEST_F(iv_reg_comando, entrada_devuelta_como_salida_vive_hasta_el_comando_siguiente)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    uint32_t vivos = bloques_vivos();
    {
        bloque_crudo datos = crea_datos(m_servicio, 100);
        escribe_orden(&canal, {100, 100, 0, {}});
        s_trabajo = [](uint32_t, comando *contexto) {
            contexto->datos_salida = contexto->datos_entrada;
            return 1;
        };
        EXPECT_EQ(manda(100, 100), 1);
    }
    ASSERT_NE(prestado(0).puntero(82), nullptr);
    EXPECT_EQ(reinterpret_cast<uint64_t>(prestado(0).puntero(82)), s_llamadas.at(0).contexto[0]);
    s_trabajo = nullptr;
    EXPECT_EQ(manda(101), 1);
    EXPECT_EQ(prestado(0).puntero(82), nullptr);
    EXPECT_EQ(bloques_vivos(), vivos);
}

TEST_F(iv_reg_comando, orden_interna_no_destruye_la_salida)
{
    prepara();
    s_trabajo = [&](uint32_t, comando *contexto) { return pon_salida(m_servicio, contexto) == 100 ? 1 : 3; };
    manda(100);
    manda(50);
    EXPECT_TRUE(existen_datos(m_servicio, 100));
}

TEST_F(iv_reg_comando, salida_es_de_cada_servicio)
{
    prepara();
    const char *otro = nombre_unico("Otro");
    ivrexa_anyade_servicio(otro, 1, nullptr, funcion_comando);
    ivrexa_terminado_registro();
    s_trabajo = [&](uint32_t, comando *contexto) { return pon_salida(m_servicio, contexto) == 100 ? 1 : 3; };
    manda(100);
    s_trabajo = nullptr;
    SendMessageW(ventana(), ivrexa_dame_id_MSG_servicio(otro), 100, 0);
    EXPECT_TRUE(existen_datos(m_servicio, 100));
}

// A command that runs within another one on the same service, and both leave output.
TEST_F(iv_reg_comando, segunda_salida_a_la_vez_se_informa_y_se_queda)
{
    prepara();
    void *ultima = nullptr;
    s_trabajo = [&](uint32_t id_comando, comando *contexto) {
        if (id_comando == 100)
            manda(101);
        pon_salida(m_servicio, contexto);
        ultima = contexto->datos_salida;
        return 1;
    };
    EXPECT_EQ(manda(100), 1);

    EXPECT_INFORME("iv_reg", "servicio->iv_comdat_salida_postergada == NULL");
    EXPECT_EQ(num_informes(), 0u);
    EXPECT_EQ(prestado(0).puntero(82), ultima);
}

// ---- The record of the end

TEST_F(iv_reg_comando, traza_del_fin_con_y_sin_salida)
{
    if (!en_proceso_trazado())
        return;
    prepara();
    std::string servicio = m_servicio;
    s_trabajo = [&](uint32_t, comando *contexto) { return pon_salida(servicio, contexto) == 100 ? 1 : 3; };
    captura_traza traza;
    manda(100);
    EXPECT_EQ(solo_registros(traza.texto_propio()),
              "\n*** <t>:  FIN COMANDO " + servicio +
                  " id_comando: 100\n    Resultado     OK\n    id_datos_salida_comando = 100\n\n");

    struct {
        int32_t resultado;
        const char *texto;
    } casos[] = {{0, "    NINGUNO\n"},
                 {1, "    OK\n    id_datos_salida_comando = 0\n\n"},
                 {2, "    CANCELADO\n"},
                 {3, "    ERROR\n"},
                 {-1, ""}};
    for (const auto &caso : casos) {
        s_trabajo = [&](uint32_t, comando *) { return caso.resultado; };
        traza.borra();
        manda(101);
        EXPECT_EQ(solo_registros(traza.texto_propio()),
                  "\n*** <t>:  FIN COMANDO " + servicio + " id_comando: 101\n    Resultado " + caso.texto);
    }
}

// The record comes behind the function and before the input is destroyed.
TEST_F(iv_reg_comando, traza_del_fin_va_antes_de_destruir_la_entrada)
{
    if (!en_proceso_trazado())
        return;
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    bloque_crudo datos = crea_datos(m_servicio, 100);
    escribe_orden(&canal, {100, 100, 0, {}});
    s_trabajo = [](uint32_t, comando *) { return OutputDebugStringA("function\n"), 1; };
    captura_traza traza;
    manda(100, 100);

    std::string texto = traza.texto_propio();
    size_t funcion = texto.find("function\n"), fin = texto.find(" FIN COMANDO ");
    ASSERT_NE(fin, std::string::npos) << texto;
    EXPECT_LT(funcion, fin);
    EXPECT_EQ(texto.substr(funcion, fin - funcion).find("i_free("), std::string::npos) << texto;
    EXPECT_NE(texto.find("i_free(", fin), std::string::npos) << texto;
}

// ---- Exceptions in the window path go to the host, and leave nothing behind

TEST_F(iv_reg_comando, excepcion_sale_y_deja_todo_libre)
{
    prepara();
    bloque_crudo canal = abre_canal(m_servicio);
    bloque_crudo datos = crea_datos(m_servicio, 100);
    uint32_t vivos = bloques_vivos();
    iv_reg_servicio_prestado *servicio = &s_programa->servicios_prestados[0];

    escribe_orden(&canal, {100, 100, 0, {}});
    s_trabajo = [](uint32_t, comando *) { return RaiseException(0xE0000042, 0, 0, nullptr), 1; };
    DWORD codigo = 0;
    EXPECT_TRUE(sale_excepcion(servicio, 100, &codigo));
    EXPECT_EQ(codigo, 0xE0000042u);
    EXPECT_EQ(bloques_vivos(), vivos);
    EXPECT_EQ(servicio->mutex_MCServ->nivel_bloqueo, 0);

    escribe_orden(&canal, {100, 100, 0, {}});
    s_trabajo = [](uint32_t, comando *) -> int32_t { throw std::string("out"); };
    EXPECT_THROW(iv_reg_procesa_comando(servicio, 100, 100), std::string);
    EXPECT_EQ(bloques_vivos(), vivos);
    EXPECT_EQ(servicio->mutex_MCServ->nivel_bloqueo, 0);
}

// What the function put into datos_salida may be gone: it is left alone.
TEST_F(iv_reg_comando, excepcion_no_toca_la_salida)
{
    prepara();
    comdat *salida = nullptr;
    s_trabajo = [&](uint32_t, comando *contexto) {
        pon_salida(m_servicio, contexto);
        salida = contexto->datos_salida;
        RaiseException(0xE0000042, 0, 0, nullptr);
        return 1;
    };
    DWORD codigo;
    EXPECT_TRUE(sale_excepcion(&s_programa->servicios_prestados[0], 0, &codigo));

    EXPECT_EQ(prestado(0).puntero(82), nullptr);
    EXPECT_TRUE(existen_datos(m_servicio, 100));
    ivrexa_destruye_datos_comando(salida);
    EXPECT_FALSE(existen_datos(m_servicio, 100));
}
