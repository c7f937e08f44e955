// Named blocks of shared memory: their bytes, their life, the handles they keep, and blocks that lie.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/lineas.h"
#include "comun/monton.h"
#include "comun/papel.h"
#include "comun/proceso_propio.h"
#include "comun/traza_captura.h"
#include "comun/util.h"

#include "iv_shared.h"

IMPORTACION(CreateFileMappingA);
IMPORTACION(MapViewOfFile);
IMPORTACION(OpenFileMappingA);
IMPORTACION(Sleep);

namespace {

// A block of a foreign program, of `tam_datos` bytes 0, 1, 2... behind its header.
bloque_crudo bloque_ajeno(const char *nombre, uint32_t tam_datos)
{
    bloque_crudo bloque(nombre, tam_datos);
    for (uint32_t n = 0; n < tam_datos; n++)
        bloque.datos()[n] = static_cast<uint8_t>(n);
    return bloque;
}

std::vector<uint8_t> bytes_seguidos(uint32_t num)
{
    std::vector<uint8_t> bytes(num);
    for (uint32_t n = 0; n < num; n++)
        bytes[n] = static_cast<uint8_t>(n);
    return bytes;
}

std::vector<uint8_t> bytes_de(const void *datos, uint32_t num)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(datos);
    return {bytes, bytes + num};
}

// The first heap and lock of a process are out of the way of counts.
uint32_t manejadores_en_calma()
{
    i_free(i_malloc(1));
    return cuenta_manejadores();
}

} // namespace

// ---- New blocks

TEST(iv_shared, bloque_nuevo_lleva_su_tamanyo_delante_y_ceros_detras)
{
    const char *nombre = nombre_unico("nuevo");
    int16_t ya_estaba_creado = 77;

    SetLastError(ERROR_ALREADY_EXISTS); // of some earlier call
    iv_shared_bloque *b = iv_shared_crea(nombre, "iv_mcserv_t", 300, &ya_estaba_creado);

    ASSERT_NE(b, nullptr);
    EXPECT_EQ(ya_estaba_creado, 0);
    EXPECT_EQ(iv_shared_datos(b), static_cast<uint8_t *>(b->sharedmem) + 4);
    EXPECT_EQ(iv_shared_tam_datos(b), 300u);
    EXPECT_TRUE(bytes_iguales(de_hex("2c 01 00 00"), bytes_de(b->sharedmem, 4)));
    EXPECT_TRUE(bytes_iguales(std::vector<uint8_t>(300), bytes_de(iv_shared_datos(b), 300)));

    bloque_crudo visto(nombre);
    ASSERT_TRUE(visto.abierto());
    EXPECT_EQ(visto.cabecera(), 300u);
    memcpy(iv_shared_datos(b), "hola", 5);
    EXPECT_EQ(visto.texto(0, 10), "hola");
    iv_shared_destruye(&b);
}

TEST(iv_shared, registro_guarda_copias_del_nombre_y_del_tipo)
{
    std::string nombre = nombre_unico("copias");
    char presta_nombre[64], presta_tipo[] = "iv_mcbase_t";
    strcpy(presta_nombre, nombre.c_str());

    iv_shared_bloque *b = iv_shared_crea(presta_nombre, presta_tipo, 1, nullptr);
    presta_nombre[0] = presta_tipo[0] = '?';

    EXPECT_EQ(b->nombre, nombre);
    EXPECT_STREQ(b->tipo, "iv_mcbase_t");
    EXPECT_NE(b->hmap, nullptr);
    EXPECT_EQ(bloques_vivos(), 3u);
    EXPECT_EQ(tam_de(b->nombre), nombre.size() + 1);
    iv_shared_destruye(&b);
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_shared, tipo_que_nadie_da_es_bloqueMC)
{
    const char *nombre = nombre_unico("tipos");
    iv_shared_bloque *uno = iv_shared_crea(nombre, nullptr, 8, nullptr);
    iv_shared_bloque *dos = iv_shared_crea_con_datos(nombre, 8, "12345678");
    iv_shared_bloque *tres = iv_shared_abre(nombre);
    iv_shared_bloque *cuatro = iv_shared_abre_si_existe(nombre);

    for (iv_shared_bloque **b : {&uno, &dos, &tres, &cuatro}) {
        EXPECT_STREQ((*b)->tipo, "bloqueMC");
        EXPECT_STREQ((*b)->nombre, nombre);
        iv_shared_destruye(b);
    }
}

