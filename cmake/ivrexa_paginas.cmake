# The programs of the pages, as they stand there, so that they are known to compile and a test can run them.

# ivrexa_bloque(pagina lenguaje num salida): sets `salida` to the num-th block of that language on the page, from 0.
function(ivrexa_bloque pagina lenguaje num salida)
    set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${pagina})
    file(READ ${CMAKE_SOURCE_DIR}/${pagina} resto)
    set(valla "```${lenguaje}\n")
    string(LENGTH "${valla}" largo)
    foreach(i RANGE ${num})
        string(FIND "${resto}" "${valla}" desde)
        if(desde EQUAL -1)
            message(FATAL_ERROR "${pagina} has lost one of its blocks of ${lenguaje}.")
        endif()
        math(EXPR desde "${desde} + ${largo}")
        string(SUBSTRING "${resto}" ${desde} -1 resto)
    endforeach()
    string(FIND "${resto}" "```" hasta)
    string(SUBSTRING "${resto}" 0 ${hasta} bloque)
    set(${salida} "${bloque}" PARENT_SCOPE)
endfunction()

# ivrexa_programa_de_pagina(nombre extension codigo): builds it with what the page tells a user to have.
function(ivrexa_programa_de_pagina nombre extension codigo)
    set(fuente ${CMAKE_BINARY_DIR}/generado/${nombre}.${extension})
    file(CONFIGURE OUTPUT ${fuente} CONTENT "${codigo}" @ONLY)
    add_executable(${nombre} ${fuente})
    target_link_libraries(${nombre} PRIVATE ivrexa)
    if(MINGW)
        ivrexa_enlaza_estatico(${nombre})
    elseif(MSVC)
        target_compile_options(${nombre} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:/EHsc>)
    endif()
    add_dependencies(dll_paginas ${nombre})         # the test starts them
endfunction()

ivrexa_bloque(README.md c 0 codigo)
ivrexa_programa_de_pagina(leeme_servidor c "${codigo}")
target_link_libraries(leeme_servidor PRIVATE user32)
ivrexa_bloque(README.md c 1 codigo)
ivrexa_programa_de_pagina(leeme_cliente c "${codigo}")

# The page on the C++ layer has a whole server, and of the client what stands in main.
ivrexa_bloque(docs/cpp.md cpp 0 codigo)
ivrexa_programa_de_pagina(capa_servidor cpp "${codigo}")
ivrexa_bloque(docs/cpp.md cpp 1 codigo)
ivrexa_programa_de_pagina(capa_cliente cpp
    "#include <cstdio>\n#include \"ivrexa.hpp\"\n\nint main(int, char **argv)\n{\n${codigo}}\n")
foreach(nombre IN ITEMS capa_servidor capa_cliente)
    ivrexa_opciones_hpp(${nombre})
endforeach()

# And that on results a function, which tells its client why there is no answer.
ivrexa_bloque(docs/results.md c 0 codigo)
ivrexa_programa_de_pagina(porque c "#include <stdio.h>\n#include \"ivrexa.h\"\n\n${codigo}
int main(void)
{
    ivrexa_registra_cliente_de_servicio(\"porque.exe\", NULL, \"Nadie\");
    int16_t before = ivrexa_hay_servicio_registrado(\"Nadie\", NULL);
    uint32_t result = ivrexa_ejecuta_comando(\"Nadie\", 100, 0, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL);
    puts(why(\"Nadie\", result, before));
    ivrexa_cierra_sesion();
}
")
