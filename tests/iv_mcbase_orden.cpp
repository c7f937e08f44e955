// The order of the registry's writes: who reads without the mutex, as the monitor does, sees them one by one.
#include "iv_mcbase_apoyo.h"

#include "comun/importacion.h"

IMPORTACION(Sleep);
IMPORTACION(WaitForSingleObject);

using campos_t = std::vector<size_t>;

static campos_t desde(size_t ini, const campos_t &campos)
{
    campos_t todos;
    for (size_t campo : campos)
        todos.push_back(ini + campo);
    return todos;
}

static campos_t operator+(campos_t a, const campos_t &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A record is filled once its number is taken, and by then the counter has moved on.
static campos_t actividad(uint32_t n)
{
    return campos_t{18} + desde(en_actividad(n), {0, 4, 8, 12, 16, 20});
}

static campos_t registro_de_monitor()
{
    campos_t todos = {0, 2, 6, 14, 18};
    for (uint32_t n = 1; n <= 64; n++)
        todos = todos + desde(en_actividad(n), {0, 4, 8, 16});
    for (uint32_t j = 0; j < 32; j++)
        todos.push_back(en_servicio(j));
    return todos;
}

TEST_F(iv_mcbase, cada_operacion_escribe_sus_campos_una_vez_y_en_orden)
{
    static decltype(&Sleep) duerme = __imp_Sleep;
    importacion_cambiada<decltype(&Sleep)> cambio(__imp_Sleep, [](DWORD ms) { duerme(ms < 1000 ? ms : 0); });
    m_ventana->IsWindow = [](HWND) -> BOOL { return FALSE; };
    m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };
    pon_monitor();
    m_bloque.pon_u32(18, 63);
    pon_programa(0, "programa", 0x1111);
    pon_servicio(0, "Calc");
    const size_t programa_1 = en_programa(1), servicio_1 = en_servicio(1);
    struct {
        const char *nombre;
        campos_t escritos;
        std::function<void()> operacion;
    } const casos[] = {
        {"new program", desde(programa_1, {0, 256, 264, 266, 268, 266}),
         [] { iv_mcbase_registra_programa(1, "nuevo", ventana_num(0x2222)); }},
        {"another kind", desde(programa_1, {264}),
         [] { iv_mcbase_registra_programa(0, "nuevo", ventana_num(0x2222)); }},
        {"name of a dead window", desde(en_programa(0), {256, 268}),
         [] { iv_mcbase_registra_programa(2, "programa", ventana_num(0x3333)); }},
        {"server of a service", desde(servicio_1, {0, 64, 68, 72, 76}),
         [] { iv_mcbase_registra_servidor_de_servicio(16, "Texto", nullptr); }},
        {"client of a service", desde(servicio_1, {66, 80, 84, 88, 92}),
         [] { iv_mcbase_registra_cliente_de_servicio(16, "Texto", nullptr); }},
        {"command begins", desde(servicio_1, {76, 80}), [] { iv_mcbase_inicia_comando(1, 100); }},
        {"command ends", desde(servicio_1, {76, 80}), [] { iv_mcbase_termina_comando(1, 100); }},
        {"service announced", campos_t{en_servicio(2)} + actividad(63),
         [] { iv_mcbase_anota_actividad(0, 1, 1, "Lista", 0, 0); }},
        {"activity", actividad(1), [] { iv_mcbase_anota_actividad(1, 2, 1, "Lista", 100, 7); }},
        {"service withdrawn", campos_t{en_servicio(2)} + actividad(2),
         [] { iv_mcbase_anota_actividad(0, 1, 0, "Lista", 0, 0); }},
        {"activity of no service", {}, [] { iv_mcbase_anota_actividad(1, 2, 1, "Lista", 100, 7); }},
        {"monitor there?", {}, [] { iv_mcbase_hay_monitor(0); }},
        {"prefix",
         {},
         [] {
             char nombre[64];
             iv_mcbase_hay_servicio_registrado_empiece_por("", nombre);
         }},
        {"release, not empty", {}, [] { iv_mcbase_libera_si_vacio(); }},
        {"heartbeat", desde(programa_1, {270}), [] { iv_mcbase_estoy_vivo(1); }},
        {"removal", desde(programa_1, {0, 256, 264, 266, 268, 270}), [] { iv_mcbase_quita_programa(1); }},
        {"monitor", registro_de_monitor(), [] { registra_monitor(ventana_num(0x1234)); }},
        {"monitor's messages",
         {},
         [] {
             manda_al_monitor(s_programa_monitor->msg_monitor, 0, 1);
             manda_al_monitor(s_programa_monitor->msg_monitor, 1, 0x10000);
         }},
        {"monitor's end", {6}, [] { iv_mcbase_quita_monitor(); }}, // a program is left: the view stays
    };
    iv_mcbase_abre(0, FALSO);
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        vigia_bloque vigia;
        caso.operacion();
        EXPECT_EQ(vigia.campos_escritos(), caso.escritos);
    }
}

