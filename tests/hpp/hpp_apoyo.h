// hpp_apoyo.h - what the tests of ivrexa.hpp share. For one source file of a program: it defines the role
// "capa_servidor".
//
// SERVER   "capa_servidor", "ventana" | "sin_ventana", service: a host that knows the library by ivrexa.hpp alone. Says
//          "LISTO", "VIENE id" for each command that its function gets, and what escapes from it as
//          "ESCAPA service|what". Obeys
//            SIGUE        lets capa_ESPERA go on
//            CIERRA       ends the session, and nothing else: "CERRADO"
//            AVISA id dato [text]   notifies on a thread of its own, with the text as data if there is one:
//                         "AVISADO dato"
//            ACABA
#ifndef HPP_APOYO_H
#define HPP_APOYO_H

#include "ivrexa.hpp"

#include <chrono>
#include <optional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "dll_conversa.h"

enum : uint32_t {
    capa_ECO = 100,       // answers the input values as they came and each text turned round
    capa_NUMERO = 101,    // answers output and texts, and returns the number that text 1 spells
    capa_NADA = 102,      // answers nothing
    capa_ESPERA = 103,    // says "DENTRO", and goes on at the line "SIGUE"
    capa_LANZA = 104,     // writes output and texts, then throws a std::runtime_error of text 1
    capa_LANZA_INT = 105, // throws 7
    capa_QUIEN = 106,     // answers service, id and "client's window|server's window"
    capa_LARGO = 107,     // answers a text that is too long, which throws
    capa_PRIMERO = 200    // from here up: OK with the id as text 1
};

// Far longer than anything that a test waits for takes; and how long a test looks on while nothing may happen.
enum : uint32_t { PLAZO_MS = 30000, QUIETO_MS = 300 };

template <typename funcion>
std::optional<ivrexa::fault> fallo_de(funcion f, std::string *texto = nullptr)
{
    try {
        f();
    } catch (const ivrexa::error &e) {
        if (texto != nullptr)
            *texto = e.what();
        return e.why();
    }
    return std::nullopt;
}

#define EXPECT_RECHAZO(esperado, ...) EXPECT_EQ(fallo_de([&] { __VA_ARGS__; }), ivrexa::fault::esperado)

inline ivrexa_hwnd hwnd_capa(HWND hwnd)
{
    return reinterpret_cast<ivrexa_hwnd>(hwnd);
}

inline ivrexa::answer espera_respuesta(std::future<ivrexa::answer> &f, lugar donde = lugar::aqui())
{
    if (f.wait_for(std::chrono::milliseconds(PLAZO_MS)) != std::future_status::ready) {
        ADD_FAILURE_AT(donde.fichero, donde.linea) << "the future was told nothing";
        return {};
    }
    return f.get();
}

// ---- Server

inline void capa_copia(const ivrexa::reader &de, ivrexa::writer &a)
{
    for (size_t i = 0; i < de.size(); i++) {
        const std::string &nombre = de.name(i);
        switch (de.type(i)) {
        case ivrexa_tipoDato_byte:
            a.add(nombre, de.get<uint8_t>(i));
            break;
        case ivrexa_tipoDato_ushort:
            a.add(nombre, de.get<uint16_t>(i));
            break;
        case ivrexa_tipoDato_ulong:
            a.add(nombre, de.get<uint32_t>(i));
            break;
        case ivrexa_tipoDato_double:
            a.add(nombre, de.get<double>(i));
            break;
        case ivrexa_tipoDato_hwnd:
            a.add(nombre, de.get<ivrexa_hwnd>(i));
            break;
        case ivrexa_tipoDato_buffer:
            a.add(nombre, de.get<ivrexa::bytes>(i));
            break;
        case ivrexa_tipoDato_arr_cadenas_ansi:
            a.add(nombre, de.get<std::vector<std::string>>(i));
            break;
        case ivrexa_tipoDato_cadena_ansi:
            if (de.is_null(i))
                a.add_null_text(nombre);
            else
                a.add(nombre, de.get<std::string>(i));
            break;
        case ivrexa_tipoDato_cadena_unicode:
            if (de.is_null(i))
                a.add_null_wide_text(nombre);
            else
                a.add(nombre, de.get<std::wstring>(i));
            break;
        default:
            ADD_FAILURE() << "value " << i << " of type " << de.type(i);
        }
    }
}

class capa_servidor {
public:
    capa_servidor(papel_hijo &yo, bool con_ventana, const std::string &servicio)
        : m_yo(yo), m_servicio(servicio), m_hwnd(con_ventana ? crea_ventana() : nullptr)
    {
        m_sesion.emplace("papel_" + std::to_string(GetCurrentProcessId()), hwnd_capa(m_hwnd));
        m_sesion->on_failure([this](const std::string &de, std::exception_ptr e) { escapa(de, e); });
        m_sesion->offer_number(
            servicio, [this](ivrexa::command &c) { return atiende(c); }, 300);
        m_sesion->publish();
        m_yo.di("LISTO");
    }

