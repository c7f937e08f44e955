# cmake -D CASO=... -D DLL=... -D READOBJ=... -D DEF=... -D VERSION=... -P comprueba_binario.cmake
# One check of the DLL's file; ends with an error when it does not hold.

# Sets `salida` to what llvm-readobj shows of the DLL.
function(lee_dll opcion salida)
    execute_process(COMMAND ${READOBJ} ${opcion} ${DLL} OUTPUT_VARIABLE texto COMMAND_ERROR_IS_FATAL ANY)
    set(${salida} "${texto}" PARENT_SCOPE)
endfunction()

# Sets `salida` to the names that follow "Name: " inside the blocks of this kind, sorted.
function(nombres_de texto bloque salida)
    string(REGEX MATCHALL "${bloque} {[^}]*" bloques "${texto}")
    set(nombres "")
    foreach(uno IN LISTS bloques)
        if(uno MATCHES "\n *Name: ([^\n]*)")
            list(APPEND nombres "${CMAKE_MATCH_1}")
        endif()
    endforeach()
    list(SORT nombres)
    set(${salida} "${nombres}" PARENT_SCOPE)
endfunction()

function(exige_iguales que esperados reales)
    if(NOT "${esperados}" STREQUAL "${reales}")
        message(FATAL_ERROR "${que}\n  expected: ${esperados}\n  found:    ${reales}")
    endif()
endfunction()

# Sets `salida` to the text as the hexadecimal digits of its UTF-16 form.
function(a_utf16 texto salida)
    string(HEX "${texto}" hex)
    string(REGEX REPLACE "(..)" "\\100" hex "${hex}")
    set(${salida} "${hex}" PARENT_SCOPE)
endfunction()

function(importa_solo_kernel32)
    lee_dll(--coff-imports texto)
    nombres_de("${texto}" "Import" nombres)             # matches the blocks DelayImport too
    exige_iguales("The libraries that the DLL imports." "KERNEL32.dll" "${nombres}")
endfunction()

function(exporta_los_50_nombres_del_def)
    file(STRINGS ${DEF} lineas REGEX "^    [^; ]")
    list(TRANSFORM lineas STRIP OUTPUT_VARIABLE esperados)
    list(LENGTH esperados cuantos)
    exige_iguales("The number of names in ${DEF}." 50 ${cuantos})

    list(SORT esperados)
    lee_dll(--coff-exports texto)
    nombres_de("${texto}" "Export" nombres)
    exige_iguales("The names that the DLL exports." "${esperados}" "${nombres}")
endfunction()

function(lleva_recurso_de_version)
    lee_dll(--coff-resources texto)
    if(NOT texto MATCHES "Type: VERSION")
        message(FATAL_ERROR "The DLL has no version resource.")
    endif()

    file(READ ${DLL} hex HEX)
    foreach(par IN ITEMS ProductName=ivrexa FileVersion=${VERSION} ProductVersion=${VERSION})
        string(REPLACE "=" ";" par "${par}")
        list(GET par 0 clave)
        list(GET par 1 valor)
        a_utf16("${clave}" clave_hex)
        a_utf16("${valor}" valor_hex)
        if(NOT hex MATCHES "${clave_hex}(0000)+${valor_hex}0000")
            message(FATAL_ERROR "The version resource does not say ${clave} ${valor}.")
        endif()
    endforeach()
endfunction()

cmake_language(CALL ${CASO})
