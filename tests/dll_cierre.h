// dll_cierre.h - a program that is everything at once, for the tests of its end: monitor, server, and client of a
// server that is its own client too, with open documents, stored output and notifications. For one source file of a
// program: it defines the role "socio".
#ifndef DLL_CIERRE_H
#define DLL_CIERRE_H

#include <algorithm>
#include <atomic>
#include <memory>

#include "dll_conversa.h"

// ---- The partner: a server, and a client of whatever it is told to be

static int obedece_socio(const char *linea)
{
    char servicio[64] = "";
    unsigned id = 0, dato = 0;
    if (sscanf(linea, "MANDA %63s %u", servicio, &id) == 2) {
        respuesta r = ejecuta(servicio, id, 0, L"1");
        papel_c_di("RESULTADO %u|%u|%s", r.resultado, r.id_salida, a_utf8(r.t1).c_str());
    } else if (sscanf(linea, "AVISA %u %u", &id, &dato) == 2) {
        ivrexa_notifica_a_cliente(anfitrion_yo.servicios[0], id, dato, 0);
        papel_c_di("AVISADO");
    } else if (sscanf(linea, "TERMINA %63s", servicio) == 1) {
        ivrexa_terminar_servidor(servicio);
        papel_c_di("TERMINADO");
    } else if (sscanf(linea, "HAY %63s", servicio) == 1) {
        papel_c_di("HAY %d", ivrexa_hay_servicio_registrado(servicio, nullptr));
    } else {
        return anfitrion_obedece(linea);
    }
    return 1;
}

PAPEL(socio)
{
    return anfitrion_servidor_que(args[0].c_str(), args[1].c_str(), obedece_socio);
}

// ---- The callbacks

static std::vector<std::string> s_actividades; // "kind activity begins data1" as the monitor is told
static uint32_t s_num_propias;                 // registered messages that the own procedure got
static std::atomic<uint32_t> s_rondas{0}, s_avisos_hilo{0}, s_avisos_ventana{0};
static std::atomic<bool> s_acusa{true};
static DWORD s_hilo_principal;
static HANDLE s_dentro, s_sigue;

enum : uint32_t { ESPERA_SUCESO = 200 };

static void apunta_actividad(uint32_t tipo, uint32_t actividad, uint16_t indicador, const char *, uint32_t dato1,
                             uint32_t, void *externos)
{
    EXPECT_EQ(externos, &s_actividades);
    s_actividades.push_back(std::to_string(tipo) + " " + std::to_string(actividad) + " " + std::to_string(indicador) +
                            " " + std::to_string(dato1));
}

static void apunta_ronda(const iv_mcbase_t *, const datServ *, uint32_t, void *)
{
    s_rondas++;
}

static void recibe_aviso(const char *nombre_servicio, uint32_t, uint32_t)
{
    if (GetCurrentThreadId() == s_hilo_principal) {
        s_avisos_ventana++;
        return;
    }
    s_avisos_hilo++;
    if (s_acusa)
        ivrexa_procesada_notificacion(nombre_servicio);
}

static int32_t procesa(const char *nombre_servicio, uint32_t id_comando, comando *contexto, void *externos)
{
    if (id_comando != ESPERA_SUCESO)
        return anfitrion_procesa(nombre_servicio, id_comando, contexto, externos);
    SetEvent(s_dentro);
    return WaitForSingleObject(s_sigue, 30000) == WAIT_OBJECT_0 ? 1 : 95;
}

static LRESULT CALLBACK proc_propia(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == WM_USER)
        return 55;
    if (msg < 0xC000)
        return DefWindowProcW(hwnd, msg, wparam, lparam);
    s_num_propias++;
    return 77;
}

// ---- Everything at once

struct forma {
    const char *nombre;
    bool con_ventana;
    uint32_t num_servicios;
    const char *clase_socio;
};

inline std::ostream &operator<<(std::ostream &salida, const forma &f)
{
    return salida << f.nombre;
}

static const forma FORMAS[] = {
    {"ventana", true, 1, "ventana"},
    {"sin_ventana", false, 1, "sin_ventana"},
    {"dieciseis_con_ventana", true, 16, "sin_ventana"},
    {"tres_sin_ventana", false, 3, "ventana"},
};

class todo : public ::testing::Test {
protected:
    void SetUp() override
    {
        vacia_registro();
        s_hilo_principal = GetCurrentThreadId();
        s_actividades.clear();
        s_num_propias = 0;
        s_rondas = s_avisos_hilo = s_avisos_ventana = 0;
        s_acusa = true;
        m_ventana = crea_ventana(proc_propia);
        m_ventana_monitor = crea_ventana(proc_propia);
        s_dentro = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        s_sigue = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        for (std::string &servicio : m_servicios)
            servicio = nombre_unico("todo");
    }

    void TearDown() override
    {
        ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        ivrexa_cierra_sesion();
        m_socio.reset();
        destruye_ventana(&m_ventana);
        destruye_ventana(&m_ventana_monitor);
        CloseHandle(s_dentro);
        CloseHandle(s_sigue);
    }

    // Lines of another process, while this thread's windows live.
    static std::string espera(papel &p, const std::string &prefijo, uint32_t ms = 20000)
    {
        std::optional<std::string> linea;
        bombea_hasta([&] { return (linea = p.busca_linea(prefijo, 0)).has_value(); }, ms);
        EXPECT_TRUE(linea) << "no line " << prefijo;
        return linea.value_or("");
    }

