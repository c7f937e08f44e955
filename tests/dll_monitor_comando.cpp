// Commands as the monitor sees them, from the announcement of the service to its close: every activity in its
// order with all its data, and every round of a side that waits.
#include <algorithm>

#include "dll_monitor.h"

// The kind of a round is its side and its state: "C2", "S1". Anything else is what it says.
static std::string clase_de(const std::string &linea)
{
    unsigned wparam = 0, lparam = 0;
    if (sscanf(linea.c_str(), "CRUDO %u %u", &wparam, &lparam) != 2 || wparam == 0)
        return linea;
    return (wparam == 1 ? "C" : wparam == 2 ? "S" : "?") + std::to_string(lparam >> 16);
}

// What was said, in its order: rounds by their kind, activities by their lines.
static std::vector<std::string> resumen(const std::vector<std::string> &lineas)
{
    std::vector<std::string> clases;
    for (const std::string &linea : lineas) {
        bool es_actividad = linea.compare(0, 4, "ACT ") == 0;
        if (es_actividad || (linea.compare(0, 6, "CRUDO ") == 0 && linea.compare(0, 8, "CRUDO 0 ") != 0))
            clases.push_back(clase_de(linea));
    }
    return clases;
}

static std::vector<std::string> sin_repetidos(std::vector<std::string> clases)
{
    clases.erase(std::unique(clases.begin(), clases.end()), clases.end());
    return clases;
}

static std::string raya_de(uint32_t ind, const char *lado, const std::string &servicio, uint32_t estado)
{
    return std::string("BUCLE ") + lado + " " + std::to_string(ind) + " \"" + servicio + "\" " +
           std::to_string(estado) + " ";
}

// Where the first and the last of the rounds of these kinds stand; first > last: there are none.
struct tramo {
    size_t primero = SIZE_MAX, ultimo = 0;
};

static tramo tramo_de(const std::vector<std::string> &clases, const std::vector<std::string> &cuales)
{
    tramo t;
    for (size_t i = 0; i < clases.size(); i++) {
        if (std::find(cuales.begin(), cuales.end(), clases[i]) == cuales.end())
            continue;
        t.primero = std::min(t.primero, i);
        t.ultimo = i;
    }
    return t;
}

// Of one command on a server without a window. While the two sides are at work on it the server waits for no
// other command; the client's waits follow each other; none of it happens outside the command.
static void comprueba_rondas(const std::vector<std::string> &clases, const std::string &empieza,
                             const std::string &acaba)
{
    tramo mando = tramo_de(clases, {empieza, acaba});
    tramo c2 = tramo_de(clases, {"C2"}), c4 = tramo_de(clases, {"C4"}), s2 = tramo_de(clases, {"S2"});
    ASSERT_LT(mando.primero, mando.ultimo);
    ASSERT_LE(c2.primero, c2.ultimo) << "a client waits one round at least";
    for (const tramo &t : {c2, c4, s2}) {
        if (t.primero > t.ultimo)
            continue;
        EXPECT_GT(t.primero, mando.primero);
        EXPECT_LT(t.ultimo, mando.ultimo);
    }
    if (c4.primero <= c4.ultimo) {
        EXPECT_GT(c4.primero, c2.ultimo);
    }
    tramo juntos = tramo_de(clases, {"C2", "C4", "S2"});
    for (size_t i = juntos.primero; i <= juntos.ultimo; i++)
        EXPECT_NE(clases[i], "S1") << i;
    for (const std::string &clase : clases)
        EXPECT_TRUE(clase != "C1" && clase != "C3") << clase;
}

// ---- One command, whole

class comando_visto : public con_cada_servidor {
protected:
    // Rounds come only where a server has no window, and of the right entry.
    void oye(vigia *v, const std::vector<suceso> &sucesos, lugar donde = lugar::aqui())
    {
        ::testing::ScopedTrace traza(donde.fichero, donde.linea, "");
        if (clase != "sin_ventana") {
            v->oye_solo(sucesos, donde);
            return;
        }
        std::vector<std::string> lineas = v->oye(sucesos, donde), clases = resumen(lineas);
        for (const std::string &linea : las_que_empiezan(lineas, "CRUDO "))
            EXPECT_TRUE(linea.compare(0, 8, "CRUDO 0 ") == 0 || (std::stoul(linea.substr(8)) & 0xFFFF) == 0) << linea;
        EXPECT_EQ(las_que_empiezan(lineas, "BUCLE ").size(), clases.size() - sucesos.size());
        if (sucesos.size() >= 2 && sucesos.front().tipo_actividad == 2)
            comprueba_rondas(clases, linea_de(sucesos.front()), linea_de(sucesos.back()));
    }
};
CON_CADA_SERVIDOR(comando_visto);