TEST(iv_shared, mapa_se_pide_con_4_bytes_mas_sobre_el_fichero_de_paginacion)
{
    static decltype(&CreateFileMappingA) real = __imp_CreateFileMappingA;
    static std::string pedido;
    importacion_cambiada<decltype(&CreateFileMappingA)> cambio(
        __imp_CreateFileMappingA,
        [](HANDLE fichero, LPSECURITY_ATTRIBUTES seguridad, DWORD proteccion, DWORD alto, DWORD bajo,
           LPCSTR nombre) -> HANDLE {
            pedido = std::to_string(fichero == INVALID_HANDLE_VALUE && seguridad == nullptr) + " " +
                     std::to_string(proteccion) + " " + std::to_string(alto) + " " + std::to_string(bajo);
            return real(fichero, seguridad, proteccion, alto, bajo, nombre);
        });

    iv_shared_bloque *b = iv_shared_crea(nombre_unico("pedido"), "t", 8886, nullptr);

    EXPECT_EQ(pedido, "1 4 0 8890");
    iv_shared_destruye(&b);
}

TEST(iv_shared, tamanyo_0_se_informa_dos_veces_y_el_bloque_se_crea)
{
    iv_shared_bloque *b = iv_shared_crea(nombre_unico("vacio"), "t", 0, nullptr);
    EXPECT_INFORME("iv_shared", "tam_memcomp > 0");
    EXPECT_INFORME("iv_shared", "tam_datos > 0");
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(iv_shared_tam_datos(b), 0u);

    iv_shared_bloque *otro = iv_shared_crea(b->nombre, "t", 0, nullptr);
    EXPECT_INFORME("iv_shared", "tam_memcomp > 0");
    EXPECT_SIN_INFORMES();
    iv_shared_destruye(&otro);
    iv_shared_destruye(&b);

    b = iv_shared_crea_con_datos(nombre_unico("vacio"), 0, "");
    EXPECT_INFORME("iv_shared", "tam_datos_memlocal > 0");
    EXPECT_INFORME("iv_shared", "tam_datos > 0");
    EXPECT_NE(b, nullptr);
    iv_shared_destruye(&b);
}

// Header and data together would not fit a 32-bit size: that is a block that the system refuses.
TEST(iv_shared, tamanyo_que_daria_la_vuelta_no_crea_nada_y_no_se_informa)
{
    for (uint32_t tam : {4294967292u, 4294967293u, 4294967295u}) {
        const char *nombre = nombre_unico("vuelta");
        int16_t ya_estaba_creado = 77;
        EXPECT_EQ(iv_shared_crea(nombre, "t", tam, &ya_estaba_creado), nullptr);
        EXPECT_EQ(ya_estaba_creado, 0);
        EXPECT_EQ(iv_shared_crea_con_datos(nombre, tam, ""), nullptr);
        EXPECT_FALSE(existe_bloque(nombre));
    }
}

// ---- Blocks that exist

TEST(iv_shared, bloque_que_existe_conserva_el_tamanyo_de_quien_lo_creo)
{
    const char *nombre = nombre_unico("existe");
    bloque_crudo ajeno = bloque_ajeno(nombre, 100);
    for (uint32_t pedido : {10u, 100u, 5000u}) {
        int16_t ya_estaba_creado = 77;

        iv_shared_bloque *b = iv_shared_crea(nombre, "t", pedido, &ya_estaba_creado);

        ASSERT_NE(b, nullptr);
        EXPECT_EQ(ya_estaba_creado, 1);
        EXPECT_EQ(iv_shared_tam_datos(b), 100u);
        EXPECT_TRUE(bytes_iguales(bytes_seguidos(100), bytes_de(iv_shared_datos(b), 100)));
        EXPECT_EQ(ajeno.cabecera(), 100u);
        iv_shared_destruye(&b);
    }
}

TEST(iv_shared, abrir_toma_el_tamanyo_de_la_cabecera)
{
    const char *nombre = nombre_unico("abre");
    bloque_crudo ajeno = bloque_ajeno(nombre, 300);

    iv_shared_bloque *b = iv_shared_abre(nombre);

    ASSERT_NE(b, nullptr);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(iv_shared_tam_datos(b), 300u);
    EXPECT_TRUE(bytes_iguales(bytes_seguidos(300), bytes_de(iv_shared_datos(b), 300)));
    memcpy(iv_shared_datos(b), "x", 1);
    EXPECT_EQ(ajeno.texto(0, 1), "x") << "it is the block, not a copy";
    iv_shared_destruye(&b);
}

