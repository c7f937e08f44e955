// Any blocks of other programs, whatever their headers state and however large they are, and every operation
// on them.
#include "apoyo.h"
#include "iv_shared.h"

namespace {

using apoyo::entrada;

const uint32_t TAM_CABECERA = 4;
const uint32_t MAYOR_MAPA = 1u << 24; // the stand-in makes none larger
const uint32_t NUM_ESPERAS = 20;
const size_t MAX_ABIERTOS = 8;

const char SIN_VISTA[] = "iv_shared: sharedmem != NULL";
const char SIN_DATOS[] = "iv_shared: tam_datos > 0";
const char SIN_TAM[] = "iv_shared: tam_memcomp > 0";
const char SIN_TAM_MEMLOCAL[] = "iv_shared: tam_datos_memlocal > 0";
const char NO_EXISTIA[] = "iv_shared: ya_estaba_creado == CIERTO";
const char TAM_CERO[] = "iv_mem: tam > 0";
const char SIN_MEMORIA[] = "iv_mem: (memlocal) != 0";

const char *const NOMBRES[] = {"A", "B", "C", "Ivrexa_MCB_Serv_A_Com__comdat1"};

struct abierto {
    const char *nombre;
    iv_shared_bloque *bloque;
};

class ejecucion {
public:
    ejecucion(const uint8_t *datos, size_t tam) : e(datos, tam) {}

    void corre()
    {
        while (!e.vacia()) {
            un_paso();
            COMPRUEBA(sustituto::num_vistas() == abiertos.size());
            for (const char *nombre : NOMBRES)
                if (sustituto::hay_mapa(nombre))
                    sustituto::cerca_mapa(nombre);
        }
        for (abierto &a : abiertos)
            destruye(&a);
        apoyo::termina();
    }

private:
    entrada e;
    std::vector<abierto> abiertos;
    std::vector<std::string> mutexes;
    bool fallan = false;

    void un_paso()
    {
        const uint32_t op = e.u8() % 11;
        const char *nombre = NOMBRES[e.u8() % 4];
        switch (op) {
        case 0:
            return forja(nombre, e.u16() + 1u, e.u32());
        case 1:
            return cambia_cabecera(nombre, e.u32());
        case 2:
            return crea(nombre, e.u32());
        case 3:
            return crea_con_datos(nombre, e.u16());
        case 4:
            return abre(nombre);
        case 5:
            return abre_si_existe(nombre);
        case 6:
            COMPRUEBA((iv_shared_existe(nombre) == CIERTO) == sustituto::hay_mapa(nombre));
            return;
        case 7:
            return usa();
        case 8:
            return cierra();
        case 9:
            fallan = !fallan;
            return sustituto::fallan_vistas(fallan);
        default:
            return pon_mutex(nombre);
        }
    }

    // ---- The other program

    void forja(const char *nombre, uint32_t tam, uint32_t cabecera)
    {
        if (es_mutex(nombre) || sustituto::hay_mapa(nombre))
            return;
        memcpy(sustituto::pon_mapa(nombre, tam), &cabecera, sizeof cabecera);
    }

    void cambia_cabecera(const char *nombre, uint32_t cabecera)
    {
        if (sustituto::hay_mapa(nombre))
            memcpy(sustituto::pon_mapa(nombre, 1), &cabecera, sizeof cabecera);
    }

    void pon_mutex(const char *nombre)
    {
        if (sustituto::hay_mapa(nombre) || es_mutex(nombre))
            return;
        sustituto::pon_mutex(nombre);
        mutexes.push_back(nombre);
    }

    // ---- What must come of a call

    bool es_mutex(const std::string &nombre) const
    {
        for (const std::string &m : mutexes)
            if (m == nombre)
                return true;
        return false;
    }

    static uint32_t cabecera(const char *nombre)
    {
        uint32_t n;
        memcpy(&n, sustituto::pon_mapa(nombre, 1), sizeof n);
        return n;
    }

    static uint32_t legible(const char *nombre)
    {
        const uint32_t dice = cabecera(nombre), cabe = sustituto::tam_mapa(nombre) - TAM_CABECERA;
        return dice < cabe ? dice : cabe;
    }

    // Whether a mapping for so many bytes of data comes about. Adds the reports to those expected.
    bool se_mapea(const char *nombre, uint32_t tam, std::vector<std::string> *informes) const
    {
        const bool existe = sustituto::hay_mapa(nombre);
        if (es_mutex(nombre) || tam > UINT32_MAX - TAM_CABECERA)
            return false;
        if (!existe && tam + TAM_CABECERA > MAYOR_MAPA)
            return false;
        if (fallan)
            informes->push_back(SIN_VISTA);
        else if (!existe && tam == 0)
            informes->push_back(SIN_DATOS);
        return !fallan;
    }

    void recibe(iv_shared_bloque *bloque, const char *nombre, const char *tipo, bool esperado,
                const std::vector<std::string> &informes)
    {
        COMPRUEBA((bloque != nullptr) == esperado);
        COMPRUEBA(apoyo::informes_son(informes));
        if (bloque == nullptr)
            return;
        COMPRUEBA(strcmp(bloque->nombre, nombre) == 0 && strcmp(bloque->tipo, tipo) == 0);
        abiertos.push_back({nombre, bloque});
        if (abiertos.size() > MAX_ABIERTOS)
            cierra();
    }

    // ---- The library's calls

