// ventana_monitor.h - the monitor's window, started as a user starts it and read back from outside. For one source
// file of a program: it defines the roles "servidor" and "cliente".
//
//     TEST_F(monitor_ventana, ...)
//     {
//         monitor_vivo m;                              // is the desktop's monitor at its return
//         papel servidor = arranca_servidor("ventana", S);
//         m.espera_suceso("service offered");
//     }
//
// Each test begins and ends without remembered settings; those that were there before come back behind it.
#ifndef HERRAMIENTAS_VENTANA_MONITOR_H
#define HERRAMIENTAS_VENTANA_MONITOR_H

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dll_conversa.h"

#include "herramienta.h"
#include "lista_ajena.h"
#include "ventana_ajena.h"

#include "ivrexa-monitor/ajustes.h"
#include "ivrexa-monitor/recursos.h"

using filas = std::vector<std::vector<std::string>>;

// Columns of the activities, parts of the status bar.
enum { ACT_NUMERO, ACT_HORA, ACT_LADO, ACT_SUCESO, ACT_SERVICIO, ACT_COMANDO, ACT_BLOQUE };
enum { BARRA_ACTIVIDADES, BARRA_PERDIDAS, BARRA_MOSTRADAS, BARRA_APARTE, BARRA_DESCARTADAS, BARRA_COMO };

inline opciones_herramienta opciones_monitor()
{
    opciones_herramienta opciones;
    opciones.programa = "ivrexa-monitor.exe";
    return opciones;
}

// The digits of "1,234 shown".
inline uint64_t numero_de(const std::string &texto)
{
    uint64_t numero = 0;
    for (char c : texto)
        if (c >= '0' && c <= '9')
            numero = numero * 10 + static_cast<uint64_t>(c - '0');
    return numero;
}

class monitor_vivo {
public:
    explicit monitor_vivo(const std::vector<std::string> &args = {"--yes"}, lugar donde = lugar::aqui())
        : m_proceso(args, opciones_monitor(), donde)
    {
        espera_principal(donde);
        if (std::find(args.begin(), args.end(), "--yes") != args.end())
            espera_estado("watching", donde);
    }

    // Without waiting for its window.
    struct sin_esperar {};
    monitor_vivo(sin_esperar, const std::vector<std::string> &args) : m_proceso(args, opciones_monitor()) {}
    void espera_principal(lugar donde = lugar::aqui()) { m_hwnd = espera_ventana(pid(), monitor_CLASE, 20000, donde); }

    herramienta &proceso() { return m_proceso; }
    uint32_t pid() const { return m_proceso.pid(); }
    HWND hwnd() const { return m_hwnd; }
    HWND control(int id) const { return control_de(m_hwnd, id); }
    lista_ajena lista(int id) const { return lista_ajena(control(id)); }
    lista_ajena actividades() const { return lista(ID_LISTA_ACTIVIDADES); }

    std::vector<std::string> barra() const
    {
        std::vector<std::string> partes = partes_de_barra(control(ID_BARRA_ESTADO));
        partes.resize(6);
        return partes;
    }
    std::string estado() const { return barra()[BARRA_COMO]; }
    uint64_t cuenta(int parte) const { return numero_de(barra()[static_cast<size_t>(parte)]); }

    void espera_estado(const std::string &texto, lugar donde = lugar::aqui())
    {
        espera([&] { return estado() == texto; }, "state \"" + texto + "\"", donde);
    }
    void espera_cuenta(int parte, uint64_t num, lugar donde = lugar::aqui())
    {
        espera([&] { return cuenta(parte) == num; }, std::to_string(num) + " in part " + std::to_string(parte), donde);
    }

    // Its list has a row with these words in the column; the row.
    std::vector<std::string> espera_suceso(const std::string &texto, int columna = ACT_SUCESO,
                                           lugar donde = lugar::aqui())
    {
        return espera_fila(ID_LISTA_ACTIVIDADES, columna, texto, donde);
    }
    std::vector<std::string> espera_fila(int id, int columna, const std::string &texto, lugar donde = lugar::aqui())
    {
        lista_ajena l = lista(id);
        int fila = -1;
        espera([&] { return (fila = l.busca(columna, texto)) >= 0; }, "row \"" + texto + "\"", donde);
        return fila >= 0 ? l.fila(fila) : std::vector<std::string>(20);
    }
    void espera_filas(int id, int num, lugar donde = lugar::aqui())
    {
        lista_ajena l = lista(id);
        espera([&] { return l.num_filas() == num; }, std::to_string(num) + " rows", donde);
    }

