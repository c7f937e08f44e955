// The system calls of a levelled mutex in order, what is told when, and what is left as it was.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "comun/crudo.h"
#include "comun/hilo.h"
#include "comun/importacion.h"
#include "comun/informes_modulo.h"
#include "comun/util.h"

#include "iv_mem.h"
#include "iv_mutex.h"

IMPORTACION(CloseHandle);
IMPORTACION(CreateMutexA);
IMPORTACION(HeapAlloc);
IMPORTACION(HeapFree);
IMPORTACION(ReleaseMutex);
IMPORTACION(WaitForSingleObject);

namespace {

using llamadas = std::vector<std::string>;

// What is done with one record and its mutex, in order.
llamadas s_llamadas;
iv_mutex *s_registro;
HANDLE s_mutex;
std::string s_nombre_registro;

decltype(&CloseHandle) s_CloseHandle = __imp_CloseHandle;
decltype(&CreateMutexA) s_CreateMutexA = __imp_CreateMutexA;
decltype(&HeapAlloc) s_HeapAlloc = __imp_HeapAlloc;
decltype(&HeapFree) s_HeapFree = __imp_HeapFree;
decltype(&ReleaseMutex) s_ReleaseMutex = __imp_ReleaseMutex;
decltype(&WaitForSingleObject) s_WaitForSingleObject = __imp_WaitForSingleObject;

std::string con_nivel(const char *llamada)
{
    return std::string(llamada) + " at " + std::to_string(s_registro->nivel_bloqueo);
}

DWORD WINAPI apunta_WaitForSingleObject(HANDLE objeto, DWORD ms)
{
    if (objeto == s_mutex)
        s_llamadas.push_back(con_nivel(ms == INFINITE ? "wait" : "wait for a while"));
    return s_WaitForSingleObject(objeto, ms);
}

BOOL WINAPI apunta_ReleaseMutex(HANDLE mutex)
{
    if (mutex == s_mutex)
        s_llamadas.push_back(con_nivel("release"));
    return s_ReleaseMutex(mutex);
}

BOOL WINAPI apunta_CloseHandle(HANDLE manejador)
{
    if (manejador == s_mutex)
        s_llamadas.push_back("close");
    return s_CloseHandle(manejador);
}

BOOL WINAPI apunta_HeapFree(HANDLE heap, DWORD opciones, void *memlocal)
{
    bool es_nombre = memlocal != nullptr && s_nombre_registro == static_cast<char *>(memlocal);
    s_llamadas.push_back(memlocal == s_registro ? "free record" : es_nombre ? "free name" : "free ?");
    return s_HeapFree(heap, opciones, memlocal);
}

// A thread that has a mutex of this name by a handle which can be closed while the thread still lives.
class duenyo {
public:
    explicit duenyo(const char *nombre) : m_hilo([this, nombre] { vive(nombre); })
    {
        s_WaitForSingleObject(m_tomado, 10000);
    }
    ~duenyo()
    {
        SetEvent(m_acaba);
        m_hilo.acaba(10000);
        CloseHandle(m_tomado);
        CloseHandle(m_acaba);
    }
    void cierra() { s_CloseHandle(m_mutex); }

private:
    void vive(const char *nombre)
    {
        m_mutex = s_CreateMutexA(nullptr, TRUE, nombre);
        SetEvent(m_tomado);
        s_WaitForSingleObject(m_acaba, 30000);
    }

    HANDLE m_tomado = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE m_acaba = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE m_mutex = nullptr;
    hilo m_hilo;
};

duenyo *s_duenyo;
uint32_t s_num_aperturas;

} // namespace

// ---- Order

