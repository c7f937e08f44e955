// Any registry, as damaged as other programs may leave it, and any sequence of operations on it: each does to
// the block what the rules say and nothing else, posts what they say, and never leaves the block.
#include "iv_mcserv.h"
#include "modelo_registro.h"

namespace {

using apoyo::entrada;
using apoyo::exacto;

const uint64_t MI_VENTANA = 0x1234;

// What the monitor's functions were called with.
struct aviso_visto {
    uint32_t n_funcion, a, b, c;
};
std::vector<aviso_visto> s_avisos;
const iv_mcbase_t *s_registro = nullptr;

bool esta_viva(uint64_t hwnd)
{
    return (hwnd & 1) != 0;
}

void ve_actividad(uint32_t tipo_programa, uint32_t tipo_actividad, uint16_t indicador, const char *nombre_servicio,
                  uint32_t dato1, uint32_t dato2, void *externos)
{
    COMPRUEBA(externos == &s_avisos);
    const size_t desde_servicios = static_cast<size_t>(nombre_servicio - s_registro->servicios[0].nombre);
    COMPRUEBA(desde_servicios % sizeof(datServ) == 0 && desde_servicios / sizeof(datServ) < 32);
    const uint32_t ind_datServ = static_cast<uint32_t>(desde_servicios / sizeof(datServ));
    s_avisos.push_back({ind_datServ, tipo_programa ^ tipo_actividad, indicador, dato1 ^ dato2});
}

void ve_bucle(const iv_mcbase_t *mcbase, const datServ *servicio, uint32_t estado, void *externos)
{
    COMPRUEBA(externos == &s_avisos && mcbase == s_registro);
    COMPRUEBA(servicio >= mcbase->servicios && servicio < mcbase->servicios + 32);
    s_avisos.push_back({static_cast<uint32_t>(servicio - mcbase->servicios), estado, 0, 0});
}

class ejecucion {
public:
    ejecucion(const uint8_t *datos, size_t tam) : e(datos, tam)
    {
        const uint32_t tam_datos = sizeof(iv_mcbase_t);
        uint8_t *mapa = sustituto::pon_mapa("Ivrexa_MCB", tam_datos + 4);
        memcpy(mapa, &tam_datos, sizeof tam_datos);
        sustituto::cerca_mapa("Ivrexa_MCB");
        s_registro = reinterpret_cast<const iv_mcbase_t *>(mapa + 4);
        s_avisos.clear();
        sustituto::ventanas_vivas(esta_viva);
        bloque = reinterpret_cast<iv_mcbase_t *>(mapa + 4);
    }

    void corre()
    {
        while (!e.vacia()) {
            un_paso();
            COMPRUEBA(memcmp(bloque, &r.m, sizeof r.m) == 0);
            COMPRUEBA(apoyo::informes_son(r.informes));
            comprueba_mensajes();
            r.informes.clear();
        }
        quita_monitor();
        iv_mcbase_cierra();
        apoyo::termina();
    }

private:
    entrada e;
    modelo::registro r;
    iv_mcbase_t *bloque = nullptr;
    bool abierto = false;
    bool monitor = false;

    void un_paso()
    {
        switch (e.u8() % 16) {
        case 0:
        case 1:
            return parchea(e.u16() % sizeof(iv_mcbase_t), e.u8());
        case 2:
            return llena(e.u8());
        case 3:
            return con_registro([&](iv_mcbase_vista *v) { busca(v, e.texto()); });
        case 4:
            return con_registro([&](iv_mcbase_vista *v) {
                const std::string s = e.texto();
                COMPRUEBA(iv_mcbase_busca_o_anyade_servicio(e.u8(), v, s.c_str()) == r.busca_o_anyade(s));
            });
        case 5:
            return con_registro([&](iv_mcbase_vista *v) {
                const std::string s = e.texto();
                COMPRUEBA(iv_mcbase_quita_servicio(e.u8(), v, s.c_str()) == r.quita(s));
            });
        case 6:
            return busca_prefijo(e.texto());
        case 7:
        case 8:
            return anota();
        case 9:
            return registra_programa(e.u8() % 4, e.texto(), e.u64());
        case 10:
            return quita_programa(e.u16() % 18);
        case 11:
            return registra_en_servicio();
        case 12:
            return marca_comando(e.u8() % 34, e.u32(), e.u8() % 2 == 0);
        case 13:
            return rondas(e.u8() % 6, e.u8() % 34, e.u8() % 64 + 1u);
        case 14:
            return pon_o_quita_monitor();
        default:
            return recibe_aviso(e.u8() % 4, e.u32());
        }
    }

    // ---- The other programs

    void parchea(size_t donde, size_t num)
    {
        const bytes b = e.toma(num);
        const size_t n = b.size() < sizeof r.m - donde ? b.size() : sizeof r.m - donde;
        if (n == 0)
            return;
        memcpy(reinterpret_cast<uint8_t *>(&r.m) + donde, b.data(), n);
        memcpy(reinterpret_cast<uint8_t *>(bloque) + donde, b.data(), n);
    }

