// iv_reg_apoyo.h - what the tests of the registration and of the exports share: records seen by their
// offsets, a command function and a window that note what reaches them, and the other side of a channel,
// played by hand.
#ifndef IV_REG_APOYO_H
#define IV_REG_APOYO_H

#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/cerrojo.h"
#include "comun/hilo.h"
#include "comun/informes_modulo.h"
#include "comun/monton.h"
#include "comun/traza_captura.h"
#include "comun/util.h"
#include "comun/ventana.h"

#include "iv_reg.h"

// ---- Records of this process, by their offsets

class vista_memoria {
public:
    explicit vista_memoria(const volatile void *ini) : m_ini(static_cast<const volatile uint8_t *>(ini)) {}

    uint8_t u8(size_t despl) const { return lee<uint8_t>(despl); }
    uint16_t u16(size_t despl) const { return lee<uint16_t>(despl); }
    uint32_t u32(size_t despl) const { return lee<uint32_t>(despl); }
    uint64_t u64(size_t despl) const { return lee<uint64_t>(despl); }
    void *puntero(size_t despl) const { return lee<void *>(despl); }

    // The ANSI or wide text that a pointer names; "(null)" for none.
    std::string texto(size_t despl) const
    {
        const char *texto = lee<const char *>(despl);
        return texto != nullptr ? texto : "(null)";
    }
    std::wstring texto_u(size_t despl) const
    {
        const wchar_t *texto = lee<const wchar_t *>(despl);
        return texto != nullptr ? texto : L"(null)";
    }

    template <typename tipo>
    void pon(size_t despl, tipo valor) const
    {
        memcpy(const_cast<uint8_t *>(m_ini) + despl, &valor, sizeof valor);
    }

private:
    template <typename tipo>
    tipo lee(size_t despl) const
    {
        tipo valor;
        memcpy(&valor, const_cast<const uint8_t *>(m_ini) + despl, sizeof valor);
        return valor;
    }

    const volatile uint8_t *m_ini;
};

inline vista_memoria programa()
{
    return vista_memoria(s_programa);
}

inline vista_memoria prestado(uint32_t i)
{
    return vista_memoria(reinterpret_cast<const uint8_t *>(s_programa) + 36 + 90 * i);
}

inline vista_memoria solicitado(uint32_t i)
{
    return vista_memoria(reinterpret_cast<const uint8_t *>(s_programa) + 1484 + 58 * i);
}

inline vista_memoria documento_en(uint32_t i)
{
    return vista_memoria(reinterpret_cast<const uint8_t *>(s_programa) + 2416 + 28 * i);
}

inline iv_mutex *mutex_en(const vista_memoria &servicio, size_t despl)
{
    return static_cast<iv_mutex *>(servicio.puntero(despl));
}

// ---- Blocks that all programs see

enum : size_t {
    MCB_PROGRAMAS = 1430,
    MCB_TAM_PROGRAMA = 274, // 256 window, 264 to 268 kinds, 270 heartbeat
    MCB_SERVICIOS = 5814,
    MCB_TAM_SERVICIO = 96, // 64 server, 66 client, 68.. server's loop, 80 command
};

inline size_t en_programa(uint32_t i, size_t despl)
{
    return MCB_PROGRAMAS + MCB_TAM_PROGRAMA * i + despl;
}

inline size_t en_servicio(uint32_t i, size_t despl)
{
    return MCB_SERVICIOS + MCB_TAM_SERVICIO * i + despl;
}

inline bloque_crudo abre_registro()
{
    return bloque_crudo("Ivrexa_MCB", 8886);
}

// Position of a service in the registry; 32 without it.
inline uint32_t busca_en_registro(const bloque_crudo &mcb, const std::string &servicio)
{
    uint32_t i = 0;
    while (i < 32 && mcb.texto(en_servicio(i, 0), 64) != servicio)
        i++;
    return i;
}

