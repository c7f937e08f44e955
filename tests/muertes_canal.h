// muertes_canal.h - the channel of a service as its victims leave it. For one source file of a program
// called dll_muertes_*.cpp, on top of muertes.h.
#ifndef MUERTES_CANAL_H
#define MUERTES_CANAL_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "muertes.h"

enum : uint32_t {
    RONDAS_MS = 14000,     // two waits of 26 rounds of 100 ms, given up on a loaded machine
    RESPONDE_MS = 8000,    // one of them
    COMANDO_CALLADO = 121, // a command that only returns 1
};

// The channel of a service and its entry in the registry, read raw. While the object lives, so do both.
class canal_visto {
public:
    explicit canal_visto(const std::string &servicio)
        : m_canal(nombre_canal(servicio).c_str()), m_registro("Ivrexa_MCB"),
          m_despl(despl_servicio(m_registro, servicio))
    {
        EXPECT_TRUE(m_canal.abierto()) << servicio;
        EXPECT_NE(m_despl, 0u) << servicio;
    }

    uint32_t info() const { return m_canal.u32(4); }
    bool terminado() const { return m_canal.u16(28) != 0; }
    uint32_t estado() const { return m_canal.u32(30); }
    uint32_t ocupacion() const { return m_canal.u32(1198); }
    uint32_t id_comando() const { return m_canal.u32(1202); }
    uint32_t id_entrada() const { return m_canal.u32(1206); }
    uint32_t buzon() const { return m_canal.u32(2362); }
    uint32_t en_curso() const { return m_registro.u32(m_despl + 80); }
    uint32_t bucle_servidor() const { return m_registro.u32(m_despl + 68); }
    uint32_t vueltas_servidor() const { return m_registro.u32(m_despl + 72); }
    uint32_t bucle_cliente() const { return m_registro.u32(m_despl + 84); }
    uint32_t vueltas_cliente() const { return m_registro.u32(m_despl + 88); }

    // The rule of the heartbeats has ended the service, and its thread has left.
    void espera_terminado(lugar donde = lugar::aqui()) const
    {
        if (!espera_hasta([&] { return terminado() && estado() == 0; }, RONDAS_MS))
            ADD_FAILURE_AT(donde.fichero, donde.linea)
                << "the service did not end: state " << info() << ", server " << estado() << ", round "
                << vueltas_servidor() << " of its state " << bucle_servidor();
    }

    // As every call leaves it. The thread of a server that ends writes a last 5, before the client's 0 or behind it.
    void comprueba_libre(lugar donde = lugar::aqui()) const
    {
        SCOPED_TRACE(std::string(donde.fichero) + ":" + std::to_string(donde.linea));
        EXPECT_TRUE(info() == 0 || (info() == 5 && terminado())) << "info_estadoComando " << info();
        EXPECT_EQ(ocupacion(), 0u) << "ocupacion";
        EXPECT_EQ(id_comando(), 0u) << "id_comando";
        EXPECT_EQ(id_entrada(), 0u) << "id_bloque_MCCom_entrada";
        EXPECT_EQ(en_curso(), 0u) << "id_comando_en_curso";
    }

private:
    bloque_crudo m_canal;
    bloque_crudo m_registro;
    size_t m_despl;
};

// ---- Steps of the survivors

inline void pide(papel &p, const std::string &orden, const std::string &respuesta, lugar donde = lugar::aqui())
{
    p.di(orden, donde);
    p.espera_linea(respuesta, PLAZO_MUERTE_MS, donde);
}

inline void llama(papel &cliente, uint32_t id_comando = COMANDO_CALLADO, lugar donde = lugar::aqui())
{
    cliente.di("COMANDO " + std::to_string(id_comando), donde);
}

// The result of the call under way; 0xffffffff if none comes in time.
inline uint32_t resultado_de(papel &cliente, uint32_t plazo_ms = RESPONDE_MS, lugar donde = lugar::aqui())
{
    std::string linea = cliente.espera_linea("RESULTADO ", plazo_ms, donde);
    return linea.size() > 10 ? static_cast<uint32_t>(std::stoul(linea.substr(10))) : 0xffffffffu;
}

inline void sigue_llamando(papel &cliente, uint32_t ms = 0, lugar donde = lugar::aqui())
{
    if (std::optional<std::string> linea = cliente.busca_linea("RESULTADO ", ms))
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "the call came back: " << *linea;
}

// A wait goes on, past the 25 rounds after which a peer without a heartbeat counts as dead.
inline void espera_rondas(const std::function<uint32_t()> &vueltas, uint32_t num = 28, lugar donde = lugar::aqui())
{
    if (!espera_hasta([&] { return vueltas() >= num; }, RONDAS_MS))
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "the wait stands at round " << vueltas();
}

