// comun_leido.cpp - another program's block, looked at: nothing is written, nothing is left behind.
#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/manejadores.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/util.h"

#include "comun/leido.h"

using herramientas::bloque_leido;
using herramientas::bloques_que_empiezan_por;

// ROLE "guarda", block: holds it until it is told to let go.
PAPEL(guarda)
{
    bloque_crudo bloque(args[0].c_str(), 100);
    bloque.pon_u32(0, 0x01020304);
    yo.di("LISTO");
    yo.escucha(60000);
    return 0;
}

// ---- Opening

TEST(leido, lee_los_bytes_y_el_tamano_que_dice_la_cabecera)
{
    std::string nombre = nombre_unico("bloque");
    bloque_crudo crudo(nombre.c_str(), 100);
    crudo.pon_bytes(0, {1, 2, 3, 4});
    bloque_leido leido(nombre);
    ASSERT_TRUE(leido.abierto());
    EXPECT_EQ(leido.tam_dicho(), 100u);
    EXPECT_EQ(leido.tam(), 100u);
    uint8_t copia[100] = {9};
    EXPECT_TRUE(leido.copia(copia, 100));
    EXPECT_EQ(copia[0], 1);
    EXPECT_EQ(copia[3], 4);
    EXPECT_EQ(copia[99], 0);
    EXPECT_FALSE(leido.copia(copia, 101)) << "past the data";
    EXPECT_TRUE(leido.copia(nullptr, 0));
}

TEST(leido, lo_que_no_hay_no_se_crea)
{
    std::string nombre = nombre_unico("nada");
    bloque_leido leido(nombre);
    EXPECT_FALSE(leido.abierto());
    EXPECT_EQ(leido.tam(), 0u);
    EXPECT_EQ(leido.tam_dicho(), 0u);
    EXPECT_EQ(leido.datos(), nullptr);
    uint8_t byte;
    EXPECT_FALSE(leido.copia(&byte, 0));
    EXPECT_FALSE(existe_bloque(nombre.c_str()));
}

TEST(leido, no_se_puede_escribir_a_traves_de_el)
{
    std::string nombre = nombre_unico("bloque");
    bloque_crudo crudo(nombre.c_str(), 100);
    bloque_leido leido(nombre);
    MEMORY_BASIC_INFORMATION info;
    ASSERT_NE(VirtualQuery(leido.datos(), &info, sizeof info), 0u);
    EXPECT_EQ(info.Protect, static_cast<DWORD>(PAGE_READONLY));
    DWORD antes;
    EXPECT_FALSE(VirtualProtect(const_cast<uint8_t *>(leido.datos()), 1, PAGE_READWRITE, &antes))
        << "the mapping itself has no write access";
}

// Handles of the kinds that a look at blocks makes, and in the folder of names where it makes them. Others come and go,
// such as the sections of the libraries that the window system's threads load.
static std::vector<std::string> lo_que_esta_abierto()
{
    std::vector<std::string> abiertos;
    for (uintptr_t i = 1; i < 4096; i++) {
        HANDLE manejador = reinterpret_cast<HANDLE>(i * 4);
        std::wstring tipo = tipo_de_manejador(manejador), nombre = nombre_de_manejador(manejador);
        if ((tipo == L"Section" || tipo == L"Directory") && nombre.find(L"BaseNamedObjects") != nombre.npos)
            abiertos.push_back(a_utf8(tipo + L" " + nombre));
    }
    return abiertos;
}

TEST(leido, cierra_lo_que_abre)
{
    std::string nombre = nombre_unico("bloque"), nada = nombre_unico("nada");
    bloque_crudo crudo(nombre.c_str(), 100);
    bloques_que_empiezan_por(nombre);
    std::vector<std::string> antes = lo_que_esta_abierto();
    EXPECT_GE(antes.size(), 2u) << "the block and the directory of the session's names";
    {
        bloque_leido leido(nombre);
        EXPECT_EQ(lo_que_esta_abierto().size(), antes.size() + 1) << "what is open is seen";
    }
    for (int i = 0; i < 50; i++) {
        bloque_leido leido(nombre), otro(nada);
        bloques_que_empiezan_por(nombre);
    }
    EXPECT_EQ(lo_que_esta_abierto(), antes);
}

// ---- Sizes

TEST(leido, una_cabecera_que_miente_no_lleva_fuera_de_lo_que_hay)
{
    std::string nombre = nombre_unico("bloque");
    bloque_crudo crudo(nombre.c_str(), 10000);
    bloque_leido leido(nombre);
    const size_t HAY = 3 * 4096 - 4; // in whole pages
    for (uint32_t dicho : {0u, 1u, 10000u, 12284u, 12285u, 0x7fffffffu, 0xfffffffcu, 0xffffffffu}) {
        crudo.pon_cabecera(dicho);
        EXPECT_EQ(leido.tam_dicho(), dicho);
        EXPECT_EQ(leido.tam(), std::min<size_t>(dicho, HAY));
        std::vector<uint8_t> todo(leido.tam());
        EXPECT_TRUE(leido.copia(todo.data(), todo.size()));
        EXPECT_FALSE(leido.copia(todo.data(), HAY + 1));
    }
}

TEST(leido, un_bloque_de_menos_de_4_bytes_tiene_una_pagina)
{
    std::string nombre = nombre_unico("corto");
    HANDLE mapa = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 1, nombre.c_str());
    ASSERT_NE(mapa, nullptr);
    bloque_leido leido(nombre);
    EXPECT_TRUE(leido.abierto());
    EXPECT_EQ(leido.tam(), 0u);
    CloseHandle(mapa);
}

