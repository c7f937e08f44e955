// Up to 16 programs that start, register, serve, call one another, close and start again at random. This process draws
// the schedule, from a seed alone: in rounds of actions that do not touch one another's services, so that what each
// must answer is known. Clients of one service take turns. Environment:
//   IVREXA_SEMILLA         the seed
//   IVREXA_TORMENTA_S      how many seconds it rages
//   IVREXA_TORMENTA_MATA   1: the first test kills programs, too
//   IVREXA_TORMENTA_DIARIO 1: every action is told, and not only the last ones before a failure
#include <random>
#include <set>

#include "dll_tormenta_papel.h"

static const uint32_t PLAZO = 45000; // of any action, in ms: none hangs

struct servicio_t {
    std::string nombre;
    bool sin_ventana = false;
    int servidor = -1;
    std::set<int> usuarios;  // programs that are registered as its clients
    std::set<int> tenedores; // processes that may hold its channel
    bool dudoso = false;     // a program was killed here: nobody uses it until no process holds it
    bool ocupado = false;    // an action of this round touches it
};

struct uso_t {
    bool rancio = false; // its server has closed since: this client registers anew before it goes on
    bool avisa = false;
    uint32_t id_cliente = 0;
};

struct programa_t {
    std::unique_ptr<papel> p;
    uint32_t generacion = 0;
    bool registrado = false, ocupado = false;
    std::string clase;
    std::vector<int> ofrece;
    std::map<int, uso_t> usa;
    uint32_t siguiente_id_cliente = 200;
};

static uint32_t de_entorno(const char *nombre, uint32_t si_falta)
{
    char texto[32] = "";
    return GetEnvironmentVariableA(nombre, texto, sizeof texto) != 0 ? t_num(texto) : si_falta;
}

class tormenta : public ::testing::Test {
protected:
    void prepara(uint32_t segundos, bool mata)
    {
        m_semilla = de_entorno("IVREXA_SEMILLA", 20021);
        m_segundos = de_entorno("IVREXA_TORMENTA_S", segundos);
        m_mata = mata;
        m_azar.seed(m_semilla);
        m_programas.resize(mata ? 10 : 16);
        for (int i = 0; i < 14; i++) {
            m_servicios.push_back({});
            m_servicios.back().nombre = std::string(nombre_unico("t")) + (i < 10 ? "_0" : "_") + std::to_string(i);
            m_servicios.back().sin_ventana = i % 3 == 2;
        }
        std::cout << repeticion() << std::endl;
    }

    std::string repeticion() const
    {
        return "Again with: IVREXA_SEMILLA=" + std::to_string(m_semilla) +
               " IVREXA_TORMENTA_S=" + std::to_string(m_segundos) + (m_mata ? " IVREXA_TORMENTA_MATA=1" : "") +
               " scripts/wine build/mingw/bin/dll_tormenta.exe --gtest_filter=tormenta." +
               ::testing::UnitTest::GetInstance()->current_test_info()->name();
    }

    void ruge()
    {
        uint64_t limite = GetTickCount64() + m_segundos * 1000;
        for (m_ronda = 0; GetTickCount64() < limite && !HasFailure(); m_ronda++)
            haz_ronda();
        std::cout << m_ronda << " rounds, " << m_acciones << " actions, " << m_comandos << " commands, " << m_muertes
                  << " killed" << std::endl;
        EXPECT_GT(m_comandos, 0u);
        if (m_mata) {
            EXPECT_GT(m_muertes, 0u);
        }
    }

    // What must hold when the storm is over, with the programs still there.
    void comprueba_despues()
    {
        for (const servicio_t &s : m_servicios) {
            for (const char *cola : {"", "Interno"}) {
                mutex_crudo mutex(("Mutex_Ivrexa_" + s.nombre + cola).c_str(), mutex_crudo::modo::crea);
                EXPECT_TRUE(mutex.retiene(PLAZO)) << s.nombre << cola << " stays held";
                mutex.suelta();
            }
            if (s.servidor >= 0 && !s.dudoso)
                espera_canal_entero(s.nombre);
        }
        comprueba_tablas();
        despiden(m_programas.size() - 2);
        recien_llegados();
    }

