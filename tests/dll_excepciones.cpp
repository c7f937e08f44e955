// Servers without a window whose command functions raise: what their clients get, and what the servers have left.
#include <algorithm>
#include <map>
#include <memory>

#include "comun/manejadores.h"
#include "comun/reventar.h"

#include "dll_conversa.h"

namespace {

// Beside the ways to fail: what the function has in its hands when it does.
enum : uint32_t {
    CON_ENTRADA = 300, // it has read its input
    CON_TEXTOS,        // it has answered already, texts and an id
    CON_SALIDA,        // it has stored output, which its destructor destroys
    CON_SALIDA_SUELTA, // the same, and nobody does
    CAPTURADA = 400,   // a C++ exception that the function catches
};

struct destruye_datos {
    void operator()(comdat *datos) const { ivrexa_destruye_datos_comando(datos); }
};

uint32_t guarda_salida(anfitrion_peticion *p, std::unique_ptr<comdat, destruye_datos> *salida)
{
    salida->reset(ivrexa_crea_datos_comando_salida(p->servicio));
    anfitrion_graba_muestra(salida->get(), 1);
    return ivrexa_guarda_datos(salida->get());
}

int32_t revienta_con(anfitrion_peticion *p)
{
    char texto[anfitrion_TAM_LINEA] = "";
    wchar_t t1[64] = L"";
    std::unique_ptr<comdat, destruye_datos> salida;
    if (p->id_comando == CON_ENTRADA) {
        anfitrion_copia_valores(p->entrada, nullptr, texto);
        ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, nullptr, t1, nullptr, nullptr);
        papel_c_di("LEIDO %s", texto);
        anfitrion_di_textos(t1, L"", L"");
    }
    if (p->id_comando == CON_SALIDA || p->id_comando == CON_SALIDA_SUELTA)
        papel_c_di("GUARDADO %u", (unsigned)guarda_salida(p, &salida));
    if (p->id_comando == CON_SALIDA_SUELTA)
        salida.release();
    if (p->id_comando == CON_TEXTOS)
        ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 55, L"no", L"debe", L"llegar");
    reventar::revienta(reventar::CPP_ANIDADOS);
    return 1;
}

int32_t lanza_y_captura()
{
    try {
        reventar::lanza_bajo(2);
    } catch (const std::exception &) {
    }
    return 1;
}

int32_t revienta(anfitrion_peticion *p)
{
    if (p->id_comando == CAPTURADA)
        return lanza_y_captura();
    if (p->id_comando >= CON_ENTRADA)
        return revienta_con(p);
    reventar::revienta(p->id_comando);
    return 1;
}

HANDLE s_monton; // the library's

HANDLE monton_que_llega(void (*trabajo)())
{
    HANDLE antes[64], despues[64];
    DWORD num_antes = GetProcessHeaps(64, antes);
    trabajo();
    DWORD num = GetProcessHeaps(64, despues);
    for (DWORD i = 0; i < num; i++)
        if (std::find(antes, antes + num_antes, despues[i]) == antes + num_antes)
            return despues[i];
    return nullptr;
}

uint32_t bloques_en(HANDLE monton)
{
    PROCESS_HEAP_ENTRY entrada = {};
    uint32_t num = 0;
    while (HeapWalk(monton, &entrada))
        num += (entrada.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    return num;
}

// "QUEDA handles|blocks of the library's heap|the host's own objects|exceptions"
int obedece_y_cuenta(const char *linea)
{
    if (strcmp(linea, "QUEDA") != 0)
        return anfitrion_obedece(linea);
    papel_c_di("QUEDA %s|%u|%ld|%ld", en_linea(cuenta_por_tipo()).c_str(), (unsigned)bloques_en(s_monton),
               reventar::vivos, reventar::excepciones);
    return 1;
}

} // namespace

PAPEL(servidor_que_revienta)
{
    anfitrion_yo.otros = revienta;
    s_monton = monton_que_llega([] { ivrexa_destruye_datos_comando(ivrexa_crea_datos_comando_entrada("x")); });
    return anfitrion_servidor_que("sin_ventana", args[0].c_str(), obedece_y_cuenta);
}

class excepciones : public conversacion {
protected:
    void SetUp() override
    {
        conversacion::SetUp();
        m_servidor = std::make_unique<papel>(arranca_papel("servidor_que_revienta", {m_servicio}));
    }

    void se_registra()
    {
        registra(m_servicio);
        espera_latido(ruta());
    }

    std::string queda()
    {
        m_servidor->di("QUEDA");
        return m_servidor->espera_linea("QUEDA ", 10000);
    }

    bool mutex_libre()
    {
        return mutex_crudo(("Mutex_Ivrexa_" + m_servicio).c_str()).retiene(5000) &&
               mutex_crudo("ivrexa_iv_mem").libre();
    }

