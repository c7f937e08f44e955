// Stored command data as a host sees it: its block, two processes that share it, what the monitor is told.
#include "dll_datos.h"

// ---- Storing

TEST_F(dll_datos, lo_guardado_son_los_bytes_del_formato_en_el_bloque_de_su_numero)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    const std::string canal = otro.canal(servicio, 117);
    contenedor c = entrada(servicio);
    graba_todos(c.get());
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 117u);

    auto [cabecera, contenido] = otro.mira(nombre_datos(servicio, 117), 133);
    EXPECT_EQ(cabecera, 132u);
    EXPECT_TRUE(bytes_iguales(de_hex(std::string(TODOS) + "00"), contenido));
    EXPECT_EQ(otro.u32(canal, 12), 118u);
    EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + servicio).c_str()));
    c.reset();
    EXPECT_FALSE(otro.hay(nombre_datos(servicio, 117))); // the container kept it alive
}

TEST_F(dll_datos, bloques_se_numeran_seguidos_y_por_servicio)
{
    const std::string uno = nombre_unico("S"), dos = nombre_unico("S");
    vecino otro;
    otro.canal(uno, 100);
    otro.canal(dos, 0xFFFFFFFF);
    contenedor a = entrada(uno), b = salida(uno), c = entrada(dos);
    EXPECT_EQ(ivrexa_guarda_datos(a.get()), 100u);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0xFFFFFFFFu);
    EXPECT_EQ(ivrexa_guarda_datos(b.get()), 101u);
    EXPECT_TRUE(otro.hay(nombre_datos(dos, 0xFFFFFFFF)));
}

TEST_F(dll_datos, guardar_copia_lo_grabado_hasta_entonces)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    ivrexa_graba_byte(c.get(), "b", 2);
    auto [cabecera, contenido] = otro.mira(nombre_datos(servicio, 100), 11);
    EXPECT_EQ(cabecera, 9u);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 01 0000"), contenido));
    EXPECT_EQ(ivrexa_numero_valores(c.get()), 2u);
}

TEST_F(dll_datos, guardar_mucho_llega_entero)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    bytes datos(100000);
    for (size_t i = 0; i < datos.size(); i++)
        datos[i] = static_cast<uint8_t>(i * 31 + i / 256);
    contenedor c = entrada(servicio);
    ivrexa_graba_buffer(c.get(), "a", datos.data(), 100000);
    contenedor l = lee(servicio, ivrexa_guarda_datos(c.get()));
    uint32_t tam = 0;
    const uint8_t *leidos = static_cast<const uint8_t *>(ivrexa_dame_buffer(l.get(), 0, &tam));
    ASSERT_EQ(tam, 100000u);
    EXPECT_TRUE(bytes_iguales(datos, bytes(leidos, leidos + tam)));
}

TEST_F(dll_datos, guardar_sin_canal_se_informa_y_da_0)
{
    const std::string servicio = nombre_unico("S");
    contenedor c = entrada(servicio);
    for (int vez = 0; vez < 2; vez++) {
        EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0u);
        EXPECT_INFORME("iv_reg", "existia_MCServ == CIERTO");
        EXPECT_SIN_INFORMES();
        EXPECT_FALSE(existe_bloque(nombre_canal(servicio).c_str()));
        EXPECT_FALSE(existe_mutex(("Mutex_Ivrexa_" + servicio).c_str()));
    }
    vecino otro; // nothing was attached: it can be stored later
    otro.canal(servicio);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
}

TEST_F(dll_datos, canal_menor_que_su_registro_es_como_ninguno)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_canal(servicio), 2377);
    otro.pon(nombre_canal(servicio), 12, 100);
    contenedor c = entrada(servicio);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0u);
    EXPECT_INFORME("iv_reg", "existia_MCServ == CIERTO");
    EXPECT_EQ(otro.u32(nombre_canal(servicio), 12), 100u);
}

TEST_F(dll_datos, guardar_dos_veces_se_informa_y_el_segundo_numero_vale)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    ivrexa_graba_byte(c.get(), "b", 2);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 101u);
    EXPECT_INFORME("iv_comdat", "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME("iv_comdat", "comdat->shared_MCCom == NULL");
    EXPECT_SIN_INFORMES();

    EXPECT_EQ(otro.mira(nombre_datos(servicio, 100), 9).first, 9u);
    EXPECT_EQ(otro.mira(nombre_datos(servicio, 101), 14).first, 14u);
    c.reset();
    EXPECT_FALSE(otro.hay(nombre_datos(servicio, 100))); // the first one was the container's
    EXPECT_TRUE(otro.hay(nombre_datos(servicio, 101)));
}

TEST_F(dll_datos, guardar_lo_que_se_lee_se_informa_y_se_guarda)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    otro.crea(nombre_datos(servicio, 50), 9, "01000000 01 02 6100 07");
    contenedor c = lee(servicio, 50);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    EXPECT_INFORME("iv_comdat", "comdat->id_bloque_MCCom == 0");
    EXPECT_INFORME("iv_comdat", "comdat->shared_MCCom == NULL");
    EXPECT_INFORME("iv_comdat", "comdat->tipo == iv_comdat_tipo_ESCRITURA");
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 07"), otro.mira(nombre_datos(servicio, 100), 9).second));
}