TEST_P(comando_visto, con_datos_de_entrada_y_de_salida)
{
    vigia v;
    papel servidor = arranca_servidor(clase, servicio);
    oye(&v, {{0, 1, 1, servicio, 0, 0}});
    registra_para(clase, servicio);
    oye(&v, {});

    uint32_t id_entrada;
    {
        entrada_muestra entrada(servicio, 1);
        id_entrada = entrada.id();
        oye(&v, {{1, 3, 1, servicio, 0, 100}});
        EXPECT_EQ(ejecuta(servicio, 100, id_entrada, L"ab").id_salida, 101u);
        oye(&v, {{1, 2, 1, servicio, 100, 100},
                 {0, 3, 1, servicio, 0, 100},
                 {0, 4, 1, servicio, 100, 101},
                 {1, 2, 0, servicio, 100, 100}});
        comdat *salida = ivrexa_lee_datos(servicio.c_str(), 101, FALSO);
        oye(&v, {{1, 4, 1, servicio, 0, 101}});
        EXPECT_EQ(describe(salida), muestra_descrita(1));
        ivrexa_destruye_datos_comando(salida);
    }
    oye(&v, {});

    servidor.di("CIERRA");
    servidor.espera_linea("CERRADO", 10000);
    oye(&v, {{0, 1, 0, "", 0, 0}});
    EXPECT_EQ(v.dicho(), std::vector<std::string>{}) << "nobody waits any more";
    acaba(servidor);
}

TEST_P(comando_visto, de_dos_procesos_mas)
{
    vigia v;
    papel servidor = arranca_servidor(clase, servicio);
    papel cliente = arranca_cliente("ventana", servicio);
    if (clase == "sin_ventana")
        espera_latido(ruta_de(cliente));
    oye(&v, {{0, 1, 1, servicio, 0, 0}});
    cliente.di("ECO 2");
    cliente.espera_linea("SALIDA ", 15000);
    const suceso empieza = {1, 2, 1, servicio, 100, 100}, acaba_el_comando = {1, 2, 0, servicio, 100, 100};
    const suceso abre = {0, 3, 1, servicio, 0, 100}, contesta = {0, 4, 1, servicio, 100, 101};
    std::vector<std::string> clases = resumen(
        v.oye({{1, 3, 1, servicio, 0, 100}, empieza, abre, contesta, acaba_el_comando, {1, 4, 1, servicio, 0, 101}}));
    if (clase == "sin_ventana")
        comprueba_rondas(clases, linea_de(empieza), linea_de(acaba_el_comando));
    // Without a window the command runs with the service's mutex held: nobody has a round meanwhile.
    EXPECT_EQ(tramo_de(clases, {linea_de(abre)}).primero + 1, tramo_de(clases, {linea_de(contesta)}).primero);
    acaba(cliente);
    oye(&v, {});
    acaba(servidor);
    oye(&v, {{0, 1, 0, "", 0, 0}});
}

TEST_P(comando_visto, sin_datos_con_cualquier_resultado)
{
    vigia v;
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    oye(&v, {{0, 1, 1, servicio, 0, 0}});
    // The library's own ids are commands as any other.
    for (uint32_t id : {102u, 122u, 2u}) {
        if (clase == "net" && id == 2)
            continue; // its own window procedure says what it does with that
        EXPECT_EQ(ejecuta(servicio, id).resultado, id == 122 ? 2u : 1u);
        oye(&v, {{1, 2, 1, servicio, id, 0}, {1, 2, 0, servicio, id, 0}});
    }
}

