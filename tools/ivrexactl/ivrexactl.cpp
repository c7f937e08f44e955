// ivrexactl.cpp - ivrexactl: looks at a desktop's services, runs commands on them, and says what is wrong.
#include "orden.h"

#include <cstdio>
#include <sstream>
#include <vector>

#include <shellapi.h>

#include "comun/texto.h"

namespace ivrexactl {

static HANDLE s_fin;
static UINT s_pagina_de_antes; // 0: no console

// A reader that has gone, as `head` has after its lines, is no signal here: the write fails.
void di(const std::string &utf8)
{
    std::string linea = utf8 + "\n";
    if (fwrite(linea.data(), 1, linea.size(), stdout) != linea.size() || fflush(stdout) != 0)
        throw fallo(codigo_NO_SE_ESCRIBE, "the output cannot be written any more");
}

void di_error(const std::string &utf8)
{
    fwrite(utf8.data(), 1, utf8.size(), stderr);
    fputc('\n', stderr);
    fflush(stderr);
}

void toma_consola()
{
    s_pagina_de_antes = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
}

void devuelve_consola()
{
    if (s_pagina_de_antes != 0)
        SetConsoleOutputCP(s_pagina_de_antes);
}

// Where the console closes, the system ends the process once this returns: what was asked for is left its time.
static BOOL WINAPI pide_fin(DWORD que)
{
    SetEvent(s_fin);
    if (que != CTRL_C_EVENT && que != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

void atiende_fin()
{
    s_fin = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(pide_fin, TRUE);
}

HANDLE evento_fin()
{
    return s_fin;
}

bool espera_fin(uint32_t ms)
{
    return WaitForSingleObject(s_fin, ms) == WAIT_OBJECT_0;
}

// In the order that CLI11 takes a list in: the last one first.
static std::vector<std::string> argumentos()
{
    int num = 0;
    wchar_t **anchos = CommandLineToArgvW(GetCommandLineW(), &num);
    std::vector<std::string> todos;
    for (int i = num - 1; i > 0; i--)
        todos.push_back(herramientas::de_ancho(anchos[i]));
    LocalFree(anchos);
    return todos;
}

static std::string nombre_entero(const CLI::App &app)
{
    std::vector<CLI::App *> pedidas = app.get_subcommands();
    return pedidas.empty() ? "ivrexactl" : "ivrexactl " + pedidas.front()->get_name();
}

// Help and version come as errors, too.
static int responde(const CLI::App &app, const CLI::ParseError &e)
{
    std::ostringstream texto, nada;
    if (app.exit(e, texto, nada) == 0) {
        std::string dicho = texto.str();
        di(dicho.substr(0, dicho.find_last_not_of('\n') + 1));
        return codigo_HECHO;
    }
    std::vector<std::string> sobran = app.remaining();
    std::string que = app.get_subcommands().empty() && !sobran.empty()
                          ? "there is no subcommand " + herramientas::entre_comillas(sobran.front())
                          : herramientas::sin_controles(e.what());
    std::string quien = nombre_entero(app);
    di_error(quien + ": " + que + "; '" + quien + " --help' says more");
    return codigo_USO;
}

static int ejecuta()
{
    CLI::App app("Looks at the services of this desktop, runs commands on them, and says what is wrong.", "ivrexactl");
    app.require_subcommand(1);
    app.set_version_flag("--version", IVREXACTL_VERSION);
    app.get_formatter()->column_width(34);
    trabajo hazlo;
    anyade_status(app, &hazlo);
    anyade_list(app, &hazlo);
    anyade_has(app, &hazlo);
    anyade_call(app, &hazlo);
    anyade_end(app, &hazlo);
    anyade_monitor(app, &hazlo);
    anyade_trace(app, &hazlo);
    anyade_doctor(app, &hazlo);
    try {
        try {
            app.parse(argumentos());
        } catch (const CLI::ParseError &e) {
            return responde(app, e);
        }
        return hazlo();
    } catch (const fallo &f) {
        di_error(nombre_entero(app) + ": " + f.what());
        return f.que();
    }
}

static int ejecuta_entero()
{
    try {
        return ejecuta();
    } catch (const std::exception &e) {
        di_error(std::string("ivrexactl: ") + e.what());
        return codigo_INTERNO;
    }
}

} // namespace ivrexactl

int main()
{
    ivrexactl::atiende_fin(); // first: what is asked for meanwhile must not end us as we stand
    ivrexactl::toma_consola();
    int codigo = ivrexactl::ejecuta_entero();
    ivrexactl::devuelve_consola();
    return codigo;
}
