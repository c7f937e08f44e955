// What goes wrong on one side, and what the other then sees: programs that die, functions that raise.
#include <stdexcept>

#include "dll_conversa.h"

enum : uint32_t {
    ACCESO = 200,
    EXCEPCION_SISTEMA = 201,
    EXCEPCION_CPP = 202,
    TRAS_GUARDAR = 203,     // its output has been stored, and destroyed
    EN_LA_BIBLIOTECA = 204, // a bad pointer, met by the library's own code
};

// The ways in which a command function may fail to return.
static int32_t revienta(anfitrion_peticion *p)
{
    ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, 5, L"no", L"debe", L"llegar");
    if (p->id_comando == TRAS_GUARDAR) {
        p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
        ivrexa_guarda_datos(p->salida);
        ivrexa_destruye_datos_comando(p->salida);
    }
    if (p->id_comando == EN_LA_BIBLIOTECA)
        ivrexa_graba_buffer(ivrexa_crea_datos_comando_salida(p->servicio), "b", reinterpret_cast<void *>(16), 100);
    if (p->id_comando == EXCEPCION_SISTEMA)
        RaiseException(0xe0001234, 0, 0, nullptr);
    if (p->id_comando == EXCEPCION_CPP)
        throw std::runtime_error("the host's own");
    // cppcheck-suppress nullPointer  // the crash is what is tested
    *reinterpret_cast<volatile int *>(p->id_comando - p->id_comando) = 1;
    return 1;
}

PAPEL(servidor_que_revienta)
{
    anfitrion_yo.otros = revienta;
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

using fallos = conversacion;

// ---- Exceptions

TEST_F(fallos, excepcion_en_un_servidor_sin_ventana_da_3_y_el_siguiente_comando_va)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_papel("servidor_que_revienta", {"sin_ventana", servicio});
    registra(servicio);
    espera_latido(ruta());
    uint32_t ids_gastados = 0;
    for (uint32_t id : {ACCESO, EXCEPCION_SISTEMA, EXCEPCION_CPP, TRAS_GUARDAR, EN_LA_BIBLIOTECA}) {
        SCOPED_TRACE(id);
        entrada_muestra entrada(servicio, 0);
        EXPECT_EQ(entrada.id(), 100 + ids_gastados);
        respuesta r = ejecuta(servicio, id, entrada.id(), L"t");
        EXPECT_EQ(r.resultado, 3u);
        EXPECT_EQ(r.id_salida, 0xaaaaaaaau);
        EXPECT_EQ(r.t1 + r.t2 + r.t3, L"");
        ids_gastados += id == TRAS_GUARDAR ? 2 : 1;
    }
    EXPECT_TRUE(mutex_crudo("ivrexa_iv_mem").libre());

    entrada_muestra entrada(servicio, 3);
    respuesta r = ejecuta(servicio, 100, entrada.id(), L"ab");
    EXPECT_EQ(r.resultado, 1u);
    EXPECT_EQ(r.t1, L"ba");
    EXPECT_EQ(servidor.espera_linea("ENTRADA ", 5000), "ENTRADA " + muestra_descrita(3));
    acaba(servidor);
}

// ---- A server that dies

// The rounds that this thread has made in one wait, as its trace tells them.
static uint32_t cuenta_rondas(const captura_traza &traza, const std::string &estado)
{
    std::string texto = traza.texto(), linea = "BUCLE " + estado + "\n";
    uint32_t num = 0;
    for (size_t i = texto.find(linea); i != std::string::npos; i = texto.find(linea, i + 1))
        num++;
    return num;
}

// How the client learns its rounds: from its own trace, in a process of its own, where it is on from the start.
PAPEL(cliente_que_cuenta)
{
    activa_traza();
    captura_traza traza;
    std::string servicio = args[0];
    ivrexa_registra_cliente_de_servicio("cliente_que_cuenta", nullptr, servicio.c_str());
    espera_latido("cliente_que_cuenta");
    yo.di("LISTO");
    yo.escucha_linea("MANDA", 60000);
    respuesta r = ejecuta(servicio, static_cast<uint32_t>(atoi(args[1].c_str())), 0, L"t");
    yo.di("RESULTADO " + std::to_string(r.resultado) + "|" + std::to_string(r.id_salida) + "|" + a_utf8(r.t1));
    yo.di("RONDAS " + std::to_string(cuenta_rondas(traza, "CLIENTE_ESPERA_SERVIDOR_EJECUTE_COMANDO")));
    ivrexa_cierra_sesion();
    return 0;
}

static void comprueba_canal_libre(const std::string &servicio)
{
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u32(4), 0u) << "info_estadoComando";
    EXPECT_EQ(canal.u32(1198), 0u) << "ocupacion";
    EXPECT_EQ(canal.u32(1202), 0u) << "id_comando";
    EXPECT_EQ(canal.u32(1206), 0u) << "id_bloque_MCCom_entrada";
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u32(despl_servicio(registro, servicio) + 80), 0u) << "id_comando_en_curso";
}

