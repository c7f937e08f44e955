# cmake -D CASO=... -D TALLER=... -D COPIA=... ... -P comprueba_instala.cmake
# One case of the tests of the installation; ends with an error when it does not hold.
#   TALLER        folder for what the tests make             FUENTES        the sources
#   COPIA         the installation, moved to its place       CONSTRUCCION   the build folder, as CONFIGURACION
cmake_policy(VERSION 3.22)

set(aqui ${CMAKE_CURRENT_LIST_DIR})
set(cruzado ${FUENTES}/cmake/mingw-clang.cmake)

function(exige_iguales que esperados reales)
    if(NOT "${esperados}" STREQUAL "${reales}")
        set(de_menos ${esperados})
        set(de_mas ${reales})
        list(REMOVE_ITEM de_menos ${reales})
        list(REMOVE_ITEM de_mas ${esperados})
        message(FATAL_ERROR "${que}\n  missing: ${de_menos}\n  beyond what is expected: ${de_mas}")
    endif()
endfunction()

# Runs a command; sets `salida` to what it says.
function(ejecuta salida)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE texto ERROR_VARIABLE texto RESULT_VARIABLE codigo)
    if(NOT codigo EQUAL 0)
        list(JOIN ARGN " " orden)
        message(FATAL_ERROR "${orden}\nends with ${codigo} and says\n${texto}")
    endif()
    set(${salida} "${texto}" PARENT_SCOPE)
endfunction()

# Runs a command that must fail; sets `salida` to what it says, in one line.
function(ejecuta_mal salida)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE texto ERROR_VARIABLE texto RESULT_VARIABLE codigo)
    if(codigo EQUAL 0)
        list(JOIN ARGN " " orden)
        message(FATAL_ERROR "${orden}\nends with 0 and says\n${texto}")
    endif()
    string(REGEX REPLACE "[ \n]+" " " texto "${texto}")
    set(${salida} "${texto}" PARENT_SCOPE)
endfunction()

# ---- The copy ------------------------------------------------------------------------------------------------

function(se_instala_y_se_muda)
    file(REMOVE_RECURSE ${TALLER}/instalada "${COPIA}")
    ejecuta(dice ${CMAKE_COMMAND} --install ${CONSTRUCCION} --prefix ${TALLER}/instalada --config ${CONFIGURACION})
    file(RENAME ${TALLER}/instalada "${COPIA}")
endfunction()

# The bill of materials is about the files, wherever they are said to be.
function(un_prefijo_relativo_da_la_misma_lista)
    file(REMOVE_RECURSE ${TALLER}/relativa)
    file(MAKE_DIRECTORY ${TALLER}/relativa)
    ejecuta(dice ${CMAKE_COMMAND} -E chdir ${TALLER}/relativa
        ${CMAKE_COMMAND} --install ${CONSTRUCCION} --prefix ./a/../aqui --config ${CONFIGURACION})
    foreach(carpeta IN ITEMS "${COPIA}" ${TALLER}/relativa/aqui)
        file(SHA256 "${carpeta}/share/doc/ivrexa/ivrexa.spdx.json" suma)
        list(APPEND sumas ${suma})
    endforeach()
    list(REMOVE_DUPLICATES sumas)
    list(LENGTH sumas cuantas)
    exige_iguales("The number of different bills of materials." 1 ${cuantas})
    file(REMOVE_RECURSE ${TALLER}/relativa)
endfunction()

