// The levelled mutex: what it counts, what it reports, and whom it meets.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/hilo.h"
#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/monton.h"
#include "comun/papel.h"
#include "comun/util.h"

#include "iv_mutex.h"

IMPORTACION(CloseHandle);
IMPORTACION(CreateMutexA);
IMPORTACION(ReleaseMutex);
IMPORTACION(WaitForSingleObject);

namespace {

std::vector<uint32_t> codigos(const iv_mutex *m)
{
    return {m->codigos_bloqueo, m->codigos_bloqueo + 4};
}

void bloquea_hasta(iv_mutex *m, int32_t nivel)
{
    while (m->nivel_bloqueo < nivel)
        iv_mutex_bloquea(m, static_cast<uint32_t>(m->nivel_bloqueo) + 101);
}

void suelta_y_destruye(iv_mutex **m)
{
    while ((*m)->nivel_bloqueo > 0)
        iv_mutex_desbloquea(*m, 1);
    iv_mutex_destruye(m);
}

// A record whose handle is null: its name belongs to an object of another kind.
iv_mutex *crea_sin_mutex()
{
    const char *nombre = nombre_unico("ocupado");
    HANDLE evento = CreateEventA(nullptr, FALSE, FALSE, nombre);
    iv_mutex *m = iv_mutex_crea(nombre, FALSO);
    EXPECT_INFORME("iv_mutex", "(mutex) != 0");
    EXPECT_EQ(m->mutex, nullptr);
    EXPECT_STREQ(m->nombre, nombre);
    CloseHandle(evento);
    return m;
}

// The calls that the library makes for one mutex, in order.
std::vector<std::string> s_llamadas;
HANDLE s_observado;
decltype(&CloseHandle) s_CloseHandle;
decltype(&CreateMutexA) s_CreateMutexA;
decltype(&ReleaseMutex) s_ReleaseMutex;

HANDLE WINAPI apunta_CreateMutexA(LPSECURITY_ATTRIBUTES seguridad, BOOL tomado, LPCSTR nombre)
{
    if (strcmp(nombre, "ivrexa_iv_mem") == 0)
        return s_CreateMutexA(seguridad, tomado, nombre);
    s_llamadas.push_back(seguridad == nullptr && !tomado ? "create" : "create otherwise");
    return s_observado = s_CreateMutexA(seguridad, tomado, nombre);
}

BOOL WINAPI apunta_ReleaseMutex(HANDLE mutex)
{
    if (mutex == s_observado)
        s_llamadas.push_back("release");
    return s_ReleaseMutex(mutex);
}

BOOL WINAPI apunta_CloseHandle(HANDLE manejador)
{
    if (manejador == s_observado)
        s_llamadas.push_back("close");
    return s_CloseHandle(manejador);
}

std::vector<std::string> llamadas_al_crear(const char *nombre, int16_t recrea)
{
    s_CloseHandle = __imp_CloseHandle;
    s_CreateMutexA = __imp_CreateMutexA;
    s_ReleaseMutex = __imp_ReleaseMutex;
    s_llamadas.clear();
    iv_mutex *m;
    {
        importacion_cambiada<decltype(&CloseHandle)> cierra(__imp_CloseHandle, apunta_CloseHandle);
        importacion_cambiada<decltype(&CreateMutexA)> crea(__imp_CreateMutexA, apunta_CreateMutexA);
        importacion_cambiada<decltype(&ReleaseMutex)> suelta(__imp_ReleaseMutex, apunta_ReleaseMutex);
        SetLastError(ERROR_ALREADY_EXISTS); // of some earlier call
        m = iv_mutex_crea(nombre, recrea);
    }
    iv_mutex_destruye(&m);
    return s_llamadas;
}

} // namespace

// ---- Making and destroying

TEST(iv_mutex, registro_nuevo_esta_libre_y_guarda_su_propio_nombre)
{
    std::string nombre = nombre_unico("nuevo");
    char presta[64];
    strcpy(presta, nombre.c_str());

    iv_mutex *m = iv_mutex_crea(presta, FALSO);
    presta[0] = '?';

    EXPECT_NE(m->mutex, nullptr);
    EXPECT_EQ(m->nombre, nombre);
    EXPECT_EQ(tam_de(m->nombre), nombre.size() + 1);
    EXPECT_EQ(m->nivel_bloqueo, 0);
    EXPECT_EQ(codigos(m), (std::vector<uint32_t>{0, 0, 0, 0}));
    EXPECT_TRUE(mutex_crudo(nombre.c_str()).libre());
    iv_mutex_destruye(&m);
}

