// Documents that a client tells of: what is kept of them, what is reported, and that nobody else sees any of it.
#include <regex>

#include "comun/hilo.h"
#include "comun/proceso_propio.h"

#include "dll_conversa.h"

static const char *const OTRA_RUTA = "iv_mem_cadenas_iguales_u(doc->ruta, ruta_documento) == CIERTO";
static const char *const SIN_SERVICIO = "servicio_solicitado != NULL";
static const char *const SIN_PROGRAMA = "s_programa != NULL";

static uint32_t abre(const std::string &servicio, const std::wstring &ruta, uint32_t id)
{
    return ivrexa_abierto_documento_de_cliente(servicio.c_str(), ruta.c_str(), id);
}

static void cierra(const std::wstring &ruta, uint32_t id)
{
    ivrexa_cerrado_documento_de_cliente(ruta.c_str(), id);
}

// With a free slot, opening would record an unknown document, and closing forgets a known one.
static void comprueba_que_no_esta(uint32_t id)
{
    cierra(L"another path", id);
    EXPECT_SIN_INFORMES();
}

static void comprueba_que_esta(const std::string &servicio, uint32_t id)
{
    abre(servicio, L"another path", id);
    EXPECT_INFORME("iv_reg", OTRA_RUTA);
}

static std::wstring ruta_doc(uint32_t n)
{
    return L"C:\\documentos\\" + std::to_wstring(n);
}

static int32_t no_se_llama(const char *, uint32_t, comando *, void *)
{
    ADD_FAILURE() << "nobody sends a command here";
    return 3;
}

// ---- A server that says every message of a service that reaches its window, and notifies

// Registered messages are those from 0xC000 up.
static void dice_mensaje(UINT msg, WPARAM wparam)
{
    if (msg >= 0xC000)
        papel_c_di("MENSAJE %u", static_cast<unsigned>(wparam));
}

static LRESULT CALLBACK mira_enviado(int codigo, WPARAM wparam, LPARAM lparam)
{
    const CWPSTRUCT *enviado = reinterpret_cast<const CWPSTRUCT *>(lparam);
    if (codigo == HC_ACTION && enviado->hwnd == anfitrion_yo.hwnd)
        dice_mensaje(enviado->message, enviado->wParam);
    return CallNextHookEx(nullptr, codigo, wparam, lparam);
}

static LRESULT CALLBACK mira_tomado(int codigo, WPARAM wparam, LPARAM lparam)
{
    const MSG *msg = reinterpret_cast<const MSG *>(lparam);
    if (codigo == HC_ACTION && msg->hwnd == anfitrion_yo.hwnd)
        dice_mensaje(msg->message, msg->wParam);
    return CallNextHookEx(nullptr, codigo, wparam, lparam);
}

static void pon_miras()
{
    if (anfitrion_yo.hwnd == nullptr)
        return;
    SetWindowsHookExW(WH_CALLWNDPROC, mira_enviado, nullptr, GetCurrentThreadId());
    SetWindowsHookExW(WH_GETMESSAGE, mira_tomado, nullptr, GetCurrentThreadId());
}

static int32_t dice_comando(anfitrion_peticion *p)
{
    papel_c_di("COMANDO %u", static_cast<unsigned>(p->id_comando));
    return 99;
}

static int obedece_atento(const char *linea)
{
    unsigned id_cliente = 0, dato = 0;
    if (sscanf(linea, "AVISA %u %u", &id_cliente, &dato) != 2)
        return anfitrion_obedece(linea);
    ivrexa_notifica_a_cliente(anfitrion_yo.servicios[0], id_cliente, dato, 0);
    papel_c_di("AVISADO");
    return 1;
}

PAPEL(servidor_atento)
{
    anfitrion_yo.al_nacer = pon_miras;
    anfitrion_yo.otros = dice_comando;
    return anfitrion_servidor_que(args[0].c_str(), args[1].c_str(), obedece_atento);
}

// ---- Another client

