// What the exports do beyond handing on: which checks stand alone, what they leave behind, and in what order
// they act.
#include "iv_reg_apoyo.h"

#include <algorithm>

#include "comun/importacion.h"

#include "iv_comdat.h"
#include "iv_mcbase.h"

IMPORTACION(HeapDestroy);

namespace {

void funcion_actividad(uint32_t, uint32_t, uint16_t, const char *, uint32_t, uint32_t, void *) {}
void funcion_bucle(const iv_mcbase_t *, const datServ *, uint32_t, void *) {}

struct ivrexa_marco : con_sesion {
    const char *m_servicio = nombre_unico("Calc");
};

// What stood in the process when the heap went.
struct fin_del_heap {
    uint32_t veces;
    HANDLE heap;
    const void *programa, *registro;
    bool cerrojo;
};
fin_del_heap s_fin;
decltype(&HeapDestroy) s_destruye_heap;

BOOL WINAPI apunta_fin(HANDLE heap)
{
    s_fin = {s_fin.veces + 1, heap, s_programa, s_mcbase_acceso, existe_mutex("ivrexa_iv_mem")};
    return s_destruye_heap(heap);
}

} // namespace

// ---- Checks

TEST_F(ivrexa_marco, cada_argumento_de_un_monitor_que_se_quita_se_mira_solo_y_se_quita_igual)
{
    bloque_crudo mcb = abre_registro();
    int dato = 0;
    const struct {
        const char *expresion;
        ivrexa_funcion_actividad actividad;
        ivrexa_funcion_bucle cliente, servidor;
        void *externos;
    } casos[] = {
        {"funcionNotificacionActividad == NULL", funcion_actividad, nullptr, nullptr, nullptr},
        {"funcionMonitorBuclesCliente == NULL", nullptr, funcion_bucle, nullptr, nullptr},
        {"funcionMonitorBuclesServidor == NULL", nullptr, nullptr, funcion_bucle, nullptr},
        {"datos_externos_monitor == NULL", nullptr, nullptr, nullptr, &dato},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.expresion);
        ivrexa_registra_monitor(ventana(), funcion_actividad, funcion_bucle, funcion_bucle, nullptr);
        EXPECT_SIN_INFORMES(); // a datum of its own is not asked for
        EXPECT_EQ(mcb.u64(6), reinterpret_cast<uint64_t>(ventana()));
        ivrexa_registra_monitor(nullptr, caso.actividad, caso.cliente, caso.servidor, caso.externos);
        EXPECT_INFORME("ivrexa", caso.expresion);
        EXPECT_SIN_INFORMES();
        EXPECT_EQ(mcb.u64(6), 0u);
        EXPECT_EQ(s_programa_monitor, nullptr);
    }
}

TEST_F(ivrexa_marco, cada_argumento_de_un_monitor_que_se_registra_se_mira_solo_y_se_registra_igual)
{
    const struct {
        const char *expresion;
        ivrexa_funcion_actividad actividad;
        ivrexa_funcion_bucle cliente, servidor;
    } casos[] = {
        {"(funcionNotificacionActividad) != 0", nullptr, funcion_bucle, funcion_bucle},
        {"(funcionMonitorBuclesCliente) != 0", funcion_actividad, nullptr, funcion_bucle},
        {"(funcionMonitorBuclesServidor) != 0", funcion_actividad, funcion_bucle, nullptr},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.expresion);
        ivrexa_registra_monitor(ventana(), caso.actividad, caso.cliente, caso.servidor, nullptr);
        EXPECT_INFORME("ivrexa", caso.expresion);
        EXPECT_SIN_INFORMES();
        EXPECT_NE(s_programa_monitor, nullptr);
        ivrexa_registra_monitor(nullptr, nullptr, nullptr, nullptr, nullptr);
    }
}

// Path, service and document text: each alone, in a call that otherwise has all it needs.
TEST_F(ivrexa_marco, cada_texto_nulo_se_mira_solo)
{
    const struct {
        const char *expresion, *ruta, *servicio;
    } casos[] = {
        {"(ruta_ejecutable) != 0", nullptr, m_servicio},
        {"(nombre_servicio) != 0", "C:\\p.exe", nullptr},
    };
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.expresion);
        ivrexa_registra_cliente_de_servicio(caso.ruta, ventana(), caso.servicio);
        EXPECT_INFORME("ivrexa", caso.expresion);
        EXPECT_SIN_INFORMES();
        ivrexa_registra_cliente_notificaciones_servicio(caso.ruta, ventana(), caso.servicio, funcion_aviso);
        EXPECT_INFORME("ivrexa", caso.expresion);
        EXPECT_SIN_INFORMES();
        cierra();
    }
    ivrexa_registra_cliente_notificaciones_servicio("C:\\p.exe", ventana(), m_servicio, nullptr);
    EXPECT_INFORME("ivrexa", "(funcion_notificacion_cliente) != 0");
    EXPECT_SIN_INFORMES();
}

