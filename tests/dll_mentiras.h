// dll_mentiras.h - a foreign program that lies to programs of the library. The liar is the test's own process: it
// touches named blocks and windows by plain system calls, and never calls the library. Its victims are processes that
// do. For one source file of a program: it defines the roles "servidor" and "victima".
//
// SERVIDOR  as in dll_anfitrion.h; its command 200 says "RECORRIDO values" once it has asked for everything that its
//           input offers, and read all that is handed out to its end.
// VICTIMA   a client ("ventana" | "sin_ventana", service) that obeys
//             COMANDO id block     "RESULTADO result|output id|length|length|length", the lengths of the texts
//             LEE id input         "LEIDO values", or "LEIDO nulo"
//             GUARDA bytes         stores a buffer: "GUARDADO id". It keeps the data until it stores again
//             HAY                  "HAY answer version"
//             EMPIEZA prefix       "EMPIEZA answer length", the length of the name found
//             TERMINA              ivrexa_terminar_servidor: "TERMINADO"
//             RACHA ms             commands 127 one after another for so long: "RACHA number"
//             DIRECCION            "DIRECCION n": where 64 bytes of its own lie, below 4 GB; "BYTES hex" shows them
//             ACABA
// VIGIA     the monitor: "CUENTA" answers "CUENTA activities client_rounds server_rounds".
#ifndef DLL_MENTIRAS_H
#define DLL_MENTIRAS_H

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "comun/crudo.h"
#include "comun/papel.h"
#include "comun/sistema.h"
#include "comun/util.h"
#include "comun/ventana.h"

#include "dll_anfitrion.h"

// ---- What victims read

namespace lectura {

inline volatile uint32_t s_suma;

inline void texto(const char *t)
{
    for (; t != nullptr && *t != '\0'; t++)
        s_suma = s_suma + static_cast<uint8_t>(*t);
}

// May lie at an odd address.
inline void texto(const wchar_t *t)
{
    uint16_t unidad;
    for (const char *p = reinterpret_cast<const char *>(t); p != nullptr; p += 2) {
        memcpy(&unidad, p, 2);
        if (unidad == 0)
            break;
        s_suma = s_suma + unidad;
    }
}

inline void bytes(const void *datos, uint32_t tam)
{
    for (uint32_t i = 0; i < tam; i++)
        s_suma = s_suma + static_cast<const uint8_t *>(datos)[i];
}

template <typename tipo>
inline void textos(const tipo *tabla, uint32_t num)
{
    EXPECT_LE(num, 131072u) << "more texts than any content of these tests has bytes";
    for (uint32_t i = 0; i < num; i++)
        texto(tabla[i]);
}

// Numbers before texts: a text read last would move the place that the library checks numbers against.
inline void valor(comdat *c, uint32_t i)
{
    uint32_t tam = 0, num = 0, num_u = 0;
    texto(ivrexa_nombre_valor(c, i));
    s_suma = s_suma + ivrexa_tipoDato(c, i) + ivrexa_dame_byte(c, i) + ivrexa_dame_ushort(c, i);
    s_suma = s_suma + ivrexa_dame_ulong(c, i) + (ivrexa_dame_double(c, i) == 0.0) + (ivrexa_dame_hwnd(c, i) == nullptr);
    texto(ivrexa_dame_cadena_ansi(c, i));
    texto(ivrexa_dame_cadena_unicode(c, i));
    const void *buffer = ivrexa_dame_buffer(c, i, &tam);
    bytes(buffer, tam);
    const char *const *ansi = ivrexa_dame_arr_cadenas_ansi(c, i, &num);
    textos(ansi, num);
    const wchar_t *const *anchas = ivrexa_dame_arr_cadenas_unicode(c, i, &num_u);
    textos(anchas, num_u);
}

// The count is the liar's word: no more than the first values are asked for, and one that cannot be.
inline uint32_t recorre(comdat *c)
{
    uint32_t num = ivrexa_numero_valores(c);
    for (uint32_t i = 0; i <= std::min(num, 20u); i++)
        valor(c, i);
    valor(c, 0xffffffff);
    return num;
}

} // namespace lectura

