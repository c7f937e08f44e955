// Programs of every kind work for each other, as many as a desktop holds. What each comes to hold for a
// command, a notification or a monitor's registration is exactly what opening existing blocks leaves.
//
// Here for some seconds. scripts/soak lets it run for as long as one likes, by
//     IVREXA_AGUANTE_MINUTOS   how long
//     IVREXA_AGUANTE_BLOQUES   before so many data blocks are in being, all programs are ended and begun anew
//     IVREXA_AGUANTE_CSV       where the samples go
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "veredicto.h"

namespace {

struct plan {
    double minutos = 0;
    uint32_t num_tandas = 4; // spells of work, at least
    uint32_t ordenes = 120;  // of a client in a spell, at most
    uint32_t tanda_ms = 1000;
    int32_t bloques = 16000;
    std::string csv;
};

// Empty for one that is not set.
std::string variable(const char *nombre)
{
    const char *valor = getenv(nombre);
    return valor != nullptr ? valor : "";
}

plan lee_plan()
{
    plan p;
    p.csv = variable("IVREXA_AGUANTE_CSV");
    if (!variable("IVREXA_AGUANTE_BLOQUES").empty())
        p.bloques = atoi(variable("IVREXA_AGUANTE_BLOQUES").c_str());
    if (!variable("IVREXA_AGUANTE_MINUTOS").empty()) {
        p.minutos = atof(variable("IVREXA_AGUANTE_MINUTOS").c_str());
        p.ordenes = 250;
        p.tanda_ms = 5000;
    }
    return p;
}

enum grupo { MONITOR, SERVIDORES, CLIENTES, NUM_GRUPOS }; // in the order in which they start

struct programa {
    historia datos;
    grupo su_grupo;
    std::string papel;
    argumentos args;
    std::string servicio;
    bool trabaja = false;       // told to, in each spell
    bool espera_latido = false; // before its first command
};

void anyade(std::vector<programa> *a, grupo g, const std::string &nombre, coste c, const char *papel,
            const argumentos &args, const std::string &servicio)
{
    a->push_back({{nombre, c, false, {}}, g, papel, args, servicio});
}

// A server and its client. Each command leaves both the handles that found its blocks.
void anyade_pareja(std::vector<programa> *a, const std::string &clase, bool con_datos)
{
    const std::string datos = con_datos ? "con_datos" : "sin_datos", nombre = clase + "_" + datos;
    const std::string servicio = nombre_unico(nombre.c_str());
    anyade(a, SERVIDORES, "servidor_" + nombre, con_datos ? coste{2, 2} : coste{}, "servidor_medido", {clase, servicio},
           servicio);
    anyade(a, CLIENTES, "cliente_" + nombre, con_datos ? coste{4, 2} : coste{2, 0}, "cliente_medido", {servicio, datos},
           servicio);
    a->back().trabaja = true;
    a->back().espera_latido = clase == "sin_ventana";
}

// The same programs in each generation, 16 and a monitor: a full desktop. While others are registered, a
// monitor that unregisters forgets the registry as it had it open, and opens it anew when it comes back.
std::vector<programa> todos_los_programas()
{
    std::vector<programa> todos;
    anyade(&todos, MONITOR, "monitor", {2, 0, 1, 1, 6, 136}, "monitor_medido", {}, "");
    for (const char *clase : {"ventana", "net", "sin_ventana"})
        for (bool con_datos : {true, false})
            anyade_pareja(&todos, clase, con_datos);

    const std::string avisos = nombre_unico("avisos"), ocio = nombre_unico("ocio");
    anyade(&todos, SERVIDORES, "servidor_que_avisa", {1, 1}, "servidor_medido", {"ventana", avisos}, avisos);
    todos.back().trabaja = true;
    anyade(&todos, CLIENTES, "cliente_avisado", {1, 1}, "avisado_medido", {avisos}, avisos);
    anyade(&todos, SERVIDORES, "servidor_ocioso", {}, "servidor_medido", {"sin_ventana", ocio}, ocio);
    todos.back().datos.ocioso = true;
    anyade(&todos, CLIENTES, "cliente_ocioso", {}, "cliente_medido", {ocio, "con_datos"}, ocio);
    todos.back().datos.ocioso = true;
    std::stable_sort(todos.begin(), todos.end(),
                     [](const programa &a, const programa &b) { return a.su_grupo < b.su_grupo; });
    return todos;
}

// Data blocks of a service that are in being.
int32_t bloques_de(const std::string &servicio)
{
    bloque_crudo canal(("Ivrexa_MCB_Serv_" + servicio).c_str());
    int32_t num = 0;
    uint32_t siguiente = canal.abierto() ? canal.u32(12) : 100;
    for (uint32_t id = 100; id < siguiente; id++)
        num += existe_bloque(("Ivrexa_MCB_Serv_" + servicio + "_Com__comdat" + std::to_string(id)).c_str());
    return num;
}

// The heartbeat of a program, found in the registry by its path.
bool ha_latido(uint32_t pid)
{
    bloque_crudo registro("Ivrexa_MCB");
    std::string ruta = "papel_" + std::to_string(pid);
    for (size_t entrada = 1430; registro.abierto() && entrada < 1430 + 16 * 274; entrada += 274)
        if (registro.texto(entrada, 256) == ruta)
            return registro.u32(entrada + 270) != 0;
    return false;
}

class escritorio {
public:
    explicit escritorio(const plan &p) : m_plan(p), m_programas(todos_los_programas())
    {
        if (!p.csv.empty())
            m_csv = fopen(p.csv.c_str(), "w");
        EXPECT_TRUE(p.csv.empty() || m_csv != nullptr) << p.csv;
        escribe_cabecera();
    }
    ~escritorio()
    {
        if (m_csv != nullptr)
            fclose(m_csv);
    }
    escritorio(const escritorio &) = delete;
    escritorio &operator=(const escritorio &) = delete;

