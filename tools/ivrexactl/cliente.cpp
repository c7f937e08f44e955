#include "cliente.h"

#include <algorithm>

#include "comun/nombres.h"
#include "comun/texto.h"

#include "cerrojo.h"
#include "entrada.h"
#include "ivrexa.h"
#include "orden.h"

namespace ivrexactl {

using herramientas::entre_comillas;

static const uint32_t PLAZO_LATIDO_MS = 5000;
static const uint32_t GRACIA_MS = 1000;
static const uint32_t CIERRE_MS = 4000; // of a session: the library's threads alone take a second
static const char *const TERMINADO_ANTES = "ended before the command was sent";

// ---- The service

bool ventana_viva(const herramientas::canal_visto &canal)
{
    return canal.hwnd_servidor == 0 || IsWindow(reinterpret_cast<HWND>(canal.hwnd_servidor));
}

destino busca_destino(const std::string &nombre_utf8)
{
    destino d;
    d.nombre = nombre_utf8;
    d.nombre_ansi = lee_nombre_servicio(nombre_utf8);
    std::optional<herramientas::canal_visto> canal = herramientas::mira_canal(d.nombre_ansi);
    if (!canal || !tiene_servidor(*canal))
        throw fallo(codigo_NO_HAY, "there is no service " + entre_comillas(d.nombre) +
                                       "; 'ivrexactl list' shows those that there are");
    d.canal = *canal;
    if (!ventana_viva(d.canal))
        throw fallo(codigo_NO_HAY,
                    "the server of " + entre_comillas(d.nombre) + " is gone, and its window with it; start it again");
    return d;
}

// ---- The registry

template <size_t N>
static std::string texto_de(const char (&campo)[N])
{
    return std::string(campo, strnlen(campo, N));
}

// Both of these show a box in the program that finds no room.
static void comprueba_sitio(const iv_mcbase_t &registro, const std::string &programa, const std::string &servicio)
{
    auto es_nuestro = [&](const iv_mcbase_programa_t &p) {
        return p.nombre[0] == '\0' || (p.hwnd == 0 && texto_de(p.nombre) == programa);
    };
    auto es_suyo = [&](const datServ &s) { return s.nombre[0] == '\0' || texto_de(s.nombre) == servicio; };
    if (std::none_of(std::begin(registro.programas), std::end(registro.programas), es_nuestro))
        throw fallo(codigo_NO_HAY, "the desktop has its 16 programs, and no entry is free; 'ivrexactl doctor' lists "
                                   "those of dead programs");
    if (std::none_of(std::begin(registro.servicios), std::end(registro.servicios), es_suyo))
        throw fallo(codigo_NO_HAY, "the service table has its 32 services, and " +
                                       entre_comillas(herramientas::de_ansi(servicio)) + " is not among them");
}

static const iv_mcbase_programa_t *busca_programa(const iv_mcbase_t &registro, const std::string &nombre)
{
    for (const iv_mcbase_programa_t &p : registro.programas)
        if (p.hwnd == 0 && texto_de(p.nombre) == nombre)
            return &p;
    return nullptr;
}

static const datServ *busca_servicio(const iv_mcbase_t &registro, const std::string &nombre)
{
    for (const datServ &s : registro.servicios)
        if (texto_de(s.nombre) == nombre)
            return &s;
    return nullptr;
}

// ---- The client that is there

// The entry that the service's slot for a client names; a slot that nobody ever had names the first one.
static const iv_mcbase_programa_t *en_el_sitio(const iv_mcbase_t &registro, const destino &d)
{
    const datServ *servicio = busca_servicio(registro, d.nombre_ansi);
    if (servicio == nullptr || servicio->id_programa_cliente >= iv_mcbase_NUM_MAX_PROGRAMAS)
        return nullptr;
    const iv_mcbase_programa_t *p = &registro.programas[servicio->id_programa_cliente];
    return p->nombre[0] != '\0' && p->es_cliente != 0 ? p : nullptr;
}

static bool late_el_que_esta(const destino &d, uint32_t contador)
{
    for (uint64_t limite = GetTickCount64() + herramientas::SIN_LATIDO_MS; GetTickCount64() < limite;) {
        iv_mcbase_t registro = registro_ahora();
        const iv_mcbase_programa_t *p = en_el_sitio(registro, d);
        if (p != nullptr && p->contador_vivo != contador)
            return true;
        if (espera_fin(20))
            throw fallo(codigo_OCUPADO, TERMINADO_ANTES);
    }
    return false;
}

void comprueba_desplazado(const destino &d, bool fuerza)
{
    iv_mcbase_t registro = registro_ahora();
    const iv_mcbase_programa_t *p = en_el_sitio(registro, d);
    if (p == nullptr || !late_el_que_esta(d, p->contador_vivo))
        return;
    std::string quien = entre_comillas(herramientas::de_ansi(texto_de(p->nombre)));
    std::string efecto =
        "each of its commands may end that server, until it has closed its session and registered again";
    if (!fuerza)
        throw fallo(codigo_OCUPADO, quien + " has the client slot of " + entre_comillas(d.nombre) +
                                        ", whose server has no window; if it uses that service and loses the slot, " +
                                        efecto + ". --force takes it");
    di_error("note: " + quien + " loses the client slot: if it uses " + entre_comillas(d.nombre) + ", " + efecto);
}

// ---- What is said

static void di_lo_que_toma(const iv_mcbase_t &registro, const destino &d)
{
    di_error("note: takes a program entry and the client slot of " + entre_comillas(d.nombre) + " while it runs");
    if (busca_servicio(registro, d.nombre_ansi) == nullptr)
        di_error("note: the service table did not name " + entre_comillas(d.nombre) +
                 ", as after the start of a monitor; now it does" +
                 (d.con_ventana() ? "" : ", but a command that takes more than 2 s may end with ERROR"));
}

// ---- Registration

// Two programs without a window and with one path share an entry, and the first that ends clears it for both; a path of
// each process's own would fill the table with what killed ones leave. So those that run at the same time are numbered.
static std::string toma_nombre(HANDLE *turno)
{
    char ruta[MAX_PATH] = "";
    DWORD largo = GetModuleFileNameA(nullptr, ruta, MAX_PATH);
    std::string programa = largo > 0 && largo < 200 ? ruta : "ivrexactl.exe";
    for (int n = 1; n <= iv_mcbase_NUM_MAX_PROGRAMAS; n++) {
        *turno = CreateMutexA(nullptr, FALSE, ("ivrexactl.client." + std::to_string(n)).c_str());
        if (*turno != nullptr && WaitForSingleObject(*turno, 0) != WAIT_TIMEOUT)
            return n == 1 ? programa : programa + " " + std::to_string(n);
        CloseHandle(*turno);
    }
    *turno = nullptr;
    throw fallo(codigo_OCUPADO, "16 others of this program are at work");
}

// The library opens the registry before it is locked here: as it does so, it lets go a hold of this very thread's.
static void abre_registro()
{
    char nombre[iv_mcbase_TAM_NOMBRE_SERVICIO];
    ivrexa_hay_servicio_registrado_empiece_por("\x01", nombre, nullptr);
}

// Between our look at the tables and the registration nobody takes the last place: it is done under the lock. What is
// said is said without it: others must not wait for who reads it.
cliente::cliente(const destino &d, vela &ctrl_c) : m_nombre(toma_nombre(&m_turno))
{
    {
        cerrojo_registro cerrojo;
        comprueba_sitio(registro_ahora(), m_nombre, d.nombre_ansi);
    }
    abre_registro();
    di_lo_que_toma(registro_ahora(), d);
    cerrojo_registro cerrojo;
    comprueba_sitio(registro_ahora(), m_nombre, d.nombre_ansi);
    ctrl_c.toma_entrada();
    ivrexa_registra_cliente_de_servicio(m_nombre.c_str(), nullptr, d.nombre_ansi.c_str());
}

cliente::~cliente()
{
    ivrexa_cierra_sesion();
    CloseHandle(m_turno);
}

// A server without a window compares the heartbeat of the service's client with what it noted, which every command sets
// to 0, and it does so each 25 rounds, also when it is just about to see the command: a client that has not counted yet
// is a dead one for it, and it ends. So no command before the first beat, which comes after 2 s.
void cliente::espera_latido() const
{
    for (uint64_t limite = GetTickCount64() + PLAZO_LATIDO_MS; GetTickCount64() < limite;) {
        iv_mcbase_t registro = registro_ahora();
        const iv_mcbase_programa_t *yo = busca_programa(registro, m_nombre);
        if (yo != nullptr && yo->contador_vivo != 0)
            return;
        if (espera_fin(20))
            throw fallo(codigo_OCUPADO, TERMINADO_ANTES);
    }
    throw fallo(codigo_OCUPADO, "our heartbeat does not come, so the command was not sent; try again");
}

// ---- Ctrl-C

vela::vela(const destino &d) : m_destino(d), m_acabado(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    m_hilo = std::thread([this] { vigila(); });
}

vela::~vela()
{
    SetEvent(m_acabado);
    m_hilo.join();
    CloseHandle(m_acabado);
}

void vela::toma_entrada()
{
    pasa_a(etapa::entrada);
}

void vela::manda()
{
    pasa_a(etapa::mandado);
}

// The end is asked for behind the change: whoever watches reads a stage that is not left any more.
void vela::pasa_a(etapa e)
{
    etapa antes = m_etapa.exchange(e);
    if (!espera_fin(0))
        return;
    m_etapa = antes;
    throw fallo(codigo_OCUPADO, TERMINADO_ANTES);
}

bool vela::acaba_en(uint32_t ms) const
{
    return WaitForSingleObject(m_acabado, ms) == WAIT_OBJECT_0;
}

void vela::di_lo_que_queda() const
{
    const char *entrada = "its program entry stays until an ivrexactl takes it over: the next one, or, if others ran "
                          "beside this one, one that runs beside as many";
    std::string nombre = entre_comillas(m_destino.nombre);
    switch (m_etapa) {
    case etapa::nada:
        di_error("ivrexactl: ended while it waited for a lock of the library that another program holds; it has taken "
                 "nothing. 'ivrexactl doctor' looks for who stands still");
        return;
    case etapa::entrada:
        di_error(std::string("ivrexactl: ended before the command was sent; if it was registered already, ") + entrada);
        return;
    case etapa::mandado:
        di_error(std::string("ivrexactl: ended without a result; ") + entrada);
        di_error("ivrexactl: service " + nombre +
                 " may stay claimed: its server may still run the command, and other "
                 "clients wait until that server has closed its session and one of them has called");
        return;
    case etapa::vuelto:
        di_error(std::string("ivrexactl: ended before its session was closed; ") + entrada);
        return;
    }
}

// The library has no way to take a command back, and none of its waits can be left: the process ends as it stands,
// after a moment for a command that is just coming back. A close of the session would wait for locks that the command
// holds; where no command is under way it is given the time that it needs.
void vela::vigila()
{
    HANDLE ambos[] = {m_acabado, evento_fin()};
    if (WaitForMultipleObjects(2, ambos, FALSE, INFINITE) == WAIT_OBJECT_0 || acaba_en(GRACIA_MS))
        return;
    bool se_cierra = m_etapa == etapa::entrada || m_etapa == etapa::vuelto;
    if (se_cierra && acaba_en(CIERRE_MS))
        return;
    di_lo_que_queda();
    devuelve_consola();
    TerminateProcess(GetCurrentProcess(), codigo_OCUPADO);
}

} // namespace ivrexactl