    void comprueba_eco()
    {
        entrada_muestra entrada(m_servicio, 3);
        respuesta r = ejecuta(m_servicio, 100, entrada.id(), L"ab", L"cd", L"ef");
        EXPECT_EQ(r.resultado, 1u);
        EXPECT_EQ(r.t1 + r.t2 + r.t3, L"badcfe");
        EXPECT_EQ(m_servidor->espera_linea("ENTRADA ", 5000), "ENTRADA " + muestra_descrita(3));
        comdat *salida = ivrexa_lee_datos(m_servicio.c_str(), r.id_salida, FALSO);
        EXPECT_EQ(describe(salida), muestra_descrita(3));
        ivrexa_destruye_datos_comando(salida);
    }

    void comprueba_que_da_3(uint32_t id_comando, uint32_t id_entrada = 0)
    {
        SCOPED_TRACE(id_comando);
        respuesta r = ejecuta(m_servicio, id_comando, id_entrada, L"t");
        EXPECT_EQ(r.resultado, 3u);
        EXPECT_EQ(r.id_salida, 0xaaaaaaaau);
        EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");
        EXPECT_TRUE(mutex_libre());
    }

    const std::string m_servicio = nombre_unico("serv");
    std::unique_ptr<papel> m_servidor;
};

// ---- A client of the library

struct grupo {
    const char *nombre;
    std::vector<uint32_t> modos;
};

static std::ostream &operator<<(std::ostream &salida, const grupo &g)
{
    return salida << g.nombre;
}

class excepciones_de_un_grupo : public excepciones, public ::testing::WithParamInterface<grupo> {};

TEST_P(excepciones_de_un_grupo, dan_3_al_cliente_y_el_siguiente_comando_recibe_lo_suyo)
{
    se_registra();
    EXPECT_EQ(ejecuta(m_servicio, CAPTURADA).resultado, 1u); // what the run-time makes for a thread is there
    std::string antes = queda();
    for (uint32_t modo : GetParam().modos)
        comprueba_que_da_3(modo);
    EXPECT_EQ(queda(), antes);
    comprueba_eco();
    acaba(*m_servidor);
}

static const grupo GRUPOS[] = {
    {"accesos", {reventar::LEE_NULO, reventar::ESCRIBE_NULO, reventar::EJECUTA_NULO}},
    {"codigos",
     {reventar::CODIGO, reventar::CODIGO_SIN_VUELTA, reventar::DIVIDE_POR_CERO, reventar::INSTRUCCION_ILEGAL}},
    {"lanzadas", {reventar::CPP_ENTERO, reventar::CPP_ESTANDAR, reventar::CPP_UN_DESTRUCTOR, reventar::CPP_ANIDADOS}},
    {"relanzadas",
     {reventar::CPP_RELANZADA, reventar::CPP_OTRA_EN_SU_CATCH, reventar::CPP_GUARDADA, reventar::CPP_TRAS_CAPTURA}},
    {"destructores", {reventar::CPP_DESTRUCTOR_QUE_LANZA, reventar::CPP_MALA_AL_MORIR}},
    {"pila", {reventar::PILA, reventar::PILA, reventar::PILA}},
};
INSTANTIATE_TEST_SUITE_P(clase, excepciones_de_un_grupo, ::testing::ValuesIn(GRUPOS),
                         [](const auto &dato) { return std::string(dato.param.nombre); });

TEST_F(excepciones, con_datos_y_textos_en_las_manos_dan_3_y_solo_lo_suelto_del_programa_queda)
{
    se_registra();
    entrada_muestra entrada(m_servicio, 2); // block 100
    comprueba_que_da_3(CON_ENTRADA, entrada.id());
    EXPECT_EQ(m_servidor->espera_linea("LEIDO ", 5000), "LEIDO " + muestra_descrita(2));
    EXPECT_EQ(m_servidor->espera_linea("TEXTOS ", 5000), linea_textos(L"t", L"", L""));

    std::string antes = queda();
    comprueba_que_da_3(CON_TEXTOS);
    comprueba_que_da_3(CON_SALIDA);
    EXPECT_EQ(m_servidor->espera_linea("GUARDADO ", 5000), "GUARDADO 101");
    EXPECT_FALSE(existe_bloque(nombre_datos(m_servicio, 101).c_str())) << "the host's destructor took it along";
    comprueba_que_da_3(CON_SALIDA_SUELTA);
    EXPECT_EQ(m_servidor->espera_linea("GUARDADO ", 5000), "GUARDADO 102");
    EXPECT_TRUE(existe_bloque(nombre_datos(m_servicio, 102).c_str())) << "nobody's but the host's to destroy";

    manejadores mas = de_linea(queda().substr(6)) - de_linea(antes.substr(6));
    EXPECT_EQ(mas.bloques, 3) << "the channel, found twice while storing, and the output that the host let lie";
    EXPECT_EQ(mas.mutexes, 0);
    comprueba_eco();
    acaba(*m_servidor);
}