TEST(iv_shared, abrir_el_que_no_existe_informa_dos_veces_y_lo_crea_vacio)
{
    const char *nombre = nombre_unico("falta");

    iv_shared_bloque *b = iv_shared_abre(nombre);

    EXPECT_INFORME("iv_shared", "tam_datos > 0");
    EXPECT_INFORME("iv_shared", "ya_estaba_creado == CIERTO");
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b->tipo, "bloqueMC");
    EXPECT_EQ(bloque_crudo(nombre).cabecera(), 0u);
    iv_shared_destruye(&b);
    EXPECT_FALSE(existe_bloque(nombre));
}

TEST(iv_shared, abrir_si_existe_ni_crea_ni_informa_ni_deja_nada)
{
    const char *nombre = nombre_unico("quizas");
    uint32_t antes = manejadores_en_calma();

    EXPECT_EQ(iv_shared_abre_si_existe(nombre), nullptr);
    EXPECT_EQ(cuenta_manejadores(), antes);
    EXPECT_FALSE(existe_bloque(nombre));

    bloque_crudo ajeno = bloque_ajeno(nombre, 20);
    iv_shared_bloque *b = iv_shared_abre_si_existe(nombre);
    ASSERT_NE(b, nullptr);
    EXPECT_TRUE(bytes_iguales(bytes_seguidos(20), bytes_de(iv_shared_datos(b), iv_shared_tam_datos(b))));
    iv_shared_destruye(&b);
}

TEST(iv_shared, existe_responde_1_o_0)
{
    const char *nombre = nombre_unico("sonda");
    EXPECT_EQ(iv_shared_existe(nombre), 0);
    bloque_crudo ajeno = bloque_ajeno(nombre, 8);
    EXPECT_EQ(iv_shared_existe(nombre), 1);
}

// ---- Blocks made with data

TEST(iv_shared, bloque_con_datos_lleva_una_copia)
{
    const char *nombre = nombre_unico("datos");
    char datos[] = "datos";

    iv_shared_bloque *b = iv_shared_crea_con_datos(nombre, 5, datos);
    datos[0] = '?';

    ASSERT_NE(b, nullptr);
    EXPECT_EQ(bloque_crudo(nombre).cabecera(), 5u);
    EXPECT_EQ(bloque_crudo(nombre).texto(0, 5), "datos");
    iv_shared_destruye(&b);
    EXPECT_FALSE(existe_bloque(nombre));
}

TEST(iv_shared, bloque_con_sitio_recibe_los_datos_y_conserva_su_cabecera)
{
    const char *nombre = nombre_unico("sitio");
    bloque_crudo ajeno = bloque_ajeno(nombre, 10);
    for (const char *datos : {"0123456789", "abc"}) {
        iv_shared_bloque *b = iv_shared_crea_con_datos(nombre, static_cast<uint32_t>(strlen(datos)), datos);
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(ajeno.cabecera(), 10u);
        iv_shared_destruye(&b);
    }
    EXPECT_EQ(ajeno.texto(0, 10), "abc3456789");
}

// It is mapped twice and no more, and what does not fit is not written.
TEST(iv_shared, bloque_sin_sitio_se_mapea_otra_vez_y_se_deja_como_estaba)
{
    static decltype(&MapViewOfFile) real = __imp_MapViewOfFile;
    static uint32_t num_mapas;
    const char *nombre = nombre_unico("pequenyo");
    bloque_crudo ajeno = bloque_ajeno(nombre, 10);
    iv_shared_bloque *b;
    {
        importacion_cambiada<decltype(&MapViewOfFile)> cambio(
            __imp_MapViewOfFile, [](HANDLE mapa, DWORD acceso, DWORD alto, DWORD bajo, SIZE_T tam) -> void * {
                num_mapas++;
                EXPECT_EQ(acceso, 2u);
                EXPECT_EQ(alto + bajo + tam, 0u);
                return real(mapa, acceso, alto, bajo, tam);
            });
        b = iv_shared_crea_con_datos(nombre, 11, "???????????");
    }

    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(num_mapas, 2u);
    EXPECT_EQ(ajeno.cabecera(), 10u);
    EXPECT_TRUE(bytes_iguales(bytes_seguidos(10), ajeno.bytes(0, 10)));
    EXPECT_TRUE(bytes_iguales({0, 0}, ajeno.bytes(10, 2))) << "the rest of the page is not the block's";
    EXPECT_EQ(bloques_vivos(), 0u);
}

