// The window system of the stand-in, and the odds and ends.
#include "sustituto.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include "interno.h"
#include "iv_reg.h"

sustituto::programa sustituto::este_programa;

namespace {

const size_t MAX_TEXTOS = 64; // of reports, kept

std::vector<std::string> s_informes;
size_t s_num_informes = 0;
std::vector<sustituto::mensaje> s_mensajes;
std::function<void(uint32_t)> s_al_dormir;
std::function<int64_t(const sustituto::mensaje &)> s_al_enviar;
std::function<bool(uint64_t)> s_ventana_viva;
uint32_t s_error = 0;
std::vector<void *> s_por_hilo; // there is one thread
volatile size_t s_leidos = 0;   // so that a traced text is really read

sustituto::mensaje mensaje_de(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    return {reinterpret_cast<uint64_t>(hwnd), msg, wparam, lparam};
}

// "Error in <module> - lin <n>\n\nExpr: <expression>" without the line, which changes with every edit.
int muestra_informe(HWND, LPCSTR texto, LPCSTR titulo, UINT)
{
    s_num_informes++;
    if (s_informes.size() >= MAX_TEXTOS)
        return 1;
    const std::string t = texto;
    const std::string antes = "Error in ", medio = " - lin ", detras = "\n\nExpr: ";
    size_t fin_modulo = t.find(medio);
    size_t expresion = t.find(detras);
    interno::exige(strcmp(titulo, "Assert ivrexa") == 0 && t.compare(0, antes.size(), antes) == 0 &&
                       fin_modulo != std::string::npos && expresion != std::string::npos,
                   "a box that is no report");
    s_informes.push_back(t.substr(antes.size(), fin_modulo - antes.size()) + ": " +
                         t.substr(expresion + detras.size()));
    return 1;
}

int compone(LPSTR destino, LPCSTR formato, ...)
{
    va_list argumentos;
    va_start(argumentos, formato);
    int n = vsnprintf(destino, 1024, formato, argumentos); // the real one never writes more
    va_end(argumentos);
    return n;
}

UINT registra_mensaje(LPCSTR nombre)
{
    return 0xC000 + static_cast<UINT>(strlen(nombre));
}

LONG_PTR cambia_ventana(HWND, int, LONG_PTR)
{
    return 0;
}

LRESULT llama_procedimiento(WNDPROC, HWND, UINT, WPARAM, LPARAM)
{
    return 0;
}

BOOL anuncia(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    s_mensajes.push_back(mensaje_de(hwnd, msg, wparam, lparam));
    return TRUE;
}

LRESULT envia(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    return s_al_enviar ? s_al_enviar(mensaje_de(hwnd, msg, wparam, lparam)) : 0;
}

void pide_fin(int) {}

BOOL es_ventana(HWND hwnd)
{
    return s_ventana_viva && s_ventana_viva(reinterpret_cast<uint64_t>(hwnd)) ? TRUE : FALSE;
}

HWND ventana_activa()
{
    return nullptr;
}

BOOL pon_delante(HWND)
{
    return TRUE;
}

struct llamada {
    const char *nombre;
    FARPROC funcion;
};

template <typename funcion>
FARPROC direccion(funcion *f)
{
    return reinterpret_cast<FARPROC>(f);
}

const llamada LLAMADAS[] = {
    {"MessageBoxA", direccion(muestra_informe)},
    {"wsprintfA", direccion(compone)},
    {"RegisterWindowMessageA", direccion(registra_mensaje)},
    {"SetWindowLongPtrW", direccion(cambia_ventana)},
    {"CallWindowProcW", direccion(llama_procedimiento)},
    {"PostMessageW", direccion(anuncia)},
    {"SendMessageW", direccion(envia)},
    {"PostQuitMessage", direccion(pide_fin)},
    {"IsWindow", direccion(es_ventana)},
    {"GetActiveWindow", direccion(ventana_activa)},
    {"SetForegroundWindow", direccion(pon_delante)},
};

} // namespace