    void corre()
    {
        do {
            m_generacion++;
            empieza();
            uint32_t tandas = 0;
            do
                tanda(tandas++);
            while (sigue() && cabe_otra());
            termina();
        } while (sigue());
    }

    std::vector<historia> historias() const
    {
        std::vector<historia> todas;
        for (const programa &p : m_programas)
            todas.push_back(p.datos);
        return todas;
    }

private:
    double segundos() const { return static_cast<double>(GetTickCount64() - m_inicio) / 1000; }
    bool sigue() const
    {
        bool acabado = segundos() >= m_plan.minutos * 60 && m_tandas >= m_plan.num_tandas;
        return !acabado && !::testing::Test::HasFailure();
    }

    void noticia(const char *que) const
    {
        printf("[%6.0f s] generation %u: %s\n", segundos(), m_generacion, que);
        fflush(stdout);
    }

    // ---- A generation

    void empieza()
    {
        m_bloques = 0;
        exige_que_no_haya_nadie();
        for (int g = 0; g < NUM_GRUPOS; g++)
            arranca(static_cast<grupo>(g));
        for (size_t i = 0; i < m_programas.size(); i++)
            EXPECT_TRUE(!m_programas[i].espera_latido ||
                        espera_hasta([&] { return ha_latido(m_papeles[i].pid()); }, 20000));
        noticia("all programs have started");
    }

    // The monitor comes before those whom it is to see.
    void arranca(grupo g)
    {
        opciones_papel opciones;
        opciones.espera_listo = false;
        opciones.limite_s = static_cast<uint32_t>(m_plan.minutos * 60) + 600;
        const size_t primero = m_papeles.size();
        for (const programa &p : m_programas)
            if (p.su_grupo == g)
                m_papeles.push_back(arranca_papel(p.papel, p.args, opciones));
        for (size_t i = primero; i < m_papeles.size(); i++)
            m_papeles[i].espera_linea("LISTO", 60000);
        if (g == MONITOR)
            manda("REGISTRA");
    }

    // All that programs share vanishes with the last of them.
    static void exige_que_no_haya_nadie()
    {
        EXPECT_TRUE(espera_hasta([] { return !existe_bloque("Ivrexa_MCB"); }, 20000)) << "it has a registry";
    }

    // Clients first, the monitor last.
    void termina()
    {
        for (int g = NUM_GRUPOS - 1; g >= 0; g--) {
            for (size_t i = 0; i < m_programas.size(); i++)
                if (m_programas[i].su_grupo == g)
                    m_papeles[i].di("ACABA");
            for (size_t i = 0; i < m_programas.size(); i++)
                if (m_programas[i].su_grupo == g)
                    EXPECT_EQ(m_papeles[i].espera_fin(60000), 0u) << m_programas[i].datos.papel;
        }
        m_papeles.clear();
        exige_que_no_haya_nadie();
        noticia("all programs have ended");
    }

    // With the blocks that another spell like the last would leave.
    bool cabe_otra() const { return m_bloques + (m_bloques - m_bloques_antes) <= m_plan.bloques; }

    // ---- A spell of work, and what everybody holds after it

    // To the monitor, the first of all.
    void manda(const char *linea)
    {
        m_papeles[0].di(linea);
        m_papeles[0].espera_linea("HECHO", 30000);
    }