// The server's output alone: no input is stored, none is opened.
TEST_P(comando_visto, solo_con_datos_de_salida)
{
    vigia v;
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    oye(&v, {{0, 1, 1, servicio, 0, 0}});
    EXPECT_EQ(ejecuta(servicio, 101, 0, L"1").id_salida, 100u);
    oye(&v, {{1, 2, 1, servicio, 101, 0}, {0, 4, 1, servicio, 101, 100}, {1, 2, 0, servicio, 101, 0}});
}

TEST_P(comando_visto, que_termina_al_servidor)
{
    vigia v;
    papel servidor = arranca_servidor(clase, servicio);
    registra_para(clase, servicio);
    oye(&v, {{0, 1, 1, servicio, 0, 0}});
    ivrexa_terminar_servidor(servicio.c_str());
    if (clase == "sin_ventana") // told by a command; the others by a message that nobody notes
        v.oye({{1, 2, 1, servicio, 1, 0}, {1, 2, 0, servicio, 1, 0}});
    else
        servidor.espera_linea("QUIT ", 5000);
    oye(&v, {});
    acaba(servidor);
    oye(&v, {{0, 1, 0, "", 0, 0}});
}

using comando_de_nadie = conversacion;

TEST_F(comando_de_nadie, de_quien_no_es_cliente_se_ve_solo_empezar_y_sin_canal_empezar_y_acabar)
{
    std::string servicio = nombre_unico("serv"), sin_canal = nombre_unico("sin");
    vigia v;
    papel servidor = arranca_servidor("ventana", servicio);
    EXPECT_EQ(ejecuta(servicio, 300, 44).resultado, 3u);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}, {1, 2, 1, servicio, 300, 44}});

    HANDLE ajeno = CreateEventA(nullptr, FALSE, FALSE, nombre_canal(sin_canal).c_str());
    registra(sin_canal);
    EXPECT_EQ(ejecuta(sin_canal, 301, 45).resultado, 0u);
    v.oye_solo({{1, 2, 1, sin_canal, 301, 45, 1}, {1, 2, 0, sin_canal, 301, 45, 1}});
    CloseHandle(ajeno);
}

// What is stored while a command is under way carries that command's id, whoever stores it.
TEST_F(comando_de_nadie, lo_que_otro_guarda_entretanto_lleva_el_id_del_comando_en_curso)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    {
        entrada_muestra entrada(servicio, 0);
        EXPECT_EQ(entrada.id(), 100u);
    }
    servidor.di("SIGUE");
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 10000), "RESULTADO 1");
    v.oye_solo({{0, 1, 1, servicio, 0, 0},
                {1, 2, 1, servicio, 103, 0},
                {1, 3, 1, servicio, 103, 100},
                {1, 2, 0, servicio, 103, 0}});
}

TEST_F(comando_de_nadie, de_un_cliente_que_muere_no_se_ve_el_final)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_servidor("ventana", servicio);
    papel cliente = arranca_cliente("sin_ventana", servicio);
    cliente.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    cliente.mata();
    servidor.di("SIGUE");
    acaba(servidor);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}, {1, 2, 1, servicio, 103, 0}, {0, 1, 0, "", 0, 0}});
}

TEST_F(comando_de_nadie, preguntas_y_registros_de_clientes_no_se_notan)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_servidor("ventana", servicio);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}});
    char nombre[64];
    uint16_t version;
    registra(servicio);
    registra(nombre_unico("otro"));
    EXPECT_EQ(ivrexa_hay_servicio_registrado(servicio.c_str(), &version), CIERTO);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por(servicio.c_str(), nombre, &version), CIERTO);
    EXPECT_NE(ivrexa_dame_id_MSG_servicio(servicio.c_str()), 0u);
    EXPECT_EQ(ejecuta(servicio, 106).resultado, 1u); // asks for the command in every way
    v.oye_solo({{1, 2, 1, servicio, 106, 0}, {1, 2, 0, servicio, 106, 0}});
    ivrexa_cierra_sesion();
    v.oye_solo({});
}

// ---- Rounds

using rondas = conversacion;

