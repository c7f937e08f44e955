// ctl_doctor_servicios.cpp - ivrexactl doctor: the table of services, the channels, the mailboxes and the command data.
#include <algorithm>

#include "doctor_apoyo.h"

// ---- Roles

static DWORD WINAPI notifica(void *)
{
    ivrexa_notifica_a_cliente(anfitrion_yo.servicios[0], 200, 7, 0);
    return 0;
}

PAPEL(avisador)
{
    return anfitrion_servidor_que("ventana", args[0].c_str(), [](const char *linea) {
        if (strcmp(linea, "AVISA") != 0)
            return anfitrion_obedece(linea);
        CloseHandle(CreateThread(nullptr, 0, notifica, nullptr, 0, nullptr));
        papel_c_di("AVISA");
        return 1;
    });
}

static void al_actuar(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {}

static void al_rondar(const iv_mcbase_t *, const datServ *, uint32_t, void *) {}

PAPEL(vigia)
{
    anfitrion_nace(1);
    ivrexa_registra_monitor(anfitrion_yo.hwnd, al_actuar, al_rondar, al_rondar, nullptr);
    papel_c_di("LISTO");
    anfitrion_vive(anfitrion_obedece_cliente);
    return 0;
}

class doctor_de_servidores : public doctor, public ::testing::WithParamInterface<const char *> {
protected:
    bool de_ventana() const { return std::string(GetParam()) != "sin_ventana"; }
};

INSTANTIATE_TEST_SUITE_P(servidor, doctor_de_servidores, ::testing::ValuesIn(CLASES_SERVIDOR),
                         [](const auto &dato) { return std::string(dato.param); });

// ---- Servers

TEST_P(doctor_de_servidores, servidor_que_murio_deja_su_servicio)
{
    papel servidor = arranca_servidor(GetParam(), servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    espera_sano(true);
    servidor.mata();
    diagnostico d = espera_hallazgos({"dead-entry", "service-abandoned"}, 1, true);
    comprueba_dice(d, "service-abandoned",
                   {servicio, ruta_de(servidor), de_ventana() ? "gives 0 at once" : "gives 3 after about 3 s",
                    "Start the server again"});
}

TEST_P(doctor_de_servidores, servidor_que_cerro_y_cliente_que_llego_despues)
{
    papel servidor = arranca_servidor(GetParam(), servicio);
    papel antes = arranca_cliente("sin_ventana", servicio);
    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    espera_sano(true); // a service that has ended, and its client
    papel despues = arranca_cliente("sin_ventana", servicio);
    diagnostico d = espera_hallazgos({"service-ended"}, 0, false);
    comprueba_dice(d, "service-ended", {servicio, "Start the server"});
}

TEST_P(doctor_de_servidores, monitor_que_vacio_la_tabla)
{
    papel servidor = arranca_servidor(GetParam(), servicio);
    papel monitor = arranca_papel("vigia");
    diagnostico d = espera_hallazgos({"channel-unlisted"}, 0, true);
    comprueba_dice(d, "channel-unlisted",
                   {servicio, ruta_de(servidor), "emptied the table", "ivrexa_terminado_registro again"});
    servidor.di("PUBLICA");
    servidor.espera_linea("PUBLICADO", 5000);
    espera_sano(true);
}

// ---- The table of services

TEST_F(doctor, entradas_de_servicio_estropeadas)
{
    const std::string otro = nombre_unico("otro");
    papel servidor = arranca_servidor("ventana", servicio), ajeno = arranca_servidor("ventana", otro);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    size_t suyo = despl_servicio(registro, servicio);
    uint16_t id_cliente = static_cast<uint16_t>(id_de(registro, cliente)),
             id_ajeno = static_cast<uint16_t>(id_de(registro, ajeno));
    std::vector<uint8_t> copia = registro.bytes(suyo, 96);
    comprueba_danyos(
        &registro,
        {{"server 20", suyo + 64, bytes16(20), "service-server", 1, "program 20"},
         {"server 16", suyo + 64, bytes16(16), "service-server", 1, "found no place"},
         {"server free", suyo + 64, bytes16(11), "service-server", 1, "is free"},
         {"server a client", suyo + 64, bytes16(id_cliente), "service-server", 1, "is no server"},
         {"server another", suyo + 64, bytes16(id_ajeno), "service-wrong-server", 0, "another window"},
         {"client 20", suyo + 66, bytes16(20), "service-client", 1, "program 20"},
         {"client 16", suyo + 66, bytes16(16), "service-client", 0, "found no place"},
         {"server's loop", suyo + 68, bytes32(3), "service-loop", 1, "3 and 0"},
         {"client's loop", suyo + 84, bytes32(5), "service-loop", 1, "0 and 5"},
         {"twice", 5814 + 20 * 96, copia, "service-twice", 1, "twice, as"},
         {"name left", 5814 + 20 * 96, bytes_de_texto("nadie la ofrece"), "service-no-channel", 0, "nadie"}});
    retoque sin_fin(&registro, 5814 + 20 * 96, std::vector<uint8_t>(64, 'y'));
    EXPECT_EQ(llama_al_doctor(false).ids(), (std::set<std::string>{"service-name", "service-no-channel"}));
}

TEST_F(doctor, servidor_sin_ventana_que_la_tabla_confunde)
{
    const std::string otro = nombre_unico("otro");
    papel servidor = arranca_servidor("sin_ventana", servicio), ajeno = arranca_servidor("ventana", otro);
    bloque_crudo registro("Ivrexa_MCB");
    size_t suyo = despl_servicio(registro, servicio);
    {
        retoque mal(&registro, suyo + 64, bytes16(static_cast<uint16_t>(id_de(registro, ajeno))));
        espera_hallazgos({"service-wrong-server"}, 1, false);
    }
    espera_sano(false);
    retoque libre(&registro, suyo + 64, bytes16(11));
    diagnostico d = espera_hallazgos({"service-server", "service-waits-unnamed"}, 1, false);
    comprueba_dice(d, "service-waits-unnamed", {"A server waits", "never moves"});
}

TEST_F(doctor, nombre_de_servicio_cortado)
{
    const std::string largo = servicio + std::string(70 - servicio.size(), 'z');
    papel cliente = arranca_cliente("sin_ventana", largo);
    diagnostico d = espera_hallazgos({"service-name-cut", "service-no-channel"}, 1, false);
    comprueba_dice(d, "service-name-cut", {largo, "63 characters or fewer"});
}

TEST_F(doctor, tabla_de_servicios_llena_y_casi_llena)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB");
    for (auto [hasta, codigo, dice] :
         {std::tuple<size_t, uint32_t, const char *>{29, 0u, "29 of 32"}, {32, 1u, "32 of 32"}}) {
        for (size_t i = 1; i < hasta; i++)
            registro.pon_texto(5814 + i * 96, "s" + std::to_string(i));
        comprueba_dice(espera_hallazgos({"services-full", "service-no-channel"}, codigo, false), "services-full",
                       {dice});
    }
    registro.pon_u16(5814 + 31 * 96, 0);
    for (size_t i = 28; i < 32; i++)
        registro.pon_u16(5814 + i * 96, 0);
    espera_hallazgos({"service-no-channel"}, 0, false);
}

// ---- Clients that died

TEST_P(doctor_de_servidores, cliente_que_murio_en_un_comando_y_como_se_libera)
{
    papel servidor = arranca_servidor(GetParam(), servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    espera_latido(ruta_de(cliente));
    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    diagnostico d = llama_al_doctor(true);
    std::set<std::string> ids = d.ids();
    ids.erase("program-hung"); // a window takes no messages for long enough when the machine is slow
    EXPECT_EQ(ids, std::set<std::string>{"service-busy"}) << d.en_texto(); // under way, with a client that waits
    EXPECT_EQ(d.codigo, 0u) << d.en_texto();
    cliente.mata();
    d = llama_al_doctor(true);
    EXPECT_EQ(d.ids().count("service-claimed"), 1u) << d.en_texto();
    comprueba_dice(d, "service-claimed", {servicio, "command 103", ruta_de(cliente), "while a call waits"});
    EXPECT_EQ(d.codigo, 1u);

    servidor.di("SIGUE");
    papel otro = arranca_cliente("sin_ventana", servicio);
    otro.di("COMANDO 121");
    servidor.di("CIERRA");
    otro.espera_linea("RESULTADO ", 20000);
    servidor.espera_linea("CERRADO", 20000);
    d = llama_al_doctor(true);
    EXPECT_EQ(d.ids().count("service-claimed"), 0u) << d.en_texto();
}

TEST_F(doctor, cliente_con_ventana_que_murio_en_un_comando_se_ve_sin_esperar)
{
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("ventana", servicio);
    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    espera_sano(false);
    cliente.mata();
    diagnostico d = espera_hallazgos({"service-claimed", "program-window-gone"}, 1, false);
    comprueba_dice(d, "service-claimed", {"is gone", "ivrexactl end"});
}

TEST_F(doctor, comando_anotado_sin_cliente_y_espera_de_quien_la_tabla_no_nombra)
{
    papel servidor = arranca_servidor("sin_ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    bloque_crudo registro("Ivrexa_MCB"), canal(nombre_canal(servicio).c_str());
    size_t suyo = despl_servicio(registro, servicio);
    servidor.suspende(); // it would end over the note
    registro.pon_u16(suyo + 66, 11);
    espera_sano(false);
    registro.pon_u32(suyo + 80, 130);
    diagnostico d = espera_hallazgos({"service-command"}, 1, false);
    comprueba_dice(d, "service-command", {"Command 130", "may end itself", "Let a client register"});
    canal.pon_u32(1198, 2);
    cliente.di("COMANDO 121");
    mutex_crudo cerrojo(("Mutex_Ivrexa_" + servicio).c_str());
    servidor.mata(); // its lock is free then, and the client waits for its turn
    EXPECT_TRUE(espera_hasta([&] { return registro.u32(suyo + 84) == 1; }, 5000));
    d = llama_al_doctor(false);
    EXPECT_EQ(d.ids().count("service-waits-unnamed"), 1u) << d.en_texto();
    comprueba_dice(d, "service-waits-unnamed", {"A client waits"});
}

// ---- Channels

TEST_F(doctor, canales_estropeados)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    uint32_t mensaje = canal.u32(24);
    comprueba_danyos(&canal, {{"tam_bloque", 0, bytes16(9), "channel-version", 1, "tam_bloque is 9"},
                              {"command", 4, bytes32(6), "channel-state", 1, "info_estadoComando 6"},
                              {"server", 30, bytes32(4), "channel-state", 1, "estado_servidor 4"},
                              {"claim", 1198, bytes32(3), "channel-state", 1, "ocupacion 3"},
                              {"mailbox", 2362, bytes32(4), "channel-state", 1, "estado_notificacion 4"},
                              {"text", 38, std::vector<uint8_t>(128, 'x'), "channel-text", 0, "1 of its six"},
                              {"counter", 12, bytes32(3), "channel-counter", 1, "they begin at 100"},
                              {"window", 16, bytes32(0x7ffffff0), "channel-server-window", 1, "gives 0 at once"},
                              {"message", 24, bytes32(mensaje + 1), "channel-message", 1, "do not reach its server"},
                              {"input", 1206, bytes32(777), "channel-input", 1, "data block 777"}});
    canal.pon_cabecera(3000);
    espera_hallazgos({"channel-size"}, 0, false);
    canal.pon_cabecera(100);
    comprueba_dice(espera_hallazgos({"channel-size"}, 1, false), "channel-size", {"100 bytes"});
    canal.pon_cabecera(1000000);
    espera_hallazgos({"channel-size", "channel-header"}, 1, false);
    canal.pon_cabecera(2378);
    espera_sano(false);
}

// ---- The mailbox

TEST_F(doctor, notificacion_que_nadie_toma)
{
    papel servidor = arranca_papel("avisador", {servicio});
    papel cliente = arranca_cliente("ventana", servicio);
    espera_sano(true);
    cliente.mata();
    servidor.di("AVISA");
    servidor.espera_linea("AVISA", 5000);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(2362) == 1; }, 5000));
    diagnostico d = espera_hallazgos({"dead-entry", "mailbox-held"}, 1, true);
    comprueba_dice(d, "mailbox-held", {"client 200", "waits behind it", "ivrexa_procesada_notificacion"});
    canal.pon_u32(2362, 2);
    comprueba_dice(espera_hallazgos({"dead-entry", "mailbox-held"}, 1, true), "mailbox-held",
                   {"waits for its receipt"});
}