// Between the two attempts its last holder may go: then the second one makes a block of the right size.
TEST(iv_shared, bloque_sin_sitio_que_desaparece_entre_los_dos_intentos_se_crea_nuevo)
{
    static decltype(&CreateFileMappingA) real = __imp_CreateFileMappingA;
    static uint32_t num_intentos;
    static std::string nuevo;
    const char *nombre = nombre_unico("renovado");
    nuevo = nombre_unico("renovado2");
    bloque_crudo ajeno = bloque_ajeno(nombre, 10);
    importacion_cambiada<decltype(&CreateFileMappingA)> cambio(
        __imp_CreateFileMappingA,
        [](HANDLE fichero, LPSECURITY_ATTRIBUTES seguridad, DWORD proteccion, DWORD alto, DWORD bajo,
           LPCSTR pedido) -> HANDLE {
            // The name as it is once nobody has the old block.
            const char *usado = ++num_intentos == 2 ? nuevo.c_str() : pedido;
            return real(fichero, seguridad, proteccion, alto, bajo, usado);
        });

    iv_shared_bloque *b = iv_shared_crea_con_datos(nombre, 11, "nuevo bloqu");

    ASSERT_NE(b, nullptr);
    EXPECT_EQ(num_intentos, 2u);
    EXPECT_EQ(iv_shared_tam_datos(b), 11u);
    EXPECT_EQ(bytes_de(iv_shared_datos(b), 11), bytes_de("nuevo bloqu", 11));
    EXPECT_STREQ(b->nombre, nombre);
    iv_shared_destruye(&b);
}

// ---- Handles. What found an existing block stays open for good.

TEST(iv_shared, crear_uno_nuevo_y_destruirlo_no_deja_manejadores)
{
    const char *nombre = nombre_unico("limpio");
    uint32_t antes = manejadores_en_calma();

    iv_shared_bloque *b = iv_shared_crea(nombre, "t", 10, nullptr);
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    iv_shared_destruye(&b);
    EXPECT_EQ(cuenta_manejadores(), antes);

    b = iv_shared_abre(nombre);
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    iv_shared_destruye(&b);
    borra_informes(); // there was no such block

    EXPECT_EQ(cuenta_manejadores(), antes);
    EXPECT_FALSE(existe_bloque(nombre));
}

TEST(iv_shared, abrir_uno_que_existe_deja_un_manejador_y_lo_mantiene_vivo)
{
    const struct {
        const char *que;
        iv_shared_bloque *(*abre)(const char *nombre);
    } FORMAS[] = {
        {"crea", [](const char *nombre) { return iv_shared_crea(nombre, "t", 10, nullptr); }},
        {"abre", iv_shared_abre},
        {"abre_si_existe", iv_shared_abre_si_existe},
        {"crea_con_datos", [](const char *nombre) { return iv_shared_crea_con_datos(nombre, 3, "abc"); }},
    };

    for (const auto &forma : FORMAS) {
        SCOPED_TRACE(forma.que);
        const char *nombre = nombre_unico("vivo");
        uint32_t antes = manejadores_en_calma();
        {
            bloque_crudo ajeno = bloque_ajeno(nombre, 10);
            iv_shared_bloque *b = forma.abre(nombre);
            EXPECT_EQ(cuenta_manejadores(), antes + 3) << "the other program's, the one found and the one opened";
            iv_shared_destruye(&b);
        }
        EXPECT_EQ(cuenta_manejadores(), antes + 1);
        EXPECT_TRUE(existe_bloque(nombre)) << "nobody but the handle left behind has it open";
    }
}

TEST(iv_shared, cada_sonda_que_encuentra_deja_un_manejador_y_lo_mantiene_vivo)
{
    const char *nombre = nombre_unico("sonda");
    uint32_t antes = manejadores_en_calma();
    EXPECT_EQ(iv_shared_existe(nombre), 0);
    EXPECT_EQ(cuenta_manejadores(), antes);
    {
        bloque_crudo ajeno = bloque_ajeno(nombre, 8);
        EXPECT_EQ(iv_shared_existe(nombre), 1);
        EXPECT_EQ(iv_shared_existe(nombre), 1);
    }

    EXPECT_EQ(cuenta_manejadores(), antes + 2);
    EXPECT_EQ(iv_shared_existe(nombre), 1);
}

