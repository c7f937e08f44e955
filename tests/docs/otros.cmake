# The reference of the headers, the pictures, and the tables of layouts and limits against the code. Included by
# CMakeLists.txt, which has looked for Python.

find_program(IVREXA_DOXYGEN doxygen)
if(IVREXA_DOXYGEN)
    add_test(NAME documentos.la_referencia_sale_sin_avisos_y_tiene_las_50_funciones
        COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/comprueba_referencia.py ${CMAKE_SOURCE_DIR}
            ${CMAKE_BINARY_DIR}/referencia)
    set_tests_properties(documentos.la_referencia_sale_sin_avisos_y_tiene_las_50_funciones PROPERTIES
        TIMEOUT 120 LABELS documentos)
elseif(CMAKE_CROSSCOMPILING)
    message(FATAL_ERROR "doxygen is missing: install the package doxygen.")
else()
    message(STATUS "doxygen is missing: the test of the reference is left out.")
endif()

add_test(NAME documentos.los_dibujos_son_los_que_hace_su_programa
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/docs/dibuja.py --check)
set_tests_properties(documentos.los_dibujos_son_los_que_hace_su_programa PROPERTIES TIMEOUT 60 LABELS documentos)

# The two pages, for a program that knows the constants: the rows of their tables, and the bytes of the example.
set(paginas ${CMAKE_SOURCE_DIR}/docs/layouts.md ${CMAKE_SOURCE_DIR}/docs/limits.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${paginas})
foreach(nombre IN ITEMS layouts limits)
    file(READ ${CMAKE_SOURCE_DIR}/docs/${nombre}.md pagina)
    string(REGEX MATCHALL "\n(\\| [^\n]*|[0-9a-f][0-9a-f] [0-9a-f][0-9a-f] [^\n]*)" filas "\n${pagina}")
    string(REPLACE ";" "" filas "${filas}")
    set(${nombre} "${filas}")
endforeach()
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/generado/paginas.h @ONLY CONTENT
"static const char LAYOUTS[] = R\"fila(@layouts@)fila\";
static const char LIMITS[] = R\"fila(@limits@)fila\";
")

add_executable(documentos_trazados ${CMAKE_CURRENT_LIST_DIR}/trazados.cpp)
target_include_directories(documentos_trazados PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/generado)
target_link_libraries(documentos_trazados PRIVATE pruebas_comun ivrexa_modulos)
ivrexa_opciones_prueba(documentos_trazados)
ivrexa_casos(documentos_trazados documentos "" 1)
