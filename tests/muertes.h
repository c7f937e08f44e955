// muertes.h - a program that dies at a chosen place, and what the others can still do. For one source file of a program
// called dll_muertes_*.cpp; it brings the roles and helpers of dll_conversa.h, which use the library as it ships. The
// victim is the program of fallos/victima.cpp, which uses the one with the places.
//
//     TEST_F(con_victima, cliente_que_muere_al_registrarse)
//     {
//         empieza_vecinos();                               // a server and its client, who survive
//         pareja propios("ventana", nombre_unico("serv"));
//         arranca_victima("sin_ventana");
//         muere("entra 8", 1, "REGISTRA_CLIENTE " + propios.servicio);
//         comprueba_supervivencia();                       // the neighbours, and new programs
//         propios.cambia_cliente();
//         propios.conversa();
//     }
#ifndef MUERTES_H
#define MUERTES_H

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dll_conversa.h"

enum : uint32_t {
    SALIDA_LUGAR = 86,       // the exit code of a process that died at its place
    PLAZO_COMANDO_MS = 8000, // 26 rounds of 100 ms given up on a loaded machine, twice
    PLAZO_MUERTE_MS = 20000,
};

// ---- Invariants of what programs share

inline void comprueba_texto_acaba(const bloque_crudo &bloque, size_t despl, size_t tam, const std::string &que,
                                  lugar donde)
{
    if (bloque.texto(despl, tam).size() >= tam)
        ADD_FAILURE_AT(donde.fichero, donde.linea) << que << " does not end within its field";
}

inline void comprueba_texto_u_acaba(const bloque_crudo &bloque, size_t despl, size_t tam, const std::string &que,
                                    lugar donde)
{
    if (bloque.texto_u(despl, tam).size() >= tam)
        ADD_FAILURE_AT(donde.fichero, donde.linea) << que << " does not end within its field";
}

inline void comprueba_tope(uint64_t valor, uint64_t tope, const std::string &que, lugar donde)
{
    if (valor > tope)
        ADD_FAILURE_AT(donde.fichero, donde.linea) << que << " is " << valor << ", above " << tope;
}

inline void comprueba_programas(const bloque_crudo &registro, lugar donde)
{
    std::set<std::pair<std::string, uint64_t>> vistos;
    for (size_t i = 0; i < 16; i++) {
        size_t despl = 1430 + i * 274;
        std::string que = "program " + std::to_string(i), nombre = registro.texto(despl, 256);
        comprueba_texto_acaba(registro, despl, 256, que + "'s name", donde);
        for (size_t bandera = 264; bandera <= 268; bandera += 2)
            comprueba_tope(registro.u16(despl + bandera), 1, que + ", flag at " + std::to_string(bandera), donde);
        if (!nombre.empty() && !vistos.insert({nombre, registro.u64(despl + 256)}).second)
            ADD_FAILURE_AT(donde.fichero, donde.linea) << que << ", " << nombre << ", is in the table twice";
    }
}

inline void comprueba_servicios(const bloque_crudo &registro, lugar donde)
{
    std::set<std::string> vistos;
    for (size_t i = 0; i < 32; i++) {
        size_t despl = 5814 + i * 96;
        std::string que = "service " + std::to_string(i), nombre = registro.texto(despl, 64);
        comprueba_texto_acaba(registro, despl, 64, que + "'s name", donde);
        comprueba_tope(registro.u16(despl + 64), 16, que + ", its server", donde);
        comprueba_tope(registro.u16(despl + 66), 16, que + ", its client", donde);
        comprueba_tope(registro.u32(despl + 68), 2, que + ", the server's loop state", donde);
        comprueba_tope(registro.u32(despl + 84), 4, que + ", the client's loop state", donde);
        if (!nombre.empty() && !vistos.insert(nombre).second)
            ADD_FAILURE_AT(donde.fichero, donde.linea) << que << ", " << nombre << ", is in the table twice";
    }
}

inline void comprueba_actividades(const bloque_crudo &registro, lugar donde)
{
    comprueba_tope(registro.u32(18), 63, "num_actividad_siguiente", donde);
    for (size_t i = 0; i < 64; i++) {
        size_t despl = 22 + i * 22;
        std::string que = "activity " + std::to_string(i + 1);
        comprueba_tope(registro.u32(despl), 32, que + ", its service", donde);
        comprueba_tope(registro.u32(despl + 12), 2, que + ", its program", donde);
        comprueba_tope(registro.u32(despl + 16), 4, que + ", its kind", donde);
        comprueba_tope(registro.u16(despl + 20), 1, que + ", its flag", donde);
    }
}

