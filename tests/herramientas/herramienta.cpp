#include "herramienta.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "comun/lineas.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/util.h"

namespace {

// What a tool writes to one of its outputs, gathered by a thread.
class tubo {
public:
    tubo()
    {
        SECURITY_ATTRIBUTES heredable = {sizeof heredable, nullptr, TRUE};
        CreatePipe(&m_lee, &m_escribe, &heredable, 0);
        SetHandleInformation(m_lee, HANDLE_FLAG_INHERIT, 0);
        const HANDLE yo = GetCurrentProcess();
        DuplicateHandle(yo, m_escribe, yo, &m_propio, 0, FALSE, DUPLICATE_SAME_ACCESS);
    }
    ~tubo()
    {
        suelta_extremo();
        acaba();
        cierra();
        CloseHandle(m_propio);
    }
    HANDLE extremo() const { return m_escribe; }
    void suelta_extremo()
    {
        if (m_escribe != nullptr)
            CloseHandle(m_escribe);
        m_escribe = nullptr;
    }
    void empieza()
    {
        m_hilo = std::thread([this] { lee(); });
    }
    void cierra()
    {
        if (m_lee != nullptr)
            CloseHandle(m_lee);
        m_lee = nullptr;
    }
    void deja_de_leer() { m_basta = true; }
    // The program has ended. What it has started, Wine's desktop for one, may hold its output open: the end comes from us,
    // behind its last words.
    void acaba()
    {
        if (!m_hilo.joinable())
            return;
        DWORD num;
        WriteFile(m_propio, &FIN, 1, &num, nullptr);
        m_hilo.join();
    }
    std::string texto() const
    {
        std::lock_guard<std::mutex> guarda(m_candado);
        return m_texto;
    }

private:
    void lee()
    {
        char trozo[4096];
        DWORD num = 0;
        while (ReadFile(m_lee, trozo, sizeof trozo, &num, nullptr) && num > 0) {
            std::lock_guard<std::mutex> guarda(m_candado);
            const bool es_el_fin = trozo[num - 1] == FIN;
            m_texto.append(trozo, es_el_fin ? num - 1 : num);
            m_texto.erase(std::remove(m_texto.begin(), m_texto.end(), '\r'), m_texto.end());
            if (m_basta)
                return cierra();
            if (es_el_fin)
                return;
        }
    }
    static constexpr char FIN = '\x04';
    HANDLE m_lee = nullptr, m_escribe = nullptr, m_propio = nullptr; // the last one we keep
    mutable std::mutex m_candado;
    std::string m_texto;
    std::atomic<bool> m_basta{false};
    std::thread m_hilo;
};

// As CommandLineToArgvW takes it apart.
std::wstring entre_comillas(const std::string &arg)
{
    std::wstring texto = L"\"";
    size_t barras = 0;
    for (wchar_t c : de_utf8(arg)) {
        if (c == L'"')
            texto.append(barras + 1, L'\\');
        barras = c == L'\\' ? barras + 1 : 0;
        texto += c;
    }
    return texto.append(barras, L'\\') + L"\"";
}

std::string junto_a_nosotros(const std::string &programa)
{
    std::string yo = este_programa();
    return yo.substr(0, yo.find_last_of("\\/") + 1) + programa;
}

// The text of a dialog box that this process shows, for the message of a test that waited in vain.
std::string cajas_de(DWORD pid)
{
    std::string textos;
    for (HWND caja = nullptr; (caja = FindWindowExW(nullptr, caja, L"#32770", nullptr)) != nullptr;) {
        DWORD suyo = 0;
        GetWindowThreadProcessId(caja, &suyo);
        wchar_t titulo[200] = L"", texto[1000] = L"";
        GetWindowTextW(caja, titulo, 200);
        HWND rotulo = FindWindowExW(caja, nullptr, L"Static", nullptr);
        if (rotulo != nullptr)
            SendMessageTimeoutW(rotulo, WM_GETTEXT, 1000, reinterpret_cast<LPARAM>(texto), SMTO_ABORTIFHUNG, 1000,
                                nullptr);
        if (suyo == pid)
            textos += "\nbox: " + a_utf8(titulo) + ": " + a_utf8(texto);
    }
    return textos;
}

} // namespace

struct herramienta::interior {
    tubo salida, error;
    HANDLE proceso = nullptr;
    HANDLE nada = nullptr;    // its input: nothing
    HANDLE trabajo = nullptr; // dies with us, and what is in it
    HANDLE ctrl_c = nullptr;  // event: asks the console's holder to press Ctrl-C
    DWORD pid = 0;

    std::string estado() const
    {
        return "output:\n" + salida.texto() + "\nerror output:\n" + error.texto() + cajas_de(pid);
    }
};

static std::wstring orden_de(const std::vector<std::string> &args, const opciones_herramienta &opciones,
                             const std::string &suceso)
{
    std::wstring orden;
    if (opciones.con_ctrl_c)
        orden = entre_comillas(junto_a_nosotros("consola_propia.exe")) + L" " + entre_comillas(suceso) + L" ";
    orden += entre_comillas(junto_a_nosotros(opciones.programa));
    for (const std::string &arg : args)
        orden += L" " + entre_comillas(arg);
    return orden;
}

