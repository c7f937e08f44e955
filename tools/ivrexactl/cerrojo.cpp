#include "cerrojo.h"

#include "comun/leido.h"
#include "comun/nombres.h"

#include "orden.h"

namespace ivrexactl {

static const DWORD PLAZO_REGISTRO_MS = 5000;

iv_mcbase_t registro_ahora()
{
    iv_mcbase_t registro = {};
    herramientas::bloque_leido bloque(herramientas::NOMBRE_REGISTRO);
    if (bloque.abierto() && bloque.tam() < sizeof registro)
        throw fallo(codigo_NO_HAY, "the registry is damaged; end all programs that use the library");
    if (bloque.abierto())
        bloque.copia(&registro, sizeof registro);
    return registro;
}

// Of two that are there the wait returns the first one: a free lock is taken even where the end was asked for.
cerrojo_registro::cerrojo_registro()
    : m_mutex(OpenMutexA(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, herramientas::NOMBRE_MUTEX_REGISTRO))
{
    if (m_mutex == nullptr)
        return;
    HANDLE ambos[] = {m_mutex, evento_fin()};
    DWORD que = WaitForMultipleObjects(2, ambos, FALSE, PLAZO_REGISTRO_MS);
    if (que == WAIT_OBJECT_0 || que == WAIT_ABANDONED_0)
        return;
    CloseHandle(m_mutex);
    throw fallo(codigo_OCUPADO,
                "a program holds the registry and does not go on; it shows a box, or stands in a debugger");
}

cerrojo_registro::~cerrojo_registro()
{
    if (m_mutex == nullptr)
        return;
    ReleaseMutex(m_mutex);
    CloseHandle(m_mutex);
}

} // namespace ivrexactl
