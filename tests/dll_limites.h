// dll_limites.h - a host that does what its test tells it to, for the tests at the library's limits: the role "libre".
// For one source file of a program. Each order is a line of fields, and is answered by one:
//
//     VENTANA                 a window, before the program is registered: "HWND|n"
//     OFRECE|service          a service more, as number 1, 2, 3...; the first one registers the program
//     PUBLICA                 ivrexa_terminado_registro
//     USA|service             registers as client of it
//     MANDA|service|id|texto  a command with that first text: "RESULTADO|result|id of the output|t1|t2|t3"
//     HAY|service             "HAY|found|version", -1 where none was written
//     EMPIEZA|prefix          "EMPIEZA|found|name"
//     GUARDA|service|numero   stores a number and keeps it stored: "ID|id"
//     MENSAJE|service         "MENSAJE|n"
//     CIERRA                  closes the session
//     ACABA                   closes it and ends
//
// What has no answer of its own answers "HECHO".
#ifndef DLL_LIMITES_H
#define DLL_LIMITES_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/informes.h"
#include "comun/lineas.h"
#include "comun/papel.h"
#include "comun/util.h"
#include "comun/ventana.h"

#include "ivrexa.h"

enum : uint32_t { limites_PLAZO_MS = 40000 };

// The commands. All answer the number of the service in text 1, its name in text 2 and the client's text in text 3.
enum : uint32_t {
    limites_QUIEN = 100,
    limites_DOBLA = 101,  // answers the number of the input, doubled
    limites_ESPERA = 102, // goes on when the event that the text names is set; without a window only
};

// ---- The role

struct anfitrion_libre {
    std::string ruta;
    HWND hwnd = nullptr;
    uint32_t num_servicios = 0;
    std::vector<comdat *> guardados;
};

inline anfitrion_libre s_libre;

inline void espera_evento(const std::wstring &nombre)
{
    HANDLE evento = OpenEventW(SYNCHRONIZE, FALSE, nombre.c_str());
    EXPECT_EQ(WaitForSingleObject(evento, limites_PLAZO_MS), WAIT_OBJECT_0);
    CloseHandle(evento);
}

inline int32_t procesa_libre(const char *servicio, uint32_t id_comando, comando *contexto, void *externos)
{
    wchar_t texto[64] = L"?";
    if (ivrexa_get_datos_entrada_comando(servicio, id_comando, nullptr, texto, nullptr, nullptr) != CIERTO)
        return 98;
    if (id_comando == limites_ESPERA)
        espera_evento(texto);
    uint32_t id_salida = 0;
    if (id_comando == limites_DOBLA) {
        contexto->datos_salida = ivrexa_crea_datos_comando_salida(servicio);
        ivrexa_graba_ulong(contexto->datos_salida, "v", 2 * ivrexa_dame_ulong(contexto->datos_entrada, 0));
        id_salida = ivrexa_guarda_datos(contexto->datos_salida);
    }
    std::wstring numero = std::to_wstring(reinterpret_cast<uintptr_t>(externos));
    std::wstring nombre(servicio, servicio + lstrlenA(servicio));
    return ivrexa_set_datos_salida_comando(servicio, id_comando, id_salida, numero.c_str(), nombre.c_str(), texto) ==
                   CIERTO
               ? 1
               : 97;
}

inline std::string ofrece(const std::string &servicio)
{
    s_libre.num_servicios++;
    void *numero = reinterpret_cast<void *>(static_cast<uintptr_t>(s_libre.num_servicios));
    uint16_t version = static_cast<uint16_t>(500 + s_libre.num_servicios);
    if (s_libre.num_servicios == 1)
        ivrexa_registra_servidor(s_libre.ruta.c_str(), s_libre.hwnd, servicio.c_str(), version, numero, procesa_libre);
    else
        ivrexa_anyade_servicio(servicio.c_str(), version, numero, procesa_libre);
    return "HECHO";
}

// One byte a character, on both ways.
inline std::string estrecha(const std::wstring &texto)
{
    return std::string(texto.begin(), texto.end());
}

inline std::string manda(const std::string &servicio, uint32_t id_comando, const std::string &texto)
{
    wchar_t t1[64] = L"-", t2[256] = L"-", t3[256] = L"-";
    uint32_t id_salida = 0, id_entrada = 0;
    comdat *entrada = nullptr;
    if (id_comando == limites_DOBLA) {
        entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
        ivrexa_graba_ulong(entrada, "v", static_cast<uint32_t>(std::stoul(texto)));
        id_entrada = ivrexa_guarda_datos(entrada);
    }
    uint32_t resultado = ivrexa_ejecuta_comando(servicio.c_str(), id_comando, 0, id_entrada, de_utf8(texto).c_str(),
                                                nullptr, nullptr, &id_salida, t1, t2, t3);
    std::string leido = std::to_string(id_salida);
    if (id_comando == limites_DOBLA && id_salida != 0) {
        comdat *salida = ivrexa_lee_datos(servicio.c_str(), id_salida, FALSO);
        leido += "=" + std::to_string(ivrexa_dame_ulong(salida, 0));
        ivrexa_destruye_datos_comando(salida);
    }
    if (entrada != nullptr)
        ivrexa_destruye_datos_comando(entrada);
    return junta({"RESULTADO", std::to_string(resultado), leido, estrecha(t1), estrecha(t2), estrecha(t3)});
}

