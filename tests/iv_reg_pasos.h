// iv_reg_pasos.h - what the module asks of the system while an object of this class lives, as lines of text
// in the order of the calls:
//
//     mutex N         CreateMutexA                  +N         the mutex is taken
//     block N bytes   CreateFileMappingA            -N code    and given back, with the site that took it
//     thread W        CreateThread, running or not  close N    CloseHandle of a mutex, a block or a thread
//     resume W, code W, kill W code                 sleep ms   100 and more
//     message N, subclass, post msg wParam lParam   the window system
//
// N is a name, with aliases in the place of names that differ from run to run; W is "heartbeat", "service 0"
// or "notifications 0". The calls of each thread stand for themselves.
#ifndef IV_REG_PASOS_H
#define IV_REG_PASOS_H

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "iv_reg_apoyo.h"

#include "comun/importacion.h"

#include "iv_mcbase.h"

IMPORTACION(CreateMutexA);
IMPORTACION(WaitForSingleObject);
IMPORTACION(ReleaseMutex);
IMPORTACION(CloseHandle);
IMPORTACION(CreateFileMappingA);
IMPORTACION(OpenFileMappingA);
IMPORTACION(CreateThread);
IMPORTACION(ResumeThread);
IMPORTACION(GetExitCodeThread);
IMPORTACION(TerminateThread);
IMPORTACION(Sleep);

using lista_pasos = std::vector<std::string>;

// The list with each run of `grupo` in it told once: a wait takes as many rounds as it takes.
inline lista_pasos sin_repetir(const lista_pasos &lista, const lista_pasos &grupo)
{
    lista_pasos corta;
    for (const std::string &linea : lista) {
        corta.push_back(linea);
        size_t n = grupo.size();
        if (corta.size() >= 2 * n && std::equal(grupo.begin(), grupo.end(), corta.end() - n) &&
            std::equal(grupo.begin(), grupo.end(), corta.end() - 2 * n))
            corta.resize(corta.size() - n);
    }
    return corta;
}

// Listens to the thread that made it and to the library's threads that this one starts. What a call notes is
// static: a thread may still be inside one when the object goes.
class pasos {
public:
    pasos()
    {
        s_lineas.clear();
        s_alias.clear();
        s_nombres.clear();
        s_hilos = {GetCurrentThreadId()};
        s_activo = true;
        m_ventana->RegisterWindowMessageA = mensaje;
        m_ventana->SetWindowLongPtrW = subclase;
        m_ventana->PostMessageW = publica;
    }
    ~pasos()
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        s_activo = false;
    }
    pasos(const pasos &) = delete;
    pasos &operator=(const pasos &) = delete;

    // From now on `nombre` is shown as `corto`.
    void llama(const std::string &nombre, const std::string &corto)
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        s_alias.push_back({nombre, corto});
    }
    iv_ventana_llamadas *operator->() { return iv_ventana(); } // to swap more of them
    void borra()
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        s_lineas.clear();
    }
    lista_pasos propios() const { return de_hilo(GetCurrentThreadId()); }
    lista_pasos de_hilo(uint32_t hilo) const
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        lista_pasos lineas;
        for (const auto &[de_quien, linea] : s_lineas)
            if (de_quien == hilo)
                lineas.push_back(linea);
        return lineas;
    }

