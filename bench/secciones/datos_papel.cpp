// The child of the section: a server with one service, which measures what it is asked and tells it as JSON.
#include "datos.h"

#include "../comun/proceso.h"
#include "ivrexa.h"

#include <cstring>
#include <stdexcept>

namespace banco {

const char *const NOMBRES_FASES[NUM_FASES] = {"write", "store", "load", "read", "destroy"};

namespace {

const size_t TAM_BUZON = 1024 * 1024;
const DWORD LIMITE_MEDICION_MS = 600000; // for all that one child measures: seconds, on a slow machine minutes

// What parent and child tell each other, a JSON text each.
struct buzon {
    char encargo[1024];
    char respuesta[TAM_BUZON - 1024];
};

buzon *abre_buzon(const std::string &sesion)
{
    return static_cast<buzon *>(mapea("banco_datos_" + sesion, sizeof(buzon)));
}

template <size_t tam>
void echa(const nlohmann::json &json, char (&destino)[tam])
{
    std::string texto = json.dump();
    if (texto.size() >= tam)
        throw std::length_error("too much for the children's box");
    std::memcpy(destino, texto.c_str(), texto.size() + 1);
}

int32_t sin_comandos(const char *, uint32_t, comando *, void *)
{
    return ivrexa_resultado_ERROR;
}

// By trying them: Wine does not count them.
size_t num_handles()
{
    const uintptr_t PASO = 4, MAX_HUECO = 4096 * PASO;
    size_t num = 0;
    uintptr_t ultimo = 0;
    for (uintptr_t handle = PASO; handle < ultimo + MAX_HUECO; handle += PASO) {
        DWORD indicadores;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(handle), &indicadores)) {
            ultimo = handle;
            num++;
        }
    }
    return num;
}

// A child ends once it has answered. One that is not done in time is left to hijo::termina, which ends it.
void espera_respuesta(DWORD id)
{
    HANDLE proceso = OpenProcess(SYNCHRONIZE, FALSE, id);
    if (proceso == nullptr)
        falla("the measuring child cannot be waited for");
    WaitForSingleObject(proceso, LIMITE_MEDICION_MS);
    CloseHandle(proceso);
}

// This process as a server with one service, so that its channel exists and numbers the blocks.
class servidor {
public:
    explicit servidor(const std::string &servicio)
    {
        HWND hwnd = crea_ventana(servicio, DefWindowProcA);
        ivrexa_registra_servidor("banco.exe", hwnd, servicio.c_str(), 1, nullptr, sin_comandos);
        ivrexa_terminado_registro();
    }
    ~servidor() { ivrexa_cierra_sesion(); }
    servidor(const servidor &) = delete;
    servidor &operator=(const servidor &) = delete;
};

} // namespace

plan plan_de(const nlohmann::json &encargo)
{
    plan plan;
    plan.rondas = encargo.at("rounds");
    plan.calentamiento = encargo.at("warmup");
    plan.segundos_por_muestra = encargo.at("seconds");
    return plan;
}

nlohmann::json a_filas(const std::vector<medida> &medidas)
{
    nlohmann::json filas = nlohmann::json::array();
    for (const medida &medida : medidas)
        filas.push_back({{"name", medida.nombre}, {"samples", medida.segundos}});
    return filas;
}

nlohmann::json a_filas(const std::vector<muestra_fases> &fases, size_t rondas)
{
    nlohmann::json filas = nlohmann::json::array();
    for (int fase = 0; fase < NUM_FASES; fase++) {
        std::vector<double> muestras;
        for (size_t i = fases.size() - rondas; i < fases.size(); i++)
            muestras.push_back(fases[i].segundos[fase] / fases[i].llamadas);
        filas.push_back({{"name", NOMBRES_FASES[fase]}, {"samples", muestras}});
    }
    return filas;
}

int operaciones(const std::vector<muestra_fases> &fases)
{
    int num = 0;
    for (const muestra_fases &muestra : fases)
        num += muestra.llamadas;
    return num;
}

tarea tarea_con_fases(const std::string &nombre, std::function<void(double *marcas)> llama,
                      std::vector<muestra_fases> *fases)
{
    tarea tarea;
    tarea.nombre = nombre;
    tarea.prepara = [fases] { fases->emplace_back(); };
    tarea.cronometra = [llama, fases] {
        double marcas[NUM_FASES + 1];
        llama(marcas);
        muestra_fases &muestra = fases->back();
        muestra.llamadas++;
        for (int i = 0; i < NUM_FASES; i++)
            muestra.segundos[i] += marcas[i + 1] - marcas[i];
        return marcas[NUM_FASES] - marcas[0];
    };
    return tarea;
}

void sirve_datos(const std::string &sesion)
{
    buzon *buzon = abre_buzon(sesion);
    std::string servicio = "banco_datos_" + sesion;
    papel_listo();
    nlohmann::json encargo = nlohmann::json::parse(buzon->encargo);
    servidor servidor(servicio);
    size_t antes = num_handles();
    nlohmann::json respuesta;
    respuesta["groups"] =
        encargo.contains("buffer") ? mide_buffer(servicio.c_str(), encargo) : mide_valores(servicio.c_str(), encargo);
    respuesta["handles_left"] = num_handles() - antes;
    echa(respuesta, buzon->respuesta);
}

nlohmann::json encarga_datos(const nlohmann::json &encargo)
{
    std::string sesion = sesion_nueva();
    buzon *buzon = abre_buzon(sesion);
    echa(encargo, buzon->encargo);
    hijo hijo("data", sesion);
    espera_respuesta(hijo.id());
    hijo.termina();
    return nlohmann::json::parse(buzon->respuesta);
}

} // namespace banco
