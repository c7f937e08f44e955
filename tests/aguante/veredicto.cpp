#include "veredicto.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

namespace {

// The names of data blocks, of which a server keeps one, grow by a digit at 1000 and at 10000.
constexpr int64_t MARGEN_BYTES_MONTON = 16;

// Private bytes come in pages. Wine keeps 8 bytes in the process for each handle, and a record for each view;
// a heap adds a header to a block and rounds it up.
constexpr double MARGEN_BYTES_PRIVADOS = 32 * 1024, BYTES_POR_MANEJADOR = 8, BYTES_POR_VISTA = 256,
                 BYTES_POR_BLOQUE_MONTON = 32;

double bytes_privados_de(const coste &c)
{
    return BYTES_POR_MANEJADOR * (c.manejadores + c.mutexes) + BYTES_POR_VISTA * c.vistas +
           BYTES_POR_BLOQUE_MONTON * c.bloques_monton + c.bytes_monton;
}

// What a program has come to hold between two samples of one generation.
struct crecimiento {
    int64_t hechos, bloques, mutexes, hilos, otros, bloques_monton, bytes_monton, bytes_privados, vistas,
        bloques_servicio;
};

int64_t resta(int64_t de, int64_t a)
{
    return a - de;
}

crecimiento entre(const muestra &de, const muestra &a)
{
    return {resta(de.hechos, a.hechos),
            resta(de.manejadores.bloques, a.manejadores.bloques),
            resta(de.manejadores.mutexes, a.manejadores.mutexes),
            resta(de.manejadores.hilos, a.manejadores.hilos),
            resta(de.manejadores.otros, a.manejadores.otros),
            resta(de.propia.bloques_monton, a.propia.bloques_monton),
            resta(static_cast<int64_t>(de.propia.bytes_monton), static_cast<int64_t>(a.propia.bytes_monton)),
            resta(static_cast<int64_t>(de.propia.bytes_privados), static_cast<int64_t>(a.propia.bytes_privados)),
            resta(de.propia.vistas, a.propia.vistas),
            resta(de.bloques_servicio, a.bloques_servicio)};
}

// What the least squares say one thing more adds to the private bytes; 0 where nothing is done.
double pendiente(const muestra *primera, const muestra *fin)
{
    double n = 0, x = 0, y = 0, xx = 0, xy = 0;
    for (const muestra *m = primera; m < fin; m++) {
        double hechos = m->hechos, bytes = static_cast<double>(m->propia.bytes_privados);
        n += 1, x += hechos, y += bytes, xx += hechos * hechos, xy += hechos * bytes;
    }
    double divisor = n * xx - x * x;
    return divisor > 0 ? (n * xy - x * y) / divisor : 0;
}

// The samples of one generation, and what they say.
class juicio {
public:
    juicio(const historia &h, const muestra *primera, const muestra *fin)
        : m_historia(h), m_primera(primera), m_fin(fin), m_total(entre(*primera, fin[-1]))
    {
    }

    const crecimiento &total() const { return m_total; }

    // The first sample that does not hold is told, and none after it: false.
    bool exige() const
    {
        const int antes = num_quejas();
        for (const muestra *m = m_primera + 1; m < m_fin && num_quejas() == antes; m++)
            exige_exactos(entre(m[-1], *m), *m);
        int64_t de_mas = m_total.bytes_monton - m_historia.por_cosa.bytes_monton * m_total.hechos;
        EXPECT_LE(std::abs(de_mas), MARGEN_BYTES_MONTON) << donde(*m_primera) << "bytes in the heap";
        exige_bytes_privados();
        return num_quejas() == antes;
    }

private:
    static int num_quejas()
    {
        return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
    }

    std::string donde(const muestra &m) const
    {
        return m_historia.papel + ", generation " + std::to_string(m.generacion) + ", " + std::to_string(m.hechos) +
               " done: ";
    }

