#include "interprete.h"

#include "../comun/proceso.h"

#include <cstdio>
#include <cstring>

namespace banco {

uint32_t interprete::cifras(uint32_t numero)
{
    uint32_t n = 0;
    for (; numero != 0; numero /= 10)
        n++;
    return n;
}

static std::string seis_digitos(const std::string &sesion)
{
    uint32_t n = 2166136261u;
    for (char c : sesion)
        n = (n ^ static_cast<unsigned char>(c)) * 16777619u;
    char texto[9];
    std::snprintf(texto, sizeof texto, "%06x", static_cast<unsigned>((n ^ n >> 24) & 0xFFFFFF));
    return texto;
}

std::string interprete::con_digitos(const std::string &nombre) const
{
    const std::string ivrexa = "Ivrexa";
    std::string otro = nombre;
    return otro.replace(otro.find(ivrexa), ivrexa.size(), digitos_);
}

static HANDLE crea_mutex(const std::string &nombre)
{
    HANDLE mutex = CreateMutexA(nullptr, FALSE, nombre.c_str());
    if (mutex == nullptr)
        falla("CreateMutex");
    return mutex;
}

interprete::interprete(const std::string &sesion, const std::string &servicio, bool con_copias)
    : con_copias_(con_copias), digitos_(seis_digitos(sesion))
{
    situacion_.servicio = static_cast<uint32_t>(servicio.size());
    nombres_[nombre_MUTEX] = con_digitos("Mutex_Ivrexa_" + servicio);
    nombres_[nombre_CANAL] = con_digitos("Ivrexa_MCB_Serv_" + servicio);
    nombres_[nombre_ENTRADA] = nombres_[nombre_SALIDA] = nombres_[nombre_CANAL] + "_Com__comdat";
    raiz_bloque_ = nombres_[nombre_ENTRADA].size();
    mensaje_ = RegisterWindowMessageA(con_digitos("Ivrexa_MSG_Serv_" + servicio).c_str());

    sitios_.resize(num_SITIOS_FIJOS);
    sitios_[sitio_MONTON] = crea_mutex(con_digitos("Ivrexa_iv_mem"));
    sitios_[sitio_REGISTRO] = crea_mutex(con_digitos("Ivrexa_Mutex_MCB"));
    sitios_[sitio_MCSERV] = crea_mutex(nombres_[nombre_MUTEX]);
    canal_ =
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, TAM_CANAL, nombres_[nombre_CANAL].c_str());
    heap_ = HeapCreate(HEAP_GENERATE_EXCEPTIONS, 16384, 0);
    if (mensaje_ == 0 || canal_ == nullptr || heap_ == nullptr)
        falla("our own floor could not be made");
}

interprete::~interprete()
{
    HeapDestroy(heap_);
    CloseHandle(canal_);
    for (uint16_t mutex : {sitio_MONTON, sitio_REGISTRO, sitio_MCSERV})
        CloseHandle(sitios_[mutex]);
}

std::vector<paso> interprete::los_suyos(const std::vector<paso> &pasos) const
{
    std::vector<paso> otros;
    for (const paso &paso : pasos)
        if (la_nombra_un_paso(paso.que) || (con_copias_ && paso.que == llamada::copia))
            otros.push_back(paso);
    return otros;
}

// The names of the two blocks; and the script, where anything that it depends on is new.
void interprete::prepara(uint32_t id, uint32_t tam_buffer, uint32_t tam_texto)
{
    id_ = id;
    char numero[16];
    for (uint32_t n = 0; n < 2; n++) {
        std::string &nombre = nombres_[nombre_ENTRADA + n];
        nombre.resize(raiz_bloque_);
        nombre.append(numero, static_cast<size_t>(std::snprintf(numero, sizeof numero, "%u", id + n)));
    }
    uint32_t cuantas = cifras(id);
    if (situacion_.buffer == tam_buffer && situacion_.texto == tam_texto && situacion_.cifras == cuantas)
        return;
    situacion_ = {situacion_.servicio, tam_texto, tam_buffer, cuantas};
    guion_ = del_servidor() ? guion_servidor(situacion_) : guion_cliente(situacion_);
    guion_.comando = los_suyos(guion_.comando);
    sitios_.resize(guion_.num_sitios);
    propio_.assign(del_servidor() && con_copias_ ? tam_buffer : 0, 'x');
}

void interprete::ejecuta(uint32_t id, const void *buffer, uint32_t tam_buffer, uint32_t tam_texto)
{
    prepara(id, tam_buffer, tam_texto);
    sitios_[sitio_ANFITRION] = buffer != nullptr ? const_cast<void *>(buffer) : propio_.data();
    recorre(guion_.principio);
    if (hay_anterior_)
        recorre(guion_.suelta_anterior);
    hay_anterior_ = false;
    recorre(guion_.comando);
    hay_anterior_ = true;
}

void interprete::suelta()
{
    if (hay_anterior_)
        recorre(guion_.suelta_anterior);
    hay_anterior_ = false;
}

LRESULT interprete::manda() const
{
    return SendMessageW(servidor_, mensaje_, id_, static_cast<LPARAM>(situacion_.buffer) << 8 | situacion_.texto);
}

void interprete::exige(bool bien, const paso &paso)
{
    if (!bien)
        falla(paso.de);
}

void interprete::recorre(const std::vector<paso> &pasos)
{
    for (const paso &paso : pasos)
        paso_dado(paso);
}

// A call that leaves a result, which stays in its place, or one that does not.
void interprete::paso_dado(const paso &paso)
{
    void *&sitio = sitios_[paso.sitio];
    const char *nombre = nombres_[paso.nombre].c_str();
    switch (paso.que) {
    case llamada::heap_alloc:
        sitio = HeapAlloc(heap_, HEAP_ZERO_MEMORY, paso.tam);
        break;
    case llamada::heap_realloc:
        sitio = HeapReAlloc(heap_, HEAP_ZERO_MEMORY, sitio, paso.tam);
        break;
    case llamada::mutex_crea:
        sitio = CreateMutexA(nullptr, FALSE, nombre);
        break;
    case llamada::mapa_crea:
        sitio = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, paso.tam, nombre);
        break;
    case llamada::mapa_abre:
        sitio = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, nombre);
        break;
    case llamada::vista_monta:
        sitio = MapViewOfFile(sitios_[paso.sobre], FILE_MAP_WRITE, 0, 0, 0);
        break;
    default:
        exige(sin_resultado(paso, sitio), paso);
        return;
    }
    exige(sitio != nullptr, paso);
}

// False where the call fails.
bool interprete::sin_resultado(const paso &paso, void *sitio)
{
    switch (paso.que) {
    case llamada::heap_free:
        return HeapFree(heap_, 0, sitio);
    case llamada::mutex_espera:
        return WaitForSingleObject(sitio, INFINITE) == WAIT_OBJECT_0;
    case llamada::mutex_suelta:
        return ReleaseMutex(sitio);
    case llamada::vista_desmonta:
        return UnmapViewOfFile(sitio);
    case llamada::handle_cierra:
        return CloseHandle(sitio);
    case llamada::mensaje:
        return manda() == 1;
    case llamada::ventana_activa:
        GetActiveWindow();
        return true;
    case llamada::ultimo_error:
        GetLastError();
        return true;
    case llamada::copia:
        std::memcpy(static_cast<char *>(sitio) + paso.destino, static_cast<char *>(sitios_[paso.sobre]) + paso.origen,
                    paso.tam);
        return true;
    default: // no step
        return true;
    }
}

} // namespace banco
