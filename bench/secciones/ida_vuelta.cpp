// One command there and its answer back, by every means of transport, with buffers of four sizes.
#include "../comun/fila.h"
#include "../comun/medida.h"
#include "../comun/proceso.h"
#include "../comun/seccion.h"
#include "comando.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <list>
#include <stdexcept>

namespace banco {

namespace {

// What a command with a window may take at most, over our own floor, with a buffer of `tam` bytes.
double limite_de(uint32_t tam)
{
    return tam <= 4096 ? 1.05 : tam <= 256 * 1024 ? 1.15 : 1.20;
}

// A row's server and the client's connection to it. However a run ends, the client lets go before the server is asked
// to end: one that waits for it in a read would not hear that. Nor would one that the client could not come to: that is
// ended at once.
class conexion {
public:
    explicit conexion(const banco::fila *cual) : fila(cual), servidor_(cual->clave, sesion_)
    {
        try {
            fila->conecta(sesion_);
        } catch (const std::exception &e) {
            servidor_.mata();
            throw con_fila(e);
        }
    }
    ~conexion()
    {
        try {
            cierra();
        } catch (const std::exception &e) {
            std::fprintf(stderr, "banco: %s\n", e.what());
        }
    }
    conexion(const conexion &) = delete;
    conexion &operator=(const conexion &) = delete;

    void cierra()
    {
        if (cerrada_)
            return;
        cerrada_ = true;
        try {
            fila->desconecta();
            servidor_.termina();
        } catch (const std::exception &e) {
            throw con_fila(e);
        }
    }

    const banco::fila *const fila;

private:
    std::runtime_error con_fila(const std::exception &e) const
    {
        return std::runtime_error("row " + std::string(fila->clave) + ": " + e.what());
    }

