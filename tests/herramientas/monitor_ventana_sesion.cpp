// monitor_ventana_sesion.cpp - how the monitor starts and ends: arguments, questions, other monitors, settings.
#include "ventana_monitor.h"

using monitor_ventana_sesion = monitor_ventana;

// The main window need not be there while a box asks.
static HWND espera_pregunta(monitor_vivo &m, const std::string &palabras, lugar donde = lugar::aqui())
{
    HWND caja = espera_caja(m.pid(), 20000, donde);
    EXPECT_NE(texto_de_caja(caja).find(palabras), std::string::npos) << texto_de_caja(caja);
    pon_delante(caja, donde);
    return caja;
}

static void contesta(monitor_vivo &m, HWND caja, WORD tecla)
{
    pulsa({tecla});
    m.espera([&] { return !IsWindow(caja); }, "the box to close");
}

// The process whose window the registry names as the monitor's; 0: none.
static uint32_t pid_del_monitor()
{
    bloque_crudo registro("Ivrexa_MCB");
    DWORD pid = 0;
    if (registro.abierto())
        GetWindowThreadProcessId(reinterpret_cast<HWND>(registro.u64(6)), &pid);
    return pid;
}

static const monitor_vivo::sin_esperar SIN_ESPERAR;

// ---- Arguments

TEST_F(monitor_ventana_sesion, un_argumento_que_no_hay_se_dice_en_una_caja_y_termina_con_64)
{
    monitor_vivo m(SIN_ESPERAR, {"--no-such-option"});
    HWND caja = espera_pregunta(m, "--no-such-option");
    EXPECT_NE(texto_de_caja(caja).find("--replace"), std::string::npos) << "it tells what there is";
    contesta(m, caja, VK_RETURN);
    EXPECT_EQ(m.proceso().espera_fin(20000), 64u);
    EXPECT_FALSE(hay_clave()) << "nothing is written";
}

TEST_F(monitor_ventana_sesion, con_no_watch_se_abre_sin_ser_el_monitor)
{
    monitor_vivo m({"--no-watch"});
    m.espera_estado("not watching");
    papel servidor = arranca_servidor("ventana", servicio());
    m.espera_fila(ID_LISTA_SERVICIOS, 0, servicio()); // looking needs no monitor
    EXPECT_EQ(m.actividades().num_filas(), 0);
    EXPECT_EQ(pid_del_monitor(), 0u);
    acaba(servidor);
    m.cierra();
}

// ---- Questions

TEST_F(monitor_ventana_sesion, si_hay_servicios_pregunta_antes_de_vaciar_su_tabla)
{
    papel servidor = arranca_servidor("ventana", servicio());
    {
        monitor_vivo m(SIN_ESPERAR, {});
        HWND caja = espera_pregunta(m, servicio());
        contesta(m, caja, VK_RETURN); // the default is to leave things as they are
        m.espera_principal();
        m.espera_estado("not watching");
        m.espera_fila(ID_LISTA_SERVICIOS, 0, servicio());
        EXPECT_NE(despl_servicio(bloque_crudo("Ivrexa_MCB"), servicio()), 0u) << "still in the table";
        m.cierra();
    }
    monitor_vivo m(SIN_ESPERAR, {});
    contesta(m, espera_pregunta(m, servicio()), 'Y');
    m.espera_principal();
    m.espera_estado("watching");
    EXPECT_EQ(despl_servicio(bloque_crudo("Ivrexa_MCB"), servicio()), 0u) << "taken out";
    EXPECT_EQ(pid_del_monitor(), m.pid());
    m.cierra();
    EXPECT_EQ(pid_del_monitor(), 0u) << "unregistered at its end";
    acaba(servidor);
}

TEST_F(monitor_ventana_sesion, con_yes_no_pregunta_por_los_servicios)
{
    papel servidor = arranca_servidor("ventana", servicio());
    monitor_vivo m({"--yes"});
    EXPECT_EQ(ventana_de(m.pid(), L"#32770"), nullptr);
    EXPECT_EQ(pid_del_monitor(), m.pid());
    m.cierra();
    acaba(servidor);
}

TEST_F(monitor_ventana_sesion, si_vive_otro_monitor_pregunta_y_con_no_se_abre_sin_vigilar)
{
    monitor_vivo primero;
    monitor_vivo segundo(SIN_ESPERAR, {});
    HWND caja = espera_pregunta(segundo, "process " + std::to_string(primero.pid()));
    contesta(segundo, caja, 'N');
    segundo.espera_principal();
    segundo.espera_estado("not watching");
    EXPECT_EQ(primero.estado(), "watching");
    EXPECT_EQ(pid_del_monitor(), primero.pid());
    segundo.cierra();
    EXPECT_EQ(pid_del_monitor(), primero.pid()) << "the other's place is not taken away at the end";
    primero.cierra();
}

