#include "doctor_mirada.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <windows.h>
#include <winternl.h>

#include "comun/leido.h"
#include "comun/nombres.h"
#include "comun/texto.h"
#include "comun/valores.h"

#include "orden.h"

namespace ivrexactl {

using namespace herramientas;

namespace {

const uint32_t PASO_MS = 15;                  // between two glances at what is under way
const uint32_t MIRADA_MS = 200;               // between two looks at everything
const uint32_t CORTO_MS = 400;                // how long it lasts at least
const uint32_t LARGO_MS = SIN_LATIDO_MS + 50; // and at most: a heartbeat counts as silent by then
const int NUM_INTENTOS = 5;

// ---- Locks. They are asked for their state: taking one, even for a moment, would change what others see.

struct estado_cerrojo { // as the system tells it
    LONG cuenta;        // 1: nobody holds it
    BOOLEAN nuestro, abandonado;
};

bool esta_retenido(const char *nombre)
{
    using pregunta = NTSTATUS(NTAPI *)(HANDLE, int, void *, ULONG, ULONG *);
    static const pregunta consulta_mutex = reinterpret_cast<pregunta>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQueryMutant")));
    HANDLE mutex = OpenMutexA(MUTEX_MODIFY_STATE /* which the system calls "query state" */, FALSE, nombre);
    if (mutex == nullptr)
        return false;
    estado_cerrojo e = {1, FALSE, FALSE};
    bool leido = consulta_mutex != nullptr && consulta_mutex(mutex, 0, &e, sizeof e, nullptr) >= 0;
    CloseHandle(mutex);
    return leido && e.cuenta < 1;
}

// ---- Reports that wait for a click. Their texts are read without a message to whoever shows them.

std::wstring texto_de_ventana(HWND hwnd)
{
    wchar_t texto[512] = L"";
    return hwnd != nullptr && InternalGetWindowText(hwnd, texto, 512) > 0 ? texto : L"";
}

// The box's text is its static child that says something; another holds the icon.
std::wstring texto_de_la_caja(HWND caja)
{
    std::wstring texto;
    for (HWND hijo = nullptr; texto.empty() && (hijo = FindWindowExW(caja, hijo, L"Static", nullptr)) != nullptr;)
        texto = texto_de_ventana(hijo);
    return texto;
}

BOOL CALLBACK apunta_caja(HWND hwnd, LPARAM lista)
{
    wchar_t clase[16] = L"";
    GetClassNameW(hwnd, clase, 16);
    if (wcscmp(clase, L"#32770") == 0 && texto_de_ventana(hwnd) == L"Assert ivrexa") {
        DWORD pid = 0;
        GetWindowThreadProcessId(hwnd, &pid);
        reinterpret_cast<std::vector<caja_vista> *>(lista)->push_back({pid, de_ancho(texto_de_la_caja(hwnd))});
    }
    return TRUE;
}

std::vector<caja_vista> cajas_abiertas()
{
    std::vector<caja_vista> cajas;
    EnumWindows(apunta_caja, reinterpret_cast<LPARAM>(&cajas));
    return cajas;
}

// ---- Blocks of command data

std::vector<std::string> nombres_de_datos()
{
    std::vector<std::string> nombres;
    for (const std::string &nombre : bloques_que_empiezan_por(PREFIJO_CANAL))
        if (nombre.find(COLA_DATOS) != std::string::npos)
            nombres.push_back(nombre);
    return nombres;
}

bloque_de_datos lee_datos(const std::string &nombre)
{
    limites_valores limites;
    limites.max_bytes = 64;
    size_t corte = nombre.rfind(COLA_DATOS);
    bloque_de_datos d;
    d.servicio_ansi = nombre.substr(strlen(PREFIJO_CANAL), corte - strlen(PREFIJO_CANAL));
    d.id = static_cast<uint32_t>(strtoul(nombre.c_str() + corte + strlen(COLA_DATOS), nullptr, 10));
    bloque_leido bloque(nombre);
    d.tam = bloque.tam_dicho();
    d.tam_hay = bloque.tam();
    if (!bloque.abierto() || d.tam == 0 || d.tam != d.tam_hay)
        return d;
    contenido c = descifra(bloque.datos(), bloque.tam(), limites);
    d.danyo = c.danyado ? c.fallo : "";
    return d;
}

std::set<std::string> bloques_que_faltan(const escritorio_visto &e)
{
    std::set<std::string> faltan;
    for (const servicio_visto &s : e.servicios)
        for (uint32_t id :
             {s.canal ? s.canal->id_bloque_MCCom_entrada : 0, s.canal ? s.canal->notificacion_dato3 : 0}) {
            std::string nombre = id != 0 ? nombre_de_datos(s.nombre_ansi, id) : "";
            if (id != 0 && !bloque_leido(nombre).abierto())
                faltan.insert(nombre);
        }
    return faltan;
}

// ---- Looks

class observador {
public:
    explicit observador(consulta *c) : m_c(c) {}

