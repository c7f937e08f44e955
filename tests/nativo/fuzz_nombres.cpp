// Any service name and number: every name is what an independent composition makes of them; and the text
// helpers that names are built and compared with, on buffers of exactly the size that is stated.
#include "apoyo.h"
#include "iv_nombre.h"
#include "iv_traza.h"

namespace {

using apoyo::entrada;
using apoyo::exacto;

bool es(char *nombre, const std::string &esperado)
{
    const bool igual = nombre == esperado;
    iv_mem_libera_cadena(&nombre);
    return igual;
}

std::string cifras(uint32_t n)
{
    return n != 0 ? std::to_string(n) : "";
}

void comprueba_nombres(const char *servicio, const std::string &s, uint32_t n)
{
    const std::string canal = "Ivrexa_MCB_Serv_" + s;
    const std::string instancia = n != 0 ? "_Inst" + cifras(n) : "";
    COMPRUEBA(es(iv_nombre_mutex_servicio(servicio, n), "Mutex_Ivrexa_" + s + instancia));
    COMPRUEBA(es(iv_nombre_mutex_servicio(servicio, 0), "Mutex_Ivrexa_" + s));
    COMPRUEBA(es(iv_nombre_mutex_servicio_interno(servicio), "Mutex_Ivrexa_" + s + "Interno"));
    COMPRUEBA(es(iv_nombre_MCServ(servicio), canal));
    COMPRUEBA(es(iv_nombre_MCCom(servicio, n), canal + "_Com__comdat" + cifras(n)));
    COMPRUEBA(es(iv_nombre_MSG_servicio(servicio), "Ivrexa_MSG_Serv_" + s));
    COMPRUEBA(es(iv_mem_numero_a_cadena(n), cifras(n)));
    COMPRUEBA(iv_traza_numero_a_texto(n) == std::to_string(n));
}

void comprueba_anyadidos(const char *servicio, const std::string &s, uint32_t n)
{
    char *nombre = NULL;
    iv_mem_concatena(&nombre, servicio);
    iv_nombre_anyade_instancia(&nombre, n);
    iv_nombre_anyade_comdat(&nombre, n);
    COMPRUEBA(es(nombre, s + "_Inst" + cifras(n) + "_comdat" + cifras(n)));
    COMPRUEBA(es(iv_mem_duplica_cadena(servicio), s));
    COMPRUEBA(iv_mem_longitud(servicio) == s.size());
}

void comprueba_copia(const char *origen, const std::string &s, uint32_t tam)
{
    if (tam == 0)
        return;
    const std::string lleno(tam, '#');
    exacto<char> destino(lleno.data(), tam);
    iv_mem_copia_cadena(origen, destino.get(), tam);
    COMPRUEBA(destino.get() == s.substr(0, tam - 1));
}

void comprueba_copia_ancha(const bytes &b, uint32_t tam)
{
    std::vector<wchar_t> letras(b.size() / 2);
    if (!letras.empty())
        memcpy(letras.data(), b.data(), letras.size() * 2);
    letras.push_back(0);
    exacto<wchar_t> origen(letras.data(), letras.size());
    const uint32_t longitud = iv_mem_longitud_u(origen.get());
    COMPRUEBA(longitud < letras.size() && letras[longitud] == 0);

    wchar_t *copia = iv_mem_duplica_cadena_u(origen.get());
    COMPRUEBA(iv_mem_cadenas_iguales_u(copia, origen.get()) == CIERTO);
    if (tam != 0) {
        exacto<wchar_t> destino(std::vector<wchar_t>(tam, L'#').data(), tam);
        iv_mem_copia_cadena_u(copia, destino.get(), tam);
        const uint32_t cortado = longitud < tam - 1 ? longitud : tam - 1;
        COMPRUEBA(iv_mem_longitud_u(destino.get()) == cortado);
        COMPRUEBA(memcmp(destino.get(), letras.data(), cortado * sizeof(wchar_t)) == 0);
    }
    iv_mem_libera_cadena_u(&copia);
}

} // namespace

// u32 the number, u8 a buffer's size, then the name's bytes. Of an input of four bytes the name is null.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *datos, size_t tam)
{
    entrada e(datos, tam);
    const uint32_t n = e.u32();
    const bool nulo = e.vacia();
    const uint32_t tam_destino = e.u8();
    const bytes b = e.resto();
    const std::string s = std::string(b.begin(), b.end()).c_str();
    exacto<char> texto(s.c_str(), s.size() + 1);
    const char *servicio = nulo ? NULL : texto.get();

    comprueba_nombres(servicio, s, n);
    comprueba_anyadidos(servicio, s, n);
    comprueba_copia(servicio, s, tam_destino);
    comprueba_copia_ancha(b, tam_destino);
    COMPRUEBA(iv_mem_cadenas_iguales(servicio, servicio) == CIERTO);
    COMPRUEBA(iv_mem_cadenas_iguales(texto.get(), (s + "x").c_str()) == FALSO);
    COMPRUEBA(sustituto::num_informes() == 0);
    apoyo::termina();
    return 0;
}
