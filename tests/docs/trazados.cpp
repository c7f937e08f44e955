// What docs/layouts.md and docs/limits.md say in numbers, against the code: names of objects, sizes of records, limits,
// and the bytes of the example.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "iv_comdat.h"
#include "iv_mcserv.h"
#include "iv_mem.h"
#include "iv_nombre.h"
#include "iv_reg.h"
#include "iv_shared.h"

#include "paginas.h"

namespace {

using fila = std::vector<std::string>;

std::string sin_blancos(const std::string &texto)
{
    size_t desde = texto.find_first_not_of(" `");
    return desde == texto.npos ? "" : texto.substr(desde, texto.find_last_not_of(" `") - desde + 1);
}

// The rows of the page's tables, a cell a piece.
std::vector<fila> filas_de(const char *pagina)
{
    std::vector<fila> filas;
    std::istringstream lineas(pagina);
    for (std::string linea; std::getline(lineas, linea);) {
        if (linea.compare(0, 2, "| ") != 0)
            continue;
        fila celdas;
        std::istringstream trozos(linea.substr(1));
        for (std::string celda; std::getline(trozos, celda, '|');)
            celdas.push_back(sin_blancos(celda));
        filas.push_back(celdas);
    }
    return filas;
}

// The row that has `valor` in that column, which there is once.
fila unica(const char *pagina, size_t columna, const std::string &valor)
{
    fila hallada;
    size_t veces = 0;
    for (const fila &f : filas_de(pagina))
        if (columna < f.size() && f[columna] == valor) {
            hallada = f;
            veces++;
        }
    EXPECT_EQ(veces, 1u) << "rows for " << valor;
    return veces == 1 ? hallada : fila(8);
}

std::string toma(char *nombre)
{
    std::string texto = nombre;
    iv_mem_libera(&nombre);
    return texto;
}

// A name that the code makes for the service "Calc" and the number 17, as the page writes it.
std::string patron(std::string nombre)
{
    size_t servicio = nombre.find("Calc");
    if (servicio != nombre.npos)
        nombre.replace(servicio, 4, "<service>");
    size_t numero = nombre.find("17");
    if (numero != nombre.npos)
        nombre.replace(numero, 2, "<n>");
    return nombre;
}

struct objeto {
    std::string nombre;
    const char *bytes, *formato; // as on the page
};

std::vector<objeto> objetos()
{
    return {
        {iv_nombre_MCB(), "8886", "include/ivrexa_mcbase.h"},
        {iv_nombre_mutex_MCB(), "", "src/iv_mutex.h"},
        {toma(iv_nombre_MCServ("Calc")), "2378", "src/iv_mcserv.h"},
        {toma(iv_nombre_mutex_servicio("Calc", 0)), "", "src/iv_mutex.h"},
        {toma(iv_nombre_mutex_servicio_interno("Calc")), "", "src/iv_mutex.h"},
        {toma(iv_nombre_MCCom("Calc", 17)), "its content", "src/iv_comdat.h"},
        {toma(iv_nombre_MSG_servicio("Calc")), "", "below"},
        {iv_nombre_monitor_MSG(), "", "below"},
    };
}

TEST(documentos, cada_objeto_compartido_tiene_su_nombre_su_tamanyo_y_su_cabecera)
{
    for (const objeto &o : objetos()) {
        fila f = unica(LAYOUTS, 0, patron(o.nombre));
        EXPECT_EQ(f[3], o.bytes) << o.nombre;
        EXPECT_EQ(f[4], o.formato) << o.nombre;
    }
    unica(LAYOUTS, 0, "ivrexa_iv_mem");
}

TEST(documentos, no_hay_mas_objetos_compartidos_que_los_que_el_codigo_nombra)
{
    size_t hallados = 0;
    for (const fila &f : filas_de(LAYOUTS))
        if (f.size() == 5 && (f[0].find("vrexa_") != f[0].npos))
            hallados++;
    EXPECT_EQ(hallados, objetos().size() + 1); // and the heap's lock
}

TEST(documentos, cada_registro_tiene_su_tamanyo)
{
    const struct {
        const char *nombre;
        size_t bytes;
    } registros[] = {
        {"iv_shared_cabecera", sizeof(iv_shared_cabecera)},
        {"iv_mcbase_t", sizeof(iv_mcbase_t)},
        {"iv_mcbase_actividad_t", sizeof(iv_mcbase_actividad_t)},
        {"iv_mcbase_programa_t", sizeof(iv_mcbase_programa_t)},
        {"datServ", sizeof(datServ)},
        {"iv_mcserv_t", sizeof(iv_mcserv_t)},
    };
    for (const auto &r : registros)
        EXPECT_EQ(unica(LAYOUTS, 0, r.nombre)[1], std::to_string(r.bytes)) << r.nombre;
    EXPECT_EQ(unica(LAYOUTS, 0, "Ivrexa_MCB")[3], std::to_string(sizeof(iv_mcbase_t)));
    EXPECT_EQ(unica(LAYOUTS, 0, "Ivrexa_MCB_Serv_<service>")[3], std::to_string(sizeof(iv_mcserv_t)));
}

// The page's bytes: on each line what stands before three blanks and words.
std::string bytes_de_la_pagina()
{
    std::string bytes;
    std::istringstream lineas(LAYOUTS);
    for (std::string linea; std::getline(lineas, linea);)
        if (!linea.empty() && linea[0] != '|')
            for (char c : linea.substr(0, linea.find("   ")))
                if (c != ' ')
                    bytes += c;
    return bytes;
}

std::string en_cifras(const uint8_t *bytes, uint32_t num)
{
    std::string cifras;
    for (uint32_t i = 0; i < num; i++) {
        cifras += "0123456789abcdef"[bytes[i] >> 4];
        cifras += "0123456789abcdef"[bytes[i] & 15];
    }
    return cifras;
}

TEST(documentos, los_bytes_del_ejemplo_son_los_que_se_escriben)
{
    comdat *datos = iv_comdat_crea_para_grabar("Calc", CIERTO);
    iv_comdat_graba_ulong(datos, "a", 40);
    iv_comdat_graba_cadena_ansi(datos, "t", "hi");
    uint32_t ocupado;
    const uint8_t *contenido = iv_comdat_contenido(datos, &ocupado);
    EXPECT_EQ(bytes_de_la_pagina(), en_cifras(contenido, ocupado));
    iv_comdat_destruye(datos);
}

TEST(documentos, cada_limite_con_nombre_es_el_del_codigo)
{
    const struct {
        const char *nombre;
        int valor;
    } limites[] = {
        {"iv_mcbase_NUM_MAX_PROGRAMAS", iv_mcbase_NUM_MAX_PROGRAMAS},
        {"iv_mcbase_NUM_MAX_SERVICIOS", iv_mcbase_NUM_MAX_SERVICIOS},
        {"i_NUM_MAX_SERVICIOS_PRESTADOS", i_NUM_MAX_SERVICIOS_PRESTADOS},
        {"i_NUM_MAX_SERVICIOS_SOLICITADOS", i_NUM_MAX_SERVICIOS_SOLICITADOS},
        {"i_NUM_MAX_DOCUMENTOS", i_NUM_MAX_DOCUMENTOS},
        {"iv_mcbase_NUM_ACTIVIDADES", iv_mcbase_NUM_ACTIVIDADES},
        {"i_NUM_NIVELES_BLOQUEO", i_NUM_NIVELES_BLOQUEO},
        {"iv_mcbase_TAM_NOMBRE_PROGRAMA", iv_mcbase_TAM_NOMBRE_PROGRAMA},
        {"iv_mcbase_TAM_NOMBRE_SERVICIO", iv_mcbase_TAM_NOMBRE_SERVICIO},
    };
    for (const auto &l : limites)
        EXPECT_EQ(unica(LIMITS, 1, l.nombre)[2], std::to_string(l.valor)) << l.nombre;
    size_t con_nombre = 0;
    for (const fila &f : filas_de(LIMITS))
        if (f.size() == 4 && f[1].find("NUM_") + f[1].find("TAM_") != 2 * f[1].npos)
            con_nombre++;
    EXPECT_EQ(con_nombre, sizeof limites / sizeof limites[0]);
}

} // namespace
