# The two programs of the README, as they stand there, so that a test can run them.

file(READ ${CMAKE_SOURCE_DIR}/README.md leeme)
set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/README.md)

# Sets `salida` to the first block of C in the text and takes it out of the text.
function(toma_bloque_c texto salida)
    string(FIND "${${texto}}" "```c\n" desde)
    if(desde EQUAL -1)
        message(FATAL_ERROR "README.md has lost one of its two programs.")
    endif()
    math(EXPR desde "${desde} + 5")
    string(SUBSTRING "${${texto}}" ${desde} -1 resto)
    string(FIND "${resto}" "```" hasta)
    string(SUBSTRING "${resto}" 0 ${hasta} bloque)
    math(EXPR hasta "${hasta} + 3")
    string(SUBSTRING "${resto}" ${hasta} -1 resto)
    set(${salida} "${bloque}" PARENT_SCOPE)
    set(${texto} "${resto}" PARENT_SCOPE)
endfunction()

foreach(nombre IN ITEMS leeme_servidor leeme_cliente)
    toma_bloque_c(leeme codigo)
    file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/generado/${nombre}.c CONTENT "${codigo}" @ONLY)
    add_executable(${nombre} ${CMAKE_BINARY_DIR}/generado/${nombre}.c)
    target_link_libraries(${nombre} PRIVATE ivrexa user32)
    if(MINGW)
        target_link_options(${nombre} PRIVATE -static)
    endif()
endforeach()

# The test starts them.
add_dependencies(dll_leeme leeme_servidor leeme_cliente)