    void empieza() { m_nombres_datos = nombres_de_datos(); }

    void mira(uint64_t ahora_ms)
    {
        escritorio_visto e = mira_escritorio();
        for (int n = 1; n < NUM_INTENTOS && !e.quieto; n++)
            e = mira_escritorio();
        m_c->acaba_ms = ahora_ms;
        if (!anota_rotas(m_c, e))
            return;
        compara(e);
        m_c->pulso.anota(e, ahora_ms);
        m_c->faltan.push_back(bloques_que_faltan(e));
        m_c->miradas.push_back(std::move(e));
    }

    // What moves between two looks would seem to stand if both happened to meet the same state of it.
    void echa_un_vistazo()
    {
        m_registro_retenido = m_registro_retenido && esta_retenido(NOMBRE_MUTEX_REGISTRO);
        m_monton_retenido = m_monton_retenido && esta_retenido("ivrexa_iv_mem");
        if (m_c->miradas.empty())
            return;
        for (const servicio_visto &s : m_c->miradas.back().servicios)
            if (s.canal && en_marcha(s) && m_c->canales.count(s.nombre_ansi) == 0)
                compara_canal(s.nombre_ansi, mira_canal(s.nombre_ansi));
    }

    // Whether everything that could be told as standing still has been seen to move.
    bool basta(uint64_t ahora_ms) const
    {
        if (m_c->miradas.empty() || m_registro_retenido || m_monton_retenido)
            return false;
        const escritorio_visto &e = m_c->miradas.back();
        for (const programa_visto &p : e.programas)
            if (m_c->pulso.de(p.id_programa, ahora_ms).p != latidos::pulso::se_mueve)
                return false;
        for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_PROGRAMAS; i++)
            if (es_latido_suelto(e, i) && m_c->latidos_sueltos.count(i) == 0)
                return false;
        for (const servicio_visto &s : e.servicios)
            if (s.canal && en_marcha(s) && m_c->canales.count(s.nombre_ansi) == 0)
                return false;
        return true;
    }

    void acaba()
    {
        m_c->registro_retenido = m_registro_retenido;
        m_c->monton_retenido = m_monton_retenido;
        m_c->cajas = cajas_abiertas();
        std::vector<std::string> ahora = nombres_de_datos();
        m_c->num_datos = static_cast<uint32_t>(ahora.size());
        for (const std::string &nombre : ahora) {
            if (m_c->datos.size() >= consulta_MAX_DATOS)
                return;
            if (std::binary_search(m_nombres_datos.begin(), m_nombres_datos.end(), nombre))
                m_c->datos.push_back(lee_datos(nombre));
        }
    }

private:
    static bool en_marcha(const servicio_visto &s)
    {
        return s.canal->ocupacion != 0 || s.canal->estado_notificacion != 0 || s.id_comando_en_curso != 0;
    }

    static bool es_latido_suelto(const escritorio_visto &e, uint32_t i)
    {
        return e.crudo.programas[i].nombre[0] == '\0' && e.crudo.programas[i].contador_vivo != 0;
    }

