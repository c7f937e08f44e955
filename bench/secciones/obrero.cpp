#include "obrero.h"

#include "../comun/medida.h"
#include "../filas/ivrexa_comun.h"

#include <cstdio>
#include <stdexcept>

namespace banco {

const char PAPEL_OBRERO[] = "growth";

static const UINT MENSAJE = WM_APP + 1; // wParam: the order

enum : unsigned { ORDEN_OFRECE = 1, ORDEN_PUBLICA, ORDEN_USA, ORDEN_EJECUTA, ORDEN_CIERRA };

struct obrero_orden {
    char servicio[64];
    carga datos;
    double segundos;
    char fallo[256]; // why, where it failed
};

static std::string ventana_de(const std::string &sesion)
{
    return "banco_obrero_" + sesion;
}

static obrero_orden *orden_de(const std::string &sesion)
{
    return static_cast<obrero_orden *>(mapea("banco_orden_" + sesion, sizeof(obrero_orden)));
}

static void escribe(char *texto, size_t tam, const std::string &que)
{
    std::snprintf(texto, tam, "%s", que.c_str());
}

// ---- The parent's side

obrero::obrero()
    : sesion_(sesion_nueva()), hijo_(PAPEL_OBRERO, sesion_), orden_(orden_de(sesion_)),
      hwnd_(busca_ventana(ventana_de(sesion_)))
{
}

void obrero::manda(unsigned orden)
{
    DWORD_PTR hecho = 0;
    orden_->fallo[0] = '\0';
    if (SendMessageTimeoutW(hwnd_, MENSAJE, orden, 0, SMTO_NORMAL, LIMITE_MS, &hecho) == 0)
        falla("a program of the section does not answer");
    if (hecho != TRUE)
        throw std::runtime_error(std::string("a program of the section failed: ") + orden_->fallo);
}

void obrero::ofrece(const std::string &servicio)
{
    escribe(orden_->servicio, sizeof orden_->servicio, servicio);
    manda(ORDEN_OFRECE);
}

void obrero::publica()
{
    manda(ORDEN_PUBLICA);
}

void obrero::usa(const std::string &servicio)
{
    escribe(orden_->servicio, sizeof orden_->servicio, servicio);
    manda(ORDEN_USA);
}

double obrero::ejecuta(const std::string &servicio, const carga &carga)
{
    escribe(orden_->servicio, sizeof orden_->servicio, servicio);
    orden_->datos = carga;
    manda(ORDEN_EJECUTA);
    return orden_->segundos;
}

void obrero::empieza_cierre()
{
    if (!SendNotifyMessageW(hwnd_, MENSAJE, ORDEN_CIERRA, 0))
        falla("a program of the section cannot be reached");
}

void obrero::cierra()
{
    manda(ORDEN_CIERRA);
}

cuadrilla contrata(size_t cuantos)
{
    cuadrilla obreros;
    for (size_t i = 0; i < cuantos; i++)
        obreros.push_back(std::make_unique<obrero>());
    return obreros;
}

// The first order does not wait; the second comes to a session that is closed, and waits for that.
void cierra_todos(const cuadrilla &obreros)
{
    for (const std::unique_ptr<obrero> &obrero : obreros)
        obrero->empieza_cierre();
    for (const std::unique_ptr<obrero> &obrero : obreros)
        obrero->cierra();
}

// ---- The child's side

static std::string s_sesion;
static obrero_orden *s_orden;
static HWND s_hwnd_servicio;
static bool s_es_servidor = false;

// Every number is read, and so is the last byte of a buffer.
static uint32_t suma(comdat *datos)
{
    uint32_t total = 0;
    uint32_t num = ivrexa_numero_valores(datos);
    for (uint32_t i = 0; i < num; i++) {
        uint32_t tam = 0;
        if (ivrexa_tipoDato(datos, i) == ivrexa_tipoDato_ulong)
            total += ivrexa_dame_ulong(datos, i);
        else if (auto bytes = static_cast<const uint8_t *>(ivrexa_dame_buffer(datos, i, &tam)))
            total += tam + bytes[tam - 1];
    }
    return total;
}

static int32_t procesa(const char *servicio, uint32_t id_comando, comando *contexto, void *)
{
    if (contexto->datos_entrada == nullptr)
        return ivrexa_resultado_ERROR;
    comdat *salida = ivrexa_crea_datos_comando_salida(servicio);
    ivrexa_graba_ulong(salida, "sum", suma(contexto->datos_entrada));
    ivrexa_set_datos_salida_comando(servicio, id_comando, ivrexa_guarda_datos(salida), nullptr, nullptr, nullptr);
    contexto->datos_salida = salida;
    return ivrexa_resultado_OK;
}

static void obedece_ofrece()
{
    if (s_es_servidor)
        ivrexa_anyade_servicio(s_orden->servicio, 1, nullptr, procesa);
    else
        ivrexa_registra_servidor(ivrexa_programa(s_sesion).c_str(), s_hwnd_servicio, s_orden->servicio, 1, nullptr,
                                 procesa);
    s_es_servidor = true;
}

static void obedece_usa()
{
    ivrexa_registra_cliente_de_servicio(ivrexa_programa(s_sesion).c_str(), nullptr, s_orden->servicio);
}

// The answer; ~0 where there is none.
static uint32_t ejecuta_comando(const char *servicio, const std::vector<uint8_t> &bytes, uint32_t valores)
{
    comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
    for (uint32_t i = 0; i < valores; i++)
        ivrexa_graba_ulong(entrada, "value", i);
    if (!bytes.empty())
        ivrexa_graba_buffer(entrada, "buffer", bytes.data(), static_cast<uint32_t>(bytes.size()));
    uint32_t id_entrada = ivrexa_guarda_datos(entrada);
    uint32_t id_salida = 0;
    uint32_t resultado = ivrexa_ejecuta_comando(servicio, 100, 0, id_entrada, nullptr, nullptr, nullptr, &id_salida,
                                                nullptr, nullptr, nullptr);
    ivrexa_destruye_datos_comando(entrada);
    comdat *salida = resultado == ivrexa_resultado_OK ? ivrexa_lee_datos(servicio, id_salida, FALSO) : nullptr;
    if (salida == nullptr)
        return ~0u;
    uint32_t total = ivrexa_dame_ulong(salida, 0);
    ivrexa_destruye_datos_comando(salida);
    return total;
}

static void obedece_ejecuta()
{
    const uint8_t BYTE = 7;
    carga carga = s_orden->datos;
    std::vector<uint8_t> bytes(carga.tam, BYTE);
    double antes = ahora();
    uint32_t total = ejecuta_comando(s_orden->servicio, bytes, carga.valores);
    s_orden->segundos = ahora() - antes;
    uint32_t debido = carga.valores > 0 ? carga.valores * (carga.valores - 1) / 2 : 0;
    if (carga.tam > 0)
        debido += carga.tam + BYTE;
    if (total != debido)
        throw std::runtime_error(std::string("wrong answer of ") + s_orden->servicio);
}

static void obedece_cierra()
{
    ivrexa_cierra_sesion();
    s_es_servidor = false;
}

static LRESULT obedece(WPARAM orden)
{
    try {
        switch (orden) {
        case ORDEN_OFRECE:
            obedece_ofrece();
            return TRUE;
        case ORDEN_PUBLICA:
            ivrexa_terminado_registro();
            return TRUE;
        case ORDEN_USA:
            obedece_usa();
            return TRUE;
        case ORDEN_EJECUTA:
            obedece_ejecuta();
            return TRUE;
        case ORDEN_CIERRA:
            obedece_cierra();
            return TRUE;
        default:
            throw std::logic_error("unknown order");
        }
    } catch (const std::exception &e) {
        escribe(s_orden->fallo, sizeof s_orden->fallo, e.what());
        return FALSE;
    }
}

static LRESULT CALLBACK procedimiento(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    if (msg == MENSAJE && hwnd != s_hwnd_servicio)
        return obedece(wparam);
    return DefWindowProcA(hwnd, msg, wparam, lparam);
}

// Two windows: the library changes the procedure of the one that it is given, and no session may be closed from there.
void sirve_obrero(const std::string &sesion)
{
    s_sesion = sesion;
    s_orden = orden_de(sesion);
    s_hwnd_servicio = crea_ventana("banco_servicio_" + sesion, procedimiento);
    crea_ventana(ventana_de(sesion), procedimiento);
    papel_listo();
    papel_bucle_mensajes();
    ivrexa_cierra_sesion();
}

} // namespace banco
