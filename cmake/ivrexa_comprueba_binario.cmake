# Tests of the built DLL as a file: what it imports, what it exports, its version resource, its size, and of the machine
# code that it is linked from.
find_program(IVREXA_READOBJ llvm-readobj)
if(NOT IVREXA_READOBJ)
    if(CMAKE_CROSSCOMPILING)
        message(FATAL_ERROR "llvm-readobj is missing: install the package llvm.")
    endif()
    message(STATUS "llvm-readobj is missing: the tests of the DLL's imports and exports are left out.")
    return()
endif()

foreach(caso IN ITEMS importa_solo_kernel32 exporta_los_50_nombres_del_def lleva_recurso_de_version
        no_lleva_lugares_de_fallo)
    add_test(NAME binario.${caso}
        COMMAND ${CMAKE_COMMAND} -D CASO=${caso} -D DLL=$<TARGET_FILE:ivrexa>
            -D DLL_FALLOS=$<TARGET_FILE:ivrexa_fallos> -D READOBJ=${IVREXA_READOBJ}
            -D DEF=${CMAKE_SOURCE_DIR}/src/ivrexa.def -D VERSION=${PROJECT_VERSION}
            -P ${CMAKE_SOURCE_DIR}/cmake/comprueba_binario.cmake)
    set_tests_properties(binario.${caso} PROPERTIES TIMEOUT 60 LABELS binario)
endforeach()

# The code that a debug build has is not the code to look at.
if(MSVC OR CMAKE_BUILD_TYPE STREQUAL "Debug")
    return()
endif()
add_test(NAME binario.no_pasa_de_64_KiB
    COMMAND ${CMAKE_COMMAND} -D CASO=no_pasa_de_64_KiB -D DLL=$<TARGET_FILE:ivrexa>
        -P ${CMAKE_SOURCE_DIR}/cmake/comprueba_binario.cmake)
set_tests_properties(binario.no_pasa_de_64_KiB PROPERTIES TIMEOUT 60 LABELS binario)
if(Python3_FOUND)
    add_test(NAME binario.codigo_empieza_en_una_pagina_del_fichero
        COMMAND ${CMAKE_COMMAND} -D CASO=codigo_empieza_en_una_pagina_del_fichero -D DLL=$<TARGET_FILE:ivrexa>
            -D READOBJ=${IVREXA_READOBJ} -P ${CMAKE_SOURCE_DIR}/cmake/comprueba_binario.cmake)
    set_tests_properties(binario.codigo_empieza_en_una_pagina_del_fichero PROPERTIES TIMEOUT 60 LABELS binario)
endif()
find_program(IVREXA_OBJDUMP llvm-objdump)
if(NOT IVREXA_OBJDUMP)
    message(STATUS "llvm-objdump is missing: the test of what the trace costs when it is off is left out.")
    return()
endif()
add_test(NAME binario.traza_apagada_es_una_prueba_de_un_entero
    COMMAND ${CMAKE_COMMAND} -D "OBJETOS=$<JOIN:$<TARGET_OBJECTS:ivrexa>,,>" -D OBJDUMP=${IVREXA_OBJDUMP}
        -P ${CMAKE_SOURCE_DIR}/cmake/comprueba_traza.cmake)
set_tests_properties(binario.traza_apagada_es_una_prueba_de_un_entero PROPERTIES TIMEOUT 60 LABELS binario)
