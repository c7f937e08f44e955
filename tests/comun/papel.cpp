#include "papel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include <gtest/gtest.h>

#include "cerrojo.h"
#include "sistema.h"

namespace {

constexpr uint32_t papel_SALIDA_MATADO = 9;
constexpr DWORD papel_ESPERA_LECTOR_MS = 5000; // for the rest of the output of a child that has ended

} // namespace

// Shared with the thread that reads the child's stdout. The fields above `candado` are the test's thread's
// alone.
struct papel::interior {
    std::string nombre;
    HANDLE proceso = nullptr;
    HANDLE hilo = nullptr;    // its main thread
    HANDLE entrada = nullptr; // our end of its stdin
    HANDLE hilo_lector = nullptr;
    DWORD pid = 0;
    bool parado_al_nacer = false;
    bool fin_contado = false; // the test has been told the exit code, or chose it

    cerrojo candado;
    CONDITION_VARIABLE novedad = CONDITION_VARIABLE_INIT;
    std::deque<std::string> lineas;
    std::deque<datos_informe> informes;
    std::vector<std::string> fallos; // expectations that failed in the role itself
    bool cerrado = false;            // its stdout is at its end

    HANDLE salida = nullptr; // our end of its stdout; the reader's alone once that runs
    bool codificado = true;  // what it writes is a role's lines

    ~interior();
    void recibe(std::string linea);
    void lee_salida();
    bool vive() const { return proceso != nullptr && WaitForSingleObject(proceso, 0) == WAIT_TIMEOUT; }
    std::string estado();
};

