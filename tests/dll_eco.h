// dll_eco.h - commands that tell whose they are: each carries its sender and number in a text and in its data, and the
// answer gives back both, so that what came from another command is seen. For one source file of a program: it defines
// the roles "eco_servidor" and "eco_cliente".
//
// SERVER   "eco_servidor", class, services. Obeys the lines of anfitrion_servidor, and
//            CUENTA     "CUENTA calls|refused gets|refused sets|without input|input of another|id 0|other ids|..."
//            PARA       "PARADO", and dispatches nothing until "SIGUE"
// CLIENT   "eco_cliente", class, service, sender, id of its commands, how many, "datos" or "-", name of the mutex under
//          which each is run or "-". Begins at the line "YA", and says "HECHO " with what it got (eco_cuentas).
#ifndef DLL_ECO_H
#define DLL_ECO_H

#include <cstdarg>
#include <map>
#include <sstream>

#include "dll_conversa.h"

enum : uint32_t { eco_PRIMERO = 200 };                                        // the ids of eco commands begin here
enum : uint32_t { eco_SIN_GET = 98, eco_SIN_SET = 97, eco_SIN_GET_NET = 92 }; // results when the library refused

// ---- What is sent

inline std::string eco_remite(const std::string &quien, uint32_t num)
{
    return quien + ":" + std::to_string(num);
}

// Of a length and content that follow from the sender's text alone.
inline std::vector<uint8_t> eco_relleno(const std::string &remite)
{
    uint32_t azar = 2166136261u;
    for (char c : remite)
        azar = (azar ^ static_cast<uint8_t>(c)) * 16777619u;
    std::vector<uint8_t> bytes(azar % 16 == 0 ? 1 + azar % 5000 : azar % 40);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>((azar = azar * 1664525u + 1013904223u) >> 24);
    return bytes;
}

inline std::wstring eco_ancho(const std::string &texto)
{
    return std::wstring(texto.begin(), texto.end());
}

inline comdat *eco_escribe(const std::string &servicio, const std::string &remite, uint32_t num)
{
    std::vector<uint8_t> relleno = eco_relleno(remite);
    comdat *datos = ivrexa_crea_datos_comando_entrada(servicio.c_str());
    anfitrion_graba_muestra(datos, num % 6);
    ivrexa_graba_cadena_ansi(datos, "remite", remite.c_str());
    ivrexa_graba_buffer(datos, "relleno", relleno.data(), static_cast<uint32_t>(relleno.size()));
    return datos;
}

// ---- Server

struct eco_servidor_cuentas {
    uint32_t llamadas = 0, sin_get = 0, sin_set = 0, sin_entrada = 0, entrada_ajena = 0, id_cero = 0;
    std::map<uint32_t, uint32_t> por_id;           // calls by the id that the function saw
    std::map<std::string, uint32_t> por_remitente; // where the texts were to be had
};

inline eco_servidor_cuentas eco_mias;

// The sender that the input names, "-" without input. Copies the input to `salida`.
inline std::string eco_copia(anfitrion_peticion *p)
{
    char texto[anfitrion_TAM_LINEA] = "";
    if (p->entrada == nullptr)
        return "-";
    p->salida = ivrexa_crea_datos_comando_salida(p->servicio);
    anfitrion_copia_valores(p->entrada, p->salida, texto);
    const char *remite = ivrexa_dame_cadena_ansi(p->entrada, 16);
    return remite != nullptr ? remite : "?";
}

// A sender's commands come in the order in which it sent them, each once.
inline void eco_apunta(const std::wstring &t1)
{
    std::string remite(t1.begin(), t1.end());
    size_t corte = remite.find(':');
    uint32_t &siguiente = eco_mias.por_remitente[remite.substr(0, corte)];
    uint32_t num = static_cast<uint32_t>(strtoul(remite.c_str() + corte + 1, nullptr, 10));
    EXPECT_GE(num, siguiente) << remite << " came twice or late";
    siguiente = num + 1;
}

