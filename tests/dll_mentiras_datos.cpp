// Command data forged by a program that does not use the library: read by a client through ivrexa_lee_datos, and by a
// server as the input of its command. What is handed out is read to its end.
#include "dll_mentiras.h"

#include <psapi.h>

#include <atomic>

#include "comun/hilo.h"

static const char *const LECTURA_FUERA = "iv_comdat: (comdat->offset + tam) <= comdat->ocupado";
static const char *const TIPO_0 = "iv_comdat: valor->tipoDato != ivrexa_tipoDato_desconocido";
static const char *const SIN_BLOQUE = "(shared_MCCom) != 0";

using contenido = std::vector<uint8_t>;

static void anexa(contenido &c, std::initializer_list<int> bytes)
{
    for (int byte : bytes)
        c.push_back(static_cast<uint8_t>(byte));
}

static void anexa_u32(contenido &c, uint32_t numero)
{
    for (int i = 0; i < 4; i++)
        c.push_back(static_cast<uint8_t>(numero >> (8 * i)));
}

// A value "a" of this type that fills the rest of `tam` bytes with `relleno`, behind its own length.
static contenido un_valor_hasta_el_final(int tipo, uint32_t tam, int relleno)
{
    contenido c;
    anexa_u32(c, 1);
    anexa(c, {tipo, 2, 'a', 0});
    if (tipo >= 5 && tipo <= 7)
        anexa_u32(c, tam - 12);
    c.resize(tam, static_cast<uint8_t>(relleno));
    return c;
}

// `quedan` bytes of a value of this type are the last ones.
static contenido valor_cortado(int tipo, uint32_t tam, uint32_t quedan)
{
    contenido c;
    anexa_u32(c, 2);
    anexa(c, {5, 2, 'a', 0});
    anexa_u32(c, tam - 12 - 4 - quedan);
    c.resize(tam - 4 - quedan, 0x41);
    anexa(c, {tipo, 2, 'b', 0});
    c.resize(tam, 0x42);
    return c;
}

static contenido nombre_sin_nul(uint32_t tam)
{
    contenido c = valor_cortado(1, tam, 200);
    c[tam - 204 + 1] = 202; // the length of its name: to the last byte
    return c;
}

// An array of as many texts as there are positions, which all name the last byte or what is behind it.
static contenido arreglo(int tipo, uint32_t tam, uint32_t num, uint32_t posicion)
{
    contenido c;
    anexa_u32(c, 1);
    anexa(c, {tipo, 2, 'a', 0});
    anexa_u32(c, num);
    while (c.size() + 4 <= tam)
        anexa_u32(c, posicion);
    c.resize(tam, 0x41);
    return c;
}

class datos_mentidos : public ::testing::Test {
protected:
    const std::string servicio = nombre_unico("datos");
    papel servidor = arranca_servidor("ventana", servicio), cliente = arranca_victima("sin_ventana", servicio);
    uint32_t id = 1000;

    // Both sides read it. The mapping ends with the content where that ends a page.
    void leen(const contenido &c, uint32_t cabecera)
    {
        bloque_crudo bloque(nombre_datos(servicio, ++id).c_str(), static_cast<uint32_t>(c.size()));
        ASSERT_FALSE(bloque.ya_existia());
        bloque.pon_bytes(0, c);
        bloque.pon_cabecera(cabecera);
        EXPECT_NE(pide(cliente, "LEE " + std::to_string(id) + " 0", "LEIDO "), "LEIDO nulo");
        EXPECT_EQ(manda(cliente, 200, id), "RESULTADO 1|0|0|0|0");
        EXPECT_NE(servidor.espera_linea("RECORRIDO ", PLAZO_MS), "RECORRIDO nada");
    }

    // Reads past the end and types that do not exist are all that was reported.
    void informan_de_lo_descrito()
    {
        for (papel *p : {&cliente, &servidor})
            for (const std::string &informe : toma_informes(*p))
                EXPECT_TRUE(informe == LECTURA_FUERA || informe == TIPO_0) << informe;
    }

    void siguen()
    {
        std::string guardado = pide(cliente, "GUARDA 5", "GUARDADO ").substr(9);
        EXPECT_EQ(manda(cliente, 200, static_cast<uint32_t>(std::stoul(guardado))), "RESULTADO 1|0|0|0|0");
        EXPECT_EQ(servidor.espera_linea("RECORRIDO ", PLAZO_MS), "RECORRIDO 1");
        informan_de_lo_descrito();
        acaba(cliente);
        acaba(servidor);
    }
};