// Waits until `num` rounds of this kind were posted; all lines up to there. The loop fields that the monitor
// reads meanwhile are those of this state: nothing moves on before the test lets it.
static std::vector<std::string> espera_rondas(vigia *v, size_t num, const std::string &cuales, const std::string &raya)
{
    std::vector<std::string> lineas;
    EXPECT_TRUE(espera_hasta(
        [&] {
            for (const std::string &linea : v->dicho())
                lineas.push_back(linea);
            std::vector<std::string> clases = resumen(lineas);
            return static_cast<size_t>(std::count(clases.begin(), clases.end(), cuales)) >= num;
        },
        20000))
        << "no rounds " << cuales;
    uint32_t vueltas_antes = 0;
    for (const std::string &linea : las_que_empiezan(lineas, raya)) {
        uint32_t estado = 0, vueltas = 0;
        sscanf(linea.c_str() + raya.size(), "%u %u", &estado, &vueltas);
        EXPECT_EQ(std::to_string(estado), cuales.substr(1)) << linea;
        EXPECT_GE(vueltas, vueltas_antes) << linea;
        EXPECT_LT(vueltas, 26u) << linea;
        vueltas_antes = vueltas;
    }
    return lineas;
}

static void junta_lineas(std::vector<std::string> *todas, const std::vector<std::string> &lineas)
{
    todas->insert(todas->end(), lineas.begin(), lineas.end());
}

// A second client of a server with a window waits while the first one's command is under way.
TEST_F(rondas, del_segundo_cliente_son_de_estado_1_y_una_por_mensaje)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_servidor("ventana", servicio);
    papel primero = arranca_cliente("ventana", servicio), segundo = arranca_cliente("sin_ventana", servicio);
    primero.di("COMANDO 103");
    servidor.espera_linea("DENTRO", 10000);
    v.oye_solo({{0, 1, 1, servicio, 0, 0}, {1, 2, 1, servicio, 103, 0}});

    segundo.di("COMANDO 127");
    std::vector<std::string> lineas = espera_rondas(&v, 3, "C1", raya_de(0, "cliente", servicio, 1));
    servidor.di("SIGUE");
    EXPECT_EQ(primero.espera_linea("RESULTADO ", 10000), "RESULTADO 1");
    EXPECT_EQ(segundo.espera_linea("RESULTADO ", 10000), "RESULTADO 7");
    junta_lineas(&lineas, v.dicho());

    std::vector<std::string> clases = resumen(lineas);
    std::string fin_103 = linea_de({1, 2, 0, servicio, 103, 0});
    size_t num_rondas = static_cast<size_t>(std::count(clases.begin(), clases.end(), "C1"));
    EXPECT_EQ(las_que_empiezan(lineas, "CRUDO 1 65536").size(), num_rondas);
    EXPECT_EQ(std::count(clases.begin(), clases.end(), fin_103), 1);
    clases.erase(std::remove(clases.begin(), clases.end(), fin_103), clases.end());
    EXPECT_EQ(sin_repetidos(clases), (std::vector<std::string>{linea_de({1, 2, 1, servicio, 127, 0}), "C1",
                                                               linea_de({1, 2, 0, servicio, 127, 0})}));
    bloque_crudo registro("Ivrexa_MCB");
    EXPECT_EQ(registro.u32(5814 + 84), 1u) << "bucle_cliente_estado";
    EXPECT_EQ(registro.u32(5814 + 88), num_rondas - 1) << "bucle_cliente_vueltas";
}

static void escribe(mutex_crudo *mutex, bloque_crudo *canal, const std::vector<std::pair<size_t, uint32_t>> &campos)
{
    ASSERT_TRUE(mutex->retiene(20000));
    for (const auto &[despl, valor] : campos)
        canal->pon_u32(despl, valor);
    mutex->suelta();
}