// Makes a window of this process pass for the desktop's monitor.
inline void pon_monitor(bloque_crudo *mcb, uint64_t hwnd, uint32_t msg)
{
    mcb->pon_u16(0, 8886);
    mcb->pon_u16(2, 256);
    mcb->pon_u64(6, hwnd);
    mcb->pon_u32(14, msg);
    mcb->pon_u32(18, 1);
}

inline std::string nombre_canal(const std::string &servicio)
{
    return "Ivrexa_MCB_Serv_" + servicio;
}

// The service's channel, opened or created.
inline bloque_crudo abre_canal(const std::string &servicio)
{
    return bloque_crudo(nombre_canal(servicio).c_str(), 2378);
}

// ---- A client's side of a channel, by hand

struct orden_cruda {
    uint32_t id_comando = 100;
    uint32_t id_entrada = 0;
    uint64_t hwnd_cliente = 0;
    std::wstring textos[3];
};

inline void escribe_orden(bloque_crudo *canal, const orden_cruda &orden)
{
    canal->pon_u32(1202, orden.id_comando);
    canal->pon_u32(1198, 1);
    canal->pon_u64(1190, orden.hwnd_cliente);
    canal->pon_u32(1206, orden.id_entrada);
    canal->pon_texto_u(1210, orden.textos[0]);
    canal->pon_texto_u(1338, orden.textos[1]);
    canal->pon_texto_u(1850, orden.textos[2]);
    canal->pon_u32(1198, 2);
    canal->pon_u32(4, 1);
}

// A client's last steps: the receipt, and the free channel once the server has seen it.
inline bool acusa_recibo(bloque_crudo *canal)
{
    canal->pon_u32(4, 4);
    bool visto = espera_hasta([&] { return canal->u32(4) == 5; }, 5000);
    canal->pon_u32(4, 0);
    canal->pon_u32(1198, 0);
    return visto;
}

// A block of command data with these bytes; an empty container by default.
inline bloque_crudo crea_datos(const std::string &servicio, uint32_t id,
                               const std::vector<uint8_t> &bytes = {0, 0, 0, 0})
{
    std::string nombre = nombre_canal(servicio) + "_Com__comdat" + std::to_string(id);
    bloque_crudo bloque(nombre.c_str(), static_cast<uint32_t>(bytes.size()));
    bloque.pon_bytes(0, bytes);
    return bloque;
}

inline bool existen_datos(const std::string &servicio, uint32_t id)
{
    return existe_bloque((nombre_canal(servicio) + "_Com__comdat" + std::to_string(id)).c_str());
}

// ---- A command function that notes its calls and then does what the test asks for

struct llamada {
    std::string servicio;
    uint32_t id_comando;
    uint64_t contexto[4]; // as the function found it
    void *datos_externos;
    uint32_t hilo;
};

inline cerrojo s_candado;
inline std::vector<llamada> s_llamadas;
inline std::function<int32_t(uint32_t id_comando, comando *contexto)> s_trabajo;

inline int32_t funcion_comando(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    llamada esta = {servicio, id_comando, {}, datos_externos, GetCurrentThreadId()};
    memcpy(esta.contexto, contexto, sizeof esta.contexto);
    {
        std::lock_guard<cerrojo> guarda(s_candado);
        s_llamadas.push_back(esta);
    }
    return s_trabajo ? s_trabajo(id_comando, contexto) : 1;
}

inline int32_t otra_funcion(const char *, uint32_t, comando *, void *)
{
    ADD_FAILURE() << "this function is never to be called";
    return 0;
}

inline size_t num_llamadas()
{
    std::lock_guard<cerrojo> guarda(s_candado);
    return s_llamadas.size();
}

// Stores an output container as a command function does, and returns its block's id.
inline uint32_t pon_salida(const std::string &servicio, comando *contexto)
{
    comdat *salida = ivrexa_crea_datos_comando_salida(servicio.c_str());
    ivrexa_graba_ulong(salida, "n", 5);
    uint32_t id = ivrexa_guarda_datos(salida);
    contexto->datos_salida = salida;
    return id;
}