inline int32_t mentiras_otros_comandos(anfitrion_peticion *p)
{
    if (p->id_comando != 200)
        return 99;
    if (p->entrada == nullptr)
        papel_c_di("RECORRIDO nada");
    else
        papel_c_di("RECORRIDO %u", static_cast<unsigned>(lectura::recorre(p->entrada)));
    return 1;
}

PAPEL(servidor)
{
    anfitrion_yo.otros = mentiras_otros_comandos;
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

// ---- The victim that is a client

namespace victima {

inline comdat *s_guardado;
inline uint8_t *s_bytes;

// The length of the text in a buffer of `num` characters and eight more, which must be as they were.
inline size_t largo(const wchar_t *buffer, size_t num)
{
    for (size_t i = num; i < num + 8; i++)
        EXPECT_EQ(buffer[i], L'#') << "written past the end of a buffer of " << num << " characters";
    size_t n = 0;
    while (n < num && buffer[n] != 0)
        n++;
    EXPECT_LT(n, num) << "a text without its end";
    return n;
}

inline void manda(uint32_t id_comando, uint32_t id_entrada)
{
    std::vector<wchar_t> t1(72, L'#'), t2(264, L'#'), t3(264, L'#');
    uint32_t id_salida = 0;
    uint32_t resultado = ivrexa_ejecuta_comando(anfitrion_yo.servicios[0], id_comando, 0, id_entrada, L"1", L"2", L"3",
                                                &id_salida, t1.data(), t2.data(), t3.data());
    papel_c_di("RESULTADO %u|%u|%u|%u|%u", static_cast<unsigned>(resultado), static_cast<unsigned>(id_salida),
               static_cast<unsigned>(largo(t1.data(), 64)), static_cast<unsigned>(largo(t2.data(), 256)),
               static_cast<unsigned>(largo(t3.data(), 256)));
}

inline void lee(uint32_t id, int16_t es_entrada)
{
    comdat *c = ivrexa_lee_datos(anfitrion_yo.servicios[0], id, es_entrada);
    if (c == nullptr) {
        papel_c_di("LEIDO nulo");
        return;
    }
    papel_c_di("LEIDO %u", static_cast<unsigned>(lectura::recorre(c)));
    ivrexa_destruye_datos_comando(c);
}

inline void guarda(uint32_t num_bytes)
{
    std::vector<uint8_t> bytes(num_bytes + 1, 0x5a);
    if (s_guardado != nullptr)
        ivrexa_destruye_datos_comando(s_guardado);
    s_guardado = ivrexa_crea_datos_comando_entrada(anfitrion_yo.servicios[0]);
    ivrexa_graba_buffer(s_guardado, "b", bytes.data(), num_bytes);
    papel_c_di("GUARDADO %u", static_cast<unsigned>(ivrexa_guarda_datos(s_guardado)));
}

inline void di_direccion()
{
    for (uintptr_t sitio = 0x20000000; s_bytes == nullptr && sitio < 0x60000000; sitio += 0x100000)
        s_bytes = static_cast<uint8_t *>(
            VirtualAlloc(reinterpret_cast<void *>(sitio), 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    memset(s_bytes, 0x5a, 64);
    papel_c_di("DIRECCION %llu", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(s_bytes)));
}

inline void di_bytes()
{
    char texto[anfitrion_TAM_LINEA] = "";
    anfitrion_anexa_hex(texto, s_bytes, 64);
    papel_c_di("BYTES %s", texto);
}

inline void busca(const char *prefijo)
{
    char nombre[64 + 8];
    memset(nombre, '#', sizeof nombre);
    uint16_t version = 0;
    int16_t hay = ivrexa_hay_servicio_registrado_empiece_por(prefijo, nombre, &version);
    EXPECT_EQ(std::string(nombre + 64, 8), "########");
    papel_c_di("EMPIEZA %d %u", hay, hay == CIERTO ? static_cast<unsigned>(strnlen(nombre, 64)) : 0);
}

inline void racha(uint32_t ms)
{
    unsigned num = 0;
    for (uint64_t limite = GetTickCount64() + ms; GetTickCount64() < limite; num++)
        ivrexa_ejecuta_comando(anfitrion_yo.servicios[0], 127, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr);
    papel_c_di("RACHA %u", num);
}

inline int obedece(const char *linea)
{
    unsigned a = 0, b = 0;
    const char *servicio = anfitrion_yo.servicios[0];
    uint16_t version = 0;
    if (strcmp(linea, "ACABA") == 0)
        return 0;
    if (sscanf(linea, "COMANDO %u %u", &a, &b) == 2) {
        manda(a, b);
    } else if (sscanf(linea, "LEE %u %u", &a, &b) == 2) {
        lee(a, static_cast<int16_t>(b));
    } else if (sscanf(linea, "GUARDA %u", &a) == 1) {
        guarda(a);
    } else if (strcmp(linea, "HAY") == 0) {
        int16_t hay = ivrexa_hay_servicio_registrado(servicio, &version);
        papel_c_di("HAY %d %u", hay, static_cast<unsigned>(version));
    } else if (strncmp(linea, "EMPIEZA ", 8) == 0) {
        busca(linea + 8);
    } else if (strcmp(linea, "TERMINA") == 0) {
        ivrexa_terminar_servidor(servicio);
        papel_c_di("TERMINADO");
    } else if (sscanf(linea, "RACHA %u", &a) == 1) {
        racha(a);
    } else if (strcmp(linea, "DIRECCION") == 0) {
        di_direccion();
    } else if (strcmp(linea, "BYTES") == 0) {
        di_bytes();
    } else {
        papel_c_di("?? %s", linea);
    }
    return 1;
}

} // namespace victima

PAPEL(victima)
{
    anfitrion_lee_servicios(args[1].c_str());
    anfitrion_nace(args[0] == "ventana");
    ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, anfitrion_yo.servicios[0]);
    papel_c_di("LISTO");
    anfitrion_vive(victima::obedece);
    ivrexa_cierra_sesion();
    return 0;
}

// ---- The victim that is the monitor

namespace vigia {

inline unsigned s_actividades, s_rondas_cliente, s_rondas_servidor;

// Names in the registry need not end: a host reads no more than their 64 bytes.
inline void mira(const char *nombre)
{
    for (uint32_t i = 0; i < 64; i++)
        lectura::s_suma = lectura::s_suma + static_cast<uint8_t>(nombre[i]);
}

inline void actividad(uint32_t, uint32_t, uint16_t, const char *nombre, uint32_t, uint32_t, void *)
{
    mira(nombre);
    s_actividades++;
}

inline void ronda_cliente(const iv_mcbase_t *, const datServ *servicio, uint32_t, void *)
{
    mira(servicio->nombre);
    s_rondas_cliente++;
}

inline void ronda_servidor(const iv_mcbase_t *, const datServ *servicio, uint32_t, void *)
{
    mira(servicio->nombre);
    s_rondas_servidor++;
}

inline int obedece(const char *linea)
{
    if (strcmp(linea, "ACABA") == 0)
        return 0;
    papel_c_di("CUENTA %u %u %u", s_actividades, s_rondas_cliente, s_rondas_servidor);
    return 1;
}

} // namespace vigia

PAPEL(vigia)
{
    anfitrion_nace(1);
    ivrexa_registra_monitor(anfitrion_yo.hwnd, vigia::actividad, vigia::ronda_cliente, vigia::ronda_servidor, nullptr);
    papel_c_di("LISTO");
    anfitrion_vive(vigia::obedece);
    ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    return 0;
}

// ---- The liar

// A field of a block and what is written there.
struct mentira {
    const char *campo;
    size_t despl;
    uint32_t tam; // 2, 4 or 8 bytes
    uint64_t valor;
};

inline uint64_t campo(const bloque_crudo &bloque, const mentira &m)
{
    return m.tam == 2 ? bloque.u16(m.despl) : m.tam == 4 ? bloque.u32(m.despl) : bloque.u64(m.despl);
}

inline void pon_campo(bloque_crudo &bloque, const mentira &m, uint64_t valor)
{
    if (m.tam == 2)
        bloque.pon_u16(m.despl, static_cast<uint16_t>(valor));
    else if (m.tam == 4)
        bloque.pon_u32(m.despl, static_cast<uint32_t>(valor));
    else
        bloque.pon_u64(m.despl, valor);
}

// A lie that stands while the object lives; then the field is what it was.
class mentido {
public:
    mentido(bloque_crudo &bloque, const mentira &m) : m_bloque(bloque), m_mentira(m), m_antes(campo(bloque, m))
    {
        pon_campo(bloque, m, m.valor);
    }
    ~mentido() { pon_campo(m_bloque, m_mentira, m_antes); }
    mentido(const mentido &) = delete;
    mentido &operator=(const mentido &) = delete;

private:
    bloque_crudo &m_bloque;
    mentira m_mentira;
    uint64_t m_antes;
};

inline std::string describe(const mentira &m)
{
    return std::string(m.campo) + " = " + std::to_string(m.valor);
}

static const uint32_t PLAZO_MS = 20000;

inline papel arranca_servidor(const std::string &clase, const std::string &servicios)
{
    return arranca_papel("servidor", {clase, servicios});
}

inline papel arranca_victima(const std::string &clase, const std::string &servicio)
{
    return arranca_papel("victima", {clase, servicio});
}

// Tells it a line and takes its answer, which begins with the same prefix in every case.
inline std::string pide(papel &p, const std::string &linea, const std::string &prefijo, lugar donde = lugar::aqui())
{
    p.di(linea, donde);
    return p.espera_linea(prefijo, PLAZO_MS, donde);
}

inline std::string manda(papel &p, uint32_t id, uint32_t id_entrada = 0, lugar donde = lugar::aqui())
{
    return pide(p, "COMANDO " + std::to_string(id) + " " + std::to_string(id_entrada), "RESULTADO ", donde);
}

inline void acaba(papel &p, lugar donde = lugar::aqui())
{
    p.di("ACABA", donde);
    EXPECT_EQ(p.espera_fin(PLAZO_MS, donde), 0u);
}

inline uint64_t hwnd_de(papel &p)
{
    std::string linea = p.espera_linea("HWND ", PLAZO_MS);
    return linea.size() > 5 ? std::stoull(linea.substr(5)) : 0;
}

inline std::string nombre_canal(const std::string &servicio)
{
    return "Ivrexa_MCB_Serv_" + servicio;
}

inline std::string nombre_datos(const std::string &servicio, uint32_t id)
{
    return "Ivrexa_MCB_Serv_" + servicio + "_Com__comdat" + std::to_string(id);
}

inline size_t despl_programa(const bloque_crudo &registro, const papel &p)
{
    std::string ruta = "papel_" + std::to_string(p.pid());
    for (size_t i = 0; i < 16; i++)
        if (registro.texto(1430 + i * 274, 256) == ruta)
            return 1430 + i * 274;
    ADD_FAILURE() << ruta << " is not in the registry";
    return 1430;
}

inline size_t despl_servicio(const bloque_crudo &registro, const std::string &servicio)
{
    for (size_t i = 0; i < 32; i++)
        if (registro.texto(5814 + i * 96, 64) == servicio)
            return 5814 + i * 96;
    ADD_FAILURE() << servicio << " is not in the registry";
    return 5814;
}

// A server without a window may take a client whose heartbeat still stands at 0 for a dead one.
inline void espera_latido(const papel &p)
{
    bloque_crudo registro("Ivrexa_MCB");
    size_t despl = despl_programa(registro, p);
    EXPECT_TRUE(espera_hasta([&] { return registro.u32(despl + 270) != 0; }, PLAZO_MS)) << "no heartbeat";
}

// Takes all reports that the role has made: "module: expression" each.
inline std::vector<std::string> toma_informes(papel &p)
{
    std::vector<std::string> todos;
    while (std::optional<datos_informe> i = p.toma_informe(0))
        todos.push_back(i->ajeno ? describe_informe(*i) : i->modulo + ": " + i->expresion);
    return todos;
}

#endif
