#include "traza_captura.h"

#include <mutex>

#include "cerrojo.h"
#include "sistema.h"

static constexpr DWORD i_TEXTO_ANSI = 0x40010006;  // [0] length with its NUL, [1] text
static constexpr DWORD i_TEXTO_ANCHO = 0x4001000A; // [0] characters with the NUL, [1] text, [2], [3] as ANSI

static cerrojo s_candado;
static CONDITION_VARIABLE s_hay_mas = CONDITION_VARIABLE_INIT;
static captura_traza *s_captura;

void activa_traza(const char *valor)
{
    SetEnvironmentVariableA("IVREXA_DEBUG", valor);
}

void desactiva_traza()
{
    SetEnvironmentVariableA("IVREXA_DEBUG", nullptr);
}

std::string enmascara_tiempos(const std::string &texto)
{
    const std::string marca = "\n*** ";
    std::string resultado;
    size_t pos = 0;
    for (size_t ini; (ini = texto.find(marca, pos)) != std::string::npos;) {
        ini += marca.size();
        resultado.append(texto, pos, ini - pos);
        size_t fin = texto.find_first_not_of("0123456789", ini);
        bool es_cabecera = fin != std::string::npos && fin > ini && texto.compare(fin, 2, ": ") == 0;
        if (es_cabecera)
            resultado += "<t>";
        pos = es_cabecera ? fin : ini;
    }
    return resultado.append(texto, pos, std::string::npos);
}

static std::string de_ansi(const void *texto, size_t num)
{
    const char *p = static_cast<const char *>(texto);
    return std::string(p, strnlen(p, num));
}

static std::string ancho_a_ansi(const void *texto, size_t num)
{
    const wchar_t *p = static_cast<const wchar_t *>(texto);
    int largo = static_cast<int>(wcsnlen(p, num));
    std::string ansi(static_cast<size_t>(largo) * 3, '\0');
    int bytes = WideCharToMultiByte(CP_ACP, 0, p, largo, &ansi[0], static_cast<int>(ansi.size()), nullptr, nullptr);
    ansi.resize(bytes > 0 ? static_cast<size_t>(bytes) : 0);
    return ansi;
}

void anyade_pieza(const pieza_traza &pieza)
{
    {
        std::lock_guard<cerrojo> guarda(s_candado);
        if (s_captura != nullptr)
            s_captura->m_piezas.push_back(pieza);
    }
    WakeAllConditionVariable(&s_hay_mas);
}

static LONG CALLBACK al_trazar(EXCEPTION_POINTERS *excepcion)
{
    const EXCEPTION_RECORD *r = excepcion->ExceptionRecord;
    bool ancha = r->ExceptionCode == i_TEXTO_ANCHO;
    if ((!ancha && r->ExceptionCode != i_TEXTO_ANSI) || r->NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;

    const void *texto = reinterpret_cast<const void *>(r->ExceptionInformation[1]);
    size_t num = r->ExceptionInformation[0];
    anyade_pieza({ancha ? ancho_a_ansi(texto, num) : de_ansi(texto, num), GetCurrentThreadId(), ancha});
    return EXCEPTION_CONTINUE_EXECUTION;
}

captura_traza::captura_traza()
{
    {
        std::lock_guard<cerrojo> guarda(s_candado);
        m_anterior = s_captura;
        s_captura = this;
    }
    m_manejador = AddVectoredExceptionHandler(1, al_trazar);
}

captura_traza::~captura_traza()
{
    RemoveVectoredExceptionHandler(m_manejador);
    std::lock_guard<cerrojo> guarda(s_candado);
    s_captura = m_anterior;
}

std::vector<pieza_traza> captura_traza::piezas() const
{
    std::lock_guard<cerrojo> guarda(s_candado);
    return m_piezas;
}

std::string captura_traza::texto() const
{
    std::string todo;
    for (const pieza_traza &pieza : piezas())
        todo += pieza.texto;
    return todo;
}

std::string captura_traza::texto_de_hilo(uint32_t hilo) const
{
    std::string todo;
    for (const pieza_traza &pieza : piezas())
        todo += pieza.hilo == hilo ? pieza.texto : "";
    return todo;
}

std::string captura_traza::texto_propio() const
{
    return texto_de_hilo(GetCurrentThreadId());
}

void captura_traza::borra()
{
    std::lock_guard<cerrojo> guarda(s_candado);
    m_piezas.clear();
}

bool captura_traza::espera(const std::string &parte, uint32_t ms) const
{
    uint64_t limite = GetTickCount64() + ms;
    for (size_t vistas = 0;;) {
        if (texto().find(parte) != std::string::npos)
            return true;
        std::lock_guard<cerrojo> guarda(s_candado);
        if (m_piezas.size() == vistas && !s_candado.espera_aviso(&s_hay_mas, limite))
            return false;
        vistas = m_piezas.size();
    }
}
