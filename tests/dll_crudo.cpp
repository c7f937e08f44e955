// Programs that keep to the formats without the library: this one is a server and a client by literal names, offsets
// and states, and its partner is a host of the DLL. Nothing here calls the DLL, and it is not loaded.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/util.h"

static const uint32_t PLAZO_MS = 10000;

// A named mutex taken on this thread while the object lives.
class tomado {
public:
    explicit tomado(HANDLE mutex) : m_mutex(mutex)
    {
        EXPECT_NE(WaitForSingleObject(m_mutex, PLAZO_MS), static_cast<DWORD>(WAIT_TIMEOUT)) << "a mutex stays held";
    }
    ~tomado() { ReleaseMutex(m_mutex); }
    tomado(const tomado &) = delete;
    tomado &operator=(const tomado &) = delete;

private:
    HANDLE m_mutex;
};

// What both raw sides hold: the registry, with an entry of this program's own, and the channel of one service.
class extremo {
public:
    extremo(const std::string &servicio, bool es_servidor)
        : m_servicio(servicio), m_registro("Ivrexa_MCB", 8886), m_canal(("Ivrexa_MCB_Serv_" + servicio).c_str(), 2378),
          m_mutex_registro(CreateMutexA(nullptr, FALSE, "Ivrexa_Mutex_MCB")),
          m_mutex(CreateMutexA(nullptr, FALSE, ("Mutex_Ivrexa_" + servicio).c_str()))
    {
        tomado registro(m_mutex_registro);
        m_programa = busca_libre(1430, 274, 16, "");
        m_registro.pon_texto(1430 + m_programa * 274, "crudo");
        m_registro.pon_u16(1430 + m_programa * 274 + (es_servidor ? 264 : 266), 1);
        m_registro.pon_u32(1430 + m_programa * 274 + 270, 1);
        m_ind = busca_libre(5814, 96, 32, servicio);
        m_registro.pon_texto(5814 + m_ind * 96, servicio);
        m_registro.pon_u16(5814 + m_ind * 96 + (es_servidor ? 64 : 66), static_cast<uint16_t>(m_programa));
        m_latido = GetTickCount64();
    }
    ~extremo()
    {
        {
            tomado registro(m_mutex_registro);
            m_registro.pon_bytes(1430 + m_programa * 274, std::vector<uint8_t>(274, 0));
        }
        CloseHandle(m_mutex);
        CloseHandle(m_mutex_registro);
    }
    extremo(const extremo &) = delete;
    extremo &operator=(const extremo &) = delete;

    bloque_crudo &canal() { return m_canal; }
    bloque_crudo &registro() { return m_registro; }
    HANDLE mutex() const { return m_mutex; }
    size_t despl_servicio() const { return 5814 + m_ind * 96; }
    std::string nombre_datos(uint32_t id) const
    {
        return "Ivrexa_MCB_Serv_" + m_servicio + "_Com__comdat" + std::to_string(id);
    }

    // Looks at the channel under its mutex, every 5 ms, until the condition holds; beats meanwhile.
    void espera_en_canal(const char *que, const std::function<bool()> &condicion)
    {
        EXPECT_TRUE(espera_hasta(
            [&] {
                late();
                tomado canal(m_mutex);
                return condicion();
            },
            PLAZO_MS))
            << "never came: " << que << "; state " << m_canal.u32(4) << ", server " << m_canal.u32(30);
    }

    // Takes the next number and stores the content under it. The mutex is held by the caller.
    uint32_t guarda(const std::vector<uint8_t> &contenido)
    {
        uint32_t id = m_canal.u32(12);
        m_canal.pon_u32(12, id + 1);
        m_datos = std::make_unique<bloque_crudo>(nombre_datos(id).c_str(), static_cast<uint32_t>(contenido.size()));
        EXPECT_FALSE(m_datos->ya_existia());
        m_datos->pon_bytes(0, contenido);
        return id;
    }

