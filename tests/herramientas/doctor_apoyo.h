// doctor_apoyo.h - ivrexactl doctor as its tests run it. For one source file of a program: it brings the roles and
// helpers of dll_conversa.h.
#ifndef HERRAMIENTAS_DOCTOR_APOYO_H
#define HERRAMIENTAS_DOCTOR_APOYO_H

#include <set>
#include <string>
#include <vector>

#include "comun/json.h"
#include "dll_conversa.h"
#include "herramienta.h"

enum : uint32_t { COMANDO_CALLADO = 121 }; // a command that only returns 1

struct diagnostico {
    uint32_t codigo = 0;
    herramientas::json todo;

    std::set<std::string> ids() const
    {
        std::set<std::string> s;
        for (const auto &h : todo["findings"])
            s.insert(h["id"].get<std::string>());
        return s;
    }

    // The first finding of that check; "{}" without one.
    herramientas::json de(const std::string &id) const
    {
        for (const auto &h : todo["findings"])
            if (h["id"] == id)
                return h;
        return herramientas::json::object();
    }

    std::string en_texto() const { return todo.dump(2); }
};

inline diagnostico llama_al_doctor(bool sigue_latidos = true, lugar donde = lugar::aqui())
{
    std::vector<std::string> args = {"doctor", "--json"};
    if (!sigue_latidos)
        args.push_back("--no-wait");
    salida_de s = ejecuta_ctl(args, 30000, {}, donde);
    diagnostico d;
    d.codigo = s.codigo;
    d.todo = herramientas::json::parse(s.salida, nullptr, false);
    if (!d.todo.is_object() || !s.error.empty()) {
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "the doctor said " << s.salida << s.error;
        d.todo = {{"findings", herramientas::json::array()}};
    }
    return d;
}

// The doctor finds these checks' findings, no others, and ends with what that means.
inline diagnostico espera_hallazgos(const std::set<std::string> &ids, uint32_t codigo, bool sigue_latidos,
                                    lugar donde = lugar::aqui())
{
    SCOPED_TRACE(std::string(donde.fichero) + ":" + std::to_string(donde.linea));
    diagnostico d = llama_al_doctor(sigue_latidos, donde);
    EXPECT_EQ(d.ids(), ids) << d.en_texto();
    EXPECT_EQ(d.codigo, codigo) << d.en_texto();
    return d;
}

inline void espera_sano(bool sigue_latidos, lugar donde = lugar::aqui())
{
    espera_hallazgos({}, 0, sigue_latidos, donde);
}

// A finding's subject, text and advice contain these.
inline void comprueba_dice(const diagnostico &d, const std::string &id, const std::vector<std::string> &trozos,
                           lugar donde = lugar::aqui())
{
    herramientas::json h = d.de(id);
    std::string dicho = h.empty() ? ""
                                  : h["subject"].get<std::string>() + "\n" + h["text"].get<std::string>() + "\n" +
                                        h["advice"].get<std::string>();
    for (const std::string &trozo : trozos)
        if (dicho.find(trozo) == std::string::npos)
            ADD_FAILURE_AT(donde.fichero, donde.linea) << id << " does not say \"" << trozo << "\": " << dicho;
}

// Bytes of a block for as long as the object lives, then what was there.
class retoque {
public:
    retoque(bloque_crudo *bloque, size_t despl, const std::vector<uint8_t> &bytes)
        : m_bloque(bloque), m_despl(despl), m_antes(bloque->bytes(despl, bytes.size()))
    {
        m_bloque->pon_bytes(despl, bytes);
    }
    ~retoque() { m_bloque->pon_bytes(m_despl, m_antes); }
    retoque(const retoque &) = delete;
    retoque &operator=(const retoque &) = delete;

private:
    bloque_crudo *m_bloque;
    size_t m_despl;
    std::vector<uint8_t> m_antes;
};

inline std::vector<uint8_t> bytes16(uint16_t v)
{
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)};
}

inline std::vector<uint8_t> bytes32(uint32_t v)
{
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
}

inline std::vector<uint8_t> bytes_de_texto(const std::string &t)
{
    std::vector<uint8_t> bytes(t.begin(), t.end());
    bytes.push_back(0);
    return bytes;
}

// A row of a table of damages: bytes, and the one check that tells them.
struct danyo {
    const char *que;
    size_t despl;
    std::vector<uint8_t> bytes;
    const char *id;
    uint32_t codigo; // 1 a problem, 0 a note
    const char *dice;
};

inline void comprueba_danyos(bloque_crudo *bloque, const std::vector<danyo> &danyos)
{
    espera_sano(false);
    for (const danyo &d : danyos) {
        SCOPED_TRACE(d.que);
        retoque mal(bloque, d.despl, d.bytes);
        comprueba_dice(espera_hallazgos({d.id}, d.codigo, false), d.id, {d.dice});
    }
    espera_sano(false);
}

inline size_t despl_entrada(uint32_t i)
{
    return 1430 + i * 274;
}

inline uint32_t id_de(const bloque_crudo &registro, const papel &p)
{
    return static_cast<uint32_t>((despl_programa(registro, ruta_de(p)) - 1430) / 274);
}

// Tests whose desktop begins empty.
class doctor : public ::testing::Test {
protected:
    void SetUp() override { vacia_registro(); }
    const std::string servicio = nombre_unico("serv");
};

#endif
