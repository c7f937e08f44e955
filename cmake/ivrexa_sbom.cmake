# The bill of materials that is installed beside the pages: an SPDX 2.3 document in JSON. Here is gathered what went
# into this build; cmake/escribe_sbom.cmake writes the document at each installation, from the files that it has
# installed.
#
# An entry is NAME|VERSION|LICENCE, and behind that the files that have it inside them. An empty version or licence is
# one that is not known here.

# Sets `salida` to the first number with dots that the command prints, or to nothing.
function(ivrexa_version_de salida)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE texto ERROR_VARIABLE texto RESULT_VARIABLE codigo)
    if(codigo EQUAL 0 AND texto MATCHES "[0-9]+(\\.[0-9]+)+")
        set(${salida} ${CMAKE_MATCH_0} PARENT_SCOPE)
    else()
        set(${salida} "" PARENT_SCOPE)
    endif()
endfunction()

# Sets `salida` to MAJOR.MINOR[.PATCH] as a header of a third party #defines them, or to nothing.
function(ivrexa_version_cabecera salida cabecera prefijo)
    set(version "")
    if(EXISTS ${cabecera})
        file(STRINGS ${cabecera} lineas REGEX "define +${prefijo}(MAJOR|MINOR|PATCH)[ \t]+[0-9]+")
        foreach(linea IN LISTS lineas)
            string(REGEX REPLACE ".*(MAJOR|MINOR|PATCH)[ \t]+([0-9]+).*" "\\2" numero "${linea}")
            list(APPEND version ${numero})
        endforeach()
        list(JOIN version "." version)
    endif()
    set(${salida} "${version}" PARENT_SCOPE)
endfunction()

set(IVREXA_SBOM_PIEZAS "")
if(TARGET ivrexactl)
    set(en_las_dos "bin/ivrexactl.exe|bin/ivrexa-monitor.exe")
    ivrexa_version_cabecera(version ${terceros}/CLI/Version.hpp CLI11_VERSION_)
    list(APPEND IVREXA_SBOM_PIEZAS "CLI11|${version}|BSD-3-Clause|bin/ivrexactl.exe")
    set(version "")
    foreach(cabecera IN ITEMS detail/abi_macros.hpp json.hpp)
        if(NOT version)
            ivrexa_version_cabecera(version ${terceros}/nlohmann/${cabecera} NLOHMANN_JSON_VERSION_)
        endif()
    endforeach()
    list(APPEND IVREXA_SBOM_PIEZAS "nlohmann-json|${version}|MIT|${en_las_dos}")
    if(IVREXA_MINGW_GXX)
        # What -static brings in: the C++ library, and the C run-time with its threads.
        execute_process(COMMAND ${IVREXA_MINGW_GXX} -dumpversion
            OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
        list(APPEND IVREXA_SBOM_PIEZAS
            "GCC-runtime-libraries|${version}|GPL-3.0-or-later WITH GCC-exception-3.1|${en_las_dos}")
        ivrexa_version_cabecera(version ${CMAKE_SYSROOT}/include/_mingw_mac.h __MINGW64_VERSION_)
        list(APPEND IVREXA_SBOM_PIEZAS "mingw-w64-runtime|${version}||${en_las_dos}")
    endif()
endif()
if(MSVC)
    list(APPEND IVREXA_SBOM_PIEZAS "libvcruntime|${CMAKE_CXX_COMPILER_VERSION}||bin/ivrexa.dll")
endif()

set(IVREXA_SBOM_UTILES "CMake|${CMAKE_VERSION}|" "${CMAKE_CXX_COMPILER_ID}|${CMAKE_CXX_COMPILER_VERSION}|")
cmake_path(GET CMAKE_MAKE_PROGRAM STEM nombre)
ivrexa_version_de(version ${CMAKE_MAKE_PROGRAM} --version)
list(APPEND IVREXA_SBOM_UTILES "${nombre}|${version}|")
if(MINGW)
    ivrexa_version_de(version ld.lld --version)
    list(APPEND IVREXA_SBOM_UTILES "lld|${version}|")
    ivrexa_version_de(version ${CMAKE_RC_COMPILER} --version)
    list(APPEND IVREXA_SBOM_UTILES "windres|${version}|")
endif()
if(IVREXA_DLLTOOL)
    # It does not tell its version; it comes with the other programs of LLVM.
    list(APPEND IVREXA_SBOM_UTILES "llvm-dlltool||")
endif()
if(Python3_FOUND)
    list(APPEND IVREXA_SBOM_UTILES "Python|${Python3_VERSION}|")
endif()

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generado/paquete/sbom_datos.cmake @ONLY CONTENT [[
set(IVREXA_VERSION "@PROJECT_VERSION@")
set(IVREXA_SBOM_FICHERO "share/doc/ivrexa/ivrexa.spdx.json")
set(IVREXA_SBOM_PIEZAS "@IVREXA_SBOM_PIEZAS@")
set(IVREXA_SBOM_UTILES "@IVREXA_SBOM_UTILES@")
]])
install(SCRIPT ${PROJECT_BINARY_DIR}/generado/paquete/sbom_datos.cmake)
install(SCRIPT ${PROJECT_SOURCE_DIR}/cmake/escribe_sbom.cmake)