PAPEL(documentalista)
{
    ivrexa_registra_cliente_de_servicio("documentalista", nullptr, args[0].c_str());
    yo.di("LISTO");
    while (std::optional<std::string> linea = yo.escucha(60000)) {
        if (*linea == "ACABA")
            break;
        uint32_t id = static_cast<uint32_t>(atoi(linea->c_str()));
        yo.di("CLIENTE " + std::to_string(abre(args[0], ruta_doc(id), id)));
    }
    ivrexa_cierra_sesion();
    return 0;
}

using documentos = conversacion;

// ---- The client's id

TEST_F(documentos, primer_documento_de_cada_servicio_le_da_el_id_siguiente_desde_200)
{
    std::vector<std::string> servicios;
    for (int i = 0; i < 17; i++) {
        servicios.push_back(nombre_unico("serv"));
        registra(servicios.back());
    }
    // In the order of their first documents, not of their registration.
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(abre(servicios[15 - i], ruta_doc(i % 3), 1 + i % 3), 200 + i);
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(abre(servicios[i], ruta_doc(9), 9), 215 - i);
    EXPECT_SIN_INFORMES();

    EXPECT_EQ(abre(servicios[16], L"x", 10), 0u) << "the 17th service was dropped without a word";
    EXPECT_INFORME("iv_reg", SIN_SERVICIO);
    comprueba_que_no_esta(10);
}

TEST_F(documentos, un_cliente_de_tres_clases_de_servidor_y_otro_cliente_con_sus_propios_ids)
{
    std::vector<papel> servidores;
    std::vector<std::string> servicios;
    for (const char *clase : CLASES_SERVIDOR) {
        servicios.push_back(nombre_unico("serv"));
        servidores.push_back(arranca_servidor(clase, servicios.back()));
        registra(servicios.back());
    }
    papel otro = arranca_papel("documentalista", {servicios[1]});
    EXPECT_EQ(abre(servicios[2], ruta_doc(1), 1), 200u);
    EXPECT_EQ(abre(servicios[0], ruta_doc(1), 1), 201u);
    otro.di("1");
    EXPECT_EQ(otro.espera_linea("CLIENTE ", 5000), "CLIENTE 200");
    EXPECT_EQ(abre(servicios[1], ruta_doc(2), 2), 202u);
    otro.di("2");
    EXPECT_EQ(otro.espera_linea("CLIENTE ", 5000), "CLIENTE 200");
    acaba(otro);
    for (papel &servidor : servidores)
        acaba(servidor);
}

// The servers' lives change nothing of it.
TEST_F(documentos, servidor_que_acaba_o_muere_y_vuelve_no_cambia_nada)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    papel servidor = arranca_servidor("ventana", uno);
    papel moribundo = arranca_servidor("net", dos);
    registra(uno);
    registra(dos);
    EXPECT_EQ(abre(uno, ruta_doc(1), 1), 200u);
    EXPECT_EQ(abre(dos, ruta_doc(1), 1), 201u);
    acaba(servidor);
    moribundo.mata();
    EXPECT_EQ(abre(uno, ruta_doc(2), 2), 200u);
    EXPECT_EQ(abre(dos, ruta_doc(2), 2), 201u);
    papel de_nuevo = arranca_servidor("sin_ventana", uno);
    EXPECT_EQ(abre(uno, ruta_doc(3), 3), 200u);
    cierra(ruta_doc(1), 1);
    EXPECT_EQ(abre(uno, ruta_doc(1), 1), 200u);
    comprueba_que_esta(uno, 2);
    acaba(de_nuevo);
}

static uint32_t s_id_avisado;
static void guarda_id(const char *, uint32_t id_cliente, uint32_t)
{
    s_id_avisado = id_cliente;
}

