#include "proceso.h"

#include <cstdio>
#include <stdexcept>

namespace banco {

void falla(const char *que, DWORD error)
{
    char texto[256];
    std::snprintf(texto, sizeof texto, "%s (error %lu)", que, static_cast<unsigned long>(error));
    throw std::runtime_error(texto);
}

void falla(const char *que)
{
    falla(que, GetLastError());
}

std::string sesion_nueva()
{
    static unsigned numero = 0;
    char texto[17];
    std::snprintf(texto, sizeof texto, "%lx%lxn%u", static_cast<unsigned long>(GetCurrentProcessId()),
                  static_cast<unsigned long>(GetTickCount() & 0xFFFFF), ++numero);
    return texto;
}

int ultima_cpu()
{
    DWORD_PTR propias = 0, todas = 0;
    if (!GetProcessAffinityMask(GetCurrentProcess(), &propias, &todas))
        falla("GetProcessAffinityMask");
    int cpu = 0;
    while (propias >>= 1)
        cpu++;
    return cpu;
}

void fija_cpu(int cpu)
{
    if (!SetProcessAffinityMask(GetCurrentProcess(), DWORD_PTR{1} << cpu))
        falla("the processor could not be chosen");
}

void *mapea(const std::string &nombre, size_t tam)
{
    HANDLE mapa = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, static_cast<DWORD>(tam >> 32),
                                     static_cast<DWORD>(tam), nombre.c_str());
    if (mapa == nullptr)
        falla("CreateFileMapping");
    void *vista = MapViewOfFile(mapa, FILE_MAP_WRITE, 0, 0, 0);
    if (vista == nullptr)
        falla("MapViewOfFile");
    return vista;
}

HWND crea_ventana(const std::string &titulo, WNDPROC procedimiento)
{
    WNDCLASSA clase = {};
    clase.lpfnWndProc = DefWindowProcA;
    clase.hInstance = GetModuleHandleA(nullptr);
    clase.lpszClassName = "banco";
    RegisterClassA(&clase);
    HWND hwnd = CreateWindowExA(0, "banco", titulo.c_str(), WS_OVERLAPPED, 0, 0, 0, 0, nullptr, nullptr,
                                clase.hInstance, nullptr);
    if (hwnd == nullptr)
        falla("CreateWindowEx");
    SetWindowLongPtrA(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedimiento)); // the class is for all
    return hwnd;
}

HWND busca_ventana(const std::string &titulo)
{
    HWND hwnd = FindWindowA("banco", titulo.c_str());
    if (hwnd == nullptr)
        falla("the server's window was not found");
    return hwnd;
}

// ---- The parent's side

static HANDLE evento_heredable()
{
    SECURITY_ATTRIBUTES seguridad = {sizeof seguridad, nullptr, TRUE};
    HANDLE evento = CreateEventA(&seguridad, TRUE, FALSE, nullptr);
    if (evento == nullptr)
        falla("CreateEvent");
    return evento;
}

static std::string este_programa()
{
    char ruta[MAX_PATH];
    if (GetModuleFileNameA(nullptr, ruta, sizeof ruta) == 0)
        falla("GetModuleFileName");
    return ruta;
}

// What a child inherits: its parent, the event that it sets, the event that ends it.
static HANDLE este_proceso_heredable()
{
    HANDLE proceso;
    if (!DuplicateHandle(GetCurrentProcess(), GetCurrentProcess(), GetCurrentProcess(), &proceso, SYNCHRONIZE, TRUE, 0))
        falla("DuplicateHandle");
    return proceso;
}

static std::string en_hex(HANDLE handle)
{
    char texto[20];
    std::snprintf(texto, sizeof texto, "%llx", reinterpret_cast<unsigned long long>(handle));
    return texto;
}

