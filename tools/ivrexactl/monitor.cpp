// monitor.cpp - ivrexactl monitor: the desktop's monitor, as text.
#include "orden.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "cerrojo.h"
#include "comprobaciones.h"
#include "comun/json.h"
#include "comun/mirada.h"
#include "comun/texto.h"
#include "comun/valores.h"
#include "comun/vigia.h"
#include "escritor.h"
#include "vela_monitor.h"

#include "ivrexa.h"

namespace ivrexactl {

using namespace herramientas;

namespace {

struct opciones {
    std::vector<std::string> servicios, clases;
    bool datos = false, en_json = false, reemplaza = false;
    double segundos = 0; // 0 = until it is asked to end
    uint64_t num = 0;    // events to print; 0 = all
};

// `*` stands for any characters, `?` for one.
bool encaja(const wchar_t *patron, const wchar_t *nombre)
{
    if (*patron == L'*')
        return encaja(patron + 1, nombre) || (*nombre != 0 && encaja(patron, nombre + 1));
    if (*nombre == 0 || *patron == 0)
        return *nombre == *patron;
    return (*patron == L'?' || *patron == *nombre) && encaja(patron + 1, nombre + 1);
}

std::string a_lo_ancho(std::string texto, size_t ancho)
{
    size_t letras = a_ancho(texto).size();
    return letras < ancho ? texto.append(ancho - letras, ' ') : texto;
}

std::string linea_de(const suceso &s)
{
    std::string linea = hora_local(s.hora_100ns) + "  ";
    if (s.que == clase::hueco)
        return linea + describe(s);
    linea +=
        a_lo_ancho(nombre_lado(s.quien), 7) + "  " + a_lo_ancho(sin_controles(s.servicio), 20) + "  " + describe(s);
    if (s.id_comando != 0)
        linea += ", command " + std::to_string(s.id_comando);
    if (s.id_bloque != 0)
        linea += ", block " + std::to_string(s.id_bloque);
    return linea;
}

const limites_valores LIMITES = {1000, 64u << 10}; // of one event; reading more would hold up the next ones

std::string lineas_de(const std::optional<contenido> &c)
{
    const std::string margen(16, ' ');
    if (!c)
        return margen + "gone already\n";
    std::string texto;
    for (const valor &v : c->valores)
        texto += margen + sin_controles(v.nombre) + ": " + nombre_tipo(v.tipo) + " " + valor_a_texto(v) + "\n";
    if (!c->fallo.empty())
        texto += margen + "(" + c->fallo + ")\n";
    return texto;
}

void pon_valores(json *j, const std::optional<contenido> &c)
{
    if (c)
        j->update(a_json(*c));
    else
        (*j)["gone"] = true;
}

// Takes the events, and counts them.
class sesion {
public:
    explicit sesion(const opciones &o) : m_opciones(o)
    {
        for (const std::string &s : o.servicios)
            m_patrones.push_back(a_ancho(s));
    }

    void recibe(const suceso &s)
    {
        if (completa())
            return;
        if (s.que == clase::hueco)
            m_perdidas += s.perdidos;
        else if (s.que != clase::espera)
            m_actividades++;
        if (s.que != clase::hueco && !interesa(s))
            return;
        m_texto += m_opciones.en_json ? en_json(s) : en_texto(s);
        m_mostrados += s.que != clase::hueco;
    }