namespace {

void cierra(HANDLE *manejador)
{
    if (*manejador != nullptr)
        CloseHandle(*manejador);
    *manejador = nullptr;
}

datos_informe lee_linea_de_informe(const std::string &campos)
{
    datos_informe i;
    size_t uno = campos.find('|');
    size_t dos = uno == std::string::npos ? uno : campos.find('|', uno + 1);
    i.ajeno = dos == std::string::npos || campos[0] == '?';
    i.texto = dos == std::string::npos ? campos : campos.substr(dos + 1);
    if (i.ajeno)
        return i;
    i.modulo = campos.substr(0, uno);
    i.linea = static_cast<uint32_t>(strtoul(campos.c_str() + uno + 1, nullptr, 10));
    i.expresion = i.texto;
    return i;
}

// One job holds all children: it dies with this process, and they with it.
HANDLE trabajo()
{
    static HANDLE unico = [] {
        HANDLE nuevo = CreateJobObjectA(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limites = {};
        limites.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(nuevo, JobObjectExtendedLimitInformation, &limites, sizeof limites);
        return nuevo;
    }();
    return unico;
}

struct sin_mayusculas {
    bool operator()(const std::string &a, const std::string &b) const { return lstrcmpiA(a.c_str(), b.c_str()) < 0; }
};

// This process's environment with the changes, as CreateProcessA wants it.
std::string bloque_de_entorno(const opciones_papel &opciones)
{
    std::map<std::string, std::string, sin_mayusculas> variables;
    char *todas = GetEnvironmentStringsA();
    for (const char *p = todas; *p != '\0'; p += strlen(p) + 1) {
        std::string linea = p;
        size_t igual = linea.find('=', 1); // names may begin with '='
        if (igual != std::string::npos)
            variables[linea.substr(0, igual)] = linea.substr(igual + 1);
    }
    FreeEnvironmentStringsA(todas);
    for (const auto &[nombre, valor] : opciones.entorno) {
        variables.erase(nombre);
        if (valor)
            variables[nombre] = *valor;
    }
    std::string bloque;
    for (const auto &[nombre, valor] : variables)
        bloque += nombre + "=" + valor + '\0';
    return bloque + '\0';
}

// By the rules of the Microsoft C run-time: backslashes count only before a quotation mark.
std::string entrecomilla(const std::string &arg)
{
    std::string resultado = "\"";
    size_t barras = 0;
    for (char c : arg) {
        if (c == '"')
            resultado.append(barras + 1, '\\');
        barras = c == '\\' ? barras + 1 : 0;
        resultado += c;
    }
    return resultado.append(barras, '\\') + "\"";
}

std::string ruta_de(const std::string &programa)
{
    if (programa.empty())
        return este_programa();
    if (programa.find_first_of("\\/") != std::string::npos)
        return programa;
    std::string nuestra = este_programa();
    return nuestra.substr(0, nuestra.find_last_of("\\/") + 1) + programa;
}

// A pipe whose one end a child inherits: its reading end for its stdin, the writing one for its stdout.
void crea_tubo(HANDLE *lectura, HANDLE *escritura, bool hereda_lectura)
{
    CreatePipe(lectura, escritura, nullptr, 65536);
    SetHandleInformation(hereda_lectura ? *lectura : *escritura, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
}

HANDLE duplica_error_estandar()
{
    HANDLE copia = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetStdHandle(STD_ERROR_HANDLE), GetCurrentProcess(), &copia, 0, TRUE,
                    DUPLICATE_SAME_ACCESS);
    return copia;
}

} // namespace

papel::interior::~interior()
{
    cierra(&proceso);
    cierra(&hilo);
    cierra(&entrada);
    cierra(&hilo_lector);
    cierra(&salida);
}

void papel::interior::recibe(std::string linea)
{
    const std::string informe = "INFORME ", fallo = "FALLO ";
    if (!linea.empty() && linea.back() == '\r')
        linea.pop_back();
    std::string texto = codificado ? descodifica(linea) : linea;
    std::lock_guard<cerrojo> guarda(candado);
    if (texto.compare(0, informe.size(), informe) == 0)
        informes.push_back(lee_linea_de_informe(texto.substr(informe.size())));
    else if (texto.compare(0, fallo.size(), fallo) == 0)
        fallos.push_back(texto.substr(fallo.size()));
    else
        lineas.push_back(texto);
    WakeAllConditionVariable(&novedad);
}

void papel::interior::lee_salida()
{
    std::string pendiente;
    char trozo[4096];
    DWORD num = 0;
    while (ReadFile(salida, trozo, sizeof trozo, &num, nullptr) && num != 0) {
        pendiente.append(trozo, num);
        for (size_t fin; (fin = pendiente.find('\n')) != std::string::npos; pendiente.erase(0, fin + 1))
            recibe(pendiente.substr(0, fin));
    }
    if (!pendiente.empty())
        recibe(pendiente);
    std::lock_guard<cerrojo> guarda(candado);
    cerrado = true;
    WakeAllConditionVariable(&novedad);
}

// For failure messages: how it goes, and what it has said.
std::string papel::interior::estado()
{
    DWORD codigo = 0;
    if (proceso != nullptr)
        GetExitCodeProcess(proceso, &codigo);
    std::string texto = proceso == nullptr ? "it was not started"
                        : vive()           ? "it still runs"
                                           : "it ended with code " + std::to_string(codigo);
    std::lock_guard<cerrojo> guarda(candado);
    texto += lineas.empty() ? "; no line of it is waiting" : "; lines of it that nobody took:";
    for (const std::string &linea : lineas)
        texto += "\n    " + linea;
    for (const datos_informe &i : informes)
        texto += "\n    its report " + describe_informe(i);
    for (const std::string &fallo : fallos)
        texto += "\n    its failure " + fallo;
    return texto;
}

papel::papel(std::shared_ptr<interior> i) : m_i(std::move(i)) {}
papel::papel(papel &&) noexcept = default;

papel &papel::operator=(papel &&otro) noexcept
{
    if (this != &otro) {
        termina();
        m_i = std::move(otro.m_i);
    }
    return *this;
}

papel::~papel()
{
    termina();
}

void papel::termina()
{
    if (!m_i)
        return;
    if (m_i->vive())
        mata();
    if (m_i->hilo_lector != nullptr)
        WaitForSingleObject(m_i->hilo_lector, papel_ESPERA_LECTOR_MS);
    DWORD codigo = 0;
    if (m_i->proceso != nullptr)
        GetExitCodeProcess(m_i->proceso, &codigo);
    if (codigo != 0 && !m_i->fin_contado)
        ADD_FAILURE() << "role \"" << m_i->nombre << "\" ended by itself: " << m_i->estado();
    while (std::optional<datos_informe> i = toma_informe(0))
        ADD_FAILURE() << "role \"" << m_i->nombre << "\" made a report that nobody expected: " << describe_informe(*i);
    for (const std::string &fallo : m_i->fallos)
        ADD_FAILURE() << "in role \"" << m_i->nombre << "\": " << fallo;
    m_i.reset();
}

void papel::di(const std::string &linea, lugar donde)
{
    std::string cable = codifica_linea(linea) + "\n";
    DWORD num = 0;
    if (m_i->entrada == nullptr ||
        !WriteFile(m_i->entrada, cable.data(), static_cast<DWORD>(cable.size()), &num, nullptr))
        ADD_FAILURE_AT(donde.fichero, donde.linea)
            << "role \"" << m_i->nombre << "\" does not take the line \"" << linea << "\": " << m_i->estado();
}

std::optional<std::string> papel::busca_linea(const std::string &prefijo, uint32_t ms)
{
    uint64_t limite = GetTickCount64() + ms;
    auto empieza = [&](const std::string &linea) { return linea.compare(0, prefijo.size(), prefijo) == 0; };
    std::lock_guard<cerrojo> guarda(m_i->candado);
    for (;;) {
        auto primera = std::find_if(m_i->lineas.begin(), m_i->lineas.end(), empieza);
        if (primera != m_i->lineas.end()) {
            std::string linea = *primera;
            m_i->lineas.erase(primera);
            return linea;
        }
        if (m_i->cerrado || !m_i->candado.espera_aviso(&m_i->novedad, limite))
            return std::nullopt;
    }
}

std::string papel::espera_linea(const std::string &prefijo, uint32_t ms, lugar donde)
{
    if (std::optional<std::string> linea = busca_linea(prefijo, ms))
        return *linea;
    ADD_FAILURE_AT(donde.fichero, donde.linea)
        << "role \"" << m_i->nombre << "\" did not say \"" << prefijo << "\" within " << ms << " ms: " << m_i->estado();
    return "";
}

std::vector<std::string> papel::lineas() const
{
    std::lock_guard<cerrojo> guarda(m_i->candado);
    return {m_i->lineas.begin(), m_i->lineas.end()};
}

uint32_t papel::espera_fin(uint32_t ms, lugar donde)
{
    DWORD codigo = STILL_ACTIVE;
    m_i->fin_contado = true;
    if (m_i->proceso == nullptr || WaitForSingleObject(m_i->proceso, ms) != WAIT_OBJECT_0) {
        ADD_FAILURE_AT(donde.fichero, donde.linea)
            << "role \"" << m_i->nombre << "\" did not end within " << ms << " ms: " << m_i->estado();
        return codigo;
    }
    WaitForSingleObject(m_i->hilo_lector, papel_ESPERA_LECTOR_MS); // all it said is here now
    GetExitCodeProcess(m_i->proceso, &codigo);
    return codigo;
}

void papel::cierra_entrada()
{
    cierra(&m_i->entrada);
}

void papel::mata()
{
    if (m_i->proceso == nullptr)
        return;
    m_i->fin_contado = m_i->vive() || m_i->fin_contado;
    TerminateProcess(m_i->proceso, papel_SALIDA_MATADO);
    if (WaitForSingleObject(m_i->proceso, 10000) != WAIT_OBJECT_0)
        ADD_FAILURE() << "role \"" << m_i->nombre << "\" cannot be killed";
}

static void llama_ntdll(const char *nombre, HANDLE proceso)
{
    using funcion = LONG(NTAPI *)(HANDLE);
    void *direccion = reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("ntdll.dll"), nombre));
    if (direccion == nullptr || reinterpret_cast<funcion>(direccion)(proceso) != 0)
        ADD_FAILURE() << nombre << " failed";
}