inline std::string pregunta_por(const std::string &servicio)
{
    uint16_t version = 0xffff;
    int16_t hay = ivrexa_hay_servicio_registrado(servicio.c_str(), &version);
    return junta({"HAY", std::to_string(hay), std::to_string(static_cast<int16_t>(version))});
}

inline std::string pregunta_por_prefijo(const std::string &prefijo)
{
    char nombre[64] = "-";
    uint16_t version;
    int16_t hay = ivrexa_hay_servicio_registrado_empiece_por(prefijo.c_str(), nombre, &version);
    return junta({"EMPIEZA", std::to_string(hay), nombre});
}

inline std::string guarda(const std::string &servicio, uint32_t numero)
{
    s_libre.guardados.push_back(ivrexa_crea_datos_comando_entrada(servicio.c_str()));
    ivrexa_graba_ulong(s_libre.guardados.back(), "v", numero);
    return junta({"ID", std::to_string(ivrexa_guarda_datos(s_libre.guardados.back()))});
}

inline void cierra_libre()
{
    for (comdat *c : s_libre.guardados)
        ivrexa_destruye_datos_comando(c);
    s_libre.guardados.clear();
    s_libre.num_servicios = 0;
    ivrexa_cierra_sesion();
}

inline std::string obedece_libre(const std::vector<std::string> &orden)
{
    if (orden[0] == "VENTANA") {
        s_libre.hwnd = crea_ventana();
        return junta({"HWND", std::to_string(reinterpret_cast<uintptr_t>(s_libre.hwnd))});
    }
    if (orden[0] == "OFRECE")
        return ofrece(orden[1]);
    if (orden[0] == "MANDA")
        return manda(orden[1], static_cast<uint32_t>(std::stoul(orden[2])), orden[3]);
    if (orden[0] == "HAY")
        return pregunta_por(orden[1]);
    if (orden[0] == "EMPIEZA")
        return pregunta_por_prefijo(orden[1]);
    if (orden[0] == "GUARDA")
        return guarda(orden[1], static_cast<uint32_t>(std::stoul(orden[2])));
    if (orden[0] == "MENSAJE")
        return junta({"MENSAJE", std::to_string(ivrexa_dame_id_MSG_servicio(orden[1].c_str()))});
    if (orden[0] == "PUBLICA")
        ivrexa_terminado_registro();
    else if (orden[0] == "USA")
        ivrexa_registra_cliente_de_servicio(s_libre.ruta.c_str(), s_libre.hwnd, orden[1].c_str());
    else if (orden[0] == "CIERRA")
        cierra_libre();
    else
        return "?? " + orden[0];
    return "HECHO";
}

PAPEL(libre)
{
    s_libre.ruta = args[0];
    yo.di("LISTO");
    while (std::optional<std::string> linea = bombea_hasta_linea(yo, 90000)) {
        if (*linea == "ACABA")
            break;
        yo.di(obedece_libre(campos(*linea)));
    }
    cierra_libre();
    return 0;
}

// ---- The test's side

// One such host.
class libre {
public:
    explicit libre(const std::string &ruta, lugar donde = lugar::aqui())
        : m_ruta(ruta), m_papel(arranca_papel("libre", {ruta}, {}, donde))
    {
    }

    std::string pide(const std::vector<std::string> &orden, lugar donde = lugar::aqui())
    {
        m_papel.di(junta(orden), donde);
        return m_papel.espera_linea("", limites_PLAZO_MS, donde);
    }
    void haz(const std::vector<std::string> &orden, lugar donde = lugar::aqui())
    {
        std::string respuesta = pide(orden, donde);
        EXPECT_EQ(respuesta, "HECHO") << junta(orden) << donde.fichero << ":" << donde.linea;
    }
    void empieza(const std::vector<std::string> &orden) { m_papel.di(junta(orden)); } // answered later
    std::string respuesta() { return m_papel.espera_linea("", limites_PLAZO_MS); }
    std::optional<std::string> busca_respuesta() { return m_papel.busca_linea("", 2); }

