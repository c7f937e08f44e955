// How the cost of a command on a server with a window grows: with the values and the bytes that it carries, with the
// clients that take turns on its service, with the services and with the programs of the desktop.
#include "../comun/medida.h"
#include "../comun/seccion.h"
#include "../filas/ivrexa_comun.h"
#include "obrero.h"

#include <functional>

namespace banco {

namespace {

// A series: the same command at places of growing x.
struct serie {
    std::string clave;
    std::string titulo;
    std::string cabeza;     // of the table's first column
    std::string de_uno_mas; // "a value more"; empty where x is no cause of its own
    double unidad = 1;      // of x, for that column
    std::vector<double> equis;
    std::vector<medida> medidas; // one for each x
};

std::string nombre_de_x(const serie &serie, double x)
{
    return serie.unidad == 1 ? std::to_string(static_cast<long long>(x)) : bytes(x);
}

// What one unit of x more costs between two points, round by round.
resumen pendiente(const serie &serie, size_t desde, size_t hasta)
{
    double unidades = (serie.equis[hasta] - serie.equis[desde]) / serie.unidad;
    std::vector<double> pendientes;
    for (size_t i = 0; i < serie.medidas[hasta].segundos.size(); i++)
        pendientes.push_back((serie.medidas[hasta].segundos[i] - serie.medidas[desde].segundos[i]) / unidades);
    return resume(pendientes);
}

std::string con_signo(double segundos)
{
    return segundos < 0 ? "-" + duracion(-segundos) : duracion(segundos);
}

void tabula(const serie &serie, informe *informe)
{
    std::vector<std::vector<std::string>> tabla = {{serie.cabeza, "median", "least", "most", "over the first"}};
    if (!serie.de_uno_mas.empty())
        tabla[0].push_back(serie.de_uno_mas);
    size_t ultimo = serie.medidas.size() - 1;
    for (size_t i = 0; i <= ultimo; i++) {
        resumen tiempo = serie.medidas[i].tiempo();
        tabla.push_back({nombre_de_x(serie, serie.equis[i]), duracion(tiempo.mediana), duracion(tiempo.minimo),
                         duracion(tiempo.maximo), con_extremos(razon(serie.medidas[i], serie.medidas[0]))});
        if (!serie.de_uno_mas.empty())
            tabla.back().push_back(i == ultimo ? con_signo(pendiente(serie, i - 1, i).mediana) : "-");
    }
    informe->tabla(serie.titulo, tabla);
}

void anota(const serie &serie, informe *informe)
{
    nlohmann::json puntos = nlohmann::json::array();
    for (size_t i = 0; i < serie.medidas.size(); i++) {
        nlohmann::json punto = a_json(serie.medidas[i]);
        punto["x"] = serie.equis[i];
        punto["over_first"] = a_json(razon(serie.medidas[i], serie.medidas[0]));
        puntos.push_back(punto);
    }
    size_t ultimo = serie.medidas.size() - 1;
    informe->seccion("growth")["series"].push_back({{"name", serie.clave},
                                                    {"title", serie.titulo},
                                                    {"x", serie.cabeza},
                                                    {"unit", serie.unidad},
                                                    {"points", puntos},
                                                    {"one_more", a_json(pendiente(serie, ultimo - 1, ultimo))}});
}

void entrega(const serie &serie, informe *informe)
{
    tabula(serie, informe);
    anota(serie, informe);
}

plan plan_de(const opciones &opciones)
{
    plan plan;
    plan.rondas = opciones.rapido ? 5 : 15;
    plan.calentamiento = opciones.rapido ? 1 : 2;
    return plan;
}

// Where the desktop has to be set up anew in every round, which takes a second or two.
plan plan_de_escritorio(const opciones &opciones)
{
    plan plan = plan_de(opciones);
    plan.rondas = opciones.rapido ? 3 : 12;
    plan.calentamiento = opciones.rapido ? 0 : 1;
    return plan;
}

std::string servicio_nuevo()
{
    return ivrexa_servicio(sesion_nueva());
}

// ---- Values, bytes, clients: all points of a series in each round

// A sample of this long is one command: it leaves its bytes behind in the server until that ends.
bool deja_mucho(const carga &carga)
{
    return carga.tam >= 4 * 1024 * 1024;
}

void mide_cargas(serie *serie, const std::vector<carga> &cargas, const plan &plan)
{
    cuadrilla obreros = contrata(2);
    obrero *servidor = obreros[0].get(), *cliente = obreros[1].get();
    std::string servicio = servicio_nuevo();
    servidor->ofrece(servicio);
    servidor->publica();
    cliente->usa(servicio);
    std::vector<tarea> tareas;
    for (size_t i = 0; i < cargas.size(); i++) {
        carga carga = cargas[i];
        tarea tarea;
        tarea.nombre = nombre_de_x(*serie, serie->equis[i]);
        tarea.cronometra = [cliente, servicio, carga] { return cliente->ejecuta(servicio, carga); };
        tarea.una_por_muestra = deja_mucho(carga);
        tareas.push_back(tarea);
    }
    serie->medidas = mide(tareas, plan);
    cierra_todos(obreros);
}

void mide_valores(const opciones &opciones, informe *informe)
{
    serie serie = {"values", "Growth: a command with so many numbers in its input",
                   "values", "a value more",
                   1,        {0, 10, 100, 1000, 10000},
                   {}};
    std::vector<carga> cargas;
    for (double x : serie.equis)
        cargas.push_back({static_cast<uint32_t>(x), 0});
    mide_cargas(&serie, cargas, plan_de(opciones));
    entrega(serie, informe);
}

void mide_bytes(const opciones &opciones, informe *informe)
{
    const double KIB = 1024, MIB = 1024 * KIB;
    serie serie = {"buffer", "Growth: a command with a buffer in its input",
                   "buffer", "a KiB more",
                   KIB,      {0, KIB, 16 * KIB, 64 * KIB, 256 * KIB, MIB, 4 * MIB, 16 * MIB},
                   {}};
    std::vector<carga> cargas;
    for (double x : serie.equis)
        cargas.push_back({0, static_cast<uint32_t>(x)});
    mide_cargas(&serie, cargas, plan_de(opciones));
    entrega(serie, informe);
}

// The token goes through this process: who has it runs one command, and gives it back. At every point all the clients
// there are use the service; what differs is how many of them have the token in turn.
void mide_clientes(const opciones &opciones, informe *informe)
{
    serie serie = {
        "clients", "Growth: a command of one of so many clients that take turns", "clients", "", 1, {1, 2, 4, 8}, {}};
    obrero servidor;
    cuadrilla clientes = contrata(static_cast<size_t>(serie.equis.back()));
    std::string servicio = servicio_nuevo();
    servidor.ofrece(servicio);
    servidor.publica();
    for (const std::unique_ptr<obrero> &cliente : clientes)
        cliente->usa(servicio);
    std::vector<tarea> tareas;
    for (double x : serie.equis) {
        tarea tarea;
        tarea.nombre = nombre_de_x(serie, x);
        tarea.por_llamada = x;
        tarea.cronometra = [&clientes, servicio, x] {
            double segundos = 0;
            for (size_t i = 0; i < static_cast<size_t>(x); i++)
                segundos += clientes[i]->ejecuta(servicio, carga());
            return segundos;
        };
        tareas.push_back(tarea);
    }
    serie.medidas = mide(tareas, plan_de(opciones));
    cierra_todos(clientes);
    servidor.cierra();
    entrega(serie, informe);
}

// ---- Services and programs: the desktop differs from point to point, so a round sets it up. It begins with an empty
// one and adds to it between the points, which stand side by side in time as those of the other series do; at its end
// all sessions close.

// One command that does not count, since a client's first is not like the others, and as many as fill a sample.
double muestra(obrero *cliente, const std::string &servicio, const plan &plan)
{
    cliente->ejecuta(servicio, carga());
    double segundos = 0;
    int llamadas = 0;
    for (; segundos < plan.segundos_por_muestra; llamadas++)
        segundos += cliente->ejecuta(servicio, carga());
    return segundos / llamadas;
}

// `punto` measures at a place of the series. It adds to the desktop what is missing there, and counts in *puestos what
// is there.
void mide_en_rampa(serie *serie, const plan &plan, const cuadrilla &obreros,
                   const std::function<double(size_t i, size_t *puestos)> &punto)
{
    for (double x : serie->equis)
        serie->medidas.push_back({nombre_de_x(*serie, x), {}});
    for (int ronda = -plan.calentamiento; ronda < plan.rondas; ronda++) {
        size_t puestos = 0;
        for (size_t i = 0; i < serie->equis.size(); i++) {
            double segundos = punto(i, &puestos);
            if (ronda >= 0)
                serie->medidas[i].segundos.push_back(segundos);
        }
        cierra_todos(obreros);
    }
}

// Two servers fill the desktop's table. The command goes to the service that was added last, the farthest one in its
// server's table and in the desktop's, and comes from a client of its own: the names of services that a client uses
// stand in that table as well. So each point has a program more than the one before, which by the next series costs
// nothing.
void mide_servicios(const opciones &opciones, informe *informe)
{
    const size_t POR_SERVIDOR = 16;
    serie serie = {"services", "Growth: a command on the last of so many services on the desktop",
                   "services", "",
                   1,          {1, 4, 8, 16, 32},
                   {}};
    plan plan = plan_de_escritorio(opciones);
    cuadrilla obreros = contrata(2 + serie.equis.size());
    std::vector<std::string> servicios;
    for (double i = 0; i < serie.equis.back(); i++)
        servicios.push_back(servicio_nuevo());
    mide_en_rampa(&serie, plan, obreros, [&](size_t i, size_t *ofrecidos) {
        for (; *ofrecidos < static_cast<size_t>(serie.equis[i]); ++*ofrecidos)
            obreros[*ofrecidos / POR_SERVIDOR]->ofrece(servicios[*ofrecidos]);
        obreros[(*ofrecidos - 1) / POR_SERVIDOR]->publica();
        obrero *cliente = obreros[2 + i].get();
        cliente->usa(servicios[*ofrecidos - 1]);
        return muestra(cliente, servicios[*ofrecidos - 1], plan);
    });
    entrega(serie, informe);
}

// The others are clients of the service, too, that never run a command: their heartbeats and their looks for
// notifications go on.
void mide_programas(const opciones &opciones, informe *informe)
{
    serie serie = {
        "programs", "Growth: a command on a desktop with so many programs", "programs", "", 1, {2, 4, 8, 12, 16}, {}};
    plan plan = plan_de_escritorio(opciones);
    cuadrilla obreros = contrata(static_cast<size_t>(serie.equis.back()));
    std::string servicio = servicio_nuevo();
    mide_en_rampa(&serie, plan, obreros, [&](size_t i, size_t *registrados) {
        if (*registrados == 0) {
            obreros[0]->ofrece(servicio);
            obreros[0]->publica();
            *registrados = 1;
        }
        for (; *registrados < static_cast<size_t>(serie.equis[i]); ++*registrados)
            obreros[*registrados]->usa(servicio);
        return muestra(obreros[1].get(), servicio, plan);
    });
    entrega(serie, informe);
}

} // namespace

void mide_crecimiento(const opciones &opciones, informe *informe)
{
    mide_valores(opciones, informe);
    mide_bytes(opciones, informe);
    mide_clientes(opciones, informe);
    mide_servicios(opciones, informe);
    mide_programas(opciones, informe);
}

} // namespace banco