    std::string sesion_ = sesion_nueva();
    hijo servidor_;
    bool cerrada_ = false;
};

std::vector<uint8_t> bytes_de_prueba(uint32_t tam, uint32_t semilla = 12345)
{
    std::vector<uint8_t> buffer(tam);
    uint32_t n = semilla;
    for (uint8_t &byte : buffer) {
        n = n * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(n >> 24);
    }
    return buffer;
}

// The answer must be what the server owes. Only the rows that carry data are asked for it.
void comprueba(const fila &fila, const peticion &peticion)
{
    respuesta respuesta = {};
    fila.pide(peticion, &respuesta);
    if (!fila.lleva_datos)
        return;
    char al_reves[64];
    invierte(peticion.texto, al_reves, sizeof al_reves);
    if (respuesta.numero != peticion.numero + 1 || respuesta.texto != al_reves || respuesta.tam != peticion.tam ||
        (peticion.tam > 0 && std::memcmp(respuesta.buffer, peticion.buffer, peticion.tam) != 0))
        throw std::runtime_error(std::string("wrong answer in the row ") + fila.clave);
}

std::list<conexion> conecta(const opciones &opciones)
{
    std::list<conexion> conexiones;
    for (const fila *fila : filas())
        if (pedida(opciones.filas, fila->clave))
            conexiones.emplace_back(fila);
    return conexiones;
}

std::vector<medida> mide_tamanyo(const std::list<conexion> &conexiones, uint32_t tam, const plan &plan)
{
    std::vector<uint8_t> buffer = bytes_de_prueba(tam);
    peticion peticion = peticion_de(buffer);
    std::vector<tarea> tareas;
    for (const conexion &conexion : conexiones) {
        const fila *fila = conexion.fila;
        if (tam > fila->tam_maximo)
            continue;
        comprueba(*fila, peticion);
        tarea tarea;
        tarea.nombre = fila->clave;
        tarea.llama = [fila, peticion] {
            respuesta respuesta;
            fila->pide(peticion, &respuesta);
        };
        tarea.una_por_muestra = fila->lenta;
        tareas.push_back(tarea);
    }
    return mide(tareas, plan);
}

const medida *busca(const std::vector<medida> &medidas, const std::string &clave)
{
    for (const medida &medida : medidas)
        if (medida.nombre == clave)
            return &medida;
    return nullptr;
}

std::string celda_razon(const medida &de, const medida *sobre)
{
    return sobre != nullptr ? con_extremos(razon(de, *sobre)) : "-";
}

std::string titulo_de(const std::string &clave)
{
    for (const fila *fila : filas())
        if (clave == fila->clave)
            return fila->titulo;
    return clave;
}

// All sizes, then back. No two requests are alike, so that none passes with the answer of another.
void comprueba_filas(const std::list<conexion> &conexiones, informe *informe)
{
    std::vector<uint32_t> tamanyos(std::begin(TAMANYOS_BUFFER), std::end(TAMANYOS_BUFFER));
    tamanyos.insert(tamanyos.end(), std::next(std::rbegin(TAMANYOS_BUFFER)), std::rend(TAMANYOS_BUFFER));
    uint32_t num = 0;
    for (uint32_t tam : tamanyos)
        for (const conexion &conexion : conexiones) {
            if (tam > conexion.fila->tam_maximo)
                continue;
            std::string texto = "request " + std::to_string(++num);
            std::vector<uint8_t> buffer = bytes_de_prueba(tam, num);
            comprueba(*conexion.fila, peticion_de(buffer, texto.c_str(), num));
        }
    informe->linea(std::to_string(conexiones.size()) + " rows, " + std::to_string(num) + " requests: answered right");
}

void tabula(const std::vector<medida> &medidas, uint32_t tam, informe *informe)
{
    std::vector<std::vector<std::string>> tabla = {{"buffer of " + bytes(tam), "median", "least", "most",
                                                    "over SendMessage", "over our floor", "over it with copies"}};
    for (const medida &medida : medidas) {
        resumen tiempo = medida.tiempo();
        tabla.push_back({titulo_de(medida.nombre), duracion(tiempo.mediana), duracion(tiempo.minimo),
                         duracion(tiempo.maximo), celda_razon(medida, busca(medidas, "sendmessage")),
                         celda_razon(medida, busca(medidas, "floor")),
                         celda_razon(medida, busca(medidas, "floor_copies"))});
    }
    informe->tabla("Round trip: one command and its answer", tabla);
}

void anota(const std::vector<medida> &medidas, uint32_t tam, informe *informe)
{
    nlohmann::json filas = nlohmann::json::array();
    for (const medida &medida : medidas) {
        nlohmann::json fila = a_json(medida);
        fila["title"] = titulo_de(medida.nombre);
        for (const char *suelo : {"sendmessage", "floor", "floor_copies"})
            if (const banco::medida *debajo = busca(medidas, suelo))
                fila[std::string("over_") + suelo] = a_json(razon(medida, *debajo));
        filas.push_back(fila);
    }
    informe->seccion("roundtrip")["sizes"].push_back({{"bytes", tam}, {"rows", filas}});
}

// What the copies cost that the steps prescribe cannot be saved: both ratios are told.
void anota_metas(const std::vector<medida> &medidas, uint32_t tam, informe *informe)
{
    const medida *ventana = busca(medidas, "ivrexa_window");
    const struct {
        const char *clave, *nombre;
    } SUELOS[] = {{"floor", ", over our own floor"}, {"floor_copies", ", over it with its copies"}};
    for (const auto &suelo : SUELOS)
        if (ventana != nullptr && busca(medidas, suelo.clave) != nullptr)
            informe->anota_meta("command with a window, " + bytes(tam) + suelo.nombre,
                                razon(*ventana, *busca(medidas, suelo.clave)).mediana, limite_de(tam));
}

const DWORD RONDA_MS = 100;

template <typename accion>
double segundos_de(accion haz)
{
    double antes = ahora();
    haz();
    return ahora() - antes;
}

// How many rounds of polling a command without a window takes: at any moment of the server's round, which the pauses
// spread over, and right behind another. A round lasts as long as the system makes a pause of 100 ms, which may be a
// sixth more: beside each pair of commands it is timed.
std::array<medida, 2> toma_rondas(const fila &fila, int num)
{
    std::array<medida, 2> medidas = {medida{"at any moment", {}}, medida{"right behind another", {}}};
    std::vector<uint8_t> nada;
    for (int i = 0; i < num; i++) {
        Sleep(static_cast<DWORD>(i) * RONDA_MS / static_cast<DWORD>(num));
        double ronda = segundos_de([] { Sleep(RONDA_MS); });
        for (medida &medida : medidas)
            medida.segundos.push_back(segundos_de([&] { comprueba(fila, peticion_de(nada)); }) / ronda);
    }
    return medidas;
}

void mide_rondas(const fila &fila, const opciones &opciones, informe *informe)
{
    std::vector<std::vector<std::string>> tabla = {{"rounds of 100 ms", "median", "least", "most"}};
    for (const medida &medida : toma_rondas(fila, opciones.rapido ? 9 : 20)) {
        resumen rondas = medida.tiempo();
        tabla.push_back(
            {medida.nombre, tres_cifras(rondas.mediana), tres_cifras(rondas.minimo), tres_cifras(rondas.maximo)});
        informe->seccion("roundtrip")["rounds"].push_back({{"name", medida.nombre}, {"rounds", medida.segundos}});
        informe->anota_meta("command without a window, " + medida.nombre + ", in rounds of 100 ms", rondas.mediana,
                            5.1);
    }
    informe->tabla("Round trip: a command without a window", tabla);
}

void mide_filas(const std::list<conexion> &conexiones, const opciones &opciones, informe *informe)
{
    plan plan;
    plan.rondas = opciones.rapido ? 5 : 15;
    plan.calentamiento = opciones.rapido ? 1 : 2;
    plan.segundos_por_muestra = opciones.rapido ? 0.02 : 0.05;
    informe->seccion("roundtrip")["plan"] = {{"rounds", plan.rondas}, {"sample_seconds", plan.segundos_por_muestra}};
    for (uint32_t tam : TAMANYOS_BUFFER) {
        std::vector<medida> medidas = mide_tamanyo(conexiones, tam, plan);
        tabula(medidas, tam, informe);
        anota(medidas, tam, informe);
        anota_metas(medidas, tam, informe);
    }
    for (const conexion &conexion : conexiones)
        if (conexion.fila->lenta)
            mide_rondas(*conexion.fila, opciones, informe);
}

} // namespace

void mide_ida_y_vuelta(const opciones &opciones, informe *informe)
{
    std::list<conexion> conexiones = conecta(opciones);
    if (opciones.solo_comprueba)
        comprueba_filas(conexiones, informe);
    else
        mide_filas(conexiones, opciones, informe);
    for (conexion &conexion : conexiones)
        conexion.cierra();
}

} // namespace banco
