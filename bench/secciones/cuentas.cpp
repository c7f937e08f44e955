// Counted, not timed: what the library calls for one command, against what the command's steps prescribe.
//
// Client and server of the row ivrexa_window run in two processes of their own, with every import of ivrexa.dll
// replaced (suelo/grabadora.h). Each carries out some commands of each size; the last of them is compared, call by
// call, with the script that the floor runs (suelo/guion.h). Text helpers and the last error ask nothing of the kernel
// and are not compared.
#include "cuentas.h"

#include "../comun/fila.h"
#include "../comun/proceso.h"
#include "../comun/seccion.h"
#include "../filas/ivrexa_comun.h"
#include "../suelo/grabadora.h"
#include "../suelo/guion.h"
#include "comando.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>

namespace banco {

extern const fila fila_ivrexa_ventana;

namespace {

const uint32_t NUM_TAMANYOS = sizeof TAMANYOS_BUFFER / sizeof TAMANYOS_BUFFER[0];

struct clase {
    llamada que;
    const char *titulo;
    const char *funcion;
};

const clase CLASES[] = {
    {llamada::heap_alloc, "heap: allocate", "HeapAlloc"},
    {llamada::heap_realloc, "heap: reallocate", "HeapReAlloc"},
    {llamada::heap_free, "heap: free", "HeapFree"},
    {llamada::mutex_espera, "mutex: wait", "WaitForSingleObject"},
    {llamada::mutex_suelta, "mutex: release", "ReleaseMutex"},
    {llamada::mutex_crea, "mutex: create", "CreateMutexA"},
    {llamada::mapa_crea, "mapping: create", "CreateFileMappingA"},
    {llamada::mapa_abre, "mapping: open", "OpenFileMappingA"},
    {llamada::vista_monta, "view: map", "MapViewOfFile"},
    {llamada::vista_consulta, "view: ask for its size *", "VirtualQuery"},
    {llamada::vista_desmonta, "view: unmap", "UnmapViewOfFile"},
    {llamada::handle_cierra, "handle: close", "CloseHandle"},
    {llamada::mensaje, "message: send", "SendMessageW"},
    {llamada::ventana_activa, "window: which is active", "GetActiveWindow"},
    {llamada::otra, "other", ""},
};

bool es_del_monton(llamada que)
{
    return que == llamada::heap_alloc || que == llamada::heap_realloc || que == llamada::heap_free;
}

const clase &clase_de(llamada que)
{
    for (const clase &clase : CLASES)
        if (clase.que == que)
            return clase;
    return CLASES[sizeof CLASES / sizeof CLASES[0] - 1];
}

bool no_pide_nada(const std::string &funcion)
{
    return funcion.compare(0, 4, "lstr") == 0 || funcion == "GetLastError";
}

// One call, prescribed or made.
struct hecho {
    llamada que;
    uint32_t tam;
    std::string quien; // the operation that prescribes it, or the function called
    bool cerrado;      // a heap operation together with its lock's wait and release
};

std::string en_palabras(const hecho &hecho)
{
    std::string texto = clase_de(hecho.que).titulo;
    if (hecho.tam != 0)
        texto += " " + std::to_string(hecho.tam);
    return texto + " (" + hecho.quien + ")";
}

std::vector<hecho> hechos_de(const cinta &cinta)
{
    const size_t caben = sizeof cinta.llamadas / sizeof cinta.llamadas[0];
    if (cinta.num > caben)
        throw std::runtime_error("a command made more calls than the record holds");
    std::vector<hecho> hechos;
    for (uint32_t n = 0; n < cinta.num; n++) {
        std::string funcion = cinta.llamadas[n].nombre;
        if (no_pide_nada(funcion))
            continue;
        llamada que = llamada::otra;
        for (const clase &clase : CLASES)
            if (funcion == clase.funcion)
                que = clase.que;
        hechos.push_back({que, cinta.llamadas[n].tam, funcion, false});
    }
    return hechos;
}

std::vector<hecho> hechos_de(const guion &guion)
{
    std::vector<hecho> hechos;
    for (const std::vector<paso> *parte : {&guion.principio, &guion.suelta_anterior, &guion.comando})
        for (const paso &paso : *parte)
            if (paso.que != llamada::ultimo_error && paso.que != llamada::copia)
                hechos.push_back({paso.que, paso.tam, paso.de, false});
    return hechos;
}

bool iguales(const hecho &prescrito, const hecho &hecho)
{
    return prescrito.que == hecho.que && prescrito.cerrado == hecho.cerrado && prescrito.tam == hecho.tam;
}

// Heap operations taken together with the wait before them and the release behind: a difference is then one line.
std::vector<hecho> con_cerrojos(const std::vector<hecho> &hechos)
{
    std::vector<hecho> otros;
    for (const hecho &hecho : hechos) {
        size_t n = otros.size();
        bool suelta = hecho.que == llamada::mutex_suelta && n >= 2 && es_del_monton(otros[n - 1].que) &&
                      !otros[n - 1].cerrado && otros[n - 2].que == llamada::mutex_espera;
        if (suelta) {
            otros.erase(otros.end() - 2);
            otros.back().cerrado = true;
        } else {
            otros.push_back(hecho);
        }
    }
    return otros;
}

// How many calls the rest of the one and the rest of the other have in common, in order, from each place on.
std::vector<std::vector<uint32_t>> comunes_desde(const std::vector<hecho> &prescritos, const std::vector<hecho> &hechos)
{
    size_t n = prescritos.size(), m = hechos.size();
    std::vector<std::vector<uint32_t>> comunes(n + 1, std::vector<uint32_t>(m + 1, 0));
    for (size_t i = n; i-- > 0;)
        for (size_t j = m; j-- > 0;)
            comunes[i][j] = iguales(prescritos[i], hechos[j]) ? comunes[i + 1][j + 1] + 1
                                                              : std::max(comunes[i + 1][j], comunes[i][j + 1]);
    return comunes;
}

// The shortest list of what is missing (-) and what is too much (+), in the order of the calls; empty where all are
// equal. A line of what both have in common stands before each group, as its place.
std::vector<std::string> diferencias_de(const std::vector<hecho> &prescritos, const std::vector<hecho> &hechos)
{
    auto comunes = comunes_desde(prescritos, hechos);
    std::vector<std::string> lineas;
    std::string lugar = "  at the beginning";
    size_t i = 0, j = 0, n = prescritos.size(), m = hechos.size();
    while (i < n || j < m) {
        if (i < n && j < m && iguales(prescritos[i], hechos[j])) {
            lugar = std::string("  after ") + clase_de(prescritos[i].que).titulo + " (" + prescritos[i].quien + ")";
            i++;
            j++;
            continue;
        }
        if (!lugar.empty())
            lineas.push_back(lugar);
        lugar.clear();
        if (j == m || (i < n && comunes[i + 1][j] >= comunes[i][j + 1]))
            lineas.push_back("- " + en_palabras(prescritos[i++]));
        else
            lineas.push_back("+ " + en_palabras(hechos[j++]));
    }
    return lineas;
}

size_t num_diferencias(const std::vector<std::string> &lineas)
{
    return static_cast<size_t>(
        std::count_if(lineas.begin(), lineas.end(), [](const std::string &linea) { return linea[0] != ' '; }));
}

uint32_t cuantos(const std::vector<hecho> &hechos, llamada que)
{
    return static_cast<uint32_t>(
        std::count_if(hechos.begin(), hechos.end(), [que](const hecho &hecho) { return hecho.que == que; }));
}

uint32_t del_monton(const std::vector<hecho> &hechos)
{
    return cuantos(hechos, llamada::heap_alloc) + cuantos(hechos, llamada::heap_realloc) +
           cuantos(hechos, llamada::heap_free);
}

// One side of a command of one size.
struct lado {
    std::vector<hecho> prescritos, hechos;
    std::vector<std::string> diferencias;