    // All entries taken; with an odd number names without an end.
    void llena(uint8_t como)
    {
        for (uint32_t i = 0; i < 32; i++) {
            memset(r.m.servicios[i].nombre, 'a' + static_cast<int>(i % 26), 64);
            if (como % 2 == 0)
                modelo::pon_texto(r.m.servicios[i].nombre, 64, "S" + std::to_string(i));
        }
        for (uint32_t i = 0; i < 16; i++)
            memset(r.m.programas[i].nombre, 'A' + static_cast<int>(i), 256);
        memcpy(bloque, &r.m, sizeof r.m);
    }

    // ---- The library

    // Its first use opens the registry, and counts only where it registers.
    void abre(bool registrando)
    {
        if (!abierto && registrando)
            r.m.num_registros++;
        abierto = true;
    }

    template <typename accion>
    void con_registro(accion que)
    {
        abre(false);
        iv_mcbase_acceso *acceso = iv_mcbase_bloquea(iv_tipo_CLIENTE, FALSO, iv_sitio_MCB_HAY_MONITOR);
        COMPRUEBA(acceso != nullptr && acceso->mcbase == bloque);
        que(acceso->mcbase);
        iv_mcbase_desbloquea(acceso, iv_sitio_MCB_HAY_MONITOR);
    }

    void busca(iv_mcbase_vista *v, const std::string &s)
    {
        exacto<char> servicio(s.c_str(), s.size() + 1);
        uint32_t libre = 99, esperado = 0;
        while (esperado < 32 && r.m.servicios[esperado].nombre[0] != '\0')
            esperado++;
        COMPRUEBA(iv_mcbase_busca_servicio(v, servicio.get(), &libre) == r.busca(s));
        COMPRUEBA(libre == esperado);
    }

    void busca_prefijo(const std::string &prefijo)
    {
        abre(false);
        const uint32_t i = r.busca_prefijo(prefijo);
        exacto<char> hallado(std::string(64, '#').data(), 64);
        const int16_t hay = iv_mcbase_hay_servicio_registrado_empiece_por(prefijo.c_str(), hallado.get());
        COMPRUEBA(hay == (i < 32 ? CIERTO : FALSO));
        if (i < 32)
            COMPRUEBA(hallado.get() == modelo::texto_de(r.m.servicios[i].nombre, 64));
        else
            COMPRUEBA(hallado.get()[0] == '#' && hallado.get()[63] == '#');
    }

    void anota()
    {
        abre(false);
        iv_mcbase_actividad_t a = {};
        a.tipo_programa = e.u8() % 3;
        a.tipo_actividad = e.u8() % 5;
        a.indicador = e.u8() % 3;
        a.dato1 = e.u32();
        a.dato2 = e.u32();
        const std::string s = e.texto();
        r.anota(a, s);
        iv_mcbase_anota_actividad(a.tipo_programa, a.tipo_actividad, static_cast<int16_t>(a.indicador), s.c_str(),
                                  a.dato1, a.dato2);
        COMPRUEBA(iv_mcbase_hay_monitor(0) == (r.hay_monitor() ? CIERTO : FALSO));
    }

    void registra_programa(uint32_t tipo, const std::string &nombre, uint64_t hwnd)
    {
        abre(true);
        const uint32_t id = r.registra_programa(tipo, nombre, hwnd, esta_viva);
        const ivrexa_hwnd ventana = reinterpret_cast<ivrexa_hwnd>(hwnd);
        COMPRUEBA(iv_mcbase_registra_programa(tipo, nombre.c_str(), ventana) == id);
    }

    void quita_programa(uint32_t id)
    {
        const bool habia = abierto;
        if (habia)
            r.quita_programa(id);
        iv_mcbase_quita_programa(static_cast<uint16_t>(id));
        if (habia && id < 16 && r.num_programas() == 0)
            abierto = false;
        COMPRUEBA((s_mcbase_acceso != nullptr) == abierto);
    }

    void registra_en_servicio()
    {
        const bool servidor = e.u8() % 2 == 0;
        const uint16_t id = e.u16() % 18;
        const std::string s = e.texto();
        uint32_t ind = 99;
        abre(!servidor);
        const uint32_t esperado = r.registra_en_servicio(servidor, id, s);
        if (servidor)
            iv_mcbase_registra_servidor_de_servicio(id, s.c_str(), &ind);
        else
            iv_mcbase_registra_cliente_de_servicio(id, s.c_str(), &ind);
        COMPRUEBA(ind == esperado);
    }

