#include "iv_traza.h"

// SIN_DECIDIR is not 0: the first call of all comes through the one test that stops every call with the trace off.
// While that call reads the variable, those of other threads find neither 0 nor 1 and write nothing.
static const uint32_t SIN_DECIDIR = 2;
static uint32_t iv_traza_primera_vez = 1;
uint32_t iv_traza_activada = SIN_DECIDIR;
static char s_texto_numero[64];

// ---- Reports

static const uintptr_t MAX_CAJAS_ANIDADAS = 16;

// The slot in which each thread counts the boxes that stand on it, one inside the other.
static DWORD indice_cajas(void)
{
    static volatile LONG s_indice = static_cast<LONG>(TLS_OUT_OF_INDEXES);
    LONG indice = InterlockedCompareExchange(&s_indice, 0, 0);
    if (static_cast<DWORD>(indice) != TLS_OUT_OF_INDEXES)
        return static_cast<DWORD>(indice);
    LONG nuevo = static_cast<LONG>(TlsAlloc());
    indice = InterlockedCompareExchange(&s_indice, nuevo, static_cast<LONG>(TLS_OUT_OF_INDEXES));
    if (static_cast<DWORD>(indice) == TLS_OUT_OF_INDEXES)
        return static_cast<DWORD>(nuevo);
    TlsFree(static_cast<DWORD>(nuevo)); // another thread was first
    return static_cast<DWORD>(indice);
}

static void pon_cajas(DWORD indice, uintptr_t num_cajas)
{
    TlsSetValue(indice, reinterpret_cast<void *>(num_cajas));
}

// A box dispatches messages: what comes in meanwhile may report in turn, and the boxes would pile up until the stack
// ends. From the 17th on a thread, one inside the other, a report goes to the trace alone.
static int muestra_caja(const char *texto)
{
    DWORD indice = indice_cajas();
    uintptr_t num_cajas = reinterpret_cast<uintptr_t>(TlsGetValue(indice));
    if (num_cajas >= MAX_CAJAS_ANIDADAS) {
        iv_traza_linea(texto);
        return 0;
    }
    int respuesta = 0;
    pon_cajas(indice, num_cajas + 1);
    __try {
        respuesta = iv_ventana()->MessageBoxA(NULL, texto, "Assert ivrexa", 0);
    } __finally {
        pon_cajas(indice, num_cajas); // what the host does inside the box may raise
    }
    return respuesta;
}

int iv_assert_mensaje(const char *expresion, const char *modulo, uint32_t linea)
{
    char texto[2048];
    iv_ventana()->wsprintfA(texto, "Error in %s - lin %d\n\nExpr: %s", modulo, linea, expresion);
    return muestra_caja(texto);
}

// ---- Primitives

static void lee_interruptor(void)
{
    iv_traza_primera_vez = 0;
    iv_traza_activada = GetEnvironmentVariableA("IVREXA_DEBUG", NULL, 0) != 0 ? 1 : 0;
}

uint32_t iv_traza_decide(void)
{
    if (iv_traza_primera_vez == 1)
        lee_interruptor();
    return iv_traza_activada == 1;
}

static void escribe(const char *texto)
{
    if (texto != NULL)
        OutputDebugStringA(texto);
}

static void escribe_numero(uint64_t numero)
{
    escribe(iv_traza_numero_a_texto(numero));
}

void iv_traza_cadena_si_activa(const char *texto)
{
    if (iv_traza_activa())
        escribe(texto);
}

void iv_traza_linea_si_activa(const char *texto)
{
    if (!iv_traza_activa())
        return;
    escribe(texto);
    escribe("\n");
}

void iv_traza_cadena_numero_si_activa(const char *texto, uint32_t numero, uint32_t con_fin_de_linea)
{
    iv_traza_cadena_valor_si_activa(texto, numero, con_fin_de_linea);
}

void iv_traza_cadena_valor_si_activa(const char *texto, uint64_t valor, uint32_t con_fin_de_linea)
{
    if (!iv_traza_activa())
        return;
    escribe(texto);
    escribe_numero(valor);
    if (con_fin_de_linea)
        escribe("\n");
}