// Each attempt leaves the handle that found the block, so this process itself keeps the old one alive.
TEST(iv_shared, bloque_sin_sitio_deja_un_manejador_por_intento)
{
    const char *nombre = nombre_unico("intentos");
    uint32_t antes = manejadores_en_calma();
    {
        bloque_crudo ajeno = bloque_ajeno(nombre, 10);
        EXPECT_EQ(iv_shared_crea_con_datos(nombre, 11, "???????????"), nullptr);
    }

    EXPECT_EQ(cuenta_manejadores(), antes + 2);
    EXPECT_EQ(bloque_crudo(nombre).cabecera(), 10u);
}

TEST(iv_shared, manejador_no_se_hereda)
{
    const char *nombre = nombre_unico("hereda");
    iv_shared_bloque *uno = iv_shared_crea(nombre, "t", 10, nullptr);
    iv_shared_bloque *otro = iv_shared_abre(nombre);
    for (iv_shared_bloque **b : {&uno, &otro}) {
        DWORD opciones = 0xff;
        EXPECT_TRUE(GetHandleInformation((*b)->hmap, &opciones));
        EXPECT_EQ(opciones & HANDLE_FLAG_INHERIT, 0u);
        iv_shared_destruye(b);
    }
}

// ---- What the system refuses

TEST(iv_shared, nombre_de_otro_objeto_da_nulo_sin_informe)
{
    const char *nombre = nombre_unico("ocupado");
    HANDLE evento = CreateEventA(nullptr, FALSE, FALSE, nombre);
    int16_t ya_estaba_creado = 77;

    EXPECT_EQ(iv_shared_crea(nombre, "t", 10, &ya_estaba_creado), nullptr);
    EXPECT_EQ(ya_estaba_creado, 0);
    EXPECT_EQ(iv_shared_crea_con_datos(nombre, 1, "x"), nullptr);
    EXPECT_EQ(iv_shared_abre(nombre), nullptr);
    EXPECT_EQ(iv_shared_abre_si_existe(nombre), nullptr);
    EXPECT_EQ(iv_shared_existe(nombre), 0);

    EXPECT_SIN_INFORMES();
    EXPECT_EQ(bloques_vivos(), 0u);
    CloseHandle(evento);
}

TEST(iv_shared, bloque_que_existe_y_no_se_deja_abrir_da_nulo_sin_informe)
{
    const char *nombre = nombre_unico("cerrado");
    bloque_crudo ajeno = bloque_ajeno(nombre, 10);
    int16_t ya_estaba_creado = 77;
    importacion_cambiada<decltype(&OpenFileMappingA)> cambio(__imp_OpenFileMappingA,
                                                             [](DWORD, BOOL, LPCSTR) -> HANDLE { return nullptr; });

    EXPECT_EQ(iv_shared_crea(nombre, "t", 10, &ya_estaba_creado), nullptr);

    EXPECT_EQ(ya_estaba_creado, 1);
    EXPECT_SIN_INFORMES();
}

TEST(iv_shared, vista_que_no_se_da_se_informa_y_el_manejador_queda_abierto)
{
    const char *nombre = nombre_unico("ciego");
    bloque_crudo ajeno = bloque_ajeno(nombre, 100);
    importacion_cambiada<decltype(&MapViewOfFile)> cambio(
        __imp_MapViewOfFile, [](HANDLE, DWORD, DWORD, DWORD, SIZE_T) -> void * { return nullptr; });
    int16_t ya_estaba_creado = 77;
    uint32_t antes = manejadores_en_calma();

    EXPECT_EQ(iv_shared_crea(nombre, "t", 10, &ya_estaba_creado), nullptr);
    EXPECT_INFORME("iv_shared", "sharedmem != NULL");
    EXPECT_EQ(ya_estaba_creado, 1);
    EXPECT_EQ(cuenta_manejadores(), antes + 2);

    EXPECT_EQ(iv_shared_crea_con_datos(nombre, 1, "x"), nullptr);
    EXPECT_INFORME("iv_shared", "sharedmem != NULL");
    EXPECT_EQ(cuenta_manejadores(), antes + 4);

    EXPECT_EQ(iv_shared_abre(nombre), nullptr);
    EXPECT_INFORME("iv_shared", "sharedmem != NULL");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(cuenta_manejadores(), antes + 6);
    EXPECT_EQ(bloques_vivos(), 0u);
}

// ---- Blocks that lie