TEST(iv_mutex, destruir_cierra_libera_y_anula)
{
    const char *nombre = nombre_unico("cierra");
    iv_mutex *m = iv_mutex_crea(nombre, FALSO);
    iv_mutex_destruye(&m);
    uint32_t antes = cuenta_manejadores();

    m = iv_mutex_crea(nombre, FALSO);
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    EXPECT_EQ(bloques_vivos(), 2u);
    iv_mutex_destruye(&m);

    EXPECT_EQ(m, nullptr);
    EXPECT_EQ(cuenta_manejadores(), antes);
    EXPECT_EQ(bloques_vivos(), 0u);
    EXPECT_FALSE(existe_mutex(nombre));
}

TEST(iv_mutex, destruir_una_direccion_nula_calla_y_un_registro_nulo_se_informa)
{
    iv_mutex *nulo = nullptr;

    iv_mutex_destruye(nullptr);
    EXPECT_SIN_INFORMES();
    iv_mutex_destruye(&nulo);

    EXPECT_INFORME("iv_mutex", "(*iv_mutex) != 0");
    EXPECT_EQ(nulo, nullptr);
}

TEST(iv_mutex, destruir_uno_retenido_se_informa_y_aun_asi_lo_libera)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("retenido"), FALSO);
    iv_mutex_bloquea(m, 1);

    iv_mutex_destruye(&m);

    EXPECT_INFORME("iv_mutex", "(*iv_mutex)->nivel_bloqueo == 0");
    EXPECT_EQ(m, nullptr);
    EXPECT_EQ(bloques_vivos(), 0u);
}

TEST(iv_mutex, destruir_por_debajo_de_0_tambien_se_informa)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("negativo"), FALSO);
    iv_mutex_desbloquea(m, 1);
    EXPECT_INFORME("iv_mutex", "iv_mutex->nivel_bloqueo > 0");

    iv_mutex_destruye(&m);

    EXPECT_INFORME("iv_mutex", "(*iv_mutex)->nivel_bloqueo == 0");
}

// The hold stays with its thread, and is abandoned when the thread ends.
TEST(iv_mutex, destruir_uno_retenido_no_lo_suelta)
{
    const char *nombre = nombre_unico("abandono");
    mutex_crudo otro(nombre, mutex_crudo::modo::crea);
    HANDLE destruido = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE acaba = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    {
        hilo duenyo([&] {
            iv_mutex *m = iv_mutex_crea(nombre, FALSO);
            iv_mutex_bloquea(m, 1);
            iv_mutex_destruye(&m);
            SetEvent(destruido);
            WaitForSingleObject(acaba, 10000);
        });
        EXPECT_EQ(WaitForSingleObject(destruido, 10000), WAIT_OBJECT_0);
        EXPECT_INFORME("iv_mutex", "(*iv_mutex)->nivel_bloqueo == 0");
        EXPECT_FALSE(otro.libre());
        SetEvent(acaba);
    }

    HANDLE mutex = OpenMutexA(MUTEX_ALL_ACCESS, FALSE, nombre);
    EXPECT_EQ(WaitForSingleObject(mutex, 10000), static_cast<DWORD>(WAIT_ABANDONED));
    ReleaseMutex(mutex);
    CloseHandle(mutex);
    CloseHandle(destruido);
    CloseHandle(acaba);
}

TEST(iv_mutex, nombre_que_no_se_puede_crear_se_informa_y_el_registro_vive_sin_mutex)
{
    iv_mutex *m = crea_sin_mutex();

    iv_mutex_bloquea(m, 9);
    EXPECT_INFORME("iv_mutex", "(iv_mutex->mutex) != 0");
    EXPECT_EQ(m->nivel_bloqueo, 1);
    EXPECT_EQ(m->codigos_bloqueo[0], 9u);

    iv_mutex_desbloquea(m, 9);
    EXPECT_INFORME("iv_mutex", "(iv_mutex->mutex) != 0");
    EXPECT_EQ(m->nivel_bloqueo, 0);

    iv_mutex_desbloquea_2(m, 9, 10);
    EXPECT_INFORME("iv_mutex", "(iv_mutex->mutex) != 0");
    EXPECT_INFORME("iv_mutex", "iv_mutex->nivel_bloqueo > 0");
    EXPECT_EQ(m->nivel_bloqueo, -1);

    m->nivel_bloqueo = 0;
    iv_mutex_destruye(&m);
    EXPECT_EQ(m, nullptr);
}