TEST_F(datos_mentidos, que_acaban_con_su_pagina_se_leen_sin_salir_de_ella)
{
    for (uint32_t paginas : {1u, 3u}) {
        uint32_t tam = paginas * 4096 - 4;
        const contenido todos[] = {
            un_valor_hasta_el_final(6, tam, 'A'),
            un_valor_hasta_el_final(7, tam, 'A'),
            un_valor_hasta_el_final(5, tam, 'A'),
            un_valor_hasta_el_final(1, tam, 0x63),
            valor_cortado(4, tam, 7),
            valor_cortado(8, tam, 0),
            valor_cortado(3, tam, 3),
            valor_cortado(6, tam, 3),
            nombre_sin_nul(tam),
            contenido(tam, 0x41),
            contenido(tam, 0xff),
            arreglo(9, tam, tam / 8, tam - 5),
            arreglo(9, tam, 0xffffffff, tam - 4),
            arreglo(10, tam, tam, 0xfffffffe),
            arreglo(9, tam, (tam - 12) / 4, tam - 3),
        };
        for (const contenido &c : todos) {
            SCOPED_TRACE(paginas * 100 + static_cast<unsigned>(&c - todos));
            leen(c, tam);
        }
    }
    siguen();
}

// The header says more than there is, or less.
TEST_F(datos_mentidos, cabecera_que_miente_se_corta_a_lo_que_hay)
{
    for (uint32_t cabecera : {0xffffffffu, 0xfffffffcu, 0x80000000u, 4093u, 4092u, 5u, 4u}) {
        SCOPED_TRACE(cabecera);
        leen(un_valor_hasta_el_final(6, 20, 'A'), cabecera);
        informan_de_lo_descrito();
    }
    for (uint32_t cabecera : {1u, 2u, 3u}) {
        SCOPED_TRACE(cabecera);
        leen({1, 0, 0, 0, 1, 2, 'a', 0, 9}, cabecera);
        EXPECT_EQ(toma_informes(cliente), std::vector<std::string>{LECTURA_FUERA});
        EXPECT_EQ(toma_informes(servidor), std::vector<std::string>{LECTURA_FUERA});
    }
    leen({1, 0, 0, 0, 1, 2, 'a', 0, 9}, 0);
    EXPECT_EQ(toma_informes(cliente), (std::vector<std::string>{"iv_mem: tam > 0", LECTURA_FUERA}));
    EXPECT_EQ(toma_informes(servidor), (std::vector<std::string>{"iv_mem: tam > 0", LECTURA_FUERA}));
    siguen();
}

static uint64_t memoria_maxima(const papel &p)
{
    HANDLE proceso = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, p.pid());
    PROCESS_MEMORY_COUNTERS memoria = {};
    EXPECT_TRUE(K32GetProcessMemoryInfo(proceso, &memoria, sizeof memoria));
    CloseHandle(proceso);
    return std::max<uint64_t>(memoria.PeakPagefileUsage, memoria.PeakWorkingSetSize);
}

// Counts of four thousand million, in 128 KB: what is taken is of the order of the content.
TEST_F(datos_mentidos, cuentas_de_miles_de_millones_no_reservan_memoria)
{
    const uint32_t tam = 131072 - 4;
    contenido valores(tam, 0);
    for (uint32_t i = 4; i < tam; i += 2)
        valores[i] = 0x63; // an unknown type and an empty name: as many values as can be
    std::fill(valores.begin(), valores.begin() + 4, static_cast<uint8_t>(0xff));
    const contenido todos[] = {valores,
                               arreglo(9, tam, 0xffffffff, 0),
                               arreglo(10, tam, 0x20000000, 0),
                               arreglo(9, tam, tam, 0),
                               arreglo(9, tam, 0x40000001, 0),
                               arreglo(9, tam, 0x02000000, 0)};
    leen(un_valor_hasta_el_final(6, tam, 'A'), tam);
    uint64_t antes_cliente = memoria_maxima(cliente), antes_servidor = memoria_maxima(servidor);
    for (int vez = 0; vez < 2; vez++)
        for (const contenido &c : todos)
            leen(c, tam);
    EXPECT_LT(memoria_maxima(cliente) - antes_cliente, 64u << 20);
    EXPECT_LT(memoria_maxima(servidor) - antes_servidor, 64u << 20);
    siguen();
}

// The bytes change while they are read: both sides work on copies of their own.
TEST_F(datos_mentidos, que_cambian_mientras_se_leen)
{
    const uint32_t tam = 3 * 4096 - 4;
    bloque_crudo bloque(nombre_datos(servicio, 999).c_str(), tam);
    bloque.pon_bytes(0, un_valor_hasta_el_final(6, tam, 'A'));
    std::atomic<bool> sigue{true};
    auto cambia = [&] {
        uint32_t azar = 12345;
        while (sigue) {
            for (int i = 0; i < 50; i++) {
                azar = azar * 1664525 + 1013904223;
                uint32_t despl = azar >> 8;
                bloque.datos()[static_cast<int>(despl % (i % 2 ? tam : 24)) - (i % 5 == 0 ? 4 : 0)] =
                    static_cast<uint8_t>(azar);
            }
            Sleep(0);
        }
    };
    hilo otro(cambia);
    for (int vez = 0; vez < 25; vez++) {
        pide(cliente, "LEE 999 0", "LEIDO ");
        EXPECT_EQ(manda(cliente, 200, 999), "RESULTADO 1|0|0|0|0");
        servidor.espera_linea("RECORRIDO ", PLAZO_MS);
    }
    sigue = false;
    EXPECT_TRUE(otro.acaba(PLAZO_MS));
    for (papel *p : {&cliente, &servidor})
        for (const std::string &informe : toma_informes(*p)) // a header of 0 is told too
            EXPECT_TRUE(informe == LECTURA_FUERA || informe == TIPO_0 || informe == "iv_mem: tam > 0") << informe;
    siguen();
}

