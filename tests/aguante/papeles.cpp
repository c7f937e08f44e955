// The programs of a long run: servers of each kind, clients, a server that notifies and its client, a
// monitor. Each works when it is told to, and tells what it holds when it is asked:
//     TRABAJA n ms    n commands or notifications, or fewer when the time is over, and one more: "HECHO"
//     REGISTRA, QUITA the monitor: "HECHO"
//     MIDE            "MEDIDA ..."
//     ACABA           closes the session and ends
#include <atomic>
#include <vector>

#include <gtest/gtest.h>

#include "comun/ventana.h"

#include "dll_anfitrion.h"
#include "medidas.h"

namespace {

enum : uint32_t { orden_CON_DATOS = 108, orden_SIN_DATOS = 109, orden_ALTA = 110 };
constexpr uint32_t ESPERA_MS = 3600000; // a line of the director, or the watchdog ends us
constexpr uint32_t NUM_TAMANYOS = 7;

std::atomic<uint32_t> s_hechos;

// Bytes of a command's data. What a server keeps is that of the last command of a spell, number 0.
std::vector<uint8_t> bytes_de(uint32_t n)
{
    std::vector<uint8_t> bytes(40 + 700 * (n % NUM_TAMANYOS));
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = static_cast<uint8_t>(i + n);
    return bytes;
}

void graba(comdat *datos, uint32_t n)
{
    static const char *const palabras[] = {"uno", "dos", "tres"};
    std::vector<uint8_t> bytes = bytes_de(n);
    ivrexa_graba_ulong(datos, "n", n);
    ivrexa_graba_double(datos, "mitad", n / 2.0);
    ivrexa_graba_cadena_ansi(datos, "ansi", "a\xf1o");
    ivrexa_graba_cadena_unicode(datos, "texto", L"a\u00f1o nuevo");
    ivrexa_graba_arr_cadenas_ansi(datos, "palabras", palabras, 3);
    ivrexa_graba_buffer(datos, "bytes", bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool es(comdat *datos, uint32_t n)
{
    uint32_t num = 0, tam = 0;
    std::vector<uint8_t> bytes = bytes_de(n);
    if (ivrexa_dame_ulong(datos, 0) != n || ivrexa_dame_double(datos, 1) != n / 2.0)
        return false;
    const char *ansi = ivrexa_dame_cadena_ansi(datos, 2);
    const wchar_t *texto = ivrexa_dame_cadena_unicode(datos, 3);
    const char *const *palabras = ivrexa_dame_arr_cadenas_ansi(datos, 4, &num);
    const void *leidos = ivrexa_dame_buffer(datos, 5, &tam);
    return ansi != nullptr && strcmp(ansi, "a\xf1o") == 0 && texto != nullptr &&
           wcscmp(texto, L"a\u00f1o nuevo") == 0 && num == 3 && strcmp(palabras[2], "tres") == 0 &&
           tam == bytes.size() && leidos != nullptr && memcmp(leidos, bytes.data(), tam) == 0;
}

// ---- What every program does with its lines

struct programa {
    virtual ~programa() = default;
    virtual void trabaja(uint32_t num, uint32_t ms) = 0;
    virtual void registra(bool) {}
    virtual void antes_de_medir() {}
};

std::optional<std::string> siguiente_linea(papel_hijo &yo)
{
    return anfitrion_yo.hwnd != nullptr ? bombea_hasta_linea(yo, ESPERA_MS) : yo.escucha(ESPERA_MS);
}

void obedece(papel_hijo &yo, const monton_de_la_biblioteca &monton, programa *p)
{
    yo.di("LISTO");
    while (std::optional<std::string> linea = siguiente_linea(yo)) {
        unsigned num = 0, ms = 0;
        if (*linea == "ACABA")
            return;
        if (*linea == "MIDE") {
            p->antes_de_medir();
            yo.di("MEDIDA " + en_linea(monton.mide(s_hechos)));
            continue;
        }
        if (sscanf(linea->c_str(), "TRABAJA %u %u", &num, &ms) == 2)
            p->trabaja(num, ms);
        else
            p->registra(*linea == "REGISTRA");
        yo.di("HECHO");
    }
}

// Does it `num` times with numbers of all sizes, or until the time is over, and then once with number 0.
template <typename F>
void repite(uint32_t num, uint32_t ms, F haz)
{
    uint64_t limite = GetTickCount64() + ms;
    for (uint32_t i = 1; i < num && GetTickCount64() < limite; i++)
        haz(i);
    haz(0);
}

// ---- Servers

uint32_t s_id_avisado; // whom to notify

int32_t contesta_con_datos(anfitrion_peticion *p)
{
    if (p->entrada == nullptr)
        return 90;
    uint32_t n = ivrexa_dame_ulong(p->entrada, 0);
    bool bien = es(p->entrada, n);
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    graba(p->salida, n);
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, ivrexa_guarda_datos(p->salida), L"con", L"datos",
                                    nullptr);
    return bien ? ivrexa_resultado_OK : 91;
}

int32_t contesta_sin_datos(anfitrion_peticion *p)
{
    wchar_t texto[64] = L"";
    ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, nullptr, texto, nullptr, nullptr);
    if (p->id_comando == orden_ALTA)
        s_id_avisado = static_cast<uint32_t>(wcstoul(texto, nullptr, 10));
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 0, texto, L"sin", L"datos");
    return ivrexa_resultado_OK;
}