TEST_F(dll_datos, bloque_menor_que_otro_tiene_no_se_escribe_y_da_0)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    otro.crea(nombre_datos(servicio, 100), 8, "EEEEEEEEEEEEEEEE");
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 0u);
    EXPECT_INFORME("iv_comdat", "shared_MCCom != NULL && *shared_MCCom != NULL");
    EXPECT_SIN_INFORMES();
    EXPECT_TRUE(bytes_iguales(de_hex("EEEEEEEEEEEEEEEE 00"), otro.mira(nombre_datos(servicio, 100), 9).second));
    EXPECT_EQ(otro.u32(nombre_canal(servicio), 12), 101u);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 101u); // nothing was attached, and the number is used up
}

TEST_F(dll_datos, bloque_mayor_que_ya_habia_se_usa_con_su_cabecera)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    otro.crea(nombre_datos(servicio, 100), 12, "EEEEEEEEEEEEEEEEEEEEEEEE");
    contenedor c = entrada(servicio);
    ivrexa_graba_byte(c.get(), "a", 1);
    EXPECT_EQ(ivrexa_guarda_datos(c.get()), 100u);
    auto [cabecera, contenido] = otro.mira(nombre_datos(servicio, 100), 12);
    EXPECT_EQ(cabecera, 12u);
    EXPECT_TRUE(bytes_iguales(de_hex("01000000 01 02 6100 01 EEEEEE"), contenido));
    EXPECT_EQ(ivrexa_dame_byte(lee(servicio, 100).get(), 0), 1);
}

static DWORD WINAPI hilo_que_guarda(void *c)
{
    return ivrexa_guarda_datos(static_cast<comdat *>(c));
}

TEST_F(dll_datos, guardar_espera_al_mutex_del_servicio)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    const std::string canal = otro.canal(servicio);
    contenedor c = entrada(servicio);
    mutex_crudo mutex(("Mutex_Ivrexa_" + servicio).c_str(), mutex_crudo::modo::crea);
    ASSERT_TRUE(mutex.retiene());
    HANDLE hilo = CreateThread(nullptr, 0, hilo_que_guarda, c.get(), 0, nullptr);

    EXPECT_EQ(WaitForSingleObject(hilo, 200), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(otro.u32(canal, 12), 100u);
    mutex.suelta();
    EXPECT_EQ(WaitForSingleObject(hilo, 10000), WAIT_OBJECT_0);
    DWORD id = 0;
    GetExitCodeThread(hilo, &id);
    CloseHandle(hilo);
    EXPECT_EQ(id, 100u);
    EXPECT_EQ(otro.u32(canal, 12), 101u);
    EXPECT_TRUE(mutex.libre());
}

// ---- Two processes with the library

PAPEL(guarda)
{
    contenedor c = std::stoi(args.at(1)) == 1 ? entrada(args.at(0)) : salida(args.at(0));
    graba_todos(c.get());
    uint32_t id = ivrexa_guarda_datos(c.get());
    yo.di("LISTO");
    yo.di("ID " + std::to_string(id));
    yo.escucha_linea("DESTRUYE", 30000);
    c.reset();
    yo.di("DESTRUIDO");
    yo.escucha_linea("ACABA", 30000);
    ivrexa_cierra_sesion();
    return 0;
}

PAPEL(lee)
{
    contenedor c = lee(args.at(0), static_cast<uint32_t>(std::stoul(args.at(1))), 0);
    yo.di("LISTO");
    yo.di("LEIDO " + describe_todos(c.get()));
    c.reset();
    ivrexa_cierra_sesion();
    return 0;
}

TEST_F(dll_datos, un_proceso_lee_lo_que_otro_guarda)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio, 200);
    papel guardador = arranca_papel("guarda", {servicio, "1"});
    EXPECT_EQ(guardador.espera_linea("ID", 5000), "ID 200");
    contenedor c = lee(servicio, 200);
    guardador.di("DESTRUYE");
    guardador.espera_linea("DESTRUIDO", 5000);
    guardador.di("ACABA");
    EXPECT_EQ(guardador.espera_fin(10000), 0u);

    EXPECT_EQ(describe_todos(c.get()), DESCRIPCION);
    EXPECT_EQ(describe_todos(lee(servicio, 200).get()), DESCRIPCION); // whoever opened it keeps it
}

TEST_F(dll_datos, lo_que_guarda_uno_lo_lee_otro_proceso)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    contenedor c = salida(servicio);
    graba_todos(c.get());
    papel lector = arranca_papel("lee", {servicio, std::to_string(ivrexa_guarda_datos(c.get()))});
    EXPECT_EQ(lector.espera_linea("LEIDO", 5000), std::string("LEIDO ") + DESCRIPCION);
    EXPECT_EQ(lector.espera_fin(10000), 0u);
}