// A report bears the line of its check: the same each time, another for each check, in their order.
TEST_F(ivrexa_marco, informes_llevan_la_linea_de_su_comprobacion)
{
    auto lineas = [](uint32_t num, const std::function<void()> &llama) {
        std::vector<uint32_t> vistas;
        llama();
        for (uint32_t i = 0; i < num; i++) {
            std::optional<datos_informe> informe = toma_informe();
            EXPECT_TRUE(informe.has_value() && informe->modulo == "ivrexa");
            vistas.push_back(informe ? informe->linea : 0);
        }
        EXPECT_SIN_INFORMES();
        return vistas;
    };
    auto graba_buffer = [] { ivrexa_graba_buffer(nullptr, nullptr, nullptr, 1); };
    auto quita_monitor = [] {
        ivrexa_registra_monitor(nullptr, funcion_actividad, funcion_bucle, funcion_bucle, &s_llamadas);
    };
    const std::vector<uint32_t> buffer = lineas(3, graba_buffer), monitor = lineas(4, quita_monitor);
    EXPECT_EQ(lineas(3, graba_buffer), buffer);
    for (const auto &vistas : {buffer, monitor}) {
        EXPECT_GT(vistas[0], 0u);
        EXPECT_TRUE(std::is_sorted(vistas.begin(), vistas.end(), std::less_equal<>()));
    }
    EXPECT_GT(monitor.front(), buffer.back());
}

// ---- Threads

// Every thread of the host may call at any time, each with containers of its own.
TEST_F(ivrexa_marco, cada_hilo_usa_sus_contenedores_a_la_vez_que_los_demas)
{
    bloque_crudo canal = abre_canal(m_servicio);
    canal.pon_u32(12, 100);
    canal.pon_u32(30, 1);
    uint32_t fallos[4] = {};
    auto trabaja = [&](uint32_t yo) {
        for (uint32_t vuelta = 0; vuelta < 25; vuelta++) {
            comdat *escrito = ivrexa_crea_datos_comando_entrada(m_servicio);
            ivrexa_graba_ulong(escrito, "n", 1000 * yo + vuelta);
            uint32_t id = ivrexa_guarda_datos(escrito);
            comdat *leido = ivrexa_lee_datos(m_servicio, id, 0);
            fallos[yo] += ivrexa_dame_ulong(leido, 0) != 1000 * yo + vuelta;
            fallos[yo] += ivrexa_hay_servicio_registrado(m_servicio, nullptr) != 1;
            ivrexa_destruye_datos_comando(leido);
            ivrexa_destruye_datos_comando(escrito);
        }
    };
    {
        hilo uno([&] { trabaja(1); }), dos([&] { trabaja(2); }), tres([&] { trabaja(3); });
        trabaja(0);
    }
    for (uint32_t de_un_hilo : fallos)
        EXPECT_EQ(de_un_hilo, 0u);
    EXPECT_EQ(canal.u32(12), 200u) << "each block had a number of its own";
}

// ---- Questions

// Block, name and view are given back, whatever the answer.
TEST_F(ivrexa_marco, preguntar_no_deja_nada_en_el_heap_ni_el_canal_a_la_vista)
{
    bloque_crudo mcb = abre_registro();
    mcb.pon_texto(en_servicio(0, 0), m_servicio);
    bloque_crudo canal = abre_canal(m_servicio);
    bloque_crudo pequenyo("Ivrexa_MCB_Serv_pequenyo", 100);
    char nombre[64];
    auto pregunta = [&] {
        for (uint32_t estado : {0u, 1u}) {
            canal.pon_u32(30, estado);
            ivrexa_hay_servicio_registrado(m_servicio, nullptr);
            ivrexa_hay_servicio_registrado_empiece_por(m_servicio, nombre, nullptr);
        }
        ivrexa_hay_servicio_registrado("pequenyo", nullptr);
        ivrexa_hay_servicio_registrado("falta", nullptr);
        ivrexa_hay_servicio_registrado_empiece_por("falta", nombre, nullptr);
    };
    pregunta(); // the registry's access is made once and kept
    uint32_t vivos = bloques_vivos();
    pregunta();
    EXPECT_EQ(bloques_vivos(), vivos);
}

// An entry that another program filled to the brim has no NUL: 63 characters of it are the name.
TEST_F(ivrexa_marco, nombre_sin_fin_en_el_registro_se_entrega_cortado_a_63)
{
    bloque_crudo mcb = abre_registro();
    mcb.pon_bytes(en_servicio(4, 0), std::vector<uint8_t>(64, 'L'));
    mcb.pon_bytes(en_servicio(4, 64), std::vector<uint8_t>(4, 'L')); // what lies behind is not its name
    const std::string cortado(63, 'L');
    bloque_crudo canal = abre_canal(cortado);
    canal.pon_u32(30, 1);
    char nombre[70];
    memset(nombre, '#', sizeof nombre);
    EXPECT_EQ(ivrexa_hay_servicio_registrado_empiece_por("LL", nombre, nullptr), 1);
    EXPECT_EQ(nombre, cortado);
    EXPECT_EQ(nombre[64], '#');
}

