// A whole desktop under the monitor's eyes: commands inside commands, services side by side, what leaves no
// activity, and monitors that die, take over, or have another part to play as well.
#include <algorithm>

#include "dll_monitor.h"

using trafico = conversacion;

// ---- A server that is a client too

// Command 210 sends a command 100 with sample 3 to the service that its text 1 names, and reads the output.
// Command 211 notifies client 200 of datum 7, with a stored output block.
static int32_t manda_dentro(anfitrion_peticion *p)
{
    wchar_t texto[64] = L"";
    char destino[64];
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, nullptr, texto, nullptr, nullptr);
    WideCharToMultiByte(CP_ACP, 0, texto, -1, destino, sizeof destino, nullptr, nullptr);
    entrada_muestra entrada(destino, 3);
    respuesta r = ejecuta(destino, 100, entrada.id(), L"cd");
    EXPECT_EQ(r.t1, L"dc");
    comdat *salida = ivrexa_lee_datos(destino, r.id_salida, FALSO);
    EXPECT_EQ(describe(salida), muestra_descrita(3));
    ivrexa_destruye_datos_comando(salida);
    return static_cast<int32_t>(r.resultado);
}

static int32_t notifica_dentro(anfitrion_peticion *p)
{
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    ivrexa_graba_byte(p->salida, "b", 9);
    ivrexa_notifica_a_cliente(p->servicio, 200, 7, ivrexa_guarda_datos(p->salida));
    return 1;
}

PAPEL(servidor_que_manda)
{
    anfitrion_yo.otros = [](anfitrion_peticion *p) -> int32_t {
        return p->id_comando == 210 ? manda_dentro(p) : p->id_comando == 211 ? notifica_dentro(p) : 99;
    };
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

class comando_dentro : public con_cada_servidor {};
CON_CADA_SERVIDOR(comando_dentro);

TEST_P(comando_dentro, se_ve_entero_dentro_del_otro)
{
    std::string otro = nombre_unico("otro");
    vigia v;
    papel a = arranca_papel("servidor_que_manda", {clase, servicio});
    papel b = arranca_servidor("ventana", otro);
    v.oye({{0, 1, 1, servicio, 0, 0, 0}, {0, 1, 1, otro, 0, 0, 1}});
    a.di("SOLICITA " + otro);
    a.espera_linea("SOLICITADO", 5000);
    registra_para(clase, servicio);

    entrada_muestra entrada(servicio, 0);
    EXPECT_EQ(ejecuta(servicio, 210, entrada.id(), std::wstring(otro.begin(), otro.end()).c_str()).resultado, 1u);
    v.oye({{1, 3, 1, servicio, 0, 100, 0},
           {1, 2, 1, servicio, 210, 100, 0},
           {0, 3, 1, servicio, 0, 100, 0},
           {1, 3, 1, otro, 0, 100, 1},
           {1, 2, 1, otro, 100, 100, 1},
           {0, 3, 1, otro, 0, 100, 1},
           {0, 4, 1, otro, 100, 101, 1},
           {1, 2, 0, otro, 100, 100, 1},
           {1, 4, 1, otro, 0, 101, 1},
           {1, 2, 0, servicio, 210, 100, 0}});
    acaba(a);
    acaba(b);
    v.oye({{0, 1, 0, "", 0, 0, 0}, {0, 1, 0, "", 0, 0, 1}});
}

// ---- Side by side

TEST_F(trafico, de_dos_servicios_a_la_vez_se_ve_en_el_orden_en_que_pasa)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    vigia v;
    papel servidor_uno = arranca_servidor("ventana", uno), servidor_dos = arranca_servidor("net", dos);
    papel cliente_uno = arranca_cliente("ventana", uno), cliente_dos = arranca_cliente("sin_ventana", dos);
    v.oye_solo({{0, 1, 1, uno, 0, 0, 0}, {0, 1, 1, dos, 0, 0, 1}});

    cliente_uno.di("COMANDO 103");
    servidor_uno.espera_linea("DENTRO", 10000);
    cliente_dos.di("COMANDO 103");
    servidor_dos.espera_linea("DENTRO", 10000);
    servidor_uno.di("SIGUE");
    EXPECT_EQ(cliente_uno.espera_linea("RESULTADO ", 10000), "RESULTADO 1");
    cliente_uno.di("COMANDO 125");
    EXPECT_EQ(cliente_uno.espera_linea("RESULTADO ", 10000), "RESULTADO 5");
    servidor_dos.di("SIGUE");
    EXPECT_EQ(cliente_dos.espera_linea("RESULTADO ", 10000), "RESULTADO 1");
    v.oye_solo({{1, 2, 1, uno, 103, 0, 0},
                {1, 2, 1, dos, 103, 0, 1},
                {1, 2, 0, uno, 103, 0, 0},
                {1, 2, 1, uno, 125, 0, 0},
                {1, 2, 0, uno, 125, 0, 0},
                {1, 2, 0, dos, 103, 0, 1}});
}