TEST_F(dll_datos, bloque_que_nadie_abrio_se_va_con_su_contenedor)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.canal(servicio);
    papel guardador = arranca_papel("guarda", {servicio, "0"});
    EXPECT_TRUE(existe_bloque(nombre_datos(servicio, 100).c_str()));
    guardador.di("DESTRUYE");
    guardador.espera_linea("DESTRUIDO", 5000);
    EXPECT_EQ(lee(servicio, 100, 0), nullptr);
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");
}

// ---- Activity records, read from a registry whose monitor is forged

namespace {

class registro_forjado {
public:
    registro_forjado()
    {
        m_crudo.pon_u16(0, 8886);
        m_crudo.pon_u16(2, 256);
        m_crudo.pon_u64(6, 0x7FFFFFF0); // no window's handle
        m_crudo.pon_u32(14, 0xC0DE);
        m_crudo.pon_u32(18, 1);
    }
    ~registro_forjado() { m_crudo.pon_u64(6, 0); }
    void pon_servicio(uint32_t ind, const std::string &servicio) { m_crudo.pon_texto(5814 + 96 * ind, servicio); }
    void quita_monitor() { m_crudo.pon_u64(6, 0); }
    uint32_t siguiente() const { return m_crudo.u32(18); }

    // "index dato1 dato2 program activity flag" of record n.
    std::string actividad(uint32_t n) const
    {
        size_t despl = 22 + (n - 1) * 22;
        std::string texto;
        for (size_t campo = 0; campo < 20; campo += 4)
            texto += std::to_string(m_crudo.u32(despl + campo)) + " ";
        return texto + std::to_string(m_crudo.u16(despl + 20));
    }

private:
    bloque_crudo m_crudo{"Ivrexa_MCB", 8886};
};

} // namespace

TEST_F(dll_datos, leer_se_anota_para_el_monitor)
{
    const std::string servicio = nombre_unico("S");
    vecino otro;
    otro.crea(nombre_datos(servicio, 345), 4, "00000000");
    registro_forjado registro;
    registro.pon_servicio(5, servicio);

    lee(servicio, 345, 1);
    lee(servicio, 345, 0);
    lee(servicio, 345, 2); // anything but 1 is output
    EXPECT_EQ(lee(servicio, 346, 1), nullptr);
    EXPECT_INFORME("ivrexa", "(shared_MCCom) != 0");

    EXPECT_EQ(registro.actividad(1), "5 0 345 0 3 1");
    EXPECT_EQ(registro.actividad(2), "5 0 345 1 4 1");
    EXPECT_EQ(registro.actividad(3), "5 0 345 1 4 1");
    EXPECT_EQ(registro.actividad(4), "5 0 346 0 3 1"); // noted before it is opened
    EXPECT_EQ(registro.siguiente(), 5u);
    registro.quita_monitor();
    lee(servicio, 345, 1);
    EXPECT_EQ(registro.siguiente(), 5u);
}

TEST_F(dll_datos, guardar_se_anota_para_el_monitor)
{
    const std::string servicio = nombre_unico("S"), sin_canal = nombre_unico("S");
    vecino otro;
    const std::string canal = otro.canal(servicio);
    otro.pon(canal, 1202, 777); // the command under way
    otro.crea(nombre_datos(servicio, 50), 4, "00000000");
    contenedor leida = lee(servicio, 50, 1), leida_salida = lee(servicio, 50, 0);
    registro_forjado registro;
    registro.pon_servicio(31, servicio);
    registro.pon_servicio(0, sin_canal);

    contenedor escrita = entrada(servicio), escrita_salida = salida(servicio), perdida = entrada(sin_canal);
    EXPECT_EQ(ivrexa_guarda_datos(escrita.get()), 100u);
    EXPECT_EQ(ivrexa_guarda_datos(escrita_salida.get()), 101u);
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(ivrexa_guarda_datos(leida.get()), 102u);
    EXPECT_EQ(ivrexa_guarda_datos(leida_salida.get()), 103u);
    for (int vez = 0; vez < 2; vez++) {
        EXPECT_INFORME("iv_comdat", "comdat->id_bloque_MCCom == 0");
        EXPECT_INFORME("iv_comdat", "comdat->shared_MCCom == NULL");
        EXPECT_INFORME("iv_comdat", "comdat->tipo == iv_comdat_tipo_ESCRITURA");
    }
    EXPECT_EQ(ivrexa_guarda_datos(perdida.get()), 0u);
    EXPECT_INFORME("iv_reg", "existia_MCServ == CIERTO");

    EXPECT_EQ(registro.actividad(1), "31 777 100 1 3 1");
    EXPECT_EQ(registro.actividad(2), "31 777 101 0 4 1");
    EXPECT_EQ(registro.actividad(3), "31 777 102 0 3 1");
    EXPECT_EQ(registro.actividad(4), "31 777 103 1 4 1");
    EXPECT_EQ(registro.actividad(5), "0 0 0 1 3 1");
    EXPECT_EQ(registro.siguiente(), 6u);
}