const char *iv_traza_numero_a_texto(uint64_t numero)
{
    char al_reves[63];
    uint32_t num_cifras = 0;
    do {
        al_reves[num_cifras++] = static_cast<char>('0' + numero % 10);
        numero /= 10;
    } while (numero != 0);

    char *cifra = s_texto_numero;
    while (num_cifras > 0)
        *cifra++ = al_reves[--num_cifras];
    *cifra = '\0';
    return s_texto_numero;
}

void iv_traza_cabecera(void)
{
    DWORD ahora_ms = GetTickCount();
    escribe("\n*** ");
    escribe_numero(ahora_ms);
    escribe(": ");
}

void iv_traza_valor_u32(const uint32_t *numero, const char *etiqueta)
{
    if (numero == NULL)
        return;
    escribe(etiqueta);
    escribe(" = ");
    escribe_numero(*numero);
    escribe("\n");
}

// Deliberate: no " = " between the label and the quotation mark.
void iv_traza_texto_u(const wchar_t *texto, const char *etiqueta)
{
    if (texto == NULL)
        return;
    escribe(etiqueta);
    escribe("\"");
    OutputDebugStringW(texto);
    escribe("\"");
    escribe("\n");
}

// ---- Records

static uint64_t numero_de(ivrexa_hwnd hwnd)
{
    return reinterpret_cast<uint64_t>(hwnd);
}

static void abre_registro(const char *titulo, const char *texto)
{
    iv_traza_cabecera();
    escribe(titulo);
    escribe(texto);
}

static void escribe_hwnd(ivrexa_hwnd hwnd)
{
    escribe(" hwnd=");
    escribe_numero(numero_de(hwnd));
    escribe("\n");
}

static void abre_registro_comando(const char *titulo, const char *nombre_servicio, uint32_t id_comando)
{
    abre_registro(titulo, nombre_servicio);
    escribe(" id_comando: ");
    escribe_numero(id_comando);
    escribe("\n");
}

// Deliberate: no blank before this title, and mixed case.
void iv_traza_registro_servidor_si_activa(const char *programa, ivrexa_hwnd hwnd)
{
    if (!iv_traza_activa())
        return;
    abre_registro("Registro Servidor ", programa);
    escribe_hwnd(hwnd);
}

void iv_traza_registro_cliente_servicio_si_activa(const char *ruta_ejecutable, ivrexa_hwnd hwnd,
                                                  const char *nombre_servicio)
{
    if (!iv_traza_activa())
        return;
    abre_registro(" REGISTRO CLIENTE SERVICIO ", nombre_servicio);
    escribe(" ");
    escribe(ruta_ejecutable);
    escribe_hwnd(hwnd);
}

void iv_traza_registro_servicio_prestado_si_activa(const char *nombre_servicio, uint16_t version)
{
    if (!iv_traza_activa())
        return;
    abre_registro(" REGISTRO SERVICIO PRESTADO ", nombre_servicio);
    escribe(" Version ");
    escribe_numero(version);
    escribe("\n");
}

// Deliberate: any result but 0 counts as success here, only 1 in the record of the answer; and this record does not
// end with an empty line.
void iv_traza_get_datos_entrada_comando_si_activa(const char *nombre_servicio, uint32_t id_comando,
                                                  const uint32_t *id_datos_entrada_comando,
                                                  const wchar_t *buffer_cliente_64, const wchar_t *buffer_cliente_256,
                                                  const wchar_t *buffer_cliente2_256, int16_t resultado)
{
    if (!iv_traza_activa())
        return;
    abre_registro_comando(" GET_DATOS_ENTRADA_COMANDO ", nombre_servicio, id_comando);
    escribe("    Resultado ");
    if (resultado == 0) {
        escribe("    FALSO\n");
        return;
    }
    escribe("    CIERTO\n");
    iv_traza_valor_u32(id_datos_entrada_comando, "    id_datos_entrada_comando");
    iv_traza_texto_u(buffer_cliente_64, "    buffer_cliente_64");
    iv_traza_texto_u(buffer_cliente_256, "    buffer_cliente_256");
    iv_traza_texto_u(buffer_cliente2_256, "    buffer_cliente2_256");
}