    int vive()
    {
        while (std::optional<std::string> linea =
                   m_hwnd != nullptr ? bombea_hasta_linea(m_yo, 60000) : m_yo.escucha(60000)) {
            if (*linea == "ACABA")
                break;
            obedece(*linea);
        }
        m_sesion.reset();
        destruye_ventana(&m_hwnd);
        return 0;
    }

private:
    void obedece(const std::string &linea)
    {
        if (linea == "SIGUE") {
            SetEvent(m_sigue);
        } else if (linea == "CIERRA") {
            m_sesion.reset();
            m_yo.di("CERRADO");
        } else if (linea.rfind("AVISA ", 0) == 0) {
            std::istringstream resto(linea.substr(6));
            uint32_t id = 0, dato = 0;
            std::string texto;
            resto >> id >> dato >> texto;
            std::thread([this, id, dato, texto] { avisa(id, dato, texto); }).detach();
        } else {
            ADD_FAILURE() << "what is \"" << linea << "\"?";
        }
    }

    void avisa(uint32_t id, uint32_t dato, const std::string &texto)
    {
        if (texto.empty()) {
            m_sesion->notify(m_servicio, id, dato);
            m_yo.di("AVISADO " + std::to_string(dato));
            return;
        }
        ivrexa::writer datos = ivrexa::writer::output(m_servicio);
        datos.add("texto", texto).add("dato", dato);
        m_sesion->notify(datos, id, dato);
        m_yo.di("AVISADO " + std::to_string(dato));
    }

    void escapa(const std::string &de, std::exception_ptr e)
    {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception &conocida) {
            m_yo.di("ESCAPA " + de + "|" + conocida.what());
            if (std::string(conocida.what()) == "y el aviso tambien")
                throw; // from the hook itself
        } catch (int num) {
            m_yo.di("ESCAPA " + de + "|" + std::to_string(num));
        }
    }

    int32_t espera()
    {
        m_yo.di("DENTRO");
        if (m_hwnd != nullptr)
            EXPECT_EQ(m_yo.escucha(60000), "SIGUE");
        else
            EXPECT_EQ(WaitForSingleObject(m_sigue, 60000), WAIT_OBJECT_0);
        return 1;
    }

    int32_t atiende(ivrexa::command &c)
    {
        const ivrexa::texts &t = c.texts();
        std::string primero(t.first.begin(), t.first.end());
        m_yo.di("VIENE " + std::to_string(c.id()));
        switch (c.id()) {
        case capa_ECO:
            EXPECT_EQ(c.service(), m_servicio);
            if (!c.input().empty())
                capa_copia(c.input(), c.output());
            c.answer_texts({del_reves(t.first), del_reves(t.second), del_reves(t.third)});
            return 1;
        case capa_NUMERO:
            c.output().add("b", uint8_t{9});
            c.answer_texts({L"con", L"resultado", t.first});
            return static_cast<int32_t>(std::stol(primero));
        case capa_NADA:
            return 1;
        case capa_ESPERA:
            return espera();
        case capa_LANZA:
            c.output().add("b", uint8_t{9});
            c.answer_texts({L"con", L"resultado", t.first});
            throw std::runtime_error(primero);
        case capa_LANZA_INT:
            throw 7;
        case capa_QUIEN:
            c.answer_texts({std::wstring(m_servicio.begin(), m_servicio.end()), std::to_wstring(c.id()),
                            std::to_wstring(c.client_window()) + L"|" +
                                std::to_wstring(reinterpret_cast<uintptr_t>(c.server_window()))});
            return 1;
        case capa_LARGO:
            c.answer_texts({std::wstring(64, L'x'), L"", L""});
            return 1;
        default:
            c.answer_texts({std::to_wstring(c.id()), L"", L""});
            return 1;
        }
    }

    papel_hijo &m_yo;
    std::string m_servicio;
    HWND m_hwnd;
    HANDLE m_sigue = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    std::optional<ivrexa::session> m_sesion;
};

PAPEL(capa_servidor)
{
    return capa_servidor(yo, args[0] == "ventana", args[1]).vive();
}

inline papel arranca_capa(const std::string &clase, const std::string &servicio)
{
    return arranca_papel("capa_servidor", {clase, servicio});
}

// ---- Client

// A service, and a session of this process that is its client.
class con_sesion : public ::testing::Test {
protected:
    void SetUp() override { vacia_registro(); }

    ivrexa::session &sesion()
    {
        if (!m_sesion)
            m_sesion.emplace("papel_" + std::to_string(GetCurrentProcessId()));
        return *m_sesion;
    }
    void cierra() { m_sesion.reset(); }
    // A client that waits no longer than it has to for a server of that kind.
    ivrexa::client cliente_de(const std::string &clase)
    {
        ivrexa::client c(sesion(), servicio);
        return clase == "ventana" ? c.server_has_window() : c;
    }

    const std::string servicio = nombre_unico("capa");

private:
    std::optional<ivrexa::session> m_sesion;
};

// The same for each kind of server.
class con_cada_capa : public con_sesion, public ::testing::WithParamInterface<const char *> {
protected:
    ivrexa::client cliente() { return cliente_de(clase); }

    const std::string clase = GetParam();
};

#define CON_CADA_CAPA(suite)                                                               \
    INSTANTIATE_TEST_SUITE_P(servidor, suite, ::testing::Values("ventana", "sin_ventana"), \
                             [](const auto &dato) { return std::string(dato.param); })

#endif