int32_t contesta(anfitrion_peticion *p)
{
    if (p->id_comando != orden_ALTA)
        s_hechos++;
    return p->id_comando == orden_CON_DATOS ? contesta_con_datos(p) : contesta_sin_datos(p);
}

void notifica(uint32_t n)
{
    const char *servicio = anfitrion_yo.servicios[0];
    comdat *datos = ivrexa_crea_datos_comando_salida(servicio);
    graba(datos, n);
    uint32_t id_datos = ivrexa_guarda_datos(datos);
    ivrexa_notifica_a_cliente(servicio, s_id_avisado, n, id_datos);
    ivrexa_destruye_datos_comando(datos);
    s_hechos++;
}

// A server that is told to work notifies: on its window's thread, which nobody needs meanwhile.
struct programa_servidor : programa {
    void trabaja(uint32_t num, uint32_t ms) override { repite(num, ms, notifica); }
};

// ---- Clients

struct programa_cliente : programa {
    explicit programa_cliente(bool con_datos) : m_con_datos(con_datos) {}
    void trabaja(uint32_t num, uint32_t ms) override
    {
        repite(num, ms, [this](uint32_t n) { m_con_datos ? manda_con_datos(n) : manda_sin_datos(n); });
    }

private:
    uint32_t ejecuta(uint32_t orden, uint32_t id_entrada, const wchar_t *texto, const wchar_t *esperado)
    {
        wchar_t t1[64] = L"?", t2[256] = L"?", t3[256] = L"?";
        uint32_t id_salida = 0;
        EXPECT_EQ(ivrexa_ejecuta_comando(anfitrion_yo.servicios[0], orden, 0, id_entrada, texto, L"dos", nullptr,
                                         &id_salida, t1, t2, t3),
                  static_cast<uint32_t>(ivrexa_resultado_OK));
        EXPECT_STREQ(t1, esperado);
        s_hechos++;
        return id_salida;
    }

    void manda_con_datos(uint32_t n)
    {
        const char *servicio = anfitrion_yo.servicios[0];
        comdat *entrada = ivrexa_crea_datos_comando_entrada(servicio);
        graba(entrada, n);
        uint32_t id_salida = ejecuta(orden_CON_DATOS, ivrexa_guarda_datos(entrada), nullptr, L"con");
        comdat *salida = ivrexa_lee_datos(servicio, id_salida, FALSO);
        EXPECT_TRUE(salida != nullptr && es(salida, n)) << n;
        ivrexa_destruye_datos_comando(salida);
        ivrexa_destruye_datos_comando(entrada);
    }

    void manda_sin_datos(uint32_t n)
    {
        std::wstring texto = std::to_wstring(n);
        ejecuta(orden_SIN_DATOS, 0, texto.c_str(), texto.c_str());
    }

    const bool m_con_datos;
};

// ---- The notified client