// The answer: text 1 as it came, text 2 turned round, text 3 "id that the function saw:sender that the input names".
inline int32_t eco_atiende(anfitrion_peticion *p)
{
    wchar_t t1[64], t2[256];
    eco_mias.llamadas++;
    eco_mias.por_id[p->id_comando]++;
    eco_mias.id_cero += p->id_comando == 0;
    if (ivrexa_get_datos_entrada_comando(p->servicio, p->id_comando, nullptr, t1, t2, nullptr) != CIERTO) {
        eco_mias.sin_get++;
        return eco_SIN_GET;
    }
    eco_apunta(t1);
    anfitrion_da_la_vuelta(t2);
    std::string remite = eco_copia(p);
    eco_mias.sin_entrada += remite == "-";
    eco_mias.entrada_ajena += remite != "-" && eco_ancho(remite) != t1;
    uint32_t id_salida = p->salida != nullptr ? ivrexa_guarda_datos(p->salida) : 0;
    std::wstring t3 = std::to_wstring(p->id_comando) + L"|" + eco_ancho(remite);
    if (ivrexa_set_datos_salida_comando(p->servicio, p->id_comando, id_salida, t1, t2, t3.c_str()) == CIERTO)
        return 1;
    eco_mias.sin_set++;
    return eco_SIN_SET;
}

inline void eco_di_cuenta()
{
    const eco_servidor_cuentas &c = eco_mias;
    std::ostringstream linea;
    linea << "CUENTA " << c.llamadas << "|" << c.sin_get << "|" << c.sin_set << "|" << c.sin_entrada << "|"
          << c.entrada_ajena << "|" << c.id_cero << "|";
    for (const auto &[id, num] : c.por_id)
        linea << id << "=" << num << ",";
    linea << "|";
    for (const auto &[quien, num] : c.por_remitente)
        linea << quien << "=" << num << ",";
    papel_c_di("%s", linea.str().c_str());
}

inline int eco_obedece(const char *linea)
{
    char otra[32] = "";
    if (strcmp(linea, "CUENTA") == 0)
        eco_di_cuenta();
    else if (strcmp(linea, "PARA") == 0) {
        papel_c_di("PARADO");
        EXPECT_TRUE(papel_c_escucha(otra, sizeof otra, anfitrion_PLAZO_MS));
    } else
        return anfitrion_obedece(linea);
    return 1;
}

PAPEL(eco_servidor)
{
    anfitrion_yo.otros = eco_atiende;
    return anfitrion_servidor_que(args[0].c_str(), args[1].c_str(), eco_obedece);
}

// ---- Client

struct eco_cuentas {
    uint32_t bien = 0; // 1, and all of it ours
    uint32_t sin_get = 0, sin_set = 0;
    uint32_t id_ajeno = 0;       // 1; the function saw another id
    uint32_t entrada_ajena = 0;  // 1; the function got another's input
    uint32_t sin_entrada = 0;    // 1; the function got no input
    uint32_t salida_perdida = 0; // 1; the output was gone before it was read
    uint32_t raro = 0;           // anything else

    uint32_t total() const { return bien + sin_get + sin_set + id_ajeno + entrada_ajena + sin_entrada + raro; }
};

inline std::string en_linea(const eco_cuentas &c)
{
    std::ostringstream linea;
    linea << c.bien << " " << c.sin_get << " " << c.sin_set << " " << c.id_ajeno << " " << c.entrada_ajena << " "
          << c.sin_entrada << " " << c.salida_perdida << " " << c.raro;
    return linea.str();
}

inline eco_cuentas eco_de_linea(const std::string &linea)
{
    eco_cuentas c;
    std::istringstream(linea) >> c.bien >> c.sin_get >> c.sin_set >> c.id_ajeno >> c.entrada_ajena >> c.sin_entrada >>
        c.salida_perdida >> c.raro;
    return c;
}

