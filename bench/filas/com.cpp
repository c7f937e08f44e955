// COM, out of process: an automation object that the server enters in the running object table, called late bound as
// scripts call it. IDispatch is marshalled by the system itself, so nothing has to be registered on the machine. Both
// sides live in single-threaded apartments, as programs with windows do.
#include "../comun/fila.h"
#include "../comun/proceso.h"

#include <windows.h>
#include <ole2.h>
#include <oleauto.h>

#include <cstring>
#include <memory>
#include <string>

namespace banco {

namespace {

const DISPID EJECUTA = 1;
wchar_t s_ejecuta[] = L"Ejecuta";

// The arguments of Ejecuta, in the order of DISPPARAMS: the last one first.
enum { BUFFER_RESPUESTA, TEXTO_RESPUESTA, BUFFER, REAL, NUMERO, TEXTO, ID_COMANDO, NUM_ARGUMENTOS };

struct variante : VARIANT {
    variante() { VariantInit(this); }
    ~variante() { VariantClear(this); }
    variante(const variante &) = delete;
    variante &operator=(const variante &) = delete;
};

template <class Interfaz>
struct suelta {
    void operator()(Interfaz *interfaz) const { interfaz->Release(); }
};
template <class Interfaz>
using puntero = std::unique_ptr<Interfaz, suelta<Interfaz>>;

void exige(HRESULT hr, const char *que)
{
    if (FAILED(hr))
        falla(que, static_cast<DWORD>(hr));
}

BSTR a_bstr(const char *texto)
{
    int num = MultiByteToWideChar(CP_ACP, 0, texto, -1, nullptr, 0);
    BSTR bstr = SysAllocStringLen(nullptr, static_cast<UINT>(num - 1));
    if (bstr == nullptr)
        falla("SysAllocString", ERROR_OUTOFMEMORY);
    MultiByteToWideChar(CP_ACP, 0, texto, -1, bstr, num);
    return bstr;
}

std::string de_bstr(BSTR bstr)
{
    char texto[64] = "";
    WideCharToMultiByte(CP_ACP, 0, bstr != nullptr ? bstr : L"", -1, texto, sizeof texto - 1, nullptr, nullptr);
    return texto;
}

SAFEARRAY *a_matriz(const uint8_t *buffer, uint32_t tam)
{
    SAFEARRAY *matriz = SafeArrayCreateVector(VT_UI1, 0, tam);
    if (matriz == nullptr)
        falla("SafeArrayCreateVector", ERROR_OUTOFMEMORY);
    if (tam > 0)
        std::memcpy(matriz->pvData, buffer, tam);
    return matriz;
}

uint32_t tam_de(const SAFEARRAY *matriz)
{
    return matriz != nullptr ? matriz->rgsabound[0].cElements : 0;
}

const uint8_t *bytes_de(const SAFEARRAY *matriz)
{
    return matriz != nullptr ? static_cast<const uint8_t *>(matriz->pvData) : nullptr;
}

puntero<IRunningObjectTable> tabla_de_objetos()
{
    IRunningObjectTable *tabla;
    exige(GetRunningObjectTable(0, &tabla), "GetRunningObjectTable");
    return puntero<IRunningObjectTable>(tabla);
}

puntero<IMoniker> nombre_del_servidor(const std::string &sesion)
{
    std::wstring nombre = L"banco_com_" + std::wstring(sesion.begin(), sesion.end());
    IMoniker *moniker;
    exige(CreateItemMoniker(L"!", nombre.c_str(), &moniker), "CreateItemMoniker");
    return puntero<IMoniker>(moniker);
}

// ---- The server

// Never freed by a Release: it lives on the stack for as long as it can be called.
class servidor : public IDispatch {
public:
    virtual ~servidor() = default;
    STDMETHODIMP QueryInterface(REFIID iid, void **interfaz) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetTypeInfoCount(UINT *num) override;
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo **) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR *nombres, UINT num, LCID, DISPID *ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS *argumentos, VARIANT *resultado, EXCEPINFO *,
                        UINT *) override;
};

STDMETHODIMP servidor::QueryInterface(REFIID iid, void **interfaz)
{
    bool conocida = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch);
    *interfaz = conocida ? static_cast<IDispatch *>(this) : nullptr;
    return conocida ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP servidor::GetTypeInfoCount(UINT *num)
{
    *num = 0;
    return S_OK;
}

STDMETHODIMP servidor::GetIDsOfNames(REFIID, LPOLESTR *nombres, UINT num, LCID, DISPID *ids)
{
    if (num != 1 || lstrcmpiW(nombres[0], s_ejecuta) != 0)
        return DISP_E_UNKNOWNNAME;
    ids[0] = EJECUTA;
    return S_OK;
}

bool tipos_correctos(const DISPPARAMS &argumentos)
{
    static const VARTYPE TIPOS[NUM_ARGUMENTOS] = {
        VT_BYREF | VT_ARRAY | VT_UI1, VT_BYREF | VT_BSTR, VT_ARRAY | VT_UI1, VT_R8, VT_UI4, VT_BSTR, VT_UI4};
    if (argumentos.cArgs != NUM_ARGUMENTOS)
        return false;
    for (UINT i = 0; i < NUM_ARGUMENTOS; i++)
        if (argumentos.rgvarg[i].vt != TIPOS[i])
            return false;
    return true;
}

