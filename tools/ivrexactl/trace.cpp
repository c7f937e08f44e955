// trace.cpp - ivrexactl trace: the debug trace of the session's programs, gathered into one text.
#include "orden.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <vector>

#include "colector.h"
#include "comprobaciones.h"
#include "comun/registro_traza.h"
#include "comun/texto.h"
#include "comun/vigia.h"
#include "escritor.h"

namespace ivrexactl {

using namespace herramientas;

namespace {

struct opciones {
    std::vector<uint32_t> pids; // none: all
    std::string fichero;        // "" = the standard output
    double segundos = 0;
    bool callado = false, registros = false, todos = false;
};

// Names of programs by their process ids. A process that is known stays open, so that no other gets its id meanwhile.
class nombres_de_programas {
public:
    ~nombres_de_programas()
    {
        for (const auto &c : m_conocidos)
            if (c.second.proceso != nullptr)
                CloseHandle(c.second.proceso);
    }
    const std::string &de(uint32_t pid)
    {
        auto c = m_conocidos.find(pid);
        if (c == m_conocidos.end())
            c = m_conocidos.emplace(pid, mira(pid)).first;
        return c->second.nombre;
    }

private:
    struct conocido {
        HANDLE proceso;
        std::string nombre;
    };
    static conocido mira(uint32_t pid)
    {
        wchar_t ruta[1024];
        DWORD num = 1024;
        conocido c = {OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid), "?"};
        if (c.proceso != nullptr && QueryFullProcessImageNameW(c.proceso, 0, ruta, &num))
            c.nombre = sin_controles(nombre_sin_ruta(de_ancho(std::wstring(ruta, num))));
        return c;
    }
    std::map<uint32_t, conocido> m_conocidos;
};

// What is told behind the first line of a FIN.
std::string nota_de(const registro_traza &r)
{
    std::string ms = numero_con_comas(r.ms) + " ms";
    switch (r.con) {
    case registro_traza::pareja::hallada:
        return "  (" + ms + ")";
    case registro_traza::pareja::suelta:
        return "  (FIN without INICIO)";
    case registro_traza::pareja::del_servidor:
        return r.hay_ms ? "  (the server's, " + ms + " after the INICIO of " + std::to_string(r.pid_cliente) + ")"
                        : "  (the server's)";
    default:
        return "";
    }
}

class recogida {
public:
    explicit recogida(const opciones &o) : m_opciones(o), m_junta(o.todos, [this](registro_traza &r) { recibe(r); }) {}

    void anyade(const trozo_depurado &t)
    {
        const std::vector<uint32_t> &pids = m_opciones.pids;
        if (!pids.empty() && std::find(pids.begin(), pids.end(), t.pid) == pids.end())
            return;
        m_nombres.de(t.pid); // while it lives
        m_junta.anyade(t.pid, t.texto, t.hora_100ns);
    }
    void vence() { m_junta.vence(ahora_100ns()); }
    void acaba() { m_junta.acaba(); }
    std::string toma_texto()
    {
        std::string texto;
        texto.swap(m_texto);
        return texto;
    }
    std::string resumen();

private:
    void recibe(registro_traza &r)
    {
        bool es_registro = r.que != registro_traza::clase::linea;
        m_num_registros += es_registro;
        m_comandos.anota(r);
        if (m_opciones.registros && !es_registro)
            return;
        std::string margen = hora_local(r.hora_100ns) + "  " + std::to_string(r.pid) + " " + m_nombres.de(r.pid) + "  ";
        for (size_t i = 0; i < r.lineas.size(); i++)
            m_texto += margen + sin_controles(de_ansi(r.lineas[i])) + (i == 0 ? nota_de(r) : "") + "\n";
    }