    // All close and end; the registry keeps the entries of killed programs alone.
    void acaban_todos()
    {
        bloque_crudo registro("Ivrexa_MCB");
        despiden(0);
        std::set<std::string> quedan;
        for (size_t i = 0; registro.abierto() && i < 16; i++)
            if (!registro.texto(1430 + i * 274, 256).empty())
                quedan.insert(registro.texto(1430 + i * 274, 256));
        EXPECT_EQ(quedan, m_muertos);
        for (size_t i = 0; registro.abierto() && !m_mata && i < 32; i++)
            EXPECT_EQ(registro.u32(5814 + i * 96 + 80), 0u) << "a command under way in service " << i;
    }

    void TearDown() override
    {
        const bool entero = de_entorno("IVREXA_TORMENTA_DIARIO", 0) == 1;
        if (!HasFailure() && !entero)
            return;
        for (size_t i = !entero && m_diario.size() > 60 ? m_diario.size() - 60 : 0; i < m_diario.size(); i++)
            std::cout << m_diario[i] << "\n";
        std::cout << repeticion() << std::endl;
    }

private:
    struct tarea {
        std::string que;
        std::function<void()> recoge;
    };

    uint32_t azar(size_t n) { return static_cast<uint32_t>(m_azar() % n); }
    papel &de(int i) { return *m_programas[static_cast<size_t>(i)].p; }
    programa_t &prog(int i) { return m_programas[static_cast<size_t>(i)]; }
    servicio_t &serv(int i) { return m_servicios[static_cast<size_t>(i)]; }

    // ---- Rounds

    void haz_ronda()
    {
        for (servicio_t &s : m_servicios)
            s.ocupado = false;
        for (programa_t &p : m_programas)
            p.ocupado = false;
        m_hay_registro = m_hay_carrera = false;
        uint32_t cuantas = 4 + azar(12);
        for (uint32_t i = 0; i < 3 * cuantas && m_tareas.size() < cuantas; i++) {
            int quien = static_cast<int>(azar(m_programas.size()));
            if (!prog(quien).ocupado)
                prog(quien).ocupado = propone(quien);
        }
        uint64_t empieza = GetTickCount64();
        for (tarea &t : m_tareas) {
            SCOPED_TRACE("round " + std::to_string(m_ronda) + ": " + t.que + "\n" + repeticion());
            t.recoge();
            m_diario.push_back("   " + std::to_string(GetTickCount64() - empieza) + " ms: done " + t.que);
            m_acciones++;
        }
        m_tareas.clear();
    }

    void encarga(int quien, const std::string &linea, std::function<void()> recoge)
    {
        std::string que = "t" + std::to_string(quien) + " " + linea;
        m_diario.push_back(std::to_string(m_ronda) + ": " + que);
        if (!linea.empty())
            de(quien).di(linea);
        m_tareas.push_back({que, std::move(recoge)});
    }

    void encarga(int quien, const std::string &linea, const std::string &respuesta)
    {
        encarga(quien, linea, [=] { EXPECT_EQ(de(quien).espera_linea(prefijo(respuesta), PLAZO), respuesta); });
    }

    static std::string prefijo(const std::string &respuesta) { return respuesta.substr(0, respuesta.find(' ')); }

    bool propone(int quien)
    {
        programa_t &p = prog(quien);
        if (p.p == nullptr)
            return arranca(quien);
        if (!p.registrado)
            return azar(8) == 0 || tiene_dudoso(quien) ? acaba_proceso(quien) : registra(quien);
        bool rancio = tiene_dudoso(quien);
        for (const auto &[s, uso] : p.usa)
            rancio = rancio || uso.rancio;
        uint32_t dado = azar(100);
        if (rancio && dado < (m_mata ? 40 : 12))
            return cierra(quien);
        if (m_mata && dado < 22)
            return mata_programa(quien);
        dado = azar(100);
        return dado < 65   ? manda(quien)
               : dado < 70 ? pregunta(quien)
               : dado < 78 ? documento(quien)
               : dado < 86 ? notifica(quien)
               : dado < 90 ? termina(quien)
               : dado < 95 ? carrera(quien)
                           : cierra(quien);
    }

