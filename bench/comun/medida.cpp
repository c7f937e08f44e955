#include "medida.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace banco {

double ahora()
{
    static const double periodo = [] {
        LARGE_INTEGER frecuencia;
        QueryPerformanceFrequency(&frecuencia);
        return 1.0 / static_cast<double>(frecuencia.QuadPart);
    }();
    LARGE_INTEGER cuenta;
    QueryPerformanceCounter(&cuenta);
    return static_cast<double>(cuenta.QuadPart) * periodo;
}

resumen resume(std::vector<double> muestras)
{
    if (muestras.empty())
        throw std::logic_error("nothing was measured");
    std::sort(muestras.begin(), muestras.end());
    size_t medio = muestras.size() / 2;
    double mediana = muestras[medio];
    if (muestras.size() % 2 == 0)
        mediana = (muestras[medio - 1] + muestras[medio]) / 2;
    return {mediana, muestras.front(), muestras.back()};
}

resumen razon(const medida &de, const medida &sobre)
{
    std::vector<double> razones;
    for (size_t i = 0; i < de.segundos.size() && i < sobre.segundos.size(); i++)
        razones.push_back(de.segundos[i] / sobre.segundos[i]);
    return resume(razones);
}

static double cronometra(const tarea &tarea, int llamadas)
{
    if (tarea.prepara)
        tarea.prepara();
    double total = 0;
    if (tarea.cronometra) {
        for (int i = 0; i < llamadas; i++)
            total += tarea.cronometra();
    } else {
        double antes = ahora();
        for (int i = 0; i < llamadas; i++)
            tarea.llama();
        total = ahora() - antes;
    }
    return total;
}

static int mas_llamadas(int llamadas, double segundos, double queridos)
{
    double faltan = segundos > 0 ? queridos / segundos : 10;
    return static_cast<int>(std::ceil(llamadas * std::min(std::max(faltan, 1.1), 10.0)));
}

// How many calls fill a sample. The first call of all may be a slow one, and so may a batch that the system interrupts:
// the one is thrown away, and of the other a second batch of as many calls has to come to half the time at least.
static int calibra(const tarea &tarea, const plan &plan)
{
    const int MAXIMO = 1000000;
    const double queridos = plan.segundos_por_muestra;
    if (tarea.una_por_muestra)
        return 1;
    cronometra(tarea, 1);
    for (int llamadas = 1; llamadas < MAXIMO;) {
        double segundos = cronometra(tarea, llamadas);
        if (segundos >= queridos) {
            segundos = cronometra(tarea, llamadas);
            if (segundos >= queridos / 2)
                return llamadas;
        }
        llamadas = mas_llamadas(llamadas, segundos, queridos);
    }
    return MAXIMO;
}

std::vector<medida> mide(const std::vector<tarea> &tareas, const plan &plan)
{
    std::vector<medida> medidas;
    std::vector<int> llamadas;
    for (const tarea &tarea : tareas) {
        medidas.push_back({tarea.nombre, {}});
        llamadas.push_back(calibra(tarea, plan));
    }
    for (int ronda = -plan.calentamiento; ronda < plan.rondas; ronda++) {
        for (size_t i = 0; i < tareas.size(); i++) {
            double segundos = cronometra(tareas[i], llamadas[i]);
            if (ronda >= 0)
                medidas[i].segundos.push_back(segundos / llamadas[i] / tareas[i].por_llamada);
        }
    }
    return medidas;
}

} // namespace banco
