// How many handles each call leaves open, exactly: what finds an existing block keeps a handle of it for
// good, and nothing else stays. Counted by kind, in the process that calls and in the server.
#include <functional>

#include "comun/manejadores.h"

#include "dll_conversa.h"

namespace {

const uint32_t TAM_REGISTRO = 8886, TAM_CANAL = 2378;

int obedece_y_cuenta(const char *linea)
{
    if (strcmp(linea, "CUENTA") != 0)
        return anfitrion_obedece(linea);
    papel_c_di("CUENTA %s", en_linea(cuenta_por_tipo()).c_str());
    return 1;
}

manejadores cuenta_en(papel &servidor)
{
    servidor.di("CUENTA");
    return de_linea(servidor.espera_linea("CUENTA ", 10000).substr(7));
}

int32_t no_se_llama(const char *, uint32_t, comando *, void *)
{
    ADD_FAILURE() << "no command was sent";
    return 3;
}

} // namespace

// A server that tells its handles.
PAPEL(servidor_contable)
{
    return anfitrion_servidor_que(args[0].c_str(), args[1].c_str(), obedece_y_cuenta);
}

// The registry is there before the library opens it, whoever ran before.
class manejadores_que_quedan : public conversacion {
protected:
    void SetUp() override
    {
        conversacion::SetUp();
        m_hwnd_ajena = crea_ventana(); // the window system is loaded
        cuenta_por_tipo();
    }
    void TearDown() override
    {
        destruye_ventana(&m_hwnd_ajena);
        conversacion::TearDown();
    }

    static manejadores de(const std::function<void()> &trabajo)
    {
        manejadores antes = cuenta_por_tipo();
        trabajo();
        return cuenta_por_tipo() - antes;
    }

    bloque_crudo m_registro{"Ivrexa_MCB", TAM_REGISTRO};
    HWND m_hwnd_ajena = nullptr;
};

// ---- Registering and closing

class manejadores_de_un_servidor : public manejadores_que_quedan, public ::testing::WithParamInterface<const char *> {
protected:
    void registra_y_anyade(const char *uno, const char *otro)
    {
        const bool con_funcion = m_clase != "net";
        HWND hwnd_programa = m_clase == "sin_ventana" ? nullptr : hwnd();
        EXPECT_EQ(de([&] {
                      if (con_funcion)
                          ivrexa_registra_servidor(ruta().c_str(), hwnd_programa, uno, 1, nullptr, no_se_llama);
                      else
                          ivrexa_registra_servidor_net(ruta().c_str(), hwnd_programa, uno, 1);
                  }),
                  (manejadores{2, 2, 1}))
            << "the registry twice, its mutex and the heap's lock, the heartbeat";
        EXPECT_EQ(de([&] {
                      if (con_funcion)
                          ivrexa_anyade_servicio(otro, 1, nullptr, no_se_llama);
                      else
                          ivrexa_anyade_servicio_net(otro, 1);
                  }),
                  (manejadores{0, 0, 0}));
        if (!con_funcion)
            EXPECT_INFORME("iv_reg", "procesaComandoExterno != NULL");
    }

    const std::string m_clase = GetParam();
};
CON_CADA_SERVIDOR(manejadores_de_un_servidor);

TEST_P(manejadores_de_un_servidor, cada_paso_abre_los_suyos_y_el_cierre_deja_los_que_encontraron_bloques)
{
    const std::string nuevo = nombre_unico("nuevo"), viejo = nombre_unico("viejo");
    bloque_crudo canal_viejo(nombre_canal(viejo).c_str(), TAM_CANAL);
    if (m_clase != "sin_ventana")
        da_ventana();
    m_registro.pon_texto(1430 + 15 * 274, "another program");
    manejadores antes = cuenta_por_tipo();

    registra_y_anyade(nuevo.c_str(), viejo.c_str());
    EXPECT_EQ(de(ivrexa_terminado_registro), (manejadores{3, 4, m_clase == "sin_ventana" ? 2 : 0}))
        << "the new channel once and the old one twice, two mutexes a service, a thread if there is no "
           "window";
    ivrexa_cierra_sesion();

    EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{2, 0, 0})) << "what found the registry and the old channel";
    EXPECT_FALSE(existe_bloque(nombre_canal(nuevo).c_str()));
}

// The last program of the desktop gives the registry up before its services are withdrawn there.
TEST_P(manejadores_de_un_servidor, ultimo_programa_vuelve_a_abrir_el_registro_en_su_cierre)
{
    if (m_clase != "sin_ventana")
        da_ventana();
    manejadores antes = cuenta_por_tipo();

    registra_y_anyade(nombre_unico("uno"), nombre_unico("otro"));
    ivrexa_terminado_registro();
    ivrexa_cierra_sesion();

    EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{2, 0, 0})) << "what found the registry, twice";
}

