// Any channel, as damaged as a peer may leave it and change it while we wait: the server's and the client's
// side of a command, the mailbox, and the blocks of command data that the channel names.
#include "iv_mcbase.h"
#include "iv_mcserv.h"
#include "iv_nombre.h"
#include "modelo_comdat.h"

#include <memory>

namespace {

using apoyo::entrada;
using apoyo::exacto;
using texto_ancho = std::vector<wchar_t>; // with its NUL

const char SERVICIO[] = "S";
const char NOMBRE_CANAL[] = "Ivrexa_MCB_Serv_S";
const char NOMBRE_REGISTRO[] = "Ivrexa_MCB";
const uint32_t MAX_RONDAS_SIN_SERVIDOR = 8; // that an exchange still makes once the server has ended

const char OTRO_BLOQUE[] = "iv_mcserv: mcserv->id_bloque_MCCom_entrada == id_bloque_MCCom_entrada";
const char SIN_BLOQUE[] = "iv_mcserv: (shared_MCCom) != 0";

texto_ancho cortado(const void *campo, size_t num)
{
    texto_ancho t(num);
    memcpy(t.data(), campo, num * sizeof(wchar_t));
    t[num - 1] = 0;
    size_t fin = 0;
    while (t[fin] != 0)
        fin++;
    t.resize(fin + 1);
    return t;
}

bool es_texto(const wchar_t *t, const texto_ancho &esperado)
{
    return memcmp(t, esperado.data(), esperado.size() * sizeof(wchar_t)) == 0;
}

class ejecucion {
public:
    ejecucion(const uint8_t *datos, size_t tam) : e(datos, tam)
    {
        // 0: no channel; 1: one too small, whose header knows; 2: one whose header lies; else a whole one.
        const uint32_t clase = e.u8() % 8;
        registro = reinterpret_cast<iv_mcbase_t *>(pon_bloque(NOMBRE_REGISTRO, sizeof *registro, sizeof *registro));
        if (clase == 1)
            pon_bloque(NOMBRE_CANAL, 100, 100);
        else if (clase != 0)
            canal = reinterpret_cast<iv_mcserv_t *>(
                pon_bloque(NOMBRE_CANAL, sizeof *canal, clase == 2 ? UINT32_MAX : sizeof *canal));
    }

    void corre()
    {
        while (!e.vacia()) {
            un_paso();
            COMPRUEBA(sustituto::num_mutex_tomados() == 0);
            COMPRUEBA(sustituto::num_vistas() == (s_mcbase_acceso != nullptr ? 1 : 0));
            sustituto::olvida_informes();
            sustituto::olvida_mensajes();
            for (const char *nombre : {NOMBRE_CANAL, NOMBRE_REGISTRO})
                if (sustituto::hay_mapa(nombre))
                    sustituto::cerca_mapa(nombre);
        }
        iv_mcbase_cierra();
        apoyo::termina();
    }

private:
    entrada e;
    iv_mcbase_t *registro = nullptr;
    iv_mcserv_t *canal = nullptr;
    uint32_t rondas_sin_servidor = 0;

    static uint8_t *pon_bloque(const char *nombre, uint32_t tam, uint32_t cabecera)
    {
        uint8_t *mapa = sustituto::pon_mapa(nombre, tam + 4);
        memcpy(mapa, &cabecera, sizeof cabecera);
        sustituto::cerca_mapa(nombre);
        return mapa + 4;
    }

    void un_paso()
    {
        switch (e.u8() % 12) {
        case 0:
        case 1:
            return canal != nullptr ? parchea(canal, sizeof *canal) : (void)e.u8();
        case 2:
            return parchea(registro, sizeof *registro);
        case 3:
            return con_canal([&] { dame_comando(); });
        case 4:
            return con_canal([&] { pon_resultado(); });
        case 5:
            return pon_datos();
        case 6:
            return con_canal([&] { lee_datos_entrada(); });
        case 7:
        case 8:
            return ejecuta_comando();
        case 9:
            return con_canal([&] { notifica(); });
        case 10:
            return con_canal([&] { guarda_datos(); });
        default:
            return con_canal([&] { vida_del_servidor(); });
        }
    }

