// Programs that call one another from within their command functions, and commands that arrive while the server shows a
// box. A command's function gets a path of services in text 2 and runs the rest of it on the first of them; the answer
// is the path that was walked, with "[result]" where it ended early.
#include <memory>

#include "dll_conversa.h"

enum : uint32_t { cruce_CAMINO = 200, cruce_INFORME = 201, cruce_CAJA = 202, cruce_FIN_MENU = 203 };

// ---- The role

static void espera_senyal(const wchar_t *nombre)
{
    HANDLE senyal = CreateEventW(nullptr, TRUE, FALSE, nombre);
    EXPECT_EQ(WaitForSingleObject(senyal, 50000), WAIT_OBJECT_0) << "nobody gave the signal";
    CloseHandle(senyal);
}

// Runs command `id` with the path and answers as a function does.
static std::wstring llama(const std::wstring &servicio, uint32_t id, const wchar_t *senyal, const wchar_t *camino)
{
    wchar_t texto[256] = L"";
    std::string nombre(servicio.begin(), servicio.end());
    uint32_t r =
        ivrexa_ejecuta_comando(nombre.c_str(), id, 0, 0, senyal, camino, nullptr, nullptr, nullptr, texto, nullptr);
    return r == 1 ? texto : L"[" + std::to_wstring(r) + L"]";
}

// A path that begins with '@' says "DENTRO service" and goes on at the signal.
static std::wstring anda(const std::string &servicio, const wchar_t *senyal, std::wstring camino)
{
    if (!camino.empty() && camino[0] == L'@') {
        papel_c_di("DENTRO %s", servicio.c_str());
        espera_senyal(senyal);
        camino.erase(0, 1);
    }
    std::wstring yo(servicio.begin(), servicio.end());
    if (camino.empty())
        return yo;
    size_t corte = std::min(camino.find(L','), camino.size());
    std::wstring resto = camino.substr(std::min(corte + 1, camino.size()));
    return yo + L">" + llama(camino.substr(0, corte), cruce_CAMINO, senyal, resto.c_str());
}

static void muestra_dialogo(HWND hwnd)
{
    alignas(4) struct {
        DLGTEMPLATE cabeza;
        WORD menu, clase, titulo;
    } modelo = {{WS_POPUP | WS_VISIBLE, 0, 0, 0, 0, 50, 20}, 0, 0, 0};
    DLGPROC procedimiento = [](HWND caja, UINT msg, WPARAM wparam, LPARAM) -> INT_PTR {
        if (msg == WM_COMMAND && LOWORD(wparam) == IDOK)
            EndDialog(caja, 1);
        return msg == WM_INITDIALOG;
    };
    DialogBoxIndirectParamW(GetModuleHandleW(nullptr), &modelo.cabeza, hwnd, procedimiento, 0);
}

static void muestra_menu(HWND hwnd)
{
    HMENU menu = CreatePopupMenu();
    AppendMenuW(menu, MF_STRING, 1, L"uno");
    papel_c_di("MENU_VA");
    TrackPopupMenu(menu, TPM_RETURNCMD, 10, 10, 0, hwnd, nullptr);
    DestroyMenu(menu);
}

// 1 when this thread was in a menu's loop, which then ends; 2 when not.
static int32_t acaba_menu()
{
    GUITHREADINFO datos = {};
    datos.cbSize = sizeof datos;
    GetGUIThreadInfo(GetCurrentThreadId(), &datos);
    if ((datos.flags & GUI_INMENUMODE) == 0)
        return 2;
    EndMenu();
    return 1;
}

static int32_t cruce_atiende(anfitrion_peticion *p)
{
    wchar_t t1[64], t2[256];
    if (p->id_comando == cruce_FIN_MENU)
        return acaba_menu();
    if (ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, nullptr, t1, t2, nullptr) != CIERTO)
        return 98;
    if (p->id_comando == cruce_INFORME)
        ivrexa_graba_byte(nullptr, "b", 1);
    if (p->id_comando == cruce_CAJA)
        MessageBoxA(anfitrion_yo.hwnd, "cuerpo", "caja propia", MB_OK);
    std::wstring texto = anda(p->servicio, t1, t2);
    return ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 0, nullptr, texto.c_str(), nullptr) == CIERTO
               ? 1
               : 97;
}