// A dead server is found by its heartbeat alone, in the 26th round of a wait that it did not beat in.
TEST_F(fallos, servidor_muerto_antes_del_comando_da_3_tras_26_rondas_justas)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("sin_ventana", servicio);
    papel cliente = arranca_papel("cliente_que_cuenta", {servicio, "100"});
    bloque_crudo canal(nombre_canal(servicio).c_str());
    servidor.mata();
    EXPECT_EQ(canal.u16(28), 0u);
    cliente.di("MANDA");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 15000), "RESULTADO 3|2863311530|");
    EXPECT_EQ(cliente.espera_linea("RONDAS ", 5000), "RONDAS 26");
    EXPECT_EQ(canal.u16(28), 1u) << "servidor_terminado, set by the client";
    EXPECT_EQ(canal.u32(30), 0u);
    comprueba_canal_libre(servicio);
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}

TEST_F(fallos, servidor_que_muere_con_el_comando_en_marcha_da_3_tras_26_rondas_o_mas)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("sin_ventana", servicio, true);
    papel cliente = arranca_papel("cliente_que_cuenta", {servicio, "103"});
    // A heartbeat within the wait would keep the client waiting for good: the next one is 2 s away.
    espera_latido_nuevo(ruta_de(servidor));
    uint32_t latido = latido_de(ruta_de(servidor));
    cliente.di("MANDA");
    servidor.espera_linea("DENTRO", 10000);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_EQ(canal.u32(4), 2u);
    EXPECT_EQ(canal.u32(30), 2u);
    servidor.mata();
    ASSERT_EQ(latido_de(ruta_de(servidor)), latido) << "the machine was too slow for this test";

    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 15000), "RESULTADO 3|2863311530|");
    std::string rondas = cliente.espera_linea("RONDAS ", 5000);
    EXPECT_GE(atoi(rondas.c_str() + 7), 26);
    EXPECT_EQ(canal.u16(28), 1u);
    comprueba_canal_libre(servicio);
    EXPECT_EQ(cliente.espera_fin(10000), 0u);
}

// SendMessage comes back by itself when the other thread dies, with 0.
TEST_F(fallos, servidor_con_ventana_que_muere_en_el_comando_da_lo_que_diga_el_sistema)
{
    for (const char *clase : {"ventana", "net"}) {
        std::string servicio = nombre_unico("serv");
        papel servidor = arranca_servidor(clase, servicio);
        papel cliente = arranca_cliente("sin_ventana", servicio, true);
        cliente.di("COMANDO 103");
        servidor.espera_linea("DENTRO", 10000);
        servidor.mata();
        EXPECT_EQ(cliente.espera_linea("RESULTADO ", 10000), "RESULTADO 0");
        comprueba_canal_libre(servicio);
        acaba(cliente);
    }
}

// A server that closed said so: nothing is waited for.
TEST_F(fallos, comando_a_un_servidor_cerrado_da_3_sin_contar_latidos)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("sin_ventana", servicio);
    registra(servicio);
    espera_latido(ruta());
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    uint64_t antes = GetTickCount64();
    EXPECT_EQ(ejecuta(servicio, 100).resultado, 3u);
    EXPECT_LT(GetTickCount64() - antes, 2000u);
    comprueba_canal_libre(servicio);
}

// ---- A client that dies

// Killed while its command runs: the server waits 26 rounds for the receipt, goes on, and ends the service after as
// many more, because the registry still shows a command under way.
TEST_F(fallos, cliente_que_muere_no_deja_al_servidor_esperando)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("sin_ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio, true);
    espera_latido(ruta_de(cliente));
    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    cliente.mata();
    servidor.di("SIGUE");

    bloque_crudo canal(nombre_canal(servicio).c_str());
    bloque_crudo registro("Ivrexa_MCB");
    size_t despl = despl_servicio(registro, servicio);
    uint32_t vueltas = 0;
    EXPECT_TRUE(espera_hasta(
        [&] {
            if (registro.u32(despl + 68) == 2)
                vueltas = registro.u32(despl + 72);
            return canal.u32(4) == 5;
        },
        10000));
    EXPECT_EQ(vueltas, 25u);
    EXPECT_EQ(canal.u16(28), 0u) << "the service goes on";
    EXPECT_EQ(registro.u32(despl + 80), 103u);

    servidor.di("ESPERA");
    servidor.espera_linea("ESPERADO", 10000);
    EXPECT_EQ(registro.u32(despl + 68), 1u);
    EXPECT_EQ(registro.u32(despl + 72), 25u);
    EXPECT_EQ(canal.u16(28), 1u);
    EXPECT_EQ(canal.u32(30), 0u);
    acaba(servidor);
}

// A client that died between commands is not missed.
TEST_F(fallos, cliente_muerto_entre_comandos_no_estorba_al_siguiente)
{
    std::string servicio = nombre_unico("serv");
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("ventana", servicio, true);
    cliente.di("ECO 0");
    cliente.espera_linea("SALIDA ", 10000);
    cliente.mata();
    registra(servicio);
    EXPECT_EQ(ejecuta(servicio, 100, 0, L"ab").t1, L"ba");
}