// Two clients that send as they like: whatever the mixture, each service's commands are whole and in order.
TEST_F(trafico, mezclado_de_dos_servicios_es_de_cada_uno_completo)
{
    const uint32_t num = 8;
    std::string servicios[] = {nombre_unico("uno"), nombre_unico("dos")};
    vigia v;
    papel servidor = arranca_servidor("ventana", servicios[0] + "," + servicios[1]);
    papel clientes[] = {arranca_cliente("sin_ventana", servicios[0]), arranca_cliente("sin_ventana", servicios[1])};
    v.oye_solo({{0, 1, 1, servicios[0], 0, 0, 0}, {0, 1, 1, servicios[1], 0, 0, 1}});
    for (uint32_t i = 0; i < num; i++)
        for (papel &cliente : clientes)
            cliente.di("COMANDO " + std::to_string(120 + i));
    for (papel &cliente : clientes)
        for (uint32_t i = 0; i < num; i++)
            EXPECT_EQ(cliente.espera_linea("RESULTADO ", 10000), "RESULTADO " + std::to_string(i));

    std::vector<std::string> lineas = v.dicho();
    EXPECT_EQ(las_que_empiezan(lineas, "BUCLE"), std::vector<std::string>{});
    for (const std::string &servicio : servicios) {
        std::vector<std::string> esperadas, suyas;
        for (uint32_t i = 0; i < num; i++)
            for (uint32_t indicador : {1u, 0u})
                esperadas.push_back(linea_de({1, 2, indicador, servicio, 120 + i, 0}));
        for (const std::string &linea : lineas)
            if (linea.find("\"" + servicio + "\"") != std::string::npos)
                suyas.push_back(linea);
        EXPECT_EQ(suyas, esperadas);
    }
    std::vector<std::string> numeros;
    for (uint32_t n = 3; n < 3 + 4 * num; n++)
        numeros.push_back("CRUDO 0 " + std::to_string(n));
    std::vector<std::string> crudos = las_que_empiezan(lineas, "CRUDO 0 ");
    std::sort(crudos.begin(), crudos.end()); // a number is taken under the lock, and posted after it
    std::sort(numeros.begin(), numeros.end());
    EXPECT_EQ(crudos, numeros);
}

// ---- What leaves no activity

static std::string s_servicio;
static uint32_t s_leido = 0; // what the notification's block held

static void al_notificarme(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    if (dato != 7)
        return; // the second call, from the window
    comdat *datos = ivrexa_lee_datos(servicio, ivrexa_obtener_id_datos_notificacion(servicio, id_cliente, dato), FALSO);
    s_leido = datos != nullptr ? ivrexa_dame_byte(datos, 0) : 0;
    if (datos != nullptr)
        ivrexa_destruye_datos_comando(datos);
    ivrexa_procesada_notificacion(servicio);
}

TEST_F(trafico, documentos_y_notificaciones_no_se_ven_y_sus_datos_si)
{
    s_servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_papel("servidor_que_manda", {"ventana", s_servicio});
    v.oye_solo({{0, 1, 1, s_servicio, 0, 0}});
    da_ventana();
    ivrexa_registra_cliente_notificaciones_servicio(ruta().c_str(), hwnd(), s_servicio.c_str(), al_notificarme);
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(s_servicio.c_str(), L"C:\\uno.txt", 5), 200u);
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(s_servicio.c_str(), L"C:\\dos.txt", 6), 200u);
    ivrexa_cerrado_documento_de_cliente(L"C:\\uno.txt", 5);
    v.oye_solo({});

    EXPECT_EQ(ejecuta(s_servicio, 211).resultado, 1u); // returns once the notification was processed
    EXPECT_EQ(s_leido, 9u);
    v.oye_solo({{1, 2, 1, s_servicio, 211, 0},
                {0, 4, 1, s_servicio, 211, 100},
                {1, 4, 1, s_servicio, 0, 100},
                {1, 2, 0, s_servicio, 211, 0}});
    ivrexa_procesada_notificacion(s_servicio.c_str());
    ivrexa_cierra_sesion();
    v.oye_solo({});
}

// ---- Monitors that come to an end

class sin_vigilante : public con_cada_servidor {};
CON_CADA_SERVIDOR(sin_vigilante);