    void comprueba_datos(uint32_t id, const std::vector<uint8_t> &esperados) const
    {
        bloque_crudo bloque(nombre_datos(id).c_str());
        ASSERT_TRUE(bloque.abierto()) << nombre_datos(id);
        EXPECT_EQ(bloque.cabecera(), esperados.size());
        EXPECT_TRUE(bytes_iguales(esperados, bloque.bytes(0, esperados.size())));
    }

private:
    size_t busca_libre(size_t despl, size_t tam, size_t num, const std::string &nombre) const
    {
        for (size_t i = 0; i < num && !nombre.empty(); i++)
            if (m_registro.texto(despl + i * tam, 64) == nombre)
                return i;
        for (size_t i = 0; i < num; i++)
            if (m_registro.texto(despl + i * tam, 64).empty())
                return i;
        ADD_FAILURE() << "a table of the registry is full";
        return 0;
    }

    void late()
    {
        if (GetTickCount64() - m_latido < 2000)
            return;
        m_latido = GetTickCount64();
        tomado registro(m_mutex_registro);
        size_t despl = 1430 + m_programa * 274 + 270;
        m_registro.pon_u32(despl, m_registro.u32(despl) + 1);
    }

    std::string m_servicio;
    bloque_crudo m_registro, m_canal;
    std::unique_ptr<bloque_crudo> m_datos;
    HANDLE m_mutex_registro, m_mutex;
    size_t m_programa = 0, m_ind = 0;
    uint64_t m_latido = 0;
};

static std::vector<uint8_t> repite(uint8_t byte, size_t num)
{
    return std::vector<uint8_t>(num, byte);
}

// The bytes of the sample that the hosts send, number 2.
static std::vector<uint8_t> bytes_muestra_2()
{
    std::vector<uint8_t> bytes = de_hex("10000000"
                                        "0102 6200 fc"
                                        "0202 7500 02fe"
                                        "0302 6c00 02badcfe"
                                        "0402 6400 0000000000000cc0"
                                        "0802 6800 0277665544332211"
                                        "0506 627974657300 06000000 00017f80ff00"
                                        "0506 766163696f00 00000000"
                                        "0605 616e736900 07000000 61f16f20257c00"
                                        "0605 616e736900 01000000 00"
                                        "0601 00 00000000"
                                        // elements at 136, 144 and 149
                                        "0904 61727200 03000000 88000000 90000000 95000000"
                                        "04000000 756e6f00 01000000 00 06000000 74726573f100"
                                        "0905 6172723000 00000000"
                                        "01ff");
    for (uint8_t byte : repite('n', 254))
        bytes.push_back(byte);
    std::vector<uint8_t> resto = de_hex("00 00"
                                        "0703 773000 00000000"
                                        "0703 773100 02000000 0000"
                                        "0702 7700 0e000000 4100f100ac203dd800de7c000000");
    bytes.insert(bytes.end(), resto.begin(), resto.end());
    return bytes;
}

static std::wstring texto_muestra_2(int cual)
{
    std::wstring texto;
    for (int i = 0; i < (cual == 1 ? 63 : 255); i++)
        texto += static_cast<wchar_t>(cual == 1 ? L'a' + (i + 2) % 26 : cual == 2 ? 0x100 + 510 + i : 0xd7ff - i);
    return texto;
}

static papel arranca_anfitrion(const std::string &papel_suyo, const std::string &clase, const std::string &servicio)
{
    opciones_papel opciones;
    opciones.programa = "dll_papel_c.exe";
    return arranca_papel(papel_suyo, {clase, servicio}, opciones);
}

// ---- A raw server without a window

static void se_anuncia(extremo &yo)
{
    tomado mutex(yo.mutex());
    yo.canal().pon_u16(0, 2378);
    yo.canal().pon_u16(2, 9);
    yo.canal().pon_u32(12, 100);
    yo.canal().pon_u32(30, 1);
}

// Takes the command that is written there. The mutex is held.
static void toma_comando(extremo &yo, uint32_t id_comando, uint32_t id_entrada)
{
    bloque_crudo &canal = yo.canal();
    EXPECT_EQ(canal.u32(1198), 2u) << "ocupacion";
    EXPECT_EQ(canal.u32(1202), id_comando);
    EXPECT_EQ(canal.u32(1206), id_entrada);
    EXPECT_EQ(yo.registro().u32(yo.despl_servicio() + 80), id_comando) << "id_comando_en_curso";
    canal.pon_u32(30, 2);
    canal.pon_u32(4, 2);
    canal.pon_u32(8, 0);
    canal.pon_u32(1206, 0);
}