// Of ours, which it inherits: set before the start and put back behind it.
class entorno_cambiado {
public:
    explicit entorno_cambiado(const std::map<std::string, std::optional<std::string>> &cambios)
    {
        for (const auto &c : cambios) {
            wchar_t antes[2000];
            DWORD num = GetEnvironmentVariableW(de_utf8(c.first).c_str(), antes, 2000);
            m_antes[c.first] = num > 0 ? std::optional<std::wstring>(std::wstring(antes, num)) : std::nullopt;
            SetEnvironmentVariableW(de_utf8(c.first).c_str(), c.second ? de_utf8(*c.second).c_str() : nullptr);
        }
    }
    ~entorno_cambiado()
    {
        for (const auto &a : m_antes)
            SetEnvironmentVariableW(de_utf8(a.first).c_str(), a.second ? a.second->c_str() : nullptr);
    }

private:
    std::map<std::string, std::optional<std::wstring>> m_antes;
};

herramienta::herramienta(const std::vector<std::string> &args, const opciones_herramienta &opciones, lugar donde)
    : m(new interior)
{
    SECURITY_ATTRIBUTES heredable = {sizeof heredable, nullptr, TRUE};
    std::string suceso = nombre_unico("CtrlC");
    m->ctrl_c = CreateEventA(nullptr, TRUE, FALSE, suceso.c_str());
    m->nada = CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ, &heredable, OPEN_EXISTING, 0, nullptr);
    m->trabajo = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limite = {};
    limite.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(m->trabajo, JobObjectExtendedLimitInformation, &limite, sizeof limite);

    STARTUPINFOW inicio = {};
    inicio.cb = sizeof inicio;
    inicio.dwFlags = STARTF_USESTDHANDLES;
    inicio.hStdInput = m->nada;
    inicio.hStdOutput = m->salida.extremo();
    inicio.hStdError = m->error.extremo();
    PROCESS_INFORMATION hijo = {};
    std::wstring orden = orden_de(args, opciones, suceso);
    entorno_cambiado cambio(opciones.entorno);
    DWORD como = CREATE_SUSPENDED | (opciones.con_ctrl_c ? CREATE_NEW_CONSOLE : 0);
    if (!CreateProcessW(nullptr, &orden[0], nullptr, nullptr, TRUE, como, nullptr, nullptr, &inicio, &hijo)) {
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "cannot start " << a_utf8(orden) << ": " << GetLastError();
        return;
    }
    AssignProcessToJobObject(m->trabajo, hijo.hProcess);
    m->proceso = hijo.hProcess;
    m->pid = hijo.dwProcessId;
    m->salida.suelta_extremo();
    m->error.suelta_extremo();
    if (opciones.sin_lector)
        m->salida.cierra();
    else if (!opciones.con_lector_parado)
        m->salida.empieza();
    m->error.empieza();
    ResumeThread(hijo.hThread);
    CloseHandle(hijo.hThread);
}

herramienta::~herramienta()
{
    mata();
    for (HANDLE h : {m->trabajo, m->proceso, m->nada, m->ctrl_c}) // the job first: it ends what a killed one started
        if (h != nullptr)
            CloseHandle(h);
}

// Waits for a text in one of the outputs; an end of the process ends the wait.
static std::string espera_texto(herramienta::interior *m, const tubo &donde_sale, const std::string &texto, uint32_t ms,
                                lugar donde)
{
    espera_hasta(
        [&] {
            return donde_sale.texto().find(texto) != std::string::npos || m->proceso == nullptr ||
                   WaitForSingleObject(m->proceso, 0) == WAIT_OBJECT_0;
        },
        ms);
    // A process that has ended may have its last words still in the pipe.
    espera_hasta([&] { return donde_sale.texto().find(texto) != std::string::npos; }, 200);
    if (donde_sale.texto().find(texto) == std::string::npos)
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "waited in vain for \"" << texto << "\"; " << m->estado();
    return donde_sale.texto();
}

std::string herramienta::espera_salida(const std::string &texto, uint32_t ms, lugar donde)
{
    return espera_texto(m.get(), m->salida, texto, ms, donde);
}

std::string herramienta::espera_error(const std::string &texto, uint32_t ms, lugar donde)
{
    return espera_texto(m.get(), m->error, texto, ms, donde);
}

std::string herramienta::salida() const
{
    return m->salida.texto();
}

std::string herramienta::error() const
{
    return m->error.texto();
}

uint32_t herramienta::espera_fin(uint32_t ms, lugar donde)
{
    DWORD codigo = STILL_ACTIVE;
    if (m->proceso == nullptr)
        return codigo;
    if (WaitForSingleObject(m->proceso, ms) != WAIT_OBJECT_0) {
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "still runs after " << ms << " ms; " << m->estado();
        mata();
        return codigo;
    }
    m->salida.acaba();
    m->error.acaba();
    GetExitCodeProcess(m->proceso, &codigo);
    return codigo;
}

void herramienta::pulsa_ctrl_c()
{
    SetEvent(m->ctrl_c);
}

void herramienta::cierra_salida()
{
    m->salida.deja_de_leer();
}

void herramienta::mata()
{
    if (m->trabajo != nullptr)
        TerminateJobObject(m->trabajo, 9);
    if (m->proceso != nullptr)
        WaitForSingleObject(m->proceso, 5000);
}

uint32_t herramienta::pid() const
{
    return m->pid;
}

salida_de ejecuta_ctl(const std::vector<std::string> &args, uint32_t ms, const opciones_herramienta &opciones,
                      lugar donde)
{
    herramienta h(args, opciones, donde);
    uint32_t codigo = h.espera_fin(ms, donde);
    return {codigo, h.salida(), h.error()};
}

std::vector<std::string> en_lineas(const std::string &texto)
{
    std::vector<std::string> lineas;
    for (size_t sitio = 0; sitio < texto.size();) {
        size_t fin = std::min(texto.find('\n', sitio), texto.size());
        lineas.push_back(texto.substr(sitio, fin - sitio));
        sitio = fin + 1;
    }
    return lineas;
}