// A message of the service that comes before the first document gives the id, and the counter does not move.
TEST_F(documentos, id_que_dio_un_mensaje_es_el_que_dan_los_documentos)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    da_ventana();
    for (const std::string &s : {uno, dos})
        ivrexa_registra_cliente_notificaciones_servicio(ruta().c_str(), hwnd(), s.c_str(), guarda_id);
    SendMessageW(hwnd(), ivrexa_dame_id_MSG_servicio(uno.c_str()), 7, 777);
    EXPECT_EQ(s_id_avisado, 777u);
    EXPECT_EQ(abre(uno, L"a", 1), 777u);
    EXPECT_EQ(abre(dos, L"a", 1), 200u);
    SendMessageW(hwnd(), ivrexa_dame_id_MSG_servicio(dos.c_str()), 7, 888);
    EXPECT_EQ(s_id_avisado, 200u);
    EXPECT_EQ(abre(dos, L"b", 2), 200u);
}

// ---- What is reported, and what is done then

TEST_F(documentos, sin_registro_se_informa_de_cada_argumento_y_de_eso)
{
    const bool habia_registro = existe_bloque("Ivrexa_MCB"); // earlier tests of this process may keep it
    EXPECT_EQ(abre("nadie", L"a", 1), 0u);
    EXPECT_INFORME("iv_reg", SIN_PROGRAMA);
    cierra(L"a", 1);
    EXPECT_INFORME("iv_reg", SIN_PROGRAMA);
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(nullptr, nullptr, 0), 0u);
    for (const char *expresion : {"(nombre_servicio) != 0", "(ruta_documento) != 0", "id_documento != 0"})
        EXPECT_INFORME("ivrexa", expresion);
    EXPECT_INFORME("iv_reg", SIN_PROGRAMA);
    ivrexa_cerrado_documento_de_cliente(nullptr, 0);
    EXPECT_INFORME("ivrexa", "(ruta_documento) != 0");
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    EXPECT_INFORME("iv_reg", SIN_PROGRAMA);
    EXPECT_EQ(existe_bloque("Ivrexa_MCB"), habia_registro) << "asking opens nothing";
}

class de_servidor : public con_cada_servidor {
protected:
    void ofrece(const std::string &nombre)
    {
        if (clase != "sin_ventana")
            da_ventana();
        if (clase == "net")
            ivrexa_registra_servidor_net(ruta().c_str(), hwnd(), nombre.c_str(), 1);
        else
            ivrexa_registra_servidor(ruta().c_str(), hwnd(), nombre.c_str(), 1, nullptr, no_se_llama);
        ivrexa_terminado_registro();
    }
};
CON_CADA_SERVIDOR(de_servidor);

// A service that this program only offers is none that it uses.
TEST_P(de_servidor, solo_valen_los_servicios_que_usa_y_el_propio_si_lo_usa)
{
    std::string usado = nombre_unico("usado");
    papel otro = arranca_servidor(clase, usado);
    ofrece(servicio);
    for (const std::string &s : {servicio, usado}) {
        EXPECT_EQ(abre(s, L"a", 1), 0u);
        EXPECT_INFORME("iv_reg", SIN_SERVICIO);
    }
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(nullptr, nullptr, 0), 0u);
    for (const char *expresion : {"(nombre_servicio) != 0", "(ruta_documento) != 0", "id_documento != 0"})
        EXPECT_INFORME("ivrexa", expresion);
    EXPECT_INFORME("iv_reg", SIN_SERVICIO);
    comprueba_que_no_esta(1);

    registra(usado);
    EXPECT_EQ(abre(usado, L"a", 1), 200u);
    EXPECT_EQ(abre(servicio, L"b", 2), 0u);
    EXPECT_INFORME("iv_reg", SIN_SERVICIO);
    comprueba_que_no_esta(2);
    registra(servicio);
    EXPECT_EQ(abre(servicio, L"a", 1), 201u);
    comprueba_que_esta(usado, 1);
    acaba(otro);
}