// ---- A notification function and a window procedure of the host's own

struct aviso {
    std::string servicio;
    uint32_t id_cliente, dato, hilo;
};
inline std::vector<aviso> s_avisos;

inline void funcion_aviso(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    std::lock_guard<cerrojo> guarda(s_candado);
    s_avisos.push_back({servicio, id_cliente, dato, GetCurrentThreadId()});
}

inline size_t num_avisos()
{
    std::lock_guard<cerrojo> guarda(s_candado);
    return s_avisos.size();
}

struct mensaje {
    UINT msg;
    WPARAM wparam;
    LPARAM lparam;
};
inline std::vector<mensaje> s_mensajes; // what reached the host's own procedure: registered messages and WM_NULL

inline LRESULT CALLBACK proc_propia(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg < 0xC000 && msg != WM_NULL)
        return DefWindowProcW(hwnd, msg, wparam, lparam);
    s_mensajes.push_back({msg, wparam, lparam});
    return 77;
}

// ---- The trace without what the heap and the blocks write

inline std::string solo_registros(const std::string &texto)
{
    static const std::regex sobra("\\[s_LocalHeap=\\d+\\] i_\\w+\\([^\n]*\n|(Antes|Despues) de i_\\w+: [^\n]*\n|"
                                  "HeapCreate: \\d+\n|sharedmem->tam_datos = [^\n]*\n|\\*\\*\\* iv_comdat[^\n]*\n|"
                                  "\\*\\*\\* -> [^\n]*\n");
    return std::regex_replace(enmascara_tiempos(texto), sobra, "");
}

// ---- What every test here begins and ends with

// Ends the threads of this process's services as a server's end would, so that the close need not.
inline void termina_canales()
{
    for (uint32_t i = 0; s_programa != nullptr && i < s_programa->num_servicios_prestados; i++)
        if (void *bloque = prestado(i).puntero(58))
            vista_memoria(static_cast<iv_shared_bloque *>(bloque)->sharedmem).pon<uint16_t>(4 + 28, 1);
    for (uint32_t i = 0; s_programa != nullptr && i < s_programa->num_servicios_solicitados; i++)
        if (void *bloque = solicitado(i).puntero(36))
            vista_memoria(static_cast<iv_shared_bloque *>(bloque)->sharedmem).pon<uint16_t>(4 + 28, 1);
}

// The registry starts empty, and the session is closed at the end.
class con_sesion : public ::testing::Test {
protected:
    void SetUp() override
    {
        s_llamadas.clear();
        s_avisos.clear();
        s_mensajes.clear();
        s_trabajo = nullptr;
        bloque_crudo mcb("Ivrexa_MCB"); // kept by the tests before, where they share a process
        if (mcb.abierto())
            mcb.pon_bytes(0, std::vector<uint8_t>(8886));
    }

    void TearDown() override
    {
        cierra();
        s_trabajo = nullptr;
        if (m_hwnd != nullptr)
            destruye_ventana(&m_hwnd);
    }

    // A close before the services are published reports what they lack: that is a test of its own.
    void cierra()
    {
        for (uint32_t i = 0; s_programa != nullptr && i < s_programa->num_servicios_prestados; i++)
            if (prestado(i).puntero(30) == nullptr)
                ivrexa_terminado_registro();
        termina_canales();
        ivrexa_cierra_sesion();
        EXPECT_EQ(s_programa, nullptr);
    }

    HWND ventana()
    {
        if (m_hwnd == nullptr)
            m_hwnd = crea_ventana(proc_propia);
        return m_hwnd;
    }

    // A registered server with one service, ready for commands.
    void sirve(const char *servicio, HWND hwnd, ivrexa_funcion_comando funcion = funcion_comando)
    {
        ivrexa_registra_servidor("C:\\servidor.exe", hwnd, servicio, 7, nullptr, funcion);
        ivrexa_terminado_registro();
    }

private:
    HWND m_hwnd = nullptr;
};

#endif