// "ORDENA id service" runs another command: "FIN ...".
static void ordena_linea(const char *linea)
{
    char *servicio = nullptr;
    uint32_t id = static_cast<uint32_t>(strtoul(linea, &servicio, 10));
    std::string ansi = servicio + 1;
    std::wstring texto = llama(std::wstring(ansi.begin(), ansi.end()), id, nullptr, nullptr);
    papel_c_di("FIN %s", std::string(texto.begin(), texto.end()).c_str());
}

// Boxes of this process stand until the signal that the line "RETEN name" named.
static std::wstring s_senyal_cajas;

static void reten_caja(const datos_informe &i)
{
    papel_c_di("CAJA %s", i.ajeno ? i.titulo.c_str() : i.expresion.c_str());
    espera_senyal(s_senyal_cajas.c_str());
}

// "MANDA service signal path" runs a command on this thread: "FIN ...".
static void manda_linea(const char *linea)
{
    char servicio[64] = "", senyal[64] = "", camino[256] = "";
    sscanf(linea, "%63s %63s %255s", servicio, senyal, camino);
    std::string ansi_senyal = senyal, ansi_camino = camino, ansi_servicio = servicio;
    std::wstring texto = llama(std::wstring(ansi_servicio.begin(), ansi_servicio.end()), cruce_CAMINO,
                               std::wstring(ansi_senyal.begin(), ansi_senyal.end()).c_str(),
                               std::wstring(ansi_camino.begin(), ansi_camino.end()).c_str());
    papel_c_di("FIN %s", std::string(texto.begin(), texto.end()).c_str());
}

static void muestra(const std::string &que)
{
    if (que == "caja")
        MessageBoxA(anfitrion_yo.hwnd, "cuerpo", "caja propia", MB_OK);
    else if (que == "dialogo")
        muestra_dialogo(anfitrion_yo.hwnd);
    else if (que == "menu")
        muestra_menu(anfitrion_yo.hwnd);
    else
        ivrexa_graba_byte(nullptr, "b", 1);
    papel_c_di("QUITADA");
}

static int cruce_obedece(const char *linea)
{
    if (strncmp(linea, "MANDA ", 6) == 0)
        manda_linea(linea + 6);
    else if (strncmp(linea, "ORDENA ", 7) == 0)
        ordena_linea(linea + 7);
    else if (strncmp(linea, "MUESTRA ", 8) == 0)
        muestra(linea + 8);
    else if (strncmp(linea, "RETEN ", 6) == 0) {
        std::string nombre = linea + 6;
        s_senyal_cajas = std::wstring(nombre.begin(), nombre.end());
        al_informar(reten_caja);
        papel_c_di("RETENGO");
    } else
        return anfitrion_obedece(linea);
    return 1;
}

PAPEL(cruce)
{
    anfitrion_yo.otros = cruce_atiende;
    return anfitrion_servidor_que(args[0].c_str(), args[1].c_str(), cruce_obedece);
}

// ---- The test's side

class cruzadas : public ::testing::Test {
protected:
    void SetUp() override
    {
        vacia_registro();
        m_senyal = CreateEventA(nullptr, TRUE, FALSE, senyal.c_str());
    }
    void TearDown() override { CloseHandle(m_senyal); }

    const std::string senyal = nombre_unico("senyal");
    void da_senyal() { SetEvent(m_senyal); }

    // A program with two services. One that is only a client here does not `sirve`.
    papel &programa(const std::string &clase, const std::string &nombre, bool sirve = true)
    {
        m_con_rondas = m_con_rondas || (sirve && clase == "sin_ventana");
        std::string base = nombre_unico(nombre.c_str());
        m_servicios[nombre] = base;
        m_servicios[nombre + "b"] = base + "b";
        m_programas.push_back(arranca_papel("cruce", {clase, base + "," + base + "b"}));
        if (clase == "net") // its second service
            EXPECT_INFORME_DE(m_programas.back(), "iv_reg", "procesaComandoExterno != NULL");
        return m_programas.back();
    }

    // Each program as a client of these services, with a heartbeat that has moved where servers look at it.
    void solicita(const std::vector<std::string> &nombres)
    {
        for (papel &p : m_programas) {
            for (const std::string &nombre : nombres)
                p.di("SOLICITA " + m_servicios[nombre]);
            for (size_t i = 0; i < nombres.size(); i++)
                p.espera_linea("SOLICITADO", 10000);
        }
        for (papel &p : m_programas)
            if (m_con_rondas)
                espera_latido(ruta_de(p));
    }