// ---- Making one that exists

TEST(iv_mutex, recrear_suelta_cierra_y_vuelve_a_abrir_si_existe_y_se_pide_con_1)
{
    const char *nombre = nombre_unico("recrea");

    EXPECT_EQ(llamadas_al_crear(nombre, 1), (std::vector<std::string>{"create"})) << "the name was free";
    mutex_crudo otro(nombre, mutex_crudo::modo::crea);
    EXPECT_EQ(llamadas_al_crear(nombre, 0), (std::vector<std::string>{"create"}));
    EXPECT_EQ(llamadas_al_crear(nombre, 2), (std::vector<std::string>{"create"}));
    EXPECT_EQ(llamadas_al_crear(nombre, -1), (std::vector<std::string>{"create"}));
    EXPECT_EQ(llamadas_al_crear(nombre, 1), (std::vector<std::string>{"create", "release", "close", "create"}));
}

TEST(iv_mutex, recrear_da_el_mismo_mutex_si_otro_lo_tiene_abierto)
{
    const char *nombre = nombre_unico("mismo");
    mutex_crudo otro(nombre, mutex_crudo::modo::crea);
    i_free(i_malloc(1)); // the heap's own lock is there before the count
    uint32_t antes = cuenta_manejadores();

    iv_mutex *m = iv_mutex_crea(nombre, CIERTO);

    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    iv_mutex_bloquea(m, 1);
    EXPECT_FALSE(otro.libre());
    suelta_y_destruye(&m);
    EXPECT_TRUE(otro.libre());
}

// Its release fails without effect: the mutex is not ours.
TEST(iv_mutex, recrear_no_quita_a_otro_proceso_lo_que_retiene)
{
    const char *nombre = nombre_unico("ajeno");
    mutex_crudo otro(nombre, mutex_crudo::modo::crea);
    ASSERT_TRUE(otro.retiene());

    iv_mutex *m = iv_mutex_crea(nombre, CIERTO);

    EXPECT_FALSE(mutex_crudo(nombre).libre());
    otro.suelta();
    EXPECT_TRUE(mutex_crudo(nombre).libre());
    iv_mutex_destruye(&m);
}

// ---- Levels

TEST(iv_mutex, cada_bloqueo_sube_un_nivel_y_guarda_su_codigo)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("niveles"), FALSO);

    for (uint32_t n = 0; n < 4; n++) {
        iv_mutex_bloquea(m, 11 + n);
        EXPECT_EQ(m->nivel_bloqueo, static_cast<int32_t>(n + 1));
        EXPECT_EQ(m->codigos_bloqueo[n], 11 + n);
    }
    EXPECT_EQ(codigos(m), (std::vector<uint32_t>{11, 12, 13, 14}));

    iv_mutex_desbloquea(m, 99); // codes are never compared
    iv_mutex_desbloquea_2(m, 98, 97);
    EXPECT_EQ(m->nivel_bloqueo, 2);
    iv_mutex_bloquea(m, 33);
    EXPECT_EQ(codigos(m)[2], 33u);
    EXPECT_SIN_INFORMES();
    suelta_y_destruye(&m);
}

TEST(iv_mutex, mutex_queda_libre_cuando_se_sueltan_todos_sus_niveles)
{
    const char *nombre = nombre_unico("reentra");
    iv_mutex *m = iv_mutex_crea(nombre, FALSO);
    mutex_crudo otro(nombre);
    bloquea_hasta(m, 3);

    for (int32_t nivel = 3; nivel > 0; nivel--) {
        EXPECT_FALSE(otro.libre()) << "level " << nivel;
        iv_mutex_desbloquea(m, 1);
    }

    EXPECT_TRUE(otro.libre());
    iv_mutex_destruye(&m);
}