TEST_F(monitor_ventana_sesion, con_replace_ocupa_el_lugar_y_el_desbancado_lo_dice_y_puede_volver)
{
    monitor_vivo primero;
    monitor_vivo segundo({"--replace", "--yes"});
    primero.espera_estado("another program is the monitor now");
    papel servidor = arranca_servidor("ventana", servicio());
    segundo.espera_suceso("service offered");
    EXPECT_EQ(primero.actividades().num_filas(), 0);
    acaba(servidor);
    segundo.espera_filas(ID_LISTA_ACTIVIDADES, 2);
    segundo.cierra();
    primero.pulsa_hasta_estado({VK_CONTROL, 'M'}, "watching");
    EXPECT_EQ(pid_del_monitor(), primero.pid());
    papel tercero = arranca_servidor("ventana", servicio());
    primero.espera_suceso("service offered");
    acaba(tercero);
    primero.cierra();
}

TEST_F(monitor_ventana_sesion, se_deja_de_vigilar_y_se_vuelve_con_su_tecla_sin_perder_lo_visto)
{
    monitor_vivo m;
    papel servidor = arranca_servidor("ventana", servicio());
    m.espera_filas(ID_LISTA_ACTIVIDADES, 1);
    m.pon_delante();
    pulsa({VK_CONTROL, 'M'});
    m.espera_estado("not watching");
    EXPECT_EQ(pid_del_monitor(), 0u);
    acaba(servidor);
    pulsa({VK_CONTROL, 'M'});
    m.espera_estado("watching");
    papel otro = arranca_servidor("ventana", servicio());
    m.espera_filas(ID_LISTA_ACTIVIDADES, 2);
    EXPECT_EQ(m.actividades().columna(ACT_NUMERO), (std::vector<std::string>{"1", "2"})) << "numbers go on";
    acaba(otro);
    m.cierra();
}

// ---- What it remembers

static RECT sitio_de(HWND hwnd)
{
    RECT r = {};
    GetWindowRect(hwnd, &r);
    return r;
}

static void espera_sitio(const RECT &a, const RECT &b)
{
    EXPECT_EQ(a.left, b.left);
    EXPECT_EQ(a.top, b.top);
    EXPECT_EQ(a.right, b.right);
    EXPECT_EQ(a.bottom, b.bottom);
}

TEST_F(monitor_ventana_sesion, recuerda_su_sitio_sus_columnas_y_su_filtro)
{
    RECT sitio = {};
    std::vector<int> actividades, servicios;
    {
        monitor_vivo m;
        ASSERT_TRUE(SetWindowPos(m.hwnd(), nullptr, 37, 21, 700, 500, SWP_NOZORDER | SWP_NOACTIVATE));
        m.espera([&] { return sitio_de(m.hwnd()).left == 37; }, "the window to move");
        m.actividades().pon_ancho(ACT_SUCESO, 123);
        m.lista(ID_LISTA_SERVICIOS).pon_ancho(0, 77);
        m.pon_delante();
        pulsa({VK_CONTROL, 'F'});
        m.espera_foco(ID_FILTRO_SERVICIO);
        teclea("mir\xc3\xa1");
        m.espera([&] { return texto_de(m.control(ID_FILTRO_SERVICIO)) == "mir\xc3\xa1"; }, "the filter");
        sitio = sitio_de(m.hwnd());
        actividades = m.actividades().anchos();
        servicios = m.lista(ID_LISTA_SERVICIOS).anchos();
        m.cierra();
    }
    monitor_vivo m;
    espera_sitio(sitio_de(m.hwnd()), sitio);
    EXPECT_EQ(m.actividades().anchos(), actividades);
    EXPECT_EQ(m.actividades().anchos()[ACT_SUCESO], 123);
    EXPECT_EQ(m.lista(ID_LISTA_SERVICIOS).anchos(), servicios);
    EXPECT_EQ(texto_de(m.control(ID_FILTRO_SERVICIO)), "mir\xc3\xa1");
    papel servidor = arranca_servidor("ventana", servicio());
    m.espera_cuenta(BARRA_ACTIVIDADES, 1);
    EXPECT_EQ(m.actividades().num_filas(), 0) << "the remembered filter holds";
    acaba(servidor);
    m.cierra();
}

