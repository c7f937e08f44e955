// siembra FOLDER             writes the fuzzers' seeds into FOLDER/<target>/
// siembra --comprueba FOLDER  ends with 0 only if they lie there, byte for byte
//
// What the library's own writers make is made by them; the rest is what a broken or hostile peer might leave.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "apoyo.h"
#include "formato_escritura.h"
#include "iv_comdat.h"
#include "iv_mcbase.h"
#include "iv_mcserv.h"

namespace {

using apoyo::salida;

struct semilla {
    std::string fuzz;
    std::string nombre;
    bytes contenido;
};

std::vector<semilla> s_semillas;

void siembra(const char *fuzz, const char *nombre, const bytes &contenido)
{
    s_semillas.push_back({fuzz, nombre, contenido});
}

// ---- Content of command data

template <typename accion>
bytes escrito(accion que)
{
    comdat *c = iv_comdat_crea_para_grabar("S", CIERTO);
    que(c);
    uint32_t ocupado;
    const uint8_t *contenido = iv_comdat_contenido(c, &ocupado);
    bytes b(contenido, contenido + ocupado);
    iv_comdat_destruye(c);
    return b;
}

const char *const ANSI[] = {"uno", "", nullptr, "cuatro"};
const wchar_t *const ANCHO[] = {L"uno", L"", nullptr, L"\xD83D\xDE00"};

void cada_tipo(comdat *c)
{
    iv_comdat_graba_byte(c, "b", 7);
    iv_comdat_graba_ushort(c, "us", 0x1234);
    iv_comdat_graba_ulong(c, "ul", 0x89ABCDEF);
    iv_comdat_graba_double(c, "d", -2.5);
    iv_comdat_graba_buffer(c, "buf", "\1\0\2", 3);
    iv_comdat_graba_cadena_ansi(c, "ansi", "texto");
    iv_comdat_graba_cadena_unicode(c, "ancha", L"texto \x4E2D");
    iv_comdat_graba_hwnd(c, "hwnd", reinterpret_cast<ivrexa_hwnd>(0x1122334455667788));
    iv_comdat_graba_arr_cadenas_ansi(c, "arr", ANSI, 4);
}

void siembra_lo_escrito()
{
    const char fuzz[] = "contenido";
    siembra(fuzz, "vacio", escrito([](comdat *) {}));
    siembra(fuzz, "cada_tipo", escrito(cada_tipo));
    siembra(fuzz, "cada_tipo_y_arreglo_ancho", escrito([](comdat *c) {
                cada_tipo(c);
                iv_comdat_graba_arr_cadenas_unicode(c, "arr ancho", ANCHO, 4);
                iv_comdat_graba_ulong(c, "detras", 9);
            }));
    siembra(fuzz, "arreglo_ancho", escrito([](comdat *c) { iv_comdat_graba_arr_cadenas_unicode(c, "a", ANCHO, 4); }));
    siembra(fuzz, "arreglo_ancho_de_uno_nulo", escrito([](comdat *c) {
                iv_comdat_graba_arr_cadenas_unicode(c, "", nullptr, 1);
                iv_comdat_graba_cadena_ansi(c, "detras", "t");
            }));
    siembra(fuzz, "arreglos_de_cero", escrito([](comdat *c) {
                iv_comdat_graba_arr_cadenas_ansi(c, "a", nullptr, 0);
                iv_comdat_graba_arr_cadenas_unicode(c, "u", nullptr, 0);
            }));
    siembra(fuzz, "nulos_y_vacios", escrito([](comdat *c) {
                iv_comdat_graba_cadena_ansi(c, nullptr, nullptr);
                iv_comdat_graba_cadena_unicode(c, "", nullptr);
                iv_comdat_graba_buffer(c, "b", nullptr, 5);
                iv_comdat_graba_cadena_ansi(c, "v", "");
                iv_comdat_graba_cadena_unicode(c, "v", L"");
            }));
    for (uint32_t largo : {254u, 255u, 300u})
        siembra(fuzz,
                largo == 254   ? "nombre_de_254"
                : largo == 255 ? "nombre_de_255"
                               : "nombre_de_300",
                escrito([largo](comdat *c) {
                    iv_comdat_graba_byte(c, std::string(largo, 'n').c_str(), 1);
                    iv_comdat_graba_byte(c, "detras", 2);
                }));
    siembra(fuzz, "crece_de_1024", escrito([](comdat *c) {
                iv_comdat_graba_buffer(c, "b", bytes(1013, 0xB5).data(), 1013); // 1024 bytes in all
                iv_comdat_graba_ushort(c, "mas", 1);
            }));
    siembra(fuzz, "muchos", escrito([](comdat *c) {
                for (uint8_t i = 0; i < 60; i++)
                    iv_comdat_graba_byte(c, "", i);
            }));
}

// A count and bytes behind it.
salida con_cuenta(uint32_t cuenta)
{
    return salida().u32(cuenta);
}

// One value's header, its name "n".
salida valor(uint32_t tipo, uint32_t cuenta = 1)
{
    return con_cuenta(cuenta).u8(tipo).u8(2).pon("n", 2);
}

void siembra_lo_que_miente()
{
    const char fuzz[] = "contenido";
    siembra(fuzz, "miente_cuenta_enorme", valor(1, UINT32_MAX).u8(1));
    siembra(fuzz, "miente_cuenta_cero", valor(1, 0).u8(1));
    siembra(fuzz, "miente_cuenta_cortada", salida().u16(5));
    siembra(fuzz, "miente_tipo_cero", valor(0, 3).u8(1).u8(0).u8(9).u8(2).pon("m", 2));
    siembra(fuzz, "miente_tipo_desconocido", valor(11, 2).u8(255).u8(0));
    siembra(fuzz, "miente_longitud_enorme", valor(5, 2).u32(UINT32_MAX).u8(1));
    siembra(fuzz, "miente_longitud_da_la_vuelta", valor(5).u32(0xFFFFFFF4u).u32(1));
    siembra(fuzz, "miente_longitud_cortada", valor(6).u16(3));
    siembra(fuzz, "miente_texto_sin_fin", valor(6).u32(5).pon("abcde", 5));
    siembra(fuzz, "miente_texto_ancho_impar", valor(7).u32(5).pon("a\1b\1c", 5));
    siembra(fuzz, "miente_arreglo_enorme", valor(9).u32(1u << 30).u32(12).u32(1));
    siembra(fuzz, "miente_arreglo_de_tantos_como_bytes", valor(9).u32(16).u32(0));
    siembra(fuzz, "miente_arreglo_de_mas_que_bytes", valor(9).u32(17).u32(0));
    siembra(fuzz, "miente_arreglo_ancho_con_cuenta", valor(10).u32(2).u32(20).u32(26).u32(2).u16(0).u32(0));
    siembra(fuzz, "miente_posicion_fuera", valor(9).u32(3).u32(0xFFFFFFFCu).u32(24).u32(25).u32(1).u8(0));
    siembra(fuzz, "miente_fijo_cortado", valor(8, 2).u8(1).u8(2));
    siembra(fuzz, "miente_nombre_cortado", con_cuenta(1).u8(3).u8(200).pon("abc", 3));
    siembra(fuzz, "miente_nombre_sin_fin", con_cuenta(2).u8(1).u8(3).pon("abc", 3).u8(7).u8(1).u8(1).pon("z", 1));
}

// ---- Writers

using namespace formato_escritura;

// An operation's type and name.
salida &op(salida &s, uint32_t tipo, const char *nombre)
{
    return s.u8(tipo - 1).u8(TEXTO).texto(nombre);
}

void siembra_escritura()
{
    const char fuzz[] = "escritura";
    salida todo;
    todo.u8(0);
    op(todo, 1, "b").u8(7);
    op(todo, 2, "us").u16(7);
    op(todo, 3, "ul").u32(7);
    op(todo, 4, "d").u64(0x4004000000000000);
    op(todo, 8, "h").u64(7);
    op(todo, 5, "nulo").u8(NULO).u32(9);
    op(todo, 5, "buf").u8(NORMAL).u16(9);
    op(todo, 6, "a").u8(TEXTO).texto("ansi");
    op(todo, 7, "u").u8(TEXTO).texto("ancha");
    op(todo, 6, "an").u8(TEXTO_NULO);
    op(todo, 9, "arr").u8(NORMAL).u8(3).u8(TEXTO).texto("x").u8(TEXTO_NULO).u8(TEXTO).texto("");
    siembra(fuzz, "cada_escritor", todo);

    salida ancho = todo;
    op(ancho, 10, "arr").u8(NORMAL).u8(2).u8(TEXTO).texto("x").u8(TEXTO_NULO);
    op(ancho, 10, "nulo").u8(NULO).u8(3);
    op(ancho, 1, "detras").u8(1);
    siembra(fuzz, "arreglos_anchos", ancho);

    salida crece;
    crece.u8(0);
    op(crece, 5, "b").u8(NORMAL).u16(1013);
    op(crece, 1, "").u8(1);
    op(crece, 7, "t").u8(TEXTO_RELLENO).u16(3000);
    op(crece, 5, "b").u8(NORMAL).u16(60000);
    siembra(fuzz, "crece", crece);

    salida multiplo;
    multiplo.u8(0);
    op(multiplo, 5, "b").u8(NORMAL).u16(2036); // 2048 bytes in all, which grows to 3072
    siembra(fuzz, "crece_a_un_multiplo", multiplo);

    salida nombres;
    nombres.u8(0);
    for (uint32_t largo : {254u, 255u, 256u, 600u})
        nombres.u8(0).u8(TEXTO_RELLENO).u16(largo).u8(1);
    siembra(fuzz, "nombres_largos", nombres.u8(0).u8(TEXTO_NULO).u8(1));

    salida enorme;
    enorme.u8(0);
    op(enorme, 5, "vuelta").u8(ENORME).u32(UINT32_MAX);
    op(enorme, 5, "cuatro gigas").u8(ENORME).u32(0xFFFFF000u);
    op(enorme, 9, "textos").u8(ENORME).u32(UINT32_MAX);
    op(enorme, 10, "textos").u8(ENORME).u32(0);
    op(enorme, 1, "despues").u8(1);
    siembra(fuzz, "enormes", enorme);

    salida sin_memoria;
    sin_memoria.u8(2);
    op(sin_memoria, 5, "cabe").u8(NORMAL).u16(900);
    op(sin_memoria, 5, "cabe").u8(NORMAL).u16(900);
    op(sin_memoria, 9, "no cabe").u8(NORMAL).u8(2).u8(TEXTO_RELLENO).u16(100).u8(TEXTO_RELLENO).u16(900);
    op(sin_memoria, 1, "cabe").u8(1);
    siembra(fuzz, "sin_memoria", sin_memoria);
}

// ---- Names

void siembra_nombres()
{
    const char fuzz[] = "nombres";
    siembra(fuzz, "nulo", salida().u32(17));
    siembra(fuzz, "vacio_y_cero", salida().u32(0).u8(1));
    siembra(fuzz, "corriente", salida().u32(17).u8(4).pon("Calc", 4));
    siembra(fuzz, "mayor_numero", salida().u32(UINT32_MAX).u8(64).pon(" a%s_\\\xF1\t", 8));
    siembra(fuzz, "largo", salida().u32(100).u8(255).pon(std::string(300, 'n').data(), 300));
}

// ---- Blocks: an operation, a name, its arguments

void siembra_bloques()
{
    const char fuzz[] = "bloques";
    siembra(fuzz, "crea_usa_destruye",
            salida().u8(2).u8(0).u32(300).u8(7).u8(0).u8(0).u32(300).u8(0).u32(0).u8(8).u8(0).u8(0).u8(4).u8(0));
    siembra(
        fuzz, "cabecera_miente",
        salida().u8(0).u8(1).u16(99).u32(UINT32_MAX).u8(4).u8(1).u8(7).u8(0).u8(0).u32(4092).u8(0).u32(0).u8(6).u8(1));
    siembra(fuzz, "cabecera_tardia",
            salida().u8(0).u8(1).u16(99).u32(0).u8(5).u8(1).u8(7).u8(0).u8(0).u32(50).u8(3).u32(96));
    siembra(
        fuzz, "mas_de_una_pagina",
        salida().u8(0).u8(2).u16(8999).u32(12289).u8(4).u8(2).u8(7).u8(0).u8(0).u32(12284).u8(0).u32(0).u8(1).u8(2).u32(
            8996));
    siembra(fuzz, "con_datos_sin_sitio",
            salida().u8(3).u8(3).u16(10).u8(3).u8(3).u16(11).u8(3).u8(3).u16(9).u8(3).u8(0).u16(0));
    siembra(fuzz, "no_existe", salida().u8(5).u8(0).u8(6).u8(0).u8(4).u8(0).u8(6).u8(0).u8(4).u8(0));
    siembra(fuzz, "falla_el_sistema",
            salida()
                .u8(9)
                .u8(0)
                .u8(2)
                .u8(0)
                .u32(8)
                .u8(9)
                .u8(0)
                .u8(10)
                .u8(1)
                .u8(2)
                .u8(1)
                .u32(8)
                .u8(2)
                .u8(2)
                .u32(UINT32_MAX)
                .u8(2)
                .u8(2)
                .u32(0xFF000000u));
}

// ---- Registry and channel: operations, as their fuzzers number them

salida &parche(salida &s, uint32_t operacion, size_t donde, const bytes &b)
{
    const uint32_t n = static_cast<uint32_t>(b.size());
    return s.u8(operacion).u16(static_cast<uint32_t>(donde)).u8(n).pon(b.data(), n);
}

void siembra_registro()
{
    const char fuzz[] = "registro";
    salida servicios;
    servicios.u8(4)
        .texto("Calc")
        .u8(0)
        .u8(3)
        .texto("Calc")
        .u8(6)
        .texto("Ca")
        .u8(6)
        .texto("")
        .u8(5)
        .texto("Calc")
        .u8(0)
        .u8(6)
        .texto("Ca")
        .u8(4)
        .texto(std::string(70, 'l'))
        .u8(0)
        .u8(3)
        .texto(std::string(70, 'l'));
    siembra(fuzz, "servicios", servicios);
    salida llena;
    llena.u8(2)
        .u8(0)
        .u8(4)
        .texto("Otro")
        .u8(0)
        .u8(3)
        .texto("S31")
        .u8(6)
        .texto("S3")
        .u8(9)
        .u8(1)
        .texto("C:\\p.exe")
        .u64(2)
        .u8(7)
        .u8(0)
        .u8(1)
        .u8(1)
        .u32(0)
        .u32(0)
        .texto("Otro");
    siembra(fuzz, "tabla_llena", llena);
    siembra(fuzz, "nombres_sin_fin",
            salida()
                .u8(2)
                .u8(1)
                .u8(3)
                .texto(std::string(63, 'a'))
                .u8(6)
                .texto(std::string(63, 'f'))
                .u8(6)
                .texto(std::string(64, 'f'))
                .u8(9)
                .u8(0)
                .texto(std::string(255, 'B'))
                .u64(4));

    salida programas;
    programas.u8(9)
        .u8(0)
        .texto("C:\\a.exe")
        .u64(1)
        .u8(9)
        .u8(1)
        .texto("C:\\a.exe")
        .u64(3)
        .u8(9)
        .u8(1)
        .texto("C:\\a.exe")
        .u64(1)
        .u8(11)
        .u8(0)
        .u16(0)
        .texto("Calc")
        .u8(11)
        .u8(1)
        .u16(1)
        .texto("Calc")
        .u8(12)
        .u8(0)
        .u32(100)
        .u8(0)
        .u8(13)
        .u8(0)
        .u8(0)
        .u8(30)
        .u8(13)
        .u8(5)
        .u8(0)
        .u8(30)
        .u8(10)
        .u16(0)
        .u8(10)
        .u16(1);
    siembra(fuzz, "programas_y_rondas", programas);

    salida monitor;
    monitor.u8(14)
        .u8(4)
        .texto("Calc")
        .u8(0)
        .u8(7)
        .u8(1)
        .u8(2)
        .u8(1)
        .u32(100)
        .u32(101)
        .texto("Calc")
        .u8(15)
        .u8(0)
        .u32(1)
        .u8(15)
        .u8(1)
        .u32(3u << 16)
        .u8(15)
        .u8(0)
        .u32(65)
        .u8(13)
        .u8(4)
        .u8(0)
        .u8(2)
        .u8(14);
    siembra(fuzz, "monitor", monitor);

    salida anillo;
    anillo.u8(14).u8(4).texto("Calc").u8(0);
    for (uint32_t n : {0u, 63u, 64u, 0xFFFFFFFFu}) {
        salida numero;
        parche(anillo, 0, offsetof(iv_mcbase_t, num_actividad_siguiente), numero.u32(n));
        anillo.u8(7).u8(1).u8(2).u8(1).u32(n).u32(0).texto("Calc");
    }
    siembra(fuzz, "anillo_danyado", anillo);
    salida nadie;
    nadie.u8(4).texto("C").u8(0);
    parche(nadie, 0, offsetof(iv_mcbase_t, servicios[0].id_programa_servidor), bytes(4, 0xFF));
    siembra(fuzz, "latido_de_nadie", nadie.u8(13).u8(0).u8(0).u8(60).u8(13).u8(4).u8(0).u8(60));
}

// A command under way: id 100, its block, texts without an end.
salida en_curso()
{
    salida s, ids;
    s.u8(3);
    parche(s, 0, offsetof(iv_mcserv_t, ocupacion), ids.u32(2).u32(100).u32(100));
    return parche(s, 0, offsetof(iv_mcserv_t, buffer_cliente_64), bytes(255, 0x41));
}

// A client's command: index of the service, window, command, block, options, three texts.
salida &manda(salida &s, uint32_t ind_datServ)
{
    return s.u8(7).u8(1).u8(ind_datServ).u64(0).u32(100).u32(101).u8(6).u16(70).u16(300).u16(0);
}

void siembra_canal()
{
    const char fuzz[] = "canal";
    siembra(fuzz, "dame_comando", salida(en_curso()).u8(3).u8(0).u8(0).u8(3).u8(1).u32(99).u8(0).u8(3).u8(0).u8(7));
    siembra(fuzz, "pon_resultado", salida(en_curso()).u8(4).u8(0).u32(7).u16(70).u16(300).u16(0));
    salida datos = en_curso();
    const bytes contenido = escrito(cada_tipo);
    const uint32_t tam = static_cast<uint32_t>(contenido.size());
    datos.u8(5).u8(0).u8(1).u16(tam).u16(tam).pon(contenido.data(), tam).u8(6).u8(0).u8(6).u8(0);
    siembra(fuzz, "lee_datos", datos);
    siembra(fuzz, "lee_datos_de_otro", salida(en_curso()).u8(6).u8(1));
    siembra(fuzz, "datos_con_cabecera_falsa",
            salida(en_curso()).u8(5).u8(0).u8(0).u16(8).pon("\1\0\0\0\5\0\xFF\xFF", 8).u8(6).u8(0));

    salida ventana, mensaje;
    ventana.u8(3);
    parche(ventana, 0, offsetof(iv_mcserv_t, hwnd_servidor), mensaje.u64(5).u32(0xC001).u16(0).u32(1));
    siembra(fuzz, "orden_por_mensaje", manda(ventana, 0).u8(3).u8(1));

    // The server's steps, one in each of the client's rounds: it executes, has finished with 1, has seen the
    // receipt.
    salida rondas, espera, termina, fin, visto;
    rondas.u8(3);
    parche(rondas, 0, offsetof(iv_mcserv_t, estado_servidor), espera.u32(1));
    manda(rondas, 0).u8(3).u8(1).u8(0);
    parche(rondas, 0, offsetof(iv_mcserv_t, estado_servidor), termina.u32(3));
    parche(rondas, 0, offsetof(iv_mcserv_t, info_estadoComando), fin.u32(3).u32(1));
    parche(rondas, 0, offsetof(iv_mcserv_t, info_estadoComando), visto.u32(5));
    siembra(fuzz, "orden_por_rondas", rondas);

    salida ocupado, ajena;
    ocupado.u8(3);
    parche(ocupado, 0, offsetof(iv_mcserv_t, ocupacion), ajena.u32(2));
    siembra(fuzz, "canal_ocupado", manda(ocupado, 33));

    salida buzon, recibo;
    buzon.u8(3).u8(9).u32(200).u32(1).u32(0).u8(3);
    siembra(fuzz, "notifica", parche(buzon, 0, offsetof(iv_mcserv_t, estado_notificacion), recibo.u32(3)));
    salida pequenyo, falso;
    siembra(fuzz, "canal_pequenyo", manda(pequenyo.u8(1), 0));
    siembra(fuzz, "canal_con_cabecera_falsa", manda(falso.u8(2), 0));
    siembra(fuzz, "guarda_datos",
            salida().u8(3).u8(11).u8(0).u16(1).u64(0).u32(0).u8(1).u8(10).u16(40).u32(7).u8(10).u16(0).u32(7));
}

// ---- The files

bytes lee_fichero(const std::filesystem::path &ruta)
{
    std::ifstream f(ruta, std::ios::binary);
    return bytes(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

void escribe_fichero(const std::filesystem::path &ruta, const bytes &b)
{
    std::filesystem::create_directories(ruta.parent_path());
    std::ofstream(ruta, std::ios::binary)
        .write(reinterpret_cast<const char *>(b.data()), static_cast<std::streamsize>(b.size()));
}

int comprueba(const std::filesystem::path &carpeta)
{
    int malas = 0;
    for (const semilla &s : s_semillas) {
        const std::filesystem::path ruta = carpeta / s.fuzz / s.nombre;
        if (std::filesystem::exists(ruta) && lee_fichero(ruta) == s.contenido)
            continue;
        fprintf(stderr, "not what it should be: %s\n", ruta.c_str());
        malas++;
    }
    if (malas != 0)
        fprintf(stderr, "If what writes them was meant to change: siembra %s\n", carpeta.c_str());
    return malas != 0 ? 1 : 0;
}

} // namespace

int main(int argc, char **argv)
{
    const bool compara = argc == 3 && strcmp(argv[1], "--comprueba") == 0;
    if (!compara && argc != 2) {
        fprintf(stderr, "usage: siembra [--comprueba] FOLDER\n");
        return 2;
    }
    siembra_lo_escrito();
    siembra_lo_que_miente();
    siembra_escritura();
    siembra_nombres();
    siembra_bloques();
    siembra_registro();
    siembra_canal();
    sustituto::olvida_informes();
    apoyo::termina();
    if (compara)
        return comprueba(argv[2]);
    for (const semilla &s : s_semillas)
        escribe_fichero(std::filesystem::path(argv[1]) / s.fuzz / s.nombre, s.contenido);
    printf("%zu seeds\n", s_semillas.size());
    return 0;
}