TEST_F(documentos, ruta_nula_es_vacia_y_servicio_nulo_es_el_del_nombre_vacio)
{
    registra("");
    EXPECT_EQ(ivrexa_abierto_documento_de_cliente(nullptr, nullptr, 5), 200u);
    EXPECT_INFORME("ivrexa", "(nombre_servicio) != 0");
    EXPECT_INFORME("ivrexa", "(ruta_documento) != 0");
    EXPECT_EQ(abre("", L"", 5), 200u);
    EXPECT_SIN_INFORMES();
    comprueba_que_esta("", 5);
    ivrexa_cerrado_documento_de_cliente(nullptr, 5);
    EXPECT_INFORME("ivrexa", "(ruta_documento) != 0");
    comprueba_que_no_esta(5);

    abre("", L"C:\\algo", 6);
    ivrexa_cerrado_documento_de_cliente(nullptr, 6);
    EXPECT_INFORME("ivrexa", "(ruta_documento) != 0");
    EXPECT_INFORME("iv_reg", OTRA_RUTA);
    comprueba_que_no_esta(6);
}

// Reported by the export alone. It fills a slot, which goes on counting as free.
TEST_F(documentos, id_0_se_informa_da_el_id_de_cliente_y_no_gasta_casilla)
{
    std::string servicio = nombre_unico("serv");
    registra(servicio);
    for (const wchar_t *ruta : {L"uno", L"otra", L""}) {
        EXPECT_EQ(abre(servicio, ruta, 0), 200u);
        EXPECT_INFORME("ivrexa", "id_documento != 0");
        EXPECT_SIN_INFORMES();
    }
    cierra(L"ninguna", 0);
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    EXPECT_SIN_INFORMES();
    for (uint32_t n = 1; n <= 32; n++)
        abre(servicio, ruta_doc(n), n);
    comprueba_que_esta(servicio, 32);
    EXPECT_EQ(abre(servicio, L"uno", 0), 200u) << "no slot is left";
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    EXPECT_SIN_INFORMES();
    comprueba_que_esta(servicio, 1);
}

TEST_F(documentos, otra_ruta_se_informa_y_vale_la_primera)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    registra(uno);
    registra(dos);
    abre(uno, L"C:\\Uno.txt", 1);
    for (const wchar_t *ruta : {L"C:\\uno.txt", L"C:\\Uno.tx", L"C:\\Uno.txt ", L""}) {
        EXPECT_EQ(abre(dos, ruta, 1), 201u) << "the id is given all the same";
        EXPECT_INFORME("iv_reg", OTRA_RUTA);
        EXPECT_EQ(abre(uno, L"C:\\Uno.txt", 1), 200u);
        EXPECT_SIN_INFORMES();
    }
    cierra(L"C:\\uno.txt", 1);
    EXPECT_INFORME("iv_reg", OTRA_RUTA);
    comprueba_que_no_esta(1);
}

TEST_F(documentos, rutas_largas_y_de_cualquier_unidad_se_comparan_enteras_y_se_copian)
{
    std::string servicio = nombre_unico("serv");
    registra(servicio);
    std::wstring largas[] = {std::wstring(40000, L'x') + L"a", L"\\\\?\\C:\\\x20ac\xd83d\xde00\x4e2d|*?\n\"a"};
    for (uint32_t id = 1; id <= 2; id++) {
        SCOPED_TRACE(id);
        std::wstring ruta = largas[id - 1], mia = ruta, otra = ruta;
        otra.back() = L'b';
        EXPECT_EQ(abre(servicio, mia, id), 200u);
        mia.assign(mia.size(), L'#'); // the caller's own again
        EXPECT_EQ(abre(servicio, ruta, id), 200u);
        EXPECT_SIN_INFORMES();
        abre(servicio, otra, id);
        EXPECT_INFORME("iv_reg", OTRA_RUTA);
        cierra(ruta, id);
        EXPECT_SIN_INFORMES();
        comprueba_que_no_esta(id);
    }
}

TEST_F(documentos, misma_ruta_con_dos_ids_son_dos_documentos)
{
    std::string servicio = nombre_unico("serv");
    registra(servicio);
    abre(servicio, L"C:\\uno", 1);
    abre(servicio, L"C:\\uno", 4294967295u);
    cierra(L"C:\\uno", 1);
    comprueba_que_esta(servicio, 4294967295u);
    comprueba_que_no_esta(1);
    EXPECT_SIN_INFORMES();
}

// ---- Slots