TEST(iv_mutex, quinto_bloqueo_se_informa_y_aun_asi_se_cuenta)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("quinto"), FALSO);
    bloquea_hasta(m, 4);
    ASSERT_EQ(num_informes(), 0u);

    for (int32_t nivel = 5; nivel <= 9; nivel++) {
        iv_mutex_bloquea(m, 0xeeeeeeee);
        EXPECT_INFORME("iv_mutex", "iv_mutex->nivel_bloqueo < i_NUM_NIVELES_BLOQUEO");
        EXPECT_EQ(m->nivel_bloqueo, nivel);
    }

    EXPECT_EQ(codigos(m), (std::vector<uint32_t>{101, 102, 103, 104}));
    EXPECT_TRUE(HeapValidate(s_LocalHeap, 0, nullptr)) << "nothing is written beyond the table";
    const uint32_t *detras = m->codigos_bloqueo + 4;
    for (; reinterpret_cast<const char *>(detras) < reinterpret_cast<const char *>(m) + tam_de(m); detras++)
        EXPECT_EQ(*detras, 0u);

    mutex_crudo otro(m->nombre);
    for (int32_t nivel = 9; nivel > 0; nivel--) {
        EXPECT_FALSE(otro.libre()) << "each of the nine was a real one";
        iv_mutex_desbloquea(m, 1);
    }
    EXPECT_TRUE(otro.libre());
    iv_mutex_destruye(&m);
}

TEST(iv_mutex, soltar_en_nivel_0_se_informa_y_deja_menos_1)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("menos"), FALSO);

    iv_mutex_desbloquea(m, 1);
    EXPECT_INFORME("iv_mutex", "iv_mutex->nivel_bloqueo > 0");
    EXPECT_EQ(m->nivel_bloqueo, -1);
    iv_mutex_desbloquea_2(m, 1, 2);
    EXPECT_INFORME("iv_mutex", "iv_mutex->nivel_bloqueo > 0");
    EXPECT_EQ(m->nivel_bloqueo, -2);

    iv_mutex_bloquea(m, 0xeeeeeeee); // there is no entry for these levels
    EXPECT_EQ(m->nivel_bloqueo, -1);
    iv_mutex_bloquea(m, 0xeeeeeeee);
    EXPECT_EQ(m->nivel_bloqueo, 0);
    EXPECT_EQ(codigos(m), (std::vector<uint32_t>{0, 0, 0, 0}));
    iv_mutex_bloquea(m, 7);
    EXPECT_EQ(m->nivel_bloqueo, 1);
    EXPECT_EQ(codigos(m), (std::vector<uint32_t>{7, 0, 0, 0}));
    EXPECT_SIN_INFORMES();

    for (int n = 0; n < 3; n++)
        ReleaseMutex(m->mutex);
    m->nivel_bloqueo = 0;
    iv_mutex_destruye(&m);
}

TEST(iv_mutex, registro_nulo_no_se_bloquea_ni_se_informa_pero_soltarlo_se_informa)
{
    iv_mutex_bloquea(nullptr, 1);
    EXPECT_SIN_INFORMES();

    iv_mutex_desbloquea(nullptr, 1);
    EXPECT_INFORME("iv_mutex", "iv_mutex != NULL");
    EXPECT_SIN_INFORMES();
    iv_mutex_desbloquea_2(nullptr, 1, 2);
    EXPECT_INFORME("iv_mutex", "iv_mutex != NULL");
}

// ---- Threads

// The level that counts is the one found when the mutex is ours, not the one seen before the wait.
TEST(iv_mutex, nivel_se_mira_despues_de_la_espera)
{
    static std::atomic<bool> esperando;
    static decltype(&WaitForSingleObject) real = __imp_WaitForSingleObject;
    static HANDLE mutex;
    iv_mutex *m = iv_mutex_crea(nombre_unico("espera"), FALSO);
    mutex = m->mutex;
    bloquea_hasta(m, 4);
    importacion_cambiada<decltype(&WaitForSingleObject)> cambio(__imp_WaitForSingleObject,
                                                                [](HANDLE objeto, DWORD ms) -> DWORD {
                                                                    if (objeto == mutex && ms == INFINITE)
                                                                        esperando = true;
                                                                    return real(objeto, ms);
                                                                });

    hilo otro([m] {
        iv_mutex_bloquea(m, 55);
        EXPECT_EQ(m->nivel_bloqueo, 1);
        EXPECT_EQ(m->codigos_bloqueo[0], 55u);
        iv_mutex_desbloquea(m, 55);
    });
    EXPECT_TRUE(espera_hasta([] { return esperando.load(); }, 10000));
    EXPECT_EQ(m->nivel_bloqueo, 4) << "the thread that waits has counted nothing yet";
    for (int n = 0; n < 4; n++)
        iv_mutex_desbloquea(m, 1);

    EXPECT_TRUE(otro.acaba(10000));
    EXPECT_SIN_INFORMES();
    iv_mutex_destruye(&m);
}