// The registry, if any program holds it: indexes below their tables, flags, texts that end.
inline void comprueba_registro_sano(lugar donde = lugar::aqui())
{
    bloque_crudo registro("Ivrexa_MCB");
    if (!registro.abierto())
        return;
    EXPECT_EQ(registro.cabecera(), 8886u);
    EXPECT_TRUE(registro.u16(0) == 0 || registro.u16(0) == 8886) << "tam_bloque " << registro.u16(0);
    EXPECT_TRUE(registro.u16(2) == 0 || registro.u16(2) == 256) << "version " << registro.u16(2);
    comprueba_programas(registro, donde);
    comprueba_servicios(registro, donde);
    comprueba_actividades(registro, donde);
}

// The channel of a service, if any program holds it: states that exist, texts that end.
inline void comprueba_canal_sano(const std::string &servicio, lugar donde = lugar::aqui())
{
    bloque_crudo canal(nombre_canal(servicio).c_str());
    if (!canal.abierto())
        return;
    EXPECT_EQ(canal.cabecera(), 2378u);
    EXPECT_TRUE(canal.u16(0) == 0 || canal.u16(0) == 2378) << "tam_bloque " << canal.u16(0);
    comprueba_tope(canal.u32(4), 5, "info_estadoComando", donde);
    comprueba_tope(canal.u16(28), 1, "servidor_terminado", donde);
    comprueba_tope(canal.u32(30), 3, "estado_servidor", donde);
    comprueba_tope(canal.u32(1198), 2, "ocupacion", donde);
    comprueba_tope(canal.u32(2362), 3, "estado_notificacion", donde);
    EXPECT_TRUE(canal.u32(12) == 0 || canal.u32(12) >= 100) << "id_bloque_MCCom_siguiente " << canal.u32(12);
    for (auto [despl, tam] :
         {std::pair<size_t, size_t>{38, 64}, {166, 256}, {678, 256}, {1210, 64}, {1338, 256}, {1850, 256}})
        comprueba_texto_u_acaba(canal, despl, tam, "the channel's text at " + std::to_string(despl), donde);
}

// ---- A server and its client

class pareja {
public:
    pareja(const std::string &clase, const std::string &nombre_servicio)
        : servicio(nombre_servicio), servidor(arranca_servidor(clase, nombre_servicio)),
          cliente(arranca_cliente("sin_ventana", nombre_servicio)), m_clase(clase)
    {
        espera_cliente();
    }

    // A server that comes to a client who was there before, and the other way round.
    pareja(const std::string &clase, const std::string &nombre_servicio, papel &&su_cliente)
        : servicio(nombre_servicio), servidor(arranca_servidor(clase, nombre_servicio)), cliente(std::move(su_cliente)),
          m_clase(clase)
    {
        espera_cliente();
    }

    void cambia_cliente()
    {
        cliente = arranca_cliente("sin_ventana", servicio);
        espera_cliente();
    }

    // A command with data and texts both ways, everything compared, within `plazo_ms`.
    void conversa(uint32_t plazo_ms = PLAZO_COMANDO_MS, lugar donde = lugar::aqui())
    {
        SCOPED_TRACE("a command on " + servicio);
        uint32_t n = m_veces++ % 6;
        wchar_t t1[64], t2[256], t3[256];
        anfitrion_textos_muestra(n, t1, t2, t3);
        cliente.di("ECO " + std::to_string(n), donde);
        std::string resultado = cliente.espera_linea("RESULTADO ", plazo_ms, donde);
        EXPECT_EQ(resultado.substr(0, 12), "RESULTADO 1|") << resultado;
        if (resultado.compare(0, 12, "RESULTADO 1|") != 0)
            return;
        // A dead client's command may have left lines of another sample.
        servidor.espera_linea("ENTRADA " + muestra_descrita(n), 5000, donde);
        servidor.espera_linea(linea_textos(t1, t2, t3), 5000, donde);
        EXPECT_EQ(cliente.espera_linea("TEXTOS ", 5000, donde),
                  linea_textos(del_reves(t1), del_reves(t2), del_reves(t3)));
        EXPECT_EQ(cliente.espera_linea("SALIDA ", 5000, donde), "SALIDA " + muestra_descrita(n));
        comprueba_canal_sano(servicio, donde);
    }

    const std::string servicio;
    papel servidor;
    papel cliente;

private:
    void espera_cliente()
    {
        if (m_clase == "sin_ventana")
            espera_latido(ruta_de(cliente));
    }

    std::string m_clase;
    uint32_t m_veces = 0;
};

// ---- A process that stands still at its place

