# Tests that the public headers compile in any host, as C11 and C++17, pedantic: alone (which must not bring
# in <windows.h>), before it and after it, whole and lean. They run the compiler on tests/cabecera.c, nothing
# else.

# One header in all ways with one compiler; ARGN is the compiler's command up to the source.
function(ivrexa_prueba_cabecera cabecera con)
    set(sola "")
    set(antes_de_windows -DWINDOWS_DESPUES)
    set(antes_de_windows_lean -DWINDOWS_DESPUES -DWIN32_LEAN_AND_MEAN)
    set(tras_windows -DWINDOWS_ANTES)
    set(tras_windows_lean -DWINDOWS_ANTES -DWIN32_LEAN_AND_MEAN)
    foreach(caso IN ITEMS sola antes_de_windows antes_de_windows_lean tras_windows tras_windows_lean)
        set(prueba cabecera.${cabecera}.${con}.${caso})
        add_test(NAME ${prueba} COMMAND ${ARGN} -I ${CMAKE_SOURCE_DIR}/include
            "-DCABECERA=<${cabecera}.h>" ${${caso}} ${CMAKE_SOURCE_DIR}/tests/cabecera.c)
        set_tests_properties(${prueba} PROPERTIES TIMEOUT 60 LABELS cabecera)
    endforeach()
endfunction()

if(MSVC)
    set(c11 ${CMAKE_C_COMPILER} /nologo /Zs /W4 /WX /TC /std:c11)
    set(cxx17 ${CMAKE_CXX_COMPILER} /nologo /Zs /W4 /WX /permissive- /TP /std:c++17)
    set(compiladores c11 cxx17)
else()
    set(estrictas -fsyntax-only -pedantic -Wall -Wextra -Werror)
    set(destino --target=${CMAKE_C_COMPILER_TARGET} --sysroot=${CMAKE_SYSROOT})
    set(sistema ${CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES})
    list(TRANSFORM sistema PREPEND -isystem)
    set(c11 ${CMAKE_C_COMPILER} ${destino} ${estrictas} -x c -std=c11)
    set(cxx17 ${CMAKE_CXX_COMPILER} ${destino} ${sistema} ${estrictas} -x c++ -std=c++17)
    # Hosts are built with GCC too.
    set(gcc_c11 ${IVREXA_MINGW_GXX} ${estrictas} -x c -std=c11)
    set(gcc_cxx17 ${IVREXA_MINGW_GXX} ${estrictas} -x c++ -std=c++17)
    set(compiladores c11 cxx17 gcc_c11 gcc_cxx17)
endif()

foreach(cabecera IN ITEMS ivrexa ivrexa_mcbase)
    foreach(compilador IN LISTS compiladores)
        ivrexa_prueba_cabecera(${cabecera} ${compilador} ${${compilador}})
    endforeach()
endforeach()
