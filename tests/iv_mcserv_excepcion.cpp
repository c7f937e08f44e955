// A client's command that an exception ends in the middle: of the heap, or of a window procedure of this very thread.
#include "iv_mcserv_apoyo.h"

#include "comun/monton.h"

namespace {

const DWORD CODIGO = 0xE0001234;

bool la_orden_acaba_en_excepcion(orden *o, const char *servicio)
{
    __try {
        o->ejecuta(servicio);
    } __except (GetExceptionCode() == CODIGO ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH) {
        return true;
    }
    return false;
}

void lanza()
{
    RaiseException(CODIGO, 0, 0, nullptr);
}

} // namespace

class iv_mcserv_excepcion : public iv_mcserv_orden {
protected:
    // Everything as after a command that went well, and the next one does.
    void comprueba_entero(size_t bloques_antes)
    {
        mutex_crudo servicio_ajeno(nombre_mutex(servicio).c_str());
        EXPECT_TRUE(servicio_ajeno.libre());
        comprueba_libre();
        EXPECT_EQ(mcb->u32(en_servicio(ind, S_EN_CURSO)), 0u);
        EXPECT_EQ(bloques_vivos(), bloques_antes);
        espia oido;
        orden otra;
        EXPECT_EQ(otra.ejecuta(servicio), 1u);
        comprueba_libre();
    }
};

TEST_F(iv_mcserv_excepcion, durante_el_mensaje_deja_el_canal_libre)
{
    registra_con_ventana();
    size_t antes = bloques_vivos();
    for (int vez = 0; vez < 20; vez++) {
        espia oido;
        oido.al_enviar = [&](const mensaje &) -> LRESULT {
            EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
            lanza();
            return 1;
        };
        orden o;
        o.id_entrada = 700;
        ASSERT_TRUE(la_orden_acaba_en_excepcion(&o, servicio));
    }
    comprueba_entero(antes);
}

TEST_F(iv_mcserv_excepcion, con_el_mutex_tomado_lo_suelta_con_el_canal)
{
    registra_con_ventana();
    size_t antes = bloques_vivos();
    {
        espia oido;
        oido.al_traer = [&] { // behind the answer, with site 17 held
            if (canal->u32(C_RESULTADO) == 1)
                lanza();
        };
        orden o;
        o.opciones = ivrexa_ventana_DEVUELVE_FOCO;
        ASSERT_TRUE(la_orden_acaba_en_excepcion(&o, servicio));
    }
    comprueba_entero(antes);
}

// Another's claim is not ours to take back.
TEST_F(iv_mcserv_excepcion, sin_haber_reclamado_deja_la_ocupacion_ajena)
{
    registra_con_ventana();
    size_t antes = bloques_vivos();
    canal->pon_u32(C_OCUPACION, 2);
    canal->pon_u16(C_TERMINADO, 1);
    {
        espia oido;
        oido.al_enviar = [&](const mensaje &) -> LRESULT {
            lanza();
            return 1;
        };
        orden o;
        ASSERT_TRUE(la_orden_acaba_en_excepcion(&o, servicio));
    }
    EXPECT_EQ(canal->u32(C_OCUPACION), 2u);
    canal->pon_u32(C_OCUPACION, 0);
    canal->pon_u16(C_TERMINADO, 0);
    comprueba_entero(antes);
}

// A real server without a window, in this very program: the receipt that it waits for comes all the same, and no
// report.
TEST_F(iv_mcserv_excepcion, servidor_sin_ventana_que_ha_ejecutado_recibe_su_acuse)
{
    static int s_ejecutados;
    s_ejecutados = 0;
    iv_reg_registra_servidor("C:\\uno.exe", nullptr, servicio, 1, CIERTO, nullptr,
                             [](const char *, uint32_t, comando *, void *) -> int32_t { return ++s_ejecutados, 1; });
    iv_reg_terminado_registro();
    iv_reg_registra_cliente("C:\\uno.exe", nullptr, servicio, nullptr);
    bloque_crudo canal_real(nombre_canal(servicio).c_str()), registro_real("Ivrexa_MCB");
    size_t latido = en_programa(s_programa->id_programa, P_CONTADOR_VIVO);
    ASSERT_TRUE(espera_hasta([&] { return registro_real.u32(latido) > 0; }, 10000));
    {
        espia oido;
        oido.al_traer = [] { lanza(); }; // behind the answer, with site 18 held
        orden o;
        o.opciones = ivrexa_ventana_DEVUELVE_FOCO;
        ASSERT_TRUE(la_orden_acaba_en_excepcion(&o, servicio));
    }
    EXPECT_EQ(s_ejecutados, 1);
    EXPECT_EQ(canal_real.u32(C_OCUPACION), 0u);
    EXPECT_EQ(canal_real.u32(C_ID_COMANDO), 0u);
    EXPECT_TRUE(espera_hasta([&] { return canal_real.u32(C_ESTADO_SERVIDOR) == 1; }, 5000));

    orden otra;
    EXPECT_EQ(otra.ejecuta(servicio), 1u);
    EXPECT_EQ(s_ejecutados, 2);
    EXPECT_SIN_INFORMES();
    for (wchar_t *texto : otra.salidas)
        iv_mem_libera_cadena_u(&texto);
    iv_reg_cierra_sesion();
}

// ---- A number that no registered message has

TEST_F(iv_mcserv_orden, mensaje_que_no_es_registrado_no_se_manda)
{
    registra_con_ventana();
    for (uint32_t msg : {1u, 0x0Du, 0x400u, 0x8001u, 0xBFFFu, 0x10000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(msg);
        espia oido;
        canal->pon_u32(C_MSG, msg);
        orden o;

        EXPECT_EQ(o.ejecuta(servicio), 0u);

        EXPECT_TRUE(oido.enviados.empty());
        comprueba_libre();
    }
    for (uint32_t msg : {0xC000u, 0xFFFFu}) {
        espia oido;
        canal->pon_u32(C_MSG, msg);
        orden o;
        EXPECT_EQ(o.ejecuta(servicio), 1u);
        ASSERT_EQ(oido.enviados.size(), 1u);
        EXPECT_EQ(oido.enviados[0].msg, msg);
    }
}