    std::string pide(const std::string &linea, const std::string &prefijo)
    {
        m_socio->di(linea);
        return espera(*m_socio, prefijo);
    }

    void registra_monitor()
    {
        ivrexa_registra_monitor(m_ventana_monitor, apunta_actividad, apunta_ronda, apunta_ronda, &s_actividades);
    }

    void arranca_socio(const std::string &clase)
    {
        m_ajeno = nombre_unico("ajeno");
        m_socio = std::make_unique<papel>(arranca_papel("socio", {clase, m_ajeno}));
    }

    void registra_servidor(const forma &f)
    {
        HWND hwnd = f.con_ventana ? m_ventana : nullptr;
        ivrexa_registra_servidor(m_ruta.c_str(), hwnd, m_servicios[0].c_str(), 7, nullptr, procesa);
        for (uint32_t i = 1; i < f.num_servicios; i++)
            ivrexa_anyade_servicio(m_servicios[i].c_str(), 7, nullptr, procesa);
    }

    // A client of its partner's service, and of one that nobody offers; with documents of both.
    void registra_cliente()
    {
        m_usado = nombre_unico("usado");
        ivrexa_registra_cliente_notificaciones_servicio(m_ruta.c_str(), m_ventana, m_ajeno.c_str(), recibe_aviso);
        ivrexa_registra_cliente_de_servicio(m_ruta.c_str(), nullptr, m_usado.c_str());
        for (uint32_t n = 1; n <= 3; n++)
            EXPECT_EQ(ivrexa_abierto_documento_de_cliente(m_ajeno.c_str(), L"C:\\doc", n), 200u);
        EXPECT_EQ(ivrexa_abierto_documento_de_cliente(m_usado.c_str(), L"C:\\doc", 1), 201u);
    }

    void registra_todo(const forma &f)
    {
        registra_monitor();
        arranca_socio(f.clase_socio);
        registra_servidor(f);
        ivrexa_terminado_registro();
        registra_cliente();
        // The export asks for a window, and in a program without one says so.
        if (!f.con_ventana)
            EXPECT_INFORME("iv_reg", "hwnd_programa == s_programa->hwnd_programa");
        EXPECT_SIN_INFORMES();
    }

    // One of each: a command in, a command out, a notification. Leaves stored output, stored input and a container
    // that is being read.
    void usa_todo(const forma &f)
    {
        pide("SOLICITA " + m_servicios[0], "SOLICITADO");
        if (!f.con_ventana)
            espera_latido(ruta_de(*m_socio));
        if (f.clase_socio == std::string("sin_ventana"))
            espera_latido(m_ruta);
        std::string llegada = pide("MANDA " + m_servicios[0] + " 101", "RESULTADO ");
        unsigned id_salida = 0;
        EXPECT_EQ(sscanf(llegada.c_str(), "RESULTADO 1|%u|con", &id_salida), 1) << llegada;
        m_id_salida = id_salida;
        EXPECT_TRUE(existe_bloque(nombre_datos(m_servicios[0], m_id_salida).c_str()));

        m_entrada = ivrexa_crea_datos_comando_entrada(m_ajeno.c_str());
        anfitrion_graba_muestra(m_entrada, 1);
        uint32_t id_entrada = ivrexa_guarda_datos(m_entrada);
        EXPECT_EQ(id_entrada, 100u);
        respuesta r = ejecuta(m_ajeno, 100, id_entrada, L"ab");
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(r.t1, L"ba");
        m_leida = ivrexa_lee_datos(m_ajeno.c_str(), r.id_salida, FALSO);
        EXPECT_EQ(describe(m_leida), muestra_descrita(1));

        uint32_t antes = s_avisos_hilo, antes_ventana = s_avisos_ventana;
        pide("AVISA 200 5", "AVISADO");
        EXPECT_EQ(s_avisos_hilo, antes + 1);
        if (f.con_ventana)
            EXPECT_EQ(bombea_hasta([&] { return s_avisos_ventana == antes_ventana + 1; }, 5000), bombeo::cumplido);
        comprueba_monitor();
    }

    // The monitor has been told of the command that came in, and of the one that went out.
    static void comprueba_monitor()
    {
        for (const char *actividad : {"0 1 1 0", "1 2 1 101", "1 2 0 101", "1 2 1 100", "1 2 0 100", "0 4 1 101"})
            EXPECT_EQ(bombea_hasta(
                          [&] {
                              return std::find(s_actividades.begin(), s_actividades.end(), actividad) !=
                                     s_actividades.end();
                          },
                          5000),
                      bombeo::cumplido)
                << actividad;
    }

    static LONG_PTR proc_de(HWND hwnd) { return GetWindowLongPtrW(hwnd, GWLP_WNDPROC); }

    const std::string m_ruta = nombre_unico("prueba");
    std::string m_servicios[16], m_ajeno, m_usado;
    HWND m_ventana = nullptr, m_ventana_monitor = nullptr;
    std::unique_ptr<papel> m_socio;
    uint32_t m_id_salida = 0;
    comdat *m_entrada = nullptr, *m_leida = nullptr; // they die with the session
};

#endif