static void acaba_comando(extremo &yo, uint32_t resultado)
{
    {
        tomado mutex(yo.mutex());
        yo.canal().pon_u32(8, resultado);
        yo.canal().pon_u32(4, 3);
        yo.canal().pon_u32(30, 3);
    }
    yo.espera_en_canal("the receipt, state 4", [&] { return yo.canal().u32(4) == 4; });
    tomado mutex(yo.mutex());
    yo.canal().pon_u32(4, 5);
    yo.canal().pon_u32(30, 1);
}

TEST(dll_crudo, servidor_sin_biblioteca_contesta_a_un_cliente_con_ella)
{
    EXPECT_EQ(GetModuleHandleA("ivrexa.dll"), nullptr);
    std::string servicio = nombre_unico("crudo");
    extremo yo(servicio, true);
    se_anuncia(yo);
    papel cliente = arranca_anfitrion("cliente", "ventana", servicio);
    std::string hwnd_cliente = cliente.espera_linea("HWND ", 5000).substr(5);

    cliente.di("ECO 2");
    yo.espera_en_canal("a command, state 1", [&] {
        if (yo.canal().u32(4) != 1)
            return false;
        toma_comando(yo, 100, 100);
        return true;
    });
    EXPECT_EQ(std::to_string(yo.canal().u64(1190)), hwnd_cliente);
    EXPECT_EQ(yo.canal().texto_u(1210, 64), texto_muestra_2(1));
    EXPECT_EQ(yo.canal().texto_u(1338, 256), texto_muestra_2(2));
    EXPECT_EQ(yo.canal().texto_u(1850, 256), texto_muestra_2(3));
    yo.comprueba_datos(100, bytes_muestra_2());
    {
        tomado mutex(yo.mutex());
        yo.canal().pon_u32(34, yo.guarda(de_hex("02000000 0102 6200 05 0702 7700 04000000 41000000")));
        yo.canal().pon_texto_u(38, L"uno");
        yo.canal().pon_texto_u(166, L"dos");
        yo.canal().pon_texto_u(678, L"");
    }
    acaba_comando(yo, 1);
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 5000), "RESULTADO 1|100|101");
    EXPECT_EQ(cliente.espera_linea("TEXTOS ", 5000), "TEXTOS 0075006e006f|0064006f0073|");
    EXPECT_EQ(cliente.espera_linea("SALIDA ", 5000), "SALIDA 2;1:b=05;7:w=0041");

    cliente.di("COMANDO 555");
    yo.espera_en_canal("a second command", [&] {
        if (yo.canal().u32(4) != 1)
            return false;
        toma_comando(yo, 555, 0);
        return true;
    });
    acaba_comando(yo, 2);
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 5000), "RESULTADO 2");
    for (size_t despl : {4, 1198, 1202, 1206})
        EXPECT_EQ(yo.canal().u32(despl), 0u) << despl;
    EXPECT_EQ(yo.registro().u32(yo.despl_servicio() + 80), 0u);

    // It ends its service, and says so.
    {
        tomado mutex(yo.mutex());
        yo.canal().pon_u16(28, 1);
        yo.canal().pon_u32(30, 0);
    }
    cliente.di("COMANDO 555");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 5000), "RESULTADO 3");
    cliente.di("ACABA");
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}

// ---- A raw client

static void reclama(extremo &yo, uint32_t id_comando, uint32_t id_entrada)
{
    bloque_crudo &canal = yo.canal();
    canal.pon_u32(1202, id_comando);
    canal.pon_u32(1206, id_entrada);
    yo.registro().pon_u32(yo.despl_servicio() + 76, 0);
    yo.registro().pon_u32(yo.despl_servicio() + 80, id_comando);
    tomado mutex(yo.mutex());
    EXPECT_EQ(canal.u32(1198), 0u);
    canal.pon_u32(1198, 1);
    canal.pon_u64(1190, 0x1234);
    canal.pon_texto_u(1210, L"abc");
    canal.pon_texto_u(1338, L"\x20ac"
                            L"e");
    canal.pon_texto_u(1850, L"");
    canal.pon_u32(4, 1);
    canal.pon_u32(1198, 2);
}

static uint32_t espera_resultado(extremo &yo, uint32_t id_comando, uint32_t id_entrada)
{
    bloque_crudo &canal = yo.canal();
    UINT msg = canal.u32(24);
    if (msg != 0) {
        LRESULT r = SendMessageW(reinterpret_cast<HWND>(canal.u64(16)), msg, id_comando, id_entrada);
        canal.pon_u32(8, static_cast<uint32_t>(r));
        return static_cast<uint32_t>(r);
    }
    yo.espera_en_canal("the end, state 3", [&] { return canal.u32(4) == 3; });
    EXPECT_EQ(canal.u32(30), 3u);
    return canal.u32(8);
}