    void espera(const std::function<bool()> &condicion, const std::string &que, lugar donde = lugar::aqui())
    {
        if (!espera_hasta(condicion, 20000))
            ADD_FAILURE_AT(donde.fichero, donde.linea) << "waited in vain for " << que << "\n" << descrito();
    }

    std::string descrito() const
    {
        std::string texto;
        if (m_hwnd == nullptr || !IsWindow(m_hwnd))
            return "no window";
        for (const std::string &parte : barra())
            texto += "[" + parte + "] ";
        HWND delante = GetForegroundWindow(), caja = ventana_de(pid(), L"#32770");
        texto += delante == m_hwnd ? "in front" : "not in front";
        texto += caja != nullptr ? "; a box:\n" + texto_de_caja(caja) : "";
        lista_ajena l = actividades();
        for (int i = std::max(0, l.num_filas() - 30); i < l.num_filas(); i++) {
            texto += "\n";
            for (const std::string &celda : l.fila(i))
                texto += celda + " | ";
        }
        return texto;
    }

    void pon_delante() { ::pon_delante(m_hwnd); }
    // Presses the keys once. Where a window of another program has just gone, the window system may take the front away
    // from this one once more, and the keys go nowhere: then, and only then, they are pressed again.
    void pulsa_hasta_estado(const std::vector<WORD> &teclas, const std::string &texto, lugar donde = lugar::aqui())
    {
        const int MAX_VECES = 3;
        for (int i = 0; i < MAX_VECES; i++) {
            pon_delante();
            pulsa(teclas);
            if (espera_hasta([&] { return estado() == texto; }, 5000) || GetForegroundWindow() == m_hwnd)
                break;
        }
        espera_estado(texto, donde);
    }
    int id_con_foco() const { return GetDlgCtrlID(::con_foco(m_hwnd)); }
    void espera_foco(int id, lugar donde = lugar::aqui())
    {
        espera([&] { return id_con_foco() == id; }, "focus on " + std::to_string(id), donde);
    }

    // As the user closes it; settings are written then.
    void cierra(lugar donde = lugar::aqui())
    {
        PostMessageW(m_hwnd, WM_CLOSE, 0, 0);
        EXPECT_EQ(m_proceso.espera_fin(20000, donde), 0u);
    }

private:
    herramienta m_proceso;
    HWND m_hwnd = nullptr;
};

// What the lists say of the loops changes from run to run: rows of waits are left out.
inline filas sin_esperas(const filas &todas)
{
    filas otras;
    for (const std::vector<std::string> &f : todas)
        if (f[ACT_SUCESO].compare(0, 6, "waits ") != 0)
            otras.push_back(f);
    return otras;
}

static const wchar_t *const CLAVE_MONITOR = L"Software\\ivrexa\\monitor";

class monitor_ventana : public ::testing::Test {
protected:
    monitor_ventana() : m_servicio(nombre_unico("Mira"))
    {
        m_habia_clave = hay_clave();
        m_antes = monitor::lee_ajustes();
        RegDeleteTreeW(HKEY_CURRENT_USER, CLAVE_MONITOR);
        vacia_registro();
    }
    ~monitor_ventana() override
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, CLAVE_MONITOR);
        if (m_habia_clave)
            monitor::escribe_ajustes(m_antes);
    }

    static bool hay_clave()
    {
        HKEY clave = nullptr;
        bool hay = RegOpenKeyExW(HKEY_CURRENT_USER, CLAVE_MONITOR, 0, KEY_READ, &clave) == ERROR_SUCCESS;
        if (hay)
            RegCloseKey(clave);
        return hay;
    }
    const std::string &servicio() const { return m_servicio; }

    // One command whose values come back: "ECO n".
    void manda_eco(papel &cliente, uint32_t n = 0, lugar donde = lugar::aqui())
    {
        cliente.di("ECO " + std::to_string(n), donde);
        EXPECT_EQ(cliente.espera_linea("RESULTADO ", 20000, donde).substr(0, 12), "RESULTADO 1|");
        cliente.espera_linea("SALIDA ", 20000, donde);
    }
    void manda_comando(papel &cliente, uint32_t id, lugar donde = lugar::aqui())
    {
        cliente.di("COMANDO " + std::to_string(id), donde);
        cliente.espera_linea("RESULTADO ", 20000, donde);
    }

private:
    std::string m_servicio;
    bool m_habia_clave;
    monitor::ajustes m_antes;
};

#endif