    // ---- Actions. Each draws what it needs, tells the programs, and leaves behind how the answer is checked.

    bool arranca(int quien)
    {
        programa_t &p = prog(quien);
        opciones_papel opciones;
        opciones.limite_s = m_segundos + 300;
        std::string ruta = ruta_de_programa(quien);
        p.p = std::make_unique<papel>(
            arranca_papel("tormenta", {ruta, ruta + "." + std::to_string(p.generacion++)}, opciones));
        encarga(quien, "", [] {});
        return true;
    }

    bool acaba_proceso(int quien)
    {
        encarga(quien, "ACABA", [=] {
            EXPECT_EQ(de(quien).espera_fin(PLAZO), 0u);
            prog(quien).p.reset();
        });
        suelta_canales(quien);
        return true;
    }

    bool registra(int quien)
    {
        if (m_hay_carrera)
            return false;
        programa_t &p = prog(quien);
        bool sin_ventana = m_mata ? quien % 2 == 1 : azar(3) == 0;
        p.clase = sin_ventana ? "sin_ventana" : azar(4) == 0 ? "net" : "ventana";
        elige_ofrecidos(quien, sin_ventana);
        elige_usados(quien, sin_ventana);
        if (p.ofrece.empty() && p.usa.empty())
            return false;
        if (p.ofrece.empty() && p.clase == "net")
            p.clase = "ventana";
        p.registrado = m_hay_registro = true;
        p.siguiente_id_cliente = 200;
        m_muertos.erase(ruta_de_programa(quien));
        std::string ofrece, usa, avisa;
        for (int s : p.ofrece)
            ofrece += (ofrece.empty() ? "" : ",") + serv(s).nombre;
        for (const auto &[s, uso] : p.usa) {
            usa += (usa.empty() ? "" : ",") + serv(s).nombre;
            if (uso.avisa)
                avisa += (avisa.empty() ? "" : ",") + serv(s).nombre;
        }
        for (std::string *lista : {&ofrece, &usa, &avisa})
            *lista = lista->empty() ? "-" : *lista;
        encarga(quien, "REGISTRA " + p.clase + " " + ofrece + " " + usa + " " + avisa, "REGISTRADO");
        return true;
    }

    void elige_ofrecidos(int quien, bool sin_ventana)
    {
        programa_t &p = prog(quien);
        p.ofrece.clear();
        uint32_t cuantos = azar(p.clase == "net" ? 2 : 5);
        for (uint32_t i = 0; i < 3 * cuantos && p.ofrece.size() < cuantos; i++) {
            int s = static_cast<int>(azar(m_servicios.size()));
            if (serv(s).servidor >= 0 || serv(s).ocupado || serv(s).dudoso || serv(s).sin_ventana != sin_ventana)
                continue;
            serv(s).servidor = quien;
            serv(s).ocupado = true;
            serv(s).tenedores.insert(quien);
            p.ofrece.push_back(s);
        }
    }

    // A service without a window looks at the heartbeat of its last client: it has one client at a time.
    void elige_usados(int quien, bool sin_ventana)
    {
        programa_t &p = prog(quien);
        p.usa.clear();
        uint32_t cuantos = 2 + azar(6);
        for (uint32_t i = 0; i < 3 * cuantos && p.usa.size() < cuantos; i++) {
            int s = static_cast<int>(azar(m_servicios.size()));
            bool suyo = serv(s).servidor == quien;
            if ((serv(s).ocupado && !suyo) || serv(s).dudoso || p.usa.count(s) != 0 ||
                (serv(s).sin_ventana && !serv(s).usuarios.empty()))
                continue;

            // Where the last server has closed, the notification thread of a new client ends at once.
            p.usa[s].avisa = azar(2) == 0 && !sin_ventana && serv(s).servidor >= 0;
            serv(s).ocupado = true;
            serv(s).usuarios.insert(quien);
            serv(s).tenedores.insert(quien);
        }
    }

