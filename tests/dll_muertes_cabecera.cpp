// A program dies right after it made a block, before the block's header says how large it is. Where nobody met the
// block it goes with its maker. Where somebody did, it stays without a header for as long as any of those runs who
// met it: what they can then still do, and how that ends.
#include "muertes.h"

class sin_cabecera : public con_victima {
protected:
    // The victim stands still with the block that the line makes.
    void hace_un_bloque_y_se_para(const std::string &orden)
    {
        m_quieta = std::make_unique<parada>(victima());
        arma("bloque creado", 1, "PARA");
        victima().di(orden);
        m_quieta->espera();
    }

private:
    std::unique_ptr<parada> m_quieta;
};

static void manda(papel &cliente, const std::string &esperado)
{
    cliente.di("COMANDO 102");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", PLAZO_COMANDO_MS), esperado);
}

static uint32_t cabecera_de(const std::string &nombre)
{
    bloque_crudo bloque(nombre.c_str());
    EXPECT_TRUE(bloque.abierto()) << nombre;
    return bloque.abierto() ? bloque.cabecera() : 0xffffffff;
}

// Programs without a registry: servers with a window serve, those without one count as dead; nobody is told.
static void comprueba_vida_sin_registro(pareja &con_ventana)
{
    con_ventana.conversa();
    std::string mudo = nombre_unico("mudo");
    papel servidor = arranca_servidor("sin_ventana", mudo);
    papel cliente = arranca_cliente("sin_ventana", mudo);
    manda(cliente, "RESULTADO 3");
    EXPECT_EQ(cabecera_de("Ivrexa_MCB"), 0u);
}

TEST_F(sin_cabecera, registro_que_otro_vio_a_medias_falta_a_todos_hasta_que_acaban)
{
    arranca_victima("sin_ventana");
    hace_un_bloque_y_se_para("REGISTRA_CLIENTE " + std::string(nombre_unico("serv")));
    {
        pareja testigos("ventana", nombre_unico("serv"));
        testigos.conversa();
        victima().mata();
        comprueba_vida_sin_registro(testigos);
        pareja nuevos("ventana", nombre_unico("serv"));
        comprueba_vida_sin_registro(nuevos);
    }
    EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
    empieza_vecinos("sin_ventana");
    EXPECT_EQ(cabecera_de("Ivrexa_MCB"), 8886u);
    comprueba_supervivencia();
}

TEST_F(sin_cabecera, registro_que_nadie_vio_desaparece_con_quien_lo_hacia)
{
    for (const char *lugar : {"bloque creado", "bloque tam_datos"}) {
        SCOPED_TRACE(lugar);
        arranca_victima("sin_ventana");
        muere(lugar, 1, "REGISTRA_CLIENTE " + std::string(nombre_unico("serv")));
        EXPECT_FALSE(existe_bloque("Ivrexa_MCB"));
        comprueba_supervivencia();
    }
}

// Only that service is lost, and only until the programs have ended that met it: commands answer 0.
TEST_F(sin_cabecera, canal_que_otro_vio_a_medias_falta_a_su_servicio_hasta_que_acaban)
{
    empieza_vecinos();
    std::string servicio = nombre_unico("serv");
    arranca_victima("sin_ventana");
    haz("REGISTRA_CLIENTE " + std::string(nombre_unico("otro")), "SOLICITADO");
    hace_un_bloque_y_se_para("REGISTRA_CLIENTE " + servicio);
    {
        papel servidor = arranca_servidor("ventana", servicio);
        victima().mata();
        papel cliente = arranca_cliente("sin_ventana", servicio);
        manda(cliente, "RESULTADO 0");
        EXPECT_EQ(cabecera_de(nombre_canal(servicio)), 0u);
        comprueba_supervivencia();

        // A new server alone does not mend it.
        servidor.mata();
        servidor = arranca_servidor("ventana", servicio);
        manda(cliente, "RESULTADO 0");
    }
    EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
    pareja despues("ventana", servicio);
    despues.conversa();
}