// ---- Storing

TEST_F(datos_mentidos, bloque_del_siguiente_numero_que_ya_existe_se_usa_o_se_deja)
{
    static const char *const NO_GUARDADO = "iv_comdat: shared_MCCom != NULL && *shared_MCCom != NULL";
    static const struct {
        uint32_t tam, cabecera;
        bool cabe;
    } CASOS[] = {
        {5000, 5000, true}, {2, 2, false}, {5000, 0, false}, {5000, 16, false}, {2, 0xffffffff, true},
    };
    bloque_crudo canal(nombre_canal(servicio).c_str());
    for (const auto &c : CASOS) {
        SCOPED_TRACE(std::to_string(c.tam) + " " + std::to_string(c.cabecera));
        uint32_t siguiente = canal.u32(12);
        bloque_crudo bloque(nombre_datos(servicio, siguiente).c_str(), c.tam);
        bloque.pon_cabecera(c.cabecera);
        std::string esperado = "GUARDADO " + std::to_string(c.cabe ? siguiente : 0);
        EXPECT_EQ(pide(cliente, "GUARDA 5", "GUARDADO "), esperado);
        if (!c.cabe)
            EXPECT_EQ(toma_informes(cliente), std::vector<std::string>{NO_GUARDADO});
        EXPECT_EQ(manda(cliente, 200, c.cabe ? siguiente : 0), "RESULTADO 1|0|0|0|0");
        EXPECT_EQ(servidor.espera_linea("RECORRIDO ", PLAZO_MS), c.cabe ? "RECORRIDO 1" : "RECORRIDO nada");
        EXPECT_EQ(bloque.cabecera(), c.cabecera);
    }
    siguen();
}

// The number 0 means no data: what is stored under it is not found by it.
TEST_F(datos_mentidos, contador_de_bloques_forjado_sigue_contando_con_32_bits)
{
    bloque_crudo canal(nombre_canal(servicio).c_str());
    canal.pon_u32(12, 0xffffffff);
    EXPECT_EQ(pide(cliente, "GUARDA 5", "GUARDADO "), "GUARDADO 4294967295");
    EXPECT_EQ(manda(cliente, 200, 0xffffffff), "RESULTADO 1|0|0|0|0");
    EXPECT_EQ(servidor.espera_linea("RECORRIDO ", PLAZO_MS), "RECORRIDO 1");
    EXPECT_EQ(pide(cliente, "GUARDA 5", "GUARDADO "), "GUARDADO 0");
    EXPECT_EQ(manda(cliente, 200, 0), "RESULTADO 1|0|0|0|0");
    EXPECT_EQ(servidor.espera_linea("RECORRIDO ", PLAZO_MS), "RECORRIDO nada");
    EXPECT_EQ(pide(cliente, "GUARDA 5", "GUARDADO "), "GUARDADO 1");
    canal.pon_u32(12, 99);
    EXPECT_EQ(pide(cliente, "GUARDA 5", "GUARDADO "), "GUARDADO 99");
    EXPECT_EQ(manda(cliente, 200, 99), "RESULTADO 1|0|0|0|0");
    EXPECT_EQ(servidor.espera_linea("RECORRIDO ", PLAZO_MS), "RECORRIDO 1");
    siguen();
}

TEST_F(datos_mentidos, numero_de_un_bloque_que_no_hay_es_un_informe)
{
    for (uint32_t numero : {0u, 5u, 0x80000000u, 0xffffffffu}) {
        SCOPED_TRACE(numero);
        EXPECT_EQ(pide(cliente, "LEE " + std::to_string(numero) + " 0", "LEIDO "), "LEIDO nulo");
        EXPECT_INFORME_DE(cliente, "ivrexa", SIN_BLOQUE);
        EXPECT_EQ(manda(cliente, 200, numero), "RESULTADO 1|0|0|0|0");
        EXPECT_EQ(servidor.espera_linea("RECORRIDO ", PLAZO_MS), "RECORRIDO nada");
        if (numero != 0)
            EXPECT_INFORME_DE(servidor, "iv_mcserv", SIN_BLOQUE);
    }
    siguen();
}