    // A service that `quien` uses, that is offered and that nobody else touches in this round; -1 for none.
    int usable(int quien)
    {
        std::vector<int> posibles;
        for (const auto &[s, uso] : prog(quien).usa)
            if (!uso.rancio && serv(s).servidor >= 0 && !serv(s).ocupado && !serv(s).dudoso)
                posibles.push_back(s);
        return posibles.empty() ? -1 : posibles[azar(posibles.size())];
    }

    // After a death a server without a window may take its client for the dead one, and end.
    bool manda(int quien)
    {
        int s = usable(quien);
        if (s < 0)
            return false;
        serv(s).ocupado = true;
        uint32_t num = serv(s).sin_ventana ? 1 + azar(2) : 1 + azar(20);
        m_comandos += num;
        std::string resto = serv(s).nombre + " " + std::to_string(num) + " " + std::to_string(eco_PRIMERO + azar(20));
        if (m_mata && serv(s).sin_ventana)
            encarga(quien, "SUELTA " + resto, [=] { comprueba_soltado(quien, {"3"}); });
        else
            encarga(quien, "MANDA " + resto, "MANDADO " + std::to_string(num) + "|0");
        return true;
    }

    void comprueba_soltado(int quien, const std::set<std::string> &permitidos)
    {
        std::vector<std::string> partes = t_lista(resto_de(de(quien), "SOLTADO ", PLAZO), '|');
        EXPECT_FALSE(partes.empty());
        for (size_t i = 1; i < partes.size(); i++)
            EXPECT_EQ(permitidos.count(partes[i]), 1u) << "result " << partes[i];
    }

    bool pregunta(int quien)
    {
        int s = static_cast<int>(azar(m_servicios.size()));
        if (serv(s).servidor < 0 || serv(s).ocupado || serv(s).dudoso || (m_mata && serv(s).sin_ventana))
            return false;
        serv(s).ocupado = true;
        serv(s).tenedores.insert(quien);
        encarga(quien, "PREGUNTA " + serv(s).nombre, "PREGUNTADO 1 " + serv(s).nombre);
        return true;
    }

    bool documento(int quien)
    {
        programa_t &p = prog(quien);
        std::string id = std::to_string(1 + azar(40));
        if (p.usa.empty())
            return false;
        if (azar(3) == 0) {
            encarga(quien, "CIERRADOC " + id, "CERRADODOC");
            return true;
        }
        auto uso = std::next(p.usa.begin(), azar(p.usa.size()));
        if (uso->second.id_cliente == 0)
            uso->second.id_cliente = p.siguiente_id_cliente++;
        encarga(quien, "ABRE " + serv(uso->first).nombre + " " + id,
                "ABIERTO " + std::to_string(uso->second.id_cliente));
        return true;
    }

    // With several clients the first to look would take it.
    bool notifica(int quien)
    {
        for (int s : prog(quien).ofrece) {
            if (serv(s).ocupado || serv(s).dudoso || serv(s).usuarios.size() != 1)
                continue;
            int cliente = *serv(s).usuarios.begin();
            const uso_t &uso = prog(cliente).usa[s];
            if (cliente == quien || prog(cliente).ocupado || uso.rancio || !uso.avisa || uso.id_cliente == 0)
                continue;
            serv(s).ocupado = prog(cliente).ocupado = true;
            std::string resto = serv(s).nombre + " " + std::to_string(uso.id_cliente);
            resto += " " + std::to_string(azar(1000));
            encarga(quien, "NOTIFICA " + resto, "NOTIFICADO");
            encarga(cliente, "", [=] { EXPECT_EQ(de(cliente).espera_linea("AVISO", PLAZO), "AVISO " + resto); });
            return true;
        }
        return false;
    }

    // A program that can be made to close in this round.
    bool puede_cerrar(int quien) const
    {
        for (int s : m_programas[static_cast<size_t>(quien)].ofrece)
            if (m_servicios[static_cast<size_t>(s)].ocupado)
                return false;
        return true;
    }

    bool cierra(int quien)
    {
        if (!puede_cerrar(quien))
            return false;
        olvida_registro(quien);
        encarga(quien, "CIERRA", "CERRADO");
        return true;
    }