// The registry's mutex is the last in the order of locks: whoever has it waits for nothing else, nor for the
// heap.
TEST_F(iv_mcbase, con_el_mutex_tomado_no_se_espera_a_ningun_otro)
{
    static decltype(&WaitForSingleObject) espera = __imp_WaitForSingleObject;
    static DWORD hilo_de_la_prueba;
    static uint32_t tomas;
    hilo_de_la_prueba = GetCurrentThreadId();
    m_ventana->SetWindowLongPtrW = [](HWND, int, LONG_PTR) -> LONG_PTR { return 0; };
    pon_programa(0, "programa", 0x1111);
    pon_programa(1, "otro", 0x1111);
    iv_mcserv_t canal = {};
    struct {
        const char *nombre;
        std::function<void()> operacion;
    } const casos[] = {
        {"program", [] { iv_mcbase_registra_programa(1, "nuevo", ventana_num(0x2222)); }},
        {"server of a service", [] { iv_mcbase_registra_servidor_de_servicio(0, "Texto", nullptr); }},
        {"client of a service", [] { iv_mcbase_registra_cliente_de_servicio(1, "Texto", nullptr); }},
        {"command begins", [] { iv_mcbase_inicia_comando(0, 100); }},
        {"command ends", [] { iv_mcbase_termina_comando(0, 100); }},
        {"client round", [&] { iv_mcserv_CLIENTE_ESPERA_NINGUN_CLIENTE(0, &canal); }},
        {"server round", [&] { iv_mcserv_SERVIDOR_ESPERA_RECEPCION_COMANDO(0, &canal); }},
        {"prefix",
         [] {
             char nombre[64];
             iv_mcbase_hay_servicio_registrado_empiece_por("Te", nombre);
         }},
        {"monitor", [] { registra_monitor(ventana_num(0x1234)); }},
        {"monitor there?", [] { iv_mcbase_hay_monitor(0); }},
        {"service announced", [] { iv_mcbase_anota_actividad(0, 1, 1, "Lista", 0, 0); }},
        {"activity", [] { iv_mcbase_anota_actividad(1, 2, 1, "Lista", 100, 7); }},
        {"release", [] { iv_mcbase_libera_si_vacio(); }},
        {"removal", [] { iv_mcbase_quita_programa(0); }},
        {"monitor's end", [] { iv_mcbase_quita_monitor(); }},
    };
    iv_mcbase_abre(0, FALSO);
    importacion_cambiada<decltype(&WaitForSingleObject)> cambio(
        __imp_WaitForSingleObject, [](HANDLE objeto, DWORD ms) -> DWORD {
            if (GetCurrentThreadId() == hilo_de_la_prueba) {
                EXPECT_EQ(sitio_actual(), 0u) << "waits with the registry locked";
                tomas += s_mcbase_acceso != nullptr && objeto == s_mcbase_acceso->mutex->mutex ? 1 : 0;
            }
            return espera(objeto, ms);
        });
    for (const auto &caso : casos) {
        SCOPED_TRACE(caso.nombre);
        tomas = 0;
        caso.operacion();
        EXPECT_GE(tomas, 1u);
    }
}
