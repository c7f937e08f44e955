// cliente.cpp - a client: runs one command on a service, checks all that comes back, and ends the server.
//
//     cliente SERVICE
#include <string>
#include <vector>

#include "eco.h"

static int s_num_errores = 0;

static void comprueba(bool bien, const char *que)
{
    if (bien)
        return;
    printf("WRONG: %s\n", que);
    s_num_errores++;
}

static comdat *crea_entrada(const char *servicio, const std::vector<unsigned char> &bytes)
{
    const char *const palabras[] = {"uno", "dos", "tres"};
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    ivrexa_graba_ulong(entrada, "a", 40);
    ivrexa_graba_double(entrada, "b", 2.5);
    ivrexa_graba_arr_cadenas_ansi(entrada, "palabras", palabras, 3);
    ivrexa_graba_cadena_ansi(entrada, "nombre", "mundo");
    ivrexa_graba_buffer(entrada, "bytes", bytes.data(), static_cast<uint32_t>(bytes.size()));
    return entrada;
}

static void comprueba_salida(const char *servicio, uint32_t id_salida, const std::vector<unsigned char> &bytes)
{
    comdat *salida = ivrexa_lee_datos(servicio, id_salida, FALSO);
    comprueba(salida != nullptr, "no output data");
    if (salida == nullptr)
        return;
    double suma = ivrexa_dame_double(salida, 0);
    const wchar_t *saludo = ivrexa_dame_cadena_unicode(salida, 1);
    uint32_t tam = 0;
    const auto *al_reves = static_cast<const unsigned char *>(ivrexa_dame_buffer(salida, 2, &tam));
    printf("got  suma=%g bytes=%u ", suma, static_cast<unsigned>(tam));
    imprime_texto("saludo=", saludo);
    comprueba(suma == 42.5, "suma");
    comprueba(saludo != nullptr && std::wstring(saludo) == L"Hola, mundo", "saludo");
    comprueba(tam == bytes.size() && std::vector<unsigned char>(bytes.rbegin(), bytes.rend())
                  == std::vector<unsigned char>(al_reves, al_reves + tam), "bytes");
    ivrexa_destruye_datos_comando(salida);
}

static void ejecuta(const char *servicio)
{
    std::vector<unsigned char> bytes(1000);
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = static_cast<unsigned char>(i * 7);
    const wchar_t *textos[] = {L"corto", L"a\u00f1o nuevo", L"tercer texto"};
    comdat *entrada = crea_entrada(servicio, bytes);
    uint32_t id_entrada = ivrexa_guarda_datos(entrada);
    printf("sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000, input block %u\n",
           static_cast<unsigned>(id_entrada));
    for (int i = 0; i < 3; i++)
        imprime_texto("sent text ", textos[i]);

    wchar_t texto1[64], texto2[256], texto3[256];
    uint32_t id_salida = 0;
    uint32_t resultado = ivrexa_ejecuta_comando(servicio, ECO_COMANDO, 0, id_entrada, textos[0], textos[1],
                                                textos[2], &id_salida, texto1, texto2, texto3);
    printf("got  result %u, output block %u\n", static_cast<unsigned>(resultado), static_cast<unsigned>(id_salida));
    imprime_texto("got  text 1 ", texto1);
    imprime_texto("got  text 2 ", texto2);
    imprime_texto("got  text 3 ", texto3);
    comprueba(resultado == ivrexa_resultado_OK, "result");
    comprueba(wcscmp(texto1, textos[0]) == 0 && wcscmp(texto2, textos[1]) == 0 && wcscmp(texto3, textos[2]) == 0,
              "texts");
    if (resultado == ivrexa_resultado_OK)
        comprueba_salida(servicio, id_salida, bytes);
    ivrexa_destruye_datos_comando(entrada);
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: cliente SERVICE\n");
        return 2;
    }
    const char *servicio = argv[1];
    uint16_t version = 0;
    if (ivrexa_hay_servicio_registrado(servicio, &version) != CIERTO || version != ECO_VERSION) {
        printf("nobody offers %s in version %d\n", servicio, ECO_VERSION);
        return 1;
    }
    ivrexa_registra_cliente_de_servicio(argv[0], nullptr, servicio);
    Sleep(2500);        // a server without a window may take a client whose heartbeat has not begun for a dead one
    ejecuta(servicio);
    ivrexa_terminar_servidor(servicio);
    ivrexa_cierra_sesion();
    printf(s_num_errores == 0 ? "all came back as it was sent\n" : "%d errors\n", s_num_errores);
    return s_num_errores == 0 ? 0 : 1;
}
