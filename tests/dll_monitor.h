// dll_monitor.h - the desktop's monitor as a process of its own, and what its tests share. Beside its role
// "monitor" it brings the roles and helpers of dll_conversa.h.
//
// ROLE "monitor". Makes two windows, says "HWND n m" and "LISTO", registers nothing. It says
//     CRUDO wparam lparam          a monitor's message, as it is taken from the queue
//     ACT program activity flag "name" datum1 datum2 externals
//     BUCLE side index "name" state loop_state rounds heartbeat command server client externals
//     MARCA wparam                 the message MSG_MARCA in the window's own procedure
//     PROPIA                       a monitor's message there, answered with 55
// and obeys
//     REGISTRA mask                ivrexa_registra_monitor with what the mask names: "REGISTRADO"
//     PROC                         "PROC 1 1": whether each window has its own procedure
//     MANEJADORES                  "MANEJADORES n"
//     SOLICITA name                registers as a client, with the first window: "SOLICITADO"
//     OFRECE name                  registers as a server, likewise; its commands return 1: "OFRECIDO"
//     CIERRA                       closes the session: "CERRADO"
//     PARA                         leaves its messages waiting until the line "SIGUE": "PARADO"
//     ACABA                        ends as it is, registered or not
#ifndef DLL_MONITOR_H
#define DLL_MONITOR_H

#include "dll_conversa.h"

enum : uint32_t {
    con_ACTIVIDAD = 1,
    con_CLIENTE = 2,
    con_SERVIDOR = 4,
    con_EXTERNOS = 8,
    con_VENTANA = 16,
    con_OTRA_VENTANA = 32,
    monitor_ENTERO = 31, // all but the other window
    monitor_NINGUNO = 0, // unregisters
};

enum : UINT { MSG_MARCA = WM_APP + 7 };

static const char *const EXTERNOS = "123456789abcdef0";

inline UINT mensaje_monitor()
{
    return RegisterWindowMessageA("Ivrexa_Monitor_MSG");
}

// ---- The role

namespace papel_monitor {

inline DWORD s_hilo;
inline HWND s_ventanas[2];

inline void di(const char *linea)
{
    EXPECT_EQ(GetCurrentThreadId(), s_hilo) << "a callback on another thread than the window's: " << linea;
    papel_hijo().di(linea);
}

inline LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == mensaje_monitor()) {
        papel_hijo().di("PROPIA");
        return 55;
    }
    if (msg != MSG_MARCA)
        return DefWindowProcW(hwnd, msg, wparam, lparam);
    papel_hijo().di("MARCA " + std::to_string(wparam));
    return static_cast<LRESULT>(wparam * 3 + static_cast<WPARAM>(lparam));
}

inline LRESULT CALLBACK al_tomar(int codigo, WPARAM quitado, LPARAM dato)
{
    const MSG *msg = reinterpret_cast<MSG *>(dato);
    if (codigo == HC_ACTION && quitado == PM_REMOVE && msg->message == mensaje_monitor())
        papel_hijo().di("CRUDO " + std::to_string(msg->wParam) + " " + std::to_string(msg->lParam));
    return CallNextHookEx(nullptr, codigo, quitado, dato);
}

inline void al_notificar(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador,
                         const char *nombre_servicio, uint32_t dato1, uint32_t dato2, void *externos)
{
    char linea[256];
    snprintf(linea, sizeof linea, "ACT %u %u %u \"%.63s\" %u %u %llx", tipo_programa, tipo_actividad, indicador,
             nombre_servicio, dato1, dato2, reinterpret_cast<unsigned long long>(externos));
    di(linea);
}

inline void di_bucle(const char *lado, const iv_mcbase_t *mcbase, const datServ *s, uint32_t estado,
                     const uint32_t (&bucle)[3], void *externos)
{
    char linea[256];
    snprintf(linea, sizeof linea, "BUCLE %s %d \"%.63s\" %u %u %u %u %u %u %u %llx", lado,
             static_cast<int>(s - mcbase->servicios), s->nombre, estado, bucle[0], bucle[1], bucle[2],
             s->id_comando_en_curso, s->id_programa_servidor, s->id_programa_cliente,
             reinterpret_cast<unsigned long long>(externos));
    di(linea);
}

inline void al_rondar_cliente(const iv_mcbase_t *mcbase, const datServ *s, uint32_t estado, void *externos)
{
    di_bucle("cliente", mcbase, s, estado,
             {s->bucle_cliente_estado, s->bucle_cliente_vueltas, s->bucle_cliente_vivo_servidor}, externos);
}

inline void al_rondar_servidor(const iv_mcbase_t *mcbase, const datServ *s, uint32_t estado, void *externos)
{
    di_bucle("servidor", mcbase, s, estado,
             {s->bucle_servidor_estado, s->bucle_servidor_vueltas, s->bucle_servidor_vivo_cliente}, externos);
}