// Whether stored output is what `remite` sent as its command `num`, byte for byte.
inline ::testing::AssertionResult eco_es_de(comdat *datos, const std::string &remite, uint32_t num)
{
    std::vector<uint8_t> relleno = eco_relleno(remite);
    std::string esperado = "18" + muestra_descrita(num % 6).substr(2) + ";6:remite=";
    char hex[anfitrion_TAM_LINEA] = "";
    anfitrion_anexa_ansi(hex, remite.c_str());
    esperado += hex;
    std::string real = describe(datos);
    uint32_t tam = 0;
    const uint8_t *bytes = static_cast<const uint8_t *>(ivrexa_dame_buffer(datos, 17, &tam));
    if (real.compare(0, esperado.size(), esperado) != 0)
        return ::testing::AssertionFailure() << "of " << remite << " came back " << real;
    return bytes_iguales(relleno, std::vector<uint8_t>(bytes, bytes + tam));
}

// Runs one command and puts what came into `cuentas`. Texts of another, or data other than what was sent by whoever
// the answer names, fail here.
inline void eco_manda(const std::string &servicio, const std::string &quien, uint32_t id_comando, uint32_t num,
                      bool con_datos, eco_cuentas *cuentas)
{
    std::string remite = eco_remite(quien, num);
    std::wstring t1 = eco_ancho(remite), t2 = L"texto\x20ac de " + t1 + std::wstring(num % 200, L'x');
    comdat *entrada = con_datos ? eco_escribe(servicio, remite, num) : nullptr;
    uint32_t id_entrada = con_datos ? ivrexa_guarda_datos(entrada) : 0;
    respuesta r = ejecuta(servicio, id_comando, id_entrada, t1.c_str(), t2.c_str());
    if (r.resultado == eco_SIN_GET || r.resultado == eco_SIN_GET_NET || r.resultado == eco_SIN_SET) {
        (r.resultado == eco_SIN_SET ? cuentas->sin_set : cuentas->sin_get)++;
        EXPECT_TRUE(r.t1.empty() && r.t2.empty() && r.t3.empty() && r.id_salida == 0xaaaaaaaa) << remite;
    } else if (r.resultado != 1 || r.t1 != t1 || r.t2 != del_reves(t2)) {
        cuentas->raro++;
        ADD_FAILURE() << remite << " got " << r.resultado << " \"" << std::string(r.t1.begin(), r.t1.end()) << "\"";
    } else {
        size_t corte = r.t3.find(L'|');
        std::wstring id_visto = r.t3.substr(0, corte), de = r.t3.substr(corte + 1);
        bool entrada_propia = de == (con_datos ? t1 : L"-");
        if (id_visto != std::to_wstring(id_comando))
            cuentas->id_ajeno++;
        else if (de == L"-" && con_datos)
            cuentas->sin_entrada++;
        else if (!entrada_propia)
            cuentas->entrada_ajena++;
        else
            cuentas->bien++;
        EXPECT_EQ(r.id_salida != 0, de != L"-") << remite;
        comdat *salida = r.id_salida != 0 ? ivrexa_lee_datos(servicio.c_str(), r.id_salida, FALSO) : nullptr;
        cuentas->salida_perdida += r.id_salida != 0 && salida == nullptr;
        if (salida != nullptr) {
            std::string de_quien(de.begin(), de.end());
            uint32_t su_num = static_cast<uint32_t>(strtoul(de_quien.c_str() + de_quien.find(':') + 1, nullptr, 10));
            EXPECT_TRUE(eco_es_de(salida, de_quien, su_num));
            ivrexa_destruye_datos_comando(salida);
        }
    }
    if (entrada != nullptr)
        ivrexa_destruye_datos_comando(entrada);
}

struct eco_encargo {
    std::string servicio, quien;
    uint32_t id_comando = 0, num = 0;
    bool con_datos = false;
    HANDLE turno = nullptr;
};

// From the storing of the input to the reading of the output is one turn.
inline eco_cuentas eco_cumple(const eco_encargo &e)
{
    eco_cuentas cuentas;
    for (uint32_t i = 0; i < e.num; i++) {
        if (e.turno != nullptr) {
            EXPECT_EQ(WaitForSingleObject(e.turno, anfitrion_PLAZO_MS), WAIT_OBJECT_0) << "no turn";
        }
        eco_manda(e.servicio, e.quien, e.id_comando, i, e.con_datos && i % 2 == 0, &cuentas);
        if (e.turno != nullptr)
            ReleaseMutex(e.turno);
    }
    return cuentas;
}

