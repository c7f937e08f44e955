// What loading costs: LoadLibrary and FreeLibrary of the library and of an empty DLL, one after the other.
//
// This program is linked with ivrexa.dll, which is therefore loaded all the time. What is loaded here is a copy of the
// file, made by the build, in the same folder as the empty one. All that the two import is loaded already.
#include "../comun/medida.h"
#include "../comun/proceso.h"
#include "../comun/seccion.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace banco {

namespace {

const double LIMITE_RAZON = 1.2;
const double LIMITE_KIB = 64;

struct importacion {
    std::string biblioteca;
    uint32_t nombres = 0;
};

std::string junto_al_programa(const char *nombre)
{
    char ruta[MAX_PATH] = "";
    DWORD largo = GetModuleFileNameA(nullptr, ruta, MAX_PATH);
    if (largo == 0 || largo >= MAX_PATH)
        falla("GetModuleFileNameA");
    std::string carpeta = ruta;
    return carpeta.substr(0, carpeta.find_last_of('\\') + 1) + nombre;
}

// A DLL as it lies on disk.
class fichero_pe {
public:
    explicit fichero_pe(const std::string &ruta)
    {
        std::ifstream fichero(ruta, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(fichero), std::istreambuf_iterator<char>());
        cabeceras_ = lee<IMAGE_NT_HEADERS64>(lee<IMAGE_DOS_HEADER>(0).e_lfanew);
        if (cabeceras_.Signature != IMAGE_NT_SIGNATURE)
            throw std::runtime_error("not a DLL: " + ruta);
        size_t posicion = lee<IMAGE_DOS_HEADER>(0).e_lfanew + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                          cabeceras_.FileHeader.SizeOfOptionalHeader;
        for (WORD i = 0; i < cabeceras_.FileHeader.NumberOfSections; i++)
            secciones_.push_back(lee<IMAGE_SECTION_HEADER>(posicion + i * sizeof(IMAGE_SECTION_HEADER)));
    }

    size_t tam() const { return bytes_.size(); }
    size_t num_secciones() const { return secciones_.size(); }

    std::vector<importacion> importaciones() const
    {
        std::vector<importacion> todas;
        DWORD tabla = cabeceras_.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        if (tabla == 0)
            return todas;
        for (size_t posicion = en_fichero(tabla);; posicion += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
            auto descriptor = lee<IMAGE_IMPORT_DESCRIPTOR>(posicion);
            if (descriptor.Name == 0)
                return todas;
            importacion una = {texto(en_fichero(descriptor.Name)), 0};
            for (size_t n = en_fichero(descriptor.FirstThunk); lee<uint64_t>(n) != 0; n += sizeof(uint64_t))
                una.nombres++;
            todas.push_back(una);
        }
    }

private:
    template <typename tipo>
    tipo lee(size_t posicion) const
    {
        tipo valor;
        if (posicion + sizeof valor > bytes_.size())
            throw std::runtime_error("a DLL is shorter than it says");
        std::memcpy(&valor, bytes_.data() + posicion, sizeof valor);
        return valor;
    }

    std::string texto(size_t posicion) const
    {
        std::string letras;
        while (char letra = lee<char>(posicion++))
            letras += letra;
        return letras;
    }

    size_t en_fichero(DWORD rva) const
    {
        for (const IMAGE_SECTION_HEADER &seccion : secciones_)
            if (rva >= seccion.VirtualAddress && rva < seccion.VirtualAddress + seccion.SizeOfRawData)
                return rva - seccion.VirtualAddress + seccion.PointerToRawData;
        throw std::runtime_error("a DLL has no section for an address");
    }

    std::vector<char> bytes_;
    IMAGE_NT_HEADERS64 cabeceras_;
    std::vector<IMAGE_SECTION_HEADER> secciones_;
};

struct biblioteca {
    const char *titulo;
    const char *fichero;
};
const biblioteca BIBLIOTECAS[] = {{"empty DLL", "vacia.dll"}, {"ivrexa", "ivrexa_copia.dll"}};

tarea carga_de(const biblioteca &biblioteca)
{
    tarea tarea;
    tarea.nombre = biblioteca.titulo;
    tarea.llama = [ruta = junto_al_programa(biblioteca.fichero)] {
        HMODULE modulo = LoadLibraryA(ruta.c_str());
        if (modulo == nullptr || !FreeLibrary(modulo))
            falla("loading and unloading");
    };
    return tarea;
}

std::string texto_de(const std::vector<importacion> &importaciones)
{
    std::string texto;
    for (const importacion &una : importaciones)
        texto += (texto.empty() ? "" : ", ") + una.biblioteca + ": " + std::to_string(una.nombres);
    return texto.empty() ? "none" : texto;
}

nlohmann::json a_json(const std::vector<importacion> &importaciones)
{
    nlohmann::json json = nlohmann::json::object();
    for (const importacion &una : importaciones)
        json[una.biblioteca] = una.nombres;
    return json;
}

std::vector<std::string> fila_de_tabla(const medida &medida, const banco::medida &vacia, const fichero_pe &fichero)
{
    resumen tiempo = medida.tiempo();
    return {medida.nombre,
            duracion(tiempo.mediana),
            duracion(tiempo.minimo),
            duracion(tiempo.maximo),
            con_extremos(razon(medida, vacia)),
            std::to_string(fichero.tam()),
            std::to_string(fichero.num_secciones()),
            texto_de(fichero.importaciones())};
}

nlohmann::json a_json(const medida &medida, const banco::medida &vacia, const fichero_pe &fichero)
{
    nlohmann::json fila = banco::a_json(medida);
    fila["over_empty"] = banco::a_json(razon(medida, vacia));
    fila["bytes"] = fichero.tam();
    fila["sections"] = fichero.num_secciones();
    fila["imports"] = a_json(fichero.importaciones());
    return fila;
}

std::vector<medida> mide_bibliotecas(const opciones &opciones)
{
    plan plan;
    plan.rondas = opciones.rapido ? 15 : 45;
    std::vector<tarea> tareas;
    for (const biblioteca &biblioteca : BIBLIOTECAS)
        tareas.push_back(carga_de(biblioteca));
    return mide(tareas, plan);
}

} // namespace

void mide_carga(const opciones &opciones, informe *informe)
{
    std::vector<medida> medidas = mide_bibliotecas(opciones);
    const medida &vacia = medidas[0], &ivrexa = medidas[1];
    std::vector<std::vector<std::string>> tabla = {
        {"", "median", "least", "most", "over the empty DLL", "bytes", "sections", "imported names"}};
    for (size_t i = 0; i < medidas.size(); i++) {
        fichero_pe fichero(junto_al_programa(BIBLIOTECAS[i].fichero));
        tabla.push_back(fila_de_tabla(medidas[i], vacia, fichero));
        informe->seccion("load")["rows"].push_back(a_json(medidas[i], vacia, fichero));
    }
    informe->tabla("Loading and unloading", tabla);

    informe->anota_meta("loading, over an empty DLL", razon(ivrexa, vacia).mediana, LIMITE_RAZON);
    fichero_pe fichero(junto_al_programa(BIBLIOTECAS[1].fichero));
    informe->anota_meta("size of the DLL in KiB", static_cast<double>(fichero.tam()) / 1024, LIMITE_KIB);
}

} // namespace banco