void ejecuta(const VARIANT *argumentos, VARIANT *resultado)
{
    char al_reves[64];
    invierte(de_bstr(argumentos[TEXTO].bstrVal).c_str(), al_reves, sizeof al_reves);
    SysFreeString(*argumentos[TEXTO_RESPUESTA].pbstrVal);
    *argumentos[TEXTO_RESPUESTA].pbstrVal = a_bstr(al_reves);
    const SAFEARRAY *buffer = argumentos[BUFFER].parray;
    SAFEARRAY *copia = a_matriz(bytes_de(buffer), tam_de(buffer));
    if (*argumentos[BUFFER_RESPUESTA].pparray != nullptr)
        SafeArrayDestroy(*argumentos[BUFFER_RESPUESTA].pparray);
    *argumentos[BUFFER_RESPUESTA].pparray = copia;
    resultado->vt = VT_UI4;
    resultado->ulVal = argumentos[NUMERO].ulVal + 1;
}

STDMETHODIMP servidor::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS *argumentos, VARIANT *resultado, EXCEPINFO *,
                              UINT *)
{
    if (id != EJECUTA)
        return DISP_E_MEMBERNOTFOUND;
    if (!tipos_correctos(*argumentos) || resultado == nullptr)
        return DISP_E_TYPEMISMATCH;
    try {
        ejecuta(argumentos->rgvarg, resultado);
    } catch (const std::exception &) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

void sirve(const std::string &sesion)
{
    exige(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), "CoInitializeEx");
    servidor servidor;
    DWORD entrada;
    {
        auto tabla = tabla_de_objetos();
        auto nombre = nombre_del_servidor(sesion);
        exige(tabla->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, &servidor, nombre.get(), &entrada),
              "the entry in the running object table");
    }
    papel_listo();
    papel_bucle_mensajes();
    tabla_de_objetos()->Revoke(entrada);
    CoDisconnectObject(&servidor, 0);
    CoUninitialize();
}

// ---- The client

IDispatch *s_servidor;
DISPID s_ejecuta_id;
SAFEARRAY *s_recibido; // the buffer of the last answer

void olvida_recibido()
{
    if (s_recibido != nullptr)
        SafeArrayDestroy(s_recibido);
    s_recibido = nullptr;
}

void conecta(const std::string &sesion)
{
    exige(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), "CoInitializeEx");
    auto nombre = nombre_del_servidor(sesion);
    IUnknown *objeto;
    exige(tabla_de_objetos()->GetObject(nombre.get(), &objeto), "the running object table");
    puntero<IUnknown> soltado(objeto);
    exige(objeto->QueryInterface(IID_IDispatch, reinterpret_cast<void **>(&s_servidor)), "IDispatch");
    LPOLESTR nombres[] = {s_ejecuta};
    exige(s_servidor->GetIDsOfNames(IID_NULL, nombres, 1, LOCALE_USER_DEFAULT, &s_ejecuta_id), "GetIDsOfNames");
}

void rellena(const peticion &peticion, variante *argumentos)
{
    argumentos[ID_COMANDO].vt = VT_UI4;
    argumentos[ID_COMANDO].ulVal = peticion.id_comando;
    argumentos[TEXTO].bstrVal = a_bstr(peticion.texto);
    argumentos[TEXTO].vt = VT_BSTR;
    argumentos[NUMERO].vt = VT_UI4;
    argumentos[NUMERO].ulVal = peticion.numero;
    argumentos[REAL].vt = VT_R8;
    argumentos[REAL].dblVal = peticion.real;
    argumentos[BUFFER].parray = a_matriz(peticion.buffer, peticion.tam);
    argumentos[BUFFER].vt = VT_ARRAY | VT_UI1;
}

void pide(const peticion &peticion, respuesta *respuesta)
{
    olvida_recibido();
    variante argumentos[NUM_ARGUMENTOS], texto, numero;
    rellena(peticion, argumentos);
    texto.vt = VT_BSTR;
    argumentos[TEXTO_RESPUESTA].vt = VT_BYREF | VT_BSTR;
    argumentos[TEXTO_RESPUESTA].pbstrVal = &texto.bstrVal;
    argumentos[BUFFER_RESPUESTA].vt = VT_BYREF | VT_ARRAY | VT_UI1;
    argumentos[BUFFER_RESPUESTA].pparray = &s_recibido;
    DISPPARAMS parametros = {argumentos, nullptr, NUM_ARGUMENTOS, 0};
    exige(s_servidor->Invoke(s_ejecuta_id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parametros, &numero,
                             nullptr, nullptr),
          "IDispatch::Invoke");
    respuesta->numero = numero.ulVal;
    respuesta->texto = de_bstr(texto.bstrVal);
    respuesta->buffer = bytes_de(s_recibido);
    respuesta->tam = tam_de(s_recibido);
}

void desconecta()
{
    olvida_recibido();
    s_servidor->Release();
    CoUninitialize();
}

} // namespace

extern const fila fila_com;
const fila fila_com = {
    "com",     "COM out of process, late bound (IDispatch)", 4 * 1024 * 1024, false, true, sirve, conecta, pide,
    desconecta};

} // namespace banco