TEST_F(documentos, caben_32_y_el_siguiente_no_se_apunta_hasta_que_hay_sitio)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    registra(uno);
    registra(dos);
    for (uint32_t n = 1; n <= 32; n++)
        EXPECT_EQ(abre(uno, ruta_doc(n), n), 200u);
    EXPECT_EQ(abre(dos, ruta_doc(33), 33), 201u) << "the id is given all the same";
    EXPECT_EQ(abre(dos, ruta_doc(34), 33), 201u);
    EXPECT_SIN_INFORMES();
    for (uint32_t n : {1u, 17u, 32u})
        comprueba_que_esta(dos, n);
    comprueba_que_no_esta(33);

    cierra(ruta_doc(32), 32);
    cierra(ruta_doc(5), 5);
    for (uint32_t n = 33; n <= 35; n++)
        EXPECT_EQ(abre(dos, ruta_doc(n), n), 201u);
    comprueba_que_esta(dos, 33);
    comprueba_que_esta(dos, 34);
    comprueba_que_no_esta(35);
    for (uint32_t n = 1; n <= 34; n++)
        cierra(ruta_doc(n), n); // 5 and 32 are closed already
    for (uint32_t n = 101; n <= 133; n++)
        abre(uno, ruta_doc(n), n);
    EXPECT_SIN_INFORMES();
    comprueba_que_esta(uno, 132);
    comprueba_que_no_esta(133);
}

TEST_F(documentos, cerrado_lo_esta_para_todos_los_servicios_y_los_ids_de_cliente_quedan)
{
    std::string servicios[] = {nombre_unico("uno"), nombre_unico("dos"), nombre_unico("tres")};
    for (const std::string &s : servicios)
        registra(s);
    abre(servicios[0], L"a", 1);
    abre(servicios[1], L"a", 1);
    cierra(L"a", 1);
    cierra(L"a", 1);
    cierra(L"nunca", 77);
    EXPECT_EQ(abre(servicios[1], L"b", 1), 201u);
    EXPECT_EQ(abre(servicios[0], L"b", 1), 200u);
    EXPECT_EQ(abre(servicios[2], L"b", 1), 202u);
    EXPECT_SIN_INFORMES();
}

TEST_F(documentos, cierre_de_la_sesion_vacia_todas_las_casillas)
{
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    for (int vez = 0; vez < 2; vez++) {
        registra(uno);
        registra(dos);
        for (uint32_t n = 1; n <= 32; n++)
            EXPECT_EQ(abre(vez == 0 ? uno : dos, ruta_doc(100 * vez + n), n), 200u);
        EXPECT_EQ(abre(vez == 0 ? dos : uno, ruta_doc(100 * vez + 32), 32), 201u);
        EXPECT_SIN_INFORMES();
        comprueba_que_esta(uno, 32);
        ivrexa_cierra_sesion();
        EXPECT_EQ(abre(uno, ruta_doc(1), 1), 0u);
        EXPECT_INFORME("iv_reg", SIN_PROGRAMA);
    }
}

// ---- Memory, as the heap's trace tells it

// The allocations and releases of the last calls on this thread: "+size" and "-"; the addresses in order.
struct monton_visto {
    std::string pasos;
    std::vector<std::string> direcciones;
};

static monton_visto lee_monton(captura_traza *traza)
{
    static const std::regex paso("i_(malloc|free)\\(([0-9]*)\\): memlocal = ([0-9]+)\n");
    monton_visto visto;
    std::string texto = traza->texto_propio();
    for (std::sregex_iterator i(texto.begin(), texto.end(), paso), fin; i != fin; ++i) {
        visto.pasos += (*i)[1] == "malloc" ? "+" + (*i)[2].str() : "-";
        visto.direcciones.push_back((*i)[3]);
    }
    traza->borra();
    return visto;
}