void papel::suspende()
{
    llama_ntdll("NtSuspendProcess", m_i->proceso);
}

void papel::reanuda()
{
    if (!m_i->parado_al_nacer) {
        llama_ntdll("NtResumeProcess", m_i->proceso);
        return;
    }
    m_i->parado_al_nacer = false;
    ResumeThread(m_i->hilo);
}

bool papel::vive() const
{
    return m_i->vive();
}

uint32_t papel::pid() const
{
    return m_i->pid;
}

std::optional<datos_informe> papel::toma_informe(uint32_t ms)
{
    uint64_t limite = GetTickCount64() + ms;
    std::lock_guard<cerrojo> guarda(m_i->candado);
    while (m_i->informes.empty()) {
        if (m_i->cerrado || !m_i->candado.espera_aviso(&m_i->novedad, limite))
            return std::nullopt;
    }
    datos_informe primero = m_i->informes.front();
    m_i->informes.pop_front();
    return primero;
}

uint32_t papel::num_informes() const
{
    std::lock_guard<cerrojo> guarda(m_i->candado);
    return static_cast<uint32_t>(m_i->informes.size());
}

papel papel::arranca(const std::string &nombre, const std::string &programa, const std::string &args,
                     const opciones_papel &opciones, bool codificado, lugar donde)
{
    auto i = std::make_shared<interior>();
    i->nombre = nombre;
    i->codificado = codificado;
    i->parado_al_nacer = opciones.suspendido;

    STARTUPINFOA inicio = {};
    inicio.cb = sizeof inicio;
    inicio.dwFlags = STARTF_USESTDHANDLES;
    crea_tubo(&inicio.hStdInput, &i->entrada, true);
    crea_tubo(&i->salida, &inicio.hStdOutput, false);
    inicio.hStdError = duplica_error_estandar();

    // Born suspended, so that it is in the job before it can start processes; detached, so that no console is
    // made.
    std::string orden = entrecomilla(programa) + args, entorno = bloque_de_entorno(opciones);
    PROCESS_INFORMATION hijo = {};
    BOOL arrancado = CreateProcessA(programa.c_str(), &orden[0], nullptr, nullptr, TRUE,
                                    CREATE_SUSPENDED | DETACHED_PROCESS, &entorno[0], nullptr, &inicio, &hijo);
    DWORD error = GetLastError();
    cierra(&inicio.hStdInput);
    cierra(&inicio.hStdOutput);
    cierra(&inicio.hStdError);
    if (!arrancado) {
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "cannot start " << orden << ": error " << error;
        i->cerrado = true;
        return papel(i);
    }
    i->proceso = hijo.hProcess;
    i->hilo = hijo.hThread;
    i->pid = hijo.dwProcessId;
    AssignProcessToJobObject(trabajo(), hijo.hProcess);
    if (!opciones.suspendido)
        ResumeThread(hijo.hThread);

    auto lee = [](void *dato) -> DWORD {
        std::unique_ptr<std::shared_ptr<interior>> yo(static_cast<std::shared_ptr<interior> *>(dato));
        (*yo)->lee_salida();
        return 0;
    };
    i->hilo_lector = CreateThread(nullptr, 0, lee, new std::shared_ptr<interior>(i), 0, nullptr);
    return papel(i);
}

