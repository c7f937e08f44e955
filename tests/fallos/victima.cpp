// victima.cpp - the program that dies, or stands still, where a test says: the library with the places of iv_fallo.h,
// and a host that takes each step of any part when a line tells it to.
//
//     arranca_papel("victima", {"ventana" | "sin_ventana"})      says "HWND n" and "LISTO"; nothing is registered yet
//
// Places (iv_fallo.h), counted from the line on, in every thread of the process:
//     MUERE k PLACE                die there the k-th time: "ARMADO"
//     PARA k PLACE                 stand still there the k-th time, see `parada` in muertes.h: "ARMADO"
//     MUERE_DENTRO k PLACE         the same as MUERE, counted from command 110 on, which then answers as 101 does
//     DESARMA                      "DESARMADO"
// Server:
//     REGISTRA_SERVIDOR kind S,S   registers the services; kind "con_funcion" or "net": "PREPARADO"
//     TERMINADO_REGISTRO           "PUBLICADO"
//     NOTIFICA S client datum id   ivrexa_notifica_a_cliente: "NOTIFICADO"
//     ESPERA                       ivrexa_espera_comando_terminar_servidor: "ESPERADO"
//   Its commands are those of dll_anfitrion.h.
// Client:
//     REGISTRA_CLIENTE S           "SOLICITADO"
//     REGISTRA_NOTIFICACIONES S    "SOLICITADO"; a notification is said as "NOTIFICACION datum|block" and receipted
//     DOCUMENTO S id               "CLIENTE id of the client"
//     GUARDA S n                   stores sample n as input and keeps it: "GUARDADO id"
//     EJECUTA S command            with the input stored last, or none: "RESULTADO r|id of the output"
//     ECO n                        as in dll_anfitrion.h, on the service registered first
// Anybody:
//     EMPIEZA_POR prefix           "EMPIEZA 0|1 name"
//     MONITOR, QUITA_MONITOR       registers the window as the monitor's, or ends that: "MONITOR", "QUITADO"
//     HILO line                    obeys the line on a thread of its own
//     CIERRA                       closes the session: "CERRADO"
//     ACABA                        ends with 0, without closing
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "dll_anfitrion.h"

extern "C" __declspec(dllimport) void iv_fallo_arma(const char *punto, uint32_t vez, uint32_t modo);

enum : uint32_t { MODO_MUERE = 0, MODO_PARA = 1, COMANDO_ARMA = 110 };

namespace {

using palabras = std::vector<std::string>;

DWORD s_hilo_principal;
uint32_t s_id_entrada;
std::string s_punto_dentro;
uint32_t s_vez_dentro;

uint32_t numero(const std::string &palabra)
{
    return static_cast<uint32_t>(std::stoul(palabra));
}

palabras parte(const std::string &linea)
{
    palabras lista;
    size_t desde = 0;
    for (size_t hasta; desde < linea.size(); desde = hasta + 1) {
        hasta = linea.find(' ', desde);
        if (hasta == std::string::npos)
            hasta = linea.size();
        lista.push_back(linea.substr(desde, hasta - desde));
    }
    lista.resize(lista.size() + 5); // missing words are empty
    return lista;
}

// All behind the first `num` words.
std::string resto(const std::string &linea, int num)
{
    size_t desde = 0;
    for (; num > 0; num--)
        desde = linea.find(' ', desde) + 1;
    return linea.substr(desde);
}

// ---- Callbacks

int32_t arma_y_responde(anfitrion_peticion *p)
{
    if (p->id_comando != COMANDO_ARMA)
        return 99;
    iv_fallo_arma(s_punto_dentro.c_str(), s_vez_dentro, MODO_MUERE);
    return anfitrion_hace_resultado(p);
}

// Called on the notification thread with the datum, then on the window's thread with the client's id.
void al_notificar(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato)
{
    if (GetCurrentThreadId() == s_hilo_principal)
        return;
    uint32_t id_datos = ivrexa_obtener_id_datos_notificacion(nombre_servicio, id_cliente, dato);
    papel_c_di("NOTIFICACION %u|%u", static_cast<unsigned>(dato), static_cast<unsigned>(id_datos));
    ivrexa_procesada_notificacion(nombre_servicio);
}

void al_actuar(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {}

void al_rondar(const iv_mcbase_t *, const datServ *, uint32_t, void *) {}

// ---- Parts

void pon_servicio_de_cliente(const std::string &servicio)
{
    if (anfitrion_yo.num_servicios == 0)
        anfitrion_lee_servicios(servicio.c_str());
}

void registra_cliente(const std::string &servicio, bool notificaciones)
{
    pon_servicio_de_cliente(servicio);
    if (notificaciones)
        ivrexa_registra_cliente_notificaciones_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, servicio.c_str(),
                                                        al_notificar);
    else
        ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, servicio.c_str());
    papel_c_di("SOLICITADO");
}

void guarda(const std::string &servicio, uint32_t n)
{
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    anfitrion_graba_muestra(entrada, n);
    s_id_entrada = ivrexa_guarda_datos(entrada);
    papel_c_di("GUARDADO %u", static_cast<unsigned>(s_id_entrada));
}