    // "a@bb,c" with the names of the services: what `de` runs on the first of them.
    void manda(papel &de, const std::string &servicio, const std::string &camino = "")
    {
        de.di("MANDA " + m_servicios[servicio] + " " + senyal + " " + traduce(camino));
    }

    void ordena(papel &de, uint32_t id, const std::string &servicio)
    {
        de.di("ORDENA " + std::to_string(id) + " " + m_servicios[servicio]);
    }

    // The services of a path by their short names, and back.
    std::string traduce(const std::string &camino) { return cambia(camino, false); }
    std::string corto(const std::string &camino) { return cambia(camino, true); }

    std::string fin(papel &p, uint32_t ms = 20000)
    {
        std::string linea = p.espera_linea("FIN ", ms);
        return linea.empty() ? "" : corto(linea.substr(4));
    }

    void dentro(papel &p, const std::string &servicio)
    {
        EXPECT_EQ(p.espera_linea("DENTRO ", 10000), "DENTRO " + m_servicios[servicio]);
    }

    void acaban()
    {
        for (papel &p : m_programas)
            if (p.vive())
                p.di("ACABA");
        for (papel &p : m_programas)
            if (p.vive()) {
                EXPECT_EQ(p.espera_fin(15000), 0u);
            }
    }

    // No claim stands, and no mutex is held.
    void comprueba_libres()
    {
        for (const auto &[nombre, servicio] : m_servicios) {
            bloque_crudo canal(nombre_canal(servicio).c_str());
            if (canal.abierto()) {
                EXPECT_EQ(canal.u32(1198), 0u) << nombre;
            }
            mutex_crudo mutex(("Mutex_Ivrexa_" + servicio).c_str(), mutex_crudo::modo::crea);
            EXPECT_TRUE(mutex.retiene(10000)) << nombre;
            mutex.suelta();
        }
    }

    std::vector<papel> m_programas;
    std::map<std::string, std::string> m_servicios;

private:
    // Words are what stands between the marks of paths.
    std::string cambia(const std::string &camino, bool al_reves)
    {
        std::string resultado, palabra;
        for (char c : camino + ",") {
            if (isalnum(static_cast<unsigned char>(c)) || c == '_') {
                palabra += c;
                continue;
            }
            for (const auto &[nombre, servicio] : m_servicios)
                if (palabra == (al_reves ? servicio : nombre)) {
                    palabra = al_reves ? nombre : servicio;
                    break;
                }
            resultado += palabra + c;
            palabra.clear();
        }
        resultado.pop_back();
        return resultado;
    }

    HANDLE m_senyal = nullptr;
    bool m_con_rondas = false;
};

struct par_de_clases {
    const char *a, *b;
    friend std::ostream &operator<<(std::ostream &salida, const par_de_clases &p)
    {
        return salida << p.a << "," << p.b;
    }
};

class de_dos_en_dos : public cruzadas, public ::testing::WithParamInterface<par_de_clases> {};

static const par_de_clases PARES[] = {
    {"ventana", "ventana"}, {"sin_ventana", "sin_ventana"}, {"ventana", "sin_ventana"}, {"net", "ventana"}};

INSTANTIATE_TEST_SUITE_P(clases, de_dos_en_dos, ::testing::ValuesIn(PARES),
                         [](const auto &dato) { return std::string(dato.param.a) + "_y_" + dato.param.b; });

// From their main threads, each with a command of the other's under way. A thread that sends to a window answers
// meanwhile; one that polls does not, and the other waits until it is done.
TEST_P(de_dos_en_dos, se_mandan_a_la_vez_desde_sus_hilos_principales)
{
    programa(GetParam().a, "a");
    programa(GetParam().b, "b");
    solicita({"a", "b"});
    for (int i = 0; i < 3; i++) {
        manda(m_programas[0], "b");
        manda(m_programas[1], "a");
        EXPECT_EQ(fin(m_programas[0]), "b");
        EXPECT_EQ(fin(m_programas[1]), "a");
    }
    comprueba_libres();
    acaban();
}

// From inside their functions, each on a service of the other's that is free.
TEST_P(de_dos_en_dos, se_llaman_desde_sus_funciones_a_servicios_libres)
{
    programa(GetParam().a, "a");
    programa(GetParam().b, "b");
    programa("ventana", "c");
    programa("sin_ventana", "d", false);
    solicita({"a", "ab", "b", "bb"});
    manda(m_programas[2], "a", "@bb");
    manda(m_programas[3], "b", "@ab");
    dentro(m_programas[0], "a");
    dentro(m_programas[1], "b");
    da_senyal();
    EXPECT_EQ(fin(m_programas[2]), "a>bb");
    EXPECT_EQ(fin(m_programas[3]), "b>ab");
    comprueba_libres();
    acaban();
}

