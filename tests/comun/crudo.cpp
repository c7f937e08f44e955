#include "crudo.h"

#include <cstring>
#include <utility>

#include <gtest/gtest.h>

static constexpr size_t i_TAM_CABECERA = 4; // the size that stands before the data of every block

bool existe_bloque(const char *nombre)
{
    HANDLE mapa = OpenFileMappingA(FILE_MAP_READ, FALSE, nombre);
    if (mapa != nullptr)
        CloseHandle(mapa);
    return mapa != nullptr;
}

bool existe_mutex(const char *nombre)
{
    HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, nombre);
    if (mutex != nullptr)
        CloseHandle(mutex);
    return mutex != nullptr;
}

bloque_crudo::bloque_crudo(const char *nombre) : m_nombre(nombre)
{
    m_mapa = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, nombre);
    m_ya_existia = m_mapa != nullptr;
    mapea();
}

bloque_crudo::bloque_crudo(const char *nombre, uint32_t tam_datos) : m_nombre(nombre)
{
    m_mapa = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                tam_datos + static_cast<uint32_t>(i_TAM_CABECERA), nombre);
    m_ya_existia = GetLastError() == ERROR_ALREADY_EXISTS;
    mapea();
    if (m_vista != nullptr && !m_ya_existia)
        pon_cabecera(tam_datos);
}

bloque_crudo::bloque_crudo(bloque_crudo &&otro) noexcept
{
    *this = std::move(otro);
}

bloque_crudo &bloque_crudo::operator=(bloque_crudo &&otro) noexcept
{
    if (this == &otro)
        return *this;
    cierra();
    m_nombre = otro.m_nombre;
    m_mapa = std::exchange(otro.m_mapa, nullptr);
    m_vista = std::exchange(otro.m_vista, nullptr);
    m_tam_vista = std::exchange(otro.m_tam_vista, 0);
    m_ya_existia = otro.m_ya_existia;
    return *this;
}

bloque_crudo::~bloque_crudo()
{
    cierra();
}

void bloque_crudo::mapea()
{
    if (m_mapa == nullptr)
        return;
    m_vista = static_cast<uint8_t *>(MapViewOfFile(m_mapa, FILE_MAP_WRITE, 0, 0, 0));
    MEMORY_BASIC_INFORMATION memoria;
    if (m_vista != nullptr && VirtualQuery(m_vista, &memoria, sizeof memoria) != 0)
        m_tam_vista = memoria.RegionSize;
}

void bloque_crudo::cierra()
{
    if (m_vista != nullptr)
        UnmapViewOfFile(m_vista);
    if (m_mapa != nullptr)
        CloseHandle(m_mapa);
    m_vista = nullptr;
    m_mapa = nullptr;
}

bool bloque_crudo::dentro(size_t despl, size_t num, lugar donde) const
{
    if (despl <= m_tam_vista && num <= m_tam_vista - despl)
        return true;
    ADD_FAILURE_AT(donde.fichero, donde.linea)
        << "block \"" << m_nombre << "\": " << num << " bytes at " << despl
        << (m_vista == nullptr ? ", but there is no such block"
                               : " of the mapping, which has only " + std::to_string(m_tam_vista));
    return false;
}

// `despl` counts from the header here.
void bloque_crudo::lee(size_t despl, void *destino, size_t num, lugar donde) const
{
    if (dentro(despl, num, donde))
        memcpy(destino, m_vista + despl, num);
    else
        memset(destino, 0, num);
}

void bloque_crudo::escribe(size_t despl, const void *origen, size_t num, lugar donde)
{
    if (dentro(despl, num, donde))
        memcpy(m_vista + despl, origen, num);
}

uint32_t bloque_crudo::cabecera(lugar donde) const
{
    uint32_t valor;
    lee(0, &valor, sizeof valor, donde);
    return valor;
}

void bloque_crudo::pon_cabecera(uint32_t tam_datos, lugar donde)
{
    escribe(0, &tam_datos, sizeof tam_datos, donde);
}

uint16_t bloque_crudo::u16(size_t despl, lugar donde) const
{
    uint16_t valor;
    lee(i_TAM_CABECERA + despl, &valor, sizeof valor, donde);
    return valor;
}

uint32_t bloque_crudo::u32(size_t despl, lugar donde) const
{
    uint32_t valor;
    lee(i_TAM_CABECERA + despl, &valor, sizeof valor, donde);
    return valor;
}

uint64_t bloque_crudo::u64(size_t despl, lugar donde) const
{
    uint64_t valor;
    lee(i_TAM_CABECERA + despl, &valor, sizeof valor, donde);
    return valor;
}