HMODULE LoadLibraryA(LPCSTR)
{
    return const_cast<llamada *>(LLAMADAS);
}

FARPROC GetProcAddress(HMODULE, LPCSTR nombre)
{
    for (const llamada &l : LLAMADAS)
        if (strcmp(l.nombre, nombre) == 0)
            return l.funcion;
    interno::exige(false, nombre);
    return nullptr;
}

DWORD GetLastError(void)
{
    return s_error;
}

DWORD GetTickCount(void)
{
    return 1;
}

DWORD GetCurrentThreadId(void)
{
    return 1;
}

DWORD GetEnvironmentVariableA(LPCSTR nombre, LPSTR, DWORD)
{
    return getenv(nombre) != nullptr ? 1 : 0;
}

void Sleep(DWORD ms)
{
    if (s_al_dormir)
        s_al_dormir(ms);
}

void OutputDebugStringA(LPCSTR texto)
{
    s_leidos = s_leidos + static_cast<size_t>(lstrlenA(texto));
}

void OutputDebugStringW(LPCWSTR texto)
{
    s_leidos = s_leidos + static_cast<size_t>(lstrlenW(texto));
}

// ---- The registration, as far as the exchange asks for it

int16_t iv_reg_dame_servicio_solicitado(const char *, uint32_t *ind_datServ, ivrexa_hwnd *hwnd_programa)
{
    if (!sustituto::este_programa.es_cliente)
        return FALSO;
    *ind_datServ = sustituto::este_programa.ind_datServ;
    *hwnd_programa = sustituto::este_programa.hwnd;
    return CIERTO;
}

int16_t iv_reg_esta_cerrando(void)
{
    return sustituto::este_programa.cierra ? CIERTO : FALSO;
}

void iv_reg_monitor_deja_ventana(WNDPROC, WNDPROC) {}

// ---- For the tests

const std::vector<std::string> &sustituto::informes()
{
    return s_informes;
}

size_t sustituto::num_informes()
{
    return s_num_informes;
}

void sustituto::olvida_informes()
{
    s_informes.clear();
    s_num_informes = 0;
}

const std::vector<sustituto::mensaje> &sustituto::mensajes()
{
    return s_mensajes;
}

void sustituto::olvida_mensajes()
{
    s_mensajes.clear();
}

void sustituto::al_dormir(std::function<void(uint32_t)> accion)
{
    s_al_dormir = std::move(accion);
}

void sustituto::al_enviar(std::function<int64_t(const mensaje &)> accion)
{
    s_al_enviar = std::move(accion);
}

void sustituto::ventanas_vivas(std::function<bool(uint64_t)> viva)
{
    s_ventana_viva = std::move(viva);
}

DWORD TlsAlloc()
{
    s_por_hilo.push_back(nullptr);
    return static_cast<DWORD>(s_por_hilo.size() - 1);
}

BOOL TlsFree(DWORD)
{
    return TRUE;
}

PVOID TlsGetValue(DWORD indice)
{
    return s_por_hilo.at(indice);
}

BOOL TlsSetValue(DWORD indice, PVOID valor)
{
    s_por_hilo.at(indice) = valor;
    return TRUE;
}

void sustituto::reinicia()
{
    interno::reinicia_monton();
    interno::reinicia_objetos();
    interno::reinicia_ventana();
}

void interno::exige(bool cierto, const char *mensaje)
{
    if (cierto)
        return;
    fprintf(stderr, "stand-in: %s\n", mensaje);
    abort();
}

void interno::pon_error(uint32_t error)
{
    s_error = error;
}

void interno::reinicia_ventana()
{
    sustituto::olvida_informes();
    s_mensajes.clear();
    s_al_dormir = nullptr;
    s_al_enviar = nullptr;
    s_ventana_viva = nullptr;
    sustituto::este_programa = {};
}