inline int32_t atiende(const char *, uint32_t, comando *, void *)
{
    return 1;
}

inline void registra(uint32_t mascara)
{
    HWND hwnd = mascara & con_VENTANA ? s_ventanas[0] : mascara & con_OTRA_VENTANA ? s_ventanas[1] : nullptr;
    void *externos = reinterpret_cast<void *>(mascara & con_EXTERNOS ? 0x123456789abcdef0 : 0);
    ivrexa_registra_monitor(hwnd, mascara & con_ACTIVIDAD ? al_notificar : nullptr,
                            mascara & con_CLIENTE ? al_rondar_cliente : nullptr,
                            mascara & con_SERVIDOR ? al_rondar_servidor : nullptr, externos);
}

inline bool es_propio(HWND hwnd)
{
    return GetWindowLongPtrW(hwnd, GWLP_WNDPROC) == reinterpret_cast<LONG_PTR>(procedimiento);
}

inline std::string ruta()
{
    return "papel_" + std::to_string(GetCurrentProcessId());
}

inline std::string obedece(papel_hijo &yo, const std::string &orden, const std::string &dato)
{
    if (orden == "REGISTRA") {
        registra(static_cast<uint32_t>(std::stoul(dato)));
        return "REGISTRADO";
    }
    if (orden == "PROC")
        return std::string("PROC ") + (es_propio(s_ventanas[0]) ? "1 " : "0 ") + (es_propio(s_ventanas[1]) ? "1" : "0");
    if (orden == "MANEJADORES")
        return "MANEJADORES " + std::to_string(cuenta_manejadores());
    if (orden == "SOLICITA") {
        ivrexa_registra_cliente_de_servicio(ruta().c_str(), s_ventanas[0], dato.c_str());
        return "SOLICITADO";
    }
    if (orden == "OFRECE") {
        ivrexa_registra_servidor(ruta().c_str(), s_ventanas[0], dato.c_str(), 1, nullptr, atiende);
        ivrexa_terminado_registro();
        return "OFRECIDO";
    }
    if (orden == "CIERRA") {
        ivrexa_cierra_sesion();
        return "CERRADO";
    }
    if (orden == "PARA") {
        yo.di("PARADO");
        yo.escucha_linea("SIGUE", 60000);
        return "SEGUIDO";
    }
    return "?? " + orden;
}

} // namespace papel_monitor

PAPEL(monitor)
{
    papel_monitor::s_hilo = GetCurrentThreadId();
    for (HWND &hwnd : papel_monitor::s_ventanas)
        hwnd = crea_ventana(papel_monitor::procedimiento);
    SetWindowsHookExW(WH_GETMESSAGE, papel_monitor::al_tomar, nullptr, GetCurrentThreadId());
    yo.di("HWND " + std::to_string(reinterpret_cast<uintptr_t>(papel_monitor::s_ventanas[0])) + " " +
          std::to_string(reinterpret_cast<uintptr_t>(papel_monitor::s_ventanas[1])));
    yo.di("LISTO");
    while (std::optional<std::string> linea = bombea_hasta_linea(yo, 90000)) {
        size_t hueco = linea->find(' ');
        if (*linea == "ACABA")
            return 0;
        yo.di(papel_monitor::obedece(yo, linea->substr(0, hueco),
                                     hueco == std::string::npos ? "" : linea->substr(hueco + 1)));
    }
    return 1;
}

// ---- What tests compare

// An activity, as its callback and its record tell it.
struct suceso {
    uint32_t tipo_programa, tipo_actividad, indicador;
    std::string nombre;
    uint32_t dato1, dato2;
    uint32_t ind_datServ = 0;
};

inline std::string linea_de(const suceso &s)
{
    return "ACT " + std::to_string(s.tipo_programa) + " " + std::to_string(s.tipo_actividad) + " " +
           std::to_string(s.indicador) + " \"" + s.nombre + "\" " + std::to_string(s.dato1) + " " +
           std::to_string(s.dato2) + " " + EXTERNOS;
}

// The fields in the order of the record.
inline std::string registro_de(const suceso &s)
{
    std::string texto;
    for (uint32_t campo : {s.ind_datServ, s.dato1, s.dato2, s.tipo_programa, s.tipo_actividad})
        texto += std::to_string(campo) + " ";
    return texto + std::to_string(s.indicador);
}

inline std::string registro_en(const bloque_crudo &registro, uint32_t n)
{
    size_t despl = 22 + (n - 1) * 22;
    std::string texto;
    for (size_t campo = 0; campo < 20; campo += 4)
        texto += std::to_string(registro.u32(despl + campo)) + " ";
    return texto + std::to_string(registro.u16(despl + 20));
}

