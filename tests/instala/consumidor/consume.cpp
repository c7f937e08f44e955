// A user's program in C++, by ivrexa.hpp: a service and its client in one, with a command that is waited for and one
// whose answer comes by a future. It ends with 0 if both were answered.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include <ivrexa.hpp>

namespace {

ivrexa::result suma(ivrexa::command &c)
{
    c.output().add("suma", c.input().get<std::uint32_t>("a") + c.input().get<std::uint32_t>("b"));
    c.output().add("saludo", "Hola, " + c.input().get<std::string>("nombre"));
    return ivrexa::result::ok;
}

ivrexa::request pregunta(const ivrexa::client &cliente)
{
    ivrexa::request r = cliente.request(100);
    r.add("a", 40u).add("b", 2u).add("nombre", "mundo");
    return r;
}

bool es_la_respuesta(const ivrexa::answer &a)
{
    std::printf("%s\n", ivrexa::to_string(a.what));
    return a && a.data.get<std::uint32_t>("suma") == 42 && a.data.get<std::string>("saludo") == "Hola, mundo";
}

bool ida_y_vuelta()
{
    ivrexa::session sesion("consume.exe");
    sesion.offer("Consumidor", suma);
    sesion.publish();
    ivrexa::client cliente(sesion, "Consumidor");
    const bool la_una = es_la_respuesta(cliente.execute(pregunta(cliente)));
    const bool la_otra = es_la_respuesta(cliente.execute_async(pregunta(cliente), std::chrono::seconds(30)).get());
    return la_una && la_otra;
}

} // namespace

int main()
{
    try {
        return ida_y_vuelta() ? 0 : 1;
    } catch (const std::exception &mal) {
        std::printf("%s\n", mal.what());
        return 1;
    }
}