    bool termina(int quien)
    {
        int s = usable(quien);
        int servidor = s < 0 ? -1 : serv(s).servidor;
        if (s < 0 || servidor == quien || prog(servidor).ocupado || !puede_cerrar(servidor))
            return false;
        prog(servidor).ocupado = true;
        bool espera = serv(s).sin_ventana && prog(servidor).ofrece.size() == 1, quit = !serv(s).sin_ventana;
        olvida_registro(servidor);
        encarga(quien, "TERMINA " + serv(s).nombre, "PEDIDO");
        encarga(servidor, "", [=] {
            if (quit) {
                EXPECT_EQ(de(servidor).espera_linea("QUIT", PLAZO), "QUIT 1");
            }
            if (espera) {
                de(servidor).di("ESPERA");
                de(servidor).espera_linea("ESPERADO", PLAZO);
            }
            de(servidor).di("CIERRA");
            de(servidor).espera_linea("CERRADO", PLAZO);
        });
        return true;
    }

    // A command while its server closes: answered, or refused by what is left of it (77 and 92 are the window's own).
    bool carrera(int quien)
    {
        int s = usable(quien);
        int servidor = s < 0 ? -1 : serv(s).servidor;
        if (s < 0 || servidor == quien || m_hay_registro || prog(servidor).ocupado || !puede_cerrar(servidor))
            return false;
        m_hay_carrera = prog(servidor).ocupado = true;
        std::string ajeno = serv(s).sin_ventana ? "3" : prog(servidor).clase == "net" ? "92" : "77";
        olvida_registro(servidor);
        encarga(quien, "SUELTA " + serv(s).nombre + " 2 200", [=] { comprueba_soltado(quien, {ajeno}); });
        encarga(servidor, "CIERRA", "CERRADO");
        return true;
    }

    // ---- Deaths

    bool mata_programa(int quien)
    {
        int s = usable(quien);
        int servidor = s < 0 ? -1 : serv(s).servidor;
        int modo = static_cast<int>(azar(3));
        if (s < 0 || modo == 0 || servidor == quien || prog(servidor).ocupado || !puede_cerrar(servidor))
            return mata_ocioso(quien);
        DWORD ms = azar(250);
        m_hay_carrera = prog(servidor).ocupado = serv(s).ocupado = true;
        int victima = modo == 1 ? quien : servidor;
        std::string linea = "SUELTA " + serv(s).nombre + " " + std::to_string(1 + azar(3)) + " 200";
        encarga(quien, linea, [=] {
            Sleep(ms); // where in its command the death comes is part of the schedule
            mata_ahora(victima);
            if (victima != quien)
                comprueba_soltado(quien, {"0", "3"});
        });
        serv(s).dudoso = true;
        olvida_muerto(victima);
        return true;
    }

    bool mata_ocioso(int quien)
    {
        if (!puede_cerrar(quien))
            return false;
        encarga(quien, "", [=] { mata_ahora(quien); });
        olvida_muerto(quien);
        return true;
    }

    void mata_ahora(int quien)
    {
        m_diario.push_back("   t" + std::to_string(quien) + " is killed");
        de(quien).mata();
        prog(quien).p.reset();
        m_muertes++;
    }

    void olvida_muerto(int quien)
    {
        for (int s : prog(quien).ofrece)
            serv(s).dudoso = true;
        olvida_registro(quien);
        suelta_canales(quien);
        m_muertos.insert(ruta_de_programa(quien));
    }

    // ---- The model

    std::string ruta_de_programa(int quien) const { return "tormenta_" + std::to_string(quien); }

    bool tiene_dudoso(int quien) const
    {
        for (const servicio_t &s : m_servicios)
            if (s.dudoso && s.tenedores.count(quien) != 0)
                return true;
        return false;
    }

    void olvida_registro(int quien)
    {
        programa_t &p = prog(quien);
        for (int s : p.ofrece) {
            serv(s).servidor = -1;
            serv(s).ocupado = true;
            for (int usuario : serv(s).usuarios)
                prog(usuario).usa[s].rancio = true;
        }
        for (const auto &[s, uso] : p.usa)
            serv(s).usuarios.erase(quien);
        p.ofrece.clear();
        p.usa.clear();
        p.registrado = false;
    }

