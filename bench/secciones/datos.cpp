// Command data alone, without a command: what it takes to write, store, load and read it, in one process.
#include "datos.h"

#include "../comun/seccion.h"

#include <stdexcept>

namespace banco {

std::string con_comas(size_t num)
{
    std::string texto = std::to_string(num);
    for (size_t i = texto.size(); i > 3; i -= 3)
        texto.insert(i - 3, ",");
    return texto;
}

medida medida_de(const nlohmann::json &fila)
{
    return {fila.at("name"), fila.at("samples").get<std::vector<double>>()};
}

medida busca(const nlohmann::json &filas, const std::string &nombre)
{
    for (const nlohmann::json &fila : filas)
        if (fila.at("name") == nombre)
            return medida_de(fila);
    throw std::logic_error("no row is called " + nombre);
}

namespace {

struct encargo_de_valores {
    std::vector<size_t> valores;
    int rondas, rondas_rapido;
    size_t diferencia; // values whose cost over one alone is wanted too; 0 for none
};

// A value alone stands for the cost of a container without any; it is measured beside the sizes that it is taken off.
const encargo_de_valores ENCARGOS[] = {{{10}, 15, 5, 0}, {{1, 1000, 1000000}, 11, 3, 1000}, {{100000}, 15, 5, 0}};
const size_t TAM_BUFFER = 64 * 1024 * 1024;

struct titulo {
    const char *nombre;
    const char *titulo;
};
const titulo TITULOS[] = {{"ivrexa", "ivrexa"},
                          {"msgpack", "MessagePack"},
                          {"msgpack_reference", "MessagePack, by reference"},
                          {"msgpack_visitor", "MessagePack, read by a visitor"},
                          {"flexbuffers", "FlexBuffers"},
                          {"memcpy", "memcpy of as many bytes"},
                          {"memory", "fresh memory for ours, filled"},
                          {"three_copies", "three plain copies"}};

std::string titulo_de(const std::string &nombre)
{
    for (const titulo &titulo : TITULOS)
        if (nombre == titulo.nombre)
            return titulo.titulo;
    return "of this: " + nombre;
}

// What our operations left behind, which went with the children.
struct dejado {
    size_t operaciones = 0, handles = 0, bytes = 0;
    void suma_handles(const nlohmann::json &respuesta, size_t ajenos) // which are not our operations'
    {
        handles += respuesta.at("handles_left").get<size_t>() - ajenos;
    }
    void suma(const nlohmann::json &grupo)
    {
        size_t num = grupo.at("operations");
        operaciones += num;
        bytes += num * grupo.at("bytes").at("ivrexa").get<size_t>();
    }
};

std::vector<std::string> fila_de_tabla(const std::string &titulo, const medida &medida, const banco::medida &base,
                                       const std::string &al_reves)
{
    resumen tiempo = medida.tiempo();
    return {titulo,
            duracion(tiempo.mediana),
            duracion(tiempo.minimo),
            duracion(tiempo.maximo),
            con_extremos(razon(medida, base)),
            al_reves};
}

// Our phases stand below our row.
void tabula(const std::string &que, const nlohmann::json &grupo, const std::string &base, informe *informe)
{
    const nlohmann::json &filas = grupo.at("rows");
    medida nuestra = busca(filas, "ivrexa");
    medida medida_base = busca(filas, base);
    std::vector<std::vector<std::string>> tabla = {
        {que, "median", "least", "most", "over " + titulo_de(base), "ivrexa over it"}};
    for (const nlohmann::json &fila : filas) {
        medida medida = medida_de(fila);
        bool es_nuestra = medida.nombre == nuestra.nombre;
        tabla.push_back(fila_de_tabla(titulo_de(medida.nombre), medida, medida_base,
                                      es_nuestra ? "-" : con_extremos(razon(nuestra, medida))));
        if (es_nuestra)
            for (const nlohmann::json &fase : grupo.at("phases"))
                tabla.push_back(fila_de_tabla("  " + titulo_de(fase.at("name")), medida_de(fase), medida_base, "-"));
    }
    informe->tabla("Command data: written, stored, loaded, read", tabla);
}

void anota_sobre_msgpack(const nlohmann::json &grupo, informe *informe)
{
    size_t num = grupo.at("values");
    const nlohmann::json &filas = grupo.at("rows");
    if (num >= 100000)
        informe->anota_meta(con_comas(num) + " values written and read, over MessagePack",
                            razon(busca(filas, "ivrexa"), busca(filas, "msgpack")).mediana, 1.0);
}

// A row as it goes into the JSON: what a_json gives, its name in the table, and what it takes over MessagePack.
nlohmann::json fila_completa(const nlohmann::json &fila, const medida *msgpack)
{
    medida medida = medida_de(fila);
    nlohmann::json completa = a_json(medida);
    completa["title"] = titulo_de(medida.nombre);
    if (msgpack != nullptr)
        completa["over_msgpack"] = a_json(razon(medida, *msgpack));
    return completa;
}

void completa(bool con_rivales, nlohmann::json *grupo)
{
    medida msgpack;
    if (con_rivales)
        msgpack = busca(grupo->at("rows"), "msgpack");
    for (const char *clave : {"rows", "phases"})
        for (nlohmann::json &fila : grupo->at(clave))
            fila = fila_completa(fila, con_rivales ? &msgpack : nullptr);
}

nlohmann::json mide_valores_pequenyos(const opciones &opciones, dejado *dejado, informe *informe)
{
    nlohmann::json todos = nlohmann::json::array();
    for (const encargo_de_valores &encargo : ENCARGOS) {
        nlohmann::json json = {{"values", encargo.valores},
                               {"rounds", opciones.rapido ? encargo.rondas_rapido : encargo.rondas},
                               {"warmup", opciones.rapido ? 1 : 2},
                               {"seconds", 0.01}};
        if (encargo.diferencia != 0)
            json["difference"] = encargo.diferencia;
        nlohmann::json respuesta = encarga_datos(json);
        dejado->suma_handles(respuesta, 0);
        for (nlohmann::json &grupo : respuesta.at("groups")) {
            bool con_rivales = grupo.at("values") > 1;
            dejado->suma(grupo);
            completa(con_rivales, &grupo);
            todos.push_back(grupo);
            if (con_rivales)
                tabula(con_comas(grupo.at("values")) + " values", grupo, "msgpack", informe);
            anota_sobre_msgpack(grupo, informe);
        }
    }
    anota_coste(todos, informe);
    return todos;
}

// Appends the samples of one round to those before.
void junta(const nlohmann::json &ronda, const char *clave, nlohmann::json *todas)
{
    for (size_t i = 0; i < ronda.at(clave).size(); i++)
        (*todas)[clave][i]["samples"].push_back(ronda.at(clave)[i].at("samples")[0]);
}

// A child for each round; the first, which warms up, does not count.
nlohmann::json mide_rondas_de_buffer(int rondas, dejado *dejado)
{
    nlohmann::json todas;
    for (int ronda = -1; ronda < rondas; ronda++) {
        nlohmann::json respuesta = encarga_datos(
            {{"buffer", TAM_BUFFER}, {"rounds", 1}, {"warmup", 0}, {"seconds", 0}, {"reversed", ronda % 2 != 0}});
        const nlohmann::json &grupo = respuesta.at("groups");
        dejado->suma_handles(respuesta, grupo.at("other_handles"));
        dejado->suma(grupo);
        if (ronda <= 0) {
            todas = grupo;
        } else {
            junta(grupo, "rows", &todas);
            junta(grupo, "phases", &todas);
        }
    }
    return todas;
}

nlohmann::json mide_un_buffer(const opciones &opciones, dejado *dejado, informe *informe)
{
    nlohmann::json grupo = mide_rondas_de_buffer(opciones.rapido ? 5 : 15, dejado);
    completa(true, &grupo);
    tabula("one buffer of " + bytes(TAM_BUFFER), grupo, "three_copies", informe);
    const nlohmann::json &filas = grupo.at("rows");
    informe->anota_meta("64 MiB stored and loaded, over three plain copies",
                        razon(busca(filas, "ivrexa"), busca(filas, "three_copies")).mediana, 1.15);
    return grupo;
}

void tabula_tamanyos(const nlohmann::json &grupos, const nlohmann::json &buffer, informe *informe)
{
    std::vector<std::vector<std::string>> tabla = {{"bytes", "ivrexa", "MessagePack", "FlexBuffers"}};
    auto fila = [&](const std::string &que, const nlohmann::json &bytes) {
        tabla.push_back(
            {que, con_comas(bytes.at("ivrexa")), con_comas(bytes.at("msgpack")), con_comas(bytes.at("flexbuffers"))});
    };
    for (const nlohmann::json &grupo : grupos)
        if (grupo.at("bytes").contains("msgpack"))
            fila(con_comas(grupo.at("values")) + " values", grupo.at("bytes"));
    fila("one buffer of " + bytes(TAM_BUFFER), buffer.at("bytes"));
    informe->tabla("Command data: how large it is", tabla);
}

void pie(const dejado &dejado, informe *informe)
{
    informe->linea("MessagePack and FlexBuffers write and read in their own memory; ivrexa also brings its bytes"
                   " through a named\nblock into a copy of its own, as between two programs. memcpy copies into memory"
                   " in use already; the three plain\ncopies go into memory of malloc and the view of a new"
                   " paging-file mapping, whose handle stays open, as ours does.");
    informe->linea(
        "ivrexa left " + std::to_string(dejado.handles) + " handles behind in " + std::to_string(dejado.operaciones) +
        " operations (warm-up included); the blocks that they kept: " + std::to_string(dejado.bytes >> 20) + " MiB.");
}

} // namespace

void mide_datos(const opciones &opciones, informe *informe)
{
    dejado dejado;
    nlohmann::json valores = mide_valores_pequenyos(opciones, &dejado, informe);
    nlohmann::json buffer = mide_un_buffer(opciones, &dejado, informe);
    tabula_tamanyos(valores, buffer, informe);
    pie(dejado, informe);
    nlohmann::json &json = informe->seccion("data");
    json["values"] = valores;
    json["buffer"] = buffer;
    json["left_behind"] = {{"operations", dejado.operaciones}, {"handles", dejado.handles}, {"bytes", dejado.bytes}};
}

} // namespace banco
