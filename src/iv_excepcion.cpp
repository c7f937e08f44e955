#include "iv_excepcion.h"

static const DWORD EXCEPCION_GCC = 0x20474343; // a throw of GCC's run-time
static const int MOTIVO_CAPTURA_AJENA = 1;     // why its object is given back: another language caught it
static const ULONG TAM_PAGINA = 4096;
static const ULONG TAM_RESERVA = 4 * TAM_PAGINA; // of the stack, for leaving an overflow

// The exception object of GCC's run-time, which other compilers of its kind share.
struct iv_excepcion_gcc {
    uint64_t clase;
    void (*libera)(int motivo, iv_excepcion_gcc *excepcion);
    uint64_t privado[6]; // 1 frame and 2 place where it is caught, 3 a number for a catch of its own
};

// Takes the innermost frame off the context and returns its value, 0 without one. *base is where its module lies,
// *tabla what the compiler wrote about the guarded ranges of its function.
static uint64_t quita_marco(CONTEXT *contexto, DWORD64 *base, const SCOPE_TABLE_AMD64 **tabla)
{
    DWORD64 marco = 0;
    void *datos = NULL;
    RUNTIME_FUNCTION *funcion = RtlLookupFunctionEntry(contexto->Rip, base, NULL);
    if (funcion != NULL)
        RtlVirtualUnwind(UNW_FLAG_EHANDLER, *base, contexto->Rip, funcion, contexto, &datos, &marco, NULL);
    *tabla = static_cast<const SCOPE_TABLE_AMD64 *>(datos);
    return marco;
}

static void apunta_marco(iv_excepcion_guarda *guarda, CONTEXT *contexto)
{
    DWORD64 base = 0;
    const SCOPE_TABLE_AMD64 *tabla;
    quita_marco(contexto, &base, &tabla); // iv_excepcion_prepara's own
    guarda->marco = quita_marco(contexto, &base, &tabla);
    for (DWORD i = 0; tabla != NULL && i < tabla->Count; i++)
        if (tabla->ScopeRecord[i].JumpTarget != 0) // 0: a __finally
            guarda->destino = base + tabla->ScopeRecord[i].JumpTarget;
}

// Before an overflow the system keeps the guard page itself, above pages that it has not given out yet. Where the stack
// has been given out down to its last page, which stays closed, there was an overflow, or this system gives it out
// whole: then the guard belongs right above that page.
static void prepara_pila(void)
{
    ULONG reserva = TAM_RESERVA;
    SetThreadStackGuarantee(&reserva);
    MEMORY_BASIC_INFORMATION zona;
    if (VirtualQuery(&zona, &zona, sizeof zona) == 0)
        return;
    const char *aqui = reinterpret_cast<const char *>(&zona);
    // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.Assign): the system has filled it
    char *fondo = static_cast<char *>(zona.AllocationBase);
    if (VirtualQuery(fondo, &zona, sizeof zona) == 0 || zona.RegionSize != TAM_PAGINA)
        return;
    const ULONG tam = TAM_RESERVA + TAM_PAGINA; // touching the topmost page of a guard is no overflow yet
    DWORD antes;
    if (fondo + TAM_PAGINA + tam + TAM_RESERVA < aqui)
        VirtualProtect(fondo + TAM_PAGINA, tam, PAGE_READWRITE | PAGE_GUARD, &antes);
}

void iv_excepcion_prepara(iv_excepcion_guarda *guarda)
{
    CONTEXT contexto;
    guarda->marco = 0;
    guarda->destino = 0;
    guarda->en_vuelo = NULL;
    RtlCaptureContext(&contexto);
    apunta_marco(guarda, &contexto);
    prepara_pila();
}

LONG iv_excepcion_filtra(iv_excepcion_guarda *guarda, const EXCEPTION_POINTERS *excepcion)
{
    const EXCEPTION_RECORD *registro = excepcion->ExceptionRecord;
    if (registro->ExceptionCode == EXCEPCION_GCC && registro->NumberParameters > 0) {
        auto *gcc = reinterpret_cast<volatile iv_excepcion_gcc *>(registro->ExceptionInformation[0]);
        gcc->privado[1] = guarda->marco;
        gcc->privado[2] = guarda->destino;
        guarda->en_vuelo = const_cast<iv_excepcion_gcc *>(gcc); // last: what is no object faults before
    }
    return EXCEPTION_EXECUTE_HANDLER;
}

// What is given back is the host's own object, whose destructor may raise in turn.
void iv_excepcion_acaba(iv_excepcion_guarda *guarda)
{
    iv_excepcion_gcc *excepcion = guarda->en_vuelo;
    guarda->en_vuelo = NULL;
    __try {
        if (excepcion != NULL && excepcion->libera != NULL)
            excepcion->libera(MOTIVO_CAPTURA_AJENA, excepcion);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
    }
}
