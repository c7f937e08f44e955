// servidor_sin_ventana.cpp - a server without a window: a thread of the library looks for commands.
//
//     servidor_sin_ventana [SERVICE]      in one console; the service is "Ejemplo" if you name none
//     cliente [SERVICE]                   in another; it ends the server, too. cliente_c does not
//
// For a program that cannot have a message loop. A command takes some half a second here, in rounds of 100
// ms. Ctrl-C just kills it: nothing breaks, and the next start takes its place in the tables.
#include <atomic>
#include <cstdio>
#include <string>

#include <windows.h>
#include "ivrexa.h"

constexpr uint32_t COMANDO_ECO = 100; // ids below 100 are the library's
constexpr uint16_t VERSION = 3;       // ours: clients ask for it

static std::string en_utf8(const wchar_t *texto)
{
    char utf8[1024];
    int tam = WideCharToMultiByte(CP_UTF8, 0, texto, -1, utf8, sizeof utf8, nullptr, nullptr);
    return tam != 0 ? utf8 : "?";
}

static std::wstring en_ancho(const char *ansi)
{
    std::string texto = ansi != nullptr ? ansi : "";
    std::wstring ancho(texto.size(), L'\0'); // never more characters than bytes
    int tam = static_cast<int>(texto.size());
    ancho.resize(MultiByteToWideChar(CP_ACP, 0, texto.c_str(), tam, &ancho[0], tam));
    return ancho;
}

// Makes the output from the input. Another program wrote it, so expect anything: a value of another type
// reads as 0 or NULL. Numbers first: they are checked against where the last text or buffer was read.
static comdat *calcula(const char *servicio, comdat *entrada)
{
    uint32_t num_palabras = 0, tam = 0;
    uint32_t a = ivrexa_dame_ulong(entrada, 0); // values are found by position
    double b = ivrexa_dame_double(entrada, 1);
    ivrexa_dame_arr_cadenas_ansi(entrada, 2, &num_palabras);
    std::wstring saludo = L"Hola, " + en_ancho(ivrexa_dame_cadena_ansi(entrada, 3));
    const void *bytes = ivrexa_dame_buffer(entrada, 4, &tam);
    printf("got  a=%u b=%g bytes=%u palabras=%u \"%s\"\n", a, b, tam, num_palabras, en_utf8(saludo.c_str()).c_str());
    comdat *salida = ivrexa_crea_datos_comando_salida(servicio);
    ivrexa_graba_double(salida, "suma", a + b);
    ivrexa_graba_cadena_unicode(salida, "saludo", saludo.c_str());
    ivrexa_graba_buffer(salida, "bytes", bytes, tam);
    printf("sent suma=%g bytes=%u", a + b, tam);
    return salida;
}

// The command function. It runs on a thread of the service's own, so what main shares with it is atomic. An
// exception that escapes is an ivrexa_resultado_ERROR for the client.
static int32_t procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *datos_externos)
{
    auto *num_comandos = static_cast<std::atomic<int> *>(datos_externos);
    wchar_t texto1[64], texto2[256], texto3[256];
    if (id_comando != COMANDO_ECO || contexto->datos_entrada == nullptr ||
        ivrexa_numero_valores(contexto->datos_entrada) != 5 ||
        ivrexa_get_datos_entrada_comando(servicio, id_comando, nullptr, texto1, texto2, texto3) != CIERTO)
        return ivrexa_resultado_ERROR; // so the client sees that we refuse it
    for (const wchar_t *texto : {texto1, texto2, texto3})
        printf("got  text \"%s\"\n", en_utf8(texto).c_str());

    contexto->datos_salida = calcula(servicio, contexto->datos_entrada); // the library's from here on
    uint32_t id_salida = ivrexa_guarda_datos(contexto->datos_salida);    // 0: there was no room for it
    if (id_salida == 0 ||
        ivrexa_set_datos_salida_comando(servicio, id_comando, id_salida, texto1, texto2, texto3) != CIERTO)
        return ivrexa_resultado_ERROR;
    printf(" and the three texts, output block %u\n", id_salida);
    ++*num_comandos;
    return ivrexa_resultado_OK;
}

int main(int argc, char **argv)
{
    if (argc > 2) {
        fprintf(stderr, "usage: servidor_sin_ventana [SERVICE]\n");
        return 2;
    }
    const char *servicio = argc == 2 ? argv[1] : "Ejemplo";
    CreateMutexA(nullptr, FALSE, servicio); // ours while we live: two servers would disturb each other
    if (GetLastError() == ERROR_ALREADY_EXISTS) {
        fprintf(stderr, "%s has a server already\n", servicio);
        return 1;
    }
    setvbuf(stdout, nullptr, _IONBF, 0);
    SetConsoleOutputCP(CP_UTF8);
    std::atomic<int> num_comandos{0};
    ivrexa_registra_servidor(argv[0], nullptr, servicio, VERSION, &num_comandos, procesa);
    ivrexa_terminado_registro(); // from here on clients find the service
    printf("ready: %s\n", servicio);
    ivrexa_espera_comando_terminar_servidor(); // until a client calls ivrexa_terminar_servidor
    ivrexa_cierra_sesion();
    printf("ended after %d commands\n", num_comandos.load());
    return 0;
}
