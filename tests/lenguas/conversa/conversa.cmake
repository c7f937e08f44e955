# What the languages whose programs run share.
set(IVREXA_LISTA_LENGUAS ${CMAKE_BINARY_DIR}/generado/lista_lenguas.txt)
set(IVREXA_CONVERSA ${CMAKE_CURRENT_LIST_DIR}/conversa.cpp)
set(IVREXA_CALLA ${CMAKE_CURRENT_LIST_DIR}/calla.cmake)
include_guard(GLOBAL)

# Their compilers run one at a time, beside the build's own.
set_property(GLOBAL APPEND PROPERTY JOB_POOLS lenguas=1)

# What bindings/ivrexa.json says, for the tests in each language.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_custom_command(OUTPUT ${IVREXA_LISTA_LENGUAS}
    COMMAND Python3::Interpreter ${CMAKE_CURRENT_LIST_DIR}/lista.py ${CMAKE_SOURCE_DIR}/bindings/ivrexa.json
        ${IVREXA_LISTA_LENGUAS}
    DEPENDS ${CMAKE_CURRENT_LIST_DIR}/lista.py ${CMAKE_SOURCE_DIR}/bindings/ivrexa.json
    COMMENT "Listing the interface for the languages" VERBATIM)
add_custom_target(lista_lenguas DEPENDS ${IVREXA_LISTA_LENGUAS})

# ivrexa_lengua(lengua programas...): the conversation of that language's programs with those of examples/.
function(ivrexa_lengua lengua)
    add_custom_target(lenguas_${lengua}_programas ALL DEPENDS ${ARGN})
    add_dependencies(lenguas_${lengua}_programas lista_lenguas)
    if(TARGET ejemplos)
        ivrexa_prueba_dll(lenguas_${lengua} ${IVREXA_CONVERSA})
        target_compile_definitions(lenguas_${lengua} PRIVATE IVREXA_LENGUA="${lengua}")
        add_dependencies(lenguas_${lengua} ejemplos lenguas_${lengua}_programas)
    endif()
endfunction()

# ivrexa_caso_lengua(lengua caso orden...): one case of the tests that are written in the language itself, a process.
# A name that is no case's would end well: Go and Rust then say that they ran none.
function(ivrexa_caso_lengua lengua caso)
    add_test(NAME lenguas_${lengua}.capa.${caso} COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} ${ARGN})
    set_tests_properties(lenguas_${lengua}.capa.${caso} PROPERTIES TIMEOUT ${IVREXA_LIMITE_S} COST 10 LABELS lenguas
        FAIL_REGULAR_EXPRESSION "no tests to run|running 0 tests")
endfunction()

# ivrexa_calla(lengua caso orden...): a checker of sources that says nothing when nothing is wrong.
function(ivrexa_calla lengua caso)
    add_test(NAME lenguas_${lengua}.fuentes.${caso} COMMAND ${CMAKE_COMMAND} -P ${IVREXA_CALLA} -- ${ARGN})
    set_tests_properties(lenguas_${lengua}.fuentes.${caso} PROPERTIES TIMEOUT ${IVREXA_LIMITE_S} LABELS lenguas)
endfunction()
