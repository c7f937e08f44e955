// Registry and channel blocks that a foreign program made before the library: too small, with a header that lies, or of
// a kind that cannot be written.
#include "dll_mentiras.h"

static const char *const SIETE = "RESULTADO 7|0|0|0|0";
static const char *const CERO = "RESULTADO 0|0|0|0|0";

class bloques : public ::testing::TestWithParam<const char *> {
protected:
    const std::string clase = GetParam();
    const std::string servicio = nombre_unico("bloque"), otro = servicio + "b";
};
INSTANTIATE_TEST_SUITE_P(servidor, bloques, ::testing::Values("ventana", "sin_ventana", "net"),
                         [](const auto &dato) { return std::string(dato.param); });

// The service whose channel is 10 bytes is lost; the server's other one is not.
TEST_P(bloques, canal_demasiado_pequenyo_no_toca_al_otro_servicio)
{
    bloque_crudo pequenyo(nombre_canal(servicio).c_str(), 10);
    pequenyo.pon_bytes(10, std::vector<uint8_t>(4096 - 14, 0x77)); // behind its 10 bytes, in the same page
    const std::vector<uint8_t> antes = pequenyo.bytes(0, 4092);
    papel servidor = arranca_servidor(clase, servicio + "," + otro);
    if (clase == "net")
        EXPECT_INFORME_DE(servidor, "iv_reg", "procesaComandoExterno != NULL"); // of any second service
    papel perdido = arranca_victima("sin_ventana", servicio), cliente = arranca_victima("sin_ventana", otro);
    espera_latido(cliente);
    EXPECT_EQ(manda(perdido, 127), CERO);
    EXPECT_EQ(pide(perdido, "HAY", "HAY "), "HAY 0 0");
    EXPECT_EQ(pide(perdido, "TERMINA", "TERMINADO"), "TERMINADO");
    EXPECT_EQ(pide(perdido, "GUARDA 5", "GUARDADO "), "GUARDADO 0");
    EXPECT_INFORME_DE(perdido, "iv_reg", "existia_MCServ == CIERTO");
    EXPECT_EQ(manda(cliente, 127), SIETE);
    EXPECT_TRUE(bytes_iguales(antes, pequenyo.bytes(0, 4092)));
    acaba(perdido);
    acaba(cliente);
    acaba(servidor);
}

// A header that changes later is read by whoever opens the channel anew, and by nobody who has it open.
TEST_P(bloques, cabecera_del_canal_que_miente_cuenta_solo_al_abrirlo)
{
    papel servidor = arranca_servidor(clase, servicio), cliente = arranca_victima("sin_ventana", servicio);
    espera_latido(cliente);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    for (uint32_t tam : {0u, 3u, 2377u}) {
        SCOPED_TRACE(tam);
        canal.pon_cabecera(tam);
        EXPECT_EQ(manda(cliente, 127), CERO);
        EXPECT_EQ(pide(cliente, "HAY", "HAY "), "HAY 0 0");
    }
    for (uint32_t tam : {0xffffffffu, 0xfffffffcu, 4093u, 2378u}) {
        SCOPED_TRACE(tam);
        canal.pon_cabecera(tam);
        EXPECT_EQ(manda(cliente, 127), SIETE);
    }
    acaba(cliente);
    acaba(servidor);
}

// Programs without a registry: the road by messages needs none; a thread that waits for commands does.
TEST_P(bloques, registro_demasiado_pequenyo_no_detiene_el_camino_por_mensajes)
{
    bloque_crudo pequenyo("Ivrexa_MCB", 100);
    ASSERT_FALSE(pequenyo.ya_existia()) << "another program has the registry";
    pequenyo.pon_bytes(100, std::vector<uint8_t>(4096 - 104, 0x77));
    const std::vector<uint8_t> antes = pequenyo.bytes(0, 4092);
    papel servidor = arranca_servidor(clase, servicio), cliente = arranca_victima("ventana", servicio);
    papel monitor = arranca_papel("vigia");
    bloque_crudo canal(nombre_canal(servicio).c_str());
    if (clase == "sin_ventana") {
        EXPECT_TRUE(espera_hasta([&] { return canal.u16(28) == 1 && canal.u32(30) == 0; }, PLAZO_MS));
        EXPECT_EQ(manda(cliente, 127), "RESULTADO 3|0|0|0|0");
    } else {
        EXPECT_EQ(manda(cliente, 127), SIETE);
    }
    EXPECT_EQ(pide(cliente, "EMPIEZA ", "EMPIEZA "), "EMPIEZA 0 0");
    EXPECT_EQ(pide(monitor, "CUENTA", "CUENTA "), "CUENTA 0 0 0");
    EXPECT_TRUE(bytes_iguales(antes, pequenyo.bytes(0, 4092)));
    acaba(monitor);
    acaba(cliente);
    acaba(servidor);
}

// A name may stand for an image of a program, which is mapped for reading alone: it counts as a block that could not be
// opened, as a view that the system refuses does.
TEST(bloques_ajenos, imagen_en_lugar_del_canal_no_acaba_con_nadie)
{
    std::string servicio = nombre_unico("imagen"), otro = servicio + "b";
    char ruta[MAX_PATH];
    GetSystemDirectoryA(ruta, sizeof ruta);
    HANDLE fichero = CreateFileA((std::string(ruta) + "\\user32.dll").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                 OPEN_EXISTING, 0, nullptr);
    HANDLE imagen =
        CreateFileMappingA(fichero, nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, nombre_canal(servicio).c_str());
    ASSERT_NE(imagen, nullptr);
    papel servidor = arranca_servidor("ventana", otro), cliente = arranca_victima("sin_ventana", servicio);
    cliente.di("COMANDO 127 0");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", PLAZO_MS), CERO);
    papel segundo = arranca_victima("sin_ventana", otro);
    EXPECT_EQ(manda(segundo, 127), SIETE);
    toma_informes(cliente); // a view that could not be had may be reported
    if (cliente.vive())
        acaba(cliente);
    else
        EXPECT_EQ(cliente.espera_fin(0), 0u) << "the client crashed";
    acaba(segundo);
    acaba(servidor);
    CloseHandle(imagen);
    CloseHandle(fichero);
}