// From inside their functions, each on the service whose command the other is running: both wait for the other's end
// for as long as both live. Ending one lets the other go on, and those that wait for them.
TEST_P(de_dos_en_dos, se_llaman_a_los_servicios_ocupados_y_esperan_hasta_que_uno_acaba)
{
    programa(GetParam().a, "a");
    programa(GetParam().b, "b");
    programa("ventana", "c");
    programa("sin_ventana", "d", false);
    solicita({"a", "b"});
    manda(m_programas[2], "a", "@b");
    manda(m_programas[3], "b", "@a");
    dentro(m_programas[0], "a");
    dentro(m_programas[1], "b");
    da_senyal();
    EXPECT_FALSE(m_programas[2].busca_linea("FIN ", 4500)) << "longer than a dead program is waited for";
    EXPECT_FALSE(m_programas[3].busca_linea("FIN ", 0));
    m_programas[1].mata();

    // A dead server with a window answers 0. One without is only found dead by a client that waits for it alone: here
    // two do, until one of them ends as well.
    const bool sin_ventana = GetParam().b == std::string("sin_ventana");
    if (sin_ventana)
        m_programas[3].mata();
    else {
        EXPECT_EQ(fin(m_programas[3]), "[0]");
    }
    EXPECT_EQ(fin(m_programas[2]), sin_ventana ? "a>[3]" : "a>[0]");
    comprueba_libres();
    manda(m_programas[2], "a");
    EXPECT_EQ(fin(m_programas[2]), "a") << "the one that is left serves on";
    acaban();
}

// ---- Back into the client that waits

TEST_F(cruzadas, una_funcion_con_ventana_llama_al_cliente_con_ventana_que_la_espera)
{
    programa("ventana", "a");
    programa("ventana", "c");
    solicita({"a", "c"});
    manda(m_programas[1], "a", "c");
    EXPECT_EQ(fin(m_programas[1]), "a>c");
    acaban();
}

TEST_F(cruzadas, una_funcion_de_cualquier_clase_llama_al_cliente_sin_ventana_que_la_espera)
{
    programa("ventana", "a");
    programa("sin_ventana", "b");
    programa("sin_ventana", "c");
    solicita({"a", "b", "c"});
    manda(m_programas[2], "a", "c");
    EXPECT_EQ(fin(m_programas[2]), "a>c");
    manda(m_programas[2], "b", "c");
    EXPECT_EQ(fin(m_programas[2]), "b>c");
    acaban();
}

// Its thread polls for the answer and so never sees the message.
TEST_F(cruzadas, una_funcion_sin_ventana_que_llama_al_cliente_con_ventana_que_la_espera_no_vuelve)
{
    programa("sin_ventana", "b");
    programa("ventana", "c");
    programa("sin_ventana", "d", false);
    solicita({"b", "c"});
    manda(m_programas[1], "b", "c");
    EXPECT_FALSE(m_programas[1].busca_linea("FIN ", 4500));
    m_programas[0].mata();
    EXPECT_EQ(fin(m_programas[1]), "[3]");

    // What the dead one had claimed of its service stays claimed; another service of its program is free.
    bloque_crudo canal(nombre_canal(m_servicios["c"]).c_str());
    EXPECT_EQ(canal.u32(1198), 2u);
    acaban();
}

// ---- Five in a ring

struct anillo {
    const char *nombre;
    const char *clases[5];
    friend std::ostream &operator<<(std::ostream &salida, const anillo &a) { return salida << a.nombre; }
};

static const anillo ANILLOS[] = {
    {"con_ventana", {"ventana", "ventana", "ventana", "ventana", "ventana"}},
    {"sin_ventana", {"sin_ventana", "sin_ventana", "sin_ventana", "sin_ventana", "sin_ventana"}},
    {"mezclado", {"sin_ventana", "ventana", "sin_ventana", "net", "sin_ventana"}},
};

class en_anillo : public cruzadas, public ::testing::WithParamInterface<anillo> {};
INSTANTIATE_TEST_SUITE_P(clases, en_anillo, ::testing::ValuesIn(ANILLOS),
                         [](const auto &dato) { return std::string(dato.param.nombre); });