    void marca_comando(uint32_t ind, uint32_t id_comando, bool empieza)
    {
        if (ind < 32) {
            abre(false);
            r.m.servicios[ind].bucle_servidor_vivo_cliente = 0;
            r.m.servicios[ind].id_comando_en_curso = empieza ? id_comando : 0;
        }
        if (empieza)
            iv_mcbase_inicia_comando(ind, id_comando);
        else
            iv_mcbase_termina_comando(ind, id_comando);
    }

    void rondas(uint32_t cual, uint32_t ind, uint32_t num)
    {
        static int16_t (*const RONDAS[])(uint32_t,
                                         iv_mcserv_vista *) = {iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE,
                                                               iv_mcserv_CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO,
                                                               iv_mcserv_CLIENTE_ESPERA_ESTADO_SERVIDOR_TERMINADO,
                                                               iv_mcserv_CLIENTE_ESPERA_SERVIDOR_AVISADO,
                                                               iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO,
                                                               iv_mcserv_SERVIDOR_ESPERA_CLIENTE_RECIBA_RESULTADO};
        const bool servidor = cual >= 4;
        if (ind < 32)
            abre(false);
        for (uint32_t i = 0; i < num; i++) {
            iv_mcserv_t canal = {};
            canal.estado_servidor = 2;
            const bool acaba = r.ronda(servidor, ind, servidor ? cual - 3 : cual + 1);
            COMPRUEBA(RONDAS[cual](ind, &canal) == (acaba ? CIERTO : FALSO));
            const bool termina = acaba && ind < 32 && !servidor;
            COMPRUEBA(canal.servidor_terminado == (termina ? 1 : 0));
            COMPRUEBA(canal.estado_servidor == (termina ? 0u : 2u));
        }
    }

    // ---- The monitor

    void pon_o_quita_monitor()
    {
        if (monitor)
            return quita_monitor();
        abre(true);
        iv_mcbase_registra_monitor(reinterpret_cast<ivrexa_hwnd>(MI_VENTANA), ve_actividad, ve_bucle, ve_bucle,
                                   &s_avisos);
        monitor = true;
        r.m.tam_bloque = 8886;
        r.m.version = 256;
        r.m.hwnd_monitor = MI_VENTANA;
        r.m.msg_monitor = s_programa_monitor->msg_monitor;
        r.m.num_actividad_siguiente = 1;
        for (iv_mcbase_actividad_t &a : r.m.actividades) {
            a.ind_datServ = 32;
            a.dato1 = a.dato2 = a.tipo_actividad = 0;
        }
        for (datServ &s : r.m.servicios)
            s.nombre[0] = '\0';
    }

    void quita_monitor()
    {
        if (!monitor)
            return;
        monitor = false;
        r.m.hwnd_monitor = 0;
        abierto = false;
        iv_mcbase_acceso *olvidado = iv_mcbase_abre(iv_tipo_MONITOR, FALSO);
        const bool quedan = r.num_programas() != 0;
        iv_mcbase_quita_monitor();
        COMPRUEBA(s_mcbase_acceso == nullptr);
        if (!quedan)
            return;
        // Deliberately let go of with all that it holds.
        iv_mutex_destruye(&olvidado->mutex);
        iv_shared_destruye(&olvidado->bloque);
        iv_mem_libera(&olvidado);
    }

    void recibe_aviso(uint32_t que, uint32_t dato)
    {
        if (!monitor || !abierto)
            return;
        s_avisos.clear();
        iv_mcbase_proc_monitor(NULL, s_programa_monitor->msg_monitor, que, static_cast<LPARAM>(dato));
        std::vector<aviso_visto> esperados;
        if (que == 0 && dato >= 1 && dato <= 64 && r.m.actividades[dato - 1].ind_datServ < 32) {
            const iv_mcbase_actividad_t &a = r.m.actividades[dato - 1];
            esperados.push_back({a.ind_datServ, a.tipo_programa ^ a.tipo_actividad, a.indicador, a.dato1 ^ a.dato2});
        }
        if ((que == 1 || que == 2) && (dato & 0xFFFF) < 32)
            esperados.push_back({dato & 0xFFFF, dato >> 16, 0, 0});
        COMPRUEBA(s_avisos.size() == esperados.size());
        if (!esperados.empty())
            COMPRUEBA(memcmp(s_avisos.data(), esperados.data(), sizeof esperados[0]) == 0);
    }

    void comprueba_mensajes()
    {
        const std::vector<sustituto::mensaje> &vistos = sustituto::mensajes();
        COMPRUEBA(vistos.size() == r.mensajes.size());
        for (size_t i = 0; i < vistos.size(); i++) {
            const sustituto::mensaje &visto = vistos[i], &esperado = r.mensajes[i];
            COMPRUEBA(visto.hwnd == esperado.hwnd && visto.msg == esperado.msg);
            COMPRUEBA(visto.wparam == esperado.wparam && visto.lparam == esperado.lparam);
        }
        sustituto::olvida_mensajes();
        r.mensajes.clear();
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *datos, size_t tam)
{
    ejecucion(datos, tam).corre();
    return 0;
}
