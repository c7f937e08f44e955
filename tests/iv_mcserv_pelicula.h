// iv_mcserv_pelicula.h - what the library does to a channel, step by step and in its order, as another
// process could see it. One text, a word for each step:
//     4=1         the field at that offset is written, with that value; of a text the offset alone
//     {16 ... }   between the two the channel's mutex is held, with that lock site
//     r12         the registry's mutex is released, which that site held
//     z100        a sleep; it is left out, so that a wait of many rounds takes no time
// and what the test itself notes down.
#ifndef IV_MCSERV_PELICULA_H
#define IV_MCSERV_PELICULA_H

#include <functional>
#include <string>
#include <vector>

#include "comun/importacion.h"

#include "iv_mcserv_apoyo.h"

IMPORTACION(MapViewOfFile);
IMPORTACION(ReleaseMutex);
IMPORTACION(Sleep);

// Of the thread that makes it, unless de_hilo() names another. One at a time.
class pelicula {
public:
    // Of the mutex it needs the name: the record is the library's own, and may come and go.
    explicit pelicula(const std::string &mutex) : m_mutex(mutex)
    {
        s_hilo = GetCurrentThreadId();
        s_pelicula = this;
        m_manejador = AddVectoredExceptionHandler(1, al_fallar);
    }
    ~pelicula()
    {
        s_hilo = 0;
        protege(PAGE_READWRITE);
        RemoveVectoredExceptionHandler(m_manejador);
        s_pelicula = nullptr;
    }
    pelicula(const pelicula &) = delete;
    pelicula &operator=(const pelicula &) = delete;

    void de_hilo(uint32_t hilo) { s_hilo = hilo; } // one that does not run yet

    // The library's view of the channel. Without this, it is the next one that the thread maps.
    void enfoca(volatile void *datos)
    {
        m_datos = reinterpret_cast<uintptr_t>(datos);
        protege(PAGE_READONLY);
    }

    // A step of the test's own, if the thread is the film's.
    void anota(const std::string &paso)
    {
        if (GetCurrentThreadId() != s_hilo)
            return;
        abre_sitios();
        m_texto += m_texto.empty() ? paso : " " + paso;
        m_campo = 0;
    }

    const std::string &texto() const { return m_texto; }
    uint32_t num_descansos() const { return m_descansos; }

    std::function<void(uint32_t vez)> al_dormir; // in the place of each sleep: the first, 1...

private:
    static constexpr uintptr_t TAM = 2378;

    void protege(DWORD proteccion)
    {
        if (m_datos == 0)
            return;
        DWORD antes;
        VirtualProtect(reinterpret_cast<void *>(m_datos), 1, proteccion, &antes);
    }

    // ---- Sites, from the record that the library keeps of the mutex

    const iv_mutex *ficha() const
    {
        PROCESS_HEAP_ENTRY entrada = {};
        while (s_LocalHeap != nullptr && HeapWalk(s_LocalHeap, &entrada)) {
            if ((entrada.wFlags & PROCESS_HEAP_ENTRY_BUSY) == 0 || entrada.cbData < sizeof(iv_mutex))
                continue;
            auto mutex = static_cast<const iv_mutex *>(entrada.lpData);
            if (mutex->nombre != nullptr && HeapValidate(s_LocalHeap, 0, mutex->nombre) && mutex->nombre == m_mutex)
                return mutex;
        }
        return nullptr;
    }

    void abre_sitios()
    {
        const iv_mutex *mutex = ficha();
        for (int32_t i = m_abiertos; mutex != nullptr && i < mutex->nivel_bloqueo; i++)
            abre_sitio(mutex->codigos_bloqueo[i]);
    }

    void abre_sitio(uint32_t sitio)
    {
        m_texto += (m_texto.empty() ? "{" : " {") + std::to_string(sitio);
        m_abiertos++;
        m_campo = 0;
    }

    void cierra_sitio(const iv_mutex &mutex) // it counts one less already
    {
        for (int32_t i = m_abiertos; i <= mutex.nivel_bloqueo; i++)
            abre_sitio(mutex.codigos_bloqueo[i]);
        m_texto += " }";
        m_abiertos--;
        m_campo = 0;
    }

    // ---- Calls of the system. Those of other threads go straight through: they may outlast the film.

    static BOOL WINAPI suelta(HANDLE mutex)
    {
        if (GetCurrentThreadId() == s_hilo)
            s_pelicula->anota_suelta(mutex);
        return s_suelta_antes(mutex);
    }

