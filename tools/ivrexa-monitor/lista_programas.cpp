#include "lista_programas.h"

#include <cstdio>

#include "comun/texto.h"

namespace monitor {

using namespace herramientas;

lista_programas::lista_programas()
    : lista_filas({{L"Entry", 48, true},
                   {L"Program", 160},
                   {L"Kinds", 110},
                   {L"Window", 150},
                   {L"Heartbeat", 146},
                   {L"Path", 500}})
{
}

static std::string clases_de(const programa_visto &p)
{
    std::string texto;
    for (const auto &una : {std::make_pair(p.es_servidor, "server"), std::make_pair(p.es_cliente, "client"),
                            std::make_pair(p.es_monitor, "monitor")})
        if (una.first)
            texto += (texto.empty() ? "" : ", ") + std::string(una.second);
    return texto;
}

static std::string ventana_de(const programa_visto &p)
{
    char texto[60];
    if (p.hwnd == 0)
        return "none";
    if (p.es_ventana)
        snprintf(texto, sizeof texto, "%llx, process %u", static_cast<unsigned long long>(p.hwnd), p.pid);
    else
        snprintf(texto, sizeof texto, "%llx, gone", static_cast<unsigned long long>(p.hwnd));
    return texto;
}

static std::string latido_de(const latidos::estado &l)
{
    switch (l.p) {
    case latidos::pulso::se_mueve:
        return "moves";
    case latidos::pulso::callado:
        return "silent " + numero_con_comas(l.callado_ms / 1000) + " s";
    default:
        return "not seen to move yet";
    }
}

void lista_programas::muestra(const escritorio_visto &e, const latidos &l, uint64_t ahora_ms)
{
    std::vector<fila> filas;
    for (const programa_visto &p : e.programas) {
        latidos::estado latido = l.de(p.id_programa, ahora_ms);
        fila f;
        f.clave = std::to_string(p.id_programa) + " " + p.nombre;
        f.como = latido.p == latidos::pulso::callado ? aspecto::destacado : aspecto::normal;
        for (const std::string &c : {std::to_string(p.id_programa), nombre_sin_ruta(p.nombre), clases_de(p),
                                     ventana_de(p), latido_de(latido), p.nombre})
            f.celdas.push_back(a_ancho(sin_controles(c)));
        filas.push_back(f);
    }
    pon(std::move(filas));
}

} // namespace monitor
