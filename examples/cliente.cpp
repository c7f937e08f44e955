// cliente.cpp - a client in C++: runs one command, checks all that comes back, and ends the server.
//
//     servidor_consola [SERVICE]      or any other server of command 100, in one console
//     cliente [SERVICE]               in another; the service is "Ejemplo" if you name none
//
// Ends with 0 if all came back as it was sent. If not, it says why, ends with 1, and leaves the server alone.
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <windows.h>
#include "ivrexa.h"

constexpr uint32_t COMANDO_ECO = 100, VERSION = 3;

// Command data is ours until we destroy it: datos_comando x(..., ivrexa_destruye_datos_comando).
using datos_comando = std::unique_ptr<comdat, void (*)(comdat *)>;

static void exige(bool bien, const std::string &mal)
{
    if (!bien)
        throw std::runtime_error(mal);
}

// The server finds the values by their order; their names are for people.
static void escribe(comdat *entrada, const std::string &bytes)
{
    const char *const palabras[] = {"uno", "dos", "tres"};
    ivrexa_graba_ulong(entrada, "a", 40);
    ivrexa_graba_double(entrada, "b", 2.5);
    ivrexa_graba_arr_cadenas_ansi(entrada, "palabras", palabras, 3);
    ivrexa_graba_cadena_ansi(entrada, "nombre", "mundo");
    ivrexa_graba_buffer(entrada, "bytes", bytes.data(), static_cast<uint32_t>(bytes.size()));
}

// Another program wrote the output: a value that is missing or of another type reads as 0 or NULL.
static void comprueba(comdat *salida, const std::string &bytes)
{
    exige(salida != nullptr, "no output data");
    double suma = ivrexa_dame_double(salida, 0); // numbers first, then texts and buffers
    const wchar_t *saludo = ivrexa_dame_cadena_unicode(salida, 1);
    uint32_t tam = 0;
    const char *vuelta = static_cast<const char *>(ivrexa_dame_buffer(salida, 2, &tam));
    exige(suma == 42.5 && saludo != nullptr && std::wstring(saludo) == L"Hola, mundo", "other values came");
    exige(vuelta != nullptr && std::string(vuelta, tam) == bytes, "other bytes came back");
    printf("got  suma=%g bytes=%u saludo=\"%ls\"\n", suma, tam, saludo);
}

static void ejecuta(const char *servicio)
{
    const wchar_t *textos[] = {L"corto", L"a\u00f1o nuevo", L"tercer texto"};
    wchar_t vuelta[3][256]; // the library fills up to 64, 256 and 256 characters
    uint32_t id_salida = 0;
    std::string bytes;
    for (int i = 0; i < 1000; i++)
        bytes += static_cast<char>(i * 7);
    datos_comando entrada(ivrexa_crea_datos_comando_entrada(servicio), ivrexa_destruye_datos_comando);
    escribe(entrada.get(), bytes);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada.get()); // by this id the server will open it
    printf("sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000, input block %u\n", id_entrada);
    uint32_t resultado = ivrexa_ejecuta_comando(servicio, COMANDO_ECO, 0, id_entrada, textos[0], textos[1], textos[2],
                                                &id_salida, vuelta[0], vuelta[1], vuelta[2]);
    printf("got  result %u, output block %u\n", resultado, id_salida);
    exige(resultado != ivrexa_resultado_NINGUNO, "no answer: the server is gone");
    exige(resultado == ivrexa_resultado_OK, "the server refused the command, or it has died");
    for (int i = 0; i < 3; i++)
        exige(std::wstring(vuelta[i]) == textos[i], "another text came back");
    printf("got  the three texts\n");
    datos_comando salida(id_salida != 0 ? ivrexa_lee_datos(servicio, id_salida, FALSO) : nullptr,
                         ivrexa_destruye_datos_comando);
    comprueba(salida.get(), bytes);
}

int main(int argc, char **argv)
{
    const char *servicio = argc > 1 ? argv[1] : "Ejemplo";
    int codigo = 1;
    if (argc > 2) {
        fprintf(stderr, "usage: cliente [SERVICE]\n");
        return 2;
    }
    try {
        uint16_t version = 0;
        exige(ivrexa_hay_servicio_registrado(servicio, &version) == CIERTO && version == VERSION,
              "nobody offers " + std::string(servicio) + " in version 3: start a server first");
        HANDLE turno = CreateMutexA(nullptr, FALSE, ("turn of " + std::string(servicio)).c_str());
        exige(WaitForSingleObject(turno, 60000) <= WAIT_ABANDONED, "another client has not ended");
        ivrexa_registra_cliente_de_servicio(argv[0], nullptr, servicio);
        Sleep(2500); // our heartbeat has to begin: at 0 a server without a window may take us for dead
        ejecuta(servicio);
        ivrexa_terminar_servidor(servicio);
        printf("all came back as it was sent\n");
        codigo = 0;
    } catch (const std::exception &mal) {
        printf("%s\n", mal.what());
    }
    ivrexa_cierra_sesion();
    return codigo; // the end of the process gives the next client its turn
}