// Deliberate: the title says ENTRADA, as its getter's does.
void iv_traza_set_datos_entrada_comando_si_activa(const char *nombre_servicio, uint32_t id_comando,
                                                  uint32_t id_datos_salida_comando, const wchar_t *resultado_64,
                                                  const wchar_t *resultado_256, const wchar_t *resultado_256_2,
                                                  int16_t resultado)
{
    if (!iv_traza_activa())
        return;
    abre_registro_comando(" SET_DATOS_ENTRADA_COMANDO ", nombre_servicio, id_comando);
    escribe("    Resultado ");
    if (resultado != CIERTO) {
        escribe("    FALSO\n");
        return;
    }
    escribe("    CIERTO\n");
    iv_traza_valor_u32(&id_datos_salida_comando, "    id_datos_salida_comando");
    iv_traza_texto_u(resultado_64, "    resultado_64");
    iv_traza_texto_u(resultado_256, "    resultado_256");
    iv_traza_texto_u(resultado_256_2, "    resultado_256_2");
    escribe("\n");
}

void iv_traza_inicio_comando_si_activa(const char *nombre_servicio, uint32_t id_comando,
                                       uint32_t id_bloque_MCCom_entrada, const wchar_t *param1, const wchar_t *param2,
                                       const wchar_t *param3)
{
    if (!iv_traza_activa())
        return;
    abre_registro_comando(" INICIO COMANDO ", nombre_servicio, id_comando);
    escribe("    Datos de entrada\n");
    iv_traza_valor_u32(&id_bloque_MCCom_entrada, "    id_bloque_MCCom_entrada");
    iv_traza_texto_u(param1, "    param1");
    iv_traza_texto_u(param2, "    param2");
    iv_traza_texto_u(param3, "    param3");
    escribe("\n");
}

static void escribe_texto_salida(wchar_t *const *texto, const char *etiqueta)
{
    if (texto != NULL)
        iv_traza_texto_u(*texto, etiqueta);
}

void iv_traza_fin_comando_si_activa(const char *nombre_servicio, uint32_t id_comando, uint32_t resultado,
                                    const uint32_t *id_datos_salida_comando, wchar_t *const *serv_buffer_64,
                                    wchar_t *const *serv_buffer_256, wchar_t *const *serv_buffer2_256)
{
    if (!iv_traza_activa())
        return;
    abre_registro_comando(" FIN COMANDO ", nombre_servicio, id_comando);
    escribe("    Resultado ");
    switch (resultado) {
    case ivrexa_resultado_NINGUNO:
        escribe("    NINGUNO\n");
        break;
    case ivrexa_resultado_OK:
        escribe("    OK\n");
        iv_traza_valor_u32(id_datos_salida_comando, "    id_datos_salida_comando");
        escribe_texto_salida(serv_buffer_64, "    serv_buffer_64");
        escribe_texto_salida(serv_buffer_256, "    serv_buffer_256");
        escribe_texto_salida(serv_buffer2_256, "    serv_buffer2_256");
        escribe("\n");
        break;
    case ivrexa_resultado_CANCELADO:
        escribe("    CANCELADO\n");
        break;
    case ivrexa_resultado_ERROR:
        escribe("    ERROR\n");
        break;
    default:
        break; // Deliberate: a host's own result is not named and leaves the record without a line end.
    }
}

void iv_traza_estoy_vivo_si_activa(uint16_t id_programa)
{
    if (!iv_traza_activa())
        return;
    iv_traza_cabecera();
    escribe(" ESTOY VIVO ");
    escribe_numero(id_programa);
    escribe("\n");
}

// Deliberate: no blank before "BUCLE ".
void iv_traza_bucle_si_activa(const char *estado)
{
    if (!iv_traza_activa())
        return;
    abre_registro("BUCLE ", estado);
    escribe("\n");
}