TEST_F(documentos, de_cada_uno_se_guarda_la_ruta_hasta_que_se_cierra)
{
    if (!en_proceso_trazado())
        return;
    std::string uno = nombre_unico("uno"), dos = nombre_unico("dos");
    registra(uno);
    registra(dos);
    captura_traza traza;
    abre(uno, L"cuatro", 1);
    monton_visto abierto = lee_monton(&traza);
    EXPECT_EQ(abierto.pasos, "+14") << "the path alone";
    abre(uno, L"cuatro", 1);
    abre(dos, L"cuatro", 1);
    comprueba_que_esta(dos, 1);
    cierra(L"nunca", 2);
    EXPECT_EQ(lee_monton(&traza).pasos, "");
    cierra(L"cuatro", 1);
    monton_visto cerrado = lee_monton(&traza);
    EXPECT_EQ(cerrado.pasos, "-");
    EXPECT_EQ(cerrado.direcciones, abierto.direcciones);
    cierra(L"cuatro", 1);
    EXPECT_EQ(lee_monton(&traza).pasos, "");

    // The path of a document of id 0 goes when the slot is used again.
    abre(uno, L"cero", 0);
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    monton_visto cero = lee_monton(&traza);
    EXPECT_EQ(cero.pasos, "+10");
    abre(uno, L"", 3);
    monton_visto tres = lee_monton(&traza);
    EXPECT_EQ(tres.pasos, "-+2");
    EXPECT_EQ(tres.direcciones.front(), cero.direcciones.front());
}

// The last slot holds a document of id 0: its path goes too. One that found no slot has left nothing.
TEST_F(documentos, cierre_de_la_sesion_libera_cada_ruta_una_vez)
{
    if (!en_proceso_trazado())
        return;
    std::string servicio = nombre_unico("serv");
    registra(servicio);
    captura_traza traza;
    for (uint32_t n = 1; n <= 32; n++)
        abre(servicio, ruta_doc(n), n);
    abre(servicio, ruta_doc(33), 33);
    std::vector<std::string> rutas = lee_monton(&traza).direcciones;
    EXPECT_EQ(rutas.size(), 32u);
    cierra(ruta_doc(32), 32);
    abre(servicio, L"cero", 0);
    EXPECT_INFORME("ivrexa", "id_documento != 0");
    rutas.back() = lee_monton(&traza).direcciones.back();

    ivrexa_cierra_sesion();
    std::string texto = traza.texto_propio();
    size_t antes = 0;
    for (const std::string &ruta : rutas) {
        std::string liberada = "i_free(): memlocal = " + ruta + "\n";
        size_t aqui = texto.find(liberada);
        ASSERT_NE(aqui, std::string::npos);
        EXPECT_GT(aqui, antes) << "in the order of the slots";
        EXPECT_EQ(texto.find(liberada, aqui + 1), std::string::npos);
        antes = aqui;
    }
    EXPECT_GT(texto.find("HeapDestroy: "), antes);
    EXPECT_EQ(texto.find("HEAP INVALIDO"), std::string::npos);
}

// ---- What others get of it: nothing

class a_la_vista : public con_cada_servidor {
protected:
    // The registry without what moves by itself: heartbeats and rounds.
    static std::vector<uint8_t> foto_registro()
    {
        bloque_crudo registro("Ivrexa_MCB");
        std::vector<uint8_t> foto = registro.bytes(0, 8886);
        for (size_t i = 0; i < 16; i++)
            std::fill_n(foto.begin() + static_cast<ptrdiff_t>(1430 + i * 274 + 270), 4, uint8_t(0));
        for (size_t j = 0; j < 32; j++)
            std::fill_n(foto.begin() + static_cast<ptrdiff_t>(5814 + j * 96 + 68), 12, uint8_t(0));
        return foto;
    }

    std::vector<uint8_t> foto_canal() const { return bloque_crudo(nombre_canal(servicio).c_str()).bytes(0, 2378); }

    // A monitor that nobody answers for: activities are written down all the same.
    static void finge_monitor()
    {
        bloque_crudo registro("Ivrexa_MCB");
        registro.pon_u16(0, 8886);
        registro.pon_u16(2, 256);
        registro.pon_u64(6, 0x7ffffff0);
        registro.pon_u32(14, 0xc0de);
        registro.pon_u32(18, 1);
    }

