#include "informes.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <vector>

#include "cerrojo.h"
#include "sistema.h"

namespace {

// Reports that nobody has taken, oldest first.
struct lista_informes {
    cerrojo candado;
    CONDITION_VARIABLE hay_mas = CONDITION_VARIABLE_INIT;
    std::deque<datos_informe> informes;
    void (*aviso)(const datos_informe &) = nullptr;
};

// Never destroyed: the watcher's thread may still add to it while the process ends.
lista_informes &lista()
{
    static lista_informes *unica = new lista_informes;
    return *unica;
}

std::vector<void (*)()> &preparaciones()
{
    static std::vector<void (*)()> todas;
    return todas;
}

} // namespace

uint32_t num_informes()
{
    std::lock_guard<cerrojo> guarda(lista().candado);
    return static_cast<uint32_t>(lista().informes.size());
}

datos_informe informe(uint32_t i)
{
    std::lock_guard<cerrojo> guarda(lista().candado);
    return i < lista().informes.size() ? lista().informes[i] : datos_informe();
}

std::optional<datos_informe> toma_informe()
{
    std::lock_guard<cerrojo> guarda(lista().candado);
    if (lista().informes.empty())
        return std::nullopt;
    datos_informe primero = lista().informes.front();
    lista().informes.pop_front();
    return primero;
}

void borra_informes()
{
    std::lock_guard<cerrojo> guarda(lista().candado);
    lista().informes.clear();
}

bool espera_informes(uint32_t num, uint32_t ms)
{
    uint64_t limite = GetTickCount64() + ms;
    std::lock_guard<cerrojo> guarda(lista().candado);
    while (lista().informes.size() < num) {
        if (!lista().candado.espera_aviso(&lista().hay_mas, limite))
            return lista().informes.size() >= num;
    }
    return true;
}

std::string describe_informe(const datos_informe &i)
{
    if (i.ajeno)
        return "foreign box \"" + i.titulo + "\": \"" + i.texto + "\"";
    return i.modulo + " line " + std::to_string(i.linea) + ": \"" + i.expresion + "\"";
}

// The line is digits alone, as the format writes an unsigned number below 2^31.
static bool lee_linea(const std::string &digitos, uint32_t *linea)
{
    auto es_digito = [](char c) { return '0' <= c && c <= '9'; };
    if (digitos.empty() || digitos.size() > 10 || !std::all_of(digitos.begin(), digitos.end(), es_digito))
        return false;
    *linea = static_cast<uint32_t>(std::stoull(digitos));
    return true;
}

datos_informe lee_informe(const std::string &titulo, const std::string &texto)
{
    const std::string principio = "Error in ", medio = " - lin ", fin = "\n\nExpr: ";
    datos_informe i;
    i.texto = texto;
    i.titulo = titulo;
    size_t pos_fin = texto.find(fin);
    size_t pos_medio = pos_fin == std::string::npos ? pos_fin : texto.rfind(medio, pos_fin);
    i.ajeno = titulo != "Assert ivrexa" || texto.compare(0, principio.size(), principio) != 0 ||
              pos_medio == std::string::npos || pos_medio < principio.size() ||
              !lee_linea(texto.substr(pos_medio + medio.size(), pos_fin - pos_medio - medio.size()), &i.linea);
    if (i.ajeno)
        return i;
    i.modulo = texto.substr(principio.size(), pos_medio - principio.size());
    i.expresion = texto.substr(pos_fin + fin.size());
    return i;
}

void anyade_informe(const datos_informe &i)
{
    void (*aviso)(const datos_informe &);
    {
        std::lock_guard<cerrojo> guarda(lista().candado);
        lista().informes.push_back(i);
        aviso = lista().aviso;
    }
    WakeAllConditionVariable(&lista().hay_mas);
    if (aviso != nullptr)
        aviso(i);
}

void al_informar(void (*aviso)(const datos_informe &))
{
    std::lock_guard<cerrojo> guarda(lista().candado);
    lista().aviso = aviso;
}

void al_empezar_prueba(void (*preparacion)())
{
    preparaciones().push_back(preparacion);
}

void prepara_prueba()
{
    for (void (*preparacion)() : preparaciones())
        preparacion();
}