    void crea(const char *nombre, uint32_t tam)
    {
        std::vector<std::string> informes;
        if (tam == 0)
            informes.push_back(SIN_TAM);
        const bool existia = sustituto::hay_mapa(nombre);
        const uint32_t antes = existia ? cabecera(nombre) : tam;
        const bool sale = se_mapea(nombre, tam, &informes);
        int16_t ya_estaba = -1;
        iv_shared_bloque *bloque = iv_shared_crea(nombre, "tipo", tam, &ya_estaba);
        COMPRUEBA(ya_estaba == (existia && tam <= UINT32_MAX - TAM_CABECERA ? CIERTO : FALSO));
        COMPRUEBA(bloque == nullptr || cabecera(nombre) == antes);
        recibe(bloque, nombre, "tipo", sale, informes);
    }

    void crea_con_datos(const char *nombre, uint32_t tam)
    {
        std::vector<std::string> informes;
        if (tam == 0)
            informes.push_back(SIN_TAM_MEMLOCAL);
        const bool pequenyo = sustituto::hay_mapa(nombre) && legible(nombre) < tam;
        const bool sale = se_mapea(nombre, tam, &informes) && !pequenyo;
        const bytes patron(tam, static_cast<uint8_t>(tam | 1));
        apoyo::exacto<uint8_t> datos(patron.data(), patron.size());
        iv_shared_bloque *bloque = iv_shared_crea_con_datos(nombre, tam, datos.get());
        COMPRUEBA(bloque == nullptr || memcmp(iv_shared_datos(bloque), datos.get(), tam) == 0);
        recibe(bloque, nombre, "bloqueMC", sale, informes);
    }

    void abre(const char *nombre)
    {
        std::vector<std::string> informes;
        const bool existia = sustituto::hay_mapa(nombre);
        const bool sale = se_mapea(nombre, 0, &informes);
        if (sale && !existia)
            informes.push_back(NO_EXISTIA);
        recibe(iv_shared_abre(nombre), nombre, "bloqueMC", sale, informes);
    }

    void abre_si_existe(const char *nombre)
    {
        std::vector<std::string> informes;
        const bool existia = sustituto::hay_mapa(nombre);
        const bool sale = existia && se_mapea(nombre, 0, &informes);
        recibe(iv_shared_abre_si_existe(nombre), nombre, "bloqueMC", sale, informes);
        COMPRUEBA(sustituto::hay_mapa(nombre) == existia);
    }

    void usa()
    {
        if (abiertos.empty())
            return;
        const abierto &a = abiertos[e.u8() % abiertos.size()];
        const uint32_t tam = legible(a.nombre);
        COMPRUEBA(iv_shared_tam_datos(a.bloque) == tam);
        copia(a, tam);
        contiene(a, e.u32(), e.u8(), e.u32());
        uint8_t *datos = static_cast<uint8_t *>(iv_shared_datos(a.bloque));
        const uint32_t se_escribe = iv_shared_tam_datos(a.bloque);
        sustituto::cerca_mapa(a.nombre);
        if (se_escribe != 0)
            datos[0] = datos[se_escribe - 1] = 0xA5;
    }

    static void copia(const abierto &a, uint32_t tam)
    {
        uint32_t copiados = 1;
        uint8_t *local = static_cast<uint8_t *>(iv_shared_copia_local(a.bloque, &copiados));
        std::vector<std::string> informes;
        if (tam == 0)
            informes.push_back(TAM_CERO);
        const bool cabe = tam + 4 <= sustituto::LIMITE_RESERVA;
        if (!cabe)
            informes.push_back(SIN_MEMORIA);
        COMPRUEBA(apoyo::informes_son(informes));
        COMPRUEBA((local != nullptr) == cabe && copiados == (cabe ? tam : 0));
        if (!cabe)
            return;
        COMPRUEBA(memcmp(local, iv_shared_datos(a.bloque), tam) == 0);
        COMPRUEBA(memcmp(local + tam, "\0\0\0\0", 4) == 0);
        i_free(local);
    }

    // The header may be written late: in the wait number `cuando` the other program writes it.
    static void contiene(const abierto &a, uint32_t tam, uint32_t cuando, uint32_t nueva)
    {
        uint32_t esperas = 0;
        sustituto::al_dormir([&](uint32_t ms) {
            COMPRUEBA(ms == 1);
            if (esperas++ == cuando)
                memcpy(sustituto::pon_mapa(a.nombre, 1), &nueva, sizeof nueva);
            sustituto::cerca_mapa(a.nombre);
        });
        const bool cero = cabecera(a.nombre) == 0;
        const bool contiene = iv_shared_contiene(a.bloque, tam) == CIERTO;
        const bool escrita = cuando < NUM_ESPERAS && nueva != 0;
        COMPRUEBA(esperas == (!cero ? 0 : escrita ? cuando + 1 : NUM_ESPERAS));
        COMPRUEBA(contiene == (legible(a.nombre) >= tam));
        sustituto::al_dormir(nullptr);
    }

    static void destruye(abierto *a)
    {
        iv_shared_destruye(&a->bloque);
        COMPRUEBA(a->bloque == nullptr);
        iv_shared_destruye(&a->bloque);
        COMPRUEBA(sustituto::num_informes() == 0);
    }

    void cierra()
    {
        if (abiertos.empty())
            return;
        const size_t cual = e.u8() % abiertos.size();
        destruye(&abiertos[cual]);
        abiertos.erase(abiertos.begin() + static_cast<ptrdiff_t>(cual));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *datos, size_t tam)
{
    ejecucion(datos, tam).corre();
    return 0;
}
