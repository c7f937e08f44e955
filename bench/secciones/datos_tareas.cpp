// Small values: the ways to carry them, measured side by side at each size.
#include "datos.h"

#include <cstring>
#include <memory>
#include <stdexcept>

namespace banco {

namespace {

void comprueba(uint64_t suma, uint64_t debida, const std::string &nombre)
{
    if (suma != debida)
        throw std::runtime_error("wrong values came back from " + nombre);
}

const size_t TAM_ENTRADA_INDICE = 32; // of ours, for each value that is read

// All ways to carry the values of one size.
class grupo_valores {
public:
    grupo_valores(const char *servicio, size_t num, bool con_rivales)
        : servicio_(servicio), valores_(num), suma_(valores_.suma()), con_rivales_(con_rivales)
    {
    }
    std::vector<tarea> tareas();
    size_t num_tareas() const { return con_rivales_ ? 7 : 1; }
    nlohmann::json json(nlohmann::json filas, size_t rondas);

private:
    using rival = uint64_t (*)(const valores &, size_t *);
    tarea tarea_de(const char *nombre, rival rival, size_t *tam);
    tarea tarea_memcpy();
    tarea tarea_memoria();

    const char *servicio_;
    valores valores_;
    uint64_t suma_;
    bool con_rivales_;
    std::vector<muestra_fases> fases_;
    size_t tam_msgpack_ = 0, tam_flexbuffers_ = 0;
    std::vector<uint8_t> origen_, destino_;
};

tarea grupo_valores::tarea_de(const char *nombre, rival rival, size_t *tam)
{
    tarea tarea;
    tarea.nombre = nombre;
    tarea.llama = [=] { comprueba(rival(valores_, tam), suma_, nombre); };
    return tarea;
}

tarea grupo_valores::tarea_memcpy()
{
    origen_.assign(valores_.tam_ivrexa(), 1);
    destino_.assign(valores_.tam_ivrexa(), 2);
    tarea tarea;
    tarea.nombre = "memcpy";
    tarea.llama = [this] {
        std::memcpy(destino_.data(), origen_.data(), origen_.size());
        if (destino_[destino_.size() / 2] != 1)
            throw std::runtime_error("memcpy");
        origen_[0]++; // so that no copy is like the one before
    };
    return tarea;
}

// What no way to carry them as ours do can save: the values are copied into a container, a block and a private copy,
// and that has an index. Behind tarea_memcpy, whose bytes it takes.
tarea grupo_valores::tarea_memoria()
{
    tarea tarea;
    tarea.nombre = "memory";
    tarea.llama = [this] {
        CloseHandle(tres_copias(std::string(servicio_) + "_memory", origen_));
        llena_memoria(valores_.todos().size() * TAM_ENTRADA_INDICE);
    };
    return tarea;
}

std::vector<tarea> grupo_valores::tareas()
{
    auto nuestra = [this](double *marcas) { comprueba(valores_ivrexa(servicio_, valores_, marcas), suma_, "ivrexa"); };
    std::vector<tarea> tareas = {tarea_con_fases("ivrexa", nuestra, &fases_)};
    if (con_rivales_) {
        tareas.push_back(tarea_de("msgpack", valores_msgpack, &tam_msgpack_));
        tareas.push_back(tarea_de("msgpack_reference", valores_msgpack_referencia, &tam_msgpack_));
        tareas.push_back(tarea_de("msgpack_visitor", valores_msgpack_visitante, &tam_msgpack_));
        tareas.push_back(tarea_de("flexbuffers", valores_flexbuffers, &tam_flexbuffers_));
        tareas.push_back(tarea_memcpy());
        tareas.push_back(tarea_memoria());
    }
    for (tarea &tarea : tareas)
        tarea.una_por_muestra = valores_.todos().size() >= 100000 && tarea.nombre != "memcpy";
    return tareas;
}

nlohmann::json grupo_valores::json(nlohmann::json filas, size_t rondas)
{
    nlohmann::json json = {{"values", valores_.todos().size()},
                           {"rows", filas},
                           {"phases", a_filas(fases_, rondas)},
                           {"operations", operaciones(fases_)}};
    json["bytes"]["ivrexa"] = valores_.tam_ivrexa();
    if (con_rivales_) {
        json["bytes"]["msgpack"] = tam_msgpack_;
        json["bytes"]["flexbuffers"] = tam_flexbuffers_;
    }
    return json;
}

const int PAREJAS = 31;

// What `num` values cost more than one: the median of many differences between neighbouring calls. The cost of a
// container, some milliseconds of calls to the system, hides that of a thousand values from any coarser subtraction.
tarea tarea_diferencia(const char *servicio, size_t num)
{
    auto muchos = std::make_shared<valores>(num);
    auto uno = std::make_shared<valores>(1);
    tarea tarea;
    tarea.nombre = "difference";
    tarea.una_por_muestra = true;
    tarea.cronometra = [=] {
        std::vector<double> diferencias;
        for (int i = 0; i < PAREJAS; i++) {
            double marcas_uno[NUM_FASES + 1], marcas[NUM_FASES + 1];
            valores_ivrexa(servicio, *uno, marcas_uno);
            valores_ivrexa(servicio, *muchos, marcas);
            diferencias.push_back((marcas[NUM_FASES] - marcas[0]) - (marcas_uno[NUM_FASES] - marcas_uno[0]));
        }
        return resume(diferencias).mediana;
    };
    return tarea;
}

} // namespace

nlohmann::json mide_valores(const char *servicio, const nlohmann::json &encargo)
{
    plan plan = plan_de(encargo);
    std::vector<std::unique_ptr<grupo_valores>> grupos;
    std::vector<tarea> tareas;
    for (size_t num : encargo.at("values").get<std::vector<size_t>>()) {
        grupos.push_back(std::make_unique<grupo_valores>(servicio, num, num > 1));
        for (const tarea &tarea : grupos.back()->tareas())
            tareas.push_back(tarea);
    }
    if (encargo.contains("difference"))
        tareas.push_back(tarea_diferencia(servicio, encargo.at("difference")));
    std::vector<medida> medidas = mide(tareas, plan);
    nlohmann::json json = nlohmann::json::array();
    auto medida = medidas.begin();
    for (auto &grupo : grupos) {
        std::vector<banco::medida> suyas(medida, medida + static_cast<ptrdiff_t>(grupo->num_tareas()));
        medida += static_cast<ptrdiff_t>(grupo->num_tareas());
        json.push_back(grupo->json(a_filas(suyas), static_cast<size_t>(plan.rondas)));
    }
    if (encargo.contains("difference")) {
        json.front()["difference"] = medidas.back().segundos;
        for (nlohmann::json &grupo : json) // one of each pair's operations
            if (grupo.at("values") == 1 || grupo.at("values") == encargo.at("difference"))
                grupo["operations"] = grupo.at("operations").get<int>() + PAREJAS * (plan.rondas + plan.calentamiento);
    }
    return json;
}

} // namespace banco