// ---- The result's texts

// One buffer given three times ends with the last text: they are filled in the order of the arguments.
TEST_F(ivrexa_marco, textos_se_entregan_en_el_orden_de_sus_argumentos)
{
    sirve(m_servicio, ventana());
    ivrexa_registra_cliente_de_servicio("C:\\p.exe", ventana(), m_servicio);
    s_trabajo = [&](uint32_t id_comando, comando *) {
        return ivrexa_set_datos_salida_comando(m_servicio, id_comando, 0, L"uno", L"dosdos", L"t");
    };
    wchar_t texto[256] = L"";
    auto ejecuta = [&](wchar_t *ultimo) {
        return ivrexa_ejecuta_comando(m_servicio, 100, 0, 0, nullptr, nullptr, nullptr, nullptr, texto, texto, ultimo);
    };
    EXPECT_EQ(ejecuta(texto), 1u);
    EXPECT_EQ(std::wstring(texto, 7), std::wstring(L"t\0sdos\0", 7));
    EXPECT_EQ(ejecuta(nullptr), 1u);
    EXPECT_STREQ(texto, L"dosdos");
}

// ---- Stored data

TEST_F(ivrexa_marco, leer_sin_monitor_no_anota_nada)
{
    bloque_crudo mcb = abre_registro(), datos = crea_datos(m_servicio, 107);
    mcb.pon_texto(en_servicio(5, 0), m_servicio);
    const std::vector<uint8_t> antes = mcb.bytes(0, 1430);
    for (int16_t es_entrada : {1, 0})
        ivrexa_destruye_datos_comando(ivrexa_lee_datos(m_servicio, 107, es_entrada));
    EXPECT_TRUE(bytes_iguales(antes, mcb.bytes(0, 1430)));
}

// The copy is private, as long as the block's head says, and the block is open until the container goes.
TEST_F(ivrexa_marco, lo_leido_es_una_copia_del_tam_de_la_cabecera)
{
    auto datos = std::make_unique<bloque_crudo>(crea_datos(m_servicio, 107, de_hex("01000000 02 02 6100 0102  EEEE")));
    datos->pon_cabecera(10); // two bytes fewer than were stored
    comdat *c = ivrexa_lee_datos(m_servicio, 107, 1);
    ASSERT_NE(c, nullptr);
    datos->pon_u16(8, 0xFFFF);
    EXPECT_EQ(c->ocupado, 10u);
    EXPECT_EQ(ivrexa_dame_ushort(c, 0), 0x0201u);
    datos.reset();
    EXPECT_TRUE(existen_datos(m_servicio, 107));
    ivrexa_destruye_datos_comando(c);
}

// ---- The session

TEST_F(ivrexa_marco, heap_es_lo_ultimo_que_se_cierra_y_solo_si_lo_hay)
{
    s_destruye_heap = __imp_HeapDestroy;
    importacion_cambiada<decltype(&HeapDestroy)> cambio(__imp_HeapDestroy, apunta_fin);
    s_fin = {};
    sirve(m_servicio, ventana());
    HANDLE heap = s_LocalHeap;
    ASSERT_NE(heap, nullptr);
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_fin.veces, 1u);
    EXPECT_EQ(s_fin.heap, heap);
    EXPECT_EQ(s_fin.programa, nullptr) << "the registration had ended";
    EXPECT_EQ(s_fin.registro, nullptr) << "and its registry was closed";
    EXPECT_TRUE(s_fin.cerrojo) << "the heap's lock goes after the heap";

    ivrexa_cierra_sesion();
    EXPECT_EQ(s_fin.veces, 1u);
    ivrexa_destruye_datos_comando(ivrexa_crea_datos_comando_entrada(m_servicio));
    ivrexa_cierra_sesion();
    EXPECT_EQ(s_fin.veces, 2u) << "a heap without a registration goes too";
    EXPECT_EQ(s_LocalHeap, nullptr);
    EXPECT_SIN_INFORMES();
}

// Everything that was handed out dies with the session; nothing of it lies in another heap.
TEST_F(ivrexa_marco, lo_entregado_esta_en_el_heap_privado)
{
    bloque_crudo datos = crea_datos(m_servicio, 107, de_hex("02000000 06 02 6100 02000000 7800  09 02 6200 00000000"));
    comdat *c = ivrexa_lee_datos(m_servicio, 107, 1);
    ASSERT_NE(c, nullptr);
    uint32_t num = 0;
    EXPECT_TRUE(HeapValidate(s_LocalHeap, 0, c));
    EXPECT_TRUE(HeapValidate(s_LocalHeap, 0, c->buffer));
    const char *texto = ivrexa_dame_cadena_ansi(c, 0);
    EXPECT_EQ(texto, reinterpret_cast<char *>(c->buffer) + 12);
    EXPECT_TRUE(HeapValidate(s_LocalHeap, 0, ivrexa_dame_arr_cadenas_ansi(c, 1, &num)));
    ivrexa_destruye_datos_comando(c);
}