TEST_P(en_anillo, la_llamada_da_la_vuelta_y_acaba_en_otro_servicio_del_primero)
{
    const char *const nombres[5] = {"p", "q", "r", "s", "t"};
    for (int i = 0; i < 5; i++)
        programa(GetParam().clases[i], nombres[i]);
    programa("ventana", "c");
    solicita({"p", "pb", "q", "r", "s", "t"});
    manda(m_programas[5], "p", "q,r,s,t,pb");
    EXPECT_EQ(fin(m_programas[5]), "p>q>r>s>t>pb");
    comprueba_libres();
    acaban();
}

// ---- A box stands in the server

using caso_caja = std::tuple<const char *, const char *>;
class con_una_caja : public cruzadas, public ::testing::WithParamInterface<caso_caja> {
protected:
    papel &servidor_que_retiene()
    {
        papel &servidor = programa(std::get<0>(GetParam()), "a");
        servidor.di("RETEN " + senyal);
        servidor.espera_linea("RETENGO", 10000);
        return servidor;
    }
};

static std::string nombre_caso_caja(const ::testing::TestParamInfo<caso_caja> &dato)
{
    return std::string(std::get<0>(dato.param)) + "_" + std::get<1>(dato.param);
}

INSTANTIATE_TEST_SUITE_P(servidor, con_una_caja,
                         ::testing::Combine(::testing::ValuesIn(CLASES_SERVIDOR),
                                            ::testing::Values("caja", "dialogo", "informe")),
                         nombre_caso_caja);

// The box's own loop dispatches, and a server without a window has another thread for it.
TEST_P(con_una_caja, en_el_hilo_principal_se_contestan_los_comandos)
{
    servidor_que_retiene();
    programa("ventana", "c");
    solicita({"a"});
    m_programas[0].di(std::string("MUESTRA ") + std::get<1>(GetParam()));
    m_programas[0].espera_linea("CAJA ", 10000);
    manda(m_programas[1], "a");
    EXPECT_EQ(fin(m_programas[1]), "a");
    EXPECT_FALSE(m_programas[0].busca_linea("QUITADA", 0)) << "answered after the box, not during it";
    da_senyal();
    m_programas[0].espera_linea("QUITADA", 10000);
    comprueba_libres();
    acaban();
}

class en_la_funcion : public con_una_caja {};
INSTANTIATE_TEST_SUITE_P(servidor, en_la_funcion,
                         ::testing::Combine(::testing::ValuesIn(CLASES_SERVIDOR), ::testing::Values("caja", "informe")),
                         nombre_caso_caja);

// Its other service answers meanwhile.
TEST_P(en_la_funcion, de_un_comando_contesta_el_otro_servicio_y_despues_el_comando)
{
    servidor_que_retiene();
    programa("ventana", "c");
    programa("sin_ventana", "d", false);
    solicita({"a", "ab"});
    bool con_caja = std::get<1>(GetParam()) == std::string("caja");
    ordena(m_programas[1], con_caja ? cruce_CAJA : cruce_INFORME, "a");
    m_programas[0].espera_linea("CAJA ", 10000);
    manda(m_programas[2], "ab");
    EXPECT_EQ(fin(m_programas[2]), "ab");
    EXPECT_FALSE(m_programas[1].busca_linea("FIN ", 0)) << "its box still stands";
    da_senyal();
    EXPECT_EQ(fin(m_programas[1]), "a");
    manda(m_programas[2], "a");
    EXPECT_EQ(fin(m_programas[2]), "a");
    comprueba_libres();
    acaban();
}

class con_un_menu : public cruzadas, public ::testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(servidor, con_un_menu, ::testing::Values("ventana", "net"),
                         [](const auto &dato) { return std::string(dato.param); });

// The command itself ends the menu.
TEST_P(con_un_menu, desplegado_se_contestan_los_comandos)
{
    programa(GetParam(), "a");
    programa("ventana", "c");
    solicita({"a"});
    m_programas[0].di("MUESTRA menu");
    m_programas[0].espera_linea("MENU_VA", 10000);
    EXPECT_TRUE(espera_hasta(
        [&] {
            ordena(m_programas[1], cruce_FIN_MENU, "a");
            return fin(m_programas[1]) != "[2]";
        },
        10000))
        << "the menu's loop never began";
    m_programas[0].espera_linea("QUITADA", 10000);
    comprueba_libres();
    acaban();
}