std::vector<uint8_t> bloque_crudo::bytes(size_t despl, size_t num, lugar donde) const
{
    std::vector<uint8_t> copia(num);
    lee(i_TAM_CABECERA + despl, copia.data(), num, donde);
    return copia;
}

std::string bloque_crudo::texto(size_t despl, size_t max, lugar donde) const
{
    std::string copia(max, '\0');
    lee(i_TAM_CABECERA + despl, &copia[0], max, donde);
    return copia.substr(0, copia.find('\0'));
}

std::wstring bloque_crudo::texto_u(size_t despl, size_t max, lugar donde) const
{
    std::wstring copia(max, L'\0');
    lee(i_TAM_CABECERA + despl, &copia[0], max * sizeof(wchar_t), donde);
    return copia.substr(0, copia.find(L'\0'));
}

void bloque_crudo::pon_u16(size_t despl, uint16_t valor, lugar donde)
{
    escribe(i_TAM_CABECERA + despl, &valor, sizeof valor, donde);
}

void bloque_crudo::pon_u32(size_t despl, uint32_t valor, lugar donde)
{
    escribe(i_TAM_CABECERA + despl, &valor, sizeof valor, donde);
}

void bloque_crudo::pon_u64(size_t despl, uint64_t valor, lugar donde)
{
    escribe(i_TAM_CABECERA + despl, &valor, sizeof valor, donde);
}

void bloque_crudo::pon_bytes(size_t despl, const std::vector<uint8_t> &bytes, lugar donde)
{
    escribe(i_TAM_CABECERA + despl, bytes.data(), bytes.size(), donde);
}

void bloque_crudo::pon_texto(size_t despl, const std::string &texto, lugar donde)
{
    escribe(i_TAM_CABECERA + despl, texto.c_str(), texto.size() + 1, donde);
}

void bloque_crudo::pon_texto_u(size_t despl, const std::wstring &texto, lugar donde)
{
    escribe(i_TAM_CABECERA + despl, texto.c_str(), (texto.size() + 1) * sizeof(wchar_t), donde);
}

// ---- mutex_crudo

mutex_crudo::mutex_crudo(const char *nombre, modo m)
{
    m_mutex = m == modo::crea ? CreateMutexA(nullptr, FALSE, nombre) : OpenMutexA(MUTEX_ALL_ACCESS, FALSE, nombre);
    m_tomado = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    m_orden = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (m_mutex == nullptr)
        ADD_FAILURE() << "there is no mutex \"" << nombre << "\"";
}

mutex_crudo::~mutex_crudo()
{
    suelta();
    CloseHandle(m_orden);
    CloseHandle(m_tomado);
    if (m_mutex != nullptr)
        CloseHandle(m_mutex);
}

DWORD WINAPI mutex_crudo::hilo_retiene(void *yo)
{
    mutex_crudo *m = static_cast<mutex_crudo *>(yo);
    DWORD espera = WaitForSingleObject(m->m_mutex, m->m_ms);
    m->m_lo_tiene = espera == WAIT_OBJECT_0 || espera == WAIT_ABANDONED;
    SetEvent(m->m_tomado);
    if (!m->m_lo_tiene)
        return 0;
    WaitForSingleObject(m->m_orden, INFINITE);
    if (m->m_soltando)
        ReleaseMutex(m->m_mutex);
    return 0;
}

bool mutex_crudo::arranca_hilo(uint32_t ms)
{
    m_ms = ms;
    m_hilo = CreateThread(nullptr, 0, hilo_retiene, this, 0, nullptr);
    WaitForSingleObject(m_tomado, INFINITE); // the thread's own wait is bounded by ms
    if (!m_lo_tiene)
        acaba_hilo(true);
    return m_lo_tiene;
}

void mutex_crudo::acaba_hilo(bool soltando)
{
    m_soltando = soltando;
    if (m_lo_tiene)
        SetEvent(m_orden);
    WaitForSingleObject(m_hilo, INFINITE);
    CloseHandle(m_hilo);
    m_hilo = nullptr;
    m_lo_tiene = false;
}

bool mutex_crudo::libre()
{
    if (m_lo_tiene || !arranca_hilo(0))
        return false;
    acaba_hilo(true);
    return true;
}

bool mutex_crudo::retiene(uint32_t ms)
{
    return m_lo_tiene || arranca_hilo(ms);
}

void mutex_crudo::suelta()
{
    if (m_lo_tiene)
        acaba_hilo(true);
}

void mutex_crudo::abandona()
{
    if (m_lo_tiene)
        acaba_hilo(false);
}