    bool completa() const { return m_opciones.num != 0 && m_mostrados >= m_opciones.num; }
    std::string toma_texto()
    {
        std::string texto;
        texto.swap(m_texto);
        return texto;
    }
    std::string resumen() const
    {
        return numero_con_comas(m_actividades + m_perdidas) +
               (m_actividades + m_perdidas == 1 ? " activity, " : " activities, ") + numero_con_comas(m_perdidas) +
               " lost; " + numero_con_comas(m_mostrados) + (m_mostrados == 1 ? " event shown" : " events shown");
    }

private:
    bool interesa(const suceso &s) const
    {
        const std::vector<std::string> &clases = m_opciones.clases;
        if (!clases.empty() && std::find(clases.begin(), clases.end(), nombre_clase(s.que)) == clases.end())
            return false;
        std::wstring nombre = a_ancho(s.servicio);
        return m_patrones.empty() || std::any_of(m_patrones.begin(), m_patrones.end(), [&](const std::wstring &p) {
                   return encaja(p.c_str(), nombre.c_str());
               });
    }
    bool con_valores(const suceso &s) const { return m_opciones.datos && s.id_bloque != 0; }
    std::string en_texto(const suceso &s) const
    {
        std::string texto = linea_de(s) + "\n";
        return con_valores(s) ? texto + lineas_de(lee_bloque(s.servicio_ansi, s.id_bloque, LIMITES)) : texto;
    }
    std::string en_json(const suceso &s) const
    {
        json j = a_json(s);
        if (con_valores(s))
            pon_valores(&j, lee_bloque(s.servicio_ansi, s.id_bloque, LIMITES));
        return en_linea(j) + "\n";
    }

