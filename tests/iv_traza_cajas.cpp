// Boxes of reports inside each other: what comes in while a box stands may report in turn.
#include <gtest/gtest.h>

#include <string>

#include "comun/informes_modulo.h"
#include "comun/traza_captura.h"

#include "iv_traza.h"

namespace {

const DWORD CODIGO = 0xE0001234;

int s_piden, s_cajas, s_lanza_en;

// A box in which the next report comes, until no more are asked for.
int WINAPI caja_que_informa(HWND, LPCSTR, LPCSTR, UINT)
{
    s_cajas++;
    if (s_cajas == s_lanza_en)
        RaiseException(CODIGO, 0, 0, nullptr);
    if (--s_piden > 0)
        iv_assert_mensaje(("caja " + std::to_string(s_piden)).c_str(), "prueba", 7);
    return IDOK;
}

int informa_anidado(int piden)
{
    s_piden = piden;
    s_cajas = 0;
    return iv_assert_mensaje("primera", "prueba", 7);
}

bool informa_y_lanza()
{
    __try {
        informa_anidado(100);
    } __except (GetExceptionCode() == CODIGO ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH) {
        return true;
    }
    return false;
}

DWORD WINAPI informa_en_otro_hilo(void *)
{
    int antes = s_cajas;
    iv_assert_mensaje("de otro hilo", "prueba", 7);
    return static_cast<DWORD>(s_cajas - antes);
}

} // namespace

TEST(iv_traza_cajas, diecisiete_una_dentro_de_otra_dejan_la_ultima_en_la_traza)
{
    activa_traza();
    captura_traza traza;
    ventana_cambiada ventana;
    ventana->MessageBoxA = caja_que_informa;

    EXPECT_EQ(informa_anidado(16), IDOK);
    EXPECT_EQ(s_cajas, 16);
    EXPECT_EQ(traza.texto(), "");

    informa_anidado(17);
    EXPECT_EQ(s_cajas, 16);
    EXPECT_EQ(traza.texto(), "Error in prueba - lin 7\n\nExpr: caja 1\n");
}

TEST(iv_traza_cajas, una_tras_otra_se_muestran_todas)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = caja_que_informa;
    for (int i = 0; i < 100; i++)
        ASSERT_EQ(informa_anidado(1), IDOK) << i;
    informa_anidado(16);
    EXPECT_EQ(s_cajas, 16);
}

TEST(iv_traza_cajas, otro_hilo_tiene_las_suyas)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = [](HWND, LPCSTR, LPCSTR, UINT) -> int {
        if (++s_cajas < 16)
            return iv_assert_mensaje("otra", "prueba", 7);
        DWORD suyas = 0;
        if (s_cajas == 16) {
            HANDLE hilo = CreateThread(nullptr, 0, informa_en_otro_hilo, nullptr, 0, nullptr);
            WaitForSingleObject(hilo, 10000);
            GetExitCodeThread(hilo, &suyas);
            CloseHandle(hilo);
            EXPECT_EQ(suyas, 1u);
        }
        return IDOK;
    };
    s_cajas = 0;
    iv_assert_mensaje("primera", "prueba", 7);
    EXPECT_EQ(s_cajas, 17);
}

TEST(iv_traza_cajas, excepcion_dentro_de_una_no_deja_ninguna_contada)
{
    ventana_cambiada ventana;
    ventana->MessageBoxA = caja_que_informa;
    for (int i = 0; i < 5; i++) {
        s_lanza_en = 10;
        ASSERT_TRUE(informa_y_lanza()) << i;
    }
    s_lanza_en = 0;
    informa_anidado(16);
    EXPECT_EQ(s_cajas, 16);
}
