// call.cpp - ivrexactl call: runs a command on a service, as any of its clients does.
#include <memory>

#include "comun/json.h"
#include "comun/texto.h"

#include "cliente.h"
#include "columnas.h"
#include "entrada.h"
#include "orden.h"
#include "salida.h"

namespace ivrexactl {

using herramientas::entre_comillas;
using herramientas::json;

namespace {

struct opciones {
    std::string servicio, id;
    std::string textos[3];
    std::vector<std::string> valores;
    bool trae = false, devuelve = false, en_json = false, fuerza = false;
};

struct peticion {
    uint32_t id = 0;
    std::wstring textos[3];
    std::vector<dato> datos;
    uint16_t opciones_ventana = 0;
};

struct respuesta {
    uint32_t resultado = 0;
    std::string textos[3];
    herramientas::contenido contenido;
};

struct destruye {
    void operator()(comdat *datos) const { ivrexa_destruye_datos_comando(datos); }
};
using datos_propios = std::unique_ptr<comdat, destruye>;

} // namespace

static const char *const PIE =
    "Values are NAME:TYPE=VALUE:\n"
    "  byte ushort ulong hwnd   a number, decimal or 0x...\n"
    "  double                   a number, such as -1.5e3\n"
    "  buffer                   pairs of hexadecimal digits, or @FILE\n"
    "  ansi wide                a text; without '=VALUE' a null text\n"
    "  ansi[] wide[]            a JSON array of texts and nulls\n\n"
    "While it runs it takes one of the desktop's 16 program entries, and the service's place for a client. Clients\n"
    "of one service take turns: a service with a command under way is left alone, and so is one without a window that\n"
    "has a client, unless --force. With a server that has no window it waits 2 s first, until its own heartbeat is\n"
    "seen. Ctrl-C ends it, but not the command in the server.\n\n"
    "Exit status: 0 result OK, 10 NINGUNO, 12 CANCELADO, 13 ERROR, 14 another number; 64 arguments that make no\n"
    "sense, 66 a file cannot be read, 69 no such service or a table is full, 75 somebody else is at it, or Ctrl-C.\n\n"
    "Example: ivrexactl call Calc 100 --text1 add a:ulong=40 b:ulong=0x2 note:ansi note2:wide=ok data:buffer=@in.bin";

// ---- Before the command

static peticion lee_peticion(const opciones &o)
{
    static const char *const nombres[] = {"--text1", "--text2", "--text3"};
    static const size_t max[] = {MAX_TEXTO_CORTO, MAX_TEXTO_LARGO, MAX_TEXTO_LARGO};
    peticion p;
    p.id = lee_id_comando(o.id);
    for (int i = 0; i < 3; i++)
        p.textos[i] = lee_texto(nombres[i], o.textos[i], max[i]);
    p.datos = lee_datos(o.valores);
    p.opciones_ventana = static_cast<uint16_t>((o.trae ? ivrexa_ventana_TRAE_SERVIDOR : 0) |
                                               (o.devuelve ? ivrexa_ventana_DEVUELVE_FOCO : 0));
    return p;
}

// Such an array is written without its count, and readers take its first position for one.
static void avisa_de_arreglos_anchos(const peticion &p)
{
    for (const dato &d : p.datos)
        if (d.tipo == ivrexa_tipoDato_arr_cadenas_unicode)
            di_error("note: value " + entre_comillas(herramientas::de_ansi(d.nombre)) +
                     " is a wide[]: the server cannot "
                     "read it, nor what stands behind it, and the library shows a box there; use single wide texts");
}

// A claim stays when its client dies. Nobody tells one from the other.
static void comprueba_libre(const destino &d, bool fuerza)
{
    if (d.canal.ocupacion == 0)
        return;
    std::string cual = "command " + std::to_string(d.canal.id_comando) + " of another client is under way on " +
                       entre_comillas(d.nombre);
    if (!fuerza)
        throw fallo(codigo_OCUPADO, cual + "; try again, or wait for your turn with --force. If that client has died, "
                                           "the claim stays: docs/survival.md says how to free it");
    di_error("note: " + cual + "; this one waits for its turn, and may disturb it");
}

// ---- The command

static comdat *escribe(const peticion &p, const destino &d)
{
    comdat *datos = p.datos.empty() ? nullptr : ivrexa_crea_datos_comando_entrada(d.nombre_ansi.c_str());
    for (const dato &uno : p.datos)
        graba(uno, datos);
    return datos;
}

static uint32_t ejecuta(const peticion &p, const destino &d, uint32_t id_entrada, uint32_t *id_salida, respuesta *r)
{
    wchar_t t1[MAX_TEXTO_CORTO + 1], t2[MAX_TEXTO_LARGO + 1], t3[MAX_TEXTO_LARGO + 1];
    uint32_t resultado =
        ivrexa_ejecuta_comando(d.nombre_ansi.c_str(), p.id, p.opciones_ventana, id_entrada, p.textos[0].c_str(),
                               p.textos[1].c_str(), p.textos[2].c_str(), id_salida, t1, t2, t3);
    r->textos[0] = herramientas::de_ancho(t1);
    r->textos[1] = herramientas::de_ancho(t2);
    r->textos[2] = herramientas::de_ancho(t3);
    return resultado;
}

// What the library gives back is the window that this thread had active, and a console program's has none: the
// foreground is also given back here.
static respuesta manda(const peticion &p, const destino &d, vela &ctrl_c)
{
    respuesta r;
    datos_propios entrada(escribe(p, d));
    uint32_t id_entrada = entrada ? ivrexa_guarda_datos(entrada.get()) : 0;
    if (entrada && id_entrada == 0)
        throw fallo(codigo_INTERNO, "the input could not be stored");
    HWND delante = GetForegroundWindow();
    uint32_t id_salida = 0;
    ctrl_c.manda();
    r.resultado = ejecuta(p, d, id_entrada, &id_salida, &r);
    ctrl_c.vuelve();
    if ((p.opciones_ventana & ivrexa_ventana_DEVUELVE_FOCO) != 0 && delante != nullptr)
        SetForegroundWindow(delante);
    if (r.resultado == ivrexa_resultado_OK && id_salida != 0)
        r.contenido = lee_salida(d.nombre_ansi, id_salida);
    return r;
}

// ---- The result

// 0 and 3 are also what the library answers by itself.
static std::string pista(uint32_t resultado, const destino &d)
{
    bool nadie = resultado == ivrexa_resultado_NINGUNO;
    if (!nadie && resultado != ivrexa_resultado_ERROR)
        return "";
    std::optional<herramientas::canal_visto> canal = herramientas::mira_canal(d.nombre_ansi);
    std::string nombre = entre_comillas(d.nombre);
    if (!ventana_viva(d.canal))
        return "the server of " + nombre + " is gone, and its window with it";
    if (!canal || !tiene_servidor(*canal))
        return "the service " + nombre + " is no more: its server closed it or counts as dead";
    if (nadie)
        return "the server returned it, or its window does not know the command";
    return std::string("the server returned it") +
           (d.con_ventana() ? "" : ", or an exception escaped from its command function");
}

static int codigo_de(uint32_t resultado)
{
    switch (resultado) {
    case ivrexa_resultado_OK:
        return codigo_HECHO;
    case ivrexa_resultado_NINGUNO:
        return codigo_RESULTADO_NINGUNO;
    case ivrexa_resultado_CANCELADO:
        return codigo_RESULTADO_CANCELADO;
    case ivrexa_resultado_ERROR:
        return codigo_RESULTADO_ERROR;
    default:
        return codigo_RESULTADO_OTRO;
    }
}

static std::string resultado_a_texto(uint32_t resultado)
{
    std::string nombre = herramientas::nombre_resultado(resultado), numero = std::to_string(resultado);
    if (!nombre.empty())
        return nombre + " (" + numero + ")";
    return static_cast<int32_t>(resultado) < 0 ? numero + " (" + std::to_string(static_cast<int32_t>(resultado)) + ")"
                                               : numero;
}

static void di_en_texto(const respuesta &r)
{
    di("result " + resultado_a_texto(r.resultado));
    for (int i = 0; r.resultado == ivrexa_resultado_OK && i < 3; i++)
        di("text" + std::to_string(i + 1) + "  " + entre_comillas(r.textos[i]));
    std::vector<std::vector<std::string>> filas;
    for (const herramientas::valor &v : r.contenido.valores)
        filas.push_back({"value", herramientas::sin_controles(v.nombre), herramientas::nombre_tipo(v.tipo),
                         herramientas::valor_a_texto(v)});
    std::string lineas = en_columnas(filas, "");
    if (!lineas.empty())
        di(lineas.substr(0, lineas.size() - 1));
}

static void di_en_json(const respuesta &r, const peticion &p, const destino &d)
{
    std::string nombre = herramientas::nombre_resultado(r.resultado);
    json j = {{"service", d.nombre}, {"id", p.id}};
    j["result"] = {{"code", r.resultado}, {"name", nombre.empty() ? json(nullptr) : json(nombre)}};
    j["texts"] = {r.textos[0], r.textos[1], r.textos[2]};
    j.update(herramientas::a_json(r.contenido));
    di(herramientas::en_linea(j));
}

static int llama(const opciones &o)
{
    peticion p = lee_peticion(o);
    destino d = busca_destino(o.servicio);
    comprueba_libre(d, o.fuerza);
    if (!d.con_ventana())
        comprueba_desplazado(d, o.fuerza);
    avisa_de_arreglos_anchos(p);
    vela ctrl_c(d);
    cliente yo(d, ctrl_c);
    if (!d.con_ventana())
        yo.espera_latido();
    respuesta r = manda(p, d, ctrl_c);
    if (o.en_json)
        di_en_json(r, p, d);
    else
        di_en_texto(r);
    if (!r.contenido.fallo.empty())
        di_error("note: " + r.contenido.fallo);
    if (con_arreglo_ancho(r.contenido))
        di_error("note: the output has a wide[]; other clients cannot read it, nor what stands behind it");
    std::string porque = pista(r.resultado, d);
    if (!porque.empty())
        di_error("hint: " + porque);
    return codigo_de(r.resultado);
}

void anyade_call(CLI::App &app, trabajo *hazlo)
{
    auto o = std::make_shared<opciones>();
    CLI::App *orden = app.add_subcommand("call", "Runs a command on a service and prints its answer");
    orden->allow_windows_style_options(false); // a text may begin with a slash
    orden->add_option("SERVICE", o->servicio, "name of the service")->required();
    orden->add_option("ID", o->id, "the command's number, 100 and up")->required();
    orden->add_option("NAME:TYPE=VALUE", o->valores, "typed input values, see below");
    orden->add_option("--text1", o->textos[0], "first text, up to 63 characters");
    orden->add_option("--text2", o->textos[1], "second text, up to 255");
    orden->add_option("--text3", o->textos[2], "third text, up to 255");
    orden->add_flag("--front", o->trae, "bring the server's window to the front first");
    orden->add_flag("--back", o->devuelve, "give the foreground back at the end");
    orden->add_flag("--json", o->en_json, "print the answer as one JSON document");
    orden->add_flag("--force", o->fuerza, "although another client is there: wait for its turn, take its place");
    orden->footer(PIE);
    orden->callback([o, hazlo] { *hazlo = [o] { return llama(*o); }; });
}

} // namespace ivrexactl