    void exige_exactos(const crecimiento &c, const muestra &m) const
    {
        const coste &por_cosa = m_historia.por_cosa;
        EXPECT_EQ(c.bloques, por_cosa.manejadores * c.hechos) << donde(m) << "handles of shared blocks";
        EXPECT_EQ(c.mutexes, por_cosa.mutexes * c.hechos) << donde(m) << "handles of mutexes";
        EXPECT_EQ(c.hilos, 0) << donde(m) << "handles of threads";
        // The first sample may have seen one that the system had open for a moment. Those behind it were taken when no
        // program had more than before, or gave up on that.
        EXPECT_LE(c.otros, 0) << donde(m) << "other handles";
        EXPECT_EQ(c.bloques_monton, por_cosa.bloques_monton * c.hechos) << donde(m) << "blocks in the heap";
        EXPECT_EQ(c.vistas, por_cosa.vistas * c.hechos) << donde(m) << "views";
        EXPECT_EQ(c.bloques_servicio, por_cosa.bloques * c.hechos) << donde(m) << "data blocks";
    }

    void exige_bytes_privados() const
    {
        double hechos = static_cast<double>(m_total.hechos);
        double limite = MARGEN_BYTES_PRIVADOS + bytes_privados_de(m_historia.por_cosa) * hechos;
        EXPECT_LE(pendiente(m_primera, m_fin) * hechos, limite) << donde(*m_primera) << "private bytes";
        if (m_total.hechos == 0)
            EXPECT_LE(static_cast<double>(m_total.bytes_privados), limite) << donde(*m_primera) << "private bytes";
    }

    const historia &m_historia;
    const muestra *m_primera, *m_fin;
    crecimiento m_total;
};

std::vector<juicio> por_generacion(const historia &h)
{
    std::vector<juicio> juicios;
    const muestra *fin = h.muestras.data() + h.muestras.size();
    for (const muestra *m = h.muestras.data(); m < fin;) {
        const muestra *otra = std::find_if(m, fin, [m](const muestra &a) { return a.generacion != m->generacion; });
        if (otra - m > 1)
            juicios.emplace_back(h, m, otra);
        m = otra;
    }
    return juicios;
}

crecimiento suma(const std::vector<juicio> &juicios)
{
    crecimiento s = {};
    for (const juicio &j : juicios) {
        const crecimiento &c = j.total();
        s.hechos += c.hechos, s.bloques += c.bloques, s.mutexes += c.mutexes, s.hilos += c.hilos;
        s.otros += c.otros, s.bloques_monton += c.bloques_monton, s.bytes_monton += c.bytes_monton;
        s.bytes_privados += c.bytes_privados, s.vistas += c.vistas, s.bloques_servicio += c.bloques_servicio;
    }
    return s;
}

// For each thing done; of a program that does nothing, all.
void imprime(const historia &h, const crecimiento &c)
{
    double hechos = static_cast<double>(c.hechos != 0 ? c.hechos : 1);
    printf("%-31s %7lld", h.papel.c_str(), static_cast<long long>(c.hechos));
    for (int64_t cuanto : {c.bloques, c.mutexes, c.hilos + c.otros, c.bloques_servicio, c.vistas, c.bloques_monton,
                           c.bytes_monton, c.bytes_privados})
        printf(" %8.6g", static_cast<double>(cuanto) / hechos);
    printf("\n");
}

} // namespace

void juzga(const std::vector<historia> &historias)
{
    printf("\n%39s   handles of...            data          -----heap-----  private\n"
           "%-31s %7s   blocks  mutexes   others   blocks    views   blocks    bytes    bytes\n",
           "for each thing done", "program", "done");
    for (const historia &h : historias) {
        std::vector<juicio> juicios = por_generacion(h);
        crecimiento todo = suma(juicios);
        EXPECT_FALSE(juicios.empty()) << h.papel << " was never measured twice";
        EXPECT_EQ(todo.hechos == 0, h.ocioso) << h.papel;
        imprime(h, todo);
        for (const juicio &j : juicios) {
            if (!j.exige())
                break;
        }
    }
}