// This test is the server: it moves the channel from state to state, each after two rounds of the client's.
TEST_F(rondas, del_cliente_pasan_por_sus_cuatro_estados_con_la_entrada_5)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    bloque_crudo registro("Ivrexa_MCB");
    for (size_t j = 0; j < 5; j++)
        registro.pon_texto(5814 + j * 96, "otro" + std::to_string(j));
    papel cliente = arranca_cliente("sin_ventana", servicio);
    ASSERT_EQ(despl_servicio(registro, servicio), 5814u + 5 * 96);
    bloque_crudo canal(nombre_canal(servicio).c_str());
    mutex_crudo mutex(("Mutex_Ivrexa_" + servicio).c_str(), mutex_crudo::modo::crea);
    canal.pon_u32(1198, 1); // another client writes its command
    canal.pon_u32(30, 1);

    struct paso {
        const char *ronda, *mensaje;
        std::vector<std::pair<size_t, uint32_t>> campos;
    };
    const paso pasos[] = {
        {"C1", "CRUDO 1 65541", {{1198, 0}}},
        {"C2", "CRUDO 1 131077", {{30, 3}}}, // it has left 1 and 2, but says nothing of the command
        {"C3", "CRUDO 1 196613", {{8, 9}, {4, 3}}},
        {"C4", "CRUDO 1 262149", {{4, 5}}},
    };
    cliente.di("COMANDO 555");
    std::vector<std::string> lineas;
    for (uint32_t estado = 1; estado <= 4; estado++) {
        const paso &p = pasos[estado - 1];
        SCOPED_TRACE(p.ronda);
        std::string raya = raya_de(5, "cliente", servicio, estado);
        std::vector<std::string> nuevas = espera_rondas(&v, 2, p.ronda, raya);
        EXPECT_GE(las_que_empiezan(nuevas, p.mensaje).size(), 2u);
        EXPECT_NE(las_que_empiezan(nuevas, raya).at(0).find(" 555 0 0 " + std::string(EXTERNOS)), std::string::npos)
            << "command, server and client";
        junta_lineas(&lineas, nuevas);
        escribe(&mutex, &canal, p.campos);
    }
    EXPECT_EQ(cliente.espera_linea("RESULTADO ", 10000), "RESULTADO 9");
    junta_lineas(&lineas, v.dicho());
    EXPECT_EQ(sin_repetidos(resumen(lineas)),
              (std::vector<std::string>{linea_de({1, 2, 1, servicio, 555, 0}), "C1", "C2", "C3", "C4",
                                        linea_de({1, 2, 0, servicio, 555, 0})}));
}

// This test is the client of the second of two services: it takes its time with the receipt.
TEST_F(rondas, del_servidor_son_de_sus_dos_estados_y_de_cada_servicio_por_su_lado)
{
    std::string uno = nombre_unico("uno"), servicio = nombre_unico("dos");
    vigia v;
    papel servidor = arranca_servidor("sin_ventana", uno + "," + servicio);
    bloque_crudo registro("Ivrexa_MCB"), canal(nombre_canal(servicio).c_str());
    mutex_crudo mutex(("Mutex_Ivrexa_" + servicio).c_str());
    espera_latido(ruta_de(servidor)); // program 0, which stands in for the client
    std::vector<std::string> lineas = v.dicho();

    escribe(&mutex, &canal, {{1202, 127}, {1198, 2}, {4, 1}});
    registro.pon_u32(5814 + 96 + 80, 127);
    std::string raya = raya_de(1, "servidor", servicio, 2);
    std::vector<std::string> nuevas = espera_rondas(&v, 2, "S2", raya);
    EXPECT_NE(las_que_empiezan(nuevas, raya).at(0).find(" 127 0 0 " + std::string(EXTERNOS)), std::string::npos);
    junta_lineas(&lineas, nuevas);
    EXPECT_EQ(canal.u32(8), 7u);
    escribe(&mutex, &canal, {{4, 4}});
    EXPECT_TRUE(espera_hasta([&] { return canal.u32(4) == 5; }, 10000));
    junta_lineas(&lineas, v.dicho());
    escribe(&mutex, &canal, {{4, 0}, {1198, 0}, {1202, 0}});
    registro.pon_u32(5814 + 96 + 80, 0);
    junta_lineas(&lineas, espera_rondas(&v, 2, "S1", "-"));

    EXPECT_EQ(las_que_empiezan(lineas, "ACT ").size(), 2u) << "the announcements; the raw client notes nothing";
    std::vector<std::string> de_uno, de_dos;
    for (const std::string &linea : las_que_empiezan(lineas, "CRUDO 2 "))
        (std::stoul(linea.substr(8)) % 65536 == 0 ? de_uno : de_dos).push_back(linea);
    EXPECT_EQ(sin_repetidos(de_uno), std::vector<std::string>{"CRUDO 2 65536"});
    EXPECT_EQ(sin_repetidos(de_dos), (std::vector<std::string>{"CRUDO 2 65537", "CRUDO 2 131073", "CRUDO 2 65537"}));
}