// ---- By the channel's bytes alone: sixteen services, each with a thread of its own, all at once

namespace {

class cliente_de_bytes {
public:
    explicit cliente_de_bytes(const std::string &servicio) : m_canal(nombre_canal(servicio).c_str()) {}

    void manda(uint32_t id_comando)
    {
        m_canal.pon_u32(1202, id_comando);
        m_canal.pon_u32(1198, 2);
        m_canal.pon_u32(4, 1);
    }

    // Takes the next step, if the server has taken its own; true once it has seen the receipt.
    bool anda(uint32_t *resultado)
    {
        if (m_canal.u32(4) == 3) {
            *resultado = m_canal.u32(8);
            m_canal.pon_u32(4, 4);
        }
        if (m_canal.u32(4) != 5)
            return false;
        m_canal.pon_u32(4, 0);
        m_canal.pon_u32(1198, 0);
        return true;
    }

private:
    bloque_crudo m_canal;
};

} // namespace

class excepciones_a_la_vez : public conversacion {
protected:
    enum { NUM_SERVICIOS = 16, VECES = 32 };

    void SetUp() override
    {
        conversacion::SetUp();
        std::string lista;
        for (int i = 0; i < NUM_SERVICIOS; i++) {
            m_nombres.push_back(nombre_unico("serv"));
            lista += (i == 0 ? "" : ",") + m_nombres.back();
        }
        m_servidor = std::make_unique<papel>(arranca_papel("servidor_que_revienta", {lista}));
        for (const std::string &nombre : m_nombres)
            m_clientes.emplace_back(nombre);
    }

    // Sends to each service the command that `orden` gives for its place and turn, `veces` times; the results, counted.
    std::map<uint32_t, int> ejecuta_todos(int veces, uint32_t (*orden)(int servicio, int vez))
    {
        std::map<uint32_t, int> resultados;
        std::vector<int> hechas(NUM_SERVICIOS, 0);
        for (int i = 0; i < NUM_SERVICIOS; i++)
            m_clientes[i].manda(orden(i, 0));
        espera_hasta([&] { return !anda_uno_de_todos(veces, orden, &hechas, &resultados); }, 60000);
        return resultados;
    }

    bool anda_uno_de_todos(int veces, uint32_t (*orden)(int, int), std::vector<int> *hechas,
                           std::map<uint32_t, int> *resultados)
    {
        bool faltan = false;
        for (int i = 0; i < NUM_SERVICIOS; i++) {
            if ((*hechas)[i] < veces && m_clientes[i].anda(&m_resultado[i])) {
                (*resultados)[m_resultado[i]]++;
                if (++(*hechas)[i] < veces)
                    m_clientes[i].manda(orden(i, (*hechas)[i]));
            }
            faltan = faltan || (*hechas)[i] < veces;
        }
        return faltan;
    }

    std::string queda()
    {
        m_servidor->di("QUEDA");
        return m_servidor->espera_linea("QUEDA ", 10000);
    }

    uint32_t m_resultado[NUM_SERVICIOS] = {};
    std::vector<std::string> m_nombres;
    std::vector<cliente_de_bytes> m_clientes;
    std::unique_ptr<papel> m_servidor;
};

TEST_F(excepciones_a_la_vez, quinientas_en_dieciseis_hilos_dan_3_y_no_dejan_nada)
{
    using cuenta = std::map<uint32_t, int>;
    EXPECT_EQ(ejecuta_todos(1, [](int, int) -> uint32_t { return CAPTURADA; }), (cuenta{{1, NUM_SERVICIOS}}));
    std::string antes = queda();

    auto cada_vez_otra = [](int servicio, int vez) -> uint32_t {
        static const uint32_t MODOS[] = {reventar::ESCRIBE_NULO, reventar::CODIGO, reventar::CPP_ANIDADOS,
                                         reventar::PILA};
        return MODOS[(servicio + vez) % 4];
    };
    EXPECT_EQ(ejecuta_todos(VECES, cada_vez_otra), (cuenta{{3, NUM_SERVICIOS * VECES}}));
    EXPECT_EQ(queda(), antes);
    EXPECT_EQ(ejecuta_todos(1, [](int servicio, int) -> uint32_t { return 120u + servicio; }).size(), NUM_SERVICIOS);

    registra(m_nombres[0]);
    espera_latido(ruta());
    EXPECT_EQ(ejecuta(m_nombres[0], 100, 0, L"ab").t1, L"ba");
    acaba(*m_servidor);
}