# Appends to `esperados` the files of a folder of the sources that have one of these endings.
macro(espera_carpeta carpeta)
    foreach(fin ${ARGN})
        file(GLOB_RECURSE hay RELATIVE ${FUENTES} ${FUENTES}/${carpeta}/*${fin})
        list(FILTER hay EXCLUDE REGEX "/(target|__pycache__)/")
        list(TRANSFORM hay PREPEND share/doc/ivrexa/)
        list(APPEND esperados ${hay})
    endforeach()
endmacro()

function(estos_ficheros_y_ninguno_mas)
    # docs/install.md lists the folders.
    set(esperados bin/ivrexa.dll bin/ivrexactl.exe bin/ivrexa-monitor.exe lib/libivrexa.dll.a lib/ivrexa.lib
        lib/cmake/ivrexa/ivrexaConfig.cmake lib/cmake/ivrexa/ivrexaConfigVersion.cmake
        lib/cmake/ivrexa/ivrexaTargets.cmake lib/pkgconfig/ivrexa.pc include/ivrexa.h include/ivrexa_mcbase.h
        include/ivrexa.hpp share/doc/ivrexa/README.md share/doc/ivrexa/CHANGELOG.md share/doc/ivrexa/CONTRIBUTING.md
        share/doc/ivrexa/tools/README.md
        share/doc/ivrexa/bench/README.md share/doc/ivrexa/packaging/README.md
        share/doc/ivrexa/docs/install.md share/doc/ivrexa/examples/CMakeLists.txt share/doc/ivrexa/ivrexa.spdx.json)
    if(CONFIGURACION MATCHES "Debug|RelWithDebInfo")
        list(APPEND esperados bin/ivrexa.pdb)
    endif()
    if(EXISTS ${FUENTES}/LICENSE)
        list(APPEND esperados share/doc/ivrexa/LICENSE)
    endif()
    espera_carpeta(docs .md .png .svg)
    espera_carpeta(examples .md .c .cpp)
    espera_carpeta(bindings .md .json .py .cs .go .mod .rs .toml .lock)
    list(REMOVE_DUPLICATES esperados)
    list(SORT esperados)

    file(GLOB_RECURSE hay RELATIVE "${COPIA}" "${COPIA}/*")
    list(SORT hay)
    exige_iguales("The files that are installed." "${esperados}" "${hay}")
endfunction()

# A folder of this machine would be wrong on another.
function(ningun_fichero_de_cmake_nombra_carpetas)
    file(GLOB_RECURSE ficheros "${COPIA}/lib/cmake/*" "${COPIA}/lib/pkgconfig/*" "${COPIA}/share/*.json")
    foreach(fichero IN LISTS ficheros)
        file(READ "${fichero}" texto)
        foreach(carpeta IN ITEMS ${CONSTRUCCION} ${FUENTES} ${TALLER})
            string(FIND "${texto}" "${carpeta}" donde)
            if(NOT donde EQUAL -1)
                message(SEND_ERROR "${fichero} names ${carpeta}")
            endif()
        endforeach()
    endforeach()
endfunction()

function(las_dos_bibliotecas_tienen_los_nombres_del_def)
    file(STRINGS ${FUENTES}/src/ivrexa.def lineas REGEX "^    [^; ]")
    list(TRANSFORM lineas STRIP OUTPUT_VARIABLE nombres)
    list(SORT nombres)
    list(LENGTH nombres cuantos)
    exige_iguales("The number of names in ivrexa.def." 50 ${cuantos})
    foreach(biblioteca IN ITEMS ivrexa.lib libivrexa.dll.a)
        ejecuta(texto ${NM} --defined-only --just-symbol-name "${COPIA}/lib/${biblioteca}")
        string(REGEX MATCHALL "__imp_[^\n]*" importados "${texto}")
        list(TRANSFORM importados REPLACE "^__imp_" "")
        list(SORT importados)
        exige_iguales("What ${biblioteca} imports." "${nombres}" "${importados}")
        string(REGEX MATCHALL "\nivrexa_[^\n]*" directos "\n${texto}")
        list(TRANSFORM directos STRIP)
        list(SORT directos)
        exige_iguales("What ${biblioteca} defines." "${nombres}" "${directos}")

        file(READ "${COPIA}/lib/${biblioteca}" hex HEX)
        string(HEX "ivrexa.dll" dll)
        if(NOT hex MATCHES "${dll}00")
            message(FATAL_ERROR "${biblioteca} does not import from ivrexa.dll")
        endif()
    endforeach()
endfunction()

# ---- The archive ---------------------------------------------------------------------------------------------

# Twice, as two users in two places of the world would.
function(cpack_hace_dos_veces_el_mismo_zip)
    file(REMOVE_RECURSE ${TALLER}/zip)
    set(nombre ivrexa-${VERSION}-win64.zip)
    set(sumas "")
    foreach(vez IN ITEMS 1 2)
        if(vez EQUAL 2)
            set(ENV{TZ} Asia/Tokyo)
            if(CMAKE_HOST_UNIX)
                set(CPACK sh -c "umask 002 && exec \"$0\" \"$@\"" ${CPACK})
            endif()
            execute_process(COMMAND ${CMAKE_COMMAND} -E sleep 2)        # a ZIP tells times in steps of two seconds
        endif()
        ejecuta(dice ${CPACK} -G ZIP -C ${CONFIGURACION} -B ${TALLER}/zip/${vez}
            --config ${CONSTRUCCION}/CPackConfig.cmake)
        file(SHA256 ${TALLER}/zip/${vez}/${nombre} suma)
        list(APPEND sumas ${suma})
    endforeach()
    list(REMOVE_DUPLICATES sumas)
    list(LENGTH sumas cuantas)
    if(NOT cuantas EQUAL 1)
        message(FATAL_ERROR "${nombre} comes out differently: ${sumas}")
    endif()
endfunction()

# ---- find_package --------------------------------------------------------------------------------------------

# Configures the project `versiones` for Windows, in a folder of its own.
function(pide_versiones nombre raiz)
    file(REMOVE_RECURSE ${TALLER}/${nombre})
    ejecuta(dice ${CMAKE_COMMAND} -S ${aqui}/versiones -B ${TALLER}/${nombre} -G "Ninja Multi-Config"
        -D CMAKE_SYSTEM_NAME=Windows "-DCMAKE_PREFIX_PATH=${raiz}" -D VERSION=${VERSION} ${ARGN})
    foreach(configuracion IN ITEMS Debug Release)
        file(READ ${TALLER}/${nombre}/dll-${configuracion}.txt dll)
        file(READ ${TALLER}/${nombre}/esperada-${configuracion}.txt esperada)
        exige_iguales("The DLL of ${configuracion}." "${esperada}" "${dll}")
    endforeach()
endfunction()

function(find_package_acepta_y_rechaza_versiones)
    pide_versiones(versiones "${COPIA}")
endfunction()

# vcpkg moves the folder of the package to share/ivrexa, and has a second copy of the rest in debug.
function(se_encuentra_donde_vcpkg_lo_pone)
    set(raiz ${TALLER}/vcpkg/installed/x64-windows)
    file(REMOVE_RECURSE ${TALLER}/vcpkg)
    file(COPY "${COPIA}/bin" "${COPIA}/include" "${COPIA}/lib" DESTINATION ${raiz})
    file(COPY "${COPIA}/bin" "${COPIA}/lib" DESTINATION ${raiz}/debug)
    file(COPY "${COPIA}/lib/cmake/ivrexa" DESTINATION ${raiz}/share)
    file(REMOVE_RECURSE ${raiz}/lib/cmake ${raiz}/debug/lib/cmake)
    pide_versiones(vcpkg/pide ${raiz} -D DEPURACION=${raiz}/debug)
endfunction()

# What is refused adds no target, so a script may ask.
function(rechaza_con frase)
    file(WRITE ${TALLER}/por_que_no.cmake "cmake_policy(VERSION 3.22)\nfind_package(ivrexa REQUIRED CONFIG)\n")
    ejecuta_mal(dice ${CMAKE_COMMAND} "-DCMAKE_PREFIX_PATH=${COPIA}" ${ARGN} -P ${TALLER}/por_que_no.cmake)
    if(NOT dice MATCHES "${frase}")
        message(SEND_ERROR "find_package says\n${dice}\nbut not \"${frase}\"")
    endif()
endfunction()

function(find_package_dice_por_que_no)
    rechaza_con("ivrexa is a library for Windows, and this build is for Linux\\."
        -D WIN32= -D CMAKE_SYSTEM_NAME=Linux)
    rechaza_con("ivrexa is a 64-bit library, and this build is a 32-bit one\\." -D WIN32=1 -D CMAKE_SIZEOF_VOID_P=4)
    foreach(lenguaje IN ITEMS C CXX)
        rechaza_con("ivrexa is a library for x64 processors, and this build is for ARM64\\."
            -D WIN32=1 -D CMAKE_SIZEOF_VOID_P=8 -D CMAKE_${lenguaje}_COMPILER_ARCHITECTURE_ID=ARM64)
    endforeach()
endfunction()

function(find_package_rechaza_32_bits)
    file(REMOVE_RECURSE ${TALLER}/bits32)
    ejecuta_mal(dice ${CMAKE_COMMAND} -S ${aqui}/bits32 -B ${TALLER}/bits32 -G Ninja
        -D CMAKE_TOOLCHAIN_FILE=${aqui}/bits32/i686.cmake "-Divrexa_DIR=${COPIA}/lib/cmake/ivrexa")
    if(NOT dice MATCHES "ivrexa is a 64-bit library, and this build is a 32-bit one\\.")
        message(FATAL_ERROR "It says\n${dice}")
    endif()
    # And who finds the header by other means.
    ejecuta_mal(dice clang --target=i686-w64-mingw32 -fsyntax-only -ffreestanding "-I${COPIA}/include"
        ${aqui}/bits32/incluye.c)
    if(NOT dice MATCHES "ivrexa is a 64-bit library")
        message(FATAL_ERROR "It says\n${dice}")
    endif()
endfunction()

# ---- Programs ------------------------------------------------------------------------------------------------

# Configures and builds a project with this build's toolchain.
function(construye proyecto carpeta)
    file(REMOVE_RECURSE ${carpeta})
    ejecuta(dice ${CMAKE_COMMAND} -S ${proyecto} -B ${carpeta} -G Ninja -D CMAKE_TOOLCHAIN_FILE=${cruzado} ${ARGN})
    ejecuta(dice nice -n 5 ${CMAKE_COMMAND} --build ${carpeta} -j 1)
endfunction()

function(cmake_configura_y_compila)
    # The toolchain looks for packages in its own folders alone, unless they are named outright.
    construye(${aqui}/consumidor ${TALLER}/cmake "-Divrexa_DIR=${COPIA}/lib/cmake/ivrexa")
endfunction()

# Without a toolchain file, as docs/install.md says for Debian.
function(construye_con_gcc proyecto carpeta)
    file(REMOVE_RECURSE ${carpeta})
    ejecuta(dice ${CMAKE_COMMAND} -S ${proyecto} -B ${carpeta} -G Ninja "-DCMAKE_PREFIX_PATH=${COPIA}"
        -D CMAKE_SYSTEM_NAME=Windows -D CMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix
        -D CMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix)
    ejecuta(dice nice -n 5 ${CMAKE_COMMAND} --build ${carpeta} -j 1)
endfunction()

function(cmake_con_gcc_configura_y_compila)
    construye_con_gcc(${aqui}/consumidor ${TALLER}/cmake_gcc)
endfunction()

# As a user does: in a copy, for the one that is installed may not be written to.
function(copia_los_ejemplos carpeta)
    file(REMOVE_RECURSE ${carpeta})
    file(COPY "${COPIA}/share/doc/ivrexa/examples" DESTINATION ${carpeta})
endfunction()

function(exige_los_ejemplos hechos_en)
    file(GLOB fuentes ${FUENTES}/examples/*.c ${FUENTES}/examples/*.cpp)
    list(TRANSFORM fuentes REPLACE ".*/([^/]*)\\.(c|cpp)$" "\\1.exe")
    list(APPEND fuentes ivrexa.dll)
    list(SORT fuentes)
    file(GLOB hechos RELATIVE ${hechos_en} ${hechos_en}/*.exe ${hechos_en}/*.dll)
    list(SORT hechos)
    exige_iguales("The examples that the installed project builds." "${fuentes}" "${hechos}")
endfunction()

function(ejemplos_instalados_compilan)
    set(carpeta ${TALLER}/ejemplos)
    copia_los_ejemplos(${carpeta})
    construye(${carpeta}/examples ${carpeta}/hechos "-Divrexa_DIR=${COPIA}/lib/cmake/ivrexa")
    exige_los_ejemplos(${carpeta}/hechos)
endfunction()

function(ejemplos_instalados_compilan_con_gcc)
    set(carpeta ${TALLER}/ejemplos_gcc)
    copia_los_ejemplos(${carpeta})
    construye_con_gcc(${carpeta}/examples ${carpeta}/hechos)
    exige_los_ejemplos(${carpeta}/hechos)
endfunction()

function(add_subdirectory_da_el_mismo_nombre)
    construye(${aqui}/fuentes ${TALLER}/fuentes -D IVREXA=${FUENTES} -D CMAKE_BUILD_TYPE=Debug
        -D CMAKE_C_COMPILER_LAUNCHER=${LANZADOR_C} -D CMAKE_CXX_COMPILER_LAUNCHER=${LANZADOR_CXX})
endfunction()

# Both compilers of GCC, with what pkg-config says and nothing else.
function(pkg_config_compila)
    set(carpeta ${TALLER}/pkgconfig)
    file(REMOVE_RECURSE ${carpeta})
    file(COPY "${COPIA}/bin/ivrexa.dll" DESTINATION ${carpeta})
    set(ENV{PKG_CONFIG_PATH} "${COPIA}/lib/pkgconfig")
    ejecuta(version ${PKG_CONFIG} --modversion ivrexa)
    exige_iguales("The version that pkg-config tells." "${VERSION}\n" "${version}")
    ejecuta(banderas ${PKG_CONFIG} --cflags --libs ivrexa)
    separate_arguments(banderas UNIX_COMMAND "${banderas}")
    exige_iguales("What pkg-config tells." "-I${COPIA}/lib/pkgconfig/../../include;-L${COPIA}/lib/pkgconfig/../../lib;\
-livrexa" "${banderas}")
    ejecuta(dice ${GCC} -std=c11 -Wall -Wextra -Werror ${aqui}/consumidor/consume.c
        -o "${carpeta}/consume c.exe" ${banderas})
    ejecuta(dice ${GXX} -std=c++17 -Wall -Wextra -Werror -static ${aqui}/consumidor/consume.cpp
        -o "${carpeta}/consume cpp.exe" ${banderas})
endfunction()

# ---- vcpkg's port --------------------------------------------------------------------------------------------

# Runs the portfile with recorders in place of vcpkg's functions.
function(puerto_de_vcpkg_nombra_lo_que_hay)
    set(puerto ${FUENTES}/packaging/vcpkg/ports/ivrexa)
    file(READ ${puerto}/vcpkg.json json)
    string(JSON version GET "${json}" version-semver)
    exige_iguales("The version in vcpkg.json." "${VERSION}" "${version}")
    string(JSON nombre GET "${json}" name)
    exige_iguales("The name in vcpkg.json." ivrexa "${nombre}")

    ejecuta(dice ${CMAKE_COMMAND} -D PUERTO=${puerto} -D FUENTES=${FUENTES} -D TALLER=${TALLER}/puerto
        -P ${aqui}/recorre_puerto.cmake)

    # What the user is told to write is what finds the package.
    file(READ ${puerto}/usage texto)
    foreach(frase IN ITEMS "find_package(ivrexa CONFIG REQUIRED)" "PRIVATE ivrexa::ivrexa)" "pkg-config module, ivrexa")
        string(FIND "${texto}" "${frase}" donde)
        if(donde EQUAL -1)
            message(SEND_ERROR "usage does not say ${frase}")
        endif()
    endforeach()
endfunction()

cmake_language(CALL ${CASO})