    uint64_t da_ventana() { return std::stoull(campos(pide({"VENTANA"})).at(1)); }
    void ofrece(const std::vector<std::string> &servicios)
    {
        for (const std::string &s : servicios)
            haz({"OFRECE", s});
    }
    void publica() { haz({"PUBLICA"}); }
    void usa(const std::string &servicio) { haz({"USA", servicio}); }
    void cierra() { haz({"CIERRA"}); }
    uint32_t manda(const std::string &servicio, uint32_t id_comando = limites_QUIEN)
    {
        return static_cast<uint32_t>(
            std::stoul(campos(pide({"MANDA", servicio, std::to_string(id_comando), "7"})).at(1)));
    }
    // A command there and back, with data and texts.
    void conversa(const std::string &servicio, uint32_t numero, lugar donde = lugar::aqui());

    void espera_informe(const char *modulo, const char *expresion, uint32_t veces = 1)
    {
        for (uint32_t n = 0; n < veces; n++)
            EXPECT_INFORME_DE(m_papel, modulo, expresion);
    }
    uint32_t num_informes() const { return m_papel.num_informes(); }
    // Takes all that are there, which must be this one.
    void toma_informes(const char *expresion)
    {
        while (std::optional<datos_informe> i = m_papel.toma_informe())
            EXPECT_EQ(i->expresion, expresion);
    }
    void acaba()
    {
        m_papel.di("ACABA");
        EXPECT_EQ(m_papel.espera_fin(30000), 0u);
    }
    void mata() { m_papel.mata(); }
    const std::string &ruta() const { return m_ruta; }
    uint32_t pid() const { return m_papel.pid(); }

private:
    std::string m_ruta;
    papel m_papel;
};

inline void libre::conversa(const std::string &servicio, uint32_t numero, lugar donde)
{
    std::vector<std::string> r = campos(pide({"MANDA", servicio, std::to_string(limites_DOBLA), "21"}, donde));
    EXPECT_EQ(r.at(1), "1") << "result of " << servicio << ", line " << donde.linea;
    EXPECT_EQ(r.at(2).substr(r.at(2).find('=') + 1), "42") << "output of " << servicio << ", line " << donde.linea;
    EXPECT_EQ(r.at(3), std::to_string(numero)) << "number of " << servicio << ", line " << donde.linea;
    EXPECT_EQ(r.at(4), servicio.substr(0, 255)) << "line " << donde.linea;
    EXPECT_EQ(r.at(5), "21") << "line " << donde.linea;
}

// ---- The registry as bytes

inline size_t en_programa(size_t i, size_t campo)
{
    return 1430 + i * 274 + campo;
}

inline size_t en_servicio(size_t j, size_t campo)
{
    return 5814 + j * 96 + campo;
}

// The names of a table's used entries, by index.
inline std::map<size_t, std::string> programas()
{
    bloque_crudo registro("Ivrexa_MCB");
    std::map<size_t, std::string> nombres;
    for (size_t i = 0; registro.abierto() && i < 16; i++)
        if (registro.u16(en_programa(i, 0)) % 256 != 0)
            nombres[i] = registro.texto(en_programa(i, 0), 256);
    return nombres;
}

inline std::map<size_t, std::string> servicios_registrados()
{
    bloque_crudo registro("Ivrexa_MCB");
    std::map<size_t, std::string> nombres;
    for (size_t j = 0; registro.abierto() && j < 32; j++)
        if (registro.u16(en_servicio(j, 0)) % 256 != 0)
            nombres[j] = registro.texto(en_servicio(j, 0), 64);
    return nombres;
}

// Where a program stands, 16 if nowhere; a service, 32 if nowhere.
inline size_t lugar_de(const std::map<size_t, std::string> &nombres, const std::string &nombre, size_t ninguno)
{
    for (const auto &[i, n] : nombres)
        if (n == nombre)
            return i;
    return ninguno;
}

inline uint32_t latido_de(size_t i)
{
    return bloque_crudo("Ivrexa_MCB").u32(en_programa(i, 270));
}

// A server without a window may take a client whose heartbeat still stands at 0 for a dead one.
inline void espera_latido(const libre &p)
{
    size_t i = lugar_de(programas(), p.ruta(), 16);
    ASSERT_LT(i, 16u) << p.ruta();
    EXPECT_TRUE(espera_hasta([&] { return latido_de(i) != 0; }, 15000)) << "no heartbeat of " << p.ruta();
}

// Programs that were killed stay in the registry while anybody holds it. Where each case has a process of its own it
// is not there yet, and nothing here keeps it.
class limites : public ::testing::Test {
protected:
    void SetUp() override
    {
        bloque_crudo registro("Ivrexa_MCB");
        if (registro.abierto())
            registro.pon_bytes(0, std::vector<uint8_t>(8886, 0));
    }
};

#endif