TEST(iv_shared, cabecera_que_promete_de_mas_se_corta_a_la_vista)
{
    const struct {
        uint32_t tam_real, tam_cabecera, tam_legible;
    } CASOS[] = {
        {300, 300, 300},         {300, 301, 301},
        {300, 4092, 4092},       {300, 4093, 4092},
        {300, 0x7fffffff, 4092}, {300, 0xffffffff, 4092},
        {300, 0xfffffffc, 4092}, {10000, 12284, 12284},
        {10000, 12285, 12284},   {10000, 0xffffffff, 12284},
    };

    for (const auto &caso : CASOS) {
        SCOPED_TRACE(std::to_string(caso.tam_real) + " " + std::to_string(caso.tam_cabecera));
        const char *nombre = nombre_unico("miente");
        bloque_crudo ajeno = bloque_ajeno(nombre, caso.tam_real);
        ajeno.pon_cabecera(caso.tam_cabecera);

        iv_shared_bloque *b = iv_shared_abre(nombre);
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(iv_shared_tam_datos(b), caso.tam_legible);
        EXPECT_EQ(iv_shared_contiene(b, caso.tam_legible), 1);
        EXPECT_EQ(iv_shared_contiene(b, caso.tam_legible + 1), 0);

        uint32_t tam = 0;
        void *copia = iv_shared_copia_local(b, &tam);
        std::vector<uint8_t> esperados = bytes_seguidos(caso.tam_real);
        esperados.resize(caso.tam_legible);
        EXPECT_EQ(tam, caso.tam_legible);
        EXPECT_TRUE(bytes_iguales(esperados, bytes_de(copia, tam)));
        EXPECT_EQ(ajeno.cabecera(), caso.tam_cabecera) << "the header is not rewritten";
        iv_mem_libera(&copia);
        iv_shared_destruye(&b);
    }
}

TEST(iv_shared, cabecera_que_promete_de_mas_no_hace_escribir_fuera)
{
    const char *nombre = nombre_unico("miente");
    bloque_crudo ajeno = bloque_ajeno(nombre, 300);
    ajeno.pon_cabecera(0xffffffff);
    std::vector<uint8_t> datos(4093, 0xaa);

    EXPECT_EQ(iv_shared_crea_con_datos(nombre, 4093, datos.data()), nullptr);
    EXPECT_EQ(ajeno.texto(1, 1), "\1") << "nothing is written";

    iv_shared_bloque *b = iv_shared_crea_con_datos(nombre, 4092, datos.data());
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(bytes_de(iv_shared_datos(b), 4092), std::vector<uint8_t>(4092, 0xaa));
    iv_shared_destruye(&b);
}

// Its creator writes the size just after the block can be seen.
TEST(iv_shared, tamanyo_que_aun_falta_se_espera_un_poco)
{
    static bloque_crudo *visto;
    static uint32_t num_esperas;
    const char *nombre = nombre_unico("tarda");
    bloque_crudo ajeno(nombre, 100);
    ajeno.pon_cabecera(0);
    visto = &ajeno;
    iv_shared_bloque *b = iv_shared_abre(nombre);
    {
        importacion_cambiada<decltype(&Sleep)> cambio(__imp_Sleep, [](DWORD ms) {
            EXPECT_EQ(ms, 1u);
            if (++num_esperas == 3)
                visto->pon_cabecera(100);
        });
        EXPECT_EQ(iv_shared_contiene(b, 100), 1);
        EXPECT_EQ(num_esperas, 3u);
        EXPECT_EQ(iv_shared_contiene(b, 101), 0);
        EXPECT_EQ(num_esperas, 3u) << "a size that is there is not waited for";
    }

    ajeno.pon_cabecera(0);
    importacion_cambiada<decltype(&Sleep)> cambio(__imp_Sleep, [](DWORD) { num_esperas++; });
    num_esperas = 0;
    EXPECT_EQ(iv_shared_contiene(b, 1), 0);
    EXPECT_EQ(num_esperas, 20u);
    iv_shared_destruye(&b);
}

// ---- Data, copies and the end

TEST(iv_shared, datos_de_un_registro_nulo_son_nulos)
{
    EXPECT_EQ(iv_shared_datos(nullptr), nullptr);
    EXPECT_SIN_INFORMES();
}