TEST_F(doctor, notificacion_de_un_servidor_que_murio)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    canal.pon_u32(2362, 3);
    diagnostico d = espera_hallazgos({"mailbox-held"}, 1, true);
    comprueba_dice(d, "mailbox-held", {"no server clears it", "every program that uses it has ended"});
    canal.pon_u32(2362, 1);
    canal.pon_u32(2374, 999);
    comprueba_dice(espera_hallazgos({"mailbox-data"}, 1, false), "mailbox-data", {"data block 999"});
}

// ---- Command data

// A block that holds these bytes, as whoever has it open keeps it.
static bloque_crudo crea_datos(const std::string &servicio, uint32_t id, const std::vector<uint8_t> &bytes)
{
    bloque_crudo b(nombre_datos(servicio, id).c_str(), static_cast<uint32_t>(std::max<size_t>(bytes.size(), 4)));
    b.pon_bytes(0, bytes);
    return b;
}

TEST_F(doctor, datos_de_comando_estropeados)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    canal.pon_u32(12, 110);
    bloque_crudo bueno = crea_datos(servicio, 100, {1, 0, 0, 0, 1, 2, 'b', 0, 9});
    bloque_crudo anchos = crea_datos(servicio, 101, {1, 0, 0, 0, 10, 2, 'w', 0, 0, 0, 0, 0});
    espera_sano(false);
    {
        bloque_crudo malo = crea_datos(servicio, 102, {1, 0, 0, 0, 77, 2, 'b', 0, 9});
        comprueba_dice(espera_hallazgos({"data-content"}, 1, false), "data-content", {"data block 102", "type 77"});
    }
    {
        bloque_crudo corto = crea_datos(servicio, 103, {2, 0, 0, 0, 1, 2, 'b', 0, 9});
        espera_hallazgos({"data-content"}, 1, false);
    }
    {
        bloque_crudo nada = crea_datos(servicio, 104, {0, 0, 0, 0});
        nada.pon_cabecera(0);
        comprueba_dice(espera_hallazgos({"data-size"}, 1, false), "data-size", {"states no bytes"});
        nada.pon_cabecera(1000000);
        comprueba_dice(espera_hallazgos({"data-size"}, 1, false), "data-size", {"1,000,000"});
    }
    {
        bloque_crudo pronto = crea_datos(servicio, 110, {0, 0, 0, 0});
        comprueba_dice(espera_hallazgos({"data-ahead"}, 1, false), "data-ahead", {"data block 110", "earlier life"});
    }
    espera_sano(false);
}

TEST_F(doctor, datos_de_un_servicio_que_ya_no_hay)
{
    bloque_crudo uno = crea_datos(servicio, 100, {0, 0, 0, 0}), otro = crea_datos(servicio, 104, {0, 0, 0, 0});
    diagnostico d = espera_hallazgos({"data-orphaned"}, 0, false);
    comprueba_dice(d, "data-orphaned", {servicio, "2 blocks, from 100 to 104"});
}

TEST_F(doctor, muchos_datos_de_comando)
{
    papel servidor = arranca_servidor("ventana", servicio);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    canal.pon_u32(12, 2000);
    std::vector<bloque_crudo> todos;
    for (uint32_t i = 0; i < 1000; i++)
        todos.push_back(crea_datos(servicio, 100 + i, {0, 0, 0, 0}));
    espera_sano(false);
    todos.push_back(crea_datos(servicio, 1100, {0, 0, 0, 0}));
    comprueba_dice(espera_hallazgos({"data-many"}, 0, false), "data-many", {"1,001 blocks", "weeks"});
}