TEST_F(monitor_ventana_sesion, ajustes_sin_sentido_no_impiden_abrirse_a_la_vista)
{
    std::vector<int> anchos;
    {
        monitor_vivo m;
        anchos = m.actividades().anchos();
        m.cierra();
    }
    monitor::ajustes a;
    a.hay_ventana = true;
    a.ventana = {50000, 50000, 50800, 50600}; // a screen that there is not any more
    a.anchos_actividades = {1, 2};            // another version's columns
    a.filtro_servicio = std::string(900, 'x');
    ASSERT_TRUE(monitor::escribe_ajustes(a));
    monitor_vivo m;
    RECT pantalla = monitor::areas_de_trabajo()[0], sitio = sitio_de(m.hwnd()), comun = {};
    EXPECT_TRUE(IntersectRect(&comun, &pantalla, &sitio) && EqualRect(&comun, &sitio))
        << sitio.left << "," << sitio.top;
    EXPECT_EQ(m.actividades().anchos(), anchos);
    m.cierra();
}

TEST_F(monitor_ventana_sesion, una_ventana_maximizada_se_abre_maximizada_y_vuelve_a_su_sitio)
{
    RECT sitio = {};
    {
        monitor_vivo m;
        ASSERT_TRUE(SetWindowPos(m.hwnd(), nullptr, 40, 30, 710, 510, SWP_NOZORDER | SWP_NOACTIVATE));
        m.espera([&] { return sitio_de(m.hwnd()).left == 40; }, "the window to move");
        sitio = sitio_de(m.hwnd());
        PostMessageW(m.hwnd(), WM_SYSCOMMAND, SC_MAXIMIZE, 0);
        m.espera([&] { return IsZoomed(m.hwnd()) != FALSE; }, "the window to be maximised");
        m.cierra();
    }
    espera_sitio(monitor::lee_ajustes().ventana, sitio);
    monitor_vivo m;
    EXPECT_TRUE(IsZoomed(m.hwnd()));
    PostMessageW(m.hwnd(), WM_SYSCOMMAND, SC_RESTORE, 0);
    m.espera([&] { return IsZoomed(m.hwnd()) == FALSE && sitio_de(m.hwnd()).left >= 0; }, "the window to be restored");
    espera_sitio(sitio_de(m.hwnd()), sitio);
    m.cierra();
}

// ---- Dots per inch

TEST_F(monitor_ventana_sesion, otra_densidad_de_pantalla_cambia_columnas_y_letra_y_vuelve)
{
    monitor_vivo m;
    std::vector<int> antes = m.actividades().anchos();
    LONG alto_antes = sitio_de(m.control(ID_FILTRO_SERVICIO)).bottom - sitio_de(m.control(ID_FILTRO_SERVICIO)).top;
    RECT sitio = sitio_de(m.hwnd());
    memoria_ajena memoria(m.hwnd());
    RECT mayor = {10, 20, 1250, 920};
    memoria.pon(&mayor, sizeof mayor);
    manda(m.hwnd(), WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(memoria.registro()));
    espera_sitio(sitio_de(m.hwnd()), mayor);
    std::vector<int> ahora = m.actividades().anchos();
    for (size_t i = 0; i < antes.size(); i++)
        EXPECT_NEAR(ahora[i], antes[i] * 1.5, 1) << "column " << i;
    LONG alto = sitio_de(m.control(ID_FILTRO_SERVICIO)).bottom - sitio_de(m.control(ID_FILTRO_SERVICIO)).top;
    EXPECT_GT(alto, alto_antes * 5 / 4);
    RECT cliente = {};
    GetClientRect(m.hwnd(), &cliente);
    MapWindowPoints(m.hwnd(), nullptr, reinterpret_cast<POINT *>(&cliente), 2);
    for (int id : {ID_LISTA_ACTIVIDADES, ID_LISTA_SERVICIOS, ID_LISTA_PROGRAMAS, ID_LISTA_VALORES, ID_BARRA_ESTADO}) {
        RECT r = sitio_de(m.control(id)), dentro = {};
        EXPECT_TRUE(r.right > r.left && r.bottom > r.top) << id;
        EXPECT_TRUE(IntersectRect(&dentro, &r, &cliente) && EqualRect(&dentro, &r)) << id << " is cut off";
    }
    memoria.pon(&sitio, sizeof sitio);
    manda(m.hwnd(), WM_DPICHANGED, MAKEWPARAM(96, 96), reinterpret_cast<LPARAM>(memoria.registro()));
    EXPECT_EQ(m.actividades().anchos(), antes);
    espera_sitio(sitio_de(m.hwnd()), sitio);
    m.cierra();
}