// The level changes only while the mutex is held: behind the wait, and before the release.
TEST(iv_mutex_orden, nivel_cambia_detras_de_la_espera_y_delante_de_la_suelta)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("orden"), FALSO);
    s_registro = m;
    s_mutex = m->mutex;
    s_llamadas.clear();
    {
        importacion_cambiada<decltype(&ReleaseMutex)> suelta(__imp_ReleaseMutex, apunta_ReleaseMutex);
        importacion_cambiada<decltype(&WaitForSingleObject)> espera(__imp_WaitForSingleObject,
                                                                    apunta_WaitForSingleObject);
        iv_mutex_bloquea(m, 1);
        iv_mutex_bloquea(m, 2);
        iv_mutex_desbloquea(m, 2);
        iv_mutex_desbloquea_2(m, 1, 3);
        iv_mutex_desbloquea(m, 1);
    }

    EXPECT_EQ(s_llamadas, (llamadas{"wait at 0", "wait at 1", "release at 1", "release at 0", "release at -1"}))
        << "one release for each unlock, also for the one too many";
    EXPECT_INFORME("iv_mutex", "iv_mutex->nivel_bloqueo > 0");
    m->nivel_bloqueo = 0;
    iv_mutex_destruye(&m);
}

TEST(iv_mutex_orden, destruir_cierra_el_mutex_y_libera_el_nombre_y_el_registro)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("orden"), FALSO);
    s_registro = m;
    s_mutex = m->mutex;
    s_nombre_registro = m->nombre;
    iv_mutex_bloquea(m, 1);
    s_llamadas.clear();
    {
        importacion_cambiada<decltype(&CloseHandle)> cierra(__imp_CloseHandle, apunta_CloseHandle);
        importacion_cambiada<decltype(&HeapFree)> libera(__imp_HeapFree, apunta_HeapFree);
        importacion_cambiada<decltype(&ReleaseMutex)> suelta(__imp_ReleaseMutex, apunta_ReleaseMutex);
        iv_mutex_destruye(&m);
    }

    EXPECT_INFORME("iv_mutex", "(*iv_mutex)->nivel_bloqueo == 0");
    EXPECT_EQ(s_llamadas, (llamadas{"close", "free name", "free record"})) << "what is held is not released";
    EXPECT_EQ(m, nullptr);
}

// The heap, if it is still to be made, is made once the mutex is open.
TEST(iv_mutex_orden, mutex_se_abre_antes_de_reservar_su_registro)
{
    static llamadas hechas;
    iv_mem_cierra();
    const char *nombre = nombre_unico("orden");
    iv_mutex *m;
    {
        importacion_cambiada<decltype(&CreateMutexA)> crea(
            __imp_CreateMutexA, [](LPSECURITY_ATTRIBUTES seguridad, BOOL tomado, LPCSTR pedido) -> HANDLE {
                hechas.push_back(pedido);
                return s_CreateMutexA(seguridad, tomado, pedido);
            });
        importacion_cambiada<decltype(&HeapAlloc)> reserva(__imp_HeapAlloc,
                                                           [](HANDLE heap, DWORD opciones, SIZE_T tam) -> void * {
                                                               hechas.push_back("HeapAlloc");
                                                               return s_HeapAlloc(heap, opciones, tam);
                                                           });
        m = iv_mutex_crea(nombre, FALSO);
    }

    EXPECT_EQ(hechas, (llamadas{nombre, "ivrexa_iv_mem", "HeapAlloc", "HeapAlloc"}));
    iv_mutex_destruye(&m);
}

// ---- Making one anew

// Its last holder closes it between the two opens: then the second one makes a mutex that nobody holds.
TEST(iv_mutex_orden, recrear_da_un_mutex_nuevo_si_nadie_mas_lo_tiene_abierto)
{
    const char *nombre = nombre_unico("fresco");
    duenyo otro(nombre);
    s_duenyo = &otro; // cppcheck-suppress danglingLifetime  // read only while the import below is changed
    iv_mutex *m;
    {
        importacion_cambiada<decltype(&CloseHandle)> cierra(__imp_CloseHandle, [](HANDLE manejador) -> BOOL {
            s_duenyo->cierra();
            return s_CloseHandle(manejador);
        });
        m = iv_mutex_crea(nombre, CIERTO);
    }

    EXPECT_EQ(WaitForSingleObject(m->mutex, 0), WAIT_OBJECT_0) << "neither held nor abandoned";
    ReleaseMutex(m->mutex);
    iv_mutex_destruye(&m);
}