inline std::vector<std::string> las_que_empiezan(const std::vector<std::string> &lineas, const std::string &prefijo)
{
    std::vector<std::string> elegidas;
    for (const std::string &linea : lineas)
        if (linea.compare(0, prefijo.size(), prefijo) == 0)
            elegidas.push_back(linea);
    return elegidas;
}

// ---- The monitor, seen from the test

class vigia {
public:
    explicit vigia(uint32_t mascara = monitor_ENTERO) : m_papel(arranca_papel("monitor"))
    {
        std::string ventanas = m_papel.espera_linea("HWND ", 5000).substr(5);
        char *fin = nullptr;
        m_hwnd = reinterpret_cast<HWND>(std::strtoull(ventanas.c_str(), &fin, 10));
        m_otra = reinterpret_cast<HWND>(std::strtoull(fin, nullptr, 10));
        if (mascara != monitor_NINGUNO)
            registra(mascara);
    }

    papel &proceso() { return m_papel; }
    HWND hwnd() const { return m_hwnd; }
    HWND otra_ventana() const { return m_otra; }

    std::string pide(const std::string &orden, const std::string &prefijo, lugar donde = lugar::aqui())
    {
        m_papel.di(orden, donde);
        return m_papel.espera_linea(prefijo, 15000, donde);
    }

    void registra(uint32_t mascara, lugar donde = lugar::aqui())
    {
        pide("REGISTRA " + std::to_string(mascara), "REGISTRADO", donde);
        m_siguiente = 1;
    }

    void quita(lugar donde = lugar::aqui()) { registra(monitor_NINGUNO, donde); }
    uint32_t manejadores() { return static_cast<uint32_t>(std::stoul(pide("MANEJADORES", "MANEJADORES ").substr(12))); }
    bool ventanas_propias() { return pide("PROC", "PROC ") == "PROC 1 1"; }

    // All that it said of what was posted to its window up to now.
    std::vector<std::string> dicho(lugar donde = lugar::aqui())
    {
        std::string marca = "MARCA " + std::to_string(++m_marcas);
        PostMessageW(m_hwnd, MSG_MARCA, m_marcas, 0);
        std::vector<std::string> lineas;
        for (;;) {
            std::string linea = m_papel.espera_linea("", 15000, donde);
            if (linea == marca || linea.empty())
                return lineas;
            lineas.push_back(linea);
        }
    }

    // It heard these activities since the last call, and of other messages rounds at most. Each had the next
    // number, and the record of that number holds the same. What it said is returned.
    std::vector<std::string> oye(const std::vector<suceso> &sucesos, lugar donde = lugar::aqui())
    {
        ::testing::ScopedTrace traza(donde.fichero, static_cast<int>(donde.linea), "activities of the monitor");
        std::vector<std::string> lineas = dicho(donde), crudos, actividades, registros, hallados;
        bloque_crudo registro("Ivrexa_MCB");
        for (const suceso &s : sucesos) {
            crudos.push_back("CRUDO 0 " + std::to_string(m_siguiente));
            actividades.push_back(linea_de(s));
            registros.push_back(registro_de(s));
            hallados.push_back(registro_en(registro, m_siguiente));
            m_siguiente = m_siguiente == 63 ? 1 : m_siguiente + 1;
        }
        EXPECT_EQ(las_que_empiezan(lineas, "CRUDO 0 "), crudos);
        EXPECT_EQ(las_que_empiezan(lineas, "ACT "), actividades);
        EXPECT_EQ(hallados, registros);
        EXPECT_EQ(registro.u32(18), m_siguiente) << "num_actividad_siguiente";
        return lineas;
    }

    // The same, and nothing else.
    void oye_solo(const std::vector<suceso> &sucesos, lugar donde = lugar::aqui())
    {
        ::testing::ScopedTrace traza(donde.fichero, static_cast<int>(donde.linea), "messages of the monitor");
        EXPECT_EQ(oye(sucesos, donde).size(), 2 * sucesos.size());
    }

    // A message sent to its window: the answer.
    LRESULT manda(WPARAM wparam, uint64_t lparam, UINT msg = mensaje_monitor())
    {
        DWORD_PTR respuesta = 0;
        EXPECT_NE(SendMessageTimeoutW(m_hwnd, msg, wparam, static_cast<LPARAM>(lparam), SMTO_NORMAL, 15000, &respuesta),
                  0)
            << "the monitor does not answer";
        return static_cast<LRESULT>(respuesta);
    }

private:
    papel m_papel;
    HWND m_hwnd = nullptr, m_otra = nullptr;
    uint32_t m_siguiente = 1, m_marcas = 0;
};

#endif