    // ---- The other side

    void parchea(void *donde, size_t tam)
    {
        const size_t desde = e.u16() % tam;
        const bytes b = e.toma(e.u8());
        const size_t n = b.size() < tam - desde ? b.size() : tam - desde;
        if (n != 0)
            memcpy(static_cast<uint8_t *>(donde) + desde, b.data(), n);
    }

    // What the peer does in one of our waits. In the end its server ends.
    void un_turno_del_otro()
    {
        if (e.vacia()) {
            if (canal != nullptr) {
                canal->servidor_terminado = 1;
                canal->estado_servidor = 0;
            }
            COMPRUEBA(++rondas_sin_servidor <= MAX_RONDAS_SIN_SERVIDOR);
            return;
        }
        switch (e.u8() % 4) {
        case 0:
            return parchea(canal, sizeof *canal);
        case 1:
            registro->programas[e.u8() % 16].contador_vivo++;
            return;
        case 2:
            return parchea(registro, sizeof *registro);
        default:
            return;
        }
    }

    template <typename accion>
    void con_el_otro(accion que)
    {
        rondas_sin_servidor = 0;
        sustituto::al_dormir([&](uint32_t) { un_turno_del_otro(); });
        sustituto::al_enviar([&](const sustituto::mensaje &m) {
            COMPRUEBA(m.msg >= 0xC000 && m.msg <= 0xFFFF);
            un_turno_del_otro();
            return static_cast<int64_t>(e.u8());
        });
        que();
        sustituto::al_dormir(nullptr);
        sustituto::al_enviar(nullptr);
    }

    // A block of command data with any content, and any statement of its size.
    void pon_datos()
    {
        const uint32_t id = e.u8() % 4 + 100;
        const uint32_t cabecera = e.u8() % 2 == 0 ? UINT32_MAX : e.u16();
        const bytes b = e.toma(e.u16() % 512);
        const std::string nombre = nombre_de(id);
        if (sustituto::hay_mapa(nombre.c_str()))
            return;
        uint8_t *datos = pon_bloque(nombre.c_str(), static_cast<uint32_t>(b.size()), cabecera);
        if (!b.empty())
            memcpy(datos, b.data(), b.size());
    }

    static std::string nombre_de(uint32_t id)
    {
        return std::string(NOMBRE_CANAL) + "_Com__comdat" + (id != 0 ? std::to_string(id) : "");
    }

    // ---- The server's side

    template <typename accion>
    void con_canal(accion que)
    {
        iv_shared_bloque *bloque = iv_mcserv_abre_bloque(SERVICIO);
        COMPRUEBA((bloque != nullptr) == (canal != nullptr));
        if (bloque == nullptr)
            return;
        COMPRUEBA(iv_mcserv_vista_de(bloque) == canal);
        compartido = bloque;
        que();
        iv_shared_destruye(&bloque);
    }
    iv_shared_bloque *compartido = nullptr;

    bool en_curso(uint32_t id) const { return canal->id_comando == id && canal->ocupacion == 2; }

    void dame_comando()
    {
        const uint32_t id = e.u8() % 2 == 0 ? canal->id_comando : e.u32();
        const uint32_t quieren = e.u8();
        const texto_ancho lleno(256, L'#');
        exacto<wchar_t> t64(lleno.data(), 64), t256(lleno.data(), 256), t256_2(lleno.data(), 256);
        uint32_t bloque = 0xABCD;
        const bool q1 = (quieren & 1) == 0, q2 = (quieren & 2) == 0, q3 = (quieren & 4) == 0;
        const int16_t hay = iv_mcserv_dame_comando(canal, id, &bloque, q1 ? t64.get() : nullptr,
                                                   q2 ? t256.get() : nullptr, q3 ? t256_2.get() : nullptr);
        COMPRUEBA(hay == (en_curso(id) ? CIERTO : FALSO));
        COMPRUEBA(bloque == (hay == CIERTO ? canal->id_bloque_MCCom_entrada : 0xABCD));
        const texto_ancho intacto = {L'#'};
        COMPRUEBA(es_texto(t64.get(), hay && q1 ? cortado(canal->buffer_cliente_64, 64) : intacto));
        COMPRUEBA(es_texto(t256.get(), hay && q2 ? cortado(canal->buffer_cliente_256, 256) : intacto));
        COMPRUEBA(es_texto(t256_2.get(), hay && q3 ? cortado(canal->buffer_cliente2_256, 256) : intacto));
    }

