// crudo.h - shared blocks and mutexes by their names, with plain system calls: what another program would
// see. Nothing here goes through the library, so it can also play a program that does not keep its rules.
#ifndef COMUN_CRUDO_H
#define COMUN_CRUDO_H

#include <cstdint>
#include <string>
#include <vector>

#include "lugar.h"
#include "sistema.h"

bool existe_bloque(const char *nombre); // a mapping of that name; leaves no handle behind
bool existe_mutex(const char *nombre);

// A block opened whole, for reading and writing, while the object lives. Holding it keeps the block alive.
// Offsets count from the data, behind the 4-byte size header, as the records give them. An access outside the
// view fails the test, reads 0 and writes nothing.
class bloque_crudo {
public:
    explicit bloque_crudo(const char *nombre);            // opens it; see abierto()
    bloque_crudo(const char *nombre, uint32_t tam_datos); // creates it: size header and zeros
    bloque_crudo(bloque_crudo &&) noexcept;
    bloque_crudo &operator=(bloque_crudo &&) noexcept;
    ~bloque_crudo();

    bool abierto() const { return m_vista != nullptr; }
    bool ya_existia() const { return m_ya_existia; }
    size_t tam_vista() const { return m_tam_vista; } // bytes mapped, with the header, in whole pages
    uint8_t *datos() const { return m_vista + 4; }

    uint32_t cabecera(lugar donde = lugar::aqui()) const; // the size stated in the header
    void pon_cabecera(uint32_t tam_datos, lugar donde = lugar::aqui());

    uint16_t u16(size_t despl, lugar donde = lugar::aqui()) const;
    uint32_t u32(size_t despl, lugar donde = lugar::aqui()) const;
    uint64_t u64(size_t despl, lugar donde = lugar::aqui()) const;
    // A text ends at its NUL, or after `max` characters.
    std::string texto(size_t despl, size_t max, lugar donde = lugar::aqui()) const;
    std::wstring texto_u(size_t despl, size_t max, lugar donde = lugar::aqui()) const;
    std::vector<uint8_t> bytes(size_t despl, size_t num, lugar donde = lugar::aqui()) const;

    void pon_u16(size_t despl, uint16_t valor, lugar donde = lugar::aqui());
    void pon_u32(size_t despl, uint32_t valor, lugar donde = lugar::aqui());
    void pon_u64(size_t despl, uint64_t valor, lugar donde = lugar::aqui());
    void pon_texto(size_t despl, const std::string &texto, lugar donde = lugar::aqui()); // with its NUL
    void pon_texto_u(size_t despl, const std::wstring &texto, lugar donde = lugar::aqui());
    void pon_bytes(size_t despl, const std::vector<uint8_t> &bytes, lugar donde = lugar::aqui());

private:
    void mapea();
    void cierra();
    void lee(size_t despl, void *destino, size_t num, lugar donde) const;
    void escribe(size_t despl, const void *origen, size_t num, lugar donde);
    bool dentro(size_t despl, size_t num, lugar donde) const;

    std::string m_nombre;
    HANDLE m_mapa = nullptr;
    uint8_t *m_vista = nullptr;
    size_t m_tam_vista = 0;
    bool m_ya_existia = false;
};

// A named mutex. It is held on a thread of this object's own, so the test's thread meets it as a stranger's.
class mutex_crudo {
public:
    enum class modo { abre, crea };
    explicit mutex_crudo(const char *nombre, modo m = modo::abre); // opening a missing one fails the test
    ~mutex_crudo();                                                // lets go what it holds
    mutex_crudo(const mutex_crudo &) = delete;
    mutex_crudo &operator=(const mutex_crudo &) = delete;

    bool abierto() const { return m_mutex != nullptr; }
    bool libre();                  // nobody holds it; tried from another thread, given back
    bool retiene(uint32_t ms = 0); // takes it and keeps it; false: not within `ms`
    void suelta();
    void abandona(); // its thread ends while it holds it

private:
    static DWORD WINAPI hilo_retiene(void *yo);
    bool arranca_hilo(uint32_t ms);
    void acaba_hilo(bool soltando);

    HANDLE m_mutex = nullptr;
    HANDLE m_hilo = nullptr;
    HANDLE m_tomado = nullptr; // set when the thread knows whether it has the mutex
    HANDLE m_orden = nullptr;  // set when the thread may end
    uint32_t m_ms = 0;
    bool m_lo_tiene = false;
    bool m_soltando = true;
};

#endif