DWORD s_hilo_ventana;
std::atomic<uint32_t> s_vistos; // notifications that the window's thread was told of

void toma_aviso(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    comdat *datos = ivrexa_lee_datos(servicio, ivrexa_obtener_id_datos_notificacion(servicio, id_cliente, dato), FALSO);
    EXPECT_TRUE(datos != nullptr && es(datos, dato)) << dato;
    ivrexa_destruye_datos_comando(datos);
    s_hechos++;
    ivrexa_procesada_notificacion(servicio);
}

// A further document comes and goes with each notification.
void muestra_aviso(const char *servicio, uint32_t id_cliente)
{
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(servicio, L"C:\\otro.txt", 2), id_cliente);
    ivrexa_cerrado_documento_de_cliente(L"C:\\otro.txt", 2);
    s_vistos++;
}

void avisado(const char *servicio, uint32_t id_cliente, uint32_t dato)
{
    if (GetCurrentThreadId() == s_hilo_ventana)
        muestra_aviso(servicio, id_cliente);
    else
        toma_aviso(servicio, id_cliente, dato);
}

struct programa_avisado : programa {
    void trabaja(uint32_t, uint32_t) override {}
    void antes_de_medir() override
    {
        EXPECT_EQ(bombea_hasta([] { return s_vistos == s_hechos; }, 20000), bombeo::cumplido);
    }
};

// ---- The monitor

uint32_t s_actividades, s_rondas;

void ve_actividad(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *)
{
    s_actividades++;
}

void ve_ronda(const iv_mcbase_t *, const datServ *, uint32_t, void *)
{
    s_rondas++;
}

struct programa_monitor : programa {
    void trabaja(uint32_t, uint32_t) override {}
    void registra(bool si) override
    {
        if (si)
            ivrexa_registra_monitor(anfitrion_yo.hwnd, ve_actividad, ve_ronda, ve_ronda, nullptr);
        else
            ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
        s_hechos += si;
    }
};

} // namespace

// ---- Roles

// args: kind, service
PAPEL(servidor_medido)
{
    const std::string clase = args[0];
    anfitrion_lee_servicios(args[1].c_str());
    anfitrion_yo.con_funcion = clase != "net";
    anfitrion_yo.otros = contesta;
    anfitrion_nace(clase != "sin_ventana");
    monton_de_la_biblioteca monton;
    anfitrion_prepara();
    anfitrion_publica();
    programa_servidor p;
    obedece(yo, monton, &p);
    anfitrion_cierra();
    return 0;
}

// args: service, whether with data
PAPEL(cliente_medido)
{
    anfitrion_lee_servicios(args[0].c_str());
    anfitrion_nace(0);
    monton_de_la_biblioteca monton;
    ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, nullptr, anfitrion_yo.servicios[0]);
    programa_cliente p(args[1] == "con_datos");
    obedece(yo, monton, &p);
    ivrexa_cierra_sesion();
    return 0;
}

// args: service
PAPEL(avisado_medido)
{
    anfitrion_lee_servicios(args[0].c_str());
    const char *servicio = anfitrion_yo.servicios[0];
    anfitrion_nace(1);
    monton_de_la_biblioteca monton;
    s_hilo_ventana = GetCurrentThreadId();
    ivrexa_registra_cliente_notificaciones_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, servicio, avisado);
    uint32_t id = ivrexa_abierto_documento_de_cliente(servicio, L"C:\\uno.txt", 1);
    EXPECT_EQ(ivrexa_ejecuta_comando(servicio, orden_ALTA, 0, 0, std::to_wstring(id).c_str(), nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr),
              static_cast<uint32_t>(ivrexa_resultado_OK));
    programa_avisado p;
    obedece(yo, monton, &p);
    ivrexa_cierra_sesion();
    return 0;
}

PAPEL(monitor_medido)
{
    anfitrion_nace(1);
    monton_de_la_biblioteca monton;
    programa_monitor p;
    obedece(yo, monton, &p);
    EXPECT_GT(s_actividades, 0u);
    EXPECT_GT(s_rondas, 0u);
    ivrexa_cierra_sesion();
    return 0;
}