    // The monitor is there in every second spell, and never while it is measured.
    void tanda(uint32_t num)
    {
        const bool con_monitor = num % 2 == 0;
        m_tandas++;
        if (con_monitor && num > 0)
            manda("REGISTRA");
        const std::string orden = "TRABAJA " + std::to_string(m_plan.ordenes) + " " + std::to_string(m_plan.tanda_ms);
        for (size_t i = 0; i < m_programas.size(); i++)
            if (m_programas[i].trabaja)
                m_papeles[i].di(orden);
        for (size_t i = 0; i < m_programas.size(); i++)
            if (m_programas[i].trabaja)
                m_papeles[i].espera_linea("HECHO", m_plan.tanda_ms + 60000);
        if (con_monitor)
            manda("QUITA");
        mide();
    }

    // Blocks, mutexes and threads are all that the library opens. Of other kinds the system has some open for a moment,
    // at any time and in any program, so one that holds more of them than before gets time to be rid of them.
    std::map<uint32_t, manejadores_vistos> manejadores_que_duran() const
    {
        std::map<uint32_t, manejadores_vistos> manejadores;
        espera_hasta(
            [&] {
                manejadores = manejadores_de_todos();
                return !alguien_tiene_otros_de_mas(manejadores);
            },
            5000);
        return manejadores;
    }

    bool alguien_tiene_otros_de_mas(const std::map<uint32_t, manejadores_vistos> &manejadores) const
    {
        for (size_t i = 0; i < m_programas.size(); i++) {
            const std::vector<muestra> &antes = m_programas[i].datos.muestras;
            const auto suyos = manejadores.find(m_papeles[i].pid());
            if (antes.empty() || antes.back().generacion != m_generacion || suyos == manejadores.end())
                continue;
            if (suyos->second.otros > antes.back().manejadores.otros)
                return true;
        }
        return false;
    }

    void mide()
    {
        std::map<std::string, int32_t> bloques;
        std::map<uint32_t, manejadores_vistos> manejadores = manejadores_que_duran();
        for (size_t i = 0; i < m_programas.size(); i++) {
            programa &p = m_programas[i];
            if (!p.servicio.empty() && bloques.count(p.servicio) == 0)
                bloques[p.servicio] = bloques_de(p.servicio);
            m_papeles[i].di("MIDE");
            muestra m;
            m.segundos = segundos();
            m.generacion = m_generacion;
            m.manejadores = manejadores[m_papeles[i].pid()];
            m.propia = memoria_de_linea(m_papeles[i].espera_linea("MEDIDA ", 60000).substr(7));
            m.hechos = m.propia.hechos;
            m.bloques_servicio = bloques[p.servicio];
            escribe(p, m_papeles[i].pid(), m);
            p.datos.muestras.push_back(m);
        }
        m_bloques_antes = m_bloques;
        m_bloques = 0;
        for (const auto &[servicio, num_bloques] : bloques)
            m_bloques += num_bloques;
    }

    void escribe_cabecera()
    {
        if (m_csv != nullptr)
            fprintf(m_csv, "time_s,generation,process,role,commands,handles,handles_blocks,handles_mutexes,"
                           "handles_threads,handles_others,private_bytes,heap_blocks,heap_bytes,views,"
                           "shared_blocks\n");
    }

    void escribe(const programa &p, uint32_t pid, const muestra &m)
    {
        if (m_csv == nullptr)
            return;
        const manejadores_vistos &v = m.manejadores;
        fprintf(m_csv, "%.1f,%u,%u,%s,%u,%d,%d,%d,%d,%d,%llu,%u,%llu,%u,%d\n", m.segundos, m.generacion, pid,
                p.datos.papel.c_str(), m.hechos, v.todos(), v.bloques, v.mutexes, v.hilos, v.otros,
                static_cast<unsigned long long>(m.propia.bytes_privados), m.propia.bloques_monton,
                static_cast<unsigned long long>(m.propia.bytes_monton), m.propia.vistas, m.bloques_servicio);
        fflush(m_csv);
    }

    const plan m_plan;
    std::vector<programa> m_programas;
    std::vector<papel> m_papeles; // as m_programas
    FILE *m_csv = nullptr;
    const uint64_t m_inicio = GetTickCount64();
    uint32_t m_generacion = 0, m_tandas = 0;
    int32_t m_bloques = 0, m_bloques_antes = 0;
};

} // namespace

TEST(un_escritorio_lleno, deja_de_cada_cosa_lo_que_encontro_bloques_y_nada_mas)
{
    escritorio todo(lee_plan());
    todo.corre();
    juzga(todo.historias());
}