TEST(leido, paginas_que_nadie_ha_dado_no_se_leen)
{
    std::string nombre = nombre_unico("reservado");
    HANDLE mapa =
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0, 65536, nombre.c_str());
    ASSERT_NE(mapa, nullptr);
    uint8_t *vista = static_cast<uint8_t *>(MapViewOfFile(mapa, FILE_MAP_WRITE, 0, 0, 0));
    {
        bloque_leido leido(nombre);
        EXPECT_EQ(leido.tam_dicho(), 0u);
        EXPECT_EQ(leido.tam(), 0u);
    }
    ASSERT_NE(VirtualAlloc(vista, 8192, MEM_COMMIT, PAGE_READWRITE), nullptr);
    *reinterpret_cast<uint32_t *>(vista) = 60000;
    bloque_leido leido(nombre);
    EXPECT_LE(leido.tam(), 8192u - 4) << "two pages of sixteen are there";
    std::vector<uint8_t> todo(leido.tam());
    EXPECT_TRUE(leido.copia(todo.data(), todo.size()));
    UnmapViewOfFile(vista);
    CloseHandle(mapa);
}

TEST(leido, la_imagen_de_un_programa_no_es_un_bloque)
{
    std::string nombre = nombre_unico("imagen");
    HANDLE fichero =
        CreateFileA(este_programa().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    HANDLE mapa = CreateFileMappingA(fichero, nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, nombre.c_str());
    ASSERT_NE(mapa, nullptr);
    {
        bloque_leido leido(nombre);
        std::vector<uint8_t> todo(leido.tam());
        leido.copia(todo.data(), todo.size()); // what is told to be there can be read
    }
    CloseHandle(mapa);
    CloseHandle(fichero);
}

// ---- Life

TEST(leido, mantiene_el_bloque_mientras_vive_y_nada_mas)
{
    std::string nombre = nombre_unico("bloque");
    papel dueno = arranca_papel("guarda", {nombre});
    {
        bloque_leido leido(nombre);
        ASSERT_TRUE(leido.abierto());
        dueno.mata();
        uint32_t valor = 0;
        EXPECT_TRUE(leido.copia(&valor, 4));
        EXPECT_EQ(valor, 0x01020304u);
        EXPECT_TRUE(existe_bloque(nombre.c_str()));
    }
    EXPECT_FALSE(existe_bloque(nombre.c_str()));
}

TEST(leido, quien_escribe_sin_parar_deja_una_copia_que_se_dice_rota)
{
    uint32_t copia = 0, escrito = 0;
    EXPECT_FALSE(herramientas::copia_quieta(&copia, sizeof copia, [&](void *destino) {
        ++escrito;
        memcpy(destino, &escrito, sizeof escrito);
    }));
    EXPECT_EQ(escrito, 51u) << "it does not go on for ever";
    EXPECT_EQ(copia, 51u) << "the last one";
}

TEST(leido, quien_deja_de_escribir_deja_una_copia_entera)
{
    uint32_t copia = 0, escrito = 0, veces = 0;
    EXPECT_TRUE(herramientas::copia_quieta(&copia, sizeof copia, [&](void *destino) {
        veces++;
        escrito = std::min(escrito + 1, 50u);
        memcpy(destino, &escrito, sizeof escrito);
    }));
    EXPECT_EQ(copia, 50u);
    EXPECT_EQ(veces, 51u);
}

// ---- Names

TEST(leido, da_los_bloques_de_la_sesion_que_empiezan_asi_y_nada_mas)
{
    std::string base = nombre_unico("Pref");
    std::vector<std::string> nombres = {base + "_b", base + "_a", base, base + "_\xf1\xe9",
                                        base + "_" + std::string(180, 'x')};
    std::vector<bloque_crudo> bloques;
    for (const std::string &nombre : nombres)
        bloques.emplace_back(nombre.c_str(), 10);
    bloque_crudo otro(("X" + base).c_str(), 10);
    mutex_crudo mutex((base + "_mutex").c_str(), mutex_crudo::modo::crea);
    HANDLE suceso = CreateEventA(nullptr, TRUE, FALSE, (base + "_event").c_str());
    HANDLE sin_ansi = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 10,
                                         (std::wstring(base.begin(), base.end()) + L"_\u4e00").c_str());
    std::sort(nombres.begin(), nombres.end());
    EXPECT_EQ(bloques_que_empiezan_por(base), nombres);
    EXPECT_EQ(bloques_que_empiezan_por(base + "_b"), std::vector<std::string>{base + "_b"});
    EXPECT_EQ(bloques_que_empiezan_por(base + "_c"), std::vector<std::string>{});
    for (const std::string &nombre : bloques_que_empiezan_por(base))
        EXPECT_TRUE(bloque_leido(nombre).abierto()) << nombre;
    std::vector<std::string> todos = bloques_que_empiezan_por("");
    EXPECT_TRUE(std::is_sorted(todos.begin(), todos.end()));
    EXPECT_NE(std::find(todos.begin(), todos.end(), "X" + base), todos.end());
    CloseHandle(suceso);
    CloseHandle(sin_ansi);
    bloques.clear();
    EXPECT_EQ(bloques_que_empiezan_por(base), std::vector<std::string>{});
}