TEST(iv_shared, copia_local_tiene_los_datos_su_tamanyo_y_cuatro_ceros_detras)
{
    const char *nombre = nombre_unico("copia");
    bloque_crudo ajeno = bloque_ajeno(nombre, 300);
    iv_shared_bloque *b = iv_shared_abre(nombre);
    uint32_t tam = 0;

    void *copia = iv_shared_copia_local(b, &tam);

    EXPECT_EQ(tam, 300u);
    EXPECT_TRUE(bytes_iguales(bytes_seguidos(300), bytes_de(copia, 300)));
    EXPECT_TRUE(bytes_iguales({0, 0, 0, 0}, bytes_de(static_cast<uint8_t *>(copia) + 300, 4)));
    EXPECT_GE(tam_de(copia), 304u);
    memset(copia, 0xff, 300);
    EXPECT_TRUE(bytes_iguales(bytes_seguidos(300), ajeno.bytes(0, 300))) << "it is a copy";

    iv_shared_destruye(&b);
    EXPECT_EQ(bloques_vivos(), 1u) << "the copy is the caller's";
    iv_mem_libera(&copia);
}

TEST(iv_shared, copia_local_de_un_bloque_vacio_se_informa_y_sigue)
{
    iv_shared_bloque *b = iv_shared_crea(nombre_unico("vacio"), "t", 0, nullptr);
    borra_informes();
    uint32_t tam = 77;

    void *copia = iv_shared_copia_local(b, &tam);

    EXPECT_INFORME("iv_mem", "tam > 0");
    EXPECT_NE(copia, nullptr);
    EXPECT_EQ(tam, 0u);
    iv_mem_libera(&copia);
    iv_shared_destruye(&b);
}