    // A text of the host's: null, or of any length.
    std::unique_ptr<exacto<wchar_t>> texto()
    {
        const uint32_t largo = e.u16() % 600;
        if (largo == 0)
            return nullptr;
        texto_ancho t(largo, static_cast<wchar_t>(0x100 + largo));
        t[largo - 1] = 0;
        return std::make_unique<exacto<wchar_t>>(t.data(), t.size());
    }

    static const wchar_t *puntero(const std::unique_ptr<exacto<wchar_t>> &t) { return t ? t->get() : nullptr; }

    static void pon_esperado(void *campo, size_t num, const wchar_t *t)
    {
        size_t n = 0;
        wchar_t letra = 0;
        for (; t != nullptr && n < num - 1 && t[n] != 0; n++)
            memcpy(static_cast<uint8_t *>(campo) + n * 2, &t[n], 2);
        memcpy(static_cast<uint8_t *>(campo) + n * 2, &letra, 2);
    }

    void pon_resultado()
    {
        const uint32_t id = e.u8() % 2 == 0 ? canal->id_comando : e.u32();
        const uint32_t id_resultado = e.u32();
        const auto t1 = texto(), t2 = texto(), t3 = texto();
        iv_mcserv_t esperado = *canal;
        if (en_curso(id)) {
            esperado.id_resultado = id_resultado;
            pon_esperado(esperado.serv_buffer_64, 64, puntero(t1));
            pon_esperado(esperado.serv_buffer_256, 256, puntero(t2));
            pon_esperado(esperado.serv_buffer2_256, 256, puntero(t3));
        }
        const bool hay = en_curso(id);
        COMPRUEBA(iv_mcserv_pon_resultado(canal, id, id_resultado, puntero(t1), puntero(t2), puntero(t3)) ==
                  (hay ? CIERTO : FALSO));
        COMPRUEBA(memcmp(&esperado, canal, sizeof esperado) == 0);
    }

    void lee_datos_entrada()
    {
        const uint32_t id = e.u8() % 4 + 100;
        const uint32_t del_canal = canal->id_bloque_MCCom_entrada;
        const std::string nombre = nombre_de(id);
        const bool hay = sustituto::hay_mapa(nombre.c_str());
        comdat *c = iv_mcserv_lee_datos_entrada(SERVICIO, compartido, id);
        COMPRUEBA(canal->id_bloque_MCCom_entrada == 0);
        COMPRUEBA((c != nullptr) == (del_canal != 0 && hay));
        std::vector<std::string> primeros;
        if (del_canal != id)
            primeros.push_back(OTRO_BLOQUE);
        if (del_canal != 0 && !hay)
            primeros.push_back(SIN_BLOQUE);
        COMPRUEBA(sustituto::num_informes() >= primeros.size());
        for (size_t i = 0; i < primeros.size(); i++)
            COMPRUEBA(sustituto::informes()[i] == primeros[i]);
        if (c == nullptr)
            return;
        sustituto::olvida_informes();
        const bytes b(c->buffer, c->buffer + c->ocupado);
        modelo::comprueba_lectura(c, modelo::analiza(b));
        iv_comdat_destruye(c);
    }

    void notifica()
    {
        const uint32_t d[] = {e.u32(), e.u32(), e.u32()};
        char *nombre = iv_nombre_mutex_servicio_interno(SERVICIO);
        iv_mutex *mutex = iv_mutex_crea(nombre, FALSO);
        con_el_otro([&] { iv_mcserv_notifica(canal, mutex, d[0], d[1], d[2]); });
        COMPRUEBA(mutex->nivel_bloqueo == 0);
        iv_mutex_destruye(&mutex);
        iv_mem_libera(&nombre);
    }