TEST_F(manejadores_que_quedan, cliente_abre_los_suyos_y_el_cierre_deja_los_que_encontraron_bloques)
{
    const std::string nuevo = nombre_unico("nuevo"), viejo = nombre_unico("viejo");
    bloque_crudo canal_viejo(nombre_canal(viejo).c_str(), TAM_CANAL);
    for (bool con_ventana : {false, true}) {
        SCOPED_TRACE(con_ventana);
        if (con_ventana)
            da_ventana();
        manejadores antes = cuenta_por_tipo();

        EXPECT_EQ(de([&] { registra(nuevo); }), (manejadores{3, 3, 2}))
            << "registry, lock and heartbeat; a channel, a mutex and a thread";
        EXPECT_EQ(de([&] { registra(viejo); }), (manejadores{2, 1, 1}));
        EXPECT_EQ(de([&] { registra(viejo); }), (manejadores{0, 0, 0})) << "it is one already";
        ivrexa_cierra_sesion();

        EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{2, 0, 0}));
        EXPECT_FALSE(existe_bloque(nombre_canal(nuevo).c_str()));
    }
}

// Whoever makes the registry finds none: its session leaves nothing at all. The process of the test may
// have the registry open, from tests before.
PAPEL(primero_del_escritorio)
{
    papel_c_di("LISTO");
    const std::string servicio = nombre_unico("serv");
    anfitrion_crea_ventana();
    cuenta_por_tipo();
    const bool existia = existe_bloque("Ivrexa_MCB");
    manejadores antes = cuenta_por_tipo();
    ivrexa_registra_servidor("uno", nullptr, servicio.c_str(), 1, nullptr, no_se_llama);
    ivrexa_terminado_registro();
    EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{2 + existia, 4, 2}));
    ivrexa_cierra_sesion();
    EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{existia ? 2 : 0, 0, 0}));
    return 0;
}

TEST(manejadores_del_primero, sesion_que_hace_el_registro_no_deja_ninguno)
{
    vacia_registro();
    papel primero = arranca_papel("primero_del_escritorio");
    EXPECT_EQ(primero.espera_fin(20000), 0u);
}

// ---- Asking, storing and reading

TEST_F(manejadores_que_quedan, preguntar_por_un_servicio_deja_uno_si_existe_y_ninguno_si_no)
{
    const std::string servicio = nombre_unico("serv"), falta = nombre_unico("falta");
    char nombre[64];
    registra(servicio);

    EXPECT_EQ(de([&] { ivrexa_hay_servicio_registrado(falta.c_str(), nullptr); }), (manejadores{0, 0, 0}));
    EXPECT_EQ(de([&] { ivrexa_hay_servicio_registrado_empiece_por(falta.c_str(), nombre, nullptr); }),
              (manejadores{0, 0, 0}));
    for (uint32_t vez = 0; vez < 3; vez++) {
        EXPECT_EQ(de([&] { ivrexa_hay_servicio_registrado(servicio.c_str(), nullptr); }), (manejadores{1, 0, 0}));
        EXPECT_EQ(de([&] { ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), nombre, nullptr); }),
                  (manejadores{1, 0, 0}));
    }
}

TEST_F(manejadores_que_quedan, guardar_deja_el_que_encontro_el_canal_y_el_bloque_se_va_con_sus_datos)
{
    const std::string servicio = nombre_unico("serv");
    registra(servicio);
    for (uint32_t vez = 0; vez < 3; vez++) {
        comdat *datos = nullptr;
        uint32_t id = 0;
        EXPECT_EQ(de([&] { datos = ivrexa_crea_datos_comando_entrada(servicio.c_str()); }), (manejadores{0, 0, 0}));
        EXPECT_EQ(de([&] { id = ivrexa_guarda_datos(datos); }), (manejadores{2, 0, 0}));
        EXPECT_EQ(de([&] { ivrexa_destruye_datos_comando(datos); }), (manejadores{-1, 0, 0}));
        EXPECT_FALSE(existe_bloque(nombre_datos(servicio, id).c_str()));
    }
}

TEST_F(manejadores_que_quedan, leer_deja_el_que_encontro_el_bloque_y_lo_mantiene)
{
    const std::string servicio = nombre_unico("serv"), bloque = nombre_datos(servicio, 7);
    char nombre[64];
    ivrexa_hay_servicio_registrado_empiece_por("?", nombre, nullptr); // heap and registry
    comdat *datos = nullptr;
    EXPECT_EQ(de([&] { datos = ivrexa_lee_datos(servicio.c_str(), 7, FALSO); }), (manejadores{0, 0, 0}));
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
    EXPECT_EQ(datos, nullptr);
    {
        bloque_crudo ajeno(bloque.c_str(), 4);
        for (int16_t es_entrada : {CIERTO, FALSO}) {
            EXPECT_EQ(de([&] { datos = ivrexa_lee_datos(servicio.c_str(), 7, es_entrada); }), (manejadores{2, 0, 0}));
            EXPECT_EQ(de([&] { ivrexa_destruye_datos_comando(datos); }), (manejadores{-1, 0, 0}));
        }
    }
    EXPECT_TRUE(existe_bloque(bloque.c_str()));
}

// ---- Commands

