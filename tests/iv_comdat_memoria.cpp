// Command data when the heap has no memory left: by raising, as Windows' does, and by NULL, as Wine's does.
#include <gtest/gtest.h>

#include <vector>

#include "comun/crudo.h"
#include "comun/importacion.h"
#include "comun/informes.h"
#include "comun/informes_modulo.h"
#include "comun/util.h"

#include "iv_comdat.h"
#include "iv_mem.h"
#include "iv_shared.h"

IMPORTACION(HeapAlloc);
IMPORTACION(HeapReAlloc);

namespace {

const uint32_t TAM_GRANDE = 100000; // only what is larger is refused
decltype(&HeapAlloc) s_HeapAlloc;

void *WINAPI niega_grandes(HANDLE heap, DWORD opciones, SIZE_T tam)
{
    return tam > TAM_GRANDE ? nullptr : s_HeapAlloc(heap, opciones, tam);
}

void *WINAPI niega_crecer(HANDLE, DWORD, void *, SIZE_T)
{
    return nullptr;
}

std::vector<SIZE_T> s_pedidos;

void *WINAPI niega_y_apunta(HANDLE, DWORD, void *, SIZE_T tam)
{
    s_pedidos.push_back(tam);
    return nullptr;
}

void *WINAPI lanza_al_crecer(HANDLE, DWORD, void *, SIZE_T)
{
    RaiseException(static_cast<DWORD>(STATUS_NO_MEMORY), 0, 0, nullptr);
    return nullptr;
}

std::vector<uint8_t> contenido(const comdat *c)
{
    uint32_t ocupado = 0;
    const uint8_t *datos = iv_comdat_contenido(c, &ocupado);
    return std::vector<uint8_t>(datos, datos + ocupado);
}

// CIERTO when an exception came out.
int16_t graba_y_atrapa(comdat *c, const void *datos, uint32_t tam)
{
    __try {
        iv_comdat_graba_buffer(c, "grande", datos, tam);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        return CIERTO;
    }
    return FALSO;
}

class iv_comdat_memoria : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_comdat = iv_comdat_crea_para_grabar("S", 1);
        iv_comdat_graba_byte(m_comdat, "a", 7);
        m_antes = contenido(m_comdat);
    }

    void TearDown() override { iv_comdat_destruye(m_comdat); }

    // As it was, and the next value is written behind it.
    void comprueba_intacto()
    {
        EXPECT_TRUE(bytes_iguales(m_antes, contenido(m_comdat)));
        iv_comdat_graba_byte(m_comdat, "b", 8);
        std::vector<uint8_t> esperado = m_antes;
        esperado[0] = 2;
        esperado.insert(esperado.end(), {1, 2, 'b', 0, 8});
        EXPECT_TRUE(bytes_iguales(esperado, contenido(m_comdat)));
    }

    comdat *m_comdat = nullptr;
    std::vector<uint8_t> m_antes;
    std::vector<uint8_t> m_grande = std::vector<uint8_t>(5000, 0x5a);
};

} // namespace

TEST_F(iv_comdat_memoria, valor_sin_sitio_se_informa_y_se_retira_entero)
{
    {
        importacion_cambiada<decltype(&HeapReAlloc)> cambio(__imp_HeapReAlloc, niega_crecer);
        EXPECT_EQ(graba_y_atrapa(m_comdat, m_grande.data(), 5000), FALSO);
    }

    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    comprueba_intacto();
}

TEST_F(iv_comdat_memoria, valor_por_el_que_el_heap_lanza_se_retira_entero)
{
    {
        importacion_cambiada<decltype(&HeapReAlloc)> cambio(__imp_HeapReAlloc, lanza_al_crecer);
        EXPECT_EQ(graba_y_atrapa(m_comdat, m_grande.data(), 5000), CIERTO);
    }

    comprueba_intacto();
}

// The largest size that 32 bits round down to. One byte more comes round to 0, and the heap is not asked.
TEST_F(iv_comdat_memoria, ultimo_tam_que_no_da_la_vuelta_se_pide_y_el_siguiente_se_informa)
{
    const uint32_t cabe = 0xFFFFFBFF - 9 - 13; // behind 9 bytes of before, 13 of type, name and length
    {
        importacion_cambiada<decltype(&HeapReAlloc)> cambio(__imp_HeapReAlloc, niega_y_apunta);
        EXPECT_EQ(graba_y_atrapa(m_comdat, m_grande.data(), cabe), FALSO);
        EXPECT_INFORME("iv_mem", "(memlocal) != 0");
        EXPECT_SIN_INFORMES();
        EXPECT_EQ(graba_y_atrapa(m_comdat, m_grande.data(), cabe + 1), FALSO);
        EXPECT_INFORME("iv_comdat", "nuevo_tam >= tam_minimo_nuevo");
        EXPECT_SIN_INFORMES();
    }

    EXPECT_EQ(s_pedidos, std::vector<SIZE_T>{0xFFFFFC00});
    comprueba_intacto();
}

TEST_F(iv_comdat_memoria, bloque_sin_sitio_para_su_copia_no_se_lee_y_se_suelta)
{
    const char *nombre = nombre_unico("bloque");
    bloque_crudo ajeno(nombre, 2 * TAM_GRANDE);
    iv_shared_bloque *bloque = iv_shared_abre(nombre);
    s_HeapAlloc = __imp_HeapAlloc;

    {
        importacion_cambiada<decltype(&HeapAlloc)> cambio(__imp_HeapAlloc, niega_grandes);
        EXPECT_EQ(iv_comdat_carga("S", 100, &bloque, 1), nullptr);
    }

    EXPECT_INFORME("iv_mem", "(memlocal) != 0");
    EXPECT_EQ(bloque, nullptr);
}
