// The other translation unit of hpp_sesion.
#include "otra_unidad.h"

std::vector<const void *> constantes_de_otra_unidad()
{
    return {&ivrexa::max_service_name, &ivrexa::max_value_name,          &ivrexa::max_path,
            &ivrexa::max_short_text,   &ivrexa::max_long_text,           &ivrexa::max_services,
            &ivrexa::max_documents,    &ivrexa::detail::heartbeat_begins};
}

void sesion_de_otra_unidad()
{
    ivrexa::session s("otra_unidad");
}

ivrexa::answer ejecuta_en_otra_unidad(ivrexa::client &c, ivrexa::request &r)
{
    return c.execute(r);
}