// ---- Under which lock they are posted

namespace desvio {

// Puts another function in the place of one of a DLL's, for all of this process. For good.
static void pon(const char *modulo, const char *nombre, void *funcion)
{
    uint8_t salto[12] = {0x48, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xE0}; // mov rax, function; jmp rax
    memcpy(salto + 2, &funcion, sizeof funcion);
    void *lugar_de_antes = reinterpret_cast<void *>(GetProcAddress(LoadLibraryA(modulo), nombre));
    DWORD proteccion = 0;
    ASSERT_TRUE(VirtualProtect(lugar_de_antes, sizeof salto, PAGE_EXECUTE_READWRITE, &proteccion));
    memcpy(lugar_de_antes, salto, sizeof salto);
    VirtualProtect(lugar_de_antes, sizeof salto, proteccion, &proteccion);
    FlushInstructionCache(GetCurrentProcess(), lugar_de_antes, sizeof salto);
}

// Others hold the registry's mutex for moments only: an activity, which must find it free, waits longer.
static BOOL WINAPI PostMessageW_vigilado(HWND hwnd, UINT msg, WPARAM wparam, LPARAM lparam)
{
    mutex_crudo mutex("Ivrexa_Mutex_MCB");
    bool libre = mutex.retiene(wparam == 0 ? 3000 : 150);
    mutex.suelta();
    papel_hijo().di("ENVIO " + std::to_string(wparam) + " " + std::to_string(lparam) + (libre ? " libre" : " tomado"));
    return PostMessageA(hwnd, msg, wparam, lparam);
}

} // namespace desvio

PAPEL(servidor_vigilado)
{
    desvio::pon("user32.dll", "PostMessageW", reinterpret_cast<void *>(desvio::PostMessageW_vigilado));
    return anfitrion_servidor(args[0].c_str(), args[1].c_str());
}

PAPEL(cliente_vigilado)
{
    desvio::pon("user32.dll", "PostMessageW", reinterpret_cast<void *>(desvio::PostMessageW_vigilado));
    return anfitrion_cliente(args[0].c_str(), args[1].c_str());
}

TEST_F(rondas, se_envian_con_el_registro_tomado_y_las_actividades_con_el_libre)
{
    std::string servicio = nombre_unico("serv");
    vigia v;
    papel servidor = arranca_papel("servidor_vigilado", {"sin_ventana", servicio});
    EXPECT_EQ(servidor.espera_linea("ENVIO 0", 5000), "ENVIO 0 1 libre");
    EXPECT_EQ(servidor.espera_linea("ENVIO 2", 5000), "ENVIO 2 65536 tomado");
    papel cliente = arranca_papel("cliente_vigilado", {"sin_ventana", servicio});
    espera_latido(ruta_de(cliente));

    cliente.di("ECO 0");
    cliente.espera_linea("SALIDA ", 30000);
    EXPECT_EQ(servidor.espera_linea("ENVIO 2 131072", 5000), "ENVIO 2 131072 tomado");
    EXPECT_EQ(cliente.espera_linea("ENVIO 1", 5000), "ENVIO 1 131072 tomado");
    EXPECT_EQ(las_que_empiezan(servidor.lineas(), "ENVIO 0"),
              (std::vector<std::string>{"ENVIO 0 4 libre", "ENVIO 0 5 libre"}));
    EXPECT_EQ(las_que_empiezan(cliente.lineas(), "ENVIO 0"),
              (std::vector<std::string>{"ENVIO 0 2 libre", "ENVIO 0 3 libre", "ENVIO 0 6 libre", "ENVIO 0 7 libre"}));
    for (const papel *p : {&servidor, &cliente})
        for (const std::string &linea : las_que_empiezan(p->lineas(), "ENVIO "))
            EXPECT_EQ(linea.find("libre") != std::string::npos, linea[6] == '0') << linea;
    v.oye({{0, 1, 1, servicio, 0, 0},
           {1, 3, 1, servicio, 0, 100},
           {1, 2, 1, servicio, 100, 100},
           {0, 3, 1, servicio, 0, 100},
           {0, 4, 1, servicio, 100, 101},
           {1, 2, 0, servicio, 100, 100},
           {1, 4, 1, servicio, 0, 101}});
}
