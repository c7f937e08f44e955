// modelo_registro.h - the registry's rules told a second time, on a plain copy of the block.
#ifndef NATIVO_MODELO_REGISTRO_H
#define NATIVO_MODELO_REGISTRO_H

#include <functional>

#include "apoyo.h"
#include "iv_mcbase.h"

namespace modelo {

const char SIN_SITIO_SERVICIO[] = "iv_mcbase: ind_datServ < iv_mcbase_NUM_MAX_SERVICIOS";
const char SIN_SITIO_PROGRAMA[] = "iv_mcbase: id_programa < iv_mcbase_NUM_MAX_PROGRAMAS";

struct registro {
    iv_mcbase_t m = {};
    std::vector<std::string> informes;
    std::vector<sustituto::mensaje> mensajes;

    uint32_t busca(const std::string &servicio) const;
    uint32_t busca_o_anyade(const std::string &servicio);
    uint32_t quita(const std::string &servicio);
    // Index of the first service whose name begins so, 32 for none.
    uint32_t busca_prefijo(const std::string &prefijo) const;
    bool hay_monitor() const;
    void anota(const iv_mcbase_actividad_t &actividad, const std::string &servicio);
    uint32_t registra_programa(uint32_t tipo, const std::string &nombre, uint64_t hwnd,
                               const std::function<bool(uint64_t)> &viva);
    void quita_programa(uint32_t id);
    uint32_t registra_en_servicio(bool servidor, uint16_t id_programa, const std::string &servicio);
    // One round; whether the wait must be given up.
    bool ronda(bool servidor, uint32_t ind, uint32_t estado);

    uint32_t num_programas() const;
    uint32_t latido(uint32_t id_programa) const;

private:
    void pon_tipo(uint32_t id_programa, uint32_t tipo);
};

// The text of a field, cut so that its end fits.
std::string texto_de(const char *campo, size_t tam);
void pon_texto(char *campo, size_t tam, const std::string &texto);

} // namespace modelo

#endif