private:
    template <typename funcion>
    using cambio = importacion_cambiada<funcion>;

    static bool se_oye()
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        return s_activo && s_hilos.count(GetCurrentThreadId()) > 0;
    }
    static void anota(std::string linea)
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        if (!s_activo)
            return;
        for (const auto &[nombre, corto] : s_alias)
            for (size_t n; (n = linea.find(nombre)) != std::string::npos;)
                linea.replace(n, nombre.size(), corto);
        s_lineas.push_back({GetCurrentThreadId(), linea});
    }
    static HANDLE recuerda(HANDLE h, const std::string &nombre)
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        s_nombres[h] = nombre;
        return h;
    }
    static std::string recordado(HANDLE h)
    {
        std::lock_guard<cerrojo> guarda(s_candado_pasos);
        auto i = s_nombres.find(h);
        return i != s_nombres.end() ? i->second : "";
    }

    // The record of a mutex: of the registry, of a service, or one that a call keeps for itself.
    static iv_mutex *registro_de(HANDLE h)
    {
        std::vector<iv_mutex *> posibles;
        if (s_mcbase_acceso != nullptr)
            posibles.push_back(s_mcbase_acceso->mutex);
        for (uint32_t i = 0; s_programa != nullptr && i < s_programa->num_servicios_prestados; i++)
            for (size_t despl : {42, 50})
                posibles.push_back(mutex_en(prestado(i), despl));
        for (uint32_t i = 0; s_programa != nullptr && i < s_programa->num_servicios_solicitados; i++)
            posibles.push_back(mutex_en(solicitado(i), 28));
        for (iv_mutex *mutex : posibles)
            if (mutex != nullptr && mutex->mutex == h)
                return mutex;
        return recordado(h).rfind("M", 0) == 0 ? busca_en_heap(h) : nullptr;
    }
    static iv_mutex *busca_en_heap(HANDLE h)
    {
        PROCESS_HEAP_ENTRY entrada = {};
        while (s_LocalHeap != nullptr && HeapWalk(s_LocalHeap, &entrada))
            if ((entrada.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 && entrada.cbData >= sizeof(iv_mutex) &&
                *static_cast<HANDLE *>(entrada.lpData) == h)
                return static_cast<iv_mutex *>(entrada.lpData);
        return nullptr;
    }

    // Of a thread of the library's; "" for another.
    static std::string hilo_de(const void *arg)
    {
        size_t despl = static_cast<const uint8_t *>(arg) - reinterpret_cast<uint8_t *>(s_programa);
        if (s_programa == nullptr || despl > 2416)
            return "";
        if (despl == 28)
            return "heartbeat";
        return despl < 1484 ? "service " + std::to_string((despl - 36) / 90)
                            : "notifications " + std::to_string((despl - 1484) / 58);
    }

    static HANDLE WINAPI crea_mutex(LPSECURITY_ATTRIBUTES seguridad, BOOL tomado, LPCSTR nombre)
    {
        bool se_anota = se_oye() && strcmp(nombre, "ivrexa_iv_mem") != 0;
        if (se_anota)
            anota(std::string("mutex ") + nombre);
        HANDLE h = s_crea_mutex(seguridad, tomado, nombre);
        DWORD error = GetLastError();
        if (se_anota)
            recuerda(h, std::string("M") + nombre);
        SetLastError(error);
        return h;
    }
    static HANDLE WINAPI crea_bloque(HANDLE fichero, LPSECURITY_ATTRIBUTES seguridad, DWORD modo, DWORD alto,
                                     DWORD bajo, LPCSTR nombre)
    {
        bool se_anota = se_oye();
        if (se_anota)
            anota(std::string("block ") + nombre + " " + std::to_string(bajo));
        HANDLE h = s_crea_bloque(fichero, seguridad, modo, alto, bajo, nombre);
        DWORD error = GetLastError();
        if (se_anota)
            recuerda(h, std::string("block ") + nombre);
        SetLastError(error);
        return h;
    }
    static HANDLE WINAPI abre_bloque(DWORD acceso, BOOL hereda, LPCSTR nombre)
    {
        HANDLE h = s_abre_bloque(acceso, hereda, nombre);
        return h != nullptr && se_oye() ? recuerda(h, std::string("block ") + nombre) : h;
    }
    static DWORD WINAPI espera(HANDLE h, DWORD ms)
    {
        DWORD res = s_espera(h, ms);
        iv_mutex *mutex = se_oye() ? registro_de(h) : nullptr;
        if (mutex != nullptr)
            anota(std::string("+") + mutex->nombre);
        return res;
    }
    static BOOL WINAPI suelta(HANDLE h)
    {
        iv_mutex *mutex = se_oye() ? registro_de(h) : nullptr;
        if (mutex != nullptr) {
            uint32_t nivel = static_cast<uint32_t>(mutex->nivel_bloqueo);
            anota(std::string("-") + mutex->nombre + " " +
                  (nivel < 4 ? std::to_string(mutex->codigos_bloqueo[nivel]) : "?"));
        }
        return s_suelta(h);
    }
    static BOOL WINAPI cierra(HANDLE h)
    {
        if (se_oye()) {
            iv_mutex *mutex = registro_de(h);
            std::string nombre = mutex != nullptr ? mutex->nombre : recordado(h);
            if (!nombre.empty())
                anota("close " + (nombre[0] == 'M' && mutex == nullptr ? nombre.substr(1) : nombre));
            recuerda(h, "");
        }
        return s_cierra(h);
    }
    static HANDLE WINAPI crea_hilo(LPSECURITY_ATTRIBUTES seguridad, SIZE_T pila, LPTHREAD_START_ROUTINE inicio,
                                   LPVOID arg, DWORD marcas, LPDWORD id)
    {
        std::string nombre = se_oye() ? hilo_de(arg) : "";
        if (nombre.empty())
            return s_crea_hilo(seguridad, pila, inicio, arg, marcas, id);
        anota("thread " + nombre + (marcas == CREATE_SUSPENDED ? " suspended" : ""));
        HANDLE h = recuerda(s_crea_hilo(seguridad, pila, inicio, arg, marcas | CREATE_SUSPENDED, id), nombre);
        {
            std::lock_guard<cerrojo> guarda(s_candado_pasos);
            s_hilos.insert(*id);
        }
        if (marcas != CREATE_SUSPENDED)
            s_reanuda(h);
        return h;
    }
    static DWORD WINAPI reanuda(HANDLE h)
    {
        if (se_oye())
            anota("resume " + recordado(h));
        return s_reanuda(h);
    }
    static BOOL WINAPI codigo(HANDLE h, LPDWORD n)
    {
        if (se_oye())
            anota("code " + recordado(h));
        return s_codigo(h, n);
    }
    static BOOL WINAPI mata(HANDLE h, DWORD n)
    {
        if (se_oye())
            anota("kill " + recordado(h) + " " + std::to_string(n));
        return s_mata(h, n);
    }
    static void WINAPI duerme(DWORD ms)
    {
        if (ms >= 100 && se_oye())
            anota("sleep " + std::to_string(ms));
        s_duerme(ms);
    }
    static UINT WINAPI mensaje(LPCSTR nombre)
    {
        anota(std::string("message ") + nombre);
        return RegisterWindowMessageA(nombre);
    }
    static LONG_PTR WINAPI subclase(HWND hwnd, int indice, LONG_PTR valor)
    {
        anota("subclass " + std::to_string(indice));
        return SetWindowLongPtrW(hwnd, indice, valor);
    }
    static BOOL WINAPI publica(HWND, UINT msg, WPARAM wparam, LPARAM lparam)
    {
        if (se_oye())
            anota("post " + std::to_string(msg) + " " + std::to_string(wparam) + " " + std::to_string(lparam));
        return TRUE;
    }

    static inline const auto s_crea_mutex = __imp_CreateMutexA;
    static inline const auto s_espera = __imp_WaitForSingleObject;
    static inline const auto s_suelta = __imp_ReleaseMutex;
    static inline const auto s_cierra = __imp_CloseHandle;
    static inline const auto s_crea_bloque = __imp_CreateFileMappingA;
    static inline const auto s_abre_bloque = __imp_OpenFileMappingA;
    static inline const auto s_crea_hilo = __imp_CreateThread;
    static inline const auto s_reanuda = __imp_ResumeThread;
    static inline const auto s_codigo = __imp_GetExitCodeThread;
    static inline const auto s_mata = __imp_TerminateThread;
    static inline const auto s_duerme = __imp_Sleep;

    static inline cerrojo s_candado_pasos;
    static inline bool s_activo;
    static inline std::set<uint32_t> s_hilos;
    static inline std::vector<std::pair<uint32_t, std::string>> s_lineas;
    static inline std::vector<std::pair<std::string, std::string>> s_alias;
    static inline std::map<HANDLE, std::string> s_nombres; // a mutex's begins with M

    ventana_cambiada m_ventana;
    cambio<decltype(&CreateMutexA)> m_crea_mutex{__imp_CreateMutexA, crea_mutex};
    cambio<decltype(&WaitForSingleObject)> m_espera{__imp_WaitForSingleObject, espera};
    cambio<decltype(&ReleaseMutex)> m_suelta{__imp_ReleaseMutex, suelta};
    cambio<decltype(&CloseHandle)> m_cierra{__imp_CloseHandle, cierra};
    cambio<decltype(&CreateFileMappingA)> m_crea_bloque{__imp_CreateFileMappingA, crea_bloque};
    cambio<decltype(&OpenFileMappingA)> m_abre_bloque{__imp_OpenFileMappingA, abre_bloque};
    cambio<decltype(&CreateThread)> m_crea_hilo{__imp_CreateThread, crea_hilo};
    cambio<decltype(&ResumeThread)> m_reanuda{__imp_ResumeThread, reanuda};
    cambio<decltype(&GetExitCodeThread)> m_codigo{__imp_GetExitCodeThread, codigo};
    cambio<decltype(&TerminateThread)> m_mata{__imp_TerminateThread, mata};
    cambio<decltype(&Sleep)> m_duerme{__imp_Sleep, duerme};
};

#endif
