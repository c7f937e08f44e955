// datos.h - the parts of the section on command data: its works on small values and on one large buffer.
//
// An operation leaves two handles until its process ends: one of the service's channel, where it stores, and one of the
// block, which this keeps in being, where it loads. So the works run in children of the section, and what they leave
// behind goes with them. The small values have a child for each group of sizes, the large buffer one for each round:
// the next round then finds the same memory free. Otherwise every round would take memory that nothing has used yet,
// and where the machine is a virtual one, its host provides that at several times the cost.
#ifndef BANCO_DATOS_H
#define BANCO_DATOS_H

#include "../comun/informe.h"
#include "../comun/medida.h"

#include <windows.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace banco {

enum class tipo_valor { ulong, real, texto, ushort };

// One named value, as a program that writes it has it at hand.
struct valor {
    const char *nombre;
    tipo_valor tipo;
    uint32_t numero;
    double real;
    const char *texto;
};

// Names of 6 to 12 characters, alike at every size; three ulongs of any magnitude, then one of the other types.
class valores {
public:
    explicit valores(size_t num);
    const std::vector<valor> &todos() const { return valores_; }
    uint64_t suma() const;     // what every reader must come to
    size_t tam_ivrexa() const; // bytes of our encoding, which no call tells
private:
    std::string nombres_;
    std::vector<valor> valores_;
};

// What one value adds to the sum: its type decides where its content is.
inline uint64_t suma_ulong(uint64_t numero)
{
    return numero;
}
inline uint64_t suma_real(double real)
{
    return static_cast<uint64_t>(real * 2);
}
inline uint64_t suma_texto(const char *texto, size_t longitud)
{
    return longitud + static_cast<uint8_t>(texto[0]);
}

// Three plain copies: into fresh memory, from there into a new named block, from there into fresh memory. All is given
// back but the block's handle, which is the caller's.
HANDLE tres_copias(const std::string &nombre, const std::vector<uint8_t> &origen);

// Takes fresh memory, touches each page of it, and gives it back.
void llena_memoria(size_t tam);

// Our own work: its phases in seconds, each summed over the calls of a sample.
enum fase { FASE_ESCRIBE, FASE_GUARDA, FASE_CARGA, FASE_LEE, FASE_DESTRUYE, NUM_FASES };
extern const char *const NOMBRES_FASES[NUM_FASES];

struct muestra_fases {
    double segundos[NUM_FASES] = {};
    int llamadas = 0;
};

// Makes a task whose samples are the whole and which leaves its phases in *fases, a place for each sample.
tarea tarea_con_fases(const std::string &nombre, std::function<void(double *marcas)> llama,
                      std::vector<muestra_fases> *fases);

uint64_t valores_ivrexa(const char *servicio, const valores &valores, double *marcas);
uint64_t valores_msgpack(const valores &valores, size_t *tam);
uint64_t valores_msgpack_referencia(const valores &valores, size_t *tam);
uint64_t valores_msgpack_visitante(const valores &valores, size_t *tam);
uint64_t valores_flexbuffers(const valores &valores, size_t *tam);

// What a child is asked and what it answers is JSON. The phases are those of the last `rondas` samples, which count.
plan plan_de(const nlohmann::json &encargo);
nlohmann::json a_filas(const std::vector<medida> &medidas);
nlohmann::json a_filas(const std::vector<muestra_fases> &fases, size_t rondas);
int operaciones(const std::vector<muestra_fases> &fases); // with those of the warm-up
nlohmann::json mide_valores(const char *servicio, const nlohmann::json &encargo);
nlohmann::json mide_buffer(const char *servicio, const nlohmann::json &encargo);

// Of what was measured, and what the section makes of it.
medida medida_de(const nlohmann::json &fila);
medida busca(const nlohmann::json &filas, const std::string &nombre);
std::string con_comas(size_t num); // "1,000"
void anota_coste(const nlohmann::json &grupos, informe *informe);

nlohmann::json encarga_datos(const nlohmann::json &encargo); // starts a child and waits for its answer
void sirve_datos(const std::string &sesion);                 // the child's role

} // namespace banco

#endif
