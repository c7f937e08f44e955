// registro_traza.h - the debug trace of many programs, put together again. A program writes its trace in pieces, one
// debug-string call each, and the pieces of several programs arrive mixed. Here they become records again, per program,
// and the end of a command finds its beginning.
//
// A record begins with "\n*** <tick count>: ". The lines that belong to it begin with four blanks; a text between
// quotation marks may have line ends of its own. What stands between records, such as the heap's lines, becomes a
// record without header for each line.
//
// Records name no thread. Each program has one that tells its heartbeat every two seconds, in the middle of whatever
// its others write; those pieces are known by their form and put aside. Where other threads of one program trace at
// once, their pieces are mixed for good, and a record may be garbled.
#ifndef HERRAMIENTAS_REGISTRO_TRAZA_H
#define HERRAMIENTAS_REGISTRO_TRAZA_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace herramientas {

struct registro_traza {
    enum class clase { linea, inicio, fin, otro };
    enum class pareja { ninguna, hallada, suelta, del_servidor };

    uint32_t pid = 0;
    uint64_t hora_100ns = 0;         // when its first piece came
    clase que = clase::linea;        // a line between records; INICIO COMANDO; FIN COMANDO; another record
    uint32_t tick = 0;               // of its header, GetTickCount in its program
    std::vector<std::string> lineas; // as they were written: ANSI, without their ends
    std::string servicio;            // ANSI; of INICIO and FIN
    uint32_t id_comando = 0;

    // Of a FIN. Found: the same program's INICIO. Loose: there was none. Servers write a FIN and no INICIO: theirs is
    // measured from the client's INICIO where that was seen.
    pareja con = pareja::ninguna;
    bool hay_ms = false;
    uint32_t ms = 0;          // since the INICIO, where hay_ms
    uint32_t pid_cliente = 0; // whose INICIO, of a server's FIN with hay_ms
};

// Pieces to records. `toma` is called with each record once it is whole: when something else of its program follows, or
// nothing did for a while.
class junta_registros {
public:
    // A program is known by its first record; until then what it writes waits, and is dropped if it never writes one.
    // With `todos` everything is taken.
    junta_registros(bool todos, std::function<void(registro_traza &)> toma) : m_todos(todos), m_toma(std::move(toma)) {}

    void anyade(uint32_t pid, const std::string &trozo, uint64_t hora_100ns);
    void vence(uint64_t hora_100ns); // what waits for more since half a second is whole
    void acaba();                    // all of it is
    size_t num_programas() const;    // those that wrote records

private:
    // Pieces of a header under way, and of the heartbeat's record behind it: "\n*** ", N, ": ", " ESTOY VIVO ", N.
    struct cabecera {
        int num_trozos = 0;
        std::string texto;
        uint64_t hora_100ns = 0;
    };
    struct programa {
        bool conocido = false, escribio = false, entre_comillas = false;
        uint64_t hora_100ns = 0, hora_linea = 0; // of the last piece; of the line's first one
        std::string linea;                       // not ended yet
        registro_traza abierto;                  // no lines: none
        std::deque<registro_traza> retenidos;    // the latest of them: their memory has a bound
        size_t tam_retenidos = 0;
        std::deque<cabecera> cabeceras; // the oldest first
        bool tras_numero = false;       // the last piece of the line is a number
        int debe_fin = 0;               // the heartbeat's line end may come among so many pieces
    };
    bool es_fin_de_latido(programa &p);
    bool es_de_cabecera(uint32_t pid, programa &p, const std::string &trozo);
    bool suelta_cabecera(uint32_t pid, programa &p, const std::string &titulo);
    void late(uint32_t pid, programa &p, const cabecera &c);
    void conoce(programa &p);
    void pon_texto(uint32_t pid, programa &p, const std::string &texto);
    void linea(uint32_t pid, programa &p);
    void cierra(programa &p);
    void vacia(uint32_t pid, programa &p);
    void entrega(programa &p, registro_traza &r);

    bool m_todos;
    uint64_t m_tick = 0; // of the last header
    std::function<void(registro_traza &)> m_toma;
    std::map<uint32_t, programa> m_programas;
};

// Commands from record to record.
class empareja_comandos {
public:
    struct abierto {
        uint32_t pid;
        std::string servicio;
        uint32_t id_comando, tick, tick_fin;
        uint64_t hora_100ns;
    };
    struct duracion {
        size_t num;
        uint32_t minimo, mediana, maximo;
    };

    void anota(registro_traza &r); // completes a FIN
    const std::vector<abierto> &sin_fin() const { return m_abiertos; }
    size_t num_sueltos() const { return m_sueltos; }                         // FIN without INICIO
    size_t num_comandos() const;                                             // pairs
    std::map<std::pair<std::string, uint32_t>, duracion> duraciones() const; // by service and command

private:
    void termina(registro_traza &r);
    bool es_del_servidor(const registro_traza &r) const;
    const abierto *del_cliente(const registro_traza &r) const;

    std::vector<abierto> m_abiertos; // the innermost last
    std::deque<abierto> m_cerrados;  // the latest: a server's FIN may arrive behind the client's
    std::set<std::pair<uint32_t, std::string>> m_servidores, m_clientes;
    std::map<std::pair<std::string, uint32_t>, std::vector<uint32_t>> m_ms;
    size_t m_sueltos = 0;
};

} // namespace herramientas

#endif