    void usa_documentos() const
    {
        for (uint32_t n = 1; n <= 33; n++)
            abre(servicio, ruta_doc(n), n);
        for (uint32_t n = 1; n <= 34; n++)
            cierra(ruta_doc(n), n);
        abre(servicio, ruta_doc(1), 1);
    }
};
CON_CADA_SERVIDOR(a_la_vista);

TEST_P(a_la_vista, ni_el_servidor_ni_el_monitor_ven_los_documentos)
{
    papel servidor = arranca_papel("servidor_atento", {clase, servicio});
    registra_para(clase, servicio);
    finge_monitor();
    std::vector<uint8_t> registro = foto_registro(), canal = foto_canal();
    usa_documentos();
    EXPECT_TRUE(bytes_iguales(registro, foto_registro()));
    EXPECT_TRUE(bytes_iguales(canal, foto_canal()));
    EXPECT_FALSE(existe_bloque(nombre_datos(servicio, 100).c_str()));

    // A message sent or posted before would come before this one's.
    EXPECT_EQ(ejecuta(servicio, 333).resultado, 99u);
    std::vector<std::string> esperadas = {"COMANDO 333"};
    if (clase != "sin_ventana")
        esperadas.insert(esperadas.begin(), "MENSAJE 333");
    servidor.espera_linea("HWND ", 5000);
    EXPECT_TRUE(espera_hasta([&] { return servidor.lineas().size() >= esperadas.size(); }, 5000));
    EXPECT_EQ(servidor.lineas(), esperadas);
    bloque_crudo("Ivrexa_MCB").pon_u64(6, 0);
    acaba(servidor);
}

// Bookkeeping of this process alone: none of the desktop's mutexes is asked for but the heap's.
TEST_P(a_la_vista, no_esperan_a_ningun_mutex_compartido)
{
    papel servidor = arranca_servidor(clase, servicio);
    registra(servicio);
    mutex_crudo registro("Ivrexa_Mutex_MCB"), interno(("Mutex_Ivrexa_" + servicio + "Interno").c_str()),
        canal(("Mutex_Ivrexa_" + servicio).c_str());
    ASSERT_TRUE(canal.retiene(5000));
    ASSERT_TRUE(interno.retiene(5000));
    ASSERT_TRUE(registro.retiene(5000));
    {
        hilo trabajo([&] { usa_documentos(); });
        EXPECT_TRUE(trabajo.acaba(10000));
        registro.suelta();
        interno.suelta();
        canal.suelta();
    }
    acaba(servidor);
}

// The id is what the server notifies by: to the client itself it is of no other use.
static volatile LONG s_num_avisos, s_ultimo_id, s_ultimo_dato;
static void recibe_aviso(const char *nombre_servicio, uint32_t id_cliente, uint32_t dato)
{
    InterlockedExchange(&s_ultimo_id, static_cast<LONG>(id_cliente));
    InterlockedExchange(&s_ultimo_dato, static_cast<LONG>(dato));
    InterlockedIncrement(&s_num_avisos);
    ivrexa_procesada_notificacion(nombre_servicio);
}

TEST_P(a_la_vista, con_el_id_del_primer_documento_avisa_el_servidor)
{
    s_num_avisos = 0;
    papel servidor = arranca_papel("servidor_atento", {clase, servicio});
    std::string otro = nombre_unico("otro");
    registra(otro);
    abre(otro, L"antes", 1);
    // A notification function asks for a window; it need not be the program's.
    HWND ventana = crea_ventana();
    ivrexa_registra_cliente_notificaciones_servicio(ruta().c_str(), ventana, servicio.c_str(), recibe_aviso);
    EXPECT_INFORME("iv_reg", "hwnd_programa == s_programa->hwnd_programa");
    EXPECT_EQ(abre(servicio, L"uno", 2), 201u);
    cierra(L"uno", 2);
    servidor.di("AVISA 201 5");
    servidor.espera_linea("AVISADO", 10000);
    EXPECT_EQ(s_num_avisos, 1);
    EXPECT_EQ(s_ultimo_id, 201);
    EXPECT_EQ(s_ultimo_dato, 5);
    destruye_ventana(&ventana);
    acaba(servidor);
}
