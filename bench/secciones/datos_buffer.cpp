// One large buffer: written, made ready for another to read, and read back.
#include "datos.h"

#include "../comun/proceso.h"
#include "ivrexa.h"

#include <flatbuffers/flexbuffers.h>
#include <msgpack.hpp>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace banco {

namespace {

const char NOMBRE[] = "image";

void comprueba(const void *datos, size_t tam, const std::vector<uint8_t> &origen)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(datos);
    size_t num = origen.size();
    if (tam != num || bytes[0] != origen[0] || bytes[num / 2] != origen[num / 2] || bytes[num - 1] != origen[num - 1])
        throw std::runtime_error("the buffer came back wrong");
}

void buffer_ivrexa(const char *servicio, const std::vector<uint8_t> &origen, double *marcas)
{
    marcas[0] = ahora();
    comdat *escritos = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_buffer(escritos, NOMBRE, origen.data(), static_cast<uint32_t>(origen.size()));
    marcas[1] = ahora();
    uint32_t id = ivrexa_guarda_datos(escritos);
    marcas[2] = ahora();
    comdat *leidos = id != 0 ? ivrexa_lee_datos(servicio, id, CIERTO) : nullptr;
    if (leidos == nullptr)
        throw std::runtime_error("a stored buffer could not be loaded");
    marcas[3] = ahora();
    uint32_t tam = 0;
    const void *datos = ivrexa_dame_buffer(leidos, 0, &tam);
    comprueba(datos, tam, origen);
    marcas[4] = ahora();
    ivrexa_destruye_datos_comando(leidos);
    ivrexa_destruye_datos_comando(escritos);
    marcas[5] = ahora();
}

// Memory of the C run-time, whose pages are fresh: large blocks come from the system and go back to it.
using memoria = std::unique_ptr<void, decltype(&std::free)>;

memoria memoria_fresca(size_t tam)
{
    memoria fresca(std::malloc(tam), std::free);
    if (!fresca)
        throw std::bad_alloc();
    return fresca;
}

memoria copia_fresca(const void *origen, size_t tam)
{
    memoria copia = memoria_fresca(tam);
    std::memcpy(copia.get(), origen, tam);
    return copia;
}

// The buffer stays in the message, or is copied out of it, as without such a function.
bool por_referencia(msgpack::type::object_type, std::size_t, void *)
{
    return true;
}
const msgpack::unpack_reference_func COPIADO = nullptr;

void buffer_msgpack(const std::vector<uint8_t> &origen, msgpack::unpack_reference_func referencia, size_t *tam)
{
    msgpack::sbuffer buffer;
    msgpack::packer<msgpack::sbuffer> paquete(buffer);
    paquete.pack_map(1);
    paquete.pack(NOMBRE);
    paquete.pack_bin(static_cast<uint32_t>(origen.size()));
    paquete.pack_bin_body(reinterpret_cast<const char *>(origen.data()), static_cast<uint32_t>(origen.size()));
    *tam = buffer.size();
    msgpack::object_handle raiz = msgpack::unpack(buffer.data(), buffer.size(), referencia);
    const msgpack::object_bin &datos = raiz.get().via.map.ptr[0].val.via.bin;
    comprueba(datos.ptr, datos.size, origen);
}

void buffer_flexbuffers(const std::vector<uint8_t> &origen, size_t *tam)
{
    flexbuffers::Builder fabrica;
    fabrica.Map([&] {
        fabrica.Key(NOMBRE);
        fabrica.Blob(origen.data(), origen.size());
    });
    fabrica.Finish();
    *tam = fabrica.GetBuffer().size();
    flexbuffers::Blob datos = flexbuffers::GetRoot(fabrica.GetBuffer()).AsMap()[NOMBRE].AsBlob();
    comprueba(datos.data(), datos.size(), origen);
}