    // Calls of a kind made more often than prescribed.
    uint32_t de_mas(bool monton) const
    {
        uint32_t suma = 0;
        for (const clase &clase : CLASES) {
            uint32_t hechas = cuantos(hechos, clase.que), debidas = cuantos(prescritos, clase.que);
            if (es_del_monton(clase.que) == monton && hechas > debidas)
                suma += hechas - debidas;
        }
        return suma;
    }
};

struct cuenta {
    uint32_t tam;
    lado cliente, servidor;
};

lado compara(const guion &guion, const cinta &cinta)
{
    lado lado;
    lado.prescritos = hechos_de(guion);
    lado.hechos = hechos_de(cinta);
    lado.diferencias = diferencias_de(con_cerrojos(lado.prescritos), con_cerrojos(lado.hechos));
    return lado;
}

// ---- The processes

void graba(cintas *cintas, bool si)
{
    for (cinta *cinta : {&cintas->cliente, &cintas->servidor}) {
        if (si)
            cinta->num = 0;
        cinta->graba = si ? 1 : 0;
    }
}

// The record of a size goes to a block of its own, since the next size writes over it.
cintas *guardadas(const std::string &sesion, uint32_t n)
{
    return cintas_de(sesion + "_" + std::to_string(n));
}

cuenta cuenta_de(const std::string &sesion, uint32_t n, uint32_t servicio)
{
    const uint32_t CIFRAS = 3; // so few commands leave the numbers of their blocks below 1,000
    const cintas *cintas = guardadas(sesion, n);
    const uint32_t tam = TAMANYOS_BUFFER[n];
    situacion situacion = {servicio, static_cast<uint32_t>(std::strlen(TEXTO_COMANDO)), tam, CIFRAS};
    return {tam, compara(guion_cliente(situacion), cintas->cliente),
            compara(guion_servidor(situacion), cintas->servidor)};
}

std::vector<cuenta> cuenta_todo()
{
    std::string sesion = sesion_nueva();
    uint32_t servicio = static_cast<uint32_t>(ivrexa_servicio(sesion).size());
    hijo servidor("counts_server", sesion);
    hijo cliente("counts_client", sesion); // ready when all is done
    std::vector<cuenta> cuentas;
    for (uint32_t n = 0; n < NUM_TAMANYOS; n++)
        cuentas.push_back(cuenta_de(sesion, n, servicio));
    cliente.termina();
    servidor.termina();
    return cuentas;
}

// ---- The report

nlohmann::json a_json(const lado &lado)
{
    nlohmann::json json;
    for (const clase &clase : CLASES)
        json["calls"][clase.titulo] = {{"prescribed", cuantos(lado.prescritos, clase.que)},
                                       {"made", cuantos(lado.hechos, clase.que)}};
    json["heap_operations"] = {{"prescribed", del_monton(lado.prescritos)}, {"made", del_monton(lado.hechos)}};
    json["differences"] = lado.diferencias;
    return json;
}

void tabula_clases(const cuenta &cuenta, informe *informe)
{
    std::vector<std::vector<std::string>> tabla = {
        {"buffer of " + bytes(cuenta.tam), "client: prescribed", "made", "server: prescribed", "made"}};
    for (const clase &clase : CLASES) {
        std::vector<std::string> fila = {clase.titulo};
        for (const lado *lado : {&cuenta.cliente, &cuenta.servidor})
            for (const std::vector<hecho> *hechos : {&lado->prescritos, &lado->hechos})
                fila.push_back(std::to_string(cuantos(*hechos, clase.que)));
        tabla.push_back(fila);
    }
    informe->tabla("Calls of one command", tabla);
    informe->linea("* Counted as prescribed, though no step names it: what a block's header says is cut to the view.");
    informe->linea("  Our own floor does without it.");
}

void tabula_tamanyos(const std::vector<cuenta> &cuentas, informe *informe)
{
    std::vector<std::vector<std::string>> tabla = {
        {"buffer", "heap operations", "client", "server", "heap prescribed", "calls in all", "prescribed"}};
    for (const cuenta &cuenta : cuentas) {
        const lado &c = cuenta.cliente, &s = cuenta.servidor;
        tabla.push_back({bytes(cuenta.tam), std::to_string(del_monton(c.hechos) + del_monton(s.hechos)),
                         std::to_string(del_monton(c.hechos)), std::to_string(del_monton(s.hechos)),
                         std::to_string(del_monton(c.prescritos) + del_monton(s.prescritos)),
                         std::to_string(c.hechos.size() + s.hechos.size()),
                         std::to_string(c.prescritos.size() + s.prescritos.size())});
    }
    informe->tabla("Calls of one command, by the size of its buffer", tabla);
}

// Sizes that differ alike are told once.
void cuenta_diferencias(const char *quien, lado cuenta::*lado, const std::vector<cuenta> &cuentas, informe *informe)
{
    std::map<std::vector<std::string>, std::string> tamanyos;
    for (const cuenta &cuenta : cuentas) {
        std::string &texto = tamanyos[(cuenta.*lado).diferencias];
        texto += (texto.empty() ? "" : ", ") + bytes(cuenta.tam);
    }
    for (const auto &par : tamanyos) {
        if (par.first.empty())
            continue;
        informe->linea(std::string("\nThe ") + quien +
                       " differs from its script (- prescribed, + made), with a buffer" + " of " + par.second + ":");
        for (const std::string &linea : par.first)
            informe->linea("    " + linea);
    }
}

void anota_metas(const std::vector<cuenta> &cuentas, informe *informe)
{
    uint32_t monton = 0, nucleo = 0;
    size_t diferentes = 0;
    for (const cuenta &cuenta : cuentas) {
        monton = std::max(monton, cuenta.cliente.de_mas(true) + cuenta.servidor.de_mas(true));
        nucleo = std::max(nucleo, cuenta.cliente.de_mas(false) + cuenta.servidor.de_mas(false));
        diferentes = std::max(diferentes, num_diferencias(cuenta.cliente.diferencias) +
                                              num_diferencias(cuenta.servidor.diferencias));
    }
    informe->anota_meta("heap operations beyond those prescribed", monton, 0);
    informe->anota_meta("kernel calls beyond those prescribed (a view's size asked for aside)", nucleo, 0);
    informe->anota_meta("calls of another kind, size or order than prescribed", static_cast<double>(diferentes), 0);
}

} // namespace

// ---- Roles

void sirve_cuentas_servidor(const std::string &sesion)
{
    grabadora_empieza(&cintas_de(sesion)->servidor);
    fila_ivrexa_ventana.sirve(sesion);
}

// Three commands of each size: the last has an answer of that size before it, and all that is bound late is bound.
void sirve_cuentas_cliente(const std::string &sesion)
{
    const int ANTES = 2;
    cintas *vivas = cintas_de(sesion);
    grabadora_empieza(&vivas->cliente);
    fila_ivrexa_ventana.conecta(sesion);
    for (uint32_t n = 0; n < NUM_TAMANYOS; n++) {
        std::vector<uint8_t> buffer(TAMANYOS_BUFFER[n], 7);
        peticion peticion = peticion_de(buffer);
        respuesta respuesta = {};
        for (int i = 0; i < ANTES; i++)
            fila_ivrexa_ventana.pide(peticion, &respuesta);
        graba(vivas, true);
        fila_ivrexa_ventana.pide(peticion, &respuesta);
        graba(vivas, false);
        std::memcpy(guardadas(sesion, n), vivas, sizeof *vivas);
    }
    papel_listo();
    WaitForSingleObject(papel_fin(), INFINITE);
    fila_ivrexa_ventana.desconecta();
}

void cuenta_llamadas(const opciones &, informe *informe)
{
    std::vector<cuenta> cuentas = cuenta_todo();
    tabula_clases(cuentas[1], informe);
    tabula_tamanyos(cuentas, informe);
    cuenta_diferencias("client", &cuenta::cliente, cuentas, informe);
    cuenta_diferencias("server", &cuenta::servidor, cuentas, informe);
    for (const cuenta &cuenta : cuentas)
        informe->seccion("counts")["sizes"].push_back(
            {{"bytes", cuenta.tam}, {"client", a_json(cuenta.cliente)}, {"server", a_json(cuenta.servidor)}});
    anota_metas(cuentas, informe);
}

} // namespace banco
