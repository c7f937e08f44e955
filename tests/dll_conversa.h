// dll_conversa.h - what the tests of conversations share: roles, and a client in the test's own process.
// For one source file of a program: it defines the roles "servidor" and "cliente".
#ifndef DLL_CONVERSA_H
#define DLL_CONVERSA_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/informes.h"
#include "comun/papel.h"
#include "comun/traza_captura.h"
#include "comun/util.h"
#include "comun/ventana.h"

#include "dll_anfitrion.h"

PAPEL(servidor)
{
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

PAPEL(cliente)
{
    return anfitrion_cliente(args[0].c_str(), args[1].c_str());
}

[[maybe_unused]] static const char *const CLASES_SERVIDOR[] = {"ventana", "sin_ventana", "net"};

// ---- Roles

inline papel arranca_servidor(const std::string &clase, const std::string &servicios, bool en_c = false,
                              opciones_papel opciones = {})
{
    if (en_c)
        opciones.programa = "dll_papel_c.exe";
    return arranca_papel("servidor", {clase, servicios}, opciones);
}

inline papel arranca_cliente(const std::string &clase, const std::string &servicio, bool en_c = false,
                             opciones_papel opciones = {})
{
    if (en_c)
        opciones.programa = "dll_papel_c.exe";
    return arranca_papel("cliente", {clase, servicio}, opciones);
}

inline std::string ruta_de(const papel &p)
{
    return "papel_" + std::to_string(p.pid());
}

inline void acaba(papel &p)
{
    p.di("ACABA");
    EXPECT_EQ(p.espera_fin(15000), 0u);
}

// ---- The registry as bytes

// Where the entry of a program begins, found by its path; 0 if it has none.
inline size_t despl_programa(const bloque_crudo &registro, const std::string &ruta)
{
    for (size_t i = 0; i < 16; i++)
        if (registro.texto(1430 + i * 274, 256) == ruta)
            return 1430 + i * 274;
    return 0;
}

inline size_t despl_servicio(const bloque_crudo &registro, const std::string &servicio)
{
    for (size_t i = 0; i < 32; i++)
        if (registro.texto(5814 + i * 96, 64) == servicio)
            return 5814 + i * 96;
    return 0;
}

inline uint32_t latido_de(const std::string &ruta)
{
    bloque_crudo registro("Ivrexa_MCB");
    size_t despl = registro.abierto() ? despl_programa(registro, ruta) : 0;
    return despl != 0 ? registro.u32(despl + 270) : 0;
}

// A server without a window may take a client whose heartbeat still stands at 0 for a dead one.
inline void espera_latido(const std::string &ruta)
{
    EXPECT_TRUE(espera_hasta([&] { return latido_de(ruta) != 0; }, 10000)) << "no heartbeat of " << ruta;
}

// Returns just after a heartbeat: the next one is 2 s away.
inline void espera_latido_nuevo(const std::string &ruta)
{
    uint32_t antes = latido_de(ruta);
    EXPECT_TRUE(espera_hasta([&] { return latido_de(ruta) != antes; }, 10000)) << "no heartbeat of " << ruta;
}

// Programs that a test killed stay in the registry for as long as anybody holds the block, which is as long as this
// process lives. Each test begins with none.
inline void vacia_registro()
{
    bloque_crudo registro("Ivrexa_MCB");
    if (registro.abierto())
        registro.pon_bytes(0, std::vector<uint8_t>(8886, 0));
}

inline std::string nombre_canal(const std::string &servicio)
{
    return "Ivrexa_MCB_Serv_" + servicio;
}

inline std::string nombre_datos(const std::string &servicio, uint32_t id)
{
    return "Ivrexa_MCB_Serv_" + servicio + "_Com__comdat" + std::to_string(id);
}

// ---- Samples, as the roles tell them

inline std::string hex_u(const std::wstring &texto)
{
    char linea[anfitrion_TAM_LINEA] = "";
    anfitrion_anexa_texto_u(linea, texto.c_str());
    return linea;
}

inline std::string linea_textos(const std::wstring &t1, const std::wstring &t2, const std::wstring &t3)
{
    return "TEXTOS " + hex_u(t1) + "|" + hex_u(t2) + "|" + hex_u(t3);
}

inline std::wstring del_reves(const std::wstring &texto)
{
    return std::wstring(texto.rbegin(), texto.rend());
}

// All values of sample n (0 to 5), written out.
inline std::string muestra_descrita(uint32_t n)
{
    static const char *const dobles[] = {"000000000000f8bf", "00000000000004c0", "0000000000000cc0",
                                         "00000000000012c0", "00000000000016c0", "0000000000001ac0"};
    std::string d = std::to_string(n);
    static const char *const byte[] = {"fa", "fb", "fc", "fd", "fe", "ff"};
    return std::string("16;1:b=") + byte[n] + ";2:u=0" + d + "fe;3:l=0" + d + "badcfe;4:d=" + dobles[n] + ";8:h=0" + d +
           "77665544332211;5:bytes=00017f80ff00;5:vacio=nulo;6:ansi=61f16f20257c00;6:ansi=00;6:=nulo" +
           ";9:arr=756e6f00,00,74726573f100,;9:arr0=;1:" + std::string(254, 'n') +
           "=00;7:w0=nulo;7:w1=;7:w=004100f120acd83dde00007c";
}

// ---- A client in this process

struct respuesta {
    uint32_t resultado = 0;
    uint32_t id_salida = 0; // 0xaaaaaaaa: nothing was written there
    std::wstring t1, t2, t3;
};

// The text in a buffer of `num` characters; what lies behind them must be as it was.
inline std::wstring texto_en(const std::vector<wchar_t> &buffer, size_t num)
{
    for (size_t i = num; i < buffer.size(); i++)
        EXPECT_EQ(buffer[i], L'#') << "written past the end of a buffer of " << num << " characters";
    size_t largo = 0;
    while (largo < num && buffer[largo] != 0)
        largo++;
    EXPECT_LT(largo, num) << "a text without its end";
    return std::wstring(buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(largo));
}

inline respuesta ejecuta(const std::string &servicio, uint32_t id_comando, uint32_t id_entrada = 0,
                         const wchar_t *t1 = nullptr, const wchar_t *t2 = nullptr, const wchar_t *t3 = nullptr,
                         uint16_t opciones = 0)
{
    std::vector<wchar_t> r1(64 + 8, L'#'), r2(256 + 8, L'#'), r3(256 + 8, L'#');
    respuesta r;
    r.id_salida = 0xaaaaaaaa;
    r.resultado = ivrexa_ejecuta_comando(servicio.c_str(), id_comando, opciones, id_entrada, t1, t2, t3, &r.id_salida,
                                         r1.data(), r2.data(), r3.data());
    r.t1 = texto_en(r1, 64);
    r.t2 = texto_en(r2, 256);
    r.t3 = texto_en(r3, 256);
    return r;
}

// Stored input with the values of sample n, destroyed with the object.
class entrada_muestra {
public:
    entrada_muestra(const std::string &servicio, uint32_t n)
        : m_datos(ivrexa_crea_datos_comando_entrada(servicio.c_str()))
    {
        anfitrion_graba_muestra(m_datos, n);
        m_id = ivrexa_guarda_datos(m_datos);
    }
    ~entrada_muestra() { ivrexa_destruye_datos_comando(m_datos); }
    entrada_muestra(const entrada_muestra &) = delete;
    entrada_muestra &operator=(const entrada_muestra &) = delete;
    uint32_t id() const { return m_id; }

private:
    comdat *m_datos;
    uint32_t m_id = 0;
};

inline std::string describe(comdat *datos)
{
    char texto[anfitrion_TAM_LINEA] = "";
    anfitrion_copia_valores(datos, nullptr, texto);
    return texto;
}

// Tests whose own process is a client.
class conversacion : public ::testing::Test {
protected:
    void SetUp() override { vacia_registro(); }

    // The close takes a second. A process that runs one case leaves it to its end.
    void TearDown() override
    {
        if (::testing::UnitTest::GetInstance()->test_to_run_count() > 1)
            ivrexa_cierra_sesion();
        if (m_hwnd != nullptr)
            destruye_ventana(&m_hwnd);
    }

    const std::string &ruta() const { return m_ruta; }
    HWND hwnd() const { return m_hwnd; }
    void da_ventana() { m_hwnd = crea_ventana(); }

    void registra(const std::string &servicio)
    {
        ivrexa_registra_cliente_de_servicio(m_ruta.c_str(), m_hwnd, servicio.c_str());
    }

    // Registers, and waits for what a server of this kind asks of its clients.
    void registra_para(const std::string &clase, const std::string &servicio)
    {
        registra(servicio);
        if (clase == "sin_ventana")
            espera_latido(m_ruta);
    }

private:
    const std::string m_ruta = nombre_unico("prueba");
    HWND m_hwnd = nullptr;
};

// The same, once for each kind of server.
class con_cada_servidor : public conversacion, public ::testing::WithParamInterface<const char *> {
protected:
    const std::string clase = GetParam();
    const std::string servicio = nombre_unico("serv");
};

#define CON_CADA_SERVIDOR(suite)                                                    \
    INSTANTIATE_TEST_SUITE_P(servidor, suite, ::testing::ValuesIn(CLASES_SERVIDOR), \
                             [](const auto &dato) { return std::string(dato.param); })

#endif