    void anota_suelta(HANDLE mutex)
    {
        const iv_mutex *registro = s_mcbase_acceso != nullptr ? s_mcbase_acceso->mutex : nullptr;
        const iv_mutex *canal = ficha();
        if (canal != nullptr && canal->mutex == mutex)
            cierra_sitio(*canal);
        else if (registro != nullptr && registro->mutex == mutex)
            anota("r" + std::to_string(registro->codigos_bloqueo[registro->nivel_bloqueo]));
    }

    static void WINAPI duerme(DWORD ms)
    {
        if (GetCurrentThreadId() == s_hilo)
            s_pelicula->anota_descanso(ms);
        else
            s_duerme_antes(ms);
    }

    void anota_descanso(DWORD ms)
    {
        anota("z" + std::to_string(ms));
        m_descansos++;
        if (al_dormir)
            al_dormir(m_descansos);
    }

    static void *WINAPI mapea(HANDLE mapa, DWORD acceso, DWORD alto, DWORD bajo, SIZE_T tam)
    {
        void *vista = s_mapea_antes(mapa, acceso, alto, bajo, tam);
        if (GetCurrentThreadId() == s_hilo && s_pelicula->m_datos == 0 && vista != nullptr &&
            *static_cast<const uint32_t *>(vista) == TAM)
            s_pelicula->enfoca(static_cast<uint8_t *>(vista) + 4);
        return vista;
    }

    // ---- Writes: the view is read-only but for the one instruction that has just failed to write there

    static LONG CALLBACK al_fallar(EXCEPTION_POINTERS *excepcion)
    {
        pelicula *p = s_pelicula;
        const EXCEPTION_RECORD &que = *excepcion->ExceptionRecord;
        if (que.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && p->m_datos != 0 && que.ExceptionInformation[0] == 1 &&
            que.ExceptionInformation[1] - p->m_datos < TAM) {
            p->m_despl = que.ExceptionInformation[1] - p->m_datos;
            p->protege(PAGE_READWRITE);
            excepcion->ContextRecord->EFlags |= 0x100; // stops behind it
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        if (que.ExceptionCode == EXCEPTION_SINGLE_STEP && p->m_despl < TAM) {
            p->anota_escritura(p->m_despl);
            p->m_despl = TAM;
            p->protege(PAGE_READONLY);
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    struct campo {
        size_t despl, tam, ancho; // its width; 0 of a text
    };

    static const campo *campo_en(size_t despl)
    {
        static const campo CAMPOS[] = {{0, 2, 2},    {2, 2, 2},     {4, 4, 4},      {8, 4, 4},      {12, 4, 4},
                                       {16, 8, 8},   {24, 4, 4},    {28, 2, 2},     {30, 4, 4},     {34, 4, 4},
                                       {38, 128, 0}, {166, 512, 0}, {678, 512, 0},  {1190, 8, 8},   {1198, 4, 4},
                                       {1202, 4, 4}, {1206, 4, 4},  {1210, 128, 0}, {1338, 512, 0}, {1850, 512, 0},
                                       {2362, 4, 4}, {2366, 4, 4},  {2370, 4, 4},   {2374, 4, 4}};
        for (const campo &c : CAMPOS)
            if (c.despl <= despl && despl < c.despl + c.tam)
                return &c;
        return nullptr;
    }

    void anota_escritura(size_t despl)
    {
        const campo *c = campo_en(despl);
        if (c->ancho == 0) {
            if (m_campo != c)
                anota(std::to_string(c->despl));
            m_campo = c;
            return;
        }
        uint64_t valor = 0;
        memcpy(&valor, reinterpret_cast<const void *>(m_datos + c->despl), c->ancho);
        anota((despl == c->despl ? "" : "within ") + std::to_string(c->despl) + "=" + std::to_string(valor));
    }

    inline static pelicula *s_pelicula = nullptr;
    inline static volatile uint32_t s_hilo = 0;
    inline static const decltype(&ReleaseMutex) s_suelta_antes = __imp_ReleaseMutex;
    inline static const decltype(&Sleep) s_duerme_antes = __imp_Sleep;
    inline static const decltype(&MapViewOfFile) s_mapea_antes = __imp_MapViewOfFile;

    const std::string m_mutex;
    std::string m_texto;
    uint32_t m_descansos = 0;
    int32_t m_abiertos = 0;         // holds that the text shows
    const campo *m_campo = nullptr; // the text field that is being written
    uintptr_t m_datos = 0;
    size_t m_despl = TAM; // of the write that is let through
    void *m_manejador;
    importacion_cambiada<decltype(&ReleaseMutex)> m_cambio_suelta{__imp_ReleaseMutex, suelta};
    importacion_cambiada<decltype(&Sleep)> m_cambio_duerme{__imp_Sleep, duerme};
    importacion_cambiada<decltype(&MapViewOfFile)> m_cambio_mapea{__imp_MapViewOfFile, mapea};
};

#endif