tarea tarea_unica(const char *nombre, std::function<void()> llama)
{
    tarea tarea;
    tarea.nombre = nombre;
    tarea.llama = std::move(llama);
    tarea.una_por_muestra = true;
    return tarea;
}

} // namespace

HANDLE tres_copias(const std::string &nombre, const std::vector<uint8_t> &origen)
{
    size_t tam = origen.size();
    memoria primera = copia_fresca(origen.data(), tam);
    HANDLE mapa =
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(tam), nombre.c_str());
    void *vista = mapa != nullptr ? MapViewOfFile(mapa, FILE_MAP_WRITE, 0, 0, 0) : nullptr;
    if (vista == nullptr)
        falla("a block could not be made");
    std::memcpy(vista, primera.get(), tam);
    memoria ultima = copia_fresca(vista, tam);
    comprueba(ultima.get(), tam, origen);
    ultima.reset();
    primera.reset();
    UnmapViewOfFile(vista);
    return mapa;
}

// Once with little, so that what a process does but once is done.
static void calienta(const char *servicio, const std::string &nombre)
{
    std::vector<uint8_t> poco(1024 * 1024, 1);
    double marcas[NUM_FASES + 1];
    buffer_ivrexa(servicio, poco, marcas);
    tres_copias(nombre, poco);
}

void llena_memoria(size_t tam)
{
    const size_t PAGINA = 4096;
    memoria fresca = memoria_fresca(tam);
    for (size_t n = 0; n < tam; n += PAGINA)
        static_cast<volatile uint8_t *>(fresca.get())[n] = 1;
}

nlohmann::json mide_buffer(const char *servicio, const nlohmann::json &encargo)
{
    std::vector<uint8_t> origen(encargo.at("buffer").get<size_t>());
    for (size_t i = 0; i < origen.size(); i++)
        origen[i] = static_cast<uint8_t>(i * 2654435761u >> 24);
    std::vector<uint8_t> tibia(origen.size());
    size_t tam_msgpack = 0, tam_flexbuffers = 0;
    unsigned numero = 0;
    auto nombre_nuevo = [&] { return std::string(servicio) + "_block" + std::to_string(++numero); };
    std::vector<muestra_fases> fases;
    auto una = [&](double *marcas) { buffer_ivrexa(servicio, origen, marcas); };
    tarea nuestra = tarea_con_fases("ivrexa", una, &fases);
    nuestra.una_por_muestra = true;
    // Who comes first in a process finds fewer things ready: the children take turns in that.
    const bool al_reves = encargo.at("reversed");
    std::vector<tarea> tareas = {
        nuestra,
        tarea_unica("three_copies", [&] { tres_copias(nombre_nuevo(), origen); }),
        tarea_unica("msgpack", [&] { buffer_msgpack(origen, COPIADO, &tam_msgpack); }),
        tarea_unica("msgpack_reference", [&] { buffer_msgpack(origen, por_referencia, &tam_msgpack); }),
        tarea_unica("flexbuffers", [&] { buffer_flexbuffers(origen, &tam_flexbuffers); }),
        tarea_unica("memcpy", [&] { std::memcpy(tibia.data(), origen.data(), tibia.size()); }),
    };
    if (al_reves)
        std::swap(tareas[0], tareas[1]);
    calienta(servicio, nombre_nuevo());
    plan plan = plan_de(encargo);
    std::vector<medida> medidas = mide(tareas, plan);
    if (al_reves)
        std::swap(medidas[0], medidas[1]);
    nlohmann::json json = {{"rows", a_filas(medidas)},
                           {"phases", a_filas(fases, static_cast<size_t>(plan.rondas))},
                           {"operations", operaciones(fases)},
                           {"other_handles", numero + 2}}; // of the plain copies' blocks, and of the warm-up
    json["bytes"] = {{"ivrexa", 4 + 2 + sizeof NOMBRE + 4 + origen.size()},
                     {"msgpack", tam_msgpack},
                     {"flexbuffers", tam_flexbuffers}};
    return json;
}

} // namespace banco
