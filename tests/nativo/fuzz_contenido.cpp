// Any bytes as the content of a block of command data, as a peer may leave it: read by every reader.
#include "modelo_comdat.h"
#include "iv_nombre.h"

namespace {

const size_t RESERVA_FIJA = 256;    // what a container takes whatever it reads
const size_t RESERVA_POR_BYTE = 16; // an index entry for each two bytes

// A block that another program made, with this content and this statement of its size.
iv_shared_bloque *bloque_de(const bytes &b, uint32_t tam_declarado)
{
    uint8_t *mapa = sustituto::pon_mapa("C", static_cast<uint32_t>(b.size() + sizeof tam_declarado));
    memcpy(mapa, &tam_declarado, sizeof tam_declarado);
    if (!b.empty())
        memcpy(mapa + sizeof tam_declarado, b.data(), b.size());
    sustituto::cerca_mapa("C");
    return iv_shared_abre_si_existe("C");
}

comdat *carga(const bytes &b)
{
    iv_shared_bloque *bloque = bloque_de(b, static_cast<uint32_t>(b.size()));
    sustituto::olvida_informes();
    comdat *c = iv_comdat_carga("S", 7, &bloque, CIERTO);
    COMPRUEBA(bloque == nullptr);
    return c;
}

// What a host writes into a container that it was given to read goes nowhere else.
void escribe_en_lectura(comdat *c)
{
    const uint8_t *buffer = c->buffer;
    const uint32_t ocupado = c->ocupado;
    iv_comdat_graba_ulong(c, "n", 0xFFFFFFFF);
    iv_comdat_graba_cadena_unicode(c, "texto", L"ancho");
    const char *textos[] = {"a", nullptr, ""};
    iv_comdat_graba_arr_cadenas_ansi(c, "", textos, 3);
    iv_comdat_graba_buffer(c, "b", textos, sizeof textos);
    COMPRUEBA(c->buffer == buffer && c->ocupado == ocupado && c->tam == ocupado && c->offset <= ocupado);
}

void lee_todo(const bytes &b)
{
    const modelo::contenido m = modelo::analiza(b);
    comdat *c = carga(b);
    const size_t informes_vacio = b.empty() ? 1 : 0; // of the copy: "tam > 0"
    COMPRUEBA(sustituto::num_informes() == m.num_informes + informes_vacio);
    sustituto::olvida_informes();
    COMPRUEBA(sustituto::num_bytes() <= RESERVA_FIJA + b.size() * (RESERVA_POR_BYTE + 1));

    size_t num_tablas = modelo::comprueba_lectura(c, m);
    num_tablas += modelo::comprueba_lectura(c, m); // twice: a table read again replaces the first
    COMPRUEBA(sustituto::num_bytes() <= RESERVA_FIJA + b.size() * (RESERVA_POR_BYTE + 1 + 2 * 10));
    size_t num_vivas = 0;
    for (uint32_t i = 0; i < c->num_indexados; i++)
        num_vivas += c->valores[i].tabla_cadenas != nullptr ? 1 : 0;
    iv_comdat_destruye(c);
    apoyo::termina(num_tablas - num_vivas); // the replaced ones stay, deliberately
}

void lee_lo_escrito_encima(const bytes &b)
{
    comdat *c = carga(b);
    escribe_en_lectura(c);
    modelo::comprueba_limites(c);
    iv_comdat_destruye(c);
    apoyo::termina();
}

// A heap that refuses all that the content may make large.
void lee_sin_memoria(const bytes &b)
{
    iv_shared_bloque *bloque = bloque_de(b, static_cast<uint32_t>(b.size()));
    sustituto::limita_reservas(RESERVA_FIJA);
    comdat *c = iv_comdat_carga("S", 7, &bloque, FALSO);
    COMPRUEBA(bloque == nullptr && (c != nullptr) == (b.size() + 4 <= RESERVA_FIJA));
    if (c != nullptr) {
        modelo::comprueba_limites(c);
        iv_comdat_destruye(c);
    }
    apoyo::termina();
}

// A header that states more than there is.
void lee_con_cabecera_falsa(const bytes &b)
{
    iv_shared_bloque *bloque = bloque_de(b, UINT32_MAX - static_cast<uint32_t>(b.size() % 7));
    comdat *c = iv_comdat_carga("S", 7, &bloque, FALSO);
    COMPRUEBA(c->ocupado == sustituto::tam_mapa("C") - 4);
    modelo::comprueba_limites(c);
    iv_comdat_destruye(c);
    apoyo::termina();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *datos, size_t tam)
{
    const bytes b(datos, datos + tam);
    lee_todo(b);
    lee_lo_escrito_encima(b);
    lee_sin_memoria(b);
    lee_con_cabecera_falsa(b);
    return 0;
}