static void despide(extremo &yo)
{
    bloque_crudo &canal = yo.canal();
    {
        tomado mutex(yo.mutex());
        canal.pon_u32(4, 4);
    }
    yo.espera_en_canal("the goodbye, state 5", [&] { return canal.u32(4) == 5 || canal.u32(30) <= 1; });
    {
        tomado mutex(yo.mutex());
        canal.pon_u32(1198, 0);
        canal.pon_u32(4, 0);
    }
    yo.registro().pon_u32(yo.despl_servicio() + 76, 0);
    yo.registro().pon_u32(yo.despl_servicio() + 80, 0);
    canal.pon_u32(1202, 0);
    canal.pon_u32(1206, 0);
}

class cliente_crudo : public ::testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(servidor, cliente_crudo, ::testing::Values("ventana", "sin_ventana", "net"),
                         [](const auto &dato) { return std::string(dato.param); });

TEST_P(cliente_crudo, sin_biblioteca_manda_a_un_servidor_con_ella)
{
    EXPECT_EQ(GetModuleHandleA("ivrexa.dll"), nullptr);
    std::string clase = GetParam(), servicio = nombre_unico("crudo");
    papel servidor = arranca_anfitrion("servidor", clase, servicio);
    extremo yo(servicio, false);
    bloque_crudo &canal = yo.canal();
    EXPECT_TRUE(canal.ya_existia());
    EXPECT_EQ(canal.cabecera(), 2378u);
    EXPECT_EQ(canal.u16(0), 2378u);
    EXPECT_EQ(canal.u16(2), 300u);
    EXPECT_EQ(canal.u16(28), 0u);
    EXPECT_EQ(canal.u32(30), 1u);
    EXPECT_EQ("HWND " + std::to_string(canal.u64(16)), servidor.espera_linea("HWND ", 5000));
    EXPECT_EQ(canal.u32(24),
              clase == "sin_ventana" ? 0 : RegisterWindowMessageA(("Ivrexa_MSG_Serv_" + servicio).c_str()));

    std::vector<uint8_t> contenido = de_hex("02000000 0302 6c00 78563412 0602 7300 03000000 686f00");
    uint32_t id_entrada;
    {
        tomado mutex(yo.mutex());
        id_entrada = yo.guarda(contenido);
    }
    EXPECT_EQ(id_entrada, 100u);
    reclama(yo, 100, id_entrada);
    EXPECT_EQ(espera_resultado(yo, 100, id_entrada), 1u);
    EXPECT_EQ(servidor.espera_linea("ENTRADA ", 5000), "ENTRADA 2;3:l=78563412;6:s=686f00");
    EXPECT_EQ(servidor.espera_linea("TEXTOS ", 5000), "TEXTOS 006100620063|20ac0065|");
    if (clase != "net") {
        EXPECT_EQ(servidor.espera_linea("CONTEXTO ", 5000), "CONTEXTO 4660|" + std::to_string(canal.u64(16)));
        EXPECT_EQ(canal.u32(1206), 0u) << "the input is taken once";
    }
    EXPECT_EQ(canal.u32(34), 101u);
    EXPECT_EQ(canal.u32(12), 102u);
    EXPECT_EQ(canal.texto_u(38, 64), L"cba");
    EXPECT_EQ(canal.texto_u(166, 256), L"e\x20ac");
    EXPECT_EQ(canal.texto_u(678, 256), L"");
    yo.comprueba_datos(101, contenido);
    despide(yo);

    reclama(yo, 127, 0);
    EXPECT_EQ(espera_resultado(yo, 127, 0), 7u);
    despide(yo);
    if (clase == "sin_ventana") {
        servidor.di("ESPERA");
        reclama(yo, 1, 0);
        yo.espera_en_canal("the end of the service", [&] { return canal.u16(28) == 1 && canal.u32(30) == 0; });
        servidor.espera_linea("ESPERADO", 5000);
    }
    servidor.di("ACABA");
    EXPECT_EQ(servidor.espera_fin(10000), 0u);
}
