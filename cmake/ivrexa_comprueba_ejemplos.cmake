# Tests of the sources of the examples: each is one short file that can be copied alone. A copy, in a folder
# that holds nothing else, is compiled with every compiler that is at hand.

get_property(fuentes GLOBAL PROPERTY IVREXA_FUENTES_EJEMPLOS)

# `compiladores` and their commands up to the source are those of the tests of the headers.
foreach(fuente IN LISTS fuentes)
    get_filename_component(nombre ${fuente} NAME)
    if(nombre MATCHES "\\.c$")
        set(lenguaje c11)
    else()
        set(lenguaje cxx17)
    endif()
    add_test(NAME ejemplos.${nombre}.es_breve_y_no_incluye_ficheros_propios
        COMMAND ${CMAKE_COMMAND} -D FUENTE=${fuente} -P ${CMAKE_SOURCE_DIR}/cmake/comprueba_ejemplo.cmake)
    set_tests_properties(ejemplos.${nombre}.es_breve_y_no_incluye_ficheros_propios PROPERTIES
        TIMEOUT 60 LABELS ejemplos)
    foreach(compilador IN ITEMS ${lenguaje} gcc_${lenguaje})
        if(NOT compilador IN_LIST compiladores)
            continue()
        endif()
        set(carpeta ${CMAKE_BINARY_DIR}/ejemplo_solo/${nombre})
        configure_file(${fuente} ${carpeta}/${nombre} COPYONLY)
        set(prueba ejemplos.${nombre}.compila_solo.${compilador})
        add_test(NAME ${prueba} COMMAND ${${compilador}} -I ${CMAKE_SOURCE_DIR}/include ${carpeta}/${nombre})
        set_tests_properties(${prueba} PROPERTIES TIMEOUT 60 LABELS ejemplos)
    endforeach()
endforeach()

# None is left out above.
add_test(NAME ejemplos.todos_los_ficheros_son_programas
    COMMAND ${CMAKE_COMMAND} -D "FUENTES=${fuentes}" -D CARPETA=${CMAKE_SOURCE_DIR}/examples
        -P ${CMAKE_SOURCE_DIR}/cmake/comprueba_ejemplo.cmake)
set_tests_properties(ejemplos.todos_los_ficheros_son_programas PROPERTIES TIMEOUT 60 LABELS ejemplos)
