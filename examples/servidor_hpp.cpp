// servidor_hpp.cpp - a server by ivrexa.hpp: a command function that is a callable, and data that owns itself.
//
//     servidor_hpp [SERVICE]      in one console; the service is "Ejemplo" if you name none
//     cliente_hpp [SERVICE]       in another, as often as you like; or cliente_c, or cliente, which ends the server too
//
// It has a window that is never shown, for the quick road: all runs on main's thread. Ctrl-C just kills it.
#include <cstdio>
#include <string>
#include <vector>
#include <windows.h>
#include "ivrexa.hpp"

constexpr uint32_t COMANDO_ECO = 100; // ids below 100 are the library's
constexpr uint16_t VERSION = 3;       // ours: clients ask for it

static std::string en_utf8(const std::wstring &texto)
{
    std::string utf8(texto.size() * 3, '\0'); // never more bytes for a character
    int tam = WideCharToMultiByte(CP_UTF8, 0, texto.c_str(), static_cast<int>(texto.size()), &utf8[0],
                                  static_cast<int>(utf8.size()), nullptr, nullptr);
    utf8.resize(static_cast<size_t>(tam));
    return utf8;
}

static std::wstring en_ancho(const std::string &ansi)
{
    std::wstring ancho(ansi.size(), L'\0'); // never more characters than bytes
    int tam = MultiByteToWideChar(CP_ACP, 0, ansi.c_str(), static_cast<int>(ansi.size()), &ancho[0],
                                  static_cast<int>(ansi.size()));
    ancho.resize(static_cast<size_t>(tam));
    return ancho;
}

// The command function. A value that is missing or of another type throws, and what escapes is an ERROR for the client.
static ivrexa::result procesa(ivrexa::command &c)
{
    const ivrexa::reader &entrada = c.input();
    if (c.id() != COMANDO_ECO || entrada.size() != 5)
        return ivrexa::result::error; // so the client sees that we refuse it
    double suma = entrada.get<uint32_t>("a") + entrada.get<double>("b");
    auto palabras = entrada.get<std::vector<std::string>>("palabras");
    std::wstring saludo = L"Hola, " + en_ancho(entrada.get<std::string>("nombre"));
    auto bytes = entrada.get<ivrexa::bytes_view>("bytes"); // no copy: it lives as long as the command
    for (const std::wstring &texto : {c.texts().first, c.texts().second, c.texts().third})
        printf("got  text \"%s\"\n", en_utf8(texto).c_str());
    printf("got  a=%u b=%g bytes=%zu palabras=%zu \"%s\"\n", entrada.get<uint32_t>("a"), entrada.get<double>("b"),
           bytes.size(), palabras.size(), en_utf8(saludo).c_str());

    c.output().add("suma", suma).add("saludo", saludo).add("bytes", bytes);
    c.answer_texts(c.texts());
    printf("sent suma=%g bytes=%zu and the three texts\n", suma, bytes.size());
    return ivrexa::result::ok;
}

static void cuenta_fallo(const std::string &servicio, const std::exception_ptr &fallo)
{
    try {
        std::rethrow_exception(fallo);
    } catch (const std::exception &mal) {
        printf("refused a command of %s: %s\n", servicio.c_str(), mal.what());
    }
}

static void sirve(const char *programa, HWND hwnd, const std::string &servicio)
{
    try {
        ivrexa::session sesion(programa, hwnd);
        sesion.on_failure(cuenta_fallo);
        sesion.offer(servicio, procesa, VERSION);
        sesion.publish(); // from here on clients find the service
        printf("ready: %s\n", servicio.c_str());
        MSG msg;
        while (GetMessageW(&msg, nullptr, 0, 0) > 0) // until ivrexa::end_server
            DispatchMessageW(&msg);
    } catch (const std::exception &mal) { // a name of 64 characters, for one
        printf("%s\n", mal.what());
    }
} // the session has ended before the window goes

int main(int argc, char **argv)
{
    const char *servicio = argc > 1 ? argv[1] : "Ejemplo";
    if (argc > 2) {
        fprintf(stderr, "usage: servidor_hpp [SERVICE]\n");
        return 2;
    }
    HWND hwnd = CreateWindowExA(0, "STATIC", servicio, WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
    CreateMutexA(nullptr, FALSE, servicio); // ours while we live: two servers would disturb each other
    if (GetLastError() == ERROR_ALREADY_EXISTS || hwnd == nullptr) {
        fprintf(stderr, "%s %s\n", servicio, hwnd == nullptr ? "has no window" : "has a server already");
        return 1;
    }
    setvbuf(stdout, nullptr, _IONBF, 0);
    SetConsoleOutputCP(CP_UTF8);
    sirve(argv[0], hwnd, servicio);
    DestroyWindow(hwnd);
    printf("ended\n");
    return 0;
}