    const opciones &m_opciones;
    std::vector<std::wstring> m_patrones;
    std::string m_texto; // not handed on yet
    uint64_t m_actividades = 0, m_perdidas = 0, m_mostrados = 0;
};

// Says what it takes, before it is taken.
void avisa()
{
    std::vector<std::string> nombres = servicios_que_se_borran();
    std::string texto = "Registering a monitor empties the desktop's service table.";
    if (nombres.empty()) {
        di_error(texto + " No service stands in it.");
        return;
    }
    texto +=
        nombres.size() == 1 ? " 1 service leaves it:" : " " + std::to_string(nombres.size()) + " services leave it:";
    for (size_t i = 0; i < nombres.size(); i++)
        texto += (i == 0 ? " " : ", ") + sin_controles(nombres[i]);
    di_error(texto + ".");
    di_error(
        "They stay reachable: commands run, and who asks for the whole name finds it. A search by prefix does not find "
        "them, and of their traffic only the waits are seen here, until their server announces them again or a client "
        "registers for them.");
}

std::string programa_de(uint32_t pid)
{
    std::string nombre = programa_del_proceso(pid);
    return (nombre.empty() ? "" : nombre + ", ") + "process " + std::to_string(pid);
}

enum class final_de { pedido, reemplazado, sin_salida };

bool queda_tiempo(const opciones &o, uint64_t desde_ms)
{
    return o.segundos == 0 || double(GetTickCount64() - desde_ms) < o.segundos * 1000;
}

// What waits in the queue, or as much of it as a second takes. Other programs' messages stand between those that tell
// of activities: at the end all of them are taken, asked to end or not.
void despacha(const sesion &s, vela_monitor *vela, bool al_final)
{
    const uint64_t LIMITE_MS = 1000, hasta_ms = GetTickCount64() + LIMITE_MS;
    MSG msg;
    while (!s.completa() && GetTickCount64() < hasta_ms && (al_final || !espera_fin(0)) &&
           PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&msg);
        vela->avanza();
    }
}

// Until it is asked to end, or cannot go on.
final_de vigila(const opciones &o, const vigia &v, sesion *s, escritor *salida, vela_monitor *vela)
{
    const uint64_t ENTRE_MIRADAS_MS = 200;
    HANDLE fin = evento_fin();
    uint64_t desde_ms = GetTickCount64(), mirado_ms = desde_ms;
    while (!s->completa() && queda_tiempo(o, desde_ms)) {
        if (MsgWaitForMultipleObjects(1, &fin, FALSE, 50, QS_ALLINPUT) == WAIT_OBJECT_0)
            break; // what has come until now is still told below
        despacha(*s, vela, false);
        salida->pon(s->toma_texto());
        if (salida->roto())
            return final_de::sin_salida;
        if (GetTickCount64() - mirado_ms < ENTRE_MIRADAS_MS)
            continue;
        mirado_ms = GetTickCount64();
        if (!v.sigue_siendo_monitor())
            return final_de::reemplazado;
    }
    despacha(*s, vela, true);
    return final_de::pedido;
}

std::string quien_lo_reemplazo()
{
    uint32_t pid = pid_de_otro_monitor();
    return pid != 0 ? "another program has taken the monitor's place (" + programa_de(pid) + ")"
                    : "another program has ended the desktop's monitor";
}

// The library would wait for the registry without a bound; what it finds damaged it does not register in.
void comprueba_registro()
{
    cerrojo_registro cerrojo;
    registro_ahora();
}

final_de vigila_en(HWND hwnd, const opciones &o, sesion *s, escritor *salida, vela_monitor *vela)
{
    vigia v(hwnd, [s](const suceso &suceso) { s->recibe(suceso); });
    if (!v.sigue_siendo_monitor())
        return final_de::reemplazado;
    di_error("Watching. Ctrl-C ends it.");
    return vigila(o, v, s, salida, vela);
}

final_de vigila_en_ventana(const opciones &o, sesion *s, escritor *salida)
{
    HWND hwnd =
        CreateWindowExW(0, L"STATIC", L"ivrexactl monitor", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
    if (hwnd == nullptr)
        throw fallo(codigo_INTERNO, "no window could be made");
    vela_monitor vela;
    final_de final = vigila_en(hwnd, o, s, salida, &vela);
    DestroyWindow(hwnd);
    ivrexa_cierra_sesion();
    return final;
}

int ejecuta(const opciones &o)
{
    comprueba_registro();
    uint32_t otro = pid_de_otro_monitor();
    if (otro != 0 && !o.reemplaza)
        throw fallo(codigo_OCUPADO, "the desktop has a monitor already (" + programa_de(otro) +
                                        "); end it, or take its place with --replace");
    avisa();
    sesion s(o);
    escritor salida(stdout);
    final_de final = vigila_en_ventana(o, &s, &salida);
    salida.pon(s.toma_texto());
    bool escrito = salida.acaba();
    di_error(s.resumen());
    if (!escrito)
        throw fallo(codigo_NO_SE_ESCRIBE, "the output cannot be written any more");
    if (final == final_de::reemplazado)
        throw fallo(codigo_OCUPADO, quien_lo_reemplazo());
    return codigo_HECHO;
}

const char *const PIE =
    "Prints a line for each activity of the desktop's programs, until Ctrl-C. --service and --kind choose what is\n"
    "printed; activities that were lost because they came faster than they could be read are told in any case.\n"
    "\n"
    "What it takes: it becomes the desktop's monitor, of which there is one, and empties the service table. It says\n"
    "which services leave the table. They stay reachable, but what they do is seen again only once their server\n"
    "announces them or a client registers for them: start the monitor first. It takes no program entry.\n"
    "\n"
    "Exit status: 0 asked to end, by Ctrl-C, --for or --count; 64 usage; 69 the registry is damaged; 73 the output\n"
    "cannot be written, or nobody reads it; 75 there is a monitor already, another program took its place, or one\n"
    "holds the registry and does not go on.\n"
    "\n"
    "Example: ivrexactl monitor --service \"Calc*\" --kind command --json";

} // namespace

void anyade_monitor(CLI::App &app, trabajo *hazlo)
{
    auto o = std::make_shared<opciones>();
    CLI::App *orden = app.add_subcommand("monitor", "Becomes the desktop's monitor and prints the traffic as it comes");
    orden
        ->add_option("--service", o->servicios,
                     "Only this service; * and ? stand for any characters and for one. Repeatable")
        ->type_name("S")
        ->take_all();
    orden->add_option("--kind", o->clases, "Only this kind: service, command, input, output or wait. Repeatable")
        ->type_name("K")
        ->take_all()
        ->check(CLI::IsMember({"service", "command", "input", "output", "wait"}));
    orden->add_flag("--data", o->datos, "Show the typed values of each block, while it lives");
    orden->add_flag("--json", o->en_json, "One JSON object a line");
    orden->add_flag("--replace", o->reemplaza, "Take the place of another monitor");
    orden->add_option("--for", o->segundos, "End after so many seconds")->type_name("S")->check(es_tiempo);
    orden->add_option("--count", o->num, "End after so many printed events")->type_name("N")->check(es_cuenta);
    orden->footer(PIE);
    orden->callback([o, hazlo] { *hazlo = [o] { return ejecuta(*o); }; });
}

} // namespace ivrexactl