class parada {
public:
    explicit parada(const papel &victima)
        : m_llega(CreateEventA(nullptr, FALSE, FALSE, ("ivrexa_fallo_llega_" + std::to_string(victima.pid())).c_str())),
          m_sigue(CreateEventA(nullptr, FALSE, FALSE, ("ivrexa_fallo_sigue_" + std::to_string(victima.pid())).c_str()))
    {
    }
    ~parada()
    {
        CloseHandle(m_llega);
        CloseHandle(m_sigue);
    }
    parada(const parada &) = delete;
    parada &operator=(const parada &) = delete;

    // Made before the line that leads there is sent.
    void espera(lugar donde = lugar::aqui())
    {
        if (WaitForSingleObject(m_llega, PLAZO_MUERTE_MS) != WAIT_OBJECT_0)
            ADD_FAILURE_AT(donde.fichero, donde.linea) << "the victim did not come to its place";
    }
    void sigue() { SetEvent(m_sigue); }

private:
    HANDLE m_llega;
    HANDLE m_sigue;
};

// ---- The victim and its survivors

class con_victima : public ::testing::Test {
protected:
    void SetUp() override { vacia_registro(); }

    // Programs that have nothing to do with the victim, but for what all share.
    void empieza_vecinos(const std::string &clase = "ventana")
    {
        m_vecinos.push_back(std::make_unique<pareja>(clase, nombre_unico("vecino")));
    }

    papel &arranca_victima(const std::string &clase)
    {
        opciones_papel opciones;
        opciones.programa = "victima.exe";
        m_victima = std::make_unique<papel>(arranca_papel("victima", {clase}, opciones));
        return *m_victima;
    }

    papel &victima() { return *m_victima; }

    // A step that the victim takes and answers.
    std::string haz(const std::string &orden, const std::string &respuesta, lugar donde = lugar::aqui())
    {
        m_victima->di(orden, donde);
        return m_victima->espera_linea(respuesta, PLAZO_MUERTE_MS, donde);
    }

    void arma(const std::string &sitio, uint32_t vez, const std::string &modo = "MUERE", lugar donde = lugar::aqui())
    {
        haz(modo + " " + std::to_string(vez) + " " + sitio, "ARMADO", donde);
    }

    // The registered server of a service, "con_funcion" or "net"; its window is the victim's own, if it has one.
    void haz_de_servidor(const std::string &clase, const std::string &servicio, lugar donde = lugar::aqui())
    {
        haz("REGISTRA_SERVIDOR " + clase + " " + servicio, "PREPARADO", donde);
        haz("TERMINADO_REGISTRO", "PUBLICADO", donde);
    }

    void espera_muerte(lugar donde = lugar::aqui())
    {
        uint32_t codigo = m_victima->espera_fin(PLAZO_MUERTE_MS, donde);
        if (codigo != SALIDA_LUGAR)
            ADD_FAILURE_AT(donde.fichero, donde.linea) << "the victim ended with " << codigo;
    }

    // The victim obeys the line and dies at the place, the `vez`-th time that it comes there from now on.
    void muere(const std::string &sitio, uint32_t vez, const std::string &orden, lugar donde = lugar::aqui())
    {
        arma(sitio, vez, "MUERE", donde);
        m_victima->di(orden, donde);
        espera_muerte(donde);
    }

    // The neighbours go on; a new server and a new client find each other.
    void comprueba_supervivencia(lugar donde = lugar::aqui())
    {
        comprueba_registro_sano(donde);
        for (std::unique_ptr<pareja> &vecinos : m_vecinos)
            vecinos->conversa(PLAZO_COMANDO_MS, donde);
        pareja nuevos("ventana", nombre_unico("nuevo"));
        nuevos.conversa(PLAZO_COMANDO_MS, donde);
        comprueba_registro_sano(donde);
    }

    // They close their sessions in good order, which takes a second.
    void acaban_los_vecinos(lugar donde = lugar::aqui())
    {
        for (std::unique_ptr<pareja> &vecinos : m_vecinos)
            for (papel *p : {&vecinos->servidor, &vecinos->cliente})
                p->di("ACABA", donde);
        for (std::unique_ptr<pareja> &vecinos : m_vecinos)
            for (papel *p : {&vecinos->servidor, &vecinos->cliente})
                EXPECT_EQ(p->espera_fin(15000, donde), 0u);
        comprueba_registro_sano(donde);
    }

    // A new server of the service that the victim offered, for the client that was there before.
    void comprueba_relevo(const std::string &clase, const std::string &servicio, papel &&cliente,
                          lugar donde = lugar::aqui())
    {
        pareja relevo(clase, servicio, std::move(cliente));
        relevo.conversa(PLAZO_COMANDO_MS, donde);
        comprueba_registro_sano(donde);
    }

private:
    std::vector<std::unique_ptr<pareja>> m_vecinos;
    std::unique_ptr<papel> m_victima;
};

#endif