void ejecuta(const std::string &servicio, uint32_t id_comando)
{
    wchar_t r1[64], r2[256], r3[256];
    uint32_t id_salida = 0;
    uint32_t resultado = ivrexa_ejecuta_comando(servicio.c_str(), id_comando, 0, s_id_entrada, L"uno", L"dos", L"tres",
                                                &id_salida, r1, r2, r3);
    papel_c_di("RESULTADO %u|%u", static_cast<unsigned>(resultado), static_cast<unsigned>(id_salida));
}

void di_si_empieza(const std::string &prefijo)
{
    uint16_t version = 0;
    char nombre[64] = "";
    int16_t hay = ivrexa_hay_servicio_registrado_empiece_por(prefijo.c_str(), nombre, &version);
    papel_c_di("EMPIEZA %d %s", hay, nombre);
}

void registra_servidor(const palabras &p)
{
    anfitrion_yo.con_funcion = p[1] == "con_funcion";
    anfitrion_yo.version = 300;
    anfitrion_lee_servicios(p[2].c_str());
    anfitrion_prepara();
    papel_c_di("PREPARADO");
}

int obedece(const char *linea);

DWORD WINAPI obedece_en_hilo(void *linea)
{
    std::string *orden = static_cast<std::string *>(linea);
    obedece(orden->c_str());
    delete orden;
    return 0;
}

// ---- Lines

bool obedece_lugar(const std::string &linea, const palabras &p)
{
    if (p[0] == "MUERE" || p[0] == "PARA") {
        iv_fallo_arma(resto(linea, 2).c_str(), numero(p[1]), p[0] == "MUERE" ? MODO_MUERE : MODO_PARA);
        papel_c_di("ARMADO");
    } else if (p[0] == "MUERE_DENTRO") {
        s_vez_dentro = numero(p[1]);
        s_punto_dentro = resto(linea, 2);
        papel_c_di("ARMADO");
    } else if (p[0] == "DESARMA") {
        iv_fallo_arma(nullptr, 0, 0);
        papel_c_di("DESARMADO");
    } else {
        return false;
    }
    return true;
}

bool obedece_servidor(const palabras &p)
{
    if (p[0] == "REGISTRA_SERVIDOR") {
        registra_servidor(p);
    } else if (p[0] == "TERMINADO_REGISTRO") {
        anfitrion_publica();
        papel_c_di("PUBLICADO");
    } else if (p[0] == "NOTIFICA") {
        ivrexa_notifica_a_cliente(p[1].c_str(), numero(p[2]), numero(p[3]), numero(p[4]));
        papel_c_di("NOTIFICADO");
    } else {
        return false;
    }
    return true;
}

bool obedece_cliente(const std::string &linea, const palabras &p)
{
    if (p[0] == "REGISTRA_CLIENTE" || p[0] == "REGISTRA_NOTIFICACIONES") {
        registra_cliente(p[1], p[0] == "REGISTRA_NOTIFICACIONES");
    } else if (p[0] == "DOCUMENTO") {
        papel_c_di("CLIENTE %u", static_cast<unsigned>(
                                     ivrexa_abierto_documento_de_cliente(p[1].c_str(), L"documento", numero(p[2]))));
    } else if (p[0] == "GUARDA") {
        guarda(p[1], numero(p[2]));
    } else if (p[0] == "EJECUTA") {
        ejecuta(p[1], numero(p[2]));
    } else if (p[0] == "ECO") {
        anfitrion_obedece_cliente(linea.c_str());
    } else {
        return false;
    }
    return true;
}

bool obedece_cualquiera(const std::string &linea, const palabras &p)
{
    if (p[0] == "EMPIEZA_POR") {
        di_si_empieza(p[1]);
    } else if (p[0] == "MONITOR") {
        ivrexa_registra_monitor(anfitrion_yo.hwnd, al_actuar, al_rondar, al_rondar, nullptr);
        papel_c_di("MONITOR");
    } else if (p[0] == "QUITA_MONITOR") {
        ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        papel_c_di("QUITADO");
    } else if (p[0] == "HILO") {
        CloseHandle(CreateThread(nullptr, 0, obedece_en_hilo, new std::string(resto(linea, 1)), 0, nullptr));
    } else {
        return false;
    }
    return true;
}

int obedece(const char *linea)
{
    palabras p = parte(linea);
    if (obedece_lugar(linea, p) || obedece_servidor(p) || obedece_cliente(linea, p) || obedece_cualquiera(linea, p))
        return 1;
    return anfitrion_obedece(linea); // "ESPERA", "SIGUE", "CIERRA", "ACABA"
}

} // namespace

int main(int argc, char **argv)
{
    papel_c_inicia(argc, argv);
    s_hilo_principal = GetCurrentThreadId();
    anfitrion_yo.otros = arma_y_responde;
    anfitrion_nace(strcmp(papel_c_argumento(0), "ventana") == 0);
    papel_c_di("LISTO");
    anfitrion_vive(obedece);
    return 0;
}