// It never said that it would go: activities are noted and posted to a window that is no more.
TEST_P(sin_vigilante, monitor_muerto_no_detiene_nada_y_el_siguiente_empieza_de_nuevo)
{
    std::optional<vigia> muerto(std::in_place);
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    muerto->oye({{0, 1, 1, servicio, 0, 0}});
    bloque_crudo registro("Ivrexa_MCB");
    uint64_t su_ventana = reinterpret_cast<uint64_t>(muerto->hwnd());
    muerto->proceso().mata();
    EXPECT_FALSE(IsWindow(muerto->hwnd()));

    {
        entrada_muestra entrada(servicio, 0);
        EXPECT_EQ(ejecuta(servicio, 100, entrada.id()).resultado, 1u);
    }
    EXPECT_EQ(ejecuta(servicio, 127).resultado, 7u);
    EXPECT_EQ(registro.u64(6), su_ventana);
    EXPECT_EQ(registro.u32(18), 9u);
    const suceso anotados[] = {{1, 3, 1, "", 0, 100},   {1, 2, 1, "", 100, 100}, {0, 3, 1, "", 0, 100},
                               {0, 4, 1, "", 100, 101}, {1, 2, 0, "", 100, 100}, {1, 2, 1, "", 127, 0},
                               {1, 2, 0, "", 127, 0}};
    uint32_t n = 2;
    for (const suceso &s : anotados)
        EXPECT_EQ(registro_en(registro, n++), registro_de(s));

    vigia siguiente;
    EXPECT_EQ(registro.u32(18), 1u);
    EXPECT_EQ(registro.u64(6), reinterpret_cast<uint64_t>(siguiente.hwnd()));
    EXPECT_EQ(despl_servicio(registro, servicio), 0u);
    acaba(servidor);
    siguiente.oye({}); // what is not in the table goes unseen
    papel otro = arranca_servidor(clase, servicio);
    siguiente.oye({{0, 1, 1, servicio, 0, 0}});
}

TEST_F(trafico, segundo_monitor_toma_el_puesto_del_primero_que_vive)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    vigia primero;
    papel servidor = arranca_servidor("ventana", uno);
    registra(uno);
    primero.oye_solo({{0, 1, 1, uno, 0, 0}});

    vigia segundo;
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u16(4), 4u);
    EXPECT_EQ(registro.u64(6), reinterpret_cast<uint64_t>(segundo.hwnd()));
    EXPECT_EQ(registro.u32(14), mensaje_monitor());
    EXPECT_EQ(registro.u32(18), 1u);
    EXPECT_EQ(despl_servicio(registro, uno), 0u);
    EXPECT_EQ(registro_en(registro, 1), "32 0 0 0 0 1") << "the first one's record, as an initialisation leaves it";
    papel otro = arranca_servidor("ventana", dos);
    segundo.oye_solo({{0, 1, 1, dos, 0, 0}});
    EXPECT_EQ(primero.dicho(), std::vector<std::string>{});

    // The first one does not know, and its end is the end of whoever is the monitor.
    EXPECT_EQ(primero.pide("PROC", "PROC "), "PROC 0 1");
    primero.quita();
    EXPECT_TRUE(primero.ventanas_propias());
    EXPECT_EQ(registro.u64(6), 0u);
    acaba(otro);
    EXPECT_EQ(despl_servicio(registro, dos), 0u);
    EXPECT_EQ(segundo.dicho(), std::vector<std::string>{});
    EXPECT_EQ(registro.u32(18), 2u);

    segundo.pide("REGISTRA 31", "REGISTRADO");
    EXPECT_INFORME_DE(segundo.proceso(), "iv_mcbase", "s_programa_monitor == NULL");
    EXPECT_EQ(registro.u64(6), 0u);
    segundo.quita();
    segundo.registra(monitor_ENTERO);
    EXPECT_EQ(registro.u64(6), reinterpret_cast<uint64_t>(segundo.hwnd()));
    servidor.di("PUBLICA");
    servidor.espera_linea("PUBLICADO", 10000);
    segundo.oye_solo({{0, 1, 1, uno, 0, 0}});
}

// ---- A monitor that is a server or a client as well

// The later subclass passes on what is not its own, so both parts are played with one window.
TEST_F(trafico, monitor_que_es_tambien_servidor_se_ve_a_si_mismo)
{
    std::string servicio = nombre_unico("serv");
    for (bool antes_monitor : {true, false}) {
        SCOPED_TRACE(antes_monitor ? "monitor first" : "server first");
        vigia v(antes_monitor ? monitor_ENTERO : monitor_NINGUNO);
        v.pide("OFRECE " + servicio, "OFRECIDO");
        if (antes_monitor)
            v.oye_solo({{0, 1, 1, servicio, 0, 0}});
        else
            v.registra(monitor_ENTERO);
        registra(servicio);
        papel cliente = arranca_cliente("sin_ventana", servicio); // enters the service anew
        EXPECT_EQ(ejecuta(servicio, 100).resultado, 1u);
        v.oye_solo({{1, 2, 1, servicio, 100, 0}, {1, 2, 0, servicio, 100, 0}});
        if (antes_monitor) {
            v.pide("CIERRA", "CERRADO");
            EXPECT_EQ(v.manda(0, 2), 0) << "deaf: the close took its view of the registry";
            EXPECT_EQ(v.pide("PROC", "PROC "), "PROC 0 1");
            v.quita();
        } else {
            v.quita();
            EXPECT_EQ(ejecuta(servicio, 100).resultado, 1u) << "still a server";
            v.pide("CIERRA", "CERRADO");
        }
        EXPECT_TRUE(v.ventanas_propias());
        EXPECT_EQ(bloque_crudo("Ivrexa_MCB").u64(6), 0u);
        ivrexa_cierra_sesion();
    }
}
