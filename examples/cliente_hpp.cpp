// cliente_hpp.cpp - a client by ivrexa.hpp: runs one command with a deadline, and says what became of it.
//
//     servidor_hpp [SERVICE]      or any other server of command 100, in one console
//     cliente_hpp [SERVICE]       in another; the service is "Ejemplo" if you name none
//
// Ends with 0 if all came back as it was sent, with 1 if not. It leaves the server alone. What goes wrong is said at
// once; but where the server is late, the end of the session waits for it, as long as it takes.
#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <string>
#include <vector>
#include <windows.h>
#include "ivrexa.hpp"

constexpr uint32_t COMANDO_ECO = 100;
constexpr uint16_t VERSION = 3; // what the server of the service understands
constexpr std::chrono::seconds PLAZO(20);

struct dicho { // thrown once it has been said what went wrong
};

static void exige(bool bien, const std::string &mal)
{
    if (bien)
        return;
    printf("%s\n", mal.c_str());
    throw dicho();
}

// The server of examples/ that is written in C finds the values by their order, the one in C++ by their names.
static ivrexa::request peticion(const ivrexa::client &cliente, const ivrexa::texts &textos, const ivrexa::bytes &bytes)
{
    ivrexa::request r = cliente.request(COMANDO_ECO);
    r.add("a", 40u).add("b", 2.5).add("palabras", std::vector<std::string>{"uno", "dos", "tres"});
    r.add("nombre", "mundo").add("bytes", bytes).text(textos);
    return r;
}

// Another program wrote the answer: a value that is missing or of another type throws.
static void comprueba(const ivrexa::answer &a, const ivrexa::texts &textos, const ivrexa::bytes &bytes)
{
    exige(a.texts.first == textos.first && a.texts.second == textos.second && a.texts.third == textos.third,
          "another text came back");
    printf("got  the three texts\n");
    double suma = a.data.get<double>("suma");
    auto saludo = a.data.get<std::wstring>("saludo");
    exige(suma == 42.5 && saludo == L"Hola, mundo", "other values came");
    exige(a.data.get<ivrexa::bytes>("bytes") == bytes, "other bytes came back");
    printf("got  suma=%g bytes=%zu saludo=\"%ls\"\n", suma, bytes.size(), saludo.c_str());
}

static void ejecuta(ivrexa::client &cliente)
{
    const ivrexa::texts textos = {L"corto", L"a\u00f1o nuevo", L"tercer texto"};
    ivrexa::bytes bytes;
    for (int i = 0; i < 1000; i++)
        bytes.push_back(static_cast<uint8_t>(i * 7));
    std::future<ivrexa::answer> respuesta = cliente.execute_async(peticion(cliente, textos, bytes), PLAZO);
    printf("sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000\n");

    ivrexa::answer a = respuesta.get(); // here a program with a window would go on instead
    printf("got  %s, code %u\n", ivrexa::to_string(a.what), a.code);
    exige(a.what != ivrexa::outcome::not_sent, "nothing was done: the server came to no command of ours");
    exige(a.what != ivrexa::outcome::late, "the server is still at it, and may do all that it was asked for");
    exige(a.what == ivrexa::outcome::ok, "it was not carried out");
    comprueba(a, textos, bytes);
}

int main(int argc, char **argv)
{
    const char *servicio = argc > 1 ? argv[1] : "Ejemplo";
    if (argc > 2) {
        fprintf(stderr, "usage: cliente_hpp [SERVICE]\n");
        return 2;
    }
    setvbuf(stdout, nullptr, _IONBF, 0);
    try {
        exige(ivrexa::offered(servicio) == VERSION,
              "nobody offers " + std::string(servicio) + " in version 3: start a server first");
        HANDLE turno = CreateMutexA(nullptr, FALSE, ("turn of " + std::string(servicio)).c_str());
        exige(WaitForSingleObject(turno, 60000) <= WAIT_ABANDONED, "another client has not ended");
        ivrexa::session sesion(argv[0]);
        ivrexa::client cliente(sesion, servicio);
        ejecuta(cliente);
        printf("all came back as it was sent\n");
        return 0;
    } catch (const dicho &) {
        return 1;
    } catch (const std::exception &mal) { // what the layer refused
        printf("%s\n", mal.what());
        return 1;
    }
} // the end of the process gives the next client its turn