// A server closes its session; later it offers its services anew.
inline void cierra_servicio(papel &servidor, lugar donde = lugar::aqui())
{
    pide(servidor, "CIERRA", "CERRADO", donde);
}

inline void reabre_servicio(papel &servidor, lugar donde = lugar::aqui())
{
    pide(servidor, "PREPARA", "PREPARADO", donde);
    pide(servidor, "PUBLICA", "PUBLICADO", donde);
}

// What a call gets whose claim ends with its service. A server without a window is asked no more; where there is a
// window, the message reaches it all the same, and the host's own procedure answers.
inline uint32_t resultado_sin_servicio(const std::string &clase)
{
    return clase == "sin_ventana" ? 3 : clase == "net" ? 92 : 77;
}

// A call of this process on a thread of its own, which may never come back.
class llamada {
public:
    llamada(const std::string &servicio, uint32_t id_comando, uint32_t id_entrada = 0)
    {
        std::thread([estado = m_estado, servicio, id_comando, id_entrada] {
            uint32_t resultado = ivrexa_ejecuta_comando(servicio.c_str(), id_comando, 0, id_entrada, L"1", nullptr,
                                                        nullptr, nullptr, nullptr, nullptr, nullptr);
            estado->resultado = resultado;
            estado->hecha = true;
        }).detach();
    }

    bool hecha() const { return m_estado->hecha; }
    uint64_t dura_ms() const { return GetTickCount64() - m_desde; }

    // 0xffffffff if it does not come back in time.
    uint32_t resultado(uint32_t plazo_ms = RESPONDE_MS) const
    {
        return espera_hasta([&] { return hecha(); }, plazo_ms) ? m_estado->resultado.load() : 0xffffffffu;
    }

private:
    struct interior {
        std::atomic<uint32_t> resultado{0};
        std::atomic<bool> hecha{false};
    };
    std::shared_ptr<interior> m_estado = std::make_shared<interior>();
    const uint64_t m_desde = GetTickCount64();
};

// Several victims, each with a service of its own, die in one test, so that all wait at once. This process is the
// client that survives: it has registered for every service before its victim.
class con_tanda : public con_victima {
protected:
    void TearDown() override
    {
        if (::testing::UnitTest::GetInstance()->test_to_run_count() > 1)
            ivrexa_cierra_sesion();
    }

    static std::vector<std::string> nombra_servicios(size_t num)
    {
        std::vector<std::string> servicios;
        for (size_t i = 0; i < num; i++)
            servicios.push_back(nombre_unico("serv"));
        return servicios;
    }

    static std::string lista(const std::vector<std::string> &servicios)
    {
        std::string todos;
        for (const std::string &servicio : servicios)
            todos += (todos.empty() ? "" : ",") + servicio;
        return todos;
    }

    void registra(const std::string &servicio)
    {
        ivrexa_registra_cliente_de_servicio(m_ruta.c_str(), nullptr, servicio.c_str());
    }

    const std::string &ruta() const { return m_ruta; }

    static papel nueva_victima(const std::string &clase)
    {
        opciones_papel opciones;
        opciones.programa = "victima.exe";
        return arranca_papel("victima", {clase}, opciones);
    }

    static void arma_en(papel &victima, const std::string &punto, uint32_t vez, const std::string &modo = "MUERE",
                        lugar donde = lugar::aqui())
    {
        pide(victima, modo + " " + std::to_string(vez) + " " + punto, "ARMADO", donde);
    }

    static void espera_muerte_de(papel &victima, lugar donde = lugar::aqui())
    {
        EXPECT_EQ(victima.espera_fin(PLAZO_MUERTE_MS, donde), static_cast<uint32_t>(SALIDA_LUGAR));
    }

    // A command with data and texts both ways.
    static void conversa_en(const std::string &servicio)
    {
        SCOPED_TRACE("a command on " + servicio);
        entrada_muestra entrada(servicio, 2);
        respuesta r = ejecuta(servicio, 100, entrada.id(), L"uno", L"dos", L"tres");
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(r.t1 + r.t2 + r.t3, L"onusodsert");
        comdat *salida = ivrexa_lee_datos(servicio.c_str(), r.id_salida, FALSO);
        EXPECT_EQ(describe(salida), muestra_descrita(2));
        if (salida != nullptr)
            ivrexa_destruye_datos_comando(salida);
        comprueba_canal_sano(servicio);
    }

private:
    const std::string m_ruta = nombre_unico("superviviente");
};

#endif