TEST(iv_shared, destruir_dos_veces_o_nada_no_hace_nada)
{
    iv_shared_bloque *b = iv_shared_crea(nombre_unico("dos"), "t", 10, nullptr);
    void *vista = b->sharedmem;
    MEMORY_BASIC_INFORMATION memoria;

    iv_shared_destruye(&b);
    EXPECT_EQ(b, nullptr);
    ASSERT_NE(VirtualQuery(vista, &memoria, sizeof memoria), 0u);
    EXPECT_EQ(memoria.State, static_cast<DWORD>(MEM_FREE)) << "it is unmapped";
    iv_shared_destruye(&b);
    iv_shared_destruye(nullptr);

    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_shared, cierre_que_el_sistema_niega_se_informa_paso_a_paso_y_el_registro_se_libera)
{
    const char *nombre = nombre_unico("niega");
    iv_shared_bloque *b = iv_shared_crea(nombre, "t", 10, nullptr);
    UnmapViewOfFile(b->sharedmem);
    iv_shared_destruye(&b);
    EXPECT_INFORME("iv_shared", "res != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_FALSE(existe_bloque(nombre)) << "the handle is closed all the same";

    b = iv_shared_crea(nombre, "t", 10, nullptr);
    UnmapViewOfFile(b->sharedmem);
    CloseHandle(b->hmap);
    b->hmap = reinterpret_cast<HANDLE>(0x0BAD0BAC); // never one; a closed one's number is soon given out again
    iv_shared_destruye(&b);
    EXPECT_INFORME("iv_shared", "res != 0");
    EXPECT_INFORME("iv_shared", "res != 0");
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_shared, registro_sin_manejador_se_libera_sin_tocar_la_vista)
{
    iv_shared_bloque *b = iv_shared_crea(nombre_unico("suelto"), "t", 10, nullptr);
    HANDLE mapa = b->hmap;
    void *vista = b->sharedmem;
    b->hmap = nullptr;

    iv_shared_destruye(&b);

    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(bloques_vivos(), 0u);
    EXPECT_TRUE(UnmapViewOfFile(vista));
    EXPECT_TRUE(CloseHandle(mapa));
}

// ---- The trace

TEST(iv_shared_traza, tamanyo_de_un_bloque_que_existe_se_escribe_con_el_pedido)
{
    if (!en_proceso_trazado())
        return;
    const char *nombre = nombre_unico("traza");
    bloque_crudo ajeno = bloque_ajeno(nombre, 100);
    i_free(i_malloc(1));
    const std::string LINEA_300 = "sharedmem->tam_datos = 100  ---  tam_datos = 300\n";
    const std::string LINEA_0 = "sharedmem->tam_datos = 100  ---  tam_datos = 100\n";

    captura_traza traza;
    iv_shared_bloque *pide_300 = iv_shared_crea(nombre, "t", 300, nullptr);
    EXPECT_EQ(traza.texto().rfind(LINEA_300 + "[s_LocalHeap=", 0), 0u) << traza.texto();

    traza.borra();
    iv_shared_bloque *abierto = iv_shared_abre(nombre);
    EXPECT_EQ(traza.texto().rfind(LINEA_0 + "[s_LocalHeap=", 0), 0u) << traza.texto();

    traza.borra();
    EXPECT_EQ(iv_shared_crea_con_datos(nombre, 300, std::string(300, 'x').c_str()), nullptr);
    EXPECT_EQ(traza.texto(), LINEA_300 + LINEA_300);
    iv_shared_destruye(&pide_300);
    iv_shared_destruye(&abierto);
}

TEST(iv_shared_traza, bloque_nuevo_no_escribe_su_tamanyo)
{
    if (!en_proceso_trazado())
        return;
    i_free(i_malloc(1));

    captura_traza traza;
    iv_shared_bloque *b = iv_shared_crea(nombre_unico("traza"), "t", 300, nullptr);

    EXPECT_EQ(traza.texto().find("tam_datos"), std::string::npos) << traza.texto();
    EXPECT_EQ(traza.texto().rfind("[s_LocalHeap=", 0), 0u) << traza.texto();
    iv_shared_destruye(&b);
}

// ---- Processes

PAPEL(comparte_bloque)
{
    int16_t ya_estaba_creado = 77;
    iv_shared_bloque *b = iv_shared_crea(args.at(0).c_str(), "t", 5000, &ya_estaba_creado);
    yo.di("LISTO");
    yo.di(junta({"BLOQUE", std::to_string(ya_estaba_creado), std::to_string(iv_shared_tam_datos(b)),
                 static_cast<char *>(iv_shared_datos(b))}));
    strcpy(static_cast<char *>(iv_shared_datos(b)), "del hijo");
    yo.di("ESCRITO");
    yo.escucha_linea("FIN", 30000);
    iv_shared_destruye(&b);
    yo.di("DESTRUIDO");
    yo.escucha_linea("FIN", 30000);
    return 0;
}

TEST(iv_shared, dos_procesos_se_encuentran_en_el_mismo_bloque)
{
    const char *nombre = nombre_unico("comun");
    iv_shared_bloque *b = iv_shared_crea(nombre, "t", 40, nullptr);
    strcpy(static_cast<char *>(iv_shared_datos(b)), "del padre");

    papel otro = arranca_papel("comparte_bloque", {nombre});
    EXPECT_EQ(otro.espera_linea("BLOQUE", 10000), "BLOQUE|1|40|del padre");
    otro.espera_linea("ESCRITO", 10000);

    EXPECT_STREQ(static_cast<char *>(iv_shared_datos(b)), "del hijo");
    iv_shared_destruye(&b);
    otro.mata();
}

TEST(iv_shared, bloque_vive_hasta_que_lo_deja_el_ultimo_proceso)
{
    const char *nombre = nombre_unico("ultimo");
    iv_shared_bloque *b = iv_shared_crea(nombre, "t", 40, nullptr);
    papel otro = arranca_papel("comparte_bloque", {nombre});
    otro.espera_linea("ESCRITO", 10000);

    iv_shared_destruye(&b);
    EXPECT_TRUE(existe_bloque(nombre));
    otro.di("FIN");
    otro.espera_linea("DESTRUIDO", 10000);
    EXPECT_TRUE(existe_bloque(nombre)) << "the handle that found it stays";
    otro.di("FIN");
    EXPECT_EQ(otro.espera_fin(10000), 0u);
    EXPECT_FALSE(existe_bloque(nombre));
}

PAPEL(crea_a_la_vez)
{
    int16_t ya_estaba_creado = 77;
    yo.di("LISTO");
    yo.escucha_linea("CREA", 30000);
    iv_shared_bloque *b = iv_shared_crea(args.at(0).c_str(), "t", 64, &ya_estaba_creado);
    yo.di(junta({"CREADO", std::to_string(ya_estaba_creado), iv_shared_contiene(b, 64) == CIERTO ? "64" : "?"}));
    yo.escucha(30000);
    return 0;
}

TEST(iv_shared, dos_procesos_que_crean_a_la_vez_crean_uno)
{
    const char *nombre = nombre_unico("carrera");
    papel uno = arranca_papel("crea_a_la_vez", {nombre});
    papel otro = arranca_papel("crea_a_la_vez", {nombre});

    uno.di("CREA");
    otro.di("CREA");
    std::vector<std::string> dichos = {uno.espera_linea("CREADO", 10000), otro.espera_linea("CREADO", 10000)};
    std::sort(dichos.begin(), dichos.end());

    EXPECT_EQ(dichos, (std::vector<std::string>{"CREADO|0|64", "CREADO|1|64"}));
}