    const opciones &m_opciones;
    junta_registros m_junta;
    empareja_comandos m_comandos;
    nombres_de_programas m_nombres;
    std::string m_texto; // not handed on yet
    uint64_t m_num_registros = 0;
};

std::string cuantos(uint64_t num, const char *uno)
{
    return numero_con_comas(num) + " " + uno + (num == 1 ? "" : "s");
}

std::string recogida::resumen()
{
    std::string texto = cuantos(m_num_registros, "record") + " of " + cuantos(m_junta.num_programas(), "program") +
                        "; " + cuantos(m_comandos.num_comandos(), "command");
    char linea[200];
    auto duraciones = m_comandos.duraciones();
    if (!duraciones.empty()) {
        snprintf(linea, sizeof linea, "\n%-24s %10s %8s %10s %10s %10s", "service", "command", "count", "min ms",
                 "median ms", "max ms");
        texto += linea;
    }
    for (const auto &[cual, d] : duraciones) {
        std::string servicio = sin_controles(de_ansi(cual.first));
        snprintf(linea, sizeof linea, " %10u %8zu %10u %10u %10u", cual.second, d.num, d.minimo, d.mediana, d.maximo);
        size_t letras = a_ancho(servicio).size();
        texto += "\n" + servicio.append(letras < 24 ? 24 - letras : 0, ' ') + linea;
    }
    if (m_comandos.num_sueltos() > 0)
        texto += "\n" + numero_con_comas(m_comandos.num_sueltos()) + " FIN without INICIO";
    if (!m_comandos.sin_fin().empty())
        texto += "\n" + numero_con_comas(m_comandos.sin_fin().size()) + " INICIO without FIN:";
    for (const empareja_comandos::abierto &a : m_comandos.sin_fin())
        texto += "\n    " + std::to_string(a.pid) + " " + m_nombres.de(a.pid) + ": " +
                 sin_controles(de_ansi(a.servicio)) + ", command " + std::to_string(a.id_comando) + ", begun at " +
                 hora_local(a.hora_100ns);
    return texto;
}

// Closed with the object, where it is not the standard output.
class fichero {
public:
    explicit fichero(const std::string &nombre)
        : m_nombre(nombre), m_fichero(nombre.empty() ? stdout : _wfopen(a_ancho(nombre).c_str(), L"wb"))
    {
        if (m_fichero == nullptr)
            throw fallo(codigo_NO_SE_ESCRIBE, "cannot write " + entre_comillas(nombre) + ": " + strerror(errno));
    }
    ~fichero()
    {
        if (m_fichero != stdout)
            fclose(m_fichero);
    }
    fichero(const fichero &) = delete;
    fichero &operator=(const fichero &) = delete;
    FILE *abierto() const { return m_fichero; }
    [[noreturn]] void no_se_escribe() const
    {
        throw fallo(codigo_NO_SE_ESCRIBE,
                    (m_nombre.empty() ? "the output" : entre_comillas(m_nombre)) +
                        " cannot be written any more: is the disk full, or the pipe's other end closed?");
    }

private:
    std::string m_nombre;
    FILE *m_fichero;
};

void recoge(colector *c, recogida *r, escritor *salida, uint32_t ms)
{
    for (const trozo_depurado &t : c->toma(ms))
        r->anyade(t);
    r->vence();
    salida->pon(r->toma_texto());
}

int ejecuta(const opciones &o)
{
    colector c; // the first: where another program collects, its file may be the same, and stays as it is
    fichero f(o.fichero);
    escritor salida(f.abierto());
    recogida r(o);
    if (!o.callado)
        di_error("Collecting the debug trace of programs that were started with IVREXA_DEBUG. Ctrl-C ends it.");
    uint64_t desde_ms = GetTickCount64();
    while (!espera_fin(0) && !salida.roto() &&
           (o.segundos == 0 || double(GetTickCount64() - desde_ms) < o.segundos * 1000))
        recoge(&c, &r, &salida, 50);
    c.acaba();
    recoge(&c, &r, &salida, 0);
    r.acaba();
    salida.pon(r.toma_texto());
    bool escrito = salida.acaba();
    if (!o.callado)
        di_error(r.resumen());
    if (!escrito)
        f.no_se_escribe();
    return codigo_HECHO;
}

const char *const PIE =
    "Programs write the trace when they are started with the environment variable IVREXA_DEBUG, whatever its value.\n"
    "What they hand to the debugger output is put together again, a line each: time, process, text. At the first\n"
    "line of each FIN COMANDO stands how long it took from its INICIO COMANDO. At the end a summary goes to the\n"
    "error output.\n"
    "\n"
    "What it takes: the session's debugger output, which one program can collect. A traced program waits for us at\n"
    "each piece. It registers nothing and touches no block.\n"
    "\n"
    "Exit status: 0 asked to end, by Ctrl-C or --for; 64 usage; 73 the file cannot be written, or not any more, or\n"
    "nobody reads the output; 75 another program collects already.\n"
    "\n"
    "Example: ivrexactl trace --records --out trace.txt";

} // namespace

void anyade_trace(CLI::App &app, trabajo *hazlo)
{
    auto o = std::make_shared<opciones>();
    CLI::App *orden = app.add_subcommand("trace", "Collects the debug trace of programs started with IVREXA_DEBUG");
    orden->add_option("--pid", o->pids, "Only of this process. Repeatable")
        ->type_name("N")
        ->take_all()
        ->check(es_proceso);
    orden->add_option("--out", o->fichero, "Write to this file instead of the output")->type_name("FILE");
    orden->add_option("--for", o->segundos, "End after so many seconds")->type_name("S")->check(es_tiempo);
    orden->add_flag("--quiet", o->callado, "No notes and no summary");
    orden->add_flag("--records", o->registros, "Records only: leave out the lines between them, such as the heap's");
    orden->add_flag("--all", o->todos, "Also what programs write that do not use the library");
    orden->footer(PIE);
    orden->callback([o, hazlo] { *hazlo = [o] { return ejecuta(*o); }; });
}

} // namespace ivrexactl