struct orden_contada {
    const char *que;
    uint32_t id_comando;
    bool con_entrada, lee_salida;
    int32_t en_cliente, en_servidor;
};

// The client leaves two a command, one for the input that it stores, and one for the output that it reads;
// the server one for the input that it reads and one for the output that it stores.
const orden_contada ORDENES[] = {
    {"input and output", anfitrion_ECO, true, true, 4, 2},
    {"input only", anfitrion_NADA, true, false, 3, 1},
    {"output that nobody reads", anfitrion_RESULTADO, false, false, 2, 1},
    {"output only", anfitrion_RESULTADO, false, true, 3, 1},
    {"nothing", anfitrion_NADA, false, false, 2, 0},
    {"another result", anfitrion_PRIMER_NUMERO + 2, false, false, 2, 0},
};

class manejadores_de_un_comando : public manejadores_que_quedan, public ::testing::WithParamInterface<const char *> {
protected:
    void manda(const orden_contada &o)
    {
        uint32_t id_entrada = 0;
        comdat *entrada = nullptr;
        if (o.con_entrada) {
            entrada = ivrexa_crea_datos_comando_entrada(m_servicio.c_str());
            ivrexa_graba_ulong(entrada, "v", 7);
            id_entrada = ivrexa_guarda_datos(entrada);
            m_bloques.push_back(id_entrada);
        }
        respuesta r = ejecuta(m_servicio, o.id_comando, id_entrada, L"1");
        EXPECT_EQ(r.resultado, o.id_comando == anfitrion_PRIMER_NUMERO + 2 ? 2u : 1u);
        if (o.lee_salida) {
            comdat *salida = ivrexa_lee_datos(m_servicio.c_str(), r.id_salida, FALSO);
            ASSERT_NE(salida, nullptr);
            ivrexa_destruye_datos_comando(salida);
            m_bloques.push_back(r.id_salida);
        }
        if (entrada != nullptr)
            ivrexa_destruye_datos_comando(entrada);
    }

    const std::string m_clase = GetParam(), m_servicio = nombre_unico("serv");
    std::vector<uint32_t> m_bloques; // that must live on
};
CON_CADA_SERVIDOR(manejadores_de_un_comando);

// The first command makes the output that a server keeps until the next one.
TEST_P(manejadores_de_un_comando, deja_en_cada_lado_los_que_encontraron_bloques_y_ninguno_mas)
{
    papel servidor = arranca_papel("servidor_contable", {m_clase, m_servicio});
    registra_para(m_clase, m_servicio);
    manda(ORDENES[0]);
    for (const orden_contada &o : ORDENES) {
        SCOPED_TRACE(o.que);
        manda(o); // what the one before kept is given back
        const int32_t num = m_clase == "sin_ventana" ? 1 : 3;
        manejadores antes = cuenta_por_tipo(), antes_servidor = cuenta_en(servidor);

        for (int32_t vez = 0; vez < num; vez++)
            manda(o);

        EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{o.en_cliente * num, 0, 0}));
        EXPECT_EQ(cuenta_en(servidor) - antes_servidor, (manejadores{o.en_servidor * num, 0, 0}));
    }
    for (uint32_t id : m_bloques)
        EXPECT_TRUE(existe_bloque(nombre_datos(m_servicio, id).c_str())) << id;
}

TEST_F(manejadores_que_quedan, comando_a_un_servicio_que_no_se_ha_pedido_no_deja_ninguno)
{
    const std::string servicio = nombre_unico("serv"), otro = nombre_unico("otro");
    papel servidor = arranca_papel("servidor_contable", {"ventana", servicio});
    registra(otro);
    manejadores antes_servidor = cuenta_en(servidor);

    EXPECT_EQ(de([&] { EXPECT_EQ(ejecuta(servicio, anfitrion_NADA).resultado, 3u); }), (manejadores{0, 0, 0}));
    EXPECT_EQ(cuenta_en(servidor) - antes_servidor, (manejadores{0, 0, 0}));
}

// ---- Ending a server

class manejadores_del_final : public con_cada_servidor {};
CON_CADA_SERVIDOR(manejadores_del_final);

// With a window it is a message; without one, a command more.
TEST_P(manejadores_del_final, terminar_un_servidor_deja_el_que_encontro_su_canal_y_los_de_su_comando)
{
    papel servidor = arranca_papel("servidor_contable", {clase, servicio});
    registra_para(clase, servicio);
    manejadores antes = cuenta_por_tipo(), antes_servidor = cuenta_en(servidor);

    ivrexa_terminar_servidor(servicio.c_str());

    EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{clase == "sin_ventana" ? 3 : 1, 0, 0}));
    EXPECT_EQ(cuenta_en(servidor) - antes_servidor, (manejadores{0, 0, 0}));
    acaba(servidor);
    const std::string falta = nombre_unico("falta");
    antes = cuenta_por_tipo();
    ivrexa_terminar_servidor(falta.c_str());
    EXPECT_EQ(cuenta_por_tipo() - antes, (manejadores{0, 0, 0}));
}
