// Command data and its block: storing, loading, the server's reading of its input; the trace of creations.
#include "iv_comdat_apoyo.h"

#include <optional>

#include "comun/papel.h"
#include "comun/proceso_propio.h"
#include "comun/traza_captura.h"

#include "iv_mcserv.h"

// ---- Storing and loading

TEST(iv_comdat, cargar_copia_el_bloque_y_lo_tiene_abierto)
{
    const char *nombre = nombre_unico("bloque");
    bytes b = de_hex(TODOS);
    iv_shared_bloque *bloque = iv_shared_crea_con_datos(nombre, 146, b.data());
    iv_shared_bloque *abierto = bloque;
    void *vista = bloque->sharedmem;
    contenedor c(iv_comdat_carga("S", 7, &abierto, 1));

    EXPECT_EQ(abierto, nullptr);
    EXPECT_EQ(c->shared_MCCom, bloque);
    EXPECT_EQ(c->tam, 146u);
    EXPECT_TRUE(bytes_iguales(b, contenido(c)));
    EXPECT_GE(HeapSize(s_LocalHeap, 0, c->buffer), 150u);
    EXPECT_EQ(memcmp(c->buffer + 146, "\0\0\0\0", 4), 0);
    const char *texto = iv_comdat_dame_cadena_ansi(c.get(), 5);
    bloque_crudo(nombre).pon_bytes(0, bytes(146, 0xFF));
    EXPECT_STREQ(texto, "hola"); // a private copy
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 0x2A);

    EXPECT_TRUE(existe_bloque(nombre));
    c.reset();
    EXPECT_FALSE(existe_bloque(nombre));
    MEMORY_BASIC_INFORMATION memoria = {};
    VirtualQuery(vista, &memoria, sizeof memoria);
    EXPECT_EQ(memoria.State, static_cast<DWORD>(MEM_FREE)); // unmapped, too
}

TEST(iv_comdat, bloque_vacio_se_informa_y_da_un_contenedor_sin_valores)
{
    const char *nombre = nombre_unico("vacio");
    bloque_crudo crudo(nombre, 0);
    iv_shared_bloque *bloque = iv_shared_abre_si_existe(nombre);
    contenedor c(iv_comdat_carga("S", 7, &bloque, 1));

    EXPECT_INFORME("iv_mem", "tam > 0");
    EXPECT_INFORME(MODULO, FUERA);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(iv_comdat_numero_valores(c.get()), 0u);
    EXPECT_EQ(c->valores, nullptr);
}

TEST(iv_comdat, guardado_engancha_el_bloque)
{
    contenedor c = para_grabar();
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 8, nullptr);
    iv_shared_bloque *de_quien_llama = bloque;
    iv_comdat_guardado(c.get(), 123, &de_quien_llama);

    EXPECT_EQ(de_quien_llama, nullptr);
    EXPECT_EQ(c->id_bloque_MCCom, 123u);
    EXPECT_EQ(c->shared_MCCom, bloque);
}

