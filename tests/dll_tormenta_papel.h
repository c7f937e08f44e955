// dll_tormenta_papel.h - one program of the storm: a role that registers, serves, calls and closes by lines, as often
// as it is told. For one source file of a program.
//
// "tormenta", path, sender. Lines, and what it answers:
//   REGISTRA class offered used notified     lists with commas, or "-"                    REGISTRADO
//   MANDA service how many id                eco commands with data                       MANDADO ok|odd
//   SUELTA service how many id               commands whose server may go                 SOLTADO right|other results
//   PREGUNTA prefix                                                                       PREGUNTADO found name
//   ABRE service document, CIERRADOC document                                             ABIERTO id, CERRADODOC
//   NOTIFICA service client datum                                                         NOTIFICADO
//   TERMINA service                                                                       PEDIDO
//   ESPERA, CIERRA, ACABA                    as a host of dll_anfitrion.h
// and "QUIT n" for the quit message, "AVISO service client datum" for a notification.
#ifndef DLL_TORMENTA_PAPEL_H
#define DLL_TORMENTA_PAPEL_H

#include "dll_eco.h"

inline struct tormenta_yo {
    HWND hwnd = nullptr;
    DWORD hilo = 0;
    std::string quien;
    uint32_t siguiente = 0; // number of the next command, over all registrations
} t_yo;

inline std::vector<std::string> t_lista(const std::string &texto, char separador)
{
    std::vector<std::string> partes;
    std::istringstream flujo(texto == "-" ? "" : texto);
    for (std::string parte; std::getline(flujo, parte, separador);)
        partes.push_back(parte);
    return partes;
}

// The call on the window's thread has the client's id in place of the datum.
inline void t_avisa(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato)
{
    if (GetCurrentThreadId() == t_yo.hilo)
        return;
    papel_c_di("AVISO %s %u %u", nombre_servicio, (unsigned)id_cliente, (unsigned)dato);
    EXPECT_EQ(ivrexa_obtener_id_datos_notificacion(nombre_servicio, id_cliente, dato), dato + 1);
    ivrexa_procesada_notificacion(nombre_servicio);
}

inline void t_registra(const std::vector<std::string> &p)
{
    anfitrion &yo = anfitrion_yo;
    std::vector<std::string> ofrece = t_lista(p[2], ','), usa = t_lista(p[3], ','), avisa = t_lista(p[4], ',');
    yo.con_funcion = p[1] != "net";
    yo.hwnd = p[1] != "sin_ventana" ? t_yo.hwnd : nullptr;
    yo.num_servicios = 0;
    memset(yo.mensajes, 0, sizeof yo.mensajes);
    if (!ofrece.empty()) {
        anfitrion_lee_servicios(p[2].c_str());
        anfitrion_prepara();
        anfitrion_publica();
    }
    for (const std::string &servicio : usa)
        if (std::find(avisa.begin(), avisa.end(), servicio) != avisa.end())
            ivrexa_registra_cliente_notificaciones_servicio(yo.ruta, yo.hwnd, servicio.c_str(), t_avisa);
        else
            ivrexa_registra_cliente_de_servicio(yo.ruta, yo.hwnd, servicio.c_str());
    papel_c_di("REGISTRADO");
}

// What a server without a window asks of its clients.
inline void t_con_latido(const std::string &servicio)
{
    bloque_crudo canal(nombre_canal(servicio).c_str());
    if (canal.abierto() && canal.u32(24) == 0)
        espera_latido(anfitrion_yo.ruta);
}

inline void t_manda(const std::string &servicio, uint32_t num, uint32_t id)
{
    eco_cuentas c;
    t_con_latido(servicio);
    for (uint32_t i = 0; i < num; i++)
        eco_manda(servicio, t_yo.quien, id, t_yo.siguiente++, true, &c);
    papel_c_di("MANDADO %u|%u", c.bien, c.total() - c.bien);
}

// A right answer is right to the character; any other result comes without texts.
inline void t_suelta(const std::string &servicio, uint32_t num, uint32_t id)
{
    std::map<uint32_t, uint32_t> otros;
    uint32_t bien = 0;
    t_con_latido(servicio);
    for (uint32_t i = 0; i < num; i++) {
        std::wstring t1 = eco_ancho(eco_remite(t_yo.quien, t_yo.siguiente++));
        respuesta r = ejecuta(servicio, id, 0, t1.c_str(), t1.c_str());
        if (r.resultado == 1 && r.t1 == t1 && r.t2 == del_reves(t1))
            bien++;
        else {
            otros[r.resultado]++;
            EXPECT_EQ(r.t1 + r.t2 + r.t3, L"") << "with result " << r.resultado;
        }
    }
    std::ostringstream linea;
    linea << bien;
    for (const auto &[resultado, veces] : otros)
        linea << "|" << resultado;
    papel_c_di("SOLTADO %s", linea.str().c_str());
}

inline uint32_t t_num(const std::string &texto)
{
    return static_cast<uint32_t>(strtoul(texto.c_str(), nullptr, 10));
}

inline int t_obedece(const char *linea)
{
    std::vector<std::string> p = t_lista(linea, ' ');
    p.resize(6);
    char nombre[64] = "";
    if (p[0] == "REGISTRA")
        t_registra(p);
    else if (p[0] == "MANDA")
        t_manda(p[1], t_num(p[2]), t_num(p[3]));
    else if (p[0] == "SUELTA")
        t_suelta(p[1], t_num(p[2]), t_num(p[3]));
    else if (p[0] == "PREGUNTA") {
        int hay = ivrexa_hay_servicio_registrado_empiece_por(p[1].c_str(), nombre, nullptr);
        papel_c_di("PREGUNTADO %d %s", hay, nombre);
    } else if (p[0] == "ABRE") {
        std::wstring ruta = L"doc" + eco_ancho(p[2]);
        uint32_t id = ivrexa_abierto_documento_de_cliente(p[1].c_str(), ruta.c_str(), t_num(p[2]));
        papel_c_di("ABIERTO %u", (unsigned)id);
    } else if (p[0] == "CIERRADOC") {
        ivrexa_cerrado_documento_de_cliente((L"doc" + eco_ancho(p[1])).c_str(), t_num(p[1]));
        papel_c_di("CERRADODOC");
    } else if (p[0] == "NOTIFICA") {
        ivrexa_notifica_a_cliente(p[1].c_str(), t_num(p[2]), t_num(p[3]), t_num(p[3]) + 1);
        papel_c_di("NOTIFICADO");
    } else if (p[0] == "TERMINA") {
        t_con_latido(p[1]);
        ivrexa_terminar_servidor(p[1].c_str());
        papel_c_di("PEDIDO");
    } else
        return anfitrion_obedece(linea);
    return 1;
}

PAPEL(tormenta)
{
    MSG msg;
    t_yo.hilo = GetCurrentThreadId();
    t_yo.hwnd = anfitrion_crea_ventana();
    t_yo.quien = args[1];
    anfitrion_yo.otros = eco_atiende;
    anfitrion_yo.version = 300;
    snprintf(anfitrion_yo.ruta, sizeof anfitrion_yo.ruta, "%s", args[0].c_str());
    yo.di("LISTO");
    HANDLE evento = yo.evento_linea();
    for (;;) {
        MsgWaitForMultipleObjects(1, &evento, FALSE, 1000, QS_ALLINPUT);
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT)
                yo.di("QUIT " + std::to_string(msg.wParam));
            DispatchMessageW(&msg);
        }
        std::optional<std::string> linea = yo.escucha(0);
        if (linea && !t_obedece(linea->c_str()))
            return 0;
    }
}

#endif