hijo::hijo(const std::string &papel, const std::string &sesion)
{
    listo_ = evento_heredable();
    fin_ = evento_heredable();
    HANDLE padre = este_proceso_heredable();
    std::string orden = "\"" + este_programa() + "\" --papel " + papel + " --sesion " + sesion + " --padre " +
                        en_hex(padre) + " --listo " + en_hex(listo_) + " --fin " + en_hex(fin_);
    STARTUPINFOA inicio = {};
    inicio.cb = sizeof inicio;
    PROCESS_INFORMATION info;
    BOOL creado = CreateProcessA(nullptr, &orden[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &inicio, &info);
    CloseHandle(padre);
    if (!creado)
        falla("the server's process could not be started");
    CloseHandle(info.hThread);
    proceso_ = info.hProcess;
    id_ = info.dwProcessId;

    HANDLE espera[] = {listo_, proceso_};
    DWORD que = WaitForMultipleObjects(2, espera, FALSE, LIMITE_MS);
    if (que != WAIT_OBJECT_0) {
        TerminateProcess(proceso_, 1);
        throw std::runtime_error("the role " + papel + (que == WAIT_OBJECT_0 + 1 ? " ended at once" : " is not ready"));
    }
}

void hijo::termina()
{
    if (proceso_ == nullptr)
        return;
    SetEvent(fin_);
    DWORD que = WaitForSingleObject(proceso_, LIMITE_MS);
    DWORD codigo = 1;
    GetExitCodeProcess(proceso_, &codigo);
    if (que != WAIT_OBJECT_0)
        TerminateProcess(proceso_, 1);
    suelta_handles();
    if (que != WAIT_OBJECT_0 || codigo != 0)
        falla("a server did not end as asked: exit code", codigo);
}

void hijo::mata()
{
    if (proceso_ == nullptr)
        return;
    TerminateProcess(proceso_, 1);
    WaitForSingleObject(proceso_, LIMITE_MS);
    suelta_handles();
}

void hijo::suelta_handles()
{
    for (HANDLE *handle : {&proceso_, &listo_, &fin_}) {
        CloseHandle(*handle);
        *handle = nullptr;
    }
}

hijo::~hijo()
{
    try {
        termina();
    } catch (const std::exception &e) {
        std::fprintf(stderr, "banco: %s\n", e.what());
    }
}

// ---- The child's side

static HANDLE s_padre, s_listo, s_fin;
static DWORD s_hilo_principal;

static HANDLE de_hex(const std::string &hex)
{
    if (hex.empty() || hex.size() > 16 || hex.find_first_not_of("0123456789abcdef") != std::string::npos)
        throw std::runtime_error("a role is played by a child of this program alone, which hands it its handles");
    return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(std::stoull(hex, nullptr, 16)));
}

void papel_recibe(const std::string &padre, const std::string &listo, const std::string &fin)
{
    s_padre = de_hex(padre);
    s_listo = de_hex(listo);
    s_fin = de_hex(fin);
    s_hilo_principal = GetCurrentThreadId();
}

// Without its parent nobody would end this process.
static DWORD WINAPI vigila(void *)
{
    HANDLE espera[] = {s_fin, s_padre};
    if (WaitForMultipleObjects(2, espera, FALSE, INFINITE) != WAIT_OBJECT_0)
        TerminateProcess(GetCurrentProcess(), 1);
    PostThreadMessageW(s_hilo_principal, WM_QUIT, 0, 0);
    return 0;
}

void papel_listo()
{
    MSG msg;
    PeekMessageW(&msg, nullptr, WM_USER, WM_USER, PM_NOREMOVE); // makes the queue
    s_hilo_principal = GetCurrentThreadId();
    HANDLE hilo = CreateThread(nullptr, 0, vigila, nullptr, 0, nullptr);
    if (hilo == nullptr)
        falla("CreateThread");
    CloseHandle(hilo);
    SetEvent(s_listo);
}

HANDLE papel_fin()
{
    return s_fin;
}

int papel_bucle_mensajes()
{
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0)
        DispatchMessageW(&msg);
    return static_cast<int>(msg.wParam);
}

} // namespace banco
