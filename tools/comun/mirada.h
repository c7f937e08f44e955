// mirada.h - one look at the registry and at the channels of its services, without registering and without a lock.
// Texts are UTF-8. What programs write may be anything: indices and states are shown as they are, never followed
// outside the tables.
#ifndef HERRAMIENTAS_MIRADA_H
#define HERRAMIENTAS_MIRADA_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ivrexa_mcbase.h"

namespace herramientas {

struct programa_visto {
    uint32_t id_programa = 0;
    std::string nombre;
    uint64_t hwnd = 0;       // 0 = none
    bool es_ventana = false; // such a window exists
    uint32_t pid = 0;        // its owner's; 0 without a window
    bool es_servidor = false, es_cliente = false, es_monitor = false;
    uint32_t contador_vivo = 0;
};

struct canal_visto {
    uint32_t tam = 0;   // bytes that the block's header states; below 2378 the rest is empty
    size_t tam_hay = 0; // those of them that are mapped
    bool quieto = true; // false: it was written while we looked, and may be torn
    uint16_t tam_bloque = 0, version_servicio = 0;
    uint32_t info_estadoComando = 0, resultado = 0, id_bloque_MCCom_siguiente = 0;
    uint64_t hwnd_servidor = 0;
    uint32_t msg_servidor = 0;
    uint16_t servidor_terminado = 0;
    uint32_t estado_servidor = 0, id_resultado = 0;
    uint64_t hwnd_cliente = 0;
    uint32_t ocupacion = 0, id_comando = 0, id_bloque_MCCom_entrada = 0;
    uint32_t estado_notificacion = 0, notificacion_dato1 = 0, notificacion_dato2 = 0, notificacion_dato3 = 0;
    std::string textos_cliente[3], textos_servidor[3];
};

struct servicio_visto {
    uint32_t ind_datServ = 32; // 32: a channel that no entry of the table names
    std::string nombre;        // as shown
    std::string nombre_ansi;   // as in names of objects
    uint16_t id_programa_servidor = 16, id_programa_cliente = 16;
    uint32_t bucle_servidor_estado = 0, bucle_servidor_vueltas = 0;
    uint32_t id_comando_en_curso = 0;
    uint32_t bucle_cliente_estado = 0, bucle_cliente_vueltas = 0;
    std::optional<canal_visto> canal; // none: nobody has made it, or everybody has gone
};

struct escritorio_visto {
    bool hay_registro = false;
    bool quieto = true;                    // false: it was written while we looked, and may be torn
    iv_mcbase_t crudo{};                   // the registry's bytes
    uint32_t tam = 0;                      // bytes that its header states, 8886 when it is ours
    size_t tam_hay = 0;                    // those of them that are mapped
    bool hay_monitor = false;              // a monitor is ready, and its window exists
    std::vector<programa_visto> programas; // used entries, in order
    std::vector<servicio_visto> servicios; // used entries in order, then the channels that the table does not name
    const programa_visto *programa(uint32_t id_programa) const; // nullptr: free, or no such
};

escritorio_visto mira_escritorio();
escritorio_visto mira_registro(); // its tables alone: no channel is opened
std::optional<canal_visto> mira_canal(const std::string &nombre_servicio_ansi);

// A server is attached to the channel: as ivrexa_hay_servicio_registrado decides it.
bool tiene_servidor(const canal_visto &canal);
bool ha_terminado(const canal_visto &canal); // its server has: 1 and nothing else, as the library reads it

// Who serves a service, and who registered last as its client; nullptr: nobody, or nobody knows. A field of the table
// that nobody has written since its name came is 0, or an older service's, and these are entries too. So a server is
// one only where the channel says that it is served, and has the window that the channel names: a channel that no entry
// names has its server by that window alone. Of a client nothing is known but that it is one.
const programa_visto *servidor_de(const escritorio_visto &e, const servicio_visto &s);
const programa_visto *cliente_de(const escritorio_visto &e, const servicio_visto &s);

std::string programa_del_proceso(uint32_t pid); // name of its executable; "" where the system does not tell

// Names of the states, for people; "?7" for one that there is not.
std::string nombre_estado_comando(uint32_t info_estadoComando);
std::string nombre_estado_servidor(uint32_t estado_servidor);
std::string nombre_ocupacion(uint32_t ocupacion);
std::string nombre_estado_notificacion(uint32_t estado);
std::string nombre_espera_cliente(uint32_t bucle_cliente_estado); // "" for 0
std::string nombre_espera_servidor(uint32_t bucle_servidor_estado);
std::string nombre_resultado(uint32_t resultado); // "OK", "ERROR", ..., "" for others

// Follows heartbeats from look to look.
class latidos {
public:
    enum class pulso { nuevo, se_mueve, callado };
    struct estado {
        pulso p;
        uint64_t callado_ms;
    }; // since it was last seen to move, or first seen
    void anota(const escritorio_visto &e, uint64_t ahora_ms);
    estado de(uint32_t id_programa, uint64_t ahora_ms) const;

private:
    struct seguido {
        std::string nombre;
        uint64_t hwnd;
        uint32_t contador;
        uint64_t desde_ms;
        bool movido;
    };
    static bool es_el_mismo(const seguido &antes, const programa_visto &p);
    std::map<uint32_t, seguido> m_seguidos;
};

} // namespace herramientas

#endif