    void suelta_canales(int quien)
    {
        for (servicio_t &s : m_servicios) {
            s.tenedores.erase(quien);
            if (s.dudoso && s.tenedores.empty()) {
                s.dudoso = false;
                s.ocupado = true; // until its end is seen
            }
        }
    }

    // The programs from `desde` on close and end, all at once.
    void despiden(size_t desde)
    {
        std::vector<papel *> quedan, registrados;
        for (size_t i = desde; i < m_programas.size() && !HasFailure(); i++) {
            if (m_programas[i].p == nullptr)
                continue;
            quedan.push_back(m_programas[i].p.get());
            if (m_programas[i].registrado)
                registrados.push_back(quedan.back());
            olvida_registro(static_cast<int>(i));
        }
        for (papel *p : registrados)
            p->di("CIERRA");
        for (papel *p : registrados)
            p->espera_linea("CERRADO", PLAZO);
        for (papel *p : quedan)
            p->di("ACABA");
        for (papel *p : quedan)
            EXPECT_EQ(p->espera_fin(PLAZO), 0u);
        for (size_t i = desde; i < m_programas.size(); i++)
            m_programas[i].p.reset();
    }

    // ---- Afterwards

    void comprueba_tablas()
    {
        bloque_crudo registro("Ivrexa_MCB");
        mutex_crudo mutex("Ivrexa_Mutex_MCB", mutex_crudo::modo::crea);
        EXPECT_TRUE(mutex.retiene(PLAZO)) << "the registry's mutex stays held";
        for (size_t i = 0; registro.abierto() && i < 16; i++)
            EXPECT_LT(registro.texto(1430 + i * 274, 256).size(), 256u) << "program " << i << " without its end";
        for (size_t i = 0; registro.abierto() && i < 32; i++) {
            EXPECT_LT(registro.texto(5814 + i * 96, 64).size(), 64u) << "service " << i << " without its end";
            EXPECT_LT(registro.u16(5814 + i * 96 + 64), 16u) << "server of service " << i;
            EXPECT_LT(registro.u16(5814 + i * 96 + 66), 16u) << "client of service " << i;
        }
        for (const servicio_t &s : m_servicios) {
            bloque_crudo canal(nombre_canal(s.nombre).c_str());
            for (size_t despl : {38, 1210})
                if (canal.abierto()) {
                    EXPECT_LT(canal.texto_u(despl, 64).size(), 64u) << s.nombre << " " << despl;
                }
            for (size_t despl : {166, 678, 1338, 1850})
                if (canal.abierto()) {
                    EXPECT_LT(canal.texto_u(despl, 256).size(), 256u) << s.nombre << " " << despl;
                }
        }
        mutex.suelta();
    }

    void recien_llegados()
    {
        for (const char *clase : {"ventana", "sin_ventana"}) {
            std::string servicio = nombre_unico("nuevo");
            papel servidor = arranca_eco_servidor(clase, servicio);
            papel cliente = arranca_eco_cliente(0, servicio, 2, true);
            espera_latido(ruta_de(cliente));
            cliente.di("YA");
            EXPECT_EQ(espera_hecho(cliente).bien, 2u);
            acaba(cliente);
            acaba(servidor);
        }
    }

    uint32_t m_semilla = 0, m_segundos = 0, m_ronda = 0, m_acciones = 0, m_comandos = 0, m_muertes = 0;
    bool m_mata = false, m_hay_registro = false, m_hay_carrera = false;
    std::mt19937 m_azar;
    std::vector<servicio_t> m_servicios;
    std::vector<programa_t> m_programas;
    std::vector<tarea> m_tareas;
    std::vector<std::string> m_diario;
    std::set<std::string> m_muertos; // killed programs whose entry nobody has taken since
};

TEST_F(tormenta, con_turnos_todo_se_contesta_y_nada_queda)
{
    prepara(40, de_entorno("IVREXA_TORMENTA_MATA", 0) == 1);
    ruge();
    comprueba_despues();
    acaban_todos();
}

TEST_F(tormenta, con_muertes_nadie_se_cuelga_y_los_demas_siguen)
{
    prepara(20, true);
    ruge();
    comprueba_despues();
    acaban_todos();
}