papel arranca_papel(const std::string &nombre, const argumentos &args, const opciones_papel &opciones, lugar donde)
{
    std::string orden = " --papel=" + nombre + " --padre=" + std::to_string(GetCurrentProcessId()) +
                        " --limite=" + std::to_string(opciones.limite_s);
    for (const std::string &arg : args)
        orden += " " + codifica_argumento(arg);
    papel p = papel::arranca(nombre, ruta_de(opciones.programa), orden, opciones, true, donde);
    if (opciones.espera_listo && !opciones.suspendido && p.m_i->proceso != nullptr)
        p.espera_linea("LISTO", opciones.listo_ms, donde);
    return p;
}

papel arranca_programa(const std::string &programa, const argumentos &args, const opciones_papel &opciones, lugar donde)
{
    std::string orden;
    for (const std::string &arg : args)
        orden += " " + entrecomilla(arg);
    return papel::arranca(programa, ruta_de(programa), orden, opciones, false, donde);
}

std::string este_programa()
{
    char ruta[MAX_PATH];
    DWORD num = GetModuleFileNameA(nullptr, ruta, sizeof ruta);
    return std::string(ruta, num);
}

void comprueba_informe_de(papel &p, const char *modulo, const char *expresion, lugar donde)
{
    std::optional<datos_informe> i = p.toma_informe(5000);
    if (!i)
        ADD_FAILURE_AT(donde.fichero, donde.linea)
            << "the role made no report; expected " << modulo << ": \"" << expresion << "\"";
    else if (i->ajeno || i->modulo != modulo || i->expresion != expresion)
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "expected the role's report " << modulo << ": \"" << expresion
                                                   << "\"\n  but got " << describe_informe(*i);
}
