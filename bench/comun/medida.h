// medida.h - how times are taken: all tasks of a group in turn, round after round, so that what disturbs the machine
// for a while disturbs all of them alike.
//
// A task's sample of a round is the mean of as many calls as fill the least time of a sample; the number is found for
// each task before the first round, in batches that do not count, and stays the same to the last. The rounds begin with
// a warm-up, whose times are thrown away too. Ratios are taken inside a round, between samples that stand side by side,
// and their median is what counts: single absolute times of such a machine mean little.
#ifndef BANCO_MEDIDA_H
#define BANCO_MEDIDA_H

#include <functional>
#include <string>
#include <vector>

namespace banco {

struct resumen {
    double mediana = 0;
    double minimo = 0;
    double maximo = 0;
};

resumen resume(std::vector<double> muestras); // not empty; the median of an even number is the mean of two

struct tarea {
    std::string nombre;
    std::function<void()> llama;   // once
    double por_llamada = 1;        // things done in one call: the sample is the time of one of them
    std::function<void()> prepara; // before each sample, not timed; may be empty
    bool una_por_muestra = false;  // for calls that take long or leave something behind
    // Where the call takes its time itself: returns the seconds that count. Then `llama` is not used.
    std::function<double()> cronometra;
};

struct plan {
    int rondas = 15;
    double segundos_por_muestra = 0.02;
    int calentamiento = 2; // rounds that do not count
};

struct medida {
    std::string nombre;
    std::vector<double> segundos; // one sample a round
    resumen tiempo() const { return resume(segundos); }
};

// One measurement for each task, in their order.
std::vector<medida> mide(const std::vector<tarea> &tareas, const plan &plan);

// The ratios round by round, and what they come to.
resumen razon(const medida &de, const medida &sobre);

double ahora(); // seconds

} // namespace banco

#endif