inline eco_encargo eco_mi_encargo;

inline int eco_obedece_cliente(const char *linea)
{
    if (strcmp(linea, "YA") != 0)
        return anfitrion_obedece_cliente(linea);
    papel_c_di("HECHO %s", en_linea(eco_cumple(eco_mi_encargo)).c_str());
    return 1;
}

PAPEL(eco_cliente)
{
    eco_encargo &e = eco_mi_encargo;
    e.servicio = args[1];
    e.quien = args[2];
    e.id_comando = static_cast<uint32_t>(strtoul(args[3].c_str(), nullptr, 10));
    e.num = static_cast<uint32_t>(strtoul(args[4].c_str(), nullptr, 10));
    e.con_datos = args[5] == "datos";
    e.turno = args[6] != "-" ? CreateMutexA(nullptr, FALSE, args[6].c_str()) : nullptr;
    anfitrion_lee_servicios(args[1].c_str());
    anfitrion_nace(args[0] == "ventana");
    ivrexa_registra_cliente_de_servicio(anfitrion_yo.ruta, anfitrion_yo.hwnd, args[1].c_str());
    papel_c_di("LISTO");
    anfitrion_vive(eco_obedece_cliente);
    ivrexa_cierra_sesion();
    return 0;
}

// ---- The test's side

inline papel arranca_eco_servidor(const std::string &clase, const std::string &servicios)
{
    return arranca_papel("eco_servidor", {clase, servicios});
}

// Client i is "c<i>", sends the id 200 + i, and has a window if i is even.
inline papel arranca_eco_cliente(uint32_t i, const std::string &servicio, uint32_t num, bool con_datos,
                                 const std::string &turno = "-")
{
    return arranca_papel("eco_cliente",
                         {i % 2 == 0 ? "ventana" : "sin_ventana", servicio, "c" + std::to_string(i),
                          std::to_string(eco_PRIMERO + i), std::to_string(num), con_datos ? "datos" : "-", turno});
}

// What follows `prefijo` in the child's next such line; "" with a failure when none comes.
inline std::string resto_de(papel &p, const std::string &prefijo, uint32_t ms)
{
    std::string linea = p.espera_linea(prefijo, ms);
    return linea.size() > prefijo.size() ? linea.substr(prefijo.size()) : "";
}

inline eco_cuentas espera_hecho(papel &cliente, uint32_t ms = 55000)
{
    return eco_de_linea(resto_de(cliente, "HECHO ", ms));
}

// The fields of "CUENTA ...".
inline std::vector<std::string> eco_cuenta_de(papel &servidor)
{
    std::vector<std::string> campos;
    servidor.di("CUENTA");
    std::istringstream linea(resto_de(servidor, "CUENTA ", 10000));
    for (std::string campo; std::getline(linea, campo, '|');)
        campos.push_back(campo);
    campos.resize(8);
    return campos;
}

// The channel is free, nothing stands in it, and nobody keeps its mutexes or the registry's.
inline void espera_canal_entero(const std::string &servicio)
{
    bloque_crudo canal(nombre_canal(servicio).c_str());
    ASSERT_TRUE(canal.abierto());
    for (size_t despl : {4, 1198, 1202, 1206})
        EXPECT_EQ(canal.u32(despl), 0u) << "offset " << despl;
    for (const std::string &nombre :
         {"Mutex_Ivrexa_" + servicio, "Mutex_Ivrexa_" + servicio + "Interno", std::string("Ivrexa_Mutex_MCB")}) {
        mutex_crudo mutex(nombre.c_str(), mutex_crudo::modo::crea);
        EXPECT_TRUE(mutex.retiene(10000)) << nombre << " stays held";
        mutex.suelta();
    }
}

#endif