    // Twice where the input says so: the second block stays open, deliberately.
    void guarda_datos()
    {
        const uint32_t id = iv_mcserv_siguiente_id_bloque(canal);
        COMPRUEBA(canal->id_bloque_MCCom_siguiente == id + 1);
        const std::string nombre = nombre_de(id);
        const bool habia = sustituto::hay_mapa(nombre.c_str());
        comdat *c = iv_comdat_crea_para_grabar(SERVICIO, CIERTO);
        iv_comdat_graba_cadena_unicode(c, "texto", puntero(texto()));
        iv_comdat_graba_ulong(c, "numero", e.u32());
        const int16_t guardado = iv_mcserv_guarda_datos(c, id);
        COMPRUEBA(guardado == CIERTO || habia);
        COMPRUEBA((c->shared_MCCom != nullptr) == (guardado == CIERTO));
        COMPRUEBA(guardado != CIERTO || memcmp(iv_shared_datos(c->shared_MCCom), c->buffer, c->ocupado) == 0);
        iv_comdat_destruye(c);
    }

    void vida_del_servidor()
    {
        const int16_t ya_existia = e.u8() % 2 == 0 ? CIERTO : FALSO;
        const uint32_t antes = canal->id_bloque_MCCom_siguiente;
        iv_mcserv_inicia(canal, e.u16(), ya_existia);
        COMPRUEBA(canal->id_bloque_MCCom_siguiente == (ya_existia == CIERTO && antes >= 100 ? antes : 100));
        iv_mcserv_servidor_listo(canal, reinterpret_cast<ivrexa_hwnd>(e.u64()), e.u32());
        COMPRUEBA(canal->estado_servidor == 1 && canal->servidor_terminado == 0);
        COMPRUEBA(canal->info_estadoComando == 0);
        if (e.u8() % 2 == 0)
            iv_mcserv_servidor_terminado(canal);
    }

    // ---- The client's side

    void ejecuta_comando()
    {
        sustituto::este_programa.es_cliente = e.u8() % 8 != 0;
        sustituto::este_programa.ind_datServ = e.u8() % 34;
        sustituto::este_programa.hwnd = reinterpret_cast<ivrexa_hwnd>(e.u64());
        const uint32_t id = e.u32(), id_bloque = e.u32();
        const uint16_t opciones = e.u8();
        if (canal != nullptr && (opciones & 0x80) != 0)
            canal->msg_servidor = 0xC000 | (canal->msg_servidor & 0x3FFF);
        const auto t1 = texto(), t2 = texto(), t3 = texto();
        wchar_t intacto[] = L"#";
        wchar_t *r1 = intacto, *r2 = intacto, *r3 = intacto;
        uint32_t id_resultado = 0xABCD, resultado = 0;
        con_el_otro([&] {
            resultado = iv_mcserv_ejecuta_comando(SERVICIO, id, opciones, id_bloque, puntero(t1), puntero(t2),
                                                  puntero(t3), &id_resultado, &r1, &r2, &r3);
        });
        comprueba_resultado(resultado, intacto, {{r1, 64}, {r2, 256}, {r3, 256}});
    }

    struct recibido {
        wchar_t *texto;
        uint32_t tam;
    };

    void comprueba_resultado(uint32_t resultado, const wchar_t *intacto, const std::vector<recibido> &textos)
    {
        if (!sustituto::este_programa.es_cliente || canal == nullptr) {
            COMPRUEBA(resultado == (sustituto::este_programa.es_cliente ? 0u : 3u));
            for (const recibido &r : textos)
                COMPRUEBA(r.texto == intacto);
            return;
        }
        COMPRUEBA(canal->id_comando == 0 && canal->id_bloque_MCCom_entrada == 0);
        COMPRUEBA(canal->ocupacion == 0 && canal->info_estadoComando == 0);
        for (recibido r : textos) {
            COMPRUEBA((r.texto != nullptr) == (resultado == 1));
            if (r.texto == nullptr)
                continue;
            COMPRUEBA(iv_mem_longitud_u(r.texto) < r.tam);
            iv_mem_libera_cadena_u(&r.texto);
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *datos, size_t tam)
{
    ejecucion(datos, tam).corre();
    return 0;
}