TEST(iv_mutex_orden, segunda_apertura_que_falla_se_informa_y_deja_el_mutex_nulo)
{
    const char *nombre = nombre_unico("segunda");
    mutex_crudo otro(nombre, mutex_crudo::modo::crea);
    i_free(i_malloc(1));
    s_num_aperturas = 0;
    iv_mutex *m;
    {
        importacion_cambiada<decltype(&CreateMutexA)> cambio(
            __imp_CreateMutexA, [](LPSECURITY_ATTRIBUTES seguridad, BOOL tomado, LPCSTR pedido) -> HANDLE {
                return ++s_num_aperturas == 1 ? s_CreateMutexA(seguridad, tomado, pedido) : nullptr;
            });
        m = iv_mutex_crea(nombre, CIERTO);
    }

    EXPECT_INFORME("iv_mutex", "(mutex) != 0");
    EXPECT_EQ(s_num_aperturas, 2u);
    EXPECT_EQ(m->mutex, nullptr);
    EXPECT_STREQ(m->nombre, nombre);
    iv_mutex_destruye(&m);
}

// A name that belongs to an object of another kind does not count as an existing mutex.
TEST(iv_mutex_orden, recrear_con_el_nombre_ocupado_se_informa_una_vez)
{
    const char *nombre = nombre_unico("ocupado");
    HANDLE evento = CreateEventA(nullptr, FALSE, FALSE, nombre);

    iv_mutex *m = iv_mutex_crea(nombre, CIERTO);

    EXPECT_INFORME("iv_mutex", "(mutex) != 0");
    EXPECT_SIN_INFORMES();
    EXPECT_EQ(m->mutex, nullptr);
    iv_mutex_destruye(&m);
    CloseHandle(evento);
}

// ---- What is left as it was

TEST(iv_mutex_orden, soltar_no_borra_los_codigos)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("codigos"), FALSO);
    for (uint32_t n = 0; n < 4; n++)
        iv_mutex_bloquea(m, 11 + n);
    for (uint32_t n = 0; n < 4; n++)
        iv_mutex_desbloquea(m, 11 + n);
    iv_mutex_bloquea(m, 35);

    EXPECT_EQ(std::vector<uint32_t>(m->codigos_bloqueo, m->codigos_bloqueo + 4),
              (std::vector<uint32_t>{35, 12, 13, 14}));
    iv_mutex_desbloquea(m, 35);
    iv_mutex_destruye(&m);
}

// The count is the process's, the hold its thread's: another thread's unlock counts, and releases nothing.
TEST(iv_mutex_orden, soltar_desde_otro_hilo_baja_el_nivel_y_no_suelta_nada)
{
    iv_mutex *m = iv_mutex_crea(nombre_unico("ajeno"), FALSO);
    mutex_crudo visto(m->nombre);
    iv_mutex_bloquea(m, 1);

    EXPECT_TRUE(hilo([m] { iv_mutex_desbloquea(m, 1); }).acaba(10000));

    EXPECT_SIN_INFORMES();
    EXPECT_EQ(m->nivel_bloqueo, 0);
    EXPECT_FALSE(visto.libre());
    EXPECT_TRUE(ReleaseMutex(m->mutex));
    EXPECT_TRUE(visto.libre());
    iv_mutex_destruye(&m);
}

TEST(iv_mutex_orden, espera_que_falla_cuenta_como_tomado)
{
    static HANDLE mutex;
    iv_mutex *m = iv_mutex_crea(nombre_unico("falla"), FALSO);
    mutex = m->mutex;
    mutex_crudo visto(m->nombre);
    {
        importacion_cambiada<decltype(&WaitForSingleObject)> cambio(
            __imp_WaitForSingleObject, [](HANDLE objeto, DWORD ms) -> DWORD {
                return objeto == mutex && ms == INFINITE ? WAIT_FAILED : s_WaitForSingleObject(objeto, ms);
            });
        iv_mutex_bloquea(m, 29);
    }

    EXPECT_SIN_INFORMES();
    EXPECT_EQ(m->nivel_bloqueo, 1);
    EXPECT_EQ(m->codigos_bloqueo[0], 29u);
    EXPECT_TRUE(visto.libre());
    iv_mutex_desbloquea(m, 29);
    iv_mutex_destruye(&m);
}