    void compara_canal(const std::string &servicio, const std::optional<canal_visto> &c)
    {
        if (!c)
            return;
        std::string huella;
        for (uint32_t campo : {c->info_estadoComando, c->id_bloque_MCCom_siguiente, c->estado_servidor, c->id_resultado,
                               c->ocupacion, c->id_comando, c->id_bloque_MCCom_entrada, c->estado_notificacion,
                               c->notificacion_dato1, c->notificacion_dato2, c->notificacion_dato3})
            huella += std::to_string(campo) + ",";
        huella += c->textos_cliente[0] + c->textos_cliente[1] + c->textos_cliente[2];
        auto antes = m_huellas.emplace(servicio, huella).first;
        if (antes->second != huella)
            m_c->canales.insert(servicio);
    }

    void compara(const escritorio_visto &e)
    {
        for (const servicio_visto &s : e.servicios)
            compara_canal(s.nombre_ansi, s.canal);
        if (m_c->miradas.empty())
            return;
        const iv_mcbase_t &antes = m_c->miradas.back().crudo;
        m_c->registro_movido = m_c->registro_movido || memcmp(&antes, &e.crudo, sizeof antes) != 0;
        for (uint32_t i = 0; i < iv_mcbase_NUM_MAX_PROGRAMAS; i++)
            if (es_latido_suelto(e, i) && antes.programas[i].contador_vivo != e.crudo.programas[i].contador_vivo)
                m_c->latidos_sueltos.insert(i);
        for (uint32_t j = 0; j < iv_mcbase_NUM_MAX_SERVICIOS; j++)
            compara_servicio(j, antes.servicios[j], e.crudo.servicios[j]);
    }

    void compara_servicio(uint32_t j, const datServ &antes, const datServ &ahora)
    {
        if (antes.bucle_servidor_vueltas != ahora.bucle_servidor_vueltas)
            m_c->vueltas_servidor.insert(j);
        if (antes.bucle_cliente_vueltas != ahora.bucle_cliente_vueltas)
            m_c->vueltas_cliente.insert(j);
        if (antes.id_comando_en_curso != ahora.id_comando_en_curso)
            m_c->canales.insert(std::string(ahora.nombre, strnlen(ahora.nombre, sizeof ahora.nombre)));
    }

    consulta *m_c;
    std::vector<std::string> m_nombres_datos;
    std::map<std::string, std::string> m_huellas;
    bool m_registro_retenido = true, m_monton_retenido = true;
};

} // namespace

consulta consulta_escritorio(bool sigue_latidos)
{
    consulta c;
    c.seguida = sigue_latidos;
    observador o(&c);
    o.empieza();
    uint64_t empieza = GetTickCount64(), proxima = empieza;
    for (uint64_t ahora = empieza;; ahora = GetTickCount64()) {
        bool acaba =
            ahora - empieza >= (sigue_latidos ? LARGO_MS : CORTO_MS) || (ahora - empieza >= CORTO_MS && o.basta(ahora));
        if (acaba || ahora >= proxima) {
            o.mira(ahora);
            proxima = GetTickCount64() + MIRADA_MS;
        }
        o.echa_un_vistazo();
        if (acaba || espera_fin(PASO_MS))
            break;
    }
    o.acaba();
    c.registro_parado = c.seguida && c.registro_retenido && !c.registro_movido;
    c.seguida = c.seguida && !c.registro_parado;
    return c;
}

bool anota_rotas(consulta *c, const escritorio_visto &e)
{
    if (!e.quieto) {
        c->rotas[""]++;
        return false;
    }
    for (const servicio_visto &s : e.servicios)
        if (s.canal && !s.canal->quieto)
            c->rotas[s.nombre_ansi]++;
    return true;
}

void mira_otra_vez(consulta *c)
{
    espera_fin(CORTO_MS / 4);
    observador o(c);
    o.mira(GetTickCount64());
}

} // namespace ivrexactl
