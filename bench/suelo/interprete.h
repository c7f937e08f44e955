// interprete.h - runs a script of guion.h: its calls and nothing else.
//
// Names and sizes are ready before the first step; on the way it allocates nothing and looks nothing up. The prescribed
// copies are made where it is asked for, each with one memcpy: that tells what of a difference is memory alone. The
// handles that the library leaves open, deliberately, stay open here too, and keep alive what they keep alive there.
#ifndef BANCO_INTERPRETE_H
#define BANCO_INTERPRETE_H

#include "guion.h"

#include <windows.h>

#include <string>

namespace banco {

// The objects that both sides share bear the library's names with six digits made from the session in place of
// "ivrexa": as long, and never the same.
class interprete {
public:
    // Makes or opens the heap, the locks and the channel. Throws.
    interprete(const std::string &sesion, const std::string &servicio, bool con_copias);
    ~interprete();
    interprete(const interprete &) = delete;
    interprete &operator=(const interprete &) = delete;

    UINT mensaje() const { return mensaje_; }
    void al_servidor(HWND hwnd) { servidor_ = hwnd; }
    bool del_servidor() const { return servidor_ == nullptr; }

    // The command with input block `id` and output block id + 1. Throws where a call fails that must not. Without a
    // buffer of the caller's the server copies one of its own.
    void ejecuta(uint32_t id, const void *buffer, uint32_t tam_buffer, uint32_t tam_texto);
    void suelta(); // the output of the last command

    static uint32_t cifras(uint32_t numero);

private:
    void prepara(uint32_t id, uint32_t tam_buffer, uint32_t tam_texto);
    void recorre(const std::vector<paso> &pasos);
    void paso_dado(const paso &paso);
    bool sin_resultado(const paso &paso, void *sitio);
    void exige(bool bien, const paso &paso);
    std::vector<paso> los_suyos(const std::vector<paso> &pasos) const;
    LRESULT manda() const;
    std::string con_digitos(const std::string &nombre) const;

    const bool con_copias_;
    std::string digitos_;
    std::string nombres_[num_NOMBRES];
    size_t raiz_bloque_ = 0; // characters of a data block's name before its number
    situacion situacion_ = {};
    guion guion_ = {};
    std::vector<void *> sitios_;
    std::vector<char> propio_;
    HWND servidor_ = nullptr;
    UINT mensaje_ = 0;
    uint32_t id_ = 0;
    bool hay_anterior_ = false;
    HANDLE heap_ = nullptr;
    HANDLE canal_ = nullptr;
};

} // namespace banco

#endif
