// Content of gigabytes, for real. It takes the machine's memory and a while: CTest runs it while no other test runs.
#include "dll_limites_datos.h"

// The largest content that a container can come to hold, and what is left of it for the bytes of one buffer.
static const uint32_t TAM_MAXIMO = 0xfffffbff;
static const uint32_t CABEZA = 4 + 2 + 2 + 4;

class limites_enorme : public conversacion {
protected:
    // Nothing when there is memory and room on the disk that the blocks may lie on; else why the test cannot run.
    static std::string lo_que_falta(uint64_t memoria, uint64_t disco)
    {
        MEMORYSTATUSEX estado = {};
        estado.dwLength = sizeof estado;
        GlobalMemoryStatusEx(&estado);
        ULARGE_INTEGER libre = {};
        if (!GetDiskFreeSpaceExA("Z:\\tmp", &libre, nullptr, nullptr)) // where Wine's server keeps them
            libre.QuadPart = estado.ullAvailPageFile;
        const uint64_t MARGEN = 1ull << 30;
        if (estado.ullAvailPhys >= memoria + MARGEN && libre.QuadPart >= disco + MARGEN)
            return "";
        return "it takes " + en_mib(memoria + MARGEN) + " of memory, there are " + en_mib(estado.ullAvailPhys) +
               ", and " + en_mib(disco + MARGEN) + " of disk, there are " + en_mib(libre.QuadPart);
    }

private:
    static std::string en_mib(uint64_t bytes) { return std::to_string(bytes >> 20) + " MiB"; }
};

// Past the sign of 32 bits. Three copies: the container, the block, and the server's own.
TEST_F(limites_enorme, mas_de_2_gib_llegan_enteros_al_servidor)
{
    const uint32_t TAM = (2048u << 20) + 4096;
    std::string falta = lo_que_falta(3ull * TAM, TAM);
    if (!falta.empty())
        GTEST_SKIP() << falta;
    const std::string servicio = nombre_unico("serv");
    opciones_papel opciones;
    opciones.limite_s = 250;
    papel servidor = arranca_papel("servidor_de_datos", {"ventana", servicio}, opciones);
    registra(servicio);
    contenedor c = entrada_de(servicio);
    graba_muestra(c, 0, TAM);
    uint32_t id = ivrexa_guarda_datos(c.get());
    EXPECT_EQ(bloque_crudo(nombre_datos(servicio, id).c_str()).cabecera(), TAM + CABEZA);
    respuesta r = ejecuta(servicio, datos_COMPRUEBA, id);
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(a_utf8(r.t2), "1") << "what the server read";
    acaba(servidor);
}

// One copy. The container holds a kilobyte less than 4 GiB, and a byte more is refused.
TEST_F(limites_enorme, contenedor_se_llena_hasta_4_gib_menos_1_kib_y_no_mas)
{
    std::string falta = lo_que_falta(TAM_MAXIMO, 0);
    if (!falta.empty())
        GTEST_SKIP() << falta;
    contenedor c = entrada_de("S");
    bytes_de_muestra bytes(TAM_MAXIMO);
    ivrexa_graba_buffer(c.get(), "0", bytes.del_valor(0), TAM_MAXIMO - CABEZA + 1);
    EXPECT_INFORME("iv_comdat", "nuevo_tam >= tam_minimo_nuevo");
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 0u);
    ivrexa_graba_buffer(c.get(), "0", bytes.del_valor(0), TAM_MAXIMO - CABEZA);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 1u);

    // What is left of its last kilobyte is a byte: the smallest value takes four.
    ivrexa_graba_byte(c.get(), "", 7);
    EXPECT_INFORME("iv_comdat", "nuevo_tam >= tam_minimo_nuevo");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 1u);
}
