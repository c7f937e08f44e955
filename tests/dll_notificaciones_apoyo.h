// dll_notificaciones_apoyo.h - what the tests of notifications share: roles, and the mailbox as another
// process sees it. For one source file of a program: it defines the roles "avisador" and "avisado".
#ifndef DLL_NOTIFICACIONES_APOYO_H
#define DLL_NOTIFICACIONES_APOYO_H

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "dll_conversa.h"
#include "dll_notificaciones.h"

PAPEL(avisador)
{
    return aviso_servidor(args[0].c_str(), args[1].c_str());
}

PAPEL(avisado)
{
    return aviso_cliente(args[0].c_str(), args[1].c_str(), args[2].c_str());
}

// Far longer than anything that a test waits for takes; and how long a test looks on while nothing may
// happen.
enum : uint32_t { PLAZO_MS = 15000, QUIETO_MS = 300 };

// ---- Roles

inline papel arranca_avisador(const std::string &clase, const std::string &servicios, bool en_c = false,
                              opciones_papel opciones = {})
{
    if (en_c)
        opciones.programa = "dll_notificaciones_c.exe";
    papel p = arranca_papel("avisador", {clase, servicios}, opciones);
    size_t comas = static_cast<size_t>(std::count(servicios.begin(), servicios.end(), ','));
    for (size_t i = 0; clase == "net" && i < comas; i++)
        EXPECT_INFORME_DE(p, "iv_reg", "procesaComandoExterno != NULL");
    return p;
}

// A function asks for a window. Without one it is reported, and kept all the same.
inline papel arranca_avisado(const std::string &clase, const std::string &funcion, const std::string &servicios,
                             bool en_c = false, opciones_papel opciones = {})
{
    if (en_c)
        opciones.programa = "dll_notificaciones_c.exe";
    papel p = arranca_papel("avisado", {clase, funcion, servicios}, opciones);
    size_t num = static_cast<size_t>(std::count(servicios.begin(), servicios.end(), ',')) + 1;
    for (size_t i = 0; clase == "sin_ventana" && funcion == "con_funcion" && i < num; i++)
        EXPECT_INFORME_DE(p, "ivrexa", "(hwnd_programa) != 0");
    return p;
}

// Sends a line and takes the answer that begins so.
inline std::string manda(papel &p, const std::string &linea, const std::string &respuesta, lugar donde = lugar::aqui())
{
    p.di(linea, donde);
    return p.espera_linea(respuesta, PLAZO_MS, donde);
}

inline void pon_modo(papel &p, aviso_modo modo)
{
    manda(p, "MODO " + std::to_string(modo), "MODO ");
}

inline std::string documento_abierto(papel &p, const std::string &servicio)
{
    return manda(p, "DOC 1 " + servicio, "ID ");
}

// All that was posted to the role before has been dispatched, and all that it had to say is here: it
// dispatches between two lines.
inline void sosiega(papel &p, lugar donde = lugar::aqui())
{
    for (int i = 0; i < 2; i++)
        manda(p, "PING", "PONG", donde);
}

inline std::string orden(const std::string &palabra, uint32_t id_cliente, uint32_t dato, uint32_t id_datos,
                         const std::string &servicio)
{
    return palabra + " " + std::to_string(id_cliente) + " " + std::to_string(dato) + " " + std::to_string(id_datos) +
           " " + servicio;
}

inline void espera_avisado(papel &servidor, uint32_t dato, lugar donde = lugar::aqui())
{
    EXPECT_EQ(servidor.espera_linea("AVISADO ", PLAZO_MS, donde), "AVISADO " + std::to_string(dato));
}

inline void sigue_bloqueado(papel &servidor, uint32_t ms = QUIETO_MS, lugar donde = lugar::aqui())
{
    EXPECT_FALSE(servidor.busca_linea("AVISADO", ms)) << donde.fichero << ":" << donde.linea;
}

// What the client's function and its own window procedure have told so far.
inline std::vector<std::string> avisos_de(papel &cliente)
{
    std::vector<std::string> avisos;
    for (const char *palabra : {"AVISO ", "PROPIA "})
        while (std::optional<std::string> linea = cliente.busca_linea(palabra, 0))
            avisos.push_back(*linea);
    return avisos;
}

inline HWND ventana_de(papel &p)
{
    return reinterpret_cast<HWND>(static_cast<uintptr_t>(std::stoull(p.espera_linea("HWND ", 5000).substr(5))));
}

// ---- The mailbox

using palabras = std::vector<uint32_t>;

// The channel of a service. While the object lives, so does the channel.
class buzon {
public:
    explicit buzon(const std::string &servicio)
        : m_canal(nombre_canal(servicio).c_str()), m_interno(nombre_interno(servicio))
    {
        EXPECT_TRUE(m_canal.abierto()) << servicio;
    }

    static std::string nombre_interno(const std::string &servicio) { return "Mutex_Ivrexa_" + servicio + "Interno"; }

    bloque_crudo &canal() { return m_canal; }
    palabras lee() const { return {m_canal.u32(2362), m_canal.u32(2366), m_canal.u32(2370), m_canal.u32(2374)}; }
    void pon(const palabras &p)
    {
        for (size_t i = 4; i-- > 0;) // the state last: who sees it finds the data
            m_canal.pon_u32(2362 + 4 * i, p[i]);
    }
    std::vector<uint8_t> lo_demas() const { return m_canal.bytes(0, 2362); }

    bool espera(uint32_t estado, uint32_t ms = PLAZO_MS) const
    {
        return espera_hasta([&] { return m_canal.u32(2362) == estado; }, ms);
    }

    // The mutex of the mailbox.
    bool libre() const { return mutex_crudo(m_interno.c_str()).libre(); }
    bool espera_libre(uint32_t ms = PLAZO_MS) const { return mutex_crudo(m_interno.c_str()).retiene(ms); }

    // Stops a client at a moment at which it does not hold the mutex.
    void suspende(papel &cliente) const
    {
        mutex_crudo interno(m_interno.c_str());
        ASSERT_TRUE(interno.retiene(PLAZO_MS));
        cliente.suspende();
    }

private:
    bloque_crudo m_canal;
    std::string m_interno;
};

// Tests that look on from a process of their own, which registers nothing.
class avisos : public ::testing::Test {
protected:
    void SetUp() override { vacia_registro(); }

    const std::string servicio = nombre_unico("aviso");
};

#endif