TEST(iv_mutex, hilos_de_un_proceso_se_turnan_y_nadie_pierde_la_cuenta)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("turnos"), FALSO);
    uint32_t cuenta = 0;
    auto suma = [&] {
        for (uint32_t n = 0; n < 300; n++) {
            iv_mutex_bloquea(m, 1);
            uint32_t leida = cuenta;
            SwitchToThread();
            cuenta = leida + 1;
            iv_mutex_desbloquea(m, 1);
        }
    };
    {
        hilo uno(suma), otro(suma);
    }

    EXPECT_EQ(cuenta, 600u);
    EXPECT_EQ(m->nivel_bloqueo, 0);
    iv_mutex_destruye(&m);
}

// ---- Processes

PAPEL(retiene_mutex)
{
    iv_mutex *m = iv_mutex_crea(args.at(0).c_str(), FALSO);
    bloquea_hasta(m, 2);
    yo.di("LISTO");
    yo.escucha_linea("SUELTA", 30000);
    iv_mutex_desbloquea(m, 1);
    yo.di("QUEDA UNO");
    yo.escucha_linea("SUELTA", 30000);
    iv_mutex_desbloquea(m, 1);
    yo.di("SOLTADO");
    yo.escucha_linea("FIN", 30000);
    iv_mutex_destruye(&m);
    return 0;
}

TEST(iv_mutex, dos_procesos_se_encuentran_en_el_mismo_mutex_y_cada_uno_cuenta_lo_suyo)
{
    const char *nombre = nombre_unico("comun");
    papel otro = arranca_papel("retiene_mutex", {nombre});
    iv_mutex *m = iv_mutex_crea(nombre, CIERTO);
    EXPECT_EQ(m->nivel_bloqueo, 0) << "the other process's levels are its own";
    hilo espera([m] {
        iv_mutex_bloquea(m, 1);
        iv_mutex_desbloquea(m, 1);
    });

    otro.di("SUELTA");
    otro.espera_linea("QUEDA UNO", 10000);
    EXPECT_FALSE(espera.acaba(60));
    otro.di("SUELTA");
    otro.espera_linea("SOLTADO", 10000);
    EXPECT_TRUE(espera.acaba(10000));

    otro.di("FIN");
    EXPECT_EQ(otro.espera_fin(10000), 0u);
    iv_mutex_destruye(&m);
}

TEST(iv_mutex, mutex_abandonado_por_un_proceso_muerto_se_toma_sin_informe)
{
    const char *nombre = nombre_unico("muerto");
    papel otro = arranca_papel("retiene_mutex", {nombre});
    iv_mutex *m = iv_mutex_crea(nombre, FALSO);
    mutex_crudo tercero(nombre);
    hilo mata([&] { otro.mata(); });

    iv_mutex_bloquea(m, 21); // has no time-out: it ends because the holder dies

    EXPECT_SIN_INFORMES();
    EXPECT_EQ(m->nivel_bloqueo, 1);
    EXPECT_EQ(m->codigos_bloqueo[0], 21u);
    EXPECT_FALSE(tercero.libre());
    iv_mutex_desbloquea(m, 21);
    EXPECT_TRUE(tercero.libre());
    iv_mutex_destruye(&m);
}

// ---- The heap's plain lock

TEST(iv_mutex_heap, sin_cerrojo_tomar_y_soltar_no_hacen_nada)
{
    iv_mem_cierra();
    iv_mutex_heap_bloquea();
    iv_mutex_heap_desbloquea();
    iv_mutex_heap_destruye();
    EXPECT_SIN_INFORMES();
}

TEST(iv_mutex_heap, crear_lo_toma_y_destruir_lo_suelta_una_vez_y_lo_cierra)
{
    iv_mem_cierra();
    mutex_crudo otro("ivrexa_iv_mem", mutex_crudo::modo::crea);
    EXPECT_TRUE(espera_hasta([&] { return otro.libre(); }, 5000));
    uint32_t antes = cuenta_manejadores();

    iv_mutex_heap_crea_y_bloquea();
    EXPECT_FALSE(otro.libre());
    iv_mutex_heap_bloquea();
    iv_mutex_heap_desbloquea();
    EXPECT_FALSE(otro.libre());
    EXPECT_EQ(cuenta_manejadores(), antes + 1);
    iv_mutex_heap_destruye();

    EXPECT_EQ(cuenta_manejadores(), antes);
    EXPECT_TRUE(espera_hasta([&] { return otro.libre(); }, 5000));
}
