# Tests of the built DLL as a file: what it imports, what it exports, its version resource.
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