TEST(iv_comdat, guardado_sin_bloque_se_informa_y_no_engancha)
{
    contenedor c = para_grabar();
    iv_shared_bloque *sin_bloque = nullptr;
    iv_comdat_guardado(c.get(), 123, nullptr);
    EXPECT_INFORME(MODULO, "shared_MCCom != NULL && *shared_MCCom != NULL");
    iv_comdat_guardado(c.get(), 123, &sin_bloque);
    EXPECT_INFORME(MODULO, "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_EQ(c->id_bloque_MCCom, 0u);
    EXPECT_EQ(c->shared_MCCom, nullptr);
}

TEST(iv_comdat, segundo_guardado_se_informa_y_deja_vivos_los_dos_bloques)
{
    const char *nombres[] = {nombre_unico("primero"), nombre_unico("segundo")};
    contenedor c = para_grabar();
    iv_shared_bloque *primero = iv_shared_crea(nombres[0], nullptr, 8, nullptr), *suyo = primero;
    iv_comdat_guardado(c.get(), 100, &suyo);
    iv_shared_bloque *segundo = iv_shared_crea(nombres[1], nullptr, 8, nullptr);
    iv_comdat_guardado(c.get(), 101, &segundo);

    EXPECT_INFORME(MODULO, "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME(MODULO, "comdat->shared_MCCom == NULL");
    EXPECT_EQ(segundo, nullptr);
    EXPECT_EQ(c->id_bloque_MCCom, 100u);
    EXPECT_EQ(c->shared_MCCom, primero);
    c.reset();
    EXPECT_FALSE(existe_bloque(nombres[0]));
    EXPECT_TRUE(existe_bloque(nombres[1]));
}

TEST(iv_comdat, guardar_lo_que_se_lee_se_informa)
{
    contenedor c = lee("00000000");
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 8, nullptr);
    iv_comdat_guardado(c.get(), 100, &bloque);
    EXPECT_INFORME(MODULO, "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME(MODULO, NO_ESCRIBE);
    EXPECT_EQ(bloque, nullptr);
}

TEST(iv_comdat, lo_que_se_lee_sin_bloque_toma_el_que_se_guarda)
{
    contenedor c = lee("00000000");
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 8, nullptr), *suyo = bloque;
    iv_comdat_guardado(c.get(), 100, &suyo);
    borra_informes();
    EXPECT_EQ(c->id_bloque_MCCom, 100u);
    EXPECT_EQ(c->shared_MCCom, bloque);
}

TEST(iv_comdat, guardado_informa_de_todo_en_su_orden)
{
    iv_shared_bloque *bloque = iv_shared_crea(nombre_unico("bloque"), nullptr, 8, nullptr), *suyo = bloque;
    contenedor c(iv_comdat_crea_para_leer("S", 7, &suyo, static_cast<uint8_t *>(i_malloc(8)), 4, 1));
    for (iv_shared_bloque **sin_bloque : {static_cast<iv_shared_bloque **>(nullptr), &suyo}) {
        iv_comdat_guardado(c.get(), 100, sin_bloque);
        EXPECT_INFORME(MODULO, "comdat->id_bloque_MCCom == 0");
        EXPECT_INFORME(MODULO, "comdat->shared_MCCom == NULL");
        EXPECT_INFORME(MODULO, NO_ESCRIBE);
        EXPECT_INFORME(MODULO, "shared_MCCom != NULL && *shared_MCCom != NULL");
        EXPECT_SIN_INFORMES();
        EXPECT_EQ(c->id_bloque_MCCom, 7u);
        EXPECT_EQ(c->shared_MCCom, bloque);
    }
}

namespace {

// A container for a service of its own, and the name of its block of that id.
struct a_guardar {
    std::string servicio = nombre_unico("S");
    contenedor c{iv_comdat_crea_para_grabar(servicio.c_str(), 1)};
    std::string nombre(uint32_t id) const
    {
        return "Ivrexa_MCB_Serv_" + servicio + "_Com__comdat" + std::to_string(id);
    }
};

} // namespace

TEST(iv_comdat, guardar_hace_un_bloque_de_los_bytes_justos)
{
    a_guardar g;
    iv_comdat_graba_byte(g.c.get(), "a", 7);
    EXPECT_EQ(iv_mcserv_guarda_datos(g.c.get(), 117), 1);

    bloque_crudo crudo(g.nombre(117).c_str());
    EXPECT_EQ(crudo.cabecera(), 9u);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 07 0000"), crudo.bytes(0, 11)));
    EXPECT_EQ(g.c->id_bloque_MCCom, 117u);
    EXPECT_STREQ(g.c->shared_MCCom->nombre, g.nombre(117).c_str());
}

TEST(iv_comdat, guardar_en_un_bloque_mayor_deja_su_cabecera)
{
    a_guardar g;
    bloque_crudo crudo(g.nombre(5).c_str(), 30);
    crudo.pon_bytes(0, bytes(30, 0xEE));
    EXPECT_EQ(iv_mcserv_guarda_datos(g.c.get(), 5), 1);

    EXPECT_EQ(crudo.cabecera(), 30u);
    EXPECT_TRUE(bytes_iguales(de_hex("00000000 EEEE"), crudo.bytes(0, 6)));
    EXPECT_EQ(g.c->id_bloque_MCCom, 5u);
}

TEST(iv_comdat, guardar_en_un_bloque_menor_que_otro_tiene_no_escribe_nada)
{
    a_guardar g;
    bloque_crudo crudo(g.nombre(5).c_str(), 3);
    crudo.pon_bytes(0, bytes(3, 0xEE));
    EXPECT_EQ(iv_mcserv_guarda_datos(g.c.get(), 5), 0);

    EXPECT_INFORME(MODULO, "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_TRUE(bytes_iguales(de_hex("EEEEEE 00"), crudo.bytes(0, 4)));
    EXPECT_EQ(g.c->id_bloque_MCCom, 0u);
    EXPECT_EQ(g.c->shared_MCCom, nullptr);
}

// ---- The server's reading of its input

namespace {

struct canal_forjado {
    std::string servicio = nombre_unico("S");
    std::string nombre = "Ivrexa_MCB_Serv_" + servicio;
    bloque_crudo crudo{nombre.c_str(), 2378};
    iv_shared_bloque *abierto = iv_mcserv_abre_bloque(servicio.c_str());
    ~canal_forjado() { iv_shared_destruye(&abierto); }

    std::string nombre_datos(uint32_t id) const { return nombre + "_Com__comdat" + std::to_string(id); }
    bloque_crudo con_datos(uint32_t id, const char *hex) const
    {
        bytes b = de_hex(hex);
        bloque_crudo datos(nombre_datos(id).c_str(), static_cast<uint32_t>(b.size()));
        datos.pon_bytes(0, b);
        return datos;
    }
    contenedor lee_entrada(uint32_t campo, uint32_t argumento)
    {
        crudo.pon_u32(1206, campo);
        return contenedor(iv_mcserv_lee_datos_entrada(servicio.c_str(), abierto, argumento));
    }
};

const char *const OTRO_BLOQUE = "mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada";

} // namespace

TEST(iv_comdat_entrada, se_toma_una_vez)
{
    canal_forjado canal;
    bloque_crudo datos = canal.con_datos(100, "01000000 01 02 6100 07");
    contenedor c = canal.lee_entrada(100, 100);

    ASSERT_NE(c, nullptr);
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 7);
    EXPECT_EQ(c->es_entrada, 1);
    EXPECT_EQ(c->id_bloque_MCCom, 100u);
    EXPECT_EQ(c->nombre_servicio, canal.servicio);
    EXPECT_EQ(canal.crudo.u32(1206), 0u);
}

TEST(iv_comdat_entrada, el_campo_decide_y_el_argumento_nombra)
{
    canal_forjado canal;
    bloque_crudo uno = canal.con_datos(100, "01000000 01 02 6100 01");
    bloque_crudo otro = canal.con_datos(101, "01000000 01 02 6100 02");

    EXPECT_EQ(canal.lee_entrada(0, 0), nullptr);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(canal.lee_entrada(0, 100), nullptr);
    EXPECT_INFORME("iv_mcserv", OTRO_BLOQUE);
    contenedor c = canal.lee_entrada(100, 101);
    EXPECT_INFORME("iv_mcserv", OTRO_BLOQUE);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(iv_comdat_dame_byte(c.get(), 0), 2);
    EXPECT_EQ(canal.crudo.u32(1206), 0u);
}

TEST(iv_comdat_entrada, bloque_que_falta_se_informa_y_el_campo_se_borra)
{
    canal_forjado canal;
    EXPECT_EQ(canal.lee_entrada(555, 555), nullptr);
    EXPECT_INFORME("iv_mcserv", "(shared_MCCom) != 0");
    EXPECT_EQ(canal.crudo.u32(1206), 0u);
    EXPECT_FALSE(existe_bloque(canal.nombre_datos(555).c_str()));
}

// ---- Trace. In roles: the switch is read once in a process.

PAPEL(traza_de_contenedores)
{
    captura_traza traza;
    auto manda = [&](comdat *c) {
        yo.di(junta({"TRAZA", traza.texto_propio(), std::to_string(reinterpret_cast<uintptr_t>(c))}));
        traza.borra();
    };
    yo.di("LISTO");
    for (int16_t es_entrada : {1, 0}) {
        manda(iv_comdat_crea_para_grabar("S", es_entrada));
        iv_shared_bloque *sin_bloque = nullptr;
        uint8_t *datos = static_cast<uint8_t *>(i_malloc(12));
        traza.borra();
        manda(iv_comdat_crea_para_leer("S", 1, &sin_bloque, datos, 4, es_entrada));
    }
    manda(iv_comdat_crea_para_leer("S", 1, nullptr, nullptr, 4, 0));
    return 0;
}

static papel arranca_traza(const std::optional<std::string> &valor)
{
    opciones_papel opciones;
    opciones.entorno["IVREXA_DEBUG"] = valor;
    return arranca_papel("traza_de_contenedores", {}, opciones);
}

// The beginning, then lines of the heap alone, then the end.
static void comprueba_traza(papel &p, const std::string &inicio, const std::string &antes_de_direccion)
{
    std::vector<std::string> partes = campos(p.espera_linea("TRAZA|", 10000));
    ASSERT_EQ(partes.size(), 3u);
    std::string texto = partes[1], fin = antes_de_direccion + partes[2] + "\n";
    EXPECT_EQ(texto.substr(0, inicio.size()), inicio);
    ASSERT_GE(texto.size(), inicio.size() + fin.size());
    EXPECT_EQ(texto.substr(texto.size() - fin.size()), fin);
    std::string medio = texto.substr(inicio.size(), texto.size() - inicio.size() - fin.size());
    EXPECT_NE(medio, "");
    while (!medio.empty()) {
        std::string linea = medio.substr(0, medio.find('\n') + 1);
        ASSERT_NE(linea, "") << medio;
        EXPECT_TRUE(linea.rfind("[s_LocalHeap=", 0) == 0 || linea.rfind("Despues de i_malloc: ", 0) == 0 ||
                    linea.rfind("HeapCreate: ", 0) == 0)
            << linea;
        medio.erase(0, linea.size());
    }
}

TEST(iv_comdat, crear_se_traza_antes_y_despues)
{
    papel p = arranca_traza("1");
    comprueba_traza(p, "*** iv_comdat_crea_para_grabar(DatosEntrada)... \n", "*** -> ");
    comprueba_traza(p, "*** iv_comdat_crea_para_leer(DatosEntrada)", " -> ");
    comprueba_traza(p, "*** iv_comdat_crea_para_grabar(DatosSalida)... \n", "*** -> ");
    comprueba_traza(p, "*** iv_comdat_crea_para_leer(DatosSalida)", " -> ");
    EXPECT_EQ(p.espera_linea("TRAZA|", 10000), "TRAZA|*** iv_comdat_crea_para_leer(DatosSalida)|0");
    EXPECT_INFORME_DE(p, MODULO, "shared_MCCom != NULL");
    EXPECT_EQ(p.espera_fin(10000), 0u);
}

TEST(iv_comdat, crear_sin_traza_no_escribe_nada)
{
    papel p = arranca_traza(std::nullopt);
    for (int n = 0; n < 5; n++)
        EXPECT_EQ(campos(p.espera_linea("TRAZA|", 10000)).at(1), "");
    EXPECT_INFORME_DE(p, MODULO, "shared_MCCom != NULL");
    EXPECT_EQ(p.espera_fin(10000), 0u);
}

// Any number but 1 is output. Writing, reading and destroying leave no line of their own: the heap's begin
// otherwise.
TEST(iv_comdat, indicador_que_no_es_1_se_traza_como_salida_y_lo_demas_no_se_traza)
{
    if (!en_proceso_trazado())
        return;
    captura_traza traza;
    contenedor e(iv_comdat_crea_para_grabar("S", 2));
    iv_shared_bloque *sin_bloque = nullptr;
    uint8_t *datos = static_cast<uint8_t *>(i_malloc(9 + 4));
    memcpy(datos, "\1\0\0\0\1\2a\0\7", 9);
    contenedor l(iv_comdat_crea_para_leer("S", 1, &sin_bloque, datos, 9, -1));
    EXPECT_EQ(e->es_entrada, 2);
    EXPECT_EQ(l->es_entrada, -1);
    for (const escritor &escritor : escritores())
        escritor.graba(e.get(), "n");
    EXPECT_EQ(iv_comdat_dame_byte(l.get(), 0), 7);
    const std::string direcciones[] = {std::to_string(reinterpret_cast<uintptr_t>(e.get())),
                                       std::to_string(reinterpret_cast<uintptr_t>(l.get()))};
    e.reset();
    l.reset();

    std::vector<std::string> suyas;
    for (const pieza_traza &pieza : traza.piezas())
        if (pieza.texto.rfind("*** ", 0) == 0 || pieza.texto.rfind("Datos", 0) == 0 || pieza.texto == " -> ")
            suyas.push_back(pieza.texto);
    const std::vector<std::string> esperadas = {"*** iv_comdat_crea_para_grabar(", "DatosSalida)... ", "*** -> ",
                                                "*** iv_comdat_crea_para_leer(",   "DatosSalida)",     " -> "};
    EXPECT_EQ(suyas, esperadas);
    const std::string texto = traza.texto();
    EXPECT_NE(texto.find("*** -> " + direcciones[0] + "\n"), std::string::npos) << texto;
    EXPECT_NE(texto.find(" -> " + direcciones[1] + "\n"), std::string::npos) << texto;
}
